// Choosing symbols by name: the leaves the selection dialog lets a user tick,
// and name patterns with the wildcards * and ?.
#pragma once

#include <functional>
#include <string_view>
#include <vector>

struct Node;
struct SymbolTree;

namespace symbolpattern {

// `text` matches `pattern` as a whole: * any run of characters, ? any one
// character, every other character (brackets included) itself.
bool matches(std::string_view pattern, std::string_view text);

// The leaves that have a tick box in the selection dialog and that `want`
// accepts, in tree order. Array elements among them are made and kept in the
// tree; the others are looked at one by one and let go.
std::vector<Node*> tickableLeaves(SymbolTree& tree, const std::function<bool(const Node&)>& want);

}  // namespace symbolpattern
