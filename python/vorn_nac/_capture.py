# SPDX-License-Identifier: Apache-2.0
# Captures of `nac record`, which the program nac reads: it prints each message, with its bytes, as a JSON line.
import json
import os
import pathlib
import subprocess
from dataclasses import dataclass
from datetime import datetime
from typing import Iterator, Optional, Self, Union

from . import _codec, _library
from ._codec import Record
from ._errors import Error
from ._inspect import Fault


class BadCapture(Error, ValueError):
    """A file is no capture, cannot be read, or ends early; the text says where."""


@dataclass(frozen=True)
class CapturedMessage:
    """A message of a capture. docs/captures.md has more on each member."""

    packet: int  # from 1, as Wireshark numbers them
    time: int  # nanoseconds since 1970
    source: int  # the sender's address
    destination: int
    target: int  # what the sender gave, or 0
    batch: int  # its number in the capture, from 1
    position: int  # in the batch, from 0
    count: int  # messages in the batch
    id: int  # of its type, known or not
    cut_bytes: int  # which the recorder left out
    packed: bytes

    @property
    def type(self) -> Optional[type[Record]]:
        """The class of its record; None if its id is no message type's."""
        return _codec.TYPES_BY_ID.get(self.id)

    @property
    def record(self) -> Optional[Record]:
        """Its record, as unpack leaves it if the message is damaged or cut; None if its type is unknown."""
        if self.type is None:
            return None
        try:
            return _codec.unpack(self.type, self.packed)
        except _codec.Damaged as damaged:
            return damaged.record

    @property
    def faults(self) -> list[Fault]:
        """Its faults; an empty list if it is valid, or of unknown type."""
        return [] if self.type is None else _codec.verify(self.type, self.packed)


def _nanoseconds(text: str) -> int:
    """Since 1970, of 2025-11-21T14:40:00.250113000Z."""
    second, fraction = text.removesuffix("Z").split(".")
    return int(datetime.fromisoformat(second + "+00:00").timestamp()) * 10**9 + int(fraction)


class Capture:
    """The messages of a capture, one by one; it can be iterated once. Closing it ends the reading."""

    def __init__(self, path: Union[str, "os.PathLike[str]"]) -> None:
        absolute = str(pathlib.Path(path).absolute())  # which is neither an option nor -
        self._nac = subprocess.Popen([_library.program(), "info", "--json", "--messages", absolute],
                                     stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def __iter__(self) -> Iterator[CapturedMessage]:
        """Raises BadCapture at the end of what can be read, if that is not the capture's end."""
        lines, complaints = self._nac.stdout, self._nac.stderr
        assert lines is not None and complaints is not None
        if lines.closed:
            return
        for line in lines:
            given = json.loads(line)
            packed = bytes.fromhex(given["hex"])
            yield CapturedMessage(given["packet"], _nanoseconds(given["time"]), given["from"], given["to"], given["target"],
                                  given["batch"], given["position"], given["count"], given["id"],
                                  given["bytes"] - len(packed), packed)
        complaint = complaints.read().decode(errors="replace").strip()
        code = self._nac.wait()
        self.close()
        if code != 0:
            raise BadCapture(complaint.removeprefix("nac: "))

    def close(self) -> None:
        """Ends the reading. A second call does nothing."""
        self._nac.kill()
        self._nac.communicate()

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()


def open_capture(path: Union[str, "os.PathLike[str]"]) -> Capture:
    """A capture of `nac record`, to be read message by message:

        with open_capture("session.pcapng") as capture:
            for message in capture:
                print(message.time, message.source, message.record, message.faults)
    """
    return Capture(path)
