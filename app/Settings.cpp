#include "app/Settings.h"

#include "base/AtomicFile.h"
#include "base/FileErrors.h"
#include "base/Product.h"
#include "base/Report.h"
#include "base/Text.h"

#include <QCoreApplication>
#include <QSettings>
#include <QStandardPaths>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <thread>

namespace {

// --- the text's syntax --------------------------------------------------------

constexpr std::size_t npos = std::string::npos;

bool isLineEnd(char c) { return c == '\r' || c == '\n'; }
bool isBlank(char c) { return c == ' ' || c == '\t'; }

// Start of the line after the one at `pos` (any run of CR and LF ends a line).
std::size_t nextLine(const std::string& t, std::size_t pos)
{
    while (pos < t.size() && !isLineEnd(t[pos]))
        ++pos;
    while (pos < t.size() && isLineEnd(t[pos]))
        ++pos;
    return pos;
}

bool matchesFolded(const std::string& t, std::size_t pos, const std::string& name)
{
    return pos + name.size() <= t.size() && text::equalsFolded(std::string_view(t).substr(pos, name.size()), name);
}

// Body position of `section`, or npos.
std::size_t findSection(const std::string& t, const std::string& section)
{
    for (std::size_t pos = 0; pos < t.size(); pos = nextLine(t, pos)) {
        if (t[pos] != '[')
            continue;
        const std::size_t close = pos + 1 + section.size();
        if (matchesFolded(t, pos + 1, section) && close < t.size() && t[close] == ']')
            return nextLine(t, close);
    }
    return npos;
}

// Body position of `section`, appending the header when it is missing.
std::size_t findOrAppendSection(std::string& t, const std::string& section)
{
    std::size_t body = findSection(t, section);
    if (body != npos) {
        // A header on the text's last line without a line end: give it one,
        // or the first entry would join the header line.
        if (body == t.size() && !t.empty() && !isLineEnd(t.back())) {
            t += "\r\n";
            body = t.size();
        }
        return body;
    }
    if (!t.empty() && !isLineEnd(t.back()))
        t += "\r\n";
    t += "[" + section + "]\r\n";
    return t.size();
}

struct KeyPos {
    std::size_t line = npos;   // first character of the key
    std::size_t after = npos;  // character after the key's name
};

std::optional<KeyPos> findKey(const std::string& t, std::size_t body, const std::string& key)
{
    for (std::size_t pos = body; pos < t.size(); pos = nextLine(t, pos)) {
        if (t[pos] == '[')
            return std::nullopt;
        std::size_t k = pos;
        while (k < t.size() && isBlank(t[k]))
            ++k;
        const std::size_t after = k + key.size();
        if (matchesFolded(t, k, key) && after < t.size() && (isBlank(t[after]) || t[after] == '='))
            return KeyPos{k, after};
    }
    return std::nullopt;
}

std::size_t skipBlanks(const std::string& t, std::size_t pos)
{
    while (pos < t.size() && isBlank(t[pos]))
        ++pos;
    return pos;
}

char charAt(const std::string& t, std::size_t pos) { return pos < t.size() ? t[pos] : ' '; }

// What reading one key found.
enum class Read { Found, Missing, SyntaxError };

// Position just after the "=" of `key`; `error` names what was wrong.
Read findValue(const std::string& t, const std::string& section, const std::string& key, std::size_t& pos,
               std::string& error)
{
    const std::size_t body = findSection(t, section);
    if (body == npos)
        return Read::Missing;
    const auto kp = findKey(t, body, key);
    if (!kp)
        return Read::Missing;
    pos = skipBlanks(t, kp->after);
    if (charAt(t, pos) != '=') {
        error = text::format(64, "Expected '%c', got '%c'", '=', charAt(t, pos));
        return Read::SyntaxError;
    }
    pos = skipBlanks(t, pos + 1);
    return Read::Found;
}

Read readString(const std::string& t, const std::string& section, const std::string& key, std::string& value,
                std::string& error)
{
    std::size_t pos = 0;
    const Read r = findValue(t, section, key, pos, error);
    if (r != Read::Found)
        return r;
    if (charAt(t, pos) != '"') {
        error = text::format(64, "Expected '%c', got '%c'", '"', charAt(t, pos));
        return Read::SyntaxError;
    }
    ++pos;
    std::string v;
    while (pos < t.size() && t[pos] != '"' && !isLineEnd(t[pos]) && v.size() < Settings::kMaxLine - 1)
        v += t[pos++];
    if (charAt(t, pos) != '"' || pos >= t.size()) {
        error = "Missing closing quote";
        return Read::SyntaxError;
    }
    // Only blanks may follow the value: a value that held a double quote
    // reads back cut at that quote and is refused here.
    const std::size_t rest = skipBlanks(t, pos + 1);
    if (rest < t.size() && !isLineEnd(t[rest])) {
        error = "Unexpected text after the value";
        return Read::SyntaxError;
    }
    value = std::move(v);
    return Read::Found;
}

Read readNumber(const std::string& t, const std::string& section, const std::string& key, int& value,
                std::string& error)
{
    std::size_t pos = 0;
    const Read r = findValue(t, section, key, pos, error);
    if (r != Read::Found)
        return r;
    if (charAt(t, pos) == '"')  // numbers are written quoted like every value
        pos = skipBlanks(t, pos + 1);
    bool negative = false;
    const char first = charAt(t, pos);
    if (first == '+' || first == '-') {
        negative = first == '-';
        ++pos;
    } else if (first < '0' || first > '9') {
        error = "Expecting a number";
        return Read::SyntaxError;
    }
    long long n = 0;
    while (pos < t.size() && t[pos] >= '0' && t[pos] <= '9') {
        n = n * 10 + (t[pos++] - '0');
        if (n > INT_MAX)
            n = INT_MAX;
    }
    if (negative)
        n = -n;
    if (n < 0) {
        error = text::format(64, "Expected a value >= %d", 0);
        return Read::SyntaxError;
    }
    value = static_cast<int>(n);
    return Read::Found;
}

// "C:\dir\file.ext" -> "C:\dir\": the drive and directory of a file path.
std::string directoryOf(const std::string& filePath)
{
    const std::size_t slash = filePath.find_last_of("/\\");
    return slash == npos ? std::string() : filePath.substr(0, slash + 1);
}

std::FILE* openWithRetries(const std::string& path, const char* mode, int& err)
{
    for (int attempt = 0; attempt < Settings::kOpenRetries; ++attempt) {
        if (std::FILE* f = std::fopen(path.c_str(), mode))
            return f;
        err = errno;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return nullptr;
}

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace

// -----------------------------------------------------------------------------

Settings& Settings::instance()
{
    static Settings s;
    return s;
}

int Settings::load(const std::string& fileName)
{
    if (fileName.empty())
        return -1;
    const auto base = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation).toStdString();
    if (base.empty())
        return -1;
    std::error_code ec;
    const auto dir = std::filesystem::path(base) / product::kCompany;
    std::filesystem::create_directories(dir, ec);
    if (ec || !std::filesystem::is_directory(dir, ec))
        return -1;
    return loadPath((dir / fileName).string());
}

int Settings::loadPath(const std::string& path)
{
    if (path.empty())
        return -1;
    std::string error;
    {
        std::lock_guard lock(m_mutex);
        m_loaded = false;
        m_path = text::truncated(path, text::kPathSize);
        m_text.clear();
        std::error_code ec;
        if (std::filesystem::exists(m_path, ec)) {
            int err = 0;
            FilePtr f(openWithRetries(m_path, "rb", err));
            const auto size = f ? std::filesystem::file_size(m_path, ec) : 0;
            if (!f) {
                error = fileerr::text("open", m_path, err);
            } else if (ec) {
                error = text::format(1024, "Could not open file [%s]\nFailed to read data!", m_path.c_str());
            } else if (size > kMaxText) {
                error = text::format(1024, "Could not open file [%s]\nFile too large - maximum file size (%d bytes) exceeded!",
                                     m_path.c_str(), static_cast<int>(kMaxText));
            } else {
                std::string t(size, '\0');
                if (std::fread(t.data(), 1, t.size(), f.get()) != t.size())
                    error = text::format(1024, "Could not open file [%s]\nFailed to read data!", m_path.c_str());
                else
                    m_text = std::move(t);
            }
        }
        m_loaded = error.empty();
    }
    // Shown outside the lock: the box may wait for the interface thread,
    // which must stay free to read settings meanwhile.
    if (!error.empty()) {
        report::error(error);
        return -1;
    }
    return 0;
}

std::string Settings::path() const
{
    std::lock_guard lock(m_mutex);
    return m_path;
}

std::string Settings::content() const
{
    std::lock_guard lock(m_mutex);
    return m_text;
}

int Settings::getString(const std::string& section, const std::string& key, std::string& value)
{
    value.clear();
    if (!m_loaded)
        return -1;
    std::string error;
    Read r;
    {
        std::lock_guard lock(m_mutex);
        r = readString(m_text, section, key, value, error);
    }
    if (r == Read::SyntaxError) {
        value.clear();
        report::error(key.empty() ? std::string("Error while parsing settings file. Syntax error.")
                                  : text::format(512, "Error while parsing subkey \"%s\" in settings file. Syntax error.",
                                                 key.c_str()));
    }
    return r == Read::Found ? 0 : -1;
}

int Settings::getNumber(const std::string& section, const std::string& key, int& value)
{
    if (!m_loaded)
        return -1;
    std::string error;
    Read r;
    {
        std::lock_guard lock(m_mutex);
        r = readNumber(m_text, section, key, value, error);
    }
    if (r == Read::SyntaxError)
        report::error(error);
    return r == Read::Found ? 0 : -1;
}

int Settings::setString(const std::string& section, const std::string& key, const std::string& value)
{
    if (!m_loaded || key.empty())
        return -1;
    std::string error;
    {
        std::lock_guard lock(m_mutex);
        std::string t = m_text;
        const std::size_t body = findSection(t, section);
        if (body != npos) {
            if (const auto kp = findKey(t, body, key))
                t.erase(kp->line, nextLine(t, kp->line) - kp->line);
        }
        const std::size_t at = findOrAppendSection(t, section);
        // Keep the line within its limit, cutting the value, never the quotes.
        const std::size_t room = kMaxLine > key.size() + 5 ? kMaxLine - key.size() - 5 : 0;
        const std::string line = key + "=\"" + value.substr(0, room) + "\"\r\n";
        t.insert(at, line);
        if (t.size() > kMaxText) {
            error = text::format(1024, "Could not save file [%s]\nFile too large - maximum file size (%d bytes) exceeded!",
                                 m_path.c_str(), static_cast<int>(kMaxText));
        } else {
            m_text = std::move(t);
            writeFile(m_text, error);
        }
    }
    if (!error.empty()) {
        report::error(error);
        return -1;
    }
    return 0;
}

// Goes through the atomic file like every other file the program writes, so a
// failed or interrupted write never destroys the previous file.
int Settings::writeFile(const std::string& t, std::string& error) const
{
    for (int attempt = 0;; ++attempt) {
        AtomicFile file(m_path);
        if (!file.open(AtomicFile::Mode::Binary)) {
            if (attempt + 1 < kOpenRetries) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                continue;
            }
            error = fileerr::text("save", m_path, file.errorNumber());
            return -1;
        }
        file.write(t);
        if (!file.commit()) {
            error = text::format(1024, "Could not save file [%s]\nFailed to write data!", m_path.c_str());
            return -1;
        }
        return 0;
    }
}

