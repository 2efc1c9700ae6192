#include <QSignalBlocker>
#include <chrono>
#include <cstdio>
#include <utility>

#include "app/AppDelegate.h"
#include "app/ClipList.h"
#include "app/StorageNames.h"
#include "platform/Text.h"

// ---- Saving the clipboard ----

template <class Result>
void AppDelegate::waitFor(const std::shared_future<Result> &event, const QString &whatFor) {
    using namespace std::chrono_literals;
    if (event.wait_for(0s) == std::future_status::ready) return;
    shell_.waiting.run(whatFor, [event](const std::stop_token &stop) {
        while (event.wait_for(20ms) != std::future_status::ready && !stop.stop_requested()) {
        }
        return true;
    });
}

void AppDelegate::Save_bar_item(const VkKeyEvent &) {
    shell_.gate.enter([this] { Save_bar_item(static_cast<QObject *>(nullptr)); });
}

void AppDelegate::Save_bar_item(QObject *) {
    saveClipboard({});
}

bool AppDelegate::saveClipboard(const std::function<void(const QString &why)> &refused) {
    const auto refuse = [&](const QString &why) {
        if (refused) refused(why);
        alert(tr("Error!"), why);
        return false;
    };
    finishListUses();
    // One text at a time: a second one in this list is announced when the first is on the disk.
    if (!isSigned_in) finishSaves();
    const PasteboardText copied = shell_.generalPasteboard.stringForType();
    if (copied.state == PasteboardText::State::kNoAnswer)
        return refuse(tr("The program that the text was copied in does not answer. Nothing was saved."));
    if (copied.state == PasteboardText::State::kNoAccess)
        return refuse(
            tr("This desktop does not show the clipboard to Quillery while another window is in use. Nothing "
               "was saved."));
    if (copied.text.empty()) return refuse(tr("Your clipboard is empty."));
    if (isShownInList(copied.text)) return refuse(tr("Text does exist in the list."));
    if (isSigned_in) {
        startSave([this, announced = copied.text, server = server(), name = clipListName()] {
            return Save_Clipboard_string_cloud(announced, server, name);
        });
    } else {
        const auto hasText = std::make_shared<std::promise<void>>();
        startSave([this, announced = copied.text, hasText] {
            return Save_Clipboard_string_local(announced, *hasText);
        });
        // Whoever copies the next text as soon as this one is announced must not replace it in the file.
        waitFor(hasText->get_future().share(), tr("Asking for the copied text…"));
    }
    interface.Clipboard_saved_string_combobox->insertItemWithObjectValue(copied.text, 0);
    shell_.notificationCenter.deliver(
        tr("Success!"), QStringLiteral("You have successully save (\"%1\")").arg(toQString(copied.text)));
    return true;
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
std::string AppDelegate::clipboardTextForSaving(const std::string &announced) {
    const PasteboardText copied = shell_.generalPasteboard.stringForType();
    const std::string &text = copied.text.empty() ? announced : copied.text;
    shell_.ui.run([&] { Clipboard_String_content = text; });
    return text;
}

bool AppDelegate::Save_Clipboard_string_cloud(const std::string &announced, const Server &server,
                                              const std::string &name) {
    const auto read = server.text(name);
    const auto old = read ? std::make_shared<const std::string>(*read) : nullptr;
    shell_.ui.run([&] { Content_of_quillery_file_Server = old; });
    const std::string text = clipboardTextForSaving(announced);
    const bool uploaded = server.upload(ClipList::withEntryInFront(text, read), name);
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
    return uploaded;
}

bool AppDelegate::Save_Clipboard_string_local(const std::string &announced, std::promise<void> &hasText) {
    const auto path = shell_.ui.run([this] { return Content_file_path = localListPath(); });
    const std::string text = clipboardTextForSaving(announced);
    hasText.set_value();

    LocalList::Change change = localList_.add(path, text);
    const auto old = change.old ? std::make_shared<const std::string>(std::move(*change.old)) : nullptr;
    shell_.ui.run([&] { Content_of_quillery_file_Local = old; });
    if (!change.isWritten) reportUnsavedText(text, path, change.problem);
    return change.isWritten;
}

// The user has been told of success by now, so this must not go unseen. Called in the background; waits for
// nobody.
void AppDelegate::reportUnsavedText(const std::string &text, const std::filesystem::path &path,
                                    const std::string &why) {
    std::fprintf(stderr, "Quillery: %s could not be written: %s\n", path.c_str(), why.c_str());
    shell_.ui.post([this, text, path, why] {
        shell_.gate.enter([this, text, path, why] {
            // It is not in the list, so saving it again must not be refused.
            ListControl &list = *interface.Clipboard_saved_string_combobox;
            if (list.numberOfItems() > 0 && list.itemAtIndex(0) == text) list.removeItemAtIndex(0);
            alert(tr("Error!"), tr("The text \"%1\" could not be saved to %2: %3")
                                    .arg(oneLine(text, 80), QString::fromStdString(path.string()),
                                         QString::fromStdString(why)));
        });
    });
}

// Starts a background save that finishSaves() waits for, together with those before it.
void AppDelegate::startSave(std::function<bool()> save) {
    auto saved = std::make_shared<std::promise<bool>>();
    const auto before = std::exchange(savesInProgress_, saved->get_future().share());
    shell_.background.performSelectorInBackground([before, saved, save = std::move(save)] {
        const bool isSaved = save();
        if (before.valid()) before.wait();
        saved->set_value(isSaved);
    });
}

// Waits until what was picked before has been taken from the list control.
void AppDelegate::finishListUses() {
    for (const auto &use : std::exchange(listUses_, {}))
        waitFor(use, tr("Finishing what was picked before this…"));
}

// Waits until the list file holds what was announced, unless the user cannot wait for it.
void AppDelegate::finishSaves() {
    if (savesInProgress_.valid()) waitFor(savesInProgress_, tr("Finishing the save before this one…"));
}

void AppDelegate::userNotificationCenter_didActivateNotification() {
    const PasteboardText copied = shell_.generalPasteboard.stringForType();
    alert(tr("Success!"), QStringLiteral("You have successully save:(\"%1\")").arg(toQString(copied.text)));
}

// ---- Loading ----

void AppDelegate::Clipboard_saves(QObject *) {
    finishListUses();
    finishSaves();
    if (isSigned_in) {
        ClipBoard_saves_Cloud();
    } else {
        ClipBoard_saves_local();
    }
}

void AppDelegate::ClipBoard_saves_local() {
    interface.Quillery_Box->setContentView(interface.List_View);
    orderFront(*interface.Quillery_window);
    FileText local = GenFileManager.textAtPath(Content_file_path);
    if (local.mustBeSetAside()) {
        std::fprintf(stderr, "Quillery: %s could not be read: %s\n", Content_file_path.c_str(),
                     local.problem.c_str());
    }
    Content_of_quillery_file_Local =
        local.text ? std::make_shared<const std::string>(std::move(*local.text)) : nullptr;
    fillSavedList(Content_of_quillery_file_Local);
}

void AppDelegate::ClipBoard_saves_Cloud() {
    const std::string name = clipListName();
    const QString reading = tr("Reading your list from the storage server…");
    const bool isThere = serverText(name, reading).has_value();
    interface.Quillery_Box->setContentView(interface.List_View);
    orderFront(*interface.Quillery_window);
    if (!isThere) return;
    auto text = serverText(name, reading);
    Content_of_quillery_file_Server = text ? std::make_shared<const std::string>(std::move(*text)) : nullptr;
    fillSavedList(Content_of_quillery_file_Server);
}

void AppDelegate::fillSavedList(const std::shared_ptr<const std::string> &text) {
    ListControl &list = *interface.Clipboard_saved_string_combobox;
    list.removeAllItems();
    if (text) list.addItems(text, ClipList::componentsSeparatedByTerminator(*text));
}

void AppDelegate::Sync_local_with_cloud() {
    const auto [server, name, path] =
        shell_.ui.run([this] { return std::tuple(this->server(), clipListName(), localListPath()); });
    const FileText local = GenFileManager.textAtPath(path);
    const bool uploaded = server.upload(local.text, name);
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
}

// ---- Picking ----

void AppDelegate::Clipboard_combox(QWidget *sender) {
    if (!isSigned_in) finishSaves();
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
        const auto use = std::make_shared<ListUse>(*this);
        shell_.background.performSelectorInBackground([this, use, server = server(), name = clipListName()] {
            Upload_after_removing_action(server, name, *use);
        });
        return;
    }
    list.removeItemAtIndex(list.indexOfSelectedItem());
    const auto path = localListPath();
    tellUnlessWritten(path, localList_.remove(path, list.stringValue()).problem);
}

