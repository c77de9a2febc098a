# SPDX-License-Identifier: Apache-2.0
# Captures in Python, written from docs/captures.md alone: what the tool is checked against.
import dataclasses
import struct

SECTION, INTERFACE, STATISTICS, PACKET = 0x0A0D0D0A, 1, 5, 6
LINK_TYPE = 147


@dataclasses.dataclass
class Message:
    id: int
    data: bytes
    source: int = 1
    destination: int = 2
    target: int = 0
    position: int = 0
    count: int = 1
    batch: int = 1
    time: int = 1_700_000_000_000_000_000
    cut: int = 0  # bytes that the recorder left out

    def header(self) -> bytes:
        return struct.pack("<BBHIIIQIIQ", 1, 40, 0, self.id, self.source, self.destination, self.target, self.position,
                           self.count, self.batch)


def block(kind: int, content: bytes, order: str = "<") -> bytes:
    content += bytes(-len(content) % 4)
    length = struct.pack(order + "I", len(content) + 12)
    return struct.pack(order + "I", kind) + length + content + length


def option(code: int, value: bytes, order: str = "<") -> bytes:
    return struct.pack(order + "HH", code, len(value)) + value + bytes(-len(value) % 4)


def start(order: str = "<", resolution: int | None = 9, link_type: int = LINK_TYPE) -> bytes:
    options = b"" if resolution is None else option(9, bytes([resolution]), order) + option(0, b"", order)
    return (block(SECTION, struct.pack(order + "IHHq", 0x1A2B3C4D, 1, 0, -1), order)
            + block(INTERFACE, struct.pack(order + "HHI", link_type, 0, 0) + options, order))


def packet(message: Message, order: str = "<", ticks: int | None = None) -> bytes:
    data = message.header() + message.data
    time = message.time if ticks is None else ticks
    head = struct.pack(order + "IIIII", 0, time >> 32, time & 0xFFFFFFFF, len(data), len(data) + message.cut)
    return block(PACKET, head + data, order)


def capture(messages: list[Message]) -> bytes:
    return start() + b"".join(map(packet, messages))


def batches(messages: list[tuple[int, bytes]]) -> list[Message]:
    """A batch for each, a millisecond apart."""
    return [Message(id, data, batch=number + 1, time=1_700_000_000_000_000_000 + number * 1_000_000)
            for number, (id, data) in enumerate(messages)]


def read(data: bytes) -> tuple[list[tuple[int, bytes]], list[Message]]:
    """All blocks (little-endian), and the messages in them."""
    blocks, messages, at = [], [], 0
    while at < len(data):
        kind, length = struct.unpack_from("<II", data, at)
        assert length % 4 == 0 and length >= 12 and struct.unpack_from("<I", data, at + length - 4)[0] == length
        content = data[at + 8:at + length - 4]
        blocks.append((kind, content))
        if kind == PACKET:
            interface, high, low, captured, original = struct.unpack_from("<IIIII", content)
            bytes_ = content[20:20 + captured]
            version, header, flags, id, source, destination, target, position, count, batch = struct.unpack_from(
                "<BBHIIIQIIQ", bytes_)
            assert (interface, version, header, flags) == (0, 1, 40, 0)
            messages.append(Message(id, bytes_[40:], source, destination, target, position, count, batch, high << 32 | low,
                                    original - captured))
        at += length
    return blocks, messages
