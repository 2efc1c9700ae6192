"""Two users on two machines, and one storage server between them. Usage: two_users_test.py PROGRAM, on a private desktop
(tests/support). A machine is a home folder of its own; everything is done through menus and windows."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
import xfce_panel  # noqa: E402
from quillery import END, Quillery  # noqa: E402
from screen import wait  # noqa: E402

PROGRAM = sys.argv.pop(1)


class Machine(Quillery):
    def answer(self, text):
        self.find("label", text)
        self.press("OK")
        wait(f"end of the alert “{text}”", lambda: not self.all("label", text))

    def sign_up(self, user, password):
        self.choose("Sign up")
        self.fill(Full_name=user.title(), User_name=user, E_mail=f"{user}@example.org", Password=password, Password_again=password)
        self.press("Done")
        self.answer("You have successfully been registred as Quillery member.")

    def sign_in(self, user, password):
        self.choose("Sign in")
        self.fill(User_name=user, Password=password)
        self.press("Sign in")
        wait("log-out item", lambda: self.offers("Log out"))

    def save(self, text):
        self.copy(text)
        self.choose("Save Clipboard")

    def texts(self):
        return [item.name() for item in self.all("list item")]


class TwoUsersTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.mkdtemp(dir=os.environ["HOME"])
        self.lists = pathlib.Path(folder, "htdocs")
        storage = os.path.join(os.path.dirname(PROGRAM), "quillery-storage")
        server = subprocess.Popen([storage, "--folder", folder, "--port", "0"], stdout=subprocess.PIPE, text=True)
        self.addCleanup(lambda: (server.kill(), server.wait(10), server.stdout.close()))
        port = server.stdout.readline().rpartition(":")[2].partition("/")[0]
        xfce_panel.configure(os.environ["HOME"])
        panel = subprocess.Popen(xfce_panel.COMMAND, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (panel.kill(), panel.wait(10)))
        self.machines = [Machine(PROGRAM, QUILLERY_STORAGE_HOST="127.0.0.1", QUILLERY_STORAGE_PORT=port) for _ in range(2)]
        for machine in self.machines:
            machine.start_fully()
            self.addCleanup(machine.end)

    def wait_until_stored(self, name, text):
        path = self.lists / name
        wait(f"“{text}” in {name}", lambda: path.exists() and path.read_bytes() == text.encode())

    def test_a_list_follows_its_user_and_a_friend_sends_a_text(self):
        here, there = self.machines
        here.sign_up("alice 1", "secret")
        for kind, content in {"Fullname": "Alice 1", "Username": "alice 1", "Email": "alice 1@example.org",
                              "Password": "secret"}.items():
            self.wait_until_stored(f"alice 1_{kind}.txt", content)
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
        there.press("Share mode", "check box")
        there.find("list item", "hello Alice").click()
        there.find("list item", "alice 1").click()
        there.answer('You have successfull share "hello\nAlice" with "alice 1"')
        self.wait_until_stored(".alice 1_Quillery.txt",
                               "Shared from(robert)hello\nAlice" + END + "newer" + END + "older" + END)
        here.choose("Saved List")
        wait("the friend's text on top", lambda: here.texts()[:1] == ["Shared from(robert)hello Alice"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
