// The main window's tool bar: sampling start/pause and stop, target run/halt
// and reset, the zoom (time per division) and target frame-rate boxes, and
// "Autoscroll". It posts the application's jobs, sets up the graph, and
// mirrors the sampling state by enabling its actions.
#pragma once

#include <QIcon>
#include <QToolBar>

class Controller;
class GraphContainer;
class QAction;
class QCheckBox;
class QComboBox;

class ToolBar : public QToolBar {
    Q_OBJECT

public:
    enum DisplayState {
        kStateNone = 0,
        kStateNoProject = 1,
        kStateProjectWithoutSymbols = 2,
        kStateReady = 3,
        kStateSampling = 4,
        kStatePaused = 5,
        kStateStopped = 6,
    };

    static constexpr int kFrameRates[] = {1, 2, 5, 10, 15, 20, 25, 30, 40, 50, 60};
    static constexpr int kDefaultFrameRateIndex = 7;

    ToolBar(Controller& controller, GraphContainer* graph, QWidget* parent = nullptr);

    // The graph view calls this whenever the user moves the view.
    void setAutoscrollChecked(bool on);
    // Picks the display state from the controller and applies it; sets the
    // target action's icon from the target's run state.
    void updateDisplayState();
    void applyDisplayState(DisplayState state);
    // Selects the zoom entry nearest to the open project's time per division.
    void followProjectTimeResolution();
    DisplayState displayState() const { return m_state; }
    bool samplingRunning() const { return m_running; }

    QAction* startPauseAction() const { return m_startPause; }
    QAction* stopAction() const { return m_stop; }
    QAction* targetAction() const { return m_target; }
    QAction* resetAction() const { return m_reset; }
    QAction* zoomInAction() const { return m_zoomIn; }
    QAction* zoomOutAction() const { return m_zoomOut; }
    QComboBox* zoomBox() const { return m_zoomBox; }
    QComboBox* frameRateBox() const { return m_fpsBox; }
    QCheckBox* autoscrollBox() const { return m_autoscroll; }

signals:
    // A setting changed that the graph and the watch table must show.
    void _SignalRefreshViews();

public slots:
    void _OnActionPauseStartSampling();
    void _OnActionStopSampling();
    void _OnActionZoomIn();
    void _OnActionZoomOut();
    void _OnActionStartStopTarget();
    void _OnActionResetTarget();
    void _OnZoomCurrentIndexChanged(int index);
    void _OnFPSCurrentIndexChanged(int index);
    void _OnCheckedAutoscroll(int state);

private:
    QAction* addButton(const QIcon& icon, const QString& text, const QString& tip, void (ToolBar::*slot)());
    void showTargetStart(bool start);
    void holdGraph(bool on);

    Controller& m_controller;
    GraphContainer* m_graph;  // not owned: the main window's graph view
    DisplayState m_state = kStateNone;
    bool m_running = false;
    bool m_controllerSampling = false;  // the controller's state at the last re-evaluation

    QIcon m_startIcon, m_pauseIcon, m_targetStartIcon, m_targetStopIcon;
    QAction* m_startPause = nullptr;  // owned by the tool bar
    QAction* m_stop = nullptr;        // owned by the tool bar
    QAction* m_target = nullptr;      // owned by the tool bar
    QAction* m_reset = nullptr;       // owned by the tool bar
    QAction* m_zoomIn = nullptr;      // owned by the tool bar
    QAction* m_zoomOut = nullptr;     // owned by the tool bar
    QComboBox* m_zoomBox = nullptr;   // owned by the tool bar
    QComboBox* m_fpsBox = nullptr;    // owned by the tool bar
    QCheckBox* m_autoscroll = nullptr;  // owned by the tool bar
};
