// A sample store filled in bulk for the graph's tests and benchmark, and a
// frame of the graph rendered into an image.
#pragma once

#include "tests/files/StoreFixture.h"
#include "view/GraphWidget.h"

#include <QImage>
#include <QPainter>

#include <cstring>
#include <functional>
#include <vector>

namespace graphtest {

inline std::uint64_t bitsOf(float v)
{
    std::uint32_t b;
    std::memcpy(&b, &v, 4);
    return b;
}

inline Node* selectColoured(StoreFixture& f, const std::string& name, std::uint32_t size, std::int32_t typeId,
                            Rgb colour)
{
    Node* n = f.select(name, size, typeId);
    n->symbol().GraphColor = colour;
    n->symbol().HasGraphColor = true;
    return n;
}

using TimeOf = std::function<std::uint32_t(std::uint32_t)>;
using ValueOf = std::function<std::uint64_t(std::size_t, std::uint32_t)>;

// Stores `count` records, time stamp `timeOf(i)`, each selected symbol's raw
// bytes from `valueOf(symbol index, i)` (little-endian, cut to its size).
inline void fill(SampleStore& store, const std::vector<Node*>& symbols, std::uint32_t count, const TimeOf& timeOf,
                 const ValueOf& valueOf)
{
    store.layOut(true);
    if (store.isEmpty())
        store.prepareFreshStart();
    store.setOpen(true);
    const std::uint32_t size = store.recordSize();
    constexpr std::uint32_t kChunk = 65536;
    std::vector<std::uint8_t> bytes;
    for (std::uint32_t begin = 0; begin < count; begin += kChunk) {
        const std::uint32_t n = std::min(kChunk, count - begin);
        bytes.assign(std::size_t(n) * size, 0);
        for (std::uint32_t r = 0; r < n; ++r) {
            std::uint8_t* rec = bytes.data() + std::size_t(r) * size;
            const std::uint32_t ts = timeOf(begin + r);
            std::memcpy(rec, &ts, 4);
            for (std::size_t s = 0; s < symbols.size(); ++s) {
                const std::uint64_t v = valueOf(s, begin + r);
                std::memcpy(rec + symbols[s]->symbol().Offset, &v, std::min<std::uint32_t>(symbols[s]->Size, 8));
            }
        }
        store.storeRecords(bytes.data(), bytes.size());
    }
    store.setOpen(false);
}

inline void fill(StoreFixture& f, std::uint32_t count, const TimeOf& timeOf, const ValueOf& valueOf)
{
    fill(f.store, f.symbols.selected(), count, timeOf, valueOf);
}

inline QImage frame(GraphWidget& w)
{
    QImage image(w.size(), QImage::Format_RGB32);
    QPainter p(&image);
    w.paintFrame(p);
    return image;
}

// Pixels of exactly `colour`.
inline std::vector<QPoint> pixelsOf(const QImage& image, QColor colour)
{
    std::vector<QPoint> out;
    const QRgb want = colour.rgb();
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x)
            if ((line[x] | 0xFF000000u) == want)
                out.emplace_back(x, y);
    }
    return out;
}

}  // namespace graphtest
