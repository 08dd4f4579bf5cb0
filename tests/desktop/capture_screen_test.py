"""What the whole program reads from the screen, and what it doesn't.

Usage: capture_screen_test.py PROGRAM, inside a desktop session with the accessibility bus on.
"""
import os
import pathlib
import subprocess
import sys
import time
import unittest

from browser_chromium import Chromium, Pages
from capture import (CaptureTest, Firefox, Started, big_page, bring_to_front, new_window, place,
                     windows_of)
from windows import wait_until, xdotool

RIGHT = (700, 20, 560, 360)  # of the terminals
BELOW = (700, 420, 560, 360)
PACE = 6  # seconds between two looks


class ProgramsTest(CaptureTest):
    def test_reads_terminals_and_other_programs_but_no_password_manager_even_beside_them(self):
        self.terminal("Shopping", "Walnut shelves and seventeen brass hinges")
        self.assert_read(self.noted("Shopping", with_text=True), ["walnut shelves", "brass hinges"])

        text = pathlib.Path(os.environ["HOME"], "letter.txt")
        text.write_text("Dear carpenter, the drawer sticks again.\n", encoding="utf-8")
        before = windows_of("zenity")
        dialog = self.started(Started(["zenity", "--text-info", "--title", "Letter",
                                       f"--filename={text}"]))
        bring_to_front(new_window("zenity", before, "Letter"))
        self.assert_read(self.noted("Letter", with_text=True), ["dear carpenter", "drawer sticks"])
        dialog.close()

        secret = ["Mondlaterne", "Quarzfelsen"]
        vault = self.vault(*secret)
        place(vault, *RIGHT)
        bring_to_front(vault)
        self.assert_withheld(self.noted("KeePassXC"))
        self.terminal("Beside the vault", "The ladder stands in the garden")
        event = self.noted("Beside the vault", with_text=True)
        self.assert_read(event, ["ladder stands in the garden"])
        self.assert_never_kept(secret)

    def vault(self, entry, user):
        """The window of a password manager that shows an entry and its user."""
        place_of_it = os.path.join(os.environ["HOME"], "vault.kdbx")
        quiet = dict(check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        subprocess.run(["keepassxc-cli", "db-create", "-p", place_of_it], input=b"pw\npw\n", **quiet)
        subprocess.run(["keepassxc-cli", "add", "-u", user, place_of_it, entry], input=b"pw\n", **quiet)
        before = windows_of("keepassxc")
        manager = self.started(Started(["keepassxc", "--pw-stdin", place_of_it],
                                       stdin=subprocess.PIPE))
        manager.process.stdin.write(b"pw\n")
        manager.process.stdin.close()
        return new_window("keepassxc", before, "vault")

    def test_notes_and_reads_nothing_while_a_locker_or_a_screen_saver_is_on(self):
        self.terminal("Before", "Words before the break")
        self.noted("Before")
        locker = self.started(Started(["i3lock", "--nofork"]))
        wait_until(lambda: xdotool("search", "--onlyvisible", "--class", "i3lock"),
                   what="the locker")
        wait_until(self.is_recogniser_at_rest, what="the last picture to be read")
        spent = self.observer.cpu_seconds_of_children()
        noted = self.titles()
        self.terminal("Behind the locker", "Words that nobody sees")
        time.sleep(1.2 * PACE)  # in which nothing may happen
        subprocess.run(["xset", "s", "activate"], check=True)
        locker.close()
        time.sleep(1.2 * PACE)
        self.assertEqual(self.titles(), noted)
        self.assertEqual(self.observer.cpu_seconds_of_children(), spent)
        subprocess.run(["xset", "s", "reset"], check=True)
        self.noted("Behind the locker")

    def titles(self):
        return [event["title"] for event in self.observer.events()]

    def is_recogniser_at_rest(self):
        spent = self.observer.cpu_seconds_of_children()
        time.sleep(1)
        return self.observer.cpu_seconds_of_children() == spent


class PrivateBrowsersTest(CaptureTest):
    def setUp(self):
        super().setUp()
        self.pages = self.started(Pages())

    def page(self, name, title, words):
        return self.pages.add(f"/{name}", title, big_page(words), report=False)

    def test_reads_firefox_but_none_of_its_private_windows(self):
        words, secret = ["Kupferkessel", "Wanderstiefel"], ["Nebelhorn", "Silberdistel"]
        ordinary = self.started(Firefox(self.page("open", "Open page", words), "Open page"))
        place(ordinary.window, *RIGHT)
        bring_to_front(ordinary.window)
        self.assert_read(self.noted("Open page", with_text=True), words)
        self.assert_kept(words)
        ordinary.close()
        hidden = self.started(Firefox(self.page("hidden", "Hidden page", secret), "Hidden page",
                                      private=True))
        place(hidden.window, *RIGHT)
        bring_to_front(hidden.window)
        self.assert_withheld(self.noted("Hidden page"))
        self.terminal("Beside Firefox", "A kettle on the stove")
        self.assert_read(self.noted("Beside Firefox", with_text=True), ["kettle on the stove"])
        self.assert_never_kept(secret)

    def test_reads_chromium_beside_another_window_only_where_it_is_ordinary(self):
        words, secret = ["Haselnuss", "Segelboot"], ["Nachtigall", "Rosmarin"]
        browser = self.started(Chromium(self.page("open", "Open page", words)))
        ordinary = wait_until(browser.windows, what="a window")[0]
        place(ordinary, *RIGHT)
        hidden = browser.open("--incognito", self.page("hidden", "Hidden page", secret))
        wait_until(lambda: "Hidden page" in xdotool("getwindowname", hidden), what="its title")
        place(hidden, *BELOW)
        bring_to_front(hidden)
        self.assert_withheld(self.noted("Hidden page"))
        # Neither hides the other's page.
        self.terminal("Beside both", "A lamp in the hall")
        event = self.noted("Beside both", with_text=True)
        self.assert_read(event, ["lamp in the hall", *words])
        self.assert_never_kept(secret)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
