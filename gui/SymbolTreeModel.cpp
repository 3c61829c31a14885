#include "gui/SymbolTreeModel.h"

#include "base/Text.h"
#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTree.h"

#include <QBrush>

#include <algorithm>
#include <charconv>
#include <limits>

namespace {

// Dense id of an interned text: the filter tests each distinct text once per
// pass. Id 0 is the empty text.
std::uint32_t textId(std::string_view s, std::vector<std::string_view>& texts, std::unordered_map<const char*, std::uint32_t>& ids)
{
    if (s.empty())
        return 0;
    const auto [it, added] = ids.try_emplace(s.data(), static_cast<std::uint32_t>(texts.size()));
    if (added) {
        texts.push_back(s);
        return it->second;
    }
    if (texts[it->second].size() != s.size()) {  // the same address with another length: not one interned text
        texts.push_back(s);
        return static_cast<std::uint32_t>(texts.size() - 1);
    }
    return it->second;
}

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


constexpr quintptr kElementRow = quintptr{1} << 63;

// Numbers below `n` whose decimal form starts with that of `p` (p > 0):
// p, p0..p9, p00..p99 and so on.
std::uint64_t withPrefix(std::uint64_t p, std::uint64_t n)
{
    std::uint64_t total = 0;
    for (std::uint64_t lo = p, width = 1; lo < n; lo *= 10, width *= 10)
        total += std::min(n, lo + width) - lo;
    return total;
}

bool isDigits(std::string_view s) { return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; }); }

// A decimal number as printed ("0" or no leading zero) below `n`.
bool decimalBelow(std::string_view s, std::uint32_t n, std::uint32_t& value)
{
    if (!isDigits(s) || (s.size() > 1 && s[0] == '0'))
        return false;
    const auto [end, error] = std::from_chars(s.data(), s.data() + s.size(), value);
    return error == std::errc() && end == s.data() + s.size() && value < n;
}

void addRange(std::vector<std::pair<std::uint32_t, std::uint32_t>>& ranges, std::uint64_t first, std::uint64_t last)
{
    if (first >= last)
        return;
    if (!ranges.empty() && ranges.back().second >= first) {
        ranges.back().second = std::max<std::uint32_t>(ranges.back().second, static_cast<std::uint32_t>(last));
        return;
    }
    ranges.emplace_back(static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(last));
}

// Sorted, merged.
void normalise(std::vector<std::pair<std::uint32_t, std::uint32_t>>& ranges)
{
    std::sort(ranges.begin(), ranges.end());
    std::vector<std::pair<std::uint32_t, std::uint32_t>> out;
    out.reserve(ranges.size());
    for (const auto& [a, b] : ranges)
        addRange(out, a, b);
    ranges = std::move(out);
}

bool contains(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& ranges, std::uint32_t i)
{
    const auto it = std::upper_bound(ranges.begin(), ranges.end(), std::make_pair(i, std::numeric_limits<std::uint32_t>::max()));
    return it != ranges.begin() && std::prev(it)->second > i;
}

// Elements of [first, last) in `ranges`, with `before[k]` the elements of
// the ranges before range k.
std::uint64_t countIn(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& ranges, const std::vector<std::uint64_t>& before,
                      std::uint64_t first, std::uint64_t last)
{
    const auto below = [&](std::uint64_t x) -> std::uint64_t {  // elements under x
        const auto it = std::upper_bound(ranges.begin(), ranges.end(), x,
                                         [](std::uint64_t v, const auto& r) { return v < r.first; });
        if (it == ranges.begin())
            return 0;
        const auto k = static_cast<std::size_t>(std::prev(it) - ranges.begin());
        return before[k] + std::min<std::uint64_t>(x, ranges[k].second) - ranges[k].first;
    };
    return last > first ? below(last) - below(first) : 0;
}

std::vector<std::uint64_t> prefixCounts(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& ranges)
{
    std::vector<std::uint64_t> before(ranges.size());
    std::uint64_t sum = 0;
    for (std::size_t k = 0; k < ranges.size(); ++k) {
        before[k] = sum;
        sum += ranges[k].second - ranges[k].first;
    }
    return before;
}

}  // namespace

SymbolTreeModel::SymbolTreeModel(SymbolTree* tree, const std::vector<Node*>& selected, std::function<void(int)> madeTopLevel,
                                 QObject* parent)
    : QAbstractItemModel(parent), m_tree(tree)
{
    const std::unordered_set<const Node*> chosen(selected.begin(), selected.end());
    m_fileTexts.assign(1, {});
    m_typeTexts.assign(1, {});
    m_entries.reserve(tree ? tree->arena.size() + 1 : 1);
    m_entryOf.reserve(tree ? tree->arena.size() : 0);
    m_entries.emplace_back();  // the invisible root
    m_entries[0].generation = m_generation;
    std::vector<std::int32_t> tops;
    if (tree) {
        m_topLevelCount = static_cast<int>(tree->files.size());
        int made = 0;
        for (Node* f : tree->files) {
            const std::int32_t e = addEntries(f, 0, chosen);
            if (e > 0)
                tops.push_back(e);
            if (madeTopLevel)
                madeTopLevel(++made);
        }
    }
    Entry& root = m_entries[0];
    root.kidsBegin = static_cast<std::int32_t>(m_kids.size());
    root.kidsCount = static_cast<std::int32_t>(tops.size());
    for (std::size_t k = 0; k < tops.size(); ++k) {
        m_entries[static_cast<std::size_t>(tops[k])].sortedRow = static_cast<std::int32_t>(k);
        m_kids.push_back(tops[k]);
    }
    flatten();
}

