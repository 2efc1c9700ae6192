// What a user with an account waits for, through the real controller and windows:
// accounts_benchmark HOST PORT steps|hold, on a virtual desktop with an empty home folder, with an empty
// storage server at HOST. "steps" prints the seconds of each step; "hold" puts a list of 20 MB there, opens
// it, and prints the longest time for which the event loop did not turn meanwhile.

#include <QApplication>
#include <QTimer>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "app/AppDelegate.h"
#include "app/ClipList.h"
#include "app/Shell.h"
#include "app/StorageNames.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kEntries = 100'000;
constexpr std::size_t kBytesOfEntry = 200;  // with its terminator

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

[[noreturn]] void giveUp(const std::string &why) {
    std::fprintf(stderr, "accounts_benchmark: %s\n", why.c_str());
    std::exit(1);
}

// Says "Yes" and "OK" to everything, and remembers what was said last.
class YesToAll : public Alerts {
  public:
    int run(const QString &, const QString &message, const QStringList &, int) override {
        last = message;
        return 0;
    }
    QString last;
};

class NoNotifications : public UserNotifications {
  public:
    void deliver(const QString &, const QString &) override {}
};

class NoWorkspace : public Workspace {
  public:
    bool openURL(const QUrl &) override { return false; }
};

class Desk {
  public:
    Desk(const std::string &host, int port) {
        defaults_.setObject(QStringLiteral("YES"), QStringLiteral("kIsNotFirstUse"));
        Configuration configuration;
        configuration.storageHost = host;
        configuration.storagePort = port;
        delegate_ = std::make_unique<AppDelegate>(
            Shell{ui_, gate_, background_, waiting_, alerts_, pasteboard_, defaults_, notifications_,
                  workspace_, loginItem_, configuration, std::getenv("HOME"), [](std::stop_token) {
                      return PersonalStorage::Result{std::nullopt, "not wanted"};
                  }});
        gate_.enter([this] { delegate_->applicationDidFinishLaunching(); });
        if (!delegate_->UploadDidFinish) giveUp("the storage server does not answer");
    }
    ~Desk() { background_.waitForAll(); }

    Interface &i() { return delegate_->interface; }

    // From a click until all that it has started has ended.
    double time(const std::function<void()> &click) {
        const Clock::time_point start = Clock::now();
        click();
        background_.waitForAll();
        return secondsSince(start);
    }
    double step(const char *name, const std::function<void()> &click, const QString &said) {
        alerts_.last.clear();
        const double seconds = time(click);
        if (alerts_.last != said) giveUp(std::string(name) + ": " + alerts_.last.toStdString());
        std::printf("%s %.6f\n", name, seconds);
        return seconds;
    }

    double signUp(const char *user) {
        for (QLineEdit *field : {i().Sign_up_Fullname, i().Sign_up_username})
            field->setText(QLatin1String(user));
        for (QLineEdit *field : {i().Sign_up_password, i().Sign_up_re_password})
            field->setText(QStringLiteral("secret"));
        i().Sign_up_email->setText(QStringLiteral("a@b.c"));
        return step(
            "sign-up", [this] { i().Sign_up_done->click(); },
            QStringLiteral("You have successfully been registred as Quillery member."));
    }
    double signIn(const char *user) {
        i().Sign_in_username->setText(QLatin1String(user));
        i().Sign_in_password->setText(QStringLiteral("secret"));
        const double seconds = step(
            "sign-in", [this] { i().Sign_in_done->click(); }, QString());
        if (!delegate_->isSigned_in) giveUp("the user is not signed in");
        return seconds;
    }
    bool put(const std::string &name, const std::string &text) {
        return delegate_->MyFTPManager->uploadData(text, name, &delegate_->Quillery_Server);
    }
    void pick(const std::string &text) { Q_EMIT i().Clipboard_saved_string_combobox->picked(0, text); }

  private:
    UiThread ui_;
    ActionGate gate_;
    BackgroundTasks background_{ui_};
    Waiting waiting_{ui_};
    YesToAll alerts_;
    DesktopPasteboard pasteboard_{ui_, waiting_};
    UserDefaults defaults_;
    NoNotifications notifications_;
    NoWorkspace workspace_;
    const LoginItem loginItem_{"/usr/bin/quillery"};
    std::unique_ptr<AppDelegate> delegate_;
};

void runSteps(Desk &desk) {
    desk.signUp("alice1");
    desk.signIn("alice1");
    const std::string end(ClipList::kEntryTerminator);
    if (!desk.put(StorageNames::clipList("alice1"), "abc" + end) ||
        !desk.put(StorageNames::clipList("bobby1"), "x" + end) ||
        !desk.put(StorageNames::contacts("alice1"), "bobby1" + end))
        giveUp("the server takes no file");
    desk.step(
        "open-list", [&] { desk.i().Clipboard_saves_menu_item->trigger(); }, QString());
    if (desk.i().Clipboard_saved_string_combobox->numberOfItems() != 2) giveUp("the list is not there");
    desk.i().Share_switch->click();
    desk.step(
        "share",
        [&] {
            desk.pick("abc");
            TableView &table = *desk.i().Contacts_table;
            table.setCurrentIndex(table.model()->index(0, 0));
            Q_EMIT table.action();
        },
        QStringLiteral("You have successfull share \"abc\" with \"bobby1\""));
}

void measureHold(Desk &desk) {
    desk.signUp("alice1");
    desk.signIn("alice1");
    std::string entry(kBytesOfEntry - ClipList::kEntryTerminator.size(), 'x');
    entry += ClipList::kEntryTerminator;
    std::string list;
    for (std::size_t k = 0; k < kEntries; ++k) list += entry;
    if (!desk.put(StorageNames::clipList("alice1"), list)) giveUp("the server takes no list");

    Clock::time_point lastTurn = Clock::now();
    double longest = 0;
    QTimer heartbeat;
    QObject::connect(&heartbeat, &QTimer::timeout, [&] {
        longest = std::max(longest, secondsSince(lastTurn));
        lastTurn = Clock::now();
    });
    heartbeat.start(0);
    desk.step(
        "open-large-list", [&] { desk.i().Clipboard_saves_menu_item->trigger(); }, QString());
    longest = std::max(longest, secondsSince(lastTurn));  // the fill is the end of it
    if (desk.i().Clipboard_saved_string_combobox->numberOfItems() != kEntries + 1)
        giveUp("the list is not there");
    std::printf("held %.6f\n", longest);
}

}  // namespace

int main(int argc, char **argv) {
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    if (argc != 4) return 2;
    Desk desk(argv[1], std::atoi(argv[2]));
    if (argv[3] == std::string("steps")) {
        runSteps(desk);
    } else {
        measureHold(desk);
    }
    return 0;
}
