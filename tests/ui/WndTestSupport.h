// Helpers of the window library tests: message pumping with a time limit, a poster thread that
// presses a dialog's buttons from outside, and the test form with its controls.
#pragma once
#include <windows.h>

#include <commctrl.h>

#include <atomic>
#include <thread>
#include <vector>

#include "UiTestIds.h"
#include "ui/DMDlg.h"

namespace wndtest {

// A dialog that never ends by itself would stall the whole run: every test dialog ends with
// this code after kSafetyMs, so a broken dispatch fails the test instead.
const INT_PTR kTimedOut = 0x7E57;
const UINT kSafetyMs = 5000;
const UINT_PTR kSafetyTimer = 0x5AFE;

inline void InitControls()
{
    INITCOMMONCONTROLSEX icc = {sizeof(icc), ICC_STANDARD_CLASSES | ICC_UPDOWN_CLASS};
    InitCommonControlsEx(&icc);
}

// Pumps this thread's messages until done() or ms milliseconds; done() at the end.
template <class Pred> bool PumpUntil(Pred done, DWORD ms = 2000)
{
    for (const DWORD start = GetTickCount(); !done() && GetTickCount() - start < ms;) {
        MSG msg;
        while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
        }
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
    }
    return done();
}

// A message posted from another thread to the dialog (idTarget 0) or its control idTarget.
struct Post {
    UINT msg;
    WPARAM wp;
    int idTarget;
};

// Waits on its own thread until the dialog window is known, then posts the messages in order.
class Poster {
public:
    Poster(std::atomic<HWND>& target, std::vector<Post> posts)
        : thread([&target, posts] {
              for (const DWORD start = GetTickCount(); !target.load() && GetTickCount() - start < kSafetyMs;)
                  Sleep(5);
              for (const Post& p : posts) {
                  PostMessageW(p.idTarget ? GetDlgItem(target, p.idTarget) : target.load(), p.msg, p.wp, 0);
                  Sleep(20);
              }
          })
    {
    }
    ~Poster() { thread.join(); }

private:
    std::thread thread;
};

// The test form (IDD_UITEST_FORM) counting the dialog operations; its window is published for
// poster threads.
class FormDlg : public DMDlg {
public:
    FormDlg() : DMDlg(IDD_UITEST_FORM, GetModuleHandleW(nullptr)) {}
    std::atomic<HWND> published{nullptr};
    int nOptsToDlg = 0, nDlgToOpts = 0, nOK = 0;
    int bAcceptOpts = 1;  // what DlgToOpts answers
    BOOL bChecked = TRUE; // the setting the check box shows and reads back
    std::vector<WORD> commands;

protected:
    BOOL OnInit() override
    {
        StartTimer(kSafetyTimer, kSafetyMs);
        const BOOL r = DMDlg::OnInit();
        published = hWnd;
        return r;
    }
    int OptsToDlg() override
    {
        ++nOptsToDlg;
        CheckDlgButton(hWnd, IDC_UITEST_CHECK, bChecked ? BST_CHECKED : BST_UNCHECKED);
        return 1;
    }
    int DlgToOpts() override
    {
        ++nDlgToOpts;
        if (bAcceptOpts)
            bChecked = IsDlgButtonChecked(hWnd, IDC_UITEST_CHECK) == BST_CHECKED;
        return bAcceptOpts;
    }
    void OnOK() override
    {
        ++nOK;
        DMDlg::OnOK();
    }
    int OnCommand(WORD id, WORD, HWND) override
    {
        commands.push_back(id);
        return 1;
    }
    int OnTimer(UINT_PTR id) override
    {
        if (id != kSafetyTimer)
            return 0;
        End(kTimedOut);
        return 1;
    }
};

} // namespace wndtest
