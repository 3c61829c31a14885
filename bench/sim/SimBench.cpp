// Throughput of the simulated probe in fast mode: sustained BSQ records per
// second with 8 symbols, QTX bytes per second, and what got lost on the way.
// Prints figures; pass a duration in seconds (default 3).
#include "probe/TarvoApi.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

uint32_t u32(const uint8_t* p)
{
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

bool connectFast()
{
    const auto script = std::filesystem::temp_directory_path() / "plotvik-bench-fast.TarvoScript";
    std::ofstream(script) << "Fast = 1\n";
    char err[1024] = "";
    TARVOARM_EMU_SelectByUSBSN(uint32_t(TARVOARM_GetSN()));
    if (TARVOARM_OpenEx(nullptr, nullptr) != nullptr)
        return false;
    TARVOARM_ExecCommand("device = PVK-SIM-M4", err, sizeof err);
    const std::string cmd = "ScriptFile = " + script.string();
    if (TARVOARM_ExecCommand(cmd.c_str(), err, sizeof err) != 0) {
        std::printf("script: %s\n", err);
        return false;
    }
    return TARVOARM_Connect() == 0;
}

void benchBsq(double seconds, uint32_t periodUs)
{
    if (!connectFast()) {
        std::printf("BSQ: connect failed\n");
        return;
    }
    // Eight demo variables: tick, sine, cosine, sawtooth, square, state, 64-bit counter, motor.
    const TARVO_BSQ_BLOCK blocks[8] = {
        {0x20000000, 4, 0, 0}, {0x20000004, 4, 0, 0}, {0x20000008, 4, 0, 0}, {0x2000000C, 2, 0, 0},
        {0x2000000E, 1, 0, 0}, {0x2000000F, 1, 0, 0}, {0x20000010, 8, 0, 0}, {0x20000018, 12, 0, 0},
    };
    const uint32_t record = 4 + 4 + 4 + 4 + 2 + 1 + 1 + 8 + 12;
    if (TARVO_BSQ_Start(blocks, 8, periodUs, 1) != 0) {
        std::printf("BSQ: start failed\n");
        TARVOARM_Close();
        return;
    }
    std::vector<uint8_t> buf(2 * 1024 * 1024 / (record * 8) * (record * 8));
    uint64_t records = 0;
    uint64_t lost = 0;
    uint32_t first = 0;
    uint32_t last = 0;
    bool any = false;
    const auto start = Clock::now();
    while (std::chrono::duration<double>(Clock::now() - start).count() < seconds) {
        const int n = TARVO_BSQ_Read(buf.data(), uint32_t(buf.size()));
        if (n < 0)
            break;
        for (int at = 0; at < n; at += int(record)) {
            const uint32_t stamp = u32(&buf[size_t(at)]);
            if (any)
                lost += (stamp - last) / periodUs - 1;
            else
                first = stamp;
            last = stamp;
            any = true;
            ++records;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10)); // the program's read cadence
    }
    const double wall = std::chrono::duration<double>(Clock::now() - start).count();
    const double targetS = any ? double(last - first) / 1e6 : 0.0;
    std::printf("BSQ  8 symbols, %5u us period: %10.0f records/s  (%llu records in %.2f s, %llu dropped by the FIFO, "
                "target time %.2f s = %.1fx real time)\n",
                periodUs, double(records) / wall, static_cast<unsigned long long>(records), wall,
                static_cast<unsigned long long>(lost), targetS, targetS / wall);
    TARVO_BSQ_Stop();
    TARVOARM_Close();
}

void benchQtx(double seconds, int readPauseMs)
{
    if (!connectFast()) {
        std::printf("QTX: connect failed\n");
        return;
    }
    TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_START, nullptr);
    int count = TARVO_QTX_ERR_NOT_FOUND;
    for (int i = 0; i < 2000 && count == TARVO_QTX_ERR_NOT_FOUND; ++i) {
        uint32_t dir = TARVO_QTX_DIR_UP;
        count = TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_GETNUMBUF, &dir);
        if (count == TARVO_QTX_ERR_NOT_FOUND)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (count < 1) {
        std::printf("QTX: control block not found\n");
        TARVOARM_Close();
        return;
    }
    const uint32_t record = 15; // Plotvik_t4f4f4i2u1
    std::vector<char> buf(8192);
    std::vector<uint8_t> carry;
    uint64_t bytes = 0;
    uint64_t lost = 0;
    uint64_t records = 0;
    uint32_t last = 0;
    bool any = false;
    const auto start = Clock::now();
    while (std::chrono::duration<double>(Clock::now() - start).count() < seconds) {
        const int n = TARVO_QTXTERMINAL_Read(0, buf.data(), uint32_t(buf.size()));
        if (n < 0)
            break;
        bytes += uint64_t(n);
        carry.insert(carry.end(), buf.begin(), buf.begin() + n);
        size_t at = 0;
        for (; at + record <= carry.size(); at += record) {
            const uint32_t stamp = u32(&carry[at]);
            if (any)
                lost += (stamp - last) / 1000 - 1;
            last = stamp;
            any = true;
            ++records;
        }
        carry.erase(carry.begin(), carry.begin() + long(at));
        if (readPauseMs > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(readPauseMs));
    }
    const double wall = std::chrono::duration<double>(Clock::now() - start).count();
    std::printf("QTX  1 kHz channel, read every %2d ms: %10.0f bytes/s  (%llu records, %llu dropped by the firmware)\n",
                readPauseMs, double(bytes) / wall, static_cast<unsigned long long>(records),
                static_cast<unsigned long long>(lost));
    TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_STOP, nullptr);
    TARVOARM_Close();
}

} // namespace

int main(int argc, char** argv)
{
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
    std::printf("Simulated probe, fast mode, %.1f s per run\n", seconds);
    benchBsq(seconds, 10);
    benchBsq(seconds, 100);
    benchBsq(seconds, 1000);
    benchQtx(seconds, 0);
    benchQtx(seconds, 10);
    return 0;
}