SymbolTreeModel::~SymbolTreeModel() = default;

std::int32_t SymbolTreeModel::addEntries(Node* n, std::int32_t parentEntry, const std::unordered_set<const Node*>& chosen)
{
    // A node with neither name nor file has no row, and neither has anything below it.
    if (n->Name.empty() && n->File.empty())
        return 0;
    const auto e = static_cast<std::int32_t>(m_entries.size());
    {
        Entry& entry = m_entries.emplace_back();
        entry.node = n;
        entry.parent = parentEntry;
        entry.generation = 0;
        entry.fileId = textId(n->File, m_fileTexts, m_fileIds);
        entry.typeId = textId(n->Type, m_typeTexts, m_typeIds);
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
        m_entryOf.emplace(n, e);
    }
    std::vector<std::int32_t> kids;
    for (Node* c = n->Children; c; c = c->Next)
        if (const std::int32_t k = addEntries(c, e, chosen))
            kids.push_back(k);
    if (n->ElementCount > kVirtualElements) {
        Level level;
        level.entry = e;
        level.node = n;
        level.count = n->ElementCount;
        for (const Node* c = n->ElementModel->Children; c && !level.kidRows; c = c->Next)
            level.kidRows = !c->Name.empty() || !c->File.empty();
        level.kidRows = level.kidRows || n->ElementModel->ElementCount != 0;
        m_entries[static_cast<std::size_t>(e)].level = static_cast<std::int32_t>(m_levels.size());
        m_levels.push_back(std::move(level));
        // Elements made before (selected ones) get their entries now.
        if (const auto* made = m_tree->arena.madeElements(*n))
            for (const auto& [i, element] : *made)
                if (const std::int32_t k = addEntries(element, e, chosen))
                    m_levels.back().made.emplace(i, k);
    } else {
        for (std::uint32_t i = 0; i < n->ElementCount; ++i)
            if (const std::int32_t k = addEntries(m_tree->arena.element(*n, i), e, chosen))
                kids.push_back(k);
    }
    Entry& entry = m_entries[static_cast<std::size_t>(e)];
    entry.kidsBegin = static_cast<std::int32_t>(m_kids.size());
    entry.kidsCount = static_cast<std::int32_t>(kids.size());
    for (std::size_t k = 0; k < kids.size(); ++k) {
        m_entries[static_cast<std::size_t>(kids[k])].sortedRow = static_cast<std::int32_t>(k);
        m_kids.push_back(kids[k]);
    }
    return e;
}

std::int32_t SymbolTreeModel::elementEntry(Level& level, std::uint32_t index)
{
    if (const auto it = level.made.find(index); it != level.made.end())
        return it->second;
    Node* n = m_tree->arena.element(*level.node, index);
    const std::int32_t levelEntry = level.entry;
    const std::size_t levelIndex = static_cast<std::size_t>(&level - m_levels.data());
    const std::int32_t e = addEntries(n, levelEntry, {});
    m_levels[levelIndex].made.emplace(index, e);
    // Below it, in the order the rows are sorted in.
    if (m_sortColumn >= 0) {
        const auto sortBelow = [&](auto&& self, std::int32_t x) -> void {
            sortKids(x);
            const Entry& entry = m_entries[static_cast<std::size_t>(x)];
            for (std::int32_t k = 0; k < entry.kidsCount; ++k)
                self(self, m_kids[static_cast<std::size_t>(entry.kidsBegin + k)]);
        };
        sortBelow(sortBelow, e);
        for (std::size_t l = levelIndex + 1; l < m_levels.size(); ++l) {  // levels made just now sort as the others
            m_levels[l].byName = m_levels[levelIndex].byName;
            m_levels[l].descending = m_levels[levelIndex].descending;
        }
    }
    return e;
}

// ---------------------------------------------------------------------------
// The order of a level's elements

std::uint32_t SymbolTreeModel::indexAt(const Level& level, std::uint32_t position) const
{
    const std::uint64_t n = level.count;
    const std::uint64_t k0 = level.descending ? n - 1 - position : position;
    if (!level.byName)
        return static_cast<std::uint32_t>(k0);
    // By name, "a[10]" < "a[1]" < "a[2]": the numbers' decimal forms in a
    // trie, children before their parent.
    std::uint64_t k = k0;
    if (k == 0)
        return 0;
    k -= 1;  // "0" comes first
    std::uint64_t p = 0;
    for (std::uint64_t d = 1; d <= 9; ++d) {
        const std::uint64_t c = withPrefix(d, n);
        if (k < c) {
            p = d;
            break;
        }
        k -= c;
    }
    for (;;) {
        bool down = false;
        for (std::uint64_t d = 0; d <= 9 && !down; ++d) {
            const std::uint64_t q = p * 10 + d;
            const std::uint64_t c = q < n ? withPrefix(q, n) : 0;
            if (k < c) {
                p = q;
                down = true;
            } else {
                k -= c;
            }
        }
        if (!down)
            return static_cast<std::uint32_t>(p);
    }
}

std::uint32_t SymbolTreeModel::positionOf(const Level& level, std::uint32_t index) const
{
    const std::uint64_t n = level.count;
    std::uint64_t pos = index;
    if (level.byName && index > 0) {
        char digits[16];
        const auto end = std::to_chars(digits, digits + sizeof digits, index).ptr;
        pos = 1;
        std::uint64_t p = 0;
        for (const char* c = digits; c < end; ++c) {
            const std::uint64_t digit = static_cast<std::uint64_t>(*c - '0');
            for (std::uint64_t d = (c == digits ? 1 : 0); d < digit; ++d)
                pos += withPrefix(p * 10 + d, n);
            p = p * 10 + digit;
        }
        pos += withPrefix(index, n) - 1;  // the numbers it is the prefix of come first
    } else if (level.byName) {
        pos = 0;
    }
    return static_cast<std::uint32_t>(level.descending ? n - 1 - pos : pos);
}

