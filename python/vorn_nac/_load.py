# SPDX-License-Identifier: Apache-2.0
# Packages of messages other than Nac's: record classes, made of a catalogue when it is loaded.
import ctypes
import dataclasses
import functools
import os
import types
from typing import Annotated, Any, Union

from . import _catalogue, _codec
from ._catalogue import Field
from ._codec import Record
from ._errors import BadCatalogue
from ._ranges import Length, u8, u16, u32, u64

_NUMBERS = {1: u8, 2: u16, 4: u32, 8: u64}
_LOADED: dict[int, types.ModuleType] = {}  # by the catalogue's address


def _attribute(field: Field, classes: dict[str, type[Record]]) -> tuple[str, Any, Any]:
    """What makes a dataclass have the field: its name, annotation and default."""
    if field.form == "scalar":
        return field.name, _NUMBERS[field.element_bytes], dataclasses.field(default=0)
    element = classes[field.table] if field.table is not None else _NUMBERS[field.element_bytes]
    if field.form == "nested table":
        return field.name, element, dataclasses.field(default_factory=element)
    kind: Any = bytes if field.table is None and field.element_bytes == 1 else list
    zeros = kind([0] * field.count)  # of a vector: none
    annotation = bytes if kind is bytes else types.GenericAlias(list, (element,))
    return (field.name, Annotated[annotation, Length(field.count)] if field.form == "fixed array" else annotation,
            dataclasses.field(default_factory=functools.partial(kind, zeros)))


def load(path: Union[str, "os.PathLike[str]"]) -> types.ModuleType:
    """The record classes of another package, by its catalogue: what vorn_add_package of CMake makes, or the name under which
    it is installed.

        lease = load("build/libvorn_lease_catalogue.so")
        packed = pack(lease.Lease_Request(f0=7))

    From now on its messages are known wherever this package takes a name, an id or a message, and to every Bus that is
    opened. Code of the file runs: load only what you trust. Raises BadCatalogue.
    """
    catalogue = _catalogue.loaded(path)
    address = ctypes.addressof(catalogue.contents)
    if address in _LOADED:
        return _LOADED[address]
    shapes = _catalogue.shapes_of(catalogue)
    known = sorted(_codec.known_types(shapes))
    if known:
        raise BadCatalogue(f"{os.fspath(path)} has {known[0]}, which another catalogue of this process has; "
                           "load each in a process of its own")
    package = catalogue.contents.package.decode()
    module = types.ModuleType(f"{package.lower()} of {os.fspath(path)}", f"The messages of the {package} package.")
    classes: dict[str, type[Record]] = {}
    for name, shape in shapes.items():
        classes[name] = dataclasses.make_dataclass(
            name, [_attribute(field, classes) for field in shape.fields], bases=(Record,), slots=True,
            namespace={"shape": shape, "__module__": module.__name__})
        setattr(module, name, classes[name])
    _catalogue.CATALOGUES.append(catalogue)
    return _LOADED.setdefault(address, module)