void AppDelegate::Upload_after_removing_action(const Server &server, const std::string &name, ListUse &list) {
    auto text = server.text(name);
    const std::string removed = shell_.ui.run([this] {
        ListControl &control = *interface.Clipboard_saved_string_combobox;
        control.removeItemAtIndex(control.indexOfSelectedItem());
        return control.stringValue();
    });
    list.done();
    if (text) text = ClipList::withoutEntry(*text, removed);
    const bool uploaded = server.upload(text, name);
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
    if (!uploaded)
        alertFromBackground(tr("Error!"), tr("Server/Internet connection error.\nUnable to save text."));
}

void AppDelegate::sharePickedItem() {
    if (interface.Clipboard_saved_string_combobox->stringValue().empty()) {
        alert(tr("Error!"), tr("Empty space"));
        return;
    }
    const std::string name = StorageNames::contacts(Username.value_or(""));
    const QString reading = tr("Reading your friends from the storage server…");
    if (serverText(name, reading).value_or("").empty()) {
        alert(tr("Alert!"), tr("You have no firends in the list"));
        return;
    }
    setContacts(serverText(name, reading));
    interface.showContactsToPick();
    showWhatAFriendIsPickedFor();
}

void AppDelegate::makePickedItemAvailableOffline() {
    const auto path = localListPath();
    const LocalList::Change change =
        localList_.addUnlessThere(path, interface.Clipboard_saved_string_combobox->stringValue());
    if (!change.old || change.isWritten) return;
    if (change.problem.empty()) {
        alert(tr("Error!"), tr("Text does exist in the list."));
    } else {
        tellUnlessWritten(path, change.problem);
    }
}

