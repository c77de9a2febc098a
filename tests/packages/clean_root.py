# SPDX-License-Identifier: Apache-2.0
# The packages in a clean Debian 12: installed, used as others use them, and removed without leftovers.
#
# As root: clean_root.py PACKAGES makes the system with debootstrap (kept next to PACKAGES for the next run), installs
# every package of the folder there, and prints each step's result and time.
import argparse
import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
MIRROR = "http://deb.debian.org/debian"
# What consumers and tests bring themselves.
TOOLS = ["bash-completion", "ca-certificates", "cmake", "fish", "g++", "libgtest-dev", "make", "pkg-config", "python3", "python3-pytest",
         "tshark", "zsh"]
# What changes in any system in which packages come and go.
RESTLESS = ("dev/", "etc/ld.so.cache", "proc/", "run/", "sys/", "tmp/", "var/cache/", "var/lib/apt/", "var/lib/dpkg/",
            "var/log/", "root/.cache")
SESSION = "/usr/share/doc/vorn-nac-tools/examples/access-session.jsonl"
TWO_PROCESSES = f"""
    folder=$(mktemp -d); export VORN_BUS_URL=ipc://$folder/bus
    nac listen --as 2 --count 29 --timeout 30 --json > $folder/received & listener=$!
    nac send --to 2 {SESSION}
    wait $listener
    wc -l < $folder/received"""


# The tutorial's commands, in their order, with the installed tool where the page has that of the build.
TUTORIAL = """
import pathlib, sys, tempfile
sys.path.insert(0, "tests/documents")
import documents_test as documents
wrong, count = [], 0
with tempfile.TemporaryDirectory() as folder:
    sandbox = documents.Sandbox(pathlib.Path(folder))
    del sandbox.environment["VORN_NAC_LIBRARY_DIR"]
    for shown in documents.consoles(pathlib.Path("docs/tutorial.md")):
        for command, printed in sandbox.run(shown):
            count += 1
            if not documents.matches(printed, command.output):
                wrong.append(f"{command.command}: {printed!r}")
print("; ".join(wrong) if wrong or not count else f"{count} commands print what the page shows")
"""


class Failure(Exception):
    pass


