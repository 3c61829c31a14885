// The dialog that sets up a new project (title "Create new project"), and
// with the same widgets changes the open project's settings ("Options").
#pragma once

#include "app/NewProject.h"

#include <QDialog>

#include <optional>

class Controller;
class QButtonGroup;
class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;
class QStackedWidget;
class TIFSpeedComboBox;

class NewProjectDialog : public QDialog {
    Q_OBJECT

public:
    // Without `options` the dialog creates a new project; with the open
    // project's settings it edits them and ends in Update project settings.
    NewProjectDialog(Controller& controller, QWidget* parent = nullptr,
                     const std::optional<ProjectSettings>& options = std::nullopt);

    // What the widgets say now.
    NewProjectChoices choices() const;
    // The payload "OK" posts.
    ProjectSettings payload() const;

    // Widgets, for the tests.
    QRadioButton* radioUsb() const { return m_radioUsb; }
    QRadioButton* radioTcpIp() const { return m_radioTcpIp; }
    QRadioButton* radioExistingSession() const { return m_radioExSes; }
    QCheckBox* checkSerial() const { return m_checkSerial; }
    QLineEdit* serialEdit() const { return m_serial; }
    QLineEdit* hostEdit() const { return m_host; }
    QLineEdit* deviceEdit() const { return m_device; }
    QPushButton* deviceButton() const { return m_btnTarget; }
    QLineEdit* scriptEdit() const { return m_script; }
    QComboBox* interfaceBox() const { return m_interface; }
    TIFSpeedComboBox* speedBox() const { return m_speed; }
    QRadioButton* radioQtx() const { return m_radioQtx; }
    QRadioButton* radioBsq() const { return m_radioBsq; }
    QGroupBox* samplingRateGroup() const { return m_rateGroup; }
    QLineEdit* periodEdit() const { return m_period; }
    QLabel* rateLabel() const { return m_rateLabel; }
    QLineEdit* elfEdit() const { return m_elf; }
    QPushButton* okButton() const { return m_ok; }
    QPushButton* cancelButton() const { return m_cancel; }

private slots:
    void _SlotOnToggleRadioUSB(bool on);
    void _SlotOnToggleRadioTCPIP(bool on);
    void _SlotOnToggleRadioExSes(bool on);
    void _SlotOnToggleCheckUSB(int state);
    void _SlotOnReleaseBtnTarget();
    void _SlotOnReleaseBtnScript();
    void _SlotOnChangedCmbBxSpeed();
    void _SlotOnChangedCmbBxInterface(int index);
    void _SlotOnToggleRadioQTX(bool on);
    void _SlotOnToggleRadioBSQ(bool on);
    void _SlotOnTextChangedLineSampRate(const QString& text);
    void _SlotOnReleaseBtnElfFile();
    void _SlotOnReleaseBtnOK();
    void _SlotOnReleaseBtnCancel();

private:
    void build();
    void showChoices(const NewProjectChoices& c);

    Controller& m_controller;
    std::optional<ProjectSettings> m_options;  // the project's settings when editing them
    std::uint32_t m_connection = kConnectionUsb;
    bool m_existingSession = false;
    bool m_qtx = false;
    std::uint32_t m_periodUs = 100;
    std::uint32_t m_interfaceCode = kInterfaceSwd;
    std::int32_t m_speedKHz = 4000;

    // All owned by the dialog.
    QRadioButton* m_radioUsb = nullptr;
    QRadioButton* m_radioTcpIp = nullptr;
    QRadioButton* m_radioExSes = nullptr;
    QCheckBox* m_checkSerial = nullptr;
    QStackedWidget* m_serialStack = nullptr;
    QLineEdit* m_serial = nullptr;
    QLineEdit* m_host = nullptr;
    QLineEdit* m_device = nullptr;
    QPushButton* m_btnTarget = nullptr;
    QLineEdit* m_script = nullptr;
    QPushButton* m_btnScript = nullptr;
    QComboBox* m_interface = nullptr;
    TIFSpeedComboBox* m_speed = nullptr;
    QRadioButton* m_radioQtx = nullptr;
    QRadioButton* m_radioBsq = nullptr;
    QGroupBox* m_rateGroup = nullptr;
    QLineEdit* m_period = nullptr;
    QLabel* m_rateLabel = nullptr;
    QLineEdit* m_elf = nullptr;
    QPushButton* m_btnElf = nullptr;
    QPushButton* m_ok = nullptr;
    QPushButton* m_cancel = nullptr;
};
