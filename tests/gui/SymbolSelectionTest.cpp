// The symbol selection dialog and its tree model, on trees made in memory.
#include "base/Text.h"
#include "gui/SymbolSelection.h"
#include "gui/SymbolTreeModel.h"
#include "gui/SymbolTreeView.h"
#include "symbols/SymbolDatabase.h"
#include "symbols/SymbolTree.h"
#include "tests/gui/GuiTestSupport.h"

#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>

#include <tuple>

namespace {

// Counts the announcements of a selection change.
struct ChangeCount : TestBridge {
    void symbolsAboutToChange() override { ++aboutToChange; }
    int aboutToChange = 0;
};

std::vector<std::string> namesBelow(const SymbolTreeModel& model, const QModelIndex& parent)
{
    std::vector<std::string> out;
    for (int r = parent.row() + 1; r < model.rowCount(); ++r) {
        const QModelIndex i = model.index(r, 0);
        if (model.depth(i) <= model.depth(parent))
            break;
        if (model.depth(i) == model.depth(parent) + 1)
            out.push_back(i.data().toString().toStdString());
    }
    return out;
}

// Makes the nodes of a tree by hand, as the builder would.
struct TreeMaker {
    std::unique_ptr<SymbolTree> tree = std::make_unique<SymbolTree>();

    Node* file(const char* path)
    {
        Node* n = tree->arena.create();
        n->File = text::intern(path);
        tree->files.push_back(n);
        return n;
    }
    // A node below a file row (a top-level variable) or below a parent node;
    // an array's element model (`listed` false) is not one of its children.
    Node* add(Node* above, std::string name, const char* type, std::uint32_t size, std::uint32_t address, bool isSigned,
              std::uint32_t tag = 0, bool listed = true)
    {
        Node* n = tree->arena.create();
        n->Name = std::move(name);
        n->Type = text::intern(type);
        n->File = above->File;
        n->Tag = tag;
        n->Size = size;
        n->Address = address;
        n->IsSigned = isSigned;
        n->Parent = above->Name.empty() ? nullptr : above;
        if (listed)
            above->addChild(n);
        if (!tag)
            symtree::classify(*n);
        n->NameWithParents = symtree::nameWithParents(*n);
        return n;
    }
    // Classified once its children or elements are there.
    Node* array(Node* above, const char* name, const char* type, std::uint32_t count, std::uint32_t stride,
                std::uint32_t address)
    {
        Node* n = add(above, name, type, count * stride, address, false, kTagArray);
        n->IsArray = true;
        n->Dimensions = {count};
        n->NumDimensions = 1;
        return n;
    }
};

// Three source files; "main" is in a file path, a name and a type.
struct Tree {
    Tree()
    {
        TreeMaker m;
        mainFile = m.file("/src/app/main.c");
        counter = m.add(mainFile, "counter", "unsigned int", 4, 0x2000000C, false);
        wide = m.add(mainFile, "wide", "long long unsigned int", 8, 0x20000018, false);
        cfg = m.add(mainFile, "cfg", "struct config", 8, 0x20001000, false, kTagStruct);
        gain = m.add(cfg, "gain", "float", 4, 0x20001000, true);
        mode = m.add(cfg, "mode", "unsigned char", 1, 0x20001004, false);
        buf = m.array(mainFile, "buf", "int[3]", 3, 4, 0x20002000);
        for (std::uint32_t i = 0; i < 3; ++i)
            elements.push_back(m.add(buf, "buf[" + std::to_string(i) + "]", "int", 4, 0x20002000u + 4u * i, true));
        uartFile = m.file("/src/drivers/uart.c");
        uartState = m.add(uartFile, "uart_state", "unsigned char", 1, 0x30000000, false);
        mainMode = m.add(uartFile, "main_mode", "int", 4, 0x30000004, true);
        link = m.add(uartFile, "link", "struct main_link", 4, 0x30000008, false, kTagStruct);
        linkId = m.add(link, "id", "unsigned int", 4, 0x30000008, false);
        otherFile = m.file("/src/lib/other.c");
        tick = m.add(otherFile, "tick", "unsigned int", 4, 0x40000000, false);
        for (Node* n : {cfg, buf, link})
            symtree::classify(*n);
        db.setTree(std::move(m.tree));
    }

