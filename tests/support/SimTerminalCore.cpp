#include "support/SimTerminalCore.h"

#include <cstring>

#include "base/StrUtil.h"

namespace simts {

namespace {

// Buffers handed out carry a header, so that a free of foreign memory is noticed and counted
// instead of corrupting the heap. 16 bytes keep the records behind it aligned.
const DWORD kAllocMagic = 0x53494D41;   // "SIMA"
struct AllocHeader {
    DWORD dwMagic;
    DWORD cb;
    DWORD reserved[2];
};

void* Alloc(SimState& s, DWORD cb)
{
    AllocHeader* h = (AllocHeader*)HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, sizeof(AllocHeader) + cb);
    if (!h) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    h->dwMagic = kAllocMagic;
    h->cb = cb;
    s.nAllocations++;
    return h + 1;
}

BOOL Fail(DWORD err)
{
    SetLastError(err);
    return FALSE;
}

DWORD NextSeq(SimState& s)
{
    return ++s.nSeq;
}

// The session a call names: WTS_CURRENT_SESSION stands for the configured current session.
DWORD Resolve(const SimState& s, DWORD dwId)
{
    return dwId == WTS_CURRENT_SESSION ? s.dwCurrentSession : dwId;
}

// Copies cb bytes of UTF-16 text (not terminated) into dst, cut to its size.
void CopyCounted(wchar_t* dst, unsigned cch, const wchar_t* src, DWORD cb)
{
    StrCopyN(dst, cch, src, src ? cb / sizeof(wchar_t) : 0);
}

BOOL ReturnString(SimState& s, const wchar_t* psz, LPWSTR* ppBuffer, DWORD* pBytes)
{
    DWORD cb = (StrLen(psz) + 1) * sizeof(wchar_t);
    wchar_t* p = (wchar_t*)Alloc(s, cb);
    if (!p)
        return FALSE;
    memcpy(p, psz, cb);
    *ppBuffer = p;
    *pBytes = cb;
    return TRUE;
}

BOOL ReturnBytes(SimState& s, const void* pData, DWORD cb, LPWSTR* ppBuffer, DWORD* pBytes)
{
    void* p = Alloc(s, cb);
    if (!p)
        return FALSE;
    memcpy(p, pData, cb);
    *ppBuffer = (LPWSTR)p;
    *pBytes = cb;
    return TRUE;
}

} // namespace

void Reset(SimState& s)
{
    memset(&s, 0, sizeof(s));
    s.dwMessageResponse = IDOK;
    s.dwCurrentSession = 0;
}

SimSession* FindSession(SimState& s, DWORD dwId)
{
    for (DWORD i = 0; i < s.nSessions; i++)
        if (s.sessions[i].dwId == dwId)
            return &s.sessions[i];
    return nullptr;
}

int AddSession(SimState& s, DWORD dwId, const wchar_t* pszUser, const wchar_t* pszDomain,
               WTS_CONNECTSTATE_CLASS state, int bRemote)
{
    if (FindSession(s, dwId))
        return Fail(ERROR_ALREADY_EXISTS);
    if (s.nSessions >= kMaxSessions)
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    SimSession& n = s.sessions[s.nSessions++];
    memset(&n, 0, sizeof(n));
    n.dwId = dwId;
    n.state = state;
    n.bRemote = bRemote ? 1 : 0;
    StrCopy(n.szUser, pszUser);
    StrCopy(n.szDomain, pszDomain);
    if (bRemote)
        StrFormat(n.szWinStation, L"RDP-Tcp#%u", dwId);
    else
        StrCopy(n.szWinStation, L"Console");
    return 1;
}

int RemoveSession(SimState& s, DWORD dwId)
{
    SimSession* p = FindSession(s, dwId);
    if (!p)
        return Fail(kErrNoSession);
    DWORD i = (DWORD)(p - s.sessions);
    memmove(&s.sessions[i], &s.sessions[i + 1], (s.nSessions - i - 1) * sizeof(SimSession));
    s.nSessions--;
    return 1;
}

void QueueNotification(SimState& s, DWORD dwEvent, DWORD dwSession)
{
    if (s.nPending >= kMaxPending) {
        s.nDropped++;
        return;
    }
    s.pending[s.nPending].dwEvent = dwEvent;
    s.pending[s.nPending].dwSession = dwSession;
    s.nPending++;
}

DWORD TakeFailure(SimState& s, int call, DWORD dwSession, int infoClass)
{
    for (SimFailRule& r : s.rules) {
        if (!r.bInUse || r.call != call || r.nCount == 0)
            continue;
        if (r.dwSession != kAnySession && r.dwSession != dwSession)
            continue;
        if (r.infoClass != kAnyInfoClass && r.infoClass != infoClass)
            continue;
        if (r.nCount > 0 && --r.nCount == 0)
            r.bInUse = 0;
        return r.dwError;
    }
    return 0;
}

