#include "probe/QtxFormat.h"
#include "symbols/Node.h"

#include <gtest/gtest.h>

// Items become symbols in order; unaccepted sizes count as a format but add
// nothing, a time stamp alone is none, letters ignore case and a lone last
// character is ignored.
TEST(QtxFormat, ItemsBecomeSymbolsInOrder)
{
    using Items = std::vector<std::tuple<std::string, std::int32_t, bool>>;
    const struct {
        const char* name;
        bool valid, withTimeStamp;
        Items items;
    } cases[] = {
        {"Plotvik_t4i2u1f4", true, true,
         {{"2 Byte signed QTX Data", kTypeS16, true}, {"1 Byte unsigned QTX Data", kTypeU8, false},
          {"4 Byte float QTX Data", kTypeFloat, true}}},
        {"Plotvik_b2f4", true, false, {{"4 Byte float QTX Data", kTypeFloat, true}}},
        {"Plotvik_b2", true, false, {}},
        {"Plotvik_x4", false, false, {}},
        {"Plotvik_t4", false, true, {}},
        {"Plotvik_U8I8F8b", true, false,
         {{"8 Byte unsigned QTX Data", kTypeU64, false}, {"8 Byte signed QTX Data", kTypeS64, true},
          {"8 Byte float QTX Data", kTypeDouble, true}}},
    };
    for (const auto& c : cases) {
        const QtxFormat f = parseQtxFormat(c.name);
        Items items;
        for (const QtxItem& i : f.items)
            items.emplace_back(i.name, i.typeId, i.isSigned);
        EXPECT_EQ(std::tie(f.valid, f.withTimeStamp, items), std::tie(c.valid, c.withTimeStamp, c.items)) << c.name;
    }
}
