# SPDX-License-Identifier: Apache-2.0
# The dissector on what passes between the bus and a server of NATS: the bytes of both connections are kept by a relay
# between them, and given to tshark as TCP.
#
# NAC names the tool.
import collections
import os
import pathlib
import select
import socket
import struct
import subprocess
import tempfile
import threading
import time
import unittest
import xml.etree.ElementTree

from drive import NAC, ROOT, SESSION, nac

TSHARK = os.environ.get("TSHARK", "tshark")
LINKTYPE_ETHERNET = 1
Segment = tuple[int, bool, bytes]  # connection, whether it is the server's, bytes


def free_port() -> int:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Relay(threading.Thread):
    """Hands everything between clients and a server on, and keeps it."""

    def __init__(self, server: int) -> None:
        super().__init__(daemon=True)
        self.server = server
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.segments: list[Segment] = []
        self.start()

    def run(self) -> None:
        partners: dict[socket.socket, tuple[socket.socket, int, bool]] = {}
        while True:
            for ready in select.select([self.listener, *partners], [], [])[0]:
                if ready is self.listener:
                    client, server = self.listener.accept()[0], socket.create_connection(("127.0.0.1", self.server))
                    number = len(partners) // 2
                    partners[client], partners[server] = (server, number, False), (client, number, True)
                    continue
                other, number, is_server = partners[ready]
                try:
                    data = ready.recv(65536)
                    other.sendall(data)
                except OSError:
                    data = b""
                if data:
                    self.segments.append((number, is_server, data))
                else:
                    partners.pop(ready, None)
                    partners.pop(other, None)
                    ready.close()
                    other.close()


def capture(segments: list[Segment], most: int = 1400) -> bytes:
    """The segments as TCP packets of at most `most` bytes, in a capture."""
    made = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, LINKTYPE_ETHERNET)
    sequence: dict[tuple[int, bool], int] = collections.defaultdict(lambda: 1)
    for number, is_server, data in segments:
        for at in range(0, len(data), most):
            part = data[at:at + most]
            ports = (4222, 40000 + number) if is_server else (40000 + number, 4222)
            tcp = struct.pack(">HHIIBBHHH", *ports, sequence[number, is_server], sequence[number, not is_server], 0x50, 0x18,
                              65535, 0, 0) + part
            sequence[number, is_server] += len(part)
            ip = struct.pack(">BBHHHBBHII", 0x45, 0, 20 + len(tcp), 0, 0, 64, 6, 0, 0x7F000001, 0x7F000001) + tcp
            frame = bytes(12) + b"\x08\x00" + ip
            made += struct.pack("<IIII", 1, 0, len(frame), len(frame)) + frame
    return made


def dissected(data: bytes) -> collections.Counter[tuple[str, str]]:
    """How often each field is shown with each value."""
    with tempfile.TemporaryDirectory() as folder:
        script, file = pathlib.Path(folder, "nac.lua"), pathlib.Path(folder, "wire.pcap")
        script.write_text(nac("dissector").stdout)
        file.write_bytes(data)
        done = subprocess.run([TSHARK, "-X", f"lua_script:{script}", "-r", str(file), "-T", "pdml"], capture_output=True,
                              timeout=120, env={**os.environ, "HOME": folder, "LC_ALL": "C.UTF-8"}, check=True)
    errors = [line for line in done.stderr.decode().splitlines() if "Running as user" not in line]
    assert not errors, errors
    root = xml.etree.ElementTree.fromstring(done.stdout)
    return collections.Counter((field.get("name", ""), field.get("show", "")) for field in root.iter("field"))


class Wire(unittest.TestCase):
    segments: list[Segment] = []

    @classmethod
    def setUpClass(cls) -> None:
        """Sends the example session over a server."""
        with tempfile.TemporaryDirectory() as folder:
            port = free_port()
            server = subprocess.Popen(["nats-server", "-js", "-a", "127.0.0.1", "-p", str(port), "-sd", folder],
                                      stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                for _ in range(200):
                    with socket.socket() as probe:
                        if probe.connect_ex(("127.0.0.1", port)) == 0:
                            break
                    time.sleep(0.05)
                relay = Relay(port)
                environment = {**os.environ, "VORN_BUS_URL": f"nats://127.0.0.1:{relay.port}", "XDG_STATE_HOME": folder}
                listener = subprocess.Popen([NAC, "listen", "--as", "2", "--count", "29", "--timeout", "30"], cwd=ROOT,
                                            env=environment, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
                assert listener.stderr is not None
                listener.stderr.readline()
                sent = nac("send", "--as", "1", "--to", "2", str(SESSION), env=environment)
                assert sent.returncode == 0, sent.stderr
                assert listener.wait(40) == 0
                listener.stderr.close()
            finally:
                server.terminate()
                server.wait()
        cls.segments = relay.segments

    def test_each_message_is_shown_on_its_way_to_the_server_and_from_it(self) -> None:
        shown = dissected(capture(self.segments))
        self.assertEqual(shown["vorn.id", "0x09b58155"], 4)  # Nac_SetPortMsg, twice each way
        self.assertEqual(sum(count for (name, _), count in shown.items() if name == "vorn.id"), 58)
        self.assertEqual(shown["nac.Nac_SetPortMsg.f0", "24"], 2)
        self.assertEqual([name for name, _ in shown if "damaged" in name or "malformed" in name], [])
        self.assertGreaterEqual(shown["vorn.attempt", "1"], 2)

    def test_small_segments_are_put_together(self) -> None:
        whole, small = dissected(capture(self.segments)), dissected(capture(self.segments, 60))
        ours = ("vorn.", "nac.")
        self.assertEqual({key: count for key, count in whole.items() if key[0].startswith(ours)},
                         {key: count for key, count in small.items() if key[0].startswith(ours)})

    def test_a_capture_may_begin_within_a_payload(self) -> None:
        packet = next(index for index, (_, is_server, data) in enumerate(self.segments) if not is_server and b"VORN\1\4" in data)
        number, is_server, data = self.segments[packet]
        shown = dissected(capture([(number, is_server, data[data.index(b"VORN\1\4") + 10:]), *self.segments[packet + 1:]]))
        self.assertGreaterEqual(sum(count for (name, _), count in shown.items() if name == "vorn.id"), 50)

    def test_damaged_batches_are_marked(self) -> None:
        damaged = [(number, is_server, data.replace(b"VORN\1\1", b"VORN\1\2")) for number, is_server, data in self.segments]
        shown = dissected(capture(damaged))
        self.assertGreater(shown["vorn_nats.malformed", ""] + shown["_ws.expert.message", "a batch is damaged, at byte 40"], 0)
        self.assertEqual(sum(count for (name, _), count in shown.items() if name == "vorn.id"), 0)


if __name__ == "__main__":
    unittest.main()
