# SPDX-License-Identifier: Apache-2.0
# nac verify, nac hex, nac assemble and nac diff: what is in messages, wrong or right.
import json
import os
import subprocess
import tempfile
import unittest

from drive import DAMAGED, NAC, PORT, SESSION, Done, VerbTest, corpus, lines, messages, nac, run


def c_text(form: str, values: list[object]) -> str:
    return form.replace("%u", "%d") % tuple(values)


class Verify(VerbTest):
    def test_good_messages(self) -> None:
        done = nac("verify", "-", given=lines(PORT))
        self.assert_done(done, 0, "1 message, 0 damaged\n")
        self.assertEqual(done.stdout, "standard input:1: Nac_SetPortMsg, 24 bytes, image, ok\n")
        self.assertEqual(nac("verify", "--quiet", "-", given=lines(PORT)).stdout, "")

    def test_empty_input(self) -> None:
        done = nac("verify", "-")
        self.assert_done(done, 0, "0 messages, 0 damaged\n")
        self.assertEqual(done.stdout, "")

    def test_damage_is_reported_with_offset_table_field_and_log(self) -> None:
        done = nac("verify", "-", given=lines(DAMAGED))
        self.assert_done(done, 1, "1 message, 1 damaged\n")
        self.assertEqual(done.stdout, """\
standard input:1: Nac_SetPortMsg, 8 bytes, other, damaged in its header
  at 0, header of Nac_SetPortMsg: the table would be at 4294967295, outside of 4 to 4
  logged: Nac_SetPortMsg_unpack: [KAPLO]:Table offset(4294967295) is out of range(4 - 8)
""")

    def test_each_kind_of_fault_has_its_offset(self) -> None:
        def changed(message: str, at: int, to: str) -> dict[str, str]:
            return {"type": "Nac_SetUserTableMsg", "hex": message[:2 * at] + to + message[2 * at + len(to):]}

        record = {"f5": "02:00:5e:10:00:01", "f12": [{"f0": "2001:db8::1"}], "f15": [1, 2], "f19": {"f0": 9}}
        encoded = nac("encode", "-", given=lines({"type": "Nac_SetUserTableMsg", "record": record})).stdout
        message = json.loads(encoded)["hex"]
        ranges = {(each["part"], each["path"]): each
                  for each in json.loads(nac("hex", "--json", "-", given=encoded).stdout)["ranges"]}

        def at(part: str, path: str) -> int:
            return ranges[part, path]["at"]

        header = at("soffset", "")
        cases = [
            ("soffset", "", header, "00000080", "the vtable would be at"),
            ("vtable length", "", 4, "ffff", "the vtable would have 65535 bytes"),
            ("slot", "f0", at("slot", "f0"), "ffff", "4 bytes at"),
            ("reference", "f5", at("reference", "f5"), "ffffff7f", "the vector would be at"),
            ("reference", "f19", at("reference", "f19"), "ffffff7f", "the table would be at"),
            ("reference", "f15", at("reference", "f15"), "ffffffff", "leads beyond 32 bits"),
            ("count", "f5", at("count", "f5"), "05000000", "5 elements, where the array has 6"),
            ("count", "f15", at("count", "f15"), "ffffff00", "16777215 elements of 2 bytes"),
            ("reference", "f12[0]", at("reference", "f12[0]"), "ffffff7f", "the table would be at"),
            ("soffset", "f19", at("soffset", "f19"), "00000080", "the vtable would be at"),
        ]
        for part, path, offset, to, what in cases:
            with self.subTest(part=part, path=path):
                done = nac("verify", "--json", "-", given=lines(changed(message, offset, to)))
                self.assertEqual(done.returncode, 1)
                (found,) = self.read("verify", done.stdout)
                fault = found["faults"][0]
                self.assertEqual((fault["at"], fault["path"]), (offset, path))
                self.assertIn(what, fault["what"])
                self.assertEqual(found["log"] != [], fault["field"] is None)

    def test_agrees_with_the_reference_on_its_corpus(self) -> None:
        cases = corpus()
        done = nac("verify", "--json", "-", given=messages(cases))
        self.assertEqual(done.returncode, 1)
        found = self.read("verify", done.stdout)
        self.assertEqual(len(found), len(cases))
        for case, result in zip(cases, found):
            with self.subTest(type=case["type"], name=case["name"]):
                self.assertEqual((result["type"], result["verdict"]), (case["type"], case["verdict"]))
                self.assertEqual(result["faults"] == [], case["verdict"] in ("ok", "argument"))
                logged = [f"{each['function']}: {c_text(each['format'], each['args'])}" for each in case["log"]]
                self.assertEqual(result["log"], logged)
        print(f"count: {len(cases)} cases of the corpus verified as the reference reads them")


