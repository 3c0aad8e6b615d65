// The layout rules of the rich-text markup on a canvas with exact metrics (FakeCanvas: 6 pixels a
// character, 7 in bold, text as tall as the font's height magnitude). Every draw measures, then
// paints, as a control does.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "base/StrUtil.h"
#include "ui/FakeCanvas.h"
#include "ui/HtmlLayout.h"

using vxtest::DrawnRun;
using vxtest::FakeCanvas;

namespace {

typedef std::vector<std::wstring> Strs;
const HtmlColor kText = HtmlRGB(1, 2, 3), kLink = HtmlRGB(0, 0, 255);

HtmlFont Font(int weight = 400, int height = -12, bool italic = false, bool underline = false, bool strike = false,
              int quality = 0)
{
    HtmlFont f;
    f.nWeight = weight, f.nHeight = height, f.bItalic = italic, f.bUnderline = underline, f.bStrike = strike;
    f.nQuality = quality;
    return f;
}
std::string Narrow(const std::wstring& s) { return std::string(s.begin(), s.end()); }
std::vector<int> Edges(const RECT& r) { return {r.left, r.top, r.right, r.bottom}; }
void RecordOpenSpan(void* pContext, const wchar_t* pszClosingTag)
{
    static_cast<Strs*>(pContext)->push_back(pszClosingTag);
}

class HtmlLayoutTest : public ::testing::Test {
protected:
    HtmlLayoutTest()
    {
        style.font = Font();
        style.crText = kText;
        style.crLink = kLink;
        layout.SetLinkCmdID(100);
        layout.SetOpenSpanCallback(RecordOpenSpan, &open);
    }
    // Measures, then paints, into left..right, top..bottom; returns the painted height.
    int Paint(const std::wstring& text, int right = 1000, int left = 10, int top = 0, int bottom = 10000)
    {
        const RECT rc = {left, top, right, bottom};
        FakeCanvas measure;
        layout.ClearLineHeights();
        open.clear();
        nMeasured = layout.Layout(HtmlLayout::kMeasure, measure, rc, text.c_str(), text.size(), &links, style);
        EXPECT_TRUE(measure.runs.empty()) << "the measuring pass draws nothing";
        canvas.runs.clear();
        nPainted = layout.Layout(HtmlLayout::kPaint, canvas, rc, text.c_str(), text.size(), &links, style);
        return nPainted;
    }
    // The drawn text, line by line (runs sharing a bottom share a line).
    Strs Lines() const
    {
        Strs out;
        int bottom = INT_MIN;
        for (const DrawnRun& r : canvas.runs) {
            if (r.bIcon)
                continue;
            if (out.empty() || bottom != r.nBottom)
                out.emplace_back();
            bottom = r.nBottom;
            out.back() += r.text;
        }
        return out;
    }
    const DrawnRun& Run(const std::wstring& text) const
    {
        for (const DrawnRun& r : canvas.runs)
            if (!r.bIcon && r.text == text)
                return r;
        static DrawnRun none;
        ADD_FAILURE() << "no run \"" << Narrow(text) << "\"";
        return none;
    }
    HtmlLayout layout;
    HtmlStyle style;
    DrawHTMLLinks links;
    FakeCanvas canvas;
    Strs open; // the spans reported open at the end of each pass
    int nMeasured = 0, nPainted = 0;
};

// ---- Tags -------------------------------------------------------------------------------------

TEST_F(HtmlLayoutTest, EachTagStylesItsSpanAndTheClosingTagRestores)
{
    struct Row { const wchar_t* text; HtmlFont font; HtmlColor color; } rows[] = {
        {L"<B>x</B> y", Font(700), kText}, {L"<b>x</b> y", Font(700), kText},
        {L"<I>x</I> y", Font(400, -12, true), kText}, {L"<U>x</U> y", Font(400, -12, false, true), kText},
        {L"<H>x</H> y", Font(900, -16), kText}, {L"<BIG>x</BIG> y", Font(400, -14), kText},
        {L"<SMALL>x</SMALL> y", Font(400, -10), kText}, {L"<D>x</D> y", Font(400, -12, false, false, true), kText},
        {L"<AA>x</AA> y", Font(400, -12, false, false, false, kHtmlQualityAntialiased), kText},
        {L"<CT>x</CT> y", Font(400, -12, false, false, false, kHtmlQualityClearType), kText},
        {L"<A>x</A> y", Font(400, -12, false, true), kLink}, {L"<a7>x</A7> y", Font(400, -12, false, true), kLink},
        {L"<RED>x</RED> y", Font(), HtmlRGB(128, 0, 0)}, {L"<GREEN>x</GREEN> y", Font(), HtmlRGB(0, 128, 0)},
        {L"<BLUE>x</BLUE> y", Font(), HtmlRGB(0, 0, 128)}, {L"<GREY>x</GREY> y", Font(), HtmlRGB(128, 128, 128)},
        {L"<LTRED>x</LTRED> y", Font(), HtmlRGB(192, 0, 0)}, {L"<LTGREEN>x</LTGREEN> y", Font(), HtmlRGB(0, 192, 0)},
        {L"<LTBLUE>x</LTBLUE> y", Font(), HtmlRGB(0, 0, 192)},
        {L"<LTGREY>x</LTGREY> y", Font(), HtmlRGB(192, 192, 192)},
        {L"<DKRED>x</DKRED> y", Font(), HtmlRGB(64, 0, 0)}, {L"<DKGREEN>x</DKGREEN> y", Font(), HtmlRGB(0, 64, 0)},
        {L"<DKGREY>x</DKGREY> y", Font(), HtmlRGB(64, 64, 64)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.text));
        Paint(row.text);
        EXPECT_EQ(Lines(), Strs({L"x y"}));
        EXPECT_EQ(Run(L"x").font, row.font) << "weight " << Run(L"x").font.nWeight;
        EXPECT_EQ(Run(L"x").color, row.color);
        EXPECT_EQ(Run(L"y").font, Font());
        EXPECT_EQ(Run(L"y").color, kText);
    }
}

