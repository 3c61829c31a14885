#include "gui/MainWindow.h"

#include "app/Controller.h"
#include "app/ControllerExports.h"
#include "app/InstallPaths.h"
#include "app/Settings.h"
#include "base/Product.h"
#include "base/Report.h"
#include "base/Text.h"
#include "gui/DIALOG_CustMsgBox.h"
#include "gui/MenuBar.h"
#include "gui/NewProjectDialog.h"
#include "gui/ProgressDialog.h"
#include "gui/StatusBar.h"
#include "gui/SymbolSelection.h"
#include "gui/UserGuideWindow.h"
#include "gui/WelcomeDialog.h"
#include "view/CurveColors.h"
#include "view/GraphContainer.h"
#include "view/GraphWidget.h"
#include "view/TableWidget.h"
#include "view/ToolBar.h"
#include "view/TriggerWidget.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QResizeEvent>
#include <QDockWidget>
#include <QFileDialog>
#include <QLabel>
#include <QScreen>
#include <QThread>

#include <algorithm>

MainWindow::MainWindow(Controller& controller, std::vector<std::string> argv, QWidget* parent)
    : QMainWindow(parent), m_controller(controller), m_guiThread(std::this_thread::get_id())
{
    setWindowTitle(QString::fromStdString(product::fullName()));
    auto* placeholder = new QLabel(tr("No project open"), this);  // owned by the window
    placeholder->setAlignment(Qt::AlignCenter);
    setCentralWidget(placeholder);
    m_placeholder = placeholder;
    m_menuBar = new MenuBar(this, this);
    setMenuBar(m_menuBar);
    m_statusBar = new StatusBar(this);
    setStatusBar(m_statusBar);
    m_progressDialog = new ProgressDialog(this);
    // The View menu shows and hides the two docks.
    m_graphDock = addViewDock(tr("Graph window"), Qt::TopDockWidgetArea);
    m_watchDock = addViewDock(tr("Watch window"), Qt::BottomDockWidgetArea);
    setUpGraph();
    setUpTrigger();
    setUpWatchTable();
    // The View entries are ticked while their dock is shown.
    for (auto [dock, entry] : {std::pair{m_graphDock, MenuBar::kGraphWindow}, std::pair{m_watchDock, MenuBar::kWatchWindow}}) {
        QAction* action = m_menuBar->action(entry);
        action->setCheckable(true);
        action->setChecked(true);
        connect(dock->toggleViewAction(), &QAction::toggled, action, &QAction::setChecked);
    }
    m_menuBar->updateEnabling(false, false, false);
    resize(1024, 700);
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());

    connect(&m_timer, &QTimer::timeout, this, &MainWindow::_SlotOnTimeout);
    m_timer.start(1000);
    show();

    connect(this, &MainWindow::_SignalFinAsyncAppInit, this, &MainWindow::_SlotOnFinAsyncAppInit, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalUpdateGUI, this, &MainWindow::_SlotOnUpdateGUI);
    connect(this, &MainWindow::_SignalUpdateData, this, &MainWindow::_SlotOnUpdateData);
    connect(this, &MainWindow::_SignalNewProjectDialog, this, &MainWindow::_SlotOnNewProjectDialog, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalOptionsDialog, this, &MainWindow::_SlotOptionsDialog, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalShowSymbolSelection, this, &MainWindow::_SlotOnShowSymbolSelection, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalShowCustMsgBox, this, &MainWindow::_SlotOnShowCustMsgBox, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalUpdateProgBar, this, &MainWindow::_SlotOnUpdateProgBar, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalAssignColors, this, &MainWindow::_SlotOnAssignColors);
    connect(this, &MainWindow::_SignalReset, this, &MainWindow::_SlotOnReset);
    connect(this, &MainWindow::_SignalClose, this, &MainWindow::_SlotOnClose, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalShowFileDialogOpen, this, &MainWindow::_SlotOnShowFileDialogOpen, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalShowFileDialogSave, this, &MainWindow::_SlotOnShowFileDialogSave, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalUpdateSymbolSelection, this, &MainWindow::_SlotOnUpdateSymbolSelection);

    m_startArgs.argv = std::move(argv);
    m_controller.setBridge(this);
    m_controller.postInit(&m_startArgs, [this] { emit _SignalFinAsyncAppInit(); });
}

MainWindow::~MainWindow() { m_controller.setBridge(nullptr); }

// ---------------------------------------------------------------------------
// Bridge notifications

