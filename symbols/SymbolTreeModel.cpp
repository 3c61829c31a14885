#include "symbols/SymbolTreeModel.h"

#include "app/Text.h"
#include "symbols/SymbolDatabase.h"

#include <QBrush>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace {

// Dense ids for the interned type and file texts, so that the filter tests
// each distinct text once per pass. Id 0 is the empty text.
class TextIds {
public:
    explicit TextIds(std::vector<std::string_view>& texts) : m_texts(texts) { m_texts.assign(1, {}); }
    std::uint32_t id(std::string_view s)
    {
        if (s.empty())
            return 0;
        const auto [it, added] = m_ids.try_emplace(s.data(), static_cast<std::uint32_t>(m_texts.size()));
        if (added || m_texts[it->second].size() != s.size()) {
            if (!added)  // the same address with another length: not one interned text
                return add(s);
            m_texts.push_back(s);
        }
        return it->second;
    }

private:
    std::uint32_t add(std::string_view s)
    {
        m_texts.push_back(s);
        return static_cast<std::uint32_t>(m_texts.size() - 1);
    }
    std::vector<std::string_view>& m_texts;
    std::unordered_map<const char*, std::uint32_t> m_ids;
};

// "%i" and "0x%X" without the cost of printf: the filter prints every
// examined node's size and address.
std::string_view printSigned(std::int32_t v, char (&buf)[16])
{
    char* end = buf + sizeof buf;
    char* p = end;
    std::uint32_t u = v < 0 ? 0u - static_cast<std::uint32_t>(v) : static_cast<std::uint32_t>(v);
    do {
        *--p = static_cast<char>('0' + u % 10);
        u /= 10;
    } while (u);
    if (v < 0)
        *--p = '-';
    return {p, static_cast<std::size_t>(end - p)};
}

std::string_view printHex(std::uint32_t v, char (&buf)[16])
{
    char* end = buf + sizeof buf;
    char* p = end;
    do {
        *--p = "0123456789ABCDEF"[v & 0xF];
        v >>= 4;
    } while (v);
    *--p = 'x';
    *--p = '0';
    return {p, static_cast<std::size_t>(end - p)};
}

}  // namespace

bool SymbolTreeModel::isUnsupported(const Node& node)
{
    return node.TypeID == 3 || node.TypeID == 4 || node.TypeID == kTypeU64 || node.TypeID == kTypeS64;
}

