// The watch table on its own: rows, the live columns read from a real sample
// store, editing in place, the context menu's actions and rules, the colour
// dialog, and the curve colours handed to new symbols.
#include "app/Controller.h"
#include "app/JobEngine.h"
#include "tests/app/FakeSampler.h"
#include "view/CurveColors.h"
#include "view/TableWidget.h"

#include <QAction>
#include <QApplication>
#include <QColorDialog>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <set>

namespace {

class WatchTableTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ctl = std::make_unique<Controller>(engine, std::make_unique<FakeSampler>());
        table = std::make_unique<TableWidget>(*ctl);
        table->resize(1200, 300);
    }
    void TearDown() override
    {
        table.reset();
        engine.stopAndWait([] { QApplication::processEvents(); });
        ctl.reset();
    }

    Node* addSymbol(const char* name, std::uint32_t size, std::int32_t typeId, std::uint32_t address = 0x20000000,
                    const char* type = "int")
    {
        Node* n = ctl->symbols().createDetachedSymbol();
        n->Name = name;
        n->NameWithParents = std::string("g.") + name;
        n->Size = size;
        n->TypeID = typeId;
        n->Address = address;
        n->Type = type;
        auto list = ctl->symbols().selected();
        list.push_back(n);
        ctl->symbols().setSelected(list);
        return n;
    }
    // Shows the current selection.
    void show() { table->_SlotOnUpdateTable(); }

    // Prepares the store as a fresh start does and stores one record per row
    // of `values` (one raw value per selected symbol).
    void startStore() {
        SampleStore& store = ctl->store();
        store.layOut(true);
        ASSERT_TRUE(store.prepareFreshStart());
        store.resetStatistics();
        store.setOpen(true);
    }
    void feed(const std::vector<std::vector<std::uint64_t>>& records)
    {
        SampleStore& store = ctl->store();
        std::vector<std::uint8_t> bytes;
        for (const auto& values : records) {
            std::vector<std::uint8_t> rec(store.recordSize());
            std::memcpy(rec.data(), &nextTime, 4);
            nextTime += 1000;
            const auto& selected = ctl->symbols().selected();
            for (std::size_t s = 0; s < selected.size(); ++s)
                std::memcpy(rec.data() + selected[s]->symbol().Offset, &values[s], selected[s]->Size);
            bytes.insert(bytes.end(), rec.begin(), rec.end());
        }
        store.storeRecords(bytes.data(), bytes.size());
    }

    QString cell(int row, int column) const
    {
        const QTableWidgetItem* item = table->item(row, column);
        return item ? item->text() : QStringLiteral("<none>");
    }
    void selectRow(int row) { table->selectRow(row); }

    std::uint32_t nextTime = 0;
    JobEngine engine;
    std::unique_ptr<Controller> ctl;
    std::unique_ptr<TableWidget> table;
};

std::uint64_t rawFloat(float f)
{
    std::uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}

std::uint64_t rawS16(std::int16_t v) { return static_cast<std::uint16_t>(v); }

// --- rows ------------------------------------------------------------------

