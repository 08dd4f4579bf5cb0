#!/usr/bin/python3
"""What it costs that the program is on: CPU seconds a minute, memory, bytes kept.

    capture.py [--minutes M] [--program PROGRAM] [unchanged] [reading] [browsing] [scrolling]
               [memory]

Each part runs for M minutes (2 unless given; scrolling takes less) in a virtual desktop of its own:
`unchanged`, a screen on which nothing happens; `reading`, a terminal with a new screen every ten
seconds and typing in between; `browsing`, a Chromium with our extension and a new page every ten
seconds; `scrolling`, what accessibility costs a Chromium that scrolls a long page; `memory`, what
the program occupies while windows come, change and go, read every minute.
"""
import argparse
import os
import pathlib
import socket
import struct
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "scripts" / "session"), str(ROOT / "tests" / "desktop")]
from browser_chromium import Chromium, Pages
from observer import Observer, cpu_seconds
from windows import TextWindow, wait_until, xdotool

MEMORY_BOUNDS = (90, 160)  # MiB private and resident
BOUNDS = {"unchanged": 0.2, "browsing": 0.3}  # CPU seconds a minute, the children's included
SETTLING = 20  # seconds after the first event, in which weights are loaded
NEW_SCREEN = 10  # seconds
TEXT = (ROOT / "docs" / "architecture.md").read_text(encoding="utf-8")


def memory(pid):
    """Private and resident MiB."""
    fields = dict(line.split(":", 1) for line in
                  pathlib.Path(f"/proc/{pid}/status").read_text(encoding="ascii").splitlines())
    return [int(fields[name].split()[0]) / 1024 for name in ("RssAnon", "VmRSS")]


def below(root):
    """The process and all that it started, directly or not."""
    parents = {}
    for entry in pathlib.Path("/proc").iterdir():
        try:
            if entry.name.isdigit():
                parents[int(entry.name)] = int((entry / "stat").read_text(
                    encoding="utf-8", errors="replace").rpartition(")")[2].split()[1])
        except OSError:
            continue  # it has just ended
    found = [root]
    for pid in found:
        found += [child for child, parent in parents.items() if parent == pid]
    return found


def is_browser_host(pid):
    try:
        return b"mnemora-browser-host" in pathlib.Path(f"/proc/{pid}/cmdline").read_bytes()
    except OSError:
        return False


class Meter:
    """CPU seconds from its making on."""

    def __init__(self, groups):
        self.groups = groups
        self.began = time.monotonic()
        self.before = self.now()

    def now(self):
        spent = {}
        for name, find in self.groups.items():
            for pid in find():
                try:
                    spent[name, pid] = cpu_seconds(pid)
                except OSError:
                    continue  # it has just ended
        return spent

    def per_minute(self):
        minutes = (time.monotonic() - self.began) / 60
        total = dict.fromkeys(self.groups, 0.0)
        for key, spent in self.now().items():
            total[key[0]] += spent - self.before.get(key, 0.0)
        return {name: spent / minutes for name, spent in total.items()}


def observe(part, minutes, program, folder, browser=None):
    """Runs the program for the time, measured once it has settled; prints what it cost."""
    observer = Observer(program, folder)
    try:
        observer.wait_for(lambda event: event["body"], "the first content", 90)
        time.sleep(SETTLING)
        meter = Meter({"program": lambda: [observer.process.pid], "engines": observer.children,
                       "browser host": lambda: list(filter(
                           is_browser_host, below(browser.main_process()) if browser else [])),
                       "X server": x_server})
        count, size = len(observer.events()), observer.database.stat().st_size
        began = time.monotonic()
        time.sleep(minutes * 60)
        spent = meter.per_minute()
        events = observer.events()[count:]
        hours = (time.monotonic() - began) / 3600
        report(part, spent, events, observer, hours, size)
    finally:
        observer.stop()
    own = sum(cost for name, cost in spent.items() if name != "X server")
    bound = BOUNDS.get(part)
    print(f"  in all             {own:6.3f} CPU s/min" + (f"   bound {bound}" if bound else ""))
    return bound is None or own <= bound


