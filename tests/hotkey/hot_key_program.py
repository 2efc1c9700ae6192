"""For the tests of hot keys: the program made of examples/hot_key.cpp, given as the first argument, and what it prints."""

import os
import subprocess
import sys
import time
import unittest

from gi.repository import GLib

EXAMPLE = sys.argv.pop(1)


def wait_until(condition, seconds=10):
    """Turns the event loop, which brings requests and output, until the condition holds. False if it does not."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        GLib.MainContext.default().iteration(True)
    return True


class Program:
    """A process and the lines that it has printed."""

    def __init__(self, command, environment):
        self.process = subprocess.Popen(command, env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT)
        os.set_blocking(self.process.stdout.fileno(), False)
        self.text = b""

    @property
    def lines(self):
        self.text += self.process.stdout.read() or b""
        return self.text.decode().split("\n")[:-1]

    def count(self, words):
        return sum(words in line for line in self.lines)

    def says(self, words, count=1, seconds=10):
        return wait_until(lambda: self.count(words) >= count, seconds) and self.count(words) == count

    def presses(self):
        return [line.split()[0] for line in self.lines if line.endswith(" was pressed")]

    def enter(self, times=1):
        self.process.stdin.write(b"\n" * times)
        self.process.stdin.flush()

    def end(self):
        self.process.kill()
        self.process.wait()

    def close(self):
        self.end()
        self.process.stdin.close()
        self.process.stdout.close()


class HotKeyTest(unittest.TestCase):
    def start(self, command, environment=None):
        program = Program(command, environment)
        self.addCleanup(program.close)
        return program


def run_tests():
    GLib.timeout_add(10, lambda: True)  # wakes up whoever waits for output
    unittest.main()