TEST_F(HtmlLayoutTest, SizeTagsChangeTheMagnitudeAndKeepTheSign)
{
    struct Row { int base; const wchar_t* text; int expected; } rows[] = {
        {12, L"<H>x</H>", 16}, {12, L"<BIG>x</BIG>", 14}, {12, L"<SMALL>x</SMALL>", 10},
        {-2, L"<SMALL>x</SMALL>", -1}, {2, L"<SMALL><SMALL>x</SMALL></SMALL>", 1},
        {-12, L"<BIG><H>x</H></BIG>", -18}, {-998, L"<BIG><BIG>x</BIG></BIG>", -kHtmlMaxFontHeight},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.text) + " from " + std::to_string(row.base));
        style.font.nHeight = row.base;
        Paint(row.text);
        EXPECT_EQ(Run(L"x").font.nHeight, row.expected);
    }
}

TEST_F(HtmlLayoutTest, SpansCloseInTheOrderOpenedOrRunToTheEnd)
{
    Paint(L"<B>a<I>b</I>c</b>d");
    EXPECT_EQ(Lines(), Strs({L"abcd"}));
    EXPECT_EQ(Run(L"b").font, Font(700, -12, true));
    EXPECT_EQ(Run(L"c").font, Font(700));
    EXPECT_EQ(Run(L"d").font, Font());
    EXPECT_TRUE(open.empty());
    // Closed out of order: "</B>" stands inside the italic span and is text; the bold span,
    // already past its end, closes with the italic one.
    Paint(L"<B>a<I>b</B>c</I>d");
    EXPECT_EQ(Lines(), Strs({L"ab</B>cd"}));
    EXPECT_EQ(Run(L"/B>c").font, Font(700, -12, true));
    EXPECT_EQ(Run(L"d").font, Font());
    EXPECT_TRUE(open.empty());
    // Spans left open run to the end and reach the callback innermost first, in both passes.
    Paint(L"<B>a <I>b c");
    EXPECT_EQ(Run(L"a").font, Font(700));
    EXPECT_EQ(Run(L"c").font, Font(700, -12, true));
    EXPECT_EQ(open, Strs({L"</I>", L"</B>", L"</I>", L"</B>"}));
}

