// The tool bar, through a sampling run on a fake probe and from the keys on the
// simulated target, and the trigger controls.
#include "gui/ProgressDialog.h"
#include "probe/ProbeSampler.h"
#include "tests/gui/GuiTestSupport.h"
#include "view/GraphContainer.h"
#include "view/GraphWidget.h"
#include "view/ToolBar.h"
#include "view/TriggerWidget.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QScrollBar>
#include <QSignalSpy>
#include <QWheelEvent>

#include <array>
#include <atomic>
#include <cmath>
#include <filesystem>

namespace {

const std::filesystem::path kBin = PLOTVIK_BIN_DIR, kDemo = kBin / "examples" / "demo" / "demo_bsq.plotvik";

struct ToolBarTest : guitest::ControllerTest {
    std::unique_ptr<GraphContainer> graph = std::make_unique<GraphContainer>(ctl->store(), ctl->symbols());
    std::unique_ptr<ToolBar> bar = std::make_unique<ToolBar>(*ctl, graph.get());

    ToolBarTest() { graph->resize(1050, 650); }
    // A project with one symbol, ready to sample.
    void ready()
    {
        ctl->project().setOpen(true);
        guitest::selectSymbols(*ctl, 1);
        bar->updateDisplayState();
        ASSERT_EQ(bar->displayState(), ToolBar::kStateReady);
    }
    bool settle() { return ctl->waitForQueue(5000); }
    GraphWidget* g() { return graph->graph(); }
};

}  // namespace

TEST_F(ToolBarTest, ZoomStepsAndTheFrameRateReachTheGraph)
{
    bar->zoomInAction()->trigger();  // no project: zoom is off
    EXPECT_EQ(bar->zoomBox()->currentIndex(), 18);
    ctl->project().setOpen(true);
    bar->updateDisplayState();
    bar->zoomInAction()->trigger();
    EXPECT_EQ(bar->zoomBox()->currentIndex(), 17);
    EXPECT_DOUBLE_EQ(g()->timePerDivision(), 500000.0);
    EXPECT_EQ(ctl->project().settings().TimeResolutionUs, 500000u) << "kept for the next save";
    EXPECT_FALSE(ctl->project().isModified()) << "zooming alone changes no setting the user saves on purpose";
    bar->zoomOutAction()->trigger();
    bar->zoomOutAction()->trigger();
    EXPECT_DOUBLE_EQ(g()->timePerDivision(), 2000000.0);
    bar->zoomBox()->setCurrentIndex(0);
    bar->zoomInAction()->trigger();
    EXPECT_EQ(bar->zoomBox()->currentIndex(), 0);
    bar->zoomBox()->setCurrentIndex(26);
    bar->zoomOutAction()->trigger();
    EXPECT_EQ(bar->zoomBox()->currentIndex(), 26);
    // The graph's wheel takes the same steps, one a notch.
    for (const auto& [delta, index] : {std::pair{120, 25}, std::pair{-120, 26}, std::pair{120, 25}}) {
        const QPointF at(300, 200);
        QWheelEvent e(at, at, {}, QPoint(0, delta), Qt::NoButton, {}, Qt::NoScrollPhase, false);
        QApplication::sendEvent(g(), &e);
        EXPECT_EQ(bar->zoomBox()->currentIndex(), index) << delta;
    }
    EXPECT_DOUBLE_EQ(g()->timePerDivision(), 200000000.0);
    bar->frameRateBox()->setCurrentText("60");
    EXPECT_EQ(ctl->graphRefreshTarget(), 60);
    EXPECT_EQ(g()->targetFps(), 60);
}

// Start, stop, the held view and its scroll bar: DemoWindow and GraphTest.
TEST_F(ToolBarTest, DisplayStatesFollowASamplingRun)
{
    ctl->project().setOpen(true);
    bar->updateDisplayState();
    EXPECT_EQ(bar->displayState(), ToolBar::kStateProjectWithoutSymbols);
    EXPECT_FALSE(bar->startPauseAction()->isEnabled());
    ready();
    EXPECT_FALSE(bar->stopAction()->isEnabled());
    ProjectSettings s = ctl->project().settings();
    s.IsQTXWithTimeStamp = true;
    ctl->project().apply(s);
    bar->startPauseAction()->trigger();
    ASSERT_TRUE(settle());

    // Pause: held, data keep coming in the background; resume releases the view.
    bar->startPauseAction()->trigger();
    EXPECT_EQ(bar->displayState(), ToolBar::kStatePaused);
    EXPECT_TRUE(g()->isHeld());
    bar->startPauseAction()->trigger();
    ASSERT_TRUE(settle());
    bar->updateDisplayState();
    EXPECT_EQ(bar->displayState(), ToolBar::kStateSampling);
    EXPECT_FALSE(g()->isHeld());
    EXPECT_TRUE(bar->stopAction()->isEnabled());
    ASSERT_TRUE(QTest::qWaitFor([&] { return ctl->store().recordCount() > 20; }, 5000));
    bar->stopAction()->trigger();
    EXPECT_EQ(bar->displayState(), ToolBar::kStateStopped);
    ASSERT_TRUE(settle());
}

