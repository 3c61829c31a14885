// Sampling the demo firmware on the simulated target, through the controller,
// its jobs, the probe binding and the stand-in probe library.
#include "app/Controller.h"
#include "probe/ProbeSampler.h"
#include "probe/SampleValue.h"
#include "probe/TarvoLibrary.h"
#include "tests/app/TestBridge.h"

#include <QStandardPaths>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

const fs::path kBin = PLOTVIK_BIN_DIR;

struct EndToEnd : ::testing::Test {
    JobEngine engine;
    TestBridge bridge;
    std::unique_ptr<Controller> ctl;
    fs::path dir;

    void SetUp() override
    {
        QStandardPaths::setTestModeEnabled(true);
        if (!fs::exists(kBin / "demo.elf") || !fs::exists(kBin / "libTarvo_x64.so"))
            GTEST_SKIP() << "firmware or probe library not built";
        dir = fs::temp_directory_path() / ("plotvik-e2e-" + std::to_string(::getpid()));
        fs::create_directories(dir);
        ctl = std::make_unique<Controller>(engine, std::make_unique<ProbeSampler>());
        ctl->setBridge(&bridge);
    }

    void TearDown() override
    {
        if (ctl) {
            ctl->postReadStop();
            ctl->waitForQueue(5000);
            engine.stopAndWait([] {});
            ctl->setBridge(nullptr);
        }
        std::error_code ec;
        fs::remove_all(dir, ec);
    }

    std::string script(const std::string& name, const std::string& extra, const char* firmware = "demo.elf")
    {
        const fs::path p = dir / name;
        std::ofstream(p) << "Firmware = " << (kBin / firmware).string() << "\nFailReadAfter = 1000000000\n"
                         << extra;
        return p.string();
    }

    // The demo's millisecond tick, selected alone.
    void selectTick()
    {
        Node* n = ctl->symbols().createDetachedSymbol();
        n->Name = n->NameWithParents = "g_tick_ms";
        n->Size = 4;
        n->TypeID = kTypeU32;
        n->Address = 0x20000000;
        ctl->symbols().setSelected({n});
    }

    void openProject(ProjectSettings s)
    {
        s.Connection = kConnectionUsb;
        s.TargetDevice = "PVK-SIM-M4";
        s.TargetInterface = kInterfaceSwd;
        s.InterfaceSpeed = 4000;
        ctl->project().apply(s);
        ctl->project().setOpen(true);
    }

    template <typename Pred>
    bool waitUntil(Pred pred, int ms = 20000)
    {
        for (int i = 0; i < ms / 5; ++i) {
            if (pred())
                return true;
            std::this_thread::sleep_for(5ms);
        }
        return pred();
    }
};

}  // namespace

TEST_F(EndToEnd, QtxRecordsArriveWithTheChannelsFormat)
{
    ProjectSettings s;
    s.IsQTXSession = true;
    // Fast mode: the simulated core waits while the drained channel is half full.
    s.ScriptFile = script("qtx.TarvoScript", "Fast = 1\n");
    openProject(s);
    // The symbols a QTX project file lists: those at the channel's places
    // with the channel's names keep their colours and scales.
    struct Saved {
        const char* name;
        Rgb colour;
        std::uint32_t resolution;
    };
    const Saved saved[] = {{"4 Byte float QTX Data", {1, 2, 3, 255}, 20},
                           {"4 Byte float QTX Data", {4, 5, 6, 255}, 50},
                           {"renamed", {7, 8, 9, 255}, 100},
                           {"1 Byte unsigned QTX Data", {10, 11, 12, 255}, 200}};
    std::vector<Node*> before;
    for (const Saved& v : saved) {
        Node* n = ctl->symbols().createDetachedSymbol();
        n->Name = n->NameWithParents = v.name;
        n->symbol().GraphColor = v.colour;
        n->symbol().HasGraphColor = true;
        n->symbol().YResolution = v.resolution;
        n->symbol().ManualYResolution = true;
        before.push_back(n);
    }
    ctl->symbols().setSelected(before);
    ASSERT_EQ(ctl->postStartReading(), 0);
    ASSERT_TRUE(ctl->waitForQueue(20000));
    ASSERT_TRUE(waitUntil([&] { return ctl->store().recordCount() >= 500 || !ctl->samplingRunning(); }));
    // The firmware runs while it sends: the start asked the probe, so the tool
    // bar offers to halt it and the stop leaves it halted, as after BSQ.
    EXPECT_FALSE(ctl->targetHalted());
    ctl->postReadStop();
    ASSERT_TRUE(ctl->waitForQueue(10000));

    const auto& sel = ctl->symbols().selected();
    ASSERT_EQ(sel.size(), 4u);
    EXPECT_EQ(sel[0]->Name, "4 Byte float QTX Data");
    EXPECT_EQ(sel[2]->Name, "2 Byte signed QTX Data");
    EXPECT_EQ(sel[3]->Name, "1 Byte unsigned QTX Data");
    EXPECT_EQ(ctl->store().recordSize(), 15u);
    for (std::size_t i : {0u, 1u, 3u}) {
        EXPECT_EQ(sel[i]->symbol().GraphColor, saved[i].colour) << i;
        EXPECT_TRUE(sel[i]->symbol().HasGraphColor) << i;
        EXPECT_EQ(sel[i]->symbol().YResolution, saved[i].resolution) << i;
        EXPECT_TRUE(sel[i]->symbol().ManualYResolution) << i;
    }
    EXPECT_FALSE(sel[2]->symbol().HasGraphColor) << "another name at that place: the views colour it afresh";
    EXPECT_GE(bridge.symbolChanges.load(), 1) << "the views must learn of the channel's symbols to colour them";
    EXPECT_TRUE(ctl->project().settings().IsQTXWithTimeStamp);

    const SampleStore& st = ctl->store();
    const std::uint32_t n = st.recordCount();
    ASSERT_GE(n, 500u);
    for (std::uint32_t i = 1; i < n; ++i) {
        // Each record's values must belong to its own time stamp: a framing
        // error would mix the fields of neighbouring records.
        ASSERT_GT(st.timeStampAt(i), st.timeStampAt(i - 1));
        // The firmware runs from the connect on: what its 4 KiB ring (273
        // records) could not hold before the session's start is lost, as on a
        // real target. From then on the simulated core waits for the reader.
        if (i > 300) {
            ASSERT_EQ(st.timeStampAt(i) - st.timeStampAt(i - 1), 1000u) << "a record lost at " << i;
        }
        ASSERT_EQ(st.timeStampAt(i) % 1000, 0u) << "framing lost at record " << i;
        const std::uint32_t t = st.timeStampAt(i) / 1000;
        ASSERT_EQ(sampleToDouble(kTypeS16, *st.valueSlotAt(*sel[2], i)), static_cast<double>(int(t % 200) - 100));
        ASSERT_EQ(sampleToDouble(kTypeU8, *st.valueSlotAt(*sel[3], i)), static_cast<double>((t / 250) % 4));
    }
}

