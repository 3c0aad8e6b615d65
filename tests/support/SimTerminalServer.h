// A simulated terminal server for the engine's tests.
//
// The test builds the session table, drives what users do (log on, lock, disconnect, log off)
// and receives the session-change notification the service manager would send for each, through
// a sink it gives (the engine tests forward them to EngineControl with code 14). Install() puts
// the simulator behind WtsApi32 and the engine's process-start seam, so the unmodified engine
// enumerates and queries these sessions, and every logoff, message box and process start it asks
// for is recorded instead of done. Failures of any call can be ordered, per session and for a
// number of calls.
//
// Notifications:
//   - The user operations (Logon, Logoff, Lock, ...) change the table and call the sink before
//     they return, in the calling thread. Operations and their notifications are serialised, so
//     the sink sees the changes in the order the table saw them.
//   - A logoff the product asks for (WTSLogoffSession) removes the session and queues its
//     WTS_SESSION_LOGOFF; DeliverPending() hands the queue to the sink. It is not called from
//     inside the product's call, because that call comes from the product's own threads.
//   The sink runs without the table lock held: it may query the simulator and drive operations.
//
// Thread-safe: one lock around the table and the records; 300 sessions driven from several
// threads while the engine queries them is the expected load.
//
// The table and the records live in one plain record (support/SimTerminalCore.h), so the same
// code can serve a test double of wtsapi32.dll over shared memory.
#pragma once
#include <windows.h>
#include <wtsapi32.h>

#include <functional>
#include <vector>

#include "base/Thread.h"
#include "engine/WtsApi32.h"
#include "support/SimTerminalCore.h"

class SimTerminalServer {
public:
    typedef std::function<void(DWORD dwEvent, DWORD dwSession)> Sink;

    SimTerminalServer();
    // Uninstalls first when installed.
    ~SimTerminalServer();
    SimTerminalServer(const SimTerminalServer&) = delete;
    SimTerminalServer& operator=(const SimTerminalServer&) = delete;

    void SetSink(Sink sink);

    // Setting up the table without notifications (the sessions that exist when the service
    // starts). The session is a console session unless bRemote is set.
    int AddSession(DWORD dwId, const wchar_t* pszUser, const wchar_t* pszDomain,
                   WTS_CONNECTSTATE_CLASS state = WTSActive, int bRemote = 0);
    // Completes (or changes) the user of a session, which may have been created with an empty
    // name: the logon is seen before the name is known. No notification.
    int SetUser(DWORD dwId, const wchar_t* pszUser, const wchar_t* pszDomain);
    int SetState(DWORD dwId, WTS_CONNECTSTATE_CLASS state);

    // What users do, each with its notification; 0 (and no notification) for a session that
    // does not exist (kErrNoSession), or, for Logon, one that already does (ERROR_ALREADY_EXISTS).
    int Logon(DWORD dwId, const wchar_t* pszUser, const wchar_t* pszDomain, int bRemote = 0); // active, WTS_SESSION_LOGON
    int Logoff(DWORD dwId);        // removed, WTS_SESSION_LOGOFF
    int Lock(DWORD dwId);          // WTS_SESSION_LOCK
    int Unlock(DWORD dwId);        // WTS_SESSION_UNLOCK
    int Disconnect(DWORD dwId);    // disconnected, WTS_CONSOLE_DISCONNECT or WTS_REMOTE_DISCONNECT
    int Reconnect(DWORD dwId);     // active, WTS_CONSOLE_CONNECT or WTS_REMOTE_CONNECT
    // Sends any notification, as the service manager could.
    void Notify(DWORD dwEvent, DWORD dwSession);
    // Hands the queued notifications to the sink; returns how many.
    DWORD DeliverPending();
    DWORD PendingCount();

    // Makes nCount calls (or every call: simts::kForever) of one kind fail with dwError, for one
    // session or all, for Query also for one information class only.
    int Fail(simts::SimCall call, DWORD dwError, int nCount = simts::kForever,
             DWORD dwSession = simts::kAnySession, int infoClass = simts::kAnyInfoClass);
    void ClearFailures();
    // The answer of a message box the product waits for (IDOK unless set).
    void SetMessageResponse(DWORD dwResponse);
    // The session WTS_CURRENT_SESSION stands for.
    void SetCurrentSession(DWORD dwId);

    // A copy of one session; 0 when it does not exist.
    int GetSession(DWORD dwId, simts::SimSession* pOut);
    DWORD SessionCount();
    std::vector<simts::SimLogoff> Logoffs();
    std::vector<simts::SimMessage> Messages();
    std::vector<simts::SimProcess> Processes();
    void ClearRecords();
    LONG OutstandingAllocations();   // buffers the product has not freed yet
    DWORD BadFrees();
    DWORD Dropped();
    DWORD TokensIssued();
    LONG Registrations();

    // Puts the simulator behind WtsApi32::fns and Seams::pfnStartProcessInSession (one simulator
    // at a time: 0 with ERROR_BUSY when another is installed). The process-wide WtsApi32 is
    // loaded first, so the engine's own later WtsApi32::Load keeps these pointers.
    int Install();
    // Puts back the pointers that were there before Install.
    void Uninstall();
    static SimTerminalServer* Installed();

    // The simulator's Terminal Services functions (what Install puts in the table), answering
    // from the installed simulator; without one they fail with ERROR_INVALID_HANDLE.
    static BOOL WINAPI SimWTSEnumerateSessionsW(HANDLE hServer, DWORD dwReserved, DWORD dwVersion,
                                                PWTS_SESSION_INFOW* ppSessionInfo, DWORD* pCount);
    static BOOL WINAPI SimWTSQuerySessionInformationW(HANDLE hServer, DWORD dwSessionId, WTS_INFO_CLASS infoClass,
                                                      LPWSTR* ppBuffer, DWORD* pBytesReturned);
    static void WINAPI SimWTSFreeMemory(PVOID pMemory);
    static BOOL WINAPI SimWTSLogoffSession(HANDLE hServer, DWORD dwSessionId, BOOL bWait);
    static BOOL WINAPI SimWTSSendMessageW(HANDLE hServer, DWORD dwSessionId, LPWSTR pTitle, DWORD cbTitle,
                                          LPWSTR pMessage, DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout,
                                          DWORD* pResponse, BOOL bWait);
    static BOOL WINAPI SimWTSQueryUserToken(ULONG dwSessionId, PHANDLE phToken);
    static BOOL WINAPI SimWTSRegisterSessionNotification(HWND hWnd, DWORD dwFlags);
    static BOOL WINAPI SimWTSUnRegisterSessionNotification(HWND hWnd);
    static DWORD WINAPI SimWTSGetActiveConsoleSessionId();
    // The replacement of Seams::pfnStartProcessInSession.
    static int SimStartProcessInSession(DWORD dwSessionId, const wchar_t* pszCmdLine);

private:
    // Runs change under the table lock and, when it succeeds, sends the notification it chose
    // (0 for none) to the sink: all under the delivery lock, so notifications keep the order.
    int Operate(const std::function<DWORD(simts::SimState&)>& change, DWORD dwSession);
    void Send(DWORD dwEvent, DWORD dwSession);

    simts::SimState* pState;
    CritSec tableLock;      // the table and the records
    CritSec deliveryLock;   // an operation and its notification
    Sink sink;

    int bInstalled;
    WtsApi32Fns savedFns;
    int (*pfnSavedStartProcess)(DWORD, const wchar_t*);
};
