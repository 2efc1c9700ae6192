#include <QTest>
#include <atomic>
#include <thread>

#include "tests/app/ControllerTest.h"

using namespace std::chrono_literals;

namespace {
const QString kError = QStringLiteral("Error!");
const QString kEmpty = QStringLiteral("Your clipboard is empty.");
}  // namespace

class GateTest : public ControllerTest {
  protected:
    GateTest() { setNotFirstUse(); }
};

TEST_F(GateTest, ActionsDuringAnAlertRunAfterItOnceEachInOrder) {
    putLocal("a" + kEnd + "b" + kEnd);
    start();
    enter([&] { delegate->Clipboard_saves(nullptr); });
    copy("");
    alerts.expect(kError, kEmpty, 0, [&] {
        pick(0);
        delegate->interface.RemoveItem_button->click();
        pick(1);
        delegate->Save_bar_item(VkKeyEvent());
        Q_EMIT notifications.activated({});
        copy("copied meanwhile");
        EXPECT_EQ(clipboard(), "copied meanwhile") << "no pick ran inside the alert";
        EXPECT_FALSE(delegate->RemoveMode_enabled);
    });
    alerts.expect(kError, QStringLiteral("Text does exist in the list."));
    alerts.expect(QStringLiteral("Success!"), QStringLiteral("You have successully save:(\"a\")"));
    delegate->interface.Saveing_menu_item->trigger();
    settle();
    // The first pick copied "a"; remove mode came on; the second pick removed "b"; the hot key found "a" in
    // the list.
    EXPECT_EQ(items(), (Items{"a", ""}));
    EXPECT_EQ(local(), "a" + kEnd);
}

TEST_F(GateTest, TenClicksDuringAReadRunAfterItOnceEachInOrder) {
    setAutoLogin(QStringLiteral("alice"));
    putLocal("");
    putRemote(".alice_Quillery.txt", "far" + kEnd);
    start();
    copy("");
    Interface &elements = delegate->interface;
    const int clicks = 10;
    std::vector<int> answers;
    QTimer::singleShot(0, [&] {
        // The list is being read just now. Only the question whether to quit does not wait for that.
        alerts.expect(QStringLiteral("Alert!"), QStringLiteral("Are you sure you want to quit?"), 1);
        elements.Quit->trigger();
        EXPECT_EQ(alerts.outstanding(), 0U);
        for (int click = 0; click < clicks; ++click) {
            if (click % 2 == 0) {
                alerts.expect(kError, kEmpty);
                elements.Saveing_menu_item->trigger();
            } else {
                alerts.expect(QStringLiteral("Alert!"), QStringLiteral("You have no firends in the list"));
                elements.Remove_a_friend_item->trigger();
            }
        }
        delegate->performRequest("save", [&](const SingleInstance::Answer &answer) {
            EXPECT_EQ(alerts.outstanding(), 10U) << "before the first alert that would hold it up";
            answers.push_back(answer.status);
        });
        EXPECT_TRUE(gate.isBusy());
        EXPECT_EQ(alerts.outstanding(), 10U) << "none ran inside the read";
    });
    elements.Clipboard_saves_menu_item->trigger();
    EXPECT_EQ(answers, std::vector<int>{1});
    EXPECT_EQ(items(), (Items{"far", ""}));
}

TEST_F(GateTest, AnAlertOfABackgroundOperationWaitsForTheOneThatIsUp) {
    setAutoLogin(QStringLiteral("alice"));
    putLocal("");
    putRemote(".alice_Quillery.txt", "a" + kEnd);
    start();
    enter([&] { delegate->Clipboard_saves(nullptr); });
    std::filesystem::remove(htdocs / ".alice_Quillery.txt");
    delegate->interface.RemoveItem_button->click();
    pick(0);
    copy("");
    alerts.expect(kError, kEmpty, 0, [&] {
        // Long enough for the removal to fail and to ask for its alert.
        EXPECT_TRUE(waitFor([&] { return items().size() == 1; }));
        QTest::qWait(200);
        EXPECT_EQ(alerts.outstanding(), 1U);
    });
    alerts.expect(kError, QStringLiteral("Server/Internet connection error.\nUnable to save text."));
    delegate->interface.Saveing_menu_item->trigger();
    settle();
}

// The row that was picked is found again, whatever has come on top of it since.
TEST_F(GateTest, AQueuedPickFindsItsRowAgain) {
    putLocal("a" + kEnd + "b" + kEnd);
    start();
    enter([&] { delegate->Clipboard_saves(nullptr); });
    delegate->interface.RemoveItem_button->click();
    copy("new");
    enter([&] {
        delegate->Save_bar_item(VkKeyEvent());
        pick(1);
    });
    settle();
    EXPECT_EQ(items(), (Items{"new", "a", ""}));
    EXPECT_EQ(local(), "new" + kEnd + "a" + kEnd);
}

// What a save was for is decided when it is asked for.
TEST_F(GateTest, ASaveBeforeALogOutIsTheUsersOwn) {
    setAutoLogin(QStringLiteral("alice"));
    start();
    copy("hers");
    enter([&] {
        delegate->Save_bar_item(VkKeyEvent());
        delegate->interface.Log_in_menu_item->trigger();
        delegate->interface.Share_switch->toggle();
    });
    settle();
    EXPECT_FALSE(delegate->isSigned_in);
    EXPECT_EQ(remote(".alice_Quillery.txt"), "hers" + kEnd);
    EXPECT_FALSE(delegate->ShareMode_enabled) << "its toggle was disabled by then";
    EXPECT_FALSE(delegate->interface.Share_switch->isChecked());
}

// Many saves one after another, as quickly as the gate takes them: each is in the file, newest first.
TEST_F(GateTest, QuickSavesAllArriveInOrder) {
    start();
    std::string expected;
    for (int i = 0; i < 50; ++i) {
        copy("text " + std::to_string(i));
        delegate->interface.Saveing_menu_item->trigger();
        expected.insert(0, "text " + std::to_string(i) + kEnd);
    }
    settle();
    EXPECT_EQ(local(), expected);
}
