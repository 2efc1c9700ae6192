#pragma once

#include <gtest/gtest.h>

#include <QLineEdit>
#include <QPushButton>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/AppDelegate.h"
#include "app/Shell.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/WaitFor.h"

// An alert that the test expects, with its answer. A message that ends in "*" may go on.
struct Alert {
    QString title, message;
    int answer = 0;
    std::function<void()> during = {};  // runs while the alert is up
};
using Said = std::vector<Alert>;

// One that comes unexpected, or in another order, fails the test.
class ExpectedAlerts : public Alerts {
  public:
    void expect(const Said &said) { expected_.insert(expected_.end(), said.begin(), said.end()); }
    int run(const QString &title, const QString &message, const QStringList &buttons,
            int defaultButton) override;
    std::size_t outstanding() const { return expected_.size(); }
    int defaultButton = 0;  // of the last one

  private:
    std::deque<Alert> expected_;
};

class RecordedNotifications : public UserNotifications {
  public:
    void deliver(const QString &title, const QString &informativeText) override {
        texts << title + u'|' + informativeText;
        if (onDeliver) onDeliver(informativeText);
    }
    QStringList texts;
    std::function<void(const QString &)> onDeliver;
};

struct NoWorkspace : Workspace {
    bool openURL(const QUrl &) override { return true; }
};

// The real controller with its real windows and the real clipboard. Its server is a real personal storage of
// the test's own, or the scripted one from useScriptedServer() on.
class ControllerTest : public testing::Test {
  protected:
    explicit ControllerTest(std::chrono::milliseconds patience = Waiting::kPatience);
    ~ControllerTest() override;

    void set(const char *key, const QString &value) { defaults.setObject(value, QLatin1String(key)); }
    QString stored(const char *key) const {
        return defaults.objectForKey(QLatin1String(key)).value_or("(absent)");
    }
    // The settings of a user who is signed in automatically.
    void setAutoLogin(const QString &user);
    // A new one, which has nothing yet.
    void useScriptedServer(Faults faults = {});

    // Makes a controller and runs the whole start-up.
    AppDelegate &start();
    void enter(const std::function<void()> &action) { gate.enter(action); }
    void copy(const std::string &text) { ASSERT_TRUE(pasteboard.setString(text)); }
    void save(const std::string &text);
    std::string clipboard() { return pasteboard.stringForType().text; }
    // Ends once no background operation is running.
    void settle() { background.waitForAll(); }
    void openList() { i().Clipboard_saves_menu_item->trigger(); }
    void pick(int index);

    // Each fills in its form and sends it.
    void signUp(const QString &user, const QString &password = "secret");
    void signIn(const QString &user, const QString &password = "secret");
    void changePassword(const QString &old, const QString &next, const QString &again);
    void addFriend(const QString &name);
    // Picks that row of the friends that are on the screen, with the keyboard.
    void pickFriend(int row = 0);

    // Plays a scenario, a line for each step: "! title: message", an alert that is to come, with " => 1" for
    // any answer but the first; or "action arguments", and behind " -> " what holds when nothing is running
    // any more, "what=value; what=value". The actions are in act(), what can be seen in see(). "|" stands
    // for the terminator of a list's entry, "\n" and "\r" for these characters, "-" for no text at all.
    void play(const char *scenario);
    virtual void act(const QString &line);
    virtual QString see(const QString &what);

    Interface &i() { return delegate->interface; }
    ListControl &list() { return *i().Clipboard_saved_string_combobox; }
    QWidget *shownView() { return i().Quillery_Box->contentView(); }
    std::vector<std::string> items();
    std::vector<std::string> friends();

    std::filesystem::path localPath() const { return home / "Documents" / ".Quillery.txt"; }
    std::optional<std::string> local() const { return FileManager().textAtPath(localPath()).text; }
    void putLocal(const std::string &bytes) const;
    // A file of the server's; without a text there is none.
    std::optional<std::string> remote(const std::string &name) const;
    void putRemote(const std::string &name, const std::optional<std::string> &bytes) const;
    void putAccount(const std::string &user, const std::string &password = "secret") const;
    // The copies of lists that might have been lost.
    std::vector<std::string> copies() const;

    std::filesystem::path home;
    const std::filesystem::path htdocs, rescued;
    QStringList answers;  // to other processes' requests: their statuses, and words
    UiThread ui;
    ActionGate gate;
    BackgroundTasks background{ui};
    Waiting waiting;
    ExpectedAlerts alerts;
    DesktopPasteboard pasteboard{ui, waiting};
    UserDefaults defaults;
    RecordedNotifications notifications;
    NoWorkspace workspace;
    const LoginItem loginItem{"/opt/quillery"};
    Configuration configuration;
    std::unique_ptr<ScriptedFtpServer> server;  // null where it is the personal storage
    std::unique_ptr<AppDelegate> delegate;
};

inline const std::string kEnd = "\n-CLIPBOARD'S END-\n";
using Items = std::vector<std::string>;

inline const Alert kEmptyClipboard{"Error!", "Your clipboard is empty."};
inline const Alert kExists{"Error!", "Text does exist in the list."};
inline const Alert kNoFriends{"Alert!", "You have no firends in the list"};
inline const Alert kUnsaved{"Error!", "Server/Internet connection error.\nUnable to save text."};
inline const Alert kRegistered{"Success!", "You have successfully been registred as Quillery member."};
inline const Alert kNotRegistered{
    "Faild!", "You haven't been registred as Quillery member,duo to Error or internet connection problem."};
inline const Alert kPasswordChanged{"Success!", "You've successfully changed your password!"};
inline const Alert kNobody{"Error!", "There is no user with this username"};
inline const Alert kWrongFriend{"Error!", "Wrong contact username."};
inline const Alert kQuit{"Alert!", "Are you sure you want to quit?"};
inline Alert friendAdded(const QString &name) {
    return {"Success!", QStringLiteral("You have successfully added \"%1\" to your friends list").arg(name)};
}
inline Alert shared(const QString &text, const QString &name) {
    return {"Success!", QStringLiteral("You have successfull share \"%1\" with \"%2\"").arg(text, name)};
}
