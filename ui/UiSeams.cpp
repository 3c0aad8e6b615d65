// The shipped defaults of the window library's connections to user32 (ui/UiSeams.h).
#include "ui/UiSeams.h"

#include "base/Module.h"

namespace {

typedef UINT(WINAPI* GetDpiForWindowFn)(HWND);
typedef UINT(WINAPI* GetDpiForSystemFn)();

// user32 is loaded in every process that has windows; the exports exist from Windows 10 1607.
HMODULE User32()
{
    return GetModuleHandleW(L"user32.dll");
}

// The logical pixels per inch of a window's device context (the screen's for a null window).
UINT DeviceDpi(HWND hwnd)
{
    HDC hdc = GetDC(hwnd);
    if (!hdc)
        return 0;
    int dpi = GetDeviceCaps(hdc, LOGPIXELSX);
    ReleaseDC(hwnd, hdc);
    return dpi > 0 ? (UINT)dpi : 0;
}

UINT RealGetWindowDpi(HWND hwnd)
{
    static const GetDpiForWindowFn pfn = GetProcAs<GetDpiForWindowFn>(User32(), "GetDpiForWindow");
    if (!hwnd || !IsWindow(hwnd))
        return 0;
    if (pfn) {
        UINT dpi = pfn(hwnd);
        if (dpi)
            return dpi;
    }
    return DeviceDpi(hwnd);
}

UINT RealGetSystemDpi()
{
    static const GetDpiForSystemFn pfn = GetProcAs<GetDpiForSystemFn>(User32(), "GetDpiForSystem");
    if (pfn) {
        UINT dpi = pfn();
        if (dpi)
            return dpi;
    }
    return DeviceDpi(nullptr);
}

BOOL RealTrackPopupMenuEx(HMENU menu, UINT flags, int x, int y, HWND owner, const TPMPARAMS* params)
{
    return TrackPopupMenuEx(menu, flags, x, y, owner, const_cast<TPMPARAMS*>(params));
}

} // namespace

namespace UiSeams {

UINT (*pfnGetWindowDpi)(HWND hwnd) = RealGetWindowDpi;
UINT (*pfnGetSystemDpi)() = RealGetSystemDpi;
BOOL (*pfnTrackPopupMenuEx)(HMENU menu, UINT flags, int x, int y, HWND owner, const TPMPARAMS* params) =
    RealTrackPopupMenuEx;

} // namespace UiSeams
