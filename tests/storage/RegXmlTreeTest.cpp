// RegXmlTree: the value forms of the settings file, the wildcard filters, reading keys into
// trees, writing trees into keys (only what differs, nothing deleted) and round trips of whole
// key trees through files.
#include <gtest/gtest.h>

#include <windows.h>

#include <map>
#include <string>
#include <vector>

#include "storage/RegKey.h"
#include "storage/RegXmlTree.h"
#include "support/TestSupport.h"

namespace {

using vxtest::ScopedTempDir;
using vxtest::ScopedTestKey;

typedef std::vector<BYTE> Bytes;

// "Type|Value" of the DATA item of that name, "<none>" without one.
std::wstring DataOf(const RegXmlTree* tree, const wchar_t* name)
{
    const RegXmlTreeItem* item = tree ? tree->FindDataItem(name) : nullptr;
    if (!item)
        return L"<none>";
    const wchar_t* t = item->GetAttribValue(L"Type");
    const wchar_t* v = item->GetAttribValue(L"Value");
    return std::wstring(t ? t : L"<null>") + L"|" + (v ? v : L"<null>");
}

// Every key and value below sub (HKCU) by relative path: keys as "path\", values as
// "path|name" with type and bytes. Order-free: Wine enumerates sorted, Windows does not.
typedef std::map<std::wstring, std::pair<DWORD, Bytes>> Snapshot;

void SnapKey(HKEY key, const std::wstring& rel, Snapshot* out)
{
    (*out)[rel + L"\\"] = {};
    wchar_t name[16384];
    for (DWORD i = 0;; ++i) {
        DWORD cch = 16384, type = 0, cb = 0;
        if (RegEnumValueW(key, i, name, &cch, nullptr, &type, nullptr, &cb) != ERROR_SUCCESS)
            break;
        Bytes data(cb + 1);
        RegQueryValueExW(key, name, nullptr, &type, data.data(), &cb);
        data.resize(cb);
        (*out)[rel + L"|" + name] = {type, data};
    }
    for (DWORD i = 0;; ++i) {
        DWORD cch = 256;
        HKEY sub;
        if (RegEnumKeyExW(key, i, name, &cch, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        if (RegOpenKeyExW(key, name, 0, KEY_READ, &sub) == ERROR_SUCCESS) {
            SnapKey(sub, rel + L"\\" + name, out);
            RegCloseKey(sub);
        }
    }
}

Snapshot Snap(const std::wstring& sub)
{
    Snapshot s;
    HKEY key;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, sub.c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS) {
        SnapKey(key, L"", &s);
        RegCloseKey(key);
    }
    return s;
}

bool SetRaw(const std::wstring& sub, const wchar_t* name, DWORD type, const void* data, size_t cb)
{
    return vxtest::RawSetBin(sub, name, data, (DWORD)cb, type);
}

bool ParseInto(RegXmlTree& tree, const std::wstring& text)
{
    tree.silent = 1;
    const wchar_t* p = text.c_str();
    return tree.Get(nullptr, p) != 0;
}

std::wstring FileText(const std::wstring& path)
{
    Bytes b;
    if (!vxtest::ReadFileBytes(path, &b) || b.size() < 2 || b[0] != 0xFF || b[1] != 0xFE)
        return L"<not utf-16le with mark>";
    return std::wstring((const wchar_t*)(b.data() + 2), (b.size() - 2) / 2);
}

TEST(RegXmlTreeItem, DwordsAndTypeNames)
{
    RegXmlTree tree;
    RegXmlTreeItem* item = tree.AddDataItem(L"v");
    item->PutDWORD(4294967295u);
    std::wstring order;
    for (DMPos pos = item->GetListAttr().GetHeadPosition(); pos;)
        order += std::wstring(static_cast<XmlAttrib*>(item->GetListAttr().GetNext(pos))->name) + L",";
    EXPECT_EQ(order, L"Name,Type,Value,");
    EXPECT_EQ(DataOf(&tree, L"v"), L"REG_DWORD|4294967295");
    EXPECT_EQ(item->GetDWORD(), 4294967295u);

    struct {
        const wchar_t* type; // null: no Type attribute
        const wchar_t* value;
        int typeNumber;
        DWORD v;
    } reads[] = {
        {nullptr, L"12", 3, 12},        {L"reg_dword", L"13", 3, 13},                // missing, unknown
        {L"REG_SZ ", L"14", 3, 14},     {L"REG_DWORD", L"4294967296", 3, 4294967295u}, // ends at the limit
        {L"REG_DWORD", L"0000000000000000007", 3, 7}, {L"REG_DWORD", L"00000000000000000007", 3, 0}, // 19, 20
        {L"REG_SZ", L"5", 1, 0},        {L"REG_BINARY", L"05", 2, 0},  {L"INT8", L"05", 4, 0},
        {L"UINT8", L"05", 5, 0},        {L"INT16", L"05", 6, 0},       {L"UINT16", L"05", 7, 0},
        {L"INT32", L"05", 8, 0},        {L"UINT32", L"05", 9, 0},      {L"INT64", L"05", 10, 0},
        {L"UINT64", L"05", 11, 0},
    };
    for (const auto& r : reads) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(r.type ? r.type : L"-")));
        RegXmlTreeItem i(L"DATA", nullptr);
        if (r.type)
            i.SetAttrib(L"TYPE", r.type); // attribute names ignore case
        i.SetAttrib(L"Value", r.value);
        EXPECT_EQ(i.GetType(), r.typeNumber);
        EXPECT_EQ(i.GetDWORD(), r.v);
        if (r.typeNumber != 3) {
            EXPECT_STREQ(RegXmlTreeItem::GetTypeName(r.typeNumber), r.type);
        }
    }
}

