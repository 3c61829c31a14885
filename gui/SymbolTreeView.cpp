#include "gui/SymbolTreeView.h"

#include "gui/SymbolTreeModel.h"

#include <QHeaderView>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QStyledItemDelegate>

#include <algorithm>

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

SymbolTreeView::SymbolTreeView(QWidget* parent) : QAbstractItemView(parent)
{
    // As a QTreeView: whole rows are selected, one at a time, and the header
    // stretches its last section.
    setSelectionBehavior(SelectRows);
    setSelectionMode(SingleSelection);
    setVerticalScrollMode(ScrollPerItem);
    setHorizontalScrollMode(ScrollPerPixel);
    m_indentation = style()->pixelMetric(QStyle::PM_TreeViewIndentation, nullptr, this);
    m_header = new QHeaderView(Qt::Horizontal, this);
    m_header->setStretchLastSection(true);
    m_header->setSectionsMovable(false);
    m_header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    connect(m_header, &QHeaderView::sectionResized, this, [this] {
        updateGeometries();
        viewport()->update();
    });
    connect(m_header, &QHeaderView::sectionMoved, viewport(), qOverload<>(&QWidget::update));
    setItemDelegateForColumn(0, new NameDelegate(this));
}

void SymbolTreeView::setSymbolModel(SymbolTreeModel* model)
{
    m_model = model;
    setModel(model);
    m_header->setModel(model);
    m_rowHeight = 0;
    updateGeometries();
}

int SymbolTreeView::rowHeight() const
{
    if (m_rowHeight > 0)
        return m_rowHeight;
    int h = fontMetrics().height() + 2;
    if (model() && model()->rowCount() > 0) {
        QStyleOptionViewItem option;
        initViewItemOption(&option);
        for (int c = 0; c < model()->columnCount(); ++c) {
            const QModelIndex i = model()->index(0, c);
            h = std::max(h, itemDelegateForIndex(i)->sizeHint(option, i).height());
        }
        // A check box row is as high as a text row.
        option.features |= QStyleOptionViewItem::HasCheckIndicator;
        h = std::max(h, style()->pixelMetric(QStyle::PM_IndicatorHeight, &option, this) + 2);
        m_rowHeight = h;
    }
    return h;
}

int SymbolTreeView::visibleRows() const { return std::max(1, viewport()->height() / rowHeight()); }

// ---------------------------------------------------------------------------
// Geometry

QRect SymbolTreeView::visualRect(const QModelIndex& index) const
{
    if (!index.isValid() || index.model() != model())
        return {};
    const int row = index.row() - verticalScrollBar()->value();
    const int h = rowHeight();
    return {m_header->sectionViewportPosition(index.column()), row * h, m_header->sectionSize(index.column()), h};
}

QModelIndex SymbolTreeView::indexAt(const QPoint& point) const
{
    if (!model() || point.y() < 0)
        return {};
    const int row = verticalScrollBar()->value() + point.y() / rowHeight();
    const int column = m_header->logicalIndexAt(point.x());
    if (row >= model()->rowCount() || column < 0)
        return {};
    return model()->index(row, column);
}

void SymbolTreeView::scrollTo(const QModelIndex& index, ScrollHint hint)
{
    if (!index.isValid())
        return;
    QScrollBar* bar = verticalScrollBar();
    const int first = bar->value(), shown = visibleRows(), row = index.row();
    switch (hint) {
    case PositionAtTop: bar->setValue(row); break;
    case PositionAtBottom: bar->setValue(row - shown + 1); break;
    case PositionAtCenter: bar->setValue(row - shown / 2); break;
    default:
        if (row < first)
            bar->setValue(row);
        else if (row >= first + shown)
            bar->setValue(row - shown + 1);
        break;
    }
    const QRect cell = visualRect(index);
    QScrollBar* across = horizontalScrollBar();
    if (cell.left() < 0)
        across->setValue(across->value() + cell.left());
    else if (cell.right() > viewport()->width() && cell.width() < viewport()->width())
        across->setValue(across->value() + cell.right() - viewport()->width());
}

