// The ELF reader, the debug-info walk and the tree builder on arbitrary files:
// every input either loads into a tree that holds together or is refused.
#include "FuzzSupport.h"

#include "symbols/ElfFile.h"
#include "symbols/SymbolDatabase.h"

namespace {

void walk(const Node* parent, const Node* n)
{
    for (; n; n = n->Next) {
        FUZZ_CHECK(n->Parent == parent);
        FUZZ_CHECK(!n->IsLeaf || !n->Children);
        walk(n, n->Children);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Refusals report through the handler; the default one would only log.
    elf::setReportHandler([](const elf::ErrorRecord&) {});
    SymbolDatabase db;
    const int result = db.parseElf(fuzz::asFile(data, size), false, nullptr);
    FUZZ_CHECK((result == 0) == (db.tree() != nullptr));
    if (db.tree()) {
        for (const Node* f : db.tree()->files)
            walk(nullptr, f->Children);  // top-level variables have no parent node
    }
    return 0;
}
