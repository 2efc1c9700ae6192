#include <algorithm>
#include <cstdio>

#include "app/AppDelegate.h"
#include "app/ClipList.h"
#include "platform/Text.h"

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
