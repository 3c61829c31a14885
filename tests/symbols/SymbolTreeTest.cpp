// The tree's rules on debug information built in memory.
#include "TreeWalk.h"
#include "symbols/DebugInfo.h"
#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTree.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <utility>

namespace {

using elf::Die;

// The arena of the newest FakeDwarf: the walks make array elements in it.
NodeArena* g_arena = nullptr;

// A unit of hand-made DIE records.
class FakeDwarf {
public:
    FakeDwarf()
    {
        m_previous = std::exchange(g_arena, &arena);
        elf::Unit u;
        u.name = "main.c";
        u.compDir = "/src";
        u.lineVersion = 5;
        u.files = {"main.c", "types.h"};
        info.m_units.push_back(u);
    }

    std::uint32_t add(Die d, std::uint32_t parent = elf::kNoDie)
    {
        d.offset = m_next++;
        const auto index = static_cast<std::uint32_t>(info.m_dies.size());
        info.m_dies.push_back(d);
        info.m_byOffset[d.offset] = index;
        if (parent != elf::kNoDie) {
            std::uint32_t* link = &info.m_dies[parent].firstChild;
            while (*link != elf::kNoDie)
                link = &info.m_dies[*link].nextSibling;
            *link = index;
        }
        return index;
    }
    std::uint64_t key(std::uint32_t index) const { return info.m_dies[index].offset; }
    const Die& die(std::uint32_t index) const { return info.m_dies[index]; }

    std::uint32_t base(const char* name, std::uint32_t size, std::uint8_t encoding)
    {
        Die d;
        d.tag = 0x24;
        d.name = name;
        d.byteSize = size;
        d.hasByteSize = true;
        d.encoding = encoding;
        return add(d);
    }
    std::uint32_t array(std::uint32_t element, std::initializer_list<std::int64_t> dims)
    {
        Die d;
        d.tag = 0x01;
        d.typeRef = key(element);
        const auto a = add(d);
        for (auto n : dims) {
            Die s;
            s.tag = 0x21;
            s.upperBound = n - 1;
            s.hasUpper = true;
            add(s, a);
        }
        return a;
    }
    std::uint32_t record(std::uint16_t tag, const char* name, std::uint32_t size)
    {
        Die d;
        d.tag = tag;
        d.name = name;
        d.byteSize = size;
        d.hasByteSize = true;
        return add(d);
    }
    std::uint32_t member(std::uint32_t parent, const char* name, std::uint32_t type, std::uint32_t location)
    {
        Die d;
        d.tag = 0x0d;
        d.name = name;
        d.typeRef = key(type);
        d.memberLocation = location;
        d.hasMemberLocation = true;
        return add(d, parent);
    }
    std::uint32_t pointer(std::uint32_t to)
    {
        Die d;
        d.tag = 0x0f;
        d.byteSize = 4;
        d.hasByteSize = true;
        d.typeRef = to == elf::kNoDie ? 0 : key(to);
        return add(d);
    }
    std::uint32_t qualifier(std::uint16_t tag, std::uint32_t to)
    {
        Die d;
        d.tag = tag;
        d.typeRef = key(to);
        return add(d);
    }
    std::uint32_t variable(const char* name, std::uint32_t type, std::uint32_t address)
    {
        Die d;
        d.tag = 0x34;
        d.name = name;
        d.typeRef = key(type);
        d.address = address;
        d.hasAddress = true;
        d.hasDeclFile = true;
        d.declFile = 0;
        return add(d);
    }

    // Fills a top-level node for the variable and returns it.
    Node* fill(std::uint32_t var, std::function<void(Node&)> hook = {}, const std::vector<std::string>& wanted = {})
    {
        symtree::Builder builder(info, arena, std::move(hook));
        builder.want(wanted);
        Node* n = arena.create();
        builder.fill(&info.m_dies[var], *n, nullptr, 0, false);
        return n;
    }

    elf::DebugInfo info;
    NodeArena arena;

    FakeDwarf(const FakeDwarf&) = delete;
    ~FakeDwarf() { g_arena = m_previous; }

private:
    std::uint64_t m_next = 0x100;
    NodeArena* m_previous = nullptr;
};

void leaves(Node* n, std::vector<const Node*>& out)
{
    treewalk::forEach(*g_arena, n, [&](Node& l) {
        if (l.IsLeaf)
            out.push_back(&l);
    });
}

const Node* findPath(Node* n, const std::string& path) { return treewalk::find(*g_arena, n, path); }

}  // namespace

