// Sub-commands whose subsystems have not landed yet.
#include "cli/Commands.h"

#include <cstdio>

namespace {
int notYet(const char* what)
{
    std::fprintf(stderr, "plotvik-cli %s: not available in this build\n", what);
    return 2;
}
}  // namespace

int runSymbolsCommand(const std::vector<std::string>&) { return notYet("symbols"); }
int runConvertCommand(const std::vector<std::string>&) { return notYet("convert"); }
int runRecordCommand(const std::vector<std::string>&) { return notYet("record"); }
