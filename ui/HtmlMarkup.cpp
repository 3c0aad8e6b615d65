#include "ui/HtmlMarkup.h"

#include <climits>

const HtmlTagInfo g_HtmlTags[] = {
    {L"<BR>", nullptr, HtmlTagKind::Break, 0},
    {L"<BRHALF>", nullptr, HtmlTagKind::Break, 1},
    {L"<T>", L"</T>", HtmlTagKind::Raw, 0},
    {L"<ICON>", L"</ICON>", HtmlTagKind::Icon, 0},
    {L"<B>", L"</B>", HtmlTagKind::Weight, 700},
    {L"<I>", L"</I>", HtmlTagKind::Italic, 0},
    {L"<U>", L"</U>", HtmlTagKind::Underline, 0},
    {L"<H>", L"</H>", HtmlTagKind::Heading, 4},
    {L"<BIG>", L"</BIG>", HtmlTagKind::Size, 2},
    {L"<SMALL>", L"</SMALL>", HtmlTagKind::Size, -2},
    {L"<D>", L"</D>", HtmlTagKind::Strike, 0},
    {L"<AA>", L"</AA>", HtmlTagKind::Quality, kHtmlQualityAntialiased},
    {L"<CT>", L"</CT>", HtmlTagKind::Quality, kHtmlQualityClearType},
    {L"<A>", L"</A>", HtmlTagKind::Link, 0},
    {L"<A1>", L"</A1>", HtmlTagKind::Link, 1},
    {L"<A2>", L"</A2>", HtmlTagKind::Link, 2},
    {L"<A3>", L"</A3>", HtmlTagKind::Link, 3},
    {L"<A4>", L"</A4>", HtmlTagKind::Link, 4},
    {L"<A5>", L"</A5>", HtmlTagKind::Link, 5},
    {L"<A6>", L"</A6>", HtmlTagKind::Link, 6},
    {L"<A7>", L"</A7>", HtmlTagKind::Link, 7},
    {L"<A8>", L"</A8>", HtmlTagKind::Link, 8},
    {L"<A9>", L"</A9>", HtmlTagKind::Link, 9},
    {L"<RED>", L"</RED>", HtmlTagKind::Color, (int)HtmlRGB(128, 0, 0)},
    {L"<GREEN>", L"</GREEN>", HtmlTagKind::Color, (int)HtmlRGB(0, 128, 0)},
    {L"<BLUE>", L"</BLUE>", HtmlTagKind::Color, (int)HtmlRGB(0, 0, 128)},
    {L"<GREY>", L"</GREY>", HtmlTagKind::Color, (int)HtmlRGB(128, 128, 128)},
    {L"<LTRED>", L"</LTRED>", HtmlTagKind::Color, (int)HtmlRGB(192, 0, 0)},
    {L"<LTGREEN>", L"</LTGREEN>", HtmlTagKind::Color, (int)HtmlRGB(0, 192, 0)},
    {L"<LTBLUE>", L"</LTBLUE>", HtmlTagKind::Color, (int)HtmlRGB(0, 0, 192)},
    {L"<LTGREY>", L"</LTGREY>", HtmlTagKind::Color, (int)HtmlRGB(192, 192, 192)},
    {L"<DKRED>", L"</DKRED>", HtmlTagKind::Color, (int)HtmlRGB(64, 0, 0)},
    {L"<DKGREEN>", L"</DKGREEN>", HtmlTagKind::Color, (int)HtmlRGB(0, 64, 0)},
    // Without its "<" on purpose: the dark-blue opening tag is shown as text (see the header).
    {L"DKBLUE>", L"</DKBLUE>", HtmlTagKind::Color, (int)HtmlRGB(0, 0, 64)},
    {L"<DKGREY>", L"</DKGREY>", HtmlTagKind::Color, (int)HtmlRGB(64, 64, 64)},
    {L"<CENTER>", L"</CENTER>", HtmlTagKind::Center, 0},
    {L"<NOBR>", L"</NOBR>", HtmlTagKind::NoBreak, 0},
};
const unsigned g_nHtmlTags = sizeof(g_HtmlTags) / sizeof(g_HtmlTags[0]);

