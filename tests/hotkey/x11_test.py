#!/usr/bin/python3
"""x11_test.py EXAMPLE: hot keys on an X server. EXAMPLE is the program made of examples/hot_key.cpp; this program is the hands at
the keyboard, and another program that takes combinations."""

import ctypes
import subprocess

from hot_key_program import EXAMPLE, HotKeyTest, run_tests, wait_until

KEYS = {"c": 54, "v": 55, "a": 38, "super": 133, "shift": 50, "ctrl": 37, "alt": 64, "scroll": 78}
SUPERS = (133, 134, 206)  # of Debian's keyboards
SHIFT, CAPS, NUM, MOD3, SUPER = 1, 2, 16, 32, 64  # states; the scroll lock is on MOD3 here
MOD3_INDEX, SUPER_INDEX = 5, 6
CORE_KEYBOARD = 0x100
C, V, A = "⇧⌘c", "⇧⌘v", "⇧⌘a"
TYPE_C, TYPE_V = "+super +shift +c -c -shift -super", "+super +shift +v -v -shift -super"
TYPE_A = "+super +shift +a -a -shift -super"


class Hands:
    """Every function returns after the X server has done its part."""

    def __init__(self):
        self.x, self.test = ctypes.CDLL("libX11.so.6"), ctypes.CDLL("libXtst.so.6")
        for name in ("XOpenDisplay", "XGetModifierMapping", "XInsertModifiermapEntry", "XDeleteModifiermapEntry"):
            getattr(self.x, name).restype = ctypes.c_void_p
        self.errors = []
        self.handler = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)(lambda *_: self.errors.append(1) or 0)
        self.x.XSetErrorHandler(self.handler)
        self.display = ctypes.c_void_p(self.x.XOpenDisplay(None))
        self.root = self.x.XDefaultRootWindow(self.display)

    def sync(self):
        self.x.XSync(self.display, 0)

    def type(self, keys):
        for key in keys.split():
            self.test.XTestFakeKeyEvent(self.display, KEYS[key[1:]], key[0] == "+", 0)
        self.sync()

    def lock(self, modifiers=0, group=0):
        self.x.XkbLockModifiers(self.display, CORE_KEYBOARD, 0xFF, modifiers)
        self.x.XkbLockGroup(self.display, CORE_KEYBOARD, group)
        self.sync()

    def grab(self, state, key="c"):
        self.errors.clear()
        self.x.XGrabKey(self.display, KEYS[key], state, self.root, 0, 1, 1)
        self.sync()
        return not self.errors

    def ungrab(self, state, key="c"):
        self.x.XUngrabKey(self.display, KEYS[key], state, self.root)
        self.sync()

    def put_on_modifier(self, index, keycodes):
        """And takes them off every other."""
        mapping = ctypes.c_void_p(self.x.XGetModifierMapping(self.display))
        for keycode in keycodes:
            for other in range(8):
                mapping = ctypes.c_void_p(self.x.XDeleteModifiermapEntry(mapping, keycode, other))
            mapping = ctypes.c_void_p(self.x.XInsertModifiermapEntry(mapping, keycode, index))
        self.x.XSetModifierMapping(self.display, mapping)
        self.sync()


def set_keyboard(*arguments):
    subprocess.run(["setxkbmap", *arguments], check=True)


