#include "config/DlgMain.h"

#include <commctrl.h>
#include <commdlg.h>
#include <shlobj.h>

#include <climits>
#include <cstdarg>
#include <cwctype>

#include "base/Resources.h"
#include "base/Handle.h"
#include "base/StrUtil.h"
#include "config/About.h"
#include "config/Help.h"
#include "config/Pickers.h"
#include "config/DlgSchedule.h"
#include "config/DlgSmall.h"
#include "engine/ServiceHost.h"
#include "resources/resource.h"
#include "ui/MsgBox.h"
#include "ui/UiSeams.h"

namespace {

const UINT_PTR kStatusTimer = 1;
const UINT kStatusPeriodMs = 1000;
// Apply looks at a service it has just started this often, this many times.
const DWORD kStartPollMs = 500;
const int kStartPolls = 20;
const wchar_t kProductMessage[] = L"KorvaneMessage";
const wchar_t kMonitorWindowClass[] = L"VANTREL_MONITOR";
const wchar_t kDefaultFileName[] = L"\\Vantrel.cfg";

// Wait cursor for the length of a service operation.
class WaitCursor {
public:
    WaitCursor() : previous(SetCursor(LoadCursorW(nullptr, IDC_WAIT))) {}
    ~WaitCursor() { SetCursor(previous); }
    WaitCursor(const WaitCursor&) = delete;
    WaitCursor& operator=(const WaitCursor&) = delete;

private:
    HCURSOR previous;
};

int ShippedMessage(HWND owner, UINT flags, int* pDontShow, const wchar_t* text)
{
    if (pDontShow)
        return MsgExFmt(owner, flags, pDontShow, L"%s", text);
    return MsgEx(owner, flags, text);
}

INT_PTR ShippedRunDialog(DMDlg& dlg, HWND owner) { return dlg.DoModal(owner); }

BOOL ShippedBrowseForFile(HWND owner, BOOL bSave, const wchar_t* title, wchar_t* path, unsigned cch)
{
    OPENFILENAMEW ofn = {};
    ofn.lStructSize = sizeof(ofn);
    ofn.hwndOwner = owner;
    ofn.lpstrFilter = L"Vantrel settings (*.cfg)\0*.cfg\0XML files (*.xml)\0*.xml\0All files (*.*)\0*.*\0";
    ofn.lpstrFile = path;
    ofn.nMaxFile = cch;
    ofn.lpstrTitle = title;
    ofn.lpstrDefExt = L"cfg";
    ofn.Flags = OFN_HIDEREADONLY | OFN_NOCHANGEDIR | OFN_PATHMUSTEXIST |
                (bSave ? OFN_OVERWRITEPROMPT : OFN_FILEMUSTEXIST);
    return bSave ? GetSaveFileNameW(&ofn) : GetOpenFileNameW(&ofn);
}

void ShippedSleep(DWORD ms) { Sleep(ms); }

// Which controls the layout moves when the dialog grows by dx, dy.
enum Move { kWiden, kRight, kRightHalf, kLeftList, kRightList, kDown, kDownWiden };
struct LayoutRule {
    int id;
    Move move;
};
const LayoutRule kLayout[] = {
    {IDC_MAIN_SOURCE, kWiden},
    {IDOK, kRight},
    {IDC_MAIN_HELP, kRight},
    {IDC_MAIN_RESTORE_DEFAULTS, kRight},
    {IDC_MAIN_IMPORT, kRight},
    {IDC_MAIN_EXPORT, kRight},
    {IDC_MAIN_ABOUT, kRight},
    {IDC_MAIN_APPLY, kRight},
    {IDC_MAIN_APPLY_TO, kLeftList},
    {IDC_MAIN_EXCLUDE_LABEL, kRightHalf},
    {IDC_MAIN_EXCLUDE_ADD, kRightHalf},
    {IDC_MAIN_EXCLUDE_DEL, kRightHalf},
    {IDC_MAIN_EXCLUDE, kRightList},
    {IDC_MAIN_SHUTDOWN, kDown},
    {IDC_MAIN_SHUTDOWN_LABEL, kDown},
    {IDC_MAIN_SHUTDOWN_TIMEOUT, kDown},
    {IDC_MAIN_SHUTDOWN_TIMEOUT_SPIN, kDown},
    {IDC_MAIN_SHUTDOWN_UNITS, kDown},
    {IDC_MAIN_SHUTDOWN_ACTION, kDown},
    // The status lines travel with their group.
    {IDC_MAIN_STATUS_GROUP, kDownWiden},
    {IDC_MAIN_STATUS1, kDownWiden},
    {IDC_MAIN_STATUS2, kDownWiden},
};

// The controls that stay usable while a policy imposes the settings: the source can be changed,
// the settings read, exported and closed, the messages read.
const int kPolicyManagedEnabled[] = {IDC_MAIN_MANAGE, IDC_MAIN_APPLY,  IDOK,         IDC_MAIN_HELP, IDC_MAIN_ABOUT,
                                     IDC_MAIN_EXPORT, IDC_MAIN_MSG_LINK, IDC_MAIN_MSG_LOCKED_LINK};

struct CheckBinding {
    int id;
    int MyOpts::*field;
};
const CheckBinding kChecks[] = {
    {IDC_MAIN_USE_SCHEDULE, &MyOpts::bUseSchedule}, {IDC_MAIN_MONITOR_KB, &MyOpts::bMonitorKB},
    {IDC_MAIN_MONITOR_MOUSE, &MyOpts::bMonitorMouse}, {IDC_MAIN_MONITOR_CPU, &MyOpts::bMonitorCPU},
    {IDC_MAIN_KEEP_LAST, &MyOpts::bKeepLastActiveUser}, {IDC_MAIN_FULL_SCREEN, &MyOpts::bFullScreen},
    {IDC_MAIN_LOGOFF_STALE, &MyOpts::bLogoffStale}, {IDC_MAIN_SHUTDOWN, &MyOpts::bShutdown},
};

struct NumberBinding {
    int idField, idSpin;
    int MyOpts::*field;
    int lo, hi;
};
const NumberBinding kNumbers[] = {
    {IDC_MAIN_PERCENT_CPU, IDC_MAIN_PERCENT_CPU_SPIN, &MyOpts::nPercentCPU, 1, 100},
    {IDC_MAIN_TIMEOUT, IDC_MAIN_TIMEOUT_SPIN, &MyOpts::nTimeout, 1, MyOpts::nMaxMinutes},
    {IDC_MAIN_MSG_TIMEOUT, IDC_MAIN_MSG_TIMEOUT_SPIN, &MyOpts::nMsgTimeout, 0, MyOpts::nMaxMinutes},
    {IDC_MAIN_STALE_COUNT, IDC_MAIN_STALE_COUNT_SPIN, &MyOpts::nLogoffStaleCount, 1, MyOpts::nMaxMinutes},
    {IDC_MAIN_SHUTDOWN_TIMEOUT, IDC_MAIN_SHUTDOWN_TIMEOUT_SPIN, &MyOpts::nShutdownTimeout, 1, MyOpts::nMaxMinutes},
};

} // namespace

