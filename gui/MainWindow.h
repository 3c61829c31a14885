// The one top-level window, and the bridge between the worker and the
// interface thread: worker requests are stored under the window lock and
// carried to the interface thread by queued signals.
#pragma once

#include "app/CommandLine.h"
#include "base/Bridge.h"
#include "base/Lock.h"

#include <QMainWindow>
#include <QTimer>

#include <array>
#include <memory>
#include <thread>
#include <vector>

class Controller;
class GraphContainer;
class MenuBar;
class ProgressDialog;
class QDockWidget;
class StatusBar;
class ToolBar;
class TableWidget;
class TriggerWidget;
class UserGuideWindow;

class MainWindow : public QMainWindow, public Bridge {
    Q_OBJECT

public:
    MainWindow(Controller& controller, std::vector<std::string> argv, QWidget* parent = nullptr);
    ~MainWindow() override;

    // Bridge
    void setTitle(const std::string& title) override;
    void updateGui() override;
    void updateData() override;
    void reset() override;
    void showSymbolSelection() override;
    void newProjectDialog() override;
    void optionsDialog() override;
    void assignColors() override;
    void enableUpdates(bool on) override;
    void refreshRecentLists() override;
    void close() override;
    void symbolsAboutToChange() override;
    void symbolsChanged() override;
    MessageBoxAnswer messageBox(const MessageBoxRequest& request) override;
    std::string openFileDialog(const FileDialogRequest& request) override;
    std::string saveFileDialog(const FileDialogRequest& request) override;
    int progress(int value, const std::string& text, int flags, int limit) override;

    const StartArgs& startArgs() const { return m_startArgs; }
    MenuBar* menus() const { return m_menuBar; }
    StatusBar* statusBarWidget() const { return m_statusBar; }
    ProgressDialog* progressDialog() const { return m_progressDialog; }
    QDockWidget* graphDock() const { return m_graphDock; }
    QDockWidget* watchDock() const { return m_watchDock; }
    // The graph view (for the value at its cursor) and the tool bar.
    GraphContainer* graph() const { return m_graph; }
    ToolBar* toolBar() const { return m_toolBar; }
    TriggerWidget* triggerWidget() const { return m_trigger; }
    TableWidget* watchTable() const { return m_watchTable; }
    // Help › Plotvik User Guide on `indexFile`, the guide's first page; says
    // so and answers false when it is not there.
    bool showUserGuide(const QString& indexFile);
    UserGuideWindow* userGuideWindow() const { return m_guide; }
    // Copies of the recent lists (list 1 = projects; list 0 stays empty).
    std::vector<std::string> recentList(int list) const;

signals:
    void _SignalFinAsyncAppInit();
    void _SignalUpdateGUI();
    void _SignalUpdateData();
    void _SignalUpdateGraph();
    void _SignalUpdateTable();
    void _SignalNewProjectDialog();
    void _SignalOptionsDialog();
    void _SignalShowSymbolSelection();
    void _SignalShowCustMsgBox();
    void _SignalUpdateProgBar();
    void _SignalGetSaveFileName();
    void _SignalAssignColors();
    void _SignalReset();
    void _SignalClose();
    void _SignalShowFileDialogOpen();
    void _SignalShowFileDialogSave();
    void _SignalUpdateSymbolSelection();

protected:
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private slots:
    void _SlotOnFinAsyncAppInit();
    void _SlotOnUpdateGUI();
    void _SlotOnUpdateData();
    void _SlotOnUpdateGraph();
    void _SlotOnNewProjectDialog();
    void _SlotOptionsDialog();
    void _SlotOnShowSymbolSelection();
    void _SlotOnShowCustMsgBox();
    void _SlotOnUpdateProgBar();
    void _SlotOnAssignColors();
    void _SlotOnReset();
    void _SlotOnClose();
    void _SlotOnShowFileDialogOpen();
    void _SlotOnShowFileDialogSave();
    void _SlotOnUpdateSymbolSelection();
    void _SlotOnTimeout();

    // Menu entries (MenuBar's table names them).
    void _OnActionNewProject();
    void _OnActionOpenProject();
    void _OnActionSaveProject();
    void _OnActionSaveProjectAs();
    void _OnActionExportData();
    void _OnActionExportRaw();
    void _OnActionImportRaw();
    void _OnActionExit();
    void _OnActionGraphWindow();
    void _OnActionWatchWindow();
    void _OnActionOptions();
    void _OnActionUserGuide();
    void _OnActionAbout();

private:
    bool onInterfaceThread() const { return std::this_thread::get_id() == m_guiThread; }
    MessageBoxAnswer runMessageBox(const MessageBoxRequest& request);
    std::string runFileDialog(const FileDialogRequest& request, bool save);
    QDockWidget* addViewDock(const QString& title, Qt::DockWidgetArea area);
    // Shares the height between the docks: the table as much as its rows
    // need, the graph the rest and every gain.
    void fitDocks();
    void refreshStatusBar();
    void setUpGraph();
    void setUpWatchTable();
    void setUpTrigger();
    void refreshTrigger();

    Controller& m_controller;
    std::thread::id m_guiThread;
    mutable LockObject m_lock;
    StartArgs m_startArgs;
    std::string m_title;
    QTimer m_timer;
    bool m_closing = false;
    int m_fittedRows = -1;  // table rows at the last fitDocks()
    MenuBar* m_menuBar = nullptr;                // owned by the window
    StatusBar* m_statusBar = nullptr;            // owned by the window
    ProgressDialog* m_progressDialog = nullptr;  // owned by the window
    QWidget* m_placeholder = nullptr;            // owned by the window; shown while no project is open
    QDockWidget* m_graphDock = nullptr;          // owned by the window
    QDockWidget* m_watchDock = nullptr;          // owned by the window
    GraphContainer* m_graph = nullptr;           // owned by the graph dock
    ToolBar* m_toolBar = nullptr;                // owned by the window
    TriggerWidget* m_trigger = nullptr;          // owned by the window
    TableWidget* m_watchTable = nullptr;         // owned by the watch dock
    UserGuideWindow* m_guide = nullptr;          // owned by the window; made when first asked for
    std::array<std::vector<std::string>, 2> m_recent;  // guarded by m_lock

    // Parameter blocks of the synchronous requests.
    struct {
        MessageBoxRequest request;
        MessageBoxAnswer answer;
        Event done;
    } m_msgBox;
    struct {
        FileDialogRequest request;
        std::string path;
        Event done;
    } m_fileDialog;
    struct {
        int value = 0, flags = 0, limit = 0, result = 0;
        std::string text;
        Event done;
    } m_progress;
};
