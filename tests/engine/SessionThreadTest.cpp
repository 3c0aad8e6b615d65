// One watched session's life against the simulated terminal server, with virtual time.
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>

#include "engine/EventLog.h"
#include "settings/MyOpts.h"
#include "support/EngineFakes.h"
#include "support/SimTerminalServer.h"

using namespace vxtest;
using Strings = std::vector<std::wstring>;

namespace {

const DWORD kMinute = 60000;

class SessionThread : public ::testing::Test {
protected:
    VirtualClock clock;
    EventRecorder events;
    ScopedResourceModule strings{L"VXDA64.DLL"};
    ScopedEngineState state;
    SimTerminalServer ts;
    MyOpts opts;

    void SetUp() override
    {
        ASSERT_NE(strings.module(), nullptr);
        ASSERT_EQ(ts.Install(), 1);
        opts.Reset();
        opts.bEnable = 1, opts.nTimeout = 10, opts.nMsgTimeout = 5;
    }
    void TearDown() override { VXThread::szLastLogOff[0] = 0; }
    // Session id of user "CORP\<user>" in the given state, watched from now; records cleared.
    std::unique_ptr<VXThread> Watch(DWORD id = 5, WTS_CONNECTSTATE_CLASS st = WTSActive, const wchar_t* user = L"alice")
    {
        ts.AddSession(id, user, L"CORP");
        ts.SetState(id, st);
        std::unique_ptr<VXThread> t(new VXThread(opts, id));
        t->SetUserName((std::wstring(L"CORP\\") + user).c_str());
        EXPECT_EQ(t->Begin(clock.Tick()), 1);
        return t;
    }
    // Wakes once a second for ms milliseconds; false when the thread ended.
    bool Run(VXThread& t, DWORD ms)
    {
        for (DWORD passed = 0; passed < ms; passed += 1000)
            if (clock.Advance(1000), !t.Wake(VXThread::WakeTimeout, clock.Tick()))
                return false;
        return true;
    }
    size_t Started(const wchar_t* sw)
    {
        size_t n = 0;
        for (const auto& p : ts.Processes())
            n += wcsstr(p.szCmdLine, sw) != nullptr;
        return n;
    }
    size_t Warnings() { return Started(L" /msg:5") + ts.Messages().size(); }
};

// Every idle time the tick can measure (up to 71582 minutes) is kept exactly; one it cannot turns
// the idle logoff off instead of wrapping round into a logoff within minutes.
TEST_F(SessionThread, IdleTimesAreKeptExactlyOrTurnTheLogoffOff)
{
    const ULONGLONG kNever = ~0ull, kDays60 = 60ull * 1440 * kMinute;
    struct { int timeout, warn; ULONGLONG warnAt, logoffAt; } cases[] = {
        {10, 5, 10 * kMinute, 15 * kMinute},
        {0, 5, 1000, 1000 + 5 * kMinute},
        {10, 0, kNever, 10 * kMinute}, // no warning period: logged off without one
        {71582, 1, 71582ull * kMinute, 71583ull * kMinute}, // the sum exceeds the tick
        {71583, 5, kNever, kNever}, {-2, 5, kNever, kNever}, {10, -2, kNever, kNever}, {INT_MIN, INT_MAX, kNever, kNever},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "Timeout " << c.timeout << ", MessageTimeout " << c.warn);
        ts.ClearRecords();
        events.Clear();
        opts.nTimeout = c.timeout, opts.nMsgTimeout = c.warn;
        auto t = Watch();
        EXPECT_EQ(Started(L" /monitor:5"), 1u);
        ULONGLONG warnAt = kNever, logoffAt = kNever;
        for (ULONGLONG passed = 0; passed < kDays60 && logoffAt == kNever;) {
            const DWORD step = passed < 20 * kMinute ? 1000 : kMinute;
            passed += step;
            clock.Advance(step);
            const int alive = t->Wake(VXThread::WakeTimeout, clock.Tick());
            if (warnAt == kNever && Warnings())
                warnAt = passed;
            if (!alive)
                logoffAt = passed;
        }
        EXPECT_EQ(c.warnAt, warnAt);
        EXPECT_EQ(c.logoffAt, logoffAt);
        EXPECT_EQ(ts.Messages().size(), 0u) << "an unlocked session is warned by its own countdown window";
        ASSERT_EQ(ts.Logoffs().size(), c.logoffAt == kNever ? 0u : 1u);
        if (c.logoffAt != kNever) {
            EXPECT_EQ(ts.Logoffs()[0].dwSession, 5u);
            ASSERT_EQ(events.Ids(), std::vector<DWORD>{MSG_LOGGED_OFF});
            EXPECT_EQ(events.Events()[0].strings, Strings{L"CORP\\alice"});
            EXPECT_STREQ(VXThread::szLastLogOff, L"CORP\\alice");
        }
    }
}

