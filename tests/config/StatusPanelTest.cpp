// The status panel: its texts and counters through the plain decisions, and the panel itself
// against the registry, a window with its labels and the service-state seam.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "config/StatusPanel.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {

const std::wstring kExcluded = L"Not monitoring the current user because it's excluded in the settings.";
const wchar_t* const kPolicy = L"Use Group Policy on the server to manage the Vantrel settings on this computer.";
const std::wstring kStopped = L"The Vantrel service is <red>NOT running</red>. ";
const std::wstring kDisabled = L"Vantrel is <red>NOT enabled</red>. ";

// One refresh of a running service with monitoring enabled, the key readable and the monitor
// present, changed by set: both lines, "(kept)" for a label left as it is.
template <class F> std::pair<std::wstring, std::wstring> Decide(StatusPanelState& st, F set)
{
    StatusFacts f;
    f.dwServiceState = SERVICE_RUNNING;
    f.bEnable = f.bKeyOpened = f.bMonitorWindow = TRUE;
    set(f);
    StatusLines out;
    DecideStatus(f, st, out);
    EXPECT_FALSE(out.bDeleteLastLogoff);
    return {out.bWriteLine1 ? out.szLine1 : L"(kept)", out.bWriteLine2 ? out.szLine2 : L"(kept)"};
}

} // namespace

