# SPDX-License-Identifier: Apache-2.0
# Makes the functions that copy a record between its object and the C struct that the library reads and writes.
#
# A struct, with the tables inside it, is one struct.Struct. Its values are taken from the objects, or given to their
# classes, by Python source that is written and compiled once for each type: a loop over fields at run time would cost
# more than all else. `Source` has that source.
import ctypes
import struct
from typing import Any, Callable, NamedTuple

from ._catalogue import Field
from ._errors import BadRecord, shown

_CODES = {1: "B", 2: "H", 4: "I", 8: "Q"}
_POINTER = _CODES[ctypes.sizeof(ctypes.c_void_p)]
_ALIGNMENT = 8  # of every array that a record points to

RecordType = Any  # a class derived from Record, which needs this module
RecordTypes = dict[str, RecordType]


class Copier(NamedTuple):
    """What copies records of one type."""

    # The record's struct. Its arrays are appended to the bytearray, which will lie at the address.
    write: Callable[[Any, bytearray, int], bytes]
    read: Callable[[Any], Any]  # the record of a struct's bytes, of which the arrays are in memory
    read_all: Callable[[bytes], list[Any]]  # the records of structs that follow one another
    has_arrays: bool


class Unfit(Exception):
    """A value does not fit; `explain` finds out which."""


def _as_bytes(value: Any) -> bytes:
    if isinstance(value, (bytearray, memoryview)):
        return bytes(value)
    raise Unfit


def _as_list(value: Any) -> Any:
    if isinstance(value, (list, tuple)):
        return value
    raise Unfit


def _put(out: bytearray, base: int, array: bytes) -> int:
    """Appends an array; its address, or null if it is empty."""
    if not array:
        return 0
    out += bytes(-len(out) % _ALIGNMENT)
    address = base + len(out)
    out += array
    return address


def _numbers(address: int, count: int, code: str) -> list[int]:
    return list(struct.unpack(f"={count}{code}", ctypes.string_at(address, count * struct.calcsize(code)))) if address else []


class Source:
    """The source of the functions of one type."""

    def __init__(self, record_type: RecordType, types: RecordTypes, copiers: Callable[[RecordType], Copier]) -> None:
        self._types = types
        self._copiers = copiers
        self._format = "="
        self._end = 0  # of what the format holds
        self._values: list[str] = []  # the variables that the format fills
        self._given: list[str] = []  # the expressions that fill the format
        self._lines: list[str] = []
        self.has_arrays = False
        self.names: dict[str, Any] = {
            "Unfit": Unfit, "as_bytes": _as_bytes, "as_list": _as_list, "put": _put, "numbers": _numbers,
            "pack_array": struct.pack, "string_at": ctypes.string_at}
        made = self._table(record_type, 0, "record")
        self._add(record_type.shape.record_bytes, "", "")
        self.struct = struct.Struct(self._format)
        self.names.update(pack=self.struct.pack, unpack=self.struct.unpack, iter_unpack=self.struct.iter_unpack)
        values = ", ".join(self._values) + ","
        self.writer = "\n    ".join(["def write(record, out, base):", *self._lines,
                                     f"return pack({', '.join(self._given)})"])
        self.reader = f"def read(raw):\n    {values} = unpack(raw)\n    return {made}"
        self.all_reader = f"def read_all(raw):\n    return [{made} for {values} in iter_unpack(raw)]"

    def _add(self, at: int, code: str, given: str, values: int = 1) -> str:
        """Puts a value at this offset of the struct; the variable to which it is read."""
        self._format += "x" * (at - self._end) + code
        self._end = at + struct.calcsize("=" + code)
        if not code:
            return ""
        self._given.append(given)
        names = [f"v{len(self._values) + k}" for k in range(values)]
        self._values += names
        return ", ".join(names)

    def _name(self, value: Any, kind: str) -> str:
        """The name under which the functions find a value."""
        name = f"{kind}{len(self.names)}"
        self.names[name] = value
        return name

    def _line(self, text: str) -> None:
        self._lines.append(text)

    def _table(self, record_type: RecordType, start: int, source: str) -> str:
        """Adds the fields of the table that the variable `source` holds; the expression that makes its object."""
        name = self._name(record_type, "Type")
        self._line(f"if {source}.__class__ is not {name} and not isinstance({source}, {name}): raise Unfit")
        return f"{name}({', '.join(self._field(field, start, source) for field in record_type.shape.fields)})"

    def _field(self, field: Field, start: int, source: str) -> str:
        at = start + field.record_offset
        value = f"{source}.{field.name}"
        if field.form == "scalar":
            return self._add(at, _CODES[field.element_bytes], value)
        local = f"{source}_{field.name}"
        self._line(f"{local} = {value}")
        if field.form == "nested table":
            assert field.table is not None
            return self._table(self._types[field.table], at, local)
        is_bytes = field.table is None and field.element_bytes == 1
        usual = "bytes" if is_bytes else "list"
        self._line(f"if {local}.__class__ is not {usual}: {local} = as_{usual}({local})")
        if field.form == "fixed array":
            self._line(f"if len({local}) != {field.count}: raise Unfit")
            if is_bytes:
                return self._add(at, f"{field.count}s", local)
            return f"[{self._add(at, f'{field.count}{_CODES[field.element_bytes]}', '*' + local, field.count)}]"
        return self._vector(field, start, at, local, is_bytes)

    def _vector(self, field: Field, start: int, at: int, local: str, is_bytes: bool) -> str:
        assert field.count_offset is not None
        self.has_arrays = True
        width = field.element_bytes if field.table is None else self._types[field.table].shape.record_bytes
        # Counted as bytes, which no other thread changes.
        count = self._add(start + field.count_offset, "I", f"len({local}) // {width}")
        pointer = self._add(at, _POINTER, f"put(out, base, {local})")
        if field.table is not None:
            copier = self._copiers(self._types[field.table])
            write, read_all = self._name(copier.write, "write"), self._name(copier.read_all, "read_all")
            self._line(f'{local} = b"".join([{write}(each, out, base) for each in {local}])')
            return f"{read_all}(string_at({pointer}, {count} * {width})) if {pointer} else []"
        if is_bytes:
            return f'string_at({pointer}, {count}) if {pointer} else b""'
        code = _CODES[width]
        self._line(f'{local} = pack_array(f"={{len({local})}}{code}", *{local})')
        return f'numbers({pointer}, {count}, "{code}")'


