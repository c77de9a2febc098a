# SPDX-License-Identifier: Apache-2.0
# What annotations of fields say beyond a type: typing.get_type_hints(TYPE, include_extras=True) has it.
from typing import Annotated, NamedTuple


class Range(NamedTuple):
    """The integers that a field or an element holds."""

    least: int
    most: int


class Length(NamedTuple):
    """How many elements an array has, neither more nor fewer."""

    elements: int


u8 = Annotated[int, Range(0, 0xFF)]
u16 = Annotated[int, Range(0, 0xFFFF)]
u32 = Annotated[int, Range(0, 0xFFFFFFFF)]
u64 = Annotated[int, Range(0, 0xFFFFFFFFFFFFFFFF)]
