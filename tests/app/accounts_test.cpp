#include <QTest>

#include "tests/app/ControllerTest.h"

namespace {

class Accounts : public ControllerTest {
  protected:
    Accounts() { setNotFirstUse(); }

    Interface &i() { return delegate->interface; }

    void fillSignUp(const QString &user, const QString &password) {
        i().Open_sign_up_view->trigger();
        i().Sign_up_Fullname->setText(QStringLiteral("Alice A"));
        i().Sign_up_username->setText(user);
        i().Sign_up_email->setText(QStringLiteral("a@b.c"));
        i().Sign_up_password->setText(password);
        i().Sign_up_re_password->setText(password);
    }
    void signUp(const QString &user, const QString &password) {
        fillSignUp(user, password);
        QTest::keyClick(i().Sign_up_re_password, Qt::Key_Return);
        settle();
    }
    void signIn(const QString &user, const QString &password) {
        i().Open_sign_in_window->trigger();
        i().Sign_in_username->setText(user);
        i().Sign_in_password->setText(password);
        QTest::keyClick(i().Sign_in_password, Qt::Key_Return);
    }
    void putAccount(const std::string &user, const std::string &password) const {
        putRemote(user + "_Username.txt", user);
        putRemote(user + "_Password.txt", password);
    }
    bool isEnabled(const char *item) {
        for (QAction *action : i().Quillery_Menu.actions())
            if (action->objectName() == QLatin1String(item)) return action->isEnabled();
        ADD_FAILURE() << item;
        return false;
    }
};

TEST_F(Accounts, SignUpWritesFourFilesAndShowsTheSignIn) {
    start();
    alerts.expect("Success!", "You have successfully been registred as Quillery member.", 0, [this] {
        EXPECT_EQ(i().Quillery_Box->contentView(), i().Sign_in_view);
        EXPECT_TRUE(i().Quillery_window->isVisible());
        EXPECT_EQ(i().Sign_up_done->text(), QStringLiteral("Done"));
        EXPECT_TRUE(i().Sign_up_done->isEnabled());
        EXPECT_EQ(i().Sign_up_password->text(), QString());
    });
    signUp(QStringLiteral("al ice#%\u00FC"), QStringLiteral("sec ret\u00FC"));
    const std::string user = "al ice#%\xC3\xBC";
    EXPECT_EQ(remote(user + "_Fullname.txt"), "Alice A");
    EXPECT_EQ(remote(user + "_Username.txt"), user);
    EXPECT_EQ(remote(user + "_Email.txt"), "a@b.c");
    EXPECT_EQ(remote(user + "_Password.txt"), "sec ret\xC3\xBC");
    EXPECT_EQ(remote(user + "_Contacts.txt"), std::nullopt);
    EXPECT_FALSE(delegate->isSigned_in);
}

TEST_F(Accounts, SignUpRefusesOnItsButtonAndKeepsWhatWasTyped) {
    putRemote("taken1_Username.txt", "");
    start();
    fillSignUp(QStringLiteral("taken1"), QStringLiteral("short"));
    i().Sign_up_done->click();
    EXPECT_EQ(i().Sign_up_done->text(), QStringLiteral("Check your entries.")) << "before the name is judged";
    i().Sign_up_password->setText(QStringLiteral("longer"));
    i().Sign_up_re_password->setText(QStringLiteral("longer"));
    i().Sign_up_done->click();
    EXPECT_EQ(i().Sign_up_done->text(), QStringLiteral("Username exist."));
    EXPECT_TRUE(i().Sign_up_done->isEnabled());
    EXPECT_EQ(i().Sign_up_username->text(), QStringLiteral("taken1"));
    EXPECT_EQ(remote("taken1_Password.txt"), std::nullopt);
}

TEST_F(Accounts, NamesThatAreNoFileNamesAreNeverWritten) {
    start();
    for (const QString &user :
         {QStringLiteral("../../evil1"), QStringLiteral("a/bcdef"), QStringLiteral("ab\u0001cdef")}) {
        alerts.expect(
            "Faild!",
            "You haven't been registred as Quillery member,duo to Error or internet connection problem.");
        signUp(user, QStringLiteral("secret"));
        EXPECT_FALSE(i().Quillery_window->isVisible());
        signIn(user, QStringLiteral("secret"));
        EXPECT_EQ(i().Sign_in_done->text(), QStringLiteral("Wrong entries/Network error!"));
    }
    for (const auto &file : std::filesystem::recursive_directory_iterator(htdocs.parent_path()))
        EXPECT_EQ(file.path().string().find("evil"), std::string::npos) << file.path();
}

TEST_F(Accounts, OddNamesAreNamesLikeAnyOther) {
    start();
    for (const QString &user :
         {QStringLiteral(".hidden"), QStringLiteral("_Username.txt"), QStringLiteral(" blanks "),
          QStringLiteral("100%#;x?"), QStringLiteral("Gr\u00FC\u00DFe\u4F60")}) {
        SCOPED_TRACE(user.toStdString());
        alerts.expect("Success!", "You have successfully been registred as Quillery member.");
        signUp(user, QStringLiteral("secret"));
        signIn(user, QStringLiteral("secret"));
        ASSERT_TRUE(delegate->isSigned_in);
        save("of " + user.toStdString());
        EXPECT_EQ(remote("." + user.toStdString() + "_Quillery.txt"), "of " + user.toStdString() + kEnd);
        i().Log_in_menu_item->trigger();
    }
}

TEST_F(Accounts, FormsAreGoneThroughByTabFromTopToBottom) {
    start();
    const auto order = [this](QWidget *first) {
        QApplication::setActiveWindow(i().Quillery_window.get());
        first->setFocus();
        QStringList names;
        for (int k = 0; k < 8; ++k) {
            QWidget *focused = QApplication::focusWidget();
            if (!focused || names.contains(focused->objectName())) break;
            names << focused->objectName();
            QTest::keyClick(focused, Qt::Key_Tab);
        }
        return names.join(u' ').toStdString();
    };
    i().Open_sign_up_view->trigger();
    EXPECT_EQ(order(i().Sign_up_Fullname),
              "Sign_up_Fullname Sign_up_username Sign_up_email Sign_up_password "
              "Sign_up_re_password Sign_up_show_passwords Sign_up_done");
    i().Open_sign_in_window->trigger();
    EXPECT_EQ(order(i().Sign_in_username),
              "Sign_in_username Sign_in_password Sign_in_show_password Sign_in_done");
}

TEST_F(Accounts, SignInSwitchesToTheUsersListAndLogOutBack) {
    putAccount("alice1", "secret");
    putRemote(".alice1_Quillery.txt", "theirs" + kEnd);
    putLocal("mine");
    start();
    signIn(QStringLiteral("alice1"), QStringLiteral("secret"));
    EXPECT_TRUE(delegate->isSigned_in);
    EXPECT_EQ(delegate->Username, "alice1");
    EXPECT_FALSE(i().Quillery_window->isVisible());
    EXPECT_EQ(i().Sign_in_username->text() + i().Sign_in_password->text(), QString());
    EXPECT_EQ(i().Log_in_menu_item->text(), QStringLiteral("Log out"));
    EXPECT_EQ(i().Log_in_menu_item->menu(), nullptr);
    for (const char *item : {"Add_contact_menu_item", "Remove_a_friend_item", "_Clipboard_saves_menu_item"})
        EXPECT_TRUE(isEnabled(item)) << item;
    EXPECT_TRUE(i().Share_switch->isEnabled() && i().Read_local_button->isEnabled());
    EXPECT_EQ(items(), Items({"mine"})) << "the list is read when it is opened";
    i().Clipboard_saves_menu_item->trigger();
    EXPECT_EQ(items(), Items({"theirs", ""}));
    save("new");
    EXPECT_EQ(remote(".alice1_Quillery.txt"), "new" + kEnd + "theirs" + kEnd);

    i().Log_in_menu_item->trigger();
    EXPECT_FALSE(delegate->isSigned_in);
    EXPECT_EQ(delegate->Username, "");
    EXPECT_EQ(i().Log_in_menu_item->menu(), &i().Log_in_menu);
    EXPECT_FALSE(isEnabled("Add_contact_menu_item"));
    i().Clipboard_saves_menu_item->trigger();
    EXPECT_EQ(items(), Items({"mine"}));
}

TEST_F(Accounts, SignInWithWrongEntriesSaysSoInItsWindowAndKeepsThem) {
    putAccount("alice1", "secret");
    putRemote("nopass1_Username.txt", "nopass1");
    start();
    const std::vector<std::pair<const char *, const char *>> wrongEntries = {
        {"alice1", "Secret"}, {"alice1", "secret "}, {"Alice1", "secret"},
        {"nopass1", ""},      {"nobody", "secret"},  {"", ""}};
    for (const auto &[user, password] : wrongEntries) {
        signIn(QLatin1String(user), QLatin1String(password));
        EXPECT_EQ(i().Sign_in_done->text(), QStringLiteral("Wrong entries/Network error!")) << user;
        EXPECT_LE(i().Sign_in_done->sizeHint().width(), i().Sign_in_done->width()) << "nothing is cut off";
        EXPECT_TRUE(i().Quillery_window->isVisible() && i().Sign_in_view->isVisible());
        EXPECT_EQ(i().Sign_in_username->text(), QLatin1String(user));
        EXPECT_FALSE(delegate->isSigned_in);
    }
    signIn(QStringLiteral("alice1"), QStringLiteral("secret"));
    EXPECT_EQ(i().Sign_in_done->text(), QStringLiteral("Sign in"));
}

TEST_F(Accounts, LogOutLocksTheListWhereAPasscodeIsSet) {
    set("kHasPasscode", QStringLiteral("YES"));
    putAccount("alice1", "secret");
    start();
    EXPECT_FALSE(isEnabled("Saveing_menu_item"));
    signIn(QStringLiteral("alice1"), QStringLiteral("secret"));
    EXPECT_TRUE(isEnabled("Saveing_menu_item"));
    EXPECT_FALSE(isEnabled("Unlock_passcode_item"));
    EXPECT_EQ(i().Passcode_box->contentView(), i().change_passcode_view);
    i().Log_in_menu_item->trigger();
    EXPECT_FALSE(isEnabled("Saveing_menu_item"));
    EXPECT_FALSE(isEnabled("_Clipboard_saves_menu_item"));
    EXPECT_TRUE(isEnabled("Unlock_passcode_item"));
}

TEST_F(Accounts, PasswordChangeWritesTheServersFileAndTheSetting) {
    putAccount("alice1", "secret");
    setAutoLogin(QStringLiteral("alice1"));
    start();
    i().changePasswordItem->trigger();
    const auto change = [this](const char *old, const char *next, const char *again) {
        i().Change_old_password->setText(QLatin1String(old));
        i().Change_new_password->setText(QLatin1String(next));
        i().Change_retype_password->setText(QLatin1String(again));
        i().Change_done_button->click();
        settle();
    };
    change("Secret", "better", "better");
    EXPECT_EQ(i().Change_done_button->text(), QStringLiteral("Check your entries."));
    EXPECT_EQ(i().Change_new_password->text(), QStringLiteral("better"));
    EXPECT_EQ(remote("alice1_Password.txt"), "secret");

    alerts.expect("Success!", "You've successfully changed your password!", 0, [this] {
        EXPECT_FALSE(i().Quillery_window->isVisible());
        EXPECT_EQ(defaults.objectForKey(QStringLiteral("kPassword")), QStringLiteral("secret"));
    });
    change("secret", "better", "better");
    EXPECT_EQ(remote("alice1_Password.txt"), "better");
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("kPassword")), QStringLiteral("better"));
    EXPECT_EQ(delegate->Password, "secret") << "the session keeps what it began with";
    EXPECT_EQ(i().Change_done_button->text(), QStringLiteral("Done"));
    EXPECT_EQ(i().Change_old_password->text(), QString());
}