SymbolTreeModel::SymbolTreeModel(SymbolTree* tree, const std::vector<Node*>& selected,
                                 std::function<void(int)> madeTopLevel, QObject* parent)
    : QAbstractItemModel(parent)
{
    const std::unordered_set<const Node*> chosen(selected.begin(), selected.end());
    TextIds files(m_fileTexts), types(m_typeTexts);
    m_entries.reserve(tree ? tree->arena.size() + 1 : 1);
    m_entries.emplace_back();  // the invisible root
    m_entries[0].generation = m_generation;

    // Rows in pre-order; a node with neither name nor file has no row, and
    // neither has anything below it.
    const auto make = [&](auto&& self, Node* n, std::int32_t parentEntry) -> void {
        if (n->Name.empty() && n->File.empty())
            return;
        const auto e = static_cast<std::int32_t>(m_entries.size());
        Entry& entry = m_entries.emplace_back();
        entry.node = n;
        entry.parent = parentEntry;
        entry.fileId = files.id(n->File);
        entry.typeId = types.id(n->Type);
        entry.depth = parentEntry == 0 ? 0 : static_cast<std::uint8_t>(std::min(m_entries[static_cast<std::size_t>(parentEntry)].depth + 1, kMaxDepth));
        entry.ticked = n->IsLeaf && chosen.count(n) != 0;
        entry.leaf = n->IsLeaf;
        entry.unsupported = n->IsLeaf && isUnsupported(*n);
        entry.size = n->Size;
        entry.address = n->Address;
        const std::string_view name(n->Name);
        entry.nameBegin = static_cast<std::uint32_t>(m_names.size());
        entry.nameSize = static_cast<std::uint8_t>(std::min<std::size_t>(name.size(), 255));
        m_names.append(name.substr(0, entry.nameSize));
        if (isFileRow(*n))
            m_fileRows.push_back(e);
        for (Node* c = n->Children; c; c = c->Next)
            self(self, c, e);
        for (std::uint32_t i = 0; i < n->ElementCount; ++i)
            self(self, tree->arena.element(*n, i), e);
    };
    if (tree) {
        m_topLevelCount = static_cast<int>(tree->files.size());
        int made = 0;
        for (Node* f : tree->files) {
            make(make, f, 0);
            if (madeTopLevel)
                madeTopLevel(++made);
        }
    }

    // Each parent's kids side by side in m_kids, in list order to begin with.
    for (std::size_t e = 1; e < m_entries.size(); ++e)
        ++m_entries[static_cast<std::size_t>(m_entries[e].parent)].kidsCount;
    std::int32_t offset = 0;
    for (Entry& entry : m_entries) {
        entry.kidsBegin = offset;
        offset += entry.kidsCount;
    }
    m_kids.resize(static_cast<std::size_t>(offset));
    std::vector<std::int32_t> fill(m_entries.size());
    for (std::size_t e = 0; e < m_entries.size(); ++e)
        fill[e] = m_entries[e].kidsBegin;
    for (std::size_t e = 1; e < m_entries.size(); ++e) {
        Entry& entry = m_entries[e];
        const auto p = static_cast<std::size_t>(entry.parent);
        entry.sortedRow = fill[p] - m_entries[p].kidsBegin;
        m_kids[static_cast<std::size_t>(fill[p]++)] = static_cast<std::int32_t>(e);
    }
    for (std::size_t e = 1; e < m_entries.size(); ++e)
        m_entries[e].node->SelectionItem = &m_entries[e];
    flatten();
}

SymbolTreeModel::~SymbolTreeModel()
{
    for (std::size_t e = 1; e < m_entries.size(); ++e)
        if (m_entries[e].node->SelectionItem == &m_entries[e])
            m_entries[e].node->SelectionItem = nullptr;
}

// ---------------------------------------------------------------------------
// Structure: the filter's state per entry, the expanded rows, the flat list

SymbolTreeModel::State SymbolTreeModel::stateOf(std::int32_t e) const
{
    // Entries the last pass did not reach lie below a matching row: all shown.
    const Entry& entry = m_entries[static_cast<std::size_t>(e)];
    return entry.generation == m_generation ? entry.state : kAll;
}

bool SymbolTreeModel::openOf(std::int32_t e) const
{
    // Every filter pass starts with all rows collapsed.
    const Entry& entry = m_entries[static_cast<std::size_t>(e)];
    return entry.openGeneration == m_generation && entry.open;
}

void SymbolTreeModel::setOpen(std::int32_t e, bool open)
{
    Entry& entry = m_entries[static_cast<std::size_t>(e)];
    entry.open = open;
    entry.openGeneration = m_generation;
}

std::int32_t SymbolTreeModel::shownKidCount(std::int32_t e) const
{
    const Entry& entry = m_entries[static_cast<std::size_t>(e)];
    switch (stateOf(e)) {
    case kAll: return entry.kidsCount;
    case kPartial: return entry.shownCount;
    default: return 0;
    }
}

std::int32_t SymbolTreeModel::shownKid(std::int32_t e, std::int32_t k) const
{
    const Entry& entry = m_entries[static_cast<std::size_t>(e)];
    return stateOf(e) == kAll ? m_kids[static_cast<std::size_t>(entry.kidsBegin + k)]
                              : m_shown[static_cast<std::size_t>(entry.shownBegin + k)];
}

std::int32_t SymbolTreeModel::positionAmongShown(std::int32_t e) const
{
    const Entry& entry = m_entries[static_cast<std::size_t>(e)];
    return stateOf(entry.parent) == kAll ? entry.sortedRow : entry.shownRow;
}

