#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "support/FtpServers.h"

/// Something that a good server never does.
struct Fault {
    /// A command ("STOR"), or "greeting" (the first line), "data" (amid the bytes of a transfer), "done" (the
    /// reply to a whole transfer), "options" ("-a" is taken for the name of a file that is not there),
    /// "listing" (its last line has no end).
    std::string at;
    /// Sent instead of the usual reply, line ends apart; a command whose reply does not begin with 1 ends
    /// there.
    std::string reply = {};
    /// Waits before it replies.
    std::chrono::milliseconds delay{0};
    /// Closes the connection, after the reply if there is one.
    bool hangsUp = false;
    /// Says and does nothing more on this connection.
    bool stalls = false;
    /// Runs before it replies, on a thread of the server's; not at "data".
    std::function<void()> meanwhile = {};
    /// Behaves well that many times first, and again after so many faults; counted over all connections.
    int skip = 0;
    int times = std::numeric_limits<int>::max();
};

using Faults = std::vector<Fault>;

/// An FTP server on loopback that keeps files in memory, takes any login, and has faults on request. A folder
/// need not be made before there are files in it. May be used from any thread.
class ScriptedFtpServer {
    auto locked(const auto &what) const {
        const std::scoped_lock lock(mutex_);
        return what();
    }

  public:
    explicit ScriptedFtpServer(Faults faults = {});
    ~ScriptedFtpServer();
    ScriptedFtpServer(const ScriptedFtpServer &) = delete;
    ScriptedFtpServer &operator=(const ScriptedFtpServer &) = delete;

    std::uint16_t port() const { return listener_.port(); }
    /// From now on it has these instead.
    void setFaults(Faults faults) {
        locked([&] { faults_ = std::move(faults); });
    }
    /// By path as the client says it, such as "htdocs/name".
    void setFile(const std::string &path, std::string content);
    std::optional<std::string> file(const std::string &path) const;
    bool hasFolder(const std::string &path) const;

    /// All commands so far, in the order of their arrival, with their arguments.
    std::vector<std::string> commands() const {
        return locked([this] { return commands_; });
    }
    void forgetCommands() {
        locked([this] { commands_.clear(); });
    }
    int connectionCount() const {
        return locked([this] { return connectionCount_; });
    }
    /// Waits until a client has brought it to this point, named as in Fault, or "end": a client's session is
    /// over. False after 10 s.
    bool waitUntilAt(const std::string &point) const;
    /// Waits until so many connections are open. False after 10 s.
    bool waitForOpenConnections(std::size_t count) const;
    /// Says something to every client unasked, and hangs up.
    void hangUpWith(const std::string &line);

  private:
    class Session;

    void acceptClients();
    std::optional<Fault> nextFault(std::string_view at);
    bool pause(std::optional<std::chrono::milliseconds> duration);
    void release(int descriptor);

    Listener listener_{64};

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    Faults faults_;
    std::map<std::string, std::string> files_;
    std::set<std::string> folders_;
    std::vector<std::string> commands_;
    std::set<std::string, std::less<>> pointsReached_;
    std::set<int> clients_;  ///< open control connections
    int connectionCount_ = 0;
    bool isStopping_ = false;

    std::vector<std::thread> sessions_;
    std::thread acceptor_;
};
