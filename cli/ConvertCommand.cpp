// plotvik-cli convert: placeholder until its subsystem lands.
#include "cli/Commands.h"

#include <cstdio>

int runConvertCommand(const std::vector<std::string>&)
{
    std::fprintf(stderr, "plotvik-cli convert: not available in this build\n");
    return 2;
}
