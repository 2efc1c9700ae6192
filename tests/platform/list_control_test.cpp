#include "platform/ListControl.h"

#include <gtest/gtest.h>

#include <QLineEdit>
#include <QListView>
#include <QMouseEvent>
#include <QTest>

#include "tests/support/WaitFor.h"

using namespace std::string_literals;

class ListControlTest : public testing::Test {
  protected:
    void SetUp() override {
        QObject::connect(&list, &ListControl::picked, [this](int index, const std::string &text) {
            picks.emplace_back(index, text);
            list.selectPicked(index, text);
        });
        QObject::connect(&list, &ListControl::dismissed, [this] { ++dismissals; });
        list.resize(300, 300);
        list.show();
        ASSERT_TRUE(QTest::qWaitForWindowActive(&list));
        line->setFocus();
    }

    void fill(const std::vector<std::string> &texts) {
        auto whole = std::make_shared<std::string>();
        for (const auto &text : texts) *whole += text;
        std::vector<std::string_view> pieces;
        std::size_t at = 0;
        for (const auto &text : texts) {
            pieces.push_back(std::string_view(*whole).substr(at, text.size()));
            at += text.size();
        }
        list.addItems(whole, pieces);
    }
    std::vector<std::string> rows() const {
        std::vector<std::string> shown;
        for (const std::size_t item : list.shownItems()) shown.emplace_back(list.itemAtIndex(item));
        return shown;
    }
    void click(int row) {
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {},
                          view->visualRect(view->model()->index(row, 0)).center());
    }

    ListControl list;
    QLineEdit *line = list.findChild<QLineEdit *>();
    QListView *view = list.findChild<QListView *>();
    std::vector<std::pair<int, std::string>> picks;
    int dismissals = 0;
};

TEST_F(ListControlTest, ItsTextIsTheWholeTextOfTheSelectedItem) {
    const std::vector<std::string> texts{"tabs\tand\nlines"s, "nul\0nul"s,
                                         "\xF0\x9F\x98\x80 e\xCC\x81 \xD7\xA9"s, std::string(5'000'000, 'x'),
                                         ""s};
    fill(texts);
    for (std::size_t i = 0; i < texts.size(); ++i) {
        list.selectItemAtIndex(static_cast<int>(i));
        EXPECT_TRUE(list.stringValue() == texts[i]);
    }
    list.selectItemAtIndex(99);
    EXPECT_EQ(list.stringValue(), "");
    EXPECT_EQ(list.indexOfSelectedItem(), -1);
}

TEST_F(ListControlTest, SelectionFollowsItsItemAndTheTextOutlivesIt) {
    fill({"a", "b", "c"});
    list.selectItemAtIndex(1);
    list.insertItemWithObjectValue("new", 0);
    EXPECT_EQ(list.indexOfSelectedItem(), 2);
    list.removeItemAtIndex(0);
    EXPECT_EQ(list.indexOfSelectedItem(), 1);
    list.removeItemAtIndex(1);
    EXPECT_EQ(list.indexOfSelectedItem(), -1);
    EXPECT_EQ(list.stringValue(), "b");
    EXPECT_EQ(rows(), (std::vector<std::string>{"a", "c"}));
    list.removeItemAtIndex(-1);
    list.removeItemAtIndex(7);
    EXPECT_EQ(list.numberOfItems(), 2U);
    list.removeAllItems();
    EXPECT_EQ(list.stringValue(), "b");
}

TEST_F(ListControlTest, TypingFiltersAndAPickMeansTheItemOnTheRow) {
    fill({"Alpha", "beta", "ALPHABET", "gamma \xC3\x84rger", ""});
    list.selectItemAtIndex(1);
    waitFor([&] { return line->text() == u"beta"; }, 1000);
    line->selectAll();
    QTest::keyClicks(line, QStringLiteral("alpha"));
    EXPECT_EQ(rows(), (std::vector<std::string>{"Alpha", "ALPHABET"}));
    EXPECT_EQ(list.stringValue(), "beta");
    QTest::keyClicks(line, QStringLiteral("B"));
    EXPECT_EQ(rows(), (std::vector<std::string>{"ALPHABET"}));
    list.insertItemWithObjectValue("my alphabet", 0);
    list.insertItemWithObjectValue("other", 0);
    EXPECT_EQ(rows(), (std::vector<std::string>{"my alphabet", "ALPHABET"}));
    list.removeItemAtIndex(1);
    EXPECT_EQ(rows(), (std::vector<std::string>{"ALPHABET"}));
    click(0);
    ASSERT_EQ(picks.size(), 1U);
    EXPECT_EQ(picks[0], std::pair(3, "ALPHABET"s));
    list.selectPicked(3, "ALPHABET");
    QCoreApplication::processEvents();
    EXPECT_EQ(rows(), (std::vector<std::string>{"ALPHABET"}))
        << "the next click on the same spot is not another's";
    EXPECT_EQ(line->text(), QStringLiteral("alphaB"));
    QTest::keyClick(line, Qt::Key_Escape);
    EXPECT_EQ(rows().size(), 6U);
    line->setText(QString::fromUtf8("\xC3\xA4RG"));
    EXPECT_EQ(rows(), (std::vector<std::string>{"gamma \xC3\x84rger"}));
}

