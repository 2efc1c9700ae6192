#!/usr/bin/python3
"""portal_test.py EXAMPLE: hot keys of Wayland desktops. EXAMPLE is the program made of examples/hot_key.cpp. It talks to the
real xdg-desktop-portal on a session bus of its own; behind that is this program, as the desktop and its user. Needs an X
server, for the keyboard and to fall back on."""

import configparser
import os
import signal
import subprocess
import tempfile
import time

import dbus
import dbus.bus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop

from hot_key_program import EXAMPLE, HotKeyTest, run_tests, wait_until

BACK_END = "org.freedesktop.impl.portal.desktop.test"
PORTAL = "org.freedesktop.portal.Desktop"
SHORTCUTS = "org.freedesktop.impl.portal.GlobalShortcuts"
SESSION = "org.freedesktop.impl.portal.Session"
NOTHING = dbus.Dictionary({}, signature="sv")
YES, NO, FAILURE, NOTHING_CHOSEN, NOT_YET = range(5)
BUS_CONFIGURATION = """<busconfig><type>session</type><listen>unix:dir=%s</listen><policy context="default">
<allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy></busconfig>"""
C, V, F5 = "⇧⌘c", "⇧⌘v", "⇧⌘F5"


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    return path


class Session(dbus.service.Object):
    def __init__(self, desktop, path):
        super().__init__(desktop.connection, path)
        self.desktop, self.path = desktop, path

    @dbus.service.method(SESSION)
    def Close(self):
        self.end()

    @dbus.service.signal(SESSION)
    def Closed(self):
        pass

    def end(self):
        self.remove_from_connection()
        del self.desktop.sessions[self.path]


class BackEnd(dbus.service.Object):
    """What the portal asks, and what the user answers and types."""

    def __init__(self, connection):
        super().__init__(connection, "/org/freedesktop/portal/desktop")
        # asked: session, id, description and keys of each shortcut so far
        self.sessions, self.asked, self.open_questions, self.answer = {}, [], [], YES

    @dbus.service.method(SHORTCUTS, in_signature="oosa{sv}", out_signature="ua{sv}")
    def CreateSession(self, _handle, session, _app, _options):
        self.sessions[session] = Session(self, session)
        return 0, NOTHING

    @dbus.service.method(SHORTCUTS, in_signature="ooa(sa{sv})sa{sv}", out_signature="ua{sv}", async_callbacks=("reply", "fail"))
    def BindShortcuts(self, _handle, session, shortcuts, _parent, _options, reply, fail):
        del fail
        self.asked += [(session, name, data["description"], data["preferred_trigger"]) for name, data in shortcuts]

        def decide(answer):
            given = {YES: shortcuts, NOTHING_CHOSEN: []}.get(answer)
            results = {} if given is None else {"shortcuts": dbus.Array(given, signature="(sa{sv})")}
            reply(dbus.UInt32({NO: 1, FAILURE: 2}.get(answer, 0)), dbus.Dictionary(results, signature="sv"))
        if self.answer == NOT_YET:
            self.open_questions.append(decide)
        else:
            decide(self.answer)

    @dbus.service.signal(SHORTCUTS, signature="osta{sv}")
    def Activated(self, session, name, milliseconds, options):
        pass

    @dbus.service.signal(SHORTCUTS, signature="osta{sv}")
    def Deactivated(self, session, name, milliseconds, options):
        pass

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, _interface, _name):
        return dbus.UInt32(1)

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="s", out_signature="a{sv}")
    def GetAll(self, _interface):
        return {"version": dbus.UInt32(1)}

    def press(self, shortcut):
        self.Activated(dbus.ObjectPath(shortcut[0]), shortcut[1], dbus.UInt64(70), NOTHING)

    def release(self, shortcut):
        self.Deactivated(dbus.ObjectPath(shortcut[0]), shortcut[1], dbus.UInt64(77), NOTHING)

    def type(self, shortcut):
        self.press(shortcut)
        self.release(shortcut)


