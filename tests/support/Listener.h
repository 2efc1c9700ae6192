#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

// A bare listening socket on loopback, for servers that do not even accept.
class Listener {
  public:
    explicit Listener(int backlog) : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        isListening_ = bind(descriptor_, generic(), size) == 0 && listen(descriptor_, backlog) == 0 &&
                       getsockname(descriptor_, generic(), &size) == 0;
    }
    ~Listener() { close(descriptor_); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    bool isListening() const { return isListening_; }
    int descriptor() const { return descriptor_; }
    std::uint16_t port() const { return ntohs(address_.sin_port); }
    // Begins to connect; the descriptor is the caller's.
    int connectWithoutWaiting() {
        const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        connect(client, generic(), sizeof address_);
        return client;
    }

  private:
    sockaddr *generic() { return reinterpret_cast<sockaddr *>(&address_); }

    int descriptor_;
    sockaddr_in address_{};
    bool isListening_ = false;
};