TEST(RegXmlTreeItem, BinaryAndFixedSizeIntegers)
{
    RegXmlTree tree;
    RegXmlTreeItem* item = tree.AddDataItem(L"b");
    const BYTE data[] = {0x01, 0xAB, 0x00, 0xF0};
    item->PutBin(data, 4);
    EXPECT_EQ(DataOf(&tree, L"b"), L"REG_BINARY|01AB00F0");
    BYTE out[6];
    memset(out, 0xbd, 6);
    ASSERT_EQ(item->GetBin(out, 4), 1);
    EXPECT_EQ(Bytes(out, out + 6), Bytes({0x01, 0xAB, 0x00, 0xF0, 0xbd, 0xbd}));
    EXPECT_EQ(item->GetBin(out, 3), 0);                          // too small
    EXPECT_EQ(item->GetBin(out, 4, RegXmlTreeItem::TypeStr), 0); // not its type
    struct {
        const wchar_t* value;
        int ok;
        Bytes bytes;
    } reads[] = {{L"01A", 1, {0x01}}, {L"ab0f", 1, {0xAB, 0x0F}}, {L"", 1, {}}, {L"0G", 0, {}}, {L"1 ", 0, {}}};
    for (const auto& r : reads) {
        item->SetAttrib(L"Value", r.value);
        EXPECT_EQ(item->GetBin(out, 6), r.ok) << testing::PrintToString(std::wstring(r.value));
        if (r.ok) {
            EXPECT_EQ(item->GetBinSize(), r.bytes.size());
            EXPECT_EQ(Bytes(out, out + r.bytes.size()), r.bytes);
        }
    }

    tree.AddDataItem(L"i8")->PutINT8(-1);
    tree.AddDataItem(L"u16")->PutUINT16(0x1234);
    tree.AddDataItem(L"i32")->PutINT32(0x12345678);
    tree.AddDataItem(L"u32")->PutUINT32(0xFEDCBA98u);
    tree.AddDataItem(L"i64")->PutINT64(-2);
    tree.AddDataItem(L"u64")->PutUINT64(0x0102030405060708ull);
    EXPECT_EQ(DataOf(&tree, L"i8"), L"INT8|FF");
    EXPECT_EQ(DataOf(&tree, L"u16"), L"UINT16|3412");
    EXPECT_EQ(DataOf(&tree, L"i32"), L"INT32|78563412");
    EXPECT_EQ(DataOf(&tree, L"u32"), L"UINT32|98BADCFE");
    EXPECT_EQ(DataOf(&tree, L"i64"), L"INT64|FEFFFFFFFFFFFFFF");
    EXPECT_EQ(DataOf(&tree, L"u64"), L"UINT64|0807060504030201");
    EXPECT_EQ(tree.GetINT8(L"i8", 0), -1);
    EXPECT_EQ(tree.GetUINT16(L"u16", 0), 0x1234);
    EXPECT_EQ(tree.GetINT32(L"i32", 0), 0x12345678);
    EXPECT_EQ(tree.GetUINT32(L"u32", 0), 0xFEDCBA98u);
    EXPECT_EQ(tree.GetINT64(L"i64", 0), -2);
    EXPECT_EQ(tree.GetUINT64(L"u64", 0), 0x0102030405060708ull);
    // Each getter insists on its own type; a missing item gives the default.
    EXPECT_EQ(tree.GetUINT8(L"i8", 9), 0);
    EXPECT_EQ(tree.GetINT16(L"u16", 9), 0);
    EXPECT_EQ(tree.GetINT32(L"u32", 9), 0);
    EXPECT_EQ(tree.GetDWORD(L"i32", 9), 0u);
    EXPECT_EQ(tree.GetINT64(L"missing", 9), 9);
    tree.FindDataItem(L"u16")->SetAttrib(L"Value", L"341200"); // too long for its type
    EXPECT_EQ(tree.GetUINT16(L"u16", 9), 0);
}

