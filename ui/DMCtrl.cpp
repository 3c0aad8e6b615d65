#include "ui/DMCtrl.h"

#include <commctrl.h>

#include <climits>

#include "base/Handle.h"
#include "base/Resources.h"
#include "base/StrUtil.h"
#include "ui/DMWnd.h"

namespace {

bool IsBlank(wchar_t c)
{
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n';
}

// The longest text a number field reads: an int has at most 11 characters with its sign, and a
// field longer than this is not a number anyone typed on purpose.
const unsigned kMaxNumberText = 64;

} // namespace

int ParseIntText(const wchar_t* text, int* pValue)
{
    int dummy;
    if (!pValue)
        pValue = &dummy;
    *pValue = 0;
    if (!text)
        return 0;
    const wchar_t* p = text;
    while (IsBlank(*p))
        ++p;
    bool bNegative = false;
    if (*p == L'+' || *p == L'-')
        bNegative = *p++ == L'-';
    if (*p < L'0' || *p > L'9')
        return 0;
    // The magnitude stops growing past 2^31, so it never wraps; the limit is INT_MAX for a
    // positive number and 2^31 for a negative one.
    const unsigned long long limit = bNegative ? (unsigned long long)INT_MAX + 1 : (unsigned long long)INT_MAX;
    unsigned long long mag = 0;
    bool bTooBig = false;
    while (*p >= L'0' && *p <= L'9') {
        mag = mag * 10 + (unsigned)(*p++ - L'0');
        if (mag > limit) {
            bTooBig = true;
            mag = limit;
        }
    }
    while (IsBlank(*p))
        ++p;
    if (*p)
        return 0;
    *pValue = bNegative ? (mag == (unsigned long long)INT_MAX + 1 ? INT_MIN : -(int)mag) : (int)mag;
    return bTooBig ? 0 : 1;
}

int DMCtrl::Enable(BOOL bEnable) const
{
    if (!hWnd)
        return 0;
    if (!bEnable && GetFocus() == hWnd) {
        HWND parent = GetParent(hWnd);
        if (parent)
            SendMessageW(parent, WM_NEXTDLGCTL, 0, FALSE);
    }
    EnableWindow(hWnd, bEnable);
    return 1;
}

int DMCtrl::Show(BOOL bShow) const
{
    if (!hWnd)
        return 0;
    ShowWindow(hWnd, bShow ? SW_SHOW : SW_HIDE);
    return 1;
}

int DMCtrl::SetFocus() const
{
    if (!hWnd)
        return 0;
    HWND parent = GetParent(hWnd);
    // In a dialog WM_NEXTDLGCTL also moves the default button and selects an edit's text.
    if (parent && (GetWindowLongPtrW(hWnd, GWL_STYLE) & WS_CHILD))
        SendMessageW(parent, WM_NEXTDLGCTL, (WPARAM)hWnd, TRUE);
    else
        ::SetFocus(hWnd);
    return 1;
}

int DMCtrl::SetText(const wchar_t* text) const
{
    return hWnd && SetWindowTextW(hWnd, text ? text : L"");
}

int DMCtrl::SetTextRes(int id) const
{
    wchar_t text[512];
    LoadResString(id, text, 512);
    return SetText(text);
}

unsigned DMCtrl::GetText(wchar_t* buf, unsigned cch) const { return DMWnd::CopyWindowText(hWnd, buf, cch); }

unsigned DMCtrl::GetTextLength() const
{
    int n = hWnd ? GetWindowTextLengthW(hWnd) : 0;
    return n > 0 ? (unsigned)n : 0;
}

int DMButton::Click() const
{
    // The button's own state only: a button of a dialog not shown yet can be clicked.
    if (!hWnd || !IsWindowEnabled(hWnd) || !(GetWindowLongPtrW(hWnd, GWL_STYLE) & WS_VISIBLE))
        return 0;
    Send(BM_CLICK);
    return 1;
}

int DMEditSpin::SetRange(int lo, int hi) const
{
    if (!hSpin)
        return 0;
    if (lo > hi) {
        int t = lo;
        lo = hi;
        hi = t;
    }
    LONG_PTR style = GetWindowLongPtrW(hSpin, GWL_STYLE);
    if (!(style & UDS_NOTHOUSANDS))
        SetWindowLongPtrW(hSpin, GWL_STYLE, style | UDS_NOTHOUSANDS);
    if (hWnd && !SendMessageW(hSpin, UDM_GETBUDDY, 0, 0))
        SendMessageW(hSpin, UDM_SETBUDDY, (WPARAM)hWnd, 0);
    SendMessageW(hSpin, UDM_SETRANGE32, (WPARAM)lo, (LPARAM)hi);
    return 1;
}

int DMEditSpin::GetRange(int* pLo, int* pHi) const
{
    int lo = 0, hi = 0;
    if (hSpin)
        SendMessageW(hSpin, UDM_GETRANGE32, (WPARAM)&lo, (LPARAM)&hi);
    if (lo > hi) {
        int t = lo;
        lo = hi;
        hi = t;
    }
    if (pLo)
        *pLo = lo;
    if (pHi)
        *pHi = hi;
    return hSpin ? 1 : 0;
}

