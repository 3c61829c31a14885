#include "symbols/ElfFile.h"
#include "symbols/ElfImage.h"
#include "symbols/UnitRepair.h"

#include "base/Clock.h"
#include "base/Log.h"
#include "base/Text.h"

#include <libdwarf/dwarf.h>
#include <libdwarf/libdwarf.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace elf {
namespace {

constexpr const char* kErrorTexts[] = {
    "Invalid ELF file handle",
    "Recursion limit exceeded in ELF parser",
    "Symbol constant value data exceeds allocation size limit",
    "DW_OP_implicit_value with data size greater than 8 bytes is not supported",
    "DW_OP_entry_value opcode encountered that does not specify an entry location",
    "symbol location description contains more parts than can be stored",
    "byte-unaligned symbol data pieces not yet supported",
    "failed to parse location description element",
    "could not parse debug info for type unit",
    "could not parse debug info for compilation unit",
    "compilation unit with DWARF5 debug information detected - DWARF5 is not yet fully supported",
    "could not parse source file info for compilation unit",
    "could not parse source line info for compilation unit",
    "could not parse macro information",
    "could not parse call frame info for compilation unit",
    "could not initialize symbol name index",
    "evaluation of opcode 'DW_EXPR_EXPRESSION' not yet implemented",
    "evaluation of opcode 'DW_EXPR_VAL_EXPRESSION' not yet implemented",
    "unknown cfi register table value type",
    "a debug information entry (DIE) at a specific data section offset could not be parsed/generated",
    "file not tagged with ELF magic number",
    "not an executable ELF file",
    "file class is ELF_CLASS_NONE",
    "data encoding is ELF_DATA_NONE",
    "header version number is not EV_CURRENT",
    "unsupported file version number",
    "a maximum number of ELF files are already open",
    "file could not be opened for reading",
    "unexpected file size",
    "parser is out of memory",
    "error reading file data",
    "failed to initialize libdwarf library",
};

std::mutex g_mutex;  // guards the table and the handler
std::array<File*, 2> g_table{};
ReportHandler g_handler;

thread_local std::string t_lastError;

std::string recordText(const ErrorRecord& r)
{
    std::string line = text::format(2048, "ELF reader error %d: %s", r.code, r.message.c_str());
    if (r.kind == 66 && !r.detail.empty())
        line = text::format(2048, "%s (%s)", line.c_str(), r.detail.c_str());
    return line;
}

void defaultHandler(const ErrorRecord& r)
{
    const std::string line = recordText(r);
    // The DWARF 5 notice comes for nearly every unit of today's toolchains:
    // log it, do not collect it as an error for the user.
    if (r.code == kErrDwarf5)
        Log::instance().text(line);
    else
        Log::instance().error(line);
}

void dispatch(const ErrorRecord& r)
{
    if (r.code != kErrDwarf5)
        t_lastError = recordText(r);
    ReportHandler h;
    {
        std::lock_guard lock(g_mutex);
        h = g_handler;
    }
    if (h)
        h(r);
    else
        defaultHandler(r);
}

// Header checks; 0 when the file is an executable ELF of a known form.
int checkHeader(const unsigned char* d, std::uint64_t size)
{
    if (size < 16 || std::memcmp(d, "\x7f" "ELF", 4) != 0)
        return kErrMagic;
    if (d[4] == 0)
        return kErrClassNone;
    if (d[5] == 0)
        return kErrDataNone;
    if (d[6] != 1)
        return kErrHeaderVersion;
    const std::uint64_t headerSize = d[4] == 2 ? 64 : 52;
    if (size < headerSize)
        return kErrFileSize;
    const Image img{d, size, d[5] == 2};
    if (img.get(16, 2) != 2 /*ET_EXEC*/)
        return kErrNotExecutable;
    if (img.get(20, 4) != 1)
        return kErrFileVersion;
    return 0;
}

// Number of entries of the .symtab section.
std::uint32_t countElfSymbols(const unsigned char* d, std::uint64_t size)
{
    const SectionTable t(d, size);
    if (t.empty())
        return 0;
    for (std::uint64_t i = 0; i < t.shnum; ++i) {
        const SectionHeader h = t[i];
        if (h.type == 2 /*SHT_SYMTAB*/)
            return h.entrySize ? static_cast<std::uint32_t>(h.size / h.entrySize) : 0;
    }
    return 0;
}

// The names under which the symbol table has a defined symbol at address 0,
// each also in the form a variable's debug information gives: gcc's
// "name.N" of a function's static in C as "name", a C++ function's static
// "_ZZ...E4name" as "name". `present` is false without a symbol table.
struct ZeroSymbols {
    bool present = false;
    std::unordered_set<std::string> names;
};

ZeroSymbols symbolsAtZero(const unsigned char* d, std::uint64_t size)
{
    ZeroSymbols out;
    const SectionTable t(d, size);
    if (t.empty())
        return out;
    const bool is64 = t.is64;
    const Image& img = t.img;
    for (std::uint64_t i = 0; i < t.shnum; ++i) {
        const SectionHeader symtab = t[i];
        if (symtab.type != 2 /*SHT_SYMTAB*/)
            continue;
        out.present = true;
        const std::uint64_t start = symtab.offset, length = symtab.size, entSize = symtab.entrySize;
        if (symtab.link >= t.shnum || entSize < (is64 ? 24u : 16u) || start > size)
            return out;
        const SectionHeader names = t[symtab.link];
        const std::uint64_t strings = names.offset, stringsSize = names.size;
        if (strings > size || stringsSize > size - strings)
            return out;
        const std::uint64_t count = std::min(length, size - start) / entSize;
        for (std::uint64_t k = 0; k < count; ++k) {
            const std::uint64_t sym = start + k * entSize;
            const std::uint64_t value = is64 ? img.get(sym + 8, 8) : img.get(sym + 4, 4);
            const std::uint64_t type = img.get(sym + (is64 ? 4 : 12), 1) & 0xf;
            const std::uint64_t section = img.get(sym + (is64 ? 6 : 14), 2);
            const std::uint64_t nameAt = img.get(sym, 4);
            if (value != 0 || section == 0 /*SHN_UNDEF*/ || type == 3 /*STT_SECTION*/ || type == 4 /*STT_FILE*/ ||
                nameAt >= stringsSize)
                continue;
            const char* first = reinterpret_cast<const char*>(d + strings + nameAt);
            const std::string_view name(first, strnlen(first, static_cast<std::size_t>(stringsSize - nameAt)));
            if (name.empty())
                continue;
            out.names.emplace(name);
            const std::size_t dot = name.rfind('.');
            if (dot != std::string_view::npos && dot > 0 && dot + 1 < name.size() &&
                name.find_first_not_of("0123456789", dot + 1) == std::string_view::npos)
                out.names.emplace(name.substr(0, dot));
            if (name.starts_with("_ZZ")) {
                const std::string readable = demangled(std::string(name).c_str());
                if (const std::size_t scope = readable.rfind("::"); scope != std::string::npos)
                    out.names.emplace(readable.substr(scope + 2));
            }
        }
        return out;
    }
    return out;
}

// --gc-sections leaves address 0 in the debug information of the variables
// the linker removed. In a file with a symbol table, a variable at 0 has no
// static address unless a symbol of its own name is there too (its linkage
// name when it has one): so the vector table stays and the removed go.
void dropRemovedVariables(DebugInfo& info, const unsigned char* d, std::uint64_t size)
{
    std::optional<ZeroSymbols> symbols;
    std::size_t dropped = 0;
    for (const std::uint32_t g : info.m_globals) {
        Die& v = info.m_dies[g];
        if (!v.hasAddress || v.address != 0)
            continue;
        if (!symbols)
            symbols = symbolsAtZero(d, size);
        if (!symbols->present)
            return;
        const Die* decl = info.find(v.specRef);
        const char* linkage = v.linkage ? v.linkage : decl ? decl->linkage : nullptr;
        const char* name = v.name ? v.name : decl ? decl->name : nullptr;
        const char* own = linkage ? linkage : name;
        if (!own || !symbols->names.contains(own)) {
            v.hasAddress = false;
            ++dropped;
        }
    }
    if (dropped)
        Log::instance().line("%zu variables at address 0 have no symbol there: left out as removed by the linker", dropped);
}

// Debian's libdwarf (20210528) frees a header twice when a .debug_rnglists
// or .debug_loclists header is unreadable (a missing return after its error
// path), and it loads those headers with the first unit. So every header is
// checked here first, at least as strictly as libdwarf does; false refuses
// the file.
bool listHeadersReadable(const unsigned char* d, std::uint64_t size)
{
    const SectionTable t(d, size);
    if (t.empty() || t.shstrndx >= t.shnum)
        return true;  // no sections libdwarf could find either
    const Image& img = t.img;
    const std::uint64_t names = t[t.shstrndx].offset;
    for (std::uint64_t i = 0; i < t.shnum; ++i) {
        const SectionHeader h = t[i];
        const std::uint64_t nameOff = names + h.nameAt;
        if (nameOff >= size)
            continue;
        const char* name = reinterpret_cast<const char*>(d + nameOff);
        const std::uint64_t room = size - nameOff;
        auto named = [&](const char* wanted) {
            const std::size_t n = std::strlen(wanted) + 1;
            return room >= n && std::memcmp(name, wanted, n) == 0;
        };
        if (!named(".debug_rnglists") && !named(".debug_loclists"))
            continue;
        if (h.flags & 0x800 /*SHF_COMPRESSED*/)
            continue;  // libdwarf reads the inflated bytes, not these
        const std::uint64_t start = h.offset, length = h.size;
        if (start > size || length > size - start)
            return false;
        for (std::uint64_t off = 0; off < length;) {
            const std::uint64_t left = length - off;
            std::uint64_t area = left >= 4 ? img.get(start + off, 4) : 0;
            std::uint64_t lengthSize = 4;
            if (area == 0xffffffff) {
                area = left >= 12 ? img.get(start + off + 4, 8) : 0;
                lengthSize = 12;
            }
            // version 2, address size 1, selector size 1, offset count 4
            if (left < lengthSize + 8 || area < 8 || area > left - lengthSize)
                return false;
            const std::uint64_t version = img.get(start + off + lengthSize, 2);
            const std::uint64_t addressSize = img.get(start + off + lengthSize + 2, 1);
            if (version != 5 || (addressSize != 2 && addressSize != 4 && addressSize != 8))
                return false;
            off += lengthSize + area;
        }
    }
    return true;
}

long msSince(std::uint64_t startUs) { return static_cast<long>((clk::microseconds() - startUs) / 1000); }

// ---------------------------------------------------------------------------
// Reading DIEs into records.

constexpr std::uint64_t kTypesSection = 1ull << 63;
constexpr int kMaxScopes = 64;
constexpr int kMaxNesting = 1000;

class Loader {
public:
    Loader(Dwarf_Debug dbg, DebugInfo& info) : m_dbg(dbg), m_info(info) {}

