#include "FTPManager/FTPManager.h"

#include <sys/stat.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "FTPManager/ControlConnection.h"
#include "FTPManager/FMThread.h"
#include "FTPManager/FTPAddress.h"
#include "FTPManager/FTPListing.h"
#include "FTPManager/FTPStream.h"
#include "FTPManager/LocalFile.h"
#include "FTPManager/Log.h"
#include "FTPManager/Text.h"
#include "FTPManager/TurnQueue.h"

namespace {

enum class FailureReason : std::int32_t { kNone = 0, kRead = 1, kWrite = 2, kStream = 3, kAborted = 4 };

constexpr std::int32_t kGreatestPort = 65535;
constexpr std::string_view kOnOwnWorker =
    "FTPManager: an operation cannot start another one of the same manager";

/// What is done to something in the server's folder.
struct Command {
    std::string verb;
    std::string name;
};

std::uint64_t sizeOf(const std::filesystem::path &file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

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

std::string_view logLineFor(FailureReason reason) {
    switch (reason) {
        case FailureReason::kStream:
            return "ftp stream failed: general stream error (check credentials?)";
        case FailureReason::kWrite:
            return "ftp stream failed: error while writing data";
        case FailureReason::kRead:
            return "ftp stream failed: error while reading data";
        case FailureReason::kNone:
        case FailureReason::kAborted:
            break;
    }
    return {};
}

}  // namespace

class FTPManager::Operations : private FTPStreamDelegate {
  public:
    Operations(std::shared_ptr<FTPTransport> transport, const std::atomic<FTPManagerDelegate *> &delegate)
        : transport_(std::move(transport)), delegate_(delegate) {}

    /// Waits for the turn, then for a worker that runs the step. False if it did not come to that.
    bool run(const std::stop_token &cancelled, const std::function<bool()> &step);
    /// Runs an operation on a worker that does not take the turn, so that the operation can.
    bool runNested(const std::function<bool()> &operation) const;

    // The private steps, each on the worker.
    bool _uploadData(std::string_view data, std::string_view withFileName, const FMServer &toServer,
                     const std::stop_token &cancelled);
    bool _uploadFile(const std::filesystem::path &file, const FMServer &toServer,
                     const std::stop_token &cancelled);
    bool _createNewFolder(std::string_view name, const FMServer &atServer, const std::stop_token &cancelled);
    std::optional<std::vector<FTPResource>> _contentsOfServer(const FMServer &server,
                                                              const std::stop_token &cancelled);
    bool _downloadFile(std::string_view name, const std::filesystem::path &toDirectory,
                       const FMServer &fromServer, const std::stop_token &cancelled);
    bool _ftpActionForServer(const FMServer &server, const std::optional<Command> &command);

    std::optional<FTPProgress> progress() const;
    void abort();
    FTPManagerAction action() const {
        const std::scoped_lock lock(stateMutex_);
        return state_.action;
    }
    bool streamSuccess() const {
        const std::scoped_lock lock(stateMutex_);
        return state_.streamSuccess;
    }

  private:
    void begin(FTPManagerAction action, std::optional<std::uint64_t> fileSize);
    bool upload(std::unique_ptr<fm::ByteReader> reader, std::string_view withFileName,
                const FMServer &toServer, const std::stop_token &cancelled);
    bool runStream(FTPStream &ftpStream, const std::stop_token &cancelled);
    bool wasAborted() const;
    std::optional<bool> runInPlainText(const FMServer &server, const std::optional<Command> &command) const;
    std::optional<bool> runEncrypted(const FMServer &server, const std::optional<Command> &command) const;

    void stream(FTPStream &stream, FTPStreamEvent handleEvent) override;
    void openCompleted();
    void bytesAvailable();
    void listingBytesAvailable(FTPReadStream &stream);
    void fileBytesAvailable(FTPReadStream &stream);
    void spaceAvailable();
    void countBytes(std::uint64_t bytes);
    void notifyDelegate() const;
    void _streamDidEndWithSuccess(bool success, FailureReason failureReason);
    std::optional<std::vector<FTPResource>> _createListingArrayFromDirectoryListingData(
        std::string_view data) const;

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
    std::unique_ptr<fm::ByteReader> fileReader;
    std::unique_ptr<fm::FileWriter> fileWriter;
    FTPReadStream *serverReadStream = nullptr;
    FTPWriteStream *serverStream = nullptr;
    std::string directoryListingData;