TEST(SymbolTree, TwoDimensionalArray)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    const auto m = f.variable("m", f.array(i32, {2, 3}), 0x20000100);
    Node* root = f.fill(m);
    EXPECT_TRUE(root->IsArray);
    EXPECT_EQ(root->NumDimensions, 2u);
    EXPECT_EQ(root->Dimensions, (std::vector<std::uint32_t>{2, 3}));
    EXPECT_EQ(root->Type, "int[2][3]");
    EXPECT_EQ(root->Size, 24u);
    EXPECT_EQ(root->TypeID, 0);
    EXPECT_FALSE(root->IsLeaf);
    EXPECT_EQ(root->Children, nullptr) << "elements are made on demand";
    ASSERT_EQ(root->ElementCount, 2u);
    const Node* m1 = f.arena.element(*root, 1);
    EXPECT_TRUE(m1->IsArray);
    EXPECT_EQ(m1->Name, "m[1]");
    EXPECT_EQ(m1->Parent, root);
    EXPECT_EQ(m1->ElementCount, 3u);
    EXPECT_EQ(f.arena.element(*root, 1), m1) << "made once";
    std::vector<const Node*> out;
    leaves(root, out);
    ASSERT_EQ(out.size(), 6u);
    const Node* last = out.back();
    EXPECT_EQ(last->Name, "m[1][2]");
    EXPECT_EQ(last->NameWithParents, "m[1][2]");
    EXPECT_EQ(last->Address, 0x20000100u + 20);
    EXPECT_EQ(last->TypeID, 12);
    EXPECT_EQ(last->MaxValue, 2147483647.0);
    EXPECT_EQ(out[1]->Address, 0x20000104u);
}

TEST(SymbolTree, ArrayOfStructures)
{
    FakeDwarf f;
    const auto i16 = f.base("short int", 2, 5);
    const auto u8 = f.base("unsigned char", 1, 8);
    const auto st = f.record(0x13, "pt", 8);
    f.member(st, "tag", u8, 0);
    f.member(st, "x", i16, 4);
    const auto s = f.variable("s", f.array(st, {3}), 0x1000);
    Node* root = f.fill(s);
    const Node* x = findPath(root, "s[2].x");
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(x->Address, 0x1000u + 2 * 8 + 4);
    EXPECT_EQ(x->TypeID, 11);
    EXPECT_EQ(x->Type, "short int");
    const Node* tag = findPath(root, "s[0].tag");
    ASSERT_NE(tag, nullptr);
    EXPECT_EQ(tag->TypeID, 6);
    EXPECT_EQ(findPath(root, "s.s[2].x"), nullptr);  // the array node is left out of paths
    const Node* element = findPath(root, "s[1]");
    ASSERT_NE(element, nullptr);
    EXPECT_EQ(element->Type, "struct pt");
    EXPECT_FALSE(element->IsLeaf);
}

TEST(SymbolTree, NestingStopsAtDepth33)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    // l0 { int v; l1 next; } ... l34 { int v; }
    std::vector<std::uint32_t> levels(35);
    levels[34] = f.record(0x13, "l34", 4);
    f.member(levels[34], "v", i32, 0);
    for (int i = 33; i >= 0; --i) {
        levels[static_cast<std::size_t>(i)] = f.record(0x13, "l", static_cast<std::uint32_t>(4 * (35 - i)));
        f.member(levels[static_cast<std::size_t>(i)], "v", i32, 0);
        f.member(levels[static_cast<std::size_t>(i)], "next", levels[static_cast<std::size_t>(i + 1)], 4);
    }
    Node* root = f.fill(f.variable("deep", levels[0], 0x2000));
    const Node* n = root;
    int depth = 0;
    while (n->Children && n->Children->Next && !n->Children->Next->Name.empty()) {
        n = n->Children->Next;  // "next"
        ++depth;
    }
    // Depth 32 is filled and has two empty children at depth 33.
    EXPECT_EQ(depth, 32);
    EXPECT_EQ(n->Name, "next");
    EXPECT_EQ(n->TypeID, 0);
    EXPECT_FALSE(n->IsLeaf);
    EXPECT_EQ(n->Address, 0x2000u + 32 * 4);
    const Node* empty = n->Children;
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(empty->Name.empty());
    EXPECT_FALSE(empty->IsLeaf);
    EXPECT_EQ(empty->Parent, n);
    EXPECT_TRUE(empty->NameWithParents.empty());
    const Node* v = n->Parent->Children;  // "v" at depth 32
    EXPECT_TRUE(v->IsLeaf);
    EXPECT_EQ(v->TypeID, 12);
}

