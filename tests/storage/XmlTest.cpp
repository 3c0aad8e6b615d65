// Settings files: the XML tree's parser and writer (random input is the native fuzzers' job), and
// registry keys through files.
#include <gtest/gtest.h>

#include <climits>

#include "storage/RegKey.h"
#include "storage/RegXmlTree.h"
#include "storage/XmlTree.h"
#include "support/TestSupport.h"

namespace {
int Parse(XmlTree& tree, const std::wstring& text)
{
    tree.silent = 1;
    const wchar_t* p = text.c_str();
    return tree.Get(nullptr, p);
}

// Renders as callers do: a counting pass, then a writing pass that must agree with it.
std::wstring Render(XmlTree& tree)
{
    wchar_t* none = nullptr;
    unsigned n = tree.Put(none);
    std::vector<wchar_t> buf(n + 2, (wchar_t)0xbdbd);
    wchar_t* out = buf.data();
    EXPECT_EQ(tree.Put(out), n);
    EXPECT_TRUE(out == buf.data() + n && buf[n - 1] == 0 && buf[n] == (wchar_t)0xbdbd) << "the zero counted and written, nothing past it";
    return std::wstring(buf.data(), n - 1);
}

// The build's xmllint check reads every file left in %TEMP%\vantrel-xmllint.
std::wstring XmllintFile(const wchar_t* name)
{
    wchar_t tmp[MAX_PATH + 1];
    tmp[GetTempPathW(MAX_PATH, tmp)] = 0;
    return CreateDirectoryW((tmp + std::wstring(L"vantrel-xmllint")).c_str(), nullptr), tmp + std::wstring(L"vantrel-xmllint\\") + name;
}

// Each error ends the parse with its number, the line counter and up to 20 characters.
TEST(XmlTreeParse, ErrorNumberLineAndContext)
{
    const struct { const wchar_t *text; int id; unsigned line; const wchar_t* context; } cases[] = {
        {L"<a>\r\n<!-- open\r\nmore\n", 21902, 2, L"<!-- open\r\nmore\n"}, {L"<a/>\n\nrest", 21903, 3, L"rest"},
        {L"<a>text<b/></a>", 21904, 1, L"b/></a>"}, {L"<a>\n<b/>\n</c>", 21904, 3, L"c>"}, {L"<a\n b\n c='1'/>", 21906, 3, L"c='1'/>"},
        {L"<a b=1/>", 21907, 1, L"1/>"}, {L"<a b='1\"/>", 21908, 1, L"'1\"/>"}, {L"<a b=\"1234567890123456789012345", 21908, 1, L"\"1234567890123456789"},
        {L"<a>\n  text without end", 21909, 2, L"text without end"}, {L"\xFEFF \r\n", 21910, 2, L""}, {L"</a>", 21910, 1, L""}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(c.text)));
        XmlTree tree;
        EXPECT_EQ(Parse(tree, c.text), 0);
        EXPECT_EQ(tree.GetErrorId() * 100 + tree.GetErrorLine(), c.id * 100 + c.line) << "error number and line";
        EXPECT_STREQ(tree.GetErrorContext(), c.context);
    }
    XmlTree tree;
    wchar_t msg[256];
    EXPECT_EQ(Parse(tree, L"<a>\r\n\t<b x='1'/>\r\n<!-- open\r\nmore text and more"), 0);
    EXPECT_EQ(tree.FormatError(msg, 256), 77u);
    EXPECT_EQ(msg + std::to_wstring(tree.FindSubTree(L"a") != nullptr), L"Error parsing XML document in line 3:\n\nUnclosed comment: <!-- open\r\nmore text1");
}

