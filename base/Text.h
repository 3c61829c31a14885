// Text helpers shared by every layer: bounded formatting (the program's
// buffers have fixed sizes and texts are cut to them) and the comparison that
// folds only the ASCII letters A to Z.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

namespace text {

// Field sizes of the program's texts, terminator included.
inline constexpr std::size_t kPathSize = 260;
inline constexpr std::size_t kNameSize = 256;

// Cuts `s` so that it fits a buffer of `bufferSize` bytes with its terminator.
std::string truncated(std::string_view s, std::size_t bufferSize);

// printf into a string of at most `bufferSize - 1` characters.
std::string format(std::size_t bufferSize, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
std::string vformat(std::size_t bufferSize, const char* fmt, va_list args);

constexpr char foldAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// Whole-text comparison folding A-Z only; <0, 0, >0 like strcmp.
int compareFolded(std::string_view a, std::string_view b);
inline bool equalsFolded(std::string_view a, std::string_view b) { return compareFolded(a, b) == 0; }
// True when `s` begins with `prefix`, folding A-Z.
bool startsWithFolded(std::string_view s, std::string_view prefix);
// Substring search folding A-Z; an empty haystack never matches.
bool containsFolded(std::string_view haystack, std::string_view needle);

// The extension of a path including its dot (".plotvik"), or empty.
std::string_view extension(std::string_view path);

}  // namespace text

namespace text {
// Returns a view of a process-lifetime copy of `s`; equal texts share one copy.
// Thread-safe. Used for the many repeated type names and file paths of a tree.
std::string_view intern(std::string_view s);
}  // namespace text
