// The settings file parser on arbitrary text: every typed read finishes, a
// number read is never negative, and a value written reads back unchanged.
#include "FuzzSupport.h"

#include "app/Settings.h"

#include <filesystem>
#include <fstream>

#include <stdlib.h>

namespace {

std::string g_path;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Changes are written beside the file (temporary, then renamed), so the
    // file lives in a folder of its own rather than in an anonymous file; in
    // memory where there is a tmpfs, as a disk's file system may flush on
    // every rename over an existing file.
    std::string dir = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
    dir += "/plotvik-fuzz-settings-XXXXXX";
    FUZZ_CHECK(mkdtemp(dir.data()) != nullptr);
    g_path = dir + "/PlotvikSettings.ini";
    std::atexit([] { std::filesystem::remove_all(std::filesystem::path(g_path).parent_path()); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // The first line is the value to write, the rest the file.
    fuzz::Cursor in{data, size};
    const std::string value = in.line(300);
    {
        std::ofstream out(g_path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(in.rest()), static_cast<std::streamsize>(in.remaining()));
    }
    Settings& settings = Settings::instance();
    if (settings.loadPath(g_path) != 0)
        return 0;
    settings.dataFilesDir();
    settings.projectFilesDir();
    settings.elfFilesDir();
    settings.logFile();
    settings.currentProject();
    const int level = settings.logLevel();
    FUZZ_CHECK(level >= 1 && level <= 9);
    int number = -1;
    if (settings.getNumber("LOG", "LogLevel", number) == 0)
        FUZZ_CHECK(number >= 0);

    const bool plain = value.find_first_of("\"\r\n") == std::string::npos && !value.empty();
    if (settings.setString("PROJECT", "Current", value) == 0 && plain) {
        FUZZ_CHECK(settings.currentProject() == value);
        // Written to disk as well: a fresh load sees the same.
        FUZZ_CHECK(settings.loadPath(g_path) == 0);
        FUZZ_CHECK(settings.currentProject() == value);
    }
    return 0;
}
