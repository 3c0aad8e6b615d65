// Where the settings live and how they are read and written: the machine policy key wins as a
// whole once it holds "Enable"; otherwise the local settings key; the "Temp" subkey when a
// staged copy is asked for. Writing never touches the policy keys.
#include <climits>
#include <vector>

#include "base/ProductInfo.h"
#include "base/StrUtil.h"
#include "settings/MyOpts.h"
#include "settings/Policy.h"
#include "storage/RegKey.h"

void MyOpts::OnLoad(RegKey&)
{
    if (!szGPOPath[0] || bReadTemp) {
        ReadPolicy();
        return;
    }
    LoadFromGPO();
}

void MyOpts::OnStore(RegKey&)
{
    if (!szGPOPath[0] || bReadTemp) {
        WritePolicy();
        return;
    }
    StoreToGPO();
}

int MyOpts::Load()
{
    if (BoolOpts::Load())
        return 1;
    // The framework reads nothing without the local settings key (Reset has run). A computer that
    // has never stored settings of its own may still be managed by a policy, and the utility may
    // still edit a Group Policy object there.
    if (bReadTemp)
        return 0;
    return szGPOPath[0] ? LoadFromGPO() : ReadPolicy();
}

int MyOpts::HasStoredSettings()
{
    // Every store writes the flag set; settings written by other means (a script, a deployment
    // tool) hold at least "Enable" or one of the lists.
    const wchar_t* keyName = ProductInfo::GetAppRegKeyName();
    RegKey key;
    if (!keyName || !key.Open(keyName, 0))
        return 0;
    if (key.FindValue(L"Options") || key.FindValue(pszEnable))
        return 1;
    for (const wchar_t* list : {pszInclude, pszExclude}) {
        RegKey sub;
        if (sub.Open(key, list, 0))
            return 1;
    }
    return 0;
}

int MyOpts::ReadPolicy()
{
    const int scope = Policy::ScopeMachine;
    Policy pol;
    wchar_t path[256];
    if (bReadTemp) {
        StrFormat(path, L"%s\\%s", GetRegKeyName(), pszRegTempKeyName);
        pol.OpenAltRegKey(path, 0);
    } else {
        bPolicyInEffect = 0;
        if (pol.OpenAltRegKey(ProductInfo::GetLicPolHKLM(), 0) && pol.GetInt(pszEnable, scope) != -1) {
            bPolicyInEffect = 1;
        } else {
            pol.OpenAltRegKey(GetRegKeyName(), 0);
        }
    }
    if (!pol.IsRegKeyReady())
        return 0;

    auto readInt = [&](const wchar_t* name, int& field) {
        int v = pol.GetInt(name, scope);
        if (v != -1)
            field = v;
    };
    readInt(pszEnable, bEnable);
    if (bReadTemp) {
        int notConfigured = pol.GetInt(pszNotConfigured, scope);
        nPolicyState = notConfigured == 1 ? 0 : (bEnable ? 1 : 2);
    }
    for (const LoadedInt& entry : aLoadedInts)
        readInt(*entry.name, this->*entry.field);
    // Only the power action is checked here: an unknown action must never reach the computer.
    // Other numbers are kept as the administrator stored them.
    if (nShutdownAction < 1 || nShutdownAction > 3)
        nShutdownAction = 1;

    int cch = pol.GetStrSizeChars(pszSchedule, scope);
    if (cch > 0) {
        // Sized from the stored value; GetStr terminates within it even when the stored text
        // has no terminator of its own.
        std::vector<wchar_t> text((size_t)cch + 1, 0);
        pol.GetStr(text.data(), (unsigned)text.size(), pszSchedule, scope);
        schedule.Set(text.data());
    }

    szMsgText[0] = 0;
    pol.GetStr(szMsgText, 512, pszMsgText, scope);
    szMsgTextLocked[0] = 0;
    pol.GetStr(szMsgTextLocked, 512, pszMsgTextLocked, scope);

    // A settings key without a list subkey means an empty list, not the default groups.
    if (!bKeepLists) {
        pol.GetStrList(listInclude, pszInclude, scope);
        pol.GetStrList(listExclude, pszExclude, scope);
    }
    pol.CloseRegKey();
    return 1;
}

