#include <QUrl>

#include "app/AppDelegate.h"

void AppDelegate::Start_intro_button(QObject *) {
    interface.Intro_window->close();
    interface.Intro_image->clear();
    shell_.standardUserDefaults.setObject(QStringLiteral("YES"), QStringLiteral("kIsNotFirstUse"));
    shell_.standardUserDefaults.synchronize();
    applicationDidFinishLaunching();
}

void AppDelegate::Mini_Intro(QObject *) {
    interface.Intro_window->showMinimized();
}

void AppDelegate::Tovanix_intro(QWidget *sender) {
    interface.Intro_popover->showRelativeTo(sender, Popover::Edge::kMaxX);
}

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
    for (const Link &link : links) {
        const bool isConfigured = shell_.configuration.links.contains(QLatin1String(link.name));
        link.item->setEnabled(isConfigured);
        link.button->setEnabled(isConfigured);
        enterFromMenu(link.item, link.operation);
        enterFromButton(link.button, link.operation);
    }
}