int LoadSettings(MyOpts& opts, const wchar_t* gpoPath)
{
    opts.Reset();
    StrCopy(opts.szGPOPath, gpoPath);
    opts.szGPODisplayName[0] = 0;
    opts.hrGPO = S_OK;
    opts.bPolicyInEffect = 0;
    if (StrIsEmpty(gpoPath)) {
        opts.Load();
        // Never stored (only status values or the utility's state in the key): the defaults,
        // not the empty lists such a key reads as.
        if (!opts.bPolicyInEffect && !MyOpts::HasStoredSettings())
            opts.Reset();
        return 1;
    }
    return opts.LoadFromGPO();
}

namespace {

void CopySettings(MyOpts& to, MyOpts& from)
{
    to.CopyFrom(static_cast<BoolOpts*>(&from));
    to.CopyGPOFrom(&from);
    to.hrGPO = from.hrGPO;
}

} // namespace

namespace ConfigSeams {
int (*pfnMessage)(HWND, UINT, int*, const wchar_t*) = nullptr;
INT_PTR (*pfnRunDialog)(DMDlg&, HWND) = nullptr;
BOOL (*pfnBrowseForFile)(HWND, BOOL, const wchar_t*, wchar_t*, unsigned) = nullptr;
int (*pfnBrowseForGPO)(HWND, wchar_t*, unsigned, wchar_t*, unsigned) = nullptr;
int (*pfnPickUsersGroups)(HWND, StrList&) = nullptr;
int (*pfnInstallService)(int) = nullptr;
int (*pfnRemoveService)(int) = nullptr;
BOOL (*pfnSendServiceControl)(DWORD) = nullptr;
void (*pfnSleep)(DWORD) = nullptr;
SHORT(WINAPI* pfnGetKeyState)(int) = nullptr;
void (*pfnDoAbout)(HWND, BOOL) = nullptr;
int (*pfnOpenHelp)(HWND) = nullptr;

void Reset()
{
    pfnMessage = ShippedMessage;
    pfnRunDialog = ShippedRunDialog;
    pfnBrowseForFile = ShippedBrowseForFile;
    pfnBrowseForGPO = BrowseForGPO;
    pfnPickUsersGroups = PickUsersGroups;
    pfnInstallService = InstallService;
    pfnRemoveService = RemoveService;
    pfnSendServiceControl = SendServiceControl;
    pfnSleep = ShippedSleep;
    pfnGetKeyState = GetKeyState;
    pfnDoAbout = DoAbout;
    pfnOpenHelp = OpenHelp;
}
} // namespace ConfigSeams

// The shipped connections, set once before anything runs (Reset is their one list).
static const bool g_configSeamsSet = (ConfigSeams::Reset(), true);

const RangeRule kRangeRules[4] = {
    {IDC_MAIN_TIMEOUT, &MyOpts::nTimeout, 1, MyOpts::nMaxMinutes},
    // The message time alone may be 0: log off without a warning.
    {IDC_MAIN_MSG_TIMEOUT, &MyOpts::nMsgTimeout, 0, MyOpts::nMaxMinutes},
    {IDC_MAIN_STALE_COUNT, &MyOpts::nLogoffStaleCount, 1, MyOpts::nMaxMinutes},
    {IDC_MAIN_SHUTDOWN_TIMEOUT, &MyOpts::nShutdownTimeout, 1, MyOpts::nMaxMinutes},
};

const RangeRule* FindRangeViolation(const MyOpts& opts)
{
    for (const RangeRule& rule : kRangeRules) {
        const int v = opts.*rule.field;
        if (v < rule.lo || v > rule.hi)
            return &rule;
    }
    return nullptr;
}

int ParseFieldNumber(const wchar_t* text, int& value)
{
    if (!text)
        return 0;
    while (*text == L' ' || *text == L'\t')
        ++text;
    const bool negative = *text == L'-';
    if (negative)
        ++text;
    if (*text < L'0' || *text > L'9')
        return 0;
    long long v = 0;
    while (*text >= L'0' && *text <= L'9') {
        // Saturate well before the 64-bit type could overflow.
        if (v <= (long long)INT_MAX + 1)
            v = v * 10 + (*text - L'0');
        ++text;
    }
    while (*text == L' ' || *text == L'\t')
        ++text;
    if (*text)
        return 0;
    if (negative)
        v = -v;
    value = v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : (int)v;
    return 1;
}

