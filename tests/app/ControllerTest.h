#pragma once

#include <gtest/gtest.h>

#include <QStringList>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/AppDelegate.h"
#include "app/Shell.h"
#include "tests/support/WaitFor.h"

// Alerts that the test expects, in order, each with its answer. One that comes unexpected fails the test.
class ExpectedAlerts : public Alerts {
  public:
    // `during` runs while the alert is up.
    void expect(const QString &title, const QString &message, int answer = 0,
                std::function<void()> during = {});
    int run(const QString &title, const QString &message, const QStringList &buttons,
            int defaultButton) override;
    std::size_t outstanding() const { return expected_.size(); }
    int defaultButton = 0;  // of the last one

  private:
    struct Expected {
        QString title, message;
        int answer;
        std::function<void()> during;
    };
    std::deque<Expected> expected_;
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

class RecordedWorkspace : public Workspace {
  public:
    bool openURL(const QUrl &url) override {
        opened << QString::fromLatin1(url.toEncoded());
        return true;
    }
    QStringList opened;
};

// The real controller with its real windows, the real clipboard, and a real personal storage server of the
// test's own.
class ControllerTest : public testing::Test {
  protected:
    ControllerTest();
    ~ControllerTest() override;

    void set(const char *key, const QString &value) { defaults.setObject(value, QLatin1String(key)); }
    // A user who has been through the intro.
    void setNotFirstUse() { set("kIsNotFirstUse", QStringLiteral("YES")); }
    void setAutoLogin(const QString &user);

    // Makes a controller and runs the whole start-up.
    AppDelegate &start();
    void enter(const std::function<void()> &action) { gate.enter(action); }
    void save(const std::string &text);
    void copy(const std::string &text);
    // Ends once no background operation is running.
    void settle() { background.waitForAll(); }
    void pick(int index);
    Interface &i() { return delegate->interface; }
    bool isEnabled(const char *menuItem);

    std::vector<std::string> items() const;
    std::optional<std::string> local() const { return FileManager().textAtPath(localPath()).text; }
    std::filesystem::path localPath() const { return home / "Documents" / ".Quillery.txt"; }
    void putLocal(const std::string &bytes) const;
    std::optional<std::string> remote(const std::string &name) const;
    void putRemote(const std::string &name, const std::string &bytes) const;
    std::string clipboard();

    std::filesystem::path home;
    std::filesystem::path htdocs;
    UiThread ui;
    ActionGate gate;
    BackgroundTasks background{ui};
    Waiting waiting{ui};
    ExpectedAlerts alerts;
    DesktopPasteboard pasteboard{ui, waiting};
    UserDefaults defaults;
    RecordedNotifications notifications;
    RecordedWorkspace workspace;
    const LoginItem loginItem{"/opt/quillery"};
    Configuration configuration;
    std::unique_ptr<AppDelegate> delegate;
};

inline const std::string kEnd = "\n-CLIPBOARD'S END-\n";
using Items = std::vector<std::string>;
