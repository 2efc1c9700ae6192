// Accounts and friends, with a server that works; what it does to them where it does not is in
// server_faults_test.cpp.
#include <QTest>
#include <set>

#include "tests/app/ControllerTest.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using Accounts = ControllerTest;

TEST_F(Accounts, AFormThatWillNotDoSaysSoOnItsButtonAndKeepsWhatWasTyped) {
    play(R"(
        account alice1
        remote taken1_Username.txt -
        remote nopass1_Username.txt nopass1
        start
        sign-up taken1 short   -> Sign_up_done=Check your entries.; enabled Sign_up_done=yes
        sign-up taken1 longer  -> Sign_up_done=Username exist.; enabled Sign_up_done=yes; Sign_up_username=taken1
        sign-in alice1 Secret  -> Sign_in_done=Wrong entries/Network error!; view=Sign_in_view
        sign-in alice1 secret\r -> Sign_in_done=Wrong entries/Network error!; Sign_in_username=alice1
        sign-in Alice1 secret  -> Sign_in_done=Wrong entries/Network error!; Sign_in_username=Alice1
        sign-in nopass1 -      -> Sign_in_done=Wrong entries/Network error!; signed-in=no
        sign-in nobody secret  -> Sign_in_done=Wrong entries/Network error!; signed-in=no
        sign-in - -            -> Sign_in_done=Wrong entries/Network error!; signed-in=no
        sign-in alice1 secret  -> Sign_in_done=Sign in; signed-in=yes; view=hidden
        click Auto_Login_Check_box
        change-password Secret better -> Change_done_button=Check your entries.; Change_new_password=better
        ! Success!: You've successfully changed your password!
        change-password secret better -> setting kPassword=better; password=secret; Change_done_button=Done; view=hidden
        start                  -> password=better; remote alice1_Password.txt=better; remote taken1_Password.txt=(none)
    )");
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
        changePassword("secret", "better", "better");
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
        changePassword(password, "better", "better");
        settle();
        EXPECT_EQ(remote(name + "_Password.txt"), "better");
        i().Log_in_menu_item->trigger();
        before = user;
    }
}

// ---- Friends ----

class Friends : public ControllerTest {
  protected:
    Friends() {
        for (const char *user : {"alice1", "bobby1", "carol1", "bobby12", "_Username.txt"})
            putRemote(std::string(user) + "_Username.txt", user);
        setAutoLogin("alice1");
    }
};

TEST_F(Friends, AreAddedByTheVeryNameOfTheirAccountFromWhereTheLastLookStopped) {
    const std::string bobby = "bobby1" + kEnd, xy = "x" + kEnd + "y" + kEnd;
    const Alert exists{"Alert!", "Contact does exist"}, self{"Error!", "You can't add your self"};
    struct Row {
        std::string list;
        int from;
        const char *name;
        Said said;
        std::string front = {};  // what comes in front of the list
        int next = 2;            // where the next look begins
    };
    start();
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
             Row{"not \xFF text", 0, "bobby1", {}, "", 0},
         }) {
        SCOPED_TRACE(std::string(row.name) + " " + std::to_string(row.from) + row.list);
        putRemote("alice1_Contacts.txt", row.list);
        delegate->Contact_index_number = row.from;
        alerts.expect(row.said);
        addFriend(row.name);
        EXPECT_EQ(contentOf(htdocs / "alice1_Contacts.txt"), row.front + row.list);
        EXPECT_EQ(delegate->Contact_index_number, row.next);
        EXPECT_EQ(i().Add_contact_textfield->text(), row.front.empty() ? row.name : "");
        EXPECT_EQ(i().Add_contact_view->isVisible(), row.front.empty());
        EXPECT_EQ(i().lookAgain->isVisible(), row.from == 2 && row.list == bobby) << "nobody is left";
    }
    play(R"(
        remote alice1_Contacts.txt bobby1|
        add-from 2
        add-friend bobby1          -> next=2; shown lookAgain=yes
        ! Alert!: Contact does exist
        click Look_again_button    -> next=0; shown lookAgain=no
    )");
}

TEST_F(Friends, AFirstListIsStartedNeverOverOneThatIsThereOrMayBe) {
    play(R"(
        start
        add-friend bobby1          -> remote alice1_Contacts.txt=(none); shown startFriendsToAdd=yes
        menu Contacts_item         -> shown startFriends=yes
        click startFriends_button  -> remote alice1_Contacts.txt=-; view=Add_contact_view; shown startFriendsToAdd=no
        lose alice1_Contacts.txt
        menu Contacts_item         -> shown startFriends=yes
        remote alice1_Contacts.txt bobby1|
        click startFriends_button  -> remote alice1_Contacts.txt=bobby1|
        menu Contacts_item         -> shown startFriends=no
        lose alice1_Contacts.txt
        menu Contacts_item         -> shown startFriends=yes
        lose alice1_Username.txt
        ! Error!: The storage server could not be asked, so nothing was changed.
        click startFriends_button  -> remote alice1_Contacts.txt=(none)
        menu Contacts_item         -> shown startFriends=no
    )");
}

