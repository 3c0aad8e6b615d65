// The simulated terminal server's core: one plain state record (the session table, the records
// of what the product asked for, the failures a test ordered) and the Terminal Services calls as
// functions over it. The record holds no pointers or handles, so it can live in shared memory
// (the e2e double of wtsapi32.dll); the caller holds its own lock around each call.
#pragma once
#include <windows.h>
#include <wtsapi32.h>

namespace simts {

const DWORD kAnySession = 0xFFFFFFFF; // failure rules (SimFailRule)
const int kAnyInfoClass = -1, kForever = -1;
const DWORD kErrNoSession = ERROR_CTX_WINSTATION_NOT_FOUND; // the server's "no such session"

enum {
    kMaxSessions = 1024, kMaxLogoffs = 4096, kMaxMessages = 1024, kMaxProcesses = 1024, kMaxFailRules = 16,
    kNameChars = 256, kTitleChars = 256, kTextChars = 1024, kCmdLineChars = 1024,
};

// The calls a failure rule can make fail.
enum SimCall { kCallEnumerate, kCallQuery, kCallLogoff, kCallSendMessage, kCallQueryUserToken, kCallStartProcess, kCallRegister };

struct SimSession {
    DWORD dwId;
    WTS_CONNECTSTATE_CLASS state;
    int bLocked, bRemote;                          // bRemote: a remote desktop session, else the console
    wchar_t szUser[kNameChars], szDomain[kNameChars]; // szUser is empty until the logon is complete
};

// Records carry one sequence shared by all records; dwError is 0 for a call that succeeded.
struct SimLogoff {
    DWORD nSeq, dwSession;
    int bWait;
    DWORD dwError;
};

struct SimMessage {
    DWORD nSeq, dwSession;
    wchar_t szTitle[kTitleChars], szText[kTextChars]; // what the lengths given cover, terminated
    DWORD cbTitle, cbText;                            // the lengths as given, in bytes
    DWORD dwStyle, dwTimeout;
    int bWait;
    DWORD dwError;
};

struct SimProcess {
    DWORD nSeq, dwSession;
    wchar_t szCmdLine[kCmdLineChars];
    DWORD dwError;
};

// Fails nCount calls (or kForever) of one SimCall for dwSession (or kAnySession) and, for
// kCallQuery, infoClass (or kAnyInfoClass), with dwError.
struct SimFailRule {
    int bInUse, call;
    DWORD dwSession;
    int infoClass;
    DWORD dwError;
    int nCount;
};

struct SimState {
    DWORD nSessions;
    SimSession sessions[kMaxSessions]; // in enumeration order (order of creation)
    DWORD nSeq, nLogoffs, nMessages, nProcesses;
    SimLogoff logoffs[kMaxLogoffs];
    SimMessage messages[kMaxMessages];
    SimProcess processes[kMaxProcesses];
    DWORD nDropped;                    // records lost to full tables
    SimFailRule rules[kMaxFailRules];
    LONG nAllocations;                 // buffers handed out and not yet freed
    DWORD nBadFrees;                   // frees of memory that did not come from here
    DWORD nTokens;                     // user tokens handed out
    LONG nRegistrations;               // session notification registrations minus removals
};

void Reset(SimState& s);
SimSession* FindSession(SimState& s, DWORD dwId);
// Appends a session; 0 with ERROR_ALREADY_EXISTS for a taken id, ERROR_NOT_ENOUGH_MEMORY when full.
int AddSession(SimState& s, DWORD dwId, const wchar_t* pszUser, const wchar_t* pszDomain, WTS_CONNECTSTATE_CLASS state,
               int bRemote);
int RemoveSession(SimState& s, DWORD dwId);
// The error a failure rule orders for this call (using up one of its count), or 0.
DWORD TakeFailure(SimState& s, int call, DWORD dwSession, int infoClass = kAnyInfoClass);
int AddFailRule(SimState& s, int call, DWORD dwError, int nCount, DWORD dwSession, int infoClass);

// The Terminal Services calls with the real functions' arguments and results, for the current
// server only. Buffers come from the process heap and go back through FreeMemory.
BOOL EnumerateSessions(SimState& s, HANDLE hServer, DWORD dwReserved, DWORD dwVersion, PWTS_SESSION_INFOW* ppSessionInfo,
                       DWORD* pCount);
BOOL QuerySessionInformation(SimState& s, HANDLE hServer, DWORD dwSessionId, WTS_INFO_CLASS infoClass, LPWSTR* ppBuffer,
                             DWORD* pBytesReturned);
void FreeMemory(SimState& s, PVOID pMemory);
// Records the logoff; on success removes the session.
BOOL LogoffSession(SimState& s, HANDLE hServer, DWORD dwSessionId, BOOL bWait);
BOOL SendMessageBox(SimState& s, HANDLE hServer, DWORD dwSessionId, LPWSTR pTitle, DWORD cbTitle, LPWSTR pMessage,
                    DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout, DWORD* pResponse, BOOL bWait);
// A primary token duplicated from the process's own (the caller closes it).
BOOL QueryUserToken(SimState& s, ULONG dwSessionId, PHANDLE phToken);
BOOL RegisterSessionNotification(SimState& s, HWND hWnd, DWORD dwFlags);
BOOL UnRegisterSessionNotification(SimState& s, HWND hWnd);
// Records the start of cmdLine in the session; nonzero on success.
int StartProcessInSession(SimState& s, DWORD dwSessionId, const wchar_t* pszCmdLine);

} // namespace simts