namespace {

inline wchar_t FoldAscii(wchar_t c) { return (c >= L'a' && c <= L'z') ? (wchar_t)(c - (L'a' - L'A')) : c; }

inline bool IsAsciiAlnum(wchar_t c)
{
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || (c >= L'0' && c <= L'9');
}

struct Entity {
    const wchar_t* pszName;
    wchar_t ch;
};
const Entity kEntities[] = {{L"amp", L'&'}, {L"lt", L'<'}, {L"gt", L'>'}, {L"nbsp", kHtmlNoBreakSpace}};

} // namespace

int HtmlIsNextItem(const wchar_t*& p, const wchar_t* end, const wchar_t* tag)
{
    if (!p || !tag || !*tag)
        return 0;
    const wchar_t* q = p;
    for (; *tag; ++tag, ++q) {
        if (end && q >= end)
            return 0;
        if (FoldAscii(*q) != FoldAscii(*tag)) // a terminator in the text never equals a tag character
            return 0;
    }
    p = q;
    return 1;
}

const wchar_t* HtmlFindNextItem(const wchar_t* p, const wchar_t* end, const wchar_t* tag)
{
    if (!p || !tag || !*tag)
        return nullptr;
    const wchar_t first = FoldAscii(*tag);
    for (; end ? p < end : *p != 0; ++p) {
        if (FoldAscii(*p) != first)
            continue;
        const wchar_t* q = p;
        if (HtmlIsNextItem(q, end, tag))
            return p;
    }
    return nullptr;
}

const HtmlTagInfo* HtmlMatchOpening(const wchar_t*& p, const wchar_t* end)
{
    if (!p || (end && p >= end) || *p != L'<')
        return nullptr;
    for (unsigned i = 0; i < g_nHtmlTags; ++i)
        if (HtmlIsNextItem(p, end, g_HtmlTags[i].pszOpen))
            return &g_HtmlTags[i];
    return nullptr;
}

unsigned HtmlDecodeEntity(const wchar_t* p, const wchar_t* end, wchar_t* pch)
{
    if (pch)
        *pch = 0;
    if (!p || p >= end || *p != L'&')
        return 0;
    for (unsigned k = 1; k <= kHtmlEntityWindow && p + k < end; ++k) {
        const wchar_t c = p[k];
        if (c == L';') {
            if (k == 1)
                return 0; // "&;" names nothing: ordinary text
            for (const Entity& e : kEntities) {
                const wchar_t* q = p + 1;
                if (HtmlIsNextItem(q, p + k, e.pszName) && q == p + k) {
                    if (pch)
                        *pch = e.ch;
                    break;
                }
            }
            return k + 1;
        }
        if (!IsAsciiAlnum(c) && c != L'#')
            return 0;
    }
    return 0;
}

int HtmlParseIconId(const wchar_t* begin, const wchar_t* end)
{
    const wchar_t* p = begin;
    while (p < end && (*p == L' ' || *p == L'\t'))
        ++p;
    bool bNegative = false;
    if (p < end && (*p == L'-' || *p == L'+'))
        bNegative = *p++ == L'-';
    const wchar_t* digits = p;
    long value = 0;
    while (p < end && *p >= L'0' && *p <= L'9') {
        if (value <= 65535) // stops growing once out of range: no overflow on long inputs
            value = value * 10 + (*p - L'0');
        ++p;
    }
    if (p == digits || value > 65535)
        return 0;
    while (p < end && (*p == L' ' || *p == L'\t'))
        ++p;
    if (p != end)
        return 0;
    return bNegative ? -(int)value : (int)value;
}

