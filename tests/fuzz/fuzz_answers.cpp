#include <sys/socket.h>
#include <unistd.h>

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <string>

#include "FTPManager/ControlConnection.h"
#include "FTPManager/FTPManager.h"
#include "FTPManager/Text.h"

/// What a server says, in packets; each begins with a byte that tells its length.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    setFTPManagerLogSink([](std::string_view) {});
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends) != 0) return 0;
    std::string_view rest(reinterpret_cast<const char *>(data), size);
    std::string expected;
    while (rest.size() > 1) {
        const std::size_t length = std::min<std::size_t>(static_cast<std::uint8_t>(rest[0]), rest.size() - 1);
        const std::string packet(rest.substr(1, length));
        rest.remove_prefix(1 + length);
        if (packet.empty() || send(ends[1], packet.data(), packet.size(), 0) < 0) continue;
        const std::string text = packet.substr(0, packet.find('\0'));
        expected += "\n" + (fm::isValidUtf8(text) ? text : "(null)");
    }
    expected += "\n";
    close(ends[1]);
    const auto answers =
        fm::_listenLoopForSocket(ends[0], std::chrono::milliseconds(100), std::chrono::seconds(10));
    close(ends[0]);
    assert(answers == expected);
    const bool isRefused =
        expected.find("\n4") != std::string::npos || expected.find("\n5") != std::string::npos;
    assert(fm::_checkAnswers(expected) == !isRefused);
    return 0;
}
