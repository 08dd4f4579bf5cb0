"""Real windows of a sway session: native ones and those of the X server inside."""
import json
import os
import pathlib
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts" / "session"))
from capture import Started
from windows import wait_until

def sway(*message):
    """What the compositor answers to a command; a list of results or a tree."""
    answer = subprocess.run(["swaymsg", "-r", *message], capture_output=True, text=True, check=False,
                            timeout=30)
    return json.loads(answer.stdout) if answer.stdout.strip() else []


def windows():
    """All windows of the session, as sway describes them."""
    found, todo = [], [sway("-t", "get_tree") or {}]
    while todo:
        node = todo.pop()
        todo += node.get("nodes", []) + node.get("floating_nodes", [])
        if node.get("pid"):
            found.append(node)
    return found


def focused():
    return next((window for window in windows() if window["focused"]), None)


def bring_to_front(title):
    """The window whose title begins so, once it has the focus."""
    def is_front():
        window = next((window for window in windows()
                       if (window["name"] or "").startswith(title)), None)
        if window is None or window["focused"]:
            return window
        sway(f"[con_id={window['id']}] focus")
        return None
    return wait_until(is_front, what=f"'{title}' in front")


def foot(title, text, *options):
    return Started(["foot", "-T", title, *options, "sh", "-c",
                    'printf "%s\\n" "$1"; exec sleep infinity', "sh", text])


def chromium(title, text, private=False):
    """A Chromium of its own with one page, which it shows to the accessibility bus."""
    profile = tempfile.mkdtemp(prefix="chromium.", dir=os.environ["HOME"])
    page = os.path.join(profile, "page.html")
    with open(page, "w", encoding="utf-8") as file:
        file.write(f"<meta charset=utf-8><title>{title}</title><p>{text}")
    return Started(["chromium", "--no-sandbox", "--no-first-run", "--disable-gpu",
                    "--password-store=basic", f"--user-data-dir={profile}",
                    "--ozone-platform=wayland", "--force-renderer-accessibility",
                    *(["--incognito"] if private else []), f"file://{page}"])
