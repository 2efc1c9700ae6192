// What is offered and shown: from the start on, signed in and out, locked and unlocked, and the preferences.
#include <sys/stat.h>

#include <QTest>
#include <fstream>
#include <map>
#include <set>

#include "platform/ColorScheme.h"
#include "platform/LoginItem.h"
#include "platform/UserFolders.h"
#include "tests/app/ControllerTest.h"

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

const Alert kNoConnection{"Error!", "Unable to connect the internet,duo to network/server error."};
const Alert kWrongPasscode{"Error!", "Wrong passcode."};
constexpr auto kPatience = 200ms;

class States : public ControllerTest {
  protected:
    States() : ControllerTest(kPatience) {}

    void lockWith(const QString &passcode) {
        set("kHasPasscode", "YES");
        set("kPasscode", passcode);
    }
    // Nothing listens there.
    void setNoServer() {
        configuration.storageHost = "127.0.0.1";
        configuration.storagePort = 1;
    }
    // In this order:
    // the items of the menu that are offered: Save, saved List, Add and Remove a friend, change Password,
    //     Unlock;
    // the controls that are enabled: Share, make available Offline, Done of the password change, Auto-login,
    //     add and remove a Friend in the windowed mode, change Password in the preferences;
    // whether the program looks signed "in" or "out" everywhere;
    // which passcode form the preferences have: "new" or "change";
    // the view in the panel, in brackets if the panel is hidden.
    std::string state() {
        std::string text;
        const auto add = [&](const char *letters, std::initializer_list<bool> isOn) {
            for (const bool is : isOn) text += is ? *letters++ : (++letters, '-');
            text += ' ';
        };
        add("SLARPU", {i().Saveing_menu_item->isEnabled(), i().Clipboard_saves_menu_item->isEnabled(),
                       i().Add_contact_menu_item->isEnabled(), i().Remove_a_friend_item->isEnabled(),
                       i().changePasswordItem->isEnabled(), i().Unlock_passcode_item->isEnabled()});
        add("SODAFFP",
            {i().Share_switch->isEnabled(), i().Read_local_button->isEnabled(),
             i().Change_done_button->isEnabled(), i().Auto_Login_Check_box->isEnabled(),
             i().Add_friend_windowed_mode->isEnabled(), i().Remove_contact_windowed_mode->isEnabled(),
             i().Change_password_button->isEnabled()});
        text += looksSignedIn(true) ? "in " : looksSignedIn(false) ? "out " : "neither ";
        text += i().Passcode_box->contentView() == i().new_passcode_view ? "new " : "change ";
        const std::string view = shownView()->objectName().toStdString();
        return text + (i().Quillery_window->isVisible() ? view : "(" + view + ")");
    }
    bool looksSignedIn(bool isIn) {
        const QPixmap lock(isIn ? ":/images/unlock.png" : ":/images/lock.png");
        const QString who = "Quillery: Online as " + QString::fromStdString(delegate->Username.value_or(""));
        return delegate->isSigned_in == isIn && i().State_label->text() == (isIn ? "Online" : "Offline") &&
               i().Log_in_menu_item->text() == (isIn ? "Log out" : "Log in") &&
               i().Log_in_menu_item->menu() == (isIn ? nullptr : &i().Log_in_menu) &&
               i().Log_in_menu_item->icon().pixmap(lock.size()).toImage() == lock.toImage() &&
               delegate->Status_Item->image() == (isIn ? "online.png" : "offline.png") &&
               delegate->Status_Item->toolTip() == (isIn ? who : "Quillery: Offline");
    }
};

const std::string kOut = "SL---- ------- out new ";
const std::string kLocked = "-----U ------- out change ";
const std::string kIn = "SLARP- SODAFFP in ";

