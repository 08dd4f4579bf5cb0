"""What an assistant's host waits for: the start of the tool server, and its answers.

Prints, for memories of several sizes: the time from starting the process to the reply of
"initialize", the memory it holds then, the first search (weights from a warm cache), and the
median and 95th percentile of the searches that follow.
"""

import json
import os
import statistics
import subprocess
import tempfile
import time
from pathlib import Path

TREE = Path(__file__).resolve().parent.parent / "build" / "release"
QUERIES = ["quarterly budget plan", "error in the build log", "who wrote about the release",
           "flight to Lisbon", "dentist", "meeting notes of last week", "ab bb", "invoice 2291"]


class Server:
    """One tool server on the data folder DATA; the cache folder is shared by all."""

    def __init__(self, data, cache):
        environment = dict(os.environ, XDG_DATA_HOME=str(data), XDG_CACHE_HOME=str(cache))
        self.began = time.perf_counter()
        self.process = subprocess.Popen([TREE / "bin" / "mnemora", "--mcp"], env=environment,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL)

    def ask(self, method, **params):
        line = json.dumps({"jsonrpc": "2.0", "id": 1, "method": method, "params": params})
        began = time.perf_counter()
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()
        reply = json.loads(self.process.stdout.readline())
        assert "result" in reply, reply
        return (time.perf_counter() - began) * 1000

    def search(self, query):
        return self.ask("tools/call", name="search_memory", arguments={"query": query})

    def memory(self):
        """RssAnon and RssFile in MiB."""
        status = Path(f"/proc/{self.process.pid}/status").read_text()
        fields = dict(line.split(":", 1) for line in status.splitlines())
        return tuple(int(fields[name].split()[0]) / 1024 for name in ("RssAnon", "RssFile"))

    def close(self):
        self.process.stdin.close()
        self.process.wait()


def start_to_reply(data, cache):
    server = Server(data, cache)
    server.ask("initialize", protocolVersion="2024-11-05", capabilities={},
               clientInfo={"name": "bench", "version": "0"})
    elapsed = (time.perf_counter() - server.began) * 1000
    memory = server.memory()
    server.close()
    return elapsed, memory


def measure(label, data, cache):
    starts = [start_to_reply(data, cache) for _ in range(11)]
    anon, mapped = starts[-1][1]
    print(f"{label:>14}  start to first reply {statistics.median(t for t, _ in starts):7.1f} ms"
          f"  RssAnon {anon:5.1f} MiB  RssFile {mapped:6.1f} MiB", end="")
    firsts = []
    for _ in range(3):
        server = Server(data, cache)
        server.ask("ping")
        firsts.append(server.search(QUERIES[0]))
        server.close()
    print(f"  first search {statistics.median(firsts):6.1f} ms")
    server = Server(data, cache)
    server.search(QUERIES[0])
    times = sorted(server.search(QUERIES[i % len(QUERIES)]) for i in range(80))
    anon, mapped = server.memory()
    server.close()
    print(f"{'':>14}  search_memory median {statistics.median(times):7.1f} ms"
          f"  95% {times[int(len(times) * 0.95)]:7.1f} ms"
          f"  RssAnon {anon:5.1f} MiB  RssFile {mapped:6.1f} MiB afterwards")


def main():
    with tempfile.TemporaryDirectory() as folder:
        cache = Path(folder) / "cache"
        empty = Path(folder) / "empty"
        warming = Server(empty, cache)
        warming.search("fill the cache of compiled weights")
        warming.close()
        measure("empty store", empty, cache)
        for count in (10_000, 50_000, 200_000):
            made = subprocess.run([TREE / "bench" / "make-memory", str(count)], check=True,
                                  capture_output=True, text=True)
            measure(f"{count:,} events", made.stdout.strip(), cache)


if __name__ == "__main__":
    main()
