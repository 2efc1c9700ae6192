"""The menus of the icons in a status bar (StatusNotifierItem, com.canonical.dbusmenu).

Run as a program it is a stand-in for a status bar; it prints a line once it is there.
"""

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib
from screen import Failure, wait

WATCHER, MENU = "org.kde.StatusNotifierWatcher", "com.canonical.dbusmenu"
PROPERTIES = "org.freedesktop.DBus.Properties"
INTROSPECTION = f"""<!DOCTYPE node PUBLIC "-//freedesktop//DTD D-BUS Object Introspection 1.0//EN" "">
<node><interface name="{WATCHER}">
<method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
<property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
<property name="ProtocolVersion" type="i" access="read"/>
<property name="RegisteredStatusNotifierItems" type="as" access="read"/>
</interface></node>"""


class StatusBar(dbus.service.Object):
    def __init__(self, bus):
        self.items = []
        self.bus_name = dbus.service.BusName(WATCHER, bus, do_not_queue=True)
        super().__init__(bus, "/StatusNotifierWatcher")

    @dbus.service.method(WATCHER, in_signature="s", sender_keyword="sender")
    def RegisterStatusNotifierItem(self, service, sender=None):
        del service
        self.items.append(f"{sender}/StatusNotifierItem")

    @dbus.service.method(PROPERTIES, in_signature="ss", out_signature="v")
    def Get(self, _, name):
        return self.GetAll(WATCHER)[name]

    @dbus.service.method(PROPERTIES, in_signature="s", out_signature="a{sv}")
    def GetAll(self, _):
        return {"IsStatusNotifierHostRegistered": True, "ProtocolVersion": dbus.Int32(0),
                "RegisteredStatusNotifierItems": dbus.Array(self.items, signature="s")}

    @dbus.service.method("org.freedesktop.DBus.Introspectable", out_signature="s")
    def Introspect(self):
        return INTROSPECTION


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


if __name__ == "__main__":
    DBusGMainLoop(set_as_default=True)
    status_bar = StatusBar(dbus.SessionBus(private=True))
    print("ready", flush=True)
    GLib.MainLoop().run()
