// The files the crash-safe save test has written over and over: a project, a
// CSV and a raw export of a recording, and the settings file. Write number w
// writes kind w % 4 in version (w / 4) % 2, so consecutive writes of one file
// always replace one version with the other, and the two versions differ in
// size (a stub or a cut file can never pass for either).
#pragma once

#include "StoreFixture.h"

#include "app/Settings.h"
#include "files/CsvExport.h"
#include "files/Project.h"
#include "files/RawFile.h"

#include <array>
#include <memory>
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

// A recording whose values depend on the version and the record number: 300
// records of two symbols, or 2000 of three. Made once per version: a store
// allocates and clears megabytes, and the writer is started hundreds of times.
inline const StoreFixture& recording(int version)
{
    static std::unique_ptr<StoreFixture> made[2];
    if (made[version])
        return *made[version];
    made[version] = std::make_unique<StoreFixture>();
    StoreFixture& r = *made[version];
    const int symbols = version == 0 ? 2 : 3;
    for (int s = 0; s < symbols; ++s)
        r.select("v" + std::to_string(version) + "_" + std::to_string(s), 4, kTypeU32);
    std::string records;
    for (std::uint32_t i = 0; i < (version == 0 ? 300u : 2000u); ++i)
        records += symbols == 2 ? StoreFixture::record(i * 100, i, i * 3 + version)
                                : StoreFixture::record(i * 100, i, i * 3 + version, ~i);
    r.sample(records);
    return r;
}

// Writes `version` of the file of `kind` into `folder` the way the program
// does; 0 or -1.
inline int write(const std::string& folder, Kind kind, int version)
{
    const std::string path = fileOf(folder, kind);
    const StoreFixture& r = recording(version);
    switch (kind) {
    case Kind::Project: {
        Project project;
        ProjectSettings s = project.settings();
        s.ElfFile = "/fw/version" + std::to_string(version) + ".elf";
        s.TargetDevice = "STM32F407VG";
        s.SamplingPeriod = 500 + static_cast<std::uint32_t>(version);
        s.ShowGraph = version == 1;
        project.apply(s);
        return SaveProject(path, project, r.symbols);
    }
    case Kind::Csv:
        return ExportCsv(path, r.store, r.symbols);
    case Kind::Raw:
        return ExportRaw(path, r.store, r.symbols);
    case Kind::Settings: {
        // Reads whatever version is on disk and rewrites it with this one's
        // value: the result is the same text either way.
        Settings settings;
        if (settings.loadPath(path) != 0)
            return -1;
        return settings.setString("PATH", "DataFiles", version == 0 ? "/short/" : "/" + std::string(1500, 'v') + "/");
    }
    }
    return -1;
}

}  // namespace savescenario
