// What the program has from the desktop, and gives to its own threads and processes.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <xcb/xcb.h>

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <future>

#include "platform/BackgroundTasks.h"
#include "platform/ColorScheme.h"
#include "platform/SingleInstance.h"
#include "platform/StatusBar.h"
#include "platform/UiThread.h"
#include "platform/UserDefaults.h"
#include "platform/UserFolders.h"
#include "tests/support/WaitFor.h"

namespace {

using namespace std::chrono_literals;

// ---- Threads ----

TEST(BackgroundTasks, HandOverStepsInOrderAndAreWaitedFor) {
    UiThread ui;
    std::string log;
    {
        BackgroundTasks background(ui);
        for (int i = 0; i < 20; ++i) {
            background.performSelectorInBackground([&] {
                const std::size_t before = ui.run([&] { return log.size(); });
                ui.run([&] { log += before <= log.size() ? "x" : "?"; });
            });
        }
        EXPECT_EQ(background.running(), 20);
        background.waitForAll();
        EXPECT_EQ(background.running(), 0);
        EXPECT_EQ(log, std::string(20, 'x'));
        background.performSelectorInBackground([&] { ui.run([&] { log = "the last"; }); });
    }
    EXPECT_EQ(log, "the last");
}

// A handed-over step that turns a loop of its own must not keep the steps behind it from that loop.
TEST(UiThread, StepsRunInsideNestedLoops) {
    UiThread ui;
    bool second = false, seen = false;
    ui.post([&] { seen = waitFor([&] { return second; }, 2000); });
    ui.post([&] { second = true; });
    EXPECT_TRUE(waitFor([&] { return seen; }, 3000));
}

// ---- The desktop ----

// A service of the session bus, on a connection of its own. It answers any call with `answer`.
class Service : public QDBusVirtualObject {
  public:
    Service(const QString &name, const QString &path, const QString &interface)
        : name_(name), path_(path), interface_(interface) {
        bus_.registerVirtualObject(path, this);
        bus_.registerService(name);
    }
    ~Service() override { QDBusConnection::disconnectFromBus(name_); }
    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override {
        return isSilent || connection.send(message.createReply(QVariant::fromValue(QDBusVariant(answer))));
    }
    void signal(const char *name, const QVariantList &arguments = {}) {
        QDBusMessage message = QDBusMessage::createSignal(path_, interface_, name);
        message.setArguments(arguments);
        bus_.send(message);
    }
    QVariant answer;
    bool isSilent = false;

  private:
    const QString name_, path_, interface_;
    QDBusConnection bus_ = QDBusConnection::connectToBus(QDBusConnection::SessionBus, name_);
};

TEST(ColorSchemeTest, FollowsTheDesktopNowAndLater) {
    const auto isDark = [] { return QApplication::palette().color(QPalette::Window).lightness() < 128; };
    ASSERT_FALSE(isDark());
    const ColorScheme scheme;  // there is no portal yet
    Service portal("org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
                   "org.freedesktop.portal.Settings");
    portal.answer = QVariant::fromValue(QDBusVariant(1U));
    EXPECT_TRUE(waitFor(isDark));
    portal.signal("SettingChanged",
                  {"org.freedesktop.appearance", "color-scheme", QVariant::fromValue(QDBusVariant(2U))});
    EXPECT_TRUE(waitFor([&] { return !isDark(); }));
}

class Watcher : public Service {
  public:
    Watcher()
        : Service("org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher",
                  "org.kde.StatusNotifierWatcher") {}
    void setHost(bool has) {
        answer = has;
        signal(has ? "StatusNotifierHostRegistered" : "StatusNotifierHostUnregistered");
    }
};

// Owns the X11 system tray until it is closed.
xcb_connection_t *openXTray() {
    constexpr char kSelection[] = "_NET_SYSTEM_TRAY_S0";
    xcb_connection_t *connection = xcb_connect(nullptr, nullptr);
    auto *atom = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, std::strlen(kSelection), kSelection), nullptr);
    const xcb_window_t window = xcb_generate_id(connection);
    const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    xcb_create_window(connection, 0, window, screen->root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                      screen->root_visual, 0, nullptr);
    xcb_set_selection_owner(connection, window, atom->atom, XCB_CURRENT_TIME);
    std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    std::free(atom);
    return connection;
}

