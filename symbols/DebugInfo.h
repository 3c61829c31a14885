// The debug-info walk: the DIEs of every unit, read once through libdwarf into
// compact records, the per-kind indexes, and the questions the symbol tree asks
// of a variable or a type (address, type behind typedefs and qualifiers, type
// text, declaring file, members, bases, dimensions).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace elf {

inline constexpr std::uint32_t kNoDie = 0xFFFFFFFFu;

// One debug information entry, reduced to what the tree and the type printer use.
struct Die {
    std::uint64_t offset = 0;   // key: section offset, bit 63 set for .debug_types
    std::uint64_t typeRef = 0;  // key of DW_AT_type's target, 0 none
    std::uint64_t specRef = 0;  // key of DW_AT_specification / DW_AT_abstract_origin
    const char* name = nullptr;     // points into libdwarf's sections: valid while the file is open
    const char* linkage = nullptr;  // mangled name
    std::int64_t lowerBound = 0, upperBound = 0, count = 0;
    std::uint32_t byteSize = 0;
    std::uint32_t memberLocation = 0;
    std::uint32_t bitSize = 0, bitOffset = 0, dataBitOffset = 0;
    std::uint32_t address = 0;
    std::uint32_t declFile = 0;
    std::uint32_t rank = 0;
    std::uint32_t unit = 0;
    std::uint32_t firstChild = kNoDie, nextSibling = kNoDie;
    std::uint32_t parent = kNoDie;  // the enclosing entry; kNoDie for a unit's own
    std::uint16_t tag = 0;
    std::uint8_t encoding = 0;
    bool hasByteSize : 1 = false;
    bool hasMemberLocation : 1 = false;
    bool hasBitSize : 1 = false;
    bool hasBitOffset : 1 = false;
    bool hasDataBitOffset : 1 = false;
    bool hasAddress : 1 = false;
    bool hasDeclFile : 1 = false;
    bool declaration : 1 = false;
    bool artificial : 1 = false;
    bool external : 1 = false;
    bool virtuality : 1 = false;
    bool objectPointer : 1 = false;
    bool hasCount : 1 = false;
    bool hasUpper : 1 = false;
    bool hasLower : 1 = false;
    bool inClass : 1 = false;
    bool textCached : 1 = false;
    bool fileCached : 1 = false;
    bool typeCached : 1 = false;
    bool badTypeRef : 1 = false;  // DW_AT_type present but unreadable (set by the loader)
    bool typeLoops : 1 = false;   // with typeCached: the typedef/qualifier chain runs in a circle
    bool typeDangles : 1 = false; // with typeCached: a reference on the way names no entry
    // Filled on first use.
    const Die* cachedType = nullptr;
    std::string_view cachedText;
    std::string_view cachedFile;
};

struct Unit {
    std::uint64_t offset = 0;  // of the unit header
    int version = 0;
    int lineVersion = 0;  // of its line table; 0 when it has none
    bool typeUnit = false;
    std::string_view name;     // DW_AT_name
    std::string_view compDir;  // DW_AT_comp_dir
    std::vector<std::string_view> files;  // the line table's file list (interned)
};

class DebugInfo {
public:
    // Per-kind indexes by tag; nullptr for any other tag.
    const std::vector<std::uint32_t>* index(int tag) const;

    const std::vector<std::uint32_t>& globals() const { return m_globals; }
    std::size_t dieCount() const { return m_dies.size(); }
    const Die& die(std::uint32_t i) const { return m_dies[i]; }
    // The record at a reference key, or nullptr.
    const Die* find(std::uint64_t key) const;
    const Unit& unitOf(const Die& d) const { return m_units[d.unit]; }
    const std::vector<Unit>& units() const { return m_units; }

    const Die* child(const Die& d) const { return d.firstChild == kNoDie ? nullptr : &m_dies[d.firstChild]; }
    const Die* sibling(const Die& d) const { return d.nextSibling == kNoDie ? nullptr : &m_dies[d.nextSibling]; }

    // The variable's own name, or its declaration's; C++ names qualified by
    // demangling the linkage name so that namespace and class members differ.
    std::string symbolName(const Die& d) const;
    // The type a symbol works with: typedefs and qualifiers looked through.
    // A type record stands for itself. nullptr when the symbol has no type, or
    // when typeTrouble() says why it has none although it names one.
    const Die* resolvedType(const Die& symbol) const;
    // gcc writes a polymorphic class's definition in one unit only; the other
    // units hold a declaration. A class, structure or union that is only
    // declared yields its definition elsewhere in the file, found by its
    // qualified name; any other type, or one defined nowhere, yields itself.
    const Die* definition(const Die* type) const;
    // "ns::Outer::Inner": the names of the enclosing namespaces, classes,
    // structures and unions and the entry's own. Empty for an unnamed entry or
    // one inside an unnamed scope, a function or an anonymous namespace, which
    // no other unit can name.
    std::string qualifiedName(const Die& d) const;
    // Why a symbol that names a type gets none: damaged files can hold a
    // typedef or qualifier chain that comes back to itself, or a reference
    // that points where no entry starts (outside its unit, say).
    enum class TypeTrouble { None, Loop, Dangling };
    TypeTrouble typeTrouble(const Die& symbol) const;
    std::uint32_t byteSize(const Die* type) const;
    bool isSigned(const Die* type) const;
    // The printed type text (interned, at most 255 characters).
    std::string_view typeText(const Die& symbol) const;
    // The declaring file path (interned, at most 259 characters).
    std::string_view declFile(const Die& symbol) const;
    // Element counts of an array type, in declaration order.
    std::vector<std::uint32_t> dimensions(const Die& array) const;

    // Counters for the statistics lines.
    std::uint64_t members = 0, locals = 0, srcLines = 0, macros = 0;
    std::uint64_t namespaceExtensions = 0;
    const Die* mainFunction = nullptr;

    // Filled by the loader.
    std::vector<Die> m_dies;
    std::vector<Unit> m_units;
    std::unordered_map<std::uint64_t, std::uint32_t> m_byOffset;
    std::vector<std::uint32_t> m_globals, m_types, m_units17, m_functions, m_inlines, m_namespaces, m_nsExt;

private:
    std::string buildTypeText(const Die& symbol, int depth) const;
    std::uint32_t byteSize(const Die* type, int nesting) const;

    // Record definitions by qualified name, made on the first declaration
    // met: C programs seldom meet one.
    mutable std::unordered_map<std::string, std::uint32_t> m_definitions;
    mutable bool m_definitionsIndexed = false;
};

// The readable form of a C++ mangled name; empty when it is none.
std::string demangled(const char* mangled);

// Result of evaluating a location expression.
struct Location {
    bool isStatic = false;
    std::uint64_t address = 0;
    std::uint64_t addrIndex = 0;  // DW_OP_addrx operand, resolved by the caller
    bool indexed = false;
    int error = 0;  // 46..50 when the expression cannot be handled
};
// Evaluates a DWARF expression: static only for a single DW_OP_addr /
// DW_OP_addrx, optionally followed by DW_OP_plus_uconst.
Location evaluateLocation(const unsigned char* expr, std::size_t size, int addressSize, int offsetSize);

}  // namespace elf
