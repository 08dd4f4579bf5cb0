"""Programs as their users have them on the screen, observed by the whole program.

A secret is a few words that only a private window shows. None of them may be in any byte of the
data folder afterwards; the same words in an ordinary window have to be found in it, or the search
would prove nothing.
"""
import os
import subprocess
import tempfile

from running import ProgramTest
from windows import wait_until, xdotool

# A tick, the reading of a full screen in the idle class on a busy machine, and some more.
PATIENCE = 90


def big_page(words):
    """A page whose words can be read in a small window, and beside a terminal at the left of a
    window that fills the screen (as Firefox opens its own)."""
    return f"<style>body{{font:28px 'DejaVu Sans';text-align:right}}</style><p>{'<p>'.join(words)}</p>"


def windows_of(window_class):
    return xdotool("search", "--onlyvisible", "--class", window_class).split()


def new_window(window_class, before, title=""):
    """The window of this class that wasn't there before, once its title contains `title`."""
    def found():
        return next((window for window in windows_of(window_class)
                     if window not in before and title in xdotool("getwindowname", window)
                     and xdotool("getwindowname", window)), None)
    return wait_until(found, what=f"a window of {window_class} titled {title}")


def place(window, left, top, width, height):
    xdotool("windowsize", "--sync", window, str(width), str(height))
    xdotool("windowmove", window, str(left), str(top))


def bring_to_front(window):
    xdotool("windowactivate", window)
    wait_until(lambda: xdotool("getactivewindow") == window, what="the window in front")


class Started:
    """A program that ends with the test."""

    def __init__(self, command, **options):
        self.log = open(os.path.join(os.environ["HOME"], "programs.log"), "ab")
        self.process = subprocess.Popen(command, stdout=self.log, stderr=self.log,
                                        **{"stdin": subprocess.DEVNULL, **options})

    def close(self):
        if self.process.poll() is None:
            self.process.terminate()
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.log.close()


class Firefox(Started):
    """One window with a profile of its own."""

    PREFERENCES = {"browser.aboutwelcome.enabled": False, "browser.startup.page": 0,
                   "datareporting.policy.dataSubmissionEnabled": False,
                   "browser.shell.checkDefaultBrowser": False, "app.update.enabled": False,
                   "datareporting.policy.firstRunURL": "", "browser.tabs.closeWindowWithLastTab": True}

    def __init__(self, address, title, private=False, language=""):
        before = windows_of("firefox")
        profile = tempfile.mkdtemp(prefix="firefox.", dir=os.environ["HOME"])
        preferences = dict(self.PREFERENCES, **({"intl.locale.requested": language} if language else {}))
        with open(os.path.join(profile, "user.js"), "w", encoding="utf-8") as file:
            for name, value in preferences.items():
                text = f'"{value}"' if isinstance(value, str) else str(value).lower()
                file.write(f'user_pref("{name}", {text});\n')
        super().__init__(["firefox-esr", "--no-remote", "--profile", profile,
                          *(["--private-window"] if private else []), address])
        self.window = new_window("firefox", before, title)


class CaptureTest(ProgramTest):
    """Gives each test the running program."""

    def setUp(self):
        super().setUp()
        self.launch()

    def terminal(self, title, text):
        """At the left of the screen, and in front."""
        window = self.window(title, text)
        place(window.identifier, 20, 40, 640, 300)
        window.bring_to_front()
        return window

    def noted(self, title, with_text=False):
        """The event of the window in front, whose title contains `title`; the first that has text
        where it is to have some: a look that falls between two windows has a title alone.
        """
        return self.observer.wait_for(
            lambda event: title in (event["title"] or "") and (event["body"] or not with_text),
            f"an event titled {title}", PATIENCE)

    def assert_read(self, event, words):
        body = (event["body"] or "").lower()
        for word in words:
            self.assertIn(word.lower(), body, event["title"])

    def assert_withheld(self, event):
        self.assertIsNone(event["body"], event["title"])

    def assert_kept(self, words):
        """That the search below finds what is there."""
        for word in words:
            self.assertTrue(self.observer.kept_bytes().lower().count(word.lower().encode()), word)

    def assert_never_kept(self, words):
        kept = self.observer.kept_bytes().lower()
        self.assertGreater(len(kept), 4096)
        for word in words:
            self.assertEqual(kept.count(word.lower().encode()), 0, f"the secret {word} was kept")
