// Where the program's own files are, wherever it runs from: the build tree,
// or an installation with the programs in a private folder (reached through
// links in bin/) and the shared data (user guide, examples) elsewhere.
// All of them need the application object to exist.
#pragma once

#include <string>

namespace installpaths {

// The running executable, links resolved; empty when that cannot be learned.
std::string applicationFile();
// The folder of applicationFile(): "the application's folder".
std::string applicationFolder();
// The folder of the user guide and the examples: the application's folder
// itself in the build tree (which holds a copy of them), else the installed
// data folder found from the application's folder.
std::string dataFolder();
// The user guide's first page.
std::string guideFile();

}  // namespace installpaths
