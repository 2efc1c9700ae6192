// Accounts and friends, with a server that works; what it does to them where it does not is in
// server_faults_test.cpp.
#include <QTest>
#include <set>

#include "tests/app/ControllerTest.h"

namespace {

class Accounts : public ControllerTest {
  protected:
    void changeOwnPassword(const QString &old, const QString &next) {
        changePassword(old, next, next);
        settle();
    }
};

TEST_F(Accounts, SignUpRefusesOnItsButtonAndKeepsWhatWasTyped) {
    putRemote("taken1_Username.txt", "");
    start();
    for (const auto &[password, refusal] :
         {std::pair("short", "Check your entries."), std::pair("longer", "Username exist.")}) {
        signUp("taken1", password);
        EXPECT_EQ(i().Sign_up_done->text(), refusal);
        EXPECT_TRUE(i().Sign_up_done->isEnabled());
        EXPECT_EQ(i().Sign_up_username->text(), "taken1");
    }
    EXPECT_EQ(remote("taken1_Password.txt"), std::nullopt);
}

TEST_F(Accounts, NamesThatAreNoFileNamesAreNeverFoundAndNeverWritten) {
    putAccount("alice1");
    start();
    const auto files = [this] {
        std::set<std::filesystem::path> paths;
        for (const auto &file : std::filesystem::recursive_directory_iterator(htdocs / ".." / ".."))
            paths.insert(file.path());
        return paths;
    };
    const auto before = files();
    for (const char *user : {"../../evil1", "a/bcdef",
                             "ab\x01"
                             "cdef",
                             "alice1\r", "../htdocs/alice1"}) {
        SCOPED_TRACE(user);
        signIn(user);
        EXPECT_EQ(i().Sign_in_done->text(), "Wrong entries/Network error!");
        alerts.expect({kNotRegistered});
        signUp(user);
        EXPECT_FALSE(i().Quillery_window->isVisible());
        delegate->Username = user;
        i().Change_done_button->setEnabled(true);
        changeOwnPassword("secret", "better");
        EXPECT_EQ(i().Change_done_button->text(), "Check your entries.");
    }
    EXPECT_EQ(files(), before);
    EXPECT_EQ(remote("alice1_Password.txt"), "secret");
}

TEST_F(Accounts, OddNamesAndPasswordsAreLikeAnyOther) {
    start();
    putAccount("plain1");
    putRemote(".plain1_Quillery.txt", "of plain1" + kEnd);
    QString before = "plain1";  // the friend of the next one
    for (const QString user : {".hidden", "_Username.txt", " blanks ", "100%#;x?",
                               "Gr\u00FC\u00DF"
                               "e\u4F60",
                               "PLAIN1", "plain1%20"}) {
        const std::string name = user.toStdString();
        const std::string contact = before.toStdString();
        const QString password = "sec\rret " + user;  // the field shows a lone CR as it likes
        SCOPED_TRACE(name);
        alerts.expect({kRegistered});
        signUp(user, password);
        EXPECT_EQ(shownView(), i().Sign_in_view);
        EXPECT_EQ(remote(name + "_Fullname.txt"), "Alice A");
        EXPECT_EQ(remote(name + "_Username.txt"), name);
        EXPECT_EQ(remote(name + "_Email.txt"), "a@b.c");
        EXPECT_EQ(remote(name + "_Password.txt"), password.toStdString());
        EXPECT_EQ(remote(name + "_Contacts.txt"), std::nullopt);
        signIn(user, password);
        ASSERT_TRUE(delegate->isSigned_in);
        save("of " + name);
        EXPECT_EQ(remote("." + name + "_Quillery.txt"), "of " + name + kEnd);
        putRemote(name + "_Contacts.txt", "");
        delegate->Contact_index_number = 0;
        alerts.expect({friendAdded(before)});
        addFriend(before);
        EXPECT_EQ(remote(name + "_Contacts.txt"), contact + kEnd);
        delegate->ShareMode_enabled = true;
        i().Quillery_window->show();
        pick(0);
        alerts.expect({shared("of " + user, before)});
        pickFriend();
        EXPECT_EQ(remote("." + contact + "_Quillery.txt"),
                  "Shared from(" + name + ")of " + name + kEnd + "of " + contact + kEnd);
        alerts.expect({kPasswordChanged});
        changeOwnPassword(password, "better");
        EXPECT_EQ(remote(name + "_Password.txt"), "better");
        i().Log_in_menu_item->trigger();
        before = user;
    }
}

TEST_F(Accounts, SignInWithWrongEntriesSaysSoInItsWindowAndKeepsThem) {
    putAccount("alice1");
    putRemote("nopass1_Username.txt", "nopass1");
    start();
    for (const auto &[user, password] :
         std::vector<std::pair<const char *, const char *>>{{"alice1", "Secret"},
                                                            {"alice1", "secret\r"},
                                                            {"Alice1", "secret"},
                                                            {"nopass1", ""},
                                                            {"nobody", "secret"},
                                                            {"", ""}}) {
        signIn(user, password);
        EXPECT_EQ(i().Sign_in_done->text(), "Wrong entries/Network error!") << user;
        EXPECT_TRUE(i().Sign_in_view->isVisible());
        EXPECT_EQ(i().Sign_in_username->text(), user);
        EXPECT_FALSE(delegate->isSigned_in);
    }
    signIn("alice1");
    EXPECT_EQ(i().Sign_in_done->text(), "Sign in");
}

TEST_F(Accounts, ANewPasswordIsTheServersAndTheSettingAtOnceAndTheSessionsNextTime) {
    putAccount("alice1");
    setAutoLogin("alice1");
    start();
    changeOwnPassword("Secret", "better");
    EXPECT_EQ(i().Change_done_button->text(), "Check your entries.");
    EXPECT_EQ(i().Change_new_password->text(), "better");
    Alert changed = kPasswordChanged;
    changed.during = [this] {
        EXPECT_FALSE(i().Quillery_window->isVisible());
        EXPECT_EQ(stored("kPassword"), "secret");
    };
    alerts.expect({changed});
    changeOwnPassword("secret", "better");
    EXPECT_EQ(stored("kPassword"), "better");
    EXPECT_EQ(delegate->Password, "secret") << "the session keeps what it began with";
    EXPECT_EQ(i().Change_done_button->text(), "Done");
    start();
    EXPECT_EQ(delegate->Password, "better");
}

// ---- Friends ----

class Friends : public ControllerTest {
  protected:
    Friends() {
        for (const char *user : {"alice1", "bobby1", "carol1", "bobby12", "_Username.txt"})
            putRemote(std::string(user) + "_Username.txt", user);
        setAutoLogin("alice1");
    }
    void putFriends(const std::optional<std::string> &text) const { putRemote("alice1_Contacts.txt", text); }
    std::optional<std::string> storedFriends() const { return remote("alice1_Contacts.txt"); }
    void openFriends() {
        i().Contacts_item->trigger();
        settle();
    }
    void click(int row) {
        TableView &table = *i().Contacts_table;
        ASSERT_TRUE(table.isVisible());
        QTest::mouseClick(table.viewport(), Qt::LeftButton, {},
                          table.visualRect(table.model()->index(row, 0)).center());
        settle();
    }
};

TEST_F(Friends, AreAddedByTheVeryNameOfTheirAccountFromWhereTheLastLookStopped) {
    const std::string bobby = "bobby1" + kEnd, xy = "x" + kEnd + "y" + kEnd, broken = "not \xFF text";
    const Alert exists{"Alert!", "Contact does exist"}, self{"Error!", "You can't add your self"};
    struct Row {
        std::optional<std::string> list;
        int from;
        const char *name;
        Said said;
        std::string front = {};  // what comes in front of the list
        int next = 2;            // where the next look begins
    };
    for (const Row &row : {
             Row{bobby, 0, "carol1", {friendAdded("carol1")}, "carol1" + kEnd},
             Row{bobby, 0, "bobby12", {friendAdded("bobby12")}, "bobby12" + kEnd},
             Row{bobby, 0, "_Username.txt", {friendAdded("_Username.txt")}, "_Username.txt" + kEnd},
             Row{"", 0, "bobby1", {friendAdded("bobby1")}, bobby, 1},
             Row{bobby, 0, "bobby1", {exists}, "", 0},
             Row{bobby, 0, "", {exists}, "", 0},
             Row{bobby, 0, "alice1", {self}},
             Row{bobby, 0, "nobody", {kNobody}},
             Row{bobby, 0, "Bobby1", {kNobody}},
             Row{bobby, 0, "bobby", {kNobody}},
             Row{bobby, 0, " bobby1", {kNobody}},
             Row{bobby, 0, "bobby1/", {kNobody}},
             Row{bobby, 0, "../htdocs/bobby1", {kNobody}},
             Row{bobby, 0, "bobby1\r", {kNobody}},
             Row{bobby, 0, "bobby1_Username.txt", {kNobody}},
             Row{bobby, 2, "bobby1", {}},
             Row{xy, 2, "bobby1", {friendAdded("bobby1")}, bobby, 3},
             Row{"carol1", 0, "bobby1", {}, "", 1},  // without its end there is no empty name to add it at
             Row{broken, 0, "bobby1", {}, "", 0},
         }) {
        SCOPED_TRACE(std::string(row.name) + " " + std::to_string(row.from) + row.list.value_or(""));
        putFriends(row.list);
        start();
        delegate->Contact_index_number = row.from;
        alerts.expect(row.said);
        addFriend(row.name);
        EXPECT_EQ(FileManager().textAtPath(htdocs / "alice1_Contacts.txt").text,
                  row.list == broken ? std::nullopt : std::optional(row.front + *row.list));
        EXPECT_EQ(delegate->Contact_index_number, row.next);
        EXPECT_EQ(i().Add_contact_textfield->text(), row.front.empty() ? row.name : "");
        EXPECT_EQ(i().Add_contact_view->isVisible(), row.front.empty());
        EXPECT_EQ(i().lookAgain->isVisible(), row.from == 2 && row.list == bobby) << "nobody is left";
    }
    putFriends(bobby);
    delegate->Contact_index_number = 2;
    addFriend("bobby1");
    alerts.expect({exists});
    i().Look_again_button->click();
    EXPECT_FALSE(i().lookAgain->isVisible());
}

TEST_F(Friends, AFirstListIsStartedNeverOverOneThatIsThereOrMayBe) {
    start();
    addFriend("bobby1");
    EXPECT_EQ(storedFriends(), std::nullopt) << "without a list nothing happens at all";
    EXPECT_TRUE(i().startFriendsToAdd->isVisible());
    openFriends();
    EXPECT_TRUE(i().startFriends->isVisible());
    i().startFriends_button->click();
    EXPECT_EQ(storedFriends(), "");
    EXPECT_EQ(shownView(), i().Add_contact_view);
    EXPECT_FALSE(i().startFriendsToAdd->isVisible());
    putFriends({});
    openFriends();
    putFriends("bobby1" + kEnd);  // on another machine, meanwhile
    i().startFriends_button->click();
    EXPECT_EQ(storedFriends(), "bobby1" + kEnd);
    openFriends();
    EXPECT_FALSE(i().startFriends->isVisible());

    // A listing that does not even show the account proves nothing.
    putFriends({});
    putRemote("alice1_Username.txt", {});
    openFriends();
    EXPECT_FALSE(i().startFriends->isVisible());
    alerts.expect({{"Error!", "The storage server could not be asked, so nothing was changed."}});
    i().startFriends_button->click();
    EXPECT_EQ(storedFriends(), std::nullopt);
}

TEST_F(Friends, AreRemovedByAClickInTheTable) {
    start();
    alerts.expect({kNoFriends});
    i().Remove_a_friend_item->trigger();
    putFriends("bob" + kEnd + "jimbob" + kEnd + "carol1");
    i().Remove_a_friend_item->trigger();
    EXPECT_EQ(shownView(), i().Contacts_table);
    EXPECT_EQ(friends(), Items({"bob", "jimbob", "carol1"}));
    delegate->ShareMode_enabled = true;
    alerts.expect({wantToRemove("bob", 1)});
    click(0);
    EXPECT_EQ(alerts.defaultButton, 1);
    EXPECT_FALSE(delegate->ShareMode_enabled);
    EXPECT_TRUE(delegate->RemoveContact_enabled);

    alerts.expect({wantToRemove("bob"), friendRemoved("bob")});
    click(0);
    EXPECT_EQ(storedFriends(), "jimcarol1") << "the tail of a longer name goes, too";
    EXPECT_EQ(friends(), Items({"jimcarol1"}));
    EXPECT_FALSE(delegate->RemoveContact_enabled || i().Quillery_window->isVisible());
    EXPECT_EQ(delegate->Remove_contact_time_number, 1);
}

TEST_F(Friends, GetTheTextThatIsPickedUnderTheirVeryName) {
    putFriends("bobby1" + kEnd);
    putRemote(".alice1_Quillery.txt", "abc" + kEnd);
    putRemote(".bobby1_Quillery.txt", "x" + kEnd);
    start();
    openList();
    i().Share_switch->click();
    pick(0);
    EXPECT_EQ(shownView(), i().Contacts_view);
    EXPECT_EQ(friends(), Items({"bobby1", ""}));
    alerts.expect({shared("abc", "bobby1")});
    click(0);
    EXPECT_EQ(remote(".bobby1_Quillery.txt"), "Shared from(alice1)abc" + kEnd + "x" + kEnd);
    EXPECT_TRUE(delegate->ShareMode_enabled);
    EXPECT_FALSE(i().Quillery_window->isVisible());

    // From the view of all friends as well; a click beside the rows means nobody.
    putRemote(".bobby1_Quillery.txt", "");
    const auto share = [this](const char *contact) {
        delegate->Contacts_array = {contact};
        openFriends();
        EXPECT_EQ(shownView(), i().Contacts_View);
        i().Contacts_table->clearSelection();
        QTest::keyClick(i().Contacts_table, Qt::Key_Return);
        QTest::mouseClick(i().Contacts_table->viewport(), Qt::LeftButton, {},
                          QPoint(5, i().Contacts_table->height() - 5));
        click(0);
        EXPECT_EQ(delegate->Contact_Username, contact);
    };
    for (const char *contact : {"", "carol1", "bobby1/", "/../htdocs/.bobby1", "Bobby1", "bobby1\r"}) {
        alerts.expect({kWrongFriend});
        share(contact);
    }
    EXPECT_EQ(remote(".bobby1_Quillery.txt"), "");
    EXPECT_EQ(remote(".carol1_Quillery.txt"), std::nullopt);
    list().selectItemAtIndex(-1);
    alerts.expect({shared("", "bobby1")});
    share("bobby1");
    EXPECT_EQ(remote(".bobby1_Quillery.txt"), "Shared from(alice1)" + kEnd);
    enter([this] { delegate->Share_action(); });
    settle();
    EXPECT_EQ(remote("bobby1_shared.txt"), "(alice1)" + kEnd) << "a file of shared texts begins";
}

TEST_F(Friends, WhatIsOnTheScreenIsWhatAPickDoes) {
    putFriends("bobby1" + kEnd);
    putRemote(".bobby1_Quillery.txt", "");
    start();
    i().Contacts_item->trigger();
    EXPECT_TRUE(i().Friends_hint->text().startsWith("No text is picked"));
    EXPECT_EQ(friends(), Items());
    QApplication::setActiveWindow(i().Quillery_window.get());
    QTest::keyClick(i().Contacts_table, Qt::Key_F5);
    EXPECT_EQ(friends(), (Items{"bobby1", ""}));
    const auto check = [&](bool removes) {
        EXPECT_EQ(delegate->RemoveContact_enabled, removes);
        EXPECT_TRUE(i().Remove_contact->isVisible());
        EXPECT_EQ(i().Remove_contact->text(), removes ? "Done" : "Remove a friend");
        EXPECT_EQ(i().Quillery_window->windowTitle(), removes ? "Remove a Friend" : "Quillery");
        EXPECT_EQ(i().Friends_hint->text(), removes ? "A pick removes the friend from this list."
                                                    : "A pick sends \"abc\" to the friend.");
    };
    list().selectPicked(0, "abc");
    for (QAction *place : {i().Contacts_item, i().Remove_a_friend_item}) {
        place->trigger();
        EXPECT_EQ(i().Quillery_window->focusWidget(), i().Contacts_table) << "where Enter picks";
        for (const bool removes : {true, false}) {
            if (delegate->RemoveContact_enabled != removes) i().Remove_contact->click();
            check(removes);
        }
    }
    i().Log_in_menu_item->trigger();
    EXPECT_EQ(i().Friends_hint->text(), "Sign in to send a text to a friend.");
    EXPECT_EQ(list().stringValue(), "") << "it was the last user's";
    i().Contacts_item->trigger();
    click(0);
    EXPECT_EQ(remote(".bobby1_Quillery.txt"), "");
}

}  // namespace
