// Walks over a symbol tree for the tests: every node, array elements made in
// the arena (and kept there), so that tests can hold on to them.
#pragma once

#include "symbols/SymbolDatabase.h"

#include <functional>
#include <string>

namespace treewalk {

// The lists from `first` down, depth first: a node, its children or
// elements, its next sibling.
inline void forEach(NodeArena& arena, Node* first, const std::function<void(Node&)>& visit)
{
    for (Node* n = first; n; n = n->Next) {
        visit(*n);
        forEach(arena, n->Children, visit);
        for (std::uint32_t i = 0; i < n->ElementCount; ++i)
            forEach(arena, arena.element(*n, i), visit);
    }
}

inline Node* find(NodeArena& arena, Node* first, const std::string& path)
{
    Node* found = nullptr;
    forEach(arena, first, [&](Node& n) {
        if (!found && n.NameWithParents == path)
            found = &n;
    });
    return found;
}

// Nodes below `node`.
inline std::size_t countBelow(NodeArena& arena, Node& node)
{
    std::size_t count = 0;
    forEach(arena, node.Children, [&](Node&) { ++count; });
    for (std::uint32_t i = 0; i < node.ElementCount; ++i)
        forEach(arena, arena.element(node, i), [&](Node&) { ++count; });
    return count;
}

}  // namespace treewalk