TEST_F(WatchTableTest, HeadersAndOneRowPerSymbolWithTheAddRowBelow)
{
    const QStringList headers = {"", "Color", "Name", "Address", "Size", "Type", "Value", "Min", "Max",
                                 "Moving Average", "Y Resolution", "Y Offset", ""};
    ASSERT_EQ(table->columnCount(), headers.size());
    for (int c = 0; c < headers.size(); ++c)
        EXPECT_EQ(table->horizontalHeaderItem(c)->text(), headers[c]) << c;

    EXPECT_EQ(table->rowCount(), 1) << "only the add row without symbols";
    addSymbol("speed", 4, kTypeFloat, 0x2000001C, "float");
    addSymbol("count", 2, kTypeU16, 0x20000ABC, "unsigned short");
    show();
    ASSERT_EQ(table->rowCount(), 3);
    EXPECT_EQ(table->symbolRowCount(), 2);
    EXPECT_EQ(cell(0, TableWidget::kColName), "g.speed");
    EXPECT_EQ(cell(0, TableWidget::kColAddress), "2000001C");
    EXPECT_EQ(cell(0, TableWidget::kColSize), "4");
    EXPECT_EQ(cell(0, TableWidget::kColType), "float");
    EXPECT_EQ(cell(1, TableWidget::kColAddress), "20000ABC");
    EXPECT_EQ(cell(1, TableWidget::kColType), "unsigned short");
    for (int c : {TableWidget::kColValue, TableWidget::kColMin, TableWidget::kColMax, TableWidget::kColAverage})
        EXPECT_EQ(cell(1, c), "N/A") << "nothing sampled yet, column " << c;
    EXPECT_EQ(cell(0, TableWidget::kColYResolution), "1/div");
    EXPECT_EQ(cell(0, TableWidget::kColYOffset), "0");

    // Only the Y offset and the show check can be changed in place.
    EXPECT_TRUE(table->item(0, TableWidget::kColYOffset)->flags() & Qt::ItemIsEditable);
    EXPECT_TRUE(table->item(0, TableWidget::kColShow)->flags() & Qt::ItemIsUserCheckable);
    for (int c = TableWidget::kColName; c <= TableWidget::kColYResolution; ++c)
        EXPECT_FALSE(table->item(0, c)->flags() & Qt::ItemIsEditable) << c;

    QPushButton* add = table->addButton();
    ASSERT_NE(add, nullptr);
    EXPECT_EQ(add->text(), "+");
    EXPECT_EQ(add->styleSheet(), "font-weight: bold;");
    EXPECT_EQ(table->cellWidget(2, TableWidget::kColShow), add);
    QSignalSpy asked(table.get(), &TableWidget::_SignalShowSymbolSelection);
    table->show();
    QTest::mouseClick(add, Qt::LeftButton);
    EXPECT_EQ(asked.count(), 1);
}

TEST_F(WatchTableTest, TheSelectionDecidesTheRowsAndEachSymbolKnowsItsButton)
{
    Node* a = addSymbol("a", 4, kTypeS32);
    Node* b = addSymbol("b", 4, kTypeS32);
    show();
    EXPECT_EQ(table->symbolAt(0), a);
    EXPECT_EQ(table->symbolAt(1), b);
    EXPECT_EQ(table->symbolAt(2), nullptr) << "the add row has no symbol";
    EXPECT_EQ(a->symbol().TableRow, table->colorButton(0));
    EXPECT_EQ(b->symbol().TableRow, table->colorButton(1));

    ctl->symbols().setSelected({b});
    show();
    EXPECT_EQ(table->symbolRowCount(), 1);
    EXPECT_EQ(table->symbolAt(0), b);

    // While the records are being replaced the table keeps away from them.
    table->detachSymbols();
    EXPECT_EQ(table->symbolRowCount(), 0);
    ctl->symbols().setSelected({a, b});
    show();
    EXPECT_EQ(table->symbolRowCount(), 0);
    table->attachSymbols();
    EXPECT_EQ(table->symbolRowCount(), 2);
}

// --- Y resolution ------------------------------------------------------------

