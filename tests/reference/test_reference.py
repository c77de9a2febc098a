# SPDX-License-Identifier: Apache-2.0
"""Tests of the reference reader and writer against numbers and bytes worked out by hand."""

from __future__ import annotations

import json
import os
import struct
import subprocess
import sys
from pathlib import Path
from random import Random
from typing import Any

import catalogue
from catalogue import IPV6, MAC, MESSAGES, TYPES, Field, Kind, Record, image_layout, record_size, record_with
from catalogue import zero_record
from make_corpus import cases, corpus_line
from reader import Decoder, LogLine, MemoryFault, Result, unpack
from samples import maximal_record, random_record
from writer import EMPTY, compact, compact_size, image

FLAT = tuple(name for name in MESSAGES if not TYPES[name].owns_arrays)
CFG, INFO, LIST = "Nac_UserDataFlowCfg", "Nac_UserDataFlowInfo", "Nac_UserDataFlowMsg"
QUERY, QUERY_ACK = "Nac_UserDataFlowQueryMsg", "Nac_UserDataFlowQueryAckMsg"
VLAN, PORT = "Nac_PortVlanChangeMsg", "Nac_SetPortMsg"
GROUP, GROUP_MSG, GROUP_ACK = ("Nac_CfgUclGroupIp", "Nac_ConfigAccessUserUclGroupIpMsg",
                               "Nac_ConfigAccessUserUclGroupIpAckMsg")
GROUPS, GROUP_ACKS = "Nac_UclGroupIpArray", "Nac_UclGroupIpAckArray"
USER, USER_ACK, HIT = "Nac_SetUserTableMsg", "Nac_SetUserTableAckMsg", "Nac_UserTableHitMsg"
OFFLINE, VERSION, SYNC = "Nac_L2NotifyNacUserOfflineMsg", "Nac_TableVersionChangeMsg", "Nac_UserTableSyncAckMsg"
DACL, RULE, DETECT = "Nac_DaclRuleIpInfo", "Nac_RadiusDaclRule", "Nac_UserDetectInfo"
AUTHEN, AUTHEN_ACK = "Nac_IpsecAuthenReqMsg", "Nac_IpsecAuthenAckMsg"
DOWN, DOWN_ACK = "Nac_IpsecDownReqMsg", "Nac_IpsecDownAckMsg"

CFG_VALUES = dict(f0=0x0102030405060708, f1=0x1112131415161718, f2=0x2122232425262728, f3=0x3132333435363738)


def u16(data: bytes, at: int) -> int:
    return struct.unpack_from("<H", data, at)[0]


def u32(data: bytes, at: int) -> int:
    return struct.unpack_from("<I", data, at)[0]


def i32(data: bytes, at: int) -> int:
    return struct.unpack_from("<i", data, at)[0]


def patched(data: bytes, at: int, value: int, width: int = 4) -> bytes:
    return data[:at] + (value % (1 << 8 * width)).to_bytes(width, "little") + data[at + width:]


def inserted(data: bytes, at: int, more: bytes) -> bytes:
    return data[:at] + more + data[at:]


def field_offset(data: bytes, i: int, reference_at: int = 0) -> int:
    """Where field i of the table that a reference leads to stands."""
    table = reference_at + u32(data, reference_at)
    vtable = table - i32(data, table)
    return table + u16(data, vtable + 4 + 2 * i)


def follow(data: bytes, at: int) -> int:
    return at + u32(data, at)


def line(category: int, function: str, format_: str, *args: Any) -> LogLine:
    return LogLine(category, function, format_, list(args))


def table_line(function: str, table: int, length: int) -> LogLine:
    return line(22, function, "[KAPLO]:Table offset(%u) is out of range(4 - %u)", table, length)


def vtable_line(function: str, table: int, last: int) -> LogLine:
    return line(22, function, "[KAPLO]:Vtable offset(%u) is out of range(4 - %u)", table, last)


def length_line(function: str, vtable_length: int, rest: int) -> LogLine:
    return line(22, function, "[KAPLO]:Vtable Len(%u) is out of range(0 - %u)", vtable_length, rest)


def expect(result: Result, outcome: str, record: Any = None, log: list[LogLine] | None = None) -> None:
    assert result.outcome == outcome, result
    assert result.log == (log or []), result.log
    if record is not None:
        assert result.record == record, result.record


def fail_at(k: int) -> Any:
    """An allocator whose k-th answer is no."""
    calls = iter(range(1 << 30))
    return lambda size, caller: next(calls) != k


# The catalogue.

def test_catalogue_agrees_with_pinned_numbers() -> None:
    catalogue.check()


def test_ids_of_two_names() -> None:
    assert catalogue.fnv1a("Nac.UserDataFlowCfg") == 1739711260
    assert catalogue.fnv1a("Nac.UserTableHitMsg") == 3693736224


# Bytes worked out by hand.

def test_cfg_compact_full() -> None:
    expected = bytes.fromhex(
        "10000000 0c00 2400 04000c0014001c00 0c000000"
        "0807060504030201 1817161514131211 2827262524232221 3837363534333231")
    assert len(expected) == 52
    assert compact(CFG, record_with(CFG, **CFG_VALUES)) == expected


def test_cfg_compact_two_fields() -> None:
    record = record_with(CFG, f1=CFG_VALUES["f1"], f3=CFG_VALUES["f3"])
    assert compact(CFG, record) == bytes.fromhex(
        "10000000 0c00 1400 0000040000000c00 0c000000 1817161514131211 3837363534333231")


def test_cfg_compact_zero() -> None:
    assert compact(CFG, zero_record(CFG)) == bytes.fromhex("10000000 0c00 0400 0000000000000000 0c000000")


def test_cfg_image() -> None:
    assert image(CFG, record_with(CFG, **CFG_VALUES)) == bytes.fromhex(
        "04000000 dcffffff 0807060504030201 1817161514131211 2827262524232221 3837363534333231"
        "0c00 2400 04000c0014001c00 00000000")


def test_empty_list() -> None:
    expected = bytes.fromhex("0a000000 0600 0400 0000 06000000")
    assert compact(LIST, zero_record(LIST)) == expected
    expect(unpack(LIST, expected), "ok", {"f0": []})


def test_list_layout() -> None:
    for n in (1, 2, 7):
        data = compact(LIST, {"f0": [zero_record(INFO)] * n})
        assert (u32(data, 0), u16(data, 4), u16(data, 6), u16(data, 8), i32(data, 10)) == (10, 6, 12 + 4 * n, 4, 6)
        assert (u32(data, 14), u32(data, 18)) == (4, n)
        first = follow(data, 22)
        assert first == 22 + 4 * n + 16 and i32(data, first) == 16
        assert len(data) == 22 + 4 * n + n * 100


