#include "files/Project.h"
#include "probe/SampleStore.h"
#include "probe/SampleValue.h"
#include "symbols/SymbolDatabase.h"
#include "view/GraphValue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <limits>
#include <thread>
#include <vector>

namespace {

struct StoreFixture : ::testing::Test {
    SymbolDatabase symbols;
    SampleStore store{symbols};
    Project project;

    Node* addSymbol(std::uint32_t size, std::int32_t typeId, const char* name)
    {
        Node* n = symbols.createDetachedSymbol();
        n->Name = name;
        n->Size = size;
        n->TypeID = typeId;
        auto list = symbols.selected();
        list.push_back(n);
        symbols.setSelected(list);
        return n;
    }

    void start(bool withTimeStamp = true)
    {
        store.setProject(&project);
        store.layOut(withTimeStamp);
        ASSERT_TRUE(store.prepareFreshStart());
        store.setOpen(true);
    }

    // Records of a time stamp and one 2-byte signed value each.
    void feed(const std::vector<std::int16_t>& values, std::uint32_t firstTs = 0)
    {
        std::vector<std::uint8_t> bytes;
        std::uint32_t ts = firstTs;
        for (std::int16_t v : values) {
            std::uint8_t rec[6];
            std::memcpy(rec, &ts, 4);
            std::memcpy(rec + 4, &v, 2);
            bytes.insert(bytes.end(), rec, rec + 6);
            ts += 1000;
        }
        store.storeRecords(bytes.data(), bytes.size());
    }

    void setTrigger(Node* n, double level, bool rise, bool fall)
    {
        ProjectSettings s = project.settings();
        s.TriggerSymbol = n;
        s.TriggerLevel = level;
        s.TriggerOn = true;
        s.TriggerRise = rise;
        s.TriggerFall = fall;
        project.apply(s);
    }

    double valueAt(const Node& n, std::uint32_t i) { return sampleToDouble(n.TypeID, *store.valueSlotAt(n, i)); }
};

}  // namespace

TEST_F(StoreFixture, RingWrapsAfterCapacityRecords)
{
    Node* n = addSymbol(2, kTypeS16, "v");
    start();
    feed({1, 2, 3});
    EXPECT_EQ(store.recordCount(), 2u) << "the newest record is not counted before the wrap";
    EXPECT_EQ(store.writeIndex(), 3u);
    EXPECT_EQ(store.timeStampAt(1), 1000u);

    std::vector<std::int16_t> rest(SampleStore::kCapacity - 3);
    for (std::size_t i = 0; i < rest.size(); ++i)
        rest[i] = static_cast<std::int16_t>(i + 4);
    feed(rest, 3000);
    EXPECT_EQ(store.writeIndex(), 0u);
    EXPECT_EQ(store.oldestIndex(), 1u);
    EXPECT_EQ(store.recordCount(), SampleStore::kCapacity);

    // One more record overwrites slot 0; the oldest index moves past it.
    feed({-7}, SampleStore::kCapacity * 1000u);
    EXPECT_EQ(store.oldestIndex(), 2u);
    EXPECT_EQ(store.timeStampAt(0), 2000u);
    EXPECT_EQ(store.timeStampAt(SampleStore::kCapacity - 2), SampleStore::kCapacity * 1000u);
    EXPECT_EQ(valueAt(*n, SampleStore::kCapacity - 2), -7.0);
    EXPECT_EQ(n->symbol().YMinSampled, -32768.0) << "statistics follow every value stored";
    EXPECT_EQ(n->symbol().YMaxSampled, 32767.0);
}

TEST_F(StoreFixture, QtxWithoutTimeStampNumbersRecordsInHundreds)
{
    addSymbol(1, kTypeU8, "b");
    start(false);
    EXPECT_EQ(store.recordSize(), 1u);
    const std::uint8_t bytes[] = {5, 6, 7, 8};
    store.storeRecords(bytes, 3);
    store.storeRecords(bytes + 3, 1);
    EXPECT_EQ(store.timeStampAt(0), 0u);
    EXPECT_EQ(store.timeStampAt(1), 100u);
    EXPECT_EQ(store.timeStampAt(2), 200u);
    EXPECT_EQ(store.currentTimeStamp(), 300u);
}

TEST_F(StoreFixture, RisingTriggerFiresWhenTheLevelIsReachedFromBelow)
{
    Node* n = addSymbol(2, kTypeS16, "v");
    start();
    setTrigger(n, 10, true, false);
    feed({10, 11, 12, 5, 8});  // never from below 10 to 10 or above
    EXPECT_EQ(store.writeIndex(), 1u) << "while waiting only two samples are kept";
    EXPECT_FALSE(project.settings().TriggerFired);
    feed({9, 10, 20, 30});
    EXPECT_TRUE(project.settings().TriggerFired);
    // Recording goes on from the record in which the edge was seen.
    EXPECT_EQ(valueAt(*n, 0), 9.0);
    EXPECT_EQ(valueAt(*n, 1), 10.0);
    EXPECT_EQ(valueAt(*n, 2), 20.0);
    EXPECT_EQ(store.writeIndex(), 4u);
}