std::string Settings::dataFilesDir()
{
    std::string v;
    getString("PATH", "DataFiles", v);
    if (v.empty() && QCoreApplication::instance())
        v = QCoreApplication::applicationDirPath().toStdString() + "/";
    return v;
}

std::string Settings::projectFilesDir()
{
    std::string v;
    getString("PATH", "ProjectFiles", v);
    return v;
}

std::string Settings::elfFilesDir()
{
    std::string v;
    getString("PATH", "ELFFiles", v);
    return v;
}

int Settings::setDataFilesDir(const std::string& filePath) { return setString("PATH", "DataFiles", directoryOf(filePath)); }
int Settings::setProjectFilesDir(const std::string& filePath)
{
    return setString("PATH", "ProjectFiles", directoryOf(filePath));
}
int Settings::setElfFilesDir(const std::string& filePath) { return setString("PATH", "ELFFiles", directoryOf(filePath)); }

int Settings::logLevel()
{
    int level = 3;
    if (getNumber("LOG", "LogLevel", level) != 0)
        return 3;
    return level < 1 ? 1 : (level > 9 ? 9 : level);
}

bool Settings::floatByEncoding()
{
    int on = 0;
    return getNumber("SYMBOLS", "FloatByEncoding", on) == 0 && on == 1;
}

