#include "view/GraphWidget.h"
#include "view/CurveColors.h"

#include "probe/SampleStore.h"
#include "symbols/SymbolDatabase.h"
#include "view/GraphValue.h"
#include "view/Scale.h"

#include <QAction>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>
#include <QWheelEvent>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

namespace {

std::int64_t nowUs()
{
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

const QColor kCursorColour(255, 165, 0);
const QColor kAxisColour(192, 192, 192);

QColor colourOf(const Node& n)
{
    if (!n.symbol().HasGraphColor)
        return kAxisColour;
    return curvecolors::toQColor(n.symbol().GraphColor);
}

void fillTriangle(QPainter& p, QPointF a, QPointF b, QPointF c)
{
    QPainterPath path;
    path.moveTo(a);
    path.lineTo(b);
    path.lineTo(c);
    path.closeSubpath();
    p.fillPath(path, p.brush());
}

}  // namespace

GraphWidget::GraphWidget(SampleStore& store, SymbolDatabase& symbols, QWidget* parent)
    : QWidget(parent), m_store(store), m_symbols(symbols)
{
    setObjectName("GraphWidget");
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(200, 120);
    setFocusPolicy(Qt::ClickFocus);
    m_right = addNavigation(tr("Move Right"), QKeySequence(Qt::Key_Right), &GraphWidget::_OnTriggeredMoveGraphToRight);
    m_left = addNavigation(tr("Move Left"), QKeySequence(Qt::Key_Left), &GraphWidget::_OnTriggeredMoveGraphToLeft);
    m_start = addNavigation(tr("Move to Start"), QKeySequence(Qt::Key_Home), &GraphWidget::_OnTriggeredMoveGraphToStart);
    m_end = addNavigation(tr("Move to End"), QKeySequence(Qt::Key_End), &GraphWidget::_OnTriggeredMoveGraphToEnd);
    connect(this, &GraphWidget::UpdateRequest, this, &GraphWidget::_UpdateScreen);
    m_trailing.setSingleShot(true);
    connect(&m_trailing, &QTimer::timeout, this, &GraphWidget::requestUpdate);
}

QAction* GraphWidget::addNavigation(const QString& text, QKeySequence key, void (GraphWidget::*slot)())
{
    auto* action = new QAction(text, this);  // owned by the widget
    action->setShortcut(key);
    // Window-wide, so the keys work wherever the focus is; line edits still
    // get their arrow keys first through the shortcut override.
    action->setShortcutContext(Qt::WindowShortcut);
    connect(action, &QAction::triggered, this, slot);
    addAction(action);
    return action;
}

// ---------------------------------------------------------------------------
// Store access

std::uint32_t GraphWidget::recordCount() const { return m_held ? m_heldCount : m_store.recordCount(); }

std::uint32_t GraphWidget::newestTimeStamp() const { return m_held ? m_heldNewest : m_store.currentTimeStamp(); }

std::optional<std::uint32_t> GraphWidget::firstAtOrAfter(double t, std::uint32_t lo, std::uint32_t hi) const
{
    if (lo > hi)
        return std::nullopt;
    std::uint32_t a = lo, b = hi + 1;  // answer in [a, b); b means none
    while (a < b) {
        const std::uint32_t mid = a + (b - a) / 2;
        if (m_store.timeStampAt(mid) >= t)
            b = mid;
        else
            a = mid + 1;
    }
    return a <= hi ? std::optional<std::uint32_t>(a) : std::nullopt;
}

std::optional<std::uint32_t> GraphWidget::lastAtOrBefore(double t, std::uint32_t lo, std::uint32_t hi) const
{
    if (lo > hi)
        return std::nullopt;
    std::uint32_t a = lo, b = hi + 1;  // first index above t
    while (a < b) {
        const std::uint32_t mid = a + (b - a) / 2;
        if (m_store.timeStampAt(mid) > t)
            b = mid;
        else
            a = mid + 1;
    }
    return a > lo ? std::optional<std::uint32_t>(a - 1) : std::nullopt;
}

VisibleSamples GraphWidget::visibleSamples() const
{
    VisibleSamples v;
    const std::uint32_t count = recordCount();
    if (count < 2 || !m_store.timeStamps())
        return v;
    const std::uint32_t hi = count - 2;
    const auto first = firstAtOrAfter(m_startTime, 0, hi);
    const auto last = lastAtOrBefore(m_startTime + visibleSpan(), 0, hi);
    if (!first || !last || *first > *last)
        return v;
    v.timeStamps = m_store.timeStamps();
    v.oldest = m_store.oldestIndex();
    v.first = *first;
    v.last = *last;
    v.empty = false;
    return v;
}

void GraphWidget::seekCursorSample()
{
    const std::uint32_t count = recordCount();
    const auto i = count >= 2 ? firstAtOrAfter(m_startTime, 0, count - 2) : std::nullopt;
    m_cursorSampleIndex = static_cast<int>(std::min<std::uint32_t>(i.value_or(0), SampleStore::kCapacity - 1));
}

std::uint64_t GraphWidget::cursorTime() const { return grid().cursorTime(m_cursorX, m_startTime, m_timePerDivision); }

QString GraphWidget::cursorTimeText() const { return scale::cursorTimeText(cursorTime(), m_timePerDivision); }

std::optional<std::uint32_t> GraphWidget::sampleAtCursor() const
{
    const std::uint64_t t = cursorTime();
    if (recordCount() < 2 || t > newestTimeStamp())
        return std::nullopt;
    const VisibleSamples v = visibleSamples();
    if (v.empty)
        return std::nullopt;
    return firstAtOrAfter(static_cast<double>(t), v.first, v.last);
}

std::optional<double> GraphWidget::valueAtCursor(const Node& symbol) const
{
    const auto i = sampleAtCursor();
    if (!i || !isActiveInSampling(symbol))
        return std::nullopt;
    const std::uint64_t* slot = m_store.valueSlotAt(symbol, *i);
    if (!slot)
        return std::nullopt;
    return graphValue(symbol, *slot);
}

QString GraphWidget::readoutText() const
{
    const auto i = sampleAtCursor();
    if (!i)
        return {};
    QStringList lines;
    for (const Node* n : m_symbols.selected()) {
        if (!isActiveInSampling(*n))
            continue;
        QString value = QStringLiteral("N/A");
        if (const std::uint64_t* slot = m_store.valueSlotAt(*n, *i)) {
            const double v = graphValue(*n, *slot);
            value = n->TypeID == kTypeBool ? QString(v != 0.0 ? "true" : "false") : QString::number(v, 'g', 6);
        }
        lines << QString::fromStdString(n->NameWithParents) + ": " + value;
    }
    return lines.join('\n');
}

// ---------------------------------------------------------------------------
// Settings and requests

void GraphWidget::setTimePerDivision(double us)
{
    if (!(us > 0) || us == m_timePerDivision)
        return;
    const double c = static_cast<double>(cursorTime());
    double start = m_startTime;
    if (us < m_timePerDivision)
        start = start + (c - start) * 0.5;
    else
        start = start - (c - start) * 0.5;
    m_timePerDivision = us;
    const double latest = static_cast<double>(newestTimeStamp()) - visibleSpan();
    start = std::max(std::min(start, latest), 0.0);
    const bool moved = start != m_startTime;
    m_startTime = start;
    seekCursorSample();
    invalidate();
    if (moved)
        switchAutoscrollOff();
    emit StartTimeChanged(m_startTime);
    emit CursorChanged();
}

void GraphWidget::setAutoscroll(bool on)
{
    if (m_autoscroll == on)
        return;
    m_autoscroll = on;
    invalidate();
}

void GraphWidget::setStartTime(double us)
{
    switchAutoscrollOff();
    moveStartTo(std::max(us, 0.0));
}

void GraphWidget::setCursorX(int x)
{
    const GraphGeometry g = grid();
    m_cursorX = std::clamp(x, g.marginX, std::max(g.marginX, g.width - g.marginX));
    afterCursorMove();
}

void GraphWidget::setTargetFps(int fps) { m_targetFps = std::max(fps, 1); }

void GraphWidget::setHeld(bool on)
{
    m_held = on;
    m_heldCount = m_store.recordCount();
    m_heldNewest = m_store.currentTimeStamp();
    invalidate();
    emit CursorChanged();
}

void GraphWidget::refresh()
{
    if (m_held) {
        m_heldCount = m_store.recordCount();
        m_heldNewest = m_store.currentTimeStamp();
    }
    seekCursorSample();
    invalidate();
}

void GraphWidget::requestUpdate()
{
    if (m_held)
        return;
    const std::int64_t now = nowUs();
    const std::int64_t interval = 1000000 / std::max(m_targetFps, 1);
    if (m_lastUpdateUs < 0 || now - m_lastUpdateUs >= interval) {
        m_lastUpdateUs = now;
        m_trailing.stop();
        emit UpdateRequest();
    } else if (!m_trailing.isActive()) {
        // Too early: this request is dropped, but the newest data still
        // arrives once the interval has passed.
        m_trailing.start(static_cast<int>((interval - (now - m_lastUpdateUs)) / 1000) + 1);
    }
}

void GraphWidget::invalidate()
{
    m_layerDirty = true;
    update();
}

void GraphWidget::_UpdateScreen() { invalidate(); }

void GraphWidget::setCurveMode(CurveRenderer::Mode mode)
{
    m_curves.setMode(mode);
    for (CurveRenderer& b : m_builders)
        b.setMode(mode);
    invalidate();
}

// ---------------------------------------------------------------------------
// Navigation

void GraphWidget::switchAutoscrollOff()
{
    if (m_autoscroll) {
        m_autoscroll = false;
        invalidate();
    }
    emit AutoscrollSwitchedOff();
}

void GraphWidget::moveStartTo(double start)
{
    m_startTime = start;
    seekCursorSample();
    invalidate();
    emit StartTimeChanged(m_startTime);
    emit CursorChanged();
}

void GraphWidget::_OnTriggeredMoveGraphToRight()
{
    switchAutoscrollOff();
    // Deliberately unbounded: the view may run past the newest sample.
    moveStartTo(m_startTime + std::trunc(visibleSpan() / 10));
}

void GraphWidget::_OnTriggeredMoveGraphToLeft()
{
    switchAutoscrollOff();
    moveStartTo(std::max(m_startTime - std::trunc(visibleSpan() / 10), 0.0));
}

void GraphWidget::_OnTriggeredMoveGraphToStart()
{
    switchAutoscrollOff();
    moveStartTo(0.0);
}

void GraphWidget::_OnTriggeredMoveGraphToEnd()
{
    switchAutoscrollOff();
    moveStartTo(std::max(static_cast<double>(newestTimeStamp()) - visibleSpan(), 0.0));
}

// ---------------------------------------------------------------------------
// Painting

void GraphWidget::autoRange(Node& symbol, const GraphGeometry& g) const
{
    if (symbol.symbol().ManualYResolution)
        return;  // the user's choice stands
    if (g.divisionsY <= 0 || symbol.symbol().YMaxSampled < symbol.symbol().YMinSampled)
        return;  // nothing sampled into the statistics yet
    const double wanted = std::max(symbol.symbol().YMaxSampled, std::fabs(symbol.symbol().YMinSampled)) * 2 / g.divisionsY;
    const std::uint64_t needed =
        wanted >= double(scale::kMaxResolution) || wanted != wanted ? scale::kMaxResolution
                                                                     : static_cast<std::uint64_t>(wanted);
    if (needed > symbol.symbol().YResolution)
        symbol.symbol().YResolution = scale::stepUp(symbol.symbol().YResolution, needed);
}

void GraphWidget::applyAutoscroll(const GraphGeometry& g)
{
    const auto& selected = m_symbols.selected();
    if (!m_autoscroll || selected.empty() || selected.back()->symbol().LatestSlot < 0)
        return;
    const double newest = newestTimeStamp();
    const double span = g.divisionsX * m_timePerDivision;
    if (newest > span && newest - span != m_startTime) {
        m_startTime = newest - span;
        seekCursorSample();
        emit StartTimeChanged(m_startTime);
        emit CursorChanged();
    }
}

void GraphWidget::drawBackground(const GraphGeometry& g)
{
    m_background = QImage(size(), QImage::Format_RGB32);
    QPainter p(&m_background);
    p.fillRect(m_background.rect(), Qt::black);

    p.setPen(QPen(QColor(255, 255, 255, 60), 1));
    for (int k = 0; k <= g.divisionsX; ++k) {
        const int x = g.marginX + k * GraphGeometry::kDivision;
        p.drawLine(x, g.gridTop(), x, g.gridBottom());
    }
    for (int k = 0; k <= g.divisionsY; ++k) {
        const int y = g.marginY + k * GraphGeometry::kDivision;
        p.drawLine(g.gridLeft(), y, g.gridRight(), y);
    }

    p.setPen(QPen(kAxisColour, 1));
    p.drawLine(g.gridLeft(), g.zeroLineY, g.gridRight(), g.zeroLineY);
    p.drawLine(g.centreX, g.gridTop(), g.centreX, g.gridBottom());
    for (int x = g.gridLeft(); x <= g.gridRight(); x += 20)
        p.drawLine(x, g.zeroLineY - 5, x, g.zeroLineY + 5);
    for (int y = g.gridTop(); y <= g.gridBottom(); y += 20)
        p.drawLine(g.centreX - 5, y, g.centreX + 5, y);
}

void GraphWidget::drawLayer(const GraphGeometry& g)
{
    // Grid and axes change only with the size: drawn once, copied under the curves.
    if (m_background.size() != size())
        drawBackground(g);
    if (m_layer.size() != size())
        m_layer = QImage(size(), QImage::Format_RGB32);
    m_layerDirty = false;
    std::memcpy(m_layer.bits(), m_background.constBits(), static_cast<std::size_t>(m_layer.sizeInBytes()));
    QPainter p(&m_layer);

    // The view follows the newest sample before the curves are drawn, so the
    // frame shows the data it was asked for.
    applyAutoscroll(g);
    m_curves.prepare(g, visibleSamples(), m_startTime, m_timePerDivision);
    std::vector<const Node*> shown;
    for (Node* n : m_symbols.selected()) {
        if (!n->symbol().ShowInGraph || !isActiveInSampling(*n))
            continue;
        autoRange(*n, g);
        shown.push_back(n);
    }
    // The curves are built on two threads (walking the samples is the bulk of
    // the work) and painted in list order on this one.
    if (m_builders.size() < shown.size())
        m_builders.resize(shown.size());
    for (std::size_t i = 0; i < shown.size(); ++i)
        m_builders[i].adoptColumns(m_curves);
    const auto buildEvery = [&](std::size_t first) {
        for (std::size_t i = first; i < shown.size(); i += 2)
            m_builders[i].build(*shown[i]);
    };
    if (shown.size() > 1) {
        std::thread other(buildEvery, 1);
        buildEvery(0);
        other.join();
    } else {
        buildEvery(0);
    }
    // Curves end at the grid's top edge: the margin above holds the markers
    // of symbols whose zero lies above the view.
    p.setClipRect(QRect(0, g.gridTop(), g.width, g.height - g.gridTop()));
    for (std::size_t i = 0; i < shown.size(); ++i)
        m_builders[i].paint(p, colourOf(*shown[i]));
    p.setClipping(false);
}

void GraphWidget::drawCursor(QPainter& p, const GraphGeometry& g) const
{
    p.setRenderHint(QPainter::Antialiasing, false);
    p.setPen(QPen(kCursorColour, 1));
    p.drawLine(m_cursorX, g.gridTop(), m_cursorX, g.gridBottom());
    p.setRenderHint(QPainter::Antialiasing, true);
    p.setPen(Qt::NoPen);
    p.setBrush(kCursorColour);
    fillTriangle(p, QPointF(m_cursorX - 5, g.gridTop()), QPointF(m_cursorX + 5, g.gridTop()),
                 QPointF(m_cursorX, g.gridTop() + 5));
}

std::vector<GraphWidget::Marker> GraphWidget::markers(const GraphGeometry& g) const
{
    std::vector<Marker> out;
    int aboveX = 0, belowX = 0;
    const int bottom = g.height - 1;
    for (Node* n : m_symbols.selected()) {
        if (!n->symbol().HasGraphColor)
            break;
        const int y = g.symbolZeroY(n->symbol().YOffset);
        if (y < g.gridTop()) {
            out.push_back({n, QPoint(aboveX + 5, 0), -1});
            aboveX += 10;
        } else if (y > g.gridBottom()) {
            out.push_back({n, QPoint(belowX + 5, bottom), +1});
            belowX += 10;
        } else {
            out.push_back({n, QPoint(5, y), 0});
        }
    }
    return out;
}

void GraphWidget::drawMarkers(QPainter& p, const GraphGeometry& g) const
{
    p.setRenderHint(QPainter::Antialiasing, true);
    p.setPen(Qt::NoPen);
    for (const Marker& m : markers(g)) {
        p.setBrush(colourOf(*m.symbol));
        const QPointF tip = m.tip;
        if (m.side == 0)
            fillTriangle(p, QPointF(0, tip.y() - 5), QPointF(0, tip.y() + 5), tip);
        else if (m.side < 0)
            fillTriangle(p, QPointF(tip.x() - 5, 5), QPointF(tip.x() + 5, 5), tip);
        else
            fillTriangle(p, QPointF(tip.x() - 5, tip.y() - 5), QPointF(tip.x() + 5, tip.y() - 5), tip);
    }
}

void GraphWidget::paintFrame(QPainter& p)
{
    const GraphGeometry g = grid();
    if (m_cursorX < 0)
        m_cursorX = g.centreX;
    // While a raw import rewrites the store the last picture stays (the layer
    // stays dirty and is drawn on the repaint that follows the import).
    if (m_layerDirty || m_layer.size() != size()) {
        const bool drawn = m_store.tryRead([&] { drawLayer(g); });
        if (!drawn && m_layer.size() != size()) {
            m_layer = QImage(size(), QImage::Format_RGB32);
            m_layer.fill(Qt::black);
        }
    }
    p.drawImage(0, 0, m_layer);
    drawCursor(p, g);
    drawMarkers(p, g);
}

void GraphWidget::paintEvent(QPaintEvent*)
{
    const std::int64_t begin = nowUs();
    {
        QPainter p(this);
        paintFrame(p);
    }
    const std::int64_t took = std::max<std::int64_t>(nowUs() - begin, 1);
    m_measuredFps = static_cast<int>(std::min<std::int64_t>(1000000 / took, 1000000));
    emit FrameRateMeasured(m_measuredFps);
    if (window()->isActiveWindow() && underMouse())
        updateToolTip();
}

void GraphWidget::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    const GraphGeometry g = grid();
    if (m_cursorX < 0)
        m_cursorX = g.centreX;
    m_cursorX = std::clamp(m_cursorX, g.marginX, std::max(g.marginX, g.width - g.marginX));
    invalidate();
}

