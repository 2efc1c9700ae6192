#include <QSignalBlocker>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <utility>

#include "app/AppDelegate.h"
#include "app/ClipList.h"
#include "app/StorageNames.h"
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

// ---- Saving the clipboard ----

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

// ---- Loading ----

void AppDelegate::Clipboard_saves(QObject *) {
    if (isSigned_in) {
        ClipBoard_saves_Cloud();
    } else {
        finishLocalSaves();
        ClipBoard_saves_local();
    }
}

void AppDelegate::ClipBoard_saves_local() {
    interface.Quillery_Box->setContentView(interface.List_View);
    orderFront(*interface.Quillery_window);
    const LocalList::Reading local = readLocalList();
    fillSavedList(Content_of_quillery_file_Local, ListPlace::kThisComputer);
    // A list that is no text is told of when it is set aside. Of any other the texts may be there yet.
    if (local.state == FileText::State::kUnreadable)
        alert(tr("Error!"), tr("The list in %1 could not be read: %2")
                                .arg(QString::fromStdString(Content_file_path.string()),
                                     QString::fromStdString(local.problem)));
}

LocalList::Reading AppDelegate::readLocalList() {
    LocalList::Reading local = localList_.read(Content_file_path);
    Content_of_quillery_file_Local = local.text;
    if (!local.problem.empty())
        std::fprintf(stderr, "Quillery: %s could not be read: %s\n", Content_file_path.c_str(),
                     local.problem.c_str());
    return local;
}

// Another program of the user's may be changing the list, and is waited for.
LocalList::Change AppDelegate::changeLocalList(const std::function<LocalList::Change()> &change) {
    const LocalList::Change changed =
        shell_.waiting.run(tr("Writing the list…"), [&change](const std::stop_token &) { return change(); });
    tellOfSetAside(localListPath(), changed);
    return changed;
}

// Any thread; waits for nothing.
void AppDelegate::tellOfSetAside(const std::filesystem::path &path, const LocalList::Change &change) {
    if (!change.setAside) return;
    if (change.lastKnown) rescued_.keepBytes(path.filename().string(), *change.lastKnown);
    const QString message =
        tr("The list in %1 is no text, and was not changed. It is now kept as %2.")
            .arg(QString::fromStdString(path.string()), QString::fromStdString(change.setAside->string()));
    shell_.ui.post(
        [this, message] { shell_.gate.enterProgram([this, message] { showAlert(tr("Error!"), message); }); });
}

void AppDelegate::ClipBoard_saves_Cloud() {
    const auto file = storage_->list(clipListName());
    const QString reading = tr("Reading your list from the storage server…");
    const bool isThere = read(file, reading) != nullptr;
    interface.Quillery_Box->setContentView(interface.List_View);
    orderFront(*interface.Quillery_window);
    if (!isThere) {
        lookForAccountList();
        return;
    }
    Content_of_quillery_file_Server = read(file, reading);
    fillSavedList(Content_of_quillery_file_Server, ListPlace::kAccount);
}

void AppDelegate::fillSavedList(const std::shared_ptr<const std::string> &text, ListPlace place) {
    ListControl &list = *interface.Clipboard_saved_string_combobox;
    list.removeAllItems();
    if (text) list.addItems(text, ClipList::componentsSeparatedByTerminator(*text));
    showListPlace(place);
}

void AppDelegate::showListPlace(ListPlace place) {
    interface.List_place->setText(place == ListPlace::kThisComputer ? tr("On this computer")
                                  : storage_->isPersonal()
                                      ? tr("In your account on this computer")
                                      : tr("In your account on %1").arg(toQString(storage_->host())));
    interface.keepLocalList->hide();
}

void AppDelegate::Sync_local_with_cloud() {
    const auto file = shell_.ui.run([this] { return storage_->list(clipListName()); });
    if (!shell_.ui.isCurrent()) {
        putLocalListInto(*file);
    } else {
        shell_.waiting.run(tr("Copying this computer's list into your account"),
                           [this, file](const std::stop_token &) { return putLocalListInto(*file); });
    }
}

