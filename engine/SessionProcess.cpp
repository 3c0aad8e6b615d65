// Starting a program in a user's session as that user: the in-session activity monitor
// ("/monitor") and the warning message ("/msg"). The default of Seams::pfnStartProcessInSession.
#include "engine/Seams.h"

#include "base/Handle.h"
#include "base/StrUtil.h"
#include "engine/WtsApi32.h"

namespace {

// Room for the command lines the engine builds (at most 260 characters) with plenty to spare.
const unsigned kCchCommandLine = 1024;
// Right after a logon the user's desktop may not be ready yet: the start is retried for about
// ten seconds before the session is given up.
const int kStartAttempts = 11;
const DWORD kRetryDelayMs = 1000;

int StartProcessInSession(DWORD session, const wchar_t* cmdLine)
{
    // CreateProcessAsUserW may write to its command line, so it gets a copy.
    wchar_t szCmdLine[kCchCommandLine];
    if (StrLen(cmdLine) >= kCchCommandLine) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    StrCopy(szCmdLine, cmdLine);

    HANDLE hUser = nullptr;
    if (!WtsApi32::WTSQueryUserToken(session, &hUser))
        return 0;
    Handle userToken(hUser);

    // An administrator's session token is the filtered one; its linked token is the full one,
    // so the monitor runs with the rights the user really has.
    Handle primary;
    TOKEN_LINKED_TOKEN linked = {};
    DWORD cb = 0;
    if (GetTokenInformation(userToken.Get(), TokenLinkedToken, &linked, sizeof linked, &cb) && linked.LinkedToken) {
        primary.Attach(linked.LinkedToken);
    } else {
        HANDLE hDup = nullptr;
        if (!DuplicateTokenEx(userToken.Get(), TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_QUERY, nullptr,
                              SecurityImpersonation, TokenPrimary, &hDup))
            return 0;
        primary.Attach(hDup);
    }

    wchar_t szDesktop[] = L"Default";
    STARTUPINFOW si = {};
    si.cb = sizeof si;
    si.lpDesktop = szDesktop;
    PROCESS_INFORMATION pi = {};
    for (int attempt = 1;; ++attempt) {
        if (CreateProcessAsUserW(primary.Get(), nullptr, szCmdLine, nullptr, nullptr, FALSE, NORMAL_PRIORITY_CLASS,
                                 nullptr, nullptr, &si, &pi))
            break;
        if (attempt >= kStartAttempts)
            return 0; // the tokens close keeping the last attempt's error
        Sleep(kRetryDelayMs);
    }
    // The monitor lives on its own; the service does not wait for it.
    CloseHandleKeepError(pi.hThread);
    CloseHandleKeepError(pi.hProcess);
    return 1;
}

} // namespace

namespace Seams {

int (*pfnStartProcessInSession)(DWORD session, const wchar_t* cmdLine) = StartProcessInSession;

} // namespace Seams
