// RegXmlTree: the value forms of the settings file, the wildcard filters, and whole key trees
// through files: each registry type, only what differs written, nothing deleted.
#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "storage/RegKey.h"
#include "storage/RegXmlTree.h"
#include "support/TestSupport.h"

namespace {

using vxtest::ScopedTempDir;
using vxtest::ScopedTestKey;

typedef std::vector<BYTE> Bytes;
typedef std::pair<DWORD, Bytes> RawValue;

// "Type|Value" of the DATA item of that name, "<none>" without one.
std::wstring DataOf(const RegXmlTree* tree, const wchar_t* name)
{
    const RegXmlTreeItem* item = tree ? tree->FindDataItem(name) : nullptr;
    auto attr = [item](const wchar_t* a) { return std::wstring(item->GetAttribValue(a) ? item->GetAttribValue(a) : L"<null>"); };
    return item ? attr(L"Type") + L"|" + attr(L"Value") : L"<none>";
}

// Type and bytes of a value as the registry holds it; type 0 when it is absent.
RawValue Raw(const std::wstring& sub, const wchar_t* name)
{
    RawValue v;
    return vxtest::RawGet(sub, name, &v.first, &v.second) ? v : RawValue(0, {});
}

Bytes Sz(const std::wstring& s)
{
    const BYTE* p = (const BYTE*)s.c_str();
    return Bytes(p, p + (s.size() + 1) * sizeof(wchar_t));
}

bool ParseInto(RegXmlTree& tree, const std::wstring& text)
{
    const wchar_t* p = text.c_str();
    return (tree.silent = 1) && tree.Get(nullptr, p);
}

std::wstring FileText(const std::wstring& path)
{
    Bytes b;
    if (!vxtest::ReadFileBytes(path, &b) || b.size() < 2 || b[0] != 0xFF || b[1] != 0xFE)
        return L"<not utf-16le with mark>";
    return std::wstring((const wchar_t*)(b.data() + 2), (b.size() - 2) / 2);
}

TEST(RegXmlTreeItem, ValueFormsAndTypeRules)
{
    RegXmlTree tree;
    const BYTE data[] = {0x01, 0xAB, 0x00, 0xF0};
    tree.PutDWORD(L"v", 4294967295u);
    tree.PutBin(L"b", data, 4);
    tree.PutINT16(L"i16", -2);
    tree.PutUINT32(L"u32", 0xFEDCBA98u);
    EXPECT_EQ(DataOf(&tree, L"v") + DataOf(&tree, L"b"), L"REG_DWORD|4294967295REG_BINARY|01AB00F0");
    EXPECT_EQ(DataOf(&tree, L"i16") + DataOf(&tree, L"u32"), L"INT16|FEFFUINT32|98BADCFE"); // least significant first
    EXPECT_EQ(tree.GetDWORD(L"v", 0), 4294967295u);
    EXPECT_EQ(tree.GetUINT32(L"u32", 0), 0xFEDCBA98u);
    EXPECT_EQ(tree.GetINT16(L"i16", 0), -2);
    // Each getter insists on its own type (0, not the default); a missing item gives the default.
    EXPECT_EQ(tree.GetUINT16(L"i16", 9) + tree.GetINT32(L"u32", 9) + tree.GetDWORD(L"b", 9) + tree.GetINT64(L"missing", 9), 9);
    BYTE out[6];
    memset(out, 0xbd, 6);
    EXPECT_EQ(tree.GetBin(L"b", out, 3), 0); // too small
    ASSERT_EQ(tree.GetBin(L"b", out, 4), 1);
    EXPECT_EQ(Bytes(out, out + 6), Bytes({0x01, 0xAB, 0x00, 0xF0, 0xbd, 0xbd}));
    RegXmlTreeItem* v = tree.FindDataItem(L"v");
    v->SetAttrib(L"TYPE", L"reg_dword"); // an unknown type (case matters) counts as REG_DWORD...
    EXPECT_EQ(v->GetType(), 3);
    v->DeleteAttrib(L"Type"); // ...and so does a missing one
    v->SetAttrib(L"Value", L"0000000000000000007");
    EXPECT_EQ(v->GetType() * 10 + v->GetDWORD(), 37u);
    v->SetAttrib(L"Value", L"00000000000000000007"); // 20 characters read as 0
    EXPECT_EQ(v->GetDWORD(), 0u);
}

TEST(RegXmlTreeFilter, WildcardsListsAndExclusion)
{
    const wchar_t* cases[][3] = {{L"Apply", L"ApplyTo", L"0"}, {L"Apply*", L"APPLYTO", L"1"}, {L"*To", L"ApplyTo", L"1"},
                                 {L"*", L"", L"1"}, {L"a*b*c", L"aXcYb", L"0"}, {L"a?c", L"abc", L"0"}, {L"", L"", L"0"},
                                 {L"*ab", L"aaab", L"1"}, {L"\x00e9*", L"\x00c9t\x00e9", L"1"}};
    for (const auto& c : cases)
        EXPECT_EQ(Filter::MatchCore(c[0], c[1]), c[2][0] - L'0') << testing::PrintToString(std::wstring(c[0]));
    // Many stars against a long near-miss: a backtracking matcher would take ages.
    std::wstring name(3000, L'a');
    DWORD start = GetTickCount();
    EXPECT_EQ(Filter::MatchCore(L"*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b", name.c_str()), 0);
    EXPECT_LT(GetTickCount() - start, 2000u);
    Filter f(L"Apply*;Ex*", L"*Temp*", L";");
    EXPECT_EQ(f.Match(L"ApplyTo") + f.Match(L"exclude") * 2 + f.Match(L"Other") * 4, 3);
    EXPECT_EQ(f.Match(L"ApplyTemp"), 0); // exclusion wins
    f.SetSeparator(L",; "); // any of these characters cuts; empty tokens are skipped
    f.SetFilters(L";;a, b ;", L"NULL");
    EXPECT_EQ(f.Match(L"A") + f.Match(L"b") * 2 + f.Match(L"c") * 4 + f.Match(L"null") * 8, 3);
}

TEST(RegXmlTreeRead, FiltersChooseKeysAndValues)
{
    ScopedTestKey key(L"xmlfilter");
    ASSERT_TRUE(vxtest::RawSetStr(key.sub(), L"", L"d"));
    for (const wchar_t* sub : {L"", L"\\ApplyTo", L"\\ApplyTo\\Inner", L"\\Exclude", L"\\Temp"}) {
        ASSERT_TRUE(vxtest::RawSetDword(key.sub() + sub, L"Keep", 1));
        ASSERT_TRUE(vxtest::RawSetDword(key.sub() + sub, L"Drop", 2));
    }
    RegKey rk(key.path().c_str(), RegKey::OpRead);
    Filter noDefault(nullptr, L"NULL"), onlyDefault(L"null"), keys(L"Apply*;Ex*", L"Exclude", L";"), values(L"keep*");
    RegXmlTree t1, t2, top, all;
    ReadRegKeyToTree(rk, t1, nullptr, &noDefault, 0);
    EXPECT_EQ(DataOf(&t1, L"") + DataOf(&t1, L"Drop"), L"<none>REG_DWORD|2");
    ReadRegKeyToTree(rk, t2, nullptr, &onlyDefault, 0);
    EXPECT_EQ(DataOf(&t2, L"") + DataOf(&t2, L"Drop"), L"REG_SZ|d<none>");
    ReadRegKeyToTree(rk, top, &keys, &values, 0); // the first level only
    ReadRegKeyToTree(rk, all, &keys, &values, 1); // every level
    RegXmlTree *a1 = top.FindSubTree(L"ApplyTo"), *a2 = all.FindSubTree(L"ApplyTo");
    ASSERT_NE(a1, nullptr);
    ASSERT_NE(a2, nullptr);
    EXPECT_EQ(top.GetCount() + all.GetCount(), 4u); // "Keep" and "ApplyTo" in each
    EXPECT_EQ(DataOf(&top, L"Keep") + DataOf(a1, L"Drop"), L"REG_DWORD|1REG_DWORD|2"); // below an accepted key all is read
    EXPECT_NE(a1->FindSubTree(L"Inner"), nullptr);
    EXPECT_EQ(DataOf(a2, L"Keep") + DataOf(a2, L"Drop"), L"REG_DWORD|1<none>");
    EXPECT_EQ(a2->FindSubTree(L"Inner"), nullptr);
}

// Each registry type through an exported file into another key: what comes back, converted or not.
TEST(RegXmlTreeFile, RoundTripsEachRegistryType)
{
    ScopedTestKey src(L"xmlsrc"), dst(L"xmldst");
    ScopedTempDir dir;
    const std::wstring s = src.sub(L"K"), file = dir.file(L"Vantrel.cfg");
    const Bytes text = Sz(L"a\"b'<c>&d \x00e9\r\n\t"), s520 = Sz(std::wstring(520, L'm')), bin = {0x00, 0x7F, 0x80, 0xFF};
    struct {
        const wchar_t* name;
        DWORD type;
        Bytes in;
        RawValue out; // type 0: not carried by the file
    } cases[] = {
        {L"", REG_SZ, Sz(L"dflt"), {REG_SZ, Sz(L"dflt")}},
        {L"sz \"&'<>", REG_SZ, text, {REG_SZ, text}},
        {L"sz520", REG_SZ, s520, {REG_SZ, s520}}, // 1042 bytes with its zero
        {L"sz521", REG_SZ, Sz(std::wstring(521, L'l')), {REG_SZ, Sz(L"")}}, // too long: an empty string
        {L"bin", REG_BINARY, bin, {REG_BINARY, bin}},
        {L"bin0", REG_BINARY, {}, {REG_BINARY, {}}},
        {L"dw", REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}, {REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}}},
        {L"be", REG_DWORD_BIG_ENDIAN, {0, 0, 1, 2}, {REG_DWORD, {0, 0, 1, 2}}}, // the bytes as they lie
        {L"multi", REG_MULTI_SZ, Sz(std::wstring(L"ab\0c\0", 5)), {REG_DWORD, {'a', 0, 'b', 0}}},
        {L"link", REG_LINK, {0x10, 0x20}, {REG_DWORD, {0x10, 0x20, 0, 0}}}, // zero-filled
        {L"expand", REG_EXPAND_SZ, Sz(L"%TEMP%"), {0, {}}},
        {L"qword", REG_QWORD, {5, 0, 0, 0, 0, 0, 0, 0}, {0, {}}},
    };
    for (const auto& c : cases)
        ASSERT_TRUE(vxtest::RawSetBin(s, c.name, c.in.data(), (DWORD)c.in.size(), c.type));
    ASSERT_TRUE(vxtest::RawSetDword(s + L"\\Sub\\Deeper", L"x", 1));
    ASSERT_TRUE(vxtest::RawCreateKey(s + L"\\Empty key"));
    RegKey from(src.path(L"K").c_str(), RegKey::OpRead), to(dst.path(L"Copy").c_str(), 1);
    ASSERT_EQ(ExportRegKey(nullptr, from.GetKey(), file.c_str(), 1), 1);
    ASSERT_EQ(ImportRegKey(nullptr, to.GetKey(), file.c_str(), 1), 1);
    for (const auto& c : cases)
        EXPECT_EQ(Raw(dst.sub(L"Copy"), c.name), c.out) << testing::PrintToString(std::wstring(c.name));
    EXPECT_EQ(vxtest::RawCountValues(dst.sub(L"Copy")), 10u);
    EXPECT_EQ(vxtest::RawGetDword(dst.sub(L"Copy\\Sub\\Deeper"), L"x"), 1u);
    EXPECT_TRUE(vxtest::RawKeyExists(dst.sub(L"Copy\\Empty key")));
}

