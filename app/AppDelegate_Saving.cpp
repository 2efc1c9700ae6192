#include <chrono>
#include <cstdio>
#include <exception>
#include <utility>

#include "app/AppDelegate.h"
#include "app/ClipList.h"
#include "platform/Text.h"

namespace {

template <class Result>
bool isReady(const std::shared_future<Result> &event) {
    return event.wait_for(std::chrono::seconds::zero()) == std::future_status::ready;
}

// False if the save ended without one.
bool isTaken(const std::shared_future<void> &text) {
    try {
        if (isReady(text)) text.get();
        return true;
    } catch (const std::future_error &) {
        return false;
    }
}

}  // namespace

template <class Result>
void AppDelegate::waitFor(const std::shared_future<Result> &event, const QString &whatFor) {
    using namespace std::chrono_literals;
    if (isReady(event)) return;
    shell_.waiting.run(whatFor, [event](const std::stop_token &stop) {
        while (event.wait_for(20ms) != std::future_status::ready && !stop.stop_requested()) {
        }
        return true;
    });
}

void AppDelegate::Save_bar_item(const VkKeyEvent &) {
    shell_.gate.enter([this, copied = copiedTextIfBusy()] { saveClipboard(copied, {}); });
}

void AppDelegate::Save_bar_item(QObject *) {
    saveClipboard({}, {});
}

// What is on the clipboard when a save is asked for is meant, however long its turn takes to come.
std::shared_future<PasteboardText> AppDelegate::copiedTextIfBusy() {
    if (!shell_.gate.isBusy()) return {};
    const auto copied = std::make_shared<std::promise<PasteboardText>>();
    performInBackground({}, [this, copied, stop = quits_.get_token()] {
        copied->set_value(shell_.generalPasteboard.stringForType(stop));
    });
    return copied->get_future().share();
}

std::shared_future<bool> AppDelegate::saveClipboard(const std::shared_future<PasteboardText> &asked,
                                                    const std::function<void(const QString &why)> &refused) {
    const auto refuse = [&](const QString &why) {
        if (refused) refused(why);
        alert(tr("Error!"), why);
        return std::shared_future<bool>();
    };
    // One text at a time: a second one in this list is announced when the first is on the disk.
    if (!isSigned_in) finishLocalSaves();
    const QString asking = tr("Asking for the copied text…");
    if (asked.valid()) waitFor(asked, asking);
    const PasteboardText copied =
        asked.valid() && isReady(asked) ? asked.get() : shell_.generalPasteboard.stringForType();
    if (const QString why = whyNotRead(copied.state); !why.isEmpty())
        return refuse(why + u' ' + tr("Nothing was saved."));
    if (copied.text.empty()) return refuse(tr("Your clipboard is empty."));
    const bool isShown = isShownInList(copied.text);
    showContactMode();  // the look through the list has picked another text to send
    if (isShown) return refuse(tr("Text does exist in the list."));

    // A user who copies the next text as soon as this one is announced must not replace it in the file: the
    // second look at the clipboard comes before that.
    auto hasText = std::make_shared<std::promise<void>>();
    const auto textIsTaken = hasText->get_future().share();
    std::stop_source noLongerAsking;
    const CopiedText text{copied.text, asked.valid(), noLongerAsking.get_token()};
    const QString what = tr("Saving “%1”").arg(oneLine(copied.text, kLongestMention));
    std::shared_future<bool> saved;
    if (isSigned_in) {
        saved = startSave(what, {}, [this, text, hasText, file = storage_->list(clipListName())] {
            return Save_Clipboard_string_cloud(text, *hasText, *file);
        });
    } else {
        saved = localSaves_ = startSave(
            what, localSaves_, [this, text, hasText] { return Save_Clipboard_string_local(text, *hasText); });
    }
    hasText.reset();
    waitFor(textIsTaken, asking);
    noLongerAsking.request_stop();  // a user who does not wait for it means the text that is known
    if (!isTaken(textIsTaken)) {    // the user is told by the save itself
        if (refused) refused(tr("There is not enough memory for this."));
        return {};
    }
    interface.Clipboard_saved_string_combobox->insertItemWithObjectValue(copied.text, 0);
    shell_.notificationCenter.deliver(
        tr("Success!"), QStringLiteral("You have successully save (\"%1\")").arg(toQString(copied.text)));
    return saved;
}

QString AppDelegate::whyNotRead(PasteboardText::State state) {
    switch (state) {
        case PasteboardText::State::kNoAnswer:
            return tr("The program that the text was copied in does not answer.");
        case PasteboardText::State::kRefused:
            return tr("The program that the text was copied in did not give it.");
        case PasteboardText::State::kTooLarge:
            return tr("The copied text is larger than %1 MiB.").arg(DesktopPasteboard::kLimits.bytes >> 20);
        case PasteboardText::State::kNoAccess:
            return tr("This desktop does not show the clipboard to Quillery while another window is in use.");
        case PasteboardText::State::kText:
        case PasteboardText::State::kNoText:
            break;
    }
    return {};
}

