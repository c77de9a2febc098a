# SPDX-License-Identifier: Apache-2.0
# Senders and receivers on ipc are killed, ended by a signal, or exit at random times: every message that was accepted
# comes, once and in its order.
#
# PEER names the program that sends and receives; SEED and MESSAGES may be given.
import collections
import json
import os
import pathlib
import random
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest

PEER = os.environ["PEER"]
SEED = int(os.environ.get("SEED", "1"))
MESSAGES = int(os.environ.get("MESSAGES", "600000"))


def records(path: pathlib.Path) -> list[tuple[int, int]]:
    data = path.read_bytes() if path.exists() else b""
    return list(struct.iter_unpack("<II", data[: len(data) // 8 * 8]))


class Kill(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = tempfile.TemporaryDirectory()
        self.file = pathlib.Path(self.folder.name) / "received"
        self.url = f"ipc://{self.folder.name}/bus"
        self.running: list[subprocess.Popen[str]] = []
        self.random = random.Random(SEED)

    def tearDown(self) -> None:
        for process in self.running:
            process.kill()
            process.communicate()
        self.folder.cleanup()

    def start(self, *arguments: object) -> "subprocess.Popen[str]":
        process = subprocess.Popen([PEER, *map(str, arguments)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.running.append(process)
        return process

    def check_received(self) -> dict[int, int]:
        """Each generation's numbers rise, so none came twice; how many came of each."""
        last: dict[int, int] = {}
        came: dict[int, int] = collections.Counter()
        for generation, number in records(self.file):
            self.assertGreater(number, last.get(generation, -1), f"doubled or out of order in generation {generation}")
            last[generation] = number
            came[generation] += 1
        return came

    def receiver_ends(self, url: str, end: signal.Signals, ended: str) -> None:
        receiver = self.start("receive", url, 2, self.file)
        sender = self.start("send", url, 1, 2, 0, MESSAGES)
        kills = 0
        while sender.poll() is None:
            time.sleep(self.random.uniform(0.02, 0.15))
            if kills < 8:
                receiver.send_signal(end)
                receiver.communicate()
                kills += 1
                receiver = self.start("receive", url, 2, self.file)
        output, errors = sender.communicate()
        self.assertEqual(sender.returncode, 0, errors)
        report = json.loads(output)
        receiver.terminate()
        receiver.communicate(timeout=20)
        came = self.check_received()[0]
        self.assertEqual(report["accepted"], MESSAGES)
        self.assertEqual((report["left"], report["lost_batches"], MESSAGES - came), (0, 0, 0))
        print(f"count: ipc: {MESSAGES} messages, {kills} times a receiver {ended}, 0 missing, 0 doubled, 0 out of order")

    def senders_are_killed(self, url: str) -> None:
        receiver = self.start("receive", url, 2, self.file)
        kills = 6
        for generation in range(kills):
            sender = self.start("send", url, 1, 2, generation, 100_000_000)
            before = len(records(self.file))
            deadline = time.monotonic() + 20
            while len(records(self.file)) < before + 100:
                self.assertLess(time.monotonic(), deadline, "nothing arrives")
                time.sleep(0.01)
            time.sleep(self.random.uniform(0, 0.1))
            sender.kill()
            sender.communicate()
        last = self.start("send", url, 1, 2, kills, 1000)
        output, errors = last.communicate(timeout=60)
        self.assertEqual(last.returncode, 0, errors)
        self.assertEqual(json.loads(output)["lost_batches"], 0)
        receiver.terminate()
        receiver.communicate(timeout=20)
        came = self.check_received()
        self.assertEqual(came[kills], 1000)
        # What a killed sender had sent is there from its first message on, without a gap.
        for generation in range(kills):
            numbers = [number for of, number in records(self.file) if of == generation]
            self.assertEqual(numbers, list(range(len(numbers))))
        print(f"count: ipc: {kills} kills of the sender, {sum(came.values())} messages, no gap, 0 doubled")

    def sender_exits(self, url: str) -> None:
        """Right after its last send, without a flush or a close."""
        receiver = self.start("receive", url, 2, self.file)
        for generation in range(20):
            sender = self.start("exit", url, 1, 2, generation, 1000)
            output, errors = sender.communicate(timeout=60)
            self.assertEqual(json.loads(output)["accepted"], 1000, errors)
        deadline = time.monotonic() + 20
        while len(records(self.file)) < 20_000 and time.monotonic() < deadline:
            time.sleep(0.01)
        receiver.terminate()
        receiver.communicate(timeout=20)
        self.assertEqual(set(self.check_received().values()), {1000})
        print("count: ipc: 20 exits of a sender after 1000 messages, 0 missing, 0 doubled, 0 out of order")

    def test_receivers_that_are_killed(self) -> None:
        self.receiver_ends(self.url, signal.SIGKILL, "was killed")

    def test_receivers_that_are_asked_to_end(self) -> None:
        self.receiver_ends(self.url, signal.SIGTERM, "ended")

    def test_senders_that_are_killed(self) -> None:
        self.senders_are_killed(self.url)

    def test_senders_that_exit(self) -> None:
        self.sender_exits(self.url)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:]])
