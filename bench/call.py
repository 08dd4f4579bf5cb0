#!/usr/bin/python3
"""From the end of speech to the row in the store, in a private sound session."""
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
PROGRAM = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build/release/bench/call-figures")

sys.exit(subprocess.run([ROOT / "scripts/audio-session", "--", PROGRAM], check=False).returncode)
