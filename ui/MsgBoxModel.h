// The decisions of the extended message box that need no window: what its text argument is (a
// string or a string-resource id), the text it shows (with the last error's text appended on
// request, cut to its limit), which buttons it offers in its three button places, which icon and
// icon size it shows, and which button a device arrival presses. The dialog (MsgBox.cpp) only
// creates, lays out and runs what these functions decide.
#pragma once
#include <windows.h>

namespace MsgBoxModel {

// The program's own flags, above the system's message-box flags.
const DWORD kAppendLastError = 0x80000000;     // append the text of the last error
const DWORD kDropTopmostOnActivate = 0x40000000; // an activated box stops being topmost
const DWORD kHtmlErrorSeparator = 0x20000000;  // "<br><br>" before that text instead of "\n\n"
const DWORD kPressFirstOnDevice = 0x10000000;  // a device arrival presses the retry button
const DWORD kProgramFlags = kAppendLastError | kDropTopmostOnActivate | kHtmlErrorSeparator | kPressFirstOnDevice;

// The longest message a box shows, in characters.
const unsigned kMaxText = 2048;

// The controls of the box's dialog template.
const int kIdAccelerators = 27003;
const int kIdText = 27004;
const int kIdDontShowAgain = 27005;
const int kIdButton1 = 27011;
const int kIdButton2 = 27012;
const int kIdButtonCancel = 27040;
// The accelerator command that closes the box as Cancel.
const int kIdCloseCommand = -4000;

// A text argument whose upper bits are all zeros or all ones is a string-resource id, so that a
// negative id can name the library's own strings; anything else is a pointer to the text.
bool IsResourceId(const wchar_t* text);
int ResourceIdOf(const wchar_t* text);

// The message as shown: text, then, when kAppendLastError is set and lastError is not 0, the
// separator and errorText. At most kMaxText characters (and cch - 1) are written.
unsigned ComposeText(wchar_t* out, unsigned cch, const wchar_t* text, DWORD flags, DWORD lastError,
                     const wchar_t* errorText);

// One of the three button places: the answer it gives (IDOK, IDYES, ...; 0 = not shown) and the
// string resource of its label.
struct Button {
    int nAnswer;
    int nLabelId;
};
// The places in order: kIdButton1, kIdButton2, kIdButtonCancel. The last place is the one that
// Escape, the close box and the Cancel accelerator press, so it holds the answer a dismissed box
// gives (IDOK for a box that only informs).
struct Buttons {
    Button place[3];
};
Buttons ButtonsFor(DWORD flags);
// The control of the place that gives answer, or 0 when the box does not offer it.
int ControlOfAnswer(const Buttons& buttons, int nAnswer);
int AnswerOfControl(const Buttons& buttons, int nControl);

enum Icon { IconError, IconQuestion, IconWarning, IconInformation };
// By the icon flag; anything other than error, question and warning shows information.
Icon IconFor(DWORD flags);
// 48 pixels, or 64 on screens of 144 dots per inch and more.
int IconSizeFor(int nDpi);

// The box offers a retry (abort-retry-ignore, retry-cancel, cancel-try-continue).
bool HasRetryButtons(DWORD flags);
// The control a device arrival presses: the retry button of a box that has one and asked for it
// with kPressFirstOnDevice, else 0. A device arriving means "try again now".
int DeviceArrivalControl(DWORD flags);

} // namespace MsgBoxModel