    SymbolDatabase db;
    Node *mainFile, *uartFile, *otherFile;
    Node *counter, *wide, *cfg, *gain, *mode, *buf, *uartState, *mainMode, *link, *linkId, *tick;
    std::vector<Node*> elements;
};

class SymbolSelectionTest : public ::testing::Test {
protected:
    void open()
    {
        dialog = std::make_unique<SymbolSelection>(t.db, &log);
        dialog->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(dialog.get()));
    }
    SymbolTreeModel* model() const { return dialog->model(); }
    SymbolTreeView* view() const { return dialog->tree(); }
    QModelIndex row(const Node* n, int column = 0) const { return model()->indexOf(n, column); }
    // Not hidden by the filter (its row may sit inside a collapsed one).
    bool shown(const Node* n) const { return model()->passesFilter(n); }
    bool expanded(const Node* n) const { return model()->isExpanded(n); }
    // The names of the rows directly below `parent`'s row, in display order.
    std::vector<std::string> childRows(const Node* parent) const { return namesBelow(*model(), row(parent)); }
    void filter(const QString& s)
    {
        dialog->filterLine()->setText(s);
        QApplication::processEvents();
    }
    void tick(const Node* n, bool on)
    {
        ASSERT_TRUE(shown(n));
        ASSERT_TRUE(model()->setData(row(n, SymbolTreeModel::kColSelect), on ? Qt::Checked : Qt::Unchecked, Qt::CheckStateRole));
    }
    int topRows() const
    {
        int n = 0;
        for (int r = 0; r < model()->rowCount(); ++r)
            n += model()->depth(model()->index(r, 0)) == 0;
        return n;
    }

    Tree t;
    ChangeCount log;
    std::unique_ptr<SymbolSelection> dialog;
};

}  // namespace

TEST_F(SymbolSelectionTest, OnlyLeavesHaveCheckBoxesAndSixtyFourBitLeavesAreDisabled)
{
    open();
    const int sel = SymbolTreeModel::kColSelect;
    const std::tuple<const Node*, bool, bool> cases[] = {
        {t.counter, true, true}, {t.wide, true, false},  {t.cfg, false, true},         {t.gain, true, true},
        {t.mode, true, true},    {t.buf, false, true},   {t.elements[2], true, true}, {t.link, false, true},
        {t.linkId, true, true},  {t.tick, true, true},
    };
    for (int r = 0; r < model()->rowCount(); ++r)
        model()->setExpanded(model()->index(r, 0), true);
    for (const auto& [node, checkBox, enabled] : cases) {
        const QModelIndex i = row(node, sel);
        ASSERT_TRUE(i.isValid()) << node->NameWithParents;
        EXPECT_EQ(i.data(Qt::CheckStateRole).isValid(), checkBox) << node->NameWithParents;
        EXPECT_EQ(bool(i.flags() & Qt::ItemIsEnabled), enabled) << node->NameWithParents;
        EXPECT_EQ(bool(row(node, 0).flags() & Qt::ItemIsEnabled), enabled) << "the whole row";
    }
    EXPECT_FALSE(model()->setData(row(t.wide, sel), Qt::Checked, Qt::CheckStateRole));
    EXPECT_TRUE(dialog->pending().empty());
}