// Trees written straight into a key: element kinds, the deliberate type rules, and a stop at the
// first item that cannot be written.
TEST(RegXmlTreeWrite, ItemsIntoAKeyAndTheFirstFailureStops)
{
    ScopedTestKey key(L"xmlwrite");
    RegXmlTree tree;
    ASSERT_TRUE(ParseInto(tree, L"<DATA Name='b' Type='REG_BINARY' Value='01AB5'/><DATA Name='notype' Value='12'/>"
                                L"<DATA Name='i32' Type='INT32' Value='05000000'/><VALUE Name='other' Type='REG_SZ' Value='x'/>"));
    RegKey rk(key.path().c_str(), 1);
    ASSERT_EQ(WriteRegKeyFromTree(rk, tree), 1);
    EXPECT_EQ(Raw(key.sub(), L"b"), RawValue(REG_BINARY, {0x01, 0xAB})); // the odd digit is lost
    EXPECT_EQ(Raw(key.sub(), L"notype"), RawValue(REG_DWORD, {12, 0, 0, 0}));
    EXPECT_EQ(Raw(key.sub(), L"i32"), RawValue(REG_DWORD, {0, 0, 0, 0})); // fixed-size integers stay in memory
    EXPECT_EQ(Raw(key.sub(), L"other"), RawValue(REG_SZ, Sz(L"x")));
    for (const wchar_t* bad : {L"<KEY Name=''/>", L"<KEY/>", L"<DATA Name='bin' Type='REG_BINARY' Value='0X'/>"}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(bad)));
        ScopedTestKey stop(L"xmlstop");
        RegXmlTree t;
        ASSERT_TRUE(ParseInto(t, std::wstring(L"<DATA Name='before' Value='1'/>") + bad + L"<DATA Name='after'/>"));
        RegKey sk(stop.path().c_str(), 1);
        EXPECT_EQ(WriteRegKeyFromTree(sk, t), 0);
        EXPECT_EQ(vxtest::RawGetDword(stop.sub(), L"before"), 1u); // what was written stays
        EXPECT_FALSE(vxtest::RawValueExists(stop.sub(), L"after"));
    }
}

