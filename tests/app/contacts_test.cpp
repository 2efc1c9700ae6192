#include <QTest>

#include "tests/app/ControllerTest.h"

namespace {

class Contacts : public ControllerTest {
  protected:
    Contacts() {
        for (const char *user : {"alice1", "bobby1", "carol1"})
            putRemote(std::string(user) + "_Username.txt", user);
        setAutoLogin(QStringLiteral("alice1"));
    }

    void putContacts(const std::string &text) const { putRemote("alice1_Contacts.txt", text); }
    std::optional<std::string> contacts() const { return remote("alice1_Contacts.txt"); }

    void add(const QString &name) {
        i().Add_contact_menu_item->trigger();
        settle();
        i().Add_contact_textfield->setText(name);
        QTest::keyClick(i().Add_contact_textfield, Qt::Key_Return);
        settle();
    }
    void expectAdded(const QString &name) {
        alerts.expect("Success!",
                      QStringLiteral("You have successfully added \"%1\" to your friends list").arg(name));
    }
    // Clicks a row with the mouse.
    void click(int row) {
        TableView &table = *i().Contacts_table;
        ASSERT_TRUE(table.isVisible());
        const QModelIndex index = table.model()->index(row, 0);
        QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, table.visualRect(index).center());
        settle();
    }
    Items rows() {
        Items texts;
        for (int row = 0; row < i().Contacts_table->model()->rowCount(); ++row)
            texts.push_back(i().Contacts_table->model()->index(row, 0).data().toString().toStdString());
        return texts;
    }
};

TEST_F(Contacts, AFirstFriendCanBeAddedOnceTheListIsStarted) {
    start();
    add(QStringLiteral("bobby1"));
    EXPECT_EQ(contacts(), std::nullopt) << "without a list nothing happens at all";
    EXPECT_TRUE(i().startFriendsToAdd->isVisible());
    i().Contacts_item->trigger();
    settle();
    EXPECT_TRUE(i().startFriends->isVisible());
    i().startFriends_button->click();
    EXPECT_EQ(contacts(), "");
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Add_contact_view);
    EXPECT_FALSE(i().startFriendsToAdd->isVisible());

    expectAdded(QStringLiteral("bobby1"));
    add(QStringLiteral("bobby1"));
    EXPECT_EQ(contacts(), "bobby1" + kEnd);
    EXPECT_EQ(i().Add_contact_textfield->text(), QString());
    expectAdded(QStringLiteral("carol1"));
    add(QStringLiteral("carol1"));
    EXPECT_EQ(contacts(), "carol1" + kEnd + "bobby1" + kEnd);
}

TEST_F(Contacts, AListIsNeverStartedOverOneThatIsThereOrMayBe) {
    start();
    i().Contacts_item->trigger();
    settle();
    ASSERT_TRUE(i().startFriends->isVisible());
    putContacts("bobby1" + kEnd);  // on another machine, meanwhile
    i().startFriends_button->click();
    EXPECT_EQ(contacts(), "bobby1" + kEnd);
    i().Contacts_item->trigger();
    settle();
    EXPECT_FALSE(i().startFriends->isVisible());

    // A listing that does not even show the account proves nothing.
    std::filesystem::remove(htdocs / "alice1_Contacts.txt");
    std::filesystem::remove(htdocs / "alice1_Username.txt");
    i().Contacts_item->trigger();
    settle();
    EXPECT_FALSE(i().startFriends->isVisible());
    alerts.expect("Error!", "The storage server could not be asked, so nothing was changed.");
    i().startFriends_button->click();
    EXPECT_EQ(contacts(), std::nullopt);
}

TEST_F(Contacts, AddingLooksForTheNameFromWhereItStoppedLast) {
    putContacts("bobby1" + kEnd);
    start();
    alerts.expect("Alert!", "Contact does exist");
    add(QStringLiteral("bobby1"));
    alerts.expect("Alert!", "Contact does exist");
    add(QString());
    alerts.expect("Error!", "You can't add your self");
    add(QStringLiteral("alice1"));
    EXPECT_EQ(delegate->Contact_index_number, 2);
    EXPECT_FALSE(i().lookAgain->isVisible());
    add(QStringLiteral("bobby1"));
    EXPECT_TRUE(i().lookAgain->isVisible()) << "nobody is left to look at";
    alerts.expect("Alert!", "Contact does exist");
    i().Look_again_button->click();
    EXPECT_FALSE(i().lookAgain->isVisible());
    delegate->Contact_index_number = 2;
    expectAdded(QStringLiteral("bobby1"));
    putContacts("x" + kEnd + "y" + kEnd);  // so that the scan goes on at the empty last one
    add(QStringLiteral("bobby1"));
    EXPECT_EQ(contacts(), "bobby1" + kEnd + "x" + kEnd + "y" + kEnd);
}