// The filter keeps the rows whose file path, name, type or address (its
// hexadecimal digits in any case) holds the text, and their ancestors;
// matching rows open, rows below a match stay collapsed; clearing it leaves
// only the file rows open.
TEST_F(SymbolSelectionTest, FilterShowsMatchesAndTheirAncestors)
{
    open();
    const struct {
        const char* text;
        int topRows;
        std::vector<const Node*> shown, hidden, open, closed;
    } cases[] = {
        {"0x2000", 1, {t.counter, t.wide, t.cfg, t.buf, t.gain, t.elements[1]}, {t.uartFile, t.uartState, t.tick},
         {t.mainFile, t.cfg, t.buf}, {}},
        {"0x2000000c", 1, {t.counter}, {t.wide}, {}, {}},
        {"0X2000000C", 1, {t.counter}, {t.wide}, {}, {}},
        // main.c by its path, uart.c by the names and types of its variables.
        {"MAIN", 2, {t.counter, t.wide, t.cfg, t.buf, t.gain, t.mainMode, t.link, t.linkId}, {t.uartState, t.tick},
         {t.link, t.uartFile}, {t.cfg}},
        {"", 3, {t.cfg, t.buf, t.link, t.linkId}, {}, {t.mainFile, t.uartFile, t.otherFile}, {t.cfg, t.buf, t.link}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        filter(c.text);
        EXPECT_EQ(topRows(), c.topRows);
        for (const Node* n : c.shown)
            EXPECT_TRUE(shown(n)) << n->NameWithParents;
        for (const Node* n : c.hidden)
            EXPECT_FALSE(shown(n)) << n->NameWithParents;
        for (const Node* n : c.open)
            EXPECT_TRUE(expanded(n)) << n->NameWithParents;
        for (const Node* n : c.closed)
            EXPECT_FALSE(expanded(n)) << n->NameWithParents;
    }
}

TEST_F(SymbolSelectionTest, CancelAfterTickingKeepsTheSelection)
{
    t.db.setSelected({t.tick});
    t.db.setSelectionChanged(false);
    open();
    EXPECT_EQ(row(t.tick, SymbolTreeModel::kColSelect).data(Qt::CheckStateRole).toInt(), Qt::Checked);
    tick(t.counter, true);
    tick(t.tick, false);
    EXPECT_EQ(dialog->pending(), std::vector<Node*>{t.counter});
    QTest::mouseClick(dialog->cancelButton(), Qt::LeftButton);
    EXPECT_EQ(dialog->result(), QDialog::Rejected);
    EXPECT_EQ(t.db.selected(), std::vector<Node*>{t.tick});
    EXPECT_FALSE(t.db.selectionChanged());
    EXPECT_EQ(log.symbolChanges.load(), 0);
}

// Ticks survive filtering and come after the rows already selected, in the
// order given; arrays have no box.
TEST_F(SymbolSelectionTest, OkSelectsInTickingOrderAfterTheRowsAlreadySelected)
{
    t.db.setSelected({t.tick, t.mode});  // tree order puts cfg.mode first
    open();
    EXPECT_EQ(dialog->pending(), (std::vector<Node*>{t.mode, t.tick}));
    filter("uart");
    tick(t.uartState, true);
    filter("");
    model()->setExpanded(row(t.buf), true);
    tick(t.elements[1], true);
    tick(t.counter, true);
    tick(t.uartState, false);
    tick(t.uartState, true);
    EXPECT_FALSE(model()->setData(row(t.buf, SymbolTreeModel::kColSelect), Qt::Checked, Qt::CheckStateRole));
    QSignalSpy committed(dialog.get(), &SymbolSelection::_SignalSelectionChanged);
    QTest::mouseClick(dialog->okButton(), Qt::LeftButton);
    EXPECT_EQ(dialog->result(), QDialog::Accepted);
    EXPECT_EQ(committed.count(), 1);
    EXPECT_EQ(t.db.selected(), (std::vector<Node*>{t.mode, t.tick, t.elements[1], t.counter, t.uartState}));
    EXPECT_TRUE(t.db.selectionChanged());
    EXPECT_EQ(log.aboutToChange, 1);
    EXPECT_EQ(log.symbolChanges.load(), 1);
}

// Sorting is numeric on the size column and keeps open rows open; rows open
// by their arrow or the keys.
TEST_F(SymbolSelectionTest, SortingAndOpeningRows)
{
    open();
    model()->setExpanded(row(t.cfg), true);
    view()->sortByColumn(SymbolTreeModel::kColSize, Qt::AscendingOrder);
    EXPECT_EQ(childRows(t.mainFile), (std::vector<std::string>{"counter", "wide", "cfg", "buf"}));  // 4, 8, 8, 12 bytes
    EXPECT_TRUE(expanded(t.cfg)) << "open rows stay open";
    EXPECT_EQ(childRows(t.cfg), (std::vector<std::string>{"mode", "gain"}));
    view()->sortByColumn(SymbolTreeModel::kColName, Qt::AscendingOrder);
    EXPECT_EQ(childRows(t.mainFile), (std::vector<std::string>{"buf", "cfg", "counter", "wide"}));
    model()->setExpanded(row(t.cfg), false);

    view()->setFocus();
    const QRect arrow = view()->arrowRect(row(t.cfg));
    QTest::mouseClick(view()->viewport(), Qt::LeftButton, {}, arrow.center());
    EXPECT_TRUE(row(t.gain).isValid());
    // Right opens, Right again steps in, Left steps out and closes.
    view()->setCurrentIndex(row(t.link));
    const std::tuple<Qt::Key, const Node*, bool> keys[] = {
        {Qt::Key_Right, t.link, true}, {Qt::Key_Right, t.linkId, true}, {Qt::Key_Left, t.link, true},
        {Qt::Key_Left, t.link, false}, {Qt::Key_Plus, t.link, true},    {Qt::Key_Minus, t.link, false},
    };
    for (const auto& [key, current, open] : keys) {
        QTest::keyClick(view(), key);
        EXPECT_EQ(model()->node(view()->currentIndex()), current) << key;
        EXPECT_EQ(expanded(t.link), open) << key;
    }
}

// OK with a changed selection marks the project modified (the title gets its
// " *" and closing asks), and a trigger on a symbol no longer selected goes.
using SymbolSelectionRequest = guitest::ControllerTest;

TEST_F(SymbolSelectionRequest, OkWithAChangedSelectionMarksTheProjectModified)
{
    // A project whose selected symbol is not in the (empty) tree: OK drops it.
    Node* old = guitest::newSymbol(*ctl, "gone");
    ctl->symbols().setSelected({old});
    ProjectSettings s = ctl->project().settings();
    s.TriggerSymbol = old;
    s.TriggerOn = s.TriggerRise = true;
    ctl->project().apply(s);
    openProject();
    bool committed = false;
    guitest::whenShown<SymbolSelection>([](SymbolSelection* d) { QTest::mouseClick(d->okButton(), Qt::LeftButton); });
    SymbolSelection::request(*ctl, &bridge, nullptr, [&] { committed = true; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return committed; }));
    EXPECT_TRUE(ctl->project().isModified());
    EXPECT_TRUE(ctl->symbols().selected().empty());
    EXPECT_EQ(ctl->project().settings().TriggerSymbol, nullptr);
    EXPECT_NE(bridge.title.find(" *]"), std::string::npos) << bridge.title;
}

