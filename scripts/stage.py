"""A stage for pictures of Quillery, on a private desktop (tests/support): a status bar, notifications, and the program with
a home folder of its own, brought into a state. PICTURE_SCALE is how many pixels a unit of the desktop has, PICTURE_COLORS is
"dark" or "light".

Keys rather than the mouse drive the program, as a place on the screen is another at each scale.
"""

import contextlib
import itertools
import os
import pathlib
import shutil
import subprocess
import sys
import time

SUPPORT = os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "tests", "support")
sys.dont_write_bytecode = True
sys.path.insert(0, SUPPORT)
import quillery  # noqa: E402
import xfce_panel  # noqa: E402
from screen import Failure, Screen, session, wait, xdotool  # noqa: E402

SCALE = int(os.environ.get("PICTURE_SCALE", "1"))
IS_DARK = os.environ.get("PICTURE_COLORS") == "dark"
# Longer than it takes a text cursor to go, come, and go again.
REST_SECONDS = 1.8

BACKGROUND = "#22262e" if IS_DARK else "#d5dce8"

USER, FRIENDS = "robin.k", ("kim", "noor", "sam")
LINKS = ("web", "email", "facebook", "twitter", "pinterest", "google_plus", "tutorials")
TEXTS = (
    "Thursday, 10:30",
    "Dear all,\nthe slides are in the shared folder, and the minutes follow tomorrow.\nBest wishes\nRobin",
    "git log --oneline --graph",
    "2 onions, 400 g tomatoes, basil, olive oil",
    "https://www.debian.org/doc/",
    "Grüße aus Köln, bis bald!",
)

# Its scale leaves the font alone.
NOTIFICATIONS = """[global]
scale = {scale}
font = DejaVu Sans {points}
format = "<b>%s</b>\\n%b"
width = 402
origin = top-right
offset = 16x44
padding = 12
horizontal_padding = 12
frame_width = 1
frame_color = "{frame}"
corner_radius = 6
max_icon_size = 24
show_indicators = no
notification_limit = 1
timeout = 60
[urgency_normal]
background = "{ground}"
foreground = "{ink}"
"""
NOTIFICATION_COLORS = ({"frame": "#5a6375", "ground": "#29292d", "ink": "#eeeeee"} if IS_DARK
                       else {"frame": "#b8c4d9", "ground": "#ffffff", "ink": "#26334a"})


def write(path, text):
    path = pathlib.Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding="utf-8")


def listed(texts):
    return "".join(text + quillery.END for text in texts)


# ---------------------------------------------------------------- pictures


class Area:
    """A rectangle of the screen, in pixels."""

    def __init__(self, left, top, right, bottom):
        self.left, self.top, self.right, self.bottom = left, top, right, bottom

    @classmethod
    def at(cls, part):
        left, top, width, height = part.place()
        return cls(left * SCALE, top * SCALE, (left + width) * SCALE, (top + height) * SCALE)

    def corner(self, width, height):
        """The left upper one, of a size in the desktop's units."""
        return Area(self.left, self.top, self.left + width * SCALE, self.top + height * SCALE)

    def padded(self, units):
        pixels = units * SCALE
        return Area(self.left - pixels, self.top - pixels, self.right + pixels, self.bottom + pixels)

    def united(self, other):
        return Area(min(self.left, other.left), min(self.top, other.top), max(self.right, other.right),
                    max(self.bottom, other.bottom))

    def geometry(self):
        return f"{self.right - self.left}x{self.bottom - self.top}+{self.left}+{self.top}"


def shot():
    """The pixels of the screen."""
    return subprocess.run(["import", "-silent", "-window", "root", "-depth", "8", "rgb:-"], capture_output=True, check=True,
                          timeout=30).stdout


def still():
    """The screen once nothing but a text cursor changes in it; the same of its two states each time."""
    end, shots = time.monotonic() + 20, []
    while time.monotonic() < end:
        shots.append((time.monotonic(), shot()))
        if shots[0][0] > shots[-1][0] - REST_SECONDS:
            continue
        turns = [pixels for pixels, _ in itertools.groupby(pixels for _, pixels in shots)]
        # What comes back is a cursor; what does not is something that has just been drawn.
        if len(turns) == 1 or (len(set(turns)) == 2 and len(turns) > 2):
            return min(turns)
        del shots[0]
    raise Failure("the screen does not come to rest")


def save(pixels, area, path):
    """Writes a part of the screen as a PNG without a time in it."""
    width, height = (int(number) for number in subprocess.run(
        ["xdotool", "getdisplaygeometry"], capture_output=True, check=True, timeout=30).stdout.split())
    subprocess.run(["convert", "-size", f"{width}x{height}", "-depth", "8", "rgb:-", "-crop", area.geometry(), "+repage",
                    "-strip", "-define", "png:exclude-chunks=date,time", path], input=pixels, check=True, timeout=60)