SymbolTreeModel::Ranges SymbolTreeModel::positionsOf(const Level& level, const Ranges& indexes) const
{
    Ranges out;
    const std::uint64_t n = level.count;
    if (!level.byName) {
        out = indexes;
    } else {
        const std::vector<std::uint64_t> before = prefixCounts(indexes);
        // Walks the trie: a subtree wholly in or out is one run or none.
        const auto inSubtree = [&](std::uint64_t p) {
            std::uint64_t in = 0;
            for (std::uint64_t lo = p, width = 1; lo < n; lo *= 10, width *= 10)
                in += countIn(indexes, before, lo, std::min(n, lo + width));
            return in;
        };
        const auto walk = [&](auto&& self, std::uint64_t p, std::uint64_t at) -> void {
            const std::uint64_t total = withPrefix(p, n), in = inSubtree(p);
            if (in == 0)
                return;
            if (in == total) {
                addRange(out, at, at + total);
                return;
            }
            for (std::uint64_t d = 0; d <= 9; ++d) {
                const std::uint64_t q = p * 10 + d;
                if (q >= n)
                    break;
                self(self, q, at);
                at += withPrefix(q, n);
            }
            if (contains(indexes, static_cast<std::uint32_t>(p)))
                addRange(out, at, at + 1);
        };
        if (n > 0 && contains(indexes, 0))
            addRange(out, 0, 1);
        std::uint64_t at = 1;
        for (std::uint64_t d = 1; d <= 9 && d < n; ++d) {
            walk(walk, d, at);
            at += withPrefix(d, n);
        }
    }
    if (level.descending) {
        for (auto& [a, b] : out)
            std::tie(a, b) = std::make_pair(static_cast<std::uint32_t>(n - b), static_cast<std::uint32_t>(n - a));
        std::reverse(out.begin(), out.end());
    }
    return out;
}

bool SymbolTreeModel::shownInLevel(const Level& level, std::uint32_t index) const
{
    const State s = stateOf(level.entry);
    if (s == kAll)
        return true;
    if (s == kHidden)
        return false;
    if (contains(level.matching, index))
        return true;
    const auto it = level.made.find(index);
    return it != level.made.end() && m_entries[static_cast<std::size_t>(it->second)].generation == m_generation &&
           m_entries[static_cast<std::size_t>(it->second)].state != kHidden;
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

std::int64_t SymbolTreeModel::shownCount(std::int32_t e) const
{
    const Entry& entry = m_entries[static_cast<std::size_t>(e)];
    if (entry.level < 0)
        return shownKidCount(e);
    const Level& level = m_levels[static_cast<std::size_t>(entry.level)];
    switch (stateOf(e)) {
    case kAll: return level.count;
    case kPartial:
        return level.shown.empty() ? 0
                                   : static_cast<std::int64_t>(level.shownBefore.back() + level.shown.back().second -
                                                               level.shown.back().first);
    default: return 0;
    }
}

std::int64_t SymbolTreeModel::positionAmongShown(std::int32_t e) const
{
    const Entry& entry = m_entries[static_cast<std::size_t>(e)];
    const Entry& parent = m_entries[static_cast<std::size_t>(entry.parent)];
    if (parent.level < 0)
        return stateOf(entry.parent) == kAll ? entry.sortedRow : entry.shownRow;
    const Level& level = m_levels[static_cast<std::size_t>(parent.level)];
    const std::uint32_t p = positionOf(level, entry.node->ElementIndex);
    if (stateOf(entry.parent) == kAll)
        return p;
    return static_cast<std::int64_t>(countIn(level.shown, level.shownBefore, 0, p));
}

void SymbolTreeModel::appendElementRows(const Level& level, std::vector<Segment>& rows) const
{
    // Positions shown, cut at each element that has rows of its own below it.
    Ranges shown;
    if (stateOf(level.entry) == kAll)
        shown.emplace_back(0, level.count);
    else
        shown = level.shown;
    std::vector<std::pair<std::uint32_t, std::int32_t>> open;  // position, entry
    for (const auto& [i, e] : level.made)
        if (openOf(e) && shownInLevel(level, i))
            open.emplace_back(positionOf(level, i), e);
    std::sort(open.begin(), open.end());
    std::size_t next = 0;
    for (auto [first, last] : shown) {
        while (first < last) {
            while (next < open.size() && open[next].first < first)
                ++next;
            const std::uint32_t cut = next < open.size() && open[next].first < last ? open[next].first : last;
            if (cut > first)
                rows.push_back({level.entry, first, cut - first});
            if (cut == last)
                break;
            const std::int32_t e = open[next++].second;
            rows.push_back({e, 0, 0});
            appendRows(e, rows);
            first = cut + 1;
        }
    }
}

void SymbolTreeModel::appendRows(std::int32_t e, std::vector<Segment>& rows) const
{
    const Entry& entry = m_entries[static_cast<std::size_t>(e)];
    if (entry.level >= 0) {
        appendElementRows(m_levels[static_cast<std::size_t>(entry.level)], rows);
        return;
    }
    const std::int32_t n = shownKidCount(e);
    for (std::int32_t k = 0; k < n; ++k) {
        const std::int32_t kid = shownKid(e, k);
        rows.push_back({kid, 0, 0});
        if (openOf(kid))
            appendRows(kid, rows);
    }
}

void SymbolTreeModel::renumber(std::size_t from)
{
    m_rowStart.resize(m_rows.size() + 1);
    if (from == 0)
        m_rowStart[0] = 0;
    for (std::size_t s = from; s < m_rows.size(); ++s) {
        m_rowStart[s + 1] = m_rowStart[s] + m_rows[s].rows();
        if (!m_rows[s].count)
            m_entries[static_cast<std::size_t>(m_rows[s].entry)].segment = static_cast<std::int32_t>(s);
    }
}

void SymbolTreeModel::flatten()
{
    for (const Segment& s : m_rows)
        if (!s.count)
            m_entries[static_cast<std::size_t>(s.entry)].segment = -1;
    m_rows.clear();
    appendRows(0, m_rows);
    renumber(0);
}

std::size_t SymbolTreeModel::segmentOfRow(int row) const
{
    const auto it = std::upper_bound(m_rowStart.begin(), m_rowStart.end() - 1, static_cast<std::int64_t>(row));
    return static_cast<std::size_t>(it - m_rowStart.begin()) - 1;
}

int SymbolTreeModel::rowOf(const Level& level, std::uint32_t index) const
{
    if (!shownInLevel(level, index))
        return -1;
    const std::uint32_t p = positionOf(level, index);
    for (std::size_t s = 0; s < m_rows.size(); ++s) {
        const Segment& seg = m_rows[s];
        if (seg.count && seg.entry == level.entry && p >= seg.first && p - seg.first < seg.count)
            return static_cast<int>(m_rowStart[s] + (p - seg.first));
    }
    return -1;
}

SymbolTreeModel::Ref SymbolTreeModel::refOf(const QModelIndex& index) const
{
    if (!index.isValid() || index.model() != this)
        return {};
    const quintptr id = index.internalId();
    if (!(id & kElementRow)) {
        const auto e = static_cast<std::int32_t>(id);
        return {e > 0 && static_cast<std::size_t>(e) < m_entries.size() ? e : 0, -1, 0};
    }
    Ref ref;
    ref.level = static_cast<std::int32_t>((id & ~kElementRow) >> 32);
    ref.index = static_cast<std::uint32_t>(id);
    const Level& level = m_levels[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(ref.level)].level)];
    if (const auto it = level.made.find(ref.index); it != level.made.end())
        ref.entry = it->second;
    return ref;
}

