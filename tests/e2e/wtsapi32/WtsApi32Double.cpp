// wtsapi32.dll for the end-to-end runs: the Terminal Services calls the product makes, answered
// from the simulated terminal server's table that the controlling program sets (common/SimShared.h).
//
// Placed beside VXA64.EXE and loaded instead of Wine's own library (a DLL override in the test
// prefix), it lets the unmodified service enumerate and query simulated sessions, and records
// every logoff and message box the product asks for. Wine's own functions answer with canned
// values (no sessions, "root" for every user, success for every logoff), which would prove
// nothing.
//
// The user token is real: the caller's own process token, duplicated as a primary token, so that
// CreateProcessAsUserW really starts the in-session programs under Wine.
#include <windows.h>
#include <wtsapi32.h>

#include <cstring>

#include "base/StrUtil.h"
#include "common/SimShared.h"

namespace {

simshared::Shared g_shared;
int g_bReady = 0;
DWORD g_dwMyAttach = 0xFFFFFFFF;   // this process's record in attaches

simshared::Attach* MyAttach(simshared::Block& b)
{
    if (g_dwMyAttach < b.nAttaches && b.attaches[g_dwMyAttach].dwPid == GetCurrentProcessId())
        return &b.attaches[g_dwMyAttach];
    return nullptr;
}

void RecordAttach()
{
    simshared::Locked lock(g_shared);
    if (!lock)
        return;
    simshared::Block& b = *g_shared.Get();
    if (b.nAttaches >= simshared::kMaxAttaches) {
        b.state.nDropped++;
        return;
    }
    g_dwMyAttach = b.nAttaches++;
    simshared::Attach& a = b.attaches[g_dwMyAttach];
    memset(&a, 0, sizeof a);
    a.nSeq = simshared::NextSeq(b);
    a.dwPid = GetCurrentProcessId();
    StrCopy(a.szCmdLine, simshared::kCmdLineChars, GetCommandLineW());
}

void RecordDetach()
{
    simshared::Locked lock(g_shared, 2000);
    if (!lock)
        return;
    if (simshared::Attach* a = MyAttach(*g_shared.Get()))
        a->bDetached = 1;
}

// The table is there, or the call fails as the terminal server does when it cannot be reached.
bool Ready()
{
    if (g_bReady)
        return true;
    SetLastError(RPC_S_SERVER_UNAVAILABLE);
    return false;
}

} // namespace

// Each entry point: the table's mutex around one core function. A table that cannot be locked
// answers as an unreachable terminal server.
#define SIM_LOCKED(failValue)                     \
    if (!Ready())                                 \
        return failValue;                         \
    simshared::Locked lock(g_shared);             \
    if (!lock) {                                  \
        SetLastError(RPC_S_SERVER_TOO_BUSY);      \
        return failValue;                         \
    }                                             \
    simshared::Block& b = *g_shared.Get();

extern "C" {

BOOL WINAPI WTSEnumerateSessionsW(HANDLE hServer, DWORD dwReserved, DWORD dwVersion, PWTS_SESSION_INFOW* ppSessionInfo,
                                  DWORD* pCount)
{
    SIM_LOCKED(FALSE)
    return simts::EnumerateSessions(b.state, hServer, dwReserved, dwVersion, ppSessionInfo, pCount);
}

BOOL WINAPI WTSQuerySessionInformationW(HANDLE hServer, DWORD dwSessionId, WTS_INFO_CLASS infoClass, LPWSTR* ppBuffer,
                                        DWORD* pBytesReturned)
{
    SIM_LOCKED(FALSE)
    return simts::QuerySessionInformation(b.state, hServer, dwSessionId, infoClass, ppBuffer, pBytesReturned);
}

void WINAPI WTSFreeMemory(PVOID pMemory)
{
    SIM_LOCKED()
    simts::FreeMemory(b.state, pMemory);
}

BOOL WINAPI WTSLogoffSession(HANDLE hServer, DWORD dwSessionId, BOOL bWait)
{
    SIM_LOCKED(FALSE)
    return simts::LogoffSession(b.state, hServer, dwSessionId, bWait);
}

BOOL WINAPI WTSSendMessageW(HANDLE hServer, DWORD dwSessionId, LPWSTR pTitle, DWORD cbTitle, LPWSTR pMessage,
                            DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout, DWORD* pResponse, BOOL bWait)
{
    SIM_LOCKED(FALSE)
    return simts::SendMessageBox(b.state, hServer, dwSessionId, pTitle, cbTitle, pMessage, cbMessage, dwStyle,
                                 dwTimeout, pResponse, bWait);
}

BOOL WINAPI WTSQueryUserToken(ULONG SessionId, PHANDLE phToken)
{
    SIM_LOCKED(FALSE)
    BOOL ok = simts::QueryUserToken(b.state, SessionId, phToken);
    DWORD err = ok ? 0 : GetLastError();
    if (b.nTokenRequests < simshared::kMaxTokenRequests) {
        simshared::TokenRequest& r = b.tokenRequests[b.nTokenRequests++];
        r.nSeq = simshared::NextSeq(b);
        r.dwSession = SessionId;
        r.dwPid = GetCurrentProcessId();
        r.dwError = err;
    } else {
        b.state.nDropped++;
    }
    SetLastError(err);
    return ok;
}

BOOL WINAPI WTSRegisterSessionNotification(HWND hWnd, DWORD dwFlags)
{
    SIM_LOCKED(FALSE)
    BOOL ok = simts::RegisterSessionNotification(b.state, hWnd, dwFlags);
    if (ok)
        if (simshared::Attach* a = MyAttach(b)) {
            a->nRegistered++;
            a->nRegistrations++;
        }
    return ok;
}

BOOL WINAPI WTSUnRegisterSessionNotification(HWND hWnd)
{
    SIM_LOCKED(FALSE)
    BOOL ok = simts::UnRegisterSessionNotification(b.state, hWnd);
    if (ok)
        if (simshared::Attach* a = MyAttach(b))
            a->nRegistrations--;
    return ok;
}

BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD dwReason, LPVOID)
{
    switch (dwReason) {
    case DLL_PROCESS_ATTACH:
        DisableThreadLibraryCalls(hInstance);
        g_bReady = g_shared.Open();
        if (g_bReady)
            RecordAttach();
        break;
    case DLL_PROCESS_DETACH:
        if (g_bReady)
            RecordDetach();
        break;
    default:
        break;
    }
    return TRUE;
}

} // extern "C"

#undef SIM_LOCKED