RECT LayoutControl(int id, RECT rc, int dx, int dy)
{
    const int half = dx / 2;
    for (const LayoutRule& rule : kLayout) {
        if (rule.id != id)
            continue;
        switch (rule.move) {
        case kWiden:
            rc.right += dx;
            break;
        case kRight:
            OffsetRect(&rc, dx, 0);
            break;
        case kRightHalf:
            OffsetRect(&rc, half, 0);
            break;
        case kLeftList:
            rc.right += half;
            rc.bottom += dy;
            break;
        case kRightList:
            rc.left += half;
            rc.right += dx; // moved by half and widened by the other half
            rc.bottom += dy;
            break;
        case kDown:
            OffsetRect(&rc, 0, dy);
            break;
        case kDownWiden:
            OffsetRect(&rc, 0, dy);
            rc.right += dx;
            break;
        }
        break;
    }
    return rc;
}

bool ListHasName(HWND list, const wchar_t* name)
{
    const int n = (int)SendMessageW(list, LB_GETCOUNT, 0, 0);
    wchar_t item[512];
    for (int i = 0; i < n; ++i) {
        const LRESULT len = SendMessageW(list, LB_GETTEXTLEN, i, 0);
        if (len < 0 || len >= (LRESULT)ARRAYSIZE(item))
            continue;
        SendMessageW(list, LB_GETTEXT, i, (LPARAM)item);
        if (StrEqualNoCase(item, name))
            return true;
    }
    return false;
}

DlgMain::DlgMain(MyOpts& settings, MyConfig& config) : DMDlg(IDD_MAIN), config(config)
{
    working.Reset();
    stored.Reset();
    CopySettings(stored, settings);
    CopySettings(working, settings);
    StrCopy(szGPOPath, settings.szGPOPath);
    StrCopy(szGPODisplayName, settings.szGPODisplayName);
    StrCopy(szStoredGPOPath, settings.szGPOPath);
    bPolicyManaged = settings.bPolicyInEffect && !szGPOPath[0];
    LoadResString(IDS_WARNING_TEXT, szDefaultMsg, ARRAYSIZE(szDefaultMsg));
    LoadResString(IDS_WARNING_TEXT_LOCKED, szDefaultMsgLocked, ARRAYSIZE(szDefaultMsgLocked));
    DWORD cch = ARRAYSIZE(szComputerName);
    if (!GetComputerNameW(szComputerName, &cch))
        szComputerName[0] = 0;
}

DlgMain::~DlgMain() = default;

int DlgMain::Message(UINT flags, const wchar_t* text, int* pDontShow)
{
    return ConfigSeams::pfnMessage(hWnd, flags, pDontShow, text);
}

int DlgMain::MessageId(UINT flags, int idText, ...)
{
    wchar_t format[1024], text[2048];
    LoadResString(idText, format, ARRAYSIZE(format));
    va_list args;
    va_start(args, idText);
    StrFormatV(text, ARRAYSIZE(text), format, args);
    va_end(args);
    return Message(flags, text);
}

void DlgMain::SetConfigBit(DWORD bit, bool on)
{
    static_cast<DMOptsLoader&>(config).SetBits(bit, on ? bit : 0);
}

void DlgMain::InformUnlessHidden(int idText, DWORD hideBit)
{
    if (IsConfigBit(hideBit))
        return;
    int dontShow = 0;
    wchar_t text[1024];
    LoadResString(idText, text, ARRAYSIZE(text));
    Message(MB_OK | MB_ICONINFORMATION, text, &dontShow);
    // The answer is kept at once: a crash or a kill later must not bring the message back.
    if (dontShow) {
        SetConfigBit(hideBit, true);
        config.Store();
    }
}

bool DlgMain::IsConfigBit(DWORD bit) const
{
    return static_cast<const DMOptsLoader&>(config).IsOn(bit) != 0;
}

