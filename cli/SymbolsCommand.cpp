// plotvik-cli symbols FILE.elf: every leaf of the symbol tree, one line each.
#include "cli/Commands.h"
#include "cli/ConsoleBridge.h"
#include "cli/Help.h"

#include "app/Settings.h"
#include "base/Bridge.h"
#include "base/Report.h"
#include "symbols/ElfFile.h"
#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTree.h"

#include <cstdio>

namespace {

// Array elements are made one at a time as the listing goes: a listing of
// millions of them holds a few nodes.
bool printLeaf(const Node& node)
{
    if (node.IsLeaf)
        std::printf("%s\t0x%08X\t%u\t%d\t%.*s\t%.*s\t%u\t%u\n", node.NameWithParents.c_str(), node.Address, node.Size,
                    node.TypeID, static_cast<int>(node.Type.size()), node.Type.data(), static_cast<int>(node.File.size()),
                    node.File.data(), node.BitSize, node.BitOffset);
    return true;
}

}  // namespace

int runSymbolsCommand(const std::vector<std::string>& args)
{
    if (args.size() != 1)
        return clihelp::usageError("symbols",
                                   args.empty() ? "missing FILE.elf" : "unexpected argument '" + args[1] + "'");
    ConsoleBridge bridge;
    report::setBridge(&bridge);
    // Errors of single units are printed too, so a partly broken file says so.
    elf::setReportHandler([](const elf::ErrorRecord& r) {
        if (r.code == elf::kErrDwarf5)
            return;
        if (r.detail.empty())
            std::fprintf(stderr, "error %d: %s\n", r.code, r.message.c_str());
        else
            std::fprintf(stderr, "error %d: %s %s\n", r.code, r.message.c_str(), r.detail.c_str());
    });
    // The classification rule is program-wide: read it as the other front ends do at start.
    if (Settings::instance().load("PlotvikSettings.ini") == 0)
        symtree::setFloatByEncoding(Settings::instance().floatByEncoding());
    SymbolDatabase db;
    const int result = db.parseElf(args[0], false, nullptr);
    elf::setReportHandler({});
    report::setBridge(nullptr);
    if (result < 0 || !db.tree())
        return 1;
    for (const Node* file : db.tree()->files)
        symtree::forEachNode(file->Children, printLeaf);
    return 0;
}
