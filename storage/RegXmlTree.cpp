#include "storage/RegXmlTree.h"

#include <cstring>
#include <cwchar>
#include <new>

#include "base/Handle.h"

#include "base/StrUtil.h"
#include "storage/RegKey.h"

const wchar_t* const RegXmlTreeItem::pszKey = L"KEY";
const wchar_t* const RegXmlTreeItem::pszData = L"DATA";
const wchar_t* const RegXmlTreeItem::pszName = L"Name";
const wchar_t* const RegXmlTreeItem::pszType = L"Type";
const wchar_t* const RegXmlTreeItem::pszValue = L"Value";

namespace {

const wchar_t* const kTypeNames[] = {
    L"REG_SZ", L"REG_BINARY", L"REG_DWORD", L"INT8", L"UINT8", L"INT16", L"UINT16", L"INT32", L"UINT32", L"INT64", L"UINT64",
};

// Longer strings are exported as empty strings: no setting comes near it, and a file that
// someone filled with a huge value does not grow the next export.
const DWORD kMaxStrBytes = 1042;
const unsigned kMaxKeyName = 256;     // key names are at most 255 characters
const unsigned kMaxValueName = 16384; // value names at most 16383

int HexDigit(wchar_t c)
{
    if (c >= L'0' && c <= L'9')
        return c - L'0';
    if (c >= L'A' && c <= L'F')
        return c - L'A' + 10;
    if (c >= L'a' && c <= L'f')
        return c - L'a' + 10;
    return -1;
}

bool IsKindName(const XmlTreeItem* item, const wchar_t* kind) { return item && StrEqual(item->GetName(), kind); }

} // namespace

// -------------------------------------------------------------------------------------------------
// RegXmlTreeItem

const wchar_t* RegXmlTreeItem::GetTypeName(int type)
{
    return (type >= TypeStr && type <= TypeUInt64) ? kTypeNames[type - 1] : nullptr;
}

int RegXmlTreeItem::IsSubKey() const { return StrEqual(GetName(), pszKey); }

int RegXmlTreeItem::GetItemName(wchar_t* buf, unsigned cch) const
{
    if (!buf || !cch)
        return 0;
    GetAttrib(pszName, buf, cch);
    return StrLen(GetAttribValue(pszName)) < cch;
}

int RegXmlTreeItem::GetValue(wchar_t* buf, unsigned cch) const
{
    if (!buf || !cch)
        return 0;
    GetAttrib(pszValue, buf, cch);
    return StrLen(GetAttribValue(pszValue)) < cch;
}

int RegXmlTreeItem::GetType() const
{
    const wchar_t* t = GetAttribValue(pszType);
    for (int i = 0; i < (int)(sizeof(kTypeNames) / sizeof(kTypeNames[0])); ++i)
        if (t && wcscmp(t, kTypeNames[i]) == 0)
            return i + 1;
    return TypeDword; // missing or unknown
}

void RegXmlTreeItem::PutValue(int type, const wchar_t* text)
{
    const wchar_t* name = GetTypeName(type);
    SetAttrib(pszType, name ? name : kTypeNames[TypeDword - 1]);
    SetAttrib(pszValue, text ? text : L"");
}

void RegXmlTreeItem::PutDWORD(DWORD v)
{
    wchar_t buf[16];
    StrFormat(buf, L"%lu", (unsigned long)v);
    PutValue(TypeDword, buf);
}

void RegXmlTreeItem::PutBin(const void* data, unsigned size, int type)
{
    static const wchar_t kHex[] = L"0123456789ABCDEF";
    HeapBuf<wchar_t> text((size_t)size * 2 + 1);
    if (!text.p)
        return;
    const BYTE* b = static_cast<const BYTE*>(data);
    for (unsigned i = 0; i < size; ++i) {
        text.p[2 * i] = kHex[b[i] >> 4];
        text.p[2 * i + 1] = kHex[b[i] & 15];
    }
    text.p[(size_t)size * 2] = 0;
    PutValue(type, text.p);
}