// Wine skips identical writes by itself, so no time stamp can show a needless write; a
// read-only handle can: it refuses every write that really happens.
TEST(RegXmlTreeFile, ImportWritesOnlyWhatDiffersAndDeletesNothing)
{
    ScopedTestKey key(L"xmlimp");
    ScopedTempDir dir;
    const std::wstring file = dir.file(L"s.cfg"), d = key.sub(L"S");
    const struct {
        const wchar_t* name;
        RawValue was, changed;
    } values[] = {
        {L"", {REG_SZ, Sz(L"dflt")}, {REG_SZ, Sz(L"D")}},
        {L"Bin", {REG_BINARY, {0, 0xAB}}, {REG_BINARY, {0, 0xAC}}},
        {L"Zero", {REG_DWORD, {0, 0, 0, 0}}, {REG_DWORD, {1, 0, 0, 0}}},
    };
    for (const auto& v : values)
        ASSERT_TRUE(vxtest::RawSetBin(d, v.name, v.was.second.data(), (DWORD)v.was.second.size(), v.was.first));
    ASSERT_TRUE(vxtest::RawSetStr(d + L"\\ApplyTo", L"", L"sub"));
    RegKey rw(key.path(L"S").c_str(), 1), ro(key.path(L"S").c_str(), RegKey::OpRead);
    ASSERT_EQ(ExportRegKey(nullptr, ro.GetKey(), file.c_str(), 1), 1);
    ASSERT_TRUE(vxtest::RawSetDword(d, L"Extra", 1));
    ASSERT_TRUE(vxtest::RawSetDword(d + L"\\ApplyTo\\Extra key", L"v", 2));
    EXPECT_EQ(ImportRegKey(nullptr, ro.GetKey(), file.c_str(), 1), 1); // equal values are not written again
    for (const auto& v : values) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(v.name)));
        ASSERT_TRUE(vxtest::RawSetBin(d, v.name, v.changed.second.data(), (DWORD)v.changed.second.size(), v.changed.first));
        SetLastError(0xdeadbeef);
        EXPECT_EQ(ImportRegKey(nullptr, ro.GetKey(), file.c_str(), 1), 0);
        EXPECT_EQ(GetLastError(), (DWORD)ERROR_ACCESS_DENIED);
        EXPECT_EQ(ImportRegKey(nullptr, rw.GetKey(), file.c_str(), 1), 1);
        EXPECT_EQ(Raw(d, v.name), v.was); // changed values go back to the file's
    }
    // Nothing deleted: the value and the key the file does not have are still there.
    EXPECT_EQ(vxtest::RawGetDword(d, L"Extra") + vxtest::RawGetDword(d + L"\\ApplyTo\\Extra key", L"v"), 3u);
}