    // Walks all units of one section. Returns the milliseconds it took.
    long walkSection(bool isInfo, LoadStatistics& stats, long& linesMs);
    // .debug_info units that stand in for ones with an unreadable header.
    void setPlaceholders(const std::vector<std::uint64_t>& offsets) { m_placeholders = offsets; }
    void resolveSignatures();

private:
    struct Scopes {
        std::array<std::uint16_t, kMaxScopes> tags{};
        int depth = 0;
        bool insideFunction() const
        {
            for (int i = 0; i < depth && i < kMaxScopes; ++i)
                if (tags[static_cast<std::size_t>(i)] == DW_TAG_subprogram || tags[static_cast<std::size_t>(i)] == DW_TAG_inlined_subroutine ||
                    tags[static_cast<std::size_t>(i)] == DW_TAG_subroutine_type)
                    return true;
            return false;
        }
    };

    bool walkChildren(Dwarf_Die parent, std::uint32_t parentIndex, Scopes& scopes, int nesting);
    std::uint32_t record(Dwarf_Die die, Scopes& scopes, bool& ok);
    void readAttribute(Dwarf_Die die, Dwarf_Attribute attr, Die& d, bool& locationStatic);
    bool readUnsigned(Dwarf_Attribute attr, std::uint64_t& v);
    bool readSigned(Dwarf_Attribute attr, std::int64_t& v);
    // A 32-bit unsigned attribute; `value` is left alone when it cannot be read.
    bool readSize(Dwarf_Attribute attr, std::uint32_t& value)
    {
        std::uint64_t u = 0;
        if (!readUnsigned(attr, u))
            return false;
        value = static_cast<std::uint32_t>(u);
        return true;
    }
    // The key of a reference's target, 0 when it has none yet (a type
    // signature, resolved at the end) or, with `ok` false, when it is unreadable.
    std::uint64_t readRef(Dwarf_Attribute attr, std::uint32_t dieIndex, int which, bool& ok);
    void readLines(Dwarf_Die cuDie, Unit& unit);
    bool directoriesInRange(Dwarf_Line_Context context, Dwarf_Unsigned version);
    void drop(Dwarf_Error& err)
    {
        if (err) {
            dwarf_dealloc(m_dbg, err, DW_DLA_ERROR);
            err = nullptr;
        }
    }

