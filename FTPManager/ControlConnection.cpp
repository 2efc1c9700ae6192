#include "FTPManager/ControlConnection.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>

#include "FTPManager/Connection.h"
#include "FTPManager/LocalFile.h"
#include "FTPManager/Log.h"
#include "FTPManager/Text.h"

namespace fm {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// The size of a line's buffer and of an answer's, the zero byte at the end included.
constexpr std::size_t kBufferSizeBytes = 256;
constexpr std::string_view kLineEnd = "\r\n";
/// More than a server has to say to five lines; one that never stops must not fill the memory.
constexpr std::size_t kMostAnswerBytes = 1024 * 1024;

/// False if it is not ready by then, or if `cancelled` is requested first.
bool waitUntilReady(int socket, short events, Clock::time_point deadline, const std::stop_token &cancelled) {
    const Descriptor wakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (wakeUp.number() < 0) return false;
    const std::stop_callback onStop(cancelled, [&wakeUp] { eventfd_write(wakeUp.number(), 1); });
    std::array<pollfd, 2> waiting = {pollfd{.fd = socket, .events = events, .revents = 0},
                                     pollfd{.fd = wakeUp.number(), .events = POLLIN, .revents = 0}};
    while (true) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
        const int ready =
            poll(waiting.data(), waiting.size(), static_cast<int>(std::clamp<long>(left, 0, 1'000'000)));
        if (cancelled.stop_requested()) return false;
        if (ready > 0) return true;
        if (ready < 0 && errno != EINTR) return false;
        if (ready == 0 && left <= 0) return false;
    }
}

/// The first IPv4 address of the host. The look-up itself cannot be limited, so one that takes too long is
/// left to itself.
std::optional<in_addr> resolve(const std::string &host, Clock::time_point deadline,
                               const std::stop_token &cancelled) {
    struct LookUp {
        std::mutex mutex;
        std::condition_variable_any changed;
        bool isDone = false;
        std::optional<in_addr> address;
    };
    const auto lookUp = std::make_shared<LookUp>();
    std::thread([lookUp, host]() noexcept {
        addrinfo hints{};
        hints.ai_family = AF_INET;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo *found = nullptr;
        std::optional<in_addr> address;
        if (getaddrinfo(host.c_str(), nullptr, &hints, &found) == 0) {
            address = reinterpret_cast<const sockaddr_in *>(found->ai_addr)->sin_addr;
            freeaddrinfo(found);
        }
        const std::scoped_lock lock(lookUp->mutex);
        lookUp->address = address;
        lookUp->isDone = true;
        lookUp->changed.notify_all();
    }).detach();
    std::unique_lock lock(lookUp->mutex);
    lookUp->changed.wait_until(lock, cancelled, deadline, [&] { return lookUp->isDone; });
    return lookUp->address;
}

bool connectTo(int socket, in_addr address, std::uint16_t port, Clock::time_point deadline,
               const std::stop_token &cancelled) {
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_addr = address;
    target.sin_port = htons(port);
    if (connect(socket, reinterpret_cast<const sockaddr *>(&target), sizeof target) == 0) return true;
    if (errno != EINPROGRESS || !waitUntilReady(socket, POLLOUT, deadline, cancelled)) return false;
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
}

bool sendWhole(int socket, std::string_view bytes, milliseconds idleTimeout,
               const std::stop_token &cancelled) {
    while (!bytes.empty()) {
        const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        } else if (sent < 0 && (errno == EAGAIN || errno == EINTR)) {
            if (!waitUntilReady(socket, POLLOUT, Clock::now() + idleTimeout, cancelled)) return false;
        } else {
            return false;
        }
    }
    return true;
}

template <typename Judge>
bool anyPiece(std::string_view answers, Judge judge) {
    while (true) {
        const std::size_t end = answers.find('\n');
        if (judge(answers.substr(0, end))) return true;
        if (end == std::string_view::npos) return false;
        answers.remove_prefix(end + 1);
    }
}

