#include "base/FileErrors.h"

#include "base/Text.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace fileerr {
namespace {

bool isReadOnly(const std::string& path)
{
    std::error_code ec;
    const auto st = std::filesystem::status(path, ec);
    if (ec || !std::filesystem::exists(st))
        return false;
    using std::filesystem::perms;
    return (st.permissions() & (perms::owner_write | perms::group_write | perms::others_write)) == perms::none;
}

bool parentMissing(const std::string& path)
{
    const auto parent = std::filesystem::path(path).parent_path();
    std::error_code ec;
    return !parent.empty() && !std::filesystem::exists(parent, ec);
}

}  // namespace

std::string text(const std::string& verb, const std::string& path, int err)
{
    const char* reason = nullptr;
    switch (err) {
    case ENOENT:
        reason = parentMissing(path) ? "Path not found!" : "File not found!";
        break;
    case ENOTDIR:
        reason = "Path not found!";
        break;
    case EACCES:
    case EPERM:
    case EROFS:
        reason = isReadOnly(path) ? "File has read only attribute!" : "Access is denied!";
        break;
    case ENODEV:
    case ENXIO:
        reason = "Invalid drive!";
        break;
    case ENAMETOOLONG:
    case EINVAL:
        reason = "The filename syntax is incorrect!";
        break;
    default:
        break;
    }
    if (reason)
        return ::text::format(1024, "Could not %s file [%s]!\n%s", verb.c_str(), path.c_str(), reason);
    return ::text::format(1024, "Could not %s file [%s]!", verb.c_str(), path.c_str());
}

}  // namespace fileerr
