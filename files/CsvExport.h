// CSV export of the sample store: one row per record, ';'-separated.
#pragma once

#include <string>

class SampleStore;
class SymbolDatabase;

int ExportCsv(const std::string& path, const SampleStore& store, const SymbolDatabase& symbols);
