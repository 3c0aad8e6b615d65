#include "ui/Dpi.h"

#include <climits>
#include <cstdint>

#include "ui/UiSeams.h"

namespace {

// px * num / den, rounded half away from zero and held to the int range. The magnitude is worked
// in 64 unsigned bits: |px| <= 2^31 and num < 2^32, so 2 * |px| * num + den stays below 2^64.
int MulDivRound(int px, uint32_t num, uint32_t den)
{
    if (den == 0)
        den = Dpi::kDefault;
    const bool bNegative = px < 0;
    const uint64_t mag = bNegative ? (uint64_t)(-(int64_t)px) : (uint64_t)px;
    const uint64_t q = (2 * mag * num + den) / (2 * (uint64_t)den);
    if (bNegative)
        return q >= (uint64_t)INT_MAX + 1 ? INT_MIN : -(int)q;
    return q >= (uint64_t)INT_MAX ? INT_MAX : (int)q;
}

} // namespace

Dpi Dpi::ForWindow(HWND hwnd)
{
    UINT dpi = hwnd ? UiSeams::pfnGetWindowDpi(hwnd) : 0;
    return dpi ? Dpi(dpi) : System();
}

Dpi Dpi::System()
{
    return Dpi(UiSeams::pfnGetSystemDpi());
}

int Dpi::Scale(int px, UINT dpi)
{
    return MulDivRound(px, dpi ? dpi : kDefault, kDefault);
}

int Dpi::Unscale(int px, UINT dpi)
{
    return MulDivRound(px, kDefault, dpi ? dpi : kDefault);
}
