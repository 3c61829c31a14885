// A horizontal table header with a row of filter editors under the column
// titles, one per column, and a context menu that shows or hides columns and
// the filter row.
#pragma once

#include <QHeaderView>

#include <vector>

class QMenu;

class UtilFilterHeader : public QHeaderView {
    Q_OBJECT

public:
    enum EditorKind : int { kEditorText = 0, kEditorCombo = 1 };
    // Total padding around the editors, half of it above them.
    static constexpr int kPadding = 4;

    explicit UtilFilterHeader(int columns, QWidget* parent = nullptr);

    // Creates text editors for columns that have none yet.
    void setColumnCount(int columns);
    int columnCount() const { return static_cast<int>(m_editors.size()); }
    // Makes `column`'s editor an editable combo box offering `items`.
    void setColumnCombo(int column, const QStringList& items);
    // The column's filter text; empty for other kinds or columns out of range.
    QString filterValue(int column) const;
    QWidget* editor(int column) const;

    bool isFilterVisible() const { return m_filterVisible; }
    void setFilterVisible(bool visible) { OnToggleFilter(visible); }
    // Line edits report every keystroke instead of Return and end of editing.
    void setLiveFiltering(bool on);
    void setContextMenuAllowed(bool on) { m_contextMenuAllowed = on; }
    void setColumnMenuAllowed(bool on) { m_columnMenuAllowed = on; }
    void setFilterToggleAllowed(bool on) { m_filterToggleAllowed = on; }
    int visibleColumnCount() const;
    // Visual index of the last visible column, -1 when none.
    int lastVisibleColumn() const { return m_lastVisible; }

    // The context menu as it would pop up (owned by the caller), or nullptr
    // when it would be empty.
    QMenu* createMenu(QWidget* parent);

    QSize sizeHint() const override;

signals:
    void SignalFilterChanged();

public slots:
    void OnToggleFilter(bool visible);
    void AdjustPositions();
    void OnSectionMoved(int logical, int oldVisual, int newVisual);
    void OnToggleColumn(bool visible);
    void OnEditorChanged();
    void OnContextMenu(const QPoint& pos);

protected:
    bool event(QEvent* e) override;
    void keyPressEvent(QKeyEvent* e) override;
    void resizeEvent(QResizeEvent* e) override;
    void showEvent(QShowEvent* e) override;

private:
    struct Column {
        int kind = kEditorText;
        QWidget* editor = nullptr;  // owned by the header
    };
    QWidget* makeTextEditor();
    int editorHeight() const;
    void updateMargins();
    void findLastVisible();
    void followScrollBar();

    std::vector<Column> m_editors;
    bool m_filterVisible = true;
    bool m_liveFiltering = false;
    bool m_contextMenuAllowed = true;
    bool m_columnMenuAllowed = true;
    bool m_filterToggleAllowed = true;
    int m_lastVisible = -1;
};
