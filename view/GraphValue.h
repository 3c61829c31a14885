// A stored sample as the graph reads it: the plain types by their type id, a
// bit field cut from its 32-bit word, and 0.0 for everything else, the 64-bit
// integers included (the graph has no exact picture of them and shows them on
// their zero line).
#pragma once

#include "probe/SampleValue.h"
#include "symbols/Node.h"

#include <cstdint>

inline double graphValue(std::int32_t typeId, std::uint64_t slot, std::uint32_t bitOffset, std::uint32_t bitSize)
{
    switch (typeId) {
    case kTypeFloat:
    case kTypeDouble:
    case kTypeBool:
    case kTypeU8:
    case kTypeU16:
    case kTypeU32:
    case kTypeS8:
    case kTypeS16:
    case kTypeS32: return sampleToDouble(typeId, slot);
    case kTypeBitField: {
        const auto word = static_cast<std::uint32_t>(slot);
        const std::uint32_t shifted = bitOffset < 32 ? word >> bitOffset : 0;
        const std::uint32_t mask = bitSize >= 32 ? 0xFFFFFFFFu : (1u << bitSize) - 1;
        return static_cast<double>(shifted & mask);
    }
    default: return 0.0;
    }
}

inline double graphValue(const Node& symbol, std::uint64_t slot)
{
    return graphValue(symbol.TypeID, slot, symbol.BitOffset, symbol.BitSize);
}

// Sampled since the last clear: the symbol has a buffer and a value.
inline bool isActiveInSampling(const Node& symbol) { return symbol.Values && symbol.HasValue; }
