#include <QUrl>

#include "app/AppDelegate.h"
#include "platform/Text.h"
#include "platform/UiIds.h"

namespace {

constexpr const char *kLoginItem = "TovanixDev.Quillery-Helper";

const QStringList kInstructionPages{QStringLiteral("Instructions-1.png"),
                                    QStringLiteral("Instructions-2.png"),
                                    QStringLiteral("Instructions-3.png")};

}  // namespace

// ---- Preferences and information ----

void AppDelegate::Preference_menu_item(QObject *) {
    Interface &i = interface;
    // A passcode that was typed and left is nobody's to find.
    if (!i.Preference_View->isVisible()) {
        for (QCheckBox *box : {i.Create_passcode_show, i.Change_passcode_show}) box->setChecked(false);
        emptyFields({i.Create_passcode, i.Retype_passcode, i.Change_old_passcode, i.Change_new_passcode,
                     i.Change_Retype_passcode});
    }
    showLaunch();
    interface.Quillery_Box->setContentView(interface.Preference_View);
    orderFront(*interface.Quillery_window);
}

void AppDelegate::Info_Action(QObject *) {
    orderFront(*interface.Quillery_window);
    interface.Quillery_Box->setContentView(interface.Info_View);
}

void AppDelegate::showPreferences() {
    showLaunch();
    const QSignalBlocker quiet(interface.Auto_Login_Check_box);  // to show a setting is not to change it
    const bool autoLogin = settingIs("kAutoLogin", "Yes");
    interface.Auto_Login_Check_box->setChecked(autoLogin);
    interface.Auto_login_label->setText(autoLogin ? tr("Auto-Login:enabled") : tr("Auto-Login:disabled"));
    showPasscodeSettings();
}

void AppDelegate::showLaunch() {
    const QSignalBlocker quiet(interface.Open_at_launch_check_box);
    const bool isOn = settingIs("kOpenAtLaunch", "Yes");
    interface.Open_at_launch_check_box->setChecked(isOn);
    interface.Open_at_launch_label->setText(isOn ? tr("Open at launch:enabled")
                                                 : tr("Open at launch:disabled"));
    const std::string problem = isOn ? shell_.loginItem.problem(kLoginItem) : "";
    showLaunchProblem(
        problem.empty() ? QString()
                        : tr("%1 To have it written anew, switch this off and on.").arg(toQString(problem)));
}

void AppDelegate::Open_at_launch_action(QObject *) {
    const bool isOn = interface.Open_at_launch_check_box->isChecked();
    const std::string problem = shell_.loginItem.setEnabled(kLoginItem, isOn);
    storeSetting("kOpenAtLaunch", isOn ? QStringLiteral("Yes") : QStringLiteral("No"));
    interface.Open_at_launch_label->setText(isOn ? tr("Open at launch:enabled")
                                                 : tr("Open at launch:disabled"));
    showLaunchProblem(QString::fromStdString(problem));
}

// The setting stands all the same, but nobody is to rely on what will not happen.
void AppDelegate::showLaunchProblem(const QString &problem) {
    interface.Open_at_launch_problem->setText(problem);
    interface.Open_at_launch_problem->setVisible(!problem.isEmpty());
    describe(*interface.Open_at_launch_check_box, problem);
}

void AppDelegate::Auto_Login_action(QObject *) {
    const bool isOn = interface.Auto_Login_Check_box->isChecked();
    isOn ? setAuto() : removeAuto();
    interface.Auto_login_label->setText(isOn ? tr("Auto-Login:enabled") : tr("Auto-Login:disabled"));
}

void AppDelegate::setAuto() {
    const auto store = [this](const char *key, const std::optional<std::string> &value) {
        shell_.standardUserDefaults.setObject(value ? std::optional(toQString(*value)) : std::nullopt,
                                              QLatin1String(key));
    };
    store("kAutoLogin", "Yes");
    store("kUsername", Username);
    store("kPassword", Password);
    shell_.standardUserDefaults.synchronize();
}

