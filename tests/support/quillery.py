"""Quillery as its user has it: the program, with a home folder of its own, looked at and driven from outside."""

import contextlib
import os
import pathlib
import signal
import stat
import subprocess
import tempfile

from screen import Screen, session, wait
from status_menu import StatusMenu

END = "\n-CLIPBOARD'S END-\n"
USED_BEFORE = ("kIsNotFirstUse=YES",)
SIGNED_IN = (*USED_BEFORE, "kAutoLogin=Yes", "kUsername=alice", "kPassword=secret")
FOLDERS = {"CONFIG_HOME": ".config", "DATA_HOME": ".local/share", "STATE_HOME": ".local/state", "CACHE_HOME": ".cache",
           "RUNTIME_DIR": "run"}


class Quillery:
    """The program may be started in its home folder again and again; `process` is the latest of them."""

    def __init__(self, program, settings=USED_BEFORE, **environment):
        os.umask(0o077)  # so that what others than the user can read is the program's doing
        self.program, self.screen, self.running = program, Screen(), []
        self.home = pathlib.Path(tempfile.mkdtemp(dir=os.environ["HOME"]))
        self.list = self.home / "Documents/.Quillery.txt"
        self.store = self.home / ".local/share/quillery/htdocs"
        self.port = self.home / "run/quillery/storage.port"
        self.environment = {**os.environ, "HOME": str(self.home), "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1",
                            **{f"XDG_{name}": str(self.home / folder) for name, folder in FOLDERS.items()}, **environment}
        (self.home / "run").mkdir()
        self.write(".config/TovanixDev/Quillery.ini", "\n".join(("[General]", *settings, "")))

    def write(self, name, text):
        path = self.home / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def read(self, path):
        return path.read_bytes().decode() if path.exists() else None

    def run(self, *command, **options):
        """Starts something else in the same home folder."""
        self.running.append(subprocess.Popen(command, env=self.environment, stdout=subprocess.DEVNULL, **options))
        return self.running[-1]

    def start(self):
        """Does not wait for the end of the start."""
        with open(self.home / "log", "w", encoding="utf-8") as log:
            self.process = self.run(self.program, stderr=log, umask=0)
        return self.process

    def log(self):
        return self.read(self.home / "log")

    def start_fully(self):
        self.start()
        wait("end of the start", lambda: "New passcode" in self.log())
        return self.process

    def command(self, *words, **environment):
        """Its exit status and what it says."""
        done = subprocess.run([self.program, *words], capture_output=True, text=True, timeout=60, check=False,
                              env={**self.environment, **environment})
        return done.returncode, done.stdout + done.stderr

    def storage_server(self):
        """The process of the one that was started for this home folder."""
        return wait("storage server", lambda: [number for number, command in self.processes() if "quillery-storage" in command])[0]

    def processes(self):
        for about in pathlib.Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                if f"HOME={self.home}\0".encode() in (about / "environ").read_bytes():
                    yield int(about.name), (about / "cmdline").read_bytes().decode()

    def end(self):
        """Ends whatever runs in this home folder, and returns those of its files that others than the user can use."""
        for number, _ in self.processes():
            with contextlib.suppress(ProcessLookupError):
                os.kill(number, signal.SIGKILL)
        for process in self.running:
            process.wait(10)
        return [path for path in self.home.rglob("*") if path.is_file() and stat.S_IMODE(path.lstat().st_mode) & 0o077]

    # -- the clipboard, the menu, the windows

    def copy(self, text):
        owner = self.run("xclip", "-quiet", "-selection", "clipboard", stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
        owner.stdin.write(text.encode())
        owner.stdin.close()
        wait("copied text", lambda: subprocess.run(["xclip", "-out", "-selection", "clipboard"], env=self.environment, timeout=30,
                                                   capture_output=True, check=False).stdout == text.encode())
        return owner

    def offers(self, label):
        """Whether the menu of its icon has such an item, enabled."""
        return (label, True) in [item[1:] for item in StatusMenu(session, self.process.pid).items()]

    def choose(self, label):
        wait(f"enabled “{label}”", lambda: self.offers(label))
        StatusMenu(session, self.process.pid).click(label)

    def all(self, role, name=None):
        return self.screen.all(self.process.pid, role, name)

    def find(self, role, name=None):
        return self.screen.find(self.process.pid, role, name)

    def press(self, name, role="push button"):
        self.find(role, name).press()

    def fill(self, **fields):
        for name, text in fields.items():
            name = name.replace("_", " ").replace("E mail", "E-mail")
            wait(f"field “{name}”", lambda name=name: [part for part in self.all(None, name) if part.role() != "label"])[0].fill(text)
