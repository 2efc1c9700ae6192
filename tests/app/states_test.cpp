// What is offered and shown, from the start on, signed in and out, locked and unlocked; accounts and friends,
// with a server that works. What happens where it does not is in server_faults_test.cpp.
#include <QTest>
#include <fstream>

#include "platform/UserFolders.h"
#include "tests/app/ControllerTest.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

class States : public ControllerTest {
  protected:
    States() : ControllerTest(200ms) {}

    void startAsAlice() {
        for (const char *user : {"alice1", "bobby1", "bobby12", "carol1"}) putAccount(user);
        setAutoLogin("alice1");
        start();
    }
    // "state": which items of the menu are offered (Save, saved List, Add and Remove a friend, change
    // Password, Unlock); which controls are enabled (Share, make available Offline, Done of the password
    // change, Auto-login, add and remove a Friend in the windowed mode, change Password in the preferences);
    // whether the program looks signed in everywhere; the preferences' form for passcodes; the view, in
    // brackets if hidden.
    QString see(const QString &what) override {
        if (what != "state") return ControllerTest::see(what);
        QString text = "SLARPUSODAFFP";
        const QObject *const controls[] = {
            i().Saveing_menu_item,     i().Clipboard_saves_menu_item, i().Add_contact_menu_item,
            i().Remove_a_friend_item,  i().changePasswordItem,        i().Unlock_passcode_item,
            i().Share_switch,          i().Read_local_button,         i().Change_done_button,
            i().Auto_Login_Check_box,  i().Add_friend_windowed_mode,  i().Remove_contact_windowed_mode,
            i().Change_password_button};
        for (int k = 0; k < text.size(); ++k)
            if (!controls[k]->property("enabled").toBool()) text[k] = '-';
        text.insert(6, ' ');
        text += looksSignedIn(true) ? " in " : looksSignedIn(false) ? " out " : " neither ";
        text += i().Passcode_box->contentView() == i().new_passcode_view ? "new " : "change ";
        const QString view = shownView()->objectName();
        return text + (i().Quillery_window->isVisible() ? view : "(" + view + ")");
    }
    bool looksSignedIn(bool isIn) {
        return delegate->isSigned_in == isIn && i().State_label->text() == (isIn ? "Online" : "Offline") &&
               i().Log_in_menu_item->text() == (isIn ? "Log out" : "Log in") &&
               delegate->Status_Item->image() == (isIn ? "online.png" : "offline.png");
    }
};

TEST_F(States, EachStartOffersAndShowsWhatFitsItsSituation) {
    play(R"(
        remote .ann_Quillery.txt far
        start                 -> state=SL---- ------- out new (List_View); list=-; local=-
        local b|a
        set kHasPasscode Yes
        set kAutoLogin YES
        start                 -> state=SL---- ------- out new (Checking_for_connection_view); list=b|a; local=b|a
        set kHasPasscode YES
        start                 -> state=-----U ------- out change Insert_passcode_view; list=b|a
        set kUsername ann
        set kAutoLogin Yes
        start                 -> state=SLARP- SODAFFP in change (Checking_for_connection_view); list=far; user=ann
        lose .ann_Quillery.txt
        start                 -> state=SLARP- SODAFFP in change (Checking_for_connection_view); list=(none); local=b|a
    )");
    configuration.storageHost = "127.0.0.1";
    configuration.storagePort = 1;  // where nothing listens
    play(R"(
        ! Error!: Unable to connect the internet,duo to network/server error.
        start                 -> state=-----U S------ out change Insert_passcode_view; list=b|a; local=b|a
    )");
}

TEST_F(States, FirstUseShowsTheIntroAloneAndEndsInAFullStart) {
    defaults.setObject(std::nullopt, "kIsNotFirstUse");
    start();
    const auto hasHotKey = [] {
        return VkHotKeyCenter::sharedHotKeyCenter().hasRegisteredHotKeyWithKeyCode(8, 0x120000);
    };
    EXPECT_FALSE(delegate->Status_Item || delegate->MyFTPManager || hasHotKey());
    play(R"(
        settle                   -> shown Intro_window=yes; view=hidden; local=(none)
        click Start_intro_button -> shown Intro_window=no; setting kIsNotFirstUse=YES; local=-
        settle                   -> state=SL---- ------- out new (List_View); remote .Check_internet=Check
    )");
    EXPECT_TRUE(hasHotKey());
    delegate.reset();
    EXPECT_FALSE(hasHotKey());
}

