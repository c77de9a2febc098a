# SPDX-License-Identifier: Apache-2.0
"""Typed access-control messages for the VORN bus.

Each message type is a dataclass. pack makes bytes of a record, unpack makes a record of bytes, verify lists the faults
of bytes, Bus sends and receives records between processes, open_capture reads what `nac record` has recorded, and load
brings the messages of another package:

    from vorn_nac import Bus, Nac_SetPortMsg, pack, unpack, verify

    packed = pack(Nac_SetPortMsg(f0=24, f1=1))
    unpack(Nac_SetPortMsg, packed).f0               # 24
    verify(Nac_SetPortMsg, packed[:-1])[0].what     # where and why it is damaged

    with Bus("ipc://", 1) as bus:
        bus.send(2, Nac_SetPortMsg(f0=24, f1=1))    # to the process at address 2
        bus.flush()                                 # until it is handled there

libvorn_nac_user, libvorn_nac_inspect and libvorn_bus do the work. They are loaded from the folder that
VORN_NAC_LIBRARY_DIR names. If it is not set, they are loaded from the package itself, if it brings them, else from where
the dynamic loader looks, else from the build tree that contains this package.

Every exception of this package derives from Error: BadRecord, WrongKind, Damaged, BusError, BadCapture, BadCatalogue,
UnknownType, LibraryNotFound.
"""
from . import records
from ._bus import Bus, BusError, Counters, Message, Result, ask_counters
from ._capture import BadCapture, Capture, CapturedMessage, open_capture
from ._catalogue import Field, Shape
from ._codec import TYPES, Damaged, Layout, Record, from_json, inspect, pack, to_json, type_of, unpack, verify
from ._errors import BadCatalogue, BadRecord, Error, LibraryNotFound, UnknownType, WrongKind
from ._inspect import Fault, Inspection
from ._load import load
from ._ranges import Length, Range
from ._version import __version__
from .records import *  # noqa: F403

__all__ = [
    "pack", "unpack", "verify", "inspect", "Fault", "Inspection", "Layout",
    "Bus", "Message", "Counters", "Result", "ask_counters",
    "open_capture", "Capture", "CapturedMessage", "load",
    "TYPES", "type_of", "to_json", "from_json", "Record", "Shape", "Field", "Range", "Length",
    "Error", "BadRecord", "WrongKind", "Damaged", "BusError", "BadCapture", "BadCatalogue", "UnknownType", "LibraryNotFound",
    "__version__",
]
__all__ += records.__all__

# So that help and tracebacks name the module from which users import them.
for _name in __all__:
    if getattr(globals()[_name], "__module__", "").startswith("vorn_nac._"):
        globals()[_name].__module__ = __name__
del _name
