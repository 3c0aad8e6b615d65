#include "ui/MsgBoxModel.h"

#include "base/StrUtil.h"
#include "resources/resource.h"

namespace MsgBoxModel {

bool IsResourceId(const wchar_t* text)
{
    const ULONG_PTR high = (ULONG_PTR)text >> 16;
    return high == 0 || high == ((ULONG_PTR)-1 >> 16);
}

int ResourceIdOf(const wchar_t* text) { return (int)(LONG_PTR)text; }

unsigned ComposeText(wchar_t* out, unsigned cch, const wchar_t* text, DWORD flags, DWORD lastError,
                     const wchar_t* errorText)
{
    if (!out || cch == 0)
        return 0;
    const unsigned limit = cch - 1 < kMaxText ? cch : kMaxText + 1;
    StrCopy(out, limit, text);
    if ((flags & kAppendLastError) && lastError != 0) {
        StrAppend(out, limit, (flags & kHtmlErrorSeparator) ? L"<br><br>" : L"\n\n");
        StrAppend(out, limit, errorText);
    }
    return StrLen(out);
}

Buttons ButtonsFor(DWORD flags)
{
    const Button none = {0, 0};
    const Button ok = {IDOK, IDS_BUTTON_OK}, cancel = {IDCANCEL, IDS_BUTTON_CANCEL};
    const Button abort = {IDABORT, IDS_BUTTON_ABORT}, retry = {IDRETRY, IDS_BUTTON_RETRY},
                 ignore = {IDIGNORE, IDS_BUTTON_IGNORE};
    const Button yes = {IDYES, IDS_BUTTON_YES}, no = {IDNO, IDS_BUTTON_NO};
    const Button tryAgain = {IDTRYAGAIN, IDS_BUTTON_TRY_AGAIN}, cont = {IDCONTINUE, IDS_BUTTON_CONTINUE};
    switch (flags & MB_TYPEMASK) {
    case MB_OKCANCEL:
        return {{ok, none, cancel}};
    case MB_ABORTRETRYIGNORE:
        return {{abort, retry, ignore}};
    case MB_YESNOCANCEL:
        return {{yes, no, cancel}};
    case MB_YESNO:
        return {{yes, none, no}};
    case MB_RETRYCANCEL:
        return {{retry, none, cancel}};
    case MB_CANCELTRYCONTINUE:
        return {{tryAgain, cont, cancel}};
    default: // MB_OK and anything unknown: a box that only informs
        return {{none, none, ok}};
    }
}

int ControlOfAnswer(const Buttons& buttons, int nAnswer)
{
    static const int controls[3] = {kIdButton1, kIdButton2, kIdButtonCancel};
    for (int i = 0; i < 3; ++i)
        if (nAnswer && buttons.place[i].nAnswer == nAnswer)
            return controls[i];
    return 0;
}

int AnswerOfControl(const Buttons& buttons, int nControl)
{
    switch (nControl) {
    case kIdButton1:
        return buttons.place[0].nAnswer;
    case kIdButton2:
        return buttons.place[1].nAnswer;
    case kIdButtonCancel:
        return buttons.place[2].nAnswer;
    default:
        return 0;
    }
}

Icon IconFor(DWORD flags)
{
    switch (flags & MB_ICONMASK) {
    case MB_ICONERROR:
        return IconError;
    case MB_ICONQUESTION:
        return IconQuestion;
    case MB_ICONWARNING:
        return IconWarning;
    default:
        return IconInformation;
    }
}

int IconSizeFor(int nDpi) { return nDpi >= 144 ? 64 : 48; }

bool HasRetryButtons(DWORD flags)
{
    const DWORD type = flags & MB_TYPEMASK;
    return type == MB_ABORTRETRYIGNORE || type == MB_RETRYCANCEL || type == MB_CANCELTRYCONTINUE;
}

int DeviceArrivalControl(DWORD flags)
{
    if (!(flags & kPressFirstOnDevice) || !HasRetryButtons(flags))
        return 0;
    const Buttons buttons = ButtonsFor(flags);
    return ControlOfAnswer(buttons, (flags & MB_TYPEMASK) == MB_CANCELTRYCONTINUE ? IDTRYAGAIN : IDRETRY);
}

} // namespace MsgBoxModel
