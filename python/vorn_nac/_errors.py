# SPDX-License-Identifier: Apache-2.0
# The exceptions of this package, and values in their sentences.
from typing import Any


class Error(Exception):
    """What every exception of this package is."""


class LibraryNotFound(Error, ImportError):
    """A library of this package, or the program nac, is not where this package looks for it."""


class BadRecord(Error, ValueError):
    """A value does not fit its field; the text names the field."""


class WrongKind(Error, TypeError):
    """Something else was given than a record, a message type or bytes; the text says what it was."""


class UnknownType(Error, LookupError):
    """No message type has this name or id."""


class BadCatalogue(Error, ValueError):
    """A file is no catalogue that can be loaded; the text says why, and what to do."""


def shown(value: Any) -> str:
    """A value in a sentence: what it is, and not too much of it."""
    if isinstance(value, type):
        return f"the class {value.__name__}"
    text = repr(value)
    return text if len(text) <= 60 else f"{text[:57]}..."