def x_server():
    """Who answers at the display's socket (unix(7), SO_PEERCRED)."""
    number = os.environ["DISPLAY"].lstrip(":").split(".")[0]
    with socket.socket(socket.AF_UNIX) as server:
        server.connect(f"/tmp/.X11-unix/X{number}")
        credentials = server.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12)
    return [struct.unpack("3i", credentials)[0]]


def report(part, spent, events, observer, hours, size):
    print(f"{part}, {hours * 60:.1f} minutes")
    for name, cost in spent.items():
        print(f"  {name:<18} {cost:6.3f} CPU s/min")
    for name, pids in (("program", [observer.process.pid]), ("engines", observer.children())):
        for pid in pids:
            private, resident = memory(pid)
            print(f"  {name:<18} {private:6.1f} MiB private, {resident:.1f} MiB resident")
    print(f"  events             {len(events)}, with content {sum(bool(e['body']) for e in events)}")
    if events:
        text = sum(len((event["body"] or "").encode()) for event in events)
        # What is in the log goes into the file in time; its size is what a user sees on disk.
        wal = observer.database.with_name(observer.database.name + "-wal")
        kept = kept_size(observer.database)
        print(f"  text               {text / len(events):,.0f} bytes an event")
        print(f"  kept               {kept / len(observer.events()):,.0f} bytes an event, "
              f"{kept / len(observer.events()) * len(events) / hours / 1e6:.2f} MB an hour of this"
              f"   (file {size / 1e6:.2f} MB before, log {wal.stat().st_size / 1e6:.2f} MB)")


def kept_size(database):
    """Bytes in use of the database, the log's pages included."""
    command = ["sqlite3", f"file:{database}?mode=ro", "PRAGMA page_count", "PRAGMA page_size"]
    count, page = subprocess.run(command, check=True, capture_output=True, text=True).stdout.split()
    return int(count) * int(page)


def unchanged(options, folder):
    window = TextWindow("A letter", TEXT[:1500])
    window.bring_to_front()
    try:
        return observe("unchanged", options.minutes, options.program, folder)
    finally:
        window.close()


# A screen full of another text, then a line every second as somebody types it.
TYPIST = r'''
at=1
while :; do
    printf '\033[2J\033[H\033]2;page %d\007' $at
    tail -n +$((at % 60 + 1)) "$1" | head -n 30
    for second in 1 2 3 4 5 6 7 8 9 10; do printf 'typed %d.%d a few words\n' $at $second; sleep 1; done
    at=$((at + 7))
done'''


def reading(options, folder):
    terminal = subprocess.Popen(
        ["xterm", "-u8", "-fa", "DejaVu Sans Mono", "-fs", "11", "-geometry", "150x48+20+20", "-e", "sh", "-c",
         TYPIST, "sh", str(ROOT / "docs" / "architecture.md")])
    try:
        return observe("reading", options.minutes, options.program, folder)
    finally:
        terminal.terminate()
        terminal.wait()


def growth(samples):
    """MiB an hour by least squares over (minute, MiB)."""
    mean = [sum(column) / len(samples) for column in zip(*samples)]
    spread = sum((minute - mean[0]) ** 2 for minute, _ in samples)
    together = sum((minute - mean[0]) * (size - mean[1]) for minute, size in samples)
    return 60 * together / spread if spread else 0.0


def memory_over_time(options, folder):
    """A letter, a terminal with a new screen every ten seconds and windows of a few seconds."""
    terminal = subprocess.Popen(
        ["xterm", "-u8", "-fa", "DejaVu Sans Mono", "-fs", "11", "-geometry", "100x40+20+20", "-e", "sh", "-c",
         TYPIST, "sh", str(ROOT / "docs" / "architecture.md")])
    letter = TextWindow("A letter", TEXT[:1500])
    observer = Observer(options.program, folder)
    private, resident = [], []
    try:
        observer.wait_for(lambda event: event["body"], "the first content", 90)
        began = time.monotonic()
        while (minute := (time.monotonic() - began) / 60) < options.minutes:
            note = TextWindow(f"Note {minute:.1f}", TEXT[int(minute * 100):][:900], "+300+200")
            note.bring_to_front()
            time.sleep(15)
            letter.bring_to_front()
            time.sleep(10)
            note.close()
            time.sleep(max(0, (len(private) + 1) * 60 - (time.monotonic() - began)))
            sizes = memory(observer.process.pid)
            minute = (time.monotonic() - began) / 60
            private.append((minute, sizes[0]))
            resident.append((minute, sizes[1]))
            print(f"  minute {minute:4.0f}   {sizes[0]:6.1f} MiB private, {sizes[1]:6.1f} resident, "
                  f"{len(observer.events())} events", flush=True)
    finally:
        observer.stop()
        letter.close()
        terminal.terminate()
        terminal.wait()
    settled = len(private) // 4  # what is loaded or made once is there by then
    print(f"memory: {private[-1][1]:.1f} MiB private (bound {MEMORY_BOUNDS[0]}), "
          f"{resident[-1][1]:.1f} resident (bound {MEMORY_BOUNDS[1]}); after the first quarter "
          f"{growth(private[settled:]):+.1f} and {growth(resident[settled:]):+.1f} MiB an hour")
    return private[-1][1] <= MEMORY_BOUNDS[0] and resident[-1][1] <= MEMORY_BOUNDS[1]


