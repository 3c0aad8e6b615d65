// The life of one watched session, played with a virtual clock against the simulated terminal
// server: warning, logoff, activity, disconnected and locked sessions, the schedule, the last
// active user, stale sessions and the failures the administrator reads about in the event log.
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>

#include "base/Resources.h"
#include "base/StrUtil.h"
#include "engine/EventLog.h"
#include "engine/VXThread.h"
#include "settings/MyOpts.h"
#include "support/EngineFakes.h"
#include "support/Guards.h"
#include "support/SimTerminalServer.h"

using namespace vxtest;

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
        ts.AddSession(5, L"alice", L"CORP");
        opts.Reset();
        opts.bEnable = 1;
        opts.nTimeout = 10;
        opts.nMsgTimeout = 5;
    }
    std::unique_ptr<VXThread> Watch(DWORD id = 5, const wchar_t* user = L"CORP\\alice")
    {
        std::unique_ptr<VXThread> t(new VXThread(opts, id));
        t->SetUserName(user);
        EXPECT_EQ(t->Begin(clock.Tick()), 1);
        return t;
    }
    // Lets the thread wake once a second for ms milliseconds; false when it ended.
    bool Run(VXThread& t, DWORD ms)
    {
        for (DWORD passed = 0; passed < ms; passed += 1000) {
            clock.Advance(1000);
            if (!t.Wake(VXThread::WakeTimeout, clock.Tick()))
                return false;
        }
        return true;
    }
    size_t Processes(const wchar_t* sw)
    {
        size_t n = 0;
        for (const auto& p : ts.Processes())
            n += wcsstr(p.szCmdLine, sw) != nullptr;
        return n;
    }
};

TEST_F(SessionThread, IdleSessionIsWarnedThenLoggedOff)
{
    auto t = Watch();
    ASSERT_EQ(Processes(L" /monitor:5"), 1u) << "the monitor starts in the session";

    EXPECT_TRUE(Run(*t, 10 * kMinute - 1000));
    EXPECT_EQ(Processes(L" /msg:5"), 0u) << "no warning before Timeout";
    EXPECT_TRUE(Run(*t, 1000));
    EXPECT_EQ(Processes(L" /msg:5"), 1u) << "the warning shows at Timeout";
    EXPECT_TRUE(t->IsWarned());
    EXPECT_TRUE(ts.Messages().empty()) << "the in-session warning shows its own countdown";

    EXPECT_TRUE(Run(*t, 5 * kMinute - 1000));
    EXPECT_TRUE(ts.Logoffs().empty());
    EXPECT_FALSE(Run(*t, 1000)) << "the thread ends with the logoff";
    ASSERT_EQ(ts.Logoffs().size(), 1u);
    EXPECT_EQ(ts.Logoffs()[0].dwSession, 5u);
    EXPECT_EQ(ts.Logoffs()[0].bWait, 0);
    ASSERT_EQ(events.Count(MSG_LOGGED_OFF), 1u);
    EXPECT_EQ(events.Events().back().strings, std::vector<std::wstring>{L"CORP\\alice"});
    EXPECT_STREQ(VXThread::szLastLogOff, L"CORP\\alice");
    VXThread::szLastLogOff[0] = 0;
}

TEST_F(SessionThread, ActivityDuringTheWarningStartsTheCountAgain)
{
    auto t = Watch();
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    ASSERT_TRUE(t->IsWarned());
    EXPECT_TRUE(Run(*t, 2 * kMinute));
    EXPECT_EQ(t->Wake(VXThread::WakeIdle, clock.Tick()), 1);
    EXPECT_FALSE(t->IsWarned());
    // The full Timeout must pass again: no logoff at the end of the old warning period and no
    // new warning before ten more minutes.
    EXPECT_TRUE(Run(*t, 10 * kMinute - 1000));
    EXPECT_EQ(Processes(L" /msg:5"), 1u);
    EXPECT_TRUE(ts.Logoffs().empty());
    EXPECT_TRUE(Run(*t, 1000));
    EXPECT_EQ(Processes(L" /msg:5"), 2u);
}

