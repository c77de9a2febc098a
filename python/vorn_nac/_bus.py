# SPDX-License-Identifier: Apache-2.0
# The bus: libvorn_bus, opened, sent through and polled from Python.
import collections
import ctypes
import enum
import logging
import os
import threading
import time
import weakref
from dataclasses import dataclass
from typing import Any, Iterable, Iterator, Literal, Optional, Self, Union

from . import _codec, _library
from ._catalogue import CATALOGUES
from ._codec import Record
from ._errors import Error
from ._inspect import Fault

_log = logging.getLogger("vorn_nac")


class Result(enum.IntEnum):
    """What the bus's functions return."""

    OK = 0
    NOT_OPEN = 1
    BAD_ARGUMENT = 2
    BAD_URL = 3
    ADDRESS_TAKEN = 4
    NO_PEER = 5
    FULL = 6
    TOO_LARGE = 7
    LOST = 8
    TIMEOUT = 9
    BUSY = 11
    NO_TRANSPORT = 12
    NO_MEMORY = 13
    SYSTEM_ERROR = 14
    HANDLER_FAILED = 15


class BusError(Error):
    """The bus refused. `result` is the reason."""

    def __init__(self, doing: str, result: int) -> None:
        self.result: Union[Result, int] = Result(result) if result in list(Result) else result
        text = _library.bus.vorn_bus_result_text(result).decode()
        super().__init__(f"{doing}: {text}")


@dataclass(frozen=True)
class Message:
    """A message that has arrived."""

    record: Record  # as unpack left it, if the message is damaged
    source: int  # the sender's address
    destination: int
    target: int  # what the sender gave, or 0
    repeated: bool  # it had reached a process that was killed before it acknowledged it
    packed: bytes
    damaged: Optional[bool]  # None: nobody has looked, since the bus was opened with check="none"

    @property
    def faults(self) -> list[Fault]:
        """Its faults; an empty list if it is valid."""
        return _codec.verify(type(self.record), self.packed)


@dataclass(frozen=True)
class Counters:
    """What a bus has counted. vorn/vorn_bus.h defines each counter."""

    sent_batches: int
    sent_messages: int
    refused_batches: int
    lost_batches: int
    unhandled_batches: int
    received_batches: int
    received_messages: int
    waiting_batches: int
    unknown_messages: int
    ignored_messages: int
    damaged: int
    redelivered_batches: int
    missed_batches: int
    damaged_messages: int


_LogFunction = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_void_p)


class _Options(ctypes.Structure):
    _fields_ = [("size", ctypes.c_uint32), ("address", ctypes.c_uint32), ("url", ctypes.c_char_p),
                ("queue_batches", ctypes.c_uint32), ("queue_bytes", ctypes.c_uint32), ("batch_bytes", ctypes.c_uint32),
                ("send_timeout_ms", ctypes.c_int32), ("linger_ms", ctypes.c_int32), ("check", ctypes.c_uint32),
                ("log", _LogFunction), ("log_context", ctypes.c_void_p), ("send_only", ctypes.c_uint32),
                ("open_timeout_ms", ctypes.c_int32), ("spin_us", ctypes.c_uint32), ("reserved", ctypes.c_uint32)]


class _Message(ctypes.Structure):
    _fields_ = [("message_id", ctypes.c_uint32), ("source", ctypes.c_uint32), ("destination", ctypes.c_uint32),
                ("flags", ctypes.c_uint32), ("target", ctypes.c_uint64), ("record", ctypes.c_void_p),
                ("packed", ctypes.c_void_p), ("record_bytes", ctypes.c_uint32), ("packed_bytes", ctypes.c_uint32)]


class _Descriptor(ctypes.Structure):
    _fields_ = [("buffer", ctypes.c_char_p), ("message_id", ctypes.c_uint32), ("length", ctypes.c_uint32)]


class _Counters(ctypes.Structure):
    _fields_ = [("size", ctypes.c_uint32), ("reserved", ctypes.c_uint32),
                *((name, ctypes.c_uint64) for name in Counters.__dataclass_fields__)]


_Handler = ctypes.CFUNCTYPE(None, ctypes.POINTER(_Message), ctypes.c_void_p)
_REPEATED, _VERIFIED, _DAMAGED = 1, 2, 4
_CHECKS = {"flag": 0, "drop": 1, "none": 2}
_FOR_EVER = -1


