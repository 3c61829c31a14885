// Parse-and-tree speed and memory on a generated firmware of many globals,
// beside the time gdb-multiarch -batch -readnow takes to load the same file.
#include "BigFirmware.h"
#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTree.h"

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

// One parse of the file into a fresh database; the time, the nodes of the
// tree with every array element counted, and those made.
double parseOnce(const fs::path& elf, std::size_t& nodes, std::size_t& made)
{
    SymbolDatabase db;
    const auto start = std::chrono::steady_clock::now();
    if (db.parseElf(elf.string(), false, nullptr) != 0)
        return -1.0;
    const double took = seconds(start);
    nodes = 0;
    for (const Node* f : db.tree()->files)
        symtree::forEachNode(f, [&nodes](const Node&) { return ++nodes != 0; });
    made = db.tree()->arena.size();
    return took;
}

}  // namespace

double peakMb()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

// A display firmware: a 16 MiB frame buffer and 100,000 records cost a few
// nodes, not one per element. First, so that the peak is its own.
bool frameBuffer(const fs::path& dir)
{
    double buildSeconds = 0;
    const fs::path elf = bench::buildFrameBufferFirmware(dir, 16u << 20, 100000, buildSeconds);
    if (elf.empty())
        return false;
    std::size_t nodes = 0, made = 0;
    const double took = parseOnce(elf, nodes, made);
    if (took < 0)
        return false;
    std::printf("display firmware:    16 MiB frame buffer, 100000 records of 3 members, 1000 scalars\n");
    std::printf("  parse and tree:    %.3f s   (goal < 0.2 s), %zu nodes made of %zu with every element\n", took, made, nodes);
    std::printf("  peak memory:       %.1f MB   (goal < 64 MB)\n", peakMb());
    return true;
}

int main(int argc, char** argv)
{
    const int globals = argc > 1 ? std::atoi(argv[1]) : 20000;
    const fs::path dir = fs::temp_directory_path() / ("plotvik-symbols-bench-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    if (!frameBuffer(dir))
        return 1;
    double buildSeconds = 0;
    const fs::path elf = bench::buildBigFirmware(dir, globals, buildSeconds);
    if (elf.empty())
        return 1;
    std::printf("firmware: %d globals, %ju bytes, built in %.1f s\n", globals, static_cast<std::uintmax_t>(fs::file_size(elf)),
                buildSeconds);

    // The first parse runs on pages this process never had; on a virtual
    // machine that returns freed memory to its host, first touch of new pages
    // costs far more than on bare metal, and varies with the host. The second
    // parse reuses the first one's pages and shows the program's own cost.
    std::size_t nodes = 0, made = 0;
    const double cold = parseOnce(elf, nodes, made);
    const double peak = peakMb();
    const double warm = parseOnce(elf, nodes, made);
    if (cold < 0 || warm < 0) {
        std::fprintf(stderr, "parse failed\n");
        return 1;
    }

    const auto timeGdb = [](const std::string& arguments, int& result) {
        const std::string command = std::string(PLOTVIK_GDB) + " -batch -nx " + arguments + " >/dev/null 2>&1";
        const auto start = std::chrono::steady_clock::now();
        result = std::system(command.c_str());
        return seconds(start);
    };
    int gdbResult = 0, bareResult = 0;
    const double theirs = timeGdb("-readnow " + elf.string(), gdbResult);
    // gdb's own start-up, for reading the ratio: most of its time on this file.
    const double bare = timeGdb("", bareResult);

    const auto ratio = [&](double ours) { return theirs > 0 ? ours / theirs : 0.0; };
    std::printf("tree nodes:          %zu with every element, %zu made, of %zu bytes\n", nodes, made, sizeof(Node));
    std::printf("parse and tree:      %.3f s on new pages, %.3f s on reused pages\n", cold, warm);
    std::printf("gdb -batch -readnow: %.3f s%s, of it %.3f s start-up without a file\n", theirs,
                gdbResult == 0 ? "" : "   (gdb failed)", bareResult == 0 ? bare : 0.0);
    std::printf("ratio ours/gdb:      %.2f on new pages, %.2f on reused pages   (goal < 0.5)\n", ratio(cold), ratio(warm));
    std::printf("peak memory:         %.1f MB   (goal < 100 MB)\n", peak);
    fs::remove_all(dir);
    return 0;
}
