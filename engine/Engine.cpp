#include "engine/Engine.h"

#include <wtsapi32.h>

#include <atomic>

#include "base/StrUtil.h"
#include "engine/EventLog.h"
#include "engine/Host.h"
#include "engine/Seams.h"
#include "engine/VXThread.h"
#include "engine/VXThreadBkg.h"
#include "engine/WtsApi32.h"
#include "settings/MyOpts.h"
#include "storage/RegKey.h"

namespace {
MyOpts g_opts;
wchar_t g_szComputerName[MAX_COMPUTERNAME_LENGTH + 1];
HANDLE g_hQuitEvent = nullptr;
std::atomic<LONG> g_nSessionsTotal{0};
const DWORD kNoSession = 0xFFFFFFFF;
const DWORD kQuitUserRights = 0x100000; // SYNCHRONIZE: interactive users may only wait on it
bool g_bWtsLoaded = false;

// Reads one piece of session information as text; empty when it cannot be had.
void QueryString(DWORD id, WTS_INFO_CLASS cls, wchar_t* buf, unsigned cch)
{
    buf[0] = 0;
    WtsPtr<wchar_t> p;
    DWORD cb = 0;
    // Never trust the terminator: copy at most what was returned.
    if (WtsApi32::WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, id, cls, p.Receive(), &cb) && p)
        StrCopyN(buf, cch, p.Get(), cb / sizeof(wchar_t));
}

void QueryUser(DWORD id, wchar_t* domain, wchar_t* user, unsigned cch)
{
    domain[0] = user[0] = 0;
    {
        WtsPtr<wchar_t> p;
        DWORD cb = 0;
        if (WtsApi32::WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, id, WTSSessionInfo, p.Receive(), &cb) && p) {
            if (cb >= sizeof(WTSINFOW)) {
                const WTSINFOW* info = reinterpret_cast<const WTSINFOW*>(p.Get());
                StrCopyN(domain, cch, info->Domain, DOMAIN_LENGTH + 1);
                StrCopyN(user, cch, info->UserName, USERNAME_LENGTH + 1);
            }
            return;
        }
    }
    QueryString(id, WTSDomainName, domain, cch);
    QueryString(id, WTSUserName, user, cch);
}

// The first group of groups that the list names (whole name, ignoring case), or null.
const wchar_t* FirstListed(const StrList& groups, const StrList& list)
{
    DMPos pos = list.FindStrExactIgnoreCase(groups);
    if (!pos)
        return nullptr;
    // FindStrExactIgnoreCase walks groups in order and returns the place in list; report the
    // group by its own spelling.
    const wchar_t* listed = list.GetAt(pos);
    DMPos g = groups.FindStrExactIgnoreCase(listed);
    return g ? groups.GetAt(g) : listed;
}
} // namespace

MyOpts& EngineOpts() { return g_opts; }
DWORD EngineSessionsTotal() { return (DWORD)g_nSessionsTotal; }
HANDLE EngineQuitEvent() { return g_hQuitEvent; }
const wchar_t* EngineComputerName() { return g_szComputerName; }

DWORD CountActiveSessions()
{
    WtsPtr<WTS_SESSION_INFOW> info;
    DWORD count = 0, active = 0;
    if (!WtsApi32::WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, info.Receive(), &count) || !info)
        return 0;
    for (DWORD i = 0; i < count; ++i)
        if (info.Get()[i].State == WTSActive)
            ++active;
    return active;
}

int MonitorSession(DWORD id)
{
    MyOpts& opts = g_opts;
    if (LicenceSays(LicenceComputerFlagged))
        return 0;
    if (!opts.bEnable) {
        LogEvent(MSG_NOT_ENABLED_LOGON);
        return 0;
    }
    VXThread* existing = nullptr;
    VXThread::FindThread(id, existing);
    if (existing)
        return 1;

    wchar_t domain[256], user[256], name[256];
    QueryUser(id, domain, user, 256);
    if (!user[0]) {
        // The logon is not complete yet: the background thread tries again in 15 seconds.
        if (VXThreadBkg* bkg = VXThreadBkg::pThreadBkg)
            bkg->RefreshDelayed(15);
        return 0;
    }
    if (StrEqualNoCase(domain, g_szComputerName))
        domain[0] = 0; // a local account
    if (domain[0])
        StrFormat(name, L"%s\\%s", domain, user);
    else
        StrCopy(name, user);

    // The lists are copied under the settings lock: a reload may replace them at any moment.
    StrList include, exclude;
    {
        CritSecLock lock(VXThread::csOpts);
        include.CopyFrom(opts.listInclude);
        exclude.CopyFrom(opts.listExclude);
    }
    if (exclude.FindStrExactIgnoreCase(name)) {
        LogEventUser(MSG_SKIPPED_EXCLUDED_USER, name);
        return 0;
    }
    bool included = false;
    auto checkGroups = [&](const StrList& groups) -> bool {
        if (const wchar_t* g = FirstListed(groups, exclude)) {
            const wchar_t* strings[2] = {name, g};
            Seams::pfnReportEvent(EventTypeOfId(MSG_SKIPPED_EXCLUDED_GROUP), MSG_SKIPPED_EXCLUDED_GROUP, 2, strings);
            return false;
        }
        if (FirstListed(groups, include))
            included = true;
        return true;
    };
    if (domain[0]) {
        StrList groups;
        Seams::pfnGetUserGroups(domain, user, groups);
        if (!checkGroups(groups))
            return 0;
    }
    {
        StrList groups;
        Seams::pfnGetUserLocalGroups(name, groups);
        if (!checkGroups(groups))
            return 0;
    }
    if (!included) {
        if (include.FindStrExactIgnoreCase(name))
            included = true;
        else if (!include.IsEmpty()) {
            LogEventUser(MSG_SKIPPED_NOT_APPLIED, name);
            return 0;
        }
    }
    if (LicenceSays(LicenceSessionRefused))
        return 0;

    // A logon and the background thread's re-scan may admit the same session at once: the
    // second look and the creation are one step under the list's lock, so a session never gets
    // two threads.
    CritSecLock lock(VXThread::critSec);
    VXThread::FindThread(id, existing);
    if (existing)
        return 1;
    LogEventUser(MSG_MONITOR_STARTED, name);
    VXThread* t = new VXThread(opts, id);
    t->SetUserName(name);
    VXThread::AddToList(t);
    if (!t->Start()) {
        delete t; // takes itself off the list
        return 0;
    }
    t->DeleteIfDone();
    return 1;
}