std::string Settings::logFile()
{
    std::string v;
    getString("LOG", "LogFile", v);
    return v;
}

std::string Settings::currentProject()
{
    std::string v;
    getString("PROJECT", "Current", v);
    return v;
}

int Settings::setCurrentProject(const std::string& path)
{
    RecentLists::instance().add(1, path);
    if (Bridge* b = report::bridge())
        b->refreshRecentLists();
    return setString("PROJECT", "Current", path);
}

// ---------------------------------------------------------------------------

namespace {

QSettings nativeSettings()
{
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, product::kCompany, product::kName);
}

QString listGroup(int list) { return QString::fromStdString(text::format(64, "Recent File List %d", list)); }
QString fileValue(int i) { return QString::fromStdString(text::format(32, "File%i", i)); }

}  // namespace

RecentLists& RecentLists::instance()
{
    static RecentLists r;
    return r;
}

int RecentLists::load(int list, const std::string& baseKey, int maximum)
{
    if (list < 0 || list > 1)
        return -1;
    std::lock_guard lock(m_mutex);
    List& l = m_lists[list];
    l.maximum = maximum < 0 ? 0 : (maximum > kMaxEntries ? kMaxEntries : maximum);
    l.key = text::format(512, "%sRecent File List %d\\", baseKey.c_str(), list);
    l.paths.clear();
    QSettings s = nativeSettings();
    if (s.status() != QSettings::NoError)
        return -1;
    s.beginGroup(listGroup(list));
    for (int i = 1; i <= l.maximum; ++i) {
        const QVariant v = s.value(fileValue(i));
        if (!v.isValid())
            return -2;
        l.paths.push_back(text::truncated(v.toString().toStdString(), text::kPathSize));
    }
    return 0;
}

