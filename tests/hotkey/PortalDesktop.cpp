#include "hotkey/PortalDesktop.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QStandardPaths>
#include <csignal>

#include "support/WaitFor.h"

namespace {

const QString kBackEnd = QStringLiteral("org.freedesktop.impl.portal.desktop.test");
const QString kPortal = QStringLiteral("org.freedesktop.portal.Desktop");

constexpr const char *kBusConfiguration = R"(<busconfig>
  <type>session</type>
  <listen>unix:dir=%1</listen>
  <policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy>
</busconfig>)";

constexpr const char *kPortalConfiguration = R"([portal]
DBusName=org.freedesktop.impl.portal.desktop.test
Interfaces=org.freedesktop.impl.portal.GlobalShortcuts
UseIn=quillery-test
)";

void write(const QString &path, const QString &text) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(text.toUtf8());
}

/// The portal's program, as its D-Bus service names it.
QString portalProgram() {
    const QString service = QStandardPaths::locate(QStandardPaths::GenericDataLocation,
                                                   "dbus-1/services/org.freedesktop.portal.Desktop.service");
    return QSettings(service, QSettings::IniFormat).value("D-BUS Service/Exec").toString();
}

void end(std::unique_ptr<QProcess> &process) {
    if (!process) return;
    process->kill();
    process->waitForFinished();
    process.reset();
}

}  // namespace

PortalDesktop::PortalDesktop() {
    QDir(folder_.path()).mkpath("portals");
    QDir(folder_.path()).mkpath("none");
    write(folder_.filePath("portals/test.portal"), kPortalConfiguration);
    write(folder_.filePath("bus.conf"), QString(kBusConfiguration).arg(folder_.path()));
    bus_ = started("dbus-daemon",
                   {"--nofork", "--print-address", "--config-file", folder_.filePath("bus.conf")});
    EXPECT_TRUE(waitFor([&] { return bus_->canReadLine(); }));
    qputenv("DBUS_SESSION_BUS_ADDRESS", bus_->readLine().trimmed());
    qputenv("WAYLAND_DISPLAY", "wayland-0");
    connection_ = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "desktop");
    EXPECT_TRUE(connection_->isConnected());
}

PortalDesktop::~PortalDesktop() {
    end(portal_);
    end(backEnd_);
    end(bus_);
}

void PortalDesktop::restart() {
    endPortal();
    end(backEnd_);
    EXPECT_TRUE(waitForService(kBackEnd, false));
    backEnd_ = started(PORTAL_BACKEND);
    EXPECT_TRUE(waitForService(kBackEnd, true)) << "python3-dbus and python3-gi are needed";
    startPortal();
}

void PortalDesktop::startPortal(bool withShortcuts) {
    qputenv("XDG_DESKTOP_PORTAL_DIR", folder_.filePath(withShortcuts ? "portals" : "none").toLocal8Bit());
    qputenv("XDG_CURRENT_DESKTOP", "quillery-test");
    portal_ = started(portalProgram());
    EXPECT_TRUE(waitForService(kPortal, true)) << "xdg-desktop-portal is needed";
}

void PortalDesktop::endPortal() {
    end(portal_);
    EXPECT_TRUE(waitForService(kPortal, false));
}

void PortalDesktop::setHung(bool isHung) {
    kill(static_cast<pid_t>(portal_->processId()), isHung ? SIGSTOP : SIGCONT);
}

void PortalDesktop::endBus() {
    end(bus_);
}

std::optional<AskedShortcut> PortalDesktop::asked(int count) {
    QStringList parts;
    const auto isThere = [&] {
        parts = tell("Bound").toStringList();
        return parts.size() >= 4 * count;
    };
    if (!waitFor(isThere) || parts.size() != 4 * count) return std::nullopt;
    return AskedShortcut{parts[4 * count - 4], parts[4 * count - 3], parts[4 * count - 2],
                         parts[4 * count - 1]};
}

QVariant PortalDesktop::tell(const QString &method, const QVariantList &arguments) {
    QDBusMessage call = QDBusMessage::createMethodCall(kBackEnd, "/org/freedesktop/portal/desktop",
                                                       "org.quillery.Test", method);
    call.setArguments(arguments);
    const QDBusMessage reply = connection_->call(call);
    EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    return reply.arguments().value(0);
}

bool PortalDesktop::waitForService(const QString &service, bool isThere) {
    return waitFor([&] { return connection_->interface()->isServiceRegistered(service) == isThere; });
}

std::unique_ptr<QProcess> PortalDesktop::started(const QString &program, const QStringList &arguments) {
    auto process = std::make_unique<QProcess>();
    process->setChildProcessModifier(
        [] { prctl(PR_SET_PDEATHSIG, SIGKILL); });  // a test may be ended by force
    process->setStandardErrorFile(folder_.filePath("log"), QIODevice::Append);
    process->start(program, arguments);
    EXPECT_TRUE(process->waitForStarted()) << program.toStdString();
    return process;
}
