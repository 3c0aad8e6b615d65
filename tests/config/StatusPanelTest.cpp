// The status panel: its texts and counters through the plain decisions, and the panel itself
// against the registry, a window with its labels and the service-state seam.
#include <gtest/gtest.h>

#include <string>

#include "config/StatusPanel.h"
#include "support/Guards.h"
#include "support/TestSupport.h"

using namespace vxtest;

namespace {

const wchar_t* const kExcluded = L"Not monitoring the current user because it's excluded in the settings.";
const wchar_t* const kPolicy = L"Use Group Policy on the server to manage the Vantrel settings on this computer.";
const wchar_t* const kStopped = L"The Vantrel service is <red>NOT running</red>. ";
const std::wstring kStoppedLink = std::wstring(kStopped) + L"<a>Start the service...</a>";
const wchar_t* const kDisabled = L"Vantrel is <red>NOT enabled</red>. ";
const wchar_t* const kMonitoring2 = L"Monitoring 2 user session(s) on this computer. ";

// One refresh of a running service with monitoring enabled, the key readable and the monitor
// present, changed by set. Null lines: the label is left as it is.
template <class F> std::pair<const wchar_t*, const wchar_t*> Decide(StatusPanelState& st, F set, StatusLines& out)
{
    StatusFacts f;
    f.dwServiceState = SERVICE_RUNNING;
    f.bEnable = f.bKeyOpened = f.bMonitorWindow = TRUE;
    f.dwSessionsMonitoring = 2;
    set(f);
    DecideStatus(f, st, out);
    EXPECT_FALSE(out.bDeleteLastLogoff);
    return {out.bWriteLine1 ? out.szLine1 : nullptr, out.bWriteLine2 ? out.szLine2 : nullptr};
}
std::wstring Shown(const wchar_t* line) { return line ? line : L"(kept)"; }
#define EXPECT_LINE(actual, expected) EXPECT_EQ(Shown(actual), (expected))

} // namespace

TEST(StatusText, ServiceStateSourceAndPolicyChooseTheLinesAndKeepTheCountersForLater)
{
    const std::wstring hint = std::wstring(kDisabled) + L"Check the <b>Enable Vantrel</b> box and press <b>Apply</b>.";
    struct Case {
        BOOL gpo, policy;
        DWORD state; // 0: the query failed
        BOOL enable;
        const wchar_t* policyText;
        std::wstring line1, line2;
    } cases[] = {
        {TRUE, TRUE, 0, FALSE, nullptr, L"Managing the GPO:", L"Sales <b>GPO</b> %s"},
        {FALSE, FALSE, SERVICE_STOPPED, TRUE, nullptr, kStoppedLink, L""},
        {FALSE, FALSE, 0, TRUE, nullptr, kStoppedLink, L""},
        {FALSE, FALSE, SERVICE_START_PENDING, TRUE, nullptr, kStoppedLink, L""},
        {FALSE, TRUE, SERVICE_STOPPED, TRUE, nullptr, kStopped, kPolicy},
        {FALSE, TRUE, SERVICE_STOPPED, TRUE, L"From the resources.", kStopped, L"From the resources."},
        {FALSE, FALSE, SERVICE_RUNNING, FALSE, nullptr, hint, L""},
        {FALSE, TRUE, SERVICE_RUNNING, FALSE, nullptr, kDisabled, kPolicy},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line1 + L" / " + c.line2);
        StatusPanelState st;
        st.nAttention = 3;
        st.nLastLogoffCount = 9;
        st.nPendingActivity = ActivityMouse;
        st.adwLicence[0] = st.adwLicence[1] = st.adwLicence[2] = 7;
        StatusLines out;
        auto lines = Decide(st, [&](StatusFacts& f) {
            f.bGPOMode = c.gpo, f.pszGPODisplayName = L"Sales <b>GPO</b> %s", f.bPolicyManaged = c.policy;
            f.pszPolicyText = c.policyText, f.dwServiceState = c.state, f.bEnable = c.enable, f.pszLastLogoff = L"x";
        }, out);
        EXPECT_LINE(lines.first, c.line1);
        EXPECT_LINE(lines.second, c.line2);
        EXPECT_EQ(st.nAttention + st.nLastLogoffCount + st.nPendingActivity, 3 + 9 + 1) << "all wait for monitoring";
        EXPECT_EQ(st.adwLicence[0] + st.adwLicence[1] + st.adwLicence[2], c.gpo ? 21u : 0u) << "cleared when stopped";
    }
}

