#pragma once

#include <poll.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "support/Listener.h"

/// Hands control connections on to a server on loopback, whose data connections go past it.
class Proxy {
  public:
    explicit Proxy(std::uint16_t serverPort) : serverPort_(serverPort) {}
    ~Proxy() {
        thread_.request_stop();
        thread_.join();
        for (const int end : ends_) close(end);
    }

    std::uint16_t port() const { return listener_.port(); }
    /// From now on swallows what comes on the connections that are open; new ones work.
    void swallow() { swallowed_ = count_.load(); }
    int connectionCount() const { return count_ / 2; }

  private:
    void run(const std::stop_token &stop) {
        while (!stop.stop_requested()) {
            std::vector<pollfd> waiting{{.fd = listener_.descriptor(), .events = POLLIN, .revents = 0}};
            for (const int end : ends_) waiting.push_back({.fd = end, .events = POLLIN, .revents = 0});
            poll(waiting.data(), waiting.size(), 20);
            for (std::size_t i = 0; i + 1 < waiting.size(); ++i)
                if (waiting[i + 1].revents != 0) handOn(i);
            if (waiting.front().revents == 0) continue;
            ends_.push_back(accept4(listener_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
            ends_.push_back(connectTo(serverPort_));
            count_ += 2;
        }
    }
    void handOn(std::size_t i) {
        char bytes[4096];
        const ssize_t count = recv(ends_[i], bytes, sizeof bytes, 0);
        int &other = ends_[i ^ 1];
        if (count <= 0) {
            if (other >= 0) shutdown(other, SHUT_WR);
            close(std::exchange(ends_[i], -1));
        } else if (i >= swallowed_) {
            send(other, bytes, static_cast<std::size_t>(count), MSG_NOSIGNAL);
        }
    }

    const std::uint16_t serverPort_;
    Listener listener_{8};
    std::vector<int> ends_;  ///< a client's and the server's in turn
    std::atomic<unsigned> count_ = 0;
    std::atomic<unsigned> swallowed_ = 0;
    std::jthread thread_{[this](const std::stop_token &stop) { run(stop); }};
};
