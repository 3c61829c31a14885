#include "symbols/SymbolTreeView.h"

#include "symbols/SymbolTreeModel.h"

#include <QHeaderView>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QStyledItemDelegate>

namespace {

// The name column: the branches of the row's depth, then the cell.
class NameDelegate : public QStyledItemDelegate {
public:
    explicit NameDelegate(SymbolTreeView* view) : QStyledItemDelegate(view), m_view(view) {}

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        const SymbolTreeModel* model = m_view->symbolModel();
        if (!model) {
            QStyledItemDelegate::paint(painter, option, index);
            return;
        }
        const int indent = m_view->indentation();
        const int depth = model->depth(index);
        const int branchWidth = indent * (depth + 1);
        const QRect branches(option.rect.left(), option.rect.top(), branchWidth, option.rect.height());

        // A source-file row is grey from its first pixel.
        const QVariant background = index.data(Qt::BackgroundRole);
        if (background.canConvert<QBrush>())
            painter->fillRect(option.rect, background.value<QBrush>());
        if ((option.state & QStyle::State_Selected) &&
            m_view->style()->styleHint(QStyle::SH_ItemView_ShowDecorationSelected, &option, m_view)) {
            const QPalette::ColorGroup group = option.state & QStyle::State_Enabled ? QPalette::Normal : QPalette::Disabled;
            painter->fillRect(branches, option.palette.brush(group, QPalette::Highlight));
        }

        QStyleOption branch;
        branch.initFrom(m_view);
        const QStyle::State base = branch.state & (QStyle::State_Enabled | QStyle::State_Active);
        const std::uint64_t later = model->laterSiblings(index);
        for (int level = 0; level <= depth; ++level) {
            branch.rect = QRect(option.rect.left() + level * indent, option.rect.top(), indent, option.rect.height());
            QStyle::State state = base;
            if ((later >> level) & 1u)
                state |= QStyle::State_Sibling;
            if (level == depth) {
                state |= QStyle::State_Item;
                if (model->hasChildRows(index))
                    state |= QStyle::State_Children;
                if (model->isExpanded(index))
                    state |= QStyle::State_Open;
            }
            branch.state = state;
            m_view->style()->drawPrimitive(QStyle::PE_IndicatorBranch, &branch, painter, m_view);
        }

        QStyleOptionViewItem cell = option;
        cell.rect.setLeft(option.rect.left() + branchWidth);
        QStyledItemDelegate::paint(painter, cell, index);
    }

    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QSize size = QStyledItemDelegate::sizeHint(option, index);
        if (const SymbolTreeModel* model = m_view->symbolModel())
            size.rwidth() += m_view->indentation() * (model->depth(index) + 1);
        return size;
    }

private:
    SymbolTreeView* m_view;  // not owned: the delegate's parent
};

}  // namespace

SymbolTreeView::SymbolTreeView(QWidget* parent) : QTreeView(parent)
{
    // The model's rows are flat; the tree is drawn by the name delegate.
    setRootIsDecorated(false);
    setItemsExpandable(false);
    setUniformRowHeights(true);
    setItemDelegateForColumn(SymbolTreeModel::kColName, new NameDelegate(this));
}

void SymbolTreeView::setSymbolModel(SymbolTreeModel* model)
{
    m_model = model;
    setModel(model);
}

QRect SymbolTreeView::arrowRect(const QModelIndex& index) const
{
    if (!m_model || !index.isValid() || !m_model->hasChildRows(index))
        return {};
    const QRect cell = visualRect(index.siblingAtColumn(SymbolTreeModel::kColName));
    return {cell.left() + indentation() * m_model->depth(index), cell.top(), indentation(), cell.height()};
}

void SymbolTreeView::setRowExpanded(const QModelIndex& index, bool expanded)
{
    if (m_model)
        m_model->setExpanded(index, expanded);
}

bool SymbolTreeView::isRowExpanded(const QModelIndex& index) const { return m_model && m_model->isExpanded(index); }

bool SymbolTreeView::onArrow(const QModelIndex& index, const QPoint& pos) const { return arrowRect(index).contains(pos); }

void SymbolTreeView::toggle(const QModelIndex& index) { setRowExpanded(index, !isRowExpanded(index)); }

void SymbolTreeView::drawRow(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    if (!m_model || !m_model->isFileRow(index)) {
        QTreeView::drawRow(painter, option, index);
        return;
    }
    // A source-file row: its first column spans the whole row.
    const QModelIndex first = index.siblingAtColumn(SymbolTreeModel::kColName);
    QStyleOptionViewItem opt = option;
    opt.state &= ~(QStyle::State_Selected | QStyle::State_HasFocus | QStyle::State_MouseOver);
    if (selectionModel() && selectionModel()->isSelected(first))
        opt.state |= QStyle::State_Selected;
    if (hasFocus() && currentIndex().row() == index.row())
        opt.state |= QStyle::State_HasFocus;
    opt.viewItemPosition = QStyleOptionViewItem::OnlyOne;
    const int left = header()->sectionViewportPosition(SymbolTreeModel::kColName);
    const int right = std::max(header()->length() - header()->offset(), viewport()->width());
    opt.rect = QRect(left, option.rect.top(), right - left, option.rect.height());
    itemDelegateForColumn(SymbolTreeModel::kColName)->paint(painter, opt, first);
}

void SymbolTreeView::mousePressEvent(QMouseEvent* event)
{
    const QPoint pos = event->position().toPoint();
    const QModelIndex index = indexAt(pos);
    if (event->button() == Qt::LeftButton && onArrow(index, pos)) {
        toggle(index);
        return;
    }
    QTreeView::mousePressEvent(event);
}

void SymbolTreeView::mouseDoubleClickEvent(QMouseEvent* event)
{
    const QPoint pos = event->position().toPoint();
    const QModelIndex index = indexAt(pos);
    if (onArrow(index, pos)) {  // a second press on the arrow
        mousePressEvent(event);
        return;
    }
    const QPersistentModelIndex row = index.siblingAtColumn(SymbolTreeModel::kColName);
    QTreeView::mouseDoubleClickEvent(event);
    if (row.isValid() && expandsOnDoubleClick() && m_model && m_model->hasChildRows(row))
        toggle(row);
}

void SymbolTreeView::keyPressEvent(QKeyEvent* event)
{
    const QModelIndex current = currentIndex();
    if (m_model && current.isValid()) {
        const bool children = m_model->hasChildRows(current);
        const bool open = m_model->isExpanded(current);
        switch (event->key()) {
        case Qt::Key_Right:
        case Qt::Key_Plus:
            if (children && !open) {
                setRowExpanded(current, true);
                return;
            }
            if (event->key() == Qt::Key_Right && children) {
                setCurrentIndex(model()->index(current.row() + 1, current.column()));
                return;
            }
            break;
        case Qt::Key_Left:
        case Qt::Key_Minus:
            if (open) {
                setRowExpanded(current, false);
                return;
            }
            if (event->key() == Qt::Key_Left) {
                const QModelIndex up = m_model->parentRow(current);
                if (up.isValid()) {
                    setCurrentIndex(up.siblingAtColumn(current.column()));
                    return;
                }
            }
            break;
        default: break;
        }
    }
    QTreeView::keyPressEvent(event);
}
