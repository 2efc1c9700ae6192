#include <atomic>
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

/// Nothing if the URL names no file or cannot be sent.
std::optional<fm::FTPAddress> addressOfFileAt(std::string_view url) {
    std::optional<fm::FTPAddress> address = fm::parseFTPURL(url);
    if (!address || !fm::isSendableFileName(address->fileName)) return std::nullopt;
    return address;
}

fm::Transfer::Status runUntil(std::stop_token cancelled, fm::Transfer &transfer) {
    const fm::InterruptOnStop interruptOnStop(std::move(cancelled), [&transfer] { transfer.interrupt(); });
    return transfer.runToEnd();
}

FTPText readText(const fm::FTPAddress &address, const FTPTransport &transport, std::stop_token cancelled) {
    using State = FTPText::State;
    std::string content;
    bool isTooLarge = false;
    const auto take = [&](std::string_view bytes) {
        isTooLarge = content.size() + bytes.size() > transport.options().limits.mostTextBytes;
        if (isTooLarge) return false;
        try {
            content += bytes;
        } catch (...) {
            isTooLarge = true;  // for the memory
        }
        return !isTooLarge;
    };
    fm::Transfer transfer(transport,
                          {.kind = fm::TransferTask::Kind::kRetrieve, .address = address, .sink = take});
    std::atomic<bool> isCancelled = false;
    const fm::InterruptOnStop interruptOnStop(std::move(cancelled), [&] {
        isCancelled = true;
        transfer.interrupt();
    });
    if (transfer.runToEnd() != fm::Transfer::Status::kCompleted) {
        if (isTooLarge) return {State::kTooLarge, {}, {}};
        if (isCancelled) return {State::kCancelled, {}, {}};
        return {transfer.isRefusedForGood() ? State::kRefused : State::kFailed, {}, {}};
    }
    if (!fm::isValidUtf8(content)) return {State::kNotText, {}, std::move(content)};
    return {State::kText, std::move(content), {}};
}

/// The reply to the last line; 0 if there was none. No line is sent twice.
long replyTo(std::vector<std::string> lines, const fm::FTPAddress &address, const FTPTransport &transport,
             std::stop_token cancelled) {
    fm::Transfer transfer(
        transport,
        {.kind = fm::TransferTask::Kind::kCommand, .address = address, .commands = std::move(lines)});
    runUntil(std::move(cancelled), transfer);
    return transfer.replyToCommand();
}

bool isDone(long reply) {
    return reply >= 200 && reply < 300;
}

/// Broken off once it has begun.
std::optional<bool> isReadable(const fm::FTPAddress &address, const FTPTransport &transport,
                               std::stop_token cancelled) {
    bool hasBytes = false;
    fm::Transfer transfer(transport, {.kind = fm::TransferTask::Kind::kRetrieve,
                                      .address = address,
                                      .sink = [&hasBytes](std::string_view) {
                                          hasBytes = true;
                                          return false;
                                      }});
    if (runUntil(std::move(cancelled), transfer) == fm::Transfer::Status::kCompleted || hasBytes) return true;
    if (transfer.isRefusedForGood()) return false;
    return std::nullopt;
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

FTPText textWithContentsOfURL(std::string_view url, const FTPTransport &transport,
                              std::stop_token cancelled) {
    try {
        const std::optional<fm::FTPAddress> address = addressOfFileAt(url);
        if (!address) return {FTPText::State::kRefused, {}, {}};
        return readText(*address, transport, std::move(cancelled));
    } catch (...) {
        return {};
    }
}

std::optional<bool> fileExistsAtURL(std::string_view url, const FTPTransport &transport,
                                    std::stop_token cancelled) {
    constexpr long kSize = 213, kNotUnderstood = 500, kNotKnown = 502, kNoSuchFile = 550;
    try {
        const std::optional<fm::FTPAddress> address = addressOfFileAt(url);
        if (!address) return std::nullopt;
        // Many servers refuse to tell a size while they are set to text.
        fm::Transfer transfer(transport, {.kind = fm::TransferTask::Kind::kCommand,
                                          .address = *address,
                                          .commands = {"TYPE I", "SIZE " + address->path},
                                          .mayRepeat = true});
        runUntil(cancelled, transfer);
        switch (transfer.replyToCommand()) {
            case kSize:
                return true;
            case kNoSuchFile:
                return false;
            case kNotUnderstood:
            case kNotKnown:
                return isReadable(*address, transport, std::move(cancelled));
            default:
                return std::nullopt;
        }
    } catch (...) {
        return std::nullopt;
    }
}

bool canRenameFileAtURL(std::string_view url, const FTPTransport &transport, std::stop_token cancelled) {
    constexpr long kGoOn = 350;
    try {
        const std::optional<fm::FTPAddress> address = addressOfFileAt(url);
        return address &&
               replyTo({"RNFR " + address->path}, *address, transport, std::move(cancelled)) == kGoOn;
    } catch (...) {
        return false;
    }
}

std::optional<bool> renameFileAtURL(std::string_view url, std::string_view newName,
                                    const FTPTransport &transport, std::stop_token cancelled) {
    try {
        const std::optional<fm::FTPAddress> address = addressOfFileAt(url);
        if (!address || !fm::isSendableFileName(newName)) return false;
        const std::string folder = address->path.substr(0, address->path.size() - address->fileName.size());
        const long reply = replyTo({"RNFR " + address->path, "RNTO " + folder + std::string(newName)},
                                   *address, transport, std::move(cancelled));
        return reply == 0 ? std::nullopt : std::optional(isDone(reply));
    } catch (...) {
        return std::nullopt;
    }
}

bool deleteFileAtURL(std::string_view url, const FTPTransport &transport, std::stop_token cancelled) {
    try {
        const std::optional<fm::FTPAddress> address = addressOfFileAt(url);
        return address &&
               isDone(replyTo({"DELE " + address->path}, *address, transport, std::move(cancelled)));
    } catch (...) {
        return false;
    }
}

std::optional<std::string> stringWithContentsOfURL(std::string_view url, const FTPTransport &transport,
                                                   std::stop_token cancelled) {
    return textWithContentsOfURL(url, transport, std::move(cancelled)).text;
}

std::optional<std::string> stringWithContentsOfURL(std::string_view url) {
    return stringWithContentsOfURL(url, FTPTransport());
}
