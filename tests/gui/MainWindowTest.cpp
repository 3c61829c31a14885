// The main window as bridge: worker requests answered on the interface
// thread, the progress dialog, menu enabling and the status-bar texts.
#include "app/Controller.h"
#include "app/JobEngine.h"
#include "app/Settings.h"
#include "gui/DIALOG_CustMsgBox.h"
#include "gui/MainWindow.h"
#include "gui/MenuBar.h"
#include "gui/ProgressDialog.h"
#include "gui/StatusBar.h"
#include "view/TableWidget.h"
#include "tests/TempFolder.h"
#include "tests/app/FakeSampler.h"

#include <QAction>
#include <QApplication>
#include <QDockWidget>
#include <QLabel>
#include <QPushButton>
#include <QScrollBar>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <thread>

namespace {

// The first visible message box, or nullptr.
DIALOG_CustMsgBox* visibleBox()
{
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* box = qobject_cast<DIALOG_CustMsgBox*>(w); box && box->isVisible())
            return box;
    return nullptr;
}

class MainWindowTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ctl = std::make_unique<Controller>(engine, std::make_unique<FakeSampler>());
        window = std::make_unique<MainWindow>(*ctl, std::vector<std::string>{"plotvik"});
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        // Start-up has run once the initialisation job's refresh came through.
        ASSERT_TRUE(QTest::qWaitFor([&] { return window->windowTitle().startsWith("Norvex Plotvik"); }));
    }
    void TearDown() override
    {
        window->QMainWindow::close();  // close() alone is the bridge request, delivered later
        EXPECT_EQ(ctl->exitState(), kExitAllowed);
        window.reset();
        ctl.reset();
    }
    void selectSymbols(int n)
    {
        std::vector<Node*> nodes;
        for (int i = 0; i < n; ++i) {
            Node* node = ctl->symbols().createDetachedSymbol();
            node->Name = "v" + std::to_string(i);
            node->Size = 4;
            node->TypeID = kTypeU32;
            nodes.push_back(node);
        }
        ctl->symbols().setSelected(nodes);
    }

    JobEngine engine;
    std::unique_ptr<Controller> ctl;
    std::unique_ptr<MainWindow> window;
};

// The box runs its own modal loop on the interface thread, so the answer is
// given from a timer that fires inside that loop, as a user would.
void answerWhenShown(QObject* context, std::function<void(DIALOG_CustMsgBox*)> act)
{
    auto* poll = new QTimer(context);  // owned by the context; deleted once it acted
    QObject::connect(poll, &QTimer::timeout, context, [poll, act] {
        if (DIALOG_CustMsgBox* box = visibleBox()) {
            poll->stop();
            poll->deleteLater();
            act(box);
        }
    });
    poll->start(5);
}

TEST_F(MainWindowTest, WorkerMessageBoxBlocksUntilAnsweredOnInterfaceThread)
{
    MessageBoxRequest r;
    r.caption = "Plotvik V1.00a Warning";
    r.text = "Project modified. Save?";
    r.button0 = "Yes";
    r.button1 = "No";
    r.icon = kIconQuestion;
    std::atomic<bool> returned{false};
    std::atomic<int> result{-100};
    bool blockedWhileShown = false;
    QString title, text;
    std::thread::id answeredOn;
    answerWhenShown(window.get(), [&](DIALOG_CustMsgBox* box) {
        title = box->windowTitle();
        text = box->textLabel()->text();
        // Give the worker time to run on, if it wrongly did not wait.
        QTimer::singleShot(100, box, [&, box] {
            blockedWhileShown = !returned;
            answeredOn = std::this_thread::get_id();
            QTest::mouseClick(box->button(1), Qt::LeftButton);
        });
    });
    std::thread worker([&] {
        result = window->messageBox(r).result;
        returned = true;
    });
    const bool done = QTest::qWaitFor([&] { return returned.load(); });
    worker.join();
    ASSERT_TRUE(done);
    EXPECT_TRUE(blockedWhileShown);
    EXPECT_EQ(title, "Plotvik V1.00a Warning");
    EXPECT_EQ(text, "Project modified. Save?");
    EXPECT_EQ(result, 1);
    EXPECT_EQ(answeredOn, std::this_thread::get_id());
}

TEST_F(MainWindowTest, InterfaceThreadMessageBoxIsShownDirectly)
{
    MessageBoxRequest r;
    r.caption = "c";
    r.text = "t";
    r.button0 = "A";
    r.button1 = "B";
    r.defaultResult = 1;
    r.timeoutMs = 50;
    // Would never return if it waited for its own thread's event loop to answer an event.
    EXPECT_EQ(window->messageBox(r).result, 1);
}

