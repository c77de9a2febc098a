# SPDX-License-Identifier: Apache-2.0
# The slow sweeps, one after the other, as root, and the page of their figures: sweeps.py [NAME...], all by default.
#
# Ends with the first that fails. The words of each are in build/long/NAME.log; what it counted ("count: ..." in its words),
# how long it took, and on which commit, goes to figures.json in this folder, and from there to docs/reliability.md.
import argparse
import dataclasses
import datetime
import json
import os
import pathlib
import re
import subprocess
import sys
import time
import typing

ROOT = pathlib.Path(__file__).resolve().parents[2]
LOGS = ROOT / "build/long"
FIGURES = ROOT / "tests/long/figures.json"
PAGE = ROOT / "docs/reliability.md"
BEGIN, END = "<!-- figures: made by tests/long/sweeps.py -->\n", "<!-- end of figures -->\n"


@dataclasses.dataclass(frozen=True)
class Sweep:
    name: str
    shows: str
    command: str  # of the shell, in the project's folder


def preset_tests(preset: str) -> str:
    return (f"cmake --preset {preset} -DNAC_BUILD_TESTS=ON >build/{preset}.log && cmake --build --preset {preset} && "
            f"ctest --preset {preset} --progress && "
            f"echo count: $(grep -c '^Test Passed' build/{preset}/Testing/Temporary/LastTest.log) tests passed")


PEER = "PEER=$PWD/build/release/tests/bus/bus_peer"
SWEEPS = [
    Sweep("test", "all tests with g++ and clang, under AddressSanitizer, UndefinedBehaviorSanitizer and ThreadSanitizer; "
          "format and lint", "./dev test"),
    Sweep("failures", "each call of the system failing in turn under every verb of nac: no crash, no success that is none",
          "python3 tests/tool/failures/injected_failures.py --most 2000"),
    Sweep("readers", "the library, the plain reader, the inspection and the reader in Python agree on damaged messages",
          "python3 tests/long/four_readers.py build/release"),
    Sweep("recipe", "a new message type needs its struct and its description", "python3 tests/long/type_recipe.py"),
    Sweep("pairs", "messages with every pair of damaged 16-bit words are read as the plain reader reads them",
          "build/release/fuzz/exhaustive --all-pairs"),
    Sweep("damage", "messages with random damage are read and inspected as the plain reader reads them",
          "build/release/fuzz/damage_sweep 2000"),
    Sweep("records", "random records, whole and damaged, are written and read as the plain writer and reader do it",
          "build/release/fuzz/random_records 250000 && build/release/fuzz/partly_filled"),
    Sweep("helgrind", "first calls and many threads under helgrind",
          "cmake --preset debug -DNAC_BUILD_TESTS=ON >build/debug.log && cmake --build --preset debug --target first_use_test && "
          "python3 tests/long/helgrind.py"),
    Sweep("cluster", "a cluster of three NATS servers under kills of servers, senders and receivers",
          f"{PEER} python3 tests/long/bus_chaos.py --messages 1000000 --batch 20 --kills 100"),
    Sweep("takeover", "a receiver on NATS that is cut off, and the one that takes its address over",
          f"{PEER} python3 tests/long/bus_chaos.py --messages 200000 --takeover"),
    Sweep("bus-faults", "what comes of messages on ipc and nats while processes, disks and networks fail; the table of "
          "[the bus](bus.md#when-processes-and-servers-come-and-go)", f"{PEER} python3 tests/long/bus_faults.py"),
    Sweep("compilers", "compilers and levels of optimisation give the same output", "python3 tests/long/compilers.py"),
    Sweep("aarch64", "all tests on aarch64, emulated", preset_tests("aarch64")),
    Sweep("s390x", "all tests on s390x, which is big-endian, emulated", preset_tests("s390x")),
    Sweep("coverage", "lines and branches that the tests run", "tests/long/coverage.sh"),
    Sweep("faults", "seeded faults in the library that the tests notice", "python3 tests/long/seed_faults.py"),
    Sweep("program-faults", "the same in the bus, the inspection and nac, 60 of them",
          "python3 tests/long/seed_faults.py --programs --sample 60"),
    Sweep("fuzzers", "fuzzers, a promise each, under sanitizers", "./dev fuzz --seconds 600"),
    Sweep("interface", "the binary interface of the bus is the one on record", "./dev bus-interface"),
    Sweep("packages", "packages in a clean Debian 12, and the same bytes when built again", "./dev test-packages"),
    Sweep("newcomer", "the tutorial on a bare Debian 12", "./dev newcomer --bare"),
]