void MainWindow::setTitle(const std::string& title)
{
    {
        LockGuard lock(m_lock);
        m_title = title;
    }
    emit _SignalUpdateGUI();
}

void MainWindow::updateGui() { emit _SignalUpdateGUI(); }
void MainWindow::updateData() { emit _SignalUpdateData(); }
void MainWindow::reset() { emit _SignalReset(); }
void MainWindow::showSymbolSelection() { emit _SignalShowSymbolSelection(); }
void MainWindow::newProjectDialog() { emit _SignalNewProjectDialog(); }
void MainWindow::optionsDialog() { emit _SignalOptionsDialog(); }
void MainWindow::assignColors() { emit _SignalAssignColors(); }
void MainWindow::refreshRecentLists()
{
    {
        LockGuard lock(m_lock);
        for (int list = 0; list < 2; ++list) {
            m_recent[list].clear();
            const int n = std::min(RecentLists::instance().count(list), 10);
            for (int i = 0; i < n; ++i)
                m_recent[list].push_back(RecentLists::instance().entry(list, i));
        }
    }
    emit _SignalUpdateGUI();
}

std::vector<std::string> MainWindow::recentList(int list) const
{
    LockGuard lock(m_lock);
    return list == 0 || list == 1 ? m_recent[list] : std::vector<std::string>{};
}
void MainWindow::close() { emit _SignalClose(); }

void MainWindow::enableUpdates(bool on)
{
    QMetaObject::invokeMethod(
        this,
        [this, on] {
            setUpdatesEnabled(on);
            // Exposures that came while updates were off were dropped (the
            // closed progress dialog left its picture behind): paint it all now.
            if (on)
                repaint();
        },
        Qt::QueuedConnection);
}

// ---------------------------------------------------------------------------
// Bridge requests: shown at once on the interface thread, otherwise handed
// over and waited for.

MessageBoxAnswer MainWindow::messageBox(const MessageBoxRequest& request)
{
    if (onInterfaceThread())
        return runMessageBox(request);
    {
        LockGuard lock(m_lock);
        m_msgBox.request = request;
    }
    emit _SignalShowCustMsgBox();
    m_msgBox.done.wait();
    LockGuard lock(m_lock);
    return m_msgBox.answer;
}

std::string MainWindow::openFileDialog(const FileDialogRequest& request)
{
    if (onInterfaceThread())
        return runFileDialog(request, false);
    {
        LockGuard lock(m_lock);
        m_fileDialog.request = request;
    }
    emit _SignalShowFileDialogOpen();
    m_fileDialog.done.wait();
    LockGuard lock(m_lock);
    return m_fileDialog.path;
}

std::string MainWindow::saveFileDialog(const FileDialogRequest& request)
{
    if (onInterfaceThread())
        return runFileDialog(request, true);
    {
        LockGuard lock(m_lock);
        m_fileDialog.request = request;
    }
    emit _SignalShowFileDialogSave();
    m_fileDialog.done.wait();
    LockGuard lock(m_lock);
    return m_fileDialog.path;
}

int MainWindow::progress(int value, const std::string& text, int flags, int limit)
{
    if (onInterfaceThread())
        return m_progressDialog->apply(value, QString::fromStdString(text), flags, limit);
    {
        LockGuard lock(m_lock);
        m_progress.value = value;
        m_progress.text = text;
        m_progress.flags = flags;
        m_progress.limit = limit;
    }
    emit _SignalUpdateProgBar();
    m_progress.done.wait();
    LockGuard lock(m_lock);
    return m_progress.result;
}

MessageBoxAnswer MainWindow::runMessageBox(const MessageBoxRequest& r)
{
    return DIALOG_CustMsgBox::run(r, this);
}

std::string MainWindow::runFileDialog(const FileDialogRequest& r, bool save)
{
    const QString title = QString::fromStdString(r.title);
    const QString dir = QString::fromStdString(r.directory);
    const QString filter = QString::fromStdString(r.filter);
    const QString path = save ? QFileDialog::getSaveFileName(this, title, dir, filter)
                              : QFileDialog::getOpenFileName(this, title, dir, filter);
    return path.toStdString();
}

// ---------------------------------------------------------------------------
// Slots

void MainWindow::_SlotOnShowCustMsgBox()
{
    MessageBoxRequest request;
    {
        LockGuard lock(m_lock);
        request = m_msgBox.request;
    }
    const MessageBoxAnswer answer = runMessageBox(request);
    {
        LockGuard lock(m_lock);
        m_msgBox.answer = answer;
    }
    m_msgBox.done.set();
}

