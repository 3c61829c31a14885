#include "view/CurveRenderer.h"

#include "probe/SampleStore.h"
#include "symbols/Node.h"
#include "view/GraphValue.h"

#include <QImage>
#include <QPainter>
#include <QPen>

#include <algorithm>
#include <bit>
#include <type_traits>
#include <cstring>
#include <limits>

namespace {

// Lines reaching further than this outside the widget are cut at this
// distance: the painter's fixed-point coordinates must not overflow, and the
// cut keeps every pixel on screen where it was.
constexpr double kFar = 4096.0;

// Typed decoders of a stored 8-byte slot; each gives what graphValue() gives.
template <typename T>
struct Plain {
    using Raw = T;
    static constexpr bool kMayBeNaN = std::is_floating_point_v<T>;
    // The value in its own type: its order is the order of its doubles.
    static T raw(std::uint64_t slot)
    {
        if constexpr (std::is_same_v<T, float>)
            return std::bit_cast<float>(static_cast<std::uint32_t>(slot));
        else if constexpr (std::is_same_v<T, double>)
            return std::bit_cast<double>(slot);
        else
            return static_cast<T>(slot);  // the low bytes: the slot is little-endian
    }
    double operator()(std::uint64_t slot) const { return static_cast<double>(raw(slot)); }
};

struct BitField {
    using Raw = double;
    static constexpr bool kMayBeNaN = false;
    std::uint32_t shift;  // BitOffset mod 32: the slot starts at the field's word
    std::uint64_t mask;
    double operator()(std::uint64_t slot) const { return static_cast<double>((slot >> shift) & mask); }
};

struct Zero {
    using Raw = double;
    static constexpr bool kMayBeNaN = false;
    double operator()(std::uint64_t) const { return 0.0; }
};

}  // namespace

std::uint32_t CurveRenderer::slotOf(std::uint32_t i) const
{
    return (m_samples.oldest + i) % SampleStore::kCapacity;
}

void CurveRenderer::prepare(const GraphGeometry& grid, const VisibleSamples& samples, double startTime,
                            double timePerDivision)
{
    m_grid = grid;
    m_samples = samples;
    m_startTime = startTime;
    m_timePerDivision = timePerDivision;
    m_runs.clear();
    if (samples.empty || !samples.timeStamps || m_mode != Mode::Reduced)
        return;
    const std::uint32_t* ts = samples.timeStamps;
    const auto xAt = [&](std::uint32_t i) { return grid.xOf(ts[slotOf(i)], startTime, timePerDivision); };
    // Time stamps that never fall let the column ends be found by galloping:
    // x does not fall either. Anything else is walked sample by sample.
    bool rising = true;
    {
        std::uint32_t slot = slotOf(samples.first), prev = ts[slot];
        for (std::uint32_t i = samples.first + 1; i <= samples.last && rising; ++i) {
            if (++slot == SampleStore::kCapacity)
                slot = 0;
            rising = ts[slot] >= prev;
            prev = ts[slot];
        }
    }
    if (rising) {
        std::uint32_t begin = samples.first;
        while (begin <= samples.last) {
            const std::int32_t x = xAt(begin);
            // Gallop to a sample beyond the column, then bisect back to its first one.
            std::uint32_t inside = begin, step = 1;
            std::uint64_t probe = std::uint64_t(begin) + 1;
            while (probe <= samples.last && xAt(static_cast<std::uint32_t>(probe)) == x) {
                inside = static_cast<std::uint32_t>(probe);
                step *= 2;
                probe = std::uint64_t(begin) + step;
            }
            std::uint64_t outside = std::min<std::uint64_t>(probe, std::uint64_t(samples.last) + 1);
            while (outside - inside > 1) {
                const auto mid = static_cast<std::uint32_t>(inside + (outside - inside) / 2);
                if (xAt(mid) == x)
                    inside = mid;
                else
                    outside = mid;
            }
            m_runs.push_back({x, begin, inside + 1});
            begin = inside + 1;
        }
        return;
    }
    // Runs of consecutive samples that fall on the same pixel column.
    std::uint32_t slot = slotOf(samples.first);
    std::int32_t x = grid.xOf(ts[slot], startTime, timePerDivision);
    std::uint32_t begin = samples.first;
    for (std::uint32_t i = samples.first + 1; i <= samples.last; ++i) {
        if (++slot == SampleStore::kCapacity)
            slot = 0;
        const std::int32_t xi = grid.xOf(ts[slot], startTime, timePerDivision);
        if (xi != x) {
            m_runs.push_back({x, begin, i});
            x = xi;
            begin = i;
        }
    }
    m_runs.push_back({x, begin, samples.last + 1});
}

