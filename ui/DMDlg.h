// DMDlg: a dialog from a template in the resources, modal (DoModal) or modeless (Create with
// RunModeless or the owner's own loop calling IsDialogMsg). The object is bound at
// WM_INITDIALOG; after that its messages go to the operations below, in this order:
//   OnInit     WM_INITDIALOG; the default fills the controls (OptsToDlg) and lets the dialog
//              manager set the focus;
//   OptsToDlg  settings into the controls;
//   DlgToOpts  controls into the settings; 0 refuses them (the dialog stays open);
//   OnOK       the OK button (and Enter): the default ends with IDOK when DlgToOpts accepts;
//   OnCancel   the Cancel button, Esc and the close box: the default ends with IDCANCEL;
//   OnCommand  any other command (DMWnd's handler, here in its place in the order);
//   OnHelp     WM_HELP (F1);
//   OnWndMsg   every other message, and the ones the handlers above leave.
// WM_NOTIFY, WM_TIMER, WM_SIZE, WM_PAINT and WM_DESTROY go to DMWnd's handlers first.
//
// A dialog procedure returns TRUE for a message it handled; results travel in DWLP_MSGRESULT
// (SetMsgResult). No exception leaves the dialog procedure: the message is then left to the
// dialog manager, as if unhandled.
//
// Deleting the object of a modeless dialog destroys the dialog (unbound first, see DMWnd); a
// modal dialog ends before DoModal returns.
#pragma once
#include <windows.h>

#include <initializer_list>

#include "ui/DMWnd.h"

class DMDlg : public DMWnd {
public:
    // The template id and the module that holds it (null: the product's resource module,
    // base/Resources.h, and the executable's own resources when that is not set).
    explicit DMDlg(UINT idTemplate, HINSTANCE module = nullptr) : idTemplate(idTemplate), hModule(module) {}
    ~DMDlg() override = default;

    // Runs the dialog modally; the code it ended with (End). -1 when it could not be created
    // (the reason in the last error; ERROR_ALREADY_INITIALIZED when the object is bound
    // already), 0 when the owner window is not valid (the dialog manager's rule).
    INT_PTR DoModal(HWND hwndOwner);
    // Creates the dialog modelessly (shown if the template says WS_VISIBLE). Nonzero on
    // success, 0 with the reason in the last error.
    int Create(HWND hwndOwner);
    // Pumps this thread's messages through IsDialogMessage until the modeless dialog is gone;
    // the code it ended with. A WM_QUIT ends the loop too and is posted again for the caller's
    // own loop; the result is then the code of End if it ran, else 0.
    INT_PTR RunModeless();
    // For an owner's own message loop: nonzero when msg was a keyboard message of this modeless
    // dialog and has been handled (do not dispatch it again).
    BOOL IsDialogMsg(MSG* msg) const;

    // Ends the dialog with code: EndDialog for a modal one, DestroyWindow for a modeless one.
    void End(INT_PTR code);
    bool IsModal() const { return bModal; }
    // The code of the last End (0 before any).
    INT_PTR GetResult() const { return nResult; }

    // Control helpers: nonzero when the control exists.
    int EnableItem(int id, BOOL bEnable) const;
    int ShowItem(int id, BOOL bShow) const;
    void EnableItems(std::initializer_list<int> ids, BOOL bEnable) const;
    // Every direct child control of the dialog.
    void EnableAllItems(BOOL bEnable) const;
    int SetItemText(int id, const wchar_t* text) const;
    // Copies control id's text into buf (cch characters, always terminated); the length copied.
    unsigned GetItemText(int id, wchar_t* buf, unsigned cch) const;

    // True when hwnd is a dialog run by this library.
    static bool IsLibraryDialog(HWND hwnd);

protected:
    virtual BOOL OnInit();
    virtual int OptsToDlg() { return 1; }
    virtual int DlgToOpts() { return 1; }
    virtual void OnOK();
    virtual void OnCancel();
    int OnCommand(WORD id, WORD code, HWND hwndCtl) override
    {
        (void)id, (void)code, (void)hwndCtl;
        return 0;
    }
    // Nonzero when handled.
    virtual int OnHelp(HELPINFO* phi)
    {
        (void)phi;
        return 0;
    }
    // The dialog procedure's result for msg: FALSE leaves it to the dialog manager.
    virtual INT_PTR OnWndMsg(UINT msg, WPARAM wp, LPARAM lp)
    {
        (void)msg, (void)wp, (void)lp;
        return FALSE;
    }

    LRESULT OnMessage(UINT msg, WPARAM wp, LPARAM lp) override;
    // Sets the result of the message being handled and returns TRUE, for a handler to return.
    INT_PTR SetMsgResult(LRESULT result) const;

private:
    static INT_PTR CALLBACK DialogProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);
    HINSTANCE TemplateModule() const;

    UINT idTemplate;
    HINSTANCE hModule;
    bool bModal = false;
    INT_PTR nResult = 0;
};
