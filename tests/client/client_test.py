"""The tool server as an assistant's host meets it: the protocol's reference client, and the bare
process around it.

Usage: client_test.py [PROGRAM]. The report goes to standard error; standard output gets one line,
the number of tests that passed and the number that failed.
"""
import asyncio
import json
import os
import pathlib
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts" / "session"))
import mcp
from assistant import connected, text_of

PROGRAM = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/release/bin/mnemora")
BANNER = ("[mnemora] MCP server up (stdio). "
          "Tools: search_memory, latest_context, active_threads\n")
NOTHING = "No matching activity in the mnemora."
DAY = 1_715_000_000.75  # 2024-05-06T12:53:20Z and a fraction, which no answer shows

# (seconds before now or at a fixed time, source, app, kind, person, title, url, body)
HISTORY = [
    (DAY, "screen", "Text Editor", "window", None, "Garage — notes.txt", None,
     "The automobile needs new brake pads.\nThe mechanic can do it on Thursday."),
    (DAY + 60, "browser", "Chromium", "page", None, "量子计算入门", "https://example.org/quantum/",
     "量子计算机利用量子叠加。"),
    (DAY + 120, "screen", "Terminal", "window", None, "Password reset", None, None),
    (DAY + 180, "audio", "Meeting", "meeting", "Them", "Standup", None,
     "The quarterly budget goes to Crème & Söhne."),
]


