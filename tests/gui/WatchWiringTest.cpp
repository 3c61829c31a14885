// The watch table inside the main window: the Watch dock, the refreshes that
// reach it, colours for a new selection, the "+" request, the value under the
// graph's cursor, and the File menu's data export and import.
#include "app/Controller.h"
#include "app/JobEngine.h"
#include "gui/DIALOG_CustMsgBox.h"
#include "gui/MainWindow.h"
#include "gui/MenuBar.h"
#include "tests/app/FakeSampler.h"
#include "view/GraphContainer.h"
#include "view/GraphWidget.h"
#include "view/TableWidget.h"

#include <QAction>
#include <QApplication>
#include <QDockWidget>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <set>
#include <thread>

namespace {

// Acts on the first visible top-level widget of type T once it shows, from
// inside the modal loop that shows it.
template <typename T>
void whenShown(QObject* context, std::function<void(T*)> act)
{
    auto* poll = new QTimer(context);  // owned by the context; deleted once it acted
    QObject::connect(poll, &QTimer::timeout, context, [poll, act] {
        for (QWidget* w : QApplication::topLevelWidgets()) {
            if (auto* t = qobject_cast<T*>(w); t && t->isVisible()) {
                poll->stop();
                poll->deleteLater();
                act(t);
                return;
            }
        }
    });
    poll->start(5);
}

void answerFileDialog(QObject* context, const QString& path)
{
    whenShown<QFileDialog>(context, [path](QFileDialog* d) {
        d->selectFile(path);
        static_cast<QDialog*>(d)->accept();  // QFileDialog's own accept() checks the name
    });
}

class WatchWiringTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ctl = std::make_unique<Controller>(engine, std::make_unique<FakeSampler>());
        window = std::make_unique<MainWindow>(*ctl, std::vector<std::string>{"plotvik"});
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        ASSERT_TRUE(QTest::qWaitFor([&] { return window->windowTitle().startsWith("Norvex Plotvik"); }));
        table = window->watchTable();
        ASSERT_NE(table, nullptr);
    }
    void TearDown() override
    {
        window->QMainWindow::close();
        window.reset();
        ctl.reset();
    }

    std::vector<Node*> selectSymbols(int n)
    {
        std::vector<Node*> nodes;
        for (int i = 0; i < n; ++i) {
            Node* node = ctl->symbols().createDetachedSymbol();
            node->Name = "v" + std::to_string(i);
            node->NameWithParents = "g.v" + std::to_string(i);
            node->Size = 4;
            node->TypeID = kTypeS32;
            node->Type = "int";
            nodes.push_back(node);
        }
        ctl->symbols().setSelected(nodes);
        return nodes;
    }

    // Stores `count` records 1000 us apart; symbol s holds (s + 1) * 100 + record.
    void record(int count)
    {
        SampleStore& store = ctl->store();
        store.layOut(true);
        ASSERT_TRUE(store.prepareFreshStart());
        store.setOpen(true);
        const auto& selected = ctl->symbols().selected();
        std::vector<std::uint8_t> bytes(store.recordSize() * count);
        for (int r = 0; r < count; ++r) {
            std::uint8_t* rec = bytes.data() + r * store.recordSize();
            const std::uint32_t ts = r * 1000;
            std::memcpy(rec, &ts, 4);
            for (std::size_t s = 0; s < selected.size(); ++s) {
                const std::int32_t v = static_cast<std::int32_t>((s + 1) * 100 + r);
                std::memcpy(rec + selected[s]->symbol().Offset, &v, 4);
            }
        }
        store.storeRecords(bytes.data(), bytes.size());
        store.setOpen(false);
    }

    QString cell(int row, int column) const
    {
        const QTableWidgetItem* item = table->item(row, column);
        return item ? item->text() : QString();
    }

    JobEngine engine;
    std::unique_ptr<Controller> ctl;
    std::unique_ptr<MainWindow> window;
    TableWidget* table = nullptr;  // owned by the window's watch dock
};

TEST_F(WatchWiringTest, TheWatchDockHoldsTheTable)
{
    EXPECT_EQ(window->watchDock()->widget(), table);
    EXPECT_EQ(table->symbolRowCount(), 0);
    EXPECT_EQ(table->rowCount(), 1) << "the add row";
    window->watchDock()->close();
    EXPECT_FALSE(table->isVisible());
    window->menus()->action(MenuBar::kWatchWindow)->trigger();
    EXPECT_TRUE(table->isVisible());
}

