#include "view/TableWidget.h"
#include "view/CurveColors.h"

#include "app/Controller.h"
#include "view/GraphValue.h"
#include "view/Scale.h"

#include <QColorDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QMenu>
#include <QScrollBar>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kColorButtonSize = 16;

QString nameOf(const Node& n) { return QString::fromStdString(n.NameWithParents.empty() ? n.Name : n.NameWithParents); }

bool isIntegerType(std::int32_t typeId)
{
    switch (typeId) {
    case kTypeBool: case kTypeU8: case kTypeU16: case kTypeU32: case kTypeU64:
    case kTypeS8: case kTypeS16: case kTypeS32: case kTypeS64: case kTypeBitField:
        return true;
    default: return false;
    }
}

// Integers of integer symbols print in full; everything else with 6 digits.
QString numberText(double v, bool integral)
{
    if (integral && std::isfinite(v) && std::fabs(v) < 9.0e15 && v == std::trunc(v))
        return QString::number(static_cast<qint64>(v));
    return QString::number(v, 'g', 6);
}

QTableWidgetItem* readOnlyItem(const QString& text = {})
{
    auto* item = new QTableWidgetItem(text);  // owned by the table once set
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
    return item;
}

}  // namespace

TableWidget::TableWidget(Controller& controller, QWidget* parent) : QTableWidget(parent), m_controller(controller)
{
    setColumnCount(kColumnCount);
    setHorizontalHeaderLabels({QString(), tr("Color"), tr("Name"), tr("Address"), tr("Size"), tr("Type"), tr("Value"),
                               tr("Min"), tr("Max"), tr("Moving Average"), tr("Y Resolution"), tr("Y Offset"),
                               QString()});
    horizontalHeader()->setStretchLastSection(true);
    verticalHeader()->setVisible(false);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 8);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                    QAbstractItemView::AnyKeyPressed);
    setContextMenuPolicy(Qt::CustomContextMenu);
    connect(this, &QTableWidget::itemChanged, this, &TableWidget::_SlotOnItemChanged);
    connect(this, &QWidget::customContextMenuRequested, this, &TableWidget::_SlotOnContextMenuRequested);
    rebuild();
}

TableWidget::~TableWidget() = default;

// ---------------------------------------------------------------------------
// Rows

void TableWidget::rebuild()
{
    m_filling = true;
    // Removing the rows also releases their buttons.
    setRowCount(0);
    m_rows.clear();
    m_addButton = nullptr;
    if (!m_detached)
        m_rows = m_controller.symbols().selected();
    setRowCount(static_cast<int>(m_rows.size()) + 1);
    for (std::size_t r = 0; r < m_rows.size(); ++r)
        fillRow(static_cast<int>(r), m_rows[r]);

    const int addRow = static_cast<int>(m_rows.size());
    for (int c = 0; c < kColumnCount; ++c)
        setItem(addRow, c, readOnlyItem());
    m_addButton = new QPushButton(QStringLiteral("+"), this);  // owned by the table
    m_addButton->setStyleSheet(QStringLiteral("font-weight: bold;"));
    m_addButton->setToolTip(tr("Select symbols"));
    connect(m_addButton, &QPushButton::clicked, this, &TableWidget::_SlotOnAddBtnClicked);
    setCellWidget(addRow, kColShow, m_addButton);
    m_filling = false;

    refresh();
    resizeColumnsToContents();
}

void TableWidget::fillRow(int row, Node* symbol)
{
    auto* show = readOnlyItem();
    show->setFlags(show->flags() | Qt::ItemIsUserCheckable);
    show->setCheckState(symbol->symbol().ShowInGraph ? Qt::Checked : Qt::Unchecked);
    setItem(row, kColShow, show);

    auto* button = new QPushButton(this);  // owned by the table (cell widget)
    button->setFixedSize(kColorButtonSize, kColorButtonSize);
    button->setToolTip(tr("Change the curve colour"));
    connect(button, &QPushButton::clicked, this, &TableWidget::_SlotOnColorBtnClicked);
    // The button sits centred in its cell.
    auto* holder = new QWidget(this);  // owned by the table (cell widget)
    auto* layout = new QHBoxLayout(holder);  // owned by the holder
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(button, 0, Qt::AlignCenter);
    setCellWidget(row, kColColor, holder);
    symbol->symbol().TableRow = button;
    paintColorButton(button, *symbol);

    setItem(row, kColName, readOnlyItem(nameOf(*symbol)));
    setItem(row, kColAddress, readOnlyItem(QString::asprintf("%X", symbol->Address)));
    setItem(row, kColSize, readOnlyItem(QString::number(symbol->Size)));
    setItem(row, kColType, readOnlyItem(QString::fromUtf8(symbol->Type.data(), static_cast<qsizetype>(symbol->Type.size()))));
    for (int c : {kColValue, kColMin, kColMax, kColAverage})
        setItem(row, c, readOnlyItem(QStringLiteral("N/A")));
    setItem(row, kColYResolution, readOnlyItem());
    auto* offset = new QTableWidgetItem();  // owned by the table once set
    offset->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable);
    setItem(row, kColYOffset, offset);
    setItem(row, kColEnd, readOnlyItem());
}

