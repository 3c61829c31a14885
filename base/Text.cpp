#include "base/Text.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace text {

std::string truncated(std::string_view s, std::size_t bufferSize)
{
    if (bufferSize == 0)
        return {};
    return std::string(s.substr(0, std::min(s.size(), bufferSize - 1)));
}

std::string vformat(std::size_t bufferSize, const char* fmt, va_list args)
{
    if (bufferSize == 0)
        return {};
    std::vector<char> buf(bufferSize);
    va_list copy;
    va_copy(copy, args);
    std::vsnprintf(buf.data(), bufferSize, fmt, copy);
    va_end(copy);
    return std::string(buf.data());
}

std::string format(std::size_t bufferSize, const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    std::string s = vformat(bufferSize, fmt, args);
    va_end(args);
    return s;
}

int compareFolded(std::string_view a, std::string_view b)
{
    const std::size_t n = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < n; ++i) {
        const auto ca = static_cast<unsigned char>(foldAscii(a[i]));
        const auto cb = static_cast<unsigned char>(foldAscii(b[i]));
        if (ca != cb)
            return ca < cb ? -1 : 1;
    }
    if (a.size() == b.size())
        return 0;
    return a.size() < b.size() ? -1 : 1;
}

bool startsWithFolded(std::string_view s, std::string_view prefix)
{
    return s.size() >= prefix.size() && compareFolded(s.substr(0, prefix.size()), prefix) == 0;
}

bool containsFolded(std::string_view haystack, std::string_view needle)
{
    if (haystack.empty() || needle.size() > haystack.size())
        return false;
    auto it = std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end(),
                          [](char x, char y) { return foldAscii(x) == foldAscii(y); });
    return it != haystack.end();
}

std::string_view extension(std::string_view path)
{
    const auto slash = path.find_last_of("/\\");
    const auto dot = path.find_last_of('.');
    if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash))
        return {};
    return path.substr(dot);
}

}  // namespace text

#include <mutex>
#include <unordered_set>

namespace text {

std::string_view intern(std::string_view s)
{
    static std::mutex mutex;
    static std::unordered_set<std::string> pool;  // node-based: element addresses stay put
    if (s.empty())
        return {};
    std::lock_guard lock(mutex);
    return *pool.emplace(s).first;
}

}  // namespace text
