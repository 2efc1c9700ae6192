#include "platform/ColorScheme.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>

#include "tests/support/WaitFor.h"

namespace {

const QString kPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kSettings = QStringLiteral("org.freedesktop.portal.Settings");

// The settings portal, on a connection of its own.
class Portal : public QDBusVirtualObject {
  public:
    explicit Portal(unsigned scheme) : scheme_(scheme) {
        bus_.registerVirtualObject(kPath, this);
        bus_.registerService(QStringLiteral("org.freedesktop.portal.Desktop"));
    }
    ~Portal() override { QDBusConnection::disconnectFromBus(QStringLiteral("portal")); }
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override {
        if (message.member() != u"Read") return false;
        const QDBusVariant inner{scheme_};
        return connection.send(
            message.createReply(QVariant::fromValue(QDBusVariant(QVariant::fromValue(inner)))));
    }
    void change(unsigned scheme) {
        QDBusMessage signal = QDBusMessage::createSignal(kPath, kSettings, QStringLiteral("SettingChanged"));
        signal << QStringLiteral("org.freedesktop.appearance") << QStringLiteral("color-scheme")
               << QVariant::fromValue(QDBusVariant(scheme));
        bus_.send(signal);
    }

  private:
    unsigned scheme_;
    QDBusConnection bus_ =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("portal"));
};

bool isDark() {
    return QApplication::palette().color(QPalette::Window).lightness() < 128;
}

TEST(ColorSchemeTest, FollowsTheDesktopNowAndLater) {
    ASSERT_FALSE(isDark());
    const ColorScheme scheme;  // there is no portal yet
    Portal portal(1);
    EXPECT_TRUE(waitFor(isDark));
    portal.change(2);
    EXPECT_TRUE(waitFor([] { return !isDark(); }));
}

}  // namespace
