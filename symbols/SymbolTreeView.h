// Shows the flat rows of a SymbolTreeModel as a tree: each name indented by
// its depth behind the style's branch lines and expand arrows, source-file
// rows across all columns, and the usual ways to expand and collapse a row
// (its arrow, a double click, the arrow keys and + / -).
#pragma once

#include <QTreeView>

class SymbolTreeModel;

class SymbolTreeView : public QTreeView {
    Q_OBJECT

public:
    explicit SymbolTreeView(QWidget* parent = nullptr);

    void setSymbolModel(SymbolTreeModel* model);
    SymbolTreeModel* symbolModel() const { return m_model; }

    // The row's expand arrow, in viewport coordinates (empty without one).
    QRect arrowRect(const QModelIndex& index) const;
    void setRowExpanded(const QModelIndex& index, bool expanded);
    bool isRowExpanded(const QModelIndex& index) const;

protected:
    void drawRow(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    bool onArrow(const QModelIndex& index, const QPoint& pos) const;
    void toggle(const QModelIndex& index);

    SymbolTreeModel* m_model = nullptr;  // not owned
};