TEST(RegXmlTreeItem, StringsNamesAndLookups)
{
    RegXmlTree tree;
    RegXmlTreeItem* item = tree.AddDataItem(L"name12");
    tree.PutStr(L"name12", L"a&b<c>"); // found, not added
    EXPECT_EQ(tree.GetCount(), 1u);
    EXPECT_EQ(tree.GetStrLen(L"name12"), 6u);
    wchar_t buf[7 + 1];
    wmemset(buf, 0xbdbd, 8);
    EXPECT_EQ(item->GetStr(buf, 7), 1);
    EXPECT_STREQ(buf, L"a&b<c>");
    EXPECT_EQ(buf[7], (wchar_t)0xbdbd);
    EXPECT_EQ(item->GetStr(buf, 6), 0); // needs 7: cut and terminated
    EXPECT_STREQ(buf, L"a&b<c");
    EXPECT_EQ(item->GetItemName(buf, 6), 0);
    EXPECT_STREQ(buf, L"name1");
    EXPECT_EQ(tree.GetStr(L"missing", buf, 7, L"def"), 0);
    EXPECT_STREQ(buf, L"def");
    tree.PutDWORD(L"name12", 5);
    EXPECT_EQ(tree.GetStrLen(L"name12"), 0u);
    EXPECT_EQ(tree.GetStr(L"name12", buf, 7, L"def"), 0); // another type: empty, not the default
    EXPECT_STREQ(buf, L"");
    EXPECT_EQ(tree.GetDWORD(L"NAME12", 7), 7u); // value names are exact

    RegXmlTree* sub = tree.AddSubTreeItem(L"name12"); // a key and a value may share a name
    RegXmlTreeItem* dflt = tree.AddDataItem(nullptr);
    EXPECT_EQ(tree.FindDataItem(L""), dflt);
    EXPECT_EQ(tree.FindDataItem(nullptr), item); // the first of its kind
    EXPECT_EQ(tree.FindSubTree(L"name12"), sub);
    EXPECT_TRUE(tree.FindSubTreeItem(nullptr)->IsSubKey());
    EXPECT_FALSE(item->IsSubKey());
    sub->AddSubTreeItem(L"deeper")->AddDataItem(L"x");
    EXPECT_EQ(tree.DeleteSubTreeItem(L"name12"), 1);
    EXPECT_EQ(tree.FindDataItem(L"name12"), item);
    EXPECT_EQ(tree.DeleteDataItem(L"name12"), 1);
    EXPECT_EQ(tree.DeleteDataItem(L"name12"), 0);
    EXPECT_EQ(tree.GetCount(), 1u);

    // The parser builds registry items and trees at every level.
    RegXmlTree parsed;
    ASSERT_TRUE(ParseInto(parsed, L"<KEY Name='k'><KEY Name='j'><DATA Name='v' Value='3'/></KEY></KEY>"));
    RegXmlTree* j = parsed.FindSubTree(L"k") ? parsed.FindSubTree(L"k")->FindSubTree(L"j") : nullptr;
    ASSERT_NE(j, nullptr);
    EXPECT_NE(dynamic_cast<RegXmlTreeItem*>(j->GetAt(j->GetHeadPosition())), nullptr);
    EXPECT_EQ(j->GetDWORD(L"v", 0), 3u);
}

TEST(RegXmlTreeFilter, WildcardsListsAndExclusion)
{
    struct {
        const wchar_t* pattern;
        const wchar_t* name;
        int match;
    } cases[] = {
        {L"Apply", L"apply", 1},   {L"Apply", L"ApplyTo", 0}, {L"Apply*", L"APPLYTO", 1}, {L"*To", L"ApplyTo", 1},
        {L"*", L"", 1},            {L"a*b*c", L"aXbYc", 1},   {L"a*b*c", L"aXcYb", 0},    {L"a**c", L"ac", 1},
        {L"a?c", L"abc", 0},       {L"", L"", 0},             {L"*a", L"aab", 0},         {L"*ab", L"aaab", 1},
        {L"\x00e9*", L"\x00c9t\x00e9", 1},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Filter::MatchCore(c.pattern, c.name), c.match) << testing::PrintToString(std::wstring(c.pattern)) << " "
                                                                  << testing::PrintToString(std::wstring(c.name));
    EXPECT_EQ(Filter::MatchOkay(L"*x") + Filter::MatchOkay(L"") * 2 + Filter::MatchOkay(L"x*") * 4, 3);
    // Many stars against a long near-miss: a backtracking matcher would take ages.
    std::wstring name(3000, L'a');
    DWORD start = GetTickCount();
    EXPECT_EQ(Filter::MatchCore(L"*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b", name.c_str()), 0);
    EXPECT_LT(GetTickCount() - start, 2000u);

    Filter f(L"Apply*;Ex*", L"*Temp*", L";");
    EXPECT_EQ(f.Match(L"ApplyTo") + f.Match(L"exclude") * 2 + f.Match(L"Other") * 4, 3);
    EXPECT_EQ(f.Match(L"ApplyTemp"), 0); // exclusion wins
    EXPECT_EQ(f.Match(L"") + f.Match(nullptr), 2);
    wchar_t inc[8 + 1], exc[8 + 1];
    wmemset(inc, 0xbdbd, 9);
    f.GetFilters(inc, exc, 8);
    EXPECT_STREQ(inc, L"Apply*;");
    EXPECT_STREQ(exc, L"*Temp*");
    EXPECT_EQ(inc[8], (wchar_t)0xbdbd);
    f.SetSeparator(L",; "); // any of these characters cuts; empty tokens are skipped
    f.SetFilters(L";;a, b ;", nullptr);
    EXPECT_EQ(f.Match(L"A") + f.Match(L"b") * 2 + f.Match(L"c") * 4, 3);
    f.SetSeparator(nullptr); // the whole list is one pattern
    EXPECT_EQ(f.Match(L"a") + f.Match(L";;a, b ;") * 2, 2);
    f.SetSeparator(L";");
    f.SetFilters(L"", L"NULL;Secret"); // only exclusions; an empty list is unset
    EXPECT_EQ(f.Match(L"null") + f.Match(L"Other") * 2, 2);
    EXPECT_EQ(f.IsEmpty(), 0);
    f.Reset();
    EXPECT_EQ(f.IsEmpty(), 1);
    std::wstring list = std::wstring(258, L'x') + L";" + std::wstring(40, L'y') + L";late";
    f.SetFilters(list.c_str(), nullptr); // patterns past 259 characters are not seen
    EXPECT_EQ(f.Match(L"late") + f.Match(std::wstring(258, L'x').c_str()) * 2, 2);
}