// While the dialog is open the worker takes no job (the dialog edits the
// tree the jobs read), and a second request meanwhile is dropped.
using SymbolSelectionWindow = guitest::WindowTest;

TEST_F(SymbolSelectionWindow, OpensFromTheMainWindowWithTheWorkerParked)
{
    ASSERT_TRUE(ctl->waitForQueue(5000));
    bool seen = false, parked = false, secondOpened = false;
    guitest::whenShown<SymbolSelection>([&](SymbolSelection* d) {
        seen = true;
        parked = !ctl->waitForQueue(200);  // a job posted now does not run yet
        SymbolSelection::request(*ctl, nullptr, nullptr, [&] { secondOpened = true; });
        QTest::mouseClick(d->cancelButton(), Qt::LeftButton);
    });
    window->showSymbolSelection();  // as a job or the watch table's button asks
    ASSERT_TRUE(QTest::qWaitFor([&] { return seen && !QApplication::activeModalWidget(); }));
    EXPECT_EQ(std::tuple(parked, secondOpened), std::tuple(true, false));
    EXPECT_TRUE(ctl->waitForQueue(5000)) << "the worker goes on once the dialog is closed";
    QTest::qWait(50);
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr) << "the second request opened nothing later";
}

// An array the tree's limits left unexpanded (here one whose elements would
// run past the 32-bit address space, so no budget helps) has no check box and
// a tooltip that says why; a zero-length array keeps its ordinary row.
TEST(SymbolTreeModel, UnexpandableArraysHaveNoCheckBox)
{
    SymbolDatabase db;
    ASSERT_EQ(db.parseElf(std::string(PLOTVIK_SYMBOLS_CORPUS) + "/hostile_dwarf4/hostile_wide_array.elf", false, nullptr), 0);
    SymbolTreeModel model(db.tree(), {}, {});
    for (const Node* f : db.tree()->files)
        model.setExpanded(model.indexOf(f), true);
    const auto cell = [&](const char* name) {
        for (const Node* f : db.tree()->files)
            for (const Node* n = f->Children; n; n = n->Next)
                if (n->Name == name)
                    return model.indexOf(n, SymbolTreeModel::kColSelect);
        return QModelIndex();
    };
    const QModelIndex wide = cell("wide"), zero = cell("empty_run");
    ASSERT_TRUE(wide.isValid());
    EXPECT_FALSE(model.flags(wide) & Qt::ItemIsUserCheckable);
    EXPECT_FALSE(wide.data(Qt::CheckStateRole).isValid());
    EXPECT_FALSE(model.setData(wide, Qt::Checked, Qt::CheckStateRole));
    EXPECT_TRUE(wide.data(Qt::ToolTipRole).toString().contains("32-bit address space"));
    ASSERT_TRUE(zero.isValid());
    EXPECT_TRUE(model.flags(zero) & Qt::ItemIsUserCheckable);
    EXPECT_TRUE(zero.data(Qt::CheckStateRole).isValid());
    EXPECT_FALSE(zero.data(Qt::ToolTipRole).isValid());
}

