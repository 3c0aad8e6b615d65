#include "ui/MsgBox.h"

#include <dbt.h>

#include <cstdarg>

#include "base/Handle.h"
#include "base/ProductInfo.h"
#include "base/Resources.h"
#include "base/StrUtil.h"
#include "base/Thread.h"
#include "resources/resource.h"
#include "ui/DMDlg.h"
#include "ui/DMStaticHTML.h"
#include "ui/Dpi.h"

using namespace MsgBoxModel;

namespace {

// The codes of the registered message "KorvaneMessage" that a box answers.
const WPARAM kCodePressButton = 6;
const WPARAM kCodeWhoIs = 121;
const UINT_PTR kTimerId = 1;
// Layout, in dialog units (a quarter of the font's average width, an eighth of its height).
const int kMarginDlu = 7, kGapDlu = 4, kTextWidthDlu = 230, kButtonWidthDlu = 50, kButtonHeightDlu = 14;

UINT KorvaneMessage()
{
    static const UINT msg = RegisterWindowMessageW(L"KorvaneMessage");
    return msg;
}

// The process-wide state of the family: the callbacks and the box open now.
struct Shared {
    CritSec lock;
    MsgExLinkCallback pfnLink = nullptr;
    void* pLinkContext = nullptr;
    MsgExButtonCallback pfnButton = nullptr;
    void* pButtonContext = nullptr;
    MsgExTimerCallback pfnTimer = nullptr;
    void* pTimerContext = nullptr;
    UINT nTimerPeriod = 0;
    unsigned nTimerTick = 0;
    MsgPauseResumeCallback pfnPause = nullptr;
    void* pPauseContext = nullptr;
    UINT nInstanceId = 0;
    HWND hwndOpen = nullptr;
    bool bOpening = false;
};

Shared& State()
{
    static Shared s;
    return s;
}

// A string of the application (positive id, then the library's) or of the library (negative id).
unsigned LoadTextResource(int id, wchar_t* buf, unsigned cch)
{
    buf[0] = 0;
    if (id < 0) {
        int n = LoadResString(-id, buf, cch);
        return n > 0 ? (unsigned)n : 0;
    }
    int n = LoadStringW(GetModuleHandleW(nullptr), (UINT)id, buf, (int)cch);
    if (n <= 0)
        n = LoadResString(id, buf, cch);
    if (n <= 0)
        buf[0] = 0;
    return n > 0 ? (unsigned)n : 0;
}

// The system's text of a code, without its trailing line break.
void SystemText(DWORD code, wchar_t* buf, unsigned cch)
{
    buf[0] = 0;
    DWORD n = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, buf, cch, nullptr);
    while (n > 0 && (buf[n - 1] == L'\n' || buf[n - 1] == L'\r' || buf[n - 1] == L' '))
        buf[--n] = 0;
    if (!n)
        StrFormat(buf, cch, L"0x%08lX", (unsigned long)code);
}

class DlgMsgEx : public DMDlg {
public:
    DlgMsgEx(UINT flags, const wchar_t* text, int* pDontShow, MsgExLinkCallback pfnLink, void* pLinkContext,
             UINT nInstanceId)
        : DMDlg(IDD_MSGEX, GetResourceModule()), nFlags(flags), pszText(text), pDontShow(pDontShow), pfnLink(pfnLink),
          pLinkContext(pLinkContext), nInstanceId(nInstanceId), buttons(ButtonsFor(flags))
    {
    }

    // Presses a control of the box: a button ends the box with its answer unless the button
    // callback keeps it open; the check box toggles.
    void Press(int nControl)
    {
        if (nControl == IDC_MSGEX_DONT_SHOW) {
            HWND check = GetItem(nControl);
            if (check && IsWindowVisible(check))
                SendMessageW(check, BM_CLICK, 0, 0);
            return;
        }
        // The control may also be named by the answer it gives (IDOK, IDCANCEL, ...): the
        // monitor closes its warning box with code 6 and IDOK.
        int answer = AnswerOfControl(buttons, nControl);
        if (!answer && ControlOfAnswer(buttons, nControl))
            answer = nControl;
        if (!answer)
            return;
        MsgExButtonCallback pfn;
        void* context;
        {
            CritSecLock lock(State().lock);
            pfn = State().pfnButton;
            context = State().pButtonContext;
        }
        if (pfn && pfn(hWnd, answer, context))
            return;
        End(answer);
    }

