// BSQ over a GDB server: the sustained record rate against QEMU's gdbstub
// (stop-read-continue: interrupt, read, continue for every record) running
// the demo on mps2-an386, and against the simulated target's own server
// (background reads while the core runs, as OpenOCD), for 1, 8 and 32
// symbols, as fast as it goes and at a 1 kHz period. Prints figures.
// Usage: bench_gdb [seconds per case, default 2]
#include "sim/target/ElfImage.h"
#include "sim/target/GdbServer.h"
#include "sim/target/Target.h"
#include "sim/gdb/Remote.h"
#include "tests/sim/QemuBoard.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

std::vector<TARVO_BSQ_BLOCK> blocksFor(int symbols)
{
    std::vector<TARVO_BSQ_BLOCK> b;
    if (symbols == 8) {
        // The demo's variables: neighbours, read as one span.
        const uint32_t addr[8] = {0x20000000, 0x20000004, 0x20000008, 0x2000000C,
                                  0x2000000E, 0x2000000F, 0x20000018, 0x2000002C};
        const uint32_t size[8] = {4, 4, 4, 2, 1, 1, 4, 2};
        for (int i = 0; i < 8; ++i)
            b.push_back({addr[i], size[i], 0, 0});
    } else {
        // Scattered 256 bytes apart: a read each.
        for (int i = 0; i < symbols; ++i)
            b.push_back({0x20000000u + uint32_t(i) * 256u, 4, 0, 0});
    }
    return b;
}

// Samples every case through `remote`; false when the server failed.
bool measure(sim::gdb::Remote& remote, double seconds)
{
    std::printf("mode %s, rate estimated at connect %u Hz\n", remote.modeText().c_str(), remote.sustainableHz());
    remote.go();
    for (const uint32_t period : {10u, 1000u}) {
        for (const int symbols : {1, 8, 32}) {
            const auto blocks = blocksFor(symbols);
            uint32_t recordSize = 4;
            for (const auto& b : blocks)
                recordSize += b.NumBytes;
            if (remote.bsqStart(blocks.data(), uint32_t(blocks.size()), period) != 0) {
                std::printf("BSQ start failed: %s\n", remote.lastError().c_str());
                return false;
            }
            std::vector<uint8_t> buf(1 << 20);
            uint64_t records = 0;
            const auto t0 = Clock::now();
            while (std::chrono::duration<double>(Clock::now() - t0).count() < seconds) {
                const int n = remote.bsqRead(buf.data(), uint32_t(buf.size()));
                if (n < 0) {
                    std::printf("read failed: %s\n", remote.lastError().c_str());
                    return false;
                }
                records += uint64_t(n) / recordSize;
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
            const double elapsed = std::chrono::duration<double>(Clock::now() - t0).count();
            remote.bsqStop();
            records += uint64_t(std::max(0, remote.bsqRead(buf.data(), uint32_t(buf.size())))) / recordSize;
            std::printf("  period %5u us, %2d symbols: %8.0f records/s%s\n", period, symbols, records / elapsed,
                        period == 1000 ? (records / elapsed >= 990 ? "  (keeps 1 kHz)" : "  (misses 1 kHz)") : "");
        }
    }
    return true;
}

int qemu(double seconds)
{
    std::printf("server: QEMU mps2-an386 gdbstub, ");
    if (QemuBoard::qemuPath().empty()) {
        std::printf("qemu-system-arm is not installed: nothing to measure\n");
        return 0;
    }
    QemuBoard board(std::string(PLOTVIK_BIN_DIR) + "/demo_mps2_an386.elf");
    if (!board.ready()) {
        std::printf("QEMU did not start\n");
        return 1;
    }
    std::string error;
    auto remote = sim::gdb::Remote::open("127.0.0.1", static_cast<uint16_t>(board.port()), error);
    if (!remote || !(error = remote->connect(false)).empty()) {
        std::printf("connect failed: %s\n", error.c_str());
        return 1;
    }
    return measure(*remote, seconds) ? 0 : 1;
}

int simulated(double seconds)
{
    std::printf("server: the simulated target's (demo.elf in real time), ");
    sim::ElfImage image;
    if (auto err = sim::loadElf(std::string(PLOTVIK_BIN_DIR) + "/demo.elf", image); !err.empty()) {
        std::printf("no demo firmware: %s\n", err.c_str());
        return 1;
    }
    sim::Target target(sim::TargetConfig{}, std::move(image));
    std::string error = target.start();
    auto server = error.empty() ? sim::GdbServer::start(target, 0, error) : nullptr;
    auto remote = server ? sim::gdb::Remote::open("127.0.0.1", server->port(), error) : nullptr;
    if (!remote || !(error = remote->connect(false)).empty()) {
        std::printf("connect failed: %s\n", error.c_str());
        return 1;
    }
    return measure(*remote, seconds) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 2.0;
    const int a = qemu(seconds);
    const int b = simulated(seconds);
    return a != 0 ? a : b;
}
