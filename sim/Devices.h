// The device list of the simulated probe.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace sim {

struct Device {
    const char* name;
    const char* manufacturer;
    uint32_t cores[4]; // core ids, 0-terminated
    uint32_t numCores;
    uint32_t flashAddr;
    uint32_t flashSize;
    uint32_t ramAddr;
    uint32_t ramSize;
    bool hasBsq;
};

std::span<const Device> devices();

// Index of the device with this name (letter case ignored), or -1.
int findDevice(std::string_view name);

// The device a connection uses when no device was named explicitly.
inline constexpr const char* kDefaultDevice = "PVK-SIM-M4";

} // namespace sim