QModelIndex SymbolTreeView::moveCursor(CursorAction cursorAction, Qt::KeyboardModifiers)
{
    if (!model() || model()->rowCount() == 0)
        return {};
    const QModelIndex current = currentIndex();
    const int rows = model()->rowCount();
    const int row = current.isValid() ? current.row() : 0;
    const int column = current.isValid() ? current.column() : 0;
    int to = row;
    switch (cursorAction) {
    case MoveUp:
    case MovePrevious: to = row - 1; break;
    case MoveDown:
    case MoveNext: to = current.isValid() ? row + 1 : 0; break;
    case MovePageUp: to = row - visibleRows(); break;
    case MovePageDown: to = row + visibleRows(); break;
    case MoveHome: to = 0; break;
    case MoveEnd: to = rows - 1; break;
    default: break;
    }
    return model()->index(std::clamp(to, 0, rows - 1), column);
}

int SymbolTreeView::horizontalOffset() const { return horizontalScrollBar()->value(); }

int SymbolTreeView::verticalOffset() const { return verticalScrollBar()->value() * rowHeight(); }

void SymbolTreeView::setSelection(const QRect& rect, QItemSelectionModel::SelectionFlags command)
{
    if (!model() || !selectionModel())
        return;
    const QModelIndex first = indexAt(rect.topLeft()), last = indexAt(rect.bottomRight());
    const int top = first.isValid() ? first.row() : (last.isValid() ? last.row() : -1);
    const int bottom = last.isValid() ? last.row() : top;
    if (top < 0)
        return;
    const QItemSelection selection(model()->index(std::min(top, bottom), 0),
                                   model()->index(std::max(top, bottom), model()->columnCount() - 1));
    selectionModel()->select(selection, command);
}

QRegion SymbolTreeView::visualRegionForSelection(const QItemSelection& selection) const
{
    QRegion region;
    const int first = verticalScrollBar()->value(), last = first + visibleRows();
    for (const QItemSelectionRange& range : selection) {
        const int top = std::max(range.top(), first), bottom = std::min(range.bottom(), last);
        if (top > bottom)
            continue;
        const int h = rowHeight();
        region += QRect(0, (top - first) * h, viewport()->width(), (bottom - top + 1) * h);
    }
    return region;
}

void SymbolTreeView::updateGeometries()
{
    if (!m_header)  // while the base class is set up
        return;
    const int headerHeight = m_header->isHidden() ? 0 : m_header->sizeHint().height();
    setViewportMargins(0, headerHeight, 0, 0);
    const QRect vg = viewport()->geometry();
    m_header->setGeometry(vg.left(), vg.top() - headerHeight, vg.width(), headerHeight);
    const int rows = model() ? model()->rowCount() : 0;
    const int shown = visibleRows();
    verticalScrollBar()->setRange(0, std::max(0, rows - shown));
    verticalScrollBar()->setPageStep(shown);
    verticalScrollBar()->setSingleStep(1);
    horizontalScrollBar()->setRange(0, std::max(0, m_header->length() - viewport()->width()));
    horizontalScrollBar()->setPageStep(viewport()->width());
    horizontalScrollBar()->setSingleStep(20);
    QAbstractItemView::updateGeometries();
}

void SymbolTreeView::scrollContentsBy(int dx, int dy)
{
    if (dx)
        m_header->setOffset(horizontalScrollBar()->value());
    (void)dy;
    viewport()->update();
}

void SymbolTreeView::resizeEvent(QResizeEvent* event)
{
    QAbstractItemView::resizeEvent(event);
    updateGeometries();
}

// ---------------------------------------------------------------------------
// Columns and sorting

void SymbolTreeView::setSortingEnabled(bool enable)
{
    m_header->setSortIndicatorShown(enable);
    m_header->setSectionsClickable(enable);
    if (enable) {
        // As a QTreeView does: sort by the header's indicator at once.
        sortByColumn(m_header->sortIndicatorSection(), m_header->sortIndicatorOrder());
        connect(m_header, &QHeaderView::sortIndicatorChanged, this, &SymbolTreeView::sortByColumn, Qt::UniqueConnection);
    } else {
        disconnect(m_header, &QHeaderView::sortIndicatorChanged, this, &SymbolTreeView::sortByColumn);
    }
}

void SymbolTreeView::sortByColumn(int column, Qt::SortOrder order)
{
    if (column < 0 || !model())
        return;
    const QSignalBlocker quiet(m_header);
    m_header->setSortIndicator(column, order);
    model()->sort(column, order);
}