TEST_F(SessionThread, ActivityStartsTheFullCountAgain)
{
    auto t = Watch();
    EXPECT_TRUE(Run(*t, 12 * kMinute));
    ASSERT_TRUE(t->IsWarned());
    EXPECT_EQ(t->Wake(VXThread::WakeIdle, clock.Tick()), 1);
    EXPECT_FALSE(t->IsWarned());
    EXPECT_TRUE(Run(*t, 10 * kMinute - 1000));
    EXPECT_EQ(Warnings(), 1u);
    EXPECT_TRUE(Run(*t, 1000));
    EXPECT_EQ(Warnings(), 2u);
    EXPECT_TRUE(ts.Logoffs().empty());
}

// Nobody can see a warning in a session that is read as not active: logged off at once. Only a
// state that cannot be read is warned like an active session.
TEST_F(SessionThread, SessionNotActiveIsLoggedOffWithoutWarning)
{
    for (WTS_CONNECTSTATE_CLASS st : {WTSDisconnected, WTSInit, WTSConnected}) {
        SCOPED_TRACE(st);
        ts.ClearRecords();
        auto t = Watch(5, st);
        EXPECT_FALSE(Run(*t, 10 * kMinute));
        EXPECT_EQ(Warnings(), 0u);
        EXPECT_EQ(ts.Logoffs().size(), 1u);
    }
    ts.ClearRecords();
    ts.Fail(simts::kCallQuery, ERROR_ACCESS_DENIED, simts::kForever, 5, WTSConnectState);
    auto t = Watch();
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    EXPECT_EQ(Warnings(), 1u);
}

TEST_F(SessionThread, WarningBoxWhenTheWindowCannotShow)
{
    StrCopy(opts.szMsgText, L"Bye in %d");
    auto t = Watch();
    ts.Fail(simts::kCallStartProcess, ERROR_ACCESS_DENIED, 1);
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    ASSERT_EQ(ts.Messages().size(), 1u);
    EXPECT_STREQ(ts.Messages()[0].szText, L"Bye in 5");
    // A locked screen cannot show the window: the box, with the built-in locked text.
    t->bLocked = 1;
    t->Wake(VXThread::WakeIdle, clock.Tick());
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    ASSERT_EQ(ts.Messages().size(), 2u);
    const auto m = ts.Messages()[1];
    EXPECT_EQ(std::wstring(m.szText).substr(0, 50), L"Unlock the screen to keep your session active. Oth");
    EXPECT_NE(wcsstr(m.szText, L" less than 5 minute(s) "), nullptr);
    EXPECT_STREQ(m.szTitle, L"Vantrel");
    EXPECT_EQ(m.cbTitle, 14u) << "lengths in bytes, without the terminator";
    EXPECT_EQ(m.cbText, wcslen(m.szText) * 2);
    EXPECT_EQ(m.dwStyle, 0x250030u);
    EXPECT_EQ(m.dwTimeout, 300u);
    EXPECT_EQ(m.bWait, 0);
    // Only "%d" in the administrator's text is a format.
    StrCopy(opts.szMsgTextLocked, L"Locked: %d min, 100%% %s");
    t->Wake(VXThread::WakeIdle, clock.Tick());
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    ASSERT_EQ(ts.Messages().size(), 3u);
    EXPECT_STREQ(ts.Messages().back().szText, L"Locked: 5 min, 100% %s");
    EXPECT_TRUE(events.Events().empty()) << "the fallback is not reported";
}

