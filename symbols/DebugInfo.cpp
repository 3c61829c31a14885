#include "symbols/DebugInfo.h"

#include "base/Text.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace elf {
namespace {

enum : std::uint16_t {
    kTagArray = 0x01, kTagClass = 0x02, kTagEnum = 0x04, kTagParam = 0x05, kTagMember = 0x0d,
    kTagPointer = 0x0f, kTagReference = 0x10, kTagCompileUnit = 0x11, kTagStruct = 0x13,
    kTagSubroutine = 0x15, kTagTypedef = 0x16, kTagUnion = 0x17, kTagInheritance = 0x1c,
    kTagInlined = 0x1d, kTagNsExt = 0x1e, kTagSubrange = 0x21, kTagBase = 0x24, kTagConst = 0x26,
    kTagSubprogram = 0x2e, kTagVariable = 0x34, kTagVolatile = 0x35, kTagRestrict = 0x37,
    kTagNamespace = 0x39, kTagUnspecified = 0x3b, kTagPartialUnit = 0x3c, kTagTypeUnit = 0x41, kTagGenericSubrange = 0x45,
    kTagAtomic = 0x47,
};

constexpr std::size_t kTextLimit = 512;  // every intermediate type text
constexpr int kMaxLinks = 25;
constexpr int kMaxQualifiers = 64;  // typedefs and qualifiers in a row
constexpr int kMaxScopes = 64;      // enclosing scopes of a qualified name

void prepend(std::string& text, std::string_view front)
{
    text.insert(0, front);
    if (text.size() >= kTextLimit)
        text.resize(kTextLimit - 1);
}

bool isQualifier(std::uint16_t tag)
{
    return tag == kTagTypedef || tag == kTagConst || tag == kTagVolatile || tag == kTagRestrict || tag == kTagAtomic;
}

bool isRecord(std::uint16_t tag) { return tag == kTagClass || tag == kTagStruct || tag == kTagUnion; }

// Records whose DW_AT_type is the type of the thing they name.
bool namesATypedThing(std::uint16_t tag)
{
    return tag == kTagVariable || tag == kTagMember || tag == kTagInheritance || tag == kTagParam;
}

bool relative(std::string_view path) { return path.empty() || path.front() != '/'; }

}  // namespace

