#pragma once

#include <memory>
#include <optional>
#include <string>

#include "FTPManager/FTPManager.h"

/// A manager and reads over one transport, towards a server on loopback.
struct Client {
    explicit Client(std::uint16_t serverPort, TransportLimits limits = {}, const std::string &user = "u",
                    const std::string &password = "p")
        : port(serverPort),
          server(FMServer::serverWithDestination("127.0.0.1/htdocs", user, password)),
          login(user + ":" + password),
          transport(std::make_shared<FTPTransport>(TransportOptions{.limits = limits, .caFile = {}})),
          manager(transport) {
        server.port = port;
    }

    bool upload(std::string_view text, std::stop_token cancelled = {}) {
        return manager.uploadData(text, "n", &server, std::move(cancelled));
    }
    std::optional<std::string> read(std::stop_token cancelled = {}, const std::string &name = "n") const {
        return stringWithContentsOfURL(url(name), *transport, std::move(cancelled));
    }
    std::string url(const std::string &name) const {
        return "ftp://" + login + "@127.0.0.1:" + std::to_string(port) + "/htdocs/" + name;
    }

    const std::uint16_t port;
    FMServer server;
    const std::string login;
    const std::shared_ptr<FTPTransport> transport;
    FTPManager manager;
};