template <typename Fn>
void CurveRenderer::withDecoder(const Node& s, Fn fn)
{
    switch (s.TypeID) {
    case kTypeFloat: fn(Plain<float>{}); break;
    case kTypeDouble: fn(Plain<double>{}); break;
    case kTypeBool:
    case kTypeU8: fn(Plain<std::uint8_t>{}); break;
    case kTypeU16: fn(Plain<std::uint16_t>{}); break;
    case kTypeU32: fn(Plain<std::uint32_t>{}); break;
    case kTypeS8: fn(Plain<std::int8_t>{}); break;
    case kTypeS16: fn(Plain<std::int16_t>{}); break;
    case kTypeS32: fn(Plain<std::int32_t>{}); break;
    case kTypeBitField:
        fn(BitField{s.BitOffset % 32, s.BitSize >= 32 ? 0xFFFFFFFFu : (std::uint64_t{1} << s.BitSize) - 1});
        break;
    default: fn(Zero{}); break;
    }
}

void CurveRenderer::line(double x1, double y1, double x2, double y2)
{
    const double left = -kFar, right = m_grid.width + kFar, top = -kFar, bottom = m_grid.height + kFar;
    const bool inside = x1 >= left && x1 <= right && x2 >= left && x2 <= right && y1 >= top && y1 <= bottom &&
                        y2 >= top && y2 <= bottom;
    if (!inside) {
        // Liang-Barsky against the far box.
        double t0 = 0.0, t1 = 1.0;
        const double dx = x2 - x1, dy = y2 - y1;
        const double p[4] = {-dx, dx, -dy, dy};
        const double q[4] = {x1 - left, right - x1, y1 - top, bottom - y1};
        for (int k = 0; k < 4; ++k) {
            if (p[k] == 0.0) {
                if (q[k] < 0.0)
                    return;
                continue;
            }
            const double r = q[k] / p[k];
            if (p[k] < 0.0)
                t0 = std::max(t0, r);
            else
                t1 = std::min(t1, r);
            if (t0 > t1)
                return;
        }
        const double nx1 = x1 + t0 * dx, ny1 = y1 + t0 * dy;
        x2 = x1 + t1 * dx;
        y2 = y1 + t1 * dy;
        x1 = nx1;
        y1 = ny1;
    }
    m_lines.emplace_back(x1, y1, x2, y2);
}

void CurveRenderer::point(std::int32_t x, std::int32_t y)
{
    if (x < -kFar || x > m_grid.width + kFar || y < -kFar || y > m_grid.height + kFar)
        return;
    m_points.emplace_back(x, y);
}

void CurveRenderer::flush(QPainter& painter, const QColor& colour)
{
    m_lastLines = m_lines.size() + m_spans.size();
    m_lastPoints = m_points.size();
    if (!m_lines.empty())
        painter.drawLines(m_lines.data(), static_cast<int>(m_lines.size()));
    if (!m_points.empty())
        painter.drawPoints(m_points.data(), static_cast<int>(m_points.size()));
    if (!m_spans.empty())
        fillSpans(painter, colour);
    m_lines.clear();
    m_points.clear();
    m_spans.clear();
}