void AppDelegate::removeAuto() {
    shell_.standardUserDefaults.setObject(QStringLiteral("No"), QStringLiteral("kAutoLogin"));
    for (const char *key : {"kUsername", "kPassword"})
        shell_.standardUserDefaults.setObject(std::nullopt, QLatin1String(key));
    shell_.standardUserDefaults.synchronize();
}

// ---- Intro and instructions ----

void AppDelegate::Start_intro_button(QObject *) {
    interface.Intro_window->close();
    interface.Intro_image->setImage({});
    storeSetting("kIsNotFirstUse", QStringLiteral("YES"));
    isAfterIntro_ = true;
    applicationDidFinishLaunching();
}

void AppDelegate::Mini_Intro(QObject *) {
    interface.Intro_window->showMinimized();
}

void AppDelegate::Tovanix_intro(QWidget *sender) {
    interface.Intro_popover->showRelativeTo(sender, Popover::Edge::kMaxX);
    // Its buttons are for the keyboard, too.
    interface.Intro_popover->activateWindow();
    for (QPushButton *button : interface.Intro_popover->findChildren<QPushButton *>()) {
        if (!button->isEnabled()) continue;
        button->setFocus(Qt::OtherFocusReason);
        break;
    }
}

void AppDelegate::Instructions(QObject *) {
    interface.Quillery_Box->setContentView(interface.Instructions_view);
    orderFront(*interface.Quillery_window);
}

void AppDelegate::Inst_Next(QObject *) {
    if (instructionPage_ == 0) {
        showInstructionPage(1);
        interface.Inst_Back->setEnabled(true);
    } else {
        showInstructionPage(2);
        interface.Inst_Back->setFocus(Qt::OtherFocusReason);  // the other one is about to lose it
        interface.Inst_Next->setEnabled(false);
    }
}

void AppDelegate::Inst_Back(QObject *) {
    if (instructionPage_ == 2) {
        showInstructionPage(1);
        interface.Inst_Next->setEnabled(true);
    } else {
        showInstructionPage(0);
        interface.Inst_Next->setFocus(Qt::OtherFocusReason);
        interface.Inst_Back->setEnabled(false);
    }
}

// `page` counts from 0.
void AppDelegate::showInstructionPage(int page) {
    const QString accountIs = shell_.configuration.storageHost
                                  ? tr("Sign in, and the list follows you to every computer.")
                                  : tr("Sign in, and the list is in your account, on this computer.");
    const QStringList texts{
        tr("Copy a text in any program, then press Super+Shift+C. Quillery puts it on top of your list and "
           "says so."),
        tr("Choose “Saved List” in the status menu and pick a text, by mouse or with the arrow keys and "
           "Enter. It is on the clipboard again, ready to be pasted. A passcode, set in the preferences, "
           "locks "
           "the list when Quillery starts and after you log out, but not while auto-login is on; a user who "
           "signs in can read it then."),
        accountIs + u' ' +
            tr("Switch “Share” on and pick a text to send it to a friend: it is the first in the friend's "
               "list then.")};
    const QStringList pictures{
        tr("A line is selected in an editor and copied. After Super, Shift and C are pressed, a notification "
           "says "
           "that the text was saved."),
        tr("The menu of Quillery's icon in the status bar is open and “Saved List” is chosen. The first text "
           "of "
           "the list is picked, and a small window shows that it is on the clipboard now."),
        tr("The sign-in form asks for user name and password. Below it “Share” is turned on, a text is "
           "picked, "
           "and then a friend to send it to.")};
    instructionPage_ = page;
    interface.Instructions_image_view->setImage(kInstructionPages[page]);
    interface.Instructions_image_view->setAccessibleName(pictures[page]);
    interface.Instructions_text->setText(texts[page]);
    interface.Instructions_page->setText(tr("%1 of %2").arg(page + 1).arg(kInstructionPages.size()));
}

// ---- Windowed mode ----

void AppDelegate::Windowed_mode_item(QObject *) {
    interface.Quillery_window->close();
    showWindowedMode(ScreenPlace::kMiddle);
}

void AppDelegate::Close_windowed(QObject *) {
    interface.Windowed_mode->close();
}

