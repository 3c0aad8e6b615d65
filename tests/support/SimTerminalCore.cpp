#include "support/SimTerminalCore.h"

#include <cstring>

#include "base/StrUtil.h"

namespace simts {

namespace {

// Buffers handed out carry a header, so a free of foreign memory is counted instead of
// corrupting the heap; 16 bytes keep the records behind it aligned.
const DWORD kAllocMagic = 0x53494D41; // "SIMA"
struct AllocHeader {
    DWORD dwMagic, cb, reserved[2];
};

BOOL Fail(DWORD err)
{
    SetLastError(err);
    return FALSE;
}

// A copy of cb bytes (zeros without pData) in a buffer of ours, handed out through ppBuffer.
BOOL Return(SimState& s, const void* pData, DWORD cb, void* ppBuffer, DWORD* pBytes)
{
    AllocHeader* h = (AllocHeader*)HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, sizeof(AllocHeader) + cb);
    if (!h)
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    *h = {kAllocMagic, cb, {}};
    s.nAllocations++;
    if (pData)
        memcpy(h + 1, pData, cb);
    *(void**)ppBuffer = h + 1;
    *pBytes = cb;
    return TRUE;
}

const wchar_t* StationName(const SimSession& p) { return p.bRemote ? L"RDP-Tcp" : L"Console"; }

// The error a call on a session answers: an ordered failure, "no such session", or 0.
DWORD Check(SimState& s, int call, DWORD id, int infoClass = kAnyInfoClass)
{
    DWORD err = TakeFailure(s, call, id, infoClass);
    return err ? err : FindSession(s, id) ? 0 : kErrNoSession;
}

// The next record of a table, numbered; null (counted as dropped) when the table is full.
template <class R, size_t N> R* Record(SimState& s, DWORD& n, R (&table)[N], DWORD dwSession, DWORD err)
{
    if (n >= N)
        return s.nDropped++, nullptr;
    R* r = &table[n++];
    memset(r, 0, sizeof(R));
    r->nSeq = ++s.nSeq, r->dwSession = dwSession, r->dwError = err;
    return r;
}

} // namespace

void Reset(SimState& s) { memset(&s, 0, sizeof(s)); }

SimSession* FindSession(SimState& s, DWORD dwId)
{
    for (DWORD i = 0; i < s.nSessions; i++)
        if (s.sessions[i].dwId == dwId)
            return &s.sessions[i];
    return nullptr;
}

int AddSession(SimState& s, DWORD dwId, const wchar_t* pszUser, const wchar_t* pszDomain, WTS_CONNECTSTATE_CLASS state,
               int bRemote)
{
    if (FindSession(s, dwId) || s.nSessions >= kMaxSessions)
        return Fail(FindSession(s, dwId) ? ERROR_ALREADY_EXISTS : ERROR_NOT_ENOUGH_MEMORY);
    SimSession& n = s.sessions[s.nSessions++];
    n = {dwId, state, 0, bRemote ? 1 : 0, {}, {}};
    StrCopy(n.szUser, pszUser);
    StrCopy(n.szDomain, pszDomain);
    return 1;
}

int RemoveSession(SimState& s, DWORD dwId)
{
    SimSession* p = FindSession(s, dwId);
    if (!p)
        return Fail(kErrNoSession);
    memmove(p, p + 1, (s.sessions + --s.nSessions - p) * sizeof(SimSession));
    return 1;
}

DWORD TakeFailure(SimState& s, int call, DWORD dwSession, int infoClass)
{
    for (SimFailRule& r : s.rules) {
        if (r.bInUse && r.call == call && (r.dwSession == kAnySession || r.dwSession == dwSession) &&
            (r.infoClass == kAnyInfoClass || r.infoClass == infoClass)) {
            if (r.nCount > 0 && --r.nCount == 0)
                r.bInUse = 0;
            return r.dwError;
        }
    }
    return 0;
}

