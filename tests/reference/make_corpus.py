# SPDX-License-Identifier: Apache-2.0
"""Writes the corpus: buffers, whole and damaged, with what unpack must make of each."""

from __future__ import annotations

import json
import sys
from collections import Counter
from collections.abc import Iterable, Iterator
from dataclasses import dataclass
from itertools import zip_longest
from pathlib import Path
from random import Random
from typing import Any

from catalogue import MESSAGES, TYPES, Field, Kind, Record
from catalogue import array_bytes, vector_bytes, vector_value, zero_record, zero_value
from reader import Result, unpack
from samples import maximal_record, random_record
from writer import compact, image

FOLDER = Path(__file__).parent / "corpus"
SEED = "nac corpus 1"

NOISY_CASES = 30            # of every type
BYTES_OF_ONE_GROUP = 2800   # about what one kind of damage to one buffer may take
SHARES = {"root": 0.5, "soffset": 0.7, "vtable-length": 0.7, "reference": 2}  # of that, where not 1
EXTREME_COUNTS = (0x3FFFFFFF, 0x40000000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF)


@dataclass(frozen=True)
class Case:
    name: str
    buffer: bytes
    length: int | None = None
    null: tuple[str, ...] = ()
    fail_allocation: int | None = None

    @property
    def input(self) -> tuple[Any, ...]:
        return self.buffer, self.length, self.null, self.fail_allocation


# Walking a whole buffer.

@dataclass(frozen=True)
class Landmark:
    """A number in a buffer that steers the reader."""

    kind: str        # "root", "soffset", "vtable-length", "slot", "reference", "count" or "fixed-count"
    path: str        # the field or element it belongs to, empty for the root table
    at: int
    width: int = 4
    base: int = 0    # slot: the table; vtable length: the slots that the type has; count: the width of one element
    span: int = 0    # slot: the bytes that the field takes inline


class Walker:
    def __init__(self, data: bytes, type_name: str) -> None:
        self.data = data
        self.found: list[Landmark] = [Landmark("root", "", 0)]
        self.table(type_name, "", self.number(0, 4))

    def number(self, at: int, width: int) -> int:
        return int.from_bytes(self.data[at:at + width], "little")

    def table(self, type_name: str, path: str, table: int) -> None:
        record_type = TYPES[type_name]
        vtable = (table - self.number(table, 4)) & 0xFFFFFFFF
        vtable_length = self.number(vtable, 2)
        self.found.append(Landmark("soffset", path, table))
        self.found.append(Landmark("vtable-length", path, vtable, 2, base=record_type.slots))
        for i, field in enumerate(record_type.fields):
            if vtable_length < 6 + 2 * i:
                break
            slot = vtable + 4 + 2 * i
            here = f"{path}.f{i}" if path else f"f{i}"
            span = field.width if field.kind is Kind.SCALAR else 4
            self.found.append(Landmark("slot", here, slot, 2, base=table, span=span))
            if self.number(slot, 2):
                self.field(field, here, table + self.number(slot, 2))

    def field(self, field: Field, path: str, at: int) -> None:
        if field.kind is Kind.SCALAR:
            return
        self.found.append(Landmark("reference", path, at))
        target = at + self.number(at, 4)
        if field.kind is Kind.TABLE:
            self.table(field.table, path, target)
        elif field.kind is Kind.ARRAY:
            self.found.append(Landmark("fixed-count", path, target, base=field.width))
        elif field.kind is Kind.NUMBERS:
            self.found.append(Landmark("count", path, target, base=field.width))
        else:
            self.found.append(Landmark("count", path, target, base=4))
            for k in range(self.number(target, 4)):
                reference = target + 4 + 4 * k
                self.found.append(Landmark("reference", f"{path}[{k}]", reference))
                self.table(field.table, f"{path}[{k}]", reference + self.number(reference, 4))