void SymbolTreeModel::appendRows(std::int32_t e, std::vector<std::int32_t>& rows) const
{
    const std::int32_t n = shownKidCount(e);
    for (std::int32_t k = 0; k < n; ++k) {
        const std::int32_t kid = shownKid(e, k);
        rows.push_back(kid);
        if (openOf(kid))
            appendRows(kid, rows);
    }
}

void SymbolTreeModel::renumber(std::size_t from)
{
    for (std::size_t r = from; r < m_rows.size(); ++r)
        m_entries[static_cast<std::size_t>(m_rows[r])].flatRow = static_cast<std::int32_t>(r);
}

void SymbolTreeModel::flatten()
{
    for (const std::int32_t e : m_rows)
        m_entries[static_cast<std::size_t>(e)].flatRow = -1;
    m_rows.clear();
    appendRows(0, m_rows);
    renumber(0);
}

std::int32_t SymbolTreeModel::entryOf(const QModelIndex& index) const
{
    if (!index.isValid() || index.model() != this)
        return 0;
    const auto e = static_cast<std::int32_t>(index.internalId());
    return e > 0 && static_cast<std::size_t>(e) < m_entries.size() ? e : 0;
}

std::int32_t SymbolTreeModel::entryOf(const Node* node) const
{
    if (!node || !node->SelectionItem || m_entries.size() < 2)
        return 0;
    const auto* entry = static_cast<const Entry*>(node->SelectionItem);
    const Entry* first = &m_entries[1];
    const Entry* last = &m_entries.back();
    if (std::less<const Entry*>()(entry, first) || std::less<const Entry*>()(last, entry))
        return 0;
    return static_cast<std::int32_t>(entry - m_entries.data());
}

QModelIndex SymbolTreeModel::index(int row, int column, const QModelIndex& parent) const
{
    if (parent.isValid() || column < 0 || column >= kColumnCount || row < 0 || static_cast<std::size_t>(row) >= m_rows.size())
        return {};
    return createIndex(row, column, static_cast<quintptr>(m_rows[static_cast<std::size_t>(row)]));
}

QModelIndex SymbolTreeModel::parent(const QModelIndex&) const { return {}; }

int SymbolTreeModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

int SymbolTreeModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : kColumnCount; }

Node* SymbolTreeModel::node(const QModelIndex& index) const
{
    const std::int32_t e = entryOf(index);
    return e > 0 ? m_entries[static_cast<std::size_t>(e)].node : nullptr;
}

QModelIndex SymbolTreeModel::indexOf(const Node* node, int column) const
{
    const std::int32_t e = entryOf(node);
    if (e <= 0)
        return {};
    const std::int32_t row = m_entries[static_cast<std::size_t>(e)].flatRow;
    return row >= 0 ? createIndex(row, column, static_cast<quintptr>(e)) : QModelIndex();
}

bool SymbolTreeModel::passesFilter(const Node* node) const
{
    std::int32_t e = entryOf(node);
    if (e <= 0)
        return false;
    while (e > 0) {
        const std::int32_t p = m_entries[static_cast<std::size_t>(e)].parent;
        const State s = stateOf(p);
        if (s == kHidden || (s == kPartial && stateOf(e) == kHidden))
            return false;
        e = p;
    }
    return true;
}

bool SymbolTreeModel::isTicked(const Node* node) const
{
    const std::int32_t e = entryOf(node);
    return e > 0 && m_entries[static_cast<std::size_t>(e)].ticked;
}

int SymbolTreeModel::depth(const QModelIndex& index) const
{
    const std::int32_t e = entryOf(index);
    return e > 0 ? m_entries[static_cast<std::size_t>(e)].depth : 0;
}

bool SymbolTreeModel::hasChildRows(const QModelIndex& index) const
{
    const std::int32_t e = entryOf(index);
    return e > 0 && shownKidCount(e) > 0;
}

