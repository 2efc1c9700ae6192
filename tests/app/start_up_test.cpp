#include <QImage>
#include <QPushButton>
#include <QTest>

#include "tests/app/ControllerTest.h"
#include "tests/support/ScriptedFtpServer.h"

namespace {
const QString kError = QStringLiteral("Error!");
const QString kNoConnection = QStringLiteral("Unable to connect the internet,duo to network/server error.");
}  // namespace

class StartUpTest : public ControllerTest {
  protected:
    // A host that refuses every connection at once.
    void setNoServer() {
        configuration.storageHost = "127.0.0.1";
        configuration.storagePort = 1;
    }
    bool isEnabled(const char *action) const {
        for (const QAction *item : delegate->interface.Quillery_Menu.actions()) {
            if (item->objectName() == QLatin1String(action)) return item->isEnabled();
        }
        ADD_FAILURE() << action;
        return false;
    }
    QWidget *shownView() const { return delegate->interface.Quillery_Box->contentView(); }
};

TEST_F(StartUpTest, FirstUseShowsTheIntroAloneAndEndsInAFullStart) {
    AppDelegate &app = start();
    EXPECT_TRUE(app.interface.Intro_window->isVisible());
    EXPECT_TRUE(app.interface.Intro_window->windowFlags() & Qt::WindowStaysOnTopHint);
    EXPECT_FALSE(app.interface.Quillery_window->isVisible());
    EXPECT_FALSE(app.Status_Item);
    EXPECT_FALSE(app.MyFTPManager);
    EXPECT_FALSE(VkHotKeyCenter::sharedHotKeyCenter().hasRegisteredHotKeyWithKeyCode(8, 0x120000));
    EXPECT_FALSE(std::filesystem::exists(localPath()));

    QTest::mouseClick(app.interface.Start_intro_button, Qt::LeftButton);
    EXPECT_FALSE(app.interface.Intro_window->isVisible());
    EXPECT_EQ(defaults.objectForKey(QStringLiteral("kIsNotFirstUse")), QStringLiteral("YES"));
    EXPECT_TRUE(app.Status_Item);
    EXPECT_TRUE(VkHotKeyCenter::sharedHotKeyCenter().hasRegisteredHotKeyWithKeyCode(8, 0x120000));
    EXPECT_EQ(remote(".Check_internet"), "Check");
    EXPECT_EQ(local(), "");
    EXPECT_EQ(items(), Items{""});
    EXPECT_EQ(shownView(), app.interface.List_View);
    EXPECT_FALSE(app.interface.Quillery_window->isVisible());
}

TEST_F(StartUpTest, SignedOutFillsTheListFromThisMachine) {
    setNotFirstUse();
    set("kOpenAtLaunch", QStringLiteral("Yes"));
    putLocal("b" + kEnd + "a");
    AppDelegate &app = start();
    EXPECT_EQ(items(), (Items{"b", "a"}));
    EXPECT_FALSE(app.isSigned_in);
    EXPECT_FALSE(app.Username);
    EXPECT_EQ(app.interface.State_label->text(), QStringLiteral("Offline"));
    EXPECT_FALSE(app.interface.Share_switch->isEnabled());
    EXPECT_FALSE(app.interface.Read_local_button->isEnabled());
    EXPECT_FALSE(app.interface.Auto_Login_Check_box->isEnabled());
    EXPECT_TRUE(isEnabled("Saveing_menu_item"));
    EXPECT_TRUE(isEnabled("_Clipboard_saves_menu_item"));
    EXPECT_FALSE(isEnabled("Remove_a_friend_item"));
    EXPECT_FALSE(isEnabled("Add_contact_menu_item"));
    EXPECT_FALSE(isEnabled("Unlock_passcode_item"));
    EXPECT_EQ(app.interface.Log_in_menu_item->menu(), &app.interface.Log_in_menu);
    EXPECT_EQ(app.interface.Open_at_launch_label->text(), QStringLiteral("Open at launch:enabled"));
    EXPECT_TRUE(app.interface.Open_at_launch_check_box->isChecked());
    EXPECT_EQ(app.interface.Auto_login_label->text(), QStringLiteral("Auto-Login:disabled"));
    EXPECT_EQ(app.interface.Passcode_box->contentView(), app.interface.new_passcode_view);
    EXPECT_EQ(app.Quillery_Server.destination, "127.0.0.1/htdocs");
    EXPECT_EQ(app.Quillery_Server.username, "qz7m_50281946");
}

