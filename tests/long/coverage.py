# SPDX-License-Identifier: Apache-2.0
# Which lines and branches the tests have run: of the library, in the preset coverage, all must have been but those below;
# of the bus, the inspection and the tool, in the preset coverage-programs, nearly all (LEAST).
#
# gcov counts. The instances of a template are one source: its branch is taken if any instance takes it. Where the
# programs differ in a line's number of branches, as for a lambda that is called for each field, those count that compile
# it for all message types. What nothing can take stands in ARGUED with the reason. The edges on which exceptions leave a
# call are no branches; neither are, in the programs, those on a closing brace or a catch, where the compiler puts what it
# destroys on these edges. Prints the totals and what is left of the library, and writes what is left of the others to
# build/coverage-programs/left.txt; exits with 1 if anything is left of the library, or too much of the others.
import collections
import concurrent.futures
import functools
import json
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
LIBRARY = ROOT / "build/coverage", ("runtime", "bus", "nac")
PROGRAMS = ROOT / "build/coverage-programs", ("vorn", "inspect", "tool")
LEAST = .95, .85  # of their lines and branches
MADE_BY_THE_COMPILER = re.compile(r"[})\];,]*$|\} catch ")

Counts = dict[tuple[str, int], tuple[int, list[int]]]  # (file, line number): times run, times each branch was taken

# Lines, as they stand, some of whose branches or which themselves are never run, and why.
BY_THE_COMPILER = "runs in the compiler, which makes blank images and frames; the tests compare these"
ARGUED: dict[tuple[str, str], str] = {
    ("runtime/size.h", "for (std::uint32_t k = 0; k < count && bytes <= kLargestMessage; ++k) {"):
        "only 4 GiB of elements end the loop early, which pack_test shows in the library itself",
    ("runtime/size.h", "if (has_size<F>(record) && !is_written<F>(record)) bytes += kReferenceBytes + kCountBytes;"):
        "for most types the two are the same",
    ("runtime/compact.h", "if (is_copied<T, order> && !std::is_constant_evaluated()) {"): BY_THE_COMPILER,
    ("runtime/wire.h", 'if (!std::is_constant_evaluated()) asm("" : "+r"(mask));'): BY_THE_COMPILER,
    ("runtime/wire.h", 'if (!std::is_constant_evaluated()) asm("" : "+r"(count));'): BY_THE_COMPILER,
    ("runtime/image.h", "for (std::uint32_t k = 0; k < std::extent_v<typename F::Member>; ++k) {"):
        "byte_swap_test compiles images of records of its own for both byte orders and needs one",
    ("runtime/wire.h", "if (std::is_constant_evaluated()) {"): BY_THE_COMPILER,
    ("runtime/wire.h", "for (std::size_t i = 0; i < sizeof(T); ++i) at[i] = bytes[i];"): BY_THE_COMPILER,
}


def counts_of(data: pathlib.Path, build: pathlib.Path, folders: tuple[str, ...]) -> list[tuple[str, int, int, list[int]]]:
    """(file, line number, times run, times each branch was taken) of every instance of every line."""
    done = subprocess.run(["gcov", "--branch-probabilities", "--json-format", "--stdout", data], cwd=build, check=True,
                          capture_output=True, text=True)
    found = []
    for document in map(json.loads, done.stdout.splitlines()):
        for file in document["files"]:
            path = (build / file["file"]).resolve()
            if not path.exists():
                path = (ROOT / file["file"]).resolve()  # the library's own are relative to the project
            if path.is_relative_to(ROOT) and path.relative_to(ROOT).parts[0] in folders:
                found += [(str(path.relative_to(ROOT)), line["line_number"], line["count"],
                           [branch["count"] for branch in line["branches"] if not branch["throw"]])
                          for line in file["lines"]]
    return found


