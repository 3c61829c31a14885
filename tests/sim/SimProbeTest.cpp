// The simulated probe through its C API, running the demo firmware.
#include "QemuBoard.h"
#include "SimTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

using namespace simtest;

namespace {

class SimProbe : public ::testing::Test {
protected:
    void TearDown() override { TARVOARM_Close(); }
};

const TARVO_BSQ_BLOCK kDemoBlocks[] = {
    {kTick, 4, 0, 0},  {kSine, 4, 0, 0},       {kCosine, 4, 0, 0}, {kSawtooth, 2, 0, 0},  {kSquare, 1, 0, 0},
    {kState, 1, 0, 0}, {kCounter64, 8, 0, 0}, {kMotor, 12, 0, 0}, {kChannels, 32, 0, 0},
};
constexpr uint32_t kDemoRecord = 4 + 4 + 4 + 4 + 2 + 1 + 1 + 8 + 12 + 32;

void checkDemoRecord(const uint8_t* r)
{
    const auto stamp = get<uint32_t>(r);
    const auto t = get<uint32_t>(r + 4);
    // Records are taken before the firmware's update for that millisecond runs.
    ASSERT_EQ(t, (stamp - 1) / 1000) << "stamp " << stamp;
    EXPECT_NEAR(get<float>(r + 8), sineAt(t), 1e-3) << "tick " << t;
    EXPECT_NEAR(get<float>(r + 12), cosineAt(t), 1e-3) << "tick " << t;
    EXPECT_EQ(get<int16_t>(r + 16), sawtoothAt(t));
    EXPECT_EQ(r[18], (t / 500) % 2);
    EXPECT_EQ(r[19], stateAt(t));
    EXPECT_EQ(get<uint64_t>(r + 20), uint64_t(t) * 0x100000001ull);
    // The structure and the array: a field near each end.
    EXPECT_FLOAT_EQ(get<float>(r + 28), float(t % 1000) * 0.5f);
    EXPECT_EQ(get<uint16_t>(r + 40 + 8 * 3), uint16_t((t + 300) % 4096));
}

void checkPeriod(const std::vector<uint8_t>& data, uint32_t recordSize, uint32_t period)
{
    for (size_t at = recordSize; at + recordSize <= data.size(); at += recordSize)
        ASSERT_EQ(get<uint32_t>(&data[at]) - get<uint32_t>(&data[at - recordSize]), period) << "record " << at / recordSize;
}

} // namespace

TEST_F(SimProbe, BsqRecordsArriveAtThePeriodWithTheFirmwaresValues)
{
    ASSERT_EQ(connectWith("Fast = 1\n"), 0);
    TARVO_BSQ_CAPS caps{};
    ASSERT_EQ(TARVO_BSQ_GetCaps(&caps), 0);
    EXPECT_GT(caps.MaxFreq, 1000u);
    ASSERT_TRUE(waitForTick(1));
    // 250: samples between the firmware's milliseconds see its last update.
    for (const uint32_t period : {250u, 1000u, 5000u}) {
        SCOPED_TRACE(period);
        ASSERT_EQ(TARVO_BSQ_Start(kDemoBlocks, 9, period, TARVO_BSQ_FLAG_TIMESTAMP), 0);
        const auto data = readBsq(kDemoRecord, 600);
        ASSERT_GE(data.size(), 600u * kDemoRecord);
        ASSERT_EQ(data.size() % kDemoRecord, 0u);
        EXPECT_EQ(get<uint32_t>(&data[0]) % period, 0u);
        checkPeriod(data, kDemoRecord, period);
        for (size_t at = 0; at < data.size() && !HasFailure(); at += kDemoRecord)
            checkDemoRecord(&data[at]);
        EXPECT_EQ(TARVO_BSQ_Stop(), 0);
    }
}

TEST_F(SimProbe, BsqFifoIsBoundedAndCountsWhatItDrops)
{
    // As a real probe does when asked: a full FIFO drops instead of waiting.
    ASSERT_EQ(connectWith("Fast = 1\nDropWhenFull = 1\n"), 0);
    // Large records fill the probe's memory quickly.
    const TARVO_BSQ_BLOCK big{0x20000000, 1016, 0, 0};
    const uint32_t record = 1020;
    ASSERT_EQ(TARVO_BSQ_Start(&big, 1, 10, 1), 0);
    const size_t capacity = (4u * 1024 * 1024) / record;
    ASSERT_TRUE(waitFor([] { return bsqStatus().dropped > 0; }));
    EXPECT_EQ(bsqStatus().queued, capacity);
    std::vector<uint8_t> buf((capacity + 100) * record);
    const int n = TARVO_BSQ_Read(buf.data(), uint32_t(buf.size()));
    ASSERT_EQ(n, int(capacity * record)) << "the FIFO holds exactly its capacity";
    buf.resize(size_t(n));
    checkPeriod(buf, record, 10);
    // What came after the full FIFO was dropped: the next record jumps ahead.
    const auto more = readBsq(record, 1);
    ASSERT_GE(more.size(), record);
    const uint32_t lastKept = get<uint32_t>(&buf[buf.size() - record]);
    EXPECT_GT(get<uint32_t>(&more[0]) - lastKept, 10u);
}

