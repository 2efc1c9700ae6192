#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string_view>

#include "FTPManager/FTPAddress.h"
#include "FTPManager/Transfer.h"

enum class FTPStreamEvent : std::uint32_t {
    kOpenCompleted = 1,
    kBytesAvailable = 2,
    kSpaceAvailable = 4,
    kErrorOccurred = 8,
    kEndEncountered = 16,
};

class FTPWriteStream;

/// Told by a stream on the thread that runs its loop.
class FTPStreamDelegate {
  public:
    virtual ~FTPStreamDelegate() = default;
    virtual void stream(FTPWriteStream &stream, FTPStreamEvent handleEvent) = 0;
};

/// A file on a server, to be written from its start to its end.
/// After `open` it is scheduled on a run loop, which tells the delegate: kOpenCompleted once the server takes
/// bytes, then kSpaceAvailable whenever it takes more, and at last either kEndEncountered, when `finish` was
/// called and the server has confirmed the whole file, or kErrorOccurred. After `close` it tells nothing
/// more. Closing a stream that has not come to its end breaks the transfer off.
class FTPWriteStream {
  public:
    FTPWriteStream(const FTPTransport &transport, fm::FTPAddress address, FTPStreamDelegate &delegate);

    /// Interrupts the transfer once `cancelled` is requested.
    void open(std::stop_token cancelled);
    /// Only while the delegate handles kSpaceAvailable. Takes some of the bytes or all and returns how many;
    /// -1 if the stream takes none now.
    std::ptrdiff_t write(std::string_view bytes);
    /// No more bytes will come. Only while the delegate handles kSpaceAvailable.
    void finish() { isFinished_ = true; }
    void close() { isClosed_ = true; }

  private:
    friend class FTPRunLoop;
    /// Moves what can be moved; false when there is nothing left to do.
    bool turn();
    std::optional<std::size_t> fill(std::span<char> room);
    void tell(FTPStreamEvent event);

    FTPStreamDelegate &delegate_;
    fm::Transfer transfer_;
    std::optional<fm::InterruptOnStop> interruptOnStop_;
    std::span<char> room_;
    bool takesBytes_ = false;
    bool isOpen_ = false;
    bool isFinished_ = false;
    bool isClosed_ = false;
};

/// Runs one stream on the thread that calls `run`.
class FTPRunLoop {
  public:
    void schedule(FTPWriteStream &stream) { stream_ = &stream; }
    /// Returns after `stop`, or when the stream has ended.
    void run();
    /// On the loop's own thread.
    void stop() { isStopped_ = true; }

  private:
    FTPWriteStream *stream_ = nullptr;
    bool isStopped_ = false;
};
