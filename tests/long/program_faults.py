# SPDX-License-Identifier: Apache-2.0
# Faults in libvorn_bus, libvorn_nac_inspect and nac, and the tests that are to notice them.
import json
import os
import sys

from fault_sites import ROOT, Fault
from fault_workshop import Workshop, run

SOURCES = ["vorn/*.cpp", "vorn/*/*.h", "vorn/*/*.cpp", "inspect/*.h", "inspect/*.cpp", "tool/*.h", "tool/*.cpp",
           "tool/*/*.h", "tool/*/*.cpp"]
TEST_SECONDS = 60  # several times what the longest of these takes; a fault may make an endless loop
# What is rebuilt with each fault: all that the coverage of the programs is counted with, but for the fuzzers.
PRESETS = json.loads((ROOT / "CMakePresets.json").read_text())["buildPresets"]
PROGRAMS = [target for preset in PRESETS if preset["name"] == "coverage-programs" for target in preset["targets"]
            if target != "fuzzers"]
# Patterns of ctest, those first that notice most. Left out is what measures throughput, and what needs a browser.
BUS = "^bus|^python"
INSPECT = "^inspect/|^(catalogue|verify|walk|record_json|load|other_package)_test$"
TOOL = "^tool/(usage|verbs|inspect|convert|damage|compat|hostile|dissector)_test|^tool/capture_test"
STAGES = {"vorn": [BUS, TOOL], "inspect": [INSPECT, TOOL, BUS], "tool": [TOOL]}

# Faults that change nothing that anyone could see, and why: (file, line, fault).
HARMLESS: dict[tuple[str, str, str], str] = {}


class ProgramWorkshop(Workshop):
    def __init__(self, _: int) -> None:
        super().__init__("programs")
        self.plain = self.configure("plain", "-DNAC_BUILD_TESTS=ON", "-DNAC_BUILD_SWEEPS=OFF")
        if not self.build():
            sys.exit("seed_faults: the programs as they are do not build")
        for folder in STAGES:
            killer = self.killer(folder)
            if killer:
                sys.exit(f"seed_faults: without any fault, {killer} of {self.plain} complain")

    def build(self) -> bool:
        return run("ninja", "-C", self.plain, *PROGRAMS, seconds=3600)

    def killer_of(self, fault: Fault) -> str:
        return self.killer(fault.path.split("/")[0]) if self.build() else "the compiler"

    def killer(self, folder: str) -> str:
        for pattern in STAGES[folder]:
            if not run("ctest", "--test-dir", self.plain, "-R", pattern, "--stop-on-failure", "--no-tests=error", "-j",
                       os.cpu_count(), "--timeout", TEST_SECONDS, seconds=20 * TEST_SECONDS):
                return f"tests {pattern}"
        return ""
