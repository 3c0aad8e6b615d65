#include "settings/Policy.h"

#include <climits>
#include <string>
#include <vector>

#include "base/ProductInfo.h"
#include "base/StrUtil.h"
#include "storage/StrList.h"

Policy::Policy() : bWritable(0), bAlt(0) {}

Policy::~Policy() {}

int Policy::OpenRegKey(int scope, int bCreate)
{
    key.Close();
    bAlt = 0;
    bWritable = bCreate ? 1 : 0;
    return key.Open(scope == ScopeMachine ? ProductInfo::GetLicPolHKLM() : ProductInfo::GetLicPolHKCU(), bCreate);
}

void Policy::CloseRegKey()
{
    key.Close();
    bAlt = 0;
    bWritable = 0;
}

int Policy::OpenAltRegKey(const wchar_t* path, int bCreate)
{
    key.Close();
    bAlt = 1;
    bWritable = bCreate ? 1 : 0;
    return key.Open(path, bCreate);
}

int Policy::Ready(int scope, int bWrite)
{
    if (key.IsReady() && (bWritable || !bWrite))
        return 1;
    if (bAlt) // an alternative key is what the caller chose; it is not swapped for another
        return key.IsReady();
    return OpenRegKey(scope, bWrite);
}

int ParseDecimalInt(const wchar_t* text, int* out)
{
    if (!text)
        return 0;
    const wchar_t* p = text;
    while (*p == L' ' || *p == L'\t')
        ++p;
    bool neg = false;
    if (*p == L'+' || *p == L'-')
        neg = *p++ == L'-';
    if (*p < L'0' || *p > L'9')
        return 0;
    long long v = 0;
    while (*p >= L'0' && *p <= L'9') {
        v = v * 10 + (*p++ - L'0');
        if (v > (long long)INT_MAX + 1)
            return 0;
    }
    while (*p == L' ' || *p == L'\t')
        ++p;
    if (*p)
        return 0;
    v = neg ? -v : v;
    if (v > INT_MAX || v < INT_MIN)
        return 0;
    *out = (int)v;
    return 1;
}

int Policy::GetInt(const wchar_t* name, int scope)
{
    if (!Ready(scope, 0))
        return -1;
    DWORD type = key.GetValueType(name);
    if (type == REG_NONE) // missing, or stored without a type
        return -1;
    unsigned size = key.GetBinSize(name);
    if (type == REG_DWORD || type == REG_BINARY) {
        // Four bytes are a number as they are; binary data of another size is not a number.
        DWORD v = 0;
        if (size != sizeof(v) || !key.GetBin(name, reinterpret_cast<BYTE*>(&v), sizeof(v)))
            return -1;
        return (int)v;
    }
    // Any other type is read as text holding a decimal number.
    if (size > nMaxIntTextBytes)
        return -1;
    wchar_t text[nMaxIntTextBytes / 2 + 1];
    if (!key.GetStr(name, text, nMaxIntTextBytes / 2 + 1, nullptr))
        return -1;
    int v;
    return ParseDecimalInt(text, &v) ? v : -1;
}

int Policy::IsOn(const wchar_t* name, int scope)
{
    if (!Ready(scope, 0) || !key.FindValue(name))
        return 0;
    return GetInt(name, scope) != 0;
}

int Policy::GetStr(wchar_t* buf, unsigned cch, const wchar_t* name, int scope)
{
    if (!buf || cch == 0)
        return 0;
    buf[0] = 0;
    if (!Ready(scope, 0))
        return 0;
    return key.GetStr(name, buf, (int)cch, nullptr);
}

int Policy::GetStrSizeChars(const wchar_t* name, int scope) { return Ready(scope, 0) ? key.GetStrSize(name) : 0; }

int Policy::Find(const wchar_t* name, int scope) { return Ready(scope, 0) && key.FindValue(name); }

int Policy::SetInt(int value, const wchar_t* name, int scope)
{
    if (!Ready(scope, 1))
        return 0;
    DWORD type = key.GetValueType(name);
    if (type != REG_NONE && type != REG_DWORD && type != REG_BINARY) {
        wchar_t text[16];
        StrFormat(text, L"%d", value);
        return key.PutStr(name, text, 1);
    }
    if (type == REG_BINARY) // a number kept as four binary bytes becomes a proper DWORD
        key.DelValue(name);
    return key.PutDword(name, (DWORD)value, 1);
}

int Policy::SetStr(const wchar_t* name, const wchar_t* text, int scope)
{
    if (!Ready(scope, 1))
        return 0;
    return key.PutStr(name, text, 1);
}

int Policy::GetStrList(StrList& list, const wchar_t* name, int scope)
{
    list.RemoveAll();
    if (!Ready(scope, 0))
        return 0;
    RegKey sub;
    if (!sub.Open(key, name, 0))
        return 0;
    wchar_t entry[nMaxListEntryBytes / 2 + 1];
    for (int n = 1;; ++n) {
        wchar_t valueName[16];
        StrFormat(valueName, L"%d", n);
        // A gap, an empty entry or an oversized one ends the list there.
        if (!sub.FindValue(valueName) || sub.GetBinSize(valueName) > nMaxListEntryBytes)
            break;
        if (sub.GetStr(valueName, entry, nMaxListEntryBytes / 2 + 1, nullptr) == 0)
            break;
        list.AddTail(entry);
    }
    return 1;
}

int Policy::SetStrList(StrList& list, const wchar_t* name, int scope)
{
    if (!Ready(scope, 1))
        return 0;
    RegKey sub;
    if (!sub.Open(key, name, 1))
        return 0;
    // Cleared first, then written in order: the subkey ends with exactly the REG_SZ entries
    // "1", "2", ..., whatever it held before (stray values and subkeys, entries past the end of
    // a shorter list, an entry holding the same text under another type).
    sub.DelAll();
    return PutListEntries(sub, list);
}

int Policy::PutListEntries(RegKey& sub, StrList& list)
{
    unsigned n = 0;
    for (DMPos pos = list.GetHeadPosition(); pos;) {
        const wchar_t* s = list.GetNext(pos);
        wchar_t valueName[16];
        StrFormat(valueName, L"%u", ++n);
        if (!sub.PutStr(valueName, s ? s : L"", 1))
            return 0;
    }
    return 1;
}

int Policy::FindStrList(const wchar_t* name, int scope)
{
    if (!Ready(scope, 0))
        return 0;
    RegKey sub;
    return sub.Open(key, name, 0);
}
