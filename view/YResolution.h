// The Y resolution (value units per grid division) moves along the 1-2-5
// series: 1, 2, 5, 10, 20, 50, ... up to 2,000,000,000.
#pragma once

#include <cstdint>

namespace yres {

inline constexpr std::uint32_t kMax = 2000000000u;

// Steps `r` up until it is at least `target` or reaches kMax.
std::uint32_t stepUp(std::uint32_t r, std::uint32_t target);
// Steps `r` down until it is at most `target`; never below 1.
std::uint32_t stepDown(std::uint32_t r, std::uint32_t target);

// The next and the previous value of the series.
inline std::uint32_t next(std::uint32_t r) { return stepUp(r, r + 1); }
inline std::uint32_t previous(std::uint32_t r) { return r == 0 ? 0 : stepDown(r, r - 1); }

}  // namespace yres
