// plotvik-cli symbols: placeholder until its subsystem lands.
#include "cli/Commands.h"

#include <cstdio>

int runSymbolsCommand(const std::vector<std::string>&)
{
    std::fprintf(stderr, "plotvik-cli symbols: not available in this build\n");
    return 2;
}
