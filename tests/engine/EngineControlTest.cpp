// The engine as the service runs it: control codes, session changes from the simulated terminal
// server, admission, status values and the power countdown, with real session threads.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

#include "engine/Engine.h"
#include "engine/EventLog.h"
#include "engine/VXThreadBkg.h"
#include "settings/MyOpts.h"
#include "support/EngineFakes.h"
#include "support/SimTerminalServer.h"
#include "support/TestSupport.h"

using namespace vxtest;
using Strings = std::vector<std::wstring>;

namespace {

bool WaitUntil(const std::function<bool()>& done, DWORD ms = 5000)
{
    for (DWORD waited = 0; waited < ms && !done(); waited += 20)
        Sleep(20);
    return done();
}

// Sets the named event of a session, as its in-session monitor does.
bool SetSessionEvent(const wchar_t* format, DWORD id)
{
    wchar_t name[128];
    VXThread::FormatEventName(name, 128, format, id);
    HANDLE h = OpenEventW(EVENT_MODIFY_STATE, FALSE, name);
    return h && SetEvent(h) && CloseHandle(h);
}

class Engine : public ::testing::Test {
protected:
    ScopedTestKey settings{L"engine"}, policy{L"enginepol"};
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
            if (evt == WTS_SESSION_LOGOFF) // the session's monitor sees its end
                SetSessionEvent(L"VantrelEventCancel-%ld", id);
            WTSSESSION_NOTIFICATION n = {sizeof(n), id};
            EngineControl(EngineSessionChange, evt, &n, nullptr);
        });
        SERVICE_STATUS status{};
        EngineControl(EngineInitialise, 0, nullptr, &status);
        EXPECT_EQ(status.dwControlsAccepted, (DWORD)SERVICE_ACCEPT_SESSIONCHANGE);
    }
    void TearDown() override
    {
        EngineControl(EngineStop, 0, nullptr, nullptr);
        EXPECT_EQ(VXThread::GetThreadCount(), 0u) << "every session thread ended with the stop";
        EXPECT_EQ(ts.With([](simts::SimState& s) { return s.nAllocations + s.nBadFrees; }), 0) << "buffers not freed";
        ts.SetSink(nullptr);
    }
    void Control(DWORD code) { EngineControl(code, 0, nullptr, nullptr); }
    void List(const wchar_t* name, std::initializer_list<const wchar_t*> entries)
    {
        int n = 0;
        for (const wchar_t* e : entries)
            RawSetStr(settings.sub(name), std::to_wstring(++n).c_str(), e);
    }
    VXThread* Thread(DWORD id)
    {
        VXThread* t = nullptr;
        VXThread::FindThread(id, t);
        return t;
    }
    Strings StringsOf(DWORD id)
    {
        for (const auto& e : events.Events())
            if (e.id == id)
                return e.strings;
        return {L"<no event>"};
    }
    DWORD Monitoring() { return RawGetDword(settings.sub(), L"SessionsMonitoring", 0); }
    VXThreadBkg* Bkg() { return VXThreadBkg::pThreadBkg; }
};

TEST_F(Engine, StartWatchesActiveSessionsAndStopEndsEverything)
{
    ts.AddSession(1, L"alice", L"CORP");
    ts.AddSession(2, L"bob", L"CORP", WTSDisconnected);
    Control(EngineStart);
    EXPECT_NE(Thread(1), nullptr);
    EXPECT_EQ(Thread(2), nullptr) << "only active sessions are scanned";
    EXPECT_EQ(events.Ids(), (std::vector<DWORD>{MSG_SERVICE_STARTED, MSG_MONITOR_STARTED}));
    EXPECT_EQ(StringsOf(MSG_MONITOR_STARTED), Strings{L"CORP\\alice"});
    EXPECT_EQ(EngineSessionsTotal(), 1u);
    EXPECT_EQ(Monitoring(), 1u);
    EXPECT_TRUE(WaitUntil([&] { return ts.Processes().size() == 1; }));
    Control(EngineStop);
    EXPECT_EQ(VXThread::GetThreadCount(), 0u);
    EXPECT_EQ(Bkg(), nullptr);
    EXPECT_EQ(events.Ids(), (std::vector<DWORD>{MSG_SERVICE_STARTED, MSG_MONITOR_STARTED, MSG_SERVICE_STOPPING,
                                               MSG_SERVICE_STOPPED}));
}