    /// Written by the worker, read by any thread.
    struct State {
        FTPManagerAction action = FTPManagerAction::kUpload;
        std::uint64_t fileSize = 0;
        std::uint64_t bytesProcessed = 0;
        std::uint64_t fileSizeProcessed = 0;
        bool streamSuccess = false;
        FTPStream *stream = nullptr;  ///< the open one of the two above
        bool isAborted = false;
    };
    mutable std::mutex stateMutex_;
    State state_;
};

bool FTPManager::Operations::run(const std::stop_token &cancelled, const std::function<bool()> &step) {
    if (worker_ == std::this_thread::get_id()) {
        fm::log(kOnOwnWorker);
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
    begin(FTPManagerAction::kUpload, sizeOf(file));
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
        _streamDidEndWithSuccess(false, FailureReason::kStream);
    }
    return streamSuccess();
}

bool FTPManager::Operations::_ftpActionForServer(const FMServer &server,
                                                 const std::optional<Command> &command) {
    begin(FTPManagerAction::kCommand, std::nullopt);
    const std::optional<bool> success = transport_->options().tls == TlsMode::kOff
                                            ? runInPlainText(server, command)
                                            : runEncrypted(server, command);
    if (!success) return false;
    const std::scoped_lock lock(stateMutex_);
    state_.action = FTPManagerAction::kFinished;
    state_.streamSuccess = *success;
    return *success;
}

/// Nothing if it did not come to an answer.
std::optional<bool> FTPManager::Operations::runInPlainText(const FMServer &server,
                                                           const std::optional<Command> &command) const {
    const std::string host = fmhost(*server.destination);
    const auto lines =
        fm::controlLines(*server.username, *server.password, fmdir(*server.destination),
                         command ? std::optional(command->verb + " " + command->name) : std::nullopt);
    if (!lines || fm::hasUnsendableByte(*server.destination) || server.port > kGreatestPort)
        return std::nullopt;
    return fm::runControlLines(host, static_cast<std::uint16_t>(server.port), *lines,
                               transport_->options().limits);
}

/// The same over a connection that is encrypted as the transport demands.
std::optional<bool> FTPManager::Operations::runEncrypted(const FMServer &server,
                                                         const std::optional<Command> &command) const {
    std::optional<fm::FTPAddress> folder = addressOfFolder(server);
    if (!folder) return std::nullopt;
    std::string line;
    if (command) {
        const bool isRelative = !command->name.starts_with('/');
        line = command->verb + " " + (isRelative ? folder->path : "") + command->name;
        if (!fm::isSendableLine(line)) return std::nullopt;
    }
    fm::Transfer transfer(*transport_, {.kind = fm::TransferTask::Kind::kCommand,
                                        .address = std::move(*folder),
                                        .command = std::move(line)});
    return transfer.runToEnd() == fm::Transfer::Status::kCompleted;
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
                _streamDidEndWithSuccess(true, FailureReason::kAborted);
            } else {
                const bool isCancelled = cancelled_.stop_requested();
                _streamDidEndWithSuccess(false,
                                         isCancelled ? FailureReason::kAborted : FailureReason::kStream);
            }
            break;
        case FTPStreamEvent::kEndEncountered:
            // Of an upload too: only now has the server confirmed it.
            _streamDidEndWithSuccess(true, FailureReason::kNone);
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
            _streamDidEndWithSuccess(false, FailureReason::kStream);
            break;
    }
}

void FTPManager::Operations::listingBytesAvailable(FTPReadStream &readStream) {
    const std::size_t count = readStream.read(buffer);
    directoryListingData.append(buffer.data(), count);
    if (count == 0) _streamDidEndWithSuccess(true, FailureReason::kNone);
}

void FTPManager::Operations::fileBytesAvailable(FTPReadStream &readStream) {
    if (bufferOffset == bufferLimit) {
        const std::size_t count = readStream.read(buffer);
        if (count == 0) {
            const bool isKept = fileWriter->close();
            _streamDidEndWithSuccess(isKept, isKept ? FailureReason::kNone : FailureReason::kWrite);
            return;
        }
        bufferOffset = 0;
        bufferLimit = count;
        countBytes(count);
        notifyDelegate();
    }
    const std::ptrdiff_t written =
        fileWriter->write({buffer.data() + bufferOffset, bufferLimit - bufferOffset});
    if (written <= 0) {
        _streamDidEndWithSuccess(false, FailureReason::kWrite);
    } else {
        bufferOffset += static_cast<std::uint64_t>(written);
    }
}

