#!/usr/bin/python3
"""portal_test.py EXAMPLE: hot keys of Wayland desktops. EXAMPLE is the program made of examples/hot_key.cpp. It talks to the
real xdg-desktop-portal on a session bus of its own; behind that is this program, as the desktop and its user. Needs an X
server, for the keyboard and to fall back on."""

import configparser
import os
import tempfile

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
YES, NO, NOTHING_CHOSEN, NOT_YET = range(4)
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
            reply(dbus.UInt32(answer == NO), dbus.Dictionary(results, signature="sv"))
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

    def start_portal(self, with_shortcuts=True):
        services = configparser.ConfigParser()
        services.read(f"/usr/share/dbus-1/services/{PORTAL}.service")
        place = f"{self.folder}/portals" if with_shortcuts else f"{self.folder}/portals/none"
        self.portal = self.test.start([services["D-BUS Service"]["Exec"]], {**self.environment, "XDG_DESKTOP_PORTAL_DIR": place})
        self.test.assertTrue(wait_until(lambda: self.connection.name_has_owner(PORTAL)), "xdg-desktop-portal is needed")

    def end_portal(self):
        self.portal.end()
        self.test.assertTrue(wait_until(lambda: not self.connection.name_has_owner(PORTAL)))

    def run(self, *arguments, **variables):
        environment = {**self.environment, **variables}
        return self.test.start([EXAMPLE, *arguments], {name: value for name, value in environment.items() if value is not None})

    def shortcut(self, count):
        """The last of so many shortcuts that were asked for."""
        self.test.assertTrue(wait_until(lambda: len(self.asked) >= count))
        return self.asked[-1]


class HotKey(HotKeyTest):
    def assert_fires_once(self, desktop, program, shortcut):
        before = len(program.presses())
        desktop.type(shortcut)
        self.assertTrue(wait_until(lambda: len(program.presses()) > before), program.lines)
        self.assertEqual(len(program.presses()), before + 1)

    def test_fires_once_for_each_press_when_it_is_released(self):
        desktop = Desktop(self)
        program = desktop.run("8", "96")
        desktop.shortcut(2)
        second, first = sorted(desktop.asked, key=lambda shortcut: shortcut[3])
        self.assertEqual([first[2:], second[2:]], [("Print a line", "LOGO+SHIFT+c"), ("Print a line", "LOGO+SHIFT+F5")])
        desktop.press(first)
        self.assert_fires_once(desktop, program, second)  # the first is still held
        desktop.release(first)
        desktop.release(first)
        desktop.type(second)
        self.assertTrue(wait_until(lambda: len(program.presses()) >= 3))
        self.assertEqual(program.presses(), [F5, C, F5])

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
        desktop.answer = NOTHING_CHOSEN
        self.assertTrue(desktop.run().says("left out", 2))  # to the user and in the log

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

    def test_is_lost_while_the_portal_stays_away_and_back_with_it(self):
        desktop = Desktop(self)
        program = desktop.run()
        desktop.shortcut(1)
        desktop.end_portal()
        self.assertTrue(program.says("is lost: the desktop portal has ended and not come back"))
        desktop.start_portal()
        self.assertTrue(program.says("is back"))
        self.assert_fires_once(desktop, program, desktop.shortcut(2))

    def test_is_replaced_by_the_x_server_or_else_each_reason_is_given(self):
        desktop = Desktop(self, has_portal=False)
        for words in "this desktop has no portal", "has no global shortcuts":
            program = desktop.run(DISPLAY=None)
            self.assertTrue(program.says("no X server"), words)
            self.assertIn(words, program.lines[0])
            program = desktop.run()
            self.assertTrue(program.says("keys pressed in Wayland windows do not arrive"), words)
            self.assertTrue(program.says("Press "))
            program.end()
            if not desktop.portal:
                desktop.start_portal(with_shortcuts=False)


if __name__ == "__main__":
    DBusGMainLoop(set_as_default=True)
    run_tests()
