// DMDlg on real dialogs from the test resources: modal runs pressed from another thread or a
// timer, the modeless loop, the dialog-procedure results, and the refusals.
#include <gtest/gtest.h>

#include <windows.h>

#include <commctrl.h>

#include <stdexcept>

#include "WndTestSupport.h"
#include "ui/DMCtrl.h"

namespace {

using wndtest::FormDlg;
using wndtest::Post;

class DMDlgTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        INITCOMMONCONTROLSEX icc = {sizeof(icc), ICC_STANDARD_CLASSES | ICC_UPDOWN_CLASS};
        InitCommonControlsEx(&icc);
    }
};

const int kDlg = 0;

// Pressed from another thread: the code the dialog ends with, and the settings read only for an
// accepted OK.
TEST_F(DMDlgTest, ModalEndsWithTheButtonPressedAndReadsTheControlsOnlyForOK)
{
    struct Case {
        const char* name;
        int bAccept;
        std::vector<Post> posts;
        INT_PTR expected;
        int nDlgToOpts;
        BOOL bCheckedAfter; // the setting after the run (the box was unticked on the way)
    } cases[] = {
        // The check box is clicked first, so an accepted OK reads it back unticked.
        {"OK", 1, {{BM_CLICK, 0, 0, IDC_UITEST_CHECK}, {WM_COMMAND, IDOK, 0, kDlg}}, IDOK, 1, FALSE},
        {"Cancel", 1, {{BM_CLICK, 0, 0, IDC_UITEST_CHECK}, {WM_COMMAND, IDCANCEL, 0, kDlg}}, IDCANCEL, 0, TRUE},
        {"close box", 1, {{BM_CLICK, 0, 0, IDC_UITEST_CHECK}, {WM_CLOSE, 0, 0, kDlg}}, IDCANCEL, 0, TRUE},
        {"OK refused, then Cancel", 0,
         {{WM_COMMAND, IDOK, 0, kDlg}, {WM_COMMAND, IDCANCEL, 0, kDlg}}, IDCANCEL, 1, TRUE},
        // A focus notification of the OK button is no click.
        {"OK focus notice, then Cancel", 1,
         {{WM_COMMAND, MAKEWPARAM(IDOK, BN_SETFOCUS), 0, kDlg}, {WM_COMMAND, IDCANCEL, 0, kDlg}}, IDCANCEL, 0, TRUE},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.name);
        FormDlg dlg;
        dlg.bAcceptOpts = c.bAccept;
        INT_PTR result;
        {
            wndtest::Poster poster(dlg.published, c.posts);
            result = dlg.DoModal(nullptr);
        }
        EXPECT_EQ(result, c.expected);
        EXPECT_EQ(dlg.GetResult(), c.expected);
        EXPECT_EQ(dlg.nOptsToDlg, 1);
        EXPECT_EQ(dlg.nDlgToOpts, c.nDlgToOpts);
        EXPECT_EQ(dlg.bChecked, c.bCheckedAfter);
        EXPECT_EQ(dlg.GetHwnd(), nullptr);
        EXPECT_FALSE(dlg.IsModal());
    }
}

// Pressed by the dialog's own timer through the button wrapper, as the warning countdown does.
class TimerPressDlg : public FormDlg {
protected:
    BOOL OnInit() override
    {
        StartTimer(1, 20);
        return FormDlg::OnInit();
    }
    int OnTimer(UINT_PTR id) override
    {
        if (id != 1)
            return FormDlg::OnTimer(id);
        StopTimer(1);
        DMButton(hWnd, IDOK).Click();
        return 1;
    }
};

TEST_F(DMDlgTest, ModalPressedByItsOwnTimer)
{
    TimerPressDlg dlg;
    EXPECT_EQ(dlg.DoModal(nullptr), IDOK);
    EXPECT_EQ(dlg.nOK, 1);
    EXPECT_EQ(dlg.nDlgToOpts, 1);
}

// The dialog procedure's answers: notifications through DWLP_MSGRESULT, help, other messages,
// commands, and an exception that stays inside.
class ResultDlg : public FormDlg {
public:
    int nHelpCtl = 0;
    UINT otherMsg = 0;
    WPARAM otherWp = 0;
    bool bThrow = false;

protected:
    int OnNotify(NMHDR* pnm, LRESULT* pResult) override
    {
        if (bThrow)
            throw std::logic_error("notify failed");
        *pResult = (LRESULT)pnm->idFrom * 2;
        return 1;
    }
    int OnHelp(HELPINFO* phi) override
    {
        nHelpCtl = phi->iCtrlId;
        return 1;
    }
    INT_PTR OnWndMsg(UINT msg, WPARAM wp, LPARAM lp) override
    {
        (void)lp;
        if (msg < WM_APP)
            return FALSE;
        otherMsg = msg;
        otherWp = wp;
        return SetMsgResult(55);
    }
};