def test_info_compact_layout() -> None:
    data = compact(INFO, zero_record(INFO))
    assert len(data) == 104 and (u32(data, 0), u16(data, 4), i32(data, 20)) == (20, 16, 16)
    assert [follow(data, 24 + 4 * k) for k in range(4)] == [52, 68, 84, 100]
    assert [u16(data, 8 + 2 * i) for i in range(6)] == [0, 0, 4, 8, 12, 16]
    data = compact(INFO, record_with(INFO, f1=9))
    assert len(data) == 108 and u32(data, 24) == 9 and u16(data, 6) == 24


def test_query_ack_compact_layout() -> None:
    data = compact(QUERY_ACK, record_with(QUERY_ACK, f0=5))
    assert len(data) == 124 and (u32(data, 0), u16(data, 4), u16(data, 6), u32(data, 16)) == (12, 8, 12, 5)
    assert follow(data, 20) == 40
    assert len(compact(QUERY_ACK, zero_record(QUERY_ACK))) == 120


def test_vlan_compact_layout() -> None:
    data = compact(VLAN, record_with(VLAN, f1=0x01020304, f2=0xFFFE))
    assert data == bytes.fromhex("0e000000 0a00 0a00 0000 0400 0800 0a000000 04030201 feff")
    assert len(compact(VLAN, zero_record(VLAN))) == 18 and len(compact(VLAN, maximal_record(VLAN))) == 28


def test_port_compact_layout() -> None:
    assert compact(PORT, record_with(PORT, f0=1, f1=2)) == bytes.fromhex(
        "0c000000 0800 0c00 0400 0800 08000000 01000000 02000000")
    assert len(compact(PORT, zero_record(PORT))) == 16


def test_port_image() -> None:
    assert image(PORT, record_with(PORT, f0=1, f1=2)) == bytes.fromhex(
        "04000000 f4ffffff 01000000 02000000 0800 0c00 0400 0800")


def test_group_compact_layout() -> None:
    data = compact(GROUP, maximal_record(GROUP))
    assert (u32(data, 0), u16(data, 4), u16(data, 6), i32(data, 18), len(data)) == (18, 14, 21, 14, 39)
    assert [u16(data, 8 + 2 * i) for i in range(5)] == [4, 8, 12, 16, 20]


def test_group_messages_compact_layout() -> None:
    assert len(compact(GROUP_MSG, zero_record(GROUP_MSG))) == 38
    data = compact(GROUP_MSG, record_with(GROUP_MSG, f0=3))
    assert data[:21] == bytes.fromhex("0c000000 0800 0900 0400 0500 08000000 03 12000000")
    data = compact(GROUP_ACK, record_with(GROUP_ACK, f0=3, f1=4))
    assert (u32(data, 0), u16(data, 4), u16(data, 6), i32(data, 14)) == (14, 10, 13, 10)
    assert [u16(data, 8 + 2 * i) for i in range(3)] == [4, 8, 9] and u32(data, 23) == 18


def test_group_array_compact_layout() -> None:
    for name, element, vtable_length in ((GROUPS, GROUP_MSG, 8), (GROUP_ACKS, GROUP_ACK, 10)):
        assert len(compact(name, zero_record(name))) == 16
        assert len(compact(name, record_with(name, f0=1))) == 20
        data = compact(name, record_with(name, f0=1, f1=[maximal_record(element)] * 3))
        assert (u32(data, 0), u16(data, 4), i32(data, 12), u32(data, 16)) == (12, 8, 8, 1)
        assert u16(data, 6) == 8 + 4 + 4 * 4
        assert (u32(data, 20), u32(data, 24)) == (4, 3)
        first = follow(data, 28)
        assert first == 40 + vtable_length and i32(data, first) == vtable_length
        reference = field_offset(data, TYPES[element].slots - 1, 28)
        assert u32(data, reference) == 18
        assert u16(compact(name, record_with(name, f1=[zero_record(element)])), 6) == 4 + 4 + 8


def test_detect_compact_and_image() -> None:
    record = record_with(DETECT, f0=1, f1=2, f2=3)
    assert compact(DETECT, record) == bytes.fromhex("0e000000 0a00 0a00 0400 0500 0600 0a000000 01 02 03000000")
    assert image(DETECT, record) == bytes.fromhex(
        "04000000 f4ffffff 01 02 03000000 0000 0a00 0a00 0400 0500 0600 000000000000")


def test_dacl_compact_layout() -> None:
    assert compact_size(DACL, zero_record(DACL)) == 192
    for record in (zero_record(DACL), maximal_record(DACL), record_with(DACL, f1=1, f8=1, f27=1)):
        data = compact(DACL, record)
        assert (u32(data, 0), u16(data, 4), i32(data, 64)) == (64, 60, 60)
        scalars = u16(data, 6) - 124
        assert u16(data, 8 + 2 * 4) == scalars
        references = [64 + scalars + 4 * k for k in range(6)]
        assert [u16(data, 8 + 2 * i) for i in (4, 5, 6, 7, 16, 17)] == [at - 64 for at in references]
        assert [u32(data, at) for at in references] == [24, 40, 56, 72, 88, 94]
        assert [u32(data, follow(data, at)) for at in references] == [16, 16, 16, 16, 6, 6]
        assert len(data) == 64 + scalars + 124


def test_rule_compact_layout() -> None:
    data = compact(RULE, record_with(RULE, f0=1, f3=2))
    assert (u32(data, 0), u16(data, 4), u16(data, 6), i32(data, 22)) == (22, 18, 13, 18)
    reference = field_offset(data, 6)
    assert reference == 31 and u32(data, reference) == 64 and i32(data, 31 + 64) == 60
    assert compact_size(RULE, zero_record(RULE)) == 30 + 188


def test_offline_compact_layout() -> None:
    record = record_with(OFFLINE, f2=0x11223344, f4="02:00:5e:10:00:01", f7=9)
    assert compact(OFFLINE, record) == bytes.fromhex(
        "18000000 1400 1a00 0000 0000 0400 0000 0c00 0000 0000 0800 14000000"
        "44332211 09000000 04000000 06000000 02005e100001")
    zero = zero_record(OFFLINE)
    assert compact_size(OFFLINE, zero) == 42
    assert unpack(OFFLINE, compact(OFFLINE, zero)).record["f4"] == "00:00:00:00:00:00"


