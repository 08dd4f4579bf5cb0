"""Windows of Firefox that bear no marker and are private all the same: the developer's tools in a
window of their own, a video as picture in picture, and all of one that never remembers history.

Usage: firefox_windows_test.py PROGRAM, inside a desktop session with the accessibility bus on.
"""
import sys
import unittest
from unittest import mock

from browser_chromium import Pages
from capture import CaptureTest, Firefox, big_page, bring_to_front, place, windows_of
from windows import wait_until, xdotool

RIGHT = (700, 20, 560, 360)  # of the terminals
BELOW = (700, 420, 560, 360)
# A film of two words that anybody could read.
FILM = """<video autoplay muted width=500 height=280></video><script>
const canvas = document.createElement('canvas'), film = document.querySelector('video')
canvas.width = 500, canvas.height = 280
const pen = canvas.getContext('2d')
setInterval(() => {
    pen.fillStyle = 'white', pen.fillRect(0, 0, 500, 280)
    pen.fillStyle = 'black', pen.font = '60px DejaVu Sans'
    pen.fillText('%s', 10, 100), pen.fillText('%s', 10, 220)
}, 40)
film.srcObject = canvas.captureStream(25)
</script>"""


class FirefoxWindowsTest(CaptureTest):
    def setUp(self):
        super().setUp()
        self.pages = self.started(Pages())

    def private_window(self, body):
        address = self.pages.add("/hidden", "Hidden page", body, report=False)
        browser = self.started(Firefox(address, "Hidden page", private=True))
        bring_to_front(browser.window)
        return browser

    def second_window(self, browser, keys):
        """What the keys open; they are pressed again until it is there."""
        def opened():
            bring_to_front(browser.window)
            xdotool("key", keys)
            for _ in range(40):
                found = set(windows_of("firefox")) - {browser.window}
                if found:
                    return found.pop()
                xdotool("sleep", "0.1")
            return None
        return wait_until(opened, 60, f"the window of {keys}")

    def assert_withheld_in_front_and_beside(self, browser, window, secret):
        place(browser.window, *BELOW)
        place(window, *RIGHT)
        bring_to_front(window)
        # Its title says nothing of a private window.
        self.assert_withheld(self.noted(xdotool("getwindowname", window)))
        self.terminal("Beside them", "A kettle on the stove")
        self.assert_read(self.noted("Beside them", with_text=True), ["kettle on the stove"])
        self.assert_never_kept(secret)

    def test_keeps_nothing_of_the_developers_tools(self):
        secret = ["Nebelhorn", "Silberdistel"]
        with mock.patch.dict(Firefox.PREFERENCES, {"devtools.toolbox.host": "window"}):
            browser = self.private_window(big_page(secret))
        tools = self.second_window(browser, "ctrl+shift+i")
        wait_until(lambda: "Hidden page" in xdotool("getwindowname", tools), 60, "its title")
        self.assert_withheld_in_front_and_beside(browser, tools, secret)

    def test_keeps_nothing_of_a_picture_in_picture(self):
        secret = ["Bernstein", "Holunder"]
        browser = self.private_window(FILM % tuple(secret))
        picture = self.second_window(browser, "ctrl+shift+bracketright")
        wait_until(lambda: xdotool("getwindowname", picture), what="its title")
        self.assert_withheld_in_front_and_beside(browser, picture, secret)

    def test_keeps_nothing_of_one_that_never_remembers_history(self):
        secret = ["Wetterstein", "Haselmaus"]
        address = self.pages.add("/hidden", "Hidden page", big_page(secret), report=False)
        with mock.patch.dict(Firefox.PREFERENCES, {"browser.privatebrowsing.autostart": True}):
            browser = self.started(Firefox(address, "Hidden page"))
        self.assertNotIn("rivate", xdotool("getwindowname", browser.window))
        self.assert_withheld_in_front_and_beside(browser, browser.window, secret)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
