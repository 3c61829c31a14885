// How fast the symbol selection dialog opens and answers the filter on a
// generated firmware of many globals (more than half a million tree nodes),
// with the main window's progress display driven as in the program.
//
//   symbol_selection_bench [globals]
//   symbol_selection_bench --project P.plotvik [--filter TEXT] --shot OUT.png
//       opens the dialog on a project's ELF file with its selection ticked
//       and saves a picture of it.
#include "BigFirmware.h"
#include "base/Bridge.h"
#include "files/Project.h"
#include "gui/ProgressDialog.h"
#include "gui/SymbolSelection.h"
#include "gui/SymbolTreeModel.h"
#include "gui/SymbolTreeView.h"
#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolPattern.h"
#include "symbols/SymbolTree.h"

#include <QApplication>
#include <QLineEdit>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

double ms(Clock::time_point start) { return std::chrono::duration<double, std::milli>(Clock::now() - start).count(); }

// The program's progress display, as the main window drives it.
class ProgressBridge : public Bridge {
public:
    MessageBoxAnswer messageBox(const MessageBoxRequest&) override { return {}; }
    std::string openFileDialog(const FileDialogRequest&) override { return {}; }
    std::string saveFileDialog(const FileDialogRequest&) override { return {}; }
    int progress(int value, const std::string& text, int flags, int limit) override
    {
        return m_dialog.apply(value, QString::fromStdString(text), flags, limit);
    }

private:
    ProgressDialog m_dialog;
};

// Lays out and paints the dialog now, as the event loop would.
void paintNow(SymbolSelection& dialog)
{
    QApplication::processEvents();
    dialog.tree()->viewport()->repaint();
}

// Every `step`-th supported leaf, as a selection that the dialog shows ticked.
void selectSome(SymbolDatabase& db, std::size_t step)
{
    std::size_t seen = 0;
    db.setSelected(symbolpattern::tickableLeaves(*db.tree(), [&](const Node&) { return seen++ % step == 0; }));
}

// Types `text` one character at a time, then erases it; the worst keystroke
// (filter, layout and paint) in ms, and the rows shown with the whole text.
double typeAndErase(SymbolSelection& dialog, const std::string& text, int& rows, std::vector<double>* all = nullptr)
{
    double worst = 0;
    for (std::size_t n = 1; n <= 2 * text.size(); ++n) {
        const std::size_t len = n <= text.size() ? n : 2 * text.size() - n;
        const auto start = Clock::now();
        dialog.filterLine()->setText(QString::fromStdString(text.substr(0, len)));
        paintNow(dialog);
        const double k = ms(start);
        worst = std::max(worst, k);
        if (all)
            all->push_back(k);
        if (len == text.size())
            rows = dialog.model()->rowCount();
    }
    dialog.filterLine()->setText({});
    return worst;
}

// A display firmware: a 16 MiB frame buffer and 100,000 records.
bool displayFirmware(const fs::path& dir)
{
    double buildSeconds = 0;
    const fs::path elf = bench::buildFrameBufferFirmware(dir, 16u << 20, 100000, buildSeconds);
    SymbolDatabase db;
    if (elf.empty() || db.parseElf(elf.string(), false, nullptr) != 0) {
        std::fprintf(stderr, "display firmware: parse failed\n");
        return false;
    }
    ProgressBridge bridge;
    auto start = Clock::now();
    SymbolSelection dialog(db, &bridge);
    dialog.show();
    paintNow(dialog);
    std::printf("display firmware (16 MiB frame buffer, 100000 records):\n");
    std::printf("  dialog open:      %8.1f ms   (goal < 500 ms), %d rows\n", ms(start), dialog.model()->rowCount());
    // The frame buffer opened: its sixteen million rows.
    const QModelIndex buffer = dialog.model()->indexOf(
        symtree::findPath(db.tree()->arena, db.tree()->files, "frame_buffer").front());
    start = Clock::now();
    dialog.tree()->setRowExpanded(buffer, true);
    dialog.tree()->scrollTo(dialog.model()->index(buffer.row() + 8000000, 0));
    paintNow(dialog);
    std::printf("  open the buffer:  %8.1f ms, %d rows\n", ms(start), dialog.model()->rowCount());
    dialog.tree()->setRowExpanded(buffer, false);
    for (const char* text : {"frame_buffer[3000000]", "records[99999].c", "g12"}) {
        int rows = 0;
        const double worst = typeAndErase(dialog, text, rows);
        std::printf("  filter \"%s\":%*s worst keystroke %6.1f ms, %8d rows shown   (goal < 200 ms)\n", text,
                    static_cast<int>(22 - std::string(text).size()), "", worst, rows);
    }
    return true;
}

