#include "platform/StatusBar.h"

#include <gtest/gtest.h>
#include <xcb/xcb.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QThread>
#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {

const QString kWatcher = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString kPath = QStringLiteral("/StatusNotifierWatcher");

// What keeps the books of the items in the status bar, on a connection and a thread of its own: it is asked
// by a call that blocks.
class Watcher : public QDBusVirtualObject {
  public:
    Watcher() {
        moveToThread(&thread_);
        thread_.start();
        bus_.registerVirtualObject(kPath, this);
        bus_.registerService(kWatcher);
    }
    ~Watcher() override {
        QDBusConnection::disconnectFromBus(QStringLiteral("watcher"));
        thread_.quit();
        thread_.wait();
    }
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override {
        return connection.send(message.createReply(QVariant::fromValue(QDBusVariant(hasHost.load()))));
    }
    std::atomic<bool> hasHost = false;

  private:
    QThread thread_;
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
    EXPECT_FALSE(StatusBar::isAvailable());
    {
        Watcher watcher;
        EXPECT_FALSE(StatusBar::isAvailable()) << "nobody shows the items";
        watcher.hasHost = true;
        EXPECT_TRUE(StatusBar::isAvailable());
        watcher.hasHost = false;
        EXPECT_FALSE(StatusBar::isAvailable());
    }
    const XTray tray;
    EXPECT_FALSE(StatusBar::isAvailable()) << "of the other kind";
    Watcher again;
    again.hasHost = true;
    EXPECT_TRUE(StatusBar::isAvailable());
}