TEST(StatusText, RunningLineOneShowsAttentionLastLogoffOrTheCountAndAnUnreadableKeyChangesNothing)
{
    struct Case {
        int attention;
        const wchar_t* lastLogoff;
        DWORD sessions;
        BOOL cpuBox, keyOpened;
        std::wstring line1;
        int attentionAfter, logoffCountAfter;
    } cases[] = {
        {15, L"CORP\\alice", 2, TRUE, TRUE,
         L"Attention: any active user must log off and then log back on in order for the new settings to apply to that "
         L"user.", 14, 0},
        {4, nullptr, 2, FALSE, FALSE, L"(kept)", 4, 0},
        {0, L"CORP\\alice", 2, TRUE, TRUE, L"Logged off the user 'CORP\\alice'.", 0, 1},
        {0, L"", 2, FALSE, TRUE, kMonitoring2, 0, 0},
        {0, nullptr, 3, TRUE, TRUE, L"Monitoring 3 user session(s) on this computer. CPU load: 40%", 0, 0},
        {0, nullptr, 0xFFFFFFFF, FALSE, TRUE, L"Monitoring 4294967295 user session(s) on this computer. ", 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line1);
        StatusPanelState st;
        st.nAttention = c.attention;
        st.nPendingActivity = ActivityCpu;
        StatusLines out;
        auto lines = Decide(st, [&](StatusFacts& f) {
            f.pszLastLogoff = c.lastLogoff, f.dwSessionsMonitoring = c.sessions, f.bCpuBox = c.cpuBox, f.nCpuLoad = 40;
            f.bKeyOpened = c.keyOpened;
        }, out);
        EXPECT_LINE(lines.first, c.line1);
        EXPECT_LINE(lines.second, c.keyOpened ? L"Activity detected: CPU." : L"(kept)");
        EXPECT_EQ(st.nAttention, c.attentionAfter);
        EXPECT_EQ(st.nLastLogoffCount, c.logoffCountAfter);
    }
}

TEST(StatusText, LineTwoShowsANoticeOnceThenExclusionThenTheIdleClockInFiveSecondStepsAndHours)
{
    const DWORD t0 = 0xFFFFF000; // the tick wraps on the way
    StatusPanelState st;
    struct Step {
        int kind; // a notice before the refresh
        DWORD ms;
        BOOL monitor;
        const wchar_t* line2;
    } steps[] = {
        {1, 0, TRUE, L"Activity detected: Mouse."}, {3, 0, TRUE, L"Activity detected: CPU."},
        {4, 0, TRUE, L"Activity detected: User session change."}, {2, 1000, TRUE, L"Activity detected: Keyboard."},
        {0, 2000, FALSE, kExcluded}, {5, 3000, TRUE, L"(kept)"}, {-1, 4999, TRUE, L"(kept)"},
        {303, 5000, TRUE, L"No activity for 5 seconds."}, {0, 9999, TRUE, L"(kept)"},
        {0, 10000, TRUE, L"No activity for 10 seconds."}, {0, 27000, TRUE, L"No activity for 27 seconds."},
        {0, 29000, TRUE, L"(kept)"}, {0, 30000, TRUE, L"No activity for 30 seconds."}, // a late refresh catches up
        {0, 60000, TRUE, L"No activity for 1 minutes and 0 seconds."},
        {0, 3599000, TRUE, L"No activity for 59 minutes and 59 seconds."},
        {0, 3600000, TRUE, L"No activity for 1 hours 0 minutes and 0 seconds."},
        {0, 3725000, TRUE, L"No activity for 1 hours 2 minutes and 5 seconds."},
    };
    for (const Step& s : steps) {
        SCOPED_TRACE(s.ms);
        EXPECT_EQ(NoteActivity(st, s.kind, t0), s.kind >= 1 && s.kind <= 4) << "other kinds change nothing";
        StatusLines out;
        EXPECT_LINE(Decide(st, [&](StatusFacts& f) { f.bMonitorWindow = s.monitor, f.dwNow = t0 + s.ms; }, out).second,
                    s.line2);
    }
}

namespace {
DWORD g_serviceState = SERVICE_RUNNING;
DWORD FakeServiceState() { return g_serviceState; }
DWORD WINAPI FakeTick() { return 1000000; }
HWND WINAPI NoMonitor(LPCWSTR, LPCWSTR) { return nullptr; }
unsigned FakeCpu() { return 37; }
std::wstring LabelText(HWND dlg, int id)
{
    DMStaticHTML* label = static_cast<DMStaticHTML*>(DMWnd::FromHandle(GetDlgItem(dlg, id)));
    return label ? label->GetHTMLText() : L"<not a rich label>";
}
} // namespace