TEST_F(States, EachStartOffersAndShowsWhatFitsItsSituation) {
    using Settings = std::map<const char *, const char *>;
    const Settings passcode{{"kHasPasscode", "YES"}, {"kPasscode", "4711"}}, nothing;
    const Settings autoLogin{{"kAutoLogin", "Yes"}, {"kUsername", "ann"}, {"kPassword", "secret"}};
    const Settings both{{"kAutoLogin", "Yes"}, {"kUsername", "ann"}, {"kHasPasscode", "YES"}};
    const std::string far = "far" + kEnd, checking = "(Checking_for_connection_view)",
                      insert = "Insert_passcode_view";
    struct Row {
        const char *situation;
        Settings settings;
        std::optional<std::string> local, remote;
        std::string state;
        Items items;
        bool isOffline = false;
    };
    const Row rows[] = {
        {"signed out", nothing, "b" + kEnd + "a", far, kOut + checking, {"b", "a"}},
        {"signed out, no list yet", nothing, {}, far, kOut + "(List_View)", {""}},
        {"nearly a passcode and auto-login",
         {{"kHasPasscode", "Yes"}, {"kAutoLogin", "YES"}},
         "a",
         far,
         kOut + checking,
         {"a"}},
        {"a passcode", passcode, "a", far, kLocked + insert, {"a"}},
        {"a passcode, no list yet", passcode, {}, far, kLocked + insert, {""}},
        {"no server", autoLogin, "a", far, "SL---- S------ out new " + checking, {"a"}, true},
        {"no server and a passcode", both, "a", far, "-----U S------ out change " + insert, {"a"}, true},
        {"auto-login", autoLogin, "mine", far, kIn + "new " + checking, {"far", ""}},
        {"auto-login and a passcode", both, "mine", far, kIn + "change " + checking, {"far", ""}},
        {"auto-login, no list here", autoLogin, {}, far, kIn + "new " + checking, {}},
        {"auto-login, no list there", autoLogin, "mine", {}, kIn + "new " + checking, {}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.situation);
        for (const char *key : {"kAutoLogin", "kUsername", "kPassword", "kHasPasscode", "kPasscode"})
            defaults.setObject(std::nullopt, QLatin1String(key));
        for (const auto &[key, value] : row.settings) set(key, value);
        fs::remove(localPath());
        if (row.local) putLocal(*row.local);
        putRemote(".ann_Quillery.txt", row.remote);
        configuration.storageHost.reset();
        if (row.isOffline) {
            setNoServer();
            Alert alert = kNoConnection;  // which is in front of the lock
            alert.during = [&] { EXPECT_EQ(i().Quillery_window->isVisible(), row.settings == both); };
            alerts.expect({alert});
        }
        start();
        EXPECT_EQ(state(), row.state);
        EXPECT_EQ(items(), row.items);
        EXPECT_EQ(local(), row.local.value_or(""));
        EXPECT_EQ(delegate->Username, delegate->isSigned_in ? std::optional("ann") : std::nullopt);
        EXPECT_EQ(i().Auto_login_label->text(),
                  row.settings.contains("kAutoLogin") && row.settings.at("kAutoLogin") == std::string("Yes")
                      ? "Auto-Login:enabled"
                      : "Auto-Login:disabled");
    }
}

TEST_F(States, FirstUseShowsTheIntroAloneAndEndsInAFullStart) {
    defaults.setObject(std::nullopt, "kIsNotFirstUse");
    configuration.links = {{"web", "https://example.org/?a=1"}};
    start();
    const auto hasHotKey = [] {
        return VkHotKeyCenter::sharedHotKeyCenter().hasRegisteredHotKeyWithKeyCode(8, 0x120000);
    };
    EXPECT_TRUE(i().Intro_window->isVisible());
    EXPECT_TRUE(i().Intro_window->windowFlags() & Qt::WindowStaysOnTopHint);
    EXPECT_FALSE(i().Quillery_window->isVisible() || delegate->Status_Item || delegate->MyFTPManager);
    EXPECT_FALSE(hasHotKey() || fs::exists(localPath()));
    QTest::mouseClick(i().Tovanix_intro, Qt::LeftButton);
    ASSERT_TRUE(i().Intro_popover->isVisible());
    i().Web_intro->click();
    EXPECT_FALSE(i().Intro_popover->isVisible());
    i().Mini_Intro->click();
    EXPECT_TRUE(i().Intro_window->isMinimized());

    QTest::mouseClick(i().Start_intro_button, Qt::LeftButton);
    EXPECT_FALSE(i().Intro_window->isVisible());
    EXPECT_EQ(stored("kIsNotFirstUse"), "YES");
    EXPECT_EQ(state(), kOut + "(List_View)");
    EXPECT_TRUE(hasHotKey());
    EXPECT_EQ(remote(".Check_internet"), "Check");
    EXPECT_EQ(delegate->Quillery_Server.destination, "127.0.0.1/htdocs");
    EXPECT_EQ(delegate->Quillery_Server.username, "qz7m_50281946");
    delegate.reset();
    EXPECT_FALSE(hasHotKey());
}

