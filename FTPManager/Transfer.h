#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <string_view>

#include "FTPManager/Connection.h"
#include "FTPManager/FTPAddress.h"
#include "FTPManager/FTPTransport.h"

namespace fm {

/// Where a transfer's bytes come from or go to. Called within Transfer::step.
struct TransferEnds {
    enum class Direction { kUpload, kDownload };

    Direction direction = Direction::kDownload;
    /// Upload: fills the room with the next bytes and returns how many; 0 at the end, nothing to give up.
    std::function<std::optional<std::size_t>(std::span<char> room)> source;
    /// Download: takes the bytes; false to give up.
    std::function<bool(std::string_view bytes)> sink;
};

/// One file on its way over one connection of a transport's pool. All on one thread, but for `interrupt`.
class Transfer {
  public:
    Transfer(const FTPTransport &transport, FTPAddress address, TransferEnds ends);
    /// A transfer that has not finished is broken off.
    ~Transfer();
    Transfer(const Transfer &) = delete;
    Transfer &operator=(const Transfer &) = delete;

    enum class Status {
        kRunning,
        kCompleted,  ///< the server has confirmed that all bytes have arrived
        kFailed,
    };
    /// Moves what can be moved and waits for more, 100 ms at most but for a server's final reply. Does
    /// nothing once the transfer has ended.
    Status step();

    /// From any thread: the transfer fails at once.
    void interrupt() noexcept;

  private:
    using Clock = std::chrono::steady_clock;

    static std::size_t onRead(char *room, std::size_t size, std::size_t count, void *self);
    static std::size_t onWrite(char *bytes, std::size_t size, std::size_t count, void *self);
    static int onProgress(void *self, curl_off_t, curl_off_t, curl_off_t, curl_off_t);

    bool begin();
    void setOptions(CURL *easy);
    void waitForEvents();
    bool isDead();
    bool isInterrupted() const;
    Status attemptEnded(CURLcode result);
    bool shouldRetry(CURLcode result, long reply) const;
    void releaseConnection(bool keepWarm);

    const FTPTransport &transport_;
    const FTPAddress address_;
    const TransferEnds ends_;

    Status status_ = Status::kRunning;
    bool movedAnyByte_ = false;
    bool hadRetry_ = false;
    bool isAttached_ = false;
    unsigned controlConnectionsBefore_ = 0;
    bool isEstablished_ = false;
    std::chrono::milliseconds wait_{};
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