class CleanRoot:
    def __init__(self, packages: pathlib.Path, root: pathlib.Path) -> None:
        self.packages = sorted(path for path in packages.glob("*.deb") if "-dbgsym_" not in path.name)
        self.names = [path.name.split("_")[0] for path in self.packages]
        tools = hashlib.sha256(" ".join(TOOLS).encode()).hexdigest()[:8]
        self.kept = packages.parent / f"debian-12-{tools}.tar"
        self.root = root
        self.before: set[str] = set()
        self.installed_before: set[str] = set()

    def inside(self, script: str, user: str = "root") -> str:
        """Runs a shell script in the root; its output. /proc is gone when it ends."""
        become = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"] if user == "nobody" else []
        done = subprocess.run(
            ["unshare", "--mount", "--pid", "--fork", f"--mount-proc={self.root}/proc", "chroot", self.root, *become,
             "/bin/bash", "-euo", "pipefail", "-c", script], capture_output=True, text=True, stdin=subprocess.DEVNULL,
            env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/tmp", "LC_ALL": "C.UTF-8",
                 "DEBIAN_FRONTEND": "noninteractive"})
        if done.returncode != 0:
            raise Failure(f"exit code {done.returncode}\n{done.stdout[-3000:]}{done.stderr[-3000:]}")
        return done.stdout

    def expect(self, script: str, expected: str) -> str:
        found = self.inside(script, "nobody").strip()
        if expected not in found:
            raise Failure(f"expected {expected!r} in what came: {found[-2000:]!r}")
        return found if len(found) < 200 else expected

    def files(self) -> set[str]:
        found = set()
        for folder, folders, files in os.walk(self.root):
            inside = os.path.relpath(folder, self.root)
            found |= {os.path.normpath(os.path.join(inside, name)) for name in folders + files}
        return {path for path in found if not (path + "/").startswith(RESTLESS)}

    def installed(self) -> set[str]:
        return set(self.inside("dpkg-query -W -f '${Package} ${db:Status-Status}\\n'").splitlines())

    # ---- the steps ----------------------------------------------------------------------------------

    def make(self) -> str:
        if not self.kept.exists():
            fresh = self.root / "fresh"
            subprocess.run(["debootstrap", "--variant=minbase", f"--include={','.join(TOOLS)}", "bookworm", fresh, MIRROR],
                           check=True, stdout=subprocess.DEVNULL)
            part = self.kept.with_suffix(".part")
            subprocess.run(["tar", "--create", "--file", part, "--directory", fresh, "."], check=True)
            part.rename(self.kept)
            shutil.rmtree(fresh)
        subprocess.run(["tar", "--extract", "--file", self.kept, "--directory", self.root], check=True)
        shutil.copy("/etc/resolv.conf", self.root / "etc/resolv.conf")
        (self.root / "dev/shm").chmod(0o1777)  # as in a running system
        self.inside("apt-get update")
        self.before, self.installed_before = self.files(), self.installed()
        return f"{len(self.installed_before)} packages, with a compiler"

    def install(self) -> str:
        folder = self.root / "tmp/packages"
        folder.mkdir()
        for package in self.packages:
            shutil.copy(package, folder)
        self.inside("apt-get install -y --no-install-recommends /tmp/packages/*.deb")
        others = len(self.installed() - self.installed_before) - len(self.names)
        return f"{', '.join(self.names)}, and {others} that they need"

    def consumers(self) -> str:
        here = pathlib.Path(__file__).resolve().parent
        target = self.root / "tmp/consumers"
        target.mkdir()
        for script in ("consumers.py", "own_package.py", "two_versions.py"):
            shutil.copy(here / script, target)
        shutil.copytree(here / "consumer", target / "consumer")
        printed = self.inside("python3 /tmp/consumers/consumers.py", "nobody")
        return printed.replace("count: ", "").replace("\n", "; ").rstrip("; ")

    def own_package(self) -> str:
        printed = self.inside("python3 /tmp/consumers/own_package.py --drivers && python3 /tmp/consumers/two_versions.py", "nobody")
        return printed.replace("lease, ", "").replace("\n", "; ").rstrip("; ")

    def tool(self) -> str:
        on_record = pathlib.Path(__file__).resolve().parents[1] / "reference/descriptions.jsonl"
        messages = [line for line in on_record.read_text().splitlines() if json.loads(line)["id"] is not None]
        self.expect("nac types --json | wc -l", str(len(messages)))
        return self.expect(f"nac exchange {SESSION} | tail -n 1", "29 records of 25 types: 29 arrived from single sends, 29 from "
                           "25 batches; 0 differ, 0 log lines, 0 arrays not freed")

    def conformance(self) -> str:
        return self.inside("python3 /usr/share/vorn_nac/conformance/conformance.py --writer 'nac encode -' "
                           "--image-writer 'nac encode --layout image -'", "nobody").splitlines()[-1]

    def two_processes(self) -> str:
        self.expect(TWO_PROCESSES + " | grep -x 29", "29")
        return "29 records sent by one and received by the other"

    def completions(self) -> str:
        self.expect("source /usr/share/bash-completion/bash_completion; _completion_loader nac || true; complete -p nac",
                    "nac")
        self.expect("fish -c 'complete -C \"nac diss\"'", "dissector")
        self.expect("zsh -fc 'autoload -Uz compinit; compinit -D; echo $_comps[nac]'", "_nac")
        return "bash, zsh and fish complete nac"

    def wireshark(self) -> str:
        self.expect("tshark -r /usr/share/doc/vorn-nac-tools/examples/port-move.pcapng -V 2>/dev/null", "Nac_SetPortMsg")
        return "tshark names the messages of a capture"

    def sources(self) -> str:
        """Documents and tests, but none of what the packages bring."""
        tree = self.root / "tmp/tree"
        listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "-z", "docs", "examples",
                                 "fuzz/corpus", "fuzz/regressions", "nac", "python", "tests/reference",
                                 "tests/documents/documents_test.py"],
                                check=True, capture_output=True, text=True, cwd=ROOT).stdout
        names = [name for name in listed.rstrip("\0").split("\0")
                 if not name.startswith("python/vorn_nac/") and (ROOT / name).is_file()]
        for name in names:
            (tree / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / name, tree / name)
        self.inside("chmod -R a+rX /tmp/tree")
        return f"{len(names)} files"

    def tutorial(self) -> str:
        (self.root / "tmp/tutorial.py").write_text(TUTORIAL)
        return self.expect("cd /tmp/tree && NAC=/usr/bin/nac PYTHONDONTWRITEBYTECODE=1 "
                           "python3 /tmp/tutorial.py", "commands print what the page shows")

    def python(self) -> str:
        """The package's tests, but for those of the source tree as such, on what is installed."""
        printed = self.inside("cd /tmp/tree && NAC=/usr/bin/nac PYTHONDONTWRITEBYTECODE=1 python3 -m pytest -q -p no:cacheprovider "
                           "python/tests/test_codec.py python/tests/test_bus.py python/tests/test_capture.py python/tests/test_fixtures.py", "nobody")
        return printed.strip().splitlines()[-1]

    def manual(self) -> str:
        pages = self.inside("dpkg -L " + " ".join(self.names) + " | grep -E '^/usr/share/man/.*[.]gz$'").split()
        self.inside(f"for page in {' '.join(pages)}; do gzip --decompress --stdout $page | grep -q '^[.]SH NAME' || "
                    "{ echo $page; exit 1; }; done")
        self.expect("gzip --decompress --stdout /usr/share/man/man3/vorn_bus_open.3.gz", "int32_t vorn_bus_open(")
        return f"{len(pages)} pages and aliases"

    def remove(self) -> str:
        self.inside(f"apt-get purge -y {' '.join(self.names)} && apt-get autoremove --purge -y")
        shutil.rmtree(self.root / "tmp")
        more = self.installed() - self.installed_before
        if more:
            raise Failure(f"still there: {sorted(more)}")
        after = self.files()
        if after != self.before:
            raise Failure(f"left over: {sorted(after - self.before)[:20]}, gone: {sorted(self.before - after)[:20]}")
        return f"all {len(after)} files of the system are as before, and no other"