TEST_F(HtmlLayoutTest, EntitiesDecodeWithinTheirWindowAndOtherAmpersandsAreText)
{
    struct Row { const wchar_t* text; const wchar_t* shown; } rows[] = {
        {L"a&amp;b", L"a&b"}, {L"&lt;B&gt;x", L"<B>x"}, {L"&AMP;&Lt;", L"&<"}, {L"a&nbsp;b", L"a\u00A0b"},
        {L"x&abcdefgh;y", L"xy"},               // an unknown entity draws nothing
        {L"x&abcdefghi;y", L"xy"},              // ";" 10 characters after "&": still inside the window
        {L"x&abcdefghij;y", L"x&abcdefghij;y"}, // 11: ordinary text
        {L"a & b; c", L"a & b; c"}, {L"a&;b", L"a&;b"}, {L"a&lt", L"a&lt"}, {L"&#38;x", L"x"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.text));
        Paint(row.text);
        EXPECT_EQ(Lines(), Strs({row.shown}));
        wchar_t stripped[64];
        EXPECT_EQ(HtmlLayout::GetHTMLTextStripTags(row.text, stripped, 64), StrLen(row.shown));
        EXPECT_STREQ(stripped, row.shown);
    }
    Paint(L"&lt;B&gt;x"); // an escaped tag is no tag
    EXPECT_EQ(Run(L"<B>x").font, Font());
    Paint(L"a&nbsp;b"); // a no-break space keeps its word whole
    EXPECT_EQ(canvas.runs.size(), 1u);
}

TEST_F(HtmlLayoutTest, RawTextAndTheDarkBlueQuirkShowTagsLiterally)
{
    struct Row { const wchar_t* text; const wchar_t* shown; HtmlColor color; } rows[] = {
        {L"<T><B>x</B> &amp;</T>y", L"<B>x</B> &amp;y", kText},
        {L"<t><B>x", L"<B>x", kText}, // no "</T>": raw to the end
        {L"<RED><DKBLUE>x</DKBLUE></RED>", L"<DKBLUE>x</DKBLUE>", HtmlRGB(128, 0, 0)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.text));
        Paint(row.text);
        EXPECT_EQ(Lines(), Strs({row.shown}));
        for (const DrawnRun& r : canvas.runs) {
            EXPECT_EQ(r.font, Font()) << Narrow(r.text);
            EXPECT_EQ(r.color, row.color) << Narrow(r.text);
        }
    }
}

// ---- Words and lines --------------------------------------------------------------------------