// What the parser builds (entities decoded once, any case), shown through the writer's escaping.
TEST(XmlTreeParse, DocumentsComeBackInTheWritersForm)
{
    const wchar_t* cases[][2] = {{L"\xFEFF  <a></a>", L"\r\n<a/>\r\n"}, // starts with its root: an empty first line
        {L"<r a=\"1\" B = '2' m=\"x\ny\" q=\"&quot;&QUOT;&apos;&lt;&gt;\" amp=\"&amp;lt;\" e=''/>",
         L"\r\n<r a=\"1\" B=\"2\" m=\"x\ny\" q=\"&quot;&quot;&apos;&lt;&gt;\" amp=\"&amp;lt;\" e=\"\"/>\r\n"},
        {L"<a>  x &LT; y &amp; &quot;z&apos;&gt;  </a>", L"\r\n<a>x &lt; y &amp; &quot;z&apos;&gt;  </a>\r\n"},
        {L"<a>\r\n\t<!-- dropped -->  kept  \r\n</a  >", L"\r\n<a>kept  \r\n</a>\r\n"},
        {L"<?xml?>\n<a><b\n/><!-- c --><  e  /  ><c>t</c><h></h></a>\n<z/>",
         L"<?xml?>\r\n<a>\r\n\t<b/>\r\n\t<e/>\r\n\t<c>t</c>\r\n\t<h/>\r\n</a>\r\n<z/>\r\n"},
        {L"<?xml?>\n<!-- one\ntwo --><a/>", L"<?xml?>\r\n<a/>\r\n"}}; // a comment is never cut in two
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(c[0])));
        XmlTree tree, again;
        ASSERT_EQ(Parse(tree, c[0]), 1) << tree.GetErrorId();
        std::wstring once = Render(tree);
        EXPECT_EQ(once, c[1]);
        ASSERT_EQ(Parse(again, once), 1);
        EXPECT_EQ(Render(again), once);
    }
}

// Saved as marked UTF-16 (and left for the xmllint check); hand-edited UTF-8 files load.
TEST(XmlTreeFile, SavedAsUtf16LeftForXmllintAndUtf8Loads)
{
    const std::wstring file = XmllintFile(L"xmltree-writer.xml");
    XmlTree tree;
    ASSERT_EQ(Parse(tree, L"<?xml version=\"1.0\"?>\n<s t=\"&quot;Q&quot; &amp; &apos;a&apos; &lt;b&gt; \x00c5\x65e5\"><x>a &lt; b &amp;&amp; c &gt; \x0416</x><e/></s>"), 1);
    ASSERT_EQ(tree.SaveFile(nullptr, file.c_str()), 1);
    std::vector<BYTE> bytes;
    ASSERT_TRUE(vxtest::ReadFileBytes(file, &bytes));
    EXPECT_EQ(std::wstring((const wchar_t*)bytes.data(), bytes.size() / 2), L"\xFEFF" + Render(tree)) << "the text with a mark, no zero";
    vxtest::ScopedTempDir temp;
    const std::string utf8 = "\xEF\xBB\xBF<r v=\"\xC3\xA9\xE4\xB8\xAD&amp;\"/>";
    for (size_t skip : {0, 3}) {
        ASSERT_TRUE(vxtest::WriteFileBytes(temp.file(L"u8.xml"), utf8.data() + skip, utf8.size() - skip));
        XmlTree back;
        ASSERT_EQ((back.silent = 1) && back.LoadFile(nullptr, temp.file(L"u8.xml").c_str()), 1) << back.GetErrorId();
        EXPECT_STREQ(back.FindItem(L"r")->GetAttribValue(L"v"), L"\x00e9\x4e2d&");
    }
}

// A past stack overflow: nesting stops past the limit; deep trees render and go without recursion.
TEST(XmlTreeHostile, DeepNestingStopsAtTheLimitWithoutRecursion)
{
    std::wstring text, ok;
    for (unsigned i = 0; i < 100000; ++i)
        text += L"<a>\n", ok = i < XmlTree::nMaxDepth ? L"<a>" + ok + L"</a>" : ok;
    XmlTree tree, full, deep;
    EXPECT_EQ(Parse(tree, text), 0);
    EXPECT_EQ(tree.GetErrorId() * 1000 + tree.GetErrorLine(), 21903000 + XmlTree::nMaxDepth + 1) << "error number and line";
    ASSERT_EQ(Parse(full, ok), 1) << "exactly at the limit: " << full.GetErrorId();
    XmlTree* t = &deep;
    for (int i = 0; i < 200000; ++i)
        t = t->AddSubTree(t->AddItem(L"a", nullptr));
    wchar_t* none = nullptr;
    EXPECT_EQ(deep.Put(none), UINT_MAX);
}

using namespace vxtest;
typedef std::vector<BYTE> Bytes;
typedef std::pair<DWORD, Bytes> RawValue;

RawValue Raw(const std::wstring& sub, const wchar_t* name) // type 0: absent
{
    RawValue v;
    return RawGet(sub, name, &v.first, &v.second) ? v : RawValue(0, {});
}

Bytes Sz(const std::wstring& s) { return Bytes((const BYTE*)s.c_str(), (const BYTE*)(s.c_str() + s.size() + 1)); }

