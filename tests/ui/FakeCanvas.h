// A canvas with exact metrics: every character is 6 pixels wide (7 from weight 700), text is as
// tall as the font height's magnitude (12 for a height of 0), icons are 16 x 16. It records the runs.
#pragma once

#include <string>
#include <vector>

#include "ui/HtmlLayout.h"

namespace vxtest {

struct DrawnRun {
    bool bIcon = false;
    int x = 0, y = 0, nBottom = 0, nIcon = 0;
    std::wstring text;
    HtmlColor color = 0;
    HtmlFont font;
};

class FakeCanvas : public HtmlCanvas {
public:
    static int CharWidth(const HtmlFont& f) { return f.nWeight >= 700 ? 7 : 6; }
    static int Height(const HtmlFont& f) { return f.nHeight < 0 ? -f.nHeight : (f.nHeight ? f.nHeight : 12); }
    void SelectFont(const HtmlFont& f) override { font = f; }
    HtmlSize MeasureText(const wchar_t*, unsigned n) override { return {(int)n * CharWidth(font), Height(font)}; }
    void DrawText(int x, int y, const wchar_t* p, unsigned n, HtmlColor color) override
    {
        runs.push_back({false, x, y, y + Height(font), 0, std::wstring(p, n), color, font});
    }
    HtmlSize GetIconSize() override { return {16, 16}; }
    void DrawIcon(int x, int y, int nId) override { runs.push_back({true, x, y, y + 16, nId, L"", 0, {}}); }
    HtmlFont font;
    std::vector<DrawnRun> runs;
};

} // namespace vxtest
