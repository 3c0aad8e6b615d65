#include "ui/DMMenu.h"

#include <climits>
#include <utility>

#include "base/Resources.h"
#include "ui/UiSeams.h"

DMMenu& DMMenu::operator=(DMMenu&& o) noexcept
{
    if (this != &o) {
        menu = std::move(o.menu);
        hPopup = o.hPopup;
        o.hPopup = nullptr;
    }
    return *this;
}

int DMMenu::CreatePopup()
{
    menu.Attach(CreatePopupMenu());
    hPopup = menu.Get();
    return hPopup ? 1 : 0;
}

int DMMenu::Load(UINT id, HINSTANCE module)
{
    if (!module)
        module = GetResourceModule();
    if (!module)
        module = GetModuleHandleW(nullptr);
    menu.Attach(LoadMenuW(module, MAKEINTRESOURCEW(id)));
    hPopup = nullptr;
    if (!menu)
        return 0;
    HMENU sub = GetSubMenu(menu.Get(), 0);
    hPopup = sub ? sub : menu.Get();
    return 1;
}

int DMMenu::GetCount() const
{
    int n = hPopup ? GetMenuItemCount(hPopup) : 0;
    return n > 0 ? n : 0;
}

int DMMenu::Append(UINT id, const wchar_t* text, UINT flags)
{
    if (!hPopup) {
        SetLastError(ERROR_INVALID_MENU_HANDLE);
        return 0;
    }
    // Only the state flags: the item's kind is decided here.
    flags &= MF_GRAYED | MF_DISABLED | MF_CHECKED | MF_MENUBREAK | MF_MENUBARBREAK | MF_RIGHTJUSTIFY;
    return AppendMenuW(hPopup, MF_STRING | flags, id, text ? text : L"") ? 1 : 0;
}

int DMMenu::AppendRes(UINT id, int idString, UINT flags)
{
    wchar_t text[256];
    LoadResString(idString, text, 256);
    return Append(id, text, flags);
}

int DMMenu::AppendSeparator()
{
    if (!hPopup) {
        SetLastError(ERROR_INVALID_MENU_HANDLE);
        return 0;
    }
    return AppendMenuW(hPopup, MF_SEPARATOR, 0, nullptr) ? 1 : 0;
}

int DMMenu::AppendSubMenu(DMMenu& sub, const wchar_t* text)
{
    if (!hPopup || !sub.menu || sub.hPopup != sub.menu.Get()) {
        // Only a popup built in code can move: a loaded bar's submenu is part of its bar.
        SetLastError(ERROR_INVALID_MENU_HANDLE);
        return 0;
    }
    if (!AppendMenuW(hPopup, MF_POPUP | MF_STRING, (UINT_PTR)sub.menu.Get(), text ? text : L""))
        return 0;
    sub.menu.Detach();
    sub.hPopup = nullptr;
    return 1;
}

int DMMenu::Check(UINT id, BOOL bCheck)
{
    return hPopup && CheckMenuItem(hPopup, id, MF_BYCOMMAND | (bCheck ? MF_CHECKED : MF_UNCHECKED)) != (DWORD)-1;
}

int DMMenu::Enable(UINT id, BOOL bEnable)
{
    return hPopup && EnableMenuItem(hPopup, id, MF_BYCOMMAND | (bEnable ? MF_ENABLED : MF_GRAYED)) != -1;
}

BOOL DMMenu::IsChecked(UINT id) const
{
    UINT state = hPopup ? GetMenuState(hPopup, id, MF_BYCOMMAND) : (UINT)-1;
    return state != (UINT)-1 && (state & MF_CHECKED);
}

BOOL DMMenu::IsEnabled(UINT id) const
{
    UINT state = hPopup ? GetMenuState(hPopup, id, MF_BYCOMMAND) : (UINT)-1;
    return state != (UINT)-1 && !(state & (MF_GRAYED | MF_DISABLED));
}

unsigned DMMenu::GetItemText(UINT id, wchar_t* buf, unsigned cch) const
{
    if (!buf || cch == 0)
        return 0;
    buf[0] = 0;
    if (!hPopup)
        return 0;
    int n = GetMenuStringW(hPopup, id, buf, cch > INT_MAX ? INT_MAX : (int)cch, MF_BYCOMMAND);
    if (n <= 0) {
        buf[0] = 0;
        return 0;
    }
    return (unsigned)n;
}

UINT DMMenu::Track(HWND hwndOwner, int x, int y, UINT flags) const
{
    if (!hPopup)
        return 0;
    return (UINT)UiSeams::pfnTrackPopupMenuEx(hPopup, flags | TPM_RETURNCMD, x, y, hwndOwner, nullptr);
}

UINT DMMenu::TrackUnder(HWND hwndOwner, HWND hwndCtrl, UINT flags) const
{
    RECT rc;
    if (!hPopup || !hwndCtrl || !GetWindowRect(hwndCtrl, &rc))
        return 0;
    TPMPARAMS params = {};
    params.cbSize = sizeof(params);
    params.rcExclude = rc;
    const int y = rc.bottom < INT_MAX ? rc.bottom + 1 : rc.bottom;
    const UINT how = flags | TPM_RETURNCMD | TPM_LEFTALIGN | TPM_TOPALIGN | TPM_VERTICAL;
    return (UINT)UiSeams::pfnTrackPopupMenuEx(hPopup, how, rc.left, y, hwndOwner, &params);
}
