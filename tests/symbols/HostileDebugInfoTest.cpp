// Damaged debug information (the hostile_* corpus, made at build time from
// corpus/hostile*.c by HostileElf.cpp): every file loads with its intact
// variables, and the damaged ones are cut or limited with a log line instead
// of taking the parse down with them.
#include "TestElf.h"

#include "base/Log.h"
#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTree.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

const Node* findPath(const Node* n, const std::string& path)
{
    for (; n; n = n->Next) {
        if (n->NameWithParents == path)
            return n;
        if (const Node* f = findPath(n->Children, path))
            return f;
    }
    return nullptr;
}

const Node* find(SymbolTree& tree, const std::string& path)
{
    const std::vector<Node*> found = symtree::findPath(tree.arena, tree.files, path);
    return found.empty() ? nullptr : found[0];
}

std::size_t countBelow(const Node* n)
{
    std::size_t count = 0;
    for (const Node* c = n->Children; c; c = c->Next)
        count += 1 + countBelow(c);
    return count;
}

bool anyCut(const Node* n, Cut cut)
{
    for (; n; n = n->Next)
        if (n->Unexpanded == cut || anyCut(n->Children, cut))
            return true;
    return false;
}

// Log lines written while it lives.
class LogCapture {
public:
    LogCapture()
    {
        Log::instance().setLevel(9);
        Log::instance().setWriter([this](const std::string& line) { lines.push_back(line); });
    }
    ~LogCapture()
    {
        Log::instance().setWriter({});
        Log::instance().setLevel(3);
    }
    bool has(const std::string& part) const
    {
        for (const auto& l : lines)
            if (l.find(part) != std::string::npos)
                return true;
        return false;
    }
    std::vector<std::string> lines;
};

struct Loaded {
    LogCapture log;
    testelf::ErrorCapture errors;
    SymbolDatabase db;
    int result = -1;
    explicit Loaded(const std::string& path) { result = db.parseElf(path, false, nullptr); }
};

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

// The variables every file keeps whole, with their sample types, including
// those of the unit after the damaged header.
void expectIntact(SymbolTree& tree, const std::string& what)
{
    const std::vector<std::pair<const char*, std::int32_t>> intact = {
        {"intact_counter", kTypeS32},      {"intact_pair.a", kTypeS32},   {"intact_pair.b", kTypeS16},
        {"intact_table[3]", kTypeS32},     {"intact_gain", kTypeFloat},   {"intact_after_broken", kTypeS32},
        {"intact_late.x", kTypeU8},        {"intact_late.y", kTypeU16},
    };
    for (const auto& [path, type] : intact) {
        const Node* n = find(tree, path);
        ASSERT_NE(n, nullptr) << what << ": " << path;
        EXPECT_TRUE(n->IsLeaf) << what << ": " << path;
        EXPECT_EQ(n->TypeID, type) << what << ": " << path;
    }
}

}  // namespace

// Each kind of damage, alone and all together, in DWARF 4 and 5 where the
// compiler's layout lets the generator make it.
TEST(HostileDebugInfo, EveryFileLoadsWithItsIntactVariables)
{
    const std::vector<std::string> kinds = {"self_struct",   "typedef_loop",    "qualifier_loop", "wide_array", "bulk_array",
                                            "dangling_type", "dangling_member", "broken_header",  "all"};
    std::size_t files = 0;
    for (const auto& kind : kinds) {
        for (const auto& path : corpusFiles(kind)) {
            ++files;
            Loaded l(path);
            ASSERT_EQ(l.result, 0) << path;
            ASSERT_NE(l.db.tree(), nullptr) << path;
            expectIntact(*l.db.tree(), path);
            // However damaged, the tree stays within its budget.
            EXPECT_LE(l.db.tree()->arena.size(), symtree::TreeLimits{}.treeNodes + 1000) << path;
        }
    }
    EXPECT_EQ(files, 2u * kinds.size() - 2) << "the array kinds are made for DWARF 4 only";
}

// A structure that contains itself twice would expand to 2^33 nodes under the
// depth rule: it expands depth first until its variable's share is spent.
TEST(HostileDebugInfo, AStructureContainingItselfStopsAtItsVariablesBudget)
{
    for (const auto& path : corpusFiles("self_struct")) {
        Loaded l(path);
        ASSERT_NE(l.db.tree(), nullptr) << path;
        const Node* knot = find(*l.db.tree(), "knot_var");
        ASSERT_NE(knot, nullptr) << path;
        const std::size_t below = countBelow(knot);
        EXPECT_GT(below, 100000u) << path;
        EXPECT_LE(below, symtree::TreeLimits{}.variableNodes) << path;
        EXPECT_TRUE(anyCut(knot, kCutVariableBudget)) << path;
        // Expanded by the depth rule down to its limit.
        std::string deep = "knot_var";
        for (std::uint32_t d = 1; d < symtree::kMaxDepth; ++d)
            deep += ".left";
        EXPECT_NE(findPath(knot, deep), nullptr) << path;
        EXPECT_TRUE(l.log.has("Variable knot_var is cut short")) << path;
    }
}

