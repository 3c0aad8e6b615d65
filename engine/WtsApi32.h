// The Terminal Services library, loaded at run time.
//
// The service must start on systems where some Terminal Services functions are missing, so
// nothing links against WTSAPI32: a WtsApi32 object loads "WTSAPI32" and resolves the functions
// into the process-wide table WtsApi32::fns (WTSGetActiveConsoleSessionId from "KERNEL32"). A
// function that is missing keeps a null pointer, and its forwarder then answers 0 (last error
// ERROR_PROC_NOT_FOUND, output arguments cleared). Every Terminal Services call of the engine goes
// through these forwarders, never through the import library.
//
// Replacing the terminal server (tests, the simulated terminal server): overwrite the pointers
// of WtsApi32::fns. The table is a plain struct, so a test saves all of it by copy and restores it
// the same way.
//
// The process-wide instance: WtsApi32::Load() loads the library once and resolves the table; later
// calls only count. WtsApi32::Unload() undoes one Load; the last one frees the library. The service
// calls Load when it starts and Unload when it stops. Once loaded, further Load calls never
// resolve the table again, so pointers a test put in after its own Load stay in place while the
// engine starts and stops. When the last loaded object goes, the pointers that still point into
// the library are cleared (pointers someone replaced are left alone): no call can reach a freed
// library.
#pragma once
#include <windows.h>
#include <wtsapi32.h>

#include "base/Handle.h"

struct WtsApi32Fns {
    BOOL(WINAPI* pfnWTSRegisterSessionNotification)(HWND hWnd, DWORD dwFlags);
    BOOL(WINAPI* pfnWTSUnRegisterSessionNotification)(HWND hWnd);
    DWORD(WINAPI* pfnWTSGetActiveConsoleSessionId)();
    BOOL(WINAPI* pfnWTSQuerySessionInformation)(HANDLE hServer, DWORD dwSessionId, WTS_INFO_CLASS infoClass,
                                                LPWSTR* ppBuffer, DWORD* pBytesReturned);
    void(WINAPI* pfnWTSFreeMemory)(PVOID pMemory);
    BOOL(WINAPI* pfnWTSLogoffSession)(HANDLE hServer, DWORD dwSessionId, BOOL bWait);
    BOOL(WINAPI* pfnWTSQueryUserToken)(ULONG dwSessionId, PHANDLE phToken);
    BOOL(WINAPI* pfnWTSEnumerateSessions)(HANDLE hServer, DWORD dwReserved, DWORD dwVersion,
                                          PWTS_SESSION_INFOW* ppSessionInfo, DWORD* pCount);
    BOOL(WINAPI* pfnWTSSendMessage)(HANDLE hServer, DWORD dwSessionId, LPWSTR pTitle, DWORD cbTitle,
                                    LPWSTR pMessage, DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout,
                                    DWORD* pResponse, BOOL bWait);
};

class WtsApi32 {
public:
    // Loads "WTSAPI32"; when it loads, resolves every pointer of fns (a missing function leaves
    // its pointer null).
    WtsApi32();
    // Frees the library; the last loaded object also clears the pointers it resolved.
    ~WtsApi32();
    WtsApi32(const WtsApi32&) = delete;
    WtsApi32& operator=(const WtsApi32&) = delete;

    HMODULE GetModule() const { return hModule.Get(); }

    // The process-wide instance (see above). Load answers nonzero when the library is loaded.
    static int Load();
    static void Unload();

    // The process-wide function table.
    static WtsApi32Fns fns;

    // Forwarders: the function with the same arguments, or 0 when it is missing.
    static BOOL WTSRegisterSessionNotification(HWND hWnd, DWORD dwFlags);
    static BOOL WTSUnRegisterSessionNotification(HWND hWnd);
    static DWORD WTSGetActiveConsoleSessionId();
    static BOOL WTSQuerySessionInformationW(HANDLE hServer, DWORD dwSessionId, WTS_INFO_CLASS infoClass,
                                            LPWSTR* ppBuffer, DWORD* pBytesReturned);
    static void WTSFreeMemory(PVOID pMemory);
    static BOOL WTSLogoffSession(HANDLE hServer, DWORD dwSessionId, BOOL bWait);
    static BOOL WTSQueryUserToken(ULONG dwSessionId, PHANDLE phToken);
    static BOOL WTSEnumerateSessionsW(HANDLE hServer, DWORD dwReserved, DWORD dwVersion,
                                      PWTS_SESSION_INFOW* ppSessionInfo, DWORD* pCount);
    static BOOL WTSSendMessageW(HANDLE hServer, DWORD dwSessionId, LPWSTR pTitle, DWORD cbTitle, LPWSTR pMessage,
                                DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout, DWORD* pResponse, BOOL bWait);

    // Session queries on the current server.
    // Logs the session off (waiting for the logoff to finish when bWait is set); 0 when that
    // fails or is unavailable.
    static int LogoffSession(int bWait, DWORD dwSessionId);
    // The session's WTSSessionId, or 0xFFFFFFFF when there is no answer.
    static DWORD GetSessionID(DWORD dwSessionId);
    // The session's WTSConnectState, or 9 (WTSInit) when there is no answer: a session in the
    // state WTSInit looks the same here, so callers that must tell them apart use
    // QuerySessionConnectState.
    static DWORD GetSessionConnectState(DWORD dwSessionId);
    // 1 with the session's WTSConnectState in state when it could be read; 0 (state untouched)
    // when there is no answer.
    static int QuerySessionConnectState(DWORD dwSessionId, DWORD& state);
    // The number of sessions the server enumerates; 0 when the enumeration fails.
    static DWORD GetSessionCount();
    // The position in the enumeration (from 0) of the last session in the state WTSActive, or
    // 0xFFFFFFFF when none is or the enumeration fails. The position, not the session id: the
    // callers rely on it as it is.
    static DWORD GetActiveSessionID();

private:
    ModuleHandle hModule;
    WtsApi32Fns resolved;   // what this object put into fns
};

// Memory that the Terminal Services functions hand back, released through the table's
// WTSFreeMemory (nothing is released once the library has gone).
template <class T> struct WtsMemoryTraits : NullEmptyTraits<T*> {
    static void Release(T* p) { WtsApi32::WTSFreeMemory(p); }
};
template <class T> using WtsPtr = Owner<T*, WtsMemoryTraits<T>>;
