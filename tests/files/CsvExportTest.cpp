#include "StoreFixture.h"

#include "files/CsvExport.h"

#include <gtest/gtest.h>

namespace {

struct CsvExportTest : ::testing::Test, StoreFixture {
    QTemporaryDir dir;
    std::string out = dir.filePath("out.csv").toStdString();
};

// All records but the store's newest, each type in its format.
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
    select("f", 4, kTypeFloat);
    const auto r = [](std::uint32_t t, float f) {
        return record(t, std::uint8_t{1}, std::uint8_t{200}, std::int8_t{-5}, std::int16_t{-300},
                      std::uint32_t{0xFFFFFFFFu}, std::uint64_t{1} << 40, std::int32_t{-123456}, 3.125,
                      std::int64_t{-9}, f);
    };
    sample(r(5, 1.5f) + r(6, -0.25f) + r(7, 2.0f));
    ASSERT_EQ(ExportCsv(out, store, symbols), 0);
    // Unsigned 32-bit values above 2^31-1 print negative; 64-bit symbols have no field.
    EXPECT_EQ(lines(readAll(out)), (std::vector<std::string>{"Timestamp;b;u8;s8;s16;u32;big;s32;d;neg64;f",
                                                            "5;1;200;-5;-300;-1;-123456;3.125000;1.500000",
                                                            "6;1;200;-5;-300;-1;-123456;3.125000;-0.250000"}));
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
