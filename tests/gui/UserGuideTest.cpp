// The user guide: its links and pictures stay inside its folder (it is installed
// and shown on its own), and Help › Plotvik User Guide shows it in the viewer.
#include "gui/DIALOG_CustMsgBox.h"
#include "gui/MenuBar.h"
#include "gui/UserGuideWindow.h"
#include "tests/gui/GuiTestSupport.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QPushButton>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTextDocument>

#include <set>

namespace {

const QString kGuide = QStringLiteral(PLOTVIK_GUIDE_DIR);

struct Target {
    QString href;
    bool image;
};

// The links and pictures of a Markdown page, as the viewer reads them.
std::vector<Target> targetsOf(const QString& page)
{
    QFile file(page);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QTextDocument doc;  // its blocks run through table cells too
    doc.setMarkdown(QString::fromUtf8(file.readAll()));
    std::vector<Target> out;
    for (QTextBlock b = doc.begin(); b != doc.end(); b = b.next())
        for (auto it = b.begin(); !it.atEnd(); ++it) {
            const QTextCharFormat f = it.fragment().charFormat();
            if (f.isImageFormat())
                out.push_back({f.toImageFormat().name(), true});
            else if (f.isAnchor() && !f.anchorHref().isEmpty())
                out.push_back({f.anchorHref(), false});
        }
    return out;
}

TEST(UserGuide, LinksAndPicturesResolveInsideTheGuide)
{
    const QDir guide(kGuide);
    ASSERT_TRUE(guide.exists("index.md")) << kGuide.toStdString();
    std::set<QString> pages{"index.md"}, pictures, todo{"index.md"};
    while (!todo.empty()) {
        const QString page = *todo.begin();
        todo.erase(todo.begin());
        for (const Target& t : targetsOf(guide.filePath(page))) {
            const QUrl url(t.href);
            if (url.scheme() == "http" || url.scheme() == "https")
                continue;
            const std::string where = page.toStdString() + " -> " + t.href.toStdString();
            // Heading anchors do not exist in the viewer, and nothing outside
            // the guide's folder is installed with it.
            EXPECT_TRUE(url.isRelative() && !url.hasFragment() && !t.href.contains("..")) << where;
            const QString path = QDir::cleanPath(QFileInfo(page).path() + "/" + url.path());
            EXPECT_TRUE(guide.exists(path)) << where;
            if (t.image) {
                EXPECT_FALSE(QImage(guide.filePath(path)).isNull()) << where;
                pictures.insert(path);
            } else if (path.endsWith(".md") && pages.insert(path).second) {
                todo.insert(path);
            }
        }
    }
    // Every page is linked from the contents on, every picture is shown.
    for (const QString& page : guide.entryList({"*.md"}, QDir::Files))
        EXPECT_TRUE(pages.count(page)) << page.toStdString() << " is not reached from index.md";
    for (const QString& picture : QDir(guide.filePath("images")).entryList({"*.png"}, QDir::Files))
        EXPECT_TRUE(pictures.count("images/" + picture)) << picture.toStdString() << " is shown on no page";
    EXPECT_GE(pages.size(), 10u);
}

using UserGuideWindowTest = guitest::WindowTest;

TEST_F(UserGuideWindowTest, HelpMenuShowsTheGuideInTheViewer)
{
    window->menus()->action(MenuBar::kUserGuide)->trigger();
    UserGuideWindow* guide = window->userGuideWindow();
    ASSERT_NE(guide, nullptr);
    EXPECT_TRUE(guide->isVisible());
    QTextBrowser* browser = guide->browser();
    EXPECT_TRUE(browser->source().toLocalFile().endsWith("/index.md")) << browser->source().toString().toStdString();
    EXPECT_TRUE(browser->toPlainText().startsWith("Plotvik User Guide"));
    // The page's picture is found relative to the page, and fitted to its width.
    const QVariant loaded = browser->loadResource(QTextDocument::ImageResource, QUrl("images/main-window.png"));
    const QImage picture = loaded.typeId() == QMetaType::QImage ? loaded.value<QImage>()
                                                                 : QImage::fromData(loaded.toByteArray());
    EXPECT_FALSE(picture.isNull());
    EXPECT_LE(picture.width(), browser->viewport()->width());
    // A link goes to the linked page in the same viewer.
    browser->setSource(browser->source().resolved(QUrl("cli.md")));
    EXPECT_TRUE(browser->toPlainText().startsWith("plotvik-cli"));

    // A guide that is not there is named in the error.
    QString shown;
    guitest::whenShown<DIALOG_CustMsgBox>([&](DIALOG_CustMsgBox* box) {
        shown = box->textLabel()->text();
        box->button(0)->click();
    }, window.get());
    EXPECT_FALSE(window->showUserGuide("/nonexistent/guide/index.md"));
    EXPECT_EQ(shown, "Failed to open Plotvik User Guide at:\n\"/nonexistent/guide/index.md\"");
}

}  // namespace
