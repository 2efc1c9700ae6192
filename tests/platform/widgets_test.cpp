#include <gtest/gtest.h>

#include <QClipboard>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QLineEdit>
#include <QListView>
#include <QMouseEvent>
#include <QTest>

#include "platform/ListControl.h"
#include "platform/TextView.h"
#include "tests/support/WaitFor.h"

using namespace std::string_literals;

namespace {

using Rows = std::vector<std::string>;

class ListControlTest : public testing::Test {
  protected:
    void SetUp() override {
        QObject::connect(&list, &ListControl::picked, [this](int index, const std::string &text) {
            picks.emplace_back(index, text);
            list.selectPicked(index, text);
        });
        list.resize(300, 300);
        list.show();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&list));
        line->setFocus();
    }
    void fill(const Rows &texts) {
        for (auto text = texts.rbegin(); text != texts.rend(); ++text)
            list.insertItemWithObjectValue(*text, 0);
    }
    Rows rows() const {
        Rows shown;
        for (const std::size_t item : list.shownItems()) shown.emplace_back(list.itemAtIndex(item));
        return shown;
    }
    QPoint centreOf(int row) const { return view->visualRect(view->model()->index(row, 0)).center(); }

    ListControl list;
    QLineEdit *line = list.findChild<QLineEdit *>();
    QListView *view = list.findChild<QListView *>();
    std::vector<std::pair<int, std::string>> picks;
};

TEST_F(ListControlTest, ItsTextIsTheWholeTextOfTheSelectedItemAndOutlivesIt) {
    const Rows texts{"tabs\tand\nlines", "nul\0nul"s, "\xF0\x9F\x98\x80 e\xCC\x81 \xD7\xA9",
                     std::string(5'000'000, 'x'), ""};
    fill(texts);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        list.selectItemAtIndex(static_cast<int>(i));
        EXPECT_TRUE(list.stringValue() == texts[i]);
    }
    list.removeAllItems();
    fill({"a", "b", "c"});
    list.selectItemAtIndex(1);
    list.insertItemWithObjectValue("new", 0);
    EXPECT_EQ(list.indexOfSelectedItem(), 2);
    list.removeItemAtIndex(0);
    EXPECT_EQ(list.indexOfSelectedItem(), 1);
    list.removeItemAtIndex(1);
    EXPECT_EQ(list.indexOfSelectedItem(), -1);
    EXPECT_EQ(rows(), (Rows{"a", "c"}));
    list.removeAllItems();
    EXPECT_EQ(list.stringValue(), "b");
    // A pick that was held back until the list had changed.
    fill({"new", "a", "b"});
    for (const auto &[text, index] : {std::pair("b", 2), std::pair("gone", -1)}) {
        list.selectPicked(1, text);
        EXPECT_EQ(list.stringValue(), text);
        EXPECT_EQ(list.indexOfSelectedItem(), index);
    }
}

TEST_F(ListControlTest, TypingFiltersAndAPickMeansTheItemOnTheRow) {
    fill({"Alpha", "beta", "ALPHABET", "gamma \xC3\x84rger", ""});
    list.selectItemAtIndex(1);
    waitFor([&] { return line->text() == u"beta"; }, 1000);
    line->selectAll();
    QTest::keyClicks(line, "alpha");
    EXPECT_EQ(rows(), (Rows{"Alpha", "ALPHABET"}));
    EXPECT_EQ(list.stringValue(), "beta");
    QTest::keyClicks(line, "B");
    EXPECT_EQ(rows(), (Rows{"ALPHABET"}));
    list.insertItemWithObjectValue("my alphabet", 0);
    list.insertItemWithObjectValue("other", 0);
    EXPECT_EQ(rows(), (Rows{"my alphabet", "ALPHABET"}));
    list.removeItemAtIndex(1);
    EXPECT_EQ(rows(), (Rows{"ALPHABET"}));
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, centreOf(0));
    ASSERT_EQ(picks.size(), 1U);
    EXPECT_EQ(picks[0], std::pair(3, "ALPHABET"s));
    QCoreApplication::processEvents();
    EXPECT_EQ(rows(), (Rows{"ALPHABET"})) << "the next click on the same spot is not another's";
    EXPECT_EQ(line->text(), "alphaB");
}

TEST_F(ListControlTest, WorksByKeyboardAlone) {
    fill({"one", "two", "three", ""});
    for (int i = 0; i < 2; ++i) QTest::keyClick(line, Qt::Key_Down);
    EXPECT_TRUE(picks.empty()) << "moving is not picking";
    QTest::keyClick(line, Qt::Key_Return);
    QCoreApplication::processEvents();
    QTest::keyClicks(line, "thr");
    QTest::keyClick(line, Qt::Key_Enter);
    EXPECT_EQ(picks, (std::vector<std::pair<int, std::string>>{{1, "two"}, {2, "three"}}));
}

TEST_F(ListControlTest, ADoubleClickIsOnePick) {
    fill({"a", "b", "c"});
    QObject::connect(&list, &ListControl::picked,
                     [this](int index, const std::string &) { list.removeItemAtIndex(index); });
    const auto send = [this](std::initializer_list<QEvent::Type> types) {
        for (const QEvent::Type type : types) {
            const QPointF at = centreOf(0);
            const auto buttons = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
            QMouseEvent event(type, at, view->viewport()->mapToGlobal(at), Qt::LeftButton, buttons, {});
            QCoreApplication::sendEvent(view->viewport(), &event);
        }
        return rows();
    };
    EXPECT_EQ(send({QEvent::MouseButtonPress, QEvent::MouseButtonRelease, QEvent::MouseButtonDblClick,
                    QEvent::MouseButtonRelease}),
              (Rows{"b", "c"}));
    EXPECT_EQ(send({QEvent::MouseButtonPress, QEvent::MouseButtonRelease}), (Rows{"c"}));
}

TEST(TextView, ShowsLargeTextsWholeWithoutHoldingUpTheInterface) {
    TextView view;
    view.resize(400, 150);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    QString lines;
    for (int i = 0; i < 100'000; ++i) lines += QString::number(i) + u'\n';
    const QString oneLine(1'000'000, u'x');
    for (const QString &text : {QStringLiteral("short\ttext\n"), lines, oneLine}) {
        view.setString(text);
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

}  // namespace
