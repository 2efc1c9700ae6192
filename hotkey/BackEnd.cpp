#include "hotkey/BackEnd.h"

#include <QCoreApplication>
#include <QThread>
#include <cstdlib>
#include <string_view>

#include "hotkey/Log.h"
#include "hotkey/PortalBackEnd.h"
#include "hotkey/X11BackEnd.h"

namespace hotkey {
namespace {

bool isWaylandSession() {
    const char *display = std::getenv("WAYLAND_DISPLAY"), *type = std::getenv("XDG_SESSION_TYPE");
    return (display && *display) || (type && std::string_view(type) == "wayland");
}

OpenedBackEnd openWithoutPortal(const std::string &whyNoPortal) {
    OpenedBackEnd x11 = openX11BackEnd();
    if (x11.backEnd)
        logLine("hot key: keys pressed in Wayland windows do not arrive, only those in X11 windows: " +
                whyNoPortal);
    else
        x11.failure = whyNoPortal + "; " + x11.failure;
    return x11;
}

}  // namespace

VkHotKeyRef BackEnd::newRef() {
    static VkHotKeyRef last = 0;
    return ++last;
}

OpenedBackEnd openBackEndOfSession() {
    const QCoreApplication *application = QCoreApplication::instance();
    if (!application || application->thread() != QThread::currentThread())
        return {nullptr, "hot keys need the main thread of a running application"};
    return isWaylandSession() ? openPortalBackEnd(openWithoutPortal) : openX11BackEnd();
}

}  // namespace hotkey
