#include "app/Settings.h"

#include "app/Product.h"
#include "app/Text.h"

#include <QSettings>
#include <QStandardPaths>

#include <filesystem>
#include <fstream>
#include <sstream>

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
    return loadPath((dir / fileName).string());
}

int Settings::loadPath(const std::string& path)
{
    std::lock_guard lock(m_mutex);
    m_path = path;
    m_text.clear();
    std::ifstream in(path, std::ios::binary);
    if (in) {
        std::stringstream ss;
        ss << in.rdbuf();
        m_text = ss.str();
    }
    m_loaded = true;
    return 0;
}

std::string Settings::content() const
{
    std::lock_guard lock(m_mutex);
    return m_text;
}

int Settings::getString(const std::string&, const std::string&, std::string& value)
{
    value.clear();
    return -1;
}

int Settings::getNumber(const std::string&, const std::string&, int&) { return -1; }

int Settings::setString(const std::string&, const std::string&, const std::string&) { return -1; }

std::string Settings::dataFilesDir() { return {}; }
std::string Settings::projectFilesDir() { return {}; }
std::string Settings::elfFilesDir() { return {}; }
int Settings::setDataFilesDir(const std::string&) { return -1; }
int Settings::setProjectFilesDir(const std::string&) { return -1; }
int Settings::setElfFilesDir(const std::string&) { return -1; }

int Settings::logLevel()
{
    int level = 3;
    if (getNumber("LOG", "LogLevel", level) != 0)
        return 3;
    return level < 1 ? 1 : (level > 9 ? 9 : level);
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
    return setString("PROJECT", "Current", path);
}

// ---------------------------------------------------------------------------

namespace {

QSettings nativeSettings()
{
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, product::kCompany, product::kName);
}

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
    l.maximum = maximum > 16 ? 16 : maximum;
    l.key = text::format(512, "%sRecent File List %d", baseKey.c_str(), list);
    l.paths.clear();
    QSettings s = nativeSettings();
    s.beginGroup(QString::fromStdString(text::format(64, "Recent File List %d", list)));
    for (int i = 1; i <= l.maximum; ++i) {
        const QVariant v = s.value(QString::fromStdString(text::format(32, "File%i", i)));
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
    for (auto it = l.paths.begin(); it != l.paths.end(); ++it) {
        if (text::equalsFolded(*it, path)) {
            l.paths.erase(it);
            break;
        }
    }
    l.paths.insert(l.paths.begin(), text::truncated(path, text::kPathSize));
    if (static_cast<int>(l.paths.size()) > l.maximum)
        l.paths.resize(static_cast<std::size_t>(l.maximum));
    QSettings s = nativeSettings();
    s.beginGroup(QString::fromStdString(text::format(64, "Recent File List %d", list)));
    for (std::size_t i = 0; i < l.paths.size(); ++i)
        s.setValue(QString::fromStdString(text::format(32, "File%zu", i + 1)), QString::fromStdString(l.paths[i]));
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
