# SPDX-License-Identifier: Apache-2.0
# Catalogues: the layout of records in memory and on the wire. vorn_inspect.h has the same in C.
import ctypes
import os
from dataclasses import dataclass, field
from typing import Any, Optional, Union

from . import _library
from ._errors import BadCatalogue

_FORMS = ("scalar", "fixed array", "nested table", "scalar vector", "table vector")
_DISPLAYS = ("number", "hardware address", "IPv6 address", "hexadecimal", "numbers", "table", "tables")
_NO_OFFSET = 0xFFFFFFFF
_IMAGE_TABLE = 4  # in the fixed image; the library counts from there


@dataclass(frozen=True, slots=True)
class Field:
    """One field of a record."""

    name: str
    kind: str  # "u32", "u8[6]", "Nac_SrvCar", "[u16]", "[Nac_Ipv6Addr]"
    form: str  # "scalar", "fixed array", "nested table", "scalar vector", "table vector"
    display: str  # "number", "hardware address", "IPv6 address", "hexadecimal", "numbers", "table", "tables"
    element_bytes: int  # of a scalar or an element on the wire; of a table: of its reference
    count: int  # elements inside the record; 0: a vector
    table: Optional[str]  # the type of nested records
    record_offset: int  # in the record; of a vector: of its pointer
    count_offset: Optional[int]  # of a vector: of its count
    slot: int  # in the vtable
    image_offset: Optional[int]  # in the fixed image, whose table is at 4
    image_bytes: Optional[int]  # there, with all that it refers to


@dataclass(frozen=True, slots=True)
class Shape:
    """One record type."""

    name: str
    module: Optional[str]  # None: no message, it travels only inside others
    id: Optional[int]
    record_bytes: int
    vtable_bytes: int
    image_bytes: Optional[int]  # None: it has vectors, and so no fixed image
    image_table_length: Optional[int]
    image_vtable_offset: Optional[int]
    fields: tuple[Field, ...]
    address: int = field(repr=False, compare=False)  # of the library's description of it


class CField(ctypes.Structure):
    """vorn_field."""


class CType(ctypes.Structure):
    """vorn_type, as far as it is used here."""


class CCatalogue(ctypes.Structure):
    """vorn_catalogue."""


CField._fields_ = [("name", ctypes.c_char_p), ("type_name", ctypes.c_char_p), *((name, ctypes.c_uint32) for name in (
    "id", "kind", "display", "element_bytes", "count", "record_offset", "count_offset", "slot", "image_offset",
    "image_bytes")), ("table", ctypes.POINTER(CType))]
CType._fields_ = [("name", ctypes.c_char_p), ("module", ctypes.c_char_p), *((name, ctypes.c_uint32) for name in (
    "id", "record_bytes", "vtable_bytes", "image_bytes", "image_table_length", "image_vtable_offset")),
    ("fields", ctypes.POINTER(ctypes.POINTER(CField))), ("field_count", ctypes.c_uint32), ("reserved", ctypes.c_uint32),
    ("root_decoder", ctypes.c_char_p), ("nested_decoder", ctypes.c_char_p),
    ("pack", ctypes.CFUNCTYPE(ctypes.c_uint32, *[ctypes.c_void_p] * 3)), ("unpack", ctypes.c_void_p),
    ("free_unpacked", ctypes.CFUNCTYPE(None, ctypes.c_void_p))]
CCatalogue._fields_ = [("package", ctypes.c_char_p), ("types", ctypes.POINTER(ctypes.POINTER(CType))),
                       ("type_count", ctypes.c_uint32), ("module_count", ctypes.c_uint32), ("modules", ctypes.c_void_p),
                       ("messages_by_id", ctypes.c_void_p), ("message_count", ctypes.c_uint32),
                       ("tables_version", ctypes.c_uint32), ("verify", ctypes.c_void_p)]


def _field(given: CField) -> Field:
    has_image = given.image_offset != _NO_OFFSET
    return Field(given.name.decode(), given.type_name.decode(), _FORMS[given.kind], _DISPLAYS[given.display],
                 given.element_bytes, given.count, given.table.contents.name.decode() if given.table else None,
                 given.record_offset, given.count_offset if given.count_offset != _NO_OFFSET else None, given.slot,
                 given.image_offset + _IMAGE_TABLE if has_image else None, given.image_bytes if has_image else None)


def _shape(given: CType) -> Shape:
    is_message, has_image = given.module is not None, given.image_bytes != 0
    return Shape(given.name.decode(), given.module.decode() if is_message else None, given.id if is_message else None,
                 given.record_bytes, given.vtable_bytes, given.image_bytes if has_image else None,
                 given.image_table_length if has_image else None,
                 given.image_vtable_offset + _IMAGE_TABLE if has_image else None,
                 tuple(_field(given.fields[k].contents) for k in range(given.field_count)), ctypes.addressof(given))


def shapes_of(catalogue: Any) -> dict[str, Shape]:
    """The types of a catalogue by name, each after the tables in it."""
    types = catalogue.contents.types
    return {shape.name: shape for shape in (_shape(types[k].contents) for k in range(catalogue.contents.type_count))}


_library.inspect.vorn_nac_catalogue.restype = ctypes.POINTER(CCatalogue)
_library.inspect.vorn_inspect_load.restype = ctypes.POINTER(CCatalogue)
_library.inspect.vorn_inspect_load.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.c_size_t]
_WHY_BYTES = 1024

CATALOGUES = [_library.inspect.vorn_nac_catalogue()]  # whose messages a bus knows
SHAPES = shapes_of(CATALOGUES[0])


def loaded(path: Union[str, "os.PathLike[str]"]) -> Any:
    """The catalogue of a file."""
    why = ctypes.create_string_buffer(_WHY_BYTES)
    catalogue = _library.inspect.vorn_inspect_load(os.fsencode(path), why, _WHY_BYTES)
    if not catalogue:
        raise BadCatalogue(why.value.decode(errors="replace"))
    return catalogue
