#include "sim/target/ElfImage.h"

#include <fstream>
#include <iterator>

namespace sim {
namespace {

uint32_t rd32(const std::vector<uint8_t>& b, size_t o)
{
    return uint32_t(b[o]) | uint32_t(b[o + 1]) << 8 | uint32_t(b[o + 2]) << 16 | uint32_t(b[o + 3]) << 24;
}

uint16_t rd16(const std::vector<uint8_t>& b, size_t o)
{
    return uint16_t(b[o] | b[o + 1] << 8);
}

constexpr uint32_t kPtLoad = 1;
constexpr uint16_t kEmArm = 40;
constexpr uint16_t kEtExec = 2;
constexpr uint32_t kShfAlloc = 0x2;

} // namespace

std::string parseElf(const std::vector<uint8_t>& f, ElfImage& out)
{
    out = {};
    if (f.size() < 52 || f[0] != 0x7F || f[1] != 'E' || f[2] != 'L' || f[3] != 'F')
        return "not an ELF file";
    if (f[4] != 1)
        return "not a 32-bit ELF file";
    if (f[5] != 1)
        return "not a little-endian ELF file";
    if (rd16(f, 16) != kEtExec)
        return "not an executable ELF file";
    if (rd16(f, 18) != kEmArm)
        return "not an ARM ELF file";
    out.entry = rd32(f, 24);
    const uint32_t phoff = rd32(f, 28);
    const uint16_t phentsize = rd16(f, 42);
    const uint16_t phnum = rd16(f, 44);
    if (phentsize < 32 || uint64_t(phoff) + uint64_t(phentsize) * phnum > f.size())
        return "program headers outside the file";
    for (uint16_t i = 0; i < phnum; ++i) {
        const size_t ph = size_t(phoff) + size_t(i) * phentsize;
        if (rd32(f, ph) != kPtLoad)
            continue;
        const uint32_t offset = rd32(f, ph + 4);
        const uint32_t vaddr = rd32(f, ph + 8);
        const uint32_t paddr = rd32(f, ph + 12);
        const uint32_t filesz = rd32(f, ph + 16);
        const uint32_t memsz = rd32(f, ph + 20);
        if (memsz > 0)
            out.memory.push_back({vaddr, memsz});
        if (filesz == 0)
            continue; // zero-initialised memory: the start-up code clears it
        if (paddr != vaddr)
            out.memory.push_back({paddr, filesz});
        if (uint64_t(offset) + filesz > f.size())
            return "segment outside the file";
        ElfSegment seg;
        seg.address = paddr;
        seg.bytes.assign(f.begin() + offset, f.begin() + offset + filesz);
        out.segments.push_back(std::move(seg));
    }
    if (out.segments.empty())
        return "no loadable segment";
    // Allocated sections: the linker script's stack and heap reservations
    // often lie outside every segment's file image.
    const uint32_t shoff = rd32(f, 32);
    const uint16_t shentsize = rd16(f, 46);
    const uint16_t shnum = rd16(f, 48);
    if (shoff != 0 && shentsize >= 40 && uint64_t(shoff) + uint64_t(shentsize) * shnum <= f.size()) {
        for (uint16_t i = 0; i < shnum; ++i) {
            const size_t sh = size_t(shoff) + size_t(i) * shentsize;
            const uint32_t flags = rd32(f, sh + 8);
            const uint32_t addr = rd32(f, sh + 12);
            const uint32_t size = rd32(f, sh + 20);
            if ((flags & kShfAlloc) != 0 && size > 0)
                out.memory.push_back({addr, size});
        }
    }
    return {};
}

std::string loadElf(const std::string& path, ElfImage& out)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return "cannot open " + path;
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return parseElf(bytes, out);
}

} // namespace sim