def lines(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False, timeout=30).stdout.split("\n")


def window_area(window, with_frame=False):
    told = (line.partition(":") for line in lines("xwininfo", "-id", window))
    place = {name.strip(): value.strip() for name, _, value in told}
    left, top = int(place["Absolute upper-left X"]), int(place["Absolute upper-left Y"])
    area = Area(left, top, left + int(place["Width"]), top + int(place["Height"]))
    frame = lines("xprop", "-id", window, "_NET_FRAME_EXTENTS")[0].partition("=")[2]
    if with_frame and frame:
        left, right, top, bottom = (int(number) for number in frame.split(","))
        area = Area(area.left - left, area.top - top, area.right + right, area.bottom + bottom)
    return area


def windows(*search):
    return [window for window in lines("xdotool", "search", "--onlyvisible", *search) if window]


# ---------------------------------------------------------------- the desktop


def make_frames_dark(home):
    """The frames of windows, which the window manager draws."""
    settings = pathlib.Path("/etc/xdg/openbox/rc.xml").read_text(encoding="utf-8")
    write(home / "openbox/rc.xml", settings.replace("<name>Clearlooks</name>", "<name>Onyx</name>"))
    subprocess.run(["openbox", "--reconfigure"], check=True, timeout=30)


@contextlib.contextmanager
def desktop(has_status_bar=True):
    """A notification service and, unless it is to have none, a status bar, for as long as it lasts."""
    home = pathlib.Path(os.environ["XDG_CONFIG_HOME"])
    xfce_panel.configure(os.environ["HOME"])
    write(home / "dunst/dunstrc", NOTIFICATIONS.format(scale=SCALE, points=9 * SCALE, **NOTIFICATION_COLORS))
    write(home / "gtk-3.0/settings.ini", "[Settings]\ngtk-cursor-blink=false\ngtk-font-name=DejaVu Sans 9\n"
          f"gtk-application-prefer-dark-theme={int(IS_DARK)}\n")
    subprocess.run(["display", "-window", "root", f"xc:{BACKGROUND}"], check=False, timeout=30)  # says 1 when it is done, too
    environment = {**os.environ, "GDK_SCALE": str(SCALE)}
    commands = {"org.freedesktop.Notifications": ["dunst"]}
    if has_status_bar:
        commands["org.kde.StatusNotifierWatcher"] = xfce_panel.COMMAND
    if IS_DARK:
        make_frames_dark(home)
        commands["org.freedesktop.portal.Desktop"] = [sys.executable, str(pathlib.Path(__file__).with_name("dark_portal.py"))]
    services = [subprocess.Popen(command, stdin=subprocess.DEVNULL, env=environment) for command in commands.values()]
    try:
        for name in commands:
            wait(name, lambda name=name: session.name_has_owner(name))
        yield Screen()
    finally:
        for service in services:
            service.terminate()
            service.wait(10)


class Quillery(quillery.Quillery):
    """The program in a home folder of its own, which is as its user would have it. Use it in a with statement."""

    def __init__(self, program, screen, settings=quillery.USED_BEFORE, environment=None, texts=TEXTS):
        super().__init__(program, settings, QT_SCALE_FACTOR=str(SCALE), **(environment or {}))
        self.screen = screen
        self.write(".config/quillery/quillery.conf", "\n".join(["[links]", *(f"{link}=example.org/{link}" for link in LINKS)]))
        write(self.list, listed(texts))
        for name in (USER, *FRIENDS):
            for kind, content in {"Fullname": name.title(), "Username": name, "Email": f"{name}@example.org",
                                  "Password": "secret"}.items():
                write(self.store / f"{name}_{kind}.txt", content)
            write(self.store / f".{name}_Quillery.txt", listed(TEXTS))
        write(self.store / f"{USER}_Contacts.txt", listed(FRIENDS))
        self.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.end()
        shutil.rmtree(self.home)

    def status_icon(self):
        """The only one in the status bar."""
        bar = window_area(windows("--class", "xfce4-panel")[0])
        return Area(bar.right - (bar.bottom - bar.top), bar.top, bar.right, bar.bottom)

    def open_menu(self):
        """The menu's window."""
        before, icon = self.windows(), self.status_icon()
        xdotool("mousemove", (icon.left + icon.right) // 2, (icon.top + icon.bottom) // 2, "click", 1)
        return wait("open menu", lambda: [window for window in self.windows() if window not in before])[0]

    def keys(self, *names):
        xdotool("key", *names)

    def windows(self, *search):
        return windows(*(search or ("--class", "quillery")))

    def area(self, title=None, with_frame=False):
        """Of the window with that title, or of all."""
        search = ("--name", f"^{title}$") if title else ()
        areas = [window_area(window, with_frame) for window in wait(f"window {title or ''}", lambda: self.windows(*search))]
        united = areas[0]
        for area in areas[1:]:
            united = united.united(area)
        return united
