#include "engine/VXThread.h"

#include <sddl.h>

#include "base/Handle.h"
#include "base/Resources.h"
#include "base/StrUtil.h"
#include "engine/EventLog.h"
#include "engine/Host.h"
#include "engine/Seams.h"
#include "engine/WtsApi32.h"
#include "resources/resource.h"
#include "settings/MyOpts.h"

DMList VXThread::list;
CritSec VXThread::critSec;
CritSec VXThread::csOpts;
std::atomic<DWORD> VXThread::dwSessionIdActiveUser{0xFFFFFFFF};
std::atomic<int> VXThread::bQuitAll{0};
wchar_t VXThread::szLastLogOff[256];

namespace {
const DWORD kNoSession = 0xFFFFFFFF;
const DWORD kWakeMs = 1000;
const DWORD kEventSetOnly = 0x2; // EVENT_MODIFY_STATE: interactive users may only set the event
// The Terminal Services warning box: a warning icon, in front of everything, from a service.
const DWORD kWarningBoxStyle = MB_ICONWARNING | MB_SETFOREGROUND | MB_TOPMOST | MB_SERVICE_NOTIFICATION;
static_assert(kWarningBoxStyle == 0x250030, "the style the warning box has always had");
}

VXThread::VXThread(MyOpts& o, DWORD id)
    : bLocked(0), bStale(0), opts(o), dwSessionId(id), dwLastActivity(0), bScheduleReported(0), dwWarnMin(0),
      dwTimeoutMs(0), dwWarnMs(0), bIdleLogoff(0), bWarned(0), bFirstPass(1), bRunning(1)
{
    szUserName[0] = 0;
    // One thread per watched session: a terminal server may hold hundreds of them.
    SetStackReserve(256 * 1024);
}

VXThread::~VXThread()
{
    CritSecLock lock(critSec);
    if (DMPos pos = list.Find(this))
        list.RemoveAt(pos);
}

void VXThread::SetUserName(const wchar_t* name) { StrCopy(szUserName, name); }

DWORD VXThread::GetThreadCount()
{
    CritSecLock lock(critSec);
    return list.GetCount();
}

void VXThread::FindThread(DWORD id, VXThread*& pFound)
{
    CritSecLock lock(critSec);
    pFound = nullptr;
    for (DMPos pos = list.GetHeadPosition(); pos;) {
        VXThread* t = static_cast<VXThread*>(list.GetNext(pos));
        if (t && t->dwSessionId == id) {
            pFound = t;
            return;
        }
    }
}

void VXThread::AddToList(VXThread* pThread)
{
    CritSecLock lock(critSec);
    list.AddTail(pThread);
}

void VXThread::TrimStaleSessions(int bLogoffStale, int nStaleCount)
{
    if (!bLogoffStale)
        return;
    if (nStaleCount < 0)
        nStaleCount = 0;
    if (GetThreadCount() <= (DWORD)nStaleCount)
        return;
    CritSecLock lock(critSec);
    // Most recently active first; the last active user's session ahead of every session that was
    // less recently active than it or came before it in the list.
    DMList order;
    const DWORD active = dwSessionIdActiveUser;
    for (DMPos pos = list.GetHeadPosition(); pos;) {
        VXThread* t = static_cast<VXThread*>(list.GetNext(pos));
        if (!t)
            continue;
        if (t->dwSessionId == active) {
            order.AddHead(t);
            continue;
        }
        DMPos at = order.GetHeadPosition();
        DMPos before = nullptr;
        while (at) {
            VXThread* o = static_cast<VXThread*>(order.GetAt(at));
            if (o->dwLastActivity < t->dwLastActivity)
                break;
            before = at;
            at = at->pNext;
        }
        if (!at)
            order.AddTail(t);
        else if (before)
            order.InsertAfter(before, t);
        else
            order.AddHead(t);
    }
    while (order.GetCount() > (unsigned)nStaleCount) {
        DMPos tail = order.GetTailPosition();
        static_cast<VXThread*>(order.GetAt(tail))->bStale = 1;
        order.RemoveAt(tail);
    }
}

