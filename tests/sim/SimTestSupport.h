// Helpers for driving the probe library through its C API with the demo firmware.
#pragma once

#include "probe/TarvoApi.h"
#include "tests/TempFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace simtest {

// Demo firmware layout: .demo_vars starts RAM, variables in definition order.
constexpr uint32_t kTick = 0x20000000;      // uint32
constexpr uint32_t kSine = 0x20000004;      // float
constexpr uint32_t kCosine = 0x20000008;    // float
constexpr uint32_t kSawtooth = 0x2000000C;  // int16
constexpr uint32_t kSquare = 0x2000000E;    // bool
constexpr uint32_t kState = 0x2000000F;     // enum, 1 byte
constexpr uint32_t kCounter64 = 0x20000010; // uint64
constexpr uint32_t kMotor = 0x20000018;     // 12 bytes
constexpr uint32_t kChannels = 0x20000024;  // 4 x 8 bytes

// Expected values of the demo firmware for tick t (formulas of firmware/demo/demo.c).
inline float sineAt(uint32_t t) { return 100.0f * std::sin(6.28318530718f * float(t % 1000u) / 1000.0f); }
inline float cosineAt(uint32_t t) { return 50.0f * std::cos(6.28318530718f * float(t % 250u) / 250.0f); }
inline int16_t sawtoothAt(uint32_t t) { return int16_t(int32_t(t % 200u) - 100); }
inline uint8_t stateAt(uint32_t t) { return uint8_t((t / 250u) % 4u); }

template <typename T>
T get(const uint8_t* p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Polls `done` until it holds or `timeoutMs` passed.
template <typename Pred>
bool waitFor(Pred done, int timeoutMs = 20000)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= end)
            return done();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// Writes a script file into the test's folder; returns its path.
inline std::string writeScript(const std::string& name, const std::string& text)
{
    const std::filesystem::path p = testtemp::folder() / name;
    std::ofstream(p) << text;
    return p.string();
}

// Selects, opens and connects the probe to `device` with a script of `scriptText`.
// Given `elf`, names it as the program's ELF file, and loads a script only when
// `scriptText` is not empty. Returns the Connect result (0 = connected).
inline int connectWith(const std::string& scriptText, const std::string& device = "PVK-SIM-M4",
                       const std::string& elf = {})
{
    if (TARVOARM_EMU_SelectByUSBSN(static_cast<uint32_t>(TARVOARM_GetSN())) < 0)
        return -100;
    if (TARVOARM_OpenEx(nullptr, nullptr) != nullptr)
        return -101;
    char err[1024] = "";
    TARVOARM_ExecCommand("SetSkipInitECCRAMOnConnect = 1", nullptr, 0);
    if (TARVOARM_ExecCommand(("device = " + device).c_str(), err, sizeof err) != 0 || err[0] != '\0')
        return -102;
    if (!elf.empty() && TARVOARM_ExecCommand(("ELFFile = " + elf).c_str(), err, sizeof err) != 0)
        return -104;
    // Settings stay for the rest of the process: each test starts from the defaults.
    const std::string text = elf.empty() ? "DropWhenFull = 0\n" + scriptText : scriptText;
    const std::string script = "ScriptFile = " + writeScript("test.TarvoScript", text);
    if (!text.empty() && (TARVOARM_ExecCommand(script.c_str(), err, sizeof err) != 0 || err[0] != '\0'))
        return -103;
    TARVOARM_TIF_Select(TARVO_TIF_SWD);
    TARVOARM_SetSpeed(4000);
    return TARVOARM_Connect();
}

