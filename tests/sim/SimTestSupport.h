// Helpers for driving the probe library through its C API with the demo firmware.
#pragma once

#include "probe/TarvoApi.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
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
// Returns the Connect result (0 = connected).
int connectWith(const std::string& scriptText, const std::string& device = "PVK-SIM-M4");

// Reads BSQ records until at least `want` arrived or `timeoutMs` passed.
std::vector<uint8_t> readBsq(uint32_t recordSize, size_t want, int timeoutMs = 10000);

} // namespace simtest