TEST_F(DMDlgTest, ModelessAnswersThroughTheMessageResult)
{
    ResultDlg dlg;
    ASSERT_TRUE(dlg.Create(nullptr));
    const HWND hwnd = dlg.GetHwnd();
    ASSERT_NE(hwnd, nullptr);
    EXPECT_FALSE(dlg.IsModal());
    EXPECT_EQ(dlg.nOptsToDlg, 1);
    EXPECT_TRUE(DMDlg::IsLibraryDialog(hwnd));

    NMHDR nm = {dlg.GetItem(IDC_UITEST_LIST), 21, (UINT)NM_CLICK};
    EXPECT_EQ(SendMessageW(hwnd, WM_NOTIFY, 21, (LPARAM)&nm), 42);

    HELPINFO hi = {sizeof(hi), HELPINFO_WINDOW, IDC_UITEST_COMBO, dlg.GetItem(IDC_UITEST_COMBO), 0, {0, 0}};
    SendMessageW(hwnd, WM_HELP, 0, (LPARAM)&hi);
    EXPECT_EQ(dlg.nHelpCtl, IDC_UITEST_COMBO);

    EXPECT_EQ(SendMessageW(hwnd, WM_APP + 3, 17, 0), 55);
    EXPECT_EQ(dlg.otherMsg, (UINT)WM_APP + 3);
    EXPECT_EQ(dlg.otherWp, 17u);

    SendMessageW(hwnd, WM_COMMAND, MAKEWPARAM(IDC_UITEST_BUTTON, BN_CLICKED), 0);
    EXPECT_EQ(dlg.commands, std::vector<WORD>{IDC_UITEST_BUTTON});
    EXPECT_EQ(dlg.nOK + dlg.nCancel, 0);

    const unsigned before = DMWnd::GetCaughtExceptionCount();
    dlg.bThrow = true;
    EXPECT_EQ(SendMessageW(hwnd, WM_NOTIFY, 21, (LPARAM)&nm), 0);
    EXPECT_EQ(DMWnd::GetCaughtExceptionCount(), before + 1);
    EXPECT_TRUE(IsWindow(hwnd));
}

// RunModeless pumps through IsDialogMessage: Esc on a control becomes Cancel only that way.
TEST_F(DMDlgTest, ModelessLoopRunsUntilTheDialogEnds)
{
    struct Case {
        const char* name;
        UINT msg;
        WPARAM wp;
        int idTarget; // 0: the dialog
        INT_PTR expected;
    } cases[] = {
        {"OK", WM_COMMAND, IDOK, 0, IDOK},
        {"Esc on a button", WM_KEYDOWN, VK_ESCAPE, IDC_UITEST_BUTTON, IDCANCEL},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FormDlg dlg;
        ASSERT_TRUE(dlg.Create(nullptr));
        const HWND hwnd = dlg.GetHwnd();
        PostMessageW(c.idTarget ? dlg.GetItem(c.idTarget) : hwnd, c.msg, c.wp, 0);
        EXPECT_EQ(dlg.RunModeless(), c.expected);
        EXPECT_FALSE(IsWindow(hwnd));
        EXPECT_EQ(dlg.GetHwnd(), nullptr);
    }
}

TEST_F(DMDlgTest, ModelessLoopLeavesAQuitForTheCallersLoop)
{
    FormDlg dlg;
    ASSERT_TRUE(dlg.Create(nullptr));
    PostQuitMessage(3);
    EXPECT_EQ(dlg.RunModeless(), 0);
    EXPECT_TRUE(IsWindow(dlg.GetHwnd()));
    MSG msg;
    ASSERT_TRUE(PeekMessageW(&msg, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
    EXPECT_EQ(msg.wParam, 3u);
}

TEST_F(DMDlgTest, DeletingAModelessDialogDestroysIt)
{
    FormDlg* dlg = new FormDlg;
    ASSERT_TRUE(dlg->Create(nullptr));
    const HWND hwnd = dlg->GetHwnd();
    delete dlg;
    EXPECT_FALSE(IsWindow(hwnd));
}

TEST_F(DMDlgTest, RefusesAMissingTemplateAndASecondRun)
{
    DMDlg missing(IDD_UITEST_MISSING, GetModuleHandleW(nullptr));
    SetLastError(0xdeadbeef);
    EXPECT_EQ(missing.DoModal(nullptr), -1);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_RESOURCE_NAME_NOT_FOUND);
    EXPECT_FALSE(missing.Create(nullptr));

    FormDlg dlg;
    ASSERT_TRUE(dlg.Create(nullptr));
    SetLastError(0xdeadbeef);
    EXPECT_EQ(dlg.DoModal(nullptr), -1);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_ALREADY_INITIALIZED);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(dlg.Create(nullptr));
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_ALREADY_INITIALIZED);
}

} // namespace
