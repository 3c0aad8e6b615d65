// XmlTree: what the parser builds from the grammar, where and how it stops on each error, the
// writer's exact text and file bytes, and input meant to break it.
#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "storage/XmlTree.h"
#include "support/TestSupport.h"

namespace {

int Parse(XmlTree& tree, const std::wstring& text)
{
    tree.silent = 1;
    const wchar_t* p = text.c_str();
    return tree.Get(nullptr, p);
}

// Renders twice, as callers do: both passes must agree, the zero must be counted and written,
// and nothing may land past the counted size.
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

std::wstring Body(const XmlTreeItem* item) { return item && item->GetBody() ? item->GetBody() : L"<null>"; }

unsigned Depth(const XmlTree& tree)
{
    unsigned d = 0;
    for (const XmlTree* t = &tree; t && t->GetCount(); t = t->GetChildAt(t->GetHeadPosition()))
        ++d;
    return d;
}

std::vector<BYTE> Utf16Le(const std::wstring& s, bool bom)
{
    std::vector<BYTE> b;
    if (bom)
        b = {0xFF, 0xFE};
    for (wchar_t c : s)
        b.push_back((BYTE)(c & 0xFF)), b.push_back((BYTE)(c >> 8));
    return b;
}

TEST(XmlTreeParse, ElementsAttributesBodiesAndChildren)
{
    XmlTree tree;
    ASSERT_EQ(Parse(tree, L"<?xml version=\"1.0\"?>\r\n"
                          L"<root a=\"1\" B = '2' multi=\"x\ny\">\r\n"
                          L"\t<item q=\"&quot;q&QUOT;\" other='say \"hi\"' amp=\"&amp;lt;\"/>\r\n"
                          L"\t<text>  x &LT; y  </text>\r\n"
                          L"\t<empty></empty><  spaced  /  >\r\n"
                          L"\t<!-- a comment between elements -->\r\n"
                          L"\t<padded>\r\n\t\t<!-- dropped -->  kept  \r\n</padded>\r\n"
                          L"\t<nested><deeper>v</deeper></nested>\r\n"
                          L"</root   >\r\n<second/>"),
              1);
    EXPECT_STREQ(tree.GetProlog(), L"<?xml version=\"1.0\"?>");
    ASSERT_EQ(tree.GetCount(), 2u);
    XmlTreeItem* root = tree.FindItem(L"root");
    std::wstring attrs;
    for (DMPos a = root->GetListAttr().GetHeadPosition(); a;) {
        auto* at = static_cast<XmlAttrib*>(root->GetListAttr().GetNext(a));
        attrs += std::wstring(at->name) + L"=" + at->value + L";";
    }
    EXPECT_EQ(attrs, L"a=1;B=2;multi=x\ny;"); // document order; values may span lines
    XmlTree* kids = tree.FindSubTree(L"root");
    ASSERT_NE(kids, nullptr);
    EXPECT_EQ(kids->GetParentNode(), tree.GetHeadPosition());
    EXPECT_EQ(kids->GetCount(), 6u);
    XmlTreeItem* item = kids->FindItem(L"item");
    EXPECT_EQ(Attr(item, L"q"), L"\"q\"");              // entities match ignoring case
    EXPECT_EQ(Attr(item, L"other"), L"say \"hi\"");     // single quotes may hold double ones
    EXPECT_EQ(Attr(item, L"amp"), L"&lt;");             // decoded once, not twice
    EXPECT_EQ(Body(kids->FindItem(L"text")), L"x < y  "); // leading blanks dropped, trailing kept
    EXPECT_EQ(Body(kids->FindItem(L"empty")), L"<null>");
    EXPECT_EQ(kids->FindSubTree(L"empty"), nullptr);
    EXPECT_EQ(Body(kids->FindItem(L"spaced")), L"<null>");
    EXPECT_EQ(Body(kids->FindItem(L"padded")), L"kept  \r\n");
    ASSERT_NE(kids->FindSubTree(L"nested"), nullptr);
    EXPECT_EQ(Body(kids->FindSubTree(L"nested")->FindItem(L"deeper")), L"v");
    EXPECT_NE(tree.FindItem(L"second"), nullptr);
}

TEST(XmlTreeParse, PrologIsTheTextBeforeTheFirstElementLine)
{
    struct {
        const wchar_t* text;
        const wchar_t* prolog;
    } cases[] = {
        {L"<a/>", L""},
        {L"\xFEFF  <a/>", L""}, // one byte-order mark is skipped
        {L"<?xml version=\"1.0\"?><b/>\n<a/>", L"<?xml version=\"1.0\"?><b/>"}, // line by line
        {L"<?xml?>\r\n<!-- c -->\r\n\r\n<a/>", L"<?xml?>\r\n<!-- c -->\r\n"},
        {L"<?xml?>\n<!DOCTYPE x>\n<a/>", L"<?xml?>\n<!DOCTYPE x>"},
        {L"<?xml?>\n<!-- one\ntwo --><a/>", L"<?xml?>"}, // a comment is never cut in two
        {L"junk text\r\n< a/>", L"junk text"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(c.text)));
        XmlTree tree;
        ASSERT_EQ(Parse(tree, c.text), 1) << tree.GetErrorId();
        EXPECT_STREQ(tree.GetProlog(), c.prolog);
        ASSERT_EQ(tree.GetCount(), 1u);
        EXPECT_STREQ(tree.GetAt(tree.GetHeadPosition())->GetName(), L"a");
    }
}

