#include "monitor/MonitorWnd.h"

#include <wtsapi32.h>

#include "base/Handle.h"
#include "base/Resources.h"
#include "base/StrUtil.h"
#include "engine/Seams.h"
#include "engine/WtsApi32.h"
#include "monitor/CpuUsage.h"
#include "monitor/MonitorSeams.h"
#include "resources/resource.h"
#include "ui/MsgBox.h"

namespace {

const UINT_PTR kTimerId = 1;
const UINT kTimerMs = 1000;
const int kPlaceX = 300, kPlaceY = 300;
// Session changes that mean a user is back: console connect (1), remote connect (3), unlock (8).
const unsigned kUserBackEvents = (1u << WTS_CONSOLE_CONNECT) | (1u << WTS_REMOTE_CONNECT) | (1u << WTS_SESSION_UNLOCK);
static_assert(kUserBackEvents == 266, "the session changes that count as activity");

// Opens a session event with the right to set it, sets it and closes it; 0 when it cannot be
// opened.
int SetNamedEvent(const wchar_t* name, DWORD dwSessionId)
{
    wchar_t full[128];
    FormatMonitorEventName(full, 128, name, dwSessionId);
    Handle event(OpenEventW(EVENT_MODIFY_STATE, FALSE, full));
    if (!event)
        return 0;
    SetEvent(event.Get());
    return 1;
}

} // namespace

// The state of one open warning.
struct WarningBox {
    WarningCountdown countdown;
    HWND hwndBox = nullptr;  // known from the box's opening on
    HANDLE hQuit = nullptr;  // the service's quit event, when it could be opened
};

void FormatMonitorEventName(wchar_t* buf, unsigned cch, const wchar_t* name, DWORD dwSessionId)
{
    wchar_t tail[64];
    StrFormat(tail, name, (long)dwSessionId);
    StrFormat(buf, cch, L"%s%s", MonitorSeams::pszEventPrefix ? MonitorSeams::pszEventPrefix : L"", tail);
}

Monitor_Wnd::Monitor_Wnd(DWORD id) : dwSessionId(id), msgKorvane(RegisterWindowMessageW(VX_KORVANE_MESSAGE))
{
    opts.Load();
}

Monitor_Wnd::~Monitor_Wnd() = default;

int Monitor_Wnd::CreateMonitorWindow()
{
    const RECT place = {kPlaceX, kPlaceY, kPlaceX + 1, kPlaceY + 1};
    if (!Create(GetDesktopWindow(), VX_MONITOR_CLASS, 0, 0, &place))
        return 0;
    // The system gives a new overlapped window at least its minimum tracking size; from now on
    // WM_GETMINMAXINFO allows 1 by 1.
    SetWindowPos(hWnd, nullptr, kPlaceX, kPlaceY, 1, 1, SWP_NOACTIVATE | SWP_NOZORDER);
    return 1;
}

void CALLBACK Monitor_Wnd::HookCallback(int nKind, void* pContext)
{
    // Called from the hook procedure: nothing may leave it.
    try {
        if (pContext)
            static_cast<Monitor_Wnd*>(pContext)->OnInput(nKind);
    } catch (...) {
    }
}

void Monitor_Wnd::OnInput(int type)
{
    if (int report = gate.OnInput(type, Seams::Now(), ActivityFilter::From(opts)))
        Report(report);
}

void Monitor_Wnd::Report(int type)
{
    wchar_t name[128];
    FormatMonitorEventName(name, 128, L"VantrelEventIdle-%ld", dwSessionId);
    Handle idle(OpenEventW(EVENT_MODIFY_STATE, FALSE, name));
    if (!idle)
        return;
    SetEvent(idle.Get());
    if (HWND utility = FindWindowW(VX_UTILITY_NOTIFY_CLASS, nullptr))
        PostMessageW(utility, msgKorvane, MonitorCode::kActivity, (LPARAM)type);
    if (pWarning && pWarning->hwndBox)
        SendMessageW(pWarning->hwndBox, msgKorvane, MonitorCode::kPressBoxButton, IDOK);
}

void Monitor_Wnd::ShowWarning() { RunWarning(opts, this); }

int Monitor_Wnd::OnCreate(CREATESTRUCTW*)
{
    bSessionNotify = WtsApi32::WTSRegisterSessionNotification(hWnd, NOTIFY_FOR_THIS_SESSION) ? 1 : 0;
    StartTimer(kTimerId, kTimerMs);
    return 1;
}

int Monitor_Wnd::OnTimer(UINT_PTR id)
{
    if (id != kTimerId)
        return 0;
    if (gate.IsEnding())
        return 1;
    const DWORD now = Seams::Now();
    int type = gate.OnTick(now);
    if (!type && opts.bMonitorCPU && IsCpuActivity(opts, GetCpuUsage())) {
        type = ActivityCpu;
        gate.Reported(now);
    }
    if (type)
        Report(type);
    return 1;
}

void Monitor_Wnd::OnDestroy()
{
    StopTimer(kTimerId);
    if (bSessionNotify)
        WtsApi32::WTSUnRegisterSessionNotification(hWnd);
    bSessionNotify = 0;
}

void Monitor_Wnd::OnEndSession()
{
    gate.End();
    SetNamedEvent(L"VantrelEventCancel-%ld", dwSessionId);
}