TEST(StatusPanel, ReadsTheKeyShowsTheLinesInTheLabelsAndDeletesALastLogoffOnTheTenthRefresh)
{
    ScopedTestKey settings(L"status");
    ScopedAppRootKey root{settings.path()};
    ASSERT_TRUE(root.pushed());
    ScopedValue<DWORD (*)()> svc(StatusSeams::pfnQueryServiceState, FakeServiceState);
    ScopedValue<DWORD(WINAPI*)()> tick(StatusSeams::pfnGetTickCount, FakeTick);
    ScopedValue<HWND(WINAPI*)(LPCWSTR, LPCWSTR)> find(StatusSeams::pfnFindWindowW, NoMonitor);
    ScopedValue<unsigned (*)()> cpu(StatusSeams::pfnGetCpuUsage, FakeCpu);
    g_serviceState = SERVICE_RUNNING;

    // A window standing in for the main dialog: the two status labels and the CPU box.
    HWND dlg = CreateWindowExW(0, L"STATIC", L"", WS_OVERLAPPED, 0, 0, 400, 200, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(dlg, nullptr);
    for (int id : {kIdStatusLine1, kIdStatusLine2, kIdMonitorCpuBox}) {
        const bool box = id == kIdMonitorCpuBox;
        ASSERT_TRUE(CreateWindowExW(0, box ? L"BUTTON" : L"STATIC", L"", WS_CHILD | (box ? BS_AUTOCHECKBOX : 0), 0, 0,
                                    300, 20, dlg, (HMENU)(INT_PTR)id, nullptr, nullptr));
    }
    CheckDlgButton(dlg, kIdMonitorCpuBox, BST_CHECKED);
    StatusPanel panel;
    ASSERT_TRUE(panel.Attach(dlg));
    panel.SetSettings(TRUE, FALSE, L"", L"ignored outside GPO mode");

    ASSERT_TRUE(RawSetStr(settings.sub(), L"SessionsMonitoring", L"7")); // a count may be decimal text
    ASSERT_TRUE(RawSetStr(settings.sub(), L"LastLogoff", L"CORP\\alice"));
    for (int i = 1; i <= 10; ++i) {
        SCOPED_TRACE(i);
        panel.Refresh();
        EXPECT_EQ(RawValueExists(settings.sub(), L"LastLogoff"), i < 10);
        const wchar_t* count = L"Monitoring 7 user session(s) on this computer. CPU load: 37%";
        EXPECT_EQ(LabelText(dlg, kIdStatusLine1), i < 10 ? L"Logged off the user 'CORP\\alice'." : count);
        EXPECT_EQ(LabelText(dlg, kIdStatusLine2), kExcluded);
    }

    // At most 512 bytes are read: 255 characters and the terminator fit, one more does not.
    const std::wstring fits(255, L'x'), tooLong(256, L'y');
    ASSERT_TRUE(RawSetStr(settings.sub(), L"LastLogoff", fits));
    panel.Refresh();
    EXPECT_EQ(panel.GetLine1(), L"Logged off the user '" + fits + L"'.");
    ASSERT_TRUE(RawSetStr(settings.sub(), L"LastLogoff", tooLong));
    CheckDlgButton(dlg, kIdMonitorCpuBox, BST_UNCHECKED);
    for (int i = 0; i < 12; ++i)
        panel.Refresh();
    EXPECT_EQ(LabelText(dlg, kIdStatusLine1), L"Monitoring 7 user session(s) on this computer. ");
    EXPECT_EQ(RawGetStr(settings.sub(), L"LastLogoff"), tooLong) << "an oversized name is neither shown nor deleted";

    g_serviceState = 0; // a failed query reads as stopped
    panel.Refresh();
    EXPECT_EQ(LabelText(dlg, kIdStatusLine1) + L"|" + LabelText(dlg, kIdStatusLine2), kStoppedLink + L"|");
    panel.SetSettings(TRUE, FALSE, L"LDAP://cn={1},cn=policies", L"Sales");
    panel.Refresh();
    EXPECT_EQ(LabelText(dlg, kIdStatusLine1) + L"|" + LabelText(dlg, kIdStatusLine2), L"Managing the GPO:|Sales");
    DestroyWindow(dlg);
}
