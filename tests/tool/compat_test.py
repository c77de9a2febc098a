# SPDX-License-Identifier: Apache-2.0
# nac compat: pairs of descriptions, and what it says of them. tests/library/evolution_test.cpp shows on the wire that
# it is so.
import json
import pathlib
import re
import tempfile
import unittest

from drive import VerbTest, nac

FORMS = {(False, False): "scalar", (False, True): "nested table", (True, False): "scalar vector", (True, True): "table vector"}


def field(number: int, text: str) -> dict[str, object]:
    """Of "u32", "u8[6]", "[u16]", "Demo_Row", "[Demo_Row]", or with a name of its own "seconds=u32"."""
    name, _, kind = text.rpartition("=")
    inner = kind.strip("[]")
    is_table = inner.startswith("Demo_")
    fixed = re.fullmatch(r"u(\d+)\[(\d+)]", kind)
    element = fixed[1] if fixed else inner.removeprefix("u")
    return {"name": name or f"f{number}", "kind": kind,
            "form": "fixed array" if fixed else FORMS[kind.startswith("["), is_table],
            "display": "number", "element_bytes": 4 if is_table else int(element) // 8,
            "count": int(fixed[2]) if fixed else 0 if kind.startswith("[") else 1,
            "table": inner if is_table else None, "slot": 4 + 2 * number}


def described(text: str) -> str:
    """The lines of nac describe --json, of "Demo_Lease: u32 [u16]", a type a line; "(Demo_Row): u32" is a table, and
    "Demo_Lease@evt" a message of the module evt."""
    described = []
    for line in text.strip().splitlines():
        head, kinds = line.strip().split(":")
        name, _, module = head.strip("()").partition("@")
        is_table = head.startswith("(")
        described.append({"name": name, "module": None if is_table else module or "lease",
                          "id": None if is_table else sum(name.encode()),
                          "fields": [field(number, kind) for number, kind in enumerate(kinds.split())]})
    return "".join(json.dumps(each) + "\n" for each in described)


