// Draws the curves of the graph from the sample store. Every sample on screen
// maps to a pixel; samples that share a pixel column are reduced to the
// column's entry, lowest, highest and exit points, which paints exactly the
// pixels that drawing every sample would (the joins inside one column are
// vertical and chained, so together they cover the column's whole span).
// The every-sample path stays for the tests and the benchmark that hold the
// two pictures and their paint times side by side.
#pragma once

#include "view/GraphGeometry.h"

#include <QColor>
#include <QLineF>
#include <QPointF>

#include <cstdint>
#include <vector>

class QPainter;
struct Node;

// The samples of one paint, counted from the oldest record of the ring.
struct VisibleSamples {
    const std::uint32_t* timeStamps = nullptr;  // not owned: the store's array in slot order
    std::uint32_t oldest = 0;                   // slot of the oldest record
    std::uint32_t first = 0, last = 0;          // chronological, inclusive
    bool empty = true;
};

class CurveRenderer {
public:
    enum class Mode { Reduced, EverySample };

    void setMode(Mode mode) { m_mode = mode; }
    Mode mode() const { return m_mode; }

    // Maps the visible time stamps to pixel columns; once per paint.
    void prepare(const GraphGeometry& grid, const VisibleSamples& samples, double startTime, double timePerDivision);
    // One symbol's curve: lines (draw style 0) or points, pen width 2.
    void draw(QPainter& painter, const Node& symbol, const QColor& colour);
    // The same in two steps: build() only reads the store and may run on
    // another thread; paint() draws what it built.
    void build(const Node& symbol);
    void paint(QPainter& painter, const QColor& colour);
    // Takes the pixel columns another renderer prepared, to build beside it.
    void adoptColumns(const CurveRenderer& prepared);

    // Segments and points handed to the painter by the last draw (figures for
    // the benchmark).
    std::size_t lastLineCount() const { return m_lastLines; }
    std::size_t lastPointCount() const { return m_lastPoints; }

private:
    struct Run {
        std::int32_t x;
        std::uint32_t begin, end;  // chronological [begin, end)
    };

    template <typename Decode>
    void reduceLines(const Node& symbol, Decode decode);
    template <typename Decode>
    void everySample(const Node& symbol, Decode decode, bool lines);
    template <typename Decode>
    void reducePoints(const Node& symbol, Decode decode);
    template <typename Fn>
    void withDecoder(const Node& symbol, Fn fn);

    void line(double x1, double y1, double x2, double y2);
    void point(std::int32_t x, std::int32_t y);
    void flush(QPainter& painter, const QColor& colour);
    void fillSpans(QPainter& painter, const QColor& colour);
    std::uint32_t slotOf(std::uint32_t i) const;

    Mode m_mode = Mode::Reduced;
    GraphGeometry m_grid;
    VisibleSamples m_samples;
    double m_startTime = 0, m_timePerDivision = 1;
    std::vector<Run> m_runs;
    struct Span {
        std::int32_t x, top, bottom;  // a vertical stretch of one column, top <= bottom
    };
    std::vector<QLineF> m_lines;
    std::vector<Span> m_spans;
    std::vector<QPointF> m_points;
    std::vector<std::uint32_t> m_pointStamp;  // per pixel row: last run that drew there
    std::size_t m_lastLines = 0, m_lastPoints = 0;
};
