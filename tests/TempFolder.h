// A test program's own folder under the system's temporary folder,
// "plotvik-test-<pid>", removed when the program ends (by the process that
// made it: a death test's child ends too).
#pragma once

#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace testtemp {

inline const std::filesystem::path& folder()
{
    struct Folder {
        pid_t owner;
        std::filesystem::path path;
        Folder()
            : owner(::getpid()), path(std::filesystem::temp_directory_path() / ("plotvik-test-" + std::to_string(owner)))
        {
            std::filesystem::create_directories(path);
        }
        ~Folder()
        {
            std::error_code ec;
            if (::getpid() == owner)
                std::filesystem::remove_all(path, ec);
        }
    };
    static Folder f;
    return f.path;
}

}  // namespace testtemp
