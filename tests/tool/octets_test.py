# SPDX-License-Identifier: Apache-2.0
# Byte strings that are text, in tables, JSON and beside bytes; --octets.
import json
import tempfile
import unittest

from drive import VerbTest, lines, nac

MOVE = "examples/port-move.pcapng"
USER = "Nac_SetUserTableMsg"
AUTHEN = "Nac_IpsecAuthenReqMsg"
# f31: text in two scripts, its second character two bytes long; f42: a terminal's escape; f51: no text at all.
RECORD = {"f0": 1, "f31": "4ac3bc7267656e20d09f", "f42": "1b5b324a78", "f51": "00ff"}
GIVEN = lines({"type": USER, "record": RECORD})


def packed() -> str:
    return nac("encode", "-", given=GIVEN).stdout


class Octets(VerbTest):
    def decoded(self, *options: str) -> dict[str, object]:
        return self.read("decode", nac("decode", *options, "-", given=packed()).stdout)[0]

    def test_json_has_texts_beside_the_record_which_stays_as_it_is(self) -> None:
        plain = self.decoded()
        self.assertEqual(plain["texts"], {"f31": "Jürgen П"})
        self.assertEqual(self.decoded("--octets", "text")["texts"],
                         {"f31": "Jürgen П", "f42": "\\x1b[2Jx", "f51": "\\x00\\xff"})
        self.assertNotIn("texts", self.decoded("--octets", "hex"))
        for options in ((), ("--octets", "text"), ("--octets", "hex")):
            self.assertEqual(self.decoded(*options)["record"], plain["record"])

    def test_what_decode_prints_is_encoded_again(self) -> None:
        for octets in ("auto", "text", "hex"):
            text = nac("decode", "--octets", octets, "-", given=packed()).stdout
            self.assertEqual(nac("encode", "-", given=text).stdout, packed(), octets)

    def test_paths_lead_into_nested_records(self) -> None:
        done = nac("decode", "--packet", "8", MOVE)
        self.assertEqual(json.loads(done.stdout)["texts"],
                         {"f31": "alice@example.org", "f42": "employees", "f51": "session-0x1267"})

    def test_beside_bytes_they_are_in_quotes(self) -> None:
        values = {octets: [line.split("[u8] = ")[1] for line in
                           nac("hex", "--octets", octets, "-", given=packed()).stdout.splitlines() if "[u8] = " in line]
                  for octets in ("auto", "text", "hex")}
        self.assertEqual(values, {"auto": ['"Jürgen П"', "1b5b324a78", "00ff"],
                                  "text": ['"Jürgen П"', '"\\x1b[2Jx"', '"\\x00\\xff"'],
                                  "hex": ["4ac3bc7267656e20d09f", "1b5b324a78", "00ff"]})

    def test_long_texts_are_cut_between_characters(self) -> None:
        given = nac("encode", "-", given=lines({"type": USER, "record": {"f31": ("ü" * 100).encode().hex()}})).stdout
        self.assertIn('f31 [u8] = "' + "ü" * 32 + '..."', nac("hex", "-", given=given).stdout)
        one_more = nac("encode", "-", given=lines({"type": USER, "record": {"f31": ("x" + "ü" * 100).encode().hex()}})).stdout
        self.assertIn('f31 [u8] = "x' + "ü" * 31 + '..."', nac("hex", "-", given=one_more).stdout)
        [shown] = self.read("hex", nac("hex", "--json", "-", given=given).stdout)
        self.assertIn('f31 [u8] = "' + "ü" * 100 + '"', [each["text"] for each in shown["ranges"]])  # type: ignore

    def test_tables_have_them_in_quotes(self) -> None:
        given = lines({"type": AUTHEN, "record": {"f5": b"alice@example.org".hex()}})
        self.assertIn('{f5="alice@example.org"}', nac("exchange", "-", given=given).stdout)
        self.assertIn("{f5=616c696365", nac("exchange", "--octets", "hex", "-", given=given).stdout)
        shown = self.read("exchange", nac("exchange", "--json", "-", given=given).stdout)
        self.assertEqual([each["texts"] for each in shown], [{"f5": "alice@example.org"}] * 2)

    def test_differences_have_them_in_quotes(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            sides = []
            for name in (b"alice", b"bob"):
                sides.append(f"{folder}/{name.decode()}")
                nac("encode", "-o", sides[-1], "-", given=lines({"type": USER, "record": {"f31": name.hex()}}))
            done = nac("diff", *sides)
            self.assertEqual(done.returncode, 1)
            self.assertRegex(done.stdout, '\n  f31 +"alice" at [0-9]+  ->  "bob" at [0-9]+\n')
            self.assertRegex(nac("diff", "--octets", "hex", *sides).stdout, '"616c696365" at [0-9]+  ->  "626f62" at')

    def test_other_words_are_refused(self) -> None:
        self.assert_done(nac("decode", "--octets", "Text", "-"), 2,
                         "nac: decode --octets: Text is none of auto, text, hex; did you mean text?\n")


if __name__ == "__main__":
    unittest.main()
