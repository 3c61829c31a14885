// The colours new curves get: a fixed palette that reads well on the graph's
// black background and keeps clear of its grey axes and orange cursor.
#pragma once

#include "symbols/SymbolDisplaySettings.h"

#include <QColor>

#include <array>
#include <cstddef>
#include <vector>

struct Node;

namespace curvecolors {

inline constexpr std::size_t kPaletteSize = 12;
const std::array<Rgb, kPaletteSize>& palette();

// Gives every symbol of `symbols` that has no colour yet the next palette
// colour: the first one no symbol of the list uses, or, once all are taken,
// the palette again in order. Symbols that have a colour keep it. Returns
// the number of symbols coloured.
std::size_t assign(const std::vector<Node*>& symbols);

// The colour to draw: each component clamped to 0..255.
QColor toQColor(const Rgb& rgb);

}  // namespace curvecolors
