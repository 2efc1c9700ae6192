#include <algorithm>
#include <cstdio>
#include <utility>

#include "app/AppDelegate.h"
#include "app/ClipList.h"
#include "app/SharedText.h"
#include "app/StorageNames.h"
#include "platform/Text.h"

namespace {

void log(const std::string &line) {
    std::fprintf(stderr, "Quillery: %s\n", line.c_str());
}

}  // namespace

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

// An absent text counts as no contacts at all, an empty one as one empty contact.
void AppDelegate::setContacts(const std::optional<std::string> &text) {
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
    showWhatAFriendIsPickedFor();
}

void AppDelegate::showWhatAFriendIsPickedFor() {
    constexpr std::size_t kLongestText = 60;
    const std::string text = isLocked() ? "" : interface.Clipboard_saved_string_combobox->stringValue();
    interface.Contacts_label->setText(RemoveContact_enabled ? tr("Remove from your friends:")
                                                            : tr("Send the text to:"));
    interface.Friends_hint->setText(
        RemoveContact_enabled ? tr("A pick removes the friend from this list.")
        : text.empty()
            ? tr("To send a text to a friend, turn on \"Share\" below the saved list and pick it there.")
            : tr("A pick sends \"%1\" to the friend.").arg(oneLine(text, kLongestText)));
}

// ---- A first list ----

void AppDelegate::offerToStartFriendsList(bool offers) {
    interface.startFriends->setVisible(offers);
    interface.startFriendsToAdd->setVisible(offers);
}

// Whether the user has no friends list. Only a listing can tell: a read that fails may have failed for any
// reason. A listing that lacks the account itself shows no such names, and tells nothing.
static std::optional<bool> hasNoFriendsList(const std::optional<std::vector<FTPResource>> &contents,
                                            const std::string &user) {
    const auto isListed = [&contents](const std::string &name) {
        return std::ranges::find(*contents, name, &FTPResource::name) != contents->end();
    };
    if (!contents || !isListed(StorageNames::username(user))) return std::nullopt;
    return !isListed(StorageNames::contacts(user));
}

void AppDelegate::lookForFriendsList() {
    offerToStartFriendsList(false);
    if (!isSigned_in) return;
    shell_.background.performSelectorInBackground(
        [this, server = server(), user = Username.value_or(""), quits = quits_.get_token()] {
            const std::optional<bool> isMissing = hasNoFriendsList(server.contents(quits), user);
            shell_.ui.run([&] {
                offerToStartFriendsList(isSigned_in && Username == user && isMissing.value_or(false));
            });
        });
}

void AppDelegate::startFriendsList(QObject *) {
    const std::string user = Username.value_or("");
    const auto isStarted = shell_.waiting.run(
        tr("Starting your friends list…"), [server = server(), user](const std::stop_token &stop) {
            const std::string name = StorageNames::contacts(user);
            const std::optional<bool> isMissing = hasNoFriendsList(server.contents(stop), user);
            if (!isMissing || !*isMissing) return isMissing.has_value();
            if (server.text(name, stop)) return true;  // it has come meanwhile
            return !stop.stop_requested() && server.upload("", name, stop);
        });
    if (!isStarted) {
        alert(tr("Error!"), tr("The storage server could not be asked, so nothing was changed."));
        return;
    }
    offerToStartFriendsList(false);
    interface.Quillery_Box->setContentView(interface.Add_contact_view);
    interface.Add_contact_textfield->setFocus(Qt::OtherFocusReason);
}

// ---- Adding ----

void AppDelegate::Add_contact_menu_item(QObject *) {
    orderFront(*interface.Quillery_window);
    interface.Quillery_Box->setContentView(interface.Add_contact_view);
    interface.Add_contact_hint->hide();
    lookForFriendsList();
}

void AppDelegate::Add_contact_done_button(QObject *) {
    setFormLocked(addContactForm(), true);
    setContacts(serverText(StorageNames::contacts(Username.value_or("")),
                           tr("Reading your friends from the storage server…")));
    bool isAdding = false;
    // The look goes on where the last one ended, and may find nobody any more.
    const bool isOver = Contact_index_number >= static_cast<std::int32_t>(Contacts_array.size());
    interface.Add_contact_hint->setVisible(isOver && !Contacts_array.empty());
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
        shell_.background.performSelectorInBackground(
            [this, server = server(), user = Username.value_or("")] { Add_friend_action(server, user); });
        return true;
    }
    const bool isConnected = Check_if_internet_connection_is_found();
    alert(tr("Error!"), isConnected ? tr("There is no user with this username")
                                    : tr("There is an internet connection error"));
    orderFront(*interface.Quillery_window);  // which the check has closed, with what was typed
    return false;
}

void AppDelegate::Add_friend_action(const Server &server, const std::string &user) {
    const auto contacts = server.text(StorageNames::contacts(user));
    const std::string name =
        shell_.ui.run([this] { return toUtf8(interface.Add_contact_textfield->text()); });
    const bool uploaded =
        server.upload(ClipList::withEntryInFront(name, contacts), StorageNames::contacts(user));
    shell_.ui.run([&] {
        UploadDidFinish = uploaded;
        interface.Add_contact_textfield->clear();
        setFormLocked(addContactForm(), false);
    });
}

// ---- Removing ----

