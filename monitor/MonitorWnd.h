// Monitor_Wnd: the in-session activity monitor's window, and the warning display.
//
// One monitor process runs in each watched session, as the session's user (started by the
// service with "/monitor:N"). It watches keyboard and mouse input through the hook library
// VXHA64.DLL, samples the CPU load once a second, notices unlocks and reconnects, and reports
// each activity by setting the session's idle event, which the service's session thread waits
// on. Everything runs on one thread: the hook library calls back from this thread's message
// loop, and the warning box runs a nested loop on it, so reports go on while the box is open.
//
// The window is invisible (class and title "VANTREL_MONITOR", 1 by 1 pixels); other processes of
// the session find it by its class and talk to it with the registered message "KorvaneMessage":
//   301 end the monitor, 302 reload the settings, 304 show the idle warning ("/msg" asks this).
// A report sends the configuration utility's notification window "KorvaneMessage" 303 with the
// activity type, and an open warning box code 6 with IDOK, which closes it.
//
// The configuration utility's notification window is found by its class name,
// VX_UTILITY_NOTIFY_CLASS (a top-level window, hidden or not, that the utility creates while its
// main dialog is open), looked up at each report: there is no registration to go stale, and a
// utility started after the monitor is reached at once. The notice is posted, never sent, so a
// busy utility cannot hold up the hook procedure (the system drops a low-level hook that keeps
// input waiting).
#pragma once
#include <windows.h>

#include "hook/HookApi.h"
#include "monitor/ActivityGate.h"
#include "monitor/WarningText.h"
#include "settings/MyOpts.h"
#include "ui/DMWnd.h"

#define VX_MONITOR_CLASS L"VANTREL_MONITOR"
#define VX_UTILITY_NOTIFY_CLASS L"VANTREL_UTILITY_NOTIFY"
#define VX_KORVANE_MESSAGE L"KorvaneMessage"

// The codes of "KorvaneMessage" (wParam) that the monitor sends and answers.
namespace MonitorCode {
const WPARAM kPressBoxButton = 6; // to the warning box: lParam the answer (IDOK) to press
const WPARAM kQuit = 301;
const WPARAM kReloadSettings = 302;
const WPARAM kActivity = 303; // to the utility: lParam the activity type
const WPARAM kShowWarning = 304;
} // namespace MonitorCode

// The warning box: a warning icon, in front, topmost, with an OK button.
const UINT kWarningBoxStyle = MB_ICONWARNING | MB_SETFOREGROUND | MB_TOPMOST;
static_assert(kWarningBoxStyle == 0x50030, "the style the warning box has always had");

// The named events' names: MonitorSeams::pszEventPrefix ("Global\") and name formatted with the
// session id ("VantrelEventIdle-%ld", "VantrelEventCancel-%ld"; "VantrelEventQuit" takes none).
void FormatMonitorEventName(wchar_t* buf, unsigned cch, const wchar_t* name, DWORD dwSessionId);

struct WarningBox;

class Monitor_Wnd : public DMWnd {
public:
    // Registers "KorvaneMessage" and loads the settings.
    explicit Monitor_Wnd(DWORD dwSessionId);
    ~Monitor_Wnd() override;

    // The invisible window at 300, 300, 1 by 1, owned by the desktop. Nonzero on success.
    int CreateMonitorWindow();

    // The hook library's callback; pContext is the Monitor_Wnd.
    static void CALLBACK HookCallback(int nKind, void* pContext);
    // Input of the hook library (the callback's body): filtered, rate-limited, reported.
    void OnInput(int type);
    // Sets the session's idle event and tells the utility and an open warning box. Nothing
    // happens when the idle event cannot be opened.
    void Report(int type);
    // Shows the idle warning owned by this window; returns when the box is closed.
    void ShowWarning();

    MyOpts& GetOpts() { return opts; }
    const ActivityGate& GetGate() const { return gate; }
    DWORD GetSessionId() const { return dwSessionId; }
    UINT GetMessageId() const { return msgKorvane; }

protected:
    const wchar_t* GetWndClassName() const override { return VX_MONITOR_CLASS; }
    int OnCreate(CREATESTRUCTW* pcs) override;
    int OnTimer(UINT_PTR id) override;
    void OnDestroy() override;
    LRESULT OnMessage(UINT msg, WPARAM wp, LPARAM lp) override;

private:
    friend int RunWarning(const MyOpts& opts, Monitor_Wnd* pMonitor);
    void OnEndSession();

    MyOpts opts;
    DWORD dwSessionId;
    UINT msgKorvane;
    ActivityGate gate;
    int bSessionNotify = 0;
    WarningBox* pWarning = nullptr; // the warning open now, if any
};

// The one warning routine of "/msg" and of code 304: the text with its countdown in the extended
// message box (owner: the monitor's window, or none), "FullScreen" applied to the monitor's
// window while it is open. Returns when the box is closed; 0.
int RunWarning(const MyOpts& opts, Monitor_Wnd* pMonitor);