TEST_F(States, TheCheckingPanelLivesWhileASlowServerAnswers) {
    useScriptedServer({{.at = "STOR", .delay = 1s}});
    std::set<std::string> looks;
    bool couldCancel = false;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        if (!i().Quillery_window->isVisible()) return;
        const QImage look = i().Checking_for_connection_spinner->grab().toImage();
        looks.emplace(reinterpret_cast<const char *>(look.constBits()),
                      static_cast<std::size_t>(look.sizeInBytes()));
        couldCancel |= i().Checking_cancel->isVisible();
    });
    timer.start(50);
    start();  // no alert: the server was only slow
    timer.stop();
    EXPECT_TRUE(couldCancel);
    EXPECT_GT(looks.size(), 5U);
    EXPECT_FALSE(i().Checking_for_connection_spinner->isAnimating());
    EXPECT_EQ(state(), kOut + "(List_View)");
}

TEST_F(States, AMuteServerCanBeGivenUp) {
    useScriptedServer({{.at = "greeting", .stalls = true}});
    Alert stay = kQuit;
    stay.answer = 1;
    alerts.expect({stay, kNoConnection});
    QTimer::singleShot(50, [&] {
        i().Quit->trigger();
        EXPECT_EQ(alerts.outstanding(), 1U) << "at once";
        QTest::keyClick(i().Quillery_window.get(), Qt::Key_Escape);
    });
    bool wasSlow = false;
    QObject::connect(&waiting, &Waiting::slow, [&] { wasSlow = true; });
    start();
    EXPECT_FALSE(wasSlow) << "at once, too";
    EXPECT_FALSE(delegate->UploadDidFinish);
}

// ---- Signing in and out ----

TEST_F(States, SignInSwitchesToTheUsersListAndLogOutBack) {
    putAccount("ann");
    putRemote(".ann_Quillery.txt", "theirs" + kEnd);
    putLocal("mine");
    start();
    signIn("ann");
    EXPECT_EQ(state(), kIn + "new (Sign_in_view)");
    EXPECT_EQ(i().Sign_in_username->text() + i().Sign_in_password->text(), "");
    EXPECT_EQ(delegate->Content_file_path, home / "Documents" / ".ann_Quillery.txt");
    EXPECT_EQ(items(), Items({"mine"})) << "the list is read when it is opened";
    openList();
    EXPECT_EQ(items(), Items({"theirs", ""}));
    EXPECT_EQ(i().List_place->text(), "In your account on this computer");

    i().Log_in_menu_item->trigger();
    EXPECT_EQ(state(), kOut + "List_View");
    EXPECT_EQ(*delegate->Username + *delegate->Password, "");
    EXPECT_EQ(delegate->Content_file_path, localPath());
    EXPECT_EQ(items(), Items({"mine"}));
    EXPECT_EQ(i().List_place->text(), "On this computer");
}