int AddFailRule(SimState& s, int call, DWORD dwError, int nCount, DWORD dwSession, int infoClass)
{
    for (SimFailRule& r : s.rules) {
        if (r.bInUse)
            continue;
        r.bInUse = 1;
        r.call = call;
        r.dwError = dwError;
        r.nCount = nCount;
        r.dwSession = dwSession;
        r.infoClass = infoClass;
        return 1;
    }
    return Fail(ERROR_NOT_ENOUGH_MEMORY);
}

BOOL EnumerateSessions(SimState& s, HANDLE hServer, DWORD dwReserved, DWORD dwVersion,
                       PWTS_SESSION_INFOW* ppSessionInfo, DWORD* pCount)
{
    if (!ppSessionInfo || !pCount)
        return Fail(ERROR_INVALID_PARAMETER);
    *ppSessionInfo = nullptr;
    *pCount = 0;
    if (hServer != WTS_CURRENT_SERVER_HANDLE)
        return Fail(ERROR_INVALID_HANDLE);
    if (dwReserved != 0 || dwVersion != 1)
        return Fail(ERROR_INVALID_PARAMETER);
    if (DWORD err = TakeFailure(s, kCallEnumerate, kAnySession))
        return Fail(err);
    // One block: the records, then the station names they point to.
    DWORD n = s.nSessions;
    DWORD cbInfo = n * sizeof(WTS_SESSION_INFOW);
    BYTE* p = (BYTE*)Alloc(s, cbInfo + n * kStationChars * sizeof(wchar_t));
    if (!p)
        return FALSE;
    PWTS_SESSION_INFOW info = (PWTS_SESSION_INFOW)p;
    wchar_t* names = (wchar_t*)(p + cbInfo);
    for (DWORD i = 0; i < n; i++) {
        info[i].SessionId = s.sessions[i].dwId;
        info[i].State = s.sessions[i].state;
        info[i].pWinStationName = names + i * kStationChars;
        StrCopy(info[i].pWinStationName, kStationChars, s.sessions[i].szWinStation);
    }
    *ppSessionInfo = info;
    *pCount = n;
    return TRUE;
}

BOOL QuerySessionInformation(SimState& s, HANDLE hServer, DWORD dwSessionId, WTS_INFO_CLASS infoClass,
                             LPWSTR* ppBuffer, DWORD* pBytesReturned)
{
    if (!ppBuffer || !pBytesReturned)
        return Fail(ERROR_INVALID_PARAMETER);
    *ppBuffer = nullptr;
    *pBytesReturned = 0;
    if (hServer != WTS_CURRENT_SERVER_HANDLE)
        return Fail(ERROR_INVALID_HANDLE);
    DWORD id = Resolve(s, dwSessionId);
    if (DWORD err = TakeFailure(s, kCallQuery, id, infoClass))
        return Fail(err);
    const SimSession* p = FindSession(s, id);
    if (!p)
        return Fail(kErrNoSession);
    switch (infoClass) {
    case WTSUserName:
        return ReturnString(s, p->szUser, ppBuffer, pBytesReturned);
    case WTSDomainName:
        return ReturnString(s, p->szDomain, ppBuffer, pBytesReturned);
    case WTSWinStationName:
        return ReturnString(s, p->szWinStation, ppBuffer, pBytesReturned);
    case WTSConnectState: {
        INT state = p->state;
        return ReturnBytes(s, &state, sizeof(state), ppBuffer, pBytesReturned);
    }
    case WTSSessionId:
        return ReturnBytes(s, &p->dwId, sizeof(DWORD), ppBuffer, pBytesReturned);
    case WTSClientProtocolType: {
        USHORT protocol = p->bRemote ? 2 : 0;   // 2: RDP, 0: the console
        return ReturnBytes(s, &protocol, sizeof(protocol), ppBuffer, pBytesReturned);
    }
    case WTSSessionInfo: {
        // The record's fixed name fields are short (17 and 21 characters): longer names are cut,
        // as the terminal server does; the separate name classes give them in full.
        WTSINFOW info;
        memset(&info, 0, sizeof(info));
        info.State = p->state;
        info.SessionId = p->dwId;
        StrCopy(info.WinStationName, p->szWinStation);
        StrCopy(info.Domain, p->szDomain);
        StrCopy(info.UserName, p->szUser);
        FILETIME now;
        GetSystemTimeAsFileTime(&now);
        info.CurrentTime.LowPart = now.dwLowDateTime;
        info.CurrentTime.HighPart = (LONG)now.dwHighDateTime;
        return ReturnBytes(s, &info, sizeof(info), ppBuffer, pBytesReturned);
    }
    default:
        return Fail(ERROR_INVALID_PARAMETER);
    }
}

void FreeMemory(SimState& s, PVOID pMemory)
{
    if (!pMemory)
        return;
    AllocHeader* h = (AllocHeader*)pMemory - 1;
    if (h->dwMagic != kAllocMagic) {
        s.nBadFrees++;
        return;
    }
    h->dwMagic = 0;
    s.nAllocations--;
    HeapFree(GetProcessHeap(), 0, h);
}