void VXThread::FormatEventName(wchar_t* buf, unsigned cch, const wchar_t* name, DWORD id)
{
    wchar_t session[64];
    StrFormat(session, name, (long)id);
    StrFormat(buf, cch, L"%s%s", L"Global\\", session);
}

int VXThread::BuildCommandLine(wchar_t* buf, unsigned cch, const wchar_t* pszSwitch, DWORD id)
{
    wchar_t path[MAX_PATH + 1];
    DWORD n = GetModuleFileNameW(GetHostModule(), path, MAX_PATH);
    if (n == 0 || n >= MAX_PATH)
        return 0;
    path[n] = 0;
    bool quote = false;
    for (const wchar_t* p = path; *p; ++p)
        if (*p == L' ')
            quote = true;
    wchar_t line[261];
    unsigned len = quote ? StrFormat(line, L"\"%s\" %s:%ld", path, pszSwitch, (long)id)
                         : StrFormat(line, L"%s %s:%ld", path, pszSwitch, (long)id);
    if (len >= 260)
        return 0;
    return StrCopy(buf, cch, line) == len;
}

HANDLE VXThread::CreateSessionEvent(const wchar_t* name, BOOL bManualReset, DWORD dwUserRights)
{
    wchar_t sddl[128];
    StrFormat(sddl, L"D:(A;;0x%lX;;;%s)(A;;GA;;;LS)", dwUserRights, L"IU");
    LocalPtr<void> sd;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, sd.Receive(), nullptr))
        return nullptr;
    SECURITY_ATTRIBUTES sa = {sizeof(sa), sd.Get(), TRUE};
    HANDLE h = CreateEventW(&sa, bManualReset, FALSE, name);
    if (h && GetLastError() == ERROR_ALREADY_EXISTS) {
        CloseHandleKeepError(h);
        SetLastError(ERROR_ALREADY_EXISTS);
        return nullptr;
    }
    return h;
}

int VXThread::StartInSession(const wchar_t* pszSwitch)
{
    wchar_t line[261];
    if (!BuildCommandLine(line, 261, pszSwitch, dwSessionId)) {
        SetLastError(ERROR_BUFFER_OVERFLOW);
        return 0;
    }
    return Seams::pfnStartProcessInSession(dwSessionId, line);
}

// ---------------------------------------------------------------------------------------------
// The life of one session

int VXThread::Begin(DWORD dwNow)
{
    const int nTimeout = opts.nTimeout, nWarn = opts.nMsgTimeout;
    bIdleLogoff = IsMeasurableMinutes(nTimeout) && IsMeasurableMinutes(nWarn);
    dwTimeoutMs = bIdleLogoff ? MinutesToMs(nTimeout) : 0;
    dwWarnMs = bIdleLogoff ? MinutesToMs(nWarn) : 0;
    dwWarnMin = bIdleLogoff ? (DWORD)nWarn : 0;
    bStale = 0;
    bScheduleReported = 0;
    dwLastActivity = dwNow;
    bFirstPass = 1;
    bRunning = 1;
    bWarned = 0;
    if (!StartInSession(L"/monitor")) {
        LogEventError(MSG_MONITOR_START_FAILED, szUserName);
        return 0;
    }
    return 1;
}

int VXThread::Wake(WakeKind kind, DWORD dwNow)
{
    switch (kind) {
    case WakeIdle:
        dwLastActivity = dwNow;
        bWarned = 0;
        break;
    case WakeCancel: // the monitor saw its session end
        bRunning = 0;
        break;
    case WakeTimeout:
        if (OnTimeout(dwNow) == TimeoutDirectLogoff) {
            DirectLogoff(dwNow);
            if (bQuitAll)
                return 0;
            bFirstPass = 0;
            if (!bRunning)
                return 0;
            // Watching goes on: the monitor is started again in case it has gone. A failure is
            // ignored after the first pass.
            StartInSession(L"/monitor");
            return 1;
        }
        break;
    case WakeFailed:
        break;
    }
    if (bQuitAll || !bRunning)
        return 0;
    return 1;
}

