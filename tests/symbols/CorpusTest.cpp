// The symbol tree of real firmware built by arm-none-eabi-gcc.
#include "TestElf.h"
#include "TreeWalk.h"

#include "files/Project.h"
#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTree.h"
#include "tests/TempFolder.h"

#include <gtest/gtest.h>

#include <map>

using testelf::corpus;

namespace {

const char* const kImages[] = {
    "shapes_c_dwarf4_O0.elf",   "shapes_c_dwarf4_Os.elf",   "shapes_c_dwarf5_O0.elf",   "shapes_c_dwarf5_Os.elf",
    "shapes_cpp_dwarf4_O0.elf", "shapes_cpp_dwarf4_Os.elf", "shapes_cpp_dwarf5_O0.elf", "shapes_cpp_dwarf5_Os.elf",
    "shapes_c_newlib.elf",
};

std::map<std::string, const Node*> byPath(SymbolTree& tree)
{
    std::map<std::string, const Node*> out;
    for (Node* f : tree.files)
        treewalk::forEach(tree.arena, f->Children, [&](Node& n) { out.emplace(n.NameWithParents, &n); });
    return out;
}

bool endsWith(std::string_view s, std::string_view tail) { return s.size() >= tail.size() && s.substr(s.size() - tail.size()) == tail; }

}  // namespace

TEST(Corpus, EveryImageLoadsWithItsDeclaringFiles)
{
    for (const char* image : kImages) {
        SCOPED_TRACE(image);
        testelf::ErrorCapture errors;
        SymbolDatabase db;
        ASSERT_EQ(db.parseElf(corpus(image), false, nullptr), 0);
        ASSERT_NE(db.tree(), nullptr);
        for (const auto& r : errors.records)
            EXPECT_EQ(r.code, 53) << r.message;
        const auto nodes = byPath(*db.tree());
        const bool cpp = std::string(image).find("cpp") != std::string::npos;
        if (cpp) {
            ASSERT_TRUE(nodes.count("motor::speed"));
            EXPECT_EQ(nodes.at("motor::speed")->Type, "int");
            EXPECT_TRUE(endsWith(nodes.at("motor::speed")->File, "/corpus/shapes.cpp"));
            ASSERT_TRUE(nodes.count("Derived::instances"));
            EXPECT_EQ(nodes.at("Derived::instances")->TypeID, 12);
            EXPECT_EQ(nodes.at("cpp_bool")->TypeID, 5);
            EXPECT_EQ(nodes.at("derived.enabled")->TypeID, 5);
            EXPECT_TRUE(nodes.count("derived.<Inherited>.id"));
            EXPECT_EQ(nodes.at("flags.level")->TypeID, 14);
            EXPECT_EQ(nodes.at("big")->TypeID, 13);
            EXPECT_EQ(nodes.at("points[3].y")->Type, "short int");
        } else {
            EXPECT_TRUE(endsWith(nodes.at("plain_int")->File, "/corpus/shapes.c"));
            EXPECT_TRUE(endsWith(nodes.at("header_counter")->File, "/corpus/shapes.h"));
            EXPECT_TRUE(endsWith(nodes.at("s[1].b")->File, "/corpus/shapes.h"));
            EXPECT_EQ(nodes.at("plain_char")->TypeID, 6);  // char is unsigned on ARM
            EXPECT_EQ(nodes.at("schar")->TypeID, 10);
            EXPECT_EQ(nodes.at("cbool")->TypeID, 5);
            EXPECT_EQ(nodes.at("u64")->TypeID, 9);
            EXPECT_EQ(nodes.at("m[1][2]")->Address, nodes.at("m[0][0]")->Address + 20);
            EXPECT_EQ(nodes.at("bits.delta")->TypeID, 14);
            EXPECT_EQ(nodes.at("bits.delta")->Size, 12u);
            EXPECT_EQ(nodes.at("const_char_ptr")->Type, "const char*");
            EXPECT_EQ(nodes.at("void_ptr")->Type, "void*");
            EXPECT_EQ(nodes.at("chained")->TypeID, 7);
            EXPECT_TRUE(nodes.count("calls"));  // function-local static
            EXPECT_FALSE(nodes.count("local"));  // automatic: no static address
            EXPECT_FALSE(nodes.count("step"));
            EXPECT_TRUE(nodes.count("deep.next.next.next.next.next.next.next.next.next.next.next.next.next.next.next.next."
                                    "next.next.next.next.next.next.next.next.next.next.next.next.next.next.next.v"));
        }
    }
}

// The builder extends each parent's path; every node's path must still be
// what a walk up its parents gives, array levels left out.
TEST(Corpus, PathsEqualTheWalkUpTheParents)
{
    for (const char* image : kImages) {
        SCOPED_TRACE(image);
        SymbolDatabase db;
        ASSERT_EQ(db.parseElf(corpus(image), false, nullptr), 0);
        std::size_t checked = 0;
        for (Node* f : db.tree()->files)
            treewalk::forEach(db.tree()->arena, f->Children, [&](Node& n) {
                if (!n.Type.empty()) {  // filled (nodes past the depth limit stay as created)
                    EXPECT_EQ(n.NameWithParents, symtree::nameWithParents(n));
                    ++checked;
                }
            });
        EXPECT_GT(checked, 40u);
    }
}

