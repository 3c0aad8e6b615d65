// Thin wrappers over one control: a dialog item or any child window. They hold only the window
// handle and own nothing, so copying one copies the handle (the dialog owns its controls); make
// them on the fly, DMEditSpin(hwndDlg, IDC_TIMEOUT, IDC_TIMEOUT_SPIN), where they are needed.
// A wrapper over a missing control does nothing and answers "nothing" (0, -1, empty text).
#pragma once
#include <windows.h>

// Reads text as a whole decimal int: optional blanks around it, an optional sign, digits only.
// Nonzero when it is one; *pValue receives the number, held to the int range when it has more
// digits than an int takes (the result is then 0), and 0 when the text is not a number at all.
int ParseIntText(const wchar_t* text, int* pValue);

class DMCtrl {
public:
    DMCtrl() = default;
    explicit DMCtrl(HWND hwnd) : hWnd(hwnd) {}
    DMCtrl(HWND hwndDlg, int id) : hWnd(hwndDlg ? GetDlgItem(hwndDlg, id) : nullptr) {}

    HWND GetHwnd() const { return hWnd; }
    bool IsValid() const { return hWnd && IsWindow(hWnd); }
    int GetId() const { return hWnd ? GetDlgCtrlID(hWnd) : 0; }
    LRESULT Send(UINT msg, WPARAM wp = 0, LPARAM lp = 0) const { return hWnd ? SendMessageW(hWnd, msg, wp, lp) : 0; }

    // Enabling a control that has the keyboard focus off first moves the focus to the next
    // control of the dialog, so the keyboard never ends up on a dead control.
    int Enable(BOOL bEnable) const;
    BOOL IsEnabled() const { return hWnd && IsWindowEnabled(hWnd); }
    int Show(BOOL bShow) const;
    BOOL IsVisible() const { return hWnd && IsWindowVisible(hWnd); }
    int SetFocus() const;

    int SetText(const wchar_t* text) const;
    // Sets the text of string resource id (product resources, base/Resources.h); an id without a
    // string gives an empty text.
    int SetTextRes(int id) const;
    // Copies the text into buf (cch characters, always terminated); the length copied.
    unsigned GetText(wchar_t* buf, unsigned cch) const;
    unsigned GetTextLength() const;

protected:
    HWND hWnd = nullptr;
};

// A static control: DMCtrl's SetText / SetTextRes.
class DMStatic : public DMCtrl {
public:
    using DMCtrl::DMCtrl;
};

class DMButton : public DMCtrl {
public:
    using DMCtrl::DMCtrl;
    // Clicks the button as a user would: the parent gets its command. A disabled or hidden
    // button (its own state; the dialog may not be shown yet) cannot be clicked (0).
    int Click() const;
};

class DMCheckBox : public DMButton {
public:
    using DMButton::DMButton;
    // Nonzero when checked (an indeterminate three-state box counts as not checked).
    BOOL IsChecked() const { return Send(BM_GETCHECK) == BST_CHECKED; }
    void SetChecked(BOOL bChecked) const { Send(BM_SETCHECK, bChecked ? BST_CHECKED : BST_UNCHECKED); }
};

// A number field: an edit control with an up-down control (spin) beside it. The spin holds the
// allowed range; GetInt refuses text that is not a number or lies outside it, so the caller can
// name the field and the bounds to the user.
class DMEditSpin : public DMCtrl {
public:
    DMEditSpin(HWND hwndDlg, int idEdit, int idSpin) : DMCtrl(hwndDlg, idEdit), hSpin(GetDlgItem(hwndDlg, idSpin)) {}
    DMEditSpin(HWND hwndEdit, HWND hwndSpin) : DMCtrl(hwndEdit), hSpin(hwndSpin) {}

    HWND GetSpin() const { return hSpin; }
    // Sets the spin's range (lo and hi in either order) and makes the edit its buddy when it has
    // none. The spin writes plain digits from then on (no digit grouping), which GetInt reads.
    // 0 when there is no spin.
    int SetRange(int lo, int hi) const;
    // The range (lo <= hi); 0 when there is no spin.
    int GetRange(int* pLo, int* pHi) const;
    // The number in the edit. *pbValid (may be null) is TRUE only when the text is a whole
    // number inside the spin's range (any int without a spin). The result is the number read,
    // also when it lies outside the range, and 0 when the text is not a number.
    int GetInt(BOOL* pbValid) const;
    // Writes value as plain digits and moves the spin to it (the spin keeps its position
    // inside its range; the text shows value as given).
    int SetInt(int value) const;

private:
    HWND hSpin;
};

// A single-selection list box.
class DMListBox : public DMCtrl {
public:
    using DMCtrl::DMCtrl;
    // The index of the new item; -1 when it could not be added.
    int Add(const wchar_t* text) const;
    // Deletes item index; the number of items left, -1 for a bad index.
    int Delete(int index) const;
    void Clear() const { Send(LB_RESETCONTENT); }
    int GetCount() const;
    // The selected item, -1 for none.
    int GetSel() const;
    // Selects item index (-1 clears the selection); 0 for a bad index.
    int SetSel(int index) const;
    // Copies item index's text into buf (cch characters, always terminated, cut when longer);
    // the length copied, 0 with an empty buffer for a bad index.
    unsigned GetItemText(int index, wchar_t* buf, unsigned cch) const;
    // The index of the item whose whole text equals text (ignoring case), -1 for none.
    int FindExact(const wchar_t* text) const;
};

// A drop-down list (combo box) whose items carry a value each.
class DMComboBox : public DMCtrl {
public:
    using DMCtrl::DMCtrl;
    // The index of the new item; -1 when it could not be added.
    int AddItem(const wchar_t* text, LPARAM data) const;
    void Clear() const { Send(CB_RESETCONTENT); }
    int GetCount() const;
    int GetSel() const;
    int SetSel(int index) const;
    // Selects the first item carrying data; its index, -1 (and no selection) when none does.
    int SelectByData(LPARAM data) const;
    // The value of the selected item into *pData; 0 (and *pData untouched) when none is selected.
    int GetSelData(LPARAM* pData) const;
};
