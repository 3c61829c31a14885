// Noticing that the project's ELF file was rebuilt since its last parse. The
// symbol side only answers; the controller decides what to ask and to do.
#pragma once

#include <filesystem>
#include <string>

enum class ElfChange {
    Unchanged,  // same last-write time, or present but unreadable
    Gone,       // deleted or moved away
    Modified,   // last-write time differs from the one of the last parse
};

// Compares the file at `path` with the last-write time `parsed` of its last parse.
ElfChange CheckElfChange(const std::string& path, std::filesystem::file_time_type parsed);

// True when two last-write times differ at millisecond precision.
bool ElfTimeDiffers(std::filesystem::file_time_type a, std::filesystem::file_time_type b);
