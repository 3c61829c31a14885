// Damaged debug information (the hostile_* corpus, made at build time from
// corpus/hostile*.c by HostileElf.cpp): every file loads with its intact
// variables, and the damaged ones are cut or limited with a log line instead
// of taking the parse down with them.
#include "TestElf.h"

#include "symbols/SymbolTree.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

// The files of one kind of damage, in DWARF 4 and 5 where the generator makes it.
std::vector<std::string> corpusFiles(const std::string& kind)
{
    std::vector<std::string> files;
    for (const char* version : {"hostile_dwarf4", "hostile_dwarf5"}) {
        const std::string path = testelf::corpus(std::string(version) + "/hostile_" + kind + ".elf");
        if (std::filesystem::exists(path))
            files.push_back(path);
    }
    return files;
}

constexpr std::int32_t kAbsent = -1, kTypeless = -2, kAny = -3;

struct Row {
    const char* kind;  // nullptr: every file
    const char* path;
    std::int32_t typeId;  // or kAbsent, kTypeless (no type, no size), kAny
    Cut cut;
    const char* logLine;
};

const Row kRows[] = {
    // Intact in every file, including the unit after the damaged header (the
    // listings pin the other intact leaves).
    {nullptr, "intact_counter", kTypeS32, kCutNone, nullptr},
    {nullptr, "intact_table[3]", kTypeS32, kCutNone, nullptr},
    {nullptr, "intact_after_broken", kTypeS32, kCutNone, nullptr},
    {nullptr, "intact_late.y", kTypeU16, kCutNone, nullptr},
    {"self_struct", "knot_var", kAny, kCutVariableBudget, "Variable knot_var is cut short"},
    {"typedef_loop", "looped", kTypeless, kCutNone, "looped has no type"},
    {"typedef_loop", "looped_array", kTypeNone, kCutTypeTrouble, nullptr},
    {"qualifier_loop", "ring", kTypeless, kCutNone, "ring has no type"},
    {"wide_array", "wide", kTypeNone, kCutAddressSpace,
     "Array wide is not expanded: its elements would run past the 32-bit address space"},
    {"bulk_array", "bulk[16777215]", kTypeU32, kCutNone, nullptr},
    {"dangling_type", "dangling_far", kAbsent, kCutNone, "Variable dangling_far is left out"},
    {"dangling_type", "dangling_near", kAbsent, kCutNone, "Variable dangling_near is left out"},
    {"dangling_member", "holder_var.kept", kTypeS32, kCutNone, nullptr},
    {"dangling_member", "holder_var.lost", kAbsent, kCutNone, "A member of holder_var is left out"},
    {"broken_header", "broken_unit_var", kAbsent, kCutNone, "is unreadable (version 9): that unit is skipped"},
    {"all", "broken_unit_var", kAbsent, kCutNone, "is unreadable (version 9): that unit is skipped"},
};

}  // namespace

// Each kind of damage, alone and all together.
TEST(HostileDebugInfo, EveryFileLoadsWithItsIntactVariablesAndCutsTheDamagedOnes)
{
    const std::vector<std::string> kinds = {"self_struct",   "typedef_loop",    "qualifier_loop", "wide_array", "bulk_array",
                                            "dangling_type", "dangling_member", "broken_header",  "all"};
    std::size_t files = 0;
    for (const auto& kind : kinds) {
        for (const auto& path : corpusFiles(kind)) {
            ++files;
            testelf::Parsed p(path);
            ASSERT_EQ(p.result, 0) << path;
            ASSERT_NE(p.db.tree(), nullptr) << path;
            // However damaged, the tree stays within its budget.
            EXPECT_LE(p.db.tree()->arena.size(), symtree::TreeLimits{}.treeNodes + 1000) << path;
            const bool unitSkipped = kind == "broken_header" || kind == "all";
            EXPECT_EQ(p.errors.has(elf::kErrCompileUnit), unitSkipped) << path;
            for (const Row& r : kRows) {
                if (r.kind && r.kind != kind)
                    continue;
                SCOPED_TRACE(path + ": " + r.path);
                const Node* n = p.find(r.path);
                EXPECT_TRUE(!r.logLine || p.log.has(r.logLine)) << r.logLine;
                ASSERT_EQ(n != nullptr, r.typeId != kAbsent);
                if (!n)
                    continue;
                if (r.typeId >= 0) {
                    EXPECT_EQ(std::tuple(n->TypeID, n->IsLeaf), std::tuple(r.typeId, r.typeId > 0));
                }
                EXPECT_EQ(n->Unexpanded, r.cut);
                EXPECT_FALSE(r.cut != kCutNone && r.typeId != kAny && n->hasChildren());
                if (r.typeId == kTypeless) {
                    EXPECT_EQ(std::tuple(n->Type.empty(), n->Tag, n->Size), std::tuple(true, 0u, 0u));
                }
            }
        }
    }
    EXPECT_EQ(files, 2u * kinds.size() - 2) << "the array kinds are made for DWARF 4 only";
}

// An unreadable unit is reported with its offset. A unit length that runs past
// the section leaves no way to find the units after it: the walk ends there
// with a log line, the units before it stay.
TEST(HostileDebugInfo, AUnitLengthPastTheSectionEndsTheWalkThere)
{
    for (const auto& path : corpusFiles("broken_header")) {
        std::vector<unsigned char> image = testelf::readBytes(path);
        std::size_t section = 0, size = 0, broken = 0;
        ASSERT_TRUE(testelf::findSection(image, ".debug_info", section, size));
        for (std::uint32_t u = 0, length = 0; u + 4 <= size; u += 4 + length) {
            std::memcpy(&length, image.data() + section + u, 4);
            broken = image[section + u + 4] == 9 ? section + u : broken;
        }
        ASSERT_NE(broken, 0u) << path;
        {
            testelf::Parsed intact(path);
            char offset[32];
            std::snprintf(offset, sizeof offset, "0x%zX", broken - section);
            EXPECT_TRUE(std::ranges::any_of(intact.errors.records, [&](const auto& e) {
                return e.code == elf::kErrCompileUnit && e.detail == offset && e.kind == 66;
            })) << path;
        }
        const std::uint32_t huge = 0xFFFFFF00u;
        std::memcpy(image.data() + broken, &huge, 4);
        testelf::Parsed p(testelf::writeTemp("hostile_broken_length.elf", image));
        ASSERT_NE(p.db.tree(), nullptr) << path;
        EXPECT_EQ(std::tuple(p.find("intact_counter") != nullptr, p.find("intact_after_broken")),
                  std::tuple(true, nullptr))
            << path;
        EXPECT_TRUE(p.log.has("runs past the section: the units after it are not read")) << path;
    }
}
