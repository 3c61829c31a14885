#include "symbols/SymbolPattern.h"

#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTree.h"

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
        if (!n.IsLeaf || isUnsupported(n) || !want(n))
            return true;
        // A node inside an element is the walk's own copy: the tree's node
        // is made to stay.
        Node* kept = symtree::keep(tree.arena, n);
        if (kept && taken.insert(kept).second)
            out.push_back(kept);
        return true;
    };
    for (const Node* f : tree.files)
        symtree::forEachNode(f, visit);
    return out;
}

}  // namespace symbolpattern
