# SPDX-License-Identifier: Apache-2.0
# The library as a file: what it exports, what it needs, and what the loader runs when it loads it.
#
# LIBRARY in the environment is its path. It must have been built without sanitizers, and not stripped.
import os
import pathlib
import re
import subprocess
import unittest

LIBRARY = os.environ["LIBRARY"]
ROOT = pathlib.Path(__file__).resolve().parents[2]
LISTED = pathlib.Path(__file__).with_name("exported_symbols.txt").read_text().splitlines()

OF_TYPE = ("__pack", "__sendbatch", "__sendmsg", "__sendsingle", "__sendtomsg", "__unpack", "_free__unpacked")
OF_MODULE = ("__send_resource_clean", "_recv_init", "_send_init")
MODULES = ["dataflow", "evt", "port", "uclgroup", "user", "user_type", "ipsec_access"]
UNITS_IN_ORDER = [f"{module}_{side}.cpp" for module in MODULES for side in ("recv", "send")]

BUS = {"VORN_RegIDLFuncHook", "VORN_RegIDLResorceCleanFuncHook", "VORN_SendMsg", "VORN_SendToMsg"}
# What the compiler's start files ask for in every shared library, and do without.
OPTIONAL = {"_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable", "__gmon_start__"}
NEEDED = {"malloc", "free", "dlsym", "pthread_mutex_lock", "pthread_mutex_unlock", "__stack_chk_fail"}


def output(*command: str) -> list[str]:
    environment = {**os.environ, "LC_ALL": "C"}
    finished = subprocess.run([*command, LIBRARY], check=True, capture_output=True, text=True, env=environment)
    return finished.stdout.splitlines()


def machine() -> str:
    (name,) = re.findall(r"Machine: +(.+)", "\n".join(output("readelf", "-h")))
    return name


def dynamic_entries(tag: str) -> list[str]:
    return re.findall(rf"\({tag}\).*\[(.*)\]", "\n".join(output("readelf", "-dW")))


def undefined_symbols() -> list[str]:
    return [line.split()[-1] for line in output("nm", "-D", "--undefined-only")]


def functions_by_address() -> dict[int, str]:
    """The source file of each local function: in the symbol table a file's symbols follow its own."""
    files: dict[int, str] = {}
    file = ""
    for line in output("readelf", "-sW"):
        columns = line.split()
        if len(columns) < 7 or not columns[0].rstrip(":").isdigit():
            continue
        value, kind, binding = columns[1], columns[3], columns[4]
        if kind == "FILE":
            file = columns[7] if len(columns) > 7 else ""
        elif kind == "FUNC" and binding == "LOCAL":
            files[int(value, 16)] = file
    return files


def initialisers() -> list[int]:
    """The addresses in .init_array, as the relocations fill it in, in the order in which they run."""
    (start, size), = (
        (int(columns[0], 16), int(columns[2], 16))
        for columns in re.findall(r"\.init_array +INIT_ARRAY +(\w+) (\w+) (\w+)", "\n".join(output("readelf", "-SW"))))
    relocations = re.findall(r"^(\w+) +\w+ +R_\w+_RELATIVE +(\w+)$", "\n".join(output("readelf", "-rW")), re.MULTILINE)
    return [target for at, target in sorted((int(at, 16), int(target, 16)) for at, target in relocations)
            if start <= at < start + size]


class Binary(unittest.TestCase):
    maxDiff = None

    def test_the_list_of_exported_symbols_is_sorted_and_holds_those_of_every_type_and_module(self) -> None:
        header = (ROOT / "nac/nac_messages.h").read_text()
        types = set(re.findall(r"^NAC_MESSAGE_FUNCTIONS\((\w+)\);", header, re.M))
        modules = set(re.findall(r"\b(\w+)_recv_init\b", header))
        self.assertEqual(len(modules), len(MODULES))
        self.assertEqual(LISTED, sorted([name + suffix for name in types for suffix in OF_TYPE] +
                                        [name + suffix for name in modules for suffix in OF_MODULE]))

    def test_exports_the_listed_functions_and_nothing_else(self) -> None:
        lines = [line.split() for line in output("nm", "-D", "--defined-only")]
        self.assertEqual(sorted(name for _, _, name in lines), LISTED)
        self.assertEqual({kind for _, kind, _ in lines}, {"T"})

    def test_needs_no_library_but_the_c_library(self) -> None:
        self.assertIn("libc.so.6", dynamic_entries("NEEDED"))
        for library in dynamic_entries("NEEDED"):
            self.assertRegex(library, r"^(libc\.so\.6|ld-linux.*\.so\.\d+)$")

    def test_is_found_by_its_major_version(self) -> None:
        self.assertEqual(dynamic_entries("SONAME"), ["libvorn_nac_user.so.1"])

    def test_looks_for_libraries_in_no_folder_of_its_own(self) -> None:
        self.assertEqual(dynamic_entries("RPATH") + dynamic_entries("RUNPATH"), [])

    def test_imports_the_bus_and_the_c_library_only(self) -> None:
        symbols = undefined_symbols()
        of_the_c_library = {symbol.split("@")[0] for symbol in symbols if "@GLIBC_" in symbol}
        self.assertEqual({symbol for symbol in symbols if "@GLIBC_" not in symbol} - OPTIONAL, BUS)
        self.assertLessEqual(NEEDED, of_the_c_library)
        self.assertFalse([symbol for symbol in of_the_c_library if symbol.startswith(("_Z", "__cxa_throw", "pthread_create"))])

    def test_imports_no_host_service_by_linking(self) -> None:
        self.assertFalse([symbol for symbol in undefined_symbols() if symbol.startswith("ZEB_")])

    def test_stack_is_not_executable(self) -> None:
        flags = re.findall(r"GNU_STACK +\w+ +\w+ +\w+ +\w+ +\w+ +([RWE]+)", "\n".join(output("readelf", "-lW")))
        self.assertEqual(flags, ["RW"])

    def test_relocations_become_read_only_before_any_function_runs(self) -> None:
        self.assertTrue(any("GNU_RELRO" in line for line in output("readelf", "-lW")))
        self.assertTrue(any("NOW" in line for line in output("readelf", "-dW")))

    @unittest.skipUnless(machine() == "Advanced Micro Devices X86-64", "landing pads and shadow stacks are for x86-64")
    def test_every_exported_function_is_a_landing_pad_and_returns_are_shadowed(self) -> None:
        heads = re.findall(r"^\w+ <(\w+)>:\n.*\t(\w+)", "\n".join(output("objdump", "-d", "--section=.text")), re.M)
        self.assertEqual({head for name, head in heads if name in LISTED}, {"endbr64"})
        self.assertRegex("\n".join(output("readelf", "-n")), "x86 feature:.*SHSTK")

    def test_start_up_runs_one_constructor_a_unit_in_the_order_of_the_units(self) -> None:
        files = functions_by_address()
        run = [files.get(address, "unknown") for address in initialisers()]
        self.assertEqual([file for file in run if file != "crtstuff.c"], UNITS_IN_ORDER)

    def test_no_destructor_of_its_own_runs_at_unloading(self) -> None:
        (size,) = re.findall(r"\.fini_array +FINI_ARRAY +\w+ \w+ (\w+)", "\n".join(output("readelf", "-SW")))
        self.assertEqual(int(size, 16), 8, "that of the compiler's start files")
        self.assertFalse([symbol for symbol in undefined_symbols() if symbol.startswith("__cxa_atexit")])


if __name__ == "__main__":
    unittest.main()
