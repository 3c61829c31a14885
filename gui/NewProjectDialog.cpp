#include "gui/NewProjectDialog.h"

#include "app/Controller.h"
#include "app/Settings.h"
#include "base/Report.h"
#include "gui/CDeviceSelectionDialog.h"
#include "gui/TIFSpeedComboBox.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QRegularExpressionValidator>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace {

// A line edit with a browse button beside it, in one row of `group`.
QLineEdit* browseRow(QGroupBox* group, QPushButton** button)
{
    auto* row = new QHBoxLayout(group);
    auto* edit = new QLineEdit(group);
    *button = new QPushButton(QObject::tr("..."), group);
    (*button)->setAutoDefault(false);
    (*button)->setMaximumWidth(40);
    row->addWidget(edit, 1);
    row->addWidget(*button);
    return edit;
}

}  // namespace

NewProjectDialog::NewProjectDialog(Controller& controller, QWidget* parent, const std::optional<ProjectSettings>& options)
    : QDialog(parent), m_controller(controller), m_options(options)
{
    setWindowTitle(m_options ? tr("Options") : tr("Create new project"));
    build();
    showChoices(m_options ? newproject::fromSettings(*m_options) : NewProjectChoices{});
    // Until the period is edited the label shows the default's rate.
    if (!m_options)
        m_rateLabel->setText(QStringLiteral("us, Sample Rate: 10 kHz"));
}