def bad_values(mark: Landmark, data: bytes) -> list[int]:
    """Values on both sides of every limit that the number has, and outright wrong ones."""
    length = len(data)
    now = int.from_bytes(data[mark.at:mark.at + mark.width], "little")
    if mark.kind == "root":
        values = [0, 1, 3, 4, 5, now - 1, now + 1, length - 5, length - 4, length - 3, length, length + 4,
                  0x7FFFFFFF, 0x80000000, 0xFFFFFFFB, 0xFFFFFFFF]
    elif mark.kind == "soffset":
        vtables = [0, 3, 4, 5, mark.at, mark.at + 4, length - 5, length - 4, length - 3, length,
                   0x7FFFFFFF, 0x80000000, 0xFFFFFFFC]
        values = [mark.at - vtable for vtable in vtables] + [0x7FFFFFFF, 0x80000000]
    elif mark.kind == "vtable-length":
        rest = length - mark.at
        full = 4 + 2 * mark.base
        values = [0, 2, 4, 5, 6, full - 2, full - 1, full + 1, full + 2, rest - 1, rest, rest + 1, 0x7FFF, 0xFFFF]
    elif mark.kind == "slot":
        last = length - mark.base - mark.span
        values = [0, 1, 2, 3, 4, now - 1, now + 1, last - 1, last, last + 1, last + mark.span, 0x7FFF, 0xFFFF]
    elif mark.kind == "reference":
        last = length - 4 - mark.at
        values = [0, 1, 2, 4, now - 1, now + 1, last - 4, last - 1, last, last + 1, last + 4, 0x7FFFFFFF,
                  0x80000000, 0xFFFFFFFF - mark.at, 0x100000000 - mark.at, 0x100000004 - mark.at, 0xFFFFFFFF]
    else:
        most = (length - mark.at - 4) // mark.base
        wrapping = (0x100000000 - mark.at - 4) // mark.base
        values = [0, 1, now - 1, now + 1, most - 1, most, most + 1, wrapping, wrapping + 1, *EXTREME_COUNTS]
    limit = 1 << 8 * mark.width
    return sorted({value % limit for value in values} - {now})


def patched(data: bytes, at: int, value: int, width: int) -> bytes:
    return data[:at] + value.to_bytes(width, "little") + data[at + width:]


# Buffers that no writer of ours makes.