void AppDelegate::Mini_windowed(QObject *) {
    interface.Windowed_mode->showMinimized();
}

void AppDelegate::Preference_WinMode(QObject *sender) {
    Preference_menu_item(sender);
}
void AppDelegate::Tutorials_WinMode(QObject *sender) {
    Instructions(sender);
}
void AppDelegate::Add_friend_WinMode(QObject *sender) {
    Add_contact_menu_item(sender);
}
void AppDelegate::Remove_contact_WinMode(QObject *sender) {
    Remove_contact_item(sender);
}
void AppDelegate::Contact_us_WinMode(QWidget *sender) {
    Tovanix_intro(sender);
}

void AppDelegate::showWindowedMode(ScreenPlace place) {
    Interface &i = interface;
    const bool isAllThereIs = !Status_Item->isShown();
    i.Windowed_text->setVisible(isAllThereIs);
    i.Close_windowed->setVisible(!isAllThereIs);  // where it has gone, nothing brings it back
    setFloatingWindowLevel(*i.Windowed_mode);
    orderFront(*i.Windowed_mode, place);
}

// ---- Links ----

void AppDelegate::How_to_use(QObject *) {
    openLink("tutorials");
}
void AppDelegate::Facebook(QObject *) {
    openLink("facebook");
}
void AppDelegate::Twitter(QObject *) {
    openLink("twitter");
}
void AppDelegate::Pinterest(QObject *) {
    openLink("pinterest");
}
void AppDelegate::GooglePluse(QObject *) {
    openLink("google_plus");
}
void AppDelegate::Web(QObject *) {
    openLink("web");
}

void AppDelegate::EMail(QObject *) {
    sendEmailTo(shell_.configuration.links.value(QStringLiteral("email")), {}, {});
    interface.Intro_popover->hide();
}

void AppDelegate::openLink(const char *name) {
    shell_.sharedWorkspace.openURL(
        QUrl::fromUserInput(shell_.configuration.links.value(QLatin1String(name))));
    interface.Intro_popover->hide();
}

void AppDelegate::sendEmailTo(const QString &address, const QString &withSubject, const QString &withBody) {
    const auto escaped = [](const QString &text) {
        return QString::fromLatin1(QUrl::toPercentEncoding(text));
    };
    shell_.sharedWorkspace.openURL(QUrl(QStringLiteral("mailto:?to=") + escaped(address) +
                                        QStringLiteral("&subject=") + escaped(withSubject) +
                                        QStringLiteral("&body=") + escaped(withBody)));
}

// An address that is not configured opens nothing, so what would open it is not offered.
void AppDelegate::giveLinkItemsTheirAddresses() {
    struct Link {
        const char *name;
        QAction *item;
        QPushButton *button;
        Operation operation;
    };
    Interface &i = interface;
    const Link links[] = {
        {"tutorials", i.How_to_use, i.intro_open_tutorials, &AppDelegate::How_to_use},
        {"facebook", i.Facebook, i.Facebook_intro, &AppDelegate::Facebook},
        {"twitter", i.Twitter, i.Twitter_intro, &AppDelegate::Twitter},
        {"pinterest", i.Pinterest, i.Pint_intro, &AppDelegate::Pinterest},
        {"google_plus", i.GooglePluse, i.GooglePlus_intro, &AppDelegate::GooglePluse},
        {"web", i.Web, i.Web_intro, &AppDelegate::Web},
        {"email", i.EMail, i.Mail_intro, &AppDelegate::EMail},
    };
    i.aboutUs->setEnabled(!shell_.configuration.links.isEmpty());
    i.Tovanix_intro->setEnabled(!shell_.configuration.links.isEmpty());
    i.Contact_us_windowed_mode->setEnabled(!shell_.configuration.links.isEmpty());
    for (const Link &link : links) {
        const bool isConfigured = shell_.configuration.links.contains(QLatin1String(link.name));
        link.item->setEnabled(isConfigured);
        link.button->setEnabled(isConfigured);
        enterFromMenu(link.item, link.operation);
        enterFromButton(link.button, link.operation);
    }
}