unsigned RegXmlTreeItem::GetStrLen() const { return GetType() == TypeStr ? StrLen(GetAttribValue(pszValue)) : 0; }

int RegXmlTreeItem::GetStr(wchar_t* buf, unsigned cch) const
{
    if (!buf || !cch)
        return 0;
    if (GetType() != TypeStr) {
        buf[0] = 0;
        return 0;
    }
    return GetValue(buf, cch);
}

DWORD RegXmlTreeItem::GetDWORD() const
{
    if (GetType() != TypeDword)
        return 0;
    const wchar_t* v = GetAttribValue(pszValue);
    if (!v || StrLen(v) >= 20)
        return 0;
    // A 32-bit strtoul on every build: larger numbers end at the limit.
    unsigned long long n = wcstoull(v, nullptr, 10);
    return n > 0xFFFFFFFFull ? 0xFFFFFFFFu : (DWORD)n;
}

unsigned RegXmlTreeItem::GetBinSize() const { return StrLen(GetAttribValue(pszValue)) / 2; }

int RegXmlTreeItem::GetBin(void* buf, unsigned size, int type) const
{
    if (GetType() != type)
        return 0;
    unsigned n = GetBinSize();
    if (size < n || (n && !buf))
        return 0;
    const wchar_t* v = GetAttribValue(pszValue);
    BYTE* b = static_cast<BYTE*>(buf);
    for (unsigned i = 0; i < n; ++i) {
        int hi = HexDigit(v[2 * i]), lo = HexDigit(v[2 * i + 1]);
        if (hi < 0 || lo < 0)
            return 0;
        b[i] = (BYTE)(hi << 4 | lo);
    }
    return 1;
}

void RegXmlTreeItem::PutFixed(int type, unsigned long long v, unsigned size)
{
    BYTE b[8];
    for (unsigned i = 0; i < size; ++i)
        b[i] = (BYTE)(v >> (8 * i));
    PutBin(b, size, type);
}

unsigned long long RegXmlTreeItem::GetFixed(int type, unsigned size) const
{
    BYTE b[8] = {};
    if (!GetBin(b, size, type))
        return 0;
    unsigned long long v = 0;
    for (unsigned i = 0; i < size; ++i)
        v |= (unsigned long long)b[i] << (8 * i);
    return v;
}

// -------------------------------------------------------------------------------------------------
// RegXmlTree

XmlTreeItem* RegXmlTree::CreateTreeItem(const wchar_t* pszName, const wchar_t* pszBody)
{
    return new RegXmlTreeItem(pszName, pszBody);
}

XmlTree* RegXmlTree::CreateTree(XmlTreeNode* parentNode)
{
    RegXmlTree* t = new RegXmlTree(parentNode);
    t->silent = silent;
    return t;
}

RegXmlTreeItem* RegXmlTree::AddDataItem(const wchar_t* name)
{
    XmlTreeItem* item = AddItem(RegXmlTreeItem::pszData, nullptr);
    item->SetAttrib(RegXmlTreeItem::pszName, name ? name : L"");
    return static_cast<RegXmlTreeItem*>(item);
}

RegXmlTree* RegXmlTree::AddSubTreeItem(const wchar_t* name)
{
    XmlTreeItem* item = AddItem(RegXmlTreeItem::pszKey, nullptr);
    item->SetAttrib(RegXmlTreeItem::pszName, name ? name : L"");
    return static_cast<RegXmlTree*>(AddSubTree(item));
}

RegXmlTreeItem* RegXmlTree::FindKind(const wchar_t* kind, const wchar_t* name) const
{
    for (XmlPos pos = GetHeadPosition(); pos;) {
        XmlTreeItem* item = GetNext(pos);
        if (!IsKindName(item, kind))
            continue;
        const wchar_t* n = item->GetAttribValue(RegXmlTreeItem::pszName);
        if (!name || (n && wcscmp(n, name) == 0))
            return static_cast<RegXmlTreeItem*>(item);
    }
    return nullptr;
}

