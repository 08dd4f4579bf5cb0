"""The program's icon and menu in real status areas, seen and used from outside.

Usage: status_menu_test.py PROGRAM Tray|Bus, inside a desktop session, for Tray with a system tray
and the accessibility bus.
"""
import itertools
import subprocess
import sys
import unittest

from running import PATIENCE, PROGRAM, ProgramTest, environment_for, wait_until
from accessible_program import Atspi, GLib
from status_panel import StatusPanel
from windows import xdotool

AREA = sys.argv[2]
COMMANDS = ["🔴  Record meeting (on-device)", "Meetings…", "Setup & Permissions…", "Quit Mnemora"]


class StatusTest(ProgramTest):
    def setUp(self):
        super().setUp()
        self.window("A & b_c")

    def panel(self, **options):
        return self.started(StatusPanel(**options))

    def expect_end(self):
        """The program ends by itself; bench/shell.py tells how soon."""
        self.assertEqual(self.observer.process.wait(PATIENCE), 0)

    @staticmethod
    def name_in_front():
        return xdotool("getwindowname", xdotool("getactivewindow"))

    def windows_named(self, name):
        return xdotool("search", "--onlyvisible", "--name", f"^{name}$").split()

    def icon(self):
        """The icon's window inside the tray, once it is there."""
        tray = wait_until(lambda: xdotool("search", "--class", "trayer").split(),
                          what="the tray")[-1]
        tree = subprocess.run(["xwininfo", "-tree", "-id", tray], capture_output=True, text=True,
                              check=True).stdout
        return next((line.split()[0] for line in tree.splitlines() if '"Mnemora"' in line), None)


@unittest.skipUnless(AREA == "Bus", "another area")
class BusTest(StatusTest):
    def test_the_menu_is_new_each_time_a_panel_opens_it(self):
        panel = self.panel()
        self.launch()
        panel.wait_for_item()
        self.assertEqual(panel.property("ToolTip")[2], "Mnemora")
        self.assertTrue(panel.property("ItemIsMenu"))
        sizes = {(width, height) for width, height, _ in panel.property("IconPixmap")}
        self.assertLessEqual({(16, 16), (22, 22), (44, 44)}, sizes)
        self.observer.wait_for_title("A & b_c")
        changed, texts = panel.open_menu()
        self.assertEqual(texts[1:], ["1 memories today", "-", "RECENT", "  XTerm — A & b__c", "-"]
                         + COMMANDS)
        former_quit = panel.find("Quit")
        self.assertEqual(former_quit[1]["shortcut"], [["Control", "q"]])
        self.assertFalse(panel.open_menu()[0])
        self.window("Another", "Else.", "+80+80").bring_to_front()
        self.observer.wait_for_title("Another")
        changed, texts = panel.open_menu()
        self.assertTrue(changed)
        self.assertEqual(texts[4], "  XTerm — Another")
        panel.click(former_quit[0])  # of a menu that is no longer there
        panel.click(panel.find("RECENT")[0])
        self.assertFalse(panel.open_menu()[0])
        panel.click(panel.find("Quit")[0])
        self.expect_end()

    def test_the_icon_appears_when_a_panel_does_minutes_later_too(self):
        self.launch()
        self.wait_for_log("no status area here")
        first = self.panel()
        first.wait_for_item()
        first.close()
        second = self.panel(shows=False)
        second.wait_for_item()
        second.say_shows(True)
        second.open_menu()
        self.assertEqual(self.log().count("no status area"), 1)

    def test_the_icon_appears_in_an_older_tray_that_comes_late(self):
        self.launch()
        self.wait_for_log("no status area here")
        for _ in range(2):
            tray = subprocess.Popen(["trayer"], stdout=subprocess.DEVNULL,
                                    stderr=subprocess.DEVNULL)
            try:
                wait_until(self.icon, what="the icon")
            finally:
                tray.terminate()
                tray.wait(PATIENCE)
        self.assertEqual(self.observer.stop(), 0)

    def test_a_second_start_opens_the_menu_of_the_first(self):
        self.launch()
        self.observer.wait_for_title("A & b_c")
        again = self.start_again()
        self.assertEqual((again.returncode, again.stdout), (0, ""))
        self.assertIn("[mnemora] Mnemora runs already and shows its menu\n", again.stderr)
        wait_until(lambda: self.windows_named("Mnemora"), what="the menu's window")
        wait_until(lambda: self.name_in_front() == "Mnemora", what="the menu in front")
        xdotool("key", "Escape")
        wait_until(lambda: not self.windows_named("Mnemora"), what="the menu's end")
        self.start_again()
        wait_until(lambda: self.name_in_front() == "Mnemora", what="the menu in front")
        xdotool("key", "ctrl+q")
        self.expect_end()

    def test_a_start_waits_for_one_that_is_ending(self):
        self.launch()
        self.wait_for_log("capture started")
        former = self.observer
        following = subprocess.Popen([PROGRAM], env=environment_for(self.folder),
                                     stderr=subprocess.PIPE, text=True)
        self.addCleanup(following.stderr.close)
        self.addCleanup(following.wait)
        self.addCleanup(following.terminate)
        former.stop()
        lines = list(itertools.takewhile(lambda line: "capture started" not in line,
                                         following.stderr))
        self.assertIsNone(following.poll(), lines)


