#include <QTest>
#include <QTimer>

#include "support/ScriptedFtpServer.h"
#include "tests/app/ControllerTest.h"

using namespace std::chrono_literals;

namespace {

// The controller and a server that misbehaves. Its uploads are counted from the probe at the start on: 0.
class ServerFaults : public ControllerTest {
  protected:
    AppDelegate &startWith(const Faults &faults) {
        server = std::make_unique<ScriptedFtpServer>(faults);
        configuration.storageHost = "127.0.0.1";
        configuration.storagePort = server->port();
        for (const char *user : {"alice1", "bobby1"}) {
            put(std::string(user) + "_Username.txt", user);
            put(std::string(user) + "_Password.txt", "secret");
        }
        return start();
    }
    // The `index`th of these is refused.
    static Fault refused(const char *verb, int index) {
        return {.at = verb, .reply = "550 No.", .skip = index, .times = 1};
    }

    Interface &i() { return delegate->interface; }
    void put(const std::string &name, const std::string &text) const {
        server->setFile("htdocs/" + name, text);
    }
    std::optional<std::string> stored(const std::string &name) const {
        return server->file("htdocs/" + name);
    }

    void signUp() {
        i().Open_sign_up_view->trigger();
        for (QLineEdit *field : {i().Sign_up_Fullname, i().Sign_up_username})
            field->setText(QStringLiteral("carol1"));
        for (QLineEdit *field : {i().Sign_up_password, i().Sign_up_re_password})
            field->setText(QStringLiteral("secret"));
        i().Sign_up_email->setText(QStringLiteral("c@d.e"));
        i().Sign_up_done->click();
        settle();
    }
    void signIn() {
        i().Open_sign_in_window->trigger();
        i().Sign_in_username->setText(QStringLiteral("alice1"));
        i().Sign_in_password->setText(QStringLiteral("secret"));
        i().Sign_in_done->click();
    }
    void changePassword() {
        i().Change_old_password->setText(QStringLiteral("secret"));
        for (QLineEdit *field : {i().Change_new_password, i().Change_retype_password})
            field->setText(QStringLiteral("better"));
        i().Change_done_button->click();
        settle();
    }
    void addFriend(const char *name) {
        i().Add_contact_textfield->setText(QLatin1String(name));
        i().Add_contact_done_button->click();
        settle();
    }
    void pickFriend(int row) {
        i().Contacts_table->setCurrentIndex(i().Contacts_table->model()->index(row, 0));
        QTest::keyClick(i().Contacts_table, Qt::Key_Return);
        settle();
    }

    std::unique_ptr<ScriptedFtpServer> server;
};

TEST_F(ServerFaults, TheLastUploadAloneDecidesASignUp) {
    const std::vector<std::string> kinds = {"Fullname", "Username", "Email", "Password"};
    for (int refusedOne = 1; refusedOne <= 4; ++refusedOne) {
        SCOPED_TRACE(refusedOne);
        setNotFirstUse();
        startWith({refused("STOR", refusedOne)});
        if (refusedOne < 4) {
            alerts.expect("Success!", "You have successfully been registred as Quillery member.");
        } else {
            alerts.expect(
                "Faild!",
                "You haven't been registred as Quillery member,duo to Error or internet connection problem.");
        }
        signUp();
        for (int k = 1; k <= 4; ++k)
            EXPECT_EQ(stored("carol1_" + kinds[static_cast<std::size_t>(k - 1)] + ".txt").has_value(),
                      k != refusedOne);
        EXPECT_TRUE(i().Sign_up_done->isEnabled());
        signIn();
        EXPECT_TRUE(delegate->isSigned_in) << "the program works on";
        delegate.reset();
    }
}

TEST_F(ServerFaults, AFileThatCannotBeReadSignsNobodyIn) {
    for (int unreadable = 0; unreadable < 2; ++unreadable) {
        setNotFirstUse();
        startWith({refused("RETR", unreadable)});
        signIn();
        EXPECT_FALSE(delegate->isSigned_in);
        EXPECT_EQ(i().Sign_in_done->text(), QStringLiteral("Wrong entries/Network error!"));
        i().Sign_in_done->click();
        EXPECT_TRUE(delegate->isSigned_in);
        delegate.reset();
    }
    setNotFirstUse();
    startWith({refused("STOR", 1)});
    alerts.expect("Error!", "Please check your connection.");
    signIn();
    EXPECT_FALSE(delegate->isSigned_in) << "the entries were right, but the server takes no file";
}

TEST_F(ServerFaults, ARefusedPasswordChangeLeavesTheOldOneInForce) {
    setAutoLogin(QStringLiteral("alice1"));
    startWith({refused("STOR", 1)});
    alerts.expect("Faild!", "Your password hasn't been changed duo to network/server error.");
    changePassword();
    EXPECT_EQ(stored("alice1_Password.txt"), "secret");
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("kPassword")), QStringLiteral("secret"));
    EXPECT_TRUE(i().Change_done_button->isEnabled());
    EXPECT_EQ(i().Change_new_password->text(), QString());
    alerts.expect("Success!", "You've successfully changed your password!");
    changePassword();
    EXPECT_EQ(stored("alice1_Password.txt"), "better");
}

