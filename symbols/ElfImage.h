// Bounds-checked reads of an ELF file image in memory: fields in the file's
// byte order and the section header table. Hostile files are the rule here,
// so a field outside the bytes reads 0 rather than past them.
#pragma once

#include <cstdint>

namespace elf {

struct Image {
    const unsigned char* data;
    std::uint64_t size;
    bool big;

    // 0 when the field lies outside the bytes.
    std::uint64_t get(std::uint64_t off, unsigned n) const
    {
        if (off > size || size - off < n)
            return 0;
        std::uint64_t v = 0;
        for (unsigned i = 0; i < n; ++i) {
            const std::uint64_t b = data[off + i];
            v |= big ? b << (8 * (n - 1 - i)) : b << (8 * i);
        }
        return v;
    }
    void put(unsigned char* to, std::uint64_t v, unsigned n) const
    {
        for (unsigned i = 0; i < n; ++i)
            to[big ? n - 1 - i : i] = static_cast<unsigned char>(v >> (8 * i));
    }
};

// One section header as the file states it (nothing checked).
struct SectionHeader {
    std::uint64_t nameAt = 0, type = 0, flags = 0, addr = 0, offset = 0, size = 0, link = 0, info = 0, align = 0,
                  entrySize = 0;
};

// The section header table of an image whose ELF header was checked.
struct SectionTable {
    Image img;
    bool is64;
    std::uint64_t shoff, shentsize, shnum, shstrndx;

    SectionTable(const unsigned char* d, std::uint64_t size)
        : img{d, size, d[5] == 2}, is64(d[4] == 2), shoff(is64 ? img.get(40, 8) : img.get(32, 4)),
          shentsize(img.get(is64 ? 58 : 46, 2)), shnum(img.get(is64 ? 60 : 48, 2)),
          shstrndx(img.get(is64 ? 62 : 50, 2))
    {
    }
    bool empty() const { return shoff == 0 || shentsize == 0; }
    SectionHeader operator[](std::uint64_t index) const
    {
        const std::uint64_t at = shoff + index * shentsize;
        // The fields that are 4 bytes wide in ELF32 and 8 in ELF64.
        const auto wide = [&](unsigned off32, unsigned off64) {
            return is64 ? img.get(at + off64, 8) : img.get(at + off32, 4);
        };
        SectionHeader h;
        h.nameAt = img.get(at, 4);
        h.type = img.get(at + 4, 4);
        h.flags = wide(8, 8);
        h.addr = wide(12, 16);
        h.offset = wide(16, 24);
        h.size = wide(20, 32);
        h.link = img.get(at + (is64 ? 40 : 24), 4);
        h.info = img.get(at + (is64 ? 44 : 28), 4);
        h.align = wide(32, 48);
        h.entrySize = wide(36, 56);
        return h;
    }
};

}  // namespace elf
