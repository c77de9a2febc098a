# SPDX-License-Identifier: Apache-2.0
# Counts the instructions of each of the library's operations, and of verification, under callgrind, and compares them
# with the table instructions.json, which has a section for each compiler.
#
# Counted is what runs in the library itself. The C library is left out: which memcpy it takes depends on the
# processor, and what malloc does on all that was allocated before. Everything else is the same in every run: the
# records, the environment, symbols bound at the start.
#
# PROGRAM, VALGRIND and CXX in the environment are the program instructions, valgrind, and the compiler of the build.
import argparse
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

TABLE = pathlib.Path(__file__).with_suffix(".json")
MADE_BY = "./dev bench-instructions --update"
TOLERANCE = 0.03
LIBRARIES = ("libvorn_nac_user.so", "libvorn_nac_inspect.so")
MOST_OF_UNPACK = 1.2  # what verify may cost
SOURCES = {  # where an operation's instructions come from
    "size": "runtime/size.h",
    "pack": "runtime/pack.h, runtime/compact.h, runtime/frame.h, runtime/size.h",
    "unpack": "runtime/unpack.h, runtime/frame.h, runtime/region.h, runtime/release.h",
    "unpack image": "runtime/unpack.h, runtime/frame.h, runtime/region.h",
    "verify": "inspect/type_operations.h, inspect/checked_record.h, and what unpack reads with",
    "verify image": "inspect/type_operations.h, and what unpack reads with",
    "send": "bus/send.h, and what it packs with: runtime/image.h or runtime/pack.h",
}


def costs_by_function(dump: str) -> dict[tuple[str, str], int]:
    """The instructions of each (object, function) itself, without what it calls."""
    names: dict[str, dict[str, str]] = {"ob": {}, "fn": {}}

    def name(kind: str, text: str) -> str:
        number, _, spelled = text.partition(" ")  # "(7) name" the first time, then "(7)"
        return names[kind].setdefault(number, spelled) if spelled else names[kind][number]

    costs: dict[tuple[str, str], int] = {}
    current = {"ob": "", "fn": ""}
    inclusive = False  # the line after calls= is the cost of what is called
    for line in dump.splitlines():
        if entry := re.match(r"c?(ob|fn)=(.*)", line):
            kind = entry[1]
            value = name(kind, entry[2])
            if not line.startswith("c"):
                current[kind] = value
        elif line.startswith("calls="):
            inclusive = True
        elif cost := re.fullmatch(r"[+\-*]?\d* (\d+)", line):
            if not inclusive:
                key = (current["ob"], current["fn"])
                costs[key] = costs.get(key, 0) + int(cost[1])
            inclusive = False
    return costs


def is_counted(part: str, function: str, operation: str) -> bool:
    # The size is no function of the library's interface: the program has its template, and the loop around it.
    if operation == "size":
        program = pathlib.Path(os.environ["PROGRAM"]).name
        return pathlib.Path(part).name == program and "bench::count_calls(" not in function
    return any(library in part for library in LIBRARIES)


def readable(function: str) -> str:
    """Short enough for a line. clang's lambdas have names that callgrind cannot read: then what occurs in them."""
    if function.startswith("_Z"):
        parts = re.findall(r"(?:NS_|N5kaplo)\d+([a-z_]+)", function) + re.findall(r"\d(Nac_[A-Za-z]\w*?)\d", function)[:1]
        return " in ".join(dict.fromkeys(parts))
    return function[:90]


def measure(*command: str, counts=is_counted) -> dict[str, dict]:
    """For each operation that the command runs, its instructions a call, and the functions that most of them are in."""
    with tempfile.TemporaryDirectory() as folder:
        prefix = pathlib.Path(folder) / "dump"
        finished = subprocess.run(
            [os.environ["VALGRIND"], "--tool=callgrind", "--collect-atstart=no", f"--callgrind-out-file={prefix}",
             *command],
            env={"LD_BIND_NOW": "1", "LC_ALL": "C"}, capture_output=True, text=True)
        if finished.returncode != 0:
            sys.exit(finished.stderr)
        calls = dict(reversed(line.split(" ", 1)) for line in finished.stdout.splitlines())
        measured = {}
        for path in prefix.parent.glob("dump.*"):
            dump = path.read_text()
            request = re.search(r"^desc: Trigger: Client Request: (.*)$", dump, re.MULTILINE)
            if request is None:
                continue  # what remains at the end
            operation = request[1].rsplit("/", 1)[1]
            counted = {function: cost / int(calls[request[1]]) for (part, function), cost in costs_by_function(dump).items()
                       if counts(part, function, operation)}
            most = sorted(counted.items(), key=lambda item: -item[1])[:3]
            measured[request[1]] = {"instructions": round(sum(counted.values()), 1),
                                    "functions": [f"{cost:.0f} in {readable(function)}" for function, cost in most]}
    if measured.keys() != calls.keys() or not all(row["instructions"] > 0 for row in measured.values()):
        sys.exit("callgrind did not count every operation")
    return {name: measured[name] for name in calls}