TEST_F(SessionThread, SessionNotActiveIsLoggedOffWithoutWarningOnlyAnUnreadableStateIsWarned)
{
    // Any state that was read and is not active means nobody could see a warning; WTSInit is
    // such a state, not the wrapper's "no answer".
    for (WTS_CONNECTSTATE_CLASS state : {WTSDisconnected, WTSInit, WTSConnected}) {
        SCOPED_TRACE(testing::Message() << "state " << state);
        ts.AddSession(5, L"alice", L"CORP"); // again after the last case's logoff
        ts.SetState(5, state);
        ts.ClearRecords();
        events.Clear();
        auto t = Watch();
        EXPECT_FALSE(Run(*t, 10 * kMinute));
        EXPECT_EQ(Processes(L" /msg:5"), 0u);
        EXPECT_TRUE(ts.Messages().empty());
        EXPECT_EQ(ts.Logoffs().size(), 1u);
        EXPECT_EQ(events.Count(MSG_LOGGED_OFF), 1u);
    }
    ts.AddSession(5, L"alice", L"CORP");
    ts.ClearRecords();
    ts.Fail(simts::kCallQuery, ERROR_ACCESS_DENIED, simts::kForever, 5, WTSConnectState);
    auto t = Watch();
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    EXPECT_EQ(Processes(L" /msg:5"), 1u) << "a state that cannot be read is warned like an active one";
    EXPECT_TRUE(ts.Logoffs().empty());
}

TEST_F(SessionThread, ResumeAfterBothPeriodsLogsOffAtOnce)
{
    auto t = Watch();
    EXPECT_TRUE(Run(*t, 3 * kMinute));
    clock.Advance(16 * kMinute); // the computer slept
    EXPECT_FALSE(t->Wake(VXThread::WakeTimeout, clock.Tick()));
    EXPECT_EQ(Processes(L" /msg:5"), 0u) << "nobody could have seen a warning";
    EXPECT_EQ(ts.Logoffs().size(), 1u);
    EXPECT_EQ(events.Count(MSG_LOGGED_OFF), 1u);
}

// Idle times the configuration utility would refuse: every period the tick can measure (up to
// 71582 minutes) is kept exactly, and one it cannot (negative, or longer) turns the idle logoff off
// instead of wrapping round into a logoff within minutes; 0 keeps its meaning. The session plays
// 60 days: second by second for the first 20 minutes, then minute by minute.
TEST_F(SessionThread, IdleTimesAreKeptExactlyOrTurnTheLogoffOff)
{
    const ULONGLONG kNever = ~0ull, kDays60 = 60ull * 1440 * kMinute;
    struct { int timeout, warn; ULONGLONG warnAt, logoffAt; } cases[] = {
        {10, 5, 10 * kMinute, 15 * kMinute},
        {0, 5, 1000, 1000 + 5 * kMinute},     // 0: warned at the first wake
        {10, 0, kNever, 10 * kMinute},        // no warning period: logged off without one
        {20000, 5, 20000ull * kMinute, 20005ull * kMinute},
        {71582, 1, 71582ull * kMinute, 71583ull * kMinute}, // both together exceed the tick
        {71583, 5, kNever, kNever},
        {-2, 5, kNever, kNever},
        {10, -2, kNever, kNever},
        {10, 71583, kNever, kNever},
        {INT_MIN, INT_MAX, kNever, kNever},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "Timeout " << c.timeout << ", MessageTimeout " << c.warn);
        ts.AddSession(5, L"alice", L"CORP"); // again after the last case's logoff
        ts.ClearRecords();
        opts.nTimeout = c.timeout;
        opts.nMsgTimeout = c.warn;
        auto t = Watch();
        ULONGLONG warnAt = kNever, logoffAt = kNever;
        for (ULONGLONG passed = 0; passed < kDays60 && logoffAt == kNever;) {
            const DWORD step = passed < 20 * kMinute ? 1000 : kMinute;
            passed += step;
            clock.Advance(step);
            const int alive = t->Wake(VXThread::WakeTimeout, clock.Tick());
            if (warnAt == kNever && Processes(L" /msg:5"))
                warnAt = passed;
            if (!alive)
                logoffAt = passed;
        }
        EXPECT_EQ(c.warnAt, warnAt);
        EXPECT_EQ(c.logoffAt, logoffAt);
        EXPECT_EQ(ts.Logoffs().size(), c.logoffAt == kNever ? 0u : 1u);
    }
    VXThread::szLastLogOff[0] = 0;
}