    // Places the controls for the text: the label as tall as its text at a fixed width, the
    // icon beside it, the buttons below on the right, the check box below on the left.
    void Layout()
    {
        RECT unit = {kMarginDlu, kGapDlu, kTextWidthDlu, kButtonHeightDlu};
        MapDialogRect(hWnd, &unit);
        RECT button = {kButtonWidthDlu, 0, 0, 0};
        MapDialogRect(hWnd, &button);
        const int margin = unit.left, gap = unit.top, textWidth = unit.right, buttonHeight = unit.bottom;
        const int buttonWidth = button.left;
        const int icon = IconSizeFor((int)Dpi::ForWindow(hWnd).Get());

        const int textX = margin + icon + margin;
        HWND label = GetItem(IDC_MSGEX_TEXT);
        SetWindowPos(label, nullptr, textX, margin, textWidth, icon, SWP_NOZORDER | SWP_NOACTIVATE);
        int textHeight = text.CalcHeight();
        if (textHeight < icon)
            textHeight = icon;
        SetWindowPos(label, nullptr, textX, margin, textWidth, textHeight, SWP_NOZORDER | SWP_NOACTIVATE);
        SetWindowPos(GetItem(IDC_MSGEX_ICON), nullptr, margin, margin, icon, icon, SWP_NOZORDER | SWP_NOACTIVATE);

        const int rowY = margin + textHeight + margin;
        int clientWidth = textX + textWidth + margin;
        // Buttons from the right edge leftwards: the cancel place is always rightmost.
        static const int places[3] = {IDC_MSGEX_BUTTON1, IDC_MSGEX_BUTTON2, IDC_MSGEX_CANCEL};
        int nShown = 0;
        for (int i = 0; i < 3; ++i)
            nShown += buttons.place[i].nAnswer != 0;
        int checkWidth = 0;
        HWND check = GetItem(IDC_MSGEX_DONT_SHOW);
        if (pDontShow) {
            HDC dc = GetDC(check);
            HFONT font = (HFONT)SendMessageW(check, WM_GETFONT, 0, 0);
            HGDIOBJ old = SelectObject(dc, font);
            wchar_t caption[128];
            GetWindowTextW(check, caption, 128);
            SIZE sz = {};
            GetTextExtentPoint32W(dc, caption, (int)StrLen(caption), &sz);
            SelectObject(dc, old);
            ReleaseDC(check, dc);
            checkWidth = sz.cx + GetSystemMetrics(SM_CXMENUCHECK) + gap * 2;
        }
        const int buttonsWidth = nShown * buttonWidth + (nShown - 1) * gap;
        if (margin + checkWidth + (checkWidth ? gap * 2 : 0) + buttonsWidth + margin > clientWidth)
            clientWidth = margin + checkWidth + (checkWidth ? gap * 2 : 0) + buttonsWidth + margin;
        int x = clientWidth - margin - buttonWidth;
        for (int i = 2; i >= 0; --i) {
            HWND b = GetItem(places[i]);
            if (!buttons.place[i].nAnswer) {
                ShowWindow(b, SW_HIDE);
                continue;
            }
            SetWindowPos(b, nullptr, x, rowY, buttonWidth, buttonHeight, SWP_NOZORDER | SWP_NOACTIVATE | SWP_SHOWWINDOW);
            x -= buttonWidth + gap;
        }
        if (pDontShow)
            SetWindowPos(check, nullptr, margin, rowY + (buttonHeight - gap * 3) / 2, checkWidth, gap * 3,
                         SWP_NOZORDER | SWP_NOACTIVATE | SWP_SHOWWINDOW);
        else
            ShowWindow(check, SW_HIDE);

        RECT frame = {0, 0, clientWidth, rowY + buttonHeight + margin};
        AdjustWindowRectEx(&frame, (DWORD)GetWindowLongW(hWnd, GWL_STYLE), FALSE, (DWORD)GetWindowLongW(hWnd, GWL_EXSTYLE));
        const int width = frame.right - frame.left, height = frame.bottom - frame.top;
        // Centred on the owner, or on the screen's work area without one; kept on the screen.
        RECT around;
        HWND owner = GetWindow(hWnd, GW_OWNER);
        if (!owner || !GetWindowRect(owner, &around))
            SystemParametersInfoW(SPI_GETWORKAREA, 0, &around, 0);
        int left = around.left + (around.right - around.left - width) / 2;
        int top = around.top + (around.bottom - around.top - height) / 3;
        if (left < 0)
            left = 0;
        if (top < 0)
            top = 0;
        SetWindowPos(hWnd, nullptr, left, top, width, height, SWP_NOZORDER | SWP_NOACTIVATE);
    }