def _declare() -> None:
    handle, i32, u32 = ctypes.c_void_p, ctypes.c_int32, ctypes.c_uint32
    functions: dict[str, tuple[Any, list[Any]]] = {
        "vorn_bus_result_text": (ctypes.c_char_p, [i32]),
        "vorn_bus_open": (i32, [ctypes.POINTER(_Options), ctypes.POINTER(handle)]),
        "vorn_bus_close": (None, [handle]),
        "vorn_bus_handle_all": (i32, [handle, _Handler, handle]),
        "vorn_bus_poll": (i32, [handle, i32, u32, ctypes.POINTER(u32)]),
        "vorn_bus_send": (i32, [handle, u32, ctypes.POINTER(_Descriptor), u32, ctypes.c_uint64]),
        "vorn_bus_flush": (i32, [handle, i32]),
        "vorn_bus_read_counters": (i32, [handle, ctypes.POINTER(_Counters)]),
        "vorn_bus_ask_counters": (i32, [ctypes.c_char_p, u32, i32, ctypes.POINTER(_Counters)]),
        "vorn_bus_display_url": (ctypes.c_char_p, [ctypes.c_char_p]),
        "vorn_bus_endpoint": (ctypes.c_char_p, [handle]),
        "vorn_bus_descriptor": (ctypes.c_int, [handle]),
        "vorn_bus_verify_with": (i32, [handle]),
    }
    for name, (result, arguments) in functions.items():
        function = getattr(_library.bus, name)  # which keeps it, unlike bus[name]
        function.restype = result
        function.argtypes = arguments


_declare()


def _write_log(text: bytes, context: int) -> None:
    _log.warning("%s", text.decode(errors="replace"))


_log_line = _LogFunction(_write_log)


def _register_types() -> None:
    """What verifies messages, and what unpacks and frees each type."""
    for catalogue in CATALOGUES:
        result = (_library.bus.vorn_bus_verify_with(catalogue.contents.verify)
                  or _library.inspect.vorn_inspect_register_all(catalogue))
        if result != Result.OK:
            raise BusError("registering the message types", result)


def _milliseconds(seconds: Optional[float]) -> int:
    return _FOR_EVER if seconds is None else min(max(0, round(seconds * 1000)), 0x7FFFFFFF)


