#include "engine/EventLog.h"

#include "base/StrUtil.h"
#include "engine/Seams.h"

namespace {

HANDLE g_hEventSource = nullptr;

// Room for the longest "%ld" of a 32-bit long ("-2147483648") and its terminator.
const unsigned kCchNumber = 16;

} // namespace

void SetEventSource(HANDLE hSource)
{
    g_hEventSource = hSource;
}

HANDLE GetEventSource()
{
    return g_hEventSource;
}

WORD EventTypeOfId(DWORD id)
{
    // The two severity bits decide; the customer bit below them is set on all of Vantrel's ids.
    switch (id >> 30) {
    case 0:
        return EVENTLOG_SUCCESS;
    case 1:
        return EVENTLOG_INFORMATION_TYPE;
    case 2:
        return EVENTLOG_WARNING_TYPE;
    default:
        return EVENTLOG_ERROR_TYPE;
    }
}

BOOL ReportEventToSource(WORD type, DWORD id, WORD nStrings, const wchar_t** strings)
{
    HANDLE hSource = g_hEventSource;
    if (!hSource) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return ReportEventW(hSource, type, 0, id, nullptr, nStrings, 0, strings, nullptr);
}

BOOL LogEvent(DWORD id)
{
    return Seams::pfnReportEvent(EventTypeOfId(id), id, 0, nullptr);
}

BOOL LogEventUser(DWORD id, const wchar_t* user)
{
    const wchar_t* strings[1] = {user};
    return Seams::pfnReportEvent(EventTypeOfId(id), id, user ? 1 : 0, user ? strings : nullptr);
}

BOOL LogEventError(DWORD id, const wchar_t* user)
{
    // Taken before anything else can overwrite it.
    DWORD dwError = GetLastError();
    wchar_t szCode[kCchNumber];
    StrFormat(szCode, L"%ld", (long)dwError);
    const wchar_t* strings[2];
    WORD n = 0;
    if (user)
        strings[n++] = user;
    strings[n++] = szCode;
    return Seams::pfnReportEvent(EventTypeOfId(id), id, n, strings);
}

BOOL LogEventNumber(DWORD id, long number)
{
    wchar_t szNumber[kCchNumber];
    StrFormat(szNumber, L"%ld", number);
    const wchar_t* strings[1] = {szNumber};
    return Seams::pfnReportEvent(EventTypeOfId(id), id, 1, strings);
}
