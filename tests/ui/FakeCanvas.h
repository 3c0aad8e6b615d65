// A canvas with exact, predictable metrics for the layout rules: every character is 6 pixels
// wide (7 in a weight of 700 or more), text is as tall as the font height's magnitude (12 for
// the tools' default of -12), icons are 16 x 16. It records what is drawn.
#pragma once

#include <string>
#include <vector>

#include "ui/HtmlLayout.h"

namespace vxtest {

struct DrawnRun {
    bool bIcon = false;
    int x = 0, y = 0;
    int nBottom = 0; // y + height: the line's bottom
    std::wstring text;
    int nIcon = 0;
    HtmlColor color = 0;
    HtmlFont font;
};

class FakeCanvas : public HtmlCanvas {
public:
    static constexpr int kIconSize = 16;
    static int CharWidth(const HtmlFont& f) { return f.nWeight >= 700 ? 7 : 6; }
    static int Height(const HtmlFont& f) { return f.nHeight < 0 ? -f.nHeight : (f.nHeight ? f.nHeight : 12); }

    void SelectFont(const HtmlFont& f) override { font = f; }
    HtmlSize MeasureText(const wchar_t*, unsigned n) override
    {
        HtmlSize s;
        s.cx = (int)n * CharWidth(font);
        s.cy = Height(font);
        return s;
    }
    void DrawText(int x, int y, const wchar_t* p, unsigned n, HtmlColor color) override
    {
        DrawnRun r;
        r.x = x;
        r.y = y;
        r.nBottom = y + Height(font);
        r.text.assign(p, n);
        r.color = color;
        r.font = font;
        runs.push_back(r);
    }
    HtmlSize GetIconSize() override
    {
        HtmlSize s;
        s.cx = s.cy = kIconSize;
        return s;
    }
    void DrawIcon(int x, int y, int nId) override
    {
        DrawnRun r;
        r.bIcon = true;
        r.x = x;
        r.y = y;
        r.nBottom = y + kIconSize;
        r.nIcon = nId;
        runs.push_back(r);
    }

    HtmlFont font;
    std::vector<DrawnRun> runs;
};

} // namespace vxtest