def words_of(*command: str) -> str:
    return subprocess.run(command, cwd=ROOT, check=True, capture_output=True, text=True).stdout.strip()


def is_clean() -> bool:
    """Whether the tree is that of its commit, but for what this program writes."""
    return not words_of("git", "status", "--porcelain", "--", ".", f":!{PAGE.relative_to(ROOT)}", f":!{FIGURES.relative_to(ROOT)}")


def run(sweep: Sweep) -> dict[str, typing.Any] | None:
    """Its figures; none if it failed."""
    log = LOGS / f"{sweep.name}.log"
    start = time.monotonic()
    with log.open("w") as words:
        done = subprocess.run(["sh", "-c", sweep.command], cwd=ROOT, stdin=subprocess.DEVNULL, stdout=words,
                              stderr=subprocess.STDOUT)
    seconds = round(time.monotonic() - start)
    text = log.read_text(errors="replace")
    if done.returncode != 0:
        print(f"{text[-4000:]}\n{sweep.name} failed with {done.returncode} after {seconds} s; all its words are in {log}")
        return None
    counts = [match.strip() for match in re.findall(r"^\W*count: (.*)$", text, re.M)]
    print("".join(f"   {count}\n" for count in counts), end="", flush=True)
    return {"counts": list(dict.fromkeys(counts)), "seconds": seconds, "date": f"{datetime.date.today()}",
            "commit": words_of("git", "rev-parse", "--short", "HEAD") + ("" if is_clean() else ", changed")}


def on_record() -> dict[str, dict[str, typing.Any]]:
    return json.loads(FIGURES.read_text()) if FIGURES.exists() else {}


def page(figures: dict[str, dict[str, typing.Any]]) -> str:
    rows = [BEGIN]
    for sweep in SWEEPS:
        rows.append(f"\n### {sweep.name}\n\n{sweep.shows[0].upper()}{sweep.shows[1:]}.\n\n")
        found = figures.get(sweep.name)
        if found is None:
            rows.append("Not run yet.\n")
            continue
        rows += [f"- {count}\n" for count in found["counts"]]
        rows.append(f"\n{found['date']}, commit {found['commit']}, {found['seconds']:,} s: `{sweep.command}`\n")
    return "".join([*rows, "\n", END])


def main() -> int:
    parser = argparse.ArgumentParser(description="Runs the slow sweeps, and writes what they counted to docs/reliability.md.")
    parser.add_argument("names", nargs="*", metavar="NAME", help=f"of {', '.join(sweep.name for sweep in SWEEPS)}")
    parser.add_argument("--page", action="store_true", help="run nothing, write the page from the figures on record")
    arguments = parser.parse_args()
    unknown = set(arguments.names) - {sweep.name for sweep in SWEEPS}
    if unknown:
        parser.error(f"no such sweep: {', '.join(sorted(unknown))}")
    LOGS.mkdir(parents=True, exist_ok=True)
    figures = on_record()
    failed = False
    for sweep in SWEEPS if not arguments.page else []:
        if arguments.names and sweep.name not in arguments.names:
            continue
        print(f"== {sweep.name}: {sweep.shows}", flush=True)
        found = run(sweep)
        if found is None:
            failed = True
            break
        figures[sweep.name] = found
        FIGURES.write_text(json.dumps(figures, indent=1) + "\n")
    before, _, rest = PAGE.read_text().partition(BEGIN)
    PAGE.write_text(before + page(figures) + rest.partition(END)[2])
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
