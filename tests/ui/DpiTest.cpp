// Pixel scaling per window DPI, through the DPI seams: exact values at the four usual scales,
// rounding halves away from zero, the fall-backs, and sizes that must not wrap round.
#include <gtest/gtest.h>

#include <windows.h>

#include <climits>

#include "ui/DMWnd.h"
#include "ui/Dpi.h"
#include "ui/UiSeams.h"

namespace {

UINT g_windowDpi = 0, g_systemDpi = 0;
HWND g_askedFor = nullptr;

class DpiTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        UiSeams::pfnGetWindowDpi = [](HWND hwnd) { return g_askedFor = hwnd, g_windowDpi; };
        UiSeams::pfnGetSystemDpi = [] { return g_systemDpi; };
        ASSERT_TRUE(wnd.Create(nullptr, L"dpi", WS_OVERLAPPEDWINDOW));
    }
    void TearDown() override { UiSeams::pfnGetWindowDpi = savedWindow, UiSeams::pfnGetSystemDpi = savedSystem; }
    UINT (*savedWindow)(HWND) = UiSeams::pfnGetWindowDpi;
    UINT (*savedSystem)() = UiSeams::pfnGetSystemDpi;
    DMWnd wnd;
};

// Values at 96 DPI and their sizes at each scale; halves round away from zero
// (120 DPI: 2 -> 2.5 -> 3; 144 DPI: 3 -> 4.5 -> 5; unscaled 192 DPI: 3 -> 1.5 -> 2).
TEST_F(DpiTest, ScalesAndUnscalesExactlyAtTheUsualScales)
{
    const int values[] = {0, 1, 2, 3, 10, 15, 100, -2};
    struct Row { UINT dpi; int percent, scaled[8], unscaled[8]; } rows[] = {
        {96, 100, {0, 1, 2, 3, 10, 15, 100, -2}, {0, 1, 2, 3, 10, 15, 100, -2}},
        {120, 125, {0, 1, 3, 4, 13, 19, 125, -3}, {0, 1, 2, 2, 8, 12, 80, -2}},
        {144, 150, {0, 2, 3, 5, 15, 23, 150, -3}, {0, 1, 1, 2, 7, 10, 67, -1}},
        {192, 200, {0, 2, 4, 6, 20, 30, 200, -4}, {0, 1, 1, 2, 5, 8, 50, -1}},
    };
    g_systemDpi = 96;
    for (const Row& r : rows) {
        SCOPED_TRACE(r.dpi);
        g_windowDpi = r.dpi;
        const Dpi dpi = Dpi::ForWindow(wnd.GetHwnd());
        EXPECT_EQ(g_askedFor, wnd.GetHwnd());
        EXPECT_EQ(dpi.Get(), r.dpi);
        EXPECT_EQ(dpi.Percent(), r.percent);
        for (int i = 0; i < 8; ++i) {
            EXPECT_EQ(dpi.Scale(values[i]), r.scaled[i]) << values[i];
            EXPECT_EQ(Dpi::Unscale(values[i], r.dpi), r.unscaled[i]) << values[i];
        }
    }
}

TEST_F(DpiTest, FallsBackToTheSystemDpiThenTo96)
{
    struct Case { HWND hwnd; UINT windowDpi, systemDpi, expected; } cases[] = {
        {wnd.GetHwnd(), 120, 144, 120}, {wnd.GetHwnd(), 0, 144, 144}, {wnd.GetHwnd(), 0, 0, 96},
        {nullptr, 120, 192, 192}, // no window: the system's
    };
    for (const Case& c : cases) {
        g_windowDpi = c.windowDpi, g_systemDpi = c.systemDpi;
        EXPECT_EQ(Dpi::ForWindow(c.hwnd).Get(), c.expected);
    }
    g_systemDpi = 0;
    EXPECT_EQ(Dpi::System().Get(), 96u);
    g_systemDpi = 144;
    EXPECT_EQ(Dpi::System().Get(), 144u);
    EXPECT_EQ(Dpi(0).Get(), 96u);
}

TEST_F(DpiTest, HugeSizesStayInTheIntRange)
{
    struct Case { int px; UINT dpi; int scaled, unscaled; } cases[] = {
        {INT_MAX, 192, INT_MAX, 1073741824}, {INT_MIN, 192, INT_MIN, -1073741824}, {INT_MAX, UINT_MAX, INT_MAX, 48},
        {INT_MIN, UINT_MAX, INT_MIN, -48}, {INT_MAX, 96, INT_MAX, INT_MAX}, {INT_MIN, 96, INT_MIN, INT_MIN},
        {1000, 48, 500, 2000}, {INT_MAX, 48, 1073741824, INT_MAX}, // below 100 %
        {7, 0, 7, 7},                                               // nothing known counts as 96
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.px) + " at " + std::to_string(c.dpi));
        EXPECT_EQ(Dpi::Scale(c.px, c.dpi), c.scaled);
        EXPECT_EQ(Dpi::Unscale(c.px, c.dpi), c.unscaled);
    }
}

TEST_F(DpiTest, RealQueriesAgreeWithTheDeviceContext)
{
    TearDown(); // the real seams
    HDC hdc = GetDC(wnd.GetHwnd());
    ASSERT_NE(hdc, nullptr);
    const UINT deviceDpi = (UINT)GetDeviceCaps(hdc, LOGPIXELSX);
    ReleaseDC(wnd.GetHwnd(), hdc);
    EXPECT_EQ(UiSeams::pfnGetWindowDpi(wnd.GetHwnd()), deviceDpi);
    EXPECT_EQ(UiSeams::pfnGetWindowDpi(nullptr), 0u);
    EXPECT_EQ(UiSeams::pfnGetSystemDpi(), deviceDpi);
}

} // namespace
