#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"

/// A connection to a port of loopback; the descriptor is the caller's.
int connectTo(std::uint16_t port, int flags = 0);

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

/// A child process whose output is read line by line; killed when this is destroyed.
class ChildProcess {
  public:
    /// `environment` is added to this process's own, as NAME=VALUE.
    explicit ChildProcess(std::vector<std::string> command, std::vector<std::string> environment = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    /// The next line of its standard output; empty at the end or after 10 s.
    std::string readLine();
    void sendSignal(int number) const;
    pid_t id() const { return id_; }
    /// The exit status, 128 + N after signal N; nothing if it has not ended by then.
    std::optional<int> waitForEnd(std::chrono::milliseconds limit = std::chrono::seconds(10));

  private:
    pid_t id_ = -1;
    int output_ = -1;
    std::string unread_;
    std::optional<int> status_;
};

/// quillery-storage with folders of its own, which vanish with it.
class StorageProcess {
  public:
    explicit StorageProcess(const std::vector<std::string> &options = {},
                            const std::vector<std::string> &environment = {});

    ChildProcess &process() { return *process_; }
    /// Read from its announcement; 0 if it has made none.
    std::uint16_t port() const { return port_; }
    std::filesystem::path listsFolder() const { return folder_.path() / "data/quillery/htdocs"; }
    std::filesystem::path runtimeFolder() const { return folder_.path() / "run/quillery"; }
    /// A server process of the same user, beside this one.
    std::unique_ptr<ChildProcess> startAnother(const std::vector<std::string> &options = {},
                                               std::vector<std::string> environment = {}) const;

    static constexpr const char *kUser = "qz7m_50281946";
    static constexpr const char *kPassword = "w5rt9x2h";

  private:
    TemporaryFolder folder_;
    std::unique_ptr<ChildProcess> process_;  ///< ends before its folder does
    std::uint16_t port_ = 0;
};

/// One of Debian's FTP servers on loopback, over a folder of its own, for the user u with the password p.
class RealFtpServer {
  public:
    /// `kind`: vsftpd or proftpd. `demandsTls`: it takes encrypted connections only.
    RealFtpServer(const std::string &kind, bool demandsTls);

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
    std::unique_ptr<ChildProcess> process_;
    std::uint16_t port_ = 0;
    std::string skipReason_;
};
