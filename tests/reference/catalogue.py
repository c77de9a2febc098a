# SPDX-License-Identifier: Apache-2.0
"""The record types of the Nac package as data, and the numbers that follow from them."""

from __future__ import annotations

import json
import socket
from dataclasses import dataclass
from enum import Enum, auto
from pathlib import Path
from typing import Any

Record = dict[str, Any]


class Kind(Enum):
    SCALAR = auto()   # a number of 1, 2, 4 or 8 bytes
    TABLE = auto()    # a nested table, held inline in the record
    TABLES = auto()   # a vector of tables, held as count and array
    NUMBERS = auto()  # a vector of numbers (bytes included), held as count and array
    ARRAY = auto()    # a vector of always the same count, held inline


@dataclass(frozen=True)
class Field:
    kind: Kind
    width: int = 0   # bytes of the scalar, or of one element of a vector of numbers or fixed array
    count: int = 0   # elements of a fixed array
    table: str = ""  # name of the nested or element type

    @property
    def owns_array(self) -> bool:
        return self.kind in (Kind.TABLES, Kind.NUMBERS)

    @property
    def is_vector(self) -> bool:
        """Whether the field travels as count and elements that a reference leads to."""
        return self.owns_array or self.kind is Kind.ARRAY


def table(name: str) -> Field:
    return Field(Kind.TABLE, table=name)


def tables(name: str) -> Field:
    return Field(Kind.TABLES, table=name)


def array(count: int, width: int = 1) -> Field:
    return Field(Kind.ARRAY, width=width, count=count)


U8, U16, U32, U64 = (Field(Kind.SCALAR, width=width) for width in (1, 2, 4, 8))
BYTES, U16S, U32S = (Field(Kind.NUMBERS, width=width) for width in (1, 2, 4))
MAC, IPV6 = array(6), array(16)

MALLOC_LINE = "[KAPLO]:Malloc unpack data unsuccess," + " " * 16 + "size(%u)"
MALLOC_LINE_ONE_BLANK = "[KAPLO]:Malloc unpack data unsuccess, size(%u)"


@dataclass(frozen=True)
class RecordType:
    name: str
    fields: tuple[Field, ...]
    # The root unpack leaves header checks and arrays to the nested decoder, so that these carry its name.
    decodes_as_nested: bool = False
    malloc_line: str = MALLOC_LINE
    # The compact writer puts all scalars before all references; elsewhere they mix in field-id order.
    references_last: bool = False
    # The stored table length counts, of all vector bodies, only those of the fixed arrays.
    counts_fixed_arrays_only: bool = False
    # Release hands the arrays of numbers to the free hook even when there is none.
    releases_null_numbers: bool = False

    @property
    def slots(self) -> int:
        return len(self.fields)

    @property
    def vtable_length(self) -> int:
        return 4 + 2 * self.slots

    @property
    def owns_arrays(self) -> bool:
        return any(field.owns_array for field in self.fields)

    @property
    def has_vector(self) -> bool:
        return any(field.is_vector for field in self.fields)

    @property
    def cleared_first(self) -> bool:
        """Whether unpack clears the record before the header checks, so that a header fault shows."""
        return self.decodes_as_nested or self.owns_arrays

    @property
    def unpack_name(self) -> str:
        return self.name + "_unpack"

    @property
    def nested_name(self) -> str:
        return self.name + "_unpack_non_root"

    @property
    def root_name(self) -> str:
        """The name under which the root's header faults and allocations go."""
        return self.nested_name if self.decodes_as_nested else self.unpack_name

    @property
    def free_name(self) -> str:
        return self.name + "_free_unpacked"

    @property
    def message_id(self) -> int:
        return fnv1a("Nac." + self.name.removeprefix("Nac_"))


def fnv1a(text: str) -> int:
    value = 0x811C9DC5
    for byte in text.encode("ascii"):
        value = (value ^ byte) * 0x01000193 & 0xFFFFFFFF
    return value