def test_version_compact() -> None:
    assert compact(VERSION, {"f0": 7}) == bytes.fromhex("0a000000 0600 0800 0400 06000000 07000000")
    assert compact(VERSION, {"f0": 0}) == bytes.fromhex("0a000000 0600 0400 0000 06000000")


def test_down_sizes() -> None:
    for name in (DOWN, DOWN_ACK):
        assert compact(name, zero_record(name)) == bytes.fromhex(
            "12000000 0e00 0400 0000 0000 0000 0000 0000 0e000000")
        data = compact(name, maximal_record(name))
        assert len(data) == 42 and u16(data, 6) == 24
        assert [u16(data, 8 + 2 * i) for i in range(5)] == [4, 8, 12, 16, 20]


def test_authen_compact_layout() -> None:
    data = compact(AUTHEN, zero_record(AUTHEN))
    assert len(data) == 58 and (u32(data, 0), u16(data, 4), u16(data, 6)) == (40, 36, 18)
    assert data[44:] == bytes.fromhex("04000000 06000000 000000000000")
    # References stand among the scalars in field-id order, bodies after them.
    data = compact(AUTHEN, record_with(AUTHEN, f4=1, f5="aabb", f7=2, f9="01:02:03:04:05:06", f10=3, f15="cc"))
    assert [u16(data, 8 + 2 * i) for i in (4, 5, 7, 9, 10, 15)] == [4, 8, 12, 13, 17, 21]
    assert data[40:] == bytes.fromhex(
        "24000000 01000000 11000000 02 12000000 03000000 14000000"
        "02000000 aabb 06000000 010203040506 01000000 cc")
    assert u16(data, 6) == len(data) - 40


def test_authen_ack_compact_layout() -> None:
    assert compact_size(AUTHEN_ACK, zero_record(AUTHEN_ACK)) == 46
    assert compact_size(AUTHEN_ACK, record_with(AUTHEN_ACK, f14="010203")) == 57
    assert compact_size(AUTHEN_ACK, record_with(AUTHEN_ACK, f14=EMPTY)) == 54
    data = compact(AUTHEN_ACK, record_with(AUTHEN_ACK, f13=5, f14="010203", f16="04"))
    assert data[42:] == bytes.fromhex("26000000 05000000 08000000 0b000000 03000000 010203 01000000 04")


def test_user_table_zero_layout() -> None:
    data = compact(USER, zero_record(USER))
    assert len(data) == 238
    assert (u32(data, 0), u16(data, 4), i32(data, 118)) == (118, 114, 114)
    inline = 4 + 5 * 4  # soffset and the references of f5, f19, f20, f33, f53
    assert u16(data, 6) == inline + 46
    assert [u16(data, 8 + 2 * i) for i in (5, 19, 20, 33, 53)] == [4, 8, 12, 16, 20]
    assert follow(data, 122) == 118 + inline and u32(data, 118 + inline) == 6
    assert u32(data, follow(data, 138)) == 16
    # Bodies, then the two nested settings and the detection record.
    assert [follow(data, at) for at in (126, 130, 134)] == [188 + 14, 206 + 14, 224 + 10]


def test_user_table_order() -> None:
    record = record_with(
        USER, f0=1, f54=2, f12=[{"f0": "::1"}, {"f0": "2001:db8::2"}], f15=[1, 2], f16=[3], f31="aa",
        f32=[zero_record(RULE)], f42="bbcc", f51="dd", f52=[4], f53=list(range(16)))
    data = compact(USER, record)
    assert u32(data, 122) == 1 and data[126] == 2  # all scalars before the first reference
    ids = (5, 12, 15, 16, 19, 20, 31, 32, 33, 42, 51, 52, 53)
    assert [u16(data, 8 + 2 * i) for i in ids] == [9 + 4 * k for k in range(13)]
    assert u16(data, 6) == 9 + 13 * 4 + 46
    at = {i: follow(data, 118 + 9 + 4 * k) for k, i in enumerate(ids)}
    sizes = {5: 10, 12: 12, 15: 8, 16: 6, 31: 5, 32: 8, 42: 6, 51: 5, 52: 8, 53: 36}
    cursor = 118 + 9 + 13 * 4
    for i, size in sizes.items():
        assert at[i] == cursor, i
        cursor += size
    first = at[12] + 4
    assert follow(data, first) == cursor + 6 and follow(data, first + 4) == cursor + 34 + 6
    cursor += 2 * 34
    assert at[19] == cursor + 14 and at[20] == cursor + 18 + 14
    cursor += 36
    assert follow(data, at[32] + 4) == cursor + 18
    cursor += 26 + 188
    assert at[33] == cursor + 10 and len(data) == cursor + 14


def test_images_at_listed_positions() -> None:
    """Every field of every image stands where peers expect it."""
    listed = {
        CFG: ((8, 16, 24, 32), -36, 40), QUERY: ((8, 12), -12, 16), VLAN: ((8, 12, 16), -16, 20),
        PORT: ((8, 12), -12, 16), GROUP: ((8, 12, 16, 20, 24), -24, 28),
        USER_ACK: ((8, 12, 16, 20, 24, 26, 30, 34, 38), -40, 44), HIT: ((8, 12, 16, 20, 24, 28), -28, 32),
        OFFLINE: ((8, 12, 16, 20, 22, 36, 40, 44), -44, 48), VERSION: ((8,), -8, 12),
        SYNC: ((8, 12, 16, 20, 24), -24, 28), DETECT: ((8, 9, 10), -12, 16),
        DACL: ((8, 12, 16, 20, 24, 48, 72, 96, 120, 122, 124, 126, 128, 130, 132, 134, 136, 150, 164, 166, 168, 170,
                172, 173, 174, 175, 176, 177), -176, 180),
        DOWN: ((8, 12, 16, 20, 24), -24, 28), DOWN_ACK: ((8, 12, 16, 20, 24), -24, 28),
        INFO: ((8, 12, 16, 72, 128, 184), -236, 240), QUERY_ACK: ((8, 12), -264, 268),
        GROUP_MSG: ((8, 9), -56, 60), GROUP_ACK: ((8, 12, 13), -60, 64),
        RULE: ((8, 9, 13, 17, 21, 25, 29), -268, 272),
    }
    assert set(listed) == set(FLAT)
    random = Random(1)
    for name, (positions, soffset, vtable) in listed.items():
        record = random_record(name, random, density=0.9)
        data = image(name, record)
        assert u32(data, 0) == 4 and i32(data, 4) == soffset and 4 - soffset == vtable, name
        assert u16(data, vtable) == TYPES[name].vtable_length
        covered = bytearray(data)
        clear(covered, 0, 8)
        clear(covered, vtable, TYPES[name].vtable_length)
        for i, (field, at) in enumerate(zip(TYPES[name].fields, positions, strict=True)):
            value = record[f"f{i}"]
            assert u16(data, vtable + 4 + 2 * i) == at - 4
            clear(covered, at, expect_in_image(field, value, data, at))
        assert not any(covered), f"{name}: bytes outside all fields"