bool AppDelegate::putLocalListInto(ServerFile &file) {
    const LocalList::Reading local = localList_.read(shell_.ui.run([this] { return localListPath(); }));
    const bool uploaded = local.text && file.replace(*local.text);
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
    return uploaded;
}

// An account that has no list yet is offered the texts of this computer. The server is asked: a read may have
// failed for any reason.
void AppDelegate::lookForAccountList() {
    interface.keepLocalList->hide();
    performInBackground(
        {}, [this, file = storage_->list(clipListName()), user = Username, stop = quits_.get_token()] {
            const bool isMissing = file->exists(stop) == false;
            shell_.ui.run([&] {
                if (isMissing && isSigned_in && Username == user)
                    interface.keepLocalList->setVisible(numberOfLocalTexts() > 0);
            });
        });
}

std::size_t AppDelegate::numberOfLocalTexts() {
    const LocalList::Reading local = localList_.read(localListPath());
    if (!local.text) return 0;
    const auto pieces = ClipList::componentsSeparatedByTerminator(*local.text);
    return static_cast<std::size_t>(
        std::ranges::count_if(pieces, [](std::string_view piece) { return !piece.empty(); }));
}

void AppDelegate::keepLocalList(QObject *) {
    const int texts = static_cast<int>(numberOfLocalTexts());
    const QString question =
        texts == 1
            ? tr("Keep the one text of this computer's list in your account? It stays on this computer as "
                 "well.")
            : tr("Keep the %1 texts of this computer's list in your account? They stay on this computer "
                 "as well.")
                  .arg(texts);
    if (alert(tr("Sure?"), question, {tr("Yes"), tr("No")}) != 0) return;
    interface.keepLocalList->hide();
    performInBackground(tr("Copying this computer's list into your account"),
                        [this, file = storage_->list(clipListName()), user = Username] {
                            // It may have come meanwhile, from another machine or a friend.
                            const bool isMissing = file->exists() == false;
                            const bool isKept = isMissing && putLocalListInto(*file);
                            file->release();
                            actFromBackground([&] { showKeptList(user, isKept); });
                        });
}

void AppDelegate::showKeptList(const std::optional<std::string> &user, bool isKept) {
    if (!isKept) {
        showAlert(tr("Error!"), tr("Server/Internet connection error.\nUnable to save text."));
    } else if (isSigned_in && Username == user && interface.List_View->isVisible()) {
        ClipBoard_saves_Cloud();
    }
}

// ---- Picking ----

void AppDelegate::Clipboard_combox(QWidget *sender) {
    if (!isSigned_in) finishLocalSaves();
    if (RemoveMode_enabled) {
        removePickedItem();
    } else if (ShareMode_enabled) {
        sharePickedItem();
    } else if (Read_Local_mode) {
        makePickedItemAvailableOffline();
    } else {
        copyPickedItem(sender);
    }
}

void AppDelegate::removePickedItem() {
    ListControl &list = *interface.Clipboard_saved_string_combobox;
    if (list.stringValue().empty()) {
        alert(tr("Error!"), tr("You cannot remove that item."));
        return;
    }
    if (isSigned_in) {
        // What is picked now is meant: the list may look otherwise when the server has answered.
        performInBackground(
            tr("Removing “%1”").arg(oneLine(list.stringValue(), kLongestMention)),
            [this, index = list.indexOfSelectedItem(), text = list.stringValue(),
             file = storage_->list(clipListName())] { Upload_after_removing_action(index, text, *file); });
        return;
    }
    list.removeItemAtIndex(list.indexOfSelectedItem());
    const auto path = localListPath();
    tellUnlessWritten(path,
                      changeLocalList([&] { return localList_.remove(path, list.stringValue()); }).problem);
}

