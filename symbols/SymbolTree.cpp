#include "symbols/SymbolTree.h"

#include "app/Log.h"
#include "app/Text.h"
#include "symbols/DebugInfo.h"
#include "symbols/SymbolDatabase.h"

#include <array>
#include <charconv>

namespace symtree {
namespace {

constexpr std::uint16_t kTagMember = 0x0d;
constexpr std::uint16_t kTagInheritance = 0x1c;

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

void classify(Node& node)
{
    if (node.Children) {
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
    if (node.Size == 4 && text::equalsFolded(node.Type, "float")) {
        node.TypeID = kTypeFloat;
        node.IsSigned = true;
        node.MaxValue = 3.4028234663852886e38;
        return;
    }
    if (node.Size == 8 && text::equalsFolded(node.Type, "double")) {
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
    : m_info(info), m_arena(arena), m_hook(std::move(onFilled)), m_limits(limits)
{
}

Node& Builder::addChild(Node& parent)
{
    Node* child = m_arena.create();
    ++m_nodes;
    parent.addChild(child);
    return *child;
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
    node.Type = m_info.typeText(*symbol);
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

    if (isRecord(node.Tag)) {
        for (const elf::Die* c = m_info.child(*type); c; c = m_info.sibling(*c))
            if (c->tag == kTagMember && !c->declaration)
                fill(c, addChild(node), &node, depth + 1, false);
        if (node.Tag == kTagClass)
            for (const elf::Die* c = m_info.child(*type); c; c = m_info.sibling(*c))
                if (c->tag == kTagInheritance)
                    fill(c, addChild(node), &node, depth + 1, false);
    } else if (node.Tag == kTagArray) {
        node.IsArray = true;
        node.Dimensions = m_info.dimensions(*type);
        node.NumDimensions = static_cast<std::uint32_t>(node.Dimensions.size());
        const elf::Die* element = m_info.find(type->typeRef);
        const std::uint64_t added = nodesBelow(type, depth);
        if (added > m_limits.arrayNodes) {
            Log::instance().line("Array %s is not expanded: it would take more than %llu tree nodes", node.Name.c_str(),
                                 static_cast<unsigned long long>(m_limits.arrayNodes));
        } else if (m_nodes + added > m_limits.treeNodes) {
            Log::instance().line("Array %s is not expanded: the symbol tree would grow past %llu nodes", node.Name.c_str(),
                                 static_cast<unsigned long long>(m_limits.treeNodes));
        } else if (element && !node.Dimensions.empty()) {
            const std::uint32_t elementSize = m_info.byteSize(m_info.resolvedType(*element));
            expand(node.Dimensions, 0, depth, element, elementSize, node);
        }
    }

    classify(node);
    if (m_hook)
        m_hook(node);
}

std::uint64_t Builder::nodesBelow(const elf::Die* type, std::uint32_t depth)
{
    // Counts what fill() and expand() would create, stopping just past the
    // array limit; memoised per type and depth, since every element of an
    // array of structures asks again.
    const std::uint64_t cap = m_limits.arrayNodes + 1;
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
        // Innermost first: an element's own subtree, then one level of indexes at a time.
        count = element ? nodesBelow(m_info.resolvedType(*element), depth + static_cast<std::uint32_t>(dims.size())) : 0;
        for (std::size_t k = dims.size(); k-- > 0;)
            count = times(dims[k], 1 + count);
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
        Node& child = addChild(node);
        child.Name = elementName(node.Name, i);
        child.Address = static_cast<std::uint32_t>(node.Address + i * stride);
        if (dim + 1 < dims.size()) {
            child.Parent = &node;
            child.IsArray = true;
            child.NameWithParents = pathBelowParents(child);
            expand(dims, dim + 1, depth + 1, element, elementSize, child);
            child.Type = node.Type;
            child.File = node.File;
            classify(child);
            if (m_hook)
                m_hook(child);
        } else {
            fill(element, child, &node, depth + 1, true);
        }
    }
}

}  // namespace symtree
