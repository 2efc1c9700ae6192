"""A private machine for one server: its own system accounts, /etc, /run, /srv and processes, over the programs and the
network of this one. Everything of it ends with its first process, and nothing of it is ever seen outside.

Made of namespaces of Linux, which root may make, and on most systems anybody (with the package uidmap). The account that
calls is ACCOUNT inside, so what that writes there is the caller's own here. Root inside is nobody's account here.
"""

import contextlib
import ctypes
import os
import pwd
import select
import shutil
import signal
import socket
import subprocess

ACCOUNT = 1000
# The accounts of the inside: system accounts, ACCOUNT, nobody. Where root may choose, the system's are accounts that
# Debian's policy keeps free.
SYSTEM_ACCOUNTS, NOBODY, FREE_ACCOUNTS = 1000, 65534, 60000

CLONE_NEWNS, CLONE_NEWUSER, CLONE_NEWPID = 0x20000, 0x10000000, 0x20000000
MS_BIND, MS_REC, MS_PRIVATE = 0x1000, 0x4000, 0x40000
PR_SET_PDEATHSIG, PR_SET_CHILD_SUBREAPER = 1, 36

libc = ctypes.CDLL(None, use_errno=True)


class Refusal(Exception):
    """Why a private machine cannot be made here, in words for people."""


def check(result):
    if result == -1:
        number = ctypes.get_errno()
        raise OSError(number, os.strerror(number))


def die_with_parent():
    check(libc.prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0))


def mount(source, target, kind, flags=0, options=""):
    check(libc.mount(source.encode(), target.encode(), kind.encode(), ctypes.c_ulong(flags), options.encode()))


def write(path, content, mode):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb", opener=lambda name, flags: os.open(name, flags, mode)) as file:
        file.write(content.encode() if isinstance(content, str) else content)


def account_name():
    return "root" if os.getuid() == 0 else f"account {os.getuid()}"


def map_accounts(process):
    for table, mine in (("uid", os.getuid()), ("gid", os.getgid())):
        first = FREE_ACCOUNTS if os.geteuid() == 0 else subordinate_accounts(f"/etc/sub{table}")
        lines = [(0, first, SYSTEM_ACCOUNTS), (ACCOUNT, mine, 1), (NOBODY, first + SYSTEM_ACCOUNTS, 1)]
        if os.geteuid() == 0:
            with open(f"/proc/{process}/{table}_map", "w", encoding="ascii") as file:
                file.write("".join("%d %d %d\n" % line for line in lines))
        else:
            command = [f"new{table}map", str(process), *(str(number) for line in lines for number in line)]
            result = subprocess.run(command, capture_output=True, text=True, check=False)
            if result.returncode != 0:
                raise Refusal(result.stderr.strip())


def subordinate_accounts(path):
    """The first of the account ids that the administrator lets this account use."""
    if not shutil.which("newuidmap"):
        raise Refusal("only root can without newuidmap (Debian: apt install uidmap)")
    me = pwd.getpwuid(os.getuid()).pw_name
    with open(path, encoding="utf-8") as file:
        for name, first, count in (line.split(":") for line in file if line.count(":") == 2):
            if name in (me, str(os.getuid())) and int(count) > SYSTEM_ACCOUNTS:
                return int(first)
    raise Refusal(f"{path} has no range for {me}")


def start(command, environment, files, shown, log):
    """Starts a private machine with a command of absolute paths and returns a process that ends with it. files are written
    there first: path to (content, mode). shown are folders of here and where they are there. The command's output goes to
    the open file log. Raises a Refusal where it cannot be done."""
    adopt_orphans()
    ours, theirs = socket.socketpair()
    host = os.fork()
    if host == 0:
        try:
            ours.close()
            die_with_parent()
            for number in (1, 2):
                os.dup2(log.fileno(), number)
            be_host(theirs, command, environment, files, shown)
        except Exception as error:  # whatever it is, it goes to the log
            os.write(2, f"{type(error).__name__}: {error}\n".encode())
        finally:
            os._exit(1)
    theirs.close()
    try:
        with ours:
            reason = ours.recv(1000).decode()
            if reason != "moved":
                raise Refusal(f"this system lets {account_name()} make no namespaces: {reason}")
            map_accounts(host)
            ours.send(b"mapped")
    except (Refusal, OSError) as error:
        stop(host)
        raise Refusal(f"no private machine for a server: {error}")
    return host


def adopt_orphans():
    check(libc.prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0))


def stop(process):
    """Ends a child, and returns when nothing of what it started is left either."""
    with contextlib.suppress(ProcessLookupError):
        os.kill(process, signal.SIGKILL)
    with contextlib.suppress(ChildProcessError):
        while True:
            os.wait()


def be_host(parent, command, environment, files, shown):
    """Moves into the accounts of the machine, whose first process is the next child. Ends with that."""
    try:
        check(libc.unshare(CLONE_NEWUSER | CLONE_NEWPID))
    except OSError as error:
        parent.send(str(error).encode())
        return
    parent.send(b"moved")
    if not parent.recv(10):
        return
    alive = os.pipe()
    machine = os.fork()
    if machine != 0:
        os._exit(os.waitstatus_to_exitcode(os.waitpid(machine, 0)[1]) & 0xFF)
    os.close(alive[1])
    os.dup2(os.open(os.devnull, os.O_RDONLY), 0)
    become_root()
    die_with_parent()
    if not select.select([alive[0]], [], [], 0)[0]:  # otherwise the parent had died before
        furnish(files, shown)
        run(command, environment)


def become_root():
    os.setgroups([])
    os.setresgid(0, 0, 0)
    os.setresuid(0, 0, 0)
    os.umask(0o022)


def furnish(files, shown):
    check(libc.unshare(CLONE_NEWNS))
    mount("none", "/", "none", MS_REC | MS_PRIVATE)
    with contextlib.suppress(FileNotFoundError), open("/etc/localtime", "rb") as file:
        files = {**files, "/etc/localtime": (file.read(), 0o644)}
    # Held open, as they may lie below what is about to be covered.
    sources = [(os.open(folder, os.O_PATH | os.O_DIRECTORY), place) for folder, place in shown.items()]
    for place in ("/etc", "/run", "/srv", "/opt", "/var/log"):
        mount("tmpfs", place, "tmpfs", 0, "mode=755")
    for descriptor, place in sources:
        os.makedirs(place, exist_ok=True)
        mount(f"/proc/self/fd/{descriptor}", place, "none", MS_BIND | MS_REC)
        os.close(descriptor)
    for path, (content, mode) in files.items():
        write(path, content, mode)


def run(command, environment):
    """Runs the command as the first process of a machine has to: it buries what others leave. Never returns."""
    server = subprocess.Popen(command, env=environment, cwd="/")
    while True:
        process, status = os.wait()
        if process == server.pid:
            os._exit(os.waitstatus_to_exitcode(status) & 0xFF)
