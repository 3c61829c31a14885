// The main window as bridge: worker requests answered on the interface thread,
// the progress dialog, menus, docks, the status bar, and the watch table in it.
#include "gui/DIALOG_CustMsgBox.h"
#include "gui/MenuBar.h"
#include "gui/ProgressDialog.h"
#include "gui/StatusBar.h"
#include "tests/TempFolder.h"
#include "tests/gui/GuiTestSupport.h"
#include "tests/view/GraphTestSupport.h"
#include "view/GraphContainer.h"
#include "view/TableWidget.h"

#include <QAction>
#include <QDockWidget>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <atomic>
#include <filesystem>
#include <map>
#include <thread>

using guitest::whenShown;

namespace {

using MainWindowTest = guitest::WindowTest;

TEST_F(MainWindowTest, WorkerMessageBoxBlocksUntilAnsweredOnInterfaceThread)
{
    MessageBoxRequest r;
    r.text = "Project modified. Save?";
    r.button0 = "Yes";
    r.button1 = "No";
    std::atomic<bool> returned{false};
    std::atomic<int> result{-100};
    bool blockedWhileShown = false;
    QString text;
    std::thread::id answeredOn;
    // The box runs its own modal loop on the interface thread: answered from inside it.
    whenShown<DIALOG_CustMsgBox>([&](DIALOG_CustMsgBox* box) {
        text = box->textLabel()->text();
        // Give the worker time to run on, if it wrongly did not wait.
        QTimer::singleShot(100, box, [&, box] {
            blockedWhileShown = !returned;
            answeredOn = std::this_thread::get_id();
            QTest::mouseClick(box->button(1), Qt::LeftButton);
        });
    }, window.get());
    std::thread worker([&] {
        result = window->messageBox(r).result;
        returned = true;
    });
    const bool done = QTest::qWaitFor([&] { return returned.load(); });
    worker.join();
    ASSERT_TRUE(done);
    EXPECT_EQ(std::tuple(blockedWhileShown, text, result.load(), answeredOn),
              std::tuple(true, "Project modified. Save?", 1, std::this_thread::get_id()));

    // On the interface thread the box is shown directly: it would never return if
    // it waited for its own thread's event loop.
    r.defaultResult = 1;
    r.timeoutMs = 50;
    EXPECT_EQ(window->messageBox(r).result, 1);
}

TEST_F(MainWindowTest, WorkerProgressDrivesTheProgressDialogAndHearsTheCancel)
{
    ProgressDialog* dialog = window->progressDialog();
    EXPECT_FALSE(dialog->isVisible());
    std::atomic<int> step{0};
    std::atomic<bool> go{false};
    std::thread worker([&] {
        window->progress(0, "Parsing ELF file ...", kProgressStart, 200);
        window->progress(150, "", kProgressUpdate, 0);
        step = 1;
        while (!go)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        window->progress(200, "", kProgressEnd, 0);
        step = 2;
    });
    ASSERT_TRUE(QTest::qWaitFor([&] { return step.load() == 1; }));
    EXPECT_EQ(std::tuple(dialog->isVisible(), dialog->labelText(), dialog->maximum(), dialog->value()),
              std::tuple(true, "Parsing ELF file ...", 200, 150));
    go = true;
    ASSERT_TRUE(QTest::qWaitFor([&] { return step.load() == 2; }));
    worker.join();
    EXPECT_FALSE(dialog->isVisible());

    EXPECT_EQ(window->progress(0, "Loading", kProgressStart, 10), 0);
    dialog->cancel();
    EXPECT_LT(window->progress(5, "", kProgressUpdate, 0), 0);
    window->progress(0, "", kProgressEnd, 0);
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_EQ(window->progress(0, "Again", kProgressStart, 10), 0);  // a new start clears it
    window->progress(0, "", kProgressEnd, 0);
}

// Qt runs neither of two actions that own the same key in one window.
TEST_F(MainWindowTest, EveryShortcutHasOneOwnerAndCtrlSSaves)
{
    std::map<QString, QStringList> owners;
    for (QAction* a : window->findChildren<QAction*>())
        for (const QKeySequence& key : a->shortcuts())
            owners[key.toString()] << a->text();
    ASSERT_FALSE(owners.empty());
    for (const auto& [key, actions] : owners)
        EXPECT_EQ(actions.size(), 1) << key.toStdString() << ": " << actions.join(", ").toStdString();

    const std::string path = (testtemp::folder() / "ctrl-s.plotvik").string();
    std::filesystem::remove(path);
    ctl->project().setPath(path);
    ctl->project().setHasFileName(true);
    ctl->project().setOpen(true);
    ctl->project().setModified(true);
    emit window->_SignalUpdateGUI();
    window->activateWindow();
    QTest::keyClick(window.get(), Qt::Key_S, Qt::ControlModifier);
    EXPECT_TRUE(QTest::qWaitFor([&] { return std::filesystem::exists(path); }));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !ctl->project().isModified(); }));
}

