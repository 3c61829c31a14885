#include <gtest/gtest.h>
TEST(Placeholder, Builds) { EXPECT_EQ(1 + 1, 2); }
