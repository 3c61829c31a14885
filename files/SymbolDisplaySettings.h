// Display and statistics fields that every selected symbol carries beside its
// identity (saved per symbol in the project file).
#pragma once

#include <cstdint>
#include <limits>

struct Rgb {
    std::uint8_t red = 0, green = 0, blue = 0, alpha = 255;
    friend bool operator==(const Rgb&, const Rgb&) = default;
};

struct SymbolDisplaySettings {
    std::int32_t DrawStyle = 0;  // 0 connected line, otherwise points only
    double YOffset = 0.0;
    std::uint32_t YResolution = 1;  // value units per grid division, 1-2-5 series
    bool IsAutoConfig = false;
    bool ShowInGraph = true;
    bool HasGraphColor = false;  // a colour is assigned
    Rgb GraphColor;
    std::int32_t Offset = 0;  // byte position of the value inside a sample record
    bool ManualYResolution = false;  // chosen by the user: the automatic Y range leaves it alone
    double YMaxSampled = std::numeric_limits<double>::lowest();
    double YMinSampled = std::numeric_limits<double>::max();
    double YAvgSampled = 0.0;
};
