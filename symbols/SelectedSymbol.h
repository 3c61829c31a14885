// What a symbol carries once it is selected: its display settings (saved per
// symbol in the project file), its sampling fields and its link to the watch
// table. A node makes it when first asked (Node::symbol()), so the millions of
// nodes that are never selected carry only what the tree needs.
#pragma once

#include "base/TaggedAlloc.h"
#include "symbols/SymbolDisplaySettings.h"

#include <cstdint>

struct SelectedSymbol : SymbolDisplaySettings {
    bool HasValue = false;         // sampling: the symbol has a current value
    std::int32_t LatestSlot = -1;  // sampling: slot of the newest value, -1 none
    alloc::Block<std::uint64_t> Values;   // one 8-byte slot per store record
    std::uint64_t SamplesSinceStart = 0;  // samples in the running mean YAvgSampled
    void* TableRow = nullptr;             // not owned: the watch table's row item
};
