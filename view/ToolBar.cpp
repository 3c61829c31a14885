#include "view/ToolBar.h"

#include "app/Controller.h"
#include "view/GraphContainer.h"
#include "view/GraphWidget.h"
#include "view/Scale.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QStyle>

namespace {

// A magnifying glass with "+" or "-": the style has no zoom icons.
QIcon magnifierIcon(bool plus, const QColor& ink)
{
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing, true);
    p.setPen(QPen(ink, 3, Qt::SolidLine, Qt::RoundCap));
    p.drawEllipse(QPointF(13, 13), 9, 9);
    p.drawLine(QPointF(20, 20), QPointF(29, 29));
    p.setPen(QPen(ink, 2.5, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(QPointF(8.5, 13), QPointF(17.5, 13));
    if (plus)
        p.drawLine(QPointF(13, 8.5), QPointF(13, 17.5));
    return QIcon(pixmap);
}

}  // namespace

ToolBar::ToolBar(Controller& controller, GraphContainer* graph, QWidget* parent)
    : QToolBar(tr("Tool bar"), parent), m_controller(controller), m_graph(graph)
{
    setObjectName("ToolBar");
    setMovable(false);
    const QStyle* s = style();
    m_startIcon = s->standardIcon(QStyle::SP_MediaPlay);
    m_pauseIcon = s->standardIcon(QStyle::SP_MediaPause);
    m_targetStartIcon = s->standardIcon(QStyle::SP_MediaSeekForward);
    m_targetStopIcon = s->standardIcon(QStyle::SP_BrowserStop);
    const QColor ink = palette().color(QPalette::WindowText);

    addWidget(new QLabel(tr("Sampling:"), this));
    m_startPause = addButton(m_startIcon, tr("Start/Pause Sampling"), "Start/Resume Sampling (F5)",
                             &ToolBar::_OnActionPauseStartSampling);
    m_startPause->setShortcut(Qt::Key_F5);
    m_stop = addButton(s->standardIcon(QStyle::SP_MediaStop), tr("Stop Sampling"), "Stop Sampling (F9)",
                       &ToolBar::_OnActionStopSampling);
    m_stop->setShortcut(Qt::Key_F9);
    addSeparator();
    addWidget(new QLabel(tr("Target:"), this));
    m_target = addButton(m_targetStartIcon, "Start Target", "Start Target", &ToolBar::_OnActionStartStopTarget);
    m_reset = addButton(s->standardIcon(QStyle::SP_BrowserReload), "Reset Target", "Reset Target",
                        &ToolBar::_OnActionResetTarget);
    auto* spacer = new QWidget(this);  // owned by the tool bar
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    addWidget(spacer);
    m_zoomIn = addButton(magnifierIcon(true, ink), "Zoom In", "Zoom In", &ToolBar::_OnActionZoomIn);
    m_zoomIn->setShortcut(Qt::Key_Up);
    m_zoomOut = addButton(magnifierIcon(false, ink), "Zoom Out", "Zoom Out", &ToolBar::_OnActionZoomOut);
    m_zoomOut->setShortcut(Qt::Key_Down);

    m_zoomBox = new QComboBox(this);
    m_zoomBox->setFocusPolicy(Qt::NoFocus);
    for (const std::uint32_t us : scale::kTimePerDivision)
        m_zoomBox->addItem(scale::timePerDivisionText(us), QVariant::fromValue<uint>(us));
    m_zoomBox->setCurrentIndex(scale::kDefaultTimePerDivisionIndex);
    addWidget(m_zoomBox);
    addSeparator();
    addWidget(new QLabel(tr("Target FPS: "), this));
    m_fpsBox = new QComboBox(this);
    m_fpsBox->setFocusPolicy(Qt::NoFocus);
    for (const int fps : kFrameRates)
        m_fpsBox->addItem(QString::number(fps), fps);
    m_fpsBox->setCurrentIndex(kDefaultFrameRateIndex);
    addWidget(m_fpsBox);
    addSeparator();
    m_autoscroll = new QCheckBox(tr("Autoscroll"), this);
    addWidget(m_autoscroll);

    m_controller.setGraphRefreshTarget(kFrameRates[kDefaultFrameRateIndex]);
    if (m_graph) {
        m_graph->graph()->setTargetFps(kFrameRates[kDefaultFrameRateIndex]);
        m_graph->graph()->setTimePerDivision(scale::kTimePerDivision[scale::kDefaultTimePerDivisionIndex]);
        connect(m_graph->graph(), &GraphWidget::AutoscrollSwitchedOff, this, [this] { setAutoscrollChecked(false); });
        connect(m_graph->graph(), &GraphWidget::ZoomStepRequested, this,
                [this](int step) { step < 0 ? _OnActionZoomIn() : _OnActionZoomOut(); });
    }
    connect(m_zoomBox, &QComboBox::currentIndexChanged, this, &ToolBar::_OnZoomCurrentIndexChanged);
    connect(m_fpsBox, &QComboBox::currentIndexChanged, this, &ToolBar::_OnFPSCurrentIndexChanged);
    connect(m_autoscroll, &QCheckBox::stateChanged, this, &ToolBar::_OnCheckedAutoscroll);

    // Not sampling yet: the graph shows what the store holds, with its scroll bar.
    holdGraph(true);
    updateDisplayState();
}

QAction* ToolBar::addButton(const QIcon& icon, const QString& text, const QString& tip, void (ToolBar::*slot)())
{
    QAction* action = addAction(icon, text);
    action->setToolTip(tip);
    connect(action, &QAction::triggered, this, slot);
    return action;
}

void ToolBar::holdGraph(bool on)
{
    if (m_graph)
        m_graph->setHeld(on);
}

void ToolBar::showTargetStart(bool start)
{
    m_target->setIcon(start ? m_targetStartIcon : m_targetStopIcon);
    m_target->setText(start ? "Start Target" : "Stop Target");
    m_target->setToolTip(start ? "Start Target" : "Stop Target");
}

void ToolBar::setAutoscrollChecked(bool on) { m_autoscroll->setChecked(on); }

// ---------------------------------------------------------------------------
// Display states

void ToolBar::applyDisplayState(DisplayState state)
{
    if (state == m_state)
        return;
    m_state = state;
    const auto zoom = [this](bool on) {
        m_zoomIn->setEnabled(on);
        m_zoomOut->setEnabled(on);
    };
    const auto target = [this](bool on) {
        m_target->setEnabled(on);
        m_reset->setEnabled(on);
    };
    const auto startIcon = [this] {
        m_startPause->setIcon(m_startIcon);
        m_startPause->setToolTip("Start Sampling (F5)");
    };
    switch (state) {
    case kStateNone: break;
    case kStateNoProject:
        m_startPause->setEnabled(false);
        m_stop->setEnabled(false);
        zoom(false);
        target(false);
        break;
    case kStateProjectWithoutSymbols:
        m_startPause->setEnabled(false);
        zoom(true);
        break;
    case kStateReady:
        m_startPause->setEnabled(true);
        startIcon();
        m_stop->setEnabled(false);
        zoom(true);
        break;
    case kStateSampling:
        m_startPause->setEnabled(true);
        m_startPause->setIcon(m_pauseIcon);
        m_startPause->setToolTip("Pause Sampling");
        m_stop->setEnabled(true);
        zoom(true);
        target(true);
        break;
    case kStatePaused:
        m_startPause->setEnabled(true);
        startIcon();
        m_stop->setEnabled(true);
        zoom(true);
        target(true);
        break;
    case kStateStopped:
        m_startPause->setEnabled(true);
        startIcon();
        m_stop->setEnabled(false);
        zoom(true);
        target(true);
        break;
    }
}

void ToolBar::updateDisplayState()
{
    const bool sampling = m_controller.samplingRunning();
    if (m_controllerSampling && !sampling) {
        // Sampling ended without the tool bar (a read error, exit): hold the
        // picture as Stop does.
        m_running = false;
        holdGraph(true);
    }
    m_controllerSampling = sampling;

    DisplayState state;
    if (m_controller.symbols().selected().empty())
        state = m_controller.project().isOpen() ? kStateProjectWithoutSymbols : kStateNoProject;
    else if (!sampling)
        state = kStateReady;
    else if (m_controller.displayPaused())
        state = kStatePaused;
    else
        state = kStateSampling;
    applyDisplayState(state);
    showTargetStart(!m_controller.probeConnected() || m_controller.targetHalted());
    followProjectTimeResolution();
}

// The zoom box writes the project's time per division, so the box differs
// from it only when a project was opened or created: then the box follows.
void ToolBar::followProjectTimeResolution()
{
    if (!m_controller.project().isOpen())
        return;
    const std::uint32_t us = m_controller.project().settings().TimeResolutionUs;
    if (us == 0 || us == m_zoomBox->currentData().toUInt())
        return;
    m_zoomBox->setCurrentIndex(scale::nearestTimePerDivisionIndex(us));
    // An entry between two of the series is saved as the one shown.
    m_controller.project().setTimeResolution(m_zoomBox->currentData().toUInt());
}

// ---------------------------------------------------------------------------
// Actions

void ToolBar::_OnActionPauseStartSampling()
{
    if (m_running) {
        applyDisplayState(kStatePaused);
        holdGraph(true);
        m_controller.postReadPause();
        m_running = false;
        return;
    }
    holdGraph(false);
    if (m_controller.project().settings().IsQTXWithTimeStamp)
        setAutoscrollChecked(true);
    m_controller.postStartReading();
    m_running = true;
}

void ToolBar::_OnActionStopSampling()
{
    applyDisplayState(kStateStopped);
    holdGraph(true);
    m_running = false;
    m_controller.postReadStop();
}

void ToolBar::_OnActionZoomIn()
{
    if (m_zoomBox->currentIndex() > 0)
        m_zoomBox->setCurrentIndex(m_zoomBox->currentIndex() - 1);
}

void ToolBar::_OnActionZoomOut()
{
    if (m_zoomBox->currentIndex() + 1 < m_zoomBox->count())
        m_zoomBox->setCurrentIndex(m_zoomBox->currentIndex() + 1);
}

void ToolBar::_OnActionStartStopTarget()
{
    if (!m_controller.targetHalted()) {
        showTargetStart(true);
        m_controller.haltTarget();
    } else {
        showTargetStart(false);
        m_controller.runTarget();
    }
}

void ToolBar::_OnActionResetTarget()
{
    showTargetStart(true);
    m_controller.resetTarget();
}

void ToolBar::_OnZoomCurrentIndexChanged(int index)
{
    if (index < 0)
        return;
    const std::uint32_t us = m_zoomBox->itemData(index).toUInt();
    if (m_graph) {
        m_graph->graph()->setTimePerDivision(us);
        m_graph->refresh();
    }
    if (m_controller.project().isOpen())
        m_controller.project().setTimeResolution(us);
    emit _SignalRefreshViews();
}

void ToolBar::_OnFPSCurrentIndexChanged(int index)
{
    if (index < 0)
        return;
    const int fps = m_fpsBox->itemData(index).toInt();
    m_controller.setGraphRefreshTarget(fps);
    if (m_graph)
        m_graph->graph()->setTargetFps(fps);
    emit _SignalRefreshViews();
}

void ToolBar::_OnCheckedAutoscroll(int state)
{
    if (m_graph)
        m_graph->graph()->setAutoscroll(state != Qt::Unchecked);
}
