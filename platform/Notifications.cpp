#include "platform/Notifications.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QImage>
#include <QVariantMap>

#include "platform/Text.h"

namespace {

const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");

// A notification is a glance: services lay out every character they get, however many.
constexpr qsizetype kMostCharacters = 400;

QDBusMessage call(const QString &method) {
    return QDBusMessage::createMethodCall(kService, kPath, kService, method);
}

// The text with its end kept (a closing quotation mark, say) and without what a message cannot carry.
QString presentable(const QString &text) {
    QString shown = text;
    if (shown.size() > kMostCharacters) {
        shown = shortened(text, kMostCharacters) + text.right(2);
    }
    for (QChar &c : shown) {
        if (c.unicode() < 0x20 && c != u'\n' && c != u'\t')
            c = QChar(c.unicode() == 0 ? 0x2400 : 0x2400 + c.unicode());
    }
    return shown;
}

// The program's icon as the service wants it, for desktops on which no icon of its name is installed.
QVariant imageData() {
    const QImage image =
        QImage(QStringLiteral(":/status/quillery-48.png")).convertToFormat(QImage::Format_RGBA8888);
    constexpr int kBitsPerSample = 8;
    constexpr int kChannels = 4;
    QDBusArgument argument;
    argument.beginStructure();
    argument << image.width() << image.height() << static_cast<int>(image.bytesPerLine()) << true
             << kBitsPerSample << kChannels
             << QByteArray(reinterpret_cast<const char *>(image.constBits()), image.sizeInBytes());
    argument.endStructure();
    return QVariant::fromValue(argument);
}

}  // namespace

DesktopNotifications::DesktopNotifications(QObject *parent) : UserNotifications(parent) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.connect(kService, kPath, kService, QStringLiteral("ActionInvoked"), this,
                SLOT(actionInvoked(uint, QString)));
    bus.connect(kService, kPath, kService, QStringLiteral("NotificationClosed"), this,
                SLOT(notificationClosed(uint, uint)));
    auto *watcher = new QDBusServiceWatcher(kService, bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    // Another service counts its ids anew.
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &newOwner) {
                delivered_.clear();
                understandsMarkup_.reset();
                if (!newOwner.isEmpty()) askForCapabilities();
            });
    if (bus.interface() && bus.interface()->isServiceRegistered(kService)) askForCapabilities();
}

void DesktopNotifications::askForCapabilities() {
    const QDBusMessage question = call(QStringLiteral("GetCapabilities"));
    auto *reply = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(question), this);
    connect(reply, &QDBusPendingCallWatcher::finished, this, [this, reply] {
        const QDBusPendingReply<QStringList> capabilities = *reply;
        if (!capabilities.isError()) {
            // Whoever has links reads tags, even where it shows none.
            const QStringList can = capabilities.value();
            understandsMarkup_ = can.contains(QStringLiteral("body-markup")) ||
                                 can.contains(QStringLiteral("body-hyperlinks"));
        }
        for (const UserNotification &notification : std::exchange(waiting_, {})) {
            if (understandsMarkup_) {
                show(notification);
            } else {
                Q_EMIT undeliverable(notification.title, notification.informativeText);
            }
        }
        reply->deleteLater();
    });
}

void DesktopNotifications::deliver(const QString &title, const QString &informativeText) {
    const QString body = presentable(informativeText);
    if (!QDBusConnection::sessionBus().isConnected()) {  // and no answer would come
        Q_EMIT undeliverable(title, body);
        return;
    }
    if (understandsMarkup_) {
        show({title, body});
        return;
    }
    // The question also starts a service that is not running.
    waiting_.push_back({title, body});
    if (waiting_.size() == 1) askForCapabilities();
}

void DesktopNotifications::show(const UserNotification &notification) {
    const auto &[title, body] = notification;
    const QVariantMap hints{{QStringLiteral("sound-name"), QStringLiteral("message-new-instant")},
                            {QStringLiteral("image-data"), imageData()},
                            {QStringLiteral("desktop-entry"), QStringLiteral("quillery")}};
    QDBusMessage notify = call(QStringLiteral("Notify"));
    const uint before = delivered_.isEmpty() ? 0U : delivered_.firstKey();  // whose place it takes
    notify << QStringLiteral("Quillery") << before << QString() << title
           << (*understandsMarkup_ ? body.toHtmlEscaped() : body)
           << QStringList{QStringLiteral("default"), tr("Show")} << hints << -1;
    auto *reply = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(notify), this);
    connect(reply, &QDBusPendingCallWatcher::finished, this, [this, reply, notification] {
        const QDBusPendingReply<uint> id = *reply;
        if (id.isError()) {
            Q_EMIT undeliverable(notification.title, notification.informativeText);
        } else {
            delivered_.insert(id.value(), notification);
        }
        reply->deleteLater();
    });
}

void DesktopNotifications::actionInvoked(uint id, const QString &action) {
    const auto clicked = delivered_.constFind(id);
    if (clicked != delivered_.cend() && action == u"default") Q_EMIT activated(UserNotification(*clicked));
}

void DesktopNotifications::notificationClosed(uint id, uint) {
    delivered_.remove(id);
}
