#include "probe/QtxFormat.h"
#include "symbols/Node.h"

#include <gtest/gtest.h>

TEST(QtxFormat, ItemsBecomeSymbolsInOrder)
{
    const QtxFormat f = parseQtxFormat("Plotvik_t4i2u1f4");
    EXPECT_TRUE(f.valid && f.withTimeStamp);
    ASSERT_EQ(f.items.size(), 3u);
    EXPECT_EQ(std::tuple(f.items[0].name, f.items[0].typeId), std::tuple("2 Byte signed QTX Data", kTypeS16));
    EXPECT_EQ(std::tuple(f.items[1].name, f.items[1].typeId), std::tuple("1 Byte unsigned QTX Data", kTypeU8));
    EXPECT_EQ(std::tuple(f.items[2].name, f.items[2].typeId, f.items[2].isSigned),
              std::tuple("4 Byte float QTX Data", kTypeFloat, true));
}

TEST(QtxFormat, UnacceptedSizesCountButAddNothing)
{
    const QtxFormat a = parseQtxFormat("Plotvik_b2f4");
    EXPECT_TRUE(a.valid);
    ASSERT_EQ(a.items.size(), 1u);
    EXPECT_EQ(a.items[0].typeId, kTypeFloat);

    const QtxFormat b = parseQtxFormat("Plotvik_b2");
    EXPECT_TRUE(b.valid && b.items.empty());

    EXPECT_FALSE(parseQtxFormat("Plotvik_x4").valid);
    EXPECT_FALSE(parseQtxFormat("Plotvik_t4").valid) << "a time stamp alone is no format";

    const QtxFormat odd = parseQtxFormat("Plotvik_U8I8F8b");
    ASSERT_EQ(odd.items.size(), 3u) << "letters ignore case; a lone last character is ignored";
    EXPECT_EQ(std::tuple(odd.items[0].typeId, odd.items[1].typeId, odd.items[2].typeId),
              std::tuple(kTypeU64, kTypeS64, kTypeDouble));
}
