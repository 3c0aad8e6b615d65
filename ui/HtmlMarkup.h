// The small HTML-like markup of the program's rich texts: its tag table, tag and entity look-ups,
// and HtmlWalker, the one walk over a text's tag structure that both the renderer (HtmlLayout)
// and the tag stripper share, so that what is drawn and what is copied never disagree.
//
// Tags are recognised only at a "<" and case-insensitively. Every opening tag except BR, BRHALF,
// T and ICON opens a span that runs to its own closing tag, searched forward from just after the
// opening tag, or to the end of the text when the closing tag is missing. Spans close only when
// they are the innermost open one, so tags nest properly only in the order opened; a closing
// tag met while another span is innermost is ordinary text. The dark-blue opening tag is stored
// as "DKBLUE>" on purpose: written with its "<" it is never recognised and shows as text.
//
// Nothing here calls Windows: this file and HtmlMarkup.cpp also build natively for the
// sanitizer and fuzzing build.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// A colour as GDI's COLORREF holds it: 0x00bbggrr.
typedef uint32_t HtmlColor;
constexpr HtmlColor HtmlRGB(unsigned r, unsigned g, unsigned b)
{
    return (HtmlColor)((r & 0xff) | ((g & 0xff) << 8) | ((b & 0xff) << 16));
}

// What a tag does.
enum class HtmlTagKind : uint8_t {
    Break,     // <BR>, <BRHALF> (param 1: half a line)
    Raw,       // <T>: raw text up to </T>
    Icon,      // <ICON>n</ICON>
    Weight,    // <B>: param is the weight
    Italic,    // <I>
    Underline, // <U>
    Heading,   // <H>: weight 900, 4 units larger
    Size,      // <BIG>, <SMALL>: param is the change of the height's magnitude
    Strike,    // <D>
    Quality,   // <AA>, <CT>: param is LOGFONT's lfQuality value
    Link,      // <A>, <A1>..<A9>: param is the offset from the base command id
    Color,     // <RED>...: param is the colour
    Center,    // <CENTER>
    NoBreak,   // <NOBR>
};

struct HtmlTagInfo {
    const wchar_t* pszOpen;  // with "<" (except the dark-blue quirk) and ">"
    const wchar_t* pszClose; // null for tags without a span
    HtmlTagKind kind;
    int nParam;
};

// LOGFONT lfQuality values, named here because this file stays free of windows.h.
constexpr int kHtmlQualityAntialiased = 4; // ANTIALIASED_QUALITY
constexpr int kHtmlQualityClearType = 5;   // CLEARTYPE_QUALITY

// The attributes of a font that the markup changes; the face, character set and pitch stay the
// drawing tools' own. nHeight is a LOGFONT height: negative for the character height, positive
// for the cell height, 0 for the face's default.
struct HtmlFont {
    int nHeight = 0;
    int nWeight = 400;
    int nQuality = 0;
    bool bItalic = false;
    bool bUnderline = false;
    bool bStrike = false;
    bool operator==(const HtmlFont& o) const
    {
        return nHeight == o.nHeight && nWeight == o.nWeight && nQuality == o.nQuality && bItalic == o.bItalic &&
               bUnderline == o.bUnderline && bStrike == o.bStrike;
    }
    bool operator!=(const HtmlFont& o) const { return !(*this == o); }
};
// The largest height magnitude the markup builds (BIG and H add up): far beyond any screen font,
// and small enough that no position or line arithmetic can overflow.
constexpr int kHtmlMaxFontHeight = 1000;

// The tag table, and the number of its entries.
extern const HtmlTagInfo g_HtmlTags[];
extern const unsigned g_nHtmlTags;

// Case-insensitive (ASCII letters only: tags are ASCII) test that the text at p starts with
// tag; on success p moves past it. end bounds the text; a null end means the text is terminated.
int HtmlIsNextItem(const wchar_t*& p, const wchar_t* end, const wchar_t* tag);
// The next occurrence of tag at or after p, case-insensitive; null when there is none.
const wchar_t* HtmlFindNextItem(const wchar_t* p, const wchar_t* end, const wchar_t* tag);
// The tag opening at p (which must point at "<"), or null; on success p moves past the tag.
const HtmlTagInfo* HtmlMatchOpening(const wchar_t*& p, const wchar_t* end);

// An entity starting at p ("&"): "&amp;" "&lt;" "&gt;" "&nbsp;" give their character. An "&"
// whose ";" follows within the next 10 characters, with only ASCII letters, digits or "#"
// between, is an entity even when its name is unknown: such an entity draws nothing (*pch is
// 0). Returns the entity's length in characters, 0 when the "&" is ordinary text.
unsigned HtmlDecodeEntity(const wchar_t* p, const wchar_t* end, wchar_t* pch);
constexpr unsigned kHtmlEntityWindow = 10;
constexpr wchar_t kHtmlNoBreakSpace = 0x00A0;

// One open span on the tag stack. The walker fills the first four fields; the renderer keeps
// what it must restore when the span closes in the rest.
struct HtmlTagRecord {
    const HtmlTagInfo* pTag = nullptr;
    const wchar_t* pszSpanStart = nullptr; // just after the opening tag
    const wchar_t* pszSpanEnd = nullptr;   // at the closing tag, or the end of the text
    bool bClosingFound = false;
    // The renderer's saved state.
    HtmlFont fontRestore;
    bool bRestoreColor = false;
    HtmlColor crRestore = 0;
    bool bNoBreak = false, bCenter = false;
    bool bOwnsLink = false;
};

// Walks a text's tag structure and reports it to the hooks in text order. Text segments never
// contain a recognised opening tag or the innermost span's closing tag; they may contain other
// "<" characters (unknown tags, closing tags out of order), which are text.
class HtmlWalker {
public:
    virtual ~HtmlWalker() = default;

protected:
    // Walks n characters of text (fewer when a zero comes first). Records still open at the end
    // are closed innermost first with bAtEnd set.
    void Walk(const wchar_t* text, size_t n);

    virtual void OnText(const wchar_t* begin, const wchar_t* end) = 0;
    virtual void OnRawText(const wchar_t* begin, const wchar_t* end) = 0;
    virtual void OnBreak(bool bHalf) = 0;
    virtual void OnIcon(int nId) = 0;
    // A span opens: the record is on the stack (top) with the walker's fields set.
    virtual void OnOpen(HtmlTagRecord& rec) = 0;
    // A span closes, p at its closing tag (or past it when an earlier span overran).
    virtual void OnClose(HtmlTagRecord& rec, bool bAtEnd) = 0;

    // The open spans, innermost last.
    std::vector<HtmlTagRecord> stack;
    const wchar_t* pszTextEnd = nullptr;
};

// Parses an icon id: optional blanks, an optional sign, decimal digits, optional blanks.
// 0 for anything else or a magnitude above 65535 (resource ids are 16-bit).
int HtmlParseIconId(const wchar_t* begin, const wchar_t* end);

// The text without its tags, as a reader would copy it: entities decoded, raw text kept,
// BR and BRHALF as CR LF, icons dropped, white space as written. Writes at most cch characters
// including the terminator (cut, always terminated when cch > 0) and returns the characters
// written; with a null buffer returns the length the whole text needs. Never longer than the
// text itself.
unsigned HtmlStripTags(const wchar_t* text, wchar_t* buffer, unsigned cch);