// Each error ends the parse with its number, the line counter and up to 20 characters.
TEST(XmlTreeParseErrors, NumberLineAndContext)
{
    struct {
        const wchar_t* text;
        int id;
        unsigned line;
        const wchar_t* context;
        size_t stop; // where the text pointer is left
    } cases[] = {
        // Unclosed comments: the line is where the comment starts, not the end of the text.
        {L"<a>\r\n<!-- open\r\nmore\n", 21902, 2, L"<!-- open\r\nmore\n", 5},
        {L"<a/>\n<!--", 21902, 2, L"<!--", 5},
        {L"<?xml?>\n\n<!-- x", 21902, 3, L"<!-- x", 9},
        {L"<a b='1'\n<!--/>", 21902, 2, L"<!--/>", 9},
        {L"<a/>\n\nrest", 21903, 3, L"rest", 6},
        {L"<a/></b>", 21903, 1, L"</b>", 4},
        {L"<a/>\n<>", 21903, 2, L"<>", 5},
        {L"<ns:a/>", 21904, 1, L":a/>", 3},
        {L"<a>text<b/></a>", 21904, 1, L"b/></a>", 8}, // text and children cannot mix
        {L"<a>\n<b/>\n</c>", 21904, 3, L"c>", 11},
        {L"<a></ab>", 21904, 1, L"b>", 6},
        {L"<a/ x>", 21904, 1, L"x>", 4},
        {L"<a \"x\"/>", 21904, 1, L"\"x\"/>", 3},
        {L"<a><</a>", 21904, 1, L"</a>", 4},
        {L"<a\n b\n c='1'/>", 21906, 3, L"c='1'/>", 7},
        {L"<a b=1/>", 21907, 1, L"1/>", 5},
        {L"<a b=\"1/>\n\n", 21908, 1, L"\"1/>\n\n", 5},
        {L"<a b='1\"/>", 21908, 1, L"'1\"/>", 5},
        {L"<a>\n  text without end", 21909, 2, L"text without end", 6},
        {L"<a b=\"1234567890123456789012345", 21908, 1, L"\"1234567890123456789", 5},
    };
    for (const auto& c : cases) {
        std::wstring text = c.text;
        SCOPED_TRACE(testing::PrintToString(text));
        XmlTree tree;
        tree.silent = 1;
        const wchar_t* p = text.c_str();
        EXPECT_EQ(tree.Get(nullptr, p), 0);
        EXPECT_EQ(tree.GetErrorId(), c.id);
        EXPECT_EQ(tree.GetErrorLine(), c.line);
        EXPECT_STREQ(tree.GetErrorContext(), c.context);
        EXPECT_EQ((size_t)(p - text.c_str()), c.stop);
    }
    for (const wchar_t* t : {L"", L"\xFEFF", L" \r\n\t", L"<?xml version=\"1.0\"?>\r\n", L"plain\ntext", L"</a>", L"<1/>"}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(t)));
        XmlTree tree;
        EXPECT_EQ(Parse(tree, t), 0);
        EXPECT_EQ(tree.GetErrorId(), 21910);
        wchar_t msg[64];
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
    XmlTree ok;
    ASSERT_EQ(Parse(ok, L"<ok/>"), 1);
    EXPECT_EQ(ok.GetErrorId(), 0);
    EXPECT_EQ(ok.FormatError(msg, 256), 0u);
}

