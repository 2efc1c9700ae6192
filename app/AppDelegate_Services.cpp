#include <QApplication>
#include <QUrl>
#include <new>
#include <utility>

#include "app/AppDelegate.h"
#include "app/StorageNames.h"
#include "platform/Text.h"

// What the operations ask of the server, of the settings and of the user.

std::shared_ptr<const std::string> AppDelegate::read(const std::shared_ptr<ServerFile> &file,
                                                     const QString &whatFor) {
    return shell_.waiting.run(whatFor, [file](const std::stop_token &stop) { return file->read(stop); });
}

std::optional<std::string> AppDelegate::serverText(const std::string &name, const QString &whatFor) {
    const auto text = read(storage_->file(name), whatFor);
    return text ? std::optional(*text) : std::nullopt;
}

void AppDelegate::performInBackground(const QString &what, std::function<void()> work) {
    const auto entry = unfinished_.insert(unfinished_.end(), what);
    shell_.background.performSelectorInBackground([this, entry, work = std::move(work)]() mutable {
        try {
            work();
        } catch (const std::bad_alloc &) {
            work = nullptr;  // it holds a file of the server, which others wait for
            alertFromBackground(tr("Error!"), tr("There is not enough memory for this."));
        }
        shell_.ui.post([this, entry] { unfinished_.erase(entry); });
    });
}

int AppDelegate::alert(const QString &title, const QString &message, const QStringList &buttons,
                       int defaultButton) {
    // Nobody is to be kept from ending the session by a question, and what was given up needs no excuse.
    if (isEnding_ || isQuitting_) return static_cast<int>(buttons.size()) - 1;
    return showAlert(title, message, buttons, defaultButton);
}

int AppDelegate::showAlert(const QString &title, const QString &message, const QStringList &buttons,
                           int defaultButton) {
    if (isEnding_) return static_cast<int>(buttons.size()) - 1;
    refuseWaitingRequests(isBusyWithAlert());
    return shell_.alerts.run(title, message, buttons, defaultButton);
}

void AppDelegate::actFromBackground(const std::function<void()> &action) {
    std::promise<void> done;
    shell_.ui.post([&] {
        shell_.gate.enterProgram([&] {
            action();
            done.set_value();
        });
    });
    done.get_future().wait();
}

void AppDelegate::alertFromBackground(const QString &title, const QString &message) {
    actFromBackground([&] { showAlert(title, message); });
}

void AppDelegate::log(const std::string &line) {
    std::fprintf(stderr, "Quillery: %s\n", line.c_str());
}

// Not an alert: the texts are safe, and what was asked for goes on.
void AppDelegate::tellOfRescue(const std::filesystem::path &copy, RescuedLists::Reason reason) {
    std::fprintf(stderr, "Quillery: texts are kept in %s.\n", copy.c_str());
    const QString what = [reason] {
        switch (reason) {
            case RescuedLists::Reason::kNotRead:
                return tr(
                    "A list could not be read before it was written anew. The last texts that are known "
                    "of it are kept in %1.");
            case RescuedLists::Reason::kSetAside:
                return tr(
                    "A list could not be read before it was written anew. As it was, it lies on the storage "
                    "server; a file in %1 says where.");
            case RescuedLists::Reason::kNotWritten:
                return tr(
                    "A list could not be written to the storage server. What is known of it, and the texts "
                    "that did not get there, are kept in %1.");
            case RescuedLists::Reason::kCutShort:
                break;
        }
        return tr("Quillery ended before all texts were in their lists. The others are kept in %1.");
    }();
    const QString text =
        what.arg(shortPath(rescued_.folder())) + u'\n' + tr("Click here to open the folder.");
    shell_.ui.post([this, text] {
        interface.notificationBanner->present(tr("A copy was kept"), text, [this] {
            shell_.gate.enter([this] { openRescuedLists(nullptr); });
        });
    });
}

void AppDelegate::openRescuedLists(QObject *) {
    std::error_code ignored;
    std::filesystem::create_directories(rescued_.folder(), ignored);
    shell_.sharedWorkspace.openURL(QUrl::fromLocalFile(QString::fromStdString(rescued_.folder().string())));
}

std::optional<QString> AppDelegate::setting(const char *key) const {
    return shell_.standardUserDefaults.objectForKey(QLatin1String(key));
}

void AppDelegate::storeSetting(const char *key, const QString &value) {
    shell_.standardUserDefaults.setObject(value, QLatin1String(key));
    shell_.standardUserDefaults.synchronize();
}

bool AppDelegate::settingIs(const char *key, const char *value) const {
    return setting(key) == QLatin1String(value);
}
