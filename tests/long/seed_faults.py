# SPDX-License-Identifier: Apache-2.0
# Makes one fault at a time in the library and expects that the tests notice.
#
# Each fault is a small change of one source: a comparison shifted by one, reversed, or decided beforehand, a
# condition decided beforehand, a statement left out, a sum turned into a difference, a constant one higher, a trait
# flipped, an acquire or release order relaxed. The library is rebuilt with the fault and meets the test programs of
# the release build: first with only the data-flow units rebuilt, which is quick, then whole. What survives meets
# tests that compile the faulty headers themselves, and sanitizers. Prints killed / seeded and each survivor; exits with 1
# if there is one. Needs a build of the preset release.
import argparse
import collections
import concurrent.futures
import dataclasses
import os
import pathlib
import queue
import random
import re
import resource
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
RELEASE = ROOT / "build/release"
WORK = ROOT / "build/faults"
TEST_SECONDS = 30  # a fault may make an endless loop
TEST_MEMORY = 64 << 30  # bytes of address space, of which tests map much and touch little

SOURCES = ["runtime/*.h", "runtime/*.cpp", "bus/*.h", "nac/*.h"]

# Test programs of the release build that load the library, those first that notice most.
PROGRAMS = ["corpus_test", "user_table_test", "send_test", "pack_test", "unpack_test", "truncation_test", "dataflow_test",
            "ipsec_access_test", "uclgroup_test", "user_notices_test", "user_type_test", "evt_test", "port_test",
            "registration_test", "allocation_failure_test", "hostile_batch_test", "round_trip_test"]
# Those that are worth their time where only the data-flow units and the common runtime are faulty.
QUICK_PROGRAMS = ["dataflow_test", "send_test", "unpack_test", "pack_test", "corpus_test", "truncation_test"]
QUICK_OBJECTS = ["dataflow_recv.cpp.o", "dataflow_send.cpp.o", "kaplo_runtime.cpp.o"]
# Tests that need a process each: first calls, and hosts that lack some of the hooks.
SEPARATE = r"FirstUse|Threads|Lookups|Hooks|LogLines|HostVariant|binary_test|c_client"
# Tests that compile the headers themselves.
COMPILED = ["byte_swap_test", "description_test", "bounded_test", "message_id_test", "reversed_round_trip_test",
            "platform_memory_test"]
# Those of them that notice more under AddressSanitizer and UndefinedBehaviorSanitizer.
CHECKED = ["bounded_test", "byte_swap_test", "unpack_test"]

# Faults that change nothing that anyone could see, and why: (file, line, fault).
TERMINATOR = "the terminating zero is copied or kept, which is the same"
HARMLESS: dict[tuple[str, str, str], str] = {
    ("runtime/bounded.h", "inline constexpr int kRefused = 34;  // ERANGE", "34 becomes 34 + 1"):
        "any number but 0 refuses",
    ("runtime/pack.h", "if (record == nullptr || capacity < kShortestBuffer || buffer == nullptr) {",
     "< becomes <="): "no message has just 4 bytes",
    ("runtime/description.h", "for (std::size_t i = 0; i < length; ++i) characters[i] = literal[i];",
     "< becomes <="): TERMINATOR,
    ("runtime/description.h",
     "for (std::size_t i = 0; i < left_length; ++i) joined.characters[i] = left.characters[i];", "< becomes <="):
        TERMINATOR,
    ("runtime/description.h",
     "for (std::size_t i = 0; i + 1 < right_size; ++i) joined.characters[left_length + i] = right[i];",
     "< becomes <="): TERMINATOR,
}


@dataclasses.dataclass(frozen=True)
class Fault:
    path: str
    start: int
    end: int
    text: str  # put in offset of [start, end)
    line_number: int
    line: str  # as it stands
    what: str

    def key(self) -> tuple[str, str, str]:
        return self.path, self.line, self.what


# ---- finding where to seed ------------------------------------------------------------------------------------------


def masked(text: str) -> str:
    """The text with comments, literals and preprocessor lines blanked out, of the same length."""
    pattern = r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'|(?m:^)[ \t]*#(?:[^\n]*\\\n)*[^\n]*'
    blank = lambda match: re.sub(r"[^\n]", " ", match[0])
    return re.sub(pattern, blank, text, flags=re.DOTALL)


