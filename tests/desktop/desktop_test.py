"""Quillery as a whole, and what it has to do with the rest of the desktop. Usage: desktop_test.py PROGRAM, on a private
desktop (tests/support)."""

import glob
import html
import json
import os
import signal
import socket
import subprocess
import sys
import threading
import unittest

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
import xfce_panel  # noqa: E402
from quillery import END, SIGNED_IN, USED_BEFORE, Quillery  # noqa: E402
from screen import found, process_of, session, wait, windows, xdotool  # noqa: E402

PROGRAM = sys.argv.pop(1)
NOTIFICATIONS = "org.freedesktop.Notifications"
xfce_panel.configure(os.environ["HOME"])  # for the cases that start it


def dunst(*words):
    """Asks the notification service, which the bus starts if need be."""
    return found("dunstctl", *words).strip()


def storage_server(quillery):
    return wait("storage server", lambda: list(quillery.processes("quillery-storage")))[0]


class PlainNotifications(dbus.service.Object):
    """A notification service that does not read tags and, once it is full, refuses."""

    def __init__(self):
        dunst("close-all")
        os.kill(process_of(session, NOTIFICATIONS), signal.SIGTERM)
        wait("end of the other service", lambda: not session.name_has_owner(NOTIFICATIONS))
        dbus.mainloop.glib.threads_init()
        self.bus = dbus.SessionBus(private=True, mainloop=dbus.mainloop.glib.DBusGMainLoop())
        self.received, self.is_full = [], False
        super().__init__(dbus.service.BusName(NOTIFICATIONS, self.bus), "/org/freedesktop/Notifications")
        self.loop = GLib.MainLoop()
        threading.Thread(target=self.loop.run, daemon=True).start()

    def end(self):
        self.loop.quit()
        self.bus.close()

    @dbus.service.method(NOTIFICATIONS, out_signature="as")
    def GetCapabilities(self):  # noqa: N802, given
        return ["body"]

    @dbus.service.method(NOTIFICATIONS, in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, program, replaced, icon, title, body, actions, hints, time):  # noqa: N802, given
        if self.is_full:
            raise dbus.DBusException("full")
        self.received.append(str(body))
        return len(self.received)


