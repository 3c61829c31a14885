#include "FilesTestSupport.h"
#include "StoreFixture.h"

#include "base/ProjectSettings.h"
#include "files/RawFile.h"
#include "view/GraphValue.h"

#include <gtest/gtest.h>

namespace {

const char* kAlignWarning =
    "File size does not align with selected symbols!\nFile size: %d Bytes\nSize of selected symbols + timestamp: %d Bytes";
const std::string kExcessWarning = "File size exceeds symbol buffers!\n Excess data will be discarded.";

struct RawFileTest : ::testing::Test, StoreFixture {
    QTemporaryDir dir;
    ScopedBridge scoped;
    ProjectSettings settings;
    std::string file = dir.filePath("rec.praw").toStdString();

    std::string alignWarning(int fileSize, int recordSize) { return text::format(512, kAlignWarning, fileSize, recordSize); }
};

TEST_F(RawFileTest, ThreeRecordsOfOneTwoByteSymbolImport)
{
    Node* n = select("v", 2, kTypeS16);
    const std::string data = record(10u, std::int16_t{-1}) + record(20u, std::int16_t{2}) + record(30u, std::int16_t{300});
    ASSERT_EQ(data.size(), 18u);
    for (const bool partial : {false, true}) {
        scoped.bridge.boxes.clear();
        writeAll(file, partial ? data + "X" : data);
        ASSERT_EQ(ImportRaw(file, store, symbols, settings), 0);
        EXPECT_EQ(scoped.bridge.texts(), partial ? std::vector<std::string>{alignWarning(19, 6)} : std::vector<std::string>{});
        if (partial) {
            EXPECT_EQ(scoped.bridge.boxes[0].caption, report::warningCaption());
            EXPECT_EQ(scoped.bridge.boxes[0].button0, "O.K.");
        }
        EXPECT_EQ(store.writeIndex(), 3u);
        EXPECT_EQ(n->symbol().Offset, 4);
        const std::uint32_t ts[] = {10, 20, 30};
        const std::int16_t vals[] = {-1, 2, 300};
        for (std::uint32_t i = 0; i < 3; ++i) {
            EXPECT_EQ(store.timeStamps()[i], ts[i]);
            std::int16_t v;
            std::memcpy(&v, &n->symbol().Values[i], 2);
            EXPECT_EQ(v, vals[i]);
        }
        EXPECT_FALSE(store.isOpen());
    }
}

TEST_F(RawFileTest, ImportReplacesWhatWasStored)
{
    Node* n = select("v", 4, kTypeU32);
    sample(record(1u, 11u) + record(2u, 12u) + record(3u, 13u) + record(4u, 14u) + record(5u, 15u));
    writeAll(file, record(100u, 7u) + record(200u, 8u));
    ASSERT_EQ(ImportRaw(file, store, symbols, settings), 0);
    EXPECT_EQ(store.writeIndex(), 2u);
    EXPECT_EQ(store.timeStamps()[0], 100u);
    EXPECT_EQ(store.timeStamps()[2], 0u);  // the old records are gone
    EXPECT_EQ(n->symbol().Values[1], 8u);
    EXPECT_EQ(n->symbol().Values[2], 0u);
}

TEST_F(RawFileTest, UntimedQtxSessionImportsTheFileTimeStampsAndKeepsItsLayout)
{
    Node* a = select("a", 1, kTypeU8);
    Node* b = select("b", 4, kTypeS32);
    settings.IsQTXSession = true;
    settings.IsQTXWithTimeStamp = false;
    store.layOut(false);
    writeAll(file, record(1000u, std::uint8_t{9}, std::int32_t{-4}) + record(2000u, std::uint8_t{8}, std::int32_t{5}));
    ASSERT_EQ(ImportRaw(file, store, symbols, settings), 0);
    EXPECT_EQ(store.timeStamps()[0], 1000u);
    EXPECT_EQ(store.timeStamps()[1], 2000u);
    EXPECT_EQ(a->symbol().Values[1], 8u);
    EXPECT_EQ(static_cast<std::int32_t>(b->symbol().Values[0]), -4);
    // The session's own layout is back: no time stamp, offsets from 0.
    EXPECT_FALSE(store.withTimeStamp());
    EXPECT_EQ(a->symbol().Offset, 0);
    EXPECT_EQ(b->symbol().Offset, 1);
    EXPECT_EQ(store.recordSize(), 5u);
}

TEST_F(RawFileTest, WarnsAboutFilesLargerThanTheBuffers)
{
    // No symbols: the limit is the time stamp array's 4 MiB, in file bytes.
    std::string data;
    const std::uint32_t records = SampleStore::kTimeStampBytes / 4 + 1;
    data.resize(std::size_t(records) * 4);
    for (std::uint32_t i = 0; i < records; ++i)
        std::memcpy(&data[std::size_t(i) * 4], &i, 4);
    writeAll(file, data);
    ASSERT_EQ(ImportRaw(file, store, symbols, settings), 0);
    EXPECT_EQ(scoped.bridge.texts(), std::vector<std::string>{kExcessWarning});
    // The ring wrapped: the first record was overwritten by the last one.
    EXPECT_TRUE(store.hasWrapped());
    EXPECT_EQ(store.timeStamps()[0], records - 1);
    EXPECT_EQ(store.timeStamps()[1], 1u);
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
    EXPECT_EQ(scoped.bridge.boxes[0].text, "Raw data exported in the order:\nTimestamp\na\nf");
    EXPECT_EQ(scoped.bridge.boxes[0].button0, "OK");
}

TEST_F(RawFileTest, ExportThenImportGivesTheSameRecords)
{
    Node* a = select("a", 2, kTypeS16);
    Node* b = select("b", 8, kTypeDouble);
    std::string recs;
    for (std::uint32_t i = 0; i < 50; ++i)
        recs += record(i * 7, static_cast<std::int16_t>(i * 100 - 2000), i * 0.5);
    sample(recs);
    ASSERT_EQ(ExportRaw(file, store, symbols), 0);
    const std::uint32_t exported = store.recordCount();

    std::vector<std::uint64_t> wasA(a->symbol().Values.get(), a->symbol().Values.get() + exported);
    std::vector<std::uint64_t> wasB(b->symbol().Values.get(), b->symbol().Values.get() + exported);
    ASSERT_EQ(ImportRaw(file, store, symbols, settings), 0);
    EXPECT_EQ(store.writeIndex(), exported);
    for (std::uint32_t i = 0; i < exported; ++i) {
        EXPECT_EQ(store.timeStamps()[i], i * 7);
        EXPECT_EQ(a->symbol().Values[i] & 0xFFFF, wasA[i] & 0xFFFF);
        EXPECT_EQ(b->symbol().Values[i], wasB[i]);
    }
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
    std::uint32_t flags = 0;
    std::memcpy(&flags, bytes.data() + 16 * 5 + 4 + 8, 4);
    EXPECT_EQ(flags, 5u << 1) << "the field's word at its place in the structure";

    ASSERT_EQ(ImportRaw(file, store, symbols, settings), 0);
    ASSERT_EQ(store.writeIndex(), exported);
    for (std::uint32_t i = 0; i < exported; ++i)
        EXPECT_EQ(graphValue(*bits, *store.valueSlotAt(*bits, i)), double(i % 8)) << i;
}

TEST_F(RawFileTest, ExportAfterTheRingWrappedStartsAtTheOldestRecord)
{
    select("v", 4, kTypeU32);
    const std::uint32_t total = SampleStore::kCapacity + 10;
    std::string recs(std::size_t(total) * 8, '\0');
    for (std::uint32_t i = 0; i < total; ++i) {
        const std::uint32_t v = i * 3;
        std::memcpy(&recs[std::size_t(i) * 8], &i, 4);
        std::memcpy(&recs[std::size_t(i) * 8 + 4], &v, 4);
    }
    sample(recs);
    ASSERT_TRUE(store.hasWrapped());
    ASSERT_EQ(ExportRaw(file, store, symbols), 0);
    const std::string out = readAll(file);
    ASSERT_EQ(out.size(), std::size_t(store.recordCount()) * 8);
    std::uint32_t first, firstValue;
    std::memcpy(&first, out.data(), 4);
    std::memcpy(&firstValue, out.data() + 4, 4);
    EXPECT_EQ(first, store.timeStampAt(0));
    EXPECT_EQ(firstValue, first * 3);
    EXPECT_GT(first, 0u);
}

TEST_F(RawFileTest, MissingFileFailsWithAMessage)
{
    select("v", 2, kTypeS16);
    const std::string missing = dir.filePath("nothing.praw").toStdString();
    EXPECT_EQ(ImportRaw(missing, store, symbols, settings), -1);
    EXPECT_EQ(scoped.bridge.texts(), std::vector<std::string>{"Could not open file [" + missing + "]!\nFile not found!"});
    EXPECT_EQ(ExportRaw(dir.filePath("no/dir/x.praw").toStdString(), store, symbols), -1);
}

}  // namespace
