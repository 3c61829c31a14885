#include "symbols/ElfChangeCheck.h"

#include <chrono>
#include <fstream>

namespace fs = std::filesystem;

bool ElfTimeDiffers(fs::file_time_type a, fs::file_time_type b)
{
    // The stamp is kept to the millisecond; earlier counts as much as later.
    using std::chrono::floor;
    using std::chrono::milliseconds;
    return floor<milliseconds>(a) != floor<milliseconds>(b);
}

ElfChange CheckElfChange(const std::string& path, fs::file_time_type parsed)
{
    std::ifstream file(fs::path(path), std::ios::binary);
    if (!file.is_open()) {
        std::error_code ec;
        return fs::status(path, ec).type() == fs::file_type::not_found ? ElfChange::Gone : ElfChange::Unchanged;
    }
    std::error_code ec;
    const fs::file_time_type written = fs::last_write_time(path, ec);
    return !ec && ElfTimeDiffers(written, parsed) ? ElfChange::Modified : ElfChange::Unchanged;
}
