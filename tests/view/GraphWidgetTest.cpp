// The graph: its curves, Y range, navigation, zoom, dragging and scroll bar.
#include "tests/view/GraphTestSupport.h"
#include "view/GraphContainer.h"

#include <QAction>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <set>

using namespace graphtest;

namespace {

constexpr Rgb kRed{255, 0, 0, 255}, kGreen{0, 255, 0, 255}, kBlue{0, 128, 255, 255}, kYellow{255, 255, 0, 255};

struct GraphTest : ::testing::Test {
    StoreFixture f;
    std::unique_ptr<GraphWidget> w;

    void SetUp() override
    {
        w = std::make_unique<GraphWidget>(f.store, f.symbols);
        w->resize(1050, 600);  // 10 x 6 divisions, margins 25 and 0, zero line at 300
    }

    // Time stamps every `period` microseconds; the value of every symbol is the record's index.
    void record(std::uint32_t count, std::uint32_t period = 1000,
                const std::function<std::uint64_t(std::size_t, std::uint32_t)>& valueOf =
                    [](std::size_t, std::uint32_t i) -> std::uint64_t { return i; })
    {
        fill(f, count, [period](std::uint32_t i) { return i * period; }, valueOf);
    }
    Node* counter() { return selectColoured(f, "a", 4, kTypeS32, kRed); }

    // Drawing every sample and the reduced drawing give the same picture.
    bool reductionIsExact()
    {
        w->setCurveMode(CurveRenderer::Mode::EverySample);
        const QImage reference = frame(*w);
        w->setCurveMode(CurveRenderer::Mode::Reduced);
        return frame(*w) == reference;
    }
    // The rows of a colour's pixels right of the zero markers.
    std::set<int> rowsOf(QColor c, int fromX = 6)
    {
        std::set<int> rows;
        for (const QPoint& p : pixelsOf(frame(*w), c))
            if (p.x() >= fromX)
                rows.insert(p.y());
        return rows;
    }
};

}  // namespace

// Drawing every sample and the reduced drawing give the same picture: dense and
// sparse lines, a few samples per column, dense and sparse points.
TEST_F(GraphTest, ReductionIsPixelIdentical)
{
    selectColoured(f, "noise", 2, kTypeS16, kRed);
    selectColoured(f, "sine", 4, kTypeFloat, kGreen);
    Node* square = selectColoured(f, "square", 1, kTypeBool, kBlue);
    Node* big = selectColoured(f, "big", 4, kTypeU32, kYellow);
    Node* bits = selectColoured(f, "bits", 4, kTypeBitField, Rgb{255, 0, 255, 255});
    bits->BitOffset = 3;
    bits->BitSize = 5;
    big->symbol().YOffset = -2.5;
    const struct {
        std::uint32_t count, period;
        double timePerDivision;
        std::int32_t drawStyle;
    } cases[] = {{200000, 50, 1000000, 0}, {3000, 1000, 200000, 0}, {40000, 100, 500000, 0},
                 {200000, 50, 1000000, 1}, {3000, 1000, 200000, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.count << " records, style " << c.drawStyle);
        for (Node* n : f.symbols.selected()) {
            n->symbol().DrawStyle = c.drawStyle;
            n->symbol().YResolution = 10;
        }
        square->symbol().YResolution = 1;
        std::mt19937 rng(1234);
        std::uniform_int_distribution<int> d(-400, 400);
        f.store.prepareFreshStart();
        record(c.count, c.period, [&](std::size_t s, std::uint32_t i) -> std::uint64_t {
            switch (s) {
            case 0: return static_cast<std::uint16_t>(static_cast<std::int16_t>(d(rng) / (1 + i % 7)));
            case 1: {
                float v = 25.0f * std::sin(i * 0.001f) + (d(rng) % 3);
                if (i % 9973 == 5)
                    v = std::numeric_limits<float>::quiet_NaN();
                if (i % 15013 == 7)
                    v = std::numeric_limits<float>::infinity();
                return bitsOf(v);
            }
            case 2: return (i / 300) % 2;
            case 3: return static_cast<std::uint32_t>(i) * 99991u;  // runs far beyond the grid
            default: return static_cast<std::uint32_t>(d(rng)) << 2;
            }
        });
        w->invalidate();
        w->setTimePerDivision(c.timePerDivision);
        w->setStartTime(c.period * 3.5);
        EXPECT_TRUE(reductionIsExact());
        EXPECT_FALSE(pixelsOf(frame(*w), Qt::red).empty()) << "the case drew something";
    }
}

