// The in-session monitor: its decisions without a window, then its window and MonitorMain under the
// headless driver, with real input through the hook library from monitor_send_input.exe.
#include <gtest/gtest.h>

#include <climits>
#include <process.h>
#include <string>
#include <utility>
#include <vector>

#include "base/Handle.h"
#include "monitor/CpuUsage.h"
#include "monitor/Monitor.h"
#include "monitor/MonitorWnd.h"
#include "resources/resource.h"
#include "support/EngineFakes.h"
#include "support/Guards.h"
#include "support/TestSupport.h"
#include "ui/MsgBox.h"

namespace {

const int N = ActivityNone, M = ActivityMouse, K = ActivityKeyboard;
const ActivityFilter kAll = {1, 1, 1};
enum Op { In, Tick, CpuReport, Unlock, End };

TEST(ActivityGate, FiltersRateLimitPendingAndEnd)
{
    struct Step { Op op; DWORD at = 0; int type = N, reported = N; ActivityFilter filter = kAll; } steps[] = {
        {Tick, 5000}, {In, 50000, K, K}, {In, 50999, K}, {In, 51000, M}, {Tick, 51500, N, K}, // pending stands for more
        {In, 52499, M}, {Tick, 52500, N, M}, {Tick, 53000}, {In, 53500, M, M}, // a tick with a report restarts the limit
        {In, 55000, K, N, {1, 0, 1}}, {In, 55000, M, N, {1, 1, 0}}, {In, 55000, M, N, {0, 1, 1}}, {In, 55000, K, N, {0, 1, 1}},
        {In, 55000, ActivityCpu}, {In, 55000, 0}, {In, 56000, M, M, {1, 0, 1}}, {In, 56500, K, N, {1, 0, 1}}, // not kept:
        {Tick, 56600}, {In, 57000, K, K, {1, 1, 0}},
        {CpuReport, 60000}, {In, 60999, M}, {Tick, 61000, N, M},
        {CpuReport, 0xFFFFFF00u}, {In, 743, M}, {Tick, 744, N, M}, {CpuReport, 0xFFFFFF00u}, {In, 744, M, M}, // wrap
        {In, 70000, M, M}, {In, 70100, M}, {Unlock}, {Tick, 70500, N, ActivitySession}, // replaces the pending input
        {End}, {In, 80000, K}, {Unlock}, {Tick, 91000}, // nothing once the session ends
    };
    ActivityGate gate;
    for (const Step& s : steps) {
        const int r = s.op == In ? gate.OnInput(s.type, s.at, s.filter) : s.op == Tick ? gate.OnTick(s.at) : N;
        s.op == CpuReport ? gate.Reported(s.at)
                          : s.op == Unlock ? gate.SetPending(ActivitySession) : s.op == End ? gate.End() : void();
        EXPECT_EQ(s.reported, r) << "step " << &s - steps;
    }
}

struct Reading { int ok; ULONGLONG idle, kernel, user; } g_reading; // ok -1: no GetSystemTimes at all

TEST(CpuUsage, ReadingsInSequenceAndHugeTimes)
{
    struct Step { bool fresh; Reading reading; unsigned load; } steps[] = {
        {true, {1, 600, 800, 200}, 40}, // the first reading: the average since boot
        {false, {1, 650, 880, 220}, 50}, {false, {0, 0, 0, 0}, 0}, {false, {-1, 0, 0, 0}, 0},
        {false, {1, 0, 0, 0}, 0}, {false, {1, 650, 880, 220}, 0}, // no time passed
        {false, {1, 651, 881, 222}, 66}, // from the last good reading, rounded down
        {false, {1, 700, 900, 222}, 0},  // idle above the total: 0, not a wrapped number
        {false, {1, 700, 950, 272}, 100}, {false, {1, 100, 100, 100}, 0}, {false, {1, 750, 1000, 322}, 50},
        {true, {1, 1ull << 63, 1ull << 63, 1ull << 63}, 50}, // a 64-bit total would wrap to 0
        {true, {1, 0, ~0ull, ~0ull}, 100}, {true, {1, ~0ull / 4, ~0ull / 2, ~0ull / 2}, 75}, // busy * 100 > 2^64
    };
    const MonitorSeams::GetSystemTimesFn fake = [](FILETIME* idle, FILETIME* kernel, FILETIME* user) -> BOOL {
        auto ft = [](ULONGLONG v) { return FILETIME{(DWORD)v, (DWORD)(v >> 32)}; };
        return *idle = ft(g_reading.idle), *kernel = ft(g_reading.kernel), *user = ft(g_reading.user), g_reading.ok;
    };
    CpuSampler sampler;
    for (const Step& s : steps) {
        if (s.fresh)
            sampler = CpuSampler();
        g_reading = s.reading;
        EXPECT_EQ(s.load, sampler.Sample(s.reading.ok < 0 ? nullptr : fake)) << "step " << &s - steps;
    }
}

TEST(WarningText, PlaceholdersIndentationPercentsAndLimits)
{
    auto repeat = [](const wchar_t* s, int n) { std::wstring r; while (n--) r += s; return r; };
    const std::wstring a510 = repeat(L"a", 510), a700 = repeat(L"a", 700);
    struct Case { std::wstring text, value, expected; unsigned cch = kWarningTextMax; } cases[] = {
        {L"%d left, %d left", L"0:05", L"0:05 left, 0:05 left"},
        {L"  %d", L"a\r\nb\nc\rd", L"  a\r\n  b\n  c\r  d"}, // indented: every line of the value too
        {L"Title\r\n\t %d end", L"a\nb", L"Title\r\n\t a\n\t b end"},
        {L"  %d and %d", L"a\nb", L"  a\n  b and a\nb"}, {L"  x %d", L"a\nb", L"  x a\nb"},
        {L"100%% sure in %d", L"1:00", L"100% sure in 1:00"}, {L"  %%d", L"a\nb", L"  %d"},
        {L"%s %x %", L"1:00", L"%s %x %"}, // an administrator's stray percent does no harm
        {a700, L"x", a510 + L"a"}, {a700, L"x", L"aaaa", 5}, {L"%d%d%d", repeat(L"1", 300), repeat(L"1", 511)},
        {L"    %d", repeat(L"ab\n", 200), repeat(L"    ab\n", 73)}, // 511 characters
        {a510 + L"%d" + a700, L"x", a510 + L"x"}, // a long line is never cut after a lone '%'
    };
    for (const Case& c : cases) {
        wchar_t out[1024];
        wmemset(out, 0xbd, 1024); // a missing terminator shows
        const unsigned n = FormatWarningText(out, c.cch, c.text.c_str(), c.value.c_str());
        EXPECT_EQ(c.expected, out) << testing::PrintToString(c.text.substr(0, 20));
        EXPECT_EQ(n, wcslen(out));
    }
}

TEST(WarningCountdown, CountsDownToTheDeadlineThenStaysOrShowsNone)
{
    const long long t0 = 1780000000;
    WarningCountdown c;
    c.Start(L"Off in %d", 10, t0);
    struct Step { long long at; bool rebuilt; const wchar_t* text; } steps[] = {
        {t0, true, L"Off in 10:00"}, {t0 + 75, true, L"Off in 8:45"}, {t0 - 100, true, L"Off in 10:00"}, // set back
        {t0 + 599, true, L"Off in 0:01"}, {t0 + 600, false, L"Off in 0:01"}, {t0 + 100000, false, L"Off in 0:01"}};
    for (const Step& s : steps) {
        EXPECT_EQ(s.rebuilt, c.Update(s.at)) << s.at - t0;
        EXPECT_EQ(std::wstring(s.text), c.GetText()) << s.at - t0;
    }
    c.Start(L"%d", 10, LLONG_MAX - 5); // the deadline saturates instead of wrapping into the past
    EXPECT_TRUE(c.Update(LLONG_MAX - 5));
    EXPECT_EQ(std::wstring(L"0:05"), c.GetText());
    EXPECT_FALSE(c.Update(LLONG_MAX));
    // Minutes the engine cannot measure: no deadline to count to.
    struct Case { int minutes; const wchar_t* open; bool counting; } cases[] = {
        {0, L"0:00", false}, {71582, L"71582:00", true}, {71583, L"--:--", false}, {-1, L"--:--", false},
        {INT_MIN, L"--:--", false}};
    for (const Case& m : cases) {
        c.Start(L"%d", m.minutes, 1000);
        EXPECT_EQ(std::wstring(m.open), c.GetText()) << m.minutes;
        EXPECT_EQ(m.counting, c.Update(1001)) << m.minutes;
    }
}

const DWORD kSession = 42;
UINT Korvane() { return RegisterWindowMessageW(VX_KORVANE_MESSAGE); }
std::wstring BinFile(const wchar_t* name) // beside the test executable
{
    wchar_t exe[MAX_PATH] = {};
    return GetModuleFileNameW(nullptr, exe, MAX_PATH), std::wstring(exe, wcsrchr(exe, L'\\') + 1) + name;
}
// Pumps this thread's messages until done() or ms have passed; done() at the end.
template <class F> bool PumpUntil(F done, DWORD ms)
{
    for (DWORD start = GetTickCount(); !done() && GetTickCount() - start < ms; MsgWaitForMultipleObjects(0, 0, 0, 10, QS_ALLINPUT))
        for (MSG m; PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE);)
            DispatchMessageW(&m);
    return done();
}
// monitor_send_input.exe "key" or "mouse" (there and back): its exit code, 0 when all input was taken.
DWORD SendInputFromAnotherProcess(const wchar_t* what)
{
    Handle process((HANDLE)_wspawnl(_P_NOWAIT, BinFile(L"monitor_send_input.exe").c_str(), L"send", what, nullptr));
    DWORD code = 99;
    return WaitForSingleObject(process.Get(), 20000) == WAIT_OBJECT_0 && GetExitCodeProcess(process.Get(), &code) ? code : 99;
}
// A session's named event under the test's private prefix, created as the service creates it.
HANDLE TestEvent(const wchar_t* name, BOOL bManualReset = FALSE)
{
    wchar_t full[128];
    return FormatMonitorEventName(full, 128, name, kSession), CreateEventW(nullptr, bManualReset, FALSE, full);
}
bool IsSet(const Handle& event) { return WaitForSingleObject(event.Get(), 0) == WAIT_OBJECT_0; }
// The activity types (code 303) the configuration utility's notification window was told.
std::vector<int> g_notices;
std::vector<int> Notices() { return PumpUntil([] { return false; }, 20), std::exchange(g_notices, {}); }
LRESULT CALLBACK UtilityProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp)
{
    return msg == Korvane() && wp == MonitorCode::kActivity ? g_notices.push_back((int)lp), 0 : DefWindowProcW(hwnd, msg, wp, lp);
}

