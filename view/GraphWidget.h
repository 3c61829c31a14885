// The drawing surface of the graph: grid, axes, one curve per shown symbol,
// the cursor with its readout, zero markers that drag a curve's offset, time
// navigation and zoom around the cursor. The grid, axes and curves are drawn
// into a cached layer; cursor and markers go on top, so moving the cursor
// does not walk the samples again.
#pragma once

#include "view/CurveRenderer.h"
#include "view/GraphGeometry.h"

#include <QImage>
#include <QTimer>
#include <QWidget>

#include <cstdint>
#include <optional>
#include <vector>

class QAction;
class SampleStore;
class SymbolDatabase;
struct Node;

class GraphWidget : public QWidget {
    Q_OBJECT

public:
    GraphWidget(SampleStore& store, SymbolDatabase& symbols, QWidget* parent = nullptr);

    GraphGeometry grid() const { return GraphGeometry::of(width(), height()); }
    double startTime() const { return m_startTime; }
    double timePerDivision() const { return m_timePerDivision; }
    double visibleSpan() const { return grid().divisionsX * m_timePerDivision; }
    int cursorX() const { return m_cursorX; }
    int cursorSampleIndex() const { return m_cursorSampleIndex; }
    bool autoscroll() const { return m_autoscroll; }
    bool isHeld() const { return m_held; }
    int targetFps() const { return m_targetFps; }
    int measuredFps() const { return m_measuredFps; }

    // Zoom: the new time per division in microseconds, centred on the cursor.
    void setTimePerDivision(double microseconds);
    void setAutoscroll(bool on);
    // From the scroll bar: switches autoscroll off.
    void setStartTime(double microseconds);
    void setCursorX(int x);
    void setTargetFps(int fps);

    // Held: the picture stays on the records stored when it was held (pause,
    // stop) and live repaint requests are ignored. Releasing follows the store
    // again.
    void setHeld(bool on);
    // The store changed outside sampling (import, stop): take its new extent.
    void refresh();
    // A repaint request from the sampling side, limited to the target frame rate.
    void requestUpdate();
    // Forget the cached curves (display settings or data changed).
    void invalidate();

    // Records the graph shows and the newest time stamp among them.
    std::uint32_t recordCount() const;
    std::uint32_t newestTimeStamp() const;
    std::uint64_t cursorTime() const;
    QString cursorTimeText() const;
    // Chronological index of the sample under the cursor, if any.
    std::optional<std::uint32_t> sampleAtCursor() const;
    // The cursor's value of `symbol`, as the graph reads it; none when there
    // is no sample under the cursor or the symbol has none there.
    std::optional<double> valueAtCursor(const Node& symbol) const;
    // One line per active symbol: "name: value"; empty with no sample under the cursor.
    QString readoutText() const;

    void setCurveMode(CurveRenderer::Mode mode);
    CurveRenderer::Mode curveMode() const { return m_curves.mode(); }
    // Paints one whole frame (what paintEvent shows) into `painter`.
    void paintFrame(QPainter& painter);

    QAction* moveRightAction() const { return m_right; }
    QAction* moveLeftAction() const { return m_left; }
    QAction* moveToStartAction() const { return m_start; }
    QAction* moveToEndAction() const { return m_end; }

signals:
    void UpdateRequest();
    // The cursor moved or its time changed: the label and the watch table follow.
    void CursorChanged();
    // The user moved the view, which switched autoscroll off.
    void AutoscrollSwitchedOff();
    // The start time changed (scroll bar position).
    void StartTimeChanged(double startTime);
    // Mouse wheel: -1 zooms in, +1 zooms out (one entry of the tool bar's list).
    void ZoomStepRequested(int step);
    void FrameRateMeasured(int fps);
    // A zero marker was dragged: the symbol's Y offset changed.
    void SymbolSettingsEdited();

public slots:
    void _UpdateScreen();
    void _OnTriggeredMoveGraphToRight();
    void _OnTriggeredMoveGraphToLeft();
    void _OnTriggeredMoveGraphToStart();
    void _OnTriggeredMoveGraphToEnd();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    struct Marker {
        Node* symbol;  // not owned
        QPoint tip;
        int side;  // 0 on the grid, -1 above, +1 below
    };

    QAction* addNavigation(const QString& text, QKeySequence key, void (GraphWidget::*slot)());
    void switchAutoscrollOff();
    void moveStartTo(double start);
    void seekCursorSample();
    // First index at or after `t`, and last at or before `t`, over 0 .. count - 2.
    std::optional<std::uint32_t> firstAtOrAfter(double t, std::uint32_t lo, std::uint32_t hi) const;
    std::optional<std::uint32_t> lastAtOrBefore(double t, std::uint32_t lo, std::uint32_t hi) const;
    VisibleSamples visibleSamples() const;
    void autoRange(Node& symbol, const GraphGeometry& g) const;
    void applyAutoscroll(const GraphGeometry& g);
    void drawBackground(const GraphGeometry& g);
    void drawLayer(const GraphGeometry& g);
    void drawCursor(QPainter& p, const GraphGeometry& g) const;
    std::vector<Marker> markers(const GraphGeometry& g) const;
    void drawMarkers(QPainter& p, const GraphGeometry& g) const;
    void afterCursorMove();
    void updateToolTip();

    SampleStore& m_store;
    SymbolDatabase& m_symbols;
    CurveRenderer m_curves;                 // maps the time stamps to pixel columns
    std::vector<CurveRenderer> m_builders;  // one per shown curve, built in parallel
    QImage m_background;  // grid and axes
    QImage m_layer;       // background and curves
    bool m_layerDirty = true;

    double m_startTime = 0.0;
    double m_timePerDivision = 1000000.0;
    int m_cursorX = -1;  // placed at the centre on the first layout
    int m_cursorSampleIndex = 0;
    bool m_autoscroll = false;

    Node* m_dragSymbol = nullptr;  // not owned: a selected symbol whose marker is held
    bool m_draggingView = false;
    int m_lastMouseX = 0, m_lastMouseY = 0;

    bool m_held = false;
    std::uint32_t m_heldCount = 0, m_heldNewest = 0;

    int m_targetFps = 30;
    int m_measuredFps = 0;
    std::int64_t m_lastUpdateUs = -1;
    QTimer m_trailing;  // delivers the last request that came too early

    QAction* m_right = nullptr;  // owned by the widget
    QAction* m_left = nullptr;   // owned by the widget
    QAction* m_start = nullptr;  // owned by the widget
    QAction* m_end = nullptr;    // owned by the widget
};
