#include "BigFirmware.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace bench {
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

// Runs the compiler command that writes `elf`: its path, or empty on failure;
// `seconds` gets the time the compiler took.
fs::path compile(const std::string& build, const fs::path& elf, double& seconds)
{
    const auto start = std::chrono::steady_clock::now();
    if (std::system(build.c_str()) != 0) {
        std::fprintf(stderr, "building the firmware failed: %s\n", build.c_str());
        return {};
    }
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return elf;
}

}  // namespace

fs::path buildBigFirmware(const fs::path& dir, int globals, double& seconds)
{
    generate(dir, globals);
    const fs::path elf = dir / "big.elf";
    std::string build = std::string(PLOTVIK_ARM_GCC) + " -mcpu=cortex-m4 -mthumb -g -O0 -nostdlib -o " + elf.string();
    for (int f = 0; f < kFiles; ++f)
        build += " " + (dir / ("part" + std::to_string(f) + ".c")).string();
    build += " " + (dir / "main.c").string() + " -Wl,--no-warn-rwx-segments 2>/dev/null";
    return compile(build, elf, seconds);
}

fs::path buildFrameBufferFirmware(const fs::path& dir, std::uint32_t bufferBytes, std::uint32_t records, double& seconds)
{
    {
        std::ofstream c(dir / "display.c");
        c << "#include <stdint.h>\n"
             "struct rec { int32_t a; int16_t b; uint32_t c; };\n"
             "uint8_t frame_buffer["
          << bufferBytes << "u];\nstruct rec records[" << records << "u];\n";
        for (int i = 0; i < 1000; ++i)
            c << "volatile uint32_t g" << i << ";\n";
        c << "int main(void) { for (;;) {} }\nvoid _start(void) { main(); }\n";
    }
    const fs::path elf = dir / "display.elf";
    const std::string build = std::string(PLOTVIK_ARM_GCC) + " -mcpu=cortex-m4 -mthumb -g -O0 -nostdlib -o " + elf.string() + " " +
                              (dir / "display.c").string() + " -Wl,--no-warn-rwx-segments 2>/dev/null";
    return compile(build, elf, seconds);
}

}  // namespace bench