TEST_F(Contacts, AreAddedByTheVeryNameOfTheirAccount) {
    for (const char *user : {"bobby12", "_Username.txt"})
        putRemote(std::string(user) + "_Username.txt", user);
    start();
    const auto addFrom = [&](const QString &name) {
        putContacts("bobby1" + kEnd);
        delegate->Contact_index_number = 0;
        add(name);
        return *contacts();
    };
    for (const QString &name :
         {QStringLiteral("nobody"), QStringLiteral("Bobby1"), QStringLiteral("bobby"),
          QStringLiteral(" bobby1"), QStringLiteral("bobby1/"), QStringLiteral("../htdocs/bobby1"),
          QStringLiteral("bobby1\u0001"), QStringLiteral("bobby1_Username.txt")}) {
        alerts.expect("Error!", "There is no user with this username");
        EXPECT_EQ(addFrom(name), "bobby1" + kEnd) << name.toStdString();
        EXPECT_EQ(i().Add_contact_textfield->text(), name);
        EXPECT_TRUE(i().Add_contact_view->isVisible());
    }
    for (const std::string name : {"bobby12", "_Username.txt"}) {
        expectAdded(QString::fromStdString(name));
        EXPECT_EQ(addFrom(QString::fromStdString(name)), name + kEnd + "bobby1" + kEnd);
    }
}

TEST_F(Contacts, MayBeKeptInAListThatIsNotInOrder) {
    start();
    putContacts("not \xFF text");
    add(QStringLiteral("bobby1"));
    alerts.expect("Alert!", "You have no firends in the list");
    i().Remove_a_friend_item->trigger();
    EXPECT_EQ(contacts(), std::nullopt) << "what is no text is no list, and left alone";
    EXPECT_TRUE(std::filesystem::exists(htdocs / "alice1_Contacts.txt"));

    putContacts("carol1");  // without its end
    add(QStringLiteral("bobby1"));
    EXPECT_EQ(contacts(), "carol1") << "there is no empty name to add it at";
    i().Remove_a_friend_item->trigger();
    EXPECT_EQ(rows(), Items({"carol1"}));
    alerts.expect("Alert!", "Are you sure you want to remove \"carol1\"");
    alerts.expect("Alert!", "You have successfully removed\"carol1\"");
    click(0);
    EXPECT_EQ(contacts(), "carol1");

    putContacts("");
    delegate->Contact_index_number = 0;
    alerts.expect("Success!", "You have successfully added \"bobby1\" to your friends list", 0,
                  [this] { std::filesystem::remove(htdocs / "alice1_Contacts.txt"); });
    add(QStringLiteral("bobby1"));
    EXPECT_EQ(contacts(), "bobby1" + kEnd) << "a list that has gone is begun anew";
}

TEST_F(Contacts, AreRemovedByAClickInTheTable) {
    start();
    alerts.expect("Alert!", "You have no firends in the list");
    i().Remove_a_friend_item->trigger();
    EXPECT_TRUE(delegate->RemoveContact_enabled);

    putContacts("bob" + kEnd + "jimbob" + kEnd + "carol1" + kEnd);
    i().Remove_a_friend_item->trigger();
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Contacts_table);
    EXPECT_EQ(rows(), Items({"bob", "jimbob", "carol1", ""}));
    delegate->ShareMode_enabled = true;
    alerts.expect("Alert!", "Are you sure you want to remove \"bob\"", 1);
    click(0);
    EXPECT_FALSE(delegate->ShareMode_enabled);
    EXPECT_TRUE(delegate->RemoveContact_enabled);
    EXPECT_NE(contacts()->find("bob"), std::string::npos);

    alerts.expect("Alert!", "Are you sure you want to remove \"bob\"", 0);
    alerts.expect("Alert!", "You have successfully removed\"bob\"");
    click(0);
    EXPECT_EQ(contacts(), "jimcarol1" + kEnd) << "the tail of a longer name goes, too";
    EXPECT_EQ(rows(), Items({"jimcarol1", ""}));
    EXPECT_FALSE(delegate->RemoveContact_enabled);
    EXPECT_FALSE(i().Quillery_window->isVisible());
    EXPECT_EQ(delegate->Remove_contact_time_number, 1);
}