TEST(XmlTreeWrite, ExactTextOfAKnownTree)
{
    XmlTree tree;
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
                            L"</root>\r\n"
                            L"<second/>\r\n");
    EXPECT_EQ(XmlTree::nDepth, 0u);
    tree.SetProlog(L"");
    EXPECT_EQ(Render(tree).substr(0, 8), L"\r\n<root ");
    tree.SetProlog(L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>");
    EXPECT_EQ(Render(tree).substr(0, 46), L"<?xml version=\"1.0\" encoding=\"UTF-16\"?>\r\n<root");
    XmlTree none;
    EXPECT_EQ(Render(none), L"<?xml version=\"1.0\"?>\r\n");
}

TEST(XmlTreeWrite, ParsedDocumentsComeBackInTheWritersForm)
{
    struct {
        const wchar_t* in;
        const wchar_t* out;
    } cases[] = {
        {L"<a></a>", L"\r\n<a/>\r\n"}, // starts with its root: an empty first line
        {L"<a>  x &LT; y  </a>", L"\r\n<a>x &lt; y  </a>\r\n"},
        {L"<a v='say \"hi\"'/>", L"\r\n<a v=\"say &quot;hi&quot;\"/>\r\n"},
        {L"<?xml?>\n<a><b\n/><c>t</c></a>", L"<?xml?>\r\n<a>\r\n\t<b/>\r\n\t<c>t</c>\r\n</a>\r\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(c.in)));
        XmlTree tree, again;
        ASSERT_EQ(Parse(tree, c.in), 1) << tree.GetErrorId();
        std::wstring once = Render(tree);
        EXPECT_EQ(once, c.out);
        ASSERT_EQ(Parse(again, once), 1);
        EXPECT_EQ(Render(again), once);
    }
}

TEST(XmlTreeFile, Utf16WithByteOrderMarkAndOtherEncodingsBack)
{
    vxtest::ScopedTempDir dir;
    std::wstring file = dir.file(L"doc.xml");
    XmlTree tree;
    tree.silent = 1;
    tree.AddItem(L"r", nullptr)->AddAttrib(L"v", L"\x00e9\x4e2d&");
    ASSERT_EQ(tree.SaveFile(nullptr, file.c_str()), 1);
    std::vector<BYTE> bytes;
    ASSERT_TRUE(vxtest::ReadFileBytes(file, &bytes));
    EXPECT_EQ(bytes, Utf16Le(L"<?xml version=\"1.0\"?>\r\n<r v=\"\x00e9\x4e2d&amp;\"/>\r\n", true)); // no zero

    std::wstring text = L"<r v=\"\x00e9\x4e2d&amp;\"/>";
    std::vector<BYTE> be{0xFE, 0xFF};
    for (wchar_t c : text)
        be.push_back((BYTE)(c >> 8)), be.push_back((BYTE)(c & 0xFF));
    std::string utf8 = "\xEF\xBB\xBF<r v=\"\xC3\xA9\xE4\xB8\xAD&amp;\"/>";
    std::vector<std::vector<BYTE>> inputs = {
        bytes, Utf16Le(text, false), be, std::vector<BYTE>(be.begin() + 2, be.end()),
        std::vector<BYTE>(utf8.begin(), utf8.end()), std::vector<BYTE>(utf8.begin() + 3, utf8.end()),
    };
    for (size_t i = 0; i < inputs.size(); ++i) {
        SCOPED_TRACE(i);
        ASSERT_TRUE(vxtest::WriteFileBytes(file, inputs[i].data(), inputs[i].size()));
        XmlTree back;
        back.silent = 1;
        ASSERT_EQ(back.LoadFile(nullptr, file.c_str()), 1) << back.GetErrorId();
        EXPECT_EQ(Attr(back.FindItem(L"r"), L"v"), L"\x00e9\x4e2d&");
    }
}

TEST(XmlTreeFile, FailuresKeepTheReason)
{
    vxtest::ScopedTempDir dir;
    XmlTree tree;
    tree.silent = 1;
    SetLastError(0xdeadbeef);
    EXPECT_EQ(tree.LoadFile(nullptr, dir.file(L"missing.xml").c_str()), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_FILE_NOT_FOUND);
    SetLastError(0xdeadbeef);
    EXPECT_EQ(tree.SaveFile(nullptr, dir.file(L"no\\such\\folder.xml").c_str()), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_PATH_NOT_FOUND);
    ASSERT_TRUE(vxtest::WriteFileBytes(dir.file(L"bad.xml"), "<a>", 3));
    EXPECT_EQ(tree.LoadFile(nullptr, dir.file(L"bad.xml").c_str()), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_DATA);
    EXPECT_EQ(tree.GetErrorId(), 21909);
}

// Leaves a document for the build's xmllint check (%TEMP%\vantrel-xmllint\*.xml): every escaped
// character, in attributes and in text, and letters beyond ASCII.
TEST(XmlTreeFile, LeavesAWellFormedFileForXmllint)
{
    wchar_t tmp[MAX_PATH + 1];
    tmp[GetTempPathW(MAX_PATH, tmp)] = 0;
    std::wstring dir = std::wstring(tmp) + L"vantrel-xmllint", file = dir + L"\\xmltree-writer.xml";
    CreateDirectoryW(dir.c_str(), nullptr);
    const wchar_t* title = L"\"Quotes\" & 'apostrophes' <angle> \x00c5ngstr\x00f6m \x65e5\x672c";
    const wchar_t* text = L"a < b && c > \"d\" 'e' \x00fc\x00df \x0416";
    XmlTree tree, back;
    tree.silent = back.silent = 1;
    XmlTreeItem* root = tree.AddItem(L"settings", nullptr);
    root->AddAttrib(L"title", title);
    tree.AddSubTree(root)->AddItem(L"text", text);
    ASSERT_EQ(tree.SaveFile(nullptr, file.c_str()), 1);
    ASSERT_EQ(back.LoadFile(nullptr, file.c_str()), 1);
    EXPECT_EQ(Attr(back.FindItem(L"settings"), L"title"), title);
    EXPECT_EQ(Body(back.FindSubTree(L"settings")->FindItem(L"text")), text);
}

TEST(XmlTreeItems, Attributes)
{
    XmlTreeItem item(L"e", nullptr);
    item.AddAttrib(L"name", L"first");
    item.AddAttrib(L"NAME", L"second"); // appended even though one of that name exists
    EXPECT_EQ(Attr(&item, L"Name"), L"first");
    item.SetAttrib(L"nAmE", L"replaced");
    item.SetAttrib(L"other", L"appended");
    EXPECT_EQ(item.GetListAttr().GetCount(), 3u);
    EXPECT_EQ(Attr(&item, L"name"), L"replaced");
    EXPECT_EQ(item.DeleteAttrib(L"NAME"), 1);
    EXPECT_EQ(Attr(&item, L"name"), L"second");
    EXPECT_EQ(item.DeleteAttrib(L"missing"), 0);

    wchar_t buf[8 + 1];
    wmemset(buf, 0xbdbd, 9);
    EXPECT_EQ(item.GetAttrib(L"other", buf, 8), 7u); // bounded and terminated
    EXPECT_STREQ(buf, L"appende");
    EXPECT_EQ(buf[8], (wchar_t)0xbdbd);
    EXPECT_EQ(item.GetAttrib(L"none", buf, 8), 0u);
    EXPECT_EQ(buf[0], 0);

    item.SetAttribUInt(L"u", 4294967295u);
    EXPECT_EQ(Attr(&item, L"u"), L"-1"); // written as a negative number on purpose
    EXPECT_EQ(item.GetAttribUInt(L"u"), 4294967295u);
    item.SetAttribInt(L"i", INT_MIN);
    EXPECT_EQ(item.GetAttribInt(L"I"), INT_MIN);
    struct {
        const wchar_t* text;
        int v;
    } reads[] = {{L"", 0}, {L"42abc", 42}, {L"abc", 0}, {L"123456789012345", INT_MAX}, {L"1234567890123456", 0}};
    for (const auto& r : reads) {
        item.SetAttrib(L"t", r.text);
        EXPECT_EQ(item.GetAttribInt(L"t"), r.v) << testing::PrintToString(std::wstring(r.text));
    }
    EXPECT_EQ(item.GetAttribInt(L"absent"), 0);
}

TEST(XmlTreeItems, FindSubTreesAndDelete)
{
    XmlTree tree;
    tree.silent = 1;
    XmlTreeItem* one = tree.AddItem(L"k", nullptr);
    one->AddAttrib(L"Name", L"One");
    tree.AddItem(L"k", nullptr); // lacks the attribute: skipped
    XmlTreeItem* two = tree.AddItem(L"k", nullptr);
    two->AddAttrib(L"name", L"two");
    XmlTreeItem* last = tree.AddItem(L"k", nullptr);
    last->AddAttrib(L"NAME", L"one");
    XmlTreeItem* upper = tree.AddItem(L"K", nullptr);

    EXPECT_EQ(tree.FindItem(L"k"), one);
    EXPECT_EQ(tree.FindItem(L"k", L"name", L"TWO"), nullptr); // values exactly...
    EXPECT_EQ(tree.FindItem(L"k", L"name", L"TWO", 1), two);  // ...or ignoring case
    EXPECT_EQ(tree.FindItem(L"k", L"Name", L"one"), last);
    EXPECT_EQ(tree.FindItemReverse(L"k", L"Name", L"ONE", 1), last);
    EXPECT_EQ(tree.FindItemReverse(L"K"), upper); // element names are exact
    EXPECT_EQ(tree.FindItemPos(L"k", L"name", L"two"), tree.FindPos(two));

    EXPECT_EQ(tree.FindSubTree(L"k"), nullptr);
    XmlTree* sub = tree.GetSubTree(L"k"); // created on demand, silent like its parent
    ASSERT_NE(sub, nullptr);
    EXPECT_EQ(sub->silent, 1);
    EXPECT_EQ(tree.FindSubTree(L"k"), sub);
    EXPECT_EQ(tree.GetSubTree(L"missing"), nullptr);
    XmlTree* lastSub = tree.AddSubTree(nullptr);
    EXPECT_EQ(lastSub, tree.GetChildAt(tree.GetTailPosition()));
    sub->AddSubTree(sub->AddItem(L"c", nullptr))->AddItem(L"d", nullptr);
    EXPECT_EQ(tree.DeleteItem(one), 1);
    EXPECT_EQ(tree.DeleteItem(one), 0);
    EXPECT_EQ(tree.GetCount(), 4u);
    EXPECT_EQ(tree.FindSubTree(L"k"), nullptr);
}

TEST(XmlTreeItems, EntityConversion)
{
    unsigned len = 99;
    EXPECT_EQ(XmlTree::FindConversion(L"&AmP;rest", len), L'&');
    EXPECT_EQ(len, 5u);
    EXPECT_EQ(XmlTree::FindConversion(L"&am", len), 0); // cut short at the end of the text
    EXPECT_EQ(XmlTree::FindConversion(L"&#60;", len), 0); // no numeric references
    wchar_t out[64];
    EXPECT_EQ(XmlTree::GetConvertStr(L"a&LT;b&gt&amp;amp;&#38;&", out), 17u);
    EXPECT_STREQ(out, L"a<b&gt&amp;&#38;&");
    unsigned count = 3; // adds to what the caller counted
    wchar_t* none = nullptr;
    XmlTree::PutConvertStr(none, L"<&x'\">", count);
    EXPECT_EQ(count, 3u + 26);
    wchar_t* p = out;
    XmlTree::PutConvertStr(p, L"<&x'\">", count);
    *p = 0;
    EXPECT_STREQ(out, L"&lt;&amp;x&apos;&quot;&gt;");
}

TEST(XmlTreeHostile, DeepNestingStopsAtTheLimitWithoutRecursion)
{
    std::wstring text;
    for (int i = 0; i < 100000; ++i)
        text += L"<a>\n";
    XmlTree tree;
    EXPECT_EQ(Parse(tree, text), 0);
    EXPECT_EQ(tree.GetErrorId(), 21903);
    EXPECT_EQ(tree.GetErrorLine(), XmlTree::nMaxDepth + 1);
    EXPECT_EQ(Depth(tree), XmlTree::nMaxDepth);

    std::wstring ok; // exactly at the limit: parses, renders and parses again
    for (unsigned i = 0; i < XmlTree::nMaxDepth; ++i)
        ok = L"<a>" + ok + L"</a>";
    XmlTree full, again;
    ASSERT_EQ(Parse(full, ok), 1) << full.GetErrorId();
    ASSERT_EQ(Parse(again, Render(full)), 1);
    EXPECT_EQ(Depth(again), XmlTree::nMaxDepth);
}

TEST(XmlTreeHostile, VeryDeepTreesInMemory)
{
    // Recursion over these levels would overflow the test thread's stack.
    auto tree = std::make_unique<XmlTree>();
    XmlTree* t = tree.get();
    for (int i = 0; i < 200000; ++i)
        t = t->AddSubTree(t->AddItem(L"a", nullptr));
    wchar_t* none = nullptr;
    EXPECT_EQ(tree->Put(none), UINT_MAX); // the TABs alone saturate the count instead of wrapping
    EXPECT_EQ(tree->DeleteItem(tree->GetAt(tree->GetHeadPosition())), 1);
    EXPECT_EQ(tree->GetCount(), 0u);
    t = tree.get();
    for (int i = 0; i < 200000; ++i)
        t = t->AddSubTree(t->AddItem(L"b", nullptr));
    tree.reset(); // the destructor, too
}

TEST(XmlTreeHostile, HugeAttributeValue)
{
    std::wstring text = L"<a v=\"" + std::wstring(10u << 20, L'x') + L"&amp;\"/>";
    XmlTree tree, open;
    ASSERT_EQ(Parse(tree, text), 1);
    const wchar_t* v = tree.FindItem(L"a")->GetAttribValue(L"v");
    EXPECT_EQ(wcslen(v), (10u << 20) + 1);
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
        SCOPED_TRACE(n);
        XmlTree tree;
        EXPECT_EQ(Parse(tree, doc.substr(0, n)), n >= doc.size() - 2 ? 1 : 0);
        if (n < doc.size() - 2) {
            EXPECT_GE(tree.GetErrorId(), 21902);
            EXPECT_LE(tree.GetErrorId(), 21910);
        }
    }
}