// "Exclude" wins over "ApplyTo", by name or by a domain or local group (ignoring case); with
// "ApplyTo" not empty only those it names are watched. A local account goes by its bare name.
TEST_F(Engine, AdmissionByListsAndGroups)
{
    List(L"ApplyTo", {L"Kiosk Users", L"corp\\carol", L"frank"});
    List(L"Exclude", {L"Administrators", L"CORP\\dave"});
    groups.domainGroups[L"CORP\\alice"] = {L"Domain Users", L"kiosk users"};
    groups.domainGroups[L"CORP\\bob"] = {L"Kiosk Users"};
    groups.localGroups[L"CORP\\bob"] = {L"Users", L"ADMINISTRATORS"};
    // Without the session record the names come from the older queries.
    ts.Fail(simts::kCallQuery, ERROR_NOT_SUPPORTED, simts::kForever, 3, WTSSessionInfo);
    Control(EngineStart);
    struct { const wchar_t *user, *domain; DWORD event; Strings strings; } cases[] = {
        {L"alice", L"CORP", MSG_MONITOR_STARTED, {L"CORP\\alice"}},
        {L"bob", L"CORP", MSG_SKIPPED_EXCLUDED_GROUP, {L"CORP\\bob", L"ADMINISTRATORS"}},
        {L"carol", L"CORP", MSG_MONITOR_STARTED, {L"CORP\\carol"}},
        {L"dave", L"CORP", MSG_SKIPPED_EXCLUDED_USER, {L"CORP\\dave"}},
        {L"erin", L"CORP", MSG_SKIPPED_NOT_APPLIED, {L"CORP\\erin"}},
        {L"frank", EngineComputerName(), MSG_MONITOR_STARTED, {L"frank"}},
    };
    DWORD id = 0;
    for (auto& c : cases) {
        SCOPED_TRACE(c.user);
        events.Clear();
        ts.Logon(++id, c.user, c.domain);
        EXPECT_EQ(Thread(id) != nullptr, c.event == MSG_MONITOR_STARTED);
        EXPECT_EQ(events.Ids(), std::vector<DWORD>{c.event});
        EXPECT_EQ(StringsOf(c.event), c.strings);
    }
    ASSERT_GE(groups.asked.size(), 2u);
    EXPECT_EQ(groups.asked.back(), L"local:frank") << "no domain look-up for a local account";
    EXPECT_EQ(groups.asked[groups.asked.size() - 2], L"local:CORP\\erin");
    EXPECT_EQ(Monitoring(), 3u);
}

TEST_F(Engine, LogonBeforeTheUserNameIsKnownIsAdmittedByTheRescan)
{
    Control(EngineStart);
    ts.Logon(7, L"", L"");
    EXPECT_EQ(Thread(7), nullptr);
    ASSERT_NE(Bkg(), nullptr);
    EXPECT_EQ(Bkg()->dwRescanAt, clock.Tick() + 15000);
    ts.SetUser(7, L"gina", L"CORP");
    clock.Advance(14000);
    Sleep(1500);
    EXPECT_EQ(Thread(7), nullptr) << "not before 15 seconds";
    clock.Advance(1000);
    EXPECT_TRUE(WaitUntil([&] { return Thread(7) != nullptr; }, 3000));
}

