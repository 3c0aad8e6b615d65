// HtmlLayout: lays the markup of HtmlMarkup.h out into a rectangle, word by word, and hands
// every run of text and every icon to an HtmlCanvas. The renderer on GDI (DrawHTML) is this
// class with a canvas over a device context; tests and the fuzzing build give it a canvas with
// fixed character widths. No Windows calls here.
//
// Two passes make a paint: a measuring pass (kMeasure) fills a table of line heights, one byte per
// line for lines 0..255 (later lines share the last slot), and remembers where centred text
// ends on each line; the painting pass (kPaint) reads both back, so that every word sits on its
// line's final bottom and centred lines are centred, although words arrive one at a time. Both
// passes lay out identically: only the drawing calls differ, so they agree on every position.
//
// Layout rules, in the product's terms:
// - Words end at a blank, tab, CR or LF, at a "<" (in raw text only at "</T>"), and before a
//   "\" or "/" that is not the word's first character: paths and web addresses wrap at their
//   separators, and the separator goes with the next line. Inside NOBR, where nothing wraps,
//   only LF and "<" end a word, so a no-break text is cut as a whole.
// - A run of white space is one blank, dropped at the start of a line. A blank before an opening
//   tag is placed before the tag takes effect (a link's area and underline start after it).
// - The usable right edge is 2 pixels inside the rectangle. A word that does not fit on the rest
//   of the line moves to the next one; a word wider than a whole line is broken after the last
//   character that fits and goes on on the next line. In NOBR nothing moves: a word that does not
//   fit is cut and ends in "...", and the rest of that line stays empty.
// - Text at the device x = 0 is drawn from x = 1 unless it starts with A-Z, so that the first
//   glyph of a label is never cut by the control's edge.
// - Text stands on the line's bottom; nothing is drawn on lines whose top is at or below the
//   rectangle's bottom (the layout goes on, so heights do not depend on the bottom).
// - A new line: x back to the left, y down by the line height (half of it after BRHALF) plus 1.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "ui/HtmlLinks.h"
#include "ui/HtmlMarkup.h"

struct HtmlSize {
    int cx = 0;
    int cy = 0;
};

// What the layout draws on. Sizes are in device pixels.
class HtmlCanvas {
public:
    virtual ~HtmlCanvas() = default;
    // Makes font the current font (the tools' face with these attributes).
    virtual void SelectFont(const HtmlFont& font) = 0;
    // Width and height of n characters in the current font.
    virtual HtmlSize MeasureText(const wchar_t* p, unsigned n) = 0;
    // Draws n characters with their top-left corner at x, y.
    virtual void DrawText(int x, int y, const wchar_t* p, unsigned n, HtmlColor color) = 0;
    // The size icons are drawn at (the system's small-icon size).
    virtual HtmlSize GetIconSize() = 0;
    // Draws icon id (negative: the library's own resources) with its top-left corner at x, y.
    virtual void DrawIcon(int x, int y, int nId) = 0;
};

// What a draw starts with: the tools' font, text colour and link colour.
struct HtmlStyle {
    HtmlFont font;
    HtmlColor crText = 0;
    HtmlColor crLink = 0;
};

class HtmlLayout : protected HtmlWalker {
public:
    enum { kMeasure = 0, kPaint = 1 };
    // Called at the end of a draw once for every span still open (innermost first), with the
    // closing tag that was expected.
    typedef void (*OpenSpanFn)(void* pContext, const wchar_t* pszClosingTag);

    static constexpr unsigned kLineSlots = 256;
    // A longer run of characters without a break is laid out as consecutive words.
    static constexpr unsigned kMaxWord = 512;
    static constexpr int kRightMargin = 2; // usable right edge inside the rectangle
    static constexpr int kIconGap = 2;     // pen moves right before an icon

    HtmlLayout();
    ~HtmlLayout() override;
    HtmlLayout(const HtmlLayout&) = delete;
    HtmlLayout& operator=(const HtmlLayout&) = delete;

    // "<A>" gets this command id, "<A1>".."<A9>" this plus 1..9. Kept within 0..INT_MAX-9.
    void SetLinkCmdID(int nBase);
    int GetLinkCmdID() const { return nLinkCmdID; }
    void SetOpenSpanCallback(OpenSpanFn fn, void* pContext)
    {
        pfnOpenSpan = fn;
        pOpenSpanContext = pContext;
    }

