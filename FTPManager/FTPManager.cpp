#include "FTPManager/FTPManager.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <exception>
#include <mutex>
#include <span>
#include <thread>
#include <utility>

#include "FTPManager/FMThread.h"
#include "FTPManager/FTPAddress.h"
#include "FTPManager/FTPStream.h"
#include "FTPManager/Log.h"
#include "FTPManager/Text.h"
#include "FTPManager/TurnQueue.h"

namespace {

enum class FailureReason : std::int32_t { kNone = 0, kRead = 1, kWrite = 2, kStream = 3, kAborted = 4 };

/// Bytes in memory, read piece by piece.
class DataReader {
  public:
    explicit DataReader(std::string_view data) : rest_(data) {}

    /// How many bytes were copied; 0 at the end.
    std::size_t read(std::span<char> room) {
        const std::size_t count = std::min(room.size(), rest_.size());
        std::copy_n(rest_.begin(), count, room.begin());
        rest_.remove_prefix(count);
        return count;
    }

  private:
    std::string_view rest_;
};

/// The address of a file in the server's folder; nothing if the name cannot be sent.
std::optional<fm::FTPAddress> addressOfFile(std::string_view name, const FMServer &server) {
    std::optional<std::string> url = ftpURLForPort(server.destination.value_or(""), server.port);
    if (!url || !fm::isSendableFileName(name) || fm::hasUnsendableByte(*server.username) ||
        fm::hasUnsendableByte(*server.password))
        return std::nullopt;
    if (!url->ends_with('/')) *url += '/';
    std::optional<fm::FTPAddress> address = fm::parseFTPURL(*url + fm::percentEscaped(name));
    if (address) {
        address->user = server.username;
        address->password = server.password;
    }
    return address;
}

}  // namespace

class FTPManager::Operations : private FTPStreamDelegate {
  public:
    Operations(std::shared_ptr<FTPTransport> transport, const std::atomic<FTPManagerDelegate *> &delegate)
        : transport_(std::move(transport)), delegate_(delegate) {}

    bool uploadData(std::string_view data, std::string_view withFileName, const FMServer &toServer,
                    const std::stop_token &cancelled) {
        return run(cancelled, [&] { return _uploadData(data, withFileName, toServer, cancelled); });
    }

    std::optional<FTPProgress> progress() const {
        const std::scoped_lock lock(stateMutex_);
        const State &s = state_;
        const bool isTransfer = s.action == FTPManagerAction::kUpload && s.serverStream;
        if (!isTransfer || s.fileSize == 0) return std::nullopt;
        return FTPProgress{s.fileSize, s.bytesProcessed, s.fileSizeProcessed,
                           static_cast<float>(s.fileSizeProcessed) / static_cast<float>(s.fileSize)};
    }

    FTPManagerAction action() const {
        const std::scoped_lock lock(stateMutex_);
        return state_.action;
    }

    bool streamSuccess() const {
        const std::scoped_lock lock(stateMutex_);
        return state_.streamSuccess;
    }

  private:
    bool run(const std::stop_token &cancelled, const std::function<bool()> &step);
    bool _uploadData(std::string_view data, std::string_view withFileName, const FMServer &toServer,
                     const std::stop_token &cancelled);
    bool runStream(FTPWriteStream &writeStream, const std::stop_token &cancelled);
    void stream(FTPWriteStream &stream, FTPStreamEvent handleEvent) override;
    void sendNextPiece(FTPWriteStream &stream);
    void _streamDidEndWithSuccess(bool success, FailureReason failureReason);

    const std::shared_ptr<FTPTransport> transport_;
    const std::atomic<FTPManagerDelegate *> &delegate_;
    fm::TurnQueue turns_;
    std::atomic<std::thread::id> worker_;

    // Used by the worker alone.
    static constexpr std::size_t kBufferSizeBytes = 32768;
    std::array<char, kBufferSizeBytes> buffer{};
    std::uint64_t bufferOffset = 0;
    std::uint64_t bufferLimit = 0;
    FTPRunLoop *currentRunLoop = nullptr;
    std::stop_token cancelled_;
    std::optional<DataReader> fileReader;

    /// Written by the worker, read by any thread.
    struct State {
        FTPManagerAction action = FTPManagerAction::kUpload;
        std::uint64_t fileSize = 0;
        std::uint64_t bytesProcessed = 0;
        std::uint64_t fileSizeProcessed = 0;
        bool streamSuccess = false;
        FTPWriteStream *serverStream = nullptr;
    };
    mutable std::mutex stateMutex_;
    State state_;
};

/// Waits for the turn, then for a worker that runs the step.
bool FTPManager::Operations::run(const std::stop_token &cancelled, const std::function<bool()> &step) {
    if (worker_ == std::this_thread::get_id()) {
        fm::log("FTPManager: an operation cannot start another one of the same manager");
        return false;
    }
    try {
        if (!turns_.wait(cancelled)) return false;
        const fm::TurnQueue::Turn turn(turns_);
        bool result = false;
        const bool finished = FMThread::runInSeparateThread([&] {
            worker_ = std::this_thread::get_id();
            result = step();
        });
        worker_ = std::thread::id();
        return finished && result;
    } catch (const std::exception &) {
        return false;  // out of memory
    }
}

