#include "support/ScriptedFtpServer.h"

#include <poll.h>

#include <algorithm>
#include <utility>

namespace {

constexpr std::chrono::seconds kPatience{10};

const std::map<std::string, std::string> kUsualReplies = {
    {"USER", "331 Password?"}, {"PASS", "230 Welcome."},        {"PWD", "257 \"/\" is the folder."},
    {"TYPE", "200 So be it."}, {"CWD", "250 You are there."},   {"SITE", "200 As you wish."},
    {"QUIT", "221 Bye."},      {"MKD", "257 \"It\" is there."}, {"DELE", "250 Gone."},
    {"RMD", "250 Gone."},      {"RNFR", "350 And then?"},       {"RNTO", "250 Moved."}};

bool sendAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

}  // namespace

/// One client, on a thread of its own.
class ScriptedFtpServer::Session {
  public:
    Session(ScriptedFtpServer &server, int control) : server_(server), control_(control) {}

    ~Session() {
        closeData();
        server_.release(control_);
        server_.nextFault("end");
    }

    void run() {
        if (!answer("greeting", "220 Ready.")) return;
        std::string line;
        while (readLine(line)) {
            server_.locked([&] { server_.commands_.push_back(line); });
            const std::size_t blank = std::min(line.size(), line.find(' '));
            if (!handle(line.substr(0, blank), line.substr(std::min(line.size(), blank + 1)))) return;
        }
    }

  private:
    bool readLine(std::string &line) {
        line.clear();
        char c = 0;
        while (recv(control_, &c, 1, 0) == 1) {
            if (c == '\n') return true;
            if (c != '\r') line += c;
        }
        return false;
    }

    /// Replies as usual, or as a fault has it; false if the connection is over. `goesOn` tells whether the
    /// command goes on after it.
    bool answer(std::string_view at, const std::string &usual, bool *goesOn = nullptr) {
        const Fault fault = server_.nextFault(at).value_or(Fault{});
        if (fault.meanwhile) fault.meanwhile();
        if (fault.stalls) server_.pause({});
        if (!server_.pause(fault.delay)) return false;
        if (fault.hangsUp && fault.reply.empty()) return false;
        const std::string reply = (fault.reply.empty() ? usual : fault.reply) + "\r\n";
        if (goesOn) *goesOn = reply.starts_with('1');
        return sendAll(control_, reply) && !fault.hangsUp;
    }

    bool handle(const std::string &verb, const std::string &argument) {
        const std::string path = folder_ + argument;
        if (verb == "EPSV" || verb == "PASV") return openData(verb);
        if (verb == "STOR") return store(path);
        if (verb == "RETR") return retrieve(verb, server_.file(path));
        if (verb == "LIST") return list(argument == "-a");
        if (verb == "CWD") folder_ = argument == "/" ? "" : argument + "/";
        const auto content = server_.file(path);
        if (verb == "SIZE" && content) return answer(verb, "213 " + std::to_string(content->size()));
        const auto usual = kUsualReplies.find(verb);
        std::string reply = usual == kUsualReplies.end() ? "502 Not here." : usual->second;
        if (verb == "SIZE" || !changesFiles(verb, path)) reply = "550 Not with that name.";
        return answer(verb, reply) && verb != "QUIT";
    }

    /// False if that cannot be done; true for commands that do not change any.
    bool changesFiles(const std::string &verb, const std::string &path) {
        const std::scoped_lock lock(server_.mutex_);
        if (verb == "MKD") return server_.folders_.insert(path).second;
        if (verb == "RMD") return server_.folders_.erase(path) > 0;
        if (verb == "RNFR") oldPath_ = path;
        if (verb == "RNFR") return server_.files_.contains(path);
        if (verb == "RNTO") {
            auto moved = server_.files_.extract(oldPath_);
            if (!moved) return false;
            server_.files_[path] = std::move(moved.mapped());
            return true;
        }
        return verb != "DELE" || server_.files_.erase(path) > 0;
    }

    bool openData(const std::string &verb) {
        closeData();
        const std::uint16_t port = dataListener_.emplace(16).port();
        if (verb == "EPSV") return answer(verb, "229 Passive (|||" + std::to_string(port) + "|)");
        // An address of the documentation's range, where nobody answers, as a server behind a router would
        // tell.
        return answer(verb, "227 Passive (192,0,2,1," + std::to_string(port / 256) + "," +
                                std::to_string(port % 256) + ").");
    }

    bool list(bool withHidden) {
        if (withHidden && server_.nextFault("options")) return retrieve("LIST", "");
        std::string listing = "total 1\r\n";
        {
            const std::scoped_lock lock(server_.mutex_);
            for (const auto &[path, content] : server_.files_) {
                const std::string name = path.starts_with(folder_) ? path.substr(folder_.size()) : "";
                if (name.empty() || name.find('/') != std::string::npos) continue;
                if (name.starts_with('.') && !withHidden) continue;
                listing +=
                    "-rw-r--r-- 1 u g " + std::to_string(content.size()) + " Jan 02  2020 " + name + "\r\n";
            }
        }
        if (server_.nextFault("listing")) listing.resize(listing.size() - 2);
        return retrieve("LIST", listing);
    }