// The settings a monitor reads (a private key), its strings, private event names and the utility.
struct MonitorEnv {
    vxtest::ScopedTestKey settings{L"monitor"}, policy{L"monitorpol"};
    vxtest::ScopedAppRootKey root{settings.path()};
    vxtest::ScopedPolicyKeys policyKeys{policy.path(), policy.path()};
    vxtest::ScopedResourceModule strings{L"VXDA64.DLL"};
    std::wstring prefixText = L"Global\\VxMonTest" + std::to_wstring(GetCurrentProcessId()) + L"-";
    vxtest::ScopedValue<const wchar_t*> prefix{MonitorSeams::pszEventPrefix, prefixText.c_str()};
    WNDCLASSW wc = {0, UtilityProc, 0, 0, GetModuleHandleW(nullptr), nullptr, nullptr, nullptr, nullptr, VX_UTILITY_NOTIFY_CLASS};
    HWND utility = (RegisterClassW(&wc),
                    CreateWindowExW(0, wc.lpszClassName, L"", 0, 0, 0, 1, 1, nullptr, nullptr, wc.hInstance, nullptr));
    MonitorEnv() { SetDword(L"Enable", 1), SetDword(L"MonitorKB", 1), SetDword(L"MonitorMouse", 1), g_notices.clear(); }
    ~MonitorEnv() { DestroyWindow(utility); }
    void SetDword(const wchar_t* name, DWORD v) { vxtest::RawSetDword(settings.sub(), name, v); }
    void SetText(const wchar_t* name, const wchar_t* v) { vxtest::RawSetStr(settings.sub(), name, v); }
};

