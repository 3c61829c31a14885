#include "symbols/UnitRepair.h"
#include "symbols/ElfImage.h"

#include "base/Log.h"
#include "base/Text.h"

#include <libdwarf/dwarf.h>
#include <libdwarf/libdwarf.h>

#include <cstring>

// libdwarf's own ELF reader sets this on its first use and libdwarf calls it
// for the sections of any object, reading that object as one of its own.
extern "C" int (*_dwarf_get_elf_flags_func_ptr)(void* obj, Dwarf_Half index, Dwarf_Unsigned* flags,
                                                Dwarf_Unsigned* align, int* error);

namespace elf {
namespace {

constexpr std::uint64_t kCompressed = 0x800;  // SHF_COMPRESSED
constexpr std::uint64_t kNoBits = 8;          // SHT_NOBITS

std::string hex(std::uint64_t v) { return text::format(64, "0x%llX", static_cast<unsigned long long>(v)); }

// Why libdwarf would refuse the header of the unit at `at` whose contents
// (after the length field) take `length` bytes; empty when it reads.
std::string headerTrouble(const Image& r, std::uint64_t at, std::uint64_t length, unsigned offsetSize,
                          std::uint64_t abbrevSize)
{
    const std::uint64_t version = r.get(at, 2);
    if (length < 2 || version < 2 || version > 5)
        return text::format(64, "version %llu", static_cast<unsigned long long>(version));
    std::uint64_t unitType = DW_UT_compile, addressSize = 0, abbrev = 0, header = 0;
    if (version == 5) {
        unitType = r.get(at + 2, 1);
        addressSize = r.get(at + 3, 1);
        abbrev = r.get(at + 4, offsetSize);
        header = 4 + offsetSize;
        if (unitType == DW_UT_skeleton || unitType == DW_UT_split_compile)
            header += 8;
        else if (unitType == DW_UT_type || unitType == DW_UT_split_type)
            header += 8 + offsetSize;
        else if (unitType != DW_UT_compile && unitType != DW_UT_partial)
            return text::format(64, "unit type %llu", static_cast<unsigned long long>(unitType));
    } else {
        abbrev = r.get(at + 2, offsetSize);
        addressSize = r.get(at + 2 + offsetSize, 1);
        header = 3 + offsetSize;
    }
    if (header >= length)
        return "header longer than its unit";
    if (addressSize != 2 && addressSize != 4 && addressSize != 8)
        return text::format(64, "address size %llu", static_cast<unsigned long long>(addressSize));
    if (abbrev >= abbrevSize)
        return "abbreviation offset " + hex(abbrev) + " past .debug_abbrev";
    return {};
}

}  // namespace

// What libdwarf calls back; `object` is this record. libdwarf's finish
// takes the first byte of an object for the kind of its own readers ('E',
// 'F', 'M', 'P'), so it starts with another letter.
struct RepairedImage::Access {
    char kind = 'R';
    RepairedImage* image = nullptr;
    Dwarf_Obj_Access_Methods methods{};
    Dwarf_Obj_Access_Interface iface{};

