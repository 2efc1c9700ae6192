#include <QFile>
#include <QFileInfo>
#include <fstream>
#include <set>

#include "platform/ColorScheme.h"
#include "platform/LoginItem.h"
#include "tests/app/ControllerTest.h"

namespace fs = std::filesystem;

namespace {

class PreferencesTest : public ControllerTest {
  protected:
    PreferencesTest() { setNotFirstUse(); }
    ~PreferencesTest() override { fs::remove_all(entry().parent_path()); }
    QString stored(const char *key) const {
        return defaults.objectForKey(QLatin1String(key)).value_or(QStringLiteral("(absent)"));
    }
    static fs::path entry() { return LoginItem::file("TovanixDev.Quillery-Helper"); }
};

TEST_F(PreferencesTest, OpenAtLaunchWritesAndRemovesTheEntry) {
    start();
    i().Preference_menu_item->trigger();
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Preference_View);
    EXPECT_TRUE(i().Quillery_window->isVisible());
    EXPECT_EQ(i().Open_at_launch_label->text(), u"Open at launch:disabled");

    i().Open_at_launch_check_box->click();
    EXPECT_EQ(stored("kOpenAtLaunch"), u"Yes");
    EXPECT_EQ(i().Open_at_launch_label->text(), u"Open at launch:enabled");
    EXPECT_TRUE(fs::exists(entry()));
    start();
    EXPECT_TRUE(i().Open_at_launch_check_box->isChecked());
    EXPECT_EQ(i().Open_at_launch_label->text(), u"Open at launch:enabled");

    i().Open_at_launch_check_box->click();
    EXPECT_EQ(stored("kOpenAtLaunch"), u"No");
    EXPECT_FALSE(fs::exists(entry()));
    i().Open_at_launch_check_box->click();
    fs::remove(entry());
    start();
    EXPECT_FALSE(fs::exists(entry())) << "starting only shows the setting";
    const auto problem = [this] { return i().Open_at_launch_problem->text(); };
    EXPECT_TRUE(problem().contains(u"is missing"));
    for (const auto &[text, words] : {std::pair{"Exec=\"/opt/quillery\"\nHidden=true\n", u"is switched off"},
                                      std::pair{"Exec=\"/opt/older\"\n", u"another program"}}) {
        std::ofstream(entry()) << text;
        i().Preference_menu_item->trigger();
        EXPECT_TRUE(problem().contains(QStringView(words))) << problem().toStdString();
    }
    for (int click = 0; click < 2; ++click) i().Open_at_launch_check_box->click();
    EXPECT_TRUE(fs::exists(entry()));
    EXPECT_EQ(problem(), u"");
    i().Preference_menu_item->trigger();
    EXPECT_EQ(problem(), u"");
}

TEST_F(PreferencesTest, AnEntryThatCannotBeWrittenIsSaidAndTheSettingStands) {
    fs::create_directories(entry().parent_path().parent_path());
    std::ofstream(entry().parent_path()) << "in the way";
    start();
    i().Open_at_launch_check_box->click();
    EXPECT_EQ(stored("kOpenAtLaunch"), u"Yes");
    EXPECT_EQ(i().Open_at_launch_label->text(), u"Open at launch:enabled");
    EXPECT_TRUE(i().Open_at_launch_problem->text().contains(u"could not be made: Not a directory"));
    fs::remove(entry().parent_path());
    fs::create_directories(entry() / "in the way");
    i().Open_at_launch_check_box->click();
    EXPECT_TRUE(i().Open_at_launch_problem->text().contains(u"could not be removed"));
}

TEST_F(PreferencesTest, TheEntryQuotesAnyPath) {
    const std::string entry = LoginItem::entryFor(R"(/opt/a b/100%/$x\y"`)");
    EXPECT_NE(entry.find(R"(Exec="/opt/a b/100%%/\\$x\\\\y\\"\\`")"), std::string::npos) << entry;
}

TEST_F(PreferencesTest, AutoLoginStoresWhoIsSignedInAndForgetsThem) {
    start();
    EXPECT_FALSE(i().Auto_Login_Check_box->isEnabled());
    EXPECT_FALSE(i().Change_password_button->isEnabled());
    putRemote("ann_Username.txt", "ann");
    putRemote("ann_Password.txt", "secret, with a comma");
    i().Sign_in_username->setText(QStringLiteral("ann"));
    i().Sign_in_password->setText(QStringLiteral("secret, with a comma"));
    i().Sign_in_done->click();
    EXPECT_TRUE(i().Auto_Login_Check_box->isEnabled());
    EXPECT_TRUE(i().Change_password_button->isEnabled());

    i().Auto_Login_Check_box->click();
    EXPECT_EQ(i().Auto_login_label->text(), u"Auto-Login:enabled");
    EXPECT_EQ(stored("kAutoLogin"), u"Yes");
    EXPECT_EQ(stored("kUsername"), u"ann");
    EXPECT_EQ(stored("kPassword"), u"secret, with a comma");
    EXPECT_EQ(QFile::permissions(defaults.fileName()) & (QFile::ReadGroup | QFile::ReadOther),
              QFile::Permissions());
    i().Log_in_menu_item->trigger();
    EXPECT_EQ(stored("kAutoLogin"), u"Yes") << "logging out leaves it";
    start();
    EXPECT_TRUE(delegate->isSigned_in);

    i().Auto_Login_Check_box->click();
    EXPECT_EQ(i().Auto_login_label->text(), u"Auto-Login:disabled");
    EXPECT_EQ(stored("kAutoLogin"), u"No");
    EXPECT_EQ(stored("kUsername"), u"(absent)");
    EXPECT_EQ(stored("kPassword"), u"(absent)");
}

