// plotvik-cli: the headless front end over the same core as the GUI.
#include "cli/Commands.h"
#include "cli/Help.h"

#include <QCoreApplication>

int main(int argc, char** argv)
{
    if (argc < 2)
        return clihelp::usageError("", "missing command");
    const std::string command = argv[1];
    std::vector<std::string> args(argv + 2, argv + argc);
    if (command == "--help" || command == "-h") {
        QCoreApplication app(argc, argv);
        clihelp::print("");
        return clihelp::kSuccess;
    }
    if (command == "--version" || command == "-V") {
        clihelp::printVersion();
        return clihelp::kSuccess;
    }
    if (clihelp::asked(args) && clihelp::print(command))
        return clihelp::kSuccess;
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
    return clihelp::usageError("", "unknown command '" + command + "'");
}
