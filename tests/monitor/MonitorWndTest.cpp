// The monitor's window with real windows under the headless driver: reports set the session's idle
// event and tell the utility, ticks deliver pending activity and the CPU load, session changes and
// the end of the session; then MonitorMain itself: one monitor per session, 301, the quit event,
// 302, the warning with its countdown and full screen, the hook library missing or broken, input
// of another process reaching the idle event; and the warning of "/msg" without a monitor.
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "MonitorTestSupport.h"
#include "base/Handle.h"
#include "monitor/CpuUsage.h"
#include "resources/resource.h"
#include "support/EngineFakes.h"
#include "ui/MsgBox.h"

using namespace montest;
using vxtest::VirtualClock;

namespace {

const DWORD kSession = 42;

// A window's place as "left,top,right,bottom".
std::string Place(HWND hwnd)
{
    RECT rc = {};
    GetWindowRect(hwnd, &rc);
    return std::to_string(rc.left) + "," + std::to_string(rc.top) + "," + std::to_string(rc.right) + "," +
           std::to_string(rc.bottom);
}

std::wstring TextOf(HWND box)
{
    wchar_t buf[1024] = {};
    GetDlgItemTextW(box, IDC_MSGEX_TEXT, buf, 1024);
    return buf;
}

TEST(MonitorEvents, ShippedNames)
{
    ASSERT_STREQ(L"Global\\", MonitorSeams::pszEventPrefix);
    struct Case {
        const wchar_t* name;
        DWORD id;
        const wchar_t* full;
    } cases[] = {
        {L"VantrelEventIdle-%ld", 3, L"Global\\VantrelEventIdle-3"},
        {L"VantrelEventCancel-%ld", 65536, L"Global\\VantrelEventCancel-65536"},
        {L"VantrelEventQuit", 0, L"Global\\VantrelEventQuit"},
    };
    for (const Case& c : cases) {
        wchar_t buf[128];
        FormatMonitorEventName(buf, 128, c.name, c.id);
        EXPECT_STREQ(c.full, buf);
    }
}

// A Monitor_Wnd on the test's thread, with a virtual tick.
class MonitorWindow : public ::testing::Test {
protected:
    MonitorEnv env;
    VirtualClock clock;
    Handle idle{CreateTestEvent(L"VantrelEventIdle-%ld", kSession, FALSE)};
    UtilityWindow utility;

