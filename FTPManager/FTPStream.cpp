#include "FTPManager/FTPStream.h"

#include <algorithm>
#include <cstring>
#include <utility>

FTPWriteStream::FTPWriteStream(const FTPTransport &transport, fm::FTPAddress address,
                               FTPStreamDelegate &delegate)
    : delegate_(delegate),
      transfer_(transport, std::move(address),
                {.direction = fm::TransferEnds::Direction::kUpload,
                 .source = [this](std::span<char> room) { return fill(room); },
                 .sink = {}}) {}

void FTPWriteStream::open(std::stop_token cancelled) {
    interruptOnStop_.emplace(std::move(cancelled), [this] { transfer_.interrupt(); });
    isOpen_ = true;
}

std::ptrdiff_t FTPWriteStream::write(std::string_view bytes) {
    if (!takesBytes_ || isFinished_ || isClosed_) return -1;
    const std::size_t taken = std::min(bytes.size(), room_.size());
    std::memcpy(room_.data(), bytes.data(), taken);
    room_ = room_.subspan(taken);
    return static_cast<std::ptrdiff_t>(taken);
}

std::optional<std::size_t> FTPWriteStream::fill(std::span<char> room) {
    room_ = room;
    if (!takesBytes_) {
        takesBytes_ = true;
        tell(FTPStreamEvent::kOpenCompleted);
    }
    while (!room_.empty() && !isFinished_ && !isClosed_) tell(FTPStreamEvent::kSpaceAvailable);
    const std::size_t filled = room.size() - room_.size();
    room_ = {};
    if (isClosed_) return std::nullopt;
    return filled;
}

void FTPWriteStream::tell(FTPStreamEvent event) {
    if (!isClosed_) delegate_.stream(*this, event);
}

bool FTPWriteStream::turn() {
    if (!isOpen_ || isClosed_) return false;
    switch (transfer_.step()) {
        case fm::Transfer::Status::kRunning:
            return true;
        case fm::Transfer::Status::kCompleted:
            tell(FTPStreamEvent::kEndEncountered);
            return false;
        case fm::Transfer::Status::kFailed:
            tell(FTPStreamEvent::kErrorOccurred);
            return false;
    }
    return false;
}

void FTPRunLoop::run() {
    while (!isStopped_ && stream_ && stream_->turn()) {
    }
}
