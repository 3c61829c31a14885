#include "app/ControllerExports.h"

#include "app/Controller.h"
#include "app/Settings.h"
#include "base/Text.h"
#include "files/CsvExport.h"
#include "files/RawFile.h"

namespace {

enum class Format { Csv, Raw };

int exportData(Controller& c, Format format)
{
    Bridge* bridge = c.bridge();
    if (!bridge)
        return -1;
    FileDialogRequest r;
    r.title = "Export Data";
    r.filter = format == Format::Csv ? "CSV (*.csv)" : "PRAW (*.praw)";
    r.directory = Settings::instance().dataFilesDir();
    const std::string path = text::truncated(bridge->saveFileDialog(r), text::kPathSize);
    if (path.empty())
        return 0;
    Settings::instance().setDataFilesDir(path);

    // The project remembers the last export of each kind.
    ProjectSettings s = c.project().settings();
    (format == Format::Csv ? s.DataFile : s.RawFile) = path;
    if (c.project().apply(s))
        c.markModified();
    return format == Format::Csv ? ExportCsv(path, c.store(), c.symbols()) : ExportRaw(path, c.store(), c.symbols());
}

}  // namespace

int ExportCsvCommand(Controller& controller) { return exportData(controller, Format::Csv); }
int ExportRawCommand(Controller& controller) { return exportData(controller, Format::Raw); }
