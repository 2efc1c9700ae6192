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
constexpr auto kPatience = 200ms;

class States : public ControllerTest {
  protected:
    States() : ControllerTest(kPatience) {}

    // Fills in a form for passcodes and sends it: "create-passcode" one and again, "change-passcode" and
    // "remove-passcode" the old one first, "unlock" the one.
    void act(const QString &line) override {
        QStringList words = line.split(' ').replaceInStrings("\\r", "\r");
        const QString verb = words.takeFirst();
        for (QString &word : words) word = word == "-" ? "" : word;
        words.resize(3);
        const bool creates = verb == "create-passcode";
        if (verb == "unlock") {
            i().Insert_passcode_field->setText(words[0]);
            QTest::keyClick(i().Insert_passcode_field, Qt::Key_Return);
        } else if (verb.endsWith("-passcode")) {
            if (!creates) i().Change_old_passcode->setText(words.takeFirst());
            (creates ? i().Create_passcode : i().Change_new_passcode)->setText(words[0]);
            (creates ? i().Retype_passcode : i().Change_Retype_passcode)->setText(words[1]);
            (creates                     ? i().Done_create_passcode
             : verb == "change-passcode" ? i().Done_change_passcode
                                         : i().Remove_passcode_button)
                ->click();
        } else {
            ControllerTest::act(line);
        }
    }
    QString see(const QString &what) override {
        return what == "state" ? QString::fromStdString(state()) : ControllerTest::see(what);
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
    using Settings = std::map<std::string, std::string>;
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
        for (const auto &[key, value] : row.settings) set(key.c_str(), QString::fromStdString(value));
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
                  stored("kAutoLogin") == "Yes" ? "Auto-Login:enabled" : "Auto-Login:disabled");
    }
}

