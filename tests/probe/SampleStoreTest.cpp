#include "files/Project.h"
#include "probe/SampleStore.h"
#include "probe/SampleValue.h"
#include "symbols/SymbolDatabase.h"
#include "view/GraphValue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <tuple>
#include <vector>

namespace {

// A store over its own symbols and project, filled the way the read loops fill it.
struct Rig {
    SymbolDatabase symbols;
    SampleStore store{symbols};
    Project project;

    Node* addSymbol(std::uint32_t size, std::int32_t typeId, const char* name = "v")
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

    // Records of a time stamp (1000 apart) and `perRecord` values of `size` bytes each.
    void feed(const std::vector<std::int64_t>& values, std::uint32_t firstTs = 0, std::uint32_t size = 2,
              std::size_t perRecord = 1)
    {
        std::vector<std::uint8_t> bytes;
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (i % perRecord == 0) {
                const std::uint32_t ts = firstTs + static_cast<std::uint32_t>(i / perRecord) * 1000;
                bytes.insert(bytes.end(), reinterpret_cast<const std::uint8_t*>(&ts),
                             reinterpret_cast<const std::uint8_t*>(&ts) + 4);
            }
            const auto* v = reinterpret_cast<const std::uint8_t*>(&values[i]);
            bytes.insert(bytes.end(), v, v + size);
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

struct StoreFixture : ::testing::Test, Rig {};

}  // namespace

TEST_F(StoreFixture, RingWrapsAfterCapacityRecords)
{
    Node* n = addSymbol(2, kTypeS16);
    start();
    feed({1, 2, 3});
    // The newest record is not counted before the wrap.
    EXPECT_EQ(std::tuple(store.recordCount(), store.writeIndex(), store.timeStampAt(1)), std::tuple(2u, 3u, 1000u));

    std::vector<std::int64_t> rest(SampleStore::kCapacity - 3);
    for (std::size_t i = 0; i < rest.size(); ++i)
        rest[i] = static_cast<std::int16_t>(i + 4);
    feed(rest, 3000);
    EXPECT_EQ(std::tuple(store.recordCount(), store.writeIndex(), store.oldestIndex()),
              std::tuple(SampleStore::kCapacity, 0u, 1u));

    // One more record overwrites slot 0; the oldest index moves past it. A
    // trigger armed now compares it with the ring's last slot (0 there).
    setTrigger(n, -7, false, true);
    feed({-7}, SampleStore::kCapacity * 1000u);
    EXPECT_TRUE(project.settings().TriggerFired);
    EXPECT_EQ(store.oldestIndex(), 2u);
    EXPECT_EQ(std::tuple(store.timeStampAt(0), store.timeStampAt(SampleStore::kCapacity - 2)),
              std::tuple(2000u, SampleStore::kCapacity * 1000u));
    EXPECT_EQ(valueAt(*n, SampleStore::kCapacity - 2), -7.0);
}

TEST_F(StoreFixture, ReadersStepAsideWhileTheStoreIsRewritten)
{
    addSymbol(2, kTypeS16);
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

TEST_F(StoreFixture, QtxWithoutTimeStampNumbersRecordsInHundreds)
{
    addSymbol(1, kTypeU8);
    start(false);
    const std::uint8_t bytes[] = {5, 6, 7, 8};
    store.storeRecords(bytes, 3);
    store.storeRecords(bytes + 3, 1);
    EXPECT_EQ((std::vector<std::uint32_t>{store.timeStampAt(0), store.timeStampAt(1), store.timeStampAt(2),
                                          store.currentTimeStamp()}),
              (std::vector<std::uint32_t>{0, 100, 200, 300}));
}

// While the trigger waits only the record before and the current one are
// kept; recording goes on from the record in which the edge was seen.
TEST(StoreTrigger, FiresOnTheChosenEdgeOfComparableTypesOnly)
{
    const struct {
        const char* what;
        std::int32_t typeId;
        std::uint32_t size;
        double level;
        bool rise, fall;
        std::vector<std::int64_t> values;
        int firesAt;  // index of the firing value, -1: never
    } cases[] = {
        {"rising: resting on the level is no edge", kTypeS16, 2, 10, true, false,
         {10, 11, 12, 5, 8, 9, 10, 20, 30}, 6},
        {"falling: 0 to -1 does not cross from above", kTypeS16, 2, 0, false, true, {0, -1, 1, 0}, 3},
        {"a bool never fires", kTypeBool, 1, 0.5, true, true, {0, 1, 0}, -1},
        {"64-bit values are not compared", kTypeS64, 8, 5, true, true, {0, 10, 0, 10}, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Rig rig;
        Node* n = rig.addSymbol(c.size, c.typeId);
        rig.start();
        rig.setTrigger(n, c.level, c.rise, c.fall);
        rig.feed(c.values, 0, c.size);
        EXPECT_EQ(rig.project.settings().TriggerFired, c.firesAt >= 0);
        if (c.firesAt < 0) {
            EXPECT_EQ(std::tuple(rig.store.writeIndex(), rig.store.recordCount()), std::tuple(1u, 0u));
            continue;
        }
        std::vector<double> kept;
        for (std::uint32_t i = 0; i < rig.store.writeIndex(); ++i)
            kept.push_back(rig.valueAt(*n, i));
        EXPECT_EQ(kept, std::vector<double>(c.values.begin() + c.firesAt - 1, c.values.end())) << "from the one before";
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
    feed({100, 0, 200, 101, 5, 201, 102, 10, 202, 103, 11, 203}, 1000, 2, 3);
    ASSERT_TRUE(project.settings().TriggerFired);
    // Slot 0 holds the record before the edge, slot 1 the firing record;
    // `before`'s firing value moved into slot 0, with the time stamp.
    const auto slots = [&](const Node* n) {
        return std::vector<double>{valueAt(*n, 0), valueAt(*n, 1), valueAt(*n, 2)};
    };
    EXPECT_EQ(std::tuple(slots(trigger), slots(after), slots(before), store.triggerTimeStamp(), store.timeStampAt(0)),
              std::tuple(std::vector<double>{5, 10, 11}, std::vector<double>{201, 202, 203},
                         std::vector<double>{102, 102, 103}, 3000u, 3000u));
    // The statistics saw only what was kept.
    EXPECT_EQ((std::vector<double>{before->symbol().YMinSampled, after->symbol().YMinSampled,
                                   trigger->symbol().YMinSampled}),
              (std::vector<double>{103, 202, 10}));
}

// A bit-field's part of the record is its whole structure; wherever the field
// sits in it, the stored sample shows the field's true value.
TEST(StoreBitFields, AnywhereInTheirStructureKeepTheirValue)
{
    const struct {
        const char* what;
        std::uint32_t structSize, bitOffset, bitSize;
    } cases[] = {
        {"last bit of the structure", 12, 95, 1},
        {"crossing from the first word into the second", 8, 30, 4},
        {"crossing into the third word", 12, 62, 5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Rig rig;
        Node* n = rig.addSymbol(c.structSize, kTypeBitField);
        n->BitOffset = c.bitOffset;
        n->BitSize = c.bitSize;
        rig.start();
        // Every other bit set, and the field holding its largest value but one.
        const std::uint64_t value = (1ull << c.bitSize) - 2;
        std::vector<std::uint8_t> bytes(4 + c.structSize, 0xFF);
        for (std::uint32_t b = 0; b < c.bitSize; ++b) {
            const std::uint32_t bit = c.bitOffset + b;
            std::uint8_t& byte = bytes[4 + bit / 8];
            byte = static_cast<std::uint8_t>((byte & ~(1u << (bit % 8))) | (((value >> b) & 1u) << (bit % 8)));
        }
        std::vector<std::uint8_t> two = bytes;
        two.insert(two.end(), bytes.begin(), bytes.end());
        rig.store.storeRecords(two.data(), two.size());
        for (std::uint32_t i : {0u, 1u}) {
            ASSERT_NE(rig.store.valueSlotAt(*n, i), nullptr);
            EXPECT_EQ(graphValue(*n, *rig.store.valueSlotAt(*n, i)), static_cast<double>(value));
        }
    }
}
