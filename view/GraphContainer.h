// The graph view as the main window holds it: the drawing surface, a scroll
// bar over the whole recorded time and a strip with the cursor time.
#pragma once

#include <QWidget>

class GraphWidget;
class QLabel;
class QScrollBar;
class SampleStore;
class SymbolDatabase;

class GraphContainer : public QWidget {
    Q_OBJECT

public:
    GraphContainer(SampleStore& store, SymbolDatabase& symbols, QWidget* parent = nullptr);

    GraphWidget* graph() const { return m_graph; }
    QScrollBar* scrollBar() const { return m_scroll; }
    QLabel* cursorLabel() const { return m_label; }

    // Held while sampling is paused or stopped: the scroll bar shows and spans
    // the recording. Released while sampling runs: the scroll bar hides.
    void setHeld(bool on);
    // Re-range the scroll bar, refresh the label and repaint.
    void refresh();

public slots:
    void OnScrollValueChanged(int value);

private:
    void updateScrollRange();
    void showStartTime(double startTime);
    void updateLabel();

    GraphWidget* m_graph;  // owned by the container
    QScrollBar* m_scroll;  // owned by the container
    QLabel* m_label;       // owned by the container
    // Microseconds per scroll-bar unit: recordings longer than the bar's int
    // range are scaled down.
    double m_unit = 1.0;
};
