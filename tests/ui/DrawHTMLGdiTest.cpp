// The renderer on real GDI (Wine's null graphics driver, memory device contexts): measuring,
// fonts, link colours and painting pixels.
#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "ui/DrawHTML.h"

namespace {

class DrawHTMLGdi : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(dc.Get(), nullptr); }
    // The width of a one-line text as its link rectangle records it.
    int LinkWidth(const wchar_t* text)
    {
        const RECT rc = {0, 0, 2000, 200};
        EXPECT_GT(html.Draw(DrawHTML::kMeasure, dc.Get(), &rc, text, lstrlenW(text), &links, &tools), 0);
        return links.GetCount() == 1 ? links.Get(0)->GetRects().at(0).right - links.Get(0)->GetRects()[0].left : -1;
    }
    MemoryDc dc{CreateCompatibleDC(nullptr)};
    DrawHTMLTools tools;
    DrawHTML html;
    DrawHTMLLinks links;
};

TEST_F(DrawHTMLGdi, MeasuresLinesAsTallAsTheFontAndBolderTextWider)
{
    SIZE hg;
    {
        DcSelection font(dc.Get(), tools.GetFont());
        ASSERT_TRUE(GetTextExtentPoint32W(dc.Get(), L"Hg", 2, &hg));
    }
    ASSERT_GT(hg.cy, 4);
    const RECT rc = {0, 0, 300, 1000};
    EXPECT_EQ(html.Draw(DrawHTML::kMeasure, dc.Get(), &rc, L"Hello", 5, &links, &tools), hg.cy);
    EXPECT_EQ(html.Draw(DrawHTML::kMeasure, dc.Get(), &rc, L"Hello<BR>world", 14, &links, &tools), 2 * hg.cy + 1);
    SetLastError(0xdeadbeef);
    EXPECT_EQ(html.Draw(DrawHTML::kMeasure, nullptr, &rc, L"x", 1, &links, &tools), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_PARAMETER);
    const int plain = LinkWidth(L"<A>Wide words</A>"), bold = LinkWidth(L"<A><B>Wide words</B></A>");
    EXPECT_GT(plain, 20);
    EXPECT_GT(bold, plain);
    EXPECT_GT(LinkWidth(L"<A><H>Wide words</H></A>"), bold);
}

TEST_F(DrawHTMLGdi, OnPaintFillsFramesAndDrawsText)
{
    HWND wnd = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 200, 60, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(wnd, nullptr);
    // A white 32-bit bitmap, pixels 0x00rrggbb (a COLORREF is 0x00bbggrr).
    BITMAPINFO bi = {};
    bi.bmiHeader = {sizeof(bi.bmiHeader), 200, -60, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
    uint32_t* bits = nullptr;
    GdiBitmap bitmap(CreateDIBSection(dc.Get(), &bi, DIB_RGB_COLORS, (void**)&bits, nullptr, 0));
    ASSERT_NE(bits, nullptr);
    std::fill(bits, bits + 200 * 60, 0xffffffu);
    DcSelection selected(dc.Get(), bitmap.Get());
    auto countNot = [&](uint32_t rgb, int x0, int y0, int x1, int y1) {
        GdiFlush();
        int n = 0;
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x)
                n += (bits[y * 200 + x] & 0xffffff) != rgb;
        return n;
    };
    auto frame = [&] {
        std::vector<uint32_t> v;
        for (int i = 0; i < 200 * 60; ++i)
            if (i % 200 < 2 || i / 200 < 2 || i % 200 >= 198 || i / 200 >= 58)
                v.push_back(bits[i]);
        return v;
    };
    tools.SetBkgColor(RGB(255, 255, 255));
    tools.SetTextColor(RGB(0, 0, 0));
    EXPECT_EQ(html.OnPaint(wnd, dc.Get(), L"", 0, FALSE, FALSE, &links, &tools), 0);
    EXPECT_EQ(countNot(0xffffff, 0, 0, 200, 60), 0) << "nothing asked for, no text: not a pixel changes";
    tools.SetBkgColor(RGB(0, 0, 255));
    html.OnPaint(wnd, dc.Get(), L"", 0, TRUE, FALSE, &links, &tools);
    EXPECT_EQ(countNot(0x0000ff, 0, 0, 200, 60), 0);
    html.OnPaint(wnd, dc.Get(), L"", 0, TRUE, TRUE, &links, &tools);
    const std::vector<uint32_t> frameAlone = frame();
    const wchar_t* text = L"<A>big</A> <H>Hello</H> plain";
    const int height = html.OnPaint(wnd, dc.Get(), text, lstrlenW(text), TRUE, TRUE, &links, &tools);
    EXPECT_EQ(frame(), frameAlone) << "the text never draws over the frame";
    // The measuring pass ran first: the link, drawn before the heading on the same line, already
    // ends on the heading's line bottom.
    const RECT all = {0, 0, 1000, 1000};
    const int headingHeight = html.Draw(DrawHTML::kMeasure, dc.Get(), &all, L"<H>Hg</H>", 9, nullptr, &tools);
    ASSERT_EQ(links.GetCount(), 1u);
    EXPECT_EQ(links.Get(0)->GetRects()[0].bottom, headingHeight);
    EXPECT_EQ(height, headingHeight);
    EXPECT_LT(height, 56);
    // The frame is two pixels of the system's edge colours on every side; the text lies inside it.
    EXPECT_EQ(countNot(0x0000ff, 0, 0, 200, 2), 400);
    EXPECT_EQ(countNot(0x0000ff, 0, 58, 200, 60), 400);
    EXPECT_EQ(countNot(0x0000ff, 0, 2, 2, 58), 112);
    EXPECT_GT(countNot(0x0000ff, 2, 2, 198, 2 + height), 20);
    EXPECT_EQ(countNot(0x0000ff, 2, 2 + height + 1, 198, 58), 0) << "nothing below the text";
    DestroyWindow(wnd);
}