TEST(MonitorEvents, ShippedNames)
{
    wchar_t buf[128];
    EXPECT_STREQ(L"Global\\VantrelEventIdle-65536", (FormatMonitorEventName(buf, 128, L"VantrelEventIdle-%ld", 65536), buf));
}

// A Monitor_Wnd on the test's thread, with a virtual tick.
class MonitorWindow : public ::testing::Test {
protected:
    MonitorEnv env;
    vxtest::VirtualClock clock;
    Handle idle{TestEvent(L"VantrelEventIdle-%ld")};
    Monitor_Wnd wnd{kSession};
    // Virtual ticks only: the real one-second timer must exist, and is stopped.
    void SetUp() override { ASSERT_TRUE(idle && wnd.CreateMonitorWindow() && KillTimer(wnd.GetHwnd(), 1)); }
    // The type reported since the last call: the idle event set and the utility told it once.
    int Reported()
    {
        const std::vector<int> told = Notices();
        EXPECT_EQ(!told.empty(), IsSet(idle));
        EXPECT_LE(told.size(), 1u);
        return told.empty() ? N : told[0];
    }
    int Input(int kind, DWORD afterMs) { return clock.Advance(afterMs), Monitor_Wnd::HookCallback(kind, &wnd), Reported(); }
    int Tick(DWORD afterMs) { return clock.Advance(afterMs), wnd.Send(WM_TIMER, 1), Reported(); }
};

