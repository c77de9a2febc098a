# SPDX-License-Identifier: Apache-2.0
# What of the messages comes when processes, files and networks fail, counted by the numbers in the records. Prints the
# table of docs/bus.md, which --update writes there, and fails where the bus breaks its promises.
#
# Sender, receiver and the only server of NATS are on hosts of their own, network namespaces that end with this script.
import argparse
import contextlib
import functools
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import typing

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "bus")]
import bus_chaos as hosts  # noqa: E402
import bus_under_faults as faults  # noqa: E402
from bus_under_faults import Outcome, Peers, Process, Verdict  # noqa: E402

PAGE = HERE.parents[1] / "docs/bus.md"
BEGIN, END = "<!-- faults: written by python3 tests/long/bus_faults.py --update, as root -->\n", "<!-- faults end -->\n"
SERVER_HOST = 3
STORE_MIB = 24


class NatsPeers(hosts.HostsPeers):
    def __init__(self, folder: pathlib.Path) -> None:
        super().__init__(folder)
        self.store = folder / f"store{SERVER_HOST}"
        self.store.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={STORE_MIB}m", "tmpfs", str(self.store)], check=True)
        self.server = hosts.Server(SERVER_HOST, folder, (SERVER_HOST,))
        self.state = folder / "state"
        self.url = f"nats://{hosts.address(SERVER_HOST)}:4222?state={self.state}"
        time.sleep(1)

    def close(self) -> None:
        super().close()
        self.server.kill()
        self.server.log.close()
        subprocess.run(["umount", "--lazy", str(self.store)], check=True)


def cut(peers: Peers, receiver: "Process[str]", host: int = hosts.RECEIVER_HOST) -> "Process[str]":
    hosts.run("ip", "link", "set", f"port{host}", "down")
    time.sleep(peers.random.uniform(0.2, 6))
    hosts.run("ip", "link", "set", f"port{host}", "up")
    return receiver


def server_killed(peers: Peers, receiver: "Process[str]") -> "Process[str]":
    assert isinstance(peers, NatsPeers)
    peers.server.kill()
    time.sleep(peers.random.uniform(0, 1))
    peers.server.start()
    return receiver


def without_its_journal(peers: Peers, receiver: "Process[str]") -> "Process[str]":
    assert isinstance(peers, NatsPeers)
    receiver.kill()
    receiver.communicate()
    shutil.rmtree(peers.state)
    return peers.start_receiver()


def disk_full(peers: Peers) -> Outcome:
    """Others fill the server's disk until it refuses, and make space again."""
    assert isinstance(peers, NatsPeers)
    receiver = peers.start_receiver()
    messages = 200_000
    sender = peers.start_sender(messages)
    faults.wait_until("messages", lambda: peers.arrived() >= messages / 10)
    filler = peers.store / "filler"
    with open(filler, "wb", buffering=0) as file, contextlib.suppress(OSError):
        while True:
            file.write(bytes(4096))
    time.sleep(5)
    filler.unlink()
    server_killed(peers, receiver)  # it stops storing once it has met a full disk
    report = peers.end_of(sender)
    return Outcome(messages, 1, peers.finish(receiver, {0: peers.accepted()}), report)


