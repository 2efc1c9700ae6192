"""Takes the pictures of Quillery that the drawings Instructions-*.svg show. Usage: instructions.py PROGRAM FOLDER, on a
private desktop (tests/support)."""

import os
import pathlib
import subprocess
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "scripts"))
from stage import FRIENDS, SCALE, TEXTS, Area, Quillery, desktop, save, still, wait, window_area, windows, write  # noqa: E402

PROGRAM, FOLDER = sys.argv[1:]
SIGNED_IN = ("kIsNotFirstUse=YES", "kAutoLogin=Yes", "kUsername=robin.k", "kPassword=secret")
NOTE = f"We meet again next week:\n{TEXTS[0]}\nSee you there!\n"


def keep(name, area):
    save(still(), area, os.path.join(FOLDER, f"{name}.png"))


def saving(screen):
    """A line is copied in an editor and saved by the hot key."""
    note = pathlib.Path(os.environ["HOME"], "note.txt")
    write(note, NOTE)
    with Quillery(PROGRAM, screen, texts=TEXTS[1:]) as quillery:
        quillery.wait_until_started()
        editor = subprocess.Popen(["mousepad", "--disable-server", note], stdin=subprocess.DEVNULL,
                                  env={**os.environ, "GDK_SCALE": str(SCALE)})
        try:
            text = screen.find("mousepad", "text")
            wait("editor in front", lambda: windows("--class", "mousepad"))
            quillery.keys("ctrl+Home", "Down", "shift+End", "ctrl+c")
            wait("copied line", lambda: subprocess.run(["xclip", "-out", "-selection", "clipboard"], capture_output=True,
                                                       timeout=30, check=False).stdout.decode() == TEXTS[0])
            quillery.keys("super+shift+c")
            notification = wait("notification", lambda: windows("--class", "Dunst"))[0]
            keep("editor", Area.at(text).corner(404, 66))
            keep("notification", window_area(notification))
            subprocess.run(["dunstctl", "close-all"], check=True, timeout=30)
        finally:
            editor.terminate()
            editor.wait(10)


def picking(screen):
    """The list is opened from the status menu, and its first text picked."""
    with Quillery(PROGRAM, screen) as quillery:
        quillery.wait_until_started()
        menu = quillery.open_menu()
        quillery.keys("Down", "Down")
        icon = quillery.status_icon()
        shown = Area(icon.right - 230 * SCALE, icon.top, icon.right, icon.bottom).united(window_area(menu))
        keep("menu", shown.corner(230, 104))
        quillery.keys("Return")
        row = quillery.find("list item", TEXTS[0])
        quillery.keys("Down", "Return")
        popover = wait("what was picked", lambda: quillery.windows("--name", "^Copied$"))[0]
        keep("rows", Area.at(row).corner(196, 80))
        keep("picked", window_area(popover).corner(184, 62))


def sharing(screen):
    """Somebody signs in, and sends a text to a friend."""
    with Quillery(PROGRAM, screen) as quillery:
        quillery.wait_until_started()
        quillery.choose("Sign in")
        quillery.fill({"User name": "robin.k", "Password": "a secret"})
        form = Area.at(quillery.find("label", "User name:")).united(Area.at(quillery.find("push button", "Sign in")))
        keep("sign-in", form.padded(4))
    with Quillery(PROGRAM, screen, SIGNED_IN) as quillery:
        quillery.wait_until_started()
        quillery.choose("Saved List")
        row = quillery.find("list item", TEXTS[0])
        share = quillery.find("check box", "Share mode")
        keep("share", Area.at(share).padded(5).corner(78, 24))
        share.press()
        quillery.find("label", "A pick sends the text to a friend.")
        quillery.keys("Down")
        keep("text", Area.at(row).corner(140, 60))
        quillery.keys("Return")
        quillery.find("list item", FRIENDS[0])
        keep("friends", Area.at(quillery.find("label", "Send the text to:")).padded(4).corner(136, 62))


with desktop() as screen:
    for page in (saving, picking, sharing):
        page(screen)
