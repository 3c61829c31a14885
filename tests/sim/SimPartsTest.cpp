// The probe model's parts on their own: script files and the ELF loader.
#include "SimTestSupport.h"
#include "sim/Script.h"
#include "sim/target/ElfImage.h"
#include "sim/target/Target.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <tuple>

using namespace sim;

TEST(SimScript, ReadsEveryKeyAndResolvesFirmwareAgainstTheScriptFolder)
{
    Script s;
    const auto err = parseScript("# demo\n  Firmware = fw/demo.elf \n// comment\nFast = 1\nClockHz = 0x3D09000\n"
                                 "SerialNumber = 42\nDevice = \"AM3210F4\"\nDeviceDialog = cancel\n"
                                 "FailReadAfter = 5\nSliceInstructions = 500\nDropWhenFull = 1\nGdbServerPort = 3334\n",
                                 "/base/dir", s);
    ASSERT_EQ(err, "");
    EXPECT_EQ((std::vector<std::string>{s.firmware.value_or(""), s.device.value_or(""), s.deviceDialog.value_or("")}),
              (std::vector<std::string>{"/base/dir/fw/demo.elf", "AM3210F4", "cancel"}));
    EXPECT_EQ((std::vector<uint32_t>{s.clockHz.value_or(0), s.serialNumber.value_or(0), s.failReadAfter.value_or(0),
                                     s.sliceInstructions.value_or(0), s.gdbServerPort.value_or(0)}),
              (std::vector<uint32_t>{64'000'000u, 42u, 5u, 500u, 3334u}));
    EXPECT_TRUE(s.fast.value_or(false) && s.dropWhenFull.value_or(false));
    ASSERT_EQ(parseScript("firmware = /abs/x.elf", "/other", s), "");
    EXPECT_EQ(s.firmware.value_or(""), "/abs/x.elf") << "an absolute path stays";
}

TEST(SimScript, ErrorsNameTheLine)
{
    const struct {
        const char* text;
        const char* needle;
    } cases[] = {
        {"Fast = 2\n", "line 1"},           {"Fast = 1\nnonsense\n", "line 2"},
        {"\n\nClockHz = 12\n", "line 3"},    {"SerialNumber = 0\n", "SerialNumber"},
        {"Colour = red\n", "Colour"},        {"Device =\n", "Device"},
        {"FailReadAfter = x\n", "FailReadAfter"}, {"DropWhenFull = 2\n", "DropWhenFull"},
        {"GdbServerPort = 0\n", "GdbServerPort"}, {"GdbServerPort = 70000\n", "GdbServerPort"},
    };
    for (const auto& c : cases) {
        Script s;
        const auto err = parseScript(c.text, "", s);
        EXPECT_NE(err.find(c.needle), std::string::npos) << c.text << " -> " << err;
    }
}

TEST(SimScript, MergeKeepsEarlierSettingsNotNamedAgain)
{
    Script base, top;
    ASSERT_EQ(parseScript("SerialNumber = 9\nFast = 1\n", "", base) + parseScript("Fast = 0\n", "", top), "");
    mergeScript(base, top);
    EXPECT_EQ(std::tuple(base.serialNumber.value_or(0), base.fast.value_or(true)), std::tuple(9u, false));
}

namespace {

struct TestSegment {
    uint32_t address; // where it is loaded
    std::vector<uint8_t> bytes;
    uint32_t memSize = 0;    // 0: as many as bytes
    uint32_t runAddress = 0; // 0: the load address
};

// An executable of the given segments, entry 9 bytes into the first.
std::vector<uint8_t> armElf(const std::vector<TestSegment>& segments, uint16_t machine = 40, uint8_t cls = 1)
{
    const size_t headers = 52 + 32 * segments.size();
    size_t size = headers;
    for (const auto& s : segments)
        size += s.bytes.size();
    std::vector<uint8_t> f(size, 0);
    const uint8_t ident[] = {0x7F, 'E', 'L', 'F', cls, 1, 1};
    std::memcpy(f.data(), ident, sizeof ident);
    auto put16 = [&](size_t o, uint16_t v) { std::memcpy(&f[o], &v, 2); };
    auto put32 = [&](size_t o, uint32_t v) { std::memcpy(&f[o], &v, 4); };
    put16(16, 2);
    put16(18, machine);
    put32(24, segments.front().address + 9);
    put32(28, 52);
    put16(42, 32);
    put16(44, static_cast<uint16_t>(segments.size()));
    size_t offset = headers;
    for (size_t i = 0; i < segments.size(); ++i) {
        const size_t ph = 52 + 32 * i;
        const auto& s = segments[i];
        put32(ph, 1); // PT_LOAD
        put32(ph + 4, static_cast<uint32_t>(offset));
        put32(ph + 8, s.runAddress != 0 ? s.runAddress : s.address);
        put32(ph + 12, s.address);
        put32(ph + 16, static_cast<uint32_t>(s.bytes.size()));
        put32(ph + 20, s.memSize != 0 ? s.memSize : static_cast<uint32_t>(s.bytes.size()));
        std::memcpy(&f[offset], s.bytes.data(), s.bytes.size());
        offset += s.bytes.size();
    }
    return f;
}

const std::vector<TestSegment> kTiny = {{0x40, {1, 2, 3, 4, 5, 6, 7, 8}, 16, 0x1000}};

// A board firmware linked for flash at `flash`: its vector table there, then
// a loop counting in RAM at 0x20000000 that writes and reads a peripheral
// register at 0x40021000 (a clock controller's place on many parts).
std::vector<uint8_t> boardFirmware(uint32_t flash, size_t flashBytes)
{
    std::vector<uint8_t> code(std::max<size_t>(flashBytes, 0x20), 0);
    const uint32_t words[] = {0x20020000, flash + 9};
    std::memcpy(code.data(), words, sizeof words);
    const uint16_t thumb[] = {
        0x4803, // ldr r0, =0x40021000
        0x4A04, // ldr r2, =0x20000000
        0x6801, // ldr r1, [r0]
        0x3101, // loop: adds r1, #1
        0x6011, // str r1, [r2]
        0x6041, // str r1, [r0, #4]
        0x6883, // ldr r3, [r0, #8]
        0xE7FA, // b loop
    };
    std::memcpy(code.data() + 8, thumb, sizeof thumb);
    const uint32_t literals[] = {0x40021000, 0x20000000};
    std::memcpy(code.data() + 0x18, literals, sizeof literals);
    return armElf({{flash, code}});
}

} // namespace