TEST_F(GraphTest, ReductionHoldsAcrossTheRingsWrap)
{
    selectColoured(f, "wave", 2, kTypeS16, kRed)->symbol().YResolution = 100;
    record(SampleStore::kCapacity + 70000, 10, [](std::size_t, std::uint32_t i) -> std::uint64_t {
        return static_cast<std::uint16_t>(static_cast<std::int16_t>((i * 37) % 601) - 300);
    });
    ASSERT_TRUE(f.store.hasWrapped());
    w->setTimePerDivision(1000000);
    // The visible ten seconds hold the place where the slots wrap round.
    const std::uint32_t wrapAt = SampleStore::kCapacity - f.store.oldestIndex();
    const double start = f.store.timeStampAt(0) + 5000000.0;
    ASSERT_GT(f.store.timeStampAt(wrapAt), start);
    ASSERT_LT(f.store.timeStampAt(wrapAt), start + 10000000.0);
    w->setStartTime(start);
    EXPECT_TRUE(reductionIsExact());
    EXPECT_FALSE(pixelsOf(frame(*w), Qt::red).empty());
}

TEST_F(GraphTest, SixtyFourBitSymbolIsDrawnOnItsZeroLine)
{
    selectColoured(f, "counter64", 8, kTypeU64, kRed)->symbol().YResolution = 1;
    record(5000, 1000, [](std::size_t, std::uint32_t i) { return 0x0123456789ABCDEFull + i * 1000003ull; });
    EXPECT_EQ(rowsOf(Qt::red), (std::set<int>{299, 300}));
    EXPECT_GT(pixelsOf(frame(*w), Qt::red).size(), 400u);  // five seconds at one second per division
}

TEST_F(GraphTest, CurvesFollowTheirSettingsAndStopAtTheTopOfTheGrid)
{
    Node* a = selectColoured(f, "a", 4, kTypeS32, kRed);
    Node* b = selectColoured(f, "b", 4, kTypeS32, kGreen);
    a->symbol().YResolution = b->symbol().YResolution = 1000;
    record(3000, 1000, [](std::size_t s, std::uint32_t) -> std::uint64_t { return s == 0 ? 1000u : 2000u; });
    // One division up for a, two for b, from x = 25 for three seconds.
    EXPECT_EQ(rowsOf(Qt::red), (std::set<int>{199, 200}));
    EXPECT_EQ(rowsOf(Qt::green), (std::set<int>{99, 100}));
    b->symbol().ShowInGraph = false;
    a->symbol().YOffset = -1;
    w->invalidate();
    EXPECT_TRUE(rowsOf(Qt::green).empty());
    EXPECT_EQ(rowsOf(Qt::red), (std::set<int>{299, 300}));

    // A curve that runs off the top is cut at the grid's top edge: the margin
    // above it stays clear (the zero markers of the symbols above live there).
    StoreFixture own;
    GraphWidget graph(own.store, own.symbols);
    graph.resize(1050, 650);  // 6 divisions, a 25-pixel margin above and below
    ASSERT_EQ(graph.grid().gridTop(), 25);
    Node* tall = selectColoured(own, "tall", 4, kTypeS32, kRed);
    tall->symbol().YResolution = 100;
    tall->symbol().ManualYResolution = true;
    fill(own, 2000, [](std::uint32_t i) { return i * 500; },
         [](std::size_t, std::uint32_t i) -> std::uint64_t { return (i / 10) % 2 ? 1000 : 0; });
    std::size_t drawn[2] = {};
    for (const std::int32_t style : {0, 1}) {
        tall->symbol().DrawStyle = style;
        graph.invalidate();
        std::set<int> rows;
        for (const QPoint& p : pixelsOf(frame(graph), Qt::red))
            if (p.x() >= 40) {  // right of the zero marker's column
                rows.insert(p.y());
                ++drawn[style];
            }
        ASSERT_FALSE(rows.empty()) << style;
        EXPECT_GE(*rows.begin(), 25) << style;
    }
    EXPECT_GT(drawn[0], 2 * drawn[1]) << "lines join the jumps, points do not";
}

