# SPDX-License-Identifier: Apache-2.0
# Packing, unpacking, verifying.
import ctypes
import struct
from typing import Any, ClassVar, Iterable, Iterator, Literal, NamedTuple, Self, TypeVar, Union, overload

from . import _copier, _inspect
from ._catalogue import CType, Shape
from ._errors import BadRecord, Error, UnknownType, WrongKind, shown
from ._inspect import Fault, Inspection

Layout = Literal["compact", "image", "sent"]
Bytes = Union[bytes, bytearray, memoryview]
R = TypeVar("R", bound="Record")

_RECORDS: dict[str, type["Record"]] = {}  # all, by name
TYPES: dict[str, type["Record"]] = {}
TYPES_BY_ID: dict[int, type["Record"]] = {}

_REFUSED = 0xFFFFFFFF
_KEPT_BYTES = 1 << 20  # of buffers for the next call


class Record:
    """A record of one of the library's types. The types are dataclasses in vorn_nac.records.

    bytes(record) is the record as a message, TYPE.unpack(bytes) is the record of a message.
    """

    __slots__ = ()
    shape: ClassVar[Shape]

    def __init_subclass__(cls) -> None:
        if "shape" in vars(cls):
            _RECORDS[cls.shape.name] = cls
            if cls.shape.id is not None:
                TYPES[cls.shape.name] = TYPES_BY_ID[cls.shape.id] = cls

    def __bytes__(self) -> bytes:
        return pack(self)

    @classmethod
    def unpack(cls, data: Bytes) -> Self:
        """The record of this type that a message holds; see unpack of the module."""
        return unpack(cls, data)


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


# ---- types ----------------------------------------------------------------------------------------------


class _Codec(NamedTuple):
    """What packs and unpacks one message type."""

    copier: _copier.Copier
    address: int  # of the library's description of the type
    image_bytes: int  # 0: it has none
    pack: Any  # the library's functions
    free: Any
    memory: Any  # makes zeroed storage of a struct


_copiers: dict[type[Record], _copier.Copier] = {}
_codecs: dict[type[Any], _Codec] = {}


def copier_of(record_type: type[Record]) -> _copier.Copier:
    """What copies records of this type, which is made when it is first needed."""
    if record_type not in _copiers:
        _copiers[record_type] = _copier.make(record_type, _RECORDS, copier_of)
    return _copiers[record_type]


def known_types(names: Iterable[str]) -> set[str]:
    """Those of the names that are of a type."""
    return _RECORDS.keys() & set(names)


def type_of(name_or_id: str | int) -> type[Record]:
    """The class of a message type: type_of("Nac_SetPortMsg"), type_of(0x09B58155)."""
    found = TYPES.get(name_or_id) if isinstance(name_or_id, str) else TYPES_BY_ID.get(name_or_id)
    if found is None:
        shown_id = name_or_id if isinstance(name_or_id, str) else f"0x{name_or_id:08X}"
        raise UnknownType(f"{shown_id} is no message type; vorn_nac.TYPES has all of them")
    return found


def _message_type(given: type[Record] | str | int) -> type[Record]:
    if isinstance(given, (str, int)):
        return type_of(given)
    if not isinstance(given, type) or not issubclass(given, Record) or given is Record:
        kind = "a record" if isinstance(given, Record) else shown(given)
        raise WrongKind(f"{kind} was given for a message type: give its class, its name or its id")
    if given.shape.id is None:
        raise UnknownType(f"{given.__name__} is no message: it travels only inside others")
    return given


def _codec_of(message_type: type[Record]) -> _Codec:
    """Of a class that was not asked for before."""
    shape = message_type.shape
    functions = CType.from_address(shape.address)
    made = _Codec(copier_of(message_type), shape.address, shape.image_bytes or 0, functions.pack, functions.free_unpacked,
                  ctypes.c_char * shape.record_bytes)
    return _codecs.setdefault(message_type, made)


def _not_a_record(given: Any) -> WrongKind:
    if isinstance(given, type) and issubclass(given, Record):
        return WrongKind(f"the class {given.__name__} was given for a record: {given.__name__}(...) makes one")
    hint = ": from_json(TYPE, ...) makes a record of it" if isinstance(given, dict) else ""
    return WrongKind(f"{shown(given)} was given for a record{hint}")


def _to_bytes(data: Bytes) -> bytes:
    """A message that the user gave."""
    if isinstance(data, (bytes, bytearray, memoryview)):
        return bytes(data)
    hint = "; bytes.fromhex makes bytes of hexadecimal text" if isinstance(data, str) else ""
    raise WrongKind(f"{shown(data)} was given for the bytes of a message{hint}")


# ---- packing --------------------------------------------------------------------------------------------


class _Scratch:
    """Memory for one call. Calls in other threads, in signal handlers and in finalizers have their own."""

    def __init__(self) -> None:
        self.length = ctypes.c_uint32()
        self.length_reference = ctypes.byref(self.length)
        self.resize_arrays(4096)
        self.resize_packed(4096)

    def resize_arrays(self, size: int) -> None:
        self.arrays = ctypes.create_string_buffer(size)
        self.arrays_address = ctypes.addressof(self.arrays)

    def resize_packed(self, size: int) -> None:
        self.packed: Any = ctypes.create_string_buffer(size)


_scratches = [_Scratch()]


def _take_scratch() -> _Scratch:
    try:
        return _scratches.pop()
    except IndexError:
        return _Scratch()


def _give_back(scratch: _Scratch) -> None:
    if len(scratch.packed) + len(scratch.arrays) <= _KEPT_BYTES:
        _scratches.append(scratch)


