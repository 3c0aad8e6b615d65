// XmlTree: what the parser builds, where and how it stops on each error, the writer's exact text
// and file bytes, and input meant to break it.
#include <gtest/gtest.h>

#include <windows.h>

#include <climits>
#include <cstdint>
#include <utility>
#include <string>
#include <vector>

#include "storage/XmlTree.h"
#include "support/TestSupport.h"

namespace {

typedef std::vector<BYTE> Bytes;

int Parse(XmlTree& tree, const std::wstring& text)
{
    tree.silent = 1;
    const wchar_t* p = text.c_str();
    return tree.Get(nullptr, p);
}

// Renders as callers do (count, then write): both passes must agree, the zero must be counted
// and written, and nothing may land past the counted size.
std::wstring Render(XmlTree& tree)
{
    wchar_t* none = nullptr;
    unsigned n = tree.Put(none);
    std::vector<wchar_t> buf(n + 2, (wchar_t)0xbdbd);
    wchar_t* out = buf.data();
    EXPECT_EQ(tree.Put(out), n);
    EXPECT_EQ(out - buf.data(), (ptrdiff_t)n);
    EXPECT_EQ(buf[n - 1], 0);
    EXPECT_EQ(buf[n], (wchar_t)0xbdbd);
    return std::wstring(buf.data(), n - 1);
}

std::wstring Attr(const XmlTreeItem* item, const wchar_t* name)
{
    const wchar_t* v = item ? item->GetAttribValue(name) : nullptr;
    return v ? v : L"<null>";
}

Bytes Utf16Le(const std::wstring& s)
{
    Bytes b{0xFF, 0xFE};
    for (wchar_t c : s)
        b.push_back((BYTE)(c & 0xFF)), b.push_back((BYTE)(c >> 8));
    return b;
}

// Each error ends the parse with its number, the line counter and up to 20 characters.
TEST(XmlTreeParseErrors, NumberLineAndContext)
{
    struct { const wchar_t *text; int id; unsigned line; const wchar_t* context; } cases[] = {
        // Unclosed comments: the line is where the comment starts, not the end of the text.
        {L"<a>\r\n<!-- open\r\nmore\n", 21902, 2, L"<!-- open\r\nmore\n"},
        {L"<a b='1'\n<!--/>", 21902, 2, L"<!--/>"},
        {L"<a/>\n\nrest", 21903, 3, L"rest"},
        {L"<ns:a/>", 21904, 1, L":a/>"},
        {L"<a>text<b/></a>", 21904, 1, L"b/></a>"}, // text and children cannot mix
        {L"<a>\n<b/>\n</c>", 21904, 3, L"c>"},
        {L"<a\n b\n c='1'/>", 21906, 3, L"c='1'/>"},
        {L"<a b=1/>", 21907, 1, L"1/>"},
        {L"<a b='1\"/>", 21908, 1, L"'1\"/>"},
        {L"<a b=\"1234567890123456789012345", 21908, 1, L"\"1234567890123456789"},
        {L"<a>\n  text without end", 21909, 2, L"text without end"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(c.text)));
        XmlTree tree;
        EXPECT_EQ(Parse(tree, c.text), 0);
        EXPECT_EQ(tree.GetErrorId(), c.id);
        EXPECT_EQ(tree.GetErrorLine(), c.line);
        EXPECT_STREQ(tree.GetErrorContext(), c.context);
    }
    for (const wchar_t* t : {L"", L"\xFEFF", L" \r\n\t", L"<?xml version=\"1.0\"?>\r\n", L"plain\ntext", L"</a>", L"<1/>"}) {
        XmlTree tree;
        wchar_t msg[64];
        EXPECT_EQ(Parse(tree, t) + tree.GetErrorId(), 21910) << testing::PrintToString(std::wstring(t));
        tree.FormatError(msg, 64);
        EXPECT_STREQ(msg, L"No XML data found.");
    }
}

