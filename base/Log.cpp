#include "base/Log.h"

#include "base/Clock.h"
#include "base/Report.h"
#include "base/Text.h"

#include <cstdarg>
#include <fstream>
#include <memory>

namespace {
constexpr std::size_t kCollectedSize = 4096;
}

Log& Log::instance()
{
    static Log log;
    return log;
}

void Log::setLevel(int level) { m_level = level < 1 ? 1 : (level > 9 ? 9 : level); }

void Log::setWriter(Writer writer)
{
    std::lock_guard lock(m_writerMutex);
    m_writer = std::move(writer);
}

bool Log::openFile(const std::string& path)
{
    if (path.empty()) {
        setWriter({});
        return true;
    }
    auto file = std::make_shared<std::ofstream>(path, std::ios::app);
    if (!*file)
        return false;
    setWriter([file](const std::string& line) {
        *file << line << '\n';
        file->flush();
    });
    return true;
}

bool Log::messageAllowed() const { return m_level >= 9 || m_level >= 2 * m_depth; }
bool Log::errorAllowed() const { return m_level >= 9 || m_level >= 2 * m_depth - 1; }

void Log::write(const std::string& line)
{
    std::lock_guard lock(m_writerMutex);
    if (m_writer)
        m_writer(line);
}

void Log::beginSection(const std::string& t)
{
    if (messageAllowed())
        write(t);
    if (m_depth == 0) {
        m_collected.clear();
        m_errorCount = 0;
        m_startMs = clk::milliseconds();
    }
    ++m_depth;
    ++m_sections;
}

void Log::line(const char* fmt, ...)
{
    if (!messageAllowed())
        return;
    va_list args;
    va_start(args, fmt);
    std::string s = text::vformat(1024, fmt, args);
    va_end(args);
    write(s);
}

void Log::text(const std::string& t)
{
    if (messageAllowed())
        write(t);
}

void Log::error(const std::string& t, bool forced)
{
    if (forced || errorAllowed()) {
        std::string s = text::format(2048, "ERROR: %s", t.c_str());
        if (!s.empty() && s.back() == '\n')
            s.pop_back();
        write(s);
    }
    if (!m_collected.empty() && m_collected.back() != '\n')
        m_collected.push_back('\n');
    m_collected.append(t);
    if (m_collected.size() >= kCollectedSize)
        m_collected.resize(kCollectedSize - 1);
    ++m_errorCount;
}

void Log::errorf(const char* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    std::string s = text::vformat(1024, fmt, args);
    va_end(args);
    error(s, false);
}

void Log::endSection(const std::string& t)
{
    if (!t.empty() && errorAllowed() && m_errorCount == 0)
        write(t);
    if (m_depth > 0)
        --m_depth;
    --m_sections;
    if (m_depth == 0 && !m_collected.empty()) {
        const std::string collected = m_collected;
        const bool errors = m_errorCount > 0;
        m_collected.clear();
        m_errorCount = 0;
        if (errors)
            report::error(collected);
        else
            report::information(collected);
    }
}
