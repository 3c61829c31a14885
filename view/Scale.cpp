#include "view/Scale.h"

#include <cmath>

#include <cstdio>

namespace scale {

int nearestTimePerDivisionIndex(std::uint32_t microseconds)
{
    if (microseconds == 0)
        return 0;
    int best = 0;
    double bestDistance = 0;
    for (std::size_t i = 0; i < kTimePerDivision.size(); ++i) {
        const double distance = std::abs(std::log(double(kTimePerDivision[i]) / double(microseconds)));
        if (i == 0 || distance < bestDistance) {
            best = static_cast<int>(i);
            bestDistance = distance;
        }
    }
    return best;
}
namespace {

// Leading decimal digit and its power of ten.
std::uint64_t leadingDigit(std::uint64_t r, std::uint64_t& power)
{
    power = 1;
    while (r / power >= 10)
        power *= 10;
    return r / power;
}

}  // namespace

std::uint32_t stepUp(std::uint32_t r, std::uint64_t target)
{
    std::uint64_t v = r == 0 ? 1 : r;  // a zero resolution from a project file would never grow
    while (v < target && v < kMaxResolution) {
        std::uint64_t power = 1;
        switch (leadingDigit(v, power)) {
        case 1: v *= 2; break;
        case 2: v = v / 2 * 5; break;
        case 5: v *= 2; break;
        default:
            // Off the series (hand-edited project): land on the next series value.
            v = leadingDigit(v, power) < 5 ? 5 * power : 10 * power;
            break;
        }
    }
    return static_cast<std::uint32_t>(v < 0xFFFFFFFFull ? v : 0xFFFFFFFFull);
}

std::uint32_t stepDown(std::uint32_t r, std::uint32_t target)
{
    std::uint64_t v = r;
    while (v > target && v >= 2) {
        std::uint64_t power = 1;
        switch (leadingDigit(v, power)) {
        case 5: v = v / 5 * 2; break;
        case 1:
        case 2: v /= 2; break;
        default: v = leadingDigit(v, power) < 5 ? 2 * power : 5 * power; break;
        }
    }
    return static_cast<std::uint32_t>(v);
}

QString resolutionText(std::uint32_t r)
{
    if (r >= 1000000)
        return QString::asprintf("%iM/div", static_cast<int>(r / 1000000));
    if (r < 1000)
        return QString::asprintf("%i/div", static_cast<int>(r));
    return QString::asprintf("%ik/div", static_cast<int>(r / 1000));
}

QString timePerDivisionText(std::uint32_t us)
{
    if (us < 1000)
        return QString::number(us) + " us/Div";
    if (us < 1000000)
        return QString::number(us / 1000) + " ms/Div";
    return QString::number(us / 1000000) + " s/Div";
}

QString cursorTimeText(std::uint64_t t, double timePerDivision)
{
    char text[64];
    const int seconds = static_cast<int>(t / 1000000);
    const int millis = static_cast<int>((t / 1000) % 1000);
    if (timePerDivision < 1000000.0)
        std::snprintf(text, sizeof text, "%.d%.3d.%.3d ms", seconds, millis, static_cast<int>(t % 1000));
    else
        std::snprintf(text, sizeof text, "%.d.%.3d s", seconds, millis);
    return QString::fromLatin1(text);
}

}  // namespace scale
