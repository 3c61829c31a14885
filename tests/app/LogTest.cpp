#include "TestBridge.h"
#include "base/Log.h"
#include "base/Report.h"

#include <gtest/gtest.h>

namespace {

struct LogFixture : ::testing::Test {
    TestBridge bridge;
    std::vector<std::string> lines;
    Log& log = Log::instance();
    void SetUp() override
    {
        report::setBridge(&bridge);
        log.setWriter([this](const std::string& l) { lines.push_back(l); });
    }
    void TearDown() override
    {
        report::setBridge(nullptr);
        log.setWriter({});
        log.setLevel(3);
    }
};

TEST_F(LogFixture, ErrorsOfNestedSectionsReachTheUserOnceTogether)
{
    log.beginSection("outer");
    log.error("first failure");
    log.beginSection("inner");
    log.error("second failure\n");
    log.endSection("inner done");
    EXPECT_TRUE(bridge.shown().empty()) << "nothing is shown before the outermost section ends";
    log.endSection("outer done");
    ASSERT_EQ(bridge.shown().size(), 1u);
    const MessageBoxRequest& box = bridge.boxes[0];
    EXPECT_EQ(std::tie(box.text, box.button0, box.caption),
              std::tuple("first failure\nsecond failure\n", "O.K.", report::errorCaption()));
    EXPECT_EQ(log.depth(), 0);

    // The next operation starts with an empty collection, which holds at most
    // 4095 characters.
    log.beginSection("again");
    log.error(std::string(4096, 'e'));
    EXPECT_EQ(log.collected(), std::string(4095, 'e'));
    log.endSection("fine");
    EXPECT_EQ(bridge.shown().size(), 2u);
}

TEST_F(LogFixture, LevelsDecideWhatIsWritten)
{
    log.setLevel(3);
    log.line("top");  // depth 0: written
    log.beginSection("s1");
    log.line("depth one");  // 3 >= 2: written
    log.beginSection("s2");
    log.line("depth two");  // 3 < 4: not written
    log.error("err two");   // 3 >= 3: written
    log.endSection({});
    log.setLevel(2);
    log.line("at two");  // 2 >= 2: written
    log.endSection({});
    EXPECT_EQ(lines, std::vector<std::string>({"top", "s1", "depth one", "s2", "ERROR: err two", "at two"}));

    log.setLevel(0);
    const int low = log.level();
    log.setLevel(12);
    EXPECT_EQ(std::tuple(low, log.level()), std::tuple(1, 9));
}

}  // namespace
