// The demo project in the real main window on the simulated target: the
// project opens into the tool bar and the graph, F5 samples with the graph
// following, F9 stops and holds the picture.
#include "app/Controller.h"
#include "gui/MainWindow.h"
#include "gui/ProgressDialog.h"
#include "probe/ProbeSampler.h"
#include "view/GraphContainer.h"
#include "view/GraphWidget.h"
#include "view/ToolBar.h"

#include <QCheckBox>
#include <QComboBox>
#include <QElapsedTimer>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

namespace fs = std::filesystem;

TEST(DemoWindow, OpensSamplesAndStopsFromTheKeys)
{
    const fs::path demo = fs::path(PLOTVIK_BIN_DIR) / "examples" / "demo" / "demo_bsq.plotvik";
    if (!fs::exists(demo) || !fs::exists(fs::path(PLOTVIK_BIN_DIR) / "libTarvo_x64.so"))
        GTEST_SKIP() << "demo project or probe library not built";
    JobEngine engine;
    auto ctl = std::make_unique<Controller>(engine, std::make_unique<ProbeSampler>());
    auto window = std::make_unique<MainWindow>(*ctl, std::vector<std::string>{"plotvik"});
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->windowTitle().startsWith("Norvex Plotvik"); }, 5000));
    ctl->postOpenProjFile(demo.string(), nullptr, {});
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->toolBar()->displayState() == ToolBar::kStateReady; }, 20000))
        << "state " << window->toolBar()->displayState() << ", " << ctl->symbols().selected().size() << " symbols";
    // The ELF file is parsed after the project opened; the window repaints again after it.
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->updatesEnabled() && !ctl->elfParsing(); }, 30000));
    EXPECT_FALSE(window->progressDialog()->isVisible());
    EXPECT_TRUE(window->centralWidget()->isHidden());  // the views take the whole window
    const QString shots = qEnvironmentVariable("PLOTVIK_SHOTS");  // where to leave screenshots, if anywhere
    auto shoot = [&](const char* name) {
        if (!shots.isEmpty())
            window->grab().save(shots + "/" + name);
    };
    shoot("demo-ready.png");

    // The keys go to the active window (the progress dialog had the focus last).
    const auto press = [&](Qt::Key key) {
        QApplication::setActiveWindow(window.get());
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
        QTest::keyClick(window.get(), key);
    };
    press(Qt::Key_F5);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ctl->samplingRunning(); }, 10000));
    GraphWidget* graph = window->graph()->graph();
    EXPECT_TRUE(window->graph()->scrollBar()->isHidden());
    // Real time: wait for more than one screen (10 s at 1 s per division would
    // be long), so zoom out to 200 ms per division and let 2.5 s pass.
    window->toolBar()->zoomBox()->setCurrentIndex(16);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ctl->store().currentTimeStamp() > 2500000; }, 20000));
    EXPECT_TRUE(window->toolBar()->autoscrollBox()->isChecked());
    {
        // Each read of the running target asks for a repaint, honoured at the target rate.
        QSignalSpy requests(graph, &GraphWidget::UpdateRequest);
        QElapsedTimer since;
        since.start();
        EXPECT_TRUE(QTest::qWaitFor([&] { return requests.count() >= 10; }, 20000));
        // At most one request per frame of the 30 FPS target, however long the wait took.
        EXPECT_LE(requests.count(), since.elapsed() * 30 / 1000 + 2) << since.elapsed() << " ms";
    }
    // Autoscroll follows the newest sample (within the few frames a loaded machine lags).
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            return graph->startTime() > 0.0 &&
                   std::abs(graph->startTime() + graph->visibleSpan() - ctl->store().currentTimeStamp()) < 600000;
        },
        10000))
        << "start " << graph->startTime() << " span " << graph->visibleSpan() << " newest "
        << ctl->store().currentTimeStamp() << " held " << graph->isHeld() << " autoscroll " << graph->autoscroll()
        << " fps " << graph->measuredFps();
    shoot("demo-sampling.png");
    // The cursor reads the live samples of every symbol.
    const QStringList readout = graph->readoutText().split('\n');
    EXPECT_EQ(readout.size(), static_cast<int>(ctl->symbols().selected().size()));
    EXPECT_TRUE(readout.first().startsWith("g_tick_ms: ")) << readout.first().toStdString();

    press(Qt::Key_F9);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !ctl->samplingRunning(); }, 10000));
    QTest::qWait(300);
    EXPECT_TRUE(graph->isHeld());
    EXPECT_FALSE(window->graph()->scrollBar()->isHidden());
    EXPECT_EQ(window->toolBar()->displayState(), ToolBar::kStateReady);
    shoot("demo-stopped.png");

    window->close();
    QTest::qWait(100);
    window->QMainWindow::close();
    window.reset();
    ctl.reset();
}
