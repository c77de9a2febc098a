# SPDX-License-Identifier: Apache-2.0
# A package of one's own, examples/lease: built against what is installed and used with all that is installed. It needs
# nothing else, in the system or in --prefix, and prints each step's result.
import argparse
import contextlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable, Iterator

from consumers import Failure, expect, run

HERE = pathlib.Path(__file__).resolve().parent
# In the sources, or as a package installs it.
SOURCE = next(folder for folder in (HERE.parents[1] / "examples/lease", pathlib.Path("/usr/share/doc/libvorn-nac-dev/examples/lease"))
              if folder.exists())
MESSAGES = ["Lease_Request", "Lease_Grant", "Lease_Release", "Lease_PoolReport"]
OF_MESSAGE = ["__pack", "__unpack", "_free__unpacked", "__sendsingle", "__sendbatch", "__sendmsg", "__sendtomsg"]
OF_MODULE = ["_recv_init", "_send_init", "__send_resource_clean"]
REPORT = {"f0": 20, "f1": [{"f0": "02:00:5e:10:00:0b", "f1": {"f0": 0x0A00000A, "f1": "::"}, "f2": 0},
                           {"f0": "02:00:5e:10:00:0c", "f1": {"f0": 0x0A00000B, "f1": "::"}, "f2": 0}], "f2": []}

PYTHON = """
import sys
import vorn_nac
lease = vorn_nac.load(sys.argv[1])
with vorn_nac.open_capture(sys.argv[2]) as capture:
    for message in capture:
        print(message.type.__name__, len(message.record.f1))
grant = lease.Lease_Grant(f0=7, f4=[lease.Lease_Option(f0=15, f1=b"lan" + bytes(5))], f7=[1, 2, 3, 4])
packed = vorn_nac.pack(grant)
assert vorn_nac.unpack("Lease_Grant", packed) == grant
print(vorn_nac.verify(lease.Lease_Grant, packed[:-3])[0].path)
with vorn_nac.Bus("loop:", 1) as sender, vorn_nac.Bus("loop:", 2) as receiver:
    sender.send(2, [grant, vorn_nac.Nac_SetPortMsg(f0=3)])
    print(receiver.receive(10).record.f0)
"""