void HtmlWalker::Walk(const wchar_t* text, size_t n)
{
    stack.clear();
    pszTextEnd = text;
    if (!text)
        return;
    size_t len = 0;
    while (len < n && text[len])
        ++len;
    const wchar_t* p = text;
    const wchar_t* const end = text + len;
    pszTextEnd = end;

    // Where each closing tag was last searched from and what was found: the position only moves
    // forward, so each tag's search covers the text once however many spans open.
    const wchar_t* searchedFrom[64];
    const wchar_t* found[64];
    static_assert(sizeof(searchedFrom) / sizeof(searchedFrom[0]) >= sizeof(g_HtmlTags) / sizeof(g_HtmlTags[0]),
                  "one search slot per tag");
    for (unsigned i = 0; i < g_nHtmlTags; ++i)
        searchedFrom[i] = found[i] = nullptr;
    auto findClosing = [&](const HtmlTagInfo* tag, const wchar_t* from) {
        const unsigned i = (unsigned)(tag - g_HtmlTags);
        if (!searchedFrom[i] || from < searchedFrom[i] || (found[i] && found[i] < from)) {
            found[i] = HtmlFindNextItem(from, end, tag->pszClose);
            searchedFrom[i] = from;
        }
        return found[i];
    };

    while (p < end) {
        if (!stack.empty()) {
            HtmlTagRecord& top = stack.back();
            if (top.bClosingFound && p >= top.pszSpanEnd) {
                OnClose(top, false);
                if (p == top.pszSpanEnd)
                    HtmlIsNextItem(p, end, top.pTag->pszClose);
                stack.pop_back();
                continue;
            }
        }
        if (*p == L'<') {
            const wchar_t* q = p;
            if (const HtmlTagInfo* tag = HtmlMatchOpening(q, end)) {
                p = q;
                if (tag->kind == HtmlTagKind::Break) {
                    OnBreak(tag->nParam != 0);
                    continue;
                }
                const wchar_t* closing = findClosing(tag, p);
                const wchar_t* spanEnd = closing ? closing : end;
                if (tag->kind == HtmlTagKind::Raw || tag->kind == HtmlTagKind::Icon) {
                    if (tag->kind == HtmlTagKind::Raw)
                        OnRawText(p, spanEnd);
                    else
                        OnIcon(HtmlParseIconId(p, spanEnd));
                    p = spanEnd;
                    if (closing)
                        HtmlIsNextItem(p, end, tag->pszClose);
                    continue;
                }
                HtmlTagRecord rec;
                rec.pTag = tag;
                rec.pszSpanStart = p;
                rec.pszSpanEnd = spanEnd;
                rec.bClosingFound = closing != nullptr;
                stack.push_back(rec);
                OnOpen(stack.back());
                continue;
            }
        }
        // Ordinary text up to the next recognised opening tag or the innermost span's end.
        const wchar_t* stop = (!stack.empty() && stack.back().bClosingFound) ? stack.back().pszSpanEnd : end;
        const wchar_t* q = p + 1;
        for (; q < end && q != stop; ++q) {
            if (*q == L'<') {
                const wchar_t* t = q;
                if (HtmlMatchOpening(t, end))
                    break;
            }
        }
        OnText(p, q);
        p = q;
    }
    while (!stack.empty()) {
        OnClose(stack.back(), true);
        stack.pop_back();
    }
}

namespace {

class StripWalker : public HtmlWalker {
public:
    StripWalker(wchar_t* buffer, unsigned cch) : pBuffer(buffer), cchBuffer(cch) {}
    void Run(const wchar_t* text)
    {
        Walk(text, SIZE_MAX);
        if (pBuffer && cchBuffer)
            pBuffer[nWritten] = 0;
    }
    unsigned nWritten = 0;
    size_t nNeeded = 0;

protected:
    void Put(wchar_t c)
    {
        ++nNeeded;
        if (pBuffer && nWritten + 1 < cchBuffer)
            pBuffer[nWritten++] = c;
    }
    void OnText(const wchar_t* p, const wchar_t* end) override
    {
        while (p < end) {
            wchar_t ch;
            if (unsigned n = HtmlDecodeEntity(p, end, &ch)) {
                if (ch)
                    Put(ch);
                p += n;
            } else {
                Put(*p++);
            }
        }
    }
    void OnRawText(const wchar_t* p, const wchar_t* end) override
    {
        while (p < end)
            Put(*p++);
    }
    void OnBreak(bool) override
    {
        Put(L'\r');
        Put(L'\n');
    }
    void OnIcon(int) override {}
    void OnOpen(HtmlTagRecord&) override {}
    void OnClose(HtmlTagRecord&, bool) override {}

private:
    wchar_t* pBuffer;
    unsigned cchBuffer;
};

} // namespace

unsigned HtmlStripTags(const wchar_t* text, wchar_t* buffer, unsigned cch)
{
    StripWalker w(buffer, cch);
    w.Run(text);
    if (!buffer)
        return w.nNeeded > UINT_MAX ? UINT_MAX : (unsigned)w.nNeeded;
    return w.nWritten;
}
