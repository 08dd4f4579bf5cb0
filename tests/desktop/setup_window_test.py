"""A new user goes through the setup window, first by keyboard, then by assistive technology.

Usage: setup_window_test.py PROGRAM, inside a desktop session whose accessibility is switched off.
"""
import json
import os
import pathlib
import subprocess
import sys
import unittest

from running import PATIENCE, ProgramTest, wait_until
from accessible_program import AccessibleProgram
from windows import xdotool

TITLES_GRANTED = "Granted — knows which app & window you're in."
TITLES_MISSING = "Reads the active window title for context (Accessibility)."


def properties(method, *arguments):
    return subprocess.run(
        ["gdbus", "call", "--session", "--dest", "org.a11y.Bus", "--object-path", "/org/a11y/bus",
         "--method", f"org.freedesktop.DBus.Properties.{method}", "org.a11y.Status", *arguments],
        capture_output=True, text=True, check=True, timeout=PATIENCE).stdout


def is_on(name):
    return "true" in properties("Get", name)


def switch(name, value):
    properties("Set", name, f"<{value}>")


def window(title):
    found = wait_until(lambda: xdotool("search", "--onlyvisible", "--name", f"^{title}$"),
                       what=f"the window '{title}'").split()
    assert len(found) == 1, f"{len(found)} windows are called '{title}'"
    return found[0]


def press(identifier, *keys):
    xdotool("windowactivate", identifier)
    wait_until(lambda: xdotool("getactivewindow") == identifier, what="the window in front")
    for key in keys:
        xdotool("key", key)


class SetupWindowTest(ProgramTest):
    def setUp(self):
        # The toolkit shows its windows on the accessibility bus even when that is switched on
        # after the program has started.
        os.environ["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1"
        super().setUp()
        self.configuration = self.folder / "config"
        (self.configuration / "chromium").mkdir(parents=True)  # this user has used Chromium
        self.launch()
        self.program = AccessibleProgram(self.observer.process.pid)

    def extension_files(self):
        return sorted(path.parent.name for path in self.configuration.glob("chromium/*/*.json"))

    def test_grants_what_its_buttons_promise(self):
        self.assertFalse(is_on("IsEnabled"))
        self.turn_accessibility_on_by_keyboard()
        self.the_setup_window_follows()
        self.a_hidden_one_goes_on_and_comes_back_where_it_was()
        self.install_and_remove_the_extension()
        self.the_primary_button_closes()

    def turn_accessibility_on_by_keyboard(self):
        welcome = window("Welcome to Mnemora")
        press(welcome, "Tab", "space")  # the first button: the screen is readable already
        press(window("Accessibility"), "Return")
        wait_until(lambda: is_on("IsEnabled"), what="accessibility to be on")
        self.assertFalse(is_on("ScreenReaderEnabled"))
        # The same click again is one that undoes it, and Return isn't that one.
        wait_until(lambda: "Turn Off" in self.program.buttons(), what="the way back")
        press(window("Accessibility"), "Return")
        wait_until(lambda: not xdotool("search", "--onlyvisible", "--name", "^Accessibility$"),
                   what="the page to close")
        self.assertTrue(is_on("IsEnabled"))

    def the_setup_window_follows(self):
        wait_until(lambda: self.program.shows(TITLES_GRANTED), what="the second row to follow")
        buttons = self.program.buttons()
        self.assertEqual(set(buttons), {"Grant: Browser pages (optional)", "Start remembering"})

    def a_hidden_one_goes_on_and_comes_back_where_it_was(self):
        welcome = window("Welcome to Mnemora")
        xdotool("windowmove", "--sync", welcome, "30", "60")
        place = wait_until(lambda: self.place(welcome), what="the new place")
        press(welcome, "Escape")
        wait_until(lambda: not self.program.shows(TITLES_GRANTED), what="the window to hide")
        for value, detail in (("false", TITLES_MISSING), ("true", TITLES_GRANTED)):
            switch("IsEnabled", value)
            wait_until(lambda: any(name == detail for _, name, _ in self.program.objects()),
                       what=f"'{detail}' while hidden")
        self.assertEqual(self.start_again().returncode, 0)
        self.program.click("Setup & Permissions…")
        wait_until(lambda: self.program.shows(TITLES_GRANTED), what="the window's return")
        wait_until(lambda: self.place(window("Welcome to Mnemora")) == place, what="its old place")

    @staticmethod
    def place(identifier):
        lines = subprocess.run(["xwininfo", "-id", identifier], capture_output=True, text=True,
                               check=False).stdout.splitlines()
        return [line.split()[-1] for line in lines if "Absolute" in line]

    def install_and_remove_the_extension(self):
        self.program.click("Grant: Browser pages (optional)")
        self.program.click("Install Extension")
        wait_until(lambda: self.extension_files() == ["External Extensions",
                                                      "NativeMessagingHosts"],
                   what="both files")
        for file in self.configuration.glob("chromium/*/*.json"):
            content = json.loads(file.read_text())
            program_or_package = content.get("path") or content["external_crx"]
            self.assertTrue(pathlib.Path(program_or_package).is_file(), content)
        self.program.click("Remove Extension")
        wait_until(lambda: not self.extension_files(), what="the files to go")

    def the_primary_button_closes(self):
        press(window("Welcome to Mnemora"), "Return")
        wait_until(lambda: not xdotool("search", "--onlyvisible", "--name", "^Welcome to Mnemora$"),
                   what="the window to close")
        self.assertEqual(self.observer.stop(), 0, self.observer.log.read_text())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
