"""Takes the pictures of docs/images. Usage: screenshots.py PROGRAM FOLDER [NAME...] 3>REPORT, on a private desktop."""

import contextlib
import os
import socket
import subprocess
import sys

sys.dont_write_bytecode = True
import dbus
from stage import FRIENDS, TEXTS, USER, Failure, Quillery, desktop, save, shot, still, wait

PROGRAM, FOLDER = sys.argv[1:3]
REPORT = open(3, "w", encoding="utf-8", buffering=1)

FIRST_USE = ()
SIGNED_OUT = ("kIsNotFirstUse=YES",)
SIGNED_IN = (*SIGNED_OUT, "kAutoLogin=Yes", f"kUsername={USER}", "kPassword=secret")
WITH_PASSCODE = (*SIGNED_OUT, "kHasPasscode=YES", "kPasscode=4711")


# ---------------------------------------------------------------- what is done for a picture


def menu(label, fields=None, title="Quillery"):
    """Chooses from the status menu, and fills the form that opens."""
    def act(quillery):
        quillery.choose(label)
        wait("window", lambda: quillery.windows("--name", f"^{title}$"))
        quillery.fill(fields or {})
    return act


def intro(quillery):
    quillery.find("push button", "Start Using Quillery")


def locked(quillery):
    quillery.wait_until_started()
    wait("window", lambda: quillery.windows("--name", "^Quillery$"))


def about_us(quillery):
    intro(quillery)
    quillery.press("About Us")
    wait("links", lambda: quillery.windows("--name", "^About us$"))


def slow(quillery):
    quillery.find("push button", "Work Offline")


def waiting(quillery):
    quillery.press("Work Offline")
    quillery.press("OK")
    menu("Sign in", {"User name": "robin.k", "Password": "a secret"})(quillery)
    quillery.press("Sign in")
    wait("what is waited for", lambda: quillery.windows("--name", "^Quillery is waiting$"))


def status_menu(quillery):
    quillery.open_menu()
    quillery.keys("Down", "Down")


def picked(quillery):
    quillery.choose("Saved List")
    quillery.find("list item", TEXTS[0])
    quillery.keys("Down", "Down", "Return")
    wait("what was picked", lambda: quillery.windows("--name", "^Copied$"))


def mode(name):
    def act(quillery):
        quillery.choose("Saved List")
        quillery.find("list item", TEXTS[0])
        quillery.press(name, "check box")
    return act


def friend_for_a_text(quillery):
    mode("Share mode")(quillery)
    quillery.find("list item", TEXTS[2]).click()
    quillery.find("list item", FRIENDS[0])


def friends(quillery):
    friend_for_a_text(quillery)  # who they are has been read by then
    quillery.choose("Friends")
    quillery.find("push button", "Remove a friend")


def first_friend(quillery):
    (quillery.store / f"{USER}_Contacts.txt").unlink()
    quillery.choose("Friends")
    quillery.find("push button", "Start a Friends List")


def question(quillery):
    quillery.choose("Saved List")
    quillery.find("list item", TEXTS[0])
    quillery.press("Clean the list")
    quillery.find("push button", "Yes")


def stand_in(quillery):
    wait("small window", lambda: quillery.windows("--name", "^Quillery Menu$"))


def windowed(quillery):
    quillery.choose("Windowed Mode")
    wait("small window", lambda: quillery.windows("--name", "^Quillery Menu$"))


# ---------------------------------------------------------------- the pictures

SIGN_UP = {"Full name": "Robin Hill", "User name": "robin.k", "E-mail": "robin@example.org", "Password": "a secret",
           "Password again": "a secret"}
# Name: the settings, what is done, and the title of the window that is shown (all windows).
PICTURES = {
    "intro": (FIRST_USE, intro, "Welcome to Quillery"),
    "about-us": (FIRST_USE, about_us, None),
    "checking": (SIGNED_OUT, slow, "Quillery"),
    "waiting": (SIGNED_OUT, waiting, None),
    "status-menu": (SIGNED_OUT, status_menu, None),
    "saved-list": (SIGNED_OUT, picked, None),
    "remove-mode": (SIGNED_OUT, mode("Remove mode"), "Quillery"),
    "question": (SIGNED_OUT, question, None),
    "share-mode": (SIGNED_IN, mode("Share mode"), "Quillery"),
    "pick-a-friend": (SIGNED_IN, friend_for_a_text, "Quillery"),
    "sign-up": (SIGNED_OUT, menu("Sign up", SIGN_UP), "Quillery"),
    "sign-in": (SIGNED_OUT, menu("Sign in", {"User name": "robin.k", "Password": "a secret"}), "Quillery"),
    "change-password": (SIGNED_IN, menu("Change Password"), "Quillery"),
    "friends": (SIGNED_IN, friends, "Quillery"),
    "first-friend": (SIGNED_IN, first_friend, "Quillery"),
    "remove-a-friend": (SIGNED_IN, menu("Remove a Friend", None, "Remove a Friend"), "Remove a Friend"),
    "add-friend": (SIGNED_IN, menu("Add a Friend", {"User name": "sam"}), "Quillery"),
    "preferences": (SIGNED_OUT, menu("Preferences"), "Quillery"),
    "preferences-with-passcode": (SIGNED_IN + WITH_PASSCODE[1:], menu("Preferences"), "Quillery"),
    "passcode": (WITH_PASSCODE, locked, "Quillery"),
    "instructions": (SIGNED_OUT, menu("Instructions"), "Quillery"),
    "information": (SIGNED_OUT, menu("Information"), "Quillery"),
    "windowed-mode": (SIGNED_OUT, windowed, "Quillery Menu"),
    "without-status-bar": (SIGNED_OUT, stand_in, "Quillery Menu"),
}
# Those with a server that says nothing; something in their window turns for ever.
MUTE = (slow, waiting)


def take(name, screen):
    settings, act, title = PICTURES[name]
    with contextlib.ExitStack() as stack:
        environment = {}
        if act in MUTE:
            mute = stack.enter_context(socket.create_server(("127.0.0.1", 0)))
            environment = {"QUILLERY_STORAGE_HOST": "127.0.0.1", "QUILLERY_STORAGE_PORT": str(mute.getsockname()[1])}
        quillery = stack.enter_context(Quillery(PROGRAM, screen, settings, environment))
        if settings is not FIRST_USE and act not in MUTE:
            quillery.wait_until_started()
        act(quillery)
        pixels = shot() if act in MUTE else still()
        save(pixels, quillery.area(title, with_frame=True), os.path.join(FOLDER, f"{name}.png"))


def is_taken(name, screen):
    try:
        take(name, screen)
    except (Failure, OSError, ValueError, subprocess.SubprocessError, dbus.DBusException) as error:
        print(f"[FAILED] {name}: {error}", file=REPORT)
        return False
    print(f"[ ok ] {name}", file=REPORT)
    return True


def main():
    wanted = sys.argv[3:] or list(PICTURES)
    if unknown := set(wanted) - set(PICTURES):
        print(f"There are no pictures {', '.join(sorted(unknown))}; there are: {', '.join(PICTURES)}", file=REPORT)
        return 2
    failed = 0
    for has_status_bar in (True, False):
        names = [name for name in wanted if has_status_bar == (PICTURES[name][1] is not stand_in)]
        with desktop(has_status_bar) as screen:
            failed += sum(not is_taken(name, screen) for name in names)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