TEST(StatusText, AStoppedOrDisabledServiceAndAnUnreadableKeyChooseTheLinesAndLeaveTheCountersForLater)
{
    const std::wstring hint = L"Check the <b>Enable Vantrel</b> box and press <b>Apply</b>.";
    struct Case { BOOL policy; DWORD state; BOOL enable, key; const wchar_t* text; std::wstring line1, line2; };
    const Case cases[] = {
        {TRUE, SERVICE_STOPPED, TRUE, TRUE, nullptr, kStopped, kPolicy},
        {TRUE, 0, TRUE, TRUE, L"From the resources.", kStopped, L"From the resources."}, // 0: the query failed
        {FALSE, SERVICE_RUNNING, FALSE, TRUE, nullptr, kDisabled + hint, L""},
        {TRUE, SERVICE_RUNNING, FALSE, TRUE, nullptr, kDisabled, kPolicy},
        {FALSE, SERVICE_RUNNING, TRUE, FALSE, nullptr, L"(kept)", L"(kept)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        StatusPanelState st;
        st.nAttention = 3, st.nLastLogoffCount = 9, st.nPendingActivity = ActivityMouse;
        EXPECT_EQ(Decide(st, [&](StatusFacts& f) {
            f.bPolicyManaged = c.policy, f.pszPolicyText = c.text, f.dwServiceState = c.state;
            f.bEnable = c.enable, f.bKeyOpened = c.key, f.pszLastLogoff = L"x";
        }), std::make_pair(c.line1, c.line2));
        EXPECT_EQ(st.nAttention + st.nLastLogoffCount + st.nPendingActivity, 3 + 9 + 1) << "all wait for monitoring";
    }
}

TEST(StatusText, LineTwoShowsANoticeOnceThenExclusionThenTheIdleClockInFiveSecondSteps)
{
    const DWORD t0 = 0xFFFFF000; // the tick wraps on the way
    StatusPanelState st;
    struct Step { int kind; DWORD ms; BOOL monitor; const wchar_t* line2; } steps[] = {
        {ActivityMouse, 0, TRUE, L"Activity detected: Mouse."}, {ActivityCpu, 0, TRUE, L"Activity detected: CPU."},
        {ActivitySession, 0, TRUE, L"Activity detected: User session change."},
        {ActivityKeyboard, 1000, TRUE, L"Activity detected: Keyboard."}, {0, 2000, FALSE, kExcluded.c_str()},
        {5, 4999, TRUE, L"(kept)"}, // an unknown kind changes nothing
        {0, 5000, TRUE, L"No activity for 5 seconds."}, {0, 9999, TRUE, L"(kept)"},
        {0, 27000, TRUE, L"No activity for 27 seconds."}, // a late refresh catches up
        {0, 29000, TRUE, L"(kept)"}, {0, 30000, TRUE, L"No activity for 30 seconds."},
        {0, 60000, TRUE, L"No activity for 1 minutes and 0 seconds."},
        {0, 3599000, TRUE, L"No activity for 59 minutes and 59 seconds."},
        {0, 3725000, TRUE, L"No activity for 1 hours 2 minutes and 5 seconds."},
    };
    for (const Step& s : steps) {
        SCOPED_TRACE(s.ms);
        EXPECT_EQ(NoteActivity(st, s.kind, t0), s.kind >= 1 && s.kind <= 4);
        EXPECT_EQ(Decide(st, [&](StatusFacts& f) { f.bMonitorWindow = s.monitor, f.dwNow = t0 + s.ms; }).second,
                  s.line2);
    }
}

static DWORD g_serviceState;

TEST(StatusPanel, ReadsTheKeyShowsTheLinesInTheLabelsAndDeletesALastLogoffOnTheTenthRefreshThatSeesIt)
{
    ScopedTestKey settings(L"status");
    ScopedAppRootKey root{settings.path()};
    ASSERT_TRUE(root.pushed());
    g_serviceState = SERVICE_RUNNING;
    ScopedValue<DWORD (*)()> svc(StatusSeams::pfnQueryServiceState, [] { return g_serviceState; });
    ScopedValue<DWORD(WINAPI*)()> tick(StatusSeams::pfnGetTickCount, [] { return (DWORD)1000000; });
    ScopedValue<HWND(WINAPI*)(LPCWSTR, LPCWSTR)> find(StatusSeams::pfnFindWindowW,
                                                      [](LPCWSTR, LPCWSTR) { return HWND(); }); // no monitor
    ScopedValue<unsigned (*)()> cpu(StatusSeams::pfnGetCpuUsage, [] { return 37u; });

    // A window standing in for the main dialog: the two status labels and the CPU box.
    HWND dlg = CreateWindowExW(0, L"STATIC", L"", WS_OVERLAPPED, 0, 0, 400, 200, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(dlg, nullptr);
    for (int id : {kIdStatusLine1, kIdStatusLine2, kIdMonitorCpuBox}) {
        const bool box = id == kIdMonitorCpuBox;
        ASSERT_TRUE(CreateWindowExW(0, box ? L"BUTTON" : L"STATIC", L"", WS_CHILD | (box ? BS_AUTOCHECKBOX : 0), 0, 0,
                                    300, 20, dlg, (HMENU)(INT_PTR)id, nullptr, nullptr));
    }
    auto label = [dlg](int id) -> std::wstring {
        auto* l = static_cast<DMStaticHTML*>(DMWnd::FromHandle(GetDlgItem(dlg, id)));
        return l ? l->GetHTMLText() : L"<not a rich label>";
    };
    auto labels = [&label] { return label(kIdStatusLine1) + L"|" + label(kIdStatusLine2); };
    auto count = [](const wchar_t* n) {
        return L"Monitoring " + std::wstring(n) + L" user session(s) on this computer. ";
    };
    CheckDlgButton(dlg, kIdMonitorCpuBox, BST_CHECKED);
    StatusPanel panel;
    ASSERT_TRUE(panel.Attach(dlg));
    panel.SetSettings(TRUE, FALSE, L"", L"ignored outside GPO mode");

    // The attention text first; a last logoff counts only while it shows: 9 times, then it goes.
    ASSERT_TRUE(RawSetDword(settings.sub(), L"SessionsMonitoring", 7));
    ASSERT_TRUE(RawSetStr(settings.sub(), L"LastLogoff", L"CORP\\alice"));
    panel.SetAttention(2);
    for (int i = 1; i <= 12; ++i) {
        SCOPED_TRACE(i);
        panel.Refresh();
        EXPECT_EQ(RawValueExists(settings.sub(), L"LastLogoff"), i < 12);
        EXPECT_EQ(labels(), (i <= 2 ? L"Attention: any active user must log off and then log back on in order for the "
                                      L"new settings to apply to that user."
                             : i < 12 ? L"Logged off the user 'CORP\\alice'."
                                      : count(L"7") + L"CPU load: 37%") + L"|" + kExcluded);
    }

    // At most 512 bytes are read: 255 characters and the terminator fit, one more does not.
    ASSERT_TRUE(RawSetStr(settings.sub(), L"LastLogoff", std::wstring(255, L'x')));
    panel.Refresh();
    EXPECT_EQ(panel.GetLine1(), L"Logged off the user '" + std::wstring(255, L'x') + L"'.");
    ASSERT_TRUE(RawSetStr(settings.sub(), L"LastLogoff", std::wstring(256, L'y')));
    CheckDlgButton(dlg, kIdMonitorCpuBox, BST_UNCHECKED);
    for (int i = 0; i < 10; ++i)
        panel.Refresh();
    EXPECT_EQ(RawGetStr(settings.sub(), L"LastLogoff"), std::wstring(256, L'y')) << "neither shown nor deleted";
    EXPECT_EQ(panel.GetState().nLastLogoffCount, 0) << "a name read as empty restarts the count";

    // A count may be decimal text; more than a DWORD holds, or anything but digits, reads as 0.
    const std::pair<const wchar_t*, const wchar_t*> counts[] = {
        {L"4294967297", L"0"}, {L"12a", L"0"}, {L"4294967295", L"4294967295"}};
    for (const auto& c : counts) {
        ASSERT_TRUE(RawSetStr(settings.sub(), L"SessionsMonitoring", c.first));
        panel.Refresh();
        EXPECT_EQ(labels(), count(c.second) + L"|" + kExcluded);
    }
    RawDeleteTree(settings.sub()); // an unreadable key: both lines stay
    panel.Refresh();
    EXPECT_EQ(labels(), count(L"4294967295") + L"|" + kExcluded);

    g_serviceState = 0; // a failed query reads as stopped
    panel.Refresh();
    EXPECT_EQ(labels(), kStopped + L"<a>Start the service...</a>|");
    panel.SetSettings(TRUE, TRUE, L"LDAP://cn={1},cn=policies", L"Sales <b>%s</b>"); // ahead of all else
    panel.Refresh();
    EXPECT_EQ(labels(), L"Managing the GPO:|Sales <b>%s</b>");
    DestroyWindow(dlg);
}
