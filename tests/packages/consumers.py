# SPDX-License-Identifier: Apache-2.0
# Consumers of the installed libraries, in C and C++, by CMake and by pkg-config, shared and static: compiled, run, and
# looked at by nac doctor. It needs nothing but what is installed, in the system or in --prefix, and prints each step's
# result.
import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile

SOURCE = pathlib.Path(__file__).resolve().parent / "consumer"
# In the sources, or as a package installs them.
EXAMPLES = next(folder for folder in (SOURCE.parents[2] / "examples", pathlib.Path("/usr/share/doc/libvorn-bus-dev/examples"))
                if (folder / "receiver.c").exists())
C_SAYS = "139 bytes: 42, 2 groups, the last {6 9}\n"
CPP_SAYS = "346 bytes: 3 flows, the same; cut short: 0 flows\n"
HOST_SAYS = "2 groups; asked of the host: 1 send buffers, 1 arrays, 2 releases, 1 log lines\n"
STUB_SAYS = "to 2, target 7: 1 message of 24 bytes\n"
HIDDEN_SAYS = "2 groups; asked of the host: 0 send buffers, 0 arrays, 0 releases, 0 log lines\n"
INSPECT_SAYS = """Nac_SetPortMsg {"f0":7,"f1":9}
Nac_SetPortMsg is damaged: at 4, header of Nac_SetPortMsg: the vtable would have 255 bytes, and 20 are left
"""
# Each program, what it prints, and which of our libraries it loads.
PROGRAMS = {"codec_c_shared": (C_SAYS, {"libvorn_nac_user.so.1"}),
            "codec_c_static": (C_SAYS, set()),
            "codec_cpp_shared": (CPP_SAYS, {"libvorn_nac_user.so.1"}),
            "codec_cpp_static": (CPP_SAYS, set()),
            "stub_shared": (STUB_SAYS, {"libvorn_nac_user.so.1"}),
            "stub_static": (STUB_SAYS, set()),
            "host_shared": (HOST_SAYS, {"libvorn_nac_user.so.1", "libvorn_bus.so.1"}),
            "host_static": (HOST_SAYS, {"libvorn_bus.so.1"}),
            "host_hidden": (HIDDEN_SAYS, {"libvorn_nac_user.so.1", "libvorn_bus.so.1"}),
            "inspect_shared": (INSPECT_SAYS, {"libvorn_nac_inspect.so.1", "libvorn_nac_user.so.1", "libvorn_bus.so.1"}),
            "inspect_static": (INSPECT_SAYS, {"libvorn_bus.so.1"})}
HOOKS = ["ZEB_OsalMemUseFlagGet", "ZEB_OsalMemCacheAlloc", "ZEB_OsalMemAlloc", "ZEB_OsalMemFree", "ZEB_OsalLogWrite"]
BUS_FUNCTIONS = ["VORN_RegIDLFuncHook", "VORN_RegIDLResorceCleanFuncHook", "VORN_SendMsg", "VORN_SendToMsg"]


def doctor_says(program: str) -> tuple[int, str, str]:
    """Exit code, output and error of nac doctor for a host."""
    hidden = program == "host_hidden"
    state = "defined, but not exported: the library does not find it" if hidden else "exported"
    lines = [f"{name:<34} {state}" for name in HOOKS]
    lines += ["arrays that arrive: " + ("malloc" if hidden else "the host's cache, where its use flag is 1"),
              "buffers to send:    " + ("malloc" if hidden else "the host's allocator")]
    lines += [f"{name:<34} from a library" for name in BUS_FUNCTIONS]
    mend = (": link it with -rdynamic, or against vorn_host (in CMake vorn_nac::host), which exports the host services\n")
    return (1, "\n".join(lines), mend) if hidden else (0, "\n".join(lines), "")


class Failure(Exception):
    pass


def expect(what: str, found: object, expected: object) -> None:
    if found != expected:
        raise Failure(f"{what}: found {found!r}, expected {expected!r}")


def run(*command: object, environment: dict[str, str] | None = None) -> str:
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, env=environment)
    if done.returncode != 0:
        raise Failure(f"{' '.join(map(str, command))}: exit code {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def compile_by_cmake(folder: pathlib.Path, environment: dict[str, str]) -> None:
    run("cmake", "-S", SOURCE, "-B", folder, f"-DEXAMPLES={EXAMPLES}", environment=environment)
    run("cmake", "--build", folder, environment=environment)


def compile_by_pkg_config(folder: pathlib.Path, environment: dict[str, str]) -> None:
    folder.mkdir()
    run("make", "-C", SOURCE, f"OUT={folder}", f"EXAMPLES={EXAMPLES}", environment=environment)


def check_programs(folder: pathlib.Path, nac: str) -> None:
    for name, (output, libraries) in PROGRAMS.items():
        program = folder / name
        expect(f"output of {name}", run(program), output)
        needed = re.findall(r"\(NEEDED\).*\[(libvorn.*)\]", run("readelf", "--dynamic", program))
        expect(f"libraries of {name}", set(needed), libraries)
    for name in ("host_shared", "host_static", "host_hidden"):
        code, output, mend = doctor_says(name)
        done = subprocess.run([nac, "doctor", str(folder / name)], capture_output=True, text=True)
        expect(f"exit code of nac doctor {name}", done.returncode, code)
        expect(f"nac doctor {name}", re.sub(r"(^|\n)needs .*", "", done.stdout).rstrip(), output)
        expect(f"what mends {name}", done.stderr, f"nac: {folder / name}{mend}" if mend else "")


def check_examples(folder: pathlib.Path) -> None:
    """What the sender sends each receiver prints by name."""
    for name in ("receiver", "receiver_cpp"):
        with tempfile.TemporaryDirectory() as bus:
            environment = {**os.environ, "VORN_BUS_URL": f"ipc://{bus}"}
            with subprocess.Popen([folder / name, "2", "4"], stdout=subprocess.PIPE, text=True, env=environment) as receiver:
                run(folder / "sender", "2", environment=environment)
                printed, _ = receiver.communicate(timeout=30)
        expect(f"exit code of {name}", receiver.returncode, 0)
        expect(f"first line of {name}", printed.splitlines()[0], 'Nac_SetPortMsg from address 1: {"f0":24,"f1":1}')
        expect(f"lines of {name}", len(printed.splitlines()), 4)


def main() -> int:
    parser = argparse.ArgumentParser(description="Compiles and runs consumers of the installed libraries.")
    parser.add_argument("--prefix", type=pathlib.Path, help="where they are installed; the system if not given")
    prefix = parser.parse_args().prefix
    environment = dict(os.environ)
    nac = "nac"
    if prefix:
        (found,) = prefix.rglob("vorn_nac.pc")
        environment |= {"CMAKE_PREFIX_PATH": str(prefix), "PKG_CONFIG_PATH": str(found.parent),
                        "LDFLAGS": f"-Wl,-rpath,{found.parent.parent}"}
        nac = str(prefix / "bin/nac")
    with tempfile.TemporaryDirectory() as folder:
        for way, compile_by in (("CMake", compile_by_cmake), ("pkg-config", compile_by_pkg_config)):
            built = pathlib.Path(folder) / way
            try:
                compile_by(built, environment)
                check_programs(built, nac)
                check_examples(built)
            except Failure as failure:
                print(f"consumers by {way}: {failure}", file=sys.stderr)
                return 1
            print(f"count: {len(PROGRAMS)} consumers and 3 examples by {way}: compiled, run, and seen by nac doctor")
    return 0


if __name__ == "__main__":
    sys.exit(main())
