#pragma once

#include <string>
#include <string_view>

namespace fm {

/// Whether the bytes are well-formed UTF-8: no overlong form, no surrogate, nothing above U+10FFFF.
bool isValidUtf8(std::string_view bytes);

/// Whether an FTP command cannot carry the text: a control character would end it or be read as another
/// command, and a byte 0xFF is the Telnet escape.
bool hasUnsendableByte(std::string_view text);

/// Every byte as %XX but ASCII letters, digits, "-", ".", "_", "~" and those in `kept`.
std::string percentEscaped(std::string_view text, std::string_view kept = {});

}  // namespace fm
