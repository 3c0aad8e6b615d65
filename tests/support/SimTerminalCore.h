// The simulated terminal server's core: one plain state record (the session table, the records
// of what the product asked for, the failures a test ordered) and the Terminal Services calls as
// functions over it.
//
// The record holds no pointers and no handles, only fixed arrays, so that it can also live in
// shared memory: a test double of wtsapi32.dll can map it and answer the service from it while
// the test changes the table from another process. The functions do no locking and deliver no
// notifications: the caller holds its lock (a critical section in process, a mutex across
// processes) around each call and hands on the notifications queued in `pending`.
#pragma once
#include <windows.h>
#include <wtsapi32.h>

namespace simts {

const DWORD kAnySession = 0xFFFFFFFF;   // failure rules: every session
const int kAnyInfoClass = -1;           // failure rules: every information class
const int kForever = -1;                // failure rules: no limit on the count

// The terminal server's own answer for a session that does not exist.
const DWORD kErrNoSession = ERROR_CTX_WINSTATION_NOT_FOUND;

enum {
    kMaxSessions = 1024,
    kMaxLogoffs = 4096,
    kMaxMessages = 1024,
    kMaxProcesses = 1024,
    kMaxPending = 4096,
    kMaxFailRules = 16,
    kNameChars = 256,
    kStationChars = 32,
    kTitleChars = 256,
    kTextChars = 1024,
    kCmdLineChars = 1024,
};

// The calls a failure rule can make fail.
enum SimCall {
    kCallEnumerate,       // WTSEnumerateSessionsW
    kCallQuery,           // WTSQuerySessionInformationW
    kCallLogoff,          // WTSLogoffSession
    kCallSendMessage,     // WTSSendMessageW
    kCallQueryUserToken,  // WTSQueryUserToken
    kCallStartProcess,    // starting a process in a session
    kCallRegister,        // WTSRegisterSessionNotification
};

struct SimSession {
    DWORD dwId;
    WTS_CONNECTSTATE_CLASS state;
    int bLocked;
    int bRemote;                        // a remote desktop session (else the console)
    wchar_t szUser[kNameChars];         // empty until the logon is complete
    wchar_t szDomain[kNameChars];
    wchar_t szWinStation[kStationChars];
};

// Every record carries a sequence number shared by all records, so tests can order a warning
// against a logoff; dwError is 0 for a call that succeeded, else the error it answered.
struct SimLogoff {
    DWORD nSeq;
    DWORD dwSession;
    int bWait;
    DWORD dwError;
};

struct SimMessage {
    DWORD nSeq;
    DWORD dwSession;
    wchar_t szTitle[kTitleChars];   // the characters the lengths given cover, terminated
    wchar_t szText[kTextChars];
    DWORD cbTitle;                  // the lengths as given, in bytes
    DWORD cbText;
    DWORD dwStyle;
    DWORD dwTimeout;
    int bWait;
    DWORD dwError;
};

struct SimProcess {
    DWORD nSeq;
    DWORD dwSession;
    wchar_t szCmdLine[kCmdLineChars];
    DWORD dwError;
};

struct SimFailRule {
    int bInUse;
    int call;           // SimCall
    DWORD dwSession;    // or kAnySession
    int infoClass;      // kCallQuery only: the WTS_INFO_CLASS, or kAnyInfoClass
    DWORD dwError;
    int nCount;         // calls still to fail, or kForever
};

struct SimNotification {
    DWORD dwEvent;      // WTS_SESSION_LOGOFF and the other session-change codes
    DWORD dwSession;
};

struct SimState {
    DWORD nSessions;
    SimSession sessions[kMaxSessions];   // in enumeration order (order of creation)

    DWORD nSeq;
    DWORD nLogoffs;
    SimLogoff logoffs[kMaxLogoffs];
    DWORD nMessages;
    SimMessage messages[kMaxMessages];
    DWORD nProcesses;
    SimProcess processes[kMaxProcesses];
    DWORD nDropped;                      // records and notifications lost to full tables

    SimFailRule rules[kMaxFailRules];

    // Notifications caused by the product's own calls (a logoff), waiting to be delivered.
    DWORD nPending;
    SimNotification pending[kMaxPending];

    LONG nAllocations;       // buffers handed out and not yet freed
    DWORD nBadFrees;         // frees of memory that did not come from here
    DWORD nTokens;           // user tokens handed out
    LONG nRegistrations;     // session notification registrations minus removals
    DWORD dwMessageResponse; // the answer to a message box that is waited for
    DWORD dwCurrentSession;  // the session WTS_CURRENT_SESSION stands for
};

// Empties the table and the records; a message box that is waited for answers IDOK.
void Reset(SimState& s);

SimSession* FindSession(SimState& s, DWORD dwId);
// Adds a session at the end of the enumeration order. 0 with ERROR_ALREADY_EXISTS when the id is
// taken, ERROR_NOT_ENOUGH_MEMORY when the table is full.
int AddSession(SimState& s, DWORD dwId, const wchar_t* pszUser, const wchar_t* pszDomain,
               WTS_CONNECTSTATE_CLASS state, int bRemote);
int RemoveSession(SimState& s, DWORD dwId);
// Queues a notification for later delivery.
void QueueNotification(SimState& s, DWORD dwEvent, DWORD dwSession);

// The error a failure rule orders for this call (using up one of its count), or 0.
DWORD TakeFailure(SimState& s, int call, DWORD dwSession, int infoClass = kAnyInfoClass);
int AddFailRule(SimState& s, int call, DWORD dwError, int nCount, DWORD dwSession, int infoClass);

// The Terminal Services calls, with the real functions' arguments and results. Only the current
// server (WTS_CURRENT_SERVER_HANDLE) exists. Buffers come from the process heap and go back
// through FreeMemory.
BOOL EnumerateSessions(SimState& s, HANDLE hServer, DWORD dwReserved, DWORD dwVersion,
                       PWTS_SESSION_INFOW* ppSessionInfo, DWORD* pCount);
BOOL QuerySessionInformation(SimState& s, HANDLE hServer, DWORD dwSessionId, WTS_INFO_CLASS infoClass,
                             LPWSTR* ppBuffer, DWORD* pBytesReturned);
void FreeMemory(SimState& s, PVOID pMemory);
// Records the logoff; on success removes the session and queues WTS_SESSION_LOGOFF.
BOOL LogoffSession(SimState& s, HANDLE hServer, DWORD dwSessionId, BOOL bWait);
BOOL SendMessageBox(SimState& s, HANDLE hServer, DWORD dwSessionId, LPWSTR pTitle, DWORD cbTitle, LPWSTR pMessage,
                    DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout, DWORD* pResponse, BOOL bWait);
// A primary token duplicated from the process's own (the caller closes it).
BOOL QueryUserToken(SimState& s, ULONG dwSessionId, PHANDLE phToken);
BOOL RegisterSessionNotification(SimState& s, HWND hWnd, DWORD dwFlags);
BOOL UnRegisterSessionNotification(SimState& s, HWND hWnd);
// The console session that is attached (active or connected), or 0xFFFFFFFF.
DWORD GetActiveConsoleSessionId(SimState& s);
// Records the start of cmdLine in the session; nonzero on success.
int StartProcessInSession(SimState& s, DWORD dwSessionId, const wchar_t* pszCmdLine);

} // namespace simts
