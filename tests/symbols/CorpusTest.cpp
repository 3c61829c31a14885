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
        Project project1;
        ProjectSettings s = project1.settings();
        s.ElfFile = corpus("huge.elf");
        project1.apply(s);
        ASSERT_EQ(SaveProject(project, project1, p.db), 0);
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

TEST(Corpus, UnreadableFileLeavesNoTree)
{
    SymbolDatabase db;
    ASSERT_EQ(db.parseElf(corpus("shapes_c_dwarf4_O0.elf"), false, nullptr), 0);
    testelf::ErrorCapture errors;
    EXPECT_EQ(db.parseElf(corpus("shapes_c.o"), false, nullptr), -1);
    EXPECT_EQ(db.tree(), nullptr);
    EXPECT_TRUE(errors.has(elf::kErrNotExecutable));
}

// By default only the type texts "float" and "double" sample as floats; with
// FloatByEncoding every base type of a floating-point encoding does, whatever
// qualifiers or typedef names stand around it. The rule is taken when a parse
// starts.
TEST(Corpus, FloatTypeIdsFollowTheRuleOfTheParse)
{
    const struct {
        const char* path;
        std::int32_t byText;
        std::int32_t byEncoding;
    } cases[] = {
        {"plain_float", kTypeFloat, kTypeFloat},
        {"plain_double", kTypeDouble, kTypeDouble},
        {"isr_level", kTypeS32, kTypeFloat},        // volatile float
        {"calibration", kTypeS32, kTypeFloat},      // const float
        {"gain", kTypeFloat, kTypeFloat},           // typedef of float: its text reads "float"
        {"shared_gain", kTypeS32, kTypeFloat},      // typedef of a volatile typedef of float
        {"cv_double", kTypeS64, kTypeDouble},       // const volatile double
        {"isr_count", kTypeS32, kTypeS32},          // volatile int stays an integer
        {"filter.state", kTypeS32, kTypeFloat},     // a member
        {"filter.coefficients[1]", kTypeS32, kTypeFloat},  // an array element
    };
    struct Restore {
        ~Restore() { symtree::setFloatByEncoding(false); }
    } restore;
    testelf::Parsed byText(corpus("floats.elf"));
    symtree::setFloatByEncoding(true);  // a tree already built stays as it is
    testelf::Parsed byEncoding(corpus("floats.elf"));
    for (const auto& c : cases) {
        for (auto [p, expected] : {std::pair{&byText, c.byText}, std::pair{&byEncoding, c.byEncoding}}) {
            const Node* n = p->find(c.path);
            ASSERT_NE(n, nullptr) << c.path;
            EXPECT_EQ(std::tuple(n->IsLeaf, n->TypeID), std::tuple(true, expected))
                << c.path << (p == &byText ? " by type text" : " by encoding");
            EXPECT_TRUE(expected != kTypeFloat || n->MaxValue == 3.4028234663852886e38) << c.path;
            EXPECT_TRUE((expected != kTypeFloat && expected != kTypeDouble) || n->IsSigned) << c.path;
        }
    }
}
