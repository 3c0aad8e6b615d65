// wtsapi32.dll for the end-to-end runs: placed beside VXA64.EXE and preferred to Wine's own (whose
// canned answers prove nothing), it answers the unmodified product from the simulated table that
// the controller sets, and records every logoff, message box and user token asked for. The token
// is the caller's own, so CreateProcessAsUserW really starts the in-session programs under Wine.
#include <windows.h>
#include <wtsapi32.h>

#include "common/SimShared.h"

namespace {
simshared::Shared g_shared;
int g_bReady = 0;
} // namespace

#define API extern "C" __declspec(dllexport)

// Each entry point: one core call under the table's mutex. A table that cannot be had answers as
// an unreachable terminal server.
#define SIM_LOCKED(failValue)                                                                      \
    simshared::Locked lock(g_shared);                                                              \
    if (!g_bReady || !lock.bLocked) {                                                              \
        SetLastError(RPC_S_SERVER_UNAVAILABLE);                                                    \
        return failValue;                                                                          \
    }                                                                                              \
    simts::SimState& s = g_shared.State();

API BOOL WINAPI WTSEnumerateSessionsW(HANDLE hServer, DWORD dwReserved, DWORD dwVersion, PWTS_SESSION_INFOW* ppInfo,
                                      DWORD* pCount)
{
    SIM_LOCKED(FALSE)
    return simts::EnumerateSessions(s, hServer, dwReserved, dwVersion, ppInfo, pCount);
}

API BOOL WINAPI WTSQuerySessionInformationW(HANDLE hServer, DWORD dwSessionId, WTS_INFO_CLASS infoClass,
                                            LPWSTR* ppBuffer, DWORD* pBytesReturned)
{
    SIM_LOCKED(FALSE)
    return simts::QuerySessionInformation(s, hServer, dwSessionId, infoClass, ppBuffer, pBytesReturned);
}

API void WINAPI WTSFreeMemory(PVOID pMemory)
{
    SIM_LOCKED()
    simts::FreeMemory(s, pMemory);
}

API BOOL WINAPI WTSLogoffSession(HANDLE hServer, DWORD dwSessionId, BOOL bWait)
{
    SIM_LOCKED(FALSE)
    return simts::LogoffSession(s, hServer, dwSessionId, bWait);
}

API BOOL WINAPI WTSSendMessageW(HANDLE hServer, DWORD dwSessionId, LPWSTR pTitle, DWORD cbTitle, LPWSTR pMessage,
                                DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout, DWORD* pResponse, BOOL bWait)
{
    SIM_LOCKED(FALSE)
    return simts::SendMessageBox(s, hServer, dwSessionId, pTitle, cbTitle, pMessage, cbMessage, dwStyle, dwTimeout,
                                 pResponse, bWait);
}

// The service takes a session's token to start a program in it: recorded as a process start.
API BOOL WINAPI WTSQueryUserToken(ULONG SessionId, PHANDLE phToken)
{
    SIM_LOCKED(FALSE)
    return simts::StartProcessInSession(s, SessionId, L"") && simts::QueryUserToken(s, SessionId, phToken);
}

API BOOL WINAPI WTSRegisterSessionNotification(HWND hWnd, DWORD dwFlags)
{
    SIM_LOCKED(FALSE)
    return simts::RegisterSessionNotification(s, hWnd, dwFlags);
}

API BOOL WINAPI WTSUnRegisterSessionNotification(HWND hWnd)
{
    SIM_LOCKED(FALSE)
    return simts::UnRegisterSessionNotification(s, hWnd);
}

extern "C" BOOL WINAPI DllMain(HINSTANCE hInstance, DWORD dwReason, LPVOID)
{
    if (dwReason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(hInstance);
        g_bReady = g_shared.Open();
    }
    return TRUE;
}
