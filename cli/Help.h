// plotvik-cli's help, version and usage errors, in the usual form: help and
// version on standard output, errors as "plotvik-cli[ COMMAND]: ..." on
// standard error.
#pragma once

#include <string>
#include <vector>

namespace clihelp {

// Exit statuses of every command.
inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;
inline constexpr int kUsageError = 2;

// True when the arguments ask for help ("--help" or "-h").
bool asked(const std::vector<std::string>& args);

// The program's help when `command` is empty, else the command's; false
// (nothing printed) for an unknown command. The program's help names the
// user guide's file, which needs the application object.
bool print(const std::string& command);
void printVersion();

// "plotvik-cli COMMAND: why", the command's synopsis and where to read more,
// on standard error; returns kUsageError. An empty command is the program's.
int usageError(const std::string& command, const std::string& why);

}  // namespace clihelp
