// The filter header: the column menu, the filter editors and their toggle.
#include "view/UtilFilterHeader.h"

#include <QAction>
#include <QLineEdit>
#include <QMenu>
#include <QStandardItemModel>
#include <QTableView>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

namespace {

struct Table {
    Table(int columns)
    {
        model.setColumnCount(columns);
        model.setRowCount(3);
        for (int c = 0; c < columns; ++c)
            model.setHeaderData(c, Qt::Horizontal, QStringLiteral("Col%1").arg(c));
        header = new UtilFilterHeader(columns, &view);
        view.setHorizontalHeader(header);
        view.setModel(&model);
        view.show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(&view));
    }
    QStandardItemModel model;
    QTableView view;
    UtilFilterHeader* header = nullptr;  // owned by the view
};

QAction* entry(QMenu* menu, const QString& text)
{
    for (QAction* a : menu->actions())
        if (a->text() == text)
            return a;
    return nullptr;
}

}  // namespace

TEST(FilterHeader, LastVisibleColumnCannotBeHidden)
{
    Table t(2);
    std::unique_ptr<QMenu> menu(t.header->createMenu(nullptr));
    ASSERT_TRUE(menu);
    entry(menu.get(), "Col0")->setChecked(false);
    EXPECT_TRUE(t.header->isSectionHidden(0));
    entry(menu.get(), "Col1")->setChecked(false);  // the last one left
    EXPECT_FALSE(t.header->isSectionHidden(1));
    EXPECT_EQ(t.header->visibleColumnCount(), 1);
    menu.reset(t.header->createMenu(nullptr));
    EXPECT_TRUE(entry(menu.get(), "Col1")->isChecked());
    EXPECT_FALSE(entry(menu.get(), "Col0")->isChecked());
    entry(menu.get(), "Col0")->setChecked(true);
    EXPECT_FALSE(t.header->isSectionHidden(0));
    EXPECT_EQ(t.header->lastVisibleColumn(), 1);
}

TEST(FilterHeader, FilterToggleAndValues)
{
    Table t(3);
    int changes = 0;
    QObject::connect(t.header, &UtilFilterHeader::SignalFilterChanged, [&] { ++changes; });
    auto* edit = static_cast<QLineEdit*>(t.header->editor(1));
    QTest::keyClicks(edit, "ab");
    EXPECT_EQ(changes, 0);  // not live: only Return and the end of editing report
    // Return reports the filter and goes no further: the table would take it
    // as activating its current row.
    int activations = 0;
    QObject::connect(&t.view, &QAbstractItemView::activated, [&] { ++activations; });
    t.view.setCurrentIndex(t.model.index(1, 0));
    QTest::keyClick(edit, Qt::Key_Return);
    EXPECT_GE(changes, 1);
    EXPECT_EQ(activations, 0);
    EXPECT_EQ(t.header->filterValue(1), "ab");
    EXPECT_EQ(t.header->filterValue(7), "");
    t.header->setColumnCombo(2, {"one", "two"});
    EXPECT_EQ(t.header->filterValue(2), "");

    const int tall = t.header->sizeHint().height();
    t.header->setFilterVisible(false);
    EXPECT_FALSE(edit->isVisible());
    EXPECT_LT(t.header->sizeHint().height(), tall);
    t.header->setFilterToggleAllowed(false);
    t.header->setColumnMenuAllowed(false);
    EXPECT_EQ(t.header->createMenu(nullptr), nullptr);  // an empty menu is not shown
}
