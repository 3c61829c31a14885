// Sampling throughput: how many values per second the sample store takes in,
// and whether the whole chain (controller, jobs, binding, simulated probe)
// keeps up with BSQ at 100 kHz and 8 symbols without losing a record, in fast
// mode or, with "realtime", paced to the wall clock as a real target runs.
// Prints figures. Usage: bench_probe [seconds of BSQ, default 3] [realtime]
#include "app/Controller.h"
#include "app/JobEngine.h"
#include "probe/ProbeSampler.h"
#include "probe/SampleStore.h"
#include "probe/TarvoLibrary.h"
#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTree.h"

#include <QCoreApplication>
#include <QStandardPaths>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double since(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

// The eight demo variables the BSQ case samples, by path.
const char* const kPaths[8] = {"g_tick_ms", "g_sine",   "g_cosine",          "g_sawtooth",
                               "g_square",  "g_state",  "g_motor.speed_rpm", "g_channels[1].raw"};

void benchStoreIngest()
{
    SymbolDatabase symbols;
    const std::uint32_t sizes[8] = {4, 4, 4, 2, 1, 1, 4, 2};
    const std::int32_t types[8] = {8, 1, 1, 11, 5, 6, 1, 7};
    std::vector<Node*> nodes;
    for (int i = 0; i < 8; ++i) {
        Node* n = symbols.createDetachedSymbol();
        n->Size = sizes[i];
        n->TypeID = types[i];
        nodes.push_back(n);
    }
    symbols.setSelected(nodes);
    SampleStore store(symbols);
    const std::uint32_t recordSize = store.layOut(true);
    store.setOpen(true);
    if (!store.prepareFreshStart()) {
        std::printf("store ingest: allocation failed\n");
        return;
    }
    // One read's worth of records with changing values, as a probe delivers them.
    constexpr std::uint32_t kBatch = 20000;
    std::vector<std::uint8_t> batch(std::size_t(kBatch) * recordSize);
    for (std::uint32_t r = 0; r < kBatch; ++r) {
        std::uint8_t* rec = batch.data() + std::size_t(r) * recordSize;
        const std::uint32_t ts = r * 10;
        std::memcpy(rec, &ts, 4);
        for (std::uint32_t b = 4; b < recordSize; ++b)
            rec[b] = static_cast<std::uint8_t>(r * 31 + b);
    }
    std::uint64_t records = 0;
    const auto start = Clock::now();
    double elapsed = 0;
    while ((elapsed = since(start)) < 2.0) {
        store.storeRecords(batch.data(), batch.size());
        records += kBatch;
    }
    const double values = double(records) * 8;
    std::printf("store ingest: %.1f M records/s, %.1f M values/s (8 symbols, %u-byte records, goal >= 20 M values/s)\n",
                records / elapsed / 1e6, values / elapsed / 1e6, recordSize);
}

// Bridge of the benchmark: boxes go to stderr, so a failure is visible.
struct BenchBridge final : Bridge {
    MessageBoxAnswer messageBox(const MessageBoxRequest& r) override
    {
        std::fprintf(stderr, "[box] %s\n", r.text.c_str());
        return {};
    }
    std::string openFileDialog(const FileDialogRequest&) override { return {}; }
    std::string saveFileDialog(const FileDialogRequest&) override { return {}; }
    int progress(int, const std::string&, int, int) override { return 0; }
};

void benchBsqEndToEnd(double seconds, bool realTime)
{
    const fs::path bin = PLOTVIK_BIN_DIR;
    if (!fs::exists(bin / "demo.elf")) {
        std::printf("BSQ end to end: demo firmware not built\n");
        return;
    }
    const fs::path script = fs::temp_directory_path() / ("plotvik-bench-" + std::to_string(::getpid()) + ".TarvoScript");
    std::ofstream(script) << "Firmware = " << (bin / "demo.elf").string() << "\nFast = " << (realTime ? 0 : 1) << "\n";

    JobEngine engine;
    BenchBridge bridge;
    Controller ctl(engine, std::make_unique<ProbeSampler>());
    ctl.setBridge(&bridge);
    if (ctl.symbols().parseElf((bin / "demo.elf").string(), false, nullptr) != 0) {
        std::printf("BSQ end to end: demo firmware does not parse\n");
        return;
    }
    std::vector<Node*> chosen;
    SymbolTree& tree = *ctl.symbols().tree();
    for (const char* path : kPaths)
        if (const auto found = symtree::findPath(tree.arena, tree.files, path); !found.empty())
            chosen.push_back(found[0]);
    ctl.symbols().setSelected(chosen);

    ProjectSettings s;
    s.SamplingPeriod = 10;  // 100 kHz
    s.ScriptFile = script.string();
    s.Connection = kConnectionUsb;
    s.TargetDevice = "PVK-SIM-M4";
    s.TargetInterface = kInterfaceSwd;
    s.InterfaceSpeed = 4000;
    ctl.project().apply(s);
    ctl.project().setOpen(true);

    ctl.postStartReading();
    ctl.waitForQueue(20000);
    const auto start = Clock::now();
    // Check continuity while running: the ring holds 1,048,576 records, less
    // than a second of target time at this rate, so check each batch's span.
    std::uint64_t checked = 0, gaps = 0;
    std::uint32_t lastSeen = 0;
    bool haveLast = false;
    std::uint32_t seenWrite = ctl.store().writeIndex();
    while (since(start) < seconds && ctl.samplingRunning()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        const SampleStore& st = ctl.store();
        const std::uint32_t w = st.writeIndex();
        // Walk the slots written since the last look (the writer is ahead, never a ring behind
        // in practice: at 2 ms per look it writes a few thousand records).
        for (std::uint32_t slot = seenWrite; slot != w; slot = (slot + 1) % SampleStore::kCapacity) {
            const std::uint32_t ts = st.timeStamps()[slot];
            if (haveLast && ts - lastSeen != 10)
                ++gaps;
            lastSeen = ts;
            haveLast = true;
            ++checked;
        }
        seenWrite = w;
    }
    const double wall = since(start);
    const bool stillRunning = ctl.samplingRunning();
    ctl.postReadStop();
    ctl.waitForQueue(10000);
    engine.stopAndWait([] {});
    ctl.setBridge(nullptr);
    fs::remove(script);
    std::printf("BSQ end to end, 100 kHz, %zu symbols, %s: %llu records in %.2f s wall (%.0f records/s, %.2f s of "
                "target time), %llu gaps in the time stamps%s\n",
                chosen.size(), realTime ? "real time" : "fast mode", static_cast<unsigned long long>(checked), wall, checked / wall, checked * 10e-6,
                static_cast<unsigned long long>(gaps), stillRunning ? "" : ", sampling stopped early");
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    tarvo::setApplicationPath(QCoreApplication::applicationFilePath().toStdString());
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
    const bool realTime = argc > 2 && std::strcmp(argv[2], "realtime") == 0;
    benchStoreIngest();
    benchBsqEndToEnd(seconds, realTime);
    return 0;
}
