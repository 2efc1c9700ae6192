#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace hotkey {

/// Which bits of an X key event's state stand for which modifier on the current keyboard. A mask of 0: no key
/// has it.
struct X11Modifiers {
    std::uint16_t command = 0;
    std::uint16_t option = 0;
    std::uint16_t locks =
        XCB_MOD_MASK_LOCK;  // Caps Lock, Num Lock and Scroll Lock, none of the modifiers above

    bool operator==(const X11Modifiers &) const = default;

    /// Every state in which a combination with this service mask counts as pressed, one for each mix of the
    /// lock keys; empty if a modifier is on no key of the keyboard.
    std::vector<std::uint16_t> statesFor(std::uint32_t serviceMask) const;

    std::uint32_t serviceMaskFor(std::uint16_t state) const;
};

/// Asks the X server; nothing if the connection is lost.
std::optional<X11Modifiers> readX11Modifiers(xcb_connection_t *connection);

}  // namespace hotkey