void MainWindow::_SlotOnShowFileDialogOpen()
{
    FileDialogRequest request;
    {
        LockGuard lock(m_lock);
        request = m_fileDialog.request;
    }
    const std::string path = runFileDialog(request, false);
    {
        LockGuard lock(m_lock);
        m_fileDialog.path = path;
    }
    m_fileDialog.done.set();
}

void MainWindow::_SlotOnShowFileDialogSave()
{
    FileDialogRequest request;
    {
        LockGuard lock(m_lock);
        request = m_fileDialog.request;
    }
    const std::string path = runFileDialog(request, true);
    {
        LockGuard lock(m_lock);
        m_fileDialog.path = path;
    }
    m_fileDialog.done.set();
}

void MainWindow::_SlotOnUpdateProgBar()
{
    int value = 0, flags = 0, limit = 0;
    QString text;
    {
        LockGuard lock(m_lock);
        value = m_progress.value;
        flags = m_progress.flags;
        limit = m_progress.limit;
        text = QString::fromStdString(m_progress.text);
    }
    const int result = m_progressDialog->apply(value, text, flags, limit);
    {
        LockGuard lock(m_lock);
        m_progress.result = result;
    }
    m_progress.done.set();
}

void MainWindow::_SlotOnFinAsyncAppInit()
{
    if (m_startArgs.exitNow) {
        QMainWindow::close();
    } else if (m_startArgs.showWelcomeDialog) {
        WelcomeDialog welcome(m_controller, recentList(1), this);
        m_startArgs.startMode = welcome.exec();
    } else if (m_startArgs.showNewProjectDialog) {
        _SlotOnNewProjectDialog();
    }
}

void MainWindow::_SlotOnUpdateGUI()
{
    {
        LockGuard lock(m_lock);
        if (!m_title.empty())
            setWindowTitle(QString::fromStdString(m_title));
    }
    const bool projectOpen = m_controller.project().isOpen();
    m_menuBar->updateEnabling(m_controller.samplingRunning(), projectOpen, !m_controller.symbols().selected().empty());
    // With a project open the graph and the table share the whole window.
    m_placeholder->setVisible(!projectOpen);
    m_toolBar->updateDisplayState();
    refreshTrigger();
    if (!m_controller.samplingRunning())
        m_graph->refresh();
    refreshStatusBar();
    emit _SignalUpdateTable();
    // The table has its rows for the selection now.
    if (m_watchTable->rowCount() != m_fittedRows)
        QTimer::singleShot(0, this, &MainWindow::fitDocks);
}

void MainWindow::_SlotOnUpdateData()
{
    if (!m_controller.displayPaused())
        m_graph->graph()->requestUpdate();
    else if (!m_controller.samplingRunning())
        m_graph->refresh();
    refreshStatusBar();
    emit _SignalUpdateTable();
}

void MainWindow::refreshStatusBar()
{
    m_statusBar->setFrameRate(m_controller.graphRefreshTarget(), m_controller.measuredFrameRate());
    m_statusBar->setBuffer(m_controller.symbols().selected().size(), m_controller.store().recordCount(),
                           m_controller.store().hasWrapped());
    m_statusBar->setSampleRate(m_controller.sampleRate());
}

// ---------------------------------------------------------------------------
// The graph and the tool bar

void MainWindow::setUpGraph()
{
    m_graph = new GraphContainer(m_controller.store(), m_controller.symbols(), m_graphDock);  // owned by the dock
    delete m_graphDock->widget();  // the placeholder
    m_graphDock->setWidget(m_graph);
    m_graph->setMinimumHeight(260);
    m_toolBar = new ToolBar(m_controller, m_graph, this);  // owned by the window
    addToolBar(Qt::TopToolBarArea, m_toolBar);
    connect(this, &MainWindow::_SignalUpdateGraph, this, &MainWindow::_SlotOnUpdateGraph);
    connect(m_toolBar, &ToolBar::_SignalRefreshViews, this, &MainWindow::_SignalUpdateGraph);
    connect(m_toolBar, &ToolBar::_SignalRefreshViews, this, &MainWindow::_SignalUpdateTable);
    // The watch table shows the values under the cursor.
    connect(m_graph->graph(), &GraphWidget::CursorChanged, this, &MainWindow::_SignalUpdateTable);
    connect(m_graph->graph(), &GraphWidget::SymbolSettingsEdited, this, [this] {
        m_controller.markModified();
        emit _SignalUpdateTable();
    });
    connect(m_graph->graph(), &GraphWidget::FrameRateMeasured, this,
            [this](int fps) { m_controller.setMeasuredFrameRate(fps); });
}