TEST_F(States, AMuteServerCanBeGivenUp) {
    useScriptedServer({{.at = "greeting", .stalls = true}});
    alerts.expect({{kQuit.title, kQuit.message, 1},
                   {"Error!", "Unable to connect the internet,duo to network/server error."}});
    QTimer::singleShot(50, [&] {
        i().Quit->trigger();
        EXPECT_EQ(alerts.outstanding(), 1U) << "at once";
        QTest::keyClick(i().Quillery_window.get(), Qt::Key_Escape);
    });
    start();
}

TEST_F(States, EveryNamedElementTellsItsNameToADriverThatAsks) {
    qputenv("QUILLERY_UI_IDS", "1");
    start();
    for (const QWidget *widget : QApplication::allWidgets()) {
        const QString id = widget->objectName();
        EXPECT_TRUE(id.isEmpty() || id.startsWith(u"qt_") ||
                    widget->accessibleDescription().startsWith("id=" + id))
            << id.toStdString();
    }
    qunsetenv("QUILLERY_UI_IDS");
}

// ---- Signing in and out, the passcode ----

TEST_F(States, SignInSwitchesToTheUsersListAndLogOutBackWithoutTheUsersModes) {
    play(R"(
        account ann
        remote .ann_Quillery.txt theirs|
        remote ann_Contacts.txt bob|
        local mine
        start
        sign-in ann secret          -> state=SLARP- SODAFFP in new (Sign_in_view); Sign_in_password=-; list=mine
        open                        -> list=theirs|
        click Share_switch          -> mode=share
        menu Remove_a_friend_item   -> mode=share+friends
        menu Log_in_menu_item       -> mode=copy; Share_label=Share; checked Share_switch=no; password=-
        settle                      -> state=SL---- ------- out new Contacts_table
        sign-in ann secret
        click Read_local_button     -> mode=offline
        open
        menu Log_in_menu_item       -> mode=copy; checked Read_local_button=no; list=mine
        save new                    -> local=new|mine; remote .ann_Quillery.txt=theirs|
    )");
}

TEST_F(States, APasscodeIsSetChangedAndRemovedOnlyByTheRightTexts) {
    play(R"(
        start
        ! Error!: "Passcode" field doesn't match "re-type" field
        send Done_create_passcode Create_passcode= Retype_passcode=
        ! Error!: "Passcode" field doesn't match "re-type" field
        send Done_create_passcode Create_passcode=one Retype_passcode=One -> setting kPasscode=(absent)
        ! Success!: You have successfully sat up your passcode
        send Done_create_passcode Create_passcode=Öf;"1" Retype_passcode=Öf;"1" -> Create_passcode=-
        settle                         -> setting kPasscode=Öf;"1"; state=SL---- ------- out change (List_View)
        ! Error!: Wrong "Old passcode"
        send Done_change_passcode Change_old_passcode=öf;"1" Change_new_passcode=new Change_Retype_passcode=new
        ! Error!: "New passcode" field doesn't match "re-type" field
        send Done_change_passcode Change_old_passcode=Öf;"1" Change_Retype_passcode=knew -> setting kPasscode=Öf;"1"
        ! Success!: Passcode has successfully changed
        send Done_change_passcode Change_new_passcode=old Change_Retype_passcode=old -> setting kPasscode=old
        settle                         -> setting kHasPasscode=YES; Change_old_passcode=-; Change_new_passcode=-
        ! Error!: "Old Passcode" field doesn't match the previous passcode.
        send Remove_passcode_button Change_old_passcode=Old -> setting kHasPasscode=YES
        send Remove_passcode_button Change_old_passcode=old -> setting kHasPasscode=-
        settle                         -> state=SL---- ------- out new (List_View)
    )");
}