class X11HotKey(HotKeyTest):
    def setUp(self):
        set_keyboard("us", "-option", "")
        hands.lock()

    def run_example(self, *arguments):
        program = self.start([EXAMPLE, *arguments])
        keys = [argument for argument in arguments if not argument.startswith("0x")]
        self.assertTrue(wait_until(lambda: len(program.lines) >= max(1, len(keys))))
        return program

    def assert_fires(self, program, keys, expected):
        """Exactly so: what is typed last, the A, is reported after all the rest."""
        before = len(program.presses())
        hands.type(keys)
        wait_until(lambda: len(program.presses()) >= before + len(expected), 2)
        hands.type(TYPE_A)
        self.assertTrue(wait_until(lambda: program.presses()[before:][-1:] == [A]))
        self.assertEqual(program.presses()[before:], [*expected, A], keys)

    def fires_after_a_while(self, program, keys=TYPE_C):
        before = len(program.presses())
        return wait_until(lambda: hands.type(keys) or len(program.presses()) > before)

    def test_fires_once_when_the_key_is_released(self):
        program = self.run_example("8", "9", "0")
        for keys, expected in (
                (TYPE_C, [C]),
                ("+super +shift +c +ctrl -c -ctrl -shift -super", [C]),  # more modifiers while it is held
                ("+super +c +shift -c -shift -super", []),  # these are another program's affair
                ("+super +shift +alt +c -c -alt -shift -super", []),
                ("+super +shift +c +v -v -c -shift -super", [V, C])):
            self.assert_fires(program, keys, expected)

    def test_fires_once_however_long_the_key_is_held(self):
        program = self.run_example("8", "0")
        hands.x.XkbSetAutoRepeatRate(hands.display, CORE_KEYBOARD, 40, 10)
        self.addCleanup(hands.x.XkbSetAutoRepeatRate, hands.display, CORE_KEYBOARD, 660, 40)
        hands.type("+super +shift +c")
        self.assertFalse(wait_until(program.presses, 0.4))
        self.assert_fires(program, "-c -shift -super", [C])

    def test_ignores_every_mix_of_lock_keys_unless_it_asks_for_caps_lock(self):
        hands.put_on_modifier(MOD3_INDEX, [KEYS["scroll"]])
        program, with_caps = self.run_example("8", "0"), self.run_example("0x130000", "9")
        for mix in range(8):
            locks = CAPS * (mix & 1) + NUM * (mix >> 1 & 1) + MOD3 * (mix >> 2)
            hands.lock(locks)
            hands.type(TYPE_V)
            self.assert_fires(program, TYPE_C, [C])
            self.assertTrue(wait_until(lambda: len(with_caps.presses()) == (mix + 1) // 2), mix)

    def test_fails_whole_when_another_program_holds_one_mix(self):
        self.assertTrue(hands.grab(SUPER | SHIFT | NUM))
        program = self.run_example("8", "0")
        self.assertTrue(program.says("is not to be had: another program has taken the combination"))
        for mix in 0, CAPS, NUM | CAPS:
            self.assertTrue(hands.grab(SUPER | SHIFT | mix), mix)
            hands.ungrab(SUPER | SHIFT | mix)
        hands.ungrab(SUPER | SHIFT | NUM)

    def test_leaves_the_keys_to_others_once_given_back(self):
        program = self.run_example("8", "0")
        hands.type("+super +shift +c")
        program.enter()
        self.assertTrue(wait_until(lambda: hands.grab(SUPER | SHIFT)))
        hands.ungrab(SUPER | SHIFT)
        hands.type("-c -shift -super")
        program.enter()
        self.assertTrue(program.says("Press ", 4))
        self.assert_fires(program, TYPE_C, [C])

    def test_takes_a_combination_again_that_a_keyboard_had_taken_away(self):
        program = self.run_example()
        set_keyboard("us,ru")
        hands.lock(group=1)
        self.assertTrue(self.fires_after_a_while(program))  # the place stays, whatever character it gives
        self.setUp()
        self.assertTrue(hands.grab(MOD3 | SHIFT))
        hands.put_on_modifier(MOD3_INDEX, SUPERS)
        hands.put_on_modifier(SUPER_INDEX, SUPERS)
        self.assertTrue(self.fires_after_a_while(program))
        self.assertEqual(program.count("lost"), 0)  # what is away for a moment is not worth a word
        hands.put_on_modifier(MOD3_INDEX, SUPERS)
        self.assertTrue(program.says(f"{C} is lost: a change of the keyboard took the combination away"), program.lines)
        hands.ungrab(MOD3 | SHIFT)
        hands.put_on_modifier(SUPER_INDEX, SUPERS)
        self.assertTrue(self.fires_after_a_while(program))
        self.assertTrue(program.says(f"{C} is back"))


if __name__ == "__main__":
    hands = Hands()
    run_tests()
