#include <cstddef>
#include <cstdint>
#include <cstring>

#include "FTPManager/FTPAddress.h"
#include "FTPManager/FTPManager.h"
#include "FTPManager/Text.h"
#include "Require.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    setFTPManagerLogSink([](std::string_view) {});
    return 0;
}

/// A port, then texts that end at a zero byte: destination, file name, user, password.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::int32_t port = 0;
    if (size < sizeof port) return 0;
    std::memcpy(&port, data, sizeof port);
    std::string_view rest(reinterpret_cast<const char *>(data) + sizeof port, size - sizeof port);
    const auto nextText = [&rest] {
        const std::string text(rest.substr(0, rest.find('\0')));
        rest.remove_prefix(std::min(rest.size(), text.size() + 1));
        return text;
    };
    const std::string destination = nextText();
    const std::string fileName = nextText();
    const std::string user = nextText();
    const std::string password = nextText();

    const std::string host = fmhost(destination);
    const std::optional<std::string> folder = fmdir(destination);
    REQUIRE(host.find('/') == std::string::npos);
    REQUIRE(stringWithoutProtocol(destination) == host + (folder ? "/" + *folder : ""));
    REQUIRE(destination.ends_with(stringWithoutProtocol(destination)));

    if (const auto url = ftpURLForPort(destination, port)) {
        REQUIRE(url->starts_with("ftp://" + host));
        REQUIRE(!fm::hasUnsendableByte(*url));
        const auto address = fm::parseFTPURL(*url + (folder && !folder->empty() ? "" : "/"));
        REQUIRE(address);
        if (folder) REQUIRE(address->path == *folder);
        if (host.find(':') == std::string::npos) REQUIRE(address->port == port);
    }

    const auto url = ftpURLForFile({user, password, host, port, folder.value_or(""), fileName});
    if (!url) return 0;
    REQUIRE(fm::isSendableFileName(fileName));
    const auto address = fm::parseFTPURL(*url);
    REQUIRE(address && address->fileName == fileName && address->user == user);
    REQUIRE(address->password.value_or("") == password && address->port == port);
    REQUIRE(address->path.ends_with(fileName));
    REQUIRE(!fm::hasUnsendableByte(*url) && !fm::hasUnsendableByte(address->path));
    return 0;
}