TEST_F(States, LockedTheListIsOutOfReachButTheHotKeySavesUntilTheVeryPasscodeUnlocks) {
    play(R"(
        local old|
        set kHasPasscode YES
        set kPasscode Secret
        start                  -> state=-----U ------- out change Insert_passcode_view
        menu Saveing_menu_item
        open
        pick 0                 -> picked=-
        request list           -> answers=1The saved list is locked: unlock it with the passcode first.
        copy new
        hot-key                -> local=new|old|
        request activate       -> state=-----U ------- out change Insert_passcode_view
        ! Error!: Wrong passcode.
        enter Insert_passcode_field secret          -> Insert_passcode_field=secret
        ! Error!: Wrong passcode.
        enter Insert_passcode_field Secret\r        -> state=-----U ------- out change Insert_passcode_view
        close
        menu Unlock_passcode_item -> view=Insert_passcode_view
        ! Success!: Correct passcode
        enter Insert_passcode_field Secret          -> state=SL---- ------- out change (Insert_passcode_view); Insert_passcode_field=-
    )");
}

TEST_F(States, SignInLiftsTheLockAndLogOutLocksWhatIsShown) {
    play(R"(
        account ann
        remote .ann_Quillery.txt mine|
        set kHasPasscode YES
        start
        sign-in ann secret     -> state=SLARP- SODAFFP in change (Sign_in_view)
        open
        pick 0                 -> shown QuickView_popover=yes; picked=mine
        type Change_old_password typed
    )");
    Q_EMIT notifications.undeliverable("Success!", "saved: mine");
    ASSERT_TRUE(i().notificationBanner->isVisible());
    play(R"(
        menu Log_in_menu_item  -> state=-----U ------- out change (Insert_passcode_view); Change_old_password=-; picked=-
        menu Contacts_item     -> shown QuickView_popover=no
    )");
    EXPECT_FALSE(i().notificationBanner->isVisible() || i().Friends_hint->text().contains("mine"));
    EXPECT_EQ(i().QuickView_label->toPlainText(), "");
}

// ---- Preferences ----

TEST_F(States, AnEntryForTheLaunchThatCannotBeMadeIsTold) {
    std::ofstream(LoginItem::file("TovanixDev.Quillery-Helper").parent_path()) << "in the way";
    start();
    i().Open_at_launch_check_box->click();
    EXPECT_TRUE(i().Open_at_launch_problem->text().endsWith("could not be made: Not a directory"));
}

TEST_F(States, NoOtherUserCanReadOrChangeAFileOfTheProgram) {
    fs::remove(defaults.fileName().toStdString());
    start();
    save("here");
    useScriptedServer();
    setAutoLogin("ann");
    start();
    i().Auto_Login_Check_box->click();
    i().Open_at_launch_check_box->click();
    server->setFaults({{.at = "STOR", .reply = "553 No.", .times = 1}});
    save("rescued");
    server->setFaults({{.at = "RETR", .delay = 300ms}});
    copy("on its way");
    i().Saveing_menu_item->trigger();
    int files = 0;
    for (const fs::path &folder : {home, stateFolder(), configurationFolder() / "TovanixDev",
                                   configurationFolder() / "autostart", *runtimeFolder()}) {
        for (const auto &file : fs::recursive_directory_iterator(folder)) {
            if (!file.is_regular_file()) continue;
            ++files;
            EXPECT_EQ(file.status().permissions() & fs::perms(0177), fs::perms::none) << file.path();
        }
    }
    EXPECT_GE(files, 6) << "the list, its lock, the settings, the entry, a copy, a text on its way";
}

// ---- Accounts ----

