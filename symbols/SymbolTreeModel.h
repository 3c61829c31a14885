// The rows of the symbol selection dialog: an item model straight over the
// symbol tree, so that a firmware of a million nodes opens and filters at
// once. Rows are made for every node that has a name or a file; the filter
// keeps its result in the model (rows that do not pass are not rows at all),
// the view only holds which rows are expanded.
#pragma once

#include "symbols/Node.h"

#include <QAbstractItemModel>
#include <QByteArray>

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

struct SymbolTree;

class SymbolTreeModel : public QAbstractItemModel {
    Q_OBJECT

public:
    enum Column : int { kColName = 0, kColType, kColSize, kColAddress, kColSelect, kColumnCount };
    // Widths to which the columns are at most sized when the dialog opens.
    static constexpr int kWidthCaps[kColumnCount] = {500, 500, 50, 120, 300};

    // Makes the rows of `tree` (may be null); leaves found in `selected` start
    // ticked. `madeTopLevel` is called after the rows of each top-level node.
    SymbolTreeModel(const SymbolTree* tree, const std::vector<Node*>& selected, std::function<void(int)> madeTopLevel,
                    QObject* parent = nullptr);
    ~SymbolTreeModel() override;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    bool hasChildren(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;

    // The node of a row, or nullptr.
    Node* node(const QModelIndex& index) const;
    // The row of a node in column `column`; invalid when the node has no row
    // or the filter hides it.
    QModelIndex indexOf(const Node* node, int column = kColName) const;
    bool isTicked(const Node* node) const;
    // Rows made for the tree, and the top-level nodes counted for progress.
    int rowsMade() const { return static_cast<int>(m_entries.size()) - 1; }
    int topLevelCount() const { return m_topLevelCount; }
    // The ticked leaves in the order their rows were made.
    std::vector<Node*> tickedInTreeOrder() const;

    // Source-file rows (empty name, a file): shown on grey across all columns.
    static bool isFileRow(const Node& node) { return node.Name.empty() && !node.File.empty(); }
    // Leaves of these sample types cannot be chosen.
    static bool isUnsupported(const Node& node);

    // Applies the filter text (at most 255 bytes, A-Z folded) and resets the
    // model; `expand` receives the rows to expand, every other row is
    // collapsed. An empty text shows every row and expands the top level.
    void applyFilter(const QByteArray& text, std::vector<QModelIndex>& expand);
    // Every visible source-file row (spanned over all columns by the view),
    // in tree order, with the position of its top-level ancestor.
    std::vector<std::pair<int, QModelIndex>> visibleFileRows() const;

signals:
    // A row's check box in `column` changed by the user.
    void itemChanged(const QModelIndex& index, int column);

private:
    enum State : std::uint8_t { kHidden = 0, kPartial = 1, kAll = 2 };
    struct Entry {
        Node* node = nullptr;
        std::int32_t parent = -1;
        std::int32_t kidsBegin = 0;  // into m_kids: every child row, in sort order
        std::int32_t kidsCount = 0;
        std::int32_t sortedRow = 0;  // position among all of the parent's kids
        std::int32_t shownBegin = 0;  // into m_shown: the kids that pass the filter
        std::int32_t shownCount = 0;
        std::int32_t shownRow = 0;   // position among the parent's shown kids
        std::uint32_t generation = 0;  // filter pass that set `state`
        std::uint32_t fileId = 0;      // dense ids of the interned texts
        std::uint32_t typeId = 0;
        std::uint32_t topLevel = 0;    // position of the top-level ancestor
        State state = kAll;
        bool ticked = false;
    };

    State stateOf(std::int32_t e) const;
    std::int32_t rowOf(std::int32_t e) const;
    std::int32_t kidAt(std::int32_t parent, int row) const;
    std::int32_t entryOf(const QModelIndex& index) const;
    bool filterVisit(std::int32_t e);
    bool matches(const Entry& entry);
    bool textMatches(std::string_view haystack) const;
    void rebuildShownOrder();
    bool visible(std::int32_t e) const;

    std::vector<Entry> m_entries;  // [0] is the invisible root
    std::vector<std::int32_t> m_kids;
    std::vector<std::int32_t> m_shown;
    std::vector<std::string_view> m_fileTexts, m_typeTexts;
    std::vector<std::int8_t> m_fileMatch, m_typeMatch;  // per id, this pass: -1 unknown
    int m_topLevelCount = 0;
    std::uint32_t m_generation = 1;
    QByteArray m_needle;  // folded
    bool m_needleCanBeNumber = false;
    bool m_needleCanBeAddress = false;
    std::vector<std::int32_t> m_expand;     // filled by a filter pass
    std::vector<std::int32_t> m_fileRows;   // source-file rows in tree order
};
