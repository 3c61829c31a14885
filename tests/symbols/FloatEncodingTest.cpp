// The two rules for floating-point variables: by default only the type texts
// "float" and "double" sample as floats; with FloatByEncoding every base type
// of a floating-point encoding does, whatever qualifiers or typedef names
// stand around it.
#include "TestElf.h"

#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTree.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Restores the program-wide rule when the test ends.
struct FloatRule {
    explicit FloatRule(bool on) { symtree::setFloatByEncoding(on); }
    ~FloatRule() { symtree::setFloatByEncoding(false); }
};

}  // namespace

TEST(FloatEncoding, TypeIdsFollowTheChosenRule)
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
    for (const bool on : {false, true}) {
        const FloatRule rule(on);
        SymbolDatabase db;
        ASSERT_EQ(db.parseElf(testelf::corpus("floats.elf"), false, nullptr), 0);
        ASSERT_NE(db.tree(), nullptr);
        for (const auto& c : cases) {
            const auto found = symtree::findPath(db.tree()->arena, db.tree()->files, c.path);
            ASSERT_FALSE(found.empty()) << c.path;
            const Node* n = found[0];
            EXPECT_TRUE(n->IsLeaf) << c.path;
            const std::int32_t expected = on ? c.byEncoding : c.byText;
            EXPECT_EQ(n->TypeID, expected) << c.path << (on ? " by encoding" : " by type text");
            if (expected == kTypeFloat) {
                EXPECT_EQ(n->MaxValue, 3.4028234663852886e38) << c.path;
            }
            if (expected == kTypeFloat || expected == kTypeDouble) {
                EXPECT_TRUE(n->IsSigned) << c.path;
            }
        }
    }
}

// The rule is taken when a parse starts: changing it leaves a built tree as
// it is, and the next parse follows it.
TEST(FloatEncoding, TheRuleAppliesFromTheNextParse)
{
    const FloatRule rule(false);
    SymbolDatabase db;
    ASSERT_EQ(db.parseElf(testelf::corpus("floats.elf"), false, nullptr), 0);
    const auto typeOf = [&](const char* path) {
        const auto found = symtree::findPath(db.tree()->arena, db.tree()->files, path);
        return found.empty() ? -1 : found[0]->TypeID;
    };
    EXPECT_EQ(typeOf("isr_level"), kTypeS32);
    symtree::setFloatByEncoding(true);
    EXPECT_EQ(typeOf("isr_level"), kTypeS32);
    ASSERT_EQ(db.parseElf(testelf::corpus("floats.elf"), false, nullptr), 0);
    EXPECT_EQ(typeOf("isr_level"), kTypeFloat);
}
