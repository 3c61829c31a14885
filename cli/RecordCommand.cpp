// plotvik-cli record: placeholder until its subsystem lands.
#include "cli/Commands.h"

#include <cstdio>

int runRecordCommand(const std::vector<std::string>&)
{
    std::fprintf(stderr, "plotvik-cli record: not available in this build\n");
    return 2;
}
