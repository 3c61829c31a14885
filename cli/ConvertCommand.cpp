// plotvik-cli convert RECORDING.praw --project P.plotvik --csv OUT.csv:
// imports a raw recording with the project's selection and writes it as CSV,
// through the same readers and writers as the GUI's menu commands.
#include "cli/Commands.h"

#include "cli/ConsoleBridge.h"
#include "cli/Help.h"

#include "base/Report.h"
#include "files/CsvExport.h"
#include "files/Project.h"
#include "files/RawFile.h"
#include "probe/SampleStore.h"
#include "symbols/SymbolDatabase.h"

#include <cstdio>

namespace {

struct ConvertArgs {
    std::string recording, project, csv;
};

// What is wrong with the command line; empty when nothing is.
std::string parse(const std::vector<std::string>& args, ConvertArgs& out)
{
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--project" || a == "--csv") {
            if (i + 1 == args.size())
                return "option '" + a + "' needs a value";
            (a == "--project" ? out.project : out.csv) = args[++i];
        } else if (!a.empty() && a[0] == '-') {
            return "unknown option '" + a + "'";
        } else if (!out.recording.empty()) {
            return "unexpected argument '" + a + "'";
        } else {
            out.recording = a;
        }
    }
    if (out.recording.empty())
        return "missing RECORDING.praw";
    return out.project.empty() ? "missing --project" : out.csv.empty() ? "missing --csv" : "";
}

// Keeps the bridge installed only while the command runs.
struct BridgeScope {
    explicit BridgeScope(Bridge* b) { report::setBridge(b); }
    ~BridgeScope() { report::setBridge(nullptr); }
    BridgeScope(const BridgeScope&) = delete;
    BridgeScope& operator=(const BridgeScope&) = delete;
};

}  // namespace

int runConvertCommand(const std::vector<std::string>& args)
{
    ConvertArgs a;
    if (const std::string why = parse(args, a); !why.empty())
        return clihelp::usageError("convert", why);
    ConsoleBridge bridge;
    BridgeScope scope(&bridge);

    Project project;
    SymbolDatabase symbols;
    if (LoadProject(a.project, project, symbols) != 0) {
        std::fprintf(stderr, "plotvik-cli convert: cannot read project file [%s]\n", a.project.c_str());
        return 1;
    }
    SampleStore store(symbols);
    if (ImportRaw(a.recording, store, symbols, project.settings()) != 0) {
        std::fprintf(stderr, "plotvik-cli convert: cannot import [%s]\n", a.recording.c_str());
        return 1;
    }
    if (ExportCsv(a.csv, store, symbols) != 0) {
        std::fprintf(stderr, "plotvik-cli convert: cannot write [%s]\n", a.csv.c_str());
        return 1;
    }
    return 0;
}