// Reads BSQ records, `chunk` bytes a read (0: 4096 records), until at least
// `want` arrived or `timeoutMs` passed.
inline std::vector<uint8_t> readBsq(uint32_t recordSize, size_t want, int timeoutMs = 20000, uint32_t chunk = 0)
{
    std::vector<uint8_t> all;
    std::vector<uint8_t> buf(chunk != 0 ? chunk : recordSize * 4096);
    // Pauses only when the FIFO is empty: small reads must not wait between them.
    waitFor([&] {
        for (;;) {
            const int n = TARVO_BSQ_Read(buf.data(), static_cast<uint32_t>(buf.size()));
            all.insert(all.end(), buf.begin(), buf.begin() + std::max(n, 0));
            if (n < 0 || all.size() >= want * recordSize)
                return true;
            if (n == 0)
                return false;
        }
    }, timeoutMs);
    return all;
}

// Waits until the demo firmware has finished its start-up and counts ticks,
// so that every record taken from now on follows its formulas. Uses (and
// stops) a BSQ of the tick. False when the tick never reached `tick`.
inline bool waitForTick(uint32_t tick)
{
    const TARVO_BSQ_BLOCK block{kTick, 4, 0, 0};
    if (TARVO_BSQ_Start(&block, 1, 1000, TARVO_BSQ_FLAG_TIMESTAMP) != 0)
        return false;
    bool reached = false;
    waitFor([&] {
        uint8_t buf[8 * 64];
        const int n = TARVO_BSQ_Read(buf, sizeof buf);
        for (int at = 0; at + 8 <= n; at += 8)
            reached = reached || get<uint32_t>(buf + at + 4) >= tick;
        return reached || n < 0;
    });
    TARVO_BSQ_Stop();
    return reached;
}

// The first up-channel's description, once the firmware has set up its
// control block (an empty name when it never did).
inline TARVO_QTX_CHANNEL_DESC firstUpChannel()
{
    TARVO_QTX_CHANNEL_DESC desc{};
    uint32_t up = TARVO_QTX_DIR_UP;
    int channels = TARVO_QTX_ERR_NOT_FOUND;
    waitFor([&] {
        channels = TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_GETNUMBUF, &up);
        return channels != TARVO_QTX_ERR_NOT_FOUND;
    });
    desc.Direction = TARVO_QTX_DIR_UP;
    EXPECT_TRUE(channels < 1 || TARVO_QTXTERMINAL_Control(TARVO_QTX_CMD_GETDESC, &desc) == 0);
    return desc;
}

// Checks a stream of the demo's QTX records ("Plotvik_t4f4f4i2u1", 15 bytes):
// framed, a millisecond apart, with the firmware's values for their time stamps.
inline void checkQtxRecords(const std::vector<uint8_t>& stream)
{
    ASSERT_GE(stream.size(), 200u * 15);
    for (size_t at = 0; at + 15 <= stream.size(); at += 15) {
        const uint8_t* r = &stream[at];
        const uint32_t stamp = get<uint32_t>(r);
        ASSERT_EQ(stamp % 1000, 0u) << "record " << at / 15 << " is not framed";
        const uint32_t previous = at > 0 ? get<uint32_t>(r - 15) : 0;
        ASSERT_TRUE(at == 0 || stamp - previous == 1000u) << "a record was lost or doubled at " << stamp;
        const uint32_t t = stamp / 1000;
        EXPECT_NEAR(get<float>(r + 4), sineAt(t), 1e-3);
        EXPECT_NEAR(get<float>(r + 8), cosineAt(t), 1e-3);
        EXPECT_EQ(get<int16_t>(r + 12), sawtoothAt(t));
        EXPECT_EQ(r[14], stateAt(t));
    }
}

// The simulated probe's BSQ FIFO, without taking records out of it.
struct BsqStatus {
    unsigned long long queued = 0;
    unsigned long long dropped = 0;
};
inline BsqStatus bsqStatus()
{
    char text[128] = "";
    BsqStatus s;
    if (TARVOARM_ExecCommand("GetBsqStatus", text, sizeof text) != 0
        || std::sscanf(text, "queued=%llu dropped=%llu", &s.queued, &s.dropped) != 2)
        return {};
    return s;
}

} // namespace simtest