void CurveRenderer::fillSpans(QPainter& painter, const QColor& colour)
{
    // A vertical line of pen width 2 from y1 to y2 (square caps) covers the
    // pixel columns x - 1 and x, rows y1 - 1 to y2: the same pixels as a
    // rectangle, which is written straight into an image when the painter
    // draws on one unscaled, else filled.
    QPaintDevice* device = painter.device();
    QImage* image = device && device->devType() == QInternal::Image ? static_cast<QImage*>(device) : nullptr;
    // A clip of one rectangle (the grid's) is applied here; any other goes to the painter.
    QRect clip = image ? image->rect() : QRect();
    bool simpleClip = true;
    if (image && painter.hasClipping()) {
        const QRegion region = painter.clipRegion();
        simpleClip = region.rectCount() == 1;
        clip &= region.boundingRect();
    }
    const bool direct = image && painter.transform().isIdentity() && simpleClip &&
                        (image->format() == QImage::Format_RGB32 || image->format() == QImage::Format_ARGB32 ||
                         image->format() == QImage::Format_ARGB32_Premultiplied);
    if (!direct) {
        for (const Span& s : m_spans)
            painter.fillRect(QRect(s.x - 1, s.top - 1, 2, s.bottom - s.top + 2), colour);
        return;
    }
    if (clip.isEmpty())
        return;
    const QRgb pixel = colour.rgb();
    uchar* bits = image->bits();
    const qsizetype stride = image->bytesPerLine();
    for (const Span& s : m_spans) {
        const int from = std::max(s.top - 1, clip.top()), to = std::min(s.bottom, clip.bottom());
        const bool left = s.x - 1 >= clip.left() && s.x - 1 <= clip.right();
        const bool right = s.x >= clip.left() && s.x <= clip.right();
        for (int y = from; y <= to; ++y) {
            auto* row = reinterpret_cast<QRgb*>(bits + y * stride);
            if (left)
                row[s.x - 1] = pixel;
            if (right)
                row[s.x] = pixel;
        }
    }
}

template <typename Decode>
void CurveRenderer::reduceLines(const Node& symbol, Decode decode)
{
    const std::uint64_t* values = symbol.symbol().Values.get();
    const std::uint32_t res = symbol.symbol().YResolution;
    const double off = symbol.symbol().YOffset;
    const std::int32_t nanY = m_grid.yOf(std::numeric_limits<double>::quiet_NaN(), res, off);
    bool havePrev = false;
    std::int32_t prevX = 0, prevY = 0;
    using Raw = typename Decode::Raw;
    for (const Run& run : m_runs) {
        // Extremes in the value's own type (cheaper, and ordered as its doubles).
        Raw lo, hi;
        if constexpr (std::is_floating_point_v<Raw>) {
            lo = std::numeric_limits<Raw>::infinity();
            hi = -std::numeric_limits<Raw>::infinity();
        } else {
            lo = std::numeric_limits<Raw>::max();
            hi = std::numeric_limits<Raw>::lowest();
        }
        bool nan = false;
        // The run as at most two stretches of slots (the ring may wrap inside it).
        std::uint32_t from = slotOf(run.begin);
        std::uint32_t left = run.end - run.begin;
        while (left > 0) {
            const std::uint32_t n = std::min(left, SampleStore::kCapacity - from);
            const std::uint64_t* p = values + from;
            for (std::uint32_t k = 0; k < n; ++k) {
                Raw v;
                if constexpr (std::is_same_v<Raw, double> && !std::is_same_v<Decode, Plain<double>>)
                    v = decode(p[k]);
                else
                    v = Decode::raw(p[k]);
                lo = v < lo ? v : lo;
                hi = v > hi ? v : hi;
                if constexpr (Decode::kMayBeNaN)
                    nan |= v != v;
            }
            left -= n;
            from = 0;
        }
        // y falls as the value rises: the highest value gives the top pixel.
        std::int32_t top = nanY, bottom = nanY;
        if (lo <= hi) {
            top = m_grid.yOf(static_cast<double>(hi), res, off);
            bottom = m_grid.yOf(static_cast<double>(lo), res, off);
            if (nan) {
                top = std::min(top, nanY);
                bottom = std::max(bottom, nanY);
            }
        }
        const std::int32_t entryY = m_grid.yOf(decode(values[slotOf(run.begin)]), res, off);
        if (havePrev)
            line(prevX, prevY, run.x, entryY);
        if (top != bottom) {
            // Far ends are cut where they cannot reach the image.
            const auto far = static_cast<std::int32_t>(kFar);
            m_spans.push_back({run.x, std::clamp(top, -far, m_grid.height + far),
                               std::clamp(bottom, -far, m_grid.height + far)});
        }
        prevX = run.x;
        prevY = m_grid.yOf(decode(values[slotOf(run.end - 1)]), res, off);
        havePrev = true;
    }
}

