// Raw sample files (.praw): the store's records back to back in the target's
// byte layout, a 4-byte time stamp first.
#pragma once

#include <string>

class SampleStore;
class SymbolDatabase;
struct ProjectSettings;

// Writes the store in chronological order; 0 or -1.
int ExportRaw(const std::string& path, const SampleStore& store, const SymbolDatabase& symbols);
// Reads a recording into the store with the current selection; 0 or -1.
int ImportRaw(const std::string& path, SampleStore& store, SymbolDatabase& symbols, const ProjectSettings& settings);