// The control's selection lags one step behind: item 0 is looked at twice. The scan ends at the first empty
// item, and leaves what it looked at last selected.
bool AppDelegate::isShownInList(const std::string &text) {
    ListControl &list = *interface.Clipboard_saved_string_combobox;
    list.selectItemAtIndex(0);
    int i = 0;
    while (!list.stringValue().empty()) {
        if (list.stringValue() == text) return true;
        list.selectItemAtIndex(i);
        ++i;
    }
    return false;
}

// What a background save writes is the clipboard as it is by then. Should it hold no text any more, what the
// user was told about is saved.
std::string AppDelegate::clipboardTextForSaving(const CopiedText &announced) {
    std::string text = announced.text;
    if (!announced.isFinal) {
        PasteboardText copied = shell_.generalPasteboard.stringForType(announced.noLongerAsking);
        if (!copied.text.empty()) text = std::move(copied.text);
    }
    shell_.ui.run([&] { Clipboard_String_content = text; });
    return text;
}

bool AppDelegate::Save_Clipboard_string_cloud(const CopiedText &announced, std::promise<void> &hasText,
                                              ServerFile &file) {
    const std::string text = clipboardTextForSaving(announced);
    file.announce(text);
    hasText.set_value();
    const auto old = file.read();
    shell_.ui.run([&] { Content_of_quillery_file_Server = old; });
    const bool uploaded = file.putInFront(text);
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
    return uploaded;
}

bool AppDelegate::Save_Clipboard_string_local(const CopiedText &announced, std::promise<void> &hasText) {
    const auto path = shell_.ui.run([this] { return Content_file_path = localListPath(); });
    const std::string text = clipboardTextForSaving(announced);
    // The list may be another program's for a while.
    const auto meanwhile =
        rescued_.keepMeanwhile(path.filename().string(), ClipList::withEntryInFront(text, std::nullopt));
    hasText.set_value();

    const LocalList::Change change = localList_.add(path, text);
    shell_.ui.run([&] { Content_of_quillery_file_Local = change.old; });
    tellOfSetAside(path, change);
    rescued_.settle(meanwhile, change.isWritten || reportUnsavedText(text, path, change.problem));
    return change.isWritten;
}

// The user has been told of success by now, so this must not go unseen. Called in the background; waits for
// nobody. Whether a copy is kept.
bool AppDelegate::reportUnsavedText(const std::string &text, const std::filesystem::path &path,
                                    const std::string &why) {
    std::fprintf(stderr, "Quillery: %s could not be written: %s\n", path.c_str(), why.c_str());
    const bool isKept = rescued_.keepEntry(path.filename().string(), text);
    shell_.ui.post([this, text, path, why] {
        shell_.gate.enterProgram([this, text, path, why] {
            // It is not in the list, so saving it again must not be refused.
            ListControl &list = *interface.Clipboard_saved_string_combobox;
            if (list.numberOfItems() > 0 && list.itemAtIndex(0) == text) list.removeItemAtIndex(0);
            showAlert(tr("Error!"), tr("The text \"%1\" could not be saved to %2: %3")
                                        .arg(oneLine(text, 80), QString::fromStdString(path.string()),
                                             QString::fromStdString(why)));
        });
    });
    return isKept;
}

// Starts a save in the background. Its result comes after that of the save `before`, if there is one.
std::shared_future<bool> AppDelegate::startSave(const QString &what, const std::shared_future<bool> &before,
                                                std::function<bool()> save) {
    const auto saved = std::make_shared<std::promise<bool>>();
    performInBackground(what, [before, saved, save = std::move(save)] {
        std::exception_ptr failure;
        bool isSaved = false;
        try {
            isSaved = save();
        } catch (...) {
            failure = std::current_exception();
        }
        if (before.valid()) before.wait();
        saved->set_value(isSaved);
        if (failure) std::rethrow_exception(failure);
    });
    return saved->get_future().share();
}

// Waits until the list on this machine holds what was announced, unless the user cannot wait for it. Never
// for the server: its files have queues of their own.
void AppDelegate::finishLocalSaves() {
    if (localSaves_.valid()) waitFor(localSaves_, tr("Finishing the save before this one…"));
}

void AppDelegate::userNotificationCenter_didActivateNotification(UserNotifications &,
                                                                 const UserNotification &) {
    const PasteboardText copied = shell_.generalPasteboard.stringForType();
    if (const QString why = whyNotRead(copied.state); !why.isEmpty()) {
        alert(tr("Error!"), why);
        return;
    }
    alert(tr("Success!"), QStringLiteral("You have successully save:(\"%1\")").arg(toQString(copied.text)));
}