bool SymbolTreeModel::isExpanded(const QModelIndex& index) const
{
    const std::int32_t e = entryOf(index);
    return e > 0 && openOf(e);
}

bool SymbolTreeModel::isExpanded(const Node* node) const
{
    const std::int32_t e = entryOf(node);
    return e > 0 && openOf(e);
}

void SymbolTreeModel::setExpanded(const QModelIndex& index, bool expanded)
{
    const std::int32_t e = entryOf(index);
    if (e <= 0 || openOf(e) == expanded)
        return;
    const Entry& entry = m_entries[static_cast<std::size_t>(e)];
    const std::int32_t row = entry.flatRow;
    if (row < 0) {  // not a row now: remembered for when it becomes one
        setOpen(e, expanded);
        return;
    }
    const auto first = static_cast<std::size_t>(row) + 1;
    if (expanded) {
        setOpen(e, true);
        std::vector<std::int32_t> rows;
        appendRows(e, rows);
        if (rows.empty())
            return;
        beginInsertRows({}, static_cast<int>(first), static_cast<int>(first + rows.size() - 1));
        m_rows.insert(m_rows.begin() + static_cast<std::ptrdiff_t>(first), rows.begin(), rows.end());
        renumber(first);
        endInsertRows();
    } else {
        std::size_t last = first;
        while (last < m_rows.size() && m_entries[static_cast<std::size_t>(m_rows[last])].depth > entry.depth)
            ++last;
        if (last == first) {
            setOpen(e, false);
            return;
        }
        beginRemoveRows({}, static_cast<int>(first), static_cast<int>(last - 1));
        for (std::size_t r = first; r < last; ++r)
            m_entries[static_cast<std::size_t>(m_rows[r])].flatRow = -1;
        m_rows.erase(m_rows.begin() + static_cast<std::ptrdiff_t>(first), m_rows.begin() + static_cast<std::ptrdiff_t>(last));
        renumber(first);
        setOpen(e, false);
        endRemoveRows();
    }
}

QModelIndex SymbolTreeModel::parentRow(const QModelIndex& index) const
{
    const std::int32_t e = entryOf(index);
    if (e <= 0)
        return {};
    const std::int32_t p = m_entries[static_cast<std::size_t>(e)].parent;
    if (p <= 0)
        return {};
    const std::int32_t row = m_entries[static_cast<std::size_t>(p)].flatRow;
    return row >= 0 ? createIndex(row, 0, static_cast<quintptr>(p)) : QModelIndex();
}

std::uint64_t SymbolTreeModel::laterSiblings(const QModelIndex& index) const
{
    std::uint64_t bits = 0;
    for (std::int32_t e = entryOf(index); e > 0; e = m_entries[static_cast<std::size_t>(e)].parent) {
        const Entry& entry = m_entries[static_cast<std::size_t>(e)];
        if (positionAmongShown(e) + 1 < shownKidCount(entry.parent) && entry.depth < 64)
            bits |= std::uint64_t{1} << entry.depth;
    }
    return bits;
}

std::vector<Node*> SymbolTreeModel::tickedInTreeOrder() const
{
    std::vector<Node*> out;
    for (std::size_t e = 1; e < m_entries.size(); ++e)
        if (m_entries[e].ticked)
            out.push_back(m_entries[e].node);
    return out;
}

bool SymbolTreeModel::isFileRow(const QModelIndex& index) const
{
    const Node* n = node(index);
    return n && isFileRow(*n);
}

void SymbolTreeModel::expandFileRows(const std::function<void(int)>& doneTopLevel)
{
    beginResetModel();
    // Rows were made top-level row by top-level row, whatever the sort order:
    // the file rows of one lie between it and the next one made.
    const Entry& root = m_entries[0];
    std::vector<std::int32_t> tops(m_kids.begin() + root.kidsBegin, m_kids.begin() + root.kidsBegin + root.kidsCount);
    std::sort(tops.begin(), tops.end());
    std::size_t next = 0;
    for (std::size_t k = 0; k < tops.size(); ++k) {
        const std::int32_t end = k + 1 < tops.size() ? tops[k + 1] : static_cast<std::int32_t>(m_entries.size());
        for (; next < m_fileRows.size() && m_fileRows[next] < end; ++next)
            setOpen(m_fileRows[next], true);
        if (doneTopLevel)
            doneTopLevel(static_cast<int>(k + 1));
    }
    flatten();
    endResetModel();
}