TEST_F(StoreFixture, FallingTriggerAndTypesThatNeverFire)
{
    Node* n = addSymbol(2, kTypeS16, "v");
    start();
    setTrigger(n, 0, false, true);
    feed({0, -1});
    EXPECT_FALSE(project.settings().TriggerFired) << "0 to -1 does not cross from above";
    feed({1, 0});
    EXPECT_TRUE(project.settings().TriggerFired);

    SymbolDatabase symbols2;
    SampleStore store2{symbols2};
    Project project2;
    Node* b = symbols2.createDetachedSymbol();
    b->Size = 1;
    b->TypeID = kTypeBool;
    symbols2.setSelected({b});
    store2.setProject(&project2);
    store2.layOut(true);
    ASSERT_TRUE(store2.prepareFreshStart());
    store2.setOpen(true);
    ProjectSettings s;
    s.TriggerSymbol = b;
    s.TriggerOn = s.TriggerRise = s.TriggerFall = true;
    s.TriggerLevel = 0.5;
    project2.apply(s);
    const std::uint8_t recs[] = {0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 2, 0, 0, 0, 0};
    store2.storeRecords(recs, sizeof recs);
    EXPECT_FALSE(project2.settings().TriggerFired) << "a bool never fires";
    EXPECT_EQ(store2.writeIndex(), 1u);
}

// 64-bit values are not compared: whatever they do, recording never starts.
TEST_F(StoreFixture, TriggerOnA64BitSymbolNeverFires)
{
    for (const std::int32_t typeId : {kTypeU64, kTypeS64}) {
        SCOPED_TRACE(typeId);
        SymbolDatabase own;
        SampleStore s64{own};
        Project p;
        Node* n = own.createDetachedSymbol();
        n->Size = 8;
        n->TypeID = typeId;
        own.setSelected({n});
        s64.setProject(&p);
        s64.layOut(true);
        ASSERT_TRUE(s64.prepareFreshStart());
        s64.setOpen(true);
        ProjectSettings s;
        s.TriggerSymbol = n;
        s.TriggerOn = s.TriggerRise = s.TriggerFall = true;
        s.TriggerLevel = 5;
        p.apply(s);
        // 0, 10, 0, 10: both edges cross the level each record.
        std::vector<std::uint8_t> recs;
        for (std::uint32_t r = 0; r < 4; ++r) {
            const std::uint32_t ts = r * 1000;
            const std::uint64_t v = (r % 2) * 10;
            recs.insert(recs.end(), reinterpret_cast<const std::uint8_t*>(&ts), reinterpret_cast<const std::uint8_t*>(&ts) + 4);
            recs.insert(recs.end(), reinterpret_cast<const std::uint8_t*>(&v), reinterpret_cast<const std::uint8_t*>(&v) + 8);
        }
        s64.storeRecords(recs.data(), recs.size());
        EXPECT_FALSE(p.settings().TriggerFired);
        EXPECT_EQ(s64.writeIndex(), 1u);
        EXPECT_EQ(s64.recordCount(), 0u);
    }
}

// In the record that fires, a symbol listed before the trigger symbol was
// judged while the trigger still waited: its value is shifted into the
// previous slot, not stored as the record's; one listed after is stored.
TEST_F(StoreFixture, SymbolsBeforeTheTriggerSymbolAreShiftedInTheFiringRecord)
{
    Node* before = addSymbol(2, kTypeS16, "before");
    Node* trigger = addSymbol(2, kTypeS16, "trigger");
    Node* after = addSymbol(2, kTypeS16, "after");
    start();
    setTrigger(trigger, 10, true, false);
    const auto rec = [](std::uint32_t ts, std::int16_t a, std::int16_t b, std::int16_t c) {
        std::vector<std::uint8_t> r(10);
        std::memcpy(r.data(), &ts, 4);
        std::memcpy(r.data() + 4, &a, 2);
        std::memcpy(r.data() + 6, &b, 2);
        std::memcpy(r.data() + 8, &c, 2);
        return r;
    };
    std::vector<std::uint8_t> bytes = rec(1000, 100, 0, 200);
    for (const auto& r : {rec(2000, 101, 5, 201), rec(3000, 102, 10, 202), rec(4000, 103, 11, 203)})
        bytes.insert(bytes.end(), r.begin(), r.end());
    store.storeRecords(bytes.data(), bytes.size());
    ASSERT_TRUE(project.settings().TriggerFired);
    EXPECT_EQ(store.triggerTimeStamp(), 3000u);
    // Slot 0 holds the record before the edge, slot 1 the firing record.
    EXPECT_EQ(valueAt(*trigger, 0), 5.0);
    EXPECT_EQ(valueAt(*trigger, 1), 10.0);
    EXPECT_EQ(valueAt(*after, 0), 201.0);
    EXPECT_EQ(valueAt(*after, 1), 202.0);
    EXPECT_EQ(valueAt(*before, 0), 102.0) << "shifted: the firing record's value moved into the previous slot";
    EXPECT_EQ(valueAt(*before, 1), 102.0);
    EXPECT_EQ(store.timeStampAt(0), 3000u) << "the time stamp is shifted with it";
    EXPECT_EQ(valueAt(*before, 2), 103.0) << "the next record is stored";
    // The statistics saw only what was kept.
    EXPECT_EQ(before->symbol().YMinSampled, 103.0);
    EXPECT_EQ(after->symbol().YMinSampled, 202.0);
    EXPECT_EQ(trigger->symbol().YMinSampled, 10.0);
}

