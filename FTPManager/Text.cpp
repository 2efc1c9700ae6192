#include "FTPManager/Text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace fm {

namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080;

bool isAsciiWord(const char *bytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return (word & kHighBits) == 0;
}

bool isUnreserved(unsigned char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
           byte == '-' || byte == '.' || byte == '_' || byte == '~';
}

}  // namespace

bool isValidUtf8(std::string_view bytes) {
    const auto at = [&bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const std::size_t size = bytes.size();
    for (std::size_t i = 0; i < size;) {
        if (size - i >= sizeof(std::uint64_t) && isAsciiWord(bytes.data() + i)) {
            i += sizeof(std::uint64_t);
            continue;
        }
        const unsigned char lead = at(i);
        if (lead < 0x80) {
            ++i;
            continue;
        }
        if (lead < 0xC2 || lead > 0xF4) return false;
        const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if (size - i < length) return false;
        // The second byte's range is what rules out overlong forms, surrogates and too large values.
        const unsigned char lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
        const unsigned char highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
        if (at(i + 1) < lowest || at(i + 1) > highest) return false;
        for (std::size_t k = 2; k < length; ++k) {
            if ((at(i + k) & 0xC0) != 0x80) return false;
        }
        i += length;
    }
    return true;
}

bool hasUnsendableByte(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F || byte == 0xFF;
    });
}

std::string percentEscaped(std::string_view text, std::string_view kept) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (isUnreserved(byte) || kept.find(c) != std::string_view::npos) {
            escaped += c;
        } else {
            escaped += {'%', kDigits[byte >> 4], kDigits[byte & 0xF]};
        }
    }
    return escaped;
}

}  // namespace fm
