// The open project: its settings record, file path and modified mark. The
// controller owns one instance; the worker writes it, the interface thread
// reads copies.
#pragma once

#include "base/ProjectSettings.h"

#include <atomic>
#include <mutex>
#include <string>

class SymbolDatabase;

class Project : public SharedSettings {
public:
    ProjectSettings settings() const override;
    bool apply(const ProjectSettings& s) override;
    // Shows graph and watch and sets the time resolution to 1 s per division.
    void setDefaultDisplay();
    void clearTrigger();
    // Copies only the trigger fields of `s` (the trigger controls edit them
    // while the worker may be changing others); returns true when they differed.
    bool applyTrigger(const ProjectSettings& s);

    bool isOpen() const { return m_open; }
    void setOpen(bool on) { m_open = on; }
    bool isModified() const { return m_modified; }
    void setModified(bool on) { m_modified = on; }
    bool hasFileName() const { return m_hasFileName; }
    void setHasFileName(bool on) { m_hasFileName = on; }
    std::string path() const;
    void setPath(const std::string& path);
    // The graph's time per division: kept so a save writes the current one,
    // but a view setting, so the project is not marked modified.
    void setTimeResolution(std::uint32_t microseconds);
    // The trigger symbol's name as last read from a project file. It outlives
    // each load and is looked up again by loads without a trigger.
    std::string keptTriggerName() const;
    void setKeptTriggerName(const std::string& name);

private:
    mutable std::mutex m_mutex;
    ProjectSettings m_settings;
    std::string m_path;
    std::string m_keptTriggerName;
    std::atomic<bool> m_open{false};
    std::atomic<bool> m_modified{false};
    std::atomic<bool> m_hasFileName{false};
};

// Project file reader and writer: 0 on success, -1 on failure.
// On failure `reason`, when given, says why (the system's error text, the
// XML parser's, or what the document lacks).
int LoadProject(const std::string& path, Project& project, SymbolDatabase& symbols, std::string* reason = nullptr);
int SaveProject(const std::string& path, const Project& project, const SymbolDatabase& symbols);