int shot(const std::string& projectPath, const std::string& filter, const std::string& out)
{
    Project project;
    SymbolDatabase db;
    if (LoadProject(projectPath, project, db) != 0) {
        std::fprintf(stderr, "cannot load %s\n", projectPath.c_str());
        return 1;
    }
    fs::path elf = project.settings().ElfFile;
    if (elf.is_relative())
        elf = fs::absolute(projectPath).parent_path() / elf;
    if (db.parseElf(elf.string(), true, nullptr) != 0) {
        std::fprintf(stderr, "cannot parse %s\n", elf.string().c_str());
        return 1;
    }
    ProgressBridge bridge;
    SymbolSelection dialog(db, &bridge);
    dialog.show();
    if (!filter.empty())
        dialog.filterLine()->setText(QString::fromStdString(filter));
    for (int i = 0; i < 20; ++i)
        QApplication::processEvents();
    if (!dialog.grab().save(QString::fromStdString(out))) {
        std::fprintf(stderr, "cannot write %s\n", out.c_str());
        return 1;
    }
    std::printf("%s: %zu symbols selected, %d rows\n", out.c_str(), db.selected().size(), dialog.model()->rowsMade());
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    std::string project, filter, out;
    int globals = 20000;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--project" && i + 1 < argc)
            project = argv[++i];
        else if (a == "--filter" && i + 1 < argc)
            filter = argv[++i];
        else if (a == "--shot" && i + 1 < argc)
            out = argv[++i];
        else
            globals = std::atoi(argv[i]);
    }
    if (!project.empty() || !out.empty())
        return project.empty() || out.empty() ? 2 : shot(project, filter, out);

    const fs::path dir = fs::temp_directory_path() / ("plotvik-selection-bench-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    if (!displayFirmware(dir))
        return 1;
    double buildSeconds = 0;
    const fs::path elf = bench::buildBigFirmware(dir, globals, buildSeconds);
    if (elf.empty())
        return 1;
    SymbolDatabase db;
    if (db.parseElf(elf.string(), false, nullptr) != 0) {
        std::fprintf(stderr, "parse failed\n");
        return 1;
    }
    std::size_t nodes = 0;
    for (const Node* f : db.tree()->files)
        symtree::forEachNode(f, [&nodes](const Node&) { return ++nodes != 0; });
    selectSome(db, 997);
    std::printf("firmware: %d globals, %zu tree nodes, %zu selected\n", globals, nodes, db.selected().size());

    ProgressBridge bridge;
    auto start = Clock::now();
    SymbolSelection dialog(db, &bridge);
    dialog.show();
    paintNow(dialog);
    const double openMs = ms(start);
    std::printf("dialog open:      %8.1f ms   (goal < 2000 ms), %d rows\n", openMs, dialog.model()->rowsMade());

    // Typed one character at a time, then erased again; every keystroke
    // filters, lays out and paints.
    const char* const texts[] = {"g1234", "0x2000", "0x0000ABC", "part1", "rec", "int", "0"};
    std::vector<double> all;
    for (const char* text : texts) {
        int rows = 0;
        const double worst = typeAndErase(dialog, text, rows, &all);
        std::printf("filter \"%s\":%*s worst keystroke %6.1f ms, %7d rows shown\n", text,
                    static_cast<int>(10 - std::string(text).size()), "", worst, rows);
    }
    std::sort(all.begin(), all.end());
    std::printf("filter keystroke: median %.1f ms, worst %.1f ms   (goal < 200 ms)\n", all[all.size() / 2], all.back());
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("peak memory:      %8.1f MB (tree and dialog)\n", static_cast<double>(usage.ru_maxrss) / 1024.0);
    fs::remove_all(dir);
    return 0;
}