class Desktop(BackEnd):
    """A session bus, on which nothing starts by itself, with a portal and its back end."""

    def __init__(self, test, has_portal=True):
        self.test, self.portal = test, None
        self.folder = test.enterContext(tempfile.TemporaryDirectory())
        os.makedirs(f"{self.folder}/portals/none")
        write(f"{self.folder}/portals/test.portal",
              f"[portal]\nDBusName={BACK_END}\nInterfaces={SHORTCUTS}\nUseIn=quillery-test\n")
        configuration = write(f"{self.folder}/bus.conf", BUS_CONFIGURATION % self.folder)
        self.bus = test.start(["dbus-daemon", "--nofork", "--print-address", "--config-file", configuration])
        test.assertTrue(wait_until(lambda: self.bus.lines))
        self.environment = {**os.environ, "DBUS_SESSION_BUS_ADDRESS": self.bus.lines[0], "WAYLAND_DISPLAY": "wayland-0",
                            "XDG_CURRENT_DESKTOP": "quillery-test"}
        connection = dbus.bus.BusConnection(self.bus.lines[0])
        connection.set_exit_on_disconnect(False)
        super().__init__(connection)
        self.name = dbus.service.BusName(BACK_END, connection)
        if has_portal:
            self.start_portal()

    def has_owner(self):
        return self.connection.name_has_owner(PORTAL)

    def start_portal(self, with_shortcuts=True):
        services = configparser.ConfigParser()
        services.read(f"/usr/share/dbus-1/services/{PORTAL}.service")
        place = f"{self.folder}/portals" if with_shortcuts else f"{self.folder}/portals/none"
        self.portal = self.test.start([services["D-BUS Service"]["Exec"]], {**self.environment, "XDG_DESKTOP_PORTAL_DIR": place})
        self.test.assertTrue(wait_until(self.has_owner), "xdg-desktop-portal is needed")

    def end_portal(self):
        self.portal.end()
        self.test.assertTrue(wait_until(lambda: not self.has_owner()))

    def run(self, *arguments, **variables):
        environment = {**self.environment, **variables}
        return self.test.start([EXAMPLE, *arguments], {name: value for name, value in environment.items() if value is not None})

    def shortcut(self, count):
        """The last of so many shortcuts that were asked for."""
        self.test.assertTrue(wait_until(lambda: len(self.asked) >= count))
        self.test.assertEqual(len(self.asked), count)
        return self.asked[-1]


