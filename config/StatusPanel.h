// The service status panel of the configuration utility: the two rich-text lines at the bottom
// of the main dialog (labels 1023 and 1024) that tell the administrator whether the service runs,
// whether monitoring is enabled, how many sessions are watched, the CPU load, the last logoff and
// how long the administrator's own session has been idle.
//
// The decisions are plain: DecideStatus takes the facts of one refresh (StatusFacts) and the
// panel's state, and gives the two lines, the new state and whether "LastLogoff" must be deleted.
// StatusPanel gathers those facts from the real world through the seams below, writes the lines
// into the labels and deletes the value when told.
//
// How the main dialog uses it: it owns one StatusPanel, attaches it to itself at initialisation
// (Attach), tells it the settings it shows after every load, store or change of source
// (SetSettings), calls Refresh from its 1000 ms timer and after every action on the service or the
// settings, forwards the in-session monitor's activity notice (OnActivity with the kind of
// "KorvaneMessage" 303) and sets the attention countdown after a successful store (SetAttention).
#pragma once
#include <windows.h>

#include "monitor/ActivityGate.h"
#include "ui/DMStaticHTML.h"

// Control ids of the panel inside the main dialog.
const int kIdStatusLine1 = 1023;
const int kIdStatusLine2 = 1024;
const int kIdMonitorCpuBox = 1035;

// The size of each line's buffer, in characters.
const unsigned kStatusLineChars = 512;
// Refreshes that show the attention text after a successful store.
const int kAttentionRefreshes = 15;
// The refresh that deletes a "LastLogoff" value it keeps seeing (it was shown on the ones before).
const int kLastLogoffDeleteAt = 10;
// Seconds between two rewrites of the idle text.
const DWORD kIdleStepSeconds = 5;
// "LastLogoff" is read with at most this many bytes; a longer value counts as empty.
const DWORD kLastLogoffMaxBytes = 512;

// The kinds of the activity notice (lParam of "KorvaneMessage" 303) are the monitor's ActivityType.
// The notice's text of kind, or null for a kind that has none.
const wchar_t* GetActivityText(int nKind);

// The text shown while the settings are imposed by policy (string 22), when the resources lack it.
extern const wchar_t* const kPolicyManagedText;

// The idle text for s seconds of idleness, into buf (cch characters).
void FormatIdleText(wchar_t* buf, unsigned cch, DWORD s);

// What one refresh knows.
struct StatusFacts {
    // A Group Policy object is being edited, and its display name.
    BOOL bGPOMode = FALSE;
    const wchar_t* pszGPODisplayName = nullptr;
    // The settings are imposed by a policy on this computer; the text that says so (null: the
    // built-in one).
    BOOL bPolicyManaged = FALSE;
    const wchar_t* pszPolicyText = nullptr;
    // The service's state (SERVICE_RUNNING, ...); 0 when the query failed.
    DWORD dwServiceState = 0;
    // "Enable" of the loaded settings.
    BOOL bEnable = FALSE;
    // The settings key could be opened for reading; what it holds.
    BOOL bKeyOpened = FALSE;
    DWORD dwSessionsMonitoring = 0;
    const wchar_t* pszLastLogoff = nullptr; // null or empty: none
    // The CPU box of the dialog is checked; the current load in percent.
    BOOL bCpuBox = FALSE;
    unsigned nCpuLoad = 0;
    // A window of class "VANTREL_MONITOR" exists in this session.
    BOOL bMonitorWindow = FALSE;
    // The tick count of the refresh.
    DWORD dwNow = 0;
};

// What the panel remembers between refreshes.
struct StatusPanelState {
    int nPendingActivity = ActivityNone; // the kind whose text is still to be shown
    DWORD dwActivityTime = 0;            // tick of the last activity notice (or of the panel's start)
    DWORD dwIdleThreshold = 0;           // seconds of idleness at which the idle text is rewritten next
    int nAttention = 0;                  // refreshes still to show the attention text
    int nLastLogoffCount = 0;            // refreshes that have shown the current last logoff
    DWORD adwLicence[3] = {0, 0, 0};     // the licence check's cached counters
};

// The outcome of one refresh.
struct StatusLines {
    wchar_t szLine1[kStatusLineChars];
    wchar_t szLine2[kStatusLineChars];
    BOOL bWriteLine1; // false: leave the label as it is
    BOOL bWriteLine2;
    BOOL bDeleteLastLogoff;
};

// Whether a refresh with these facts reads the settings key (and the CPU load): only when the
// service runs with monitoring enabled, outside GPO mode. The other facts decide it.
BOOL StatusNeedsKey(const StatusFacts& facts);

// The activity notice of kind at tick dwNow: its text waits for the next refresh and the idle
// clock restarts, its text first due 5 seconds later. 1 for a known kind; 0 for any other, which
// changes nothing.
int NoteActivity(StatusPanelState& state, int nKind, DWORD dwNow);

// One refresh: the lines for facts, with state updated. Both labels keep their text when the key
// cannot be read; line 2 also keeps it between two steps of the idle clock, so a notice stays
// readable until the clock first shows, 5 seconds later.
void DecideStatus(const StatusFacts& facts, StatusPanelState& state, StatusLines& out);

// The panel's connections to the world, replaceable by tests.
namespace StatusSeams {
extern DWORD (*pfnQueryServiceState)();
extern HWND(WINAPI* pfnFindWindowW)(LPCWSTR, LPCWSTR);
extern unsigned (*pfnGetCpuUsage)();
extern DWORD(WINAPI* pfnGetTickCount)();
} // namespace StatusSeams

class StatusPanel {
public:
    StatusPanel();
    StatusPanel(const StatusPanel&) = delete;
    StatusPanel& operator=(const StatusPanel&) = delete;

    // Makes the dialog's labels 1023 and 1024 rich labels and reads its CPU box 1035 from then
    // on. Nonzero when both labels were attached. Without a dialog the panel still decides and
    // keeps its lines (GetLine1/GetLine2), it only has nowhere to show them.
    int Attach(HWND hDlg);

    // The settings shown by the dialog: "Enable" of the loaded copy, whether a policy imposes
    // them, and the Group Policy object being edited (null or empty path: this computer).
    void SetSettings(BOOL bEnable, BOOL bPolicyManaged, const wchar_t* pszGPOPath, const wchar_t* pszGPODisplayName);

    // Recomputes both lines and shows them.
    void Refresh();
    // The in-session monitor's activity notice. Nonzero for a known kind; any other changes nothing.
    int OnActivity(int nKind);
    // After a successful store: show the attention text for the next n refreshes.
    void SetAttention(int n = kAttentionRefreshes);

    const wchar_t* GetLine1() const { return szLine1; }
    const wchar_t* GetLine2() const { return szLine2; }
    const StatusPanelState& GetState() const { return state; }

private:
    // Reads the status values of the settings key; false when the key cannot be opened.
    BOOL ReadStatusValues(DWORD& dwSessions, wchar_t* pszLastLogoff, unsigned cch);
    void DeleteLastLogoff();
    void Show(DMStaticHTML& label, const wchar_t* text);

    HWND hDlg = nullptr;
    DMStaticHTML label1, label2;
    StatusPanelState state;
    BOOL bEnable = FALSE;
    BOOL bPolicyManaged = FALSE;
    BOOL bGPOMode = FALSE;
    wchar_t szGPODisplayName[260];
    wchar_t szLine1[kStatusLineChars];
    wchar_t szLine2[kStatusLineChars];
};
