#pragma once

#include <cstddef>
#include <cstdint>
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

class FTPStream;

/// Told by a stream on the thread that runs its loop.
class FTPStreamDelegate {
  public:
    virtual ~FTPStreamDelegate() = default;
    virtual void stream(FTPStream &stream, FTPStreamEvent handleEvent) = 0;
};

/// Something on a server that is read or written from its start to its end.
/// After `open` it is scheduled on a run loop, which tells the delegate what happens. After `close` it tells
/// nothing more. Closing a stream that has not come to its end breaks the transfer off.
class FTPStream {
  public:
    virtual ~FTPStream() = default;

    /// Interrupts the transfer once `cancelled` is requested.
    void open(std::stop_token cancelled);
    void close() { isClosed_ = true; }
    /// The transfer fails at once. From any thread.
    void interrupt() noexcept { transfer_.interrupt(); }

  protected:
    FTPStream(const FTPTransport &transport, fm::TransferTask task, FTPStreamDelegate &delegate);
    void tell(FTPStreamEvent event);
    bool isClosed() const { return isClosed_; }
    virtual void completed() = 0;

  private:
    friend class FTPRunLoop;
    /// Moves what can be moved; false when there is nothing left to do.
    bool turn();

    FTPStreamDelegate &delegate_;
    fm::Transfer transfer_;
    std::optional<fm::InterruptOnStop> interruptOnStop_;
    bool isOpen_ = false;
    bool isClosed_ = false;
};

/// A file to be written, or a folder to be made. For a file it tells kOpenCompleted once the server takes
/// bytes, then kSpaceAvailable whenever it takes more, until `finish` is called. At last it tells either
/// kEndEncountered, when the server has confirmed the whole file or the folder, or kErrorOccurred.
class FTPWriteStream : public FTPStream {
  public:
    enum class Target { kFile, kFolder };
    FTPWriteStream(const FTPTransport &transport, const fm::FTPAddress &address, Target target,
                   FTPStreamDelegate &delegate);

    /// Only while the delegate handles kSpaceAvailable: where the next bytes for `write` may be put, so that
    /// it need not copy them. Never empty then.
    std::span<char> room() const { return room_; }
    /// Only while the delegate handles kSpaceAvailable. Takes some of the bytes or all, all of those that lie
    /// at the beginning of `room`, and returns how many; -1 if the stream takes none now.
    std::ptrdiff_t write(std::string_view bytes);
    /// No more bytes will come. Only while the delegate handles kSpaceAvailable.
    void finish() { isFinished_ = true; }

  private:
    std::optional<std::size_t> fill(std::span<char> room);
    void completed() override { tell(FTPStreamEvent::kEndEncountered); }

    std::span<char> room_;
    bool takesBytes_ = false;
    bool isFinished_ = false;
};

/// A file's content or a folder's listing. For a file it tells kOpenCompleted once the server sends it; then
/// kBytesAvailable until the delegate closes the stream, which it does when `unread` is empty: that is the
/// end, and the server has confirmed it; or kErrorOccurred.
class FTPReadStream : public FTPStream {
  public:
    enum class Source { kFile, kListing };
    FTPReadStream(const FTPTransport &transport, fm::FTPAddress address, Source source,
                  FTPStreamDelegate &delegate);

    /// Only while the delegate handles kBytesAvailable: what has come and was not dropped yet; empty at the
    /// end.
    std::string_view unread() const { return unread_; }
    /// The first `count` bytes of `unread` are done with.
    void drop(std::size_t count) { unread_.remove_prefix(count); }
    /// A file's size in bytes as the server told it; known, if at all, from kOpenCompleted on.
    std::optional<std::uint64_t> resourceSize() const { return resourceSize_; }

  private:
    bool take(std::string_view bytes);
    void opened(std::optional<std::uint64_t> size);
    void completed() override;

    std::string_view unread_;
    std::optional<std::uint64_t> resourceSize_;
};

/// Runs one stream on the thread that calls `run`.
class FTPRunLoop {
  public:
    void schedule(FTPStream &stream) { stream_ = &stream; }
    /// Returns after `stop`, or when the stream has ended.
    void run();
    /// On the loop's own thread.
    void stop() { isStopped_ = true; }

  private:
    FTPStream *stream_ = nullptr;
    bool isStopped_ = false;
};
