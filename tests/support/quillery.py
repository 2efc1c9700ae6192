"""Quillery as its user has it: the program, with a home folder of its own, looked at and driven from outside."""

import contextlib
import os
import pathlib
import signal
import subprocess
import tempfile

import dbus
from screen import Screen, process_of, session, wait

END = "\n-CLIPBOARD'S END-\n"
USED_BEFORE = ("kIsNotFirstUse=YES",)
SIGNED_IN = (*USED_BEFORE, "kAutoLogin=Yes", "kUsername=alice", "kPassword=secret")
FOLDERS = {"CONFIG_HOME": ".config", "DATA_HOME": ".local/share", "STATE_HOME": ".local/state", "CACHE_HOME": ".cache",
           "RUNTIME_DIR": "run"}
WATCHER, ICON, MENU = "org.kde.StatusNotifierWatcher", "org.kde.StatusNotifierItem", "com.canonical.dbusmenu"


class Quillery:
    """The program may be started in its home folder again and again; `process` is the latest of them."""

    def __init__(self, program, settings=USED_BEFORE, **environment):
        os.umask(0o077)  # so that what others than the user can read is the program's doing
        self.program, self.screen, self.running = program, Screen(), []
        self.home = pathlib.Path(tempfile.mkdtemp(dir=os.environ["HOME"]))
        self.list = self.home / "Documents/.Quillery.txt"
        self.store = self.home / ".local/share/quillery/htdocs"
        self.log = self.home / "log"
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

    # -- processes in the home folder

    def run(self, *command, **options):
        self.running.append(subprocess.Popen(command, env=self.environment, stdout=subprocess.DEVNULL, **options))
        return self.running[-1]

    def start(self):
        with open(self.log, "w", encoding="utf-8") as log:
            self.process = self.run(self.program, stderr=log, umask=0)
        return self.process

    def start_fully(self):
        self.start()
        wait("end of the start", lambda: "passcode" in self.read(self.log))
        return self.process

    def command(self, *words, **environment):
        """Its exit status and what it says."""
        done = subprocess.run([self.program, *words], capture_output=True, text=True, timeout=60, check=False,
                              env={**self.environment, **environment})
        return done.returncode, done.stdout + done.stderr

    def processes(self, name):
        """Those with that name in their command lines, also where something else has started them."""
        for about in pathlib.Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                if f"HOME={self.home}\0".encode() in (about / "environ").read_bytes() \
                        and name.encode() in (about / "cmdline").read_bytes():
                    yield int(about.name)

    def end(self):
        """Ends all of them, and returns the files and folders that others than the user can use."""
        for number in self.processes(""):
            with contextlib.suppress(ProcessLookupError):
                os.kill(number, signal.SIGKILL)
        for process in self.running:
            process.wait(10)
        wait("end of all", lambda: not list(self.processes("")))
        return [path for path in self.home.rglob("*") if not path.is_symlink() and path.stat().st_mode & 0o077]

    # -- the clipboard, the menu, the windows

    def copy(self, text):
        """Returns the process that has the text."""
        owner = self.run("xclip", "-quiet", "-selection", "clipboard", stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
        with owner.stdin as pipe:
            pipe.write(text.encode())
        wait("copied text", lambda: subprocess.run(["xclip", "-out", "-selection", "clipboard"], env=self.environment,
                                                   capture_output=True, timeout=30, check=False).stdout == text.encode())
        return owner

    def menu(self):
        """The menu of its icon in the status bar, and its items that are enabled, those of submenus included."""
        def numbers(node):
            for number, properties, children in node[2]:
                if properties.get("enabled", True):
                    yield str(properties.get("label", "")).replace("_", ""), number
                yield from numbers((number, properties, children))

        watcher = session.get_object(WATCHER, "/StatusNotifierWatcher", introspect=False)
        for item in watcher.Get(WATCHER, "RegisteredStatusNotifierItems", dbus_interface=dbus.PROPERTIES_IFACE):
            service = item.partition("/")[0]
            if process_of(session, service) == self.process.pid:
                icon = session.get_object(service, "/StatusNotifierItem", introspect=False)
                path = icon.Get(ICON, "Menu", dbus_interface=dbus.PROPERTIES_IFACE)
                menu = dbus.Interface(session.get_object(service, path, introspect=False), MENU)
                return menu, dict(numbers(menu.GetLayout(0, -1, dbus.Array([], signature="s"))[1]))
        return None, {}

    def choose(self, label):
        def look():
            menu, items = self.menu()
            return label in items and (menu, items[label])

        menu, number = wait(f"enabled “{label}”", look)
        menu.Event(number, "clicked", dbus.String("", variant_level=1), dbus.UInt32(0))

    def all(self, role, name=None):
        return self.screen.all(self.process.pid, role, name)

    def find(self, role, name=None):
        return self.screen.find(self.process.pid, role, name)

    def press(self, name, role="push button"):
        self.find(role, name).press()

    def fill(self, fields):
        for name, text in fields.items():
            parts = wait(f"field “{name}”",
                         lambda name=name: [part for part in self.all(None, name) if part.role() != "label"])
            parts[0].fill(text)
