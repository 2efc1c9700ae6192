#include "platform/Popover.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QScreen>
#include <QTest>

#include "platform/NotificationBanner.h"

TEST(PopoverTest, LeavesItsSenderInViewAtWhateverEdgeHasRoom) {
    const QRect room = QGuiApplication::primaryScreen()->availableGeometry();
    QWidget window;
    QWidget list(&window);
    window.setGeometry(room.left() + 10, room.top() + 40, room.width() / 2, room.height() - 60);
    list.setGeometry(0, 20, window.width(), window.height() - 20);
    window.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    const QRect sender(list.mapToGlobal(QPoint(0, 0)), list.size());
    Popover popover(&window);
    popover.setFixedSize(room.width() / 3, 150);

    popover.showRelativeTo(&list, Popover::Edge::kMaxY);  // there is none above or below
    EXPECT_GT(popover.geometry().left(), window.frameGeometry().right());
    EXPECT_TRUE(room.contains(popover.geometry()));
    popover.setFixedSize(room.width() / 3, 20);
    popover.showRelativeTo(&list, Popover::Edge::kMaxY);
    EXPECT_LT(popover.geometry().bottom(), sender.top());
    popover.setFixedSize(room.width() * 2 / 3, 150);  // there is none at all
    popover.showRelativeTo(&list, Popover::Edge::kMaxY);
    EXPECT_TRUE(room.contains(popover.geometry()));
}

TEST(NotificationBannerTest, StandsInTheCornerAndKeepsNothingOfWhatItShowed) {
    const QRect room = QGuiApplication::primaryScreen()->availableGeometry();
    NotificationBanner banner;
    int clicks = 0;
    for (const QString &text : {QString(300, u'x'), QStringLiteral("1\n").repeated(200)}) {
        banner.present(QStringLiteral("Title"), text, [&] { ++clicks; });
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&banner));
        EXPECT_TRUE(room.contains(banner.geometry()));
        EXPECT_LT(room.right() - banner.geometry().right(), 30);
        EXPECT_LT(banner.geometry().top() - room.top(), 30);
    }
    for (const QLabel *label : banner.findChildren<QLabel *>())
        EXPECT_LE(label->sizeHint().width(), label->width()) << "a word that is cut off";
    QTest::mouseClick(banner.findChildren<QLabel *>().last(), Qt::LeftButton);
    QTest::mouseClick(&banner, Qt::LeftButton);
    EXPECT_EQ(clicks, 1);
    EXPECT_FALSE(banner.isVisible());
    for (const QLabel *label : banner.findChildren<QLabel *>()) EXPECT_EQ(label->text(), QString());
}
