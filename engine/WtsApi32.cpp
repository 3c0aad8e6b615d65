#include "engine/WtsApi32.h"

#include "base/Module.h"
#include "base/Thread.h"

#include <new>

WtsApi32Fns WtsApi32::fns = {};

namespace {

// Guards the loaded-object count and the process-wide instance. Constructed on first use, so a
// WtsApi32 object built during static initialisation finds it ready.
CritSec& LoadLock()
{
    static CritSec lock;
    return lock;
}

int g_nLoaded = 0;                  // WtsApi32 objects whose library is loaded
WtsApi32* g_pInstance = nullptr;    // the process-wide instance of Load/Unload
int g_nLoadCount = 0;

template <class Fn> void ClearIfSame(Fn& current, Fn mine)
{
    if (mine && current == mine)
        current = nullptr;
}

// What a missing function answers: 0, with the reason in the last error.
BOOL Missing()
{
    SetLastError(ERROR_PROC_NOT_FOUND);
    return FALSE;
}

} // namespace

WtsApi32::WtsApi32() : resolved{}
{
    hModule.Attach(LoadLibraryW(L"WTSAPI32"));
    if (!hModule)
        return;
    HMODULE kernel = GetModuleHandleW(L"KERNEL32");
    resolved.pfnWTSRegisterSessionNotification =
        GetProcAs<decltype(resolved.pfnWTSRegisterSessionNotification)>(hModule.Get(), "WTSRegisterSessionNotification");
    resolved.pfnWTSUnRegisterSessionNotification =
        GetProcAs<decltype(resolved.pfnWTSUnRegisterSessionNotification)>(hModule.Get(), "WTSUnRegisterSessionNotification");
    resolved.pfnWTSGetActiveConsoleSessionId =
        GetProcAs<decltype(resolved.pfnWTSGetActiveConsoleSessionId)>(kernel, "WTSGetActiveConsoleSessionId");
    resolved.pfnWTSQuerySessionInformation =
        GetProcAs<decltype(resolved.pfnWTSQuerySessionInformation)>(hModule.Get(), "WTSQuerySessionInformationW");
    resolved.pfnWTSFreeMemory = GetProcAs<decltype(resolved.pfnWTSFreeMemory)>(hModule.Get(), "WTSFreeMemory");
    resolved.pfnWTSLogoffSession = GetProcAs<decltype(resolved.pfnWTSLogoffSession)>(hModule.Get(), "WTSLogoffSession");
    resolved.pfnWTSQueryUserToken = GetProcAs<decltype(resolved.pfnWTSQueryUserToken)>(hModule.Get(), "WTSQueryUserToken");
    resolved.pfnWTSEnumerateSessions =
        GetProcAs<decltype(resolved.pfnWTSEnumerateSessions)>(hModule.Get(), "WTSEnumerateSessionsW");
    resolved.pfnWTSSendMessage = GetProcAs<decltype(resolved.pfnWTSSendMessage)>(hModule.Get(), "WTSSendMessageW");

    CritSecLock lock(LoadLock());
    fns = resolved;
    ++g_nLoaded;
}

WtsApi32::~WtsApi32()
{
    if (!hModule)
        return;
    {
        CritSecLock lock(LoadLock());
        if (--g_nLoaded == 0) {
            ClearIfSame(fns.pfnWTSRegisterSessionNotification, resolved.pfnWTSRegisterSessionNotification);
            ClearIfSame(fns.pfnWTSUnRegisterSessionNotification, resolved.pfnWTSUnRegisterSessionNotification);
            ClearIfSame(fns.pfnWTSGetActiveConsoleSessionId, resolved.pfnWTSGetActiveConsoleSessionId);
            ClearIfSame(fns.pfnWTSQuerySessionInformation, resolved.pfnWTSQuerySessionInformation);
            ClearIfSame(fns.pfnWTSFreeMemory, resolved.pfnWTSFreeMemory);
            ClearIfSame(fns.pfnWTSLogoffSession, resolved.pfnWTSLogoffSession);
            ClearIfSame(fns.pfnWTSQueryUserToken, resolved.pfnWTSQueryUserToken);
            ClearIfSame(fns.pfnWTSEnumerateSessions, resolved.pfnWTSEnumerateSessions);
            ClearIfSame(fns.pfnWTSSendMessage, resolved.pfnWTSSendMessage);
        }
    }
    hModule.Close();
}

int WtsApi32::Load()
{
    CritSecLock lock(LoadLock());
    if (!g_pInstance)
        g_pInstance = new (std::nothrow) WtsApi32;
    if (!g_pInstance) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    ++g_nLoadCount;
    return g_pInstance->GetModule() != nullptr;
}

void WtsApi32::Unload()
{
    CritSecLock lock(LoadLock());
    if (g_nLoadCount == 0 || --g_nLoadCount > 0)
        return;
    delete g_pInstance;   // re-enters the lock from the destructor (re-entrant)
    g_pInstance = nullptr;
}