class ServerTest(unittest.IsolatedAsyncioTestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="mnemora-client.")
        self.addCleanup(folder.cleanup)
        self.home = pathlib.Path(folder.name)
        # As small as a host's environment gets: no display, no locale, no folders but the home.
        self.environment = {"HOME": folder.name, "PATH": os.environ["PATH"],
                            "XDG_DATA_HOME": str(self.home / "data"),
                            "XDG_CACHE_HOME": str(self.home / "cache")}
        # What a sanitizer needs has to reach the server, whatever else is left out.
        self.environment |= {name: value for name, value in os.environ.items()
                             if name.endswith("SAN_OPTIONS") or name == "LD_PRELOAD"}
        self.log = open(self.home / "server.log", "w+", encoding="utf-8")
        self.addCleanup(self.log.close)

    def remember(self, *events):
        """Stores events behind the program's back, in the schema that it makes."""
        self.serve(b"")
        with sqlite3.connect(self.home / "data/Mnemora/mnemora.sqlite") as database:
            database.executemany(
                "INSERT INTO events (ts, source, app, kind, person, title, url, body)"
                " VALUES (?, ?, ?, ?, ?, ?, ?, ?)", events)
        database.close()

    def serve(self, lines):
        """One run of the bare process; its input ends after these lines."""
        return subprocess.run([PROGRAM, "--mcp"], input=lines, env=self.environment, timeout=60,
                              capture_output=True, check=False)

    def client(self, mode="auto"):
        return connected(PROGRAM, self.environment, self.log, mode)

    async def test_falls_back_to_the_protocol_version_that_the_server_speaks(self):
        for mode in ("auto", "legacy"):
            with self.subTest(mode=mode):
                async with self.client(mode) as client:
                    self.assertEqual(client.protocol_version, "2024-11-05")
                    self.assertEqual(client.server_info.name, "mnemora")
                    self.assertEqual(client.server_info.version, "0.1.0")

    async def test_lists_three_tools_with_their_arguments(self):
        async with self.client() as client:
            tools = (await client.list_tools()).tools
        arguments = {tool.name: {name: schema["type"] for name, schema
                                 in tool.input_schema["properties"].items()} for tool in tools}
        self.assertEqual(list(arguments), ["search_memory", "latest_context", "active_threads"])
        self.assertEqual(arguments, {
            "search_memory": {"query": "string", "limit": "integer"},
            "latest_context": {"limit": "integer"},
            "active_threads": {"hours": "number", "limit": "integer"}})
        self.assertEqual([tool.input_schema.get("required") for tool in tools],
                         [["query"], None, None])

    async def test_answers_an_empty_memory_with_its_sentence(self):
        async with self.client() as client:
            self.assertEqual(await text_of(client, "search_memory", query="anything"), NOTHING)
            self.assertEqual(await text_of(client, "latest_context"), NOTHING)
            self.assertEqual(await text_of(client, "active_threads", hours=24), NOTHING)

    async def test_finds_an_event_by_a_word_and_by_its_meaning(self):
        self.remember(*HISTORY)
        cases = {"quarterly": "Standup", "量子计算入门": "量子计算入门", "creme": "Standup",
                 "car repair appointment": "Garage — notes.txt"}
        async with self.client() as client:
            for query, title in cases.items():
                with self.subTest(query=query):
                    answer = await text_of(client, "search_memory", query=query, limit=1)
                    self.assertIn(f"\n  {title}\n", answer)
        self.log.seek(0)
        self.assertIn("[mnemora] backfilled 4 embeddings\n", self.log.read())

    async def test_renders_the_newest_events_first_and_within_the_limit(self):
        self.remember(*HISTORY)
        async with self.client() as client:
            answer = await text_of(client, "latest_context", limit=3)
        self.assertEqual(answer, "\n\n".join([
            "[2024-05-06T12:56:20Z] audio · Meeting · Them\n  Standup\n"
            "  The quarterly budget goes to Crème & Söhne.",
            "[2024-05-06T12:55:20Z] screen · Terminal\n  Password reset",
            "[2024-05-06T12:54:20Z] browser · Chromium\n  量子计算入门\n"
            "  https://example.org/quantum/\n  量子计算机利用量子叠加。"]))

    async def test_counts_the_threads_of_the_last_hours(self):
        now = time.time()
        mail = ("screen", "Mail", "window", None, "Inbox", None, None)
        self.remember((now - 7 * 3600, *mail), (now - 7200, *mail), (now - 60, *mail),
                      (now - 3600, "audio", "Meeting", "meeting", "Them", "Standup", None, "Hi."))
        async with self.client() as client:
            for hours, threads in ((6, [("Inbox", "2"), ("Standup", "1")]),
                                   (0.5, [("Inbox", "1")])):
                answer = await text_of(client, "active_threads", hours=hours)
                blocks = [block.split("\n  ")[1:] for block in answer.split("\n\n")]
                self.assertEqual([tuple(block) for block in blocks], threads)

    async def test_refuses_an_unknown_tool_and_goes_on(self):
        async with self.client() as client:
            with self.assertRaises(mcp.MCPError) as refused:
                await client.call_tool("search", {})
            self.assertEqual((refused.exception.code, refused.exception.message),
                             (-32602, "Unknown tool search"))
            self.assertEqual(await text_of(client, "latest_context"), NOTHING)

    async def test_serves_several_clients_on_one_memory(self):
        self.remember(*HISTORY)

        async def ask():
            async with self.client() as client:
                return await text_of(client, "search_memory", query="budget", limit=1)
        answers = await asyncio.gather(*(ask() for _ in range(4)))
        self.assertIn("Standup", answers[0])
        self.assertEqual(len(set(answers)), 1)

    def test_keeps_standard_output_for_replies_and_ends_with_its_input(self):
        # The last request has no line feed, the others meet junk between them.
        run = self.serve(b'{"jsonrpc":"2.0","id":1,"method":"ping"}\n\nnot json\n[]\n'
                         b'{"jsonrpc":"2.0","method":"notifications/initialized"}\r\n'
                         b'{"jsonrpc":"2.0","id":"b","method":"tools/call"}')
        self.assertEqual(run.returncode, 0)
        self.assertEqual([json.loads(line) for line in run.stdout.splitlines()], [
            {"jsonrpc": "2.0", "id": 1, "result": {}},
            {"jsonrpc": "2.0", "id": "b", "error": {"code": -32602, "message": "Unknown tool "}}])
        self.assertEqual(run.stderr.decode(), BANNER)

    def test_ends_cleanly_when_its_client_has_gone(self):
        process = subprocess.Popen([PROGRAM, "--mcp"], env=self.environment, stderr=self.log,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        process.stdout.close()
        process.stdin.write(b'{"jsonrpc":"2.0","id":1,"method":"ping"}\n' * 3)
        process.stdin.close()
        self.assertEqual(process.wait(30), 0)


def main():
    if not os.access(PROGRAM, os.X_OK):
        sys.exit(f"{PROGRAM} isn't there; build it first")
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(ServerTest)
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    # Subtests of one test may fail more than once; it is still one test.
    broken = {getattr(case, "test_case", case).id() for case, _ in result.failures + result.errors}
    print(result.testsRun - len(broken), len(broken))
    sys.exit(0 if result.wasSuccessful() else 1)


if __name__ == "__main__":
    main()
