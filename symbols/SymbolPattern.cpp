#include "symbols/SymbolPattern.h"

#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTreeModel.h"

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

std::vector<Node*> tickableLeaves(const SymbolTree& tree)
{
    std::vector<Node*> out;
    // The dialog's rows: a node with neither name nor file has no row, and
    // neither has anything below it.
    const auto walk = [&](auto&& self, Node* n) -> void {
        if (n->Name.empty() && n->File.empty())
            return;
        if (n->IsLeaf && !SymbolTreeModel::isUnsupported(*n))
            out.push_back(n);
        for (Node* c = n->Children; c; c = c->Next)
            self(self, c);
    };
    for (Node* f : tree.files)
        walk(walk, f);
    return out;
}

}  // namespace symbolpattern
