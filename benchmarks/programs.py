"""Measures whole programs on the virtual desktop that it is run on: start, memory, hot key.

Usage: programs.py QUILLERY TRAY_PROGRAM RESULTS.json. Stands in for the desktop's status bar and notification service, so
it sees on the bus when a program has its status item and when a notification is asked for.
"""

import contextlib
import ctypes
import fcntl
import glob
import json
import os
import subprocess
import sys
import time

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

QUILLERY, TRAY_PROGRAM, RESULTS = sys.argv[1:4]
STARTS = 15
MEMORY_RUNS = 11
HOT_KEY_RUNS = 40
LISTED = 1000
HOME = os.environ["HOME"]
LIST = os.path.join(HOME, "Documents", ".Quillery.txt")
STORED = os.path.join(os.environ["XDG_DATA_HOME"], "quillery", "htdocs")
STORAGE_LOCK = os.path.join(os.environ["XDG_RUNTIME_DIR"], "quillery", "storage.lock")
ENTRY_END = "\n-CLIPBOARD'S END-\n"
WATCHER = "org.kde.StatusNotifierWatcher"
NOTIFICATIONS = "org.freedesktop.Notifications"


def turn(until, seconds=30):
    """Serves the bus until there is something true to see, and returns it."""
    context, end = GLib.MainContext.default(), time.monotonic() + seconds
    awake = GLib.timeout_add(5, lambda: True)
    try:
        while not (seen := until()):
            if time.monotonic() > end:
                raise TimeoutError(until)
            context.iteration(True)
        return seen
    finally:
        GLib.source_remove(awake)


def rest(seconds):
    end = time.monotonic() + seconds
    turn(lambda: time.monotonic() > end, seconds + 10)


class StatusBar(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/StatusNotifierWatcher")
        self.registered_at = None

    @dbus.service.method(WATCHER, in_signature="s")
    def RegisterStatusNotifierItem(self, _item):
        self.registered_at = self.registered_at or time.monotonic()

    # Toolkits believe only in properties that are described.
    @dbus.service.method(dbus.INTROSPECTABLE_IFACE, out_signature="s")
    def Introspect(self):
        return f"""<node><interface name="{WATCHER}">
            <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
            <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
            <property name="ProtocolVersion" type="i" access="read"/>
            <property name="RegisteredStatusNotifierItems" type="as" access="read"/></interface></node>"""

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return self.GetAll(interface)[name]

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="s", out_signature="a{sv}")
    def GetAll(self, _interface):
        return {"IsStatusNotifierHostRegistered": True, "ProtocolVersion": dbus.Int32(0),
                "RegisteredStatusNotifierItems": dbus.Array([], signature="s")}