def pack(record: Record, layout: Layout = "compact") -> bytes:
    """The record as a message.

    layout: "compact", as the library's pack writes it; "image", the fixed image, which types with vectors lack; "sent",
    the one of the two in which the type goes to the bus. Raises BadRecord for a value that its field cannot hold.
    """
    codec = _codecs.get(record.__class__)
    if codec is None:
        if not isinstance(record, Record):
            raise _not_a_record(record)
        codec = _codec_of(_message_type(type(record)))
    scratch = _take_scratch()
    struct_bytes = _write(codec.copier, record, scratch)
    length = scratch.length
    if layout == "compact" or layout == "sent" and not codec.image_bytes:
        length.value = len(scratch.packed)
        if codec.pack(struct_bytes, scratch.packed, scratch.length_reference) == _REFUSED:
            size = _inspect.packed_bytes(codec.address, struct_bytes)
            if size == 0:
                raise Error(f"{type(record).__name__} cannot be packed: it is larger than 32 bits can count")
            scratch.resize_packed(size)
            length.value = size
            codec.pack(struct_bytes, scratch.packed, scratch.length_reference)
    elif layout not in ("image", "sent"):
        raise ValueError(f"{layout!r} is no layout; there are compact, image and sent")
    elif codec.image_bytes:
        if len(scratch.packed) < codec.image_bytes:
            scratch.resize_packed(codec.image_bytes)
        length.value = _inspect.write_image(codec.address, struct_bytes, scratch.packed, len(scratch.packed))
    else:
        raise BadRecord(f"{type(record).__name__} has vectors, and so no fixed image")
    packed: bytes = scratch.packed[:length.value]
    _give_back(scratch)
    return packed


def _write(copier: _copier.Copier, record: Record, scratch: _Scratch) -> bytes:
    """The record's struct, whose arrays are in the scratch."""
    try:
        arrays = bytearray()
        made = copier.write(record, arrays, scratch.arrays_address)
        if len(arrays) > len(scratch.arrays):
            scratch.resize_arrays(2 * len(arrays))
            arrays = bytearray()
            made = copier.write(record, arrays, scratch.arrays_address)
        if arrays:
            memoryview(scratch.arrays).cast("B")[:len(arrays)] = arrays
        return made
    except (_copier.Unfit, struct.error, AttributeError, TypeError, ValueError, OverflowError) as error:
        _copier.explain(record, type(record), _RECORDS)
        raise BadRecord(f"{type(record).__name__}: {error}") from error


# ---- unpacking ------------------------------------------------------------------------------------------


@overload
def unpack(message_type: type[R], data: Bytes) -> R: ...
@overload
def unpack(message_type: str | int, data: Bytes) -> Record: ...


def unpack(message_type: type[Record] | str | int, data: Bytes) -> Record:
    """The record that a message holds; the type is a class, a name or an id.

    Raises Damaged if the bytes are not a valid message; the exception has what could be read.
    """
    codec = _codecs.get(message_type) if isinstance(message_type, type) else None
    if codec is None:
        message_type = _message_type(message_type)
        codec = _codecs.get(message_type) or _codec_of(message_type)
    if data.__class__ is not bytes:
        data = _to_bytes(data)
    memory = codec.memory()
    verdict = _inspect.unpack(codec.address, data, len(data), memory)
    try:
        if verdict != 0:
            raise _damage(message_type, data, _inspect.VERDICTS[verdict], memory)
        made: Record = codec.copier.read(memory)
        return made
    finally:
        if codec.copier.has_arrays:
            codec.free(memory)


def _damage(message_type: Any, data: Bytes, verdict: str, memory: Any) -> Exception:
    """What unpack raises."""
    if verdict == "memory":
        return MemoryError(f"no memory for the arrays of {message_type.__name__}")
    lost = dict(_lost(_inspect.json_of(message_type.shape, memory), ""))
    return Damaged(_codecs[message_type].copier.read(memory), _inspect.inspection(message_type.shape, bytes(data)), lost)


def _lost(value: Any, path: str) -> Iterator[tuple[str, int]]:
    """Path and count of each vector whose array unpack gave up."""
    if isinstance(value, dict) and "lost" in value:
        yield path, value["lost"]
    elif isinstance(value, dict):
        for name, each in value.items():
            yield from _lost(each, f"{path}.{name}" if path else name)
    elif isinstance(value, list):
        for k, each in enumerate(value):
            yield from _lost(each, f"{path}[{k}]")


def inspect(message_type: type[Record] | str | int, data: Bytes) -> Inspection:
    """Verdict, layout and faults of a message, as `nac verify` prints them."""
    return _inspect.inspection(_message_type(message_type).shape, _to_bytes(data))


def verify(message_type: type[Record] | str | int, data: Bytes) -> list[Fault]:
    """The faults of a message; an empty list if it is valid.

    unpack stops at the first fault; verify finds later ones too, where it can.
    """
    return inspect(message_type, data).faults


# ---- JSON -----------------------------------------------------------------------------------------------


def to_json(record: Record) -> dict[str, Any]:
    """The record as the tool prints it: addresses and byte strings as text."""
    if not isinstance(record, Record):
        raise _not_a_record(record)
    scratch = _take_scratch()
    made: dict[str, Any] = _inspect.json_of(record.shape, _write(copier_of(type(record)), record, scratch))
    _give_back(scratch)
    return made


def from_json(message_type: type[R], given: dict[str, Any]) -> R:
    """The record of which the tool prints this; fields that are left out are zero."""
    if not isinstance(message_type, type) or not issubclass(message_type, Record):
        raise WrongKind(f"{shown(message_type)} was given for a record's class")
    shape = message_type.shape
    memory = ctypes.create_string_buffer(shape.record_bytes)
    try:
        _inspect.fill_from_json(shape, given, memory)
        made: R = copier_of(message_type).read(memory.raw)
        return made
    finally:
        _inspect.free_record(shape.address, memory)
