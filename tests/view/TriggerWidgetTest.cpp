// The trigger controls, offscreen, writing and showing the project's trigger,
// and their place in the main window.
#include "tests/gui/GuiTestSupport.h"
#include "view/ToolBar.h"
#include "view/TriggerWidget.h"

#include <QAction>
#include <QComboBox>
#include <QDoubleValidator>
#include <QLabel>
#include <QLineEdit>

#include <array>

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

TEST_F(TriggerWidgetTest, ControlsInOrderAndDisabledAtFirst)
{
    std::vector<QString> seen;
    for (QAction* a : widget->actions()) {
        QWidget* w = widget->widgetForAction(a);
        if (auto* label = qobject_cast<QLabel*>(w))
            seen.push_back("label:" + label->text());
        else if (w == widget->symbolBox())
            seen.push_back("symbols");
        else if (w == widget->thresholdEdit())
            seen.push_back("threshold");
        else
            seen.push_back(QString(a->isCheckable() ? "checkable:" : "action:") + a->text());
    }
    const std::vector<QString> expected = {"label:Trigger control: ", "checkable:Trigger Rising Edge",
                                           "checkable:Trigger Falling Edge", "checkable:Trigger Both Edges",
                                           "label:Symbol: ", "symbols", "label:Threshold: ", "threshold"};
    EXPECT_EQ(seen, expected);
    EXPECT_NE(qobject_cast<const QDoubleValidator*>(widget->thresholdEdit()->validator()), nullptr);
    for (QAction* a : {widget->risingAction(), widget->fallingAction(), widget->bothAction()})
        EXPECT_FALSE(a->icon().isNull());
    widget->updateEnabling();  // no project: the controls stay off
    EXPECT_FALSE(controlsEnabled());
    openWithSymbols();
    EXPECT_TRUE(controlsEnabled());
    EXPECT_EQ(widget->symbolBox()->count(), 3);
    EXPECT_EQ(widget->symbolBox()->itemText(0), "g_motor.speed");  // by name with parents
}

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
    EXPECT_NE(bridge.title.find(" *"), std::string::npos) << bridge.title;
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
    edit->clear();
    QTest::keyClicks(edit, "x7y");
    EXPECT_EQ(edit->text(), "7") << "only numbers get in";
    EXPECT_DOUBLE_EQ(settings().TriggerLevel, 7.0);

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
    openWithSymbols();
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

using TriggerInMainWindow = guitest::WindowTest;

TEST_F(TriggerInMainWindow, SitsBesideTheToolBarAndFollowsTheProject)
{
    TriggerWidget* trigger = window->triggerWidget();
    ASSERT_NE(trigger, nullptr);
    EXPECT_TRUE(trigger->isVisible());
    EXPECT_EQ(window->toolBarArea(trigger), Qt::TopToolBarArea);
    EXPECT_EQ(window->toolBarArea(window->toolBar()), Qt::TopToolBarArea);

    Node* n = guitest::newSymbol(*ctl, "g_square", kTypeS32);
    ctl->symbols().setSelected({n});
    ctl->project().setPath("/projects/window.plotvik");
    ctl->project().setOpen(true);
    window->updateGui();
    ctl->updateTitle();
    ASSERT_TRUE(QTest::qWaitFor([&] { return trigger->risingAction()->isEnabled(); }));
    EXPECT_EQ(trigger->symbolBox()->currentText(), "g_square");
    trigger->risingAction()->trigger();
    EXPECT_EQ(ctl->project().settings().TriggerSymbol, n);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->windowTitle().endsWith(" *]"); })) << "marked modified";
}