// ---------------------------------------------------------------------------
// Cells

QVariant SymbolTreeModel::data(const QModelIndex& index, int role) const
{
    const std::int32_t e = entryOf(index);
    if (e <= 0)
        return {};
    const Entry& entry = m_entries[static_cast<std::size_t>(e)];
    const Node& n = *entry.node;
    const int column = index.column();
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        switch (column) {
        case kColName: {
            const std::string_view text = n.Name.empty() ? std::string_view(n.File) : std::string_view(n.Name);
            return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
        }
        case kColType:
            if (n.Type.empty())
                return {};
            return QString::fromUtf8(n.Type.data(), static_cast<qsizetype>(n.Type.size()));
        case kColSize:
            // The number itself, so that the column sorts numerically.
            return n.Size ? QVariant(n.Size) : QVariant();
        case kColAddress: {
            if (!n.Address)
                return {};
            char buf[16];
            const std::string_view hex = printHex(n.Address, buf);
            return QString::fromLatin1(hex.data(), static_cast<qsizetype>(hex.size()));
        }
        case kColSelect:
            if (n.IsLeaf && isUnsupported(n))
                return QStringLiteral("Symbol type is not supported");
            return {};
        default: return {};
        }
    case Qt::CheckStateRole:
        if (column == kColSelect && n.IsLeaf)
            return entry.ticked ? Qt::Checked : Qt::Unchecked;
        return {};
    case Qt::ToolTipRole:
        // Nodes the tree's limits left without children have no check box: say why.
        switch (n.Unexpanded) {
        case kCutVariableBudget: return QStringLiteral("Not expanded: it would take too many symbol tree nodes");
        case kCutTreeBudget: return QStringLiteral("Not expanded: the symbol tree has reached its size limit");
        case kCutAddressSpace: return QStringLiteral("Not expanded: its elements would run past the 32-bit address space");
        case kCutTypeTrouble: return QStringLiteral("Not expanded: its element type is damaged in the debug information");
        default: return {};
        }
    case Qt::BackgroundRole:
        if (column == kColName && isFileRow(n))
            return QBrush(Qt::lightGray);
        return {};
    default: return {};
    }
}

Qt::ItemFlags SymbolTreeModel::flags(const QModelIndex& index) const
{
    const std::int32_t e = entryOf(index);
    if (e <= 0)
        return Qt::NoItemFlags;
    const Entry& entry = m_entries[static_cast<std::size_t>(e)];
    // Rows have no rows of their own: the tree lives in the flat list.
    Qt::ItemFlags f = Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemNeverHasChildren;
    if (entry.leaf)
        f |= Qt::ItemIsUserCheckable;
    if (entry.unsupported)
        f &= ~Qt::ItemIsEnabled;  // the whole row is greyed and cannot be ticked
    return f;
}

bool SymbolTreeModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    const std::int32_t e = entryOf(index);
    if (e <= 0 || role != Qt::CheckStateRole || index.column() != kColSelect)
        return false;
    Entry& entry = m_entries[static_cast<std::size_t>(e)];
    if (!entry.node->IsLeaf || !(flags(index) & Qt::ItemIsEnabled))
        return false;
    const auto state = static_cast<Qt::CheckState>(value.toInt());
    if (state == Qt::PartiallyChecked)
        return false;
    const bool ticked = state == Qt::Checked;
    if (ticked == entry.ticked)
        return true;
    entry.ticked = ticked;
    emit dataChanged(index, index, {Qt::CheckStateRole});
    emit itemChanged(index, index.column());
    return true;
}

