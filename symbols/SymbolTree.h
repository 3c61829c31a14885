// Building the symbol tree from the debug-info walk, and the node operations
// other parts use: classification, the dotted path, and matching.
#pragma once

#include "symbols/Node.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace elf {
class DebugInfo;
struct Die;
}  // namespace elf
class NodeArena;

namespace symtree {

inline constexpr std::uint32_t kMaxDepth = 33;  // nodes at this depth stay as created

// Sets TypeID, IsSigned, MaxValue and IsLeaf from the node's size, type text
// and children. `floatEncoded`: the node's type comes down to a base type of a
// floating-point encoding, so a 4- or 8-byte node is a float or a double
// whatever its type text says.
void classify(Node& node, bool floatEncoded = false);

// Off by default: a base type is a float or a double only by its type text
// ("float", "double"; a typedef shows the text of its type), so "volatile float"
// or "const float" samples as an integer. On: by its debug-information encoding. Builders made afterwards
// (the next parse) follow it.
void setFloatByEncoding(bool on);
bool floatByEncoding();
// The dotted path from the top variable down; array nodes of the remaining
// dimensions (IsArray) are left out, the node's own name is always kept.
std::string nameWithParents(const Node& node);
// True when File, Name, NameWithParents and Type are equal, folding A-Z.
bool matches(const Node& a, const Node& b);

// The name of element `index` of an array level named `array`: "name[i]",
// cut to the name limit.
std::string elementName(const std::string& array, std::uint32_t index);

// Element `index` of a node with elements on demand (index < ElementCount),
// with the name, address, path, fields and members the builder would have
// given it, as a child of `level` (though not in its list). `create` gives
// each new node.
Node* makeElement(const Node& level, std::uint32_t index, const std::function<Node*()>& create);

// Calls `visit` for every node of the list that starts at `first` and of the
// lists below, depth first (a node, its children or elements, then its next
// sibling); when `visit` returns false the nodes below that one are skipped.
// Elements are made for the call and gone after it, so a listing of millions
// of elements holds a few nodes at a time.
void forEachNode(const Node* first, const std::function<bool(const Node&)>& visit);

// The node of the tree (made in `arena` if need be) that a node met by
// forEachNode stands for: itself, or for a node inside an element, the same
// node of the element made to stay.
Node* keep(NodeArena& arena, const Node& met);

// Nodes whose NameWithParents is `path` (A-Z folded), in tree order; array
// elements the path names are made (and kept in the arena).
std::vector<Node*> findPath(NodeArena& arena, const std::vector<Node*>& files, std::string_view path);

// Every node the builder makes below a top-level variable counts against two
// budgets: the tree's `treeNodes`, and its variable's share, `variableNodes`
// or half of what the tree has left, whichever is less, so that damaged
// variables cannot use up the room of those that follow. A node whose name and
// path are long counts once more for each 128 characters of them. An array
// costs the nodes of its first element, whatever its length (the others are
// made on demand); a structure is filled member by member until the share is
// spent, and then its variable stops. A node takes about 250 bytes, so a full
// tree stays under 1 GB whatever the file says.
struct TreeLimits {
    std::uint64_t variableNodes = std::uint64_t{1} << 20;
    std::uint64_t treeNodes = std::uint64_t{1} << 21;
};

// Fills nodes from the walk. `onFilled` sees every node of the tree once it is
// filled and classified (the matching hook), after the nodes below it.
class Builder {
public:
    using Hook = std::function<void(Node&)>;
    Builder(const elf::DebugInfo& info, NodeArena& arena, Hook onFilled, TreeLimits limits = {});

    // Array elements these paths name (or lie in) are made while the tree is
    // built, in tree order, so that `onFilled` sees them too.
    void want(const std::vector<std::string>& paths);

    // False, with a log line, for a variable whose type reference points
    // where no entry starts: it is left out of the tree.
    bool accepts(const elf::Die& symbol);
    void fill(const elf::Die* symbol, Node& node, Node* parent, std::uint32_t depth, bool nameSet);
    // Budget units spent so far (nodes below the top-level variables, with
    // long names counting more).
    std::uint64_t nodes() const { return m_nodes; }

private:
    // A new child of `parent` (appended to its list unless it is an element
    // model), or nullptr once the budgets are spent.
    Node* addChild(Node& parent, bool listed = true);
    void beginVariable();
    // Counts a node's long name and path against the budgets.
    void charge(const Node& node);
    // Which budget adding `count` nodes would break.
    Cut overBudget(std::uint64_t count) const;
    void expandArray(Node& node, const elf::Die& type, std::uint32_t depth);
    // Makes the model element of dimension `dim` of `node`.
    void expand(const std::vector<std::uint32_t>& dims, std::size_t dim, std::uint32_t depth, const elf::Die* element,
                std::uint32_t elementSize, Node& node);
    // Makes the wanted elements of `level` and hooks them.
    void makeWanted(Node& level);
    void hookMade(Node& node);
    // True the first time a debug entry shows a kind of trouble: its log line
    // is written once.
    bool firstNote(const void* about, int kind);

    const elf::DebugInfo& m_info;
    NodeArena& m_arena;
    Hook m_hook;
    TreeLimits m_limits;
    bool m_floatByEncoding = false;  // floatByEncoding() when the builder was made
    std::uint64_t m_nodes = 0;
    std::uint64_t m_variableStart = 0;   // m_nodes when the current variable began
    std::uint64_t m_variableBudget = 0;  // its share
    Cut m_stopped = kCutNone;             // why the current variable stopped
    int m_inModel = 0;                    // filling an element model: no hook
    std::vector<std::string> m_wanted;    // sorted, A-Z folded
    std::set<std::pair<const void*, int>> m_noted;
};

}  // namespace symtree
