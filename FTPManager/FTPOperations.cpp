#include "FTPManager/FTPOperations.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <span>
#include <system_error>
#include <utility>

#include "FTPManager/ControlConnection.h"
#include "FTPManager/FMThread.h"
#include "FTPManager/FTPAddress.h"
#include "FTPManager/FTPListing.h"
#include "FTPManager/Log.h"
#include "FTPManager/Text.h"

namespace {

constexpr std::int32_t kGreatestPort = 65535;
constexpr std::string_view kOnOwnWorker =
    "FTPManager: an operation cannot start another one of the same manager";

bool canBeSent(const FMServer &server) {
    return !fm::hasUnsendableByte(*server.username) && !fm::hasUnsendableByte(*server.password);
}

/// The address of something in the server's folder, or of the folder itself.
std::optional<fm::FTPAddress> addressIn(const FMServer &server, std::string_view escapedName) {
    std::optional<std::string> url = ftpURLForPort(*server.destination, server.port);
    if (!url || !canBeSent(server)) return std::nullopt;
    if (!url->ends_with('/')) *url += '/';
    std::optional<fm::FTPAddress> address = fm::parseFTPURL(*url += escapedName);
    if (address) {
        address->user = server.username;
        address->password = server.password;
    }
    return address;
}

/// Nothing if the name cannot be sent.
std::optional<fm::FTPAddress> addressOfFile(std::string_view name, const FMServer &server) {
    if (!fm::isSendableFileName(name)) return std::nullopt;
    return addressIn(server, fm::percentEscaped(name));
}

std::optional<fm::FTPAddress> addressOfFolder(const FMServer &server) {
    return addressIn(server, "");
}

std::string_view logLineFor(FTPFailureReason reason) {
    switch (reason) {
        case FTPFailureReason::kStream:
            return "ftp stream failed: general stream error (check credentials?)";
        case FTPFailureReason::kWrite:
            return "ftp stream failed: error while writing data";
        case FTPFailureReason::kRead:
            return "ftp stream failed: error while reading data";
        case FTPFailureReason::kNone:
        case FTPFailureReason::kAborted:
            break;
    }
    return {};
}

}  // namespace

bool FTPManager::Operations::run(const std::stop_token &cancelled, const std::function<bool()> &step) {
    if (worker_ == std::this_thread::get_id()) {
        fm::log(kOnOwnWorker);
        return false;
    }
    try {
        const fm::TurnQueue::Turn turn(turns_);
        if (!turn.wait(cancelled)) return false;
        bool result = false;
        const bool finished = FMThread::runInSeparateThread([&] {
            worker_ = std::this_thread::get_id();
            result = step();
        });
        worker_ = std::thread::id();
        return finished && result;
    } catch (...) {
        return false;  // out of memory
    }
}

bool FTPManager::Operations::runNested(const std::function<bool()> &operation) const {
    if (worker_ == std::this_thread::get_id()) {
        fm::log(kOnOwnWorker);
        return false;
    }
    bool result = false;
    return FMThread::runInSeparateThread([&] { result = operation(); }) && result;
}

void FTPManager::Operations::begin(FTPManagerAction action, std::optional<std::uint64_t> fileSize) {
    const std::scoped_lock lock(stateMutex_);
    state_.action = action;
    if (fileSize) state_.fileSize = *fileSize;
    if (action == FTPManagerAction::kUpload || action == FTPManagerAction::kDownload)
        state_.fileSizeProcessed = 0;
    state_.isAborted = false;
}

bool FTPManager::Operations::_uploadData(std::string_view data, std::string_view withFileName,
                                         const FMServer &toServer, const std::stop_token &cancelled) {
    begin(FTPManagerAction::kUpload, data.size());
    return upload(std::make_unique<fm::DataReader>(data), withFileName, toServer, cancelled);
}

bool FTPManager::Operations::_uploadFile(const std::filesystem::path &file, const FMServer &toServer,
                                         const std::stop_token &cancelled) {
    begin(FTPManagerAction::kUpload, fm::sizeOfFile(file));
    return upload(fm::FileReader::open(file), file.filename().native(), toServer, cancelled);
}