TEST_F(WatchTableTest, YResolutionStepsAlongTheSeries)
{
    Node* n = addSymbol("v", 4, kTypeS32);
    show();
    selectRow(0);
    n->symbol().YResolution = 5;
    EXPECT_FALSE(n->symbol().ManualYResolution);
    table->_SlotOnReleasedYResUp();
    EXPECT_EQ(n->symbol().YResolution, 10u);
    EXPECT_TRUE(n->symbol().ManualYResolution) << "the graph's automatic range must not undo the user's choice";
    n->symbol().ManualYResolution = false;
    table->_SlotOnReleasedYResDown();
    EXPECT_TRUE(n->symbol().ManualYResolution);
    table->_SlotOnReleasedYResUp();
    EXPECT_EQ(cell(0, TableWidget::kColYResolution), "10/div");
    table->_SlotOnReleasedYResDown();
    EXPECT_EQ(n->symbol().YResolution, 5u);
    n->symbol().YResolution = 1;
    table->_SlotOnReleasedYResDown();
    EXPECT_EQ(n->symbol().YResolution, 1u) << "1 is the bottom of the series";

    // From 1 upwards the actions walk 1, 2, 5, 10, ... and back again.
    const std::uint32_t series[] = {1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000};
    for (std::size_t i = 1; i < std::size(series); ++i) {
        table->_SlotOnReleasedYResUp();
        EXPECT_EQ(n->symbol().YResolution, series[i]);
    }
    for (std::size_t i = std::size(series) - 1; i-- > 0;) {
        table->_SlotOnReleasedYResDown();
        EXPECT_EQ(n->symbol().YResolution, series[i]);
    }
}

TEST_F(WatchTableTest, YResolutionTexts)
{
    Node* n = addSymbol("v", 4, kTypeS32);
    show();
    const struct {
        std::uint32_t resolution;
        const char* text;
    } cases[] = {
        {1, "1/div"},       {999, "999/div"},         {1000, "1k/div"},         {20000, "20k/div"},
        {999999, "999k/div"}, {2000000, "2M/div"}, {2000000000, "2000M/div"},
    };
    for (const auto& c : cases) {
        n->symbol().YResolution = c.resolution;
        table->refresh();
        EXPECT_EQ(cell(0, TableWidget::kColYResolution), c.text) << c.resolution;
    }
}

// --- Y offset ----------------------------------------------------------------

TEST_F(WatchTableTest, YOffsetCellTakesSignedWholeNumbersOnly)
{
    Node* n = addSymbol("v", 4, kTypeS32);
    show();
    QTableWidgetItem* offset = table->item(0, TableWidget::kColYOffset);
    QSignalSpy views(table.get(), &TableWidget::_SignalUpdateViews);

    EXPECT_FALSE(ctl->project().isModified());
    offset->setText("3");
    EXPECT_DOUBLE_EQ(n->symbol().YOffset, 3.0);
    EXPECT_EQ(views.count(), 1);
    EXPECT_TRUE(ctl->project().isModified()) << "the project file holds the offset";

    offset->setText("1.5");
    EXPECT_DOUBLE_EQ(n->symbol().YOffset, 3.0) << "a fraction does not match";
    EXPECT_EQ(offset->text(), "3") << "the cell shows the old value again";
    EXPECT_EQ(views.count(), 1);

    offset->setText("");
    EXPECT_DOUBLE_EQ(n->symbol().YOffset, 0.0) << "an empty text matches and stands for 0";
    EXPECT_EQ(views.count(), 2);

    const struct {
        const char* typed;
        double before, after;
    } cases[] = {
        {"-2", 0.0, -2.0}, {"+7", 0.0, 7.0}, {"-", 4.0, 0.0}, {"12abc", 4.0, 4.0},
        {"1e3", 4.0, 4.0}, {" 5", 4.0, 4.0}, {"0005", 4.0, 5.0},
    };
    for (const auto& c : cases) {
        n->symbol().YOffset = c.before;
        table->refresh();
        offset->setText(c.typed);
        EXPECT_DOUBLE_EQ(n->symbol().YOffset, c.after) << c.typed;
        EXPECT_EQ(offset->text(), TableWidget::yOffsetText(c.after)) << c.typed;
    }

    // A change below 0.01 is no change.
    n->symbol().YOffset = 0.005;
    views.clear();
    offset->setText("0");
    EXPECT_DOUBLE_EQ(n->symbol().YOffset, 0.005);
    EXPECT_EQ(views.count(), 0);
    // The refresh snaps such a tiny offset to 0.
    table->refresh();
    EXPECT_EQ(n->symbol().YOffset, 0.0);
    EXPECT_EQ(offset->text(), "0");
}

