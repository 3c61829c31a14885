// Helpers the widget tests share.
#pragma once

#include "app/Controller.h"
#include "app/JobEngine.h"
#include "gui/MainWindow.h"
#include "tests/app/FakeSampler.h"
#include "tests/app/TestBridge.h"

#include <QApplication>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>

namespace guitest {

// Runs `act` on the first visible top-level widget of type T, from inside
// whatever modal loop shows it.
template <typename T>
void whenShown(std::function<void(T*)> act, QObject* context = qApp)
{
    auto* poll = new QTimer(context);  // owned by the context; deleted once it acted
    QObject::connect(poll, &QTimer::timeout, context, [poll, act] {
        for (QWidget* w : QApplication::topLevelWidgets()) {
            if (auto* t = qobject_cast<T*>(w); t && t->isVisible()) {
                poll->stop();
                poll->deleteLater();
                act(t);
                return;
            }
        }
    });
    poll->start(5);
}

inline Node* newSymbol(Controller& ctl, const std::string& name, std::int32_t typeId = kTypeU32,
                       std::uint32_t size = 4)
{
    Node* n = ctl.symbols().createDetachedSymbol();
    n->Name = n->NameWithParents = name;
    n->Size = size;
    n->TypeID = typeId;
    return n;
}

// Selects `count` 32-bit symbols v0, v1, ...
inline std::vector<Node*> selectSymbols(Controller& ctl, int count, std::int32_t typeId = kTypeU32)
{
    std::vector<Node*> nodes;
    for (int i = 0; i < count; ++i)
        nodes.push_back(newSymbol(ctl, "v" + std::to_string(i), typeId));
    ctl.symbols().setSelected(nodes);
    return nodes;
}

// A controller on the fake probe with a test bridge; widgets a test adds as
// members go before it.
struct ControllerTest : ::testing::Test {
    JobEngine engine;
    TestBridge bridge;
    FakeSampler* sampler = nullptr;  // the controller's
    std::unique_ptr<Controller> ctl = [this] {
        auto fake = std::make_unique<FakeSampler>();
        sampler = fake.get();
        auto c = std::make_unique<Controller>(engine, std::move(fake));
        c->setBridge(&bridge);
        return c;
    }();

    void TearDown() override
    {
        ctl->postReadStop();
        ctl->waitForQueue(5000);
        engine.stopAndWait([] { QApplication::processEvents(); });
        ctl->setBridge(nullptr);
    }
    // An open project, unmodified.
    void openProject(const std::string& path = "/projects/test.plotvik")
    {
        ctl->project().setPath(path);
        ctl->project().setOpen(true);
        ctl->project().setModified(false);
    }
};

// A main window on a probe, past its start-up.
struct WindowTest : ::testing::Test {
    JobEngine engine;
    std::unique_ptr<Controller> ctl;
    std::unique_ptr<MainWindow> window;

    virtual std::unique_ptr<Sampler> makeSampler() { return std::make_unique<FakeSampler>(); }

    void SetUp() override
    {
        ctl = std::make_unique<Controller>(engine, makeSampler());
        window = std::make_unique<MainWindow>(*ctl, std::vector<std::string>{"plotvik"});
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        // Start-up has run once the initialisation job's refresh came through.
        ASSERT_TRUE(QTest::qWaitFor([&] { return window->windowTitle().startsWith("Norvex Plotvik"); }, 5000));
    }
    void TearDown() override
    {
        if (!ctl)
            return;  // skipped before the window opened
        ctl->project().setModified(false);  // no question at exit
        window->QMainWindow::close();  // close() alone is the bridge request, delivered later
        EXPECT_EQ(ctl->exitState(), kExitAllowed);
        window.reset();
        ctl.reset();
    }
};

}  // namespace guitest
