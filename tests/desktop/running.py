"""A test that runs the whole program; all that this writes lies in a folder of the test's own."""
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts" / "session"))
from observer import Observer, environment_for
from windows import PATIENCE, TextWindow, wait_until

PROGRAM = sys.argv[1]


class ProgramTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(
            tempfile.TemporaryDirectory(prefix="mnemora-test.")))

    def started(self, thing):
        self.addCleanup(thing.close)
        return thing

    def window(self, title, text="Nothing much.", *place, **options):
        return self.started(TextWindow(title, text, *place, **options))

    def launch(self, *tracer, **environment):
        """Starts it, by the words of a command that traces it where there are any."""
        with unittest.mock.patch.dict(os.environ, environment):
            self.observer = Observer([*tracer, PROGRAM], self.folder)
        self.addCleanup(self.observer.stop)
        return self.observer

    def log(self):
        return self.observer.log.read_text(errors="replace")

    def wait_for_log(self, text):
        wait_until(lambda: text in self.log(), what=f"'{text}' in the log")

    def start_again(self):
        """Another start beside the one that runs, which shows its menu."""
        return subprocess.run([PROGRAM], env=environment_for(self.folder), capture_output=True,
                              text=True, timeout=PATIENCE, check=False)