TEST_F(SessionThread, StaleMarkLogsOffEvenWhenTheIdleLogoffIsOff)
{
    opts.nTimeout = -2;
    auto t = Watch();
    EXPECT_TRUE(Run(*t, 5 * kMinute));
    t->bStale = 1;
    EXPECT_FALSE(Run(*t, 1000));
    EXPECT_EQ(events.Count(MSG_STALE_LOGGED_OFF), 1u);
    VXThread::szLastLogOff[0] = 0;
}

TEST_F(SessionThread, LockedSessionIsWarnedByMessageBox)
{
    auto t = Watch();
    t->bLocked = 1;
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    EXPECT_EQ(Processes(L" /msg:5"), 0u) << "a locked screen cannot show the in-session warning";
    ASSERT_EQ(ts.Messages().size(), 1u);
    const auto m = ts.Messages()[0];
    EXPECT_EQ(m.dwSession, 5u);
    EXPECT_STREQ(m.szTitle, L"Vantrel");
    EXPECT_EQ(m.cbTitle, 14u) << "lengths in bytes, without the terminator";
    EXPECT_EQ(std::wstring(m.szText), L"Unlock the screen to keep your session active. Otherwise, you will be logged off in less "
                                      L"than 5 minute(s) and any unsaved work will be discarded!\r\n\r\nNote: Pressing OK is NOT "
                                      L"ENOUGH, you must UNLOCK the screen to keep your session active.\r\nLog on now to stop "
                                      L"the automatic log off.");
    EXPECT_EQ(m.cbText, wcslen(m.szText) * 2);
    EXPECT_EQ(m.dwStyle, 0x250030u);
    EXPECT_EQ(m.dwTimeout, 300u);
    EXPECT_EQ(m.bWait, 0);

    // A custom text: only "%d" becomes the minutes; nothing else is a format.
    StrCopy(opts.szMsgTextLocked, L"Locked: %d min, 100%% %s");
    t->Wake(VXThread::WakeIdle, clock.Tick());
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    ASSERT_EQ(ts.Messages().size(), 2u);
    EXPECT_STREQ(ts.Messages()[1].szText, L"Locked: 5 min, 100% %s");
}

TEST_F(SessionThread, WarningFallsBackToMessageBoxWhenItsProcessFails)
{
    auto t = Watch();
    StrCopy(opts.szMsgText, L"Bye in %d");
    ts.Fail(simts::kCallStartProcess, ERROR_ACCESS_DENIED, 1);
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    ASSERT_EQ(ts.Messages().size(), 1u);
    EXPECT_STREQ(ts.Messages()[0].szText, L"Bye in 5");
    EXPECT_TRUE(events.Events().empty()) << "the fallback is not reported";
}

TEST_F(SessionThread, InactiveScheduleDefersTheLogoffAndIsReportedOncePerStretch)
{
    opts.bUseSchedule = 1;
    opts.SetSchedule(L"Mon 8:00-9:00");
    clock.SetLocalTime(VirtualClock::Monday(9, 30));
    auto t = Watch();
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    EXPECT_EQ(events.Count(MSG_SCHEDULE_INACTIVE), 1u);
    EXPECT_EQ(Processes(L" /msg:5"), 0u) << "no warning while the schedule is off";
    EXPECT_TRUE(Run(*t, 60 * kMinute));
    EXPECT_EQ(events.Count(MSG_SCHEDULE_INACTIVE), 1u) << "one report per inactive stretch";
    EXPECT_TRUE(ts.Logoffs().empty());
    EXPECT_EQ(events.Events()[0].strings, std::vector<std::wstring>{L"CORP\\alice"});
    EXPECT_EQ(events.Events()[0].type, EVENTLOG_WARNING_TYPE);
}

TEST_F(SessionThread, ScheduleLookingAheadToTheLogoffMoment)
{
    // At 8:55 the warning would end at 9:00, when the schedule is off: no warning.
    opts.bUseSchedule = 1;
    opts.SetSchedule(L"Mon 8:00-9:00");
    clock.SetLocalTime(VirtualClock::Monday(8, 45));
    auto t = Watch();
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    EXPECT_EQ(events.Count(MSG_SCHEDULE_INACTIVE), 1u);
    EXPECT_EQ(Processes(L" /msg:5"), 0u);
}