// Random documents of the grammar's own pieces, half of them damaged by a few edits: none may
// crash, and whatever parses must render to a document that parses to the same rendering.
TEST(XmlTreeHostile, RandomAndDamagedDocuments)
{
    uint32_t state = 12345;
    auto next = [&state](unsigned n) {
        state = state * 1103515245u + 12345u;
        return ((state >> 8) & 0xFFFFFF) % n;
    };
    const wchar_t* spaces[] = {L"", L"", L" ", L"\r\n", L"\t", L"<!-- c -->"};
    const wchar_t* names[] = {L"a", L"B", L"_c", L"d.e-1", L"KEY"};
    const wchar_t* values[] = {L"", L"1", L"&amp;", L"&LT;x&gt;", L"\x00e9 \x4e2d", L"a\nb"};
    const wchar_t* junk[] = {L"<", L">", L"/", L"=", L"\"", L"'", L"<!--", L"&", L"\n", L":"};
    auto sp = [&]() { return std::wstring(spaces[next(6)]); };
    std::function<std::wstring(unsigned)> element = [&](unsigned depth) {
        std::wstring name = names[next(5)], s = L"<" + sp() + name;
        for (unsigned n = next(3); n; --n) {
            wchar_t q = next(2) ? L'"' : L'\'';
            s += L" " + std::wstring(names[next(5)]) + sp() + L"=" + sp() + q + values[next(6)] + q;
        }
        switch (next(depth < 3 ? 3 : 2)) {
        case 0:
            return s + sp() + L"/>";
        case 1:
            return s + L">" + sp() + values[next(6)] + L"</" + name + sp() + L">";
        default:
            s += L">";
            for (unsigned n = 1 + next(3); n; --n)
                s += sp() + element(depth + 1);
            return s + sp() + L"</" + name + L">";
        }
    };
    int damagedParsed = 0;
    for (int iter = 0; iter < 6000; ++iter) {
        std::wstring text = (next(2) ? L"<?xml version=\"1.0\"?>\r\n" : L"") + sp() + element(0) + sp();
        bool damage = iter % 2;
        for (unsigned n = damage ? 1 + next(3) : 0; n; --n) {
            size_t at = next((unsigned)text.size());
            unsigned how = next(3);
            if (how == 0)
                text.erase(at, 1);
            else if (how == 1)
                text.insert(at, junk[next(10)]);
            else
                text[at] = (wchar_t)(1 + next(0xFFFE));
        }
        XmlTree tree, again;
        int ok = Parse(tree, text);
        ASSERT_TRUE(ok || damage) << tree.GetErrorId() << " " << testing::PrintToString(text);
        if (!ok)
            continue;
        damagedParsed += damage;
        std::wstring once = Render(tree);
        ASSERT_EQ(Parse(again, once), 1) << testing::PrintToString(text);
        ASSERT_EQ(Render(again), once) << testing::PrintToString(text);
    }
    EXPECT_GT(damagedParsed, 100); // damage that still parses must round-trip too
}