/// The reply to QUIT, the last line that was sent.
bool hasGoodbye(std::string_view answers) {
    return anyPiece(answers, [](std::string_view piece) { return piece.starts_with("221"); });
}

}  // namespace

bool isSendableLine(std::string_view line) {
    return !hasUnsendableByte(line) && line.size() + kLineEnd.size() < kBufferSizeBytes;
}

std::optional<std::vector<std::string>> controlLines(const std::string &user, const std::string &password,
                                                     const std::optional<std::string> &folder,
                                                     const std::optional<std::string> &command) {
    std::vector<std::string> lines = {"USER " + user, "PASS " + password};
    if (command) {
        if (folder && !folder->empty()) lines.push_back("CWD " + *folder);
        lines.push_back(*command);
    }
    lines.emplace_back("QUIT");
    if (!std::ranges::all_of(lines, isSendableLine)) return std::nullopt;
    return lines;
}

bool _checkAnswers(std::string_view answers) {
    return !anyPiece(answers,
                     [](std::string_view piece) { return piece.starts_with('4') || piece.starts_with('5'); });
}

std::optional<std::string> _listenLoopForSocket(int socket, milliseconds idleTimeout,
                                                milliseconds wholeTimeout, const std::stop_token &cancelled) {
    const Clock::time_point end = Clock::now() + wholeTimeout;
    std::string answers;
    const auto endedEarly = [&]() -> std::optional<std::string> {
        if (cancelled.stop_requested()) return std::nullopt;
        log("Error reading from socket!");
        if (!hasGoodbye(answers)) return std::nullopt;
        return answers;
    };
    ssize_t last = 1;
    while (last > 0) {
        std::array<char, kBufferSizeBytes> piece{};
        last = recv(socket, piece.data(), piece.size() - 1, 0);
        if (last < 0 && (errno == EAGAIN || errno == EINTR)) {
            if (!waitUntilReady(socket, POLLIN, Clock::now() + idleTimeout, cancelled)) return endedEarly();
            last = 1;
            continue;
        }
        if (last < 0) {
            log("Error reading from socket!");
            break;
        }
        const std::string_view text(piece.data());  // up to the first zero byte
        (answers += '\n') += isValidUtf8(text) ? text : "(null)";
        const bool goesOnForTooLong = last > 0 && (Clock::now() > end || cancelled.stop_requested());
        if (answers.size() > kMostAnswerBytes || goesOnForTooLong) return endedEarly();
    }
    return answers;
}

std::optional<bool> runControlLines(const std::string &host, std::uint16_t port,
                                    const std::vector<std::string> &lines, const TransportLimits &limits,
                                    const std::stop_token &cancelled) {
    const Clock::time_point deadline = Clock::now() + limits.connectTimeout;
    const auto failed = [&cancelled](std::string_view why) {
        if (!cancelled.stop_requested()) log(why);
        return std::nullopt;
    };
    const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket.number() < 0) return failed("could not open socket!");
    watchForSilence(socket.number(), limits);
    const std::optional<in_addr> address = resolve(host, deadline, cancelled);
    if (!address) return failed("host error!");
    if (!connectTo(socket.number(), *address, port, deadline, cancelled)) return failed("error connecting.");
    const int atOnce = 1;  // no line waits for the acknowledgement of the one before
    setsockopt(socket.number(), IPPROTO_TCP, TCP_NODELAY, &atOnce, sizeof atOnce);
    for (const std::string &line : lines) {
        if (!sendWhole(socket.number(), line + std::string(kLineEnd), limits.idleTimeout, cancelled))
            return std::nullopt;
    }
    // As long as it would take to answer each line by itself.
    const std::optional<std::string> answers = _listenLoopForSocket(
        socket.number(), limits.idleTimeout, limits.idleTimeout * static_cast<int>(lines.size()), cancelled);
    return answers && _checkAnswers(*answers);
}

}  // namespace fm
