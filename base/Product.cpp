#include "base/Product.h"

#include "base/Text.h"

namespace product {

std::string versionText()
{
    return text::format(32, "V%d.%.2d%c", kVersionMajor, kVersionMinor, kRevision);
}

std::string fullName() { return text::format(128, "%s %s %s%s", kCompany, kName, versionText().c_str(), ""); }

std::string shortName() { return text::format(128, "%s %s", kName, versionText().c_str()); }

std::string registryKey() { return text::format(128, "Software\\%s\\%s", kCompany, kName); }

}  // namespace product
