"""Real windows come to the front one after another while the program observes the desktop.

Usage: real_windows_test.py PROGRAM, inside a desktop session. A window that nobody raises is there
too: it must never be noted.
"""
import stat
import sys
import time
import unittest

from running import ProgramTest

MAIL, NOTES = "Inbox — Offer for the kitchen", "Notes: 山の旅 & <b>plans</b>"
PRIVATE, BEHIND = "Password reset — Example", "Never in front"


class RealWindowsTest(ProgramTest):
    def test_keeps_the_title_of_each_window_that_came_to_the_front(self):
        self.window(BEHIND, "Nobody looks here.", "+600+400")
        private = self.window(PRIVATE, "Your code is 118 023.", "+200+200")
        notes = self.window(NOTES, "Hut is booked.", "+120+120")
        mail = self.window(MAIL, "The oak worktop would be 1,240 EUR.", "+40+40")
        mail.bring_to_front()
        observer = self.launch()
        for window in (mail, notes):
            window.bring_to_front()
            observer.wait_for_title(window.title)
        # Back to the first for longer than the pace of sampling: a repeat, not kept again.
        mail.bring_to_front()
        time.sleep(7)
        private.bring_to_front()
        observer.wait_for_title(private.title)
        events = observer.events()
        self.assertEqual(observer.stop(), 0, self.log())
        self.look_at(events, observer)
        self.assertEqual(stat.S_IMODE(observer.database.stat().st_mode), 0o600)
        self.assertEqual(stat.S_IMODE(observer.database.parent.stat().st_mode), 0o700)

    def look_at(self, events, observer):
        self.assertEqual([event["title"] for event in events], [MAIL, NOTES, PRIVATE])
        for event in events:
            with self.subTest(title=event["title"]):
                self.assertEqual((event["source"], event["kind"]), ("screen", "window"))
                self.assertEqual(event["app"], "XTerm")
                self.assertTrue(event["bundle"])
                self.assertIsNone(event["url"])
        self.assertIsNone(events[2]["body"], "the content of a private window was kept")
        self.assertNotIn("118 023", observer.database.read_bytes().decode(errors="replace"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
