"""A program and everything that it starts, seen from outside by their system calls."""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts" / "session"))
from windows import wait_until

# One line of strace -f -y: process, call, arguments and result, unless the line is a part of one.
CALL = re.compile(r"^(\d+) +(\w+)\((.*)\) += (-?\w+)")
OPENING = ("open", "openat", "openat2", "creat")


def is_possible():
    """False where processes can't be traced at all, in a container without ptrace."""
    return shutil.which("strace") is not None and subprocess.run(
        ["strace", "-f", "-o", os.devnull, "true"], capture_output=True, check=False).returncode == 0


def require_tracing():
    """Skips the test where processes can't be traced."""
    if not is_possible():
        raise unittest.SkipTest("strace isn't installed, or not allowed to trace here")


def leaves_no_core(pid):
    """Whether a process may leave no core file, nor feed one to a handler (core(5)): at a soft
    limit of 1, or else by putting nothing into it. At 0 a handler would be fed."""
    facts = pathlib.Path(f"/proc/{pid}")
    limits = (facts / "limits").read_text(encoding="ascii")
    return (re.search(r"^Max core file size +1 ", limits, re.MULTILINE) is not None
            or int((facts / "coredump_filter").read_text(encoding="ascii"), 16) == 0)


def strace(trace, calls):
    """The words in front of a command that write its calls, and its children's, to `trace`. The
    command keeps the process id, so that signals reach it and not the tracer."""
    return ["strace", "-D", "-f", "-y", "-s", "4096", "--seccomp-bpf", "-e", "trace=" + calls,
            "-o", str(trace)]


class Trace:
    """The calls of a trace, once the tracer has written the end of every process in it."""

    def __init__(self, path):
        wait_until(lambda: self.is_whole(path.read_text(errors="replace")), what="the tracer's end")
        self.calls = []
        unfinished = {}
        for line in path.read_text(errors="replace").splitlines():
            process = line.split(" ", 1)[0]
            if line.endswith("<unfinished ...>"):
                unfinished[process] = line.removesuffix("<unfinished ...>")
                continue
            resumed = re.match(r"^\d+ +<\.\.\. \w+ resumed>(.*)", line)
            if resumed:
                line = unfinished.pop(process, "") + resumed[1]
            found = CALL.match(line)
            if found:
                self.calls.append(found.groups()[1:])

    @staticmethod
    def is_whole(text):
        seen = set(re.findall(r"^(\d+) ", text, re.MULTILINE))
        ended = set(re.findall(r"^(\d+) +\+\+\+ (?:exited|killed|superseded)", text, re.MULTILINE))
        return seen == ended

    def named(self, *names):
        return [call for call in self.calls if call[0] in names]

    def socket_families(self):
        return {arguments.split(",")[0] for _, arguments, _ in self.named("socket", "socketpair")}

    def programs(self):
        """The programs that were really started, by their paths."""
        return [quoted(arguments) for _, arguments, result in self.named("execve") if result == "0"]

    def opened(self):
        """(path, whether it was to be changed) of every attempt to open a file."""
        attempts = []
        for name, arguments, _ in self.named(*OPENING):
            path = quoted(arguments)
            folder = re.match(r"^\w+<([^>]*)>", arguments)
            if name.startswith("openat") and folder:
                path = os.path.join(folder[1], path)
            writes = name == "creat" or re.search(r"O_(WRONLY|RDWR|CREAT|TRUNC)", arguments)
            attempts.append((os.path.normpath(path), bool(writes)))
        return attempts


def quoted(arguments):
    return re.search(r'"((?:[^"\\]|\\.)*)"', arguments)[1]