TEST_F(Contacts, GetTheTextThatWasPickedInShareMode) {
    putContacts("bobby1" + kEnd);
    putRemote(".alice1_Quillery.txt", "abc" + kEnd);
    putRemote(".bobby1_Quillery.txt", "x" + kEnd);
    start();
    i().Clipboard_saves_menu_item->trigger();
    i().Share_switch->click();
    pick(0);
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Contacts_view);
    EXPECT_TRUE(i().Contacts_table->isVisible());
    EXPECT_EQ(rows(), Items({"bobby1", ""}));
    alerts.expect("Success!", "You have successfull share \"abc\" with \"bobby1\"");
    click(0);
    EXPECT_EQ(remote(".bobby1_Quillery.txt"), "Shared from(alice1)abc" + kEnd + "x" + kEnd);
    EXPECT_TRUE(delegate->ShareMode_enabled);
    EXPECT_FALSE(i().Quillery_window->isVisible());

    // From the view of all friends as well, with the keyboard; and the empty last row is nobody.
    i().Contacts_item->trigger();
    settle();
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Contacts_View);
    alerts.expect("Error!", "Wrong contact username.");
    i().Contacts_table->setCurrentIndex(i().Contacts_table->model()->index(1, 0));
    QTest::keyClick(i().Contacts_table, Qt::Key_Return);
    settle();
    std::filesystem::remove(htdocs / ".bobby1_Quillery.txt");
    i().Contacts_item->trigger();
    settle();
    alerts.expect("Error!", "Wrong contact username.");
    click(0);
    EXPECT_EQ(remote(".bobby1_Quillery.txt"), std::nullopt);
}

TEST_F(Contacts, GetAnEmptyTextOnlyUnderTheirVeryName) {
    putRemote(".bobby1_Quillery.txt", "");
    start();
    const auto share = [this](const char *contact) {
        delegate->Contacts_array = {contact};
        i().Contacts_item->trigger();
        click(0);
    };
    for (const char *contact : {"bobby1/", "/../htdocs/.bobby1", "Bobby1", "bobby1\x01"}) {
        alerts.expect("Error!", "Wrong contact username.");
        share(contact);
        EXPECT_EQ(delegate->Contact_Username, contact);
        EXPECT_EQ(remote(".bobby1_Quillery.txt"), "") << contact;
    }
    alerts.expect("Success!", "You have successfull share \"\" with \"bobby1\"");
    share("bobby1");
    EXPECT_EQ(remote(".bobby1_Quillery.txt"), "Shared from(alice1)" + kEnd);
}

TEST_F(Contacts, WhatIsOnTheScreenIsWhatAPickDoes) {
    putContacts("bobby1" + kEnd);
    putRemote(".bobby1_Quillery.txt", "");
    start();
    i().Contacts_item->trigger();
    EXPECT_TRUE(i().Friends_hint->text().startsWith(u"No text is picked"));
    EXPECT_EQ(rows(), Items());
    QApplication::setActiveWindow(i().Quillery_window.get());
    QTest::keyClick(i().Contacts_table, Qt::Key_F5);
    EXPECT_EQ(rows(), (Items{"bobby1", ""}));
    const auto check = [&](bool removes) {
        EXPECT_EQ(delegate->RemoveContact_enabled, removes);
        EXPECT_TRUE(i().Remove_contact->isVisible());
        EXPECT_EQ(i().Remove_contact->text(),
                  removes ? QStringLiteral("Done") : QStringLiteral("Remove a friend"));
        EXPECT_EQ(i().Quillery_window->windowTitle(),
                  removes ? QStringLiteral("Remove a Friend") : QStringLiteral("Quillery"));
        EXPECT_EQ(i().Friends_hint->text(), removes
                                                ? QStringLiteral("A pick removes the friend from this list.")
                                                : QStringLiteral("A pick sends \"abc\" to the friend."));
    };
    i().Clipboard_saved_string_combobox->selectPicked(0, "abc");
    for (QAction *place : {i().Contacts_item, i().Remove_a_friend_item}) {
        place->trigger();
        for (const bool removes : {true, false}) {
            if (delegate->RemoveContact_enabled != removes) i().Remove_contact->click();
            check(removes);
        }
    }
    i().Remove_contact->click();
    alerts.expect("Alert!", "Are you sure you want to remove \"bobby1\"", 1);
    delegate->ShareMode_enabled = true;
    click(0);
    EXPECT_EQ(alerts.defaultButton, 1);
    check(true);
    i().Log_in_menu_item->trigger();
    EXPECT_EQ(i().Friends_hint->text(), QStringLiteral("Sign in to send a text to a friend."));
    EXPECT_EQ(i().Clipboard_saved_string_combobox->stringValue(), "") << "it was the last user's";
    i().Contacts_item->trigger();
    click(0);
    EXPECT_EQ(remote(".bobby1_Quillery.txt"), "");
}

