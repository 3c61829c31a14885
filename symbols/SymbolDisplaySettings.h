// Display and statistics fields that every selected symbol carries beside its
// identity (saved per symbol in the project file).
#pragma once

#include <cstdint>
#include <limits>

// Components as the project file gives them, even outside 0..255; they are
// clamped where they are drawn, so a file is written back as it was read.
struct Rgb {
    std::int32_t red = 0, green = 0, blue = 0, alpha = 255;
    friend bool operator==(const Rgb&, const Rgb&) = default;
};

struct SymbolDisplaySettings {
    std::int32_t DrawStyle = 0;  // 0 connected line, otherwise points only
    double YOffset = 0.0;
    std::uint32_t YResolution = 1;  // value units per grid division, 1-2-5 series
    bool IsAutoConfig = false;
    bool ShowInGraph = true;
    bool HasGraphColor = false;  // a colour is assigned
    bool ManualYResolution = false;  // chosen by the user: the automatic Y range leaves it alone
    Rgb GraphColor;
    std::int32_t Offset = 0;  // byte position of the value inside a sample record
    double YMaxSampled = std::numeric_limits<double>::lowest();
    double YMinSampled = std::numeric_limits<double>::max();
    double YAvgSampled = 0.0;
};
