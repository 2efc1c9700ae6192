#include "platform/ScrollArea.h"

#include <gtest/gtest.h>

#include <QScreen>
#include <QScrollBar>
#include <QTest>
#include <QVBoxLayout>

#include "platform/Box.h"
#include "tests/support/WaitFor.h"

TEST(ScrollAreaTest, TakesTheRoomItsContentNeedsAsLongAsTheScreenHasIt) {
    QWidget window;
    auto *layout = new QVBoxLayout(&window);
    auto *area = new ScrollArea;
    auto *box = new Box;
    area->setWidget(box);
    layout->addWidget(area);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    const QRect room = window.screen()->availableGeometry();
    QWidget views;
    for (const int height : {room.height() / 2, 2 * room.height()}) {
        auto *view = new QWidget(&views);
        view->setMinimumSize(100, height);
        box->setContentView(view);
        EXPECT_TRUE(waitFor([&] { return room.contains(window.frameGeometry()); })) << height;
        EXPECT_TRUE(waitFor([&] { return view->height() >= height; }));
        EXPECT_EQ(area->verticalScrollBar()->maximum() > 0, height > room.height());
    }
    box->setContentView(nullptr);
}
