#include "FTPManager/FMServer.h"

#include <utility>

#include "FTPManager/FTPAddress.h"
#include "FTPManager/Log.h"
#include "FTPManager/Text.h"

namespace {

constexpr std::int32_t kDefaultPort = 21;
/// Stand in a URL's path for themselves, as "/" does between its components.
constexpr std::string_view kPlainPathMarks = "/!$&'()*+,=:@";

bool hasColonBeforeSlash(std::string_view text) {
    const std::size_t mark = text.find_first_of(":/");
    return mark != std::string_view::npos && text[mark] == ':';
}

}  // namespace

FMServer FMServer::serverWithDestination(std::optional<std::string> destination,
                                         std::optional<std::string> username,
                                         std::optional<std::string> password) {
    FMServer server;
    server.destination = std::move(destination);
    server.username = std::move(username);
    server.password = std::move(password);
    return server;
}

FMServer FMServer::anonymousServerWithDestination(std::optional<std::string> destination) {
    return serverWithDestination(std::move(destination), "anonymous", "");
}

std::string stringWithoutProtocol(std::string_view destination) {
    constexpr std::string_view kSchemeEnd = "://";
    if (const std::size_t end = destination.find(kSchemeEnd); end != std::string_view::npos)
        destination.remove_prefix(end + kSchemeEnd.size());
    if (hasColonBeforeSlash(destination)) {
        fm::log(
            "FTPManager warning: there is possibly a port included in your destination url. Define the port "
            "in "
            "FMServer.port instead.");
    }
    return std::string(destination);
}

std::string fmhost(std::string_view destination) {
    const std::string text = stringWithoutProtocol(destination);
    return text.substr(0, text.find('/'));
}

std::optional<std::string> fmdir(std::string_view destination) {
    const std::string text = stringWithoutProtocol(destination);
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos) return std::nullopt;
    return text.substr(slash + 1);
}

std::optional<std::string> ftpURLForPort(std::string_view destination, std::int32_t port) {
    const std::string host = fmhost(destination);
    // Behind these the port would be no port.
    if (host.find_first_of("?#") != std::string::npos) return std::nullopt;
    std::string url = "ftp://" + host;
    if (port != kDefaultPort) url += ":" + std::to_string(port);
    const std::optional<std::string> dir = fmdir(destination);
    if (dir && !dir->empty()) url += "/" + fm::percentEscaped(*dir, kPlainPathMarks);
    if (!fm::parseFTPURL(url)) return std::nullopt;
    return url;
}
