// The probe model's parts on their own: script files and the ELF loader.
#include "sim/ElfImage.h"
#include "sim/Script.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace sim;

TEST(SimScript, ReadsEveryKeyAndResolvesFirmwareAgainstTheScriptFolder)
{
    Script s;
    const auto err = parseScript("# demo\n  Firmware = fw/demo.elf \n// comment\nFast = 1\nClockHz = 0x3D09000\n"
                                 "SerialNumber = 42\nDevice = \"AM3210F4\"\nDeviceDialog = cancel\n"
                                 "FailReadAfter = 5\nSliceInstructions = 500\nDropWhenFull = 1\n",
                                 "/base/dir", s);
    ASSERT_EQ(err, "");
    EXPECT_EQ(s.firmware.value_or(""), "/base/dir/fw/demo.elf");
    EXPECT_EQ(s.fast.value_or(false), true);
    EXPECT_EQ(s.clockHz.value_or(0), 64'000'000u);
    EXPECT_EQ(s.serialNumber.value_or(0), 42u);
    EXPECT_EQ(s.device.value_or(""), "AM3210F4");
    EXPECT_EQ(s.deviceDialog.value_or(""), "cancel");
    EXPECT_EQ(s.failReadAfter.value_or(0), 5u);
    EXPECT_EQ(s.sliceInstructions.value_or(0), 500u);
    EXPECT_EQ(s.dropWhenFull.value_or(false), true);
}

TEST(SimScript, AbsoluteFirmwarePathStays)
{
    Script s;
    ASSERT_EQ(parseScript("firmware = /abs/x.elf", "/other", s), "");
    EXPECT_EQ(s.firmware.value_or(""), "/abs/x.elf");
}

TEST(SimScript, ErrorsNameTheLine)
{
    const struct {
        const char* text;
        const char* needle;
    } cases[] = {
        {"Fast = 2\n", "line 1"},
        {"Fast = 1\nnonsense\n", "line 2"},
        {"\n\nClockHz = 12\n", "line 3"},
        {"SerialNumber = 0\n", "SerialNumber"},
        {"Colour = red\n", "Colour"},
        {"Device =\n", "Device"},
        {"FailReadAfter = x\n", "FailReadAfter"},
        {"DropWhenFull = 2\n", "DropWhenFull"},
    };
    for (const auto& c : cases) {
        Script s;
        const auto err = parseScript(c.text, "", s);
        EXPECT_NE(err.find(c.needle), std::string::npos) << c.text << " -> " << err;
    }
}

TEST(SimScript, MergeKeepsEarlierSettingsNotNamedAgain)
{
    Script base;
    ASSERT_EQ(parseScript("SerialNumber = 9\nFast = 1\n", "", base), "");
    Script top;
    ASSERT_EQ(parseScript("Fast = 0\n", "", top), "");
    mergeScript(base, top);
    EXPECT_EQ(base.serialNumber.value_or(0), 9u);
    EXPECT_EQ(base.fast.value_or(true), false);
}

namespace {

std::vector<uint8_t> tinyElf(uint16_t machine, uint8_t cls = 1)
{
    std::vector<uint8_t> f(52 + 32 + 8, 0);
    const uint8_t ident[] = {0x7F, 'E', 'L', 'F', cls, 1, 1};
    std::memcpy(f.data(), ident, sizeof ident);
    auto put16 = [&](size_t o, uint16_t v) { std::memcpy(&f[o], &v, 2); };
    auto put32 = [&](size_t o, uint32_t v) { std::memcpy(&f[o], &v, 4); };
    put16(16, 2);
    put16(18, machine);
    put32(24, 0x41);
    put32(28, 52);
    put16(42, 32);
    put16(44, 1);
    put32(52, 1);          // PT_LOAD
    put32(52 + 4, 84);     // offset
    put32(52 + 8, 0x1000); // vaddr
    put32(52 + 12, 0x40);  // paddr
    put32(52 + 16, 8);     // filesz
    put32(52 + 20, 16);    // memsz
    for (int i = 0; i < 8; ++i)
        f[84 + size_t(i)] = uint8_t(i + 1);
    return f;
}

} // namespace

TEST(SimElf, LoadsSegmentsAtTheirLoadAddress)
{
    ElfImage image;
    ASSERT_EQ(parseElf(tinyElf(40), image), "");
    EXPECT_EQ(image.entry, 0x41u);
    ASSERT_EQ(image.segments.size(), 1u);
    EXPECT_EQ(image.segments[0].address, 0x40u);
    EXPECT_EQ(image.segments[0].bytes, (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(SimElf, RejectsWhatIsNoArmExecutable)
{
    ElfImage image;
    EXPECT_NE(parseElf(tinyElf(62), image), "");
    EXPECT_NE(parseElf(tinyElf(40, 2), image), "");
    EXPECT_NE(parseElf({'n', 'o'}, image), "");
    auto cut = tinyElf(40);
    cut.resize(88);
    EXPECT_NE(parseElf(cut, image), "") << "segment beyond the end of the file";
}

#ifdef PLOTVIK_BIN_DIR
TEST(SimElf, DemoFirmwareHasItsVectorTableAtZero)
{
    ElfImage image;
    const auto err = loadElf(std::string(PLOTVIK_BIN_DIR) + "/demo.elf", image);
    if (!err.empty())
        GTEST_SKIP() << "demo firmware not built: " << err;
    ASSERT_FALSE(image.segments.empty());
    EXPECT_EQ(image.segments[0].address, 0u);
    EXPECT_EQ(image.entry & 1u, 1u) << "thumb entry";
}
#endif
