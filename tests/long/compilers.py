# SPDX-License-Identifier: Apache-2.0
# Builds the library and its digest_test with each compiler at each level of optimisation, and expects one digest.
#
# The digest covers all that a fixed run gives: packed bytes, what is sent, records, log lines, allocations.
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / "build/compilers"
COMPILERS = {"g++": ("gcc", "g++"), "clang 14": ("clang-14", "clang++-14"), "clang 16": ("clang-16", "clang++-16")}
LEVELS = ["-O0", "-O2", "-O3", "-O2 -flto"]


def digest(compiler: str, level: str) -> str:
    c, cxx = COMPILERS[compiler]
    build = WORK / re.sub(r"\W+", "_", compiler + level)
    # clang's objects of link-time optimisation need the linker of its own version.
    linker = c.replace("clang", "-fuse-ld=lld") if "lto" in level and "clang" in compiler else ""
    for command in (["cmake", "-G", "Ninja", "-S", ROOT, "-B", build, f"-DCMAKE_C_COMPILER={c}", f"-DCMAKE_CXX_COMPILER={cxx}",
                     "-DCMAKE_BUILD_TYPE=None", f"-DCMAKE_C_FLAGS={level}", f"-DCMAKE_CXX_FLAGS={level}",
                     f"-DCMAKE_EXE_LINKER_FLAGS={linker}", f"-DCMAKE_SHARED_LINKER_FLAGS={linker}", "-DNAC_BUILD_TOOL=OFF"],
                    ["ninja", "-C", build, "-j", "1", "digest_test"], [build / "tests/library/digest_test"]):
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        found = re.search(r"^digest (\w+)$", done.stdout, re.M)
        if found:
            return found[1]
        if done.returncode != 0:
            return done.stdout[-2000:]
    return "no digest"


def main() -> int:
    settings = [(compiler, level) for compiler in COMPILERS for level in LEVELS]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        digests = list(pool.map(lambda setting: digest(*setting), settings))
    for (compiler, level), each in zip(settings, digests):
        print(f"{compiler:<9} {level:<10} {each}")
    print(f"count: {len(set(digests))} digest(s) of {len(settings)} builds")
    return 0 if len(set(digests)) == 1 else 1


if __name__ == "__main__":
    sys.exit(main())