QVariant SymbolTreeModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    static const char* const kHeaders[kColumnCount] = {"Name", "Type", "Size", "Address", "Select"};
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole && section >= 0 && section < kColumnCount)
        return QString::fromLatin1(kHeaders[section]);
    return {};
}

// ---------------------------------------------------------------------------
// Sorting: every level, stable, by the cell's shown value; an empty cell
// sorts after every value (before them in descending order).

void SymbolTreeModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= kColumnCount)
        return;
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList before = persistentIndexList();
    std::vector<std::int32_t> ids;
    ids.reserve(static_cast<std::size_t>(before.size()));
    for (const QModelIndex& i : before)
        ids.push_back(entryOf(i));

    // A key per entry: `has` false for an empty cell.
    struct Key {
        bool has;
        std::uint32_t number;
        std::string_view text;
        char hex[16];
    };
    const auto key = [&](std::int32_t e, Key& k) {
        const Node& n = *m_entries[static_cast<std::size_t>(e)].node;
        k.has = true;
        k.number = 0;
        switch (column) {
        case kColName: k.text = n.Name.empty() ? std::string_view(n.File) : std::string_view(n.Name); break;
        case kColType: k.text = n.Type; k.has = !n.Type.empty(); break;
        case kColSize: k.number = n.Size; k.has = n.Size != 0; break;
        case kColAddress: k.has = n.Address != 0; k.text = printHex(n.Address, k.hex); break;
        default:
            k.has = n.IsLeaf && isUnsupported(n);
            k.text = "Symbol type is not supported";
            break;
        }
    };
    const auto less = [&](std::int32_t a, std::int32_t b) {
        Key ka, kb;
        key(a, ka);
        key(b, kb);
        if (!ka.has)
            return false;
        if (!kb.has)
            return true;
        return column == kColSize ? ka.number < kb.number : ka.text < kb.text;
    };
    for (std::size_t e = 0; e < m_entries.size(); ++e) {
        const Entry& entry = m_entries[e];
        if (entry.kidsCount < 2)
            continue;
        auto first = m_kids.begin() + entry.kidsBegin;
        auto last = first + entry.kidsCount;
        if (order == Qt::AscendingOrder)
            std::stable_sort(first, last, less);
        else
            std::stable_sort(first, last, [&](std::int32_t a, std::int32_t b) { return less(b, a); });
        for (std::int32_t r = 0; r < entry.kidsCount; ++r)
            m_entries[static_cast<std::size_t>(m_kids[static_cast<std::size_t>(entry.kidsBegin + r)])].sortedRow = r;
    }
    rebuildShownOrder();
    flatten();

    QModelIndexList after;
    after.reserve(before.size());
    for (qsizetype i = 0; i < before.size(); ++i) {
        const std::int32_t e = ids[static_cast<std::size_t>(i)];
        const std::int32_t row = e > 0 ? m_entries[static_cast<std::size_t>(e)].flatRow : -1;
        after.push_back(row >= 0 ? createIndex(row, before[i].column(), static_cast<quintptr>(e)) : QModelIndex());
    }
    changePersistentIndexList(before, after);
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void SymbolTreeModel::rebuildShownOrder()
{
    for (std::size_t e = 0; e < m_entries.size(); ++e) {
        Entry& entry = m_entries[e];
        if (entry.generation != m_generation || entry.state != kPartial)
            continue;
        std::int32_t row = 0;
        for (std::int32_t k = 0; k < entry.kidsCount; ++k) {
            const std::int32_t kid = m_kids[static_cast<std::size_t>(entry.kidsBegin + k)];
            Entry& kidEntry = m_entries[static_cast<std::size_t>(kid)];
            if (kidEntry.generation == m_generation && kidEntry.state == kHidden)
                continue;
            kidEntry.shownRow = row;
            m_shown[static_cast<std::size_t>(entry.shownBegin + row)] = kid;
            ++row;
        }
    }
}

// ---------------------------------------------------------------------------
// Filter

