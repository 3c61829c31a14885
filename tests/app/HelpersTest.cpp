#include "TestBridge.h"
#include "base/FileErrors.h"
#include "base/Report.h"
#include "base/TaggedAlloc.h"
#include "base/Text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

TEST(Text, FoldingTouchesOnlyAsciiLetters)
{
    EXPECT_TRUE(text::equalsFolded("_BOOL", "_bool"));
    EXPECT_FALSE(text::equalsFolded("\xC4", "\xE4")) << "Latin-1 letters are not folded";
    EXPECT_TRUE(text::containsFolded("0x2000ABCD", "abc"));
    EXPECT_TRUE(text::containsFolded("abc", "ABC"));
    EXPECT_FALSE(text::containsFolded("", ""));
    EXPECT_TRUE(text::startsWithFolded("-OPENPRJx", "-openprj"));
    EXPECT_LT(text::compareFolded("a", "B"), 0);
    EXPECT_EQ(text::extension("/a.b/c"), "");
    EXPECT_EQ(text::extension("c:\\x\\p.PlotVik"), ".PlotVik");
    EXPECT_EQ(text::truncated("abcdef", 4), "abc");
    EXPECT_EQ(text::format(6, "%s", "abcdefgh"), "abcde");
    EXPECT_EQ(text::intern("type").data(), text::intern(std::string("type")).data());
}

TEST(FileErrors, TextsFollowTheErrorCode)
{
    EXPECT_EQ(fileerr::text("open", "/nonexistent-dir/x.ini", ENOENT),
              "Could not open file [/nonexistent-dir/x.ini]!\nPath not found!");
    EXPECT_EQ(fileerr::text("open", "/tmp/x.ini", ENOENT), "Could not open file [/tmp/x.ini]!\nFile not found!");
    EXPECT_EQ(fileerr::text("save", "/tmp/x.ini", ENAMETOOLONG),
              "Could not save file [/tmp/x.ini]!\nThe filename syntax is incorrect!");
    EXPECT_EQ(fileerr::text("save", "/tmp/x.ini", EIO), "Could not save file [/tmp/x.ini]!");
}

TEST(TaggedAlloc, CheckingModeReportsOverflowAndFailuresAreShown)
{
    TestBridge bridge;
    report::setBridge(&bridge);
    alloc::setChecking(true);
    auto* p = static_cast<unsigned char*>(alloc::allocate(16, "Test block"));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p[0], 0);
    const auto live = alloc::liveBlocks();
    ASSERT_FALSE(live.empty());
    EXPECT_EQ(std::tie(live.front().tag, live.front().size), std::tuple("Test block", 16u));
    std::memset(p, 1, 19);  // three bytes past the end
    alloc::release(p);
    alloc::setChecking(false);
    EXPECT_EQ(alloc::allocate((std::size_t(1) << 62) + 0x1234, "Too big"), nullptr);
    EXPECT_EQ(bridge.texts(), (std::vector<std::string>{"Buffer overflow in memory block. 3 bytes overflowed.",
                                                        "Failed to allocate 0x00001234 bytes of memory!"}));
    EXPECT_EQ(bridge.boxes.back().caption, report::errorCaption());
    report::setBridge(nullptr);
}
