// The watch table on its own, on a real sample store, and the curve colours.
#include "tests/gui/GuiTestSupport.h"
#include "tests/view/GraphTestSupport.h"
#include "view/CurveColors.h"
#include "view/TableWidget.h"

#include <QAction>
#include <QColorDialog>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>

#include <set>

using guitest::newSymbol;

namespace {

struct WatchTableTest : guitest::ControllerTest {
    WatchTableTest() { table->resize(1200, 300); }

    // Adds a symbol to the selection and shows the selection.
    Node* add(const char* name, std::uint32_t size = 4, std::int32_t typeId = kTypeS32)
    {
        Node* n = newSymbol(*ctl, name, typeId, size);
        auto list = ctl->symbols().selected();
        list.push_back(n);
        ctl->symbols().setSelected(list);
        table->_SlotOnUpdateTable();
        return n;
    }

    // Stores one record per row of `records` (one raw value per selected symbol), 1 ms apart.
    void feed(const std::vector<std::vector<std::uint64_t>>& records)
    {
        const auto count = static_cast<std::uint32_t>(records.size());
        graphtest::fill(ctl->store(), ctl->symbols().selected(), count, [&](std::uint32_t i) { return nextTime + i * 1000; },
                        [&](std::size_t s, std::uint32_t i) { return records[i][s]; });
        nextTime += count * 1000;
    }

    QString cell(int row, int column) const
    {
        const QTableWidgetItem* item = table->item(row, column);
        return item ? item->text() : QStringLiteral("<none>");
    }
    QAction* menuEntry(int i) { return (menu = table->createContextMenu())->actions().at(i); }