_SET_USER_TABLE = (
    U32, U32, U32, U32, U32, MAC, U32, U32, U32, U32,                                  # f0 .. f9
    U32, U32, tables("Nac_Ipv6Addr"), U32, U8, U16S, U16S, U16, U16,                   # f10 .. f18
    table("Nac_SrvCar"), table("Nac_SrvCar"), U16, U16, U16, U8, U16, U8, U8, U32,     # f19 .. f28
    U8, U8, BYTES, tables("Nac_RadiusDaclRule"), table("Nac_UserDetectInfo"),          # f29 .. f33
    U8, U8, U8, U8, U32, U32, U32, U8, BYTES, U32,                                     # f34 .. f43
    U8, U8, U8, U64, U8, U8, U8, BYTES, U32S, array(16, width=2), U8,                  # f44 .. f54
)

# In the order in which the receive side registers them, module by module.
_MESSAGES = (
    RecordType("Nac_UserDataFlowCfg", (U64,) * 4),
    RecordType("Nac_UserDataFlowInfo", (U32, U32) + (table("Nac_UserDataFlowCfg"),) * 4, decodes_as_nested=True),
    RecordType("Nac_UserDataFlowMsg", (tables("Nac_UserDataFlowInfo"),), decodes_as_nested=True),
    RecordType("Nac_UserDataFlowQueryMsg", (U32, U32)),
    RecordType("Nac_UserDataFlowQueryAckMsg", (U32, table("Nac_UserDataFlowInfo"))),
    RecordType("Nac_PortVlanChangeMsg", (U32, U32, U16)),
    RecordType("Nac_SetPortMsg", (U32, U32)),
    RecordType("Nac_CfgUclGroupIp", (U32, U32, U32, U32, U8)),
    RecordType("Nac_ConfigAccessUserUclGroupIpMsg", (U8, table("Nac_CfgUclGroupIp"))),
    RecordType("Nac_ConfigAccessUserUclGroupIpAckMsg", (U32, U8, table("Nac_CfgUclGroupIp"))),
    RecordType("Nac_UclGroupIpArray", (U32, tables("Nac_ConfigAccessUserUclGroupIpMsg")),
               malloc_line=MALLOC_LINE_ONE_BLANK),
    RecordType("Nac_UclGroupIpAckArray", (U32, tables("Nac_ConfigAccessUserUclGroupIpAckMsg")),
               malloc_line=MALLOC_LINE_ONE_BLANK),
    RecordType("Nac_SetUserTableMsg", _SET_USER_TABLE, decodes_as_nested=True, references_last=True,
               counts_fixed_arrays_only=True, releases_null_numbers=True),
    RecordType("Nac_SetUserTableAckMsg", (U32,) * 4 + (U16,) + (U32,) * 4, decodes_as_nested=True),
    RecordType("Nac_UserTableHitMsg", (U32,) * 6, decodes_as_nested=True),
    RecordType("Nac_L2NotifyNacUserOfflineMsg", (U32, U32, U32, U16, MAC, U32, U32, U32),
               decodes_as_nested=True, references_last=True),
    RecordType("Nac_TableVersionChangeMsg", (U32,)),
    RecordType("Nac_UserTableSyncAckMsg", (U32,) * 5),
    RecordType("Nac_DaclRuleIpInfo",
               (U32,) * 4 + (IPV6,) * 4 + (U16,) * 8 + (MAC,) * 2 + (U16,) * 4 + (U8,) * 5 + (U16,),
               decodes_as_nested=True, references_last=True),
    RecordType("Nac_RadiusDaclRule", (U8,) + (U32,) * 5 + (table("Nac_DaclRuleIpInfo"),), decodes_as_nested=True),
    RecordType("Nac_UserDetectInfo", (U8, U8, U32)),
    RecordType("Nac_IpsecAuthenReqMsg",
               (U32,) * 5 + (BYTES, BYTES, U8, BYTES, MAC) + (U32,) * 5 + (BYTES,), decodes_as_nested=True),
    RecordType("Nac_IpsecAuthenAckMsg", (U32,) * 14 + (BYTES,) * 3, decodes_as_nested=True),
    RecordType("Nac_IpsecDownReqMsg", (U32,) * 5),
    RecordType("Nac_IpsecDownAckMsg", (U32,) * 5),
)