@unittest.skipUnless(AREA == "Tray", "another area")
class TrayTest(StatusTest):
    def click(self, button):
        icon = wait_until(self.icon, what="the icon")
        xdotool("mousemove", "10", "400")  # a pointer that stays would be waited for in vain
        xdotool("mousemove", "--sync", "--window", icon, "8", "8")
        xdotool("click", button)

    def windows(self):
        """The program's windows but the icon."""
        found = xdotool("search", "--onlyvisible", "--class", "^mnemora$").split()
        return [window for window in found if self.width(window) > 100]

    @staticmethod
    def width(window):
        size = xdotool("getwindowgeometry", "--shell", window)
        return next((int(line[6:]) for line in size.splitlines() if line.startswith("WIDTH=")), 0)

    def expect_the_menu_to_speak(self):
        """A popup stands below no application, so a screen reader hears of it by the focus and
        finds the lines around that."""
        heard = []
        listener = Atspi.EventListener.new(lambda event: heard.append(event.source))
        listener.register("object:state-changed:focused")
        self.addCleanup(listener.deregister, "object:state-changed:focused")
        xdotool("key", "Down")

        def lines():
            while GLib.MainContext.default().iteration(False):
                pass
            items = [item for item in heard if item.get_role() == Atspi.Role.MENU_ITEM]
            menu = items[0].get_parent() if items else None
            return menu and [menu.get_child_at_index(i).get_name()
                             for i in range(menu.get_child_count())]
        texts = wait_until(lines, what="the focus in the menu")
        self.assertEqual([text for text in texts if text][:4],
                         ["● Capturing", "1 memories today", "RECENT", "  XTerm — A & b_c"])
        self.assertEqual(texts[-4:], COMMANDS)

    def open_menu(self, button):
        former = self.windows()
        self.click(button)
        wait_until(lambda: set(self.windows()) - set(former), what="the menu")

    def test_either_button_opens_the_menu_and_its_keys_work(self):
        self.launch()
        self.observer.wait_for_title("A & b_c")
        self.open_menu("3")
        xdotool("key", "Escape")
        wait_until(lambda: not self.windows(), what="the menu's end")
        self.open_menu("1")
        xdotool("key", "Down", "Down", "Down", "Return")  # what is plain text is passed over
        wait_until(lambda: self.name_in_front() == "Welcome to Mnemora", what="the setup window")
        self.open_menu("1")
        self.expect_the_menu_to_speak()
        xdotool("key", "ctrl+q")
        self.expect_end()


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
