# SPDX-License-Identifier: Apache-2.0
"""Readers and writers for conformance.py: `reference`, `tool` and `dissector`, `write` and `write-images` by the
reference, and `mistaken`, the reference with three mistakes. NAC names the tool.
"""
from __future__ import annotations

import json
import os
import pathlib
import socket
import subprocess
import sys
from typing import Any

sys.dont_write_bytecode = True
HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "tool")]
import reader
from catalogue import TYPES, Field, Kind, zero_record
from writer import compact, image

Line = dict[str, Any]


def lines() -> list[Line]:
    return [json.loads(line) for line in sys.stdin]


def by_reference(given: list[Line]) -> list[Line]:
    results = [reader.unpack(each["type"], bytes.fromhex(each["hex"])) for each in given]
    return [{"verdict": result.outcome, "record": None if result.record == reader.UNTOUCHED else result.record}
            for result in results]


def by_tool(given: list[Line]) -> list[Line]:
    """Records by nac decode, which reads nothing shorter than a message; verdicts by nac verify."""
    def nac(verb: str, *options: str, of: list[Line]) -> list[Line]:
        done = subprocess.run([os.environ["NAC"], verb, *options, "-"], input="".join(json.dumps(each) + "\n" for each in of),
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        return [json.loads(line) for line in done.stdout.splitlines()]

    verdicts = [each["verdict"] for each in nac("verify", "--json", of=given)]
    messages = [each for each, verdict in zip(given, verdicts, strict=True) if verdict != "argument"]
    decoded = iter(nac("decode", of=messages))
    return [{"verdict": verdict, "record": None if verdict == "argument" else next(decoded)["record"]} for verdict in verdicts]


def by_dissector(given: list[Line]) -> list[Line]:
    """It shows what is there; what is absent is zero."""
    import dissector_test
    import pcapng

    def filled(type_name: str, shown: Line) -> Line:
        record = zero_record(type_name)
        for number, each in enumerate(TYPES[type_name].fields):
            name = f"f{number}"
            if name not in shown:
                continue
            if each.kind is Kind.TABLE:
                record[name] = filled(each.table, shown[name])
            elif each.kind is Kind.TABLES:
                record[name] = [filled(each.table, element) for element in shown[name]]
            elif each == Field(Kind.ARRAY, 1, 16):
                record[name] = socket.inet_ntop(socket.AF_INET6, socket.inet_pton(socket.AF_INET6, shown[name]))
            else:
                record[name] = shown[name]
        return record

    described = {each["name"]: each for each in map(json.loads, dissector_test.nac("describe", "--json").splitlines())}
    found = []
    for start in range(0, len(given), 500):  # pages of XML
        part = given[start:start + 500]
        dissected = dissector_test.Dissected(pcapng.capture(
            [pcapng.Message(TYPES[each["type"]].message_id, bytes.fromhex(each["hex"])) for each in part]))
        for each, packet in zip(part, dissected.packets, strict=True):
            (message,) = [item for item in packet.findall("proto") if item.get("name") == "nac"]
            damaged = any(item.get("name") == "nac.damaged" for item in packet.iter("field"))
            found.append({"verdict": "damaged"} if damaged else {"verdict": "ok", "record": filled(
                each["type"], dissector_test.record(message, each["type"], described))})
    return found


def plant_mistakes() -> None:
    """Three that a new implementation may have."""
    right = reader.Decoder.field, reader.Decoder.fixed_array

    def field(self: Any, described: Field, name: str, record: Line, at: int) -> None:
        right[0](self, described, name, record, at)
        if described.kind is Kind.SCALAR and described.width == 8:
            record[name] &= 0xFFFFFFFF  # 1: of numbers of 64 bits the low half
        elif described.kind is Kind.TABLES and len(record[name]) > 1:
            record[name][1] = record[name][0]  # 2: the first element again

    def fixed_array(self: Any, described: Field, at: int) -> Any:
        body, count = self.vector(at)
        if count == described.count + 1:
            count -= 1  # 3: one element more than the array has is no fault
        if count != described.count:
            raise reader.FieldFault
        size = count * described.width
        self.require(body, size)
        return reader.array_value(described, self.buffer[body:body + size], self.swapped)

    reader.Decoder.field, reader.Decoder.fixed_array = field, fixed_array


def main() -> None:
    what = sys.argv[1]
    if what == "mistaken":
        plant_mistakes()
    answer = {"reference": by_reference, "mistaken": by_reference, "tool": by_tool, "dissector": by_dissector,
              "write": lambda given: [{"hex": compact(each["type"], each["record"]).hex()} for each in given],
              "write-images": lambda given: [{"hex": image(each["type"], each["record"]).hex()} for each in given]}[what]
    for each in answer(lines()):
        print(json.dumps(each))


if __name__ == "__main__":
    main()