// ---------------------------------------------------------------------------
// Long arrays: their elements are runs of rows, made only when ticked or
// opened, and sort, filter and tick as if each were a node.

namespace {

// big: int[5000] at 0x20000000; recs: struct { unsigned char a; int zeta; }[6000] at 0x20010000.
struct LongArrays {
    SymbolDatabase db;
    Node *file = nullptr, *big = nullptr, *recs = nullptr;
    LongArrays()
    {
        TreeMaker m;
        file = m.file("/src/long.c");
        big = m.array(file, "big", "int[5000]", 5000, 4, 0x20000000);
        big->ElementModel = m.add(big, "big[0]", "int", 4, 0x20000000, true, 0, false);
        recs = m.array(file, "recs", "struct rec[6000]", 6000, 8, 0x20010000);
        Node* rec = m.add(recs, "recs[0]", "struct rec", 8, 0x20010000, false, kTagStruct, false);
        recs->ElementModel = rec;
        m.add(rec, "a", "unsigned char", 1, 0x20010000, true);
        m.add(rec, "zeta", "int", 4, 0x20010004, true);
        for (Node* n : {big, recs}) {
            n->ElementCount = n->Dimensions[0];
            n->ElementStride = n->Size / n->ElementCount;
        }
        for (Node* n : {rec, big, recs})
            symtree::classify(*n);
        db.setTree(std::move(m.tree));
    }
    NodeArena& arena() { return db.tree()->arena; }
};

}  // namespace

