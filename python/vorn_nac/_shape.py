# SPDX-License-Identifier: Apache-2.0
# The layout of records in memory and on the wire. The shapes are in _shapes.py, which the build makes.
from dataclasses import dataclass
from typing import Optional


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
    image_offset: Optional[int]  # in the fixed image
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
