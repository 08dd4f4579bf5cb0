"""The program itself, observing the desktop into a data folder of its own."""
import os
import signal
import sqlite3
import subprocess

from windows import PATIENCE, wait_until


def environment_for(folder):
    """The caller's environment with every folder of the program's below `folder`."""
    places = {"XDG_DATA_HOME": "data", "XDG_CONFIG_HOME": "config", "XDG_CACHE_HOME": "cache"}
    return dict(os.environ, **{name: str(folder / place) for name, place in places.items()})


def cpu_seconds(pid):
    """User and system time of a process, all its threads included (proc(5), stat)."""
    with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class Observer:
    """Starts the program in the current display; its log is kept in `folder`/observer.log."""

    def __init__(self, program, folder):
        """`program` is its path, or a whole command that starts it."""
        command = [program] if isinstance(program, (str, os.PathLike)) else program
        self.database = folder / "data" / "Mnemora" / "mnemora.sqlite"
        self.log = folder / "observer.log"
        with open(self.log, "wb") as log:
            self.process = subprocess.Popen(command, env=environment_for(folder), stderr=log,
                                            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)

    def events(self):
        """The stored events as dictionaries, oldest first; empty before the first one."""
        if self.process.poll() is not None:
            raise RuntimeError(f"the program ended with status {self.process.returncode}:\n"
                               + self.log.read_text(errors="replace"))
        if not self.database.exists():
            return []
        connection = sqlite3.connect(f"file:{self.database}?mode=ro", uri=True, timeout=PATIENCE)
        connection.row_factory = sqlite3.Row
        try:
            return [dict(row) for row in connection.execute("SELECT * FROM events ORDER BY id")]
        except sqlite3.OperationalError:  # opened between the file's creation and the schema's
            return []
        finally:
            connection.close()

    def wait_for(self, matches, what, seconds=PATIENCE):
        """The first stored event for which `matches(event)` holds."""
        def stored():
            return next((event for event in self.events() if matches(event)), None)
        try:
            return wait_until(stored, seconds, what)
        except TimeoutError as error:
            kept = "".join(f"\n  {event['app']}: {event['title']}, {event['url']}, "
                           f"{len(event['body'] or '')} characters" for event in self.events())
            raise TimeoutError(f"{error}; kept were{kept or ' none'}") from None

    def wait_for_title(self, title):
        """The first stored event with this title."""
        return self.wait_for(lambda event: event["title"] == title, f"an event titled '{title}'")

    def children(self):
        """The process ids of the children that it started."""
        task = f"/proc/{self.process.pid}/task"
        found = []
        for thread in os.listdir(task):
            with open(f"{task}/{thread}/children", encoding="ascii") as file:
                found += [int(pid) for pid in file.read().split()]
        return found

    def cpu_seconds(self):
        """What the program itself has used so far, its ended children left out."""
        return cpu_seconds(self.process.pid)

    def cpu_seconds_of_children(self):
        return sum(cpu_seconds(pid) for pid in self.children())

    def kept_bytes(self):
        """All bytes of all files in the data folder, database and its companions alike."""
        files = sorted(path for path in self.database.parent.rglob("*") if path.is_file())
        return b"".join(path.read_bytes() for path in files)

    def stop(self):
        """Asks the program to end, as a session does at logout; returns its exit status."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        try:
            return self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise
