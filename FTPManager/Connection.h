#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace fm {

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
    Connection(std::string key, std::uint16_t serverPort);
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
    /// Whether more has arrived on the control connection than libcurl has passed on. Plain text only.
    bool hasUnreadReply() const;
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
    CURLM *multi_ = nullptr;
    CURL *easy_ = nullptr;

    mutable std::mutex socketsMutex_;
    std::vector<Socket> sockets_;
    unsigned controlConnectionsOpened_ = 0;
    std::uint64_t replyBytes_ = 0;  ///< on the latest control connection
    bool dataIsWhole_ = true;
    bool interrupted_ = false;
};

/// The open connections that nobody uses at the moment.
class ConnectionPool {
  public:
    ConnectionPool();
    /// The one of that key that was used last, or a new one, which connects when it is first used. Null if
    /// libcurl cannot give one.
    std::unique_ptr<Connection> checkOut(const std::string &key, std::uint16_t serverPort);
    /// One that is not connected yet. Null if libcurl cannot give one.
    static std::unique_ptr<Connection> makeNew(const std::string &key, std::uint16_t serverPort);
    /// Keeps it warm for the next use.
    void giveBack(std::unique_ptr<Connection> connection);

  private:
    std::unique_ptr<Connection> takeIdle(const std::string &key);

    std::mutex mutex_;
    std::vector<std::unique_ptr<Connection>> idle_;  ///< the latest used last
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