TEST(DrawHTMLToolsTest, OwnerColoursSurviveUpdateAndFontsFollowTheFlags)
{
    DrawHTMLTools tools;
    EXPECT_EQ(tools.GetTextColor(), GetSysColor(COLOR_WINDOWTEXT));
    EXPECT_EQ(tools.GetLinkColor(),
              DrawHTMLTools::ReadableLinkColor(GetSysColor(COLOR_HOTLIGHT), GetSysColor(COLOR_BTNFACE)));
    // The system's link colour is kept while it stands out from the background (3:1 or more).
    struct { COLORREF hot, bkg, want; } colours[] = {
        {RGB(0, 102, 204), RGB(240, 240, 240), RGB(0, 102, 204)},           // Windows' own
        {RGB(224, 224, 224), RGB(245, 245, 245), DrawHTMLTools::kLinkBlue}, // a pale scheme
        {RGB(255, 255, 0), RGB(0, 0, 0), RGB(255, 255, 0)},                 // high contrast
        {RGB(118, 118, 118), RGB(255, 255, 255), RGB(118, 118, 118)},       // 4.5:1
        {RGB(150, 150, 150), RGB(255, 255, 255), DrawHTMLTools::kLinkBlue}, // under 3:1
    };
    for (auto& c : colours)
        EXPECT_EQ(c.want, DrawHTMLTools::ReadableLinkColor(c.hot, c.bkg)) << std::hex << c.hot;
    tools.SetLinkColor(RGB(1, 2, 3));
    EXPECT_EQ(tools.Update(), 1);
    EXPECT_EQ(tools.GetLinkColor(), RGB(1, 2, 3));
    const HFONT before = tools.GetFont();
    EXPECT_EQ(tools.SetFixedFont(TRUE), 1);
    EXPECT_EQ(tools.GetLogFont().lfPitchAndFamily & 3, FIXED_PITCH);
    EXPECT_NE(tools.GetFont(), nullptr);
    EXPECT_NE(tools.GetFont(), before);
    LOGFONTW lf = {};
    lf.lfHeight = -20;
    lf.lfWeight = FW_BOLD;
    lstrcpyW(lf.lfFaceName, L"Tahoma");
    EXPECT_EQ(tools.SetCustomFont(&lf), 1);
    EXPECT_EQ(tools.GetStyle().font.nHeight, -20);
    EXPECT_EQ(tools.GetStyle().font.nWeight, FW_BOLD);
    EXPECT_EQ(tools.SetCustomFont(nullptr), 1);
    EXPECT_NE(tools.GetStyle().font.nHeight, -20);
}

} // namespace