    // The types the utility was told since the last call.
    std::vector<int> Notices()
    {
        PumpUntil([] { return false; }, 20);
        std::vector<int> out;
        out.swap(utility.types);
        return out;
    }
};

TEST_F(MonitorWindow, ReportsFromTheHookAndTheTick)
{
    ASSERT_TRUE(idle);
    Monitor_Wnd wnd(kSession);
    ASSERT_TRUE(wnd.CreateMonitorWindow());
    Monitor_Wnd::HookCallback(HookInputKeyboard, &wnd);
    EXPECT_TRUE(IsSet(idle.Get()));
    EXPECT_EQ(std::vector<int>{ActivityKeyboard}, Notices());

    // Input 300 ms after a report waits for the tick.
    clock.Advance(300);
    Monitor_Wnd::HookCallback(HookInputMouse, &wnd);
    EXPECT_FALSE(IsSet(idle.Get()));
    clock.Advance(400);
    wnd.Send(WM_TIMER, 1);
    EXPECT_TRUE(IsSet(idle.Get()));
    EXPECT_EQ(std::vector<int>{ActivityMouse}, Notices());

    // The CPU load at "PercentCPU" is reported at a tick with nothing pending.
    static const ULONGLONG readings[2][3] = {{0, 0, 0}, {50, 100, 0}}; // idle, kernel, user: 50 %
    static int next;
    next = 0;
    vxtest::ScopedValue<MonitorSeams::GetSystemTimesFn> seam(
        MonitorSeams::pfnGetSystemTimes, [](FILETIME* i, FILETIME* k, FILETIME* u) -> BOOL {
            const ULONGLONG* r = readings[next < 1 ? next++ : 1];
            i->dwLowDateTime = (DWORD)r[0];
            k->dwLowDateTime = (DWORD)r[1];
            u->dwLowDateTime = (DWORD)r[2];
            i->dwHighDateTime = k->dwHighDateTime = u->dwHighDateTime = 0;
            return TRUE;
        });
    ResetCpuUsage();
    GetCpuUsage(); // the reading before (all zero: answers 0 and keeps nothing)
    next = 1;
    wnd.GetOpts().bMonitorCPU = 1;
    wnd.GetOpts().nPercentCPU = 50;
    clock.Advance(1000);
    wnd.Send(WM_TIMER, 1);
    EXPECT_TRUE(IsSet(idle.Get()));
    EXPECT_EQ(std::vector<int>{ActivityCpu}, Notices());
    wnd.GetOpts().nPercentCPU = 51;
    ResetCpuUsage();
    clock.Advance(1000);
    wnd.Send(WM_TIMER, 1);
    EXPECT_FALSE(IsSet(idle.Get())) << "50 % is below 51";
    wnd.GetOpts().bMonitorCPU = 0;
    ResetCpuUsage();

    // Without the idle event nothing else happens: the utility hears nothing either.
    idle.Close();
    clock.Advance(5000);
    Monitor_Wnd::HookCallback(HookInputKeyboard, &wnd);
    EXPECT_EQ(std::vector<int>{}, Notices());
}

TEST_F(MonitorWindow, SessionChangesOfThisSessionAreReportedAtTheTick)
{
    struct Case {
        WPARAM event;
        DWORD session;
        bool reported;
    } cases[] = {
        {WTS_SESSION_UNLOCK, kSession, true},   {WTS_CONSOLE_CONNECT, kSession, true},
        {WTS_REMOTE_CONNECT, kSession, true},   {WTS_SESSION_LOCK, kSession, false},
        {WTS_CONSOLE_DISCONNECT, kSession, false}, {WTS_SESSION_LOGON, kSession, false},
        {WTS_SESSION_UNLOCK, kSession + 1, false}, {WTS_SESSION_UNLOCK + 32, kSession, false},
    };
    Monitor_Wnd wnd(kSession);
    ASSERT_TRUE(wnd.CreateMonitorWindow());
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "event " << c.event << " of session " << c.session);
        clock.Advance(5000);
        wnd.Send(WM_WTSSESSION_CHANGE, c.event, c.session);
        EXPECT_FALSE(IsSet(idle.Get())) << "not before the tick";
        wnd.Send(WM_TIMER, 1);
        EXPECT_EQ(c.reported, IsSet(idle.Get()));
        EXPECT_EQ(c.reported ? std::vector<int>{ActivitySession} : std::vector<int>{}, Notices());
    }
}

TEST_F(MonitorWindow, EndOfSessionSetsTheCancelEventAndStopsReports)
{
    Handle cancel(CreateTestEvent(L"VantrelEventCancel-%ld", kSession, FALSE));
    ASSERT_TRUE(cancel);
    Monitor_Wnd wnd(kSession);
    ASSERT_TRUE(wnd.CreateMonitorWindow());
    wnd.Send(WM_ENDSESSION, FALSE, 0);
    EXPECT_FALSE(IsSet(cancel.Get())) << "a session that does not end";
    wnd.Send(WM_ENDSESSION, TRUE, 0);
    EXPECT_TRUE(IsSet(cancel.Get()));
    clock.Advance(5000);
    Monitor_Wnd::HookCallback(HookInputKeyboard, &wnd);
    wnd.Send(WM_WTSSESSION_CHANGE, WTS_SESSION_UNLOCK, kSession);
    wnd.Send(WM_TIMER, 1);
    EXPECT_FALSE(IsSet(idle.Get()));
    EXPECT_EQ(std::vector<int>{}, Notices());
}

// MonitorMain with its own loop, on a thread, with the real clock.
class MonitorMainTest : public ::testing::Test {
protected:
    MonitorEnv env;
    void SetUp() override { ASSERT_EQ(nullptr, FindWindowW(VX_MONITOR_CLASS, nullptr)) << "another monitor runs"; }
};

TEST_F(MonitorMainTest, OneMonitorPerSessionAndCode301EndsIt)
{
    MonitorThread first(kSession);
    HWND wnd = first.WaitForWindow();
    ASSERT_NE(nullptr, wnd);
    EXPECT_EQ(0, MonitorMain(kSession)) << "a second monitor ends at once";
    EXPECT_EQ(-1, first.Wait(0)) << "the first goes on";
    PostMessageW(wnd, KorvaneMessage(), MonitorCode::kQuit, 0);
    EXPECT_EQ(0, first.Wait(5000));
    EXPECT_FALSE(IsWindow(wnd));
    WNDCLASSEXW wc = {};
    wc.cbSize = sizeof(wc);
    EXPECT_FALSE(GetClassInfoExW(GetModuleHandleW(nullptr), VX_MONITOR_CLASS, &wc)) << "the class is unregistered";
}