bool FTPManager::Operations::upload(std::unique_ptr<fm::ByteReader> reader, std::string_view withFileName,
                                    const FMServer &toServer, const std::stop_token &cancelled) {
    const std::optional<fm::FTPAddress> address = addressOfFile(withFileName, toServer);
    if (!address || !reader) return false;
    fileReader = std::move(reader);
    FTPWriteStream writeStream(*transport_, *address, FTPWriteStream::Target::kFile, *this);
    serverStream = &writeStream;
    return runStream(writeStream, cancelled);
}

bool FTPManager::Operations::_createNewFolder(std::string_view name, const FMServer &atServer,
                                              const std::stop_token &cancelled) {
    begin(FTPManagerAction::kCreateFolder, 0);
    const std::optional<fm::FTPAddress> address = addressOfFile(name, atServer);
    if (!address) return false;
    FTPWriteStream writeStream(*transport_, *address, FTPWriteStream::Target::kFolder, *this);
    serverStream = &writeStream;
    return runStream(writeStream, cancelled);
}

std::optional<std::vector<FTPResource>> FTPManager::Operations::_contentsOfServer(
    const FMServer &server, const std::stop_token &cancelled) {
    begin(FTPManagerAction::kList, 0);
    directoryListingData.clear();
    std::optional<fm::FTPAddress> address = addressOfFolder(server);
    if (!address) return std::nullopt;
    FTPReadStream readStream(*transport_, std::move(*address), FTPReadStream::Source::kListing, *this);
    serverReadStream = &readStream;
    if (!runStream(readStream, cancelled)) return std::nullopt;
    std::string data = std::exchange(directoryListingData, {});
    // A server may leave out the end of its last line. Of a listing that was broken off, that line is cut.
    if (!wasAborted()) data += '\n';
    return _createListingArrayFromDirectoryListingData(data);
}

