# SPDX-License-Identifier: Apache-2.0
# The tool as its users meet it: standard output, standard error and exit code of the real binary.
#
# NAC names the binary; the README's commands are run with build/release/nac replaced by it.
import json
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
NAC = os.environ.get("NAC", str(ROOT / "build/release/nac"))
SESSION = ROOT / "examples/access-session.jsonl"
ON_RECORD = [json.loads(line) for line in (ROOT / "tests/reference/descriptions.jsonl").read_text().splitlines()]
MESSAGES = {each["name"] for each in ON_RECORD if each["id"] is not None}


def nac(*arguments: str, given: str = "") -> subprocess.CompletedProcess[str]:
    return subprocess.run([NAC, *arguments], input=given, capture_output=True, text=True, cwd=ROOT, timeout=60)


def line(type_name: str, record: object) -> str:
    return json.dumps({"type": type_name, "record": record}) + "\n"


def c_text(form: str, values: list[object]) -> str:
    return form.replace("%u", "%d") % tuple(values)


class CommandLine(unittest.TestCase):
    def test_version_and_help_are_data(self) -> None:
        for arguments in (["--version"], ["--help"], ["types", "--help"], ["decode", "--help"], ["exchange", "--help"]):
            done = nac(*arguments)
            self.assertEqual((done.returncode, done.stderr), (0, ""), arguments)
            self.assertNotEqual(done.stdout, "")
        self.assertRegex(nac("--version").stdout, r"^nac \d+\.\d+\.\d+\n$")

    def test_wrong_usage_is_2(self) -> None:
        for arguments in ([], ["nonsense"], ["types", "--nonsense"], ["decode"], ["exchange"]):
            done = nac(*arguments)
            self.assertEqual((done.returncode, done.stdout), (2, ""), arguments)
            self.assertIn("--help", done.stderr)


class Types(unittest.TestCase):
    def test_lists_all_types_with_ids_and_sizes(self) -> None:
        done = nac("types")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        heads = re.findall(r"^(Nac_\w+) +0x([0-9A-F]{8}) +(\w+) +record +(\d+)  (image \d+|compact)$", done.stdout, re.M)
        self.assertEqual({head[0] for head in heads}, MESSAGES)
        self.assertIn(("Nac_SetPortMsg", "09B58155", "port", "8", "image 24"), heads)
        self.assertIn(("Nac_SetUserTableMsg", "47986D1D", "user", "328", "compact"), heads)

    def test_json_has_every_field(self) -> None:
        types = {entry["name"]: entry for entry in map(json.loads, nac("types", "--json").stdout.splitlines())}
        self.assertEqual(set(types), MESSAGES)
        self.assertEqual(len(types["Nac_SetUserTableMsg"]["fields"]), 55)
        offline = types["Nac_L2NotifyNacUserOfflineMsg"]
        fields = offline.pop("fields")
        self.assertEqual(offline, {
            "name": "Nac_L2NotifyNacUserOfflineMsg", "module": "user", "id": 65888119, "record_bytes": 32,
            "vtable_bytes": 20, "image_bytes": 72, "image_table_length": 44, "image_vtable_offset": 48,
        })
        self.assertEqual([field["kind"] for field in fields], ["u32", "u32", "u32", "u16", "u8[6]", "u32", "u32", "u32"])
        self.assertEqual(fields[4], {
            "name": "f4", "kind": "u8[6]", "form": "fixed array", "display": "hardware address", "element_bytes": 1,
            "count": 6, "table": None, "record_offset": 14, "count_offset": None, "slot": 12, "image_offset": 22,
            "image_bytes": 14,
        })


class Describe(unittest.TestCase):
    def test_by_name_and_by_id(self) -> None:
        by_name = nac("describe", "Nac_SetPortMsg")
        self.assertEqual((by_name.returncode, by_name.stderr), (0, ""))
        self.assertEqual(by_name.stdout, """\
Nac_SetPortMsg  0x09B58155  module port
record 8 bytes, vtable 8 bytes, fixed image 24 bytes: table of 12 at 4, vtable at 16
  field kind                     shown as          record   slot  image  bytes
  f0    u32                      number                 0      4      8      4
  f1    u32                      number                 4      6     12      4
""")
        for identity in ("0x09b58155", "162890069"):
            self.assertEqual(nac("describe", identity).stdout, by_name.stdout)

    def test_json_has_vectors_and_of_the_tables_in_them(self) -> None:
        done = nac("describe", "--json", "Nac_SetUserTableMsg", "Nac_Ipv6Addr")
        table, address = map(json.loads, done.stdout.splitlines())
        self.assertIsNone(table["image_bytes"])
        self.assertEqual({field["display"] for field in table["fields"]},
                         {"number", "hardware address", "hexadecimal", "numbers", "table", "tables"})
        self.assertEqual(table["fields"][12]["table"], "Nac_Ipv6Addr")
        self.assertEqual((address["name"], address["module"], address["id"]), ("Nac_Ipv6Addr", None, None))
        self.assertEqual(address["fields"][0]["display"], "IPv6 address")

    def test_an_unknown_type_is_wrong_usage(self) -> None:
        for name in ("Nac_Nothing", "0x1", "0x09B58155x", ""):
            done = nac("describe", name)
            self.assertEqual((done.returncode, done.stdout), (2, ""), name)
            self.assertIn(f"nac: {name} is not a message type", done.stderr)


