# SPDX-License-Identifier: Apache-2.0
# What the verbs read besides their own formats: dumps of hexdump and xxd, older captures, gzip.
import gzip
import json
import pathlib
import struct
import subprocess
import tempfile
import unittest

import pcapng
from drive import NAC, PORT, ROOT, VerbTest, lines, nac, run

MOVE = ROOT / "examples/port-move.pcapng"
TYPE = ("--type", "Nac_SetPortMsg")
DATA = bytes.fromhex(str(PORT["hex"]))
# As the two programs print the message; its record is {"f0": 7, "f1": 1}.
HEXDUMP = """\
00000000  04 00 00 00 f4 ff ff ff  07 00 00 00 01 00 00 00  |................|
00000010  08 00 0c 00 04 00 08 00                           |........|
00000018
"""
XXD = """\
00000000: 0400 0000 f4ff ffff 0700 0000 0100 0000  ................
00000010: 0800 0c00 0400 0800                      ........
"""


def pcap(messages: list[pcapng.Message], order: str = "<", nanoseconds: bool = False, link_type: int = pcapng.LINK_TYPE) -> bytes:
    """The older format: a head, and before each packet seconds, their fraction, bytes, original bytes."""
    made = struct.pack(order + "IHHiIII", 0xA1B23C4D if nanoseconds else 0xA1B2C3D4, 2, 4, 0, 0, 262144, link_type)
    for message in messages:
        data = message.header() + message.data
        second, fraction = divmod(message.time, 10**9)
        fraction = fraction if nanoseconds else fraction // 1000
        made += struct.pack(order + "IIII", second, fraction, len(data), len(data) + message.cut) + data
    return made


class Dumps(VerbTest):
    def test_both_programs_and_their_groups_are_recognised(self) -> None:
        raw = DATA
        programs = [["hexdump", "-C"], ["xxd"], ["xxd", "-g", "1"], ["xxd", "-c", "8", "-u"], ["xxd", "-g", "4", "-c", "32"]]
        dumps = [HEXDUMP, XXD, *(subprocess.run(each, input=raw, capture_output=True, check=True).stdout.decode() for each in programs)]
        for dump in dumps:
            for form in ((), ("--format", "dump")):
                done = nac("decode", *TYPE, *form, "-", given=dump)
                self.assert_done(done, 0)
                self.assertEqual(json.loads(done.stdout)["record"], {"f0": 7, "f1": 1}, dump)

    def test_an_offset_of_0_begins_a_message(self) -> None:
        done = nac("verify", *TYPE, "-", given=HEXDUMP + XXD + HEXDUMP)
        self.assert_done(done, 0, "3 messages, 0 damaged\n")
        self.assertEqual([line.split(":")[1] for line in done.stdout.splitlines()], ["1", "4", "6"])

    def test_rows_that_repeat_are_filled_in(self) -> None:
        zeros = DATA + bytes(512)
        dump = subprocess.run(["hexdump", "-C"], input=zeros, capture_output=True, check=True).stdout.decode()
        self.assertIn("*\n", dump)
        self.assertEqual(json.loads(nac("hex", *TYPE, "--json", "-", given=dump).stdout)["bytes"], len(zeros))

    def test_lines_that_are_missing_or_wrong_are_reported(self) -> None:
        for dump, words in ((HEXDUMP.replace("00000010", "00000020"), ":2: offset 20 after 10 bytes: lines are missing"),
                            (XXD.replace("f4ff", "f4fx"), ':1: "04000000f4fxffff0700000001000000" is not hexadecimal at character 11'),
                            (XXD + "and so on\n", ":3: no offset, as lines of hexdump -C and xxd have it"),
                            (XXD + "*\n", ":4: * as the last line: how often the row before it is repeated is missing"),
                            (XXD + "*\nffffffffffff: 00\n", ":4: 281474976710655 bytes are no message")):
            done = nac("decode", *TYPE, "-", given=dump)
            self.assert_complains(done, 1, "nac: standard input" + words)
        self.assert_done(nac("decode", "-", given=XXD), 2,
                         "nac: standard input: messages in this format do not name their type: give --type\n")


