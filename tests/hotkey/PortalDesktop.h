#pragma once

#include <QDBusConnection>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>
#include <optional>

/// What a desktop was asked for.
struct AskedShortcut {
    QString session, id, description, trigger;
};

/// A Wayland desktop for the environment of this process: a session bus of its own, on which nothing starts
/// by itself, the real xdg-desktop-portal, and behind it the test in the place of the desktop and its user.
/// One for the process, which remembers the bus that it saw first.
class PortalDesktop {
  public:
    enum Answer { kYes = 0, kNo = 1, kFailure = 2, kNothingChosen = 3, kNotYet = 99 };

    PortalDesktop();
    ~PortalDesktop();

    /// Begins anew, with a portal.
    void restart();
    /// Starts and ends the portal; without shortcuts it is one that has no backend for them.
    void startPortal(bool withShortcuts = true);
    void endPortal();
    /// Halts the portal, or lets it go on.
    void setHung(bool isHung);
    /// Ends the session bus, for good.
    void endBus();

    void answerWith(Answer answer) { tell("AnswerWith", {answer}); }
    void answerOpenQuestions(Answer answer) { tell("AnswerOpenQuestions", {answer}); }
    /// Waits for so many shortcuts to have been asked for since the start, and gives the last.
    std::optional<AskedShortcut> asked(int count);
    int openSessions() { return tell("OpenSessions").toInt(); }
    void press(const AskedShortcut &shortcut) { tell("Press", {shortcut.session, shortcut.id}); }
    void release(const AskedShortcut &shortcut) { tell("Release", {shortcut.session, shortcut.id}); }
    void closeSession(const AskedShortcut &shortcut) { tell("CloseSession", {shortcut.session}); }

  private:
    QVariant tell(const QString &method, const QVariantList &arguments = {});
    bool waitForService(const QString &service, bool isThere);
    std::unique_ptr<QProcess> started(const QString &program, const QStringList &arguments = {});

    QTemporaryDir folder_;
    std::unique_ptr<QProcess> bus_, backEnd_, portal_;
    std::optional<QDBusConnection> connection_;
};