class HotKey(HotKeyTest):
    def assert_fires_once(self, desktop, program, shortcut):
        before = len(program.presses())
        desktop.type(shortcut)
        self.assertTrue(wait_until(lambda: len(program.presses()) > before), program.lines)
        self.assertEqual(len(program.presses()), before + 1)

    def test_fires_once_for_each_press_when_it_is_released(self):
        desktop = Desktop(self)
        subprocess.run(["setxkbmap", "ru,us"], check=True)
        self.addCleanup(subprocess.run, ["setxkbmap", "us"], check=True)
        program = desktop.run("8", "96")
        desktop.shortcut(2)
        second, first = sorted(desktop.asked, key=lambda shortcut: shortcut[3])
        self.assertEqual(first[2:], ("Print a line", "LOGO+SHIFT+c"))  # the keyboard's Latin side
        self.assertEqual(second[2:], ("Print a line", "LOGO+SHIFT+F5"))
        desktop.press(first)
        self.assert_fires_once(desktop, program, second)  # the first is still held
        desktop.release(first)
        desktop.release(first)
        desktop.type(second)
        self.assertTrue(wait_until(lambda: len(program.presses()) >= 3))
        self.assertEqual(program.presses(), ["⇧⌘F5", "⇧⌘с", "⇧⌘F5"])
        self.assertEqual(program.count("lost"), 0)

        for arguments, keys in (("0xC0000", "96"), "CTRL+ALT+F5"), (("0x100000", "9"), "LOGO+v"):
            desktop.asked.clear()
            desktop.run(*arguments)
            self.assertEqual(desktop.shortcut(1)[3], keys)
        for arguments, words in (("0x10000", "9"), "Caps Lock"), (("200",), "no key"):
            program = desktop.run(*arguments)
            self.assertTrue(program.says("is not to be had: "), arguments)
            self.assertIn(words, program.lines[-1])

    def test_is_given_back_at_once_and_can_be_taken_again(self):
        desktop = Desktop(self)
        program = desktop.run()
        desktop.shortcut(1)
        program.enter()
        self.assertTrue(wait_until(lambda: not desktop.sessions))
        program.enter(3)  # given back before the portal has answered
        self.assertTrue(program.says("Press ", 3))
        self.assert_fires_once(desktop, program, desktop.shortcut(2))
        self.assertTrue(wait_until(lambda: len(desktop.sessions) == 1))

    def test_does_not_wait_for_the_user_and_tells_a_refusal(self):
        desktop = Desktop(self)
        desktop.answer = NOT_YET
        program = desktop.run()
        self.assertTrue(program.says("Press "))
        desktop.shortcut(1)
        self.assertEqual(program.count("lost"), 0)
        desktop.open_questions.pop()(NO)
        self.assertTrue(program.says("is lost: the hot key was refused when the desktop asked"))
        self.assertTrue(wait_until(lambda: not desktop.sessions))
        for desktop.answer, words in (FAILURE, "could not set the hot key up"), (NOTHING_CHOSEN, "left out"):
            self.assertTrue(desktop.run().says(words, 2))  # to the user and in the log

    def test_is_lost_when_the_desktop_ends_its_session_and_the_others_are_not(self):
        desktop = Desktop(self)
        program = desktop.run("8", "9")
        desktop.shortcut(2)
        ended, other = sorted(desktop.asked, key=lambda shortcut: shortcut[3])
        session = desktop.sessions[ended[0]]
        session.Closed()
        session.end()
        self.assertTrue(program.says(f"{C} is lost: the desktop has ended the hot key"))
        self.assert_fires_once(desktop, program, other)
        self.assertEqual(program.presses(), [V])

    def test_is_not_fired_by_another_programs_keys(self):
        desktop = Desktop(self)
        ours = desktop.run("8", "96")
        last = desktop.shortcut(2)
        others = desktop.run("8")
        shortcut = desktop.shortcut(3)
        self.assertIn(shortcut[1], [asked[1] for asked in desktop.asked[:2]])
        desktop.type(shortcut)
        desktop.type(last)  # signals come in order, so what follows the last is all there is
        self.assertTrue(ours.says("pressed") and others.says("pressed"))
        self.assertEqual(len(ours.presses()), 1)
        self.assertEqual(others.presses(), [C])

    def test_works_on_when_the_portal_is_started_again(self):
        desktop = Desktop(self)
        program = desktop.run()
        before = desktop.shortcut(1)
        desktop.press(before)
        desktop.end_portal()
        self.assertTrue(program.says("waiting for it to come back"))
        desktop.start_portal()
        again = desktop.shortcut(2)
        self.assertNotEqual(again[0], before[0])
        desktop.release(again)  # of a press that was before
        self.assert_fires_once(desktop, program, again)
        self.assertEqual(program.count("lost"), 0)
        desktop.end_portal()
        desktop.start_portal(with_shortcuts=False)
        self.assertTrue(program.says("is lost: the portal of this desktop has no global shortcuts"))

    def test_tells_of_a_portal_that_stays_away_or_does_not_answer(self):
        away, slow, hung, back = Desktop(self), Desktop(self), Desktop(self), Desktop(self)
        kept, waiting = back.run(), away.run()
        back.shortcut(1)
        back.end_portal()
        self.assertTrue(kept.says("waiting for it to come back"))
        back.start_portal()
        back.shortcut(2)
        away.shortcut(1)
        away.end_portal()
        for desktop in slow, hung:
            desktop.portal.process.send_signal(signal.SIGSTOP)
        start = time.monotonic()
        later, replaced = slow.run("9"), hung.run("96")
        self.assertTrue(later.says("Press ") and replaced.says("Press "))
        self.assertLess(time.monotonic() - start, 2, "both wait for the portal")
        slow.portal.process.send_signal(signal.SIGCONT)
        self.assert_fires_once(slow, later, slow.shortcut(1))

        self.assertTrue(waiting.says("is lost: the desktop portal has ended and not come back"))
        self.assertEqual(kept.count("lost"), 0)  # it was away for less, and before
        away.start_portal()
        self.assertTrue(waiting.says("is back"))
        self.assert_fires_once(away, waiting, away.shortcut(2))
        self.assertTrue(replaced.says("only those in X11 windows: the portal of this desktop does not answer"))
        self.assertTrue(hung.run("96", WAYLAND_DISPLAY=None, XDG_SESSION_TYPE="x11").says("not to be had"))  # X has given it away
        hung.portal.process.send_signal(signal.SIGCONT)

    def test_is_replaced_by_the_x_server_or_else_each_reason_is_given(self):
        without_portal, without_shortcuts = Desktop(self, has_portal=False), Desktop(self, has_portal=False)
        without_shortcuts.start_portal(with_shortcuts=False)
        without_bus = Desktop(self)
        program = without_bus.run()
        without_bus.shortcut(1)
        without_bus.bus.end()
        self.assertTrue(program.says("is lost: the connection to the session bus was lost"))
        for desktop, words in ((without_portal, "this desktop has no portal"), (without_shortcuts, "has no global shortcuts"),
                               (without_bus, "the session bus cannot be reached")):
            program = desktop.run(DISPLAY=None)
            self.assertTrue(program.says("no X server"), words)
            self.assertIn(words, program.lines[0])
            program = desktop.run()
            self.assertTrue(program.says("keys pressed in Wayland windows do not arrive"), words)
            self.assertTrue(program.says("Press "))
            program.end()


if __name__ == "__main__":
    DBusGMainLoop(set_as_default=True)
    run_tests()