TEST(SymbolTree, BitFieldOfTwelveByteStructure)
{
    FakeDwarf f;
    const auto u32 = f.base("unsigned int", 4, 8);
    const auto st = f.record(0x13, "flags", 12);
    f.member(st, "word", u32, 4);
    Die bf;
    bf.tag = 0x0d;
    bf.name = "mode";
    bf.typeRef = f.key(u32);
    bf.hasBitSize = true;
    bf.bitSize = 3;
    bf.hasDataBitOffset = true;
    bf.dataBitOffset = 69;
    f.add(bf, st);
    Node* root = f.fill(f.variable("bits", st, 0x3000));
    const Node* mode = findPath(root, "bits.mode");
    ASSERT_NE(mode, nullptr);
    EXPECT_EQ(mode->TypeID, 14);
    EXPECT_EQ(mode->Size, 12u);
    EXPECT_EQ(mode->Address, 0x3000u);
    EXPECT_EQ(mode->BitSize, 3u);
    EXPECT_EQ(mode->BitOffset, 69u);
    EXPECT_TRUE(mode->IsLeaf);
    EXPECT_EQ(findPath(root, "bits.word")->TypeID, 8);
}

TEST(SymbolTree, InheritedClassPart)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    const auto base = f.record(0x02, "Base", 4);
    f.member(base, "id", i32, 0);
    const auto derived = f.record(0x02, "Derived", 8);
    f.member(derived, "gain", i32, 4);
    Die inh;
    inh.tag = 0x1c;
    inh.typeRef = f.key(base);
    inh.hasMemberLocation = true;
    f.add(inh, derived);
    Node* root = f.fill(f.variable("d", derived, 0x4000));
    ASSERT_NE(root->Children, nullptr);
    EXPECT_EQ(root->Children->Name, "gain");  // members first, then bases
    const Node* id = findPath(root, "d.<Inherited>.id");
    ASSERT_NE(id, nullptr);
    EXPECT_EQ(id->Address, 0x4000u);
    EXPECT_EQ(root->Type, "class Derived");
}

TEST(SymbolTree, Classification)
{
    struct Case {
        const char* type;
        std::uint32_t size;
        bool isSigned;
        int typeId;
        double max;
    };
    const Case cases[] = {
        {"char", 1, false, 6, 255.0},       {"char", 1, true, 10, 127.0},
        {"bool", 2, false, 7, 65535.0},     {"_BOOL", 1, true, 5, 1.0},
        {"bool", 1, false, 5, 1.0},         {"FLOAT", 4, false, 1, 3.4028234663852886e38},
        {"float32_t", 4, false, 8, 4294967295.0}, {"double", 8, false, 2, 1.7976931348623157e308},
        {"long long int", 8, true, 13, 9223372036854775808.0},
        {"long long unsigned int", 8, false, 9, 18446744073709551616.0},
        {"short int", 2, true, 11, 32767.0}, {"struct x", 12, false, 0, 0.0},
    };
    for (const auto& c : cases) {
        Node n;
        n.Type = c.type;
        n.Size = c.size;
        n.IsSigned = c.isSigned;
        symtree::classify(n);
        EXPECT_EQ(n.TypeID, c.typeId) << c.type << " " << c.size;
        EXPECT_EQ(n.MaxValue, c.max) << c.type;
        EXPECT_TRUE(n.IsLeaf);
    }
    Node parent, child;
    parent.Size = 4;
    parent.Children = &child;
    symtree::classify(parent);
    EXPECT_EQ(parent.TypeID, 0);
    EXPECT_FALSE(parent.IsLeaf);
    Node bits;
    bits.TypeID = 14;
    bits.Size = 4;
    symtree::classify(bits);
    EXPECT_EQ(bits.TypeID, 14);
    EXPECT_EQ(bits.MaxValue, 0.0);
}

