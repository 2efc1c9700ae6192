#include "app/StorageServer.h"

#include <chrono>
#include <condition_variable>
#include <new>
#include <utility>

#include "app/ClipList.h"
#include "app/StorageNames.h"

namespace {

// False if it was cut short.
bool pause(std::chrono::milliseconds time, const std::stop_token &stop) {
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    never.wait_for(lock, stop, time, [] { return false; });
    return !stop.stop_requested();
}

}  // namespace

StorageServer::StorageServer(std::shared_ptr<FTPTransport> transport, FTPManager &manager, Place place,
                             RescuedLists &rescued)
    : transport_(std::move(transport)), manager_(manager), place_(std::move(place)), rescued_(rescued) {}

std::shared_ptr<ServerFile> StorageServer::file(const std::string &name) {
    return std::make_shared<ServerFile>(shared_from_this(), name, false);
}

std::shared_ptr<ServerFile> StorageServer::list(const std::string &name) {
    return std::make_shared<ServerFile>(shared_from_this(), name, true);
}

fm::TurnQueue &StorageServer::queueOf(const std::string &name) {
    const std::scoped_lock lock(queuesMutex_);
    return queues_[name];
}

// The personal server may have ended since, by whatever hand: then it is started again.
std::optional<FMServer> StorageServer::find(const std::stop_token &stop) const {
    FMServer found = place_.descriptor;
    if (!place_.personalStorage) return found;
    const auto storage = place_.personalStorage(stop);
    if (!storage.port) return std::nullopt;
    found.port = *storage.port;
    return found;
}

std::optional<std::string> StorageServer::urlOf(const std::string &name, const std::stop_token &stop) const {
    const std::optional<FMServer> found = find(stop);
    if (!found) return std::nullopt;
    return ftpURLForFile({*found->username, *found->password, place_.host, found->port,
                          std::string(StorageNames::kRemoteDirectory), name});
}

ServerFile::ServerFile(std::shared_ptr<StorageServer> server, std::string name, bool isList)
    : server_(std::move(server)), name_(std::move(name)), isList_(isList) {
    turn_.emplace(server_->queueOf(name_));
}

std::shared_ptr<const std::string> ServerFile::read(const std::stop_token &stop) {
    wasRead_ = true;
    state_ = FTPText::State::kCancelled;
    text_.reset();
    if (!turn_->wait(stop)) return nullptr;
    FTPText found = readFile(name_, stop);
    state_ = found.state;
    bytes_ = std::move(found.bytes);
    if (found.text) text_ = std::make_shared<const std::string>(std::move(*found.text));
    if (isList_ && text_) server_->rescued_.remember(name_, text_, false);
    return text_;
}

FTPText ServerFile::readFile(const std::string &name, const std::stop_token &stop) const {
    FTPText found{FTPText::State::kCancelled, {}, {}};
    for (std::size_t attempt = 0;; ++attempt) {
        const auto url = server_->urlOf(name, stop);
        if (!url) break;  // the server was waited for already, or there is no such URL
        found = textWithContentsOfURL(*url, *server_->transport_, stop);
        const auto &pauses = server_->place_.pauses;
        if (found.state != FTPText::State::kFailed || attempt == pauses.size()) break;
        if (!pause(pauses[attempt], stop)) return {FTPText::State::kCancelled, {}, {}};
    }
    return found;
}

// Nothing if the server does not say what has become of it.
std::optional<bool> ServerFile::rename(const std::string &from, const std::string &to) const {
    const auto url = server_->urlOf(from, {}), renamed = server_->urlOf(to, {});
    if (!url || !renamed) return false;
    const std::optional<bool> isRenamed = renameFileAtURL(*url, to, *server_->transport_);
    return isRenamed ? isRenamed : fileExistsAtURL(*renamed, *server_->transport_);
}

void ServerFile::remove(const std::string &name) const {
    if (const auto url = server_->urlOf(name, {})) deleteFileAtURL(*url, *server_->transport_);
}

std::optional<bool> ServerFile::exists(const std::stop_token &stop) {
    if (!turn_->wait(stop)) return std::nullopt;
    const auto url = server_->urlOf(name_, stop);
    return url ? fileExistsAtURL(*url, *server_->transport_, stop) : std::nullopt;
}

