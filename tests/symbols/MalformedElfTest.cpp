// Damaged ELF files, made by corrupting real firmware at random places with a
// fixed seed: every one either loads or is refused with an error, never
// crashes, and a tree that loads can be walked. (Before the loader checked
// that DIE offsets grow, a damaged sibling link made it loop until memory ran
// out.)
#include "TestElf.h"

#include "base/Report.h"
#include "symbols/SymbolDatabase.h"
#include "tests/app/TestBridge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>

#include <sys/resource.h>

namespace {

// Parses `bytes` as a file; a result of 0 must come with a tree that can be
// walked, any other without.
void parsesOrRefuses(const std::vector<unsigned char>& bytes, const std::string& what)
{
    testelf::Parsed p(testelf::writeTemp("malformed.elf", bytes));  // errors go to the handler, not to the user
    ASSERT_EQ(p.db.tree() != nullptr, p.result == 0) << what;
    const std::function<void(const Node*)> walk = [&](const Node* n) {
        for (; n; n = n->Next)
            walk(n->Children);
    };
    for (const Node* f : p.result == 0 ? p.db.tree()->files : std::vector<Node*>{})
        walk(f->Children);
}

// Parses `path` with 100 MB of address space beyond what the process already
// maps; 0 when the parse fails, leaves no tree and says why once.
int parseUnderTightLimit(const std::string& path)
{
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t limit = static_cast<rlim_t>(pages) * 4096 + (rlim_t{100} << 20);
    const rlimit address{limit, limit};
    setrlimit(RLIMIT_AS, &address);
    TestBridge bridge;
    report::setBridge(&bridge);
    SymbolDatabase db;
    const int result = db.parseElf(path, false, &bridge);
    const auto boxes = bridge.shown();
    return result == -1 && db.tree() == nullptr && boxes.size() == 1 && boxes[0].text == "Insufficient memory!" ? 0 : 1;
}

}  // namespace

// Sections corrupted at random (small numbers, all bits set, or noise: each
// trips a different check), every byte of the ELF header set to a few telling
// values, the section header table damaged and the file cut at random.
TEST(MalformedElf, DamagedFilesLoadOrFailButNeverCrash)
{
    std::mt19937 random(20261122);
    for (const char* image : {"shapes_c_dwarf4_O0.elf", "shapes_cpp_dwarf5_Os.elf", "shapes_c_newlib.elf"}) {
        const std::vector<unsigned char> original = testelf::readBytes(testelf::corpus(image));
        ASSERT_FALSE(original.empty()) << image;
        for (const char* section : {".debug_info", ".debug_abbrev", ".debug_line", ".debug_str", ".debug_addr",
                                    ".debug_line_str", ".symtab"}) {
            std::size_t offset = 0, size = 0;
            if (!testelf::findSection(original, section, offset, size) || size == 0)
                continue;
            for (int round = 0; round < 40; ++round) {
                std::vector<unsigned char> bytes = original;
                for (int k = 0, flips = 1 + static_cast<int>(random() % 8); k < flips; ++k) {
                    const unsigned kind = random() % 3;
                    bytes[offset + random() % size] = kind == 0   ? static_cast<unsigned char>(random() % 4)
                                                      : kind == 1 ? 0xFF
                                                                  : static_cast<unsigned char>(random());
                }
                parsesOrRefuses(bytes, std::string(image) + " " + section + " round " + std::to_string(round));
            }
        }
    }
    const std::vector<unsigned char> original = testelf::readBytes(testelf::corpus("shapes_c_dwarf5_O0.elf"));
    ASSERT_GT(original.size(), 52u);
    for (std::size_t at = 0; at < 52; ++at)
        for (const unsigned char value : {0x00, 0x01, 0x7F, 0xFF}) {
            std::vector<unsigned char> bytes = original;
            bytes[at] = value;
            parsesOrRefuses(bytes, "header byte " + std::to_string(at) + " = " + std::to_string(value));
        }
    std::size_t shoff = 0;
    std::memcpy(&shoff, original.data() + 32, 4);
    for (int round = 0; round < 60 && shoff < original.size(); ++round) {
        std::vector<unsigned char> bytes = original;
        bytes[shoff + random() % (original.size() - shoff)] = static_cast<unsigned char>(random());
        parsesOrRefuses(bytes, "section header round " + std::to_string(round));
        const std::size_t length = random() % original.size();
        parsesOrRefuses({original.begin(), original.begin() + static_cast<std::ptrdiff_t>(length)},
                        "cut at " + std::to_string(length));
    }
}

