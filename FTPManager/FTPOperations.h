#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "FTPManager/FTPManager.h"
#include "FTPManager/FTPStream.h"
#include "FTPManager/LocalFile.h"
#include "FTPManager/TurnQueue.h"

enum class FTPFailureReason : std::int32_t { kNone = 0, kRead = 1, kWrite = 2, kStream = 3, kAborted = 4 };

/// What is done to something in the server's folder.
struct FTPCommand {
    std::string verb;
    std::string name;
};

/// What a manager does once its arguments are known to be there: the turns and workers, and one step for each
/// operation. The steps run on the worker; what others may ask meanwhile is in `state_`.
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
    bool _ftpActionForServer(const FMServer &server, const std::optional<FTPCommand> &command,
                             const std::stop_token &cancelled);

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
    std::optional<bool> runInPlainText(const FMServer &server, const std::optional<FTPCommand> &command,
                                       const std::stop_token &cancelled) const;
    std::optional<bool> runEncrypted(const FMServer &server, const std::optional<FTPCommand> &command,
                                     const std::stop_token &cancelled) const;

    void stream(FTPStream &stream, FTPStreamEvent handleEvent) override;
    void openCompleted();
    void bytesAvailable();
    void listingBytesAvailable(FTPReadStream &stream);
    void fileBytesAvailable(FTPReadStream &stream);
    void spaceAvailable();
    void countBytes(std::uint64_t bytes);
    void notifyDelegate() const;
    void _streamDidEndWithSuccess(bool success, FTPFailureReason failureReason);
    std::optional<std::vector<FTPResource>> _createListingArrayFromDirectoryListingData(
        std::string_view data) const;

    const std::shared_ptr<FTPTransport> transport_;
    const std::atomic<FTPManagerDelegate *> &delegate_;
    fm::TurnQueue turns_;
    std::atomic<std::thread::id> worker_;

    // Used by the worker alone.
    static constexpr std::size_t kPieceBytes = 32768;
    /// Of a download: the piece that is being written, in the stream's own memory, and how much of it is.
    std::string_view buffer;
    std::size_t bufferOffset = 0;
    std::size_t bufferLimit = 0;
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
