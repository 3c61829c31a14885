// Building the symbol tree from the debug-info walk, and the node operations
// other parts use: classification, the dotted path, and matching.
#pragma once

#include "symbols/Node.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>

namespace elf {
class DebugInfo;
struct Die;
}  // namespace elf
class NodeArena;

namespace symtree {

inline constexpr std::uint32_t kMaxDepth = 33;  // nodes at this depth stay as created

// Sets TypeID, IsSigned, MaxValue and IsLeaf from the node's size, type text
// and children.
void classify(Node& node);
// The dotted path from the top variable down; array nodes of the remaining
// dimensions (IsArray) are left out, the node's own name is always kept.
std::string nameWithParents(const Node& node);
// True when File, Name, NameWithParents and Type are equal, folding A-Z.
bool matches(const Node& a, const Node& b);

// An array whose expansion would add more than `arrayNodes` nodes is left
// unexpanded, and so is any array once the tree would pass `treeNodes`: a
// damaged file, or a huge buffer of structures in external memory, must not
// make the tree eat all memory (a node takes about 300 bytes).
struct TreeLimits {
    std::uint64_t arrayNodes = std::uint64_t{1} << 22;
    std::uint64_t treeNodes = std::uint64_t{1} << 23;
};

// Fills nodes from the walk. `onFilled` sees every node once it is filled and
// classified (the matching hook).
class Builder {
public:
    using Hook = std::function<void(Node&)>;
    Builder(const elf::DebugInfo& info, NodeArena& arena, Hook onFilled, TreeLimits limits = {});

    void fill(const elf::Die* symbol, Node& node, Node* parent, std::uint32_t depth, bool nameSet);
    std::size_t nodes() const { return m_nodes; }

private:
    Node& addChild(Node& parent);
    void expand(const std::vector<std::uint32_t>& dims, std::size_t dim, std::uint32_t depth, const elf::Die* element,
                std::uint32_t elementSize, Node& node);
    // Nodes that filling an object of `type` at `depth` adds below it.
    std::uint64_t nodesBelow(const elf::Die* type, std::uint32_t depth);

    const elf::DebugInfo& m_info;
    NodeArena& m_arena;
    Hook m_hook;
    TreeLimits m_limits;
    std::size_t m_nodes = 0;
    std::map<std::pair<const elf::Die*, std::uint32_t>, std::uint64_t> m_below;
};

}  // namespace symtree
