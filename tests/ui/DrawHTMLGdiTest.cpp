// The renderer on real GDI (Wine's null graphics driver, memory device contexts): measuring,
// fonts, links from a real draw, and painting pixels.
#include <gtest/gtest.h>

#include <windows.h>

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
        if (links.GetCount() != 1 || links.Get(0)->GetRects().size() != 1)
            return -1;
        const RECT r = links.Get(0)->GetRects()[0];
        return r.right - r.left;
    }

    MemoryDc dc{CreateCompatibleDC(nullptr)};
    DrawHTMLTools tools;
    DrawHTML html;
    DrawHTMLLinks links;
};

TEST_F(DrawHTMLGdi, MeasuresOneLineAsTallAsTheFontAndMoreLinesTaller)
{
    ASSERT_NE(tools.GetFont(), nullptr);
    SIZE hg;
    {
        DcSelection font(dc.Get(), tools.GetFont());
        ASSERT_TRUE(GetTextExtentPoint32W(dc.Get(), L"Hg", 2, &hg));
    }
    ASSERT_GT(hg.cy, 4);
    const RECT rc = {0, 0, 300, 1000};
    EXPECT_EQ(html.Draw(DrawHTML::kMeasure, dc.Get(), &rc, L"Hello", 5, &links, &tools), hg.cy);
    EXPECT_EQ(html.Draw(DrawHTML::kMeasure, dc.Get(), &rc, L"Hello<BR>world", 14, &links, &tools), 2 * hg.cy + 1);
    // A narrow rectangle wraps the words onto more lines.
    const RECT narrow = {0, 0, 40, 1000};
    const wchar_t* text = L"one two three four five six";
    EXPECT_GT(html.Draw(DrawHTML::kMeasure, dc.Get(), &narrow, text, lstrlenW(text), &links, &tools), 3 * hg.cy);

    SetLastError(0xdeadbeef);
    EXPECT_EQ(html.Draw(DrawHTML::kMeasure, nullptr, &rc, L"x", 1, &links, &tools), 0);
    EXPECT_EQ(GetLastError(), (DWORD)ERROR_INVALID_PARAMETER);
}

TEST_F(DrawHTMLGdi, BoldRunIsWiderThanThePlainOne)
{
    const int plain = LinkWidth(L"<A>Wide words</A>");
    const int bold = LinkWidth(L"<A><B>Wide words</B></A>");
    EXPECT_GT(plain, 20);
    EXPECT_GT(bold, plain);
    const int big = LinkWidth(L"<A><H>Wide words</H></A>");
    EXPECT_GT(big, bold);
}

TEST_F(DrawHTMLGdi, LinkRectanglesOfARealDrawHitTest)
{
    html.SetLinkCmdID(1023);
    const RECT rc = {20, 10, 400, 200};
    const wchar_t* text = L"Click <A1>here</A1> now";
    ASSERT_GT(html.Draw(DrawHTML::kPaint, dc.Get(), &rc, text, lstrlenW(text), &links, &tools), 0);
    ASSERT_EQ(links.GetCount(), 1u);
    const RECT r = links.Get(0)->GetRects()[0];
    EXPECT_GT(r.left, 0);
    EXPECT_GT(r.right, r.left);
    EXPECT_EQ(r.top, 0);
    const int cx = (r.left + r.right) / 2, cy = (r.top + r.bottom) / 2;
    EXPECT_EQ(DrawHTML::GetLinkAreaID(&links, cx, cy), 1024);
    EXPECT_TRUE(DrawHTML::IsLinkArea(&links, r.left, r.top));
    EXPECT_FALSE(DrawHTML::IsLinkArea(&links, r.left - 1, cy)) << "the blank before the link";
    EXPECT_FALSE(DrawHTML::IsLinkArea(&links, r.right, cy));
    EXPECT_FALSE(DrawHTML::IsLinkArea(&links, cx, r.bottom));
}

// A white 32-bit bitmap of w x h selected into the test's DC, with its pixels readable.
class Bitmap {
public:
    Bitmap(HDC dc, int w, int h) : w(w), h(h)
    {
        BITMAPINFO bi = {};
        bi.bmiHeader.biSize = sizeof(bi.bmiHeader);
        bi.bmiHeader.biWidth = w;
        bi.bmiHeader.biHeight = -h;
        bi.bmiHeader.biPlanes = 1;
        bi.bmiHeader.biBitCount = 32;
        bi.bmiHeader.biCompression = BI_RGB;
        bmp = GdiBitmap(CreateDIBSection(dc, &bi, DIB_RGB_COLORS, (void**)&bits, nullptr, 0));
        if (bits)
            for (int i = 0; i < w * h; ++i)
                bits[i] = 0xffffff;
    }
    HBITMAP Get() const { return bmp.Get(); }
    uint32_t At(int x, int y) const { return bits[y * w + x] & 0xffffff; }
    int CountNot(uint32_t rgb, int x0, int y0, int x1, int y1) const
    {
        GdiFlush();
        int n = 0;
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x)
                n += At(x, y) != rgb;
        return n;
    }

