// plotvik-cli: the headless front end over the same core as the GUI.
#include "cli/Commands.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstring>

namespace {

void usage()
{
    std::fprintf(stderr,
                 "usage: plotvik-cli symbols FILE.elf\n"
                 "       plotvik-cli convert RECORDING.praw --project P.plotvik --csv OUT.csv\n"
                 "       plotvik-cli record PROJECT.plotvik --seconds S [--csv OUT.csv] [--praw OUT.praw] [--png OUT.png]\n"
                 "                          [--trigger NAME:rise|fall|both:LEVEL | --trigger off]\n"
                 "       plotvik-cli new OUT.plotvik [--elf FILE] [--device NAME] [--bsq PERIOD_US | --qtx]\n"
                 "                   [--usb [SERIAL] | --ip HOST | --existing-session] [--interface JTAG|SWD|FINE]\n"
                 "                   [--speed KHZ] [--script FILE]\n"
                 "       plotvik-cli select PROJECT.plotvik PATTERN...\n"
                 "       plotvik-cli devices [FILTER]\n");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        usage();
        return 2;
    }
    std::vector<std::string> args(argv + 2, argv + argc);
    const std::string command = argv[1];
    if (command == "symbols") {
        QCoreApplication app(argc, argv);
        return runSymbolsCommand(args);
    }
    if (command == "convert") {
        QCoreApplication app(argc, argv);
        return runConvertCommand(args);
    }
    if (command == "new" || command == "select" || command == "devices") {
        QCoreApplication app(argc, argv);
        if (command == "new")
            return runNewCommand(args);
        return command == "select" ? runSelectCommand(args) : runDevicesCommand(args);
    }
    if (command == "record")
        return runRecordCommand(args);  // creates its own application object (it may draw)
    usage();
    return 2;
}
