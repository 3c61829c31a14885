#include "view/UtilFilterHeader.h"

#include <QAbstractScrollArea>
#include <QAbstractItemView>
#include <QComboBox>
#include <QEvent>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>

#include <algorithm>

UtilFilterHeader::UtilFilterHeader(int columns, QWidget* parent) : QHeaderView(Qt::Horizontal, parent)
{
    setSectionsClickable(true);
    setContextMenuPolicy(Qt::CustomContextMenu);
    connect(this, &QWidget::customContextMenuRequested, this, &UtilFilterHeader::OnContextMenu);
    connect(this, &QHeaderView::sectionResized, this, &UtilFilterHeader::AdjustPositions);
    connect(this, &QHeaderView::sectionMoved, this, &UtilFilterHeader::OnSectionMoved);
    connect(this, &QHeaderView::geometriesChanged, this, &UtilFilterHeader::AdjustPositions);
    connect(this, &QHeaderView::sectionCountChanged, this, [this] {
        findLastVisible();
        AdjustPositions();
    });
    setColumnCount(columns);
    followScrollBar();
}

// The table scrolls the header without telling it: the editors follow the
// table's horizontal scroll bar. Connected for the parent given at
// construction and again whenever the header moves to another parent.
void UtilFilterHeader::followScrollBar()
{
    if (auto* area = qobject_cast<QAbstractScrollArea*>(parentWidget()))
        connect(area->horizontalScrollBar(), &QScrollBar::valueChanged, this, &UtilFilterHeader::AdjustPositions,
                Qt::UniqueConnection);
}

QWidget* UtilFilterHeader::makeTextEditor()
{
    auto* edit = new QLineEdit(this);  // owned by the header
    edit->setPlaceholderText(tr("Filter"));
    edit->setClearButtonEnabled(true);
    connect(edit, &QLineEdit::returnPressed, this, &UtilFilterHeader::OnEditorChanged);
    connect(edit, &QLineEdit::editingFinished, this, &UtilFilterHeader::OnEditorChanged);
    if (m_liveFiltering)
        connect(edit, &QLineEdit::textChanged, this, &UtilFilterHeader::OnEditorChanged);
    edit->setVisible(m_filterVisible);
    return edit;
}

void UtilFilterHeader::setColumnCount(int columns)
{
    columns = std::max(columns, 0);
    while (static_cast<int>(m_editors.size()) > columns) {
        delete m_editors.back().editor;
        m_editors.pop_back();
    }
    while (static_cast<int>(m_editors.size()) < columns)
        m_editors.push_back({kEditorText, makeTextEditor()});
    updateMargins();
    AdjustPositions();
}

void UtilFilterHeader::setColumnCombo(int column, const QStringList& items)
{
    if (column < 0 || column >= columnCount())
        return;
    auto* combo = new QComboBox(this);  // owned by the header
    combo->setEditable(true);
    combo->addItems(items);
    combo->setCurrentIndex(-1);
    // The list opens wide enough for its longest item.
    int widest = 0;
    for (const QString& item : items)
        widest = std::max(widest, combo->fontMetrics().horizontalAdvance(item));
    combo->view()->setMinimumWidth(widest + 40);
    connect(combo, &QComboBox::currentIndexChanged, this, &UtilFilterHeader::OnEditorChanged);
    connect(combo, &QComboBox::editTextChanged, this, &UtilFilterHeader::OnEditorChanged);
    combo->setVisible(m_filterVisible);
    delete m_editors[static_cast<std::size_t>(column)].editor;
    m_editors[static_cast<std::size_t>(column)] = {kEditorCombo, combo};
    updateMargins();
    AdjustPositions();
}

QWidget* UtilFilterHeader::editor(int column) const
{
    return column >= 0 && column < columnCount() ? m_editors[static_cast<std::size_t>(column)].editor : nullptr;
}

QString UtilFilterHeader::filterValue(int column) const
{
    if (column < 0 || column >= columnCount())
        return {};
    const Column& c = m_editors[static_cast<std::size_t>(column)];
    if (c.kind == kEditorText)
        return static_cast<QLineEdit*>(c.editor)->text();
    if (c.kind == kEditorCombo)
        return static_cast<QComboBox*>(c.editor)->currentText();
    return {};
}

void UtilFilterHeader::setLiveFiltering(bool on)
{
    if (on == m_liveFiltering)
        return;
    m_liveFiltering = on;
    for (const Column& c : m_editors) {
        if (c.kind != kEditorText)
            continue;
        auto* edit = static_cast<QLineEdit*>(c.editor);
        if (on)
            connect(edit, &QLineEdit::textChanged, this, &UtilFilterHeader::OnEditorChanged);
        else
            disconnect(edit, &QLineEdit::textChanged, this, &UtilFilterHeader::OnEditorChanged);
    }
}

int UtilFilterHeader::editorHeight() const
{
    return m_editors.empty() ? 0 : m_editors.front().editor->sizeHint().height();
}

QSize UtilFilterHeader::sizeHint() const
{
    QSize size = QHeaderView::sizeHint();
    if (m_filterVisible && !m_editors.empty())
        size.setHeight(size.height() + editorHeight() + kPadding);
    return size;
}