TEST(HostileDebugInfo, TypeChainsThatComeBackAreCut)
{
    for (const char* kind : {"typedef_loop", "qualifier_loop"})
        for (const auto& path : corpusFiles(kind)) {
            Loaded l(path);
            ASSERT_NE(l.db.tree(), nullptr) << path;
            const char* name = std::string(kind) == "typedef_loop" ? "looped" : "ring";
            const Node* n = find(*l.db.tree(), name);
            ASSERT_NE(n, nullptr) << path;
            EXPECT_TRUE(n->Type.empty()) << path;
            EXPECT_EQ(n->Tag, 0u) << path;
            EXPECT_EQ(n->Size, 0u) << path;
            EXPECT_TRUE(l.log.has(std::string(name) + " has no type")) << path;
            if (std::string(kind) == "typedef_loop") {
                // An array of such elements is not expanded.
                const Node* a = find(*l.db.tree(), "looped_array");
                ASSERT_NE(a, nullptr) << path;
                EXPECT_EQ(a->Children, nullptr) << path;
                EXPECT_EQ(a->Unexpanded, kCutTypeTrouble) << path;
                EXPECT_FALSE(a->IsLeaf) << path;
            }
        }
}

// An array past the address space stays unexpanded; one of sixteen million
// words costs one node, its elements made on demand.
TEST(HostileDebugInfo, ArraysPastTheAddressSpaceStayUnexpandedLongOnesCostOneNode)
{
    for (const auto& path : corpusFiles("wide_array")) {
        Loaded l(path);
        ASSERT_NE(l.db.tree(), nullptr) << path;
        const Node* n = find(*l.db.tree(), "wide");
        ASSERT_NE(n, nullptr) << path;
        EXPECT_FALSE(n->hasChildren()) << path;
        EXPECT_EQ(n->Unexpanded, kCutAddressSpace) << path;
        EXPECT_FALSE(n->IsLeaf) << path;
        EXPECT_TRUE(l.log.has("Array wide is not expanded: its elements would run past the 32-bit address space")) << path;
    }
    for (const auto& path : corpusFiles("bulk_array")) {
        Loaded l(path);
        ASSERT_NE(l.db.tree(), nullptr) << path;
        EXPECT_LT(l.db.tree()->arena.size(), 100000u) << path;
        const std::vector<Node*> last = symtree::findPath(l.db.tree()->arena, l.db.tree()->files, "bulk[16777215]");
        ASSERT_EQ(last.size(), 1u) << path;
        EXPECT_EQ(last[0]->Parent->ElementCount, 0x01000000u) << path;
        EXPECT_EQ(last[0]->Address, last[0]->Parent->Address + 4u * 16777215u) << path;
        EXPECT_EQ(last[0]->TypeID, kTypeU32) << path;
    }
}

TEST(HostileDebugInfo, ReferencesThatPointNowhereDropTheVariableNotTheUnit)
{
    for (const auto& path : corpusFiles("dangling_type")) {
        Loaded l(path);
        ASSERT_NE(l.db.tree(), nullptr) << path;
        EXPECT_EQ(find(*l.db.tree(), "dangling_far"), nullptr) << path;
        EXPECT_EQ(find(*l.db.tree(), "dangling_near"), nullptr) << path;
        EXPECT_TRUE(l.log.has("Variable dangling_far is left out")) << path;
        EXPECT_TRUE(l.log.has("Variable dangling_near is left out")) << path;
        EXPECT_FALSE(l.errors.has(elf::kErrCompileUnit)) << path;
    }
    for (const auto& path : corpusFiles("dangling_member")) {
        Loaded l(path);
        ASSERT_NE(l.db.tree(), nullptr) << path;
        EXPECT_NE(find(*l.db.tree(), "holder_var.kept"), nullptr) << path;
        EXPECT_EQ(find(*l.db.tree(), "holder_var.lost"), nullptr) << path;
        EXPECT_TRUE(l.log.has("A member of holder_var is left out")) << path;
    }
}

// The unit whose header cannot be read is skipped with a log line, and the
// walk goes on to the units after it.
TEST(HostileDebugInfo, AnUnreadableUnitHeaderSkipsOnlyThatUnit)
{
    for (const char* kind : {"broken_header", "all"})
        for (const auto& path : corpusFiles(kind)) {
            Loaded l(path);
            ASSERT_NE(l.db.tree(), nullptr) << path;
            EXPECT_EQ(find(*l.db.tree(), "broken_unit_var"), nullptr) << path;
            EXPECT_NE(find(*l.db.tree(), "intact_after_broken"), nullptr) << path;
            EXPECT_NE(find(*l.db.tree(), "intact_late.y"), nullptr) << path;
            EXPECT_TRUE(l.errors.has(elf::kErrCompileUnit)) << path;
            EXPECT_TRUE(l.log.has("is unreadable (version 9): that unit is skipped")) << path;
        }
}

// A unit length that runs past the section leaves no way to find the units
// after it: the walk ends there with a log line, the units before it stay.
TEST(HostileDebugInfo, AUnitLengthPastTheSectionEndsTheWalkThere)
{
    for (const auto& path : corpusFiles("broken_header")) {
        std::vector<unsigned char> image = testelf::readBytes(path);
        std::size_t section = 0;
        const std::vector<std::size_t> units = testelf::unitOffsets(image, section);
        std::size_t broken = 0;
        for (std::size_t u : units)
            if (image[section + u + 4] == 9)
                broken = section + u;
        ASSERT_NE(broken, 0u) << path;
        const std::uint32_t huge = 0xFFFFFF00u;
        std::memcpy(image.data() + broken, &huge, 4);
        Loaded l(testelf::writeTemp("hostile_broken_length.elf", image));
        ASSERT_NE(l.db.tree(), nullptr) << path;
        EXPECT_NE(find(*l.db.tree(), "intact_counter"), nullptr) << path;
        EXPECT_EQ(find(*l.db.tree(), "intact_after_broken"), nullptr) << path;
        EXPECT_TRUE(l.log.has("runs past the section: the units after it are not read")) << path;
    }
}