class NotificationService(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/Notifications")
        self.shown = []

    @dbus.service.method(NOTIFICATIONS, in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, _program, _replaces, _icon, _title, body, _actions, _hints, _timeout):
        self.shown.append((time.monotonic(), str(body)))
        return dbus.UInt32(len(self.shown))

    @dbus.service.method(NOTIFICATIONS, out_signature="as")
    def GetCapabilities(self):
        return ["body", "actions", "body-markup"]


class Keyboard:
    """Key events as the X server takes them from a keyboard."""

    def __init__(self):
        self.x11, self.xtest = ctypes.CDLL("libX11.so.6"), ctypes.CDLL("libXtst.so.6")
        self.x11.XOpenDisplay.restype = ctypes.c_void_p
        self.x11.XStringToKeysym.restype = ctypes.c_ulong
        self.display = ctypes.c_void_p(self.x11.XOpenDisplay(None))

    def send(self, name, is_down):
        symbol = self.x11.XStringToKeysym(name.encode())
        code = self.x11.XKeysymToKeycode(self.display, ctypes.c_ulong(symbol))
        self.xtest.XTestFakeKeyEvent(self.display, code, is_down, 0)
        self.x11.XFlush(self.display)

    def press_hot_key(self):
        """Super+Shift+C as a hand does it. Returns when the C was let go."""
        for key in ("Super_L", "Shift_L", "c"):
            self.send(key, True)
            rest(0.02)
        released_at = time.monotonic()
        self.send("c", False)
        return released_at

    def release_modifiers(self):
        for key in ("Shift_L", "Super_L"):
            self.send(key, False)


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
session = dbus.SessionBus()
names = [dbus.service.BusName(name, session, do_not_queue=True) for name in (WATCHER, NOTIFICATIONS)]
status_bar, notifications = StatusBar(session), NotificationService(session)
log = open(os.path.join(HOME, "programs.log"), "w+b")


@contextlib.contextmanager
def running(program):
    """The program with its status item in place, and the seconds that took. Ends it and its storage server."""
    status_bar.registered_at = None
    started_at = time.monotonic()
    process = subprocess.Popen([program], stdin=subprocess.DEVNULL, stdout=log, stderr=log)
    try:
        turn(lambda: status_bar.registered_at)
        yield process, status_bar.registered_at - started_at
    finally:
        process.terminate()
        turn(lambda: process.poll() is not None)
        turn(storage_has_ended)


def storage_has_ended():
    try:
        with open(STORAGE_LOCK, "rb") as file:
            fcntl.flock(file, fcntl.LOCK_SH | fcntl.LOCK_NB)
        return True
    except FileNotFoundError:
        return True
    except BlockingIOError:
        return False


def storage_server():
    """The process id of the server that serves this home folder."""
    for path in glob.glob("/proc/[0-9]*"):
        with contextlib.suppress(OSError), open(f"{path}/cmdline", "rb") as command, open(f"{path}/environ", "rb") as places:
            if b"quillery-storage" in command.read() and f"HOME={HOME}\0".encode() in places.read():
                return int(path.rsplit("/", 1)[1])
    return None


def pss(process):
    with open(f"/proc/{process}/smaps_rollup", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("Pss:"))


def other_users_of_toolkit(own):
    """Whether another program than these has the toolkit loaded: it would bear a part of its libraries' pages."""
    for path in glob.glob("/proc/[0-9]*"):
        with contextlib.suppress(OSError), open(f"{path}/maps", encoding="utf-8", errors="replace") as maps:
            if int(os.path.basename(path)) not in own and "libQt6Core.so" in maps.read():
                return True
    return False


def settled_pss(process, companion=None):
    """In KiB, once it has changed by less than a percent for two seconds with no other program in the way."""
    own, readings = {process.pid} | ({companion.pid} if companion else set()), []

    def is_settled():
        rest(0.5)
        if other_users_of_toolkit(own):
            readings.clear()
        else:
            readings.append(pss(process.pid))
        last = readings[-5:]
        return len(last) == 5 and max(last) < 1.01 * min(last)

    turn(is_settled, 600)
    return readings[-1]


def probe_is_done():
    return os.path.exists(os.path.join(STORED, ".Check_internet"))


def forget_probe():
    with contextlib.suppress(FileNotFoundError):
        os.unlink(os.path.join(STORED, ".Check_internet"))


def start_times():
    times = {QUILLERY: [], TRAY_PROGRAM: []}
    for run in range(-1, STARTS):  # the first reads the programs from the disk and does not count
        for program in times:
            forget_probe()
            with running(program) as (_, seconds):
                if run >= 0:
                    times[program].append(seconds)
                # Let go only when started, so that no half-done work is left for the next one's time.
                if program == QUILLERY:
                    turn(probe_is_done)
                rest(0.3)
    return {"quillery": times[QUILLERY], "tray_program": times[TRAY_PROGRAM]}


def idle_memory():
    """Alone, and beside one more program of the same toolkit, with which both share the toolkit's libraries."""
    sizes = {name: [] for name in ("quillery", "tray_program", "storage", "quillery beside", "tray_program beside")}

    def both(name, companion=None):
        forget_probe()
        with running(QUILLERY) as (process, _seconds):
            turn(probe_is_done)
            sizes["quillery" + name].append(settled_pss(process, companion))
            if not companion:
                sizes["storage"].append(pss(storage_server()))
        with running(TRAY_PROGRAM) as (process, _seconds):
            sizes["tray_program" + name].append(settled_pss(process, companion))

    for _ in range(MEMORY_RUNS):
        both("")
        with running(TRAY_PROGRAM) as (companion, _seconds):
            both(" beside", companion)
    return sizes


def copied_elsewhere(text):
    """Another program copies the text and keeps it on the clipboard until the next one does."""
    subprocess.run(["xclip", "-in", "-selection", "clipboard"], input=text.encode(), stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, check=True, timeout=30)
    look = ["xclip", "-out", "-selection", "clipboard"]
    turn(lambda: subprocess.run(look, capture_output=True, check=False, timeout=30).stdout == text.encode())


def hot_key_times():
    os.makedirs(os.path.dirname(LIST), exist_ok=True)
    with open(LIST, "w", encoding="utf-8", newline="") as file:
        for number in range(LISTED):
            file.write(f"{number}: {'a text of some length, copied and saved a while ago; ' * 3}{ENTRY_END}")
    keyboard, times = Keyboard(), []
    forget_probe()
    with running(QUILLERY):
        turn(probe_is_done)
        rest(3)
        for run in range(HOT_KEY_RUNS + 1):
            text = f"A text that was copied just now, number {run}"
            copied_elsewhere(text)
            rest(0.3)
            before = len(notifications.shown)
            released_at = keyboard.press_hot_key()
            turn(lambda before=before: len(notifications.shown) > before)
            keyboard.release_modifiers()
            shown_at, body = notifications.shown[-1]
            if text not in body or shown_at < released_at:
                raise RuntimeError(f"the notification says “{body}”")
            if run > 0:  # the first one loads what a program loads once
                times.append(shown_at - released_at)
            rest(0.2)
    with open(LIST, encoding="utf-8", newline="") as file:
        saved = file.read().split(ENTRY_END)
    if len(saved) != LISTED + HOT_KEY_RUNS + 2:
        raise RuntimeError(f"{len(saved)} entries are in the list")
    return times


os.makedirs(os.path.join(os.environ["XDG_CONFIG_HOME"], "TovanixDev"), exist_ok=True)
with open(os.path.join(os.environ["XDG_CONFIG_HOME"], "TovanixDev", "Quillery.ini"), "w", encoding="utf-8") as settings:
    settings.write("[General]\nkIsNotFirstUse=YES\n")
results = {}
try:
    for name, measure in {"hot_key": hot_key_times, "start": start_times, "memory": idle_memory}.items():
        print(f"  {name} ...", file=sys.stderr, flush=True)
        results[name] = measure()
        with open(RESULTS, "w", encoding="utf-8") as file:
            json.dump(results, file)
except BaseException:
    log.seek(0)
    sys.stderr.write(log.read().decode("utf-8", "replace")[-2000:])
    raise
