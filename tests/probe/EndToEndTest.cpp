// Sampling the demo firmware on the simulated target, through the controller,
// its jobs, the probe binding and the stand-in probe library.
#include "app/Controller.h"
#include "probe/ProbeSampler.h"
#include "probe/SampleValue.h"
#include "probe/TarvoLibrary.h"
#include "tests/TempFolder.h"
#include "tests/app/TestBridge.h"

#include <QStandardPaths>
#include <QTest>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

const fs::path kBin = PLOTVIK_BIN_DIR;

struct EndToEnd : ::testing::Test {
    JobEngine engine;
    TestBridge bridge;
    std::unique_ptr<Controller> ctl;

    void SetUp() override
    {
        QStandardPaths::setTestModeEnabled(true);
        if (!fs::exists(kBin / "demo.elf") || !fs::exists(kBin / "libTarvo_x64.so"))
            GTEST_SKIP() << "firmware or probe library not built";
        ctl = std::make_unique<Controller>(engine, std::make_unique<ProbeSampler>());
        ctl->setBridge(&bridge);
    }

    void TearDown() override
    {
        if (!ctl)
            return;
        ctl->postReadStop();
        ctl->waitForQueue(5000);
        engine.stopAndWait([] {});
        ctl->setBridge(nullptr);
    }

    // Opens a project on the simulated probe, its script running `firmware` with `extra` settings.
    void openProject(ProjectSettings s, const std::string& extra, const char* firmware = "demo.elf")
    {
        const fs::path script = testtemp::folder() / (std::string(firmware) + ".TarvoScript");
        std::ofstream(script) << "Firmware = " << (kBin / firmware).string() << "\n" << extra;
        s.ScriptFile = script.string();
        s.Connection = kConnectionUsb;
        s.TargetDevice = "PVK-SIM-M4";
        s.TargetInterface = kInterfaceSwd;
        s.InterfaceSpeed = 4000;
        ctl->project().apply(s);
        ctl->project().setOpen(true);
    }
};

}  // namespace

TEST_F(EndToEnd, QtxRecordsArriveWithTheChannelsFormat)
{
    ProjectSettings s;
    s.IsQTXSession = true;
    // Fast mode: the simulated core waits while the drained channel is half full.
    openProject(s, "Fast = 1\n");
    // The symbols a QTX project file lists: those at the channel's places
    // with the channel's names keep their colours and scales.
    const char* saved[] = {"4 Byte float QTX Data", "4 Byte float QTX Data", "renamed", "1 Byte unsigned QTX Data"};
    std::vector<Node*> before;
    for (std::uint8_t i = 0; i < 4; ++i) {
        Node* n = ctl->symbols().createDetachedSymbol();
        n->Name = n->NameWithParents = saved[i];
        n->symbol().GraphColor = Rgb{i, i, i, 255};
        n->symbol().YResolution = 10u * (i + 1);
        n->symbol().HasGraphColor = n->symbol().ManualYResolution = true;
        before.push_back(n);
    }
    ctl->symbols().setSelected(before);
    ASSERT_EQ(ctl->postStartReading(), 0);
    ASSERT_TRUE(ctl->waitForQueue(20000));
    const auto filled = [&] { return ctl->store().recordCount() >= 500 || !ctl->samplingRunning(); };
    ASSERT_TRUE(QTest::qWaitFor(filled, 20000));
    // The firmware runs while it sends: the start asked the probe, so the tool
    // bar offers to halt it and the stop leaves it halted, as after BSQ.
    EXPECT_FALSE(ctl->targetHalted());
    ctl->postReadStop();
    ASSERT_TRUE(ctl->waitForQueue(10000));

    const auto& sel = ctl->symbols().selected();
    ASSERT_EQ(sel.size(), 4u);
    // Another name at that place: the channel's own, and the views colour it afresh.
    EXPECT_EQ(std::tuple(sel[2]->Name, sel[2]->symbol().HasGraphColor, ctl->store().recordSize()),
              std::tuple("2 Byte signed QTX Data", false, 15u));
    for (std::uint8_t i : {0, 1, 3}) {
        const SelectedSymbol& d = sel[i]->symbol();
        EXPECT_TRUE(d.GraphColor == (Rgb{i, i, i, 255}) && d.HasGraphColor && d.YResolution == 10u * (i + 1) &&
                    d.ManualYResolution)
            << int(i);
    }
    EXPECT_GE(bridge.symbolChanges.load(), 1) << "the views must learn of the channel's symbols to colour them";

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
        ASSERT_EQ(i > 300 ? st.timeStampAt(i) - st.timeStampAt(i - 1) : 1000u, 1000u) << "a record lost at " << i;
        ASSERT_EQ(st.timeStampAt(i) % 1000, 0u) << "framing lost at record " << i;
        const std::uint32_t t = st.timeStampAt(i) / 1000;
        ASSERT_EQ(sampleToDouble(kTypeS16, *st.valueSlotAt(*sel[2], i)), static_cast<double>(int(t % 200) - 100));
        ASSERT_EQ(sampleToDouble(kTypeU8, *st.valueSlotAt(*sel[3], i)), static_cast<double>((t / 250) % 4));
    }
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
    openProject(s, "Fast = 0\n", "qtx_no_symbols.elf");
    ASSERT_EQ(ctl->postStartReading(), 0);
    ASSERT_TRUE(ctl->waitForQueue(20000));
    ASSERT_TRUE(ctl->samplingRunning()) << (bridge.shown().empty() ? "" : bridge.shown()[0].text);
    EXPECT_EQ(std::tuple(ctl->symbols().selected().empty(), ctl->store().recordSize()), std::tuple(true, 0u));
    // Many read jobs later it still runs.
    const int before = bridge.dataUpdates.load();
    const auto ranOn = [&] { return bridge.dataUpdates.load() >= before + 20 || !ctl->samplingRunning(); };
    ASSERT_TRUE(QTest::qWaitFor(ranOn, 20000));
    EXPECT_EQ(std::tuple(ctl->samplingRunning(), ctl->store().recordCount()), std::tuple(true, 0u));
    EXPECT_TRUE(bridge.shown().empty()) << (bridge.shown().empty() ? "" : bridge.shown()[0].text);
}

// The probe library keeps the reason of a failed call; the program asks it
// and shows it below its own message.
TEST_F(EndToEnd, AFailedProbeCallSaysWhyTheProbeFailed)
{
    ProjectSettings s;
    s.SamplingPeriod = 1000;
    s.SerialNo = 42;  // the simulated probe has another serial number
    openProject(s, "Fast = 1\n");
    Node* n = ctl->symbols().createDetachedSymbol();
    n->Name = n->NameWithParents = "g_tick_ms";
    n->Size = 4;
    n->TypeID = kTypeU32;
    ctl->symbols().setSelected({n});
    ctl->postStartReading();
    ASSERT_TRUE(ctl->waitForQueue(20000));
    EXPECT_FALSE(ctl->samplingRunning());
    const auto boxes = bridge.shown();
    ASSERT_FALSE(boxes.empty());
    const std::string& text = boxes.front().text;
    EXPECT_EQ(text.substr(0, text.find('\n')), "Failed to select Tarvo via USB ('42').");
    EXPECT_NE(text.find("\nNo probe with serial number 42"), std::string::npos) << text;
}
