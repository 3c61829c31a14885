// Microsecond clock for rates and time-outs (monotonic).
#pragma once

#include <cstdint>

namespace clk {
std::uint64_t microseconds();
std::uint64_t milliseconds();
}  // namespace clk