TEST_F(MonitorWindow, HookAndTickReportsWithTheRateLimitCpuLoadAndReload)
{
    EXPECT_EQ(K, Input(HookInputKeyboard, 0));
    EXPECT_EQ(N, Input(HookInputMouse, 300));
    EXPECT_EQ(M, Tick(700));
    vxtest::ScopedValue<MonitorSeams::GetSystemTimesFn> seam(
        MonitorSeams::pfnGetSystemTimes, [](FILETIME* i, FILETIME* k, FILETIME* u) -> BOOL {
            static DWORD n; // a load of 50 %
            return *i = {50 * ++n, 0}, *k = {100 * n, 0}, *u = {0, 0}, TRUE;
        });
    ResetCpuUsage();
    wnd.GetOpts().bMonitorCPU = 1, wnd.GetOpts().nPercentCPU = 50;
    EXPECT_EQ(ActivityCpu, Tick(1000));
    EXPECT_EQ(N, Input(HookInputKeyboard, 999)) << "the CPU report restarts the limit too";
    wnd.GetOpts().nPercentCPU = 51;
    EXPECT_EQ(K, Tick(1));
    EXPECT_EQ(N, Tick(1000));
    wnd.GetOpts().nPercentCPU = 0; // off, or every reading (0 when it fails) would count
    EXPECT_EQ(N, Tick(1000));
    env.SetDword(L"MonitorKB", 0); // code 302 reads the settings again
    wnd.Send(Korvane(), MonitorCode::kReloadSettings);
    EXPECT_EQ(N, Input(HookInputKeyboard, 5000));
    EXPECT_EQ(M, Input(HookInputMouse, 0));
    idle.Close(); // without the idle event the utility hears nothing either
    Input(HookInputMouse, 5000);
    EXPECT_EQ(std::vector<int>{}, Notices());
}

