# SPDX-License-Identifier: Apache-2.0
# The dissector, run by tshark, shows the values that nac decode prints: of all types, of the reference's corpus, and
# of whatever the fuzzers have found.
#
# NAC names the tool.
import ipaddress
import json
import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import pcapng
from drive import SHARE_OF_CORPUS, assert_fits, corpus

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
NAC = os.environ.get("NAC", str(ROOT / "build/release/nac"))
TSHARK = os.environ.get("TSHARK", "tshark")
LONGEST = 300  # seconds for a capture


def nac(*arguments: str, given: str = "") -> str:
    done = subprocess.run([NAC, *arguments], input=given, capture_output=True, text=True, cwd=ROOT, timeout=60)
    assert done.returncode in (0, 1), done.stderr
    return done.stdout


TYPES = {entry["name"]: entry for entry in map(json.loads, nac("types", "--json").splitlines())}
ARRAY_LENGTHS = {field["count"] for entry in TYPES.values() for field in entry["fields"] if field["form"] == "fixed array"}
TABLES = {field["table"] for entry in TYPES.values() for field in entry["fields"]} - {None} - TYPES.keys()


def decode(cases: list[tuple[str, bytes]]) -> list[dict]:
    lines = "".join(json.dumps({"type": name, "hex": data.hex()}) + "\n" for name, data in cases)
    return [json.loads(line) for line in nac("decode", "-", given=lines).splitlines()]


class Dissected:
    """What tshark makes of a capture, packet by packet."""

    def __init__(self, capture: bytes, *arguments: str) -> None:
        with tempfile.TemporaryDirectory() as folder:
            script, file = pathlib.Path(folder, "nac.lua"), pathlib.Path(folder, "capture.pcapng")
            script.write_text(nac("dissector"))
            file.write_bytes(capture)
            environment = {**os.environ, "HOME": folder, "LC_ALL": "C.UTF-8"}
            done = subprocess.run([TSHARK, "-X", f"lua_script:{script}", "-r", str(file), "-T", "pdml", *arguments],
                                  capture_output=True, timeout=LONGEST, env=environment)
        self.errors = [line for line in done.stderr.decode().splitlines() if "Running as user" not in line]
        self.code = done.returncode
        self.text = done.stdout.decode()
        self.packets = xml.etree.ElementTree.fromstring(self.text).findall("packet")


def value(item: xml.etree.ElementTree.Element, display: str) -> object:
    shown = item.get("show", "")
    if display == "number":
        return int(shown)
    if display == "hexadecimal":
        return item.get("value", "")
    if display == "IPv6 address":
        return str(ipaddress.ip_address(shown))
    return shown


def record(item: xml.etree.ElementTree.Element, type_name: str, describe: dict) -> dict:
    """The fields that are shown right below an item."""
    fields = {}
    for field in describe[type_name]["fields"]:
        for child in item.findall("field"):
            if child.get("name") != f"nac.{type_name}.{field['name']}":
                continue
            if field["display"] == "numbers":
                fields[field["name"]] = [int(each.get("show", "")) for each in child.findall("field")
                                         if each.get("name", "").endswith(".element")]
            elif field["display"] == "table":
                fields[field["name"]] = record(child, field["table"], describe)
            elif field["display"] == "tables":
                fields[field["name"]] = [record(each, field["table"], describe) for each in child.findall("field")
                                         if each.get("name") == "nac.reference"]
            else:
                fields[field["name"]] = value(child, field["display"])
    return fields


def is_zero(json_value: object) -> bool:
    if isinstance(json_value, dict):
        return all(map(is_zero, json_value.values()))
    if isinstance(json_value, str):
        return not json_value.strip("0:")
    if isinstance(json_value, list):
        return all(map(is_zero, json_value)) if len(json_value) in ARRAY_LENGTHS else json_value == []
    return json_value == 0