private:
    int w, h;
    uint32_t* bits = nullptr;
    GdiBitmap bmp;
};

TEST_F(DrawHTMLGdi, OnPaintFillsFramesAndDrawsText)
{
    HWND wnd = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 200, 60, nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(wnd, nullptr);
    Bitmap bitmap(dc.Get(), 200, 60);
    ASSERT_NE(bitmap.Get(), nullptr);
    DcSelection selected(dc.Get(), bitmap.Get());
    tools.SetBkgColor(RGB(255, 255, 255));
    tools.SetTextColor(RGB(0, 0, 0));

    // Nothing asked for, no text: not a pixel changes.
    EXPECT_EQ(html.OnPaint(wnd, dc.Get(), L"", 0, FALSE, FALSE, &links, &tools), 0);
    EXPECT_EQ(bitmap.CountNot(0xffffff, 0, 0, 200, 60), 0);

    // The background in the tools' colour (0x00bbggrr in a COLORREF, 0x00rrggbb in the DIB).
    tools.SetBkgColor(RGB(0, 0, 255));
    html.OnPaint(wnd, dc.Get(), L"", 0, TRUE, FALSE, &links, &tools);
    EXPECT_EQ(bitmap.CountNot(0x0000ff, 0, 0, 200, 60), 0);

    // The frame alone, to compare with: the text never draws over it.
    html.OnPaint(wnd, dc.Get(), L"", 0, TRUE, TRUE, &links, &tools);
    std::vector<uint32_t> frame;
    for (int y = 0; y < 60; ++y)
        for (int x = 0; x < 200; ++x)
            if (x < 2 || y < 2 || x >= 198 || y >= 58)
                frame.push_back(bitmap.At(x, y));

    const wchar_t* text = L"<A>big</A> <H>Hello</H> plain";
    const int height = html.OnPaint(wnd, dc.Get(), text, lstrlenW(text), TRUE, TRUE, &links, &tools);
    size_t i = 0, nFrameChanged = 0;
    for (int y = 0; y < 60; ++y)
        for (int x = 0; x < 200; ++x)
            if (x < 2 || y < 2 || x >= 198 || y >= 58)
                nFrameChanged += bitmap.At(x, y) != frame[i++];
    EXPECT_EQ(nFrameChanged, 0u);
    // The measuring pass ran first: the link, drawn before the heading on the same line, already
    // ends on the heading's line bottom.
    const RECT all = {0, 0, 1000, 1000};
    const int headingHeight = html.Draw(DrawHTML::kMeasure, dc.Get(), &all, L"<H>Hg</H>", 9, nullptr, &tools);
    ASSERT_EQ(links.GetCount(), 1u);
    EXPECT_EQ(links.Get(0)->GetRects()[0].bottom, headingHeight);
    EXPECT_EQ(height, headingHeight);
    EXPECT_GT(height, 4);
    EXPECT_LT(height, 56);
    // The frame is two pixels of the system's edge colours on every side; the text lies inside it.
    EXPECT_EQ(bitmap.CountNot(0x0000ff, 0, 0, 200, 2), 400);
    EXPECT_EQ(bitmap.CountNot(0x0000ff, 0, 58, 200, 60), 400);
    EXPECT_EQ(bitmap.CountNot(0x0000ff, 0, 2, 2, 58), 112);
    EXPECT_GT(bitmap.CountNot(0x0000ff, 2, 2, 198, 2 + height), 20);
    EXPECT_EQ(bitmap.CountNot(0x0000ff, 2, 2 + height + 1, 198, 58), 0) << "nothing below the text";
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
        {RGB(0, 102, 204), RGB(240, 240, 240), RGB(0, 102, 204)}, // Windows' own: kept
        {RGB(224, 224, 224), RGB(245, 245, 245), DrawHTMLTools::kLinkBlue}, // a pale scheme
        {RGB(255, 255, 0), RGB(0, 0, 0), RGB(255, 255, 0)},       // high contrast: kept
        {RGB(118, 118, 118), RGB(255, 255, 255), RGB(118, 118, 118)}, // 4.5:1
        {RGB(150, 150, 150), RGB(255, 255, 255), DrawHTMLTools::kLinkBlue}, // under 3:1
    };
    for (auto& c : colours)
        EXPECT_EQ(c.want, DrawHTMLTools::ReadableLinkColor(c.hot, c.bkg)) << std::hex << c.hot;
    EXPECT_NE(tools.GetLogFont().lfHeight, 0);
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