TEST_F(MonitorMainTest, QuitEventEndsIt)
{
    Handle quit(CreateTestEvent(L"VantrelEventQuit", 0, TRUE));
    ASSERT_TRUE(quit);
    MonitorThread mon(kSession);
    HWND wnd = mon.WaitForWindow();
    ASSERT_NE(nullptr, wnd);
    EXPECT_EQ(-1, mon.Wait(300));
    SetEvent(quit.Get());
    EXPECT_EQ(0, mon.Wait(5000));
    EXPECT_FALSE(IsWindow(wnd));
}

TEST_F(MonitorMainTest, HookLibraryMissingOrWithoutItsEntry)
{
    struct Case {
        std::wstring path;
        int exitCode;
        std::wstring text;
    } cases[] = {
        {BinFile(L"NO-SUCH-VXHA64.DLL"), 1, L"Cannot load " + BinFile(L"NO-SUCH-VXHA64.DLL")},
        {BinFile(L"VXHA64_NOENTRY.DLL"), 2, L"Cannot use " + BinFile(L"VXHA64_NOENTRY.DLL") + L" (corrupted file?)"},
    };
    static std::wstring shown;
    MsgExSetTimerCallback(20, [](HWND box, unsigned, void*) { return shown = TextOf(box), (int)IDC_MSGEX_CANCEL; }, nullptr);
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.path));
        vxtest::ScopedValue<const wchar_t*> path(MonitorSeams::pszHookLibrary, c.path.c_str());
        shown.clear();
        EXPECT_EQ(c.exitCode, MonitorMain(kSession));
        EXPECT_EQ(c.text, shown);
        EXPECT_EQ(nullptr, FindWindowW(VX_MONITOR_CLASS, nullptr));
    }
    MsgExSetTimerCallback(0, nullptr, nullptr);
}

TEST_F(MonitorMainTest, InputOfAnotherProcessAndSettingsReload)
{
    Handle idle(CreateTestEvent(L"VantrelEventIdle-%ld", kSession, FALSE));
    UtilityWindow utility;
    MonitorThread mon(kSession);
    HWND wnd = mon.WaitForWindow();
    ASSERT_NE(nullptr, wnd);
    ASSERT_EQ(0, RunHelper(L"monitor_send_input.exe", L"key"));
    ASSERT_TRUE(PumpUntil([&] { return !utility.types.empty(); }, 5000)) << "no report of the keystroke";
    EXPECT_EQ(ActivityKeyboard, utility.types[0]);
    EXPECT_TRUE(IsSet(idle.Get()));

    // "MonitorKB" off, read again on code 302: keystrokes no longer count, the mouse still does.
    env.SetDword(L"MonitorKB", 0);
    PostMessageW(wnd, KorvaneMessage(), MonitorCode::kReloadSettings, 0);
    PumpUntil([] { return false; }, 1500); // past the one-second limit and the key's release
    utility.types.clear();
    ResetEvent(idle.Get());
    ASSERT_EQ(0, RunHelper(L"monitor_send_input.exe", L"key 3"));
    PumpUntil([] { return false; }, 1500);
    EXPECT_EQ(std::vector<int>{}, utility.types);
    EXPECT_FALSE(IsSet(idle.Get()));
    ASSERT_EQ(0, RunHelper(L"monitor_send_input.exe", L"mouse"));
    ASSERT_TRUE(PumpUntil([&] { return !utility.types.empty(); }, 5000));
    EXPECT_EQ(ActivityMouse, utility.types[0]);
}

std::atomic<long long> g_now{1780000000};
long long FakeTime() { return g_now.load(); }

