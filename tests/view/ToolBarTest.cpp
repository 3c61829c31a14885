// The tool bar: its actions, the zoom and frame rate boxes, Autoscroll, the
// display states through a sampling run on a fake probe, the target controls.
#include "tests/gui/GuiTestSupport.h"
#include "view/GraphContainer.h"
#include "view/GraphWidget.h"
#include "view/ToolBar.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QScrollBar>
#include <QWheelEvent>

#include <atomic>
#include <filesystem>

namespace {

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

TEST_F(ToolBarTest, ActionsInOrderWithTipsAndKeys)
{
    std::vector<QString> seen;
    for (QAction* a : bar->actions()) {
        QWidget* w = bar->widgetForAction(a);
        if (a->isSeparator())
            seen.push_back("|");
        else if (auto* label = qobject_cast<QLabel*>(w))
            seen.push_back("label:" + label->text());
        else if (auto* check = qobject_cast<QCheckBox*>(w))
            seen.push_back("check:" + check->text());
        else if (qobject_cast<QComboBox*>(w))
            seen.push_back(w == bar->zoomBox() ? "zoom" : "fps");
        else if (w && w->inherits("QToolButton"))
            seen.push_back("button:" + a->toolTip());
        else
            seen.push_back("spacer");
    }
    const std::vector<QString> expected = {
        "label:Sampling:",   "button:Start/Resume Sampling (F5)", "button:Stop Sampling (F9)", "|",
        "label:Target:",     "button:Start Target",               "button:Reset Target",       "spacer",
        "button:Zoom In",    "button:Zoom Out",                   "zoom",                      "|",
        "label:Target FPS: ", "fps",                              "|",                         "check:Autoscroll"};
    EXPECT_EQ(seen, expected);
    const std::pair<QAction*, Qt::Key> keys[] = {{bar->startPauseAction(), Qt::Key_F5}, {bar->stopAction(), Qt::Key_F9},
                                                 {bar->zoomInAction(), Qt::Key_Up}, {bar->zoomOutAction(), Qt::Key_Down}};
    for (const auto& [action, key] : keys)
        EXPECT_EQ(action->shortcut(), QKeySequence(key));
    EXPECT_EQ(bar->zoomBox()->focusPolicy(), Qt::NoFocus);
    EXPECT_EQ(bar->frameRateBox()->focusPolicy(), Qt::NoFocus);
    for (QAction* a : {bar->startPauseAction(), bar->stopAction(), bar->targetAction(), bar->resetAction(),
                       bar->zoomInAction(), bar->zoomOutAction()})
        EXPECT_FALSE(a->icon().isNull()) << a->toolTip().toStdString();
}

TEST_F(ToolBarTest, ZoomAndFrameRateEntries)
{
    QComboBox* zoom = bar->zoomBox();
    ASSERT_EQ(zoom->count(), 27);
    EXPECT_EQ(zoom->currentText(), "1 s/Div");
    EXPECT_EQ(QStringList({zoom->itemText(0), zoom->itemText(8), zoom->itemText(9), zoom->itemText(26)}),
              QStringList({"1 us/Div", "500 us/Div", "1 ms/Div", "500 s/Div"}));
    QComboBox* fps = bar->frameRateBox();
    QStringList rates;
    for (int i = 0; i < fps->count(); ++i)
        rates << fps->itemText(i);
    EXPECT_EQ(rates, QStringList({"1", "2", "5", "10", "15", "20", "25", "30", "40", "50", "60"}));
    EXPECT_EQ(fps->currentText(), "30");
    EXPECT_EQ(g()->targetFps(), 30);
    fps->setCurrentIndex(10);
    EXPECT_EQ(ctl->graphRefreshTarget(), 60);
    EXPECT_EQ(g()->targetFps(), 60);
}

TEST_F(ToolBarTest, ZoomStepsThroughTheListIntoTheGraph)
{
    bar->zoomInAction()->trigger();  // no project: zoom is off
    EXPECT_EQ(bar->zoomBox()->currentIndex(), 18);
    ctl->project().setOpen(true);
    bar->updateDisplayState();
    bar->zoomInAction()->trigger();
    EXPECT_EQ(bar->zoomBox()->currentIndex(), 17);
    EXPECT_DOUBLE_EQ(g()->timePerDivision(), 500000.0);
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
}

TEST_F(ToolBarTest, AutoscrollBoxAndGraphFollowEachOther)
{
    bar->autoscrollBox()->setChecked(true);
    EXPECT_TRUE(g()->autoscroll());
    g()->moveLeftAction()->trigger();  // the user moved the view
    EXPECT_FALSE(bar->autoscrollBox()->isChecked());
    EXPECT_FALSE(g()->autoscroll());
    bar->setAutoscrollChecked(true);
    EXPECT_TRUE(g()->autoscroll());
    bar->autoscrollBox()->setCheckState(Qt::PartiallyChecked);
    EXPECT_TRUE(g()->autoscroll());
    bar->autoscrollBox()->setChecked(false);
    EXPECT_FALSE(g()->autoscroll());
}

TEST_F(ToolBarTest, DisplayStatesFollowASamplingRun)
{
    EXPECT_EQ(bar->displayState(), ToolBar::kStateNoProject);
    for (QAction* a : {bar->startPauseAction(), bar->stopAction(), bar->zoomInAction(), bar->zoomOutAction(),
                       bar->targetAction(), bar->resetAction()})
        EXPECT_FALSE(a->isEnabled()) << a->toolTip().toStdString();
    ctl->project().setOpen(true);
    bar->updateDisplayState();
    EXPECT_EQ(bar->displayState(), ToolBar::kStateProjectWithoutSymbols);
    EXPECT_FALSE(bar->startPauseAction()->isEnabled());
    EXPECT_TRUE(bar->zoomInAction()->isEnabled());
    ready();
    EXPECT_TRUE(bar->startPauseAction()->isEnabled());
    EXPECT_FALSE(bar->stopAction()->isEnabled());
    EXPECT_TRUE(g()->isHeld());

    // Start: the view is released and follows the samples.
    ProjectSettings s = ctl->project().settings();
    s.IsQTXWithTimeStamp = true;
    ctl->project().apply(s);
    bar->startPauseAction()->trigger();
    ASSERT_TRUE(settle());
    EXPECT_TRUE(bar->samplingRunning());
    EXPECT_FALSE(g()->isHeld());
    EXPECT_TRUE(graph->scrollBar()->isHidden());
    EXPECT_TRUE(bar->autoscrollBox()->isChecked());
    bar->updateDisplayState();
    EXPECT_EQ(bar->displayState(), ToolBar::kStateSampling);
    EXPECT_EQ(bar->startPauseAction()->toolTip(), "Pause Sampling");
    EXPECT_TRUE(bar->stopAction()->isEnabled());
    EXPECT_TRUE(bar->targetAction()->isEnabled());

    // Pause: held, data keep coming in the background.
    bar->startPauseAction()->trigger();
    EXPECT_EQ(bar->displayState(), ToolBar::kStatePaused);
    EXPECT_EQ(bar->startPauseAction()->toolTip(), "Start Sampling (F5)");
    EXPECT_TRUE(g()->isHeld());
    EXPECT_FALSE(graph->scrollBar()->isHidden());
    ASSERT_TRUE(settle());
    EXPECT_TRUE(ctl->displayPaused());
    EXPECT_TRUE(ctl->samplingRunning()) << "data keep coming in the background";

    // Resume, then stop.
    bar->startPauseAction()->trigger();
    ASSERT_TRUE(settle());
    bar->updateDisplayState();
    EXPECT_EQ(bar->displayState(), ToolBar::kStateSampling);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ctl->store().recordCount() > 20; }, 5000));
    bar->stopAction()->trigger();
    EXPECT_EQ(bar->displayState(), ToolBar::kStateStopped);
    EXPECT_TRUE(bar->startPauseAction()->isEnabled());
    EXPECT_FALSE(bar->stopAction()->isEnabled());
    EXPECT_TRUE(g()->isHeld());
    ASSERT_TRUE(settle());
    bar->updateDisplayState();
    EXPECT_EQ(bar->displayState(), ToolBar::kStateReady);
    // The held view spans what was recorded.
    EXPECT_EQ(graph->scrollBar()->maximum(), static_cast<int>(ctl->store().currentTimeStamp()));
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
    EXPECT_EQ(bar->targetAction()->toolTip(), "Stop Target");  // running
    for (const bool halted : {true, false}) {
        bar->targetAction()->trigger();
        EXPECT_EQ(ctl->targetHalted(), halted);
        EXPECT_EQ(sampler->halted, halted);
        EXPECT_EQ(bar->targetAction()->toolTip(), halted ? "Start Target" : "Stop Target");
    }
    bar->resetAction()->trigger();
    EXPECT_EQ(bar->targetAction()->toolTip(), "Start Target");
    EXPECT_FALSE(ctl->targetHalted());
}