// The toolkit decides once for one of the two kinds, so this is the only test that may see a status bar.
TEST(StatusBarTest, OneCountsOnlyWithAHostAndFromThenOnOnlyOneOfItsKind) {
    const StatusBar bar;
    const auto becomes = [&bar](bool isThere, int milliseconds = 3000) {
        return waitFor([&] { return bar.isAvailable() == isThere; }, milliseconds);
    };
    {
        Watcher watcher;
        watcher.setHost(true);
        EXPECT_TRUE(becomes(true));
        watcher.isSilent = true;
        watcher.setHost(false);
        EXPECT_FALSE(becomes(false, 300)) << "one that does not answer is not gone";
        watcher.isSilent = false;
        watcher.setHost(false);
        EXPECT_TRUE(becomes(false)) << "nobody shows the items";
        watcher.setHost(true);
        EXPECT_TRUE(becomes(true));
    }
    EXPECT_TRUE(becomes(false));
    xcb_connection_t *tray = openXTray();
    EXPECT_FALSE(becomes(true, 300)) << "of the other kind";
    Watcher again;
    again.setHost(true);
    EXPECT_TRUE(becomes(true));
    xcb_disconnect(tray);
}

// ---- The one running program ----

class SingleInstanceTest : public testing::Test {
  protected:
    using Answer = SingleInstance::Answer;
    using Reply = SingleInstance::Reply;
    // Asks from another thread, since the answer needs this one's event loop.
    static std::optional<Answer> ask(const std::string &request) {
        auto answer = std::async(std::launch::async, [&] { return SingleInstance::send(request, 60s); });
        EXPECT_TRUE(waitFor([&] { return answer.wait_for(0s) == std::future_status::ready; }));
        return answer.get();
    }
};

TEST_F(SingleInstanceTest, OnlyOneHasTheClaimAndEndingFreesIt) {
    const QByteArray display = qgetenv("DISPLAY");
    EXPECT_FALSE(SingleInstance::send("save", 60s).has_value()) << "nobody runs";
    {
        SingleInstance first;
        EXPECT_EQ(first.claim(), SingleInstance::Claim::kIsTheOne);
        SingleInstance second;
        EXPECT_EQ(second.claim(), SingleInstance::Claim::kIsSecond);
        qputenv("DISPLAY", display + ".0");
        EXPECT_EQ(second.claim(), SingleInstance::Claim::kIsSecond) << "the same display by another name";
        qputenv("DISPLAY", ":77");
        EXPECT_EQ(second.claim(), SingleInstance::Claim::kIsTheOne) << "another display";
    }
    qputenv("DISPLAY", display);
    SingleInstance third;
    EXPECT_EQ(third.claim(), SingleInstance::Claim::kIsTheOne);
}

TEST_F(SingleInstanceTest, PassesRequestsOnAndAnswersBack) {
    SingleInstance instance;
    ASSERT_EQ(instance.claim(), SingleInstance::Claim::kIsTheOne);
    std::vector<std::string> requests;
    Reply later;
    ASSERT_TRUE(instance.listen([&](const std::string &request, const Reply &reply) {
        requests.push_back(request);
        if (request == "save") {
            later = reply;
        } else {
            reply({1, "It is locked: größer."});
        }
    }));
    const auto refused = ask("list");
    ASSERT_TRUE(refused.has_value());
    EXPECT_EQ(refused->status, 1);
    EXPECT_EQ(refused->words, "It is locked: größer.");

    // An answer that takes its time holds up nobody else.
    auto slow = std::async(std::launch::async, [] { return SingleInstance::send("save", 60s); });
    ASSERT_TRUE(waitFor([&] { return static_cast<bool>(later); }));
    EXPECT_TRUE(ask("list").has_value());
    const auto late = SingleInstance::send("list", 1s);  // which nobody can hear meanwhile
    ASSERT_TRUE(late);
    EXPECT_EQ(late->status, Answer::kFailed);
    EXPECT_EQ(late->words, "the Quillery that runs does not answer");
    later({});
    ASSERT_TRUE(waitFor([&] { return slow.wait_for(0s) == std::future_status::ready; }));
    EXPECT_EQ(slow.get()->status, 0);
    EXPECT_TRUE(waitFor([&] { return requests.size() == 4; }));
    EXPECT_EQ(requests, (std::vector<std::string>{"list", "save", "list", "list"}));
    EXPECT_FALSE(ask(std::string(1000, 'x')).has_value()) << "no request";
    EXPECT_TRUE(ask("list").has_value()) << "the next one is heard";
}