def counts(build: pathlib.Path, folders: tuple[str, ...]) -> Counts:
    run: collections.Counter[tuple[str, int]] = collections.Counter()
    taken: dict[tuple[str, int], dict[int, list[int]]] = collections.defaultdict(dict)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for found in pool.map(lambda data: counts_of(data, build, folders), build.rglob("*.gcda")):
            for path, number, times, branches in found:
                run[path, number] += times
                so_far = taken[path, number].setdefault(len(branches), [0] * len(branches))
                for i, count in enumerate(branches):
                    so_far[i] += count
    return {line: (times, taken[line][max(taken[line])]) for line, times in run.items()}


@functools.cache
def lines_of(path: str) -> list[str]:
    return (ROOT / path).read_text().splitlines()


def line_of(path: str, number: int) -> str:
    return lines_of(path)[number - 1].strip()


def print_row(name: str, lines_run: int, lines: int, taken: int, branches: int) -> None:
    print(f"count: {name:<14} {lines_run:>6} of {lines:>6} lines {100 * lines_run / lines:>6.1f} %   "
          f"{taken:>6} of {branches:>6} branches {100 * taken / max(branches, 1):>6.1f} %")


def programs_are_covered() -> bool:
    build, folders = PROGRAMS
    counted = counts(build, folders)
    by_folder: dict[str, list[tuple[int, list[int]]]] = collections.defaultdict(list)
    left = []
    for (path, number), (times, branches) in sorted(counted.items()):
        if MADE_BY_THE_COMPILER.match(line_of(path, number)):
            branches = []
        for folder in {path.split("/")[0], path.rpartition("/")[0]}:
            by_folder[folder].append((times, branches))
        if not times or 0 in branches:
            left.append(f"{path}:{number}: run {times} times, {branches.count(0)} of {len(branches)} branches never taken")
    (build / "left.txt").write_text("".join(f"{line}\n" for line in left))
    enough = True
    for folder, lines in sorted(by_folder.items()):
        row = (sum(times > 0 for times, _ in lines), len(lines),
               sum(len(branches) - branches.count(0) for _, branches in lines), sum(len(branches) for _, branches in lines))
        print_row(folder, *row)
        if folder in folders and (row[0] < LEAST[0] * row[1] or row[2] < LEAST[1] * row[3]):
            print(f"{folder}/: less than {LEAST[0]:.0%} of lines or {LEAST[1]:.0%} of branches; what is left is in {build}/left.txt")
            enough = False
    return enough


def main() -> int:
    counted = counts(*LIBRARY)
    if not counted:
        sys.exit("coverage: nothing was counted; run the tests of the preset coverage first")
    run = {line: times for line, (times, _) in counted.items()}
    fullest = {line: branches for line, (_, branches) in counted.items()}
    branches = sum(map(len, fullest.values()))
    never_taken = argued = argued_lines = 0
    left = []
    used = set()
    for (path, number), times in sorted(run.items()):
        text = line_of(path, number)
        never = fullest[path, number].count(0)
        never_taken += never
        if times and not never:
            continue
        if (path, text) in ARGUED:
            argued += never
            argued_lines += times == 0
            used.add((path, text))
        else:
            left.append(f"{path}:{number}: run {times} times, {never} branches never taken: {text}")
    lines_run = sum(times > 0 for times in run.values())
    print(f"count: library {lines_run} of {len(run)} lines run, {branches - never_taken} of {branches} branches taken; "
          f"{argued_lines} lines and {argued} branches cannot be:")
    for (path, text), reason in ARGUED.items():
        print(f"    {path}: {text}\n        {reason}")
    left += [f"{path}: excluded without need: {text}" for path, text in ARGUED.keys() - used]
    for each in left:
        print(each)
    if not any(PROGRAMS[0].rglob("*.gcda")):
        sys.exit("coverage: nothing was counted of the programs; run the tests of the preset coverage-programs first")
    return 0 if programs_are_covered() and not left else 1


if __name__ == "__main__":
    sys.exit(main())
