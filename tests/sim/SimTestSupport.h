// Helpers for driving the probe library through its C API with the demo firmware.
#pragma once

#include "probe/TarvoApi.h"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
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

// Writes a script file into a fresh folder; returns its path.
std::string writeScript(const std::string& name, const std::string& text);

// Selects, opens and connects the probe to `device` with a script of `scriptText`.
// Given `elf`, names it as the program's ELF file, and loads a script only when
// `scriptText` is not empty. Returns the Connect result (0 = connected).
int connectWith(const std::string& scriptText, const std::string& device = "PVK-SIM-M4",
                const std::string& elf = {});

// Reads BSQ records, `chunk` bytes a read (0: 4096 records), until at least
// `want` arrived or `timeoutMs` passed.
std::vector<uint8_t> readBsq(uint32_t recordSize, size_t want, int timeoutMs = 20000, uint32_t chunk = 0);

// Waits until the demo firmware has finished its start-up and counts ticks,
// so that every record taken from now on follows its formulas. Uses (and
// stops) a BSQ of the tick. False when the tick never reached `tick`.
bool waitForTick(uint32_t tick);

// The first up-channel's description, once the firmware has set up its
// control block (an empty name when it never did).
TARVO_QTX_CHANNEL_DESC firstUpChannel(int timeoutMs = 20000);

// Checks a stream of the demo's QTX records ("Plotvik_t4f4f4i2u1", 15 bytes):
// framed, in time order (a millisecond apart when `everyTick`), with the
// firmware's values for their time stamps.
void checkQtxRecords(const std::vector<uint8_t>& stream, bool everyTick);

struct BsqStatus {
    uint64_t queued = 0;
    uint64_t dropped = 0;
};
// The simulated probe's BSQ FIFO, without taking records out of it.
BsqStatus bsqStatus();

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

} // namespace simtest
