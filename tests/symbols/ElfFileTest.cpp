#include "TestElf.h"

#include "symbols/DebugInfo.h"
#include "symbols/ElfFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

using testelf::corpus;
using testelf::ErrorCapture;

namespace {

const std::string kGood = "shapes_c_dwarf5_O0.elf";

}  // namespace

TEST(ElfErrorText, FixedTextsAndRecordKinds)
{
    EXPECT_STREQ(elf::errorText(43), "Invalid ELF file handle");
    EXPECT_STREQ(elf::errorText(52), "could not parse debug info for compilation unit");
    EXPECT_STREQ(elf::errorText(53), "compilation unit with DWARF5 debug information detected - DWARF5 is not yet fully supported");
    EXPECT_STREQ(elf::errorText(62), "a debug information entry (DIE) at a specific data section offset could not be parsed/generated");
    EXPECT_STREQ(elf::errorText(74), "failed to initialize libdwarf library");
    EXPECT_STREQ(elf::errorText(42), "");
    EXPECT_STREQ(elf::errorText(75), "");
    ErrorCapture errors;
    elf::reportError(56);
    elf::reportError(52, "0x1A");
    ASSERT_EQ(errors.records.size(), 2u);
    EXPECT_EQ(errors.records[0].kind, 68);
    EXPECT_EQ(errors.records[0].message, "could not parse macro information");
    EXPECT_EQ(errors.records[1].kind, 66);
    EXPECT_EQ(errors.records[1].detail, "0x1A");
}

// Files that are no executable ELF of a known form: each gives one error. A
// row with an offset patches the good file there; without, it is the file.
TEST(ElfOpen, BrokenFilesGiveTheirErrors)
{
    std::vector<unsigned char> header64(64);
    std::copy_n("\x7f" "ELF\2\1\1", 7, header64.begin());
    header64[16] = 2;  // an executable,
    header64[20] = 1;  // of file version 1
    header64.resize(60);
    std::vector<unsigned char> bigEndian(52);
    std::copy_n("\x7f" "ELF\1\2\1", 7, bigEndian.begin());
    bigEndian[17] = 2;
    bigEndian[23] = 1;
    const struct {
        const char* name;
        int offset;
        std::vector<unsigned char> bytes;
        int code;  // 0: opens without an error
    } cases[] = {
        {"empty.elf", -1, {}, elf::kErrFileSize},
        {"text.elf", -1, {'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd', '\n', 0, 0, 0, 0, 0, 0}, elf::kErrMagic},
        {"short.elf", -1, {0x7f, 'E', 'L', 'F'}, elf::kErrMagic},
        {"header.elf", -1, {0x7f, 'E', 'L', 'F', 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0}, elf::kErrFileSize},
        {"header64.elf", -1, header64, elf::kErrFileSize},
        {"big.elf", -1, bigEndian, 0},
        {"class.elf", 4, {0}, elf::kErrClassNone},
        {"data.elf", 5, {0}, elf::kErrDataNone},
        {"hversion.elf", 6, {2}, elf::kErrHeaderVersion},
        {"fversion.elf", 20, {2, 0, 0, 0}, elf::kErrFileVersion},
        {"magic.elf", 0, {0x7f, 'E', 'L', 'G'}, elf::kErrMagic},
    };
    for (const auto& c : cases) {
        std::vector<unsigned char> image = c.bytes;
        if (c.offset >= 0) {
            image = testelf::readBytes(corpus(kGood));
            std::copy(c.bytes.begin(), c.bytes.end(), image.begin() + c.offset);
        }
        ErrorCapture errors;
        elf::FilePtr f(elf::open(testelf::writeTemp(c.name, image), true));
        EXPECT_EQ(f == nullptr, c.code != 0) << c.name;
        ASSERT_EQ(errors.records.size(), c.code != 0 ? 1u : 0u) << c.name;
        if (c.code != 0) {
            EXPECT_EQ(errors.records[0].code, c.code) << c.name;
        }
    }
    for (const auto& [name, code] :
         {std::pair{"shapes_c.o", elf::kErrNotExecutable}, std::pair{"no-such-file.elf", elf::kErrOpen}}) {
        ErrorCapture errors;
        EXPECT_EQ(elf::FilePtr(elf::open(corpus(name), false)), nullptr) << name;
        EXPECT_TRUE(errors.has(code)) << name;
    }
}