TEST_F(WatchTableTest, YOffsetIsTypedIntoTheCellEditor)
{
    Node* n = addSymbol("v", 4, kTypeS32);
    show();
    table->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(table.get()));
    QTableWidgetItem* offset = table->item(0, TableWidget::kColYOffset);
    table->setCurrentItem(offset);
    table->editItem(offset);
    auto* editor = qobject_cast<QLineEdit*>(QApplication::focusWidget());
    ASSERT_NE(editor, nullptr);
    editor->selectAll();
    QTest::keyClicks(editor, "-4");
    QTest::keyClick(editor, Qt::Key_Return);
    // The delegate commits from the event loop.
    EXPECT_TRUE(QTest::qWaitFor([&] { return n->symbol().YOffset != 0.0; }, 1000));
    EXPECT_DOUBLE_EQ(n->symbol().YOffset, -4.0);
    EXPECT_EQ(offset->text(), "-4");
}

TEST_F(WatchTableTest, OffsetActionsMoveByHalfADivision)
{
    Node* n = addSymbol("v", 4, kTypeS32);
    show();
    selectRow(0);
    table->_SlotOnReleasedYOffsetUp();
    table->_SlotOnReleasedYOffsetUp();
    EXPECT_DOUBLE_EQ(n->symbol().YOffset, 1.0);
    EXPECT_EQ(cell(0, TableWidget::kColYOffset), "1");
    table->_SlotOnReleasedYOffsetDown();
    EXPECT_DOUBLE_EQ(n->symbol().YOffset, 0.5);
    EXPECT_EQ(cell(0, TableWidget::kColYOffset), "0.5");

    // Every menu edit is a change to the project; a menu without a row changes nothing.
    const std::pair<const char*, void (TableWidget::*)()> edits[] = {
        {"show", &TableWidget::_SlotOnReleasedShowHide},     {"offset up", &TableWidget::_SlotOnReleasedYOffsetUp},
        {"offset down", &TableWidget::_SlotOnReleasedYOffsetDown}, {"resolution up", &TableWidget::_SlotOnReleasedYResUp},
        {"resolution down", &TableWidget::_SlotOnReleasedYResDown}, {"draw line", &TableWidget::_SlotOnReleasedDrawLine},
    };
    for (const auto& [name, slot] : edits) {
        ctl->project().setModified(false);
        (table.get()->*slot)();
        EXPECT_TRUE(ctl->project().isModified()) << name;
    }
    table->clearSelection();
    ctl->project().setModified(false);
    table->_SlotOnReleasedYOffsetUp();
    EXPECT_FALSE(ctl->project().isModified());
}

// --- show, draw style, context menu ------------------------------------------------

TEST_F(WatchTableTest, ShowInGraphFromTheCheckBoxAndTheMenu)
{
    Node* n = addSymbol("v", 4, kTypeS32);
    show();
    QSignalSpy views(table.get(), &TableWidget::_SignalUpdateViews);
    QTableWidgetItem* check = table->item(0, TableWidget::kColShow);
    EXPECT_EQ(check->checkState(), Qt::Checked);
    check->setCheckState(Qt::Unchecked);
    EXPECT_FALSE(n->symbol().ShowInGraph);
    check->setCheckState(Qt::PartiallyChecked);
    EXPECT_FALSE(n->symbol().ShowInGraph) << "only a full tick shows the curve";
    check->setCheckState(Qt::Checked);
    EXPECT_TRUE(n->symbol().ShowInGraph);
    EXPECT_EQ(views.count(), 3);

    selectRow(0);
    auto menu = table->createContextMenu();
    EXPECT_TRUE(menu->actions().at(0)->isChecked());
    table->_SlotOnReleasedShowHide();
    EXPECT_FALSE(n->symbol().ShowInGraph);
    EXPECT_EQ(check->checkState(), Qt::Unchecked) << "the refresh follows";
    menu = table->createContextMenu();
    EXPECT_FALSE(menu->actions().at(0)->isChecked());
    menu->actions().at(0)->trigger();
    EXPECT_TRUE(n->symbol().ShowInGraph);
}