TEST(RegXmlTreeRead, EachRegistryTypeHasItsForm)
{
    ScopedTestKey key(L"xmlread");
    const std::wstring& s = key.sub();
    const BYTE bin[] = {0x01, 0xAB}, be[] = {0x00, 0x00, 0x01, 0x02}, link[] = {0x10, 0x20};
    const wchar_t multi[] = L"ab\0c\0", noZero[] = {L'n', L'o', L'z'};
    const ULONGLONG q = 5;
    ASSERT_TRUE(vxtest::RawSetStr(s, L"", L"default"));
    ASSERT_TRUE(vxtest::RawSetStr(s, L"sz", L"a\"b'<c>&d \x00e9"));
    ASSERT_TRUE(vxtest::RawSetStr(s, L"sz520", std::wstring(520, L'm'))); // 1042 bytes with its zero
    ASSERT_TRUE(vxtest::RawSetStr(s, L"sz521", std::wstring(521, L'l'))); // 1044 bytes
    ASSERT_TRUE(SetRaw(s, L"sznozero", REG_SZ, noZero, sizeof(noZero)));
    ASSERT_TRUE(SetRaw(s, L"bin", REG_BINARY, bin, 2));
    ASSERT_TRUE(SetRaw(s, L"bin0", REG_BINARY, nullptr, 0));
    ASSERT_TRUE(vxtest::RawSetDword(s, L"dw", 4294967295u));
    ASSERT_TRUE(SetRaw(s, L"be", REG_DWORD_BIG_ENDIAN, be, 4));
    ASSERT_TRUE(SetRaw(s, L"multi", REG_MULTI_SZ, multi, sizeof(multi)));
    ASSERT_TRUE(SetRaw(s, L"link", REG_LINK, link, 2));
    ASSERT_TRUE(vxtest::RawSetStr(s, L"expand", L"%TEMP%", REG_EXPAND_SZ));
    ASSERT_TRUE(SetRaw(s, L"qword", REG_QWORD, &q, 8));
    ASSERT_TRUE(vxtest::RawSetDword(s + L"\\Sub\\Deeper", L"x", 1));

    RegKey rk(key.path().c_str(), RegKey::OpRead);
    RegXmlTree tree;
    EXPECT_EQ(ReadRegKeyToTree(rk, tree, nullptr, nullptr, 0), 1);
    EXPECT_EQ(DataOf(&tree, L""), L"REG_SZ|default");
    EXPECT_EQ(DataOf(&tree, L"sz"), L"REG_SZ|a\"b'<c>&d \x00e9");
    EXPECT_EQ(DataOf(&tree, L"sz520"), L"REG_SZ|" + std::wstring(520, L'm'));
    EXPECT_EQ(DataOf(&tree, L"sz521"), L"REG_SZ|"); // too long: an empty string
    EXPECT_EQ(DataOf(&tree, L"sznozero"), L"REG_SZ|noz");
    EXPECT_EQ(DataOf(&tree, L"bin"), L"REG_BINARY|01AB");
    EXPECT_EQ(DataOf(&tree, L"bin0"), L"REG_BINARY|");
    EXPECT_EQ(DataOf(&tree, L"dw"), L"REG_DWORD|4294967295");
    EXPECT_EQ(DataOf(&tree, L"be"), L"REG_DWORD|33619968");   // the bytes as they lie: 0x02010000
    EXPECT_EQ(DataOf(&tree, L"multi"), L"REG_DWORD|6422625"); // 'a', 0, 'b', 0
    EXPECT_EQ(DataOf(&tree, L"link"), L"REG_DWORD|8208");     // two bytes, zero-filled
    EXPECT_EQ(DataOf(&tree, L"expand"), L"<none>");           // types the file does not carry
    EXPECT_EQ(DataOf(&tree, L"qword"), L"<none>");
    EXPECT_EQ(tree.GetCount(), 12u); // 11 values and the subkey, which comes first
    EXPECT_TRUE(static_cast<RegXmlTreeItem*>(tree.GetAt(tree.GetHeadPosition()))->IsSubKey());
    RegXmlTree* sub = tree.FindSubTree(L"Sub");
    ASSERT_NE(sub, nullptr);
    EXPECT_EQ(DataOf(sub->FindSubTree(L"Deeper"), L"x"), L"REG_DWORD|1");
    EXPECT_EQ(DataOf(sub, L""), L"<none>"); // no default value, no item

    RegXmlTree one;
    EXPECT_EQ(ReadRegSubKeyToTree(rk, L"Missing", one, nullptr, nullptr, 0), 0);
    EXPECT_EQ(one.GetCount(), 0u);
    EXPECT_EQ(ReadRegSubKeyToTree(rk, L"Sub", one, nullptr, nullptr, 0), 1);
    EXPECT_EQ(one.GetCount(), 1u);
    EXPECT_NE(one.FindSubTree(L"Sub")->FindSubTree(L"Deeper"), nullptr);
}