TEST_F(SessionThread, BrokenScheduleDoesNotBlockTheLogoff)
{
    opts.bUseSchedule = 1;
    opts.SetSchedule(L"Someday 8:00-9:00");
    auto t = Watch();
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    EXPECT_EQ(Processes(L" /msg:5"), 1u);
    EXPECT_FALSE(Run(*t, 5 * kMinute));
    EXPECT_EQ(events.Count(MSG_SCHEDULE_INACTIVE), 0u);
    EXPECT_EQ(ts.Logoffs().size(), 1u);
}

TEST_F(SessionThread, LastActiveUserIsNeverLoggedOff)
{
    opts.bKeepLastActiveUser = 1;
    VXThread::dwSessionIdActiveUser = 5;
    auto t = Watch();
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    EXPECT_EQ(events.Count(MSG_KEPT_LAST_ACTIVE_USER), 1u);
    EXPECT_TRUE(Run(*t, 10 * kMinute));
    EXPECT_EQ(events.Count(MSG_KEPT_LAST_ACTIVE_USER), 2u) << "reported each period";
    clock.Advance(60 * kMinute); // even after a sleep beyond both periods
    EXPECT_TRUE(t->Wake(VXThread::WakeTimeout, clock.Tick()));
    EXPECT_EQ(events.Count(MSG_KEPT_LAST_ACTIVE_USER), 3u);
    EXPECT_TRUE(ts.Logoffs().empty());
    EXPECT_EQ(Processes(L" /msg:5"), 0u);
}

TEST_F(SessionThread, DisabledMonitoringOnlyReports)
{
    auto t = Watch();
    opts.bEnable = 0;
    EXPECT_TRUE(Run(*t, 20 * kMinute));
    EXPECT_EQ(events.Count(MSG_NOT_ENABLED_TIMEOUT), 2u);
    EXPECT_TRUE(ts.Logoffs().empty());
}

TEST_F(SessionThread, FailuresAreReportedWithTheirCode)
{
    ts.Fail(simts::kCallStartProcess, ERROR_ACCESS_DENIED, 1);
    std::unique_ptr<VXThread> t(new VXThread(opts, 5));
    t->SetUserName(L"CORP\\alice");
    EXPECT_EQ(t->Begin(clock.Tick()), 0) << "no monitor, no watching";
    ASSERT_EQ(events.Count(MSG_MONITOR_START_FAILED), 1u);
    EXPECT_EQ(events.Events()[0].strings, (std::vector<std::wstring>{L"CORP\\alice", L"5"}));
    EXPECT_EQ(events.Events()[0].type, EVENTLOG_ERROR_TYPE);

    events.Clear();
    ts.AddSession(6, L"bob", L"CORP", WTSDisconnected);
    ts.Fail(simts::kCallLogoff, ERROR_ACCESS_DENIED, 1);
    auto u = Watch(6, L"CORP\\bob");
    EXPECT_FALSE(Run(*u, 10 * kMinute)) << "the thread ends even when the logoff failed";
    ASSERT_EQ(events.Count(MSG_LOGOFF_FAILED), 1u);
    EXPECT_EQ(events.Events().back().strings, (std::vector<std::wstring>{L"CORP\\bob", L"5"}));
}

TEST_F(SessionThread, CancelEventAndQuitEndTheThread)
{
    auto t = Watch();
    EXPECT_EQ(t->Wake(VXThread::WakeCancel, clock.Tick()), 0);
    EXPECT_TRUE(ts.Logoffs().empty());
    auto u = Watch();
    VXThread::bQuitAll = 1;
    EXPECT_EQ(u->Wake(VXThread::WakeTimeout, clock.Tick() + 1000), 0);
}

