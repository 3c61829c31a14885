// The project file reader on arbitrary documents: it reads what it can,
// applies it and never fails in a way other than returning -1.
#include "FuzzSupport.h"

#include "files/Project.h"
#include "symbols/SymbolDatabase.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Project project;
    SymbolDatabase symbols;
    const int result = LoadProject(fuzz::asFile(data, size), project, symbols);
    FUZZ_CHECK(result == 0 || result == -1);
    for (const Node* n : symbols.selected())
        FUZZ_CHECK(n != nullptr);
    const ProjectSettings s = project.settings();
    FUZZ_CHECK(!s.TriggerSymbol || std::find(symbols.selected().begin(), symbols.selected().end(), s.TriggerSymbol) !=
                                        symbols.selected().end());
    return 0;
}