class Bus:
    """An open bus at an address, to which others send. docs/bus.md lists its guarantees.

        with Bus("ipc://", 1) as bus:
            bus.send(2, Nac_SetPortMsg(f0=24, f1=1))
            bus.flush()

    url: "ipc://", "nats://..." or "loop:"; None: VORN_BUS_URL of the environment, else "loop:".
    The options are those of vorn_bus_options, times in seconds; 0 means the default. check: what becomes of damaged
    messages: "flag", they arrive with `damaged`; "drop", they do not arrive; "none", nobody looks. Log lines of the bus go
    to the logger "vorn_nac". One thread at a time may receive, any may send; close when none uses the bus any more.
    """

    def __init__(self, url: Optional[str] = None, address: int = 0, *, queue_batches: int = 0, queue_bytes: int = 0,
                 batch_bytes: int = 0, send_timeout: Optional[float] = None, linger: Optional[float] = None,
                 check: Literal["flag", "drop", "none"] = "flag") -> None:
        def wait(seconds: Optional[float]) -> int:  # 0 is the default, negative: do not wait
            return 0 if seconds is None else _milliseconds(seconds) or -1

        for name, value in (("address", address), ("queue_batches", queue_batches), ("queue_bytes", queue_bytes),
                            ("batch_bytes", batch_bytes)):
            _within_32_bits(name, value)
        if check not in _CHECKS:
            raise ValueError(f"{check!r} is no check of messages; there are flag, drop and none")
        encoded = None if url is None else url.encode()
        options = _Options(ctypes.sizeof(_Options), address, encoded, queue_batches, queue_bytes, batch_bytes,
                           wait(send_timeout), wait(linger), _CHECKS[check], _log_line, None)
        _register_types()
        handle = ctypes.c_void_p()
        self._check(f"opening {_library.bus.vorn_bus_display_url(encoded).decode()} at {address}",
                    _library.bus.vorn_bus_open(ctypes.byref(options), ctypes.byref(handle)))
        self.address = address
        self._handle: Optional[ctypes.c_void_p] = handle
        self._arrived: collections.deque[Message] = collections.deque()
        self._receiving = threading.Lock()
        self._process = os.getpid()
        self._handler = _handler_for(self._arrived)
        self._close = weakref.finalize(self, _close, handle, self._handler)
        self._check("receiving", _library.bus.vorn_bus_handle_all(handle, self._handler, None))

    @staticmethod
    def _check(doing: str, result: int) -> None:
        if result != Result.OK:
            raise BusError(doing, result)

    def _open(self) -> ctypes.c_void_p:
        if self._handle is None:
            raise BusError("this bus is closed", Result.NOT_OPEN)
        if self._process != os.getpid():
            raise BusError("this bus was opened before a fork, by the parent", Result.NOT_OPEN)
        return self._handle

    def send(self, to: int, records: Union[Record, Iterable[Record]], target: int = 0) -> None:
        """Sends one record, or several as one batch: all of them arrive, in order and together, or none.

        Waits for a peer and for capacity in its queue, at most send_timeout. Raises BusError if the batch was not sent.
        A batch that was sent may not have been handled yet: see flush.
        """
        _within_32_bits("to", to)
        if not 0 <= target < 1 << 64:
            raise ValueError(f"target {target} does not fit into 64 bits")
        several = isinstance(records, Iterable) and not isinstance(records, (str, dict))
        batch: list[Any] = [*records] if several else [records]  # type: ignore[misc]
        descriptors = (_Descriptor * len(batch))()
        for descriptor, record in zip(descriptors, batch):
            packed = _codec.pack(record, "sent")
            descriptor.buffer, descriptor.message_id, descriptor.length = packed, record.shape.id, len(packed)
        self._check(f"sending to {to}",
                    _library.bus.vorn_bus_send(self._open(), to, descriptors, len(batch), target))

    def receive(self, timeout: Optional[float] = None) -> Optional[Message]:
        """The next message, or None if none has come within `timeout` seconds; without one it waits for ever."""
        end = None if timeout is None else time.monotonic() + timeout
        self._open()  # or, in a forked child, the lock may be held by a thread that the child has not
        with self._receiving:
            while not self._arrived:
                left = None if end is None else max(0.0, end - time.monotonic())
                # Waits in pieces, so that an interrupt from the keyboard ends it.
                piece = 0.2 if left is None else min(left, 0.2)
                self._check("receiving", _library.bus.vorn_bus_poll(self._open(), _milliseconds(piece), 1, None))
                if not self._arrived and left is not None and left <= piece:
                    return None
            return self._arrived.popleft()

    def __iter__(self) -> Iterator[Message]:
        """Messages as they come, for ever."""
        while True:
            message = self.receive()
            if message is not None:
                yield message

    def flush(self, timeout: Optional[float] = None) -> None:
        """Waits until all that was sent has been handled by its receivers (nats: is stored).

        Raises BusError: LOST, once, if batches were lost since the last flush; TIMEOUT if some are on their way still.
        """
        self._check("flush", _library.bus.vorn_bus_flush(self._open(), _milliseconds(timeout)))

    @property
    def counters(self) -> Counters:
        """What this bus has counted."""
        counters = _Counters(ctypes.sizeof(_Counters))
        _library.bus.vorn_bus_read_counters(self._open(), ctypes.byref(counters))
        return _to_counters(counters)

    @property
    def endpoint(self) -> str:
        """Where this bus receives, for people: "ipc:///run/user/1/vorn/7.sock"."""
        return str(_library.bus.vorn_bus_endpoint(self._open()).decode())

    def fileno(self) -> int:
        """A descriptor for select or a selector: readable while receive has something to do."""
        return int(_library.bus.vorn_bus_descriptor(self._open()))

    def close(self) -> None:
        """Waits for batches on their way, at most `linger`, and closes. A second call does nothing."""
        self._handle = None
        self._close()

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()


def _handler_for(arrived: collections.deque[Message]) -> Any:
    """What the bus calls. It refers to the queue and not to the Bus, so that the Bus can be collected."""
    def handle(pointer: Any, context: int) -> None:
        message = pointer.contents
        record = _codec.copier_of(_codec.type_of(message.message_id)).read(
            ctypes.string_at(message.record, message.record_bytes))
        arrived.append(Message(record, message.source, message.destination, message.target,
                               bool(message.flags & _REPEATED),
                               ctypes.string_at(message.packed, message.packed_bytes),
                               bool(message.flags & _DAMAGED) if message.flags & _VERIFIED else None))
    return _Handler(handle)


def _close(handle: ctypes.c_void_p, handler: Any) -> None:
    """The handler is kept until the bus, which may call it, is closed."""
    _library.bus.vorn_bus_close(handle)


def _within_32_bits(name: str, value: int) -> None:
    if not 0 <= value < 1 << 32:
        raise ValueError(f"{name} {value} does not fit into 32 bits")


def _to_counters(counters: _Counters) -> Counters:
    return Counters(**{name: getattr(counters, name) for name in Counters.__dataclass_fields__})


def ask_counters(address: int, url: Optional[str] = None, timeout: float = 2.0) -> Counters:
    """The counters of the bus that is open at an address, perhaps of another process."""
    _within_32_bits("address", address)
    counters = _Counters(ctypes.sizeof(_Counters))
    result = _library.bus.vorn_bus_ask_counters(None if url is None else url.encode(), address, _milliseconds(timeout),
                                                ctypes.byref(counters))
    if result != Result.OK:
        raise BusError(f"asking address {address}", result)
    return _to_counters(counters)