// Two files open at a time at most; a header-only open loads no debug
// information; a handle that is not a file is refused.
TEST(ElfOpen, TwoSlotsHeaderOnlyAndUnknownHandles)
{
    ErrorCapture errors;
    elf::FilePtr a(elf::open(corpus(kGood), true));
    elf::FilePtr b(elf::open(corpus(kGood), true));
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_TRUE(errors.records.empty());
    EXPECT_FALSE(a->loaded());
    EXPECT_EQ(a->debugInfo().dieCount(), 0u);
    EXPECT_EQ(a->size(), testelf::readBytes(corpus(kGood)).size());
    EXPECT_EQ(std::memcmp(a->data(), "\x7f" "ELF", 4), 0);
    elf::FilePtr c(elf::open(corpus(kGood), true));
    EXPECT_EQ(c, nullptr);
    EXPECT_TRUE(errors.has(elf::kErrTooManyOpen));
    b.reset();
    elf::FilePtr d(elf::open(corpus(kGood), true));
    EXPECT_NE(d, nullptr);
    EXPECT_TRUE(elf::checkHandle(d.get()));

    errors.records.clear();
    int notAFile = 0;
    auto* fake = reinterpret_cast<elf::File*>(&notAFile);
    EXPECT_FALSE(elf::checkHandle(fake));
    elf::close(fake);
    ASSERT_EQ(errors.records.size(), 2u);
    EXPECT_EQ(errors.records[0].code, elf::kErrInvalidHandle);
    EXPECT_EQ(errors.records[1].code, elf::kErrInvalidHandle);
}

TEST(ElfLoad, Dwarf5UnitsWarnAndStillLoad)
{
    for (const int version : {4, 5}) {
        ErrorCapture errors;
        elf::FilePtr f(elf::open(corpus("shapes_c_dwarf" + std::to_string(version) + "_O0.elf"), false));
        ASSERT_NE(f, nullptr);
        EXPECT_EQ(errors.has(elf::kErrDwarf5), version == 5);
        EXPECT_FALSE(f->debugInfo().globals().empty());
        EXPECT_EQ(f->statistics().dwarfVersion, version);
    }
}

TEST(ElfLoad, BrokenUnitLeavesTheOthersLoaded)
{
    auto image = testelf::readBytes(corpus("shapes_c_newlib.elf"));
    std::size_t section = 0;
    const auto units = testelf::unitOffsets(image, section);
    ASSERT_GE(units.size(), 3u);
    // A unit other than the one that holds our own variables: they must survive.
    elf::FilePtr good(elf::open(corpus("shapes_c_newlib.elf"), false));
    ASSERT_NE(good, nullptr);
    const auto goodGlobals = good->debugInfo().globals().size();
    std::size_t unit = 0;
    for (const auto& u : good->debugInfo().units())
        if (u.offset != 0 && u.name.find("shapes.c") == std::string_view::npos && unit == 0)
            unit = static_cast<std::size_t>(u.offset);
    ASSERT_NE(unit, 0u);
    ASSERT_NE(std::find(units.begin(), units.end(), unit), units.end());
    good.reset();
    // Break it after its unit entry with abbreviation codes that do not exist.
    const std::uint32_t length = image[section + unit] | image[section + unit + 1] << 8 | image[section + unit + 2] << 16;
    for (std::size_t i = section + unit + length - 8; i < section + unit + length + 4 - 1; ++i)
        image[i] = 0xff;
    image[section + unit + length + 3] = 0x7f;
    ErrorCapture errors;
    elf::FilePtr f(elf::open(testelf::writeTemp("brokenunit.elf", image), false));
    ASSERT_NE(f, nullptr);
    const auto it = std::find_if(errors.records.begin(), errors.records.end(), [](const auto& r) { return r.code == 52; });
    ASSERT_NE(it, errors.records.end());
    char expected[32];
    std::snprintf(expected, sizeof expected, "0x%llX", static_cast<unsigned long long>(unit));
    EXPECT_EQ(it->detail, expected);
    EXPECT_EQ(it->kind, 66);
    const auto& info = f->debugInfo();
    EXPECT_LT(info.globals().size(), goodGlobals + 1);
    bool found = false;
    for (std::uint32_t g : info.globals())
        found = found || info.symbolName(info.die(g)) == "plain_int";
    EXPECT_TRUE(found);
    EXPECT_GE(info.units().size(), units.size() - 1);
}

