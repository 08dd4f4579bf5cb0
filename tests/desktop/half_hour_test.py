"""Half an hour of work on a real desktop: what the program takes must not grow with time.

Usage: half_hour_test.py PROGRAM [MINUTES], inside a desktop session with the accessibility bus on.

Windows come to the front, change their titles, go and come back, and an assistant asks once a
minute. Every quarter of a minute the memory, descriptors, threads and CPU of the program, its
engines and the assistant's server are read, and the sizes of the write-ahead log. What is printed
is each minute's figure and the straight line through them, fitted once all has been loaded.
"""
import json
import os
import pathlib
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts" / "session"))
from observer import Observer, cpu_seconds, environment_for
from windows import TextWindow

PROGRAM = sys.argv[1]
MINUTES = float(sys.argv[2]) if len(sys.argv) > 2 else 30
SETTLING = min(8, MINUTES / 3)  # minutes until everything has been loaded and used once
READING, SHOWING = 15, 10  # seconds between readings, and for which a window stays in front
MEMORY_GROWTH = 0.25  # MiB a minute; beyond it a day of work would cost gigabytes
ENGINES_MEMORY = 450  # MiB, with the code for every width of a line that was met
CPU_GROWTH = 0.15  # seconds a minute, each minute
WAL_BOUND = 12  # MiB: a thousand pages, what waits for a reader, and the largest insert
WORDS = (pathlib.Path(__file__).resolve().parents[2] / "docs" / "architecture.md").read_text(
    encoding="utf-8").split()


def slope(points):
    """Of the least-squares line through (minute, value)."""
    count = len(points)
    mean_x, mean_y = (sum(axis) / count for axis in zip(*points))
    spread = sum((x - mean_x) ** 2 for x, _ in points)
    return sum((x - mean_x) * (y - mean_y) for x, y in points) / spread if spread else 0.0


def reading_of(pid):
    with open(f"/proc/{pid}/status", encoding="ascii", errors="replace") as file:
        status = dict(line.split(":", 1) for line in file)
    return {"private MiB": int(status["RssAnon"].split()[0]) / 1024,
            "descriptors": len(os.listdir(f"/proc/{pid}/fd")),
            "threads": int(status["Threads"]), "cpu": cpu_seconds(pid)}


class Assistant:
    """A host that keeps its server for the whole time."""

    def __init__(self, folder):
        self.log = open(folder / "server.log", "wb")
        self.process = subprocess.Popen([PROGRAM, "--mcp"], env=environment_for(folder), text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self.log)

    def ask(self, words):
        call = {"jsonrpc": "2.0", "id": 1, "method": "tools/call",
                "params": {"name": "search_memory", "arguments": {"query": words}}}
        self.process.stdin.write(json.dumps(call) + "\n")
        self.process.stdin.flush()
        return json.loads(self.process.stdout.readline())["result"]["content"][0]["text"]

    def close(self):
        self.process.stdin.close()
        self.process.stdout.close()
        self.process.wait(30)
        self.log.close()


def remember_texts_of_all_lengths(folder):
    """Leaves events without vectors for the program to begin with: the sentence model pads texts to
    six lengths, and takes two megabytes for each when it meets it first."""
    with open(folder / "first.log", "wb") as log:
        subprocess.run([PROGRAM, "--mcp"], env=environment_for(folder), stdin=subprocess.DEVNULL,
                       stdout=log, stderr=log, check=True)
    with sqlite3.connect(folder / "data" / "Mnemora" / "mnemora.sqlite") as connection:
        connection.executemany(
            "INSERT INTO events (ts, source, app, title, body) VALUES (?, 'screen', 'Notes', 'Note', ?)",
            [(time.time() - 3600, " ".join(["word"] * count)) for count in (8, 20, 50, 100, 150, 240)])
    connection.close()


def lengths(first):
    """Lines of `first`, `first` + 4, ... characters: four such windows hold every length, and with
    it every width for which the recogniser compiles code."""
    words = " ".join(WORDS[:60])
    return "\n".join(words[:length].strip() for length in range(first, 80, 4))


