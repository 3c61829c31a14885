// Choosing symbols by name: the leaves the selection dialog lets a user tick,
// and name patterns with the wildcards * and ?.
#pragma once

#include <string_view>
#include <vector>

struct Node;
struct SymbolTree;

namespace symbolpattern {

// `text` matches `pattern` as a whole: * any run of characters, ? any one
// character, every other character (brackets included) itself.
bool matches(std::string_view pattern, std::string_view text);

// The leaves that have a tick box in the selection dialog, in tree order.
std::vector<Node*> tickableLeaves(const SymbolTree& tree);

}  // namespace symbolpattern