    Dwarf_Debug m_dbg;
    DebugInfo& m_info;
    bool m_isInfo = true;
    int m_addressSize = 4;
    int m_offsetSize = 4;
    std::uint32_t m_unit = 0;
    // Offset of the DIE read last in the current unit; DIEs come in file order.
    Dwarf_Off m_lastOffset = 0;
    bool m_haveLast = false;
    bool m_failed = false;
    struct PendingSig {
        std::uint32_t die;
        int which;  // 0 type, 1 the declaration a definition refers to
        Dwarf_Sig8 sig;
    };
    std::vector<PendingSig> m_pending;
    std::vector<std::pair<Dwarf_Sig8, std::uint64_t>> m_signatures;
    std::vector<std::uint32_t> m_recordCounts;  // snapshot per index list to roll back a broken unit
    std::vector<std::uint64_t> m_placeholders;
};

bool Loader::readUnsigned(Dwarf_Attribute attr, std::uint64_t& v)
{
    Dwarf_Error err = nullptr;
    Dwarf_Unsigned u = 0;
    if (dwarf_formudata(attr, &u, &err) == DW_DLV_OK) {
        v = u;
        return true;
    }
    drop(err);
    // DWARF 5 implicit constants are only readable as signed data here.
    Dwarf_Signed s = 0;
    if (dwarf_formsdata(attr, &s, &err) == DW_DLV_OK) {
        v = static_cast<std::uint64_t>(s);
        return true;
    }
    drop(err);
    return false;
}

bool Loader::readSigned(Dwarf_Attribute attr, std::int64_t& v)
{
    Dwarf_Error err = nullptr;
    Dwarf_Half form = 0;
    if (dwarf_whatform(attr, &form, &err) != DW_DLV_OK) {
        drop(err);
        return false;
    }
    if (form == DW_FORM_sdata || form == DW_FORM_implicit_const) {
        Dwarf_Signed s = 0;
        if (dwarf_formsdata(attr, &s, &err) == DW_DLV_OK) {
            v = s;
            return true;
        }
        drop(err);
        return false;
    }
    if (form == DW_FORM_data1 || form == DW_FORM_data2 || form == DW_FORM_data4 || form == DW_FORM_data8 ||
        form == DW_FORM_udata) {
        std::uint64_t u = 0;
        if (!readUnsigned(attr, u))
            return false;
        v = static_cast<std::int64_t>(u);
        return true;
    }
    return false;  // a bound given by an expression or a reference: not a constant
}

std::uint64_t Loader::readRef(Dwarf_Attribute attr, std::uint32_t dieIndex, int which, bool& ok)
{
    Dwarf_Error err = nullptr;
    Dwarf_Half form = 0;
    ok = false;
    if (dwarf_whatform(attr, &form, &err) != DW_DLV_OK) {
        drop(err);
        return 0;
    }
    if (form == DW_FORM_ref_sig8) {
        PendingSig p{dieIndex, which, {}};
        if (dwarf_formsig8(attr, &p.sig, &err) == DW_DLV_OK) {
            m_pending.push_back(p);
            ok = true;
        }
        drop(err);
        return 0;
    }
    // libdwarf refuses a unit-relative offset past the unit's end.
    Dwarf_Off off = 0;
    if (dwarf_global_formref(attr, &off, &err) != DW_DLV_OK) {
        drop(err);
        return 0;
    }
    ok = true;
    return m_isInfo ? off : (off | kTypesSection);
}

void Loader::readAttribute(Dwarf_Die die, Dwarf_Attribute attr, Die& d, bool& locationStatic)
{
    Dwarf_Error err = nullptr;
    Dwarf_Half code = 0;
    if (dwarf_whatattr(attr, &code, &err) != DW_DLV_OK) {
        drop(err);
        return;
    }
    std::uint64_t u = 0;
    std::int64_t s = 0;
    Dwarf_Bool flag = 0;
    const auto index = static_cast<std::uint32_t>(m_info.m_dies.size());
    switch (code) {
    case DW_AT_name: {
        char* str = nullptr;
        if (dwarf_formstring(attr, &str, &err) == DW_DLV_OK)
            d.name = str;
        break;
    }
    case DW_AT_linkage_name:
    case DW_AT_MIPS_linkage_name: {
        char* str = nullptr;
        if (dwarf_formstring(attr, &str, &err) == DW_DLV_OK)
            d.linkage = str;
        break;
    }
    case DW_AT_type: {
        bool ok = false;
        d.typeRef = readRef(attr, index, 0, ok);
        d.badTypeRef = !ok;
        break;
    }
    case DW_AT_specification:
    case DW_AT_abstract_origin: {
        bool ok = false;
        d.specRef = readRef(attr, index, 1, ok);
        break;
    }
    case DW_AT_byte_size:
        if (readSize(attr, d.byteSize))
            d.hasByteSize = true;
        break;
    case DW_AT_bit_size:
        if (readSize(attr, d.bitSize))
            d.hasBitSize = true;
        break;
    case DW_AT_bit_offset:
        if (readSize(attr, d.bitOffset))
            d.hasBitOffset = true;
        break;
    case DW_AT_data_bit_offset:
        if (readSize(attr, d.dataBitOffset))
            d.hasDataBitOffset = true;
        break;
    case DW_AT_data_member_location: {
        Dwarf_Half form = 0;
        if (dwarf_whatform(attr, &form, &err) != DW_DLV_OK)
            break;
        if (form == DW_FORM_exprloc || form == DW_FORM_block1 || form == DW_FORM_block2 || form == DW_FORM_block4 ||
            form == DW_FORM_block) {
            // DWARF 2 style: DW_OP_plus_uconst n.
            Dwarf_Block* block = nullptr;
            Dwarf_Unsigned len = 0;
            Dwarf_Ptr ptr = nullptr;
            const unsigned char* bytes = nullptr;
            if (form == DW_FORM_exprloc) {
                if (dwarf_formexprloc(attr, &len, &ptr, &err) == DW_DLV_OK)
                    bytes = static_cast<const unsigned char*>(ptr);
            } else if (dwarf_formblock(attr, &block, &err) == DW_DLV_OK) {
                bytes = static_cast<const unsigned char*>(block->bl_data);
                len = block->bl_len;
            }
            if (bytes && len >= 2 && bytes[0] == DW_OP_plus_uconst) {
                std::uint64_t v = 0;
                int shift = 0;
                for (Dwarf_Unsigned i = 1; i < len && shift < 64; ++i, shift += 7) {
                    v |= static_cast<std::uint64_t>(bytes[i] & 0x7f) << shift;
                    if (!(bytes[i] & 0x80))
                        break;
                }
                d.memberLocation = static_cast<std::uint32_t>(v);
                d.hasMemberLocation = true;
            }
            if (block)
                dwarf_dealloc(m_dbg, block, DW_DLA_BLOCK);
        } else if (readUnsigned(attr, u)) {
            d.memberLocation = static_cast<std::uint32_t>(u);
            d.hasMemberLocation = true;
        }
        break;
    }
    case DW_AT_location: {
        if (d.tag != DW_TAG_variable)
            break;
        Dwarf_Half form = 0;
        if (dwarf_whatform(attr, &form, &err) != DW_DLV_OK)
            break;
        Dwarf_Block* block = nullptr;
        Dwarf_Unsigned len = 0;
        Dwarf_Ptr ptr = nullptr;
        const unsigned char* bytes = nullptr;
        if (form == DW_FORM_exprloc) {
            if (dwarf_formexprloc(attr, &len, &ptr, &err) == DW_DLV_OK)
                bytes = static_cast<const unsigned char*>(ptr);
        } else if (form == DW_FORM_block1 || form == DW_FORM_block2 || form == DW_FORM_block4 || form == DW_FORM_block) {
            if (dwarf_formblock(attr, &block, &err) == DW_DLV_OK) {
                bytes = static_cast<const unsigned char*>(block->bl_data);
                len = block->bl_len;
            }
        }  // other forms point into a location list: never one static address
        if (bytes) {
            Location loc = evaluateLocation(bytes, len, m_addressSize, m_offsetSize);
            if (loc.error)
                reportError(loc.error);
            if (loc.isStatic && loc.indexed) {
                Dwarf_Addr a = 0;
                if (dwarf_debug_addr_index_to_addr(die, loc.addrIndex, &a, &err) == DW_DLV_OK)
                    loc.address = a;
                else
                    loc.isStatic = false;
            }
            if (loc.isStatic && loc.address <= 0xFFFFFFFFull) {
                d.address = static_cast<std::uint32_t>(loc.address);
                d.hasAddress = true;
                locationStatic = true;
            }
        }
        if (block)
            dwarf_dealloc(m_dbg, block, DW_DLA_BLOCK);
        break;
    }
    case DW_AT_decl_file:
        if (readUnsigned(attr, u)) {
            d.declFile = static_cast<std::uint32_t>(u);
            d.hasDeclFile = true;
        }
        break;
    case DW_AT_declaration:
        if (dwarf_formflag(attr, &flag, &err) == DW_DLV_OK)
            d.declaration = flag != 0;
        break;
    case DW_AT_artificial:
        if (dwarf_formflag(attr, &flag, &err) == DW_DLV_OK)
            d.artificial = flag != 0;
        break;
    case DW_AT_external:
        if (dwarf_formflag(attr, &flag, &err) == DW_DLV_OK)
            d.external = flag != 0;
        break;
    case DW_AT_virtuality:
        if (readUnsigned(attr, u))
            d.virtuality = u != 0;
        break;
    case DW_AT_object_pointer: d.objectPointer = true; break;
    case DW_AT_encoding:
        if (readUnsigned(attr, u))
            d.encoding = static_cast<std::uint8_t>(u);
        break;
    case DW_AT_upper_bound:
        if (readSigned(attr, s)) {
            d.upperBound = s;
            d.hasUpper = true;
        }
        break;
    case DW_AT_lower_bound:
        if (readSigned(attr, s)) {
            d.lowerBound = s;
            d.hasLower = true;
        }
        break;
    case DW_AT_count:
        if (readSigned(attr, s)) {
            d.count = s;
            d.hasCount = true;
        }
        break;
    case DW_AT_rank:
        if (readUnsigned(attr, u))
            d.rank = static_cast<std::uint32_t>(u);
        break;
    default: break;
    }
    drop(err);
}

std::uint32_t Loader::record(Dwarf_Die die, Scopes& scopes, bool& ok)
{
    Dwarf_Error err = nullptr;
    Die d;
    Dwarf_Half tag = 0;
    Dwarf_Off off = 0;
    if (dwarf_tag(die, &tag, &err) != DW_DLV_OK || dwarf_dieoffset(die, &off, &err) != DW_DLV_OK) {
        drop(err);
        ok = false;
        return kNoDie;
    }
    // An offset that does not grow means a damaged sibling link has turned
    // the walk back on itself: the unit is broken, not endless.
    if (m_haveLast && off <= m_lastOffset) {
        ok = false;
        return kNoDie;
    }
    m_lastOffset = off;
    m_haveLast = true;
    d.tag = tag;
    d.offset = m_isInfo ? off : (off | kTypesSection);
    d.unit = m_unit;
    for (int i = 0; i < scopes.depth && i < kMaxScopes; ++i) {
        const auto t = scopes.tags[static_cast<std::size_t>(i)];
        if (t == DW_TAG_class_type || t == DW_TAG_structure_type || t == DW_TAG_union_type)
            d.inClass = i == scopes.depth - 1;
    }
    Dwarf_Attribute* attrs = nullptr;
    Dwarf_Signed count = 0;
    bool locationStatic = false;
    const int r = dwarf_attrlist(die, &attrs, &count, &err);
    if (r == DW_DLV_ERROR) {
        drop(err);
        ok = false;
        return kNoDie;
    }
    if (r == DW_DLV_OK) {
        for (Dwarf_Signed i = 0; i < count; ++i) {
            readAttribute(die, attrs[i], d, locationStatic);
            dwarf_dealloc(m_dbg, attrs[i], DW_DLA_ATTR);
        }
        dwarf_dealloc(m_dbg, attrs, DW_DLA_LIST);
    }

    const auto index = static_cast<std::uint32_t>(m_info.m_dies.size());
    const bool inFunction = scopes.insideFunction();
    switch (tag) {
    case DW_TAG_variable:
        if (!d.declaration && !d.artificial && (!inFunction || locationStatic))
            m_info.m_globals.push_back(index);
        else if (inFunction && !d.declaration)
            ++m_info.locals;
        break;
    case DW_TAG_formal_parameter:
        if (inFunction)
            ++m_info.locals;
        break;
    case DW_TAG_subprogram:
        if (!d.declaration && !d.artificial)
            m_info.m_functions.push_back(index);
        break;
    case DW_TAG_inlined_subroutine:
        if (!d.declaration && !d.artificial)
            m_info.m_inlines.push_back(index);
        break;
    case DW_TAG_namespace: m_info.m_namespaces.push_back(index); break;
    case DW_TAG_module: m_info.m_nsExt.push_back(index); break;
    case DW_TAG_compile_unit:
    case DW_TAG_partial_unit: m_info.m_units17.push_back(index); break;
    case DW_TAG_member: ++m_info.members; break;
    case DW_TAG_array_type:
    case DW_TAG_class_type:
    case DW_TAG_enumeration_type:
    case DW_TAG_pointer_type:
    case DW_TAG_reference_type:
    case DW_TAG_rvalue_reference_type:
    case DW_TAG_structure_type:
    case DW_TAG_subroutine_type:
    case DW_TAG_typedef:
    case DW_TAG_union_type:
    case DW_TAG_base_type:
    case DW_TAG_const_type:
    case DW_TAG_volatile_type:
    case DW_TAG_restrict_type:
    case DW_TAG_atomic_type:
    case DW_TAG_unspecified_type:
    case DW_TAG_ptr_to_member_type: m_info.m_types.push_back(index); break;
    default: break;
    }
    m_info.m_byOffset.emplace(d.offset, index);
    m_info.m_dies.push_back(d);
    return index;
}

bool Loader::walkChildren(Dwarf_Die parent, std::uint32_t parentIndex, Scopes& scopes, int nesting)
{
    if (nesting > kMaxNesting) {
        reportError(kErrRecursion);
        return false;
    }
    Dwarf_Error err = nullptr;
    Dwarf_Die child = nullptr;
    int r = dwarf_child(parent, &child, &err);
    if (r == DW_DLV_ERROR) {
        drop(err);
        return false;
    }
    if (r == DW_DLV_NO_ENTRY)
        return true;
    const std::uint16_t parentTag = m_info.m_dies[parentIndex].tag;
    if (scopes.depth < kMaxScopes)
        scopes.tags[static_cast<std::size_t>(scopes.depth)] = parentTag;
    ++scopes.depth;
    std::uint32_t previous = kNoDie;
    bool ok = true;
    while (child && ok) {
        const std::uint32_t index = record(child, scopes, ok);
        if (ok) {
            m_info.m_dies[index].parent = parentIndex;
            if (previous == kNoDie)
                m_info.m_dies[parentIndex].firstChild = index;
            else
                m_info.m_dies[previous].nextSibling = index;
            previous = index;
            ok = walkChildren(child, index, scopes, nesting + 1);
        }
        Dwarf_Die next = nullptr;
        if (ok) {
            r = dwarf_siblingof_b(m_dbg, child, m_isInfo, &next, &err);
            if (r == DW_DLV_ERROR) {
                drop(err);
                ok = false;
            }
        }
        dwarf_dealloc(m_dbg, child, DW_DLA_DIE);
        child = ok && r == DW_DLV_OK ? next : nullptr;
    }
    --scopes.depth;
    return ok;
}

// Debian's libdwarf (20210528) builds the full names of dwarf_srcfiles
// without checking each file's directory index against the directory table:
// a damaged index reads past the table. So the raw entries are checked first.
bool Loader::directoriesInRange(Dwarf_Line_Context context, Dwarf_Unsigned version)
{
    Dwarf_Error err = nullptr;
    Dwarf_Signed directories = 0, first = 0, count = 0, end = 0;
    if (dwarf_srclines_include_dir_count(context, &directories, &err) != DW_DLV_OK ||
        dwarf_srclines_files_indexes(context, &first, &count, &end, &err) != DW_DLV_OK) {
        drop(err);
        return false;
    }
    // DWARF 5 lists the compilation folder as directory 0; before, 0 meant it
    // and the table started at 1.
    const Dwarf_Unsigned limit = static_cast<Dwarf_Unsigned>(directories) + (version >= 5 ? 0 : 1);
    for (Dwarf_Signed i = first; i < end; ++i) {
        const char* name = nullptr;
        Dwarf_Unsigned directory = 0, modified = 0, length = 0;
        Dwarf_Form_Data16* md5 = nullptr;
        if (dwarf_srclines_files_data_b(context, i, &name, &directory, &modified, &length, &md5, &err) != DW_DLV_OK) {
            drop(err);
            return false;
        }
        if (directory >= limit)
            return false;
    }
    return true;
}

void Loader::readLines(Dwarf_Die cuDie, Unit& unit)
{
    Dwarf_Error err = nullptr;
    Dwarf_Unsigned version = 0;
    Dwarf_Small tables = 0;
    Dwarf_Line_Context context = nullptr;
    const int linesResult = dwarf_srclines_b(cuDie, &version, &tables, &context, &err);
    drop(err);
    // The file names come from the same table: asked for only once it is sound.
    char** files = nullptr;
    Dwarf_Signed count = 0;
    int r = linesResult;
    if (linesResult == DW_DLV_OK)
        r = directoriesInRange(context, version) ? dwarf_srcfiles(cuDie, &files, &count, &err) : DW_DLV_ERROR;
    if (r == DW_DLV_OK) {
        unit.files.reserve(static_cast<std::size_t>(count));
        for (Dwarf_Signed i = 0; i < count; ++i) {
            unit.files.push_back(text::intern(files[i] ? files[i] : ""));
            dwarf_dealloc(m_dbg, files[i], DW_DLA_STRING);
        }
        dwarf_dealloc(m_dbg, files, DW_DLA_LIST);
    } else if (r == DW_DLV_ERROR) {
        drop(err);
        reportError(kErrSourceFiles, text::format(64, "0x%llX", static_cast<unsigned long long>(unit.offset)));
    }
    if (linesResult == DW_DLV_OK) {
        unit.lineVersion = static_cast<int>(version);
        Dwarf_Line* lines = nullptr;
        Dwarf_Signed lineCount = 0;
        if (dwarf_srclines_from_linecontext(context, &lines, &lineCount, &err) == DW_DLV_OK)
            m_info.srcLines += static_cast<std::uint64_t>(lineCount);
        drop(err);
        dwarf_srclines_dealloc_b(context);
    } else if (linesResult == DW_DLV_ERROR) {
        reportError(kErrSourceLines);
    }
}

long Loader::walkSection(bool isInfo, LoadStatistics& stats, long& linesMs)
{
    m_isInfo = isInfo;
    const std::uint64_t start = clk::microseconds();
    std::uint64_t linesUs = 0;
    std::uint64_t unitOffset = 0;
    for (;;) {
        Dwarf_Error err = nullptr;
        Dwarf_Unsigned headerLength = 0, typeOffset = 0, next = 0;
        Dwarf_Half version = 0, addressSize = 0, lengthSize = 0, extensionSize = 0, unitType = 0;
        Dwarf_Off abbrev = 0;
        Dwarf_Sig8 signature{};
        const int r = dwarf_next_cu_header_d(m_dbg, isInfo, &headerLength, &version, &abbrev, &addressSize, &lengthSize,
                                             &extensionSize, &signature, &typeOffset, &next, &unitType, &err);
        if (r == DW_DLV_NO_ENTRY)
            break;
        const std::string where = text::format(64, "0x%llX", static_cast<unsigned long long>(unitOffset));
        if (r == DW_DLV_ERROR) {
            drop(err);
            reportError(isInfo ? kErrCompileUnit : kErrTypeUnit, where);
            // libdwarf reads the unit's first entry with its header and cannot
            // step past a unit whose header or first entry is unreadable.
            break;
        }
        m_addressSize = addressSize;
        m_offsetSize = lengthSize;
        const bool typeUnit = !isInfo || unitType == DW_UT_type || unitType == DW_UT_split_type;
        if (typeUnit)
            m_signatures.emplace_back(signature, (isInfo ? 0 : kTypesSection) | (unitOffset + typeOffset));

        Dwarf_Die cuDie = nullptr;
        const std::size_t diesBefore = m_info.m_dies.size();
        const std::array<std::size_t, 7> listsBefore{m_info.m_globals.size(), m_info.m_types.size(), m_info.m_units17.size(),
                                                     m_info.m_functions.size(), m_info.m_inlines.size(),
                                                     m_info.m_namespaces.size(), m_info.m_nsExt.size()};
        Unit unit;
        unit.offset = unitOffset;
        unit.version = version;
        unit.typeUnit = typeUnit;
        m_unit = static_cast<std::uint32_t>(m_info.m_units.size());
        m_haveLast = false;
        const bool placeholder = isInfo && std::find(m_placeholders.begin(), m_placeholders.end(), unitOffset) != m_placeholders.end();
        bool ok = !placeholder && dwarf_siblingof_b(m_dbg, nullptr, isInfo, &cuDie, &err) == DW_DLV_OK;
        drop(err);
        if (ok) {
            if (version >= 5 && isInfo && !typeUnit)
                reportError(kErrDwarf5);
            Scopes scopes;
            const std::uint32_t index = record(cuDie, scopes, ok);
            if (ok) {
                const Die& cu = m_info.m_dies[index];
                unit.name = text::intern(cu.name ? cu.name : "");
                char* dir = nullptr;
                Dwarf_Attribute attr = nullptr;
                if (dwarf_attr(cuDie, DW_AT_comp_dir, &attr, &err) == DW_DLV_OK) {
                    if (dwarf_formstring(attr, &dir, &err) == DW_DLV_OK)
                        unit.compDir = text::intern(dir);
                    dwarf_dealloc(m_dbg, attr, DW_DLA_ATTR);
                }
                drop(err);
                Dwarf_Unsigned lang = 0;
                if (dwarf_srclang(cuDie, &lang, &err) == DW_DLV_OK &&
                    (lang == DW_LANG_C_plus_plus || lang == DW_LANG_C_plus_plus_03 || lang == DW_LANG_C_plus_plus_11 ||
                     lang == DW_LANG_C_plus_plus_14))
                    stats.cplusplus = true;
                drop(err);
                ok = walkChildren(cuDie, index, scopes, 1);
            }
            if (ok && !typeUnit) {
                const std::uint64_t t0 = clk::microseconds();
                readLines(cuDie, unit);
                linesUs += clk::microseconds() - t0;
            }
            dwarf_dealloc(m_dbg, cuDie, DW_DLA_DIE);
        }
        if (!ok) {
            // Forget what was read of the broken unit; the others stay.
            for (std::size_t i = diesBefore; i < m_info.m_dies.size(); ++i)
                m_info.m_byOffset.erase(m_info.m_dies[i].offset);
            m_info.m_dies.resize(diesBefore);
            m_info.m_globals.resize(listsBefore[0]);
            m_info.m_types.resize(listsBefore[1]);
            m_info.m_units17.resize(listsBefore[2]);
            m_info.m_functions.resize(listsBefore[3]);
            m_info.m_inlines.resize(listsBefore[4]);
            m_info.m_namespaces.resize(listsBefore[5]);
            m_info.m_nsExt.resize(listsBefore[6]);
            std::erase_if(m_pending, [&](const PendingSig& p) { return p.die >= diesBefore; });
            reportError(isInfo ? kErrCompileUnit : kErrTypeUnit, where);
        } else if (version > stats.dwarfVersion) {
            stats.dwarfVersion = version;
        }
        m_info.m_units.push_back(std::move(unit));
        unitOffset = next;
    }
    linesMs += static_cast<long>(linesUs / 1000);
    return static_cast<long>((clk::microseconds() - start - linesUs) / 1000);
}

void Loader::resolveSignatures()
{
    for (const PendingSig& p : m_pending) {
        for (const auto& [sig, key] : m_signatures) {
            if (std::memcmp(sig.signature, p.sig.signature, sizeof sig.signature) == 0) {
                (p.which == 0 ? m_info.m_dies[p.die].typeRef : m_info.m_dies[p.die].specRef) = key;
                break;
            }
        }
    }
}

}  // namespace