RegXmlTreeItem* RegXmlTree::FindDataItem(const wchar_t* name) const { return FindKind(RegXmlTreeItem::pszData, name); }

RegXmlTreeItem* RegXmlTree::FindSubTreeItem(const wchar_t* name) const { return FindKind(RegXmlTreeItem::pszKey, name); }

RegXmlTree* RegXmlTree::FindSubTree(const wchar_t* name) const
{
    RegXmlTreeItem* item = FindSubTreeItem(name);
    return item ? static_cast<RegXmlTree*>(GetChildAt(FindPos(item))) : nullptr;
}

int RegXmlTree::DeleteDataItem(const wchar_t* name) { return DeleteItem(FindDataItem(name)); }

int RegXmlTree::DeleteSubTreeItem(const wchar_t* name) { return DeleteItem(FindSubTreeItem(name)); }

RegXmlTreeItem* RegXmlTree::Data(const wchar_t* name)
{
    RegXmlTreeItem* item = FindDataItem(name ? name : L"");
    return item ? item : AddDataItem(name);
}

unsigned RegXmlTree::GetStrLen(const wchar_t* name) const
{
    RegXmlTreeItem* item = FindDataItem(name ? name : L"");
    return item ? item->GetStrLen() : 0;
}

int RegXmlTree::GetStr(const wchar_t* name, wchar_t* buf, unsigned cch, const wchar_t* def) const
{
    if (!buf || !cch)
        return 0;
    RegXmlTreeItem* item = FindDataItem(name ? name : L"");
    if (!item) {
        StrCopy(buf, cch, def);
        return 0;
    }
    return item->GetStr(buf, cch);
}

void RegXmlTree::PutStr(const wchar_t* name, const wchar_t* s) { Data(name)->PutStr(s); }

DWORD RegXmlTree::GetDWORD(const wchar_t* name, DWORD def) const
{
    RegXmlTreeItem* item = FindDataItem(name ? name : L"");
    return item ? item->GetDWORD() : def;
}

void RegXmlTree::PutDWORD(const wchar_t* name, DWORD v) { Data(name)->PutDWORD(v); }

unsigned RegXmlTree::GetBinSize(const wchar_t* name) const
{
    RegXmlTreeItem* item = FindDataItem(name ? name : L"");
    return item ? item->GetBinSize() : 0;
}

int RegXmlTree::GetBin(const wchar_t* name, void* buf, unsigned size, int type) const
{
    RegXmlTreeItem* item = FindDataItem(name ? name : L"");
    return item ? item->GetBin(buf, size, type) : 0;
}

void RegXmlTree::PutBin(const wchar_t* name, const void* data, unsigned size, int type)
{
    Data(name)->PutBin(data, size, type);
}

#define VX_TYPED_GET(T, Fn)                                                                                            \
    T RegXmlTree::Fn(const wchar_t* name, T def) const                                                                 \
    {                                                                                                                  \
        RegXmlTreeItem* item = FindDataItem(name ? name : L"");                                                        \
        return item ? item->Fn() : def;                                                                                \
    }
VX_TYPED_GET(signed char, GetINT8)
VX_TYPED_GET(unsigned char, GetUINT8)
VX_TYPED_GET(short, GetINT16)
VX_TYPED_GET(unsigned short, GetUINT16)
VX_TYPED_GET(int, GetINT32)
VX_TYPED_GET(unsigned, GetUINT32)
VX_TYPED_GET(long long, GetINT64)
VX_TYPED_GET(unsigned long long, GetUINT64)
#undef VX_TYPED_GET

// -------------------------------------------------------------------------------------------------
// Filter

Filter::Filter(const wchar_t* include, const wchar_t* exclude, const wchar_t* separator)
    : pszSeparator(separator), pszInclude(nullptr), pszExclude(nullptr)
{
    SetFilters(include, exclude);
}

