"""Two users on two machines, and one storage server between them. Usage: two_users_test.py PROGRAM STORAGE-SERVER, on a
private desktop (tests/support). A machine is a home folder of its own; everything is done through menus and windows."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
import xfce_panel  # noqa: E402
from screen import Screen, session, wait  # noqa: E402
from status_menu import StatusMenu  # noqa: E402

STORAGE = sys.argv.pop()
PROGRAM = sys.argv.pop()
END = "\n-CLIPBOARD'S END-\n"


class Machine:
    """A running Quillery with a home folder of its own."""

    def __init__(self, folder, port, screen):
        self.screen = screen
        self.environment = {**os.environ, "HOME": folder, "QUILLERY_STORAGE_HOST": "127.0.0.1", "QUILLERY_STORAGE_PORT": port,
                            "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"}
        for variable, place in {"CONFIG": ".config", "DATA": ".local/share", "CACHE": ".cache"}.items():
            self.environment[f"XDG_{variable}_HOME"] = os.path.join(folder, place)
        self.environment["XDG_RUNTIME_DIR"] = os.path.join(folder, "run")
        os.makedirs(self.environment["XDG_RUNTIME_DIR"], 0o700)
        settings = pathlib.Path(folder, ".config/TovanixDev/Quillery.ini")
        settings.parent.mkdir(parents=True)
        settings.write_text("[General]\nkIsNotFirstUse=YES\n", encoding="utf-8")
        with open(os.path.join(folder, "log"), "w", encoding="utf-8") as log:
            self.process = subprocess.Popen([PROGRAM], env=self.environment, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.menu = StatusMenu(session, self.process.pid)
        wait("end of the start", lambda: "New passcode" in pathlib.Path(folder, "log").read_text(encoding="utf-8"))

    def end(self):
        self.process.terminate()
        self.process.wait(20)

    def find(self, role, name=None):
        return self.screen.find(self.process.pid, role, name)

    def choose(self, label):
        wait(f"enabled “{label}”", lambda: (0, label, True) in [(0, *item[1:]) for item in self.menu.items()])
        self.menu.click(label)

    def fill(self, **fields):
        for name, text in fields.items():
            name = name.replace("_", " ").replace("E mail", "E-mail")
            field = wait(f"field “{name}”", lambda name=name: [
                part for part in self.screen.all(self.process.pid, None, name) if part.role() != "label"])
            field[0].fill(text)

    def press(self, name):
        self.find("push button", name).press()

    def answer(self, text, button="OK"):
        self.find("label", text)
        self.press(button)
        wait(f"end of the alert “{text}”", lambda: not self.screen.all(self.process.pid, "label", text))

    def sign_up(self, user, password):
        self.choose("Sign up")
        self.fill(Full_name=user.title(), User_name=user, E_mail=f"{user}@example.org", Password=password, Password_again=password)
        self.press("Done")
        self.answer("You have successfully been registred as Quillery member.")

    def sign_in(self, user, password):
        self.choose("Sign in")
        self.fill(User_name=user, Password=password)
        self.press("Sign in")
        wait("log-out item", lambda: any(item[1] == "Log out" for item in self.menu.items()))

    def save(self, text):
        subprocess.run(["xclip", "-in", "-selection", "clipboard"], input=text.encode(), check=True, timeout=30)
        self.choose("Save Clipboard")

    def texts(self):
        return [item.name() for item in self.screen.all(self.process.pid, "list item")]


class TwoUsersTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="quillery-two-users.")
        self.addCleanup(folder.cleanup)
        self.lists = pathlib.Path(folder.name, "store", "htdocs")
        server = subprocess.Popen([STORAGE, "--folder", self.lists.parent, "--port", "0"], stdout=subprocess.PIPE, text=True)
        self.addCleanup(lambda: (server.kill(), server.wait(10), server.stdout.close()))
        port = server.stdout.readline().rpartition(":")[2].partition("/")[0]
        xfce_panel.configure(os.environ["HOME"])
        panel = subprocess.Popen(xfce_panel.COMMAND, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (panel.kill(), panel.wait(10)))
        self.screen = Screen()
        self.machines = []
        for name in ("one", "two"):
            self.machines.append(Machine(os.path.join(folder.name, name), port, self.screen))
            self.addCleanup(self.machines[-1].end)

    def stored(self, name):
        path = self.lists / name
        return path.read_bytes().decode() if path.exists() else None

    def wait_until_stored(self, name, text):
        wait(f"“{text}” in {name}", lambda: self.stored(name) == text)

    def test_a_list_follows_its_user_and_a_friend_sends_a_text(self):
        here, there = self.machines
        here.sign_up("alice 1", "secret")
        for kind, content in {"Fullname": "Alice 1", "Username": "alice 1", "Email": "alice 1@example.org",
                              "Password": "secret"}.items():
            self.assertEqual(self.stored(f"alice 1_{kind}.txt"), content)
        here.sign_in("alice 1", "secret")
        here.save("older")
        self.wait_until_stored(".alice 1_Quillery.txt", "older" + END)
        here.save("newer")
        self.wait_until_stored(".alice 1_Quillery.txt", "newer" + END + "older" + END)

        there.sign_in("alice 1", "secret")
        there.choose("Saved List")
        wait("the user's list", lambda: there.texts()[:2] == ["newer", "older"])
        there.choose("Log out")
        there.sign_up("robert", "passwd")
        there.sign_in("robert", "passwd")
        there.choose("Add a Friend")
        there.press("Start a Friends List")
        self.wait_until_stored("robert_Contacts.txt", "")
        there.fill(User_name="alice 1")
        there.press("Add")
        there.answer('You have successfully added "alice 1" to your friends list')
        self.wait_until_stored("robert_Contacts.txt", "alice 1" + END)

        there.save("hello\nAlice")
        self.wait_until_stored(".robert_Quillery.txt", "hello\nAlice" + END)
        there.choose("Saved List")
        there.find("check box", "Share mode").press()
        there.find("list item", "hello Alice").click()
        there.find("list item", "alice 1").click()
        there.answer('You have successfull share "hello\nAlice" with "alice 1"')
        self.wait_until_stored(".alice 1_Quillery.txt",
                               "Shared from(robert)hello\nAlice" + END + "newer" + END + "older" + END)
        here.choose("Saved List")
        wait("the friend's text on top", lambda: here.texts()[:1] == ["Shared from(robert)hello Alice"])


if __name__ == "__main__":
    unittest.main()
