// A stored sample as the graph reads it: the plain types by their type id, a
// bit field cut from the word(s) its slot holds, and 0.0 for everything else, the 64-bit
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
        // The slot holds the word (or two) around the field (see SampleStore::slotWindow).
        const std::uint64_t shifted = slot >> (bitOffset % 32);
        const std::uint64_t mask = bitSize >= 32 ? 0xFFFFFFFFu : (std::uint64_t{1} << bitSize) - 1;
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
inline bool isActiveInSampling(const Node& symbol) { return symbol.symbol().Values && symbol.symbol().HasValue; }
