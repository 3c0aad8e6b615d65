// The schedule grid: its cells and text, arrow-key rules and clock labels as plain functions;
// then the control and the schedule editor on real windows.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/StrUtil.h"
#include "config/DlgSchedule.h"
#include "config/ScheduleCtrl.h"
#include "resources/resource.h"
#include "support/Guards.h"
#include "ui/MsgBox.h"
#include "ui/UiSeams.h"

using vxtest::ScopedValue;
using Ints = std::vector<int>;

namespace {

std::wstring Text(const ScheduleGrid& g)
{
    std::vector<wchar_t> buf(g.GetText(nullptr, 0) + 1);
    g.GetText(buf.data(), (unsigned)buf.size());
    return buf.data();
}

const std::wstring kAllWeek = L"Mon 0:00-24:00, Tue 0:00-24:00, Wed 0:00-24:00, Thu 0:00-24:00, Fri 0:00-24:00, "
                              L"Sat 0:00-24:00, Sun 0:00-24:00";

TEST(ScheduleGrid, ReadsTheTextWritesItMondayFirstMergedInTimeOrderAndKeepsItsCellsOnABadText)
{
    struct Case { const wchar_t* in; std::wstring out; } cases[] = {
        {nullptr, kAllWeek},
        {L"Tue 8:00-12:00; Sun 23:30-24:00, Tue 11:00-13:00 Mon 0:00-0:30, Wed 1:00-1:30,Wed 2:00-2:30",
         L"Mon 0:00-0:30, Tue 8:00-13:00, Wed 1:00-1:30, Wed 2:00-2:30, Sun 23:30-24:00"},
        {L"Mon 8:15-9:00", L"Fri 9:00-10:00"}, // refused: the cells stay
    };
    for (const Case& c : cases) {
        ScheduleGrid g;
        ASSERT_TRUE(g.SetText(L"Fri 9:00-10:00"));
        EXPECT_EQ(g.SetText(c.in) != 0, c.out != L"Fri 9:00-10:00") << c.in;
        EXPECT_EQ(Text(g), c.out);
    }
    ScheduleGrid g;
    ASSERT_TRUE(g.SetText(L"Mon 8:30-9:30"));
    EXPECT_EQ(g.GetCell(Schedule::Monday, 8) << 4 | g.GetCell(Schedule::Monday, 9), 0xC3) << "the quarters it covers";
}

TEST(ScheduleGrid, AQuarterHourKeepsItsHalfHourSoTheEditorStoresThatWeekAsAlways)
{
    ScheduleGrid g;
    Schedule sch;
    ASSERT_TRUE(g.SetRange(Schedule::Monday, 33, 34, false)); // 8:15-8:30 off
    EXPECT_FALSE(g.IsAllOn());
    EXPECT_EQ(g.GetCell(Schedule::Monday, 8), 0x0D);
    sch.Set(L"Mon 8:00-9:00");
    ASSERT_TRUE(StoreGridSchedule(g, sch));
    EXPECT_TRUE(sch.IsDefault()) << "8:00-8:15 keeps the half-hour active";
    g.SetRange(Schedule::Monday, 32, 33, false);
    ASSERT_TRUE(StoreGridSchedule(g, sch));
    const std::wstring stored = std::wstring(kAllWeek).replace(0, 14, L"Mon 0:00-8:00, Mon 8:30-24:00");
    EXPECT_EQ(std::wstring(sch.Get()), stored);
    g.SetAll(false); // never active: no text says so, the empty one means "always"
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(StoreGridSchedule(g, sch));
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_DATA);
    EXPECT_EQ(std::wstring(sch.Get()), stored);
    g.SetRange(Schedule::Sunday, 95, 96, true); // the last quarter of the week
    for (const Ints& b : std::vector<Ints>{{-1, 0, 4}, {7, 0, 4}, {1, -1, 4}, {1, 0, 97}, {1, 4, 4}})
        EXPECT_FALSE(g.SetRange(b[0], b[1], b[2], true)) << b[0] << " " << b[1] << " " << b[2];
    EXPECT_EQ(Text(g), L"Sun 23:30-24:00");
}

