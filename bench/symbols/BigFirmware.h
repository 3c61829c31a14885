// A large generated firmware for the symbol benchmarks: many globals of five
// shapes in turn (scalar, structure, int array, array of structures, 2-D
// array) over twenty source files, built with arm-none-eabi-gcc.
#pragma once

#include <cstdint>
#include <filesystem>

namespace bench {

// Writes the sources into `dir` and builds `dir`/big.elf; returns its path,
// or an empty path when the build failed. `seconds` gets the build time.
std::filesystem::path buildBigFirmware(const std::filesystem::path& dir, int globals, double& seconds);

// A display firmware: `uint8_t frame_buffer[bufferBytes]`, `struct rec
// records[records]` of three members, and a thousand scalars g0..g999.
std::filesystem::path buildFrameBufferFirmware(const std::filesystem::path& dir, std::uint32_t bufferBytes, std::uint32_t records,
                                               double& seconds);

}  // namespace bench