def clear(data: bytearray, at: int, size: int) -> None:
    data[at:at + size] = bytes(size)


def expect_in_image(field: Field, value: Any, data: bytes, at: int) -> int:
    """Compares a field's bytes in an image; returns how many there are."""
    if field.kind is Kind.SCALAR:
        assert int.from_bytes(data[at:at + field.width], "little") == value
        return field.width
    if field.kind is Kind.ARRAY:
        assert field in (MAC, IPV6)
        assert u32(data, at) == 4 and u32(data, at + 4) == field.count
        assert data[at + 8:at + 8 + field.count] == catalogue.array_bytes(field, value, False)
        return 8 + field.count
    nested = image(field.table, value)
    assert data[at:at + len(nested)] == nested
    return len(nested)


# Sizes.

def set_fields(record: Record, *ids: int) -> int:
    return sum(record[f"f{i}"] != 0 for i in ids)


def cfg_part(record: Record) -> int:
    return 16 + 8 * set_fields(record, 0, 1, 2, 3)


def info_part(record: Record) -> int:
    return 36 + 4 * set_fields(record, 0, 1) + sum(cfg_part(record[f"f{i}"]) for i in (2, 3, 4, 5))


def group_part(record: Record) -> int:
    return 18 + 4 * set_fields(record, 0, 1, 2, 3) + set_fields(record, 4)


def dacl_part(record: Record) -> int:
    return (188 + 4 * set_fields(record, *range(4)) + 2 * set_fields(record, *range(8, 16), *range(18, 22), 27)
            + set_fields(record, *range(22, 27)))


def rule_part(record: Record) -> int:
    return 26 + set_fields(record, 0) + 4 * set_fields(record, *range(1, 6)) + dacl_part(record["f6"])


def detect_part(record: Record) -> int:
    return 14 + set_fields(record, 0, 1) + 4 * set_fields(record, 2)


def car_part(record: Record) -> int:
    return 18 + set_fields(record, 0) + 4 * set_fields(record, 1, 2, 3, 4)


