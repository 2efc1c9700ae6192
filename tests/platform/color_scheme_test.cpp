#include "platform/ColorScheme.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <cmath>

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

// The contrast of two colours as the web's accessibility guidelines define it.
double contrast(const QColor &one, const QColor &other) {
    const auto luminance = [](const QColor &color) {
        const auto part = [](double c) {
            return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * part(color.redF()) + 0.7152 * part(color.greenF()) + 0.0722 * part(color.blueF());
    };
    const double a = luminance(one);
    const double b = luminance(other);
    return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}

TEST(ColorSchemeTest, FollowsTheDesktopNowAndLater) {
    ASSERT_FALSE(isDark());
    const ColorScheme scheme;  // there is no portal yet
    Portal portal(1);
    EXPECT_TRUE(waitFor(isDark));
    portal.change(2);
    EXPECT_TRUE(waitFor([] { return !isDark(); }));
    portal.change(1);
    EXPECT_TRUE(waitFor(isDark));
    portal.change(0);
    EXPECT_TRUE(waitFor([] { return !isDark(); }));
}

TEST(ColorSchemeTest, EveryTextCanBeReadInTheDark) {
    const QPalette dark = ColorScheme::darkPalette();
    const std::pair<QPalette::ColorRole, QPalette::ColorRole> pairs[] = {
        {QPalette::WindowText, QPalette::Window},
        {QPalette::Text, QPalette::Base},
        {QPalette::Text, QPalette::AlternateBase},
        {QPalette::ButtonText, QPalette::Button},
        {QPalette::ToolTipText, QPalette::ToolTipBase},
        {QPalette::HighlightedText, QPalette::Highlight},
        {QPalette::Link, QPalette::Base},
        {QPalette::PlaceholderText, QPalette::Base},
    };
    for (const auto &[text, background] : pairs)
        EXPECT_GE(contrast(dark.color(text), dark.color(background)), 4.5) << text << " on " << background;
}

}  // namespace