TEST_F(MainWindowTest, WorkerProgressDrivesTheProgressDialog)
{
    ProgressDialog* dialog = window->progressDialog();
    EXPECT_FALSE(dialog->isVisible());
    std::atomic<int> step{0};
    std::atomic<bool> go{false};
    std::thread worker([&] {
        window->progress(0, "Parsing ELF file ...", kProgressStart, 200);
        step = 1;
        while (!go)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        window->progress(150, "", kProgressUpdate, 0);
        step = 2;
        while (go)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        window->progress(200, "", kProgressEnd, 0);
        step = 3;
    });
    ASSERT_TRUE(QTest::qWaitFor([&] { return step.load() == 1; }));
    EXPECT_TRUE(dialog->isVisible());
    EXPECT_EQ(dialog->labelText(), "Parsing ELF file ...");
    EXPECT_EQ(dialog->maximum(), 200);
    go = true;
    ASSERT_TRUE(QTest::qWaitFor([&] { return step.load() == 2; }));
    EXPECT_EQ(dialog->value(), 150);
    EXPECT_TRUE(dialog->isVisible());
    go = false;
    ASSERT_TRUE(QTest::qWaitFor([&] { return step.load() == 3; }));
    worker.join();
    EXPECT_FALSE(dialog->isVisible());
}

TEST_F(MainWindowTest, CancelledProgressIsReportedToTheWorker)
{
    ProgressDialog* dialog = window->progressDialog();
    EXPECT_EQ(window->progress(0, "Loading", kProgressStart, 10), 0);
    dialog->cancel();
    EXPECT_LT(window->progress(5, "", kProgressUpdate, 0), 0);
    window->progress(0, "", kProgressEnd, 0);
    EXPECT_FALSE(dialog->isVisible());
    EXPECT_EQ(window->progress(0, "Again", kProgressStart, 10), 0);  // a new start clears it
    window->progress(0, "", kProgressEnd, 0);
}

TEST_F(MainWindowTest, StatusBarFollowsTheSelection)
{
    selectSymbols(2);
    ctl->setMeasuredFrameRate(0);  // the graph measures its own paints; start from none
    emit window->_SignalUpdateGUI();
    StatusBar* bar = window->statusBarWidget();
    EXPECT_EQ(bar->bufferLabel()->text(), "Buffer: 16 MB (1048576 samples), 0 %");
    EXPECT_EQ(bar->sampleRateLabel()->text(), "0 Samples/s");
    EXPECT_EQ(bar->frameRateLabel()->text(), "FPS: 0  ");
    ctl->setMeasuredFrameRate(55);
    emit window->_SignalUpdateData();
    EXPECT_EQ(bar->frameRateLabel()->text(), "FPS: 30  ");  // the target of 30 is the smaller
}

TEST_F(MainWindowTest, MenuFollowsProjectAndSelection)
{
    MenuBar* menus = window->menus();
    emit window->_SignalUpdateGUI();
    EXPECT_FALSE(ctl->project().isOpen());
    EXPECT_TRUE(window->centralWidget()->isVisible());  // "No project open"
    EXPECT_TRUE(menus->action(MenuBar::kOpenProject)->isEnabled());
    EXPECT_TRUE(menus->action(MenuBar::kNewProject)->isEnabled());
    EXPECT_FALSE(menus->action(MenuBar::kSaveProject)->isEnabled());
    EXPECT_FALSE(menus->action(MenuBar::kOptions)->isEnabled());
    EXPECT_FALSE(menus->action(MenuBar::kImportRaw)->isEnabled());
}

TEST_F(MainWindowTest, ViewEntriesShowAndHideTheViews)
{
    QDockWidget* graph = window->graphDock();
    QDockWidget* watch = window->watchDock();
    QAction* graphEntry = window->menus()->action(MenuBar::kGraphWindow);
    QAction* watchEntry = window->menus()->action(MenuBar::kWatchWindow);
    EXPECT_TRUE(graph->isVisible());
    EXPECT_TRUE(watch->isVisible());
    ASSERT_TRUE(graphEntry->isCheckable());
    ASSERT_TRUE(watchEntry->isCheckable());
    EXPECT_TRUE(graphEntry->isChecked());
    EXPECT_TRUE(watchEntry->isChecked());
    // The entries show their dock; a second click keeps it shown.
    for (int click = 0; click < 2; ++click) {
        graphEntry->trigger();
        EXPECT_TRUE(graph->isVisible());
        EXPECT_TRUE(graphEntry->isChecked());
    }
    // Closing a dock unticks its entry, the entry brings it back.
    watch->close();
    EXPECT_FALSE(watch->isVisible());
    EXPECT_FALSE(watchEntry->isChecked());
    EXPECT_TRUE(graphEntry->isChecked());
    watchEntry->trigger();
    EXPECT_TRUE(watch->isVisible());
    EXPECT_TRUE(watchEntry->isChecked());
}