TEST_F(SimProbe, FastModeGivesTheSameRecordsWhateverTheReadersPace)
{
    constexpr size_t kWant = 70000; // more than the FIFO holds
    auto run = [&](bool waitTillFull, uint32_t readSize) {
        EXPECT_EQ(connectWith("Fast = 1\n"), 0);
        EXPECT_EQ(TARVOARM_Reset(), 0); // target time 0, halted
        EXPECT_EQ(TARVO_BSQ_Start(kDemoBlocks, 9, 100, TARVO_BSQ_FLAG_TIMESTAMP), 0);
        TARVOARM_Go();
        const size_t capacity = (4u * 1024 * 1024) / kDemoRecord;
        EXPECT_TRUE(!waitTillFull || waitFor([&] { return bsqStatus().queued == capacity; })) << "the target waits";
        auto all = readBsq(kDemoRecord, kWant, 60000, readSize);
        EXPECT_EQ(bsqStatus().dropped, 0u);
        TARVO_BSQ_Stop();
        TARVOARM_Close();
        all.resize(std::min(all.size(), kWant * kDemoRecord));
        return all;
    };
    const auto eager = run(false, kDemoRecord * 1000);
    const auto late = run(true, kDemoRecord * 3 + 5);
    ASSERT_EQ(eager.size(), kWant * kDemoRecord);
    EXPECT_EQ(get<uint32_t>(eager.data()), 0u);
    checkPeriod(eager, kDemoRecord, 100);
    EXPECT_TRUE(eager == late) << "the records depend on the script and the reads only";
}

TEST_F(SimProbe, QtxStreamsFramedRecordsAlsoWhenReadsEndMidRecord)
{
    // Fast mode: the core waits while the channel is half full, so a reader
    // that pauses loses nothing, as the pauses below show.
    ASSERT_EQ(connectWith("Fast = 1\n"), 0);
    // From a reset, so that the firmware writes nothing before the session starts.
    ASSERT_EQ(TARVOARM_Reset(), 0);
    ASSERT_EQ(TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_START, nullptr), 0);
    TARVOARM_Go();
    const TARVO_QTX_CHANNEL_DESC desc = firstUpChannel();
    EXPECT_EQ(std::tuple(std::string(desc.acName), desc.SizeOfBuffer), std::tuple("Plotvik_t4f4f4i2u1", 4096u));

    // Odd read sizes cut records anywhere; the stream must still frame.
    std::vector<uint8_t> stream;
    const int sizes[] = {7, 13, 1, 29, 15, 64};
    char buf[64];
    size_t i = 0;
    waitFor([&] {
        const int size = sizes[i++ % 6];
        const int n = TARVO_QTXTERMINAL_Read(0, buf, size);
        EXPECT_TRUE(n >= 0 && n <= size) << n;
        stream.insert(stream.end(), buf, buf + std::clamp(n, 0, size));
        if (i % 100 == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return stream.size() >= 300 * 15 || n < 0;
    });
    ASSERT_EQ(TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_STOP, nullptr), 0);
    checkQtxRecords(stream);
    EXPECT_LT(TARVO_QTXTERMINAL_Read(0, buf, sizeof buf), 0) << "no reads after stop";
}

TEST_F(SimProbe, QtxBlockOutsideTheSearchRangesIsNotFound)
{
    ASSERT_EQ(connectWith("Fast = 1\n"), 0);
    ASSERT_TRUE(waitForTick(1)) << "the firmware sets up its channels at start-up";
    EXPECT_NE(TARVO_ExecCommand("SetQTXSearchRanges 0x20000000", nullptr, 0), 0) << "address without size";
    EXPECT_NE(TARVO_ExecCommand("SetQTXSearchRanges 0x2000000g 0x100", nullptr, 0), 0);
    ASSERT_EQ(TARVO_ExecCommand("SetQTXSearchRanges 0x20020000 0x1000", nullptr, 0), 0);
    ASSERT_EQ(TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_START, nullptr), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    uint32_t dir = TARVO_QTX_DIR_UP;
    EXPECT_EQ(TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_GETNUMBUF, &dir), TARVO_QTX_ERR_NOT_FOUND);
    // The block lives in the first 8 KiB of RAM in the demo.
    ASSERT_EQ(TARVO_ExecCommand("SetQTXSearchRanges 0x20020000 0x1000 0x20000000 0x2000", nullptr, 0), 0);
    EXPECT_EQ(TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_GETNUMBUF, &dir), 2);
}

