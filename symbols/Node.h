// One element of the symbol tree: a source file, a variable, a member or an
// array element. Selected symbols are nodes that also sit in the selected list.
// Array elements are made on demand (symtree::makeElement): the tree holds
// the first element of each array as the model of all of them.
#pragma once

#include "symbols/SelectedSymbol.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Sample type codes.
enum TypeId : std::int32_t {
    kTypeNone = 0,
    kTypeFloat = 1,
    kTypeDouble = 2,
    kTypeBool = 5,
    kTypeU8 = 6,
    kTypeU16 = 7,
    kTypeU32 = 8,
    kTypeU64 = 9,
    kTypeS8 = 10,
    kTypeS16 = 11,
    kTypeS32 = 12,
    kTypeS64 = 13,
    kTypeBitField = 14,
};

// Why the tree builder left a node without (all of) its children: its limits
// keep damaged or enormous debug information from eating all memory.
enum Cut : std::uint8_t {
    kCutNone = 0,
    kCutVariableBudget = 1,  // its variable used up its share of nodes
    kCutTreeBudget = 2,      // the tree used up its nodes (or the variable its share of them)
    kCutAddressSpace = 3,    // an array whose elements would run past 4 GB
    kCutTypeTrouble = 4,     // an array whose element type loops or dangles
};

// Debug-information tags the tree acts on.
enum : std::uint32_t { kTagArray = 1, kTagClass = 2, kTagStruct = 19, kTagUnion = 23, kTagSubprogram = 46 };

struct Node {
    std::uint32_t Tag = 0;
    // The flags and 32-bit fields are placed to leave no padding.
    bool IsSigned = false;
    bool IsArray = false;
    bool IsLeaf = false;
    std::uint8_t Unexpanded = kCutNone;  // a Cut: why children are missing
    std::string Name;             // at most 255 characters
    std::string NameWithParents;  // dotted path, the symbol's identity
    std::string_view Type;        // interned (text::intern), at most 255 characters
    std::string_view File;        // interned, at most 259 characters
    std::int32_t TypeID = 0;
    std::uint32_t Address = 0;
    std::uint32_t Size = 0;
    std::uint32_t NumDimensions = 0;
    std::vector<std::uint32_t> Dimensions;  // element count per dimension; non-empty marks an array node
    std::uint32_t BitSize = 0;
    std::uint32_t BitOffset = 0;
    double MaxValue = 0.0;

    // An array, or an element that holds the remaining dimensions of one,
    // has its elements on demand: ElementCount of them, ElementStride bytes
    // apart, each made like ElementModel (element [0] as the builder filled
    // it; outside every list, shared by the copies of this node).
    std::uint32_t ElementCount = 0;
    std::uint32_t ElementIndex = 0;  // an element's own index
    std::uint64_t ElementStride = 0;
    const Node* ElementModel = nullptr;  // not owned: the tree's arena owns it

    // Display settings and sampling fields: made when first asked for (a
    // symbol that is selected, or read from a project), kept while the node
    // lives, so a symbol selected again finds its settings.
    std::unique_ptr<SelectedSymbol> Selected;
    SelectedSymbol& symbol()
    {
        if (!Selected)
            Selected = std::make_unique<SelectedSymbol>();
        return *Selected;
    }
    // A node never selected answers with the settings of a new symbol.
    const SelectedSymbol& symbol() const
    {
        static const SelectedSymbol kNew;
        return Selected ? *Selected : kNew;
    }

    // Tree links (not owned: the tree's arena owns every node).
    Node* Parent = nullptr;
    Node* Children = nullptr;  // first child
    Node* LastChild = nullptr;
    Node* Next = nullptr;

    bool isArrayNode() const { return !Dimensions.empty(); }
    bool hasElements() const { return ElementCount != 0; }
    bool hasChildren() const { return Children || ElementCount != 0; }
    void addChild(Node* child)
    {
        if (LastChild)
            LastChild->Next = child;
        else
            Children = child;
        LastChild = child;
    }
};

// Leaves of these sample types cannot be chosen: the selection shows them
// greyed and no name pattern picks them.
inline bool isUnsupported(const Node& node)
{
    return node.TypeID == 3 || node.TypeID == 4 || node.TypeID == kTypeU64 || node.TypeID == kTypeS64;
}
