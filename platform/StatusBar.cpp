#include "platform/StatusBar.h"

#include <xcb/xcb.h>

#include <QCursor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QIcon>
#include <QMenu>
#include <QTimer>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// How often it is looked for an X11 tray while there is none, and whether it is still there.
constexpr int kLookingMilliseconds = 1000;
constexpr int kCheckingMilliseconds = 5000;

const QString kWatcher = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString kWatcherPath = QStringLiteral("/StatusNotifierWatcher");

bool hasXTray() {
    const auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || !x11->connection()) return false;
    xcb_connection_t *connection = x11->connection();
    constexpr char kSelection[] = "_NET_SYSTEM_TRAY_S0";
    auto *atom = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, sizeof kSelection - 1, kSelection), nullptr);
    if (!atom) return false;
    auto *owner =
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, atom->atom), nullptr);
    std::free(atom);
    const bool there = owner && owner->owner != XCB_NONE;
    std::free(owner);
    return there;
}

enum class Kind { kNone, kNotifierHost, kXTray };
Kind kind = Kind::kNone;

QIcon statusImage(QString name) {
    name.remove(QStringLiteral(".png"));
    // By its name a status bar finds the installed drawing, which is sharp in every size.
    const QString installed = QStringLiteral("quillery-") + name;
    if (QIcon::hasThemeIcon(installed)) return QIcon::fromTheme(installed);
    QIcon icon;
    for (const int size : {16, 22, 24, 32, 48, 64}) {
        icon.addFile(QStringLiteral(":/status/%1-%2.png").arg(name).arg(size), QSize(size, size));
    }
    return icon;
}

}  // namespace

StatusBar::StatusBar(QObject *parent) : QObject(parent) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        host_ = Host::kNone;
        return;
    }
    auto *owners = new QDBusServiceWatcher(kWatcher, bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(owners, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &newOwner) {
                newOwner.isEmpty() ? setHost(Host::kNone) : askForHost();
            });
    for (const char *signal : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"})
        bus.connect(kWatcher, kWatcherPath, kWatcher, QLatin1String(signal), this, SLOT(askForHost()));
    askForHost();
}

// The watcher only keeps the books: what shows the items is a host, which may come later.
void StatusBar::askForHost() {
    QDBusMessage question = QDBusMessage::createMethodCall(
        kWatcher, kWatcherPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    question.setAutoStartService(false);
    question << kWatcher << QStringLiteral("IsStatusNotifierHostRegistered");
    auto *answer = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(question), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer] {
        const QDBusPendingReply<QDBusVariant> reply = *answer;
        answer->deleteLater();
        // One that does not answer, or has troubles of its own, is busy, not gone.
        constexpr std::array kPassing{QDBusError::NoReply,  QDBusError::Timeout,        QDBusError::TimedOut,
                                      QDBusError::NoMemory, QDBusError::LimitsExceeded, QDBusError::Failed};
        const bool isBusy =
            reply.isError() && std::ranges::find(kPassing, reply.error().type()) != kPassing.end();
        if (isBusy) {
            QTimer::singleShot(kCheckingMilliseconds, this, &StatusBar::askForHost);
            return;
        }
        setHost(!reply.isError() && reply.value().variant().toBool() ? Host::kThere : Host::kNone);
    });
}

void StatusBar::setHost(Host host) {
    if (std::exchange(host_, host) != host) Q_EMIT changed();
}

// Qt decides between the two kinds of status bar once, at the first touch of QSystemTrayIcon: so nothing of
// it is touched before there is one, and only one of that kind counts from then on.
bool StatusBar::isAvailable() const {
    if (kind == Kind::kNone && host_ != Host::kUnknown)
        kind = host_ == Host::kThere ? Kind::kNotifierHost : hasXTray() ? Kind::kXTray : Kind::kNone;
    switch (kind) {
        case Kind::kNotifierHost:
            return host_ == Host::kThere;
        case Kind::kXTray:
            return hasXTray();
        case Kind::kNone:
            return false;
    }
    return false;
}

StatusItem::StatusItem(QObject *parent) : QObject(parent) {
    connect(&statusBar_, &StatusBar::changed, this, &StatusItem::look);
    connect(&lookAgain_, &QTimer::timeout, this, &StatusItem::look);
    lookAgain_.setInterval(kLookingMilliseconds);
}

StatusItem::~StatusItem() = default;

void StatusItem::setImage(const QString &name) {
    image_ = name;
    const QIcon image = statusImage(name);
    if (icon_) icon_->setIcon(image);
    Q_EMIT imageChanged(image);
}

void StatusItem::setToolTip(const QString &text) {
    toolTip_ = text;
    if (icon_) icon_->setToolTip(toolTip_);
}

void StatusItem::setMenu(QMenu *menu, std::chrono::milliseconds patience) {
    menu_ = menu;
    showIfPossible();
    lookAgain_.start();
    QTimer::singleShot(patience, this, [this] {
        if (!icon_) Q_EMIT lost();
    });
}

void StatusItem::look() {
    if (!icon_) {
        showIfPossible();
    } else if (!statusBar_.isAvailable()) {
        icon_.reset();
        lookAgain_.setInterval(kLookingMilliseconds);
        Q_EMIT lost();
    }
}

void StatusItem::showIfPossible() {
    if (icon_ || !menu_ || !statusBar_.isAvailable()) return;
    lookAgain_.setInterval(kCheckingMilliseconds);
    icon_ = std::make_unique<QSystemTrayIcon>(statusImage(image_));
    icon_->setToolTip(toolTip_);
    icon_->setContextMenu(menu_);
    connect(icon_.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger) menu_->popup(QCursor::pos());
    });
    icon_->show();
    Q_EMIT shown();
}