class Decode(unittest.TestCase):
    def test_agrees_with_the_reference_on_its_corpus(self) -> None:
        cases = []
        for path in sorted((ROOT / "tests/reference/corpus").glob("*.jsonl")):
            cases += map(json.loads, path.read_text().splitlines())
        # Null pointers, other lengths and failing allocations cannot be given to the tool; corpus_test has them.
        given = [case for case in cases if not case.keys() & {"null", "length", "fail_allocation"} and len(case["hex"]) >= 8]
        done = nac("decode", "-", given="".join(json.dumps({"type": c["type"], "hex": c["hex"]}) + "\n" for c in given))
        self.assertEqual(done.returncode, 1)
        read = [json.loads(row) for row in done.stdout.splitlines()]
        self.assertEqual(len(read), len(given))
        for case, result in zip(given, read):
            with self.subTest(type=case["type"], name=case["name"]):
                self.assertEqual((result["type"], result["verdict"]), (case["type"], case["verdict"]))
                if case["record"] != "untouched":  # the tool's records are zero before
                    self.assertEqual(result["record"], case["record"])
                lines = [f"{each['function']}: {c_text(each['format'], each['args'])}" for each in case["log"]]
                self.assertEqual(result["faults"], lines)
        print(f"count: {len(given)} of {len(cases)} cases of the corpus read as the reference reads them")

    def test_a_good_message_is_a_record_and_no_words(self) -> None:
        port = {"type": "Nac_SetPortMsg", "hex": "04000000f4ffffff0700000001000000" + "08000c0004000800"}
        done = nac("decode", "-", given=json.dumps(port))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(json.loads(done.stdout), {"type": "Nac_SetPortMsg", "verdict": "ok", "record": {"f0": 7, "f1": 1},
                                                   "faults": []})

    def test_damage_is_reported_with_its_position(self) -> None:
        done = nac("decode", "-", given='{"type": "Nac_SetPortMsg", "hex": "ffffffff00000000"}')
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr, "nac: standard input:1: Nac_SetPortMsg is damaged in its header: "
                                      "Nac_SetPortMsg_unpack: [KAPLO]:Table offset(4294967295) is out of range(4 - 8)\n")

    def test_lines_that_hold_no_message_are_reported(self) -> None:
        cases = {
            '{"type": "Nac_SetPortMsg"}': 'no "hex"',
            '{"type": "Nac_SetPortMsg", "hex": "abc"}': "odd number of digits",
            '{"type": "Nac_SetPortMsg", "hex": 7}': "hex: 7 is not a text",
            '{"type": "Nac_SetPortMsg", "hex": "ffffff"}': "Nac_SetPortMsg: 3 bytes are no message; it has 4 to 2147483647",
        }
        for given, complaint in cases.items():
            done = nac("decode", "-", given=given)
            self.assertEqual((done.returncode, done.stdout), (1, ""), given)
            self.assertIn("nac: standard input:1: ", done.stderr)
            self.assertIn(complaint, done.stderr)


