#include "FakeSampler.h"
#include "TestBridge.h"
#include "app/Controller.h"
#include "base/Product.h"
#include "tests/TempFolder.h"

#include <QStandardPaths>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

template <typename Pred>
bool waitUntil(Pred pred, int ms = 20000)
{
    for (int i = 0; i < ms; ++i) {
        if (pred())
            return true;
        std::this_thread::sleep_for(1ms);
    }
    return pred();
}

struct ControllerFixture : ::testing::Test {
    std::unique_ptr<JobEngine> engine = std::make_unique<JobEngine>();
    FakeSampler* sampler = nullptr;  // owned by the controller
    std::unique_ptr<Controller> ctl;
    TestBridge bridge;

    void SetUp() override
    {
        QStandardPaths::setTestModeEnabled(true);
        auto s = std::make_unique<FakeSampler>();
        sampler = s.get();
        ctl = std::make_unique<Controller>(*engine, std::move(s));
        ctl->setBridge(&bridge);
        StartArgs args;
        args.argv = {"plotvik", "-nothing"};  // arguments: no start dialogs
        std::atomic<bool> done{false};
        ctl->postInit(&args, [&] { done = true; });
        ASSERT_TRUE(waitUntil([&] { return done.load(); }));
        selectCounter();
    }

    // One selected 4-byte symbol.
    void selectCounter()
    {
        Node* n = ctl->symbols().createDetachedSymbol();
        n->Name = n->NameWithParents = "counter";
        n->Size = 4;
        n->TypeID = kTypeU32;
        ctl->symbols().setSelected({n});
    }

    void TearDown() override
    {
        engine->stopAndWait([] {});
        ctl->setBridge(nullptr);
    }

    // Runs the jobs posted so far to their end.
    void drain() { ASSERT_TRUE(ctl->waitForQueue(5000)); }
};

}  // namespace

TEST_F(ControllerFixture, StartRunsTheReadLoopAndPauseKeepsTheBuffers)
{
    // (The tool bar tests run the target and pause through the controller.)
    EXPECT_EQ(std::tuple(ctl->haltTarget(), ctl->runTarget()), std::tuple(-1, -1)) << "they need a connection";
    ASSERT_EQ(ctl->postStartReading(), 0);
    ASSERT_TRUE(waitUntil([&] { return ctl->store().recordCount() >= 9; }));
    EXPECT_EQ(std::tuple(ctl->samplingRunning(), ctl->displayPaused(), ctl->probeConnected()),
              std::tuple(true, false, true));

    ctl->postReadPause();
    ASSERT_TRUE(waitUntil([&] { return ctl->displayPaused(); }));
    const std::uint32_t firstTs = ctl->store().timeStampAt(0);
    const std::uint32_t before = ctl->store().recordCount();
    ASSERT_TRUE(waitUntil([&] { return ctl->store().recordCount() > before + 3; }));

    ctl->postStartReading();
    ASSERT_TRUE(waitUntil([&] { return !ctl->displayPaused(); }));
    EXPECT_EQ(ctl->store().timeStampAt(0), firstTs) << "a start after a pause keeps the data";
    EXPECT_EQ(sampler->starts.load(), 1) << "still connected: the source is not started twice";

    // Starts after pauses keep one read loop. It sleeps 10 ms between reads;
    // reads are counted over a measured stretch, so that a host that
    // oversleeps cannot make two loops of one.
    ctl->postReadPause();
    ctl->postStartReading();
    drain();
    const int reads = sampler->reads;
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(waitUntil([&] { return sampler->reads.load() - reads >= 10; }));
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LE(sampler->reads - reads, ms / 10 + 2) << "more reads than one loop can make in " << ms << " ms";
}

TEST_F(ControllerFixture, StopThenStartClearsTheBuffers)
{
    ctl->postStartReading();
    ASSERT_TRUE(waitUntil([&] { return ctl->store().recordCount() >= 12; }));
    ctl->postReadStop();
    ASSERT_TRUE(waitUntil([&] { return !ctl->samplingRunning(); }));
    EXPECT_EQ(
        std::tuple(ctl->displayPaused(), ctl->stoppedSinceLastStart(), ctl->probeConnected(), sampler->stops.load()),
        std::tuple(true, true, false, 1));
    const std::uint32_t stopped = ctl->store().recordCount();

    ctl->postStartReading();
    ASSERT_TRUE(waitUntil([&] { return ctl->samplingRunning(); }));
    ctl->postReadPause();
    drain();
    // The store was cleared at the start: it holds only what was read since.
    const std::uint32_t first = ctl->store().timeStampAt(0);
    EXPECT_GE(first, stopped * 1000u);
    const std::uint64_t* v = ctl->store().valueSlotAt(*ctl->symbols().selected()[0], 0);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(static_cast<std::uint32_t>(*v), first / 1000u);
}

// The only check of what a failed read does to the controller (the sim and
// GDB tests end at the failing read itself).
TEST_F(ControllerFixture, AReadErrorLeavesTheControllerStoppedDisconnectedAndPaused)
{
    sampler->failReadAt = 4;
    ctl->postStartReading();
    ASSERT_TRUE(waitUntil([&] { return sampler->reads.load() >= 4 && !ctl->samplingRunning(); }));
    drain();
    EXPECT_EQ(std::tuple(ctl->samplingRunning(), ctl->probeConnected(), ctl->displayPaused()),
              std::tuple(false, false, true));
    EXPECT_EQ(ctl->store().recordCount(), 8u) << "the records read before the failure stay";
    const int reads = sampler->reads;
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(sampler->reads.load(), reads) << "no read after the failure";
}

