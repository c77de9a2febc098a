#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Failures of the system: each call that a verb makes of it fails in turn, once, and then from there on.

For every verb and every kind of call the calls are counted, and the verb is run once for each of them (of many calls:
for the first, and for others at even distances). What must hold:

  - no signal, no hang
  - exit 0 only with the output of an undisturbed run
  - else exit 3 (or the undisturbed run's code) with one line on standard error that begins with "nac: "

libfiu makes the calls fail; fail_nth.c chooses which. NAC names the program. --most N tries at most N calls of a kind.
"""
import argparse
import concurrent.futures
import dataclasses
import errno
import functools
import json
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent.parent
NAC = os.environ.get("NAC", str(ROOT / "build/release/nac"))
PRELOADED = "/usr/lib/fiu/fiu_posix_preload.so"
SECONDS = 30

# What fails, and with which error.
POINTS = {
    "libc/mm/*": errno.ENOMEM,
    "posix/mm/mmap": errno.ENOMEM,
    "posix/stdio/oc/fopen": errno.EMFILE,
    "posix/stdio/oc/fclose": errno.EIO,
    "posix/stdio/rw/fread": errno.EIO,
    "posix/stdio/rw/fwrite": errno.ENOSPC,
    "posix/stdio/fflush": errno.ENOSPC,
    "posix/io/oc/open": errno.EMFILE,
    "posix/io/rw/read": errno.EIO,
    "posix/io/rw/readv": errno.EIO,
    "posix/io/rw/write": errno.ENOSPC,
    "posix/io/rw/writev": errno.ENOSPC,
    "posix/io/dir/*": errno.EACCES,
    "posix/io/net/socket": errno.EMFILE,
    "posix/io/net/bind": errno.EACCES,
    "posix/io/net/listen": errno.EACCES,
    "posix/io/net/connect": errno.ECONNREFUSED,
}


@dataclasses.dataclass(frozen=True)
class Scenario:
    """A command line in a folder of its own, with {in} for the inputs, {out} for the file that it writes,
    {bus} for a bus of its own."""

    name: str
    words: tuple[str, ...]
    comparable: bool = True  # undisturbed runs print the same
    companion: tuple[str, ...] = ()  # another verb that runs meanwhile, undisturbed


SCENARIOS = [
    Scenario("types", ("types", "--json")),
    Scenario("describe", ("describe", "Nac_SetUserTableMsg")),
    Scenario("encode", ("encode", "{in}/records.jsonl", "-o", "{out}")),
    Scenario("decode", ("decode", "{in}/messages.jsonl", "-o", "{out}")),
    Scenario("decode a capture", ("decode", "{in}/capture.pcapng", "-o", "{out}")),
    Scenario("verify", ("verify", "{in}/damaged.jsonl")),
    Scenario("hex", ("hex", "{in}/messages.jsonl")),
    Scenario("hex page", ("hex", "--html", "{in}/messages.jsonl", "-o", "{out}")),
    Scenario("assemble", ("assemble", "{in}/messages.txt")),
    Scenario("diff", ("diff", "{in}/messages.jsonl", "{in}/damaged.jsonl")),
    Scenario("random", ("random", "--count", "20", "--seed", "5", "-o", "{out}")),
    Scenario("exchange", ("exchange", "{in}/records.jsonl")),
    Scenario("info", ("info", "{in}/capture.pcapng")),
    Scenario("replay", ("replay", "--receive", "--speed", "max", "{in}/capture.pcapng"), comparable=False),
    Scenario("dissector", ("dissector",)),
    Scenario("completion", ("completion", "bash")),
    Scenario("doctor", ("doctor", "/bin/true"), comparable=False),
    Scenario("send", ("send", "--to", "7", "--timeout", "2", "{in}/records.jsonl", "--bus", "{bus}"), comparable=False,
             companion=("listen", "--as", "7", "--timeout", "5", "--bus", "{bus}")),
    Scenario("listen", ("listen", "--as", "7", "--count", "25", "--timeout", "2", "--json", "--bus", "{bus}"),
             companion=("send", "--to", "7", "--timeout", "5", "{in}/records.jsonl", "--bus", "{bus}")),
]


class Inputs:
    """Files that all scenarios read, made by the undisturbed tool."""

    def __init__(self, folder: pathlib.Path) -> None:
        self.folder = folder
        folder.mkdir()
        self.make("records.jsonl", "random", "--count", "25", "--seed", "1", "--elements", "3")
        self.make("messages.jsonl", "encode", str(folder / "records.jsonl"))
        self.make("messages.txt", "hex", "--color", "never", str(folder / "messages.jsonl"))
        damaged = []
        for line in (folder / "messages.jsonl").read_text().splitlines():
            message = json.loads(line)
            damaged.append(json.dumps({**message, "hex": message["hex"][:-8]}))
        (folder / "damaged.jsonl").write_text("\n".join(damaged) + "\n")
        sys.path.insert(0, str(ROOT / "tests/tool"))
        import pcapng  # the tests' own writer

        ids = {entry["name"]: entry["id"] for entry in map(json.loads, self.run("types", "--json").splitlines())}
        messages = [json.loads(line) for line in (folder / "messages.jsonl").read_text().splitlines()]
        capture = [pcapng.Message(ids[each["type"]], bytes.fromhex(each["hex"]), destination=7) for each in messages]
        (folder / "capture.pcapng").write_bytes(pcapng.capture(capture))

    @staticmethod
    def run(*words: str) -> str:
        return subprocess.run([NAC, *words], capture_output=True, check=True, text=True).stdout

    def make(self, name: str, *words: str) -> None:
        (self.folder / name).write_text(self.run(*words))


@dataclasses.dataclass
class Result:
    code: int
    output: bytes
    errors: str
    calls: int
    failed: int


def run(scenario: Scenario, inputs: pathlib.Path, library: str, point: str, nth: int, all_after: bool) -> Result:
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        counts = folder / "counts"
        counts.write_bytes(bytes(16))
        out = folder / "out"
        values = {"{in}": str(inputs), "{out}": str(out), "{bus}": f"ipc://{folder}/bus"}

        def filled(words: tuple[str, ...]) -> list[str]:
            return [functools.reduce(lambda word, key: word.replace(key, values[key]), values, word) for word in words]

        environment = {**os.environ, "VORN_BUS_URL": "loop:", "FAIL_POINT": point, "FAIL_NTH": str(nth), "FAIL_FROM": str(int(all_after)),
                       "FAIL_ERRNO": str(POINTS[point]), "FAIL_COUNTS": str(counts), "LD_PRELOAD": f"{library} {PRELOADED}"}
        companion = subprocess.Popen([NAC, *filled(scenario.companion)], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                     stderr=subprocess.DEVNULL) if scenario.companion else None
        try:
            done = subprocess.run([NAC, *filled(scenario.words)], env=environment, capture_output=True, timeout=SECONDS, stdin=subprocess.DEVNULL)
            code, output, errors = done.returncode, done.stdout, done.stderr.decode(errors="replace")
        except subprocess.TimeoutExpired:
            code, output, errors = 124, b"", f"still running after {SECONDS} s"
        finally:
            if companion is not None:
                companion.kill()
                companion.wait()
        written = out.read_bytes() if out.exists() else b""
        calls, failed = struct.unpack("=QQ", counts.read_bytes())
        return Result(code, output + written, errors, calls, failed)


def complaint(scenario: Scenario, undisturbed: Result, result: Result) -> str:
    """What is wrong with a run; empty: nothing."""
    if result.code < 0:
        return f"signal {-result.code}"
    if result.code == 124:
        return result.errors
    if result.code == undisturbed.code and (not scenario.comparable or result.output == undisturbed.output):
        return ""
    if result.code == 0:
        return "exit 0, and the output is another"
    if result.code != 3:
        return f"exit {result.code}"
    told = [line for line in result.errors.splitlines() if line.startswith("nac: ") and len(line) > 10]
    return "" if told else "exit 3 without a word"


def chosen(calls: int, most: int) -> list[int]:
    """The first calls, and others at even distances."""
    if calls <= most:
        return list(range(1, calls + 1))
    first = list(range(1, most // 2 + 1))
    rest = most - len(first)
    return first + sorted({len(first) + 1 + k * (calls - len(first) - 1) // (rest - 1) for k in range(rest)})


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--most", type=int, default=200, help="calls of a kind that fail in a scenario, at most (200)")
    parser.add_argument("--only", default="", help="scenarios whose name contains this")
    parser.add_argument("--json", type=pathlib.Path, help="where the counts go")
    options = parser.parse_args()
    if not pathlib.Path(PRELOADED).exists() or shutil.which("cc") is None:
        print("needs cc and the Debian packages libfiu-dev and fiu-utils", file=sys.stderr)
        return 1
    with tempfile.TemporaryDirectory() as name:
        library = f"{name}/fail_nth.so"
        subprocess.run(["cc", "-O1", "-shared", "-fPIC", str(pathlib.Path(__file__).with_name("fail_nth.c")),
                        "-o", library, "-lfiu"], check=True)
        inputs = Inputs(pathlib.Path(name) / "in").folder
        complaints: list[str] = []
        table: dict[str, dict[str, int]] = {}
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            for scenario in SCENARIOS:
                if options.only not in scenario.name:
                    continue
                row = table.setdefault(scenario.name, {})
                for point in POINTS:
                    undisturbed = run(scenario, inputs, library, point, 0, False)
                    if undisturbed.code not in (0, 1):
                        raise SystemExit(f"{scenario.name} fails undisturbed: {undisturbed.errors}")
                    if undisturbed.calls == 0:
                        continue
                    trials = [(nth, all_after) for nth in chosen(undisturbed.calls, options.most) for all_after in (False, True)]
                    results = pool.map(lambda trial: run(scenario, inputs, library, point, *trial), trials)
                    row[point] = 0
                    for (nth, all_after), result in zip(trials, results):
                        row[point] += result.failed > 0
                        if what := complaint(scenario, undisturbed, result):
                            more = " and all after it" if all_after else ""
                            last = result.errors.strip().splitlines()[-1:]
                            complaints.append(f"{scenario.name}: call {nth} of {point}{more} fails: {what} {last}")
                print(f"{scenario.name:18} {sum(row.values()):6} failures injected, {len(complaints)} complaints so far", flush=True)
        for each in complaints:
            print(each)
        total = sum(sum(row.values()) for row in table.values())
        print(f"count: {total} injected failures in {len(table)} scenarios, {len(complaints)} complaints")
        if options.json:
            options.json.write_text(json.dumps(table, indent=1) + "\n")
        return 1 if complaints or total == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
