#include "hotkey/X11Connection.h"

// A field of this C header is called `explicit`.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

namespace hotkey {

std::uint8_t startXkb(xcb_connection_t *connection) {
    const auto use = xcb_xkb_use_extension(connection, XCB_XKB_MAJOR_VERSION, XCB_XKB_MINOR_VERSION);
    const auto used = owned(xcb_xkb_use_extension_reply(connection, use, nullptr));
    const xcb_query_extension_reply_t *extension = xcb_get_extension_data(connection, &xcb_xkb_id);
    if (!used || !used->supported || !extension || !extension->present) return 0;

    constexpr std::uint16_t kEvents = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY;
    constexpr std::uint16_t kParts = XCB_XKB_MAP_PART_KEY_SYMS | XCB_XKB_MAP_PART_MODIFIER_MAP;
    xcb_xkb_select_events(connection, XCB_XKB_ID_USE_CORE_KBD, kEvents, 0, kEvents, kParts, kParts, nullptr);
    return extension->first_event;
}

bool detectAutoRepeat(xcb_connection_t *connection) {
    constexpr std::uint32_t kRepeat = XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT;
    const auto set = xcb_xkb_per_client_flags(connection, XCB_XKB_ID_USE_CORE_KBD, kRepeat, kRepeat, 0, 0, 0);
    const auto flags = owned(xcb_xkb_per_client_flags_reply(connection, set, nullptr));
    return flags && flags->value & kRepeat;
}

std::uint8_t layoutGroup(xcb_connection_t *connection) {
    const auto get = xcb_xkb_get_state(connection, XCB_XKB_ID_USE_CORE_KBD);
    const auto state = owned(xcb_xkb_get_state_reply(connection, get, nullptr));
    return state ? state->group : 0;
}

}  // namespace hotkey
