"""What a person does with Quillery, done with mouse and keyboard on the virtual desktop that scripts/demo has made.

Usage: demo.py PROGRAM FOLDER-FOR-PICTURES 3>REPORT. Looks at windows over the accessibility bus (AT-SPI), as a screen
reader does. Standard output and error are full of what the desktop's services have to say, so the report goes elsewhere.
"""

import contextlib
import html
import json
import os
import subprocess
import sys

import dbus

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "tests", "support"))
import xfce_panel  # noqa: E402
from screen import Failure, Screen, session, wait, xdotool  # noqa: E402

PROGRAM, PICTURES = sys.argv[1:]
HOME = os.environ["HOME"]
LIST = os.path.join(HOME, "Documents", ".Quillery.txt")
REPORT = open(3, "w", encoding="utf-8", buffering=1)
ENTRY_END = "\n-CLIPBOARD'S END-\n"
FIRST = "Grüße an Zoë: 100 € for the tickets\nsecond line, with  two blanks"
SECOND = "A second text, copied later"



pictures = 0


def picture(name):
    global pictures
    pictures += 1
    subprocess.run(["import", "-window", "root", f"{PICTURES}/{pictures:02}-{name}.png"], check=True, timeout=30)


@contextlib.contextmanager
def step(text, name):
    """One line of the report. The first failure ends the demonstration: what follows would build on it."""
    try:
        yield
    except (Failure, OSError, subprocess.SubprocessError, dbus.DBusException) as error:
        print(f"[FAILED] {text}: {error}", file=REPORT)
        picture(f"{name}-failed")
        sys.exit(1)
    print(f"[ ok ] {text}", file=REPORT)
    picture(name)


# ---------------------------------------------------------------- eyes


def find(program, role, name=None, last=False):
    return screen.find(program, role, name, last)


def status_items():
    watcher = session.get_object("org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher", introspect=False)
    return watcher.Get("org.kde.StatusNotifierWatcher", "RegisteredStatusNotifierItems", dbus_interface=dbus.PROPERTIES_IFACE)


def contents(path):
    try:
        with open(path, encoding="utf-8", newline="") as file:
            return file.read()
    except FileNotFoundError:
        return None


def clipboard():
    shown = subprocess.run(["xclip", "-out", "-selection", "clipboard"], capture_output=True, timeout=30, check=False)
    return shown.stdout.decode("utf-8", "replace")


def dunst(*command):
    return subprocess.run(["dunstctl", *command], capture_output=True, text=True, check=True, timeout=30).stdout.strip()


def last_notification():
    """The text of the one shown; it is closed for that, as the service tells the texts of closed ones only."""
    dunst("close-all")
    wait("end of the notification", lambda: dunst("count", "displayed") == "0")
    return html.unescape(json.loads(dunst("history"))["data"][0][0]["body"]["data"])


# ---------------------------------------------------------------- hands


def start(*command, **options):
    log = open(f"{PICTURES}/{os.path.basename(command[0])}.log", "w", encoding="utf-8")
    return subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, **options)


def copy_from_editor(text):
    xdotool("key", "ctrl+a", "ctrl+c")
    wait("copied text on the clipboard", lambda: clipboard() == text)


def save_by_hot_key(text, name):
    xdotool("key", "super+shift+c")
    wait("notification", lambda: dunst("count", "displayed") == "1")
    picture(f"{name}-notification")
    told = last_notification()
    if text not in told:
        raise Failure(f"the notification says “{told}”")


def windows():
    found = subprocess.run(["xdotool", "search", "--onlyvisible", "--class", "quillery"], capture_output=True, timeout=30)
    return set(found.stdout.split())


def choose(name, *keys):
    """Opens the menu of the icon, the only one in the panel's last part, and goes to the command by the keys (menus are
    out of the accessibility bus's sight)."""
    before = windows()
    find("xfce4-panel", "panel", last=True).click()
    wait("menu", lambda: windows() - before)
    xdotool("key", *keys)
    picture(f"{name}-menu")
    xdotool("key", "Return")


# ---------------------------------------------------------------- the demonstration

screen = Screen()
xfce_panel.configure(HOME)
note = os.path.join(HOME, "note.txt")
with open(note, "w", encoding="utf-8") as file:
    file.write(FIRST)
running = []
try:
    with step("A desktop with a status bar and notifications is up", "desktop"):
        running += [start(*xfce_panel.COMMAND), start("dunst")]
        for service in ("org.kde.StatusNotifierWatcher", "org.freedesktop.Notifications"):
            wait(service, lambda service=service: session.name_has_owner(service))
    with step("Quillery starts for the first time and introduces itself", "intro"):
        quillery = start(PROGRAM)
        running.append(quillery)
        begin = find("Quillery", "push button", "Start Using Quillery")
    with step("“Start Using Quillery” is clicked, and its icon comes into the status bar", "status-bar"):
        begin.click()
        wait("icon in the status bar", status_items)
    with step("A text is copied in an editor", "copied"):
        running.append(start("mousepad", "--disable-server", note))
        find("mousepad", "text").click()
        copy_from_editor(FIRST)
    with step("Super+Shift+C saves it, and a notification says so", "saved"):
        save_by_hot_key(FIRST, "saved")
    with step("It is in the list file", "file"):
        wait(f"such text in {LIST}", lambda: contents(LIST) == FIRST + ENTRY_END)
    with step("Another text is written, copied and saved", "second"):
        xdotool("key", "ctrl+a", "type", "--delay", 20, SECOND)
        copy_from_editor(SECOND)
        save_by_hot_key(SECOND, "second")
        wait(f"both texts in {LIST}", lambda: contents(LIST) == SECOND + ENTRY_END + FIRST + ENTRY_END)
        xdotool("key", "ctrl+s")
        wait("second text in the editor's file", lambda: contents(note).rstrip("\n") == SECOND)
    with step("“Saved List” in the status bar's menu opens the list", "list"):
        choose("list", "Down", "Down")
        item = find("Quillery", "list item", FIRST.replace("\n", " "))
    with step("A click on the first text puts it back on the clipboard", "picked"):
        item.click()
        wait("first text on the clipboard", lambda: clipboard() == FIRST)
    with step("It is pasted in the editor", "pasted"):
        find("mousepad", "text").click(from_left=20)  # the list stays above its middle
        xdotool("key", "ctrl+a", "ctrl+v", "ctrl+s")
        wait("first text in the editor's file", lambda: contents(note).rstrip("\n") == FIRST)
    with step("“Quit” ends Quillery", "quit"):
        choose("quit", "Up")
        yes = find("Quillery", "push button", "Yes")
        picture("quit-question")
        yes.click()
        wait("end of Quillery", lambda: quillery.poll() is not None)
        if quillery.returncode != 0:
            raise Failure(f"it ended with status {quillery.returncode}")
finally:
    for process in reversed(running):
        if process.poll() is None:
            process.terminate()
    for process in running:
        process.wait(10)