# Old, new, what is printed, exit code.
PAIRS = {
    "nothing changes": (
        "Demo_Lease: u32", "Demo_Lease: u32", """\
1 old type and 1 new type: 0 changes, of which 0 compatible, 0 lose data, 0 break
""", 0),
    "fields of every kind are appended": (
        """Demo_Lease: u32
           (Demo_Row): u16""",
        """Demo_Lease: u32 u8 u8[6] Demo_Row [u16] [Demo_Row]
           (Demo_Row): u16""", """\
compatible  Demo_Lease f1: appended, u8: old readers skip it; of old messages new readers read 0
compatible  Demo_Lease f2: appended, u8[6]: old readers skip it; of old messages new readers read zeros
compatible  Demo_Lease f3: appended, Demo_Row: old readers skip it; of old messages new readers read zeros
compatible  Demo_Lease f4: appended, [u16]: old readers skip it; of old messages new readers read no elements
compatible  Demo_Lease f5: appended, [Demo_Row]: old readers skip it; of old messages new readers read no elements
2 old types and 2 new types: 5 changes, of which 5 compatible, 0 lose data, 0 break
""", 0),
    "a field is appended to a table": (
        """Demo_Lease: u32 [Demo_Row]
           Demo_Leases: [Demo_Lease]
           (Demo_Row): u16""",
        """Demo_Lease: u32 [Demo_Row]
           Demo_Leases: [Demo_Lease]
           (Demo_Row): u16 u8""", """\
compatible  Demo_Row f1: appended, u8: old readers skip it; of old messages new readers read 0 (in Demo_Lease and 1 more)
3 old types and 3 new types: 1 change, of which 1 compatible, 0 lose data, 0 break
""", 0),
    "the last field is removed": (
        "Demo_Lease: u32 [u16]", "Demo_Lease: u32", """\
loses       Demo_Lease f1: removed, [u16]: new readers skip it; of new messages old readers read no elements
1 old type and 1 new type: 1 change, of which 0 compatible, 1 lose data, 0 break
""", 1),
    "a field in the middle is removed": (
        "Demo_Lease: u32 u8[6] [u16]", "Demo_Lease: u32 [u16]", """\
breaks      Demo_Lease f1: removed, u8[6]: the fields after it move into its slot
breaks      Demo_Lease f2: moved, field 2 -> field 1: a reader finds a field by its slot, and takes another one for it
1 old type and 1 new type: 2 changes, of which 0 compatible, 0 lose data, 2 break
""", 1),
    "a field is inserted": (
        "Demo_Lease: u32 [u16]", "Demo_Lease: u32 u8 [u16]", """\
breaks      Demo_Lease f1: inserted, u8: it has the slot of another field, and the fields after it move on
breaks      Demo_Lease f1: moved, field 1 -> field 2: a reader finds a field by its slot, and takes another one for it
1 old type and 1 new type: 2 changes, of which 0 compatible, 0 lose data, 2 break
""", 1),
    "fields are exchanged": (
        "Demo_Lease: u32 u16 u8", "Demo_Lease: u32 u8 u16", """\
breaks      Demo_Lease f1: moved, field 1 -> field 2: a reader finds a field by its slot, and takes another one for it
breaks      Demo_Lease f2: moved, field 2 -> field 1: a reader finds a field by its slot, and takes another one for it
1 old type and 1 new type: 2 changes, of which 0 compatible, 0 lose data, 2 break
""", 1),
    "fields of one kind are exchanged, seen by their names": (
        "Demo_Lease: since=u32 until=u32", "Demo_Lease: until=u32 since=u32", """\
breaks      Demo_Lease since: moved, field 0 -> field 1: a reader finds a field by its slot, and takes another one for it
breaks      Demo_Lease until: moved, field 1 -> field 0: a reader finds a field by its slot, and takes another one for it
1 old type and 1 new type: 2 changes, of which 0 compatible, 0 lose data, 2 break
""", 1),
    "a number becomes wider": (
        "Demo_Lease: u32 u16", "Demo_Lease: u64 u16", """\
breaks      Demo_Lease f0: other width, u32 -> u64: who reads more bytes takes what follows for a part of the number, who \
reads fewer has its lowest 4 bytes
1 old type and 1 new type: 1 change, of which 0 compatible, 0 lose data, 1 break
""", 1),
    "elements become narrower": (
        "Demo_Lease: [u32]", "Demo_Lease: [u16]", """\
breaks      Demo_Lease f0: other width, [u32] -> [u16]: elements are misread, or refused where they would end outside of \
the message
1 old type and 1 new type: 1 change, of which 0 compatible, 0 lose data, 1 break
""", 1),
    "a fixed array becomes longer": (
        "Demo_Lease: u8[6]", "Demo_Lease: u8[8]", """\
breaks      Demo_Lease f0: other length, u8[6] -> u8[8]: a reader refuses every number of elements but its own
1 old type and 1 new type: 1 change, of which 0 compatible, 0 lose data, 1 break
""", 1),
    "a fixed array becomes a vector": (
        "Demo_Lease: u8[6]", "Demo_Lease: [u8]", """\
breaks      Demo_Lease f0: other kind, u8[6] -> [u8]: who reads u8[6] refuses every number of elements but 6
1 old type and 1 new type: 1 change, of which 0 compatible, 0 lose data, 1 break
""", 1),
    "a number becomes a vector": (
        "Demo_Lease: u32", "Demo_Lease: [u32]", """\
breaks      Demo_Lease f0: other kind, u32 -> [u32]: a number is taken for a distance, or a distance for a number: misread, \
or refused
1 old type and 1 new type: 1 change, of which 0 compatible, 0 lose data, 1 break
""", 1),
    "a table becomes a vector of it": (
        """Demo_Lease: Demo_Row
           (Demo_Row): u16""",
        """Demo_Lease: [Demo_Row]
           (Demo_Row): u16""", """\
breaks      Demo_Lease f0: other kind, Demo_Row -> [Demo_Row]: a table is read where the count of a vector stands, or the \
reverse: misread, or refused
2 old types and 2 new types: 1 change, of which 0 compatible, 0 lose data, 1 break
""", 1),
    "a table has another name, and another width in it": (
        """Demo_Lease: [Demo_Row]
           (Demo_Row): u16 u8""",
        """Demo_Lease: [Demo_Line]
           (Demo_Line): u16 u16""", """\
compatible  Demo_Lease f0: other table, [Demo_Row] -> [Demo_Line]: names of tables are not on the wire; what differs in its \
fields is said of Demo_Row
breaks      Demo_Row f1: other width, u8 -> u16: who reads more bytes takes what follows for a part of the number, who reads \
fewer has its lowest 1 byte (in Demo_Lease)
2 old types and 2 new types: 2 changes, of which 1 compatible, 0 lose data, 1 break
""", 1),
    "a field has another name": (
        "Demo_Lease: since=u32", "Demo_Lease: until=u32", """\
breaks      Demo_Lease since: renamed, since -> until: the bytes are read as before, and may mean something else; records in \
JSON have the other name
1 old type and 1 new type: 1 change, of which 0 compatible, 0 lose data, 1 break
""", 1),
    "a message is renamed": (
        "Demo_Lease: u32", "Demo_Grant: u32", """\
breaks      Demo_Lease: renamed, Demo_Lease -> Demo_Grant: the id is computed from the name: no process has handlers for the \
other's messages
1 old type and 1 new type: 1 change, of which 0 compatible, 0 lose data, 1 break
""", 1),
    "one message is removed, another is added": (
        "Demo_Lease: u32", "Demo_Grant: u32 u32", """\
breaks      Demo_Lease: removed: new processes have no handler for its id, and send none
compatible  Demo_Grant: added: a message of its own; old processes have no handler for its id
1 old type and 1 new type: 2 changes, of which 1 compatible, 0 lose data, 1 break
""", 1),
    "a message moves to another module": (
        "Demo_Lease: u32", "Demo_Lease@evt: u32", """\
compatible  Demo_Lease: other module, lease -> evt: modules are not on the wire; its handler is registered with the other one
1 old type and 1 new type: 1 change, of which 1 compatible, 0 lose data, 0 break
""", 0),
}