TEST_F(States, AFormThatWillNotDoSaysSoAndKeepsWhatWasTypedAndAutoLoginKnowsThePasswordThatDoes) {
    play(R"(
        account alice1
        remote alice1_Password.txt old,one
        remote taken1_Username.txt -
        remote nopass1_Username.txt nopass1
        start
        sign-up taken1 short   -> Sign_up_done=Check your entries.; enabled Sign_up_done=yes
        sign-up taken1 longer  -> Sign_up_done=Username exist.; enabled Sign_up_done=yes; Sign_up_username=taken1
        click Sign_up_show_passwords -> hides Sign_up_re_password=no; hides Sign_in_password=yes
        sign-in alice1 Old,one -> Sign_in_done=Wrong entries/Network error!; view=Sign_in_view; signed-in=no
        sign-in alice1 old,one\r -> Sign_in_done=Wrong entries/Network error!; signed-in=no
        sign-in Alice1 old,one -> Sign_in_done=Wrong entries/Network error!; Sign_in_username=Alice1
        sign-in ../htdocs/alice1 old,one -> Sign_in_done=Wrong entries/Network error!; signed-in=no
        ! Faild!: You haven't been registred as Quillery member,duo to Error or internet connection problem.
        sign-up ../evil1 secret -> remote ../evil1_Password.txt=(none)
        ! Faild!: You haven't been registred as Quillery member,duo to Error or internet connection problem.
        sign-up ../htdocs/evil1 secret -> remote evil1_Password.txt=(none)
        sign-in nopass1 -      -> Sign_in_done=Wrong entries/Network error!; signed-in=no
        sign-in alice1 old,one -> Sign_in_done=Sign in; signed-in=yes; view=hidden
        click Auto_Login_Check_box -> setting kAutoLogin=Yes; setting kUsername=alice1; setting kPassword=old,one
        change-password Old better -> Change_done_button=Check your entries.; Change_new_password=better
        settle                 -> hides Change_old_password=yes; hides Change_new_password=yes
        ! Success!: You've successfully changed your password!
        change-password old,one better -> setting kPassword=better; password=old,one; Change_done_button=Done; view=hidden
        menu Log_in_menu_item  -> setting kAutoLogin=Yes; Auto_login_label=Auto-Login:enabled
        start                  -> password=better; remote alice1_Password.txt=better; remote taken1_Password.txt=(none)
        click Auto_Login_Check_box -> setting kAutoLogin=No; setting kUsername=(absent); setting kPassword=(absent)
    )");
}

TEST_F(States, OddNamesAndPasswordsAreLikeAnyOther) {
    putRemote("plain1_Username.txt", "plain1");
    for (const char *user : {".hidden", "_Username.txt", "100%20#;x?", "Gr\u00FC\u00DFe\u4F60"}) {
        QString scenario = R"(
            start
            remote .plain1_Quillery.txt of plain1|
            ! Success!: You have successfully been registred as Quillery member.
            sign-up USER sec\rret%#  -> view=Sign_in_view; remote USER_Fullname.txt=Alice A; remote USER_Username.txt=USER
            sign-in USER sec\rret%#  -> signed-in=yes; remote USER_Email.txt=a@b.c; remote USER_Contacts.txt=(none)
            save of USER             -> remote .USER_Quillery.txt=of USER|
            remote USER_Contacts.txt -
            ! Success!: You have successfully added "plain1" to your friends list
            add-friend plain1        -> remote USER_Contacts.txt=plain1|
            open
            click Share_switch
            pick 0                   -> friends=plain1|
            ! Success!: You have successfull share "of USER" with "plain1"
            pick-friend 0            -> remote .plain1_Quillery.txt=Shared from(USER)of USER|of plain1|
            ! Success!: You've successfully changed your password!
            change-password sec\rret%# better -> remote USER_Password.txt=better
        )";
        play(scenario.replace("USER", user).toUtf8());
    }
}

// ---- Friends ----

TEST_F(States, FriendsAreAddedByTheVeryNameOfTheirAccountFromWhereTheLastLookStopped) {
    startAsAlice();
    play(R"(
        remote alice1_Contacts.txt -
        ! Success!: You have successfully added "bobby1" to your friends list
        add-friend bobby1          -> remote alice1_Contacts.txt=bobby1|; next=1; Add_contact_textfield=-
        ! Success!: You have successfully added "bobby12" to your friends list
        add-friend bobby12         -> remote alice1_Contacts.txt=bobby12|bobby1|; next=2
        remote alice1_Contacts.txt bobby1|
        add-friend carol1          -> next=2; shown lookAgain=yes; Add_contact_textfield=carol1
        ! Success!: You have successfully added "carol1" to your friends list
        click Look_again_button    -> next=2; shown lookAgain=no; remote alice1_Contacts.txt=carol1|bobby1|
        add-from 0
        ! Alert!: Contact does exist
        add-friend bobby1          -> next=0
        ! Alert!: Contact does exist
        add-friend -               -> next=0
        ! Error!: You can't add your self
        add-friend alice1          -> next=3; Add_contact_textfield=alice1
        add-from 0
        ! Error!: There is no user with this username
        add-friend Bobby1          -> next=3
        add-from 0
        ! Error!: There is no user with this username
        add-friend bobby1\r        -> remote alice1_Contacts.txt=carol1|bobby1|
        add-from 0
        remote alice1_Contacts.txt carol1
        add-friend bobby1          -> remote alice1_Contacts.txt=carol1; next=1
        add-from 0
        spoil alice1_Contacts.txt
        add-friend bobby1          -> next=0; remote alice1_Contacts.txt=(none)
    )");
}

