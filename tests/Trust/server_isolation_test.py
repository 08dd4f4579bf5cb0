"""What the tool server asks of the system while it serves: no socket of any kind, no program, no
file but its own and the system's.

Usage: server_isolation_test.py PROGRAM
"""
import json
import os
import pathlib
import re
import sqlite3
import stat
import subprocess
import sys
import tempfile
import unittest

import traced
from windows import wait_until

PROGRAM = pathlib.Path(sys.argv[1]).resolve()
PREFIX = PROGRAM.parents[1]

# Below the program's own prefix.
OWN = ("lib/mnemora/", "share/mnemora/models/embedding/")
# Everything of the system's that the server looks at, to the letter.
SYSTEM = re.compile("|".join((
    r"/etc/ld\.so\.(cache|preload)",
    r"(/usr)?/lib(64)?(/[\w.-]+)*/[\w+.-]+\.so(\.[\d.]+)?",  # its libraries, tried in each folder
    r"/usr/lib/locale/.*|/usr/share/locale/locale\.alias|/usr/lib/[\w-]+/gconv/gconv-modules.*",
    r"/etc/localtime|/etc/timezone|/usr/share/zoneinfo/.*",
    r"/etc/nsswitch\.conf|/etc/passwd",  # the home folder, where HOME isn't set
    r"/dev/(null|urandom)",
    r"/proc/self/(exe|maps|status|cgroup|mountinfo)|/proc/(cpuinfo|meminfo)",
    r"/proc/sys/vm/overcommit_memory",
    r"/sys/devices/system/(cpu|node)/.*|/sys/fs/cgroup/.*")))
WRITABLE = ("data/Mnemora/", "cache/mnemora/")


def call(tool, **arguments):
    return json.dumps({"jsonrpc": "2.0", "id": 1, "method": "tools/call",
                       "params": {"name": tool, "arguments": arguments}})


class ServerIsolationTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="mnemora-trust.")
        self.addCleanup(folder.cleanup)
        self.home = pathlib.Path(folder.name).resolve()
        self.project = self.home / "project"
        self.project.mkdir()
        self.environment = {"HOME": str(self.home), "PATH": os.environ["PATH"],
                            "LANG": "de_DE.UTF-8", "TZ": "Europe/Berlin",
                            "XDG_DATA_HOME": str(self.home / "data"),
                            "XDG_CACHE_HOME": str(self.home / "cache")}

    def serve(self, *lines, before=(), umask=0o022):
        return subprocess.run([*before, PROGRAM, "--mcp"], input="\n".join(lines) + "\n",
                              env=self.environment, cwd=self.project, capture_output=True,
                              text=True, check=True, timeout=120, umask=umask)

    def remember(self, title):
        with sqlite3.connect(self.home / "data/Mnemora/mnemora.sqlite") as database:
            database.execute("INSERT INTO events (ts, source, title, body) VALUES (1, 'screen', ?, "
                             "'The mechanic replaced the brakes of the car.')", (title,))
        database.close()

    def traced_session(self):
        """A start with something to embed, searches by word and by meaning, the other tools."""
        trace = self.home / "trace"
        calls = "%file,%network,%process,prctl"
        answer = self.serve(call("search_memory", query="automobile repair"),
                            call("latest_context"), call("active_threads", hours=1e9),
                            before=traced.strace(trace, calls))
        self.assertEqual(answer.stdout.count("Garage"), 3, answer.stdout + answer.stderr)
        return traced.Trace(trace)

    def test_opens_no_socket_and_no_file_but_its_own(self):
        traced.require_tracing()
        self.serve()
        for start in ("first", "with a compiled model in the cache"):
            with self.subTest(start=start):
                self.remember("Garage" if start == "first" else "Other")
                trace = self.traced_session()
                self.assertEqual(trace.socket_families(), set())
                self.assertEqual(trace.programs(), [str(PROGRAM)])
                self.look_at_files(trace.opened())
                self.look_at_itself(trace)

    def look_at_files(self, attempts):
        own = [str(PREFIX / folder) for folder in OWN]
        writable = [str(self.home / folder) for folder in WRITABLE]
        self.assertTrue(any(writes for _, writes in attempts), "nothing was seen")
        for path, writes in attempts:
            with self.subTest(path=path, writes=writes):
                inside = any((path + "/").startswith(folder) for folder in writable)
                if writes:
                    self.assertTrue(inside or path in ("/dev/null", "/proc/self/coredump_filter"))
                elif not inside and not any(path.startswith(folder) for folder in own):
                    self.assertRegex(path, f"^({SYSTEM.pattern})$")

    def look_at_itself(self, trace):
        self.assertIn(("prctl", "PR_SET_DUMPABLE, SUID_DUMP_DISABLE", "0"), trace.calls)
        # What stands in the folder that a host chose is nobody's business.
        self.assertIn(("chdir", '"/"', "0"), trace.calls)
        self.assertEqual([call for call in trace.calls if f'"{self.project}' in call[1]], [])

    def test_leaves_no_core_file(self):
        host = PREFIX / "libexec/mnemora/mnemora-browser-host"
        # Root may raise a hard limit.
        as_user = ["setpriv", "--bounding-set", "-sys_resource"] if os.geteuid() == 0 else []
        for command in ([PROGRAM, "--mcp"], [host, "chrome-extension://id/"],
                        [*as_user, "prlimit", "--core=0:0", host, "chrome-extension://id/"]):
            with self.subTest(command=command), subprocess.Popen(
                    command, stdin=subprocess.PIPE, env=self.environment, stdout=subprocess.DEVNULL,
                    stderr=subprocess.DEVNULL) as process:
                wait_until(lambda: traced.leaves_no_core(process.pid), what="its limit")
                process.stdin.close()
        self.remember("what another program is just writing keeps an erasure waiting")
        with sqlite3.connect(self.home / "data/Mnemora/mnemora.sqlite") as other:
            other.execute("BEGIN IMMEDIATE")
            with subprocess.Popen([PREFIX / "bin/mnemora-erase", "--all", "--yes"],
                                  env=self.environment, stdout=subprocess.DEVNULL) as process:
                wait_until(lambda: traced.leaves_no_core(process.pid), what="its limit")
                other.rollback()
        other.close()

    def test_keeps_everything_private_whatever_the_umask(self):
        for mask in (0o000, 0o777):
            with self.subTest(umask=oct(mask)):
                for name in ("data", "cache"):
                    self.environment[f"XDG_{name.upper()}_HOME"] = str(self.home / oct(mask) / name)
                self.serve(call("search_memory", query="anything"), umask=mask)
                made = sorted((self.home / oct(mask)).rglob("*"))
                self.assertIn("mnemora.sqlite", [path.name for path in made])
                for path in made:
                    wanted = 0o700 if path.is_dir() else 0o600
                    self.assertEqual(oct(stat.S_IMODE(path.lstat().st_mode)), oct(wanted), path)

    def test_a_link_to_a_folder_of_the_users_own_is_followed(self):
        (self.home / "elsewhere").mkdir()
        (self.home / "data").symlink_to(self.home / "elsewhere")
        self.serve()
        self.assertTrue((self.home / "elsewhere/Mnemora/mnemora.sqlite").is_file())

    @unittest.skipIf(os.geteuid() != 0, "only root can give files away")
    def test_a_folder_of_somebody_else_opens_as_a_missing_one_does(self):
        self.serve()
        folder = self.home / "data/Mnemora"
        os.chown(folder, 65534, 65534)
        refused = self.serve(call("latest_context"))
        os.chown(folder, 0, 0)
        folder.rename(self.home / "away")
        folder.parent.chmod(0o755)
        folder.write_text("no folder")
        missing = self.serve(call("latest_context"))
        self.assertEqual(refused.stdout, missing.stdout)
        self.assertEqual(refused.stderr, missing.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