std::string demangled(const char* mangled)
{
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> out(abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
    if (status != 0 || !out)
        return {};
    return out.get();
}

const std::vector<std::uint32_t>* DebugInfo::index(int tag) const
{
    switch (tag) {
    case kTagCompileUnit: return &m_units17;
    case kTagInlined: return &m_inlines;
    case kTagSubprogram: return &m_functions;
    case kTagVariable: return &m_globals;
    case kTagNamespace: return &m_namespaces;
    case 16: return &m_types;
    case kTagNsExt: return &m_nsExt;
    default: return nullptr;
    }
}

const Die* DebugInfo::find(std::uint64_t key) const
{
    if (key == 0)
        return nullptr;
    const auto it = m_byOffset.find(key);
    return it == m_byOffset.end() ? nullptr : &m_dies[it->second];
}

std::string DebugInfo::symbolName(const Die& d) const
{
    const Die* decl = find(d.specRef);
    const char* linkage = d.linkage ? d.linkage : (decl ? decl->linkage : nullptr);
    if (linkage && linkage[0] == '_' && linkage[1] == 'Z') {
        std::string s = demangled(linkage);
        if (!s.empty())
            return text::truncated(s, text::kNameSize);
    }
    const char* name = d.name ? d.name : (decl ? decl->name : nullptr);
    return name ? text::truncated(name, text::kNameSize) : std::string();
}

const Die* DebugInfo::resolvedType(const Die& symbol) const
{
    // Every element of an array and every instance of a structure asks again.
    if (symbol.typeCached)
        return symbol.cachedType;
    auto& d = const_cast<Die&>(symbol);
    // A reference that names no entry is damage, unlike no reference at all.
    const auto dangles = [this](const Die& from) { return from.badTypeRef || (from.typeRef != 0 && !find(from.typeRef)); };
    bool dangling = false, loops = false;
    const Die* t = &symbol;
    if (namesATypedThing(symbol.tag)) {
        dangling = dangles(symbol);
        t = find(symbol.typeRef);
        // A declaration-only variable definition takes the type of its declaration.
        if (!t && !dangling && symbol.tag == kTagVariable)
            if (const Die* decl = find(symbol.specRef)) {
                dangling = dangles(*decl);
                t = find(decl->typeRef);
            }
    }
    // No real chain is this long: past it the chain has come back to itself.
    for (int hops = 0; t && isQualifier(t->tag); ++hops) {
        if (hops == kMaxQualifiers) {
            loops = true;
            t = nullptr;
        } else {
            dangling = dangles(*t);
            t = find(t->typeRef);
        }
    }
    d.cachedType = definition(t);
    d.typeLoops = loops;
    d.typeDangles = dangling && !t;
    d.typeCached = true;
    return d.cachedType;
}

const Die* DebugInfo::definition(const Die* type) const
{
    if (!type || !type->declaration || !isRecord(type->tag))
        return type;
    if (!m_definitionsIndexed) {
        m_definitionsIndexed = true;
        for (const std::uint32_t i : m_types) {
            const Die& t = m_dies[i];
            if (!isRecord(t.tag) || t.declaration)
                continue;
            // The first of equal definitions stands for all (one per unit that needs it).
            if (std::string name = qualifiedName(t); !name.empty())
                m_definitions.emplace(std::move(name), i);
        }
    }
    const std::string name = qualifiedName(*type);
    if (name.empty())
        return type;
    const auto it = m_definitions.find(name);
    return it == m_definitions.end() ? type : &m_dies[it->second];
}

std::string DebugInfo::qualifiedName(const Die& d) const
{
    std::string name;
    const Die* at = &d;
    for (int hops = 0; hops < kMaxScopes; ++hops) {
        // A definition made outside its scope (Outer::Inner defined at
        // namespace level) has its name and place on its declaration.
        if (const Die* decl = find(at->specRef))
            at = decl;
        if (!at->name)
            return {};
        name = name.empty() ? std::string(at->name) : std::string(at->name) + "::" + name;
        const Die* up = at->parent == kNoDie ? nullptr : &m_dies[at->parent];
        if (!up || up->tag == kTagCompileUnit || up->tag == kTagPartialUnit || up->tag == kTagTypeUnit)
            return name;
        if (up->tag != kTagNamespace && !isRecord(up->tag))
            return {};  // local to a function or block: no other unit names it
        at = up;
    }
    return {};
}

DebugInfo::TypeTrouble DebugInfo::typeTrouble(const Die& symbol) const
{
    resolvedType(symbol);
    return symbol.typeLoops ? TypeTrouble::Loop : symbol.typeDangles ? TypeTrouble::Dangling : TypeTrouble::None;
}

std::uint32_t DebugInfo::byteSize(const Die* type) const { return byteSize(type, 0); }

std::uint32_t DebugInfo::byteSize(const Die* type, int nesting) const
{
    // Arrays of arrays nest; damaged ones can nest in a circle.
    if (!type || nesting > kMaxQualifiers)
        return 0;
    if (type->hasByteSize || type->tag != kTagArray)
        return type->byteSize;
    // gcc leaves the size off array types: count times element size.
    const Die* element = find(type->typeRef);
    for (int hops = 0; element && isQualifier(element->tag) && hops < kMaxQualifiers; ++hops)
        element = find(element->typeRef);
    element = definition(element);
    if (!element || element == type)
        return 0;
    std::uint64_t size = byteSize(element, nesting + 1);
    for (std::uint32_t n : dimensions(*type)) {
        size *= n;
        if (size > 0xFFFFFFFFull)
            return 0xFFFFFFFFu;
    }
    return static_cast<std::uint32_t>(size);
}

bool DebugInfo::isSigned(const Die* type) const
{
    for (int hops = 0; type && hops < 64; ++hops) {
        if (type->tag == kTagBase)
            return type->encoding == 0x05 /*signed*/ || type->encoding == 0x06 /*signed_char*/ ||
                   type->encoding == 0x04 /*float*/ || type->encoding == 0x0d /*signed_fixed*/ ||
                   type->encoding == 0x03 /*complex_float*/ || type->encoding == 0x09 /*imaginary*/;
        if (type->tag != kTagEnum && !isQualifier(type->tag))
            return false;
        if (type->tag == kTagEnum && type->hasByteSize && type->typeRef == 0)
            return type->encoding == 0x05;
        type = find(type->typeRef);
    }
    return false;
}

std::vector<std::uint32_t> DebugInfo::dimensions(const Die& array) const
{
    std::vector<std::uint32_t> dims;
    for (const Die* c = child(array); c; c = sibling(*c)) {
        if (c->tag == kTagSubrange) {
            std::int64_t n = 0;
            if (c->hasCount)
                n = c->count;
            else if (c->hasUpper)
                n = c->upperBound - (c->hasLower ? c->lowerBound : 0) + 1;
            dims.push_back(n < 0 ? 0u : (n > 0xFFFFFFFFll ? 0xFFFFFFFFu : static_cast<std::uint32_t>(n)));
        } else if (c->tag == kTagGenericSubrange) {
            const std::int64_t n = c->hasCount ? c->count : 0;
            for (std::uint32_t r = 0; r < c->rank && r < 64; ++r)
                dims.push_back(n < 0 ? 0u : static_cast<std::uint32_t>(n));
        }
    }
    return dims;
}

std::string_view DebugInfo::typeText(const Die& symbol) const
{
    if (!symbol.textCached) {
        auto& d = const_cast<Die&>(symbol);
        d.cachedText = text::intern(text::truncated(buildTypeText(symbol, 0), text::kNameSize));
        d.textCached = true;
    }
    return symbol.cachedText;
}

std::string DebugInfo::buildTypeText(const Die& symbol, int depth) const
{
    std::string text, typedefName, qualifier, restrictSuffix;
    const Die* d = &symbol;
    // A C++ definition through DW_AT_specification carries its type on the declaration.
    if (symbol.typeRef == 0)
        if (const Die* decl = find(symbol.specRef))
            d = decl;
    for (int links = 0; d && links <= kMaxLinks; ++links, d = find(d->typeRef)) {
        bool stop = false;
        switch (d->tag) {
        case kTagArray: {
            std::string dims;
            for (std::uint32_t n : dimensions(*d))
                dims += (dims.empty() ? "" : "][") + std::to_string(n);
            prepend(text, "[" + dims + "]");
            break;
        }
        case kTagClass:
        case kTagEnum:
        case kTagStruct:
        case kTagUnion: {
            prepend(text, d->name ? std::string_view(d->name) : std::string_view(typedefName));
            const char* keyword = d->tag == kTagClass ? "class" : d->tag == kTagEnum ? "enum" : d->tag == kTagStruct ? "struct" : "union";
            prepend(text, text.empty() ? std::string(keyword) : std::string(keyword) + " ");
            stop = d->tag == kTagEnum;
            break;
        }
        case kTagPointer: prepend(text, "*"); break;
        case kTagReference: prepend(text, "&"); break;
        case kTagSubroutine:
        case kTagInlined:
        case kTagSubprogram: {
            std::string params;
            if (depth < 4) {
                for (const Die* c = child(*d); c; c = sibling(*c)) {
                    if (c->tag != kTagParam || c->artificial)
                        continue;
                    if (!params.empty())
                        params += ", ";
                    params += buildTypeText(*c, depth + 1);
                    if (params.size() >= kTextLimit)
                        break;
                }
            }
            prepend(text, "(" + params + ")");
            if (d->typeRef == 0)
                prepend(text, "void");
            break;
        }
        case kTagTypedef: typedefName = d->name ? d->name : ""; break;
        case kTagBase:
        case kTagUnspecified:
            if (d->name)
                prepend(text, d->name);
            break;
        case kTagConst: qualifier = "const "; break;
        case kTagVolatile: qualifier = "volatile "; break;
        case kTagRestrict: restrictSuffix = "restrict"; break;
        default: break;
        }
        if (stop)
            break;
    }
    if (!text.empty() && text.front() == '*')
        qualifier += "void";
    if (!qualifier.empty())
        prepend(text, qualifier);
    // Only a class's member function without an object pointer is "static":
    // a variable's type text must stay comparable with the plain type names.
    if (symbol.tag == kTagSubprogram && symbol.inClass && !symbol.objectPointer)
        prepend(text, "static ");
    if (symbol.virtuality)
        prepend(text, "virtual ");
    if (!restrictSuffix.empty())
        text += " " + restrictSuffix;
    if (text.size() >= kTextLimit)
        text.resize(kTextLimit - 1);
    return text;
}

std::string_view DebugInfo::declFile(const Die& symbol) const
{
    if (symbol.fileCached)
        return symbol.cachedFile;
    const Unit& u = m_units[symbol.unit];
    std::string result;
    const Die* decl = symbol.hasDeclFile ? &symbol : find(symbol.specRef);
    std::int64_t index = -1;
    if (decl && decl->hasDeclFile) {
        index = decl->declFile;
        // The line table's version decides the numbering (1-based before 5).
        if (u.lineVersion < 5)
            --index;
    }
    if (index >= 0 && static_cast<std::size_t>(index) < u.files.size()) {
        result = text::truncated(u.files[static_cast<std::size_t>(index)], 2048);
        if (relative(result) && !u.compDir.empty() && !relative(u.compDir))
            result = std::string(u.compDir) + "/" + result;
    } else if (!u.name.empty()) {
        result = std::string(u.name);
        if (relative(result) && !u.compDir.empty() && !relative(u.compDir))
            result = std::string(u.compDir) + "/" + result;
    }
    auto& d = const_cast<Die&>(symbol);
    d.cachedFile = text::intern(text::truncated(result, text::kPathSize));
    d.fileCached = true;
    return d.cachedFile;
}

// ---------------------------------------------------------------------------

namespace {

struct Reader {
    const unsigned char* p;
    const unsigned char* end;
    bool failed = false;

    bool has(std::size_t n)
    {
        if (static_cast<std::size_t>(end - p) < n) {
            failed = true;
            return false;
        }
        return true;
    }
    std::uint64_t fixed(int n)
    {
        if (n <= 0 || n > 8 || !has(static_cast<std::size_t>(n)))
            return 0;
        std::uint64_t v = 0;
        for (int i = 0; i < n; ++i)
            v |= static_cast<std::uint64_t>(p[i]) << (8 * i);
        p += n;
        return v;
    }
    std::uint64_t uleb()
    {
        std::uint64_t v = 0;
        for (int shift = 0;; shift += 7) {
            if (!has(1))
                return 0;
            const unsigned char b = *p++;
            if (shift < 64)
                v |= static_cast<std::uint64_t>(b & 0x7f) << shift;
            if (!(b & 0x80))
                return v;
        }
    }
    void skip(std::uint64_t n)
    {
        if (!has(n))
            return;
        p += n;
    }
};

constexpr int kMaxPieces = 16;

}  // namespace

Location evaluateLocation(const unsigned char* expr, std::size_t size, int addressSize, int offsetSize)
{
    Location loc;
    Reader r{expr, expr + size};
    int ops = 0, addrOps = 0, pieces = 0;
    bool otherOps = false;
    while (r.p < r.end && !r.failed) {
        const unsigned char op = *r.p++;
        ++ops;
        switch (op) {
        case 0x03:  // addr
            loc.address = r.fixed(addressSize);
            ++addrOps;
            break;
        case 0xa1:  // addrx
        case 0xfb:  // GNU_addr_index
            loc.addrIndex = r.uleb();
            loc.indexed = true;
            ++addrOps;
            break;
        case 0x23:  // plus_uconst: allowed right after the address
            if (addrOps == 1 && ops == 2)
                loc.address += r.uleb();
            else {
                r.uleb();
                otherOps = true;
            }
            break;
        case 0x9e: {  // implicit_value
            const std::uint64_t n = r.uleb();
            if (n > 8) {
                loc.error = 46;
                return loc;
            }
            r.skip(n);
            otherOps = true;
            break;
        }
        case 0xa3:
        case 0xf3: {  // entry_value
            const std::uint64_t n = r.uleb();
            if (n == 0 && !r.failed) {
                loc.error = 47;
                return loc;
            }
            r.skip(n);
            otherOps = true;
            break;
        }
        case 0x93:  // piece
            r.uleb();
            if (++pieces > kMaxPieces) {
                loc.error = 48;
                return loc;
            }
            otherOps = true;
            break;
        case 0x9d: {  // bit_piece
            const std::uint64_t bits = r.uleb();
            const std::uint64_t off = r.uleb();
            if (!r.failed && (bits % 8 || off % 8)) {
                loc.error = 49;
                return loc;
            }
            if (++pieces > kMaxPieces) {
                loc.error = 48;
                return loc;
            }
            otherOps = true;
            break;
        }
        case 0x08: case 0x09: case 0x15: case 0x94: case 0x95:  // const1u/s, pick, deref_size, xderef_size
            r.skip(1); otherOps = true; break;
        case 0x0a: case 0x0b: case 0x2f: case 0x28: case 0x98:  // const2u/s, skip, bra, call2
            r.skip(2); otherOps = true; break;
        case 0x0c: case 0x0d: case 0x99: case 0xfa:  // const4u/s, call4, GNU_parameter_ref
            r.skip(4); otherOps = true; break;
        case 0x0e: case 0x0f:  // const8u/s
            r.skip(8); otherOps = true; break;
        case 0x9a:  // call_ref
            r.skip(static_cast<std::uint64_t>(offsetSize)); otherOps = true; break;
        case 0x10: case 0x11: case 0x91: case 0x90: case 0xa2: case 0xa8: case 0xa9:
        case 0xf7: case 0xf9:  // constu, consts, fbreg, regx, constx, convert, reinterpret, GNU forms
            r.uleb();
            otherOps = true;
            break;
        case 0x92:  // bregx
            r.uleb();
            r.uleb();
            otherOps = true;
            break;
        case 0xa0: case 0xf2:  // implicit_pointer
            r.skip(static_cast<std::uint64_t>(offsetSize));
            r.uleb();
            otherOps = true;
            break;
        case 0xa4: {  // const_type
            r.uleb();
            if (r.has(1)) {
                const unsigned char n = *r.p++;
                r.skip(n);
            }
            otherOps = true;
            break;
        }
        case 0xa5:  // regval_type
            r.uleb(); r.uleb(); otherOps = true; break;
        case 0xa6:  // deref_type
            r.skip(1); r.uleb(); otherOps = true; break;
        default:
            if ((op >= 0x70 && op <= 0x8f))  // breg0..31
                r.uleb();
            else if (!((op >= 0x06 && op <= 0x07) || (op >= 0x12 && op <= 0x27 && op != 0x23 && op != 0x15) ||
                       (op >= 0x29 && op <= 0x2e) || (op >= 0x30 && op <= 0x6f) || op == 0x96 || op == 0x97 ||
                       op == 0x9b || op == 0x9c || op == 0x9f || op == 0xa7 || op == 0xe0))
                return loc;  // unknown operation: not a static address, nothing more to learn
            otherOps = true;
            break;
        }
    }
    if (r.failed) {
        loc.error = 50;
        return loc;
    }
    loc.isStatic = addrOps == 1 && !otherOps && pieces == 0;
    return loc;
}

}  // namespace elf
