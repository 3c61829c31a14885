#include "TestElf.h"

#include "base/Log.h"
#include "symbols/DebugInfo.h"
#include "symbols/ElfFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

using testelf::corpus;
using testelf::ErrorCapture;

namespace {

const std::string kGood = "shapes_c_dwarf5_O0.elf";

// Opens a patched copy of a good image and returns the reported codes.
std::vector<int> openPatched(std::size_t offset, std::vector<unsigned char> bytes, const std::string& name)
{
    auto image = testelf::readBytes(corpus(kGood));
    std::copy(bytes.begin(), bytes.end(), image.begin() + static_cast<std::ptrdiff_t>(offset));
    ErrorCapture errors;
    elf::FilePtr f(elf::open(testelf::writeTemp(name, image), true));
    EXPECT_EQ(f, nullptr);
    std::vector<int> codes;
    for (const auto& r : errors.records)
        codes.push_back(r.code);
    return codes;
}

}  // namespace

TEST(ElfErrorText, FixedTexts)
{
    EXPECT_STREQ(elf::errorText(43), "Invalid ELF file handle");
    EXPECT_STREQ(elf::errorText(52), "could not parse debug info for compilation unit");
    EXPECT_STREQ(elf::errorText(53), "compilation unit with DWARF5 debug information detected - DWARF5 is not yet fully supported");
    EXPECT_STREQ(elf::errorText(62), "a debug information entry (DIE) at a specific data section offset could not be parsed/generated");
    EXPECT_STREQ(elf::errorText(74), "failed to initialize libdwarf library");
    EXPECT_STREQ(elf::errorText(42), "");
    EXPECT_STREQ(elf::errorText(75), "");
}

TEST(ElfErrorText, RecordKinds)
{
    ErrorCapture errors;
    elf::reportError(56);
    elf::reportError(52, "0x1A");
    ASSERT_EQ(errors.records.size(), 2u);
    EXPECT_EQ(errors.records[0].kind, 68);
    EXPECT_EQ(errors.records[0].message, "could not parse macro information");
    EXPECT_EQ(errors.records[1].kind, 66);
    EXPECT_EQ(errors.records[1].detail, "0x1A");
}

struct OpenCase {
    const char* name;
    std::vector<unsigned char> bytes;
    int code;
};

TEST(ElfOpen, BrokenFilesGiveTheirErrors)
{
    const std::vector<OpenCase> cases = {
        {"empty.elf", {}, 71},
        {"text.elf", {'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd', '\n', 0, 0, 0, 0, 0, 0}, 63},
        {"short.elf", {0x7f, 'E', 'L', 'F'}, 63},
        {"header.elf", {0x7f, 'E', 'L', 'F', 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0}, 71},
    };
    for (const auto& c : cases) {
        ErrorCapture errors;
        elf::FilePtr f(elf::open(testelf::writeTemp(c.name, c.bytes), false));
        EXPECT_EQ(f, nullptr) << c.name;
        ASSERT_EQ(errors.records.size(), 1u) << c.name;
        EXPECT_EQ(errors.records[0].code, c.code) << c.name;
    }
}

TEST(ElfOpen, HeaderChecks)
{
    EXPECT_EQ(openPatched(4, {0}, "class.elf"), std::vector<int>{65});
    EXPECT_EQ(openPatched(5, {0}, "data.elf"), std::vector<int>{66});
    EXPECT_EQ(openPatched(6, {2}, "hversion.elf"), std::vector<int>{67});
    EXPECT_EQ(openPatched(20, {2, 0, 0, 0}, "fversion.elf"), std::vector<int>{68});
    EXPECT_EQ(openPatched(0, {0x7f, 'E', 'L', 'G'}, "magic.elf"), std::vector<int>{63});
}

TEST(ElfOpen, ObjectFileIsNotAnExecutable)
{
    ErrorCapture errors;
    elf::FilePtr f(elf::open(corpus("shapes_c.o"), false));
    EXPECT_EQ(f, nullptr);
    EXPECT_TRUE(errors.has(64));
}

TEST(ElfOpen, MissingFile)
{
    ErrorCapture errors;
    elf::FilePtr f(elf::open(corpus("no-such-file.elf"), false));
    EXPECT_EQ(f, nullptr);
    EXPECT_TRUE(errors.has(70));
}

TEST(ElfOpen, TwoSlotsOnly)
{
    ErrorCapture errors;
    elf::FilePtr a(elf::open(corpus(kGood), true));
    elf::FilePtr b(elf::open(corpus(kGood), true));
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_TRUE(errors.records.empty());
    elf::FilePtr c(elf::open(corpus(kGood), true));
    EXPECT_EQ(c, nullptr);
    EXPECT_TRUE(errors.has(69));
    b.reset();
    elf::FilePtr d(elf::open(corpus(kGood), true));
    EXPECT_NE(d, nullptr);
    EXPECT_TRUE(elf::checkHandle(d.get()));
}

TEST(ElfOpen, UnknownHandle)
{
    ErrorCapture errors;
    int notAFile = 0;
    auto* fake = reinterpret_cast<elf::File*>(&notAFile);
    EXPECT_FALSE(elf::checkHandle(fake));
    elf::close(fake);
    ASSERT_EQ(errors.records.size(), 2u);
    EXPECT_EQ(errors.records[0].code, 43);
    EXPECT_EQ(errors.records[1].code, 43);
}

