#include "symbols/SymbolPattern.h"

#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTree.h"
#include "symbols/SymbolTreeModel.h"

#include <unordered_set>

namespace symbolpattern {

bool matches(std::string_view pattern, std::string_view text)
{
    // Greedy with one back-track point: linear for patterns with one star,
    // never exponential.
    std::size_t p = 0, t = 0, star = std::string_view::npos, mark = 0;
    while (t < text.size()) {
        if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            mark = t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++mark;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

std::vector<Node*> tickableLeaves(SymbolTree& tree, const std::function<bool(const Node&)>& want)
{
    std::vector<Node*> out;
    std::unordered_set<const Node*> taken;
    // The dialog's rows: a node with neither name nor file has no row, and
    // neither has anything below it.
    const auto visit = [&](const Node& n) {
        if (n.Name.empty() && n.File.empty())
            return false;
        if (!n.IsLeaf || SymbolTreeModel::isUnsupported(n) || !want(n))
            return true;
        // A node inside an element is the walk's own copy: the tree's node
        // of the same path is made and kept.
        bool copy = false;
        for (const Node* p = &n; p->Parent && !copy; p = p->Parent)
            copy = p->Parent->hasElements();
        if (!copy) {
            if (taken.insert(&n).second)
                out.push_back(const_cast<Node*>(&n));  // a node of `tree`, which is not const
            return true;
        }
        for (Node* made : symtree::findPath(tree.arena, tree.files, n.NameWithParents))
            if (symtree::matches(*made, n) && taken.insert(made).second)
                out.push_back(made);
        return true;
    };
    for (const Node* f : tree.files)
        symtree::forEachNode(f, visit);
    return out;
}

}  // namespace symbolpattern