    std::uint32_t nextTime = 0;
    std::unique_ptr<TableWidget> table = std::make_unique<TableWidget>(*ctl);
    std::unique_ptr<QMenu> menu;  // owns the actions last read
};

// Rows follow the selection, the add row below them, and a raw import's
// detaching and attaching: WatchWiringTest.
TEST_F(WatchTableTest, ARowShowsTheSymbolBeforeAnySample)
{
    Node* a = add("speed", 4, kTypeFloat);
    a->Address = 0x2000001C;
    a->Type = "float";
    add("count", 2, kTypeU16);
    EXPECT_EQ(table->symbolAt(2), nullptr) << "the add row has no symbol";
    QStringList texts;  // name to Y offset
    for (int c = TableWidget::kColName; c <= TableWidget::kColYOffset; ++c)
        texts << cell(0, c);
    EXPECT_EQ(texts, QStringList({"speed", "2000001C", "4", "float", "N/A", "N/A", "N/A", "N/A", "1/div", "0"}));
}

TEST_F(WatchTableTest, MenuActionsStepResolutionAndOffset)
{
    Node* n = add("v");
    table->selectRow(0);
    table->_SlotOnReleasedYResDown();
    EXPECT_EQ(n->symbol().YResolution, 1u) << "1 is the bottom of the series";
    EXPECT_TRUE(n->symbol().ManualYResolution) << "the graph's automatic range must not undo the user's choice";
    table->_SlotOnReleasedYResUp();
    table->_SlotOnReleasedYResUp();
    EXPECT_EQ(cell(0, TableWidget::kColYResolution), "5/div");  // the series itself: ScaleSteps

    // The offset moves by half a division.
    table->_SlotOnReleasedYOffsetUp();
    table->_SlotOnReleasedYOffsetUp();
    table->_SlotOnReleasedYOffsetDown();
    EXPECT_DOUBLE_EQ(n->symbol().YOffset, 0.5);
    EXPECT_EQ(cell(0, TableWidget::kColYOffset), "0.5");

    // Every menu edit is a change to the project; without a symbol row nothing changes.
    const auto state = [&] {
        const SelectedSymbol& y = n->symbol();
        return std::tuple(y.YOffset, y.YResolution, y.DrawStyle, y.ShowInGraph);
    };
    for (const int row : {0, -1, 1}) {  // the symbol, no row, the add row
        row < 0 ? table->clearSelection() : table->selectRow(row);
        int edit = 0;  // in the menu's order; Remove Symbol last and not on the symbol's row
        for (auto slot : {&TableWidget::_SlotOnReleasedShowHide, &TableWidget::_SlotOnReleasedYOffsetUp,
                          &TableWidget::_SlotOnReleasedYOffsetDown, &TableWidget::_SlotOnReleasedYResUp,
                          &TableWidget::_SlotOnReleasedYResDown, &TableWidget::_SlotOnReleasedDrawLine,
                          &TableWidget::_SlotOnReleasedRemoveSymbol}) {
            SCOPED_TRACE(testing::Message() << "edit " << edit++ << " on row " << row);
            if (row == 0 && slot == &TableWidget::_SlotOnReleasedRemoveSymbol)
                continue;
            ctl->project().setModified(false);
            const auto before = state();
            (table.get()->*slot)();
            EXPECT_EQ(ctl->project().isModified(), row == 0);
            EXPECT_TRUE(row == 0 || state() == before);
        }
    }
    EXPECT_EQ(ctl->symbols().selected().size(), 1u);
}

TEST_F(WatchTableTest, YOffsetCellTakesSignedWholeNumbersOnly)
{
    Node* n = add("v");
    QTableWidgetItem* offset = table->item(0, TableWidget::kColYOffset);
    QSignalSpy views(table.get(), &TableWidget::_SignalUpdateViews);
    const struct {
        const char* typed;
        double before, after;
    } cases[] = {
        {"1.5", 4.0, 4.0}, {"", 4.0, 0.0},      {"-2", 0.0, -2.0}, {"+7", 0.0, 7.0},    {"-", 4.0, 0.0},
        {"12abc", 4.0, 4.0}, {"1e3", 4.0, 4.0}, {" 5", 4.0, 4.0},  {"0005", 4.0, 5.0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.typed);
        n->symbol().YOffset = c.before;
        table->refresh();
        ctl->project().setModified(false);
        views.clear();
        offset->setText(c.typed);
        EXPECT_DOUBLE_EQ(n->symbol().YOffset, c.after);
        EXPECT_EQ(offset->text(), TableWidget::yOffsetText(c.after)) << "the cell shows the value";
        // The project file holds the offset.
        EXPECT_EQ(views.count(), c.after != c.before);
        EXPECT_EQ(ctl->project().isModified(), c.after != c.before);
    }

    // A change below 0.01 is no change; the refresh snaps such a tiny offset to 0.
    n->symbol().YOffset = 0.005;
    views.clear();
    offset->setText("0");
    EXPECT_DOUBLE_EQ(n->symbol().YOffset, 0.005);
    EXPECT_EQ(views.count(), 0);
    table->refresh();
    EXPECT_EQ(n->symbol().YOffset, 0.0);
}

TEST_F(WatchTableTest, ContextMenuShowDrawStyleAndRemoveRule)
{
    Node* n = add("v");
    table->selectRow(0);
    // Show: the check box and the menu entry go together; only a full tick shows the curve.
    QSignalSpy views(table.get(), &TableWidget::_SignalUpdateViews);
    QTableWidgetItem* check = table->item(0, TableWidget::kColShow);
    check->setCheckState(Qt::PartiallyChecked);
    EXPECT_FALSE(n->symbol().ShowInGraph);
    EXPECT_FALSE(menuEntry(0)->isChecked());
    check->setCheckState(Qt::Checked);
    EXPECT_TRUE(n->symbol().ShowInGraph);
    EXPECT_EQ(views.count(), 2);
    menuEntry(0)->trigger();
    EXPECT_FALSE(n->symbol().ShowInGraph);
    EXPECT_EQ(check->checkState(), Qt::Unchecked) << "the refresh follows";

    // Draw Line is ticked for lines (even styles) and toggles lines and points.
    const struct {
        std::int32_t style;
        bool shownChecked;
        std::int32_t after;
    } cases[] = {{0, true, 1}, {1, false, 0}, {2, true, 1}, {3, false, 0}};
    for (const auto& c : cases) {
        n->symbol().DrawStyle = c.style;
        EXPECT_EQ(menuEntry(5)->isChecked(), c.shownChecked) << c.style;
        menu->actions().at(5)->trigger();
        EXPECT_EQ(n->symbol().DrawStyle, c.after) << c.style;
    }

    ProjectSettings s = ctl->project().settings();
    s.IsQTXSession = true;
    ctl->project().apply(s);
    EXPECT_EQ(table->createContextMenu()->actions().size(), 6)
        << "no Remove Symbol: a QTX session takes its variables from the channel";
}

TEST_F(WatchTableTest, RemoveSymbolTakesItOutOfTheSelection)
{
    Node* a = add("a");
    Node* b = add("b");
    Node* c = add("c");
    ProjectSettings s = ctl->project().settings();
    s.TriggerSymbol = b;
    ctl->project().apply(s);
    QSignalSpy views(table.get(), &TableWidget::_SignalUpdateViews);
    table->selectRow(1);
    table->_SlotOnReleasedRemoveSymbol();
    EXPECT_EQ(ctl->symbols().selected(), (std::vector<Node*>{a, c}));
    EXPECT_TRUE(ctl->symbols().selectionChanged());
    EXPECT_EQ(cell(1, TableWidget::kColName), "c");
    EXPECT_EQ(ctl->project().settings().TriggerSymbol, nullptr) << "the trigger lost its symbol";
    EXPECT_TRUE(ctl->project().isModified());
    EXPECT_EQ(views.count(), 1);
}

TEST_F(WatchTableTest, ValuesAtTheCursorAndStatisticsSinceTheStart)
{
    add("f", 4, kTypeFloat);
    add("s", 2, kTypeS16);
    add("b", 1, kTypeBool);
    add("u", 4, kTypeU32);
    Node* bits = add("bits", 4, 14);
    bits->BitOffset = 3;
    bits->BitSize = 4;
    feed({
        {graphtest::bitsOf(9.5f), std::uint16_t(50), 0, 7, 0xFFFFFFFF},
        {graphtest::bitsOf(1.25f), std::uint16_t(-300), 1, 4000000000u, 0b1010'000},
        {graphtest::bitsOf(-2.5f), std::uint16_t(12), 0, 17, 0b0110'101},
    });
    const auto values = [&] {
        table->refresh();
        QStringList out;
        for (int r = 0; r < 5; ++r)
            out << cell(r, TableWidget::kColValue);
        return out;
    };
    // Without a cursor the newest record is shown (bits 3..6 of 0b0110101 read 6).
    EXPECT_EQ(values(), QStringList({"-2.5", "12", "false", "17", "6"}));
    std::optional<std::uint32_t> cursor = 1;
    table->setCursorRecordProvider([&] { return cursor; });
    EXPECT_EQ(values(), QStringList({"1.25", "-300", "true", "4000000000", "10"}));
    cursor = std::nullopt;
    EXPECT_EQ(values(), QStringList(5, "N/A")) << "no sample under the cursor";

    // Statistics count the samples after the store's first record.
    const auto statistics = [&](int row) {
        return QStringList{cell(row, TableWidget::kColMin), cell(row, TableWidget::kColMax),
                           cell(row, TableWidget::kColAverage)};
    };
    EXPECT_EQ(statistics(0), QStringList({"-2.5", "1.25", "-0.625"}));
    EXPECT_EQ(statistics(1), QStringList({"-300", "12", "-144"}));
    // A cleared store has nothing active: the statistics read N/A too.
    ctl->store().clear();
    table->refresh();
    EXPECT_EQ(statistics(1), QStringList(3, "N/A"));
}

TEST_F(WatchTableTest, WhileSamplingTheAddButtonAndRemovalAreOff)
{
    add("counter", 4, kTypeU32);
    ASSERT_EQ(ctl->postStartReading(), 0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ctl->samplingRunning() && ctl->store().recordCount() > 6; }));
    table->_SlotOnUpdateTable();
    EXPECT_FALSE(table->addButton()->isEnabled());
    table->selectRow(0);
    EXPECT_FALSE(menuEntry(6)->isEnabled());
    table->_SlotOnReleasedRemoveSymbol();
    EXPECT_EQ(ctl->symbols().selected().size(), 1u) << "no removal while sampling";

    ASSERT_EQ(ctl->postReadStop(), 0);
    ASSERT_TRUE(ctl->waitForQueue(5000));
    table->_SlotOnUpdateTable();
    EXPECT_TRUE(table->addButton()->isEnabled());
    EXPECT_TRUE(menuEntry(6)->isEnabled());
    EXPECT_NE(cell(0, TableWidget::kColValue), "N/A") << "the recording stays readable after the stop";
}

TEST_F(WatchTableTest, ColourButtonOpensTheDialogAtTheCurrentColour)
{
    Node* n = add("v");
    n->symbol().GraphColor = {255, 0, 0, 255};
    n->symbol().HasGraphColor = true;
    table->_SlotOnUpdateTable();
    table->show();
    QPushButton* button = table->colorButton(0);
    QSignalSpy views(table.get(), &TableWidget::_SignalUpdateViews);
    QColor offered;
    for (const bool accept : {true, false}) {
        guitest::whenShown<QColorDialog>([&](QColorDialog* d) {
            offered = d->currentColor();
            d->setCurrentColor(accept ? QColor(10, 20, 200) : QColor(0, 255, 0));
            accept ? d->accept() : d->reject();
        }, table.get());
        QTest::mouseClick(button, Qt::LeftButton);
        EXPECT_EQ(n->symbol().GraphColor, (Rgb{10, 20, 200, 255})) << "cancel keeps the colour";
        EXPECT_EQ(button->palette().color(QPalette::Button), QColor(10, 20, 200));
        EXPECT_EQ(views.count(), 1);
    }
    EXPECT_EQ(offered, QColor(10, 20, 200)) << "the dialog opens at the current colour";
}

TEST(CurveColors, ClampedWhereDrawnAndTheNextFreePaletteColour)
{
    EXPECT_EQ(curvecolors::toQColor({300, -5, 256, 255}), QColor(255, 0, 255));
    EXPECT_EQ(curvecolors::toQColor({INT32_MIN, INT32_MAX, 0, 255}), QColor(0, 255, 0));

    std::vector<Node> nodes(15);
    std::vector<Node*> list;
    for (Node& n : nodes)
        list.push_back(&n);
    const auto& palette = curvecolors::palette();
    // A symbol that already has a colour keeps it; the others avoid it.
    nodes[1].symbol().GraphColor = palette[0];
    nodes[1].symbol().HasGraphColor = true;
    std::vector<Node*> firstThree(list.begin(), list.begin() + 3);
    EXPECT_EQ(curvecolors::assign(firstThree), 2u);
    EXPECT_EQ((std::vector<Rgb>{nodes[0].symbol().GraphColor, nodes[1].symbol().GraphColor, nodes[2].symbol().GraphColor}),
              (std::vector<Rgb>{palette[1], palette[0], palette[2]}));
    EXPECT_EQ(curvecolors::assign(firstThree), 0u) << "nothing left without a colour";
    // The whole palette is used before any colour repeats.
    EXPECT_EQ(curvecolors::assign(list), 12u);
    std::set<std::tuple<int, int, int>> distinct;
    for (const Node& n : nodes) {
        const Rgb c = n.symbol().GraphColor;
        distinct.insert({c.red, c.green, c.blue});
        EXPECT_TRUE(std::find(palette.begin(), palette.end(), c) != palette.end());
    }
    EXPECT_EQ(distinct.size(), curvecolors::kPaletteSize);
}

}  // namespace
