// The demo project in the real main window on the simulated target, from the keys.
#include "gui/ProgressDialog.h"
#include "probe/ProbeSampler.h"
#include "tests/gui/GuiTestSupport.h"
#include "view/GraphContainer.h"
#include "view/GraphWidget.h"
#include "view/ToolBar.h"

#include <QCheckBox>
#include <QComboBox>
#include <QScrollBar>
#include <QSignalSpy>

#include <cmath>
#include <filesystem>

namespace {

const std::filesystem::path kBin = PLOTVIK_BIN_DIR, kDemo = kBin / "examples" / "demo" / "demo_bsq.plotvik";

struct DemoWindow : guitest::WindowTest {
    std::unique_ptr<Sampler> makeSampler() override { return std::make_unique<ProbeSampler>(); }
    void SetUp() override
    {
        if (!std::filesystem::exists(kDemo) || !std::filesystem::exists(kBin / "libTarvo_x64.so"))
            GTEST_SKIP() << "demo project or probe library not built";
        WindowTest::SetUp();
    }
    // The keys go to the active window (the progress dialog had the focus last).
    void press(Qt::Key key)
    {
        QApplication::setActiveWindow(window.get());
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
        QTest::keyClick(window.get(), key);
    }
};

TEST_F(DemoWindow, OpensSamplesAndStopsFromTheKeys)
{
    ctl->postOpenProjFile(kDemo.string(), nullptr, {});
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->toolBar()->displayState() == ToolBar::kStateReady; }, 20000))
        << "state " << window->toolBar()->displayState() << ", " << ctl->symbols().selected().size() << " symbols";
    // The ELF file is parsed after the project opened; the window repaints again after it.
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->updatesEnabled() && !ctl->elfParsing(); }, 30000));
    EXPECT_FALSE(window->progressDialog()->isVisible());
    EXPECT_TRUE(window->centralWidget()->isHidden());  // the views take the whole window

    press(Qt::Key_F5);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ctl->samplingRunning(); }, 10000));
    GraphWidget* graph = window->graph()->graph();
    EXPECT_TRUE(window->graph()->scrollBar()->isHidden());
    // More than one screen, without waiting ten seconds: 200 ms per division and 2.5 s.
    window->toolBar()->zoomBox()->setCurrentIndex(16);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ctl->store().currentTimeStamp() > 2500000; }, 20000));
    EXPECT_TRUE(window->toolBar()->autoscrollBox()->isChecked());
    // Each read of the running target asks for a repaint.
    QSignalSpy requests(graph, &GraphWidget::UpdateRequest);
    EXPECT_TRUE(QTest::qWaitFor([&] { return requests.count() >= 10; }, 20000));
    // Autoscroll follows the newest sample (within the few frames a loaded machine lags).
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            return graph->startTime() > 0.0 &&
                   std::abs(graph->startTime() + graph->visibleSpan() - ctl->store().currentTimeStamp()) < 600000;
        },
        10000))
        << "start " << graph->startTime() << " span " << graph->visibleSpan() << " newest "
        << ctl->store().currentTimeStamp() << " held " << graph->isHeld() << " autoscroll " << graph->autoscroll();
    // The cursor reads the live samples of every symbol.
    const QStringList readout = graph->readoutText().split('\n');
    EXPECT_EQ(readout.size(), static_cast<int>(ctl->symbols().selected().size()));
    EXPECT_TRUE(readout.first().startsWith("g_tick_ms: ")) << readout.first().toStdString();

    press(Qt::Key_F9);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !ctl->samplingRunning(); }, 10000));
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->toolBar()->displayState() == ToolBar::kStateReady; }));
    EXPECT_TRUE(graph->isHeld());
    EXPECT_FALSE(window->graph()->scrollBar()->isHidden());
}

}  // namespace