TEST_F(ServerFaults, OfTheFriendsListLoseNoFriend) {
    setAutoLogin(QStringLiteral("alice1"));
    startWith({{.at = "STOR", .reply = "550 No.", .skip = 1, .times = 2}});
    put("alice1_Contacts.txt", "dave99" + kEnd);
    alerts.expect("Success!", "You have successfully added \"bobby1\" to your friends list");
    addFriend("bobby1");
    EXPECT_EQ(stored("alice1_Contacts.txt"), "dave99" + kEnd) << "silently, as it is";
    i().Remove_a_friend_item->trigger();
    alerts.expect("Alert!", "Are you sure you want to remove \"dave99\"");
    alerts.expect("Alert!", "You have successfully removed\"dave99\"");
    pickFriend(0);
    EXPECT_EQ(stored("alice1_Contacts.txt"), "dave99" + kEnd);
    EXPECT_FALSE(delegate->RemoveContact_enabled);

    put("alice1_Contacts.txt", "dave99");  // without its end
    delegate->Contact_index_number = 0;
    addFriend("bobby1");
    EXPECT_EQ(stored("alice1_Contacts.txt"), "dave99") << "there is no empty name to add it at";
}

TEST_F(ServerFaults, AFriendsListThatCannotBeReadIsNotWritten) {
    setAutoLogin(QStringLiteral("alice1"));
    // The list at the start, the friends to show, then the friends to change.
    startWith({refused("RETR", 2)});
    put("alice1_Contacts.txt", "dave99" + kEnd);
    i().Remove_a_friend_item->trigger();
    alerts.expect("Alert!", "Are you sure you want to remove \"dave99\"");
    alerts.expect("Alert!", "You have successfully removed\"dave99\"");
    pickFriend(0);
    EXPECT_EQ(stored("alice1_Contacts.txt"), "dave99" + kEnd);
}

TEST_F(ServerFaults, ATextThatCannotBeSentChangesNothing) {
    setAutoLogin(QStringLiteral("alice1"));
    startWith({refused("STOR", 1)});
    put("alice1_Contacts.txt", "bobby1" + kEnd);
    put(".bobby1_Quillery.txt", "x" + kEnd);
    i().Clipboard_saved_string_combobox->insertItemWithObjectValue("abc", 0);
    i().Share_switch->click();
    pick(0);
    pickFriend(0);
    EXPECT_EQ(stored(".bobby1_Quillery.txt"), "x" + kEnd);
    i().Contacts_item->trigger();
    settle();
    alerts.expect("Success!", "You have successfull share \"abc\" with \"bobby1\"");
    pickFriend(0);
    EXPECT_EQ(stored(".bobby1_Quillery.txt"), "Shared from(alice1)abc" + kEnd + "x" + kEnd);
}

TEST_F(ServerFaults, AStallingServerIsWaitedForVisiblyAndCanBeGivenUp) {
    setNotFirstUse();
    startWith({{.at = "RETR", .stalls = true, .times = 1}});
    int turns = 0;
    QTimer heartbeat;
    QObject::connect(&heartbeat, &QTimer::timeout, [&] { ++turns; });
    heartbeat.start(10);
    int asked = 0;
    QObject::connect(&waiting, &Waiting::slow, [&](const QString &whatFor) {
        EXPECT_FALSE(whatFor.isEmpty());
        QTimer::singleShot(0, [&] {
            EXPECT_TRUE(i().waitingWindow->isVisible());
            for (int k = 0; k < 10; ++k) i().Contacts_item->trigger();
            asked = turns;
            QTest::keyClick(i().waitingWindow.get(), Qt::Key_Escape);
        });
    });
    const auto whatIsShown = [&] { return i().Quillery_Box->contentView(); };
    signIn();
    EXPECT_GT(asked, 40) << "the event loop turned all the time";
    EXPECT_FALSE(delegate->isSigned_in) << "a cancelled read gave nothing";
    EXPECT_EQ(i().Sign_in_done->text(), QStringLiteral("Wrong entries/Network error!"));
    EXPECT_EQ(whatIsShown(), i().Contacts_View) << "what was asked for meanwhile came after it";
    EXPECT_FALSE(i().waitingWindow->isVisible());
    signIn();
    EXPECT_TRUE(delegate->isSigned_in);
}

