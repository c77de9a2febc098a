# SPDX-License-Identifier: Apache-2.0
# Two versions of examples/lease, the second with appended fields, on one bus: each reads the other's messages. Built and run
# like own_package.py.
import argparse
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile

from consumers import Failure, expect
from own_package import SOURCE, Package

# What the second version appends: to a message with vectors, to one that is sent as its fixed image, and to a table.
APPENDED = {
    "lease.h": [
        ("    uint32_t* f8; /* IPv4 addresses of name servers */\n",
         "    uint16_t f9;\n    Lease_Address f10;\n    uint32_t f11_count;\n    Lease_Option* f11;\n"),
        ("    uint16_t f3; /* reason */\n", "    uint64_t f4;\n    uint8_t f5[6];\n"),
        ("    uint64_t f2; /* when it ends: milliseconds since 1970 */\n", "    uint32_t f3;\n"),
    ],
    "lease_descriptions.h": [
        ("Vector<&R::f8_count, &R::f8>", ", Field<&R::f9>, Field<&R::f10>, Vector<&R::f11_count, &R::f11>"),
        ('"Lease_Release";\n    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>, Field<&R::f3>',
         ", Field<&R::f4>, Field<&R::f5>"),
        ('"Lease_Binding";\n    using Fields = List<Field<&R::f0>, Field<&R::f1>, Field<&R::f2>', ", Field<&R::f3>"),
    ],
}
COMPATIBLE = """\
compatible  Lease_Grant f9: appended, u16: old readers skip it; of old messages new readers read 0
compatible  Lease_Grant f10: appended, Lease_Address: old readers skip it; of old messages new readers read zeros
compatible  Lease_Grant f11: appended, [Lease_Option]: old readers skip it; of old messages new readers read no elements
compatible  Lease_Release f4: appended, u64: old readers skip it; of old messages new readers read 0
compatible  Lease_Release f5: appended, u8[6]: old readers skip it; of old messages new readers read zeros
compatible  Lease_Binding f3: appended, u32: old readers skip it; of old messages new readers read 0 (in Lease_PoolReport)
7 old types and 7 new types: 6 changes, of which 6 compatible, 0 lose data, 0 break
"""
NO_ADDRESS = "00:00:00:00:00:00"


def write_second(folder: pathlib.Path) -> pathlib.Path:
    shutil.copytree(SOURCE, folder)
    for name, additions in APPENDED.items():
        text = (folder / name).read_text()
        for before, appended in additions:
            expect(f"in {name} {before.strip()!r}", text.count(before), 1)
            text = text.replace(before, before + appended)
        (folder / name).write_text(text)
    return folder


def seen_by_old(name: str, record: dict) -> dict:
    """What a reader of the first version has of a record of the second."""
    if name == "Lease_PoolReport":
        return {**record, "f1": [{key: value for key, value in row.items() if key != "f3"} for row in record["f1"]]}
    later = {"Lease_Grant": ("f9", "f10", "f11"), "Lease_Release": ("f4", "f5")}.get(name, ())
    return {key: value for key, value in record.items() if key not in later}


def seen_by_new(name: str, record: dict) -> dict:
    """What a reader of the second version has of a record of the first."""
    if name == "Lease_PoolReport":
        return {**record, "f1": [{**row, "f3": 0} for row in record["f1"]]}
    return {**record, **{"Lease_Grant": {"f9": 0, "f10": {"f0": 0, "f1": "::"}, "f11": []},
                         "Lease_Release": {"f4": 0, "f5": NO_ADDRESS}}.get(name, {})}


def send(sender: Package, receiver: Package, seen) -> str:
    records = sender.folder / "records"
    records.write_text(sender.tool("random", "--count", 80, "--seed", 5))
    sent = [json.loads(line) for line in records.read_text().splitlines()]
    with receiver.running("arrived", "listen", "--as", 5, "--count", len(sent), "--timeout", 20, "--json") as arrived:
        sender.tool("send", "--to", 5, records)
    got = [json.loads(line) for line in arrived.read_text().splitlines()]
    expect("verdicts", {each["verdict"] for each in got}, {"ok"})
    expect("records", [(each["type"], each["record"]) for each in got],
           [(each["type"], seen(each["type"], each["record"])) for each in sent])
    return f"{len(got)} records arrive valid, with the fields that both know"


def main() -> int:
    parser = argparse.ArgumentParser(description="Two versions of examples/lease on one bus, over what is installed.")
    parser.add_argument("--prefix", type=pathlib.Path, help="where it is installed; the system if not given")
    prefix = parser.parse_args().prefix
    with tempfile.TemporaryDirectory() as folder:
        (pathlib.Path(folder) / "old").mkdir()
        old = Package(pathlib.Path(folder) / "old", prefix)
        new = Package(pathlib.Path(folder) / "new", prefix, write_second(pathlib.Path(folder) / "new"))
        new.environment["VORN_BUS_URL"] = old.environment["VORN_BUS_URL"]
        try:
            for package in (old, new):
                package.compile()
            expect("nac compat", old.run(old.nac, "compat", old.catalogue, new.catalogue), COMPATIBLE)
            described = pathlib.Path(folder) / "old.jsonl"
            described.write_text(old.tool("describe", "--json"))
            expect("nac compat with a file", new.tool("compat", described), COMPATIBLE)
            back = subprocess.run([old.nac, "compat", new.catalogue, old.catalogue], capture_output=True, text=True)
            expect("exit code of nac compat for what was removed", back.returncode, 1)
            print("lease, compat: six appended fields are compatible", flush=True)
            print(f"lease, version 1 to version 2: {send(old, new, seen_by_new)}", flush=True)
            print(f"lease, version 2 to version 1: {send(new, old, seen_by_old)}", flush=True)
        except (Failure, subprocess.TimeoutExpired) as failure:
            print(f"lease, two versions: {failure}", file=sys.stderr)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
