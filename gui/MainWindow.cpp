#include "gui/MainWindow.h"

#include "app/Controller.h"
#include "app/Product.h"

#include <QApplication>
#include <QCloseEvent>
#include <QFileDialog>
#include <QLabel>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QScreen>
#include <QThread>

MainWindow::MainWindow(Controller& controller, std::vector<std::string> argv, QWidget* parent)
    : QMainWindow(parent), m_controller(controller), m_guiThread(std::this_thread::get_id())
{
    setWindowTitle(QString::fromStdString(product::fullName()));
    auto* placeholder = new QLabel(tr("No project open"), this);  // owned by the window
    placeholder->setAlignment(Qt::AlignCenter);
    setCentralWidget(placeholder);
    resize(1024, 700);
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());

    connect(&m_timer, &QTimer::timeout, this, &MainWindow::_SlotOnTimeout);
    m_timer.start(1000);
    show();

    connect(this, &MainWindow::_SignalFinAsyncAppInit, this, &MainWindow::_SlotOnFinAsyncAppInit, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalUpdateGUI, this, &MainWindow::_SlotOnUpdateGUI);
    connect(this, &MainWindow::_SignalUpdateData, this, &MainWindow::_SlotOnUpdateData);
    connect(this, &MainWindow::_SignalNewProjectDialog, this, &MainWindow::_SlotOnNewProjectDialog, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalOptionsDialog, this, &MainWindow::_SlotOptionsDialog, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalShowSymbolSelection, this, &MainWindow::_SlotOnShowSymbolSelection, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalShowCustMsgBox, this, &MainWindow::_SlotOnShowCustMsgBox, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalUpdateProgBar, this, &MainWindow::_SlotOnUpdateProgBar, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalAssignColors, this, &MainWindow::_SlotOnAssignColors);
    connect(this, &MainWindow::_SignalReset, this, &MainWindow::_SlotOnReset);
    connect(this, &MainWindow::_SignalClose, this, &MainWindow::_SlotOnClose, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalShowFileDialogOpen, this, &MainWindow::_SlotOnShowFileDialogOpen, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalShowFileDialogSave, this, &MainWindow::_SlotOnShowFileDialogSave, Qt::QueuedConnection);
    connect(this, &MainWindow::_SignalUpdateSymbolSelection, this, &MainWindow::_SlotOnUpdateSymbolSelection);

    m_startArgs.argv = std::move(argv);
    m_controller.setBridge(this);
    m_controller.postInit(&m_startArgs, [this] { emit _SignalFinAsyncAppInit(); });
}

MainWindow::~MainWindow() { m_controller.setBridge(nullptr); }

// ---------------------------------------------------------------------------
// Bridge notifications

void MainWindow::setTitle(const std::string& title)
{
    {
        LockGuard lock(m_lock);
        m_title = title;
    }
    emit _SignalUpdateGUI();
}

void MainWindow::updateGui() { emit _SignalUpdateGUI(); }
void MainWindow::updateData() { emit _SignalUpdateData(); }
void MainWindow::reset() { emit _SignalReset(); }
void MainWindow::showSymbolSelection() { emit _SignalShowSymbolSelection(); }
void MainWindow::newProjectDialog() { emit _SignalNewProjectDialog(); }
void MainWindow::optionsDialog() { emit _SignalOptionsDialog(); }
void MainWindow::assignColors() { emit _SignalAssignColors(); }
void MainWindow::refreshRecentLists() { emit _SignalUpdateGUI(); }
void MainWindow::close() { emit _SignalClose(); }

void MainWindow::enableUpdates(bool on)
{
    QMetaObject::invokeMethod(this, [this, on] { setUpdatesEnabled(on); }, Qt::QueuedConnection);
}

// ---------------------------------------------------------------------------
// Bridge requests: shown at once on the interface thread, otherwise handed
// over and waited for.

MessageBoxAnswer MainWindow::messageBox(const MessageBoxRequest& request)
{
    if (onInterfaceThread())
        return runMessageBox(request);
    {
        LockGuard lock(m_lock);
        m_msgBox.request = request;
    }
    emit _SignalShowCustMsgBox();
    m_msgBox.done.wait();
    LockGuard lock(m_lock);
    return m_msgBox.answer;
}

std::string MainWindow::openFileDialog(const FileDialogRequest& request)
{
    if (onInterfaceThread())
        return runFileDialog(request, false);
    {
        LockGuard lock(m_lock);
        m_fileDialog.request = request;
    }
    emit _SignalShowFileDialogOpen();
    m_fileDialog.done.wait();
    LockGuard lock(m_lock);
    return m_fileDialog.path;
}

std::string MainWindow::saveFileDialog(const FileDialogRequest& request)
{
    if (onInterfaceThread())
        return runFileDialog(request, true);
    {
        LockGuard lock(m_lock);
        m_fileDialog.request = request;
    }
    emit _SignalShowFileDialogSave();
    m_fileDialog.done.wait();
    LockGuard lock(m_lock);
    return m_fileDialog.path;
}