// Writes the event for each time setting that holds what the configuration utility would refuse
// (negative, or more than its 9999 minutes), once per value: the reload at every logon must not
// repeat it, but a different bad value is reported again. 0 is a valid time here.
static void ReportTimesOutOfRange(const MyOpts& opts)
{
    static struct {
        const wchar_t* const* ppszName;
        int MyOpts::*field;
        bool bReported;
        int nReported;
    } checks[] = {
        {&MyOpts::pszIdleTimeout, &MyOpts::nTimeout, false, 0},
        {&MyOpts::pszMsgTimeout, &MyOpts::nMsgTimeout, false, 0},
        {&MyOpts::pszShutdownTimeout, &MyOpts::nShutdownTimeout, false, 0},
    };
    for (auto& c : checks) {
        const int n = opts.*c.field;
        if (n >= 0 && n <= MyOpts::nMaxMinutes) {
            c.bReported = false;
            continue;
        }
        if (c.bReported && c.nReported == n)
            continue;
        c.bReported = true;
        c.nReported = n;
        wchar_t number[16];
        StrFormat(number, L"%d", n);
        const wchar_t* strings[2] = {*c.ppszName, number};
        Seams::pfnReportEvent(EventTypeOfId(MSG_SETTING_OUT_OF_RANGE), MSG_SETTING_OUT_OF_RANGE, 2, strings);
    }
}

// Loads the settings from the registry and puts them in place. The record is read into a fresh
// copy first and swapped in under the settings lock, so the session threads, which read it every
// second, never see it half loaded. Returns 0 when only changes were asked for and none came.
static int ReloadSettings(int bFull)
{
    MyOpts fresh;
    fresh.Load(); // starts from the defaults, as a reload must
    {
        CritSecLock lock(VXThread::csOpts);
        if (!bFull && !g_opts.IsDifferent(&fresh))
            return 0;
        g_opts.CopyFrom(&fresh);
        g_opts.bPolicyInEffect = fresh.bPolicyInEffect;
    }
    ReportTimesOutOfRange(fresh);
    return 1;
}

void RefreshSessions(int bFull)
{
    MyOpts& opts = g_opts;
    if (!ReloadSettings(bFull))
        return;
    if (opts.bEnable) {
        g_nSessionsTotal = 0;
        if (!opts.bKeepLastActiveUser)
            VXThread::dwSessionIdActiveUser = kNoSession;
        WtsPtr<WTS_SESSION_INFOW> info;
        DWORD count = 0;
        if (WtsApi32::WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, info.Receive(), &count) && info) {
            for (DWORD i = 0; i < count; ++i) {
                if (info.Get()[i].State != WTSActive)
                    continue;
                ++g_nSessionsTotal;
                MonitorSession(info.Get()[i].SessionId);
            }
        } else if (VXThreadBkg* bkg = VXThreadBkg::pThreadBkg) {
            bkg->RefreshDelayed(15);
        }
    } else {
        LogEvent(MSG_NOT_ENABLED_MONITORING);
    }
    WriteStatus();
}

void StopMonitoring()
{
    VXThread::bQuitAll = 1;
    if (g_hQuitEvent)
        SetEvent(g_hQuitEvent);
    for (int i = 0; i < 10; ++i) {
        if (VXThread::GetThreadCount() == 0 && !VXThreadBkg::pThreadBkg)
            break;
        Sleep(500);
    }
}

void WriteStatus()
{
    RegKey key(g_opts.GetRegKeyName(), 1);
    if (!key.IsReady())
        return;
    key.PutDwordOrDeleteIfZero(L"SessionsMonitoring", VXThread::GetThreadCount(), 1);
    if (VXThread::szLastLogOff[0]) {
        key.PutStr(L"LastLogoff", VXThread::szLastLogOff, 1);
        VXThread::szLastLogOff[0] = 0;
    }
}