TEST(XmlTreeHostile, HostileFiles)
{
    vxtest::ScopedTempDir dir;
    std::wstring file = dir.file(L"h.xml");
    auto load = [&](const std::vector<BYTE>& bytes) {
        EXPECT_TRUE(vxtest::WriteFileBytes(file, bytes.data(), bytes.size()));
        XmlTree tree;
        tree.silent = 1;
        return tree.LoadFile(nullptr, file.c_str()) ? 0 : tree.GetErrorId();
    };
    EXPECT_EQ(load({}), 21910);
    EXPECT_EQ(load({0xFF, 0xFE}), 21910); // a lone byte-order mark
    EXPECT_EQ(load({0xEF, 0xBB, 0xBF}), 21910);
    EXPECT_EQ(load({0xFF, 0xFE, '<', 0, 'a', 0, '/', 0, '>', 0, 'x'}), 0); // an odd last byte is dropped
    EXPECT_EQ(load(Utf16Le(L"<a/>\r\n<!-- never closed -", true)), 21902);
    uint32_t state = 777;
    for (int i = 0; i < 200; ++i) {
        std::vector<BYTE> bytes(1 + i * 7 % 300);
        for (auto& b : bytes)
            b = (BYTE)((state = state * 1664525u + 1013904223u) >> 24);
        if (i % 3 == 0)
            bytes[0] = 0xFF, bytes.insert(bytes.begin() + 1, 0xFE);
        int id = load(bytes);
        EXPECT_TRUE(id == 0 || (id >= 21902 && id <= 21910)) << id;
    }
}

} // namespace
