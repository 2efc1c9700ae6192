#include "platform/TextView.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QScrollBar>
#include <QTest>

#include "tests/support/WaitFor.h"

TEST(TextView, ShowsLargeTextsWholeWithoutHoldingUpTheInterface) {
    TextView view;
    view.resize(400, 150);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    QString lines;
    for (int i = 0; i < 100'000; ++i) lines += QString::number(i) + u'\n';
    const QString oneLine(5'000'000, u'x');
    for (const QString &text : {QStringLiteral("short\ttext\n"), lines, oneLine}) {
        view.setString(text);
        EXPECT_EQ(view.verticalScrollBar()->value(), 0);
        QElapsedTimer turn;
        qint64 longest = 0;
        turn.start();
        ASSERT_TRUE(waitFor(
            [&] {
                longest = std::max(longest, turn.restart());
                return view.isComplete();
            },
            100'000));
        QString shown = view.toPlainText();
        if (text == oneLine) shown.remove(u'\n');
        EXPECT_TRUE(shown == text);
        EXPECT_LT(longest, 1000) << "milliseconds for one turn of the event loop";
    }
}

TEST(TextView, TellsTheHeightThatShowsItsTextAndBeginsWhereItsScriptDoes) {
    TextView view;
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    for (const QString &text : {QStringLiteral("one"), QStringLiteral("one\ntwo\n\tthree"),
                                QString(200, u'w'), QStringLiteral("words and words and ").repeated(10)}) {
        view.setString(text);
        const int height = view.heightForText(400, 300);
        view.resize(400, height);
        EXPECT_TRUE(waitFor([&] { return view.verticalScrollBar()->maximum() == 0; })) << text.toStdString();
        view.resize(400, height - view.fontMetrics().height());
        EXPECT_TRUE(waitFor([&] { return view.verticalScrollBar()->maximum() > 0; })) << text.toStdString();
    }
    EXPECT_EQ(view.heightForText(400, 40), 40);
    view.setString(QStringLiteral("\u05E9\u05DC\u05D5\u05DD"));
    EXPECT_GT(view.cursorRect().left(), 200);
}