class Hex(VerbTest):
    def test_every_byte_has_a_meaning(self) -> None:
        done = nac("hex", "-", given=lines(PORT))
        self.assert_done(done, 0)
        self.assertEqual(done.stdout, """\
message Nac_SetPortMsg  ; standard input:1, 24 bytes, image, ok
00000000: 04 00 00 00              ; root reference: table at 4
00000004: f4 ff ff ff              ; table Nac_SetPortMsg: vtable at 16
00000008: 07 00 00 00              ;   f0 u32 = 7
0000000c: 01 00 00 00              ;   f1 u32 = 1
00000010: 08 00                    ; vtable of Nac_SetPortMsg: 8 bytes
00000012: 0c 00                    ; table length 12
00000014: 04 00                    ; slot of f0: 4, at 8
00000016: 08 00                    ; slot of f1: 8, at 12
""")

    def test_padding_and_bytes_that_nothing_reads(self) -> None:
        image = nac("encode", "--layout", "image", "-",
                    given=lines({"type": "Nac_TableVersionChangeMsg", "record": {"f0": 17}})).stdout
        self.assertIn("padding", nac("hex", "-", given=image).stdout)
        more = {**PORT, "hex": PORT["hex"] + "abcdef"}
        self.assertIn("00000018: ab cd ef                 ; unread\n", nac("hex", "-", given=lines(more)).stdout)

    def test_bytes_with_two_meanings_are_shown_once(self) -> None:
        shared = {**PORT, "hex": "04000000f4ffffff070000000100000008000c0004000400"}
        text = nac("hex", "-", given=lines(shared)).stdout
        self.assertEqual(text.count("00000008:"), 1)
        self.assertIn("\n                                   ;   f1 u32 = 7\n", text)

    def test_damage_is_marked_where_it_is(self) -> None:
        done = nac("hex", "-", given=lines(DAMAGED))
        self.assert_done(done, 1)
        self.assertIn("; ! at 0, header of Nac_SetPortMsg: the table would be at 4294967295", done.stdout)
        self.assertIn("00000000: ff ff ff ff              ; ! root reference: table at 4294967295\n", done.stdout)
        self.assertIn("00000004: 00 00 00 00              ; unread\n", done.stdout)
        self.assertIn("; logged: Nac_SetPortMsg_unpack: [KAPLO]:Table offset", done.stdout)

    def test_no_bytes_and_no_messages(self) -> None:
        done = nac("hex", "-", given=lines({"type": "Nac_SetPortMsg", "hex": ""}))
        self.assert_done(done, 1)
        self.assertIn("0 bytes, no message", done.stdout)
        done = nac("hex", "-")
        self.assert_done(done, 0)
        self.assertEqual(done.stdout, "")

    def test_json_covers_the_message(self) -> None:
        done = nac("hex", "--json", "-", given=messages(corpus()[::7]))
        for message in self.read("hex", done.stdout):
            seen = set()
            for each in message["ranges"]:
                self.assertEqual(len(each["hex"]), 2 * each["bytes"])
                seen.update(range(each["at"], each["at"] + each["bytes"]))
            if message["verdict"] != "argument":
                self.assertEqual(seen, set(range(message["bytes"])))

    def test_colours_only_where_they_are_wanted(self) -> None:
        for arguments, coloured in (([], False), (["--color", "always"], True), (["--color", "never"], False)):
            done = nac("hex", *arguments, "-", given=lines(DAMAGED))
            self.assertEqual("\033[" in done.stdout, coloured, arguments)

    def test_a_terminal_is_coloured_unless_no_color_is_set(self) -> None:
        for environment, coloured in (({}, True), ({"NO_COLOR": "1"}, False), ({"NO_COLOR": ""}, True)):
            controller, terminal = os.openpty()
            clean = {key: value for key, value in os.environ.items() if key != "NO_COLOR"}
            done = subprocess.run([NAC, "hex", "-"], input=lines(DAMAGED).encode(), stdout=terminal,
                                  env={**clean, **environment}, timeout=60)
            os.close(terminal)
            text = os.read(controller, 65536).decode()
            os.close(controller)
            self.assertEqual(done.returncode, 1)
            self.assertEqual("\033[" in text, coloured, environment)