TEST(XmlTreeParseErrors, MessageTextAndWhatWasBuiltBefore)
{
    XmlTree tree;
    EXPECT_EQ(Parse(tree, L"<a>\r\n\t<b x='1'/>\r\n\t<c>\r\n<!-- open\r\nmore text and more"), 0);
    wchar_t msg[256];
    unsigned n = tree.FormatError(msg, 256);
    EXPECT_EQ(n, wcslen(msg));
    EXPECT_STREQ(msg, L"Error parsing XML document in line 4:\n\nUnclosed comment: <!-- open\r\nmore text");
    ASSERT_NE(tree.FindSubTree(L"a"), nullptr); // the tree keeps what was built
    EXPECT_EQ(Attr(tree.FindSubTree(L"a")->FindItem(L"b"), L"x"), L"1");
}

TEST(XmlTreeWrite, ExactTextOfAKnownTree)
{
    XmlTree tree, empty;
    XmlTreeItem* root = tree.AddItem(L"root", nullptr);
    root->AddAttrib(L"name", L"a\"b'c<d>e&f");
    root->AddAttrib(L"empty", L"");
    XmlTree* kids = tree.AddSubTree(root);
    kids->AddItem(L"leaf", nullptr)->AddAttrib(L"v", L"1");
    kids->AddItem(L"text", L"x < y & \"z\"");
    kids->AddSubTree(kids->AddItem(L"both", L"body is not written"))->AddItem(L"inner", nullptr);
    kids->AddItem(L"emptybody", L"");
    kids->AddSubTree(kids->AddItem(L"hollow", nullptr));
    tree.AddItem(L"second", nullptr);
    EXPECT_EQ(Render(tree), L"<?xml version=\"1.0\"?>\r\n"
                            L"<root name=\"a&quot;b&apos;c&lt;d&gt;e&amp;f\" empty=\"\">\r\n"
                            L"\t<leaf v=\"1\"/>\r\n"
                            L"\t<text>x &lt; y &amp; &quot;z&quot;</text>\r\n"
                            L"\t<both>\r\n\t\t<inner/>\r\n\t</both>\r\n"
                            L"\t<emptybody></emptybody>\r\n"
                            L"\t<hollow>\r\n\t</hollow>\r\n"
                            L"</root>\r\n<second/>\r\n");
    EXPECT_EQ(Render(empty), L"<?xml version=\"1.0\"?>\r\n");
}