TEST_F(States, LogOutEndsTheUsersModesAndKeepsTheRest) {
    putAccount("ann");
    putRemote("ann_Contacts.txt", "bob" + kEnd);
    setAutoLogin("ann");
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
        SCOPED_TRACE(mode.afterwards);
        if (!delegate->isSigned_in) signIn("ann");
        mode.toggle->click();
        EXPECT_TRUE(mode.isOn);
        i().Remove_a_friend_item->trigger();
        EXPECT_TRUE(delegate->RemoveContact_enabled);
        i().Log_in_menu_item->trigger();
        EXPECT_EQ(mode.isOn, mode.staysOn);
        EXPECT_EQ(mode.toggle->isChecked(), mode.staysOn);
        EXPECT_EQ(mode.label->text(), mode.afterwards);
        EXPECT_FALSE(delegate->RemoveContact_enabled);
        EXPECT_EQ(i().Remove_contact->text(), "Remove a friend");
    }
    EXPECT_EQ(delegate->Contacts_array, Items({"bob", ""}));
    EXPECT_EQ(stored("kAutoLogin") + stored("kUsername"), "Yesann");
}

// ---- The passcode ----

TEST_F(States, APasscodeIsSetChangedAndRemovedOnlyByTheRightTexts) {
    const Alert differs{"Error!", "\"Passcode\" field doesn't match \"re-type\" field"},
        newDiffers{"Error!", "\"New passcode\" field doesn't match \"re-type\" field"},
        wrongOld{"Error!", "Wrong \"Old passcode\""},
        created{"Success!", "You have successfully sat up your passcode"},
        changed{"Success!", "Passcode has successfully changed"},
        notRemoved{"Error!", "\"Old Passcode\" field doesn't match the previous passcode."};
    const char *const odd =
        " \xC3\x96"
        "ffne, dich; \"1\" ";
    struct Row {
        char what;  // Set, Change or Remove
        const char *old, *next, *again;
        Said said;
        bool isDone = false;
        bool isOpenMeanwhile = true;  // while the alert is up
    };
    const Row rows[] = {
        {'S', "", "one", "two", {differs}},     {'S', "", "", "", {differs}},
        {'S', "", "one", "One", {differs}},     {'S', "", "one", "one ", {differs}},
        {'S', "", odd, odd, {created}, true},   {'C', "", "new", "new", {wrongOld}},
        {'C', "Old", "new", "new", {wrongOld}}, {'C', odd, "new", "knew", {newDiffers}},
        {'C', odd, "", "", {newDiffers}},       {'C', odd, "old", "old", {changed}, true, false},
        {'R', "", "", "", {notRemoved}},        {'R', "Old", "", "", {notRemoved}},
        {'R', "old", "", "", {}, true},
    };
    start();
    for (const Row &row : rows) {
        SCOPED_TRACE(&row - rows);
        i().Preference_menu_item->trigger();
        const bool creates = row.what == 'S';
        for (QLineEdit *old : {i().Change_old_passcode}) old->setText(row.old);
        (creates ? i().Create_passcode : i().Change_new_passcode)->setText(row.next);
        (creates ? i().Retype_passcode : i().Change_Retype_passcode)->setText(row.again);
        const QString before = stored("kPasscode") + stored("kHasPasscode");
        Said said = row.said;
        for (Alert &alert : said)
            alert.during = [&] { EXPECT_EQ(i().Quillery_window->isVisible(), row.isOpenMeanwhile); };
        alerts.expect(said);
        (creates           ? i().Done_create_passcode
         : row.what == 'C' ? i().Done_change_passcode
                           : i().Remove_passcode_button)
            ->click();
        if (!row.isDone) {
            EXPECT_EQ(stored("kPasscode") + stored("kHasPasscode"), before);
            EXPECT_TRUE(i().Quillery_window->isVisible());
            continue;
        }
        EXPECT_EQ(stored("kHasPasscode"), row.what == 'R' ? "" : "YES");
        EXPECT_EQ(stored("kPasscode"), row.what == 'R' ? row.old : row.next);
        EXPECT_EQ(state(),
                  row.what == 'R' ? kOut + "Preference_View" : "SL---- ------- out change (Preference_View)");
        for (const QLineEdit *field : {i().Create_passcode, i().Retype_passcode, i().Change_old_passcode,
                                       i().Change_new_passcode, i().Change_Retype_passcode})
            EXPECT_EQ(field->text(), "");
    }
    set("kPasscode", "");
    alerts.expect({wrongOld});
    i().Done_change_passcode->click();  // nothing is no passcode
}

