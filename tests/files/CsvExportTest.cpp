#include "FilesTestSupport.h"
#include "StoreFixture.h"

#include "files/CsvExport.h"

#include <gtest/gtest.h>

namespace {

struct CsvExportTest : ::testing::Test, StoreFixture {
    QTemporaryDir dir;
    std::string out = dir.filePath("out.csv").toStdString();
};

TEST_F(CsvExportTest, WritesAllButTheNewestSlot)
{
    select("speed", 4, kTypeFloat);
    select("count", 2, kTypeU16);
    sample(record(100u, 1.5f, std::uint16_t{7}) + record(200u, -0.25f, std::uint16_t{65535}) +
           record(300u, 2.0f, std::uint16_t{1}));
    ASSERT_EQ(store.writeIndex(), 3u);
    ASSERT_EQ(ExportCsv(out, store, symbols), 0);
    EXPECT_EQ(lines(readAll(out)),
              (std::vector<std::string>{"Timestamp;speed;count", "100;1.500000;7", "200;-0.250000;65535"}));
}

TEST_F(CsvExportTest, FormatsEachTypeAndLeavesOut64BitFields)
{
    select("b", 1, kTypeBool);
    select("u8", 1, kTypeU8);
    select("s8", 1, kTypeS8);
    select("s16", 2, kTypeS16);
    select("u32", 4, kTypeU32);
    select("big", 8, kTypeU64);
    select("s32", 4, kTypeS32);
    select("d", 8, kTypeDouble);
    select("neg64", 8, kTypeS64);
    const std::string r = record(5u, std::uint8_t{1}, std::uint8_t{200}, std::int8_t{-5}, std::int16_t{-300},
                                 std::uint32_t{0xFFFFFFFFu}, std::uint64_t{1} << 40, std::int32_t{-123456},
                                 3.125, std::int64_t{-9});
    sample(r + r);
    ASSERT_EQ(ExportCsv(out, store, symbols), 0);
    const auto l = lines(readAll(out));
    ASSERT_EQ(l.size(), 2u);
    EXPECT_EQ(l[0], "Timestamp;b;u8;s8;s16;u32;big;s32;d;neg64");
    // Unsigned 32-bit values above 2^31-1 print negative; 64-bit symbols have no field.
    EXPECT_EQ(l[1], "5;1;200;-5;-300;-1;-123456;3.125000");
}

// The header names symbols by their dotted names.
TEST_F(CsvExportTest, HeaderOnlyForOneOrNoRecordAndUnwritablePathsFail)
{
    select("x", 2, kTypeS16)->NameWithParents = "state.x";
    ASSERT_EQ(ExportCsv(out, store, symbols), 0);
    EXPECT_EQ(readAll(out), "Timestamp;state.x\n");
    sample(record(1u, std::int16_t{3}));
    ASSERT_EQ(store.writeIndex(), 1u);
    ASSERT_EQ(ExportCsv(out, store, symbols), 0);
    EXPECT_EQ(readAll(out), "Timestamp;state.x\n");

    ScopedBridge scoped;
    const std::string bad = dir.filePath("no/dir/out.csv").toStdString();
    EXPECT_EQ(ExportCsv(bad, store, symbols), -1);
    ASSERT_EQ(scoped.bridge.boxes.size(), 1u);
    EXPECT_EQ(scoped.bridge.boxes[0].text.rfind("Could not open file [" + bad + "]!", 0), 0u);
}

}  // namespace