void AppDelegate::copyPickedItem(QWidget *sender) {
    const std::string &picked = interface.Clipboard_saved_string_combobox->stringValue();
    if (picked.empty()) {
        alert(tr("Error!"), tr("Empty space"));
        return;
    }
    writeToPasteBoard(picked);
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
    if (alert(tr("Sure?"), tr("Are you sure,you want to clean your list?"), {tr("Yes"), tr("No")}) != 0)
        return;
    finishListUses();
    finishSaves();
    Content_file_path = localListPath();
    interface.Clipboard_saved_string_combobox->removeAllItems();
    const std::string problem = localList_.empty(Content_file_path);
    if (isSigned_in) {
        shell_.background.performSelectorInBackground(
            [this, server = server(), name = clipListName()] { Clean_server_file(server, name); });
    }
    Content_of_quillery_file_Local = nullptr;
    if (FileText local = GenFileManager.textAtPath(Content_file_path); local.text)
        Content_of_quillery_file_Local = std::make_shared<const std::string>(std::move(*local.text));
    fillSavedList(Content_of_quillery_file_Local);
    if (!problem.empty())
        std::fprintf(stderr, "Quillery: %s could not be written: %s\n", Content_file_path.c_str(),
                     problem.c_str());
    alert(tr("Success!"), tr("You've successfully cleaned your list."));
}

void AppDelegate::Clean_server_file(const Server &server, const std::string &name) {
    const bool uploaded = server.upload("", name);
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
