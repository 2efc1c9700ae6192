"""The menus of the icons in a status bar (StatusNotifierItem, com.canonical.dbusmenu)."""

import dbus
from screen import Failure, wait

WATCHER, MENU = "org.kde.StatusNotifierWatcher", "com.canonical.dbusmenu"
PROPERTIES = "org.freedesktop.DBus.Properties"


class StatusMenu:
    """The menu of a process's icon."""

    def __init__(self, bus, process):
        def owner():
            watcher = bus.get_object(WATCHER, "/StatusNotifierWatcher", introspect=False)
            for item in watcher.Get(WATCHER, "RegisteredStatusNotifierItems", dbus_interface=PROPERTIES):
                service = item.partition("/")[0]
                if bus.name_has_owner(service) and int(bus.call_blocking(
                        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                        "GetConnectionUnixProcessID", "s", (service,))) == process:
                    return service
            return None

        service = wait("status item", owner)
        item = bus.get_object(service, "/StatusNotifierItem", introspect=False)
        path = item.Get("org.kde.StatusNotifierItem", "Menu", dbus_interface=dbus.PROPERTIES_IFACE)
        self.menu = dbus.Interface(bus.get_object(service, path, introspect=False), MENU)

    def items(self):
        """(number, label, enabled) of every item, those of submenus included."""
        def walk(node):
            for child in node[2]:
                yield int(child[0]), str(child[1].get("label", "")).replace("_", ""), bool(child[1].get("enabled", True))
                yield from walk(child)

        return list(walk(self.menu.GetLayout(0, -1, dbus.Array([], signature="s"))[1]))

    def click(self, label):
        for number, text, is_enabled in self.items():
            if text == label:
                if not is_enabled:
                    raise Failure(f"the menu item “{label}” is not enabled")
                self.menu.Event(number, "clicked", dbus.String("", variant_level=1), dbus.UInt32(0))
                return
        raise Failure(f"there is no menu item “{label}”")