void NewProjectDialog::build()
{
    auto* layout = new QVBoxLayout(this);

    auto* connection = new QGroupBox(tr("Connection to Tarvo"), this);
    auto* cl = new QGridLayout(connection);
    m_radioUsb = new QRadioButton(tr("USB"), connection);
    m_radioTcpIp = new QRadioButton(tr("TCP/IP"), connection);
    m_radioExSes = new QRadioButton(tr("Existing Session"), connection);
    auto* group = new QButtonGroup(connection);
    for (QRadioButton* r : {m_radioUsb, m_radioTcpIp, m_radioExSes})
        group->addButton(r);
    m_checkSerial = new QCheckBox(tr("Serial No."), connection);
    m_serialStack = new QStackedWidget(connection);
    m_serialStack->addWidget(new QWidget(m_serialStack));  // the placeholder
    m_serial = new QLineEdit(m_serialStack);
    m_serial->setValidator(new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[0-9]{0,10}")), m_serial));
    m_serialStack->addWidget(m_serial);
    m_serialStack->setFixedHeight(m_serial->sizeHint().height());
    m_host = new QLineEdit(connection);
    m_host->setPlaceholderText(tr("host name or IP address"));
    cl->addWidget(m_radioUsb, 0, 0);
    cl->addWidget(m_checkSerial, 0, 1);
    cl->addWidget(m_serialStack, 0, 2);
    cl->addWidget(m_radioTcpIp, 1, 0);
    cl->addWidget(m_host, 1, 1, 1, 2);
    cl->addWidget(m_radioExSes, 2, 0);
    cl->setColumnStretch(2, 1);
    layout->addWidget(connection);

    auto* target = new QGroupBox(tr("Specify Target Device"), this);
    m_device = browseRow(target, &m_btnTarget);
    layout->addWidget(target);

    auto* script = new QGroupBox(tr("Script file (optional)"), this);
    m_script = browseRow(script, &m_btnScript);
    layout->addWidget(script);

    auto* tif = new QGroupBox(tr("Target Interface && Speed"), this);
    auto* tl = new QHBoxLayout(tif);
    m_interface = new QComboBox(tif);
    for (const char* name : newproject::kInterfaceNames)
        m_interface->addItem(QString::fromLatin1(name));
    m_speed = new TIFSpeedComboBox(tif);
    tl->addWidget(m_interface, 1);
    tl->addWidget(m_speed, 1);
    tl->addWidget(new QLabel(tr("kHz"), tif));
    layout->addWidget(tif);

    auto* source = new QGroupBox(tr("Sampling Source"), this);
    auto* sl = new QHBoxLayout(source);
    m_radioQtx = new QRadioButton(tr("QTX (synchronous)"), source);
    m_radioBsq = new QRadioButton(tr("BSQ (asynchronous)"), source);
    sl->addWidget(m_radioQtx);
    sl->addWidget(m_radioBsq);
    sl->addStretch(1);
    layout->addWidget(source);

    m_rateGroup = new QGroupBox(tr("Sampling Rate"), this);
    auto* rl = new QHBoxLayout(m_rateGroup);
    m_period = new QLineEdit(m_rateGroup);
    m_period->setValidator(
        new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[0-9]{0,9}(\\.[0-9]{0,6})?")), m_period));
    m_rateLabel = new QLabel(m_rateGroup);
    rl->addWidget(new QLabel(tr("Sample every"), m_rateGroup));
    rl->addWidget(m_period, 1);
    rl->addWidget(m_rateLabel, 1);
    layout->addWidget(m_rateGroup);

    auto* elf = new QGroupBox(tr("Elf File"), this);
    m_elf = browseRow(elf, &m_btnElf);
    layout->addWidget(elf);

    m_ok = new QPushButton(tr("OK"), this);
    m_cancel = new QPushButton(tr("Cancel"), this);
    m_ok->setDefault(true);
    m_cancel->setAutoDefault(false);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_ok);
    buttons->addWidget(m_cancel);
    layout->addStretch(1);
    layout->addLayout(buttons);

    connect(m_radioUsb, &QRadioButton::toggled, this, &NewProjectDialog::_SlotOnToggleRadioUSB);
    connect(m_radioTcpIp, &QRadioButton::toggled, this, &NewProjectDialog::_SlotOnToggleRadioTCPIP);
    connect(m_radioExSes, &QRadioButton::toggled, this, &NewProjectDialog::_SlotOnToggleRadioExSes);
    connect(m_checkSerial, &QCheckBox::stateChanged, this, &NewProjectDialog::_SlotOnToggleCheckUSB);
    connect(m_btnTarget, &QPushButton::released, this, &NewProjectDialog::_SlotOnReleaseBtnTarget);
    connect(m_btnScript, &QPushButton::released, this, &NewProjectDialog::_SlotOnReleaseBtnScript);
    connect(m_speed, &TIFSpeedComboBox::SignalSpeedChanged, this, &NewProjectDialog::_SlotOnChangedCmbBxSpeed);
    connect(m_interface, &QComboBox::currentIndexChanged, this, &NewProjectDialog::_SlotOnChangedCmbBxInterface);
    connect(m_radioQtx, &QRadioButton::toggled, this, &NewProjectDialog::_SlotOnToggleRadioQTX);
    connect(m_radioBsq, &QRadioButton::toggled, this, &NewProjectDialog::_SlotOnToggleRadioBSQ);
    connect(m_period, &QLineEdit::textChanged, this, &NewProjectDialog::_SlotOnTextChangedLineSampRate);
    connect(m_btnElf, &QPushButton::released, this, &NewProjectDialog::_SlotOnReleaseBtnElfFile);
    connect(m_ok, &QPushButton::released, this, &NewProjectDialog::_SlotOnReleaseBtnOK);
    connect(m_cancel, &QPushButton::released, this, &NewProjectDialog::_SlotOnReleaseBtnCancel);

    // Top to bottom, each browse button right after its field.
    QWidget* order[] = {m_radioUsb, m_checkSerial, m_serial, m_radioTcpIp, m_host, m_radioExSes,
                        m_device, m_btnTarget, m_script, m_btnScript, m_interface, m_speed,
                        m_radioQtx, m_radioBsq, m_period, m_elf, m_btnElf, m_ok, m_cancel};
    for (std::size_t i = 0; i + 1 < std::size(order); ++i)
        setTabOrder(order[i], order[i + 1]);
    setMinimumWidth(520);
}

void NewProjectDialog::showChoices(const NewProjectChoices& c)
{
    m_radioUsb->setChecked(true);  // the others' toggles need a change to report
    m_checkSerial->setChecked(c.serialGiven);
    m_serial->setText(QString::fromStdString(c.serialText));
    m_host->setText(QString::fromStdString(c.host));
    if (c.existingSession)
        m_radioExSes->setChecked(true);
    else if (c.connection == kConnectionTcpIp)
        m_radioTcpIp->setChecked(true);
    _SlotOnToggleRadioUSB(m_radioUsb->isChecked());
    _SlotOnToggleRadioTCPIP(m_radioTcpIp->isChecked());
    _SlotOnToggleCheckUSB(c.serialGiven ? Qt::Checked : Qt::Unchecked);
    m_connection = c.connection;
    m_device->setText(QString::fromStdString(c.device));
    m_script->setText(QString::fromStdString(c.script));
    m_interface->setCurrentIndex(c.interfaceIndex);
    _SlotOnChangedCmbBxInterface(c.interfaceIndex);
    m_speed->setSpeedKHz(c.speedKHz);
    m_speedKHz = m_speed->speedKHz();
    (c.qtx ? m_radioQtx : m_radioBsq)->setChecked(true);
    _SlotOnToggleRadioQTX(m_radioQtx->isChecked());
    m_period->setText(QString::fromStdString(c.periodText));
    _SlotOnTextChangedLineSampRate(m_period->text());
    m_elf->setText(QString::fromStdString(c.elf));
}

NewProjectChoices NewProjectDialog::choices() const
{
    NewProjectChoices c;
    c.connection = m_connection;
    c.existingSession = m_existingSession;
    c.serialGiven = m_checkSerial->isChecked();
    c.serialText = m_serial->text().toStdString();
    c.host = m_host->text().toLatin1().toStdString();
    c.device = m_device->text().toLatin1().toStdString();
    c.script = m_script->text().toStdString();
    c.interfaceIndex = newproject::interfaceIndex(m_interfaceCode);
    c.speedKHz = m_speedKHz;
    c.qtx = m_qtx;
    c.periodText = m_period->text().toStdString();
    c.elf = m_elf->text().toStdString();
    return c;
}

ProjectSettings NewProjectDialog::payload() const
{
    return newproject::payload(choices(), m_options.value_or(ProjectSettings{}));
}

void NewProjectDialog::_SlotOnToggleRadioUSB(bool on)
{
    if (!on)
        return;
    m_connection = kConnectionUsb;
    m_checkSerial->setVisible(true);
    m_host->setVisible(false);
    m_serialStack->setVisible(true);
    m_serialStack->setCurrentIndex(m_checkSerial->isChecked() ? 1 : 0);
}

void NewProjectDialog::_SlotOnToggleRadioTCPIP(bool on)
{
    if (on) {
        m_connection = kConnectionTcpIp;
        m_host->setVisible(true);
        m_host->setFocus();
    } else {
        m_host->setVisible(false);
    }
}

void NewProjectDialog::_SlotOnToggleRadioExSes(bool on)
{
    m_existingSession = on;
    if (on) {
        m_checkSerial->setVisible(false);
        m_serialStack->setVisible(false);
        m_host->setVisible(false);
        m_radioBsq->setChecked(true);
        m_radioQtx->setEnabled(false);
    } else {
        m_checkSerial->setVisible(true);
        m_serialStack->setVisible(true);
        m_host->setVisible(m_radioTcpIp->isChecked());
        m_radioQtx->setEnabled(true);
    }
}

void NewProjectDialog::_SlotOnToggleCheckUSB(int state)
{
    if (state == Qt::Checked)
        m_serialStack->setCurrentIndex(1);
    else if (state == Qt::Unchecked)
        m_serialStack->setCurrentIndex(0);
}

void NewProjectDialog::_SlotOnReleaseBtnTarget()
{
    if (const auto device = CDeviceSelectionDialog::choose(m_device->text(), this))
        m_device->setText(QString::fromStdString(device->name));
}

void NewProjectDialog::_SlotOnReleaseBtnScript()
{
    const QString dir = QString::fromStdString(Settings::instance().dataFilesDir());
    const QString path = QFileDialog::getOpenFileName(this, tr("Open script file"), dir,
                                                      tr("Tarvo script files (*.TarvoScript *.pex *.pc);;All files (*.*)"));
    if (path.isEmpty())
        return;
    Settings::instance().setDataFilesDir(path.toStdString());
    m_script->setText(path);
}

void NewProjectDialog::_SlotOnChangedCmbBxSpeed() { m_speedKHz = m_speed->speedKHz(); }

void NewProjectDialog::_SlotOnChangedCmbBxInterface(int index) { m_interfaceCode = newproject::interfaceCode(index); }

void NewProjectDialog::_SlotOnToggleRadioQTX(bool on)
{
    m_qtx = on;
    // The firmware sets the rate of its records.
    m_rateGroup->setVisible(!on);
}

void NewProjectDialog::_SlotOnToggleRadioBSQ(bool on)
{
    if (!on)
        return;
    m_qtx = false;
    m_rateGroup->setVisible(true);
}

void NewProjectDialog::_SlotOnTextChangedLineSampRate(const QString& text)
{
    const std::string t = text.toStdString();
    m_periodUs = newproject::period(t);
    m_rateLabel->setText(QString::fromStdString(newproject::sampleRateLabel(t)));
}

void NewProjectDialog::_SlotOnReleaseBtnElfFile()
{
    const QString dir = QString::fromStdString(Settings::instance().elfFilesDir());
    const QString path = QFileDialog::getOpenFileName(this, tr("Open output file"), dir,
                                                      tr("Output files (*.elf *.out *.obj *.axf);;All files (*.*)"));
    if (path.isEmpty())
        return;
    Settings::instance().setElfFilesDir(path.toStdString());
    m_elf->setText(path);
}

void NewProjectDialog::_SlotOnReleaseBtnOK()
{
    const NewProjectChoices c = choices();
    if (const std::string why = newproject::refusal(c); !why.empty()) {
        report::warning(why);
        return;
    }
    const ProjectSettings s = payload();
    if (m_options) {
        m_controller.postUpdateProjSettings(s);
    } else {
        m_controller.postCreateProject({});
        m_controller.postInitProjSettings(&s);
        // The tree is there by the time the symbol selection the settings
        // job asks for opens: it waits for the jobs posted before it.
        if (!s.ElfFile.empty())
            m_controller.postParseElfFile(s.ElfFile, false);
    }
    accept();
}

void NewProjectDialog::_SlotOnReleaseBtnCancel() { reject(); }
