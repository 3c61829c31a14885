// The graph's grid and its mapping from time stamps and values to pixels:
// 100-pixel divisions centred in the widget, every truncation toward zero.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

struct GraphGeometry {
    static constexpr int kDivision = 100;  // pixels per division

    int width = 0, height = 0;
    int divisionsX = 0, divisionsY = 0;
    int marginX = 0, marginY = 0;
    int zeroLineY = 0;
    int centreX = 0;

    static GraphGeometry of(int width, int height)
    {
        GraphGeometry g;
        g.width = width;
        g.height = height;
        g.divisionsX = width > 0 ? width / kDivision : 0;
        g.divisionsY = height > 0 ? height / kDivision : 0;
        g.marginX = (width - g.divisionsX * kDivision) / 2;
        g.marginY = (height - g.divisionsY * kDivision) / 2;
        g.zeroLineY = (g.divisionsY / 2) * kDivision + g.marginY;
        g.centreX = (g.divisionsX / 2) * kDivision + g.marginX;
        return g;
    }

    int gridLeft() const { return marginX; }
    int gridRight() const { return marginX + divisionsX * kDivision; }
    int gridTop() const { return marginY; }
    int gridBottom() const { return marginY + divisionsY * kDivision; }

    // Truncation toward zero into 32 bits; NaN reads as 0 and the infinities
    // saturate, so a broken value never reaches the painter as garbage.
    static std::int32_t truncated(double v)
    {
        if (!(v == v))
            return 0;
        if (v >= 2147483647.0)
            return std::numeric_limits<std::int32_t>::max();
        if (v <= -2147483648.0)
            return std::numeric_limits<std::int32_t>::min();
        return static_cast<std::int32_t>(v);
    }

    // x = trunc((t - start) / (time per division / 100) + margin X)
    std::int32_t xOf(double timeStamp, double startTime, double timePerDivision) const
    {
        return truncated((timeStamp - startTime) / (timePerDivision / kDivision) + marginX);
    }

    // y = trunc((zero line y - trunc(v / resolution * 100)) - Y offset * 100).
    // Non-increasing in v for every resolution of at least 1: a column's
    // extreme values give its extreme pixels.
    std::int32_t yOf(double value, std::uint32_t resolution, double yOffset) const
    {
        const double units = std::trunc(value / (resolution ? resolution : 1) * kDivision);
        const double v = units == units ? units : 0.0;
        return truncated((double(zeroLineY) - v) - yOffset * kDivision);
    }

    // The y of a symbol's own zero line.
    std::int32_t symbolZeroY(double yOffset) const { return truncated(zeroLineY - yOffset * kDivision); }

    // Cursor time in microseconds for a cursor at `cursorX`.
    std::uint64_t cursorTime(int cursorX, double startTime, double timePerDivision) const
    {
        const int inner = width - 2 * marginX;
        if (inner <= 0)
            return startTime > 0 ? static_cast<std::uint64_t>(startTime) : 0;
        const double span = divisionsX * timePerDivision;
        const double t = startTime + span * (cursorX - marginX) / inner;
        return t > 0 ? static_cast<std::uint64_t>(t) : 0;
    }
};
