"""What the whole program reads from the screen of a Wayland session, with and without being asked.

Usage: wayland_screen_test.py PROGRAM WITHOUT_GRAPHICS_CARD, inside a Wayland session whose bus can
start the desktop's portal.
"""
import json
import os
import subprocess
import sys
import time
import unittest

import screen_portal
import wayland
from accessible_program import AccessibleProgram
from capture import PATIENCE
from running import ProgramTest, wait_until

WITHOUT_GRAPHICS_CARD = sys.argv[2]


class ScreenTest(ProgramTest):
    def setUp(self):
        os.environ["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1"
        super().setUp()

    def assert_reads(self, observer, title, text, words):
        window = self.started(wayland.foot(title, text))
        wayland.bring_to_front(title)
        event = observer.wait_for(lambda event: event["title"] == title and event["body"],
                                  f"the text of '{title}'", PATIENCE)
        self.assertIn(words, event["body"].lower())
        window.close()


class CompositorTest(ScreenTest):
    """No PipeWire runs, so the portal has no screen cast and the compositor is asked itself."""

    def test_reads_the_screen_but_nothing_beside_a_withheld_window(self):
        observer = self.launch()
        self.assert_reads(observer, "Shopping", "Walnut shelves and brass hinges", "walnut shelves")
        self.assertIn("wlr-screencopy", observer.log.read_text())
        hidden = self.started(wayland.chromium("Secret page", "Quarzfelsen", private=True))
        wayland.bring_to_front("Secret page")
        event = observer.wait_for(lambda event: "Secret page" in (event["title"] or ""),
                                  "the private window", PATIENCE)
        self.assertIsNone(event["body"])
        # Nobody tells where a window is; this one may show beside the next.
        self.started(wayland.foot("Beside", "The ladder stands in the garden"))
        wayland.bring_to_front("Beside")
        event = observer.wait_for(lambda event: event["title"] == "Beside", "the terminal", PATIENCE)
        self.assertIsNone(event["body"])
        hidden.close()
        self.assert_reads(observer, "Alone", "A kettle on the stove", "kettle on the stove")
        self.assertEqual(observer.kept_bytes().lower().count(b"quarzfelsen"), 0)


class PortalTest(ScreenTest):
    def setUp(self):
        super().setUp()
        screen_portal.start(self.started, WITHOUT_GRAPHICS_CARD)

    def token(self):
        file = self.folder / "config" / "mnemora" / "defaults.json"
        self.assertEqual(file.stat().st_mode & 0o777, 0o600) if file.exists() else None
        return json.loads(file.read_text()).get("screen.restoreToken") if file.exists() else None

    def test_reads_the_screen_from_the_grant_on(self):
        observer = self.launch()
        program = AccessibleProgram(observer.process.pid)
        self.started(wayland.foot("Before", "Nobody was asked for this"))
        wayland.bring_to_front("Before")
        event = observer.wait_for(lambda event: event["title"] == "Before", "a look", PATIENCE)
        self.assertIsNone(event["body"])
        program.click("Grant: On-screen content")
        self.take_picture("asking.png")
        program.click("Allow")
        wait_until(lambda: "Turn Off" in program.buttons(), what="the grant")
        self.take_picture("granted.png")
        self.assert_reads(observer, "Shopping", "Walnut shelves and brass hinges", "walnut shelves")
        first = self.token()
        self.assertEqual(observer.stop(), 0, observer.log.read_text())
        if not first:
            self.skipTest("this backend gives no token")
        again = self.launch()
        self.assert_reads(again, "Again", "A kettle on the stove", "kettle on the stove")
        self.assertTrue(self.token())  # the same or another, as the portal likes

    def take_picture(self, name):
        """For whoever runs the test to look at, where they say so."""
        if folder := os.environ.get("MNEMORA_PICTURES"):
            time.sleep(1)
            subprocess.run(["grim", os.path.join(folder, name)], check=True)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]], verbosity=2)