LRESULT Monitor_Wnd::OnMessage(UINT msg, WPARAM wp, LPARAM lp)
{
    if (msg == msgKorvane && msgKorvane) {
        switch (wp) {
        case MonitorCode::kQuit:
            Destroy();
            PostQuitMessage(0);
            return 0;
        case MonitorCode::kReloadSettings:
            opts.Load();
            return 0;
        case MonitorCode::kShowWarning:
            ShowWarning();
            return 0;
        default:
            return 0;
        }
    }
    switch (msg) {
    case WM_WTSSESSION_CHANGE:
        if (wp < 32 && (kUserBackEvents >> wp) & 1 && (DWORD)lp == dwSessionId)
            gate.SetPending(ActivitySession);
        return 0;
    case WM_ENDSESSION:
        if (wp)
            OnEndSession();
        return 0;
    case WM_GETMINMAXINFO:
        // The invisible window is 1 by 1 pixels, smaller than a window with a caption may be.
        if (MINMAXINFO* mmi = reinterpret_cast<MINMAXINFO*>(lp)) {
            mmi->ptMinTrackSize.x = 1;
            mmi->ptMinTrackSize.y = 1;
        }
        return 0;
    default:
        return DMWnd::OnMessage(msg, wp, lp);
    }
}

namespace {

void StretchToScreen(HWND hwnd)
{
    SetWindowPos(hwnd, nullptr, 0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN),
                 SWP_NOACTIVATE | SWP_NOZORDER);
    ShowWindow(hwnd, SW_SHOW);
    SetForegroundWindow(hwnd);
    SetWindowPos(hwnd, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);
    BringWindowToTop(hwnd);
}

void ShrinkBack(HWND hwnd)
{
    SetWindowPos(hwnd, HWND_NOTOPMOST, kPlaceX, kPlaceY, 1, 1, SWP_NOACTIVATE | SWP_HIDEWINDOW);
}

// The box's timer: every second, and once as it opens. A set quit event closes the box (the
// monitor's loop then ends on it); otherwise the countdown text is rebuilt until the deadline.
int CountdownTick(HWND hwndBox, unsigned, void* context)
{
    try {
        WarningBox* w = static_cast<WarningBox*>(context);
        if (w->hQuit && WaitForSingleObject(w->hQuit, 0) == WAIT_OBJECT_0)
            return IDOK;
        if (w->countdown.Update(MonitorSeams::pfnTime()))
            MsgExSetText(hwndBox, w->countdown.GetText());
    } catch (...) {
    }
    return 0;
}

// The family tells of a box opening only through the pause callback: that is where the box
// becomes known (activity reports close it) and the countdown's first call happens.
void BoxOpenClose(int bOpen, void* context)
{
    WarningBox* w = static_cast<WarningBox*>(context);
    if (bOpen) {
        w->hwndBox = MsgExGetOpenBox();
        if (w->hwndBox && CountdownTick(w->hwndBox, 0, context))
            PostMessageW(w->hwndBox, RegisterWindowMessageW(VX_KORVANE_MESSAGE), MonitorCode::kPressBoxButton, IDOK);
    } else {
        w->hwndBox = nullptr;
    }
}

} // namespace

int RunWarning(const MyOpts& opts, Monitor_Wnd* pMonitor)
{
    wchar_t builtIn[1024];
    const wchar_t* text = opts.szMsgText;
    if (!text[0]) {
        LoadResString(IDS_WARNING_TEXT, builtIn, 1024);
        text = builtIn;
    }
    if (pMonitor && pMonitor->pWarning) {
        // Asked again while the box is open: the countdown starts over in the same box.
        WarningBox* w = pMonitor->pWarning;
        w->countdown.Start(text, opts.nMsgTimeout, MonitorSeams::pfnTime());
        if (w->hwndBox)
            MsgExSetText(w->hwndBox, w->countdown.GetText());
        return 0;
    }
    WarningBox box;
    box.countdown.Start(text, opts.nMsgTimeout, MonitorSeams::pfnTime());
    wchar_t quitName[128];
    FormatMonitorEventName(quitName, 128, L"VantrelEventQuit", 0);
    Handle quit(OpenEventW(SYNCHRONIZE, FALSE, quitName));
    box.hQuit = quit.Get();

    const HWND owner = pMonitor ? pMonitor->GetHwnd() : nullptr;
    const bool bFullScreen = owner && opts.bFullScreen;
    if (bFullScreen)
        StretchToScreen(owner);
    if (pMonitor)
        pMonitor->pWarning = &box;
    MsgExSetTimerCallback(1000, CountdownTick, &box);
    MsgSetPauseResumeCallback(BoxOpenClose, &box);
    MsgEx(owner, kWarningBoxStyle, box.countdown.GetText());
    MsgSetPauseResumeCallback(nullptr, nullptr);
    MsgExSetTimerCallback(0, nullptr, nullptr);
    if (pMonitor) {
        pMonitor->pWarning = nullptr;
        // The window may have gone meanwhile (code 301 while the box was open).
        if (bFullScreen && pMonitor->GetHwnd())
            ShrinkBack(pMonitor->GetHwnd());
    }
    return 0;
}
