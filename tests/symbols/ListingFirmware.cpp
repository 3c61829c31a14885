// Builds the generated firmware of the listing test into a folder, for
// reference/record-listings.sh: listing_firmware DIR GLOBALS
#include "bench/symbols/BigFirmware.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc != 3)
        return 2;
    double seconds = 0;
    const auto elf = bench::buildBigFirmware(argv[1], std::atoi(argv[2]), seconds);
    std::puts(elf.c_str());
    return elf.empty() ? 1 : 0;
}
