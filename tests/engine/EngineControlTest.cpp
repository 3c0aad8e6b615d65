// The engine as the service runs it: control codes, session changes from the simulated terminal
// server, admission by "Enable", "Exclude" and "ApplyTo", the status values and the power
// countdown. Session threads are real threads here; time is the virtual clock's.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "base/ProductInfo.h"
#include "engine/Engine.h"
#include "engine/EventLog.h"
#include "engine/Seams.h"
#include "engine/VXThread.h"
#include "engine/VXThreadBkg.h"
#include "engine/WtsApi32.h"
#include "base/StrUtil.h"
#include "settings/MyOpts.h"
#include "support/EngineFakes.h"
#include "support/Guards.h"
#include "support/SimTerminalServer.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {

bool WaitUntil(const std::function<bool()>& done, DWORD ms = 5000)
{
    for (DWORD waited = 0; waited < ms; waited += 20) {
        if (done())
            return true;
        Sleep(20);
    }
    return done();
}

class Engine : public ::testing::Test {
protected:
    ScopedTestKey settings{L"engine"};
    ScopedTestKey policy{L"enginepol"};
    ScopedAppRootKey root{settings.path()};
    ScopedPolicyKeys policyKeys{policy.path(), policy.path()};
    ScopedEngineState state;
    VirtualClock clock;
    EventRecorder events;
    FakeGroups groups;
    FakePower power;
    SimTerminalServer ts;

    void SetUp() override
    {
        RawSetDword(settings.sub(), L"Enable", 1);
        RawCreateKey(settings.sub(L"ApplyTo"));
        RawCreateKey(settings.sub(L"Exclude"));
        ASSERT_EQ(ts.Install(), 1);
        ts.SetSink([](DWORD evt, DWORD id) {
            WTSSESSION_NOTIFICATION n = {sizeof(n), id};
            EngineControl(EngineSessionChange, evt, &n, nullptr);
        });
        SERVICE_STATUS status{};
        EngineControl(EngineInitialise, 0, nullptr, &status);
        EXPECT_EQ(status.dwControlsAccepted & SERVICE_ACCEPT_SESSIONCHANGE, (DWORD)SERVICE_ACCEPT_SESSIONCHANGE);
    }
    void TearDown() override
    {
        // The stop also releases the engine's hold on the Terminal Services library.
        EngineControl(EngineStop, 0, nullptr, nullptr);
        EXPECT_EQ(VXThread::GetThreadCount(), 0u) << "every session thread ended with the stop";
        ts.SetSink(nullptr);
        ts.Uninstall();
    }
    void Start()
    {
        EngineControl(EngineStart, 0, nullptr, nullptr);
    }
    void List(const wchar_t* name, std::initializer_list<const wchar_t*> entries)
    {
        int n = 0;
        for (const wchar_t* e : entries)
            RawSetStr(settings.sub(name), std::to_wstring(++n).c_str(), e);
    }
    bool Watched(DWORD id)
    {
        VXThread* t = nullptr;
        VXThread::FindThread(id, t);
        return t != nullptr;
    }
    std::vector<std::wstring> StringsOf(DWORD id)
    {
        for (const auto& e : events.Events())
            if (e.id == id)
                return e.strings;
        return {L"<no event>"};
    }
};

TEST_F(Engine, StartWatchesActiveSessionsAndStopEndsEverything)
{
    ts.AddSession(1, L"alice", L"CORP");
    ts.AddSession(2, L"bob", L"CORP", WTSDisconnected);
    Start();
    EXPECT_EQ(events.Ids().front(), (DWORD)MSG_SERVICE_STARTED);
    EXPECT_TRUE(Watched(1));
    EXPECT_FALSE(Watched(2)) << "only active sessions are scanned";
    EXPECT_EQ(StringsOf(MSG_MONITOR_STARTED), std::vector<std::wstring>{L"CORP\\alice"});
    EXPECT_EQ(EngineSessionsTotal(), 1u);
    EXPECT_EQ(RawGetDword(settings.sub(), L"SessionsMonitoring"), 1u);
    ASSERT_TRUE(WaitUntil([&] { return ts.Processes().size() == 1; }));
    EXPECT_NE(wcsstr(ts.Processes()[0].szCmdLine, L" /monitor:1"), nullptr);

    EngineControl(EngineStop, 0, nullptr, nullptr);
    EXPECT_EQ(VXThread::GetThreadCount(), 0u);
    EXPECT_EQ(VXThreadBkg::pThreadBkg, nullptr);
    auto ids = events.Ids();
    ASSERT_GE(ids.size(), 2u);
    EXPECT_EQ(ids[ids.size() - 2], (DWORD)MSG_SERVICE_STOPPING);
    EXPECT_EQ(ids.back(), (DWORD)MSG_SERVICE_STOPPED);
}