    // Lays out n characters of text (fewer when a zero comes first) into rc: measures (kMeasure;
    // any mode other than kPaint measures) or draws (kPaint). Links (may be null) is emptied and
    // receives the links. Returns the height used: the last line's top minus rc.top plus its
    // height.
    int Layout(int nMode, HtmlCanvas& canvas, const RECT& rc, const wchar_t* text, size_t n, DrawHTMLLinks* links,
               const HtmlStyle& style);

    // The line-height table; a painting pass needs a measuring pass of the same text first.
    void ClearLineHeights();
    unsigned GetLineHeight(unsigned nLine) const { return lineHeights[nLine < kLineSlots ? nLine : kLineSlots - 1]; }
    // The last line's number in the last layout (0..255).
    unsigned GetLineNumber() const { return nLine; }

    static int IsNextItem(const wchar_t*& p, const wchar_t* tag) { return HtmlIsNextItem(p, nullptr, tag); }
    static const wchar_t* FindNextItem(const wchar_t* text, const wchar_t* tag) { return HtmlFindNextItem(text, nullptr, tag); }
    static unsigned GetHTMLTextStripTags(const wchar_t* text, wchar_t* buffer, unsigned cch)
    {
        return HtmlStripTags(text, buffer, cch);
    }
    // Hit tests against the links of a draw (coordinates relative to the drawing rectangle).
    static bool IsLinkArea(const DrawHTMLLinks* links, int x, int y) { return FindLinkArea(links, x, y) != nullptr; }
    // The command id of the link at x, y; -1 when there is none.
    static int GetLinkAreaID(const DrawHTMLLinks* links, int x, int y);
    static const DrawHTMLLinkArea* FindLinkArea(const DrawHTMLLinks* links, int x, int y)
    {
        return links ? links->Find(x, y) : nullptr;
    }

protected:
    void OnText(const wchar_t* begin, const wchar_t* end) override;
    void OnRawText(const wchar_t* begin, const wchar_t* end) override;
    void OnBreak(bool bHalf) override;
    void OnIcon(int nId) override;
    void OnOpen(HtmlTagRecord& rec) override;
    void OnClose(HtmlTagRecord& rec, bool bAtEnd) override;

private:
    void WriteText(const wchar_t* p, const wchar_t* end, bool bRawText);
    void PlaceWord(const wchar_t* w, unsigned n);
    void PlaceNoBreakWord(const wchar_t* w, unsigned n);
    void FlushBlank();
    void DrawRun(const wchar_t* w, unsigned n, int nIndent, HtmlSize size);
    void NewLine(bool bHalf);
    void StartLine();
    void GrowLine(int cy);
    void ApplyFont();
    void StartLink(HtmlTagRecord& rec);
    void EndLink(const wchar_t* pszTextEnd);
    HtmlSize Measure(const wchar_t* p, unsigned n);
    unsigned FitCount(const wchar_t* w, unsigned n, long long avail);
    int CentreOffset() const { return bCenter ? nCentreOffset : 0; }
    int RelX(long long x) const;
    int RelY(long long y) const;

    // Drawing state of one layout.
    int nMode = kMeasure;
    HtmlCanvas* pCanvas = nullptr;
    DrawHTMLLinks* pLinks = nullptr;
    int nLeft = 0, nTop = 0, nRight = 0, nBottom = 0, nUsableRight = 0;
    int nX = 0, nY = 0;
    int nLineHeight = 0;
    unsigned nLine = 0;
    HtmlFont font;
    HtmlColor crText = 0, crLink = 0;
    bool bNoBreak = false, bCenter = false;
    bool bPendingBlank = false;
    bool bFreshSlot = true; // the current line has a table slot of its own
    std::unique_ptr<DrawHTMLLinkArea> pLinkArea;
    const wchar_t* pszLinkStart = nullptr;
    // Centred text on the current line: where it ends (measuring) and the shift (painting).
    bool bLineCentred = false;
    int nCentreEnd = 0;
    int nCentreOffset = 0;

    int nLinkCmdID = 0;
    OpenSpanFn pfnOpenSpan = nullptr;
    void* pOpenSpanContext = nullptr;

    uint8_t lineHeights[kLineSlots];
    // Per line, where its centred text ends (kNoCentre: none).
    int centreEnds[kLineSlots];
    wchar_t szWord[kMaxWord + 4]; // + "..." of a cut word
};