std::int32_t SymbolTreeModel::entryOf(const QModelIndex& index) const { return refOf(index).entry; }

std::int32_t SymbolTreeModel::entryOf(const Node* node) const
{
    const auto it = m_entryOf.find(node);
    return it == m_entryOf.end() ? 0 : it->second;
}

int SymbolTreeModel::depthOf(const Ref& ref) const
{
    if (ref.entry > 0)
        return m_entries[static_cast<std::size_t>(ref.entry)].depth;
    return ref.level > 0 ? std::min(m_entries[static_cast<std::size_t>(ref.level)].depth + 1, kMaxDepth) : 0;
}

QModelIndex SymbolTreeModel::index(int row, int column, const QModelIndex& parent) const
{
    if (parent.isValid() || column < 0 || column >= kColumnCount || row < 0 || row >= rowCount())
        return {};
    const Segment& seg = m_rows[segmentOfRow(row)];
    if (!seg.count)
        return createIndex(row, column, static_cast<quintptr>(seg.entry));
    const Level& level = m_levels[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(seg.entry)].level)];
    const std::uint32_t position = seg.first + static_cast<std::uint32_t>(row - m_rowStart[segmentOfRow(row)]);
    return createIndex(row, column, kElementRow | (static_cast<quintptr>(seg.entry) << 32) | indexAt(level, position));
}

QModelIndex SymbolTreeModel::parent(const QModelIndex&) const { return {}; }

int SymbolTreeModel::rowCount(const QModelIndex& parent) const
{
    if (parent.isValid() || m_rowStart.empty())
        return 0;
    return static_cast<int>(std::min<std::int64_t>(m_rowStart.back(), std::numeric_limits<int>::max()));
}

int SymbolTreeModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : kColumnCount; }

Node* SymbolTreeModel::node(const QModelIndex& index) const
{
    const Ref ref = refOf(index);
    if (ref.entry > 0)
        return m_entries[static_cast<std::size_t>(ref.entry)].node;
    if (ref.level <= 0)
        return nullptr;
    // An element shown in a run: made now, as the dialog hands it out.
    const Level& level = m_levels[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(ref.level)].level)];
    return m_tree->arena.element(*level.node, ref.index);
}

QModelIndex SymbolTreeModel::indexOf(const Node* node, int column) const
{
    if (const std::int32_t e = entryOf(node); e > 0) {
        const Entry& entry = m_entries[static_cast<std::size_t>(e)];
        if (entry.segment >= 0)
            return createIndex(static_cast<int>(m_rowStart[static_cast<std::size_t>(entry.segment)]), column, static_cast<quintptr>(e));
    }
    // An element inside a run of rows.
    if (!node || !node->Parent)
        return {};
    const std::int32_t l = entryOf(node->Parent);
    if (l <= 0 || m_entries[static_cast<std::size_t>(l)].level < 0)
        return {};
    const Level& level = m_levels[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(l)].level)];
    const int row = rowOf(level, node->ElementIndex);
    return row >= 0 ? index(row, column) : QModelIndex();
}