def make(record_type: RecordType, types: RecordTypes, copiers: Callable[[RecordType], Copier]) -> Copier:
    """The copier of a type; `copiers` has those of others, to which its vectors lead."""
    source = Source(record_type, types, copiers)
    for text in (source.writer, source.reader, source.all_reader):
        exec(compile(text, f"<{record_type.__name__} of vorn_nac>", "exec"), source.names)
    return Copier(source.names["write"], source.names["read"], source.names["read_all"], source.has_arrays)


# ---- what is wrong with a record ------------------------------------------------------------------------


def explain(record: Any, record_type: RecordType, types: RecordTypes, path: str = "") -> None:
    """Raises BadRecord for the first value of a record that its field cannot hold."""
    path = path or record_type.__name__
    if not isinstance(record, record_type):
        raise BadRecord(f"{path}: {shown(record)} is no {record_type.__name__}")
    for field in record_type.shape.fields:
        here = f"{path}.{field.name}"
        value = getattr(record, field.name)
        if field.form == "scalar":
            _explain_number(value, field.element_bytes, here)
        elif field.table is not None and field.form == "nested table":
            explain(value, types[field.table], types, here)
        elif field.table is None and field.element_bytes == 1:
            if not isinstance(value, (bytes, bytearray, memoryview)):
                hint = ": text.encode() makes bytes of text" if isinstance(value, str) else ""
                raise BadRecord(f"{here}: {shown(value)} is no bytes{hint}")
            _explain_length(field, len(bytes(value)), here)
        elif not isinstance(value, (list, tuple)):
            raise BadRecord(f"{here}: {shown(value)} is no list")
        else:
            for k, each in enumerate(value):
                if field.table is not None:
                    explain(each, types[field.table], types, f"{here}[{k}]")
                else:
                    _explain_number(each, field.element_bytes, f"{here}[{k}]")
            _explain_length(field, len(value), here)


def _explain_number(value: Any, width: int, path: str) -> None:
    if not hasattr(value, "__index__"):
        raise BadRecord(f"{path}: {shown(value)} is no integer")
    if not 0 <= value.__index__() < 1 << 8 * width:
        raise BadRecord(f"{path}: {shown(value)} does not fit into {8 * width} bits")


def _explain_length(field: Field, count: int, path: str) -> None:
    if field.form == "fixed array" and count != field.count:
        raise BadRecord(f"{path}: {count} elements, where the array has {field.count}")
    if count > 0xFFFFFFFF:
        raise BadRecord(f"{path}: more elements than 32 bits can count")