int TableWidget::heightForAllRows() const
{
    return 2 * frameWidth() + horizontalHeader()->height() + verticalHeader()->length() +
           horizontalScrollBar()->sizeHint().height();
}

Node* TableWidget::symbolAt(int row) const
{
    return row >= 0 && row < static_cast<int>(m_rows.size()) ? m_rows[static_cast<std::size_t>(row)] : nullptr;
}

int TableWidget::rowOf(const Node* symbol) const
{
    const auto it = std::find(m_rows.begin(), m_rows.end(), symbol);
    return it == m_rows.end() ? -1 : static_cast<int>(it - m_rows.begin());
}

QPushButton* TableWidget::colorButton(int row) const
{
    const Node* n = symbolAt(row);
    return n ? static_cast<QPushButton*>(n->symbol().TableRow) : nullptr;
}

void TableWidget::detachSymbols()
{
    m_detached = true;
    rebuild();
}

void TableWidget::attachSymbols()
{
    m_detached = false;
    rebuild();
}

// ---------------------------------------------------------------------------
// Refresh

std::optional<std::uint32_t> TableWidget::cursorRecord() const
{
    if (m_cursorRecord)
        return m_cursorRecord();
    const SampleStore& store = m_controller.store();
    if (store.isEmpty())
        return std::nullopt;
    return store.hasWrapped() ? SampleStore::kCapacity - 1 : store.lastIndex();
}

void TableWidget::_SlotOnUpdateTable()
{
    if (m_detached)
        return;
    if (m_rows != m_controller.symbols().selected())
        rebuild();
    else
        refresh();
}

void TableWidget::refresh()
{
    m_filling = true;
    const std::optional<std::uint32_t> record = cursorRecord();
    const SampleStore& store = m_controller.store();
    // While a raw import rewrites the store the live columns keep their last texts.
    const bool read = store.tryRead([&] {
        for (std::size_t r = 0; r < m_rows.size(); ++r)
            refreshRow(static_cast<int>(r), *m_rows[r], record, true);
    });
    if (!read) {
        for (std::size_t r = 0; r < m_rows.size(); ++r)
            refreshRow(static_cast<int>(r), *m_rows[r], record, false);
    }
    if (m_addButton && !m_controller.project().settings().IsQTXSession)
        m_addButton->setEnabled(!m_controller.samplingRunning());
    m_filling = false;
    widenLiveColumns();
}

void TableWidget::refreshRow(int row, Node& n, std::optional<std::uint32_t> record, bool readStore)
{
    if (QTableWidgetItem* show = item(row, kColShow)) {
        const Qt::CheckState state = n.symbol().ShowInGraph ? Qt::Checked : Qt::Unchecked;
        if (show->checkState() != state)
            show->setCheckState(state);
    }
    if (auto* button = static_cast<QPushButton*>(n.symbol().TableRow))
        paintColorButton(button, n);
    setCellText(row, kColYResolution, scale::resolutionText(n.symbol().YResolution));
    if (std::fabs(n.symbol().YOffset) < 0.01)
        n.symbol().YOffset = 0.0;
    setCellText(row, kColYOffset, yOffsetText(n.symbol().YOffset));
    if (!readStore)
        return;

    if (!isActiveInSampling(n)) {
        for (int c : {kColValue, kColMin, kColMax, kColAverage})
            setCellText(row, c, QStringLiteral("N/A"));
        return;
    }
    const std::uint64_t* slot = record ? m_controller.store().valueSlotAt(n, *record) : nullptr;
    setCellText(row, kColValue, slot ? valueText(n, *slot) : QStringLiteral("N/A"));
    // Before the first counted sample the extremes still hold their start values.
    const bool integral = isIntegerType(n.TypeID);
    const bool seen = n.symbol().YMinSampled <= n.symbol().YMaxSampled;
    setCellText(row, kColMin, seen ? numberText(n.symbol().YMinSampled, integral) : QStringLiteral("N/A"));
    setCellText(row, kColMax, seen ? numberText(n.symbol().YMaxSampled, integral) : QStringLiteral("N/A"));
    setCellText(row, kColAverage, numberText(n.symbol().YAvgSampled, false));
}