def user_table_size(record: Record) -> int:
    size = 176
    for i, field in enumerate(TYPES[USER].fields):
        if field.kind is Kind.SCALAR and record[f"f{i}"]:
            size += field.width
    size += 12 + car_part(record["f19"]) + car_part(record["f20"]) + detect_part(record["f33"])
    size += sum(8 + 2 * len(record[f"f{i}"]) for i in (15, 16) if record[f"f{i}"])
    size += sum(8 + len(record[f"f{i}"]) // 2 for i in (31, 42, 51) if record[f"f{i}"])
    size += 8 + 4 * len(record["f52"]) if record["f52"] else 0
    size += 8 + 38 * len(record["f12"]) if record["f12"] else 0
    size += 8 + sum(4 + rule_part(each) for each in record["f32"]) if record["f32"] else 0
    return size


def group_array_size(record: Record) -> int:
    size = 16 + 4 * set_fields(record, 0)
    if record["f1"]:
        size += 8 + 4 * len(record["f1"])
        size += sum(16 + set_fields(each, 0) + group_part(each["f1"]) for each in record["f1"])
    return size


def group_ack_array_size(record: Record) -> int:
    size = 16 + 4 * set_fields(record, 0)
    if record["f1"]:
        size += 8 + 4 * len(record["f1"])
        size += sum(18 + 4 * set_fields(each, 0) + set_fields(each, 1) + group_part(each["f2"])
                    for each in record["f1"])
    return size


SIZES = {
    CFG: lambda r: 4 + cfg_part(r),
    INFO: lambda r: 4 + info_part(r),
    LIST: lambda r: 22 + 4 * len(r["f0"]) + sum(map(info_part, r["f0"])) if r["f0"] else 14,
    QUERY: lambda r: 16 + 4 * set_fields(r, 0, 1),
    QUERY_ACK: lambda r: 20 + 4 * set_fields(r, 0) + info_part(r["f1"]),
    VLAN: lambda r: 18 + 4 * set_fields(r, 0, 1) + 2 * set_fields(r, 2),
    PORT: lambda r: 16 + 4 * set_fields(r, 0, 1),
    GROUP: lambda r: 4 + group_part(r),
    GROUP_MSG: lambda r: 20 + set_fields(r, 0) + group_part(r["f1"]),
    GROUP_ACK: lambda r: 22 + 4 * set_fields(r, 0) + set_fields(r, 1) + group_part(r["f2"]),
    GROUPS: group_array_size,
    GROUP_ACKS: group_ack_array_size,
    USER: user_table_size,
    USER_ACK: lambda r: 30 + 4 * set_fields(r, 0, 1, 2, 3, 5, 6, 7, 8) + 2 * set_fields(r, 4),
    HIT: lambda r: 24 + 4 * set_fields(r, *range(6)),
    OFFLINE: lambda r: 42 + 4 * set_fields(r, 0, 1, 2, 5, 6, 7) + 2 * set_fields(r, 3),
    VERSION: lambda r: 14 + 4 * set_fields(r, 0),
    SYNC: lambda r: 22 + 4 * set_fields(r, *range(5)),
    DACL: lambda r: 4 + dacl_part(r),
    RULE: lambda r: 4 + rule_part(r),
    DETECT: lambda r: 4 + detect_part(r),
    AUTHEN: lambda r: (58 + 4 * set_fields(r, *range(5), *range(10, 15)) + set_fields(r, 7)
                       + sum(8 + len(r[f"f{i}"]) // 2 for i in (5, 6, 8, 15) if r[f"f{i}"])),
    AUTHEN_ACK: lambda r: (46 + 4 * set_fields(r, *range(14))
                           + sum(8 + len(r[f"f{i}"]) // 2 for i in (14, 15, 16) if r[f"f{i}"])),
    DOWN: lambda r: 22 + 4 * set_fields(r, *range(5)),
    DOWN_ACK: lambda r: 22 + 4 * set_fields(r, *range(5)),
}


def test_sizes_by_formula() -> None:
    random = Random(2)
    for name in MESSAGES:
        records = [zero_record(name), maximal_record(name)]
        records += [random_record(name, random, random.random()) for _ in range(40)]
        for record in records:
            assert name not in SIZES or compact_size(name, record) == SIZES[name](record), name
            assert len(compact(name, record)) == compact_size(name, record), name


def test_size_refusals() -> None:
    assert all(compact_size(name, None) == 0 for name in MESSAGES)
    # A range stands for a list that would not fit into memory.
    assert compact_size(USER, record_with(USER, f52=range(0x3FFFFFC2))) == 0xFFFFFFFE
    assert compact_size(USER, record_with(USER, f52=range(0x3FFFFFC3))) == 0
    assert compact_size(USER, record_with(USER, f52=range(0x7FFFFFFF))) == 0


def test_a_thousand_rules_outgrow_a_batch() -> None:
    assert compact_size(USER, record_with(USER, f32=[zero_record(RULE)] * 1000)) == 238 + 8 + 1000 * 218 > 65536


def test_odd_pairs_of_count_and_pointer() -> None:
    zero = compact(USER, zero_record(USER))
    for i in (15, 16, 31, 42, 51, 52):
        assert compact(USER, record_with(USER, **{f"f{i}": EMPTY})) == zero + bytes(8)
    for i in (12, 32):
        assert compact(USER, record_with(USER, **{f"f{i}": EMPTY})) == zero
    for i in (12, 15, 16, 31, 32, 42, 51, 52):
        assert compact(USER, record_with(USER, **{f"f{i}": {"lost": 3}})) == zero
    assert compact(LIST, {"f0": {"lost": 3}}) == compact(LIST, {"f0": EMPTY}) == compact(LIST, {"f0": []})
    assert compact_size(AUTHEN, record_with(AUTHEN, f5=EMPTY, f15=EMPTY)) == 58 + 16


def test_long_vectors_overflow_the_stored_table_length() -> None:
    record = record_with(AUTHEN_ACK, f14="5a" * 70000)
    data = compact(AUTHEN_ACK, record)
    assert u16(data, 6) == (8 + 4 + 70000) % 65536
    expect(unpack(AUTHEN_ACK, data), "ok", record)


# Byte order.

def test_swapped_cfg() -> None:
    record = record_with(CFG, **CFG_VALUES)
    assert compact(CFG, record, swapped=True) == bytes.fromhex(
        "00000010 000c 0024 0004000c0014001c 0000000c"
        "0102030405060708 1112131415161718 2122232425262728 3132333435363738")
    assert image(CFG, record, swapped=True) == bytes.fromhex(
        "00000004 ffffffdc 0102030405060708 1112131415161718 2122232425262728 3132333435363738"
        "000c 0024 0004000c0014001c 00000000")


def test_swapped_table_lengths() -> None:
    """Tables without vectors keep only the low byte of their length."""
    assert image(QUERY_ACK, zero_record(QUERY_ACK), swapped=True)[270:272] == bytes((0, 264 & 0xFF))
    assert image(RULE, zero_record(RULE), swapped=True)[274:276] == bytes((0, 265 & 0xFF))
    assert image(DACL, zero_record(DACL), swapped=True)[182:184] == bytes((0, 175))
    data = compact(LIST, {"f0": [zero_record(INFO)] * 100}, swapped=True)
    assert data[6:8] == (412).to_bytes(2, "big")
    data = compact(AUTHEN, record_with(AUTHEN, f5="00" * 300), swapped=True)
    assert data[6:8] == (4 + 4 + 4 + 304 + 10).to_bytes(2, "big")


def test_no_field_offset_reaches_256() -> None:
    """So the shortcut of swapped writing never harms a reader."""
    for name in TYPES:
        assert u16_max_slot(compact(name, maximal_record(name)), TYPES[name].slots) < 256
    assert all(max(image_layout(name).offsets) < 256 for name in FLAT)


def u16_max_slot(data: bytes, slots: int) -> int:
    return max(u16(data, 8 + 2 * i) for i in range(slots))


# Round trips.

def test_round_trips() -> None:
    random = Random(3)
    for name in MESSAGES:
        records = [zero_record(name), maximal_record(name, 1), maximal_record(name, 5)]
        records += [random_record(name, random, random.random(), (1, 9)) for _ in range(60)]
        for record in records:
            for swapped in (False, True):
                result = unpack(name, compact(name, record, swapped), swapped)
                expect(result, "ok", record)
                assert result.releases == [] and result.returned == record_size(name)
                if name in FLAT:
                    expect(unpack(name, image(name, record, swapped), swapped), "ok", record)


def test_trailing_bytes_do_no_harm() -> None:
    random = Random(4)
    for name in MESSAGES:
        record = random_record(name, random)
        expect(unpack(name, compact(name, record) + random.randbytes(9)), "ok", record)


def test_allocations_of_a_full_user_table() -> None:
    record = record_with(
        USER, f12=[{"f0": "::1"}] * 2, f15=[1, 2, 3], f16=[4], f31="aabb", f32=[zero_record(RULE)] * 3, f42="cc",
        f51="dddddd", f52=[5, 6])
    result = unpack(USER, compact(USER, record))
    expect(result, "ok", record)
    sizes = [2 * 16, 3 * 2, 2, 2, 3 * 148, 1, 3, 8]
    assert result.allocations == [(size, "Nac_SetUserTableMsg_unpack_non_root") for size in sizes]


# Arguments.

def test_argument_faults() -> None:
    valid = compact(CFG, zero_record(CFG))
    format_ = "[KAPLO]:Param invalid(%s, %d, %s)"
    for name in MESSAGES:
        function = name + "_unpack"
        expect(unpack(name, None, length=20), "argument", "untouched",
               [line(22, function, format_, "null", 20, "nonNull")])
        expect(unpack(name, valid, record_before=None), "argument", "untouched",
               [line(22, function, format_, "nonNull", 20, "null")])
        for length in (0, 1, 2, 3):
            expect(unpack(name, valid, length=length), "argument", "untouched",
                   [line(22, function, format_, "nonNull", length, "nonNull")])
        expect(unpack(name, valid, length=0x80000000), "argument", "untouched",
               [line(22, function, format_, "nonNull", -0x80000000, "nonNull")])
        result = unpack(name, valid, length=0xFFFFFFFF)
        expect(result, "argument", "untouched", [line(22, function, format_, "nonNull", -1, "nonNull")])
        assert result.returned == record_size(name)


# Root headers.

HEADER_NAMES = {
    CFG: "_unpack", INFO: "_unpack_non_root", LIST: "_unpack_non_root", QUERY: "_unpack", QUERY_ACK: "_unpack",
    VLAN: "_unpack", PORT: "_unpack", GROUP: "_unpack", GROUP_MSG: "_unpack", GROUP_ACK: "_unpack",
    GROUPS: "_unpack", GROUP_ACKS: "_unpack", USER: "_unpack_non_root", USER_ACK: "_unpack_non_root",
    HIT: "_unpack_non_root", OFFLINE: "_unpack_non_root", VERSION: "_unpack", SYNC: "_unpack",
    DACL: "_unpack_non_root", RULE: "_unpack_non_root", DETECT: "_unpack", AUTHEN: "_unpack_non_root",
    AUTHEN_ACK: "_unpack_non_root", DOWN: "_unpack", DOWN_ACK: "_unpack",
}
CLEARED_FIRST = {INFO, LIST, GROUPS, GROUP_ACKS, USER, USER_ACK, HIT, OFFLINE, DACL, RULE, AUTHEN, AUTHEN_ACK}
# Types that came later do what is usual.
LATER = [name for name in MESSAGES if name not in HEADER_NAMES]
HEADER_NAMES |= {name: "_unpack" for name in LATER}
CLEARED_FIRST |= {name for name in LATER if TYPES[name].owns_arrays}


def after_header_fault(name: str) -> Any:
    return zero_record(name) if name in CLEARED_FIRST else "untouched"


def test_root_reference_bounds() -> None:
    for name in MESSAGES:
        data = compact(name, maximal_record(name))
        length = len(data)
        for root in (0, 3, length - 3, length, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF):
            result = unpack(name, patched(data, 0, root))
            expect(result, "header", after_header_fault(name),
                   [table_line(name + HEADER_NAMES[name], root, length)])
            assert result.releases == [] and result.allocations == []


def test_four_byte_buffer() -> None:
    for root in (0, 4):
        expect(unpack(CFG, patched(bytes(4), 0, root)), "header", "untouched",
               [table_line("Nac_UserDataFlowCfg_unpack", root, 4)])


def test_vtable_position_bounds() -> None:
    for name in MESSAGES:
        data = compact(name, zero_record(name))
        length, root = len(data), u32(data, 0)
        for vtable in (0, 3, length - 3, 0x7FFFFFFF, -1):
            expect(unpack(name, patched(data, root, root - vtable)), "header", after_header_fault(name),
                   [vtable_line(name + HEADER_NAMES[name], root, length - 4)])


def test_vtable_length_bounds() -> None:
    for name in MESSAGES:
        data = compact(name, zero_record(name))
        length = len(data)
        expect(unpack(name, patched(data, 4, length - 3, 2)), "header", after_header_fault(name),
               [length_line(name + HEADER_NAMES[name], length - 3, length - 4)])
        assert unpack(name, patched(data, 4, length - 4, 2)).outcome != "header"


def test_given_record_stays() -> None:
    before = record_with(CFG, f0=1)
    assert unpack(CFG, bytes(8), record_before=before).record is before
    assert unpack(INFO, bytes(8), record_before=record_with(INFO, f0=1)).record == zero_record(INFO)


# Fields.

def test_vtables_without_slots() -> None:
    for name in MESSAGES:
        data = compact(name, maximal_record(name))
        for length in (0, 1, 2, 3, 4, 5):
            expect(unpack(name, patched(data, 4, length, 2)), "ok", zero_record(name))


def test_short_vtables() -> None:
    for name in MESSAGES:
        record = maximal_record(name)
        data = compact(name, record)
        for slots in range(TYPES[name].slots):
            expected = {key: record[key] if i < slots else zero for i, (key, zero)
                        in enumerate(zero_record(name).items())}
            for length in (4 + 2 * slots, 5 + 2 * slots):
                expect(unpack(name, patched(data, 4, length, 2)), "ok", expected)


def test_long_vtable() -> None:
    data = bytes.fromhex("0e000000 0a00 0800 0400 0a00 ffff 0a000000 07000000")
    expect(unpack(VERSION, data), "ok", {"f0": 7})


def test_scalar_at_the_end() -> None:
    data = compact(CFG, record_with(CFG, **CFG_VALUES))
    assert unpack(CFG, data).record["f3"] == CFG_VALUES["f3"]
    expect(unpack(CFG, data[:-1]), "field", record_with(CFG, **CFG_VALUES) | {"f3": 0})
    expect(unpack(CFG, patched(data, 10, 29, 2)), "field", record_with(CFG, f0=CFG_VALUES["f0"]))
    expect(unpack(CFG, patched(data, 8, 0xFFFF, 2)), "field", zero_record(CFG))


def test_slots_may_point_anywhere_inside() -> None:
    data = bytes.fromhex("0a000000 0600 0800 0100 06000000 07000000")
    expect(unpack(VERSION, data), "ok", {"f0": 0x07000000})
    result = unpack(QUERY, compact(QUERY, record_with(QUERY, f0=5, f1=6)))
    shared = patched(compact(QUERY, record_with(QUERY, f0=5, f1=6)), 10, 4, 2)
    assert result.record == {"f0": 5, "f1": 6}
    expect(unpack(QUERY, shared), "ok", {"f0": 5, "f1": 5})


def test_byte_near_the_end() -> None:
    data = compact(GROUP, maximal_record(GROUP))
    assert unpack(GROUP, data).outcome == "ok"
    expect(unpack(GROUP, data[:-1]), "field", maximal_record(GROUP) | {"f4": 0})


# Nested tables.

def test_nested_faults_keep_what_was_read() -> None:
    nested = record_with(GROUP, f0=1, f1=2, f4=3)
    record = record_with(GROUP_MSG, f0=7, f1=nested)
    data = compact(GROUP_MSG, record)
    reference = field_offset(data, 1)
    table = follow(data, reference)
    function = "Nac_CfgUclGroupIp_unpack_non_root"
    bare = record_with(GROUP_MSG, f0=7)
    rest = 0xFFFFFFFF - reference
    expect(unpack(GROUP_MSG, patched(data, reference, rest + 1)), "field", bare)
    expect(unpack(GROUP_MSG, patched(data, reference, 0xFFFFFFFF)), "field", bare)
    expect(unpack(GROUP_MSG, patched(data, reference, rest)), "field", bare,
           [table_line(function, 0xFFFFFFFF, len(data))])
    expect(unpack(GROUP_MSG, patched(data, reference, len(data) - 3 - reference)), "field", bare,
           [table_line(function, len(data) - 3, len(data))])
    expect(unpack(GROUP_MSG, patched(data, table, table - 3)), "field", bare,
           [vtable_line(function, table, len(data) - 4)])
    expect(unpack(GROUP_MSG, patched(data, table - 14, 0xFFFF, 2)), "field", bare,
           [length_line(function, 0xFFFF, len(data) - table + 14)])
    expect(unpack(GROUP_MSG, data[:-1]), "field",
           record_with(GROUP_MSG, f0=7, f1=record_with(GROUP, f0=1, f1=2)))


def test_reference_to_itself_is_an_empty_table() -> None:
    data = compact(GROUP_MSG, record_with(GROUP_MSG, f0=7, f1=record_with(GROUP, f0=1)))
    expect(unpack(GROUP_MSG, patched(data, field_offset(data, 1), 0)), "ok", record_with(GROUP_MSG, f0=7))


def test_short_rule_vtable() -> None:
    record = maximal_record(RULE)
    data = patched(compact(RULE, record), 4, 16, 2)
    expect(unpack(RULE, data), "ok", record | {"f6": zero_record(DACL)})


def test_query_ack_keeps_fields_before_a_nested_fault() -> None:
    info = record_with(INFO, f0=1, f1=2, f2=record_with(CFG, f0=9))
    data = compact(QUERY_ACK, record_with(QUERY_ACK, f0=5, f1=info))
    reference = field_offset(data, 3, field_offset(data, 1))
    damaged = patched(data, reference, len(data))
    expect(unpack(QUERY_ACK, damaged), "field", record_with(QUERY_ACK, f0=5, f1=info),
           [table_line("Nac_UserDataFlowCfg_unpack_non_root", reference + len(data), len(data))])


# Fixed arrays.

def test_fixed_array_counts() -> None:
    dacl = maximal_record(DACL)
    data = compact(DACL, dacl)
    for count in (0, 15, 17, 0xFFFFFFFF):
        at = follow(data, field_offset(data, 4))
        expect(unpack(DACL, patched(data, at, count)), "field",
               record_with(DACL, **{f"f{i}": dacl[f"f{i}"] for i in range(4)}))
    offline = maximal_record(OFFLINE)
    data = compact(OFFLINE, offline)
    for count in (5, 7):
        at = follow(data, field_offset(data, 4))
        expect(unpack(OFFLINE, patched(data, at, count)), "field",
               record_with(OFFLINE, **{f"f{i}": offline[f"f{i}"] for i in range(4)}))


def test_authen_array_count() -> None:
    record = record_with(AUTHEN, f0=1, f5="aa", f8="bbcc", f10=4)
    data = compact(AUTHEN, record)
    at = follow(data, field_offset(data, 9))
    for count in (5, 7):
        result = unpack(AUTHEN, patched(data, at, count))
        expect(result, "field", record_with(AUTHEN, f0=1, f5={"lost": 1}, f8={"lost": 2}))
        assert result.releases == [(0, "Nac_IpsecAuthenReqMsg_free_unpacked"),
                                   (1, "Nac_IpsecAuthenReqMsg_free_unpacked")]
    without = patched(data, 4 + 4 + 18, 0, 2)
    expect(unpack(AUTHEN, without), "ok", record)


def test_user_table_arrays() -> None:
    record = maximal_record(USER)
    data = compact(USER, record)
    free_name = "Nac_SetUserTableMsg_free_unpacked"
    result = unpack(USER, patched(data, follow(data, field_offset(data, 5)), 5))
    expect(result, "field", record_with(USER, **{f"f{i}": record[f"f{i}"] for i in range(5)}))
    assert result.allocations == [] and result.releases == [(None, free_name)] * 6

    result = unpack(USER, patched(data, follow(data, field_offset(data, 53)), 15))
    lost = {f"f{i}": {"lost": 2} for i in (12, 15, 16, 31, 32, 42, 51, 52)}
    expect(result, "field", record | lost | {"f53": [0] * 16, "f54": 0})
    assert result.releases == [(k, free_name) for k in range(8)]


# Vectors.

def test_counts_out_of_range() -> None:
    data = compact(LIST, {"f0": [zero_record(INFO)] * 2})
    for count in (len(data) // 4, 0x3FFFFFFF, 0x40000000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF):
        result = unpack(LIST, patched(data, 18, count))
        expect(result, "field", {"f0": []})
        assert result.allocations == [] and result.releases == []
    result = unpack(LIST, patched(data, 18, 0))
    expect(result, "ok", {"f0": []})
    assert result.allocations == []


def test_number_vector_counts() -> None:
    for i, first_bad in ((15, 0x80000000), (52, 0x40000000), (31, 0xFFFFFFFF), (12, 0x40000000)):
        record = maximal_record(USER)
        data = compact(USER, record)
        at = follow(data, field_offset(data, i))
        for count in (first_bad, first_bad - 1, 0xFFFFFFFF, 0xFFFFFFFF - at - 3):
            result = unpack(USER, patched(data, at, count))
            assert result.outcome == "field" and result.log == []
            assert result.record[f"f{i}"] in ([], "")


def test_vector_references() -> None:
    record = record_with(GROUPS, f0=1, f1=[zero_record(GROUP_MSG)])
    data = compact(GROUPS, record)
    length = len(data)
    for reference in (length - 3 - 20, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF - 20, 0xFFFFFFFF - 19, 0xFFFFFFFF):
        expect(unpack(GROUPS, patched(data, 20, reference)), "field", record_with(GROUPS, f0=1))
    # The reference read as a count: nothing there.
    expect(unpack(GROUPS, patched(data, 20, 0)), "ok", record_with(GROUPS, f0=1))


def test_damaged_elements() -> None:
    element = record_with(GROUP_MSG, f0=1, f1=record_with(GROUP, f0=2))
    record = record_with(GROUPS, f0=9, f1=[element] * 3)
    data = compact(GROUPS, record)
    after = record_with(GROUPS, f0=9, f1={"lost": 3})
    for k in range(3):
        at = 28 + 4 * k
        for result in (unpack(GROUPS, patched(data, at, -at)), unpack(GROUPS, patched(data, at, 0xFFFFFFFF))):
            expect(result, "field", after)
            assert result.allocations == [(72, "Nac_UclGroupIpArray_unpack")]
            assert result.releases == [(0, "Nac_UclGroupIpArray_free_unpacked")]
        expect(unpack(GROUPS, patched(data, at, len(data))), "field", after,
               [table_line("Nac_ConfigAccessUserUclGroupIpMsg_unpack_non_root", at + len(data), len(data))])
        nested = field_offset(data, 1, at)
        expect(unpack(GROUPS, patched(data, nested, len(data))), "field", after,
               [table_line("Nac_CfgUclGroupIp_unpack_non_root", nested + len(data), len(data))])


def test_damaged_list_element() -> None:
    data = compact(LIST, {"f0": [zero_record(INFO)] * 4})
    table = follow(data, 22 + 8)
    result = unpack(LIST, patched(data, table, table))
    expect(result, "field", {"f0": {"lost": 4}},
           [vtable_line("Nac_UserDataFlowInfo_unpack_non_root", table, len(data) - 4)])
    assert result.allocations == [(4 * 136, "Nac_UserDataFlowMsg_unpack_non_root")]
    assert result.releases == [(0, "Nac_UserDataFlowMsg_free_unpacked")]


def test_elements_may_share_a_table() -> None:
    element = record_with(GROUP_MSG, f0=1, f1=record_with(GROUP, f0=2))
    data = compact(GROUPS, record_with(GROUPS, f1=[element] * 2))
    at = field_offset(data, 1) + 8
    shared = patched(data, at, follow(data, at + 4) - at)
    expect(unpack(GROUPS, shared), "ok", record_with(GROUPS, f1=[element] * 2))


# Failed allocations.

def test_refused_list() -> None:
    data = compact(LIST, {"f0": [zero_record(INFO)] * 3})
    result = unpack(LIST, data, allocate=fail_at(0))
    expect(result, "memory", {"f0": {"lost": 3}},
           [line(12, "Nac_UserDataFlowMsg_unpack_non_root",
                 "[KAPLO]:Malloc unpack data unsuccess,                size(%u)", 408)])
    assert result.releases == []


def test_refused_group_array() -> None:
    data = compact(GROUP_ACKS, record_with(GROUP_ACKS, f0=4, f1=[zero_record(GROUP_ACK)] * 3))
    result = unpack(GROUP_ACKS, data, allocate=fail_at(0))
    expect(result, "memory", record_with(GROUP_ACKS, f0=4, f1={"lost": 3}),
           [line(12, "Nac_UclGroupIpAckArray_unpack", "[KAPLO]:Malloc unpack data unsuccess, size(%u)", 84)])


def test_refused_user_table_arrays() -> None:
    record = maximal_record(USER)
    data = compact(USER, record)
    ids, sizes = (12, 15, 16, 31, 32, 42, 51, 52), (32, 4, 4, 2, 296, 2, 2, 8)
    function, free_name = "Nac_SetUserTableMsg_unpack_non_root", "Nac_SetUserTableMsg_free_unpacked"
    for k in range(8):
        result = unpack(USER, data, allocate=fail_at(k))
        zero = zero_record(USER)
        after = {key: record[key] if int(key[1:]) < ids[k] else zero[key] for key in record}
        after |= {f"f{i}": {"lost": 2} for i in ids[:k + 1]}
        expect(result, "memory", after,
               [line(12, function, "[KAPLO]:Malloc unpack data unsuccess,                size(%u)", sizes[k])])
        assert result.allocations == [(size, function) for size in sizes[:k + 1]]
        assert result.releases == [
            (j if j < k else None, free_name) for j, i in enumerate(ids) if j < k or i not in (12, 32)]


def test_refused_authen_arrays() -> None:
    record = maximal_record(AUTHEN_ACK, 3)
    data = compact(AUTHEN_ACK, record)
    for k, i in enumerate((14, 15, 16)):
        result = unpack(AUTHEN_ACK, data, allocate=fail_at(k))
        lost = {f"f{j}": {"lost": 3} if j <= i else "" for j in (14, 15, 16)}
        expect(result, "memory", record | lost,
               [line(12, "Nac_IpsecAuthenAckMsg_unpack_non_root",
                     "[KAPLO]:Malloc unpack data unsuccess,                size(%u)", 3)])
        assert [index for index, _ in result.releases] == list(range(k))


def test_array_too_large_to_ask_for() -> None:
    result = Result("ok", None, 16)
    record = zero_record(LIST)
    count = 0x02000000
    try:
        Decoder(bytes(8), False, None, TYPES[LIST], result).array("f0", record, count, count * 136)
        raise AssertionError("no fault")
    except MemoryFault:
        pass
    assert result.allocations == [] and record == {"f0": {"lost": count}}
    assert result.log[0].args == [count * 136 % (1 << 32)]


# Any damage at all.

def test_reader_stands_any_damage() -> None:
    """The reader asserts its own bounds; whatever the bytes, it must answer."""
    random = Random(5)
    for name in MESSAGES:
        for _ in range(150):
            data = bytearray(compact(name, random_record(name, random)))
            for _ in range(random.randint(1, 6)):
                data[random.randrange(len(data))] = random.choice((0, 1, 4, 0x7F, 0x80, 0xFF, random.randrange(256)))
            result = unpack(name, bytes(data[:random.randint(4, len(data))]), bool(random.getrandbits(1)))
            assert result.outcome in ("ok", "header", "field")
            assert (result.outcome == "ok") <= (not result.log)


# The corpus.

def test_corpus_does_not_depend_on_hash_order() -> None:
    script = "import make_corpus\nfor each in make_corpus.corpus_lines('Nac_UclGroupIpArray'): print(each)"
    outputs = {
        subprocess.run([sys.executable, "-c", script], cwd=Path(__file__).parent, check=True, capture_output=True,
                       env=os.environ | {"PYTHONHASHSEED": seed}).stdout
        for seed in ("1", "2")
    }
    assert len(outputs) == 1


def test_corpus_covers_every_outcome() -> None:
    total = size = 0
    for name in MESSAGES:
        chosen = cases(name)
        names = {case.name for case in chosen}
        assert len(names) == len(chosen), name
        lines = [corpus_line(name, case) for case in chosen]
        read = [json.loads(each) for each in lines]
        outcomes = {each["verdict"] for each in read}
        assert outcomes == {"ok", "argument", "header", "field"} | ({"memory"} if name not in FLAT else set()), name
        assert all((each["record"] == "untouched") <= (each["verdict"] in ("argument", "header")) for each in read)
        assert len({tuple(each["record"]) for each in read if each["record"] != "untouched"}) == 1
        total += len(lines)
        size += sum(map(len, lines)) + len(lines)
    assert total >= 240 * len(MESSAGES) and size < 256 * 1024 * len(MESSAGES)


def main() -> int:
    tests = [(name, test) for name, test in globals().items() if name.startswith("test_")]
    for name, test in tests:
        test()
        print("passed", name.removeprefix("test_"))
    print(len(tests), "tests passed")
    return 0


if __name__ == "__main__":
    sys.exit(main())