TEST(SimElf, LoadsSegmentsAtTheirLoadAddressAndRejectsWhatIsNoArmExecutable)
{
    ElfImage image;
    ASSERT_EQ(parseElf(armElf(kTiny), image), "");
    EXPECT_EQ(image.entry, 0x49u);
    ASSERT_EQ(image.segments.size(), 1u);
    EXPECT_EQ(image.segments[0].address, 0x40u);
    EXPECT_EQ(image.segments[0].bytes, (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8}));

    auto cut = armElf(kTiny);
    cut.resize(88); // a segment beyond the end of the file
    for (const auto& bad : {armElf(kTiny, 62), armElf(kTiny, 40, 2), std::vector<uint8_t>{'n', 'o'}, cut})
        EXPECT_NE(parseElf(bad, image), "") << bad.size();
}

TEST(SimTarget, RunsFirmwareBuiltForRealBoardsWithPeripheralsReadingZero)
{
    const struct {
        const char* what;
        uint32_t flash;
        size_t flashBytes;
    } cases[] = {
        {"flash at 0x08000000", 0x08000000, 0x20},
        {"an image of 1.6 MB", 0x08000000, 1'600'000},
        {"flash at 0", 0x00000000, 0x20},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ElfImage image;
        ASSERT_EQ(parseElf(boardFirmware(c.flash, c.flashBytes), image), "");
        TargetConfig cfg;
        cfg.fast = true;
        Target target(cfg, std::move(image));
        ASSERT_EQ(target.start(), "");
        EXPECT_TRUE(target.isMapped(c.flash, static_cast<uint32_t>(c.flashBytes)));
        uint32_t count = 0;
        simtest::waitFor([&] { return !target.read(0x20000000, &count, 4) || count >= 1000 || !target.fault().empty(); },
                         60000); // a bound, not a measure
        EXPECT_EQ(target.fault(), "");
        EXPECT_GE(count, 1000u) << "the firmware did not run";
        target.halt();
        EXPECT_EQ(target.peripheralPages(), 1u);
        EXPECT_GE(target.peripheralAccesses(), 2 * uint64_t(count) - 1) << "each loop writes and reads the register";
        uint32_t reg = 1;
        EXPECT_FALSE(target.read(0x40021000, &reg, 4)) << "the probe does not read peripheral registers";
    }
}

TEST(SimTarget, RefusesFirmwareOutsideSaneMemoryWithTheReason)
{
    const std::vector<uint8_t> vectors = {0x00, 0x00, 0x02, 0x20, 9, 0, 0, 0}; // stack at 0x20020000, reset at 9
    const struct {
        const char* what;
        std::vector<TestSegment> segments;
        const char* reason;
    } cases[] = {
        {"a segment among the peripherals", {{0, vectors}, {0x40010000, {1, 2, 3, 4}}},
         "firmware segment at 0x40010000 (4 bytes) outside target memory"},
        {"a segment in the system space", {{0, vectors}, {0xE0100000, {1, 2, 3, 4}}}, "outside target memory"},
        {"a region of 100 MB", {{0, vectors}, {0x60000000, {1}, 100u * 1024 * 1024}}, "larger than the simulated target allows"},
        {"no vector table", {{0x08000000, {1, 2, 3, 4}}}, "no vector table at address 0x08000000"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ElfImage image;
        ASSERT_EQ(parseElf(armElf(c.segments), image), "");
        Target target(TargetConfig{}, std::move(image));
        const std::string err = target.start();
        EXPECT_NE(err.find(c.reason), std::string::npos) << err;
    }
}
