#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>

// The personal storage server of this machine and user: the program quillery-storage, which serves a folder
// of the user's over FTP on the loopback address.
//
// While an object of this class lives and has been asked for the server, it counts as one of the server's
// users. A server that this program started ends by itself once its last user has gone, however that one
// ended; a server that was running before is left alone.
class PersonalStorage {
  public:
    static constexpr std::chrono::seconds kStartLimit{10};

    struct Result {
        std::optional<std::int32_t> port;  // where the server listens on 127.0.0.1
        std::string problem;               // why there is none, in words
    };

    PersonalStorage() = default;
    ~PersonalStorage();
    PersonalStorage(const PersonalStorage &) = delete;
    PersonalStorage &operator=(const PersonalStorage &) = delete;

    // Makes sure that the server is up and tells its port; quick where it is. `program` is the path of
    // quillery-storage. Blocks until the server answers, at most kStartLimit; any thread.
    Result ensureRunning(const std::filesystem::path &program, const std::stop_token &stop = {});

  private:
    std::mutex mutex_;
    int usersLock_ = -1;
};
