#include "FTPManager/FTPStream.h"

#include <algorithm>
#include <utility>

FTPStream::FTPStream(const FTPTransport &transport, fm::TransferTask task, FTPStreamDelegate &delegate)
    : delegate_(delegate), transfer_(transport, std::move(task)) {}

void FTPStream::open(std::stop_token cancelled) {
    interruptOnStop_.emplace(std::move(cancelled), [this] { transfer_.interrupt(); });
    isOpen_ = true;
}

void FTPStream::tell(FTPStreamEvent event) {
    if (!isClosed_) delegate_.stream(*this, event);
}

bool FTPStream::turn() {
    if (!isOpen_ || isClosed_) return false;
    switch (transfer_.step()) {
        case fm::Transfer::Status::kRunning:
            return true;
        case fm::Transfer::Status::kCompleted:
            completed();
            return false;
        case fm::Transfer::Status::kFailed:
            tell(FTPStreamEvent::kErrorOccurred);
            return false;
    }
    return false;
}

FTPWriteStream::FTPWriteStream(const FTPTransport &transport, const fm::FTPAddress &address, Target target,
                               FTPStreamDelegate &delegate)
    : FTPStream(transport,
                target == Target::kFolder
                    ? fm::TransferTask{.kind = fm::TransferTask::Kind::kCommand,
                                       .address = address,
                                       .commands = {"MKD " + address.path}}
                    : fm::TransferTask{.kind = fm::TransferTask::Kind::kStore,
                                       .address = address,
                                       .source = [this](std::span<char> room) { return fill(room); }},
                delegate) {}

std::ptrdiff_t FTPWriteStream::write(std::string_view bytes) {
    if (!takesBytes_ || isFinished_ || isClosed()) return -1;
    const std::size_t taken = std::min(bytes.size(), room_.size());
    if (bytes.data() != room_.data()) std::copy_n(bytes.begin(), taken, room_.begin());
    room_ = room_.subspan(taken);
    return static_cast<std::ptrdiff_t>(taken);
}

std::optional<std::size_t> FTPWriteStream::fill(std::span<char> room) {
    room_ = room;
    if (!takesBytes_) {
        takesBytes_ = true;
        tell(FTPStreamEvent::kOpenCompleted);
    }
    while (!room_.empty() && !isFinished_ && !isClosed()) tell(FTPStreamEvent::kSpaceAvailable);
    const std::size_t filled = room.size() - room_.size();
    room_ = {};
    if (isClosed()) return std::nullopt;
    return filled;
}

FTPReadStream::FTPReadStream(const FTPTransport &transport, fm::FTPAddress address, Source source,
                             FTPStreamDelegate &delegate)
    : FTPStream(transport,
                {.kind = source == Source::kListing ? fm::TransferTask::Kind::kList
                                                    : fm::TransferTask::Kind::kRetrieve,
                 .address = std::move(address),
                 .asksSize = source == Source::kFile,
                 .sink = [this](std::string_view bytes) { return take(bytes); },
                 .opened = [this](std::optional<std::uint64_t> size) { opened(size); }},
                delegate) {}

void FTPReadStream::opened(std::optional<std::uint64_t> size) {
    resourceSize_ = size;
    tell(FTPStreamEvent::kOpenCompleted);
}

bool FTPReadStream::take(std::string_view bytes) {
    unread_ = bytes;
    while (!unread_.empty() && !isClosed()) tell(FTPStreamEvent::kBytesAvailable);
    unread_ = {};
    return !isClosed();
}

void FTPReadStream::completed() {
    // The delegate may still have bytes in hand; it closes the stream when it has read the end.
    while (!isClosed()) tell(FTPStreamEvent::kBytesAvailable);
}

void FTPRunLoop::run() {
    while (!isStopped_ && stream_ && stream_->turn()) {
    }
}