class Work:
    """A desktop on which something else comes to the front every few seconds."""

    def __init__(self):
        self.windows, self.shown = [], 0

    def step(self):
        self.shown += 1
        if self.shown % 6 == 0 or len(self.windows) < 4:
            if len(self.windows) >= 4:
                self.windows.pop(0).close()
            at = self.shown * 17 % (len(WORDS) - 120)
            title = f"Password {self.shown}" if self.shown % 30 == 0 else f"Work {self.shown}"
            text = lengths(self.shown) if self.shown <= 4 else " ".join(WORDS[at:at + 120])
            self.windows.append(TextWindow(title, text,
                                           f"+{40 + self.shown % 5 * 60}+{40 + self.shown % 4 * 50}"))
        self.windows[self.shown % len(self.windows)].bring_to_front()

    def close(self):
        for window in self.windows:
            window.close()


class HalfHourTest(unittest.TestCase):
    def test_what_it_takes_does_not_grow(self):
        with tempfile.TemporaryDirectory(prefix="mnemora-long.") as name:
            self.folder = pathlib.Path(name)
            remember_texts_of_all_lengths(self.folder)
            self.observer = Observer(PROGRAM, self.folder)
            self.addCleanup(self.observer.stop)
            assistant, work = Assistant(self.folder), Work()
            self.addCleanup(assistant.close)
            self.addCleanup(work.close)
            self.readings, self.log_sizes = {}, []
            self.run_for(MINUTES * 60, assistant, work)
            events = len(self.observer.events())
            print(f"\n{events} events in {MINUTES:g} minutes")
            self.judge()
            self.assertGreater(events, MINUTES * 3)

    def run_for(self, seconds, assistant, work):
        began = time.monotonic()
        next_window = next_reading = next_question = began
        answered = False
        while (now := time.monotonic()) < began + seconds:
            if now >= next_window:
                work.step()
                next_window += SHOWING
            if now >= next_question:
                answered = "Work" in assistant.ask("work on threads of the store")
                next_question += 60
            if now >= next_reading:
                self.read((now - began) / 60, assistant)
                next_reading += READING
            time.sleep(max(0, min(next_window, next_reading, next_question) - time.monotonic()))
        self.assertTrue(answered, "the last answer holds nothing of what was shown")

    def read(self, minute, assistant):
        groups = [("program", self.observer.process.pid), ("server", assistant.process.pid)]
        groups += [("engines", pid) for pid in self.observer.children()]
        for group, pid in groups:
            try:
                self.readings.setdefault((group, pid), []).append((minute, reading_of(pid)))
            except OSError:
                continue  # a child that has just ended
        log = self.observer.database.with_name(self.observer.database.name + "-wal")
        self.log_sizes.append(log.stat().st_size / 2**20 if log.exists() else 0.0)

    def judge(self):
        for (group, pid), readings in self.readings.items():
            for index, (_, values) in enumerate(readings):
                before = readings[max(index - 4, 0)]
                passed = readings[index][0] - before[0]
                values["CPU s/min"] = (values["cpu"] - before[1]["cpu"]) / passed if passed else 0.0
            settled = [reading for reading in readings if reading[0] >= SETTLING]
            if len(settled) < 8:
                print(f"{group} {pid}: too short-lived to judge")
                continue
            for what in ("private MiB", "descriptors", "threads", "CPU s/min"):
                self.judge_one(group, what, [(minute, values[what]) for minute, values in settled])
        print(f"log         largest {max(self.log_sizes):.2f} MiB, at the end {self.log_sizes[-1]:.2f}")
        self.assertLess(max(self.log_sizes), WAL_BOUND)

    def judge_one(self, group, what, points):
        growth = slope(points)
        each = " ".join(f"{value:.3g}" for _, value in points[::8])
        print(f"{group:<8} {what:<12} {growth:+.4f} a minute   every second minute: {each}")
        with self.subTest(group=group, what=what):
            if what == "private MiB":
                self.assertLess(growth, MEMORY_GROWTH)
                if group == "engines":
                    self.assertLess(max(value for _, value in points), ENGINES_MEMORY)
            elif what == "CPU s/min":
                self.assertLess(growth, CPU_GROWTH)
            else:  # a window more or less may be watched at a moment, but none is left behind
                third = len(points) // 3
                first, last = points[:third], points[-third:]
                self.assertLessEqual(min(value for _, value in last),
                                     max(value for _, value in first))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
