#include "storage/StrList.h"

#include <cstring>
#include <new>

#include "base/ProductInfo.h"
#include "base/StrUtil.h"
#include "storage/RegKey.h"

namespace {

void DestroyString(void* pItem) { StrFree((wchar_t*)pItem); }

// How often s occurs in list, compared exactly.
unsigned CountExact(const StrList& list, const wchar_t* s)
{
    unsigned n = 0;
    for (DMPos pos = list.GetHeadPosition(); pos;)
        if (StrEqual(list.GetNext(pos), s))
            ++n;
    return n;
}

} // namespace

StrList::StrList(const wchar_t* valueName) : DMList(DestroyString), pszValueName(StrDup(valueName)) {}

StrList::~StrList()
{
    RemoveAll();
    StrFree(pszValueName);
}

int StrList::SetValueName(const wchar_t* name)
{
    StrFree(pszValueName);
    pszValueName = StrDup(name);
    return !name || pszValueName;
}

DMPos StrList::AddHead(const wchar_t* s)
{
    wchar_t* copy = StrDup(s);
    if (s && !copy)
        return nullptr;
    DMPos pos = DMList::AddHead(copy);
    if (!pos)
        StrFree(copy);
    return pos;
}

DMPos StrList::AddTail(const wchar_t* s)
{
    wchar_t* copy = StrDup(s);
    if (s && !copy)
        return nullptr;
    DMPos pos = DMList::AddTail(copy);
    if (!pos)
        StrFree(copy);
    return pos;
}

int StrList::ReplaceAt(DMPos pos, const wchar_t* s)
{
    if (!pos)
        return 0;
    StrFree((wchar_t*)DMList::GetAt(pos));
    wchar_t* copy = StrDup(s);
    SetAt(pos, copy);
    return !s || copy;
}

DMPos StrList::FindStrExactIgnoreCase(const wchar_t* s) const
{
    for (DMPos pos = GetHeadPosition(); pos; pos = pos->pNext)
        if (StrEqualNoCase(GetAt(pos), s))
            return pos;
    return nullptr;
}

DMPos StrList::FindStrExactIgnoreCase(const StrList& other) const
{
    for (DMPos pos = other.GetHeadPosition(); pos;)
        if (DMPos found = FindStrExactIgnoreCase(other.GetNext(pos)))
            return found;
    return nullptr;
}

DMPos StrList::FindStr(const wchar_t* s, int bWhole, int bIgnoreCase) const
{
    for (DMPos pos = GetHeadPosition(); pos; pos = pos->pNext) {
        const wchar_t* entry = GetAt(pos);
        bool match;
        if (bWhole)
            match = bIgnoreCase ? StrEqualNoCase(entry, s) : StrEqual(entry, s);
        else
            match = StrStartsWith(entry, s, bIgnoreCase != 0);
        if (match)
            return pos;
    }
    return nullptr;
}

int StrList::CopyFrom(const StrList& other)
{
    if (&other == this)
        return 1;
    RemoveAll();
    for (DMPos pos = other.GetHeadPosition(); pos;)
        if (!AddTail(other.GetNext(pos)))
            return 0;
    return 1;
}

int StrList::IsDifferent(const StrList& other) const
{
    if (GetCount() != other.GetCount())
        return 1;
    for (DMPos a = GetHeadPosition(), b = other.GetHeadPosition(); a && b;)
        if (!StrEqual(GetNext(a), other.GetNext(b)))
            return 1;
    return 0;
}

int StrList::IsDifferentIgnoreSort(const StrList& other) const
{
    if (GetCount() != other.GetCount())
        return 1;
    // Equal lengths and every string of this list as often in both: then the other list holds
    // nothing else. The lists are short (names an administrator typed), so no sorting is needed.
    for (DMPos pos = GetHeadPosition(); pos;) {
        const wchar_t* s = GetNext(pos);
        if (CountExact(*this, s) != CountExact(other, s))
            return 1;
    }
    return 0;
}

int StrList::Load()
{
    RemoveAll();
    if (StrIsEmpty(pszValueName)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    RegKey key(ProductInfo::GetAppRegKeyName(), 0);
    if (!key.IsReady())
        return 0;
    unsigned cb = key.GetBinSize(pszValueName);
    if (cb == 0) {
        if (key.FindValue(pszValueName))
            return 1; // an existing empty value: an empty list
        SetLastError(ERROR_FILE_NOT_FOUND);
        return 0;
    }
    if (cb > nMaxStoreBytes) {
        SetLastError(ERROR_MORE_DATA);
        return 0;
    }
    if (cb <= 1)
        return 1; // too short to hold even the closing zero: an empty list
    // The characters after the data are zeroed (an odd last byte is dropped), so every string
    // ends inside the buffer even when hostile data lacks its own zeros.
    unsigned cch = cb / 2;
    wchar_t* data = new (std::nothrow) wchar_t[cch + 1];
    if (!data) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    memset(data, 0, (cch + 1) * sizeof(wchar_t));
    // GetBin refuses a value that grew beyond cb since its size was taken.
    if (!key.GetBin(pszValueName, (BYTE*)data, cb)) {
        delete[] data;
        return 0;
    }
    data[cch] = 0;
    int ok = 1;
    for (unsigned i = 0; i < cch && data[i];) {
        if (!AddTail(data + i)) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            ok = 0;
            break;
        }
        i += StrLen(data + i) + 1;
    }
    delete[] data;
    return ok;
}

int StrList::Store()
{
    if (StrIsEmpty(pszValueName)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    // Each string with its zero, then the closing zero; null entries are stored as empty.
    size_t cch = 1;
    for (DMPos pos = GetHeadPosition(); pos;)
        cch += StrLen(GetNext(pos)) + 1;
    if (cch * sizeof(wchar_t) > nMaxStoreBytes) {
        SetLastError(ERROR_MORE_DATA); // Load would refuse it: do not store what cannot come back
        return 0;
    }
    wchar_t* data = new (std::nothrow) wchar_t[cch];
    if (!data) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    size_t at = 0;
    for (DMPos pos = GetHeadPosition(); pos;) {
        const wchar_t* s = GetNext(pos);
        unsigned len = StrLen(s);
        if (len)
            memcpy(data + at, s, len * sizeof(wchar_t));
        at += len;
        data[at++] = 0;
    }
    data[at] = 0;
    RegKey key(ProductInfo::GetAppRegKeyName(), 1);
    int ok = key.IsReady() && key.PutBin(pszValueName, (const BYTE*)data, (unsigned)(cch * sizeof(wchar_t)), REG_BINARY);
    delete[] data;
    return ok;
}
