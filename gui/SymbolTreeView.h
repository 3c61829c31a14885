// Shows the flat rows of a SymbolTreeModel as a tree: each name indented by
// its depth behind the style's branch lines and expand arrows, source-file
// rows across all columns, and the usual ways to expand and collapse a row
// (its arrow, a double click, the arrow keys and + / -). Rows are all of one
// height and the view keeps nothing per row, so an array of millions of
// elements opens, scrolls and filters as fast as a short list (a QTreeView
// keeps an item per row).
#pragma once

#include <QAbstractItemView>

class QHeaderView;
class SymbolTreeModel;

class SymbolTreeView : public QAbstractItemView {
    Q_OBJECT

public:
    explicit SymbolTreeView(QWidget* parent = nullptr);

    void setSymbolModel(SymbolTreeModel* model);
    SymbolTreeModel* symbolModel() const { return m_model; }

    // The row's expand arrow, in viewport coordinates (empty without one).
    QRect arrowRect(const QModelIndex& index) const;
    void setRowExpanded(const QModelIndex& index, bool expanded);
    bool isRowExpanded(const QModelIndex& index) const;

    // What a QTreeView offers the dialog: the header, sorting by a click on
    // it, column widths, indentation.
    QHeaderView* header() const { return m_header; }
    void setSortingEnabled(bool enable);
    void sortByColumn(int column, Qt::SortOrder order);
    int columnWidth(int column) const;
    void setColumnWidth(int column, int width);
    int columnViewportPosition(int column) const;
    void resizeColumnToContents(int column);
    int indentation() const { return m_indentation; }
    bool expandsOnDoubleClick() const { return true; }
    int rowHeight() const;

    QRect visualRect(const QModelIndex& index) const override;
    void scrollTo(const QModelIndex& index, ScrollHint hint = EnsureVisible) override;
    QModelIndex indexAt(const QPoint& point) const override;

protected:
    QModelIndex moveCursor(CursorAction cursorAction, Qt::KeyboardModifiers modifiers) override;
    int horizontalOffset() const override;
    int verticalOffset() const override;
    bool isIndexHidden(const QModelIndex&) const override { return false; }
    void setSelection(const QRect& rect, QItemSelectionModel::SelectionFlags command) override;
    QRegion visualRegionForSelection(const QItemSelection& selection) const override;
    void updateGeometries() override;
    void scrollContentsBy(int dx, int dy) override;
    int sizeHintForColumn(int column) const override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    bool onArrow(const QModelIndex& index, const QPoint& pos) const;
    void toggle(const QModelIndex& index);
    int visibleRows() const;
    void paintRow(QPainter& painter, int row, int top) const;

    SymbolTreeModel* m_model = nullptr;  // not owned
    QHeaderView* m_header = nullptr;      // owned by the view
    int m_indentation = 20;
    mutable int m_rowHeight = 0;          // 0: not measured yet
};