// The project keeps the graph's time per division: an opened project selects
// the entry nearest to its value, zooming writes the current one (for the
// next save) without marking the project modified.
TEST_F(ToolBarTest, ZoomFollowsAndWritesTheProjectsTimeResolution)
{
    // Saved, shown and kept: 150 ms is nearer by ratio to 200 ms than to 100 ms.
    const std::tuple<std::uint32_t, QString, std::uint32_t> cases[] = {{100000, "100 ms/Div", 100000},
                                                                       {150000, "200 ms/Div", 200000},
                                                                       {1, "1 us/Div", 1},
                                                                       {4000000000u, "500 s/Div", 500000000}};
    ctl->project().setOpen(true);
    for (const auto& [saved, shown, kept] : cases) {
        SCOPED_TRACE(saved);
        ProjectSettings s = ctl->project().settings();
        s.TimeResolutionUs = saved;
        ctl->project().apply(s);  // as an opened project file gives it
        ctl->project().setModified(false);
        bar->updateDisplayState();
        EXPECT_EQ(bar->zoomBox()->currentText(), shown);
        EXPECT_DOUBLE_EQ(g()->timePerDivision(), double(bar->zoomBox()->currentData().toUInt()));
        EXPECT_EQ(ctl->project().settings().TimeResolutionUs, kept);
        EXPECT_FALSE(ctl->project().isModified());
    }
    bar->zoomBox()->setCurrentIndex(9);
    EXPECT_EQ(ctl->project().settings().TimeResolutionUs, 1000u);
    bar->zoomOutAction()->trigger();
    EXPECT_EQ(ctl->project().settings().TimeResolutionUs, 2000u);
    EXPECT_FALSE(ctl->project().isModified()) << "zooming alone changes no setting the user saves on purpose";
    bar->updateDisplayState();
    EXPECT_EQ(bar->zoomBox()->currentText(), "2 ms/Div");
}

// The QTX demo lists its channel's symbols and names no ELF file, whose parse
// would drop them: opened, it is ready to start, with the file's colours.
TEST_F(ToolBarTest, TheQtxDemoOpensReadyToStart)
{
    const std::filesystem::path demo = std::filesystem::path(PLOTVIK_BIN_DIR) / "examples" / "demo" / "demo_qtx.plotvik";
    if (!std::filesystem::exists(demo))
        GTEST_SKIP() << "demo projects not built";
    std::atomic<int> result{1};
    ctl->postOpenProjFile(demo.string(), &result, {});
    ASSERT_TRUE(settle());
    ASSERT_TRUE(settle());  // a parse the open may have posted
    ASSERT_EQ(result.load(), 0);
    EXPECT_TRUE(ctl->project().settings().IsQTXSession);
    ASSERT_EQ(ctl->symbols().selected().size(), 4u);
    EXPECT_EQ(ctl->symbols().selected()[0]->symbol().GraphColor, (Rgb{60, 180, 75, 255}));
    bar->updateDisplayState();
    EXPECT_EQ(bar->displayState(), ToolBar::kStateReady);
    EXPECT_TRUE(bar->startPauseAction()->isEnabled());
}