MAY_LOSE = {("the sender is killed", "nats"), ("the sender exits right after its sends, without a flush", "nats")}
Scenario = typing.Callable[[Peers], Outcome]
many = functools.partial(functools.partial, faults.while_sending)
ROWS: "list[tuple[str, dict[str, Scenario]]]" = [
    ("the receiver is killed", {"ipc": many(fault=faults.killed, faults=8, messages=600_000),
                                "nats": many(fault=faults.killed, faults=8, messages=200_000)}),
    ("the sender is killed", {"ipc": functools.partial(faults.senders_killed, kills=8),
                              "nats": functools.partial(faults.senders_killed, kills=8)}),
    ("the same, and it flushes after each send", {"ipc": functools.partial(faults.senders_killed, kills=4, role="sync"),
                                                  "nats": functools.partial(faults.senders_killed, kills=4, role="sync")}),
    ("the receiver is asked to end (SIGTERM), its handler takes 20 µs or more",
     {"ipc": many(fault=faults.ended, faults=8, messages=60_000, slow_us=20),
      "nats": many(fault=faults.ended, faults=8, messages=60_000, slow_us=20)}),
    ("the receiver is stopped for a while (SIGSTOP, SIGCONT)",
     {"ipc": many(fault=faults.stopped, faults=8, messages=600_000),
      "nats": many(fault=faults.stopped, faults=8, messages=200_000)}),
    ("the sender exits right after its sends, without a flush", {"ipc": functools.partial(faults.senders_exit, exits=20),
                                                               "nats": functools.partial(faults.senders_exit, exits=20)}),
    ("the receiver's network is cut", {"nats": many(fault=cut, faults=5, messages=1_000_000)}),
    ("the sender's network is cut", {"nats": many(fault=functools.partial(cut, host=hosts.SENDER_HOST), faults=5,
                                                  messages=1_000_000)}),
    ("the server is killed", {"nats": many(fault=server_killed, faults=5, messages=600_000)}),
    ("the server's disk is full", {"nats": disk_full}),
    ("the receiver is killed, and its state folder is lost",
     {"nats": many(fault=without_its_journal, faults=4, messages=200_000)}),
]


def peers_of(transport: str, folder: pathlib.Path) -> Peers:
    return Peers(folder) if transport == "ipc" else NatsPeers(folder)


def measure(transport: str, scenario: Scenario) -> Outcome:
    folder = pathlib.Path(tempfile.mkdtemp(prefix="vorn-faults-"))
    peers = peers_of(transport, folder)
    try:
        outcome = scenario(peers)
    except Exception as error:
        print(f"bus_faults: {transport}: {error}; logs are in {folder}", file=sys.stderr)
        raise
    finally:
        peers.close()
    shutil.rmtree(folder)
    return outcome


def table(only: str) -> "tuple[str, bool]":
    """As text, and whether the promises are kept."""
    lines = ["| what happens | on | times | accepted | lost | doubled | doubled, flagged | out of order |\n",
             "|---|---|--:|--:|--:|--:|--:|--:|\n"]
    total = Verdict(0, 0, 0, 0)
    accepted = rows = 0
    kept = True
    for what, transport, scenario in [(what, *each) for what, all_of in ROWS if only in what for each in all_of.items()]:
        messages, times, verdict, report = measure(transport, scenario)
        against = verdict._replace(lost=0) if (what, transport) in MAY_LOSE else verdict
        total = Verdict(*map(sum, zip(total, against)))
        accepted, rows, kept = accepted + messages, rows + 1, kept and not report.get("lost_batches")
        numbers = " | ".join(f"{number:,}" for number in (times, messages, *verdict))
        lines.append(f"| {what} | {transport} | {numbers} |\n")
        print(lines[-1], end="", file=sys.stderr, flush=True)
    print(f"count: {accepted:,} messages under {rows} kinds of faults: {total.lost} lost but of senders on nats that end without "
          f"a flush, {total.doubled} doubled without the flag, {total.flagged} with it, {total.disordered} out of order")
    return "".join(lines), kept and (total.lost, total.doubled, total.disordered) == (0, 0, 0)


def main() -> int:
    parser = argparse.ArgumentParser(description="Counts what comes while processes, files and networks fail.")
    parser.add_argument("--update", action="store_true", help="write the table into docs/bus.md")
    parser.add_argument("--only", default="", help="rows that contain this text")
    options = parser.parse_args()
    if hosts.INSIDE not in os.environ:
        hosts.enter_namespaces()
    hosts.make_hosts()
    made, well = table(options.only)
    print(made)
    if options.update:
        page = PAGE.read_text()
        before, rest = page.split(BEGIN)
        PAGE.write_text(before + BEGIN + made + END + rest.split(END)[1])
    return 0 if well else 1


if __name__ == "__main__":
    sys.exit(main())
