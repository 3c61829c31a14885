#include "gui/UserGuideWindow.h"

#include <QAction>
#include <QFileInfo>
#include <QImage>
#include <QKeySequence>
#include <QScrollBar>
#include <QStyle>
#include <QTextBrowser>
#include <QToolBar>
#include <QUrl>
#include <QVBoxLayout>

namespace {

// Pictures wider than the page are scaled down to it as the page is loaded
// (and loaded again after a resize), so a screenshot of a large window needs
// no sideways scrolling.
class GuideBrowser : public QTextBrowser {
public:
    using QTextBrowser::QTextBrowser;

    QVariant loadResource(int type, const QUrl& name) override
    {
        const QVariant resource = QTextBrowser::loadResource(type, name);
        if (type != QTextDocument::ImageResource)
            return resource;
        const QImage picture = resource.typeId() == QMetaType::QImage ? resource.value<QImage>()
                                                                : QImage::fromData(resource.toByteArray());
        const int room = viewport()->width() - 2 * static_cast<int>(document()->documentMargin()) - 4;
        if (picture.isNull() || room < 200 || picture.width() <= room)
            return resource;
        return picture.scaledToWidth(room, Qt::SmoothTransformation);
    }
};

}  // namespace

UserGuideWindow::UserGuideWindow(QWidget* parent) : QWidget(parent, Qt::Window)
{
    setWindowTitle(tr("Plotvik User Guide"));
    setObjectName("UserGuideWindow");
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    auto* bar = new QToolBar(this);  // owned by the window
    bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_back = bar->addAction(style()->standardIcon(QStyle::SP_ArrowBack), tr("Back"));
    m_back->setShortcut(QKeySequence::Back);
    m_forward = bar->addAction(style()->standardIcon(QStyle::SP_ArrowForward), tr("Forward"));
    m_forward->setShortcut(QKeySequence::Forward);
    QAction* home = bar->addAction(style()->standardIcon(QStyle::SP_DirHomeIcon), tr("Contents"));
    layout->addWidget(bar);

    m_browser = new GuideBrowser(this);
    // Web links go to the desktop's browser; the guide's own pages stay here.
    m_browser->setOpenExternalLinks(true);
    layout->addWidget(m_browser, 1);

    m_back->setEnabled(false);
    m_forward->setEnabled(false);
    connect(m_back, &QAction::triggered, m_browser, &QTextBrowser::backward);
    connect(m_forward, &QAction::triggered, m_browser, &QTextBrowser::forward);
    connect(home, &QAction::triggered, this, &UserGuideWindow::goHome);
    connect(m_browser, &QTextBrowser::backwardAvailable, m_back, &QAction::setEnabled);
    connect(m_browser, &QTextBrowser::forwardAvailable, m_forward, &QAction::setEnabled);
    m_refit.setSingleShot(true);
    m_refit.setInterval(200);
    connect(&m_refit, &QTimer::timeout, this, &UserGuideWindow::refit);
    resize(1000, 760);
}

bool UserGuideWindow::showGuide(const QString& indexFile)
{
    const QFileInfo index(indexFile);
    if (!index.isFile() || !index.isReadable())
        return false;
    m_home = index.absoluteFilePath();
    // Pictures and pages named relative to the guide's folder are found from
    // any page.
    m_browser->setSearchPaths({index.absolutePath()});
    // Shown first: the pictures are fitted to the page's width as laid out.
    show();
    raise();
    activateWindow();
    goHome();
    return true;
}

void UserGuideWindow::goHome()
{
    if (!m_home.isEmpty())
        m_browser->setSource(QUrl::fromLocalFile(m_home), QTextDocument::MarkdownResource);
}

void UserGuideWindow::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    if (!m_home.isEmpty())
        m_refit.start();
}

// The pictures were fitted to the old width when the page was loaded.
void UserGuideWindow::refit()
{
    QScrollBar* bar = m_browser->verticalScrollBar();
    const double at = bar->maximum() > 0 ? double(bar->value()) / bar->maximum() : 0.0;
    m_browser->reload();
    bar->setValue(static_cast<int>(at * bar->maximum()));
}
