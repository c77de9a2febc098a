#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Compares a reader or a writer of the message format, in any language, with the corpus.

A reader is a program that reads lines {"type": NAME, "hex": BYTES} until its input ends, and answers each, in their
order, with a line {"verdict": "ok" or "damaged", "record": {...}}. Instead of "damaged" it may say "argument",
"header" or "field", and leave out either member. A writer reads lines {"type": NAME, "record": {...}} and answers
with {"hex": BYTES}. Other members of an answer are passed over, and so are exit code and standard error.
docs/conformance.md says what a message means, and what the corpus holds.

Exit code 0: all agrees; 1: something differs; 2: wrong usage; 3: a program cannot be run, or gives no answers.
"""
from __future__ import annotations

import argparse
import json
import pathlib
import shlex
import subprocess
import sys
from dataclasses import dataclass, field
from typing import Any, NoReturn

CORPUS = pathlib.Path(__file__).resolve().parent / "corpus"
SHOWN = 200  # characters of a value or of an answer


def refuse(code: int, why: str) -> NoReturn:
    print(f"conformance: {why}", file=sys.stderr)
    sys.exit(code)


def shown(value: object) -> str:
    text = json.dumps(value)
    return text if len(text) <= SHOWN else text[:SHOWN] + "..."


@dataclass
class Case:
    name: str
    type: str
    given: dict[str, Any]  # the line
    expected: dict[str, Any]


@dataclass
class Tally:
    """What a program makes of a type's cases."""
    cases: int = 0
    agree: int = 0
    first: dict[str, str] = field(default_factory=dict)  # difference: case, what, line

    def add(self, case: Case, difference: str | None) -> None:
        self.cases += 1
        if difference is None:
            self.agree += 1
        elif not self.first:
            self.first = {"case": case.name, "difference": difference, "line": json.dumps(case.given)}


def difference(given: Any, expected: Any, path: str) -> str | None:
    """The first value that is not as expected, by its path."""
    if isinstance(expected, dict) and isinstance(given, dict):
        for key, value in expected.items():
            if key not in given:
                return f"{path}.{key} is missing, expected {shown(value)}"
            if (found := difference(given[key], value, f"{path}.{key}")) is not None:
                return found
        unknown = sorted(given.keys() - expected.keys())
        return f"{path}.{unknown[0]} is no field" if unknown else None
    if isinstance(expected, list) and isinstance(given, list) and len(given) == len(expected):
        for k, value in enumerate(expected):
            if (found := difference(given[k], value, f"{path}[{k}]")) is not None:
                return found
        return None
    same = type(given) is type(expected) and given == expected
    return None if same else f"{path} is {shown(given)}, expected {shown(expected)}"


def read_difference(answer: dict[str, Any], expected: dict[str, Any]) -> str | None:
    verdict = answer.get("verdict")
    if verdict is not None and verdict != expected["verdict"] and not (verdict == "damaged" and expected["verdict"] != "ok"):
        return f"verdict is {shown(verdict)}, expected {shown(expected['verdict'])}"
    record = answer.get("record")
    if verdict is None and record is None:
        return "neither verdict nor record"
    # After a fault in its header nothing of a message is read: what the record then holds is the reader's own affair.
    if record is None:
        return "no record" if expected["verdict"] == "ok" and verdict is None else None
    return difference(record, expected["record"], "record") if expected["verdict"] in ("ok", "field") else None


def written_difference(answer: dict[str, Any], expected: dict[str, Any]) -> str | None:
    given, wanted = answer.get("hex"), expected["hex"]
    if not isinstance(given, str):
        return "no hex"
    if given.lower() == wanted:
        return None
    digits = zip(given.lower(), wanted)
    at = next((i for i, (a, b) in enumerate(digits) if a != b), min(len(given), len(wanted))) // 2
    if at * 2 >= min(len(given), len(wanted)):
        return f"{len(given) // 2} bytes, expected {len(wanted) // 2}"
    return f"byte {at} is {given[2 * at:2 * at + 2]}, expected {wanted[2 * at:2 * at + 2]}"


def cases_of(corpus: pathlib.Path, types: list[str]) -> tuple[list[Case], list[Case], list[Case]]:
    """What to read, what to write compactly, what to write as a fixed image."""
    files = sorted(corpus.glob("*.jsonl"))
    if not files:
        refuse(2, f"{corpus} has no corpus: files named as types, TYPE.jsonl")
    unknown = set(types) - {path.stem for path in files}
    if unknown:
        refuse(2, f"the corpus has no type {sorted(unknown)[0]}; it has {', '.join(path.stem for path in files)}")
    read, compact, image = [], [], []
    for path in files:
        if types and path.stem not in types:
            continue
        for line in path.read_text().splitlines():
            each = json.loads(line)
            if each.keys() & {"null", "length", "fail_allocation"}:
                continue  # what a caller of the C library can do wrong, and no bytes can
            name, type_name = each["name"], each["type"]
            read.append(Case(name, type_name, {"type": type_name, "hex": each["hex"]}, each))
            for layout, cases in (("compact", compact), ("image", image)):
                if name.split(" ")[0] == layout and name.count(" ") == 1:  # more words say how it was damaged
                    cases.append(Case(name, type_name, {"type": type_name, "record": each["record"]}, each))
    return read, compact, image