TEST(RegXmlTreeRead, FiltersChooseKeysAndValues)
{
    ScopedTestKey key(L"xmlfilter");
    const std::wstring& s = key.sub();
    ASSERT_TRUE(vxtest::RawSetStr(s, L"", L"d"));
    ASSERT_TRUE(vxtest::RawSetDword(s, L"Keep1", 1));
    ASSERT_TRUE(vxtest::RawSetDword(s, L"Drop", 3));
    ASSERT_TRUE(vxtest::RawSetDword(s + L"\\ApplyTo", L"Keep3", 4));
    ASSERT_TRUE(vxtest::RawSetDword(s + L"\\ApplyTo", L"Gone", 5));
    ASSERT_TRUE(vxtest::RawSetDword(s + L"\\ApplyTo\\Inner", L"v", 6));
    ASSERT_TRUE(vxtest::RawSetDword(s + L"\\Exclude", L"v", 7));
    ASSERT_TRUE(vxtest::RawSetDword(s + L"\\Temp", L"v", 8));
    RegKey rk(key.path().c_str(), RegKey::OpRead);

    Filter noDefault(nullptr, L"NULL"), onlyDefault(L"null");
    RegXmlTree t1, t2;
    ReadRegKeyToTree(rk, t1, nullptr, &noDefault, 0);
    EXPECT_EQ(DataOf(&t1, L"") + DataOf(&t1, L"Drop"), L"<none>REG_DWORD|3");
    ReadRegKeyToTree(rk, t2, nullptr, &onlyDefault, 0);
    EXPECT_EQ(DataOf(&t2, L"") + DataOf(&t2, L"Drop"), L"REG_SZ|d<none>");

    Filter keys(L"Apply*;Ex*", L"Exclude", L";"), values(L"keep*");
    RegXmlTree top, all;
    ReadRegKeyToTree(rk, top, &keys, &values, 0); // the first level only
    EXPECT_EQ(top.GetCount(), 2u);
    EXPECT_EQ(DataOf(&top, L"Keep1"), L"REG_DWORD|1");
    RegXmlTree* apply = top.FindSubTree(L"ApplyTo");
    ASSERT_NE(apply, nullptr);
    EXPECT_EQ(DataOf(apply, L"Gone"), L"REG_DWORD|5"); // below an accepted key all is read
    EXPECT_NE(apply->FindSubTree(L"Inner"), nullptr);
    ReadRegKeyToTree(rk, all, &keys, &values, 1); // every level
    apply = all.FindSubTree(L"ApplyTo");
    ASSERT_NE(apply, nullptr);
    EXPECT_EQ(DataOf(apply, L"Keep3") + DataOf(apply, L"Gone"), L"REG_DWORD|4<none>");
    EXPECT_EQ(apply->FindSubTree(L"Inner"), nullptr);
}

TEST(RegXmlTreeWrite, WritesEachKindOfItem)
{
    ScopedTestKey key(L"xmlwrite");
    RegXmlTree tree;
    ASSERT_TRUE(ParseInto(tree, L"<DATA Name='' Type='REG_SZ' Value='dflt'/>"
                                L"<DATA Name='s' Type='REG_SZ' Value='a &amp; b'/>"
                                L"<DATA Name='b' Type='REG_BINARY' Value='01AB5'/>"
                                L"<DATA Name='d' Type='REG_DWORD' Value='4294967295'/>"
                                L"<DATA Name='notype' Value='12'/>"
                                L"<DATA Name='i32' Type='INT32' Value='05000000'/>"
                                L"<VALUE Name='other' Type='REG_SZ' Value='any element name'/>"
                                L"<KEY Name='Empty'/>"
                                L"<KEY Name='Sub'><KEY Name='Deeper'><DATA Name='x' Value='1'/></KEY></KEY>"));
    RegKey rk(key.path().c_str(), 1);
    ASSERT_EQ(WriteRegKeyFromTree(rk, tree), 1);
    Snapshot want = {
        {L"\\", {}},
        {L"|", {REG_SZ, Bytes({'d', 0, 'f', 0, 'l', 0, 't', 0, 0, 0})}},
        {L"|s", {REG_SZ, Bytes({'a', 0, ' ', 0, '&', 0, ' ', 0, 'b', 0, 0, 0})}},
        {L"|b", {REG_BINARY, Bytes({0x01, 0xAB})}}, // the odd digit is lost
        {L"|d", {REG_DWORD, Bytes({0xFF, 0xFF, 0xFF, 0xFF})}},
        {L"|notype", {REG_DWORD, Bytes({12, 0, 0, 0})}},
        {L"|i32", {REG_DWORD, Bytes({0, 0, 0, 0})}}, // fixed-size integers stay in memory
        {L"|other", {REG_SZ, Bytes({'a', 0, 'n', 0, 'y', 0, ' ', 0, 'e', 0, 'l', 0, 'e', 0, 'm', 0, 'e', 0, 'n', 0,
                                    't', 0, ' ', 0, 'n', 0, 'a', 0, 'm', 0, 'e', 0, 0, 0})}},
        {L"\\Empty\\", {}},
        {L"\\Sub\\", {}},
        {L"\\Sub\\Deeper\\", {}},
        {L"\\Sub\\Deeper|x", {REG_DWORD, Bytes({1, 0, 0, 0})}},
    };
    EXPECT_EQ(Snap(key.sub()), want);

    RegXmlTree one; // one KEY item by its position
    ASSERT_TRUE(ParseInto(one, L"<KEY Name='A'><DATA Name='v' Value='1'/></KEY><KEY Name='B'/>"));
    EXPECT_EQ(WriteRegSubKeyFromTree(rk, one, one.GetHeadPosition()->pNext), 1);
    EXPECT_TRUE(vxtest::RawKeyExists(key.sub(L"B")));
    EXPECT_FALSE(vxtest::RawKeyExists(key.sub(L"A")));
    EXPECT_EQ(WriteRegSubKeyFromTree(rk, one, nullptr), 1);
    EXPECT_EQ(vxtest::RawGetDword(key.sub(L"A"), L"v"), 1u);
}

