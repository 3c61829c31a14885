// The files the crash-safe save test writes over and over: a project, a CSV and
// a raw export, and the settings file. Write w writes kind w % 4 in version
// (w / 4) % 2; the two versions of a file differ in size.
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

// 300 records of two symbols, or 2000 of three; made once per version (a store
// takes megabytes, and the writer is started hundreds of times).
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

// Writes `version` of the file of `kind` into `folder`; 0 or -1.
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
        // Rewrites whatever version is on disk with this one's value.
        Settings settings;
        if (settings.loadPath(path) != 0)
            return -1;
        return settings.setString("PATH", "DataFiles", version == 0 ? "/short/" : "/" + std::string(1500, 'v') + "/");
    }
    }
    return -1;
}

}  // namespace savescenario
