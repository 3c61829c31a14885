// The scale texts and the 1-2-5 steps the graph, the watch table and the tool
// bar share, and the grid geometry of the graph.
#include "view/GraphGeometry.h"
#include "view/Scale.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

TEST(ScaleSteps, FollowTheOneTwoFiveSeries)
{
    EXPECT_EQ(scale::stepUp(5, 6), 10u);
    EXPECT_EQ(scale::stepDown(10, 9), 5u);
    EXPECT_EQ(scale::stepDown(1, 0), 1u);
    EXPECT_EQ(scale::stepUp(1, 2), 2u);
    EXPECT_EQ(scale::stepUp(2, 3), 5u);
    EXPECT_EQ(scale::stepUp(1, 1234), 2000u);
    EXPECT_EQ(scale::stepDown(5000, 4999), 2000u);
    EXPECT_EQ(scale::stepDown(2000, 1999), 1000u);
    // Stepping stops at two thousand million whatever is asked.
    EXPECT_EQ(scale::stepUp(1, 0xFFFFFFFFull * 4), scale::kMaxResolution);
    // Values off the series (hand-edited projects) land on it instead of looping.
    EXPECT_EQ(scale::stepUp(0, 3), 5u);
    EXPECT_EQ(scale::stepUp(3, 4), 5u);
    EXPECT_EQ(scale::stepUp(7, 8), 10u);
    EXPECT_EQ(scale::stepDown(7, 6), 5u);
    EXPECT_EQ(scale::stepDown(30, 29), 20u);
}

TEST(ScaleSteps, UpThenDownReturnsThroughTheSameValues)
{
    std::uint32_t r = 1;
    std::vector<std::uint32_t> up;
    while (r < scale::kMaxResolution) {
        up.push_back(r);
        r = scale::stepUp(r, std::uint64_t(r) + 1);
    }
    EXPECT_EQ(up.size(), 28u);  // 1 .. 1,000,000,000, three steps a decade
    EXPECT_EQ(r, scale::kMaxResolution);
    EXPECT_EQ(scale::stepDown(r, r - 1), up.back());
    for (std::size_t i = 1; i < up.size(); ++i)
        EXPECT_EQ(scale::stepDown(up[i], up[i] - 1), up[i - 1]) << "from " << up[i];
}

TEST(ScaleTexts, ResolutionPerDivision)
{
    EXPECT_EQ(scale::resolutionText(2000000), "2M/div");
    EXPECT_EQ(scale::resolutionText(20000), "20k/div");
    EXPECT_EQ(scale::resolutionText(500), "500/div");
    EXPECT_EQ(scale::resolutionText(1000), "1k/div");
    EXPECT_EQ(scale::resolutionText(999999), "999k/div");
    EXPECT_EQ(scale::resolutionText(2000000000), "2000M/div");
}

TEST(ScaleTexts, TimePerDivisionEntries)
{
    ASSERT_EQ(scale::kTimePerDivision.size(), 27u);
    EXPECT_EQ(scale::timePerDivisionText(scale::kTimePerDivision.front()), "1 us/Div");
    EXPECT_EQ(scale::timePerDivisionText(500), "500 us/Div");
    EXPECT_EQ(scale::timePerDivisionText(1000), "1 ms/Div");
    EXPECT_EQ(scale::timePerDivisionText(500000), "500 ms/Div");
    EXPECT_EQ(scale::timePerDivisionText(scale::kTimePerDivision[scale::kDefaultTimePerDivisionIndex]), "1 s/Div");
    EXPECT_EQ(scale::timePerDivisionText(scale::kTimePerDivision.back()), "500 s/Div");
    // Each entry is the next of the 1-2-5 series.
    for (std::size_t i = 1; i < scale::kTimePerDivision.size(); ++i)
        EXPECT_EQ(scale::stepUp(scale::kTimePerDivision[i - 1], scale::kTimePerDivision[i - 1] + 1ull),
                  scale::kTimePerDivision[i]);
}

