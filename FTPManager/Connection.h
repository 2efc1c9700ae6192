#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "FTPManager/FTPTransport.h"

namespace fm {

/// Lets the kernel give up a socket whose other side has gone silent: when what was sent is not acknowledged
/// within the idle limit, and when an idle connection's probes are not.
void watchForSilence(int socket, const TransportLimits &limits);

/// What a connection's sockets have done so far.
struct SocketActivity {
    bool established = false;  ///< the server has accepted a connection
    std::uint64_t bytesMoved =
        0;  ///< received, or sent and acknowledged by the other side; of the open sockets
};

/// One control connection to one server under one login, and what libcurl needs to keep it warm.
/// Used by one thread at a time, but for `interrupt`.
class Connection {
  public:
    /// `key` says what the connection can be used for; see ConnectionPool.
    Connection(std::string key, std::uint16_t serverPort, const TransportLimits &limits);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    /// Whether libcurl gave the handles; nothing else may be called if not.
    bool isUsable() const { return multi_ && easy_; }
    const std::string &key() const { return key_; }

    CURLM *multi() const { return multi_; }
    /// The transfer handle with all options at their defaults, but for those that tie it to this connection.
    /// It keeps its TLS session, which some servers demand to be resumed by each data connection.
    CURL *freshEasy();
    CURL *easy() const { return easy_; }

    /// Makes whatever waits on the connection return at once, with an error. From any thread.
    void interrupt() noexcept;
    /// Says whether the data connection, if it were closed now, would end where the file ends. If not, it is
    /// closed in a way that the server can tell from that: the control connection first, then the data
    /// connection by a reset. Otherwise a server takes half a file for the whole.
    void setDataIsWhole(bool isWhole) noexcept;

    SocketActivity activity() const;
    /// How many control connections were opened so far: 0 or more than 1 tell of re-use and of a reopening.
    unsigned controlConnectionsOpened() const;
    /// Counts bytes of replies that libcurl has read and passed on.
    void countReply(std::size_t bytes) noexcept;
    /// Tells the server at once that its latest reply has come. It may hold the next one back until then, and
    /// the kernel takes its time, unless there is something to send.
    void acknowledgeReply() noexcept;
    /// From now on the control connection is encrypted.
    void noteEncrypted() noexcept;
    /// Whether more has arrived on the control connection than libcurl has passed on. Never if it is
    /// encrypted: the numbers of bytes cannot be compared then.
    bool hasUnreadReply() const;
    /// How many bytes have arrived on the control connection.
    std::uint64_t controlBytesReceived() const;
    /// Whether the server has said something that nobody asked for, or has hung up.
    bool hasUnexpectedInput() const;

  private:
    struct Socket {
        int descriptor;
        bool isControl;
    };

    /// Whether the server's latest reply was a refusal: no file is being written then.
    bool wasRefused() const;
    static curl_socket_t openSocket(void *self, curlsocktype purpose, curl_sockaddr *address);
    static int closeSocket(void *self, curl_socket_t descriptor);

    const std::string key_;
    const std::uint16_t serverPort_;
    const TransportLimits limits_;
    CURLM *multi_ = nullptr;
    CURL *easy_ = nullptr;

    mutable std::mutex socketsMutex_;
    std::vector<Socket> sockets_;
    unsigned controlConnectionsOpened_ = 0;
    std::uint64_t replyBytes_ = 0;  ///< on the latest control connection
    bool isEncrypted_ = false;      ///< the latest control connection
    bool dataIsWhole_ = true;
    bool interrupted_ = false;
};

/// The open connections that nobody uses at the moment.
class ConnectionPool {
  public:
    explicit ConnectionPool(const TransportLimits &limits);
    /// The one of that key that was used last, or a new one, which connects when it is first used. Null if
    /// libcurl cannot give one.
    std::unique_ptr<Connection> checkOut(const std::string &key, std::uint16_t serverPort);
    /// One that is not connected yet. Null if libcurl cannot give one.
    std::unique_ptr<Connection> makeNew(const std::string &key, std::uint16_t serverPort) const;
    /// Keeps it warm for the next use.
    void giveBack(std::unique_ptr<Connection> connection);
    /// Closes those of that key: one of them was found dead.
    void closeIdle(const std::string &key);

  private:
    using Clock = std::chrono::steady_clock;
    struct Idle {
        std::unique_ptr<Connection> connection;
        Clock::time_point since;
    };
    std::unique_ptr<Connection> takeIdle(const std::string &key);
    /// Takes out those that were idle for too long; to be destroyed outside the lock.
    std::vector<Idle> takeExpired();

    const TransportLimits limits_;
    std::mutex mutex_;
    std::vector<Idle> idle_;  ///< the latest used last
};

/// While it lives, a write to a connection that the other side has closed cannot end the process by SIGPIPE.
/// For the calling thread alone.
class SigpipeGuard {
  public:
    SigpipeGuard();
    ~SigpipeGuard();
    SigpipeGuard(const SigpipeGuard &) = delete;
    SigpipeGuard &operator=(const SigpipeGuard &) = delete;

  private:
    bool wasBlocked_ = false;
};

}  // namespace fm