TEST_F(SingleInstanceTest, CallersThatSayNothingAreGivenUpAndOnesThatCannotBeTakenWait) {
    SingleInstance instance;
    ASSERT_EQ(instance.claim(), SingleInstance::Claim::kIsTheOne);
    ASSERT_TRUE(instance.listen([](const std::string &, const Reply &reply) { reply({}); }, 300ms));
    const std::string path = *runtimeFolder() / ("instance" + qgetenv("DISPLAY").toStdString());
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto call = [&] {
        const int caller = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        EXPECT_EQ(connect(caller, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        return caller;
    };
    std::vector<int> silent;
    for (int i = 0; i < 40; ++i) {
        silent.push_back(call());
        QCoreApplication::processEvents();
    }
    char byte = 0;
    EXPECT_EQ(recv(silent[0], &byte, 1, 0), -1) << "it has some time to say what it wants";
    EXPECT_TRUE(waitFor([&] { return recv(silent[0], &byte, 1, 0) == 0; }, 3000));
    EXPECT_FALSE(waitFor([&] { return recv(silent[39], &byte, 1, 0) == 0; }, 50))
        << "only so many are heard at once: its time has just begun";
    EXPECT_TRUE(ask("list").has_value());

    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int next = dup(0);
    close(next);
    const rlimit full{.rlim_cur = static_cast<rlim_t>(next) + 1, .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &full);
    const int last = call();
    const std::clock_t before = std::clock();
    QTest::qWait(300);
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 6) << "it tries again and again";
    setrlimit(RLIMIT_NOFILE, &limit);
    send(last, "list\n", 5, MSG_NOSIGNAL);
    EXPECT_TRUE(waitFor([&] { return recv(last, &byte, 1, 0) == 1; }));
    silent.push_back(last);
    for (const int descriptor : silent) close(descriptor);
}

// ---- Settings ----

TEST(UserDefaultsTest, SetsADamagedFileAside) {
    const QString name = UserDefaults().fileName();
    QDir().mkpath(QFileInfo(name).path());
    int number = 0;
    for (const QByteArray &bytes :
         {QByteArray("[General]\nkUser\0name=ann\n", 25), QByteArray("[General]\nkUsername=ann\nkPas"),
          QByteArray("[Gen"), QByteArray("\x89PNG\r\n")}) {
        QFile file(name);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        file.close();
        UserDefaults defaults;
        const QString aside = name + QStringLiteral(".damaged-%1").arg(++number);
        EXPECT_TRUE(defaults.problem().contains(aside)) << qPrintable(defaults.problem());
        QFile kept(aside);
        ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
        EXPECT_EQ(kept.readAll(), bytes);
        EXPECT_FALSE(defaults.objectForKey("kUsername").has_value());
        defaults.setObject("bob", "kUsername");
        EXPECT_TRUE(defaults.synchronize());
    }
    EXPECT_EQ(UserDefaults().objectForKey("kUsername"), "bob");
    EXPECT_FALSE(UserDefaults::isDamaged("; a comment\r\n# another\r\n[General]\r\nkAutoLogin=Yes\r\n\r\n"));
}

TEST(UserDefaultsTest, TakesWhatItWritesItselfForSound) {
    for (const QString &text :
         {u""_qs, u"a,b"_qs, u"=[;"_qs, u"  "_qs, u"grün\n[x\ny\0z"_qs, u"\"\\\x1f"_qs}) {
        UserDefaults defaults;
        defaults.setObject(text, "kUsername");
        ASSERT_TRUE(defaults.synchronize());
        UserDefaults again;
        EXPECT_TRUE(again.problem().isEmpty()) << qPrintable(again.problem());
        EXPECT_EQ(again.objectForKey("kUsername"), text);
    }
}

}  // namespace
