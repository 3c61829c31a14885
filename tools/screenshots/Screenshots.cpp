// plotvik-screenshots OUTDIR: the pictures of the user guide, taken from the
// real windows on the simulated target. Each window is put into the state the
// guide describes and grabbed as it draws itself, so the pictures follow the
// program whenever it changes. Run it on a real display platform (xcb under
// Xvfb: scripts/screenshots.sh); it keeps away from the user's settings.
#include "app/Controller.h"
#include "app/JobEngine.h"
#include "app/Settings.h"
#include "gui/CDeviceSelectionDialog.h"
#include "gui/MainWindow.h"
#include "gui/MenuBar.h"
#include "gui/NewProjectDialog.h"
#include "gui/ProgressDialog.h"
#include "gui/SymbolSelection.h"
#include "gui/SymbolTreeModel.h"
#include "gui/SymbolTreeView.h"
#include "gui/UserGuideWindow.h"
#include "gui/WelcomeDialog.h"
#include "probe/DeviceList.h"
#include "probe/ProbeSampler.h"
#include "view/GraphContainer.h"
#include "view/GraphWidget.h"
#include "view/TableWidget.h"
#include "view/ToolBar.h"
#include "view/TriggerWidget.h"
#include "view/UtilFilterHeader.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDockWidget>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QSettings>
#include <QStandardPaths>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <cstdio>
#include <filesystem>
#include <memory>

namespace fs = std::filesystem;

namespace {

QString g_out;
int g_failures = 0;

void save(const QPixmap& picture, const char* name)
{
    const QString path = g_out + "/" + name;
    if (picture.isNull() || !picture.save(path, "PNG")) {
        std::fprintf(stderr, "plotvik-screenshots: could not write %s\n", qPrintable(path));
        ++g_failures;
        return;
    }
    std::printf("%s\n", qPrintable(path));
}

// Shows a dialog without its own event loop, lets it lay out and paint, and
// grabs it.
void shootDialog(QWidget& dialog, const char* name)
{
    dialog.show();
    if (!QTest::qWaitForWindowExposed(&dialog))
        std::fprintf(stderr, "plotvik-screenshots: %s was never shown\n", name);
    QTest::qWait(200);
    save(dialog.grab(), name);
    dialog.hide();
}

bool waitFor(const std::function<bool()>& done, int ms, const char* what)
{
    if (QTest::qWaitFor(done, ms))
        return true;
    std::fprintf(stderr, "plotvik-screenshots: gave up waiting for %s\n", what);
    ++g_failures;
    return false;
}

// The main window as it looks, with the graph's read-out tooltip where the
// pointer left it.
QPixmap windowWithToolTip(MainWindow& window)
{
    QPixmap picture = window.grab();
    for (QWidget* w : QApplication::topLevelWidgets()) {
        if (w->isVisible() && w->inherits("QTipLabel")) {
            QPainter p(&picture);
            p.drawPixmap(window.mapFromGlobal(w->pos()), w->grab());
        }
    }
    return picture;
}

// Puts the graph's cursor at `fraction` of its width, as the mouse would.
void pointAt(MainWindow& window, double fraction)
{
    GraphWidget* graph = window.graph()->graph();
    QApplication::setActiveWindow(&window);
    window.activateWindow();
    if (!QTest::qWaitForWindowActive(&window))
        std::fprintf(stderr, "plotvik-screenshots: the main window did not become active\n");
    const QPoint at(static_cast<int>(graph->width() * fraction), graph->height() / 3);
    QTest::mouseMove(graph, at - QPoint(4, 0));
    QTest::mouseMove(graph, at);
    QTest::qWait(300);
}

// Opens the rows with these names, one after the other (a later one may be a
// child of an earlier one).
void expandRows(SymbolSelection& dialog, std::initializer_list<const char*> names)
{
    SymbolTreeModel* model = dialog.model();
    for (const char* name : names)
        for (int row = 0; row < model->rowCount(); ++row) {
            const QModelIndex index = model->index(row, SymbolTreeModel::kColName);
            if (index.data().toString() == QLatin1String(name)) {
                dialog.tree()->setRowExpanded(index, true);
                break;
            }
        }
}

class Session {
public:
    Session(Controller& ctl, MainWindow& window) : m_ctl(ctl), m_window(window) {}

    bool open(const fs::path& project)
    {
        m_ctl.project().setModified(false);  // no question about the previous project
        m_ctl.postOpenProjFile(project.string(), nullptr, {});
        return waitFor([&] { return m_ctl.project().isOpen() && m_window.toolBar()->displayState() == ToolBar::kStateReady; },
                       30000, "the project to open") &&
               waitFor([&] { return m_window.updatesEnabled() && !m_ctl.elfParsing() && !m_window.progressDialog()->isVisible(); },
                       30000, "the ELF file to be read");
    }

    bool start()
    {
        m_window.toolBar()->startPauseAction()->trigger();
        return waitFor([&] { return m_ctl.samplingRunning(); }, 20000, "sampling to start");
    }

    bool runFor(std::uint32_t targetUs)
    {
        return waitFor([&] { return m_ctl.store().currentTimeStamp() > targetUs; }, 30000, "samples");
    }