TEST_F(SimProbe, HaltStopsTargetTimeGoResumesWithoutAGapResetRestarts)
{
    ASSERT_EQ(connectWith("Fast = 1\n"), 0);
    EXPECT_EQ(TARVOARM_IsHalted(), 0);
    EXPECT_EQ(TARVO_IsHalted() & 0xFF, 0);
    const TARVO_BSQ_BLOCK tick{kTick, 4, 0, 0};
    ASSERT_EQ(TARVO_BSQ_Start(&tick, 1, 1000, 1), 0);
    auto before = readBsq(8, 50);
    ASSERT_GE(before.size(), 50u * 8);
    EXPECT_EQ(TARVOARM_Halt(), 0);
    EXPECT_NE(TARVOARM_IsHalted(), 0);
    EXPECT_NE(TARVO_IsHalted() & 0xFF, 0);
    // Whatever was taken before the halt is still waiting.
    std::vector<uint8_t> rest(8 * 200000);
    const int r = TARVO_BSQ_Read(rest.data(), uint32_t(rest.size()));
    ASSERT_GE(r, 0);
    before.insert(before.end(), rest.begin(), rest.begin() + r);
    const size_t n = before.size();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    uint8_t none[64];
    EXPECT_EQ(TARVO_BSQ_Read(none, sizeof none), 0) << "a halted target's time stands still";
    TARVO_Go();
    EXPECT_EQ(TARVOARM_IsHalted(), 0);
    const auto after = readBsq(8, 20);
    ASSERT_GE(after.size(), 20u * 8);
    EXPECT_EQ(std::tuple(get<uint32_t>(after.data()) - get<uint32_t>(&before[n - 8]),
                         get<uint32_t>(after.data() + 4) - get<uint32_t>(&before[n - 4])),
              std::tuple(1000u, 1u)) << "time stamp and tick go on where they stood";

    // A reset restarts the firmware halted.
    TARVO_BSQ_Stop();
    EXPECT_EQ(TARVOARM_Reset(), 0);
    EXPECT_NE(TARVOARM_IsHalted(), 0);
    ASSERT_EQ(TARVO_BSQ_Start(&tick, 1, 1000, 1), 0);
    TARVOARM_Go();
    const auto data = readBsq(8, 10);
    ASSERT_GE(data.size(), 80u);
    EXPECT_EQ(std::tuple(get<uint32_t>(data.data()), get<uint32_t>(data.data() + 8 * 9 + 4)), std::tuple(0u, 8u))
        << "target time restarts with the reset";
}

TEST_F(SimProbe, BsqErrorResults)
{
    // A device whose debug port cannot sample while running.
    ASSERT_EQ(connectWith("Fast = 1\n", "PVK-SIM-M4-NOBSQ"), 0);
    EXPECT_EQ(TARVOARM_EMU_HasCapEx(TARVO_EMU_CAP_EX_BSQ), 0);
    TARVO_BSQ_CAPS caps{};
    EXPECT_LT(TARVO_BSQ_GetCaps(&caps), 0);
    const TARVO_BSQ_BLOCK one{kTick, 4, 0, 0};
    EXPECT_EQ(TARVO_BSQ_Start(&one, 1, 1000, 1), TARVO_BSQ_ERR_NOT_SUPPORTED);
    TARVOARM_Close();

    ASSERT_EQ(connectWith("Fast = 1\n"), 0);
    EXPECT_NE(TARVOARM_EMU_HasCapEx(TARVO_EMU_CAP_EX_BSQ), 0);
    ASSERT_EQ(TARVO_BSQ_GetCaps(&caps), 0);
    std::vector<TARVO_BSQ_BLOCK> many(caps.MaxNumBlocks + 1, TARVO_BSQ_BLOCK{kTick, 4, 0, 0});
    EXPECT_EQ(TARVO_BSQ_Start(many.data(), uint32_t(many.size()), 1000, 1), TARVO_BSQ_ERR_TOO_MANY_BLOCKS);
    EXPECT_EQ(TARVO_BSQ_Start(many.data(), caps.MaxNumBlocks, 1000, 1), 0);
    TARVO_BSQ_Stop();
    const TARVO_BSQ_BLOCK big{0x20000000, caps.MaxRecordSize - 3, 0, 0};
    EXPECT_EQ(TARVO_BSQ_Start(&big, 1, 1000, 1), TARVO_BSQ_ERR_NO_MEMORY);
    const TARVO_BSQ_BLOCK fits{0x20000000, caps.MaxRecordSize - 4, 0, 0};
    EXPECT_EQ(TARVO_BSQ_Start(&fits, 1, 1000, 1), 0);
    TARVO_BSQ_Stop();
    EXPECT_LT(TARVO_BSQ_Start(&one, 1, 1'000'000 / caps.MaxFreq - 1, 1), 0) << "faster than the probe can sample";
    const TARVO_BSQ_BLOCK unmapped{0x60000000, 4, 0, 0};
    EXPECT_LT(TARVO_BSQ_Start(&unmapped, 1, 1000, 1), 0);
    uint8_t buf[64];
    EXPECT_LT(TARVO_BSQ_Read(buf, sizeof buf), 0) << "nothing started";
}

