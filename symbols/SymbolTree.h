// Building the symbol tree from the debug-info walk, and the node operations
// other parts use: classification, the dotted path, and matching.
#pragma once

#include "symbols/Node.h"

#include <functional>
#include <string>

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

// Fills nodes from the walk. `onFilled` sees every node once it is filled and
// classified (the matching hook).
class Builder {
public:
    using Hook = std::function<void(Node&)>;
    Builder(const elf::DebugInfo& info, NodeArena& arena, Hook onFilled);

    void fill(const elf::Die* symbol, Node& node, Node* parent, std::uint32_t depth, bool nameSet);
    std::size_t nodes() const { return m_nodes; }

private:
    Node& addChild(Node& parent);
    void expand(const std::vector<std::uint32_t>& dims, std::size_t dim, std::uint32_t depth, const elf::Die* element,
                std::uint32_t elementSize, Node& node);

    const elf::DebugInfo& m_info;
    NodeArena& m_arena;
    Hook m_hook;
    std::size_t m_nodes = 0;
};

}  // namespace symtree
