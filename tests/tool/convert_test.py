# SPDX-License-Identifier: Apache-2.0
# nac encode and nac decode: records to bytes and back, in every format.
import json
import struct
import subprocess
import tempfile
import unittest

from drive import DAMAGED, NAC, PORT, SESSION, VerbTest, corpus, lines, messages, nac, run

RECORD = {"type": "Nac_SetPortMsg", "record": {"f0": 7, "f1": 1}}
FORMATS = ["lines", "hex", "prefixed", "tagged"]


class Encode(VerbTest):
    def test_layouts(self) -> None:
        for layout, expected in {"compact": "0c00000008000c000400080008000000" + "0700000001000000",
                                 "image": PORT["hex"], "sent": PORT["hex"]}.items():
            done = nac("encode", "--layout", layout, "-", given=lines(RECORD))
            self.assert_done(done, 0)
            self.assertEqual(self.read("encode", done.stdout), [{"type": "Nac_SetPortMsg", "hex": expected}])

    def test_what_has_no_image_is_sent_compact(self) -> None:
        given = lines({"type": "Nac_UserDataFlowMsg", "record": {}})
        self.assert_complains(nac("encode", "--layout", "image", "-", given=given), 1,
                              "standard input:1: Nac_UserDataFlowMsg holds vectors and has no fixed image")
        self.assertEqual(nac("encode", "--layout", "sent", "-", given=given).stdout,
                         nac("encode", "-", given=given).stdout)

    def test_formats(self) -> None:
        data = bytes.fromhex(PORT["hex"])
        head = struct.pack("<I", len(data))
        for form, expected in {"raw": data, "hex": PORT["hex"].encode() + b"\n", "prefixed": (head + data),
                               "tagged": struct.pack("<I", 0x09B58155) + head + data}.items():
            done = run("encode", "--layout", "image", "--format", form, "-", given=lines(RECORD).encode())
            self.assertEqual((done.returncode, done.stdout, done.stderr), (0, expected, b""), form)

    def test_a_raw_file_is_one_message(self) -> None:
        self.assert_complains(nac("encode", "--format", "raw", "-", given=lines(RECORD, RECORD)), 1,
                              "standard input:2: a second message")

    def test_types_by_name_by_id_and_by_option(self) -> None:
        expected = nac("encode", "-", given=lines(RECORD)).stdout
        for given in ({"type": "0x09B58155"}, {"type": 162890069}, {"type": "162890069"}):
            self.assertEqual(nac("encode", "-", given=lines({**given, "record": RECORD["record"]})).stdout, expected)
        bare = nac("encode", "--type", "Nac_SetPortMsg", "-", given=lines(RECORD["record"]))
        self.assertEqual(bare.stdout, expected)
        self.assert_complains(nac("encode", "--type", "Nac_Nothing", "-"), 2, "Nac_Nothing is not a message type")

    def test_bad_records_are_reported_with_their_position(self) -> None:
        for given, complaint in {
            lines({"type": "Nac_SetPortMsg"}): 'standard input:1: no "record"',
            lines(RECORD["record"]): 'no "type" with a message type\'s name',
            lines({"type": -1, "record": {}}): 'no "type" with a message type\'s name',
            lines({"type": 7, "record": {}}): "7 is not a message type",
            lines({"type": "Nac_SetPortMsg", "record": {"f0": 2**32}}): "Nac_SetPortMsg.f0: 4294967296 is not an integer",
            lines({"type": "Nac_UserDataFlowMsg", "record": {"f0": {"lost": 3}}}): "f0: {\"lost\":3} is not an array",
            "{": "not JSON",
        }.items():
            done = nac("encode", "-", given=given)
            self.assert_complains(done, 1, complaint)
            self.assertEqual(done.stdout, "")

    def test_nothing_is_no_error(self) -> None:
        done = nac("encode", "-")
        self.assert_done(done, 0)
        self.assertEqual(done.stdout, "")

    def test_files_that_cannot_be_used(self) -> None:
        self.assert_complains(nac("encode", "/nowhere/x"), 3, "/nowhere/x: No such file")
        self.assert_complains(nac("encode", str(SESSION), "-o", "/nowhere/x"), 3, "/nowhere/x: No such file")
        self.assert_complains(nac("encode", str(SESSION), "-o", "/dev/full"), 3, "/dev/full")


