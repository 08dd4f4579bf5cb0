"""A real Chromium with our extension, pages for it, and the script host that asks it."""
import http.server
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import threading

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts" / "session"))
from windows import PATIENCE, wait_until, xdotool

CHROME = "com.google.Chrome"
ADDRESS = 'tell application "Google Chrome" to return URL of active tab of front window'
TEXT = ('tell application "Google Chrome" to return (execute active tab of front window javascript '
        '"document.body.innerText")')
# Nothing of this touches the extension: no sandbox because the tests may run as root, no traffic of
# the browser's own, and no questions at the first start.
FLAGS = ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--no-default-browser-check", "--disable-background-networking",
         "--disable-component-update", "--disable-sync", "--password-store=basic"]


class Pages:
    """Serves pages by path on the loopback; each tells what its own innerText is when loaded."""

    REPORT = ("<script>addEventListener('load', () => fetch('/said?' + location.pathname, "
              "{method: 'POST', body: document.body.innerText}))</script>")

    def __init__(self):
        self.pages, self.said = {}, {}
        pages = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                kind, content = pages.pages.get(self.path.split("?")[0], ("text/plain", b""))
                self.send_response(200)
                self.send_header("Content-Type", kind)
                self.send_header("Content-Length", str(len(content)))
                self.end_headers()
                self.wfile.write(content)

            def do_POST(self):
                said = self.rfile.read(int(self.headers["Content-Length"])).decode()
                pages.said[self.path.split("?")[1]] = said
                self.send_response(204)
                self.end_headers()

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def add(self, path, title, body, report=True):
        page = (f"<!doctype html><meta charset=utf-8><title>{title}</title><body>{body}"
                f"{self.REPORT if report else ''}")
        return self.add_file(path, "text/html", page.encode())

    def add_file(self, path, kind, content):
        self.pages[path] = (kind, content)
        return f"http://127.0.0.1:{self.server.server_port}{path}"

    def text_of(self, path):
        """What the page itself found its innerText to be."""
        return wait_until(lambda: self.said.get(path), what=f"{path} to be loaded")

    def close(self):
        self.server.shutdown()
        self.server.server_close()


class Chromium:
    """One browser process with its first window; further windows open in the same process."""

    folder = pathlib.Path(os.environ["HOME"]) / ".config" / "chromium"

    def __init__(self, address, *flags):
        self.log = open(os.path.join(os.environ["HOME"], "chromium.log"), "ab")
        self.process = self._start("--profile-directory=Default", *flags, address)

    def _start(self, *arguments):
        return subprocess.Popen(["chromium", *FLAGS, *arguments], stdin=subprocess.DEVNULL,
                                stdout=self.log, stderr=self.log)

    def open(self, *arguments):
        """Opens a new window in the running browser; returns its identifier."""
        windows = set(self.windows())
        self._start(*arguments).wait(PATIENCE)
        return wait_until(lambda: set(self.windows()) - windows, what="a new window").pop()

    @staticmethod
    def windows():
        return xdotool("search", "--onlyvisible", "--class", "chromium").split()

    def close_window(self, window):
        self.bring_to_front(window)
        xdotool("key", "ctrl+shift+w")
        wait_until(lambda: window not in self.windows(), what="the window to close")

    @staticmethod
    def bring_to_front(window):
        xdotool("windowactivate", window)
        wait_until(lambda: xdotool("getactivewindow") == window, what="the window in front")

    def main_process(self):
        """The starter replaces itself by the browser."""
        return self.process.pid

    def close(self):
        if self.process.poll() is None:
            self.process.terminate()
        try:
            self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.log.close()


class Installation:
    """What the host takes for an installation, with the script host in the application's place."""

    def __init__(self, host_program, browser_answers):
        host_program = pathlib.Path(host_program)
        self.folder = tempfile.TemporaryDirectory()
        prefix = pathlib.Path(self.folder.name).resolve()
        self.application = prefix / "bin" / "mnemora"
        self.host_program = prefix / "libexec" / "mnemora" / host_program.name
        for program, place in (browser_answers, self.application), (host_program, self.host_program):
            place.parent.mkdir(parents=True)
            shutil.copy(program, place)
        for folder in "share", "lib":
            (prefix / folder).symlink_to(host_program.resolve().parents[2] / folder)

    def close(self):
        self.folder.cleanup()


class Answers:
    """The script host in a process of its own."""

    def __init__(self, program, host_program, *options):
        self.process = subprocess.Popen([program, host_program, *options], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)

    def begin(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def end(self):
        return json.loads(self.process.stdout.readline())

    def say(self, line):
        self.begin(line)
        return self.end()

    def has_extension(self):
        return self.say("extension " + CHROME)["connected"]

    def wait_for_extension(self):
        wait_until(self.has_extension, what="the extension")

    def address(self):
        return self.say("run " + ADDRESS)

    def text(self):
        return self.say("run " + TEXT)

    def wait_for_address(self, address):
        heard = []
        try:
            wait_until(lambda: heard.append(self.address()["text"]) or heard[-1] == address,
                       what=f"the address {address[:100]}")
        except TimeoutError as late:
            raise TimeoutError(f"{late}; at last it was {(heard[-1] or 'absent')[:100]}") from None

    def close(self):
        if self.process.poll() is not None:
            return
        self.process.stdin.close()
        self.process.stdout.close()
        self.process.wait(PATIENCE)
