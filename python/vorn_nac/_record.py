# SPDX-License-Identifier: Apache-2.0
# What is the same for all records, and the exceptions of this package.
from __future__ import annotations

from typing import ClassVar

from ._shape import Shape


class Record:
    """A record of one of the library's types. The types are dataclasses in vorn_nac.records."""

    __slots__ = ()
    shape: ClassVar[Shape]


class Error(Exception):
    """What every exception of this package is."""


class LibraryNotFound(Error, ImportError):
    """libvorn_nac_user or libvorn_bus is not where this package looks for it."""


class BadRecord(Error, ValueError):
    """A value does not fit its field; the text names the field."""


class UnknownType(Error, LookupError):
    """No message type has this name or id."""
