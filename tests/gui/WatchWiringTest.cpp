// The watch table inside the main window: the refreshes that reach it,
// colours for a new selection, the "+" request, the value under the graph's
// cursor, and the File menu's data export and import.
#include "gui/DIALOG_CustMsgBox.h"
#include "gui/MenuBar.h"
#include "tests/gui/GuiTestSupport.h"
#include "view/GraphContainer.h"
#include "view/GraphWidget.h"
#include "view/TableWidget.h"

#include <QAction>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <cstring>
#include <set>
#include <thread>

using guitest::whenShown;

namespace {

struct WatchWiringTest : guitest::WindowTest {
    // Two symbols; `count` records 1000 us apart, symbol s holding (s + 1) * 100 + record.
    void record(int count)
    {
        guitest::selectSymbols(*ctl, 2, kTypeS32);
        emit window->_SignalUpdateSymbolSelection();
        SampleStore& store = ctl->store();
        store.layOut(true);
        ASSERT_TRUE(store.prepareFreshStart());
        store.setOpen(true);
        std::vector<std::uint8_t> bytes(store.recordSize() * count);
        for (int r = 0; r < count; ++r) {
            std::uint8_t* rec = bytes.data() + r * store.recordSize();
            const std::uint32_t ts = r * 1000;
            std::memcpy(rec, &ts, 4);
            for (std::size_t s = 0; s < 2; ++s) {
                const std::int32_t v = static_cast<std::int32_t>((s + 1) * 100 + r);
                std::memcpy(rec + ctl->symbols().selected()[s]->symbol().Offset, &v, 4);
            }
        }
        store.storeRecords(bytes.data(), bytes.size());
        store.setOpen(false);
    }
    QString cell(int row, int column) const
    {
        const QTableWidgetItem* item = window->watchTable()->item(row, column);
        return item ? item->text() : QString();
    }
    // Answers the file dialog with `path`, then runs the menu entry.
    void runWithFile(MenuBar::Entry entry, const QString& path)
    {
        whenShown<QFileDialog>([path](QFileDialog* d) {
            d->selectFile(path);
            static_cast<QDialog*>(d)->accept();  // QFileDialog's own accept() checks the name
        }, window.get());
        QAction* a = window->menus()->action(entry);
        a->setEnabled(true);
        a->trigger();
    }
};

TEST_F(WatchWiringTest, SelectionRefreshesColoursAndTheAddRequestReachTheTable)
{
    TableWidget* table = window->watchTable();
    const std::vector<Node*> nodes = guitest::selectSymbols(*ctl, 3);
    nodes[1]->symbol().GraphColor = {1, 2, 3, 255};
    nodes[1]->symbol().HasGraphColor = true;
    emit window->_SignalUpdateSymbolSelection();
    ASSERT_EQ(table->symbolRowCount(), 3);
    std::set<std::tuple<int, int, int>> colours;
    for (int r = 0; r < 3; ++r) {
        const Rgb c = table->symbolAt(r)->symbol().GraphColor;
        ASSERT_TRUE(table->symbolAt(r)->symbol().HasGraphColor) << r;
        colours.insert({c.red, c.green, c.blue});
        EXPECT_EQ(table->colorButton(r)->palette().color(QPalette::Button), QColor(c.red, c.green, c.blue));
    }
    EXPECT_EQ(colours.size(), 3u) << "every curve its own colour";
    EXPECT_EQ(nodes[1]->symbol().GraphColor, (Rgb{1, 2, 3, 255})) << "a colour from the project stays";
    EXPECT_EQ(cell(2, TableWidget::kColName), "v2");

    // The worker's assign-colours request does the same for later symbols.
    Node* extra = guitest::newSymbol(*ctl, "x");
    ctl->symbols().setSelected({nodes[0], extra});
    std::thread worker([&] { window->assignColors(); });
    worker.join();
    ASSERT_TRUE(QTest::qWaitFor([&] { return table->symbolRowCount() == 2; }));
    EXPECT_TRUE(extra->symbol().HasGraphColor);

    ctl->symbols().clearSelected();
    emit window->_SignalReset();
    EXPECT_EQ(table->rowCount(), 1) << "only the add row";
    guitest::selectSymbols(*ctl, 2);
    emit window->_SignalUpdateGUI();
    EXPECT_EQ(table->symbolRowCount(), 2) << "an opened project's selection shows on the next update";

    // Only the request is of interest here, not the dialog it opens.
    QObject::disconnect(window.get(), SIGNAL(_SignalShowSymbolSelection()), window.get(), nullptr);
    QSignalSpy asked(window.get(), &MainWindow::_SignalShowSymbolSelection);
    QTest::mouseClick(table->addButton(), Qt::LeftButton);
    EXPECT_EQ(asked.count(), 1);
}

TEST_F(WatchWiringTest, ValueColumnFollowsTheGraphCursor)
{
    record(8);
    GraphWidget* graph = window->graph()->graph();
    graph->setHeld(true);
    graph->setTimePerDivision(1000);  // 1 ms per division: records 100 pixels apart
    const int left = graph->grid().marginX;
    graph->setCursorX(left);
    EXPECT_EQ(cell(0, TableWidget::kColValue), "100");
    EXPECT_EQ(cell(1, TableWidget::kColValue), "200");
    graph->setCursorX(left + 300);
    EXPECT_EQ(cell(0, TableWidget::kColValue), "103") << "the table follows the cursor by itself";
    EXPECT_EQ(cell(1, TableWidget::kColValue), "203");
    EXPECT_EQ(cell(0, TableWidget::kColMax), "107");
    EXPECT_EQ(cell(0, TableWidget::kColMin), "101") << "the store's first record is not counted";
}

TEST_F(WatchWiringTest, ExportDataRawAndImportItAgain)
{
    record(6);
    const std::uint32_t recorded = ctl->store().recordCount();
    QTemporaryDir dir;
    const QString csv = dir.filePath("out.csv"), raw = dir.filePath("out.praw");
    runWithFile(MenuBar::kExportData, csv);
    QFile file(csv);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << csv.toStdString();
    const QByteArray header = file.readLine();
    EXPECT_TRUE(header.startsWith("Timestamp;") && header.contains("v1")) << header.toStdString();
    EXPECT_EQ(ctl->project().settings().DataFile, csv.toStdString()) << "the project remembers the export";

    // After writing raw data, the order of the fields is shown; answer it when it comes.
    QString info;
    whenShown<DIALOG_CustMsgBox>([&](DIALOG_CustMsgBox* box) {
        info = box->textLabel()->text();
        QTest::mouseClick(box->button(0), Qt::LeftButton);
    }, window.get());
    runWithFile(MenuBar::kExportRaw, raw);
    ASSERT_TRUE(QFileInfo::exists(raw));
    EXPECT_EQ(QFileInfo(raw).size(), qint64(recorded) * ctl->store().recordSize());
    EXPECT_TRUE(info.startsWith("Raw data exported in the order:\nTimestamp")) << info.toStdString();
    EXPECT_EQ(ctl->project().settings().RawFile, raw.toStdString());

    // Import: the store is rebuilt from the file and the table shows it.
    ctl->store().clear();
    ctl->store().resetStatistics();
    emit window->_SignalUpdateData();
    EXPECT_EQ(cell(0, TableWidget::kColMax), "N/A");
    runWithFile(MenuBar::kImportRaw, raw);
    ASSERT_TRUE(ctl->waitForQueue(5000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return cell(0, TableWidget::kColMax) != "N/A"; }));
    EXPECT_EQ(ctl->store().recordCount(), recorded - 1) << "the export leaves out the newest record";
    EXPECT_EQ(cell(1, TableWidget::kColMax), QString::number(200 + recorded - 1));
}

}  // namespace