bool FTPManager::Operations::_uploadData(std::string_view data, std::string_view withFileName,
                                         const FMServer &toServer, const std::stop_token &cancelled) {
    {
        const std::scoped_lock lock(stateMutex_);
        state_.action = FTPManagerAction::kUpload;
        state_.fileSize = data.size();
        state_.fileSizeProcessed = 0;
    }
    std::optional<fm::FTPAddress> address = addressOfFile(withFileName, toServer);
    if (!address) return false;
    fileReader.emplace(data);
    FTPWriteStream writeStream(*transport_, std::move(*address), *this);
    return runStream(writeStream, cancelled);
}

bool FTPManager::Operations::runStream(FTPWriteStream &writeStream, const std::stop_token &cancelled) {
    FTPRunLoop runLoop;
    bufferOffset = 0;
    bufferLimit = 0;
    currentRunLoop = &runLoop;
    cancelled_ = cancelled;
    {
        const std::scoped_lock lock(stateMutex_);
        state_.serverStream = &writeStream;
    }
    try {
        writeStream.open(cancelled);
        runLoop.schedule(writeStream);
        runLoop.run();
    } catch (const std::exception &) {
        _streamDidEndWithSuccess(false, FailureReason::kStream);
    }
    return streamSuccess();
}

void FTPManager::Operations::stream(FTPWriteStream &stream, FTPStreamEvent handleEvent) {
    switch (handleEvent) {
        case FTPStreamEvent::kSpaceAvailable:
            sendNextPiece(stream);
            break;
        case FTPStreamEvent::kErrorOccurred:
            _streamDidEndWithSuccess(
                false, cancelled_.stop_requested() ? FailureReason::kAborted : FailureReason::kStream);
            break;
        case FTPStreamEvent::kEndEncountered:
            _streamDidEndWithSuccess(true, FailureReason::kNone);
            break;
        case FTPStreamEvent::kOpenCompleted:
        case FTPStreamEvent::kBytesAvailable:
            break;
    }
}

void FTPManager::Operations::sendNextPiece(FTPWriteStream &stream) {
    if (bufferOffset == bufferLimit) {
        const std::size_t count = fileReader->read(buffer);
        if (count == 0) {
            // The upload ends well only with the server's confirmation, which comes as kEndEncountered.
            stream.finish();
            return;
        }
        bufferOffset = 0;
        bufferLimit = count;
    }
    const std::ptrdiff_t written = stream.write({buffer.data() + bufferOffset, bufferLimit - bufferOffset});
    if (written <= 0) {
        _streamDidEndWithSuccess(false, FailureReason::kWrite);
        return;
    }
    bufferOffset += static_cast<std::uint64_t>(written);
    {
        const std::scoped_lock lock(stateMutex_);
        state_.fileSizeProcessed += static_cast<std::uint64_t>(written);
        state_.bytesProcessed = static_cast<std::uint64_t>(written);
    }
    if (FTPManagerDelegate *receiver = delegate_) receiver->ftpManagerUploadProgressDidChange(progress());
}

/// Ends the running transfer; does nothing if there is none.
void FTPManager::Operations::_streamDidEndWithSuccess(bool success, FailureReason failureReason) {
    if (!currentRunLoop) return;
    FTPRunLoop *runLoop = std::exchange(currentRunLoop, nullptr);
    FTPWriteStream *serverStream = nullptr;
    {
        const std::scoped_lock lock(stateMutex_);
        state_.action = FTPManagerAction::kFinished;
        state_.streamSuccess = success;
        serverStream = std::exchange(state_.serverStream, nullptr);
    }
    if (!success) {
        switch (failureReason) {
            case FailureReason::kStream:
                fm::log("ftp stream failed: general stream error (check credentials?)");
                break;
            case FailureReason::kWrite:
                fm::log("ftp stream failed: error while writing data");
                break;
            case FailureReason::kRead:
                fm::log("ftp stream failed: error while reading data");
                break;
            case FailureReason::kNone:
            case FailureReason::kAborted:
                break;
        }
    }
    if (serverStream) serverStream->close();
    fileReader.reset();
    runLoop->stop();
}

FTPManager::FTPManager() : FTPManager(std::make_shared<FTPTransport>()) {}

FTPManager::FTPManager(std::shared_ptr<FTPTransport> transport)
    : operations_(std::make_unique<Operations>(std::move(transport), delegate)) {}

FTPManager::~FTPManager() = default;

bool FTPManager::_checkFMServer(const FMServer *server) const {
    if (!server) {
        fm::log("FMServer check failed: server cannot be nil");
        return false;
    }
    bool passed = true;
    const auto check = [&passed](bool rule, std::string_view failure) {
        if (!rule) fm::log(failure);
        passed = passed && rule;
    };
    check(server->destination.has_value(), "FMServer check failed: destination cannot be nil");
    check(server->username.has_value(), "FMServer check failed: username cannot be nil");
    check(server->password.has_value(), "FMServer check failed: password cannot be nil");
    check(server->port >= 1, "FMServer check failed: port cannot be negative");
    return passed;
}

bool FTPManager::uploadData(std::optional<std::string_view> data, std::string_view withFileName,
                            const FMServer *toServer, const std::stop_token &cancelled) {
    if (!_checkFMServer(toServer) || !data) return false;
    return operations_->uploadData(*data, withFileName, *toServer, cancelled);
}

std::optional<FTPProgress> FTPManager::progress() const {
    return operations_->progress();
}

FTPManagerAction FTPManager::action() const {
    return operations_->action();
}

bool FTPManager::streamSuccess() const {
    return operations_->streamSuccess();
}