TEST_F(SimProbe, BsqReadsDeliverWholeRecordsAndFailAfterTheScriptsCount)
{
    ASSERT_EQ(connectWith("Fast = 1\nFailReadAfter = 3\n"), 0);
    const TARVO_BSQ_BLOCK blocks[2] = {{kTick, 4, 0, 0}, {kSawtooth, 2, 0, 0}};
    ASSERT_EQ(TARVO_BSQ_Start(blocks, 2, 1000, 1), 0);
    ASSERT_TRUE(waitFor([] { return bsqStatus().queued >= 2; }));
    uint8_t buf[25];
    EXPECT_EQ(TARVO_BSQ_Read(buf, sizeof buf), 20) << "two 10-byte records fit into 25 bytes";
    EXPECT_EQ(TARVO_BSQ_Read(buf, 9), 0);
    EXPECT_GE(TARVO_BSQ_Read(buf, sizeof buf), 0);
    EXPECT_LT(TARVO_BSQ_Read(buf, sizeof buf), 0) << "the fourth read fails";
    // Script settings last for the process: later tests in it must read on.
    const std::string never = "ScriptFile = " + writeScript("reads.TarvoScript", "FailReadAfter = 0xFFFFFFFF\n");
    EXPECT_EQ(TARVOARM_ExecCommand(never.c_str(), nullptr, 0), 0);
}

TEST_F(SimProbe, SelectionBySerialNumberAndHost)
{
    const auto own = uint32_t(TARVOARM_GetSN());
    EXPECT_LT(TARVOARM_EMU_SelectByUSBSN(own + 1), 0);
    EXPECT_NE(TARVOARM_OpenEx(nullptr, nullptr), nullptr) << "no probe with that serial number";
    EXPECT_EQ(TARVOARM_IsOpen(), 0);
    EXPECT_GE(TARVOARM_EMU_SelectByUSBSN(own), 0);
    EXPECT_EQ(TARVOARM_OpenEx(nullptr, nullptr), nullptr);
    EXPECT_NE(TARVOARM_IsOpen(), 0);
    TARVOARM_Close();

    // "TCP/IP" names a GDB server: a malformed address fails the selection,
    // nothing listening fails the open at once with the reason.
    EXPECT_NE(TARVOARM_SelectIP("localhost:notaport", 0) & 0xFF, 0);
    EXPECT_NE(TARVOARM_OpenEx(nullptr, nullptr), nullptr);
    const std::string address = "127.0.0.1:" + std::to_string(freeLoopbackPort());
    EXPECT_EQ(TARVOARM_SelectIP(address.c_str(), 0) & 0xFF, 0);
    const char* error = TARVOARM_OpenEx(nullptr, nullptr);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(std::string(error), "No GDB server is listening at " + address + " (connection refused).");
    EXPECT_EQ(TARVOARM_IsOpen(), 0);
    EXPECT_GE(TARVOARM_EMU_SelectByUSBSN(own), 0);
    EXPECT_EQ(TARVOARM_OpenEx(nullptr, nullptr), nullptr) << "USB reaches the simulated target again";
}

