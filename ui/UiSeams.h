// The window library's replaceable connections to user32. The shipped code sets them to the real
// functions; tests point them at fakes (a window at 144 DPI, a menu choice made without a user),
// so the code that ships is the code that is tested. Pointers are changed only while no window
// of the program is using them (test set-up and tear-down).
#pragma once
#include <windows.h>

namespace UiSeams {

// The DPI a window is drawn at: GetDpiForWindow where the system has it (looked up at run time),
// else the logical pixels per inch of the window's device context. 0 when neither answers.
extern UINT (*pfnGetWindowDpi)(HWND hwnd);
// The system DPI: GetDpiForSystem where the system has it, else the screen's logical pixels per
// inch. 0 when neither answers.
extern UINT (*pfnGetSystemDpi)();

// Tracks a popup menu (TrackPopupMenuEx). With TPM_RETURNCMD the result is the chosen command,
// 0 when the menu was dismissed.
extern BOOL (*pfnTrackPopupMenuEx)(HMENU menu, UINT flags, int x, int y, HWND owner, const TPMPARAMS* params);

} // namespace UiSeams