TEST_F(MonitorMainTest, WarningCountsDownFullScreenUntilActivityClosesIt)
{
    const long long t0 = 1780000000;
    g_now = t0;
    vxtest::ScopedValue<long long (*)()> time(MonitorSeams::pfnTime, FakeTime);
    env.SetText(L"MessageText", L"Old text %d");
    env.SetDword(L"MessageTimeout", 10);
    env.SetDword(L"FullScreen", 1);
    Handle idle(CreateTestEvent(L"VantrelEventIdle-%ld", kSession, FALSE));
    MonitorThread mon(kSession);
    HWND wnd = mon.WaitForWindow();
    ASSERT_NE(nullptr, wnd);
    // The window is found as soon as it exists; it takes its resting place just after.
    EXPECT_TRUE(PumpUntil([&] { return Place(wnd) == "300,300,301,301"; }, 2000)) << Place(wnd);

    env.SetText(L"MessageText", L"Logging off in %d");
    PostMessageW(wnd, KorvaneMessage(), MonitorCode::kReloadSettings, 0);
    PostMessageW(wnd, KorvaneMessage(), MonitorCode::kShowWarning, 0);
    HWND box = nullptr;
    ASSERT_TRUE(PumpUntil([&] { return (box = MsgExGetOpenBox()) != nullptr; }, 5000));
    EXPECT_EQ(L"Logging off in 10:00", TextOf(box)) << "the reloaded text";
    EXPECT_EQ(wnd, GetWindow(box, GW_OWNER));
    EXPECT_EQ("0,0," + std::to_string(GetSystemMetrics(SM_CXSCREEN)) + "," + std::to_string(GetSystemMetrics(SM_CYSCREEN)),
              Place(wnd));
    EXPECT_TRUE(IsWindowVisible(wnd));
    EXPECT_TRUE(GetWindowLongW(wnd, GWL_EXSTYLE) & WS_EX_TOPMOST);

    struct Step {
        long long at;
        const wchar_t* text;
    } steps[] = {{t0 + 75, L"Logging off in 8:45"}, {t0 + 599, L"Logging off in 0:01"}};
    for (const Step& s : steps) {
        g_now = s.at;
        EXPECT_TRUE(PumpUntil([&] { return TextOf(box) == s.text; }, 3000)) << TextOf(box).c_str();
    }
    // At and after the deadline the text stays, and so does the box.
    g_now = t0 + 600;
    PumpUntil([] { return false; }, 1200);
    g_now = t0 + 5000;
    PumpUntil([] { return false; }, 1200);
    EXPECT_EQ(L"Logging off in 0:01", TextOf(box));
    EXPECT_TRUE(IsWindow(box));

    // An unlock is reported at the next tick, and the report closes the box.
    PostMessageW(wnd, WM_WTSSESSION_CHANGE, WTS_SESSION_UNLOCK, kSession);
    EXPECT_TRUE(PumpUntil([&] { return !IsWindow(box); }, 3000));
    EXPECT_TRUE(IsSet(idle.Get()));
    // The monitor's thread shrinks its window right after the box has gone.
    PumpUntil([&] { return !IsWindowVisible(wnd); }, 2000);
    EXPECT_EQ("300,300,301,301", Place(wnd));
    EXPECT_FALSE(IsWindowVisible(wnd));
    EXPECT_FALSE(GetWindowLongW(wnd, GWL_EXSTYLE) & WS_EX_TOPMOST);
    EXPECT_EQ(-1, mon.Wait(0)) << "the monitor goes on";
}

DWORD WINAPI RunShowIdleWarning(void*) { return (DWORD)ShowIdleWarning(kSession); }

TEST(ShowIdleWarningTest, TextOfTheSettingOrTheBuiltInOne)
{
    MonitorEnv env;
    struct Case {
        const wchar_t* setting; // null: not set
        int minutes;            // -1000: not set
        std::wstring open;
    } cases[] = {
        {nullptr, -1000, L"Press OK to keep your session active. Otherwise, you will be logged off in less than 5:00 minute(s)"},
        {L"Bye in %d", 2, L"Bye in 2:00"},
        {L"Bye in %d", -5, L"Bye in --:--"},
        {L"Bye in %d", 71583, L"Bye in --:--"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.open));
        if (c.setting)
            env.SetText(L"MessageText", c.setting);
        if (c.minutes != -1000)
            env.SetDword(L"MessageTimeout", (DWORD)c.minutes);
        Handle thread(CreateThread(nullptr, 0, RunShowIdleWarning, nullptr, 0, nullptr));
        HWND box = nullptr;
        ASSERT_TRUE(PumpUntil([&] { return (box = MsgExGetOpenBox()) != nullptr; }, 5000));
        EXPECT_EQ(c.open, TextOf(box).substr(0, c.open.size()));
        EXPECT_EQ(nullptr, GetWindow(box, GW_OWNER));
        EXPECT_EQ(std::wstring(L"Vantrel"), [&] { wchar_t t[64] = {}; GetWindowTextW(box, t, 64); return std::wstring(t); }());
        PostMessageW(box, KorvaneMessage(), MonitorCode::kPressBoxButton, IDOK);
        ASSERT_EQ((DWORD)WAIT_OBJECT_0, WaitForSingleObject(thread.Get(), 5000));
        DWORD code = 99;
        GetExitCodeThread(thread.Get(), &code);
        EXPECT_EQ(0u, code);
    }
}

} // namespace