bool ServerFile::replace(std::string text, const std::stop_token &stop) {
    const bool isWritten = write(text, stop);
    if (!isList_) return isWritten;
    RescuedLists &rescued = server_->rescued_;
    if (isWritten) rescued.remember(name_, std::make_shared<const std::string>(std::move(text)), true);
    // The server may hold a part of it.
    rescued.settle(std::exchange(meanwhile_, {}),
                   isWritten || rescued.keep(name_, RescuedLists::Reason::kNotWritten));
    return isWritten;
}

bool ServerFile::putInFront(const std::string &entry) {
    const auto old = text_ ? std::optional<std::string_view>(*text_) : std::nullopt;
    RescuedLists &rescued = server_->rescued_;
    std::string text;
    bool isWritten = false;
    try {
        text = ClipList::withEntryInFront(entry, old);
        isWritten = write(text, {});
    } catch (const std::bad_alloc &) {  // a list that has grown too large for it
    }
    bool isSafe = isWritten;
    if (isWritten) {
        rescued.remember(name_, std::make_shared<const std::string>(std::move(text)), true);
    } else {
        isSafe = rescued.keepEntry(name_, entry);
    }
    rescued.settle(std::exchange(meanwhile_, {}), isSafe);
    return isWritten;
}

void ServerFile::forgetText() {
    server_->rescued_.letGo(name_);
}

void ServerFile::announce(std::string_view entry) {
    keepMeanwhile(ClipList::withEntryInFront(entry, std::nullopt));
}

void ServerFile::keepMeanwhile(std::string_view text) {
    const std::filesystem::path former =
        std::exchange(meanwhile_, server_->rescued_.keepMeanwhile(name_, text));
    if (meanwhile_.empty()) {
        meanwhile_ = former;
    } else {
        server_->rescued_.forget(former);
    }
}

bool ServerFile::write(const std::string &text, const std::stop_token &stop) {
    if (!turn_->wait(stop)) return false;
    // A list that is too large to be read is there all the same, and so may be one that was not asked for.
    if (wasRead_ && (state_ == FTPText::State::kTooLarge || state_ == FTPText::State::kCancelled))
        return false;
    if (!isList_) return upload(text, name_, stop);
    // Should this program end before the server has it all, the server may hold a part of it.
    if (!text.empty() && text.size() <= RescuedLists::kMostBytes) keepMeanwhile(text);
    RescuedLists &rescued = server_->rescued_;
    const bool isKnown =
        !wasRead_ || text_ || (state_ == FTPText::State::kNotText && rescued.keepBytes(name_, bytes_));
    if (!isKnown) {
        const auto url = server_->urlOf(name_, stop);
        if (url && canRenameFileAtURL(*url, *server_->transport_)) return writeAndSetAside(text, stop);
        rescued.keep(name_, RescuedLists::Reason::kNotRead);
    }
    return upload(text, name_, stop);
}

// The new list comes whole before the old one leaves its place: whatever fails until then changes nothing.
bool ServerFile::writeAndSetAside(const std::string &text, const std::stop_token &stop) {
    RescuedLists &rescued = server_->rescued_;
    const std::string aside = StorageNames::unread(name_), fresh = aside + ".new";
    if (!upload(text, fresh, stop)) {
        remove(fresh);
        return false;
    }
    const std::filesystem::path note =
        rescued.keepMeanwhile(name_, "The list " + name_ + " could not be read. As it was, it lies on " +
                                         server_->host() + " under the name " + aside + ".\n");
    const std::optional<bool> isAside = rename(name_, aside);
    if (!isAside) return false;  // the note stays for the next start
    if (!*isAside) {
        rescued.forget(note);
        remove(fresh);
        rescued.keep(name_, RescuedLists::Reason::kNotRead);
        return upload(text, name_, stop);
    }
    if (rename(fresh, name_) != true) {
        if (rename(aside, name_) == true) rescued.forget(note);
        remove(fresh);
        return false;
    }
    const auto url = server_->urlOf(aside, stop);
    const FTPText old = url ? textWithContentsOfURL(*url, *server_->transport_, stop) : FTPText();
    const bool isRead = old.text || old.state == FTPText::State::kNotText;
    if (isRead && rescued.keepBytes(name_, old.text ? *old.text : old.bytes)) {
        rescued.forget(note);
        remove(aside);
    } else {
        rescued.keep(name_, RescuedLists::Reason::kNotRead);
        rescued.stay(note, RescuedLists::Reason::kSetAside);
    }
    return true;
}

bool ServerFile::upload(const std::string &text, const std::string &name, const std::stop_token &stop) const {
    const std::optional<FMServer> found = server_->find(stop);
    return found && server_->manager_.uploadData(text, name, &*found, stop);
}