// Each registry type through a file (left for the xmllint check), and the file's exact text.
TEST(RegXmlTreeFile, RoundTripsEachRegistryType)
{
    ScopedTestKey src(L"xmlsrc"), dst(L"xmldst");
    const std::wstring s = src.sub(L"K"), file = XmllintFile(L"regxml-export.xml");
    const Bytes text = Sz(L"a\"b'<c>&d \x00e9\r\n\t"), s520 = Sz(std::wstring(520, L'm')), bin = {0x00, 0x7F, 0x80, 0xFF};
    const struct { const wchar_t* name; DWORD type; Bytes in; RawValue out; } cases[] = { // out type 0: not carried
        {L"", REG_SZ, Sz(L"dflt"), {REG_SZ, Sz(L"dflt")}}, {L"sz \"&'<>", REG_SZ, text, {REG_SZ, text}},
        {L"sz520", REG_SZ, s520, {REG_SZ, s520}}, {L"sz521", REG_SZ, Sz(std::wstring(521, L'l')), {REG_SZ, Sz(L"")}}, // too long: empty
        {L"bin", REG_BINARY, bin, {REG_BINARY, bin}}, {L"bin0", REG_BINARY, {}, {REG_BINARY, {}}},
        {L"dw", REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}, {REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}}}, {L"be", REG_DWORD_BIG_ENDIAN, {0, 0, 1, 2}, {REG_DWORD, {0, 0, 1, 2}}},
        {L"multi", REG_MULTI_SZ, Sz(std::wstring(L"ab\0c\0", 5)), {REG_DWORD, {'a', 0, 'b', 0}}}, {L"link", REG_LINK, {0x10, 0x20}, {REG_DWORD, {0x10, 0x20, 0, 0}}},
        {L"expand", REG_EXPAND_SZ, Sz(L"%TEMP%"), {0, {}}}, {L"qword", REG_QWORD, {5, 0, 0, 0, 0, 0, 0, 0}, {0, {}}}};
    for (const auto& c : cases)
        ASSERT_TRUE(RawSetBin(s, c.name, c.in.data(), (DWORD)c.in.size(), c.type));
    ASSERT_TRUE(RawSetDword(s + L"\\Sub\\Deeper", L"x", 1) && RawCreateKey(s + L"\\Empty key"));
    RegKey from(src.path(L"K").c_str(), RegKey::OpRead), to(dst.path(L"Copy").c_str(), 1);
    ASSERT_EQ(ExportRegKey(nullptr, from.GetKey(), file.c_str(), 1), 1);
    ASSERT_EQ(ImportRegKey(nullptr, to.GetKey(), file.c_str(), 1), 1);
    for (const auto& c : cases)
        EXPECT_EQ(Raw(dst.sub(L"Copy"), c.name), c.out) << testing::PrintToString(std::wstring(c.name));
    EXPECT_EQ(RawCountValues(dst.sub(L"Copy")) + RawGetDword(dst.sub(L"Copy\\Sub\\Deeper"), L"x"), 11u) << "ten values, deep keys";
    EXPECT_TRUE(RawKeyExists(dst.sub(L"Copy\\Empty key")));
    Bytes b;
    ASSERT_TRUE(ReadFileBytes(file, &b));
    EXPECT_EQ(std::wstring((const wchar_t*)b.data(), b.size() / 2),
              L"\xFEFF<?xml version=\"1.0\"?>\r\n<KEY Name=\"\">\r\n\t<KEY Name=\"Empty key\">\r\n\t</KEY>\r\n\t<KEY Name=\"Sub\">\r\n\t\t<KEY Name=\"Deeper\">\r\n"
              L"\t\t\t<DATA Name=\"x\" Type=\"REG_DWORD\" Value=\"1\"/>\r\n\t\t</KEY>\r\n\t</KEY>\r\n\t<DATA Name=\"\" Type=\"REG_SZ\" Value=\"dflt\"/>\r\n"
              L"\t<DATA Name=\"be\" Type=\"REG_DWORD\" Value=\"33619968\"/>\r\n\t<DATA Name=\"bin\" Type=\"REG_BINARY\" Value=\"007F80FF\"/>\r\n"
              L"\t<DATA Name=\"bin0\" Type=\"REG_BINARY\" Value=\"\"/>\r\n\t<DATA Name=\"dw\" Type=\"REG_DWORD\" Value=\"4294967295\"/>\r\n"
              L"\t<DATA Name=\"link\" Type=\"REG_DWORD\" Value=\"8208\"/>\r\n\t<DATA Name=\"multi\" Type=\"REG_DWORD\" Value=\"6422625\"/>\r\n"
              L"\t<DATA Name=\"sz &quot;&amp;&apos;&lt;&gt;\" Type=\"REG_SZ\" Value=\"a&quot;b&apos;&lt;c&gt;&amp;d \x00e9\r\n\t\"/>\r\n"
              L"\t<DATA Name=\"sz520\" Type=\"REG_SZ\" Value=\"" + std::wstring(520, L'm') + L"\"/>\r\n\t<DATA Name=\"sz521\" Type=\"REG_SZ\" Value=\"\"/>\r\n</KEY>\r\n");
}