int AddFailRule(SimState& s, int call, DWORD dwError, int nCount, DWORD dwSession, int infoClass)
{
    for (SimFailRule& r : s.rules)
        if (!r.bInUse)
            return r = {1, call, dwSession, infoClass, dwError, nCount}, 1;
    return Fail(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL EnumerateSessions(SimState& s, HANDLE hServer, DWORD dwReserved, DWORD dwVersion, PWTS_SESSION_INFOW* ppSessionInfo,
                       DWORD* pCount)
{
    if (!ppSessionInfo || !pCount)
        return Fail(ERROR_INVALID_PARAMETER);
    *ppSessionInfo = nullptr;
    *pCount = 0;
    if (hServer != WTS_CURRENT_SERVER_HANDLE || dwReserved != 0 || dwVersion != 1)
        return Fail(hServer != WTS_CURRENT_SERVER_HANDLE ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER);
    DWORD err = TakeFailure(s, kCallEnumerate, kAnySession), cb;
    if (err || !Return(s, nullptr, s.nSessions * sizeof(WTS_SESSION_INFOW), ppSessionInfo, &cb))
        return err ? Fail(err) : FALSE;
    for (DWORD i = 0; i < s.nSessions; i++)
        (*ppSessionInfo)[i] = {s.sessions[i].dwId, const_cast<wchar_t*>(StationName(s.sessions[i])), s.sessions[i].state};
    *pCount = s.nSessions;
    return TRUE;
}

BOOL QuerySessionInformation(SimState& s, HANDLE hServer, DWORD dwSessionId, WTS_INFO_CLASS infoClass, LPWSTR* ppBuffer,
                             DWORD* pBytesReturned)
{
    if (!ppBuffer || !pBytesReturned)
        return Fail(ERROR_INVALID_PARAMETER);
    *ppBuffer = nullptr;
    *pBytesReturned = 0;
    if (hServer != WTS_CURRENT_SERVER_HANDLE)
        return Fail(ERROR_INVALID_HANDLE);
    if (DWORD err = Check(s, kCallQuery, dwSessionId, infoClass))
        return Fail(err);
    const SimSession* p = FindSession(s, dwSessionId);
    const INT state = p->state;
    // The record's name fields are short (17 and 21 characters): longer names are cut, as the
    // terminal server does; the separate name classes give them in full.
    WTSINFOW info = {};
    info.State = p->state, info.SessionId = p->dwId;
    StrCopy(info.WinStationName, StationName(*p));
    StrCopy(info.Domain, p->szDomain);
    StrCopy(info.UserName, p->szUser);
    switch (infoClass) {
    case WTSUserName:
        return Return(s, p->szUser, (StrLen(p->szUser) + 1) * sizeof(wchar_t), ppBuffer, pBytesReturned);
    case WTSDomainName:
        return Return(s, p->szDomain, (StrLen(p->szDomain) + 1) * sizeof(wchar_t), ppBuffer, pBytesReturned);
    case WTSConnectState:
        return Return(s, &state, sizeof(state), ppBuffer, pBytesReturned);
    case WTSSessionInfo:
        return Return(s, &info, sizeof(info), ppBuffer, pBytesReturned);
    default:
        return Fail(ERROR_INVALID_PARAMETER);
    }
}

void FreeMemory(SimState& s, PVOID pMemory)
{
    if (!pMemory)
        return;
    AllocHeader* h = (AllocHeader*)pMemory - 1;
    if (h->dwMagic != kAllocMagic)
        return (void)s.nBadFrees++;
    h->dwMagic = 0;
    s.nAllocations--;
    HeapFree(GetProcessHeap(), 0, h);
}

BOOL LogoffSession(SimState& s, HANDLE hServer, DWORD dwSessionId, BOOL bWait)
{
    if (hServer != WTS_CURRENT_SERVER_HANDLE)
        return Fail(ERROR_INVALID_HANDLE);
    DWORD err = Check(s, kCallLogoff, dwSessionId);
    if (SimLogoff* r = Record(s, s.nLogoffs, s.logoffs, dwSessionId, err))
        r->bWait = bWait ? 1 : 0;
    return err ? Fail(err) : RemoveSession(s, dwSessionId);
}

BOOL SendMessageBox(SimState& s, HANDLE hServer, DWORD dwSessionId, LPWSTR pTitle, DWORD cbTitle, LPWSTR pMessage,
                    DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout, DWORD* pResponse, BOOL bWait)
{
    if (hServer != WTS_CURRENT_SERVER_HANDLE || !pResponse)
        return Fail(pResponse ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER);
    DWORD err = Check(s, kCallSendMessage, dwSessionId);
    if (SimMessage* r = Record(s, s.nMessages, s.messages, dwSessionId, err)) {
        StrCopyN(r->szTitle, kTitleChars, pTitle, pTitle ? cbTitle / sizeof(wchar_t) : 0);
        StrCopyN(r->szText, kTextChars, pMessage, pMessage ? cbMessage / sizeof(wchar_t) : 0);
        r->cbTitle = cbTitle, r->cbText = cbMessage, r->dwStyle = dwStyle, r->dwTimeout = dwTimeout, r->bWait = bWait ? 1 : 0;
    }
    if (err)
        return Fail(err);
    *pResponse = bWait ? IDOK : IDASYNC;
    return TRUE;
}

BOOL QueryUserToken(SimState& s, ULONG dwSessionId, PHANDLE phToken)
{
    if (!phToken)
        return Fail(ERROR_INVALID_PARAMETER);
    *phToken = nullptr;
    DWORD err = Check(s, kCallQueryUserToken, dwSessionId);
    if (err || !FindSession(s, dwSessionId)->szUser[0])
        return Fail(err ? err : ERROR_NO_TOKEN); // no token before the logon is complete
    HANDLE hProcessToken = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY, &hProcessToken))
        return FALSE;
    BOOL ok = DuplicateTokenEx(hProcessToken, MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenPrimary, phToken);
    err = GetLastError();
    CloseHandle(hProcessToken);
    return ok ? (s.nTokens++, TRUE) : Fail(err);
}

BOOL RegisterSessionNotification(SimState& s, HWND hWnd, DWORD)
{
    DWORD err = hWnd ? TakeFailure(s, kCallRegister, kAnySession) : ERROR_INVALID_PARAMETER;
    return err ? Fail(err) : (s.nRegistrations++, TRUE);
}

BOOL UnRegisterSessionNotification(SimState& s, HWND hWnd)
{
    return hWnd ? (s.nRegistrations--, TRUE) : Fail(ERROR_INVALID_PARAMETER);
}

int StartProcessInSession(SimState& s, DWORD dwSessionId, const wchar_t* pszCmdLine)
{
    DWORD err = Check(s, kCallStartProcess, dwSessionId);
    if (!err && !FindSession(s, dwSessionId)->szUser[0])
        err = ERROR_NO_TOKEN;
    if (SimProcess* r = Record(s, s.nProcesses, s.processes, dwSessionId, err))
        StrCopy(r->szCmdLine, pszCmdLine);
    return err ? Fail(err) : 1;
}

} // namespace simts