// Lets monitoring run: clears the quit flag and event and starts the background thread when it
// is not running (at start, and after the sessions were released with code 129).
static void ResumeMonitoring()
{
    VXThread::bQuitAll = 0;
    if (g_hQuitEvent)
        ResetEvent(g_hQuitEvent);
    if (VXThreadBkg::pThreadBkg)
        return;
    VXThreadBkg* bkg = new VXThreadBkg(g_opts);
    VXThreadBkg::pThreadBkg = bkg;
    if (bkg->Start()) {
        bkg->DeleteIfDone();
    } else {
        VXThreadBkg::pThreadBkg = nullptr;
        delete bkg;
    }
}

static void StartEngine()
{
    LogEvent(MSG_SERVICE_STARTED);
    ResumeMonitoring();
    RefreshSessions(1);
    if (CountActiveSessions() == 0)
        if (VXThreadBkg* b = VXThreadBkg::pThreadBkg)
            b->BeginDelayedShutdown();
}

static void StopEngine()
{
    LogEvent(MSG_SERVICE_STOPPING);
    StopMonitoring();
    LogEvent(MSG_SERVICE_STOPPED);
    // The Terminal Services table is cleared when the library goes, so a session thread that
    // outlived the wait above can no longer reach it.
    if (g_bWtsLoaded) {
        WtsApi32::Unload();
        g_bWtsLoaded = false;
    }
}

static void OnSessionChange(DWORD type, DWORD id)
{
    switch (type) {
    case WTS_SESSION_LOGON:
        ++g_nSessionsTotal;
        [[fallthrough]];
    case WTS_CONSOLE_CONNECT:
        ReloadSettings(1);
        VXThread::dwSessionIdActiveUser = id;
        MonitorSession(id);
        if (VXThreadBkg* bkg = VXThreadBkg::pThreadBkg)
            if (bkg->IsShutdownArmed() && CountActiveSessions() > 0)
                bkg->CancelDelayedShutdown();
        VXThread::TrimStaleSessions(g_opts.bLogoffStale, g_opts.nLogoffStaleCount);
        WriteStatus();
        break;
    case WTS_SESSION_LOGOFF:
        --g_nSessionsTotal;
        if (VXThread::dwSessionIdActiveUser == id)
            VXThread::dwSessionIdActiveUser = kNoSession;
        WriteStatus();
        if (VXThreadBkg* bkg = VXThreadBkg::pThreadBkg)
            if (CountActiveSessions() == 0)
                bkg->BeginDelayedShutdown();
        break;
    case WTS_SESSION_LOCK:
    case WTS_SESSION_UNLOCK: {
        {
            CritSecLock lock(VXThread::critSec);
            if (type == WTS_SESSION_UNLOCK)
                VXThread::dwSessionIdActiveUser = id;
            VXThread* t = nullptr;
            VXThread::FindThread(id, t);
            if (t)
                t->bLocked = type == WTS_SESSION_LOCK ? 1 : 0;
        }
        if (type == WTS_SESSION_UNLOCK)
            VXThread::TrimStaleSessions(g_opts.bLogoffStale, g_opts.nLogoffStaleCount);
        WriteStatus();
        break;
    }
    default:
        break;
    }
}

DWORD EngineControl(DWORD dwControl, DWORD dwEventType, LPVOID pEventData, SERVICE_STATUS* pStatus)
{
    try {
        switch (dwControl) {
        case EngineInitialise: {
            if (!g_bWtsLoaded)
                g_bWtsLoaded = WtsApi32::Load() != 0;
            DWORD n = MAX_COMPUTERNAME_LENGTH + 1;
            if (!GetComputerNameW(g_szComputerName, &n))
                g_szComputerName[0] = 0;
            if (pStatus)
                pStatus->dwControlsAccepted |= SERVICE_ACCEPT_SESSIONCHANGE;
            if (!g_hQuitEvent) {
                wchar_t name[64];
                StrFormat(name, L"%s%s", L"Global\\", L"VantrelEventQuit");
                g_hQuitEvent = VXThread::CreateSessionEvent(name, TRUE, kQuitUserRights);
            }
            break;
        }
        case EngineStart:
            StartEngine();
            break;
        case EngineStop:
            StopEngine();
            break;
        case EngineSessionChange:
            if (pEventData)
                OnSessionChange(dwEventType, static_cast<WTSSESSION_NOTIFICATION*>(pEventData)->dwSessionId);
            break;
        case EngineReloadSettings:
            // After the sessions were released (129), the settings change starts monitoring again.
            if (VXThread::bQuitAll)
                ResumeMonitoring();
            RefreshSessions(1);
            break;
        case EngineReleaseSessions:
            StopMonitoring();
            break;
        default:
            break;
        }
    } catch (...) {
        // Nothing may escape into the service manager's thread; the administrator reads about it.
        LogEventNumber(MSG_ENGINE_ERROR, (long)dwControl);
    }
    return 0;
}
