#pragma once

#include <cstdint>
#include <string>

namespace hotkey {

// What the keys give on the keyboard layout in force at the time of the call: the layout of the X server
// that $DISPLAY names, or where none answers the one that xkbcommon's variables name (XKB_DEFAULT_LAYOUT …).
// Keys are named by their Linux input event code. Any thread; nothing throws. A call takes one round trip to
// the X server, and the first one or one after a change of the keyboard also reads the whole layout. The
// connection is kept for the life of the process.

/// The readable text, in UTF-8, of the key without modifiers; empty for a key that is not there or gives a
/// dead key, a control character or no character at all. Keys of the number pad give their digit.
std::string textOfKey(std::uint16_t inputCode);

/// The name that xkbcommon has for what the key gives without modifiers ("c", "Escape", "F5"), from the first
/// layout with a Latin one where the layout in force has none for that key; empty if the key gives nothing.
std::string symbolNameOfKey(std::uint16_t inputCode);

}  // namespace hotkey