// The automatic range steps the resolution of shown curves up; a resolution
// the user chose stays, however far the curve runs off the grid.
TEST_F(GraphTest, AutomaticRangeStepsUpAndLeavesAChosenResolution)
{
    Node* n = selectColoured(f, "n", 4, kTypeS32, kRed);
    Node* hidden = selectColoured(f, "hidden", 4, kTypeS32, kGreen);
    Node* chosen = selectColoured(f, "chosen", 4, kTypeS32, kBlue);
    n->symbol().YResolution = hidden->symbol().YResolution = chosen->symbol().YResolution = 2;
    hidden->symbol().ShowInGraph = false;
    chosen->symbol().ManualYResolution = true;
    record(100, 1000, [](std::size_t, std::uint32_t i) -> std::uint64_t {
        return static_cast<std::uint32_t>(i == 50 ? -1000 : 10);
    });
    for (int paint = 0; paint < 2; ++paint) {
        frame(*w);
        // max(|-1000|, 10) * 2 / 6 divisions = 333: the next series value is 500.
        EXPECT_EQ(n->symbol().YResolution, 500u);
        EXPECT_EQ(hidden->symbol().YResolution, 2u);
        EXPECT_EQ(chosen->symbol().YResolution, 2u);
    }
}

TEST_F(GraphTest, RightRunsPastTheNewestSampleAndTheOthersStop)
{
    counter();
    record(25001);  // 25 s
    QSignalSpy off(w.get(), &GraphWidget::AutoscrollSwitchedOff);
    w->setAutoscroll(true);
    for (int i = 0; i < 40; ++i)
        w->moveRightAction()->trigger();
    EXPECT_FALSE(w->autoscroll());
    EXPECT_EQ(off.count(), 40);
    EXPECT_DOUBLE_EQ(w->startTime(), 40 * 1000000.0);  // a tenth of the 10 s span each
    w->setStartTime(2000000.0);
    EXPECT_EQ(w->cursorSampleIndex(), 2000);
    // End, Left and Home stop at the newest sample or 0.
    const std::pair<QAction*, double> moves[] = {{w->moveToEndAction(), 15000000.0}, {w->moveLeftAction(), 14000000.0},
                                                 {w->moveToStartAction(), 0.0}, {w->moveLeftAction(), 0.0},
                                                 {w->moveRightAction(), 1000000.0}};
    for (const auto& [action, start] : moves) {
        action->trigger();
        EXPECT_DOUBLE_EQ(w->startTime(), start) << action->text().toStdString();
    }
}

// A zoom that cannot move leaves autoscroll on: DemoWindow zooms a short recording.
TEST_F(GraphTest, ZoomKeepsTheCursorTimeInPlaceWhereItCanMove)
{
    counter();
    record(20001);  // 20 s
    QSignalSpy off(w.get(), &GraphWidget::AutoscrollSwitchedOff);
    w->setCursorX(525);  // 5 s
    w->setTimePerDivision(500000);
    EXPECT_DOUBLE_EQ(w->startTime(), 2500000.0);
    EXPECT_EQ(w->cursorTime(), 5000000u);
    EXPECT_EQ(off.count(), 1);
    w->setTimePerDivision(1000000);
    EXPECT_DOUBLE_EQ(w->startTime(), 1250000.0);
    // Zooming out near the end is held at the newest sample.
    w->setStartTime(10000000.0);
    w->setTimePerDivision(2000000);  // span 20 s: at most 0
    EXPECT_DOUBLE_EQ(w->startTime(), 0.0);
}