TEST_F(States, LockedTheListIsOutOfReachButTheHotKeySavesUntilTheVeryPasscodeUnlocks) {
    putLocal("old" + kEnd);
    lockWith("Secret");
    start();
    i().Saveing_menu_item->trigger();
    openList();
    pick(0);
    SingleInstance::Answer answer;
    delegate->performRequest("list", [&](const SingleInstance::Answer &given) { answer = given; });
    EXPECT_EQ(answer.status, 1);
    EXPECT_NE(answer.words.find("locked"), std::string::npos);
    copy("new");
    delegate->Save_bar_item(VkKeyEvent{});
    settle();
    EXPECT_EQ(local(), "new" + kEnd + "old" + kEnd);
    delegate->performRequest("activate", [](const SingleInstance::Answer &) {});
    EXPECT_EQ(state(), kLocked + "Insert_passcode_view");
    for (const char *wrong : {"secret", "", "Secret "}) {
        i().Insert_passcode_field->setText(wrong);
        alerts.expect({kWrongPasscode});
        QTest::keyClick(i().Insert_passcode_field, Qt::Key_Return);
        EXPECT_EQ(i().Insert_passcode_field->text(), wrong);
        EXPECT_EQ(state(), kLocked + "Insert_passcode_view");
    }
    i().Quillery_window->close();
    i().Unlock_passcode_item->trigger();
    EXPECT_TRUE(i().Quillery_window->isVisible());
    const std::string unlocked = "SL---- ------- out change (Insert_passcode_view)";
    i().Insert_passcode_field->setText("Secret");
    alerts.expect({{"Success!", "Correct passcode", 0, [&] { EXPECT_EQ(state(), unlocked); }}});
    i().Done_insert_passcode->click();
    EXPECT_EQ(i().Insert_passcode_field->text(), "");
}

TEST_F(States, SignInLiftsTheLockAndLogOutLocksWhatIsShown) {
    putAccount("ann");
    putRemote(".ann_Quillery.txt", "mine" + kEnd);
    lockWith("Secret");
    start();
    signIn("ann");
    EXPECT_EQ(state(), kIn + "change (Sign_in_view)");
    openList();
    pick(0);
    ASSERT_TRUE(i().QuickView_popover->isVisible());
    i().Change_old_password->setText("typed and left");
    Q_EMIT notifications.undeliverable("Success!", "saved: mine");
    ASSERT_TRUE(i().notificationBanner->isVisible());

    i().Log_in_menu_item->trigger();
    EXPECT_EQ(state(), kLocked + "(Insert_passcode_view)");
    EXPECT_FALSE(i().notificationBanner->isVisible() || i().QuickView_popover->isVisible());
    EXPECT_EQ(i().QuickView_label->toPlainText() + i().Change_old_password->text(), "");
    EXPECT_EQ(list().stringValue(), "") << "a friend could be sent it";
    i().Contacts_item->trigger();
    EXPECT_FALSE(i().Friends_hint->text().contains("mine"));
}

// ---- Preferences, instructions, windowed mode, links ----

