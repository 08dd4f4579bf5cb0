"""The whole program in a real Wayland session.

Usage: wayland_program_test.py PROGRAM Server|NoServer|Restart, inside scripts/wayland-session, for
NoServer without an X server. Restart leaves nothing of the session.
"""
import os
import pathlib
import signal
import sys
import unittest

from capture import CaptureTest, Started
from status_panel import StatusPanel
from wayland import bring_to_front, chromium, focused, foot, windows
from windows import PATIENCE, wait_until, xdotool

SESSION = sys.argv[2]


class WaylandTest(CaptureTest):
    def noted_in_front(self, title):
        """The event of this window, kept in front against what else is just starting."""
        def noted():
            bring_to_front(title)
            return next((event for event in self.observer.events()
                         if title in (event["title"] or "")), None)
        return wait_until(noted, PATIENCE * 3, f"an event titled {title}")


@unittest.skipUnless(SESSION == "Server", "another session")
class WithServerTest(WaylandTest):
    def test_keeps_what_is_in_front_and_nothing_private(self):
        page = self.started(chromium("Open page", "Kartoffelpuffer mit Apfelmus"))
        self.noted_in_front("Open page")
        secret = ["Klabautermann", "Zwetschgenmus"]
        self.started(chromium("Hidden page", " ".join(secret), private=True))
        hidden = self.noted_in_front("Hidden page")
        self.assertIn("(Incognito)", hidden["title"])
        self.assert_withheld(hidden)
        self.started(foot("Plain notes", "beside the private window"))
        event = self.noted_in_front("Plain notes")
        self.assertEqual((event["app"], event["source"]), ("Foot", "screen"))
        self.assert_withheld(event)  # nobody knows where the private window shows
        self.assert_kept(["Open page", "Kartoffelpuffer"])
        self.assert_never_kept(secret)
        page.close()

    def test_offers_to_record_a_call_on_a_card_that_takes_no_focus(self):
        self.started(foot("Notes before", ""))
        bring_to_front("Notes before")
        self.wait_for_log("capture started")
        call = self.started(foot("A call", "", "--app-id=zoom"))
        bring_to_front("A call")

        def card():
            return xdotool("search", "--onlyvisible", "--name", "^Mnemora$").split()
        window = wait_until(card, what="the card")[0]
        place = dict(line.split("=") for line in
                     xdotool("getwindowgeometry", "--shell", window).splitlines())
        self.assertEqual(int(place["X"]) + int(place["WIDTH"]), 1280 - 18)
        self.assertEqual(int(place["Y"]), 18)
        self.assertEqual(focused()["name"], "A call")
        # A window that the compositor placed among the others would be listed.
        self.assertNotIn("Mnemora", [window["name"] for window in windows()])
        call.close()

    def test_has_its_icon_in_a_panel_that_came_later(self):
        self.wait_for_log("no status area here")
        panel = StatusPanel()
        self.addCleanup(panel.close)
        panel.wait_for_item()
        _, texts = panel.open_menu()
        self.assertIn("Meetings…", texts)


@unittest.skipUnless(SESSION == "NoServer", "another session")
class WithoutServerTest(WaylandTest):
    def test_says_what_happens_and_goes_on(self):
        self.wait_for_log("no X server in this session: windows lie where the compositor puts them, "
                          "and cards aren't shown")
        self.started(foot("Native notes", ""))
        self.noted_in_front("Native notes")
        again = self.start_again()
        self.assertEqual(again.returncode, 0, again.stderr)
        wait_until(lambda: [w for w in windows() if w["app_id"] == "app.mnemora.Mnemora" and
                            w["name"] == "Mnemora"], what="the menu's window")
        self.assertEqual(self.observer.stop(), 0)


@unittest.skipUnless(SESSION == "Restart", "another session")
class RestartTest(WaylandTest):
    def test_comes_back_with_a_compositor_that_is_started_anew(self):
        self.wait_for_log("capture started")
        former = int(os.environ["SWAYSOCK"].split(".")[-2])
        os.kill(former, signal.SIGKILL)
        os.waitpid(former, 0)  # it holds the name of the display until then
        displays = pathlib.Path(os.environ["XDG_RUNTIME_DIR"], "displays")
        displays.unlink()
        self.started(Started(["sway", "-c", os.environ["SWAY_CONFIG"]]))
        self.assertEqual(self.observer.process.wait(PATIENCE), 0, self.log())
        self.assertEqual(self.log().count("[mnemora][error] the compositor has gone"), 1)
        self.wait_for_log("starting anew with the compositor")
        names = wait_until(lambda: displays.exists() and displays.read_text().split(),
                           what="the compositor")
        os.environ.update(zip(("WAYLAND_DISPLAY", "SWAYSOCK", "DISPLAY"), names))
        self.started(Started(["wtype", "-s", "100000000"]))
        self.started(foot("After it", ""))
        bring_to_front("After it")
        wait_until(lambda: b"After it" in self.observer.kept_bytes(), PATIENCE * 2,
                   "an event of the new process")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
