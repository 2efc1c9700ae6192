#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <string>
#include <vector>

namespace hotkey {

/// Modifier states of X key events, as X11Modifiers gives them for a combination.
using States = std::vector<std::uint16_t>;

/// Grabs the key in all the states, or in none and says why; empty on success.
std::string grabKey(xcb_connection_t *connection, xcb_window_t root, xcb_keycode_t keycode,
                    const States &states);

/// Ends these grabs; on return others can have the key.
void ungrabKey(xcb_connection_t *connection, xcb_window_t root, xcb_keycode_t keycode, const States &states);

/// The states that are not among the removed ones.
States without(const States &states, const States &removed);

}  // namespace hotkey
