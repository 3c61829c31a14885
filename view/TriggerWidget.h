// The trigger controls: the edge to wait for, the symbol to watch and the
// threshold. They edit a private copy of the project's trigger and write it
// back after every change, so the trigger is saved with the project; the
// sample store evaluates it while sampling.
#pragma once

#include "base/ProjectSettings.h"

#include <QToolBar>

#include <string>
#include <vector>

class Controller;
class QAction;
class QComboBox;
class QLineEdit;

class TriggerWidget : public QToolBar {
    Q_OBJECT

public:
    explicit TriggerWidget(Controller& controller, QWidget* parent = nullptr);

    // Takes the project's trigger and selection into the controls when either
    // changed since the last rebuild; nothing changes while sampling runs.
    void rebuild();
    // The three actions, the symbol box and the threshold go on and off together.
    void setControlsEnabled(bool on);
    // Enables the controls while a project with symbols is open and idle.
    void updateEnabling();

    QAction* risingAction() const { return m_rising; }
    QAction* fallingAction() const { return m_falling; }
    QAction* bothAction() const { return m_both; }
    QComboBox* symbolBox() const { return m_symbols; }
    QLineEdit* thresholdEdit() const { return m_threshold; }

signals:
    // The trigger was changed by the user and written to the project.
    void _SignalTriggerChanged();

public slots:
    void _SlotOnActionRising(bool checked);
    void _SlotOnActionFalling(bool checked);
    void _SlotOnActionBoth(bool checked);
    void _SlotOnCurrentIndexChanged(int index);
    void _SlotOnTextChanged(const QString& text);

private:
    QAction* addEdgeAction(const QString& text, int edges, void (TriggerWidget::*slot)(bool));
    void edgeChecked(QAction* action, bool checked, bool rise, bool fall);
    void writeBack();
    bool copyDiffers(const ProjectSettings& current) const;
    std::vector<std::string> selectedNames() const;

    Controller& m_controller;
    ProjectSettings m_copy;  // only the trigger fields are used
    std::vector<std::string> m_names;  // the selection the symbol box was filled from
    QAction* m_rising = nullptr;      // owned by the widget
    QAction* m_falling = nullptr;     // owned by the widget
    QAction* m_both = nullptr;        // owned by the widget
    QComboBox* m_symbols = nullptr;   // owned by the widget
    QLineEdit* m_threshold = nullptr; // owned by the widget
};
