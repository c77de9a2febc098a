# SPDX-License-Identifier: Apache-2.0
"""Writes records in the compact layout and as fixed images, and computes compact sizes."""

from __future__ import annotations

from typing import Any

from catalogue import TYPES, Field, Kind, Record, RecordType
from catalogue import array_bytes, byte_order, image_layout, vector_bytes

# A vector's value may also be an odd pair of count and pointer: {"lost": n} is a count without an array, and
# this one an array with count 0.
EMPTY = {"empty": True}

U32_MAX = 0xFFFFFFFF


def vector_count(field: Field, value: Any) -> int:
    """The elements that go on the wire: none where count or pointer is missing."""
    if isinstance(value, dict):
        return 0
    return len(value) // 2 if isinstance(value, str) else len(value)


def compact_size(type_name: str, record: Record | None) -> int:
    """What pack reports: the bytes of the compact message, 0 where it cannot be sized."""
    if record is None:
        return 0
    size = 4 + table_size(type_name, record)
    return size if size <= U32_MAX else 0


def table_size(type_name: str, record: Record) -> int:
    record_type = TYPES[type_name]
    size = record_type.vtable_length + 4
    for i, field in enumerate(record_type.fields):
        value = record[f"f{i}"]
        if field.kind is Kind.SCALAR:
            size += field.width if value else 0
        elif field.kind is Kind.TABLE:
            size += 4 + table_size(field.table, value)
        elif field.kind is Kind.ARRAY:
            size += 8 + field.count * field.width
        elif field.kind is Kind.NUMBERS:
            # Asks for the pointer, not for the count: an empty array still takes its frame.
            count = vector_count(field, value)
            if count or value == EMPTY:
                size += 8 + count * field.width
        else:
            count = vector_count(field, value)
            if count:
                size += 8 + 4 * count + sum(table_size(field.table, value[k]) for k in range(count))
    return size


def compact(type_name: str, record: Record, swapped: bool = False) -> bytes:
    """The compact message, zeros after it where the reported size exceeds what is written."""
    size = compact_size(type_name, record)
    if size == 0:
        raise ValueError("the record cannot be sized")
    output = Output(swapped)
    output.reserve(4)
    root = write_table(output, type_name, record)
    output.patch(0, root, 4)
    return bytes(output.data).ljust(size, b"\0")


class Output:
    """A growing message."""

    def __init__(self, swapped: bool) -> None:
        self.data = bytearray()
        self.swapped = swapped

    @property
    def cursor(self) -> int:
        return len(self.data)

    def reserve(self, size: int) -> int:
        at = self.cursor
        self.data += bytes(size)
        return at

    def append(self, value: int, width: int) -> int:
        at = self.reserve(width)
        self.patch(at, value, width)
        return at

    def patch(self, at: int, value: int, width: int) -> None:
        self.data[at:at + width] = value.to_bytes(width, byte_order(self.swapped))

    def patch_short(self, at: int, value: int) -> None:
        """A u16 that swapped writing reverses by moving its low byte only, exact below 256."""
        if self.swapped:
            self.data[at:at + 2] = ((value & 0xFF) << 8).to_bytes(2, "little")
        else:
            self.patch(at, value, 2)

    def patch_table_length(self, vtable: int, value: int, record_type: RecordType) -> None:
        if record_type.has_vector:
            self.patch(vtable + 2, value & 0xFFFF, 2)  # long vectors overflow it, and no reader looks
        else:
            self.patch_short(vtable + 2, value)

    def refer(self, reference: int, target: int) -> None:
        self.patch(reference, target - reference, 4)


def written(field: Field, value: Any) -> bool:
    """Whether the compact layout has the field at all."""
    if field.kind is Kind.SCALAR:
        return value != 0
    if field.owns_array:
        return vector_count(field, value) > 0
    return True


def inline_order(record_type: RecordType) -> list[int]:
    ids = range(record_type.slots)
    if record_type.references_last:
        return sorted(ids, key=lambda i: record_type.fields[i].kind is not Kind.SCALAR)
    return list(ids)


def write_table(output: Output, type_name: str, record: Record) -> int:
    """Writes vtable, table, its vectors and all that hangs on them at the cursor; returns the table's position."""
    record_type = TYPES[type_name]
    vtable = output.reserve(record_type.vtable_length)
    table = output.reserve(4)

    references: dict[int, int] = {}
    for i in inline_order(record_type):
        field, value = record_type.fields[i], record[f"f{i}"]
        if not written(field, value):
            continue
        output.patch_short(vtable + 4 + 2 * i, output.cursor - table)
        if field.kind is Kind.SCALAR:
            output.append(value, field.width)
        else:
            references[i] = output.reserve(4)
    inline_length = output.cursor - table

    elements: dict[int, list[int]] = {}
    for i in sorted(references):
        field, value = record_type.fields[i], record[f"f{i}"]
        if not field.is_vector:
            continue
        output.refer(references[i], output.cursor)
        if field.kind is Kind.ARRAY:
            output.append(field.count, 4)
            output.data += array_bytes(field, value, output.swapped)
        elif field.kind is Kind.NUMBERS:
            output.append(vector_count(field, value), 4)
            output.data += vector_bytes(field, value, output.swapped)
        else:
            output.append(len(value), 4)
            elements[i] = [output.reserve(4) for _ in value]

    length = output.cursor - table
    if record_type.counts_fixed_arrays_only:
        length = inline_length + sum(4 + field.count * field.width for field in record_type.fields
                                     if field.kind is Kind.ARRAY)
    output.patch(vtable, record_type.vtable_length, 2)
    output.patch_table_length(vtable, length, record_type)
    output.patch(table, table - vtable, 4)

    for i in sorted(references):
        field, value = record_type.fields[i], record[f"f{i}"]
        if field.kind is Kind.TABLE:
            output.refer(references[i], write_table(output, field.table, value))
        elif field.kind is Kind.TABLES:
            for reference, element in zip(elements[i], value, strict=True):
                output.refer(reference, write_table(output, field.table, element))
    return table


def image(type_name: str, record: Record, swapped: bool = False) -> bytes:
    """The fixed image, its padding zero."""
    record_type = TYPES[type_name]
    layout = image_layout(type_name)
    output = Output(swapped)
    output.reserve(layout.length)
    table = 4
    output.patch(0, table, 4)
    output.patch(table, (table - layout.vtable_at) & U32_MAX, 4)
    for i, (field, offset) in enumerate(zip(record_type.fields, layout.offsets, strict=True)):
        at, value = table + offset, record[f"f{i}"]
        if field.kind is Kind.SCALAR:
            output.patch(at, value, field.width)
        elif field.kind is Kind.ARRAY:
            output.patch(at, 4, 4)
            output.patch(at + 4, field.count, 4)
            body = array_bytes(field, value, swapped)
            output.data[at + 8:at + 8 + len(body)] = body
        else:
            nested = image(field.table, value, swapped)
            output.data[at:at + len(nested)] = nested
        output.patch_short(layout.vtable_at + 4 + 2 * i, offset)
    output.patch(layout.vtable_at, record_type.vtable_length, 2)
    output.patch_table_length(layout.vtable_at, layout.table_length, record_type)
    return bytes(output.data)
