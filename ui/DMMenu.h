// DMMenu: a popup menu the program owns (built in code or loaded from the resources) and shows
// at a point or under a control. The menu is destroyed with the object; a menu handed to a parent
// menu as its submenu belongs to the parent from then on. Track returns the chosen command
// itself (TPM_RETURNCMD): the owner decides what to do with it, e.g. send it to a dialog.
#pragma once
#include <windows.h>

#include <utility>

#include "ui/UiHandles.h"

class DMMenu {
public:
    DMMenu() = default;
    // Takes hmenu over (it is destroyed with the object).
    explicit DMMenu(HMENU hmenu) : menu(hmenu), hPopup(hmenu) {}
    DMMenu(DMMenu&& o) noexcept : menu(std::move(o.menu)), hPopup(o.hPopup) { o.hPopup = nullptr; }
    DMMenu& operator=(DMMenu&& o) noexcept;

    // A new empty popup menu (the one held before is destroyed). Nonzero on success.
    int CreatePopup();
    // Loads menu resource id from module (null: the product's resource module, then the
    // executable). A resource holds a menu bar; the popup shown is its first submenu, or the
    // bar itself when it has none. Nonzero on success, 0 with the reason in the last error.
    int Load(UINT id, HINSTANCE module = nullptr);

    HMENU Get() const { return menu.Get(); }
    // The menu Track shows and the item calls below work on.
    HMENU GetPopup() const { return hPopup; }
    int GetCount() const;

    // Appends a command (flags: MF_GRAYED, MF_CHECKED...). Nonzero on success.
    int Append(UINT id, const wchar_t* text, UINT flags = 0);
    // Appends a command whose text is string resource idString.
    int AppendRes(UINT id, int idString, UINT flags = 0);
    int AppendSeparator();
    // Appends sub as a submenu; sub's menu belongs to this one from then on (sub is emptied).
    int AppendSubMenu(DMMenu& sub, const wchar_t* text);

    // Item states by command id; nonzero when the item exists.
    int Check(UINT id, BOOL bCheck);
    int Enable(UINT id, BOOL bEnable);
    BOOL IsChecked(UINT id) const;
    BOOL IsEnabled(UINT id) const;
    // Copies item id's text into buf (cch characters, always terminated); the length copied.
    unsigned GetItemText(UINT id, wchar_t* buf, unsigned cch) const;

    // Shows the menu with its top-left corner at a screen point (flags: TPM_ alignment and
    // button flags) and waits for the choice: the command chosen, 0 when the menu was dismissed
    // or could not be shown.
    UINT Track(HWND hwndOwner, int x, int y, UINT flags = 0) const;
    // Shows the menu under a control: its left edge at the control's left edge, one pixel below
    // the control's bottom; where the screen has no room below, the system places it above,
    // never over the control.
    UINT TrackUnder(HWND hwndOwner, HWND hwndCtrl, UINT flags = 0) const;

private:
    MenuHandle menu;
    HMENU hPopup = nullptr; // menu itself, or the first submenu of a loaded bar
};
