# SPDX-License-Identifier: Apache-2.0
# Which lines and branches of the library the tests of the preset coverage have run; all must have, but those below.
#
# gcov counts. The instances of a template are one source: its branch is taken if any instance takes it. Where the
# programs differ in a line's number of branches, as for a lambda that is called for each field, those count that compile
# it for all message types. What nothing can take stands in ARGUED with the reason. Prints the totals and whatever is left;
# exits with 1 if anything is.
import collections
import concurrent.futures
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/coverage"
COUNTED = ("runtime", "bus", "nac")

# Lines, as they stand, some of whose branches or which themselves are never run, and why.
BY_THE_COMPILER = "runs in the compiler, which makes blank images and frames; the tests compare these"
ARGUED: dict[tuple[str, str], str] = {
    ("runtime/size.h", "for (std::uint32_t k = 0; k < count && bytes <= kLargestMessage; ++k) {"):
        "only 4 GiB of elements end the loop early, which pack_test shows in the library itself",
    ("runtime/size.h", "if (has_size<F>(record) && !is_written<F>(record)) bytes += kReferenceBytes + kCountBytes;"):
        "for most types the two are the same",
    ("runtime/compact.h", "if (is_copied<T, order> && !std::is_constant_evaluated()) {"): BY_THE_COMPILER,
    ("runtime/wire.h", 'if (!std::is_constant_evaluated()) asm("" : "+r"(mask));'): BY_THE_COMPILER,
    ("runtime/image.h", "for (std::uint32_t k = 0; k < std::extent_v<typename F::Member>; ++k) {"):
        "byte_swap_test compiles images of records of its own for both byte orders and needs one",
    ("runtime/wire.h", "if (std::is_constant_evaluated()) {"): BY_THE_COMPILER,
    ("runtime/wire.h", "for (std::size_t i = 0; i < sizeof(T); ++i) at[i] = bytes[i];"): BY_THE_COMPILER,
}


def counts_of(data: pathlib.Path) -> list[tuple[str, int, int, list[int]]]:
    """(file, line number, times run, times each branch was taken) of every instance of every line."""
    done = subprocess.run(["gcov", "--branch-probabilities", "--json-format", "--stdout", data], cwd=BUILD, check=True,
                          capture_output=True, text=True)
    found = []
    for document in map(json.loads, done.stdout.splitlines()):
        for file in document["files"]:
            path = (ROOT / file["file"]).resolve()  # the library's own are relative to the project
            if path.is_relative_to(ROOT) and path.relative_to(ROOT).parts[0] in COUNTED:
                found += [(str(path.relative_to(ROOT)), line["line_number"], line["count"],
                           [branch["count"] for branch in line["branches"]]) for line in file["lines"]]
    return found


def main() -> int:
    run: collections.Counter[tuple[str, int]] = collections.Counter()
    taken: dict[tuple[str, int], dict[int, list[int]]] = collections.defaultdict(dict)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for found in pool.map(counts_of, BUILD.rglob("*.gcda")):
            for path, number, times, branches in found:
                run[path, number] += times
                so_far = taken[path, number].setdefault(len(branches), [0] * len(branches))
                for i, count in enumerate(branches):
                    so_far[i] += count
    if not run:
        sys.exit("coverage: nothing was counted; run the tests of the preset coverage first")

    fullest = {line: kinds[max(kinds)] for line, kinds in taken.items()}
    branches = sum(map(len, fullest.values()))
    never_taken = argued = argued_lines = 0
    left = []
    used = set()
    for (path, number), times in sorted(run.items()):
        text = (ROOT / path).read_text().splitlines()[number - 1].strip()
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
    print(f"{lines_run} of {len(run)} lines run, {branches - never_taken} of {branches} branches taken; "
          f"{argued_lines} lines and {argued} branches cannot be:")
    for (path, text), reason in ARGUED.items():
        print(f"    {path}: {text}\n        {reason}")
    left += [f"{path}: excluded without need: {text}" for path, text in ARGUED.keys() - used]
    for each in left:
        print(each)
    return 1 if left else 0


if __name__ == "__main__":
    sys.exit(main())