TEST_F(HtmlLayoutTest, WordsWrapOrAreCutAtTheUsableRightEdge)
{
    struct Row {
        const wchar_t* text;
        int right; // left is 10; the usable edge is right - 2
        Strs lines;
    } rows[] = {
        {L"aaa bbb ccc", 54, {L"aaa bbb", L"ccc"}}, // "aaa bbb" ends exactly on the edge
        {L"aaa bbb ccc", 53, {L"aaa", L"bbb", L"ccc"}},
        {L"a \t\r  b", 1000, {L"a b"}},
        {L"a<b c <BOLD>d", 1000, {L"a<b c <BOLD>d"}}, // unknown tags are text
        {L"see C:\\Folder\\File", 100, {L"see C:\\Folder", L"\\File"}},
        {L"see C:\\Folder\\File", 60, {L"see C:", L"\\Folder", L"\\File"}},
        {L"http://a/b", 54, {L"http:/", L"/a/b"}},
        {L"abcdefghij", 42, {L"abcde", L"fghij"}}, // wider than a line: broken where it stops fitting
        {L"abcdefghij", 41, {L"abcd", L"efgh", L"ij"}},
        {L"aa bbbbb", 42, {L"aa", L"bbbbb"}}, // fits a whole line: moves instead of breaking
        {L"abc", 10, {L"a", L"b", L"c"}},     // no room at all: one character a line
        {L"<NOBR>a b</NOBR> c", 1000, {L"a b c"}},
        {L"<NOBR>abc def ghi</NOBR>", 72, {L"abc def..."}},
        {L"<NOBR>abcdefghij</NOBR>", 72, {L"abcdefghij"}}, // exactly fits
        {L"<NOBR>abcdefghijk</NOBR>", 72, {L"abcdefg..."}},
        {L"x <NOBR>abcdefghijk</NOBR> tail", 72, {L"x abcde...", L"tail"}},
        {L"<NOBR>a\\b\\c\\d\\e\\f</NOBR>", 52, {L"a\\b..."}}, // a path is cut as a whole
        {L"<NOBR>abcdef</NOBR>", 34, {L"..."}},
        {L"<NOBR>abcdef</NOBR>", 24, {}},               // not even "..." fits
        {L"ab<NOBR>cdefgh</NOBR>i", 36, {L"ab", L"i"}}, // and the rest of that line stays empty
        {L"<nobr>ab\ncd</NOBR>", 1000, {L"ab", L"cd"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.text) + " right " + std::to_string(row.right));
        Paint(row.text, row.right);
        EXPECT_EQ(Lines(), row.lines);
        for (const DrawnRun& r : canvas.runs)
            EXPECT_LE(r.x + (int)r.text.size() * 6, std::max(row.right - 2, 10 + 6)) << Narrow(r.text);
    }
    // The blank before a wrapped word stays behind: the new line starts at the left edge.
    Paint(L"aaa bbb ccc", 54);
    EXPECT_EQ(Run(L"ccc").x, 10);
    EXPECT_EQ(Run(L"bbb").x, 34);
}

TEST_F(HtmlLayoutTest, TextAtTheDeviceLeftEdgeIsIndentedUnlessItStartsWithACapital)
{
    struct Row {
        const wchar_t* text;
        int left, x;
    } rows[] = {{L"abc", 0, 1}, {L"Abc", 0, 0}, {L"Zed", 0, 0}, {L"1abc", 0, 1}, {L"\u00C9t\u00E9", 0, 1},
                {L"abc", 10, 10}, {L"<B>abc</B>", 0, 1}};
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.text));
        Paint(row.text, 1000, row.left);
        ASSERT_FALSE(canvas.runs.empty());
        EXPECT_EQ(canvas.runs[0].x, row.x);
    }
    // The pen moves on from the indented text; a wrapped line is indented again.
    Paint(L"abc def Ghi jk", 46, 0);
    EXPECT_EQ(Lines(), Strs({L"abc def", L"Ghi jk"}));
    EXPECT_EQ(Run(L"def").x, 25);
    EXPECT_EQ(Run(L"Ghi").x, 0);
    Paint(L"abc def ghi", 46, 0);
    EXPECT_EQ(Run(L"ghi").x, 1);
}

TEST_F(HtmlLayoutTest, TextStandsOnTheLineBottomAndNewLinesAdvanceByItsHeightPlusOne)
{
    EXPECT_EQ(Paint(L"a<BIG>B</BIG>c"), 14);
    EXPECT_EQ(nMeasured, 14);
    EXPECT_EQ(Run(L"a").y, 2);
    EXPECT_EQ(Run(L"B").y, 0);
    EXPECT_EQ(Run(L"c").y, 2);
    struct Row { const wchar_t* text; const wchar_t* last; int y, height; } rows[] = {
        {L"a<BR>b", L"b", 13, 25}, {L"a<br>b", L"b", 13, 25}, {L"a<BRHALF>b", L"b", 7, 19},
        {L"a\nb", L"b", 13, 25}, {L"a\r\nb", L"b", 13, 25},
        {L"\na", L"a", 13, 25},      // a leading line feed is kept
        {L" \t\r\n a", L"a", 0, 12}, // other leading white space is not
        {L"a<BIG>b<BR>c</BIG>", L"c", 15, 29}, {L"a <BR> b", L"b", 13, 25},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.text));
        EXPECT_EQ(Paint(row.text), row.height);
        EXPECT_EQ(nMeasured, row.height);
        const DrawnRun& r = Run(row.last);
        EXPECT_EQ(r.y + FakeCanvas::Height(r.font), row.y + (int)layout.GetLineHeight(layout.GetLineNumber()));
        EXPECT_EQ(r.x, 10) << "a new line starts at the left edge, without the blank";
    }
}