void AppDelegate::Upload_after_removing_action(int index, const std::string &removed, ServerFile &file) {
    const auto text = file.read();
    shell_.ui.run([&] { removeFromControl(index, removed); });
    const bool uploaded = text && file.replace(ClipList::withoutEntry(*text, removed));
    file.release();
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
    if (!uploaded)
        alertFromBackground(tr("Error!"), tr("Server/Internet connection error.\nUnable to save text."));
}

// Item `index`, or the nearest one with that text if the list has changed since the pick.
void AppDelegate::removeFromControl(int index, const std::string &text) {
    ListControl &list = *interface.Clipboard_saved_string_combobox;
    list.removeItemAtIndex(list.indexOfItem(text, index));
}

void AppDelegate::sharePickedItem() {
    if (interface.Clipboard_saved_string_combobox->stringValue().empty()) {
        alert(tr("Error!"), tr("Empty space"));
        return;
    }
    const auto file = storage_->list(StorageNames::contacts(Username.value_or("")));
    const QString reading = tr("Reading your friends from the storage server…");
    if (const auto contacts = read(file, reading); !contacts || contacts->empty()) {
        file->release();
        alert(tr("Alert!"), tr("You have no firends in the list"));
        return;
    }
    setContacts(read(file, reading));
    interface.showContactsToPick();
    showContactMode();
}

void AppDelegate::makePickedItemAvailableOffline() {
    const auto path = localListPath();
    const std::string picked = interface.Clipboard_saved_string_combobox->stringValue();
    const LocalList::Change change = changeLocalList([&] { return localList_.addUnlessThere(path, picked); });
    tellUnlessWritten(path, change.problem);
    if (change.old && !change.isWritten && change.problem.empty())
        alert(tr("Error!"), tr("Text does exist in the list."));
}

void AppDelegate::copyPickedItem(QWidget *sender) {
    const std::string &picked = interface.Clipboard_saved_string_combobox->stringValue();
    if (picked.empty()) {
        alert(tr("Error!"), tr("Empty space"));
        return;
    }
    const bool isOnClipboard = writeToPasteBoard(picked);
    interface.quickViewHeading->setText(
        isOnClipboard ? tr("On the clipboard now:") : tr("The desktop did not take this for the clipboard:"));
    interface.QuickView_label->setString(toQString(picked));
    interface.fitQuickViewToText();
    interface.QuickView_popover->showRelativeTo(sender, Popover::Edge::kMaxY);
}

bool AppDelegate::writeToPasteBoard(const std::string &text) {
    return shell_.generalPasteboard.setString(text);
}

std::filesystem::path AppDelegate::localListPath() const {
    return StorageNames::localClipList(shell_.home);
}

std::string AppDelegate::clipListName() const {
    return StorageNames::clipList(Username.value_or(""));
}

// A list that silently stays what it was would look like a lost or undead text.
void AppDelegate::tellUnlessWritten(const std::filesystem::path &path, const std::string &problem) {
    if (problem.empty()) return;
    std::fprintf(stderr, "Quillery: %s could not be written: %s\n", path.c_str(), problem.c_str());
    alert(tr("Error!"), tr("The list could not be written to %1: %2")
                            .arg(QString::fromStdString(path.string()), QString::fromStdString(problem)));
}

// ---- Modes ----

void AppDelegate::Remove_item_switch(QObject *) {
    if (RemoveMode_enabled) {
        RemoveMode_enabled = false;
        interface.Remove_item_label->setText(tr("Remove item"));
        interface.Clipboard_saved_string_combobox->setPlaceholderString(tr("Tab to copy to clipboard"));
    } else {
        RemoveMode_enabled = true;
        interface.Clipboard_saved_string_combobox->setPlaceholderString(tr("Tab to remove item"));
        interface.Remove_item_label->setText(tr("Done"));
        Read_Local_mode = false;
        ShareMode_enabled = false;
        interface.Make_available_offline_label->setText(tr("Make available offline"));
        interface.Share_label->setText(tr("Share"));
    }
    showModes();
}