TEST_F(States, FirstUseShowsTheIntroAloneAndEndsInAFullStart) {
    defaults.setObject(std::nullopt, "kIsNotFirstUse");
    configuration.links = {{"web", "https://example.org/?a=1"}};
    start();
    const auto hasHotKey = [] {
        return VkHotKeyCenter::sharedHotKeyCenter().hasRegisteredHotKeyWithKeyCode(8, 0x120000);
    };
    EXPECT_TRUE(i().Intro_window->windowFlags() & Qt::WindowStaysOnTopHint);
    EXPECT_FALSE(delegate->Status_Item || delegate->MyFTPManager || hasHotKey());
    play(R"(
        settle                   -> shown Intro_window=yes; view=hidden; local=(none)
        click Tovanix_intro      -> shown Intro_popover=yes
        click Web_intro          -> shown Intro_popover=no
        click Start_intro_button -> shown Intro_window=no; setting kIsNotFirstUse=YES; local=-
        settle                   -> state=SL---- ------- out new (List_View); remote .Check_internet=Check
    )");
    EXPECT_TRUE(hasHotKey());
    EXPECT_EQ(*delegate->Quillery_Server.destination + *delegate->Quillery_Server.username,
              "127.0.0.1/htdocsqz7m_50281946");
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

// ---- Signing in and out, the passcode ----

TEST_F(States, SignInSwitchesToTheUsersListAndLogOutBackWithoutTheUsersModes) {
    play(R"(
        account ann
        remote .ann_Quillery.txt theirs|
        remote ann_Contacts.txt bob|
        local mine
        start
        sign-in ann secret          -> state=SLARP- SODAFFP in new (Sign_in_view); Sign_in_username=-; Sign_in_password=-
        settle                      -> list=mine
        open                        -> list=theirs|
        click Share_switch          -> mode=share
        menu Remove_a_friend_item   -> mode=share+friends; friends=bob|
        menu Log_in_menu_item       -> mode=copy; Share_label=Share; checked Share_switch=no; friends=bob|
        settle                      -> state=SL---- ------- out new Contacts_table; user=-; password=-
        sign-in ann secret
        click Read_local_button     -> mode=offline
        open
        menu Log_in_menu_item       -> mode=copy; Make_available_offline_label=Make available offline; list=mine
        settle                      -> state=SL---- ------- out new List_View; checked Read_local_button=no
        sign-in ann secret
        click RemoveItem_button     -> mode=remove
        menu Log_in_menu_item       -> mode=remove; Remove_item_label=Done; checked RemoveItem_button=yes
    )");
    EXPECT_EQ(delegate->Content_file_path, localPath());
}

TEST_F(States, APasscodeIsSetChangedAndRemovedOnlyByTheRightTexts) {
    play(R"(
        start
        menu Preference_menu_item     -> state=SL---- ------- out new Preference_View
        ! Error!: "Passcode" field doesn't match "re-type" field
        create-passcode one two
        ! Error!: "Passcode" field doesn't match "re-type" field
        create-passcode - -
        ! Error!: "Passcode" field doesn't match "re-type" field
        create-passcode one One
        ! Error!: "Passcode" field doesn't match "re-type" field
        create-passcode one one\r     -> setting kPasscode=(absent); setting kHasPasscode=(absent); view=Preference_View
        ! Success!: You have successfully sat up your passcode
        create-passcode Öf;"1" Öf;"1" -> setting kPasscode=Öf;"1"; setting kHasPasscode=YES; Create_passcode=-
        settle                        -> state=SL---- ------- out change (Preference_View); Retype_passcode=-
        menu Preference_menu_item
        ! Error!: Wrong "Old passcode"
        change-passcode - new new
        ! Error!: Wrong "Old passcode"
        change-passcode öf;"1" new new
        ! Error!: "New passcode" field doesn't match "re-type" field
        change-passcode Öf;"1" new knew
        ! Error!: "New passcode" field doesn't match "re-type" field
        change-passcode Öf;"1" - -    -> setting kPasscode=Öf;"1"; view=Preference_View
        ! Success!: Passcode has successfully changed
        change-passcode Öf;"1" old old -> setting kPasscode=old; setting kHasPasscode=YES; Change_new_passcode=-
        settle                        -> view=hidden; Change_old_passcode=-; Change_Retype_passcode=-
        menu Preference_menu_item
        ! Error!: "Old Passcode" field doesn't match the previous passcode.
        remove-passcode Old           -> setting kHasPasscode=YES
        remove-passcode old           -> setting kHasPasscode=-; setting kPasscode=old; Change_old_passcode=-
        settle                        -> state=SL---- ------- out new Preference_View
        set kPasscode
        ! Error!: Wrong "Old passcode"
        change-passcode - new new
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
        unlock secret          -> Insert_passcode_field=secret
        ! Error!: Wrong passcode.
        unlock -
        ! Error!: Wrong passcode.
        unlock Secret\r        -> state=-----U ------- out change Insert_passcode_view
        close
        menu Unlock_passcode_item -> view=Insert_passcode_view
        ! Success!: Correct passcode
        unlock Secret          -> state=SL---- ------- out change (Insert_passcode_view); Insert_passcode_field=-
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
        settle                 -> shown QuickView_popover=no
        menu Contacts_item
    )");
    EXPECT_FALSE(i().notificationBanner->isVisible() || i().Friends_hint->text().contains("mine"));
    EXPECT_EQ(i().QuickView_label->toPlainText(), "");
}

// ---- Preferences, instructions, windowed mode, links ----

TEST_F(States, OpenAtLaunchWritesTheEntryAndSaysWhatIsWrongWithIt) {
    const fs::path entry = LoginItem::file("TovanixDev.Quillery-Helper");
    const std::string where = entry.string();
    const auto expect = [&](bool isOn, const std::string &problem) {
        EXPECT_EQ(stored("kOpenAtLaunch"), isOn ? "Yes" : "No");
        EXPECT_EQ(i().Open_at_launch_check_box->isChecked(), isOn);
        EXPECT_EQ(i().Open_at_launch_label->text(),
                  isOn ? "Open at launch:enabled" : "Open at launch:disabled");
        const std::string said = i().Open_at_launch_problem->text().toStdString();
        EXPECT_TRUE(problem.empty() ? said.empty() : said.find(problem) != std::string::npos) << said;
    };
    const auto click = [&] { i().Open_at_launch_check_box->click(); };
    play("start -> Open_at_launch_label=Open at launch:disabled");
    click();
    expect(true, "");
    EXPECT_TRUE(fs::exists(entry));
    fs::remove(entry);
    start();
    EXPECT_FALSE(fs::exists(entry)) << "starting only shows the setting";
    expect(true, where + " is missing.");
    for (const auto &[text, words] : {std::pair{"Exec=\"/opt/quillery\"\nHidden=true\n", " is switched off."},
                                      std::pair{"Exec=\"/opt/older\"\n", " starts another program."}}) {
        std::ofstream(entry) << text;
        i().Preference_menu_item->trigger();
        expect(true, where + words);
    }
    click();
    expect(false, "");
    EXPECT_FALSE(fs::exists(entry));
    click();
    i().Preference_menu_item->trigger();
    expect(true, "");

    // What cannot be done is said, and the setting stands.
    fs::remove(entry);
    fs::create_directories(entry / "in the way");
    click();
    expect(false, "could not be removed");
    fs::remove_all(entry.parent_path());
    std::ofstream(entry.parent_path()) << "in the way";
    click();
    expect(true, "could not be made: Not a directory");
}

TEST_F(States, AutoLoginStoresWhoIsSignedInAndForgetsThem) {
    play(R"(
        account ann
        remote ann_Password.txt secret,comma
        start
        sign-in ann secret,comma
        click Auto_Login_Check_box -> setting kAutoLogin=Yes; setting kUsername=ann; setting kPassword=secret,comma
        menu Log_in_menu_item      -> setting kAutoLogin=Yes; Auto_login_label=Auto-Login:enabled
        start                      -> state=SLARP- SODAFFP in new (Checking_for_connection_view); password=secret,comma
        settle                     -> checked Auto_Login_Check_box=yes; Auto_login_label=Auto-Login:enabled
        click Auto_Login_Check_box -> setting kAutoLogin=No; setting kUsername=(absent); setting kPassword=(absent)
        settle                     -> Auto_login_label=Auto-Login:disabled
    )");
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
    play(R"(
        start
        menu Instructions -> view=Instructions_view; Instructions_page=1 of 3; enabled Inst_Back=no; enabled Inst_Next=yes
        click Inst_Next   -> Instructions_page=2 of 3; enabled Inst_Back=yes; enabled Inst_Next=yes
        click Inst_Next   -> Instructions_page=3 of 3; enabled Inst_Back=yes; enabled Inst_Next=no
        close
        menu Instructions -> Instructions_page=3 of 3
        click Inst_Back   -> Instructions_page=2 of 3; enabled Inst_Back=yes; enabled Inst_Next=yes
        click Inst_Back   -> Instructions_page=1 of 3; enabled Inst_Back=no; enabled Inst_Next=yes
    )");
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
    setAutoLogin("ann");
    putRemote("ann_Contacts.txt", "bob" + kEnd);
    play(R"(
        start
        menu Preference_menu_item          -> view=Preference_View
        menu Windowed_mode_item            -> view=hidden; shown Windowed_mode=yes; shown Windowed_text=yes
        settle                             -> shown Close_windowed=no
        click Preference_windowed_mode     -> view=Preference_View
        click Tutorials_windowed_mode      -> view=Instructions_view
        click Add_friend_windowed_mode     -> view=Add_contact_view
        click Remove_contact_windowed_mode -> view=Contacts_table
        menu Info_Action                   -> view=Info_View
    )");
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

}  // namespace