BOOL LogoffSession(SimState& s, HANDLE hServer, DWORD dwSessionId, BOOL bWait)
{
    if (hServer != WTS_CURRENT_SERVER_HANDLE)
        return Fail(ERROR_INVALID_HANDLE);
    DWORD id = Resolve(s, dwSessionId);
    DWORD err = TakeFailure(s, kCallLogoff, id);
    if (!err && !FindSession(s, id))
        err = kErrNoSession;
    if (s.nLogoffs < kMaxLogoffs) {
        SimLogoff& r = s.logoffs[s.nLogoffs++];
        r.nSeq = NextSeq(s);
        r.dwSession = id;
        r.bWait = bWait ? 1 : 0;
        r.dwError = err;
    } else {
        s.nDropped++;
    }
    if (err)
        return Fail(err);
    RemoveSession(s, id);
    QueueNotification(s, WTS_SESSION_LOGOFF, id);
    return TRUE;
}

BOOL SendMessageBox(SimState& s, HANDLE hServer, DWORD dwSessionId, LPWSTR pTitle, DWORD cbTitle, LPWSTR pMessage,
                    DWORD cbMessage, DWORD dwStyle, DWORD dwTimeout, DWORD* pResponse, BOOL bWait)
{
    if (hServer != WTS_CURRENT_SERVER_HANDLE)
        return Fail(ERROR_INVALID_HANDLE);
    if (!pResponse)
        return Fail(ERROR_INVALID_PARAMETER);
    DWORD id = Resolve(s, dwSessionId);
    DWORD err = TakeFailure(s, kCallSendMessage, id);
    if (!err && !FindSession(s, id))
        err = kErrNoSession;
    if (s.nMessages < kMaxMessages) {
        SimMessage& r = s.messages[s.nMessages++];
        r.nSeq = NextSeq(s);
        r.dwSession = id;
        CopyCounted(r.szTitle, kTitleChars, pTitle, cbTitle);
        CopyCounted(r.szText, kTextChars, pMessage, cbMessage);
        r.cbTitle = cbTitle;
        r.cbText = cbMessage;
        r.dwStyle = dwStyle;
        r.dwTimeout = dwTimeout;
        r.bWait = bWait ? 1 : 0;
        r.dwError = err;
    } else {
        s.nDropped++;
    }
    if (err)
        return Fail(err);
    *pResponse = bWait ? s.dwMessageResponse : IDASYNC;
    return TRUE;
}

BOOL QueryUserToken(SimState& s, ULONG dwSessionId, PHANDLE phToken)
{
    if (!phToken)
        return Fail(ERROR_INVALID_PARAMETER);
    *phToken = nullptr;
    DWORD id = Resolve(s, dwSessionId);
    if (DWORD err = TakeFailure(s, kCallQueryUserToken, id))
        return Fail(err);
    const SimSession* p = FindSession(s, id);
    if (!p)
        return Fail(kErrNoSession);
    if (!p->szUser[0])
        return Fail(ERROR_NO_TOKEN);   // nobody has logged on to it yet
    HANDLE hProcessToken = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY, &hProcessToken))
        return FALSE;
    HANDLE hToken = nullptr;
    BOOL ok = DuplicateTokenEx(hProcessToken, MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenPrimary, &hToken);
    DWORD err = GetLastError();
    CloseHandle(hProcessToken);
    if (!ok)
        return Fail(err);
    s.nTokens++;
    *phToken = hToken;
    return TRUE;
}

BOOL RegisterSessionNotification(SimState& s, HWND hWnd, DWORD dwFlags)
{
    (void)dwFlags;
    if (!hWnd)
        return Fail(ERROR_INVALID_PARAMETER);
    if (DWORD err = TakeFailure(s, kCallRegister, kAnySession))
        return Fail(err);
    s.nRegistrations++;
    return TRUE;
}

BOOL UnRegisterSessionNotification(SimState& s, HWND hWnd)
{
    if (!hWnd)
        return Fail(ERROR_INVALID_PARAMETER);
    s.nRegistrations--;
    return TRUE;
}

DWORD GetActiveConsoleSessionId(SimState& s)
{
    for (DWORD i = 0; i < s.nSessions; i++) {
        const SimSession& p = s.sessions[i];
        if (!p.bRemote && (p.state == WTSActive || p.state == WTSConnected))
            return p.dwId;
    }
    return 0xFFFFFFFF;
}

int StartProcessInSession(SimState& s, DWORD dwSessionId, const wchar_t* pszCmdLine)
{
    DWORD err = TakeFailure(s, kCallStartProcess, dwSessionId);
    if (!err) {
        const SimSession* p = FindSession(s, dwSessionId);
        if (!p)
            err = kErrNoSession;
        else if (!p->szUser[0])
            err = ERROR_NO_TOKEN;
    }
    if (s.nProcesses < kMaxProcesses) {
        SimProcess& r = s.processes[s.nProcesses++];
        r.nSeq = NextSeq(s);
        r.dwSession = dwSessionId;
        StrCopy(r.szCmdLine, pszCmdLine);
        r.dwError = err;
    } else {
        s.nDropped++;
    }
    if (err)
        return Fail(err);
    return 1;
}

} // namespace simts