// The trigger controls sit right of the tool bar, in the same row.
void MainWindow::setUpTrigger()
{
    m_trigger = new TriggerWidget(m_controller, this);  // owned by the window
    addToolBar(Qt::TopToolBarArea, m_trigger);
}

void MainWindow::refreshTrigger()
{
    m_trigger->rebuild();
    m_trigger->updateEnabling();
}

// A display setting changed: repaint now, whatever the frame-rate limit.
void MainWindow::_SlotOnUpdateGraph()
{
    m_graph->graph()->invalidate();
}

QDockWidget* MainWindow::addViewDock(const QString& title, Qt::DockWidgetArea area)
{
    auto* dock = new QDockWidget(title, this);  // owned by the window
    dock->setObjectName(title);
    auto* label = new QLabel(title, dock);  // owned by the dock
    label->setAlignment(Qt::AlignCenter);
    label->setMinimumHeight(180);
    label->setFrameShape(QFrame::StyledPanel);
    dock->setWidget(label);
    addDockWidget(area, dock);
    return dock;
}

void MainWindow::_SlotOnNewProjectDialog()
{
    NewProjectDialog dialog(m_controller, this);
    dialog.exec();
}

// The options are the open project's settings in the new project dialog.
void MainWindow::_SlotOptionsDialog()
{
    if (!m_controller.project().isOpen())
        return;
    NewProjectDialog dialog(m_controller, this, m_controller.project().settings());
    dialog.exec();
}

void MainWindow::_SlotOnShowSymbolSelection()
{
    SymbolSelection::request(m_controller, this, this, [this] {
        emit _SignalUpdateSymbolSelection();
        emit _SignalUpdateGUI();
    });
}

void MainWindow::_SlotOnUpdateSymbolSelection() {}
void MainWindow::_SlotOnClose() { QMainWindow::close(); }

// ---------------------------------------------------------------------------
// The watch table

void MainWindow::setUpWatchTable()
{
    m_watchTable = new TableWidget(m_controller, m_watchDock);  // owned by the dock
    delete m_watchDock->widget();  // the placeholder
    m_watchDock->setWidget(m_watchTable);
    // "+" asks for the symbol selection the same way the worker does.
    connect(m_watchTable, &TableWidget::_SignalShowSymbolSelection, this, &MainWindow::_SignalShowSymbolSelection);
    connect(m_watchTable, &TableWidget::_SignalUpdateViews, this, &MainWindow::_SignalUpdateGraph);
    // Removing the trigger's symbol from the table clears the trigger.
    connect(m_watchTable, &TableWidget::_SignalUpdateViews, this, &MainWindow::refreshTrigger);
    connect(this, &MainWindow::_SignalUpdateTable, m_watchTable, &TableWidget::_SlotOnUpdateTable);
    // The Value column reads the sample under the graph's cursor.
    if (m_graph) {
        const GraphWidget* graph = m_graph->graph();
        m_watchTable->setCursorRecordProvider([graph] { return graph->sampleAtCursor(); });
    }
    // A new selection gets its colours and its rows.
    connect(this, &MainWindow::_SignalUpdateSymbolSelection, this, &MainWindow::_SlotOnAssignColors);
}

void MainWindow::_SlotOnAssignColors()
{
    curvecolors::assign(m_controller.symbols().selected());
    emit _SignalUpdateTable();
    emit _SignalUpdateGraph();
}

void MainWindow::_SlotOnReset()
{
    m_watchTable->rebuild();
    refreshTrigger();
}

// An ELF re-parse replaces the selected records and frees the old ones: the
// table lets go of them first, with the worker waiting, and takes the new
// ones afterwards.
void MainWindow::symbolsAboutToChange()
{
    if (onInterfaceThread())
        m_watchTable->detachSymbols();
    else
        QMetaObject::invokeMethod(m_watchTable, &TableWidget::detachSymbols, Qt::BlockingQueuedConnection);
}

void MainWindow::symbolsChanged()
{
    QMetaObject::invokeMethod(this, [this] {
        m_watchTable->attachSymbols();
        _SlotOnAssignColors();
        refreshTrigger();
    }, Qt::QueuedConnection);
}

// ---------------------------------------------------------------------------
// Menu entries

void MainWindow::_OnActionNewProject() { _SlotOnNewProjectDialog(); }