void Filter::SetFilters(const wchar_t* include, const wchar_t* exclude)
{
    Reset();
    pszInclude = StrIsEmpty(include) ? nullptr : StrDup(include);
    pszExclude = StrIsEmpty(exclude) ? nullptr : StrDup(exclude);
}

void Filter::Reset()
{
    StrFree(pszInclude);
    StrFree(pszExclude);
    pszInclude = pszExclude = nullptr;
}

void Filter::GetFilters(wchar_t* includeBuf, wchar_t* excludeBuf, unsigned cch) const
{
    if (includeBuf && cch)
        StrCopy(includeBuf, cch, pszInclude);
    if (excludeBuf && cch)
        StrCopy(excludeBuf, cch, pszExclude);
}

int Filter::Match(const wchar_t* name) const
{
    if (StrIsEmpty(name))
        return 1;
    if (pszExclude && MatchWithSep(pszExclude, name))
        return 0;
    if (!pszInclude)
        return 1;
    return MatchWithSep(pszInclude, name);
}

int Filter::MatchWithSep(const wchar_t* list, const wchar_t* name) const
{
    if (StrIsEmpty(pszSeparator))
        return MatchCore(list, name);
    wchar_t buf[260];
    StrCopy(buf, list);
    wchar_t* p = buf;
    for (;;) {
        while (*p && wcschr(pszSeparator, *p))
            ++p;
        if (!*p)
            return 0;
        wchar_t* token = p;
        while (*p && !wcschr(pszSeparator, *p))
            ++p;
        wchar_t saved = *p;
        *p = 0;
        int match = MatchCore(token, name);
        *p = saved;
        if (match)
            return 1;
    }
}

int Filter::MatchCore(const wchar_t* pattern, const wchar_t* name)
{
    if (StrIsEmpty(pattern))
        return 0;
    if (!name)
        name = L"";
    auto upper = [](wchar_t c) { return (wchar_t)(ULONG_PTR)CharUpperW((LPWSTR)(ULONG_PTR)c); };
    // Greedy matching that returns to the last "*" on a mismatch: linear in practice and never
    // worse than pattern length times name length, whatever the pattern.
    const wchar_t* p = pattern;
    const wchar_t* n = name;
    const wchar_t* star = nullptr;
    const wchar_t* resume = nullptr;
    while (*n) {
        if (*p == L'*') {
            star = ++p;
            resume = n;
        } else if (*p && upper(*p) == upper(*n)) {
            ++p, ++n;
        } else if (star) {
            p = star;
            n = ++resume;
        } else {
            return 0;
        }
    }
    while (*p == L'*')
        ++p;
    return *p == 0;
}

// -------------------------------------------------------------------------------------------------
// Registry to tree

