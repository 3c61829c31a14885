#include "view/YResolution.h"

namespace yres {
namespace {

std::uint32_t leadingDigit(std::uint32_t r)
{
    while (r >= 10)
        r /= 10;
    return r;
}

// A project file may carry a value off the series (or 0); one step first
// brings it onto the series, so the loops below always make progress.
std::uint32_t seriesAtOrAbove(std::uint32_t r)
{
    std::uint32_t s = 1;
    while (s < r && s < kMax)
        s = leadingDigit(s) == 2 ? s / 2 * 5 : s * 2;
    return s;
}

std::uint32_t seriesAtOrBelow(std::uint32_t r)
{
    std::uint32_t s = seriesAtOrAbove(r);
    while (s > r && s >= 2)
        s = leadingDigit(s) == 5 ? s / 5 * 2 : s / 2;
    return s;
}

bool onSeries(std::uint32_t r) { return r != 0 && seriesAtOrAbove(r) == r; }

}  // namespace

std::uint32_t stepUp(std::uint32_t r, std::uint32_t target)
{
    if (r < target && r < kMax && !onSeries(r))
        r = seriesAtOrAbove(r == 0 ? 1 : r + 1);
    while (r < target && r < kMax) {
        switch (leadingDigit(r)) {
        case 2: r = r / 2 * 5; break;
        default: r *= 2; break;  // 1 and 5
        }
    }
    return r;
}

std::uint32_t stepDown(std::uint32_t r, std::uint32_t target)
{
    if (r > target && r >= 2 && !onSeries(r))
        r = seriesAtOrBelow(r - 1);
    while (r > target && r >= 2) {
        switch (leadingDigit(r)) {
        case 5: r = r / 5 * 2; break;
        default: r /= 2; break;  // 1 and 2
        }
    }
    return r;
}

}  // namespace yres