    void stop()
    {
        m_window.toolBar()->stopAction()->trigger();
        waitFor([&] { return !m_ctl.samplingRunning(); }, 20000, "sampling to stop");
        QTest::qWait(200);
    }

private:
    Controller& m_ctl;
    MainWindow& m_window;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: plotvik-screenshots OUTDIR\n");
        return 2;
    }
    QStandardPaths::setTestModeEnabled(true);
    QApplication::setOrganizationName("NorvexScreenshots");
    QApplication::setApplicationName("PlotvikScreenshots");
    QApplication app(argc, argv);
    g_out = QString::fromLocal8Bit(argv[1]);
    // The recent list and start action go to a private folder.
    QTemporaryDir native;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, native.path());
    writeStartAction(1);  // no start-up dialog: the pictures open their own

    const fs::path bin = QCoreApplication::applicationDirPath().toStdString();
    const fs::path demo = bin / "examples" / "demo";
    if (!fs::exists(demo / "demo_bsq.plotvik") || !fs::exists(bin / "libTarvo_x64.so")) {
        std::fprintf(stderr, "plotvik-screenshots: the demo projects or the probe library are not built in %s\n",
                     bin.c_str());
        return 1;
    }

    JobEngine engine;
    Controller ctl(engine, std::make_unique<ProbeSampler>());
    MainWindow window(ctl, {"plotvik"});
    window.resize(1160, 700);  // the trigger controls need the width
    if (!QTest::qWaitForWindowExposed(&window) ||
        !waitFor([&] { return window.windowTitle().startsWith("Norvex Plotvik"); }, 10000, "start-up"))
        return 1;
    Session session(ctl, window);

    {
        const std::vector<std::string> recent = {(demo / "demo_bsq.plotvik").string(), (demo / "demo_qtx.plotvik").string(),
                                                 (demo / "demo_gdb.plotvik").string()};
        WelcomeDialog welcome(ctl, recent, &window);
        shootDialog(welcome, "welcome.png");
    }
    {
        NewProjectDialog dialog(ctl, &window);
        dialog.deviceEdit()->setText("PVK-SIM-M4");
        dialog.scriptEdit()->setText("demo.TarvoScript");
        dialog.periodEdit()->setText("1000");
        dialog.elfEdit()->setText("demo.elf");
        shootDialog(dialog, "new-project.png");
    }
    {
        CDeviceSelectionDialog dialog(devicelist::load(), "STM32F407VG", &window);
        dialog.resize(760, 420);
        if (auto* filter = qobject_cast<QLineEdit*>(dialog.filterHeader()->editor(devicelist::kColDevice)))
            filter->setText("STM32F40");
        shootDialog(dialog, "device-selection.png");
    }

    if (!session.open(demo / "demo_bsq.plotvik"))
        return 1;
    {
        SymbolSelection dialog(ctl.symbols(), &window, &window);
        expandRows(dialog, {"g_motor", "sensors", "g_channels", "g_channels[1]"});
        dialog.tree()->setColumnWidth(SymbolTreeModel::kColName, 240);
        dialog.resize(780, 560);
        // The demo's own file first, above the C library's.
        SymbolTreeModel* model = dialog.model();
        for (int row = 0; row < model->rowCount(); ++row)
            if (model->index(row, SymbolTreeModel::kColName).data().toString().endsWith("demo.c"))
                QTimer::singleShot(0, &dialog, [&dialog, index = model->index(row, 0)] {
                    dialog.tree()->scrollTo(index, QAbstractItemView::PositionAtTop);
                });
        shootDialog(dialog, "symbol-selection.png");
    }

    // The demo sampled: two periods of the sine on the screen.
    window.toolBar()->zoomBox()->setCurrentIndex(16);  // 200 ms/Div
    if (session.start() && session.runFor(3200000)) {
        pointAt(window, 0.62);
        save(windowWithToolTip(window), "main-window.png");

        TableWidget* table = window.watchTable();
        table->selectRow(1);
        const std::unique_ptr<QMenu> menu = table->createContextMenu();
        const QRect row = table->visualItemRect(table->item(1, 2));
        const QPoint at = table->viewport()->mapToGlobal(row.center());
        menu->popup(at);
        QTest::qWait(300);
        QPixmap dock = window.watchDock()->grab();
        {
            QPainter p(&dock);
            p.drawPixmap(window.watchDock()->mapFromGlobal(menu->pos()), menu->grab());
        }
        menu->hide();
        save(dock, "watch-menu.png");
        table->clearSelection();
    }
    session.stop();

    // The trigger: g_state entering RUNNING (rising through 2).
    {
        TriggerWidget* trigger = window.triggerWidget();
        trigger->risingAction()->trigger();
        trigger->symbolBox()->setCurrentIndex(trigger->symbolBox()->findText("g_state"));
        trigger->thresholdEdit()->setText("2");
        if (session.start() &&
            waitFor([&] { return ctl.project().settings().TriggerFired; }, 20000, "the trigger to fire") &&
            session.runFor(ctl.store().triggerTimeStamp() + 1500000)) {
            // Stopped and scrolled to the start: the recording begins at the edge.
            session.stop();
            QApplication::setActiveWindow(&window);
            QTest::keyClick(window.graph()->graph(), Qt::Key_Home);
            QTest::qWait(300);
            pointAt(window, 0.26);
            save(windowWithToolTip(window), "trigger.png");
        }
        session.stop();
        trigger->risingAction()->trigger();  // off again
    }

    if (session.open(demo / "demo_qtx.plotvik") && session.start() && session.runFor(2600000)) {
        pointAt(window, 0.55);
        save(windowWithToolTip(window), "qtx.png");
    }
    session.stop();

    window.menus()->action(MenuBar::kUserGuide)->trigger();
    if (UserGuideWindow* guide = window.userGuideWindow()) {
        guide->resize(900, 640);
        QTest::qWait(600);  // the pictures are fitted again to the new width
        save(guide->grab(), "user-guide.png");
        guide->close();
    }

    ctl.project().setModified(false);  // closes without asking
    window.QMainWindow::close();
    return g_failures == 0 ? 0 : 1;
}