TEST(SymbolTreeModel, LongArraysSortAsTextAndOpenWithoutMakingTheirElements)
{
    LongArrays t;
    SymbolTreeModel model(t.db.tree(), {}, {});
    model.setExpanded(model.indexOf(t.file), true);
    std::vector<std::string> names;
    for (int i = 0; i < 5000; ++i)
        names.push_back("big[" + std::to_string(i) + "]");
    std::stable_sort(names.begin(), names.end());
    const std::size_t before = t.arena().size();
    for (const auto order : {Qt::AscendingOrder, Qt::DescendingOrder}) {
        model.sort(SymbolTreeModel::kColName, order);
        model.setExpanded(model.indexOf(t.big), true);
        EXPECT_EQ(namesBelow(model, model.indexOf(t.big)), names) << "order " << order;
        std::reverse(names.begin(), names.end());
        model.sort(SymbolTreeModel::kColAddress, order);
        const std::vector<std::string> byAddress = namesBelow(model, model.indexOf(t.big));
        ASSERT_EQ(byAddress.size(), 5000u);
        EXPECT_EQ(byAddress[1], order == Qt::AscendingOrder ? "big[1]" : "big[4998]");
        model.setExpanded(model.indexOf(t.big), false);
    }
    EXPECT_EQ(t.arena().size(), before) << "no element made to show it";
    // An element's cells, and the branch it draws.
    model.setExpanded(model.indexOf(t.big), true);
    const QModelIndex first = model.index(model.indexOf(t.big).row() + 1, 0);
    EXPECT_EQ(first.siblingAtColumn(SymbolTreeModel::kColAddress).data().toString(), "0x20004E1C");
    EXPECT_EQ(first.siblingAtColumn(SymbolTreeModel::kColSelect).data(Qt::CheckStateRole).toInt(), Qt::Unchecked);
    EXPECT_EQ(model.depth(first), 2);
    EXPECT_TRUE(model.laterSiblings(first) & (1u << 2));
}

TEST(SymbolTreeModel, LongArraysFilterTickAndOpenLikeNodes)
{
    LongArrays t;
    SymbolTreeModel model(t.db.tree(), {}, {});
    const std::pair<const char*, std::vector<std::string>> cases[] = {  // the rows below the file row
        {"big[3000]", {"big", "big[3000]"}},
        {"BIG[4999", {"big", "big[4999]"}},
        {"[49", {"big", "big[49]", "big[490]", "big[491]", "big[492]", "big[493]"}},
        {"0x20002ee0", {"big", "big[3000]"}},
        {"recs[5999]", {"recs", "recs[5999]", "a", "zeta"}},
        {"0x2001bb7c", {"recs", "recs[5999]", "zeta"}},
        {"big[5000]", {}},
    };
    for (const auto& [text, expected] : cases) {
        model.applyFilter(text);
        std::vector<std::string> rows;
        for (int r = 1; r < model.rowCount() && rows.size() < 6; ++r)
            rows.push_back(model.index(r, 0).data().toString().toStdString());
        EXPECT_EQ(rows, expected) << text;
    }
    // Ticking an element makes it, at its own address.
    model.applyFilter("big[4321]");
    QSignalSpy changed(&model, &SymbolTreeModel::itemChanged);
    const QModelIndex cell = model.index(2, SymbolTreeModel::kColSelect);
    ASSERT_TRUE(model.setData(cell, Qt::Checked, Qt::CheckStateRole));
    EXPECT_EQ(changed.count(), 1);
    const Node* picked = model.node(cell);
    ASSERT_NE(picked, nullptr);
    EXPECT_EQ(picked->NameWithParents, "big[4321]");
    EXPECT_EQ(picked->Address, 0x20000000u + 4 * 4321);
    EXPECT_TRUE(model.isTicked(picked));
    model.applyFilter("");
    EXPECT_TRUE(model.passesFilter(picked));
    EXPECT_EQ(model.indexOf(picked), QModelIndex()) << "inside the collapsed array";
    // A member that every element holds opens the first elements; so does a
    // name that every element matches.
    model.applyFilter("zeta");
    EXPECT_EQ(model.rowCount(), 2 + 2 * static_cast<int>(SymbolTreeModel::kMaxOpenedElements));
    model.applyFilter("recs[");
    EXPECT_EQ(model.rowCount(), 2 + 6000 + 2 * static_cast<int>(SymbolTreeModel::kMaxOpenedElements));
}