TEST(ScheduleSel, ArrowsMoveTheSelectionOrOneCornerAndRefuseLeavingTheGridOrEmptyingIt)
{
    struct Case { POINT s, e; UINT vk; bool ctrl, shift; int moved; POINT s2, e2; } cases[] = {
        {{0, 0}, {0, 0}, VK_DOWN, false, false, 1, {0, 0}, {2, 1}},      // none: the first cell
        {{88, 1}, {94, 2}, VK_RIGHT, false, false, 1, {90, 1}, {96, 2}}, // plain: both corners, to the day's end
        {{2, 1}, {8, 2}, VK_LEFT, false, true, 1, {0, 1}, {8, 2}},       // Shift: the start only, to midnight
        {{4, 1}, {8, 6}, VK_DOWN, true, false, 1, {4, 1}, {8, 7}},       // Ctrl: the end only, to the last day
        {{4, 1}, {8, 2}, VK_UP, false, false, 1, {4, 0}, {8, 1}},        // to the first day
        {{4, 6}, {8, 7}, VK_DOWN, false, false, 0, {4, 6}, {8, 7}},      // past the last day
        {{0, 1}, {8, 2}, VK_LEFT, false, false, 0, {0, 1}, {8, 2}},      // before midnight
        {{90, 1}, {96, 2}, VK_RIGHT, false, false, 0, {90, 1}, {96, 2}}, // past the end of the day
        {{4, 1}, {6, 2}, VK_LEFT, true, false, 0, {4, 1}, {6, 2}},       // the end onto the start
        {{4, 1}, {6, 2}, VK_DOWN, false, true, 0, {4, 1}, {6, 2}},       // the start onto the end
        {{4, 1}, {6, 2}, VK_DOWN, true, true, 0, {4, 1}, {6, 2}},        // nothing would move
        {{4, 1}, {6, 2}, VK_HOME, false, false, 0, {4, 1}, {6, 2}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
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
        {&h24, 0, L"0:00"}, {&h24, 34, L"8:30"}, {&h24, 96, L"24:00"}, {&h24, -1, L""}, {&h24, 97, L""},
        {&h12, 0, L"12:00AM"}, {&h12, 48, L"12:00PM"}, {&h12, 53, L"1:15PM"}, {&h12, 96, L"12:00AM"},
    };
    for (const Case& c : cases) {
        wchar_t buf[16];
        c.clock->FormatTime(c.q, buf, 16);
        EXPECT_STREQ(buf, c.text) << c.q;
    }
    ScopedValue<Schedule::LocaleInfoFn> seam(Schedule::pfnGetLocaleInfo, [](unsigned long type, wchar_t* out, int cch) {
        const wchar_t* v = type == LOCALE_ITIME ? L"0" : type == LOCALE_S1159 ? L"vormittags" : L"nm";
        return (int)StrCopy(out, (unsigned)cch, v) + 1;
    });
    ScheduleClock loaded;
    loaded.Load();
    EXPECT_FALSE(loaded.b24Hour);
    EXPECT_STREQ(loaded.szAM, L"vormittag") << "at most 9 characters";
    EXPECT_STREQ(loaded.szPM, L"nm");
}

// ---- On real windows --------------------------------------------------------------------------

int g_nBeeps = 0;
BOOL CountBeep(UINT) { return ++g_nBeeps, TRUE; }
std::vector<std::wstring> g_menuItems;
UINT g_menuChoice = 0;
BOOL FakeTrack(HMENU menu, UINT, int, int, HWND, const TPMPARAMS*) // records the items, "chooses" one
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
    void Mouse(UINT msg, LPARAM at) { SendMessageW(ctrl.GetHwnd(), msg, msg == WM_LBUTTONUP ? 0 : MK_LBUTTON, at); }
    Ints Range() const
    {
        int q0 = -1, q1 = -1, r0 = -1, r1 = -1;
        ctrl.ParseSelection(&q0, &q1, &r0, &r1);
        return {q0, q1, r0, r1};
    }
    const Schedule::Day week[7] = {Schedule::Monday,   Schedule::Tuesday, Schedule::Wednesday, Schedule::Thursday,
                                   Schedule::Friday,   Schedule::Saturday, Schedule::Sunday};
    ScopedValue<BOOL (*)(UINT)> beep{ScheduleSeams::pfnMessageBeep, &CountBeep};
    DMWnd host;
    ScheduleCtrl ctrl;
};

