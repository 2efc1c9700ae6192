#include <QSignalBlocker>
#include <cstdio>
#include <utility>

#include "app/AppDelegate.h"
#include "app/ClipList.h"
#include "app/StorageNames.h"
#include "platform/Text.h"

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
