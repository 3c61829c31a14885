// Sub-commands of plotvik-cli; each returns the process exit status.
#pragma once

#include <string>
#include <vector>

int runSymbolsCommand(const std::vector<std::string>& args);
int runConvertCommand(const std::vector<std::string>& args);
int runRecordCommand(const std::vector<std::string>& args);
int runNewCommand(const std::vector<std::string>& args);
int runSelectCommand(const std::vector<std::string>& args);
int runDevicesCommand(const std::vector<std::string>& args);
