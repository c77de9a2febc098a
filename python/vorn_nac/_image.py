# SPDX-License-Identifier: Apache-2.0
# The fixed image of a record, in which the library sends types without vectors.
from __future__ import annotations

import struct

from . import _memory
from ._record import BadRecord, Record

_CODES = {1: "B", 2: "H", 4: "I", 8: "Q"}
_TABLE = 4  # offset of a root table, after its reference


def image(record: Record, types: _memory.RecordTypes) -> bytes:
    """The record's fixed image."""
    shape = record.shape
    if shape.image_bytes is None:
        raise BadRecord(f"{shape.name} has vectors, and so no fixed image")
    made = bytearray(shape.image_bytes)
    _put(record, made, 0, types, shape.name)
    return bytes(made)


def _put(record: Record, to: bytearray, start: int, types: _memory.RecordTypes, path: str) -> None:
    shape = record.shape
    assert shape.image_table_length is not None and shape.image_vtable_offset is not None
    vtable = start + shape.image_vtable_offset
    struct.pack_into("<Ii", to, start, _TABLE, _TABLE - shape.image_vtable_offset)
    struct.pack_into("<HH", to, vtable, shape.vtable_bytes, shape.image_table_length)
    for field in shape.fields:
        assert field.image_offset is not None
        value = getattr(record, field.name)
        at = start + field.image_offset
        here = f"{path}.{field.name}"
        struct.pack_into("<H", to, vtable + field.slot, field.image_offset - _TABLE)
        if field.form == "scalar":
            struct.pack_into("<" + _CODES[field.element_bytes], to, at,
                             _memory.number(value, field.element_bytes, here))
        elif field.table is not None:
            _put(_memory.table(value, types[field.table], here), to, at, types, here)
        else:
            elements = _memory.array(value, field, here)
            code = f"{field.count}{_CODES[field.element_bytes]}"
            struct.pack_into("<II" + code, to, at, 4, field.count, *struct.unpack("=" + code, elements))
