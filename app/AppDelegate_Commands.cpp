#include <QApplication>
#include <cstdlib>
#include <utility>

#include "app/AppDelegate.h"
#include "platform/Text.h"

// What other processes ask for, and how the program ends.

void AppDelegate::Quit(QObject *) {
    if (alert(tr("Alert!"), tr("Are you sure you want to quit?"), {tr("Yes"), tr("No")}) == 0) terminate();
}

void AppDelegate::performRequest(const std::string &request, const SingleInstance::Reply &reply) {
    const auto words = [](const QString &text) { return toUtf8(text); };
    if (request == "quit") {
        reply({});
        endSession();  // whoever asks so cannot answer what is on the screen
    } else if (request == "activate") {
        reply({});
        if (QWidget *asking = QApplication::activeModalWidget()) orderFront(*asking);
        shell_.gate.enter([this] { bringToFront(); });
    } else if (!Status_Item) {
        if (!QApplication::activeModalWidget()) orderFront(*interface.Intro_window);
        reply({1, words(tr("Quillery has only just been started: finish its introduction first."))});
    } else if (QWidget *asking = QApplication::activeModalWidget()) {
        orderFront(*asking);
        reply({1, words(tr("Quillery is waiting for an answer to what is on the screen."))});
    } else if (request == "save") {
        shell_.gate.enter([this, reply, words] {
            // Whoever has asked need not wait until the user has answered.
            if (!saveClipboard([&](const QString &why) { reply({1, words(why)}); })) return;
            shell_.background.performSelectorInBackground([this, reply, words, saved = savesInProgress_] {
                const bool isSaved = saved.get();
                shell_.ui.post([=] {
                    reply(isSaved ? SingleInstance::Answer{}
                                  : SingleInstance::Answer{1, words(tr("The text could not be saved."))});
                });
            });
        });
    } else if (request == "list") {
        shell_.gate.enter([this, reply, words] {
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
    quits_.request_stop();
    interface.Quillery_window->close();
    connect(&shell_.background, &BackgroundTasks::ended, this, &AppDelegate::quitWhenDone);
    // A write that was announced is finished first; whoever cannot wait for it may say so.
    QTimer::singleShot(Waiting::kPatience, this, [this] {
        if (shell_.background.running() == 0) return;
        disconnect(interface.waitingWindow.get(), &WaitingWindow::cancelled, nullptr, nullptr);
        connect(interface.waitingWindow.get(), &WaitingWindow::cancelled, this, [] { std::_Exit(1); });
        interface.waitingWindow->showFor(tr("Finishing what is still being saved…"),
                                         tr("Quit Without Saving"), false);
    });
    quitWhenDone();
}

void AppDelegate::endSession() {
    isEnding_ = true;
    shell_.waiting.cancel();
    if (QWidget *alertThatIsUp = QApplication::activeModalWidget()) alertThatIsUp->close();
    terminate();
    quitWhenDone();
}

void AppDelegate::quitWhenDone() {
    const auto quit = [this] {
        if (shell_.background.running() > 0) return;
        disconnect(interface.waitingWindow.get(), &WaitingWindow::cancelled, nullptr, nullptr);
        interface.waitingWindow->hide();
        QCoreApplication::exit(0);  // not quit(), which asks the windows first
    };
    if (shell_.background.running() > 0) return;
    if (isEnding_) {
        quit();
    } else {
        shell_.gate.enter(quit);  // behind alerts that say what could not be saved
    }
}