TEST_F(WatchTableTest, DrawLineTogglesBetweenLinesAndPoints)
{
    Node* n = addSymbol("v", 4, kTypeS32);
    show();
    selectRow(0);
    const auto lineChecked = [&] { return table->createContextMenu()->actions().at(5)->isChecked(); };
    const struct {
        std::int32_t style;
        bool shownChecked;
        std::int32_t after;
    } cases[] = {{0, true, 1}, {1, false, 0}, {2, true, 1}, {3, false, 0}};
    for (const auto& c : cases) {
        n->symbol().DrawStyle = c.style;
        EXPECT_EQ(lineChecked(), c.shownChecked) << c.style;
        table->_SlotOnReleasedDrawLine();
        EXPECT_EQ(n->symbol().DrawStyle, c.after) << c.style;
    }
    // Through the menu entry as the user picks it.
    n->symbol().DrawStyle = 0;
    auto menu = table->createContextMenu();
    menu->actions().at(5)->trigger();
    EXPECT_EQ(n->symbol().DrawStyle, 1);
}

TEST_F(WatchTableTest, ContextMenuEntriesAndTheRemoveRule)
{
    addSymbol("v", 4, kTypeS32);
    show();
    selectRow(0);
    // The menu owns its actions: keep it alive while reading them.
    const auto entries = [&] {
        QStringList texts;
        const auto menu = table->createContextMenu();
        for (const QAction* a : menu->actions())
            texts << a->text();
        return texts;
    };
    QStringList texts = entries();
    EXPECT_EQ(texts, QStringList({"Show", "Y-Offset up", "Y-Offset down", "Y-Resolution up", "Y-Resolution down",
                                  "Draw Line", "Remove Symbol"}));
    EXPECT_TRUE(table->createContextMenu()->actions().last()->isEnabled());

    ProjectSettings s = ctl->project().settings();
    s.IsQTXSession = true;
    ctl->project().apply(s);
    texts = entries();
    EXPECT_FALSE(texts.contains("Remove Symbol")) << "a QTX session takes its variables from the channel";
    EXPECT_EQ(texts.size(), 6);
}

TEST_F(WatchTableTest, ActionsWithoutASelectedRowDoNothing)
{
    Node* n = addSymbol("v", 4, kTypeS32);
    n->symbol().YResolution = 10;
    show();
    table->clearSelection();
    table->_SlotOnReleasedShowHide();
    table->_SlotOnReleasedYOffsetUp();
    table->_SlotOnReleasedYOffsetDown();
    table->_SlotOnReleasedYResUp();
    table->_SlotOnReleasedYResDown();
    table->_SlotOnReleasedDrawLine();
    table->_SlotOnReleasedRemoveSymbol();
    EXPECT_TRUE(n->symbol().ShowInGraph);
    EXPECT_EQ(n->symbol().YOffset, 0.0);
    EXPECT_EQ(n->symbol().YResolution, 10u);
    EXPECT_EQ(n->symbol().DrawStyle, 0);
    EXPECT_EQ(ctl->symbols().selected().size(), 1u);

    // The add row has no symbol either.
    selectRow(1);
    table->_SlotOnReleasedYOffsetUp();
    EXPECT_EQ(n->symbol().YOffset, 0.0);
}