// An inactive schedule defers the warning (looking ahead to the logoff moment) and is reported
// once per inactive stretch; a schedule that does not parse never blocks the logoff.
TEST_F(SessionThread, ScheduleDefersTheLogoff)
{
    struct { const wchar_t* text; WORD hour, minute; bool deferred; } cases[] = {
        {L"Mon 8:00-9:00", 9, 30, true}, {L"Mon 8:00-9:00", 8, 45, true}, {L"Mon 8:00-10:00", 8, 45, false},
        {L"Someday 8:00-9:00", 9, 30, false}};
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.text << " at " << c.hour << ":" << c.minute);
        ts.ClearRecords();
        events.Clear();
        opts.bUseSchedule = 1;
        opts.SetSchedule(c.text);
        clock.SetLocalTime(VirtualClock::Monday(c.hour, c.minute));
        auto t = Watch();
        EXPECT_TRUE(Run(*t, 10 * kMinute));
        EXPECT_EQ(Warnings(), c.deferred ? 0u : 1u);
        EXPECT_EQ(Run(*t, 60 * kMinute), c.deferred);
        EXPECT_EQ(ts.Logoffs().size(), c.deferred ? 0u : 1u);
        EXPECT_EQ(events.Count(MSG_SCHEDULE_INACTIVE), c.deferred ? 1u : 0u) << "once per inactive stretch";
    }
}

// The last active user (when kept) and a disabled service: reported each period, also after a
// sleep beyond both periods, never warned or logged off.
TEST_F(SessionThread, KeptLastActiveUserAndDisabledOnlyReport)
{
    for (DWORD id : {MSG_KEPT_LAST_ACTIVE_USER, MSG_NOT_ENABLED_TIMEOUT}) {
        SCOPED_TRACE(id);
        events.Clear();
        opts.bEnable = opts.bKeepLastActiveUser = id == MSG_KEPT_LAST_ACTIVE_USER;
        VXThread::dwSessionIdActiveUser = 5;
        auto t = Watch();
        EXPECT_TRUE(Run(*t, 20 * kMinute));
        EXPECT_EQ(events.Count(id), 2u);
        clock.Advance(60 * kMinute);
        EXPECT_TRUE(t->Wake(VXThread::WakeTimeout, clock.Tick()));
        EXPECT_EQ(events.Ids(), std::vector<DWORD>(3, id));
        EXPECT_TRUE(ts.Logoffs().empty());
        EXPECT_EQ(Warnings(), 0u);
    }
}

