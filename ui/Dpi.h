// Pixel sizes per window DPI. Layout numbers in the code are written for 96 DPI (100 %); a window
// shown at 120, 144 or 192 DPI scales them by 125, 150 or 200 %. Results round to the nearest
// pixel with halves away from zero (1.5 becomes 2, -1.5 becomes -2) and are held to the int range,
// so no size can wrap round. A DPI of 0 (nothing known) counts as 96.
#pragma once
#include <windows.h>

class Dpi {
public:
    static constexpr UINT kDefault = 96;

    explicit Dpi(UINT dpi = kDefault) : dpi_(dpi ? dpi : kDefault) {}
    // The DPI hwnd is drawn at; the system DPI when the window's cannot be had (no window, or
    // neither query answers); 96 when that is unknown too.
    static Dpi ForWindow(HWND hwnd);
    // The system DPI (96 when unknown): the DPI of windows that are not per-monitor aware.
    static Dpi System();

    UINT Get() const { return dpi_; }
    // The scale in percent, rounded like the pixels (96 gives 100, 120 gives 125).
    int Percent() const { return Scale(100, dpi_); }
    // A 96-DPI size in pixels at this DPI, and back.
    int Scale(int px) const { return Scale(px, dpi_); }
    int Unscale(int px) const { return Unscale(px, dpi_); }

    static int Scale(int px, UINT dpi);
    static int Unscale(int px, UINT dpi);

private:
    UINT dpi_;
};
