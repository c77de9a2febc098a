# SPDX-License-Identifier: Apache-2.0
# What is wrong with a message: a walk through its bytes by the rules of unpack, as `nac verify` makes it.
from __future__ import annotations

import struct
from dataclasses import dataclass
from typing import NamedTuple, Optional

from ._shape import Field, Shape
from ._shapes import SHAPES

SHORTEST = 4
LONGEST = 0x7FFFFFFF
MOST_FAULTS = 100

_ROOT_TABLE = 4  # no table or vtable stands before it
_REFERENCE = 4
_COUNT = 4
_SLOT = 2
_32_BITS = 0xFFFFFFFF


class Fault(NamedTuple):
    """What unpack stops at, or would if it came there."""

    at: int  # offset of the wrong bytes, or of the bytes after whose end something is missing
    bytes: int
    table: str  # the type of the table in which they stand
    field: Optional[str]  # None: the table's header
    path: str  # from the message to there: "f6.f4[3].f0"; empty: the message itself
    what: str

    def __str__(self) -> str:
        path = self.path if self.field else f"{self.path} header".strip()
        return f"at {self.at}, {path} of {self.table}: {self.what}"


@dataclass(frozen=True)
class Inspection:
    """What is found about a message."""

    verdict: str  # "ok", "header", "field"; "argument": of no size that a message can have
    layout: Optional[str]  # "compact", "image", or "other" where table and vtable lie as neither has them
    faults: list[Fault]  # in the order of reading; unpack stops at the first
    more_faults: int = 0  # beyond those that are kept


class _Walker:
    def __init__(self, shape: Shape, message: bytes) -> None:
        self.shape = shape
        self.message = message
        self.size = len(message)
        self.verdict = "ok"
        self.layout = "other"
        self.faults: list[Fault] = []
        self.more_faults = 0
        self.in_root_header = False

    def run(self) -> Inspection:
        self.table(self.shape, self.u32(0), "", 0, 0)
        return Inspection(self.verdict, self.layout, self.faults, self.more_faults)

    def u16(self, at: int) -> int:
        return int(struct.unpack_from("<H", self.message, at)[0])

    def u32(self, at: int) -> int:
        return int(struct.unpack_from("<I", self.message, at)[0])

    def holds(self, at: int, count: int) -> bool:
        return at + count <= self.size

    def holds_table(self, at: int) -> bool:
        return at >= _ROOT_TABLE and self.holds(at, _REFERENCE)

    def fault(self, at: int, count: int, shape: Shape, field: Optional[Field], path: str, what: str) -> None:
        if self.verdict == "ok":
            self.verdict = "header" if self.in_root_header else "field"
        if len(self.faults) == MOST_FAULTS:
            self.more_faults += 1
        else:
            self.faults.append(Fault(at, count, shape.name, field.name if field else None, path, what))

    def table(self, shape: Shape, at: int, path: str, depth: int, reference: int) -> None:
        """Walks through the table at `at`, to which the reference at `reference` leads."""
        self.in_root_header = depth == 0
        found = self.vtable(shape, at, path, reference)
        self.in_root_header = False
        if found is None:
            return
        vtable, length = found
        if depth == 0:
            self.layout = self.root_layout(shape, at, vtable, length)
        for field in shape.fields:
            if field.slot + _SLOT <= length and (offset := self.u16(vtable + field.slot)) != 0:
                self.field(shape, field, at + offset, vtable + field.slot, f"{path}.{field.name}" if path else field.name,
                           depth)

    def vtable(self, shape: Shape, at: int, path: str, reference: int) -> Optional[tuple[int, int]]:
        """A table's vtable and its length, if its header is valid."""
        last = self.size - _REFERENCE
        if not self.holds_table(at):
            self.fault(reference, _REFERENCE, shape, None, path, f"the table would be at {at}, outside of 4 to {last}")
            return None
        vtable = (at - self.u32(at)) & _32_BITS
        if not self.holds_table(vtable):
            self.fault(at, _REFERENCE, shape, None, path, f"the vtable would be at {vtable}, outside of 4 to {last}")
            return None
        length = self.u16(vtable)
        if length > self.size - vtable:
            self.fault(vtable, _SLOT, shape, None, path,
                       f"the vtable would have {length} bytes, and {self.size - vtable} are left")
            return None
        return vtable, length

    def root_layout(self, shape: Shape, at: int, vtable: int, length: int) -> str:
        if vtable + length == at and vtable == _REFERENCE:
            return "compact"
        is_image = shape.image_vtable_offset is not None and at == _ROOT_TABLE and vtable == shape.image_vtable_offset
        if is_image and self.u16(vtable + _SLOT) == shape.image_table_length and length == shape.vtable_bytes:
            return "image"
        return "other"

    def field(self, shape: Shape, field: Field, at: int, slot: int, path: str, depth: int) -> None:
        if field.form == "scalar":
            if not self.holds(at, field.element_bytes):
                self.outside(shape, field, at, field.element_bytes, slot, path)
            return
        target = self.follow(shape, field, at, slot, path)
        if target is None:
            return
        if field.form == "nested table" and field.table is not None:
            self.table(SHAPES[field.table], target, path, depth + 1, at)
        else:
            self.vector(shape, field, at, target, path, depth)

    def outside(self, shape: Shape, field: Field, at: int, count: int, slot: int, path: str) -> None:
        self.fault(slot, _SLOT, shape, field, path,
                   f"{count} bytes at {at} do not end inside the message of {self.size}")

    def follow(self, shape: Shape, field: Field, at: int, slot: int, path: str) -> Optional[int]:
        """Where the reference at `at` leads, perhaps outside."""
        if not self.holds(at, _REFERENCE):
            self.outside(shape, field, at, _REFERENCE, slot, path)
            return None
        distance = self.u32(at)
        if at + distance > _32_BITS:
            self.fault(at, _REFERENCE, shape, field, path, f"the reference {distance} leads beyond 32 bits")
            return None
        return at + distance

    def vector(self, shape: Shape, field: Field, reference: int, vector: int, path: str, depth: int) -> None:
        if not self.holds(vector, _COUNT):
            self.fault(reference, _REFERENCE, shape, field, path,
                       f"the vector would be at {vector}, outside of the message of {self.size}")
            return
        count = self.u32(vector)
        elements = vector + _COUNT
        left = self.size - elements
        if count > left // field.element_bytes:
            self.fault(vector, _COUNT, shape, field, path,
                       f"{count} elements of {field.element_bytes} bytes, and {left} bytes are left")
            return
        if field.form == "fixed array":
            if count != field.count:
                self.fault(vector, _COUNT, shape, field, path, f"{count} elements, where the array has {field.count}")
            return
        width = SHAPES[field.table].record_bytes if field.table is not None else field.element_bytes
        if count * width > _32_BITS:
            self.fault(vector, _COUNT, shape, field, path,
                       f"an array of {count} elements of {width} bytes is more than 32 bits can ask for")
        if field.table is None:
            return
        for k in range(count):
            at = elements + k * _REFERENCE
            element = f"{path}[{k}]"
            target = self.follow(shape, field, at, at, element)
            if target is not None:
                self.table(SHAPES[field.table], target, element, depth + 1, at)


def inspect(shape: Shape, message: bytes) -> Inspection:
    """Walks through a message."""
    if not SHORTEST <= len(message) <= LONGEST:
        what = f"{len(message)} bytes, where a message has {SHORTEST} to {LONGEST}"
        return Inspection("argument", None, [Fault(0, len(message), shape.name, None, "", what)])
    return _Walker(shape, message).run()
