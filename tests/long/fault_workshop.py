# SPDX-License-Identifier: Apache-2.0
# A copy of the sources into which faults are put, one at a time.
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import sys

from fault_sites import ROOT, Fault

WORK = ROOT / "build/faults"
TEST_MEMORY = 64 << 30  # bytes of address space, of which tests map much and touch little


def limit() -> None:
    resource.setrlimit(resource.RLIMIT_AS, (TEST_MEMORY, TEST_MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def run(*command: object, seconds: int = 600, limited: bool = False, **environment: str) -> bool:
    process = subprocess.Popen([str(each) for each in command], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, env={**os.environ, **environment}, start_new_session=True,
                               preexec_fn=limit if limited else None)
    try:
        return process.wait(seconds) == 0
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)  # the tests of a ctest too
        process.wait()
        return False


class Workshop:
    """The sources in a folder of their own; who derives says how they are built and what notices a fault."""

    def __init__(self, name: str) -> None:
        self.folder = WORK / name
        self.source = self.folder / "source"
        listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT,
                                check=True, capture_output=True, text=True).stdout
        for name in filter(None, listed.split("\0")):
            target = self.source / name
            target.parent.mkdir(parents=True, exist_ok=True)
            if not (ROOT / name).is_file():
                continue
            if not target.is_file() or target.read_bytes() != (ROOT / name).read_bytes():
                shutil.copyfile(ROOT / name, target)  # with the time of now, so that it is built
                target.chmod((ROOT / name).stat().st_mode)

    def configure(self, name: str, *options: str) -> pathlib.Path:
        build = self.folder / name
        ready = run("cmake", "-G", "Ninja", "-S", self.source, "-B", build, "-DCMAKE_CXX_COMPILER=clang++",
                    "-DCMAKE_C_COMPILER=clang", "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O0 -w", *options)
        if not ready:
            sys.exit("seed_faults: cannot configure a build")
        return build

    def verdict(self, fault: Fault) -> str:
        """What noticed the fault; "" if nothing did."""
        path = self.source / fault.path
        text = path.read_text()
        path.write_text(text[: fault.start] + fault.text + text[fault.end :])
        try:
            return self.killer_of(fault)
        finally:
            path.write_text(text)

    def killer_of(self, fault: Fault) -> str:
        raise NotImplementedError
