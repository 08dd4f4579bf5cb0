"""The program's own windows for those who can't see them or use no mouse: names, roles, keys.

Usage: own_windows_test.py PROGRAM, inside a desktop session with the accessibility bus.
"""
import sys
import unittest

from running import ProgramTest, wait_until
from accessible_program import AccessibleProgram, Atspi
from windows import xdotool

STATE, ROLE = Atspi.StateType, Atspi.Role
COMMANDS = ["🔴  Record meeting (on-device)", "Meetings…", "Setup & Permissions…", "Quit Mnemora"]
# What people act on or read; each has to say what it is.
SPEAKING = {ROLE.PUSH_BUTTON, ROLE.LABEL, ROLE.MENU_ITEM, ROLE.CHECK_BOX, ROLE.TEXT, ROLE.LIST,
            ROLE.TABLE, ROLE.TREE, ROLE.FRAME, ROLE.DIALOG, ROLE.LINK}


class OwnWindowsTest(ProgramTest):
    def launch(self, **environment):
        super().launch(**environment)
        self.program = AccessibleProgram(self.observer.process.pid)
        self.wait_for_log("capture started")

    def open_menu_window(self):
        self.assertEqual(self.start_again().returncode, 0)
        self.wait_for_front("Mnemora")

    @staticmethod
    def wait_for_front(title):
        wait_until(lambda: xdotool("getwindowname", xdotool("getactivewindow")) == title,
                   what=f"'{title}' in front")

    def showing(self):
        return [(role, name, item) for role, name, item in self.program.objects()
                if item.get_state_set().contains(STATE.SHOWING)]

    def expect_all_speak(self):
        silent = [item.get_role_name() for role, name, item in self.showing()
                  if role in SPEAKING and not name]
        self.assertEqual(silent, [])

    def focused(self):
        return next((name for role, name, item in self.showing()
                     if role not in (ROLE.FRAME, ROLE.DIALOG) and
                     item.get_state_set().contains(STATE.FOCUSED)), None)

    def names_reached_by(self, key, steps):
        """Which controls have the focus, one after another, as the key is pressed."""
        names = []
        for _ in range(steps):
            former = self.focused()
            xdotool("key", key)
            names.append(wait_until(lambda: (now := self.focused()) != former and now,
                                    what=f"another control's focus after '{former}'"))
        return names

    def test_the_menu_window_speaks_and_goes_by_keys(self):
        self.launch()
        self.open_menu_window()
        wait_until(lambda: set(COMMANDS) <= set(self.program.buttons()), what="the commands")
        self.expect_all_speak()
        self.assertTrue(self.program.shows("● Capturing"))
        self.assertTrue(self.program.shows("0 memories today"))
        self.assertNotIn(self.focused(), COMMANDS)  # Return would record at once
        reached = self.names_reached_by("Down", 4)
        self.assertEqual(sorted(reached), sorted(COMMANDS))
        self.assertEqual(self.names_reached_by("Up", 1), [reached[-2]])

    def test_the_setup_window_speaks_and_goes_by_keys(self):
        self.launch(XDG_SESSION_TYPE="wayland", QT_QPA_PLATFORM="xcb")  # nothing can be read
        self.wait_for_front("Welcome to Mnemora")
        controls = wait_until(self.program.buttons, what="the buttons")
        self.assertIn("Grant: On-screen content", controls)
        self.expect_all_speak()
        reached = self.names_reached_by("Tab", len(controls))
        self.assertEqual(sorted(reached), sorted(controls))
        xdotool("key", "Escape")
        wait_until(lambda: not self.program.buttons(), what="the window to close")

    def test_the_meetings_window_speaks(self):
        self.launch()
        self.open_menu_window()
        self.program.click("Meetings…")
        wait_until(lambda: xdotool("search", "--onlyvisible", "--name", "Meetings"),
                   what="the meetings window")
        self.expect_all_speak()

    def test_texts_grow_with_the_users_text_size(self):
        def height():
            # Qt's own size of the window, in the X server's pixels.
            self.wait_for_front("Welcome to Mnemora")
            size = xdotool("getwindowgeometry", "--shell", xdotool("getactivewindow"))
            self.observer.stop()
            return int(next(line for line in size.splitlines() if line.startswith("HEIGHT="))[7:])
        heights = []
        for dpi in ("96", "144"):
            self.launch(XDG_SESSION_TYPE="wayland", QT_QPA_PLATFORM="xcb", QT_FONT_DPI=dpi)
            heights.append(height())
        self.assertGreater(heights[1], heights[0] * 1.15)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
