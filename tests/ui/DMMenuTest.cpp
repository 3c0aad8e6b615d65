// DMMenu: building popups in code and from the resources, item states, where a menu under a
// control is placed (through the tracking seam), and real tracking answered by keystrokes.
#include <gtest/gtest.h>

#include <windows.h>

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
    memset(text, 0xbd, sizeof(text));
    EXPECT_EQ(menu.GetItemText(ID_UITEST_GPO, text, 8), 6u);
    EXPECT_STREQ(text, L"GPO...");
    EXPECT_EQ(menu.GetItemText(ID_UITEST_THIS_COMPUTER, text, 5), 4u); // cut and terminated
    EXPECT_STREQ(text, L"This");

    struct Case {
        UINT id;
        BOOL bChecked, bEnabled;
    } initial[] = {
        {ID_UITEST_THIS_COMPUTER, TRUE, TRUE}, {ID_UITEST_GPO, FALSE, TRUE}, {9, FALSE, FALSE}, {77, FALSE, FALSE}};
    for (const Case& c : initial) {
        SCOPED_TRACE(c.id);
        EXPECT_EQ(menu.IsChecked(c.id), c.bChecked);
        EXPECT_EQ(menu.IsEnabled(c.id), c.bEnabled);
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
    EXPECT_TRUE(sub.Append(11, L"Inner"));
    const HMENU hsub = sub.Get();
    EXPECT_TRUE(menu.AppendSubMenu(sub, L"More"));
    EXPECT_EQ(sub.Get(), nullptr);
    EXPECT_EQ(GetSubMenu(menu.GetPopup(), 4), hsub);
    EXPECT_FALSE(menu.AppendSubMenu(sub, L"Again"));

    DMMenu moved(std::move(menu));
    EXPECT_EQ(menu.Get(), nullptr);
    EXPECT_EQ(moved.GetCount(), 5);
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
    wchar_t text[32];
    EXPECT_EQ(menu.GetItemText(ID_UITEST_THIS_COMPUTER, text, 32), 13u);
    EXPECT_STREQ(text, L"This computer");
    // A loaded popup is part of its bar and cannot move elsewhere.
    DMMenu other;
    ASSERT_TRUE(other.CreatePopup());
    EXPECT_FALSE(other.AppendSubMenu(menu, L"x"));

    DMMenu missing;
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(missing.Load(IDM_UITEST_MISSING, GetModuleHandleW(nullptr)));
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_RESOURCE_NAME_NOT_FOUND);
    EXPECT_EQ(missing.GetPopup(), nullptr);
    EXPECT_EQ(missing.Track(nullptr, 0, 0), 0u);
}

// What the tracking seam was asked.
struct TrackCall {
    int n = 0;
    HMENU menu = nullptr;
    UINT flags = 0;
    int x = 0, y = 0;
    HWND owner = nullptr;
    bool bExclude = false;
    RECT exclude = {};
    BOOL answer = 0;
};
TrackCall g_track;

BOOL FakeTrack(HMENU menu, UINT flags, int x, int y, HWND owner, const TPMPARAMS* params)
{
    ++g_track.n;
    g_track.menu = menu;
    g_track.flags = flags;
    g_track.x = x;
    g_track.y = y;
    g_track.owner = owner;
    g_track.bExclude = params != nullptr;
    if (params)
        g_track.exclude = params->rcExclude;
    return g_track.answer;
}

class DMMenuTrack : public ::testing::Test {
protected:
    void SetUp() override
    {
        g_track = TrackCall();
        saved = UiSeams::pfnTrackPopupMenuEx;
    }
    void TearDown() override { UiSeams::pfnTrackPopupMenuEx = saved; }
    BOOL (*saved)(HMENU, UINT, int, int, HWND, const TPMPARAMS*) = nullptr;
};

TEST_F(DMMenuTrack, UnderAControlOpensBelowItsLeftEdgeAndReturnsTheCommand)
{
    UiSeams::pfnTrackPopupMenuEx = FakeTrack;
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
    EXPECT_TRUE(g_track.flags & TPM_RETURNCMD);
    EXPECT_TRUE(g_track.flags & TPM_VERTICAL);
    ASSERT_TRUE(g_track.bExclude);
    EXPECT_TRUE(EqualRect(&g_track.exclude, &rc));

    // At a point: the caller's flags with the command returned; a dismissed menu gives 0.
    g_track.answer = 0;
    EXPECT_EQ(menu.Track(dlg.GetHwnd(), 30, 40, TPM_RIGHTBUTTON), 0u);
    EXPECT_EQ(g_track.n, 2);
    EXPECT_EQ(g_track.x, 30);
    EXPECT_EQ(g_track.y, 40);
    EXPECT_EQ(g_track.flags, (UINT)(TPM_RIGHTBUTTON | TPM_RETURNCMD));
    EXPECT_FALSE(g_track.bExclude);

    // No control, no menu.
    EXPECT_EQ(menu.TrackUnder(dlg.GetHwnd(), nullptr), 0u);
    EXPECT_EQ(g_track.n, 2);
}

// Real tracking: the timer that runs inside the menu's loop answers it as a user would.
struct Drive {
    HWND owner;
    std::vector<WPARAM> keys; // posted one per tick; none: EndMenu
    size_t next = 0;
    int ticks = 0;
};
Drive* g_drive = nullptr;

void CALLBACK DriveMenu(HWND, UINT, UINT_PTR, DWORD)
{
    Drive& d = *g_drive;
    ++d.ticks;
    if (d.next < d.keys.size()) {
        PostMessageW(d.owner, WM_KEYDOWN, d.keys[d.next++], 0);
    } else if (d.keys.empty() || d.ticks > 50) {
        EndMenu();
    }
}

TEST(DMMenuReal, TrackReturnsTheCommandChosenByKeyboard)
{
    DMWnd owner;
    ASSERT_TRUE(owner.Create(nullptr, L"owner", WS_OVERLAPPEDWINDOW | WS_VISIBLE));
    SetForegroundWindow(owner.GetHwnd());
    DMMenu menu;
    ASSERT_TRUE(menu.Load(IDM_UITEST_SOURCE, GetModuleHandleW(nullptr)));

    struct Case {
        const char* name;
        std::vector<WPARAM> keys;
        UINT expected;
    } cases[] = {
        {"down, down, enter", {VK_DOWN, VK_DOWN, VK_RETURN}, ID_UITEST_GPO},
        {"ended from the program", {}, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Drive drive{owner.GetHwnd(), c.keys};
        g_drive = &drive;
        const UINT_PTR timer = SetTimer(nullptr, 0, 30, DriveMenu);
        const UINT cmd = menu.Track(owner.GetHwnd(), 10, 10);
        KillTimer(nullptr, timer);
        g_drive = nullptr;
        if (drive.ticks == 0)
            GTEST_SKIP() << "no timer ran inside the menu loop: the menu cannot be answered headless here";
        if (!c.keys.empty() && drive.ticks > 50)
            GTEST_SKIP() << "the menu loop ignored the keystrokes and was ended after " << drive.ticks << " ticks";
        EXPECT_EQ(cmd, c.expected);
    }
}

} // namespace