class OlderCaptures(VerbTest):
    def test_both_byte_orders_and_resolutions(self) -> None:
        message = pcapng.Message(0x09B58155, DATA, source=5, destination=6, time=1_700_000_000_123_456_789)
        for order in "<>":
            for nanoseconds, fraction in ((False, "123456000"), (True, "123456789")):
                given = pcap([message], order, nanoseconds)
                for verb in ("decode", "info"):
                    done = run(verb, "--json", "-", given=given)
                    self.assertEqual((done.returncode, done.stderr), (0, b""))
                shown = json.loads(run("decode", "-", given=given).stdout)
                self.assertEqual((shown["time"], shown["from"], shown["to"], shown["record"]),
                                 (f"2023-11-14T22:13:20.{fraction}Z", 5, 6, {"f0": 7, "f1": 1}), (order, nanoseconds))

    def test_foreign_packets_are_counted(self) -> None:
        message = pcapng.Message(0x09B58155, DATA)
        foreign = pcap([message] * 3, link_type=1)
        done = run("decode", "-", given=foreign)
        self.assertEqual((done.returncode, done.stderr.decode()),
                         (1, "nac: standard input: 3 packets passed over, and none holds a message of the bus\n"))
        mixed = pcap([message, pcapng.Message(0x09B58155, DATA)]) + struct.pack("<IIII", 1, 1, 4, 4) + b"abcd"
        done = run("decode", "-", given=mixed)
        self.assertEqual((done.returncode, done.stderr.decode()),
                         (0, "nac: standard input: passed over 1 packet without a message of the bus\n"))

    def test_one_that_ends_early_is_read_as_far_as_it_goes(self) -> None:
        whole = pcap([pcapng.Message(0x09B58155, DATA)] * 2)
        first = (len(whole) - 24) // 2 + 24
        for end in range(4, len(whole)):
            done = run("decode", "-", given=whole[:end])
            self.assertEqual(done.returncode, 0 if end in (24, first) else 1, end)
            self.assertEqual(len(done.stdout.splitlines()), 1 if end >= first else 0, end)
        claims = whole[:32] + struct.pack("<I", 0xFFFFFFFF) + whole[36:]
        self.assertIn(b"the packet at byte 24 claims 4294967295 bytes", run("info", "-", given=claims).stderr)


class Gzip(VerbTest):
    def test_every_format_may_be_packed(self) -> None:
        for arguments, data in (((), MOVE.read_bytes()), ((), lines(PORT, PORT).encode()), (TYPE, XXD.encode()),
                                ((*TYPE, "--format", "raw"), DATA), ((*TYPE, "--format", "hex"), DATA.hex().encode())):
            plain, packed = run("decode", *arguments, "-", given=data), run("decode", *arguments, "-", given=gzip.compress(data))
            self.assertEqual((plain.returncode, plain.stdout), (packed.returncode, packed.stdout))
            self.assertNotEqual(plain.stdout, b"")
        twice = gzip.compress(lines(PORT).encode()) + gzip.compress(lines(PORT).encode())
        self.assertEqual(len(run("decode", "-", given=twice).stdout.splitlines()), 2)

    def test_a_file_by_its_content_not_its_name(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "given")
            file.write_bytes(gzip.compress(MOVE.read_bytes()))
            self.assertIn("28 messages in 28 batches", nac("info", str(file)).stdout)
            self.assertIn("28 messages in 28 batches", nac("replay", "--speed", "max", "--bus", "loop:", str(file)).stderr)

    def test_damage_is_reported(self) -> None:
        packed = gzip.compress(lines(*[PORT] * 1000).encode())
        done = run("decode", "-", given=packed[:-20])
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"nac: standard input: gzip that ends early: its end is missing\n", done.stderr)
        done = run("decode", "-", given=packed[:40] + b"\xff" * 20 + packed[60:])
        self.assertEqual((done.returncode, done.stderr), (1, b"nac: standard input: damaged gzip; gzip -t tests it\n"))

    def test_what_a_small_file_unpacks_to_is_not_kept(self) -> None:
        # 200 MB of blanks, which end as a line that is too long.
        bomb = gzip.compress(b" " * 200_000_000, 1)
        done = subprocess.run([NAC, "decode", "-"], input=bomb,
                              capture_output=True, timeout=60)
        self.assertEqual(done.returncode, 1, done.stderr)
        self.assertIn(b"the line has more than 16777216 bytes", done.stderr)


if __name__ == "__main__":
    unittest.main()
