"""Real windows for a virtual desktop: terminals with a title and a text, raised one after another."""
import subprocess
import time

PATIENCE = 30  # seconds that a busy machine may take for what is normally instant


def wait_until(condition, seconds=PATIENCE, what="the condition"):
    """The condition's first true answer; a TimeoutError naming `what` when none came in time."""
    until = time.monotonic() + seconds
    while True:
        answer = condition()
        if answer:
            return answer
        if time.monotonic() > until:
            raise TimeoutError(f"waited {seconds} s in vain for {what}")
        time.sleep(0.05)


def xdotool(*arguments):
    """What xdotool prints; empty when it found nothing or failed."""
    def run():
        return subprocess.run(["xdotool", *arguments], capture_output=True, text=True, check=False,
                              timeout=PATIENCE)
    answer = run()
    # A search fails as a whole when any window goes while it looks: that isn't "none".
    while arguments[0] == "search" and "X Error" in answer.stderr:
        answer = run()
    return answer.stdout.strip() if answer.returncode == 0 else ""


class TextWindow:
    """A terminal that shows a text; ends with `close` or with the session."""

    # The title is set as an application inside a terminal sets it, so that it arrives as UTF-8
    # (_NET_WM_NAME); the command-line option would leave only the older property behind.
    SCRIPT = r'printf "\033]2;%s\007%s\n" "$1" "$2"; exec sleep infinity'

    def __init__(self, title, text, place="+40+40", window_class="XTerm"):
        self.title = title
        self.process = subprocess.Popen(
            ["xterm", "-class", window_class, "-u8", "-xrm", "*utf8Title: true", "-fa", "DejaVu Sans Mono", "-fs", "12",
             "-geometry", f"80x20{place}", "-e", "sh", "-c", self.SCRIPT, "sh", title, text],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.identifier = wait_until(self._find, what=f"the window '{title}'")

    def _find(self):
        if self.process.poll() is not None:
            raise RuntimeError(f"xterm ended with status {self.process.returncode}")
        found = xdotool("search", "--onlyvisible", "--pid", str(self.process.pid)).split()
        return found[0] if found and xdotool("getwindowname", found[0]) == self.title else None

    def bring_to_front(self):
        def is_in_front():
            if xdotool("getactivewindow") == self.identifier:
                return True
            # Again: a window manager that hasn't met the window yet does nothing.
            xdotool("windowactivate", self.identifier)
            return False
        wait_until(is_in_front, what=f"'{self.title}' in front")

    def close(self):
        self.process.terminate()
        self.process.wait(PATIENCE)
