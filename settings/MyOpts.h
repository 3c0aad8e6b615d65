// MyOpts: the one record that holds everything the service needs to watch sessions and log idle
// users off, and MyConfig: the configuration utility's own remembered state. Both are records of
// the options framework: a flag set in one registry value plus their own fields.
//
// Copies: a MyOpts owns its schedule text and the strings of both lists, and cannot be copied by
// value (the lists refuse it); every copy of settings goes through CopyFrom, which duplicates them.
#pragma once
#include <windows.h>

#include "settings/DMOpts.h"
#include "settings/Schedule.h"
#include "storage/StrList.h"

class GPObj;

class MyOpts : public BoolOpts {
public:
    MyOpts();
    ~MyOpts() override;
    MyOpts(const MyOpts&) = delete;
    MyOpts& operator=(const MyOpts&) = delete;

    void Reset() override;
    // Also reads the policy, or a Group Policy object, on a computer without a local settings key.
    int Load() override;
    void OnLoad(RegKey& key) override;
    void OnStore(RegKey& key) override;

    // Copies every setting (not the caller flags, Group Policy fields or bPolicyInEffect).
    void CopyFrom(BoolOpts* other);
    void CopyFrom(DMOptsLoader* other) override { CopyFrom(dynamic_cast<BoolOpts*>(other)); }
    void CopyGPOFrom(MyOpts* other);
    // 1 as soon as one setting differs; the Group Policy fields and caller flags never count.
    int IsDifferent(BoolOpts* other);
    int IsDifferent(DMOptsLoader* other) override { return IsDifferent(dynamic_cast<BoolOpts*>(other)); }

    const wchar_t* GetSchedule() const { return schedule.Get(); }
    void SetSchedule(const wchar_t* text) { schedule.Set(text); }

    // Whether this computer's settings have ever been stored (the record's flag value, "Enable"
    // or a user list is in the settings key). The key alone says nothing: the service's status values and the utility's
    // own state live there too, and a key without the user lists reads as empty lists.
    static int HasStoredSettings();
    // Reads the settings from the policy, local or staging key; 1 when a key was read.
    int ReadPolicy();
    // Writes the settings to the local or staging key (never the policy keys); 1 on success.
    int WritePolicy();

    // The settings file: the record goes through the "Temp" staging subkey of its own key, which
    // is written to (or read from) the file. owner is the window of any message (null: none).
    // Import leaves the record as it was when the file cannot be read; neither leaves "Temp".
    // Import refuses a file that is not a settings file (its root is not the one "KEY" element
    // an export writes, or it holds none of the settings values): 0 with ERROR_INVALID_DATA,
    // nothing changed, and the message below shown to owner when there is one.
    int Export(HWND owner, const wchar_t* path);
    int Import(HWND owner, const wchar_t* path);
    // "<path>", a blank line and the reason the file was refused.
    static unsigned FormatNotSettingsFile(const wchar_t* path, wchar_t* buf, unsigned cch);

    // The warning text for the user: the custom text (or the built-in one) with every "%d"
    // replaced by the time left, "a:bb", and each "%%" by "%".
    void FormatUserMsg(wchar_t* out, unsigned cchOut, int bLocked, unsigned a, unsigned b);

    static int CanDoShutdownAction(int action);
    static const wchar_t* GetShutdownActionText(int action);

    // Replaceable look-ups (tests make them fail or answer as another computer would).
    // The bare account name of a well-known group on this computer; 0 when it cannot be had.
    typedef int (*LookupWellKnownNameFn)(WELL_KNOWN_SID_TYPE type, wchar_t* name, unsigned cch);
    static LookupWellKnownNameFn pfnLookupWellKnownName;
    static int LookupWellKnownName(WELL_KNOWN_SID_TYPE type, wchar_t* name, unsigned cch);
    typedef BOOLEAN (*GetPwrCapabilitiesFn)(SYSTEM_POWER_CAPABILITIES* caps);
    static GetPwrCapabilitiesFn pfnGetPwrCapabilities;
    // Loading and storing inside the domain Group Policy object at szGPOPath (the configuration
    // utility's; COM initialised on the thread). A failure to open it leaves its HRESULT in hrGPO
    // and an empty szGPODisplayName; a store that cannot write or save leaves its HRESULT too.
    int LoadFromGPO(); // 1 when the object was opened
    void StoreToGPO();
    // The file that keeps the complete settings of a Group Policy object: the data folder's
    // "GPOcache" subfolder, file named with the object's unique name; in szGPOStoragePath; empty
    // when it cannot be made. With bCreate the data folder and "GPOcache" are created when missing
    // (never over a file).
    static const wchar_t* GetGPOStoragePath(GPObj* gpo, int bCreate);
    static wchar_t szGPOStoragePath[260];
    // Where the data folder is (tests point the cache elsewhere).
    typedef int(WINAPI* DataFolderFn)(wchar_t* buf);
    static DataFolderFn pfnGetDataFolder;