TEST_F(HtmlLayoutTest, NothingIsDrawnOnLinesAtOrBelowTheBottom)
{
    struct Row { int bottom; Strs lines; } rows[] = {{26, {L"a", L"b"}}, {27, {L"a", L"b", L"c"}}, {0, {}}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bottom);
        EXPECT_EQ(Paint(L"a<BR>b<BR>c", 1000, 10, 0, row.bottom), 38) << "the height does not depend on the bottom";
        EXPECT_EQ(Lines(), row.lines);
    }
}

TEST_F(HtmlLayoutTest, LineTableKeepsTwoHundredFiftySixLinesAndTheLastSlotIsShared)
{
    std::wstring text;
    for (int i = 0; i < 299; ++i)
        text += L"x<BR>";
    EXPECT_EQ(Paint(text + L"x"), 299 * 13 + 12);
    EXPECT_EQ(nMeasured, nPainted);
    EXPECT_EQ(layout.GetLineNumber(), 255u);
    EXPECT_EQ(canvas.runs.size(), 300u);
    EXPECT_EQ(canvas.runs.back().y, 299 * 13);
    // One taller line past the 255th: its slot is every later line's slot, so the painting pass
    // gives the 44 other lines from 255 on its height too.
    std::wstring tall;
    for (int i = 0; i < 300; ++i)
        tall += std::wstring(i == 280 ? L"<H>x</H>" : L"x") + (i < 299 ? L"<BR>" : L"");
    Paint(tall);
    EXPECT_EQ(layout.GetLineHeight(255), 16u);
    EXPECT_EQ(layout.GetLineHeight(254), 12u);
    EXPECT_EQ(nPainted - nMeasured, 44 * 4);
}

TEST_F(HtmlLayoutTest, CentredTextIsCentredBetweenThePenAndTheRightMargin)
{
    struct Row { const wchar_t* text; const wchar_t* word; int x; } rows[] = {
        {L"<CENTER>ab</CENTER>", L"ab", 10 + (70 - 22) / 2},
        {L"xx <CENTER>ab</CENTER>", L"ab", 28 + (70 - 40) / 2},
        {L"xx <CENTER>ab</CENTER>", L"xx", 10},
        {L"<CENTER>aaaa bbbbbbb</CENTER>", L"aaaa", 10 + (70 - 34) / 2}, // each line on its own
        {L"<CENTER>aaaa bbbbbbb</CENTER>", L"bbbbbbb", 10 + (70 - 52) / 2},
        {L"<CENTER>abcdefghij</CENTER>", L"abcdefghij", 10}, // a full line stays
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.text));
        Paint(row.text, 72);
        EXPECT_EQ(Run(row.word).x, row.x);
    }
}

TEST_F(HtmlLayoutTest, IconsStandOnTheLineAfterATwoPixelGap)
{
    Paint(L"a<ICON>5</ICON>b");
    ASSERT_EQ(canvas.runs.size(), 3u);
    const DrawnRun& icon = canvas.runs[1];
    EXPECT_EQ(std::vector<int>({icon.bIcon, icon.nIcon, icon.x, icon.y}), std::vector<int>({1, 5, 16 + 2, 0}));
    EXPECT_EQ(Run(L"a").y, 4) << "the icon makes the line 16 pixels tall";
    EXPECT_EQ(Run(L"b").x, 34);
    EXPECT_EQ(nPainted, 16);
    struct Row {
        const wchar_t* text;
        int id; // 0: no icon
    } rows[] = {{L"<ICON>-3</ICON>", -3}, {L"<icon> 7 </ICON>", 7}, {L"<ICON>x</ICON>", 0},
                {L"<ICON>70000</ICON>", 0}, {L"<ICON>12", 12}, {L"<ICON></ICON>", 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.text));
        Paint(row.text);
        ASSERT_EQ(canvas.runs.size(), row.id ? 1u : 0u);
        if (row.id) {
            EXPECT_EQ(canvas.runs[0].nIcon, row.id);
        }
    }
    // An icon that does not fit moves to the next line.
    Paint(L"a<ICON>1</ICON>", 10 + 6 + 2 + 16 + 2 - 1);
    ASSERT_EQ(canvas.runs.size(), 2u);
    EXPECT_EQ(canvas.runs[1].x, 12);
    EXPECT_EQ(canvas.runs[1].y, 13);
}