// Whatever the window's size, the table shows all its rows ("+" included,
// above its scroll bar) and the graph takes the rest and every gain.
TEST_F(MainWindowTest, GraphTakesTheGrowthAndTheTableKeepsItsRowsVisible)
{
    guitest::selectSymbols(*ctl, 8);
    ctl->project().setOpen(true);
    emit window->_SignalUpdateGUI();
    TableWidget* table = window->watchTable();
    ASSERT_TRUE(QTest::qWaitFor([&] { return table->rowCount() == 9; }));
    std::vector<std::pair<int, int>> seen;  // graph and watch heights
    for (const QSize size : {QSize(1024, 700), QSize(1280, 800), QSize(1920, 1080)}) {
        SCOPED_TRACE(size.height());
        window->resize(size);
        ASSERT_TRUE(QTest::qWaitFor([&] { return window->size() == size; }));
        const int last = table->rowCount() - 1;
        // The docks are fitted once the layout has run.
        EXPECT_TRUE(QTest::qWaitFor([&] {
            return table->rowViewportPosition(last) + table->rowHeight(last) <= table->viewport()->height();
        })) << "the \"+\" row is cut off";
        EXPECT_EQ(table->verticalScrollBar()->maximum(), 0) << "every row fits";
        EXPECT_TRUE(QTest::qWaitFor([&] { return table->height() == table->heightForAllRows(); }))
            << "the table is as high as its rows";
        seen.emplace_back(window->graphDock()->height(), window->watchDock()->height());
    }
    EXPECT_EQ(seen[2].second, seen[1].second) << "the table does not grow beyond its rows";
    EXPECT_EQ(seen[2].first - seen[1].first, seen[2].second + seen[2].first - seen[1].second - seen[1].first);
    EXPECT_GT(seen[2].first, 600);
}

// The watch table in the window.
struct WatchWiringTest : guitest::WindowTest {
    // Two symbols; `count` records 1000 us apart, symbol s holding (s + 1) * 100 + record.
    void record(std::uint32_t count)
    {
        guitest::selectSymbols(*ctl, 2, kTypeS32);
        emit window->_SignalUpdateSymbolSelection();
        graphtest::fill(ctl->store(), ctl->symbols().selected(), count, [](std::uint32_t r) { return r * 1000; },
                        [](std::size_t s, std::uint32_t r) -> std::uint64_t { return (s + 1) * 100 + r; });
    }
    QString cell(int row, int column) const
    {
        const QTableWidgetItem* item = window->watchTable()->item(row, column);
        return item ? item->text() : QString();
    }
    // Answers the file dialog with `path`, then runs the menu entry.
    void runWithFile(MenuBar::Entry entry, const QString& path)
    {
        whenShown<QFileDialog>([path](QFileDialog* d) {
            d->selectFile(path);
            static_cast<QDialog*>(d)->accept();  // QFileDialog's own accept() checks the name
        }, window.get());
        QAction* a = window->menus()->action(entry);
        a->setEnabled(true);
        a->trigger();
    }
};

TEST_F(WatchWiringTest, SelectionRefreshesColoursAndTheAddRequestReachTheTable)
{
    TableWidget* table = window->watchTable();
    const std::vector<Node*> nodes = guitest::selectSymbols(*ctl, 3);
    nodes[1]->symbol().GraphColor = {1, 2, 3, 255};
    nodes[1]->symbol().HasGraphColor = true;
    emit window->_SignalUpdateSymbolSelection();
    ASSERT_EQ(table->symbolRowCount(), 3);
    // The palette's choice itself: CurveColors.
    for (int r = 0; r < 3; ++r)
        EXPECT_TRUE(table->symbolAt(r)->symbol().HasGraphColor) << r;
    EXPECT_EQ(nodes[1]->symbol().GraphColor, (Rgb{1, 2, 3, 255})) << "a colour from the project stays";

    // The worker's assign-colours request does the same for later symbols.
    Node* extra = guitest::newSymbol(*ctl, "x");
    ctl->symbols().setSelected({nodes[0], extra});
    std::thread worker([&] { window->assignColors(); });
    worker.join();
    ASSERT_TRUE(QTest::qWaitFor([&] { return table->symbolRowCount() == 2; }));
    EXPECT_TRUE(extra->symbol().HasGraphColor);

    // Only the request is of interest here, not the dialog it opens.
    QObject::disconnect(window.get(), SIGNAL(_SignalShowSymbolSelection()), window.get(), nullptr);
    QSignalSpy asked(window.get(), &MainWindow::_SignalShowSymbolSelection);
    QTest::mouseClick(table->addButton(), Qt::LeftButton);
    EXPECT_EQ(asked.count(), 1);
}

