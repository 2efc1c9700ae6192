#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

/// A text longer than this is not read to its end.
inline constexpr std::uint64_t kMostTextBytes = 1024UL * 1024 * 1024;

/// When a line counts as dead, and how much is taken into memory. The time of a whole transfer has no limit.
struct TransportLimits {
    /// From the start until the server's TCP connection stands, the look-up of its name included.
    std::chrono::milliseconds connectTimeout{15'000};
    /// Without a byte moving either way. The wait for a server's reply is counted in whole seconds, rounded
    /// up.
    std::chrono::milliseconds idleTimeout{60'000};
    /// From a request on a connection that was kept open until the first byte of a reply, unless the idle
    /// limit is shorter. After that the request goes to a new connection, once.
    std::chrono::milliseconds reuseTimeout{5'000};
    /// A connection that nothing has used for longer is closed instead of used again.
    std::chrono::milliseconds mostIdle{30'000};

    std::uint64_t mostTextBytes = kMostTextBytes;
    std::uint64_t mostListingBytes = 64UL * 1024 * 1024;
};

/// Encryption of control and data connections by AUTH TLS. The server's certificate is always verified.
enum class TlsMode {
    kOff,       ///< plain text
    kTry,       ///< encrypted if the server offers it, else plain text
    kRequired,  ///< encrypted, or the operation fails before the password is sent
};

struct TransportOptions {
    TransportLimits limits;
    TlsMode tls = TlsMode::kOff;
    /// A file of certificates (PEM) to trust instead of the system's own; empty: the system's.
    std::string caFile;
};

namespace fm {
class ConnectionPool;
}

/// The way to the servers: limits, encryption, and connections that stay open between operations, so that an
/// upload or read within `mostIdle` after another needs no new login. Every operation takes a connection for
/// itself and gives it back when it ends (commands without encryption open their own); operations on several
/// threads never share one. May be used from any thread; the options are fixed.
///
/// A connection that was kept open may be dead by the next request. A request that gets an error, or no byte
/// of a reply within `reuseTimeout`, is made once more over a new connection, unless the server has begun to
/// carry it out.
///
/// At most 8 connections are kept open. They are closed when the last owner of the transport (its maker, and
/// each manager) lets go.
class FTPTransport {
  public:
    explicit FTPTransport(TransportOptions options = {});
    ~FTPTransport();
    FTPTransport(const FTPTransport &) = delete;
    FTPTransport &operator=(const FTPTransport &) = delete;

    const TransportOptions &options() const { return options_; }
    /// For the library itself.
    fm::ConnectionPool &pool() const { return *pool_; }

  private:
    TransportOptions options_;
    std::unique_ptr<fm::ConnectionPool> pool_;
};