def answers(command: str, cases: list[Case], timeout: float) -> list[dict[str, Any]]:
    """What a program says to the cases; fewer answers than cases where it ends early."""
    lines = "".join(json.dumps(case.given) + "\n" for case in cases)
    try:
        done = subprocess.run(shlex.split(command), input=lines.encode(), stdout=subprocess.PIPE, timeout=timeout)
    except (OSError, ValueError) as error:
        refuse(3, f"{command} cannot be run: {error}")
    except subprocess.TimeoutExpired:
        refuse(3, f"{command} did not end within {timeout:.0f} s after its input had ended; --timeout gives it more")
    found: list[dict[str, Any]] = []
    for line in done.stdout.splitlines()[:len(cases)]:
        try:
            answer = json.loads(line)
        except (ValueError, RecursionError):
            answer = None
        if not isinstance(answer, dict):
            case = cases[len(found)]
            refuse(3, f"{command} answers case \"{case.name}\" of {case.type} with {line[:SHOWN]!r}, which is no JSON object")
        found.append(answer)
    if not found:
        refuse(3, f"{command} gives no answer; its exit code is {done.returncode}")
    return found


def compare(command: str, cases: list[Case], differ: Any, timeout: float) -> dict[str, Tally]:
    tallies: dict[str, Tally] = {}
    given = answers(command, cases, timeout)
    for number, case in enumerate(cases):
        found = differ(given[number], case.expected) if number < len(given) else \
            f"no answer: the program ended after {len(given)} of {len(cases)} lines"
        tallies.setdefault(case.type, Tally()).add(case, found)
    return tallies


def print_table(columns: dict[str, dict[str, Tally]]) -> None:
    names = sorted({name for tallies in columns.values() for name in tallies})
    print(f"{'type':<37}" + "".join(f" {column:>14}" for column in columns))
    for name in names:
        cells = (tallies.get(name) for tallies in columns.values())
        print(f"{name:<37}" + "".join(f" {f'{each.agree} of {each.cases}' if each else '-':>14}" for each in cells))
    for column, tallies in columns.items():
        for name, tally in tallies.items():
            if tally.first:
                print(f"{name}, {column}: first differs in case \"{tally.first['case']}\": {tally.first['difference']}\n"
                      f"  {tally.first['line'][:4 * SHOWN]}{'...' if len(tally.first['line']) > 4 * SHOWN else ''}")
    cases = sum(tally.cases for tallies in columns.values() for tally in tallies.values())
    agree = sum(tally.agree for tallies in columns.values() for tally in tallies.values())
    print(f"{agree} of {cases} cases of {len(names)} {'type' if len(names) == 1 else 'types'} agree")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--reader", metavar="COMMAND", help="a program that reads messages")
    parser.add_argument("--writer", metavar="COMMAND", help="a program that writes messages in the compact layout")
    parser.add_argument("--image-writer", metavar="COMMAND", help="a program that writes messages as fixed images")
    parser.add_argument("--type", action="append", default=[], metavar="NAME", help="only this type; may be repeated")
    parser.add_argument("--corpus", type=pathlib.Path, default=CORPUS, help="another corpus than the one beside this file")
    parser.add_argument("--timeout", type=float, default=600, metavar="SECONDS", help="for each program, 600 if not given")
    parser.add_argument("--json", action="store_true", help="one JSON object a type and program instead of the table")
    options = parser.parse_args()
    if not (options.reader or options.writer or options.image_writer):
        parser.error("--reader, --writer or --image-writer names what is to be compared")
    read, compact, image = cases_of(options.corpus, options.type)
    columns: dict[str, dict[str, Tally]] = {}
    for column, command, cases, differ in (("reads", options.reader, read, read_difference),
                                           ("writes", options.writer, compact, written_difference),
                                           ("writes images", options.image_writer, image, written_difference)):
        if command:
            columns[column] = compare(command, cases, differ, options.timeout) if cases else {}
    if options.json:
        for column, tallies in columns.items():
            for name, tally in tallies.items():
                print(json.dumps({"type": name, "does": column, "cases": tally.cases, "agree": tally.agree,
                                  "first": tally.first or None}))
    else:
        print_table(columns)
    return 0 if all(tally.agree == tally.cases for tallies in columns.values() for tally in tallies.values()) else 1


if __name__ == "__main__":
    sys.exit(main())