// Qt runs neither of two actions that own the same key in one window.
TEST_F(MainWindowTest, EveryShortcutHasOneOwner)
{
    std::map<QString, QStringList> owners;
    for (QAction* a : window->findChildren<QAction*>())
        for (const QKeySequence& key : a->shortcuts())
            owners[key.toString()] << a->text();
    ASSERT_FALSE(owners.empty());
    for (const auto& [key, actions] : owners)
        EXPECT_EQ(actions.size(), 1) << key.toStdString() << ": " << actions.join(", ").toStdString();
}

TEST_F(MainWindowTest, CtrlSSavesTheProject)
{
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
    selectSymbols(8);
    ctl->project().setOpen(true);
    emit window->_SignalUpdateGUI();
    TableWidget* table = window->watchTable();
    ASSERT_TRUE(QTest::qWaitFor([&] { return table->rowCount() == 9; }));
    struct Seen {
        int graph, watch;
    };
    std::vector<Seen> seen;
    for (const QSize size : {QSize(1024, 700), QSize(1280, 800), QSize(1920, 1080)}) {
        SCOPED_TRACE(size.height());
        window->resize(size);
        ASSERT_TRUE(QTest::qWaitFor([&] { return window->size() == size; }));
        const int last = table->rowCount() - 1;
        // The docks are fitted once the layout has run.
        const auto lastRowShown = [&] {
            return table->rowViewportPosition(last) + table->rowHeight(last) <= table->viewport()->height();
        };
        EXPECT_TRUE(QTest::qWaitFor(lastRowShown)) << "the \"+\" row is cut off";
        EXPECT_EQ(table->verticalScrollBar()->maximum(), 0) << "every row fits";
        EXPECT_TRUE(QTest::qWaitFor([&] { return table->height() == table->heightForAllRows(); }))
            << "the table is as high as its rows";
        seen.push_back({window->graphDock()->height(), window->watchDock()->height()});
    }
    EXPECT_EQ(seen[2].watch, seen[1].watch) << "the table does not grow beyond its rows";
    EXPECT_EQ(seen[2].graph - seen[1].graph, seen[2].watch + seen[2].graph - seen[1].watch - seen[1].graph);
    EXPECT_GT(seen[2].graph, 600);
}

TEST_F(MainWindowTest, RecentListsAreCopiedForTheMenus)
{
    RecentLists::instance().add(1, "/work/a.plotvik");
    RecentLists::instance().add(1, "/work/b.plotvik");
    EXPECT_NE(window->recentList(1).empty() ? "" : window->recentList(1).front(), "/work/b.plotvik");
    window->refreshRecentLists();
    const auto list = window->recentList(1);
    ASSERT_GE(list.size(), 2u);
    EXPECT_EQ(list[0], "/work/b.plotvik");
    EXPECT_EQ(list[1], "/work/a.plotvik");
    EXPECT_TRUE(window->recentList(0).empty());
}

// --- menu bar and status bar on their own ---------------------------------------------

TEST(MenuBarTable, EntriesShortcutsAndTips)
{
    QObject receiver;
    MenuBar bar(&receiver);
    const auto menus = bar.actions();
    ASSERT_EQ(menus.size(), 4);
    EXPECT_EQ(menus[0]->text(), "&File");
    EXPECT_EQ(menus[1]->text(), "&View");
    EXPECT_EQ(menus[2]->text(), "&Tools");
    EXPECT_EQ(menus[3]->text(), "&Help");
    EXPECT_EQ(menus[0]->menu()->actions().size(), 8);
    EXPECT_EQ(bar.action(MenuBar::kSaveProject)->shortcut(), QKeySequence("Ctrl+S"));
    // Both save entries show Ctrl+S; only the first owns it.
    EXPECT_TRUE(bar.action(MenuBar::kSaveProjectAs)->shortcut().isEmpty());
    EXPECT_EQ(bar.action(MenuBar::kSaveProjectAs)->text(), "Save Project &as ...\tCtrl+S");
    EXPECT_EQ(bar.action(MenuBar::kExit)->shortcut(), QKeySequence("Alt+X"));
    EXPECT_EQ(bar.action(MenuBar::kUserGuide)->shortcut(), QKeySequence(Qt::Key_F1));
    EXPECT_EQ(bar.action(MenuBar::kAbout)->shortcut(), QKeySequence(Qt::Key_F12));
    EXPECT_TRUE(bar.action(MenuBar::kGraphWindow)->shortcut().isEmpty());
    EXPECT_EQ(bar.action(MenuBar::kExportData)->statusTip(), "Save data to csv");
    EXPECT_EQ(bar.action(MenuBar::kOpenProject)->text(), "&Open Project ...");
    for (int e = 0; e < MenuBar::kEntryCount; ++e)
        EXPECT_EQ(bar.action(MenuBar::Entry(e))->statusTip(), MenuBar::table()[e].statusTip);
}

