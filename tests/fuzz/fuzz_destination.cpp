#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "FTPManager/FTPAddress.h"
#include "FTPManager/FTPManager.h"
#include "FTPManager/Text.h"

/// A port, then texts that end at a zero byte: destination, file name, user, password.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    setFTPManagerLogSink([](std::string_view) {});
    std::int32_t port = 0;
    if (size < sizeof port) return 0;
    std::memcpy(&port, data, sizeof port);
    std::string_view rest(reinterpret_cast<const char *>(data) + sizeof port, size - sizeof port);
    const auto nextText = [&rest] {
        const std::string text(rest.substr(0, rest.find('\0')));
        rest.remove_prefix(std::min(rest.size(), text.size() + 1));
        return text;
    };
    const std::string destination = nextText(), fileName = nextText(), user = nextText(),
                      password = nextText();
    const std::string host = fmhost(destination);
    const std::optional<std::string> folder = fmdir(destination);
    assert(host.find('/') == std::string::npos);
    assert(stringWithoutProtocol(destination) == host + (folder ? "/" + *folder : ""));

    if (const auto url = ftpURLForPort(destination, port)) {
        assert(!fm::hasUnsendableByte(*url));
        const auto address = fm::parseFTPURL(*url + (folder && !folder->empty() ? "" : "/"));
        assert(address);
        if (folder) assert(address->path == *folder);
    }

    const auto url = ftpURLForFile({user, password, host, port, folder.value_or(""), fileName});
    if (!url) return 0;
    assert(fm::isSendableFileName(fileName));
    const auto address = fm::parseFTPURL(*url);
    assert(address && address->fileName == fileName && address->user == user);
    assert(address->password.value_or("") == password && address->port == port);
    assert(address->path.ends_with(fileName));
    assert(!fm::hasUnsendableByte(*url) && !fm::hasUnsendableByte(address->path));
    return 0;
}
