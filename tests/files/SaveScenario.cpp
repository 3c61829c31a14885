#include "SaveScenario.h"

#include "StoreFixture.h"

#include "app/Settings.h"
#include "files/CsvExport.h"
#include "files/Project.h"
#include "files/RawFile.h"

#include <memory>

namespace savescenario {

std::string settingsValue(int version) { return version == 0 ? "/short/" : "/" + std::string(1500, 'v') + "/"; }
int recordCount(int version) { return version == 0 ? 300 : 2000; }
int symbolCount(int version) { return version == 0 ? 2 : 3; }

namespace {

// A recording whose values depend on the version and the record number.
struct Recording : StoreFixture {
    explicit Recording(int version)
    {
        for (int s = 0; s < symbolCount(version); ++s)
            select("v" + std::to_string(version) + "_" + std::to_string(s), 4, kTypeU32);
        std::string records;
        for (int i = 0; i < recordCount(version); ++i) {
            const auto t = static_cast<std::uint32_t>(i * 100);
            records += symbolCount(version) == 2
                           ? record(t, std::uint32_t(i), std::uint32_t(i * 3 + version))
                           : record(t, std::uint32_t(i), std::uint32_t(i * 3 + version), std::uint32_t(~i));
        }
        sample(records);
    }
};

// Made once per version: a store allocates and clears megabytes, and the
// writer is started hundreds of times.
const Recording& recording(int version)
{
    static std::unique_ptr<Recording> made[2];
    if (!made[version])
        made[version] = std::make_unique<Recording>(version);
    return *made[version];
}

int writeProject(const std::string& path, int version)
{
    const Recording& r = recording(version);
    Project project;
    ProjectSettings s = project.settings();
    s.ElfFile = "/fw/version" + std::to_string(version) + ".elf";
    s.TargetDevice = "STM32F407VG";
    s.SamplingPeriod = 500 + static_cast<std::uint32_t>(version);
    s.ShowGraph = version == 1;
    project.apply(s);
    return SaveProject(path, project, r.symbols);
}

}  // namespace

int write(const std::string& folder, Kind kind, int version)
{
    const std::string path = fileOf(folder, kind);
    switch (kind) {
    case Kind::Project:
        return writeProject(path, version);
    case Kind::Csv:
        return ExportCsv(path, recording(version).store, recording(version).symbols);
    case Kind::Raw:
        return ExportRaw(path, recording(version).store, recording(version).symbols);
    case Kind::Settings: {
        // Reads whatever version is on disk and rewrites it with this one's
        // value: the result is the same text either way.
        Settings settings;
        if (settings.loadPath(path) != 0)
            return -1;
        return settings.setString("PATH", "DataFiles", settingsValue(version));
    }
    }
    return -1;
}

}  // namespace savescenario