std::optional<std::vector<FTPResource>> FTPManager::Operations::_createListingArrayFromDirectoryListingData(
    std::string_view data) const {
    return fm::parseListing(data, std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
}

bool FTPManager::Operations::_downloadFile(std::string_view name, const std::filesystem::path &toDirectory,
                                           const FMServer &fromServer, const std::stop_token &cancelled) {
    begin(FTPManagerAction::kDownload, 0);
    std::optional<fm::FTPAddress> address = addressOfFile(name, fromServer);
    if (!address) return false;
    const std::filesystem::path localFile = toDirectory / name;
    fileWriter = fm::FileWriter::open(localFile);
    if (!fileWriter) return false;
    FTPReadStream readStream(*transport_, std::move(*address), FTPReadStream::Source::kFile, *this);
    serverReadStream = &readStream;
    if (runStream(readStream, cancelled)) return true;
    std::error_code ignored;
    std::filesystem::remove(localFile, ignored);
    return false;
}

bool FTPManager::Operations::runStream(FTPStream &ftpStream, const std::stop_token &cancelled) {
    FTPRunLoop runLoop;
    bufferOffset = 0;
    bufferLimit = 0;
    currentRunLoop = &runLoop;
    cancelled_ = cancelled;
    {
        const std::scoped_lock lock(stateMutex_);
        state_.stream = &ftpStream;
    }
    try {
        ftpStream.open(cancelled);
        runLoop.schedule(ftpStream);
        runLoop.run();
    } catch (...) {
        _streamDidEndWithSuccess(false, FTPFailureReason::kStream);
    }
    return streamSuccess();
}

bool FTPManager::Operations::_ftpActionForServer(const FMServer &server,
                                                 const std::optional<FTPCommand> &command,
                                                 const std::stop_token &cancelled) {
    begin(FTPManagerAction::kCommand, std::nullopt);
    const std::optional<bool> success = transport_->options().tls == TlsMode::kOff
                                            ? runInPlainText(server, command, cancelled)
                                            : runEncrypted(server, command, cancelled);
    if (!success) return false;
    const std::scoped_lock lock(stateMutex_);
    state_.action = FTPManagerAction::kFinished;
    state_.streamSuccess = *success;
    return *success;
}

/// Nothing if it did not come to an answer.
std::optional<bool> FTPManager::Operations::runInPlainText(const FMServer &server,
                                                           const std::optional<FTPCommand> &command,
                                                           const std::stop_token &cancelled) const {
    const std::string host = fmhost(*server.destination);
    const auto lines =
        fm::controlLines(*server.username, *server.password, fmdir(*server.destination),
                         command ? std::optional(command->verb + " " + command->name) : std::nullopt);
    if (!lines || fm::hasUnsendableByte(*server.destination) || server.port > kGreatestPort)
        return std::nullopt;
    return fm::runControlLines(host, static_cast<std::uint16_t>(server.port), *lines,
                               transport_->options().limits, cancelled);
}

/// The same over a connection that is encrypted as the transport demands.
std::optional<bool> FTPManager::Operations::runEncrypted(const FMServer &server,
                                                         const std::optional<FTPCommand> &command,
                                                         const std::stop_token &cancelled) const {
    std::optional<fm::FTPAddress> folder = addressOfFolder(server);
    if (!folder) return std::nullopt;
    std::vector<std::string> lines;
    if (command) {
        const bool isRelative = !command->name.starts_with('/');
        lines = {command->verb + " " + (isRelative ? folder->path : "") + command->name};
        if (!fm::isSendableLine(lines.front())) return std::nullopt;
    }
    fm::Transfer transfer(*transport_, {.kind = fm::TransferTask::Kind::kCommand,
                                        .address = std::move(*folder),
                                        .commands = std::move(lines)});
    const fm::InterruptOnStop interruptOnStop(cancelled, [&transfer] { transfer.interrupt(); });
    const bool isCompleted = transfer.runToEnd() == fm::Transfer::Status::kCompleted;
    if (!isCompleted && cancelled.stop_requested()) return std::nullopt;
    return isCompleted;
}

void FTPManager::Operations::stream(FTPStream &, FTPStreamEvent handleEvent) {
    switch (handleEvent) {
        case FTPStreamEvent::kOpenCompleted:
            openCompleted();
            break;
        case FTPStreamEvent::kBytesAvailable:
            bytesAvailable();
            break;
        case FTPStreamEvent::kSpaceAvailable:
            spaceAvailable();
            break;
        case FTPStreamEvent::kErrorOccurred:
            if (wasAborted()) {
                _streamDidEndWithSuccess(true, FTPFailureReason::kAborted);
            } else {
                const bool isCancelled = cancelled_.stop_requested();
                _streamDidEndWithSuccess(
                    false, isCancelled ? FTPFailureReason::kAborted : FTPFailureReason::kStream);
            }
            break;
        case FTPStreamEvent::kEndEncountered:
            // Of an upload too: only now has the server confirmed it.
            _streamDidEndWithSuccess(true, FTPFailureReason::kNone);
            break;
    }
}

void FTPManager::Operations::openCompleted() {
    if (action() != FTPManagerAction::kDownload) return;
    {
        const std::scoped_lock lock(stateMutex_);
        state_.fileSize = serverReadStream->resourceSize().value_or(0);
    }
    notifyDelegate();
}

void FTPManager::Operations::bytesAvailable() {
    switch (action()) {
        case FTPManagerAction::kList:
            listingBytesAvailable(*serverReadStream);
            break;
        case FTPManagerAction::kDownload:
            fileBytesAvailable(*serverReadStream);
            break;
        default:
            _streamDidEndWithSuccess(false, FTPFailureReason::kStream);
            break;
    }
}

void FTPManager::Operations::listingBytesAvailable(FTPReadStream &readStream) {
    const std::string_view piece = readStream.unread().substr(0, kPieceBytes);
    if (directoryListingData.size() + piece.size() > transport_->options().limits.mostListingBytes) {
        directoryListingData.clear();
        _streamDidEndWithSuccess(false, FTPFailureReason::kRead);
        return;
    }
    directoryListingData += piece;
    readStream.drop(piece.size());
    if (piece.empty()) _streamDidEndWithSuccess(true, FTPFailureReason::kNone);
}

void FTPManager::Operations::fileBytesAvailable(FTPReadStream &readStream) {
    if (bufferOffset == bufferLimit) {
        buffer = readStream.unread().substr(0, kPieceBytes);
        if (buffer.empty()) {
            const bool isKept = fileWriter->close();
            _streamDidEndWithSuccess(isKept, isKept ? FTPFailureReason::kNone : FTPFailureReason::kWrite);
            return;
        }
        bufferOffset = 0;
        bufferLimit = buffer.size();
        countBytes(bufferLimit);
        notifyDelegate();
    }
    const std::ptrdiff_t written = fileWriter->write(buffer.substr(bufferOffset));
    if (written <= 0) {
        _streamDidEndWithSuccess(false, FTPFailureReason::kWrite);
        return;
    }
    bufferOffset += static_cast<std::size_t>(written);
    readStream.drop(static_cast<std::size_t>(written));
}

void FTPManager::Operations::spaceAvailable() {
    // Straight into the stream's room: another copy is what would make a large upload slower than others'.
    const std::span<char> room = serverStream->room();
    const std::optional<std::size_t> count = fileReader->read(room.first(std::min(room.size(), kPieceBytes)));
    if (!count) {
        _streamDidEndWithSuccess(false, FTPFailureReason::kRead);
        return;
    }
    if (*count == 0) {
        // The upload ends well only with the server's confirmation, which comes as kEndEncountered.
        serverStream->finish();
        return;
    }
    if (serverStream->write({room.data(), *count}) <= 0) {
        _streamDidEndWithSuccess(false, FTPFailureReason::kWrite);
        return;
    }
    countBytes(*count);
    notifyDelegate();
}

void FTPManager::Operations::countBytes(std::uint64_t bytes) {
    const std::scoped_lock lock(stateMutex_);
    state_.fileSizeProcessed += bytes;
    state_.bytesProcessed = bytes;
}

void FTPManager::Operations::notifyDelegate() const {
    FTPManagerDelegate *const receiver = delegate_;
    if (!receiver) return;
    if (action() == FTPManagerAction::kDownload) {
        receiver->ftpManagerDownloadProgressDidChange(progress());
    } else {
        receiver->ftpManagerUploadProgressDidChange(progress());
    }
}

/// Ends the running transfer; does nothing if there is none.
void FTPManager::Operations::_streamDidEndWithSuccess(bool success, FTPFailureReason failureReason) {
    if (!currentRunLoop) return;
    FTPRunLoop *const runLoop = std::exchange(currentRunLoop, nullptr);
    {
        const std::scoped_lock lock(stateMutex_);
        state_.action = FTPManagerAction::kFinished;
        state_.streamSuccess = success;
        state_.stream = nullptr;
    }
    const std::string_view line = logLineFor(failureReason);
    if (!success && !line.empty()) fm::log(line);
    if (FTPWriteStream *const ended = std::exchange(serverStream, nullptr)) ended->close();
    if (FTPReadStream *const ended = std::exchange(serverReadStream, nullptr)) ended->close();
    fileReader.reset();
    fileWriter.reset();
    runLoop->stop();
}

std::optional<FTPProgress> FTPManager::Operations::progress() const {
    const std::scoped_lock lock(stateMutex_);
    const State &s = state_;
    const bool isTransfer =
        s.stream && (s.action == FTPManagerAction::kUpload || s.action == FTPManagerAction::kDownload);
    if (!isTransfer || s.fileSize == 0) return std::nullopt;
    return FTPProgress{s.fileSize, s.bytesProcessed, s.fileSizeProcessed,
                       static_cast<float>(s.fileSizeProcessed) / static_cast<float>(s.fileSize)};
}

void FTPManager::Operations::abort() {
    const std::scoped_lock lock(stateMutex_);
    if (!state_.stream) return;
    state_.isAborted = true;
    state_.stream->interrupt();
}

bool FTPManager::Operations::wasAborted() const {
    const std::scoped_lock lock(stateMutex_);
    return state_.isAborted;
}
