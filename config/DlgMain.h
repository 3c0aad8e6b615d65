// DlgMain: the configuration utility's one main dialog (102). It edits the settings of this
// computer or of a domain Group Policy object, checks them, stores them, starts the service when
// logging off is switched on, tells the service and the in-session monitor to reload, exports
// and imports settings files, and shows the service's live status once a second.
//
// Two copies of the settings: `working` is what the controls edit, `stored` what was last loaded
// or stored; they differ exactly when there are unsaved changes. "Policy-managed" means a policy
// on this computer imposes the settings (and no Group Policy object is being edited): then
// everything can be read and nothing changed.
//
// Every connection to the world that a test must not make for real (message boxes, modal
// dialogs, file and GPO choosers, the service manager, the keyboard state) goes through the
// pointers of ConfigSeams, so the dialog that ships is the dialog that is tested.
#pragma once
#include <windows.h>

#include "config/StatusPanel.h"
#include "settings/MyOpts.h"
#include "ui/DMDlg.h"
#include "ui/DMStaticHTML.h"

class StrList;

namespace ConfigSeams {
// Every message box of the utility: text is final (formatted); flags as for MsgEx (the
// kAppendLastError flag appends the last error's text); pDontShow (may be null) offers "Don't show
// this message again" and holds its state. The pressed button's answer.
extern int (*pfnMessage)(HWND owner, UINT flags, int* pDontShow, const wchar_t* text);
// Runs a secondary dialog modally (the schedule, message, data-loss and other editors).
extern INT_PTR (*pfnRunDialog)(DMDlg& dlg, HWND owner);
// The open (bSave 0) or save file dialog, starting from and returning path (cch characters).
extern BOOL (*pfnBrowseForFile)(HWND owner, BOOL bSave, const wchar_t* title, wchar_t* path, unsigned cch);
// The Group Policy object browser and the user and group picker (config/Pickers.h).
extern int (*pfnBrowseForGPO)(HWND owner, wchar_t* path, unsigned cchPath, wchar_t* name, unsigned cchName);
extern int (*pfnPickUsersGroups)(HWND owner, StrList& names);
// The service: install and start (bSilent: no message box), stop and remove, user-defined control.
extern int (*pfnInstallService)(int bSilent);
extern int (*pfnRemoveService)(int bSilent);
extern BOOL (*pfnSendServiceControl)(DWORD dwControl);
// The pause between two looks at a starting service.
extern void (*pfnSleep)(DWORD ms);
// The state of a key (GetKeyState): Ctrl and Alt held at OK or close remove the service.
extern SHORT(WINAPI* pfnGetKeyState)(int vk);
// About and Help (config/About.h, config/Help.h).
extern void (*pfnDoAbout)(HWND owner, BOOL bLicencePage);
extern int (*pfnOpenHelp)(HWND owner);
// Restores every pointer to the shipped function.
void Reset();
} // namespace ConfigSeams

// The control-code the service reloads its settings on, and the code of "KorvaneMessage" that
// tells the in-session monitor to do the same.
const DWORD kServiceReloadControl = 128;
const WPARAM kMonitorReloadCode = 302;
// "KorvaneMessage" codes of the single-instance handshake: "are you the utility?" (lParam: the
// instance id) and "come to the front".
const WPARAM kAskInstanceCode = 121;
const WPARAM kActivateCode = 4;
const LPARAM kConfigInstanceId = 309;
// The in-session monitor's activity notice.
const WPARAM kActivityNoticeCode = 303;

// MyConfig flag bits the dialog uses.
const DWORD kCfgDataLossAccepted = 0x1;
const DWORD kCfgHideSavedMsg = 0x4;
const DWORD kCfgHideApplyHint = 0x8;

// One range check of Apply: the field, its setting and its bounds.
struct RangeRule {
    int idField;
    int MyOpts::*field;
    int lo, hi;
};
extern const RangeRule kRangeRules[4];
// The first rule the settings break, or null.
const RangeRule* FindRangeViolation(const MyOpts& opts);

// Reads a number field's text: optional blanks, an optional minus sign, decimal digits, optional
// blanks. 0 for anything else (value unchanged); values beyond the int range saturate.
int ParseFieldNumber(const wchar_t* text, int& value);

// Where a control goes when the dialog grows by dx, dy beyond its template size: rc is its place
// in the template, the result its place now. Controls the table does not name stay put.
RECT LayoutControl(int id, RECT rc, int dx, int dy);

// The name a picked object is added to a list under is already there (ignoring case).
bool ListHasName(HWND list, const wchar_t* name);

// The hidden window the in-session monitor reports activity to ("KorvaneMessage" 303, found by
// its class name); it hands the notices on to the main dialog's status panel.
class UtilityNotifyWnd : public DMWnd {
public:
    void SetTarget(HWND hwnd, UINT message) { hwndTarget = hwnd, uMessage = message; }

protected:
    const wchar_t* GetWndClassName() const override { return L"VANTREL_UTILITY_NOTIFY"; }
    LRESULT OnMessage(UINT msg, WPARAM wp, LPARAM lp) override;

private:
    HWND hwndTarget = nullptr;
    UINT uMessage = 0;
};

