#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

/// Converts modifier flags of the toolkit form (kVkShiftFlag …) to the mask of the hot-key service: Command
/// 0x0100, Shift 0x0200, Caps Lock 0x0400, Option 0x0800, Control 0x1000. Every other flag is dropped.
std::uint32_t VkCarbonModifierFlagsFromCocoaModifiers(std::uint64_t modifierFlags);

/// The name of a combination as a menu would show it, in UTF-8: the signs of the modifiers in the order ⌃⌥⇧⌘
/// (Control, Option, Shift, Command), then the key's own sign or name.
///
///     VkStringFromKeyCode(8, kVkCommandFlag | kVkShiftFlag)    // "⇧⌘c" on an English keyboard
///
/// A key of VkKeyCodeToCharacterMap() has the name that stands there, except that ⌃, ⌥, ⇧ and ⌘ on the left
/// (59, 58, 56, 55) add none to the modifiers. Every other key is called by the character that the keyboard
/// layout in force gives for it without modifiers, so always "c" and never "C"; a key of the number pad by
/// its digit. A dead key, a key without a readable character and a code that names no key add nothing, so the
/// text may be empty.
///
/// The layout is that of the X server ($DISPLAY) at the time of the call; without one it is that of
/// xkbcommon's environment variables (XKB_DEFAULT_LAYOUT …), which else mean an English keyboard. Any thread.
/// It never fails, and once the layout has been read it costs one question to the X server, for characters
/// only.
std::string VkStringFromKeyCode(std::uint16_t keyCode, std::uint64_t modifiers);

/// The 46 key codes whose names do not depend on the keyboard layout, with these names in UTF-8: "↩" for
/// Return (36), "F1" (122) and so on. Any thread; it lives as long as the process.
const std::map<int, std::string> &VkKeyCodeToCharacterMap();

namespace hotkey {

/// Receives one log line at a time, without a line break, on the thread that logs.
using LogSink = std::function<void(std::string_view line)>;

/// Replaces the place where the library's log lines go; an empty sink means standard error again. Any thread.
void setLogSink(LogSink sink);

}  // namespace hotkey
