// The application log: nested sections, levels, and the errors collected
// during one user operation, shown together when the outermost section ends.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

class Log {
public:
    using Writer = std::function<void(const std::string& line)>;

    static Log& instance();

    // 1..9; a message at depth d is written when level >= 2d, an error when
    // level >= 2d - 1 (or when forced); 9 writes everything.
    void setLevel(int level);
    int level() const { return m_level; }
    // Where written lines go; the default discards them.
    void setWriter(Writer writer);
    // Appends written lines to a file (empty path: back to discarding).
    bool openFile(const std::string& path);

    void beginSection(const std::string& text);
    void line(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void text(const std::string& text);
    void error(const std::string& text, bool forced = false);
    void errorf(const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    void endSection(const std::string& text);

    int depth() const { return m_depth; }
    int errorCount() const { return m_errorCount; }
    std::string collected() const { return m_collected; }

private:
    bool messageAllowed() const;
    bool errorAllowed() const;
    void write(const std::string& text);

    int m_level = 3;
    int m_depth = 0;
    int m_sections = 0;
    int m_errorCount = 0;
    std::string m_collected;  // at most 4096 bytes
    std::uint64_t m_startMs = 0;
    std::mutex m_writerMutex;
    Writer m_writer;
};

// Opens a log section for the lifetime of the object.
class LogSection {
public:
    explicit LogSection(const std::string& begin, std::string end = {}) : m_end(std::move(end))
    {
        Log::instance().beginSection(begin);
    }
    ~LogSection() { Log::instance().endSection(m_end); }
    void setEnd(std::string end) { m_end = std::move(end); }
    LogSection(const LogSection&) = delete;
    LogSection& operator=(const LogSection&) = delete;

private:
    std::string m_end;
};