TEST_F(WatchTableTest, RemoveSymbolTakesItOutOfTheSelection)
{
    Node* a = addSymbol("a", 4, kTypeS32);
    Node* b = addSymbol("b", 4, kTypeS32);
    Node* c = addSymbol("c", 4, kTypeS32);
    ProjectSettings s = ctl->project().settings();
    s.TriggerSymbol = b;
    ctl->project().apply(s);
    show();
    QSignalSpy views(table.get(), &TableWidget::_SignalUpdateViews);
    selectRow(1);
    table->_SlotOnReleasedRemoveSymbol();
    EXPECT_EQ(ctl->symbols().selected(), (std::vector<Node*>{a, c}));
    EXPECT_TRUE(ctl->symbols().selectionChanged());
    EXPECT_EQ(table->symbolRowCount(), 2);
    EXPECT_EQ(cell(1, TableWidget::kColName), "g.c");
    EXPECT_EQ(ctl->project().settings().TriggerSymbol, nullptr) << "the trigger lost its symbol";
    EXPECT_TRUE(ctl->project().isModified());
    EXPECT_EQ(views.count(), 1);
}

// --- live columns ------------------------------------------------------------

TEST_F(WatchTableTest, ValuesAtTheCursorAndStatisticsSinceTheStart)
{
    Node* f = addSymbol("f", 4, kTypeFloat);
    Node* s = addSymbol("s", 2, kTypeS16);
    Node* b = addSymbol("b", 1, kTypeBool);
    Node* u = addSymbol("u", 4, kTypeU32);
    Node* bits = addSymbol("bits", 4, 14);
    bits->BitOffset = 3;
    bits->BitSize = 4;
    show();
    startStore();
    const std::vector<std::vector<std::uint64_t>> records = {
        {rawFloat(9.5f), rawS16(50), 0, 7, 0xFFFFFFFF},
        {rawFloat(1.25f), rawS16(-300), 1, 4000000000u, 0b1010'000},
        {rawFloat(-2.5f), rawS16(12), 0, 17, 0b0110'101},
    };
    feed(records);

    // Without a cursor the newest record is shown.
    table->refresh();
    EXPECT_EQ(cell(0, TableWidget::kColValue), "-2.5");
    EXPECT_EQ(cell(1, TableWidget::kColValue), "12");
    EXPECT_EQ(cell(2, TableWidget::kColValue), "false");
    EXPECT_EQ(cell(3, TableWidget::kColValue), "17");
    EXPECT_EQ(cell(4, TableWidget::kColValue), "6") << "bits 3..6 of 0b0110101";

    std::optional<std::uint32_t> cursor = 1;
    table->setCursorRecordProvider([&] { return cursor; });
    table->refresh();
    EXPECT_EQ(cell(0, TableWidget::kColValue), "1.25");
    EXPECT_EQ(cell(1, TableWidget::kColValue), "-300");
    EXPECT_EQ(cell(2, TableWidget::kColValue), "true");
    EXPECT_EQ(cell(3, TableWidget::kColValue), "4000000000");
    EXPECT_EQ(cell(4, TableWidget::kColValue), "10");
    cursor = std::nullopt;
    table->refresh();
    for (int r = 0; r < 5; ++r)
        EXPECT_EQ(cell(r, TableWidget::kColValue), "N/A") << "no sample under the cursor, row " << r;

    // Statistics count the samples after the store's first record.
    EXPECT_EQ(cell(1, TableWidget::kColMin), "-300");
    EXPECT_EQ(cell(1, TableWidget::kColMax), "12");
    EXPECT_EQ(cell(1, TableWidget::kColAverage), QString::number((-300 + 12) / 2.0, 'g', 6));
    EXPECT_EQ(cell(0, TableWidget::kColMin), "-2.5");
    EXPECT_EQ(cell(0, TableWidget::kColMax), "1.25");
    EXPECT_EQ(cell(0, TableWidget::kColAverage), QString::number((1.25 - 2.5) / 2.0, 'g', 6));
    EXPECT_EQ(cell(3, TableWidget::kColMax), "4000000000");

    // A cleared store has nothing active: the statistics read N/A too.
    ctl->store().clear();
    table->refresh();
    for (int c : {TableWidget::kColValue, TableWidget::kColMin, TableWidget::kColMax, TableWidget::kColAverage})
        EXPECT_EQ(cell(1, c), "N/A") << c;
    (void)f, (void)s, (void)b, (void)u;
}

TEST_F(WatchTableTest, LiveColumnsGrowWithTheirTexts)
{
    addSymbol("d", 8, kTypeDouble);
    show();
    table->show();
    const int before = table->columnWidth(TableWidget::kColValue);
    startStore();
    double big = -1.23456789e-300;
    std::uint64_t raw;
    std::memcpy(&raw, &big, 8);
    feed({{raw}, {raw}});
    table->refresh();
    EXPECT_EQ(cell(0, TableWidget::kColValue), "-1.23457e-300");
    EXPECT_GT(table->columnWidth(TableWidget::kColValue), before);
    const QString text = cell(0, TableWidget::kColValue);
    EXPECT_GE(table->columnWidth(TableWidget::kColValue), table->fontMetrics().horizontalAdvance(text));
}

TEST_F(WatchTableTest, LiveColumnsWaitWhileTheStoreIsRewritten)
{
    addSymbol("s", 2, kTypeS16);
    show();
    startStore();
    feed({{rawS16(1)}, {rawS16(2)}});
    table->refresh();
    ASSERT_EQ(cell(0, TableWidget::kColValue), "2");
    ctl->store().rewrite([&] {
        feed({{rawS16(3)}});
        table->refresh();
        EXPECT_EQ(cell(0, TableWidget::kColValue), "2") << "the table does not read a half-written store";
    });
    table->refresh();
    EXPECT_EQ(cell(0, TableWidget::kColValue), "3");
}

TEST_F(WatchTableTest, WhileSamplingTheAddButtonAndRemovalAreOff)
{
    Node* n = addSymbol("counter", 4, kTypeU32);
    show();
    ASSERT_EQ(ctl->postStartReading(), 0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return ctl->samplingRunning() && ctl->store().recordCount() > 6; }));
    table->_SlotOnUpdateTable();
    EXPECT_FALSE(table->addButton()->isEnabled());
    selectRow(0);
    EXPECT_FALSE(table->createContextMenu()->actions().last()->isEnabled());
    table->_SlotOnReleasedRemoveSymbol();
    EXPECT_EQ(ctl->symbols().selected().size(), 1u) << "no removal while sampling";
    // The fake probe counts up: the newest value is the largest seen so far.
    bool ok = false;
    const quint64 value = cell(0, TableWidget::kColValue).toULongLong(&ok);
    EXPECT_TRUE(ok);
    EXPECT_GE(value, 6u);
    EXPECT_LE(cell(0, TableWidget::kColMax).toULongLong(), n->symbol().YMaxSampled);

    ASSERT_EQ(ctl->postReadStop(), 0);
    ASSERT_TRUE(ctl->waitForQueue(5000));
    table->_SlotOnUpdateTable();
    EXPECT_TRUE(table->addButton()->isEnabled());
    EXPECT_TRUE(table->createContextMenu()->actions().last()->isEnabled());
    EXPECT_NE(cell(0, TableWidget::kColValue), "N/A") << "the recording stays readable after the stop";
}