template <typename Decode>
void CurveRenderer::reducePoints(const Node& symbol, Decode decode)
{
    const std::uint64_t* values = symbol.symbol().Values.get();
    const std::uint32_t res = symbol.symbol().YResolution;
    const double off = symbol.symbol().YOffset;
    // A point of pen width 2 reaches one pixel beyond its centre: rows
    // further out than that paint nothing.
    const std::int32_t lowest = -2, highest = m_grid.height + 2;
    m_pointStamp.assign(static_cast<std::size_t>(highest - lowest + 1), std::numeric_limits<std::uint32_t>::max());
    std::uint32_t runIndex = 0;
    for (const Run& run : m_runs) {
        for (std::uint32_t i = run.begin; i < run.end; ++i) {
            const std::int32_t y = m_grid.yOf(decode(values[slotOf(i)]), res, off);
            if (y < lowest || y > highest)
                continue;
            std::uint32_t& stamp = m_pointStamp[static_cast<std::size_t>(y - lowest)];
            if (stamp == runIndex)
                continue;
            stamp = runIndex;
            point(run.x, y);
        }
        ++runIndex;
    }
}

template <typename Decode>
void CurveRenderer::everySample(const Node& symbol, Decode, bool lines)
{
    // The plain walk: every sample to its pixel, joined to the one before.
    const std::uint64_t* values = symbol.symbol().Values.get();
    bool havePrev = false;
    std::int32_t prevX = 0, prevY = 0;
    for (std::uint32_t i = m_samples.first; i <= m_samples.last; ++i) {
        const std::uint32_t slot = slotOf(i);
        const std::int32_t x = m_grid.xOf(m_samples.timeStamps[slot], m_startTime, m_timePerDivision);
        const std::int32_t y = m_grid.yOf(graphValue(symbol, values[slot]), symbol.symbol().YResolution, symbol.symbol().YOffset);
        if (havePrev && x == prevX && y == prevY)
            continue;
        if (!lines)
            point(x, y);
        else if (havePrev)
            line(prevX, prevY, x, y);
        prevX = x;
        prevY = y;
        havePrev = true;
    }
}

void CurveRenderer::adoptColumns(const CurveRenderer& prepared)
{
    m_mode = prepared.m_mode;
    m_grid = prepared.m_grid;
    m_samples = prepared.m_samples;
    m_startTime = prepared.m_startTime;
    m_timePerDivision = prepared.m_timePerDivision;
    m_runs = prepared.m_runs;
}

void CurveRenderer::build(const Node& symbol)
{
    m_lines.clear();
    m_points.clear();
    m_spans.clear();
    if (m_samples.empty || !symbol.symbol().Values || !m_samples.timeStamps)
        return;
    const bool lines = symbol.symbol().DrawStyle == 0;
    withDecoder(symbol, [&](auto decode) {
        if (m_mode == Mode::EverySample)
            everySample(symbol, decode, lines);
        else if (lines)
            reduceLines(symbol, decode);
        else
            reducePoints(symbol, decode);
    });
}

void CurveRenderer::paint(QPainter& painter, const QColor& colour)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(QPen(colour, 2));
    flush(painter, colour);
    painter.restore();
}

void CurveRenderer::draw(QPainter& painter, const Node& symbol, const QColor& colour)
{
    build(symbol);
    paint(painter, colour);
}
