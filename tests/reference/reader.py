# SPDX-License-Identifier: Apache-2.0
"""Reads a serialized message the way the library's unpack functions must, with everything they do on the side."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass, field as dataclass_field
from typing import Any

from catalogue import TYPES, Field, Kind, Record, RecordType
from catalogue import array_value, byte_order, record_size, vector_value, zero_record

UNTOUCHED = "untouched"  # stands for a record as the caller gave it

LAYOUT_FAULT = 22
MEMORY_FAULT = 12

PARAM_LINE = "[KAPLO]:Param invalid(%s, %d, %s)"
TABLE_LINE = "[KAPLO]:Table offset(%u) is out of range(4 - %u)"
VTABLE_LINE = "[KAPLO]:Vtable offset(%u) is out of range(4 - %u)"
VTABLE_LENGTH_LINE = "[KAPLO]:Vtable Len(%u) is out of range(0 - %u)"

U32_MAX = 0xFFFFFFFF

# Told the size and the caller name of an allocation; whether it succeeds.
Allocate = Callable[[int, str], bool]


@dataclass
class LogLine:
    category: int
    function: str
    format: str
    args: list[int | str]


@dataclass
class Result:
    outcome: str  # "ok", "argument", "header", "field" or "memory"
    record: Record | str | None
    returned: int
    log: list[LogLine] = dataclass_field(default_factory=list)
    # [size, caller name] of every request made of the hook, in order, refused ones included.
    allocations: list[tuple[int, str]] = dataclass_field(default_factory=list)
    # [index into allocations or None for a null pointer, caller name], in order.
    releases: list[tuple[int | None, str]] = dataclass_field(default_factory=list)


class HeaderFault(Exception):
    """A table position, vtable position or vtable length out of range; already logged."""


class FieldFault(Exception):
    """A field that cannot be read; never logged by itself."""


class MemoryFault(Exception):
    """An array that could not be had; already logged."""


def unpack(
    type_name: str,
    buffer: bytes | None,
    swapped: bool = False,
    allocate: Allocate | None = None,
    record_before: Record | str | None = UNTOUCHED,
    length: int | None = None,
) -> Result:
    """Unpacks a root record.

    A buffer or a `record_before` of None stands for a null pointer. `length` is what the caller claims, and needs
    to be given only where it is not the number of bytes. Where unpack leaves the record alone, the result's record
    is `record_before`.
    """
    record_type = TYPES[type_name]
    if length is None:
        length = 0 if buffer is None else len(buffer)
    result = Result("ok", record_before, record_size(type_name))

    signed_length = length - (1 << 32) if length & 0x80000000 else length
    if buffer is None or record_before is None or signed_length <= 3:
        result.outcome = "argument"
        result.log.append(LogLine(LAYOUT_FAULT, record_type.unpack_name, PARAM_LINE,
                                  [null_state(buffer), signed_length, null_state(record_before)]))
        if record_before is None:
            result.record = UNTOUCHED
        return result
    if length > len(buffer):
        raise ValueError("a length beyond the bytes cannot be read")

    record = zero_record(type_name)
    decoder = Decoder(buffer[:length], swapped, allocate, record_type, result)
    root = decoder.number(0, 4)
    try:
        vtable, vtable_length = decoder.header(root, record_type.root_name)
    except HeaderFault:
        result.outcome = "header"
        if record_type.cleared_first:
            result.record = record
        return result

    result.record = record
    try:
        decoder.fields(record_type, record, root, vtable, vtable_length)
    except (HeaderFault, FieldFault, MemoryFault) as fault:
        result.outcome = "memory" if isinstance(fault, MemoryFault) else "field"
        decoder.release(record)
    return result


def null_state(pointer: Any) -> str:
    return "null" if pointer is None else "nonNull"


class Decoder:
    """One buffer on its way into one root record."""

    def __init__(self, buffer: bytes, swapped: bool, allocate: Allocate | None,
                 root_type: RecordType, result: Result) -> None:
        self.buffer = buffer
        self.length = len(buffer)
        self.swapped = swapped
        self.allocate = allocate
        self.root_type = root_type
        self.result = result
        # Which allocation each vector of the root record points to; only root records have vectors.
        self.arrays: dict[str, int] = {}

    def number(self, at: int, width: int) -> int:
        assert 0 <= at and at + width <= self.length, "every read is checked before"
        return int.from_bytes(self.buffer[at:at + width], byte_order(self.swapped))

    def require(self, at: int, size: int) -> None:
        if at + size > self.length:
            raise FieldFault

    def log(self, category: int, function: str, format_: str, *args: int) -> None:
        self.result.log.append(LogLine(category, function, format_, list(args)))

    def header(self, table: int, name: str) -> tuple[int, int]:
        """Checks a table and its vtable; returns the vtable's position and length."""
        if not 4 <= table <= self.length - 4:
            self.log(LAYOUT_FAULT, name, TABLE_LINE, table, self.length)
            raise HeaderFault
        vtable = (table - self.number(table, 4)) & U32_MAX
        if not 4 <= vtable <= self.length - 4:
            # The line names the table's position, not the vtable's: receivers' tools expect it so.
            self.log(LAYOUT_FAULT, name, VTABLE_LINE, table, self.length - 4)
            raise HeaderFault
        vtable_length = self.number(vtable, 2)
        if vtable + vtable_length > self.length:
            self.log(LAYOUT_FAULT, name, VTABLE_LENGTH_LINE, vtable_length, self.length - vtable)
            raise HeaderFault
        return vtable, vtable_length

    def fields(self, record_type: RecordType, record: Record, table: int, vtable: int, vtable_length: int) -> None:
        """Fills a zeroed record with the fields of a checked table, in field-id order."""
        for i, field in enumerate(record_type.fields):
            if vtable_length < 6 + 2 * i:
                continue
            slot = self.number(vtable + 4 + 2 * i, 2)
            if slot == 0:
                continue
            self.field(field, f"f{i}", record, table + slot)

    def field(self, field: Field, name: str, record: Record, at: int) -> None:
        if field.kind is Kind.SCALAR:
            self.require(at, field.width)
            record[name] = self.number(at, field.width)
        elif field.kind is Kind.TABLE:
            self.require(at, 4)
            self.nested(field.table, record[name], self.follow(at))
        elif field.kind is Kind.ARRAY:
            record[name] = self.fixed_array(field, at)
        elif field.kind is Kind.NUMBERS:
            self.numbers(field, name, record, at)
        else:
            self.tables(field, name, record, at)

    def follow(self, at: int) -> int:
        """Where the reference at a checked position leads; forward only."""
        target = at + self.number(at, 4)
        if target > U32_MAX:
            raise FieldFault
        return target

    def nested(self, type_name: str, record: Record, table: int) -> None:
        record_type = TYPES[type_name]
        vtable, vtable_length = self.header(table, record_type.nested_name)
        self.fields(record_type, record, table, vtable, vtable_length)

    def vector(self, at: int) -> tuple[int, int]:
        """The offset of a vector's first element and its count, whose elements are not checked yet."""
        self.require(at, 4)
        vector = self.follow(at)
        self.require(vector, 4)
        return vector + 4, self.number(vector, 4)

    def fixed_array(self, field: Field, at: int) -> Any:
        body, count = self.vector(at)
        size = count * field.width
        self.require(body, size)
        if count != field.count:
            raise FieldFault
        return array_value(field, self.buffer[body:body + size], self.swapped)

    def numbers(self, field: Field, name: str, record: Record, at: int) -> None:
        body, count = self.vector(at)
        if count * field.width > U32_MAX:
            raise FieldFault
        size = count * field.width
        self.require(body, size)
        if self.array(name, record, count, size):
            record[name] = vector_value(field, self.buffer[body:body + size], self.swapped)

    def tables(self, field: Field, name: str, record: Record, at: int) -> None:
        body, count = self.vector(at)
        if count >= 0x40000000:
            raise FieldFault
        self.require(body, 4 * count)
        if not self.array(name, record, count, count * record_size(field.table)):
            return
        elements = [zero_record(field.table) for _ in range(count)]
        for k, element in enumerate(elements):
            self.nested(field.table, element, self.follow(body + 4 * k))
        record[name] = elements

    def array(self, name: str, record: Record, count: int, size: int) -> bool:
        """Stores the count and obtains the array; false when there is nothing to obtain."""
        if count == 0:
            return False
        record[name] = {"lost": count}  # until the array is there and filled
        caller = self.root_type.root_name
        index = len(self.result.allocations)
        if size > U32_MAX:
            obtained = False  # cannot be asked for in 32 bits
        else:
            self.result.allocations.append((size, caller))
            obtained = self.allocate is None or self.allocate(size, caller)
        if not obtained:
            self.log(MEMORY_FAULT, caller, self.root_type.malloc_line, size & U32_MAX)
            raise MemoryFault
        self.arrays[name] = index
        return True

    def release(self, record: Record) -> None:
        """The type's free routine: the arrays go, the counts stay."""
        for i, field in enumerate(self.root_type.fields):
            if not field.owns_array:
                continue
            name = f"f{i}"
            if name in self.arrays:
                self.result.releases.append((self.arrays.pop(name), self.root_type.free_name))
                if not isinstance(record[name], dict):
                    record[name] = {"lost": count_of(field, record[name])}
            elif self.root_type.releases_null_numbers and field.kind is Kind.NUMBERS:
                self.result.releases.append((None, self.root_type.free_name))


def count_of(field: Field, value: Any) -> int:
    """The count of a vector's value; byte vectors are text with two digits a byte."""
    return len(value) // 2 if field.kind is Kind.NUMBERS and field.width == 1 else len(value)
