#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "support/TemporaryFolder.h"

/// A bare listening socket on loopback, for servers that do not even accept.
class Listener {
  public:
    explicit Listener(int backlog);
    ~Listener() { close(descriptor_); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    int descriptor() const { return descriptor_; }
    std::uint16_t port() const { return port_; }

  private:
    int descriptor_;
    std::uint16_t port_ = 0;
};

/// A server of Debian's (vsftpd, proftpd) on loopback, over a folder of its own, for the user u with the
/// password p.
class RealFtpServer {
  public:
    /// `demandsTls`: it takes encrypted connections only.
    RealFtpServer(const std::string &kind, bool demandsTls);
    ~RealFtpServer();
    RealFtpServer(const RealFtpServer &) = delete;
    RealFtpServer &operator=(const RealFtpServer &) = delete;

    /// Why the server cannot run on this machine; empty if it runs.
    const std::string &skipReason() const { return skipReason_; }
    /// 0 if it did not start although it should have.
    std::uint16_t port() const { return port_; }
    /// What the user finds after the login.
    std::filesystem::path folder() const { return folder_.path() / "store"; }
    /// Of a server with encryption; it vouches for itself.
    std::string certificateFile() const { return folder_.path() / "certificate.pem"; }

  private:
    TemporaryFolder folder_;
    pid_t process_ = -1;
    std::uint16_t port_ = 0;
    std::string skipReason_;
};
