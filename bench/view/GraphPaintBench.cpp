// Paint time of the graph with 8 curves of 1,048,576 samples each in view on
// a 1920x1080 graph: the per-column reduction beside drawing every sample,
// and a cursor-only repaint over the cached curves.
#include "tests/view/GraphTestSupport.h"

#include <QApplication>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>

namespace {

// Paints into one reused image, as the widget paints into its reused backing store.
double msPerPaint(GraphWidget& graph, int paints, QImage& last)
{
    last = QImage(graph.size(), QImage::Format_RGB32);
    {
        QPainter warm(&last);
        graph.paintFrame(warm);  // warm the caches and the layer image
    }
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < paints; ++i) {
        graph.invalidate();
        QPainter p(&last);
        graph.paintFrame(p);
    }
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
    return took.count() / paints;
}

}  // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);

    StoreFixture f;
    const struct {
        const char* name;
        std::uint32_t size;
        std::int32_t type;
    } curves[] = {{"sine", 4, kTypeFloat},   {"noise", 2, kTypeS16}, {"ramp", 4, kTypeS32}, {"byte", 1, kTypeU8},
                  {"cosine", 4, kTypeFloat}, {"raw", 2, kTypeU16},   {"flag", 1, kTypeBool}, {"count", 4, kTypeU32}};
    std::size_t k = 0;
    for (const auto& c : curves) {
        Node* n = graphtest::selectColoured(f, c.name, c.size, c.type,
                                            Rgb{std::uint8_t(80 + 20 * k), std::uint8_t(255 - 25 * k), 128, 255});
        n->symbol().YResolution = 100;
        n->symbol().YOffset = 3.5 - double(k);
        ++k;
    }
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> noise(-300, 300);
    const std::uint32_t records = SampleStore::kCapacity;
    const std::uint32_t period = 18;  // 18.9 s: the whole recording spans the 19 divisions at 1 s each
    graphtest::fill(f, records, [&](std::uint32_t i) { return i * period; },
                    [&](std::size_t s, std::uint32_t i) -> std::uint64_t {
                        switch (s) {
                        case 0: return graphtest::bitsOf(float(250 * std::sin(i * 1e-4) + noise(rng) * 0.2));
                        case 1: return std::uint16_t(std::int16_t(noise(rng)));
                        case 2: return std::uint32_t(std::int32_t(i % 60000) - 30000) / 100;
                        case 3: return std::uint8_t(i >> 10);
                        case 4: return graphtest::bitsOf(float(250 * std::cos(i * 3e-5)));
                        case 5: return std::uint16_t(i * 7);
                        case 6: return (i >> 14) & 1;
                        default: return std::uint32_t(noise(rng) + 500);
                        }
                    });

    GraphWidget graph(f.store, f.symbols);
    graph.resize(1920, 1080);
    graph.setStartTime(0);
    const GraphGeometry g = graph.grid();
    std::printf("graph %dx%d, %d x %d divisions, %zu curves x %u samples in view\n", g.width, g.height, g.divisionsX,
                g.divisionsY, f.symbols.selected().size(), f.store.recordCount());

    QImage reduced, every;
    graph.setCurveMode(CurveRenderer::Mode::Reduced);
    const double reducedMs = msPerPaint(graph, 20, reduced);
    if (argc > 1 && QByteArray(argv[1]) == "--reduced-only") {  // for profiling
        std::printf("reduced per pixel column: %.2f ms/paint\n", reducedMs);
        return 0;
    }
    graph.setCurveMode(CurveRenderer::Mode::EverySample);
    const double everyMs = msPerPaint(graph, 3, every);
    graph.setCurveMode(CurveRenderer::Mode::Reduced);
    graphtest::frame(graph);

    // Cursor moves repaint over the cached curves.
    const auto begin = std::chrono::steady_clock::now();
    const int moves = 200;
    QImage target(graph.size(), QImage::Format_RGB32);
    for (int i = 0; i < moves; ++i) {
        graph.setCursorX(100 + i * 8);
        QPainter p(&target);
        graph.paintFrame(p);
    }
    const std::chrono::duration<double, std::milli> cursorTook = std::chrono::steady_clock::now() - begin;

    int differ = 0;
    for (int y = 0; y < reduced.height(); ++y)
        for (int x = 0; x < reduced.width(); ++x)
            differ += reduced.pixel(x, y) != every.pixel(x, y);
    std::printf("%-34s %10s\n", "paint", "ms/paint");
    std::printf("%-34s %10.2f\n", "reduced per pixel column", reducedMs);
    std::printf("%-34s %10.2f\n", "every sample", everyMs);
    std::printf("%-34s %10.3f\n", "cursor move over cached curves", cursorTook.count() / moves);
    std::printf("speed-up %.1fx, pictures differ in %d pixels\n", everyMs / reducedMs, differ);
    return differ == 0 ? 0 : 1;
}
