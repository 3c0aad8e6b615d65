// The configuration utility's two small dialogs: the custom warning-message editor (103) and the
// data-loss warning (104) shown the first time an administrator switches logging off on.
#pragma once
#include <windows.h>

#include "ui/DMDlg.h"

class DlgCustomMsg : public DMDlg {
public:
    // text: what the editor starts with; bPolicyManaged: the settings are imposed, so the text can
    // be read but not changed (OK stays disabled).
    DlgCustomMsg(const wchar_t* text, bool bPolicyManaged);
    // The text as the administrator left it at OK (at most 511 characters and the terminator).
    const wchar_t* GetText() const { return szText; }

protected:
    BOOL OnInit() override;
    int OptsToDlg() override;
    int DlgToOpts() override;

private:
    wchar_t szText[512];
    bool bPolicyManaged;
};

// What a custom message edited in DlgCustomMsg is stored as: the text without leading and
// trailing blanks and line breaks; empty when it equals the built-in text, so that the product's
// own text (and its translations) keeps applying; at most 511 characters and the terminator.
void MakeStoredMessage(const wchar_t* edited, const wchar_t* builtIn, wchar_t (&out)[512]);

class DlgWarningDataLoss : public DMDlg {
public:
    DlgWarningDataLoss();

protected:
    BOOL OnInit() override;
    int OnCommand(WORD id, WORD code, HWND hwndCtl) override;
};
