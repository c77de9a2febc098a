# SPDX-License-Identifier: Apache-2.0
# Runs the benchmarks of a build and writes results.json, results.md and the first diagram.
#
# All candidates run in one process, pinned to one core; Google Benchmark repeats each 21 times and mixes the
# repetitions of all of them at random, so that a slow minute of the machine meets every candidate alike.
import argparse
import datetime
import json
import os
import pathlib
import platform
import re
import subprocess
import sys

import instructions
import report

ROOT = pathlib.Path(__file__).resolve().parent.parent
PACKAGES = {"protobuf": "libprotobuf-dev", "nanopb": "libnanopb-dev", "protobuf-c": "libprotobuf-c-dev",
            "Cap'n Proto": "libcapnp-dev", "msgpack": "libmsgpack-cxx-dev", "Google Benchmark": "libbenchmark-dev",
            "C library": "libc6-dev"}


def output(*command: str) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True,
                          env={**os.environ, "LC_ALL": "C"}).stdout.strip()


def machine(build: pathlib.Path) -> dict:
    cpu = dict(re.findall(r"^([^:]+): +(.*)$", output("lscpu"), re.MULTILINE))
    cache = (build / "CMakeCache.txt").read_text()
    (compiler,) = re.findall(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", cache, re.MULTILINE)
    (flags,) = re.findall(r"^CMAKE_CXX_FLAGS_RELEASE:\w+=(.*)$", cache, re.MULTILINE)
    caches = ", ".join(f"{level} {cpu[f'{level} cache']}" for level in ("L1d", "L1i", "L2", "L3") if f"{level} cache" in cpu)
    frequency = cpu.get("CPU max MHz")
    return {
        "date": datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d"),
        "processor": cpu["Model name"] + (f", at most {float(frequency):.0f} MHz" if frequency else ""),
        "caches": caches,
        "system": f"{platform.freedesktop_os_release()['PRETTY_NAME']}, {platform.machine()}"
                  + (f", in a virtual machine ({cpu['Hypervisor vendor']})" if "Hypervisor vendor" in cpu else ""),
        "compiler": f"{output(compiler, '--version').splitlines()[0]}, {flags}",
        "versions": {name: output("dpkg-query", "-W", "-f", "${Version}", package) for name, package in PACKAGES.items()},
    }


def facts(build: pathlib.Path) -> list:
    counter = build / "bench" / "libheap_counter.so"
    text = subprocess.run([build / "bench" / "compare", "--facts"], check=True, capture_output=True, text=True,
                          env={**os.environ, "LD_PRELOAD": str(counter)}).stdout
    return json.loads(text)


def counted(build: pathlib.Path) -> list:
    """Instructions a call, without those of the C library: its memcpy is chosen by the processor."""
    os.environ.setdefault("VALGRIND", "valgrind")
    rows = instructions.measure(str(build / "bench" / "compare"), "--instructions",
                                counts=lambda part, function, _: not re.search(r"/(libc|ld-linux)[^/]*$", part)
                                and "bench::count_calls(" not in function)
    return [dict(zip(("message", "content", "operation"), name.split("/", 2)), instructions=row["instructions"])
            for name, row in rows.items()]


def times(compare: list, raw: pathlib.Path, repetitions: int, seconds: float) -> list:
    finished = subprocess.run(
        [*compare, f"--benchmark_repetitions={repetitions}",
         f"--benchmark_min_time={seconds}", "--benchmark_enable_random_interleaving=true", f"--benchmark_out={raw}",
         "--benchmark_out_format=json"],
        env={**os.environ, "LD_BIND_NOW": "1"}, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    if finished.returncode != 0:
        sys.exit(finished.stderr)
    rows: dict[str, list] = {}
    for entry in json.loads(raw.read_text())["benchmarks"]:
        if entry["run_type"] != "iteration":
            continue
        if entry["time_unit"] != "ns":
            sys.exit(f"unexpected unit {entry['time_unit']}")
        rows.setdefault(entry["run_name"], []).append(float(f"{entry['cpu_time']:.5g}"))
    result = []
    for name, nanoseconds in rows.items():
        if len(nanoseconds) != repetitions:
            sys.exit(f"{name} ran {len(nanoseconds)} times")
        message, content, operation = re.sub(r"(/repeats:\d+|/threads:\d+)+$", "", name).split("/", 2)
        result.append({"message": message, "content": content, "operation": operation, "ns": nanoseconds})
    return result


def main() -> None:
    parser = argparse.ArgumentParser(
        prog="./dev bench", description="Times the library against memcpy and other codecs.")
    parser.add_argument("--compiler", choices=["g++", "clang"], default="g++", help="whose build is run")
    parser.add_argument("--output", type=pathlib.Path, help="folder for the results")
    parser.add_argument("--quick", action="store_true",
                        help="a short run, to try; its results stay in the build's folder")
    parser.add_argument("--cpu", type=int, default=max(os.sched_getaffinity(0)), help="the core to run on")
    options = parser.parse_args()
    repetitions, seconds = (3, 0.005) if options.quick else (21, 0.04)
    build = ROOT / "build" / {"g++": "release", "clang": "clang-release"}[options.compiler]
    kept = ROOT / "docs/performance" / {"g++": "gcc", "clang": "clang"}[options.compiler]
    folder = options.output or (build / "performance" if options.quick else kept)
    folder.mkdir(parents=True, exist_ok=True)

    compare = build / "bench" / "compare"
    started = datetime.datetime.now()
    results = {"machine": machine(build), "repetitions": repetitions, "seconds_each": seconds,
               "facts": facts(build), "instructions": counted(build),
               "times": times(["taskset", "-c", str(options.cpu), compare], build / "bench/times.json", repetitions, seconds)
               + times([compare, "--threads"], build / "bench/threads.json", repetitions, seconds)}
    report.write_json(results, folder / "results.json")
    report.write_all(results, folder)
    measured = report.Results(results)
    if measured.left_out:
        print(f"left out: {', '.join(measured.left_out)}; docs/performance/README.md says how they take part")
    if far := measured.unquiet():
        print(f"not a quiet run: the repetitions of {len(far)} benchmarks lie too far apart, of {far[0]} most; repeat it")
    try:
        shown = folder.resolve().relative_to(ROOT)
    except ValueError:
        shown = folder
    print(f"{len(results['times'])} benchmarks in {(datetime.datetime.now() - started).seconds} s; written to {shown}")


if __name__ == "__main__":
    main()