    void closeData() {
        dataListener_.reset();
        if (data_ >= 0) close(std::exchange(data_, -1));
    }

    bool acceptData() {
        if (!dataListener_) return false;
        pollfd waiting{.fd = dataListener_->descriptor(), .events = POLLIN, .revents = 0};
        if (poll(&waiting, 1, std::chrono::milliseconds(kPatience).count()) != 1) return false;
        data_ = accept4(waiting.fd, nullptr, nullptr, SOCK_CLOEXEC);
        return data_ >= 0;
    }

    /// Whether the transfer runs to its end.
    bool survivesMiddle() {
        const Fault fault = server_.nextFault("data").value_or(Fault{});
        if (fault.stalls) server_.pause({});
        return server_.pause(fault.delay) && !fault.hangsUp;
    }

    bool store(const std::string &path) {
        bool goesOn = false;
        if (!answer("STOR", "150 Send it.", &goesOn)) return false;
        if (!goesOn) return true;
        if (!acceptData() || !survivesMiddle()) return false;
        std::string content;
        std::vector<char> piece(64 * 1024);
        ssize_t count = 0;
        while ((count = recv(data_, piece.data(), piece.size(), 0)) > 0)
            content.append(piece.data(), static_cast<std::size_t>(count));
        closeData();
        if (count == 0) server_.setFile(path, std::move(content));
        return answer("done", "226 Stored.");
    }

    bool retrieve(const std::string &verb, const std::optional<std::string> &content) {
        bool goesOn = false;
        if (!answer(verb, content ? "150 Here it comes." : "550 No such file.", &goesOn)) return false;
        if (!goesOn) return true;
        if (!acceptData()) return false;
        const std::string_view all = content ? std::string_view(*content) : std::string_view();
        if (!sendAll(data_, all.substr(0, all.size() / 2)) || !survivesMiddle()) return false;
        sendAll(data_, all.substr(all.size() / 2));
        closeData();
        return answer("done", "226 Sent.");
    }

    ScriptedFtpServer &server_;
    const int control_;
    std::string oldPath_;
    std::string folder_;  ///< "" or "folder/"
    std::optional<Listener> dataListener_;
    int data_ = -1;
};

ScriptedFtpServer::ScriptedFtpServer(Faults faults)
    : faults_(std::move(faults)), acceptor_([this] { acceptClients(); }) {}

ScriptedFtpServer::~ScriptedFtpServer() {
    {
        const std::scoped_lock lock(mutex_);
        isStopping_ = true;
        for (const int client : clients_) shutdown(client, SHUT_RDWR);
    }
    changed_.notify_all();
    shutdown(listener_.descriptor(), SHUT_RDWR);
    acceptor_.join();
    for (std::thread &session : sessions_) session.join();
}

void ScriptedFtpServer::acceptClients() {
    int client = -1;
    while ((client = accept4(listener_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC)) >= 0) {
        {
            const std::scoped_lock lock(mutex_);
            clients_.insert(client);
            ++connectionCount_;
            if (isStopping_) shutdown(client, SHUT_RDWR);
        }
        sessions_.emplace_back([this, client] { Session(*this, client).run(); });
    }
}

void ScriptedFtpServer::release(int descriptor) {
    const std::scoped_lock lock(mutex_);
    clients_.erase(descriptor);
    close(descriptor);
}

std::optional<Fault> ScriptedFtpServer::nextFault(std::string_view at) {
    const std::scoped_lock lock(mutex_);
    pointsReached_.emplace(at);
    changed_.notify_all();
    for (Fault &fault : faults_) {
        if (fault.at != at || fault.times == 0) continue;
        if (fault.skip > 0) {
            --fault.skip;
            return std::nullopt;
        }
        --fault.times;
        return fault;
    }
    return std::nullopt;
}

/// Without a duration until the server ends. False if it ends meanwhile.
bool ScriptedFtpServer::pause(std::optional<std::chrono::milliseconds> duration) {
    std::unique_lock lock(mutex_);
    const auto isStopping = [this] { return isStopping_; };
    if (duration) return !changed_.wait_for(lock, *duration, isStopping);
    changed_.wait(lock, isStopping);
    return false;
}

bool ScriptedFtpServer::hasFolder(const std::string &path) const {
    return locked([&] { return folders_.contains(path); });
}

void ScriptedFtpServer::setFile(const std::string &path, std::string content) {
    locked([&] { files_[path] = std::move(content); });
}

std::optional<std::string> ScriptedFtpServer::file(const std::string &path) const {
    return locked([&] {
        const auto found = files_.find(path);
        return found == files_.end() ? std::nullopt : std::optional(found->second);
    });
}

bool ScriptedFtpServer::waitUntilAt(const std::string &point) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return pointsReached_.contains(point); });
}

bool ScriptedFtpServer::waitForOpenConnections(std::size_t count) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, [&] { return clients_.size() == count; });
}

void ScriptedFtpServer::hangUpWith(const std::string &line) {
    const std::scoped_lock lock(mutex_);
    for (const int client : clients_) {
        sendAll(client, line + "\r\n");
        shutdown(client, SHUT_RDWR);
    }
}