namespace {

// One value as a "DATA" item; values that cannot be read, and types the file does not carry,
// add nothing (an empty item would come back as a DWORD 0 the key never had).
void AddValue(RegKey& key, const wchar_t* name, RegXmlTree& tree)
{
    DWORD type = 0, cb = 0;
    if (RegQueryValueExW(key.GetKey(), name, nullptr, &type, nullptr, &cb) != ERROR_SUCCESS)
        return;
    switch (type) {
    case REG_SZ: {
        wchar_t text[kMaxStrBytes / 2 + 1] = L"";
        if (cb <= kMaxStrBytes) {
            DWORD got = kMaxStrBytes;
            if (RegQueryValueExW(key.GetKey(), name, nullptr, &type, (BYTE*)text, &got) != ERROR_SUCCESS || type != REG_SZ)
                return;
            text[got / 2] = 0; // the stored data need not end in a zero
        }
        tree.AddDataItem(name)->PutStr(text);
        return;
    }
    case REG_BINARY: {
        HeapBuf<BYTE> data(cb);
        DWORD got = cb;
        if (!data.p || RegQueryValueExW(key.GetKey(), name, nullptr, &type, data.p, &got) != ERROR_SUCCESS ||
            type != REG_BINARY)
            return;
        tree.AddDataItem(name)->PutBin(data.p, got, RegXmlTreeItem::TypeBin);
        return;
    }
    case REG_DWORD:
    case REG_DWORD_BIG_ENDIAN:
    case REG_LINK:
    case REG_MULTI_SZ: {
        // The first four bytes as they lie in memory, whatever the type says they mean.
        HeapBuf<BYTE> data(cb < 4 ? 4 : cb);
        if (!data.p)
            return;
        memset(data.p, 0, 4);
        DWORD got = cb;
        if (RegQueryValueExW(key.GetKey(), name, nullptr, &type, data.p, &got) != ERROR_SUCCESS)
            return;
        DWORD v = 0;
        memcpy(&v, data.p, 4);
        tree.AddDataItem(name)->PutDWORD(v);
        return;
    }
    default:
        return;
    }
}

void ReadKey(RegKey& key, RegXmlTree& tree, Filter* keyFilter, Filter* valueFilter, int bFilterSubkeys,
             wchar_t* valueName)
{
    wchar_t sub[kMaxKeyName];
    for (DWORD i = 0; key.GetSubKeyByIndex(i, sub, kMaxKeyName) && sub[0]; ++i) {
        if (keyFilter && !keyFilter->Match(sub))
            continue;
        RegKey child(key, sub, RegKey::OpRead);
        if (!child.IsReady())
            continue;
        RegXmlTree* childTree = tree.AddSubTreeItem(sub);
        if (bFilterSubkeys)
            ReadKey(child, *childTree, keyFilter, valueFilter, bFilterSubkeys, valueName);
        else
            ReadKey(child, *childTree, nullptr, nullptr, 0, valueName);
    }
    if (!valueFilter || valueFilter->Match(L"NULL"))
        AddValue(key, L"", tree);
    for (DWORD i = 0; key.GetValueByIndex(i, valueName, kMaxValueName); ++i) {
        if (!valueName[0] || (valueFilter && !valueFilter->Match(valueName)))
            continue;
        AddValue(key, valueName, tree);
    }
}

// Tree to registry: one item.
int WriteItem(RegKey& key, XmlTreeItem* item, XmlTree* child)
{
    RegXmlTreeItem* ri = static_cast<RegXmlTreeItem*>(item);
    const wchar_t* name = item->GetAttribValue(RegXmlTreeItem::pszName);
    if (ri->IsSubKey()) {
        if (StrIsEmpty(name)) {
            SetLastError(ERROR_INVALID_DATA);
            return 0;
        }
        RegKey sub(key, name, 1);
        if (!sub.IsReady())
            return 0;
        return child ? WriteRegKeyFromTree(sub, *static_cast<RegXmlTree*>(child)) : 1;
    }
    if (!name)
        name = L"";
    switch (ri->GetType()) {
    case RegXmlTreeItem::TypeStr: {
        HeapBuf<wchar_t> s((size_t)ri->GetStrLen() + 1);
        if (!s.p || !ri->GetStr(s.p, ri->GetStrLen() + 1)) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return 0;
        }
        return key.PutStr(name, s.p, 1);
    }
    case RegXmlTreeItem::TypeBin: {
        unsigned size = ri->GetBinSize();
        HeapBuf<BYTE> data(size);
        if (!data.p || !ri->GetBin(data.p, size, RegXmlTreeItem::TypeBin)) {
            SetLastError(data.p ? ERROR_INVALID_DATA : ERROR_NOT_ENOUGH_MEMORY);
            return 0;
        }
        return key.PutBin(name, data.p, size, REG_BINARY);
    }
    default:
        return key.PutDword(name, ri->GetDWORD(), 1);
    }
}

// A document whose top level is one "KEY" element stands for the exported key: its contents go
// into key. Anything else is written as it is.
int WriteDocument(RegKey& key, RegXmlTree& tree)
{
    XmlPos head = tree.GetHeadPosition();
    if (tree.GetCount() == 1 && static_cast<RegXmlTreeItem*>(tree.GetAt(head))->IsSubKey()) {
        XmlTree* child = tree.GetChildAt(head);
        return child ? WriteRegKeyFromTree(key, *static_cast<RegXmlTree*>(child)) : 1;
    }
    return WriteRegKeyFromTree(key, tree);
}

} // namespace

