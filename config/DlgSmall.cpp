#include "config/DlgSmall.h"

#include <cwctype>

#include "base/StrUtil.h"
#include "resources/resource.h"

DlgCustomMsg::DlgCustomMsg(const wchar_t* text, bool bPolicyManaged) : DMDlg(IDD_CUSTOM_MSG), bPolicyManaged(bPolicyManaged)
{
    StrCopy(szText, text);
}

BOOL DlgCustomMsg::OnInit()
{
    SendDlgItemMessageW(hWnd, IDC_CUSTOM_MSG_TEXT, EM_LIMITTEXT, ARRAYSIZE(szText) - 1, 0);
    // A policy decides the text: it may be read, not changed.
    EnableItem(IDOK, !bPolicyManaged);
    return DMDlg::OnInit();
}

int DlgCustomMsg::OptsToDlg() { return SetItemText(IDC_CUSTOM_MSG_TEXT, szText); }

int DlgCustomMsg::DlgToOpts()
{
    if (bPolicyManaged)
        return 0;
    GetItemText(IDC_CUSTOM_MSG_TEXT, szText, ARRAYSIZE(szText));
    return 1;
}

void MakeStoredMessage(const wchar_t* edited, const wchar_t* builtIn, wchar_t (&out)[512])
{
    out[0] = 0;
    if (!edited)
        return;
    const wchar_t* begin = edited;
    while (*begin && std::iswspace(*begin))
        ++begin;
    const wchar_t* end = begin + StrLen(begin);
    while (end > begin && std::iswspace(end[-1]))
        --end;
    StrCopyN(out, ARRAYSIZE(out), begin, (unsigned)(end - begin));
    if (builtIn && StrEqual(out, builtIn))
        out[0] = 0;
}

DlgWarningDataLoss::DlgWarningDataLoss() : DMDlg(IDD_DATA_LOSS) {}

BOOL DlgWarningDataLoss::OnInit()
{
    SendDlgItemMessageW(hWnd, IDC_DATA_LOSS_ICON, STM_SETICON, (WPARAM)LoadIconW(nullptr, IDI_WARNING), 0);
    CheckDlgButton(hWnd, IDC_DATA_LOSS_ACCEPT, BST_UNCHECKED);
    EnableItem(IDOK, FALSE);
    return DMDlg::OnInit();
}

int DlgWarningDataLoss::OnCommand(WORD id, WORD code, HWND hwndCtl)
{
    // OK only while the administrator says the warning is understood.
    if (id == IDC_DATA_LOSS_ACCEPT && code == BN_CLICKED) {
        EnableItem(IDOK, IsDlgButtonChecked(hWnd, IDC_DATA_LOSS_ACCEPT) == BST_CHECKED);
        return 1;
    }
    return DMDlg::OnCommand(id, code, hwndCtl);
}