def operand_start(text: str, at: int) -> int:
    """Where the operand starts that ends before `at`."""
    depth = 0
    for i in range(at - 1, -1, -1):
        if text[i] in ")]}":
            depth += 1
        elif text[i] in "([{":
            if depth == 0:
                return i + 1
            depth -= 1
        elif depth == 0 and (text[i] in ";,?!" or text[i - 1 : i + 1] in ("&&", "||", "= ", ": ")
                             or re.match(r"return\b", text[i : i + 7])):
            return i + (6 if text[i] == "r" else 1)
    return 0


def operand_end(text: str, at: int) -> int:
    """Where the operand ends that starts at `at`."""
    depth = 0
    for i in range(at, len(text)):
        if text[i] in "([{":
            depth += 1
        elif text[i] in ")]}":
            if depth == 0:
                return i
            depth -= 1
        elif depth == 0 and (text[i] in ";,?" or text[i : i + 3] in (" &&", " ||", " : ")):
            return i
    return len(text)


def closing(text: str, at: int) -> int:
    """The parenthesis that closes the one at `at`."""
    depth = 0
    for i in range(at, len(text)):
        depth += {"(": 1, ")": -1}.get(text[i], 0)
        if depth == 0:
            return i
    raise ValueError("unbalanced")


SHIFTED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
NO_CODE = r"\s*(static_assert|using|template|#)"


def faults_in(path: str, text: str) -> list[tuple[int, int, str, str]]:
    """(start, end, replacement, what) of every fault in a source."""
    code = masked(text)
    found = []

    def lines_start(at: int) -> int:
        return code.rfind("\n", 0, at) + 1

    def is_code(at: int) -> bool:
        line = code[lines_start(at) : code.find("\n", at)]
        statement = code[max(code.rfind(c, 0, at) for c in ";{}") + 1 : at]
        return not re.match(NO_CODE, line) and "static_assert" not in statement

    for match in re.finditer(r"(?<=\s)(<=|>=|==|!=|<|>)(?=\s)", code):
        if not is_code(match.start()):
            continue
        found.append((*match.span(), SHIFTED[match[0]], f"{match[0]} becomes {SHIFTED[match[0]]}"))
        start, end = operand_start(code, match.start()), operand_end(code, match.end())
        operand = " ".join(text[start:end].split())
        for decided in ("true", "false"):
            found.append((start, end, f" {decided}", f"{operand} becomes {decided}"))
    for match in re.finditer(r"\bif (?:constexpr )?(\()", code):
        end = closing(code, match.start(1))
        condition = code[match.end(1) : end]
        if re.search(r"\s(<=|>=|==|!=|<|>)\s", condition) or " = " in condition:
            continue  # its comparisons are decided above
        for decided in ("true", "false"):
            found.append((match.end(1), end, decided, f"condition becomes {decided}"))
    for match in re.finditer(r"(?<=[;{}\n)])[ \t]*((?:[\w:.]|->|\*(?=\w))+(?:<[^;<>]*>)?(?:\([^;{}]*?\))?(?:\[\w+\])?"
                             r"(?: [+]?= [^;{}]*|\([^;{}]*\))?;)", code):
        statement = " ".join(match[1].split())
        if re.match(r"(return|break|using|friend|static_assert|NAC_\w+|std::uint|public|private|T |F )\b", statement) or (
                not re.search(r"[(=]", statement)):
            continue
        found.append((match.start(1), match.end(1), ";", f"without {statement}"))
    for match in re.finditer(r"(?<= )([+-])(?= )|(?<= )([+-])=(?= )", code):
        if is_code(match.start()):
            sign = match[1] or match[2]
            other = "-" if sign == "+" else "+"
            found.append((match.start(), match.start() + 1, other, f"{sign} becomes {other}"))
    for match in re.finditer(r"\bconstexpr [\w:]+ k\w+ = ((?:0x)?[0-9A-F]+);", code):
        found.append((*match.span(1), f"{match[1]} + 1", f"{match[1]} becomes {match[1]} + 1"))
    for match in re.finditer(r"static constexpr bool \w+ =\s+(true|false);", code):
        other = "false" if match[1] == "true" else "true"
        found.append((*match.span(1), other, f"{match[1]} becomes {other}"))
    for match in re.finditer(r"AllocationComplaint::(sixteen_blanks|one_blank)\b", code):
        other = "one_blank" if match[1] == "sixteen_blanks" else "sixteen_blanks"
        found.append((*match.span(1), other, f"{match[1]} becomes {other}"))
    for match in re.finditer(r"memory_order_(acquire|release)\b", code):
        found.append((*match.span(1), "relaxed", f"{match[1]} becomes relaxed"))
    return found