int DMEditSpin::GetInt(BOOL* pbValid) const
{
    if (pbValid)
        *pbValid = FALSE;
    int value = 0;
    if (!hWnd || GetTextLength() >= kMaxNumberText)
        return 0;
    wchar_t text[kMaxNumberText];
    GetText(text, kMaxNumberText);
    if (!ParseIntText(text, &value))
        return value;
    int lo = INT_MIN, hi = INT_MAX;
    if (hSpin)
        GetRange(&lo, &hi);
    if (pbValid)
        *pbValid = value >= lo && value <= hi;
    return value;
}

int DMEditSpin::SetInt(int value) const
{
    if (!hWnd)
        return 0;
    if (hSpin)
        SendMessageW(hSpin, UDM_SETPOS32, 0, (LPARAM)value);
    wchar_t text[16];
    StrFormat(text, L"%d", value);
    return SetText(text);
}

int DMListBox::Add(const wchar_t* text) const
{
    if (!hWnd)
        return -1;
    LRESULT i = Send(LB_ADDSTRING, 0, (LPARAM)(text ? text : L""));
    return i >= 0 ? (int)i : -1;
}

int DMListBox::Delete(int index) const
{
    if (!hWnd || index < 0)
        return -1;
    LRESULT n = Send(LB_DELETESTRING, (WPARAM)index);
    return n >= 0 ? (int)n : -1;
}

int DMListBox::GetCount() const
{
    LRESULT n = hWnd ? Send(LB_GETCOUNT) : 0;
    return n > 0 ? (int)n : 0;
}

int DMListBox::GetSel() const
{
    LRESULT i = hWnd ? Send(LB_GETCURSEL) : LB_ERR;
    return i >= 0 ? (int)i : -1;
}

int DMListBox::SetSel(int index) const
{
    if (!hWnd || index < -1 || index >= GetCount())
        return 0;
    Send(LB_SETCURSEL, (WPARAM)index);
    return 1;
}

unsigned DMListBox::GetItemText(int index, wchar_t* buf, unsigned cch) const
{
    if (!buf || cch == 0)
        return 0;
    buf[0] = 0;
    if (!hWnd || index < 0)
        return 0;
    LRESULT len = Send(LB_GETTEXTLEN, (WPARAM)index);
    if (len < 0)
        return 0;
    if ((unsigned long long)len < cch) {
        LRESULT n = Send(LB_GETTEXT, (WPARAM)index, (LPARAM)buf);
        if (n < 0) {
            buf[0] = 0;
            return 0;
        }
        buf[n] = 0;
        return (unsigned)n;
    }
    // LB_GETTEXT writes the whole item: a longer one is read into a buffer of its own and cut.
    HeapBuf<wchar_t> whole((size_t)len + 1);
    if (!whole.p)
        return 0;
    LRESULT n = Send(LB_GETTEXT, (WPARAM)index, (LPARAM)whole.p);
    if (n < 0 || n > len)
        return 0;
    whole.p[n] = 0;
    return StrCopy(buf, cch, whole.p);
}

int DMListBox::FindExact(const wchar_t* text) const
{
    if (!hWnd)
        return -1;
    LRESULT i = Send(LB_FINDSTRINGEXACT, (WPARAM)-1, (LPARAM)(text ? text : L""));
    return i >= 0 ? (int)i : -1;
}

int DMComboBox::AddItem(const wchar_t* text, LPARAM data) const
{
    if (!hWnd)
        return -1;
    LRESULT i = Send(CB_ADDSTRING, 0, (LPARAM)(text ? text : L""));
    if (i < 0)
        return -1;
    if (Send(CB_SETITEMDATA, (WPARAM)i, data) == CB_ERR) {
        Send(CB_DELETESTRING, (WPARAM)i);
        return -1;
    }
    return (int)i;
}

int DMComboBox::GetCount() const
{
    LRESULT n = hWnd ? Send(CB_GETCOUNT) : 0;
    return n > 0 ? (int)n : 0;
}

int DMComboBox::GetSel() const
{
    LRESULT i = hWnd ? Send(CB_GETCURSEL) : CB_ERR;
    return i >= 0 ? (int)i : -1;
}

int DMComboBox::SetSel(int index) const
{
    if (!hWnd || index < -1 || index >= GetCount())
        return 0;
    Send(CB_SETCURSEL, (WPARAM)index);
    return 1;
}

int DMComboBox::SelectByData(LPARAM data) const
{
    const int n = GetCount();
    for (int i = 0; i < n; ++i) {
        if (Send(CB_GETITEMDATA, (WPARAM)i) == data) {
            Send(CB_SETCURSEL, (WPARAM)i);
            return i;
        }
    }
    if (hWnd)
        Send(CB_SETCURSEL, (WPARAM)-1);
    return -1;
}

int DMComboBox::GetSelData(LPARAM* pData) const
{
    const int i = GetSel();
    if (i < 0 || !pData)
        return 0;
    *pData = Send(CB_GETITEMDATA, (WPARAM)i);
    return 1;
}
