// libFuzzer target: the rich-text markup laid out on a canvas with fixed metrics. Rules: links
// keep their ids in base..base+9 and their rectangles inside the drawing rectangle, measuring
// and painting agree on the height while every line has a slot that holds it, and the stripped
// text is never longer than the text and shows exactly what is drawn.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <string>

#include "fuzz/ParserChecks.h"
#include "ui/HtmlLayout.h"

namespace {

#define VX_RULE(cond, a, b) ((cond) ? (void)0 : Broken(#cond, (long)(a), (long)(b)))
[[noreturn]] void Broken(const char* rule, long a, long b)
{
    std::fprintf(stderr, "html_fuzz: rule broken: %s (%ld, %ld)\n", rule, a, b);
    std::abort();
}

// Characters 1..3 pixels wide by their value (one more in bold), as tall as the font, icons 9 x 11.
struct FixedCanvas : HtmlCanvas {
    void SelectFont(const HtmlFont& f) override { font = f; }
    HtmlSize MeasureText(const wchar_t* p, unsigned n) override
    {
        HtmlSize s;
        for (unsigned i = 0; i < n; ++i)
            s.cx += 1 + (int)((unsigned)p[i] % 3) + (font.nWeight >= 700);
        s.cy = font.nHeight < 0 ? -font.nHeight : (font.nHeight ? font.nHeight : 10);
        return s;
    }
    void DrawText(int, int, const wchar_t* p, unsigned n, HtmlColor) override { drawn.append(p, n); }
    HtmlSize GetIconSize() override { return {9, 11}; }
    void DrawIcon(int, int, int) override {}
    HtmlFont font;
    std::wstring drawn;
};

std::wstring Visible(std::wstring s)
{
    s.erase(std::remove_if(s.begin(), s.end(), [](wchar_t c) { return c && wcschr(L" \t\r\n", c); }), s.end());
    return s;
}

void CheckLinks(const DrawHTMLLinks& links, int nWidth, int nBase)
{
    for (size_t i = 0; i < links.GetCount(); ++i) {
        int id = links.Get(i)->GetCmdID();
        VX_RULE(id >= nBase && id <= nBase + 9, id, nBase);
        for (const RECT& r : links.Get(i)->GetRects())
            VX_RULE(r.left >= 0 && r.right <= nWidth && r.left <= r.right && r.top <= r.bottom, r.left, r.right);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const vxfuzz::WideText text = vxfuzz::DecodeFileText(data, size);
    const unsigned n = (unsigned)text.n - 1; // without the terminator
    const uint64_t h = vxfuzz::HashBytes(data, size);
    // The left edge sometimes at 0 (the indent rule), the width sometimes below the margin.
    const int left = (h & 1) ? 0 : (int)((h >> 1) % 50), width = (int)((h >> 8) % 300), base = (int)((h >> 48) % 70000);
    const RECT rc = {left, (int)((h >> 20) % 20), left + width, (int)((h >> 28) % 400)}, wide = {5, 0, 1 << 26, 1 << 26};
    HtmlStyle style;
    style.font.nHeight = ((h >> 40) & 1 ? -1 : 1) * (int)(8 + (h >> 41) % 20);
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
    VX_RULE(measured >= 0 && (!bExact || measured == painted), measured, painted);

    std::unique_ptr<wchar_t[]> stripped(new wchar_t[n + 1]); // exactly its size, for AddressSanitizer
    const unsigned len = HtmlLayout::GetHTMLTextStripTags(text.p.get(), stripped.get(), n + 1);
    VX_RULE(len <= n && HtmlLayout::GetHTMLTextStripTags(text.p.get(), nullptr, 0) == len, len, n);
    layout.ClearLineHeights();
    layout.Layout(HtmlLayout::kMeasure, canvas, wide, text.p.get(), n, nullptr, style);
    canvas.drawn.clear();
    layout.Layout(HtmlLayout::kPaint, canvas, wide, text.p.get(), n, nullptr, style);
    VX_RULE(Visible(std::wstring(stripped.get(), len)) == Visible(canvas.drawn), len, canvas.drawn.size());
    return 0;
}
