#include "storage/RegKey.h"

#include <new>

#include "base/Handle.h"

#include "base/StrUtil.h"

int RegKey::bLogMode = 0;
unsigned int RegKey::nLogSizeChars = 0;
wchar_t* RegKey::pszLog = nullptr;
const wchar_t* RegKey::pszFmtPrefix = L"%s%s";
long RegKey::lError = 0;

namespace {

// What OpenKey hands out in log mode: nothing is opened, but callers see an open key.
HKEY const kLogDummyKey = reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(1));

const unsigned kMaxKeyName = 256;      // registry key names are at most 255 characters
const unsigned kMaxValueName = 16384;  // value names are at most 16383 characters
const unsigned kMaxComponent = 128;    // one component of a path that Vantrel opens
const unsigned kMaxPath = 256;         // formatted paths and prefixed value names

// Appends one formatted line to the log: each character counts, and is stored only when the
// caller gave a buffer (the first, measuring pass runs without one).
void LogLine(const wchar_t* fmt, ...)
{
    wchar_t line[255];
    va_list args;
    va_start(args, fmt);
    StrFormatV(line, 255, fmt, args);
    va_end(args);
    for (const wchar_t* c = line; *c; ++c) {
        ++RegKey::nLogSizeChars;
        if (RegKey::pszLog)
            *RegKey::pszLog++ = *c;
    }
}

// The default value has no name; the log writes it as "@", as .reg files do.
const wchar_t* LogName(const wchar_t* name) { return name && *name ? name : L"@"; }

HKEY RootFromName(const wchar_t* name)
{
    if (StrEqualNoCase(name, L"HKCLS") || StrEqualNoCase(name, L"HKEY_CLASSES_ROOT"))
        return HKEY_CLASSES_ROOT;
    if (StrEqualNoCase(name, L"HKCU") || StrEqualNoCase(name, L"HKEY_CURRENT_USER"))
        return HKEY_CURRENT_USER;
    if (StrEqualNoCase(name, L"HKLM") || StrEqualNoCase(name, L"HKEY_LOCAL_MACHINE"))
        return HKEY_LOCAL_MACHINE;
    if (StrEqualNoCase(name, L"HKU") || StrEqualNoCase(name, L"HKEY_USERS"))
        return HKEY_USERS;
    return nullptr;
}

void CloseKeyKeepError(HKEY key)
{
    if (key != kLogDummyKey)
        RegKeyHandle(key).Close();
}

// Sets the last error from a registry result and turns it into the nonzero-for-success form.
int Result(LONG r)
{
    if (r != ERROR_SUCCESS) {
        SetLastError((DWORD)r);
        return 0;
    }
    return 1;
}

// Saving and loading hives needs the backup and restore privileges, which administrators hold
// but do not have enabled by default.
void EnableHivePrivileges()
{
    Handle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.Receive()))
        return;
    const wchar_t* names[] = {SE_BACKUP_NAME, SE_RESTORE_NAME};
    for (const wchar_t* name : names) {
        TOKEN_PRIVILEGES tp{};
        tp.PrivilegeCount = 1;
        tp.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
        if (LookupPrivilegeValueW(nullptr, name, &tp.Privileges[0].Luid))
            AdjustTokenPrivileges(token.Get(), FALSE, &tp, 0, nullptr, nullptr);
    }
}

