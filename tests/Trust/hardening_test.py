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
OURS = ("bin/mnemora", "bin/mnemora-erase", "libexec/mnemora/mnemora-engines", "libexec/mnemora/mnemora-browser-host",
        "lib/mnemora/libmnemora-core.so", "lib/mnemora/libmnemora-embedding.so",
        "lib/mnemora/libmnemora-desktop.so")
ENDBR64 = b"\xf3\x0f\x1e\xfa"


def readelf(option, path):
    return subprocess.run(["readelf", "-W", option, str(path)], check=True, capture_output=True,
                          text=True).stdout


def is_release():
    return "CMAKE_BUILD_TYPE:STRING=Release" in (BUILD / "CMakeCache.txt").read_text()


@unittest.skipUnless(is_release(), "only what is shipped is hardened to the full")
class HardeningTest(unittest.TestCase):
    def each(self):
        for name in OURS:
            with self.subTest(file=name):
                yield BUILD / name

    def test_code_and_data_lie_anywhere_and_linkage_is_fixed_at_the_start(self):
        for path in self.each():
            self.assertIn("Type:                              DYN", readelf("-h", path))
            segments, dynamic = readelf("-l", path), readelf("-d", path)
            self.assertIn("GNU_RELRO", segments)
            self.assertRegex(dynamic, r"FLAGS\).*BIND_NOW")
            self.assertNotIn("TEXTREL", dynamic)
            if path.suffix != ".so":
                self.assertRegex(dynamic, r"FLAGS_1\).*PIE")

    def test_libraries_are_sought_in_our_own_folders_only(self):
        for path in self.each():
            for found in re.findall(r"R(?:UN)?PATH\).*\[(.*)\]", readelf("-d", path)):
                for folder in found.split(":"):
                    self.assertTrue(folder.startswith("$ORIGIN"), folder)

    def test_nothing_is_writable_and_executable(self):
        shipped = [path for path in (BUILD / "lib/mnemora/runtime").iterdir() if ".so" in path.name]
        self.assertTrue(shipped)
        for path in [*self.each(), *shipped]:
            segments = readelf("-l", path)
            self.assertRegex(segments, r"GNU_STACK .* RW +0x")
            self.assertNotRegex(segments, r"LOAD .* RWE +0x")

    def test_calls_are_checked(self):
        for path in self.each():
            imported = set(re.findall(r"UND (\w+)", readelf("--dyn-syms", path)))
            self.assertIn("__stack_chk_fail", imported)
            fortified = {name for name in imported if re.fullmatch(r"__\w+_chk", name)}
            self.assertTrue(fortified, "no call is fortified")

    def test_every_function_begins_with_a_landing_pad(self):
        # The C library's start files of Debian 12 have no mark of it, so the linker leaves it out
        # of the finished file; the instructions are there.
        for path in self.each():
            count = path.read_bytes().count(ENDBR64)
            self.assertGreater(count, 50)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
