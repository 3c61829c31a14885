// Range and location list headers that Debian's libdwarf cannot read make it
// free memory twice, so the loader refuses such files before libdwarf sees
// them: each damaged header below is reported, never a crash.
#include "TestElf.h"

#include "symbols/SymbolDatabase.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

struct Damage {
    const char* section;
    std::size_t at;  // offset in the section's first header
    std::vector<unsigned char> bytes;
    const char* what;
};

std::size_t variables(const SymbolDatabase& db)
{
    std::size_t n = 0;
    if (db.tree())
        for (const Node* f : db.tree()->files)
            for (const Node* v = f->Children; v; v = v->Next)
                ++n;
    return n;
}

}  // namespace

TEST(ListHeaders, UnreadableHeadersAreRefusedAndIntactOnesLoad)
{
    // C++ at -Os: gcc writes both list sections in DWARF 5.
    const std::vector<unsigned char> original = testelf::readBytes(testelf::corpus("shapes_cpp_dwarf5_Os.elf"));
    ASSERT_FALSE(original.empty());
    {
        testelf::ErrorCapture errors;
        SymbolDatabase db;
        ASSERT_EQ(db.parseElf(testelf::writeTemp("lists_intact.elf", original), false, nullptr), 0);
        EXPECT_FALSE(errors.has(elf::kErrDwarfInit));
        EXPECT_GT(variables(db), 0u);
    }
    const Damage cases[] = {
        {".debug_rnglists", 4, {4, 0}, "version 4"},
        {".debug_rnglists", 6, {3}, "address size 3"},
        {".debug_rnglists", 0, {0xF0, 0xFF, 0xFF, 0xFF}, "length past the section"},
        {".debug_rnglists", 0, {2, 0, 0, 0}, "length shorter than a header"},
        {".debug_loclists", 4, {0, 0}, "version 0"},
        {".debug_loclists", 0, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0}, "64-bit length past the section"},
    };
    for (const Damage& d : cases) {
        std::size_t offset = 0, size = 0;
        ASSERT_TRUE(testelf::findSection(original, d.section, offset, size)) << d.section;
        ASSERT_LE(d.at + d.bytes.size(), size) << d.what;
        std::vector<unsigned char> bytes = original;
        std::memcpy(bytes.data() + offset + d.at, d.bytes.data(), d.bytes.size());
        testelf::ErrorCapture errors;
        SymbolDatabase db;
        db.parseElf(testelf::writeTemp("lists_damaged.elf", bytes), false, nullptr);
        EXPECT_TRUE(errors.has(elf::kErrDwarfInit)) << d.section << ": " << d.what;
        EXPECT_EQ(variables(db), 0u) << d.section << ": " << d.what;
    }
}