def differences(shown: dict, decoded: dict, whole: bool, path: str = "") -> list[str]:
    """Fields of the decoded record that are not shown so; what is not shown has to be zero."""
    found = []
    for name, expected in decoded.items():
        here = path + name
        if name not in shown:
            if not is_zero(expected):
                found.append(f"{here}: {expected} is not shown")
        elif isinstance(expected, dict) and "lost" in expected:
            # The array went with the fault; the count stays.
            if isinstance(shown[name], list) and whole:
                found.append(f"{here}: lost in a message that is whole")
        elif isinstance(expected, dict):
            found += differences(shown[name], expected, whole, here + ".")
        elif isinstance(expected, list) and expected and isinstance(expected[0], dict):
            for k, element in enumerate(expected):
                found += differences(shown[name][k] if k < len(shown[name]) else {}, element, whole, f"{here}[{k}].")
            if whole and len(shown[name]) != len(expected):
                found.append(f"{here}: {len(shown[name])} elements are shown, not {len(expected)}")
        elif isinstance(expected, str) and ":" in expected and expected.count(":") != 5:
            if shown[name] != str(ipaddress.ip_address(expected)):
                found.append(f"{here}: {shown[name]} is shown, not {expected}")
        elif shown[name] != expected and (whole or not is_zero(expected)):
            found.append(f"{here}: {shown[name]} is shown, not {expected}")
    return found


def experts(packet: xml.etree.ElementTree.Element) -> list[str]:
    return [each.get("show", "") for each in packet.iter("field") if each.get("name") == "_ws.expert.message"]