void AppDelegate::Share_mode_switch(QObject *) {
    if (ShareMode_enabled) {
        ShareMode_enabled = false;
        interface.Share_label->setText(tr("Share"));
    } else {
        ShareMode_enabled = true;
        interface.Share_label->setText(tr("Done"));
        interface.Remove_item_label->setText(tr("Remove Item"));
        interface.Make_available_offline_label->setText(tr("Make available offline"));
        Read_Local_mode = false;
        RemoveMode_enabled = false;
    }
    showModes();
}

void AppDelegate::Read_local_button(QObject *) {
    if (Read_Local_mode) {
        Read_Local_mode = false;
        interface.Clipboard_saved_string_combobox->setPlaceholderString(tr("Tab to copy to the clipboard"));
        interface.Make_available_offline_label->setText(tr("Make available offline"));
    } else {
        Read_Local_mode = true;
        interface.Clipboard_saved_string_combobox->setPlaceholderString(tr("Tab to make available offline"));
        interface.Make_available_offline_label->setText(tr("Done"));
        interface.Remove_item_label->setText(tr("Remove item"));
        RemoveMode_enabled = false;
        ShareMode_enabled = false;
        interface.Share_label->setText(tr("Share"));
    }
    showModes();
}

// ---- Cleaning ----

void AppDelegate::Clean_list(QObject *) {
    if (alert(tr("Sure?"), tr("Are you sure,you want to clean your list?"), {tr("Yes"), tr("No")}, 1) != 0)
        return;
    finishLocalSaves();
    Content_file_path = localListPath();
    interface.Clipboard_saved_string_combobox->removeAllItems();
    const std::string problem = changeLocalList([&] { return localList_.empty(Content_file_path); }).problem;
    if (isSigned_in) {
        performInBackground(tr("Emptying your list"),
                            [this, file = storage_->list(clipListName())] { Clean_server_file(*file); });
    }
    readLocalList();
    fillSavedList(Content_of_quillery_file_Local,
                  isSigned_in ? ListPlace::kAccount : ListPlace::kThisComputer);
    if (!problem.empty()) {
        std::fprintf(stderr, "Quillery: %s could not be written: %s\n", Content_file_path.c_str(),
                     problem.c_str());
        interface.notificationBanner->present(tr("The list was not emptied"),
                                              QString::fromStdString(problem));
    }
    alert(tr("Success!"), tr("You've successfully cleaned your list."));
}

void AppDelegate::Clean_server_file(ServerFile &file) {
    const bool uploaded = file.replace({});
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
}

// A toggle looks on exactly while its mode is on, and the line above it says what a pick will do.
void AppDelegate::showModes() {
    const auto show = [](QAbstractButton &toggle, bool isOn) {
        const QSignalBlocker notTheUser(toggle);
        toggle.setChecked(isOn);
    };
    show(*interface.RemoveItem_button, RemoveMode_enabled);
    show(*interface.Share_switch, ShareMode_enabled);
    show(*interface.Read_local_button, Read_Local_mode);
    showModeHint();
}

// What a pick will do has to be seen before it is done.
void AppDelegate::showModeHint() {
    const auto [text, colour] = [this]() -> std::pair<QString, const char *> {
        if (RemoveMode_enabled) return {tr("A pick removes the text from the list."), "#c0392b"};
        if (ShareMode_enabled) return {tr("A pick sends the text to a friend."), "#2471a3"};
        if (Read_Local_mode) return {tr("A pick copies the text into the list on this machine."), "#1e8449"};
        return {tr("A pick puts the text on the clipboard."), nullptr};
    }();
    interface.Mode_hint->setText(text);
    interface.Mode_hint->setStyleSheet(
        colour ? QStringLiteral(
                     "background: %1; color: white; font-weight: bold; border-radius: 3px; padding: 4px;")
                     .arg(QLatin1String(colour))
               : QStringLiteral("padding: 4px 0;"));
}