class DlgMain : public DMDlg {
public:
    // settings: the loaded settings of this computer (copied); config: the utility's remembered
    // state (read and written; stored at close).
    DlgMain(MyOpts& settings, MyConfig& config);
    ~DlgMain() override;

    // For tests and the screenshots.
    MyOpts& GetWorking() { return working; }
    MyOpts& GetStored() { return stored; }
    StatusPanel& GetStatusPanel() { return status; }
    bool IsPolicyManaged() const { return bPolicyManaged; }
    bool IsGPOMode() const { return szGPOPath[0] != 0; }

    // Apply as the Apply button does (bFromButton) or as OK does. Nonzero on success.
    int Apply(bool bFromButton);
    // Stores the working copy (registry or Group Policy object), checks it by reading it back.
    int StoreSettings();
    // Asks whether to store unsaved changes: nonzero to go on (stored or declined), 0 to stop.
    int OfferToStore();
    // Switches to this computer (IDM_THIS_COMPUTER) or to a Group Policy object (IDM_GPO).
    void SwitchToThisComputer();
    void SwitchToGPO();

protected:
    BOOL OnInit() override;
    int OptsToDlg() override;
    int DlgToOpts() override;
    void OnOK() override;
    void OnCancel() override;
    int OnCommand(WORD id, WORD code, HWND hwndCtl) override;
    int OnHelp(HELPINFO* phi) override;
    INT_PTR OnWndMsg(UINT msg, WPARAM wp, LPARAM lp) override;
    int OnTimer(UINT_PTR id) override;
    int OnSize(UINT type, int cx, int cy) override;
    void OnDestroy() override;

private:
    void UpdateEnabled();
    void ShowSource();
    void UpdateStatusSettings();
    int Message(UINT flags, const wchar_t* text, int* pDontShow = nullptr);
    int MessageId(UINT flags, int idText, ...);
    // Reads a number field into field; a text that is no number is reported (and focused).
    int ReadNumber(int idField, int& field, int lo, int hi);
    // Focuses a refused field with its text selected, opening it when its feature is off.
    void FocusForCorrection(int idField);
    void FillList(int idList, const StrList& list);
    void ReadList(int idList, StrList& list);
    void AddToList(int idList);
    void DeleteFromList(int idList);
    void EditMessage(bool bLocked);
    void ImportExport(bool bExport);
    void RestoreDefaults();
    void OnEnableClicked();
    void StartServiceFromLink();
    void HiddenServiceRemoval();
    void Close();
    void LoadLocal();
    void SetConfigBit(DWORD bit, bool on);
    bool IsConfigBit(DWORD bit) const;
    // An information message with "Don't show this message again", unless hideBit says so.
    void InformUnlessHidden(int idText, DWORD hideBit);

    MyOpts working;
    MyOpts stored;
    MyConfig& config;
    bool bPolicyManaged = false;
    bool bCloseFromSystemMenu = false;
    wchar_t szGPOPath[260];
    wchar_t szGPODisplayName[260];
    wchar_t szStoredGPOPath[260];
    wchar_t szDefaultMsg[512];
    wchar_t szDefaultMsgLocked[512];
    wchar_t szComputerName[MAX_COMPUTERNAME_LENGTH + 1];
    UINT uProductMessage = 0;
    DMStaticHTML source, msgLink, msgLockedLink, scheduleLink;
    StatusPanel status;
    UtilityNotifyWnd notify;
    // The template's client size and every control's place in it, for the layout table.
    SIZE templateSize = {0, 0};
    struct Placed {
        int id;
        RECT rc;
    };
    Placed placed[32];
    int nPlaced = 0;
    MINMAXINFO minTrack = {};
};

// Loads the settings of this computer (gpoPath empty: the defaults when none were ever stored) or
// of a Group Policy object into opts. Nonzero when the object could be opened (always for this
// computer).
int LoadSettings(MyOpts& opts, const wchar_t* gpoPath);

// The utility's entry: administrator check (restart through "runas"), single instance, COM and
// common controls, the application id, then the main dialog. The process's exit code.
int RunConfigUtility(HINSTANCE hInstance, const wchar_t* cmdLine, int show);

// The running utility's main dialog on this desktop (it answers code 121 with the instance id),
// or null.
HWND FindRunningConfigUtility();

namespace StartupSeams {
// Full access to HKLM\SOFTWARE: the administrator check.
extern BOOL (*pfnHasAdminRights)();
// The token's elevation type (TokenElevationTypeDefault, ...); 0 when it cannot be read.
extern int (*pfnGetElevationType)();
// The user belongs to the Administrators group.
extern BOOL (*pfnIsUserAdmin)();
// Starts file with parameters through the shell with verb (null: the default); nonzero on success.
extern BOOL (*pfnShellExecute)(HWND parent, const wchar_t* verb, const wchar_t* file, const wchar_t* params, int show);
// Runs the main dialog; its result.
extern INT_PTR (*pfnRunMainDialog)(DlgMain& dlg);
void Reset();
} // namespace StartupSeams
