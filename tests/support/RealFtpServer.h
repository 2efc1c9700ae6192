#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "support/StorageProcess.h"
#include "support/TemporaryFolder.h"

/// One of Debian's FTP servers on loopback, over a folder of its own, for the user u with the password p. It
/// ends with this object.
class RealFtpServer {
  public:
    enum class Tls { kOff, kOffered, kDemanded };

    /// `kind`: pyftpdlib, vsftpd, proftpd or pureftpd.
    RealFtpServer(const std::string &kind, Tls tls);

    /// Why the server cannot run on this machine; empty if it runs.
    const std::string &skipReason() const { return skipReason_; }
    /// 0 if it did not start although it should have.
    std::uint16_t port() const { return port_; }
    /// What the user finds after the login.
    const std::filesystem::path &folder() const { return folder_.path(); }
    /// Of a server with encryption; it vouches for itself.
    const std::string &certificateFile() const { return certificateFile_; }

  private:
    TemporaryFolder folder_;
    std::unique_ptr<ChildProcess> process_;
    std::uint16_t port_ = 0;
    std::string skipReason_;
    std::string certificateFile_;
};
