#include "view/CurveColors.h"

#include "symbols/Node.h"

#include <algorithm>

namespace curvecolors {

QColor toQColor(const Rgb& rgb)
{
    const auto c = [](std::int32_t v) { return std::clamp(v, 0, 255); };
    return QColor(c(rgb.red), c(rgb.green), c(rgb.blue));
}

const std::array<Rgb, kPaletteSize>& palette()
{
    static const std::array<Rgb, kPaletteSize> colors = {{
        {255, 80, 80, 255},    // red
        {80, 220, 80, 255},    // green
        {80, 160, 255, 255},   // blue
        {255, 230, 60, 255},   // yellow
        {230, 90, 230, 255},   // magenta
        {60, 220, 220, 255},   // cyan
        {255, 255, 255, 255},  // white
        {255, 130, 170, 255},  // pink
        {160, 255, 120, 255},  // lime
        {170, 140, 255, 255},  // violet
        {200, 170, 110, 255},  // tan
        {120, 200, 160, 255},  // sea green
    }};
    return colors;
}

std::size_t assign(const std::vector<Node*>& symbols)
{
    std::array<bool, kPaletteSize> used{};
    std::size_t colored = 0;
    for (const Node* n : symbols) {
        if (!n || !n->symbol().HasGraphColor)
            continue;
        ++colored;
        const auto it = std::find(palette().begin(), palette().end(), n->symbol().GraphColor);
        if (it != palette().end())
            used[static_cast<std::size_t>(it - palette().begin())] = true;
    }
    std::size_t assigned = 0;
    for (Node* n : symbols) {
        if (!n || n->symbol().HasGraphColor)
            continue;
        const auto freeSlot = std::find(used.begin(), used.end(), false);
        std::size_t index;
        if (freeSlot != used.end()) {
            index = static_cast<std::size_t>(freeSlot - used.begin());
            used[index] = true;
        } else {
            index = colored % kPaletteSize;
        }
        n->symbol().GraphColor = palette()[index];
        n->symbol().HasGraphColor = true;
        ++colored;
        ++assigned;
    }
    return assigned;
}

}  // namespace curvecolors
