# SPDX-License-Identifier: Apache-2.0
# Makes one fault at a time in the library, or in the programs around it, and expects that the tests notice.
#
# Each fault is a small change of one source (fault_sites.py). The library is rebuilt with it and meets the test programs
# of the release build: first with only the data-flow units rebuilt, which is quick, then whole. What survives meets
# tests that compile the faulty headers themselves, and sanitizers. Prints killed / seeded and each survivor; exits with 1
# if there is one. Needs a build of the preset release; for the programs (program_faults.py), none.
import argparse
import collections
import concurrent.futures
import os
import pathlib
import queue
import random
import re
import shutil
import subprocess
import sys
import time

import program_faults
from fault_sites import ROOT, Fault, all_faults
from fault_workshop import Workshop, run

RELEASE = ROOT / "build/release"
TEST_SECONDS = 30  # a fault may make an endless loop
WITHOUT_TOOL = "-DNAC_BUILD_TOOL=OFF"

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
COMPILED = ["byte_swap_test", "description_test", "fast_paths_test", "bounded_test", "message_id_test", "reversed_round_trip_test",
            "platform_memory_test"]
# Those of them that notice more under AddressSanitizer and UndefinedBehaviorSanitizer.
CHECKED = ["bounded_test", "byte_swap_test", "fast_paths_test", "unpack_test"]

# Faults that change nothing that anyone could see, and why: (file, line, fault).
SLOWER = "the same by more instructions, which the test instructions notices"
TERMINATOR = "the terminating zero is copied or kept, which is the same"
HARMLESS: dict[tuple[str, str, str], str] = {
    ("runtime/absent.h", "if constexpr (has_scalars_in_words<Record>()) {", "condition becomes false"): SLOWER,
    ("runtime/bounded.h", "inline constexpr int kRefused = 34;  // ERANGE", "34 becomes 34 + 1"):
        "any number but 0 refuses",
    ("runtime/frame.h", "if constexpr (run.in_frame >= first) {", ">= becomes >"):
        "frames, and what messages share of them, begin with constants",
    ("runtime/frame.h", "return start + sizeof(Word<16>) <= CompactFrame<Record>::needed_bytes ? start : 0;",
     "<= becomes <"): "no message shares just 16 bytes",
    ("runtime/region.h", "each_index<(count + step - 1) / step>([&]<std::uint32_t i>() KAPLO_INLINE {", "- becomes +"):
        "the last four slots are looked at twice",
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


def test_program(build: pathlib.Path, name: str) -> pathlib.Path:
    """The program of a test, in whichever folder of the build's tests it is."""
    return next(path for path in (build / "tests").rglob(name) if path.is_file())


class LibraryWorkshop(Workshop):
    """The library, with one build for each way to notice a fault."""

    def __init__(self, number: int) -> None:
        super().__init__(str(number))
        self.plain = self.configure("plain", WITHOUT_TOOL)
        self.threads = self.configure("threads", WITHOUT_TOOL, "-DNAC_SANITIZERS=thread")
        self.checked = self.configure("checked", WITHOUT_TOOL, "-DNAC_SANITIZERS=address,undefined")
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

    def build(self, build: pathlib.Path, *targets: str) -> bool:
        return run("ninja", "-C", build, "-j", "1", *targets)

    def killer_of(self, fault: Fault) -> str:
        generic = fault.path.startswith(("runtime/", "bus/"))
        return (self.quick_killer() if generic else "") or self.killer()

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
    parser = argparse.ArgumentParser(description="Makes one fault at a time and expects that tests notice.")
    parser.add_argument("--programs", action="store_true", help="in the bus, the inspection and nac, not in the library")
    parser.add_argument("--only", default="", metavar="PATTERN", help="seed in files of this name only")
    parser.add_argument("--sample", type=int, metavar="N", help="seed N of the faults only, always the same")
    parser.add_argument("--list", action="store_true", help="print the faults and seed none")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    arguments = parser.parse_args()
    harmless = program_faults.HARMLESS if arguments.programs else HARMLESS
    faults = all_faults(program_faults.SOURCES if arguments.programs else SOURCES)
    for path, line, what in harmless.keys() - {fault.key() for fault in faults}:
        sys.exit(f"seed_faults: {path} has no such fault any more: {what}: {line}")
    faults = [fault for fault in faults if re.search(arguments.only, fault.path)]
    if arguments.sample is not None:
        faults = random.Random(1).sample(faults, min(arguments.sample, len(faults)))
    if arguments.list:
        for fault in faults:
            print(f"{fault.path}:{fault.line_number}: {fault.what}")
        print(len(faults))
        return 0

    jobs = 1 if arguments.programs else arguments.jobs  # whose tests measure time
    workshops: queue.Queue[Workshop] = queue.Queue()
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for workshop in pool.map(program_faults.ProgramWorkshop if arguments.programs else LibraryWorkshop, range(jobs)):
            workshops.put(workshop)

    def judge(fault: Fault) -> tuple[Fault, str]:
        workshop = workshops.get()
        try:
            return fault, workshop.verdict(fault)
        finally:
            workshops.put(workshop)

    started = time.monotonic()
    seeded = [fault for fault in faults if fault.key() not in harmless]
    killers: collections.Counter[str] = collections.Counter()
    survivors = []
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for done, (fault, killer) in enumerate(pool.map(judge, seeded), 1):
            killers[killer] += 1
            if not killer:
                survivors.append(fault)
                print(f"survived: {fault.path}:{fault.line_number}: {fault.what}\n    {fault.line}", flush=True)
            if done % 10 == 0:
                print(f"{done} of {len(seeded)} after {time.monotonic() - started:.0f} s", flush=True)
    for killer, count in killers.most_common():
        print(f"{count:>5} killed by {killer}" if killer else f"{count:>5} survived")
    print(f"count: {len(seeded) - len(survivors)} of {len(seeded)} seeded faults killed; {len(faults) - len(seeded)} more are "
          f"harmless, each with its reason in {'program_faults.py' if arguments.programs else 'seed_faults.py'}")
    return 1 if survivors else 0


if __name__ == "__main__":
    sys.exit(main())