class DesktopTest(unittest.TestCase):
    def quillery(self, settings=USED_BEFORE, **environment):
        quillery = Quillery(PROGRAM, settings, **environment)
        self.addCleanup(lambda: self.assertEqual(quillery.end(), [], "others can read these"))
        return quillery

    def run_until_the_end(self, *command, **options):
        process = subprocess.Popen(command, stderr=subprocess.DEVNULL, **options)
        self.addCleanup(lambda: (process.kill(), process.wait(10)))
        return process

    def test_a_session_that_ends_does_not_wait_for_a_mute_server(self):
        with socket.socket() as mute:
            mute.bind(("127.0.0.1", 0))
            mute.listen()
            quillery = self.quillery(QUILLERY_STORAGE_HOST="127.0.0.1", QUILLERY_STORAGE_PORT=str(mute.getsockname()[1]))
            for ending in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT):
                program = quillery.start()
                with mute.accept()[0]:
                    program.send_signal(ending)
                    self.assertEqual(program.wait(10), 0, ending)

    def test_the_storage_server_goes_with_the_program_however_it_ends(self):
        quillery = self.quillery()
        for ending, status in ((signal.SIGKILL, -9), (signal.SIGTERM, 0)):
            program = quillery.start_fully()  # also in the place of one that was killed
            self.assertEqual(quillery.command("--list"), (0, ""))
            self.assertTrue(quillery.read(quillery.port))
            program.send_signal(ending)
            self.assertEqual(program.wait(10), status)
            wait("end of the storage server", lambda: not quillery.port.exists(), 5)

    def test_a_storage_server_that_runs_is_used_and_left_alone_and_one_that_is_killed_replaced(self):
        quillery = self.quillery(SIGNED_IN)
        quillery.run(os.path.join(os.path.dirname(PROGRAM), "quillery-storage"))
        port = wait("port", lambda: quillery.read(quillery.port))
        for text in ("first", "second"):  # the second program finds the server that the first one used
            program = quillery.start_fully()
            quillery.copy(text)
            self.assertEqual(quillery.command("--save"), (0, ""))
            self.assertEqual(quillery.read(quillery.port), port)
            if text == "first":
                program.terminate()
                program.wait(10)
        os.kill(storage_server(quillery), signal.SIGKILL)
        quillery.copy("third")
        self.assertEqual(quillery.command("--save"), (0, ""))
        self.assertNotEqual(quillery.read(quillery.port), port)
        self.assertEqual(quillery.read(quillery.store / ".alice_Quillery.txt"), END.join(("third", "second", "first", "")))

    def test_a_write_in_progress_is_finished_before_the_end_unless_the_user_cannot_wait(self):
        quillery = self.quillery(SIGNED_IN)
        for text, gives_up in (("in flight", False), ("given up", True)):
            program = quillery.start_fully()
            quillery.copy(text)
            dunst("close-all")
            storage = storage_server(quillery)
            os.kill(storage, signal.SIGSTOP)
            xdotool("key", "super+shift+c")
            wait("announcement", lambda: dunst("count", "displayed") == "1")
            ending = quillery.run("kill", "-HUP", str(program.pid)) if gives_up else quillery.run(PROGRAM, "--quit")
            wait("window that says so", lambda: windows("Quillery is waiting"))
            if gives_up:
                quillery.press("Quit Without Saving")
                wait("question", lambda: windows("Sure."))
                xdotool("key", "Tab", "Return")  # away from "Keep Waiting"
                self.assertEqual(program.wait(20), 1)
                kept = (quillery.home / ".local/state/quillery/rescued").glob("*alice*")
                self.assertEqual([quillery.read(copy) for copy in kept], [text + END])
            else:
                self.assertIsNone(ending.poll(), "the command does not wait for the end")
            os.kill(storage, signal.SIGCONT)
            self.assertEqual(ending.wait(20), 0)
            self.assertEqual(program.wait(20), int(gives_up))
            self.assertEqual(quillery.read(quillery.store / ".alice_Quillery.txt"), "in flight" + END)

    def test_what_was_announced_survives_the_end_of_the_display(self):
        quillery = self.quillery(SIGNED_IN)
        number = quillery.home / "display"
        with open(number, "w", encoding="utf-8") as file:
            display = self.run_until_the_end("Xvfb", "-displayfd", str(file.fileno()), "-nolisten", "tcp",
                                             pass_fds=[file.fileno()])
        quillery.environment["DISPLAY"] = ":" + wait("second display", lambda: quillery.read(number)).strip()
        program = quillery.start_fully()
        quillery.copy("late")
        dunst("close-all")
        storage = storage_server(quillery)
        os.kill(storage, signal.SIGSTOP)
        quillery.run(PROGRAM, "--save")
        wait("announcement", lambda: dunst("count", "displayed") == "1")
        display.kill()
        wait("words", lambda: "the display is gone" in quillery.read(quillery.log))
        os.kill(storage, signal.SIGCONT)
        program.wait(20)
        self.assertEqual(quillery.read(quillery.store / ".alice_Quillery.txt"), "late" + END)

    def test_commands_reach_the_program_that_runs(self):
        quillery = self.quillery()
        none = "no Quillery runs for you on this display"
        for words, status, said in (("--save", 3, none), ("--list", 3, none), ("--quit", 3, none), ("--sav", 2, "Usage"),
                                    ("--save --list", 2, "Usage"), ("text", 2, "Usage"), ("--version", 0, "Quillery ")):
            ended, output = quillery.command(*words.split())
            self.assertEqual(ended, status, words)
            self.assertIn(said, output)
        self.assertIn("--save", quillery.command("--help", DISPLAY="")[1])
        for display in (":99999", ""):
            self.assertEqual(quillery.command(DISPLAY=display)[0], 1)

        program = quillery.start_fully()
        quillery.copy("saved by a command")
        self.assertEqual(quillery.command("--save"), (0, ""))
        self.assertEqual(quillery.read(quillery.list), "saved by a command" + END)
        for text, why, is_hanging in (("", "is empty", False), ("saved by a command", "does exist", False),
                                      ("unreachable", "does not answer", True)):
            owner = quillery.copy(text)
            if is_hanging:
                owner.send_signal(signal.SIGSTOP)
            status, said = quillery.command("--save")  # which does not wait until the user has answered
            self.assertEqual(status, 1)
            self.assertIn(why, said)
            wait("alert", lambda: windows("Error!"))
            self.assertEqual(quillery.command("--list")[0], 1)
            xdotool("key", "Return")
            wait("end of the alert", lambda: not windows("Error!"))
        self.assertEqual(quillery.read(quillery.list), "saved by a command" + END)
        self.assertEqual(quillery.command("--list"), (0, ""))
        wait("list", lambda: windows("Quillery"))
        xdotool("key", "Escape")
        wait("closed list", lambda: not windows("Quillery"))
        self.assertEqual(quillery.command(), (0, ""))  # the program started once more
        wait("menu", lambda: windows("Quillery Menu"), 10)
        self.assertEqual(quillery.command("--quit"), (0, ""))
        self.assertEqual(program.wait(10), 0)

    def test_a_notification_reaches_the_service_as_it_reads_texts_and_a_click_answers(self):
        quillery = self.quillery()
        quillery.start_fully()
        text = "a <b>bold</b> & plain text"
        quillery.copy(text)
        dunst("close-all")
        xdotool("key", "super+shift+c")
        wait("notification", lambda: dunst("count", "displayed") == "1")
        dunst("action", "0")
        wait("alert", lambda: windows("Success!"))
        xdotool("key", "Return")
        self.assertEqual(quillery.read(quillery.list), text + END)
        dunst("close-all")  # as the service tells the texts of closed ones only
        self.assertIn(html.escape(text), json.loads(dunst("history"))["data"][0][0]["body"]["data"])

        plain = PlainNotifications()
        self.addCleanup(plain.end)
        quillery.copy(text + ", without tags")
        self.assertEqual(quillery.command("--save"), (0, ""))
        wait("notification", lambda: plain.received)
        self.assertIn(text + ", without tags", plain.received[0])
        self.assertFalse(windows("Quillery says"))
        plain.is_full = True
        quillery.copy("refused")
        self.assertEqual(quillery.command("--save"), (0, ""))
        wait("banner", lambda: windows("Quillery says"))

    def test_a_hot_key_that_is_taken_is_told_once(self):
        self.quillery().start_fully()  # which has it
        quillery = self.quillery()
        for is_told in (True, False):
            program = quillery.start_fully()
            self.assertEqual(quillery.command("--list"), (0, ""))  # behind all that the start has to say
            self.assertEqual(bool(windows("Quillery says")), is_told)
            program.terminate()
            program.wait(10)

    def test_the_menu_is_in_a_window_exactly_while_there_is_no_status_bar(self):
        for bar, settings in ((["trayer"], USED_BEFORE), (xfce_panel.COMMAND, ())):
            quillery = self.quillery(settings)
            program = quillery.start()
            if not settings:
                quillery.press("Start Using Quillery")  # after which it does not wait for a bar as it does at a login
            menu = wait("window with the menu", lambda: windows("Quillery Menu"))
            quillery.copy("saved without a status bar")
            xdotool("windowactivate", "--sync", menu[0], "key", "alt+m")
            wait("open menu", lambda: len(found("xdotool", "search", "--onlyvisible", "--class", "quillery").split()) > 1)
            xdotool("key", "Down", "Return")
            wait("saved text", lambda: quillery.read(quillery.list) == "saved without a status bar" + END)
            for _ in range(2):  # one that starts later, and one that is started again
                panel = self.run_until_the_end(*bar)
                wait("end of the window", lambda: not windows("Quillery Menu"))
                if bar == xfce_panel.COMMAND:
                    quillery.choose("Windowed Mode")
                    quillery.press("Close")
                    wait("end of the window", lambda: not windows("Quillery Menu"))
                else:
                    wait("icon", lambda: found("xwininfo", "-tree", "-name", "panel").count('("quillery"') == 1)
                panel.kill()
                panel.wait(10)
                wait("window with the menu", lambda: windows("Quillery Menu"))
            program.kill()
            program.wait(10)

    def test_the_session_starts_what_the_preferences_ask_for(self):
        quillery = self.quillery()
        entry = quillery.home / ".config/autostart/TovanixDev.Quillery-Helper.desktop"
        quillery.start_fully()
        for is_asked_for in (True, False):
            quillery.command()
            for role, name in (("push button", "Preferences"), ("check box", "Open at launch")):
                quillery.screen.find("quillery", role, name).press()  # not by its process, which the session starts
            wait("entry" if is_asked_for else "end of the entry", lambda is_there=is_asked_for: entry.exists() == is_there)
            if is_asked_for:
                subprocess.run(["desktop-file-validate", entry], check=True, timeout=30)
            self.assertEqual(quillery.command("--quit"), (0, ""))
            if is_asked_for:
                quillery.run(*glob.glob("/usr/lib/*/openbox-xdg-autostart"), "OPENBOX").wait(10)
                wait("program of the session", lambda: "no Quillery runs" not in quillery.command("--list")[1])

    def test_a_list_follows_its_user_and_a_friend_sends_a_text(self):
        """Two machines with one's storage server, and two users, all from the panel's menu."""
        self.run_until_the_end(*xfce_panel.COMMAND)
        here = self.quillery(SIGNED_IN)
        for kind, content in {"Username": "alice", "Password": "secret", "Fullname": "Alice", "Email": "a@example.org"}.items():
            here.write(here.store / f"alice_{kind}.txt", content)
        here.start_fully()
        there = self.quillery(QUILLERY_STORAGE_HOST="127.0.0.1", QUILLERY_STORAGE_PORT=here.read(here.port).strip())
        there.start_fully()

        def wait_until_stored(name, *texts):
            wait(f"{texts} in {name}", lambda: here.read(here.store / name) == "".join(text + END for text in texts))

        def fill(press, fields):
            there.fill(fields)
            there.press(press)

        def answer(text):
            there.find("label", text)
            there.press("OK")
            wait("end of the alert", lambda: not there.all("label", text))

        def sign_in(user, password):
            there.choose("Sign in")
            fill("Sign in", {"User name": user, "Password": password})
            wait("log-out item", lambda: "Log out" in there.menu()[1])

        def save(quillery, text):
            quillery.copy(text)
            quillery.choose("Save Clipboard")

        save(here, "older")
        wait_until_stored(".alice_Quillery.txt", "older")
        save(here, "newer")
        wait_until_stored(".alice_Quillery.txt", "newer", "older")
        sign_in("alice", "secret")
        there.choose("Saved List")
        wait("the user's list", lambda: [item.name() for item in there.all("list item")][:2] == ["newer", "older"])
        there.choose("Log out")
        there.choose("Sign up")
        fill("Done", {"Full name": "Robert", "User name": "robert k", "E-mail": "r@example.org", "Password": "passwd",
                      "Password again": "passwd"})
        answer("You have successfully been registred as Quillery member.")
        sign_in("robert k", "passwd")
        there.choose("Add a Friend")
        there.press("Start a Friends List")
        wait_until_stored("robert k_Contacts.txt")
        fill("Add", {"User name": "alice"})
        answer('You have successfully added "alice" to your friends list')
        wait_until_stored("robert k_Contacts.txt", "alice")

        save(there, "hello\nAlice")
        wait_until_stored(".robert k_Quillery.txt", "hello\nAlice")
        there.choose("Saved List")
        there.press("Share mode", "check box")
        there.find("list item", "hello Alice").click()
        there.find("list item", "alice").click()
        answer('You have successfull share "hello\nAlice" with "alice"')
        wait_until_stored(".alice_Quillery.txt", "Shared from(robert k)hello\nAlice", "newer", "older")
        here.choose("Saved List")
        here.find("list item", "Shared from(robert k)hello Alice")


if __name__ == "__main__":
    unittest.main(verbosity=2)