TEST_F(Engine, AdmissionByListsAndGroups)
{
    List(L"ApplyTo", {L"Kiosk Users", L"corp\\carol"});
    List(L"Exclude", {L"Administrators", L"CORP\\dave"});
    groups.domainGroups[L"CORP\\alice"] = {L"Domain Users", L"kiosk users"};
    groups.domainGroups[L"CORP\\bob"] = {L"Kiosk Users"};
    groups.localGroups[L"CORP\\bob"] = {L"Users", L"ADMINISTRATORS"};
    Start();

    ts.Logon(1, L"alice", L"CORP"); // included by a domain group
    EXPECT_TRUE(Watched(1));
    ts.Logon(2, L"bob", L"CORP"); // included by a domain group, excluded by a local one
    EXPECT_FALSE(Watched(2));
    EXPECT_EQ(StringsOf(MSG_SKIPPED_EXCLUDED_GROUP), (std::vector<std::wstring>{L"CORP\\bob", L"ADMINISTRATORS"}));
    ts.Logon(3, L"carol", L"CORP"); // included by name, ignoring case
    EXPECT_TRUE(Watched(3));
    ts.Logon(4, L"dave", L"CORP"); // excluded by name
    EXPECT_FALSE(Watched(4));
    EXPECT_EQ(StringsOf(MSG_SKIPPED_EXCLUDED_USER), std::vector<std::wstring>{L"CORP\\dave"});
    ts.Logon(5, L"erin", L"CORP"); // in no list while ApplyTo is not empty
    EXPECT_FALSE(Watched(5));
    EXPECT_EQ(StringsOf(MSG_SKIPPED_NOT_APPLIED), std::vector<std::wstring>{L"CORP\\erin"});
    EXPECT_EQ(RawGetDword(settings.sub(), L"SessionsMonitoring"), 2u);
}

TEST_F(Engine, EmptyListsAdmitEveryoneAndLocalAccountsUseBareNames)
{
    Start();
    ts.Logon(1, L"frank", EngineComputerName());
    EXPECT_TRUE(Watched(1));
    EXPECT_EQ(StringsOf(MSG_MONITOR_STARTED), std::vector<std::wstring>{L"frank"});
    EXPECT_EQ(groups.asked, std::vector<std::wstring>{L"local:frank"}) << "no domain look-up for a local account";
}

TEST_F(Engine, LogonBeforeTheUserNameIsKnownIsAdmittedByTheRescan)
{
    Start();
    ts.Logon(7, L"", L"");
    EXPECT_FALSE(Watched(7));
    ASSERT_NE(VXThreadBkg::pThreadBkg, nullptr);
    EXPECT_EQ(VXThreadBkg::pThreadBkg.load()->dwRescanAt, clock.Tick() + 15000);
    ts.SetUser(7, L"gina", L"CORP");
    clock.Advance(14000);
    Sleep(1500);
    EXPECT_FALSE(Watched(7)) << "not before 15 seconds";
    clock.Advance(1000);
    EXPECT_TRUE(WaitUntil([&] { return Watched(7); }, 3000)) << "the background thread's re-scan admits it";
}

TEST_F(Engine, UserNameFromTheOlderQueriesWhenSessionInfoIsMissing)
{
    ts.Fail(simts::kCallQuery, ERROR_NOT_SUPPORTED, simts::kForever, simts::kAnySession, WTSSessionInfo);
    Start();
    ts.Logon(3, L"hank", L"CORP");
    EXPECT_TRUE(Watched(3));
    EXPECT_EQ(StringsOf(MSG_MONITOR_STARTED), std::vector<std::wstring>{L"CORP\\hank"});
}

