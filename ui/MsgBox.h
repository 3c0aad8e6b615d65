// The message boxes of the program's windows. Every message goes through this one family instead
// of the system's message box: the extended box shows its text as rich text (bold, colours,
// links), can offer "Don't show this message again", can run a timer callback (a countdown that
// updates the text and presses a button by itself), reports link and button clicks to callbacks,
// and can be pressed from another process.
//
// Text arguments are a string or a string-resource id (see MsgBoxModel::IsResourceId): a
// negative id names the library's own string -id, a positive one the application's string of
// that id (then the library's). A missing string gives an empty message. Messages are cut at
// 2048 characters.
//
// Flags are the system's message-box flags (buttons, icon, MB_TOPMOST, MB_SETFOREGROUND) plus
// the program's own (MsgBoxModel::kAppendLastError and the others). The result is the pressed
// button's answer (IDOK, IDCANCEL, IDYES, ...); 0 when an open box of the same instance id was
// activated instead, -1 when no box could be made.
//
// One box at a time: a box asked for while another is open waits, with the other in front and
// the asking thread's messages pumped, until the other has closed.
//
// While a box is open:
//   - the registered message "KorvaneMessage" with code 6 (wParam) presses the control whose id
//     is in lParam, or the button that gives the answer in lParam (IDOK, IDCANCEL, ...), so that
//     another process can answer the box;
//   - code 121 answers nonzero when lParam is the box's instance id (MsgExSetActivatePrevID);
//   - a device arrival presses the retry button when the box asked for it.
#pragma once
#include <windows.h>

#include <cstdarg>

#include "ui/MsgBoxModel.h"

// Called every period with the box, the number of earlier calls and the context; a nonzero
// result is the id of a control of the box to press (a countdown ending presses its button).
typedef int (*MsgExTimerCallback)(HWND hwndBox, unsigned nTick, void* context);
// A link of the message was clicked: nLink is 0 for "<A>", 1 to 9 for "<A1>" to "<A9>". A nonzero
// result is the id of a control of the box to press.
typedef int (*MsgExLinkCallback)(HWND hwndBox, int nLink, void* context);
// A button was pressed, with the answer it gives; a nonzero result keeps the box open.
typedef int (*MsgExButtonCallback)(HWND hwndBox, int nAnswer, void* context);
// A box opens (bPause 1) or closes (0): work that should wait for the user pauses meanwhile.
typedef void (*MsgPauseResumeCallback)(int bPause, void* context);

// The extended box.
int MsgEx(HWND owner, UINT flags, const wchar_t* text);
int MsgExFmt(HWND owner, UINT flags, const wchar_t* format, ...);
// With the don't-show-again check box: *pDontShow is its state on entry and on return.
int MsgExFmt(HWND owner, UINT flags, int* pDontShow, const wchar_t* format, ...);
// With a link callback for this box only.
int MsgExFmtLink(HWND owner, UINT flags, MsgExLinkCallback link, void* context, const wchar_t* format, ...);
// Replaces the message of an open box (its label, control 27004), e.g. a countdown's.
int MsgExSetText(HWND hwndBox, const wchar_t* text);
// The box open now, or null.
HWND MsgExGetOpenBox();

// The callbacks, kept until changed (null switches one off). Setting the timer resets its tick
// count to 0.
void MsgExSetLinkCallback(MsgExLinkCallback callback, void* context);
void MsgExSetButtonCallback(MsgExButtonCallback callback, void* context);
void MsgExSetTimerCallback(UINT nPeriodMs, MsgExTimerCallback callback, void* context);
void MsgSetPauseResumeCallback(MsgPauseResumeCallback callback, void* context);
// The instance id of the boxes opened from now on (0: none). A box asked for while a box of the
// same id is open anywhere activates that box instead and returns 0.
void MsgExSetActivatePrevID(UINT nInstanceId);

// The plain forms.
int Msg(HWND owner, UINT flags, const wchar_t* text);
int MsgFmt(HWND owner, UINT flags, const wchar_t* format, ...);
// The message of resource id, then the text of the last error.
int MsgLastError(HWND owner, UINT flags, int nResourceId);
// The message of resource id, then the text of the result code hr.
int MsgHRESULT(HWND owner, HRESULT hr, UINT flags, int nResourceId);

// The message text of a text argument (a string or a resource id), formatted with args when
// format is set, cut to the box's limit. The length written.
unsigned MsgLoadText(wchar_t* buf, unsigned cch, const wchar_t* text, bool bFormat, va_list args);
