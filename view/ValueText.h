// How the views read a stored sample and write numbers: the value a curve
// and the cursor read-outs use, and the texts of the Y resolution.
#pragma once

#include <QString>

#include <cstdint>

struct Node;

namespace valuetext {

// The sample as the views see it: plain numbers by type id, a bit field
// extracted from its 32-bit word, every other type (64-bit integers
// included) as 0.0.
double curveValue(const Node& symbol, std::uint64_t slot);

// "%iM/div" from 1,000,000 up, "%ik/div" from 1000 up, else "%i/div".
QString yResolutionText(std::uint32_t resolution);

// Format 'g' with 6 significant digits ("false"/"true" for a boolean).
QString readoutText(const Node& symbol, std::uint64_t slot);

}  // namespace valuetext
