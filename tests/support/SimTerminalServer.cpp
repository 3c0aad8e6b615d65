#include "support/SimTerminalServer.h"

#include <atomic>
#include <new>

#include "base/StrUtil.h"
#include "engine/Seams.h"

using namespace simts;

namespace {

std::atomic<SimTerminalServer*> g_pInstalled{nullptr};
CritSec g_installLock;

} // namespace

SimTerminalServer::SimTerminalServer() : pState(new SimState), bInstalled(0), savedFns{}, pfnSavedStartProcess(nullptr)
{
    Reset(*pState);
}

SimTerminalServer::~SimTerminalServer()
{
    Uninstall();
    delete pState;
}

void SimTerminalServer::SetSink(Sink s)
{
    CritSecLock lock(deliveryLock);
    sink = std::move(s);
}

void SimTerminalServer::Send(DWORD dwEvent, DWORD dwSession)
{
    if (sink)
        sink(dwEvent, dwSession);
}

int SimTerminalServer::Operate(const std::function<DWORD(SimState&)>& change, DWORD dwSession)
{
    CritSecLock delivery(deliveryLock);
    DWORD dwEvent;
    {
        CritSecLock lock(tableLock);
        dwEvent = change(*pState);
    }
    if (!dwEvent)
        return 0;
    Send(dwEvent, dwSession);
    return 1;
}

int SimTerminalServer::AddSession(DWORD dwId, const wchar_t* pszUser, const wchar_t* pszDomain,
                                  WTS_CONNECTSTATE_CLASS state, int bRemote)
{
    CritSecLock lock(tableLock);
    return simts::AddSession(*pState, dwId, pszUser, pszDomain, state, bRemote);
}

int SimTerminalServer::SetUser(DWORD dwId, const wchar_t* pszUser, const wchar_t* pszDomain)
{
    CritSecLock lock(tableLock);
    SimSession* p = FindSession(*pState, dwId);
    if (!p) {
        SetLastError(kErrNoSession);
        return 0;
    }
    StrCopy(p->szUser, pszUser);
    StrCopy(p->szDomain, pszDomain);
    return 1;
}

int SimTerminalServer::SetState(DWORD dwId, WTS_CONNECTSTATE_CLASS state)
{
    CritSecLock lock(tableLock);
    SimSession* p = FindSession(*pState, dwId);
    if (!p) {
        SetLastError(kErrNoSession);
        return 0;
    }
    p->state = state;
    return 1;
}

int SimTerminalServer::Logon(DWORD dwId, const wchar_t* pszUser, const wchar_t* pszDomain, int bRemote)
{
    return Operate(
        [&](SimState& s) -> DWORD {
            return simts::AddSession(s, dwId, pszUser, pszDomain, WTSActive, bRemote) ? WTS_SESSION_LOGON : 0;
        },
        dwId);
}

int SimTerminalServer::Logoff(DWORD dwId)
{
    return Operate([&](SimState& s) -> DWORD { return RemoveSession(s, dwId) ? WTS_SESSION_LOGOFF : 0; }, dwId);
}

namespace {

// Applies f to the session, or fails with the terminal server's "no such session".
template <class F> DWORD WithSession(SimState& s, DWORD dwId, F f)
{
    SimSession* p = FindSession(s, dwId);
    if (!p) {
        SetLastError(kErrNoSession);
        return 0;
    }
    return f(*p);
}

} // namespace

int SimTerminalServer::Lock(DWORD dwId)
{
    return Operate(
        [&](SimState& s) {
            return WithSession(s, dwId, [](SimSession& p) -> DWORD {
                p.bLocked = 1;
                return WTS_SESSION_LOCK;
            });
        },
        dwId);
}

int SimTerminalServer::Unlock(DWORD dwId)
{
    return Operate(
        [&](SimState& s) {
            return WithSession(s, dwId, [](SimSession& p) -> DWORD {
                p.bLocked = 0;
                return WTS_SESSION_UNLOCK;
            });
        },
        dwId);
}

int SimTerminalServer::Disconnect(DWORD dwId)
{
    return Operate(
        [&](SimState& s) {
            return WithSession(s, dwId, [](SimSession& p) -> DWORD {
                p.state = WTSDisconnected;
                return p.bRemote ? WTS_REMOTE_DISCONNECT : WTS_CONSOLE_DISCONNECT;
            });
        },
        dwId);
}