const MyOpts::LoadedInt MyOpts::aLoadedInts[14] = {
    {&pszLogoffStale, &MyOpts::bLogoffStale, INT_MIN, INT_MAX, 0},
    {&pszLogoffStaleCount, &MyOpts::nLogoffStaleCount, 1, nMaxMinutes, 5},
    {&pszKeepLastActiveUser, &MyOpts::bKeepLastActiveUser, INT_MIN, INT_MAX, 0},
    {&pszFullScreen, &MyOpts::bFullScreen, INT_MIN, INT_MAX, 0},
    {&pszMonitorKB, &MyOpts::bMonitorKB, INT_MIN, INT_MAX, 0},
    {&pszMonitorMouse, &MyOpts::bMonitorMouse, INT_MIN, INT_MAX, 0},
    {&pszMonitorCPU, &MyOpts::bMonitorCPU, INT_MIN, INT_MAX, 0},
    {&pszPercentCPU, &MyOpts::nPercentCPU, INT_MIN, INT_MAX, 0}, // never checked
    {&pszIdleTimeout, &MyOpts::nTimeout, 1, nMaxMinutes, 10},
    {&pszMsgTimeout, &MyOpts::nMsgTimeout, INT_MIN, nMaxMinutes, 5},
    {&pszShutdown, &MyOpts::bShutdown, INT_MIN, INT_MAX, 0},
    {&pszShutdownTimeout, &MyOpts::nShutdownTimeout, 1, nMaxMinutes, 10},
    {&pszShutdownAction, &MyOpts::nShutdownAction, 1, 3, 1},
    {&pszUseSchedule, &MyOpts::bUseSchedule, INT_MIN, INT_MAX, 0},
};

const MyOpts::StoredInt MyOpts::aStoredInts[15] = {
    {&pszEnable, &MyOpts::bEnable},
    {&pszIdleTimeout, &MyOpts::nTimeout},
    {&pszMsgTimeout, &MyOpts::nMsgTimeout},
    {&pszLogoffStale, &MyOpts::bLogoffStale},
    {&pszLogoffStaleCount, &MyOpts::nLogoffStaleCount},
    {&pszKeepLastActiveUser, &MyOpts::bKeepLastActiveUser},
    {&pszFullScreen, &MyOpts::bFullScreen},
    {&pszMonitorKB, &MyOpts::bMonitorKB},
    {&pszMonitorMouse, &MyOpts::bMonitorMouse},
    {&pszMonitorCPU, &MyOpts::bMonitorCPU},
    {&pszPercentCPU, &MyOpts::nPercentCPU},
    {&pszShutdown, &MyOpts::bShutdown},
    {&pszShutdownTimeout, &MyOpts::nShutdownTimeout},
    {&pszShutdownAction, &MyOpts::nShutdownAction},
    {&pszUseSchedule, &MyOpts::bUseSchedule},
};

int MyOpts::WritePolicy()
{
    const int scope = Policy::ScopeMachine;
    Policy pol;
    wchar_t path[256];
    if (bReadTemp)
        StrFormat(path, L"%s\\%s", GetRegKeyName(), pszRegTempKeyName);
    else
        StrCopy(path, GetRegKeyName());
    if (!pol.OpenAltRegKey(path, 1))
        return 0;

    if (bReadTemp)
        pol.SetInt(nPolicyState == 0 ? 1 : 0, pszNotConfigured, scope);

    for (const StoredInt& entry : aStoredInts)
        pol.SetInt(this->*entry.field, *entry.name, scope);

    pol.SetStr(pszSchedule, schedule.Get(), scope);
    pol.SetStr(pszMsgText, szMsgText, scope);
    pol.SetStr(pszMsgTextLocked, szMsgTextLocked, scope);
    pol.SetStrList(listInclude, pszInclude, scope);
    pol.SetStrList(listExclude, pszExclude, scope);
    pol.CloseRegKey();
    return 1;
}