// ---- Links ------------------------------------------------------------------------------------

TEST_F(HtmlLayoutTest, LinksGetTheirCommandIdsTextsAndRectangles)
{
    Paint(L"go <A>here</A> <A3>x</A3> <A9>y</a9>", 1000, 10, 5);
    ASSERT_EQ(links.GetCount(), 3u);
    EXPECT_EQ(links.Get(0)->GetCmdID(), 100);
    EXPECT_STREQ(links.Get(0)->GetText(), L"here");
    // The blank before the link is not part of it; coordinates are relative to the rectangle.
    ASSERT_EQ(links.Get(0)->GetRects().size(), 1u);
    EXPECT_EQ(Edges(links.Get(0)->GetRects()[0]), std::vector<int>({18, 0, 42, 12}));
    EXPECT_EQ(links.Get(1)->GetCmdID(), 103);
    EXPECT_EQ(links.Get(2)->GetCmdID(), 109);
    EXPECT_EQ(links.Get(1)->GetRects()[0].left, 48);
    Paint(L"<A>once</A>"); // every draw starts a new list
    EXPECT_EQ(links.GetCount(), 1u);
    // A link spanning lines has a rectangle per line, and hit tests exactly (left 10, top 5,
    // usable right edge 58).
    Paint(L"ab <A>cdef ghij</A> k", 60, 10, 5);
    ASSERT_EQ(links.GetCount(), 1u);
    const auto& rects = links.Get(0)->GetRects();
    ASSERT_EQ(rects.size(), 2u);
    EXPECT_EQ(Edges(rects[0]), std::vector<int>({18, 0, 48, 12}));
    EXPECT_EQ(Edges(rects[1]), std::vector<int>({0, 13, 24, 25}));
    EXPECT_STREQ(links.Get(0)->GetText(), L"cdef ghij");
    struct Point { int x, y, id; } points[] = {{18, 0, 100}, {47, 11, 100}, {48, 5, -1}, {17, 5, -1}, {20, 12, -1},
                  {0, 13, 100}, {23, 24, 100}, {24, 20, -1}, {10, 25, -1}};
    for (const Point& p : points) {
        SCOPED_TRACE(std::to_string(p.x) + "," + std::to_string(p.y));
        EXPECT_EQ(HtmlLayout::GetLinkAreaID(&links, p.x, p.y), p.id);
        EXPECT_EQ(HtmlLayout::FindLinkArea(&links, p.x, p.y), p.id != -1 ? links.Get(0) : nullptr);
    }
    EXPECT_EQ(HtmlLayout::GetLinkAreaID(nullptr, 20, 5), -1);
}

TEST_F(HtmlLayoutTest, OpenAndNestedLinks)
{
    Paint(L"<A>abc");
    ASSERT_EQ(links.GetCount(), 1u);
    EXPECT_STREQ(links.Get(0)->GetText(), L"abc");
    EXPECT_EQ(links.Get(0)->GetRects()[0].right, 18);
    EXPECT_EQ(open, Strs({L"</A>", L"</A>"}));
    // An inner link ends the outer one; the outer's rest is no link.
    Paint(L"<A>ab<A1>cd</A1>ef</A>");
    ASSERT_EQ(links.GetCount(), 2u);
    EXPECT_EQ(links.Get(0)->GetCmdID(), 100);
    EXPECT_STREQ(links.Get(0)->GetText(), L"ab");
    EXPECT_EQ(links.Get(1)->GetCmdID(), 101);
    EXPECT_STREQ(links.Get(1)->GetText(), L"cd");
    EXPECT_EQ(HtmlLayout::GetLinkAreaID(&links, 25, 5), -1) << "over \"ef\"";
}