const char* errorText(int code)
{
    if (code < kErrInvalidHandle || code > kErrDwarfInit)
        return "";
    return kErrorTexts[code - kErrInvalidHandle];
}

ReportHandler setReportHandler(ReportHandler handler)
{
    std::lock_guard lock(g_mutex);
    ReportHandler old = std::move(g_handler);
    g_handler = std::move(handler);
    return old;
}

void reportError(int code) { dispatch({code, 68, errorText(code), {}}); }

std::string takeLastError() { return std::exchange(t_lastError, {}); }

void reportError(int code, const std::string& detail) { dispatch({code, 66, errorText(code), detail}); }

bool checkHandle(const File* file)
{
    {
        std::lock_guard lock(g_mutex);
        for (File* f : g_table)
            if (f && f == file)
                return true;
    }
    reportError(kErrInvalidHandle);
    return false;
}

File::~File() = default;

File* open(const std::string& path, bool headerOnly)
{
    bool full = false;
    {
        std::lock_guard lock(g_mutex);
        full = g_table[0] && g_table[1];
    }
    if (full) {  // reported outside the lock: the handler may open files
        reportError(kErrTooManyOpen);
        return nullptr;
    }
    std::FILE* fp = std::fopen(path.c_str(), "rb");
    if (!fp) {
        reportError(kErrOpen);
        return nullptr;
    }
    struct FileCloser {
        std::FILE* f;
        ~FileCloser() { std::fclose(f); }
    } closer{fp};
    long size = -1;
    if (std::fseek(fp, 0, SEEK_END) == 0)
        size = std::ftell(fp);
    std::rewind(fp);
    if (size <= 0) {
        reportError(kErrFileSize);
        return nullptr;
    }
    std::unique_ptr<File> file(new (std::nothrow) File());
    if (!file) {
        reportError(kErrOutOfMemory);
        return nullptr;
    }
    file->m_path = path;
    file->m_size = static_cast<std::uint64_t>(size);
    file->m_data = alloc::make<unsigned char>(static_cast<std::size_t>(size), "ELF file image");
    if (!file->m_data) {
        reportError(kErrOutOfMemory);
        return nullptr;
    }
    if (std::fread(file->m_data.get(), 1, static_cast<std::size_t>(size), fp) != static_cast<std::size_t>(size)) {
        reportError(kErrRead);
        return nullptr;
    }
    if (const int bad = checkHeader(file->m_data.get(), file->m_size)) {
        reportError(bad);
        return nullptr;
    }
    file->m_debug = std::make_unique<DebugInfo>();
    File* handle = file.get();
    {
        std::lock_guard lock(g_mutex);
        auto slot = g_table[0] ? 1u : 0u;
        if (g_table[slot]) {
            handle = nullptr;
        } else {
            g_table[slot] = file.release();
        }
    }
    if (!handle) {
        reportError(kErrTooManyOpen);
        return nullptr;
    }
    handle->m_startUs = clk::microseconds();
    if (!headerOnly)
        handle->load();
    return handle;
}