def browsing(options, folder):
    host = pathlib.Path(options.program).resolve().parents[1] / "libexec/mnemora/mnemora-browser-host"
    subprocess.run([host, "--install"], check=True, stdout=subprocess.DEVNULL)
    pages = Pages()
    script = f"""<script>const n = Number(location.search.slice(1)) || 1
        document.title = 'Page ' + n
        document.body.innerText = Array(60).fill('Line of page ' + n + ': some words to read.').join('\\n')
        setTimeout(() => location.search = n + 1, {NEW_SCREEN * 1000})</script>"""
    browser = Chromium(pages.add("/read", "Page", script, report=False))
    try:
        wait_until(lambda: list(browser.folder.glob("*/Extensions/*/*/worker.js")),
                   what="the extension")
        return observe("browsing", options.minutes, options.program, folder, browser)
    finally:
        browser.close()
        pages.close()


def scrolling(options, folder):
    pages = Pages()
    script = "<p>Some words to read, and a <a href=#>link</a>.</p>" * 3000 + """<script>let y = 0
        const step = () => { y = (y + 12) % 60000; scrollTo(0, y); requestAnimationFrame(step) }
        step()</script>"""
    browser = Chromium(pages.add("/long", "Long", script, report=False))
    is_on = options.accessibility
    observer = Observer(options.program, folder) if is_on else None
    try:
        wait_until(browser.windows, what="a window")
        time.sleep(SETTLING)
        meter = Meter({"Chromium": lambda: below(browser.main_process())})
        time.sleep(min(options.minutes * 60, 30))
        print(f"scrolling, accessibility {'on and the program running' if is_on else 'off'}: "
              f"Chromium {meter.per_minute()['Chromium']:.1f} CPU s/min")
    finally:
        if observer:
            observer.stop()
        browser.close()
        pages.close()
    return True


PARTS = {part.__name__: part for part in (unchanged, reading, browsing, scrolling)}
PARTS["memory"] = memory_over_time


def in_session(part, options, accessibility):
    command = [ROOT / "scripts/virtual-session", *(["--a11y"] if accessibility else []), "--",
               sys.executable, __file__, "--inside", "--minutes", str(options.minutes),
               "--program", options.program, *(["--accessibility"] if accessibility else []), part]
    sys.stdout.flush()
    return subprocess.run(command, check=False).returncode == 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--minutes", type=float, default=2)
    parser.add_argument("--program", default=str(ROOT / "build/release/bin/mnemora"))
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--accessibility", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("parts", nargs="*", metavar="part", help=", ".join(PARTS))
    options = parser.parse_args()
    unknown = set(options.parts) - set(PARTS)
    if unknown:
        parser.error(f"no part named {unknown.pop()}")
    options.parts = options.parts or list(PARTS)
    options.program = str(pathlib.Path(options.program).resolve())
    if options.inside:
        with tempfile.TemporaryDirectory(prefix="mnemora-bench.") as folder:
            sys.exit(not PARTS[options.parts[0]](options, pathlib.Path(folder)))
    fine = True
    for part in options.parts:
        for accessibility in ([False, True] if part == "scrolling" else [True]):
            fine = in_session(part, options, accessibility) and fine
    sys.exit(not fine)


if __name__ == "__main__":
    main()
