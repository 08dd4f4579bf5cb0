"""Where everything comes from: what is fetched is pinned by version and digest, what is shipped has
its licence beside it.

Usage: provenance_test.py BUILD-FOLDER
"""
import fnmatch
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv[1]).resolve()
LOCK = "scripts/wheels.lock"
LICENSES = pathlib.PurePosixPath("usr/share/doc/mnemora/licenses")


def text_of(name):
    return (ROOT / name).read_text(encoding="utf-8")


def scripts():
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "scripts", "cmake", "packaging", "*.txt"],
                            check=True, capture_output=True, text=True).stdout.split()
    return [name for name in listed if pathlib.Path(name).suffix in ("", ".py", ".cmake", ".txt")]


class ProvenanceTest(unittest.TestCase):
    def test_everything_fetched_has_one_version_and_one_digest(self):
        lines = [line for line in text_of(LOCK).splitlines() if line and line[0] not in "#["]
        self.assertGreater(len(lines), 40)
        for line in lines:
            self.assertRegex(line, r"^[\w.-]+==[\w.]+ --hash=sha256:[0-9a-f]{64}$")

    def test_nothing_is_fetched_past_the_lock_file(self):
        fetchers = r"\b(curl|wget|urlretrieve|urlopen|ExternalProject_Add|FetchContent_Declare)\b"
        for name in scripts():
            with self.subTest(script=name):
                text = text_of(name)
                self.assertNotRegex(text, fetchers)
                self.assertNotRegex(text, r"\b(file\(DOWNLOAD|git clone [^\n]*://)")
                for call in re.findall(r"-m pip (?:[^\n]|\\\n)*", text):
                    self.assertIn("--require-hashes", call)

    def test_everything_shipped_has_its_licence(self):
        with tempfile.TemporaryDirectory(prefix="mnemora-trust.") as folder:
            prefix = pathlib.Path(folder) / "usr"
            subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True,
                           capture_output=True)
            installed = [path.relative_to(folder).as_posix()
                         for path in pathlib.Path(folder).rglob("*") if path.is_file()]
        declared = text_of("packaging/debian/copyright")
        patterns = " ".join(re.findall(r"^Files: ((?:.|\n )*)", declared, re.MULTILINE)).split()
        foreign = [name for name in installed
                   if name.startswith(("usr/lib/mnemora/runtime/", "usr/share/mnemora/models/"))]
        self.assertGreater(len(foreign), 10)
        for name in foreign:
            with self.subTest(file=name):
                ours = name.endswith(("manifest",))
                self.assertTrue(ours or any(fnmatch.fnmatch(name, pattern)
                                            for pattern in patterns if pattern != "*"))
        for named in re.findall(r"/(usr/share/doc/mnemora/licenses\S*?)\.?(?:\s|$|,)", declared):
            with self.subTest(licence=named):
                self.assertTrue(any(name.startswith(named) for name in installed))
        for library in ("openvino", "embedding", "recognition", "speech", "compiled-in"):
            self.assertTrue(any(name.startswith(f"{LICENSES}/{library}/") for name in installed))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
