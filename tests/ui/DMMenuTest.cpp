// DMMenu: building popups in code and from the resources, item states, where a menu under a
// control is placed (through the tracking seam), and real tracking answered by keystrokes.
#include <gtest/gtest.h>

#include <algorithm>

#include "WndTestSupport.h"
#include "ui/DMMenu.h"
#include "ui/UiSeams.h"

namespace {

TEST(DMMenu, BuildsAPopupWithItemStates)
{
    DMMenu menu;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(menu.Append(1, L"no menu yet"));
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_MENU_HANDLE);
    ASSERT_TRUE(menu.CreatePopup());
    EXPECT_TRUE(menu.Append(ID_UITEST_THIS_COMPUTER, L"This computer", MF_CHECKED));
    EXPECT_TRUE(menu.AppendRes(ID_UITEST_GPO, IDS_UITEST_GPO));
    EXPECT_TRUE(menu.AppendSeparator());
    EXPECT_TRUE(menu.Append(9, L"Greyed", MF_GRAYED | MF_POPUP)); // the kind stays a command
    EXPECT_EQ(menu.GetCount(), 4);
    EXPECT_EQ(GetSubMenu(menu.GetPopup(), 3), nullptr);
    wchar_t text[8];
    std::fill(text, text + 8, (wchar_t)0xbdbd);
    EXPECT_EQ(menu.GetItemText(ID_UITEST_GPO, text, 8), 6u);
    EXPECT_STREQ(text, L"GPO...");
    EXPECT_EQ(menu.GetItemText(ID_UITEST_THIS_COMPUTER, text, 5), 4u); // cut and terminated
    EXPECT_STREQ(text, L"This");
    struct Case { UINT id; BOOL bChecked, bEnabled; } before[] = {
        {ID_UITEST_THIS_COMPUTER, TRUE, TRUE}, {ID_UITEST_GPO, FALSE, TRUE}, {9, FALSE, FALSE}, {77, FALSE, FALSE}};
    for (const Case& c : before) {
        EXPECT_EQ(menu.IsChecked(c.id), c.bChecked) << c.id;
        EXPECT_EQ(menu.IsEnabled(c.id), c.bEnabled) << c.id;
    }
    EXPECT_TRUE(menu.Check(ID_UITEST_THIS_COMPUTER, FALSE));
    EXPECT_TRUE(menu.Check(ID_UITEST_GPO, TRUE));
    EXPECT_TRUE(menu.Enable(9, TRUE));
    EXPECT_TRUE(menu.Enable(ID_UITEST_GPO, FALSE));
    EXPECT_FALSE(menu.Check(77, TRUE));
    EXPECT_FALSE(menu.IsChecked(ID_UITEST_THIS_COMPUTER));
    EXPECT_TRUE(menu.IsChecked(ID_UITEST_GPO));
    EXPECT_TRUE(menu.IsEnabled(9));
    EXPECT_FALSE(menu.IsEnabled(ID_UITEST_GPO));
    // A submenu moves into its parent; the moved-from object owns nothing.
    DMMenu sub;
    ASSERT_TRUE(sub.CreatePopup());
    const HMENU hsub = sub.Get();
    EXPECT_TRUE(menu.AppendSubMenu(sub, L"More"));
    EXPECT_EQ(sub.Get(), nullptr);
    EXPECT_EQ(GetSubMenu(menu.GetPopup(), 4), hsub);
    EXPECT_FALSE(menu.AppendSubMenu(sub, L"Again"));
    DMMenu moved(std::move(menu));
    EXPECT_EQ(menu.Get(), nullptr);
    const HMENU hmenu = moved.Get();
    moved = DMMenu();
    EXPECT_FALSE(IsMenu(hmenu)); // destroyed with its owner, submenu and all
    EXPECT_FALSE(IsMenu(hsub));
}

TEST(DMMenu, LoadsTheFirstPopupOfAMenuResource)
{
    DMMenu menu;
    ASSERT_TRUE(menu.Load(IDM_UITEST_SOURCE, GetModuleHandleW(nullptr)));
    EXPECT_EQ(menu.GetPopup(), GetSubMenu(menu.Get(), 0));
    EXPECT_EQ(menu.GetCount(), 2);
    DMMenu other; // a loaded popup is part of its bar and cannot move elsewhere
    ASSERT_TRUE(other.CreatePopup());
    EXPECT_FALSE(other.AppendSubMenu(menu, L"x"));
    DMMenu missing;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(missing.Load(IDM_UITEST_MISSING, GetModuleHandleW(nullptr)));
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_RESOURCE_NAME_NOT_FOUND);
    EXPECT_EQ(missing.Track(nullptr, 0, 0), 0u);
}

