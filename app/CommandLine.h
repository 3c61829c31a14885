// Command-line options and their two-pass parsing. Pass 2 runs before the
// settings file is read, pass 1 after it.
#pragma once

#include <functional>
#include <string>
#include <vector>

// Start-up arguments record, owned by the main window.
struct StartArgs {
    std::vector<std::string> argv;
    int startMode = 0;  // 0, 1 new project at once, 2 project named on the command line
    bool showNewProjectDialog = false;
    bool showWelcomeDialog = false;
    bool exitNow = false;
};

class CommandLine {
public:
    struct Hooks {
        // Sends a command string to the probe library.
        std::function<void(const std::string&)> probeCommand;
        // Opens a project file (pass 1 of "-openprj").
        std::function<int(const std::string&)> openProject;
    };

    explicit CommandLine(Hooks hooks) : m_hooks(std::move(hooks)) {}

    // 0 success, 1 a handler stopped the parse, -1 error.
    int parse(const std::vector<std::string>& argv, int pass);

    bool projectNamed() const { return m_projectNamed; }
    bool error() const { return m_error; }
    // "SetQTXSearchRanges ..." or empty.
    const std::string& qtxSearchRangeCommand() const { return m_qtxRanges; }

    struct Option {
        const char* text;
        int passMask;  // bit 0: pass 1, bit 1: pass 2
        int (CommandLine::*handler)(const std::string& value, int pass);
        const char* help;
    };
    static const std::vector<Option>& options();

private:
    int onOpenProject(const std::string& value, int pass);
    int onQtxSearchRanges(const std::string& value, int pass);

    Hooks m_hooks;
    bool m_parsing = false;
    bool m_error = false;
    bool m_projectNamed = false;
    std::string m_qtxRanges;
};