TEST_F(MonitorWindow, UserBackInThisSessionIsReportedAtTheTick)
{
    struct Case { WPARAM event; DWORD session; int reported; } cases[] = {
        {WTS_SESSION_UNLOCK, kSession, ActivitySession}, {WTS_CONSOLE_CONNECT, kSession, ActivitySession},
        {WTS_REMOTE_CONNECT, kSession, ActivitySession}, {WTS_SESSION_LOCK, kSession, N}, {WTS_CONSOLE_DISCONNECT, kSession, N},
        {WTS_SESSION_LOGON, kSession, N}, {WTS_SESSION_UNLOCK, kSession + 1, N}, {WTS_SESSION_UNLOCK + 32, kSession, N}};
    for (const Case& c : cases) {
        wnd.Send(WM_WTSSESSION_CHANGE, c.event, c.session);
        EXPECT_EQ(N, Reported()) << "before the tick";
        EXPECT_EQ(c.reported, Tick(5000)) << "event " << c.event << " of session " << c.session;
    }
}

TEST_F(MonitorWindow, EndOfSessionSetsTheCancelEventAndStopsReports)
{
    Handle cancel(TestEvent(L"VantrelEventCancel-%ld"));
    wnd.Send(WM_ENDSESSION, FALSE, 0);
    EXPECT_FALSE(IsSet(cancel)) << "a session that does not end";
    wnd.Send(WM_ENDSESSION, TRUE, 0);
    EXPECT_TRUE(IsSet(cancel));
    EXPECT_EQ(N, Input(HookInputKeyboard, 5000));
    wnd.Send(WM_WTSSESSION_CHANGE, WTS_SESSION_UNLOCK, kSession);
    EXPECT_EQ(N, Tick(1000));
}

// MonitorMain on a thread of its own, with the real clock; ended with code 301 if still running.
HWND FindMonitor() { return FindWindowW(VX_MONITOR_CLASS, nullptr); }
struct MonitorThread {
    int result = -1;
    Handle thread{CreateThread(
        nullptr, 0, [](void* p) -> DWORD { return ((MonitorThread*)p)->result = MonitorMain(kSession), 0; }, this, 0, nullptr)};
    int Wait(DWORD ms) { return WaitForSingleObject(thread.Get(), ms) == WAIT_OBJECT_0 ? result : -1; }
    HWND Window() { return PumpUntil([&] { return FindMonitor() || Wait(0) != -1; }, 5000), FindMonitor(); }
    ~MonitorThread() { Wait(0) == -1 && PostMessageW(FindMonitor(), Korvane(), MonitorCode::kQuit, 0), Wait(10000); }
};
class MonitorMainTest : public ::testing::Test {
protected:
    MonitorEnv env;
    void SetUp() override { ASSERT_EQ(nullptr, FindMonitor()) << "another monitor runs"; }
};

TEST_F(MonitorMainTest, OnePerSessionEndedByCode301OrTheQuitEvent)
{
    Handle quit(TestEvent(L"VantrelEventQuit", TRUE));
    for (bool by301 : {true, false}) {
        MonitorThread mon;
        HWND wnd = mon.Window();
        ASSERT_NE(nullptr, wnd);
        EXPECT_EQ(0, MonitorThread().Wait(2000)) << "a second monitor ends at once";
        EXPECT_EQ(-1, mon.Wait(300)) << "the first goes on";
        by301 ? (void)PostMessageW(wnd, Korvane(), MonitorCode::kQuit, 0) : (void)SetEvent(quit.Get());
        EXPECT_EQ(0, mon.Wait(5000));
        EXPECT_FALSE(IsWindow(wnd));
        WNDCLASSW wc = {};
        EXPECT_FALSE(GetClassInfoW(GetModuleHandleW(nullptr), VX_MONITOR_CLASS, &wc)) << "class left registered";
    }
}
std::wstring TextOf(HWND box) { wchar_t text[1024] = {}; return GetDlgItemTextW(box, IDC_MSGEX_TEXT, text, 1024), text; }