    void SetMessage(const wchar_t* message)
    {
        text.SetHTMLText(message);
        Layout();
    }

protected:
    BOOL OnInit() override
    {
        SetText(ProductInfo::GetProductName());
        // The icon of the icon flag, at 48 pixels (64 on screens of 144 DPI and more).
        static const LPCWSTR icons[] = {IDI_ERROR, IDI_QUESTION, IDI_WARNING, IDI_INFORMATION};
        const int size = IconSizeFor((int)Dpi::ForWindow(hWnd).Get());
        HICON icon = (HICON)LoadImageW(nullptr, icons[IconFor(nFlags)], IMAGE_ICON, size, size, LR_SHARED);
        SendDlgItemMessageW(hWnd, IDC_MSGEX_ICON, STM_SETICON, (WPARAM)icon, 0);

        static const int places[3] = {IDC_MSGEX_BUTTON1, IDC_MSGEX_BUTTON2, IDC_MSGEX_CANCEL};
        int nDefault = 0;
        for (int i = 0; i < 3; ++i) {
            if (!buttons.place[i].nAnswer)
                continue;
            wchar_t label[64];
            LoadResString(buttons.place[i].nLabelId, label, 64);
            SetItemText(places[i], label);
            if (!nDefault)
                nDefault = places[i];
        }
        SendMessageW(hWnd, DM_SETDEFID, (WPARAM)nDefault, 0);
        if (pDontShow)
            CheckDlgButton(hWnd, IDC_MSGEX_DONT_SHOW, *pDontShow ? BST_CHECKED : BST_UNCHECKED);

        text.Attach(GetItem(IDC_MSGEX_TEXT));
        text.SetHTMLText(pszText);
        Layout();

        if (nFlags & MB_TOPMOST)
            SetWindowPos(hWnd, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
        if (nFlags & MB_SETFOREGROUND)
            SetForegroundWindow(hWnd);
        UINT period;
        {
            CritSecLock lock(State().lock);
            period = State().pfnTimer ? State().nTimerPeriod : 0;
        }
        if (period)
            StartTimer(kTimerId, period);
        SetFocus(GetItem(nDefault));
        return FALSE; // the focus is set
    }

    void OnOK() override
    {
        // Enter: the default button (the first one shown).
        const LRESULT def = SendMessageW(hWnd, DM_GETDEFID, 0, 0);
        Press(HIWORD(def) == DC_HASDEFID ? (int)LOWORD(def) : IDC_MSGEX_CANCEL);
    }
    void OnCancel() override { Press(IDC_MSGEX_CANCEL); }

    int OnCommand(WORD id, WORD code, HWND hwndCtl) override
    {
        if (hwndCtl && hwndCtl == GetItem(IDC_MSGEX_TEXT)) {
            // A link of the message: "<A>" comes as the label's own click, "<A1>".."<A9>" as the
            // ids after it.
            OnLink((int)id - IDC_MSGEX_TEXT);
            return 1;
        }
        if ((short)id == IDM_MSGEX_CLOSE) {
            Press(IDC_MSGEX_CANCEL);
            return 1;
        }
        if (id == IDC_MSGEX_BUTTON1 || id == IDC_MSGEX_BUTTON2 || id == IDC_MSGEX_CANCEL) {
            if (code == BN_CLICKED)
                Press(id);
            return 1;
        }
        return 0;
    }

    int OnTimer(UINT_PTR id) override
    {
        if (id != kTimerId)
            return 0;
        MsgExTimerCallback pfn;
        void* context;
        unsigned tick;
        {
            CritSecLock lock(State().lock);
            pfn = State().pfnTimer;
            context = State().pTimerContext;
            tick = State().nTimerTick++;
        }
        if (pfn)
            if (int control = pfn(hWnd, tick, context))
                Press(control);
        return 1;
    }

    INT_PTR OnWndMsg(UINT msg, WPARAM wp, LPARAM lp) override
    {
        if (msg == KorvaneMessage()) {
            if (wp == kCodePressButton) {
                Press((int)lp);
                return SetMsgResult(1);
            }
            if (wp == kCodeWhoIs)
                return SetMsgResult(nInstanceId && (UINT)lp == nInstanceId ? 1 : 0);
            return FALSE;
        }
        switch (msg) {
        case WM_ACTIVATE:
            if (LOWORD(wp) != WA_INACTIVE && (nFlags & kDropTopmostOnActivate))
                SetWindowPos(hWnd, HWND_NOTOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
            return FALSE;
        case WM_DEVICECHANGE:
            if (wp == DBT_DEVICEARRIVAL)
                if (int control = DeviceArrivalControl(nFlags))
                    Press(control);
            return SetMsgResult(TRUE);
        default:
            return FALSE;
        }
    }

    void OnDestroy() override
    {
        StopTimer(kTimerId);
        if (pDontShow)
            *pDontShow = IsDlgButtonChecked(hWnd, IDC_MSGEX_DONT_SHOW) == BST_CHECKED ? 1 : 0;
        text.Detach();
    }

private:
    void OnLink(int nLink)
    {
        MsgExLinkCallback pfn = pfnLink;
        void* context = pLinkContext;
        if (!pfn) {
            CritSecLock lock(State().lock);
            pfn = State().pfnLink;
            context = State().pLinkContext;
        }
        if (pfn)
            if (int control = pfn(hWnd, nLink, context))
                Press(control);
    }

    UINT nFlags;
    const wchar_t* pszText;
    int* pDontShow;
    MsgExLinkCallback pfnLink;
    void* pLinkContext;
    UINT nInstanceId;
    Buttons buttons;
    DMStaticHTML text;
};

struct FindBox {
    UINT nInstanceId;
    HWND hwndFound;
};

BOOL CALLBACK FindBoxOfInstance(HWND hwnd, LPARAM lp)
{
    FindBox* find = reinterpret_cast<FindBox*>(lp);
    wchar_t cls[16];
    if (!GetClassNameW(hwnd, cls, 16) || !StrEqual(cls, L"#32770"))
        return TRUE;
    DWORD_PTR answer = 0;
    if (SendMessageTimeoutW(hwnd, KorvaneMessage(), kCodeWhoIs, (LPARAM)find->nInstanceId, SMTO_ABORTIFHUNG, 1000,
                            &answer) &&
        answer) {
        find->hwndFound = hwnd;
        return FALSE;
    }
    return TRUE;
}

// Pumps this thread's messages for a moment; false when the program is quitting (the WM_QUIT
// is posted again for the caller's own loop).
bool PumpAWhile()
{
    MSG m;
    while (PeekMessageW(&m, nullptr, 0, 0, PM_REMOVE)) {
        if (m.message == WM_QUIT) {
            PostQuitMessage((int)m.wParam);
            return false;
        }
        TranslateMessage(&m);
        DispatchMessageW(&m);
    }
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
    return true;
}

int RunBox(HWND owner, UINT flags, const wchar_t* message, int* pDontShow, MsgExLinkCallback pfnLink, void* pLinkContext)
{
    Shared& s = State();
    UINT instanceId;
    {
        CritSecLock lock(s.lock);
        instanceId = s.nInstanceId;
    }
    // An open box of the same instance, in any process, is brought forward instead.
    if (instanceId) {
        FindBox find = {instanceId, nullptr};
        EnumWindows(FindBoxOfInstance, (LPARAM)&find);
        if (find.hwndFound) {
            if (IsIconic(find.hwndFound))
                ShowWindow(find.hwndFound, SW_RESTORE);
            HWND popup = GetLastActivePopup(find.hwndFound);
            SetForegroundWindow(popup ? popup : find.hwndFound);
            return 0;
        }
    }
    // One box at a time: wait, pumping, until the open one has closed.
    for (;;) {
        HWND other = nullptr;
        {
            CritSecLock lock(s.lock);
            if (!s.bOpening && (!s.hwndOpen || !IsWindow(s.hwndOpen))) {
                s.bOpening = true;
                s.hwndOpen = nullptr;
                break;
            }
            other = s.hwndOpen;
        }
        if (other)
            SetForegroundWindow(other);
        if (!PumpAWhile())
            return IDCANCEL;
    }

    if (!owner)
        owner = GetActiveWindow();
    DlgMsgEx dlg(flags, message, pDontShow, pfnLink, pLinkContext, instanceId);
    const int created = dlg.Create(owner);
    MsgPauseResumeCallback pfnPause;
    void* pauseContext;
    {
        CritSecLock lock(s.lock);
        s.bOpening = false;
        s.hwndOpen = created ? dlg.GetHwnd() : nullptr;
        pfnPause = s.pfnPause;
        pauseContext = s.pPauseContext;
    }
    if (!created)
        return -1;
    if (pfnPause)
        pfnPause(1, pauseContext);

    const bool bDisableOwner = owner && IsWindowEnabled(owner);
    if (bDisableOwner)
        EnableWindow(owner, FALSE);
    ShowWindow(dlg.GetHwnd(), SW_SHOW);
    HACCEL accel = LoadAcceleratorsW(GetResourceModule(), MAKEINTRESOURCEW(IDA_MSGEX));
    MSG m;
    while (dlg.IsBound()) {
        BOOL r = GetMessageW(&m, nullptr, 0, 0);
        if (r == 0) {
            PostQuitMessage((int)m.wParam); // for the caller's own loop
            dlg.End(IDCANCEL);
            break;
        }
        if (r < 0)
            break;
        if (accel && dlg.IsBound() && TranslateAcceleratorW(dlg.GetHwnd(), accel, &m))
            continue;
        if (dlg.IsDialogMsg(&m))
            continue;
        TranslateMessage(&m);
        DispatchMessageW(&m);
    }
    if (bDisableOwner) {
        EnableWindow(owner, TRUE);
        SetActiveWindow(owner);
    }
    {
        CritSecLock lock(s.lock);
        if (s.hwndOpen == dlg.GetHwnd() || (s.hwndOpen && !IsWindow(s.hwndOpen)))
            s.hwndOpen = nullptr;
    }
    if (pfnPause)
        pfnPause(0, pauseContext);
    return (int)dlg.GetResult();
}

int ShowFormatted(HWND owner, UINT flags, int* pDontShow, MsgExLinkCallback pfnLink, void* pLinkContext,
                  const wchar_t* text, bool bFormat, va_list args)
{
    const DWORD lastError = GetLastError();
    HeapBuf<wchar_t> message(kMaxText + 1), composed(kMaxText + 1), error(512);
    if (!message.p || !composed.p || !error.p)
        return -1;
    MsgLoadText(message.p, kMaxText + 1, text, bFormat, args);
    if ((flags & kAppendLastError) && lastError)
        SystemText(lastError, error.p, 512);
    ComposeText(composed.p, kMaxText + 1, message.p, flags, lastError, error.p);
    try {
        return RunBox(owner, flags, composed.p, pDontShow, pfnLink, pLinkContext);
    } catch (...) {
        return -1; // nothing crosses the family's interface
    }
}

} // namespace

unsigned MsgLoadText(wchar_t* buf, unsigned cch, const wchar_t* text, bool bFormat, va_list args)
{
    if (!buf || !cch)
        return 0;
    const unsigned limit = cch - 1 < kMaxText ? cch : kMaxText + 1;
    buf[0] = 0;
    HeapBuf<wchar_t> loaded(kMaxText + 1);
    if (!loaded.p)
        return 0;
    const wchar_t* source = text;
    if (IsResourceId(text)) {
        LoadTextResource(ResourceIdOf(text), loaded.p, kMaxText + 1);
        source = loaded.p;
    }
    if (bFormat)
        StrFormatV(buf, limit, source ? source : L"", args);
    else
        StrCopy(buf, limit, source);
    return StrLen(buf);
}

int MsgEx(HWND owner, UINT flags, const wchar_t* text)
{
    va_list none{};
    return ShowFormatted(owner, flags, nullptr, nullptr, nullptr, text, false, none);
}

int MsgExFmt(HWND owner, UINT flags, const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    int r = ShowFormatted(owner, flags, nullptr, nullptr, nullptr, format, true, args);
    va_end(args);
    return r;
}

int MsgExFmt(HWND owner, UINT flags, int* pDontShow, const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    int r = ShowFormatted(owner, flags, pDontShow, nullptr, nullptr, format, true, args);
    va_end(args);
    return r;
}

int MsgExFmtLink(HWND owner, UINT flags, MsgExLinkCallback link, void* context, const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    int r = ShowFormatted(owner, flags, nullptr, link, context, format, true, args);
    va_end(args);
    return r;
}

int MsgExSetText(HWND hwndBox, const wchar_t* text)
{
    DlgMsgEx* dlg = dynamic_cast<DlgMsgEx*>(DMWnd::FromHandle(hwndBox));
    if (!dlg) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
        return 0;
    }
    HeapBuf<wchar_t> message(kMaxText + 1);
    if (!message.p)
        return 0;
    va_list none{};
    MsgLoadText(message.p, kMaxText + 1, text, false, none);
    dlg->SetMessage(message.p);
    return 1;
}