TEST_F(States, OpenAtLaunchWritesTheEntryAndSaysWhatIsWrongWithIt) {
    const fs::path entry = LoginItem::file("TovanixDev.Quillery-Helper");
    start();
    i().Preference_menu_item->trigger();
    EXPECT_EQ(state(), kOut + "Preference_View");
    const auto shows = [&](bool isOn) {
        EXPECT_EQ(i().Open_at_launch_check_box->isChecked(), isOn);
        EXPECT_EQ(i().Open_at_launch_label->text(),
                  isOn ? "Open at launch:enabled" : "Open at launch:disabled");
        return i().Open_at_launch_problem->text().toStdString();
    };
    const auto click = [&] { i().Open_at_launch_check_box->click(); };
    EXPECT_EQ(shows(false), "");
    click();
    EXPECT_EQ(shows(true), "");
    EXPECT_EQ(stored("kOpenAtLaunch"), "Yes");
    EXPECT_TRUE(fs::exists(entry));
    fs::remove(entry);
    start();
    EXPECT_FALSE(fs::exists(entry)) << "starting only shows the setting";
    EXPECT_NE(shows(true).find("is missing"), std::string::npos);
    for (const auto &[text, words] : {std::pair{"Exec=\"/opt/quillery\"\nHidden=true\n", "is switched off"},
                                      std::pair{"Exec=\"/opt/older\"\n", "another program"}}) {
        std::ofstream(entry) << text;
        i().Preference_menu_item->trigger();
        EXPECT_NE(shows(true).find(words), std::string::npos);
    }
    click();
    EXPECT_EQ(shows(false), "");
    EXPECT_EQ(stored("kOpenAtLaunch"), "No");
    EXPECT_FALSE(fs::exists(entry));
    click();
    i().Preference_menu_item->trigger();
    EXPECT_EQ(shows(true), "");

    // What cannot be done is said, and the setting stands.
    fs::remove(entry);
    fs::create_directories(entry / "in the way");
    click();
    EXPECT_NE(shows(false).find("could not be removed"), std::string::npos);
    fs::remove_all(entry.parent_path());
    std::ofstream(entry.parent_path()) << "in the way";
    click();
    EXPECT_NE(shows(true).find("could not be made: Not a directory"), std::string::npos);
    EXPECT_EQ(stored("kOpenAtLaunch"), "Yes");
}

TEST_F(States, AutoLoginStoresWhoIsSignedInAndForgetsThem) {
    putAccount("ann", "secret, with a comma");
    start();
    signIn("ann", "secret, with a comma");
    i().Auto_Login_Check_box->click();
    const auto settings = [&] { return stored("kAutoLogin") + stored("kUsername") + stored("kPassword"); };
    EXPECT_EQ(i().Auto_login_label->text(), "Auto-Login:enabled");
    EXPECT_EQ(settings(), "Yesannsecret, with a comma");
    i().Log_in_menu_item->trigger();
    EXPECT_EQ(stored("kAutoLogin"), "Yes") << "logging out leaves it";
    start();
    EXPECT_EQ(state(), kIn + "new (Checking_for_connection_view)");
    EXPECT_TRUE(i().Auto_Login_Check_box->isChecked());
    i().Auto_Login_Check_box->click();
    EXPECT_EQ(i().Auto_login_label->text(), "Auto-Login:disabled");
    EXPECT_EQ(settings(), "No(absent)(absent)");
}

TEST_F(States, WhatIsTypedAsAPasswordIsHiddenUntilItIsToBeShown) {
    start();
    for (const auto &[box, field] : std::vector<std::pair<QCheckBox *, QLineEdit *>>{
             {i().Sign_up_show_passwords, i().Sign_up_re_password},
             {i().Sign_in_show_password, i().Sign_in_password},
             {i().Change_show_passwords, i().Change_old_password},
             {i().Create_passcode_show, i().Retype_passcode},
             {i().Change_passcode_show, i().Change_new_passcode}}) {
        for (const auto mode : {QLineEdit::Password, QLineEdit::Normal, QLineEdit::Password}) {
            EXPECT_EQ(field->echoMode(), mode) << box->objectName().toStdString();
            box->click();
        }
        field->setText("typed and left");
    }
    i().Preference_menu_item->trigger();
    EXPECT_EQ(i().Retype_passcode->text() + i().Change_new_passcode->text(), "");
}