void close(File* file)
{
    std::unique_ptr<File> owned;
    {
        std::lock_guard lock(g_mutex);
        for (File*& f : g_table)
            if (f && f == file) {
                owned.reset(f);
                f = nullptr;
            }
    }
    if (!owned && file)
        reportError(kErrInvalidHandle);
}

void DwarfCloser::operator()(Dwarf_Debug_s* dbg) const
{
    Dwarf_Error err = nullptr;
    if (objectAccess)
        dwarf_object_finish(dbg, &err);
    else
        dwarf_finish(dbg, &err);
}

void File::load()
{
    // Without libdwarf's record of every allocation the walk runs several
    // times faster; the loader frees what it takes.
    static const bool untracked = (dwarf_set_de_alloc_flag(0), true);
    (void)untracked;
    if (!listHeadersReadable(m_data.get(), m_size)) {
        reportError(kErrDwarfInit, "unreadable .debug_rnglists or .debug_loclists header");
        return;
    }
    Dwarf_Debug dbg = nullptr;
    Dwarf_Error err = nullptr;
    m_repaired = RepairedImage::make(m_data.get(), m_size);
    std::unique_lock initLock(RepairedImage::initMutex());
    const int r = m_repaired ? m_repaired->init(&dbg, &err)
                             : dwarf_init_path(m_path.c_str(), nullptr, 0, DW_DLC_READ, DW_GROUPNUMBER_ANY, nullptr, nullptr,
                                               &dbg, nullptr, 0, nullptr, &err);
    initLock.unlock();
    if (r != DW_DLV_OK) {
        if (r == DW_DLV_ERROR && err)
            dwarf_dealloc(dbg, err, DW_DLA_ERROR);
        reportError(kErrDwarfInit);
        return;
    }
    m_dwarf.reset(dbg);
    m_dwarf.get_deleter().objectAccess = m_repaired != nullptr;
    m_stats.fileSize = m_size;
    m_stats.dataEncoding = m_data[5];
    m_stats.elfSymbols = countElfSymbols(m_data.get(), m_size);
    Dwarf_Unsigned info = 0, abbrev = 0, line = 0, loc = 0, aranges = 0, macinfo = 0, pubnames = 0, str = 0, frame = 0,
                   ranges = 0, pubtypes = 0, types = 0, macro = 0, strOffsets = 0, sup = 0, cuIndex = 0, tuIndex = 0,
                   names = 0, loclists = 0, rnglists = 0;
    if (dwarf_get_section_max_offsets_d(dbg, &info, &abbrev, &line, &loc, &aranges, &macinfo, &pubnames, &str, &frame,
                                        &ranges, &pubtypes, &types, &macro, &strOffsets, &sup, &cuIndex, &tuIndex, &names, &loclists,
                                        &rnglists) == DW_DLV_OK) {
        m_stats.debugInfoSize = info;
        m_stats.debugTypesSize = types;
    }
    DebugInfo& di = *m_debug;
    // The sizes are what the section headers claim; a damaged header can
    // claim terabytes, and the file holds no more than itself.
    const std::uint64_t total = std::min(m_stats.debugInfoSize + m_stats.debugTypesSize, m_size);
    // A DIE takes at least a byte or two: size the tables once.
    di.m_dies.reserve(static_cast<std::size_t>(total / 6 + 16));
    di.m_byOffset.reserve(static_cast<std::size_t>(total / 6 + 16));

    Loader loader(dbg, di);
    if (m_repaired)
        loader.setPlaceholders(m_repaired->placeholders());
    m_stats.typesMs = loader.walkSection(false, m_stats, m_stats.linesMs);
    m_stats.infoMs = loader.walkSection(true, m_stats, m_stats.linesMs);
    loader.resolveSignatures();
    dropRemovedVariables(di, m_data.get(), m_size);
    for (std::uint32_t f : di.m_functions) {
        const Die& d = di.die(f);
        if (d.name && std::strcmp(d.name, "main") == 0) {
            di.mainFunction = &d;
            break;
        }
    }

    // Macro information is not used by the tree; only timed for the log.
    std::uint64_t t0 = clk::microseconds();
    m_stats.macroMs = msSince(t0);

    t0 = clk::microseconds();
    Dwarf_Cie* cies = nullptr;
    Dwarf_Fde* fdes = nullptr;
    Dwarf_Signed cieCount = 0, fdeCount = 0;
    const int fr = dwarf_get_fde_list(dbg, &cies, &cieCount, &fdes, &fdeCount, &err);
    if (fr == DW_DLV_OK) {
        m_stats.cies = static_cast<std::uint32_t>(cieCount);
        m_stats.fdes = static_cast<std::uint32_t>(fdeCount);
        dwarf_fde_cie_list_dealloc(dbg, cies, cieCount, fdes, fdeCount);
    } else if (fr == DW_DLV_ERROR) {
        dwarf_dealloc(dbg, err, DW_DLA_ERROR);
        reportError(kErrCallFrames);
    }
    m_stats.frameMs = msSince(t0);
    m_loaded = true;
    logStatistics();
}

