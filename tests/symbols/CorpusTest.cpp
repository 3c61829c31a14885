// The symbol tree of real firmware built by arm-none-eabi-gcc (what each leaf
// holds is pinned by the listings, ListingTest).
#include "TestElf.h"

#include "files/Project.h"
#include "symbols/SymbolTree.h"
#include "tests/TempFolder.h"

#include <gtest/gtest.h>

using testelf::corpus;

// Elements of long arrays, picked and saved in a project, are made again when
// the project is opened, with their settings and in tree order.
TEST(Corpus, SelectedElementsOfLongArraysSurviveSavingAndOpening)
{
    const std::string project = (testtemp::folder() / "elements.plotvik").string();
    {
        testelf::Parsed p(corpus("huge.elf"));
        std::vector<Node*> picked;
        for (const char* path : {"huge_c[499999]", "huge_a[7]"}) {
            picked.push_back(const_cast<Node*>(p.find(path)));
            ASSERT_NE(picked.back(), nullptr) << path;
        }
        picked[0]->symbol().GraphColor = {1, 2, 3, 255};
        picked[0]->symbol().HasGraphColor = true;
        p.db.setSelected(picked);
        ASSERT_EQ(SaveProject(project, Project(), p.db), 0);  // the ELF file is parsed below by its path
    }
    SymbolDatabase db;
    Project p;
    ASSERT_EQ(LoadProject(project, p, db), 0);
    ASSERT_EQ(db.parseElf(corpus("huge.elf"), true, nullptr), 0);
    ASSERT_EQ(db.selected().size(), 2u);
    const Node* a = db.selected()[0];
    const Node* c = db.selected()[1];
    EXPECT_EQ(std::tie(a->NameWithParents, a->Address), std::tuple("huge_a[7]", a->Parent->Address + 28));
    EXPECT_EQ(std::tie(c->NameWithParents, c->Address, c->TypeID, c->symbol().HasGraphColor, c->symbol().GraphColor),
              std::tuple("huge_c[499999]", c->Parent->Address + 4 * 499999u, kTypeS32, true, Rgb{1, 2, 3, 255}));
    EXPECT_LT(db.tree()->arena.size(), 100u) << "the other elements are not made";
}

// A failed parse drops the tree of the file before: no stale addresses to sample.
TEST(Corpus, UnreadableFileLeavesNoTree)
{
    SymbolDatabase db;
    ASSERT_EQ(db.parseElf(corpus("shapes_c_dwarf4_O0.elf"), false, nullptr), 0);
    testelf::ErrorCapture errors;
    EXPECT_EQ(db.parseElf(corpus("shapes_c.o"), false, nullptr), -1);
    EXPECT_EQ(db.tree(), nullptr);
    EXPECT_TRUE(errors.has(elf::kErrNotExecutable));
}

// With FloatByEncoding every base type of a floating-point encoding samples
// as a float, whatever qualifiers or typedef names stand around it (the
// listing pins the default, by the type text). The rule is taken when a parse
// starts: elements made later keep it.
TEST(Corpus, FloatTypeIdsFollowTheRuleOfTheParse)
{
    const std::pair<const char*, std::int32_t> cases[] = {
        {"plain_float", kTypeFloat},  {"plain_double", kTypeDouble}, {"isr_level", kTypeFloat},
        {"calibration", kTypeFloat},  {"gain", kTypeFloat},          {"shared_gain", kTypeFloat},
        {"cv_double", kTypeDouble},   {"isr_count", kTypeS32},       {"filter.state", kTypeFloat},
        {"filter.coefficients[1]", kTypeFloat},
    };
    struct Restore {
        ~Restore() { symtree::setFloatByEncoding(false); }
    } restore;
    testelf::Parsed byText(corpus("floats.elf"));
    symtree::setFloatByEncoding(true);
    testelf::Parsed byEncoding(corpus("floats.elf"));
    for (const auto& [path, typeId] : cases) {
        const Node* n = byEncoding.find(path);
        ASSERT_NE(n, nullptr) << path;
        EXPECT_EQ(std::tuple(n->IsLeaf, n->TypeID), std::tuple(true, typeId)) << path;
    }
    const Node* later = byText.find("filter.coefficients[1]");
    EXPECT_EQ(later ? later->TypeID : kTypeNone, kTypeS32) << "made after the rule changed";
}
