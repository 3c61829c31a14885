#include "gui/WelcomeDialog.h"

#include "app/Controller.h"
#include "base/Product.h"
#include "gui/NewProjectDialog.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QRadioButton>

namespace {
const char* const kProjectFilter = "Plotvik project files (*.plotvik)";
}

WelcomeDialog::WelcomeDialog(Controller& controller, const std::vector<std::string>& recent, QWidget* parent)
    : QDialog(parent), m_controller(controller), m_pending(std::make_shared<Pending>())
{
    setWindowTitle(tr("Welcome to %1").arg(QString::fromLatin1(product::kName)));
    auto* layout = new QGridLayout(this);
    layout->addWidget(new QLabel(tr("Please select one of the following start options:"), this), 0, 0, 1, 3);
    m_radioRecent = new QRadioButton(tr("Open recent project:"), this);
    m_radioRecent->setChecked(true);
    m_recent = new QComboBox(this);
    for (const std::string& path : recent) {
        const QFileInfo info(QString::fromStdString(path));
        m_recent->addItem(QStringLiteral("%1%2").arg(info.completeBaseName(),
                                                     info.suffix().isEmpty() ? QString() : "." + info.suffix()),
                          QString::fromStdString(path));
        m_recent->setItemData(m_recent->count() - 1, QString::fromStdString(path), Qt::ToolTipRole);
    }
    m_recent->setMinimumContentsLength(28);
    m_other = new QPushButton(tr("Other..."), this);
    m_other->setAutoDefault(false);
    m_radioNew = new QRadioButton(tr("Create new project"), this);
    m_dontShow = new QCheckBox(tr("Do not show this message again."), this);
    m_start = new QPushButton(tr("Start Plotvik"), this);
    m_start->setDefault(true);

    layout->addWidget(m_radioRecent, 1, 0);
    layout->addWidget(m_recent, 1, 1);
    layout->addWidget(m_other, 1, 2);
    layout->addWidget(m_radioNew, 2, 0, 1, 3);
    layout->addWidget(m_dontShow, 3, 0, 1, 2);
    layout->addWidget(m_start, 3, 2);
    layout->setColumnStretch(1, 1);

    connect(m_radioRecent, &QRadioButton::toggled, this, &WelcomeDialog::_SlotOnToggleRadio);
    connect(m_radioNew, &QRadioButton::toggled, this, &WelcomeDialog::_SlotOnToggleRadio);
    connect(m_other, &QPushButton::released, this, &WelcomeDialog::_SlotOnReleaseBtnOther);
    connect(m_start, &QPushButton::released, this, &WelcomeDialog::_SlotOnReleaseBtnStart);
    connect(m_dontShow, &QCheckBox::stateChanged, this, &WelcomeDialog::_SlotOnDontShowChanged);
    connect(this, &WelcomeDialog::_SignalFinAsyncOpenProjFile, this, &WelcomeDialog::_SlotOnFinAsyncOpenProjFile,
            Qt::QueuedConnection);

    setTabOrder(m_radioRecent, m_recent);
    setTabOrder(m_recent, m_other);
    setTabOrder(m_other, m_radioNew);
    setTabOrder(m_radioNew, m_dontShow);
    setTabOrder(m_dontShow, m_start);
    _SlotOnToggleRadio();
}

void WelcomeDialog::_SlotOnToggleRadio()
{
    const bool recent = m_radioRecent->isChecked();
    m_other->setEnabled(recent);
    m_recent->setEnabled(recent && m_recent->count() > 0);
}

QString WelcomeDialog::askForProject(const QString& dir, const QString& selectedFilter)
{
    QString selected = selectedFilter;
    return QFileDialog::getOpenFileName(this, tr("Open Plotvik project file"), dir,
                                        tr("All files (*.*);;Plotvik project files (*.plotvik)"), &selected);
}

void WelcomeDialog::_SlotOnReleaseBtnOther()
{
    const QString path = askForProject({}, {});
    if (!path.isEmpty())
        open(path.toStdString());
}

void WelcomeDialog::_SlotOnReleaseBtnStart()
{
    if (m_radioRecent->isChecked()) {
        if (m_recent->count() == 0) {
            const QString path = askForProject(QCoreApplication::applicationDirPath(), tr(kProjectFilter));
            if (path.isEmpty()) {
                done(kCancelled);
                return;
            }
            open(path.toStdString());
        } else {
            open(m_recent->currentData().toString().toStdString());
        }
        return;
    }
    NewProjectDialog dialog(m_controller, this);
    if (dialog.exec() == QDialog::Accepted)
        done(kCreated);
}

void WelcomeDialog::open(const std::string& path)
{
    m_pending->result = -1;
    const std::shared_ptr<Pending> pending = m_pending;
    const QPointer<WelcomeDialog> self(this);
    // The callback runs on the worker: it only hands over to the interface
    // thread, where the dialog is looked for (it may be gone).
    m_controller.postOpenProjFile(path, &pending->result, [pending, self] {
        QMetaObject::invokeMethod(
            qApp,
            [pending, self] {
                if (self)
                    emit self->_SignalFinAsyncOpenProjFile();
            },
            Qt::QueuedConnection);
    });
}

void WelcomeDialog::_SlotOnFinAsyncOpenProjFile()
{
    if (m_pending->result == 0)
        done(kOpened);
}

void WelcomeDialog::_SlotOnDontShowChanged(int state)
{
    std::uint32_t action = 0;
    if (state != Qt::Unchecked)
        action = m_radioRecent->isChecked() ? 1 : 2;
    m_controller.postSetAppStartAction(action);
}
