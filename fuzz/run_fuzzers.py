# SPDX-License-Identifier: Apache-2.0
# Runs the fuzzers of a build for a while, one a processor, and prints what they did.
#
# The engine is libFuzzer, under sanitizers, or AFL++, which knows other ways to new code; the programs are the same.
# The engines take the stored inputs, fuzz/corpus and fuzz/regressions, from the build's folder seeds/. Inputs that reach
# new code go to the corpus when --keep is given, reduced to those that matter (libFuzzer only). A finding is left in the
# build's folder findings/, and makes the exit code 1.
import argparse
import concurrent.futures
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# Shares of the time, of most fuzzers 1: what reads received bytes gets most.
SHARES = {"decode_fuzz": 4, "damage_fuzz": 4, "round_trip_fuzz": 2, "walk_fuzz": 2}


CORPUS_HEADER = "# Inputs that reach code, one a line; ./dev fuzz --keep renews them.\n"


def stored_inputs(*paths: pathlib.Path) -> list[bytes]:
    return [bytes.fromhex(line) for path in paths for line in path.read_text().splitlines() if not line.startswith("#")]


def unpack(name: str, build: pathlib.Path) -> pathlib.Path:
    """Writes the stored inputs of a promise as a file each, as the engines take them."""
    folder = build / "seeds" / name
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for data in stored_inputs(*(ROOT / "fuzz/corpus").glob(f"{name}.hex"),
                              *(ROOT / "fuzz/regressions" / name).glob("*.hex")):
        (folder / hashlib.sha1(data).hexdigest()).write_bytes(data)
    return folder


def pack(name: str, folder: pathlib.Path) -> None:
    """Makes the files of a folder the corpus of a promise; regressions stay where they are."""
    named = stored_inputs(*(ROOT / "fuzz/regressions" / name).glob("*.hex"))
    lines = sorted({path.read_bytes().hex() for path in folder.iterdir()} - {data.hex() for data in named})
    (ROOT / f"fuzz/corpus/{name}.hex").write_text(CORPUS_HEADER + "".join(f"{line}\n" for line in lines))


Result = tuple[str, int, int, list[str]]  # name, executions, features reached, findings' paths


def run_libfuzzer(name: str, build: pathlib.Path, seconds: int, keep: bool) -> Result:
    findings = build / "findings" / name
    working = build / "corpus" / name
    for folder in (findings, working):
        folder.mkdir(parents=True, exist_ok=True)
    stored = unpack(name, build)
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
        pack(name, stored)
    found = sorted(str(path) for path in findings.iterdir())
    if done.returncode != 0 and not found:
        found = [f"{name} ended with {done.returncode}"]
    return name, int(executed[-1]) if executed else 0, int(features[-1]) if features else 0, found


def run_afl(name: str, build: pathlib.Path, seconds: int, _keep: bool) -> Result:
    output = build / "findings" / name
    shutil.rmtree(output, ignore_errors=True)
    output.mkdir(parents=True)
    # No screen, and no demands on the machine's settings: speed is not at stake.
    settings = {name: "1" for name in ("AFL_NO_UI", "AFL_SKIP_CPUFREQ", "AFL_I_DONT_CARE_ABOUT_MISSING_CRASHES",
                                       "AFL_NO_AFFINITY")}
    command = ["afl-fuzz", "-V", str(seconds), "-i", unpack(name, build), "-o", output, "--", build / "fuzz" / name]
    done = subprocess.run(command, capture_output=True, text=True, errors="replace", env={**os.environ, **settings})
    statistics = output / "default/fuzzer_stats"
    if done.returncode != 0 or not statistics.exists():
        return name, 0, 0, [f"{name} ended with {done.returncode}: {done.stdout[-500:]}"]
    numbers = dict(re.findall(r"^(\w+) *: (\d+)$", statistics.read_text(), re.M))
    found = sorted(str(path) for kind in ("crashes", "hangs") for path in (output / "default" / kind).glob("id*"))
    return name, int(numbers["execs_done"]), int(numbers["edges_found"]), found


ENGINES = {"libfuzzer": (run_libfuzzer, "build/fuzz"), "afl": (run_afl, "build/afl")}


def main() -> int:
    parser = argparse.ArgumentParser(description="Runs the fuzzers for a while and prints what they did.")
    parser.add_argument("--seconds", type=int, default=60, help="for all fuzzers together on all processors")
    parser.add_argument("--keep", action="store_true", help="add what reaches new code to the stored inputs")
    parser.add_argument("--engine", choices=ENGINES, default="libfuzzer")
    arguments = parser.parse_args()
    run, build = ENGINES[arguments.engine]
    jobs = os.cpu_count() or 1
    shares = {path.stem: SHARES.get(path.stem, 1) for path in sorted((ROOT / "fuzz").glob("*_fuzz.cpp"))}
    each = arguments.seconds * jobs / sum(shares.values())
    total = 0
    findings: list[str] = []
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        runs = [pool.submit(run, name, ROOT / build, max(1, round(each * share)), arguments.keep)
                for name, share in shares.items()]
        for future in concurrent.futures.as_completed(runs):
            name, executed, features, found = future.result()
            print(f"count: {name:<16} {executed:>12,} executions {features:>8,} features {len(found):>3} findings", flush=True)
            total += executed
            findings += found
    print(f"count: {'all':<16} {total:>12,} executions {'':>17} {len(findings):>3} findings")
    for path in findings:
        print(path)
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
