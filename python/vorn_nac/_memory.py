# SPDX-License-Identifier: Apache-2.0
# Records as structs in memory, which the library's functions read and write, by the offsets of their shapes.
from __future__ import annotations

import ctypes
import struct
from typing import Any, Callable

from ._record import BadRecord, Record
from ._shape import Field

_CODES = {1: "B", 2: "H", 4: "I", 8: "Q"}
_POINTER = struct.Struct("=Q" if ctypes.sizeof(ctypes.c_void_p) == 8 else "=I")

RecordTypes = dict[str, type[Record]]


def number(value: Any, width: int, path: str) -> int:
    """The value, if it is a number of `width` bytes."""
    if not isinstance(value, int):
        raise BadRecord(f"{path}: {value!r} is no integer")
    if not 0 <= value < 1 << 8 * width:
        raise BadRecord(f"{path}: {value} does not fit into {8 * width} bits")
    return int(value)


def numbers(value: Any, width: int, path: str) -> bytes:
    """An array in the host's byte order."""
    if not isinstance(value, (list, tuple)):
        raise BadRecord(f"{path}: {value!r} is no list")
    return struct.pack(f"={len(value)}{_CODES[width]}",
                       *(number(each, width, f"{path}[{k}]") for k, each in enumerate(value)))


def array(value: Any, field: Field, path: str) -> bytes:
    """The elements of an array or a vector of scalars, in the host's byte order."""
    if field.element_bytes > 1:
        made = numbers(value, field.element_bytes, path)
    elif isinstance(value, (bytes, bytearray, memoryview)):
        made = bytes(value)
    else:
        raise BadRecord(f"{path}: {value!r} is no bytes")
    count = len(made) // field.element_bytes
    if field.form == "fixed array" and count != field.count:
        raise BadRecord(f"{path}: {count} elements, where the array has {field.count}")
    return made


def tables(value: Any, record_type: type[Record], path: str) -> list[Record]:
    """The value, if it is a list of records of this type."""
    if not isinstance(value, (list, tuple)):
        raise BadRecord(f"{path}: {value!r} is no list")
    return [table(each, record_type, f"{path}[{k}]") for k, each in enumerate(value)]


def table(value: Any, record_type: type[Record], path: str) -> Record:
    """The value, if it is a record of this type."""
    if not isinstance(value, record_type):
        raise BadRecord(f"{path}: {value!r} is no {record_type.__name__}")
    return value


class Memory:
    """A record in memory, with the arrays that it points to. It owns them."""

    def __init__(self, record: Record, types: RecordTypes) -> None:
        self._types = types
        self._arrays: list[ctypes.Array[ctypes.c_char]] = []
        self.record = ctypes.create_string_buffer(record.shape.record_bytes)
        self._put(record, self.record, 0, record.shape.name)

    def _put(self, record: Record, to: ctypes.Array[ctypes.c_char], start: int, path: str) -> None:
        for field in record.shape.fields:
            value = getattr(record, field.name)
            at = start + field.record_offset
            here = f"{path}.{field.name}"
            if field.form == "scalar":
                struct.pack_into("=" + _CODES[field.element_bytes], to, at, number(value, field.element_bytes, here))
            elif field.form == "fixed array":
                elements = array(value, field, here)
                struct.pack_into(f"{len(elements)}s", to, at, elements)
            elif field.table is not None and field.form == "nested table":
                self._put(table(value, self._types[field.table], here), to, at, here)
            elif field.table is not None:
                records = tables(value, self._types[field.table], here)
                width = self._types[field.table].shape.record_bytes
                block = self._vector(to, start, field, len(records), len(records) * width)
                for k, each in enumerate(records):
                    self._put(each, block, k * width, f"{here}[{k}]")
            else:
                elements = array(value, field, here)
                block = self._vector(to, start, field, len(elements) // field.element_bytes, len(elements))
                block.raw = elements if elements else block.raw

    def _vector(self, to: ctypes.Array[ctypes.c_char], start: int, field: Field, count: int,
                size: int) -> ctypes.Array[ctypes.c_char]:
        """Makes an array and lets the record point to it; an empty one is a null pointer."""
        assert field.count_offset is not None
        if count > 0xFFFFFFFF:
            raise BadRecord(f"{field.name}: more elements than 32 bits can count")
        block = ctypes.create_string_buffer(max(size, 1))
        if count > 0:
            block = ctypes.create_string_buffer(size)
            self._arrays.append(block)
            struct.pack_into("=I", to, start + field.count_offset, count)
            _POINTER.pack_into(to, start + field.record_offset, ctypes.addressof(block))
        return block


Lose = Callable[[str, int], None]


def read(record_type: type[Record], address: int, types: RecordTypes, lose: Lose, path: str = "") -> Record:
    """Copies a record out of memory. Calls `lose` with path and count of each vector whose array unpack gave up."""
    raw = ctypes.string_at(address, record_type.shape.record_bytes)
    values: dict[str, Any] = {}
    for field in record_type.shape.fields:
        at = field.record_offset
        width = field.element_bytes
        here = f"{path}.{field.name}" if path else field.name
        if field.form == "scalar":
            values[field.name] = struct.unpack_from("=" + _CODES[width], raw, at)[0]
        elif field.form == "fixed array":
            values[field.name] = _elements(raw[at:at + field.count * width], width)
        elif field.table is not None and field.form == "nested table":
            values[field.name] = read(types[field.table], address + at, types, lose, here)
        else:
            assert field.count_offset is not None
            count = struct.unpack_from("=I", raw, field.count_offset)[0]
            pointer = _POINTER.unpack_from(raw, at)[0]
            if pointer == 0 and count > 0:
                lose(here, count)
                count = 0
            if field.table is not None:
                inner = types[field.table]
                values[field.name] = [read(inner, pointer + k * inner.shape.record_bytes, types, lose, f"{here}[{k}]")
                                      for k in range(count)]
            else:
                values[field.name] = _elements(ctypes.string_at(pointer, count * width) if count else b"", width)
    return record_type(**values)


def _elements(raw: bytes, width: int) -> bytes | list[int]:
    return raw if width == 1 else list(struct.unpack(f"={len(raw) // width}{_CODES[width]}", raw))