// Removes entries of a key (its values, or its subkeys) one by one. The walk stays at one index:
// a removed entry makes room for the next. remove(name) answers whether it tried to remove the
// entry; a name that comes back at the same index after that could not be removed, so the walk
// steps past it, and a refused entry can never make the walk run forever.
template <class RemoveFn> void RemoveEach(HKEY key, bool bValues, RemoveFn remove)
{
    HeapBuf<wchar_t> name(kMaxValueName), prev(kMaxValueName);
    if (!name.p || !prev.p)
        return;
    bool bHavePrev = false;
    for (DWORD i = 0;;) {
        DWORD n = kMaxValueName;
        LONG r = bValues ? RegEnumValueW(key, i, name.p, &n, nullptr, nullptr, nullptr, nullptr)
                         : RegEnumKeyExW(key, i, name.p, &n, nullptr, nullptr, nullptr, nullptr);
        if (r != ERROR_SUCCESS)
            break;
        if ((bHavePrev && StrEqualNoCase(name.p, prev.p)) || !remove(name.p)) {
            ++i;
            continue;
        }
        StrCopy(prev.p, kMaxValueName, name.p);
        bHavePrev = true;
    }
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Construction and opening

RegKey::RegKey() : hKey(nullptr), dwIndex(0) {}

RegKey::RegKey(const wchar_t* path, int bCreate) : hKey(nullptr), dwIndex(0) { Open(path, bCreate); }

RegKey::RegKey(const wchar_t* path, Op op) : hKey(nullptr), dwIndex(0) { Open(path, op); }

RegKey::RegKey(const wchar_t* path1, const wchar_t* path2, int bCreate) : hKey(nullptr), dwIndex(0)
{
    Open(path1, path2, bCreate);
}

RegKey::RegKey(RegKey& parent, const wchar_t* subkey, int bCreate) : hKey(nullptr), dwIndex(0)
{
    Open(parent, subkey, bCreate);
}

RegKey::RegKey(RegKey& parent, const wchar_t* subkey, Op op) : hKey(nullptr), dwIndex(0) { Open(parent, subkey, op); }

RegKey::RegKey(const RegKey& other) : hKey(other.hKey), dwIndex(other.dwIndex) {}

RegKey& RegKey::operator=(const RegKey& other)
{
    hKey = other.hKey;
    dwIndex = other.dwIndex;
    return *this;
}

RegKey::~RegKey() { Close(); }

int RegKey::Open(const wchar_t* path, int bCreate)
{
    hKey = OpenKey(path, bCreate, 0);
    return hKey != nullptr;
}

int RegKey::Open(const wchar_t* path, Op op) { return Open(path, IsWritable(op)); }

int RegKey::Open(const wchar_t* path1, const wchar_t* path2, int bCreate)
{
    wchar_t path[kMaxPath];
    StrFormat(path, L"%s\\%s", path1 ? path1 : L"", path2 ? path2 : L"");
    return Open(path, bCreate);
}

int RegKey::Open(RegKey& parent, const wchar_t* subkey, int bCreate)
{
    hKey = OpenKey(parent.hKey, subkey, bCreate);
    return hKey != nullptr;
}

int RegKey::Open(RegKey& parent, const wchar_t* subkey, Op op) { return Open(parent, subkey, op >= 1 && op < 3); }

int RegKey::OpenParent(const wchar_t* path, int bCreate, int nLevels)
{
    hKey = OpenKey(path, bCreate, nLevels);
    return hKey != nullptr;
}

HKEY RegKey::OpenKey(const wchar_t* path, int bCreate, int nLevels)
{
    if (bLogMode) {
        LogLine(L"[%s]\r\n", path ? path : L"");
        return kLogDummyKey;
    }
    if (StrIsEmpty(path)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }

    HKEY cur = nullptr;
    const wchar_t* p = path;
    for (;;) {
        while (*p == L'\\') // doubled backslashes make empty components: skip them
            ++p;
        if (!*p)
            break;
        if (nLevels) {
            int left = 1;
            for (const wchar_t* q = p; *q; ++q)
                if (*q == L'\\')
                    ++left;
            if (nLevels >= left)
                break;
        }
        wchar_t comp[kMaxComponent];
        unsigned n = 0;
        while (p[n] && p[n] != L'\\')
            ++n;
        StrCopyN(comp, kMaxComponent, p, n);
        p += n;

        if (!cur) {
            // Until a root is known, each component is tried as a root name; unknown ones are
            // passed over, so "Bogus\HKCU\Software" still finds HKCU\Software.
            cur = RootFromName(comp);
            continue;
        }
        HKEY next = OpenKey(cur, comp, bCreate);
        CloseKeyKeepError(cur);
        cur = next;
        if (!cur)
            return nullptr;
    }
    if (!cur)
        SetLastError(ERROR_FILE_NOT_FOUND);
    return cur;
}

HKEY RegKey::OpenKey(HKEY parent, const wchar_t* subkey, int bCreate)
{
    HKEY key = nullptr;
    LONG r;
    if (bCreate)
        r = RegCreateKeyExW(parent, subkey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    else
        r = RegOpenKeyExW(parent, subkey, 0, KEY_READ, &key);
    if (r != ERROR_SUCCESS) {
        SetLastError((DWORD)r);
        return nullptr;
    }
    return key;
}

int RegKey::Attach(HKEY key, int)
{
    Close();
    hKey = key;
    return 1;
}

HKEY RegKey::Detach()
{
    HKEY key = hKey;
    hKey = nullptr;
    return key;
}

void RegKey::Close()
{
    CloseKeyKeepError(hKey);
    hKey = nullptr;
}

int RegKey::Flush()
{
    if (bLogMode)
        return 1;
    return Result(RegFlushKey(hKey));
}

// ---------------------------------------------------------------------------------------------
// Values

DWORD RegKey::GetDword(const wchar_t* name, DWORD def)
{
    DWORD v = 0, cb = sizeof(v), type = 0;
    if (RegQueryValueExW(hKey, name, nullptr, &type, reinterpret_cast<BYTE*>(&v), &cb) != ERROR_SUCCESS)
        return def;
    return v;
}

int RegKey::GetInt(const wchar_t* name, int def) { return (int)GetDword(name, (DWORD)def); }

int RegKey::PutInt(const wchar_t* name, int v) { return PutDword(name, (DWORD)v, 1); }

int RegKey::PutDword(const wchar_t* name, DWORD v, int bOnlyIfDifferent)
{
    if (bLogMode) {
        LogLine(L"%s=dword:%08X\r\n", LogName(name), v);
        return 1;
    }
    // An absent value reads as v+1, so that absence always counts as different.
    if (bOnlyIfDifferent && GetDword(name, v + 1) == v)
        return 1;
    return Result(RegSetValueExW(hKey, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&v), sizeof(v)));
}

int RegKey::PutDwordOrDeleteIfZero(const wchar_t* name, DWORD v, int bOnlyIfDifferent)
{
    return v == 0 ? DelValue(name) : PutDword(name, v, bOnlyIfDifferent);
}

int RegKey::GetStr(const wchar_t* name, wchar_t* buf, int cch, const wchar_t* def)
{
    if (!buf || cch <= 0)
        return 0;
    DWORD type = 0, cb = 0;
    if (RegQueryValueExW(hKey, name, nullptr, &type, nullptr, &cb) == ERROR_SUCCESS && cb <= (DWORD)cch * 2) {
        DWORD got = cb;
        if (cb == 0 || RegQueryValueExW(hKey, name, nullptr, &type, reinterpret_cast<BYTE*>(buf), &got) == ERROR_SUCCESS) {
            // The stored data need not end in a zero: terminate within the buffer.
            unsigned chars = (cb == 0) ? 0 : got / 2;
            if (chars >= (unsigned)cch)
                chars = cch - 1;
            buf[chars] = 0;
            return (int)StrLen(buf);
        }
    }
    if (!def) {
        buf[0] = 0;
        return 0;
    }
    if (def != buf)
        StrCopy(buf, cch, def);
    return (int)StrLen(buf);
}

int RegKey::GetStrSize(const wchar_t* name)
{
    DWORD type = 0, cb = 0;
    if (RegQueryValueExW(hKey, name, nullptr, &type, nullptr, &cb) != ERROR_SUCCESS || cb < 2)
        return 0;
    if (cb == 2) { // a lone terminator is an empty string
        wchar_t c = 1;
        DWORD got = 2;
        if (RegQueryValueExW(hKey, name, nullptr, &type, reinterpret_cast<BYTE*>(&c), &got) == ERROR_SUCCESS && c == 0)
            return 0;
    }
    return (int)(cb / 2) + 1;
}

int RegKey::PutStr(const wchar_t* name, const wchar_t* s, int bOnlyIfDifferent)
{
    if (!s)
        s = L"";
    if (bLogMode) {
        LogLine(L"%s=%s\r\n", LogName(name), s);
        return 1;
    }
    unsigned len = StrLen(s);
    if (bOnlyIfDifferent && FindValue(name)) {
        // Room for the new string and one character more: a longer stored value does not fit,
        // falls back to the default and so counts as different. An absent or unreadable value
        // never equals an empty new string, thanks to the "1" default.
        HeapBuf<wchar_t> cur(len + 2);
        if (cur.p) {
            GetStr(name, cur.p, (int)len + 2, len ? L"" : L"1");
            if (StrEqual(cur.p, s))
                return 1;
        }
    }
    return Result(RegSetValueExW(hKey, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(s), (len + 1) * sizeof(wchar_t)));
}

int RegKey::PutStrOrDelEmpty(const wchar_t* name, const wchar_t* s, int bOnlyIfDifferent)
{
    return StrIsEmpty(s) ? DelValue(name) : PutStr(name, s, bOnlyIfDifferent);
}

unsigned RegKey::GetBinSize(const wchar_t* name)
{
    DWORD type = 0, cb = 0;
    if (RegQueryValueExW(hKey, name, nullptr, &type, nullptr, &cb) != ERROR_SUCCESS)
        return 0;
    return cb;
}

int RegKey::GetBin(const wchar_t* name, BYTE* buf, unsigned cb, DWORD* pType)
{
    DWORD type = 0, size = 0;
    LONG r = RegQueryValueExW(hKey, name, nullptr, &type, nullptr, &size);
    if (r != ERROR_SUCCESS)
        return Result(r);
    if (pType)
        *pType = type;
    // A cb of 0 accepts any size: the caller has sized the buffer with GetBinSize.
    if (cb != 0 && cb < size) {
        SetLastError(ERROR_MORE_DATA);
        return 0;
    }
    DWORD got = size;
    return Result(RegQueryValueExW(hKey, name, nullptr, &type, buf, &got));
}

int RegKey::PutBin(const wchar_t* name, const BYTE* data, unsigned cb, DWORD type)
{
    // Unchanged data is not rewritten: a value of exactly cb bytes that are all equal stays as
    // it is (whatever its type).
    DWORD curType = 0, size = 0;
    if (RegQueryValueExW(hKey, name, nullptr, &curType, nullptr, &size) == ERROR_SUCCESS && size == cb) {
        if (cb == 0)
            return 1;
        HeapBuf<BYTE> cur(cb);
        DWORD got = cb;
        if (cur.p && RegQueryValueExW(hKey, name, nullptr, &curType, cur.p, &got) == ERROR_SUCCESS && got == cb &&
            memcmp(cur.p, data, cb) == 0)
            return 1;
    }
    return Result(RegSetValueExW(hKey, name, 0, type, data, cb));
}

DWORD RegKey::GetValueType(const wchar_t* name)
{
    DWORD type = 0;
    if (RegQueryValueExW(hKey, name, nullptr, &type, nullptr, nullptr) != ERROR_SUCCESS)
        return 0;
    return type;
}

int RegKey::FindValue(const wchar_t* name)
{
    return RegQueryValueExW(hKey, name, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

int RegKey::DelValue(const wchar_t* name)
{
    if (bLogMode) {
        LogLine(L"%s=@\r\n", LogName(name));
        return 1;
    }
    if (!FindValue(name))
        return 1;
    return Result(RegDeleteValueW(hKey, name));
}

int RegKey::DelValuesStartingWith(const wchar_t* prefix, int bIgnoreCase)
{
    RemoveEach(hKey, true, [&](const wchar_t* name) {
        // A null prefix takes everything; an empty one every named value but not the default.
        if (prefix && (!name[0] || !StrStartsWith(name, prefix, bIgnoreCase != 0)))
            return false;
        if (bLogMode) { // described, not deleted
            LogLine(L"%s=@\r\n", LogName(name));
            return false;
        }
        RegDeleteValueW(hKey, name);
        return true;
    });
    return 1;
}

int RegKey::CopyValueTo(RegKey& dst, const wchar_t* name)
{
    unsigned size = GetBinSize(name);
    if (size == 0)
        return 0;
    HeapBuf<BYTE> data(size);
    DWORD type = 0;
    if (!data.p || !GetBin(name, data.p, size, &type))
        return 0;
    return dst.PutBin(name, data.p, size, type);
}

// Prefixed names.

#define VX_PREFIXED(prefix, name) \
    wchar_t full[kMaxPath];       \
    StrFormat(full, pszFmtPrefix, (prefix) ? (prefix) : L"", (name) ? (name) : L"")

int RegKey::GetIntPrefix(const wchar_t* prefix, const wchar_t* name, int def)
{
    VX_PREFIXED(prefix, name);
    return GetInt(full, def);
}

DWORD RegKey::GetDwordPrefix(const wchar_t* prefix, const wchar_t* name, DWORD def)
{
    VX_PREFIXED(prefix, name);
    return GetDword(full, def);
}

int RegKey::PutIntPrefix(const wchar_t* prefix, const wchar_t* name, int v)
{
    VX_PREFIXED(prefix, name);
    return PutDword(full, (DWORD)v, 1);
}

int RegKey::PutDwordPrefix(const wchar_t* prefix, const wchar_t* name, DWORD v)
{
    VX_PREFIXED(prefix, name);
    return PutDword(full, v, 1);
}

int RegKey::GetStrPrefix(const wchar_t* prefix, const wchar_t* name, wchar_t* buf, int cch, const wchar_t* def)
{
    VX_PREFIXED(prefix, name);
    return GetStr(full, buf, cch, def);
}

int RegKey::PutStrPrefix(const wchar_t* prefix, const wchar_t* name, const wchar_t* s)
{
    VX_PREFIXED(prefix, name);
    return PutStr(full, s, 1);
}

unsigned RegKey::GetBinSizePrefix(const wchar_t* prefix, const wchar_t* name)
{
    VX_PREFIXED(prefix, name);
    return GetBinSize(full);
}

int RegKey::GetBinPrefix(const wchar_t* prefix, const wchar_t* name, BYTE* buf, unsigned cb)
{
    VX_PREFIXED(prefix, name);
    return GetBin(full, buf, cb, nullptr);
}

int RegKey::PutBinPrefix(const wchar_t* prefix, const wchar_t* name, const BYTE* data, unsigned cb)
{
    VX_PREFIXED(prefix, name);
    return PutBin(full, data, cb, REG_BINARY);
}

int RegKey::DelValuePrefix(const wchar_t* prefix, const wchar_t* name)
{
    VX_PREFIXED(prefix, name);
    return DelValue(full);
}

#undef VX_PREFIXED

// ---------------------------------------------------------------------------------------------
// One routine per record: read, write, delete and compare through the same call.

int RegKey::ProcessEntry(Op op, const wchar_t* name, wchar_t* str, unsigned cch)
{
    switch (op) {
    case OpCheck:
    case OpCheckNoCase: {
        // Settings strings that are compared are short; anything longer than this counts as
        // unreadable, like an absent or empty value.
        wchar_t cur[260];
        DWORD type = 0, cb = sizeof(cur);
        LONG r = RegQueryValueExW(hKey, name, nullptr, &type, reinterpret_cast<BYTE*>(cur), &cb);
        unsigned chars = cb / 2;
        if (r == ERROR_SUCCESS && chars > 0) {
            if (chars >= 260)
                chars = 259;
            cur[chars] = 0;
        }
        if (r != ERROR_SUCCESS || chars == 0 || cur[0] == 0)
            return StrIsEmpty(str);
        return op == OpCheck ? StrEqual(cur, str) : StrEqualNoCase(cur, str);
    }
    case OpDelete:
        DelValue(name);
        return 1;
    case OpWrite:
        if (ProcessEntry(OpCheck, name, str, cch))
            return 1;
        return PutStr(name, str, 1);
    case OpRead:
        if (!str || cch == 0)
            return 0;
        return GetStr(name, str, (int)cch, nullptr) > 0;
    case OpCheckAbsent:
        return !FindValue(name);
    case OpWriteAlways:
        return PutStr(name, str, 0);
    }
    return 0;
}

int RegKey::ProcessEntry(Op op, const wchar_t* name, DWORD& v)
{
    switch (op) {
    case OpCheck:
    case OpCheckNoCase:
        return GetDword(name, 0) == v;
    case OpDelete:
        DelValue(name);
        return 1;
    case OpWrite:
        if (GetDword(name, 0) == v)
            return 1;
        if (v == 0) {
            DelValue(name);
            return 1;
        }
        return PutDword(name, v, 1);
    case OpRead:
        v = GetDword(name, 0);
        return 1;
    case OpCheckAbsent: // not used for numbers; the meaningful answer costs nothing
        return !FindValue(name);
    case OpWriteAlways:
        return PutDword(name, v, 0);
    }
    return 0;
}

int RegKey::ProcessEntry(Op op, const wchar_t* name, int& v)
{
    DWORD d = (DWORD)v;
    int r = ProcessEntry(op, name, d);
    v = (int)d;
    return r;
}

int RegKey::ProcessSubKey(Op op, const wchar_t* name)
{
    switch (op) {
    case OpDelete:
        DelSubKey(name);
        break;
    case OpWrite:
    case OpWriteAlways: {
        DelSubKey(name);
        HKEY sub = OpenKey(hKey, name, 1);
        CloseKeyKeepError(sub);
        break;
    }
    default:
        break;
    }
    if (!bLogMode)
        RegFlushKey(hKey);
    return 1;
}

// ---------------------------------------------------------------------------------------------
// Enumeration

int RegKey::GetSubKeyByIndex(DWORD index, wchar_t* buf, unsigned cch)
{
    DWORD n = cch;
    LONG r = RegEnumKeyExW(hKey, index, buf, &n, nullptr, nullptr, nullptr, nullptr);
    if (r != ERROR_SUCCESS && buf && cch)
        buf[0] = 0;
    // Only the end of the list stops an enumeration; a name too long for the buffer does not.
    return r != ERROR_NO_MORE_ITEMS;
}

int RegKey::GetFirstSubKey(wchar_t* buf, unsigned cch)
{
    dwIndex = 0;
    return GetSubKeyByIndex(dwIndex, buf, cch);
}

int RegKey::GetNextSubKey(wchar_t* buf, unsigned cch) { return GetSubKeyByIndex(++dwIndex, buf, cch); }

int RegKey::GetValueByIndex(DWORD index, wchar_t* buf, unsigned cch)
{
    DWORD n = cch;
    LONG r = RegEnumValueW(hKey, index, buf, &n, nullptr, nullptr, nullptr, nullptr);
    if (r != ERROR_SUCCESS && buf && cch)
        buf[0] = 0;
    return r != ERROR_NO_MORE_ITEMS;
}

int RegKey::GetFirstValue(wchar_t* buf, unsigned cch)
{
    dwIndex = 0;
    return GetValueByIndex(dwIndex, buf, cch);
}

int RegKey::GetNextValue(wchar_t* buf, unsigned cch) { return GetValueByIndex(++dwIndex, buf, cch); }

// ---------------------------------------------------------------------------------------------
// Trees

int RegKey::IsKeyEmpty()
{
    DWORD subkeys = 0, values = 0;
    if (RegQueryInfoKeyW(hKey, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr, nullptr, nullptr,
                         nullptr) != ERROR_SUCCESS)
        return 0;
    return subkeys == 0 && values == 0;
}

int RegKey::DelSubKey(const wchar_t* name)
{
    {
        RegKey probe;
        if (!probe.Open(*this, name, 0) && GetLastError() == ERROR_FILE_NOT_FOUND)
            return 1;
    }
    RegKey sub;
    if (sub.Open(*this, name, 1)) {
        RemoveEach(sub.hKey, false, [&](const wchar_t* child) {
            sub.DelSubKey(child);
            return true;
        });
        // In log mode values are only described; the key goes with them below.
        RemoveEach(sub.hKey, true, [&](const wchar_t* value) {
            sub.DelValue(value);
            return !bLogMode;
        });
        RegDeleteValueW(sub.hKey, nullptr);
        sub.Close();
    }
    return Result(RegDeleteKeyW(hKey, name));
}

int RegKey::DelSubKeyIfEmpty(const wchar_t* name)
{
    RegKey sub;
    if (!sub.Open(*this, name, 0))
        return GetLastError() == ERROR_FILE_NOT_FOUND;
    int empty = sub.IsKeyEmpty();
    sub.Close();
    if (!empty)
        return 0;
    return Result(RegDeleteKeyW(hKey, name));
}

int RegKey::DelAll()
{
    RemoveEach(hKey, false, [&](const wchar_t* child) {
        {
            RegKey sub;
            if (sub.Open(*this, child, 1))
                sub.DelAll();
        }
        DelSubKey(child);
        return true;
    });
    DelValuesStartingWith(nullptr, 0);
    return 1;
}

int RegKey::CopyTo(RegKey& dst)
{
    wchar_t name[kMaxKeyName];
    for (dwIndex = 0;; ++dwIndex) {
        DWORD n = kMaxKeyName;
        LONG r = RegEnumKeyExW(hKey, dwIndex, name, &n, nullptr, nullptr, nullptr, nullptr);
        if (r == ERROR_NO_MORE_ITEMS)
            break;
        if (r != ERROR_SUCCESS)
            continue;
        RegKey src, to;
        if (src.Open(*this, name, 0) && to.Open(dst, name, 1))
            src.CopyTo(to);
    }
    CopyValueTo(dst, nullptr);
    HeapBuf<wchar_t> value(kMaxValueName);
    if (value.p) {
        for (DWORD i = 0;; ++i) {
            DWORD n = kMaxValueName;
            LONG r = RegEnumValueW(hKey, i, value.p, &n, nullptr, nullptr, nullptr, nullptr);
            if (r == ERROR_NO_MORE_ITEMS)
                break;
            if (r == ERROR_SUCCESS && value.p[0])
                CopyValueTo(dst, value.p);
        }
    }
    return 1;
}

int RegKey::RenameSubkey(const wchar_t* oldName, const wchar_t* newName)
{
    RegKey src;
    if (!src.Open(*this, oldName, 0))
        return 0;
    RegKey dst;
    if (!dst.Open(*this, newName, 1))
        return 0;
    if (!src.CopyTo(dst))
        return 0;
    src.Close();
    dst.Close();
    return DelSubKey(oldName);
}

// ---------------------------------------------------------------------------------------------
// Hives and files

int RegKey::SaveKey(HKEY key, const wchar_t* file, SECURITY_ATTRIBUTES* sa)
{
    // An existing file is replaced, keeping its attributes (a read-only copy stays read-only).
    DWORD attrs = GetFileAttributesW(file);
    if (attrs != INVALID_FILE_ATTRIBUTES) {
        SetFileAttributesW(file, FILE_ATTRIBUTE_NORMAL);
        DeleteFileW(file);
    } else {
        attrs = FILE_ATTRIBUTE_ARCHIVE;
    }
    EnableHivePrivileges();
    lError = RegSaveKeyW(key, file, sa);
    SetFileAttributesW(file, attrs);
    return Result(lError);
}

int RegKey::Save(const wchar_t* file) { return SaveKey(hKey, file, nullptr); }

int RegKey::LoadKey(HKEY key, const wchar_t* subkey, const wchar_t* file)
{
    EnableHivePrivileges();
    return Result(RegLoadKeyW(key, subkey, file));
}

int RegKey::UnLoadKey(HKEY key, const wchar_t* subkey)
{
    EnableHivePrivileges();
    return Result(RegUnLoadKeyW(key, subkey));
}

// ---------------------------------------------------------------------------------------------
// Path helpers

int RegKey::GetParentSubkeyName(const wchar_t* path, wchar_t* buf, unsigned cch)
{
    if (!buf || StrIsEmpty(path))
        return 0;
    StrCopy(buf, cch, path);
    wchar_t* last = nullptr;
    for (wchar_t* p = buf; *p; ++p)
        if (*p == L'\\')
            last = p;
    if (last)
        *last = 0;
    return 1;
}

const wchar_t* RegKey::FindLastSubkeyName(const wchar_t* path)
{
    if (StrIsEmpty(path))
        return nullptr;
    const wchar_t* last = path;
    for (const wchar_t* p = path; *p; ++p)
        if (*p == L'\\')
            last = p + 1;
    return last;
}

// ---------------------------------------------------------------------------------------------
// Log mode

void RegKey::StartLog(wchar_t* buffer)
{
    nLogSizeChars = 0;
    bLogMode = 1;
    pszLog = buffer;
}

unsigned RegKey::EndLog()
{
    bLogMode = 0;
    if (nLogSizeChars == 0)
        return 0;
    if (pszLog)
        *pszLog = 0;
    ++nLogSizeChars;
    return nLogSizeChars;
}
