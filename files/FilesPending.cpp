// Placeholders until the project-file, CSV and raw-file readers and writers land.
#include "files/CsvExport.h"
#include "files/Project.h"
#include "files/RawFile.h"

int LoadProject(const std::string&, Project&, SymbolDatabase&) { return -1; }
int SaveProject(const std::string&, const Project&, const SymbolDatabase&) { return -1; }
int ExportRaw(const std::string&, const SampleStore&, const SymbolDatabase&) { return -1; }
int ImportRaw(const std::string&, SampleStore&, SymbolDatabase&, const ProjectSettings&) { return -1; }
int ExportCsv(const std::string&, const SampleStore&, const SymbolDatabase&) { return -1; }
