#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>

// A connection to a port of loopback; the descriptor is the caller's.
inline int connectTo(std::uint16_t port, int flags = 0) {
    sockaddr_in address{.sin_family = AF_INET, .sin_port = htons(port), .sin_addr = {}, .sin_zero = {}};
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
    connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    return client;
}

// A bare listening socket on loopback, for servers that do not even accept.
class Listener {
  public:
    explicit Listener(int backlog) : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        if (bind(descriptor_, generic(), size) != 0 || listen(descriptor_, backlog) != 0 ||
            getsockname(descriptor_, generic(), &size) != 0)
            throw std::runtime_error("no listening socket on loopback");
    }
    ~Listener() { close(descriptor_); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    int descriptor() const { return descriptor_; }
    std::uint16_t port() const { return ntohs(address_.sin_port); }
    // Begins to connect; the descriptor is the caller's.
    int connectWithoutWaiting() { return connectTo(port(), SOCK_NONBLOCK); }

  private:
    sockaddr *generic() { return reinterpret_cast<sockaddr *>(&address_); }

    int descriptor_;
    sockaddr_in address_{};
};