TEST(ScaleTexts, CursorTimeDropsALeadingZero)
{
    EXPECT_EQ(scale::cursorTimeText(2500000, 1000000), "2.500 s");
    EXPECT_EQ(scale::cursorTimeText(250000, 1000000), ".250 s");
    EXPECT_EQ(scale::cursorTimeText(5678, 1000), "005.678 ms");
    EXPECT_EQ(scale::cursorTimeText(2500000, 100000), "2500.000 ms");
    EXPECT_EQ(scale::cursorTimeText(0, 1000000), ".000 s");
    EXPECT_EQ(scale::cursorTimeText(61234567, 5000000), "61.234 s");
}

TEST(GraphGeometryTest, DivisionsMarginsAndCentre)
{
    const GraphGeometry g = GraphGeometry::of(1050, 630);
    EXPECT_EQ(g.divisionsX, 10);
    EXPECT_EQ(g.marginX, 25);
    EXPECT_EQ(g.centreX, 525);
    EXPECT_EQ(g.divisionsY, 6);
    EXPECT_EQ(g.marginY, 15);
    EXPECT_EQ(g.zeroLineY, 315);
    // Odd division counts: the zero line sits on the lower of the middle lines.
    const GraphGeometry odd = GraphGeometry::of(799, 550);
    EXPECT_EQ(odd.divisionsX, 7);
    EXPECT_EQ(odd.marginX, 49);
    EXPECT_EQ(odd.centreX, 349);
    EXPECT_EQ(odd.zeroLineY, 2 * 100 + 25);
}

TEST(GraphGeometryTest, CursorTimeFromItsPixel)
{
    const GraphGeometry g = GraphGeometry::of(1050, 600);
    EXPECT_EQ(g.cursorTime(25 + 250, 0, 1000000), 2500000u);
    EXPECT_EQ(g.cursorTime(25 + 25, 0, 1000000), 250000u);
    EXPECT_EQ(scale::cursorTimeText(g.cursorTime(25 + 250, 0, 1000000), 1000000), "2.500 s");
    EXPECT_EQ(scale::cursorTimeText(g.cursorTime(25 + 25, 0, 1000000), 1000000), ".250 s");
    EXPECT_EQ(g.cursorTime(25, 7000000, 1000000), 7000000u);
    EXPECT_EQ(g.cursorTime(1025, 0, 1000), 10000u);
    // A widget too narrow for one division has no span to read.
    EXPECT_EQ(GraphGeometry::of(1, 1).cursorTime(0, 42, 1000), 42u);
}

TEST(GraphGeometryTest, SamplesToPixels)
{
    const GraphGeometry g = GraphGeometry::of(1050, 600);  // zero line at 300
    EXPECT_EQ(g.xOf(0, 0, 1000000), 25);
    EXPECT_EQ(g.xOf(2500000, 0, 1000000), 275);
    EXPECT_EQ(g.xOf(1999, 0, 1000), 25 + 199);  // truncated toward zero
    EXPECT_EQ(g.yOf(0, 10, 0), 300);
    EXPECT_EQ(g.yOf(10, 10, 0), 200);  // one resolution is one division up
    EXPECT_EQ(g.yOf(-5, 10, 0), 350);
    EXPECT_EQ(g.yOf(0, 10, 1.0), 200);  // the offset counts in divisions, upward
    EXPECT_EQ(g.yOf(0.0999, 1, 0), 291);
    EXPECT_EQ(g.symbolZeroY(-1.5), 450);
    // Broken values stay on the symbol's zero line or saturate; no overflow.
    EXPECT_EQ(g.yOf(std::numeric_limits<double>::quiet_NaN(), 10, 0), 300);
    EXPECT_EQ(g.yOf(std::numeric_limits<double>::infinity(), 10, 0), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(g.yOf(1, 0, 0), 200);  // a zero resolution draws as one unit per division
}
