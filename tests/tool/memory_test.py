# SPDX-License-Identifier: Apache-2.0
# Memory that is bounded: files of many messages stream, and input that means harm takes no more. Not for sanitizers, which
# keep more.
import os
import pathlib
import struct
import subprocess
import tempfile
import unittest

import pcapng
from drive import NAC, VerbTest, json, lines, nac, peak_kib

HOSTILE_KIB = 200 * 1024


def many_references(count: int) -> bytes:
    """A Nac_UserDataFlowMsg whose vector refers `count` times to one table."""
    whole = nac("encode", "-", given=lines({"type": "Nac_UserDataFlowMsg", "record": {"f0": [{"f2": {"f0": 1}}]}})).stdout
    message = bytes.fromhex(json.loads(whole)["hex"])
    ranges = json.loads(nac("hex", "--json", "-", given=whole).stdout)["ranges"]
    (reference,) = [each["at"] for each in ranges if each["part"] == "reference" and each["path"] == "f0"]
    (table,) = [each["at"] for each in ranges if each["part"] == "soffset" and each["path"] == "f0[0]"]
    vector = len(message)
    copy = vector + 4 + 4 * count  # of the message: all in it is relative, so the copy of the table is whole
    elements = b"".join(struct.pack("<I", copy + table - (vector + 4 + 4 * k)) for k in range(count))
    first = message[:reference] + struct.pack("<I", vector - reference) + message[reference + 4:]
    return first + struct.pack("<I", count) + elements + message


def peak_of(*arguments: str, expected: int) -> int:
    process = subprocess.Popen([NAC, *arguments], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    assert process.returncode == expected, (arguments, process.returncode)
    return usage.ru_maxrss


class Memory(VerbTest):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def test_many_messages_take_no_more_memory_than_few(self) -> None:
        peak = {}
        for count in (1_000, 200_000):
            file = f"{self.folder}/{count}"
            self.assert_done(nac("random", "--type", "Nac_UserTableHitMsg", "--count", str(count), "-o", file), 0)
            peak["encode", count] = peak_kib("encode", "--format", "prefixed", file, "-o", file + ".bin")
            given = ["--format", "prefixed", "--type", "Nac_UserTableHitMsg"]
            for verb in ("decode", "verify", "hex"):
                peak[verb, count] = peak_kib(verb, *given, file + ".bin", "-o", "/dev/null")
            peak["diff", count] = peak_kib("diff", *given, file + ".bin", file + ".bin")
        for verb in ("encode", "decode", "verify", "hex", "diff"):
            self.assertLess(peak[verb, 200_000], peak[verb, 1_000] + 4096, verb)
            self.assertLess(peak[verb, 200_000], 64 * 1024, verb)
        print(f"count: 200000 messages decoded in {peak['decode', 200_000] // 1024} MiB")

    def test_one_message_of_many_references(self) -> None:
        file = self.folder / "message"
        given = ["--format", "raw", "--type", "Nac_UserDataFlowMsg", str(file), "-o", "/dev/null"]
        file.write_bytes(many_references(30_000))  # 120 KB
        for arguments in (["hex", "--json"], ["hex"]):
            self.assertLess(peak_of(*arguments, *given, expected=0), HOSTILE_KIB, arguments)
        file.write_bytes(many_references(245_000))  # 980 KB
        self.assertLess(peak_of("decode", *given, expected=0), HOSTILE_KIB)

    def test_one_batch_of_many_references(self) -> None:
        type_id = next(each["id"] for each in map(json.loads, nac("types", "--json").stdout.splitlines())
                       if each["name"] == "Nac_UserDataFlowMsg")
        file = self.folder / "batch.pcapng"
        file.write_bytes(pcapng.capture([pcapng.Message(type_id, many_references(245_000), destination=7)]))
        bus = f"ipc://{self.folder}/bus"
        for options in (["--json"], []):
            listener = subprocess.Popen([NAC, "listen", "--as", "7", "--count", "1", "--bus", bus, *options],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
            assert listener.stderr is not None
            self.assertIn("listening", listener.stderr.readline())
            self.assertEqual(nac("replay", "--bus", bus, "--speed", "max", "--timeout", "100", str(file)).returncode, 0)
            _, status, usage = os.wait4(listener.pid, 0)
            listener.returncode = os.waitstatus_to_exitcode(status)
            listener.stderr.close()
            self.assertEqual(listener.returncode, 0)
            self.assertLess(usage.ru_maxrss, HOSTILE_KIB, options)

    def test_lengths_that_are_only_claimed(self) -> None:
        file = self.folder / "claims.pcapng"
        file.write_bytes(pcapng.start() + struct.pack("<II", pcapng.PACKET, 128 << 20))
        for verb in ("info", "decode"):
            self.assertLess(peak_of(verb, str(file), expected=1), 32 * 1024)

    def test_a_line_without_end(self) -> None:
        file = self.folder / "line"
        with open(file, "wb") as made:
            made.write(b"{")
            made.truncate(1 << 30)
        for arguments in (["decode"], ["decode", "--format", "hex", "--type", "Nac_SetPortMsg"], ["encode"], ["assemble"],
                          ["exchange"], ["send", "--to", "1"]):
            self.assertLess(peak_of(*arguments, str(file), expected=1), 100 * 1024, arguments)
            self.assert_complains(nac(*arguments, str(file)), 1, f"{file}:1: the line has more than 16777216 bytes")


if __name__ == "__main__":
    unittest.main()
