"""What the whole program keeps of a real Chromium's pages, and what it doesn't.

Usage: capture_pages_test.py PROGRAM HOST_PROGRAM, inside a desktop session with the accessibility
bus on. The browser gets our extension as its user would.
"""
import subprocess
import sys
import unittest

from browser_chromium import CHROME, Chromium, Pages
from browser_documents import LONG, long_body, one_page_pdf
from capture import CaptureTest, bring_to_front
from windows import wait_until

HOST_PROGRAM = sys.argv[2]
MOST = 6000  # characters kept of a page


class PagesTest(CaptureTest):
    def setUp(self):
        subprocess.run([HOST_PROGRAM, "--install"], check=True, stdout=subprocess.DEVNULL)
        super().setUp()
        self.pages = self.started(Pages())

    def noted_page(self, title, address):
        event = self.noted(title)
        self.assertEqual((event["source"], event["kind"], event["bundle"]),
                         ("browser", "page", CHROME))
        self.assertEqual(event["url"], address, title)
        return event

    def test_keeps_each_page_in_front_exactly_and_nothing_of_private_ones(self):
        first = self.pages.add("/long", "A long read", long_body())
        browser = self.started(Chromium("about:blank"))
        self.wait_for_extension(browser)
        wait_until(browser.windows, what="a window")

        window = browser.open("--new-window", first)
        bring_to_front(window)
        event = self.noted_page("A long read", first)
        said = self.pages.text_of("/long")
        self.assertEqual(len(said), LONG)
        self.assertEqual(event["body"], said[:MOST])

        second = self.pages.add("/second", "Second window", "<p>Of the other.</p>")
        bring_to_front(browser.open("--new-window", second))
        self.assertEqual(self.noted_page("Second window", second)["body"], "Of the other.")

        secret = ["Klabautermann", "Zwetschgenmus"]
        hidden = self.pages.add("/hidden", "Hidden page", f"<p>{' '.join(secret)}</p>")
        private = browser.open("--incognito", hidden)
        bring_to_front(private)
        self.assert_withheld(self.noted_page("Hidden page", None))
        self.assertIn(secret[0], self.pages.text_of("/hidden"))
        browser.close_window(private)

        bring_to_front(browser.open("--profile-directory=Default", "--new-window"))
        event = self.observer.wait_for(
            lambda event: (event["url"] or "").startswith("chrome://new"), "the new tab")
        self.assertIsNone(event["body"])

        paper = self.pages.add_file("/paper.pdf", "application/pdf", one_page_pdf())
        bring_to_front(browser.open("--profile-directory=Default", "--new-window", paper))
        event = self.observer.wait_for(lambda event: event["url"] == paper, "the document")
        self.assertIsNone(event["body"])
        self.assert_kept(["Of the other."])
        self.assert_never_kept([*secret, "/hidden"])

    def wait_for_extension(self, browser):
        wait_until(lambda: list(browser.folder.glob("*/Extensions/*/*/worker.js")),
                   what="the extension")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