BOOL DlgMain::OnInit()
{
    SetText(L"Vantrel Lite");
    uProductMessage = RegisterWindowMessageW(kProductMessage);

    HWND policyList = GetItem(IDC_MAIN_POLICY_STATE);
    const wchar_t* const states[] = {L"Not Configured", L"Enabled", L"Disabled"};
    for (int i = 0; i < 3; ++i) {
        const LRESULT at = SendMessageW(policyList, CB_ADDSTRING, 0, (LPARAM)states[i]);
        SendMessageW(policyList, CB_SETITEMDATA, at, i);
    }
    // The list reuses the registry's own words for the three actions.
    HWND actions = GetItem(IDC_MAIN_SHUTDOWN_ACTION);
    for (int action = 1; action <= 3; ++action) {
        const LRESULT at = SendMessageW(actions, CB_ADDSTRING, 0, (LPARAM)MyOpts::GetShutdownActionText(action));
        SendMessageW(actions, CB_SETITEMDATA, at, action);
    }
    // The policy state takes the place of the Enable box.
    RECT rc;
    GetWindowRect(GetItem(IDC_MAIN_ENABLE), &rc);
    MapWindowPoints(nullptr, hWnd, reinterpret_cast<POINT*>(&rc), 2);
    SetWindowPos(policyList, nullptr, rc.left, rc.top - 2, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);

    source.Attach(GetItem(IDC_MAIN_SOURCE));
    scheduleLink.Attach(GetItem(IDC_MAIN_EDIT_SCHEDULE));
    scheduleLink.MakeLink();
    msgLink.Attach(GetItem(IDC_MAIN_MSG_LINK));
    msgLockedLink.Attach(GetItem(IDC_MAIN_MSG_LOCKED_LINK));
    for (const NumberBinding& n : kNumbers) {
        SendDlgItemMessageW(hWnd, n.idSpin, UDM_SETRANGE32, n.lo, n.hi);
        SendDlgItemMessageW(hWnd, n.idField, EM_LIMITTEXT, 11, 0);
    }
    status.Attach(hWnd);
    // The in-session monitor of this session looks for this window to report activity to.
    notify.Create(nullptr, L"", WS_POPUP);
    notify.SetTarget(hWnd, uProductMessage);

    // The layout works from the template's places; the dialog never gets smaller than it.
    RECT client;
    GetClientRect(hWnd, &client);
    templateSize = {client.right, client.bottom};
    for (const LayoutRule& rule : kLayout) {
        HWND ctl = GetItem(rule.id);
        if (!ctl || nPlaced >= (int)ARRAYSIZE(placed))
            continue;
        RECT r;
        GetWindowRect(ctl, &r);
        MapWindowPoints(nullptr, hWnd, reinterpret_cast<POINT*>(&r), 2);
        placed[nPlaced++] = {rule.id, r};
    }
    RECT window;
    GetWindowRect(hWnd, &window);
    minTrack.ptMinTrackSize = {window.right - window.left, window.bottom - window.top};

    const BOOL result = DMDlg::OnInit(); // fills the controls
    UpdateStatusSettings();
    status.Refresh();
    StartTimer(kStatusTimer, kStatusPeriodMs);

    // Where the administrator left the window last time, if that is still on a screen.
    WINDOWPLACEMENT wp = config.wpDlgMain;
    if (wp.length == sizeof(wp) && MonitorFromRect(&wp.rcNormalPosition, MONITOR_DEFAULTTONULL)) {
        wp.showCmd = wp.showCmd == SW_SHOWMAXIMIZED ? SW_SHOWMAXIMIZED : SW_SHOWNORMAL;
        wp.flags = 0;
        SetWindowPlacement(hWnd, &wp);
    }
    return result;
}

void DlgMain::ShowSource()
{
    wchar_t text[600];
    if (IsGPOMode())
        StrFormat(text, L"<B>%s</b> (GPO)", szGPODisplayName[0] ? szGPODisplayName : szGPOPath);
    else
        StrFormat(text, L"<B>%s</b> (This Computer)", szComputerName);
    source.SetHTMLText(text);
}

void DlgMain::UpdateStatusSettings()
{
    status.SetSettings(stored.bEnable, bPolicyManaged, szGPOPath, szGPODisplayName);
}

int DlgMain::OptsToDlg()
{
    const bool gpo = IsGPOMode();
    ShowItem(IDC_MAIN_ENABLE, !gpo);
    ShowItem(IDC_MAIN_POLICY_STATE, gpo);
    CheckDlgButton(hWnd, IDC_MAIN_ENABLE, working.bEnable ? BST_CHECKED : BST_UNCHECKED);
    const int state = working.nPolicyState >= 0 && working.nPolicyState <= 2 ? working.nPolicyState : 0;
    SendDlgItemMessageW(hWnd, IDC_MAIN_POLICY_STATE, CB_SETCURSEL, state, 0);
    ShowSource();

    for (const CheckBinding& c : kChecks)
        CheckDlgButton(hWnd, c.id, working.*c.field ? BST_CHECKED : BST_UNCHECKED);
    for (const NumberBinding& n : kNumbers)
        SetDlgItemInt(hWnd, n.idField, (UINT)(working.*n.field), TRUE);
    FillList(IDC_MAIN_APPLY_TO, working.listInclude);
    FillList(IDC_MAIN_EXCLUDE, working.listExclude);

    // An action the list does not know shows no choice (and is kept as it is).
    HWND actions = GetItem(IDC_MAIN_SHUTDOWN_ACTION);
    SendMessageW(actions, CB_SETCURSEL, (WPARAM)-1, 0);
    const int count = (int)SendMessageW(actions, CB_GETCOUNT, 0, 0);
    for (int i = 0; i < count; ++i)
        if ((int)SendMessageW(actions, CB_GETITEMDATA, i, 0) == working.nShutdownAction)
            SendMessageW(actions, CB_SETCURSEL, i, 0);
    UpdateEnabled();
    return 1;
}

void DlgMain::FocusForCorrection(int idField)
{
    HWND ctl = GetItem(idField);
    // A value can be refused while its feature is off (loaded from the registry or a file): the
    // field opens, so that the administrator can correct it.
    if (!IsWindowEnabled(ctl)) {
        EnableWindow(ctl, TRUE);
        EnableWindow(GetWindow(ctl, GW_HWNDNEXT), TRUE); // its spin
    }
    SetFocus(ctl);
    SendMessageW(ctl, EM_SETSEL, 0, -1);
}

int DlgMain::ReadNumber(int idField, int& field, int lo, int hi)
{
    wchar_t text[32];
    GetItemText(idField, text, ARRAYSIZE(text));
    if (ParseFieldNumber(text, field))
        return 1;
    MessageId(MB_OK | MB_ICONERROR, IDS_VALUE_NOT_A_NUMBER, text, lo, hi);
    FocusForCorrection(idField);
    return 0;
}

