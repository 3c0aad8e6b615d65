#include "base/ProductInfo.h"

#include "base/StrUtil.h"

namespace {
const int kMaxPushed = 16;
wchar_t g_szAppRootKey[256];
bool g_bAppRootKeySet = false;
struct Saved {
    wchar_t szKey[256];
    bool bSet;
};
Saved g_stack[kMaxPushed];
int g_nPushed = 0;
wchar_t g_szDefaultKey[256];
wchar_t g_szPolHKLM[256];
wchar_t g_szPolHKCU[256];
DMApp* g_pCurrentApp = nullptr;
}

const wchar_t* ProductInfo::GetCompanyName() { return L"Korvane"; }
const wchar_t* ProductInfo::GetProductName() { return L"Vantrel"; }
const wchar_t* ProductInfo::GetShortName() { return L"Vantrel"; }
const wchar_t* ProductInfo::GetFullName() { return L"Vantrel"; }

const wchar_t* ProductInfo::GetAppRootKey() { return g_bAppRootKeySet ? g_szAppRootKey : nullptr; }

void ProductInfo::SetAppRootKey(const wchar_t* path)
{
    g_bAppRootKeySet = !StrIsEmpty(path);
    StrCopy(g_szAppRootKey, path);
}

int ProductInfo::PushAppRootKey(const wchar_t* path)
{
    if (g_nPushed >= kMaxPushed)
        return 0;
    StrCopy(g_stack[g_nPushed].szKey, g_szAppRootKey);
    g_stack[g_nPushed].bSet = g_bAppRootKeySet;
    ++g_nPushed;
    SetAppRootKey(path);
    return 1;
}

int ProductInfo::PopAppRootKey()
{
    if (g_nPushed == 0)
        return 0;
    --g_nPushed;
    StrCopy(g_szAppRootKey, g_stack[g_nPushed].szKey);
    g_bAppRootKeySet = g_stack[g_nPushed].bSet;
    return 1;
}

const wchar_t* ProductInfo::GetAppRegKeyName()
{
    if (const wchar_t* root = GetAppRootKey())
        return root;
    if (DMApp* app = DMApp::GetCurrent())
        if (const wchar_t* key = app->GetRegistryKey())
            return key;
    if (!g_szDefaultKey[0])
        StrFormat(g_szDefaultKey, L"%s\\%s\\%s", L"HKCU\\Software\\Korvane", GetShortName(), GetFullName());
    return g_szDefaultKey;
}

const wchar_t* ProductInfo::GetLicPolHKLM()
{
    return g_szPolHKLM[0] ? g_szPolHKLM : L"HKLM\\SOFTWARE\\Policies\\Korvane\\Vantrel";
}

const wchar_t* ProductInfo::GetLicPolHKCU()
{
    return g_szPolHKCU[0] ? g_szPolHKCU : L"HKCU\\SOFTWARE\\Policies\\Korvane\\Vantrel";
}

const wchar_t* ProductInfo::GetLicPolKey() { return L"SOFTWARE\\Policies\\Korvane\\Vantrel"; }

void ProductInfo::SetLicPolOverride(const wchar_t* hklmPath, const wchar_t* hkcuPath)
{
    StrCopy(g_szPolHKLM, hklmPath);
    StrCopy(g_szPolHKCU, hkcuPath);
}

DMApp::DMApp(const wchar_t* regKeyPath) : pPrevious(g_pCurrentApp)
{
    StrCopy(szRegKey, regKeyPath);
    g_pCurrentApp = this;
}

DMApp::~DMApp()
{
    if (g_pCurrentApp == this)
        g_pCurrentApp = pPrevious;
}

DMApp* DMApp::GetCurrent() { return g_pCurrentApp; }

const wchar_t* DMApp::GetRegistryKey() const { return szRegKey[0] ? szRegKey : nullptr; }
