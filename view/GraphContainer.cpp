#include "view/GraphContainer.h"

#include "view/GraphWidget.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <climits>
#include <cmath>

GraphContainer::GraphContainer(SampleStore& store, SymbolDatabase& symbols, QWidget* parent) : QWidget(parent)
{
    setObjectName("GraphContainer");
    auto* layout = new QVBoxLayout(this);  // owned by the container
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    m_graph = new GraphWidget(store, symbols, this);
    m_scroll = new QScrollBar(Qt::Horizontal, this);
    auto* strip = new QWidget(this);  // owned by the container
    auto* stripLayout = new QHBoxLayout(strip);  // owned by the strip
    stripLayout->setContentsMargins(4, 2, 4, 2);
    m_label = new QLabel(tr("Cursor"), strip);
    stripLayout->addWidget(m_label);
    stripLayout->addStretch(1);
    layout->addWidget(m_graph, 1);
    layout->addWidget(m_scroll);
    layout->addWidget(strip);

    m_scroll->setRange(0, 0);
    connect(m_scroll, &QScrollBar::valueChanged, this, &GraphContainer::OnScrollValueChanged);
    connect(m_graph, &GraphWidget::CursorChanged, this, &GraphContainer::updateLabel);
    connect(m_graph, &GraphWidget::StartTimeChanged, this, &GraphContainer::showStartTime);
}

void GraphContainer::OnScrollValueChanged(int value) { m_graph->setStartTime(value * m_unit); }

void GraphContainer::setHeld(bool on)
{
    m_graph->setHeld(on);
    m_scroll->setVisible(on);
    refresh();
    updateLabel();
}

void GraphContainer::refresh()
{
    m_graph->refresh();
    updateScrollRange();
}

void GraphContainer::updateScrollRange()
{
    const double newest = m_graph->newestTimeStamp();
    m_unit = newest > INT_MAX ? std::ceil(newest / INT_MAX) : 1.0;
    const QSignalBlocker block(m_scroll);
    m_scroll->setRange(0, static_cast<int>(newest / m_unit));
    m_scroll->setSingleStep(std::max(1, static_cast<int>(m_graph->timePerDivision() / m_unit)));
    m_scroll->setPageStep(std::max(1, static_cast<int>(m_graph->visibleSpan() / m_unit)));
    m_scroll->setValue(static_cast<int>(m_graph->startTime() / m_unit));
}

void GraphContainer::showStartTime(double startTime)
{
    const QSignalBlocker block(m_scroll);
    m_scroll->setSingleStep(std::max(1, static_cast<int>(m_graph->timePerDivision() / m_unit)));
    m_scroll->setValue(static_cast<int>(startTime / m_unit));
}

void GraphContainer::updateLabel() { m_label->setText(m_graph->cursorTimeText()); }
