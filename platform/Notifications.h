#pragma once

#include <QDBusMessage>
#include <QMap>
#include <QObject>
#include <QString>
#include <optional>
#include <vector>

// What a notification says.
struct UserNotification {
    QString title;
    QString informativeText;
};

// The desktop's user notifications. An interface, so that a test sees what was announced and when.
class UserNotifications : public QObject {
    Q_OBJECT

  public:
    using QObject::QObject;

    // Shows a notification with the default sound and returns at once. UI thread only.
    virtual void deliver(const QString &title, const QString &informativeText) = 0;

  Q_SIGNALS:
    // The user clicked a notification that this object delivered.
    void activated(const UserNotification &notification);
    // There is no notification service: show this in some other way.
    void undeliverable(const QString &title, const QString &informativeText);
};

// The service org.freedesktop.Notifications of the session bus.
class DesktopNotifications : public UserNotifications {
    Q_OBJECT

  public:
    explicit DesktopNotifications(QObject *parent = nullptr);

    void deliver(const QString &title, const QString &informativeText) override;

  private Q_SLOTS:
    void actionInvoked(uint id, const QString &action);
    void notificationClosed(uint id, uint reason);

  private:
    void askForCapabilities();

    void show(const UserNotification &notification);

    std::optional<bool> understandsMarkup_;  // nothing: not known yet
    std::vector<UserNotification> waiting_;  // for it
    QMap<uint, UserNotification> delivered_;
};
