#include <algorithm>
#include <cstdio>
#include <utility>

#include "app/AppDelegate.h"
#include "app/ClipList.h"
#include "app/SharedText.h"
#include "app/StorageNames.h"
#include "platform/Text.h"

// ---- The table ----

int AppDelegate::numberOfRowsInTableView(const TableView &) const {
    return static_cast<int>(Contacts_array.size());
}

QString AppDelegate::tableView(const TableView &, int, int row) const {
    return toQString(contactAtRow(row).value_or(""));
}

std::optional<std::string> AppDelegate::contactAtRow(int row) const {
    if (row < 0 || row >= numberOfRowsInTableView(*interface.Contacts_table)) return std::nullopt;
    return Contacts_array[static_cast<std::size_t>(row)];
}

bool AppDelegate::tableView(const TableView &, const QString &, int, int) const {
    return true;
}

// An absent text counts as no contacts at all, an empty one as one empty contact.
void AppDelegate::setContacts(const std::shared_ptr<const std::string> &text) {
    Contacts_array.clear();
    if (text) {
        const auto pieces = ClipList::componentsSeparatedByTerminator(*text);
        Contacts_array.assign(pieces.begin(), pieces.end());
    }
    interface.Contacts_table->reloadData();
}

void AppDelegate::Contacts_item(QObject *) {
    lookForFriendsList();  // which takes away the offer of the last time
    interface.showContacts();
    orderFront(*interface.Quillery_window);
    interface.Contacts_table->reloadData();
    showContactMode();
}

// What a click on a friend does, wherever the friends are shown: in the window's title, in the button that
// changes it, and in words.
void AppDelegate::showContactMode() {
    constexpr std::size_t kLongestText = 60;
    Interface &i = interface;
    const std::string text = isLocked() ? "" : i.Clipboard_saved_string_combobox->stringValue();
    i.Remove_contact->setText(RemoveContact_enabled ? tr("Done") : tr("Remove a friend"));
    i.Remove_contact->setEnabled(isSigned_in);
    i.Read_friends_button->setEnabled(isSigned_in);
    i.showRemovalOfContacts(RemoveContact_enabled);
    i.Contacts_label->setText(RemoveContact_enabled ? tr("Remove from your friends:")
                                                    : tr("Send the text to:"));
    i.Friends_hint->setText(
        !isSigned_in            ? tr("Sign in to send a text to a friend.")
        : RemoveContact_enabled ? tr("A pick removes the friend from this list.")
        : text.empty()
            ? tr("No text is picked, so a pick sends the friend nothing but your name. To send a text, turn "
                 "on \"Share\" below the saved list and pick it there.")
            : tr("A pick sends \"%1\" to the friend.").arg(oneLine(text, kLongestText)));
    i.Contacts_table->setPlaceholder(isSigned_in ? tr("No friends to show yet. Choose \"Read My Friends\".")
                                                 : tr("Your friends are shown while you are signed in."));
}

void AppDelegate::readFriends(QObject *) {
    if (!isSigned_in) return;
    const auto contacts = read(storage_->list(StorageNames::contacts(Username.value_or(""))),
                               tr("Reading your friends from the storage server…"));
    if (contacts) {
        setContacts(contacts);
    } else {
        interface.Contacts_table->setPlaceholder(
            tr("The storage server has given no friends. It may hold none yet, or not be reached."));
    }
}

// ---- A first list ----

void AppDelegate::offerToStartFriendsList(bool offers) {
    interface.startFriends->setVisible(offers);
    interface.startFriendsToAdd->setVisible(offers);
}

// Whether an account that exists has no friends list; nothing if the server does not tell. A read that fails
// may have failed for any reason.
static std::optional<bool> hasNoFriendsList(ServerFile &account, ServerFile &friends,
                                            const std::stop_token &stop) {
    if (account.exists(stop) != true) return std::nullopt;
    const std::optional<bool> exists = friends.exists(stop);
    return exists ? std::optional(!*exists) : std::nullopt;
}

void AppDelegate::lookForFriendsList() {
    offerToStartFriendsList(false);
    if (!isSigned_in) return;
    const std::string user = Username.value_or("");
    performInBackground(
        {}, [this, user, stop = quits_.get_token(), account = storage_->file(StorageNames::username(user)),
             friends = storage_->file(StorageNames::contacts(user))] {
            const std::optional<bool> isMissing = hasNoFriendsList(*account, *friends, stop);
            shell_.ui.run([&] {
                offerToStartFriendsList(isSigned_in && Username == user && isMissing.value_or(false));
            });
        });
}

