#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "FTPManager/Connection.h"
#include "FTPManager/FTPAddress.h"
#include "FTPManager/FTPTransport.h"

namespace fm {

/// What a transfer does. The functions are called within Transfer::step.
struct TransferTask {
    enum class Kind {
        kStore,     ///< bytes of ours become the file
        kRetrieve,  ///< the file's bytes come here
        kList,      ///< the folder's listing comes here, hidden files included where the server can
        kCommand,   ///< one command on the control connection
    };

    Kind kind = Kind::kRetrieve;
    FTPAddress address = {};  ///< for kList it ends in "/"; for kCommand any on the server
    /// kCommand: the lines to send one after the other, the last of which counts; none: log in anew, and
    /// nothing else.
    std::vector<std::string> commands = {};
    /// kCommand: it does no harm if the server gets the lines twice.
    bool mayRepeat = false;
    /// kRetrieve: asks for the file's size first.
    bool asksSize = false;

    /// kStore: fills the room with the next bytes and returns how many; 0 at the end, nothing to give up.
    std::function<std::optional<std::size_t>(std::span<char> room)> source = {};
    /// kRetrieve, kList: takes the bytes; false to give up.
    std::function<bool(std::string_view bytes)> sink = {};
    /// kRetrieve: the server begins to send a file of this size, if it has told one. May be empty.
    std::function<void(std::optional<std::uint64_t> size)> opened = {};
};

/// One task on its way over one connection of a transport's pool. All on one thread, but for `interrupt`.
class Transfer {
  public:
    Transfer(const FTPTransport &transport, TransferTask task);
    /// A transfer that has not finished is broken off.
    ~Transfer();
    Transfer(const Transfer &) = delete;
    Transfer &operator=(const Transfer &) = delete;

    enum class Status {
        kRunning,
        kCompleted,  ///< the server has confirmed that all is done, and no byte is missing
        kFailed,
    };
    /// Moves what can be moved and waits for more, 100 ms at most but for a server's final reply. Does
    /// nothing once the transfer has ended.
    Status step();
    /// Steps until the transfer has ended.
    Status runToEnd();

    /// kCommand: the code of the reply to the last line; 0 if it did not come to that.
    long replyToCommand() const { return replyToCommand_; }
    /// Whether the transfer failed because the server has refused the login or the request by a reply of 5xx.
    bool isRefusedForGood() const { return isRefusedForGood_; }

    /// From any thread: the transfer fails at once.
    void interrupt() noexcept;

  private:
    using Clock = std::chrono::steady_clock;

    static std::size_t onRead(char *room, std::size_t size, std::size_t count, void *self);
    static std::size_t onWrite(char *bytes, std::size_t size, std::size_t count, void *self);
    static std::size_t onReply(char *line, std::size_t size, std::size_t count, void *self);
    static int onProgress(void *self, curl_off_t, curl_off_t, curl_off_t, curl_off_t);

    std::unique_ptr<Connection> connect();
    bool begin();
    void setOptions(CURL *easy);
    void setTask(CURL *easy);
    bool noteReply(std::string_view line);
    void noteOpening(std::string_view line);
    void waitForEvents();
    bool isDead();
    bool isInterrupted() const;
    Status attemptEnded(CURLcode result);
    bool isReused() const;
    bool shouldRetry(CURLcode result, long reply) const;
    bool isFulfilled(long reply) const;
    bool shouldListPlainly(CURLcode result, long reply) const;
    bool mayStayOpen() const;
    void releaseConnection(bool keepWarm);

    const FTPTransport &transport_;
    const TransferTask task_;

    using CommandList = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;
    CommandList commands_{nullptr, curl_slist_free_all};

    std::optional<SigpipeGuard> guard_;  ///< from the first step to the end: setting it up costs time
    Status status_ = Status::kRunning;
    bool hasBegun_ = false;  ///< the server has taken up the request, so it is not repeated
    bool listsPlainly_ = false;
    bool hasDataAddress_ = false;  ///< the server has said where the data connection goes
    std::optional<std::uint64_t> announcedSize_;
    std::uint64_t bytesReceived_ = 0;
    std::uint64_t bytesReceivedAtLastWait_ = 0;
    bool hadRetry_ = false;
    bool needsNewConnection_ = false;
    bool isAnswered_ = false;  ///< some byte of a reply has come
    long replyToCommand_ = 0;
    bool isRefusedForGood_ = false;
    bool isAttached_ = false;
    unsigned controlConnectionsBefore_ = 0;
    std::uint64_t controlBytesBefore_ = 0;
    bool isEstablished_ = false;
    std::chrono::milliseconds wait_{};
    Clock::time_point begunAt_;
    Clock::time_point lastCheck_;
    Clock::time_point lastActivity_;
    std::uint64_t bytesMovedAtLastCheck_ = 0;

    mutable std::mutex connectionMutex_;  ///< guards the two below against `interrupt`
    std::unique_ptr<Connection> connection_;
    bool isInterrupted_ = false;
};

/// Interrupts the transfer when the token's stop is requested, for as long as this lives.
using InterruptOnStop = std::stop_callback<std::function<void()>>;

}  // namespace fm