int DlgMain::DlgToOpts()
{
    if (IsGPOMode()) {
        const LRESULT index = SendDlgItemMessageW(hWnd, IDC_MAIN_POLICY_STATE, CB_GETCURSEL, 0, 0);
        if (index >= 0 && index <= 2)
            working.nPolicyState = (int)index;
        // Enabled and Disabled say what "Enable" is; Not Configured leaves it as the object keeps it.
        if (index == 1 || index == 2)
            working.bEnable = index == 1;
    } else {
        working.bEnable = IsDlgButtonChecked(hWnd, IDC_MAIN_ENABLE) == BST_CHECKED;
    }
    for (const CheckBinding& c : kChecks)
        working.*c.field = IsDlgButtonChecked(hWnd, c.id) == BST_CHECKED;
    for (const NumberBinding& n : kNumbers)
        if (!ReadNumber(n.idField, working.*n.field, n.lo, n.hi))
            return 0;
    ReadList(IDC_MAIN_APPLY_TO, working.listInclude);
    ReadList(IDC_MAIN_EXCLUDE, working.listExclude);
    const LRESULT sel = SendDlgItemMessageW(hWnd, IDC_MAIN_SHUTDOWN_ACTION, CB_GETCURSEL, 0, 0);
    if (sel != CB_ERR)
        working.nShutdownAction = (int)SendDlgItemMessageW(hWnd, IDC_MAIN_SHUTDOWN_ACTION, CB_GETITEMDATA, sel, 0);
    return 1;
}

void DlgMain::FillList(int idList, const StrList& list)
{
    HWND ctl = GetItem(idList);
    SendMessageW(ctl, LB_RESETCONTENT, 0, 0);
    for (DMPos pos = list.GetHeadPosition(); pos;) {
        const wchar_t* s = list.GetNext(pos);
        if (s)
            SendMessageW(ctl, LB_ADDSTRING, 0, (LPARAM)s);
    }
}

void DlgMain::ReadList(int idList, StrList& list)
{
    HWND ctl = GetItem(idList);
    list.RemoveAll();
    const int n = (int)SendMessageW(ctl, LB_GETCOUNT, 0, 0);
    for (int i = 0; i < n; ++i) {
        const LRESULT len = SendMessageW(ctl, LB_GETTEXTLEN, i, 0);
        if (len < 0)
            continue;
        HeapBuf<wchar_t> item((size_t)len + 1);
        if (!item.p)
            continue;
        SendMessageW(ctl, LB_GETTEXT, i, (LPARAM)item.p);
        list.AddTail(item.p);
    }
}

void DlgMain::UpdateEnabled()
{
    if (bPolicyManaged) {
        EnableAllItems(FALSE);
        for (int id : kPolicyManagedEnabled)
            EnableItem(id, TRUE);
        return;
    }
    EnableAllItems(TRUE);
    const BOOL shutdown = IsDlgButtonChecked(hWnd, IDC_MAIN_SHUTDOWN) == BST_CHECKED;
    EnableItems({IDC_MAIN_SHUTDOWN_TIMEOUT, IDC_MAIN_SHUTDOWN_TIMEOUT_SPIN, IDC_MAIN_SHUTDOWN_UNITS,
                 IDC_MAIN_SHUTDOWN_LABEL, IDC_MAIN_SHUTDOWN_ACTION},
                shutdown);
    const BOOL cpu = IsDlgButtonChecked(hWnd, IDC_MAIN_MONITOR_CPU) == BST_CHECKED;
    EnableItems({IDC_MAIN_PERCENT_CPU, IDC_MAIN_PERCENT_CPU_SPIN, IDC_MAIN_PERCENT_UNITS}, cpu);
    const BOOL stale = IsDlgButtonChecked(hWnd, IDC_MAIN_LOGOFF_STALE) == BST_CHECKED;
    EnableItems({IDC_MAIN_STALE_COUNT, IDC_MAIN_STALE_COUNT_SPIN, IDC_MAIN_STALE_UNITS}, stale);
}

int DlgMain::StoreSettings()
{
    if (bPolicyManaged) {
        MessageId(MB_OK | MB_ICONERROR, IDS_POLICY_MANAGED);
        return 0;
    }
    if (!DlgToOpts())
        return 0;
    StrCopy(working.szGPOPath, szGPOPath);
    working.hrGPO = S_OK;
    int ok = working.Store();
    if (IsGPOMode() && FAILED(working.hrGPO))
        ok = 0;
    // What was really stored is what a reload gives.
    if (ok)
        ok = LoadSettings(stored, szGPOPath);
    if (ok && !working.IsDifferent(static_cast<BoolOpts*>(&stored))) {
        StrCopy(szStoredGPOPath, szGPOPath);
        if (IsGPOMode() && working.szGPODisplayName[0])
            StrCopy(szGPODisplayName, working.szGPODisplayName);
        UpdateStatusSettings();
        status.SetAttention(kAttentionRefreshes);
        InformUnlessHidden(IDS_SETTINGS_SAVED, kCfgHideSavedMsg);
        return 1;
    }
    MessageId(MB_OK | MB_ICONERROR, IDS_SAVE_FAILED);
    return 0;
}

