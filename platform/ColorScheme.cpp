#include "platform/ColorScheme.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

namespace {

constexpr unsigned kPrefersDark = 1;
constexpr int kMiddleLightness = 128;

const QString kPortal = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString kGroup = QStringLiteral("org.freedesktop.appearance");
const QString kKey = QStringLiteral("color-scheme");

}  // namespace

bool ColorScheme::isDark(const QPalette &palette) {
    return palette.color(QPalette::Window).lightness() < kMiddleLightness;
}

ColorScheme::ColorScheme(QObject *parent) : QObject(parent), usual_(QApplication::palette()) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    bus.connect(kPortal, kPortalPath, kInterface, QStringLiteral("SettingChanged"), this,
                SLOT(settingChanged(QDBusMessage)));
    const auto ask = [this, bus] { this->ask(bus); };
    auto *portal = new QDBusServiceWatcher(kPortal, bus, QDBusServiceWatcher::WatchForRegistration, this);
    connect(portal, &QDBusServiceWatcher::serviceRegistered, this, ask);
    ask();
}

void ColorScheme::ask(const QDBusConnection &bus) {
    QDBusMessage question =
        QDBusMessage::createMethodCall(kPortal, kPortalPath, kInterface, QStringLiteral("Read"));
    question << kGroup << kKey;
    question.setAutoStartService(false);  // a desktop that has a wish has a portal that runs
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(question), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        const QDBusPendingReply<QDBusVariant> reply = *watcher;
        if (reply.isValid()) apply(reply.value().variant());
        watcher->deleteLater();
    });
}

void ColorScheme::settingChanged(const QDBusMessage &change) {
    const QVariantList what = change.arguments();  // the group, the key and the value
    if (what.size() == 3 && what[0] == kGroup && what[1] == kKey)
        apply(what[2].value<QDBusVariant>().variant());
}

void ColorScheme::apply(const QVariant &value) {
    // "Read" wraps the value once more than it should.
    const QVariant inner = value.canConvert<QDBusVariant>() ? value.value<QDBusVariant>().variant() : value;
    const bool wantsDark = inner.toUInt() == kPrefersDark;
    const QPalette palette = wantsDark && !isDark(usual_) ? darkPalette() : usual_;
    if (palette != QApplication::palette()) QApplication::setPalette(palette);
}

QPalette ColorScheme::darkPalette() {
    // Fields and boxes are told from the window by their ground: the toolkit's outlines are darker still.
    const QColor window(0x3c, 0x3c, 0x40);
    const QColor base(0x1b, 0x1b, 0x1d);
    const QColor button(0x50, 0x50, 0x55);
    const QColor text(0xee, 0xee, 0xee);
    const QColor faint(0x9a, 0x9a, 0x9a);
    const QColor accent(0x2f, 0x6f, 0xc4);
    QPalette palette(text, button, button.lighter(130), button.darker(160), button.darker(125), text,
                     Qt::white, base, window);
    palette.setColor(QPalette::AlternateBase, QColor(0x26, 0x26, 0x29));
    palette.setColor(QPalette::ToolTipBase, button);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, faint);
    palette.setColor(QPalette::Highlight, accent);
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(0x7a, 0xb4, 0xff));
    palette.setColor(QPalette::LinkVisited, QColor(0xc0, 0xa0, 0xff));
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, faint);
    palette.setColor(QPalette::Disabled, QPalette::Highlight, button);
    palette.setColor(QPalette::Disabled, QPalette::Base, window);
    palette.setColor(QPalette::Disabled, QPalette::Light, base);  // the shadow of disabled text
    return palette;
}