TEST(RegXmlTreeFile, BadFilesWriteNothing)
{
    ScopedTestKey dst(L"xmlbad");
    ScopedTempDir dir;
    std::wstring file = dir.file(L"bad.cfg"), target = dst.path(L"Target");
    for (const std::string& text : {std::string("<KEY Name=\"S\"><DATA Name=\"v\" Value=\"1\"/>"),
                                    std::string("<KEY Name=\"S\"/><!--"), std::string()}) {
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
}

// The exact text of an export, left for the build's xmllint check (%TEMP%\vantrel-xmllint):
// quotes, ampersands, angle brackets and letters beyond ASCII in names and values.
TEST(RegXmlTreeFile, ExactExportLeftForXmllint)
{
    ScopedTestKey src(L"xmllint");
    const std::wstring s = src.sub(L"Vantrel");
    const BYTE bin[] = {0x01, 0xAB};
    ASSERT_TRUE(vxtest::RawSetStr(s, L"", L"d&<>\"'"));
    ASSERT_TRUE(vxtest::RawSetStr(s, L"Quotes \"&' <>", L"A & B <tag> \x00c5ngstr\x00f6m \x65e5\x672c \x0416"));
    ASSERT_TRUE(vxtest::RawSetDword(s, L"v", 1));
    ASSERT_TRUE(vxtest::RawSetBin(s, L"w", bin, 2));
    ASSERT_TRUE(vxtest::RawCreateKey(s + L"\\Empty \x00e9"));
    wchar_t tmp[MAX_PATH + 1];
    tmp[GetTempPathW(MAX_PATH, tmp)] = 0;
    std::wstring folder = std::wstring(tmp) + L"vantrel-xmllint", file = folder + L"\\regxml-export.xml";
    CreateDirectoryW(folder.c_str(), nullptr);
    ASSERT_EQ(ExportRegSubKey(nullptr, src.path().c_str(), L"Vantrel", file.c_str(), 1), 1);
    EXPECT_EQ(FileText(file), L"<?xml version=\"1.0\"?>\r\n<KEY Name=\"Vantrel\">\r\n\t<KEY Name=\"Empty \x00e9\">\r\n\t</KEY>\r\n"
                              L"\t<DATA Name=\"\" Type=\"REG_SZ\" Value=\"d&amp;&lt;&gt;&quot;&apos;\"/>\r\n"
                              L"\t<DATA Name=\"Quotes &quot;&amp;&apos; &lt;&gt;\" Type=\"REG_SZ\" "
                              L"Value=\"A &amp; B &lt;tag&gt; \x00c5ngstr\x00f6m \x65e5\x672c \x0416\"/>\r\n"
                              L"\t<DATA Name=\"v\" Type=\"REG_DWORD\" Value=\"1\"/>\r\n"
                              L"\t<DATA Name=\"w\" Type=\"REG_BINARY\" Value=\"01AB\"/>\r\n</KEY>\r\n");
}

} // namespace
