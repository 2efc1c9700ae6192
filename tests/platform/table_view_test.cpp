#include "platform/TableView.h"

#include <gtest/gtest.h>

#include <QTest>

namespace {

struct Names : TableViewDataSource {
    QStringList names{QStringLiteral("kim"), QStringLiteral("noor"), QStringLiteral("sam")};

    int numberOfRowsInTableView(const TableView &) const override { return static_cast<int>(names.size()); }
    QString tableView(const TableView &, int, int row) const override { return names[row]; }
};

}  // namespace

TEST(TableViewTest, SaysSomethingWhileThereIsNothingToShow) {
    Names source;
    TableView table;
    table.setDataSource(&source);
    table.setPlaceholder(QStringLiteral("Nobody."));
    table.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&table));
    const auto showsIt = [&] {
        table.setPlaceholder({});
        const QImage without = table.viewport()->grab().toImage();
        table.setPlaceholder(QStringLiteral("Nobody."));
        return table.viewport()->grab().toImage() != without && table.accessibleDescription() == u"Nobody.";
    };
    EXPECT_FALSE(showsIt());
    EXPECT_EQ(table.accessibleDescription(), QString());
    for (const QStringList &none : {QStringList(), QStringList(QString())}) {
        source.names = none;
        table.reloadData();
        EXPECT_TRUE(showsIt());
    }
}