TEST_F(Engine, SessionThreadsHearTheirMonitorThroughTheNamedEvents)
{
    Start();
    ts.Logon(4, L"ivy", L"CORP");
    VXThread* t = nullptr;
    VXThread::FindThread(4, t);
    ASSERT_NE(t, nullptr);
    wchar_t name[128];
    VXThread::FormatEventName(name, 128, L"VantrelEventIdle-%ld", 4);
    HANDLE idle = nullptr;
    ASSERT_TRUE(WaitUntil([&] { return (idle = OpenEventW(EVENT_MODIFY_STATE, FALSE, name)) != nullptr; }));
    clock.Advance(5 * 60000);
    SetEvent(idle);
    CloseHandle(idle);
    EXPECT_TRUE(WaitUntil([&] { return t->GetLastActivity() == clock.Tick(); }, 3000)) << "activity restarts the count";

    VXThread::FormatEventName(name, 128, L"VantrelEventCancel-%ld", 4);
    HANDLE cancel = OpenEventW(EVENT_MODIFY_STATE, FALSE, name);
    ASSERT_NE(cancel, nullptr);
    SetEvent(cancel);
    CloseHandle(cancel);
    EXPECT_TRUE(WaitUntil([&] { return !Watched(4); }, 3000)) << "the session's end stops its thread";
    EXPECT_TRUE(ts.Logoffs().empty()) << "without logging anyone off";
}

TEST_F(Engine, DisabledMonitoringWatchesNobody)
{
    RawSetDword(settings.sub(), L"Enable", 0);
    ts.AddSession(1, L"alice", L"CORP");
    Start();
    EXPECT_EQ(events.Count(MSG_NOT_ENABLED_MONITORING), 1u);
    ts.Logon(2, L"bob", L"CORP");
    EXPECT_EQ(events.Count(MSG_NOT_ENABLED_LOGON), 1u);
    EXPECT_EQ(VXThread::GetThreadCount(), 0u);
    EXPECT_FALSE(RawValueExists(settings.sub(), L"SessionsMonitoring")) << "deleted when nobody is watched";
}

TEST_F(Engine, LockUnlockAndLogoffKeepTheSessionStateAndStatus)
{
    Start();
    ts.Logon(1, L"alice", L"CORP");
    ts.Logon(2, L"bob", L"CORP");
    EXPECT_EQ(VXThread::dwSessionIdActiveUser, 2u);
    ts.Lock(1);
    VXThread* t = nullptr;
    VXThread::FindThread(1, t);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->bLocked, 1);
    ts.Unlock(1);
    EXPECT_EQ(t->bLocked, 0);
    EXPECT_EQ(VXThread::dwSessionIdActiveUser, 1u);

    // The product logs bob off; the logoff reaches the service and the status follows.
    EXPECT_TRUE(WtsApi32::WTSLogoffSession(WTS_CURRENT_SERVER_HANDLE, 2, FALSE));
    VXThread::FindThread(2, t);
    ASSERT_NE(t, nullptr);
    StrCopy(VXThread::szLastLogOff, L"CORP\\bob");
    ts.DeliverPending();
    EXPECT_EQ(RawGetStr(settings.sub(), L"LastLogoff"), L"CORP\\bob");
    EXPECT_STREQ(VXThread::szLastLogOff, L"");
    EXPECT_EQ(EngineSessionsTotal(), 1u);
}

TEST_F(Engine, PowerCountdownFollowsTheSessions)
{
    RawSetDword(settings.sub(), L"Shutdown", 1);
    RawSetDword(settings.sub(), L"ShutdownTimeout", 30);
    Start();
    ASSERT_NE(VXThreadBkg::pThreadBkg, nullptr);
    EXPECT_TRUE(VXThreadBkg::pThreadBkg.load()->IsShutdownArmed()) << "nobody is logged on at start";
    ts.Logon(1, L"alice", L"CORP");
    EXPECT_FALSE(VXThreadBkg::pThreadBkg.load()->IsShutdownArmed());
    EXPECT_EQ(power.calls, std::vector<std::string>{"abort"});
    ts.Logoff(1);
    EXPECT_TRUE(VXThreadBkg::pThreadBkg.load()->IsShutdownArmed()) << "the last logoff arms it again";
    EXPECT_EQ(VXThreadBkg::pThreadBkg.load()->dwShutdownAt, clock.Tick() + 30 * 60000);
    clock.Advance(30 * 60000);
    EXPECT_TRUE(WaitUntil([&] { return events.Count(MSG_SUSPEND_STARTED) == 1; }, 3000));
    Sleep(1200);
    EXPECT_EQ(power.calls, (std::vector<std::string>{"abort", "privilege+", "suspend:sleep", "privilege-"}));
}