// What the tracking seam was asked, and its answer.
struct TrackCall {
    int n = 0;
    HMENU menu = nullptr;
    UINT flags = 0;
    int x = 0, y = 0;
    HWND owner = nullptr;
    bool bExclude = false;
    RECT exclude = {};
    BOOL answer = 0;
} g_track;

BOOL FakeTrack(HMENU menu, UINT flags, int x, int y, HWND owner, const TPMPARAMS* params)
{
    TrackCall& t = g_track;
    ++t.n, t.menu = menu, t.flags = flags, t.x = x, t.y = y, t.owner = owner, t.bExclude = params != nullptr;
    if (params)
        t.exclude = params->rcExclude;
    return t.answer;
}

TEST(DMMenuTrack, UnderAControlOpensBelowItsLeftEdgeAndReturnsTheCommand)
{
    const auto saved = UiSeams::pfnTrackPopupMenuEx;
    UiSeams::pfnTrackPopupMenuEx = FakeTrack;
    g_track = TrackCall();
    wndtest::FormDlg dlg;
    ASSERT_TRUE(dlg.Create(nullptr));
    const HWND button = dlg.GetItem(IDC_UITEST_BUTTON);
    SetWindowPos(dlg.GetHwnd(), nullptr, 100, 50, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
    RECT rc;
    ASSERT_TRUE(GetWindowRect(button, &rc));
    DMMenu menu;
    ASSERT_TRUE(menu.Load(IDM_UITEST_SOURCE, GetModuleHandleW(nullptr)));
    g_track.answer = ID_UITEST_GPO;
    EXPECT_EQ(menu.TrackUnder(dlg.GetHwnd(), button), (UINT)ID_UITEST_GPO);
    EXPECT_EQ(g_track.n, 1);
    EXPECT_EQ(g_track.menu, menu.GetPopup());
    EXPECT_EQ(g_track.owner, dlg.GetHwnd());
    EXPECT_EQ(g_track.x, rc.left);
    EXPECT_EQ(g_track.y, rc.bottom + 1);
    EXPECT_EQ(g_track.flags & (TPM_RETURNCMD | TPM_VERTICAL), (UINT)(TPM_RETURNCMD | TPM_VERTICAL));
    EXPECT_TRUE(g_track.bExclude);
    EXPECT_TRUE(EqualRect(&g_track.exclude, &rc));
    // At a point: the caller's flags with the command returned; a dismissed menu gives 0.
    g_track.answer = 0;
    EXPECT_EQ(menu.Track(dlg.GetHwnd(), 30, 40, TPM_RIGHTBUTTON), 0u);
    EXPECT_EQ(std::vector<int>({g_track.n, g_track.x, g_track.y}), std::vector<int>({2, 30, 40}));
    EXPECT_EQ(g_track.flags, (UINT)(TPM_RIGHTBUTTON | TPM_RETURNCMD));
    EXPECT_FALSE(g_track.bExclude);
    EXPECT_EQ(menu.TrackUnder(dlg.GetHwnd(), nullptr), 0u); // no control, no menu
    EXPECT_EQ(g_track.n, 2);
    UiSeams::pfnTrackPopupMenuEx = saved;
}

// Real tracking: a timer that runs inside the menu's loop answers it as a user would.
struct Drive {
    HWND owner;
    size_t next;
    int ticks;
} g_drive;

void CALLBACK DriveMenu(HWND, UINT, UINT_PTR, DWORD)
{
    const WPARAM keys[] = {VK_DOWN, VK_DOWN, VK_RETURN};
    if (++g_drive.ticks > 50)
        EndMenu();
    else if (g_drive.next < 3)
        PostMessageW(g_drive.owner, WM_KEYDOWN, keys[g_drive.next++], 0);
}

TEST(DMMenuReal, TrackReturnsTheCommandChosenByKeyboard)
{
    DMWnd owner;
    ASSERT_TRUE(owner.Create(nullptr, L"owner", WS_OVERLAPPEDWINDOW | WS_VISIBLE));
    SetForegroundWindow(owner.GetHwnd());
    DMMenu menu;
    ASSERT_TRUE(menu.Load(IDM_UITEST_SOURCE, GetModuleHandleW(nullptr)));
    g_drive = {owner.GetHwnd(), 0, 0};
    const UINT_PTR timer = SetTimer(nullptr, 0, 30, DriveMenu);
    const UINT cmd = menu.Track(owner.GetHwnd(), 10, 10);
    KillTimer(nullptr, timer);
    if (g_drive.ticks == 0 || g_drive.ticks > 50)
        GTEST_SKIP() << "the menu loop ran no timer or ignored the keystrokes: it cannot be answered headless here";
    EXPECT_EQ(cmd, (UINT)ID_UITEST_GPO);
}

} // namespace