TEST_F(ServerFaults, AFormThatIsBeingCheckedCannotBeChangedOrSentAgain) {
    setNotFirstUse();
    startWith({{.at = "RETR", .delay = 300ms}});
    const auto isLocked = [](const QLineEdit *field, const QPushButton *button) {
        return field->isReadOnly() && !button->isEnabled();
    };
    bool signUpIsLocked = false;
    bool signInIsLocked = false;
    QTimer::singleShot(100, [&] { signUpIsLocked = isLocked(i().Sign_up_username, i().Sign_up_done); });
    alerts.expect("Success!", "You have successfully been registred as Quillery member.");
    signUp();
    QTimer::singleShot(100, [&] {
        signInIsLocked = isLocked(i().Sign_in_username, i().Sign_in_done);
        i().Sign_in_done->click();
    });
    signIn();
    settle();
    EXPECT_TRUE(signUpIsLocked && signInIsLocked);
    EXPECT_TRUE(delegate->isSigned_in);
    EXPECT_EQ(i().Sign_in_done->text(), QStringLiteral("Sign in")) << "the second click was none";
    EXPECT_FALSE(isLocked(i().Sign_in_username, i().Sign_in_done));
}

TEST_F(ServerFaults, ASignUpWhoseLookAtTheNameIsCancelledWritesNothing) {
    setNotFirstUse();
    startWith({{.at = "RETR", .stalls = true, .times = 1}});
    put("carol1_Username.txt", "carol1");
    QTimer::singleShot(300, [&] { waiting.cancel(); });
    signUp();
    EXPECT_EQ(stored("carol1_Password.txt"), std::nullopt);
    EXPECT_EQ(i().Sign_up_username->text(), QStringLiteral("carol1"));
    EXPECT_TRUE(i().Sign_up_done->isEnabled());
}

TEST_F(ServerFaults, WhatWasPickedStaysPickedUntilItIsDone) {
    setAutoLogin(QStringLiteral("alice1"));
    putLocal("");
    startWith({{.at = "RETR", .delay = 300ms, .skip = 3}});
    put(".alice1_Quillery.txt", "one" + kEnd + "two" + kEnd + "three" + kEnd);
    i().Clipboard_saves_menu_item->trigger();
    ASSERT_EQ(items().size(), 4U);
    i().RemoveItem_button->click();
    pick(1);
    // While the list is being read for the removal, a save looks for its text through the whole list.
    copy("three");
    alerts.expect("Error!", "Text does exist in the list.");
    i().Saveing_menu_item->trigger();
    settle();
    EXPECT_EQ(stored(".alice1_Quillery.txt"), "one" + kEnd + "three" + kEnd);
}

TEST_F(ServerFaults, AServerThatGoesAwayLeavesEverythingUsable) {
    setAutoLogin(QStringLiteral("alice1"));
    startWith({});
    put("alice1_Contacts.txt", "bobby1" + kEnd);
    put(".alice1_Quillery.txt", "abc" + kEnd);
    i().Clipboard_saves_menu_item->trigger();
    server.reset();
    i().Clipboard_saves_menu_item->trigger();
    EXPECT_EQ(items(), Items({"abc", ""})) << "what was read stays";
    alerts.expect("Alert!", "You have no firends in the list");
    i().Remove_a_friend_item->trigger();
    addFriend("bobby1");
    changePassword();
    EXPECT_EQ(i().Change_done_button->text(), QStringLiteral("Check your entries."));
    i().RemoveItem_button->click();
    alerts.expect("Error!", "Server/Internet connection error.\nUnable to save text.");
    pick(0);
    settle();
    i().Log_in_menu_item->trigger();
    i().RemoveItem_button->click();
    save("local again");
    EXPECT_EQ(local(), "local again" + kEnd) << "the local list works on";
}

}  // namespace