// A line table file entry whose directory lies past the directory table made
// libdwarf read past that table: the unit's source files are refused, the
// variables still load.
TEST(MalformedElf, AFileEntryPastTheDirectoryTableIsRefused)
{
    std::vector<unsigned char> bytes = testelf::readBytes(testelf::corpus("shapes_c_newlib.elf"));
    std::size_t offset = 0, size = 0;
    ASSERT_TRUE(testelf::findSection(bytes, ".debug_line", offset, size));
    // The first table is newlib's crt0 (DWARF 5, two directories); 0x39 is the
    // directory index of its first file.
    ASSERT_EQ(bytes[offset + 0x39], 1);
    bytes[offset + 0x39] = 2;
    testelf::Parsed p(testelf::writeTemp("directory.elf", bytes));
    EXPECT_EQ(p.result, 0);
    EXPECT_TRUE(p.errors.has(elf::kErrSourceFiles));
    EXPECT_NE(p.find("plain_int"), nullptr);
}

// Range and location list headers that Debian's libdwarf cannot read make it
// free memory twice, so the loader refuses such files before libdwarf sees
// them: each damaged header below is reported, never a crash.
TEST(ListHeaders, UnreadableHeadersAreRefusedAndIntactOnesLoad)
{
    // C++ at -Os: gcc writes both list sections in DWARF 5.
    const std::vector<unsigned char> original = testelf::readBytes(testelf::corpus("shapes_cpp_dwarf5_Os.elf"));
    ASSERT_FALSE(original.empty());
    const struct {
        const char* section;
        std::size_t at;  // offset in the section's first header
        std::vector<unsigned char> bytes;
        const char* what;
    } cases[] = {
        {".debug_rnglists", 0, {}, "intact"},
        {".debug_rnglists", 4, {4, 0}, "version 4"},
        {".debug_rnglists", 6, {3}, "address size 3"},
        {".debug_rnglists", 0, {0xF0, 0xFF, 0xFF, 0xFF}, "length past the section"},
        {".debug_rnglists", 0, {2, 0, 0, 0}, "length shorter than a header"},
        {".debug_loclists", 4, {0, 0}, "version 0"},
        {".debug_loclists", 0, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0}, "64-bit length past the section"},
    };
    for (const auto& c : cases) {
        std::size_t offset = 0, size = 0;
        ASSERT_TRUE(testelf::findSection(original, c.section, offset, size)) << c.section;
        ASSERT_LE(c.at + c.bytes.size(), size) << c.what;
        std::vector<unsigned char> bytes = original;
        std::copy(c.bytes.begin(), c.bytes.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset + c.at));
        testelf::Parsed p(testelf::writeTemp("lists.elf", bytes));
        const bool intact = c.bytes.empty();
        EXPECT_EQ(std::tuple(p.errors.has(elf::kErrDwarfInit), p.find("derived") != nullptr),
                  std::tuple(!intact, intact))
            << c.section << ": " << c.what;
    }
}

// Memory running out during a parse (here a structure that contains itself,
// filled up to its variable's share of a million nodes, about 250 MB, under a
// tight address-space limit) is reported, leaves no tree and ends nothing.
TEST(OutOfMemory, AParseThatRunsOutIsReportedAndLeavesNoTree)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "AddressSanitizer reserves more address space than the limit allows";
#endif
    const std::string knot = testelf::corpus("hostile_dwarf4/hostile_self_struct.elf");
    ASSERT_FALSE(testelf::readBytes(knot).empty());
    EXPECT_EXIT(std::exit(parseUnderTightLimit(knot)), ::testing::ExitedWithCode(0), "");
}
