"""What the program has to do with the rest of the desktop: the start with a session, links, a panel that comes and goes. Usage: session_test.py PROGRAM, on
a private desktop without a window manager (tests/support): the session brings its own."""

import os
import pathlib
import stat
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
import xfce_panel  # noqa: E402
from screen import Screen, session, wait  # noqa: E402
from status_menu import StatusMenu  # noqa: E402

PROGRAM = sys.argv.pop(1)
HOME = pathlib.Path(os.environ["HOME"])
ENTRY = HOME / ".config/autostart/TovanixDev.Quillery-Helper.desktop"
SESSION = "openbox-session"  # which honours autostart entries


class SessionTest(unittest.TestCase):
    def setUp(self):
        for name, text in {"TovanixDev/Quillery.ini": "[General]\nkIsNotFirstUse=YES\n",
                           "quillery/quillery.conf": "[links]\nweb=https://example.org/a?b=c\nemail=ann@example.org\n"}.items():
            file = HOME / ".config" / name
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text, encoding="utf-8")
        self.opened = HOME / "opened"
        opener = HOME / "bin/xdg-open"
        opener.parent.mkdir(exist_ok=True)
        opener.write_text(f'#!/bin/sh\nprintf "%s\\n" "$1" >> "{self.opened}"\n', encoding="utf-8")
        opener.chmod(opener.stat().st_mode | stat.S_IXUSR)
        self.environment = {**os.environ, "PATH": f"{opener.parent}:{os.environ['PATH']}", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"}
        self.screen = Screen()

    def press(self, role, name):
        self.screen.find("quillery", role, name).press()

    def command(self, word):
        return subprocess.run([PROGRAM, word], capture_output=True, timeout=60, check=False, env=self.environment).returncode

    def start(self, *command):
        process = subprocess.Popen(command, env=self.environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(process.wait, 10)
        self.addCleanup(process.kill)
        return process

    def test_the_session_starts_what_the_preferences_ask_for(self):
        self.start(PROGRAM)
        self.press("push button", "Preferences")
        self.press("check box", "Open at launch")
        wait("entry", ENTRY.exists)
        subprocess.run(["desktop-file-validate", ENTRY], check=True, timeout=30)
        self.assertEqual(self.command("--quit"), 0)
        self.assertEqual(self.command("--quit"), 3)

        self.start(SESSION)
        self.press("push button", "Preferences")  # of the program that the session has started
        self.press("check box", "Open at launch")
        wait("end of the entry", lambda: not ENTRY.exists())
        self.assertEqual(self.command("--quit"), 0)

    def test_links_go_to_the_desktops_opener(self):
        self.start(PROGRAM)
        for name in ("Web Site", "Write to Us"):
            self.press("push button", "About Us")
            self.press("push button", name)
        wait("links", lambda: self.opened.exists() and self.opened.read_text(encoding="utf-8").splitlines() == [
            "https://example.org/a?b=c", "mailto:?to=ann%40example.org&subject=&body="])
        self.assertFalse(self.screen.all("quillery", "push button", "Facebook"))
        self.assertEqual(self.command("--quit"), 0)

    def test_a_killed_one_leaves_its_place_to_the_next(self):
        killed = self.start(PROGRAM)
        wait("windowed mode", lambda: self.screen.all("quillery", "push button", "Menu"))
        killed.kill()
        killed.wait(10)
        self.start(PROGRAM)
        wait("windowed mode", lambda: self.screen.all("quillery", "push button", "Menu"))
        self.assertEqual(self.command("--quit"), 0)

    def test_a_panel_that_comes_late_or_again_gets_the_icon(self):
        xfce_panel.configure(HOME)
        program = self.start(PROGRAM)
        menu = lambda: self.screen.all("quillery", "push button", "Menu")  # noqa: E731, of the windowed mode
        wait("windowed mode", menu)
        for _ in range(2):
            panel = self.start(*xfce_panel.COMMAND)
            wait("end of the windowed mode", lambda: not menu())
            status_menu = StatusMenu(session, program.pid)
            self.assertIn("Saved List", [label for _, label, *_ in status_menu.items()])
            status_menu.click("Windowed Mode")
            self.press("push button", "Close")
            wait("end of the windowed mode", lambda: not menu())
            panel.kill()
            panel.wait(10)
            wait("windowed mode", menu)
        self.assertEqual(self.command("--quit"), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
