// Decisions that need no window: the rich text's layout on a canvas with exact metrics (6 pixels a
// character, 7 in bold, as tall as the font height's magnitude, 12 for 0; icons 16 x 16), DPI
// scaling, number parsing, the link colour and the message box's model.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "base/StrUtil.h"
#include "ui/DMCtrl.h"
#include "ui/Dpi.h"
#include "ui/DrawHTML.h"
#include "ui/MsgBoxModel.h"
#include "ui/UiSeams.h"

using namespace MsgBoxModel;

namespace {

typedef std::vector<std::wstring> Strs;
typedef std::vector<int> Ints;
const HtmlColor kText = HtmlRGB(1, 2, 3), kLink = HtmlRGB(0, 0, 255);

struct Drawn { bool bIcon; int x, y, nBottom, nIcon; std::wstring text; HtmlColor color; HtmlFont font; };
struct FakeCanvas : HtmlCanvas {
    static int Height(const HtmlFont& f) { return f.nHeight < 0 ? -f.nHeight : (f.nHeight ? f.nHeight : 12); }
    void SelectFont(const HtmlFont& f) override { font = f; }
    HtmlSize MeasureText(const wchar_t*, unsigned n) override
    {
        return {int(n) * (font.nWeight < 700 ? 6 : 7), Height(font)};
    }
    void DrawText(int x, int y, const wchar_t* p, unsigned n, HtmlColor c) override
    {
        runs.push_back({false, x, y, y + Height(font), 0, std::wstring(p, n), c, font});
    }
    HtmlSize GetIconSize() override { return {16, 16}; }
    void DrawIcon(int x, int y, int id) override { runs.push_back({true, x, y, y + 16, id, L"", 0, {}}); }
    HtmlFont font;
    std::vector<Drawn> runs;
};

HtmlFont Font(int weight = 400, int height = -12, bool italic = false, bool underline = false, bool strike = false,
              int quality = 0)
{
    return {height, weight, quality, italic, underline, strike};
}
std::string Narrow(const std::wstring& s) { return std::string(s.begin(), s.end()); }
Ints Edges(const RECT& r) { return {r.left, r.top, r.right, r.bottom}; }

class HtmlLayoutTest : public ::testing::Test {
protected:
    HtmlLayoutTest()
    {
        style.font = Font(), style.crText = kText, style.crLink = kLink;
        layout.SetLinkCmdID(100);
    }
    int Paint(const std::wstring& text, int right = 1000, int left = 10, int top = 0, int bottom = 10000)
    {
        const RECT rc = {left, top, right, bottom};
        FakeCanvas measure;
        layout.ClearLineHeights();
        nMeasured = layout.Layout(HtmlLayout::kMeasure, measure, rc, text.c_str(), text.size(), &links, style);
        EXPECT_TRUE(measure.runs.empty()) << "the measuring pass draws nothing";
        canvas.runs.clear();
        return nPainted = layout.Layout(HtmlLayout::kPaint, canvas, rc, text.c_str(), text.size(), &links, style);
    }
    Strs Lines() const // runs sharing a bottom share a line
    {
        Strs out;
        for (size_t i = 0; i < canvas.runs.size(); ++i)
            if (!canvas.runs[i].bIcon) {
                if (out.empty() || canvas.runs[i].nBottom != canvas.runs[i - 1].nBottom)
                    out.emplace_back();
                out.back() += canvas.runs[i].text;
            }
        return out;
    }
    const Drawn& R(const std::wstring& text) const
    {
        for (const Drawn& r : canvas.runs)
            if (!r.bIcon && r.text == text)
                return r;
        static Drawn none;
        return ADD_FAILURE() << "no run \"" << Narrow(text) << "\"", none;
    }
    HtmlLayout layout;
    HtmlStyle style;
    DrawHTMLLinks links;
    FakeCanvas canvas;
    int nMeasured = 0, nPainted = 0;
};

TEST_F(HtmlLayoutTest, TagsStyleTheirSpanAndTheClosingTagRestores)
{
    const HtmlFont u = Font(400, -12, false, true), i = Font(400, -12, true), bi = Font(700, -12, true), n = Font();
    struct Row { const wchar_t* text; const wchar_t* word; HtmlFont font; HtmlColor color; } rows[] = {
        {L"<B>x</B> y", L"x", Font(700), kText}, {L"<b>x</b> y", L"y", n, kText}, {L"<I>x", L"x", i, kText},
        {L"<U>x</U>", L"x", u, kText}, {L"<H>x", L"x", Font(900, -16), kText}, {L"<BIG>x", L"x", Font(400, -14), kText},
        {L"<SMALL>x", L"x", Font(400, -10), kText}, {L"<D>x", L"x", Font(400, -12, false, false, true), kText},
        {L"<AA>x", L"x", Font(400, -12, false, false, false, kHtmlQualityAntialiased), kText},
        {L"<CT>x", L"x", Font(400, -12, false, false, false, kHtmlQualityClearType), kText}, {L"<a7>x", L"x", u, kLink},
        {L"<A>x</A> y", L"y", n, kText}, {L"<RED>x", L"x", n, HtmlRGB(128, 0, 0)}, {L"<T><B>x &lt;", L"&lt;", n, kText},
        {L"<BLUE>x", L"x", n, HtmlRGB(0, 0, 128)}, {L"<LTGREY>x", L"x", n, HtmlRGB(192, 192, 192)},
        {L"<DKGREEN>x", L"x", n, HtmlRGB(0, 64, 0)}, {L"<B>a<I>b</I>c</b>d", L"b", bi, kText},
        {L"<B>a<I>b</I>c</b>d", L"c", Font(700), kText}, {L"<B>a<I>b</I>c</b>d", L"d", n, kText},
        {L"<B>a<I>b</B>c</I>d", L"/B>c", bi, kText}, {L"<B>a<I>b</B>c</I>d", L"d", n, kText}, // "</B>" is text here
        {L"&lt;B&gt;x", L"<B>x", n, kText},
        {L"<RED><DKBLUE>x", L"<DKBLUE>x", n, HtmlRGB(128, 0, 0)}, // the dark-blue opening tag is shown as text
    };
    for (const Row& r : rows) {
        Paint(r.text);
        EXPECT_EQ(R(r.word).font, r.font) << Narrow(r.text) << " weight " << R(r.word).font.nWeight;
        EXPECT_EQ(R(r.word).color, r.color) << Narrow(r.text);
    }
    const Ints sizes[] = {{12, 16}, {-2, -1}, {2, 1}, {-12, -18}, {-998, -kHtmlMaxFontHeight}, {0, 0}};
    const wchar_t* texts[] = {L"<H>x", L"<SMALL>x", L"<SMALL><SMALL>x", L"<BIG><H>x", L"<BIG><BIG>x", L"<BIG>x"};
    for (int i = 0; i < 6; ++i) {
        style.font.nHeight = sizes[i][0];
        Paint(texts[i]);
        EXPECT_EQ(R(L"x").font.nHeight, sizes[i][1]) << Narrow(texts[i]) << " from " << sizes[i][0];
    }
}

TEST_F(HtmlLayoutTest, WordsEntitiesAndRawTextMakeTheseLines)
{
    struct Row { const wchar_t* text; int right; Strs lines; } rows[] = { // left 10, usable right edge right - 2
        {L"aaa bbb ccc", 54, {L"aaa bbb", L"ccc"}}, {L"aaa bbb ccc", 53, {L"aaa", L"bbb", L"ccc"}},
        {L"a \t\r  b", 1000, {L"a b"}}, {L"a<b c <BOLD>d", 1000, {L"a<b c <BOLD>d"}},
        {L"see C:\\Folder\\File", 100, {L"see C:\\Folder", L"\\File"}}, {L"http://a/b", 54, {L"http:/", L"/a/b"}},
        {L"abcdefghij", 42, {L"abcde", L"fghij"}}, {L"abcdefghij", 41, {L"abcd", L"efgh", L"ij"}},
        {L"aa bbbbb", 42, {L"aa", L"bbbbb"}}, {L"abc", 10, {L"a", L"b", L"c"}},
        {L"<NOBR>a b</NOBR> c", 1000, {L"a b c"}}, {L"<NOBR>abc def ghi</NOBR>", 72, {L"abc def..."}},
        {L"<NOBR>abcdefghij</NOBR>", 72, {L"abcdefghij"}}, {L"<NOBR>abcdefghijk</NOBR>", 72, {L"abcdefg..."}},
        {L"x <NOBR>abcdefghijk</NOBR> tail", 72, {L"x abcde...", L"tail"}},
        {L"<NOBR>a\\b\\c\\d\\e\\f</NOBR>", 52, {L"a\\b..."}}, {L"<NOBR>abcdef</NOBR>", 34, {L"..."}},
        {L"<NOBR>abcdef</NOBR>", 24, {}}, {L"ab<NOBR>cdefgh</NOBR>i", 36, {L"ab", L"i"}},
        {L"<nobr>ab\ncd</NOBR>", 1000, {L"ab", L"cd"}}, {L"aaaa&nbsp;bbbb", 46, {L"aaaa\u00A0", L"bbbb"}},
        {L"a&amp;b &AMP;&Lt;", 1000, {L"a&b &<"}}, {L"x&abcdefghi;y", 1000, {L"xy"}}, // unknown: nothing drawn
        {L"x&abcdefghij;y", 1000, {L"x&abcdefghij;y"}}, // ";" 11 characters after "&": text
        {L"a & b; a&;b a&lt", 1000, {L"a & b; a&;b a&lt"}}, {L"&#38;x", 1000, {L"x"}},
        {L"<T><B>x</B> &amp;</T>y", 1000, {L"<B>x</B> &amp;y"}}, {L"<t><B>x", 1000, {L"<B>x"}},
        {L"<B>a<I>b</B>c</I>d", 1000, {L"ab</B>cd"}}, {L"<DKBLUE>x</DKBLUE>", 1000, {L"<DKBLUE>x</DKBLUE>"}},
        {L"off: <b>x</b> y", 1000, {L"off: x y"}}, {L"show <a>this</a> z", 1000, {L"show this z"}},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(Narrow(r.text) + " right " + std::to_string(r.right));
        Paint(r.text, r.right);
        EXPECT_EQ(Lines(), r.lines);
        for (const Drawn& d : canvas.runs)
            EXPECT_LE(d.x + (int)d.text.size() * 6, std::max(r.right - 2, 16)) << Narrow(d.text);
    }
    const Ints bottoms[] = {{0, 0}, {26, 2}, {27, 3}}; // nothing is drawn at or below the bottom
    for (const Ints& b : bottoms) {
        EXPECT_EQ(Paint(L"a<BR>b<BR>c", 1000, 10, 0, b[0]), 38);
        EXPECT_EQ((int)Lines().size(), b[1]) << b[0];
    }
}

TEST_F(HtmlLayoutTest, RunsStandOnTheLineBottomIndentedCentredAndWrapped)
{
    struct Row { const wchar_t* text; int right, left; const wchar_t* word; int x, y, height; } rows[] = {
        {L"abc", 1000, 0, L"abc", 1, 0, 12}, {L"Abc", 1000, 0, L"Abc", 0, 0, 12}, {L"Zed", 1000, 0, L"Zed", 0, 0, 12},
        {L"@b", 1000, 0, L"@b", 1, 0, 12}, {L"[b", 1000, 0, L"[b", 1, 0, 12}, // only A-Z start at the edge
        {L"\u00C9t\u00E9", 1000, 0, L"\u00C9t\u00E9", 1, 0, 12}, {L"<B>abc</B>", 1000, 0, L"abc", 1, 0, 12},
        {L"abc def Ghi jk ghi", 46, 0, L"def", 25, 0, 38}, {L"abc def Ghi jk ghi", 46, 0, L"Ghi", 0, 13, 38},
        {L"abc def Ghi jk ghi", 46, 0, L"ghi", 1, 26, 38}, {L"aaa bbb ccc", 54, 10, L"bbb", 34, 0, 25},
        {L"aaa bbb ccc", 54, 10, L"ccc", 10, 13, 25}, // the blank before a wrapped word stays behind
        {L"a<BIG>B</BIG>c", 1000, 10, L"a", 10, 2, 14}, {L"a<BIG>B</BIG>c", 1000, 10, L"B", 16, 0, 14},
        {L"a<BR>b", 1000, 10, L"b", 10, 13, 25}, {L"a<BRHALF>b", 1000, 10, L"b", 10, 7, 19},
        {L"a\nb", 1000, 10, L"b", 10, 13, 25}, {L"a\r\nb", 1000, 10, L"b", 10, 13, 25},
        {L"\na", 1000, 10, L"a", 10, 13, 25}, {L" \t\r\n a", 1000, 10, L"a", 10, 0, 12}, // only a line feed leads
        {L"a<BIG>b<BR>c</BIG>", 1000, 10, L"c", 10, 15, 29}, {L"a <BR> b", 1000, 10, L"b", 10, 13, 25},
        {L"<CENTER>ab</CENTER>", 72, 10, L"ab", 34, 0, 12}, {L"xx <CENTER>ab</CENTER>", 72, 10, L"ab", 43, 0, 12},
        {L"xx <CENTER>ab</CENTER>", 72, 10, L"xx", 10, 0, 12}, {L"<CENTER>aaaa bbbbbbb", 72, 10, L"aaaa", 28, 0, 25},
        {L"<CENTER>aaaa bbbbbbb", 72, 10, L"bbbbbbb", 19, 13, 25},
        {L"<CENTER>abcdefghij", 72, 10, L"abcdefghij", 10, 0, 12}, // a full line stays
        {L"a<ICON>5</ICON>b", 1000, 10, L"a", 10, 4, 16}, {L"a<ICON>5</ICON>b", 1000, 10, L"b", 34, 4, 16},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(Paint(r.text, r.right, r.left), r.height) << Narrow(r.text);
        EXPECT_EQ(nMeasured, r.height) << Narrow(r.text);
        EXPECT_EQ(Ints({R(r.word).x, R(r.word).y}), Ints({r.x, r.y})) << Narrow(r.text) << " " << Narrow(r.word);
    }
}

TEST_F(HtmlLayoutTest, IconsAndTheSharedLastSlotOfTheLineTable)
{
    Paint(L"a<ICON>5</ICON>b");
    ASSERT_EQ(canvas.runs.size(), 3u);
    const Drawn& icon = canvas.runs[1];
    EXPECT_EQ(Ints({icon.bIcon, icon.nIcon, icon.x, icon.y}), Ints({1, 5, 18, 0}));
    Paint(L"a<ICON>1</ICON>", 10 + 6 + 2 + 16 + 2 - 1); // does not fit: next line
    ASSERT_EQ(canvas.runs.size(), 2u);
    EXPECT_EQ(Ints({canvas.runs[1].x, canvas.runs[1].y}), Ints({12, 13}));
    const std::pair<const wchar_t*, int> ids[] = {{L"<ICON>-3</ICON>", -3}, {L"<icon> 7 </ICON>", 7},
        {L"<ICON>x</ICON>", 0}, {L"<ICON>70000</ICON>", 0}, {L"<ICON>12", 12}, {L"<ICON></ICON>", 0}};
    for (const auto& id : ids) {
        Paint(id.first);
        EXPECT_EQ(canvas.runs.empty() ? 0 : canvas.runs[0].nIcon, id.second) << Narrow(id.first);
    }
    std::wstring text, tall;
    for (int i = 0; i < 300; ++i) {
        text += i < 299 ? L"x<BR>" : L"x";
        tall += std::wstring(i == 280 ? L"<H>x</H>" : L"x") + (i < 299 ? L"<BR>" : L"");
    }
    EXPECT_EQ(Paint(text), 299 * 13 + 12);
    EXPECT_EQ(Ints({nMeasured, (int)layout.GetLineNumber(), (int)canvas.runs.size()}), Ints({nPainted, 255, 300}));
    Paint(tall); // the shared slot keeps the tallest line: the 44 others from 255 on paint at its height
    EXPECT_EQ(Ints({(int)layout.GetLineHeight(254), (int)layout.GetLineHeight(255)}), Ints({12, 16}));
    EXPECT_EQ(nPainted - nMeasured, 44 * 4);
}

TEST_F(HtmlLayoutTest, LinksGetIdsTextsAndRectanglesThatHitTestExactly)
{
    Paint(L"go <A>here</A> <A3>x</A3> <A9>y</a9>", 1000, 10, 5);
    ASSERT_EQ(links.GetCount(), 3u);
    EXPECT_STREQ(links.Get(0)->GetText(), L"here");
    const Ints ids = {links.Get(0)->GetCmdID(), links.Get(1)->GetCmdID(), links.Get(2)->GetCmdID()};
    EXPECT_EQ(ids, Ints({100, 103, 109}));
    EXPECT_EQ(Edges(links.Get(0)->GetRects().at(0)), Ints({18, 0, 42, 12})); // relative, without the blank
    Paint(L"ab <A>cdef ghij</A> k", 60, 10, 5); // a rectangle per line
    ASSERT_EQ(links.GetCount(), 1u) << "every draw starts a new list";
    ASSERT_EQ(links.Get(0)->GetRects().size(), 2u);
    EXPECT_EQ(Edges(links.Get(0)->GetRects()[0]), Ints({18, 0, 48, 12}));
    EXPECT_EQ(Edges(links.Get(0)->GetRects()[1]), Ints({0, 13, 24, 25}));
    EXPECT_STREQ(links.Get(0)->GetText(), L"cdef ghij");
    const Ints hits[] = {{18, 0, 100}, {47, 11, 100}, {48, 5, -1}, {17, 5, -1}, {20, 12, -1}, {23, 24, 100}};
    for (const Ints& p : hits)
        EXPECT_EQ(HtmlLayout::GetLinkAreaID(&links, p[0], p[1]), p[2]) << p[0] << "," << p[1];
    Paint(L"<A>ab<A1>cd</A1>ef</A>"); // an inner link ends the outer one
    ASSERT_EQ(links.GetCount(), 2u);
    EXPECT_EQ(Strs({links.Get(0)->GetText(), links.Get(1)->GetText()}), Strs({L"ab", L"cd"}));
    EXPECT_EQ(HtmlLayout::GetLinkAreaID(&links, 25, 5), -1) << "over \"ef\"";
    for (const Ints& b : {Ints{INT_MAX, INT_MAX - 9, INT_MAX}, Ints{-5, 0, 9}}) {
        layout.SetLinkCmdID(b[0]);
        Paint(L"<A>a</A><A9>b</A9>");
        ASSERT_EQ(links.GetCount(), 2u);
        EXPECT_EQ(Ints({links.Get(0)->GetCmdID(), links.Get(1)->GetCmdID()}), Ints({b[1], b[2]}));
    }
}

TEST(HtmlMarkup, StripTagsKeepsWhatIsShownAndNeverWritesPastTheBuffer)
{
    wchar_t buf[64] = {};
    const wchar_t* text = L"<B>Hi</B> &amp; <T><I></T><BR>x<ICON>5</ICON>&abcdefgh;";
    EXPECT_EQ(HtmlLayout::GetHTMLTextStripTags(text, buf, 64), 11u);
    EXPECT_STREQ(buf, L"Hi & <I>\r\nx");
    EXPECT_EQ(HtmlLayout::GetHTMLTextStripTags(text, nullptr, 0), 11u);
    buf[4] = buf[5] = 0xbdbd;
    EXPECT_EQ(HtmlLayout::GetHTMLTextStripTags(text, buf, 4), 3u);
    EXPECT_EQ(HtmlLayout::GetHTMLTextStripTags(text, buf + 5, 0), 0u);
    EXPECT_EQ(std::wstring(buf, 6), std::wstring(L"Hi \0\xbdbd\xbdbd", 6));
}

UINT g_windowDpi, g_systemDpi;

TEST(Dpi, ScalesWithHalvesAwayFromZeroWithinTheIntRangeAndFallsBackToTheSystemThen96)
{
    const Ints rows[] = {{2, 120, 3, 2}, {3, 120, 4, 2}, {-2, 120, -3, -2}, {3, 144, 5, 2}, {-2, 144, -3, -1},
        {100, 144, 150, 67}, {1, 192, 2, 1}, {1000, 48, 500, 2000}, {7, 0, 7, 7}, {INT_MAX, 96, INT_MAX, INT_MAX},
        {INT_MIN, 96, INT_MIN, INT_MIN}, {INT_MAX, 192, INT_MAX, 1073741824}, {INT_MIN, 192, INT_MIN, -1073741824},
        {INT_MAX, -1, INT_MAX, 48}, {INT_MIN, -1, INT_MIN, -48}, {INT_MAX, 48, 1073741824, INT_MAX}}; // -1: UINT_MAX
    for (const Ints& r : rows)
        EXPECT_EQ(Ints({Dpi::Scale(r[0], (UINT)r[1]), Dpi::Unscale(r[0], (UINT)r[1])}), Ints({r[2], r[3]}))
            << r[0] << " at " << r[1];
    const auto savedWindow = UiSeams::pfnGetWindowDpi;
    const auto savedSystem = UiSeams::pfnGetSystemDpi;
    UiSeams::pfnGetWindowDpi = [](HWND) { return g_windowDpi; };
    UiSeams::pfnGetSystemDpi = [] { return g_systemDpi; };
    const Ints cases[] = {{1, 120, 144, 120}, {1, 0, 144, 144}, {1, 0, 0, 96}, {0, 120, 192, 192}}; // 0: no window
    for (const Ints& c : cases) {
        g_windowDpi = c[1], g_systemDpi = c[2];
        EXPECT_EQ(Dpi::ForWindow((HWND)(INT_PTR)c[0]).Get(), (UINT)c[3]) << c[1] << " " << c[2];
    }
    UiSeams::pfnGetWindowDpi = savedWindow, UiSeams::pfnGetSystemDpi = savedSystem;
}

TEST(ParseIntText, ReadsWholeDecimalNumbersOfTheIntRangeOnly)
{
    struct Row { const wchar_t* text; int ok, value; } rows[] = {{L"  42\t", 1, 42}, {L"+7", 1, 7}, {L"-5", 1, -5},
        {L"2147483647", 1, INT_MAX}, {L"-2147483648", 1, INT_MIN}, {L"2147483648", 0, INT_MAX}, {L"", 0, 0},
        {L"-2147483649", 0, INT_MIN}, {L"99999999999999999999999", 0, INT_MAX}, {L"12abc", 0, 0}, {L"1 2", 0, 0},
        {L"- 5", 0, 0}, {L"0x10", 0, 0}, {L"/", 0, 0}, {L":", 0, 0}, {L"1:", 0, 0}, {L"\xFF11", 0, 0}, {nullptr, 0, 0}};
    for (const Row& r : rows) {
        int value = 0x5a5a;
        const int ok = ParseIntText(r.text, &value);
        EXPECT_EQ(Ints({ok, value}), Ints({r.ok, r.value})) << (r.text ? r.text : L"(null)");
    }
}

TEST(DrawHTMLTools, TheSystemLinkColourIsKeptOnlyWhereItStandsOut)
{
    const COLORREF blue = DrawHTMLTools::kLinkBlue, white = RGB(255, 255, 255), grey = RGB(148, 148, 148);
    const COLORREF rows[][3] = {{RGB(255, 255, 0), 0, RGB(255, 255, 0)}, {RGB(224, 224, 224), RGB(245, 245, 245), blue},
                                {grey, white, grey}, {RGB(150, 150, 150), white, blue}}; // 3.03:1 is kept, 2.96:1 not
    for (const auto& r : rows)
        EXPECT_EQ(r[2], DrawHTMLTools::ReadableLinkColor(r[0], r[1])) << std::hex << r[0];
}

TEST(MsgBoxModel, TheLastErrorIsAppendedOnlyWhenAskedAndPendingAndTheTextIsBounded)
{
    struct Row { DWORD flags, error; const wchar_t* want; } rows[] = {{MB_OK, 5, L"No."}, {kAppendLastError, 0, L"No."},
        {kAppendLastError, 5, L"No.\n\nDenied."}, {kAppendLastError | kHtmlErrorSeparator, 5, L"No.<br><br>Denied."}};
    for (const Row& r : rows) {
        wchar_t out[64];
        EXPECT_EQ(wcslen(r.want), ComposeText(out, 64, L"No.", r.flags, r.error, L"Denied."));
        EXPECT_STREQ(r.want, out);
    }
    const std::wstring longText(3000, L'x');
    static wchar_t big[4096], small[8];
    EXPECT_EQ(kMaxText, ComposeText(big, 4096, longText.c_str(), kAppendLastError, 5, L"more"));
    EXPECT_EQ(7u, ComposeText(small, 8, longText.c_str(), 0, 0, nullptr));
}

TEST(MsgBoxModel, ButtonsIconsAndTheButtonADeviceArrivalPresses)
{
    struct Row { DWORD flags; int answers[3], device; } rows[] = {{MB_OK, {0, 0, IDOK}, 0},
        {MB_OKCANCEL, {IDOK, 0, IDCANCEL}, 0}, {MB_YESNO | MB_ICONWARNING | kAppendLastError, {IDYES, 0, IDNO}, 0},
        {MB_ABORTRETRYIGNORE, {IDABORT, IDRETRY, IDIGNORE}, kIdButton2}, {MB_YESNOCANCEL, {IDYES, IDNO, IDCANCEL}, 0},
        {MB_RETRYCANCEL, {IDRETRY, 0, IDCANCEL}, kIdButton1},
        {MB_CANCELTRYCONTINUE, {IDTRYAGAIN, IDCONTINUE, IDCANCEL}, kIdButton1}};
    for (const Row& r : rows) {
        SCOPED_TRACE(testing::Message() << "flags " << std::hex << r.flags);
        const Buttons b = ButtonsFor(r.flags);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(Ints({b.place[i].nAnswer, !!b.place[i].nLabelId}), Ints({r.answers[i], !!r.answers[i]})) << i;
        EXPECT_EQ(r.answers[2], AnswerOfControl(b, kIdButtonCancel));
        EXPECT_EQ(kIdButtonCancel, ControlOfAnswer(b, r.answers[2]));
        EXPECT_EQ(0, ControlOfAnswer(b, 0)) << "an empty place answers nothing";
        EXPECT_EQ(0, AnswerOfControl(b, IDOK)) << "only the box's own controls answer";
        const int device = DeviceArrivalControl(r.flags | kPressFirstOnDevice);
        EXPECT_EQ(Ints({device, DeviceArrivalControl(r.flags)}), Ints({r.device, 0}));
    }
    EXPECT_EQ(Ints({IconFor(MB_ICONERROR), IconFor(MB_ICONQUESTION), IconFor(MB_ICONWARNING), IconFor(MB_USERICON)}),
              Ints({IconError, IconQuestion, IconWarning, IconInformation}));
    EXPECT_EQ(Ints({IconSizeFor(143), IconSizeFor(144)}), Ints({48, 64}));
}

} // namespace
