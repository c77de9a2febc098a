# SPDX-License-Identifier: Apache-2.0
# Packing, unpacking, verifying.
from __future__ import annotations

import ctypes
import socket
from typing import Any, Literal, TypeVar, Union, overload

from . import _image, _library, _memory, _walk, records
from ._record import BadRecord, Error, Record, UnknownType
from ._walk import Fault, Inspection

Layout = Literal["compact", "image", "sent"]
Bytes = Union[bytes, bytearray, memoryview]
R = TypeVar("R", bound=Record)

_RECORDS: dict[str, type[Record]] = {each.__name__: each for each in records.RECORDS}
TYPES: dict[str, type[Record]] = {name: each for name, each in _RECORDS.items() if each.shape.id is not None}
_BY_ID: dict[int, type[Record]] = {each.shape.id: each for each in TYPES.values() if each.shape.id is not None}

_REFUSED = 0xFFFFFFFF


class Damaged(Error, ValueError):
    """The bytes are not a valid message of their type.

    record: what unpack read before the first fault; verdict: "header", "field" or "argument"; faults: all faults that
    were found; lost: the counts of vectors whose arrays unpack gave up, by path.
    """

    def __init__(self, record: Record, inspection: Inspection, lost: dict[str, int]) -> None:
        self.record = record
        self.verdict = inspection.verdict
        self.faults = inspection.faults
        self.lost = lost
        super().__init__(f"{record.shape.name} is damaged: {self.faults[0]}")


def type_of(name_or_id: str | int) -> type[Record]:
    """The class of a message type: type_of("Nac_SetPortMsg"), type_of(0x09B58155)."""
    found = TYPES.get(name_or_id) if isinstance(name_or_id, str) else _BY_ID.get(name_or_id)
    if found is None:
        shown = name_or_id if isinstance(name_or_id, str) else f"0x{name_or_id:08X}"
        raise UnknownType(f"{shown} is no message type; vorn_nac.TYPES has all of them")
    return found


def _message_type(given: type[Record] | str | int) -> type[Record]:
    if not isinstance(given, type):
        return type_of(given)
    if not issubclass(given, Record) or given.__name__ not in TYPES:
        raise UnknownType(f"{given.__name__} is no message: it travels only inside others")
    return given


def pack(record: Record, layout: Layout = "compact") -> bytes:
    """The record as a message.

    layout: "compact", as the library's pack writes it; "image", the fixed image, which types with vectors lack; "sent",
    the one of the two in which the type goes to the bus. Raises BadRecord for a value that its field cannot hold.
    """
    shape = _message_type(type(record)).shape
    if layout not in ("compact", "image", "sent"):
        raise ValueError(f"{layout!r} is no layout; there are compact, image and sent")
    if layout == "image" or layout == "sent" and shape.image_bytes is not None:
        return _image.image(record, _RECORDS)
    memory = _memory.Memory(record, _RECORDS)
    function = _library.codec[f"{shape.name}__pack"]
    function.restype = ctypes.c_uint32
    # Without a buffer it returns the size.
    length = ctypes.c_uint32(_REFUSED)
    if function(memory.record, None, ctypes.byref(length)) == _REFUSED:
        raise Error(f"{shape.name} cannot be packed: it is larger than 32 bits can count")
    buffer = ctypes.create_string_buffer(max(length.value, 1))
    if function(memory.record, buffer, ctypes.byref(length)) == _REFUSED:
        raise Error(f"{shape.name} cannot be packed")
    return buffer.raw[:length.value]


@overload
def unpack(message_type: type[R], data: Bytes) -> R: ...
@overload
def unpack(message_type: str | int, data: Bytes) -> Record: ...


def unpack(message_type: type[Record] | str | int, data: Bytes) -> Record:
    """The record that a message holds; the type is a class, a name or an id.

    Raises Damaged if the bytes are not a valid message; the exception has what could be read.
    """
    record_type = _message_type(message_type)
    received = bytes(data)
    inspection = _walk.inspect(record_type.shape, received)
    if inspection.verdict == "argument":
        raise Damaged(record_type(), inspection, {})
    lost: dict[str, int] = {}
    memory = ctypes.create_string_buffer(record_type.shape.record_bytes)
    function = _library.codec[f"{record_type.__name__}__unpack"]
    function.restype = ctypes.c_uint32
    function(received, ctypes.c_uint32(len(received)), memory)
    try:
        record = _memory.read(record_type, ctypes.addressof(memory), _RECORDS, lost.__setitem__)
    finally:
        _library.codec[f"{record_type.__name__}_free__unpacked"](memory)
    if inspection.faults:
        raise Damaged(record, inspection, lost)
    return record


def inspect(message_type: type[Record] | str | int, data: Bytes) -> Inspection:
    """Verdict, layout and faults of a message, as `nac verify` prints them."""
    return _walk.inspect(_message_type(message_type).shape, bytes(data))


def verify(message_type: type[Record] | str | int, data: Bytes) -> list[Fault]:
    """The faults of a message; an empty list if it is valid.

    unpack stops at the first fault; verify finds later ones too, where it can.
    """
    return inspect(message_type, data).faults


def record_at(record_type: type[Record], address: int) -> Record:
    """Copies a record that belongs to the bus."""
    return _memory.read(record_type, address, _RECORDS, lambda path, count: None)


def to_json(record: Record) -> dict[str, Any]:
    """The record as the tool prints it: addresses and byte strings as text."""
    made: dict[str, Any] = {}
    for field in record.shape.fields:
        value = getattr(record, field.name)
        if field.form == "nested table":
            value = to_json(value)
        elif field.form == "table vector":
            value = [to_json(each) for each in value]
        elif isinstance(value, bytes):
            value = _bytes_text(value, field.display)
        made[field.name] = value
    return made


def from_json(message_type: type[R], given: dict[str, Any]) -> R:
    """The record of which the tool prints this; fields that are left out are zero."""
    known = {field.name: field for field in message_type.shape.fields}
    values: dict[str, Any] = {}
    for name, value in given.items():
        if name not in known:
            raise BadRecord(f"{message_type.__name__} has no field {name}")
        field = known[name]
        if field.table is not None and field.form == "nested table":
            value = from_json(_RECORDS[field.table], value)
        elif field.table is not None:
            value = [from_json(_RECORDS[field.table], each) for each in value]
        elif isinstance(value, str):
            value = _bytes_of(value, field.display)
        values[name] = value
    return message_type(**values)


def _bytes_text(value: bytes, display: str) -> str:
    if display == "hardware address":
        return value.hex(":")
    if display == "IPv6 address":
        return socket.inet_ntop(socket.AF_INET6, value)
    return value.hex()


def _bytes_of(text: str, display: str) -> bytes:
    if display == "IPv6 address":
        return socket.inet_pton(socket.AF_INET6, text)
    return bytes.fromhex(text.replace(":", "") if display == "hardware address" else text)