// Leaving the program while it samples must not leave the probe sampling.
TEST_F(ControllerFixture, ExitWhileSamplingStopsAndDisconnects)
{
    ctl->postStartReading();
    ASSERT_TRUE(waitUntil([&] { return ctl->samplingRunning(); }));
    ctl->setExitState(kExitPending);
    ctl->postExit();
    ASSERT_TRUE(waitUntil([&] { return ctl->exitState() != kExitPending; }));
    EXPECT_EQ(std::tuple(ctl->exitState(), ctl->samplingRunning(), ctl->probeConnected(), sampler->stops.load()),
              std::tuple(kExitAllowed, false, false, 1));
}

TEST_F(ControllerFixture, AFailedStartReportsOnceAndStaysStopped)
{
    sampler->failOpen = true;
    ctl->postStartReading();
    drain();
    EXPECT_FALSE(ctl->samplingRunning());
    EXPECT_EQ(bridge.texts(), std::vector<std::string>{"Failed to start data sampling."});
}

TEST_F(ControllerFixture, NewProjectTitleAndExitWithDismissedQuestionDiscards)
{
    ctl->postCreateProject("/tmp/plotvik-test/new.plotvik");
    drain();
    EXPECT_EQ(std::tuple(ctl->project().isOpen(), ctl->project().isModified(), ctl->windowTitle()),
              std::tuple(true, true, product::fullName() + " - [/tmp/plotvik-test/new.plotvik *]"));

    bridge.answer = -1;  // the user dismisses the save question
    ctl->setExitState(kExitPending);
    ctl->postExit();
    ASSERT_TRUE(waitUntil([&] { return ctl->exitState() != kExitPending; }));
    EXPECT_EQ(ctl->exitState(), kExitAllowed);
    ASSERT_EQ(bridge.shown().size(), 1u);
    const MessageBoxRequest& box = bridge.boxes[0];
    EXPECT_EQ(std::tie(box.text, box.button0, box.button1),
              std::tuple("The Plotvik project has been modified.\nDo you want to save your changes?", "Yes", "No"));
    EXPECT_EQ(std::tuple(ctl->project().isOpen(), ctl->windowTitle()), std::tuple(false, product::fullName()));
}

TEST_F(ControllerFixture, InitProjSettingsAsksForSymbolsUnlessQtx)
{
    ProjectSettings s;
    s.ElfFile = "/tmp/x.elf";
    s.SamplingPeriod = 1000;
    ctl->postCreateProject("");
    ctl->postInitProjSettings(&s);
    drain();
    EXPECT_EQ(std::tuple(ctl->project().settings().ElfFile, bridge.symbolSelections.load()),
              std::tuple("/tmp/x.elf", 1));

    s.IsQTXSession = true;
    ctl->postInitProjSettings(&s);
    drain();
    EXPECT_EQ(bridge.symbolSelections.load(), 1) << "a QTX project takes its symbols from the channel";
}

// A failure the program can explain says why on a second line: the ELF
// reader's error for an ELF file that cannot be read, the system's or the
// parser's for a project file.
TEST_F(ControllerFixture, ErrorsSayWhyOnTheirSecondLine)
{
    const fs::path folder = testtemp::folder() / "reasons";
    fs::create_directories(folder);
    std::ofstream(folder / "notes.txt") << "not an ELF file\n";
    std::ofstream(folder / "broken.plotvik") << "<PlotvikProject><FileVersion";
    // The first line of the last message, and what follows it.
    const auto lastBox = [&](const std::string& after) {
        const std::string text = bridge.shown().empty() ? std::string() : bridge.shown().back().text;
        const auto start = text.find(after), end = text.find('\n', start);
        return std::pair(text.substr(0, end), end == std::string::npos ? std::string() : text.substr(end + 1));
    };
    std::vector<std::string> reasons;
    for (const fs::path& elf : {folder / "missing.elf", folder / "notes.txt", fs::path("/bin/true")}) {
        EXPECT_NE(ctl->symbols().parseElf(elf.string(), false, nullptr), 0);
        const auto [first, second] = lastBox("");
        EXPECT_EQ(first, "Could not open ELF file!") << elf;
        EXPECT_NE(second.find("ELF reader error"), std::string::npos) << elf << ": " << second;
        reasons.push_back(second);
    }
    EXPECT_NE(reasons[0], reasons[1]) << "a missing file and a text file fail for different reasons";

    for (const fs::path& project : {folder / "missing.plotvik", folder / "broken.plotvik"}) {
        std::atomic<int> result{0};
        ctl->postOpenProjFile(project.string(), &result, {});
        drain();
        EXPECT_EQ(result.load(), -1) << project;
        const auto [first, second] = lastBox("Failed to open project file");
        EXPECT_TRUE(first.ends_with("Failed to open project file [" + project.string() + "]")) << first;
        EXPECT_FALSE(second.empty()) << project;
    }
}
