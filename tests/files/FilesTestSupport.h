// Helpers of the file tests: a recording bridge installed for the lifetime of
// an object, and small file utilities.
#pragma once

#include "base/Report.h"
#include "tests/app/TestBridge.h"

#include <QTemporaryDir>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

struct ScopedBridge {
    TestBridge bridge;
    ScopedBridge() { report::setBridge(&bridge); }
    ~ScopedBridge() { report::setBridge(nullptr); }
    ScopedBridge(const ScopedBridge&) = delete;
    ScopedBridge& operator=(const ScopedBridge&) = delete;
};

inline std::string readAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeAll(const std::string& path, const std::string& content)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

inline std::vector<std::string> lines(const std::string& content)
{
    std::vector<std::string> out;
    std::istringstream in(content);
    for (std::string l; std::getline(in, l);)
        out.push_back(l);
    return out;
}