TEST_F(HtmlLayoutTest, LinkIdsStayInRange)
{
    struct Row { int base, a, a9; } rows[] = {{INT_MAX, INT_MAX - 9, INT_MAX}, {-5, 0, 9}, {1023, 1023, 1032}};
    for (const Row& row : rows) {
        layout.SetLinkCmdID(row.base);
        Paint(L"<A>a</A><A9>b</A9>");
        ASSERT_EQ(links.GetCount(), 2u);
        EXPECT_EQ(links.Get(0)->GetCmdID(), row.a);
        EXPECT_EQ(links.Get(1)->GetCmdID(), row.a9);
    }
}

// ---- Plain functions --------------------------------------------------------------------------

TEST(HtmlMarkup, StripTagsKeepsWhatIsShownAndNeverWritesPastTheBuffer)
{
    struct Row { const wchar_t* text; const wchar_t* stripped; } rows[] = {
        {L"<B>Hi</B> &amp; <T><I></T>", L"Hi & <I>"}, {L"a<BR>b<brhalf>c", L"a\r\nb\r\nc"},
        {L"<ICON>5</ICON>x", L"x"}, {L"<DKBLUE>x</DKBLUE>", L"<DKBLUE>x</DKBLUE>"}, {L"<B>a<I>b</B>c</I>", L"ab</B>c"},
        {L"<A2>go</a2>  there\n", L"go  there\n"}, {L"</B>", L"</B>"}, {L"", L""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.text));
        wchar_t buf[64];
        EXPECT_EQ(HtmlLayout::GetHTMLTextStripTags(row.text, buf, 64), StrLen(row.stripped));
        EXPECT_STREQ(buf, row.stripped);
        EXPECT_EQ(HtmlLayout::GetHTMLTextStripTags(row.text, nullptr, 0), StrLen(row.stripped));
    }
    wchar_t buf[8];
    std::fill(buf, buf + 8, (wchar_t)0xbdbd);
    EXPECT_EQ(HtmlLayout::GetHTMLTextStripTags(L"<B>Hi</B> there", buf, 4), 3u);
    EXPECT_STREQ(buf, L"Hi ");
    EXPECT_EQ(buf[4], 0xbdbd);
    EXPECT_EQ(HtmlLayout::GetHTMLTextStripTags(L"<B>Hi</B> there", buf + 5, 0), 0u);
    EXPECT_EQ(buf[5], 0xbdbd);
    EXPECT_EQ(HtmlLayout::GetHTMLTextStripTags(nullptr, buf, 8), 0u);
    EXPECT_STREQ(buf, L"");
}

TEST(HtmlMarkup, IsNextItemAndFindNextItemIgnoreCase)
{
    struct Row {
        const wchar_t* text;
        const wchar_t* tag;
        int matches;
    } rows[] = {{L"<b>x", L"<B>", 1}, {L"<BIG>", L"<big>", 1}, {L"<B", L"<B>", 0}, {L"", L"<B>", 0},
                {L"x<B>", L"<B>", 0}, {L"<Bx>", L"<B>", 0}};
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.text));
        const wchar_t* p = row.text;
        EXPECT_EQ(HtmlLayout::IsNextItem(p, row.tag), row.matches);
        EXPECT_EQ(p, row.text + (row.matches ? StrLen(row.tag) : 0)) << "moves past the tag only on a match";
    }
    const wchar_t* text = L"ab</b>cd</B>";
    EXPECT_EQ(HtmlLayout::FindNextItem(text, L"</B>"), text + 2);
    EXPECT_EQ(HtmlLayout::FindNextItem(text + 3, L"</B>"), text + 8);
    EXPECT_EQ(HtmlLayout::FindNextItem(text + 9, L"</B>"), nullptr);
    EXPECT_EQ(HtmlLayout::FindNextItem(L"</", L"</B>"), nullptr);
}

} // namespace