TEST_F(Contacts, AnAccountWithoutAListIsOfferedTheOneOfThisComputer) {
    putLocal("a" + kEnd + "b" + kEnd);
    start();
    i().Clipboard_saves_menu_item->trigger();
    settle();
    ASSERT_TRUE(i().keepLocalList_button->isVisible());
    alerts.expect(
        "Sure?",
        "Keep the 2 texts of this computer's list in your account? They stay on this computer as well.");
    i().keepLocalList_button->click();
    settle();
    EXPECT_EQ(remote(".alice1_Quillery.txt"), "a" + kEnd + "b" + kEnd);
    EXPECT_EQ(items(), (Items{"a", "b", ""}));
    EXPECT_EQ(i().List_place->text(), QStringLiteral("In your account on this computer"));
    i().Log_in_menu_item->trigger();
    i().Clipboard_saves_menu_item->trigger();
    EXPECT_EQ(i().List_place->text(), QStringLiteral("On this computer"));
    EXPECT_FALSE(i().keepLocalList->isVisible());
}

TEST_F(Contacts, ArePickedWithTheKeyboardWhereverTheyAreShown) {
    putContacts("bobby1" + kEnd + "carol1" + kEnd);
    start();
    i().Add_contact_menu_item->trigger();
    settle();
    i().Add_contact_textfield->setText(QStringLiteral("carol1"));
    i().Remove_a_friend_item->trigger();
    QApplication::setActiveWindow(i().Quillery_window.get());
    EXPECT_EQ(i().Quillery_window->focusWidget(), i().Contacts_table) << "not a field that is hidden";
    alerts.expect("Alert!", "Are you sure you want to remove \"bobby1\"", 1);
    QTest::keyClick(i().Contacts_table, Qt::Key_Down);
    QTest::keyClick(i().Contacts_table, Qt::Key_Return);
    i().Quillery_window->close();
    i().Contacts_item->trigger();
    EXPECT_EQ(i().Quillery_window->focusWidget(), i().Contacts_table)
        << "where Enter removes nothing unasked";
}

TEST_F(Contacts, AClickWithNoRowDoesNothing) {
    putContacts("bobby1" + kEnd);
    start();
    i().Contacts_item->trigger();
    settle();
    i().Contacts_table->clearSelection();
    QTest::keyClick(i().Contacts_table, Qt::Key_Return);
    QTest::mouseClick(i().Contacts_table->viewport(), Qt::LeftButton, {},
                      QPoint(5, i().Contacts_table->height() - 5));
    settle();
    EXPECT_EQ(delegate->Contact_Username, std::nullopt);
}

TEST_F(Contacts, HaveAFileOfSharedTexts) {
    start();
    delegate->Contact_Username = "bobby1";
    i().Clipboard_saved_string_combobox->insertItemWithObjectValue("abc", 0);
    i().Clipboard_saved_string_combobox->selectItemAtIndex(0);
    for (const std::string &expected : {"(alice1)abc" + kEnd, "(alice1)abc" + kEnd + "(alice1)abc" + kEnd}) {
        enter([this] { delegate->Share_action(); });
        settle();
        EXPECT_EQ(remote("bobby1_shared.txt"), expected);
    }
}

TEST_F(Contacts, CleaningEmptiesBothListsAfterAQuestion) {
    putLocal("mine" + kEnd);
    putRemote(".alice1_Quillery.txt", "abc" + kEnd);
    start();
    i().Clipboard_saves_menu_item->trigger();
    alerts.expect("Sure?", "Are you sure,you want to clean your list?", 1);
    i().Clear_list_button->click();
    EXPECT_EQ(alerts.defaultButton, 1);
    EXPECT_EQ(items(), Items({"abc", ""}));
    alerts.expect("Sure?", "Are you sure,you want to clean your list?", 0);
    alerts.expect("Success!", "You've successfully cleaned your list.");
    i().Clear_list_button->click();
    settle();
    EXPECT_EQ(items(), Items({""}));
    EXPECT_EQ(local(), "");
    EXPECT_EQ(remote(".alice1_Quillery.txt"), "");
}

}  // namespace