TEST_F(Friends, AreRemovedByAPickInTheTable) {
    play(R"(
        start
        ! Alert!: You have no firends in the list
        menu Remove_a_friend_item
        remote alice1_Contacts.txt bob|jimbob|carol1
        menu Remove_a_friend_item  -> view=Contacts_table; friends=bob|jimbob|carol1; mode=copy+friends
        click Share_switch         -> mode=share+friends
        ! Alert!: Are you sure you want to remove "bob" => 1
        pick-friend 0              -> mode=copy+friends; default=1; friends=bob|jimbob|carol1
        ! Alert!: Are you sure you want to remove "bob"
        ! Alert!: You have successfully removed"bob"
        pick-friend 0              -> remote alice1_Contacts.txt=jimcarol1; friends=jimcarol1; mode=copy; view=hidden
    )");
    EXPECT_EQ(delegate->Remove_contact_time_number, 1);
}

TEST_F(Friends, GetTheTextThatIsPickedUnderTheirVeryName) {
    play(R"(
        remote alice1_Contacts.txt bobby1|
        remote .alice1_Quillery.txt abc|
        remote .bobby1_Quillery.txt x|
        start
        open
        click Share_switch
        pick 0                     -> view=Contacts_view; friends=bobby1|
        ! Success!: You have successfull share "abc" with "bobby1"
        pick-friend 0              -> remote .bobby1_Quillery.txt=Shared from(alice1)abc|x|; mode=share; view=hidden
        remote .bobby1_Quillery.txt -
    )");
    // From the view of all friends as well; a click beside the rows means nobody.
    const auto share = [this](const char *contact) {
        delegate->Contacts_array = {contact};
        i().Contacts_item->trigger();
        settle();
        EXPECT_EQ(shownView(), i().Contacts_View);
        TableView &table = *i().Contacts_table;
        table.clearSelection();
        QTest::keyClick(&table, Qt::Key_Return);
        QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, QPoint(5, table.height() - 5));
        QTest::mouseClick(table.viewport(), Qt::LeftButton, {},
                          table.visualRect(table.model()->index(0, 0)).center());
        settle();
        EXPECT_EQ(delegate->Contact_Username, contact);
    };
    for (const char *contact : {"", "carol1", "bobby1/", "/../htdocs/.bobby1", "Bobby1", "bobby1\r"}) {
        alerts.expect({kWrongFriend});
        share(contact);
    }
    EXPECT_EQ(see("remote .bobby1_Quillery.txt") + see("remote .carol1_Quillery.txt"), "-(none)");
    list().selectItemAtIndex(-1);
    alerts.expect({shared("", "bobby1")});
    share("bobby1");
    EXPECT_EQ(remote(".bobby1_Quillery.txt"), "Shared from(alice1)" + kEnd);
    enter([this] { delegate->Share_action(); });
    settle();
    EXPECT_EQ(remote("bobby1_shared.txt"), "(alice1)" + kEnd) << "a file of shared texts begins";
}

TEST_F(Friends, WhatIsOnTheScreenIsWhatAPickDoes) {
    play(R"(
        remote alice1_Contacts.txt bobby1|
        remote .bobby1_Quillery.txt -
        remote .alice1_Quillery.txt abc|
        start
        menu Contacts_item         -> friends=(none); shown Remove_contact=yes
    )");
    EXPECT_TRUE(i().Friends_hint->text().startsWith("No text is picked"));
    QApplication::setActiveWindow(i().Quillery_window.get());
    QTest::keyClick(i().Contacts_table, Qt::Key_F5);
    EXPECT_EQ(friends(), (Items{"bobby1", ""}));
    list().selectPicked(0, "abc");
    const char *const removes = R"(
        settle -> mode=copy+friends; shown Remove_contact=yes; Remove_contact=Done; title=Remove a Friend
        settle -> Friends_hint=A pick removes the friend from this list.
    )";
    const char *const sends = R"(
        settle -> mode=copy; shown Remove_contact=yes; Remove_contact=Remove a friend; title=Quillery
        settle -> Friends_hint=A pick sends "abc" to the friend.
    )";
    for (QAction *place : {i().Contacts_item, i().Remove_a_friend_item}) {
        place->trigger();
        EXPECT_EQ(i().Quillery_window->focusWidget(), i().Contacts_table) << "where Enter picks";
        play(delegate->RemoveContact_enabled ? removes : sends);
        i().Remove_contact->click();
        play(delegate->RemoveContact_enabled ? removes : sends);
    }
    play(R"(
        menu Remove_a_friend_item  -> mode=copy+friends
        menu Log_in_menu_item      -> mode=copy; Friends_hint=Sign in to send a text to a friend.; picked=-
        menu Contacts_item
        pick-friend 0              -> remote .bobby1_Quillery.txt=-; Remove_contact=Remove a friend
    )");
}

}  // namespace
