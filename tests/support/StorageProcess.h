#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"

/// A child process whose output is read line by line; killed when this is destroyed.
class ChildProcess {
  public:
    /// `environment` is added to this process's own, as NAME=VALUE.
    ChildProcess(const std::vector<std::string> &command, const std::vector<std::string> &environment);
    ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    /// The next line of its standard output; nothing at the end or after 10 s.
    std::optional<std::string> readLine();
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
    explicit StorageProcess(const std::vector<std::string> &options = {});

    ChildProcess &process() { return *process_; }
    /// Read from its announcement; 0 if it has made none.
    std::uint16_t port() const { return port_; }
    std::filesystem::path listsFolder() const { return folder_.path() / "data/quillery/htdocs"; }
    std::filesystem::path runtimeFolder() const { return folder_.path() / "run/quillery"; }
    /// A server process of the same user, beside this one.
    std::unique_ptr<ChildProcess> startAnother(const std::vector<std::string> &options = {}) const;

    static constexpr const char *kUser = "qz7m_50281946";
    static constexpr const char *kPassword = "w5rt9x2h";

  private:
    TemporaryFolder folder_;
    std::unique_ptr<ChildProcess> process_;  ///< ends before its folder does
    std::uint16_t port_ = 0;
};