TEST_F(ScheduleWnd, TheMouseSelectsBothCellsHeldToTheGridAndArrowKeysReadCtrlAndBeepWhenRefused)
{
    const HWND h = ctrl.GetHwnd();
    const int third = ctrl.GetLayout().ColumnWidth() / 2 + 1; // into the third quarter of the hour
    Mouse(WM_LBUTTONDOWN, At(32, 1, third));
    EXPECT_EQ(GetCapture(), h);
    EXPECT_EQ(Range(), (Ints{34, 36, 1, 2})) << "a click in the third quarter selects from the half-hour";
    Mouse(WM_MOUSEMOVE, MAKELPARAM(5000, 5000));
    EXPECT_EQ(Range(), (Ints{34, 96, 1, 7}));
    Mouse(WM_LBUTTONUP, MAKELPARAM(0, 0)); // released above and left of the grid
    EXPECT_EQ(GetCapture(), nullptr);
    SendMessageW(h, WM_MOUSEMOVE, 0, At(80, 6)); // released: nothing follows
    EXPECT_EQ(Range(), (Ints{0, 36, 0, 2}));
    EXPECT_STREQ(ctrl.GetSelectionText(), L"Selected: Monday to Tuesday, from 0:00 to 9:00");
    EXPECT_FALSE(ctrl.SetGranularity(3));
    EXPECT_TRUE(ctrl.SetGranularity(4));
    EXPECT_EQ(Range(), (Ints{-1, -1, -1, -1})) << "a new granularity drops the selection";
    EXPECT_STREQ(ctrl.GetSelectionText(), L"Drag over the grid or use the arrow keys to select a time range.");
    Mouse(WM_LBUTTONDOWN, At(32, 0, third));
    Mouse(WM_LBUTTONUP, At(32, 0, third));
    EXPECT_STREQ(ctrl.GetSelectionText(), L"Selected: Monday, from 8:30 to 8:45");
    Mouse(WM_LBUTTONDOWN, MAKELPARAM(1, 1)); // on the labels: no selection starts
    EXPECT_EQ(GetCapture(), nullptr);

    EXPECT_EQ(SendMessageW(h, WM_GETDLGCODE, 0, 0) & DLGC_WANTARROWS, DLGC_WANTARROWS);
    BYTE keys[256] = {};
    keys[VK_CONTROL] = 0x80; // Ctrl: only the end moves, a quarter-hour at this granularity
    SetKeyboardState(keys);
    SendMessageW(h, WM_KEYDOWN, VK_RIGHT, 0);
    keys[VK_CONTROL] = 0;
    SetKeyboardState(keys);
    SendMessageW(h, WM_KEYDOWN, VK_UP, 0); // above the first day
    EXPECT_EQ(g_nBeeps, 1);
    EXPECT_EQ(Range(), (Ints{34, 36, 0, 1}));
}

TEST_F(ScheduleWnd, TheContextMenuOffersWhatTheSelectionAllowsAndCarriesItOut)
{
    ScopedValue<decltype(UiSeams::pfnTrackPopupMenuEx)> track(UiSeams::pfnTrackPopupMenuEx, &FakeTrack);
    ctrl.SetLegendText(L"Active", L"Inactive");
    auto menu = [this](UINT choice) {
        g_menuChoice = choice;
        SendMessageW(ctrl.GetHwnd(), WM_CONTEXTMENU, (WPARAM)ctrl.GetHwnd(), -1);
    };
    menu(0);
    EXPECT_EQ(g_menuItems, (std::vector<std::wstring>{L"903 Select all"}));
    Mouse(WM_LBUTTONDOWN, At(32, 0, 1)); // Monday 8:00-8:30
    Mouse(WM_LBUTTONUP, At(32, 0, 1));
    menu(kCmdSetInactive);
    EXPECT_EQ(g_menuItems, (std::vector<std::wstring>{L"901 Set selected to Active", L"902 Set selected to Inactive",
                                                      L"904 Clear selection", L"0 ", L"903 Select all"}));
    EXPECT_FALSE(ctrl.GetGrid().IsHalfHourOn(Schedule::Monday, 16));
    EXPECT_TRUE(ctrl.GetGrid().IsHalfHourOn(Schedule::Monday, 17));
    menu(kCmdSetActive);
    EXPECT_TRUE(ctrl.IsAllOn());
    menu(kCmdSelectAll);
    EXPECT_EQ(Range(), (Ints{0, 96, 0, 7}));
    menu(kCmdClearSelection);
    EXPECT_EQ(Range(), (Ints{-1, -1, -1, -1}));
}

