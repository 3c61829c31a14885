// Texts for failed file operations, from the C library's errno.
#pragma once

#include <string>

namespace fileerr {

// "Could not %s file [%s]!\n%s" with the reason for the known codes, else
// "Could not %s file [%s]!". `err` is an errno value.
std::string text(const std::string& verb, const std::string& path, int err);

}  // namespace fileerr
