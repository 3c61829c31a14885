// Parse-and-tree speed and memory on a generated firmware of many globals,
// beside the time gdb-multiarch -batch -readnow takes to load the same file.
#include "BigFirmware.h"
#include "symbols/SymbolDatabase.h"

#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace {

double seconds(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::size_t countNodes(const Node* n)
{
    std::size_t count = 0;
    for (; n; n = n->Next)
        count += 1 + countNodes(n->Children);
    return count;
}

}  // namespace

int main(int argc, char** argv)
{
    const int globals = argc > 1 ? std::atoi(argv[1]) : 20000;
    const fs::path dir = fs::temp_directory_path() / ("plotvik-symbols-bench-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    double buildSeconds = 0;
    const fs::path elf = bench::buildBigFirmware(dir, globals, buildSeconds);
    if (elf.empty())
        return 1;
    std::printf("firmware: %d globals, %ju bytes, built in %.1f s\n", globals, static_cast<std::uintmax_t>(fs::file_size(elf)),
                buildSeconds);

    std::size_t nodes = 0;
    double ours = 0;
    {
        SymbolDatabase db;
        const auto start = std::chrono::steady_clock::now();
        if (db.parseElf(elf.string(), false, nullptr) != 0) {
            std::fprintf(stderr, "parse failed\n");
            return 1;
        }
        ours = seconds(start);
        for (const Node* f : db.tree()->files)
            nodes += 1 + countNodes(f->Children);
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const double peakMb = static_cast<double>(usage.ru_maxrss) / 1024.0;

    const std::string gdb = std::string(PLOTVIK_GDB) + " -batch -nx -readnow " + elf.string() + " >/dev/null 2>&1";
    const auto gdbStart = std::chrono::steady_clock::now();
    const int gdbResult = std::system(gdb.c_str());
    const double theirs = seconds(gdbStart);

    std::printf("tree nodes:          %zu\n", nodes);
    std::printf("parse and tree:      %.3f s   (goal < 1.5 s)\n", ours);
    std::printf("gdb -batch -readnow: %.3f s%s\n", theirs, gdbResult == 0 ? "" : "   (gdb failed)");
    std::printf("ratio ours/gdb:      %.2f   (goal < 0.5)\n", theirs > 0 ? ours / theirs : 0.0);
    std::printf("peak memory:         %.1f MB   (goal < 300 MB)\n", peakMb);
    fs::remove_all(dir);
    return 0;
}
