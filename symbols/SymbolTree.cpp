#include "symbols/SymbolTree.h"

#include "app/Log.h"
#include "app/Text.h"
#include "symbols/DebugInfo.h"
#include "symbols/SymbolDatabase.h"

#include <array>
#include <atomic>
#include <charconv>

namespace symtree {
namespace {

constexpr std::uint16_t kTagMember = 0x0d;
constexpr std::uint16_t kTagInheritance = 0x1c;
constexpr std::uint16_t kTagBase = 0x24;
constexpr std::uint8_t kEncodingFloat = 0x04;  // DW_ATE_float

std::atomic<bool> g_floatByEncoding{false};

bool isRecord(std::uint32_t tag) { return tag == kTagStruct || tag == kTagUnion || tag == kTagClass; }

// nameWithParents() for a node whose ancestors already carry theirs: the
// nearest ancestor that is not an array level holds the whole prefix. The
// builder sets a node's path before filling its children, so one append per
// node replaces a walk to the top.
std::string pathBelowParents(const Node& node)
{
    const Node* p = node.Parent;
    while (p && p->IsArray)
        p = p->Parent;
    if (!p)
        return node.Name;
    std::string path;
    path.reserve(p->NameWithParents.size() + 1 + node.Name.size());
    path += p->NameWithParents;
    path += '.';
    path += node.Name;
    return path;
}

// "name[i]", cut to the name limit.
std::string elementName(const std::string& array, std::uint32_t index)
{
    char digits[16];
    const auto end = std::to_chars(digits, digits + sizeof digits, index).ptr;
    std::string name;
    name.reserve(array.size() + static_cast<std::size_t>(end - digits) + 2);
    name += array;
    name += '[';
    name.append(digits, end);
    name += ']';
    if (name.size() > text::kNameSize - 1)
        name.resize(text::kNameSize - 1);
    return name;
}

}  // namespace

void setFloatByEncoding(bool on) { g_floatByEncoding = on; }
bool floatByEncoding() { return g_floatByEncoding; }

void classify(Node& node, bool floatEncoded)
{
    if (node.Children) {
        node.TypeID = kTypeNone;
        return;
    }
    // Left without its children by the builder's limits: nothing to sample.
    if (node.Unexpanded != kCutNone) {
        node.TypeID = kTypeNone;
        return;
    }
    node.IsLeaf = true;
    if (node.TypeID == kTypeBitField)
        return;
    if (node.Size == 1 && (text::equalsFolded(node.Type, "bool") || text::equalsFolded(node.Type, "_Bool"))) {
        node.TypeID = kTypeBool;
        node.IsSigned = false;
        node.MaxValue = 1.0;
        return;
    }
    if (node.Size == 4 && (floatEncoded || text::equalsFolded(node.Type, "float"))) {
        node.TypeID = kTypeFloat;
        node.IsSigned = true;
        node.MaxValue = 3.4028234663852886e38;
        return;
    }
    if (node.Size == 8 && (floatEncoded || text::equalsFolded(node.Type, "double"))) {
        node.TypeID = kTypeDouble;
        node.IsSigned = true;
        node.MaxValue = 1.7976931348623157e308;
        return;
    }
    switch (node.Size) {
    case 1:
        node.TypeID = node.IsSigned ? kTypeS8 : kTypeU8;
        node.MaxValue = node.IsSigned ? 127.0 : 255.0;
        break;
    case 2:
        node.TypeID = node.IsSigned ? kTypeS16 : kTypeU16;
        node.MaxValue = node.IsSigned ? 32767.0 : 65535.0;
        break;
    case 4:
        node.TypeID = node.IsSigned ? kTypeS32 : kTypeU32;
        node.MaxValue = node.IsSigned ? 2147483647.0 : 4294967295.0;
        break;
    case 8:
        node.TypeID = node.IsSigned ? kTypeS64 : kTypeU64;
        node.MaxValue = node.IsSigned ? 9223372036854775808.0 : 18446744073709551616.0;
        break;
    default: node.TypeID = kTypeNone; break;
    }
}

std::string nameWithParents(const Node& node)
{
    std::array<const std::string*, 64> parts{};
    std::size_t count = 0, length = node.Name.size();
    parts[count++] = &node.Name;
    for (const Node* p = node.Parent; p && count < parts.size(); p = p->Parent) {
        if (p->IsArray)
            continue;
        parts[count++] = &p->Name;
        length += p->Name.size() + 1;
    }
    std::string path;
    path.reserve(length);
    for (std::size_t i = count; i-- > 0;) {
        path += *parts[i];
        if (i)
            path += '.';
    }
    return path;
}

bool matches(const Node& a, const Node& b)
{
    return text::equalsFolded(a.File, b.File) && text::equalsFolded(a.Name, b.Name) &&
           text::equalsFolded(a.NameWithParents, b.NameWithParents) && text::equalsFolded(a.Type, b.Type);
}

Builder::Builder(const elf::DebugInfo& info, NodeArena& arena, Hook onFilled, TreeLimits limits)
    : m_info(info), m_arena(arena), m_hook(std::move(onFilled)), m_limits(limits), m_floatByEncoding(floatByEncoding()),
      m_variableBudget(std::min(limits.variableNodes, limits.treeNodes / 2))
{
}

bool Builder::accepts(const elf::Die& symbol)
{
    if (m_info.typeTrouble(symbol) != elf::DebugInfo::TypeTrouble::Dangling)
        return true;
    Log::instance().line("Variable %s is left out: its type reference points to no entry of its unit",
                         m_info.symbolName(symbol).c_str());
    return false;
}

bool Builder::firstNote(const void* about, int kind)
{
    // An array of structures would repeat the line for every element.
    return m_noted.emplace(about, kind).second;
}

void Builder::beginVariable()
{
    const std::uint64_t left = m_limits.treeNodes - std::min(m_nodes, m_limits.treeNodes);
    m_variableStart = m_nodes;
    m_variableBudget = std::min(m_limits.variableNodes, left / 2);
    m_stopped = kCutNone;
}

Cut Builder::overBudget(std::uint64_t count) const
{
    const std::uint64_t variable = m_nodes - m_variableStart + count;
    if (variable > m_limits.variableNodes)
        return kCutVariableBudget;
    if (m_nodes + count > m_limits.treeNodes || variable > m_variableBudget)
        return kCutTreeBudget;
    return kCutNone;
}

void Builder::charge(const Node& node) { m_nodes += (node.Name.size() + node.NameWithParents.size()) / 128; }

Node* Builder::addChild(Node& parent)
{
    if (const Cut cut = m_stopped ? m_stopped : overBudget(1)) {
        parent.Unexpanded = cut;
        if (!m_stopped) {
            m_stopped = cut;
            // The path's first part is the variable's name.
            const std::string& path = parent.NameWithParents;
            const std::string variable = path.substr(0, path.find_first_of(".["));
            if (cut == kCutVariableBudget)
                Log::instance().line("Variable %s is cut short at %s: it would take more than %llu tree nodes", variable.c_str(),
                                     path.c_str(), static_cast<unsigned long long>(m_limits.variableNodes));
            else
                Log::instance().line("Variable %s is cut short at %s: the symbol tree is near its limit of %llu nodes",
                                     variable.c_str(), path.c_str(), static_cast<unsigned long long>(m_limits.treeNodes));
        }
        return nullptr;
    }
    Node* child = m_arena.create();
    ++m_nodes;
    parent.addChild(child);
    return child;
}

void Builder::fill(const elf::Die* symbol, Node& node, Node* parent, std::uint32_t depth, bool nameSet)
{
    node.Parent = parent;
    if (!symbol || depth >= kMaxDepth)
        return;
    const elf::Die* type = m_info.resolvedType(*symbol);
    if (type && type->tag == kTagSubprogram)
        return;
    if (!nameSet) {
        node.Name = m_info.symbolName(*symbol);
        node.Address = symbol->address;
    }
    if (!parent)
        beginVariable();
    const bool loops = m_info.typeTrouble(*symbol) == elf::DebugInfo::TypeTrouble::Loop;
    node.Type = loops ? std::string_view() : m_info.typeText(*symbol);
    node.File = m_info.declFile(*symbol);
    node.Tag = type ? type->tag : 0;
    node.Size = m_info.byteSize(type);
    node.IsSigned = m_info.isSigned(type);

    if (parent && isRecord(parent->Tag)) {
        node.Address = parent->Address + symbol->memberLocation;
        if (symbol->hasBitSize) {
            node.TypeID = kTypeBitField;
            node.Size = parent->Size;
            node.BitSize = symbol->bitSize;
            // Kept as a little-endian bit position from Address in both DWARF
            // forms: DWARF 4 counts from the storage unit's top bit.
            if (symbol->hasDataBitOffset) {
                node.BitOffset = symbol->dataBitOffset;
            } else if (symbol->hasBitOffset) {
                const std::uint32_t unitBits = 8 * (symbol->hasByteSize ? symbol->byteSize : m_info.byteSize(type));
                node.BitOffset = unitBits >= symbol->bitOffset + symbol->bitSize ? unitBits - symbol->bitOffset - symbol->bitSize : 0;
            }
        }
        if (node.Tag == kTagClass && parent->Tag == kTagClass)
            node.Name = "<Inherited>";
    }
    // The name is final here; the children's paths start from this one.
    node.NameWithParents = pathBelowParents(node);
    charge(node);
    if (loops && firstNote(symbol, 0))
        Log::instance().line("%s has no type: its typedef or qualifier chain comes back to itself", node.NameWithParents.c_str());

    if (isRecord(node.Tag)) {
        // Members first, then a class's bases; a member whose type reference
        // points nowhere is left out.
        for (const bool bases : {false, true}) {
            if (bases && node.Tag != kTagClass)
                break;
            for (const elf::Die* c = m_info.child(*type); c; c = m_info.sibling(*c)) {
                if (bases ? c->tag != kTagInheritance : (c->tag != kTagMember || c->declaration))
                    continue;
                if (m_info.typeTrouble(*c) == elf::DebugInfo::TypeTrouble::Dangling) {
                    if (firstNote(c, 1))
                        Log::instance().line("A member of %s is left out: its type reference points to no entry of its unit",
                                             node.NameWithParents.c_str());
                    continue;
                }
                Node* child = addChild(node);
                if (!child)
                    break;
                fill(c, *child, &node, depth + 1, false);
            }
        }
    } else if (node.Tag == kTagArray) {
        node.IsArray = true;
        node.Dimensions = m_info.dimensions(*type);
        node.NumDimensions = static_cast<std::uint32_t>(node.Dimensions.size());
        expandArray(node, *type, depth);
    }

    // The resolved type has its qualifiers and typedefs stripped.
    classify(node, m_floatByEncoding && type && type->tag == kTagBase && type->encoding == kEncodingFloat);
    if (m_hook)
        m_hook(node);
}

void Builder::expandArray(Node& node, const elf::Die& type, std::uint32_t depth)
{
    const elf::Die* element = m_info.find(type.typeRef);
    if (!element || node.Dimensions.empty())
        return;
    const elf::Die* elementType = m_info.resolvedType(*element);
    if (m_info.typeTrouble(*element) != elf::DebugInfo::TypeTrouble::None) {
        node.Unexpanded = kCutTypeTrouble;
        if (firstNote(&type, 2))
            Log::instance().line("Array %s is not expanded: its element type comes back to itself or points nowhere",
                                 node.NameWithParents.c_str());
        return;
    }
    const std::uint32_t elementSize = m_info.byteSize(elementType);
    // The elements' bytes, saturated just past the address space.
    constexpr std::uint64_t kAddressSpace = std::uint64_t{1} << 32;
    std::uint64_t bytes = elementSize;
    for (const std::uint32_t n : node.Dimensions)
        bytes = n == 0 ? 0 : bytes > (kAddressSpace + 1) / n ? kAddressSpace + 1 : bytes * n;
    if (node.Address + std::min(bytes, kAddressSpace + 1) > kAddressSpace) {
        node.Unexpanded = kCutAddressSpace;
        if (firstNote(&type, 3))
            Log::instance().line("Array %s is not expanded: its elements would run past the 32-bit address space",
                                 node.NameWithParents.c_str());
        return;
    }
    if (m_stopped) {
        node.Unexpanded = m_stopped;
        return;
    }
    if (const Cut cut = overBudget(nodesBelow(&type, depth))) {
        node.Unexpanded = cut;
        if (firstNote(&type, 10 + cut))
            Log::instance().line(cut == kCutVariableBudget ? "Array %s is not expanded: its variable would take more than %llu tree nodes"
                                                           : "Array %s is not expanded: the symbol tree would grow past %llu nodes",
                                 node.NameWithParents.c_str(),
                                 static_cast<unsigned long long>(cut == kCutVariableBudget ? m_limits.variableNodes : m_limits.treeNodes));
        return;
    }
    expand(node.Dimensions, 0, depth, element, elementSize, node);
}

std::uint64_t Builder::nodesBelow(const elf::Die* type, std::uint32_t depth)
{
    // Counts what fill() and expand() would create, stopping just past the
    // variable's budget; memoised per type and depth, since every element of
    // an array of structures asks again.
    const std::uint64_t cap = m_limits.variableNodes + 1;
    if (!type || depth >= kMaxDepth || type->tag == kTagSubprogram)
        return 0;
    const auto key = std::make_pair(type, depth);
    if (const auto it = m_below.find(key); it != m_below.end())
        return it->second;
    const auto add = [&](std::uint64_t a, std::uint64_t b) { return std::min(a + b, cap); };
    const auto times = [&](std::uint64_t a, std::uint64_t b) { return b != 0 && a > cap / b ? cap : std::min(a * b, cap); };
    std::uint64_t count = 0;
    if (isRecord(type->tag)) {
        for (const elf::Die* c = m_info.child(*type); c && count < cap; c = m_info.sibling(*c))
            if ((c->tag == kTagMember && !c->declaration) || (type->tag == kTagClass && c->tag == kTagInheritance))
                count = add(count, 1 + nodesBelow(m_info.resolvedType(*c), depth + 1));
    } else if (type->tag == kTagArray) {
        const std::vector<std::uint32_t> dims = m_info.dimensions(*type);
        const elf::Die* element = m_info.find(type->typeRef);
        // Innermost first: an element's own subtree, then one level of indexes
        // at a time. Without dimensions nothing is expanded (and a damaged
        // element type could lead back here at the same depth).
        if (element && !dims.empty()) {
            count = nodesBelow(m_info.resolvedType(*element), depth + static_cast<std::uint32_t>(dims.size()));
            for (std::size_t k = dims.size(); k-- > 0;)
                count = times(dims[k], 1 + count);
        }
    }
    m_below.emplace(key, count);
    return count;
}

void Builder::expand(const std::vector<std::uint32_t>& dims, std::size_t dim, std::uint32_t depth, const elf::Die* element,
                     std::uint32_t elementSize, Node& node)
{
    if (depth >= kMaxDepth)
        return;
    std::uint64_t stride = elementSize;
    for (std::size_t k = dim + 1; k < dims.size(); ++k)
        stride *= dims[k];
    for (std::uint32_t i = 0; i < dims[dim]; ++i) {
        Node* child = addChild(node);
        if (!child)
            return;
        child->Name = elementName(node.Name, i);
        child->Address = static_cast<std::uint32_t>(node.Address + i * stride);
        if (dim + 1 < dims.size()) {
            child->Parent = &node;
            child->IsArray = true;
            child->NameWithParents = pathBelowParents(*child);
            charge(*child);
            expand(dims, dim + 1, depth + 1, element, elementSize, *child);
            child->Type = node.Type;
            child->File = node.File;
            classify(*child);
            if (m_hook)
                m_hook(*child);
        } else {
            fill(element, *child, &node, depth + 1, true);
        }
    }
}

}  // namespace symtree
