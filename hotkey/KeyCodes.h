#pragma once

#include <cstdint>
#include <optional>

namespace hotkey {

/// X and XKB count key codes from here.
inline constexpr std::uint16_t kInputCodeToKeycode = 8;

/// The Linux input event code (KEY_C …) of the key at the place that a virtual key code names; nothing for a
/// code that names no key. The X key code is this plus kInputCodeToKeycode.
std::optional<std::uint16_t> inputCodeFromKeyCode(std::uint16_t keyCode);

}  // namespace hotkey