class Dissector(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        names = [*TYPES, *sorted(TABLES)]
        cls.describe = {entry["name"]: entry for entry in map(json.loads, nac("describe", "--json", *names).splitlines())}

    def compare(self, cases: list[tuple[str, bytes]]) -> None:
        dissected = Dissected(pcapng.capture(pcapng.batches([(TYPES[name]["id"], data) for name, data in cases])))
        self.assertEqual((dissected.code, dissected.errors), (0, []))
        self.assertNotIn("Lua Error", dissected.text)
        self.assertNotIn("_ws.lua.error", dissected.text)
        self.assertEqual(len(dissected.packets), len(cases))
        whole = 0
        for (name, data), decoded, packet in zip(cases, decode(cases), dissected.packets):
            with self.subTest(type=name, bytes=data.hex()):
                message = next(item for item in packet.findall("proto") if item.get("showname") == name)
                shown = record(message, name, self.describe)
                is_whole = decoded["verdict"] == "ok"
                self.assertEqual(differences(shown, decoded["record"], is_whole), [])
                self.assertEqual(experts(packet) == [], is_whole)
                for fault in decoded["faults"]:
                    if "Malloc" not in fault:
                        self.assertEqual(experts(packet), [fault])
                whole += is_whole
        print(f"count: {len(cases)} messages dissected as they are decoded, {whole} of them whole")

    def test_all_types_of_the_example_session(self) -> None:
        lines = map(json.loads, nac("encode", "examples/access-session.jsonl").splitlines())
        cases = [(line["type"], bytes.fromhex(line["hex"])) for line in lines]
        self.assertEqual(len({name for name, _ in cases}), 25)
        self.compare(cases)

    def test_the_corpus_of_the_reference(self) -> None:
        cases = [(case["type"], bytes.fromhex(case["hex"])) for case in corpus() if len(case["hex"]) >= 8]
        self.assertGreater(len(cases), 5000 / SHARE_OF_CORPUS)
        self.compare(cases)

    def test_the_corpora_of_the_fuzzers(self) -> None:
        names = list(TYPES)
        cases = []
        for path in sorted((ROOT / "fuzz").rglob("*.hex")):
            for data in (bytes.fromhex(line) for line in path.read_text().splitlines() if not line.startswith("#")):
                if len(data) >= 6:  # as the decoder's fuzzer reads them: type, options, message
                    cases.append((names[data[0] % len(names)], data[2:]))
        self.assertGreater(len(cases), 1000)
        self.compare(cases)

    def test_64_bits_are_exact(self) -> None:
        given = {"f0": 2**64 - 1, "f1": 2**63 + 1, "f2": 2**53 + 1, "f3": 1}
        line = nac("encode", "-", given=json.dumps({"type": "Nac_UserDataFlowCfg", "record": given}))
        data = bytes.fromhex(json.loads(line)["hex"])
        message = pcapng.Message(TYPES["Nac_UserDataFlowCfg"]["id"], data, target=2**64 - 2, batch=2**63 + 3)
        packet = Dissected(pcapng.capture([message])).packets[0]
        header, shown = (packet.find(f"proto[@name='{name}']") for name in ("vorn", "nac"))
        self.assertEqual(record(shown, "Nac_UserDataFlowCfg", self.describe), given)
        fields = {each.get("name"): each.get("show") for each in header.findall("field")}
        self.assertEqual((fields["vorn.target"], fields["vorn.batch"]), (str(2**64 - 2), str(2**63 + 3)))

    def test_json_holds_the_script(self) -> None:
        made = json.loads(nac("dissector", "--json"))
        assert_fits("dissector", made)
        self.assertEqual(made["script"], nac("dissector"))
        self.assertNotIn("@", made["script"].replace("@TYPES@", "@"))

    def test_messages_can_be_filtered_by_their_fields(self) -> None:
        lines = list(map(json.loads, nac("encode", "examples/access-session.jsonl").splitlines()))
        capture = pcapng.capture(pcapng.batches([(TYPES[line["type"]]["id"], bytes.fromhex(line["hex"])) for line in lines]))
        ports = Dissected(capture, "-Y", "nac.Nac_SetPortMsg.f0 == 24 || nac.Nac_SetUserTableMsg.f5 == 00:1b:44:11:3a:b7")
        self.assertEqual(len(ports.packets), 3)

    def test_what_is_no_message_of_the_bus_is_reported(self) -> None:
        foreign = pcapng.start() + b"".join(
            pcapng.block(pcapng.PACKET, struct.pack("<IIIII", 0, 0, 0, len(data), len(data)) + data)
            for data in (b"", b"\x01", b"\x01\x28" + bytes(20), b"\x02\x28" + bytes(60), b"\x01\xff" + bytes(60)))
        dissected = Dissected(foreign)
        self.assertNotIn("Lua Error", dissected.text)
        self.assertEqual([experts(packet) for packet in dissected.packets[1:]], [["not the header of a message"]] * 4)

    def test_unknown_ids_short_and_cut_messages_are_reported(self) -> None:
        line = json.loads(nac("encode", "-", given='{"type": "Nac_SetPortMsg", "record": {"f0": 7}}'))
        data = bytes.fromhex(line["hex"])
        id = TYPES["Nac_SetPortMsg"]["id"]
        dissected = Dissected(pcapng.capture([pcapng.Message(5, data), pcapng.Message(id, b"abc"), pcapng.Message(id, b""),
                                              pcapng.Message(id, data[:10], cut=len(data) - 10)]))
        self.assertNotIn("Lua Error", dissected.text)
        self.assertEqual(experts(dissected.packets[0]), [])
        self.assertEqual(experts(dissected.packets[1]), ["3 bytes are no message"])
        self.assertEqual(experts(dissected.packets[2]), ["0 bytes are no message"])
        self.assertIn("nac.cut", dissected.text)
        self.assertEqual(len(experts(dissected.packets[3])), 1)

    def test_one_table_as_the_element_of_many_ends(self) -> None:
        # 60,000 references to one table, which would be a million items.
        entry = TYPES["Nac_UserDataFlowMsg"]
        count = 60_000
        vtable = struct.pack("<HHH", 6, 8, 4)
        root = struct.pack("<II", 6 + 2, 4)  # distance to the vtable, reference to the vector
        body = struct.pack("<I", 12) + vtable + b"\0\0" + root
        at = len(body)
        body += struct.pack("<I", count)
        for k in range(count):
            body += struct.pack("<I", at + 4 + 4 * count - (at + 4 + 4 * k) + 8)
        inner = struct.pack("<HHH", 8, 12, 4) + struct.pack("<H", 8)
        body += inner + struct.pack("<III", 8, 4711, 200)
        dissected = Dissected(pcapng.capture([pcapng.Message(entry["id"], body)]))
        self.assertEqual((dissected.code, dissected.errors), (0, []))
        self.assertNotIn("Lua Error", dissected.text)
        self.assertEqual(experts(dissected.packets[0]), ["more fields than are shown"])


if __name__ == "__main__":
    unittest.main()