    static RepairedImage& self(void* obj) { return *static_cast<Access*>(obj)->image; }
    static int sectionInfo(void* obj, Dwarf_Half index, Dwarf_Obj_Access_Section* out, int* error)
    {
        const RepairedImage& img = self(obj);
        if (index >= img.m_sections.size()) {
            *error = DW_DLE_ELF_SECT_ERR;
            return DW_DLV_NO_ENTRY;
        }
        const Section& s = img.m_sections[index];
        out->addr = s.addr;
        out->type = s.type;
        out->size = index == img.m_infoIndex ? img.m_info.size() : s.size;
        out->name = s.name;
        out->link = s.link;
        out->info = s.info;
        out->entrysize = s.entrySize;
        return DW_DLV_OK;
    }
    static int sectionFlags(void* obj, Dwarf_Half index, Dwarf_Unsigned* flags, Dwarf_Unsigned* align, int* error)
    {
        const RepairedImage& img = self(obj);
        if (index >= img.m_sections.size()) {
            *error = DW_DLE_ELF_SECT_ERR;
            return DW_DLV_NO_ENTRY;
        }
        *flags = img.m_sections[index].flags;
        *align = img.m_sections[index].align;
        return DW_DLV_OK;
    }
    static Dwarf_Endianness byteOrder(void* obj) { return self(obj).m_big ? DW_OBJECT_MSB : DW_OBJECT_LSB; }
    static Dwarf_Small wordSize(void* obj) { return self(obj).m_is64 ? 8 : 4; }
    static Dwarf_Unsigned count(void* obj) { return self(obj).m_sections.size(); }
    static int load(void* obj, Dwarf_Half index, Dwarf_Small** out, int* error)
    {
        RepairedImage& img = self(obj);
        if (index >= img.m_sections.size()) {
            *error = DW_DLE_ELF_SECT_ERR;
            return DW_DLV_NO_ENTRY;
        }
        if (index == img.m_infoIndex) {
            *out = img.m_info.data();
            return DW_DLV_OK;
        }
        const Section& s = img.m_sections[index];
        if (s.type == kNoBits || s.offset > img.m_size || s.size > img.m_size - s.offset) {
            *error = DW_DLE_SECTION_SIZE_OR_OFFSET_LARGE;
            return DW_DLV_ERROR;
        }
        // libdwarf only reads loaded sections (no relocations are offered).
        *out = const_cast<Dwarf_Small*>(img.m_data + s.offset);
        return DW_DLV_OK;
    }
};

RepairedImage::~RepairedImage() = default;

std::unique_ptr<RepairedImage> RepairedImage::make(const unsigned char* d, std::uint64_t size)
{
    if (size < 52)
        return nullptr;
    std::unique_ptr<RepairedImage> img(new RepairedImage());
    img->m_data = d;
    img->m_size = size;
    const SectionTable t(d, size);
    img->m_big = t.img.big;
    img->m_is64 = t.is64;
    const bool is64 = t.is64;
    const std::uint64_t shoff = t.shoff, shentsize = t.shentsize, shnum = t.shnum;
    if (shoff == 0 || shentsize < (is64 ? 64u : 40u) || shnum == 0 || t.shstrndx >= shnum || shoff > size ||
        shnum * shentsize > size - shoff)
        return nullptr;  // no sections, or more than 64K of them: libdwarf reads the file itself
    const SectionHeader names = t[t.shstrndx];
    if (names.offset > size || names.size > size - names.offset || names.size == 0 ||
        d[names.offset + names.size - 1] != 0)
        return nullptr;
    std::uint64_t abbrevSize = 0;
    bool haveInfo = false;
    for (std::uint64_t i = 0; i < shnum; ++i) {
        Section s{t[i]};
        s.name = s.nameAt < names.size ? reinterpret_cast<const char*>(d + names.offset + s.nameAt) : "";
        const bool debug = std::strncmp(s.name, ".debug_", 7) == 0 || std::strncmp(s.name, ".zdebug_", 8) == 0;
        // What is compressed is read inflated: only libdwarf's own reader does that.
        if (debug && (s.flags & kCompressed || s.name[1] == 'z'))
            return nullptr;
        if (std::strcmp(s.name, ".debug_abbrev") == 0)
            abbrevSize = s.size;
        if (std::strcmp(s.name, ".debug_info") == 0 && !haveInfo) {
            if (s.type == kNoBits || s.offset > size || s.size > size - s.offset)
                return nullptr;
            haveInfo = true;
            img->m_infoIndex = static_cast<std::size_t>(i);
        }
        img->m_sections.push_back(s);
    }
    if (!haveInfo)
        return nullptr;

    const Section& info = img->m_sections[img->m_infoIndex];
    img->m_info.assign(d + info.offset, d + info.offset + info.size);
    unsigned char* bytes = img->m_info.data();
    const Image unit{bytes, info.size, img->m_big};
    for (std::uint64_t at = 0; at < info.size;) {
        std::uint64_t length = unit.get(at, 4);
        unsigned lengthSize = 4, offsetSize = 4;
        if (length == 0xffffffff) {
            length = unit.get(at + 4, 8);
            lengthSize = 12;
            offsetSize = 8;
        }
        if (info.size - at < lengthSize || length > info.size - at - lengthSize || (length >= 0xfffffff0 && lengthSize == 4)) {
            Log::instance().error(text::format(256, "The unit length at %s of .debug_info runs past the section: the units after it are not read",
                                               hex(at).c_str()));
            break;
        }
        const std::uint64_t contents = at + lengthSize;
        const std::string trouble = headerTrouble(unit, contents, length, offsetSize, abbrevSize);
        // The placeholder: version 4, the first abbreviation table, the
        // file's address size, and a null entry where the unit's entry was.
        if (!trouble.empty() && length >= 2 + offsetSize + 2 && abbrevSize > 0) {
            std::memset(bytes + contents, 0, static_cast<std::size_t>(length));
            unit.put(bytes + contents, 4, 2);
            bytes[contents + 2 + offsetSize] = is64 ? 8 : 4;
            img->m_placeholders.push_back(at);
            Log::instance().error(text::format(256, "The unit header at %s of .debug_info is unreadable (%s): that unit is skipped",
                                               hex(at).c_str(), trouble.c_str()));
        }
        at = contents + length;
    }
    if (img->m_placeholders.empty())
        return nullptr;
    return img;
}

int RepairedImage::init(Dwarf_Debug_s** dbg, Dwarf_Error_s** err)
{
    m_access = std::make_unique<Access>();
    m_access->methods.get_section_info = &Access::sectionInfo;
    m_access->methods.get_byte_order = &Access::byteOrder;
    m_access->methods.get_length_size = &Access::wordSize;
    m_access->methods.get_pointer_size = &Access::wordSize;
    m_access->methods.get_section_count = &Access::count;
    m_access->methods.load_section = &Access::load;
    m_access->methods.relocate_a_section = nullptr;
    m_access->image = this;
    m_access->iface.object = m_access.get();
    m_access->iface.methods = &m_access->methods;
    // The caller holds initMutex(): no other initialisation sets the global meanwhile.
    const auto theirs = _dwarf_get_elf_flags_func_ptr;
    _dwarf_get_elf_flags_func_ptr = &Access::sectionFlags;
    const int r = dwarf_object_init_b(&m_access->iface, nullptr, nullptr, DW_GROUPNUMBER_ANY, dbg, err);
    _dwarf_get_elf_flags_func_ptr = theirs;
    return r;
}

std::mutex& RepairedImage::initMutex()
{
    static std::mutex mutex;
    return mutex;
}

}  // namespace elf
