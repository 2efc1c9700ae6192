#include "FTPManager/Connection.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <iterator>
#include <utility>

namespace fm {

namespace {

/// More than a program runs at once; a server may allow a user only so many.
constexpr std::size_t kMaxIdleConnections = 8;

/// Values of tcpi_state that the kernel's header leaves unnamed: no connection yet, or none any more.
constexpr int kTcpSynSent = 2;
constexpr int kTcpClose = 7;

/// Often enough for the routers that forget a silent connection after half a minute.
constexpr int kProbesBeginAfterSeconds = 15;
constexpr int kProbeIntervalSeconds = 5;

std::uint16_t portOf(const curl_sockaddr &address) {
    // The port stands at the same place in an IPv4 and an IPv6 address.
    return ntohs(reinterpret_cast<const sockaddr_in *>(&address.addr)->sin_port);
}

template <typename Value>
void setOption(int descriptor, int level, int name, Value value) {
    setsockopt(descriptor, level, name, &value, sizeof value);
}

void setResetOnClose(int descriptor) {
    setOption(descriptor, SOL_SOCKET, SO_LINGER, linger{.l_onoff = 1, .l_linger = 0});
}

}  // namespace

void watchForSilence(int socket, const TransportLimits &limits) {
    // The limit on a connection's making is this library's own, and must not be cut short by this one.
    const auto longest = std::max(limits.idleTimeout, limits.connectTimeout).count();
    setOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, static_cast<unsigned>(longest));
    setOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    setOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, kProbesBeginAfterSeconds);
    setOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, kProbeIntervalSeconds);
}

Connection::Connection(std::string key, std::uint16_t serverPort, const TransportLimits &limits)
    : key_(std::move(key)),
      serverPort_(serverPort),
      limits_(limits),
      multi_(curl_multi_init()),
      easy_(curl_easy_init()) {}

Connection::~Connection() {
    const SigpipeGuard guard;
    {
        // libcurl says goodbye and waits for the answer, minutes long if the server is mute.
        const std::scoped_lock lock(socketsMutex_);
        for (const Socket &socket : sockets_) shutdown(socket.descriptor, SHUT_RDWR);
    }
    curl_easy_cleanup(easy_);
    curl_multi_cleanup(multi_);
}

CURL *Connection::freshEasy() {
    curl_easy_reset(easy_);
    curl_easy_setopt(easy_, CURLOPT_OPENSOCKETFUNCTION, &Connection::openSocket);
    curl_easy_setopt(easy_, CURLOPT_OPENSOCKETDATA, this);
    curl_easy_setopt(easy_, CURLOPT_CLOSESOCKETFUNCTION, &Connection::closeSocket);
    curl_easy_setopt(easy_, CURLOPT_CLOSESOCKETDATA, this);
    return easy_;
}

curl_socket_t Connection::openSocket(void *self, curlsocktype, curl_sockaddr *address) {
    auto &connection = *static_cast<Connection *>(self);
    const std::scoped_lock lock(connection.socketsMutex_);
    if (connection.interrupted_) return CURL_SOCKET_BAD;
    const int descriptor = socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (descriptor < 0) return CURL_SOCKET_BAD;
    watchForSilence(descriptor, connection.limits_);
    const bool isControl = portOf(*address) == connection.serverPort_;
    connection.sockets_.push_back({descriptor, isControl});
    if (isControl) {
        ++connection.controlConnectionsOpened_;
        connection.replyBytes_ = 0;
        connection.isEncrypted_ = false;
    }
    return descriptor;
}

int Connection::closeSocket(void *self, curl_socket_t descriptor) {
    auto &connection = *static_cast<Connection *>(self);
    const std::scoped_lock lock(connection.socketsMutex_);
    auto &sockets = connection.sockets_;
    const auto closing = std::find_if(sockets.begin(), sockets.end(), [descriptor](const Socket &socket) {
        return socket.descriptor == descriptor;
    });
    if (closing != sockets.end()) {
        if (!closing->isControl && !connection.dataIsWhole_ && !connection.wasRefused()) {
            for (const Socket &socket : sockets) {
                if (socket.isControl) shutdown(socket.descriptor, SHUT_RDWR);
            }
            setResetOnClose(descriptor);
        }
        sockets.erase(closing);
    }
    return close(descriptor);
}

bool Connection::wasRefused() const {
    long reply = 0;
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &reply);
    return reply >= 400;
}

void Connection::interrupt() noexcept {
    {
        const std::scoped_lock lock(socketsMutex_);
        interrupted_ = true;
        // Ends a wait of libcurl's for a reply; the other side sees nothing of it.
        for (const Socket &socket : sockets_) shutdown(socket.descriptor, SHUT_RD);
    }
    curl_multi_wakeup(multi_);
}

void Connection::setDataIsWhole(bool isWhole) noexcept {
    const std::scoped_lock lock(socketsMutex_);
    dataIsWhole_ = isWhole;
}