TEST_F(EndToEnd, AProbeFailureStopsSamplingAndKeepsTheData)
{
    selectTick();
    ProjectSettings s;
    s.SamplingPeriod = 1000;
    s.ScriptFile = script("fail.TarvoScript", "Fast = 1\n");
    openProject(s);
    ASSERT_EQ(ctl->postStartReading(), 0);
    ASSERT_TRUE(ctl->waitForQueue(20000));
    // The reads fail from the moment records are in, however slow the host.
    ASSERT_TRUE(waitUntil([&] { return ctl->store().recordCount() > 0; }));
    const fs::path failNow = dir / "fail_now.TarvoScript";
    std::ofstream(failNow) << "FailReadAfter = 0\n";
    ASSERT_EQ(tarvo::ExecCommand(("ScriptFile = " + failNow.string()).c_str(), nullptr, 0), 0);
    ASSERT_TRUE(waitUntil([&] { return !ctl->samplingRunning(); }));
    ASSERT_TRUE(ctl->waitForQueue(10000));
    EXPECT_FALSE(ctl->probeConnected());
    EXPECT_TRUE(ctl->displayPaused());
    EXPECT_GT(ctl->store().recordCount(), 0u) << "what was read before the failure stays";
}

// A channel without symbols or time stamp ("Plotvik_b2"): sampling starts and
// keeps running without an error, and stores nothing.
TEST_F(EndToEnd, AQtxChannelWithoutSymbolsKeepsSamplingAndStoresNothing)
{
    if (!fs::exists(kBin / "qtx_no_symbols.elf"))
        GTEST_SKIP() << "test firmware not built";
    // A QTX session's stop leaves the probe open, with the firmware of an
    // earlier test still connected: start from a closed probe.
    if (tarvo::loaded())
        tarvo::Close();
    ProjectSettings s;
    s.IsQTXSession = true;
    s.ScriptFile = script("empty.TarvoScript", "Fast = 0\n", "qtx_no_symbols.elf");
    openProject(s);
    ASSERT_EQ(ctl->postStartReading(), 0);
    ASSERT_TRUE(ctl->waitForQueue(20000));
    ASSERT_TRUE(ctl->samplingRunning()) << (bridge.shown().empty() ? "" : bridge.shown()[0].text);
    EXPECT_TRUE(ctl->symbols().selected().empty());
    EXPECT_EQ(ctl->store().recordSize(), 0u);
    // Many read jobs later it still runs.
    const int before = bridge.dataUpdates.load();
    ASSERT_TRUE(waitUntil([&] { return bridge.dataUpdates.load() >= before + 20 || !ctl->samplingRunning(); }));
    EXPECT_TRUE(ctl->samplingRunning());
    EXPECT_TRUE(bridge.shown().empty()) << (bridge.shown().empty() ? "" : bridge.shown()[0].text);
    EXPECT_EQ(ctl->store().recordCount(), 0u);
}

// The probe library keeps the reason of a failed call; the program asks it
// and shows it below its own message.
TEST_F(EndToEnd, AFailedProbeCallSaysWhyTheProbeFailed)
{
    ProjectSettings s;
    s.SamplingPeriod = 1000;
    s.ScriptFile = script("reason.TarvoScript", "Fast = 1\n");
    openProject(s);
    s = ctl->project().settings();
    s.SerialNo = 42;  // the simulated probe has another serial number
    ctl->project().apply(s);
    selectTick();
    ctl->postStartReading();
    ASSERT_TRUE(ctl->waitForQueue(20000));
    EXPECT_FALSE(ctl->samplingRunning());
    const auto boxes = bridge.shown();
    ASSERT_FALSE(boxes.empty());
    const std::string& text = boxes.front().text;
    EXPECT_EQ(text.substr(0, text.find('\n')), "Failed to select Tarvo via USB ('42').");
    EXPECT_NE(text.find("\nNo probe with serial number 42"), std::string::npos) << text;
}