TEST_F(Engine, ReleasingSessionsKeepsTheServiceAndSettingsChangeResumes)
{
    ts.AddSession(1, L"alice", L"CORP");
    Start();
    ASSERT_TRUE(Watched(1));
    EngineControl(EngineReleaseSessions, 0, nullptr, nullptr);
    EXPECT_EQ(VXThread::GetThreadCount(), 0u);
    EXPECT_EQ(VXThreadBkg::pThreadBkg, nullptr);
    EXPECT_EQ(WaitForSingleObject(EngineQuitEvent(), 0), WAIT_OBJECT_0) << "in-session monitors are told to end";
    EXPECT_EQ(events.Count(MSG_SERVICE_STOPPED), 0u);

    EngineControl(EngineReloadSettings, 0, nullptr, nullptr);
    EXPECT_TRUE(Watched(1));
    EXPECT_NE(VXThreadBkg::pThreadBkg, nullptr);
    EXPECT_EQ(WaitForSingleObject(EngineQuitEvent(), 0), (DWORD)WAIT_TIMEOUT);
}

} // namespace

// A time the configuration utility would refuse is said in the event log once per value: the
// reload at every logon and settings change does not repeat it, a different bad value or the
// same one after a valid one is said again, and 0 (a valid time) is never reported.
TEST_F(Engine, OutOfRangeTimesAreReportedOncePerValue)
{
    auto reload = [&](const wchar_t* name, DWORD value) {
        RawSetDword(settings.sub(), name, value);
        EngineControl(EngineReloadSettings, 0, nullptr, nullptr);
    };
    RawSetDword(settings.sub(), L"Timeout", (DWORD)-2);
    Start();
    EXPECT_EQ(events.Count(MSG_SETTING_OUT_OF_RANGE), 1u);
    EXPECT_EQ(StringsOf(MSG_SETTING_OUT_OF_RANGE), (std::vector<std::wstring>{L"Timeout", L"-2"}));
    ts.Logon(1, L"alice", L"CORP"); // a logon reloads the settings
    reload(L"MessageTimeout", 0);
    EXPECT_EQ(events.Count(MSG_SETTING_OUT_OF_RANGE), 1u);
    reload(L"Timeout", 71583);
    EXPECT_EQ(events.Count(MSG_SETTING_OUT_OF_RANGE), 2u);
    reload(L"ShutdownTimeout", 10000);
    EXPECT_EQ(events.Count(MSG_SETTING_OUT_OF_RANGE), 3u);
    EXPECT_EQ(events.Events().back().strings, (std::vector<std::wstring>{L"ShutdownTimeout", L"10000"}));
    EXPECT_EQ(events.Events().back().type, EVENTLOG_WARNING_TYPE);
    reload(L"Timeout", 9999);
    reload(L"ShutdownTimeout", 0);
    EXPECT_EQ(events.Count(MSG_SETTING_OUT_OF_RANGE), 3u);
    reload(L"Timeout", 71583);
    EXPECT_EQ(events.Count(MSG_SETTING_OUT_OF_RANGE), 4u);
    RawSetDword(settings.sub(), L"Timeout", 10);
    EngineControl(EngineReloadSettings, 0, nullptr, nullptr);
}

// Nothing escapes into the service manager's thread: an exception met while a logon is handled
// is reported as the error event with the control code, and the engine goes on.
TEST_F(Engine, AnExceptionInAControlIsReportedAndTheEngineGoesOn)
{
    Start();
    auto saved = Seams::pfnGetUserLocalGroups;
    Seams::pfnGetUserLocalGroups = [](const wchar_t*, StrList&) { throw std::runtime_error("group look-up"); };
    ts.Logon(1, L"alice", L"CORP");
    Seams::pfnGetUserLocalGroups = saved;
    EXPECT_EQ(StringsOf(MSG_ENGINE_ERROR), std::vector<std::wstring>{L"14"});
    EXPECT_EQ(events.Events().back().type, EVENTLOG_ERROR_TYPE);
    ts.Logon(2, L"bob", L"CORP");
    EXPECT_TRUE(Watched(2)) << "the next logon is handled as usual";
}