TEST(ElfOpen, HeaderOnlyLoadsNoDebugInfo)
{
    elf::FilePtr f(elf::open(corpus(kGood), true));
    ASSERT_NE(f, nullptr);
    EXPECT_FALSE(f->loaded());
    EXPECT_EQ(f->debugInfo().dieCount(), 0u);
    EXPECT_EQ(f->size(), testelf::readBytes(corpus(kGood)).size());
    EXPECT_EQ(std::memcmp(f->data(), "\x7f" "ELF", 4), 0);
}

TEST(ElfLoad, Dwarf5UnitsWarnAndStillLoad)
{
    ErrorCapture errors;
    elf::FilePtr f(elf::open(corpus("shapes_c_dwarf5_O0.elf"), false));
    ASSERT_NE(f, nullptr);
    EXPECT_TRUE(errors.has(53));
    EXPECT_FALSE(f->debugInfo().globals().empty());

    ErrorCapture errors4;
    elf::FilePtr g(elf::open(corpus("shapes_c_dwarf4_O0.elf"), false));
    ASSERT_NE(g, nullptr);
    EXPECT_FALSE(errors4.has(53));
    EXPECT_EQ(g->statistics().dwarfVersion, 4);
}

TEST(ElfLoad, BrokenUnitLeavesTheOthersLoaded)
{
    auto image = testelf::readBytes(corpus("shapes_c_newlib.elf"));
    std::size_t section = 0;
    const auto units = testelf::unitOffsets(image, section);
    ASSERT_GE(units.size(), 3u);
    // Find the unit that holds our own variables: it must survive.
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
    // Break the second unit after its unit entry with abbreviation codes that do not exist.
    const std::uint32_t length = image[section + unit] | image[section + unit + 1] << 8 | image[section + unit + 2] << 16;
    for (std::size_t i = section + unit + length - 8; i < section + unit + length + 4 - 1; ++i)
        image[i] = 0xff;
    image[section + unit + length + 3] = 0x7f;
    ErrorCapture errors;
    elf::FilePtr f(elf::open(testelf::writeTemp("brokenunit.elf", image), false));
    ASSERT_NE(f, nullptr);
    ASSERT_TRUE(errors.has(52));
    const auto it = std::find_if(errors.records.begin(), errors.records.end(), [](const auto& r) { return r.code == 52; });
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
    std::vector<std::string> lines;
    Log& log = Log::instance();
    const int level = log.level();
    log.setLevel(9);
    log.setWriter([&](const std::string& l) { lines.push_back(l); });
    {
        elf::FilePtr f(elf::open(corpus("shapes_c_dwarf4_O0.elf"), false));
        ASSERT_NE(f, nullptr);
    }
    log.setWriter({});
    log.setLevel(level);
    const std::vector<std::string> prefixes = {
        "parsed debug types section in ms: 0", "parsed debug info section in ms: ", "parsed source line info in ms: ",
        "parsed macro info in ms: ", "parsed call frame info in ms: ", "File Size: ", "debug_info size: ",
        "debug_types size: 0", "DWARF Version: 4", "Data Encoding: Little Endian", "Source Language: C",
        " ELF symbols", " DWARF symbols", " Funcs", " InlineFuncs", " Global variables", " Types", " Members",
        " Local variables", " Compilation units", " SrcLines", " Namespaces", " Namespace extensions", " Macros",
        " FDEs", " CIEs", "Total init time: "};
    std::size_t at = 0;
    for (const auto& l : lines)
        if (at < prefixes.size() && l.find(prefixes[at]) != std::string::npos)
            ++at;
    EXPECT_EQ(at, prefixes.size()) << "missing: " << (at < prefixes.size() ? prefixes[at] : "");
    const auto size = std::to_string(testelf::readBytes(corpus("shapes_c_dwarf4_O0.elf")).size());
    EXPECT_NE(std::find(lines.begin(), lines.end(), "File Size: " + size), lines.end());
}

// Location expressions, table-driven.
struct LocCase {
    std::vector<unsigned char> expr;
    bool isStatic;
    std::uint64_t address;
    int error;
};

TEST(Location, Evaluation)
{
    const std::vector<LocCase> cases = {
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
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto& c = cases[i];
        const elf::Location loc = elf::evaluateLocation(c.expr.data(), c.expr.size(), 4, 4);
        EXPECT_EQ(loc.isStatic, c.isStatic) << i;
        EXPECT_EQ(loc.error, c.error) << i;
        if (c.isStatic) {
            EXPECT_EQ(loc.address, c.address) << i;
        }
    }
    std::vector<unsigned char> pieces;
    for (int i = 0; i < 17; ++i) {
        pieces.push_back(0x50);
        pieces.push_back(0x93);
        pieces.push_back(4);
    }
    EXPECT_EQ(elf::evaluateLocation(pieces.data(), pieces.size(), 4, 4).error, 48);
    const unsigned char addrx[] = {0xa1, 0x05};
    const elf::Location x = elf::evaluateLocation(addrx, sizeof addrx, 4, 4);
    EXPECT_TRUE(x.isStatic);
    EXPECT_TRUE(x.indexed);
    EXPECT_EQ(x.addrIndex, 5u);
}
