# SPDX-License-Identifier: Apache-2.0
# Runs the fuzzers of a build for a while, two at a time, and prints what they did.
#
# Inputs that reach new code go to the corpus when --keep is given, reduced to those that matter. A finding is
# left in build/fuzz/findings, and makes the exit code 1.
import argparse
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# Shares of the time: what reads received bytes gets most.
SHARES = {"decode_fuzz": 4, "damage_fuzz": 4, "round_trip_fuzz": 2, "batch_fuzz": 1, "text_fuzz": 1}


def run(name: str, build: pathlib.Path, seconds: int, keep: bool) -> tuple[str, int, int, list[str]]:
    """Returns the name, executions, features, and the findings' paths."""
    findings = build / "findings" / name
    working = build / "corpus" / name
    for folder in (findings, working):
        folder.mkdir(parents=True, exist_ok=True)
    stored = ROOT / "fuzz/corpus" / name
    stored.mkdir(parents=True, exist_ok=True)
    program = build / "fuzz" / name
    command = [program, working, stored, f"-max_total_time={seconds}", "-print_final_stats=1", "-max_len=4096",
               "-timeout=10", "-rss_limit_mb=4096", f"-artifact_prefix={findings}/"]
    done = subprocess.run(command, capture_output=True, text=True, errors="replace")
    executed = re.findall(r"stat::number_of_executed_units: (\d+)", done.stderr)
    features = re.findall(r" ft: (\d+)", done.stderr)
    if done.returncode != 0:
        print(done.stderr[-3000:], file=sys.stderr)
    elif keep:
        subprocess.run([program, "-merge=1", "-max_len=4096", stored, working], capture_output=True, check=True)
    found = sorted(str(path) for path in findings.iterdir())
    if done.returncode != 0 and not found:
        found = [f"{name} ended with {done.returncode}"]
    return name, int(executed[-1]) if executed else 0, int(features[-1]) if features else 0, found


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seconds", type=int, default=60, help="for all fuzzers together on all processors")
    parser.add_argument("--keep", action="store_true", help="add what reaches new code to the stored inputs")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/fuzz")
    arguments = parser.parse_args()
    jobs = os.cpu_count() or 1
    each = arguments.seconds * jobs / sum(SHARES.values())
    total = 0
    findings: list[str] = []
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        runs = [pool.submit(run, name, arguments.build, max(1, round(each * share)), arguments.keep)
                for name, share in SHARES.items()]
        for future in concurrent.futures.as_completed(runs):
            name, executed, features, found = future.result()
            print(f"{name:<16} {executed:>12,} executions {features:>8,} features {len(found):>3} findings", flush=True)
            total += executed
            findings += found
    print(f"{'all':<16} {total:>12,} executions {'':>17} {len(findings):>3} findings")
    for path in findings:
        print(path)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
