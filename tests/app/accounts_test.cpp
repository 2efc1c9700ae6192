#include <QTest>
#include <set>

#include "tests/app/ControllerTest.h"

namespace {

class Accounts : public ControllerTest {
  protected:
    Accounts() { setNotFirstUse(); }

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
    void changePassword(const char *old, const char *next, const char *again) {
        i().Change_old_password->setText(QLatin1String(old));
        i().Change_new_password->setText(QLatin1String(next));
        i().Change_retype_password->setText(QLatin1String(again));
        i().Change_done_button->click();
        settle();
    }
    // What only a signed-in user can use, as far as it is enabled, and what the program says about it.
    std::string presentation() {
        std::string letters;
        for (const QWidget *control : std::initializer_list<QWidget *>{
                 i().Add_friend_windowed_mode, i().Remove_contact_windowed_mode, i().Share_switch,
                 i().Read_local_button, i().Change_done_button, i().Auto_Login_Check_box})
            letters += control->isEnabled() ? '+' : '-';
        for (const char *item : {"Add_contact_menu_item", "Remove_a_friend_item", "changePasswordItem"})
            letters += isEnabled(item) ? '+' : '-';
        for (const char *image : {"lock", "unlock"}) {
            const QPixmap expected(QStringLiteral(":/images/%1.png").arg(QLatin1String(image)));
            const QPixmap shown = i().Log_in_menu_item->icon().pixmap(expected.size());
            if (shown.toImage() == expected.toImage()) letters += std::string(" ") + image;
        }
        return letters + " " + i().State_label->text().toStdString() + " " +
               i().Log_in_menu_item->text().toStdString() + " " +
               delegate->Status_Item->image().toStdString();
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

TEST_F(Accounts, NamesThatAreNoFileNamesAreNeverFoundAndNeverWritten) {
    putAccount("alice1", "secret");
    start();
    const auto files = [this] {
        std::set<std::filesystem::path> paths;
        for (const auto &file : std::filesystem::recursive_directory_iterator(htdocs / ".." / ".."))
            paths.insert(file.path());
        return paths;
    };
    const auto before = files();
    for (const QString &user : {QStringLiteral("../../evil1"), QStringLiteral("a/bcdef"),
                                QStringLiteral("ab\u0001cdef"), QStringLiteral("../htdocs/alice1")}) {
        SCOPED_TRACE(user.toStdString());
        alerts.expect(
            "Faild!",
            "You haven't been registred as Quillery member,duo to Error or internet connection problem.");
        signUp(user, QStringLiteral("secret"));
        EXPECT_FALSE(i().Quillery_window->isVisible());
        signIn(user, QStringLiteral("secret"));
        EXPECT_EQ(i().Sign_in_done->text(), QStringLiteral("Wrong entries/Network error!"));
        delegate->Username = user.toStdString();
        i().Change_done_button->setEnabled(true);
        changePassword("secret", "better", "better");
        EXPECT_EQ(i().Change_done_button->text(), QStringLiteral("Check your entries."));
    }
    EXPECT_EQ(files(), before);
    EXPECT_EQ(remote("alice1_Password.txt"), "secret");
}

TEST_F(Accounts, OddNamesAreNamesLikeAnyOther) {
    start();
    putAccount("plain1", "secret");
    putRemote(".plain1_Quillery.txt", "of plain1" + kEnd);
    QString before = QStringLiteral("plain1");  // the friend of the next one
    for (const QString &user :
         {QStringLiteral(".hidden"), QStringLiteral("_Username.txt"), QStringLiteral(" blanks "),
          QStringLiteral("100%#;x?"), QStringLiteral("Gr\u00FC\u00DFe\u4F60"), QStringLiteral("PLAIN1"),
          QStringLiteral("plain1%20")}) {
        const std::string name = user.toStdString();
        const std::string contact = before.toStdString();
        SCOPED_TRACE(name);
        alerts.expect("Success!", "You have successfully been registred as Quillery member.");
        signUp(user, QStringLiteral("secret"));
        signIn(user, QStringLiteral("secret"));
        ASSERT_TRUE(delegate->isSigned_in);
        save("of " + name);
        EXPECT_EQ(remote("." + name + "_Quillery.txt"), "of " + name + kEnd);

        putRemote(name + "_Contacts.txt", "");
        delegate->Contact_index_number = 0;
        alerts.expect("Success!",
                      QStringLiteral("You have successfully added \"%1\" to your friends list").arg(before));
        i().Add_contact_textfield->setText(before);
        i().Add_contact_done_button->click();
        settle();
        EXPECT_EQ(remote(name + "_Contacts.txt"), contact + kEnd);
        delegate->ShareMode_enabled = true;
        i().Quillery_window->show();
        pick(0);
        alerts.expect("Success!",
                      QStringLiteral("You have successfull share \"of %1\" with \"%2\"").arg(user, before));
        QTest::keyClick(i().Contacts_table, Qt::Key_Down);
        QTest::keyClick(i().Contacts_table, Qt::Key_Return);
        settle();
        EXPECT_EQ(remote("." + contact + "_Quillery.txt"),
                  "Shared from(" + name + ")of " + name + kEnd + "of " + contact + kEnd);
        alerts.expect("Success!", "You've successfully changed your password!");
        changePassword("secret", "better", "better");
        EXPECT_EQ(remote(name + "_Password.txt"), "better");
        i().Log_in_menu_item->trigger();
        before = user;
    }
}

TEST_F(Accounts, SignInSwitchesToTheUsersListAndLogOutBack) {
    putAccount("alice1", "secret");
    putRemote(".alice1_Quillery.txt", "theirs" + kEnd);
    putLocal("mine");
    start();
    EXPECT_EQ(presentation(), "--------- lock Offline Log in offline.png");
    signIn(QStringLiteral("alice1"), QStringLiteral("secret"));
    EXPECT_TRUE(delegate->isSigned_in);
    EXPECT_EQ(delegate->Username, "alice1");
    EXPECT_FALSE(i().Quillery_window->isVisible());
    EXPECT_EQ(i().Sign_in_username->text() + i().Sign_in_password->text(), QString());
    EXPECT_EQ(presentation(), "+++++++++ unlock Online Log out online.png");
    EXPECT_EQ(delegate->Status_Item->toolTip(), QStringLiteral("Quillery: Online as alice1"));
    EXPECT_EQ(i().Log_in_menu_item->menu(), nullptr);
    EXPECT_EQ(delegate->Content_file_path, home / "Documents" / ".alice1_Quillery.txt");
    EXPECT_EQ(items(), Items({"mine"})) << "the list is read when it is opened";
    i().Clipboard_saves_menu_item->trigger();
    EXPECT_EQ(items(), Items({"theirs", ""}));
    save("new");
    EXPECT_EQ(remote(".alice1_Quillery.txt"), "new" + kEnd + "theirs" + kEnd);

    i().Log_in_menu_item->trigger();
    EXPECT_FALSE(delegate->isSigned_in);
    EXPECT_EQ(*delegate->Username + *delegate->Password, "");
    EXPECT_EQ(presentation(), "--------- lock Offline Log in offline.png");
    EXPECT_EQ(delegate->Status_Item->toolTip(), QStringLiteral("Quillery: Offline"));
    EXPECT_EQ(i().Log_in_menu_item->menu(), &i().Log_in_menu);
    i().Clipboard_saves_menu_item->trigger();
    EXPECT_EQ(items(), Items({"mine"}));
}

TEST_F(Accounts, LogOutEndsTheUsersModesAndKeepsTheRest) {
    putAccount("alice1", "secret");
    putRemote("alice1_Contacts.txt", "bobby1" + kEnd);
    setAutoLogin(QStringLiteral("alice1"));
    start();
    struct Mode {
        QAbstractButton *toggle;
        QLabel *label;
        const bool &isOn;
        const char *afterwards;
        bool staysOn;
    };
    for (const Mode &mode :
         {Mode{i().Share_switch, i().Share_label, delegate->ShareMode_enabled, "Share", false},
          Mode{i().Read_local_button, i().Make_available_offline_label, delegate->Read_Local_mode,
               "Make available offline", false},
          Mode{i().RemoveItem_button, i().Remove_item_label, delegate->RemoveMode_enabled, "Done", true}}) {
        if (!delegate->isSigned_in) signIn(QStringLiteral("alice1"), QStringLiteral("secret"));
        mode.toggle->click();
        EXPECT_TRUE(mode.isOn);
        i().Remove_a_friend_item->trigger();
        i().Remove_contact->setText(QStringLiteral("Done"));
        i().Log_in_menu_item->trigger();
        EXPECT_EQ(mode.isOn, mode.staysOn) << mode.afterwards;
        EXPECT_EQ(mode.toggle->isChecked(), mode.staysOn) << mode.afterwards;
        EXPECT_EQ(mode.label->text(), QLatin1String(mode.afterwards));
        EXPECT_FALSE(delegate->RemoveContact_enabled);
        EXPECT_EQ(i().Remove_contact->text(), QStringLiteral("Remove a friend"));
    }
    EXPECT_EQ(delegate->Contacts_array, Items({"bobby1", ""}));
    EXPECT_EQ(delegate->Content_file_path, localPath());
    for (const auto &[key, value] : {std::pair("kAutoLogin", "Yes"), std::pair("kUsername", "alice1")})
        EXPECT_EQ(defaults.objectForKey(QLatin1String(key)), QLatin1String(value));
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
        EXPECT_TRUE(i().Quillery_window->isVisible() && i().Sign_in_view->isVisible());
        EXPECT_EQ(i().Sign_in_username->text(), QLatin1String(user));
        EXPECT_FALSE(delegate->isSigned_in);
    }
    signIn(QStringLiteral("alice1"), QStringLiteral("secret"));
    EXPECT_EQ(i().Sign_in_done->text(), QStringLiteral("Sign in"));
}

TEST_F(Accounts, PasswordChangeWritesTheServersFileAndTheSetting) {
    putAccount("alice1", "secret");
    setAutoLogin(QStringLiteral("alice1"));
    start();
    i().changePasswordItem->trigger();
    changePassword("Secret", "better", "better");
    EXPECT_EQ(i().Change_done_button->text(), QStringLiteral("Check your entries."));
    EXPECT_EQ(i().Change_new_password->text(), QStringLiteral("better"));
    EXPECT_EQ(remote("alice1_Password.txt"), "secret");

    alerts.expect("Success!", "You've successfully changed your password!", 0, [this] {
        EXPECT_FALSE(i().Quillery_window->isVisible());
        EXPECT_EQ(defaults.objectForKey(QStringLiteral("kPassword")), QStringLiteral("secret"));
    });
    changePassword("secret", "better", "better");
    EXPECT_EQ(remote("alice1_Password.txt"), "better");
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("kPassword")), QStringLiteral("better"));
    EXPECT_EQ(delegate->Password, "secret") << "the session keeps what it began with";
    EXPECT_EQ(i().Change_done_button->text(), QStringLiteral("Done"));
    EXPECT_EQ(i().Change_old_password->text(), QString());
    EXPECT_TRUE(i().Change_done_button->isEnabled());

    i().Log_in_menu_item->trigger();
    signIn(QStringLiteral("alice1"), QStringLiteral("secret"));
    EXPECT_FALSE(delegate->isSigned_in);
    signIn(QStringLiteral("alice1"), QStringLiteral("better"));
    EXPECT_TRUE(delegate->isSigned_in);
    start();
    EXPECT_EQ(delegate->Password, "better") << "the next automatic sign-in";
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
