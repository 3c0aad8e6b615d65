#include "settings/DataFolder.h"

#include <shlobj.h>

#include "base/Handle.h"
#include "base/StrUtil.h"

extern "C" int WINAPI GetDataFolder(wchar_t* buf)
{
    if (!buf)
        return 0;
    buf[0] = 0;
    CoTaskPtr<ITEMIDLIST> pidl;
    if (FAILED(SHGetSpecialFolderLocation(nullptr, CSIDL_COMMON_APPDATA, pidl.Receive())) || !pidl)
        return 0;
    wchar_t path[MAX_PATH] = L"";
    BOOL ok = SHGetPathFromIDListW(pidl.Get(), path);
    pidl.Close();
    if (!ok || !path[0])
        return 0;
    unsigned len = StrLen(path);
    if (path[len - 1] != L'\\' && path[len - 1] != L'/')
        StrAppend(path, L"\\");
    StrAppend(path, L"Vantrel");
    StrCopy(buf, MAX_PATH, path);
    return 1;
}
