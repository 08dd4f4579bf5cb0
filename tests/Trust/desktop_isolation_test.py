"""What the desktop process and the engines below it ask of the system while they observe: no
internet socket, no program but the engines; and the modes of everything that they make, under a
umask that gives everything away.

Usage: desktop_isolation_test.py PROGRAM, inside a desktop session.
"""
import os
import pathlib
import stat
import sys
import tempfile
import unittest
from unittest import mock

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts" / "session"))
import traced
from observer import Observer
from windows import TextWindow, wait_until

PROGRAM = pathlib.Path(sys.argv[1]).resolve()
ENGINES = PROGRAM.parents[1] / "libexec/mnemora/mnemora-engines"
PATIENCE = 90  # a tick and the reading of a full screen, traced, on a busy machine


class DesktopIsolationTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="mnemora-trust.")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        former = os.umask(0)
        self.addCleanup(os.umask, former)

    def observe(self, command):
        """Runs the program until text of the screen was stored; the modes of what it made."""
        window = TextWindow("Ordinary window", "Legible words on the screen")
        self.addCleanup(window.close)
        window.bring_to_front()
        observer = Observer(command, self.folder)
        try:
            observer.wait_for(lambda event: event["body"], "an event with text", PATIENCE)
            for process in (observer.process.pid, *observer.children()):
                self.assertTrue(traced.leaves_no_core(process))
            modes = self.modes()
        finally:
            status = observer.stop()
        self.assertEqual(status, 0, observer.log.read_text())
        return modes

    def families_with(self, variable, address, complaint):
        """The kinds of sockets that it asks for in surroundings that lead elsewhere, once it has
        said what it misses there."""
        trace = self.folder / "trace"
        with mock.patch.dict(os.environ, {variable: address}):
            observer = Observer(traced.strace(trace, "socket") + [str(PROGRAM)], self.folder)
        try:
            wait_until(lambda: observer.process.poll() is not None
                       or complaint in observer.log.read_text(), PATIENCE, complaint)
            self.assertIn(complaint, observer.log.read_text())
        finally:
            observer.stop()
        return traced.Trace(trace).socket_families()

    def modes(self):
        runtime = pathlib.Path(os.environ["XDG_RUNTIME_DIR"]) / "mnemora"
        wait_until(lambda: (runtime / "pages.sock").exists(), what="the browsers' socket")
        made = [runtime, *runtime.rglob("*")]
        for name in ("data", "config", "cache"):
            made += (self.folder / name).rglob("*")
        return {path: path.lstat().st_mode for path in made}

    def test_opens_no_internet_socket_and_makes_nothing_that_others_can_read(self):
        traced.require_tracing()
        path = self.folder / "trace"
        modes = self.observe(traced.strace(path, "%network,execve") + [str(PROGRAM)])
        names = {made.name for made in modes}
        self.assertLessEqual({"mnemora.sqlite", "mnemora.sqlite-wal", "mnemora.sqlite-shm",
                              "pages.sock"}, names)
        for made, mode in modes.items():
            wanted = 0o700 if stat.S_ISDIR(mode) else 0o600
            self.assertEqual(oct(stat.S_IMODE(mode)), oct(wanted), made)
        trace = traced.Trace(path)
        self.assertIn(str(ENGINES), trace.programs())
        self.assertEqual(set(trace.programs()), {str(PROGRAM), str(ENGINES)})
        self.assertEqual(trace.socket_families(), {"AF_UNIX"})

    def test_follows_no_address_into_the_network(self):
        traced.require_tracing()
        for variable, address, complaint in (
                ("DISPLAY", ":977", "no display"), ("DISPLAY", "localhost:977", "no display"),
                ("DISPLAY", "elsewhere.invalid:0", "no display"),
                ("DBUS_SESSION_BUS_ADDRESS", "tcp:host=127.0.0.1,port=9", "no session bus")):
            with self.subTest(variable=variable, address=address):
                self.assertLessEqual(self.families_with(variable, address, complaint), {"AF_UNIX"})


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