void FTPManager::Operations::spaceAvailable() {
    if (bufferOffset == bufferLimit) {
        const std::optional<std::size_t> count = fileReader->read(buffer);
        if (!count) {
            _streamDidEndWithSuccess(false, FailureReason::kRead);
            return;
        }
        if (*count == 0) {
            // The upload ends well only with the server's confirmation, which comes as kEndEncountered.
            serverStream->finish();
            return;
        }
        bufferOffset = 0;
        bufferLimit = *count;
    }
    const std::ptrdiff_t written =
        serverStream->write({buffer.data() + bufferOffset, bufferLimit - bufferOffset});
    if (written <= 0) {
        _streamDidEndWithSuccess(false, FailureReason::kWrite);
        return;
    }
    bufferOffset += static_cast<std::uint64_t>(written);
    countBytes(static_cast<std::uint64_t>(written));
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
void FTPManager::Operations::_streamDidEndWithSuccess(bool success, FailureReason failureReason) {
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
    return operations_->run(
        cancelled, [&] { return operations_->_uploadData(*data, withFileName, *toServer, cancelled); });
}

bool FTPManager::uploadFile(const std::optional<std::filesystem::path> &file, const FMServer *toServer,
                            const std::stop_token &cancelled) {
    if (!_checkFMServer(toServer) || !file) return false;
    std::error_code error;
    if (!std::filesystem::exists(*file, error) || std::filesystem::is_directory(*file, error)) return false;
    return operations_->run(cancelled, [&] { return operations_->_uploadFile(*file, *toServer, cancelled); });
}

bool FTPManager::createNewFolder(std::optional<std::string_view> name, const FMServer *atServer,
                                 const std::stop_token &cancelled) {
    if (!_checkFMServer(atServer) || !name || name->empty()) return false;
    return operations_->run(cancelled,
                            [&] { return operations_->_createNewFolder(*name, *atServer, cancelled); });
}

std::optional<std::vector<FTPResource>> FTPManager::contentsOfServer(const FMServer *server,
                                                                     const std::stop_token &cancelled) {
    if (!_checkFMServer(server)) return std::nullopt;
    std::optional<std::vector<FTPResource>> contents;
    operations_->run(cancelled, [&] {
        contents = operations_->_contentsOfServer(*server, cancelled);
        return contents.has_value();
    });
    return contents;
}

bool FTPManager::downloadFile(std::optional<std::string_view> name,
                              const std::optional<std::filesystem::path> &toDirectory,
                              const FMServer *fromServer, const std::stop_token &cancelled) {
    if (!_checkFMServer(fromServer) || !name || name->empty() || !toDirectory) return false;
    std::error_code error;
    if (!std::filesystem::exists(*toDirectory, error)) return false;
    return operations_->run(
        cancelled, [&] { return operations_->_downloadFile(*name, *toDirectory, *fromServer, cancelled); });
}

bool FTPManager::deleteFileNamed(std::optional<std::string_view> name, const FMServer *fromServer) {
    if (!_checkFMServer(fromServer) || !name) return false;
    const bool isTakenForAFile = name->find('.') != std::string_view::npos;
    const Command command{isTakenForAFile ? "DELE" : "RMD", std::string(*name)};
    return operations_->run({}, [&] { return operations_->_ftpActionForServer(*fromServer, command); });
}

bool FTPManager::deleteFile(std::optional<std::string_view> name, const FMServer *fromServer) {
    return operations_->runNested([&] { return deleteFileNamed(name, fromServer); });
}

bool FTPManager::chmodFileNamed(std::optional<std::string_view> name, std::int32_t to,
                                const FMServer *atServer) {
    constexpr std::int32_t kGreatestMode = 777;  // the octal digits, read as a decimal number
    if (!_checkFMServer(atServer) || !name || to < 0 || to > kGreatestMode) return false;
    const Command command{"SITE CHMOD " + std::to_string(to), std::string(*name)};
    return operations_->run({}, [&] { return operations_->_ftpActionForServer(*atServer, command); });
}

bool FTPManager::checkLogin(const FMServer *server) {
    if (!_checkFMServer(server)) return false;
    return operations_->run({}, [&] { return operations_->_ftpActionForServer(*server, std::nullopt); });
}

std::uint64_t FTPManager::fileSizeOf(const std::filesystem::path &file) const {
    return sizeOf(file);
}

void FTPManager::abort() {
    operations_->abort();
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