    // The integer settings in the order they are stored (the local key and a Group Policy object).
    struct StoredInt {
        const wchar_t* const* name;
        int MyOpts::*field;
    };
    static const StoredInt aStoredInts[15];
    // The integer settings after "Enable" in the order they are read, with the range a policy
    // inside a Group Policy object must respect (outside it: the replacement).
    struct LoadedInt {
        const wchar_t* const* name;
        int MyOpts::*field;
        int lo, hi, replacement;
    };
    static const LoadedInt aLoadedInts[14];

    // Caller flags and Group Policy state (never stored, never reset).
    int bReadTemp;
    int bKeepLists;
    wchar_t szGPOPath[260];
    wchar_t szGPODisplayName[260];
    HRESULT hrGPO;
    int bPolicyInEffect;

    // The settings.
    int nPolicyState; // 0 Not Configured, 1 Enabled, 2 Disabled
    int bEnable;
    int nTimeout;
    int nMsgTimeout;
    int bLogoffStale;
    int nLogoffStaleCount;
    int bKeepLastActiveUser;
    int bFullScreen;
    int bMonitorKB;
    int bMonitorMouse;
    int bMonitorCPU;
    int nPercentCPU;
    wchar_t szMsgText[512];
    wchar_t szMsgTextLocked[512];
    int bUseSchedule;
    Schedule schedule;
    StrList listInclude;
    StrList listExclude;
    int bShutdown;
    int nShutdownTimeout;
    int nShutdownAction; // 1 sleep, 2 hibernate, 3 shut down

    // The largest number of minutes the configuration utility accepts for "Timeout",
    // "MessageTimeout", "LogoffStaleCount" and "ShutdownTimeout". The local key may hold more:
    // the engine decides what such a time means.
    static const int nMaxMinutes = 9999;

    static const wchar_t* pszNotConfigured;
    static const wchar_t* pszEnable;
    static const wchar_t* pszIdleTimeout;
    static const wchar_t* pszMsgTimeout;
    static const wchar_t* pszLogoffStale;
    static const wchar_t* pszLogoffStaleCount;
    static const wchar_t* pszKeepLastActiveUser;
    static const wchar_t* pszFullScreen;
    static const wchar_t* pszMonitorKB;
    static const wchar_t* pszMonitorMouse;
    static const wchar_t* pszMonitorCPU;
    static const wchar_t* pszPercentCPU;
    static const wchar_t* pszMsgText;
    static const wchar_t* pszMsgTextLocked;
    static const wchar_t* pszUseSchedule;
    static const wchar_t* pszSchedule;
    static const wchar_t* pszInclude;
    static const wchar_t* pszExclude;
    static const wchar_t* pszShutdown;
    static const wchar_t* pszShutdownTimeout;
    static const wchar_t* pszShutdownAction;
    static const wchar_t* pszLicName;
    static const wchar_t* pszLicLimit;
    static const wchar_t* pszLicKey;
    static const wchar_t* pszLicHideKey;

private:
    void AddDefaultGroups();
};

class MyConfig : public BoolOpts {
public:
    // Flag bits: answers to the configuration utility's do-not-show-again questions.
    enum OPTF { OPTF_HIDE_MSG_1 = 0x1, OPTF_HIDE_MSG_2 = 0x4 };

    MyConfig();
    MyConfig(const MyConfig& other);
    MyConfig& operator=(const MyConfig& other);

    void Reset() override;
    void OnLoad(RegKey& key) override;
    void OnStore(RegKey& key) override;

    int IsGPO() const { return szGPOPath[0] != 0; }
    void RestoreHiddenMsg() { opts.SetBits(OPTF_HIDE_MSG_1 | OPTF_HIDE_MSG_2, 0); }
    int IsOn(OPTF f) const { return opts.IsOn(f); }
    void Set(OPTF f, int on) { opts.Set(f, on); }

    wchar_t szImpExpPath[260];
    wchar_t szGPOPath[260];
    WINDOWPLACEMENT wpDlgMain;

    static const wchar_t* pszImpExpPath;
    static const wchar_t* pszGPOPath;
    static const wchar_t* pszDlgMain;
};