class Assemble(VerbTest):
    def test_the_whole_corpus_comes_back(self) -> None:
        cases = corpus()
        text = nac("hex", "-", given=messages(cases))
        self.assertEqual(text.returncode, 1)
        done = nac("assemble", "-", given=text.stdout)
        self.assert_done(done, 0)
        back = self.read("assemble", done.stdout)
        self.assertEqual([(each["type"], each["hex"]) for each in back],
                         [(case["type"], case["hex"]) for case in cases])
        print(f"count: {len(cases)} messages of either layout, damaged ones included, annotated and assembled again")

    def test_the_example_session_comes_back(self) -> None:
        encoded = nac("encode", "--layout", "sent", str(SESSION)).stdout
        text = nac("hex", "-", given=encoded).stdout
        self.assertEqual(nac("assemble", "-", given=text).stdout, encoded)

    def test_edited_text_is_what_it_says(self) -> None:
        text = nac("hex", "-", given=lines(PORT)).stdout
        edited = text.replace("07 00 00 00", "2a000000").replace("00000010: 08 00", "\n  08 00")
        done = nac("assemble", "-", given=edited)
        self.assert_done(done, 0)
        self.assertEqual(json.loads(nac("decode", "-", given=done.stdout).stdout)["record"], {"f0": 42, "f1": 1})
        broken = "\n".join(text.splitlines()[:3])
        done = nac("assemble", "-", given=broken)
        self.assertEqual(json.loads(done.stdout)["hex"], "04000000f4ffffff")

    def test_formats_and_types(self) -> None:
        self.assertEqual(run("assemble", "--format", "raw", "-", given=b"00: 01 0203 ; words\n04\n").stdout, b"\1\2\3\4")
        self.assertEqual(nac("assemble", "--type", "0x09B58155", "-", given="0102").stdout,
                         '{"type":"Nac_SetPortMsg","hex":"0102"}\n')
        self.assert_complains(nac("assemble", "-", given="0102"), 2, "give --type")

    def test_words_that_are_no_bytes_are_reported(self) -> None:
        for given, complaint in {"01 0": "odd number of digits", "01 zz": "not hexadecimal", "xy: 01": "is no offset",
                                 "message Nac_Nothing": "Nac_Nothing is not a message type",
                                 "message Nac_SetPortMsg 2": '"2" after the type'}.items():
            self.assert_complains(nac("assemble", "--format", "raw", "-", given="; first\n" + given), 1, complaint)
            self.assert_complains(nac("assemble", "--format", "raw", "-", given="; first\n" + given), 1, "standard input:2: ")

    def test_nothing_is_no_error(self) -> None:
        done = nac("assemble", "-", given="; only words\n\n")
        self.assert_done(done, 0)
        self.assertEqual(done.stdout, "")