def main() -> int:
    parser = argparse.ArgumentParser(description="Installs, uses and removes the packages in a clean Debian 12.")
    parser.add_argument("packages", type=pathlib.Path)
    packages = parser.parse_args().packages.resolve()
    if os.geteuid() != 0:
        print("clean_root: debootstrap and chroot need root", file=sys.stderr)
        return 2
    with tempfile.TemporaryDirectory(prefix="clean-root-") as folder:
        os.chmod(folder, 0o755)
        clean = CleanRoot(packages, pathlib.Path(folder))
        if not clean.names:
            print(f"clean_root: no packages in {packages}", file=sys.stderr)
            return 2
        steps: list[tuple[str, Callable[[], str]]] = [
            ("a clean Debian 12", clean.make), ("install the packages", clean.install),
            ("consumers", clean.consumers), ("a package of one's own", clean.own_package), ("the tool", clean.tool),
            ("conformance", clean.conformance), ("two processes", clean.two_processes),
            ("completions", clean.completions), ("Wireshark", clean.wireshark),
            ("documents and tests", clean.sources), ("the tutorial", clean.tutorial), ("Python", clean.python),
            ("the manual", clean.manual), ("remove everything", clean.remove)]
        for name, step in steps:
            start = time.monotonic()
            try:
                result, verdict = step(), "ok    "
            except (Failure, subprocess.CalledProcessError) as failure:
                result, verdict = str(failure), "FAILED"
            print(f"count: {verdict} {time.monotonic() - start:6.1f} s  {name}: {result}", flush=True)
            if verdict == "FAILED":
                return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