// Wine skips identical writes by itself; a read-only handle shows a needless write: it refuses it.
TEST(RegXmlTreeFile, ImportWritesOnlyWhatDiffersAndDeletesNothing)
{
    ScopedTestKey key(L"xmlimp");
    ScopedTempDir dir;
    const std::wstring file = dir.file(L"s.cfg"), d = key.sub(L"S");
    const struct { const wchar_t* name; RawValue was, changed; } values[] = {{L"", {REG_SZ, Sz(L"dflt")}, {REG_SZ, Sz(L"D")}},
        {L"Bin", {REG_BINARY, {0, 0xAB}}, {REG_BINARY, {0, 0xAC}}}, {L"Zero", {REG_DWORD, {0, 0, 0, 0}}, {REG_DWORD, {1, 0, 0, 0}}}};
    for (const auto& v : values)
        ASSERT_TRUE(RawSetBin(d, v.name, v.was.second.data(), (DWORD)v.was.second.size(), v.was.first));
    RegKey rw(key.path(L"S").c_str(), 1), ro(key.path(L"S").c_str(), RegKey::OpRead);
    ASSERT_EQ(ExportRegKey(nullptr, ro.GetKey(), file.c_str(), 1), 1);
    ASSERT_TRUE(RawSetDword(d, L"Extra", 1) && RawSetDword(d + L"\\Extra key", L"v", 2));
    EXPECT_EQ(ImportRegKey(nullptr, ro.GetKey(), file.c_str(), 1), 1) << "equal values are written again";
    for (const auto& v : values) {
        ASSERT_TRUE(RawSetBin(d, v.name, v.changed.second.data(), (DWORD)v.changed.second.size(), v.changed.first));
        EXPECT_EQ(ImportRegKey(nullptr, ro.GetKey(), file.c_str(), 1), 0) << testing::PrintToString(std::wstring(v.name));
        EXPECT_EQ(ImportRegKey(nullptr, rw.GetKey(), file.c_str(), 1), 1);
        EXPECT_EQ(Raw(d, v.name), v.was) << "a changed value goes back to the file's";
    }
    EXPECT_EQ(RawGetDword(d, L"Extra") + RawGetDword(d + L"\\Extra key", L"v"), 3u) << "nothing deleted";
}

// A bad file writes nothing; an import stops at the first unwritable item, keeping what came before.
TEST(RegXmlTreeFile, BadFilesWriteNothingAndTheFirstFailureStops)
{
    ScopedTestKey key(L"xmlbad");
    ScopedTempDir dir;
    const std::wstring file = dir.file(L"bad.cfg");
    RegKey rk(key.path().c_str(), 1);
    auto import = [&](const std::string& text) {
        EXPECT_TRUE(text == "-" ? DeleteFileW(file.c_str()) : WriteFileBytes(file, text.data(), text.size()));
        SetLastError(0xdeadbeef);
        const int r = ImportRegKey(nullptr, rk.GetKey(), file.c_str(), 1);
        return std::make_pair(r, GetLastError());
    };
    for (const char* text : {"<KEY Name=''><DATA Name='v' Value='1'/>", "<KEY Name=''/><!--", "", "-"}) // "-": no file
        EXPECT_EQ(import(text), std::make_pair(0, *text == '-' ? (DWORD)ERROR_FILE_NOT_FOUND : (DWORD)ERROR_INVALID_DATA)) << text;
    EXPECT_EQ(RawCountValues(key.sub()) + RawCountSubKeys(key.sub()), 0u);
    for (const char* bad : {"<KEY Name=''/>", "<DATA Name='bin' Type='REG_BINARY' Value='0X'/>"}) {
        EXPECT_EQ(import(std::string("<KEY Name=''><DATA Name='before' Value='1'/>") + bad + "<DATA Name='after'/></KEY>").first, 0) << bad;
        EXPECT_EQ(RawGetDword(key.sub(), L"before") * 10 + RawValueExists(key.sub(), L"after"), 10u) << bad;
        rk.DelValue(L"before");
    }
}

} // namespace
