"""The settings portal of a desktop that prefers dark colours; runs until it is ended."""

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

PREFERS_DARK = 1


class Portal(dbus.service.Object):
    @dbus.service.method("org.freedesktop.portal.Settings", in_signature="ss", out_signature="v")
    def Read(self, group, key):
        if (group, key) != ("org.freedesktop.appearance", "color-scheme"):
            raise dbus.DBusException("not found", name="org.freedesktop.portal.Error.NotFound")
        return dbus.UInt32(PREFERS_DARK, variant_level=1)


DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
portal = Portal(bus, "/org/freedesktop/portal/desktop")
name = dbus.service.BusName("org.freedesktop.portal.Desktop", bus)
GLib.MainLoop().run()