int RecentLists::add(int list, const std::string& path)
{
    if (list < 0 || list > 1 || path.empty())
        return -1;
    std::lock_guard lock(m_mutex);
    List& l = m_lists[list];
    const std::string entry = text::truncated(path, text::kPathSize);
    for (auto it = l.paths.begin(); it != l.paths.end(); ++it) {
        if (text::equalsFolded(*it, entry)) {
            l.paths.erase(it);
            break;
        }
    }
    l.paths.insert(l.paths.begin(), entry);
    if (static_cast<int>(l.paths.size()) > l.maximum)
        l.paths.resize(static_cast<std::size_t>(l.maximum));
    QSettings s = nativeSettings();
    s.beginGroup(listGroup(list));
    for (std::size_t i = 0; i < l.paths.size(); ++i)
        s.setValue(fileValue(static_cast<int>(i + 1)), QString::fromStdString(l.paths[i]));
    s.endGroup();
    s.sync();
    return s.status() == QSettings::NoError ? 0 : -2;
}

int RecentLists::count(int list) const
{
    if (list < 0 || list > 1)
        return 0;
    std::lock_guard lock(m_mutex);
    return static_cast<int>(m_lists[list].paths.size());
}

std::string RecentLists::entry(int list, int index) const
{
    std::lock_guard lock(m_mutex);
    if (list < 0 || list > 1 || index < 0 || index >= static_cast<int>(m_lists[list].paths.size()))
        return {};
    return m_lists[list].paths[static_cast<std::size_t>(index)];
}

int readStartAction()
{
    const QVariant v = nativeSettings().value("DontShowAgainStartPlotvik");
    bool ok = false;
    const int value = v.toInt(&ok);
    return v.isValid() && ok ? value : -1;
}

int writeStartAction(unsigned value)
{
    QSettings s = nativeSettings();
    s.setValue("DontShowAgainStartPlotvik", value);
    s.sync();
    return s.status() == QSettings::NoError ? 0 : -1;
}