void AppDelegate::startFriendsList(QObject *) {
    const std::string user = Username.value_or("");
    const bool isStarted = shell_.waiting.run(
        tr("Starting your friends list…"),
        [account = storage_->file(StorageNames::username(user)),
         friends = storage_->list(StorageNames::contacts(user))](const std::stop_token &stop) {
            const std::optional<bool> isMissing = hasNoFriendsList(*account, *friends, stop);
            if (!isMissing || !*isMissing) return isMissing.has_value();
            return friends->replace({}, stop);
        });
    if (!isStarted) {
        alert(tr("Error!"), tr("The storage server could not be asked, so nothing was changed."));
        return;
    }
    offerToStartFriendsList(false);
    interface.lookAgain->hide();
    interface.Quillery_Box->setContentView(interface.Add_contact_view);
    interface.Add_contact_textfield->setFocus(Qt::OtherFocusReason);
}

// ---- Adding ----

void AppDelegate::Add_contact_menu_item(QObject *) {
    orderFront(*interface.Quillery_window);
    interface.Quillery_Box->setContentView(interface.Add_contact_view);
    interface.lookAgain->hide();
    lookForFriendsList();
}

void AppDelegate::Add_contact_done_button(QObject *) {
    setFormLocked(addContactForm(), true);
    setContacts(read(storage_->list(StorageNames::contacts(Username.value_or(""))),
                     tr("Reading your friends from the storage server…")));
    bool isAdding = false;
    // The look goes on where the last one ended, and may find nobody any more.
    const bool isOver = Contact_index_number >= static_cast<std::int32_t>(Contacts_array.size());
    interface.lookAgain->setVisible(isOver && !Contacts_array.empty());
    while (Contact_index_number < static_cast<std::int32_t>(Contacts_array.size())) {
        const std::string contact = Contacts_array[static_cast<std::size_t>(Contact_index_number)];
        if (toUtf8(interface.Add_contact_textfield->text()) == contact) {
            alert(tr("Alert!"), tr("Contact does exist"));
            Contact_index_number = 0;
            break;
        }
        log("Not same");
        if (contact.empty()) isAdding |= Add_contact_function();
        ++Contact_index_number;
    }
    if (!isAdding) setFormLocked(addContactForm(), false);
}

void AppDelegate::lookThroughFriendsAgain(QObject *sender) {
    Contact_index_number = 0;
    Add_contact_done_button(sender);
}

bool AppDelegate::Add_contact_function() {
    const QString name = interface.Add_contact_textfield->text();
    const auto usernameFile =
        serverText(StorageNames::username(toUtf8(name)), tr("Asking the storage server for this user…"));
    if (usernameFile && usernameFile == Username) {
        alert(tr("Error!"), tr("You can't add your self"));
        return false;
    }
    if (usernameFile) {
        interface.Quillery_window->close();
        alert(tr("Success!"),
              QStringLiteral("You have successfully added \"%1\" to your friends list").arg(name));
        performInBackground(tr("Adding “%1” to your friends").arg(name),
                            [this, file = storage_->list(StorageNames::contacts(Username.value_or("")))] {
                                Add_friend_action(*file);
                            });
        return true;
    }
    const bool isConnected = Check_if_internet_connection_is_found();
    alert(tr("Error!"), isConnected ? tr("There is no user with this username")
                                    : tr("There is an internet connection error"));
    if (!isQuitting_) orderFront(*interface.Quillery_window);  // which the check has closed
    return false;
}

void AppDelegate::Add_friend_action(ServerFile &contacts) {
    contacts.read();
    const std::string name =
        shell_.ui.run([this] { return toUtf8(interface.Add_contact_textfield->text()); });
    const bool uploaded = contacts.putInFront(name);
    shell_.ui.run([&] {
        UploadDidFinish = uploaded;
        interface.Add_contact_textfield->clear();
        setFormLocked(addContactForm(), false);
    });
}

// ---- Removing ----

void AppDelegate::Remove_contact_item(QObject *) {
    RemoveContact_enabled = true;
    const auto contacts = read(storage_->list(StorageNames::contacts(Username.value_or(""))),
                               tr("Reading your friends from the storage server…"));
    if (!contacts || contacts->empty()) {
        alert(tr("Alert!"), tr("You have no firends in the list"));
        showContactMode();
        return;
    }
    setContacts(contacts);
    interface.showContactsTable();
    orderFront(*interface.Quillery_window);
    showContactMode();
}

