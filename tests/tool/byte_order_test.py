# SPDX-License-Identifier: Apache-2.0
# Messages of big-endian hosts, whose numbers all have the high byte first: --byte-order big.
import json
import pathlib
import struct
import tempfile
import unittest

from drive import PORT, VerbTest, corpus, lines, nac

# {"f0": 7, "f1": 1}, compact: root reference, vtable of 8 with two slots, soffset, the two numbers.
BIG = (struct.pack(">IHHHH", 12, 8, 12, 4, 8) + struct.pack(">III", 8, 7, 1)).hex()
TURN = ("--byte-order", "big")


class ByteOrder(VerbTest):
    def test_a_message_spelled_out(self) -> None:
        given = lines({"type": "Nac_SetPortMsg", "hex": BIG})
        done = nac("decode", *TURN, "-", given=given)
        self.assert_done(done, 0)
        self.assertEqual(json.loads(done.stdout)["record"], {"f0": 7, "f1": 1})
        self.assert_done(nac("verify", *TURN, "--quiet", "-", given=given), 0, "1 message, 0 damaged\n")
        self.assert_complains(nac("verify", "--quiet", "-", given=given), 1, "1 message, 1 damaged")

    def test_hex_shows_the_bytes_as_they_are(self) -> None:
        done = nac("hex", *TURN, "-", given=lines({"type": "Nac_SetPortMsg", "hex": BIG}))
        self.assert_done(done, 0)
        self.assertEqual(done.stdout.splitlines()[1], "00000000: 00 00 00 0c              ; root reference: table at 12")
        self.assertEqual(done.stdout.splitlines()[-2], "00000010: 00 00 00 07              ;   f0 u32 = 7")
        [shown] = self.read("hex", nac("hex", *TURN, "--json", "-", given=lines({"type": "Nac_SetPortMsg", "hex": BIG})).stdout)
        self.assertEqual("".join(each["hex"] for each in shown["ranges"]), BIG)  # type: ignore
        text = nac("assemble", "-", given=done.stdout).stdout
        self.assertEqual(json.loads(text)["hex"], BIG)

    def test_all_types_and_layouts_turned_and_turned_back(self) -> None:
        # Twice turned is as it was, so that what hex shows of the one order is the other.
        for layout in ("compact", "sent"):
            given = nac("encode", "--layout", layout, "examples/access-session.jsonl").stdout
            plain = nac("decode", "-", given=given).stdout
            big = ""
            for line in given.splitlines():
                message = json.loads(line)
                shown = json.loads(nac("hex", "--json", "-", given=line).stdout)
                data = bytearray.fromhex(message["hex"])
                for each in shown["ranges"]:
                    at, end = each["at"], each["at"] + each["bytes"]
                    width = each["bytes"] if each["part"] not in ("elements", "padding", "unread") else 1
                    if each["part"] == "elements":
                        width = {"u16": 2, "u32": 4, "u64": 8}.get(each["text"].split(" ")[1].strip("[]").split("[")[0], 1)
                    for k in range(at, end, width):
                        data[k:k + width] = bytes.fromhex(message["hex"])[k:k + width][::-1]
                big += json.dumps({"type": message["type"], "hex": data.hex()}) + "\n"
            self.assertEqual(nac("decode", *TURN, "-", given=big).stdout, plain, layout)
            self.assertEqual(nac("verify", *TURN, "--quiet", "-", given=big).stderr, "29 messages, 0 damaged\n")

    def test_a_capture_is_chosen_from_by_values(self) -> None:
        given = lines({"type": "Nac_SetPortMsg", "hex": BIG}, PORT)
        done = nac("decode", *TURN, "--where", "f0=7", "-", given=given)
        self.assertEqual(len(done.stdout.splitlines()), 1)

    def test_damaged_messages_come_to_an_end(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "cases")
            file.write_text(lines(*({"type": case["type"], "hex": case["hex"]} for case in corpus())))
            done = nac("verify", *TURN, "--quiet", str(file))
            self.assertEqual(done.returncode, 1)
            self.assertRegex(done.stderr, r"\d+ messages, \d+ damaged\n$")

    def test_other_words_are_refused(self) -> None:
        self.assert_done(nac("decode", "--byte-order", "middle", "-"), 2,
                         "nac: decode --byte-order: middle is none of little, big; see nac decode --help\n")


if __name__ == "__main__":
    unittest.main()