SocketActivity Connection::activity() const {
    const std::scoped_lock lock(socketsMutex_);
    SocketActivity activity;
    for (const Socket &socket : sockets_) {
        tcp_info info{};
        socklen_t size = sizeof info;
        if (getsockopt(socket.descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) continue;
        activity.established |= info.tcpi_state != kTcpSynSent && info.tcpi_state != kTcpClose;
        activity.bytesMoved += info.tcpi_bytes_acked + info.tcpi_bytes_received;
    }
    return activity;
}

unsigned Connection::controlConnectionsOpened() const {
    const std::scoped_lock lock(socketsMutex_);
    return controlConnectionsOpened_;
}

void Connection::countReply(std::size_t bytes) noexcept {
    const std::scoped_lock lock(socketsMutex_);
    replyBytes_ += bytes;
}

void Connection::acknowledgeReply() noexcept {
    const std::scoped_lock lock(socketsMutex_);
    for (const Socket &socket : sockets_) {
        if (socket.isControl) setOption(socket.descriptor, IPPROTO_TCP, TCP_QUICKACK, 1);
    }
}

void Connection::noteEncrypted() noexcept {
    const std::scoped_lock lock(socketsMutex_);
    isEncrypted_ = true;
}

bool Connection::hasUnreadReply() const {
    const std::uint64_t received = controlBytesReceived();
    const std::scoped_lock lock(socketsMutex_);
    return !isEncrypted_ && received > replyBytes_;
}

std::uint64_t Connection::controlBytesReceived() const {
    const std::scoped_lock lock(socketsMutex_);
    for (const Socket &socket : sockets_) {
        tcp_info info{};
        socklen_t size = sizeof info;
        if (socket.isControl && getsockopt(socket.descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) == 0)
            return info.tcpi_bytes_received;
    }
    return 0;
}

bool Connection::hasUnexpectedInput() const {
    const std::scoped_lock lock(socketsMutex_);
    return std::any_of(sockets_.begin(), sockets_.end(), [](const Socket &socket) {
        char byte = 0;
        return socket.isControl && recv(socket.descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0;
    });
}

ConnectionPool::ConnectionPool(const TransportLimits &limits) : limits_(limits) {
    idle_.reserve(kMaxIdleConnections + 1);
}

std::unique_ptr<Connection> ConnectionPool::checkOut(const std::string &key, std::uint16_t serverPort) {
    while (std::unique_ptr<Connection> warm = takeIdle(key)) {
        if (!warm->hasUnexpectedInput()) return warm;
    }
    return makeNew(key, serverPort);
}

std::unique_ptr<Connection> ConnectionPool::makeNew(const std::string &key, std::uint16_t serverPort) const {
    auto connection = std::make_unique<Connection>(key, serverPort, limits_);
    return connection->isUsable() ? std::move(connection) : nullptr;
}

std::unique_ptr<Connection> ConnectionPool::takeIdle(const std::string &key) {
    std::vector<Idle> expired;  // destroyed outside the lock
    const std::scoped_lock lock(mutex_);
    expired = takeExpired();
    const auto latest = std::find_if(idle_.rbegin(), idle_.rend(),
                                     [&key](const Idle &idle) { return idle.connection->key() == key; });
    if (latest == idle_.rend()) return nullptr;
    std::unique_ptr<Connection> connection = std::move(latest->connection);
    idle_.erase(std::next(latest).base());
    return connection;
}

std::vector<ConnectionPool::Idle> ConnectionPool::takeExpired() {
    const Clock::time_point oldest = Clock::now() - limits_.mostIdle;
    const auto firstKept =
        std::find_if(idle_.begin(), idle_.end(), [oldest](const Idle &idle) { return idle.since >= oldest; });
    std::vector<Idle> expired(std::move_iterator(idle_.begin()), std::move_iterator(firstKept));
    idle_.erase(idle_.begin(), firstKept);
    return expired;
}

void ConnectionPool::giveBack(std::unique_ptr<Connection> connection) {
    std::vector<Idle> surplus;  // destroyed outside the lock
    const std::scoped_lock lock(mutex_);
    surplus = takeExpired();
    idle_.push_back({std::move(connection), Clock::now()});
    if (idle_.size() > kMaxIdleConnections) {
        surplus.push_back(std::move(idle_.front()));
        idle_.erase(idle_.begin());
    }
}

void ConnectionPool::closeIdle(const std::string &key) {
    std::vector<Idle> closing;  // destroyed outside the lock
    const std::scoped_lock lock(mutex_);
    const auto others = std::stable_partition(
        idle_.begin(), idle_.end(), [&key](const Idle &idle) { return idle.connection->key() != key; });
    closing.assign(std::move_iterator(others), std::move_iterator(idle_.end()));
    idle_.erase(others, idle_.end());
}

SigpipeGuard::SigpipeGuard() {
    sigset_t pipeOnly;
    sigset_t before;
    sigemptyset(&pipeOnly);
    sigaddset(&pipeOnly, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeOnly, &before);
    wasBlocked_ = sigismember(&before, SIGPIPE) == 1;
}

SigpipeGuard::~SigpipeGuard() {
    if (wasBlocked_) return;
    sigset_t pipeOnly;
    sigemptyset(&pipeOnly);
    sigaddset(&pipeOnly, SIGPIPE);
    const timespec noWait{};
    while (sigtimedwait(&pipeOnly, nullptr, &noWait) == SIGPIPE) {
    }
    pthread_sigmask(SIG_UNBLOCK, &pipeOnly, nullptr);
}

}  // namespace fm