// The sections keep the header's top; the editors sit in the margin below.
void UtilFilterHeader::updateMargins()
{
    const int extra = m_filterVisible && !m_editors.empty() ? editorHeight() + kPadding : 0;
    setViewportMargins(0, 0, 0, extra);
    updateGeometry();
}

void UtilFilterHeader::OnToggleFilter(bool visible)
{
    m_filterVisible = visible;
    for (const Column& c : m_editors)
        c.editor->setVisible(visible);
    updateMargins();
    AdjustPositions();
}

void UtilFilterHeader::AdjustPositions()
{
    if (m_editors.empty())
        return;
    const int base = QHeaderView::sizeHint().height();
    const int y = base + kPadding / 2;
    const int h = editorHeight();
    // Width the other visible editors leave over, for a stretched last section.
    int othersRight = 0;
    for (int i = 0; i < columnCount(); ++i) {
        if (isSectionHidden(i) || visualIndex(i) == m_lastVisible)
            continue;
        othersRight = std::max(othersRight, sectionViewportPosition(i) + 1 + sectionSize(i));
    }
    for (int i = 0; i < columnCount(); ++i) {
        QWidget* e = m_editors[static_cast<std::size_t>(i)].editor;
        if (i >= count() || isSectionHidden(i)) {
            e->hide();
            continue;
        }
        const int x = sectionPosition(i) - offset() + 1;
        int w = sectionSize(i);
        if (stretchLastSection() && visualIndex(i) == m_lastVisible)
            w = std::max(sectionSize(i) - 1, width() - othersRight);
        e->setGeometry(x, y, w, h);
        e->setVisible(m_filterVisible);
    }
}

void UtilFilterHeader::OnSectionMoved(int, int, int)
{
    findLastVisible();
    AdjustPositions();
}

void UtilFilterHeader::findLastVisible()
{
    m_lastVisible = -1;
    for (int v = count() - 1; v >= 0; --v) {
        if (!isSectionHidden(logicalIndex(v))) {
            m_lastVisible = v;
            return;
        }
    }
}

int UtilFilterHeader::visibleColumnCount() const { return count() - hiddenSectionCount(); }

QMenu* UtilFilterHeader::createMenu(QWidget* parent)
{
    if (!m_contextMenuAllowed)
        return nullptr;
    auto* menu = new QMenu(parent);  // owned by the caller
    if (m_columnMenuAllowed && model()) {
        for (int i = 0; i < count(); ++i) {
            QAction* a = menu->addAction(model()->headerData(i, orientation()).toString());
            a->setCheckable(true);
            a->setChecked(!isSectionHidden(i));
            a->setData(i);
            connect(a, &QAction::toggled, this, &UtilFilterHeader::OnToggleColumn);
        }
    }
    if (m_filterToggleAllowed) {
        if (!menu->isEmpty())
            menu->addSeparator();
        QAction* a = menu->addAction(tr("Filter"));
        a->setCheckable(true);
        a->setChecked(m_filterVisible);
        connect(a, &QAction::toggled, this, &UtilFilterHeader::OnToggleFilter);
    }
    if (menu->isEmpty()) {
        delete menu;
        return nullptr;
    }
    return menu;
}

void UtilFilterHeader::OnContextMenu(const QPoint& pos)
{
    QMenu* menu = createMenu(this);
    if (!menu)
        return;
    menu->exec(mapToGlobal(pos));
    delete menu;
}

void UtilFilterHeader::OnToggleColumn(bool visible)
{
    const auto* action = qobject_cast<QAction*>(sender());
    if (!action)
        return;
    const int column = action->data().toInt();
    if (column < 0 || column >= count())
        return;
    if (!visible) {
        // The last visible column stays: a table without columns cannot be brought back.
        if (visibleColumnCount() <= 1)
            return;
        hideSection(column);
        if (visualIndex(column) == m_lastVisible)
            findLastVisible();
    } else {
        showSection(column);
        m_lastVisible = std::max(m_lastVisible, visualIndex(column));
    }
    AdjustPositions();
}

void UtilFilterHeader::OnEditorChanged() { emit SignalFilterChanged(); }

bool UtilFilterHeader::event(QEvent* e)
{
    if (e->type() == QEvent::ParentChange)
        followScrollBar();
    return QHeaderView::event(e);
}

void UtilFilterHeader::keyPressEvent(QKeyEvent* e)
{
    // An editor passes Return on once it has reported its filter; the table
    // would take it as activating its current row (which closes a selection
    // dialog), so it ends here.
    if (e->key() == Qt::Key_Return || e->key() == Qt::Key_Enter) {
        e->accept();
        return;
    }
    QHeaderView::keyPressEvent(e);
}

void UtilFilterHeader::resizeEvent(QResizeEvent* e)
{
    QHeaderView::resizeEvent(e);
    AdjustPositions();
}

void UtilFilterHeader::showEvent(QShowEvent* e)
{
    QHeaderView::showEvent(e);
    findLastVisible();
    AdjustPositions();
}
