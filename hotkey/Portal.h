#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QObject>
#include <QString>
#include <QVariantList>
#include <QVariantMap>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace hotkey {

/// The desktop portal's GlobalShortcuts interface over a bus connection of its own. Main thread only; nothing
/// waits for the portal unless it says so. Signals come from the event loop.
class Portal : public QObject {
    Q_OBJECT
  public:
    /// What the portal answered, or why it did not, in words for a user.
    struct Answer {
        QVariantMap results;
        std::string failure;
    };
    using Answered = std::function<void(const Answer &)>;

    Portal();
    ~Portal() override;

    /// Whether the session bus is there.
    bool isConnected() const { return bus_.isConnected(); }

    /// Why there is no using the portal; empty if it is there and has global shortcuts, and it is then
    /// watched. Starts one that can be started. Blocks for less than 100 ms; nothing if that was too short.
    std::optional<std::string> whyUnusable();
    /// The same without blocking: tells it from the event loop, after five seconds at most.
    void findOutWhyUnusable(std::function<void(const std::string &failure)> answered);

    /// Asks for a session; `session_handle` of the results names it. The token must be none of a session that
    /// this connection has.
    void createSession(const QString &token, Answered answered);

    /// Asks for one combination of a session; the answer may take as long as the user does. A session can ask
    /// once.
    void bindShortcut(const QString &session, const QString &id, const QString &description,
                      const QString &trigger, Answered answered);

    /// Ends a session and with it what it asks the user, without waiting for that. An empty one is ignored.
    void closeSession(const QString &session);

  signals:
    void pressed(const QString &session, const QString &id);
    void released(const QString &session, const QString &id, qulonglong milliseconds);
    void closed(const QString &session);
    /// The portal has ended, and with it every session; what was asked is answered no more.
    void gone();
    /// A portal is there again after gone().
    void cameBack();
    void busLost();

  private slots:
    // Called by the names given to QDBusConnection::connect.
    void onResponse(uint code, const QVariantMap &results, const QDBusMessage &message);
    void onActivated(const QDBusObjectPath &session, const QString &id, qulonglong time,
                     const QVariantMap &options);
    void onDeactivated(const QDBusObjectPath &session, const QString &id, qulonglong time,
                       const QVariantMap &options);
    void onClosed(const QDBusMessage &message);

  private:
    void subscribe();
    std::string whyUnusable(const QDBusMessage &reply);
    void watchOwner();
    void ask(const QString &method, QVariantList arguments, QVariantMap options, Answered answered);
    void answer(const QString &request, const Answer &answer);

    QDBusConnection bus_;
    bool isWatched_ = false;
    int lastRequest_ = 0;
    std::map<QString, Answered> asked_;  // by the path of the request
};

}  // namespace hotkey
