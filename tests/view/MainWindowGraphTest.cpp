// The main window with its graph and tool bar: the graph sits in the Graph
// dock, and a sampling run started from the tool bar repaints it live.
#include "app/Controller.h"
#include "base/Report.h"
#include "gui/MainWindow.h"
#include "tests/app/FakeSampler.h"
#include "tests/view/GraphTestSupport.h"
#include "view/GraphContainer.h"
#include "view/ToolBar.h"

#include <QAction>
#include <QDockWidget>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

namespace {

// The fake probe, announcing each batch as the real read loops do.
class AnnouncingSampler : public FakeSampler {
public:
    int read(const ProjectSettings& s, SampleStore& store) override
    {
        const int r = FakeSampler::read(s, store);
        if (Bridge* b = report::bridge())
            b->updateData();
        return r;
    }
};

}  // namespace

TEST(MainWindowGraph, SamplingFromTheToolBarRepaintsTheGraphLive)
{
    JobEngine engine;
    auto ctl = std::make_unique<Controller>(engine, std::make_unique<AnnouncingSampler>());
    auto window = std::make_unique<MainWindow>(*ctl, std::vector<std::string>{"plotvik"});
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->windowTitle().startsWith("Norvex Plotvik"); }, 5000));

    GraphContainer* graph = window->graph();
    ASSERT_NE(graph, nullptr);
    EXPECT_EQ(window->graphDock()->widget(), graph);
    ASSERT_NE(window->toolBar(), nullptr);
    EXPECT_EQ(window->toolBar()->displayState(), ToolBar::kStateNoProject);

    Node* n = ctl->symbols().createDetachedSymbol();
    n->Name = n->NameWithParents = "counter";
    n->Size = 4;
    n->TypeID = kTypeU32;
    n->symbol().YResolution = 1;
    n->symbol().GraphColor = Rgb{255, 0, 0, 255};
    n->symbol().HasGraphColor = true;
    ctl->symbols().setSelected({n});
    ctl->project().setOpen(true);
    window->updateGui();
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->toolBar()->displayState() == ToolBar::kStateReady; }, 5000));

    QSignalSpy frames(graph->graph(), &GraphWidget::FrameRateMeasured);
    window->toolBar()->startPauseAction()->trigger();
    ASSERT_TRUE(QTest::qWaitFor([&] { return ctl->store().recordCount() > 60; }, 10000));
    const int framesBefore = frames.count();
    ASSERT_TRUE(QTest::qWaitFor([&] { return frames.count() > framesBefore + 3; }, 5000));
    EXPECT_EQ(window->toolBar()->displayState(), ToolBar::kStateSampling);
    EXPECT_GT(ctl->measuredFrameRate(), 0);
    // The curve climbs with the counter: red pixels above the zero line.
    const QImage shot = graph->graph()->grab().toImage().convertToFormat(QImage::Format_RGB32);
    const auto red = graphtest::pixelsOf(shot, Qt::red);
    const int zero = graph->graph()->grid().zeroLineY;
    EXPECT_TRUE(std::any_of(red.begin(), red.end(), [&](QPoint p) { return p.x() > 10 && p.y() < zero - 2; }));

    window->toolBar()->stopAction()->trigger();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !ctl->samplingRunning(); }, 5000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return window->toolBar()->displayState() == ToolBar::kStateReady; }, 5000));
    EXPECT_TRUE(graph->graph()->isHeld());

    window->QMainWindow::close();
    EXPECT_EQ(ctl->exitState(), kExitAllowed);
    window.reset();
    ctl.reset();
}