TEST_F(ToolBarTest, SamplingEndingOnItsOwnHoldsTheView)
{
    ready();
    sampler->failReadAt = 40;  // a read error ends sampling after about 400 ms
    bar->startPauseAction()->trigger();
    ASSERT_TRUE(settle());
    bar->updateDisplayState();
    EXPECT_TRUE(bar->samplingRunning());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !ctl->samplingRunning(); }, 5000));
    bar->updateDisplayState();
    EXPECT_FALSE(bar->samplingRunning());
    EXPECT_TRUE(g()->isHeld());
    EXPECT_EQ(bar->displayState(), ToolBar::kStateReady);
}

TEST_F(ToolBarTest, TargetRunsHaltsAndResets)
{
    EXPECT_EQ(bar->targetAction()->toolTip(), "Start Target");  // nothing connected yet
    ready();
    bar->startPauseAction()->trigger();
    ASSERT_TRUE(settle());
    ASSERT_TRUE(ctl->probeConnected());
    bar->updateDisplayState();
    for (const bool halted : {true, false}) {
        bar->targetAction()->trigger();
        EXPECT_EQ(sampler->halted, halted);
        EXPECT_EQ(bar->targetAction()->toolTip(), halted ? "Start Target" : "Stop Target");
    }
    bar->resetAction()->trigger();
    EXPECT_EQ(bar->targetAction()->toolTip(), "Start Target");
    EXPECT_FALSE(ctl->targetHalted());
}

// An opened project's time per division selects the entry nearest to it.
TEST_F(ToolBarTest, ZoomFollowsAndWritesTheProjectsTimeResolution)
{
    // Saved and kept: 150 ms is nearer by ratio to 200 ms than to 100 ms.
    const std::pair<std::uint32_t, std::uint32_t> cases[] = {
        {100000, 100000}, {150000, 200000}, {1, 1}, {4000000000u, 500000000}};
    ctl->project().setOpen(true);
    for (const auto& [saved, kept] : cases) {
        SCOPED_TRACE(saved);
        ProjectSettings s = ctl->project().settings();
        s.TimeResolutionUs = saved;
        ctl->project().apply(s);  // as an opened project file gives it
        ctl->project().setModified(false);
        bar->updateDisplayState();
        EXPECT_EQ(bar->zoomBox()->currentData().toUInt(), kept);
        EXPECT_DOUBLE_EQ(g()->timePerDivision(), double(kept));
        EXPECT_EQ(ctl->project().settings().TimeResolutionUs, kept);
        EXPECT_FALSE(ctl->project().isModified());
    }
}

// The QTX demo lists its channel's symbols and names no ELF file, whose parse
// would drop them: opened, it is ready to start.
TEST_F(ToolBarTest, TheQtxDemoOpensReadyToStart)
{
    const std::filesystem::path demo = kDemo.parent_path() / "demo_qtx.plotvik";
    if (!std::filesystem::exists(demo))
        GTEST_SKIP() << "demo projects not built";
    std::atomic<int> result{1};
    ctl->postOpenProjFile(demo.string(), &result, {});
    ASSERT_TRUE(settle());
    ASSERT_TRUE(settle());  // a parse the open may have posted
    ASSERT_EQ(result.load(), 0);
    EXPECT_TRUE(ctl->project().settings().IsQTXSession);
    ASSERT_EQ(ctl->symbols().selected().size(), 4u);
    bar->updateDisplayState();
    EXPECT_EQ(bar->displayState(), ToolBar::kStateReady);
}

namespace {

struct TriggerWidgetTest : guitest::ControllerTest {
    std::unique_ptr<TriggerWidget> widget = std::make_unique<TriggerWidget>(*ctl);

    // An open project with three symbols; the controls take them.
    void openWithSymbols()
    {
        ctl->symbols().setSelected({guitest::newSymbol(*ctl, "g_motor.speed"), guitest::newSymbol(*ctl, "g_square"),
                                    guitest::newSymbol(*ctl, "counter")});
        openProject();
        widget->rebuild();
        widget->updateEnabling();
    }
    Node* selected(std::size_t i) { return ctl->symbols().selected()[i]; }
    ProjectSettings settings() { return ctl->project().settings(); }
    bool controlsEnabled()
    {
        const bool on = widget->risingAction()->isEnabled();
        EXPECT_EQ(widget->fallingAction()->isEnabled(), on);
        EXPECT_EQ(widget->bothAction()->isEnabled(), on);
        EXPECT_EQ(widget->symbolBox()->isEnabled(), on);
        EXPECT_EQ(widget->thresholdEdit()->isEnabled(), on);
        return on;
    }
};

}  // namespace

