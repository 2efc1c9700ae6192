#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "FTPManager/FTPManager.h"

/// Collects the library's diagnostic lines while it lives.
class LogCapture {
  public:
    LogCapture() {
        setFTPManagerLogSink([this](std::string_view line) {
            const std::scoped_lock lock(mutex_);
            lines_.emplace_back(line);
        });
    }
    ~LogCapture() { setFTPManagerLogSink({}); }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /// The lines since the last call.
    std::vector<std::string> take() {
        const std::scoped_lock lock(mutex_);
        return std::exchange(lines_, {});
    }

  private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

/// A manager and reads over one transport, towards a server on loopback.
struct Client {
    explicit Client(std::uint16_t port, const TransportOptions &options, const std::string &user = "u",
                    const std::string &password = "p")
        : server(FMServer::serverWithDestination("127.0.0.1/htdocs", user, password)),
          transport(std::make_shared<FTPTransport>(options)),
          manager(transport) {
        server.port = port;
    }
    explicit Client(std::uint16_t port, const TransportLimits &limits = {}, TlsMode tls = TlsMode::kOff)
        : Client(port, TransportOptions{.limits = limits, .tls = tls, .caFile = {}}) {}

    bool upload(std::string_view text, const std::string &name = "n", const std::stop_token &cancelled = {}) {
        return manager.uploadData(text, name, &server, cancelled);
    }
    FTPText readText(const std::string &name = "n", std::stop_token cancelled = {}) const {
        return textWithContentsOfURL(url(name), *transport, std::move(cancelled));
    }
    std::optional<std::string> read(const std::string &name = "n") const { return readText(name).text; }
    std::string url(const std::string &name) const {
        return ftpURLForFile({*server.username, *server.password, "127.0.0.1", server.port, "htdocs", name})
            .value_or("");
    }

    FMServer server;
    const std::shared_ptr<FTPTransport> transport;
    FTPManager manager;
};
