#!/usr/bin/python3
"""What one tick costs the main thread, with real windows in a virtual session."""
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
PROGRAM = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/release/bench/tick-cost")

with tempfile.TemporaryDirectory(prefix="mnemora-bench.") as name:
    folder = pathlib.Path(name)
    page = folder / "page.html"
    page.write_text("<title>A page</title>" + "<p>Some words to read.</p>" * 2000, encoding="utf-8")
    sys.exit(subprocess.run([ROOT / "scripts/virtual-session", "--a11y", "--", PROGRAM,
                             page.as_uri(), folder / "profile"], check=False).returncode)
