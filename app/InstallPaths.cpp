#include "app/InstallPaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace installpaths {

std::string applicationFile()
{
    // Qt reads the running executable from the system (on Linux
    // /proc/self/exe), so a link in bin/ or a search of PATH does not count.
    if (!QCoreApplication::instance())
        return {};
    return QCoreApplication::applicationFilePath().toStdString();
}

std::string applicationFolder()
{
    const std::string file = applicationFile();
    return file.empty() ? std::string() : QFileInfo(QString::fromStdString(file)).absolutePath().toStdString();
}

std::string dataFolder()
{
    const QString app = QString::fromStdString(applicationFolder());
    if (app.isEmpty())
        return {};
    // The build copies the guide beside the executables; an installation
    // never puts it there.
    if (QFileInfo(app + "/guide").isDir())
        return app.toStdString();
    // PLOTVIK_DATA_FROM_PRIVATE: from the installed programs' folder to the
    // installed data folder, computed by the build from the install locations.
    return QDir::cleanPath(app + "/" + PLOTVIK_DATA_FROM_PRIVATE).toStdString();
}

std::string guideFile()
{
    const std::string data = dataFolder();
    return data.empty() ? std::string() : data + "/guide/index.md";
}

}  // namespace installpaths