int SimTerminalServer::Reconnect(DWORD dwId)
{
    return Operate(
        [&](SimState& s) {
            return WithSession(s, dwId, [](SimSession& p) -> DWORD {
                p.state = WTSActive;
                return p.bRemote ? WTS_REMOTE_CONNECT : WTS_CONSOLE_CONNECT;
            });
        },
        dwId);
}

void SimTerminalServer::Notify(DWORD dwEvent, DWORD dwSession)
{
    CritSecLock delivery(deliveryLock);
    Send(dwEvent, dwSession);
}

DWORD SimTerminalServer::DeliverPending()
{
    CritSecLock delivery(deliveryLock);
    std::vector<SimNotification> queued;
    {
        CritSecLock lock(tableLock);
        queued.assign(pState->pending, pState->pending + pState->nPending);
        pState->nPending = 0;
    }
    for (const SimNotification& n : queued)
        Send(n.dwEvent, n.dwSession);
    return (DWORD)queued.size();
}

DWORD SimTerminalServer::PendingCount()
{
    CritSecLock lock(tableLock);
    return pState->nPending;
}

int SimTerminalServer::Fail(SimCall call, DWORD dwError, int nCount, DWORD dwSession, int infoClass)
{
    CritSecLock lock(tableLock);
    return AddFailRule(*pState, call, dwError, nCount, dwSession, infoClass);
}

void SimTerminalServer::ClearFailures()
{
    CritSecLock lock(tableLock);
    for (SimFailRule& r : pState->rules)
        r.bInUse = 0;
}

void SimTerminalServer::SetMessageResponse(DWORD dwResponse)
{
    CritSecLock lock(tableLock);
    pState->dwMessageResponse = dwResponse;
}

void SimTerminalServer::SetCurrentSession(DWORD dwId)
{
    CritSecLock lock(tableLock);
    pState->dwCurrentSession = dwId;
}

int SimTerminalServer::GetSession(DWORD dwId, SimSession* pOut)
{
    CritSecLock lock(tableLock);
    const SimSession* p = FindSession(*pState, dwId);
    if (!p)
        return 0;
    *pOut = *p;
    return 1;
}

DWORD SimTerminalServer::SessionCount()
{
    CritSecLock lock(tableLock);
    return pState->nSessions;
}

std::vector<SimLogoff> SimTerminalServer::Logoffs()
{
    CritSecLock lock(tableLock);
    return std::vector<SimLogoff>(pState->logoffs, pState->logoffs + pState->nLogoffs);
}

std::vector<SimMessage> SimTerminalServer::Messages()
{
    CritSecLock lock(tableLock);
    return std::vector<SimMessage>(pState->messages, pState->messages + pState->nMessages);
}

std::vector<SimProcess> SimTerminalServer::Processes()
{
    CritSecLock lock(tableLock);
    return std::vector<SimProcess>(pState->processes, pState->processes + pState->nProcesses);
}

void SimTerminalServer::ClearRecords()
{
    CritSecLock lock(tableLock);
    pState->nLogoffs = pState->nMessages = pState->nProcesses = 0;
    pState->nDropped = 0;
}

LONG SimTerminalServer::OutstandingAllocations()
{
    CritSecLock lock(tableLock);
    return pState->nAllocations;
}

DWORD SimTerminalServer::BadFrees()
{
    CritSecLock lock(tableLock);
    return pState->nBadFrees;
}

DWORD SimTerminalServer::Dropped()
{
    CritSecLock lock(tableLock);
    return pState->nDropped;
}

DWORD SimTerminalServer::TokensIssued()
{
    CritSecLock lock(tableLock);
    return pState->nTokens;
}

LONG SimTerminalServer::Registrations()
{
    CritSecLock lock(tableLock);
    return pState->nRegistrations;
}

int SimTerminalServer::Install()
{
    CritSecLock lock(g_installLock);
    if (g_pInstalled.load()) {
        SetLastError(ERROR_BUSY);
        return 0;
    }
    WtsApi32::Load();   // from now on the engine's own Load leaves the table alone
    savedFns = WtsApi32::fns;
    pfnSavedStartProcess = Seams::pfnStartProcessInSession;
    WtsApi32Fns f = {};
    f.pfnWTSRegisterSessionNotification = SimWTSRegisterSessionNotification;
    f.pfnWTSUnRegisterSessionNotification = SimWTSUnRegisterSessionNotification;
    f.pfnWTSGetActiveConsoleSessionId = SimWTSGetActiveConsoleSessionId;
    f.pfnWTSQuerySessionInformation = SimWTSQuerySessionInformationW;
    f.pfnWTSFreeMemory = SimWTSFreeMemory;
    f.pfnWTSLogoffSession = SimWTSLogoffSession;
    f.pfnWTSQueryUserToken = SimWTSQueryUserToken;
    f.pfnWTSEnumerateSessions = SimWTSEnumerateSessionsW;
    f.pfnWTSSendMessage = SimWTSSendMessageW;
    g_pInstalled = this;
    WtsApi32::fns = f;
    Seams::pfnStartProcessInSession = SimStartProcessInSession;
    bInstalled = 1;
    return 1;
}

