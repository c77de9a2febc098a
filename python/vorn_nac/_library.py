# SPDX-License-Identifier: Apache-2.0
# Finds and loads the libraries, and finds the program nac.
import ctypes
import os
import pathlib
import shutil
from typing import Iterator, Optional

from ._errors import LibraryNotFound

# The bus first, for all to see: the next takes its VORN functions from the process.
_NAMES = ("libvorn_bus.so.1", "libvorn_nac_user.so.1", "libvorn_nac_inspect.so.1")
_FOLDER_VARIABLE = "VORN_NAC_LIBRARY_DIR"
_PACKAGE = pathlib.Path(__file__).absolute().parent


def _folders() -> Iterator[Optional[pathlib.Path]]:
    """Where to look, in this order. None: where the system looks."""
    chosen = os.environ.get(_FOLDER_VARIABLE)
    if chosen:
        yield pathlib.Path(chosen)
        return
    if (_PACKAGE / _NAMES[0]).exists():
        yield _PACKAGE  # a wheel brings them along
    yield None
    yield _PACKAGE.parents[1]  # build/<preset> has the libraries and python/vorn_nac


def _load() -> list[ctypes.CDLL]:
    complaints = []
    for folder in _folders():
        try:
            return [ctypes.CDLL(name if folder is None else str(folder / name), mode=ctypes.RTLD_GLOBAL)
                    for name in _NAMES]
        except OSError as error:
            complaints.append(str(error))
    raise LibraryNotFound(
        f"{', '.join(_NAMES)} cannot be loaded; install them, build them with ./dev build, "
        f"or name their folder in {_FOLDER_VARIABLE}:\n  " + "\n  ".join(complaints))


def program() -> str:
    """The program nac, from where libraries are looked for."""
    for folder in _folders():
        found = shutil.which("nac", path=None if folder is None else str(folder))
        if found:
            return found
    raise LibraryNotFound("the program nac, which reads captures, is not where the libraries are and not in PATH; "
                          f"install it, build it with ./dev build, or name its folder in {_FOLDER_VARIABLE}")


bus, codec, inspect = _load()