def source_of(operation: str) -> str:
    return SOURCES["send" if operation.startswith("send") else operation]


def compare(now: dict[str, dict], before: dict[str, float]) -> tuple[list[str], list[str]]:
    """What got worse, and what else the table does not know."""
    worse, better = [], []
    for name, row in now.items():
        if name not in before:
            worse.append(f"{name}: {row['instructions']} instructions, and not in the table")
            continue
        change = row["instructions"] / before[name] - 1
        text = f"{name}: {before[name]} -> {row['instructions']} instructions ({change:+.1%})"
        if change > TOLERANCE:
            worse.append(f"{text}\n    see {source_of(name.rsplit('/', 1)[1])}\n    " + "\n    ".join(row["functions"]))
        elif change < -TOLERANCE:
            better.append(text)
    worse += [f"{name}: in the table, and not measured" for name in before.keys() - now.keys()]
    return worse, better


def dear_verifications(now: dict[str, dict]) -> list[str]:
    """Verifications of valid messages that cost too much beside unpack."""
    found = []
    for name, row in now.items():
        unpack = name.replace("/verify", "/unpack")
        if unpack != name and row["instructions"] > MOST_OF_UNPACK * now[unpack]["instructions"]:
            found.append(f"{name}: {row['instructions']} instructions, and unpack {now[unpack]['instructions']}")
    return found


def write(table: dict) -> None:
    sections = [f' "{compiler}": {{\n  "version": {json.dumps(section["version"])},\n  "instructions": {{\n'
                + ",\n".join(f"   {json.dumps(name)}: {count}" for name, count in section["instructions"].items())
                + "\n  }\n }" for compiler, section in sorted(table.items())]
    TABLE.write_text(f'{{"made by": "{MADE_BY}",\n' + ",\n".join(sections) + "\n}\n")


def main() -> None:
    parser = argparse.ArgumentParser(
        prog="./dev bench-instructions", description="Compares the library's instructions with the table.")
    parser.add_argument("--update", action="store_true", help="write what is counted into the table")
    parser.add_argument("--build", type=pathlib.Path, help="a build whose program `instructions` to count")
    options = parser.parse_args()
    if options.build:
        cache = (options.build / "CMakeCache.txt").read_text()
        os.environ.update(CXX=re.findall(r"^CMAKE_CXX_COMPILER:\w+=(.*)$", cache, re.M)[0], VALGRIND="valgrind",
                          PROGRAM=str(options.build / "bench/instructions"))
    version = subprocess.run([os.environ["CXX"], "--version"], check=True, capture_output=True,
                             text=True).stdout.splitlines()[0]
    compiler = "clang" if "clang" in version else "g++"
    table = json.loads(TABLE.read_text()) if TABLE.exists() else {}
    table.pop("made by", None)
    now = measure(os.environ["PROGRAM"])
    if dear := dear_verifications(now):
        print(f"Verification takes more than {MOST_OF_UNPACK} times what unpack takes:", *dear, sep="\n  ")
        sys.exit(1)
    if options.update:
        table[compiler] = {"version": version, "instructions": {name: row["instructions"] for name, row in now.items()}}
        write(table)
        print(f"{TABLE.name}: {len(now)} operations of {compiler} written")
        return
    section = table.get(compiler, {"version": "no compiler", "instructions": {}})
    worse, better = compare(now, section["instructions"])
    renew = f"{MADE_BY} renews the table"
    if version != section["version"]:
        print(f"The table was counted with {section['version']}, this is {version}: differences may be the compilers'.")
    if better:
        print(f"Better by more than {TOLERANCE:.0%}; {renew}:", *better, sep="\n  ")
    if worse:
        print(f"Worse by more than {TOLERANCE:.0%}; where that is the price of something, {renew}:", *worse, sep="\n  ")
        sys.exit(1)
    print(f"count: {len(now)} operations take no more instructions than on record for {compiler}")


if __name__ == "__main__":
    main()