TEST_F(Engine, SessionThreadsHearTheirMonitorThroughTheNamedEvents)
{
    Control(EngineStart);
    ts.Logon(4, L"ivy", L"CORP");
    VXThread* t = Thread(4);
    ASSERT_NE(t, nullptr);
    clock.Advance(5 * 60000);
    ASSERT_TRUE(WaitUntil([&] { return SetSessionEvent(L"VantrelEventIdle-%ld", 4); }));
    EXPECT_TRUE(WaitUntil([&] { return t->GetLastActivity() == clock.Tick(); }, 3000)) << "activity restarts the count";
    EXPECT_TRUE(SetSessionEvent(L"VantrelEventCancel-%ld", 4));
    EXPECT_TRUE(WaitUntil([&] { return Thread(4) == nullptr; }, 3000)) << "the session's end stops its thread";
    EXPECT_TRUE(ts.Logoffs().empty());
}

TEST_F(Engine, DisabledMonitoringWatchesNobody)
{
    RawSetDword(settings.sub(), L"Enable", 0);
    ts.AddSession(1, L"alice", L"CORP");
    Control(EngineStart);
    ts.Logon(2, L"bob", L"CORP");
    EXPECT_EQ(events.Ids(), (std::vector<DWORD>{MSG_SERVICE_STARTED, MSG_NOT_ENABLED_MONITORING, MSG_NOT_ENABLED_LOGON}));
    EXPECT_EQ(VXThread::GetThreadCount(), 0u);
    EXPECT_FALSE(RawValueExists(settings.sub(), L"SessionsMonitoring")) << "deleted when nobody is watched";
}

TEST_F(Engine, LockUnlockAndLogoffKeepTheSessionStateAndStatus)
{
    Control(EngineStart);
    ts.Logon(1, L"alice", L"CORP");
    ts.Logon(2, L"bob", L"CORP");
    EXPECT_EQ(VXThread::dwSessionIdActiveUser, 2u);
    ts.Lock(1);
    ASSERT_NE(Thread(1), nullptr);
    EXPECT_EQ(Thread(1)->bLocked, 1);
    ts.Unlock(1);
    EXPECT_EQ(Thread(1)->bLocked, 0);
    EXPECT_EQ(VXThread::dwSessionIdActiveUser, 1u);
    StrCopy(VXThread::szLastLogOff, L"CORP\\alice"); // as the session thread leaves it
    ts.Logoff(1);
    EXPECT_EQ(RawGetStr(settings.sub(), L"LastLogoff"), L"CORP\\alice");
    EXPECT_STREQ(VXThread::szLastLogOff, L"");
    EXPECT_EQ(VXThread::dwSessionIdActiveUser, 0xFFFFFFFFu);
    EXPECT_EQ(EngineSessionsTotal(), 1u);
}

TEST_F(Engine, PowerCountdownFollowsTheSessions)
{
    RawSetDword(settings.sub(), L"Shutdown", 1);
    RawSetDword(settings.sub(), L"ShutdownTimeout", 30);
    Control(EngineStart);
    ASSERT_NE(Bkg(), nullptr);
    EXPECT_TRUE(Bkg()->IsShutdownArmed()) << "nobody is logged on at start";
    ts.Logon(1, L"alice", L"CORP");
    EXPECT_FALSE(Bkg()->IsShutdownArmed());
    EXPECT_EQ(power.calls, std::vector<std::string>{"abort"});
    ts.Logoff(1);
    EXPECT_EQ(Bkg()->dwShutdownAt, clock.Tick() + 30 * 60000) << "the last logoff arms it again";
    clock.Advance(30 * 60000);
    EXPECT_TRUE(WaitUntil([&] { return events.Count(MSG_SUSPEND_STARTED) == 1; }, 3000));
}

TEST_F(Engine, ReleasingSessionsKeepsTheServiceAndSettingsChangeResumes)
{
    ts.AddSession(1, L"alice", L"CORP");
    Control(EngineStart);
    ASSERT_NE(Thread(1), nullptr);
    Control(EngineReleaseSessions);
    EXPECT_EQ(VXThread::GetThreadCount(), 0u);
    EXPECT_EQ(Bkg(), nullptr);
    EXPECT_EQ(WaitForSingleObject(EngineQuitEvent(), 0), WAIT_OBJECT_0) << "in-session monitors are told to end";
    EXPECT_EQ(events.Count(MSG_SERVICE_STOPPED), 0u);
    Control(EngineReloadSettings);
    EXPECT_NE(Thread(1), nullptr);
    EXPECT_NE(Bkg(), nullptr);
    EXPECT_EQ(WaitForSingleObject(EngineQuitEvent(), 0), (DWORD)WAIT_TIMEOUT);
}