TEST_F(Accounts, WithoutAServerEachFormSaysSo) {
    configuration.storageHost = "127.0.0.1";
    configuration.storagePort = 1;
    alerts.expect("Error!", "Unable to connect the internet,duo to network/server error.");
    start();
    alerts.expect("Error!", "Please check your connection.");
    signIn(QStringLiteral("alice1"), QStringLiteral("secret"));
    EXPECT_EQ(i().Sign_in_username->text(), QStringLiteral("alice1"));
    alerts.expect(
        "Faild!",
        "You haven't been registred as Quillery member,duo to Error or internet connection problem.", 0,
        [this] { EXPECT_FALSE(i().Quillery_window->isVisible()); });
    signUp(QStringLiteral("alice1"), QStringLiteral("secret"));
    EXPECT_EQ(i().Sign_up_username->text(), QString());
    delegate->isSigned_in = true;
    delegate->Username = "alice1";
    i().Change_done_button->setEnabled(true);
    i().Change_old_password->setText(QStringLiteral("secret"));
    i().Change_new_password->setText(QStringLiteral("better"));
    i().Change_retype_password->setText(QStringLiteral("better"));
    i().Change_done_button->click();
    EXPECT_EQ(i().Change_done_button->text(), QStringLiteral("Check your entries."));
}

TEST_F(Accounts, PasswordsAreHiddenUntilTheyAreToBeShown) {
    start();
    for (const auto &[box, field] : std::vector<std::pair<QCheckBox *, QLineEdit *>>{
             {i().Sign_up_show_passwords, i().Sign_up_re_password},
             {i().Sign_in_show_password, i().Sign_in_password},
             {i().Change_show_passwords, i().Change_old_password}}) {
        EXPECT_EQ(field->echoMode(), QLineEdit::Password);
        box->click();
        EXPECT_EQ(field->echoMode(), QLineEdit::Normal);
        box->click();
        EXPECT_EQ(field->echoMode(), QLineEdit::Password);
    }
}

}  // namespace
