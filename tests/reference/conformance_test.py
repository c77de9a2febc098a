# SPDX-License-Identifier: Apache-2.0
# conformance.py, on readers that agree with the corpus in all, on one with three mistakes, and on programs that are no
# readers. NAC names the tool, READER tests/reference/conforming_reader.cpp.
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
NAC, READER = os.environ["NAC"], os.environ["READER"]
# Where time is short, three types.
SHARE = ["Nac_SetPortMsg", "Nac_UserDataFlowMsg", "Nac_IpsecAuthenReqMsg"] if "NAC_TEST_SHARE" in os.environ else []


def compare(*options: str) -> "subprocess.CompletedProcess[str]":
    return subprocess.run([sys.executable, HERE / "conformance.py", *options], capture_output=True, text=True)


def python(what: str, interpreter: str = sys.executable) -> str:
    return f"{interpreter} {HERE}/conforming_readers.py {what}"


class Agreement(unittest.TestCase):
    def assert_agrees(self, *options: str) -> None:
        done = compare(*options, *(word for name in SHARE for word in ("--type", name)))
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
        agree, cases = re.findall(r"^(\d+) of (\d+) cases of \d+ types? agree$", done.stdout, re.M)[0]
        self.assertEqual(agree, cases)
        print(f"count: {cases} cases of the corpus agree with {options[1].split('/')[-1]}")

    def test_of_the_library(self) -> None:
        self.assert_agrees("--reader", f"{READER} library")

    def test_of_inspection(self) -> None:
        self.assert_agrees("--reader", f"{READER} inspection")

    def test_of_the_tool(self) -> None:
        self.assert_agrees("--reader", python("tool"), "--writer", f"{NAC} encode -",
                           "--image-writer", f"{NAC} encode --layout image -")

    def test_of_the_reference(self) -> None:
        self.assert_agrees("--reader", python("reference"), "--writer", python("write"), "--image-writer", python("write-images"))

    def test_of_the_dissector(self) -> None:
        self.assert_agrees("--reader", python("dissector", "/usr/bin/python3"))  # Debian's, which has jsonschema


class Mistakes(unittest.TestCase):
    def test_are_named_by_the_first_case_that_shows_them(self) -> None:
        done = compare("--reader", python("mistaken"))
        self.assertEqual((done.returncode, done.stderr), (1, ""))
        for first in (  # the low half of 64 bits, the first element twice, an element too many
                'Nac_UserDataFlowCfg, reads: first differs in case "compact maximal": record.f0 is 4294967295, '
                "expected 18446744073709551615\n",
                'Nac_UclGroupIpAckArray, reads: first differs in case "compact sparse-2": record.f1[1].f1 is 0, expected 216\n',
                'Nac_L2NotifyNacUserOfflineMsg, reads: first differs in case "rich f4 fixed-count 0x7": verdict is "ok", '
                'expected "field"\n'):
            self.assertIn(first, done.stdout)
        self.assertRegex(done.stdout, r"\nNac_SetPortMsg +(\d+) of \1\n", "a type that has none of these")

    def test_are_in_json_too(self) -> None:
        done = compare("--json", "--type", "Nac_UserDataFlowCfg", "--reader", python("mistaken"))
        self.assertEqual(done.returncode, 1)
        (row,) = map(json.loads, done.stdout.splitlines())
        self.assertEqual((row["type"], row["does"], row["first"]["case"]), ("Nac_UserDataFlowCfg", "reads", "compact maximal"))
        self.assertEqual(row["first"]["difference"], "record.f0 is 4294967295, expected 18446744073709551615")
        self.assertEqual(json.loads(row["first"]["line"])["type"], "Nac_UserDataFlowCfg")
        self.assertLess(row["agree"], row["cases"])

    def test_of_a_writer_are_shown_by_the_first_byte(self) -> None:
        done = compare("--type", "Nac_SetPortMsg", "--image-writer", f"{NAC} encode -")
        self.assertEqual(done.returncode, 1)
        self.assertIn('writes images: first differs in case "image zero": byte 0 is 0c, expected 04', done.stdout)


class Answers(unittest.TestCase):
    def reader(self, code: str) -> "subprocess.CompletedProcess[str]":
        with tempfile.NamedTemporaryFile("w", suffix=".py") as file:
            file.write("import json, sys\n" + code)
            file.flush()
            return compare("--type", "Nac_SetPortMsg", "--timeout", "5", "--reader", f"{sys.executable} {file.name}")

    def test_may_be_damaged_for_all_faults_without_a_record(self) -> None:
        done = compare("--type", "Nac_SetPortMsg", "--reader", f"{sys.executable} -c 'import json, sys\n"
                       f"sys.path.insert(0, \"{HERE}\")\nimport reader\nfor line in sys.stdin:\n    given = json.loads(line)\n"
                       "    found = reader.unpack(given[\"type\"], bytes.fromhex(given[\"hex\"]))\n"
                       "    print(json.dumps({\"verdict\": \"ok\", \"record\": found.record} if found.outcome == \"ok\" else "
                       "{\"verdict\": \"damaged\"}))'")
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)

    def test_that_say_nothing_differ(self) -> None:
        done = self.reader("for line in sys.stdin: print('{}')")
        self.assertEqual(done.returncode, 1)
        self.assertIn('case "compact zero": neither verdict nor record', done.stdout)

    def test_that_end_early_differ_from_there_on(self) -> None:
        done = self.reader("sys.stdin.readline()\nprint(json.dumps({'verdict': 'ok', 'record': {'f0': 0, 'f1': 0}}))")
        self.assertEqual(done.returncode, 1)
        self.assertIn('case "image zero": no answer: the program ended after 1 of ', done.stdout)

    def test_that_are_none_are_3(self) -> None:
        for code, complaint in (("sys.exit(5)", "gives no answer; its exit code is 5"),
                                ("print('hello')", 'answers case "compact zero" of Nac_SetPortMsg with b\'hello\', which is no '
                                                   "JSON object"),
                                ("import time\ntime.sleep(60)", "did not end within 5 s")):
            done = self.reader(code)
            self.assertEqual((done.returncode, done.stdout), (3, ""))
            self.assertIn(complaint, done.stderr)
        done = compare("--reader", "/nowhere/reader")
        self.assertEqual(done.returncode, 3)
        self.assertIn("/nowhere/reader cannot be run", done.stderr)

    def test_to_a_wrong_command_line_are_2(self) -> None:
        for options, complaint in (((), "names what is to be compared"),
                                   (("--reader", "x", "--type", "Nac_Lease"), "the corpus has no type Nac_Lease; it has Nac_Cfg"),
                                   (("--reader", "x", "--corpus", "/nowhere"), "/nowhere has no corpus")):
            done = compare(*options)
            self.assertEqual((done.returncode, done.stdout), (2, ""))
            self.assertIn(complaint, done.stderr)


if __name__ == "__main__":
    unittest.main()
