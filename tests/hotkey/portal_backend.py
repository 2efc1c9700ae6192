#!/usr/bin/python3
"""The part of a desktop that xdg-desktop-portal asks for global shortcuts, driven by the test over the bus."""
import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

SHORTCUTS = 'org.freedesktop.impl.portal.GlobalShortcuts'
SESSION = 'org.freedesktop.impl.portal.Session'
TEST = 'org.quillery.Test'
NOTHING = dbus.Dictionary({}, signature='sv')
LEAVE_OPEN = 99


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


class Desktop(dbus.service.Object):
    def __init__(self, connection):
        super().__init__(connection, '/org/freedesktop/portal/desktop')
        self.sessions, self.bound, self.open_questions, self.answer = {}, [], [], 0

    @dbus.service.method(SHORTCUTS, in_signature='oosa{sv}', out_signature='ua{sv}')
    def CreateSession(self, handle, session, app, options):
        self.sessions[session] = Session(self, session)
        return 0, NOTHING

    @dbus.service.method(SHORTCUTS, in_signature='ooa(sa{sv})sa{sv}', out_signature='ua{sv}',
                         async_callbacks=('reply', 'fail'))
    def BindShortcuts(self, handle, session, shortcuts, parent, options, reply, fail):
        for name, data in shortcuts:
            self.bound.append((session, name, data['description'], data['preferred_trigger']))
        given = dbus.Array(shortcuts, signature='(sa{sv})')
        answers = {0: (0, {'shortcuts': given}), 3: (0, {'shortcuts': dbus.Array([], signature='(sa{sv})')})}

        def decide(answer):
            code, results = answers.get(answer, (answer, {}))
            reply(dbus.UInt32(code), dbus.Dictionary(results, signature='sv'))
        if self.answer == LEAVE_OPEN:
            self.open_questions.append(decide)
        else:
            decide(int(self.answer))

    @dbus.service.signal(SHORTCUTS, signature='osta{sv}')
    def Activated(self, session, name, time, options):
        pass

    @dbus.service.signal(SHORTCUTS, signature='osta{sv}')
    def Deactivated(self, session, name, time, options):
        pass

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature='ss', out_signature='v')
    def Get(self, interface, name):
        return dbus.UInt32(1)

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature='s', out_signature='a{sv}')
    def GetAll(self, interface):
        return {'version': dbus.UInt32(1)}

    # What the test does as the user.

    @dbus.service.method(TEST, in_signature='i')
    def AnswerWith(self, answer):
        """Answers every question so: 0 yes, 1 no, 2 failure, 3 yes but nothing chosen, 99 not yet."""
        self.answer = answer

    @dbus.service.method(TEST, in_signature='i')
    def AnswerOpenQuestions(self, answer):
        while self.open_questions:
            self.open_questions.pop()(answer)

    @dbus.service.method(TEST, out_signature='as')
    def Bound(self):
        """What was asked for so far: session, name, description, keys, one after the other."""
        return dbus.Array([part for shortcut in self.bound for part in shortcut], signature='s')

    @dbus.service.method(TEST, out_signature='i')
    def OpenSessions(self):
        return len(self.sessions)

    @dbus.service.method(TEST, in_signature='ss')
    def Press(self, session, name):
        self.Activated(dbus.ObjectPath(session), name, dbus.UInt64(70), NOTHING)

    @dbus.service.method(TEST, in_signature='ss')
    def Release(self, session, name):
        self.Deactivated(dbus.ObjectPath(session), name, dbus.UInt64(77), NOTHING)

    @dbus.service.method(TEST, in_signature='s')
    def CloseSession(self, path):
        session = self.sessions[path]
        session.Closed()
        session.end()


DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
desktop = Desktop(bus)
name = dbus.service.BusName('org.freedesktop.impl.portal.desktop.test', bus)
GLib.MainLoop().run()