void MainWindow::_OnActionOpenProject()
{
    FileDialogRequest r;
    r.title = "Open Plotvik Project";
    r.filter = "Plotvik Project (*.plotvik)";
    r.directory = Settings::instance().projectFilesDir();
    const std::string path = runFileDialog(r, false);
    if (!path.empty())
        m_controller.postOpenProjFile(path, nullptr, {});
}

// Ctrl+S belongs to this entry: a project without a file yet is saved as.
void MainWindow::_OnActionSaveProject()
{
    if (m_controller.project().hasFileName())
        m_controller.postSaveProject();
    else
        m_controller.postSaveProjectAs();
}
void MainWindow::_OnActionSaveProjectAs() { m_controller.postSaveProjectAs(); }

void MainWindow::_OnActionExportData() { ExportCsvCommand(m_controller); }
void MainWindow::_OnActionExportRaw() { ExportRawCommand(m_controller); }

void MainWindow::_OnActionImportRaw()
{
    FileDialogRequest r;
    r.title = "Import Raw Data";
    r.filter = "Plotvik raw data (*.praw)";
    r.directory = Settings::instance().dataFilesDir();
    const std::string path = runFileDialog(r, false);
    if (!path.empty())
        m_controller.postImportRaw(path);
}

void MainWindow::_OnActionExit() { QMainWindow::close(); }

// The View entries show their dock; closing the dock is how it goes away.
void MainWindow::_OnActionGraphWindow()
{
    m_graphDock->show();
    m_graphDock->raise();
    m_menuBar->action(MenuBar::kGraphWindow)->setChecked(true);
}

void MainWindow::_OnActionWatchWindow()
{
    m_watchDock->show();
    m_watchDock->raise();
    m_menuBar->action(MenuBar::kWatchWindow)->setChecked(true);
}

void MainWindow::_OnActionOptions() { _SlotOptionsDialog(); }

void MainWindow::_OnActionUserGuide() { showUserGuide(QString::fromStdString(installpaths::guideFile())); }

bool MainWindow::showUserGuide(const QString& indexFile)
{
    if (!m_guide)
        m_guide = new UserGuideWindow(this);
    if (!m_guide->showGuide(indexFile)) {
        report::error(text::format(1024, "Failed to open Plotvik User Guide at:\n\"%s\"", indexFile.toStdString().c_str()));
        return false;
    }
    return true;
}

void MainWindow::_OnActionAbout()
{
    MessageBoxRequest r;
    r.caption = "About " + std::string(product::kName);
    r.text = product::fullName() + "\n\nWatches the variables of a running microcontroller program live.\n" +
             "Built with Qt " + qVersion() + ".";
    r.button0 = "OK";
    r.icon = kIconInformation;
    runMessageBox(r);
}

void MainWindow::_SlotOnTimeout()
{
    LockGuard lock(m_lock);
    if (!m_controller.samplingRunning() && !m_controller.elfParsing() && !m_controller.elfCheckPending()) {
        m_controller.setElfCheckPending(true);
        m_controller.postCheckElfModifications();
    }
}

void MainWindow::resizeEvent(QResizeEvent* event)
{
    QMainWindow::resizeEvent(event);
    // The docks have their new sizes once the layout ran.
    QTimer::singleShot(0, this, &MainWindow::fitDocks);
}

void MainWindow::fitDocks()
{
    if (!m_graphDock->isVisible() || !m_watchDock->isVisible() || m_graphDock->isFloating() ||
        m_watchDock->isFloating() || dockWidgetArea(m_graphDock) == dockWidgetArea(m_watchDock))
        return;
    m_fittedRows = m_watchTable->rowCount();
    const int total = m_graphDock->height() + m_watchDock->height();
    const int graphLeast = m_graphDock->minimumSizeHint().height();
    const int tableChrome = m_watchDock->height() - m_watchTable->height();
    const int tableWanted = m_watchTable->heightForAllRows() + tableChrome;
    const int table = std::max(std::min(tableWanted, total - graphLeast), 0);
    resizeDocks({m_graphDock, m_watchDock}, {total - table, table}, Qt::Vertical);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_closing) {
        event->accept();
        return;
    }
    m_controller.setExitState(kExitPending);
    if (m_controller.postExit() != 0)
        m_controller.setExitState(kExitAllowed);
    while (m_controller.exitState() == kExitPending) {
        QApplication::processEvents();
        QThread::msleep(10);
    }
    if (m_controller.exitState() == kExitNone) {
        event->ignore();
        return;
    }
    m_timer.stop();
    m_controller.engine().stopAndWait([] { QApplication::processEvents(); });
    m_closing = true;
    event->accept();
    QApplication::exit(0);
}
