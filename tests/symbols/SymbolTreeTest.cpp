// The tree's rules on debug information built in memory.
#include "symbols/DebugInfo.h"
#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTree.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

namespace {

using elf::Die;
using elf::kNoDie;

// Every node from `first` down, depth first, array elements made in the arena.
void forEach(NodeArena& arena, Node* first, const std::function<void(Node&)>& visit)
{
    for (Node* n = first; n; n = n->Next) {
        visit(*n);
        forEach(arena, n->Children, visit);
        for (std::uint32_t i = 0; i < n->ElementCount; ++i)
            forEach(arena, arena.element(*n, i), visit);
    }
}

// Nodes below a filled variable (which has no siblings).
std::size_t countBelow(NodeArena& arena, Node& node)
{
    std::size_t count = 0;
    forEach(arena, &node, [&](Node&) { ++count; });
    return count - 1;
}

// A unit of hand-made DIE records. Every entry must be added before the
// first fill: the records cache pointers to each other.
class FakeDwarf {
public:
    FakeDwarf()
    {
        elf::Unit u;
        u.name = "main.c";
        u.compDir = "/src";
        u.files = {"main.c", "types.h"};
        info.m_units.push_back(u);
    }
    FakeDwarf(const FakeDwarf&) = delete;

    // An entry of `tag` naming `type` (kNoDie: none), of `size` bytes when not
    // 0, as the last child of `parent` (kNoDie: none).
    std::uint32_t entry(std::uint16_t tag, const char* name, std::uint32_t type, std::uint32_t size = 0,
                        std::uint32_t parent = kNoDie)
    {
        Die d;
        d.tag = tag;
        d.name = name;
        d.typeRef = type == kNoDie ? 0 : info.m_dies[type].offset;
        d.byteSize = size;
        d.hasByteSize = size != 0;
        d.offset = m_next++;
        const auto index = static_cast<std::uint32_t>(info.m_dies.size());
        info.m_dies.push_back(d);
        info.m_byOffset[d.offset] = index;
        std::uint32_t* link = parent == kNoDie ? nullptr : &info.m_dies[parent].firstChild;
        while (link && *link != kNoDie)
            link = &info.m_dies[*link].nextSibling;
        if (link)
            *link = index;
        return index;
    }
    Die& at(std::uint32_t index) { return info.m_dies[index]; }

    std::uint32_t base(const char* name, std::uint32_t size, std::uint8_t encoding)
    {
        const auto b = entry(0x24, name, kNoDie, size);
        at(b).encoding = encoding;
        return b;
    }
    std::uint32_t array(std::uint32_t element, std::initializer_list<std::int64_t> dims)
    {
        const auto a = entry(0x01, nullptr, element);
        for (auto n : dims) {
            const auto range = entry(0x21, nullptr, kNoDie, 0, a);
            at(range).upperBound = n - 1;
            at(range).hasUpper = true;
        }
        return a;
    }
    std::uint32_t member(std::uint32_t parent, const char* name, std::uint32_t type, std::uint32_t location)
    {
        const auto m = entry(0x0d, name, type, 0, parent);
        at(m).memberLocation = location;
        at(m).hasMemberLocation = true;
        return m;
    }
    std::uint32_t variable(const char* name, std::uint32_t type, std::uint32_t address)
    {
        const auto v = entry(0x34, name, type);
        at(v).address = address;
        at(v).hasAddress = at(v).hasDeclFile = true;
        return v;
    }

    // Fills a top-level node for the variable and returns it.
    Node* fill(std::uint32_t var)
    {
        symtree::Builder builder(info, arena, {});
        return fill(builder, var);
    }
    Node* fill(symtree::Builder& builder, std::uint32_t var)
    {
        Node* n = arena.create();
        builder.fill(&info.m_dies[var], *n, nullptr, 0, false);
        return n;
    }

    elf::DebugInfo info;
    NodeArena arena;

private:
    std::uint64_t m_next = 0x100;
};

}  // namespace

// A two-dimensional array of structures holding an array: its elements are
// made on demand, once, and equal field by field what the listing walk makes.
TEST(SymbolTree, ArrayElementsAreMadeOnDemand)
{
    FakeDwarf f;
    const auto i16 = f.base("short int", 2, 5);
    const auto u8 = f.base("unsigned char", 1, 8);
    const auto rec = f.entry(kTagStruct, "rec", kNoDie, 8);
    f.member(rec, "tag", u8, 0);
    f.member(rec, "v", f.array(i16, {3}), 2);
    Node* root = f.fill(f.variable("grid", f.array(rec, {4, 5}), 0x20000000));
    EXPECT_EQ(std::tie(root->IsArray, root->Dimensions, root->NumDimensions, root->Type, root->Size, root->TypeID,
                       root->IsLeaf, root->Children),
              std::tuple(true, std::vector<std::uint32_t>{4, 5}, 2u, "struct rec[4][5]", 160u, kTypeNone, false,
                         nullptr));
    ASSERT_EQ(root->ElementCount, 4u);
    const Node* g1 = f.arena.element(*root, 1);
    EXPECT_EQ(f.arena.element(*root, 1), g1) << "made once";
    EXPECT_EQ(std::tie(g1->Name, g1->Parent, g1->ElementCount, g1->IsArray), std::tuple("grid[1]", root, 5u, true));

    std::vector<const Node*> made;
    forEach(f.arena, root, [&](Node& n) { made.push_back(&n); });
    ASSERT_EQ(made.size(), 1u + 4 + 4 * 5 * (1 + 2 + 3));
    // The walk that lists makes the same nodes, one element at a time.
    const auto fields = [](const Node& n) {
        return std::tuple(n.Name, n.NameWithParents, n.Address, n.Type, n.Size, n.TypeID, n.IsLeaf, n.IsArray);
    };
    std::size_t i = 0;
    symtree::forEachNode(root, [&](const Node& n) {
        EXPECT_LT(i, made.size());
        if (i >= made.size())
            return false;
        const Node& m = *made[i++];
        EXPECT_EQ(fields(n), fields(m));
        EXPECT_EQ(n.NameWithParents, symtree::nameWithParents(n));
        // The walk's copy stands for the node the tree keeps.
        EXPECT_EQ(symtree::keep(f.arena, n), &m) << m.NameWithParents;
        return true;
    });
    EXPECT_EQ(i, made.size());
}