class Diff(VerbTest):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def diff(self, left: str, right: str, *arguments: str) -> Done[str]:
        for name, content in (("left", left), ("right", right)):
            with open(f"{self.folder}/{name}", "w") as file:
                file.write(content)
        return nac("diff", *arguments, f"{self.folder}/left", f"{self.folder}/right")

    def test_the_same(self) -> None:
        done = self.diff(lines(PORT), lines(PORT))
        self.assert_done(done, 0)
        self.assertEqual(done.stdout, "")

    def test_the_other_layout_is_the_same_record(self) -> None:
        records = nac("random", "--count", "100").stdout
        compact = nac("encode", "-", given=records).stdout
        sent = nac("encode", "--layout", "sent", "-", given=records).stdout
        done = self.diff(compact, sent, "--json")
        self.assert_done(done, 0)
        rows = self.read("diff", done.stdout)
        self.assertEqual((len(rows), {row["same"] for row in rows}, {row["same_bytes"] for row in rows}),
                         (100, {True}, {True, False}))

    def test_fields_that_differ_are_reported_with_their_position(self) -> None:
        other = {**PORT, "hex": PORT["hex"].replace("07000000", "09000000")}
        done = self.diff(lines(PORT), lines(other))
        self.assert_done(done, 1)
        self.assertEqual(done.stdout.splitlines()[2].split(), "f0 7 at 8 -> 9 at 8".split())
        left = {"type": "Nac_SetUserTableMsg", "record": {"f15": [1, 2], "f12": [{"f0": "::1"}], "f31": "aa"}}
        right = {"type": "Nac_SetUserTableMsg", "record": {"f15": [1, 3, 4], "f12": [{"f0": "::2"}], "f31": "aabb"}}
        done = self.diff(*(nac("encode", "-", given=lines(record)).stdout for record in (left, right)), "--json")
        (row,) = self.read("diff", done.stdout)
        self.assertEqual([(each["path"], each["left"]["value"], each["right"]["value"]) for each in row["fields"]],
                         [("f12[0].f0", "::1", "::2"), ("f15[1]", 2, 3), ("f31", "aa", "aabb"), ("f15[2]", None, 4)])
        self.assertTrue(all(each["left"]["at"] for each in row["fields"] if each["left"]["there"]))

    def test_damage_types_and_lonely_messages_differ(self) -> None:
        for left, right, word in ((lines(PORT), lines(DAMAGED), "damaged in its header"),
                                  (lines(PORT), lines({**PORT, "type": "Nac_TableVersionChangeMsg"}), "VersionChange"),
                                  (lines(PORT, PORT), lines(PORT), "- .*left:2.*\n  without a partner"),
                                  (lines(PORT), lines(PORT, PORT), "\\+ .*right:2.*\n  without a partner")):
            done = self.diff(left, right)
            self.assertEqual(done.returncode, 1)
            self.assertRegex(done.stdout, word)
            self.assertEqual(self.diff(left, right, "--json").returncode, 1)

    def test_a_side_that_cannot_be_read_is_reported(self) -> None:
        for left, right in (("{", lines(PORT)), (lines(PORT), "{"), (lines(*[PORT] * 500) + "{", lines(PORT))):
            done = self.diff(left, right)
            self.assert_complains(done, 1, "not JSON, at character")
        self.assert_complains(nac("diff", str(SESSION), "/nowhere/file"), 3, "/nowhere/file")
        self.assert_complains(nac("diff", "/nowhere/file", f"{self.folder}/right"), 3, "/nowhere/file")

    def test_two_files_are_needed(self) -> None:
        self.assert_complains(nac("diff", str(SESSION)), 2, "FILE")
        self.assert_complains(nac("diff", "-", "-"), 2, "cannot be both sides")
        self.assert_done(self.diff("", ""), 0)


if __name__ == "__main__":
    unittest.main()
