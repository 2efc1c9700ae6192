#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace fm {

/// An FTP URL taken apart.
struct FTPAddress {
    std::string url;  ///< without the credentials
    std::optional<std::string> user;
    std::optional<std::string> password;
    std::uint16_t port = 0;
    std::string path;      ///< decoded, as FTP commands name it: relative to the login folder
    std::string fileName;  ///< the last component of the path; empty for a folder
};

/// Nothing if the text is no FTP URL or holds, plain or escaped, what no FTP command can carry.
/// "?" and ";" in the path are parts of a name like any other character.
std::optional<FTPAddress> parseFTPURL(std::string_view url);

/// Whether a name stands for a file in a folder and can be sent as it is.
bool isSendableFileName(std::string_view name);

}  // namespace fm