// Wine skips identical writes by itself, so no time stamp can show a needless write; a
// read-only handle can: it refuses every write that really happens.
TEST(RegXmlTreeWrite, EqualValuesAreNotWrittenAgainAndNothingIsDeleted)
{
    ScopedTestKey key(L"xmlsame");
    const std::wstring& s = key.sub();
    ASSERT_TRUE(vxtest::RawSetDword(s, L"stays", 77));
    ASSERT_TRUE(vxtest::RawSetDword(s + L"\\Sub", L"stays", 78));
    RegXmlTree tree, sub;
    ASSERT_TRUE(ParseInto(tree, L"<DATA Name='' Type='REG_SZ' Value='default'/>"
                                L"<DATA Name='e' Type='REG_SZ' Value=''/>"
                                L"<DATA Name='b' Type='REG_BINARY' Value='0102'/>"
                                L"<DATA Name='b0' Type='REG_BINARY' Value=''/>"
                                L"<DATA Name='d' Type='REG_DWORD' Value='0'/>"
                                L"<DATA Name='notype' Value='7'/>"
                                L"<DATA Name='int' Type='UINT8' Value='07'/>"));
    ASSERT_TRUE(ParseInto(sub, L"<KEY Name='Sub'><DATA Name='v' Type='REG_SZ' Value='y'/></KEY>"));
    {
        RegKey rw(key.path().c_str(), 1);
        ASSERT_EQ(WriteRegKeyFromTree(rw, tree), 1);
        ASSERT_EQ(WriteRegKeyFromTree(rw, sub), 1);
    }
    EXPECT_EQ(vxtest::RawCountValues(s), 8u);      // "stays" too: nothing deleted
    EXPECT_EQ(vxtest::RawCountValues(s + L"\\Sub"), 2u);
    EXPECT_EQ(vxtest::RawGetDword(s, L"d", 5), 0u); // a DWORD 0 is written, not deleted
    Snapshot first = Snap(s);

    RegKey ro(key.path().c_str(), RegKey::OpRead);
    EXPECT_EQ(WriteRegKeyFromTree(ro, tree), 1);
    struct {
        const wchar_t* name;
        DWORD type;
        Bytes bytes;
    } changes[] = {
        {L"", REG_SZ, {'D', 0, 0, 0}},       {L"e", REG_SZ, {'1', 0, 0, 0}},       {L"b", REG_BINARY, {1, 3}},
        {L"b0", REG_BINARY, {0}},            {L"d", REG_DWORD, {1, 0, 0, 0}},      {L"notype", REG_DWORD, {8, 0, 0, 0}},
        {L"int", REG_DWORD, {7, 0, 0, 0}},
    };
    for (const auto& c : changes) { // each change is a real write, which the handle refuses
        SCOPED_TRACE(testing::PrintToString(std::wstring(c.name)));
        ASSERT_TRUE(SetRaw(s, c.name, c.type, c.bytes.data(), c.bytes.size()));
        SetLastError(0xdeadbeef);
        EXPECT_EQ(WriteRegKeyFromTree(ro, tree), 0);
        EXPECT_EQ(GetLastError(), (DWORD)ERROR_ACCESS_DENIED);
        RegKey rw(key.path().c_str(), 1);
        EXPECT_EQ(WriteRegKeyFromTree(rw, tree), 1);
        EXPECT_EQ(Snap(s), first);
    }
}

TEST(RegXmlTreeWrite, StopsAtTheFirstItemThatCannotBeWritten)
{
    for (const wchar_t* bad : {L"<KEY Name=''/>", L"<KEY/>", L"<DATA Name='bin' Type='REG_BINARY' Value='0X'/>"}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(bad)));
        ScopedTestKey key(L"xmlstop");
        RegXmlTree tree;
        ASSERT_TRUE(ParseInto(tree, std::wstring(L"<DATA Name='before' Value='1'/>") + bad + L"<DATA Name='after'/>"));
        RegKey rk(key.path().c_str(), 1);
        EXPECT_EQ(WriteRegKeyFromTree(rk, tree), 0);
        EXPECT_EQ(vxtest::RawGetDword(key.sub(), L"before"), 1u); // what was written stays
        EXPECT_FALSE(vxtest::RawValueExists(key.sub(), L"after"));
    }
}

// Values of every type the file carries, with the characters the writer must escape.
void FillSample(const std::wstring& s)
{
    const BYTE bin[] = {0x00, 0x01, 0x7F, 0x80, 0xAB, 0xFF};
    ASSERT_TRUE(vxtest::RawSetStr(s, L"", L"root default"));
    ASSERT_TRUE(vxtest::RawSetStr(s, L"Quotes \"&' <>", L"He said \"A & B\" <not a tag> it's"));
    ASSERT_TRUE(vxtest::RawSetStr(s, L"Unicode", L"\x00c5ngstr\x00f6m \x65e5\x672c\x8a9e \x0416"));
    ASSERT_TRUE(vxtest::RawSetStr(s, L"Empty", L""));
    ASSERT_TRUE(vxtest::RawSetStr(s, L"Lines", L"one\r\ntwo\tthree"));
    ASSERT_TRUE(vxtest::RawSetStr(s, L"Max", std::wstring(520, L'z')));
    ASSERT_TRUE(vxtest::RawSetDword(s, L"Zero", 0));
    ASSERT_TRUE(vxtest::RawSetDword(s, L"Max32", 4294967295u));
    ASSERT_TRUE(SetRaw(s, L"Bin", REG_BINARY, bin, sizeof(bin)));
    ASSERT_TRUE(SetRaw(s, L"Bin0", REG_BINARY, nullptr, 0));
    ASSERT_TRUE(vxtest::RawCreateKey(s + L"\\Empty key"));
    ASSERT_TRUE(vxtest::RawSetDword(s + L"\\ApplyTo", L"S-1-5-32-545", 1));
    ASSERT_TRUE(vxtest::RawSetStr(s + L"\\ApplyTo", L"", L"sub default"));
    ASSERT_TRUE(vxtest::RawSetStr(s + L"\\ApplyTo\\Deeper \x00e9<&>", L"v", L"deep"));
    std::wstring deep = s + L"\\Exclude";
    for (int i = 0; i < 40; ++i, deep += L"\\L")
        ASSERT_TRUE(vxtest::RawSetDword(deep, L"level", (DWORD)i));
}

