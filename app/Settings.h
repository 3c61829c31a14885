// Preferences that outlive a project: the "PlotvikSettings.ini" text held in
// memory and rewritten whole on every change, and the start action and
// recent-project list kept in the user's native settings store.
#pragma once

#include <mutex>
#include <string>
#include <vector>

class Settings {
public:
    static constexpr std::size_t kMaxText = 30000;

    static Settings& instance();

    // Loads `fileName` from the configuration folder's "Norvex" directory.
    // A missing file is not an error. 0 or -1 (message shown).
    int load(const std::string& fileName);
    // Loads an explicit path (tests and the headless front end).
    int loadPath(const std::string& path);
    bool loaded() const { return m_loaded; }
    std::string path() const { return m_path; }
    std::string content() const;

    int getString(const std::string& section, const std::string& key, std::string& value);
    int getNumber(const std::string& section, const std::string& key, int& value);
    int setString(const std::string& section, const std::string& key, const std::string& value);

    // Typed accessors. The PATH setters are given a file path and keep its directory.
    std::string dataFilesDir();
    std::string projectFilesDir();
    std::string elfFilesDir();
    int setDataFilesDir(const std::string& filePath);
    int setProjectFilesDir(const std::string& filePath);
    int setElfFilesDir(const std::string& filePath);
    int logLevel();
    std::string logFile();
    std::string currentProject();
    int setCurrentProject(const std::string& path);

private:
    mutable std::mutex m_mutex;
    std::string m_path;
    std::string m_text;
    bool m_loaded = false;
};

// Recent-file lists: list 1 holds recent projects (at most 10); list 0 is
// reserved and never filled.
class RecentLists {
public:
    static RecentLists& instance();
    int load(int list, const std::string& baseKey, int maximum);
    int add(int list, const std::string& path);
    int count(int list) const;
    std::string entry(int list, int index) const;

private:
    mutable std::mutex m_mutex;
    struct List {
        std::vector<std::string> paths;
        int maximum = 0;
        std::string key;
    };
    List m_lists[2];
};

// Start action ("DontShowAgainStartPlotvik"): -1 when absent.
int readStartAction();
int writeStartAction(unsigned value);