TEST(ElfLoad, StatisticsLinesInOrder)
{
    testelf::LogCapture log;
    ASSERT_NE(elf::FilePtr(elf::open(corpus("shapes_c_dwarf4_O0.elf"), false)), nullptr);
    const std::vector<std::string> prefixes = {
        "parsed debug types section in ms: 0", "parsed debug info section in ms: ", "parsed source line info in ms: ",
        "parsed macro info in ms: ", "parsed call frame info in ms: ", "File Size: ", "debug_info size: ",
        "debug_types size: 0", "DWARF Version: 4", "Data Encoding: Little Endian", "Source Language: C",
        " ELF symbols", " DWARF symbols", " Funcs", " InlineFuncs", " Global variables", " Types", " Members",
        " Local variables", " Compilation units", " SrcLines", " Namespaces", " Namespace extensions", " Macros",
        " FDEs", " CIEs", "Total init time: "};
    std::size_t at = 0;
    for (const auto& l : log.lines)
        if (at < prefixes.size() && l.find(prefixes[at]) != std::string::npos)
            ++at;
    EXPECT_EQ(at, prefixes.size()) << "missing: " << (at < prefixes.size() ? prefixes[at] : "");
    const auto size = std::to_string(testelf::readBytes(corpus("shapes_c_dwarf4_O0.elf")).size());
    EXPECT_NE(std::find(log.lines.begin(), log.lines.end(), "File Size: " + size), log.lines.end());
}

TEST(Location, Evaluation)
{
    const struct {
        std::vector<unsigned char> expr;
        bool isStatic;
        std::uint64_t address;
        int error;
    } cases[] = {
        {{0x03, 0x10, 0x20, 0x00, 0x20}, true, 0x20002010, 0},
        {{0x03, 0x00, 0x10, 0x00, 0x20, 0x23, 0x08}, true, 0x20001008, 0},
        {{0x91, 0x7c}, false, 0, 0},                          // fbreg -4
        {{0x50}, false, 0, 0},                                // reg0
        {{0x03, 0, 0, 0, 0x20, 0x9f}, false, 0x20000000, 0},  // stack_value: a value, not a place
        {{0x9e, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9}, false, 0, 46},
        {{0xa3, 0x00}, false, 0, 47},
        {{0x03, 0x00, 0x10}, false, 0, 50},  // truncated address
        {{0x9d, 4, 0}, false, 0, 49},
    };
    for (const auto& c : cases) {
        const elf::Location loc = elf::evaluateLocation(c.expr.data(), c.expr.size(), 4, 4);
        EXPECT_EQ(loc.isStatic, c.isStatic) << int(c.expr[0]);
        EXPECT_EQ(loc.error, c.error) << int(c.expr[0]);
        if (c.isStatic) {
            EXPECT_EQ(loc.address, c.address);
        }
    }
    std::vector<unsigned char> pieces;
    for (int i = 0; i < 17; ++i)
        pieces.insert(pieces.end(), {0x50, 0x93, 4});
    EXPECT_EQ(elf::evaluateLocation(pieces.data(), pieces.size(), 4, 4).error, 48);
    const unsigned char addrx[] = {0xa1, 0x05};
    const elf::Location x = elf::evaluateLocation(addrx, sizeof addrx, 4, 4);
    EXPECT_TRUE(x.isStatic);
    EXPECT_TRUE(x.indexed);
    EXPECT_EQ(x.addrIndex, 5u);
}
