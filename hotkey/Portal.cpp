#include "hotkey/Portal.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QList>
#include <utility>

namespace hotkey {
namespace {

const QString kService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kShortcuts = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString kRequest = QStringLiteral("org.freedesktop.portal.Request");
const QString kSession = QStringLiteral("org.freedesktop.portal.Session");

// In milliseconds: a portal that may have to be started is given the one, and the caller waits for the other.
constexpr int kStartLimit = 5000, kBlockLimit = 50;

using Shortcut = std::pair<QString, QVariantMap>;

QString newConnectionName() {
    static int last = 0;
    return QStringLiteral("hotkey-%1").arg(++last);
}

QDBusMessage versionRequest() {
    QDBusMessage request =
        QDBusMessage::createMethodCall(kService, kPath, "org.freedesktop.DBus.Properties", "Get");
    return request << kShortcuts << QStringLiteral("version");
}

std::string wordsFor(const QDBusError &error) {
    switch (error.type()) {
        case QDBusError::Disconnected:
            return "the connection to the session bus was lost";
        case QDBusError::ServiceUnknown:
            return "this desktop has no portal: xdg-desktop-portal is not installed or does not run";
        case QDBusError::InvalidArgs:
        case QDBusError::UnknownInterface:
        case QDBusError::UnknownMethod:
        case QDBusError::UnknownObject:
        case QDBusError::UnknownProperty:
            return "the portal of this desktop has no global shortcuts";
        case QDBusError::NoReply:
        case QDBusError::Timeout:
        case QDBusError::TimedOut:
            return "the portal of this desktop does not answer";
        default:
            return "the portal of this desktop failed: " + error.message().toStdString();
    }
}

}  // namespace

Portal::Portal() : bus_(QDBusConnection::connectToBus(QDBusConnection::SessionBus, newConnectionName())) {
    qDBusRegisterMetaType<Shortcut>();
    qDBusRegisterMetaType<QList<Shortcut>>();
    if (bus_.isConnected()) subscribe();
}

Portal::~Portal() {
    QDBusConnection::disconnectFromBus(bus_.name());  // which ends its sessions
}

void Portal::subscribe() {
    // For all requests and sessions at once and before the first of them, so that no answer is missed.
    bus_.connect(kService, {}, kRequest, "Response", this, SLOT(onResponse(uint, QVariantMap, QDBusMessage)));
    bus_.connect(kService, {}, kSession, "Closed", this, SLOT(onClosed(QDBusMessage)));
    bus_.connect(kService, kPath, kShortcuts, "Activated", this,
                 SLOT(onActivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
    bus_.connect(kService, kPath, kShortcuts, "Deactivated", this,
                 SLOT(onDeactivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
    bus_.connect({}, "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local", "Disconnected", this,
                 SIGNAL(busLost()));
}

std::optional<std::string> Portal::whyUnusable() {
    if (!bus_.isConnected())
        return "the session bus cannot be reached: " + bus_.lastError().message().toStdString();
    const QDBusMessage reply = bus_.call(versionRequest(), QDBus::Block, kBlockLimit);
    if (QDBusError(reply).type() == QDBusError::NoReply) return std::nullopt;
    return whyUnusable(reply);
}

void Portal::findOutWhyUnusable(std::function<void(const std::string &)> answered) {
    auto *watcher = new QDBusPendingCallWatcher(bus_.asyncCall(versionRequest(), kStartLimit), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, watcher, answered = std::move(answered)] {
                watcher->deleteLater();
                answered(whyUnusable(watcher->reply()));
            });
}

std::string Portal::whyUnusable(const QDBusMessage &reply) {
    if (reply.type() != QDBusMessage::ReplyMessage) return wordsFor(QDBusError(reply));
    if (!isWatched_) watchOwner();
    return {};
}

/// From now on: a start that the first question brought about is none to report.
void Portal::watchOwner() {
    isWatched_ = true;
    auto *watcher = new QDBusServiceWatcher(kService, bus_, QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &before, const QString &now) {
                if (!before.isEmpty()) {
                    asked_.clear();
                    emit gone();
                }
                if (!now.isEmpty()) emit cameBack();
            });
}

void Portal::createSession(const QString &token, Answered answered) {
    ask(QStringLiteral("CreateSession"), {}, {{"session_handle_token", token}}, std::move(answered));
}

void Portal::bindShortcut(const QString &session, const QString &id, const QString &description,
                          const QString &trigger, Answered answered) {
    const QList<Shortcut> wanted{{id, {{"description", description}, {"preferred_trigger", trigger}}}};
    const auto checked = [id, answered = std::move(answered)](Answer answer) {
        // Where the desktop lets the user choose among the shortcuts, a shortcut that is not chosen is
        // missing.
        const QVariant bound = answer.results.value("shortcuts");
        bool isBound = !bound.isValid();
        for (const Shortcut &shortcut : qdbus_cast<QList<Shortcut>>(bound)) isBound |= shortcut.first == id;
        if (answer.failure.empty() && !isBound)
            answer.failure = "the hot key was left out when the desktop asked";
        answered(answer);
    };
    ask(QStringLiteral("BindShortcuts"),
        {QVariant::fromValue(QDBusObjectPath(session)), QVariant::fromValue(wanted), QString()}, {}, checked);
}

void Portal::closeSession(const QString &session) {
    if (session.isEmpty()) return;
    bus_.send(QDBusMessage::createMethodCall(kService, session, kSession, "Close"));
}

/// Calls a method that answers later, by the Response of a request whose path follows from a token.
void Portal::ask(const QString &method, QVariantList arguments, QVariantMap options, Answered answered) {
    const QString token = QStringLiteral("hotkey%1").arg(++lastRequest_);
    const QString sender = bus_.baseService().mid(1).replace('.', '_');
    const QString request = kPath + "/request/" + sender + '/' + token;
    asked_[request] = std::move(answered);

    options["handle_token"] = token;
    arguments << options;
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kShortcuts, method);
    call.setArguments(arguments);
    auto *watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, request] {
        watcher->deleteLater();
        if (watcher->isError()) answer(request, {{}, wordsFor(watcher->error())});
    });
}

void Portal::answer(const QString &request, const Answer &answer) {
    if (auto node = asked_.extract(request)) node.mapped()(answer);
}

void Portal::onResponse(uint code, const QVariantMap &results, const QDBusMessage &message) {
    constexpr uint kSuccess = 0, kRefusedByUser = 1;
    Answer given{results, {}};
    if (code == kRefusedByUser)
        given.failure = "the hot key was refused when the desktop asked";
    else if (code != kSuccess)
        given.failure = "the desktop could not set the hot key up";
    answer(message.path(), given);
}

void Portal::onActivated(const QDBusObjectPath &session, const QString &id, qulonglong, const QVariantMap &) {
    emit pressed(session.path(), id);
}

void Portal::onDeactivated(const QDBusObjectPath &session, const QString &id, qulonglong time,
                           const QVariantMap &) {
    emit released(session.path(), id, time);
}

void Portal::onClosed(const QDBusMessage &message) {
    emit closed(message.path());
}

}  // namespace hotkey
