"""The program where its surroundings are broken: it says so in a line and does what is left.

Usage: bad_surroundings_test.py PROGRAM, inside a desktop session.
"""
import subprocess
import sys
import unittest

from running import PATIENCE, ProgramTest, wait_until
from accessible_program import AccessibleProgram
from windows import xdotool


class BadSurroundingsTest(ProgramTest):
    def setUp(self):
        super().setUp()
        self.window("A letter", "Dear reader")

    def launch(self, **environment):
        super().launch(**environment)
        self.wait_for_log("capture started")

    def menu_texts(self):
        self.assertEqual(self.start_again().returncode, 0)
        program = AccessibleProgram(self.observer.process.pid)
        wait_until(lambda: "Quit Mnemora" in program.buttons(), what="the menu")
        return [name for _, name, _ in program.objects()]

    def expect_end(self):
        self.assertEqual(self.observer.stop(), 0, self.log())

    def test_a_database_that_cannot_be_opened_still_gives_a_menu(self):
        (self.folder / "data" / "Mnemora" / "mnemora.sqlite").mkdir(parents=True)
        self.launch()
        texts = self.menu_texts()
        self.assertIn("0 memories today", texts)
        self.assertNotIn("RECENT", texts)
        self.assertIn("[mnemora][error]", self.log())
        self.expect_end()

    def test_a_damaged_database_still_gives_a_menu(self):
        database = self.folder / "data" / "Mnemora" / "mnemora.sqlite"
        database.parent.mkdir(parents=True)
        damaged = b"This is no database at all. " * 400
        database.write_bytes(damaged)
        self.launch()
        self.assertIn("0 memories today", self.menu_texts())
        self.expect_end()
        self.assertEqual(database.read_bytes(), damaged)  # a person may want to repair it

    def test_settings_that_are_a_folder_and_a_theme_without_icons_change_nothing(self):
        (self.folder / "config" / "mnemora" / "defaults.json").mkdir(parents=True)
        self.launch(XDG_DATA_DIRS=str(self.folder / "nothing"), XDG_CURRENT_DESKTOP="none")
        self.observer.wait_for_title("A letter")
        self.expect_end()

    def test_without_a_session_bus_it_observes_and_says_what_is_missing(self):
        self.launch(DBUS_SESSION_BUS_ADDRESS="unix:path=/nowhere")
        self.observer.wait_for_title("A letter")
        self.assertIn("no session bus", self.log())
        self.expect_end()

    def test_the_only_screen_may_go_and_come_back(self):
        self.launch(XDG_SESSION_TYPE="wayland", QT_QPA_PLATFORM="xcb")  # opens the setup window
        wait_until(lambda: xdotool("search", "--onlyvisible", "--name", "^Welcome to Mnemora$"),
                   what="the setup window")
        self.screen("--off")
        self.assertIn("Quit Mnemora", self.menu_texts())  # without a main screen
        self.screen("--auto")
        self.assertIn("Quit Mnemora", self.menu_texts())
        self.expect_end()

    def test_a_card_outlives_its_screen(self):
        self.launch()
        self.observer.wait_for_title("A letter")
        self.window("Weekly call", "Three people.", "+80+200", window_class="zoom").bring_to_front()
        self.wait_for_card_beside(1280)
        self.xrandr("--newmode", "small", "63.5", "1024", "1072", "1176", "1328", "768", "771",
                    "775", "798")
        self.xrandr("--addmode", "screen", "small")
        self.xrandr("--output", "screen", "--mode", "small")
        self.wait_for_card_beside(1024)
        self.screen("--off")
        self.assertIn("Quit Mnemora", self.menu_texts())
        self.xrandr("--delmode", "screen", "small")
        self.screen("--auto")
        self.assertIn("Quit Mnemora", self.menu_texts())
        self.wait_for_card_beside(1280)
        self.expect_end()

    def wait_for_card_beside(self, edge):
        """It keeps its distance from the screen's right edge."""
        wait_until(lambda: self.right_end_of_card() == edge - 18, what=f"the card beside {edge}")

    @staticmethod
    def right_end_of_card():
        for window in xdotool("search", "--onlyvisible", "--name", "^Mnemora$").split():
            facts = subprocess.run(["xwininfo", "-id", window, "-all"], check=False,
                                   capture_output=True, text=True).stdout
            if "Tooltip" in facts:
                numbers = dict(line.strip().split(": ", 1) for line in facts.splitlines()
                               if line.strip().startswith(("Absolute upper-left X", "Width:")))
                return int(numbers["Absolute upper-left X"]) + int(numbers["Width"])
        return None

    @staticmethod
    def xrandr(*arguments):
        subprocess.run(["xrandr", *arguments], check=True, timeout=PATIENCE)

    def screen(self, switch):
        self.xrandr("--fb", "1280x800", "--output", "screen", switch)
        active = "--listactivemonitors"
        wait_until(lambda: ("Monitors: 0" in subprocess.run(
            ["xrandr", active], capture_output=True, text=True, check=True).stdout)
                   == (switch == "--off"), what="the screen to follow")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
