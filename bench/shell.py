#!/usr/bin/python3
"""What a person waits for at the shell, and what an idle program costs.

    shell.py [--minutes M] [--program PROGRAM] [launch] [menu] [idle]

`launch`: from starting the process to its icon on the message bus, on an empty memory; the start
of a second one until it has handed over; the end after it was asked to quit. `menu`: opening the
menu on 200,000 events, from the panel's request to the answer. `idle`: CPU seconds and wake-ups in M
minutes (10 unless given) in which nothing changes on screen.
"""
import argparse
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "scripts" / "session"), str(ROOT / "tests" / "desktop")]
ICON_BOUND, MENU_BOUND = 400, 20  # milliseconds
ROUNDS = 11
SETTLING = 20  # seconds after the first event, in which weights are loaded


def milliseconds_since(began):
    return (time.perf_counter() - began) * 1000


def tell(what, times, bound=None):
    """Prints median and worst; whether the median keeps to the bound."""
    median = statistics.median(times)
    print(f"  {what:<34} median {median:7.1f} ms   worst {max(times):7.1f} ms"
          + (f"   bound {bound} ms" if bound else ""))
    return bound is None or median <= bound


def started(program, folder):
    """The program with its icon on a panel, and how long that took."""
    from observer import Observer
    from status_panel import StatusPanel
    panel = StatusPanel()
    began = time.perf_counter()
    observer = Observer(program, folder)
    while not panel.items:
        panel.turn()
        time.sleep(0.001)
    return observer, panel, milliseconds_since(began)


def launch(options, folder):
    from observer import environment_for
    from windows import wait_until
    icons, seconds, ends = [], [], []
    for round_ in range(ROUNDS + 1):
        observer, panel, icon = started(options.program, folder)
        wait_until(lambda: "capture started" in observer.log.read_text(), what="the launch")
        began = time.perf_counter()
        subprocess.run([options.program], env=environment_for(folder), check=True,
                       stderr=subprocess.DEVNULL)
        second = milliseconds_since(began)
        began = time.perf_counter()
        observer.stop()
        end = milliseconds_since(began)
        panel.close()
        if round_:  # the first one warms the disk
            icons.append(icon)
            seconds.append(second)
            ends.append(end)
    tell("second start to its end", seconds)
    tell("asked to quit to the end", ends, 1000)
    return tell("start to status icon", icons, ICON_BOUND)


def menu(options, folder):
    made = subprocess.run([ROOT / "build/release/bench/make-memory", "200000"], check=True,
                          capture_output=True, text=True).stdout.strip()
    shutil.copytree(pathlib.Path(made) / "Mnemora", folder / "data" / "Mnemora")
    observer, panel, _ = started(options.program, folder)
    panel.property("Menu")
    times = []
    for _ in range(ROUNDS):
        began = time.perf_counter()
        panel.open_menu()
        times.append(milliseconds_since(began))
        time.sleep(0.3)  # a tick's insert may lie in between, as on a user's desktop
    observer.stop()
    panel.close()
    print(f"  {'first opening':<34}        {times[0]:7.1f} ms")
    return tell("opening on 200,000 events", times, MENU_BOUND)


def wakeups(pid):
    """Voluntary context switches of all threads, each of which a wake-up followed (proc(5))."""
    total = 0
    for status in pathlib.Path(f"/proc/{pid}/task").glob("*/status"):
        for line in status.read_text(encoding="utf-8").splitlines():
            if line.startswith("voluntary_ctxt_switches"):
                total += int(line.split()[1])
    return total


def engines_seconds(observer):
    """CPU seconds of the children, those that have ended included (proc(5), stat)."""
    with open(f"/proc/{observer.process.pid}/stat", encoding="utf-8") as file:
        fields = file.read().rpartition(")")[2].split()
    ended = (int(fields[13]) + int(fields[14])) / os.sysconf("SC_CLK_TCK")
    return ended + observer.cpu_seconds_of_children()


def idle(options, folder):
    from windows import TextWindow
    window = TextWindow("A letter", "Dear reader, nothing changes here.")
    observer, panel, _ = started(options.program, folder)
    observer.wait_for(lambda event: event["body"], "the first content", 90)
    time.sleep(SETTLING)
    before = observer.cpu_seconds(), engines_seconds(observer), \
        wakeups(observer.process.pid)
    began = time.monotonic()
    time.sleep(options.minutes * 60)
    seconds = time.monotonic() - began
    print(f"  {seconds / 60:.1f} minutes: "
          f"{observer.cpu_seconds() - before[0]:.2f} CPU s of the program, "
          f"{engines_seconds(observer) - before[1]:.2f} of its engines, "
          f"{(wakeups(observer.process.pid) - before[2]) / seconds:.1f} wake-ups a second")
    observer.stop()
    panel.close()
    window.close()
    return True


PARTS = {"launch": launch, "menu": menu, "idle": idle}


def main():
    parser = argparse.ArgumentParser(description="What the shell costs.")
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--program", default=str(ROOT / "build/release/bin/mnemora"))
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("parts", nargs="*", choices=[*PARTS, []])
    options = parser.parse_args()
    good = True
    for part in options.parts or PARTS:
        if not options.inside:
            # Debian's own Python has the message bus.
            done = subprocess.run([ROOT / "scripts/virtual-session", "--a11y", "--",
                                   "/usr/bin/python3", __file__, "--inside", "--minutes",
                                   str(options.minutes), "--program", options.program, part],
                                  check=False)
            good = done.returncode == 0 and good
            continue
        print(part, flush=True)
        with tempfile.TemporaryDirectory(prefix="mnemora-bench.") as name:
            good = PARTS[part](options, pathlib.Path(name)) and good
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
