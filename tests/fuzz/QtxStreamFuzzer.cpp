// The QTX record stream: a scripted probe announces a channel name and hands
// out the channel's bytes in arbitrary pieces; the store must hold exactly
// the whole records of the bytes delivered, in order, whatever the pieces.
#include "FuzzSupport.h"

#include "FakeQtxProbe.h"
#include "base/ProjectSettings.h"
#include "probe/ProbeSampler.h"
#include "probe/SampleStore.h"
#include "probe/TarvoLibrary.h"
#include "symbols/SymbolDatabase.h"

#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <vector>

namespace {

FakeQtxPlay_fn* g_play = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char*** argv)
{
    // The scripted probe stands beside this program, where the loader looks first.
    tarvo::setApplicationPath(std::filesystem::absolute((*argv)[0]).string());
    FUZZ_CHECK(!tarvo::load(false));  // load() answers true when it failed
    const std::string path = (std::filesystem::absolute((*argv)[0]).parent_path() / tarvo::kLibraryFile).string();
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    g_play = module ? reinterpret_cast<FakeQtxPlay_fn*>(dlsym(module, "FakeQtxPlay")) : nullptr;
    FUZZ_CHECK(g_play != nullptr);  // the scripted probe, not another library, was loaded
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Input: channel byte, name line, piece count, piece sizes, stream.
    fuzz::Cursor in{data, size};
    FakeQtxScript script;
    const std::uint8_t channels = in.byte();
    script.channels = 1 + channels % 4;
    script.formatChannel = (channels >> 2) % script.channels;
    const std::string name = in.line(sizeof script.name - 1);
    std::memcpy(script.name, name.data(), name.size());
    script.chunkCount = in.byte() % 32;
    script.chunks = in.rest();
    in.skip(script.chunkCount);
    script.chunkCount = std::min(script.chunkCount, std::size_t(in.rest() - script.chunks));
    script.stream = in.rest();
    script.streamSize = in.remaining();
    g_play(&script);

    SymbolDatabase symbols;
    SampleStore store(symbols);
    ProbeSampler sampler;
    ProjectSettings s;
    s.IsQTXSession = true;
    s.TargetDevice = "Cortex-M4";
    FUZZ_CHECK(sampler.openProbe(s) == 0 && sampler.setUpTarget(s) == 0);
    if (sampler.startSource(s, symbols, store) != 0) {
        sampler.close();
        return 0;
    }
    FUZZ_CHECK(sampler.qtxStarted());
    // Sample buffers are 8 MiB each: reused from earlier inputs, or most of
    // the time would go to faulting in fresh pages.
    static std::vector<alloc::Block<std::uint64_t>> pool;
    for (Node* n : symbols.selected()) {
        if (!pool.empty()) {
            n->symbol().Values = std::move(pool.back());
            pool.pop_back();
        }
    }
    struct GiveBack {
        SymbolDatabase& symbols;
        ~GiveBack()
        {
            for (Node* n : symbols.selected())
                if (n->symbol().Values)
                    pool.push_back(std::move(n->symbol().Values));
        }
    } giveBack{symbols};
    FUZZ_CHECK(store.prepareFreshStart());
    store.setOpen(true);
    int failed = 0;
    std::size_t firstPiece = 0;
    for (std::size_t i = 0; i <= script.chunkCount; ++i) {
        failed += sampler.read(s, store) < 0;
        if (firstPiece == 0)
            firstPiece = script.delivered;
    }
    sampler.close();

    // Every whole record delivered is in the store, byte for byte.
    const std::uint32_t recordSize = sampler.recordSize();
    FUZZ_CHECK(recordSize == store.recordSize());
    // A read while the store is still empty drops the carry, so a stream
    // whose first piece is less than a record starts out of step. A firmware
    // writes whole records, so a probe's first read holds at least one.
    if (recordSize == 0 || failed || firstPiece < recordSize)
        return 0;
    const std::size_t records = script.delivered / recordSize;
    FUZZ_CHECK(store.writeIndex() == records);
    for (std::uint32_t r = 0; r < records; ++r) {
        const std::uint8_t* rec = script.stream + r * recordSize;
        FUZZ_CHECK(!store.withTimeStamp() || store.timeStampAt(r) == (fuzz::Cursor{rec, 4}.u32()));
        for (const Node* n : symbols.selected()) {
            std::uint64_t expected = 0;
            std::memcpy(&expected, rec + n->symbol().Offset, n->Size);
            FUZZ_CHECK(*store.valueSlotAt(*n, r) == expected);
        }
    }
    return 0;
}
