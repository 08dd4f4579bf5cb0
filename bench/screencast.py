#!/usr/bin/python3
"""What an open screen cast costs everybody: CPU seconds a minute in a private Wayland session.

    screencast.py [--minutes M] [--program PROGRAM]

First on a screen on which nothing changes, then on one that changes ten times a second. The
compositor has no graphics card here, which makes its part dearer than on a desktop.
"""
import argparse
import contextlib
import importlib.util
import os
import pathlib
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "scripts" / "session"), str(ROOT / "tests" / "desktop")]
LIBRARY = ROOT / "build/release/tests/Screen/libwithout-graphics-card.so"
SETTLING = 30  # seconds, in which the weights are loaded and the first screen is read
CHANGING = "while :; do date +%s.%N; sleep 0.1; done"


def load_meter():
    """From the bench beside this one, whose name the tests use as well."""
    spec = importlib.util.spec_from_file_location("bench_capture", ROOT / "bench" / "capture.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module.Meter


def process_named(name):
    """Of this session; sway is ours alone, as every user's."""
    found = subprocess.run(["pgrep", "-n", "-u", str(os.getuid()), "-x", name], check=True,
                           capture_output=True, text=True).stdout
    return [int(found)]


def inside(options):
    import screen_portal
    import wayland
    from accessible_program import AccessibleProgram
    from observer import Observer
    from windows import wait_until

    os.environ["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1"
    with contextlib.ExitStack() as stack:
        started = lambda thing: stack.enter_context(contextlib.closing(thing))
        portal = screen_portal.start(started, LIBRARY)
        folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="cast.")))
        observer = Observer(options.program, folder)
        stack.callback(observer.stop)
        window = AccessibleProgram(observer.process.pid)
        window.click("Grant: On-screen content")
        window.click("Allow")
        wait_until(lambda: "Turn Off" in window.buttons(), what="the grant")
        window.click("Close")
        groups = {"program": lambda: [observer.process.pid], "engines": observer.children,
                  "compositor": lambda: process_named("sway")}
        groups.update({name: lambda pid=started_one.process.pid: [pid]
                       for name, started_one in portal.items()})
        window.click("Continue") if "Continue" in window.buttons() else window.click(
            "Start remembering")
        for part, command in (("unchanged", "exec sleep infinity"), ("changing", CHANGING)):
            terminal = started(wayland.Started(["foot", "-T", part, "sh", "-c", "echo words; "
                                                + command]))
            wayland.bring_to_front(part)
            observer.wait_for(lambda event: event["title"] == part and event["body"],
                              "the first content", 90)
            time.sleep(SETTLING)
            meter = load_meter()(groups)
            time.sleep(options.minutes * 60)
            print(f"{part}, {options.minutes:.1f} minutes")
            for name, cost in meter.per_minute().items():
                print(f"  {name:<18} {cost:6.3f} CPU s/min", flush=True)
            terminal.close()


def parse():
    parser = argparse.ArgumentParser()
    parser.add_argument("--minutes", type=float, default=1.0)
    parser.add_argument("--program", default=str(ROOT / "build/release/bin/mnemora"))
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    return parser.parse_args()


if __name__ == "__main__":
    chosen = parse()
    if chosen.inside:
        inside(chosen)
    else:
        sys.exit(subprocess.run(
            [ROOT / "scripts" / "wayland-session", "--", "/usr/bin/python3", __file__, "--inside",
             "--minutes", str(chosen.minutes), "--program", chosen.program], check=False).returncode)