TEST_F(ScheduleWnd, TheWindowTextIsTheScheduleABadTextChangesNothingAndA12HourClockPaints)
{
    const HWND h = ctrl.GetHwnd();
    EXPECT_TRUE(SetWindowTextW(h, L"fri 8:00-12:00 Fri 13:00-17:00"));
    EXPECT_FALSE(SetWindowTextW(h, L"Fri 8:00-25:00"));
    EXPECT_EQ(GetWindowTextLengthW(h), 31);
    wchar_t buf[64];
    memset(buf, 0xbd, sizeof(buf));
    EXPECT_EQ(GetWindowTextW(h, buf, 64), 31);
    EXPECT_STREQ(buf, L"Fri 8:00-12:00, Fri 13:00-17:00");
    EXPECT_EQ(GetWindowTextW(h, buf, 10), 9);
    EXPECT_STREQ(buf, L"Fri 8:00-");
    EXPECT_EQ(ctrl.GetSchedule(buf, 10), 31u) << "the whole length, whatever fits";
    ScheduleClock twelve;
    twelve.b24Hour = false;
    ctrl.SetClock(twelve);
    ctrl.SelectAll();
    ShowWindow(host.GetHwnd(), SW_SHOW);
    EXPECT_TRUE(RedrawWindow(h, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW));
    EXPECT_FALSE(GetUpdateRect(h, nullptr, FALSE)) << "painted, with a selection";
}

// The editor, modeless, on the product's dialog: pressed as a user would.
TEST(DlgSchedule, ShowsTheScheduleStoresAnAlwaysActiveWeekAsEmptyAndRefusesANeverActiveOne)
{
    vxtest::ScopedResourceModule res(L"VXDA64.DLL");
    ASSERT_NE(res.module(), nullptr);
    struct Case { const wchar_t* start; UINT press; const wchar_t* stored; } cases[] = {
        {L"Mon 8:00-9:00", 0, L"Mon 8:00-9:00"},
        {L"Mon 8:00-9:00", IDC_SCHEDULE_ACTIVE, L""},       // all selected, set active: "always"
        {L"Tue 1:00-2:00", IDC_SCHEDULE_INACTIVE, nullptr}, // never active: refused, the editor stays
    };
    static wchar_t boxText[512]; // the message box's text, read and closed by its timer
    MsgExSetTimerCallback(50, [](HWND box, unsigned, void*) {
        return GetDlgItemTextW(box, IDC_MSGEX_TEXT, boxText, 512), (int)IDOK;
    }, nullptr);
    struct Reset { ~Reset() { MsgExSetTimerCallback(0, nullptr, nullptr); } } reset; // also after a failed ASSERT
    for (const Case& c : cases) {
        SCOPED_TRACE(c.start);
        Schedule sch;
        sch.Set(c.start);
        DlgSchedule dlg(sch);
        ASSERT_TRUE(dlg.Create(nullptr));
        RECT rc;
        ASSERT_EQ(DMWnd::FromHandle(dlg.GetItem(IDC_SCHEDULE_GRID)), &dlg.GetGrid()) << "the grid is control 1048";
        GetClientRect(dlg.GetGrid().GetHwnd(), &rc);
        const SIZE need = dlg.GetGrid().GetIdealSize();
        EXPECT_TRUE(need.cx <= rc.right && need.cy <= rc.bottom) << "the grid fits its place";
        if (c.press) {
            dlg.GetGrid().SelectAll();
            SendMessageW(dlg.GetHwnd(), WM_COMMAND, c.press, 0);
            SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDC_SCHEDULE_CLEAR, 0);
            EXPECT_TRUE(dlg.GetGrid().GetSelection().IsEmpty());
        }
        boxText[0] = 0;
        SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDOK, 0);
        EXPECT_EQ(dlg.IsBound(), !c.stored);
        EXPECT_EQ(wcsstr(boxText, L"at least one period as active") != nullptr, !c.stored) << boxText;
        EXPECT_STREQ(sch.Get(), c.stored ? c.stored : c.start);
        SendMessageW(dlg.GetHwnd(), WM_COMMAND, IDCANCEL, 0); // closes a refused editor
    }
}

} // namespace
