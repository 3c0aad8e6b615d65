// Where the settings live and how they are read and written: the machine policy key wins as a
// whole once it holds "Enable"; otherwise the local settings key; the "Temp" subkey when a
// staged copy is asked for. Writing never touches the policy keys.
#include <vector>

#include "base/ProductInfo.h"
#include "base/StrUtil.h"
#include "settings/MyOpts.h"
#include "settings/Policy.h"

void MyOpts::OnLoad(RegKey&)
{
    if (!szGPOPath[0] || bReadTemp) {
        ReadPolicy();
        return;
    }
    if (pfnLoadFromGPO) {
        pfnLoadFromGPO(this);
        return;
    }
    hrGPO = REGDB_E_CLASSNOTREG;
    szGPODisplayName[0] = 0;
}

void MyOpts::OnStore(RegKey&)
{
    if (!szGPOPath[0] || bReadTemp) {
        WritePolicy();
        return;
    }
    if (pfnStoreToGPO) {
        pfnStoreToGPO(this);
        return;
    }
    hrGPO = REGDB_E_CLASSNOTREG;
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
    readInt(pszLogoffStale, bLogoffStale);
    readInt(pszLogoffStaleCount, nLogoffStaleCount);
    readInt(pszKeepLastActiveUser, bKeepLastActiveUser);
    readInt(pszFullScreen, bFullScreen);
    readInt(pszMonitorKB, bMonitorKB);
    readInt(pszMonitorMouse, bMonitorMouse);
    readInt(pszMonitorCPU, bMonitorCPU);
    readInt(pszPercentCPU, nPercentCPU);
    readInt(pszIdleTimeout, nTimeout);
    readInt(pszMsgTimeout, nMsgTimeout);
    readInt(pszShutdown, bShutdown);
    readInt(pszShutdownTimeout, nShutdownTimeout);
    readInt(pszShutdownAction, nShutdownAction);
    // Only the power action is checked here: an unknown action must never reach the computer.
    // Other numbers are kept as the administrator stored them.
    if (nShutdownAction < 1 || nShutdownAction > 3)
        nShutdownAction = 1;
    readInt(pszUseSchedule, bUseSchedule);

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

    const struct {
        const wchar_t* name;
        int value;
    } ints[] = {
        {pszEnable, bEnable},
        {pszIdleTimeout, nTimeout},
        {pszMsgTimeout, nMsgTimeout},
        {pszLogoffStale, bLogoffStale},
        {pszLogoffStaleCount, nLogoffStaleCount},
        {pszKeepLastActiveUser, bKeepLastActiveUser},
        {pszFullScreen, bFullScreen},
        {pszMonitorKB, bMonitorKB},
        {pszMonitorMouse, bMonitorMouse},
        {pszMonitorCPU, bMonitorCPU},
        {pszPercentCPU, nPercentCPU},
        {pszShutdown, bShutdown},
        {pszShutdownTimeout, nShutdownTimeout},
        {pszShutdownAction, nShutdownAction},
        {pszUseSchedule, bUseSchedule},
    };
    for (const auto& entry : ints)
        pol.SetInt(entry.value, entry.name, scope);

    pol.SetStr(pszSchedule, schedule.Get(), scope);
    pol.SetStr(pszMsgText, szMsgText, scope);
    pol.SetStr(pszMsgTextLocked, szMsgTextLocked, scope);
    pol.SetStrList(listInclude, pszInclude, scope);
    pol.SetStrList(listExclude, pszExclude, scope);
    pol.CloseRegKey();
    return 1;
}
