// DMDlg on real dialogs from the test resources: modal runs pressed from another thread, the
// modeless loop, the dialog procedure's results, and the refusals.
#include <gtest/gtest.h>

#include <stdexcept>

#include "WndTestSupport.h"

namespace {

using wndtest::FormDlg;

class DMDlgTest : public ::testing::Test {
protected:
    void SetUp() override { wndtest::InitControls(); }
};

// The code the dialog ends with, and the settings read only for an accepted OK: the check box is
// unticked on the way, so only an accepted OK reads it back unticked.
TEST_F(DMDlgTest, ModalEndsWithTheButtonPressedAndReadsTheControlsOnlyForOK)
{
    const wndtest::Post untick = {BM_CLICK, 0, IDC_UITEST_CHECK}, cancel = {WM_COMMAND, IDCANCEL, 0};
    struct Case {
        const char* name;
        int bAccept;
        std::vector<wndtest::Post> posts;
        INT_PTR expected;
        int nDlgToOpts;
        BOOL bCheckedAfter;
    } cases[] = {
        {"OK", 1, {untick, {WM_COMMAND, IDOK, 0}}, IDOK, 1, FALSE},
        {"Cancel", 1, {untick, cancel}, IDCANCEL, 0, TRUE},
        {"close box", 1, {untick, {WM_CLOSE, 0, 0}}, IDCANCEL, 0, TRUE},
        {"OK refused, then Cancel", 0, {{WM_COMMAND, IDOK, 0}, cancel}, IDCANCEL, 1, TRUE},
        {"OK focus notice (no click), then Cancel", 1, {{WM_COMMAND, MAKEWPARAM(IDOK, BN_SETFOCUS), 0}, cancel},
         IDCANCEL, 0, TRUE},
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

// Notifications answer through DWLP_MSGRESULT, as do other messages; an exception stays inside.
class ResultDlg : public FormDlg {
public:
    int nHelpCtl = 0;
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
    INT_PTR OnWndMsg(UINT msg, WPARAM wp, LPARAM) override { return msg < WM_APP ? FALSE : SetMsgResult(wp + 1); }
};

TEST_F(DMDlgTest, ModelessAnswersThroughTheMessageResult)
{
    ResultDlg dlg;
    ASSERT_TRUE(dlg.Create(nullptr));
    const HWND hwnd = dlg.GetHwnd();
    EXPECT_FALSE(dlg.IsModal());
    EXPECT_EQ(dlg.nOptsToDlg, 1);
    EXPECT_TRUE(DMDlg::IsLibraryDialog(hwnd));
    NMHDR nm = {dlg.GetItem(IDC_UITEST_LIST), 21, (UINT)NM_CLICK};
    EXPECT_EQ(SendMessageW(hwnd, WM_NOTIFY, 21, (LPARAM)&nm), 42);
    HELPINFO hi = {sizeof(hi), HELPINFO_WINDOW, IDC_UITEST_COMBO, dlg.GetItem(IDC_UITEST_COMBO), 0, {0, 0}};
    SendMessageW(hwnd, WM_HELP, 0, (LPARAM)&hi);
    EXPECT_EQ(dlg.nHelpCtl, IDC_UITEST_COMBO);
    EXPECT_EQ(SendMessageW(hwnd, WM_APP + 3, 17, 0), 18);
    SendMessageW(hwnd, WM_COMMAND, MAKEWPARAM(IDC_UITEST_BUTTON, BN_CLICKED), 0);
    EXPECT_EQ(dlg.commands, std::vector<WORD>{IDC_UITEST_BUTTON});
    EXPECT_EQ(dlg.nOK, 0);
    const unsigned before = DMWnd::GetCaughtExceptionCount();
    dlg.bThrow = true;
    EXPECT_EQ(SendMessageW(hwnd, WM_NOTIFY, 21, (LPARAM)&nm), 0);
    EXPECT_EQ(DMWnd::GetCaughtExceptionCount(), before + 1);
    EXPECT_TRUE(IsWindow(hwnd));
    FormDlg* doomed = new FormDlg; // deleting a modeless dialog's object destroys the dialog
    ASSERT_TRUE(doomed->Create(nullptr));
    const HWND hDoomed = doomed->GetHwnd();
    delete doomed;
    EXPECT_FALSE(IsWindow(hDoomed));
}

// RunModeless pumps through IsDialogMessage: Esc on a control becomes Cancel only that way. A
// quit ends the loop and is left for the caller's loop.
TEST_F(DMDlgTest, ModelessLoopRunsUntilTheDialogEndsOrAQuit)
{
    struct Case {
        UINT msg;
        WPARAM wp;
        int idTarget; // 0: the dialog
        INT_PTR expected;
    } cases[] = {{WM_COMMAND, IDOK, 0, IDOK}, {WM_KEYDOWN, VK_ESCAPE, IDC_UITEST_BUTTON, IDCANCEL}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.expected);
        FormDlg dlg;
        ASSERT_TRUE(dlg.Create(nullptr));
        const HWND hwnd = dlg.GetHwnd();
        PostMessageW(c.idTarget ? dlg.GetItem(c.idTarget) : hwnd, c.msg, c.wp, 0);
        EXPECT_EQ(dlg.RunModeless(), c.expected);
        EXPECT_FALSE(IsWindow(hwnd));
        EXPECT_EQ(dlg.GetHwnd(), nullptr);
    }
    FormDlg dlg;
    ASSERT_TRUE(dlg.Create(nullptr));
    PostQuitMessage(3);
    EXPECT_EQ(dlg.RunModeless(), 0);
    EXPECT_TRUE(IsWindow(dlg.GetHwnd()));
    MSG msg;
    ASSERT_TRUE(PeekMessageW(&msg, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
    EXPECT_EQ(msg.wParam, 3u);
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