class Package:
    def __init__(self, folder: pathlib.Path, prefix: pathlib.Path | None, source: pathlib.Path = SOURCE) -> None:
        self.source = source
        self.folder = folder
        self.build = folder / "build"
        self.catalogue = self.build / "libvorn_lease_catalogue.so"
        self.environment = {**os.environ, "VORN_BUS_URL": f"ipc://{folder}/bus"}
        self.nac = "nac"
        self.prefix = prefix
        if prefix:
            self.environment["CMAKE_PREFIX_PATH"] = str(prefix)
            self.nac = str(prefix / "bin/nac")
            self.environment["PATH"] = f"{prefix}/bin:{os.environ['PATH']}"
            self.environment["PYTHONPATH"] = str(next(prefix.rglob("dist-packages")))
            self.environment["LD_LIBRARY_PATH"] = str(next(prefix.rglob("libvorn_bus.so.1")).parent)

    def run(self, *command: object) -> str:
        return run(*command, environment=self.environment)

    def tool(self, *words: object) -> str:
        return self.run(self.nac, "--catalogue", self.catalogue, *words)

    @contextlib.contextmanager
    def running(self, name: str, *words: object) -> Iterator[pathlib.Path]:
        """A verb of the tool, from when it says that it is there to its own end; where its output goes."""
        output = self.folder / name
        with open(output, "w") as file, subprocess.Popen(
                [self.nac, "--catalogue", self.catalogue, *map(str, words)], stdout=file, stderr=subprocess.PIPE, text=True,
                env=self.environment) as process:
            assert process.stderr is not None
            if words[0] == "monitor":
                time.sleep(1)  # which says nothing
            else:
                process.stderr.readline()
            yield output
            expect(f"exit code of nac {words[0]}", process.wait(timeout=30), 0)

    # ---- the steps ----------------------------------------------------------------------------------

    def compile(self) -> str:
        self.run("cmake", "-S", self.source, "-B", self.build, "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror",
                 "-DCMAKE_C_FLAGS=-Wall -Wextra -Werror")
        self.run("cmake", "--build", self.build, "--parallel", "2")
        return "compiled without a warning"

    def library(self) -> str:
        library = self.build / "libvorn_lease.so"
        exported = [line.split()[-1] for line in self.run("nm", "--dynamic", "--defined-only", library).splitlines()]
        expect("exported functions", sorted(exported), sorted(
            [name + suffix for name in MESSAGES for suffix in OF_MESSAGE] +
            [f"lease_{module}{suffix}" for module in ("client", "pool") for suffix in OF_MODULE]))
        expect("libraries that it needs", re.findall(r"NEEDED.*\[(.*)\]", self.run("readelf", "--dynamic", library)), ["libc.so.6"])
        return f"{len(exported)} functions, and no library but libc"

    def types(self) -> str:
        found = [json.loads(line) for line in self.tool("types", "--json").splitlines()]
        expect("types", [each["name"] for each in found], MESSAGES)
        expect("id of Lease_Grant", found[1]["id"], 0x3C5264DD)
        expect("its module", found[1]["module"], "client")
        wrong = subprocess.run([self.nac, "--catalogue", SOURCE / "lease.h", "types"], capture_output=True, text=True)
        expect("exit code for another file", wrong.returncode, 3)
        expect("what is said of it", "cannot be loaded" in wrong.stderr and "vorn_add_package" in wrong.stderr, True)
        if self.prefix:  # by its name, where it is installed
            (library,) = self.prefix.rglob("libvorn_nac_inspect.so.1")
            (library.parent / "vorn_nac").mkdir()
            shutil.copy(self.catalogue, library.parent / "vorn_nac")
            expect("what its name finds", self.run(self.nac, "--catalogue", "lease", "types"), self.tool("types"))
        return f"{len(found)} messages"

    def messages(self) -> str:
        """Records as messages and back, damaged ones too."""
        records, packed, again, page = (self.folder / name for name in ("records", "packed", "again", "page"))
        records.write_text(self.tool("random", "--count", 40))
        self.tool("encode", records, "--output", packed)
        decoded = [json.loads(line) for line in self.tool("decode", packed).splitlines()]
        expect("records that come back", [each["record"] for each in decoded],
               [json.loads(line)["record"] for line in records.read_text().splitlines()])
        page.write_text(self.tool("hex", packed))
        self.tool("assemble", page, "--output", again)
        expect("messages from their hex text", [json.loads(line)["hex"] for line in again.read_text().splitlines()],
               [json.loads(line)["hex"] for line in packed.read_text().splitlines()])
        cut = json.dumps({"type": "Lease_Grant", "hex": json.loads(packed.read_text().splitlines()[1])["hex"][:-40]})
        (self.folder / "cut").write_text(cut + "\n")
        verified = subprocess.run([self.nac, "--catalogue", self.catalogue, "verify", self.folder / "cut"],
                                  capture_output=True, text=True)
        expect("exit code of nac verify", verified.returncode, 1)
        expect("the type that it names", "Lease_Grant" in verified.stdout, True)
        expect("nac exchange", self.tool("exchange", records).splitlines()[-1],
               "40 records of 4 types: 40 arrived from single sends, 40 from 4 batches; 0 differ, 0 log lines, 0 arrays not freed")
        return "40 records packed, shown, exchanged, the same"

    def story(self) -> str:
        """A server and two clients; the server's report arrives at a listener, and is watched and recorded."""
        with (self.running("arrived", "listen", "--as", 3, "--count", 1, "--timeout", 20, "--json") as arrived,
              self.running("watched", "monitor", "--messages", "--json", "--to", 3, "--count", 1, "--timeout", 20) as watched,
              self.running("recording", "record", "--to", 3, "--count", 1, "--timeout", 20, "--output", self.folder / "lease.pcapng")):
            with subprocess.Popen([self.build / "lease_server", "2"], stdout=subprocess.PIPE, text=True,
                                  env=self.environment) as server:
                for number, name in ((11, "printer"), (12, "phone")):
                    expect(f"what {name} gets", self.run(self.build / "lease_client", number, name).split()[0], "Lease_Grant")
                printed, _ = server.communicate(timeout=30)
        expect("exit code of the server", server.returncode, 0)
        expect("what the server prints", printed, "request 7 of printer\nrequest 7 of phone\n")
        expect("the report that arrives", json.loads(arrived.read_text())["record"], REPORT)
        expect("the report that is watched", "Lease_PoolReport" in watched.read_text(), True)
        expect("the report that is recorded", "Lease_PoolReport" in self.tool("info", self.folder / "lease.pcapng"), True)
        self.tool("decode", self.folder / "lease.pcapng")
        records = self.folder / "records"
        with self.running("sent", "listen", "--as", 4, "--count", 40, "--timeout", 20, "--json") as sent:
            self.tool("send", "--to", 4, records)
        expect("records that nac send sends", len(sent.read_text().splitlines()), 40)
        return "a server, two clients, a listener, a monitor and a recorder"

    def wireshark(self) -> str:
        """The dissector alone, and with that of Nac's messages, in both orders; or with that which is installed."""
        lease, other = self.folder / "lease.lua", self.folder / "nac.lua"
        lease.write_text(self.tool("dissector"))
        other.write_text(self.run(self.nac, "dissector"))
        for scripts in ([lease],) if self.nac == "nac" else ([lease], [other, lease], [lease, other]):
            shown = self.run("tshark", *(f"-Xlua_script:{script}" for script in scripts), "-r", self.folder / "lease.pcapng",
                             "-T", "fields", "-e", "lease.Lease_PoolReport.f0", "-e", "lease.Lease_Binding.f0")
            expect("fields in tshark", shown.split(), ["20", "02:00:5e:10:00:0b,02:00:5e:10:00:0c"])
        return "fields of the report, by tshark"

    def python(self) -> str:
        script = self.folder / "use.py"
        script.write_text(PYTHON)
        printed = self.run("/usr/bin/python3", script, self.catalogue, self.folder / "lease.pcapng")
        expect("what Python prints", printed, "Lease_PoolReport 2\nf4[0].f1\n7\n")
        return "records packed, unpacked, verified, sent and read from the capture"

    def drivers(self) -> str:
        self.run("cmake", "-S", SOURCE, "-B", self.build, "-DLEASE_DRIVERS=ON")
        self.run("cmake", "--build", self.build, "--parallel", "2")
        printed = self.run("ctest", "--test-dir", self.build, "--verbose")
        counts = re.findall(r"count: (\d+)", printed)
        expect("tests that count what they try", len(counts), 6)
        return f"{sum(map(int, counts))} random records and inputs, in 5 tests"

    def steps(self) -> list[tuple[str, Callable[[], str]]]:
        return [("compiled", self.compile), ("library", self.library), ("types", self.types), ("messages", self.messages),
                ("story", self.story), ("Wireshark", self.wireshark), ("Python", self.python)]


def main() -> int:
    parser = argparse.ArgumentParser(description="Builds and uses examples/lease over what is installed.")
    parser.add_argument("--prefix", type=pathlib.Path, help="where it is installed; the system if not given")
    parser.add_argument("--drivers", action="store_true", help="the drivers too, which need GoogleTest")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        package = Package(pathlib.Path(folder), arguments.prefix)
        steps = package.steps() + ([("drivers", package.drivers)] if arguments.drivers else [])
        for name, step in steps:
            try:
                print(f"lease, {name}: {step()}", flush=True)
            except (Failure, subprocess.TimeoutExpired) as failure:
                print(f"lease, {name}: {failure}", file=sys.stderr)
                return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