void AppDelegate::Remove_contact_item(QObject *) {
    RemoveContact_enabled = true;
    const auto contacts = serverText(StorageNames::contacts(Username.value_or("")),
                                     tr("Reading your friends from the storage server…"));
    if (contacts.value_or("").empty()) {
        alert(tr("Alert!"), tr("You have no firends in the list"));
        return;
    }
    setContacts(contacts);
    interface.showContactsTable();
    orderFront(*interface.Quillery_window);
}

void AppDelegate::Remove_contact(QObject *) {
    RemoveContact_enabled = !RemoveContact_enabled;
    interface.Remove_contact->setText(RemoveContact_enabled ? tr("Done") : tr("Remove a friend"));
    showWhatAFriendIsPickedFor();
}

void AppDelegate::Selected_friend_from_table(QObject *) {
    const auto contact = contactAtRow(interface.Contacts_table->selectedRow());
    if (!contact) return;
    Contact_Username = contact;
    if (!RemoveContact_enabled) {
        const auto list = std::make_shared<ListUse>(*this);
        shell_.background.performSelectorInBackground(
            [this, list, server = server(), user = Username.value_or("")] {
                Send_text_action_sharing(server, user, *list);
            });
        interface.Quillery_window->close();
        return;
    }
    const QString question =
        QStringLiteral("Are you sure you want to remove \"%1\"").arg(toQString(*contact));
    if (alert(tr("Alert!"), question, {tr("Yes"), tr("No")}) == 0) {
        shell_.background.performSelectorInBackground(
            [this, server = server(), user = Username.value_or("")] {
                Remove_contact_from_server_action(server, user);
            });
        interface.Quillery_window->close();
    } else {
        ShareMode_enabled = false;
        showModes();
    }
}

void AppDelegate::Remove_contact_from_server_action(const Server &server, const std::string &user) {
    const auto [row, contact] = shell_.ui.run([this] {
        const int selected = interface.Contacts_table->selectedRow();
        if (const auto name = contactAtRow(selected)) Contact_Username = name;
        return std::pair(selected, Contact_Username.value_or(""));
    });
    const std::string name = StorageNames::contacts(user);
    const auto old = server.text(name);
    // A list that could not be read is not written either.
    const bool uploaded = old && server.upload(ClipList::withoutEntry(*old, contact), name);
    shell_.ui.run([&] {
        UploadDidFinish = uploaded;
        ++Remove_contact_time_number;
    });
    if (uploaded) {
        log("Success deleting");
        log("index number:" + std::to_string(row));
        log("Time number:" + std::to_string(shell_.ui.run([this] { return Remove_contact_time_number; })));
        log("Content:" + *old);
        const auto contacts = server.text(name);
        shell_.ui.run([this, &contacts, row = row, &contact = contact] {
            if (contactAtRow(row) == contact) interface.Contacts_table->fadeOutRow(row);
            setContacts(contacts);
        });
    } else {
        log("Faild to delete");
    }
    shell_.ui.run([&] {
        RemoveContact_enabled = false;
        showWhatAFriendIsPickedFor();
    });
    alertFromBackground(tr("Alert!"),
                        QStringLiteral("You have successfully removed\"%1\"").arg(toQString(contact)));
}

// ---- Sharing ----

void AppDelegate::Send_text_action_sharing(const Server &server, const std::string &user, ListUse &list) {
    const auto contact = shell_.ui.run([this] { return Contact_Username.value_or(""); });
    const std::string name = StorageNames::clipList(contact);
    const auto old = server.text(name);
    if (contact.empty() || !old) {
        list.done();
        alertFromBackground(tr("Error!"), tr("Wrong contact username."));
        return;
    }
    const std::string text =
        shell_.ui.run([this] { return interface.Clipboard_saved_string_combobox->stringValue(); });
    list.done();
    const bool uploaded =
        server.upload(ClipList::withEntryInFront(SharedText::inList(user, text), old), name);
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
    if (uploaded) {
        alertFromBackground(tr("Success!"), QStringLiteral("You have successfull share \"%1\" with \"%2\"")
                                                .arg(toQString(text), toQString(contact)));
    }
}

void AppDelegate::Share_action() {
    const std::string contact = Contact_Username.value_or("");
    const bool isThere =
        serverText(StorageNames::shared(contact), tr("Asking the storage server for the shared texts…"))
            .has_value();
    shell_.background.performSelectorInBackground(
        [this, isThere, contact, server = server(), user = Username.value_or("")] {
            if (isThere) {
                Overwrite_shared_file(server, user, contact);
            } else {
                Create_Shared_file(server, user, contact);
            }
        });
}

void AppDelegate::Overwrite_shared_file(const Server &server, const std::string &user,
                                        const std::string &contact) {
    const auto old = server.text(StorageNames::shared(contact));
    const std::string text =
        shell_.ui.run([this] { return interface.Clipboard_saved_string_combobox->stringValue(); });
    // What cannot be read is not replaced: it would be lost.
    const bool uploaded =
        old && server.upload(ClipList::withEntryInFront(SharedText::inSharedFile(user, text), old),
                             StorageNames::shared(contact));
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
}

void AppDelegate::Create_Shared_file(const Server &server, const std::string &user,
                                     const std::string &contact) {
    const std::string text =
        shell_.ui.run([this] { return interface.Clipboard_saved_string_combobox->stringValue(); });
    const bool uploaded =
        server.upload(ClipList::withEntryInFront(SharedText::inSharedFile(user, text), std::nullopt),
                      StorageNames::shared(contact));
    shell_.ui.run([&] { UploadDidFinish = uploaded; });
}