TEST_F(SessionThread, StaleSessionsBeyondTheCountAreLoggedOffOldestFirst)
{
    // Four sessions, most recently active last; session 3 is the last active user (it unlocked
    // its screen), session 4 logged on after it.
    std::vector<std::unique_ptr<VXThread>> threads;
    for (DWORD id = 1; id <= 4; ++id) {
        ts.AddSession(id, (L"user" + std::to_wstring(id)).c_str(), L"CORP");
        clock.Advance(1000);
        threads.push_back(Watch(id, (L"CORP\\user" + std::to_wstring(id)).c_str()));
        VXThread::AddToList(threads.back().get());
    }
    VXThread::dwSessionIdActiveUser = 3;
    VXThread::TrimStaleSessions(1, 10);
    for (auto& t : threads)
        EXPECT_EQ(t->bStale, 0) << "within the count nothing is stale";
    VXThread::TrimStaleSessions(0, 2);
    for (auto& t : threads)
        EXPECT_EQ(t->bStale, 0) << "LogoffStale off";

    VXThread::TrimStaleSessions(1, 2);
    EXPECT_EQ(threads[0]->bStale, 1);
    EXPECT_EQ(threads[1]->bStale, 1);
    EXPECT_EQ(threads[2]->bStale, 0) << "the last active user stays";
    EXPECT_EQ(threads[3]->bStale, 0);

    for (auto& t : threads)
        t->Wake(VXThread::WakeTimeout, clock.Tick() + 1000);
    EXPECT_EQ(events.Count(MSG_STALE_LOGGED_OFF), 2u);
    ASSERT_EQ(ts.Logoffs().size(), 2u);
    EXPECT_EQ(ts.Logoffs()[0].dwSession, 1u);
    EXPECT_EQ(ts.Logoffs()[1].dwSession, 2u);
    EXPECT_EQ(events.Events().back().type, EVENTLOG_INFORMATION_TYPE);

    // The order is not a plain sort: the last active user's session goes ahead of the sessions
    // listed before it, even one active more recently, which then falls behind it.
    for (auto& t : threads)
        t->bStale = 0;
    VXThread::dwSessionIdActiveUser = 2;
    threads[0]->Wake(VXThread::WakeIdle, clock.Tick() + 5000);
    VXThread::TrimStaleSessions(1, 3);
    EXPECT_EQ(threads[0]->bStale, 1);
    EXPECT_EQ(threads[1]->bStale + threads[2]->bStale + threads[3]->bStale, 0);
    threads.clear(); // each leaves the list as it goes
    EXPECT_EQ(VXThread::GetThreadCount(), 0u);
}

TEST_F(SessionThread, StaleCountZeroMarksEverySession)
{
    auto a = Watch(5);
    VXThread::AddToList(a.get());
    VXThread::dwSessionIdActiveUser = 5;
    VXThread::TrimStaleSessions(1, 0);
    EXPECT_EQ(a->bStale, 1);
}

TEST_F(SessionThread, CommandLinesAndEventNames)
{
    wchar_t line[261];
    ASSERT_EQ(VXThread::BuildCommandLine(line, 261, L"/monitor", 3), 1);
    std::wstring s(line);
    EXPECT_EQ(s.substr(s.size() - 11), L" /monitor:3");
    wchar_t exe[MAX_PATH];
    GetModuleFileNameW(nullptr, exe, MAX_PATH);
    EXPECT_EQ(s.find(exe) != std::wstring::npos, true);
    EXPECT_EQ(s[0] == L'"', wcschr(exe, L' ') != nullptr) << "quoted only when the path holds a blank";

    wchar_t name[128];
    VXThread::FormatEventName(name, 128, L"VantrelEventIdle-%ld", 12);
    EXPECT_STREQ(name, L"Global\\VantrelEventIdle-12");

    // An event someone else made first is never adopted.
    HANDLE first = CreateEventW(nullptr, FALSE, FALSE, L"Global\\VantrelTestEvent");
    ASSERT_NE(first, nullptr);
    SetLastError(0xdeadbeef);
    EXPECT_EQ(VXThread::CreateSessionEvent(L"Global\\VantrelTestEvent", FALSE, 2), nullptr);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_ALREADY_EXISTS);
    CloseHandle(first);
    HANDLE mine = VXThread::CreateSessionEvent(L"Global\\VantrelTestEvent2", FALSE, 2);
    EXPECT_NE(mine, nullptr);
    CloseHandle(mine);
}

} // namespace