int DlgMain::Apply(bool bFromButton)
{
    if (bPolicyManaged) {
        MessageId(MB_OK | MB_ICONERROR, IDS_POLICY_MANAGED);
        return 0;
    }
    if (!DlgToOpts())
        return 0;
    if (const RangeRule* bad = FindRangeViolation(working)) {
        MessageId(MB_OK | MB_ICONERROR, IDS_VALUE_OUT_OF_RANGE, working.*bad->field, bad->lo, bad->hi);
        FocusForCorrection(bad->idField);
        return 0;
    }
    if (working.bEnable && !working.bMonitorKB && !working.bMonitorMouse && !working.bMonitorCPU) {
        MessageId(MB_OK | MB_ICONERROR, IDS_NO_ACTIVITY_MONITORED);
        return 0;
    }
    if (!IsGPOMode() && working.bShutdown && !MyOpts::CanDoShutdownAction(working.nShutdownAction)) {
        wchar_t format[512], text[1024];
        LoadResString(IDS_CANNOT_DO_SHUTDOWN, format, ARRAYSIZE(format));
        StrFormat(text, format, MyOpts::GetShutdownActionText(working.nShutdownAction));
        if (Message(MB_YESNO | MB_ICONWARNING, text) != IDYES)
            return 0;
    }
    if (!StoreSettings())
        return 0;

    if (!IsGPOMode()) {
        if (working.bEnable && StatusSeams::pfnQueryServiceState() != SERVICE_RUNNING) {
            WaitCursor wait;
            ConfigSeams::pfnInstallService(1);
            for (int i = 0; i < kStartPolls && StatusSeams::pfnQueryServiceState() != SERVICE_RUNNING; ++i)
                ConfigSeams::pfnSleep(kStartPollMs);
            status.Refresh();
        }
        // Both the service and this session's monitor read the new settings at once.
        ConfigSeams::pfnSendServiceControl(kServiceReloadControl);
        if (HWND monitor = StatusSeams::pfnFindWindowW(kMonitorWindowClass, nullptr))
            PostMessageW(monitor, uProductMessage, kMonitorReloadCode, 0);
    }

    if (bFromButton)
        InformUnlessHidden(IDS_APPLIED_HINT, kCfgHideApplyHint);
    return 1;
}

int DlgMain::OfferToStore()
{
    if (bPolicyManaged)
        return 1;
    if (!DlgToOpts())
        return 0;
    if (!working.IsDifferent(static_cast<BoolOpts*>(&stored)))
        return 1;
    wchar_t text[512];
    LoadResString(IDS_APPLY_CHANGES, text, ARRAYSIZE(text));
    switch (Message(MB_YESNOCANCEL | MB_ICONQUESTION, text)) {
    case IDNO:
        return 1;
    case IDYES:
        // Stored exactly as Apply would store them: the same checks first.
        return Apply(false);
    default:
        return 0;
    }
}

void DlgMain::LoadLocal()
{
    szGPOPath[0] = szGPODisplayName[0] = szStoredGPOPath[0] = 0;
    MyOpts fresh;
    LoadSettings(fresh, L"");
    CopySettings(stored, fresh);
    CopySettings(working, fresh);
    bPolicyManaged = fresh.bPolicyInEffect != 0;
}

void DlgMain::SwitchToThisComputer()
{
    if (!IsGPOMode() || !OfferToStore())
        return;
    LoadLocal();
    OptsToDlg();
    UpdateStatusSettings();
    status.Refresh();
}

void DlgMain::SwitchToGPO()
{
    wchar_t path[260], name[260];
    StrCopy(path, szGPOPath[0] ? szGPOPath : config.szGPOPath);
    name[0] = 0;
    if (ConfigSeams::pfnBrowseForGPO(hWnd, path, ARRAYSIZE(path), name, ARRAYSIZE(name)) != 1 || !path[0])
        return;
    if (StrEqualNoCase(path, szGPOPath) || !OfferToStore())
        return;

    MyOpts fresh;
    if (LoadSettings(fresh, path) && SUCCEEDED(fresh.hrGPO)) {
        StrCopy(szGPOPath, path);
        StrCopy(szStoredGPOPath, path);
        StrCopy(szGPODisplayName, fresh.szGPODisplayName[0] ? fresh.szGPODisplayName : name);
        StrCopy(config.szGPOPath, path);
        CopySettings(stored, fresh);
        CopySettings(working, fresh);
        bPolicyManaged = false;
    } else {
        wchar_t text[1024];
        const int n = (int)LoadResString(IDS_GPO_LOAD_FAILED, text, ARRAYSIZE(text));
        wchar_t reason[512];
        if (FAILED(fresh.hrGPO) &&
            FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, (DWORD)fresh.hrGPO, 0,
                           reason, ARRAYSIZE(reason), nullptr)) {
            StrAppend(text, L"\n\n");
            StrAppend(text, reason);
        } else if (FAILED(fresh.hrGPO)) {
            StrFormat(text + n, ARRAYSIZE(text) - n, L"\n\n0x%08X", (unsigned)fresh.hrGPO);
        }
        Message(MB_OK | MB_ICONERROR, text);
        LoadLocal();
    }
    OptsToDlg();
    UpdateStatusSettings();
    status.Refresh();
}

void DlgMain::AddToList(int idList)
{
    StrList names;
    if (ConfigSeams::pfnPickUsersGroups(hWnd, names) <= 0)
        return;
    HWND list = GetItem(idList);
    for (DMPos pos = names.GetHeadPosition(); pos;) {
        const wchar_t* name = names.GetNext(pos);
        if (!StrIsEmpty(name) && !ListHasName(list, name))
            SendMessageW(list, LB_ADDSTRING, 0, (LPARAM)name);
    }
}

void DlgMain::DeleteFromList(int idList)
{
    HWND list = GetItem(idList);
    const LRESULT sel = SendMessageW(list, LB_GETCURSEL, 0, 0);
    if (sel == LB_ERR)
        return;
    SendMessageW(list, LB_DELETESTRING, sel, 0);
    const LRESULT count = SendMessageW(list, LB_GETCOUNT, 0, 0);
    if (count > 0)
        SendMessageW(list, LB_SETCURSEL, sel < count ? sel : count - 1, 0);
}