bool SymbolTreeModel::passesFilter(const Node* node) const
{
    std::int32_t e = entryOf(node);
    if (e <= 0) {
        // An element without an entry: as its level lets it.
        const std::int32_t l = node && node->Parent ? entryOf(node->Parent) : 0;
        if (l <= 0 || m_entries[static_cast<std::size_t>(l)].level < 0 ||
            !shownInLevel(m_levels[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(l)].level)], node->ElementIndex))
            return false;
        e = l;
        if (stateOf(e) == kHidden)
            return false;
    }
    while (e > 0) {
        const Entry& entry = m_entries[static_cast<std::size_t>(e)];
        const std::int32_t p = entry.parent;
        const Entry& parent = m_entries[static_cast<std::size_t>(p)];
        const State s = stateOf(p);
        if (s == kHidden)
            return false;
        if (parent.level >= 0) {
            if (!shownInLevel(m_levels[static_cast<std::size_t>(parent.level)], entry.node->ElementIndex))
                return false;
        } else if (s == kPartial && stateOf(e) == kHidden) {
            return false;
        }
        e = p;
    }
    return true;
}

bool SymbolTreeModel::isTicked(const Node* node) const
{
    const std::int32_t e = entryOf(node);
    return e > 0 && m_entries[static_cast<std::size_t>(e)].ticked;
}

int SymbolTreeModel::depth(const QModelIndex& index) const { return depthOf(refOf(index)); }

bool SymbolTreeModel::hasChildRows(const QModelIndex& index) const
{
    const Ref ref = refOf(index);
    if (ref.entry > 0) {
        const std::int32_t e = ref.entry;
        const Entry& entry = m_entries[static_cast<std::size_t>(e)];
        if (entry.level >= 0)
            return shownCount(e) > 0;
        return shownKidCount(e) > 0;
    }
    return ref.level > 0 && m_levels[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(ref.level)].level)].kidRows;
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
    const Ref ref = refOf(index);
    std::int32_t e = ref.entry;
    if (e <= 0) {
        if (!expanded || ref.level <= 0)
            return;
        e = elementEntry(m_levels[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(ref.level)].level)], ref.index);
    }
    if (openOf(e) == expanded)
        return;
    const int row = index.row();
    const std::size_t seg = segmentOfRow(row);
    if (m_rows[seg].count == 0 && m_rows[seg].entry != e) {  // not a row now: remembered for when it becomes one
        setOpen(e, expanded);
        return;
    }
    if (expanded) {
        setOpen(e, true);
        std::vector<Segment> below;
        appendRows(e, below);
        std::int64_t added = 0;
        for (const Segment& s : below)
            added += s.rows();
        if (added == 0)
            return;
        // An element inside a run gets a segment of its own.
        std::vector<Segment> replace;
        const Segment run = m_rows[seg];
        if (run.count) {
            const auto offset = static_cast<std::uint32_t>(row - m_rowStart[seg]);
            if (offset > 0)
                replace.push_back({run.entry, run.first, offset});
            replace.push_back({e, 0, 0});
            replace.insert(replace.end(), below.begin(), below.end());
            if (offset + 1 < run.count)
                replace.push_back({run.entry, run.first + offset + 1, run.count - offset - 1});
        } else {
            replace.push_back(run);
            replace.insert(replace.end(), below.begin(), below.end());
        }
        beginInsertRows({}, row + 1, static_cast<int>(row + added));
        m_rows.erase(m_rows.begin() + static_cast<std::ptrdiff_t>(seg));
        m_rows.insert(m_rows.begin() + static_cast<std::ptrdiff_t>(seg), replace.begin(), replace.end());
        renumber(seg);
        endInsertRows();
    } else {
        const int d = m_entries[static_cast<std::size_t>(e)].depth;
        std::size_t last = seg + 1;
        while (last < m_rows.size()) {
            const Segment& s = m_rows[last];
            const int sd = s.count ? depthOf({0, s.entry, 0}) : m_entries[static_cast<std::size_t>(s.entry)].depth;
            if (sd <= d)
                break;
            ++last;
        }
        if (last == seg + 1) {
            setOpen(e, false);
            return;
        }
        const std::int64_t removed = m_rowStart[last] - m_rowStart[seg + 1];
        beginRemoveRows({}, row + 1, static_cast<int>(row + removed));
        for (std::size_t s = seg + 1; s < last; ++s)
            if (!m_rows[s].count)
                m_entries[static_cast<std::size_t>(m_rows[s].entry)].segment = -1;
        m_rows.erase(m_rows.begin() + static_cast<std::ptrdiff_t>(seg + 1), m_rows.begin() + static_cast<std::ptrdiff_t>(last));
        renumber(seg);
        setOpen(e, false);
        endRemoveRows();
    }
}

QModelIndex SymbolTreeModel::parentRow(const QModelIndex& index) const
{
    const Ref ref = refOf(index);
    const std::int32_t p = ref.entry > 0 ? m_entries[static_cast<std::size_t>(ref.entry)].parent : ref.level;
    if (p <= 0)
        return {};
    const std::int32_t seg = m_entries[static_cast<std::size_t>(p)].segment;
    return seg >= 0 ? createIndex(static_cast<int>(m_rowStart[static_cast<std::size_t>(seg)]), 0, static_cast<quintptr>(p)) : QModelIndex();
}