void AppDelegate::Remove_contact(QObject *) {
    RemoveContact_enabled = !RemoveContact_enabled;
    showContactMode();
}

void AppDelegate::Selected_friend_from_table(QObject *) {
    const int row = interface.Contacts_table->selectedRow();
    const auto contact = contactAtRow(row);
    if (!contact) return;
    if (!isSigned_in) {
        showContactMode();
        return;
    }
    Contact_Username = contact;
    const std::string user = Username.value_or("");
    if (!RemoveContact_enabled) {
        const std::string text = interface.Clipboard_saved_string_combobox->stringValue();
        performInBackground(
            tr("Sending “%1” to “%2”").arg(oneLine(text, kLongestMention), toQString(*contact)),
            [this, user, contact = *contact, text, file = storage_->list(StorageNames::clipList(*contact))] {
                Send_text_action_sharing(user, contact, text, *file);
            });
        interface.Quillery_window->close();
        return;
    }
    const QString question =
        QStringLiteral("Are you sure you want to remove \"%1\"").arg(toQString(*contact));
    if (alert(tr("Alert!"), question, {tr("Yes"), tr("No")}, 1) == 0) {
        performInBackground(
            tr("Removing “%1” from your friends").arg(toQString(*contact)),
            [this, row, contact = *contact, file = storage_->list(StorageNames::contacts(user))] {
                Remove_contact_from_server_action(row, contact, *file);
            });
        interface.Quillery_window->close();
    } else {
        ShareMode_enabled = false;
        showModes();
    }
}

void AppDelegate::Remove_contact_from_server_action(int row, const std::string &contact, ServerFile &file) {
    shell_.ui.run([&] { Contact_Username = contact; });
    const auto old = file.read();
    // A list that could not be read is not written either.
    const bool uploaded = old && file.replace(ClipList::withoutEntry(*old, contact));
    const std::int32_t times = shell_.ui.run([&] {
        UploadDidFinish = uploaded;
        return ++Remove_contact_time_number;
    });
    if (uploaded) {
        log("Success deleting");
        log("index number:" + std::to_string(row));
        log("Time number:" + std::to_string(times));
        log("Content:" + *old);
        const auto contacts = file.read();
        shell_.ui.run([&] {
            if (contactAtRow(row) == contact) interface.Contacts_table->fadeOutRow(row);
            setContacts(contacts);
        });
    } else {
        log("Faild to delete");
    }
    file.release();
    shell_.ui.run([&] {
        RemoveContact_enabled = false;
        showContactMode();
    });
    alertFromBackground(tr("Alert!"),
                        QStringLiteral("You have successfully removed\"%1\"").arg(toQString(contact)));
}

// ---- Sharing ----

void AppDelegate::Send_text_action_sharing(const std::string &user, const std::string &contact,
                                           const std::string &text, ServerFile &file) {
    const auto old = file.read();
    if (contact.empty() || !old) {
        file.release();
        alertFromBackground(tr("Error!"), tr("Wrong contact username."));
        return;
    }
    const bool uploaded = file.putInFront(SharedText::inList(user, text));
    if (contact != user) file.forgetText();
    file.release();
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
    if (uploaded) {
        alertFromBackground(tr("Success!"), QStringLiteral("You have successfull share \"%1\" with \"%2\"")
                                                .arg(toQString(text), toQString(contact)));
    }
}

void AppDelegate::Share_action() {
    const auto file = storage_->list(StorageNames::shared(Contact_Username.value_or("")));
    const bool isThere = read(file, tr("Asking the storage server for the shared texts…")) != nullptr;
    performInBackground(tr("Sharing a text"),
                        [this, isThere, file, user = Username.value_or(""),
                         text = interface.Clipboard_saved_string_combobox->stringValue()] {
                            const std::string entry = SharedText::inSharedFile(user, text);
                            isThere ? Overwrite_shared_file(entry, *file) : Create_Shared_file(entry, *file);
                        });
}

void AppDelegate::Overwrite_shared_file(const std::string &entry, ServerFile &file) {
    // What cannot be read is not replaced: it would be lost.
    const bool uploaded = file.read() && file.putInFront(entry);
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
}

void AppDelegate::Create_Shared_file(const std::string &entry, ServerFile &file) {
    const bool uploaded = file.putInFront(entry);
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
}
