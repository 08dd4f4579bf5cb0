"""How the program comes to an end, and starts anew by itself.

Usage: leaving_test.py PROGRAM, inside a desktop session with the accessibility bus.
"""
import os
import pathlib
import signal
import sqlite3
import subprocess
import sys
import unittest

from running import PATIENCE, PROGRAM, ProgramTest, wait_until
from accessible_program import AccessibleProgram

EXECUTABLE = pathlib.Path(PROGRAM).resolve()
STARTED = "capture started"


def processes_of_program(folder):
    """Those that keep their memory below the folder: other tests may run the same program."""
    found = set()
    for pid in filter(str.isdigit, os.listdir("/proc")):
        process = pathlib.Path("/proc", pid)
        try:
            if (process / "exe").resolve(strict=True) == EXECUTABLE and \
                    os.fsencode(folder) in (process / "environ").read_bytes():
                found.add(int(pid))
        except OSError:
            continue  # another user's, or just ended
    return found


class LeavingTest(ProgramTest):
    def launch(self, **environment):
        super().launch(**environment)
        self.wait_for_starts(1)

    def wait_for_starts(self, count):
        wait_until(lambda: self.log().count(STARTED) >= count,
                   what=f"{count} starts in the log")

    def expect_sound_memory(self):
        with sqlite3.connect(self.observer.database) as memory:
            self.assertEqual(memory.execute("PRAGMA integrity_check").fetchone(), ("ok",))

    def test_restarts_when_the_setup_window_is_asked_to(self):
        # A screen that can't be read is what a restart is offered for.
        self.launch(XDG_SESSION_TYPE="wayland", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1")
        AccessibleProgram(self.observer.process.pid).click("Restart Mnemora")
        self.assertEqual(self.observer.process.wait(PATIENCE), 0)
        self.wait_for_starts(2)
        (successor,) = processes_of_program(self.folder)
        self.assertNotEqual(os.getsid(successor), os.getsid(0))  # it outlives whoever started us
        os.kill(successor, signal.SIGTERM)
        wait_until(lambda: not processes_of_program(self.folder), what="the end of the new one")
        self.expect_sound_memory()

    def test_every_signal_of_a_logout_ends_it_well(self):
        for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT):
            self.launch()
            self.observer.process.send_signal(number)
            self.assertEqual(self.observer.process.wait(PATIENCE), 0)
            self.expect_sound_memory()

    def test_ends_quietly_with_its_display(self):
        reading, writing = os.pipe()
        server = subprocess.Popen(["Xvfb", "-displayfd", str(writing), "-nolisten", "tcp",
                                   "-noreset"], pass_fds=[writing], stderr=subprocess.DEVNULL)
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        os.close(writing)
        with os.fdopen(reading) as ready:
            display = ":" + ready.readline().strip()
        self.launch(DISPLAY=display)
        server.kill()
        self.assertEqual(self.observer.process.wait(PATIENCE), 0)
        self.expect_sound_memory()


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