TEST_F(States, AFirstListIsStartedNeverOverOneThatIsThereOrMayBe) {
    startAsAlice();
    play(R"(
        add-friend bobby1          -> remote alice1_Contacts.txt=(none); shown startFriendsToAdd=yes
        click startFriends_button  -> remote alice1_Contacts.txt=-; view=Add_contact_view; shown startFriendsToAdd=no
        lose alice1_Contacts.txt
        menu Contacts_item         -> shown startFriends=yes
        remote alice1_Contacts.txt bobby1|
        click startFriends_button  -> remote alice1_Contacts.txt=bobby1|
        menu Contacts_item         -> shown startFriends=no
        lose alice1_Contacts.txt
        lose alice1_Username.txt
        ! Error!: The storage server could not be asked, so nothing was changed.
        click startFriends_button  -> remote alice1_Contacts.txt=(none)
    )");
}

TEST_F(States, FriendsGetTheTextThatIsPickedOnlyUnderTheirVeryName) {
    putRemote(".bobby1_Quillery.txt", "");
    startAsAlice();
    TableView &table = *i().Contacts_table;
    for (const char *contact : {"", "carol1", "/../htdocs/.bobby1", "Bobby1", "bobby1\r", "bobby1"}) {
        const bool isRight = std::string("bobby1") == contact;
        delegate->Contacts_array = {contact};
        i().Contacts_item->trigger();
        settle();
        table.clearSelection();
        // A click beside the rows means nobody.
        QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, QPoint(5, table.height() - 5));
        alerts.expect({isRight ? shared("", contact) : kWrongFriend});
        const QRect row = table.visualRect(table.model()->index(0, 0));
        QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, row.center());
        settle();
        EXPECT_EQ(remote(".carol1_Quillery.txt"), std::nullopt);
        EXPECT_EQ(remote(".bobby1_Quillery.txt"), isRight ? "Shared from(alice1)" + kEnd : "") << contact;
    }
    enter([this] { delegate->Share_action(); });
    settle();
    EXPECT_EQ(remote("bobby1_shared.txt"), "(alice1)" + kEnd) << "a file of shared texts begins";
}

TEST_F(States, WhatIsOnTheScreenIsWhatAPickOfAFriendDoes) {
    startAsAlice();
    play(R"(
        ! Alert!: You have no firends in the list
        menu Remove_a_friend_item
        remote alice1_Contacts.txt bob|jimbob|carol1
        remote .alice1_Quillery.txt abc|
        open
        pick 0
        menu Contacts_item         -> mode=copy+friends; Friends_hint=A pick removes the friend from this list.
        click Read_friends_button  -> friends=bob|jimbob|carol1
        click Remove_contact       -> mode=copy; Remove_contact=Remove a friend; title=Quillery
        settle                     -> Friends_hint=A pick sends "abc" to the friend.
        menu Remove_a_friend_item  -> mode=copy+friends; Remove_contact=Done; title=Remove a Friend
        ! Alert!: Are you sure you want to remove "bob" => 1
        pick-friend 0              -> mode=copy+friends; default=1; friends=bob|jimbob|carol1
        ! Alert!: Are you sure you want to remove "bob"
        ! Alert!: You have successfully removed"bob"
        pick-friend 0              -> remote alice1_Contacts.txt=jimcarol1; friends=jimcarol1; mode=copy; view=hidden
        menu Remove_a_friend_item  -> mode=copy+friends
        menu Log_in_menu_item      -> mode=copy; Friends_hint=Sign in to send a text to a friend.; picked=-
        pick-friend 0              -> remote alice1_Contacts.txt=jimcarol1
    )");
}

}  // namespace