TEST_F(SessionThread, FailuresAreReportedWithTheirCode)
{
    ts.Fail(simts::kCallStartProcess, ERROR_ACCESS_DENIED, 1);
    VXThread t(opts, 5);
    t.SetUserName(L"CORP\\alice");
    EXPECT_EQ(t.Begin(clock.Tick()), 0) << "no monitor, no watching";
    ts.Fail(simts::kCallLogoff, ERROR_ACCESS_DENIED, 1);
    auto u = Watch(6, WTSDisconnected, L"bob");
    EXPECT_FALSE(Run(*u, 10 * kMinute)) << "the thread ends even when the logoff failed";
    ASSERT_EQ(events.Ids(), (std::vector<DWORD>{MSG_MONITOR_START_FAILED, MSG_LOGOFF_FAILED}));
    EXPECT_EQ(events.Events()[0].strings, (Strings{L"CORP\\alice", L"5"}));
    EXPECT_EQ(events.Events()[0].type, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(events.Events()[1].strings, (Strings{L"CORP\\bob", L"5"}));
}

TEST_F(SessionThread, CancelAndQuitEndTheThreadWithoutLogoff)
{
    EXPECT_EQ(Watch()->Wake(VXThread::WakeCancel, clock.Tick()), 0);
    auto t = Watch();
    EXPECT_EQ(t->Wake(VXThread::WakeTimeout, clock.Tick() + 1000), 1);
    VXThread::bQuitAll = 1;
    EXPECT_EQ(t->Wake(VXThread::WakeTimeout, clock.Tick() + 2000), 0);
    EXPECT_TRUE(ts.Logoffs().empty());
}

// Beyond the count the least recently active sessions are stale and logged off (even with the
// idle logoff off); the last active user's session counts as the most recent.
TEST_F(SessionThread, StaleSessionsBeyondTheCountAreLoggedOffOldestFirst)
{
    opts.nTimeout = -2;
    std::vector<std::unique_ptr<VXThread>> threads;
    for (DWORD id = 1; id <= 4; ++id) {
        clock.Advance(1000);
        threads.push_back(Watch(id, WTSActive, (L"u" + std::to_wstring(id)).c_str()));
        VXThread::AddToList(threads.back().get());
    }
    auto stale = [&](int logoffStale, int count) {
        for (auto& t : threads)
            t->bStale = 0;
        VXThread::TrimStaleSessions(logoffStale, count);
        std::string s;
        for (auto& t : threads)
            s += t->bStale ? 'S' : '-';
        return s;
    };
    VXThread::dwSessionIdActiveUser = 3;
    EXPECT_EQ(stale(1, 4), "----");
    EXPECT_EQ(stale(0, 2), "----") << "LogoffStale off";
    EXPECT_EQ(stale(1, -1), "SSSS");
    EXPECT_EQ(stale(1, 2), "SS--");
    VXThread::dwSessionIdActiveUser = 2;
    threads[0]->Wake(VXThread::WakeIdle, clock.Tick() + 5000);
    EXPECT_EQ(stale(1, 3), "S---") << "the active user's goes ahead of the sessions listed before it";
    stale(1, 2);
    for (auto& t : threads)
        t->Wake(VXThread::WakeTimeout, clock.Tick() + 6000);
    ASSERT_EQ(events.Ids(), (std::vector<DWORD>{MSG_STALE_LOGGED_OFF, MSG_STALE_LOGGED_OFF}));
    EXPECT_EQ(events.Events()[0].strings, Strings{L"CORP\\u1"});
    ASSERT_EQ(ts.Logoffs().size(), 2u);
    EXPECT_EQ(ts.Logoffs()[1].dwSession, 2u);
    threads.clear(); // each leaves the list as it goes
    EXPECT_EQ(VXThread::GetThreadCount(), 0u);
}

TEST_F(SessionThread, CommandLinesAndEvents)
{
    wchar_t line[261], exe[MAX_PATH], name[128];
    ASSERT_EQ(VXThread::BuildCommandLine(line, 261, L"/monitor", 3), 1);
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    const bool quoted = wcschr(exe, L' ') != nullptr;
    EXPECT_EQ(std::wstring(line), (quoted ? L"\"" + std::wstring(exe) + L"\"" : exe) + L" /monitor:3");
    EXPECT_EQ(VXThread::BuildCommandLine(line, 10, L"/monitor", 3), 0) << "does not fit";
    VXThread::FormatEventName(name, 128, L"VantrelEventIdle-%ld", 12);
    EXPECT_STREQ(name, L"Global\\VantrelEventIdle-12");
    // An event someone else made first is never adopted.
    HANDLE first = CreateEventW(nullptr, FALSE, FALSE, L"Global\\VantrelTestEvent");
    ASSERT_NE(first, nullptr);
    SetLastError(0xdeadbeef);
    EXPECT_EQ(VXThread::CreateSessionEvent(L"Global\\VantrelTestEvent", FALSE, 2), nullptr);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_ALREADY_EXISTS);
    CloseHandle(first);
}

} // namespace