HWND MsgExGetOpenBox()
{
    CritSecLock lock(State().lock);
    HWND h = State().hwndOpen;
    return h && IsWindow(h) ? h : nullptr;
}

void MsgExSetLinkCallback(MsgExLinkCallback callback, void* context)
{
    CritSecLock lock(State().lock);
    State().pfnLink = callback;
    State().pLinkContext = context;
}

void MsgExSetButtonCallback(MsgExButtonCallback callback, void* context)
{
    CritSecLock lock(State().lock);
    State().pfnButton = callback;
    State().pButtonContext = context;
}

void MsgExSetTimerCallback(UINT nPeriodMs, MsgExTimerCallback callback, void* context)
{
    CritSecLock lock(State().lock);
    State().pfnTimer = callback;
    State().pTimerContext = context;
    State().nTimerPeriod = nPeriodMs;
    State().nTimerTick = 0;
}

void MsgSetPauseResumeCallback(MsgPauseResumeCallback callback, void* context)
{
    CritSecLock lock(State().lock);
    State().pfnPause = callback;
    State().pPauseContext = context;
}

void MsgExSetActivatePrevID(UINT nInstanceId)
{
    CritSecLock lock(State().lock);
    State().nInstanceId = nInstanceId;
}

int Msg(HWND owner, UINT flags, const wchar_t* text) { return MsgEx(owner, flags, text); }

int MsgFmt(HWND owner, UINT flags, const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    int r = ShowFormatted(owner, flags, nullptr, nullptr, nullptr, format, true, args);
    va_end(args);
    return r;
}

int MsgLastError(HWND owner, UINT flags, int nResourceId)
{
    // The last error is taken before anything else can change it.
    const DWORD err = GetLastError();
    SetLastError(err);
    return MsgEx(owner, flags | kAppendLastError, (const wchar_t*)(LONG_PTR)nResourceId);
}

int MsgHRESULT(HWND owner, HRESULT hr, UINT flags, int nResourceId)
{
    // A result code is shown like a last error: the system's text for it after the message.
    SetLastError((DWORD)hr);
    return MsgEx(owner, flags | kAppendLastError, (const wchar_t*)(LONG_PTR)nResourceId);
}
