// The settings inside a domain Group Policy object, for the configuration utility. The object
// carries only what the clients need; the complete settings, including those of a Disabled or
// Not Configured policy, are kept in a file of the local "GPOcache" folder named after the
// object, so that the administrator finds them again next time.
#include <shlobj.h>

#include <vector>

#include "base/StrUtil.h"
#include "settings/DataFolder.h"
#include "settings/GPObj.h"
#include "settings/MyOpts.h"

MyOpts::DataFolderFn MyOpts::pfnGetDataFolder = GetDataFolder;

const wchar_t* MyOpts::GetGPOStoragePath(GPObj* gpo, int bCreate)
{
    szGPOStoragePath[0] = 0;
    wchar_t folder[MAX_PATH], name[MAX_PATH];
    if (!gpo || !gpo->GetName(name, ARRAYSIZE(name)) || !pfnGetDataFolder || !pfnGetDataFolder(folder))
        return szGPOStoragePath;
    if (StrLen(folder) + StrLen(L"\\GPOcache\\") + StrLen(name) >= ARRAYSIZE(szGPOStoragePath))
        return szGPOStoragePath; // no path rather than a cut one that names another file
    if (bCreate) {
        // An element that exists but is not a folder stays as it is: the export then fails.
        SHCreateDirectoryExW(nullptr, folder, nullptr);
        wchar_t cache[MAX_PATH];
        StrFormat(cache, L"%s\\GPOcache", folder);
        SHCreateDirectoryExW(nullptr, cache, nullptr);
    }
    StrFormat(szGPOStoragePath, L"%s\\GPOcache\\%s", folder, name);
    return szGPOStoragePath;
}


int MyOpts::LoadFromGPO()
{
    GPObj gpo;
    if (!gpo.Open(szGPOPath, GPObj::ScopeMachine, 1)) {
        hrGPO = gpo.GetResult();
        szGPODisplayName[0] = 0;
        return 0;
    }
    hrGPO = S_OK;

    auto readInt = [&](const wchar_t* name, int& field) {
        int v = gpo.GetInt(name);
        if (v != -1)
            field = v;
        return v != -1;
    };
    // Not Configured: no policy key, or one without "Enable" (what a Not Configured store leaves:
    // removal markers only; the clients ignore such a key too).
    int state = 0;
    if (readInt(pszEnable, bEnable))
        state = bEnable ? 1 : 2;
    if (state != 1) {
        // Not Configured or Disabled: the object says nothing more; the cache file has the rest.
        // The state is the object's, whatever the file remembers.
        Import(nullptr, GetGPOStoragePath(&gpo, 0));
    } else {
        for (const LoadedInt& entry : aLoadedInts) {
            int& field = this->*entry.field;
            if (readInt(*entry.name, field) && (field < entry.lo || field > entry.hi))
                field = entry.replacement;
        }
        int cch = gpo.GetStrSizeChars(pszSchedule);
        if (cch > 0) {
            std::vector<wchar_t> text((size_t)cch + 1, 0);
            gpo.GetStr(text.data(), (unsigned)text.size(), pszSchedule);
            schedule.Set(text.data());
        }
        if (gpo.Find(pszMsgText))
            gpo.GetStr(szMsgText, ARRAYSIZE(szMsgText), pszMsgText);
        if (gpo.Find(pszMsgTextLocked))
            gpo.GetStr(szMsgTextLocked, ARRAYSIZE(szMsgTextLocked), pszMsgTextLocked);
        if (!bKeepLists) {
            gpo.GetStrList(listInclude, pszInclude);
            gpo.GetStrList(listExclude, pszExclude);
        }
    }
    nPolicyState = state;
    gpo.GetDisplayName(szGPODisplayName, ARRAYSIZE(szGPODisplayName));
    bPolicyInEffect = 0;
    return 1;
}

void MyOpts::StoreToGPO()
{
    GPObj gpo;
    if (!gpo.Open(szGPOPath, GPObj::ScopeMachine, 1)) {
        hrGPO = gpo.GetResult();
        szGPODisplayName[0] = 0;
        return;
    }
    gpo.GetDisplayName(szGPODisplayName, ARRAYSIZE(szGPODisplayName));
    // Every state refreshes the file: a Disabled or Not Configured policy keeps the settings.
    Export(nullptr, GetGPOStoragePath(&gpo, 1));

    const int bSet = nPolicyState != 0;
    int ok = 1;
    for (const StoredInt& v : aStoredInts)
        ok &= gpo.SetInt(this->*v.field, *v.name, bSet);
    const wchar_t* text = GetSchedule();
    ok &= gpo.SetStr(pszSchedule, text && *text ? text : L"*", bSet);
    ok &= gpo.SetStr(pszMsgText, szMsgText, bSet);
    ok &= gpo.SetStr(pszMsgTextLocked, szMsgTextLocked, bSet);
    ok &= gpo.SetStrList(listInclude, pszInclude, bSet);
    ok &= gpo.SetStrList(listExclude, pszExclude, bSet);
    // What could not be written is not saved half-way: the object keeps its previous contents.
    if (!ok) {
        hrGPO = E_FAIL;
        return;
    }
    gpo.Save(GPObj::ScopeMachine);
    hrGPO = gpo.GetResult();
}
