"""The protections that compiler and linker put into every file that we build and ship, read off
the files themselves; of the files that we ship from others, the one that can be had of them.

Usage: hardening_test.py BUILD-FOLDER
"""
import pathlib
import re
import subprocess
import sys
import unittest

BUILD = pathlib.Path(sys.argv[1]).resolve()
OURS = ("bin/mnemora", "bin/mnemora-erase", "libexec/mnemora/mnemora-engines",
        "libexec/mnemora/mnemora-browser-host",
        *(f"lib/mnemora/{path.name}" for path in (BUILD / "lib/mnemora").glob("*.so")))
ENDBR64 = b"\xf3\x0f\x1e\xfa"


def readelf(option, path):
    return subprocess.run(["readelf", "-W", option, str(path)], check=True, capture_output=True,
                          text=True).stdout


def is_release():
    return "CMAKE_BUILD_TYPE:STRING=Release" in (BUILD / "CMakeCache.txt").read_text()


@unittest.skipUnless(is_release(), "only what is shipped is hardened to the full")
class HardeningTest(unittest.TestCase):
    def of_each(self, check):
        for name in OURS:
            with self.subTest(file=name):
                check(BUILD / name)
        self.assertGreaterEqual(len(OURS), 11)

    def test_code_and_data_lie_anywhere_and_linkage_is_fixed_at_the_start(self):
        def check(path):
            self.assertRegex(readelf("-h", path), r"Type: +DYN")
            dynamic = readelf("-d", path)
            self.assertIn("GNU_RELRO", readelf("-l", path))
            self.assertRegex(dynamic, r"FLAGS\).*BIND_NOW")
            self.assertNotIn("TEXTREL", dynamic)
            if path.suffix != ".so":
                self.assertRegex(dynamic, r"FLAGS_1\).*PIE")
        self.of_each(check)

    def test_libraries_are_sought_in_our_own_folders_only(self):
        def check(path):
            for found in re.findall(r"R(?:UN)?PATH\).*\[(.*)\]", readelf("-d", path)):
                for folder in found.split(":"):
                    self.assertTrue(folder.startswith("$ORIGIN"), folder)
        self.of_each(check)

    def test_nothing_is_writable_and_executable(self):
        shipped = [path for path in (BUILD / "lib/mnemora/runtime").iterdir() if ".so" in path.name]
        self.assertTrue(shipped)
        for path in [*(BUILD / name for name in OURS), *shipped]:
            with self.subTest(file=path.name):
                segments = readelf("-l", path)
                self.assertRegex(segments, r"GNU_STACK .* RW +0x")
                self.assertNotRegex(segments, r"LOAD .* RWE +0x")

    def test_calls_are_checked(self):
        fortified = set()

        def check(path):
            imported = set(re.findall(r"UND (\w+)", readelf("--dyn-syms", path)))
            self.assertIn("__stack_chk_fail", imported)
            # These have a checked twin for every use, which the compiler takes where it is asked to.
            self.assertFalse(imported & {"printf", "fprintf", "sprintf", "snprintf", "vsnprintf"})
            fortified.update(name for name in imported if re.fullmatch(r"__\w+_chk", name))
        self.of_each(check)
        self.assertIn("__snprintf_chk", fortified)

    def test_every_function_begins_with_a_landing_pad(self):
        # The C library's start files of Debian 12 have no mark of it, so the linker leaves it out
        # of the finished file; the instructions are there.
        def check(path):
            self.assertGreater(path.read_bytes().count(ENDBR64), 10)
        self.of_each(check)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