void DlgMain::EditMessage(bool bLocked)
{
    wchar_t(&field)[512] = bLocked ? working.szMsgTextLocked : working.szMsgText;
    const wchar_t* builtIn = bLocked ? szDefaultMsgLocked : szDefaultMsg;
    DlgCustomMsg dlg(field[0] ? field : builtIn, bPolicyManaged);
    if (ConfigSeams::pfnRunDialog(dlg, hWnd) == IDOK && !bPolicyManaged)
        MakeStoredMessage(dlg.GetText(), builtIn, field);
}

void DlgMain::ImportExport(bool bExport)
{
    wchar_t path[260];
    if (config.szImpExpPath[0]) {
        StrCopy(path, config.szImpExpPath);
    } else {
        path[0] = 0;
        if (SHGetFolderPathW(nullptr, CSIDL_PERSONAL, nullptr, SHGFP_TYPE_CURRENT, path) != S_OK ||
            StrLen(path) + StrLen(kDefaultFileName) >= ARRAYSIZE(path))
            path[0] = 0;
        StrAppend(path, path[0] ? kDefaultFileName : kDefaultFileName + 1);
    }
    if (!ConfigSeams::pfnBrowseForFile(hWnd, bExport, bExport ? L"Export settings" : L"Import settings", path,
                                       ARRAYSIZE(path)))
        return;
    int ok;
    if (bExport) {
        if (!DlgToOpts())
            return;
        ok = working.Export(nullptr, path);
    } else {
        ok = working.Import(nullptr, path);
        if (ok)
            OptsToDlg();
    }
    if (ok) {
        StrCopy(config.szImpExpPath, path);
        return;
    }
    // The settings layer is asked without a window, so every failure is told here, once.
    const DWORD error = GetLastError();
    wchar_t format[256], text[1024];
    if (!bExport && error == ERROR_INVALID_DATA) {
        MyOpts::FormatNotSettingsFile(path, text, ARRAYSIZE(text));
        Message(MB_OK | MB_ICONERROR, text);
        return;
    }
    LoadResString(bExport ? IDS_EXPORT_FAILED : IDS_IMPORT_FAILED, format, ARRAYSIZE(format));
    StrFormat(text, format, path);
    SetLastError(error);
    Message(MB_OK | MB_ICONERROR | MsgBoxModel::kAppendLastError, text);
}

void DlgMain::RestoreDefaults()
{
    wchar_t text[512];
    LoadResString(IDS_RESTORE_DEFAULTS, text, ARRAYSIZE(text));
    if (Message(MB_YESNO | MB_ICONWARNING, text) != IDYES)
        return;
    working.Reset();
    SetConfigBit(kCfgDataLossAccepted | kCfgHideSavedMsg, false);
    OptsToDlg();
}

void DlgMain::OnEnableClicked()
{
    if (IsDlgButtonChecked(hWnd, IDC_MAIN_ENABLE) != BST_CHECKED || IsConfigBit(kCfgDataLossAccepted))
        return;
    DlgWarningDataLoss dlg;
    if (ConfigSeams::pfnRunDialog(dlg, hWnd) == IDOK)
        SetConfigBit(kCfgDataLossAccepted, true);
    else
        CheckDlgButton(hWnd, IDC_MAIN_ENABLE, BST_UNCHECKED);
}

void DlgMain::StartServiceFromLink()
{
    if (StatusSeams::pfnQueryServiceState() != SERVICE_RUNNING) {
        WaitCursor wait;
        ConfigSeams::pfnInstallService(0);
    }
    status.Refresh();
}

void DlgMain::HiddenServiceRemoval()
{
    // Ctrl and Alt held at OK or close: the way to take the service off this computer without
    // the installer (it reports its own outcome).
    if (ConfigSeams::pfnGetKeyState(VK_CONTROL) >= 0 || ConfigSeams::pfnGetKeyState(VK_MENU) >= 0)
        return;
    WaitCursor wait;
    ConfigSeams::pfnRemoveService(0);
}

void DlgMain::Close()
{
    if (!OfferToStore())
        return;
    HiddenServiceRemoval();
    End(IDCANCEL);
}

void DlgMain::OnOK()
{
    if (!bPolicyManaged && !Apply(false))
        return;
    HiddenServiceRemoval();
    End(IDOK);
}

void DlgMain::OnCancel()
{
    // Esc never closes the window: only the close box and the system menu do.
    if (!bCloseFromSystemMenu)
        return;
    bCloseFromSystemMenu = false;
    Close();
}