TEST_F(States, TheInstructionsGoForwardAndBackAndFollowTheColours) {
    start();
    i().Instructions->trigger();
    EXPECT_EQ(state(), kOut + "Instructions_view");
    std::set<QString> texts;
    std::set<std::string> pictures;
    const auto page = [&] {
        texts.insert({i().Instructions_text->text()});
        texts.insert({i().Instructions_image_view->accessibleName()});
        const QImage picture = i().Instructions_image_view->pixmap().toImage();
        pictures.emplace(reinterpret_cast<const char *>(picture.constBits()),
                         static_cast<std::size_t>(picture.sizeInBytes()));
        return i().Instructions_page->text().left(1) + (i().Inst_Back->isEnabled() ? '+' : '-') +
               (i().Inst_Next->isEnabled() ? '+' : '-');
    };
    EXPECT_EQ(page(), "1-+");
    for (const char *next : {"2++", "3+-"}) {
        i().Inst_Next->click();
        EXPECT_EQ(page(), next);
    }
    EXPECT_EQ(texts.size(), 6U);
    EXPECT_EQ(pictures.size(), 3U);
    i().Quillery_window->close();
    i().Instructions->trigger();
    for (const char *before : {"3+-", "2++", "1-+"}) {  // it opens where it was left
        EXPECT_EQ(page(), before);
        i().Inst_Back->click();
    }
    const auto isDark = [this] {
        const QImage picture = i().Instructions_image_view->pixmap().toImage();
        return picture.pixelColor(picture.width() / 2, 4).lightness() < 128;
    };
    EXPECT_FALSE(isDark());
    const QPalette usual = QApplication::palette();
    QApplication::setPalette(ColorScheme::darkPalette());
    EXPECT_TRUE(waitFor(isDark));
    QApplication::setPalette(usual);
    EXPECT_TRUE(waitFor([&] { return !isDark(); }));
}

TEST_F(States, TheWindowedModePassesCommandsOnAndOpensTheLinks) {
    configuration.links = {{"web", "https://example.org/?a=1"},
                           {"email", "hello us+news@example.org"},
                           {"tutorials", "https://example.org/help"}};
    putRemote("ann_Contacts.txt", "bob" + kEnd);
    setAutoLogin("ann");
    start();
    i().Quillery_window->show();
    i().Windowed_mode_item->trigger();
    EXPECT_FALSE(i().Quillery_window->isVisible());
    EXPECT_TRUE(i().Windowed_mode->isVisible() && i().Windowed_text->isVisible());
    EXPECT_FALSE(i().Close_windowed->isVisible()) << "without a status bar nothing would bring it back";
    for (const auto &[button, view] : std::vector<std::pair<QPushButton *, const char *>>{
             {i().Preference_windowed_mode, "Preference_View"},
             {i().Tutorials_windowed_mode, "Instructions_view"},
             {i().Add_friend_windowed_mode, "Add_contact_view"},
             {i().Remove_contact_windowed_mode, "Contacts_table"}}) {
        button->click();
        EXPECT_EQ(state(), kIn + "new " + view);
        i().Quillery_window->close();
    }
    i().Info_Action->trigger();
    EXPECT_EQ(state(), kIn + "new Info_View");
    for (QPushButton *button : {i().Web_intro, i().Mail_intro, i().intro_open_tutorials}) {
        i().Contact_us_windowed_mode->click();
        const QPushButton &opener = *i().Contact_us_windowed_mode;
        EXPECT_TRUE(i().Intro_popover->isVisible());
        EXPECT_GT(i().Intro_popover->x(), opener.mapToGlobal(opener.rect().topRight()).x());
        button->click();
        EXPECT_FALSE(i().Intro_popover->isVisible());
    }
    i().Web->trigger();
    EXPECT_TRUE(i().aboutUs->isEnabled());
    EXPECT_FALSE(i().Facebook->isEnabled() || i().Facebook_intro->isEnabled()) << "no address";
    EXPECT_EQ(workspace.opened.join(' '),
              "https://example.org/?a=1 mailto:?to=hello%20us%2Bnews%40example.org&subject=&body= "
              "https://example.org/help https://example.org/?a=1");
    delegate->Close_windowed(nullptr);
    EXPECT_FALSE(i().Windowed_mode->isVisible());
    configuration.links.clear();
    start();
    EXPECT_FALSE(i().Contact_us_windowed_mode->isEnabled() || i().aboutUs->isEnabled());
}

// ---- Modes ----

TEST_F(States, NoOtherUserCanReadOrChangeAFileOfTheProgram) {
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
    EXPECT_GE(files, 5) << "the list, the settings, the entry, a copy, a text on its way";
}

}  // namespace