TEST_F(StartUpTest, OfflineLocksWithAPasscodeAndSaysSo) {
    setNotFirstUse();
    setNoServer();
    set("kHasPasscode", QStringLiteral("YES"));
    set("kPasscode", QStringLiteral("4711"));
    set("kAutoLogin", QStringLiteral("Yes"));
    set("kUsername", QStringLiteral("alice"));
    putLocal("a" + kEnd);
    bool wasLocked = false;
    alerts.expect(kError, kNoConnection, 0, [&] {
        wasLocked = delegate->interface.Quillery_window->isVisible() &&
                    shownView() == delegate->interface.Insert_passcode_view;
    });
    AppDelegate &app = start();
    EXPECT_TRUE(wasLocked);
    EXPECT_FALSE(app.isSigned_in);
    EXPECT_FALSE(app.Username);
    EXPECT_EQ(items(), (Items{"a", ""})) << "the list on this machine is loaded all the same";
    EXPECT_FALSE(isEnabled("Saveing_menu_item"));
    EXPECT_FALSE(isEnabled("_Clipboard_saves_menu_item"));
    EXPECT_TRUE(isEnabled("Unlock_passcode_item"));
    EXPECT_TRUE(app.interface.Share_switch->isEnabled()) << "left as it was";
    EXPECT_EQ(app.interface.Passcode_box->contentView(), app.interface.change_passcode_view);

    alerts.expect(kError, QStringLiteral("Wrong passcode."));
    app.interface.Insert_passcode_field->setText(QStringLiteral("4712"));
    QTest::keyClick(app.interface.Insert_passcode_field, Qt::Key_Return);
    EXPECT_EQ(app.interface.Insert_passcode_field->text(), QStringLiteral("4712"));
    alerts.expect(QStringLiteral("Success!"), QStringLiteral("Correct passcode"));
    app.interface.Insert_passcode_field->setText(QStringLiteral("4711"));
    app.interface.Done_insert_passcode->click();
    EXPECT_TRUE(isEnabled("Saveing_menu_item"));
    EXPECT_TRUE(isEnabled("_Clipboard_saves_menu_item"));
    EXPECT_FALSE(isEnabled("Unlock_passcode_item"));
    EXPECT_FALSE(isEnabled("Remove_a_friend_item"));
    EXPECT_FALSE(app.interface.Quillery_window->isVisible());
}

TEST_F(StartUpTest, OnlyTheExactValuesCountAsSet) {
    setNotFirstUse();
    set("kHasPasscode", QStringLiteral("Yes"));
    set("kAutoLogin", QStringLiteral("YES"));
    AppDelegate &app = start();
    EXPECT_FALSE(app.isSigned_in);
    EXPECT_TRUE(isEnabled("Saveing_menu_item"));
}

TEST_F(StartUpTest, AutoLoginTakesTheRemoteListAndNoLock) {
    setAutoLogin(QStringLiteral("alice"));
    set("kHasPasscode", QStringLiteral("YES"));
    putLocal("mine" + kEnd);
    putRemote(".alice_Quillery.txt", "far" + kEnd);
    AppDelegate &app = start();
    EXPECT_TRUE(app.isSigned_in);
    EXPECT_EQ(app.Username, "alice");
    EXPECT_EQ(app.Password, "secret");
    EXPECT_EQ(items(), (Items{"far", ""}));
    EXPECT_EQ(app.interface.State_label->text(), QStringLiteral("Online"));
    EXPECT_EQ(app.interface.Log_in_menu_item->text(), QStringLiteral("Log out"));
    EXPECT_FALSE(app.interface.Log_in_menu_item->menu());
    EXPECT_TRUE(isEnabled("Log_in_menu_item"));
    EXPECT_TRUE(isEnabled("Saveing_menu_item"));
    EXPECT_TRUE(app.interface.Share_switch->isEnabled());
    EXPECT_TRUE(app.interface.Read_local_button->isEnabled());
    EXPECT_TRUE(app.interface.Change_done_button->isEnabled());
    EXPECT_FALSE(app.interface.Quillery_window->isVisible());

    app.interface.Log_in_menu_item->trigger();
    EXPECT_FALSE(app.isSigned_in);
    EXPECT_EQ(app.interface.Log_in_menu_item->text(), QStringLiteral("Log in"));
    EXPECT_EQ(app.interface.Log_in_menu_item->menu(), &app.interface.Log_in_menu);
    EXPECT_FALSE(isEnabled("Saveing_menu_item")) << "a passcode is set: logging out locks";
    EXPECT_TRUE(isEnabled("Unlock_passcode_item"));
}