TEST(SymbolTree, TypeTexts)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    const auto chr = f.base("char", 1, 8);
    const auto foo = f.record(0x13, "foo", 8);
    struct Case {
        std::uint32_t type;
        const char* text;
    };
    const Case cases[] = {
        {f.array(i32, {3, 4}), "int[3][4]"},
        {f.pointer(foo), "struct foo*"},
        {f.pointer(f.qualifier(0x26, chr)), "const char*"},
        {f.qualifier(0x26, f.pointer(chr)), "const char*"},
        {f.pointer(elf::kNoDie), "void*"},
        {f.qualifier(0x35, i32), "volatile int"},
        {f.qualifier(0x37, f.pointer(i32)), "int* restrict"},
    };
    for (const auto& c : cases) {
        const auto v = f.variable("v", c.type, 0);
        EXPECT_EQ(f.info.typeText(f.die(v)), c.text);
    }
    // An unnamed structure takes the typedef's name.
    Die td;
    td.tag = 0x16;
    td.name = "point_t";
    td.typeRef = f.key(f.record(0x13, nullptr, 4));
    const auto tdi = f.add(td);
    EXPECT_EQ(f.info.typeText(f.die(f.variable("p", tdi, 0))), "struct point_t");
}

TEST(SymbolTree, DeclaringFile)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    auto v = f.variable("a", i32, 0);
    f.info.m_dies[v].declFile = 1;  // version-5 line table: 0-based
    EXPECT_EQ(f.info.declFile(f.die(v)), "/src/types.h");
    auto w = f.variable("b", i32, 0);
    f.info.m_dies[w].declFile = 7;  // out of range: the unit's own name
    EXPECT_EQ(f.info.declFile(f.die(w)), "/src/main.c");
    f.info.m_units[0].lineVersion = 3;  // 1-based numbering
    auto x = f.variable("c", i32, 0);
    f.info.m_dies[x].declFile = 2;
    EXPECT_EQ(f.info.declFile(f.die(x)), "/src/types.h");
}

TEST(SymbolTree, MatchesFoldsCaseOnEveryField)
{
    const auto make = [](const char* file, const char* name, const char* path, const char* type) {
        auto n = std::make_unique<Node>();
        n->File = file;
        n->Name = name;
        n->NameWithParents = path;
        n->Type = type;
        return n;
    };
    const auto a = make("/src/Main.c", "speed", "motor.speed", "int");
    auto b = make("/SRC/main.C", "SPEED", "Motor.Speed", "INT");
    b->Address = 2;
    b->Size = 8;
    b->TypeID = 13;
    EXPECT_TRUE(symtree::matches(*a, *b));
    EXPECT_FALSE(symtree::matches(*a, *make("/src/Main.c", "speed", "motor.speed", "long int")));
    EXPECT_FALSE(symtree::matches(*a, *make("/src/Main.c", "speed", "other.speed", "int")));
    EXPECT_FALSE(symtree::matches(*a, *make("/src/Main.c", "speed2", "motor.speed", "int")));
    EXPECT_FALSE(symtree::matches(*a, *make("/src/other.c", "speed", "motor.speed", "int")));
    EXPECT_FALSE(symtree::matches(*a, *make("/src/Main.c", "speed", "motor.speed", "int ")));
}

// The hook sees the nodes of the tree and the elements that wanted paths
// name or lie in, each after the nodes below it.
TEST(SymbolTree, HookSeesTheTreeAndTheWantedElementsInTreeOrder)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    const auto pair = f.record(kTagStruct, "pair", 8);
    f.member(pair, "a", i32, 0);
    f.member(pair, "b", i32, 4);
    // Every entry first: the records cache pointers to each other.
    const auto m = f.variable("m", f.array(i32, {2, 2}), 0);
    const auto s = f.variable("s", f.array(pair, {3}), 0);
    std::vector<std::string> seen;
    const auto hook = [&](Node& n) { seen.push_back(n.NameWithParents); };
    f.fill(m, hook);
    EXPECT_EQ(seen, (std::vector<std::string>{"m"}));
    seen.clear();
    f.fill(m, hook, {"M[1][0]", "m[0][1]", "m[1][0]", "m[2][0]", "m[0]x", "other[0]"});
    EXPECT_EQ(seen, (std::vector<std::string>{"m[0][1]", "m[0]", "m[1][0]", "m[1]", "m"}));
    seen.clear();
    f.fill(s, hook, {"s[2].b"});
    EXPECT_EQ(seen, (std::vector<std::string>{"s[2].a", "s[2].b", "s[2]", "s"}));
}

