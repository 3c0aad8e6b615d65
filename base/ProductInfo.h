// The product's identity and the registry roots every settings record is found under.
// Tests and staged operations point the whole product at another key with
// PushAppRootKey/PopAppRootKey, so nothing else needs to know where the settings live.
#pragma once

class ProductInfo {
public:
    static const wchar_t* GetCompanyName();   // "Korvane"
    static const wchar_t* GetProductName();   // "Vantrel" (also the service and event source name)
    static const wchar_t* GetShortName();     // product name used in per-user default keys
    static const wchar_t* GetFullName();      // subkey name below the short name in per-user default keys

    // The application root key: the full path of the key that holds the product's settings,
    // with its root written "HKLM\..." or "HKCU\...". Null when none is set.
    static const wchar_t* GetAppRootKey();
    static void SetAppRootKey(const wchar_t* path);
    // Replaces the root key for a while; PopAppRootKey restores the one before. Pushes nest up
    // to 16 levels; a push beyond that, or a pop without push, returns 0 and changes nothing.
    static int PushAppRootKey(const wchar_t* path);
    static int PopAppRootKey();

    // The key of the product's records, first match wins: the application root key; the key of
    // the current application instance; "HKCU\Software\Korvane\<short name>\<full name>".
    static const wchar_t* GetAppRegKeyName();

    // Machine and user policy keys, and the policy path inside a policy hive.
    static const wchar_t* GetLicPolHKLM();    // "HKLM\SOFTWARE\Policies\Korvane\Vantrel"
    static const wchar_t* GetLicPolHKCU();    // "HKCU\SOFTWARE\Policies\Korvane\Vantrel"
    static const wchar_t* GetLicPolKey();     // "SOFTWARE\Policies\Korvane\Vantrel"
    // Tests redirect the machine and user policy keys; null restores the real ones.
    static void SetLicPolOverride(const wchar_t* hklmPath, const wchar_t* hkcuPath);
};

// The application instance of a running Vantrel program: which registry key it belongs to.
// One exists for the duration of DoWinMain and DoWinMainCFG; the settings framework asks it for
// its key when no application root key is set.
class DMApp {
public:
    explicit DMApp(const wchar_t* regKeyPath);
    ~DMApp();
    DMApp(const DMApp&) = delete;
    DMApp& operator=(const DMApp&) = delete;

    static DMApp* GetCurrent();
    const wchar_t* GetRegistryKey() const; // null when the instance has no key

private:
    wchar_t szRegKey[256];
    DMApp* pPrevious;
};