TEST_F(GraphTest, ZeroMarkerDragsTheOffsetAndSnapsBackToTheGrid)
{
    Node* a = counter();
    w->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(w.get()));
    QSignalSpy edited(w.get(), &GraphWidget::SymbolSettingsEdited);
    QTest::mousePress(w.get(), Qt::LeftButton, {}, QPoint(5, 300));
    // Up one division, to the grid's top edge, above the grid, back over it: onto its top edge.
    const std::pair<int, double> moves[] = {{200, 1.0}, {0, 3.0}, {-150, 4.5}, {120, 3.0}};
    for (const auto& [y, offset] : moves) {
        QTest::mouseMove(w.get(), QPoint(5, y));
        EXPECT_DOUBLE_EQ(a->symbol().YOffset, offset) << y;
    }
    EXPECT_GE(edited.count(), 1) << "the project is told of the new offset";
    QTest::mouseRelease(w.get(), Qt::LeftButton, {}, QPoint(5, 120));
    // The marker pointing up sits at the top edge now; grabbing below it drags nothing.
    a->symbol().YOffset = 4;
    w->update();
    edited.clear();
    QTest::mousePress(w.get(), Qt::LeftButton, {}, QPoint(500, 400));
    QTest::mouseMove(w.get(), QPoint(500, 300));
    QTest::mouseRelease(w.get(), Qt::LeftButton, {}, QPoint(500, 300));
    EXPECT_DOUBLE_EQ(a->symbol().YOffset, 4.0);
    EXPECT_EQ(edited.count(), 0);
    // Its tip at (5, 0) grabs it.
    QTest::mousePress(w.get(), Qt::LeftButton, {}, QPoint(7, 3));
    QTest::mouseMove(w.get(), QPoint(7, 103));
    EXPECT_DOUBLE_EQ(a->symbol().YOffset, 3.0);
    QTest::mouseRelease(w.get(), Qt::LeftButton, {}, QPoint(7, 103));
}

TEST_F(GraphTest, DraggingTheViewMovesTheStartAndSwitchesAutoscrollOff)
{
    counter();
    record(20001);
    w->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(w.get()));
    w->setAutoscroll(true);
    QSignalSpy off(w.get(), &GraphWidget::AutoscrollSwitchedOff);
    const auto drag = [&](int from, int to) {
        QTest::mousePress(w.get(), Qt::LeftButton, {}, QPoint(from, 400));
        QTest::mouseMove(w.get(), QPoint(to, 400));
        QTest::mouseRelease(w.get(), Qt::LeftButton, {}, QPoint(to, 400));
    };
    drag(600, 450);
    EXPECT_DOUBLE_EQ(w->startTime(), 1500000.0);  // 150 pixels at 10 ms a pixel
    EXPECT_FALSE(w->autoscroll());
    EXPECT_GE(off.count(), 1);
    EXPECT_EQ(w->cursorX(), 450);
    drag(100, 900);
    EXPECT_DOUBLE_EQ(w->startTime(), 0.0) << "dragging to the right stops at 0";
    // Without a button the cursor just follows the pointer, inside the margins.
    QTest::mouseMove(w.get(), QPoint(300, 200));
    EXPECT_EQ(w->cursorX(), 300);
    EXPECT_DOUBLE_EQ(w->startTime(), 0.0);
    for (const auto& [x, kept] : {std::pair{-40, 25}, std::pair{5000, 1025}}) {
        w->setCursorX(x);
        EXPECT_EQ(w->cursorX(), kept);
    }
}

// Holding and releasing the view while samples come: the tool bar's tests and
// DemoWindow.
TEST_F(GraphTest, HeldViewsScrollBarSpansTheRecordingAndMovesTheView)
{
    counter();
    record(30001);
    GraphContainer container(f.store, f.symbols);
    container.resize(1050, 700);
    container.setHeld(true);
    EXPECT_EQ(container.scrollBar()->maximum(), 30000000);
    container.scrollBar()->setValue(7000000);
    EXPECT_DOUBLE_EQ(container.graph()->startTime(), 7000000.0);
    container.graph()->moveRightAction()->trigger();
    EXPECT_EQ(container.scrollBar()->value(), container.graph()->startTime());
}
