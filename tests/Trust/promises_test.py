"""Every promise in the tables of SECURITY.md and docs/privacy.md names tests, or files of tests, and
every one that it names exists.

Usage: promises_test.py BUILD-FOLDER
"""
import json
import pathlib
import re
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


def existing_tests(build):
    answer = subprocess.run(["ctest", "--test-dir", build, "--show-only=json-v1"], check=True,
                            capture_output=True, text=True)
    return {test["name"] for test in json.loads(answer.stdout)["tests"]}


def promises(text):
    """(promise, the names beside it) of every row of every table with a column "held by"."""
    holding = False
    for line in text.splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if not line.startswith("|"):
            holding = False
        elif cells[-1] == "held by":
            holding = True
        elif holding and not set(cells[-1]) <= set("-: "):
            yield cells[0], re.findall(r"`([^`]+)`", cells[-1])


def exists(name, tests):
    return name in tests or name.startswith("tests/") and (ROOT / name).is_file()


class PromisesTest(unittest.TestCase):
    def test_each_names_tests_that_exist(self):
        tests = existing_tests(sys.argv[1])
        for document, least in (("SECURITY.md", 25), ("docs/privacy.md", 6)):
            found = list(promises((ROOT / document).read_text(encoding="utf-8")))
            self.assertGreaterEqual(len(found), least)
            for promise, names in found:
                with self.subTest(promise=promise):
                    self.assertTrue(names, "no test holds it")
                    self.assertEqual([name for name in names if not exists(name, tests)], [])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
