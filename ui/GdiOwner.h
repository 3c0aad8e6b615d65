// Owners of GDI objects and device contexts in the handle owner template of base/Handle.h
// (released by the destructor without disturbing the caller's last-error value), and a guard
// that selects an object into a device context for a scope and selects the previous one back.
// An object must be deselected before it is deleted: declare the owner before the guard that
// selects it.
#pragma once
#include <windows.h>

#include "base/Handle.h"

template <class T> struct GdiTraits : NullEmptyTraits<T> {
    static void Release(T h) { DeleteObject(h); }
};
struct MemoryDcTraits : NullEmptyTraits<HDC> {
    static void Release(HDC h) { DeleteDC(h); }
};
struct IconTraits : NullEmptyTraits<HICON> {
    static void Release(HICON h) { DestroyIcon(h); }
};

typedef Owner<HFONT, GdiTraits<HFONT>> GdiFont;
typedef Owner<HBRUSH, GdiTraits<HBRUSH>> GdiBrush;
typedef Owner<HBITMAP, GdiTraits<HBITMAP>> GdiBitmap;
typedef Owner<HDC, MemoryDcTraits> MemoryDc;   // from CreateCompatibleDC
typedef Owner<HICON, IconTraits> IconOwner;    // from LoadImage (not shared icons)

// A window's (or with a null window the screen's) device context from GetDC.
class WindowDc {
public:
    explicit WindowDc(HWND hwnd) : hwnd_(hwnd), hdc_(GetDC(hwnd)) {}
    ~WindowDc()
    {
        if (hdc_) {
            DWORD err = GetLastError();
            ReleaseDC(hwnd_, hdc_);
            SetLastError(err);
        }
    }
    WindowDc(const WindowDc&) = delete;
    WindowDc& operator=(const WindowDc&) = delete;
    HDC Get() const { return hdc_; }

private:
    HWND hwnd_;
    HDC hdc_;
};

// Selects an object into a device context for a scope.
class DcSelection {
public:
    DcSelection(HDC hdc, HGDIOBJ obj) : hdc_(hdc), old_(obj ? SelectObject(hdc, obj) : nullptr) {}
    ~DcSelection()
    {
        if (old_ && old_ != HGDI_ERROR)
            SelectObject(hdc_, old_);
    }
    DcSelection(const DcSelection&) = delete;
    DcSelection& operator=(const DcSelection&) = delete;
    bool IsSelected() const { return old_ && old_ != HGDI_ERROR; }

private:
    HDC hdc_;
    HGDIOBJ old_;
};
