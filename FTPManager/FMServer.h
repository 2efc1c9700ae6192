#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The one FTP server that a manager talks to: a plain value, to be copied and changed freely.
/// An absent text is something else than an empty one: an anonymous login has an empty password, and a
/// descriptor without a password is refused by every operation.
class FMServer {
  public:
    /// The host, optionally with a scheme before it and "/" and a folder behind it: "example.org/htdocs".
    /// A port does not belong here. An IPv6 address stands in brackets.
    std::optional<std::string> destination;
    std::optional<std::string> password;
    std::optional<std::string> username;
    /// The TCP port of the control connection.
    std::int32_t port = 21;

    static FMServer serverWithDestination(std::optional<std::string> destination,
                                          std::optional<std::string> username,
                                          std::optional<std::string> password);
    /// User name "anonymous", empty password.
    static FMServer anonymousServerWithDestination(std::optional<std::string> destination);
};

// The pieces of a destination text. None of them fails; all may be called from any thread.

/// The text behind its first "://", whatever the scheme. Logs a warning if a port seems to be included, that
/// is if a ":" stands before the first "/"; the port stays in the result.
std::string stringWithoutProtocol(std::string_view destination);
/// The part before the first "/". Logs as stringWithoutProtocol does.
std::string fmhost(std::string_view destination);
/// The part behind the first "/", which may be empty; nothing if there is no "/". Logs as
/// stringWithoutProtocol does.
std::optional<std::string> fmdir(std::string_view destination);
/// The address "ftp://host:port/folder" of the destination; port 21 is not written, nor is the slash of an
/// empty folder. In the folder every byte is percent-escaped but ASCII letters, digits, "/" and a few marks
/// that mean nothing in a URL. Nothing if that is no URL, or if the folder has a control character or a byte
/// 0xFF, which no FTP command can carry. Logs the warning of stringWithoutProtocol twice, or once for a host
/// with "?" or "#", which is no host.
std::optional<std::string> ftpURLForPort(std::string_view destination, std::int32_t port);