// What the parser builds, shown through the writer: attribute order, entities decoded once
// (ignoring case), bodies without their leading blanks, the prolog taken line by line.
TEST(XmlTreeParse, DocumentsComeBackInTheWritersForm)
{
    const wchar_t* cases[][2] = {
        {L"<a></a>", L"\r\n<a/>\r\n"}, // starts with its root: an empty first line
        {L"\xFEFF  <a/>", L"\r\n<a/>\r\n"},
        {L"<r a=\"1\" B = '2' m=\"x\ny\" q=\"&quot;q&QUOT;\" o='say \"hi\"' amp=\"&amp;lt;\"/>",
         L"\r\n<r a=\"1\" B=\"2\" m=\"x\ny\" q=\"&quot;q&quot;\" o=\"say &quot;hi&quot;\" amp=\"&amp;lt;\"/>\r\n"},
        {L"<a>  x &LT; y  </a>", L"\r\n<a>x &lt; y  </a>\r\n"},
        {L"<a>\r\n\t<!-- dropped -->  kept  \r\n</a  >", L"\r\n<a>kept  \r\n</a>\r\n"},
        {L"<?xml?>\n<a><b\n/><!-- c --><  e  /  ><c>t</c></a>\n<z/>",
         L"<?xml?>\r\n<a>\r\n\t<b/>\r\n\t<e/>\r\n\t<c>t</c>\r\n</a>\r\n<z/>\r\n"},
        {L"<?xml?>\r\n<!-- c -->\r\n\r\n<a/>", L"<?xml?>\r\n<!-- c -->\r\n\r\n<a/>\r\n"},
        {L"<?xml?>\n<!-- one\ntwo --><a/>", L"<?xml?>\r\n<a/>\r\n"}, // a comment is never cut in two
        {L"junk text\r\n< a/>", L"junk text\r\n<a/>\r\n"},
    };
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

// The file's exact bytes (UTF-16 little-endian with its mark, no zero), left for the build's
// xmllint check: every escaped character, in attributes and in text, and letters beyond ASCII.
TEST(XmlTreeFile, ExactBytesLeftForXmllint)
{
    wchar_t tmp[MAX_PATH + 1];
    tmp[GetTempPathW(MAX_PATH, tmp)] = 0;
    std::wstring dir = std::wstring(tmp) + L"vantrel-xmllint", file = dir + L"\\xmltree-writer.xml";
    CreateDirectoryW(dir.c_str(), nullptr);
    const wchar_t* title = L"\"Quotes\" & 'apostrophes' <angle> \x00c5ngstr\x00f6m \x65e5\x672c";
    XmlTree tree, back;
    XmlTreeItem* root = tree.AddItem(L"settings", nullptr);
    root->AddAttrib(L"title", title);
    tree.AddSubTree(root)->AddItem(L"text", L"a < b && c > \"d\" 'e' \x00fc\x00df \x0416");
    ASSERT_EQ(tree.SaveFile(nullptr, file.c_str()), 1);
    Bytes bytes;
    ASSERT_TRUE(vxtest::ReadFileBytes(file, &bytes));
    EXPECT_EQ(bytes, Utf16Le(L"<?xml version=\"1.0\"?>\r\n<settings title=\"&quot;Quotes&quot; &amp; &apos;apostrophes&apos; "
                             L"&lt;angle&gt; \x00c5ngstr\x00f6m \x65e5\x672c\">\r\n\t<text>a &lt; b &amp;&amp; c &gt; "
                             L"&quot;d&quot; &apos;e&apos; \x00fc\x00df \x0416</text>\r\n</settings>\r\n"));
    back.silent = 1;
    ASSERT_EQ(back.LoadFile(nullptr, file.c_str()), 1);
    EXPECT_EQ(Attr(back.FindItem(L"settings"), L"title"), title);
}

// Files edited outside the product may come back as UTF-8, with or without the mark.
TEST(XmlTreeFile, Utf8FilesLoad)
{
    vxtest::ScopedTempDir dir;
    std::wstring file = dir.file(L"doc.xml");
    std::string utf8 = "\xEF\xBB\xBF<r v=\"\xC3\xA9\xE4\xB8\xAD&amp;\"/>";
    for (size_t skip : {0, 3}) {
        ASSERT_TRUE(vxtest::WriteFileBytes(file, utf8.data() + skip, utf8.size() - skip));
        XmlTree back;
        back.silent = 1;
        ASSERT_EQ(back.LoadFile(nullptr, file.c_str()), 1) << back.GetErrorId();
        EXPECT_EQ(Attr(back.FindItem(L"r"), L"v"), L"\x00e9\x4e2d&");
    }
}

// Attribute names ignore case; the deliberate number quirks.
TEST(XmlTreeItems, AttributesAndNumbers)
{
    XmlTreeItem item(L"k", nullptr);
    item.AddAttrib(L"Name", L"first");
    item.AddAttrib(L"NAME", L"second"); // appended even though one of that name exists
    EXPECT_EQ(item.DeleteAttrib(L"nAmE") * 2 + item.DeleteAttrib(L"missing"), 2);
    wchar_t buf[4 + 1];
    wmemset(buf, 0xbdbd, 5);
    EXPECT_EQ(item.GetAttrib(L"name", buf, 4), 3u); // bounded and terminated
    EXPECT_STREQ(buf, L"sec");
    EXPECT_EQ(buf[4], (wchar_t)0xbdbd);
    item.SetAttribUInt(L"u", 4294967295u);
    EXPECT_EQ(Attr(&item, L"u"), L"-1"); // written as a negative number on purpose
    EXPECT_EQ(item.GetAttribUInt(L"U"), 4294967295u);
    const std::pair<const wchar_t*, int> reads[] = {{L"42abc", 42}, {L"123456789012345", INT_MAX}, {L"1234567890123456", 0}};
    for (const auto& r : reads) {
        item.SetAttrib(L"t", r.first);
        EXPECT_EQ(item.GetAttribInt(L"t"), r.second) << testing::PrintToString(std::wstring(r.first));
    }
}

TEST(XmlTreeHostile, DeepNestingStopsAtTheLimitWithoutRecursion)
{
    std::wstring text, ok;
    for (int i = 0; i < 100000; ++i)
        text += L"<a>\n";
    XmlTree tree, full, again;
    EXPECT_EQ(Parse(tree, text), 0);
    EXPECT_EQ(tree.GetErrorId(), 21903);
    EXPECT_EQ(tree.GetErrorLine(), XmlTree::nMaxDepth + 1); // one element a line: stopped just past the limit
    for (unsigned i = 0; i < XmlTree::nMaxDepth; ++i) // exactly at the limit: parses, renders, parses
        ok = L"<a>" + ok + L"</a>";
    ASSERT_EQ(Parse(full, ok), 1) << full.GetErrorId();
    ASSERT_EQ(Parse(again, Render(full)), 1);
    // Built in memory, far deeper: recursion over these levels would overflow the stack.
    XmlTree deep; // and its destructor
    XmlTree* t = &deep;
    for (int i = 0; i < 200000; ++i)
        t = t->AddSubTree(t->AddItem(L"a", nullptr));
    wchar_t* none = nullptr;
    EXPECT_EQ(deep.Put(none), UINT_MAX); // the TABs alone saturate the count instead of wrapping
}

TEST(XmlTreeHostile, HugeAttributeValue)
{
    std::wstring text = L"<a v=\"" + std::wstring(10u << 20, L'x') + L"&amp;\"/>";
    XmlTree tree, open;
    ASSERT_EQ(Parse(tree, text), 1);
    EXPECT_EQ(wcslen(tree.FindItem(L"a")->GetAttribValue(L"v")), (10u << 20) + 1);
    EXPECT_EQ(Render(tree).size(), text.size() + 4); // the CR LF after the prolog and the element
    text.resize(text.size() - 3);                    // no closing quote
    EXPECT_EQ(Parse(open, text), 0);
    EXPECT_EQ(open.GetErrorId(), 21908);
    EXPECT_EQ(wcslen(open.GetErrorContext()), 20u);
}

TEST(XmlTreeHostile, EveryTruncationFailsCleanly)
{
    const std::wstring doc = L"<?xml version=\"1.0\"?>\r\n<!-- c -->\r\n<KEY Name=\"x\">\r\n\t<DATA Name='a' Value=\"&amp;\"/>\r\n"
                             L"\t<t>body &lt;</t>\r\n</KEY>\r\n";
    for (size_t n = 0; n < doc.size(); ++n) {
        XmlTree tree;
        bool whole = n >= doc.size() - 2;
        SCOPED_TRACE(n);
        EXPECT_EQ(Parse(tree, doc.substr(0, n)), whole ? 1 : 0);
        if (!whole) { // one of the parser's error texts
            EXPECT_GE(tree.GetErrorId(), 21902);
            EXPECT_LE(tree.GetErrorId(), 21910);
        }
    }
}

TEST(XmlTreeHostile, HostileFiles)
{
    vxtest::ScopedTempDir dir;
    std::wstring file = dir.file(L"h.xml");
    auto load = [&](const Bytes& bytes) {
        EXPECT_TRUE(vxtest::WriteFileBytes(file, bytes.data(), bytes.size()));
        XmlTree tree;
        tree.silent = 1;
        return tree.LoadFile(nullptr, file.c_str()) ? 0 : tree.GetErrorId();
    };
    EXPECT_EQ(load({}), 21910);
    EXPECT_EQ(load({0xFF, 0xFE}), 21910); // a lone byte-order mark
    EXPECT_EQ(load(Utf16Le(L"<a/>\r\n<!-- never closed -")), 21902);
    uint32_t state = 777;
    for (int i = 0; i < 200; ++i) {
        Bytes bytes(1 + i * 7 % 300);
        for (auto& b : bytes)
            b = (BYTE)((state = state * 1664525u + 1013904223u) >> 24);
        if (i % 3 == 0)
            bytes[0] = 0xFF, bytes.insert(bytes.begin() + 1, 0xFE);
        const int id = load(bytes);
        if (id != 0) { // parsed, or refused with one of the parser's error texts
            EXPECT_GE(id, 21902) << i;
            EXPECT_LE(id, 21910) << i;
        }
    }
}

} // namespace
