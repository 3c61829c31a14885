// Help › Plotvik User Guide: the guide's Markdown pages in a window of the
// program's own, so the guide reads offline and without a browser. Links
// between pages and the pictures resolve against the guide's folder.
#pragma once

#include <QTimer>
#include <QWidget>

class QAction;
class QTextBrowser;

class UserGuideWindow : public QWidget {
    Q_OBJECT

public:
    explicit UserGuideWindow(QWidget* parent = nullptr);

    // Shows the window on `indexFile`, the guide's first page; false (and
    // nothing shown) when it is not there.
    bool showGuide(const QString& indexFile);

    QTextBrowser* browser() const { return m_browser; }

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    void goHome();
    // Lays the page out again for a new width, where it was.
    void refit();

    QTextBrowser* m_browser = nullptr;  // owned by the window
    QAction* m_back = nullptr;          // owned by the tool bar
    QAction* m_forward = nullptr;       // owned by the tool bar
    QString m_home;
    QTimer m_refit;  // one refit once a resize has settled
};
