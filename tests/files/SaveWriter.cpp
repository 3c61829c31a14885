// The writer the crash-safe save test kills: writes the scenario's files from
// write number FIRST on, one byte on standard output for each finished write,
// until killed or COUNT writes are done.
//
//   plotvik_save_writer FOLDER FIRST [COUNT]
#include "SaveScenario.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s FOLDER FIRST [COUNT]\n", argv[0]);
        return 2;
    }
    const std::string folder = argv[1];
    const long long first = std::atoll(argv[2]);
    const long long count = argc > 3 ? std::atoll(argv[3]) : -1;
    for (long long w = first; count < 0 || w < first + count; ++w) {
        if (savescenario::write(folder, savescenario::kindOf(w), savescenario::versionOf(w)) != 0) {
            std::fprintf(stderr, "write %lld failed\n", w);
            return 1;
        }
        const char done = 'w';
        if (::write(STDOUT_FILENO, &done, 1) != 1)
            return 1;
    }
    return 0;
}
