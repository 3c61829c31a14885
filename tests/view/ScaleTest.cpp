// The scale texts and 1-2-5 steps the views share, and the graph's grid geometry.
#include "view/GraphGeometry.h"
#include "view/Scale.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

TEST(ScaleSteps, FollowTheOneTwoFiveSeries)
{
    // Values off the series (hand-edited projects) land on it instead of looping.
    const struct {
        std::uint32_t from;
        std::uint64_t wanted;
        std::uint32_t up;
    } ups[] = {{5, 6, 10}, {1, 2, 2}, {2, 3, 5}, {1, 1234, 2000}, {0, 3, 5}, {3, 4, 5}, {7, 8, 10},
               {1, 0xFFFFFFFFull * 4, scale::kMaxResolution}};  // stepping stops at two thousand million
    for (const auto& c : ups)
        EXPECT_EQ(scale::stepUp(c.from, c.wanted), c.up) << c.from << " to " << c.wanted;
    const std::pair<std::uint32_t, std::uint32_t> downs[] = {{10, 5}, {1, 1}, {5000, 2000}, {2000, 1000}, {7, 5},
                                                             {30, 20}};
    for (const auto& [from, down] : downs)
        EXPECT_EQ(scale::stepDown(from, from - 1), down) << from;

    // Up through the whole series and down through the same values.
    std::vector<std::uint32_t> up;
    for (std::uint32_t r = 1; r < scale::kMaxResolution; r = scale::stepUp(r, std::uint64_t(r) + 1))
        up.push_back(r);
    EXPECT_EQ(up.size(), 28u);  // 1 .. 1,000,000,000, three steps a decade
    EXPECT_EQ(scale::stepDown(scale::kMaxResolution, scale::kMaxResolution - 1), up.back());
    for (std::size_t i = 1; i < up.size(); ++i)
        EXPECT_EQ(scale::stepDown(up[i], up[i] - 1), up[i - 1]) << "from " << up[i];
}

TEST(ScaleTexts, ResolutionTimePerDivisionAndCursorTime)
{
    const std::pair<std::uint32_t, const char*> resolutions[] = {
        {500, "500/div"}, {1000, "1k/div"}, {20000, "20k/div"}, {999999, "999k/div"}, {1000000, "1M/div"},
        {2000000, "2M/div"}, {2000000000, "2000M/div"}};
    for (const auto& [r, text] : resolutions)
        EXPECT_EQ(scale::resolutionText(r), text);
    const std::pair<std::uint32_t, const char*> times[] = {
        {1, "1 us/Div"}, {500, "500 us/Div"}, {1000, "1 ms/Div"}, {500000, "500 ms/Div"}, {500000000, "500 s/Div"}};
    for (const auto& [us, text] : times)
        EXPECT_EQ(scale::timePerDivisionText(us), text);
    // The cursor time drops a leading zero.
    EXPECT_EQ(scale::cursorTimeText(2500000, 1000000), "2.500 s");
    EXPECT_EQ(scale::cursorTimeText(250000, 1000000), ".250 s");
    EXPECT_EQ(scale::cursorTimeText(5678, 1000), "005.678 ms");
    EXPECT_EQ(scale::cursorTimeText(2500000, 100000), "2500.000 ms");
    EXPECT_EQ(scale::cursorTimeText(61234567, 5000000), "61.234 s");
}

TEST(GraphGeometryTest, DivisionsMarginsAndPixels)
{
    const GraphGeometry g = GraphGeometry::of(1050, 630);
    EXPECT_EQ(std::vector<int>({g.divisionsX, g.marginX, g.centreX, g.divisionsY, g.marginY, g.zeroLineY}),
              std::vector<int>({10, 25, 525, 6, 15, 315}));
    // Odd division counts: the zero line sits on the lower of the middle lines.
    const GraphGeometry odd = GraphGeometry::of(799, 550);
    EXPECT_EQ(std::vector<int>({odd.divisionsX, odd.marginX, odd.centreX, odd.zeroLineY}),
              std::vector<int>({7, 49, 349, 2 * 100 + 25}));

    // Cursor times and curve rows on a common size: GraphTest's pixels.
    const GraphGeometry h = GraphGeometry::of(1050, 600);  // zero line at 300
    EXPECT_EQ(h.cursorTime(1025, 0, 1000), 10000u);
    EXPECT_EQ(GraphGeometry::of(1, 1).cursorTime(0, 42, 1000), 42u) << "too narrow for a division: no span";
    EXPECT_EQ(h.xOf(2500000, 0, 1000000), 275);
    EXPECT_EQ(h.xOf(1999, 0, 1000), 25 + 199);  // truncated toward zero
    EXPECT_EQ(h.yOf(-5, 10, 0), 350);
    EXPECT_EQ(h.yOf(0, 10, 1.0), 200);  // the offset counts in divisions, upward
    EXPECT_EQ(h.yOf(0.0999, 1, 0), 291);
    EXPECT_EQ(h.symbolZeroY(-1.5), 450);
    // Broken values stay on the symbol's zero line or saturate; no overflow.
    EXPECT_EQ(h.yOf(std::numeric_limits<double>::quiet_NaN(), 10, 0), 300);
    EXPECT_EQ(h.yOf(std::numeric_limits<double>::infinity(), 10, 0), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(h.yOf(1, 0, 0), 200);  // a zero resolution draws as one unit per division
}
