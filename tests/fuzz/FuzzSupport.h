// Helpers shared by the fuzz harnesses: an input as a file, and a cursor that
// splits an input into the small decisions a harness makes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

namespace fuzz {

// The input as a file: the readers under test take paths. One in-memory
// file, rewritten for each input.
inline std::string asFile(const std::uint8_t* data, std::size_t size)
{
    static const int fd = memfd_create("fuzz-input", MFD_CLOEXEC);
    if (fd < 0 || ::ftruncate(fd, 0) != 0 || ::pwrite(fd, data, size, 0) != static_cast<ssize_t>(size))
        std::abort();
    return "/proc/self/fd/" + std::to_string(fd);
}

// Takes bytes from the front of an input; past its end every value reads as 0.
struct Cursor {
    const std::uint8_t* data;
    std::size_t size;
    std::size_t pos = 0;

    std::uint8_t byte() { return pos < size ? data[pos++] : 0; }
    std::uint32_t u32()
    {
        std::uint32_t v = 0;
        for (int i = 0; i < 4; ++i)
            v |= std::uint32_t(byte()) << (8 * i);
        return v;
    }
    // Up to `max` bytes, stopping after a NUL or a line end (not included).
    std::string line(std::size_t max)
    {
        std::string s;
        for (char c; pos < size && s.size() < max && (c = static_cast<char>(data[pos++])) != '\0' && c != '\n';)
            s += c;
        return s;
    }
    const std::uint8_t* rest() const { return data + pos; }
    std::size_t remaining() const { return size - pos; }
    void skip(std::size_t n) { pos += n < remaining() ? n : remaining(); }
};

}  // namespace fuzz

// Soft check of a harness's own invariant: a broken one ends the run as a
// crash, so libFuzzer keeps the input and the replay test fails.
#define FUZZ_CHECK(cond) \
    ((cond) ? void() : (std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond), std::abort()))
