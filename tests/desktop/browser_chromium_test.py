"""A real Chromium is asked through our extension, as the program asks it.

Usage: browser_chromium_test.py HOST_PROGRAM BROWSER_ANSWERS, inside a desktop session whose home
folder is its own. The browser gets the extension as its user would: from --install.
"""
import subprocess
import sys
import unittest

from browser_chromium import CHROME, Answers, Chromium, Pages
from windows import wait_until, xdotool

HOST_PROGRAM, BROWSER_ANSWERS = sys.argv[1:3]
LONG = 10734


def long_body():
    """Paragraphs whose innerText has LONG characters: one line each, an empty one between."""
    line = "The hut above the lake is booked for the second week of July. "
    lines, left = [], LONG
    while left > 0:
        part = (f"{len(lines)}: " + line * 3)[:left].strip()
        lines.append(part)
        left -= len(part) + 2
    lines[-1] += "x" * (left + 2)
    return "".join(f"<p>{part}</p>" for part in lines)


class ChromiumTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        subprocess.run([HOST_PROGRAM, "--install"], check=True, stdout=subprocess.DEVNULL)
        cls.pages = Pages()
        cls.long = cls.pages.add("/long", "A long read", long_body())
        cls.answers = Answers(BROWSER_ANSWERS, HOST_PROGRAM)
        cls.browser = Chromium(cls.long)
        wait_until(lambda: cls.answers.say("extension " + CHROME)["connected"], what="the extension")
        cls.window = wait_until(cls.browser.windows, what="a window")[0]

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.answers.close()
        cls.pages.close()

    def setUp(self):
        self.browser.bring_to_front(self.window)
        self.answers.say("front " + CHROME)
        self.answers.say("withhold")

    def test_reads_address_and_exact_text_of_the_window_in_front(self):
        self.answers.wait_for_address(self.long)
        said = self.pages.text_of("/long")
        self.assertEqual(len(said), LONG)
        read = self.answers.text()
        self.assertEqual((read["failed"], read["text"]), (False, said))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