def all_faults() -> list[Fault]:
    faults = {}
    for pattern in SOURCES:
        for path in sorted(ROOT.glob(pattern)):
            text = path.read_text()
            name = str(path.relative_to(ROOT))
            for start, end, replacement, what in faults_in(name, text):
                begin = text.rfind("\n", 0, start) + 1
                line = text[begin : text.find("\n", start)].strip()
                faults[name, start, end, replacement] = Fault(
                    name, start, end, replacement, text.count("\n", 0, start) + 1, line, what)
    return list(faults.values())


# ---- killing them -------------------------------------------------------------------------------------------


def limit() -> None:
    resource.setrlimit(resource.RLIMIT_AS, (TEST_MEMORY, TEST_MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def run(*command: str | pathlib.Path, seconds: int = 600, limited: bool = False, **environment: str) -> bool:
    try:
        done = subprocess.run([str(each) for each in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=seconds, env={**os.environ, **environment},
                              preexec_fn=limit if limited else None)
    except subprocess.TimeoutExpired:
        return False
    return done.returncode == 0


def test_program(build: pathlib.Path, name: str) -> pathlib.Path:
    """The program of a test, in whichever folder of the build's tests it is."""
    return next(path for path in (build / "tests").rglob(name) if path.is_file())


class Workshop:
    """A copy of the sources, and builds of it."""

    def __init__(self, number: int) -> None:
        self.folder = WORK / str(number)
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
        self.plain = self.configure("plain")
        self.threads = self.configure("threads", "-DNAC_SANITIZERS=thread")
        self.checked = self.configure("checked", "-DNAC_SANITIZERS=address,undefined")
        if not self.build(self.plain, "vorn_nac_user"):
            sys.exit("seed_faults: the library as it is does not build")
        self.faultless = self.folder / "faultless"  # objects without a fault
        self.quick = self.folder / "quick"
        for folder in (self.faultless, self.quick):
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir()
        for item in self.objects():
            shutil.copy2(item, self.faultless)
        killer = self.quick_killer() or self.killer()
        if killer:
            sys.exit(f"seed_faults: without any fault, {killer} complains")

    def configure(self, name: str, *options: str) -> pathlib.Path:
        build = self.folder / name
        ready = run("cmake", "-G", "Ninja", "-S", self.source, "-B", build, "-DCMAKE_CXX_COMPILER=clang++",
                    "-DCMAKE_C_COMPILER=clang", "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O0 -w",
                    "-DNAC_BUILD_TOOL=OFF", *options)
        if not ready:
            sys.exit("seed_faults: cannot configure a build")
        return build

    def build(self, build: pathlib.Path, *targets: str) -> bool:
        return run("ninja", "-C", build, "-j", "1", *targets)

    def verdict(self, fault: Fault) -> str:
        path = self.source / fault.path
        text = path.read_text()
        path.write_text(text[: fault.start] + fault.text + text[fault.end :])
        try:
            generic = fault.path.startswith(("runtime/", "bus/"))
            return (self.quick_killer() if generic else "") or self.killer()
        finally:
            path.write_text(text)

    def objects(self) -> list[pathlib.Path]:
        return [item for part in ("library/CMakeFiles/vorn_nac_user_objects.dir", "runtime")
                for item in (self.plain / part).rglob("*.o")]

    def quick_killer(self) -> str:
        """The same, with a library of which only the data-flow units and the common runtime have the fault."""
        faulty = [item for item in self.objects() if item.name in QUICK_OBJECTS]
        if not self.build(self.plain, *(str(item.relative_to(self.plain)) for item in faulty)):
            return "the compiler"
        faultless = [item for item in self.faultless.iterdir() if item.name not in QUICK_OBJECTS]
        library = self.quick / "libvorn_nac_user.so.1"
        if not run("clang", "-shared", "-Wl,-soname,libvorn_nac_user.so.1",
                   f"-Wl,--version-script={self.plain}/library/vorn_nac_user/vorn_nac_user.map", *faulty, *faultless, "-o", library):
            return "the linker"
        return self.killing_program(QUICK_PROGRAMS, self.quick)

    @staticmethod
    def killing_program(programs: list[str], library: pathlib.Path) -> str:
        for program in programs:
            if not run(test_program(RELEASE, program), "--gtest_fail_fast", "--gtest_brief=1", limited=True,
                       seconds=TEST_SECONDS, LD_LIBRARY_PATH=str(library)):
                return program
        return ""

    def killer(self) -> str:
        """What noticed the fault that is in the sources; "" if nothing did."""
        if not self.build(self.plain, "vorn_nac_user"):
            return "the compiler"
        program = self.killing_program(PROGRAMS, self.plain)
        if program:
            return program
        faulty = {"LD_LIBRARY_PATH": str(self.plain), "LIBRARY": str(self.plain / "libvorn_nac_user.so")}
        if not self.run_tests(RELEASE, SEPARATE, **faulty):
            return "tests of first use, hosts and binary"
        for build, programs in ((self.plain, COMPILED), (self.checked, CHECKED)):
            for program in programs:
                if not self.build(build, program):
                    return "the compiler"
                if not run(test_program(build, program), "--gtest_fail_fast", "--gtest_brief=1", seconds=TEST_SECONDS):
                    return program if build == self.plain else f"{program} under sanitizers"
        for build, program, pattern in ((self.plain, "hooks_test", "Hooks|LogLines|FirstUse|UnitState|Fallback|UseFlag"),
                                        (self.threads, "first_use_test", "FirstUse|Threads")):
            if not self.build(build, program):
                return "the compiler"
            if not self.run_tests(build, pattern):
                return program if build == self.plain else "ThreadSanitizer"
        return ""

    @staticmethod
    def run_tests(build: pathlib.Path, pattern: str, **environment: str) -> bool:
        return run("ctest", "--test-dir", build, "-R", pattern, "--stop-on-failure", "--no-tests=error", "--timeout",
                   str(TEST_SECONDS), seconds=20 * TEST_SECONDS, **environment)


def main() -> int:
    parser = argparse.ArgumentParser(description="Makes one fault at a time in the library and expects that tests notice.")
    parser.add_argument("--only", default="", metavar="PATTERN", help="seed in files of this name only")
    parser.add_argument("--sample", type=int, metavar="N", help="seed N of the faults only, always the same")
    parser.add_argument("--list", action="store_true", help="print the faults and seed none")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    arguments = parser.parse_args()
    faults = [fault for fault in all_faults() if re.search(arguments.only, fault.path)]
    for path, line, what in HARMLESS.keys() - {fault.key() for fault in all_faults()}:
        sys.exit(f"seed_faults: {path} has no such fault any more: {what}: {line}")
    if arguments.sample is not None:
        faults = random.Random(1).sample(faults, min(arguments.sample, len(faults)))
    if arguments.list:
        for fault in faults:
            print(f"{fault.path}:{fault.line_number}: {fault.what}")
        print(len(faults))
        return 0

    workshops: queue.Queue[Workshop] = queue.Queue()
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for workshop in pool.map(Workshop, range(arguments.jobs)):
            workshops.put(workshop)

    def judge(fault: Fault) -> tuple[Fault, str]:
        workshop = workshops.get()
        try:
            return fault, workshop.verdict(fault)
        finally:
            workshops.put(workshop)

    started = time.monotonic()
    seeded = [fault for fault in faults if fault.key() not in HARMLESS]
    killers: collections.Counter[str] = collections.Counter()
    survivors = []
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        for done, (fault, killer) in enumerate(pool.map(judge, seeded), 1):
            killers[killer] += 1
            if not killer:
                survivors.append(fault)
                print(f"survived: {fault.path}:{fault.line_number}: {fault.what}\n    {fault.line}", flush=True)
            if done % 10 == 0:
                print(f"{done} of {len(seeded)} after {time.monotonic() - started:.0f} s", flush=True)
    for killer, count in killers.most_common():
        print(f"{count:>5} killed by {killer}" if killer else f"{count:>5} survived")
    print(f"{len(seeded) - len(survivors)} / {len(seeded)} seeded faults killed; {len(faults) - len(seeded)} more are "
          f"harmless, each with its reason in {pathlib.Path(__file__).name}")
    return 1 if survivors else 0


if __name__ == "__main__":
    sys.exit(main())