TEST_F(WatchWiringTest, ANewSelectionGetsColoursAndRows)
{
    const std::vector<Node*> nodes = selectSymbols(3);
    nodes[1]->symbol().GraphColor = {1, 2, 3, 255};
    nodes[1]->symbol().HasGraphColor = true;
    emit window->_SignalUpdateSymbolSelection();
    ASSERT_EQ(table->symbolRowCount(), 3);
    std::set<std::tuple<int, int, int>> colours;
    for (int r = 0; r < 3; ++r) {
        const Node* n = table->symbolAt(r);
        ASSERT_TRUE(n->symbol().HasGraphColor) << r;
        colours.insert({n->symbol().GraphColor.red, n->symbol().GraphColor.green, n->symbol().GraphColor.blue});
        EXPECT_EQ(table->colorButton(r)->palette().color(QPalette::Button),
                  QColor(n->symbol().GraphColor.red, n->symbol().GraphColor.green, n->symbol().GraphColor.blue));
    }
    EXPECT_EQ(colours.size(), 3u) << "every curve its own colour";
    EXPECT_EQ(nodes[1]->symbol().GraphColor, (Rgb{1, 2, 3, 255})) << "a colour from the project stays";
    EXPECT_EQ(cell(2, TableWidget::kColName), "g.v2");

    // The worker's assign-colours request does the same for later symbols.
    Node* extra = ctl->symbols().createDetachedSymbol();
    extra->Name = "x";
    auto list = ctl->symbols().selected();
    list.push_back(extra);
    ctl->symbols().setSelected(list);
    std::thread worker([&] { window->assignColors(); });
    worker.join();
    ASSERT_TRUE(QTest::qWaitFor([&] { return table->symbolRowCount() == 4; }));
    EXPECT_TRUE(extra->symbol().HasGraphColor);
}

TEST_F(WatchWiringTest, RefreshesAndResetReachTheTable)
{
    selectSymbols(2);
    emit window->_SignalUpdateGUI();
    EXPECT_EQ(table->symbolRowCount(), 2) << "an opened project's selection shows on the next update";
    ctl->symbols().clearSelected();
    emit window->_SignalReset();
    EXPECT_EQ(table->symbolRowCount(), 0);
    EXPECT_EQ(table->rowCount(), 1);
}

TEST_F(WatchWiringTest, AddButtonAsksForTheSymbolSelection)
{
    // Only the request is of interest here, not the dialog it opens.
    QObject::disconnect(window.get(), SIGNAL(_SignalShowSymbolSelection()), window.get(), nullptr);
    QSignalSpy asked(window.get(), &MainWindow::_SignalShowSymbolSelection);
    QTest::mouseClick(table->addButton(), Qt::LeftButton);
    EXPECT_EQ(asked.count(), 1);
}

TEST_F(WatchWiringTest, ValueColumnFollowsTheGraphCursor)
{
    selectSymbols(2);
    emit window->_SignalUpdateSymbolSelection();
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

    // New data refreshes the statistics.
    EXPECT_EQ(cell(0, TableWidget::kColMax), "107");
    EXPECT_EQ(cell(0, TableWidget::kColMin), "101") << "the store's first record is not counted";
}

TEST_F(WatchWiringTest, ExportDataWritesTheCsvFile)
{
    selectSymbols(2);
    record(5);
    QTemporaryDir dir;
    const QString path = dir.filePath("out.csv");
    answerFileDialog(window.get(), path);
    QAction* entry = window->menus()->action(MenuBar::kExportData);
    entry->setEnabled(true);
    entry->trigger();
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    const QList<QByteArray> lines = file.readAll().split('\n');
    ASSERT_GE(lines.size(), 2);
    EXPECT_TRUE(lines[0].startsWith("Timestamp;")) << lines[0].toStdString();
    EXPECT_TRUE(lines[0].contains("v1")) << lines[0].toStdString();
    EXPECT_EQ(ctl->project().settings().DataFile, path.toStdString()) << "the project remembers the export";
}

TEST_F(WatchWiringTest, ExportRawAndImportItAgain)
{
    selectSymbols(2);
    emit window->_SignalUpdateSymbolSelection();
    record(6);
    const std::uint32_t recorded = ctl->store().recordCount();
    QTemporaryDir dir;
    const QString path = dir.filePath("out.praw");

    QString info;
    answerFileDialog(window.get(), path);
    // After writing, the order of the fields is shown; answer it when it comes.
    whenShown<DIALOG_CustMsgBox>(window.get(), [&](DIALOG_CustMsgBox* box) {
        info = box->textLabel()->text();
        QTest::mouseClick(box->button(0), Qt::LeftButton);
    });
    QAction* exportRaw = window->menus()->action(MenuBar::kExportRaw);
    exportRaw->setEnabled(true);
    exportRaw->trigger();
    ASSERT_TRUE(QFileInfo::exists(path));
    EXPECT_EQ(QFileInfo(path).size(), qint64(recorded) * ctl->store().recordSize());
    EXPECT_TRUE(info.startsWith("Raw data exported in the order:\nTimestamp")) << info.toStdString();
    EXPECT_EQ(ctl->project().settings().RawFile, path.toStdString());

    // Import: the store is rebuilt from the file and the table shows it.
    ctl->store().clear();
    ctl->store().resetStatistics();
    emit window->_SignalUpdateData();
    EXPECT_EQ(cell(0, TableWidget::kColMax), "N/A");
    answerFileDialog(window.get(), path);
    QAction* importRaw = window->menus()->action(MenuBar::kImportRaw);
    importRaw->setEnabled(true);
    importRaw->trigger();
    ASSERT_TRUE(ctl->waitForQueue(5000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return cell(0, TableWidget::kColMax) != "N/A"; }));
    EXPECT_EQ(ctl->store().recordCount(), recorded - 1) << "the export leaves out the newest record";
    EXPECT_EQ(cell(1, TableWidget::kColMax), QString::number(200 + recorded - 1));
}

}  // namespace
