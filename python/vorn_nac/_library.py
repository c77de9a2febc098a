# SPDX-License-Identifier: Apache-2.0
# Finds and loads libvorn_bus and libvorn_nac_user.
from __future__ import annotations

import ctypes
import os
import pathlib
from typing import Iterator, Optional

from ._record import LibraryNotFound

# The bus first, for all to see: the other takes its VORN functions from the process.
_NAMES = ("libvorn_bus.so.1", "libvorn_nac_user.so.1")
_FOLDER_VARIABLE = "VORN_NAC_LIBRARY_DIR"


def _folders() -> Iterator[Optional[pathlib.Path]]:
    """Where to look, in this order. None: where the loader looks."""
    chosen = os.environ.get(_FOLDER_VARIABLE)
    if chosen:
        yield pathlib.Path(chosen)
        return
    yield None
    yield pathlib.Path(__file__).absolute().parents[2]  # build/<preset> has the libraries and python/vorn_nac


def _load() -> tuple[ctypes.CDLL, ctypes.CDLL]:
    complaints = []
    for folder in _folders():
        try:
            bus, codec = (ctypes.CDLL(name if folder is None else str(folder / name), mode=ctypes.RTLD_GLOBAL)
                          for name in _NAMES)
            return bus, codec
        except OSError as error:
            complaints.append(str(error))
    raise LibraryNotFound(
        f"{_NAMES[0]} and {_NAMES[1]} cannot be loaded; install them, build them with ./dev build, "
        f"or name their folder in {_FOLDER_VARIABLE}:\n  " + "\n  ".join(complaints))


bus, codec = _load()
