# SPDX-License-Identifier: Apache-2.0
# The tests of first use and of many threads under helgrind, each in a process of its own.
#
# Needs first_use_test in a build of the preset debug: what helgrind.supp names must not be inlined.
import concurrent.futures
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = ROOT / "build/debug/tests/library/first_use_test"


def names() -> list[str]:
    listed = subprocess.run([PROGRAM, "--gtest_list_tests"], check=True, capture_output=True, text=True).stdout
    found = []
    suite = ""
    for line in listed.splitlines():
        if line.startswith("  "):
            found.append(suite + line.split()[0])
        elif line.endswith("."):
            suite = line
    return found


def complaints(name: str) -> str:
    done = subprocess.run(["valgrind", "--tool=helgrind", "--quiet", "--error-exitcode=9", "--history-level=approx",
                           f"--suppressions={pathlib.Path(__file__).with_suffix('.supp')}", PROGRAM, f"--gtest_filter={name}"],
                          capture_output=True, text=True)
    return "" if done.returncode == 0 else f"{name} ended with {done.returncode}:\n{done.stderr[-3000:]}"


def main() -> int:
    tests = names()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        bad = [text for text in pool.map(complaints, tests) if text]
    for text in bad:
        print(text)
    print(f"count: {len(tests) - len(bad)} of {len(tests)} tests without a complaint of helgrind's")
    return 1 if bad or not tests else 0


if __name__ == "__main__":
    sys.exit(main())
