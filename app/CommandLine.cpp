#include "app/CommandLine.h"

#include "base/Log.h"
#include "base/Text.h"

#include <algorithm>

const std::vector<CommandLine::Option>& CommandLine::options()
{
    static const std::vector<Option> table = {
        {"-openprj", 0b11, &CommandLine::onOpenProject,
         "\t\t Opens an existing project\n\t\t   Syntax:\t -openprj<FILENAME>"},
        {"-QTXSearchRanges", 0b01, &CommandLine::onQtxSearchRanges,
         "\t\t Defines QTX search ranges\n\t\t   Syntax:\t -QTXSearchRanges,<RangeAddr>,<RangeSize>[,<RangeAddr1>,<RangeSize1>,..] "},
    };
    return table;
}

namespace {

// "/" starts options on Windows; elsewhere it starts every absolute path, so
// there a "/..." argument naming a project file is that file.
bool slashOption(const std::string& arg)
{
    if (arg[0] != '/')
        return false;
#ifdef _WIN32
    return true;
#else
    return !text::equalsFolded(text::extension(arg), ".plotvik");
#endif
}

}  // namespace

int CommandLine::parse(const std::vector<std::string>& argv, int pass)
{
    m_parsing = true;
    if (m_hooks.probeCommand)
        m_hooks.probeCommand("SetMSGBoxTimeout = 0");
    int result = 0;
    const int bit = 1 << (pass - 1);
    for (std::size_t i = 1; i < argv.size(); ++i) {
        const std::string& arg = argv[i];
        if (arg.empty() || (arg[0] != '-' && !slashOption(arg))) {
            if (!text::equalsFolded(text::extension(arg), ".plotvik")) {
                Log::instance().line("CMDLINE: Incorrect command line option [%s] detected!", arg.c_str());
                m_error = true;
                result = -1;
                continue;
            }
            const int r = onOpenProject(arg, pass);
            if (r < 0) {
                m_parsing = false;
                return -1;
            }
            continue;
        }
        for (const Option& o : options()) {
            if (!(o.passMask & bit) || !text::startsWithFolded(arg, o.text))
                continue;
            const int r = (this->*o.handler)(arg.substr(std::char_traits<char>::length(o.text)), pass);
            if (r < 0 || m_error) {
                m_parsing = false;
                return -1;
            }
            if (r == 1)
                return 1;
            break;
        }
    }
    if (m_hooks.probeCommand)
        m_hooks.probeCommand(text::format(64, "SetMSGBoxTimeout = %i", -1));
    m_parsing = false;
    return result;
}

int CommandLine::onOpenProject(const std::string& value, int pass)
{
    if (pass == 2) {
        m_projectNamed = true;
        return 0;
    }
    if (m_hooks.openProject)
        m_hooks.openProject(value);
    return 0;
}

int CommandLine::onQtxSearchRanges(const std::string& value, int)
{
    std::string v = value;
    std::replace(v.begin(), v.end(), ',', ' ');
    m_qtxRanges = text::format(512, "SetQTXSearchRanges%s", v.c_str());
    return 0;
}