TEST_F(WatchWiringTest, ValueColumnFollowsTheGraphCursor)
{
    record(8);
    GraphWidget* graph = window->graph()->graph();
    graph->setHeld(true);
    graph->setTimePerDivision(1000);  // 1 ms per division: records 100 pixels apart
    const int left = graph->grid().marginX;
    graph->setCursorX(left);
    EXPECT_EQ(cell(0, TableWidget::kColValue), "100");
    EXPECT_EQ(cell(1, TableWidget::kColValue), "200");
    graph->setCursorX(left + 300);
    EXPECT_EQ(cell(0, TableWidget::kColValue), "103") << "the table follows the cursor by itself";
    EXPECT_EQ(cell(1, TableWidget::kColValue), "203");
}

// The File menu's exports and import run through the window's file dialogs;
// what the files hold: ExportCommandTest.
TEST_F(WatchWiringTest, ExportDataRawAndImportItAgain)
{
    record(6);
    const std::uint32_t recorded = ctl->store().recordCount();
    QTemporaryDir dir;
    const QString csv = dir.filePath("out.csv"), raw = dir.filePath("out.praw");
    runWithFile(MenuBar::kExportData, csv);
    EXPECT_TRUE(QFileInfo::exists(csv));
    whenShown<DIALOG_CustMsgBox>([](DIALOG_CustMsgBox* box) { box->button(0)->click(); }, window.get());  // the fields' order
    runWithFile(MenuBar::kExportRaw, raw);
    ASSERT_TRUE(QFileInfo::exists(raw));

    // Import: the store is rebuilt from the file and the table shows it.
    ctl->store().clear();
    ctl->store().resetStatistics();
    emit window->_SignalUpdateData();
    EXPECT_EQ(cell(0, TableWidget::kColMax), "N/A");
    runWithFile(MenuBar::kImportRaw, raw);
    ASSERT_TRUE(ctl->waitForQueue(5000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return cell(0, TableWidget::kColMax) != "N/A"; }));
    EXPECT_EQ(ctl->store().recordCount(), recorded - 1) << "the export leaves out the newest record";
    EXPECT_EQ(cell(1, TableWidget::kColMax), QString::number(200 + recorded - 1));
}

// --- menu bar and status bar on their own ---------------------------------------------

TEST(MenuBarTable, EnablingRules)
{
    QObject receiver;
    MenuBar bar(&receiver);
    const auto expected = [](int e, bool sampling, bool open, bool selected) {
        if (e == MenuBar::kNewProject || e == MenuBar::kOpenProject || e == MenuBar::kExit)
            return !sampling;
        if (e == MenuBar::kSaveProject || e == MenuBar::kSaveProjectAs || e == MenuBar::kOptions)
            return !sampling && open;
        if (e >= MenuBar::kExportData && e <= MenuBar::kImportRaw)
            return !sampling && open && selected;
        return true;  // View and Help entries never change
    };
    for (int bits = 0; bits < 8; ++bits) {
        const bool sampling = bits & 4, open = bits & 2, selected = bits & 1;
        bar.updateEnabling(sampling, open, selected);
        for (int e = 0; e < MenuBar::kEntryCount; ++e)
            EXPECT_EQ(bar.action(MenuBar::Entry(e))->isEnabled(), expected(e, sampling, open, selected))
                << "sampling, open, selected " << bits << ", entry " << e;
    }
}

TEST(StatusBarTexts, BufferSampleAndFrameRate)
{
    const struct {
        std::size_t vars;
        std::uint32_t stored;
        bool wrapped;
        const char* text;
    } cases[] = {
        {1, 524288, false, "Buffer: 8 MB (1048576 samples), 50 %"},
        {0, 0, false, "Buffer: 0 Byte (1048576 samples), 0 %"},
        {3, 1048575, false, "Buffer: 24 MB (1048576 samples), 99 %"},
        {5, 10, true, "Buffer: 40 MB (1048576 samples), 100 %"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(StatusBar::bufferText(c.vars, c.stored, c.wrapped), c.text);
    EXPECT_EQ(std::tuple(StatusBar::sampleRateText(999), StatusBar::sampleRateText(1000),
                         StatusBar::frameRateText(30, 12), StatusBar::frameRateText(25, 60)),
              std::tuple("999 Samples/s", "1 kSamples/s", "FPS: 12  ", "FPS: 25  "));
}

}  // namespace
