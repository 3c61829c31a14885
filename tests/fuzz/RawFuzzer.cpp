// The raw sample file import on arbitrary files and selections: the header
// of an input chooses the selected symbols and the trigger, the rest is the
// file. Whole records land in the store; nothing is read past the file.
#include "FuzzSupport.h"

#include "files/Project.h"
#include "files/RawFile.h"
#include "probe/SampleStore.h"
#include "symbols/SymbolDatabase.h"

#include <bit>
#include <cstring>
#include <vector>

namespace {

constexpr int kMaxSymbols = 4;

// Kept across inputs: the store's buffers are megabytes per symbol, and
// allocating them for every input would leave little time for the reader.
struct World {
    SymbolDatabase symbols;
    SampleStore store{symbols};
    Project project;
    std::vector<Node*> pool;
    World()
    {
        for (int i = 0; i < kMaxSymbols; ++i) {
            Node* n = symbols.createDetachedSymbol();
            n->Name = "v" + std::to_string(i);
            n->IsLeaf = true;
            pool.push_back(n);
        }
        store.setProject(&project);
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static World w;
    fuzz::Cursor in{data, size};
    const int count = 1 + in.byte() % kMaxSymbols;
    std::vector<Node*> selection;
    for (int i = 0; i < count; ++i) {
        Node* n = w.pool[static_cast<std::size_t>(i)];
        n->Size = in.byte() % 17;
        const std::uint8_t type = in.byte();
        n->TypeID = type % (kTypeBitField + 2);
        n->IsSigned = type & 0x80;
        selection.push_back(n);
    }
    w.symbols.setSelected(selection);

    const std::uint8_t trigger = in.byte();
    ProjectSettings settings = w.project.settings();
    settings.TriggerOn = trigger & 1;
    settings.TriggerRise = trigger & 2;
    settings.TriggerFall = trigger & 4;
    settings.TriggerFired = false;
    settings.TriggerSymbol = trigger & 8 ? selection[(trigger >> 4) % selection.size()] : nullptr;
    settings.TriggerLevel = std::bit_cast<float>(in.u32());
    settings.IsQTXSession = trigger & 0x80;
    settings.IsQTXWithTimeStamp = trigger & 0x40;
    w.project.apply(settings);

    const auto recording = ReadRawRecording(fuzz::asFile(in.rest(), in.remaining()), w.symbols);
    FUZZ_CHECK(recording.has_value());
    FUZZ_CHECK(recording->recordSize == RawRecordSize(w.symbols));
    FUZZ_CHECK(recording->bytes.size() % recording->recordSize == 0);
    FUZZ_CHECK(recording->bytes.size() <= in.remaining());
    FUZZ_CHECK(recording->bytes.empty() || std::memcmp(recording->bytes.data(), in.rest(), recording->bytes.size()) == 0);
    FUZZ_CHECK(StoreRawRecording(*recording, w.store, settings) == 0);
    const std::size_t records = recording->bytes.size() / recording->recordSize;
    if (!settings.TriggerOn) {
        FUZZ_CHECK(w.store.writeIndex() == records % SampleStore::kCapacity);
        FUZZ_CHECK(records == 0 || w.store.timeStampAt(0) == (fuzz::Cursor{in.rest(), 4}.u32()));
    }
    return 0;
}