// Elements made on demand equal, field by field, what the builder would have
// made for each: a two-dimensional array of structures holding an array.
TEST(SymbolTree, ElementsMadeOnDemandAreWhatTheBuilderMakes)
{
    FakeDwarf f;
    const auto i16 = f.base("short int", 2, 5);
    const auto u8 = f.base("unsigned char", 1, 8);
    const auto rec = f.record(kTagStruct, "rec", 8);
    f.member(rec, "tag", u8, 0);
    f.member(rec, "v", f.array(i16, {3}), 2);
    const auto grid = f.variable("grid", f.array(rec, {4, 5}), 0x20000000);
    Node* root = f.fill(grid);
    std::vector<const Node*> made;
    treewalk::forEach(f.arena, root, [&](Node& n) { made.push_back(&n); });
    ASSERT_EQ(made.size(), 1u + 4 + 4 * 5 * (1 + 2 + 3));
    // The walk that lists makes the same nodes, one element at a time.
    std::size_t i = 0;
    symtree::forEachNode(root, [&](const Node& n) {
        EXPECT_LT(i, made.size());
        if (i >= made.size())
            return false;
        const Node& m = *made[i++];
        EXPECT_EQ(n.Name, m.Name);
        EXPECT_EQ(n.NameWithParents, m.NameWithParents);
        EXPECT_EQ(n.NameWithParents, symtree::nameWithParents(n));
        EXPECT_EQ(n.Address, m.Address) << m.NameWithParents;
        EXPECT_EQ(n.Type, m.Type);
        EXPECT_EQ(n.Size, m.Size);
        EXPECT_EQ(n.TypeID, m.TypeID);
        EXPECT_EQ(n.IsLeaf, m.IsLeaf);
        EXPECT_EQ(n.IsArray, m.IsArray);
        // The walk's copy stands for the node the tree keeps.
        EXPECT_EQ(symtree::keep(f.arena, n), &m) << m.NameWithParents;
        return true;
    });
    EXPECT_EQ(i, made.size());
    const Node* v = findPath(root, "grid[3][4].v[2]");
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->Address, 0x20000000u + (3 * 5 + 4) * 8 + 2 + 2 * 2);
    EXPECT_EQ(v->TypeID, kTypeS16);
    EXPECT_EQ(findPath(root, "grid[1][2].tag")->Address, 0x20000000u + 7 * 8);
    EXPECT_EQ(made[1]->Name, "grid[0]");
    EXPECT_EQ(made[2]->Name, "grid[0][0]");
    EXPECT_EQ(made[3]->NameWithParents, "grid[0][0].tag");
}

namespace {
std::size_t countBelow(const Node* n)
{
    std::size_t count = 0;
    for (const Node* c = n->Children; c; c = c->Next)
        count += 1 + countBelow(c);
    return count;
}
}  // namespace

// An array costs the nodes of its first element whatever its length: its
// elements are made on demand, so arrays of any length fit the budgets.
TEST(SymbolTree, ArraysCostTheirFirstElement)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    const auto pair = f.record(kTagStruct, "pair", 8);
    f.member(pair, "a", i32, 0);
    f.member(pair, "b", i32, 4);
    const auto small = f.variable("small", f.array(pair, {3, 2}), 0x100);       // 2 levels + 2 members
    const auto wide = f.variable("wide", f.array(pair, {10}), 0x200);           // 1 + 2
    const auto flat = f.variable("flat", f.array(i32, {0x3FFFFF00}), 0x300);    // 1

    symtree::Builder builder(f.info, f.arena, {}, symtree::TreeLimits{29, 200});
    const auto fill = [&](std::uint32_t var) {
        Node* n = f.arena.create();
        builder.fill(&f.info.m_dies[var], *n, nullptr, 0, false);
        return n;
    };
    Node* s = fill(small);
    Node* w = fill(wide);
    const Node* l = fill(flat);
    EXPECT_EQ(builder.nodes(), 4u + 3u + 1u);
    EXPECT_EQ(treewalk::countBelow(f.arena, *s), 21u);
    EXPECT_NE(findPath(s, "small[2][1].b"), nullptr);
    EXPECT_EQ(treewalk::countBelow(f.arena, *w), 30u) << "more than the variable limit of 29, made on demand";
    EXPECT_EQ(w->Unexpanded, kCutNone);
    EXPECT_EQ(l->ElementCount, 0x3FFFFF00u);
    EXPECT_FALSE(l->IsLeaf);

    // A member that would break the budget is cut in the first element, and
    // so in every element.
    symtree::Builder tight(f.info, f.arena, {}, symtree::TreeLimits{2, 200});
    Node* cut = f.arena.create();
    tight.fill(&f.info.m_dies[wide], *cut, nullptr, 0, false);
    const Node* e = f.arena.element(*cut, 7);
    EXPECT_EQ(e->Unexpanded, kCutVariableBudget);
    ASSERT_NE(e->Children, nullptr);
    EXPECT_EQ(e->Children->NameWithParents, "wide[7].a");
    EXPECT_EQ(e->Children->Next, nullptr);

    // Sizes that overflow any product are refused, not wrapped.
    FakeDwarf g;
    const auto c = g.base("char", 1, 8);
    const Node* huge = g.fill(g.variable("huge", g.array(c, {0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF}), 0));
    EXPECT_FALSE(huge->hasChildren());
    EXPECT_EQ(huge->Unexpanded, kCutAddressSpace);
}

