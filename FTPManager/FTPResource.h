#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

enum class FTPResourceType {
    kFile,
    kFolder,
    kSymbolicLink,
    kOther,  ///< a device, a pipe, a socket
};

/// One entry of a folder on a server, as far as the server's listing tells. Texts are the server's bytes.
struct FTPResource {
    std::string name;
    FTPResourceType type = FTPResourceType::kFile;
    std::uint64_t size = 0;  ///< in bytes; 0 where the listing has none
    /// The time that the listing shows, taken for UTC, which is what most servers show; it has the precision
    /// of a minute or, for an old entry, of a day. A listing that shows no year means the last twelve months.
    std::optional<std::chrono::sys_seconds> modificationDate = {};
    std::uint32_t mode = 0;  ///< the permission bits (0755, 04755 ...); 0 where the listing has none
    std::string owner = {};
    std::string group = {};
    std::string link = {};  ///< what a symbolic link leads to

    bool operator==(const FTPResource &) const = default;
};