TEST_F(SimProbe, CommandStringsAnswerWithErrorTexts)
{
    char err[1024] = "x";
    EXPECT_EQ(TARVOARM_ExecCommand("device = cortex-m4", err, sizeof err), 0) << "letter case is ignored";
    EXPECT_STREQ(err, "");
    EXPECT_NE(TARVOARM_ExecCommand("device = NoSuchChip", err, sizeof err), 0);
    EXPECT_NE(std::string(err).find("NoSuchChip"), std::string::npos);
    EXPECT_NE(TARVOARM_ExecCommand("ScriptFile = /nonexistent/x.TarvoScript", err, sizeof err), 0);
    EXPECT_STRNE(err, "");
    const std::string bad = "ScriptFile = " + writeScript("bad.TarvoScript", "Fast = 1\nColour = blue\n");
    EXPECT_NE(TARVOARM_ExecCommand(bad.c_str(), err, sizeof err), 0);
    EXPECT_NE(std::string(err).find("line 2"), std::string::npos) << err;
    EXPECT_NE(TARVOARM_ExecCommand("MakeCoffee = 1", err, sizeof err), 0);
    EXPECT_NE(TARVO_ExecCommand("MakeCoffee = 1", nullptr, 0), 0);
}

TEST_F(SimProbe, ConnectNeedsADeviceAndFirmware)
{
    EXPECT_LT(TARVOARM_Connect(), 0) << "not open";
    EXPECT_LT(TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_START, nullptr), 0);
    uint32_t dir = 0;
    EXPECT_LT(TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_GETNUMBUF, &dir), 0);
    ASSERT_GE(TARVOARM_EMU_SelectByUSBSN(uint32_t(TARVOARM_GetSN())), 0);
    ASSERT_EQ(TARVOARM_OpenEx(nullptr, nullptr), nullptr);
    EXPECT_LT(TARVOARM_Connect(), 0) << "no device";
    EXPECT_EQ(TARVOARM_IsConnected(), 0);
    writeScript("not.elf", "this is no ELF file");
    for (const char* script : {"Firmware = missing.elf\n", "Firmware = not.elf\n"}) {
        TARVOARM_Close();
        EXPECT_LT(connectWith(script), 0) << script;
        EXPECT_EQ(TARVOARM_IsConnected(), 0);
    }
}

// The program names its ELF file at every target set-up; the target runs it
// unless a script of the same connection names a firmware.
TEST_F(SimProbe, TargetRunsTheProgramsElfFileUnlessThisConnectionsScriptNamesOne)
{
    const std::string notElf = writeScript("program-not.elf", "this is no ELF file");
    const std::string own = writeScript("program-own.elf", "");
    std::filesystem::copy_file(std::string(PLOTVIK_BIN_DIR) + "/demo.elf", own,
                               std::filesystem::copy_options::overwrite_existing);
    struct Step {
        const char* what;
        std::string elf, script;
        bool connects;
    };
    const Step steps[] = {
        {"the program's ELF file is what the target runs", notElf, "", false},
        {"a firmware ELF file of the program's own", own, "", true},
        {"this connection's script names the firmware", notElf, "Firmware = demo.elf\n", true},
        {"an earlier connection's script does not override it", notElf, "", false},
        {"a script of this connection without a firmware does not either", notElf, "DropWhenFull = 0\n", false},
    };
    for (const Step& s : steps) {
        EXPECT_EQ(connectWith(s.script, "PVK-SIM-M4", s.elf) == 0, s.connects) << s.what;
        EXPECT_TRUE(!s.connects || waitForTick(3)) << "the firmware runs: " << s.what;
        TARVOARM_Close();
    }
    char err[256] = "";
    EXPECT_NE(TARVOARM_ExecCommand("ELFFile =", err, sizeof err), 0);
    EXPECT_STRNE(err, "");
}

TEST_F(SimProbe, DeviceDialogAnswersFromTheScript)
{
    TARVO_DEVICE_INFO info{};
    info.SizeOfStruct = sizeof info;
    EXPECT_LT(TARVOARM_DEVICE_GetInfo(TARVOARM_DEVICE_GetInfo(-1, nullptr), &info), 0) << "past the list";
    char err[256];
    auto pick = [&](const std::string& answer) {
        const std::string cmd = "ScriptFile = " + writeScript("dlg.TarvoScript", "DeviceDialog = " + answer + "\n");
        EXPECT_EQ(TARVOARM_ExecCommand(cmd.c_str(), err, sizeof err), 0) << err;
        return TARVOARM_DEVICE_SelectDialog(nullptr, 0, nullptr);
    };
    EXPECT_EQ(pick("cancel"), -1);
    const int index = pick("KS40-512");
    ASSERT_GE(index, 0);
    ASSERT_EQ(TARVOARM_DEVICE_GetInfo(index, &info), 0);
    EXPECT_EQ(std::tuple(std::string(info.sName), info.FlashSize), std::tuple("KS40-512", 512u * 1024));
}