TEST_F(PreferencesTest, TheInstructionsGoForwardAndBack) {
    start();
    i().Instructions->trigger();
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Instructions_view);
    const auto state = [this] {
        return i().Instructions_page->text().left(1) + (i().Inst_Back->isEnabled() ? u'+' : u'-') +
               (i().Inst_Next->isEnabled() ? u'+' : u'-');
    };
    EXPECT_EQ(state(), u"1-+");
    std::set<QString> texts;
    std::set<std::string> pictures;
    const auto look = [&] {
        texts.insert(i().Instructions_text->text());
        texts.insert(i().Instructions_image_view->accessibleName());
        const QImage picture = i().Instructions_image_view->pixmap().toImage();
        pictures.insert(std::string(reinterpret_cast<const char *>(picture.constBits()),
                                    static_cast<std::size_t>(picture.sizeInBytes())));
    };
    look();
    i().Inst_Next->click();
    EXPECT_EQ(state(), u"2++");
    look();
    i().Inst_Next->click();
    EXPECT_EQ(state(), u"3+-");
    look();
    EXPECT_EQ(texts.size(), 6U);
    EXPECT_EQ(pictures.size(), 3U);

    // Pictures follow the colours, and are as sharp as the screen.
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
    for (const char *name : {"Intro", "Instructions-1", "Instructions-2", "Instructions-3"}) {
        for (const char *folder : {"", "dark/"}) {
            const QString file = QStringLiteral(":/images/") + QLatin1String(folder) + QLatin1String(name);
            const QImage picture(file + QStringLiteral(".png"));
            EXPECT_FALSE(picture.isNull()) << name;
            EXPECT_EQ(QImage(file + QStringLiteral("@2x.png")).size(), picture.size() * 2) << name;
        }
    }
    i().Quillery_window->close();
    i().Instructions->trigger();
    EXPECT_EQ(state(), u"3+-") << "it opens where it was left";
    i().Inst_Back->click();
    EXPECT_EQ(state(), u"2++");
    i().Inst_Back->click();
    EXPECT_EQ(state(), u"1-+");
}

TEST_F(PreferencesTest, WindowedModePassesCommandsOn) {
    start();
    i().Quillery_window->show();
    i().Windowed_mode_item->trigger();
    EXPECT_FALSE(i().Quillery_window->isVisible());
    EXPECT_TRUE(i().Windowed_mode->isVisible());
    EXPECT_TRUE(i().Windowed_text->isVisible());
    EXPECT_FALSE(i().Close_windowed->isVisible()) << "without a status bar nothing would bring it back";
    EXPECT_FALSE(i().Add_friend_windowed_mode->isEnabled());
    i().Preference_windowed_mode->click();
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Preference_View);
    i().Tutorials_windowed_mode->click();
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Instructions_view);
    i().Info_Action->trigger();
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Info_View);
    EXPECT_FALSE(i().Contact_us_windowed_mode->isEnabled()) << "no address is configured";
    delegate->Close_windowed(nullptr);
    EXPECT_FALSE(i().Windowed_mode->isVisible());
}

TEST_F(PreferencesTest, WindowedModeHasTheFriendsOfWhoIsSignedIn) {
    putRemote("ann_Contacts.txt", "bob" + kEnd);
    setAutoLogin(QStringLiteral("ann"));
    start();
    i().Windowed_mode_item->trigger();
    i().Add_friend_windowed_mode->click();
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Add_contact_view);
    i().Remove_contact_windowed_mode->click();
    EXPECT_EQ(i().Quillery_Box->contentView(), i().Contacts_table);
}

TEST_F(PreferencesTest, LinksOpenWhatIsConfiguredAndCloseThePopover) {
    configuration.links = {{u"web"_qs, u"https://example.org/?a=1"_qs},
                           {u"email"_qs, u"ann+news@example.org"_qs},
                           {u"tutorials"_qs, u"https://example.org/help"_qs}};
    start();
    i().Windowed_mode_item->trigger();
    for (QPushButton *button : {i().Web_intro, i().Mail_intro, i().intro_open_tutorials}) {
        i().Contact_us_windowed_mode->click();
        EXPECT_TRUE(i().Intro_popover->isVisible());
        const QPushButton &opener = *i().Contact_us_windowed_mode;
        EXPECT_GT(i().Intro_popover->x(), opener.mapToGlobal(opener.rect().topRight()).x());
        button->click();
        EXPECT_FALSE(i().Intro_popover->isVisible());
    }
    i().Web->trigger();
    EXPECT_FALSE(i().Facebook->isEnabled());
    EXPECT_FALSE(i().Facebook_intro->isEnabled());
    EXPECT_EQ(workspace.opened.join(u' ').toStdString(),
              "https://example.org/?a=1 mailto:?to=ann%2Bnews%40example.org&subject=&body= "
              "https://example.org/help https://example.org/?a=1");
}

}  // namespace
