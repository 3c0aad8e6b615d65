// libFuzzer target: the rich-text markup (tag walk, entities, word breaking, line layout, links,
// tag stripping) over a file's bytes, laid out on a canvas with fixed metrics. Aborts with a
// message when a rule breaks:
// - link rectangles stay within the drawing rectangle horizontally and never run backwards;
// - every link's command id lies in base..base+9;
// - measuring and painting agree on the height while every line has a table slot of its own
//   and no line is taller than a slot holds;
// - the stripped text is never longer than the text, and its visible characters are exactly
//   the characters the renderer draws (so no tag the renderer obeys survives the stripping).
// Usage as a corpus check: html_fuzz -runs=0 <folder>.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz/FuzzInput.h"
#include "ui/HtmlLayout.h"

namespace {

[[noreturn]] void Broken(const char* rule, long a, long b)
{
    std::fprintf(stderr, "html_fuzz: rule broken: %s (%ld, %ld)\n", rule, a, b);
    std::abort();
}

// Characters are 1..3 pixels wide by their value, text is as tall as the font's height, icons 9 x 11.
class FixedCanvas : public HtmlCanvas {
public:
    void SelectFont(const HtmlFont& f) override { font = f; }
    HtmlSize MeasureText(const wchar_t* p, unsigned n) override
    {
        HtmlSize s;
        for (unsigned i = 0; i < n; ++i)
            s.cx += 1 + (int)((unsigned)p[i] % 3) + (font.nWeight >= 700 ? 1 : 0);
        s.cy = font.nHeight < 0 ? -font.nHeight : (font.nHeight ? font.nHeight : 10);
        return s;
    }
    void DrawText(int, int, const wchar_t* p, unsigned n, HtmlColor) override
    {
        if (bRecord)
            drawn.append(p, n);
    }
    HtmlSize GetIconSize() override
    {
        HtmlSize s;
        s.cx = 9;
        s.cy = 11;
        return s;
    }
    void DrawIcon(int, int, int) override {}

    HtmlFont font;
    bool bRecord = false;
    std::wstring drawn;
};

bool IsWhite(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

std::wstring Visible(const std::wstring& s)
{
    std::wstring out;
    for (wchar_t c : s)
        if (!IsWhite(c))
            out += c;
    return out;
}

void CheckLinks(const DrawHTMLLinks& links, int nWidth, int nBase)
{
    for (size_t i = 0; i < links.GetCount(); ++i) {
        const DrawHTMLLinkArea* a = links.Get(i);
        if (a->GetCmdID() < nBase || a->GetCmdID() > nBase + 9)
            Broken("link id outside base..base+9", a->GetCmdID(), nBase);
        for (const RECT& r : a->GetRects()) {
            if (r.left < 0 || r.right > nWidth || r.left > r.right)
                Broken("link rectangle outside the drawing rectangle", r.left, r.right);
            if (r.top > r.bottom)
                Broken("link rectangle upside down", r.top, r.bottom);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const vxfuzz::WideText text = vxfuzz::DecodeFileText(data, size);
    const size_t n = text.n ? text.n - 1 : 0; // without the terminator
    const uint64_t h = vxfuzz::HashBytes(data, size);

    // A rectangle, a font and a link base chosen by the input, the left edge sometimes at 0 (the
    // indent rule) and the width sometimes below the margin.
    const int left = (h & 1) ? 0 : (int)((h >> 1) % 50);
    const int width = (int)((h >> 8) % 300);
    const RECT rc = {left, (int)((h >> 20) % 20), left + width, (int)((h >> 28) % 400)};
    HtmlStyle style;
    style.font.nHeight = (h >> 40) & 1 ? -(int)(8 + (h >> 41) % 20) : (int)(8 + (h >> 41) % 20);
    const int base = (int)((h >> 48) % 70000);

    HtmlLayout layout;
    layout.SetLinkCmdID(base);
    DrawHTMLLinks links;
    FixedCanvas canvas;
    layout.ClearLineHeights();
    const int measured = layout.Layout(HtmlLayout::kMeasure, canvas, rc, text.p.get(), n, &links, style);
    CheckLinks(links, width, base);
    bool bExact = layout.GetLineNumber() < HtmlLayout::kLineSlots - 1;
    for (unsigned i = 0; bExact && i <= layout.GetLineNumber(); ++i)
        bExact = layout.GetLineHeight(i) < 255;
    const int painted = layout.Layout(HtmlLayout::kPaint, canvas, rc, text.p.get(), n, &links, style);
    CheckLinks(links, width, base);
    if (measured < 0 || (bExact && measured != painted))
        Broken("measuring and painting disagree on the height", measured, painted);

    // Strip against what a wide, tall rectangle shows: nothing cut, nothing below the bottom.
    std::unique_ptr<wchar_t[]> stripped(new wchar_t[n + 1]);
    const unsigned len = HtmlLayout::GetHTMLTextStripTags(text.p.get(), stripped.get(), (unsigned)(n + 1));
    if (len > n || HtmlLayout::GetHTMLTextStripTags(text.p.get(), nullptr, 0) != len)
        Broken("stripped text longer than the text", (long)len, (long)n);
    const RECT wide = {5, 0, 1 << 26, 1 << 26};
    canvas.bRecord = true;
    layout.ClearLineHeights();
    layout.Layout(HtmlLayout::kMeasure, canvas, wide, text.p.get(), n, nullptr, style);
    canvas.drawn.clear();
    layout.Layout(HtmlLayout::kPaint, canvas, wide, text.p.get(), n, nullptr, style);
    if (Visible(std::wstring(stripped.get(), len)) != Visible(canvas.drawn))
        Broken("stripped text differs from the drawn text", (long)len, (long)canvas.drawn.size());
    return 0;
}
