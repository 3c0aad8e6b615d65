// The main dialog of the configuration utility, built from the product's template and driven
// like an administrator would: controls set, buttons pressed, the registry and files read back.
// Message boxes, modal editors, choosers and the service manager are answered through seams;
// one test runs Apply and the hidden removal against Wine's real service manager.
#include <gtest/gtest.h>

#include <windows.h>

#include <commctrl.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/StrUtil.h"
#include "config/DlgMain.h"
#include "config/DlgSmall.h"
#include "engine/ServiceHost.h"
#include "engine/ServiceSeams.h"
#include "resources/resource.h"
#include "settings/GPObj.h"
#include "storage/StrList.h"
#include "support/FakeGPO.h"
#include "support/Guards.h"
#include "support/TestSupport.h"
#include "ui/MsgBoxModel.h"
#include "ui/UiSeams.h"

using namespace vxtest;

namespace {

struct Box {
    UINT flags;
    std::wstring text;
};
std::vector<Box> g_boxes;
std::deque<int> g_answers;  // answers of the next boxes (IDOK when none)
int g_tickDontShow = 0;     // the state "Don't show this message again" is left in
std::function<INT_PTR(DMDlg&)> g_dialog; // answers the modal editors
std::vector<std::wstring> g_calls;       // service operations and choosers, in order
DWORD g_service = SERVICE_STOPPED;
int g_menuChoice = 0;
std::wstring g_file, g_gpoPath;
std::vector<std::wstring> g_picked;
SHORT g_ctrl = 0, g_alt = 0;

int FakeMessage(HWND, UINT flags, int* pDontShow, const wchar_t* text)
{
    g_boxes.push_back({flags, text});
    if (pDontShow)
        *pDontShow = g_tickDontShow;
    const int answer = g_answers.empty() ? IDOK : g_answers.front();
    if (!g_answers.empty())
        g_answers.pop_front();
    return answer;
}

void Pump()
{
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
        DispatchMessageW(&msg);
}

std::wstring Texts()
{
    std::wstring all;
    for (const Box& b : g_boxes)
        all += b.text + L"|";
    return all;
}

// The dialog with its fill operation at hand, to start a row from the stored settings.
struct TestDlg : DlgMain {
    using DlgMain::DlgMain;
    using DlgMain::OptsToDlg;
};

class MainDialog : public ::testing::Test {
protected:
    void SetUp() override
    {
        INITCOMMONCONTROLSEX icc = {sizeof(icc), ICC_WIN95_CLASSES};
        InitCommonControlsEx(&icc);
        g_boxes.clear(), g_answers.clear(), g_calls.clear(), g_picked.clear();
        g_tickDontShow = 0, g_service = SERVICE_STOPPED, g_menuChoice = 0, g_ctrl = g_alt = 0;
        g_dialog = [](DMDlg&) { return (INT_PTR)IDCANCEL; };
        ConfigSeams::pfnMessage = FakeMessage;
        ConfigSeams::pfnRunDialog = [](DMDlg& dlg, HWND) { return g_dialog(dlg); };
        ConfigSeams::pfnBrowseForFile = [](HWND, BOOL save, const wchar_t* title, wchar_t* path, unsigned cch) {
            g_calls.push_back(std::wstring(save ? L"save:" : L"open:") + title + L":" + path);
            return (BOOL)(StrCopy(path, cch, g_file.c_str()) > 0);
        };
        ConfigSeams::pfnBrowseForGPO = [](HWND, wchar_t* path, unsigned cch, wchar_t*, unsigned) {
            return StrCopy(path, cch, g_gpoPath.c_str()) > 0 ? 1 : 0;
        };
        ConfigSeams::pfnPickUsersGroups = [](HWND, StrList& names) {
            for (const std::wstring& n : g_picked)
                names.AddTail(n.c_str());
            return g_picked.empty() ? 0 : 1;
        };
        ConfigSeams::pfnInstallService = [](int silent) { return g_calls.push_back(L"install" + std::to_wstring(silent)), 1; };
        ConfigSeams::pfnRemoveService = [](int silent) { return g_calls.push_back(L"remove" + std::to_wstring(silent)), 1; };
        ConfigSeams::pfnSendServiceControl = [](DWORD c) { return g_calls.push_back(L"control" + std::to_wstring(c)), TRUE; };
        ConfigSeams::pfnSleep = [](DWORD) { g_calls.push_back(L"sleep"), g_service = SERVICE_RUNNING; }; // running at the next look
        ConfigSeams::pfnGetKeyState = [](int vk) -> SHORT { return vk == VK_CONTROL ? g_ctrl : vk == VK_MENU ? g_alt : 0; };
        StatusSeams::pfnQueryServiceState = [] { return g_service; };
    }
    void TearDown() override { ConfigSeams::Reset(); }