class Compat(VerbTest):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def file(self, name: str, text: str) -> str:
        (self.folder / name).write_text(text)
        return str(self.folder / name)

    def test_pairs_of_descriptions(self) -> None:
        for name, (old, new, expected, code) in PAIRS.items():
            with self.subTest(name):
                done = nac("compat", self.file("old", described(old)), self.file("new", described(new)))
                self.assert_done(done, code)
                self.assertEqual(done.stdout, expected)

    def test_json_says_the_same(self) -> None:
        for name, (old, new, expected, code) in PAIRS.items():
            with self.subTest(name):
                done = nac("compat", "--json", self.file("old", described(old)), self.file("new", described(new)))
                self.assert_done(done, code)
                changes = self.read("compat", done.stdout)
                lines = expected.splitlines()[:-1]
                self.assertEqual(len(changes), len(lines))
                for change, line in zip(changes, lines):
                    subject = " ".join(filter(None, (change["type"], change["field"])))
                    self.assertTrue(line.startswith(f"{change['verdict']:<10}  {subject}: {change['change']}"), line)
                    self.assertIn(change["reason"], line)

    def test_another_id_breaks(self) -> None:
        old = described("Demo_Lease: u32")
        new = old.replace(f'"id": {sum(b"Demo_Lease")}', '"id": 7')
        done = nac("compat", self.file("old", old), self.file("new", new))
        self.assert_done(done, 1)
        self.assertIn("breaks      Demo_Lease: other id, 0x000003CE -> 0x00000007: no process has handlers", done.stdout)

    def test_what_this_nac_describes_is_compatible_with_itself(self) -> None:
        described_types = nac("describe", "--json").stdout
        own = self.file("own", described_types)
        same = re.compile(r"(\d+) old types and \1 new types: 0 changes,.*\n")
        for arguments in ([own, own], [own], ["-"]):
            done = nac("compat", *arguments, given=described_types)
            self.assert_done(done, 0)
            self.assertRegex(done.stdout, same)

    def test_the_descriptions_on_record_are_those_of_this_nac(self) -> None:
        done = nac("compat", "tests/reference/descriptions.jsonl")
        self.assert_done(done, 0)
        self.assertRegex(done.stdout, r"\A\d+ old types and \d+ new types: 0 changes,", "nac describe --json renews them")

    def test_a_file_without_a_description_is_2(self) -> None:
        row = described("Demo_Lease: [Demo_Row]")
        wrong = {
            "": "wrong: describes no type; nac describe --json without a type describes all",
            "{}\n": ":1: no description as nac describe --json prints it: ",
            "nonsense\n": ":1: no description as nac describe --json prints it: ",
            '{"type": "Nac_SetPortMsg", "record": {}}\n': ":1: no description as nac describe --json prints it: ",
            row: "wrong: describes no Demo_Row; nac describe --json without a type describes all",
            row + row: ":2: no description as nac describe --json prints it: Demo_Lease is described twice",
            row.replace('"slot": 4', '"slot": 6'): ":1: no description as nac describe --json prints it: its field 0 is not",
            row.replace("table vector", "list"): ":1: no description as nac describe --json prints it: its field 0 has no",
            row.replace("Demo_Lease", "x" * 300): "xxx... is no name",
        }
        good = self.file("good", described("Demo_Lease: u32"))
        for text, complaint in wrong.items():
            for files in ([self.file("wrong", text), good], [good, self.file("wrong", text)]):
                done = nac("compat", *files)
                self.assertEqual((done.returncode, done.stdout), (2, ""), text[:80])
                self.assertIn(complaint, done.stderr)

    def test_a_file_that_cannot_be_read_is_3(self) -> None:
        good = self.file("good", described("Demo_Lease: u32"))
        for name in ("/nowhere/file", "/nowhere/libvorn_demo_catalogue.so"):
            for files in ([name], [good, name]):
                self.assert_complains(nac("compat", *files), 3, name)

    def test_tables_that_hold_each_other_come_to_an_end(self) -> None:
        old = described("Demo_Lease: Demo_Row\n(Demo_Row): u32 [Demo_Lease]")
        new = described("Demo_Lease: Demo_Row u8\n(Demo_Row): u32 [Demo_Lease]")
        done = nac("compat", self.file("old", old), self.file("new", new))
        self.assert_done(done, 0)
        self.assertEqual(len(done.stdout.splitlines()), 2)

    def test_names_of_files_do_not_reach_the_terminal_as_they_are(self) -> None:
        old = described("Demo_Lease: a\u001b[31m=u32")
        done = nac("compat", self.file("old", old), self.file("new", described("Demo_Lease: b=u32")))
        self.assertNotIn("\u001b", done.stdout)
        self.assertIn("\\x1b", done.stdout)


if __name__ == "__main__":
    unittest.main()
