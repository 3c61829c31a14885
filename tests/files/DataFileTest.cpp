// Raw and CSV data files: raw QTX layouts, limits, exports and bit-fields (a
// plain import and the partial record's warning: ConvertCommandTest), and the
// CSV's formats.
#include "StoreFixture.h"

#include "base/ProjectSettings.h"
#include "files/CsvExport.h"
#include "files/RawFile.h"
#include "view/GraphValue.h"

#include <gtest/gtest.h>

namespace {

struct DataFileTest : ::testing::Test, StoreFixture {
    QTemporaryDir dir;
    ScopedBridge scoped;
    ProjectSettings settings;
    std::string file = dir.filePath("rec.praw").toStdString();
    std::string out = dir.filePath("out.csv").toStdString();
};
using RawFileTest = DataFileTest;
using CsvExportTest = DataFileTest;

TEST_F(RawFileTest, UntimedQtxSessionImportsTheFileTimeStampsAndKeepsItsLayout)
{
    Node* a = select("a", 1, kTypeU8);
    Node* b = select("b", 4, kTypeS32);
    settings.IsQTXSession = true;
    settings.IsQTXWithTimeStamp = false;
    store.layOut(false);
    writeAll(file,
             record(1000u, std::uint8_t{9}, std::int32_t{-4}) + record(2000u, std::uint8_t{8}, std::int32_t{5}));
    ASSERT_EQ(ImportRaw(file, store, symbols, settings), 0);
    EXPECT_EQ(std::tuple(store.timeStamps()[1], a->symbol().Values[1], std::int32_t(b->symbol().Values[0])),
              std::tuple(2000u, 8u, -4));
    // The session's own layout is back: no time stamp, offsets from 0.
    EXPECT_EQ(std::tuple(store.withTimeStamp(), b->symbol().Offset, store.recordSize()), std::tuple(false, 1, 5u));
}

TEST_F(RawFileTest, WarnsAboutFilesLargerThanTheBuffers)
{
    // No symbols: the limit is the time stamp array's 4 MiB, in file bytes.
    std::string data;
    const std::uint32_t records = SampleStore::kTimeStampBytes / 4 + 1;
    for (std::uint32_t i = 0; i < records; ++i)
        data += record(i);
    writeAll(file, data);
    ASSERT_EQ(ImportRaw(file, store, symbols, settings), 0);
    EXPECT_EQ(scoped.bridge.texts(),
              std::vector<std::string>{"File size exceeds symbol buffers!\n Excess data will be discarded."});
    // The ring wrapped: the first record was overwritten by the last one.
    EXPECT_EQ(std::tuple(store.hasWrapped(), store.timeStamps()[0], store.timeStamps()[1]),
              std::tuple(true, records - 1, 1u));
}

TEST_F(RawFileTest, ExportWritesTheStoreInChronologicalOrder)
{
    select("a", 2, kTypeU16);
    select("f", 4, kTypeFloat);
    const std::string recs = record(1u, std::uint16_t{0xA1A2}, 1.5f) + record(2u, std::uint16_t{0xB1B2}, 2.5f) +
                             record(3u, std::uint16_t{0xC1C2}, 3.5f);
    sample(recs);
    ASSERT_EQ(ExportRaw(file, store, symbols), 0);
    // The store does not count its newest record.
    EXPECT_EQ(readAll(file), recs.substr(0, 2 * 10));
    ASSERT_EQ(scoped.bridge.boxes.size(), 1u);
    EXPECT_EQ(std::tie(scoped.bridge.boxes[0].text, scoped.bridge.boxes[0].button0),
              std::tuple("Raw data exported in the order:\nTimestamp\na\nf", "OK"));
}

// A bit-field past the first 8 bytes of its 12-byte structure: the file keeps
// the record layout (12 bytes for it) and the field's word at its place, so
// an import shows the same values.
TEST_F(RawFileTest, BitFieldsPastTheFirstEightBytesRoundTrip)
{
    Node* bits = select("mode", 12, kTypeBitField);
    bits->BitOffset = 65;
    bits->BitSize = 3;
    struct Motor {
        std::uint32_t a, b, flags;
    };
    std::string recs;
    for (std::uint32_t i = 0; i < 20; ++i)
        recs += record(i * 10, Motor{0xFFFFFFFFu, 0xFFFFFFFFu, (i % 8) << 1});
    sample(recs);
    const std::uint32_t exported = store.recordCount();
    ASSERT_GT(exported, 8u);
    ASSERT_EQ(ExportRaw(file, store, symbols), 0);
    const std::string bytes = readAll(file);
    ASSERT_EQ(bytes.size(), exported * 16u) << "time stamp and the whole structure per record";
    EXPECT_EQ(bytes.substr(16 * 5 + 12, 4), recs.substr(16 * 5 + 12, 4)) << "the field's word at its place";

    ASSERT_EQ(ImportRaw(file, store, symbols, settings), 0);
    ASSERT_EQ(store.writeIndex(), exported);
    for (std::uint32_t i = 0; i < exported; ++i) {
        EXPECT_EQ(store.timeStamps()[i], i * 10);
        EXPECT_EQ(graphValue(*bits, *store.valueSlotAt(*bits, i)), double(i % 8)) << i;
    }
}

TEST_F(RawFileTest, MissingFileFailsWithAMessage)
{
    select("v", 2, kTypeS16);
    const std::string missing = dir.filePath("nothing.praw").toStdString();
    EXPECT_EQ(ImportRaw(missing, store, symbols, settings), -1);
    EXPECT_EQ(scoped.bridge.texts(),
              std::vector<std::string>{"Could not open file [" + missing + "]!\nFile not found!"});
    EXPECT_EQ(ExportRaw(dir.filePath("no/dir/x.praw").toStdString(), store, symbols), -1);
}

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

    const std::string bad = dir.filePath("no/dir/out.csv").toStdString();
    EXPECT_EQ(ExportCsv(bad, store, symbols), -1);
    ASSERT_EQ(scoped.bridge.boxes.size(), 1u);
    EXPECT_EQ(scoped.bridge.boxes[0].text.rfind("Could not open file [" + bad + "]!", 0), 0u);
}

}  // namespace
