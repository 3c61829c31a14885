// The probe script file: "Key = Value" lines that configure the simulated
// probe and target (see docs/guide/probe-script.md).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sim {

struct Script {
    std::string path;                   // the script file itself
    std::optional<std::string> firmware; // resolved against the script's folder
    std::optional<bool> fast;
    std::optional<uint32_t> clockHz;
    std::optional<uint32_t> serialNumber;
    std::optional<std::string> device;
    std::optional<std::string> deviceDialog; // "cancel" or a device name
    std::optional<uint32_t> failReadAfter;
    std::optional<uint32_t> sliceInstructions;
    std::optional<bool> dropWhenFull; // fast mode: a full BSQ FIFO drops instead of waiting
    std::optional<bool> attach;       // GDB server: beside a debugger, leave the run state alone
    std::optional<uint16_t> gdbServerPort; // the simulated target also serves GDB on 127.0.0.1:port
};

// Parses script text. `folder` is the folder relative paths are resolved
// against. Returns an empty string on success, otherwise the error text.
std::string parseScript(std::string_view text, const std::string& folder, Script& out);

// Reads a script file and parses it.
std::string loadScript(const std::string& path, Script& out);

// Overlays the settings present in `top` onto `base`.
void mergeScript(Script& base, const Script& top);

} // namespace sim