// Structures that contain themselves, through a damaged reference, expand by
// the depth rule only until their variable's share is spent; the variable
// after them is whole.
TEST(SymbolTree, SelfContainingStructuresStopAtTheirVariablesShare)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    const auto knot = f.record(kTagStruct, "knot", 12);
    f.member(knot, "left", knot, 0);
    f.member(knot, "right", knot, 4);
    f.member(knot, "value", i32, 8);
    const auto pair = f.record(kTagStruct, "pair", 8);
    f.member(pair, "a", i32, 0);
    f.member(pair, "b", i32, 4);
    const auto k = f.variable("k", knot, 0x100);
    const auto p = f.variable("p", pair, 0x200);

    symtree::Builder builder(f.info, f.arena, {}, symtree::TreeLimits{1000, 4000});
    Node* kn = f.arena.create();
    builder.fill(&f.info.m_dies[k], *kn, nullptr, 0, false);
    // Deep paths count a little more than one node each.
    EXPECT_GT(countBelow(kn), 500u);
    EXPECT_LE(builder.nodes(), 1001u);
    EXPECT_EQ(kn->TypeID, kTypeNone);
    // Down to the depth limit along the first member.
    std::string deep = "k";
    for (std::uint32_t d = 1; d < symtree::kMaxDepth; ++d)
        deep += ".left";
    EXPECT_NE(findPath(kn, deep), nullptr);
    // Structures left without members are nothing to sample.
    std::vector<const Node*> out;
    leaves(kn, out);
    for (const Node* n : out)
        EXPECT_NE(n->Tag, static_cast<std::uint32_t>(kTagStruct)) << n->NameWithParents;
    Node* pn = f.arena.create();
    builder.fill(&f.info.m_dies[p], *pn, nullptr, 0, false);
    EXPECT_EQ(countBelow(pn), 2u);
    EXPECT_NE(findPath(pn, "p.b"), nullptr);
}

// Long names count against the budget too: deep paths of long names cost
// memory the node count alone would not see.
TEST(SymbolTree, LongPathsCountMoreThanOneNode)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    const std::string longName(120, 'n');
    const auto rec = f.record(kTagStruct, "r", 8);
    f.member(rec, longName.c_str(), i32, 0);
    f.member(rec, "short", i32, 4);
    symtree::Builder builder(f.info, f.arena, {}, symtree::TreeLimits{100, 400});
    Node* n = f.arena.create();
    builder.fill(&f.info.m_dies[f.variable("v", rec, 0)], *n, nullptr, 0, false);
    EXPECT_EQ(countBelow(n), 2u);
    EXPECT_EQ(builder.nodes(), 2u + 1u) << "name and path of 120 and 122 characters count once more";
}