class Exchange(unittest.TestCase):
    def test_the_example_session_arrives_whole(self) -> None:
        done = nac("exchange", str(SESSION))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        rows = done.stdout.splitlines()
        self.assertEqual(len([row for row in rows if row.startswith("single ")]), 29)
        self.assertEqual(len([row for row in rows if row.startswith("batch ")]), 29)
        self.assertEqual(
            rows[-1],
            "29 records of 25 types: 29 arrived from single sends, 29 from 25 batches; "
            "0 differ, 0 log lines, 0 arrays not freed",
        )

    def test_json_shows_the_records_that_were_given(self) -> None:
        done = nac("exchange", "--json", str(SESSION))
        self.assertEqual(done.returncode, 0)
        arrived = [json.loads(row) for row in done.stdout.splitlines()]
        given = [json.loads(row) for row in SESSION.read_text().splitlines()]
        singles = [entry for entry in arrived if entry["sent"] == "single"]
        self.assertEqual([entry["type"] for entry in singles], [entry["type"] for entry in given])
        for sent, received in zip(given, singles):
            self.assertTrue(contains(received["record"], sent["record"]), (sent, received))

    def test_values_at_their_limits_survive(self) -> None:
        record = {"f0": 2**64 - 1, "f1": 2**63, "f2": 1, "f3": 0}
        done = nac("exchange", "--json", "-", given=line("Nac_UserDataFlowCfg", record))
        self.assertEqual(json.loads(done.stdout.splitlines()[0])["record"], record)

    def test_no_records_are_no_error(self) -> None:
        done = nac("exchange", "-", given="\n  \n")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertIn("0 records of 0 types", done.stdout)

    def test_more_than_a_batch_holds_goes_in_several(self) -> None:
        rows = line("Nac_SetUserTableMsg", {"f31": "ab" * 20_000}) * 4
        done = nac("exchange", "-", given=rows)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("4 arrived from single sends, 4 from 2 batches", done.stdout)

    def test_a_record_that_no_batch_holds_is_reported(self) -> None:
        done = nac("exchange", "-", given=line("Nac_SetUserTableMsg", {"f31": "ab" * 70_000}))
        self.assertEqual(done.returncode, 1)
        self.assertIn("standard input:1: Nac_SetUserTableMsg packs to 70246 bytes, more than a batch holds", done.stderr)

    def test_bad_lines_are_reported_with_their_position(self) -> None:
        cases = {
            '{"type": "Nac_SetPortMsg", "record": {"f0": 1': "not JSON, at character",
            '["Nac_SetPortMsg"]': 'no "type" with a message type\'s name',
            '{"type": "Nac_SetPortMsg"}': 'no "record"',
            line("Nac_Ipv6Addr", {}): "Nac_Ipv6Addr is not a message type",
            line("Nac_SetPortMsg", 7): "Nac_SetPortMsg.record: not an object",
            line("Nac_SetPortMsg", {"f2": 1}): "Nac_SetPortMsg.f2: Nac_SetPortMsg has no such field",
            line("Nac_SetPortMsg", {"f0": -1}): "Nac_SetPortMsg.f0: -1 is not an integer from 0 to 4294967295",
            line("Nac_SetPortMsg", {"f0": 2**32}): "Nac_SetPortMsg.f0: 4294967296 is not an integer",
            line("Nac_SetPortMsg", {"f0": 1.5}): "Nac_SetPortMsg.f0: 1.5 is not an integer",
            line("Nac_SetPortMsg", {"f0": "1"}): 'Nac_SetPortMsg.f0: "1" is not an integer',
            line("Nac_UserDataFlowMsg", {"f0": {}}): "Nac_UserDataFlowMsg.f0: {} is not an array",
            line("Nac_UserDataFlowMsg", {"f0": [{}, {"f2": {"f4": 1}}]}): "f0[1].f2.f4: Nac_UserDataFlowCfg has no such field",
            line("Nac_SetUserTableMsg", {"f31": "abc"}): 'f31: "abc" has an odd number of digits',
            line("Nac_SetUserTableMsg", {"f31": "ax"}): 'f31: "ax" is not hexadecimal at character 1',
            line("Nac_SetUserTableMsg", {"f31": 5}): "f31: 5 is not a text",
            line("Nac_SetUserTableMsg", {"f5": "00:11:22:33:44"}): "f5: ",
            line("Nac_SetUserTableMsg", {"f5": "00-11-22-33-44-55"}): "is not a hardware address",
            line("Nac_SetUserTableMsg", {"f53": [1, 2]}): "f53: holds 2 numbers, not 16",
            line("Nac_SetUserTableMsg", {"f15": [65536]}): "f15[0]: 65536 is not an integer from 0 to 65535",
            line("Nac_DaclRuleIpInfo", {"f4": "2001:db8::xyz"}): "f4: ",
        }
        for given, complaint in cases.items():
            with self.subTest(given=given):
                done = nac("exchange", "-", given="\n" + given)
                self.assertEqual((done.returncode, done.stdout), (1, ""))
                self.assertIn("nac: standard input:2: ", done.stderr)
                self.assertIn(complaint, done.stderr)

    def test_a_file_that_cannot_be_read_is_3(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            for path in (folder + "/missing.jsonl", folder):
                done = nac("exchange", path)
                self.assertEqual((done.returncode, done.stdout), (3, ""), path)
                self.assertIn(path, done.stderr)


def contains(whole: object, part: object) -> bool:
    """Whether every field that `part` names is the same in `whole`."""
    if isinstance(part, dict):
        return isinstance(whole, dict) and all(key in whole and contains(whole[key], part[key]) for key in part)
    if isinstance(part, list):
        return isinstance(whole, list) and len(whole) == len(part) and all(map(contains, whole, part))
    return whole == part


if __name__ == "__main__":
    unittest.main()