bool SymbolTreeModel::textMatches(std::string_view haystack) const
{
    const auto n = static_cast<std::size_t>(m_needle.size());
    if (haystack.size() < n || n == 0)
        return false;
    const char* needle = m_needle.constData();
    const char first = needle[0];
    const std::size_t lastStart = haystack.size() - n;
    for (std::size_t i = 0; i <= lastStart; ++i) {
        if (text::foldAscii(haystack[i]) != first)
            continue;
        std::size_t k = 1;
        while (k < n && text::foldAscii(haystack[i + k]) == needle[k])
            ++k;
        if (k == n)
            return true;
    }
    return false;
}

std::string_view SymbolTreeModel::nameOf(const Entry& entry) const
{
    return std::string_view(m_names).substr(entry.nameBegin, entry.nameSize);
}

bool SymbolTreeModel::matches(const Entry& entry)
{
    const auto cached = [this](std::vector<std::int8_t>& results, const std::vector<std::string_view>& texts,
                               std::uint32_t id) {
        if (id == 0)
            return false;  // an empty field never matches
        std::int8_t& r = results[id];
        if (r < 0)
            r = textMatches(texts[id]) ? 1 : 0;
        return r == 1;
    };
    if (cached(m_fileMatch, m_fileTexts, entry.fileId) || textMatches(nameOf(entry)) ||
        cached(m_typeMatch, m_typeTexts, entry.typeId))
        return true;
    char buf[16];
    if (m_needleCanBeNumber && textMatches(printSigned(static_cast<std::int32_t>(entry.size), buf)))
        return true;
    return m_needleCanBeAddress && textMatches(printHex(entry.address, buf));
}

bool SymbolTreeModel::filterVisit(std::int32_t e)
{
    Entry& entry = m_entries[static_cast<std::size_t>(e)];
    entry.generation = m_generation;
    if (e != 0 && matches(entry)) {
        entry.state = kAll;  // open, with everything below it collapsed
        setOpen(e, true);
        return true;
    }
    bool any = false;
    for (std::int32_t k = entry.kidsCount; k-- > 0;)
        any = filterVisit(m_kids[static_cast<std::size_t>(entry.kidsBegin + k)]) || any;
    if (!any && e != 0) {
        entry.state = kHidden;
        return false;
    }
    entry.state = kPartial;
    entry.shownBegin = static_cast<std::int32_t>(m_shown.size());
    std::int32_t row = 0;
    for (std::int32_t k = 0; k < entry.kidsCount; ++k) {
        const std::int32_t kid = m_kids[static_cast<std::size_t>(entry.kidsBegin + k)];
        Entry& kidEntry = m_entries[static_cast<std::size_t>(kid)];
        if (kidEntry.state == kHidden)
            continue;
        kidEntry.shownRow = row++;
        m_shown.push_back(kid);
    }
    entry.shownCount = row;
    setOpen(e, true);
    return any;
}

void SymbolTreeModel::applyFilter(const QByteArray& text)
{
    beginResetModel();
    ++m_generation;  // every row starts collapsed and unfiltered
    m_shown.clear();
    m_needle = text.left(255);
    for (char& c : m_needle)
        c = text::foldAscii(c);
    Entry& root = m_entries[0];
    root.generation = m_generation;
    if (m_needle.isEmpty()) {
        root.state = kAll;
        for (std::int32_t k = 0; k < root.kidsCount; ++k)
            setOpen(m_kids[static_cast<std::size_t>(root.kidsBegin + k)], true);
    } else {
        // Which printed numbers can hold the text at all.
        m_needleCanBeNumber =
            std::all_of(m_needle.begin(), m_needle.end(), [](char c) { return (c >= '0' && c <= '9') || c == '-'; });
        m_needleCanBeAddress = std::all_of(m_needle.begin(), m_needle.end(), [](char c) {
            return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || c == 'x';
        });
        m_fileMatch.assign(m_fileTexts.size(), -1);
        m_typeMatch.assign(m_typeTexts.size(), -1);
        filterVisit(0);
    }
    flatten();
    endResetModel();
}