TEST_F(TriggerWidgetTest, EdgeActionsExcludeEachOtherAndWriteTheProject)
{
    openWithSymbols();
    widget->symbolBox()->setCurrentIndex(1);  // trigger off: the box alone changes nothing
    EXPECT_EQ(settings().TriggerSymbol, nullptr);
    EXPECT_FALSE(ctl->project().isModified());

    // On, rise, fall; the rising, falling and both actions ticked.
    using State = std::array<bool, 6>;
    const std::pair<QAction*, State> steps[] = {
        {widget->risingAction(), {true, true, false, true, false, false}},
        {widget->fallingAction(), {true, false, true, false, true, false}},
        {widget->bothAction(), {true, true, true, false, false, true}},
        {widget->bothAction(), {false, true, true, false, false, false}},  // unchecked: off, edges kept
        {widget->risingAction(), {true, true, false, true, false, false}},
    };
    for (const auto& [action, state] : steps) {
        ctl->project().setModified(false);
        action->trigger();
        const ProjectSettings now = settings();
        SCOPED_TRACE(action->text().toStdString());
        EXPECT_EQ((State{now.TriggerOn, now.TriggerRise, now.TriggerFall, widget->risingAction()->isChecked(),
                         widget->fallingAction()->isChecked(), widget->bothAction()->isChecked()}),
                  state);
        EXPECT_EQ(now.TriggerSymbol, selected(1)) << "armed on the symbol the box shows";
        EXPECT_TRUE(ctl->project().isModified());
    }
}

TEST_F(TriggerWidgetTest, SymbolBoxAndThresholdWriteTheProject)
{
    openWithSymbols();
    widget->risingAction()->trigger();
    widget->symbolBox()->setCurrentIndex(2);
    EXPECT_EQ(settings().TriggerSymbol, selected(2));
    QLineEdit* edit = widget->thresholdEdit();
    edit->clear();
    QTest::keyClicks(edit, "-2.5");
    EXPECT_DOUBLE_EQ(settings().TriggerLevel, -2.5);

    // A fired trigger waits again once the user changes it.
    ProjectSettings fired = settings();
    fired.TriggerFired = true;
    ctl->project().apply(fired);
    widget->symbolBox()->setCurrentIndex(1);
    EXPECT_EQ(settings().TriggerSymbol, selected(1));
    EXPECT_FALSE(settings().TriggerFired);
}

TEST_F(TriggerWidgetTest, RebuildTakesTheProjectsTriggerButNotWhileSampling)
{
    widget->updateEnabling();
    EXPECT_FALSE(controlsEnabled()) << "no project";
    openWithSymbols();
    EXPECT_TRUE(controlsEnabled());
    // A trigger read from a project file: the controls show it.
    ProjectSettings s = settings();
    s.TriggerSymbol = selected(2);
    s.TriggerOn = s.TriggerRise = s.TriggerFall = true;
    s.TriggerLevel = 12.5;
    ctl->project().apply(s);
    widget->rebuild();
    EXPECT_EQ(widget->symbolBox()->currentIndex(), 2);
    EXPECT_TRUE(widget->bothAction()->isChecked());
    EXPECT_FALSE(widget->risingAction()->isChecked());
    EXPECT_EQ(widget->thresholdEdit()->text(), "12.5");
    EXPECT_FALSE(ctl->project().isModified());  // showing it changes nothing

    // A new selection refills the box.
    std::vector<Node*> fewer = {selected(2)};
    ctl->symbols().setSelected(fewer);
    widget->rebuild();
    ASSERT_EQ(widget->symbolBox()->count(), 1);
    EXPECT_EQ(widget->symbolBox()->currentText(), "counter");

    // While sampling runs the controls are off and nothing is rebuilt.
    ctl->postStartReading();
    ASSERT_TRUE(ctl->waitForQueue(5000));
    ASSERT_TRUE(ctl->samplingRunning());
    widget->updateEnabling();
    EXPECT_FALSE(controlsEnabled());
    s = settings();
    s.TriggerOn = false;
    ctl->project().apply(s);
    widget->rebuild();
    EXPECT_TRUE(widget->bothAction()->isChecked());
    ctl->postReadStop();
    ASSERT_TRUE(ctl->waitForQueue(5000));
    widget->rebuild();
    widget->updateEnabling();
    EXPECT_TRUE(controlsEnabled());
    EXPECT_FALSE(widget->bothAction()->isChecked());
}

namespace {

// The demo project in the real main window.

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
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->triggerWidget()->risingAction()->isEnabled(); }))
        << "the window's trigger controls follow the project";

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