int DlgMain::OnCommand(WORD id, WORD code, HWND hwndCtl)
{
    (void)hwndCtl;
    switch (id) {
    case IDC_MAIN_ENABLE:
        if (code == BN_CLICKED)
            OnEnableClicked();
        return 1;
    case IDC_MAIN_MANAGE: {
        RECT rc;
        GetWindowRect(GetItem(IDC_MAIN_MANAGE), &rc);
        HMENU menu = CreatePopupMenu();
        if (!menu)
            return 1;
        wchar_t text[64];
        LoadResString(IDS_THIS_COMPUTER, text, ARRAYSIZE(text));
        AppendMenuW(menu, MF_STRING, IDM_THIS_COMPUTER, text);
        LoadResString(IDS_GPO_MENU, text, ARRAYSIZE(text));
        AppendMenuW(menu, MF_STRING, IDM_GPO, text);
        const int cmd = (int)UiSeams::pfnTrackPopupMenuEx(menu, TPM_LEFTALIGN | TPM_TOPALIGN | TPM_RETURNCMD, rc.left,
                                                           rc.bottom + 1, hWnd, nullptr);
        DestroyMenu(menu);
        if (cmd)
            Send(WM_COMMAND, MAKEWPARAM(cmd, 0), 0);
        return 1;
    }
    case IDM_THIS_COMPUTER:
        SwitchToThisComputer();
        return 1;
    case IDM_GPO:
        SwitchToGPO();
        return 1;
    case IDC_MAIN_APPLY_TO_ADD:
    case IDC_MAIN_EXCLUDE_ADD:
        AddToList(id == IDC_MAIN_APPLY_TO_ADD ? IDC_MAIN_APPLY_TO : IDC_MAIN_EXCLUDE);
        return 1;
    case IDC_MAIN_APPLY_TO_DEL:
    case IDC_MAIN_EXCLUDE_DEL:
        DeleteFromList(id == IDC_MAIN_APPLY_TO_DEL ? IDC_MAIN_APPLY_TO : IDC_MAIN_EXCLUDE);
        return 1;
    case IDC_MAIN_EDIT_SCHEDULE:
        if (code == STN_CLICKED) {
            DlgSchedule dlg(working.schedule);
            ConfigSeams::pfnRunDialog(dlg, hWnd);
        }
        return 1;
    case IDC_MAIN_MSG_LINK:
    case IDC_MAIN_MSG_LOCKED_LINK:
        if (code == STN_CLICKED)
            EditMessage(id == IDC_MAIN_MSG_LOCKED_LINK);
        return 1;
    case IDC_MAIN_APPLY:
        Apply(true);
        return 1;
    case IDC_MAIN_RESTORE_DEFAULTS:
        RestoreDefaults();
        return 1;
    case IDC_MAIN_IMPORT:
    case IDC_MAIN_EXPORT:
        ImportExport(id == IDC_MAIN_EXPORT);
        return 1;
    case IDC_MAIN_ABOUT:
        ConfigSeams::pfnDoAbout(hWnd, !bPolicyManaged);
        return 1;
    case IDC_MAIN_HELP:
        ConfigSeams::pfnOpenHelp(hWnd);
        return 1;
    case IDC_MAIN_STATUS1:
        if (code == STN_CLICKED)
            StartServiceFromLink();
        return 1;
    case IDC_MAIN_STATUS2:
        status.Refresh();
        return 1;
    case IDC_MAIN_SHUTDOWN:
    case IDC_MAIN_MONITOR_CPU:
    case IDC_MAIN_LOGOFF_STALE:
        if (code == BN_CLICKED)
            UpdateEnabled();
        return 1;
    default:
        return 0;
    }
}

int DlgMain::OnHelp(HELPINFO*)
{
    ConfigSeams::pfnOpenHelp(hWnd);
    return 1;
}

INT_PTR DlgMain::OnWndMsg(UINT msg, WPARAM wp, LPARAM lp)
{
    if (msg == uProductMessage && uProductMessage) {
        switch (wp) {
        case kAskInstanceCode:
            return SetMsgResult(lp == kConfigInstanceId ? 1 : 0);
        case kActivateCode:
            if (IsIconic(hWnd))
                ShowWindow(hWnd, SW_RESTORE);
            SetForegroundWindow(GetLastActivePopup(hWnd));
            return SetMsgResult(1);
        case kActivityNoticeCode:
            return SetMsgResult(status.OnActivity((int)lp));
        default:
            return SetMsgResult(0);
        }
    }
    switch (msg) {
    case WM_SYSCOMMAND:
        if ((wp & 0xFFF0) == SC_CLOSE)
            bCloseFromSystemMenu = true;
        return FALSE;
    case WM_GETMINMAXINFO:
        if (minTrack.ptMinTrackSize.x > 0) {
            reinterpret_cast<MINMAXINFO*>(lp)->ptMinTrackSize = minTrack.ptMinTrackSize;
            return SetMsgResult(0);
        }
        return FALSE;
    default:
        return FALSE;
    }
}

int DlgMain::OnTimer(UINT_PTR id)
{
    if (id != kStatusTimer)
        return 0;
    status.Refresh();
    return 1;
}

int DlgMain::OnSize(UINT type, int cx, int cy)
{
    if (type == SIZE_MINIMIZED || nPlaced == 0)
        return 0;
    const int dx = cx > templateSize.cx ? cx - templateSize.cx : 0;
    const int dy = cy > templateSize.cy ? cy - templateSize.cy : 0;
    HDWP defer = BeginDeferWindowPos(nPlaced);
    for (int i = 0; i < nPlaced && defer; ++i) {
        const RECT rc = LayoutControl(placed[i].id, placed[i].rc, dx, dy);
        defer = DeferWindowPos(defer, GetItem(placed[i].id), nullptr, rc.left, rc.top, rc.right - rc.left,
                               rc.bottom - rc.top, SWP_NOZORDER | SWP_NOACTIVATE);
    }
    if (defer)
        EndDeferWindowPos(defer);
    InvalidateRect(hWnd, nullptr, TRUE);
    return 1;
}

LRESULT UtilityNotifyWnd::OnMessage(UINT msg, WPARAM wp, LPARAM lp)
{
    // Posted on: the monitor posts from its hook path and must never wait for the dialog.
    if (msg == uMessage && uMessage && wp == kActivityNoticeCode) {
        PostMessageW(hwndTarget, msg, wp, lp);
        return 0;
    }
    return DMWnd::OnMessage(msg, wp, lp);
}

void DlgMain::OnDestroy()
{
    StopTimer(kStatusTimer);
    notify.Destroy();
    // The utility's own state: the window's place, the last file and object, the answers given.
    config.wpDlgMain.length = sizeof(config.wpDlgMain);
    if (!GetWindowPlacement(hWnd, &config.wpDlgMain))
        config.wpDlgMain.length = 0;
    StrCopy(config.szGPOPath, szGPOPath[0] ? szGPOPath : config.szGPOPath);
    config.Store();
}