TEST_F(StartUpTest, AutoLoginWithoutALocalFileMakesOneAndLeavesTheListEmpty) {
    setAutoLogin(QStringLiteral("alice"));
    putRemote(".alice_Quillery.txt", "far" + kEnd);
    start();
    EXPECT_EQ(local(), "");
    EXPECT_TRUE(items().empty());
    enter([&] { delegate->Clipboard_saves(nullptr); });
    EXPECT_EQ(items(), (Items{"far", ""}));
}

TEST_F(StartUpTest, AHostThatDoesNotResolveIsOffline) {
    setNotFirstUse();
    configuration.storageHost = "no-such-host.invalid";
    alerts.expect(kError, kNoConnection);
    start();
    EXPECT_EQ(items(), Items{""});
}

TEST_F(StartUpTest, TheCheckingPanelLivesWhileASlowServerAnswers) {
    setNotFirstUse();
    ScriptedFtpServer server(Faults{{.at = "STOR", .delay = std::chrono::seconds(5)}});
    configuration.storageHost = "127.0.0.1";
    configuration.storagePort = server.port();
    std::vector<QImage> looks;  // ten a second
    bool couldCancel = false;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        Interface &i = delegate->interface;
        if (!i.Quillery_window->isVisible()) return;
        looks.push_back(i.Checking_for_connection_spinner->grab().toImage());
        couldCancel |= i.Checking_cancel->isVisible();
    });
    timer.start(100);
    AppDelegate &app = start();  // no alert: the server was only slow
    timer.stop();
    EXPECT_EQ(server.file("htdocs/.Check_internet"), "Check");
    EXPECT_TRUE(couldCancel);
    ASSERT_GE(looks.size(), 40U);
    std::size_t changes = 0;
    for (std::size_t i = 1; i < looks.size(); ++i) changes += looks[i] != looks[i - 1];
    EXPECT_GT(changes, looks.size() * 3 / 4);
    EXPECT_FALSE(app.interface.Checking_for_connection_spinner->isAnimating());
    EXPECT_FALSE(app.interface.Quillery_window->isVisible());
}

TEST_F(StartUpTest, AMuteServerCanBeGivenUp) {
    setNotFirstUse();
    ScriptedFtpServer server(Faults{{.at = "greeting", .stalls = true}});
    configuration.storageHost = "127.0.0.1";
    configuration.storagePort = server.port();
    alerts.expect(QStringLiteral("Alert!"), QStringLiteral("Are you sure you want to quit?"), 1);
    alerts.expect(kError, kNoConnection);
    QTimer::singleShot(100, [&] {
        delegate->interface.Quit->trigger();
        EXPECT_EQ(alerts.outstanding(), 1U) << "at once";
        QTest::keyClick(delegate->interface.Quillery_window.get(), Qt::Key_Escape);
    });
    const auto began = std::chrono::steady_clock::now();
    AppDelegate &app = start();
    EXPECT_LT(std::chrono::steady_clock::now() - began, Waiting::kPatience) << "at once, too";
    EXPECT_FALSE(app.UploadDidFinish);
    EXPECT_EQ(app.interface.State_label->text(), QStringLiteral("Offline"));
}

TEST_F(StartUpTest, LinksWithoutAnAddressAreNotOffered) {
    configuration.links = {{QStringLiteral("web"), QStringLiteral("https://quillery.example/")},
                           {QStringLiteral("email"), QStringLiteral("hello us@quillery.example")}};
    AppDelegate &app = start();
    EXPECT_TRUE(app.interface.aboutUs->isEnabled());
    EXPECT_FALSE(app.interface.Facebook->isEnabled());
    EXPECT_FALSE(app.interface.Facebook_intro->isEnabled());
    QTest::mouseClick(app.interface.Tovanix_intro, Qt::LeftButton);
    ASSERT_TRUE(app.interface.Intro_popover->isVisible());
    app.interface.Web_intro->click();
    EXPECT_FALSE(app.interface.Intro_popover->isVisible());
    app.interface.EMail->trigger();
    EXPECT_EQ(workspace.opened,
              (QStringList{QStringLiteral("https://quillery.example/"),
                           QStringLiteral("mailto:?to=hello%20us%40quillery.example&subject=&body=")}));
    app.interface.Mini_Intro->click();
    EXPECT_TRUE(app.interface.Intro_window->isMinimized());
}