TEST_F(ListControlTest, WorksByKeyboardAlone) {
    fill({"one", "two", "three", ""});
    QTest::keyClick(line, Qt::Key_Return);
    EXPECT_TRUE(picks.empty()) << "nothing is marked yet";
    QTest::keyClick(line, Qt::Key_Down);
    QTest::keyClick(line, Qt::Key_Down);
    EXPECT_TRUE(picks.empty()) << "moving is not picking";
    QTest::keyClick(line, Qt::Key_Return);
    ASSERT_EQ(picks.size(), 1U);
    EXPECT_EQ(picks[0].second, "two");
    QCoreApplication::processEvents();
    QTest::keyClicks(line, QStringLiteral("thr"));
    QTest::keyClick(line, Qt::Key_Enter);
    ASSERT_EQ(picks.size(), 2U);
    EXPECT_EQ(picks[1].second, "three");
    QCoreApplication::processEvents();
    line->setText(QStringLiteral("one"));
    QTest::keyClick(line, Qt::Key_Escape);
    EXPECT_EQ(rows().size(), 4U);
    EXPECT_EQ(dismissals, 0);
    QTest::keyClick(line, Qt::Key_Escape);
    EXPECT_EQ(dismissals, 1);
    for (int i = 0; i < 100; ++i) list.insertItemWithObjectValue("more " + std::to_string(i), 0);
    line->setFocus();
    view->setCurrentIndex(view->model()->index(0, 0));
    QTest::keyClick(line, Qt::Key_PageDown);
    const int page = view->currentIndex().row();
    EXPECT_GT(page, 3);
    QTest::keyClick(line, Qt::Key_PageDown);
    EXPECT_GT(view->currentIndex().row(), page + 3);
    QTest::keyClick(line, Qt::Key_PageUp);
    QTest::keyClick(line, Qt::Key_PageUp);
    EXPECT_EQ(view->currentIndex().row(), 0);
    view->setFocus();
    QTest::keyClick(view, Qt::Key_G);
    EXPECT_EQ(line->text(), QStringLiteral("g"));
}

TEST_F(ListControlTest, APickHeldBackUntilTheListChangedKeepsItsText) {
    fill({"a", "b"});
    list.insertItemWithObjectValue("new", 0);
    list.selectPicked(1, "b");  // picked when "b" was at 1
    EXPECT_EQ(list.stringValue(), "b");
    EXPECT_EQ(list.indexOfSelectedItem(), 2);
    list.selectPicked(1, "gone");
    EXPECT_EQ(list.stringValue(), "gone");
    EXPECT_EQ(list.indexOfSelectedItem(), -1);
}

TEST_F(ListControlTest, ADoubleClickIsOnePick) {
    fill({"a", "b", "c"});
    QObject::connect(&list, &ListControl::picked,
                     [this](int index, const std::string &) { list.removeItemAtIndex(index); });
    const auto send = [this](QEvent::Type type) {
        const QPointF at = view->visualRect(view->model()->index(0, 0)).center();
        const auto buttons = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
        QMouseEvent event(type, at, view->viewport()->mapToGlobal(at), Qt::LeftButton, buttons, {});
        QCoreApplication::sendEvent(view->viewport(), &event);
    };
    send(QEvent::MouseButtonPress);
    send(QEvent::MouseButtonRelease);
    send(QEvent::MouseButtonDblClick);
    send(QEvent::MouseButtonRelease);
    EXPECT_EQ(rows(), (std::vector<std::string>{"b", "c"}));
    send(QEvent::MouseButtonPress);
    send(QEvent::MouseButtonRelease);
    EXPECT_EQ(rows(), (std::vector<std::string>{"c"}));
}