void File::logStatistics() const
{
    Log& log = Log::instance();
    const DebugInfo& di = *m_debug;
    const auto line = [&](const std::string& s) { log.text(text::truncated(s, 2048)); };
    line(text::format(2048, "parsed debug types section in ms: %ld", m_stats.typesMs));
    line(text::format(2048, "parsed debug info section in ms: %ld", m_stats.infoMs));
    line(text::format(2048, "parsed source line info in ms: %ld", m_stats.linesMs));
    line(text::format(2048, "parsed macro info in ms: %ld", m_stats.macroMs));
    line(text::format(2048, "parsed call frame info in ms: %ld", m_stats.frameMs));
    line(text::format(2048, "File Size: %llu", static_cast<unsigned long long>(m_stats.fileSize)));
    line(text::format(2048, "debug_info size: %llu", static_cast<unsigned long long>(m_stats.debugInfoSize)));
    line(text::format(2048, "debug_types size: %llu", static_cast<unsigned long long>(m_stats.debugTypesSize)));
    line(text::format(2048, "DWARF Version: %d", m_stats.dwarfVersion));
    const char* encoding = m_stats.dataEncoding == 1 ? "Little Endian" : m_stats.dataEncoding == 2 ? "Big Endian" : "Unknown data encoding";
    line(text::format(2048, "Data Encoding: %s", encoding));
    line(text::format(2048, "Source Language: %s", m_stats.cplusplus ? "C++" : "C"));
    line(text::format(2048, "%8u ELF symbols", m_stats.elfSymbols));
    line(text::format(2048, "%8u DWARF symbols", static_cast<unsigned>(di.dieCount())));
    line(text::format(2048, "%8lld Funcs", static_cast<long long>(di.m_functions.size())));
    line(text::format(2048, "%8lld InlineFuncs", static_cast<long long>(di.m_inlines.size())));
    line(text::format(2048, "%8lld Global variables", static_cast<long long>(di.m_globals.size())));
    line(text::format(2048, "%8lld Types", static_cast<long long>(di.m_types.size())));
    line(text::format(2048, "%8u Members", static_cast<unsigned>(di.members)));
    line(text::format(2048, "%8u Local variables", static_cast<unsigned>(di.locals)));
    line(text::format(2048, "%8lld Compilation units", static_cast<long long>(di.m_units17.size())));
    line(text::format(2048, "%8lld SrcLines", static_cast<long long>(di.srcLines)));
    line(text::format(2048, "%8lld Namespaces", static_cast<long long>(di.m_namespaces.size())));
    line(text::format(2048, "%8lld Namespace extensions", static_cast<long long>(di.m_nsExt.size())));
    line(text::format(2048, "%8lld Macros", static_cast<long long>(di.macros)));
    line(text::format(2048, "%8u FDEs", m_stats.fdes));
    line(text::format(2048, "%8u CIEs", m_stats.cies));
    line(text::format(2048, "Total init time: %ld ms",
                      m_stats.typesMs + m_stats.infoMs + m_stats.linesMs + m_stats.macroMs + m_stats.frameMs));
}

}  // namespace elf