VXThread::TimeoutResult VXThread::OnTimeout(DWORD dwNow)
{
    const DWORD idle = dwNow - dwLastActivity; // unsigned: the tick's wrap does no harm
    if (bStale)
        return TimeoutDirectLogoff;
    if (!bIdleLogoff)
        return TimeoutWait;
    // A computer that slept through both periods: no warning, nobody could have seen it. Each
    // period fits the tick; their sum may not, so it is compared in 64 bits.
    if (!bWarned && (ULONGLONG)idle >= (ULONGLONG)dwTimeoutMs + dwWarnMs)
        return TimeoutDirectLogoff;
    if (idle < (bWarned ? dwWarnMs : dwTimeoutMs))
        return TimeoutWait;

    if (!opts.bEnable) {
        LogEventUser(MSG_NOT_ENABLED_TIMEOUT, szUserName);
        bScheduleReported = 0;
        dwLastActivity = dwNow;
    } else if (opts.bKeepLastActiveUser && dwSessionId == dwSessionIdActiveUser) {
        LogEventUser(MSG_KEPT_LAST_ACTIVE_USER, szUserName);
        bScheduleReported = 0;
        dwLastActivity = dwNow;
    } else if (bWarned) {
        if (TryLogoff())
            bRunning = 0;
        else
            dwLastActivity = dwNow; // warned stays: the next attempt after another warning period
    } else if (DWORD state = WTSActive; WtsApi32::QuerySessionConnectState(dwSessionId, state) && state != WTSActive) {
        // Read and not active (disconnected, or not yet initialised): nobody could see a
        // warning. Only a state that cannot be read at all is warned like an active session.
        if (TryLogoff())
            bRunning = 0;
        else
            dwLastActivity = dwNow;
    } else if (IsScheduleInactiveIn(dwWarnMs / 1000)) {
        ReportScheduleOnce();
        dwLastActivity = dwNow;
    } else {
        bWarned = 1;
        dwLastActivity = dwNow;
        DeliverWarning();
    }
    return TimeoutWait;
}

void VXThread::DirectLogoff(DWORD dwNow)
{
    if (!opts.bEnable) {
        bScheduleReported = 0;
        LogEventUser(MSG_NOT_ENABLED_TIMEOUT, szUserName);
        bStale = 0;
        dwLastActivity = dwNow;
    } else if (IsScheduleInactiveIn(0)) {
        ReportScheduleOnce();
        bStale = 0;
        dwLastActivity = dwNow;
    } else if (opts.bKeepLastActiveUser && dwSessionId == dwSessionIdActiveUser) {
        bScheduleReported = 0;
        LogEventUser(MSG_KEPT_LAST_ACTIVE_USER, szUserName);
        bStale = 0;
        dwLastActivity = dwNow;
    } else {
        bScheduleReported = 0;
        bRunning = 0;
        DoLogoffSession(bStale);
    }
}

void VXThread::ReportScheduleOnce()
{
    if (!bScheduleReported) {
        LogEventUser(MSG_SCHEDULE_INACTIVE, szUserName);
        bScheduleReported = 1;
    }
}

int VXThread::IsScheduleInactiveAt(const SYSTEMTIME& when)
{
    if (!opts.bUseSchedule)
        return 0;
    CritSecLock lock(csOpts);
    if (opts.schedule.IsDefault())
        return 0;
    wchar_t error[256];
    int r = opts.schedule.GetSecondsRemaining(&when, error, 256);
    // A text that does not parse answers -604801, which deliberately counts as active.
    return r < 0 && r != Schedule::nSecondsBadText;
}

int VXThread::IsScheduleInactiveIn(DWORD dwSeconds)
{
    SYSTEMTIME now;
    Seams::LocalTime(&now);
    if (dwSeconds) {
        FILETIME ft;
        if (SystemTimeToFileTime(&now, &ft)) {
            ULARGE_INTEGER t;
            t.LowPart = ft.dwLowDateTime;
            t.HighPart = ft.dwHighDateTime;
            t.QuadPart += (ULONGLONG)dwSeconds * 10000000ull;
            ft.dwLowDateTime = t.LowPart;
            ft.dwHighDateTime = t.HighPart;
            FileTimeToSystemTime(&ft, &now);
        }
    }
    return IsScheduleInactiveAt(now);
}

