# SPDX-License-Identifier: Apache-2.0
# A sender and a receiver in processes of their own, what may happen to them, and a checker that counts by the numbers in
# the records.
#
# PEER names the program that sends and receives.
import json
import mmap
import os
import pathlib
import random
import signal
import struct
import subprocess
import time
import typing

PEER = os.environ.get("PEER", str(pathlib.Path(__file__).resolve().parents[2] / "build/release/tests/bus/bus_peer"))
RECEIVER = 2
Process = subprocess.Popen  # of strings
Accepted = typing.Dict[int, int]  # of each generation


class Verdict(typing.NamedTuple):
    lost: int
    doubled: int  # without the flag
    flagged: int  # came again, with the flag
    disordered: int


def records(file: pathlib.Path) -> "list[tuple[bool, int, int]]":
    """What a receiver has written down: whether it was flagged as repeated, generation, number."""
    data = file.read_bytes() if file.exists() else b""
    return [(generation >= 1 << 31, generation if generation < 1 << 31 else ~generation & 0xFFFFFFFF, number)
            for generation, number in struct.iter_unpack("<II", data[: len(data) // 8 * 8])]


def judge(file: pathlib.Path, accepted: Accepted) -> Verdict:
    seen: "set[tuple[int, int]]" = set()
    last: "dict[int, int]" = {}
    doubled = flagged = disordered = 0
    for marked, generation, number in records(file):
        if (generation, number) in seen:
            flagged += marked
            doubled += not marked
            continue
        disordered += number < last.get(generation, -1)
        last[generation] = max(number, last.get(generation, -1))
        seen.add((generation, number))
    lost = sum(1 for generation, count in accepted.items() for number in range(count) if (generation, number) not in seen)
    return Verdict(lost, doubled, flagged, disordered)


def wait_until(what: str, holds: "typing.Callable[[], object]", seconds: float = 60) -> None:
    end = time.monotonic() + seconds
    while not holds():
        if time.monotonic() > end:
            raise TimeoutError(f"{what}: not within {seconds:.0f} s")
        time.sleep(0.01)


class Peers:
    """On ipc; a transport with hosts overrides how their programs start."""

    name = "ipc"

    def __init__(self, folder: pathlib.Path, seed: int = 1) -> None:
        self.folder = folder
        self.url = f"ipc://{folder}/bus"
        self.received = folder / "received"
        self.random = random.Random(seed)
        self.running: "list[Process[str]]" = []
        self.errors = open(folder / "peers.log", "ab")

    def on_host(self, role: str) -> "list[str]":
        """What comes before the command of a sender or receiver."""
        return []

    def start(self, role: str, *arguments: object) -> "Process[str]":
        process = subprocess.Popen([*self.on_host(role), PEER, role, *map(str, arguments)], stdout=subprocess.PIPE,
                                   stderr=self.errors, text=True)
        self.running.append(process)
        return process

    def start_receiver(self, slow_us: int = 0) -> "Process[str]":
        receiver = self.start("receive", self.url, RECEIVER, self.received, slow_us)
        assert receiver.stdout is not None and receiver.stdout.readline() == "open\n", self.log()
        return receiver

    def start_sender(self, messages: int, batch: int = 1, generation: int = 0, role: str = "send") -> "Process[str]":
        (self.folder / f"accepted{generation}").write_bytes(bytes(8))
        return self.start(role, self.url, 1, RECEIVER, generation, messages, batch, self.folder / f"accepted{generation}")

    def accepted(self, generation: int = 0) -> int:
        """What sends have accepted, as the sender has written it into shared memory: a kill does not take it back."""
        with open(self.folder / f"accepted{generation}", "rb") as file, mmap.mmap(file.fileno(), 8, prot=mmap.PROT_READ) as at:
            return int.from_bytes(at[:8], "little")

    def arrived(self) -> int:
        return self.received.stat().st_size // 8 if self.received.exists() else 0

    def log(self) -> str:
        return (self.folder / "peers.log").read_text()[-1000:]

    def end_of(self, sender: "Process[str]") -> "dict[str, int]":
        """What it reports, once it has sent everything."""
        output, _ = sender.communicate(timeout=600)
        assert sender.returncode == 0, self.log()
        return json.loads(output)

    def finish(self, receiver: "Process[str]", accepted: Accepted, seconds: float = 15) -> Verdict:
        """Lets the receiver handle what is left, until nothing has come for a while, and ends it."""
        before, since = -1, time.monotonic()
        while self.arrived() < sum(accepted.values()) and time.monotonic() - since < seconds:
            if self.arrived() != before:
                before, since = self.arrived(), time.monotonic()
            time.sleep(0.05)
        receiver.terminate()
        receiver.communicate(timeout=30)
        return judge(self.received, accepted)

    def close(self) -> None:
        for process in self.running:
            if process.poll() is None:
                process.kill()
                process.communicate()
        self.errors.close()


class Outcome(typing.NamedTuple):
    messages: int
    faults: int
    verdict: Verdict
    report: "dict[str, int]"  # the last sender's


Fault = typing.Callable[[Peers, "Process[str]"], "Process[str]"]  # returns the receiver from then on


def killed(peers: Peers, receiver: "Process[str]", end: signal.Signals = signal.SIGKILL, slow_us: int = 0) -> "Process[str]":
    receiver.send_signal(end)
    receiver.communicate()
    return peers.start_receiver(slow_us)


def ended(peers: Peers, receiver: "Process[str]") -> "Process[str]":
    return killed(peers, receiver, signal.SIGTERM, 20)


def stopped(peers: Peers, receiver: "Process[str]") -> "Process[str]":
    receiver.send_signal(signal.SIGSTOP)
    time.sleep(peers.random.uniform(0.05, 0.5))
    receiver.send_signal(signal.SIGCONT)
    return receiver


def while_sending(peers: Peers, fault: Fault, faults: int, messages: int, slow_us: int = 0) -> Outcome:
    """Each of the faults happens after a random share of the messages has come."""
    receiver = peers.start_receiver(slow_us)
    sender = peers.start_sender(messages)
    points = sorted(peers.random.uniform(0.02, 0.9) * messages for _ in range(faults))
    for point in points:
        wait_until("messages", lambda: peers.arrived() >= point, 120)
        receiver = fault(peers, receiver)
    report = peers.end_of(sender)
    return Outcome(messages, faults, peers.finish(receiver, {0: peers.accepted()}), report)


def senders_killed(peers: Peers, kills: int, role: str = "send") -> Outcome:
    receiver = peers.start_receiver()
    report: "dict[str, int]" = {}
    for generation in range(kills + 1):
        sender = peers.start_sender(100_000_000 if generation < kills else 1000, 1, generation, role)
        if generation < kills:
            before = peers.arrived()
            wait_until("messages", lambda: peers.arrived() >= before + 100)
            time.sleep(peers.random.uniform(0, 0.1))
            sender.kill()
            sender.communicate()
        else:
            report = peers.end_of(sender)
    accepted = {generation: peers.accepted(generation) for generation in range(kills + 1)}
    return Outcome(sum(accepted.values()), kills, peers.finish(receiver, accepted), report)


def senders_exit(peers: Peers, exits: int) -> Outcome:
    """Right after the last send, without a flush or a close."""
    receiver = peers.start_receiver()
    accepted = {}
    for generation in range(exits):
        accepted[generation] = peers.end_of(peers.start_sender(1000, 1, generation, "exit"))["accepted"]
    return Outcome(sum(accepted.values()), exits, peers.finish(receiver, accepted), {})
