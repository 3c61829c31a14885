#include "symbols/SymbolTree.h"

#include "base/Log.h"
#include "base/Text.h"
#include "symbols/DebugInfo.h"
#include "symbols/SymbolDatabase.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <memory>

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

}  // namespace

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

void setFloatByEncoding(bool on) { g_floatByEncoding = on; }
bool floatByEncoding() { return g_floatByEncoding; }

void classify(Node& node, bool floatEncoded)
{
    if (node.hasChildren()) {
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

Node* Builder::addChild(Node& parent, bool listed)
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
    if (listed)
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
    if (!m_inModel) {
        makeWanted(node);
        if (m_hook)
            m_hook(node);
    }
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
    expand(node.Dimensions, 0, depth, element, elementSize, node);
}

void Builder::expand(const std::vector<std::uint32_t>& dims, std::size_t dim, std::uint32_t depth, const elf::Die* element,
                     std::uint32_t elementSize, Node& node)
{
    if (depth >= kMaxDepth || dims[dim] == 0)
        return;
    std::uint64_t stride = elementSize;
    for (std::size_t k = dim + 1; k < dims.size(); ++k)
        stride *= dims[k];
    // Element [0] is made as every element would be; the others are copies of
    // it, made when asked for.
    Node* model = addChild(node, false);
    if (!model)
        return;
    ++m_inModel;
    model->Name = elementName(node.Name, 0);
    model->Address = node.Address;
    if (dim + 1 < dims.size()) {
        model->Parent = &node;
        model->IsArray = true;
        model->NameWithParents = pathBelowParents(*model);
        charge(*model);
        expand(dims, dim + 1, depth + 1, element, elementSize, *model);
        model->Type = node.Type;
        model->File = node.File;
        classify(*model);
    } else {
        fill(element, *model, &node, depth + 1, true);
    }
    --m_inModel;
    node.ElementModel = model;
    node.ElementCount = dims[dim];
    node.ElementStride = stride;
}

void Builder::want(const std::vector<std::string>& paths)
{
    m_wanted.clear();
    for (const std::string& p : paths) {
        if (p.find('[') == std::string::npos)
            continue;  // names no element
        std::string folded = p;
        for (char& c : folded)
            c = text::foldAscii(c);
        m_wanted.push_back(std::move(folded));
    }
    std::sort(m_wanted.begin(), m_wanted.end());
}

void Builder::makeWanted(Node& level)
{
    if (m_wanted.empty() || !level.hasElements() || level.NameWithParents.empty())
        return;
    // An element's path is its level's path followed by "[index]".
    std::string prefix = level.NameWithParents;
    for (char& c : prefix)
        c = text::foldAscii(c);
    prefix += '[';
    std::set<std::uint32_t> indexes;
    for (auto it = std::lower_bound(m_wanted.begin(), m_wanted.end(), prefix);
         it != m_wanted.end() && it->compare(0, prefix.size(), prefix) == 0; ++it) {
        std::uint32_t index = 0;
        const char* first = it->data() + prefix.size();
        const char* last = it->data() + it->size();
        const auto [end, error] = std::from_chars(first, last, index);
        if (error == std::errc() && end != first && end < last && *end == ']' && index < level.ElementCount)
            indexes.insert(index);
    }
    for (const std::uint32_t i : indexes)
        hookMade(*m_arena.element(level, i));
}

void Builder::hookMade(Node& node)
{
    // As the builder would have met them: the nodes below first. A node
    // left as created (past the depth limit) has no path and was never hooked.
    for (Node* c = node.Children; c; c = c->Next)
        hookMade(*c);
    if (node.NameWithParents.empty())
        return;
    makeWanted(node);
    if (m_hook)
        m_hook(node);
}

namespace {

// Every field of `from` but the links and the name, into `to`.
void copyFields(Node& to, const Node& from)
{
    to.Tag = from.Tag;
    to.IsSigned = from.IsSigned;
    to.IsArray = from.IsArray;
    to.IsLeaf = from.IsLeaf;
    to.Type = from.Type;
    to.File = from.File;
    to.TypeID = from.TypeID;
    to.Size = from.Size;
    to.NumDimensions = from.NumDimensions;
    to.Dimensions = from.Dimensions;
    to.BitSize = from.BitSize;
    to.BitOffset = from.BitOffset;
    to.Unexpanded = from.Unexpanded;
    to.MaxValue = from.MaxValue;
    to.ElementCount = from.ElementCount;
    to.ElementIndex = from.ElementIndex;
    to.ElementStride = from.ElementStride;
    to.ElementModel = from.ElementModel;
    to.Children = to.LastChild = to.Next = nullptr;
}

// A copy of `from` and the nodes below it, moved by `delta` bytes, as a child
// of `parent` (not added to its list).
Node* copyTree(const Node& from, Node& parent, std::uint32_t delta, const std::function<Node*()>& create)
{
    Node* n = create();
    copyFields(*n, from);
    n->Name = from.Name;
    n->Address = from.Address + delta;
    n->Parent = &parent;
    // A node left as created (past the depth limit) keeps an empty path.
    if (from.NameWithParents.empty())
        n->NameWithParents.clear();
    else
        n->NameWithParents = pathBelowParents(*n);
    for (const Node* c = from.Children; c; c = c->Next)
        n->addChild(copyTree(*c, *n, delta, create));
    return n;
}

}  // namespace

Node* makeElement(const Node& level, std::uint32_t index, const std::function<Node*()>& create)
{
    const Node& model = *level.ElementModel;
    Node* n = create();
    copyFields(*n, model);
    n->Name = elementName(level.Name, index);
    n->Address = static_cast<std::uint32_t>(level.Address + index * level.ElementStride);
    n->ElementIndex = index;
    n->Parent = const_cast<Node*>(&level);  // links are read, never written, through Parent
    if (model.NameWithParents.empty())
        n->NameWithParents.clear();
    else
        n->NameWithParents = pathBelowParents(*n);
    const std::uint32_t delta = n->Address - model.Address;
    for (const Node* c = model.Children; c; c = c->Next)
        n->addChild(copyTree(*c, *n, delta, create));
    return n;
}

namespace {

// Nodes for the elements of a walk, reused from one element to the next.
class Scratch {
public:
    Node* create()
    {
        if (m_used == m_nodes.size())
            m_nodes.push_back(std::make_unique<Node>());
        return m_nodes[m_used++].get();
    }
    std::size_t mark() const { return m_used; }
    void release(std::size_t mark) { m_used = mark; }

private:
    std::vector<std::unique_ptr<Node>> m_nodes;
    std::size_t m_used = 0;
};

void walk(const Node* n, const std::function<bool(const Node&)>& visit, Scratch& scratch)
{
    for (; n; n = n->Next) {
        if (!visit(*n))
            continue;
        if (!n->hasElements()) {
            walk(n->Children, visit, scratch);
            continue;
        }
        const std::function<Node*()> create = [&scratch] { return scratch.create(); };
        for (std::uint32_t i = 0; i < n->ElementCount; ++i) {
            const std::size_t mark = scratch.mark();
            Node* element = makeElement(*n, i, create);
            element->Next = nullptr;
            walk(element, visit, scratch);
            scratch.release(mark);
        }
    }
}

}  // namespace

void forEachNode(const Node* first, const std::function<bool(const Node&)>& visit)
{
    Scratch scratch;
    walk(first, visit, scratch);
}

Node* keep(NodeArena& arena, const Node& met)
{
    // The way down from the outermost element above `met`: an element index
    // or a member's place in its list at each step.
    std::vector<const Node*> way;
    const Node* top = nullptr;
    for (const Node* n = &met; n->Parent; n = n->Parent) {
        way.push_back(n);
        if (n->Parent->hasElements())
            top = n;
    }
    if (!top)
        return const_cast<Node*>(&met);  // a node of the tree itself
    while (way.back() != top)
        way.pop_back();
    Node* at = nullptr;
    for (auto it = way.rbegin(); it != way.rend(); ++it) {
        const Node& step = **it;
        Node* parent = at ? at : step.Parent;
        if (parent->hasElements()) {
            at = arena.element(*parent, step.ElementIndex);
            continue;
        }
        std::size_t place = 0;
        for (const Node* c = step.Parent->Children; c && c != &step; c = c->Next)
            ++place;
        at = parent->Children;
        while (at && place--)
            at = at->Next;
        if (!at)
            return nullptr;
    }
    return at;
}

std::vector<Node*> findPath(NodeArena& arena, const std::vector<Node*>& files, std::string_view path)
{
    std::vector<Node*> found;
    // A node's path is a prefix of the paths below it, followed by "." or "[".
    const auto leadsTo = [&](const Node& n) {
        const std::string& p = n.NameWithParents;
        if (p.size() > path.size() || !text::equalsFolded(p, path.substr(0, p.size())))
            return false;
        return p.size() == path.size() || path[p.size()] == '.' || path[p.size()] == '[';
    };
    const auto visit = [&](auto&& self, Node* n) -> void {
        for (; n; n = n->Next) {
            // Nodes left as created (past the depth limit) have no path.
            if (!n->NameWithParents.empty() && !leadsTo(*n))
                continue;
            if (!n->NameWithParents.empty() && text::equalsFolded(n->NameWithParents, path))
                found.push_back(n);
            if (!n->hasElements()) {
                self(self, n->Children);
                continue;
            }
            // The element the path names, if any.
            const std::string& p = n->NameWithParents;
            if (p.empty() || path.size() <= p.size() || path[p.size()] != '[')
                continue;
            std::uint32_t index = 0;
            const char* first = path.data() + p.size() + 1;
            const auto [end, error] = std::from_chars(first, path.data() + path.size(), index);
            if (error == std::errc() && end != first && index < n->ElementCount) {
                Node* e = arena.element(*n, index);
                if (leadsTo(*e))
                    self(self, e);
            }
        }
    };
    for (Node* f : files)
        visit(visit, f->Children);
    return found;
}

}  // namespace symtree