// Typedef and qualifier chains that come back to themselves leave the symbol
// without a type; an array of such elements is not expanded.
TEST(SymbolTree, TypeChainsThatComeBackLeaveNoType)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    const auto td = f.qualifier(0x16, i32);
    const auto cv = f.qualifier(0x26, td);
    f.info.m_dies[td].typeRef = f.key(cv);  // typedef -> const -> typedef ...
    const auto self = f.qualifier(0x16, i32);
    f.info.m_dies[self].typeRef = f.key(self);
    // Every entry first: the records cache pointers to each other.
    const auto viaCv = f.variable("v", cv, 0x100), viaSelf = f.variable("v", self, 0x100);
    const auto arr = f.variable("a", f.array(self, {4}), 0x100);
    const auto ok = f.variable("ok", f.qualifier(0x35, f.qualifier(0x16, i32)), 0x100);
    for (const auto v : {viaCv, viaSelf}) {
        Node* n = f.fill(v);
        EXPECT_EQ(f.info.typeTrouble(f.die(v)), elf::DebugInfo::TypeTrouble::Loop);
        EXPECT_TRUE(n->Type.empty());
        EXPECT_EQ(n->Tag, 0u);
        EXPECT_EQ(n->Size, 0u);
        EXPECT_EQ(n->TypeID, kTypeNone);
    }
    Node* a = f.fill(arr);
    EXPECT_EQ(a->Children, nullptr);
    EXPECT_EQ(a->Unexpanded, kCutTypeTrouble);
    EXPECT_FALSE(a->IsLeaf);
    // A chain that ends properly is no trouble.
    EXPECT_EQ(f.info.typeTrouble(f.die(ok)), elf::DebugInfo::TypeTrouble::None);
    EXPECT_EQ(f.fill(ok)->TypeID, kTypeS32);
}

// Arrays whose elements would run past 4 GB are not expanded, whatever the
// budget; up to the last byte they are.
TEST(SymbolTree, ArraysPastTheAddressSpaceStayUnexpanded)
{
    // Every entry first: the records cache pointers to each other.
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    const auto c8 = f.base("char", 1, 8);
    const auto pastVar = f.variable("past", f.array(i32, {4}), 0xFFFFFFF4u);
    const auto edgeVar = f.variable("edge", f.array(i32, {3}), 0xFFFFFFF4u);
    const auto wideVar = f.variable("wide", f.array(c8, {0x10000, 0x10001}), 0);
    const Node* past = f.fill(pastVar);
    EXPECT_EQ(past->Children, nullptr);
    EXPECT_EQ(past->Unexpanded, kCutAddressSpace);
    Node* edge = f.fill(edgeVar);
    EXPECT_EQ(treewalk::countBelow(f.arena, *edge), 3u);
    EXPECT_EQ(edge->Unexpanded, kCutNone);
    EXPECT_EQ(f.fill(wideVar)->Unexpanded, kCutAddressSpace);
}

// A reference that names no entry drops that variable or member.
TEST(SymbolTree, DanglingReferencesDropTheVariableOrMember)
{
    FakeDwarf f;
    const auto i32 = f.base("int", 4, 5);
    const auto rec = f.record(kTagStruct, "r", 8);
    f.member(rec, "kept", i32, 0);
    const auto lost = f.member(rec, "lost", i32, 4);
    f.info.m_dies[lost].typeRef = 0x7FFFFFF0;
    const auto unreadable = f.variable("unreadable", i32, 0x100);
    f.info.m_dies[unreadable].typeRef = 0;
    f.info.m_dies[unreadable].badTypeRef = true;
    const auto far = f.variable("far", i32, 0x100);
    f.info.m_dies[far].typeRef = 0x7FFFFFF0;
    const auto brokenTypedef = f.qualifier(0x16, i32);
    f.info.m_dies[brokenTypedef].typeRef = 0x7FFFFFF0;
    const auto viaTypedef = f.variable("via", brokenTypedef, 0x100);
    const auto none = f.variable("none", i32, 0x100);
    f.info.m_dies[none].typeRef = 0;  // no type at all is no damage
    const auto v = f.variable("v", rec, 0x200);

    NodeArena arena;
    symtree::Builder builder(f.info, arena, {});
    EXPECT_FALSE(builder.accepts(f.die(unreadable)));
    EXPECT_FALSE(builder.accepts(f.die(far)));
    EXPECT_FALSE(builder.accepts(f.die(viaTypedef)));
    EXPECT_TRUE(builder.accepts(f.die(none)));
    ASSERT_TRUE(builder.accepts(f.die(v)));
    Node* n = f.fill(v);
    EXPECT_NE(findPath(n, "v.kept"), nullptr);
    EXPECT_EQ(findPath(n, "v.lost"), nullptr);
}
