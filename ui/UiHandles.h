// Owners of user32 objects, in the handle owner template of base/Handle.h: windows the program
// created and must destroy, menus it built, accelerator tables it made. Windows and menus must be
// destroyed by the thread that created them (windows) or while no menu is tracking them (menus).
#pragma once
#include <windows.h>

#include "base/Handle.h"

struct WindowTraits : NullEmptyTraits<HWND> {
    static void Release(HWND h) { DestroyWindow(h); }
};
struct MenuTraits : NullEmptyTraits<HMENU> {
    static void Release(HMENU h) { DestroyMenu(h); }
};
// Tables from CreateAcceleratorTable (LoadAccelerators tables belong to their module).
struct AcceleratorTraits : NullEmptyTraits<HACCEL> {
    static void Release(HACCEL h) { DestroyAcceleratorTable(h); }
};

typedef Owner<HWND, WindowTraits> WindowHandle;
typedef Owner<HMENU, MenuTraits> MenuHandle;
typedef Owner<HACCEL, AcceleratorTraits> AcceleratorHandle;
