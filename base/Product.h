// Product names and version texts.
#pragma once

#include <string>

namespace product {

inline constexpr const char* kName = "Plotvik";
inline constexpr const char* kCompany = "Norvex";
inline constexpr int kVersionMajor = PLOTVIK_VERSION_MAJOR;
inline constexpr int kVersionMinor = PLOTVIK_VERSION_MINOR;
inline constexpr char kRevision = 'a';

std::string versionText();  // "V1.00a"
std::string fullName();     // "Norvex Plotvik V1.00a"
std::string shortName();    // "Plotvik V1.00a"
std::string registryKey();  // "Software\Norvex\Plotvik"

}  // namespace product
