#include "platform/TableView.h"

#include <gtest/gtest.h>

#include <QTest>

#include "tests/support/WaitFor.h"

namespace {

struct Names : TableViewDataSource {
    QStringList names{QStringLiteral("kim"), QStringLiteral("noor"), QStringLiteral("sam")};

    int numberOfRowsInTableView(const TableView &) const override { return static_cast<int>(names.size()); }
    QString tableView(const TableView &, int, int row) const override { return names[row]; }
};

}  // namespace

TEST(TableViewTest, ARemovedRowFadesFromSightWhileTheOthersAreThereAlready) {
    Names source;
    TableView table;
    table.setDataSource(&source);
    table.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&table));
    const auto remove = [&](int row) {
        source.names.removeAt(row);
        table.reloadData(TableView::Animation::kFade);
    };
    // Right of the name; the selected row has a colour of its own.
    const auto color = [&](int row) {
        const QPoint place = table.visualRect(table.model()->index(row, 0)).topRight();
        return table.viewport()->grab().toImage().pixelColor(place);
    };

    const QColor plain = color(1);
    table.setCurrentIndex(table.model()->index(1, 0));
    const QColor selected = color(1);
    ASSERT_NE(selected, plain);
    remove(1);
    EXPECT_EQ(table.model()->rowCount(), 2);
    EXPECT_EQ(table.selectedRow(), -1);
    EXPECT_EQ(color(1), selected);
    EXPECT_TRUE(waitFor([&] { return color(1) == plain; }));

    const QColor first = color(0);
    remove(0);
    EXPECT_EQ(color(0), first) << "nothing was selected";
}
