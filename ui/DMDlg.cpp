#include "ui/DMDlg.h"

#include <climits>

#include "base/Resources.h"

HINSTANCE DMDlg::TemplateModule() const
{
    if (hModule)
        return hModule;
    HINSTANCE module = GetResourceModule();
    return module ? module : GetModuleHandleW(nullptr);
}

INT_PTR DMDlg::DoModal(HWND hwndOwner)
{
    if (hWnd) {
        SetLastError(ERROR_ALREADY_INITIALIZED);
        return -1;
    }
    bModal = true;
    nResult = 0;
    INT_PTR result = DialogBoxParamW(TemplateModule(), MAKEINTRESOURCEW(idTemplate), hwndOwner, DialogProc,
                                     reinterpret_cast<LPARAM>(this));
    bModal = false;
    return result;
}

int DMDlg::Create(HWND hwndOwner)
{
    if (hWnd) {
        SetLastError(ERROR_ALREADY_INITIALIZED);
        return 0;
    }
    bModal = false;
    nResult = 0;
    HWND hwnd = CreateDialogParamW(TemplateModule(), MAKEINTRESOURCEW(idTemplate), hwndOwner, DialogProc,
                                   reinterpret_cast<LPARAM>(this));
    if (!hwnd)
        return 0;
    // Bound at WM_INITDIALOG; a dialog that ended in OnInit is gone already.
    if (hWnd == hwnd)
        ownedWnd.Attach(hwnd);
    return 1;
}

INT_PTR DMDlg::RunModeless()
{
    MSG msg;
    while (hWnd) {
        BOOL got = GetMessageW(&msg, nullptr, 0, 0);
        if (got == -1)
            break;
        if (got == 0) {
            PostQuitMessage((int)msg.wParam);
            break;
        }
        if (!IsDialogMsg(&msg)) {
            TranslateMessage(&msg);
            DispatchMessageW(&msg);
        }
    }
    return nResult;
}

BOOL DMDlg::IsDialogMsg(MSG* msg) const
{
    return hWnd && msg && IsDialogMessageW(hWnd, msg);
}

void DMDlg::End(INT_PTR code)
{
    nResult = code;
    if (!hWnd)
        return;
    if (bModal)
        EndDialog(hWnd, code);
    else
        DestroyWindow(hWnd);
}

int DMDlg::EnableItem(int id, BOOL bEnable) const
{
    HWND hwnd = GetItem(id);
    if (!hwnd)
        return 0;
    EnableWindow(hwnd, bEnable);
    return 1;
}

int DMDlg::ShowItem(int id, BOOL bShow) const
{
    HWND hwnd = GetItem(id);
    if (!hwnd)
        return 0;
    ShowWindow(hwnd, bShow ? SW_SHOW : SW_HIDE);
    return 1;
}

void DMDlg::EnableItems(std::initializer_list<int> ids, BOOL bEnable) const
{
    for (int id : ids)
        EnableItem(id, bEnable);
}

void DMDlg::EnableAllItems(BOOL bEnable) const
{
    if (!hWnd)
        return;
    for (HWND child = GetWindow(hWnd, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT))
        EnableWindow(child, bEnable);
}

int DMDlg::SetItemText(int id, const wchar_t* text) const
{
    return SetDlgItemTextW(hWnd, id, text ? text : L"");
}

unsigned DMDlg::GetItemText(int id, wchar_t* buf, unsigned cch) const
{
    if (!buf || cch == 0)
        return 0;
    buf[0] = 0;
    UINT n = GetDlgItemTextW(hWnd, id, buf, cch > INT_MAX ? INT_MAX : (int)cch);
    return n;
}

bool DMDlg::IsLibraryDialog(HWND hwnd)
{
    return hwnd && GetWindowLongPtrW(hwnd, DWLP_DLGPROC) == reinterpret_cast<LONG_PTR>(DialogProc);
}

BOOL DMDlg::OnInit()
{
    OptsToDlg();
    return TRUE;
}

void DMDlg::OnOK()
{
    if (DlgToOpts())
        End(IDOK);
}

void DMDlg::OnCancel()
{
    End(IDCANCEL);
}

INT_PTR DMDlg::SetMsgResult(LRESULT result) const
{
    SetWindowLongPtrW(hWnd, DWLP_MSGRESULT, result);
    return TRUE;
}

LRESULT DMDlg::OnMessage(UINT msg, WPARAM wp, LPARAM lp)
{
    switch (msg) {
    case WM_INITDIALOG:
        return OnInit();
    case WM_COMMAND: {
        const WORD id = LOWORD(wp), code = HIWORD(wp);
        // OK and Cancel come as clicks (0) or accelerators (1); other notifications of a
        // control that happens to carry the id (focus changes of a BS_NOTIFY button) do not
        // close the dialog.
        if (code <= 1 && id == IDOK) {
            OnOK();
            return TRUE;
        }
        if (code <= 1 && id == IDCANCEL) {
            OnCancel();
            return TRUE;
        }
        if (OnCommand(id, code, reinterpret_cast<HWND>(lp)))
            return TRUE;
        break;
    }
    case WM_HELP:
        if (OnHelp(reinterpret_cast<HELPINFO*>(lp)))
            return TRUE;
        break;
    case WM_NOTIFY: {
        LRESULT result = 0;
        if (lp && OnNotify(reinterpret_cast<NMHDR*>(lp), &result))
            return SetMsgResult(result);
        break;
    }
    case WM_TIMER:
        if (OnTimer(wp))
            return TRUE;
        break;
    case WM_SIZE:
        if (OnSize((UINT)wp, LOWORD(lp), HIWORD(lp)))
            return TRUE;
        break;
    case WM_PAINT:
        if (OnPaint())
            return TRUE;
        break;
    case WM_DESTROY:
        OnDestroy();
        break;
    }
    return OnWndMsg(msg, wp, lp);
}

INT_PTR CALLBACK DMDlg::DialogProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp)
{
    DMDlg* self = nullptr;
    if (msg == WM_INITDIALOG) {
        self = reinterpret_cast<DMDlg*>(lp);
        if (!self || self->hWnd)
            return FALSE;
        self->BindDialog(hwnd);
    } else {
        self = reinterpret_cast<DMDlg*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    }
    // Messages before WM_INITDIALOG (WM_SETFONT...) and after the object let go.
    if (!self || self->hWnd != hwnd)
        return FALSE;
    return self->Dispatch(msg, wp, lp);
}