// A bit-field's part of the record is its whole structure; wherever the field
// sits in it, the stored sample shows the field's true value.
TEST_F(StoreFixture, BitFieldsAnywhereInTheirStructureKeepTheirValue)
{
    struct Case {
        const char* what;
        std::uint32_t structSize, bitOffset, bitSize;
    };
    const Case cases[] = {
        {"first word", 12, 3, 3},
        {"third word, past the first 64 bits", 12, 65, 3},
        {"last bit of the structure", 12, 95, 1},
        {"crossing from the first word into the second", 8, 30, 4},
        {"crossing into the third word", 12, 62, 5},
        {"a whole word", 12, 32, 32},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        SymbolDatabase own;
        SampleStore st{own};
        Node* n = own.createDetachedSymbol();
        n->TypeID = kTypeBitField;
        n->Size = c.structSize;
        n->BitOffset = c.bitOffset;
        n->BitSize = c.bitSize;
        own.setSelected({n});
        st.layOut(true);
        ASSERT_TRUE(st.prepareFreshStart());
        st.setOpen(true);
        // Every other bit set, and the field holding its largest value but one.
        const std::uint64_t fieldMask = c.bitSize >= 64 ? ~0ull : (1ull << c.bitSize) - 1;
        const std::uint64_t value = fieldMask - 1;
        std::vector<std::uint8_t> bytes(4 + c.structSize, 0xFF);
        for (std::uint32_t b = 0; b < c.bitSize; ++b) {
            const std::uint32_t bit = c.bitOffset + b;
            std::uint8_t& byte = bytes[4 + bit / 8];
            byte = static_cast<std::uint8_t>((byte & ~(1u << (bit % 8))) | (((value >> b) & 1u) << (bit % 8)));
        }
        std::vector<std::uint8_t> two = bytes;
        two.insert(two.end(), bytes.begin(), bytes.end());
        st.storeRecords(two.data(), two.size());
        ASSERT_NE(st.valueSlotAt(*n, 0), nullptr);
        EXPECT_EQ(graphValue(*n, *st.valueSlotAt(*n, 0)), static_cast<double>(value));
        EXPECT_EQ(graphValue(*n, *st.valueSlotAt(*n, 1)), static_cast<double>(value));
    }
}

TEST_F(StoreFixture, ReadersStepAsideWhileTheStoreIsRewritten)
{
    addSymbol(2, 11, "v");
    start();
    feed({1, 2, 3});
    std::atomic<bool> inside{false}, release{false};
    std::thread importer([&] {
        store.rewrite([&] {
            inside = true;
            while (!release)
                std::this_thread::yield();
            store.clear();
            feed({7, 8});
        });
    });
    while (!inside)
        std::this_thread::yield();
    bool ran = false;
    EXPECT_FALSE(store.tryRead([&] { ran = true; }));
    EXPECT_FALSE(ran);
    release = true;
    importer.join();
    std::uint32_t seen = 0;
    EXPECT_TRUE(store.tryRead([&] { seen = store.recordCount(); }));
    EXPECT_EQ(seen, 1u);  // before the wrap the count is one less than stored
}

TEST_F(StoreFixture, RunningMeanMinimumAndMaximumSinceTheStart)
{
    Node* n = addSymbol(2, kTypeS16, "v");
    start();
    store.resetStatistics();
    // The first record of an empty store only marks the latest slot.
    feed({100, -4, 10, 6}, 0);
    EXPECT_EQ(n->symbol().SamplesSinceStart, 3u);
    EXPECT_DOUBLE_EQ(n->symbol().YAvgSampled, (-4 + 10 + 6) / 3.0);
    EXPECT_DOUBLE_EQ(n->symbol().YMinSampled, -4.0);
    EXPECT_DOUBLE_EQ(n->symbol().YMaxSampled, 10.0);
    feed({12}, 4000);
    EXPECT_DOUBLE_EQ(n->symbol().YAvgSampled, (-4 + 10 + 6 + 12) / 4.0);

    // A new start (also after a pause) starts the statistics again.
    store.resetStatistics();
    EXPECT_EQ(n->symbol().SamplesSinceStart, 0u);
    EXPECT_DOUBLE_EQ(n->symbol().YAvgSampled, 0.0);
    EXPECT_EQ(n->symbol().YMaxSampled, std::numeric_limits<double>::lowest());
    EXPECT_EQ(n->symbol().YMinSampled, std::numeric_limits<double>::max());
    feed({-8}, 5000);
    EXPECT_DOUBLE_EQ(n->symbol().YAvgSampled, -8.0);
    EXPECT_DOUBLE_EQ(n->symbol().YMinSampled, -8.0);
    EXPECT_DOUBLE_EQ(n->symbol().YMaxSampled, -8.0);
}
