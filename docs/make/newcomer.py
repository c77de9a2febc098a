# SPDX-License-Identifier: Apache-2.0
# Runs the first commands of docs/tutorial.md in a fresh copy of the sources, and measures the time to the first decoded
# message: at most three commands and five minutes. Other work of the machine is part of that time, so the processor time
# is printed too.
#
#     python3 docs/make/newcomer.py [--bare] [--json]
#
# --bare runs them in a new Debian 12 without a compiler, where the first command installs what is needed. It needs root
# and debootstrap.
import argparse
import json
import os
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import time
from collections.abc import Sequence

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
MOST_COMMANDS = 3
MOST_SECONDS = 300
MIRROR = "http://deb.debian.org/debian"
LEFT_OUT = shutil.ignore_patterns("build", ".git", "__pycache__")


def walk() -> list[tuple[str, str]]:
    """The commands before the second heading, and what each must print; empty: anything."""
    text = (ROOT / "docs/tutorial.md").read_text().split("\n## ")[0]
    commands = []
    for language, block in re.findall(r"^```(\w*)\n(.*?)^```", text, re.M | re.S):
        if language == "console":
            commands += re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", block, re.M)
        else:
            commands += [(line, "") for line in block.splitlines()]
    return commands


class Machine:
    """This one, or a bare Debian in `folder`; with the sources in a folder."""

    def __init__(self, folder: pathlib.Path, bare: bool) -> None:
        self.sources = folder / "sources"
        self.enter: Sequence[str | os.PathLike[str]] = ["bash", "-c"]
        self.environment = dict(os.environ)
        if bare:
            root = folder / "debian"
            subprocess.run(["debootstrap", "--variant=minbase", "bookworm", root, MIRROR], check=True, stdout=subprocess.DEVNULL)
            shutil.copy("/etc/resolv.conf", root / "etc/resolv.conf")
            self.sources = root / "root/sources"
            self.enter = ["unshare", "--mount", "--pid", "--fork", f"--mount-proc={root}/proc", "chroot", root,
                          "bash", "-c", 'cd /root/sources; eval "$0"']
            self.environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root"}
        shutil.copytree(ROOT, self.sources, ignore=LEFT_OUT)

    def run(self, command: str) -> subprocess.CompletedProcess[str]:
        return subprocess.run([*self.enter, command], capture_output=True, text=True, cwd=self.sources, env=self.environment)


def main() -> int:
    parser = argparse.ArgumentParser(description="Runs the tutorial's first commands in a fresh copy of the sources, and times them.")
    parser.add_argument("--bare", action="store_true", help="in a new Debian 12, as root, with debootstrap")
    parser.add_argument("--json", action="store_true")
    options = parser.parse_args()
    steps: list[dict[str, object]] = []
    seconds = 0.0
    problems = []
    with tempfile.TemporaryDirectory() as folder:
        machine = Machine(pathlib.Path(folder), options.bare)
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        for command, shown in walk():
            start = time.monotonic()
            done = machine.run(command)
            took = round(time.monotonic() - start, 1)
            seconds = round(seconds + took, 1)
            steps.append({"command": command, "seconds": took, "exit_code": done.returncode})
            if done.returncode != 0:
                problems.append(f"{command} ends with {done.returncode}: {(done.stdout + done.stderr)[-500:]}")
                break
            if shown and done.stdout != shown:
                problems.append(f"{command} prints {done.stdout!r}, not {shown!r}")
    if len(steps) > MOST_COMMANDS:
        problems.append(f"{len(steps)} commands are more than {MOST_COMMANDS}")
    if seconds > MOST_SECONDS:
        problems.append(f"{seconds} s are more than {MOST_SECONDS} s")
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    processor = round(used.ru_utime + used.ru_stime - before.ru_utime - before.ru_stime, 1)
    load = round(os.getloadavg()[1], 1)
    if options.json:
        print(json.dumps({"steps": steps, "seconds": seconds, "processor_seconds": processor, "processors": os.cpu_count(),
                          "load": load, "problems": problems}))
    else:
        for step in steps:
            print(f"{step['seconds']:7.1f} s  {step['command']}")
        print(f"count: {seconds:.1f} s from nothing to a decoded message, in {len(steps)} commands")
        print(f"{processor:7.1f} s  of a processor's time, on {os.cpu_count()} processors with a load of {load}")
        print("".join(f"problem: {problem}\n" for problem in problems), end="")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
