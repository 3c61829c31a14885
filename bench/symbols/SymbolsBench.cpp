// Parse-and-tree speed and memory on a generated firmware of many globals,
// beside the time gdb-multiarch -batch -readnow takes to load the same file.
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

constexpr int kFiles = 20;

// Five shapes in turn: scalar, structure, int array, array of structures, 2-D array.
void generate(const fs::path& dir, int globals)
{
    std::ofstream h(dir / "types.h");
    h << "#include <stdint.h>\n"
         "typedef struct { int8_t a; int16_t b; int32_t c; float f; double d; uint8_t e[2]; uint16_t g;"
         " struct { uint32_t x; int32_t y; } p; } rec_t;\n";
    const int perFile = (globals + kFiles - 1) / kFiles;
    for (int f = 0; f < kFiles; ++f) {
        std::ofstream c(dir / ("part" + std::to_string(f) + ".c"));
        c << "#include \"types.h\"\n";
        for (int i = f * perFile; i < (f + 1) * perFile && i < globals; ++i) {
            switch (i % 5) {
            case 0: c << "volatile uint32_t g" << i << ";\n"; break;
            case 1: c << "rec_t g" << i << ";\n"; break;
            case 2: c << "int32_t g" << i << "[32];\n"; break;
            case 3: c << "rec_t g" << i << "[6];\n"; break;
            default: c << "int16_t g" << i << "[8][8];\n"; break;
            }
        }
    }
    std::ofstream m(dir / "main.c");
    m << "int main(void) { for (;;) {} }\nvoid _start(void) { main(); }\n";
}

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
    generate(dir, globals);
    const fs::path elf = dir / "big.elf";
    std::string build = std::string(PLOTVIK_ARM_GCC) + " -mcpu=cortex-m4 -mthumb -g -O0 -nostdlib -o " + elf.string();
    for (int f = 0; f < kFiles; ++f)
        build += " " + (dir / ("part" + std::to_string(f) + ".c")).string();
    build += " " + (dir / "main.c").string() + " -Wl,--no-warn-rwx-segments 2>/dev/null";
    auto start = std::chrono::steady_clock::now();
    if (std::system(build.c_str()) != 0) {
        std::fprintf(stderr, "building the firmware failed: %s\n", build.c_str());
        return 1;
    }
    std::printf("firmware: %d globals, %ju bytes, built in %.1f s\n", globals, static_cast<std::uintmax_t>(fs::file_size(elf)),
                seconds(start));

    std::size_t nodes = 0;
    double ours = 0;
    {
        SymbolDatabase db;
        start = std::chrono::steady_clock::now();
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
    start = std::chrono::steady_clock::now();
    const int gdbResult = std::system(gdb.c_str());
    const double theirs = seconds(start);

    std::printf("tree nodes:          %zu\n", nodes);
    std::printf("parse and tree:      %.3f s   (goal < 1.5 s)\n", ours);
    std::printf("gdb -batch -readnow: %.3f s%s\n", theirs, gdbResult == 0 ? "" : "   (gdb failed)");
    std::printf("ratio ours/gdb:      %.2f   (goal < 0.5)\n", theirs > 0 ? ours / theirs : 0.0);
    std::printf("peak memory:         %.1f MB   (goal < 300 MB)\n", peakMb);
    fs::remove_all(dir);
    return 0;
}
