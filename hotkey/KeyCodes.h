#pragma once

#include <cstdint>
#include <optional>

namespace hotkey {

/// The Linux input event code (KEY_C …) of the key at the place that a virtual key code names; nothing for a
/// code that names no key. The X key code is this plus 8.
std::optional<std::uint16_t> inputCodeFromKeyCode(std::uint16_t keyCode);

}  // namespace hotkey
