"""Quillery as a whole, seen from outside. Usage: desktop_test.py PROGRAM, on a private desktop (tests/support)."""

import contextlib
import glob
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
from screen import Screen, xdotool  # noqa: E402

PROGRAM = sys.argv.pop(1)
HOME, RUNTIME = os.environ["HOME"], os.environ["XDG_RUNTIME_DIR"]
LIST = f"{HOME}/Documents/.Quillery.txt"
PORT_FILE = f"{RUNTIME}/quillery/storage.port"
ENTRY_END = "\n-CLIPBOARD'S END-\n"


def wait(what, look, seconds=30):
    end = time.monotonic() + seconds
    while not (seen := look()):
        if time.monotonic() > end:
            raise AssertionError(f"no {what} within {seconds} s")
        time.sleep(0.02)
    return seen


def active_title():
    found = subprocess.run(["xdotool", "getactivewindow", "getwindowname"], capture_output=True, text=True, timeout=30, check=False)
    return found.stdout.strip()


def windows(title):
    found = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", f"^{title}$"], capture_output=True, text=True,
                           timeout=30, check=False)
    return found.stdout.split()


def contents(path):
    with contextlib.suppress(FileNotFoundError), open(path, encoding="utf-8", newline="") as file:
        return file.read()
    return None


class DesktopTest(unittest.TestCase):
    def setUp(self):
        for folder in (f"{HOME}/Documents", f"{HOME}/.config/TovanixDev", f"{HOME}/.local/share/quillery"):
            shutil.rmtree(folder, ignore_errors=True)
        self.settings("kIsNotFirstUse=YES")
        self.running = []

    def tearDown(self):
        with contextlib.suppress(AssertionError):
            os.kill(self.storage_server(), signal.SIGCONT)
        for process in reversed(self.running):
            if process.poll() is None:
                process.kill()
            process.wait(10)
            for stream in (process.stdin, process.stderr):
                if stream:
                    stream.close()
        wait("end of the storage server", lambda: not os.path.exists(PORT_FILE))

    def settings(self, *lines):
        os.makedirs(f"{HOME}/.config/TovanixDev", exist_ok=True)
        with open(f"{HOME}/.config/TovanixDev/Quillery.ini", "w", encoding="utf-8") as file:
            file.write("\n".join(("[General]", *lines, "")))

    def start(self, *command, **options):
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL, **options)
        self.running.append(process)
        return process

    def quillery(self, **environment):
        self.log = f"{RUNTIME}/quillery.log"
        with open(self.log, "w", encoding="utf-8") as log:
            return self.start(PROGRAM, stderr=log, env={**os.environ, "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1", **environment})

    def wait_until_started(self):
        wait("last line of the start", lambda: "New passcode" in contents(self.log))

    def notifications(self):
        """How many are on the screen; nothing where there is no service."""
        shown = subprocess.run(["dunstctl", "count", "displayed"], capture_output=True, text=True, timeout=30, check=False)
        return int(shown.stdout) if shown.returncode == 0 else None

    def start_notification_service(self):
        self.start("dunst", stderr=subprocess.DEVNULL)
        wait("notification service", lambda: self.notifications() is not None)
        subprocess.run(["dunstctl", "close-all"], check=True, timeout=30)  # of one that was there already

    def storage_server(self):
        """Its process on this desktop: the one that has this home folder."""
        for process in os.listdir("/proc"):
            with contextlib.suppress(OSError):
                about = pathlib.Path("/proc") / process
                if process.isdigit() and b"quillery-storage" in (about / "cmdline").read_bytes() \
                        and f"HOME={HOME}\0".encode() in (about / "environ").read_bytes():
                    return int(process)
        raise AssertionError("no storage server")

    def copy(self, text):
        owner = self.start("xclip", "-quiet", "-selection", "clipboard", stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
        owner.stdin.write(text.encode())
        owner.stdin.close()
        wait("copied text", lambda: subprocess.run(["xclip", "-out", "-selection", "clipboard"], capture_output=True,
                                                   timeout=30, check=False).stdout.decode() == text)

    def test_bad_settings_are_said_and_the_program_goes_on(self):
        self.settings("kIsNotFirstUse=YES", "kAutoLogin=perhaps")
        with socket.socket() as nobody:  # a port on which nobody listens
            nobody.bind(("127.0.0.1", 0))
            program = self.quillery(QUILLERY_STORAGE_HOST="no-such-host.invalid", QUILLERY_STORAGE_PORT="99999",
                                    QUILLERY_STORAGE_TLS="off")
            alert = wait("alert", lambda: windows("Error!"))
        log = contents(self.log)
        self.assertIn('The storage port "99999" is not a number from 1 to 65535; port 21 is used.', log)
        self.assertIn('The setting kAutoLogin has the unknown value "perhaps"', log)
        self.assertFalse(os.path.exists(PORT_FILE), "a storage server was started in spite of a configured host")
        self.assertTrue(alert)
        program.terminate()  # a session that ends does not wait for an answer
        self.assertEqual(program.wait(10), 0)

    def test_a_damaged_settings_file_is_said(self):
        with open(f"{HOME}/.config/TovanixDev/Quillery.ini", "wb") as file:
            file.write(b"\xff\xfe[[[ not an ini\n=\n\0\n")
        program = self.quillery()
        wait("alert", lambda: windows("Error!"))
        self.assertIn("Quillery.ini.damaged-1", contents(self.log))
        subprocess.run(["xdotool", "key", "Return"], check=True, timeout=30)
        wait("intro", lambda: windows("Welcome to Quillery"))
        self.assertIsNone(program.poll())

    def test_the_storage_server_goes_with_the_program_however_it_ends(self):
        for ending in (signal.SIGTERM, signal.SIGKILL):
            program = self.quillery()
            self.wait_until_started()
            self.assertTrue(contents(PORT_FILE))
            program.send_signal(ending)
            program.wait(10)
            wait("end of the storage server", lambda: not os.path.exists(PORT_FILE), 5)

    def test_a_session_that_ends_does_not_wait_for_a_mute_server(self):
        with socket.socket() as mute:
            mute.bind(("127.0.0.1", 0))
            mute.listen()
            program = self.quillery(QUILLERY_STORAGE_HOST="127.0.0.1", QUILLERY_STORAGE_PORT=str(mute.getsockname()[1]))
            connection, _ = mute.accept()
            with connection:
                program.terminate()
                self.assertEqual(program.wait(10), 0)

    def test_a_write_in_progress_is_finished_before_the_end_unless_the_user_cannot_wait(self):
        self.settings("kIsNotFirstUse=YES", "kAutoLogin=Yes", "kUsername=alice", "kPassword=secret")
        self.start_notification_service()
        for text, gives_up in (("in flight", False), ("given up", True)):
            program = self.quillery()
            self.wait_until_started()
            self.copy(text)
            storage = self.storage_server()
            os.kill(storage, signal.SIGSTOP)
            subprocess.run(["xdotool", "key", "super+shift+c"], check=True, timeout=30)
            wait("announcement", self.notifications)
            subprocess.run(["dunstctl", "close-all"], check=True, timeout=30)
            program.terminate()
            wait("window that says so", lambda: windows("Quillery is waiting"))
            if gives_up:
                Screen().find(program.pid, "push button", "Quit Without Saving").press()
                wait("question", lambda: windows("Sure."))
                xdotool("key", "Tab", "Return")  # away from "Keep Waiting"
                self.assertEqual(program.wait(20), 1)
                kept = glob.glob(f"{HOME}/.local/state/quillery/rescued/*alice*")
                self.assertEqual([contents(name) for name in kept], ["given up" + ENTRY_END])
            os.kill(storage, signal.SIGCONT)
            self.assertEqual(program.wait(20), int(gives_up))
            self.assertEqual(contents(f"{HOME}/.local/share/quillery/htdocs/.alice_Quillery.txt"), "in flight" + ENTRY_END)

    def test_a_server_that_ran_before_is_used_and_left_alone(self):
        storage = self.start(os.path.join(os.path.dirname(PROGRAM), "quillery-storage"))
        port = wait("port", lambda: contents(PORT_FILE))
        program = self.quillery()
        self.wait_until_started()
        self.assertEqual(contents(PORT_FILE), port)
        program.terminate()
        program.wait(10)
        time.sleep(2)  # longer than a server without users lives
        self.assertIsNone(storage.poll())
        storage.terminate()
        self.assertEqual(storage.wait(10), 0)

    def test_commands_are_in_a_window_until_there_is_a_status_bar(self):
        self.quillery()
        menu = wait("window with the menu", lambda: windows("Quillery Menu"))
        self.wait_until_started()
        self.copy("saved without a status bar")
        subprocess.run(["xdotool", "windowactivate", "--sync", menu[0], "key", "alt+m"], check=True, timeout=30)
        wait("open menu", lambda: len(subprocess.run(
            ["xdotool", "search", "--onlyvisible", "--class", "quillery"], capture_output=True, timeout=30,
            check=False).stdout.split()) > 1)
        subprocess.run(["xdotool", "key", "Down", "Return"], check=True, timeout=30)
        wait("saved text", lambda: contents(LIST) == "saved without a status bar" + ENTRY_END)
        for _ in range(2):  # one that starts later, and one that is started again
            bar = self.start("trayer", stderr=subprocess.DEVNULL)
            wait("end of the window", lambda: not windows("Quillery Menu"))
            wait("icon", lambda: self.icons() == 1)
            bar.kill()
            wait("window with the menu", lambda: windows("Quillery Menu"))

    def icons(self):
        """How many programs have docked in the X tray."""
        tree = subprocess.run(["xwininfo", "-tree", "-name", "panel"], capture_output=True, text=True, timeout=30, check=False)
        return tree.stdout.count('("quillery"')

    def command(self, *arguments, **environment):
        done = subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, timeout=60, check=False,
                              env={**os.environ, **environment})
        return done.returncode, done.stdout + done.stderr

    def test_commands_reach_the_program_that_runs(self):
        for command in ("--save", "--list", "--quit"):
            self.assertEqual(self.command(command), (3, "quillery: no Quillery runs for you on this display\n"))
        for wrong in (["--sav"], ["--save", "--list"], ["text"]):
            self.assertEqual(self.command(*wrong)[0], 2, wrong)
        self.assertRegex(self.command("--version")[1], r"^Quillery \d")
        self.assertIn("--save", self.command("--help", DISPLAY="")[1])
        self.assertEqual(self.command(DISPLAY=":99999")[0], 1)
        self.assertEqual(self.command(DISPLAY="")[0], 1)

        program = self.quillery()
        self.wait_until_started()
        self.copy("saved by a command")
        self.assertEqual(self.command("--save"), (0, ""))
        wait("saved text", lambda: contents(LIST) == "saved by a command" + ENTRY_END)
        for text in ("", "saved by a command"):  # an answer that does not wait for the user's
            self.copy(text)
            self.assertEqual(self.command("--save")[0], 1)
            wait("alert", lambda: windows("Error!"))
            self.assertEqual(self.command("--list")[0], 1)
            subprocess.run(["xdotool", "key", "Return"], check=True, timeout=30)
            wait("end of the alert", lambda: not windows("Error!"))
        self.assertEqual(self.command("--list"), (0, ""))
        wait("list", lambda: windows("Quillery"))
        subprocess.run(["xdotool", "key", "Escape"], check=True, timeout=30)
        wait("closed list", lambda: not windows("Quillery"))
        started_again = time.monotonic()
        self.assertEqual(self.command(), (0, ""))
        wait("menu in front", lambda: self.active_window() == "Quillery Menu")
        self.assertLess(time.monotonic() - started_again, 10)
        self.assertEqual(self.command("--quit"), (0, ""))
        self.assertEqual(program.wait(1), 0)  # the command has waited for that

    def test_without_a_session_bus_it_says_so_and_works(self):
        self.quillery(DBUS_SESSION_BUS_ADDRESS=f"unix:path={RUNTIME}/nobody")
        self.wait_until_started()
        self.assertIn("there is no session bus", contents(self.log))
        self.copy("without a bus")
        self.assertEqual(self.command("--save"), (0, ""))
        wait("note", lambda: windows("Quillery says"))
        self.assertEqual(contents(LIST), "without a bus" + ENTRY_END)

    def test_closing_what_stands_in_for_the_status_bar_asks_and_closing_the_intro_ends(self):
        program = self.quillery()
        for answer in ("No", "Yes"):
            menu = wait("window with the menu", lambda: windows("Quillery Menu"))
            xdotool("windowactivate", menu[0])
            wait("window in front", lambda: active_title() == "Quillery Menu")
            xdotool("key", "alt+F4")
            Screen().find(program.pid, "push button", answer).press()
        self.assertEqual(program.wait(20), 0)
        self.settings()
        program = self.quillery()
        Screen().find(program.pid, "push button", "Start Using Quillery")
        wait("window in front", lambda: active_title() == "Welcome to Quillery")
        xdotool("key", "alt+F4")
        self.assertEqual(program.wait(20), 0)

    def test_a_locked_list_is_refused_to_commands(self):
        self.settings("kIsNotFirstUse=YES", "kHasPasscode=YES", "kPasscode=secret")
        self.quillery()
        wait("lock", lambda: windows("Quillery") and "Old passcode" in contents(self.log))
        self.assertEqual(self.command("--list"), (1, "quillery: The saved list is locked: unlock it with the passcode first.\n"))

    def active_window(self):
        name = subprocess.run(["xdotool", "getactivewindow", "getwindowname"], capture_output=True, text=True, timeout=30, check=False)
        return name.stdout.strip()

    def test_the_links_are_for_the_keyboard_too(self):
        os.makedirs(f"{HOME}/.config/quillery", exist_ok=True)
        with open(f"{HOME}/.config/quillery/quillery.conf", "w", encoding="utf-8") as file:
            file.write("[links]\nweb=https://example.org/\n")
        self.addCleanup(os.unlink, f"{HOME}/.config/quillery/quillery.conf")
        self.quillery()
        menu = wait("window with the menu", lambda: windows("Quillery Menu"))
        self.wait_until_started()
        subprocess.run(["xdotool", "windowactivate", "--sync", menu[0], "key", "alt+u"], check=True, timeout=30)
        wait("links with the keyboard", lambda: self.active_window() == "About us")
        subprocess.run(["xdotool", "key", "Escape"], check=True, timeout=30)
        wait("menu with the keyboard", lambda: not windows("About us") and self.active_window() == "Quillery Menu")

    def test_a_hot_key_that_is_taken_is_told_once(self):
        os.makedirs(f"{RUNTIME}/other", exist_ok=True)
        self.quillery(XDG_RUNTIME_DIR=f"{RUNTIME}/other", QUILLERY_STORAGE_HOST="no-such-host.invalid")  # which has it
        wait("alert", lambda: windows("Error!"))
        for is_told in (True, False):
            program = self.quillery()
            self.wait_until_started()
            self.assertEqual(self.command("--list")[0], 0)  # behind all that the start has to say
            self.assertEqual(bool(windows("Quillery says")), is_told)
            program.terminate()
            program.wait(10)

    def test_what_was_announced_survives_the_end_of_the_display(self):
        self.settings("kIsNotFirstUse=YES", "kAutoLogin=Yes", "kUsername=alice", "kPassword=secret")
        self.start_notification_service()
        number = f"{RUNTIME}/second-display"
        with open(number, "w", encoding="utf-8") as file:
            display = self.start("Xvfb", "-displayfd", str(file.fileno()), "-nolisten", "tcp", stderr=subprocess.DEVNULL,
                                 pass_fds=[file.fileno()])
        name = ":" + wait("second display", lambda: contents(number)).strip()
        program = self.quillery(DISPLAY=name)
        self.wait_until_started()
        owner = self.start("xclip", "-quiet", "-selection", "clipboard", stdin=subprocess.PIPE, stderr=subprocess.DEVNULL,
                           env={**os.environ, "DISPLAY": name})
        owner.stdin.write(b"late")
        owner.stdin.close()
        wait("copied text", lambda: subprocess.run(["xclip", "-out", "-selection", "clipboard"], capture_output=True, timeout=30,
                                                   env={**os.environ, "DISPLAY": name}, check=False).stdout == b"late")
        os.kill(self.storage_server(), signal.SIGSTOP)
        self.start(PROGRAM, "--save", env={**os.environ, "DISPLAY": name})
        wait("announcement", self.notifications)
        display.kill()
        wait("words", lambda: "the display is gone" in contents(self.log))
        os.kill(self.storage_server(), signal.SIGCONT)
        program.wait(20)
        self.assertEqual(contents(f"{HOME}/.local/share/quillery/htdocs/.alice_Quillery.txt"), "late" + ENTRY_END)

    def test_a_clicked_notification_answers(self):
        self.start_notification_service()
        self.quillery()
        self.wait_until_started()
        self.copy("a <b>bold</b> & plain text")
        subprocess.run(["xdotool", "key", "super+shift+c"], check=True, timeout=30)
        wait("notification", self.notifications)
        subprocess.run(["dunstctl", "action", "0"], check=True, timeout=30)
        wait("alert", lambda: windows("Success!"))
        self.assertEqual(contents(LIST), "a <b>bold</b> & plain text" + ENTRY_END)

    def test_a_hanging_owner_of_the_clipboard_is_said(self):
        self.quillery()
        self.wait_until_started()
        self.copy("unreachable")
        self.running[-1].send_signal(signal.SIGSTOP)
        subprocess.run(["xdotool", "key", "super+shift+c"], check=True, timeout=30)
        wait("alert", lambda: windows("Error!"), 10)
        self.running[-1].send_signal(signal.SIGCONT)
        self.assertEqual(contents(LIST), "")


if __name__ == "__main__":
    unittest.main(verbosity=2)
