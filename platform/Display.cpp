#include "platform/Display.h"

#include <xcb/xcb.h>

#include <cstdlib>

DisplayCheck::DisplayCheck() {
    const auto value = [](const char *name) {
        const char *text = std::getenv(name);
        return std::string(text ? text : "");
    };
    const std::string toolkit = value("QT_QPA_PLATFORM");
    const bool isX11 = toolkit.empty() ? value("WAYLAND_DISPLAY").empty() : toolkit == "xcb";
    if (!isX11) return;
    if (value("DISPLAY").empty()) {
        problem_ = "there is no desktop to show it on: neither DISPLAY nor WAYLAND_DISPLAY is set";
        return;
    }
    connection_ = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection_) != 0)
        problem_ = "the display " + value("DISPLAY") + " does not answer";
}

DisplayCheck::~DisplayCheck() {
    if (connection_) xcb_disconnect(connection_);
}