std::uint64_t SymbolTreeModel::laterSiblings(const QModelIndex& index) const
{
    std::uint64_t bits = 0;
    const Ref ref = refOf(index);
    std::int32_t e = ref.entry;
    if (e <= 0 && ref.level > 0) {
        // An element in a run: the last one shown has no later sibling.
        const Level& level = m_levels[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(ref.level)].level)];
        const std::uint32_t p = positionOf(level, ref.index);
        const std::int64_t rank =
            stateOf(ref.level) == kAll ? p : static_cast<std::int64_t>(countIn(level.shown, level.shownBefore, 0, p));
        const int d = depthOf(ref);
        if (rank + 1 < shownCount(ref.level) && d < 64)
            bits |= std::uint64_t{1} << d;
        e = ref.level;
    }
    for (; e > 0; e = m_entries[static_cast<std::size_t>(e)].parent) {
        const Entry& entry = m_entries[static_cast<std::size_t>(e)];
        if (positionAmongShown(e) + 1 < shownCount(entry.parent) && entry.depth < 64)
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
    const std::int32_t e = entryOf(index);
    return e > 0 && isFileRow(*m_entries[static_cast<std::size_t>(e)].node);
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
    const Ref ref = refOf(index);
    if (ref.entry <= 0 && ref.level <= 0)
        return {};
    // An element without an entry is its array's first element under its own
    // name and address, and not ticked.
    Node element;
    const Node* shown = nullptr;
    bool ticked = false;
    if (ref.entry > 0) {
        shown = m_entries[static_cast<std::size_t>(ref.entry)].node;
        ticked = m_entries[static_cast<std::size_t>(ref.entry)].ticked;
    } else {
        const Node& level = *m_levels[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(ref.level)].level)].node;
        const Node& model = *level.ElementModel;
        element.Type = model.Type;
        element.File = model.File;
        element.Size = model.Size;
        element.TypeID = model.TypeID;
        element.IsLeaf = model.IsLeaf;
        element.Unexpanded = model.Unexpanded;
        element.Address = static_cast<std::uint32_t>(level.Address + ref.index * level.ElementStride);
        if (role == Qt::DisplayRole || role == Qt::EditRole)
            element.Name = symtree::elementName(level.Name, ref.index);
        shown = &element;
    }
    const Node& n = *shown;
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
            return ticked ? Qt::Checked : Qt::Unchecked;
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
    const Ref ref = refOf(index);
    bool leaf = false, unsupported = false;
    if (ref.entry > 0) {
        const Entry& entry = m_entries[static_cast<std::size_t>(ref.entry)];
        leaf = entry.leaf;
        unsupported = entry.unsupported;
    } else if (ref.level > 0) {
        const Node& model = *m_levels[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(ref.level)].level)].node->ElementModel;
        leaf = model.IsLeaf;
        unsupported = model.IsLeaf && isUnsupported(model);
    } else {
        return Qt::NoItemFlags;
    }
    // Rows have no rows of their own: the tree lives in the flat list.
    Qt::ItemFlags f = Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemNeverHasChildren;
    if (leaf)
        f |= Qt::ItemIsUserCheckable;
    if (unsupported)
        f &= ~Qt::ItemIsEnabled;  // the whole row is greyed and cannot be ticked
    return f;
}

bool SymbolTreeModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    const Ref ref = refOf(index);
    if ((ref.entry <= 0 && ref.level <= 0) || role != Qt::CheckStateRole || index.column() != kColSelect)
        return false;
    if (!(flags(index) & Qt::ItemIsUserCheckable) || !(flags(index) & Qt::ItemIsEnabled))
        return false;
    const auto state = static_cast<Qt::CheckState>(value.toInt());
    if (state == Qt::PartiallyChecked)
        return false;
    const bool ticked = state == Qt::Checked;
    std::int32_t e = ref.entry;
    if (e <= 0) {
        if (!ticked)
            return true;
        // A ticked element is made, with its entry.
        e = elementEntry(m_levels[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(ref.level)].level)], ref.index);
    }
    Entry& entry = m_entries[static_cast<std::size_t>(e)];
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
// sorts after every value (before them in descending order). The elements of
// a long array sort by name as text or by address; the other columns hold
// the same value for all of them, which keeps their order.

