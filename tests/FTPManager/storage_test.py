#!/usr/bin/python3
"""storage_test.py SERVER: the personal storage server: who may use it, when it ends, and that a list is the old or the new one."""

import contextlib
import fcntl
import ftplib
import os
import pathlib
import resource
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

SERVER = sys.argv.pop(1)
USER, PASSWORD = "qz7m_50281946", "w5rt9x2h"
LOGIN = f"USER {USER}\r\nPASS {PASSWORD}\r\n"
OLD, NEW = b"the old text", b"the new text"
# Python runs this first in every program.
TELLS_ITS_CALLS = """
import os
def told(call, path_of):
    def tell(*arguments):
        with open(os.environ["CALLS"], "a") as file:
            print(call.__name__, os.path.splitext(path_of(*arguments))[1], file=file)
        return call(*arguments)
    return tell
os.fsync = told(os.fsync, lambda descriptor: os.readlink(f"/proc/self/fd/{descriptor}"))
os.rename = told(os.rename, lambda old, new: new)
"""


def code_of(session, command):
    """Of the reply."""
    try:
        return session.sendcmd(command)[:3]
    except ftplib.Error as error:
        return str(error)[:3]


def reset(data):
    data.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    data.close()


class Storage(unittest.TestCase):
    def setUp(self):
        self.home = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.home / "run").mkdir(mode=0o700)
        self.lists, self.runtime = self.home / "data/quillery/htdocs", self.home / "run/quillery"

    def start(self, *options, **variables):
        """A server process and the first line that it prints. What it keeps private is so without the mask's help."""
        environment = {"XDG_DATA_HOME": self.home / "data", "XDG_RUNTIME_DIR": self.home / "run", **variables}
        process = subprocess.Popen([SERVER, *options], env={**os.environ, **environment}, umask=0, stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process, process.stdout.readline()

    def serve(self, *options, **variables):
        """A server process and its port."""
        process, line = self.start(*options, **variables)
        self.assertIn("Serving ", line)
        return process, int(line.split(":")[-1].split("/")[0])

    def session(self, port):
        session = ftplib.FTP(timeout=10)
        session.connect("127.0.0.1", port)
        self.addCleanup(session.close)
        session.login(USER, PASSWORD)
        session.sendcmd("TYPE I")
        return session

    def begin_upload(self, port, part):
        """A session and its data connection, over which that part has gone."""
        session = self.session(port)
        data = session.transfercmd("STOR htdocs/n")
        data.sendall(part)
        return session, data

    def upload(self, port, text):
        session, data = self.begin_upload(port, text)
        data.close()
        with contextlib.suppress(ftplib.Error):
            return session.voidresp().startswith("226")
        return False

    def stored(self):
        return (self.lists / "n").read_bytes()

    def assert_tidy_with(self, text):
        end = time.monotonic() + 10
        while len(os.listdir(self.lists)) > 1 and time.monotonic() < end:
            time.sleep(0.001)
        self.assertEqual(os.listdir(self.lists), ["n"])
        self.assertEqual(self.stored(), text)

    def test_serves_only_its_lists_and_keeps_them_private(self):
        _, port = self.serve()
        self.assertTrue(self.upload(port, OLD))
        self.assert_tidy_with(OLD)
        self.assertEqual((self.runtime / "storage.port").read_text(), f"{port}\n")
        for folder in self.lists, self.lists.parent, self.runtime:
            self.assertEqual(folder.stat().st_mode & 0o777, 0o700, folder)
        for file in self.lists / "n", self.runtime / "storage.port", self.runtime / "storage.users":
            self.assertEqual(file.stat().st_mode & 0o777, 0o600, file)
        session = self.session(port)
        for command, code in (("STOR n", "550"), ("STOR htdocs/../n", "550"), ("STOR htdocs/folder/n", "550"),
                              ("STOR htdocs/.quillery-upload-abc.part", "550"), ("APPE htdocs/n", "500"),
                              ("DELE htdocs/n", "500"), ("SIZE htdocs/n", "213")):
            self.assertEqual(code_of(session, command), code, command)
        self.assertEqual(code_of(self.session(port), "PORT 127,0,0,1,200,200"), "500")

        (self.lists / "m").write_bytes(NEW)
        for old, new, code in (("absent", "o", "503"), ("n", "m", "550"), ("m", "o", "250"), ("n", "../n", "550")):
            code_of(session, f"RNFR htdocs/{old}")
            self.assertEqual(code_of(session, f"RNTO htdocs/{new}"), code, new)
        (self.lists / "o").unlink()
        self.assert_tidy_with(OLD)

    def test_hears_nothing_more_from_a_client_that_does_not_speak_ftp(self):
        _, port = self.serve()
        self.assertTrue(self.upload(port, OLD))
        orders = f"{LOGIN}STOR htdocs/x\r\n"
        for lines, code in ((f"POST / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n{orders}", "220"), (f"USER / HTTP/1.1\r\n{orders}", "220"),
                            ("x" * 5000 + orders, "220"), (f"{LOGIN}Host: 127.0.0.1\r\nPWD\r\n", "230"),
                            (f"{LOGIN}DELE htdocs/n\r\nMKD x\r\nXMKD x\r\nPWD\r\n", "500")):
            with socket.create_connection(("127.0.0.1", port), 10) as control, control.makefile("rb") as replies:
                control.sendall(lines.encode())
                with contextlib.suppress(ConnectionResetError):
                    for last in replies:
                        heard = last
            self.assertEqual(heard[:3].decode(), code, lines[:100])
        self.assert_tidy_with(OLD)

    @unittest.skipIf(os.getuid() != 0, "skip only root can be another user")
    def test_is_closed_to_strangers(self):
        def stranger_hears(port):
            script = f"exec 3<>/dev/tcp/127.0.0.1/{port} && head -n 1 <&3"
            return subprocess.run(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "bash", "-c", script],
                                  check=True, capture_output=True, text=True, timeout=10).stdout
        _, port = self.serve()
        self.assertTrue(stranger_hears(port).startswith("421 "))
        session = self.session(port)
        address = session.makepasv()
        self.assertEqual(stranger_hears(address[1]), "")
        with socket.create_connection(address, 10) as data:
            self.assertEqual(code_of(session, "STOR htdocs/n"), "125")
            data.sendall(NEW)
        session.voidresp()
        self.assert_tidy_with(NEW)

    def test_is_started_once_per_user_where_it_can_be(self):
        process, port = self.serve()
        second, line = self.start()
        self.assertIn(f"running on port {port}", line)
        self.assertEqual(second.wait(10), 0)
        process.terminate()
        self.assertEqual(process.wait(10), 0)
        self.assertFalse((self.runtime / "storage.port").exists())

        process, port = self.serve()
        (self.lists / ".quillery-upload-left_over.part").write_text("half")
        process.kill()
        process.wait()
        self.serve()
        self.assertEqual(os.listdir(self.lists), [])

    def test_ends_when_no_program_uses_it_any_more_and_nothing_is_under_way(self):
        self.serve()[0].terminate()
        with open(self.runtime / "storage.users", "r+b") as users:
            fcntl.flock(users, fcntl.LOCK_SH)
            process, port = self.serve("--while-used")
            session, data = self.begin_upload(port, NEW)
            fcntl.flock(users, fcntl.LOCK_UN)
            time.sleep(2.5)  # longer than it takes to ask twice
            self.assertIsNone(process.poll())
            data.close()
            session.voidresp()
            self.assertEqual(process.wait(10), 0)
            self.assert_tidy_with(NEW)

    def test_keeps_the_whole_old_file_until_it_has_the_new_one(self):
        process, port = self.serve()
        self.assertTrue(self.upload(port, OLD))
        for name, cut in (("by a killed program", lambda session, data: (session.close(), data.close())),
                          ("control connection alone", lambda session, data: session.close()),
                          ("data connection torn", lambda session, data: (reset(data), session.getmultiline())),
                          ("aborted", lambda session, data: session.putcmd("ABOR"))):
            with self.subTest(name):
                session, data = self.begin_upload(port, b"x" * 50_000)
                cut(session, data)
                data.close()
                self.assert_tidy_with(OLD)
        resource.prlimit(process.pid, resource.RLIMIT_FSIZE, (100_000, 100_000))  # as a full disk
        self.assertFalse(self.upload(port, b"x" * 1_000_000))
        self.assert_tidy_with(OLD)

        session, data = self.begin_upload(port, NEW)
        self.assertEqual(self.stored(), OLD)
        listing = []
        self.session(port).retrlines("LIST htdocs", listing.append)
        self.assertEqual([line.split()[-1] for line in listing], ["n"])  # the unfinished one is not shown
        data.close()
        session.voidresp()
        self.assert_tidy_with(NEW)

    def test_flushes_the_new_file_before_it_takes_its_place_and_the_folder_afterwards(self):
        (self.home / "sitecustomize.py").write_text(TELLS_ITS_CALLS)
        _, port = self.serve(PYTHONPATH=self.home, CALLS=self.home / "calls")
        self.assertTrue(self.upload(port, NEW))
        self.assertEqual((self.home / "calls").read_text(), "fsync .part\nrename \nfsync \n")


unittest.main()
