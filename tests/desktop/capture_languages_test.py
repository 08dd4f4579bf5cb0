"""Private windows of browsers in other languages, and a machine that was asleep.

Usage: capture_languages_test.py PROGRAM, inside a desktop session with the accessibility bus on.
Takes some minutes.
"""
import os
import signal
import sys
import time
import unittest
from unittest import mock

from browser_chromium import Chromium, Pages
from capture import CaptureTest, Firefox, Started, big_page, bring_to_front, place
from windows import wait_until, xdotool

RIGHT = (700, 60, 560, 420)  # of the terminals
MARKERS = {"de": ("Chromium (anonym)", "Privater Modus"),
           "ja": ("Chromium（シークレット モード）", "プライベートブラウジング")}


class LanguagesTest(CaptureTest):
    def test_keeps_nothing_of_private_windows_in_other_languages(self):
        pages = self.started(Pages())
        for language, (of_chromium, of_firefox) in MARKERS.items():
            secret = [f"Nachtigall{language}", f"Rosmarin{language}"]
            with self.subTest(language), mock.patch.dict(os.environ, LANGUAGE=language):
                address = pages.add(f"/{language}", f"Page {language}", big_page(secret),
                                    report=False)
                chromium = Chromium(address, "--incognito")
                self.look_at(chromium, wait_until(chromium.windows, what="a window")[0],
                             f"Page {language} - {of_chromium}", f"Beside Chromium {language}")
                firefox = Firefox(address, f"Page {language}", True, language)
                self.assertIn(of_firefox, xdotool("getwindowname", firefox.window))
                self.look_at(firefox, firefox.window, of_firefox, f"Beside Firefox {language}")
                self.assert_never_kept(secret)

    def look_at(self, browser, window, title, beside):
        """The window in front, then beside a terminal."""
        try:
            place(window, *RIGHT)
            bring_to_front(window)
            self.assert_withheld(self.noted(title))
            self.terminal(beside, "A kettle on the stove")
            self.assert_read(self.noted(beside, with_text=True), ["kettle on the stove"])
        finally:
            browser.close()


class AsleepTest(CaptureTest):
    PACE = 6  # seconds between two looks

    def test_makes_up_for_no_look_that_it_slept_through(self):
        # The title is another one at each look, so that nothing counts as a repeat.
        script = 'i=0; while :; do i=$((i+1)); printf "\\033]2;count %d\\007" $i; sleep 0.05; done'
        self.started(Started(["xterm", "-e", "sh", "-c", script]))
        self.noted("count")
        self.observer.process.send_signal(signal.SIGSTOP)
        time.sleep(5 * self.PACE)
        self.observer.process.send_signal(signal.SIGCONT)
        woke = time.time()
        wait_until(lambda: sum(event["ts"] > woke for event in self.observer.events()) >= 3,
                   what="three looks")
        times = [event["ts"] for event in self.observer.events() if event["ts"] > woke - 1]
        # One look may be due at once.
        self.assertLessEqual(sum(moment < woke + self.PACE - 1 for moment in times), 2, times)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
