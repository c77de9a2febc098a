# SPDX-License-Identifier: Apache-2.0
# What the tests of the Python package share. NAC names the tool, which shows what the library does.
import os
import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
NAC = os.environ.get("NAC", str(ROOT / "build/release/nac"))
CORPUS = ROOT / "tests/reference/corpus"
FUZZ = ROOT / "fuzz"


def nac(*arguments: str) -> subprocess.CompletedProcess[str]:
    """Runs the tool; its exit code is 1 if a message is damaged."""
    done = subprocess.run([NAC, *arguments], capture_output=True, text=True, cwd=ROOT, timeout=120)
    assert done.returncode in (0, 1), done.stderr
    return done
