# SPDX-License-Identifier: Apache-2.0
# What libvorn_nac_inspect does with messages and records, called from Python.
import ctypes
import json
from dataclasses import dataclass
from typing import Any, NamedTuple, Optional

from . import _library
from ._catalogue import CField, CType, Shape
from ._errors import BadRecord

MOST_FAULTS = 100
VERDICTS = ("ok", "argument", "header", "field", "memory")

_LAYOUTS = ("compact", "image", "other")
_WHY_BYTES = 1024
_ALL = ctypes.c_size_t(-1).value


class _CFault(ctypes.Structure):
    _fields_ = [("at", ctypes.c_uint32), ("bytes", ctypes.c_uint32), ("table", ctypes.POINTER(CType)),
                ("field", ctypes.POINTER(CField)), ("path", ctypes.c_char_p), ("what", ctypes.c_char_p)]


_FaultHandler = ctypes.CFUNCTYPE(ctypes.c_int32, ctypes.POINTER(_CFault), ctypes.c_void_p)
_TextHandler = ctypes.CFUNCTYPE(ctypes.c_int32, ctypes.c_void_p, ctypes.c_size_t, ctypes.c_void_p)


def _function(name: str, result: Any, *arguments: Any) -> Any:
    function = getattr(_library.inspect, name)
    function.restype, function.argtypes = result, arguments
    return function


_pointer, _size, _i32, _u32 = ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int32, ctypes.c_uint32
unpack = _function("vorn_inspect_unpack", _i32, _pointer, _pointer, _size, _pointer)
packed_bytes = _function("vorn_inspect_packed_bytes", _u32, _pointer, _pointer)
write_image = _function("vorn_inspect_write_image", _u32, _pointer, _pointer, _pointer, _u32)
_walk = _function("vorn_inspect_walk", _i32, _pointer, _pointer, _size, _pointer, _FaultHandler, _pointer, _pointer)
_to_json = _function("vorn_inspect_to_json", _i32, _pointer, _pointer, _size, _TextHandler, _pointer)
from_json = _function("vorn_inspect_from_json", _i32, _pointer, _pointer, _size, _pointer, _pointer, _size)
free_record = _function("vorn_inspect_free_record", None, _pointer, _pointer)


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


def inspection(shape: Shape, message: bytes) -> Inspection:
    """Walks through a message."""
    faults: list[Fault] = []
    more = 0

    def add(pointer: Any, context: int) -> int:
        nonlocal more
        if len(faults) == MOST_FAULTS:
            more += 1
        else:
            fault = pointer.contents
            faults.append(Fault(fault.at, fault.bytes, fault.table.contents.name.decode(),
                                fault.field.contents.name.decode() if fault.field else None, fault.path.decode(),
                                fault.what.decode()))
        return 0

    layout = _u32()
    verdict = VERDICTS[_walk(shape.address, message, len(message), None, _FaultHandler(add), None,
                             ctypes.addressof(layout))]
    return Inspection(verdict, None if verdict == "argument" else _LAYOUTS[layout.value], faults, more)


def json_of(shape: Shape, struct: Any) -> Any:
    """A record's struct as the tool prints it."""
    pieces: list[bytes] = []

    def add(text: int, size: int, context: int) -> int:
        pieces.append(ctypes.string_at(text, size))
        return 0

    _to_json(shape.address, struct, _ALL, _TextHandler(add), None)
    return json.loads(b"".join(pieces))


def fill_from_json(shape: Shape, given: Any, struct: Any) -> None:
    """Fills zeroed storage of a struct, which then has arrays for free_record, also after an exception."""
    try:
        text = json.dumps(given).encode()
    except (TypeError, ValueError) as error:
        raise BadRecord(f"{shape.name}: {error}") from None
    why = ctypes.create_string_buffer(_WHY_BYTES)
    if from_json(shape.address, text, len(text), struct, why, len(why)) != 0:
        raise BadRecord(f"{shape.name}: {why.value.decode(errors='replace')}")
