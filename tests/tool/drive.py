# SPDX-License-Identifier: Apache-2.0
# What the tests of the tool's verbs share: the real binary, the corpus, the schemas of what --json prints.
#
# NAC names the binary. python3-jsonschema is Debian's, and so is the python that runs these tests.
import functools
import json
import os
import pathlib
import re
import subprocess
import unittest

import jsonschema

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
NAC = os.environ.get("NAC", str(ROOT / "build/release/nac"))
SESSION = ROOT / "examples/access-session.jsonl"
ON_RECORD = [json.loads(line) for line in (ROOT / "tests/reference/descriptions.jsonl").read_text().splitlines()]
MESSAGES = {each["name"] for each in ON_RECORD if each["id"] is not None}
PORT = {"type": "Nac_SetPortMsg", "hex": "04000000f4ffffff070000000100000008000c0004000800"}
# Where time is short: one case of the corpus in 10, and one message of a long capture in 100.
SHARE_OF_CORPUS, SHARE_OF_MESSAGES = (10, 100) if "NAC_TEST_SHARE" in os.environ else (1, 1)
DAMAGED = {"type": "Nac_SetPortMsg", "hex": "ffffffff00000000"}

Done = subprocess.CompletedProcess


def run(*arguments: str, given: bytes = b"", **more: object) -> Done[bytes]:
    return subprocess.run([NAC, *arguments], input=given, capture_output=True, cwd=ROOT, timeout=120, **more)  # type: ignore


def nac(*arguments: str, given: str = "", **more: object) -> Done[str]:
    done = run(*arguments, given=given.encode(), **more)
    return Done(done.args, done.returncode, done.stdout.decode(), done.stderr.decode())


def verbs() -> list[str]:
    """Every verb that --help lists; "bus stats" for "bus"."""
    listed = []
    for verb in re.findall(r"^  ([a-z]+)", nac("--help").stdout, re.M):
        inner = re.findall(r"^  ([a-z]+)", nac(verb, "--help").stdout, re.M)
        listed += [f"{verb} {name}" for name in inner] or [verb]
    return listed


def peak_kib(*arguments: str) -> int:
    """Runs the tool, which must succeed, and returns the most memory that it had."""
    process = subprocess.Popen([NAC, *arguments], stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    assert process.returncode == 0, arguments
    return usage.ru_maxrss


def lines(*objects: object) -> str:
    return "".join(json.dumps(each) + "\n" for each in objects)


def corpus() -> list[dict[str, object]]:
    """The cases whose bytes alone decide what happens: all but those with null pointers or claimed lengths."""
    cases = []
    for path in sorted((ROOT / "tests/reference/corpus").glob("*.jsonl")):
        cases += map(json.loads, path.read_text().splitlines())
    return [case for case in cases if not case.keys() & {"null", "length", "fail_allocation"}][::SHARE_OF_CORPUS]


def messages(cases: list[dict[str, object]]) -> str:
    return lines(*({"type": case["type"], "hex": case["hex"]} for case in cases))


@functools.cache
def validator_of(verb: str) -> jsonschema.Draft202012Validator:
    """Of what a verb's --json prints. Its schema refers to files beside it."""
    path = ROOT / f"docs/schemas/{verb}.json"
    schema = json.loads(path.read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema, resolver=jsonschema.RefResolver(path.as_uri(), schema))


def assert_fits(verb: str, each: object) -> None:
    """Checks what --json printed against the verb's schema."""
    validator_of(verb).validate(each)


class VerbTest(unittest.TestCase):
    def assert_done(self, done: Done[str], code: int, stderr: str = "") -> None:
        self.assertEqual((done.returncode, done.stderr), (code, stderr), done.stdout[:500])

    def assert_complains(self, done: Done[str], code: int, complaint: str) -> None:
        self.assertEqual(done.returncode, code, done.stderr)
        self.assertIn(complaint, done.stderr)

    def read(self, verb: str, output: str) -> list[dict[str, object]]:
        """The lines of a verb's --json, each checked against its schema."""
        objects = [json.loads(line) for line in output.splitlines()]
        for each in objects:
            assert_fits(verb, each)
        return objects