int ReadRegKeyToTree(RegKey& key, RegXmlTree& tree, Filter* keyFilter, Filter* valueFilter, int bFilterSubkeys)
{
    HeapBuf<wchar_t> valueName(kMaxValueName);
    if (valueName.p)
        ReadKey(key, tree, keyFilter, valueFilter, bFilterSubkeys, valueName.p);
    return 1;
}

int ReadRegSubKeyToTree(RegKey& key, const wchar_t* subkey, RegXmlTree& tree, Filter* keyFilter,
                        Filter* valueFilter, int bFilterSubkeys)
{
    RegKey sub(key, subkey, RegKey::OpRead);
    if (!sub.IsReady())
        return 0;
    RegXmlTree* child = tree.AddSubTreeItem(subkey);
    return ReadRegKeyToTree(sub, *child, keyFilter, valueFilter, bFilterSubkeys);
}

int WriteRegKeyFromTree(RegKey& key, RegXmlTree& tree)
{
    for (XmlPos pos = tree.GetHeadPosition(); pos; pos = pos->pNext)
        if (!WriteItem(key, pos->pItem, pos->pChild))
            return 0;
    return 1;
}

int WriteRegSubKeyFromTree(RegKey& key, RegXmlTree& tree, XmlPos pos)
{
    if (!pos)
        pos = tree.GetHeadPosition();
    if (!pos) {
        SetLastError(ERROR_INVALID_DATA);
        return 0;
    }
    return WriteItem(key, pos->pItem, pos->pChild);
}

// -------------------------------------------------------------------------------------------------
// Files

int ExportRegKey(HWND owner, HKEY key, const wchar_t* file, int flag)
{
    if (!key) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    RegKey k;
    k.Attach(key);
    RegXmlTree tree;
    tree.silent = flag;
    ReadRegKeyToTree(k, *tree.AddSubTreeItem(L""), nullptr, nullptr, 0);
    k.Detach(); // the caller's handle
    return tree.SaveFile(owner, file);
}

int ExportRegSubKey(HWND owner, const wchar_t* keyPath, const wchar_t* subkey, const wchar_t* file, int flag)
{
    RegXmlTree tree;
    tree.silent = flag;
    RegKey key(keyPath, RegKey::OpRead);
    if (!key.IsReady())
        return 0;
    if (StrIsEmpty(subkey)) // the key itself, named after the last part of its path
        ReadRegKeyToTree(key, *tree.AddSubTreeItem(RegKey::FindLastSubkeyName(keyPath)), nullptr, nullptr, 0);
    else if (!ReadRegSubKeyToTree(key, subkey, tree, nullptr, nullptr, 0))
        return 0;
    return tree.SaveFile(owner, file);
}

int ImportRegKey(HWND owner, HKEY key, const wchar_t* file, int flag, ImportCheck check)
{
    if (!key) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    RegXmlTree tree;
    tree.silent = flag;
    if (!tree.LoadFile(owner, file))
        return 0;
    if (check && !check(tree, owner, file))
        return 0;
    RegKey k;
    k.Attach(key);
    int ok = WriteDocument(k, tree);
    k.Detach(); // the caller's handle
    return ok;
}

int ImportRegSubKey(HWND owner, const wchar_t* keyPath, const wchar_t* subkey, const wchar_t* file, int flag)
{
    RegXmlTree tree;
    tree.silent = flag;
    if (!tree.LoadFile(owner, file))
        return 0;
    RegKey key(keyPath, 1);
    if (!key.IsReady())
        return 0;
    if (StrIsEmpty(subkey))
        return WriteRegKeyFromTree(key, tree);
    RegKey sub(key, subkey, 1);
    return sub.IsReady() ? WriteDocument(sub, tree) : 0;
}
