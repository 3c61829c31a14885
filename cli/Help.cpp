#include "cli/Help.h"

#include "app/InstallPaths.h"
#include "base/Product.h"

#include <cstdio>

namespace clihelp {
namespace {

struct Command {
    const char* name;
    const char* summary;   // one line in the program's help
    const char* synopsis;  // follows "Usage: "
    const char* details;   // what it does, its options and exit status
};

// The manual page plotvik-cli(1) says the same at more length.
constexpr Command kCommands[] = {
    {"symbols", "list the variables of an ELF file", "plotvik-cli symbols FILE.elf\n",
     "Reads the DWARF debug information of FILE.elf and prints every leaf of the\n"
     "symbol tree (variables, members, array elements, bit-fields), one a line,\n"
     "in tab-separated fields: name with parents, address, size in bytes, type\n"
     "id, type, declaring file, bit size, bit offset. Errors in single units are\n"
     "printed on standard error and the other units are still listed.\n"
     "\n"
     "Options:\n"
     "  -h, --help  show this help and exit\n"
     "\n"
     "Exit status:\n"
     "  0  the variables were listed\n"
     "  1  FILE.elf could not be read\n"
     "  2  the command line is wrong\n"},
    {"new", "create a project file",
     "plotvik-cli new OUT.plotvik [--elf FILE] [--device NAME] [--bsq PERIOD_US | --qtx]\n"
     "                   [--usb [SERIAL] | --ip HOST | --existing-session]\n"
     "                   [--interface JTAG|SWD|FINE] [--speed KHZ] [--script FILE]\n",
     "Writes a new project file with the choices of the new project dialog, and\n"
     "refuses what the dialog refuses. Choose its variables with 'select'.\n"
     "\n"
     "Options:\n"
     "  --elf FILE             the firmware's ELF file (BSQ needs one)\n"
     "  --device NAME          the target device (QTX needs one; see 'devices')\n"
     "  --bsq PERIOD_US        sample with BSQ every PERIOD_US microseconds\n"
     "                         (the default, every 100)\n"
     "  --qtx                  take the records the firmware sends on its QTX channel\n"
     "  --usb [SERIAL]         reach the probe by USB, the one with that serial\n"
     "                         number if given (the default)\n"
     "  --ip HOST              reach the probe, or a GDB server at HOST[:PORT], by TCP/IP\n"
     "  --existing-session     sample beside another tool's session (BSQ only)\n"
     "  --interface JTAG|SWD|FINE\n"
     "                         the target interface (default SWD)\n"
     "  --speed KHZ            the interface speed, 1 to 99999 kHz (default 4000)\n"
     "  --script FILE          the probe script (simulated probe; a relative name\n"
     "                         is looked up beside the project first)\n"
     "  -h, --help             show this help and exit\n"
     "\n"
     "Exit status:\n"
     "  0  the project was written; its name is printed\n"
     "  1  the choices were refused or the file could not be written\n"
     "  2  the command line is wrong\n"},
    {"select", "add variables to a project's selection", "plotvik-cli select PROJECT.plotvik PATTERN...\n",
     "Adds every variable whose name with parents matches a PATTERN to the\n"
     "project's selection, as ticking it in the selection dialog does, saves the\n"
     "project and prints the names added. A pattern matches a whole name: '*'\n"
     "any run of characters, '?' any one, every other character itself (so\n"
     "'g_channels[1].raw' names an array element). Quote patterns from the shell.\n"
     "\n"
     "Options:\n"
     "  -h, --help  show this help and exit\n"
     "\n"
     "Exit status:\n"
     "  0  the project was saved\n"
     "  1  a pattern matched nothing (nothing is saved), or the project or its ELF\n"
     "     file could not be read, or the project not saved\n"
     "  2  the command line is wrong\n"},
    {"record", "sample a project and write what was recorded",
     "plotvik-cli record PROJECT.plotvik --seconds S [--csv OUT.csv] [--praw OUT.praw]\n"
     "                   [--png OUT.png] [--trigger NAME:rise|fall|both:LEVEL | --trigger off]\n",
     "Samples the project's selected variables through the probe library for S\n"
     "seconds, as the Plotvik window does, then prints the number of records and\n"
     "their rate and writes the files asked for.\n"
     "\n"
     "Options:\n"
     "  --seconds S            how long to sample (a fraction is allowed)\n"
     "  --csv OUT.csv          write the records as CSV\n"
     "  --praw OUT.praw        write the records as a raw sample file\n"
     "  --png OUT.png          draw the graph into a PNG picture\n"
     "  --trigger NAME:rise|fall|both:LEVEL\n"
     "                         instead of the project's trigger, hold the recording\n"
     "                         until the selected variable NAME crosses LEVEL\n"
     "  --trigger off          record from the start whatever the project says\n"
     "  -h, --help             show this help and exit\n"
     "\n"
     "Exit status:\n"
     "  0  the recording was made and every file written\n"
     "  1  the project could not be opened, sampling failed, or a file was not\n"
     "     written\n"
     "  2  the command line is wrong, or the trigger names no selected variable\n"},
    {"convert", "turn a raw sample file into CSV",
     "plotvik-cli convert RECORDING.praw --project P.plotvik --csv OUT.csv\n",
     "Reads a raw sample file with the selection of the project it was recorded\n"
     "with and writes it as CSV, as Import and Export in the Plotvik window do.\n"
     "\n"
     "Options:\n"
     "  --project P.plotvik    the project whose selection the records follow\n"
     "  --csv OUT.csv          the CSV file to write\n"
     "  -h, --help             show this help and exit\n"
     "\n"
     "Exit status:\n"
     "  0  the CSV file was written\n"
     "  1  a file could not be read or written\n"
     "  2  the command line is wrong\n"},
    {"devices", "list the target devices the probe library knows", "plotvik-cli devices [FILTER]\n",
     "Prints the device selection table (manufacturer, device, core, number of\n"
     "cores, flash size): the rows that contain FILTER in some column, ignoring\n"
     "case, or all of them. The Device column holds the names --device takes.\n"
     "\n"
     "Options:\n"
     "  -h, --help  show this help and exit\n"
     "\n"
     "Exit status:\n"
     "  0  the table was printed\n"
     "  1  the probe library could not be loaded or lists no devices\n"
     "  2  the command line is wrong\n"},
};

const Command* find(const std::string& name)
{
    for (const Command& c : kCommands)
        if (name == c.name)
            return &c;
    return nullptr;
}

constexpr const char* kProgramSynopsis =
    "plotvik-cli COMMAND [ARGUMENT]...\n"
    "       plotvik-cli COMMAND --help\n"
    "       plotvik-cli --help | --version\n";

}  // namespace

bool asked(const std::vector<std::string>& args)
{
    for (const std::string& a : args)
        if (a == "--help" || a == "-h")
            return true;
    return false;
}

bool print(const std::string& command)
{
    if (!command.empty()) {
        const Command* c = find(command);
        if (!c)
            return false;
        std::printf("Usage: %s\n%s", c->synopsis, c->details);
        return true;
    }
    std::printf("Usage: %s\n"
                "The headless front end of %s, over the same core as its window: lists the\n"
                "variables of a firmware's ELF file, makes and edits projects, samples a\n"
                "project through the probe library and converts recordings.\n"
                "\n"
                "Commands:\n",
                kProgramSynopsis, product::kName);
    for (const Command& c : kCommands)
        std::printf("  %-9s %s\n", c.name, c.summary);
    std::printf("\n"
                "Options:\n"
                "  -h, --help     show this help and exit\n"
                "  -V, --version  show the version and exit\n"
                "\n"
                "Exit status:\n"
                "  0  success\n"
                "  1  the command failed; standard error says why\n"
                "  2  the command line is wrong\n"
                "\n"
                "Run 'plotvik-cli COMMAND --help' for a command's arguments, 'man plotvik-cli'\n"
                "for more. The user guide: %s\n",
                installpaths::guideFile().c_str());
    return true;
}

void printVersion()
{
    std::printf("plotvik-cli (%s %s) %s\n", product::kCompany, product::kName, product::versionText().c_str());
}

int usageError(const std::string& command, const std::string& why)
{
    const Command* c = find(command);
    const std::string name = c ? "plotvik-cli " + command : std::string("plotvik-cli");
    std::fprintf(stderr, "%s: %s\nUsage: %sTry '%s --help' for more information.\n", name.c_str(), why.c_str(),
                 c ? c->synopsis : kProgramSynopsis, name.c_str());
    return kUsageError;
}

}  // namespace clihelp