int MainWindow::progress(int value, const std::string& text, int flags, int limit)
{
    if (onInterfaceThread())
        return 0;
    {
        LockGuard lock(m_lock);
        m_progress.value = value;
        m_progress.text = text;
        m_progress.flags = flags;
        m_progress.limit = limit;
    }
    emit _SignalUpdateProgBar();
    m_progress.done.wait();
    LockGuard lock(m_lock);
    return m_progress.result;
}

MessageBoxAnswer MainWindow::runMessageBox(const MessageBoxRequest& r)
{
    QMessageBox box(this);
    box.setWindowTitle(QString::fromStdString(r.caption));
    box.setText(QString::fromStdString(r.text));
    QPushButton* b0 = r.button0.empty() ? nullptr : box.addButton(QString::fromStdString(r.button0), QMessageBox::AcceptRole);
    QPushButton* b1 = r.button1.empty() ? nullptr : box.addButton(QString::fromStdString(r.button1), QMessageBox::RejectRole);
    box.exec();
    if (box.clickedButton() && box.clickedButton() == b0)
        return {0, r.checkState};
    if (box.clickedButton() && box.clickedButton() == b1)
        return {1, r.checkState};
    return {r.dismissedValue, r.checkState};
}

std::string MainWindow::runFileDialog(const FileDialogRequest& r, bool save)
{
    const QString title = QString::fromStdString(r.title);
    const QString dir = QString::fromStdString(r.directory);
    const QString filter = QString::fromStdString(r.filter);
    const QString path = save ? QFileDialog::getSaveFileName(this, title, dir, filter)
                              : QFileDialog::getOpenFileName(this, title, dir, filter);
    return path.toStdString();
}

// ---------------------------------------------------------------------------
// Slots

void MainWindow::_SlotOnShowCustMsgBox()
{
    MessageBoxRequest request;
    {
        LockGuard lock(m_lock);
        request = m_msgBox.request;
    }
    const MessageBoxAnswer answer = runMessageBox(request);
    {
        LockGuard lock(m_lock);
        m_msgBox.answer = answer;
    }
    m_msgBox.done.set();
}

void MainWindow::_SlotOnShowFileDialogOpen()
{
    FileDialogRequest request;
    {
        LockGuard lock(m_lock);
        request = m_fileDialog.request;
    }
    const std::string path = runFileDialog(request, false);
    {
        LockGuard lock(m_lock);
        m_fileDialog.path = path;
    }
    m_fileDialog.done.set();
}

void MainWindow::_SlotOnShowFileDialogSave()
{
    FileDialogRequest request;
    {
        LockGuard lock(m_lock);
        request = m_fileDialog.request;
    }
    const std::string path = runFileDialog(request, true);
    {
        LockGuard lock(m_lock);
        m_fileDialog.path = path;
    }
    m_fileDialog.done.set();
}

void MainWindow::_SlotOnUpdateProgBar()
{
    {
        LockGuard lock(m_lock);
        m_progress.result = 0;
    }
    m_progress.done.set();
}

void MainWindow::_SlotOnFinAsyncAppInit()
{
    if (m_startArgs.exitNow)
        QMainWindow::close();
}

void MainWindow::_SlotOnUpdateGUI()
{
    LockGuard lock(m_lock);
    if (!m_title.empty())
        setWindowTitle(QString::fromStdString(m_title));
}

void MainWindow::_SlotOnUpdateData() {}
void MainWindow::_SlotOnNewProjectDialog() {}
void MainWindow::_SlotOptionsDialog() {}
void MainWindow::_SlotOnShowSymbolSelection() {}
void MainWindow::_SlotOnAssignColors() {}
void MainWindow::_SlotOnReset() {}
void MainWindow::_SlotOnUpdateSymbolSelection() {}
void MainWindow::_SlotOnClose() { QMainWindow::close(); }

void MainWindow::_SlotOnTimeout()
{
    LockGuard lock(m_lock);
    if (!m_controller.samplingRunning() && !m_controller.elfParsing() && !m_controller.elfCheckPending()) {
        m_controller.setElfCheckPending(true);
        m_controller.postCheckElfModifications();
    }
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (m_closing) {
        event->accept();
        return;
    }
    m_controller.setExitState(kExitPending);
    if (m_controller.postExit() != 0)
        m_controller.setExitState(kExitAllowed);
    while (m_controller.exitState() == kExitPending) {
        QApplication::processEvents();
        QThread::msleep(10);
    }
    if (m_controller.exitState() == kExitNone) {
        event->ignore();
        return;
    }
    m_timer.stop();
    m_controller.engine().stopAndWait([] { QApplication::processEvents(); });
    m_closing = true;
    event->accept();
    QApplication::exit(0);
}
