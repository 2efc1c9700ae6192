#include <exception>
#include <utility>

#include "FTPManager/FTPAddress.h"
#include "FTPManager/FTPManager.h"
#include "FTPManager/Text.h"
#include "FTPManager/Transfer.h"

namespace {

std::string_view withoutSlashesAround(std::string_view directory) {
    while (directory.starts_with('/')) directory.remove_prefix(1);
    while (directory.ends_with('/')) directory.remove_suffix(1);
    return directory;
}

std::optional<std::string> wholeFile(const fm::FTPAddress &address, const FTPTransport &transport,
                                     std::stop_token cancelled) {
    std::string content;
    fm::Transfer transfer(transport, {.kind = fm::TransferTask::Kind::kRetrieve,
                                      .address = address,
                                      .sink = [&content](std::string_view bytes) {
                                          content += bytes;
                                          return true;
                                      }});
    const fm::InterruptOnStop interruptOnStop(std::move(cancelled), [&transfer] { transfer.interrupt(); });
    if (transfer.runToEnd() != fm::Transfer::Status::kCompleted) return std::nullopt;
    return content;
}

}  // namespace

std::optional<std::string> ftpURLForFile(const FTPFileLocation &location) {
    if (!fm::isSendableFileName(location.fileName)) return std::nullopt;
    std::string url = "ftp://" + fm::percentEscaped(location.user) + ":" +
                      fm::percentEscaped(location.password) + "@" + location.host;
    if (location.port != FMServer().port) (url += ':') += std::to_string(location.port);
    const std::string_view directory = withoutSlashesAround(location.directory);
    if (!directory.empty()) (url += '/') += fm::percentEscaped(directory, "/");
    (url += '/') += fm::percentEscaped(location.fileName);
    const std::optional<fm::FTPAddress> address = fm::parseFTPURL(url);
    // A host that brings a slash, a sign or a port of its own would change the meaning of the rest.
    const bool isAsMeant = address && address->user == location.user &&
                           address->fileName == location.fileName && address->port == location.port &&
                           location.host.find_first_of("/@?#") == std::string::npos;
    if (!isAsMeant) return std::nullopt;
    return url;
}

std::optional<std::string> stringWithContentsOfURL(std::string_view url, const FTPTransport &transport,
                                                   std::stop_token cancelled) {
    try {
        const std::optional<fm::FTPAddress> address = fm::parseFTPURL(url);
        if (!address || !fm::isSendableFileName(address->fileName)) return std::nullopt;
        std::optional<std::string> content = wholeFile(*address, transport, std::move(cancelled));
        if (!content || !fm::isValidUtf8(*content)) return std::nullopt;
        return content;
    } catch (...) {
        return std::nullopt;  // a file too large for the memory
    }
}

std::optional<std::string> stringWithContentsOfURL(std::string_view url) {
    return stringWithContentsOfURL(url, FTPTransport());
}