TEST(RegXmlTreeFile, ExactBytesOfAnExport)
{
    ScopedTestKey key(L"xmlexact");
    ScopedTempDir dir;
    const std::wstring s = key.sub(L"Exp");
    ASSERT_TRUE(vxtest::RawSetStr(s, L"", L"d&<>\""));
    ASSERT_TRUE(vxtest::RawSetDword(s, L"v", 1));
    ASSERT_TRUE(vxtest::RawCreateKey(s + L"\\Empty"));
    std::wstring file = dir.file(L"exp.cfg");
    ASSERT_EQ(ExportRegSubKey(nullptr, key.path().c_str(), L"Exp", file.c_str(), 1), 1);
    EXPECT_EQ(FileText(file), L"<?xml version=\"1.0\"?>\r\n"
                              L"<KEY Name=\"Exp\">\r\n"
                              L"\t<KEY Name=\"Empty\">\r\n"
                              L"\t</KEY>\r\n"
                              L"\t<DATA Name=\"\" Type=\"REG_SZ\" Value=\"d&amp;&lt;&gt;&quot;\"/>\r\n"
                              L"\t<DATA Name=\"v\" Type=\"REG_DWORD\" Value=\"1\"/>\r\n"
                              L"</KEY>\r\n");
}

TEST(RegXmlTreeFile, RoundTripsIntoOtherKeys)
{
    ScopedTestKey src(L"xmlsrc"), dst(L"xmldst");
    ScopedTempDir dir;
    FillSample(src.sub(L"Settings"));
    Snapshot want = Snap(src.sub(L"Settings"));
    ASSERT_GT(want.size(), 60u);
    std::wstring file = dir.file(L"Vantrel.cfg"), file2 = dir.file(L"open.cfg"), file3 = dir.file(L"self.cfg");
    ASSERT_EQ(ExportRegSubKey(nullptr, src.path().c_str(), L"Settings", file.c_str(), 1), 1);
    ASSERT_EQ(ImportRegSubKey(nullptr, dst.path().c_str(), L"Copy", file.c_str(), 1), 1);
    EXPECT_EQ(Snap(dst.sub(L"Copy")), want);
    ASSERT_EQ(ImportRegSubKey(nullptr, dst.path().c_str(), nullptr, file.c_str(), 1), 1); // by the file's name
    EXPECT_EQ(Snap(dst.sub(L"Settings")), want);

    // Open keys on both sides; the callers' handles stay theirs and open.
    HKEY from = nullptr, to = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, src.sub(L"Settings").c_str(), 0, KEY_READ, &from), ERROR_SUCCESS);
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, dst.sub(L"Open").c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &to, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(ExportRegKey(nullptr, from, file2.c_str(), 1), 1);
    EXPECT_EQ(ImportRegKey(nullptr, to, file2.c_str(), 1), 1);
    EXPECT_EQ(Snap(dst.sub(L"Open")), want);
    EXPECT_EQ(FileText(file2).substr(0, 38), L"<?xml version=\"1.0\"?>\r\n<KEY Name=\"\">\r\n");
    DWORD values = 0;
    EXPECT_EQ(RegQueryInfoKeyW(from, 0, 0, 0, 0, 0, 0, &values, 0, 0, 0, 0), ERROR_SUCCESS);
    EXPECT_EQ(RegQueryInfoKeyW(to, 0, 0, 0, 0, 0, 0, &values, 0, 0, 0, 0), ERROR_SUCCESS);
    RegCloseKey(from);
    RegCloseKey(to);

    // The key itself by its path is named after its last part.
    ASSERT_EQ(ExportRegSubKey(nullptr, src.path(L"Settings").c_str(), nullptr, file3.c_str(), 1), 1);
    EXPECT_EQ(FileText(file3).substr(0, 46), L"<?xml version=\"1.0\"?>\r\n<KEY Name=\"Settings\">\r\n");

    // Types the file does not carry come back converted or not at all.
    const BYTE be[] = {0x00, 0x00, 0x01, 0x02};
    ASSERT_TRUE(SetRaw(src.sub(L"K"), L"be", REG_DWORD_BIG_ENDIAN, be, 4));
    ASSERT_TRUE(vxtest::RawSetStr(src.sub(L"K"), L"expand", L"%TEMP%", REG_EXPAND_SZ));
    ASSERT_TRUE(vxtest::RawSetStr(src.sub(L"K"), L"long", std::wstring(600, L'q')));
    ASSERT_EQ(ExportRegSubKey(nullptr, src.path().c_str(), L"K", file.c_str(), 1), 1);
    ASSERT_EQ(ImportRegSubKey(nullptr, dst.path().c_str(), L"K", file.c_str(), 1), 1);
    Snapshot conv = {
        {L"\\", {}}, {L"|be", {REG_DWORD, Bytes(be, be + 4)}}, {L"|long", {REG_SZ, Bytes({0, 0})}}};
    EXPECT_EQ(Snap(dst.sub(L"K")), conv);
}

