#include "probe/QtxFormat.h"
#include "symbols/Node.h"

#include <gtest/gtest.h>

TEST(QtxFormat, ItemsBecomeSymbolsInOrder)
{
    const QtxFormat f = parseQtxFormat("Plotvik_t4i2u1f4");
    EXPECT_TRUE(f.valid);
    EXPECT_TRUE(f.withTimeStamp);
    ASSERT_EQ(f.items.size(), 3u);
    EXPECT_EQ(f.items[0].name, "2 Byte signed QTX Data");
    EXPECT_EQ(f.items[0].typeId, kTypeS16);
    EXPECT_EQ(f.items[1].name, "1 Byte unsigned QTX Data");
    EXPECT_EQ(f.items[1].typeId, kTypeU8);
    EXPECT_EQ(f.items[2].name, "4 Byte float QTX Data");
    EXPECT_EQ(f.items[2].typeId, kTypeFloat);
    EXPECT_TRUE(f.items[2].isSigned);
}

TEST(QtxFormat, UnacceptedSizesCountButAddNothing)
{
    const QtxFormat a = parseQtxFormat("Plotvik_b2f4");
    EXPECT_TRUE(a.valid);
    ASSERT_EQ(a.items.size(), 1u);
    EXPECT_EQ(a.items[0].typeId, kTypeFloat);

    const QtxFormat b = parseQtxFormat("Plotvik_b2");
    EXPECT_TRUE(b.valid);
    EXPECT_TRUE(b.items.empty());

    EXPECT_FALSE(parseQtxFormat("Plotvik_x4").valid);
    EXPECT_FALSE(parseQtxFormat("Plotvik_t4").valid) << "a time stamp alone is no format";

    const QtxFormat odd = parseQtxFormat("Plotvik_U8I8F8b");
    ASSERT_EQ(odd.items.size(), 3u) << "letters ignore case; a lone last character is ignored";
    EXPECT_EQ(odd.items[0].typeId, kTypeU64);
    EXPECT_EQ(odd.items[1].typeId, kTypeS64);
    EXPECT_EQ(odd.items[2].typeId, kTypeDouble);
}
