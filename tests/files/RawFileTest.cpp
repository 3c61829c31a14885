// Raw files: QTX layouts, limits, exports and bit-fields (a plain import and
// the partial record's warning: ConvertCommandTest).
#include "StoreFixture.h"

#include "base/ProjectSettings.h"
#include "files/RawFile.h"
#include "view/GraphValue.h"

#include <gtest/gtest.h>

namespace {

struct RawFileTest : ::testing::Test, StoreFixture {
    QTemporaryDir dir;
    ScopedBridge scoped;
    ProjectSettings settings;
    std::string file = dir.filePath("rec.praw").toStdString();
};

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

}  // namespace
