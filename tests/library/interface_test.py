# SPDX-License-Identifier: Apache-2.0
# The binary interface: functions, records and their layouts are those that hosts were compiled against.
#
# Compares the library, built here with debug information, with libvorn_nac_user.abi, by libabigail. A change that
# abidiff calls harmless (a new function) must be written down with --write; any other needs a new major version.
import argparse
import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
KNOWN = ROOT / "tests/library/libvorn_nac_user.abi"
UNITS = pathlib.Path(os.environ.get("OBJECTS", ROOT / "build/release")) / "library/vorn_nac_user"  # as the build makes them
MADE = "<!-- Made by abidw: python3 tests/library/interface_test.py, with its option write -->"


def build(library: pathlib.Path) -> None:
    sources = sorted([*UNITS.glob("*.cpp"), *ROOT.glob("runtime/*.cpp")])
    subprocess.run([os.environ.get("CXX", "g++"), "-std=c++20", "-O0", "-g", "-fPIC", "-fvisibility=hidden", "-fno-exceptions",
                    "-fno-rtti", "-shared", "-Wl,-soname,libvorn_nac_user.so.1", f"-Wl,--version-script={UNITS}/vorn_nac_user.map",
                    f"-ffile-prefix-map={ROOT}=.", "-I", ROOT, "-I", ROOT / "nac", *sources, "-o", library], check=True)


def main() -> int:
    parser = argparse.ArgumentParser(description="Compares the library's binary interface with the one on record.")
    parser.add_argument("--write", action="store_true", help="put today's interface on record")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        library = pathlib.Path(folder) / "libvorn_nac_user.so"
        build(library)
        if arguments.write:
            subprocess.run(["abidw", "--exported-interfaces-only", "--drop-private-types", "--headers-dir", ROOT / "nac",
                            "--no-corpus-path", "--no-comp-dir-path", "--no-show-locs", "--no-elf-needed",
                            "--type-id-style", "hash", "--out-file", KNOWN, library], check=True)
            first, rest = KNOWN.read_text().split("\n", 1)
            KNOWN.write_text(f"{first}\n{MADE}\n{rest}")
            return 0
        compared = subprocess.run(["abidiff", "--headers-dir2", ROOT / "nac", KNOWN, library], capture_output=True, text=True)
    if compared.returncode != 0:
        print(compared.stdout + compared.stderr + "the interface has changed", file=sys.stderr)
        return 1
    functions = (ROOT / "tests/library/exported_symbols.txt").read_text().splitlines()
    print(f"count: {len(functions)} functions and their records are as on record")
    return 0


if __name__ == "__main__":
    sys.exit(main())