TEST(Corpus, BitFieldsSitAtTheSameBitInBothVersions)
{
    std::map<std::string, std::uint64_t> positions[2];
    const char* images[] = {"shapes_c_dwarf4_O0.elf", "shapes_c_dwarf5_O0.elf"};
    for (int i = 0; i < 2; ++i) {
        SymbolDatabase db;
        ASSERT_EQ(db.parseElf(corpus(images[i]), false, nullptr), 0);
        const auto nodes = byPath(*db.tree());
        const std::uint64_t start = nodes.at("bits")->Address;
        for (const char* name : {"bits.mode", "bits.level", "bits.delta", "bits.tail"}) {
            const Node* n = nodes.at(name);
            positions[i][name] = (n->Address - start) * 8 + n->BitOffset;
        }
    }
    EXPECT_EQ(positions[0], positions[1]);
    EXPECT_EQ(positions[1]["bits.mode"], 0u);
    EXPECT_EQ(positions[1]["bits.level"], 3u);
    EXPECT_EQ(positions[1]["bits.tail"], 64u);
}

TEST(Corpus, MatchingCarriesTheSelectionOver)
{
    SymbolDatabase db;
    Node* kept = db.createDetachedSymbol();
    {
        SymbolDatabase first;
        ASSERT_EQ(first.parseElf(corpus("shapes_c_dwarf5_O0.elf"), false, nullptr), 0);
        const Node* n = byPath(*first.tree()).at("nested.pair[1].b");
        kept->File = n->File;
        kept->Name = n->Name;
        kept->NameWithParents = n->NameWithParents;
        kept->Type = n->Type;
    }
    kept->Address = 0;  // addresses are not compared
    kept->symbol().HasGraphColor = true;
    kept->symbol().GraphColor = {10, 20, 30, 255};
    int row = 0;
    kept->symbol().TableRow = &row;
    Node* gone = db.createDetachedSymbol();
    gone->Name = gone->NameWithParents = "vanished";
    gone->Type = "int";
    db.setSelected({gone, kept});
    db.setSelectionChanged(false);

    ASSERT_EQ(db.parseElf(corpus("shapes_c_dwarf5_Os.elf"), true, nullptr), 0);
    ASSERT_EQ(db.selected().size(), 1u);
    const Node* now = db.selected()[0];
    EXPECT_NE(now, kept);
    EXPECT_EQ(now->NameWithParents, "nested.pair[1].b");
    EXPECT_NE(now->Address, 0u);
    EXPECT_TRUE(now->symbol().HasGraphColor);
    EXPECT_EQ(now->symbol().GraphColor, (Rgb{10, 20, 30, 255}));
    EXPECT_EQ(now->symbol().TableRow, &row);
    EXPECT_TRUE(db.selectionChanged());
    EXPECT_TRUE(db.matched().empty());
    EXPECT_NE(db.elfTime(), std::filesystem::file_time_type{});
}

// Elements of long arrays, picked and saved in a project, are made again when
// the project is opened, with their settings and in tree order.
TEST(Corpus, SelectedElementsOfLongArraysSurviveSavingAndOpening)
{
    const std::string project = (testtemp::folder() / "elements.plotvik").string();
    {
        SymbolDatabase db;
        ASSERT_EQ(db.parseElf(corpus("huge.elf"), false, nullptr), 0);
        std::vector<Node*> picked;
        for (const char* path : {"huge_c[499999]", "huge_a[7]"}) {
            const auto found = symtree::findPath(db.tree()->arena, db.tree()->files, path);
            ASSERT_EQ(found.size(), 1u) << path;
            picked.push_back(found[0]);
        }
        picked[0]->symbol().GraphColor = {1, 2, 3, 255};
        picked[0]->symbol().HasGraphColor = true;
        db.setSelected(picked);
        Project p;
        ProjectSettings s = p.settings();
        s.ElfFile = corpus("huge.elf");
        p.apply(s);
        ASSERT_EQ(SaveProject(project, p, db), 0);
    }
    SymbolDatabase db;
    Project p;
    ASSERT_EQ(LoadProject(project, p, db), 0);
    ASSERT_EQ(db.parseElf(corpus("huge.elf"), true, nullptr), 0);
    ASSERT_EQ(db.selected().size(), 2u);
    const Node* a = db.selected()[0];
    const Node* c = db.selected()[1];
    EXPECT_EQ(a->NameWithParents, "huge_a[7]");
    EXPECT_EQ(c->NameWithParents, "huge_c[499999]");
    EXPECT_EQ(a->Address, a->Parent->Address + 28);
    EXPECT_EQ(c->Address, c->Parent->Address + 4 * 499999u);
    EXPECT_EQ(c->TypeID, kTypeS32);
    EXPECT_TRUE(c->symbol().HasGraphColor);
    EXPECT_EQ(c->symbol().GraphColor, (Rgb{1, 2, 3, 255}));
    EXPECT_LT(db.tree()->arena.size(), 100u) << "the other elements are not made";
}

TEST(Corpus, UnreadableFileLeavesNoTree)
{
    SymbolDatabase db;
    ASSERT_EQ(db.parseElf(corpus("shapes_c_dwarf4_O0.elf"), false, nullptr), 0);
    testelf::ErrorCapture errors;
    EXPECT_EQ(db.parseElf(corpus("shapes_c.o"), false, nullptr), -1);
    EXPECT_EQ(db.tree(), nullptr);
    EXPECT_TRUE(errors.has(64));
}