# These travel only inside other tables: no message id, no exported functions.
_NESTED_ONLY = (
    RecordType("Nac_Ipv6Addr", (IPV6,)),
    RecordType("Nac_SrvCar", (U8, U32, U32, U32, U32)),
)

# What the library says of its types: of those that came later it is all there is, and of the others check() compares it.
_ON_RECORD = [json.loads(line) for line in Path(__file__).with_name("descriptions.jsonl").read_text().splitlines()]


def _described(field: dict[str, Any]) -> Field:
    kind = {"scalar": Kind.SCALAR, "fixed array": Kind.ARRAY, "nested table": Kind.TABLE, "scalar vector": Kind.NUMBERS,
            "table vector": Kind.TABLES}[field["form"]]
    width = 0 if field["table"] else field["element_bytes"]
    return Field(kind, width, field["count"] if kind is Kind.ARRAY else 0, field["table"] or "")


_LATER = tuple(RecordType(each["name"], tuple(map(_described, each["fields"]))) for each in _ON_RECORD
               if each["name"] not in {known.name for known in _MESSAGES + _NESTED_ONLY})
_TABLES = {each["name"] for each in _ON_RECORD if each["id"] is None}

MESSAGES: tuple[str, ...] = tuple(each.name for each in _MESSAGES + _LATER if each.name not in _TABLES)
TYPES: dict[str, RecordType] = {each.name: each for each in _MESSAGES + _NESTED_ONLY + _LATER}


def record_layout(name: str) -> tuple[int, int]:
    """Size and alignment of the record that unpack fills, on a machine with 8-byte pointers."""
    end, widest = 0, 1

    def append(size: int, alignment: int) -> None:
        nonlocal end, widest
        end = round_up(end, alignment) + size
        widest = max(widest, alignment)

    for field in TYPES[name].fields:
        if field.kind is Kind.SCALAR:
            append(field.width, field.width)
        elif field.kind is Kind.ARRAY:
            append(field.count * field.width, field.width)
        elif field.kind is Kind.TABLE:
            append(*record_layout(field.table))
        else:
            append(4, 4)  # the count
            append(8, 8)  # the pointer
    return round_up(end, widest), widest


def record_size(name: str) -> int:
    return record_layout(name)[0]


@dataclass(frozen=True)
class ImageLayout:
    offsets: tuple[int, ...]  # field offsets from the table start, which is byte 4 of the image
    table_length: int
    vtable_at: int           # from the image start
    written: int             # bytes up to the end of the vtable
    length: int


def image_layout(name: str) -> ImageLayout:
    """The fixed image of a type whose record owns no arrays."""
    record_type = TYPES[name]
    if record_type.owns_arrays:
        raise ValueError(f"{name} has no fixed image")
    offsets: list[int] = []
    end = 4
    for field in record_type.fields:
        offsets.append(end)
        if field.kind is Kind.SCALAR:
            end += field.width
        elif field.kind is Kind.ARRAY:
            end += 8 + field.count * field.width
        else:
            end += image_layout(field.table).length
    vtable_at = 4 + round_up(end, 4)
    written = vtable_at + record_type.vtable_length
    return ImageLayout(tuple(offsets), end, vtable_at, written, round_up(written, 8))


