#include <QApplication>
#include <cstdlib>
#include <utility>

#include "app/AppDelegate.h"
#include "platform/Text.h"

// What other processes ask for, and how the program ends.

// The question comes at once, also where another action waits for the server: it starts nothing.
void AppDelegate::askToQuit() {
    if (!shell_.gate.isBusy() || QApplication::activeModalWidget()) {
        if (std::exchange(willAskToQuit_, true)) return;
        shell_.gate.enter([this] {
            willAskToQuit_ = false;
            Quit(nullptr);
        });
    } else {
        Quit(nullptr);
    }
}

void AppDelegate::Quit(QObject *) {
    if (alert(tr("Alert!"), tr("Are you sure you want to quit?"), {tr("Yes"), tr("No")}) == 0) terminate();
}

// A request of another process that waits for its turn. It is answered once: by what it asked for, or at once
// where an alert comes first, since an alert may wait for the user for hours.
struct AppDelegate::WaitingRequest {
    SingleInstance::Reply reply;
    bool isTaken = false;
};

void AppDelegate::enterRequest(const SingleInstance::Reply &reply, std::function<void()> action) {
    std::erase_if(waitingRequests_, [](const auto &earlier) { return earlier->isTaken; });
    const auto request = std::make_shared<WaitingRequest>(WaitingRequest{reply});
    waitingRequests_.push_back(request);
    shell_.gate.enter([request, action = std::move(action)] {
        if (!std::exchange(request->isTaken, true)) action();
    });
}

void AppDelegate::refuseWaitingRequests(const SingleInstance::Answer &answer) {
    for (const auto &request : std::exchange(waitingRequests_, {})) {
        if (!std::exchange(request->isTaken, true)) request->reply(answer);
    }
}

SingleInstance::Answer AppDelegate::isEndingNow() {
    return {SingleInstance::Answer::kFailed, toUtf8(tr("Quillery is ending."))};
}

SingleInstance::Answer AppDelegate::isBusyWithAlert() {
    return {SingleInstance::Answer::kFailed,
            toUtf8(tr("Quillery is waiting for an answer to what is on the screen."))};
}

void AppDelegate::performRequest(const std::string &request, const SingleInstance::Reply &reply) {
    const auto words = [](const QString &text) { return toUtf8(text); };
    if (request == "quit") {
        reply({});
        endSession();  // whoever asks so cannot answer what is on the screen
    } else if (isQuitting_) {
        reply(isEndingNow());
    } else if (request == "activate") {
        reply({});
        if (QWidget *asking = QApplication::activeModalWidget()) orderFront(*asking);
        shell_.gate.enter([this] { bringToFront(); });
    } else if (!Status_Item) {
        if (!QApplication::activeModalWidget()) orderFront(*interface.Intro_window);
        reply({1, words(tr("Quillery has only just been started: finish its introduction first."))});
    } else if (QWidget *asking = QApplication::activeModalWidget()) {
        orderFront(*asking);
        reply(isBusyWithAlert());
    } else if (request == "save") {
        enterRequest(reply, [this, reply, words, copied = copiedTextIfBusy()] {
            // Whoever has asked need not wait until the user has answered.
            const auto saved = saveClipboard(copied, [&](const QString &why) { reply({1, words(why)}); });
            if (!saved.valid()) return;
            shell_.background.performSelectorInBackground([this, reply, words, saved] {
                const bool isSaved = saved.get();
                shell_.ui.post([=] {
                    reply(isSaved ? SingleInstance::Answer{}
                                  : SingleInstance::Answer{1, words(tr("The text could not be saved."))});
                });
            });
        });
    } else if (request == "list") {
        enterRequest(reply, [this, reply, words] {
            if (!menu.Clipboard_saves_menu_item.hasAction()) {
                reply({1, words(tr("The saved list is locked: unlock it with the passcode first."))});
                return;
            }
            Clipboard_saves(nullptr);
            reply({});
        });
    } else {
        reply({1, words(tr("The Quillery that runs does not know that command."))});
    }
}

// What a user who starts a program that runs already would look for.
void AppDelegate::bringToFront() {
    if (!Status_Item) {
        orderFront(*interface.Intro_window);
    } else if (!Status_Item->isShown()) {
        showWindowedMode(ScreenPlace::kMiddle);
    } else if (interface.Quillery_window->isVisible()) {
        orderFront(*interface.Quillery_window);
    } else if (menu.Clipboard_saves_menu_item.hasAction()) {
        Clipboard_saves(nullptr);
    } else {
        Unlock_passcode(nullptr);
    }
}

// Not by waiting here: this may run inside an alert or a wait, which has to return before a background
// operation that wants its turn can end.
void AppDelegate::terminate() {
    if (std::exchange(isQuitting_, true)) return;
    shell_.gate.close();
    refuseWaitingRequests(isEndingNow());
    quits_.request_stop();
    shell_.waiting.end();
    interface.Quillery_window->close();
    connect(&shell_.background, &BackgroundTasks::ended, this, &AppDelegate::quitWhenDone);
    // What was announced is finished first; a user who cannot wait for it may say so.
    disconnect(interface.waitingWindow.get(), &WaitingWindow::cancelled, nullptr, nullptr);
    connect(interface.waitingWindow.get(), &WaitingWindow::cancelled, this, &AppDelegate::askToGiveUp);
    QTimer::singleShot(Waiting::kPatience, this, &AppDelegate::showWhatIsUnfinished);
    quitWhenDone();
}

void AppDelegate::showWhatIsUnfinished() {
    if (shell_.background.running() > 0)
        interface.waitingWindow->showFor(tr("Finishing what is still being saved…"),
                                         tr("Quit Without Saving"), false);
}

void AppDelegate::askToGiveUp() {
    if (QApplication::activeModalWidget()) return;  // it is being asked
    QStringList lost(unfinished_.begin(), unfinished_.end());
    lost.removeAll(QString());
    if (lost.isEmpty()) {
        if (!shell_.waiting.isWaiting()) std::_Exit(0);  // only reads, which change nothing
        return;                                          // what the wait was for is about to end
    }
    const QString question = tr("This is not finished, and will not be done if you quit now:\n%1\nTexts that "
                                "are being saved in your "
                                "account stay in %2.")
                                 .arg(lost.join(u'\n'), shortPath(rescued_.folder()));
    // Also where the session ends: the user is there.
    const QStringList answers{tr("Quit Without Saving"), tr("Keep Waiting")};
    if (shell_.alerts.run(tr("Sure?"), question, answers, 1) == 0) std::_Exit(1);
}

void AppDelegate::endSession() {
    isEnding_ = true;
    if (QWidget *alertThatIsUp = QApplication::activeModalWidget()) alertThatIsUp->close();
    terminate();
    quitWhenDone();
}

void AppDelegate::quitWhenDone() {
    const auto quit = [this] {
        if (shell_.background.running() > 0) return;
        interface.waitingWindow->hide();
        QCoreApplication::exit(0);  // not quit(), which asks the windows first
    };
    if (shell_.background.running() > 0) return;
    if (isEnding_) {
        quit();
    } else {
        shell_.gate.enterProgram(quit);  // behind alerts that say what could not be saved
    }
}