// A time the configuration utility would refuse is reported once per value, not at every reload;
// 0 is a valid time.
TEST_F(Engine, OutOfRangeTimesAreReportedOncePerValue)
{
    RawSetDword(settings.sub(), L"Timeout", (DWORD)-2);
    Control(EngineStart);
    ts.Logon(1, L"alice", L"CORP"); // reloads the settings
    struct { const wchar_t* name; DWORD value; size_t reports; } steps[] = {
        {L"MessageTimeout", 0, 1}, {L"Timeout", 71583, 2}, {L"ShutdownTimeout", 10000, 3}, {L"Timeout", 9999, 3},
        {L"ShutdownTimeout", 0, 3}, {L"Timeout", 71583, 4}, {L"Timeout", 10, 4}};
    for (auto& s : steps) {
        RawSetDword(settings.sub(), s.name, s.value);
        Control(EngineReloadSettings);
        EXPECT_EQ(events.Count(MSG_SETTING_OUT_OF_RANGE), s.reports) << s.value;
    }
    EXPECT_EQ(StringsOf(MSG_SETTING_OUT_OF_RANGE), (Strings{L"Timeout", L"-2"}));
}

// Nothing escapes into the service manager's thread: an exception is reported with the control
// code, and the engine goes on.
TEST_F(Engine, AnExceptionInAControlIsReportedAndTheEngineGoesOn)
{
    Control(EngineStart);
    {
        ScopedValue<void (*)(const wchar_t*, StrList&)> seam(
            Seams::pfnGetUserLocalGroups, [](const wchar_t*, StrList&) { throw std::runtime_error("look-up"); });
        ts.Logon(1, L"alice", L"CORP");
    }
    EXPECT_EQ(StringsOf(MSG_ENGINE_ERROR), Strings{L"14"});
    ts.Logon(2, L"bob", L"CORP");
    EXPECT_NE(Thread(2), nullptr);
}

// Logons, logoffs, locks from four threads at once: no deadlock, exactly one thread per live
// session at the end, and the status agrees.
TEST_F(Engine, ManySessionsChangingFromSeveralThreads)
{
    Control(EngineStart);
    const int kPlaces = 300, kDrivers = 4; // each place holds at most one session at a time
    std::vector<std::atomic<DWORD>> place(kPlaces);
    std::atomic<DWORD> nextId{100};
    std::atomic<bool> stop{false};
    std::vector<std::thread> drivers;
    for (int d = 0; d < kDrivers; ++d)
        drivers.emplace_back([&, d] {
            std::mt19937 rng(1234 + d);
            while (!stop) {
                const int p = d + kDrivers * (int)(rng() % (kPlaces / kDrivers)); // driver d owns d, d + 4, ...
                const DWORD id = place[p], op = rng() % 4, fresh = op || id ? 0 : nextId++;
                if (fresh)
                    place[p] = fresh, ts.Logon(fresh, L"u", L"CORP");
                else if (op == 1 && id)
                    place[p] = 0, ts.Logoff(id);
                else if (id)
                    op == 2 ? ts.Lock(id) : ts.Unlock(id);
            }
        });
    Sleep(4000);
    stop = true;
    for (auto& t : drivers)
        t.join();
    std::set<DWORD> live;
    for (auto& p : place)
        if (p)
            live.insert(p);
    EXPECT_GT(live.size(), 50u);
    EXPECT_TRUE(WaitUntil([&] { return VXThread::GetThreadCount() == live.size(); }, 6000));
    for (DWORD id : live)
        EXPECT_NE(Thread(id), nullptr) << "session " << id << " lost its thread";
    EXPECT_EQ(EngineSessionsTotal(), live.size());
    WriteStatus();
    EXPECT_EQ(Monitoring(), (DWORD)live.size());
}

} // namespace
