// The schedule grid: its cells and text round trip, snapping, selection and arrow-key rules and
// clock labels as plain functions; then the control and the schedule editor on real windows
// (mouse with capture, keys with beeps, the context menu, text messages, paint).
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/DlgSchedule.h"
#include "config/ScheduleCtrl.h"
#include "resources/resource.h"
#include "base/StrUtil.h"
#include "support/Guards.h"
#include "ui/DMWnd.h"
#include "ui/MsgBox.h"
#include "ui/UiSeams.h"

using vxtest::ScopedValue;

namespace {

std::wstring Text(const ScheduleGrid& g)
{
    std::vector<wchar_t> buf(g.GetText(nullptr, 0) + 1);
    g.GetText(buf.data(), (unsigned)buf.size());
    return buf.data();
}

const wchar_t* kAllWeek = L"Mon 0:00-24:00, Tue 0:00-24:00, Wed 0:00-24:00, Thu 0:00-24:00, Fri 0:00-24:00, "
                          L"Sat 0:00-24:00, Sun 0:00-24:00";

TEST(ScheduleGrid, ReadsTheScheduleTextAndWritesItBackMondayFirstMergedAndInTimeOrder)
{
    struct Case { const wchar_t* in; const wchar_t* out; } cases[] = {
        {nullptr, kAllWeek},
        {L"", kAllWeek},
        {L"*", kAllWeek},
        {L"mon 8:00-17:00", L"Mon 8:00-17:00"},
        {L"Tue 8:00-12:00; Sun 23:30-24:00, Tue 11:00-13:00 Mon 0:00-0:30", // overlap merges
         L"Mon 0:00-0:30, Tue 8:00-13:00, Sun 23:30-24:00"},
        {L"Sat 24:00-1:00", L"Sat 0:00-1:00"},
        {L"Wed 1:00-1:30,Wed 2:00-2:30", L"Wed 1:00-1:30, Wed 2:00-2:30"},
        {L"Thu 1:00-1:30,Thu 1:30-2:00", L"Thu 1:00-2:00"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.in ? c.in : L"(null)");
        ScheduleGrid g;
        g.SetAll(false);
        EXPECT_TRUE(g.SetText(c.in));
        EXPECT_EQ(Text(g), c.out);
        ScheduleGrid back; // what it writes reads back to the same cells
        EXPECT_TRUE(back.SetText(Text(g).c_str()));
        EXPECT_EQ(Text(back), c.out);
    }
}

TEST(ScheduleGrid, RefusesATextThatDoesNotParseAndKeepsTheCells)
{
    for (const wchar_t* bad : {L"Mon 8:15-9:00", L"Monday 8:00-9:00", L"Mon 9:00-9:00", L"Mon 10:00-9:00",
                               L"Mon 8:00-12:00Tue 8:00-12:00", L"Mon 23:00-24:30"}) {
        SCOPED_TRACE(bad);
        ScheduleGrid g;
        ASSERT_TRUE(g.SetText(L"Fri 9:00-10:00"));
        EXPECT_FALSE(g.SetText(bad));
        EXPECT_EQ(Text(g), L"Fri 9:00-10:00");
    }
}

TEST(ScheduleGrid, AQuarterHourKeepsItsHalfHourActiveAndOnlyAWholeWeekIsAllOn)
{
    ScheduleGrid g;
    EXPECT_TRUE(g.IsAllOn());
    EXPECT_TRUE(g.SetRange(Schedule::Monday, 33, 34, false)); // 8:15-8:30 off
    EXPECT_FALSE(g.IsAllOn());
    EXPECT_TRUE(g.IsAllHalfHoursOn()) << "8:00-8:15 still keeps the half-hour";
    EXPECT_EQ(g.GetCell(Schedule::Monday, 8), 0x0D);
    EXPECT_TRUE(g.SetRange(Schedule::Monday, 32, 33, false));
    EXPECT_FALSE(g.IsAllHalfHoursOn());
    g.SetAll(false);
    EXPECT_EQ(Text(g), L"") << "an inactive week";
    g.SetRange(Schedule::Sunday, 95, 96, true); // the last quarter of the week
    EXPECT_EQ(Text(g), L"Sun 23:30-24:00");
    struct Bad { int day, q0, q1; } bad[] = {{-1, 0, 4}, {7, 0, 4}, {1, -1, 4}, {1, 0, 97}, {1, 4, 4}, {1, 5, 4}};
    for (const Bad& b : bad) {
        EXPECT_FALSE(g.SetRange(b.day, b.q0, b.q1, true)) << b.day << " " << b.q0 << " " << b.q1;
        EXPECT_EQ(Text(g), L"Sun 23:30-24:00");
    }
}

TEST(ScheduleGrid, GivesTheWholeLengthAndCutsTheCopyToTheBuffer)
{
    ScheduleGrid g;
    const unsigned n = g.GetText(nullptr, 0);
    EXPECT_EQ(n, (unsigned)wcslen(kAllWeek));
    wchar_t small[12];
    memset(small, 0xbd, sizeof(small));
    EXPECT_EQ(g.GetText(small, 12), n);
    EXPECT_STREQ(small, L"Mon 0:00-24");
}

TEST(ScheduleGrid, TheEditorStoresAWeekActiveEveryHalfHourAsTheEmptySchedule)
{
    ScheduleGrid g;
    Schedule sch;
    sch.Set(L"Mon 8:00-9:00");
    g.SetRange(Schedule::Tuesday, 0, 1, false); // a quarter off: its half-hour is still active
    ASSERT_TRUE(StoreGridSchedule(g, sch));
    EXPECT_TRUE(sch.IsDefault());
    g.SetRange(Schedule::Tuesday, 0, 2, false);
    ASSERT_TRUE(StoreGridSchedule(g, sch));
    EXPECT_EQ(std::wstring(sch.Get()), std::wstring(kAllWeek).replace(16, 14, L"Tue 0:30-24:00"));
}

TEST(ScheduleLayout, SnapsDownToWholeStepsAndRowsHeldToTheGrid)
{
    struct Case { int hourWidth, gran, x; bool up; int snapped; } cases[] = {
        {20, 2, 50 + 40 + 14, false, 50 + 40 + 10}, // third quarter of hour 2: from the half-hour
        {20, 2, 50 + 40 + 14, true, 50 + 40 + 20},
        {20, 1, 50 + 40 + 19, false, 50 + 40},
        {20, 4, 50 + 40 + 6, false, 50 + 40 + 5},
        {20, 4, 50 + 40 + 5, false, 50 + 40 + 5},
        {20, 2, 10, false, 50},             // left of the grid
        {20, 2, 5000, true, 50 + 24 * 20},  // right of it, even rounded up
        {10, 4, 50 + 9, false, 50 + 8},     // 10 / 4: steps of 2, hours of 8
    };
    for (const Case& c : cases) {
        ScheduleLayout l;
        l.left = 50, l.top = 30, l.hourWidth = c.hourWidth, l.granularity = c.gran, l.rowHeight = 17;
        EXPECT_EQ(l.SnapHoriz(c.x, c.up), c.snapped) << c.hourWidth << "/" << c.gran << " x " << c.x;
    }
    ScheduleLayout l;
    l.top = 30, l.rowHeight = 17;
    EXPECT_EQ(l.SnapVert(30 + 17 + 16, false), 30 + 17);
    EXPECT_EQ(l.SnapVert(30 + 17 + 16, true), 30 + 34);
    EXPECT_EQ(l.SnapVert(-100, false), 30);
    EXPECT_EQ(l.SnapVert(1000, true), 30 + 7 * 17);
    EXPECT_EQ(l.RowAt(1000), 6);
    EXPECT_EQ(l.RowAt(29), 0);
    EXPECT_EQ(l.StepAt(-5), 0);
    EXPECT_EQ(l.StepAt(100000), 47);
}

TEST(ScheduleSel, TheMouseSelectionHoldsThePressedCellAndThePointersCell)
{
    ScheduleLayout l; // granularity 2: two quarters a step
    struct Case { int sa, ra, sn, rn; POINT start, end; int q0, q1, r0, r1; } cases[] = {
        {17, 1, 17, 1, {34, 1}, {36, 2}, 34, 36, 1, 2},
        {17, 1, 20, 3, {34, 1}, {42, 4}, 34, 42, 1, 4},
        {17, 3, 15, 0, {36, 4}, {30, 0}, 30, 36, 0, 4},
    };
    for (const Case& c : cases) {
        ScheduleSel s;
        s.FromCells(l, c.sa, c.ra, c.sn, c.rn);
        EXPECT_EQ(std::make_pair(s.ptStart.x, s.ptStart.y), std::make_pair(c.start.x, c.start.y));
        EXPECT_EQ(std::make_pair(s.ptEnd.x, s.ptEnd.y), std::make_pair(c.end.x, c.end.y));
        int q0, q1, r0, r1;
        s.GetRange(&q0, &q1, &r0, &r1);
        EXPECT_EQ(std::vector<int>({q0, q1, r0, r1}), std::vector<int>({c.q0, c.q1, c.r0, c.r1}));
    }
}

TEST(ScheduleSel, ArrowsMoveTheSelectionOrOneCornerAndRefuseLeavingTheGridOrEmptyingIt)
{
    struct Case { POINT s, e; UINT vk; bool ctrl, shift; int moved; POINT s2, e2; } cases[] = {
        {{0, 0}, {0, 0}, VK_DOWN, false, false, 1, {0, 0}, {2, 1}},      // none: the first cell
        {{4, 1}, {8, 2}, VK_RIGHT, false, false, 1, {6, 1}, {10, 2}},    // plain: both corners
        {{4, 1}, {8, 2}, VK_RIGHT, true, false, 1, {4, 1}, {10, 2}},     // Ctrl: the end only
        {{4, 1}, {8, 2}, VK_LEFT, false, true, 1, {2, 1}, {8, 2}},       // Shift: the start only
        {{4, 1}, {8, 2}, VK_UP, false, false, 1, {4, 0}, {8, 1}},
        {{4, 6}, {8, 7}, VK_DOWN, false, false, 0, {4, 6}, {8, 7}},      // past the last day
        {{0, 1}, {8, 2}, VK_LEFT, false, false, 0, {0, 1}, {8, 2}},      // past midnight
        {{90, 1}, {96, 2}, VK_RIGHT, false, false, 0, {90, 1}, {96, 2}}, // past the end of the day
        {{4, 1}, {6, 2}, VK_LEFT, true, false, 0, {4, 1}, {6, 2}},       // the end onto the start
        {{4, 1}, {6, 2}, VK_DOWN, false, true, 0, {4, 1}, {6, 2}},       // the start onto the end
        {{4, 1}, {6, 2}, VK_DOWN, true, true, 0, {4, 1}, {6, 2}},        // nothing would move
        {{4, 1}, {6, 2}, VK_HOME, false, false, 0, {4, 1}, {6, 2}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.vk << " ctrl " << c.ctrl << " shift " << c.shift << " from " << c.s.x
                                        << "," << c.s.y);
        ScheduleSel s;
        s.ptStart = c.s, s.ptEnd = c.e;
        EXPECT_EQ(s.MoveByKey(c.vk, c.ctrl, c.shift, 2), c.moved);
        EXPECT_EQ(std::vector<LONG>({s.ptStart.x, s.ptStart.y, s.ptEnd.x, s.ptEnd.y}),
                  std::vector<LONG>({c.s2.x, c.s2.y, c.e2.x, c.e2.y}));
    }
}

TEST(ScheduleClock, WritesHoursOnTheLocalesClockAndReadsItsDesignators)
{
    ScheduleClock h24, h12;
    h12.b24Hour = false;
    struct Case { const ScheduleClock* clock; int q; const wchar_t* text; } cases[] = {
        {&h24, 0, L"0:00"}, {&h24, 34, L"8:30"}, {&h24, 95, L"23:45"}, {&h24, 96, L"24:00"},
        {&h12, 0, L"12:00AM"}, {&h12, 34, L"8:30AM"}, {&h12, 48, L"12:00PM"}, {&h12, 53, L"1:15PM"},
        {&h12, 96, L"12:00AM"}, {&h24, -1, L""}, {&h24, 97, L""},
    };
    for (const Case& c : cases) {
        wchar_t buf[16];
        c.clock->FormatTime(c.q, buf, 16);
        EXPECT_STREQ(buf, c.text) << c.q;
    }
    static auto fake = [](unsigned long type, wchar_t* out, int cch) -> int {
        const wchar_t* v = type == LOCALE_ITIME ? L"0" : type == LOCALE_S1159 ? L"vormittags" : L"nm";
        return (int)StrCopy(out, (unsigned)cch, v) + 1;
    };
    ScopedValue<Schedule::LocaleInfoFn> seam(Schedule::pfnGetLocaleInfo, +fake);
    ScheduleClock loaded;
    loaded.Load();
    EXPECT_FALSE(loaded.b24Hour);
    EXPECT_STREQ(loaded.szAM, L"vormittag") << "at most 9 characters";
    EXPECT_STREQ(loaded.szPM, L"nm");
}

TEST(ScheduleText, DescribesTheSelectedRangeInWords)
{
    const wchar_t* const days[7] = {L"Monday", L"Tuesday", L"Wednesday", L"Thursday", L"Friday", L"Saturday",
                                    L"Sunday"};
    ScheduleClock clock;
    struct Case { POINT s, e; const wchar_t* text; } cases[] = {
        {{0, 0}, {0, 0}, L"Drag over the grid or use the arrow keys to select a time range."},
        {{32, 0}, {36, 1}, L"Selected: Monday, from 8:00 to 9:00"},
        {{70, 5}, {34, 0}, L"Selected: Monday to Friday, from 8:30 to 17:30"},
        {{0, 0}, {96, 7}, L"Selected: Monday to Sunday, from 0:00 to 24:00"},
    };
    for (const Case& c : cases) {
        ScheduleSel s;
        s.ptStart = c.s, s.ptEnd = c.e;
        wchar_t buf[256];
        FormatSelectionText(s, clock, days, buf, 256);
        EXPECT_STREQ(buf, c.text);
    }
}

// ---- On real windows --------------------------------------------------------------------------

int g_nBeeps = 0;
BOOL CountBeep(UINT) { return ++g_nBeeps, TRUE; }
std::vector<std::wstring> g_menuItems;
UINT g_menuChoice = 0;
BOOL FakeTrack(HMENU menu, UINT, int, int, HWND, const TPMPARAMS*)
{
    g_menuItems.clear();
    for (int i = 0; i < GetMenuItemCount(menu); ++i) {
        wchar_t text[128] = L"";
        GetMenuStringW(menu, i, text, 128, MF_BYPOSITION);
        g_menuItems.push_back(std::to_wstring(GetMenuItemID(menu, i)) + L" " + text);
    }
    return (BOOL)g_menuChoice;
}

class ScheduleWnd : public testing::Test {
protected:
    void SetUp() override
    {
        g_nBeeps = 0;
        ASSERT_TRUE(host.Create(nullptr, L"host", WS_OVERLAPPEDWINDOW));
        RECT rc = {0, 0, 600, 260};
        ASSERT_TRUE(ctrl.Create(host.GetHwnd(), L"", WS_CHILD | WS_VISIBLE, 0, &rc, 1048));
        ctrl.SetDisplayDays(week);
        ctrl.SetZoomFactor(2);
        ctrl.SetClock(ScheduleClock()); // the 24-hour clock, whatever the prefix's locale
    }
    LPARAM At(int q, int row, int dx = 0) const // a client point in quarter q of row
    {
        const ScheduleLayout& l = ctrl.GetLayout();
        return MAKELPARAM(l.XOfQuarter(q) + dx, l.YOfRow(row) + l.rowHeight / 2);
    }
    std::vector<int> Range() const
    {
        int q0 = -1, q1 = -1, r0 = -1, r1 = -1;
        ctrl.ParseSelection(&q0, &q1, &r0, &r1);
        return {q0, q1, r0, r1};
    }
    void Key(UINT vk, bool ctrlDown, bool shiftDown)
    {
        BYTE keys[256] = {};
        keys[VK_CONTROL] = ctrlDown ? 0x80 : 0;
        keys[VK_SHIFT] = shiftDown ? 0x80 : 0;
        SetKeyboardState(keys);
        SendMessageW(ctrl.GetHwnd(), WM_KEYDOWN, vk, 0);
        keys[VK_CONTROL] = keys[VK_SHIFT] = 0;
        SetKeyboardState(keys);
    }
    const Schedule::Day week[7] = {Schedule::Monday,   Schedule::Tuesday, Schedule::Wednesday, Schedule::Thursday,
                                   Schedule::Friday,   Schedule::Saturday, Schedule::Sunday};
    ScopedValue<BOOL (*)(UINT)> beep{ScheduleSeams::pfnMessageBeep, &CountBeep};
    DMWnd host;
    ScheduleCtrl ctrl;
};

TEST_F(ScheduleWnd, DraggingSelectsFromTheSnappedPressWithTheMouseCapturedUntilRelease)
{
    const HWND h = ctrl.GetHwnd();
    const int third = ctrl.GetLayout().ColumnWidth() / 2 + 1; // into the third quarter of the hour
    SendMessageW(h, WM_LBUTTONDOWN, MK_LBUTTON, At(32, 1, third));
    EXPECT_EQ(GetCapture(), h);
    EXPECT_EQ(Range(), (std::vector<int>{34, 36, 1, 2})) << "a click in the third quarter selects from the half-hour";
    SendMessageW(h, WM_MOUSEMOVE, MK_LBUTTON, At(40, 3, 1));
    EXPECT_EQ(Range(), (std::vector<int>{34, 42, 1, 4}));
    SendMessageW(h, WM_LBUTTONUP, 0, At(28, 3, 1)); // released left of the press
    EXPECT_EQ(GetCapture(), nullptr);
    EXPECT_FALSE(ctrl.IsSelecting());
    EXPECT_EQ(Range(), (std::vector<int>{28, 36, 1, 4}));
    SendMessageW(h, WM_MOUSEMOVE, 0, At(80, 6)); // no button: nothing follows
    EXPECT_EQ(Range(), (std::vector<int>{28, 36, 1, 4}));
    EXPECT_STREQ(ctrl.GetSelectionText(), L"Selected: Tuesday to Thursday, from 7:00 to 9:00");
    ctrl.SetGranularity(4);
    EXPECT_EQ(Range(), (std::vector<int>{-1, -1, -1, -1})) << "a new granularity drops the selection";
    SendMessageW(h, WM_LBUTTONDOWN, MK_LBUTTON, At(32, 0, third));
    SendMessageW(h, WM_LBUTTONUP, 0, At(32, 0, third));
    EXPECT_EQ(Range(), (std::vector<int>{34, 35, 0, 1}));
    SendMessageW(h, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(1, 1)); // on the labels: no selection starts
    EXPECT_EQ(GetCapture(), nullptr);
}

TEST_F(ScheduleWnd, ArrowKeysFollowCtrlAndShiftAndBeepAtTheEdges)
{
    const HWND h = ctrl.GetHwnd();
    EXPECT_EQ(SendMessageW(h, WM_GETDLGCODE, 0, 0) & DLGC_WANTARROWS, DLGC_WANTARROWS);
    Key(VK_RIGHT, false, false);
    EXPECT_EQ(Range(), (std::vector<int>{0, 2, 0, 1}));
    Key(VK_RIGHT, true, false);
    Key(VK_DOWN, true, false);
    EXPECT_EQ(Range(), (std::vector<int>{0, 4, 0, 2}));
    Key(VK_RIGHT, false, true);
    EXPECT_EQ(Range(), (std::vector<int>{2, 4, 0, 2}));
    for (int i = 0; i < 5; ++i)
        Key(VK_DOWN, false, false);
    EXPECT_EQ(Range(), (std::vector<int>{2, 4, 5, 7}));
    EXPECT_EQ(g_nBeeps, 0);
    Key(VK_DOWN, false, false);
    EXPECT_EQ(g_nBeeps, 1) << "past the last day";
    EXPECT_EQ(Range(), (std::vector<int>{2, 4, 5, 7}));
    Key(VK_LEFT, true, false); // the end onto the start
    EXPECT_EQ(g_nBeeps, 2);
    EXPECT_EQ(Range(), (std::vector<int>{2, 4, 5, 7}));
}

TEST_F(ScheduleWnd, TheContextMenuOffersWhatTheSelectionAllowsAndCarriesItOut)
{
    ScopedValue<decltype(UiSeams::pfnTrackPopupMenuEx)> track(UiSeams::pfnTrackPopupMenuEx, &FakeTrack);
    ctrl.SetLegendText(L"Active", L"Inactive");
    const HWND h = ctrl.GetHwnd();
    g_menuChoice = 0;
    SendMessageW(h, WM_CONTEXTMENU, (WPARAM)h, -1);
    EXPECT_EQ(g_menuItems, (std::vector<std::wstring>{L"903 Select all"}));
    SendMessageW(h, WM_LBUTTONDOWN, MK_LBUTTON, At(32, 0, 1)); // Monday 8:00-8:30
    SendMessageW(h, WM_LBUTTONUP, 0, At(32, 0, 1));
    g_menuChoice = kCmdSetInactive;
    POINT pt = {10, 10};
    ClientToScreen(h, &pt);
    SendMessageW(h, WM_CONTEXTMENU, (WPARAM)h, MAKELPARAM(pt.x, pt.y));
    EXPECT_EQ(g_menuItems, (std::vector<std::wstring>{L"901 Set selected to Active", L"902 Set selected to Inactive",
                                                      L"904 Clear selection", L"0 ", L"903 Select all"}));
    EXPECT_FALSE(ctrl.IsAllOn());
    EXPECT_FALSE(ctrl.GetGrid().IsHalfHourOn(Schedule::Monday, 16));
    EXPECT_TRUE(ctrl.GetGrid().IsHalfHourOn(Schedule::Monday, 17));
    g_menuChoice = kCmdSetActive;
    SendMessageW(h, WM_CONTEXTMENU, (WPARAM)h, -1);
    EXPECT_TRUE(ctrl.IsAllOn());
    g_menuChoice = kCmdSelectAll;
    SendMessageW(h, WM_CONTEXTMENU, (WPARAM)h, -1);
    EXPECT_EQ(Range(), (std::vector<int>{0, 96, 0, 7}));
    g_menuChoice = kCmdSetInactive;
    SendMessageW(h, WM_CONTEXTMENU, (WPARAM)h, -1);
    EXPECT_EQ(ctrl.GetSchedule(nullptr, 0), 0u);
    g_menuChoice = kCmdClearSelection;
    SendMessageW(h, WM_CONTEXTMENU, (WPARAM)h, -1);
    EXPECT_EQ(Range(), (std::vector<int>{-1, -1, -1, -1}));
}

TEST_F(ScheduleWnd, TheWindowTextIsTheScheduleAndABadTextChangesNothing)
{
    const HWND h = ctrl.GetHwnd();
    EXPECT_TRUE(SetWindowTextW(h, L"fri 8:00-12:00 Fri 13:00-17:00"));
    EXPECT_EQ(GetWindowTextLengthW(h), 31);
    wchar_t buf[64];
    memset(buf, 0xbd, sizeof(buf));
    EXPECT_EQ(GetWindowTextW(h, buf, 64), 31);
    EXPECT_STREQ(buf, L"Fri 8:00-12:00, Fri 13:00-17:00");
    EXPECT_FALSE(SetWindowTextW(h, L"Fri 8:00-25:00"));
    EXPECT_EQ(GetWindowTextW(h, buf, 10), 9);
    EXPECT_STREQ(buf, L"Fri 8:00-");
    // Painted with a selection, at every granularity and at a 12-hour clock, without a fault.
    ScheduleClock twelve;
    twelve.b24Hour = false;
    ctrl.SetClock(twelve);
    ctrl.SelectAll();
    const unsigned before = DMWnd::GetCaughtExceptionCount();
    ShowWindow(host.GetHwnd(), SW_SHOW);
    for (int g : {1, 2, 4}) {
        EXPECT_TRUE(ctrl.SetGranularity(g));
        EXPECT_TRUE(RedrawWindow(h, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW));
    }
    EXPECT_FALSE(ctrl.SetGranularity(3));
    EXPECT_EQ(ctrl.GetGranularity(), 4);
    EXPECT_EQ(DMWnd::GetCaughtExceptionCount(), before);
    EXPECT_FALSE(GetUpdateRect(h, nullptr, FALSE)) << "the paint was done";
}

// The editor, modeless, on the product's dialog: pressed as a user would.
struct ScheduleDlgCase { const wchar_t* start; bool bSelect, bInactive; const wchar_t* stored; };

TEST(DlgSchedule, ShowsTheScheduleSetsTheSelectionAndStoresAnAlwaysActiveWeekAsEmpty)
{
    vxtest::ScopedResourceModule res(L"VXDA64.DLL");
    ASSERT_NE(res.module(), nullptr);
    ScheduleDlgCase cases[] = {
        {nullptr, false, false, L""},                           // none: the default, stored as empty
        {L"Mon 8:00-9:00", false, false, L"Mon 8:00-9:00"},
        {L"Mon 8:00-9:00", true, false, L""},                   // all selected, set active: "always"
        {L"Mon 8:00-99:00", false, false, L""},                 // unreadable: shown active all week
    };
    for (const ScheduleDlgCase& c : cases) {
        SCOPED_TRACE(c.start ? c.start : L"(none)");
        Schedule sch;
        sch.Set(c.start);
        DlgSchedule dlg(sch);
        ASSERT_TRUE(dlg.Create(nullptr));
        HWND grid = dlg.GetItem(IDC_SCHEDULE_GRID);
        ASSERT_EQ(DMWnd::FromHandle(grid), &dlg.GetGrid()) << "the grid is control 1048";
        RECT rc;
        GetClientRect(grid, &rc);
        const SIZE need = dlg.GetGrid().GetIdealSize();
        EXPECT_LE(need.cx, rc.right) << "the grid fits its place";
        EXPECT_LE(need.cy, rc.bottom);
        if (c.bSelect) {
            dlg.GetGrid().SelectAll();
            SendMessageW(dlg.GetHwnd(), WM_COMMAND, c.bInactive ? IDC_SCHEDULE_INACTIVE : IDC_SCHEDULE_ACTIVE, 0);
            SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDC_SCHEDULE_CLEAR, 0);
            EXPECT_TRUE(dlg.GetGrid().GetSelection().IsEmpty());
        }
        SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDOK, 0);
        EXPECT_FALSE(dlg.IsBound());
        EXPECT_STREQ(sch.Get(), c.stored);
    }
    Schedule kept;
    kept.Set(L"Tue 1:00-2:00");
    DlgSchedule dlg(kept);
    ASSERT_TRUE(dlg.Create(nullptr));
    dlg.GetGrid().SelectAll();
    SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDC_SCHEDULE_INACTIVE, 0);
    static std::wstring boxText;
    MsgExSetTimerCallback(50, [](HWND box, unsigned, void*) {
        wchar_t t[512] = L"";
        GetDlgItemTextW(box, IDC_MSGEX_TEXT, t, 512);
        boxText = t;
        return (int)IDOK;
    }, nullptr);
    SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDOK, 0);
    MsgExSetTimerCallback(0, nullptr, nullptr);
    EXPECT_NE(boxText.find(L"at least one period as active"), std::wstring::npos) << "a week never active is refused";
    EXPECT_TRUE(dlg.IsBound()) << "and the editor stays open";
    EXPECT_STREQ(kept.Get(), L"Tue 1:00-2:00");
    SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDCANCEL, 0);
    EXPECT_FALSE(dlg.IsBound());
    EXPECT_STREQ(kept.Get(), L"Tue 1:00-2:00") << "Cancel writes nothing back";
}

} // namespace