// ---------------------------------------------------------------------------
// Mouse

void GraphWidget::mousePressEvent(QMouseEvent* event)
{
    const QPoint pos = event->position().toPoint();
    m_lastMouseX = pos.x();
    m_lastMouseY = pos.y();
    m_dragSymbol = nullptr;
    for (const Marker& m : markers(grid()))
        if (std::abs(pos.x() - m.tip.x()) <= 5 && std::abs(pos.y() - m.tip.y()) <= 5) {
            m_dragSymbol = m.symbol;
            break;
        }
    m_draggingView = m_dragSymbol == nullptr;
}

void GraphWidget::mouseMoveEvent(QMouseEvent* event)
{
    const QPoint pos = event->position().toPoint();
    const GraphGeometry g = grid();
    if (m_dragSymbol) {
        const int zeroY = g.symbolZeroY(m_dragSymbol->symbol().YOffset);
        const bool offGrid = zeroY < g.gridTop() || zeroY > g.gridBottom();
        const bool overGrid = pos.y() >= g.gridTop() && pos.y() <= g.gridBottom();
        if (offGrid && overGrid)
            m_dragSymbol->symbol().YOffset = zeroY < g.gridTop() ? g.divisionsY / 2 : -(g.divisionsY - g.divisionsY / 2);
        else
            m_dragSymbol->symbol().YOffset += (m_lastMouseY - pos.y()) / 100.0;
        invalidate();
        emit SymbolSettingsEdited();
    } else {
        if (m_draggingView) {
            switchAutoscrollOff();
            moveStartTo(std::max(m_startTime + (m_lastMouseX - pos.x()) * m_timePerDivision / 100, 0.0));
        }
        m_cursorX = pos.x();
    }
    m_cursorX = std::clamp(m_cursorX, g.marginX, std::max(g.marginX, g.width - g.marginX));
    m_lastMouseX = pos.x();
    m_lastMouseY = pos.y();
    afterCursorMove();
}

void GraphWidget::mouseReleaseEvent(QMouseEvent*)
{
    m_dragSymbol = nullptr;
    m_draggingView = false;
}

void GraphWidget::wheelEvent(QWheelEvent* event)
{
    const int dy = event->angleDelta().y();
    if (dy != 0)
        emit ZoomStepRequested(dy > 0 ? -1 : +1);
    event->accept();
}

void GraphWidget::leaveEvent(QEvent* event)
{
    QToolTip::hideText();
    QWidget::leaveEvent(event);
}

void GraphWidget::afterCursorMove()
{
    updateToolTip();
    emit CursorChanged();
    update();
}

void GraphWidget::updateToolTip()
{
    if (!isVisible() || !underMouse())
        return;
    const QString text = readoutText();
    if (text.isEmpty())
        QToolTip::hideText();
    else
        QToolTip::showText(mapToGlobal(QPoint(m_cursorX + 12, m_lastMouseY + 12)), text, this);
}