// --- colour ------------------------------------------------------------------

// Answers the colour dialog from inside its own modal loop.
void answerColorDialog(QObject* context, std::function<void(QColorDialog*)> act)
{
    auto* poll = new QTimer(context);  // owned by the context; deleted once it acted
    QObject::connect(poll, &QTimer::timeout, context, [poll, act] {
        if (auto* dialog = qobject_cast<QColorDialog*>(QApplication::activeModalWidget())) {
            poll->stop();
            poll->deleteLater();
            act(dialog);
        }
    });
    poll->start(5);
}

TEST_F(WatchTableTest, ColourButtonOpensTheDialogAtTheCurrentColour)
{
    Node* n = addSymbol("v", 4, kTypeS32);
    n->symbol().GraphColor = {255, 0, 0, 255};
    n->symbol().HasGraphColor = true;
    show();
    table->show();
    QPushButton* button = table->colorButton(0);
    ASSERT_NE(button, nullptr);
    EXPECT_EQ(button->palette().color(QPalette::Button), QColor(255, 0, 0));
    QSignalSpy views(table.get(), &TableWidget::_SignalUpdateViews);

    QColor offered;
    answerColorDialog(table.get(), [&](QColorDialog* d) {
        offered = d->currentColor();
        d->setCurrentColor(QColor(10, 20, 200));
        d->accept();
    });
    QTest::mouseClick(button, Qt::LeftButton);
    EXPECT_EQ(offered, QColor(255, 0, 0));
    EXPECT_EQ(n->symbol().GraphColor, (Rgb{10, 20, 200, 255}));
    EXPECT_EQ(button->palette().color(QPalette::Button), QColor(10, 20, 200));
    EXPECT_EQ(views.count(), 1);

    answerColorDialog(table.get(), [](QColorDialog* d) {
        d->setCurrentColor(QColor(0, 255, 0));
        d->reject();
    });
    QTest::mouseClick(button, Qt::LeftButton);
    EXPECT_EQ(n->symbol().GraphColor, (Rgb{10, 20, 200, 255})) << "cancel keeps the colour";
    EXPECT_EQ(views.count(), 1);
}