class Scatter:
    """Lays a record out in any order that the format allows: fields and bodies mixed, gaps, vtables before and
    after their tables, shared or longer than the type knows, zeros written and left out."""

    def __init__(self, random: Random) -> None:
        self.random = random
        self.data = bytearray(4)
        self.vtables: dict[bytes, int] = {}

    def message(self, type_name: str, record: Record) -> bytes:
        self.patch(0, self.table(type_name, record))
        return bytes(self.data + self.random.randbytes(self.random.choice((0, 0, 1, 5))))

    def patch(self, at: int, value: int, width: int = 4) -> None:
        self.data[at:at + width] = (value & (1 << 8 * width) - 1).to_bytes(width, "little")

    def append(self, raw: bytes) -> int:
        at = len(self.data)
        self.data += raw
        return at

    def gap(self) -> None:
        self.data += self.random.randbytes(self.random.choice((0, 0, 0, 1, 2, 3)))

    def table(self, type_name: str, record: Record) -> int:
        fields = TYPES[type_name].fields
        present = [i for i, field in enumerate(fields)
                   if record[f"f{i}"] != zero_value(field) or self.random.random() < 0.3]
        slots = self.random.choice((max(present, default=-1) + 1, len(fields), len(fields) + self.random.randint(1, 3)))
        vtable_length = 4 + 2 * slots
        self.gap()
        vtable = self.append(bytes(vtable_length)) if self.random.random() < 0.5 else None
        table = self.append(bytes(4))
        entries = [0] * len(fields) + [self.random.randrange(0x10000) for _ in range(slots - len(fields))]
        self.random.shuffle(present)
        positions: dict[int, int] = {}
        for i in present:
            self.gap()
            field = fields[i]
            raw = record[f"f{i}"].to_bytes(field.width, "little") if field.kind is Kind.SCALAR else bytes(4)
            positions[i] = self.append(raw)
            entries[i] = positions[i] - table
        header = (vtable_length, self.random.randrange(0x10000) if self.random.random() < 0.2 else 0)
        raw = b"".join(each.to_bytes(2, "little") for each in (*header, *entries[:slots]))
        if vtable is not None:
            self.data[vtable:vtable + vtable_length] = raw
        elif raw in self.vtables:
            vtable = self.vtables[raw]
        else:
            self.gap()
            vtable = self.append(raw)
        self.vtables[raw] = vtable
        self.patch(table, table - vtable)
        self.random.shuffle(present)
        for i in present:
            if fields[i].kind is not Kind.SCALAR:
                self.patch(positions[i], self.body(fields[i], record[f"f{i}"]) - positions[i])
        return table

    def body(self, field: Field, value: Any) -> int:
        self.gap()
        if field.kind is Kind.TABLE:
            return self.table(field.table, value)
        if field.kind is Kind.ARRAY:
            return self.append(field.count.to_bytes(4, "little") + array_bytes(field, value, False))
        if field.kind is Kind.NUMBERS:
            raw = vector_bytes(field, value, False)
            return self.append((len(raw) // field.width).to_bytes(4, "little") + raw)
        vector = self.append(len(value).to_bytes(4, "little") + bytes(4 * len(value)))
        order = list(range(len(value)))
        self.random.shuffle(order)
        for k in order:
            reference = vector + 4 + 4 * k
            self.patch(reference, self.table(field.table, value[k]) - reference)
        return vector


# The cases of one type.

def bases(type_name: str, random: Random) -> dict[str, bytes]:
    """The whole buffers that are then damaged: one with three elements to a vector (first, middle, last), one
    with a single element."""
    record_type = TYPES[type_name]
    rich = random_record(type_name, random, 0.85 if record_type.slots < 30 else 0.4)
    small = random_record(type_name, random, 0.3)
    for record, count in ((rich, 3), (small, 1)):
        for i, field in enumerate(record_type.fields):
            if field.kind is Kind.TABLES:
                record[f"f{i}"] = [random_record(field.table, random, 0.3) for _ in range(count)]
            elif field.kind is Kind.NUMBERS:
                record[f"f{i}"] = vector_value(field, random.randbytes(count * field.width), False)
    found = {"rich": compact(type_name, rich), "small": compact(type_name, small)}
    if not record_type.owns_arrays:
        found["image"] = image(type_name, rich)
    return found


def whole(type_name: str, random: Random) -> Iterator[Case]:
    record_type = TYPES[type_name]
    records = {"zero": zero_record(type_name), "maximal": maximal_record(type_name)}
    for i, field in enumerate(record_type.fields):
        only = zero_record(type_name)
        only[f"f{i}"] = maximal_record(type_name, 1)[f"f{i}"]
        records[f"only-f{i}"] = only
    for k in range(10):
        records[f"sparse-{k}"] = random_record(type_name, random, 0.25)
    for k in range(10):
        records[f"rich-{k}"] = random_record(type_name, random, 0.9, (1, 3))
    if record_type.owns_arrays:
        for count in (1, 2, 3, 4, 7, 8, 15, 16, 17):
            records[f"count-{count}"] = random_record(type_name, random, 0.4, (count, count))
        many = zero_record(type_name)
        for i, field in enumerate(record_type.fields):
            if field.kind is Kind.NUMBERS:
                many[f"f{i}"] = random.randbytes(300).hex() if field.width == 1 else list(range(70))
            elif field.kind is Kind.TABLES:
                many[f"f{i}"] = [random_record(field.table, random, 0.05) for _ in range(40)]
        records["many"] = many
    for label, record in records.items():
        yield Case(f"compact {label}", compact(type_name, record))
        if not record_type.owns_arrays:
            yield Case(f"image {label}", image(type_name, record))
    for k in range(20):
        record = random_record(type_name, random, random.choice((0.2, 0.5, 0.9)), (1, 3))
        yield Case(f"scattered {k}", Scatter(random).message(type_name, record))
    for k in range(4):
        data = compact(type_name, random_record(type_name, random, 0.5))
        yield Case(f"trailing {k}", data + random.randbytes(1 + 3 * k))


def arguments(type_name: str, random: Random) -> Iterator[Case]:
    data = compact(type_name, random_record(type_name, random, 0.3, (1, 1)))
    for length in (0, 1, 3, 4, len(data), 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF):
        yield Case(f"null-buffer length-{length:#x}", b"", length, ("buffer",))
    yield Case("null-record", data, null=("record",))
    yield Case("null-record short", data[:2], null=("record",))
    yield Case("null-both", b"", len(data), ("buffer", "record"))
    for length in range(4):
        yield Case(f"length-{length}", data[:length])
    for length in (3, 0x80000000, 0x80000004, 0xFFFFFFFF):
        yield Case(f"claimed-length-{length:#x}", data, length)


def truncated(type_name: str, found: dict[str, bytes], random: Random) -> Iterator[Case]:
    for label, data in found.items():
        if len(data) <= 48:
            cuts = set(range(4, len(data)))
        else:
            near = {mark.at + step for mark in Walker(data, type_name).found for step in (0, 1, mark.width)}
            near |= {4, 5, 7, 8, len(data) - 1, len(data) - 2, len(data) - 4, len(data) - 8}
            cuts = set(sample(sorted(near), most_of_one_group(data), random))
        for cut in sorted(cuts):
            if 4 <= cut < len(data):
                yield Case(f"{label} cut {cut}", data[:cut])


def damaged(type_name: str, found: dict[str, bytes], random: Random) -> Iterator[Case]:
    for label, data in found.items():
        marks = Walker(data, type_name).found
        for kind in dict.fromkeys(mark.kind for mark in marks):
            # One value of each number, then a second one of each, until there are enough.
            queues: list[list[Case]] = []
            for mark in (mark for mark in marks if mark.kind == kind):
                queue = []
                for value in bad_values(mark, data):
                    queue.append(with_value(label, data, mark, value))
                random.shuffle(queue)
                queues.append(queue)
            random.shuffle(queues)
            rounds = [case for cases_of_round in zip_longest(*queues) for case in cases_of_round if case]
            if kind in ("root", "count") and label == "small":
                yield from rounds
            else:
                yield from rounds[:int(most_of_one_group(data) * SHARES.get(kind, 1))]


def with_value(label: str, data: bytes, mark: Landmark, value: int) -> Case:
    name = " ".join(part for part in (label, mark.path, mark.kind, f"{value:#x}") if part)
    return Case(name, patched(data, mark.at, value, mark.width))


def broken_elements(type_name: str, found: dict[str, bytes]) -> Iterator[Case]:
    """Every element once beyond repair in each of its headers, and so its nested tables."""
    data = found["rich"]
    for mark in Walker(data, type_name).found:
        if "[" not in mark.path:
            continue
        if mark.kind == "reference" and mark.path.endswith("]"):
            yield with_value("rich", data, mark, len(data))
        elif mark.kind == "soffset":
            yield with_value("rich", data, mark, (mark.at - len(data) + 3) & 0xFFFFFFFF)
        elif mark.kind == "vtable-length":
            yield with_value("rich", data, mark, 0xFFFF)


def most_of_one_group(data: bytes) -> int:
    return min(40, max(12, BYTES_OF_ONE_GROUP // len(data)))


def refused(type_name: str, found: dict[str, bytes], random: Random) -> Iterator[Case]:
    """Every allocation fails once; also in a message that is damaged, before or after that point."""
    for label, data in found.items():
        for k in range(len(unpack(type_name, data).allocations)):
            yield Case(f"{label} refused {k}", data, fail_allocation=k)
    if TYPES[type_name].owns_arrays:
        for round_ in range(4):
            data = compact(type_name, random_record(type_name, random, 0.6, (1, 3)))
            for k in range(len(unpack(type_name, data).allocations)):
                yield Case(f"random-{round_} refused {k}", data, fail_allocation=k)
            noisy = noise(data, random)
            for k in range(len(unpack(type_name, noisy).allocations)):
                yield Case(f"noisy-{round_} refused {k}", noisy, fail_allocation=k)


def noise(data: bytes, random: Random) -> bytes:
    changed = bytearray(data)
    for _ in range(random.randint(1, 3)):
        at = random.randrange(len(changed)) if random.random() < 0.6 else random.randrange(min(len(changed), 40))
        changed[at] = random.choice((0, 1, 2, 4, 0x7F, 0x80, 0xFF, random.randrange(256)))
    return bytes(changed)


def noisy(type_name: str, random: Random) -> Iterator[Case]:
    """Without end."""
    k = 0
    while True:
        record = random_record(type_name, random, random.choice((0.3, 0.6, 0.9)), (1, 3))
        choices = [compact(type_name, record), Scatter(random).message(type_name, record)]
        if not TYPES[type_name].owns_arrays:
            choices.append(image(type_name, record))
        yield Case(f"noise {k}", noise(random.choice(choices), random))
        k += 1


def sample(items: list[Any], most: int, random: Random) -> list[Any]:
    if len(items) <= most:
        return items
    return [items[i] for i in sorted(random.sample(range(len(items)), most))]


def cases(type_name: str) -> list[Case]:
    random = Random(f"{SEED} {type_name}")
    found = bases(type_name, random)
    groups: Iterable[Iterator[Case]] = (
        whole(type_name, random), arguments(type_name, random), truncated(type_name, found, random),
        broken_elements(type_name, found), damaged(type_name, found, random), refused(type_name, found, random),
    )
    chosen: list[Case] = []
    inputs: set[tuple[Any, ...]] = set()

    def take(case: Case) -> None:
        if case.input not in inputs:
            inputs.add(case.input)
            chosen.append(case)

    for group in groups:
        for case in group:
            take(case)
    enough = len(chosen) + NOISY_CASES
    for case in noisy(type_name, random):
        if len(chosen) == enough:
            break
        take(case)
    return chosen


# From case to line.

def run(type_name: str, case: Case) -> Result:
    calls = 0

    def allocate(size: int, caller: str) -> bool:
        nonlocal calls
        calls += 1
        return calls - 1 != case.fail_allocation

    buffer = None if "buffer" in case.null else case.buffer
    before = None if "record" in case.null else "untouched"
    return unpack(type_name, buffer, allocate=allocate, record_before=before, length=case.length)


def corpus_line(type_name: str, case: Case) -> str:
    result = run(type_name, case)
    line: dict[str, Any] = {"name": case.name, "type": type_name, "hex": case.buffer.hex()}
    if case.length is not None and case.length != len(case.buffer):
        line["length"] = case.length
    if case.null:
        line["null"] = list(case.null)
    if case.fail_allocation is not None:
        line["fail_allocation"] = case.fail_allocation
    line |= {
        "verdict": result.outcome,
        "record": result.record,
        "log": [{"category": each.category, "function": each.function, "format": each.format, "args": each.args}
                for each in result.log],
        "allocations": result.allocations,
        "released": sum(index is not None for index, _ in result.releases),
    }
    return json.dumps(line, separators=(",", ":"))


def corpus_lines(type_name: str) -> list[str]:
    return [corpus_line(type_name, case) for case in cases(type_name)]


def write(folder: Path) -> None:
    folder.mkdir(exist_ok=True)
    total = Counter[str]()
    size = 0
    for type_name in MESSAGES:
        lines = corpus_lines(type_name)
        text = "\n".join(lines) + "\n"
        (folder / f"{type_name}.jsonl").write_text(text, encoding="ascii")
        verdicts = Counter(json.loads(line)["verdict"] for line in lines)
        total += verdicts
        size += len(text)
        print(f"{type_name:38} {len(lines):5} {len(text) // 1024:5} KiB  {dict(sorted(verdicts.items()))}")
    print(f"{total.total()} cases, {size / 1024 / 1024:.2f} MiB, {dict(sorted(total.items()))}")


def main() -> int:
    write(FOLDER)
    return 0


if __name__ == "__main__":
    sys.exit(main())
