// The rows of the symbol selection dialog: the symbol tree as the dialog
// shows it, flattened into one list of rows (each with its depth) straight
// over the tree's nodes. Which rows pass the filter and which are expanded is
// kept here, so that a firmware of a million nodes opens, filters and
// expands at once; SymbolTreeView draws the rows as a tree.
//
// The elements of a long array (more than kVirtualElements) get no entry of
// their own: runs of their rows are worked out from the array's first element
// by index, in the order the sort asks for (their names compare as text, so
// buf[10] comes before buf[2]), and the filter decides on them by arithmetic
// where it can. An element gets an entry (and a node in the tree) when it is
// ticked, opened, or shown because something below it matches.
#pragma once

#include "symbols/Node.h"

#include <QAbstractItemModel>
#include <QByteArray>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>
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
    // Arrays with more elements than this show them as runs of rows.
    static constexpr std::uint32_t kVirtualElements = 4096;
    // At most this many elements of one long array open for what matches
    // below them (a member's type, say, that every element has): the first
    // ones in index order.
    static constexpr std::size_t kMaxOpenedElements = 4096;

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
    // The node of a row (an element's is made), or nullptr.
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

    // Entries made for the tree, and the top-level nodes counted for progress.
    int rowsMade() const { return static_cast<int>(m_entries.size()) - 1; }
    int topLevelCount() const { return m_topLevelCount; }
    // The ticked leaves in the order their rows were made.
    std::vector<Node*> tickedInTreeOrder() const;

    // Source-file rows (empty name, a file): shown on grey across all columns.
    static bool isFileRow(const Node& node) { return node.Name.empty() && !node.File.empty(); }
    bool isFileRow(const QModelIndex& index) const;

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
        std::int32_t level = -1;      // into m_levels: an array whose elements are runs of rows
        std::int32_t kidsBegin = 0;   // into m_kids: every child row, in sort order
        std::int32_t kidsCount = 0;
        std::int32_t sortedRow = 0;   // position among all of the parent's kids
        std::int32_t shownBegin = 0;  // into m_shown: the kids that pass the filter
        std::int32_t shownCount = 0;
        std::int32_t shownRow = 0;    // position among the parent's shown kids
        std::int32_t segment = -1;    // its own segment in m_rows, -1 none
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
    // Half-open ranges of element indexes or positions, sorted, apart.
    using Ranges = std::vector<std::pair<std::uint32_t, std::uint32_t>>;
    struct Level {
        std::int32_t entry = 0;
        const Node* node = nullptr;
        std::uint32_t count = 0;
        bool byName = false;  // sorted by name (as text), else by index
        bool descending = false;
        bool kidRows = false;  // its elements have rows below them
        std::map<std::uint32_t, std::int32_t> made;  // element index -> entry
        // The last filter pass (when its entry is kPartial): the elements
        // that match, those shown (for a match below them too), the
        // positions of those shown, and their count.
        Ranges matching;
        Ranges shownIndexes;
        Ranges shown;
        std::vector<std::uint64_t> shownBefore;  // elements shown before each range of `shown`
    };
    // A run of rows: an entry's own row (count 0), or `count` elements of the
    // level of `entry` from position `first`.
    struct Segment {
        std::int32_t entry = 0;
        std::uint32_t first = 0;
        std::uint32_t count = 0;
        std::uint32_t rows() const { return count ? count : 1; }
    };
    // A row as the index names it: an entry, or an element without one.
    struct Ref {
        std::int32_t entry = 0;  // 0: an element without an entry
        std::int32_t level = -1;  // the element's level entry
        std::uint32_t index = 0;
    };

    State stateOf(std::int32_t e) const;
    bool openOf(std::int32_t e) const;
    void setOpen(std::int32_t e, bool open);
    std::int32_t shownKidCount(std::int32_t e) const;
    std::int32_t shownKid(std::int32_t e, std::int32_t k) const;
    std::int64_t positionAmongShown(std::int32_t e) const;
    std::int64_t shownCount(std::int32_t e) const;
    Ref refOf(const QModelIndex& index) const;
    std::int32_t entryOf(const QModelIndex& index) const;
    std::int32_t entryOf(const Node* node) const;
    int depthOf(const Ref& ref) const;
    void appendRows(std::int32_t e, std::vector<Segment>& rows) const;
    void appendElementRows(const Level& level, std::vector<Segment>& rows) const;
    void flatten();
    void renumber(std::size_t from);
    std::size_t segmentOfRow(int row) const;
    int rowOf(const Level& level, std::uint32_t index) const;
    bool filterVisit(std::int32_t e);
    bool filterLevel(std::size_t levelIndex);
    bool matches(const Entry& entry);
    bool nodeMatches(const Node& node, std::uint32_t address);
    bool belowMatches(const Node& node, std::uint32_t delta);
    Ranges nameMatches(const std::string& levelName, std::uint32_t count) const;
    std::string_view nameOf(const Entry& entry) const;
    bool textMatches(std::string_view haystack) const;
    void rebuildShownOrder();
    void sortKids(std::int32_t e);

    // Entries for `node` and the nodes below it; returns the node's.
    std::int32_t addEntries(Node* node, std::int32_t parentEntry, const std::unordered_set<const Node*>& chosen);
    // The entry of element `index` of `level`, made with its node if need be.
    std::int32_t elementEntry(Level& level, std::uint32_t index);
    // Order of a level's elements: the element at a position, and back.
    std::uint32_t indexAt(const Level& level, std::uint32_t position) const;
    std::uint32_t positionOf(const Level& level, std::uint32_t index) const;
    bool shownInLevel(const Level& level, std::uint32_t index) const;
    Ranges positionsOf(const Level& level, const Ranges& indexes) const;

    SymbolTree* m_tree = nullptr;  // not owned
    std::vector<Entry> m_entries;  // [0] is the invisible root
    std::unordered_map<const Node*, std::int32_t> m_entryOf;
    std::vector<Level> m_levels;
    std::vector<std::int32_t> m_kids;
    std::vector<std::int32_t> m_shown;
    std::vector<Segment> m_rows;       // the flat rows in display order
    std::vector<std::int64_t> m_rowStart;  // first row of each segment, and the row count at the end
    std::string m_names;               // every row's name, back to back
    std::vector<std::string_view> m_fileTexts, m_typeTexts;
    std::unordered_map<const char*, std::uint32_t> m_fileIds, m_typeIds;
    std::vector<std::int8_t> m_fileMatch, m_typeMatch;  // per id, this pass: -1 unknown
    std::vector<std::int32_t> m_fileRows;               // source-file rows in tree order
    int m_topLevelCount = 0;
    int m_sortColumn = -1;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
    std::uint32_t m_generation = 1;
    QByteArray m_needle;  // folded
    bool m_needleCanBeNumber = false;
    bool m_needleCanBeAddress = false;
};
