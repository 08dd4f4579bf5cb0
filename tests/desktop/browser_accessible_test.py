"""A real browser without our extension is read through the accessibility bus.

Usage: browser_accessible_test.py HOST_PROGRAM BROWSER_ANSWERS, inside a desktop session with the
accessibility bus on.
"""
import os
import shutil
import subprocess
import sys
import unittest

from browser_chromium import ADDRESS, CHROME, Answers, Chromium, Pages
from windows import wait_until

HOST_PROGRAM, BROWSER_ANSWERS = sys.argv[1:3]
SAFARI_ADDRESS = 'tell application "Safari" to return URL of front document'
SAFARI_TEXT = ('tell application "Safari" to return (do JavaScript "document.body.innerText" '
               'in front document)')
BODY = """<h1>Huts &amp; lakes</h1>
<p>The <a href=/x>hut above the <b>lake</b></a> is <i>booked</i>, 山の旅 😀.</p>
<ul><li>Rope</li><li>Lamp <a href=/y>with</a> oil</li></ul>
<table><tr><td>12</td><td>km</td></tr></table>
<form>Name <input value="in a field"> Word <input type=password value="in the dark">
<textarea>in an area</textarea> <input list=huts value="in a list"><datalist id=huts>
<option value=Lakeside></datalist> <input role=combobox value="in a search"></form>""" + "".join(f"<p>Line {n} of the rest.</p>" for n in range(60))


def words(text):
    """What both ways of reading have in common: not blank lines, nor the marks of lists."""
    return [word for word in text.split() if word != "•"]


class AccessibleTest(unittest.TestCase):
    def setUp(self):
        self.pages = self.started(Pages())
        self.address = self.pages.add("/page", "A page", BODY)
        self.answers = self.started(Answers(BROWSER_ANSWERS, HOST_PROGRAM))
        # By itself Chromium shows its pages on this bus only while a screen reader is on.
        self.browser = self.started(Chromium(self.address, "--force-renderer-accessibility"))
        self.answers.say("front " + CHROME)
        self.answers.say("guard yes")

    def started(self, thing):
        self.addCleanup(thing.close)
        return thing

    def test_reads_what_the_page_shows_and_nothing_that_was_typed(self):
        self.answers.wait_for_address(self.address)
        said = self.pages.text_of("/page")
        text = wait_until(lambda: self.answers.text()["text"], what="the text")
        self.assertEqual(words(text), words(said))
        self.assertNotIn("in the dark", text)

    def test_reads_nothing_that_the_guard_withholds_and_nothing_from_behind(self):
        self.answers.wait_for_address(self.address)
        for command in ("guard no", "front app.mnemora.Mnemora"):
            self.answers.say(command)
            self.assertTrue(self.answers.address()["failed"])
            self.assertTrue(self.answers.text()["failed"])
            self.answers.say("guard yes")
        self.answers.say("front " + CHROME)
        self.assertTrue(self.answers.say("main " + ADDRESS)["failed"])

    def test_reads_no_text_of_concealed_pages_nor_of_the_browsers_own(self):
        self.answers.wait_for_address(self.address)
        self.answers.say("conceal /page")
        self.assertTrue(self.answers.text()["failed"])
        self.assertEqual(self.answers.address()["text"], self.address)
        self.answers.say("conceal elsewhere")
        self.assertFalse(self.answers.text()["failed"])
        self.browser.bring_to_front(self.browser.open("--new-window"))
        wait_until(lambda: (self.answers.address()["text"] or "").startswith("chrome://new"),
                   what="the browser's own page")
        self.assertTrue(self.answers.text()["failed"])

    @unittest.skipUnless(shutil.which("epiphany-browser"), "GNOME Web isn't installed")
    def test_reads_gnome_web_and_of_two_tabs_the_one_in_front(self):
        other = self.pages.add("/other", "Another page", "<p>Of the other tab.</p>")
        self.pages.said.clear()
        self.open_in_gnome_web(self.address)
        said = self.pages.text_of("/page")
        self.answers.say("front com.apple.Safari")
        wait_until(lambda: self.answers.say("run " + SAFARI_ADDRESS)["text"] == self.address,
                   what="the address")
        self.assertEqual(words(self.answers.say("run " + SAFARI_TEXT)["text"]), words(said))
        self.open_in_gnome_web(other)
        wait_until(lambda: self.answers.say("run " + SAFARI_ADDRESS)["text"] == other,
                   what="the other tab's address")
        self.assertEqual(words(self.answers.say("run " + SAFARI_TEXT)["text"]),
                         words(self.pages.text_of("/other")))

    def open_in_gnome_web(self, address):
        # Its sandbox needs rights that a container may lack.
        environment = dict(os.environ, WEBKIT_DISABLE_SANDBOX_THIS_IS_DANGEROUS="1")
        process = subprocess.Popen(["epiphany-browser", address], env=environment,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
