// The files the crash-safe save test has written over and over: a project, a
// CSV and a raw export of a recording, and the settings file. Write number w
// writes kind w % 4 in version (w / 4) % 2, so consecutive writes of one file
// always replace one version with the other, and the two versions differ in
// size (a stub or a cut file can never pass for either).
#pragma once

#include <array>
#include <string>

namespace savescenario {

enum class Kind { Project, Csv, Raw, Settings };
inline constexpr int kKinds = 4;
inline constexpr std::array<const char*, kKinds> kFileNames = {"scene.plotvik", "scene.csv", "scene.praw",
                                                              "PlotvikSettings.ini"};

inline Kind kindOf(long long write) { return static_cast<Kind>(write % kKinds); }
inline int versionOf(long long write) { return static_cast<int>((write / kKinds) % 2); }
inline std::string fileOf(const std::string& folder, Kind kind)
{
    return folder + "/" + kFileNames[static_cast<std::size_t>(kind)];
}

// Writes `version` of the file of `kind` into `folder` the way the program
// does; 0 or -1.
int write(const std::string& folder, Kind kind, int version);

// The value of the one settings key in `version`.
std::string settingsValue(int version);
// Records and selected symbols of the recording in `version`.
int recordCount(int version);
int symbolCount(int version);

}  // namespace savescenario
