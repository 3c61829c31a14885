// The probe library's device list as the device selection table and
// `plotvik-cli devices` show it, and the texts of its columns.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct DeviceEntry {
    std::string name;          // at most 127 characters
    std::string manufacturer;  // at most 127 characters
    std::string cores;         // core names, at most 255 characters
    std::int32_t numCores = 0;
    std::uint32_t flashSize = 0;  // bytes
    std::uint32_t flashAddr = 0;
    std::uint32_t ramAddr = 0;
    std::uint32_t ramSize = 0;
    bool hasBsq = false;
};

namespace devicelist {

// Columns of the device table, in order.
enum Column : int { kColManufacturer = 0, kColDevice, kColCore, kColNumCores, kColFlashSize, kColumnCount };
const char* columnTitle(int column);

// Every device the loaded probe library knows; empty when it cannot be loaded.
std::vector<DeviceEntry> load();

// "Cortex-M4 Rev.1", joined with ", " for several cores; unknown identifiers
// show as hexadecimal.
std::string coreText(const std::uint32_t* coreIds, int count);
// Size in bytes as the table shows it: "1.5 MB", "512 KB", "1000 Bytes".
std::string sizeText(std::int64_t bytes);
// The text of one cell.
std::string cellText(const DeviceEntry& entry, int column);

// Case-blind substring match; an empty filter matches everything.
bool matches(std::string_view text, std::string_view filter);
// True when some column of the entry contains `filter`.
bool anyColumnMatches(const DeviceEntry& entry, std::string_view filter);

}  // namespace devicelist