class Decode(VerbTest):
    def test_every_format_holds_the_same(self) -> None:
        records = nac("random", "--type", "Nac_SetUserTableMsg", "--count", "40", "--seed", "3").stdout
        expected = nac("decode", "-", given=nac("encode", "-", given=records).stdout)
        self.assert_done(expected, 0)
        self.assertEqual([row["record"] for row in self.read("decode", expected.stdout)],
                         [row["record"] for row in map(json.loads, records.splitlines())])
        for form in FORMATS:
            encoded = run("encode", "--format", form, "-", given=records.encode()).stdout
            done = run("decode", "--format", form, "--type", "Nac_SetUserTableMsg", "-", given=encoded)
            self.assertEqual((done.returncode, done.stdout.decode()), (0, expected.stdout), form)

    def test_tagged_messages_name_their_types(self) -> None:
        encoded = run("encode", "--format", "tagged", str(SESSION)).stdout
        done = run("decode", "--format", "tagged", "-", given=encoded)
        self.assertEqual(done.returncode, 0)
        self.assertEqual([row["type"] for row in self.read("decode", done.stdout.decode())],
                         [json.loads(row)["type"] for row in SESSION.read_text().splitlines()])

    def test_files_and_output(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            self.assert_done(nac("encode", "--layout", "image", "--format", "raw", "-o", f"{folder}/port", "-",
                                 given=lines(RECORD)), 0)
            done = nac("decode", "--format", "raw", "--type", "0x09B58155", f"{folder}/port", "-o", f"{folder}/out")
            self.assert_done(done, 0)
            self.assertEqual(done.stdout, "")
            with open(f"{folder}/out") as out:
                self.assertEqual(self.read("decode", out.read())[0]["record"], RECORD["record"])

    def test_prefixed_messages_that_are_none(self) -> None:
        for given, complaint in {
            b"\x04": "message 1 is cut short",
            b"\x04\0\0\0\0\0\0": "message 1 is cut short",
            b"\x04\0\0\0abcd\xff\xff\xff\x7f1234": "message 2 is cut short",
            b"\0\0\0\x80": "2147483648 bytes are no message",
            b"\0\0\0\0": "0 bytes are no message",
        }.items():
            done = run("decode", "--format", "prefixed", "--type", "Nac_SetPortMsg", "-", given=given)
            self.assertEqual(done.returncode, 1, given)
            self.assertIn(complaint, done.stderr.decode())
        done = run("decode", "--format", "tagged", "-", given=b"\1\0\0\0\4\0\0\0")
        self.assertIn("message 1: 0x00000001 is not the id of a message type", done.stderr.decode())

    def test_hexadecimal_lines(self) -> None:
        good = "04000000 f4ffffff\t07000000 01000000 08000c00 04000800\r\n\n"
        done = nac("decode", "--format", "hex", "--type", "Nac_SetPortMsg", "-", given=good * 2)
        self.assert_done(done, 0)
        self.assertEqual(len(self.read("decode", done.stdout)), 2)
        self.assert_complains(nac("decode", "--format", "hex", "--type", "Nac_SetPortMsg", "-", given="0x12"), 1,
                              "standard input:1: \"0x12\" is not hexadecimal")

    def test_formats_without_a_type_need_one(self) -> None:
        for form in ("raw", "hex", "prefixed"):
            self.assert_complains(nac("decode", "--format", form, "-"), 2, "give --type")
        self.assert_complains(nac("decode", "--format", "nonsense", "-"), 2, "--format")

    def test_empty_input(self) -> None:
        for form in FORMATS:
            done = nac("decode", "--format", form, "--type", "Nac_SetPortMsg", "-")
            self.assert_done(done, 0)
            self.assertEqual(done.stdout, "")
        self.assert_complains(nac("decode", "--format", "raw", "--type", "Nac_SetPortMsg", "-"), 1,
                              "0 bytes are no message")

    def test_damage_is_1_and_the_rest_is_read(self) -> None:
        done = nac("decode", "--json", "-", given=lines(DAMAGED, PORT))
        self.assertEqual(done.returncode, 1)
        self.assertEqual([row["verdict"] for row in self.read("decode", done.stdout)], ["header", "ok"])

    def test_a_reader_that_leaves_is_no_error(self) -> None:
        command = f"{NAC} random --count 100000 | head -n 1; echo ${{PIPESTATUS[0]}}"
        done = subprocess.run(["bash", "-c", command], capture_output=True, text=True, timeout=60)
        self.assertEqual(done.stdout.splitlines()[1], "141")  # ended by SIGPIPE, as other tools are
        self.assertEqual(done.stderr, "")


class RoundTrip(VerbTest):
    def test_the_corpus_in_the_compact_layout(self) -> None:
        cases = [case for case in corpus() if case["name"].startswith("compact ")]
        self.assertGreater(len(cases), 500)
        decoded = nac("decode", "-", given=messages(cases))
        self.assert_done(decoded, 0)
        encoded = nac("encode", "-", given=decoded.stdout)
        self.assert_done(encoded, 0)
        self.assertEqual(encoded.stdout.splitlines(),
                         [json.dumps({"type": case["type"], "hex": case["hex"]}, separators=(",", ":")) for case in cases])
        print(f"count: {len(cases)} compact messages decoded and encoded to the same bytes")

    def test_the_corpus_in_fixed_images(self) -> None:
        cases = [case for case in corpus() if case["name"].startswith("image ") and case["verdict"] == "ok"
                 and case["name"].split()[1].startswith(("zero", "maximal", "rich-", "sparse-", "only-"))]
        self.assertGreater(len(cases), 300)
        decoded = nac("decode", "-", given=messages(cases))
        encoded = nac("encode", "--layout", "image", "-", given=decoded.stdout)
        self.assertEqual([row["hex"] for row in self.read("encode", encoded.stdout)], [case["hex"] for case in cases])

    def test_numbers_of_64_bits_survive(self) -> None:
        for number in (2**53 + 1, 2**63 - 1, 2**63, 2**64 - 1):
            record = {"type": "Nac_UserDataFlowCfg", "record": {"f0": number, "f1": 0, "f2": number - 1, "f3": 1}}
            decoded = nac("decode", "-", given=nac("encode", "-", given=lines(record)).stdout)
            self.assertEqual(self.read("decode", decoded.stdout)[0]["record"], record["record"])


if __name__ == "__main__":
    unittest.main()
