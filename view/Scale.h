// The 1-2-5 series of Y resolutions and time divisions, and the scale texts
// that the graph, the watch table and the tool bar show. One place, so the
// three views always agree.
#pragma once

#include <QString>

#include <array>
#include <cstdint>

namespace scale {

// Resolutions never step past this value.
inline constexpr std::uint32_t kMaxResolution = 2000000000u;

// The tool bar's zoom entries: time per division in microseconds, 1 us to 500 s.
inline constexpr std::array<std::uint32_t, 27> kTimePerDivision = {
    1,       2,       5,        10,       20,       50,        100,       200,       500,
    1000,    2000,    5000,     10000,    20000,    50000,     100000,    200000,    500000,
    1000000, 2000000, 5000000,  10000000, 20000000, 50000000,  100000000, 200000000, 500000000};
// Index of 1 s per division, the entry a new graph starts with.
inline constexpr int kDefaultTimePerDivisionIndex = 18;

// The zoom entry nearest to `microseconds` per division, by ratio.
int nearestTimePerDivisionIndex(std::uint32_t microseconds);

// Steps `r` up the series until it is at least `target` or reaches
// kMaxResolution (1 -> 2 -> 5 -> 10 ...).
std::uint32_t stepUp(std::uint32_t r, std::uint64_t target);
// Steps `r` down the series until it is at most `target`; never below 1.
std::uint32_t stepDown(std::uint32_t r, std::uint32_t target);

// "%iM/div" from 1,000,000 on, "%ik/div" from 1000, else "%i/div".
QString resolutionText(std::uint32_t r);
// "500 us/Div", "20 ms/Div", "1 s/Div".
QString timePerDivisionText(std::uint32_t microseconds);
// The graph's cursor label: "%.d%.3d.%.3d ms" below 1 s per division, else
// "%.d.%.3d s"; "%.d" prints nothing for 0, so a quarter second reads ".250 s".
QString cursorTimeText(std::uint64_t microseconds, double timePerDivision);

}  // namespace scale