int SymbolTreeView::columnWidth(int column) const { return m_header->sectionSize(column); }
void SymbolTreeView::setColumnWidth(int column, int width) { m_header->resizeSection(column, width); }
int SymbolTreeView::columnViewportPosition(int column) const { return m_header->sectionViewportPosition(column); }

void SymbolTreeView::resizeColumnToContents(int column)
{
    setColumnWidth(column, std::max(sizeHintForColumn(column), m_header->sectionSizeHint(column)));
}

int SymbolTreeView::sizeHintForColumn(int column) const
{
    if (!model())
        return -1;
    // The rows in sight and those just after, as a QTreeView measures.
    QStyleOptionViewItem option;
    initViewItemOption(&option);
    const int first = verticalScrollBar()->value();
    const int last = std::min(model()->rowCount(), first + std::max(visibleRows(), 1000));
    int width = 0;
    for (int r = first; r < last; ++r) {
        const QModelIndex i = model()->index(r, column);
        if (m_model && m_model->isFileRow(i))
            continue;  // spans the whole row
        width = std::max(width, itemDelegateForIndex(i)->sizeHint(option, i).width());
    }
    return width;
}

// ---------------------------------------------------------------------------
// Painting

void SymbolTreeView::paintEvent(QPaintEvent* event)
{
    QPainter painter(viewport());
    if (!model())
        return;
    const int h = rowHeight();
    const int first = verticalScrollBar()->value();
    const int last = std::min(model()->rowCount(), first + event->rect().bottom() / h + 1);
    for (int r = first + std::max(0, event->rect().top() / h); r < last; ++r)
        paintRow(painter, r, (r - first) * h);
}

void SymbolTreeView::paintRow(QPainter& painter, int row, int top) const
{
    QStyleOptionViewItem base;
    initViewItemOption(&base);
    const QModelIndex first = model()->index(row, 0);
    const bool selected = selectionModel() && selectionModel()->isRowSelected(row, {});
    const bool focus = hasFocus() && currentIndex().row() == row;
    const auto prepare = [&](QStyleOptionViewItem& opt, const QModelIndex& index, const QRect& rect) {
        opt.rect = rect;
        opt.state &= ~(QStyle::State_Selected | QStyle::State_HasFocus | QStyle::State_Enabled);
        if (index.flags() & Qt::ItemIsEnabled)
            opt.state |= QStyle::State_Enabled;
        if (selected)
            opt.state |= QStyle::State_Selected;
        if (focus && currentIndex() == index)
            opt.state |= QStyle::State_HasFocus;
    };
    const int h = rowHeight();
    if (m_model && m_model->isFileRow(first)) {
        // A source-file row: its first column spans the whole row.
        QStyleOptionViewItem opt = base;
        const int left = m_header->sectionViewportPosition(0);
        const int right = std::max(m_header->length() - m_header->offset(), viewport()->width());
        prepare(opt, first, QRect(left, top, right - left, h));
        if (focus)
            opt.state |= QStyle::State_HasFocus;
        opt.viewItemPosition = QStyleOptionViewItem::OnlyOne;
        itemDelegateForIndex(first)->paint(&painter, opt, first);
        return;
    }
    const int columns = model()->columnCount();
    for (int visual = 0; visual < columns; ++visual) {
        const int c = m_header->logicalIndex(visual);
        if (m_header->isSectionHidden(c))
            continue;
        const QModelIndex index = model()->index(row, c);
        QStyleOptionViewItem opt = base;
        prepare(opt, index, QRect(m_header->sectionViewportPosition(c), top, m_header->sectionSize(c), h));
        opt.viewItemPosition = visual == 0             ? QStyleOptionViewItem::Beginning
                               : visual + 1 == columns ? QStyleOptionViewItem::End
                                                       : QStyleOptionViewItem::Middle;
        itemDelegateForIndex(index)->paint(&painter, opt, index);
    }
}

// ---------------------------------------------------------------------------
// Expanding and collapsing

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

void SymbolTreeView::mousePressEvent(QMouseEvent* event)
{
    const QPoint pos = event->position().toPoint();
    const QModelIndex index = indexAt(pos);
    if (event->button() == Qt::LeftButton && onArrow(index, pos)) {
        toggle(index);
        return;
    }
    QAbstractItemView::mousePressEvent(event);
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
    QAbstractItemView::mouseDoubleClickEvent(event);
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
    QAbstractItemView::keyPressEvent(event);
}
