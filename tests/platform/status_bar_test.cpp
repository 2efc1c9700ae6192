#include "platform/StatusBar.h"

#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <cstdlib>
#include <cstring>

#include "tests/support/WaitFor.h"

namespace {

const QString kWatcher = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString kPath = QStringLiteral("/StatusNotifierWatcher");

// What keeps the books of the items in the status bar.
class Watcher : public QDBusVirtualObject {
  public:
    Watcher() {
        bus_.registerVirtualObject(kPath, this);
        bus_.registerService(kWatcher);
    }
    ~Watcher() override { QDBusConnection::disconnectFromBus(QStringLiteral("watcher")); }
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override {
        return isSilent || connection.send(message.createReply(QVariant::fromValue(QDBusVariant(hasHost_))));
    }
    void setHost(bool has) {
        hasHost_ = has;
        bus_.send(QDBusMessage::createSignal(kPath, kWatcher,
                                             has ? QStringLiteral("StatusNotifierHostRegistered")
                                                 : QStringLiteral("StatusNotifierHostUnregistered")));
    }
    bool isSilent = false;

  private:
    bool hasHost_ = false;
    QDBusConnection bus_ =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("watcher"));
};

// Owns the X11 system tray of a display, which it can find.
class XTray {
  public:
    XTray() {
        constexpr char kSelection[] = "_NET_SYSTEM_TRAY_S0";
        auto *atom = xcb_intern_atom_reply(
            connection_, xcb_intern_atom(connection_, 0, std::strlen(kSelection), kSelection), nullptr);
        const xcb_window_t window = xcb_generate_id(connection_);
        const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(connection_)).data;
        xcb_create_window(connection_, 0, window, screen->root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                          screen->root_visual, 0, nullptr);
        xcb_set_selection_owner(connection_, window, atom->atom, XCB_CURRENT_TIME);
        std::free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr));
        std::free(atom);
    }
    XTray(const XTray &) = delete;
    XTray &operator=(const XTray &) = delete;
    ~XTray() { xcb_disconnect(connection_); }

  private:
    xcb_connection_t *connection_ = xcb_connect(nullptr, nullptr);
};

}  // namespace

// The toolkit decides once for one of the two kinds, so this is the only test that may see a status bar.
TEST(StatusBarTest, OneCountsOnlyWithAHostAndFromThenOnOnlyOneOfItsKind) {
    const StatusBar bar;
    const auto becomes = [&bar](bool isThere) {
        return waitFor([&] { return bar.isAvailable() == isThere; }, 3000);
    };
    {
        Watcher watcher;
        watcher.setHost(true);
        EXPECT_TRUE(becomes(true));
        watcher.isSilent = true;
        watcher.setHost(false);
        EXPECT_FALSE(becomes(false)) << "one that does not answer is not gone";
        watcher.isSilent = false;
        watcher.setHost(false);
        EXPECT_TRUE(becomes(false)) << "nobody shows the items";
        watcher.setHost(true);
        EXPECT_TRUE(becomes(true));
    }
    EXPECT_TRUE(becomes(false));
    const XTray tray;
    EXPECT_FALSE(becomes(true)) << "of the other kind";
    Watcher again;
    again.setHost(true);
    EXPECT_TRUE(becomes(true));
}
