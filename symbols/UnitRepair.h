// Debian's libdwarf (20210528) builds each unit's context from the end of the
// one before, so a unit header it cannot read ends every later call at that
// unit. This hands libdwarf the sections of our in-memory ELF image instead,
// with each unreadable .debug_info unit header replaced by an empty unit of
// the same length: the units after it stay where they are and are read.
#pragma once

#include "symbols/ElfImage.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

struct Dwarf_Debug_s;
struct Dwarf_Error_s;

namespace elf {

class RepairedImage {
public:
    ~RepairedImage();
    RepairedImage(const RepairedImage&) = delete;
    RepairedImage& operator=(const RepairedImage&) = delete;

    // Walks the unit lengths of .debug_info and checks each header. Returns
    // nullptr when every header reads (libdwarf then reads the file itself),
    // or when the section cannot be repaired here (compressed, outside the
    // file). A length that runs past the section ends the walk with a log
    // line: the units after it cannot be found.
    static std::unique_ptr<RepairedImage> make(const unsigned char* data, std::uint64_t size);

    // Section offsets of the units that stand in for unreadable ones.
    const std::vector<std::uint64_t>& placeholders() const { return m_placeholders; }

    // dwarf_object_init_b over the repaired sections; the image (and the
    // file image it points into) must outlive the handle, which is closed
    // with dwarf_object_finish.
    int init(Dwarf_Debug_s** dbg, Dwarf_Error_s** err);

    // Held around every libdwarf initialisation: libdwarf keeps the section
    // flag reader of its own ELF reader in a global that it then applies to
    // every object, and init() swaps in ours for the time of its call.
    static std::mutex& initMutex();

    struct Section : SectionHeader {
        const char* name = "";
    };

private:
    RepairedImage() = default;
    struct Access;

    const unsigned char* m_data = nullptr;
    std::uint64_t m_size = 0;
    bool m_big = false;
    bool m_is64 = false;
    std::vector<Section> m_sections;
    std::size_t m_infoIndex = 0;
    std::vector<unsigned char> m_info;  // the repaired .debug_info
    std::vector<std::uint64_t> m_placeholders;
    std::unique_ptr<Access> m_access;
};

}  // namespace elf
