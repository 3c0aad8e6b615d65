#include "ui/HtmlLayout.h"

#include <climits>
#include <cstring>
#include <cwchar>

namespace {

// Positions stay within this bound, so no sum of a position and a size can overflow an int.
constexpr long long kCoordLimit = 1LL << 28;
constexpr int kNoCentre = INT_MIN;

int Clamp(long long v)
{
    if (v > kCoordLimit)
        return (int)kCoordLimit;
    if (v < -kCoordLimit)
        return (int)-kCoordLimit;
    return (int)v;
}

HtmlSize ClampSize(HtmlSize s)
{
    s.cx = s.cx < 0 ? 0 : Clamp(s.cx);
    s.cy = s.cy < 0 ? 0 : Clamp(s.cy);
    return s;
}

inline bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r'; }
inline bool IsHighSurrogate(wchar_t c) { return c >= 0xD800 && c <= 0xDBFF; }
inline bool IsLowSurrogate(wchar_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

// The one-pixel indent at the device's left edge, except before A-Z.
inline int IndentFor(int x, wchar_t first) { return (x == 0 && !(first >= L'A' && first <= L'Z')) ? 1 : 0; }

// A size tag changes the height's magnitude and keeps its sign; 0 (the face's default) stays.
int GrowHeight(int nHeight, int nDelta)
{
    if (nHeight == 0)
        return 0;
    long long mag = nHeight < 0 ? -(long long)nHeight : nHeight;
    mag += nDelta;
    if (mag < 1)
        mag = 1;
    if (mag > kHtmlMaxFontHeight)
        mag = kHtmlMaxFontHeight;
    return nHeight < 0 ? -(int)mag : (int)mag;
}

const wchar_t kBlank[] = L" ";
const wchar_t kEllipsis[] = L"...";
const wchar_t kLineProbe[] = L"Hg";

} // namespace

HtmlLayout::HtmlLayout()
{
    ClearLineHeights();
    for (int& e : centreEnds)
        e = kNoCentre;
}

HtmlLayout::~HtmlLayout() = default;

void HtmlLayout::SetLinkCmdID(int nBase)
{
    nLinkCmdID = nBase < 0 ? 0 : (nBase > INT_MAX - 9 ? INT_MAX - 9 : nBase);
}

void HtmlLayout::ClearLineHeights() { memset(lineHeights, 0, sizeof(lineHeights)); }

int HtmlLayout::GetLinkAreaID(const DrawHTMLLinks* links, int x, int y)
{
    const DrawHTMLLinkArea* area = FindLinkArea(links, x, y);
    return area ? area->GetCmdID() : -1;
}

int HtmlLayout::Layout(int mode, HtmlCanvas& canvas, const RECT& rc, const wchar_t* text, size_t n,
                       DrawHTMLLinks* links, const HtmlStyle& style)
{
    nMode = mode == kPaint ? kPaint : kMeasure;
    pCanvas = &canvas;
    pLinks = links;
    if (pLinks)
        pLinks->Reset();
    pLinkArea.reset();
    pszLinkStart = nullptr;
    nLine = 0;

    nLeft = Clamp(rc.left);
    nTop = Clamp(rc.top);
    nRight = Clamp(rc.right);
    nBottom = Clamp(rc.bottom);
    if (nRight < nLeft)
        nRight = nLeft;
    nUsableRight = nRight - kRightMargin;

    font = style.font;
    font.nHeight = GrowHeight(font.nHeight, 0);
    crText = style.crText;
    crLink = style.crLink;
    bNoBreak = bCenter = bPendingBlank = false;
    pCanvas->SelectFont(font);
    nX = nLeft;
    nY = nTop;
    bFreshSlot = true;
    if (nMode == kMeasure)
        for (int& e : centreEnds)
            e = kNoCentre;

    // Leading white space is no part of the text, unless the text opens with a deliberate line feed.
    size_t skip = 0;
    if (text && n && text[0] != L'\n')
        while (skip < n && (IsBlank(text[skip]) || text[skip] == L'\n'))
            ++skip;
    StartLine();
    if (text)
        Walk(text + skip, n - skip);
    if (nMode == kMeasure)
        centreEnds[nLine] = bLineCentred ? nCentreEnd : kNoCentre;
    pCanvas = nullptr;
    return Clamp((long long)nY - nTop + nLineHeight);
}

HtmlSize HtmlLayout::Measure(const wchar_t* p, unsigned n)
{
    if (!n)
        return HtmlSize();
    return ClampSize(pCanvas->MeasureText(p, n));
}

int HtmlLayout::RelX(long long x) const
{
    if (x < nLeft)
        x = nLeft;
    if (x > nRight)
        x = nRight;
    return (int)(x - nLeft);
}

int HtmlLayout::RelY(long long y) const { return Clamp(y - nTop); }

void HtmlLayout::StartLine()
{
    bLineCentred = false;
    nCentreEnd = 0;
    const unsigned stored = lineHeights[nLine];
    if (nMode == kMeasure) {
        nLineHeight = Measure(kLineProbe, 2).cy;
        const unsigned h = nLineHeight > 255 ? 255 : (unsigned)nLineHeight;
        // Lines past the last slot share it: it keeps the tallest of them.
        lineHeights[nLine] = (uint8_t)((bFreshSlot || h > stored) ? h : stored);
        nCentreOffset = 0;
    } else {
        // A line the measuring pass never saw (no measuring pass ran) falls back to the font's height.
        nLineHeight = stored ? (int)stored : Measure(kLineProbe, 2).cy;
        const int end = centreEnds[nLine];
        nCentreOffset = end == kNoCentre || end >= nUsableRight ? 0 : (nUsableRight - end) / 2;
    }
}

void HtmlLayout::GrowLine(int cy)
{
    if (cy <= nLineHeight)
        return;
    nLineHeight = cy;
    if (nMode == kMeasure) {
        const unsigned h = cy > 255 ? 255 : (unsigned)cy;
        if (h > lineHeights[nLine])
            lineHeights[nLine] = (uint8_t)h;
    }
}

void HtmlLayout::NewLine(bool bHalf)
{
    if (pLinkArea)
        pLinkArea->EndRect(RelX(nUsableRight), RelY((long long)nY + nLineHeight));
    if (nMode == kMeasure)
        centreEnds[nLine] = bLineCentred ? nCentreEnd : kNoCentre;
    bPendingBlank = false;
    nX = nLeft;
    nY = Clamp((long long)nY + (bHalf ? nLineHeight / 2 : nLineHeight) + 1);
    bFreshSlot = nLine < kLineSlots - 1;
    if (bFreshSlot)
        ++nLine;
    StartLine();
    if (pLinkArea)
        pLinkArea->StartRect(RelX((long long)nX + CentreOffset()), RelY(nY));
}

void HtmlLayout::ApplyFont()
{
    pCanvas->SelectFont(font);
    if (nMode == kMeasure) {
        GrowLine(Measure(kLineProbe, 2).cy);
    } else {
        const int stored = (int)lineHeights[nLine];
        if (stored > nLineHeight)
            nLineHeight = stored;
    }
}

void HtmlLayout::DrawRun(const wchar_t* w, unsigned n, int nIndent, HtmlSize size)
{
    GrowLine(size.cy);
    const int x = Clamp((long long)nX + nIndent);
    if (nMode == kMeasure) {
        if (bCenter) {
            bLineCentred = true;
            nCentreEnd = Clamp((long long)x + size.cx);
        }
    } else if (nY < nBottom) {
        pCanvas->DrawText(Clamp((long long)x + CentreOffset()), Clamp((long long)nY + nLineHeight - size.cy), w, n,
                          crText);
    }
    nX = Clamp((long long)x + size.cx);
}

unsigned HtmlLayout::FitCount(const wchar_t* w, unsigned n, long long avail)
{
    // Widths grow with the characters taken: the largest prefix that fits, by bisection.
    unsigned lo = 0, hi = n;
    while (lo < hi) {
        const unsigned mid = lo + (hi - lo + 1) / 2;
        if (Measure(w, mid).cx <= avail)
            lo = mid;
        else
            hi = mid - 1;
    }
    // Never split a surrogate pair.
    if (lo > 1 && lo < n && IsHighSurrogate(w[lo - 1]) && IsLowSurrogate(w[lo]))
        --lo;
    return lo;
}

void HtmlLayout::FlushBlank()
{
    if (!bPendingBlank)
        return;
    bPendingBlank = false;
    if (nX == nLeft)
        return; // dropped at the start of a line
    const HtmlSize bs = Measure(kBlank, 1);
    if ((long long)nX + bs.cx <= nUsableRight)
        DrawRun(kBlank, 1, 0, bs);
    else
        NewLine(false);
}

void HtmlLayout::PlaceWord(const wchar_t* w, unsigned n)
{
    if (bNoBreak) {
        PlaceNoBreakWord(w, n);
        return;
    }
    while (n > 0) {
        HtmlSize size = Measure(w, n);
        if (bPendingBlank) {
            bPendingBlank = false;
            if (nX != nLeft) {
                const HtmlSize bs = Measure(kBlank, 1);
                if ((long long)nX + bs.cx + size.cx <= nUsableRight) {
                    DrawRun(kBlank, 1, 0, bs);
                } else {
                    NewLine(false);
                    continue;
                }
            }
        }
        const int indent = IndentFor(nX, w[0]);
        if ((long long)nX + indent + size.cx <= nUsableRight) {
            DrawRun(w, n, indent, size);
            return;
        }
        if (nX != nLeft) {
            NewLine(false);
            continue;
        }
        // Wider than a whole line: break after the last character that fits (at least one,
        // so that even a rectangle narrower than a character makes progress).
        unsigned k = FitCount(w, n, (long long)nUsableRight - nX - indent);
        if (k == 0)
            k = 1;
        if (k < n) {
            size = Measure(w, k);
            DrawRun(w, k, indent, size);
            NewLine(false);
        } else {
            DrawRun(w, k, indent, size);
        }
        w += k;
        n -= k;
    }
}

void HtmlLayout::PlaceNoBreakWord(const wchar_t* w, unsigned n)
{
    if (bPendingBlank) {
        bPendingBlank = false;
        if (nX != nLeft) {
            const HtmlSize bs = Measure(kBlank, 1);
            if ((long long)nX + bs.cx <= nUsableRight)
                DrawRun(kBlank, 1, 0, bs);
        }
    }
    int indent = IndentFor(nX, w[0]);
    const HtmlSize size = Measure(w, n);
    if ((long long)nX + indent + size.cx <= nUsableRight) {
        DrawRun(w, n, indent, size);
        return;
    }
    // Cut: as much of the word as fits together with "...", and nothing more on this line.
    const HtmlSize dots = Measure(kEllipsis, 3);
    const long long avail = (long long)nUsableRight - nX - indent - dots.cx;
    wchar_t cut[kMaxWord + 4];
    const unsigned k = FitCount(w, n < kMaxWord ? n : kMaxWord, avail);
    memcpy(cut, w, k * sizeof(wchar_t));
    memcpy(cut + k, kEllipsis, 3 * sizeof(wchar_t));
    indent = IndentFor(nX, cut[0]);
    const HtmlSize cs = Measure(cut, k + 3);
    // Nothing when not even "..." fits (the indent may differ for "..." alone).
    if ((long long)nX + indent + cs.cx <= nUsableRight)
        DrawRun(cut, k + 3, indent, cs);
    if (nX < nUsableRight)
        nX = nUsableRight;
}

void HtmlLayout::WriteText(const wchar_t* p, const wchar_t* end, bool bRawText)
{
    while (p < end) {
        wchar_t c = *p;
        if (c == L'\n') {
            NewLine(false);
            ++p;
            continue;
        }
        if (!bNoBreak && IsBlank(c)) {
            while (p < end && IsBlank(*p))
                ++p;
            bPendingBlank = true;
            continue;
        }
        if (c == L'\r') { // inside NOBR: the CR of a CR LF pair
            ++p;
            continue;
        }
        unsigned n = 0;
        while (p < end && n < kMaxWord) {
            c = *p;
            if (c == L'\n' || c == L'\r' || (!bNoBreak && IsBlank(c)))
                break;
            if (n > 0 && ((c == L'<' && !bRawText) || (!bNoBreak && (c == L'\\' || c == L'/'))))
                break;
            if (c == L'&' && !bRawText) {
                wchar_t ch;
                if (unsigned k = HtmlDecodeEntity(p, end, &ch)) {
                    if (ch)
                        szWord[n++] = ch;
                    p += k;
                    continue;
                }
            }
            szWord[n++] = c;
            ++p;
        }
        // A word cut at the buffer's size keeps surrogate pairs together.
        if (n == kMaxWord && n > 1 && p < end && IsHighSurrogate(szWord[n - 1]) && p[-1] == szWord[n - 1]) {
            --n;
            --p;
        }
        if (n)
            PlaceWord(szWord, n);
    }
}

void HtmlLayout::OnText(const wchar_t* begin, const wchar_t* end) { WriteText(begin, end, false); }

void HtmlLayout::OnRawText(const wchar_t* begin, const wchar_t* end) { WriteText(begin, end, true); }

void HtmlLayout::OnBreak(bool bHalf) { NewLine(bHalf); }

void HtmlLayout::OnIcon(int nId)
{
    if (nId == 0)
        return; // not an icon id: nothing is drawn and no room is taken
    FlushBlank();
    const HtmlSize is = ClampSize(pCanvas->GetIconSize());
    if ((long long)nX + kIconGap + is.cx > nUsableRight && nX != nLeft)
        NewLine(false);
    GrowLine(is.cy);
    const int x = Clamp((long long)nX + kIconGap);
    if (nMode == kMeasure) {
        if (bCenter) {
            bLineCentred = true;
            nCentreEnd = Clamp((long long)x + is.cx);
        }
    } else if (nY < nBottom) {
        pCanvas->DrawIcon(Clamp((long long)x + CentreOffset()), Clamp((long long)nY + nLineHeight - is.cy), nId);
    }
    nX = Clamp((long long)x + is.cx);
}

void HtmlLayout::OnOpen(HtmlTagRecord& rec)
{
    FlushBlank();
    rec.fontRestore = font;
    rec.bRestoreColor = false;
    rec.bNoBreak = bNoBreak;
    rec.bCenter = bCenter;
    const int param = rec.pTag->nParam;
    switch (rec.pTag->kind) {
    case HtmlTagKind::Weight:
        font.nWeight = param;
        break;
    case HtmlTagKind::Italic:
        font.bItalic = true;
        break;
    case HtmlTagKind::Underline:
        font.bUnderline = true;
        break;
    case HtmlTagKind::Heading:
        font.nWeight = 900;
        font.nHeight = GrowHeight(font.nHeight, param);
        break;
    case HtmlTagKind::Size:
        font.nHeight = GrowHeight(font.nHeight, param);
        break;
    case HtmlTagKind::Strike:
        font.bStrike = true;
        break;
    case HtmlTagKind::Quality:
        font.nQuality = param;
        break;
    case HtmlTagKind::Link:
        font.bUnderline = true;
        rec.bRestoreColor = true;
        rec.crRestore = crText;
        crText = crLink;
        StartLink(rec);
        break;
    case HtmlTagKind::Color:
        rec.bRestoreColor = true;
        rec.crRestore = crText;
        crText = (HtmlColor)param;
        break;
    case HtmlTagKind::Center:
        bCenter = true;
        break;
    case HtmlTagKind::NoBreak:
        bNoBreak = true;
        break;
    case HtmlTagKind::Break:
    case HtmlTagKind::Raw:
    case HtmlTagKind::Icon:
        break; // never spans
    }
    if (font != rec.fontRestore)
        ApplyFont();
}

void HtmlLayout::OnClose(HtmlTagRecord& rec, bool bAtEnd)
{
    if (rec.bOwnsLink) {
        rec.bOwnsLink = false;
        EndLink(rec.pszSpanEnd);
    }
    if (font != rec.fontRestore) {
        font = rec.fontRestore;
        ApplyFont();
    }
    if (rec.bRestoreColor)
        crText = rec.crRestore;
    bNoBreak = rec.bNoBreak;
    bCenter = rec.bCenter;
    if (bAtEnd && pfnOpenSpan)
        pfnOpenSpan(pOpenSpanContext, rec.pTag->pszClose);
}

void HtmlLayout::StartLink(HtmlTagRecord& rec)
{
    // One link is built at a time: an outer link ends where an inner one opens (its own close
    // later finds no link to end, as inner spans always close first).
    if (pLinkArea)
        EndLink(rec.pszSpanStart - wcslen(rec.pTag->pszOpen));
    pLinkArea.reset(new DrawHTMLLinkArea(nLinkCmdID + rec.pTag->nParam));
    pszLinkStart = rec.pszSpanStart;
    rec.bOwnsLink = true;
    pLinkArea->StartRect(RelX((long long)nX + CentreOffset()), RelY(nY));
}

void HtmlLayout::EndLink(const wchar_t* pszTextEnd)
{
    if (!pLinkArea)
        return;
    pLinkArea->EndRect(RelX((long long)nX + CentreOffset()), RelY((long long)nY + nLineHeight));
    if (pszTextEnd > pszLinkStart)
        pLinkArea->AddText(pszLinkStart, (size_t)(pszTextEnd - pszLinkStart));
    if (pLinks)
        pLinks->Add(std::move(pLinkArea));
    pLinkArea.reset();
}