void SymbolTreeModel::sortKids(std::int32_t e)
{
    const Entry& entry = m_entries[static_cast<std::size_t>(e)];
    if (entry.kidsCount < 2 || m_sortColumn < 0)
        return;
    const int column = m_sortColumn;
    // A key per entry: `has` false for an empty cell.
    struct Key {
        bool has;
        std::uint32_t number;
        std::string_view text;
        char hex[16];
    };
    const auto key = [&](std::int32_t x, Key& k) {
        const Node& n = *m_entries[static_cast<std::size_t>(x)].node;
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
    auto first = m_kids.begin() + entry.kidsBegin;
    auto last = first + entry.kidsCount;
    if (m_sortOrder == Qt::AscendingOrder)
        std::stable_sort(first, last, less);
    else
        std::stable_sort(first, last, [&](std::int32_t a, std::int32_t b) { return less(b, a); });
    for (std::int32_t r = 0; r < entry.kidsCount; ++r)
        m_entries[static_cast<std::size_t>(m_kids[static_cast<std::size_t>(entry.kidsBegin + r)])].sortedRow = r;
}

void SymbolTreeModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= kColumnCount)
        return;
    emit layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList before = persistentIndexList();
    std::vector<Ref> refs;
    refs.reserve(static_cast<std::size_t>(before.size()));
    for (const QModelIndex& i : before)
        refs.push_back(refOf(i));

    m_sortColumn = column;
    m_sortOrder = order;
    for (std::size_t e = 0; e < m_entries.size(); ++e)
        sortKids(static_cast<std::int32_t>(e));
    for (Level& level : m_levels) {
        if (column == kColName || column == kColAddress) {
            level.byName = column == kColName;
            level.descending = order == Qt::DescendingOrder;
        }
        if (stateOf(level.entry) == kPartial) {
            level.shown = positionsOf(level, level.shownIndexes);
            level.shownBefore = prefixCounts(level.shown);
        }
    }
    rebuildShownOrder();
    flatten();

    QModelIndexList after;
    after.reserve(before.size());
    for (qsizetype i = 0; i < before.size(); ++i) {
        const Ref& r = refs[static_cast<std::size_t>(i)];
        QModelIndex now;
        if (r.entry > 0) {
            now = indexOf(m_entries[static_cast<std::size_t>(r.entry)].node, before[i].column());
        } else if (r.level > 0) {
            const int row = rowOf(m_levels[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(r.level)].level)], r.index);
            now = row >= 0 ? index(row, before[i].column()) : QModelIndex();
        }
        after.push_back(now);
    }
    changePersistentIndexList(before, after);
    emit layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void SymbolTreeModel::rebuildShownOrder()
{
    for (std::size_t e = 0; e < m_entries.size(); ++e) {
        Entry& entry = m_entries[e];
        if (entry.generation != m_generation || entry.state != kPartial || entry.level >= 0)
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
        if (id >= results.size())
            results.resize(texts.size(), -1);
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

bool SymbolTreeModel::nodeMatches(const Node& n, std::uint32_t address)
{
    // As matches() on an entry, for a node that has none (an element's).
    const auto text = [&](std::string_view s, std::vector<std::string_view>& texts,
                          std::unordered_map<const char*, std::uint32_t>& ids, std::vector<std::int8_t>& results) {
        const std::uint32_t id = textId(s, texts, ids);
        if (id == 0)
            return false;
        if (id >= results.size())
            results.resize(texts.size(), -1);
        if (results[id] < 0)
            results[id] = textMatches(texts[id]) ? 1 : 0;
        return results[id] == 1;
    };
    if (text(n.File, m_fileTexts, m_fileIds, m_fileMatch) || textMatches(std::string_view(n.Name).substr(0, 255)) ||
        text(n.Type, m_typeTexts, m_typeIds, m_typeMatch))
        return true;
    char buf[16];
    if (m_needleCanBeNumber && textMatches(printSigned(static_cast<std::int32_t>(n.Size), buf)))
        return true;
    return m_needleCanBeAddress && textMatches(printHex(address, buf));
}

bool SymbolTreeModel::belowMatches(const Node& node, std::uint32_t delta)
{
    // Whether a node below `node` (a model element, moved by `delta` bytes)
    // matches: its members, and the elements of arrays among them.
    for (const Node* c = node.Children; c; c = c->Next) {
        if (c->Name.empty() && c->File.empty())
            continue;
        if (nodeMatches(*c, c->Address + delta) || belowMatches(*c, delta))
            return true;
    }
    if (!node.ElementCount)
        return false;
    const Node& model = *node.ElementModel;
    if (!nameMatches(node.Name, node.ElementCount).empty())
        return true;
    Node probe;
    probe.Type = model.Type;
    probe.File = model.File;
    probe.Size = model.Size;
    for (std::uint32_t j = 0; j < node.ElementCount; ++j) {
        const auto at = static_cast<std::uint32_t>(node.Address + delta + j * node.ElementStride);
        probe.Address = at;
        if (nodeMatches(probe, at) || belowMatches(model, at - model.Address))
            return true;
        if (!m_needleCanBeAddress && j == 0)
            return false;  // the same for every element
    }
    return false;
}

SymbolTreeModel::Ranges SymbolTreeModel::nameMatches(const std::string& levelName, std::uint32_t count) const
{
    // Element i is named levelName + "[" + i + "]".
    Ranges out;
    const std::string needle(m_needle.constData(), static_cast<std::size_t>(m_needle.size()));
    std::string head = levelName.substr(0, 255);
    for (char& c : head)
        c = text::foldAscii(c);
    head += '[';
    if (needle.empty() || count == 0)
        return out;
    if (head.size() + 12 > 255) {  // names cut to the limit: print them
        for (std::uint32_t i = 0; i < count; ++i)
            if (textMatches(symtree::elementName(levelName, i)))
                addRange(out, i, i + 1);
        return out;
    }
    if (head.find(needle) != std::string::npos || needle == "]") {
        out.emplace_back(0, count);
        return out;
    }
    // Begins in the name and runs on into the index.
    for (std::size_t s = 1; s < needle.size() && s <= head.size(); ++s) {
        if (head.compare(head.size() - s, s, needle, 0, s) != 0)
            continue;
        const std::string rest = needle.substr(s);
        const std::size_t close = rest.find(']');
        std::uint32_t v = 0;
        if (close != std::string::npos) {
            if (close + 1 == rest.size() && decimalBelow(std::string_view(rest).substr(0, close), count, v))
                out.emplace_back(v, v + 1);
            continue;
        }
        if (!isDigits(rest))
            continue;
        if (rest[0] == '0') {
            if (rest == "0")
                out.emplace_back(0, 1);
            continue;
        }
        std::uint64_t p = 0;
        if (std::from_chars(rest.data(), rest.data() + rest.size(), p).ec != std::errc())
            continue;
        for (std::uint64_t lo = p, width = 1; lo < count; lo *= 10, width *= 10)
            out.emplace_back(static_cast<std::uint32_t>(lo), static_cast<std::uint32_t>(std::min<std::uint64_t>(count, lo + width)));
    }
    // Within the index, or at its end.
    const bool atEnd = needle.size() > 1 && needle.back() == ']';
    const std::string_view digits = atEnd ? std::string_view(needle).substr(0, needle.size() - 1) : std::string_view(needle);
    if (isDigits(digits)) {
        char buf[16] = {'0'};
        std::size_t len = 1;
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::string_view text(buf, len);
            const bool hit = atEnd ? text.size() >= digits.size() && text.substr(text.size() - digits.size()) == digits
                                   : text.find(digits) != std::string_view::npos;
            if (hit)
                addRange(out, i, i + 1);
            // The next number's digits.
            std::size_t k = len;
            while (k > 0 && buf[k - 1] == '9')
                buf[--k] = '0';
            if (k == 0) {
                std::memmove(buf + 1, buf, len++);
                buf[0] = '1';
            } else {
                ++buf[k - 1];
            }
        }
    }
    normalise(out);
    return out;
}

bool SymbolTreeModel::filterLevel(std::size_t levelIndex)
{
    Level& level = m_levels[levelIndex];
    const Node& node = *level.node;
    const Node& model = *node.ElementModel;
    const std::uint32_t count = level.count;
    const bool kidRows = level.kidRows;
    level.matching.clear();
    // What every element shares: its file, type and size.
    Node same;
    same.File = model.File;
    same.Type = model.Type;
    same.Size = model.Size;
    const bool sharedMatch = [&] {
        const bool address = m_needleCanBeAddress;
        m_needleCanBeAddress = false;
        const bool hit = nodeMatches(same, 0);
        m_needleCanBeAddress = address;
        return hit;
    }();
    Ranges matching;
    std::vector<std::uint32_t> below;
    if (sharedMatch) {
        matching.emplace_back(0, count);
    } else {
        matching = nameMatches(node.Name, count);
        if (m_needleCanBeAddress) {
            char buf[16];
            for (std::uint32_t i = 0; i < count; ++i)
                if (textMatches(printHex(static_cast<std::uint32_t>(node.Address + i * node.ElementStride), buf)))
                    matching.emplace_back(i, i + 1);
            normalise(matching);
        }
        // Elements shown for what matches below them. Without an address in
        // the text, that is the same for every element.
        if (kidRows) {
            const bool alike = !m_needleCanBeAddress;
            const bool first = belowMatches(model, 0);
            for (std::uint32_t i = 0; i < count && below.size() < kMaxOpenedElements; ++i) {
                if (alike && !first)
                    break;
                const bool hit =
                    alike || belowMatches(model, static_cast<std::uint32_t>(node.Address + i * node.ElementStride) - model.Address);
                if (hit && !contains(matching, i))
                    below.push_back(i);
            }
        }
    }
    // A matching element opens, with everything below it shown; one that is
    // shown for a match below it opens to that match. Each gets an entry.
    std::size_t opened = 0;
    if (kidRows)
        for (const auto& [first, last] : matching)
            for (std::uint32_t i = first; i < last && opened < kMaxOpenedElements; ++i, ++opened) {
                const std::int32_t e = elementEntry(m_levels[levelIndex], i);
                m_entries[static_cast<std::size_t>(e)].generation = m_generation;
                m_entries[static_cast<std::size_t>(e)].state = kAll;
                setOpen(e, true);
            }
    for (const std::uint32_t i : below) {
        if (opened++ >= kMaxOpenedElements)
            break;
        filterVisit(elementEntry(m_levels[levelIndex], i));
    }
    Level& after = m_levels[levelIndex];  // levels may have been added
    after.matching = std::move(matching);
    after.shownIndexes = after.matching;
    for (const std::uint32_t i : below)
        after.shownIndexes.emplace_back(i, i + 1);
    normalise(after.shownIndexes);
    after.shown = positionsOf(after, after.shownIndexes);
    after.shownBefore = prefixCounts(after.shown);
    // Elements made before that the pass did not reach are hidden or shown whole.
    for (const auto& [i, e] : after.made) {
        Entry& entry = m_entries[static_cast<std::size_t>(e)];
        if (entry.generation == m_generation)
            continue;
        entry.generation = m_generation;
        entry.state = contains(after.matching, i) ? kAll : kHidden;
    }
    return !after.shownIndexes.empty();
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
    if (entry.level >= 0) {
        const bool any = filterLevel(static_cast<std::size_t>(entry.level));
        Entry& again = m_entries[static_cast<std::size_t>(e)];  // entries may have been added
        again.state = any ? kPartial : kHidden;
        if (any)
            setOpen(e, true);
        return any;
    }
    bool any = false;
    for (std::int32_t k = entry.kidsCount; k-- > 0;)
        any = filterVisit(m_kids[static_cast<std::size_t>(m_entries[static_cast<std::size_t>(e)].kidsBegin + k)]) || any;
    Entry& self = m_entries[static_cast<std::size_t>(e)];
    if (!any && e != 0) {
        self.state = kHidden;
        return false;
    }
    self.state = kPartial;
    self.shownBegin = static_cast<std::int32_t>(m_shown.size());
    std::int32_t row = 0;
    for (std::int32_t k = 0; k < self.kidsCount; ++k) {
        const std::int32_t kid = m_kids[static_cast<std::size_t>(self.kidsBegin + k)];
        Entry& kidEntry = m_entries[static_cast<std::size_t>(kid)];
        if (kidEntry.state == kHidden)
            continue;
        kidEntry.shownRow = row++;
        m_shown.push_back(kid);
    }
    self.shownCount = row;
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
