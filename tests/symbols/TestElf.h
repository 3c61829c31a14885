// Helpers of the symbol tests: the corpus, temporary files, error and log
// capture, a parsed file.
#pragma once

#include "symbols/ElfFile.h"
#include "symbols/SymbolDatabase.h"

#include <string>
#include <vector>

namespace testelf {

std::string corpus(const std::string& name);
std::vector<unsigned char> readBytes(const std::string& path);
// Writes `bytes` to a fresh temporary file and returns its path.
std::string writeTemp(const std::string& name, const std::vector<unsigned char>& bytes);
// File offset and size of a section of a 32-bit little-endian ELF, by name.
bool findSection(const std::vector<unsigned char>& image, const char* name, std::size_t& offset, std::size_t& size);

// Collects reported ELF errors for its lifetime.
class ErrorCapture {
public:
    ErrorCapture();
    ~ErrorCapture();
    std::vector<elf::ErrorRecord> records;
    bool has(int code) const;

private:
    elf::ReportHandler m_previous;
};

// Collects every log line for its lifetime.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    std::vector<std::string> lines;
    bool has(const std::string& part) const;

private:
    int m_level;
};

// A file parsed into a tree, with what the parse reported.
struct Parsed {
    LogCapture log;
    ErrorCapture errors;
    SymbolDatabase db;
    int result;
    explicit Parsed(const std::string& path, bool match = false) : result(db.parseElf(path, match, nullptr)) {}
    // The node of `path` (an array element is made), or nullptr.
    const Node* find(const std::string& path);
};

}  // namespace testelf
