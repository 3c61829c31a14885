// Preferences that outlive a project: the "PlotvikSettings.ini" text held in
// memory and rewritten whole on every change, and the start action and
// recent-project list kept in the user's native settings store.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

class Settings {
public:
    // Largest text the store holds, on load and after a change.
    static constexpr std::size_t kMaxText = 30000;
    // Longest line written for one entry, line end included.
    static constexpr std::size_t kMaxLine = 2000;
    // Opening the file is retried this often, 5 ms apart (another process may
    // hold it for a moment).
    static constexpr int kOpenRetries = 40;

    static Settings& instance();

    // Loads `fileName` from the configuration folder's "Norvex" directory.
    // A missing file is not an error. 0 or -1 (message shown).
    int load(const std::string& fileName);
    // Loads an explicit path (tests and the headless front end).
    int loadPath(const std::string& path);
    bool loaded() const { return m_loaded; }
    std::string path() const;
    std::string content() const;

    // 0 when the key exists and is well-formed; -1 otherwise (value emptied;
    // a syntax error is shown).
    int getString(const std::string& section, const std::string& key, std::string& value);
    // 0, or -1 with `value` unchanged (a malformed number is shown).
    int getNumber(const std::string& section, const std::string& key, int& value);
    // The key becomes the first entry of its section; a missing section is
    // appended. -1 when not loaded, when the text would outgrow kMaxText (the
    // text stays as it was) or when the file could not be written (the text
    // keeps the change, the file on disk stays as it was).
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
    // [SYMBOLS] FloatByEncoding="1": base types are classified by their
    // debug-information encoding; anything else keeps the type-text rule.
    bool floatByEncoding();
    std::string currentProject();
    int setCurrentProject(const std::string& path);

private:
    int writeFile(const std::string& text, std::string& error) const;

    mutable std::mutex m_mutex;
    std::string m_path;
    std::string m_text;
    std::atomic<bool> m_loaded{false};
};

// Recent-file lists: list 1 holds recent projects (at most 10); list 0 is
// reserved and never filled.
class RecentLists {
public:
    static constexpr int kMaxEntries = 16;

    static RecentLists& instance();
    // Reads "File1".."File<maximum>" of "Recent File List <list>"; -2 when
    // fewer values exist (the list holds those read).
    int load(int list, const std::string& baseKey, int maximum);
    // Puts `path` first (an existing equal entry moves) and rewrites the
    // values; -2 when a value could not be written.
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
