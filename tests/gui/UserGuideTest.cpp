// Help › Plotvik User Guide shows the guide in the viewer, its pictures and
// links found beside its pages.
#include "gui/DIALOG_CustMsgBox.h"
#include "gui/MenuBar.h"
#include "gui/UserGuideWindow.h"
#include "tests/gui/GuiTestSupport.h"

#include <QAction>
#include <QImage>
#include <QLabel>
#include <QPushButton>
#include <QTextBrowser>
#include <QTextDocument>

namespace {

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
