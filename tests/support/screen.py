"""Looks at windows over the accessibility bus (AT-SPI), as a screen reader does, and clicks and types into them."""

import contextlib
import subprocess
import time

import dbus
import dbus.bus

ACCESSIBLE, COMPONENT = "org.a11y.atspi.Accessible", "org.a11y.atspi.Component"
ACTION, EDITABLE = "org.a11y.atspi.Action", "org.a11y.atspi.EditableText"
SHOWING = 1 << 25
session = dbus.SessionBus()


class Failure(Exception):
    """What was found instead of what was waited for."""


def wait(what, look, seconds=20):
    """Looks until there is something true to see, and returns it."""
    end = time.monotonic() + seconds
    while True:
        with contextlib.suppress(dbus.DBusException):  # a window may go while it is looked at
            if seen := look():
                return seen
        if time.monotonic() > end:
            raise Failure(f"no {what} within {seconds} s")
        time.sleep(0.05)


def xdotool(*words):
    subprocess.run(["xdotool", *map(str, words)], check=True, timeout=60)


def found(*command):
    """What a command says, whatever it thinks of it."""
    return subprocess.run(command, capture_output=True, text=True, timeout=30, check=False).stdout


def windows(title):
    return found("xdotool", "search", "--onlyvisible", "--name", f"^{title}$").split()


def process_of(bus, name):
    return int(bus.call_blocking("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                 "GetConnectionUnixProcessID", "s", (name,)))


class Part:
    """A window, a control, an item of a list."""

    def __init__(self, bus, reference):
        self.bus, self.owner = bus, reference[0]
        self.object = bus.get_object(*reference, introspect=False)

    def children(self):
        return [Part(self.bus, (str(owner), str(path))) for owner, path in self.object.GetChildren(dbus_interface=ACCESSIBLE)
                if not path.endswith("/null")]

    def name(self):
        return str(self.object.Get(ACCESSIBLE, "Name", dbus_interface=dbus.PROPERTIES_IFACE))

    def role(self):
        return str(self.object.GetRoleName(dbus_interface=ACCESSIBLE))

    def place(self):
        """Its left and upper edge on the screen, its width and height."""
        return tuple(int(n) for n in self.object.GetExtents(dbus.UInt32(0), dbus_interface=COMPONENT))

    def click(self, from_left=None):
        x, y, width, height = self.place()
        if width <= 0 or height <= 0:
            raise Failure(f"“{self.name()}” has no place on the screen")
        xdotool("mousemove", x + (from_left or width // 2), y + height // 2, "click", 1)

    def press(self):
        """What assistive programs do with a button; other windows may be in front of it."""
        self.object.DoAction(dbus.Int32(0), dbus_interface=ACTION)

    def fill(self, text):
        self.object.SetTextContents(text, dbus_interface=EDITABLE)

    def walk(self):
        for child in self.children():
            with contextlib.suppress(dbus.DBusException):
                if int(child.object.GetState(dbus_interface=ACCESSIBLE)[0]) & SHOWING:
                    yield child
                    yield from child.walk()


class Screen:
    def __init__(self):
        launcher = session.get_object("org.a11y.Bus", "/org/a11y/bus", introspect=False)
        launcher.Set("org.a11y.Status", "IsEnabled", dbus.Boolean(True, variant_level=1), dbus_interface=dbus.PROPERTIES_IFACE)
        self.bus = dbus.bus.BusConnection(str(launcher.GetAddress(dbus_interface="org.a11y.Bus")))

    def _programs(self, program):
        """Those of a name or, where it is a number, of a process."""
        desktop = Part(self.bus, ("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root"))
        for application in desktop.children():
            with contextlib.suppress(dbus.DBusException):
                fits = process_of(self.bus, application.owner) == program if isinstance(program, int) \
                    else application.name().lower() == program.lower()
                if fits:
                    yield application

    def all(self, program, role, name=None):
        return [part for application in self._programs(program) for part in application.walk()
                if role in (None, part.role()) and name in (None, part.name())]

    def find(self, program, role, name=None, last=False):
        """The first part of the program's windows with that role and name (or the last one), once it is there. None is any."""
        found = wait(f"{role} “{name or ''}” of {program}", lambda: self.all(program, role, name))
        return found[-1 if last else 0]
