// Small helpers that store common things through RegKey: window rectangles, fonts, the
// product's "Home" folder, per-user restrictions, the move of settings left under the maker's
// former company key, and the event-log source registration.
#include "storage/RegKey.h"

#include <new>

#include "base/StrUtil.h"

namespace {

const wchar_t kMachineRoot[] = L"HKLM\\Software\\Korvane";
const wchar_t kUserRoot[] = L"HKCU\\Software\\Korvane";
const wchar_t kLegacyMachineRoot[] = L"HKLM\\Software\\Drelmark";
const wchar_t kLegacyCompany[] = L"Drelmark";
const wchar_t kEventLogApplication[] = L"HKLM\\SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application";

// Four DWORD value names per rectangle: prefix + L, T, R, B.
const wchar_t* const kRectFormats[4] = {L"%sL", L"%sT", L"%sR", L"%sB"};

LONG* RectField(RECT* rc, int i)
{
    switch (i) {
    case 0: return &rc->left;
    case 1: return &rc->top;
    case 2: return &rc->right;
    default: return &rc->bottom;
    }
}

} // namespace

// True when all four values were stored; a field whose value is absent keeps what it held, so a
// caller can pre-fill the rectangle with its defaults.
int RegGetRect(RegKey& key, RECT* rc, const wchar_t* prefix)
{
    if (!rc)
        return 0;
    int nFound = 0;
    for (int i = 0; i < 4; ++i) {
        wchar_t szName[255];
        StrFormat(szName, kRectFormats[i], prefix ? prefix : L"");
        if (key.FindValue(szName)) {
            *RectField(rc, i) = key.GetInt(szName, *RectField(rc, i));
            ++nFound;
        }
    }
    return nFound == 4;
}

int RegPutRect(RegKey& key, RECT* rc, const wchar_t* prefix)
{
    if (!rc)
        return 0;
    int bOk = 1;
    for (int i = 0; i < 4; ++i) {
        wchar_t szName[255];
        StrFormat(szName, kRectFormats[i], prefix ? prefix : L"");
        if (!key.PutDword(szName, (DWORD)*RectField(rc, i), 1))
            bOk = 0;
    }
    return bOk;
}

// A stored font is only trusted when it has exactly the size of a LOGFONTW; anything else
// (older layouts, damaged values) reads as "no font", so the caller falls back to its default.
int RegGetLogFont(RegKey& key, const wchar_t* name, LOGFONTW*& p)
{
    if (key.GetBinSize(name) == sizeof(LOGFONTW)) {
        if (RegNewLogFont(p) && key.GetBin(name, (BYTE*)p, sizeof(LOGFONTW)))
            return 1;
    }
    RegDelLogFont(p);
    return 0;
}

int RegPutLogFont(RegKey& key, const wchar_t* name, LOGFONTW* p)
{
    if (!p)
        return key.DelValue(name);
    return key.PutBin(name, (const BYTE*)p, sizeof(LOGFONTW), REG_BINARY);
}

// Allocates a zeroed font when p is null; a font already held is kept.
LOGFONTW* RegNewLogFont(LOGFONTW*& p)
{
    if (!p)
        p = new (std::nothrow) LOGFONTW();
    return p;
}

void RegDelLogFont(LOGFONTW*& p)
{
    delete p;
    p = nullptr;
}

int ProcessHomeFolder(RegKey::Op op, const wchar_t* product, wchar_t* buf, unsigned cch)
{
    // An empty product name would address the company key itself.
    if (StrIsEmpty(product))
        return 0;
    int bWritable = RegKey::IsWritable(op);
    if (bWritable)
        MoveLegacyKey(0, product);

    wchar_t szPath[256];
    StrFormat(szPath, L"%s\\%s\\Setup", kMachineRoot, product);
    RegKey key(szPath, bWritable);
    if (!key.IsReady() && !bWritable) {
        // Installations made before the company rename still keep the folder under the old name.
        StrFormat(szPath, L"%s\\%s\\Setup", kLegacyMachineRoot, product);
        key.Open(szPath, 0);
    }
    if (!key.IsReady())
        return 0;
    return key.ProcessEntry(op, L"Home", buf, cch);
}

int GetHomeFolder(const wchar_t* product, wchar_t* buf)
{
    if (!buf)
        return 0;
    buf[0] = 0;
    return ProcessHomeFolder(RegKey::OpRead, product, buf, MAX_PATH);
}

int Restricted(const wchar_t* product, const wchar_t* name)
{
    if (!name || StrIsEmpty(product))
        return 0;
    wchar_t szPath[256];
    StrFormat(szPath, L"%s\\%s\\%s", kUserRoot, product, L"Setup\\Restrictions");
    RegKey key(szPath, 0);
    if (!key.IsReady())
        return 0;
    return (int)key.GetDword(name, 0);
}

// Settings written before the company was renamed live under Software\Drelmark; the first
// write through the new name moves them, and removes the old company key once nothing of
// another product is left in it.
int MoveLegacyKey(int bUser, const wchar_t* product)
{
    // An empty product name would move the whole company key. A run in log mode describes
    // settings; the move is no setting, and its path probes would only add stray key lines.
    if (StrIsEmpty(product) || RegKey::bLogMode)
        return 1;
    const wchar_t* root = bUser ? L"HKCU" : L"HKLM";
    wchar_t szNew[256];
    StrFormat(szNew, L"%s\\Software\\Korvane\\%s", root, product);
    {
        RegKey current(szNew, 0);
        if (current.IsReady())
            return 1;
    }

    wchar_t szLegacyParent[256];
    StrFormat(szLegacyParent, L"%s\\Software\\%s", root, kLegacyCompany);
    {
        RegKey legacyParent(szLegacyParent, 0);
        if (!legacyParent.IsReady())
            return 1;
        RegKey legacy(legacyParent, product, 0);
        if (!legacy.IsReady())
            return 1;
        RegKey moved(szNew, 1);
        if (!moved.IsReady())
            return 0;
        legacy.CopyTo(moved);
    }
    {
        // Both parents exist at this point, so opening them writable creates nothing; the tree
        // deletion opens the old key's subkeys for writing through its parent.
        RegKey legacyParent(szLegacyParent, 1);
        if (legacyParent.IsReady())
            legacyParent.DelSubKey(product);
    }
    wchar_t szSoftware[256];
    StrFormat(szSoftware, L"%s\\Software", root);
    RegKey software(szSoftware, 1);
    if (software.IsReady())
        software.DelSubKeyIfEmpty(kLegacyCompany);
    return 1;
}

int RegisterEventSourceFile(const wchar_t* source, const wchar_t* messageFile)
{
    if (StrIsEmpty(source))
        return 0;
    wchar_t szPath[256];
    StrFormat(szPath, L"%s\\%s", kEventLogApplication, source);
    if (messageFile) {
        // Created directly in the machine hive: the event log only reads sources from there.
        RegKey key(szPath, 1);
        if (!key.IsReady())
            return 0;
        key.PutDword(L"TypesSupported", 7, 1);
        key.PutStr(L"EventMessageFile", messageFile, 1);
        return 1;
    }

    {
        // Opened for writing only when the source is registered, so removing an unknown source
        // never creates its key.
        RegKey existing(szPath, 0);
        if (!existing.IsReady())
            return 1;
    }
    {
        RegKey key(szPath, 1);
        if (key.IsReady()) {
            key.DelValue(L"TypesSupported");
            key.DelValue(L"EventMessageFile");
        }
    }
    RegKey parent(kEventLogApplication, 0);
    if (parent.IsReady())
        parent.DelSubKeyIfEmpty(source);
    return 1;
}
