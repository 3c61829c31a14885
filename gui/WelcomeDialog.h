// The start-up dialog: open a recent project or another project file, or
// create a new one, and optionally make the choice permanent.
#pragma once

#include <QDialog>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

class Controller;
class QCheckBox;
class QComboBox;
class QPushButton;
class QRadioButton;

class WelcomeDialog : public QDialog {
    Q_OBJECT

public:
    // Dialog results.
    enum : int { kOpened = 0, kCreated = 1, kCancelled = 3 };

    WelcomeDialog(Controller& controller, const std::vector<std::string>& recent, QWidget* parent = nullptr);

    QRadioButton* radioRecent() const { return m_radioRecent; }
    QRadioButton* radioNew() const { return m_radioNew; }
    QComboBox* recentBox() const { return m_recent; }
    QPushButton* otherButton() const { return m_other; }
    QCheckBox* dontShowBox() const { return m_dontShow; }
    QPushButton* startButton() const { return m_start; }

    // Escape and the close button give kCancelled.
    void reject() override { done(kCancelled); }

signals:
    void _SignalFinAsyncOpenProjFile();

private slots:
    void _SlotOnFinAsyncOpenProjFile();
    void _SlotOnToggleRadio();
    void _SlotOnReleaseBtnOther();
    void _SlotOnReleaseBtnStart();
    void _SlotOnDontShowChanged(int state);

private:
    // Opens `path` on the worker; the dialog closes once it has opened.
    void open(const std::string& path);
    QString askForProject(const QString& dir, const QString& selectedFilter);

    // The open job's result cell, shared with the job so that it outlives a
    // dialog closed while the job runs.
    struct Pending {
        std::atomic<int> result{-1};
    };

    Controller& m_controller;
    std::shared_ptr<Pending> m_pending;
    // All owned by the dialog.
    QRadioButton* m_radioRecent = nullptr;
    QRadioButton* m_radioNew = nullptr;
    QComboBox* m_recent = nullptr;
    QPushButton* m_other = nullptr;
    QCheckBox* m_dontShow = nullptr;
    QPushButton* m_start = nullptr;
};
