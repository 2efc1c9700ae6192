#include "hotkey/X11Grabs.h"

#include <algorithm>

#include "hotkey/X11Connection.h"

namespace hotkey {

std::string grabKey(xcb_connection_t *connection, xcb_window_t root, xcb_keycode_t keycode,
                    const States &states) {
    std::vector<xcb_void_cookie_t> requests;
    for (const std::uint16_t state : states)
        requests.push_back(xcb_grab_key_checked(connection, false, root, state, keycode, XCB_GRAB_MODE_ASYNC,
                                                XCB_GRAB_MODE_ASYNC));
    States granted;
    std::string failure;
    for (std::size_t i = 0; i < states.size(); ++i) {
        const auto error = owned(xcb_request_check(connection, requests[i]));
        if (!error)
            granted.push_back(states[i]);
        else if (error->error_code == XCB_ACCESS)
            failure = "another program has taken the combination";
        else
            failure = "the X server refused the combination with error " + std::to_string(error->error_code);
    }
    if (!failure.empty()) ungrabKey(connection, root, keycode, granted);
    return failure;
}

void ungrabKey(xcb_connection_t *connection, xcb_window_t root, xcb_keycode_t keycode, const States &states) {
    std::vector<xcb_void_cookie_t> requests;
    for (const std::uint16_t state : states)
        requests.push_back(xcb_ungrab_key_checked(connection, keycode, root, state));
    for (const xcb_void_cookie_t request : requests) owned(xcb_request_check(connection, request));
}

States without(const States &states, const States &removed) {
    States left;
    for (const std::uint16_t state : states)
        if (std::ranges::find(removed, state) == removed.end()) left.push_back(state);
    return left;
}

}  // namespace hotkey
