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
        if (!pause(pauses[attempt], stop)) break;
    }
    return found;
}

bool ServerFile::rename(const std::string &from, const std::string &to) const {
    const auto url = server_->urlOf(from, {});
    return url && renameFileAtURL(*url, to, *server_->transport_);
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
    if (isWritten) {
        rescued.remember(name_, std::make_shared<const std::string>(std::move(text)), true);
    } else if (!stop.stop_requested()) {
        rescued.keep(name_, RescuedLists::Reason::kNotWritten);  // the server may hold a part of it
    }
    rescued.forget(std::exchange(meanwhile_, {}));
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
    // Where not even the copy could be written, on a full disk, it is all that there is of the text.
    if (isSafe) rescued.forget(std::exchange(meanwhile_, {}));
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
    if (!isList_) return upload(text, stop);
    // Should this program end before the server has it all, the server may hold a part of it.
    if (!text.empty() && text.size() <= RescuedLists::kMostBytes) keepMeanwhile(text);
    if (!wasRead_ || text_) return upload(text, stop);
    RescuedLists &rescued = server_->rescued_;
    if (state_ == FTPText::State::kNotText) rescued.keepBytes(name_, bytes_);
    const std::string aside = state_ == FTPText::State::kFailed ? StorageNames::unread(name_) : std::string();
    if (aside.empty() || !rename(name_, aside)) {
        rescued.keep(name_, RescuedLists::Reason::kNotRead);
        return upload(text, stop);
    }
    const bool isWritten = upload(text, stop);
    // Nobody else's new list is in the place by now, as far as that can be told.
    if (!isWritten && exists() == false && rename(aside, name_)) return false;
    const FTPText old = readFile(aside, {});
    if (!old.text || !rescued.keepBytes(name_, *old.text)) {
        rescued.keep(name_, RescuedLists::Reason::kNotRead);
        rescued.tellOfSetAside(aside);
    }
    return isWritten;
}

bool ServerFile::upload(const std::string &text, const std::stop_token &stop) const {
    const std::optional<FMServer> found = server_->find(stop);
    return found && server_->manager_.uploadData(text, name_, &*found, stop);
}
