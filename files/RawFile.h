// Raw sample files (.praw): the store's records back to back in the target's
// byte layout, a 4-byte time stamp first.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class SampleStore;
class SymbolDatabase;
struct ProjectSettings;

// 4 + the selected symbols' sizes.
std::uint32_t RawRecordSize(const SymbolDatabase& symbols);

// Writes the store in chronological order; 0 or -1.
int ExportRaw(const std::string& path, const SampleStore& store, const SymbolDatabase& symbols);
// The text of the information box shown after an export.
std::string RawExportOrderText(const SymbolDatabase& symbols);

// A recording read into memory, cut to whole records of the selection.
struct RawRecording {
    std::vector<std::uint8_t> bytes;
    std::uint32_t recordSize = 0;
};
// Reads `path` and warns about a size that does not fit the selection.
std::optional<RawRecording> ReadRawRecording(const std::string& path, const SymbolDatabase& symbols);
// Clears the store and fills it with the recording. The store's readers must
// be kept out meanwhile (the caller holds whatever lock they take).
int StoreRawRecording(const RawRecording& recording, SampleStore& store, const ProjectSettings& settings);
// Both steps; 0 or -1.
int ImportRaw(const std::string& path, SampleStore& store, SymbolDatabase& symbols, const ProjectSettings& settings);