def round_up(value: int, multiple: int) -> int:
    return -(-value // multiple) * multiple


# How field values stand in records: numbers for scalars, text for addresses and byte vectors, lists else.

def array_value(field: Field, raw: bytes, swapped: bool) -> Any:
    """The value of a fixed array from its bytes on the wire: an address, other bytes as hex text, or numbers."""
    if field == MAC:
        return raw.hex(":")
    if field == IPV6:
        return socket.inet_ntop(socket.AF_INET6, raw)
    return vector_value(field, raw, swapped)


def array_bytes(field: Field, value: Any, swapped: bool) -> bytes:
    if field == MAC:
        raw = bytes.fromhex(value.replace(":", ""))
    elif field == IPV6:
        raw = socket.inet_pton(socket.AF_INET6, value)
    else:
        raw = vector_bytes(field, value, swapped)
    if len(raw) != field.count * field.width:
        raise ValueError(f"{value!r} does not fill the array")
    return raw


def vector_value(field: Field, raw: bytes, swapped: bool) -> Any:
    return raw.hex() if field.width == 1 else numbers(raw, field.width, swapped)


def vector_bytes(field: Field, value: Any, swapped: bool) -> bytes:
    return bytes.fromhex(value) if field.width == 1 else number_bytes(value, field.width, swapped)


def byte_order(swapped: bool) -> str:
    return "big" if swapped else "little"


def numbers(raw: bytes, width: int, swapped: bool) -> list[int]:
    return [int.from_bytes(raw[at:at + width], byte_order(swapped)) for at in range(0, len(raw), width)]


def number_bytes(values: list[int], width: int, swapped: bool) -> bytes:
    return b"".join(value.to_bytes(width, byte_order(swapped)) for value in values)


def zero_value(field: Field) -> Any:
    if field.kind is Kind.SCALAR:
        return 0
    if field.kind is Kind.TABLE:
        return zero_record(field.table)
    if field.kind is Kind.ARRAY:
        return array_value(field, bytes(field.count * field.width), False)
    return "" if field.kind is Kind.NUMBERS and field.width == 1 else []


def zero_record(name: str) -> Record:
    return {f"f{i}": zero_value(field) for i, field in enumerate(TYPES[name].fields)}


def record_with(type_name: str, **values: Any) -> Record:
    """A zero record with some fields set."""
    record = zero_record(type_name)
    unknown = values.keys() - record.keys()
    if unknown:
        raise KeyError(f"{type_name} has no {sorted(unknown)}")
    return record | values


# What peers and callers rely on, written down once more by hand: id, record size, image length and the
# offset of the vtable in the image.
_PINNED: dict[str, tuple[int, int, int | None, int | None]] = {
    "Nac_UserDataFlowCfg": (1739711260, 32, 56, 40),
    "Nac_UserDataFlowInfo": (1306267774, 136, 256, 240),
    "Nac_UserDataFlowMsg": (405055467, 16, None, None),
    "Nac_UserDataFlowQueryMsg": (760077815, 8, 24, 16),
    "Nac_UserDataFlowQueryAckMsg": (127434504, 144, 280, 268),
    "Nac_PortVlanChangeMsg": (3722180448, 12, 32, 20),
    "Nac_SetPortMsg": (162890069, 8, 24, 16),
    "Nac_CfgUclGroupIp": (3706811115, 20, 48, 28),
    "Nac_ConfigAccessUserUclGroupIpMsg": (3927592541, 24, 72, 60),
    "Nac_ConfigAccessUserUclGroupIpAckMsg": (2030903690, 28, 80, 64),
    "Nac_UclGroupIpArray": (2813756148, 16, None, None),
    "Nac_UclGroupIpAckArray": (1411917765, 16, None, None),
    "Nac_SetUserTableMsg": (1201171741, 328, None, None),
    "Nac_SetUserTableAckMsg": (563611466, 36, 72, 44),
    "Nac_UserTableHitMsg": (3693736224, 24, 48, 32),
    "Nac_L2NotifyNacUserOfflineMsg": (65888119, 32, 72, 48),
    "Nac_TableVersionChangeMsg": (1937903990, 4, 24, 12),
    "Nac_UserTableSyncAckMsg": (3987961879, 20, 48, 28),
    "Nac_DaclRuleIpInfo": (3596447974, 124, 240, 180),
    "Nac_RadiusDaclRule": (803935917, 148, 296, 272),
    "Nac_UserDetectInfo": (1793511829, 8, 32, 16),
    "Nac_IpsecAuthenReqMsg": (1423602749, 104, None, None),
    "Nac_IpsecAuthenAckMsg": (1888098722, 104, None, None),
    "Nac_IpsecDownReqMsg": (3966946584, 20, 48, 28),
    "Nac_IpsecDownAckMsg": (722165955, 20, 48, 28),
}

_PINNED_IDS_HEX = (
    0x67B1E31C, 0x4DDC107E, 0x1824A7EB, 0x2D4DDDF7, 0x07987F08, 0xDDDBF760, 0x09B58155, 0xDCF172EB, 0xEA1A4E5D,
    0x790D218A, 0xA7B682F4, 0x542827C5, 0x47986D1D, 0x2198074A, 0xDC29F120, 0x03ED5F77, 0x73821176, 0xEDB37817,
    0xD65D70E6, 0x2FEB16AD, 0x6AE6D195, 0x54DA743D, 0x708A19A2, 0xEC72CD18, 0x2B0B60C3,
)

# Table length and field offsets of every image, as its vtable lists them.
_PINNED_VTABLES: dict[str, tuple[int, ...]] = {
    "Nac_UserDataFlowCfg": (36, 4, 12, 20, 28),
    "Nac_UserDataFlowInfo": (236, 4, 8, 12, 68, 124, 180),
    "Nac_UserDataFlowQueryMsg": (12, 4, 8),
    "Nac_UserDataFlowQueryAckMsg": (264, 4, 8),
    "Nac_PortVlanChangeMsg": (14, 4, 8, 12),
    "Nac_SetPortMsg": (12, 4, 8),
    "Nac_CfgUclGroupIp": (21, 4, 8, 12, 16, 20),
    "Nac_ConfigAccessUserUclGroupIpMsg": (53, 4, 5),
    "Nac_ConfigAccessUserUclGroupIpAckMsg": (57, 4, 8, 9),
    "Nac_SetUserTableAckMsg": (38, 4, 8, 12, 16, 20, 22, 26, 30, 34),
    "Nac_UserTableHitMsg": (28, 4, 8, 12, 16, 20, 24),
    "Nac_L2NotifyNacUserOfflineMsg": (44, 4, 8, 12, 16, 18, 32, 36, 40),
    "Nac_TableVersionChangeMsg": (8, 4),
    "Nac_UserTableSyncAckMsg": (24, 4, 8, 12, 16, 20),
    "Nac_DaclRuleIpInfo": (175, 4, 8, 12, 16, 20, 44, 68, 92, 116, 118, 120, 122, 124, 126, 128, 130, 132, 146,
                           160, 162, 164, 166, 168, 169, 170, 171, 172, 173),
    "Nac_RadiusDaclRule": (265, 4, 5, 9, 13, 17, 21, 25),
    "Nac_UserDetectInfo": (10, 4, 5, 6),
    "Nac_IpsecDownReqMsg": (24, 4, 8, 12, 16, 20),
    "Nac_IpsecDownAckMsg": (24, 4, 8, 12, 16, 20),
}


def check() -> None:
    """Compares everything derived above with the pinned numbers."""
    assert MESSAGES[:len(_PINNED)] == tuple(_PINNED) == tuple(each.name for each in _MESSAGES)
    for each in _ON_RECORD:
        assert tuple(map(_described, each["fields"])) == TYPES[each["name"]].fields, each["name"]
        assert each["record_bytes"] == record_size(each["name"]), each["name"]
        assert each["id"] in (None, TYPES[each["name"]].message_id), each["name"]
        if not TYPES[each["name"]].owns_arrays:
            assert each["image_bytes"] == image_layout(each["name"]).length, each["name"]
    assert record_size("Nac_Ipv6Addr") == 16 and record_size("Nac_SrvCar") == 20
    for (name, (message_id, size, length, vtable_at)), hex_id in zip(_PINNED.items(), _PINNED_IDS_HEX, strict=True):
        assert TYPES[name].message_id == message_id == hex_id, name
        assert record_size(name) == size, (name, record_size(name))
        assert TYPES[name].owns_arrays == (length is None), name
        if length is not None:
            layout = image_layout(name)
            assert (layout.length, layout.vtable_at) == (length, vtable_at), (name, layout)
            assert (layout.table_length, *layout.offsets) == _PINNED_VTABLES[name], (name, layout)
    user_table = TYPES["Nac_SetUserTableMsg"]
    assert user_table.slots == 55 and user_table.vtable_length == 114
    assert sum(field.kind is Kind.SCALAR for field in user_table.fields) == 42
    others = [i for i, field in enumerate(user_table.fields) if field.kind is not Kind.SCALAR]
    assert others == [5, 12, 15, 16, 19, 20, 31, 32, 33, 42, 51, 52, 53]


if __name__ == "__main__":
    check()
    print(f"{len(MESSAGES)} messages, {len(TYPES)} record types: all numbers agree")
