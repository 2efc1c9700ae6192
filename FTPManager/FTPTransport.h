#pragma once

#include <chrono>
#include <memory>
#include <string>

/// When a line counts as dead. A transfer as a whole has no limit.
struct TransportLimits {
    /// From the start until the server's TCP connection stands, the look-up of its name included.
    std::chrono::milliseconds connectTimeout{15'000};
    /// Without a byte moving either way. The wait for a server's reply is counted in whole seconds, rounded
    /// up.
    std::chrono::milliseconds idleTimeout{60'000};
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

/// The way to the servers: limits, encryption, and connections that stay open between operations, so that the
/// next upload or read needs no new login. Every operation takes a connection for itself and gives it back
/// when it ends (commands without encryption open their own); operations on several threads never share one.
/// May be used from any thread; the options are fixed.
///
/// The connections are closed when the last owner (whoever made it, and each manager) lets go.
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
