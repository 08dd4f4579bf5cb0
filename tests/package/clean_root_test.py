"""The package in a root that has nothing of ours: installed, used, upgraded, removed.

Usage: clean_root_test.py PACKAGE.deb, as root of a root that can be thrown away, with the
repository's scripts beside this folder's parent.
"""
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

PACKAGE = pathlib.Path(sys.argv[1])
CHECK = pathlib.Path(__file__).resolve().parents[2]
SESSION = CHECK / "scripts" / "virtual-session"
USER, HOME = "somebody", pathlib.Path("/home/somebody")
DATABASE = HOME / ".local/share/Mnemora/mnemora.sqlite"
AUTOSTART = pathlib.Path("/etc/xdg/autostart/app.mnemora.Mnemora.desktop")
TIMEOUT = 300


def run(*command, **options):
    """What a command prints; fails the test with its output when it fails."""
    done = subprocess.run(command, capture_output=True, text=True, check=False, timeout=TIMEOUT,
                          **options)
    if done.returncode:
        raise AssertionError(f"{' '.join(map(str, command))} ended with {done.returncode}:\n"
                             f"{done.stdout}{done.stderr}")
    return done.stdout


def as_user(*command):
    return run("runuser", "-u", USER, "--", "env", "-C", HOME, f"HOME={HOME}", *command)


def apt(*arguments):
    return run("env", "DEBIAN_FRONTEND=noninteractive", "apt-get", "-q", "-y",
               "--no-install-recommends", "-o", "Dpkg::Options::=--force-confold",
               "-o", "Dpkg::Use-Pty=0", *arguments)


def installed_files():
    return [path for path in map(pathlib.Path, run("dpkg", "-L", "mnemora").splitlines())
            if path.is_file() and not path.is_symlink()]


def digest():
    return hashlib.sha256(DATABASE.read_bytes()).hexdigest()


def next_version():
    """The same package with a higher version and another autostart entry."""
    folder = CHECK / "next"
    run("dpkg-deb", "--raw-extract", PACKAGE, folder)
    control = folder / "DEBIAN" / "control"
    control.write_text(re.sub(r"(?m)^Version: .*", lambda line: line[0] + "+next",
                              control.read_text()))
    with open(folder / AUTOSTART.relative_to("/"), "a", encoding="utf-8") as entry:
        entry.write("X-Next=true\n")
    made = CHECK / "next.deb"
    run("dpkg-deb", "-Zzstd", "-z1", "--build", folder, made)
    shutil.rmtree(folder)
    return made


class CleanRootTest(unittest.TestCase):
    def test_installs_runs_upgrades_and_leaves_the_memory_alone(self):
        run("useradd", "--create-home", USER)
        apt("install", PACKAGE)
        self.every_library_is_found()
        self.browsers_find_the_host()
        self.observe_and_ask("first")
        self.upgrade_keeps_what_the_user_changed()
        self.observe_and_ask("second")
        self.removal_leaves_the_memory()

    def every_library_is_found(self):
        binaries = [path for path in installed_files()
                    if path.read_bytes()[:4] == b"\x7fELF"]
        self.assertGreater(len(binaries), 8)
        for binary in binaries:
            self.assertNotIn("not found", run("ldd", binary), binary)

    def browsers_find_the_host(self):
        described = json.loads(pathlib.Path("/usr/share/mnemora/browser/extension.json").read_text())
        manifests = [path for path in installed_files() if path.name == "app.mnemora.pages.json"]
        self.assertEqual(len(manifests), 3)
        for path in manifests:
            manifest = json.loads(path.read_text())
            self.assertTrue(os.access(manifest["path"], os.X_OK), manifest)
            self.assertEqual(manifest["allowed_origins"],
                             [f"chrome-extension://{described['id']}/"])
        as_user("/usr/libexec/mnemora/mnemora-browser-host", "--status")

    def observe_and_ask(self, word):
        """The user's own session: a window is seen, read, kept and found by its meaning."""
        said = as_user(SESSION, "--size", "1280x800", "--a11y", "--keep", HOME / word, "--",
                       "env", f"HOME={HOME}", "python3",
                       CHECK / "tests/package/installed_program.py", word)
        self.assertIn(f"found {word}", said)

    def upgrade_keeps_what_the_user_changed(self):
        switched_off = AUTOSTART.read_text() + "Hidden=true\n"
        AUTOSTART.write_text(switched_off)
        before = digest()
        apt("install", next_version())
        self.assertIn("+next", run("dpkg-query", "-W", "-f", "${Version}", "mnemora"))
        self.assertEqual(AUTOSTART.read_text(), switched_off)
        self.assertEqual(digest(), before)

    def removal_leaves_the_memory(self):
        files, before = installed_files(), digest()
        apt("remove", "mnemora")
        self.assertEqual([path for path in files if path.exists() and path.parts[1] != "etc"], [])
        self.assertTrue(AUTOSTART.exists())  # configuration goes with a purge
        apt("purge", "mnemora")
        self.assertEqual([path for path in files if path.exists()], [])
        self.assertEqual(digest(), before)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