    // The dialog on settings as the utility loads them at start.
    std::unique_ptr<TestDlg> Open()
    {
        MyOpts loaded;
        LoadSettings(loaded, L"");
        auto dlg = std::make_unique<TestDlg>(loaded, config);
        EXPECT_TRUE(dlg->Create(nullptr));
        hwnd = dlg->GetHwnd();
        ShowWindow(hwnd, SW_SHOW); // focus goes only to a visible, active window
        SetActiveWindow(hwnd);
        return dlg;
    }
    MyOpts& Stored()
    {
        reloaded.Reset();
        reloaded.Load();
        return reloaded;
    }
    void Press(int id, WORD code = BN_CLICKED) { SendMessageW(hwnd, WM_COMMAND, MAKEWPARAM(id, code), (LPARAM)GetDlgItem(hwnd, id)); }
    void Click(int id) { SendMessageW(GetDlgItem(hwnd, id), BM_CLICK, 0, 0); }
    void SetNumber(int id, const wchar_t* text) { SetDlgItemTextW(hwnd, id, text); }
    bool Enabled(int id) { return IsWindowEnabled(GetDlgItem(hwnd, id)) != FALSE; }

    ScopedTestKey key{L"cfg"};
    ScopedAppRootKey root{key.path()};
    ScopedPolicyKeys policy{key.path(L"machinepol"), key.path(L"userpol")};
    ScopedResourceModule res{L"VXDA64.DLL"};
    ScopedValue<DWORD (*)()> state{StatusSeams::pfnQueryServiceState};
    ScopedValue<BOOL (*)(HMENU, UINT, int, int, HWND, const TPMPARAMS*)> menu{
        UiSeams::pfnTrackPopupMenuEx, [](HMENU, UINT, int, int, HWND, const TPMPARAMS*) { return (BOOL)g_menuChoice; }};
    MyConfig config;
    MyOpts reloaded;
    HWND hwnd = nullptr;
};

// Each refusal names the value and its bounds, focuses the field and stores nothing; the
// message time alone may be 0. Catches a shifted bound, a wrong field, a store before the check.
TEST_F(MainDialog, ApplyRefusesBadNumbersAndAnEnableWithoutActivity)
{
    auto dlg = Open();
    struct Case {
        int field;
        const wchar_t* text;
        std::wstring box; // empty: accepted
    } cases[] = {
        {IDC_MAIN_TIMEOUT, L"0", L"The value 0 is invalid; must be between 1 and 9999 (inclusive)."},
        {IDC_MAIN_TIMEOUT, L"10000", L"The value 10000 is invalid; must be between 1 and 9999 (inclusive)."},
        {IDC_MAIN_MSG_TIMEOUT, L"-1", L"The value -1 is invalid; must be between 0 and 9999 (inclusive)."},
        {IDC_MAIN_STALE_COUNT, L"0", L"The value 0 is invalid; must be between 1 and 9999 (inclusive)."},
        {IDC_MAIN_SHUTDOWN_TIMEOUT, L"99999999999", L"The value 2147483647 is invalid; must be between 1 and 9999 (inclusive)."},
        {IDC_MAIN_TIMEOUT, L"12a", L"The value \"12a\" is not a whole number; must be between 1 and 9999 (inclusive)."},
        {IDC_MAIN_MSG_TIMEOUT, L"", L"The value \"\" is not a whole number; must be between 0 and 9999 (inclusive)."},
        {IDC_MAIN_MSG_TIMEOUT, L"0", L""},
        {IDC_MAIN_TIMEOUT, L"9999", L""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        dlg->GetWorking().CopyFrom(static_cast<BoolOpts*>(&dlg->GetStored())); // each row from the stored settings
        dlg->OptsToDlg();
        SetNumber(c.field, c.text);
        g_boxes.clear();
        EXPECT_EQ(dlg->Apply(false), c.box.empty() ? 1 : 0);
        if (c.box.empty())
            continue;
        EXPECT_EQ(Texts(), c.box + L"|");
        EXPECT_EQ(GetFocus(), GetDlgItem(hwnd, c.field));
        EXPECT_FALSE(RawValueExists(key.sub(), L"Timeout")) << "nothing stored";
    }
    EXPECT_EQ(Stored().nMsgTimeout, 0);
    EXPECT_EQ(Stored().nTimeout, 9999);

    g_calls.clear();
    CheckDlgButton(hwnd, IDC_MAIN_ENABLE, BST_CHECKED);
    for (int id : {IDC_MAIN_MONITOR_KB, IDC_MAIN_MONITOR_MOUSE, IDC_MAIN_MONITOR_CPU})
        CheckDlgButton(hwnd, id, BST_UNCHECKED);
    g_boxes.clear();
    EXPECT_EQ(dlg->Apply(true), 0);
    EXPECT_EQ(Texts().substr(0, 39), L"Select at least one activity to monitor");
    EXPECT_EQ(Stored().bEnable, 0) << "nothing stored";
    EXPECT_TRUE(g_calls.empty());
}

// Apply stores every control's setting, starts a stopped service silently and polls it, tells
// the service (128) and this session's monitor (302) to reload, then hints once per answer.
TEST_F(MainDialog, ApplyStoresStartsTheServiceAndTellsServiceAndMonitor)
{
    static std::vector<WPARAM> monitorCodes;
    monitorCodes.clear();
    WNDCLASSW wc = {};
    wc.lpszClassName = L"VANTREL_MONITOR";
    wc.lpfnWndProc = [](HWND h, UINT m, WPARAM wp, LPARAM lp) -> LRESULT {
        if (m == RegisterWindowMessageW(L"KorvaneMessage"))
            monitorCodes.push_back(wp);
        return DefWindowProcW(h, m, wp, lp);
    };
    RegisterClassW(&wc);
    HWND monitor = CreateWindowW(L"VANTREL_MONITOR", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);

    config.SetAll(kCfgDataLossAccepted);
    auto dlg = Open();
    Click(IDC_MAIN_ENABLE);
    SetNumber(IDC_MAIN_TIMEOUT, L"42");
    SetNumber(IDC_MAIN_MSG_TIMEOUT, L"3");
    Click(IDC_MAIN_LOGOFF_STALE);
    SetNumber(IDC_MAIN_STALE_COUNT, L"2");
    Click(IDC_MAIN_SHUTDOWN);
    SendDlgItemMessageW(hwnd, IDC_MAIN_SHUTDOWN_ACTION, CB_SELECTSTRING, (WPARAM)-1, (LPARAM)L"Shutdown");
    g_tickDontShow = 1;
    Press(IDC_MAIN_APPLY);

    MyOpts& s = Stored();
    EXPECT_EQ(std::vector<int>({s.bEnable, s.nTimeout, s.nMsgTimeout, s.bLogoffStale, s.nLogoffStaleCount, s.bShutdown,
                                s.nShutdownAction}),
              std::vector<int>({1, 42, 3, 1, 2, 1, 3}));
    EXPECT_EQ(g_calls, (std::vector<std::wstring>{L"install1", L"sleep", L"control128"}));
    Pump();
    EXPECT_EQ(monitorCodes, std::vector<WPARAM>{kMonitorReloadCode});
    // The monitor's activity notice reaches the panel through the window it looks for.
    PostMessageW(FindWindowW(L"VANTREL_UTILITY_NOTIFY", nullptr), RegisterWindowMessageW(L"KorvaneMessage"),
                 kActivityNoticeCode, 2);
    Pump();
    EXPECT_EQ(dlg->GetStatusPanel().GetState().nPendingActivity, 2);
    ASSERT_EQ(g_boxes.size(), 2u) << Texts();
    EXPECT_EQ(g_boxes[0].text.substr(0, 29), L"The settings have been saved.");
    EXPECT_EQ(g_boxes[1].text.substr(0, 31), L"The changes have been applied.\n");
    EXPECT_EQ(config.GetAll() & (kCfgHideSavedMsg | kCfgHideApplyHint), kCfgHideSavedMsg | kCfgHideApplyHint);

    // Answered once: no more boxes; a running service is not started again.
    g_boxes.clear(), g_calls.clear();
    Press(IDC_MAIN_APPLY);
    EXPECT_EQ(Texts(), L"");
    EXPECT_EQ(g_calls, std::vector<std::wstring>{L"control128"});
    DestroyWindow(monitor);
}

// Policy-managed: only reading, exporting and closing stay possible, and Apply says why it
// refuses. Normal mode: the number boxes follow their check boxes.
TEST_F(MainDialog, EnableRulesInNormalAndPolicyManagedMode)
{
    RawSetDword(key.sub(L"machinepol"), L"Enable", 1);
    {
        auto dlg = Open();
        ASSERT_TRUE(dlg->IsPolicyManaged());
        for (int id : {IDC_MAIN_MANAGE, IDC_MAIN_APPLY, IDOK, IDC_MAIN_HELP, IDC_MAIN_ABOUT, IDC_MAIN_EXPORT,
                       IDC_MAIN_MSG_LINK, IDC_MAIN_MSG_LOCKED_LINK})
            EXPECT_TRUE(Enabled(id)) << id;
        for (int id : {IDC_MAIN_ENABLE, IDC_MAIN_TIMEOUT, IDC_MAIN_IMPORT, IDC_MAIN_RESTORE_DEFAULTS, IDC_MAIN_APPLY_TO_ADD})
            EXPECT_FALSE(Enabled(id)) << id;
        Press(IDC_MAIN_APPLY);
        EXPECT_EQ(Texts(), L"Use Group Policy on the server to manage the Vantrel settings on this computer.|");
    }
    RawDeleteTree(key.sub(L"machinepol"));
    RawSetDword(key.sub(), L"Enable", 0), RawSetDword(key.sub(), L"Timeout", 55); // written by a script
    auto dlg = Open();
    ASSERT_FALSE(dlg->IsPolicyManaged());
    EXPECT_EQ(dlg->GetWorking().nTimeout, 55) << "settings written without the utility are settings too";
    struct { int box; std::vector<int> followers; } rules[] = {
        {IDC_MAIN_SHUTDOWN, {IDC_MAIN_SHUTDOWN_TIMEOUT, IDC_MAIN_SHUTDOWN_ACTION, IDC_MAIN_SHUTDOWN_LABEL}},
        {IDC_MAIN_MONITOR_CPU, {IDC_MAIN_PERCENT_CPU, IDC_MAIN_PERCENT_UNITS}},
        {IDC_MAIN_LOGOFF_STALE, {IDC_MAIN_STALE_COUNT, IDC_MAIN_STALE_UNITS}},
    };
    for (const auto& r : rules) {
        const bool before = IsDlgButtonChecked(hwnd, r.box) == BST_CHECKED;
        for (bool checked : {!before, before}) {
            Click(r.box);
            for (int id : r.followers)
                EXPECT_EQ(Enabled(id), checked) << r.box << " -> " << id;
        }
    }
}

// Esc does nothing; the close box asks about unsaved changes: Cancel stays, No leaves
// without storing, Yes stores and leaves. Ctrl+Alt at close removes the service.
TEST_F(MainDialog, EscapeIsIgnoredAndTheCloseBoxOffersToStore)
{
    struct { int answer; bool closes, stored; } cases[] = {{IDCANCEL, false, false}, {IDNO, true, false}, {IDYES, true, true}};
    for (const auto& c : cases) {
        auto dlg = Open();
        SendMessageW(hwnd, WM_COMMAND, IDCANCEL, 0); // Esc
        ASSERT_TRUE(IsWindow(hwnd));
        SetNumber(IDC_MAIN_TIMEOUT, L"77");
        g_boxes.clear(), g_answers = {c.answer}, g_ctrl = g_alt = (SHORT)0x8000;
        g_calls.clear();
        SendMessageW(hwnd, WM_SYSCOMMAND, SC_CLOSE, 0);
        Pump(); // the dialog manager posts the close as Cancel
        EXPECT_EQ(g_boxes.at(0).text, L"Do you want to apply the changes?");
        EXPECT_EQ(!IsWindow(hwnd), c.closes) << c.answer;
        EXPECT_EQ(Stored().nTimeout == 77, c.stored) << c.answer;
        EXPECT_EQ(g_calls.size() && g_calls.back() == L"remove0", c.closes) << "Ctrl+Alt: hidden removal";
        RawDeleteTree(key.sub());
    }
    // OK without Ctrl+Alt: applies, closes, leaves the service alone.
    auto dlg = Open();
    g_calls.clear(), g_ctrl = (SHORT)0x8000, g_alt = 0;
    Press(IDOK);
    EXPECT_FALSE(IsWindow(hwnd));
    EXPECT_EQ(g_calls, std::vector<std::wstring>{L"control128"});
}

// The messages, the lists, the data-loss warning and Restore defaults, each through its
// control: a default text stored empty, no duplicate names, the next entry selected, the warning
// asked only until accepted, defaults clearing the answers.
TEST_F(MainDialog, EditorsListsWarningAndDefaults)
{
    RawSetDword(key.sub(), L"SessionsMonitoring", 1); // a key the running service made: no settings yet
    auto dlg = Open();
    EXPECT_EQ(SendDlgItemMessageW(hwnd, IDC_MAIN_APPLY_TO, LB_GETCOUNT, 0, 0),
              (LRESULT)dlg->GetWorking().listInclude.GetCount()) << "the default groups, not empty lists";
    EXPECT_NE(dlg->GetWorking().listInclude.GetCount() + dlg->GetWorking().listExclude.GetCount(), 0u);
    static std::wstring shown, typed;
    g_dialog = [](DMDlg& d) -> INT_PTR {
        auto* msg = dynamic_cast<DlgCustomMsg*>(&d);
        if (!msg)
            return IDCANCEL;
        EXPECT_TRUE(msg->Create(nullptr));
        wchar_t buf[600];
        GetDlgItemTextW(msg->GetHwnd(), IDC_CUSTOM_MSG_TEXT, buf, 600);
        shown = buf;
        SetDlgItemTextW(msg->GetHwnd(), IDC_CUSTOM_MSG_TEXT, typed.c_str());
        SendMessageW(msg->GetHwnd(), WM_COMMAND, IDOK, 0);
        return msg->GetResult();
    };
    typed = L"  Bye in %d minutes ";
    Press(IDC_MAIN_MSG_LINK, STN_CLICKED);
    EXPECT_EQ(shown.substr(0, 36), L"Press OK to keep your session active") << "the built-in text when none is stored";
    EXPECT_STREQ(dlg->GetWorking().szMsgText, L"Bye in %d minutes");
    typed = shown; // the administrator puts the built-in text back
    Press(IDC_MAIN_MSG_LINK, STN_CLICKED);
    EXPECT_STREQ(dlg->GetWorking().szMsgText, L"") << "stored empty: the product's own text keeps applying";
    typed = L"Locked %d";
    Press(IDC_MAIN_MSG_LOCKED_LINK, STN_CLICKED);
    EXPECT_EQ(shown.substr(0, 27), L"Unlock the screen to keep y");
    EXPECT_STREQ(dlg->GetWorking().szMsgTextLocked, L"Locked %d");

    HWND list = GetDlgItem(hwnd, IDC_MAIN_EXCLUDE);
    SendMessageW(list, LB_RESETCONTENT, 0, 0);
    g_picked = {L"CORP\\alice", L"Guests", L"corp\\ALICE", L"CORP\\bob"};
    Press(IDC_MAIN_EXCLUDE_ADD);
    EXPECT_EQ(SendMessageW(list, LB_GETCOUNT, 0, 0), 3) << "a name already there is not added twice";
    for (LRESULT sel : {1, 1, 0}) { // delete the middle one twice, then the only one left
        SendMessageW(list, LB_SETCURSEL, sel, 0);
        Press(IDC_MAIN_EXCLUDE_DEL);
        const LRESULT count = SendMessageW(list, LB_GETCOUNT, 0, 0);
        EXPECT_EQ(SendMessageW(list, LB_GETCURSEL, 0, 0), count ? (sel < count ? sel : count - 1) : LB_ERR);
    }

    // The data-loss warning: declined unchecks Enable; accepted once, never asked again.
    g_dialog = [](DMDlg& d) { return (INT_PTR)(dynamic_cast<DlgWarningDataLoss*>(&d) ? g_answers.front() : 0); };
    g_answers = {IDCANCEL};
    Click(IDC_MAIN_ENABLE);
    EXPECT_EQ(IsDlgButtonChecked(hwnd, IDC_MAIN_ENABLE), (UINT)BST_UNCHECKED);
    g_answers = {IDOK};
    Click(IDC_MAIN_ENABLE);
    EXPECT_EQ(IsDlgButtonChecked(hwnd, IDC_MAIN_ENABLE), (UINT)BST_CHECKED);
    g_dialog = [](DMDlg&) -> INT_PTR { ADD_FAILURE() << "asked again"; return IDCANCEL; };
    Click(IDC_MAIN_ENABLE), Click(IDC_MAIN_ENABLE);

    config.SetAll(kCfgDataLossAccepted | kCfgHideSavedMsg | kCfgHideApplyHint);
    g_answers = {IDNO};
    Press(IDC_MAIN_RESTORE_DEFAULTS);
    EXPECT_STREQ(dlg->GetWorking().szMsgTextLocked, L"Locked %d") << "No keeps everything";
    g_answers = {IDYES};
    Press(IDC_MAIN_RESTORE_DEFAULTS);
    EXPECT_STREQ(dlg->GetWorking().szMsgTextLocked, L"");
    EXPECT_EQ(GetDlgItemInt(hwnd, IDC_MAIN_TIMEOUT, nullptr, FALSE), (UINT)dlg->GetWorking().nTimeout);
    EXPECT_EQ(config.GetAll(), kCfgHideApplyHint) << "the warning and the saved message are asked again";
}

// Export writes the controls as they are, Import brings them back, both remember the file;
// a file that cannot be written is reported with the system's reason.
TEST_F(MainDialog, ExportAndImportThroughTheFileDialogs)
{
    ScopedTempDir dir;
    auto dlg = Open();
    SetNumber(IDC_MAIN_TIMEOUT, L"123");
    g_file = dir.file(L"site.cfg");
    Press(IDC_MAIN_EXPORT);
    ASSERT_EQ(g_calls.size(), 1u);
    EXPECT_EQ(g_calls[0].substr(0, 21), L"save:Export settings:");
    EXPECT_EQ(g_calls[0].substr(g_calls[0].size() - 12), L"\\Vantrel.cfg") << "the Documents folder at first";
    SetNumber(IDC_MAIN_TIMEOUT, L"5");
    Press(IDC_MAIN_IMPORT);
    EXPECT_EQ(GetDlgItemInt(hwnd, IDC_MAIN_TIMEOUT, nullptr, FALSE), 123u);
    EXPECT_EQ(g_calls.at(1), L"open:Import settings:" + g_file) << "the last file remembered";
    EXPECT_EQ(Texts(), L"");

    g_file = dir.file(L"missing\\site.cfg");
    Press(IDC_MAIN_EXPORT);
    ASSERT_EQ(g_boxes.size(), 1u);
    EXPECT_EQ(g_boxes[0].text, L"The settings could not be exported to " + g_file + L".");
    EXPECT_TRUE(g_boxes[0].flags & MsgBoxModel::kAppendLastError);
    EXPECT_EQ(std::wstring(config.szImpExpPath), dir.file(L"site.cfg")) << "a failure does not replace the path";
    g_file = dir.file(L"other.xml"), g_boxes.clear();
    ASSERT_TRUE(WriteFileBytes(g_file, "<KEY><X/></KEY>", 15));
    Press(IDC_MAIN_IMPORT);
    EXPECT_EQ(Texts(), g_file + L"\n\nThis file is not a Vantrel settings file. Nothing was imported.|");
    EXPECT_EQ(GetDlgItemInt(hwnd, IDC_MAIN_TIMEOUT, nullptr, FALSE), 123u) << "nothing changed";
}

// The source menu: a Group Policy object is edited in its own mode (the policy-state list in
// place of Enable, Apply stores into the object); one that cannot be opened is reported and
// the local settings come back; "This computer" returns after the offer to store.
TEST_F(MainDialog, SourceMenuSwitchesBetweenThisComputerAndAGroupPolicyObject)
{
    ScopedTestKey section{L"gpo"};
    ScopedTempDir temp;
    g_state = FakeState(), g_state.section = section.sub();
    static std::wstring folder;
    folder = temp.path();
    ScopedValue<GPObj::CreateFn> create{GPObj::pfnCreate, CreateFake};
    ScopedValue<MyOpts::DataFolderFn> data{MyOpts::pfnGetDataFolder,
                                           [](wchar_t* buf) { return (int)StrCopy(buf, MAX_PATH, folder.c_str()), 1; }};
    auto dlg = Open();
    g_gpoPath = L"LDAP://cn={6AC1786C},cn=policies,DC=corp";
    g_menuChoice = IDM_GPO;
    Press(IDC_MAIN_MANAGE);
    ASSERT_TRUE(dlg->IsGPOMode()) << Texts();
    EXPECT_FALSE(IsWindowVisible(GetDlgItem(hwnd, IDC_MAIN_ENABLE)));
    EXPECT_TRUE(IsWindowVisible(GetDlgItem(hwnd, IDC_MAIN_POLICY_STATE)));
    wchar_t label[128];
    GetDlgItemTextW(hwnd, IDC_MAIN_SOURCE, label, 128);
    EXPECT_STREQ(label, L"<B>Branch offices</b> (GPO)");
    SendDlgItemMessageW(hwnd, IDC_MAIN_POLICY_STATE, CB_SETCURSEL, 1, 0);
    SetNumber(IDC_MAIN_TIMEOUT, L"31");
    ASSERT_EQ(dlg->Apply(false), 1) << Texts();
    const std::wstring pol = section.sub(L"SOFTWARE\\Policies\\Korvane\\Vantrel");
    EXPECT_EQ(RawGetDword(pol, L"Enable"), 1u);
    EXPECT_EQ(RawGetDword(pol, L"Timeout"), 31u);
    SendDlgItemMessageW(hwnd, IDC_MAIN_POLICY_STATE, CB_SETCURSEL, 2, 0); // Disabled takes, after Enabled
    ASSERT_EQ(dlg->Apply(false), 1) << Texts();
    EXPECT_EQ(RawGetDword(pol, L"Enable"), 0u);
    EXPECT_EQ(g_calls, std::vector<std::wstring>{}) << "the local service is not touched in GPO mode";

    g_menuChoice = IDM_THIS_COMPUTER;
    Press(IDC_MAIN_MANAGE);
    EXPECT_FALSE(dlg->IsGPOMode());
    EXPECT_TRUE(IsWindowVisible(GetDlgItem(hwnd, IDC_MAIN_ENABLE)));
    EXPECT_NE(Stored().nTimeout, 31) << "the local settings were not written";

    g_state.hrOpen = E_ACCESSDENIED, g_boxes.clear();
    g_menuChoice = IDM_GPO;
    Press(IDC_MAIN_MANAGE);
    EXPECT_FALSE(dlg->IsGPOMode());
    ASSERT_EQ(g_boxes.size(), 1u);
    EXPECT_EQ(g_boxes[0].text.substr(0, 26), L"Could not load this GPO.\n\n") << "with the reason";
}

// Against Wine's real service manager: Apply with logging off switched on registers and starts
// the service from the utility's folder and waits until it runs; OK with Ctrl+Alt takes it away.
TEST_F(MainDialog, ApplyStartsTheRealServiceAndCtrlAltOkRemovesIt)
{
    ScopedTempDir dir;
    wchar_t bin[MAX_PATH];
    ASSERT_TRUE(GetServiceHostFolder(bin, MAX_PATH));
    for (const wchar_t* file : {L"VXA64.EXE", L"VXDA64.DLL"})
        ASSERT_TRUE(CopyFileW((bin + std::wstring(file)).c_str(), dir.file(file).c_str(), FALSE));
    const std::wstring name = L"VantrelCfg" + std::to_wstring(GetCurrentProcessId());
    ASSERT_EQ(SetServiceHostName(name.c_str()) + SetServiceHostFolder(dir.path().c_str()), 2);
    static std::vector<std::wstring> hostBoxes;
    hostBoxes.clear();
    ScopedValue<int (*)(HWND, UINT, const wchar_t*)> boxes{ServiceSeams::pfnMsgEx, [](HWND, UINT, const wchar_t* t) {
        hostBoxes.push_back(MsgBoxModel::IsResourceId(t) ? std::to_wstring(-MsgBoxModel::ResourceIdOf(t)) : t);
        return IDCANCEL;
    }};
    ConfigSeams::Reset(); // the real service calls from here on
    ConfigSeams::pfnMessage = FakeMessage;
    ConfigSeams::pfnGetKeyState = [](int) -> SHORT { return g_ctrl; };
    StatusSeams::pfnQueryServiceState = QueryServiceState;

    config.SetAll(kCfgDataLossAccepted | kCfgHideSavedMsg | kCfgHideApplyHint);
    auto dlg = Open();
    Click(IDC_MAIN_ENABLE);
    // Wine's service manager refuses starts while it is still starting its own services.
    for (int i = 0; i < 60 && !(dlg->Apply(true) && QueryServiceState() == SERVICE_RUNNING); ++i)
        Sleep(500);
    EXPECT_EQ(QueryServiceState(), (DWORD)SERVICE_RUNNING) << Texts();
    EXPECT_EQ(Texts(), L"") << "a silent start";
    g_ctrl = (SHORT)0x8000;
    Press(IDOK);
    EXPECT_FALSE(IsWindow(hwnd));
    EXPECT_EQ(QueryServiceState(), 0u) << "removed";
    EXPECT_EQ(hostBoxes, std::vector<std::wstring>{std::to_wstring(IDS_SERVICE_STOPPED)});
    RemoveService(1);
    SetServiceHostName(nullptr), SetServiceHostFolder(nullptr);
    for (int i = 0; i < 50 && !DeleteFileW(dir.file(L"VXA64.EXE").c_str()); ++i)
        Sleep(100); // the service's process may still be leaving
}

// Without full access to the machine's settings the utility restarts itself as administrator:
// asking first only when the user cannot consent to elevation, with "runas" unless already
// elevated, exit 2 when declined or when the start fails. With access, a running utility on the
// desktop is brought forward instead of a second one opening.
TEST_F(MainDialog, StartRestartsAsAdministratorOrHandsOverToTheRunningOne)
{
    struct Case {
        int type;
        BOOL admin, started;
        int answer;
        int code;
        const wchar_t* verb; // null: not started
        bool asked;
    } cases[] = {
        {TokenElevationTypeDefault, FALSE, TRUE, IDNO, 2, nullptr, true},
        {TokenElevationTypeDefault, FALSE, TRUE, IDYES, 0, L"runas", true},
        {TokenElevationTypeDefault, FALSE, FALSE, IDYES, 2, L"runas", true},
        {TokenElevationTypeDefault, TRUE, TRUE, IDNO, 0, L"runas", false},
        {TokenElevationTypeLimited, FALSE, TRUE, IDNO, 0, L"runas", false},
        {TokenElevationTypeFull, FALSE, TRUE, IDNO, 0, L"", false},
    };
    static const Case* now;
    static std::wstring started;
    for (const Case& c : cases) {
        now = &c, started = L"-", g_boxes.clear(), g_answers = {c.answer};
        ScopedValue<BOOL (*)()> rights{StartupSeams::pfnHasAdminRights, [] { return FALSE; }};
        ScopedValue<int (*)()> type{StartupSeams::pfnGetElevationType, [] { return now->type; }};
        ScopedValue<BOOL (*)()> admin{StartupSeams::pfnIsUserAdmin, [] { return now->admin; }};
        ScopedValue<BOOL (*)(HWND, const wchar_t*, const wchar_t*, const wchar_t*, int)> shell{
            StartupSeams::pfnShellExecute, [](HWND, const wchar_t* verb, const wchar_t* file, const wchar_t* params, int) {
                const std::wstring f = file;
                started = (verb ? verb : L"") + std::wstring(L"|") + f.substr(f.size() - 15) + L"|" + params;
                return now->started;
            }};
        EXPECT_EQ(RunConfigUtility(nullptr, L"/x", SW_SHOW), c.code) << c.type << c.admin << c.answer;
        EXPECT_EQ(started, c.verb ? std::wstring(c.verb) + L"|\\VantrelA64.EXE|/x" : L"-");
        EXPECT_EQ(!g_boxes.empty(), c.asked);
    }
    auto dlg = Open();
    EXPECT_EQ(FindRunningConfigUtility(), hwnd);
    ScopedValue<INT_PTR (*)(DlgMain&)> run{StartupSeams::pfnRunMainDialog, [](DlgMain&) -> INT_PTR {
        ADD_FAILURE() << "a second dialog";
        return 0;
    }};
    EXPECT_EQ(RunConfigUtility(nullptr, L"", SW_SHOW), 0);
}

TEST(MainDialogLayout, ControlsFollowTheEdgesAndTheListsShareTheWidth)
{
    const RECT rc = {10, 20, 110, 60};
    struct { int id; RECT expected; } cases[] = {
        {IDC_MAIN_SOURCE, {10, 20, 117, 60}},      {IDOK, {17, 20, 117, 60}},
        {IDC_MAIN_APPLY_TO, {10, 20, 113, 65}},    {IDC_MAIN_EXCLUDE, {13, 20, 117, 65}},
        {IDC_MAIN_EXCLUDE_ADD, {13, 20, 113, 60}}, {IDC_MAIN_SHUTDOWN_ACTION, {10, 25, 110, 65}},
        {IDC_MAIN_STATUS2, {10, 25, 117, 65}},     {IDC_MAIN_TIMEOUT, rc},
    };
    for (const auto& c : cases) {
        const RECT r = LayoutControl(c.id, rc, 7, 5); // an odd width: the left list gets the smaller half
        EXPECT_EQ(std::vector<LONG>({r.left, r.top, r.right, r.bottom}),
                  std::vector<LONG>({c.expected.left, c.expected.top, c.expected.right, c.expected.bottom})) << c.id;
    }
}

} // namespace
