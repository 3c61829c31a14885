// A small ELF32 little-endian ARM reader: the loadable segments of a firmware
// image, placed at their load (physical) addresses as a flash programmer would,
// and the memory the image occupies when it runs (where the target needs memory).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

struct ElfSegment {
    uint32_t address = 0;            // load address (p_paddr)
    std::vector<uint8_t> bytes;      // file contents (p_filesz)
};

// Memory the image uses: a segment's load and run addresses with its zeroed
// tail, and every allocated section (stack and heap reservations too).
struct ElfRange {
    uint32_t address = 0;
    uint32_t size = 0;
};

struct ElfImage {
    uint32_t entry = 0;
    std::vector<ElfSegment> segments;
    std::vector<ElfRange> memory;
};

// Parses an ELF image held in memory. Returns an empty string on success,
// otherwise why the image is not a usable ARM executable.
std::string parseElf(const std::vector<uint8_t>& file, ElfImage& out);

// Reads and parses an ELF file.
std::string loadElf(const std::string& path, ElfImage& out);

} // namespace sim