BOOL WtsApi32::WTSRegisterSessionNotification(HWND hWnd, DWORD dwFlags)
{
    return fns.pfnWTSRegisterSessionNotification ? fns.pfnWTSRegisterSessionNotification(hWnd, dwFlags) : Missing();
}

BOOL WtsApi32::WTSUnRegisterSessionNotification(HWND hWnd)
{
    return fns.pfnWTSUnRegisterSessionNotification ? fns.pfnWTSUnRegisterSessionNotification(hWnd) : Missing();
}

DWORD WtsApi32::WTSGetActiveConsoleSessionId()
{
    return fns.pfnWTSGetActiveConsoleSessionId ? fns.pfnWTSGetActiveConsoleSessionId() : (DWORD)Missing();
}

BOOL WtsApi32::WTSQuerySessionInformationW(HANDLE hServer, DWORD dwSessionId, WTS_INFO_CLASS infoClass,
                                           LPWSTR* ppBuffer, DWORD* pBytesReturned)
{
    if (fns.pfnWTSQuerySessionInformation)
        return fns.pfnWTSQuerySessionInformation(hServer, dwSessionId, infoClass, ppBuffer, pBytesReturned);
    if (ppBuffer)
        *ppBuffer = nullptr;
    if (pBytesReturned)
        *pBytesReturned = 0;
    return Missing();
}

void WtsApi32::WTSFreeMemory(PVOID pMemory)
{
    if (fns.pfnWTSFreeMemory)
        fns.pfnWTSFreeMemory(pMemory);
}

BOOL WtsApi32::WTSLogoffSession(HANDLE hServer, DWORD dwSessionId, BOOL bWait)
{
    return fns.pfnWTSLogoffSession ? fns.pfnWTSLogoffSession(hServer, dwSessionId, bWait) : Missing();
}

BOOL WtsApi32::WTSQueryUserToken(ULONG dwSessionId, PHANDLE phToken)
{
    if (fns.pfnWTSQueryUserToken)
        return fns.pfnWTSQueryUserToken(dwSessionId, phToken);
    if (phToken)
        *phToken = nullptr;
    return Missing();
}

BOOL WtsApi32::WTSEnumerateSessionsW(HANDLE hServer, DWORD dwReserved, DWORD dwVersion,
                                     PWTS_SESSION_INFOW* ppSessionInfo, DWORD* pCount)
{
    if (fns.pfnWTSEnumerateSessions)
        return fns.pfnWTSEnumerateSessions(hServer, dwReserved, dwVersion, ppSessionInfo, pCount);
    if (ppSessionInfo)
        *ppSessionInfo = nullptr;
    if (pCount)
        *pCount = 0;
    return Missing();
}

BOOL WtsApi32::WTSSendMessageW(HANDLE hServer, DWORD dwSessionId, LPWSTR pTitle, DWORD cbTitle, LPWSTR pMessage,
                               DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout, DWORD* pResponse, BOOL bWait)
{
    if (fns.pfnWTSSendMessage)
        return fns.pfnWTSSendMessage(hServer, dwSessionId, pTitle, cbTitle, pMessage, cbMessage, dwStyle, dwTimeout,
                                     pResponse, bWait);
    if (pResponse)
        *pResponse = 0;
    return Missing();
}

int WtsApi32::LogoffSession(int bWait, DWORD dwSessionId)
{
    return WTSLogoffSession(WTS_CURRENT_SERVER_HANDLE, dwSessionId, bWait ? TRUE : FALSE) ? 1 : 0;
}

DWORD WtsApi32::GetSessionID(DWORD dwSessionId)
{
    WtsPtr<wchar_t> buffer;
    DWORD cb = 0;
    if (WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, dwSessionId, WTSSessionId, buffer.Receive(), &cb) &&
        buffer && cb >= sizeof(DWORD))
        return *(const DWORD*)buffer.Get();
    return 0xFFFFFFFF;
}

DWORD WtsApi32::GetSessionConnectState(DWORD dwSessionId)
{
    DWORD state = WTSInit;
    QuerySessionConnectState(dwSessionId, state);
    return state;
}

int WtsApi32::QuerySessionConnectState(DWORD dwSessionId, DWORD& state)
{
    WtsPtr<wchar_t> buffer;
    DWORD cb = 0;
    if (WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, dwSessionId, WTSConnectState, buffer.Receive(), &cb) &&
        buffer && cb >= sizeof(DWORD)) {
        state = *(const DWORD*)buffer.Get();
        return 1;
    }
    return 0;
}

DWORD WtsApi32::GetSessionCount()
{
    WtsPtr<WTS_SESSION_INFOW> info;
    DWORD n = 0;
    if (!WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, info.Receive(), &n))
        n = 0;
    return n;
}

DWORD WtsApi32::GetActiveSessionID()
{
    WtsPtr<WTS_SESSION_INFOW> info;
    DWORD n = 0;
    DWORD pos = 0xFFFFFFFF;
    if (WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, info.Receive(), &n) && info) {
        for (DWORD i = 0; i < n; i++)
            if (info.Get()[i].State == WTSActive)
                pos = i;
    }
    return pos;
}
