#include "platform/Display.h"

#include <xcb/xcb.h>

#include <cstdlib>

std::string problemOfDisplay() {
    const auto value = [](const char *name) {
        const char *text = std::getenv(name);
        return std::string(text ? text : "");
    };
    const std::string toolkit = value("QT_QPA_PLATFORM");
    const bool isX11 = toolkit.empty() ? value("WAYLAND_DISPLAY").empty() : toolkit == "xcb";
    if (!isX11) return {};
    if (value("DISPLAY").empty()) {
        return "there is no desktop to show it on: neither DISPLAY nor WAYLAND_DISPLAY is set";
    }
    xcb_connection_t *connection = xcb_connect(nullptr, nullptr);
    const bool isThere = xcb_connection_has_error(connection) == 0;
    xcb_disconnect(connection);
    return isThere ? "" : "the display " + value("DISPLAY") + " does not answer";
}