TEST(CurveColors, ComponentsAreClampedWhereTheyAreDrawn)
{
    struct Case {
        Rgb rgb;
        QColor drawn;
    };
    const Case cases[] = {
        {{10, 20, 30, 255}, QColor(10, 20, 30)},
        {{300, -5, 256, 255}, QColor(255, 0, 255)},
        {{INT32_MIN, INT32_MAX, 0, 255}, QColor(0, 255, 0)},
    };
    for (const Case& c : cases) {
        EXPECT_TRUE(curvecolors::toQColor(c.rgb).isValid());
        EXPECT_EQ(curvecolors::toQColor(c.rgb), c.drawn) << c.rgb.red << " " << c.rgb.green << " " << c.rgb.blue;
    }
}

TEST(CurveColors, NewSymbolsTakeTheNextFreePaletteColour)
{
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
    EXPECT_EQ(nodes[0].symbol().GraphColor, palette[1]);
    EXPECT_EQ(nodes[1].symbol().GraphColor, palette[0]);
    EXPECT_EQ(nodes[2].symbol().GraphColor, palette[2]);
    EXPECT_EQ(curvecolors::assign(firstThree), 0u) << "nothing left without a colour";

    // The whole palette is used before any colour repeats.
    EXPECT_EQ(curvecolors::assign(list), 12u);
    std::set<std::tuple<int, int, int>> distinct;
    for (std::size_t i = 0; i < curvecolors::kPaletteSize; ++i) {
        EXPECT_TRUE(nodes[i].symbol().HasGraphColor);
        distinct.insert({nodes[i].symbol().GraphColor.red, nodes[i].symbol().GraphColor.green, nodes[i].symbol().GraphColor.blue});
    }
    EXPECT_EQ(distinct.size(), curvecolors::kPaletteSize);
    for (std::size_t i = curvecolors::kPaletteSize; i < nodes.size(); ++i)
        EXPECT_TRUE(std::find(palette.begin(), palette.end(), nodes[i].symbol().GraphColor) != palette.end());
    // Palette colours read on the black graph: none is dark.
    for (const Rgb& c : palette)
        EXPECT_GT(std::max({c.red, c.green, c.blue}), 150) << int(c.red) << "," << int(c.green) << "," << int(c.blue);
}

}  // namespace