int VXThread::TryLogoff()
{
    if (IsScheduleInactiveIn(0)) {
        ReportScheduleOnce();
        return 0;
    }
    bScheduleReported = 0;
    if (!LicenceSays(LicenceComputerFlagged)) {
        if (WtsApi32::WTSLogoffSession(WTS_CURRENT_SERVER_HANDLE, dwSessionId, FALSE)) {
            LogEventUser(MSG_LOGGED_OFF, szUserName);
            StrCopy(szLastLogOff, szUserName);
        } else {
            LogEventError(MSG_LOGOFF_FAILED, szUserName);
        }
    }
    return 1; // the thread ends even when the logoff failed
}

void VXThread::DoLogoffSession(int bStaleLogoff)
{
    if (LicenceSays(LicenceComputerFlagged))
        return;
    if (WtsApi32::WTSLogoffSession(WTS_CURRENT_SERVER_HANDLE, dwSessionId, FALSE)) {
        LogEventUser(bStaleLogoff ? MSG_STALE_LOGGED_OFF : MSG_LOGGED_OFF, szUserName);
        StrCopy(szLastLogOff, szUserName);
    } else {
        LogEventError(bStaleLogoff ? MSG_STALE_LOGOFF_FAILED : MSG_LOGOFF_FAILED, szUserName);
    }
}

void VXThread::DeliverWarning()
{
    const int locked = bLocked;
    wchar_t builtIn[1024];
    {
        CritSecLock lock(csOpts);
        StrCopy(builtIn, locked ? opts.szMsgTextLocked : opts.szMsgText);
    }
    const wchar_t* text = builtIn;
    if (!text[0]) {
        LoadResString(locked ? IDS_WARNING_TEXT_LOCKED : IDS_WARNING_TEXT, builtIn, 1024);
        text = builtIn;
    }
    wchar_t minutes[16], message[512];
    StrFormat(minutes, L"%lu", (unsigned long)dwWarnMin);
    StrExpandNumber(message, 512, text, minutes);

    // In an unlocked session the monitor's own window shows a live countdown.
    if (!locked && StartInSession(L"/msg"))
        return;
    wchar_t title[] = L"Vantrel";
    DWORD response = 0;
    WtsApi32::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, dwSessionId, title, (DWORD)(StrLen(title) * sizeof(wchar_t)),
                              message, (DWORD)(StrLen(message) * sizeof(wchar_t)), kWarningBoxStyle, dwWarnMs / 1000, &response,
                              FALSE);
}

DWORD VXThread::DoThreadEx()
{
    wchar_t name[128];
    FormatEventName(name, 128, L"VantrelEventIdle-%ld", dwSessionId);
    Handle idle(CreateSessionEvent(name, FALSE, kEventSetOnly));
    FormatEventName(name, 128, L"VantrelEventCancel-%ld", dwSessionId);
    Handle cancel(CreateSessionEvent(name, FALSE, kEventSetOnly));
    if (!idle.IsValid() || !cancel.IsValid())
        return 0;
    if (!Begin(Seams::Now()))
        return 0;
    HANDLE events[2] = {idle.Get(), cancel.Get()};
    for (;;) {
        DWORD w = WaitForMultipleObjects(2, events, FALSE, kWakeMs);
        WakeKind kind = w == WAIT_OBJECT_0       ? WakeIdle
                        : w == WAIT_OBJECT_0 + 1 ? WakeCancel
                        : w == WAIT_TIMEOUT      ? WakeTimeout
                                                 : WakeFailed;
        if (kind == WakeIdle)
            ResetEvent(idle.Get());
        if (kind == WakeFailed)
            Sleep(100); // a failing wait must not spin
        if (!Wake(kind, Seams::Now()))
            break;
    }
    return 0;
}
