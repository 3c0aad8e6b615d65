// Export and import of the settings file. No second serializer: the record is written into the
// "Temp" staging subkey of its own settings key by the ordinary store code, and that subkey is
// written to the file; importing runs the same road backwards. The file therefore holds exactly
// the staging layout, "NotConfigured" and the "ApplyTo" and "Exclude" subkeys included.
#include "base/ProductInfo.h"
#include "base/Resources.h"
#include "base/StrUtil.h"
#include "resources/resource.h"
#include "settings/MyOpts.h"
#include "storage/RegKey.h"
#include "storage/RegXmlTree.h"

namespace {

const unsigned kMaxPath = 512;

// Opens path for writing only when it exists already: never creates it.
bool OpenExisting(RegKey& key, const wchar_t* path)
{
    return RegKey(path, RegKey::OpRead).IsReady() && key.Open(path, 1);
}

// Removes the staging subkey. The settings key is never created here: a computer without
// settings must not get an empty key from an export, since loading would then find a key and read
// empty user lists instead of the default groups.
void DeleteTemp(MyOpts& opts)
{
    RegKey key;
    if (OpenExisting(key, opts.GetRegKeyName()))
        key.DelSubKey(BoolOpts::GetTempSubKey());
}

// The levels of a key path below its root: "HKLM\\SOFTWARE\\Korvane" has two.
unsigned CountLevels(const wchar_t* path)
{
    unsigned levels = 0;
    for (const wchar_t* p = path; *p; ++p)
        levels += *p == L'\\';
    return levels;
}

// The number of levels of path (after its root) that exist now: 0 when only the root does.
unsigned ExistingLevels(const wchar_t* path)
{
    wchar_t part[kMaxPath];
    StrCopy(part, kMaxPath, path);
    for (unsigned levels = CountLevels(part); levels > 0; --levels) {
        if (RegKey(part, RegKey::OpRead).IsReady())
            return levels;
        wchar_t* cut = wcsrchr(part, L'\\');
        if (!cut)
            break;
        *cut = 0;
    }
    return 0;
}

// Removes the levels of path below the first nKeep that an export or import created, deepest
// first, each only while it is empty: whatever someone else wrote there meanwhile stays.
void RemoveCreatedLevels(const wchar_t* path, unsigned nKeep)
{
    wchar_t part[kMaxPath];
    StrCopy(part, kMaxPath, path);
    for (unsigned levels = CountLevels(part); levels > nKeep; --levels) {
        wchar_t* cut = wcsrchr(part, L'\\');
        if (!cut)
            return;
        *cut = 0;
        RegKey parent;
        if (!OpenExisting(parent, part) || !parent.DelSubKeyIfEmpty(cut + 1))
            return;
    }
}

// Raises bReadTemp for the duration of one export or import, and always lowers it again. The
// settings key is left as it was found: absent stays absent.
struct TempRoad {
    MyOpts& opts;
    wchar_t szKey[kMaxPath];
    unsigned nExisting;
    unsigned nLevels;
    explicit TempRoad(MyOpts& o) : opts(o)
    {
        StrCopy(szKey, kMaxPath, opts.GetRegKeyName());
        nLevels = CountLevels(szKey);
        nExisting = ExistingLevels(szKey);
        opts.bReadTemp = 1;
        DeleteTemp(opts); // nothing stale goes into the file or comes back from it
    }
    ~TempRoad()
    {
        DeleteTemp(opts);
        if (nExisting < nLevels)
            RemoveCreatedLevels(szKey, nExisting);
        opts.bReadTemp = 0;
    }
};

// Whether a parsed document is a settings file: one root "KEY" element, as every export of the
// settings writes it, holding at least one of the settings values. Anything else (a web page, a
// list of values without their key) would otherwise import as a record of defaults with empty
// user lists, and no longer exclude the administrators once applied.
int IsSettingsDocument(const RegXmlTree& tree)
{
    static const wchar_t* const* const names[] = {
        &MyOpts::pszEnable, &MyOpts::pszIdleTimeout, &MyOpts::pszMsgTimeout, &MyOpts::pszLogoffStale,
        &MyOpts::pszLogoffStaleCount, &MyOpts::pszKeepLastActiveUser, &MyOpts::pszFullScreen, &MyOpts::pszMonitorKB,
        &MyOpts::pszMonitorMouse, &MyOpts::pszMonitorCPU, &MyOpts::pszPercentCPU, &MyOpts::pszShutdown,
        &MyOpts::pszShutdownTimeout, &MyOpts::pszShutdownAction, &MyOpts::pszUseSchedule, &MyOpts::pszSchedule,
        &MyOpts::pszMsgText, &MyOpts::pszMsgTextLocked,
    };
    XmlPos root = tree.GetHeadPosition();
    if (tree.GetCount() != 1 || !static_cast<RegXmlTreeItem*>(tree.GetAt(root))->IsSubKey())
        return 0;
    const XmlTree* child = tree.GetChildAt(root);
    if (!child)
        return 0;
    for (XmlPos pos = child->GetHeadPosition(); pos;) {
        const RegXmlTreeItem* item = static_cast<RegXmlTreeItem*>(child->GetNext(pos));
        wchar_t name[256];
        if (item->IsSubKey() || !item->GetItemName(name, 256))
            continue;
        for (const wchar_t* const* n : names)
            if (StrEqualNoCase(name, *n))
                return 1;
    }
    return 0;
}

int CheckSettingsDocument(const RegXmlTree& tree, HWND owner, const wchar_t* file)
{
    if (IsSettingsDocument(tree))
        return 1;
    if (owner) {
        wchar_t text[kMaxPath + 256];
        MyOpts::FormatNotSettingsFile(file, text, kMaxPath + 256);
        MessageBoxW(owner, text, ProductInfo::GetProductName(), MB_OK | MB_ICONERROR);
    }
    SetLastError(ERROR_INVALID_DATA);
    return 0;
}

} // namespace

unsigned MyOpts::FormatNotSettingsFile(const wchar_t* path, wchar_t* buf, unsigned cch)
{
    wchar_t format[256];
    if (LoadResString(IDS_NOT_SETTINGS_FILE, format, 256) <= 0)
        StrCopy(format, L"%s\n\nThis file is not a Vantrel settings file. Nothing was imported.");
    return StrFormat(buf, cch, format, path ? path : L"");
}

int MyOpts::Export(HWND owner, const wchar_t* path)
{
    TempRoad road(*this);
    StoreTemp();
    RegKey temp(GetRegKeyName(), GetTempSubKey(), 0);
    if (!temp.IsReady())
        return 0;
    return ExportRegKey(owner, temp.GetKey(), path, 1);
}

int MyOpts::Import(HWND owner, const wchar_t* path)
{
    TempRoad road(*this);
    int result;
    {
        RegKey temp(GetRegKeyName(), GetTempSubKey(), 1);
        if (!temp.IsReady())
            return 0;
        result = ImportRegKey(owner, temp.GetKey(), path, 1, CheckSettingsDocument);
    }
    // Only a settings file that was read replaces the record: a failed or refused import leaves
    // it as it was.
    if (result)
        LoadTemp();
    return result;
}