void TableWidget::setCellText(int row, int column, const QString& text)
{
    QTableWidgetItem* cell = item(row, column);
    // The cell being edited keeps the user's text.
    if (cell && cell->text() != text && !(state() == EditingState && currentItem() == cell)) {
        // Measuring a column costs; only a longer text can need more room.
        if (text.size() > cell->text().size())
            m_mayNeedWidth = true;
        cell->setText(text);
    }
}

void TableWidget::widenLiveColumns()
{
    if (!m_mayNeedWidth)
        return;
    m_mayNeedWidth = false;
    for (int c : {kColValue, kColMin, kColMax, kColAverage, kColYResolution, kColYOffset}) {
        const int wanted = std::max(sizeHintForColumn(c), horizontalHeader()->sectionSizeHint(c));
        if (wanted > columnWidth(c))
            setColumnWidth(c, wanted);
    }
}

void TableWidget::paintColorButton(QPushButton* button, const Node& symbol)
{
    const QColor color = symbol.symbol().HasGraphColor
                             ? curvecolors::toQColor(symbol.symbol().GraphColor)
                             : QColor(Qt::transparent);
    if (button->palette().color(QPalette::Button) == color && !button->styleSheet().isEmpty())
        return;
    QPalette palette = button->palette();
    palette.setColor(QPalette::Button, color);
    button->setPalette(palette);
    button->setStyleSheet(QStringLiteral("QPushButton { background-color: %1; border: 1px solid #808080; }")
                              .arg(symbol.symbol().HasGraphColor ? color.name() : QStringLiteral("transparent")));
}

QString TableWidget::yOffsetText(double offset) { return QString::number(offset, 'g', 6); }

QString TableWidget::valueText(const Node& symbol, std::uint64_t slot)
{
    switch (symbol.TypeID) {
    case kTypeFloat:
    case kTypeDouble: return QString::number(sampleToDouble(symbol.TypeID, slot), 'g', 6);
    case kTypeBool: return (slot & 0xFF) ? QStringLiteral("true") : QStringLiteral("false");
    default: return numberText(graphValue(symbol, slot), true);
    }
}

// ---------------------------------------------------------------------------
// Editing

void TableWidget::_SlotOnItemChanged(QTableWidgetItem* changed)
{
    if (m_filling || !changed)
        return;
    Node* n = symbolAt(changed->row());
    if (!n)
        return;
    if (changed->column() == kColShow) {
        n->symbol().ShowInGraph = changed->checkState() == Qt::Checked;
        settingsEdited();
    } else if (changed->column() == kColYOffset) {
        static const QRegularExpression pattern(QRegularExpression::anchoredPattern(QStringLiteral("[+-]?\\d*")));
        const QString text = changed->text();
        if (pattern.match(text).hasMatch()) {
            bool ok = false;
            double value = text.toDouble(&ok);
            if (!ok)
                value = 0.0;  // "", "+" and "-" stand for 0
            if (std::fabs(value - n->symbol().YOffset) >= 0.01) {
                n->symbol().YOffset = value;
                settingsEdited();
                return;
            }
        }
        m_filling = true;
        changed->setText(yOffsetText(n->symbol().YOffset));
        m_filling = false;
    }
}

void TableWidget::_SlotOnColorBtnClicked()
{
    const QPointer<QPushButton> button = qobject_cast<QPushButton*>(sender());
    const auto it = std::find_if(m_rows.begin(), m_rows.end(), [&](const Node* n) { return n->symbol().TableRow == button; });
    if (!button || it == m_rows.end())
        return;
    Node* n = *it;
    QColorDialog dialog(button->palette().color(QPalette::Button), this);
    const bool accepted = dialog.exec() == QDialog::Accepted;
    // The dialog's own event loop may have rebuilt the table meanwhile.
    if (!accepted || !button || rowOf(n) < 0)
        return;
    const QColor chosen = dialog.selectedColor();
    n->symbol().GraphColor = Rgb{chosen.red(), chosen.green(), chosen.blue(), 255};
    n->symbol().HasGraphColor = true;
    paintColorButton(button, *n);
    settingsEdited();
}

void TableWidget::_SlotOnAddBtnClicked() { emit _SignalShowSymbolSelection(); }

// ---------------------------------------------------------------------------
// Context menu

Node* TableWidget::selectedSymbol() const
{
    const QList<QTableWidgetItem*> items = selectedItems();
    return items.isEmpty() ? nullptr : symbolAt(items.first()->row());
}

std::unique_ptr<QMenu> TableWidget::createContextMenu()
{
    auto menu = std::make_unique<QMenu>(this);
    const Node* n = selectedSymbol();
    QAction* show = menu->addAction(tr("Show"), this, &TableWidget::_SlotOnReleasedShowHide);
    show->setCheckable(true);
    show->setChecked(n && n->symbol().ShowInGraph);
    menu->addAction(tr("Y-Offset up"), this, &TableWidget::_SlotOnReleasedYOffsetUp);
    menu->addAction(tr("Y-Offset down"), this, &TableWidget::_SlotOnReleasedYOffsetDown);
    menu->addAction(tr("Y-Resolution up"), this, &TableWidget::_SlotOnReleasedYResUp);
    menu->addAction(tr("Y-Resolution down"), this, &TableWidget::_SlotOnReleasedYResDown);
    QAction* line = menu->addAction(tr("Draw Line"), this, &TableWidget::_SlotOnReleasedDrawLine);
    line->setCheckable(true);
    line->setChecked(n && (n->symbol().DrawStyle == 0 || n->symbol().DrawStyle == 2));
    // A QTX session takes its variables from the channel: nothing to remove.
    if (!m_controller.project().settings().IsQTXSession) {
        QAction* remove = menu->addAction(tr("Remove Symbol"), this, &TableWidget::_SlotOnReleasedRemoveSymbol);
        remove->setEnabled(!m_controller.samplingRunning());
    }
    return menu;
}

void TableWidget::_SlotOnContextMenuRequested(const QPoint& pos)
{
    const std::unique_ptr<QMenu> menu = createContextMenu();
    menu->exec(viewport()->mapToGlobal(pos));
}

void TableWidget::_SlotOnReleasedShowHide()
{
    if (Node* n = selectedSymbol()) {
        n->symbol().ShowInGraph = !n->symbol().ShowInGraph;
        settingsEdited();
    }
}

void TableWidget::_SlotOnReleasedYOffsetUp()
{
    if (Node* n = selectedSymbol()) {
        n->symbol().YOffset += 0.5;
        settingsEdited();
    }
}

void TableWidget::_SlotOnReleasedYOffsetDown()
{
    if (Node* n = selectedSymbol()) {
        n->symbol().YOffset -= 0.5;
        settingsEdited();
    }
}

void TableWidget::_SlotOnReleasedYResUp()
{
    if (Node* n = selectedSymbol()) {
        n->symbol().YResolution = scale::stepUp(n->symbol().YResolution, std::uint64_t{n->symbol().YResolution} + 1);
        n->symbol().ManualYResolution = true;
        settingsEdited();
    }
}

void TableWidget::_SlotOnReleasedYResDown()
{
    if (Node* n = selectedSymbol()) {
        if (n->symbol().YResolution > 0)
            n->symbol().YResolution = scale::stepDown(n->symbol().YResolution, n->symbol().YResolution - 1);
        n->symbol().ManualYResolution = true;
        settingsEdited();
    }
}

void TableWidget::_SlotOnReleasedDrawLine()
{
    if (Node* n = selectedSymbol()) {
        // The menu entry toggles from its shown state: checked means lines.
        const bool lineNow = n->symbol().DrawStyle == 0 || n->symbol().DrawStyle == 2;
        n->symbol().DrawStyle = lineNow ? 1 : 0;
        settingsEdited();
    }
}

void TableWidget::_SlotOnReleasedRemoveSymbol()
{
    Node* n = selectedSymbol();
    if (!n || m_controller.samplingRunning())
        return;
    // Offered only while sampling is off, when the worker leaves the selection alone.
    SymbolDatabase& symbols = m_controller.symbols();
    std::vector<Node*> rest = symbols.selected();
    rest.erase(std::remove(rest.begin(), rest.end(), n), rest.end());
    symbols.setSelected(std::move(rest));
    // A trigger on a removed symbol would never fire again.
    ProjectSettings s = m_controller.project().settings();
    if (s.TriggerSymbol == n) {
        s.TriggerSymbol = nullptr;
        m_controller.project().apply(s);
    }
    m_controller.markModified();
    n->symbol().TableRow = nullptr;
    rebuild();
    emit _SignalUpdateViews();
}

void TableWidget::settingsEdited()
{
    // A symbol's display settings are saved with the project.
    m_controller.markModified();
    updateViews();
}

void TableWidget::updateViews()
{
    refresh();
    emit _SignalUpdateViews();
}
