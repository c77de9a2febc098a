# SPDX-License-Identifier: Apache-2.0
"""Builds records to write: extreme ones and random ones, the same ones on every run."""

from __future__ import annotations

from random import Random
from typing import Any

from catalogue import TYPES, Field, Kind, Record, array_value, vector_value, zero_value


def maximal_record(type_name: str, count: int = 2) -> Record:
    """All bits set, every vector with `count` elements."""
    return {f"f{i}": maximal_value(field, count) for i, field in enumerate(TYPES[type_name].fields)}


def maximal_value(field: Field, count: int) -> Any:
    if field.kind is Kind.SCALAR:
        return (1 << 8 * field.width) - 1
    if field.kind is Kind.TABLE:
        return maximal_record(field.table, count)
    if field.kind is Kind.TABLES:
        return [maximal_record(field.table, count) for _ in range(count)]
    if field.kind is Kind.ARRAY:
        return array_value(field, b"\xff" * (field.count * field.width), False)
    return vector_value(field, b"\xff" * (count * field.width), False)


def random_record(type_name: str, random: Random, density: float = 0.7, counts: tuple[int, int] = (1, 4)) -> Record:
    """Each field is set with the probability `density`; vectors have `counts[0]` to `counts[1]` elements."""
    return {f"f{i}": random_value(field, random, density, counts) for i, field in enumerate(TYPES[type_name].fields)}


def random_value(field: Field, random: Random, density: float, counts: tuple[int, int]) -> Any:
    if field.kind is Kind.TABLE:
        return random_record(field.table, random, density, counts)
    if random.random() >= density:
        return zero_value(field)
    if field.kind is Kind.SCALAR:
        return random_number(field.width, random)
    if field.kind is Kind.ARRAY:
        return array_value(field, random.randbytes(field.count * field.width), False)
    count = random.randint(*counts)
    if field.kind is Kind.TABLES:
        return [random_record(field.table, random, density, counts) for _ in range(count)]
    return vector_value(field, random.randbytes(count * field.width), False)


def random_number(width: int, random: Random) -> int:
    """Any width in bytes is as likely as any other, so that small numbers occur, too."""
    return random.randint(1, (1 << 8 * random.randint(1, width)) - 1)
