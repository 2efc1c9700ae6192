#include "platform/MenuItem.h"
#include "tests/app/ControllerTest.h"

namespace {

const QString kError = QStringLiteral("Error!");
const QString kSuccess = QStringLiteral("Success!");
const QString kNewDiffers = QStringLiteral("\"New passcode\" field doesn't match \"re-type\" field");
const QString kDiffers = QStringLiteral("\"Passcode\" field doesn't match \"re-type\" field");

class PasscodeTest : public ControllerTest {
  protected:
    PasscodeTest() { setNotFirstUse(); }

    void lockWith(const QString &passcode) {
        set("kHasPasscode", QStringLiteral("YES"));
        set("kPasscode", passcode);
    }
    QString stored(const char *key) const {
        return defaults.objectForKey(QLatin1String(key)).value_or(QStringLiteral("(absent)"));
    }

    // Saving, the list, removing a friend, unlocking.
    std::string armed() {
        const auto &menu = delegate->menu;
        std::string letters;
        for (const MenuItem *item : {&menu.Saveing_menu_item, &menu.Clipboard_saves_menu_item,
                                     &menu.Remove_a_friend_item, &menu.Unlock_passcode_item})
            letters += item->hasAction() ? '+' : '-';
        return letters;
    }
    void create(const QString &passcode, const QString &again) {
        i().Create_passcode->setText(passcode);
        i().Retype_passcode->setText(again);
        i().Done_create_passcode->click();
    }
    void change(const QString &old, const QString &passcode, const QString &again) {
        i().Change_old_passcode->setText(old);
        i().Change_new_passcode->setText(passcode);
        i().Change_Retype_passcode->setText(again);
        i().Done_change_passcode->click();
    }
};

TEST_F(PasscodeTest, IsCreatedFromTwoEqualTextsAndLocksFromTheNextStartOn) {
    start();
    i().Preference_menu_item->trigger();
    EXPECT_EQ(i().Passcode_box->contentView(), i().new_passcode_view);
    for (const auto &[passcode, again] : std::initializer_list<std::pair<QString, QString>>{
             {u"one"_qs, u"two"_qs}, {u""_qs, u""_qs}, {u"one"_qs, u"One"_qs}, {u"one"_qs, u"one "_qs}}) {
        alerts.expect(kError, kDiffers);
        create(passcode, again);
    }
    EXPECT_EQ(stored("kHasPasscode"), u"(absent)");
    EXPECT_TRUE(i().Quillery_window->isVisible());

    alerts.expect(kSuccess, QStringLiteral("You have successfully sat up your passcode"), 0,
                  [this] { EXPECT_TRUE(i().Quillery_window->isVisible()); });
    create(QStringLiteral(" Öffne, dich; \"1\" "), QStringLiteral(" Öffne, dich; \"1\" "));
    EXPECT_EQ(stored("kPasscode"), u" Öffne, dich; \"1\" ");
    EXPECT_EQ(stored("kHasPasscode"), u"YES");
    EXPECT_FALSE(i().Quillery_window->isVisible());
    EXPECT_EQ(i().Passcode_box->contentView(), i().change_passcode_view);
    EXPECT_EQ(armed(), "++--");

    start();
    EXPECT_EQ(armed(), "---+");
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Insert_passcode_view);
    EXPECT_TRUE(i().Quillery_window->isVisible());
}

TEST_F(PasscodeTest, UnlocksWithTheVeryTextAndLeavesRemovingFriendsOff) {
    putLocal("old" + kEnd);
    lockWith(QStringLiteral("Secret"));
    start();
    for (const QString &wrong : {u"secret"_qs, u""_qs, u"Secret "_qs}) {
        i().Insert_passcode_field->setText(wrong);
        alerts.expect(kError, QStringLiteral("Wrong passcode."));
        i().Done_insert_passcode->click();
        EXPECT_EQ(i().Insert_passcode_field->text(), wrong);
        EXPECT_EQ(armed(), "---+");
    }
    i().Quillery_window->close();
    i().Unlock_passcode_item->trigger();
    EXPECT_TRUE(i().Quillery_window->isVisible());
    i().Insert_passcode_field->setText(QStringLiteral("Secret"));
    alerts.expect(kSuccess, QStringLiteral("Correct passcode"), 0, [this] {
        EXPECT_FALSE(i().Quillery_window->isVisible());
        EXPECT_EQ(armed(), "++--");
    });
    i().Done_insert_passcode->click();
    EXPECT_TRUE(i().Insert_passcode_field->text().isEmpty());
}

