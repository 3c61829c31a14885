// The ELF file reader: holds the whole file in memory, checks its header,
// loads its debug information through libdwarf and reports failures as
// numbered errors with fixed texts. At most two files are open at a time.
#pragma once

#include "base/TaggedAlloc.h"
#include "symbols/DebugInfo.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

struct Dwarf_Debug_s;

namespace elf {

class RepairedImage;

enum ErrorCode : int {
    kErrInvalidHandle = 43,
    kErrRecursion = 44,
    kErrConstValueSize = 45,
    kErrImplicitValue = 46,
    kErrEntryValue = 47,
    kErrTooManyPieces = 48,
    kErrUnalignedPiece = 49,
    kErrLocationElement = 50,
    kErrTypeUnit = 51,
    kErrCompileUnit = 52,
    kErrDwarf5 = 53,
    kErrSourceFiles = 54,
    kErrSourceLines = 55,
    kErrMacros = 56,
    kErrCallFrames = 57,
    kErrNameIndex = 58,
    kErrCfaExpression = 59,
    kErrCfaValExpression = 60,
    kErrCfiRegister = 61,
    kErrDieAtOffset = 62,
    kErrMagic = 63,
    kErrNotExecutable = 64,
    kErrClassNone = 65,
    kErrDataNone = 66,
    kErrHeaderVersion = 67,
    kErrFileVersion = 68,
    kErrTooManyOpen = 69,
    kErrOpen = 70,
    kErrFileSize = 71,
    kErrOutOfMemory = 72,
    kErrRead = 73,
    kErrDwarfInit = 74,
};

// The fixed message of an error code; empty for unknown codes.
const char* errorText(int code);

// What a report handler receives.
struct ErrorRecord {
    int code = 0;
    int kind = 68;  // 68 plain report, 66 report with detail
    std::string message;
    std::string detail;
};
using ReportHandler = std::function<void(const ErrorRecord&)>;

// Replaces the handler; an empty one restores the default, which writes to
// the application log. Returns the previous handler.
ReportHandler setReportHandler(ReportHandler handler);
void reportError(int code);
void reportError(int code, const std::string& detail);
// The text of the last error reported on this thread ("ELF reader error 7:
// file could not be opened for reading (No such file or directory)"), then
// forgotten; empty when there was none.
std::string takeLastError();

// Timings of the loading stages in milliseconds and what was found.
struct LoadStatistics {
    long typesMs = 0, infoMs = 0, linesMs = 0, macroMs = 0, frameMs = 0;
    std::uint64_t fileSize = 0, debugInfoSize = 0, debugTypesSize = 0;
    int dwarfVersion = 0;
    int dataEncoding = 0;  // 1 little, 2 big, else unknown
    bool cplusplus = false;
    std::uint32_t elfSymbols = 0, fdes = 0, cies = 0;
};

// Closes a libdwarf handle the way it was opened.
struct DwarfCloser {
    bool objectAccess = false;  // opened over a RepairedImage
    void operator()(Dwarf_Debug_s* dbg) const;
};

class File {
public:
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    const std::string& path() const { return m_path; }
    std::uint64_t size() const { return m_size; }
    const unsigned char* data() const { return m_data.get(); }
    // Debug information; empty when opened header-only or when loading failed.
    const DebugInfo& debugInfo() const { return *m_debug; }
    const LoadStatistics& statistics() const { return m_stats; }
    bool loaded() const { return m_loaded; }

private:
    friend File* open(const std::string& path, bool headerOnly);
    File() = default;
    void load();
    void logStatistics() const;

    std::string m_path;
    std::uint64_t m_size = 0;
    alloc::Block<unsigned char> m_data;
    std::uint64_t m_startUs = 0;
    std::unique_ptr<RepairedImage> m_repaired;  // the sections libdwarf reads when a unit header had to be replaced
    std::unique_ptr<Dwarf_Debug_s, DwarfCloser> m_dwarf;  // declared first among the debug data: names point into it
    std::unique_ptr<DebugInfo> m_debug;
    LoadStatistics m_stats;
    bool m_loaded = false;
};

// Opens, checks and (unless headerOnly) loads an ELF file. Returns nullptr
// after reporting an error. The handle stays valid until close().
File* open(const std::string& path, bool headerOnly);
// Closes a handle; an unknown handle gives error 43.
void close(File* file);
// True while `file` stands in the open-file table; reports error 43 otherwise.
bool checkHandle(const File* file);

// Closes a handle when it goes out of scope.
struct Closer {
    void operator()(File* f) const { close(f); }
};
using FilePtr = std::unique_ptr<File, Closer>;

}  // namespace elf
