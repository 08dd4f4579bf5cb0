"""Has the installed program observe a window, and asks its tool server: installed_program.py WORD,
inside a desktop session. Prints "found WORD" in the end.
"""
import json
import os
import pathlib
import sqlite3
import subprocess
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts" / "session"))
from windows import PATIENCE, wait_until, xdotool

PROGRAM = "/usr/bin/mnemora"
DATABASE = pathlib.Path(os.environ["HOME"]) / ".local/share/Mnemora/mnemora.sqlite"
word = sys.argv[1]


def kept(title):
    """The body of an event with this title and its vector, once there is one, else None."""
    if not DATABASE.exists():
        return None
    connection = sqlite3.connect(f"file:{DATABASE}?mode=ro", uri=True, timeout=PATIENCE)
    try:
        row = connection.execute("SELECT body FROM events JOIN embeddings ON event_id = id "
                                 "WHERE title = ? AND body <> ''", [title]).fetchone()
        return row and row[0]
    except sqlite3.OperationalError:  # before the schema
        return None
    finally:
        connection.close()


def ask(*requests):
    """The replies of a tool server to these requests."""
    lines = "".join(json.dumps({"jsonrpc": "2.0", "id": number, **request}) + "\n"
                    for number, request in enumerate(requests))
    done = subprocess.run([PROGRAM, "--mcp"], input=lines, capture_output=True, text=True,
                          check=True, timeout=PATIENCE)
    return [json.loads(line) for line in done.stdout.splitlines()]


def in_front(title):
    """Whether the window is; it is raised otherwise: where accessibility is slow to come up, the
    program opens its own window first."""
    if xdotool("getactivewindow", "getwindowname") == title:
        return True
    for window in xdotool("search", "--onlyvisible", "--name", f"^{title}$").split()[:1]:
        xdotool("windowactivate", window)
    return False


# No terminal: a root like this one has none to give to users.
WINDOW = """
import sys, tkinter
window = tkinter.Tk()
window.title(sys.argv[1])
tkinter.Label(window, text=sys.argv[2], font=("DejaVu Sans", 16), padx=40, pady=80).pack()
window.mainloop()"""
title = f"Notes {word}"
window = None
with tempfile.TemporaryFile("w+") as log:
    program = subprocess.Popen([PROGRAM], stderr=log)
    try:
        window = subprocess.Popen(["python3", "-c", WINDOW, title,
                                   f"The {word} worktop is made of oak.\nDelivery on Friday."])
        body = wait_until(lambda: in_front(title) and kept(title), what="the window in the memory")
    finally:
        if window:
            window.terminate()
        program.terminate()
        status = program.wait(PATIENCE)
        log.seek(0)
        print(log.read())
assert status == 0, status
assert "worktop is made of oak" in body, body
_, answer = ask({"method": "initialize", "params": {}},
                {"method": "tools/call", "params": {
                    "name": "search_memory",
                    "arguments": {"query": "timber for the kitchen", "limit": 3}}})
assert title in answer["result"]["content"][0]["text"], answer
print(f"found {word}")
