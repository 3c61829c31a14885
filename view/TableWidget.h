// The watch table: one row per selected symbol with its identity, its value
// at the graph cursor, its statistics since the start of sampling and its
// display settings, which the user changes here (show, colour, Y offset,
// Y resolution, draw style) or removes the symbol. A last row holds the "+"
// button that asks the main window for the symbol selection.
#pragma once

#include <QTableWidget>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class Controller;
class QMenu;
class QPushButton;
struct Node;

class TableWidget : public QTableWidget {
    Q_OBJECT

public:
    enum Column {
        kColShow,
        kColColor,
        kColName,
        kColAddress,
        kColSize,
        kColType,
        kColValue,
        kColMin,
        kColMax,
        kColAverage,
        kColYResolution,
        kColYOffset,
        kColEnd,
        kColumnCount
    };

    explicit TableWidget(Controller& controller, QWidget* parent = nullptr);
    ~TableWidget() override;

    // Where the graph's cursor stands: the chronological index of the sample
    // under it, or none. Without a provider the table shows the newest record.
    using CursorRecord = std::function<std::optional<std::uint32_t>()>;
    void setCursorRecordProvider(CursorRecord provider) { m_cursorRecord = std::move(provider); }

    // Clear the contents, then one row per selected symbol and the "+" row.
    void rebuild();
    // Update the settings and live columns from the symbols and the store.
    void refresh();
    // The symbol records are about to be replaced (ELF re-parse): forget the
    // rows and stay away from the selection until attachSymbols().
    void detachSymbols();
    void attachSymbols();

    // The symbol shown in `row`, or nullptr (the "+" row, out of range).
    Node* symbolAt(int row) const;
    int symbolRowCount() const { return static_cast<int>(m_rows.size()); }
    // The height that shows the header and every row, the "+" row included,
    // above the horizontal scroll bar.
    int heightForAllRows() const;
    QPushButton* addButton() const { return m_addButton; }
    QPushButton* colorButton(int row) const;
    // The context menu for the current selection, as the pointer opens it.
    std::unique_ptr<QMenu> createContextMenu();

    // The Y offset as the table shows it: format 'g', 6 significant digits.
    static QString yOffsetText(double offset);
    // The value text of one stored sample of `symbol`.
    static QString valueText(const Node& symbol, std::uint64_t slot);

signals:
    // The "+" button: the main window offers the symbol selection.
    void _SignalShowSymbolSelection();
    // A display setting changed here: the other views repaint.
    void _SignalUpdateViews();

public slots:
    // Rebuilds first when the selection is no longer the one shown.
    void _SlotOnUpdateTable();
    void _SlotOnColorBtnClicked();
    void _SlotOnAddBtnClicked();
    void _SlotOnItemChanged(QTableWidgetItem* item);
    void _SlotOnContextMenuRequested(const QPoint& pos);
    void _SlotOnReleasedShowHide();
    void _SlotOnReleasedYOffsetUp();
    void _SlotOnReleasedYOffsetDown();
    void _SlotOnReleasedYResUp();
    void _SlotOnReleasedYResDown();
    void _SlotOnReleasedDrawLine();
    void _SlotOnReleasedRemoveSymbol();

private:
    // The symbol of the row of the first selected item, or nullptr.
    Node* selectedSymbol() const;
    int rowOf(const Node* symbol) const;
    std::optional<std::uint32_t> cursorRecord() const;
    void fillRow(int row, Node* symbol);
    void refreshRow(int row, Node& symbol, std::optional<std::uint32_t> record, bool readStore);
    void paintColorButton(QPushButton* button, const Node& symbol);
    void setCellText(int row, int column, const QString& text);
    void widenLiveColumns();
    // Every action ends here: this table and the other views show the change.
    void updateViews();
    // An edit of a symbol's display settings: marks the project, then updateViews().
    void settingsEdited();

    Controller& m_controller;
    CursorRecord m_cursorRecord;
    std::vector<Node*> m_rows;           // not owned: the symbols shown, in row order
    QPushButton* m_addButton = nullptr;  // owned by the table (cell widget)
    bool m_filling = false;              // our own item changes are not edits
    bool m_detached = false;
    bool m_mayNeedWidth = false;  // a live cell got a longer text
};