TEST(RegXmlTreeFile, ImportWritesOnlyWhatDiffersAndDeletesNothing)
{
    ScopedTestKey src(L"xmlimp"), dst(L"xmlimpdst");
    ScopedTempDir dir;
    FillSample(src.sub(L"S"));
    std::wstring file = dir.file(L"s.cfg");
    ASSERT_EQ(ExportRegSubKey(nullptr, src.path().c_str(), L"S", file.c_str(), 1), 1);
    ASSERT_EQ(ImportRegSubKey(nullptr, dst.path().c_str(), L"S", file.c_str(), 1), 1);
    const std::wstring d = dst.sub(L"S");
    // The same file again writes nothing: a read-only handle lets it through.
    HKEY ro = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, d.c_str(), 0, KEY_READ, &ro), ERROR_SUCCESS);
    EXPECT_EQ(ImportRegKey(nullptr, ro, file.c_str(), 1), 1);
    ASSERT_TRUE(vxtest::RawSetDword(d, L"Zero", 1));
    EXPECT_EQ(ImportRegKey(nullptr, ro, file.c_str(), 1), 0);
    RegCloseKey(ro);

    // Extra values and keys stay; changed values go back to the file's.
    ASSERT_TRUE(vxtest::RawSetDword(d, L"Extra", 1));
    ASSERT_TRUE(vxtest::RawSetDword(d + L"\\ApplyTo\\Extra key", L"v", 2));
    ASSERT_TRUE(vxtest::RawSetStr(d, L"Unicode", L"changed"));
    ASSERT_EQ(ImportRegSubKey(nullptr, dst.path().c_str(), L"S", file.c_str(), 1), 1);
    Snapshot got = Snap(d);
    EXPECT_EQ(got.erase(L"|Extra") + got.erase(L"\\ApplyTo\\Extra key\\") + got.erase(L"\\ApplyTo\\Extra key|v"), 3u);
    EXPECT_EQ(got, Snap(src.sub(L"S")));
}

TEST(RegXmlTreeFile, BadFilesWriteNothing)
{
    ScopedTestKey dst(L"xmlbad");
    ScopedTempDir dir;
    std::wstring file = dir.file(L"bad.cfg"), target = dst.path(L"Target");
    std::string deep;
    for (int i = 0; i < 100000; ++i)
        deep += "<KEY Name=\"k\">";
    for (const std::string& text : {std::string("<KEY Name=\"S\"><DATA Name=\"v\" Value=\"1\"/>"),
                                    std::string("<KEY Name=\"S\"/><!--"), std::string(), std::string("[S]\r\nA=5\r\n"), deep}) {
        SCOPED_TRACE(text.substr(0, 40));
        ASSERT_TRUE(vxtest::WriteFileBytes(file, text.data(), text.size()));
        SetLastError(0xdeadbeef);
        EXPECT_EQ(ImportRegSubKey(nullptr, target.c_str(), L"S", file.c_str(), 1), 0);
        EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_DATA);
        EXPECT_FALSE(vxtest::RawKeyExists(dst.sub(L"Target"))); // parsed before anything is created
    }
    SetLastError(0xdeadbeef);
    EXPECT_EQ(ImportRegSubKey(nullptr, target.c_str(), L"S", dir.file(L"missing.cfg").c_str(), 1), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_FILE_NOT_FOUND);
    std::wstring out = dir.file(L"none.cfg");
    EXPECT_EQ(ExportRegSubKey(nullptr, dst.path().c_str(), L"Missing", out.c_str(), 1), 0);
    EXPECT_EQ(GetFileAttributesW(out.c_str()), INVALID_FILE_ATTRIBUTES); // no file for a missing key
}

// Leaves an exported settings file for the build's xmllint check (%TEMP%\vantrel-xmllint).
TEST(RegXmlTreeFile, LeavesAnExportForXmllint)
{
    ScopedTestKey src(L"xmllint");
    FillSample(src.sub(L"Vantrel"));
    wchar_t tmp[MAX_PATH + 1];
    tmp[GetTempPathW(MAX_PATH, tmp)] = 0;
    std::wstring folder = std::wstring(tmp) + L"vantrel-xmllint", file = folder + L"\\regxml-export.xml";
    CreateDirectoryW(folder.c_str(), nullptr);
    ASSERT_EQ(ExportRegSubKey(nullptr, src.path().c_str(), L"Vantrel", file.c_str(), 1), 1);
    RegXmlTree back;
    back.silent = 1;
    ASSERT_EQ(back.LoadFile(nullptr, file.c_str()), 1);
    RegXmlTree* root = back.FindSubTree(L"Vantrel");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(DataOf(root, L"Quotes \"&' <>"), L"REG_SZ|He said \"A & B\" <not a tag> it's");
    EXPECT_EQ(DataOf(root, L"Unicode"), L"REG_SZ|\x00c5ngstr\x00f6m \x65e5\x672c\x8a9e \x0416");
}

} // namespace
