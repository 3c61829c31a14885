#include "sim/Devices.h"

#include "probe/TarvoApi.h"

#include <array>
#include <cctype>

namespace sim {
namespace {

constexpr uint32_t KiB = 1024;
constexpr uint32_t MiB = 1024 * 1024;
constexpr uint32_t M0 = TARVO_CORE_CORTEX_M0 | 1;
constexpr uint32_t M0P = TARVO_CORE_CORTEX_M0PLUS | 1;
constexpr uint32_t M3 = TARVO_CORE_CORTEX_M3 | 2;
constexpr uint32_t M4 = TARVO_CORE_CORTEX_M4 | 1;
constexpr uint32_t M7 = TARVO_CORE_CORTEX_M7 | 1;
constexpr uint32_t M23 = TARVO_CORE_CORTEX_M23 | 0;
constexpr uint32_t M33 = TARVO_CORE_CORTEX_M33 | 0;
constexpr uint32_t M55 = TARVO_CORE_CORTEX_M55 | 1;
constexpr uint32_t A7 = TARVO_CORE_CORTEX_A7 | 5;
constexpr uint32_t R5 = TARVO_CORE_CORTEX_R5 | 3;

// Every simulated device runs on the same emulated memory map; the numbers
// here are what the device information reports. Parts without BSQ model
// targets whose debug port cannot be read while the core runs.
constexpr std::array kDevices{
    Device{"Cortex-M0", "Unspecified", {M0}, 1, 0x00000000, 0, 0x20000000, 0, false},
    Device{"Cortex-M0+", "Unspecified", {M0P}, 1, 0x00000000, 0, 0x20000000, 0, true},
    Device{"Cortex-M3", "Unspecified", {M3}, 1, 0x00000000, 0, 0x20000000, 0, true},
    Device{"Cortex-M4", "Unspecified", {M4}, 1, 0x00000000, 0, 0x20000000, 0, true},
    Device{"Cortex-M7", "Unspecified", {M7}, 1, 0x00000000, 0, 0x20000000, 0, true},
    Device{"Cortex-M33", "Unspecified", {M33}, 1, 0x00000000, 0, 0x20000000, 0, true},
    Device{"PVK-SIM-M4", "Plotvik Simulated", {M4}, 1, 0x00000000, 512 * KiB, 0x20000000, 128 * KiB, true},
    Device{"PVK-SIM-M4-NOBSQ", "Plotvik Simulated", {M4}, 1, 0x00000000, 512 * KiB, 0x20000000, 128 * KiB, false},
    Device{"PVK-SIM-M7-DUAL", "Plotvik Simulated", {M7, M4}, 2, 0x00000000, 2 * MiB, 0x20000000, 1 * MiB, true},
    Device{"AM3210F4", "Astera Micro", {M4}, 1, 0x08000000, 256 * KiB, 0x20000000, 64 * KiB, true},
    Device{"AM3210F8", "Astera Micro", {M4}, 1, 0x08000000, 512 * KiB, 0x20000000, 128 * KiB, true},
    Device{"AM3220H7", "Astera Micro", {M7}, 1, 0x08000000, 1536 * KiB, 0x24000000, 512 * KiB, true},
    Device{"AM3220H9", "Astera Micro", {M7, M4}, 2, 0x08000000, 2 * MiB, 0x24000000, 1 * MiB, true},
    Device{"AM1100C6", "Astera Micro", {M0}, 1, 0x08000000, 32 * KiB, 0x20000000, 4 * KiB, false},
    Device{"AM1110C8", "Astera Micro", {M0P}, 1, 0x08000000, 64 * KiB, 0x20000000, 8 * KiB, false},
    Device{"KS40-128", "Kelvin Semiconductor", {M4}, 1, 0x00000000, 128 * KiB, 0x1FFF8000, 32 * KiB, true},
    Device{"KS40-512", "Kelvin Semiconductor", {M4}, 1, 0x00000000, 512 * KiB, 0x1FFF0000, 128 * KiB, true},
    Device{"KS60-1M", "Kelvin Semiconductor", {M7}, 1, 0x00000000, 1 * MiB, 0x20000000, 256 * KiB, true},
    Device{"KS20-64", "Kelvin Semiconductor", {M0P}, 1, 0x00000000, 64 * KiB, 0x1FFFF000, 16 * KiB, false},
    Device{"KS33-256", "Kelvin Semiconductor", {M33}, 1, 0x00000000, 256 * KiB, 0x20000000, 64 * KiB, true},
    Device{"OD-Lyra100", "Ostrava Devices", {M3}, 1, 0x00000000, 128 * KiB, 0x10000000, 32 * KiB, true},
    Device{"OD-Lyra200", "Ostrava Devices", {M3}, 1, 0x00000000, 256 * KiB, 0x10000000, 64 * KiB, true},
    Device{"OD-Vega400", "Ostrava Devices", {M4}, 1, 0x00000000, 1 * MiB, 0x10000000, 256 * KiB, true},
    Device{"OD-Vega410", "Ostrava Devices", {M4, M0P}, 2, 0x00000000, 1 * MiB, 0x10000000, 256 * KiB, true},
    Device{"OD-Orion23", "Ostrava Devices", {M23}, 1, 0x00000000, 64 * KiB, 0x20000000, 16 * KiB, false},
    Device{"NW-Tern52", "Northwind Silicon", {M4}, 1, 0x00000000, 512 * KiB, 0x20000000, 64 * KiB, true},
    Device{"NW-Tern53", "Northwind Silicon", {M33, M33}, 2, 0x00000000, 1 * MiB, 0x20000000, 256 * KiB, true},
    Device{"NW-Skua10", "Northwind Silicon", {M0}, 1, 0x00000000, 16 * KiB, 0x20000000, 2 * KiB, false},
    Device{"NW-Petrel91", "Northwind Silicon", {M55}, 1, 0x00000000, 4 * MiB, 0x30000000, 2 * MiB, true},
    Device{"RX-Quartz7", "Riverside Embedded", {A7}, 1, 0x00000000, 0, 0x80000000, 256 * MiB, false},
    Device{"RX-Garnet5", "Riverside Embedded", {R5, R5}, 2, 0x00000000, 4 * MiB, 0x00080000, 512 * KiB, true},
    Device{"RX-Opal4", "Riverside Embedded", {M4}, 1, 0x00000000, 768 * KiB, 0x20000000, 192 * KiB, true},
    Device{"RX-Beryl0", "Riverside Embedded", {M0P}, 1, 0x00000000, 32 * KiB, 0x20000000, 8 * KiB, false},
};

bool sameText(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

} // namespace

std::span<const Device> devices()
{
    return kDevices;
}

int findDevice(std::string_view name)
{
    for (size_t i = 0; i < kDevices.size(); ++i) {
        if (sameText(kDevices[i].name, name))
            return static_cast<int>(i);
    }
    return -1;
}

} // namespace sim