class SlotRecorder : public QObject {
    Q_OBJECT
public:
    QStringList called;
public slots:
    void _OnActionSaveProject() { called << "save"; }
    void _OnActionAbout() { called << "about"; }
};

TEST(MenuBarTable, EntriesCallTheReceiversSlots)
{
    SlotRecorder receiver;
    MenuBar bar(&receiver);
    bar.action(MenuBar::kSaveProject)->trigger();
    bar.action(MenuBar::kAbout)->trigger();
    EXPECT_EQ(receiver.called, QStringList({"save", "about"}));
}

TEST(MenuBarTable, EnablingRules)
{
    QObject receiver;
    MenuBar bar(&receiver);
    const MenuBar::Entry file[] = {MenuBar::kNewProject, MenuBar::kOpenProject, MenuBar::kSaveProject,
                                   MenuBar::kSaveProjectAs, MenuBar::kExportData, MenuBar::kExportRaw,
                                   MenuBar::kImportRaw, MenuBar::kExit};
    for (int sampling = 0; sampling < 2; ++sampling)
        for (int open = 0; open < 2; ++open)
            for (int selected = 0; selected < 2; ++selected) {
                bar.updateEnabling(sampling, open, selected);
                const auto on = [&](MenuBar::Entry e) { return bar.action(e)->isEnabled(); };
                const std::string where = std::to_string(sampling) + std::to_string(open) + std::to_string(selected);
                if (sampling) {
                    for (auto e : file)
                        EXPECT_FALSE(on(e)) << where << " entry " << e;
                    EXPECT_FALSE(on(MenuBar::kOptions)) << where;
                    continue;
                }
                EXPECT_TRUE(on(MenuBar::kNewProject)) << where;
                EXPECT_TRUE(on(MenuBar::kOpenProject)) << where;
                EXPECT_TRUE(on(MenuBar::kExit)) << where;
                EXPECT_EQ(on(MenuBar::kOptions), bool(open)) << where;
                EXPECT_EQ(on(MenuBar::kSaveProject), bool(open)) << where;
                EXPECT_EQ(on(MenuBar::kSaveProjectAs), bool(open)) << where;
                EXPECT_EQ(on(MenuBar::kExportData), open && selected) << where;
                EXPECT_EQ(on(MenuBar::kExportRaw), open && selected) << where;
                EXPECT_EQ(on(MenuBar::kImportRaw), open && selected) << where;
            }
    // View and Help entries never change.
    EXPECT_TRUE(bar.action(MenuBar::kGraphWindow)->isEnabled());
    EXPECT_TRUE(bar.action(MenuBar::kAbout)->isEnabled());
}

TEST(StatusBarTexts, Buffer)
{
    const struct {
        std::size_t vars;
        std::uint32_t stored;
        bool wrapped;
        const char* text;
    } cases[] = {
        {2, 0, false, "Buffer: 16 MB (1048576 samples), 0 %"},
        {1, 524288, false, "Buffer: 8 MB (1048576 samples), 50 %"},
        {0, 0, false, "Buffer: 0 Byte (1048576 samples), 0 %"},
        {3, 1048575, false, "Buffer: 24 MB (1048576 samples), 99 %"},
        {5, 10, true, "Buffer: 40 MB (1048576 samples), 100 %"},
        {200, 1, false, "Buffer: 1600 MB (1048576 samples), 0 %"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(StatusBar::bufferText(c.vars, c.stored, c.wrapped), c.text);
}

TEST(StatusBarTexts, SampleAndFrameRate)
{
    EXPECT_EQ(StatusBar::sampleRateText(0), "0 Samples/s");
    EXPECT_EQ(StatusBar::sampleRateText(999), "999 Samples/s");
    EXPECT_EQ(StatusBar::sampleRateText(1000), "1 kSamples/s");
    EXPECT_EQ(StatusBar::sampleRateText(123456), "123 kSamples/s");
    EXPECT_EQ(StatusBar::frameRateText(30, 12), "FPS: 12  ");
    EXPECT_EQ(StatusBar::frameRateText(25, 60), "FPS: 25  ");
}

}  // namespace

#include "MainWindowTest.moc"