TEST_F(MonitorMainTest, HookLibraryMissingOrWithoutItsEntry)
{
    const std::wstring missing = BinFile(L"NO-SUCH-VXHA64.DLL"), broken = BinFile(L"VXHA64_NOENTRY.DLL");
    struct Case { std::wstring path; int exitCode; std::wstring text; } cases[] = {
        {missing, 1, L"Cannot load " + missing}, {broken, 2, L"Cannot use " + broken + L" (corrupted file?)"}};
    static std::wstring shown;
    MsgExSetTimerCallback(20, [](HWND box, unsigned, void*) { return shown = TextOf(box), (int)IDC_MSGEX_CANCEL; }, nullptr);
    for (const Case& c : cases) {
        vxtest::ScopedValue<const wchar_t*> path(MonitorSeams::pszHookLibrary, c.path.c_str());
        EXPECT_EQ(c.exitCode, MonitorMain(kSession));
        EXPECT_EQ(c.text, shown);
        EXPECT_EQ(nullptr, FindMonitor());
    }
    MsgExSetTimerCallback(0, nullptr, nullptr);
}

TEST_F(MonitorMainTest, WarningCountsDownFullScreenUntilRealInputClosesIt)
{
    static long long now;
    const long long t0 = now = 1780000000;
    vxtest::ScopedValue<long long (*)()> time(MonitorSeams::pfnTime, [] { return now; });
    env.SetText(L"MessageText", L"Off in %d");
    env.SetDword(L"MessageTimeout", 10);
    env.SetDword(L"FullScreen", 1);
    Handle idle(TestEvent(L"VantrelEventIdle-%ld"));
    MonitorThread mon;
    HWND wnd = mon.Window(), box = nullptr;
    ASSERT_NE(nullptr, wnd);
    auto place = [&] { RECT r = {}; GetWindowRect(wnd, &r); return std::vector<LONG>{r.left, r.top, r.right, r.bottom}; };
    PostMessageW(wnd, Korvane(), MonitorCode::kShowWarning, 0);
    ASSERT_TRUE(PumpUntil([&] { return (box = MsgExGetOpenBox()) != nullptr; }, 5000));
    EXPECT_EQ(L"Off in 10:00", TextOf(box));
    EXPECT_EQ(wnd, GetWindow(box, GW_OWNER));
    EXPECT_EQ((std::vector<LONG>{0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)}), place());
    EXPECT_TRUE(IsWindowVisible(wnd) && (GetWindowLongW(wnd, GWL_EXSTYLE) & WS_EX_TOPMOST));
    now = t0 + 75;
    EXPECT_TRUE(PumpUntil([&] { return TextOf(box) == L"Off in 8:45"; }, 3000)) << TextOf(box);
    now = t0 + 5000; // past the deadline the text and the box stay
    PumpUntil([] { return false; }, 1200);
    EXPECT_EQ(L"Off in 8:45", TextOf(box));
    std::vector<int> told;
    auto collect = [&](size_t n) {
        return PumpUntil([&] { for (int t : Notices()) told.push_back(t); return told.size() >= n; }, 5000);
    };
    ASSERT_EQ(0u, SendInputFromAnotherProcess(L"mouse")); // there and back: once at once, once at the next tick
    EXPECT_TRUE(collect(2));
    EXPECT_FALSE(IsWindow(box)) << "a report closes the box";
    ASSERT_EQ(0u, SendInputFromAnotherProcess(L"key"));
    EXPECT_TRUE(collect(3));
    EXPECT_EQ((std::vector<int>{M, M, K}), (told.resize(3), told));
    EXPECT_TRUE(PumpUntil([&] { return place() == std::vector<LONG>{300, 300, 301, 301}; }, 2000)) << "its resting place";
    EXPECT_FALSE(IsWindowVisible(wnd) || (GetWindowLongW(wnd, GWL_EXSTYLE) & WS_EX_TOPMOST));
    EXPECT_EQ(-1, mon.Wait(0)) << "the monitor goes on";
}

} // namespace