void SimTerminalServer::Uninstall()
{
    CritSecLock lock(g_installLock);
    if (!bInstalled)
        return;
    WtsApi32::fns = savedFns;
    Seams::pfnStartProcessInSession = pfnSavedStartProcess;
    g_pInstalled = nullptr;
    bInstalled = 0;
    WtsApi32::Unload();
}

SimTerminalServer* SimTerminalServer::Installed()
{
    return g_pInstalled.load();
}

// Each entry point: the installed simulator's lock around one core function.
#define SIM_CALL(expr)                                   \
    SimTerminalServer* p = g_pInstalled.load();          \
    if (!p) {                                            \
        SetLastError(ERROR_INVALID_HANDLE);              \
        return 0;                                        \
    }                                                    \
    CritSecLock lock(p->tableLock);                      \
    return expr;

BOOL WINAPI SimTerminalServer::SimWTSEnumerateSessionsW(HANDLE hServer, DWORD dwReserved, DWORD dwVersion,
                                                        PWTS_SESSION_INFOW* ppSessionInfo, DWORD* pCount)
{
    SIM_CALL(EnumerateSessions(*p->pState, hServer, dwReserved, dwVersion, ppSessionInfo, pCount))
}

BOOL WINAPI SimTerminalServer::SimWTSQuerySessionInformationW(HANDLE hServer, DWORD dwSessionId,
                                                              WTS_INFO_CLASS infoClass, LPWSTR* ppBuffer,
                                                              DWORD* pBytesReturned)
{
    SIM_CALL(QuerySessionInformation(*p->pState, hServer, dwSessionId, infoClass, ppBuffer, pBytesReturned))
}

void WINAPI SimTerminalServer::SimWTSFreeMemory(PVOID pMemory)
{
    SimTerminalServer* p = g_pInstalled.load();
    if (!p)
        return;
    CritSecLock lock(p->tableLock);
    FreeMemory(*p->pState, pMemory);
}

BOOL WINAPI SimTerminalServer::SimWTSLogoffSession(HANDLE hServer, DWORD dwSessionId, BOOL bWait)
{
    SIM_CALL(LogoffSession(*p->pState, hServer, dwSessionId, bWait))
}

BOOL WINAPI SimTerminalServer::SimWTSSendMessageW(HANDLE hServer, DWORD dwSessionId, LPWSTR pTitle, DWORD cbTitle,
                                                  LPWSTR pMessage, DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout,
                                                  DWORD* pResponse, BOOL bWait)
{
    SIM_CALL(SendMessageBox(*p->pState, hServer, dwSessionId, pTitle, cbTitle, pMessage, cbMessage, dwStyle,
                            dwTimeout, pResponse, bWait))
}

BOOL WINAPI SimTerminalServer::SimWTSQueryUserToken(ULONG dwSessionId, PHANDLE phToken)
{
    SIM_CALL(QueryUserToken(*p->pState, dwSessionId, phToken))
}

BOOL WINAPI SimTerminalServer::SimWTSRegisterSessionNotification(HWND hWnd, DWORD dwFlags)
{
    SIM_CALL(RegisterSessionNotification(*p->pState, hWnd, dwFlags))
}

BOOL WINAPI SimTerminalServer::SimWTSUnRegisterSessionNotification(HWND hWnd)
{
    SIM_CALL(UnRegisterSessionNotification(*p->pState, hWnd))
}

DWORD WINAPI SimTerminalServer::SimWTSGetActiveConsoleSessionId()
{
    SimTerminalServer* p = g_pInstalled.load();
    if (!p)
        return 0xFFFFFFFF;
    CritSecLock lock(p->tableLock);
    return GetActiveConsoleSessionId(*p->pState);
}

int SimTerminalServer::SimStartProcessInSession(DWORD dwSessionId, const wchar_t* pszCmdLine)
{
    SIM_CALL(StartProcessInSession(*p->pState, dwSessionId, pszCmdLine))
}

#undef SIM_CALL
