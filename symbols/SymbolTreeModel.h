// The rows of the symbol selection dialog: the symbol tree as the dialog
// shows it, flattened into one list of rows (each with its depth) straight
// over the tree's nodes. Which rows pass the filter and which are expanded is
// kept here, so that a firmware of a million nodes opens, filters and
// expands at once; SymbolTreeView draws the rows as a tree.
#pragma once

#include "symbols/Node.h"

#include <QAbstractItemModel>
#include <QByteArray>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

struct SymbolTree;

class SymbolTreeModel : public QAbstractItemModel {
    Q_OBJECT

public:
    enum Column : int { kColName = 0, kColType, kColSize, kColAddress, kColSelect, kColumnCount };
    // Widths to which the columns are at most sized when the dialog opens.
    static constexpr int kWidthCaps[kColumnCount] = {500, 500, 50, 120, 300};
    static constexpr int kMaxDepth = 40;

    // Makes the rows of `tree` (may be null; array elements it shows are made
    // in it); leaves found in `selected` start ticked. `madeTopLevel` is
    // called after the rows of each top-level node.
    SymbolTreeModel(SymbolTree* tree, const std::vector<Node*>& selected, std::function<void(int)> madeTopLevel,
                    QObject* parent = nullptr);
    ~SymbolTreeModel() override;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;

    // --- the tree behind the rows ---
    // The node of a row, or nullptr.
    Node* node(const QModelIndex& index) const;
    // The row of a node; invalid when it has no row, or when the filter or a
    // collapsed ancestor hides it.
    QModelIndex indexOf(const Node* node, int column = kColName) const;
    // True when the filter lets the node's row be shown (its ancestors may be
    // collapsed).
    bool passesFilter(const Node* node) const;
    bool isTicked(const Node* node) const;
    int depth(const QModelIndex& index) const;
    // True when rows below pass the filter (the row can be expanded).
    bool hasChildRows(const QModelIndex& index) const;
    bool isExpanded(const QModelIndex& index) const;
    bool isExpanded(const Node* node) const;
    // Shows or hides the rows below `index` (inserting or removing them).
    void setExpanded(const QModelIndex& index, bool expanded);
    // The row of the parent node, or invalid at the top level.
    QModelIndex parentRow(const QModelIndex& index) const;
    // Branch drawing: bit k of the result is set when the row's ancestor at
    // depth k (k = depth for the row itself) has a later sibling shown.
    std::uint64_t laterSiblings(const QModelIndex& index) const;

    // Rows made for the tree, and the top-level nodes counted for progress.
    int rowsMade() const { return static_cast<int>(m_entries.size()) - 1; }
    int topLevelCount() const { return m_topLevelCount; }
    // The ticked leaves in the order their rows were made.
    std::vector<Node*> tickedInTreeOrder() const;

    // Source-file rows (empty name, a file): shown on grey across all columns.
    static bool isFileRow(const Node& node) { return node.Name.empty() && !node.File.empty(); }
    bool isFileRow(const QModelIndex& index) const;
    // Leaves of these sample types cannot be chosen.
    static bool isUnsupported(const Node& node);

    // Expands every source-file row, reporting each top-level position done.
    void expandFileRows(const std::function<void(int)>& doneTopLevel);
    // Applies the filter text (at most 255 bytes, A-Z folded) and resets the
    // rows: a matching row is shown and expanded with everything below it
    // shown and collapsed; a row above a match is shown and expanded; any
    // other row is hidden. An empty text shows every row, collapsed, and
    // expands the top level.
    void applyFilter(const QByteArray& text);

signals:
    // A row's check box in `column` changed by the user.
    void itemChanged(const QModelIndex& index, int column);

private:
    enum State : std::uint8_t { kHidden = 0, kPartial = 1, kAll = 2 };
    struct Entry {
        Node* node = nullptr;
        std::int32_t parent = -1;
        std::int32_t kidsBegin = 0;   // into m_kids: every child row, in sort order
        std::int32_t kidsCount = 0;
        std::int32_t sortedRow = 0;   // position among all of the parent's kids
        std::int32_t shownBegin = 0;  // into m_shown: the kids that pass the filter
        std::int32_t shownCount = 0;
        std::int32_t shownRow = 0;    // position among the parent's shown kids
        std::int32_t flatRow = -1;    // row in m_rows, -1 when not a row now
        std::uint32_t generation = 0;  // filter pass that set `state`
        std::uint32_t openGeneration = 0;  // filter pass after which `open` holds
        std::uint32_t fileId = 0;      // dense ids of the interned texts
        std::uint32_t typeId = 0;
        // Copies of what the filter and the view ask for every row, kept
        // here so that a pass over many rows stays in this array.
        std::uint32_t nameBegin = 0;   // into m_names
        std::uint32_t size = 0;
        std::uint32_t address = 0;
        std::uint8_t nameSize = 0;
        std::uint8_t depth = 0;
        State state = kAll;
        bool open = false;
        bool ticked = false;
        bool leaf = false;
        bool unsupported = false;  // a leaf that cannot be chosen
    };

    State stateOf(std::int32_t e) const;
    bool openOf(std::int32_t e) const;
    void setOpen(std::int32_t e, bool open);
    std::int32_t shownKidCount(std::int32_t e) const;
    std::int32_t shownKid(std::int32_t e, std::int32_t k) const;
    std::int32_t positionAmongShown(std::int32_t e) const;
    std::int32_t entryOf(const QModelIndex& index) const;
    std::int32_t entryOf(const Node* node) const;
    void appendRows(std::int32_t e, std::vector<std::int32_t>& rows) const;
    void flatten();
    void renumber(std::size_t from);
    bool filterVisit(std::int32_t e);
    bool matches(const Entry& entry);
    std::string_view nameOf(const Entry& entry) const;
    bool textMatches(std::string_view haystack) const;
    void rebuildShownOrder();

    std::vector<Entry> m_entries;  // [0] is the invisible root
    std::vector<std::int32_t> m_kids;
    std::vector<std::int32_t> m_shown;
    std::vector<std::int32_t> m_rows;  // the flat rows: entries in display order
    std::string m_names;               // every row's name, back to back
    std::vector<std::string_view> m_fileTexts, m_typeTexts;
    std::vector<std::int8_t> m_fileMatch, m_typeMatch;  // per id, this pass: -1 unknown
    std::vector<std::int32_t> m_fileRows;               // source-file rows in tree order
    int m_topLevelCount = 0;
    std::uint32_t m_generation = 1;
    QByteArray m_needle;  // folded
    bool m_needleCanBeNumber = false;
    bool m_needleCanBeAddress = false;
};