TEST_F(PasscodeTest, ChangesOnlyForTheOldOneAndTwoEqualNewOnes) {
    lockWith(QStringLiteral("old"));
    start();
    const QString wrongOld = QStringLiteral("Wrong \"Old passcode\"");
    for (const auto &[old, message] : std::initializer_list<std::pair<QString, QString>>{
             {u"Old"_qs, wrongOld}, {u""_qs, wrongOld}, {u"old"_qs, kNewDiffers}}) {
        alerts.expect(kError, message);
        change(old, QStringLiteral("new"), QStringLiteral("knew"));
    }
    alerts.expect(kError, kNewDiffers);
    change(QStringLiteral("old"), {}, {});
    set("kPasscode", QString());
    alerts.expect(kError, wrongOld);
    change({}, QStringLiteral("new"), QStringLiteral("new"));
    set("kPasscode", QStringLiteral("old"));
    EXPECT_EQ(stored("kPasscode"), u"old");

    alerts.expect(kSuccess, QStringLiteral("Passcode has successfully changed"));
    change(QStringLiteral("old"), QStringLiteral("new"), QStringLiteral("new"));
    EXPECT_EQ(stored("kPasscode"), u"new");
    EXPECT_EQ(stored("kHasPasscode"), u"YES");
    EXPECT_EQ(armed(), "---+");
    for (const QLineEdit *field :
         {i().Change_old_passcode, i().Change_new_passcode, i().Change_Retype_passcode})
        EXPECT_TRUE(field->text().isEmpty());
}

TEST_F(PasscodeTest, RemovalSwitchesTheLockOffAndKeepsThePasscode) {
    lockWith(QStringLiteral("old"));
    start();
    alerts.expect(kError, QStringLiteral("\"Old Passcode\" field doesn't match the previous passcode."));
    i().Remove_passcode_button->click();
    EXPECT_EQ(stored("kHasPasscode"), u"YES");

    i().Change_old_passcode->setText(QStringLiteral("old"));
    i().Remove_passcode_button->click();
    EXPECT_EQ(stored("kHasPasscode"), u"");
    EXPECT_EQ(stored("kPasscode"), u"old");
    EXPECT_EQ(i().Passcode_box->contentView(), i().new_passcode_view);
    EXPECT_EQ(armed(), "---+") << "the items keep what they have";
    start();
    EXPECT_EQ(armed(), "++--");
}

TEST_F(PasscodeTest, LockedTheListIsOutOfReachButTheHotKeySaves) {
    putLocal("old" + kEnd);
    lockWith(QStringLiteral("Secret"));
    start();
    i().Saveing_menu_item->trigger();
    i().Clipboard_saves_menu_item->trigger();
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Insert_passcode_view);
    SingleInstance::Answer answer;
    delegate->performRequest("list", [&](const SingleInstance::Answer &given) { answer = given; });
    EXPECT_EQ(answer.status, 1);
    EXPECT_NE(answer.words.find("locked"), std::string::npos);
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Insert_passcode_view);

    copy("new");
    delegate->Save_bar_item(VkKeyEvent{});
    settle();
    EXPECT_EQ(local(), "new" + kEnd + "old" + kEnd);
    delegate->performRequest("activate", [](const SingleInstance::Answer &) {});
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Insert_passcode_view);
}

TEST_F(PasscodeTest, LogOutLocksWhatIsShownAndSignInLiftsTheLock) {
    putRemote("ann_Username.txt", "ann");
    putRemote("ann_Password.txt", "secret");
    putRemote(".ann_Quillery.txt", "mine" + kEnd);
    lockWith(QStringLiteral("Secret"));
    start();
    i().Open_sign_in_window->trigger();
    i().Sign_in_username->setText(QStringLiteral("ann"));
    i().Sign_in_password->setText(QStringLiteral("secret"));
    i().Sign_in_done->click();
    EXPECT_EQ(armed(), "+++-");
    EXPECT_EQ(i().Passcode_box->contentView(), i().change_passcode_view);
    i().Clipboard_saves_menu_item->trigger();
    ASSERT_EQ(i().Quillery_Box->contentView(), i().List_View);

    pick(0);
    ASSERT_TRUE(i().QuickView_popover->isVisible());
    EXPECT_EQ(i().Clipboard_saved_string_combobox->stringValue(), "mine");
    i().Change_old_password->setText(QStringLiteral("typed and left"));

    Q_EMIT notifications.undeliverable(QStringLiteral("Success!"), QStringLiteral("saved: mine"));
    ASSERT_TRUE(i().notificationBanner->isVisible());

    i().Log_in_menu_item->trigger();  // it says "Log out" now
    EXPECT_EQ(armed(), "---+");
    EXPECT_FALSE(i().Quillery_window->isVisible());
    EXPECT_FALSE(i().notificationBanner->isVisible());
    EXPECT_FALSE(i().Quillery_window->isAncestorOf(i().List_View));
    EXPECT_FALSE(i().QuickView_popover->isVisible());
    EXPECT_EQ(i().QuickView_label->toPlainText(), QString());
    EXPECT_EQ(i().Clipboard_saved_string_combobox->stringValue(), "") << "a friend could be sent it";
    EXPECT_EQ(i().Change_old_password->text(), QString());
    i().Contacts_item->trigger();
    EXPECT_FALSE(i().Friends_hint->text().contains(u"mine"));
}

TEST_F(PasscodeTest, AMissingListFileDoesNotOpenTheLock) {
    lockWith(QStringLiteral("Secret"));
    std::filesystem::remove(localPath());
    start();
    EXPECT_EQ(local(), "");
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Insert_passcode_view);
}

TEST_F(PasscodeTest, AutoLoginBypassesTheLock) {
    setAutoLogin(QStringLiteral("ann"));
    lockWith(QStringLiteral("Secret"));
    start();
    EXPECT_EQ(armed(), "+++-");
}

}  // namespace
