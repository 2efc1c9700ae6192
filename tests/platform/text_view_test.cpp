#include "platform/TextView.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QClipboard>
#include <QElapsedTimer>
#include <QScrollBar>
#include <QTest>
#include <QTimer>

#include "platform/Alerts.h"
#include "platform/WrappedLabel.h"
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
        view.selectAll();
        view.copy();
        EXPECT_TRUE(QGuiApplication::clipboard()->text() == text);
        EXPECT_LT(longest, 1000) << "milliseconds for one turn of the event loop";
    }
}

TEST(Alerts, ShowWhatTheyQuoteAsItIsAndWhole) {
    const QString message = QStringLiteral("/home/") + QString(300, u'x') + QStringLiteral(" <b>\n");
    QTimer::singleShot(200, [&] {
        QWidget *box = QApplication::activeModalWidget();
        const auto *label = box->findChild<WrappedLabel *>();
        EXPECT_EQ(label->text(), message);
        EXPECT_LT(label->width(), 800);
        EXPECT_GE(label->height(), label->heightForWidth(label->width()));
        QTest::keyClick(box, Qt::Key_Return);
    });
    EXPECT_EQ(MessageBoxAlerts().run(QStringLiteral("Sure?"), message, {"Yes", "No"}, 1), 1);
}