// What the listings and the array test do not show: an unnamed structure
// takes its typedef's name; a file number out of range gives the unit's name.
TEST(SymbolTree, TypeTextsAndDeclaringFiles)
{
    FakeDwarf f;
    const auto v = f.variable("v", f.entry(0x16, "point_t", f.entry(kTagStruct, nullptr, kNoDie, 4)), 0);
    f.at(v).declFile = 7;
    EXPECT_EQ(std::tuple(f.info.typeText(f.at(v)), f.info.declFile(f.at(v))),
              std::tuple("struct point_t", "/src/main.c"));
}

// An array costs the nodes of its first element whatever its length (the
// damaged corpus has one of sixteen million); long names cost more than one node.
TEST(SymbolTree, Budgets)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    const auto pair = f.entry(kTagStruct, "pair", kNoDie, 8);
    f.member(pair, "a", i32, 0);
    f.member(pair, "b", i32, 4);
    const auto small = f.variable("small", f.array(pair, {3, 2}), 0x100);     // 2 levels + 2 members
    const auto wide = f.variable("wide", f.array(pair, {10}), 0x200);         // 1 + 2
    const std::string longName(120, 'n');
    const auto rec = f.entry(kTagStruct, "r", kNoDie, 8);
    f.member(rec, longName.c_str(), i32, 0);
    f.member(rec, "short", i32, 4);
    const auto named = f.variable("v", rec, 0);

    symtree::Builder builder(f.info, f.arena, {}, symtree::TreeLimits{29, 200});
    Node* s = f.fill(builder, small);
    Node* w = f.fill(builder, wide);
    EXPECT_EQ(builder.nodes(), 4u + 3u);
    EXPECT_EQ(countBelow(f.arena, *s), 21u);
    bool found = false;
    forEach(f.arena, s, [&](Node& n) { found = found || n.NameWithParents == "small[2][1].b"; });
    EXPECT_TRUE(found);
    // More than the variable limit of 29, made on demand.
    EXPECT_EQ(std::tuple(countBelow(f.arena, *w), w->Unexpanded), std::tuple(30u, kCutNone));
    const std::uint64_t before = builder.nodes();
    EXPECT_EQ(countBelow(f.arena, *f.fill(builder, named)), 2u);
    EXPECT_EQ(builder.nodes() - before, 2u + 1u) << "name and path of 120 and 122 characters count once more";

    // A member that would break the budget is cut in the first element, and
    // so in every element.
    symtree::Builder tight(f.info, f.arena, {}, symtree::TreeLimits{2, 200});
    const Node* e = f.arena.element(*f.fill(tight, wide), 7);
    ASSERT_NE(e->Children, nullptr);
    EXPECT_EQ(std::tie(e->Unexpanded, e->Children->NameWithParents, e->Children->Next),
              std::tuple(kCutVariableBudget, "wide[7].a", nullptr));
}

// Damage a compiler does not make, beside that of the hostile corpus (loops,
// dangling references, arrays past the address space): an unreadable type
// reference, arrays whose elements would run past 4 GB from their address or
// whose size overflows any product.
TEST(SymbolTree, DamagedTypesAreCutOrLeftOut)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5), c8 = f.base("char", 1, 8);
    struct Row {
        std::uint32_t var;
        bool accepted;
        Cut cut;
        std::int32_t typeId;  // -1: no type at all
    };
    const Row rows[] = {
        {f.variable("ok", f.entry(0x35, nullptr, f.entry(0x16, "ok_t", i32)), 0x100), true, kCutNone, kTypeS32},
        {f.variable("unreadable", i32, 0x100), false, kCutNone, 0},
        {f.variable("none", kNoDie, 0x100), true, kCutNone, -1},  // no type at all is no damage
        {f.variable("past", f.array(i32, {4}), 0xFFFFFFF4u), true, kCutAddressSpace, kTypeNone},
        {f.variable("edge", f.array(i32, {3}), 0xFFFFFFF4u), true, kCutNone, kTypeNone},
        {f.variable("huge", f.array(c8, {0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF}), 0), true, kCutAddressSpace, kTypeNone},
    };
    f.at(rows[1].var).typeRef = 0;
    f.at(rows[1].var).badTypeRef = true;
    symtree::Builder builder(f.info, f.arena, {});
    for (const Row& r : rows) {
        const char* name = f.at(r.var).name;
        ASSERT_EQ(builder.accepts(f.at(r.var)), r.accepted) << name;
        if (!r.accepted)
            continue;
        Node* n = f.fill(r.var);
        EXPECT_EQ(std::tuple(n->Unexpanded, n->TypeID, n->Type.empty()),
                  std::tuple(r.cut, r.typeId < 0 ? kTypeNone : r.typeId, r.typeId < 0))
            << name;
        EXPECT_FALSE(r.typeId < 0 && n->Size != 0) << name;
        EXPECT_FALSE(r.cut != kCutNone && (n->hasChildren() || n->IsLeaf)) << name;
    }
    EXPECT_EQ(countBelow(f.arena, *f.fill(rows[4].var)), 3u) << "up to the last byte an array expands";
}
