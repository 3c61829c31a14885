// A stored sample slot read as a number by the symbol's sample type.
#pragma once

#include "symbols/Node.h"

#include <cstdint>
#include <cstring>
#include <limits>

// The slot's value as a double; NaN for types that have no plain value.
inline double sampleToDouble(std::int32_t typeId, std::uint64_t slot)
{
    auto as = [&](auto v) {
        std::memcpy(&v, &slot, sizeof v);
        return static_cast<double>(v);
    };
    switch (typeId) {
    case kTypeFloat: return as(float{});
    case kTypeDouble: return as(double{});
    case kTypeBool:
    case kTypeU8: return as(std::uint8_t{});
    case kTypeU16: return as(std::uint16_t{});
    case kTypeU32: return as(std::uint32_t{});
    case kTypeU64: return as(std::uint64_t{});
    case kTypeS8: return as(std::int8_t{});
    case kTypeS16: return as(std::int16_t{});
    case kTypeS32: return as(std::int32_t{});
    case kTypeS64: return as(std::int64_t{});
    default: return std::numeric_limits<double>::quiet_NaN();
    }
}
