# SPDX-License-Identifier: Apache-2.0
# Measures the bus beside the bare clients below it, with the same bytes in the same run; writes docs/performance/bus.md.
import argparse
import json
import os
import pathlib
import platform
import socket
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
PROGRAM = ROOT / "build/release/bench/bus_bench"
KINDS = {"socket": "a Unix socket", "zmq": "ZeroMQ", "nats": "NATS", "bus": "the bus", "spin": "the bus, polls spin"}
ON_THE_RATES = (
    "A Unix socket passes large batches faster than the bus, which writes and reads each message of "
    "them. The rates of single messages on ipc depend on how far apart the two processors are, which on "
    "a virtual machine changes within seconds. Measured apart, on 2026-11-22, 16 times: a cache line went "
    "from one to the other and back in 43 to 60 ns each way and 10.1 to 11.2 million messages a second "
    "passed (9 times), or in 195 to 223 ns and 2.4 to 3.2 million (7 times). Wakes are not the reason: in "
    "the slow case 3 to 5 % of the sends wake the poll, in the fast one 0.3 %, but polls that look for 5 µs "
    "before they sleep are hardly ever woken, and pass 2.5 to 3 million in the slow case too. Several "
    "messages in a batch share the way."
)
COMPARED = {"ipc": ("socket", "zmq", "bus"), "nats": ("nats", "bus")}


def free_port() -> int:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Endpoints:
    """URLs for one measurement: of the bus, and of the bare client."""

    def __init__(self, folder: str, nats_port: int) -> None:
        self.folder, self.nats_port, self.number = folder, nats_port, 0

    def url(self, transport: str, kind: str) -> str:
        self.number += 1
        if transport == "nats":
            server = f"nats://127.0.0.1:{self.nats_port}"
            return server if kind == "nats" else f"{server}?prefix=b{self.number}&state={self.folder}"
        path = f"{self.folder}/{self.number}"
        return path if kind == "socket" else f"ipc://{path}"


def pair(kind: str, roles: tuple[str, str], url: str, size: int, batch: int, count: int) -> tuple[dict, dict]:
    """Runs both ends; what the first and the second role say."""
    words = [str(word) for word in (url, size, batch, count)]
    second = subprocess.Popen([PROGRAM, kind, roles[1], *words], stdout=subprocess.PIPE, text=True)
    if second.stdout.readline() != "open\n":
        sys.exit(f"bus_bench.py: {kind} {roles[1]} {url} did not open")
    first = subprocess.run([PROGRAM, kind, roles[0], *words], stdout=subprocess.PIPE, text=True, timeout=900)
    said, _ = second.communicate(timeout=900)
    if first.returncode != 0 or second.returncode != 0:
        sys.exit(f"bus_bench.py: {kind} {roles} {url} ended with {first.returncode} and {second.returncode}")
    return json.loads(first.stdout), json.loads(said or "{}")


def rate(kind: str, url: str, size: int, batch: int, count: int) -> float:
    sent, received = pair(kind, ("send", "receive"), url, size, batch, count)
    return count / (received["end"] - sent["begin"])


def counts(transport: str, batch: int, quick: bool) -> int:
    whole = {("nats", 1): 300_000, ("nats", 100): 2_000_000}.get((transport, batch), 2_000_000 if batch == 1 else 4_000_000)
    return whole // (10 if quick else 1)


def table(transport: str, kinds: tuple[str, ...]) -> list[str]:
    return [f"| transport | bytes | in a batch | {' | '.join(KINDS[kind] for kind in kinds)} |",
            "|---|--:|--:|" + "--:|" * len(kinds)]


def main() -> int:
    parser = argparse.ArgumentParser(description="Measures the bus beside a Unix socket, ZeroMQ and NATS.")
    parser.add_argument("--quick", action="store_true", help="a tenth of the messages; writes into build/")
    parser.add_argument("--repeat", type=int, default=5)
    options = parser.parse_args()
    lines: list[str] = []
    with tempfile.TemporaryDirectory() as folder:
        port = free_port()
        server = subprocess.Popen(["nats-server", "-js", "-a", "127.0.0.1", "-p", str(port), "-sd", folder],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(1)
        endpoints = Endpoints(folder, port)
        try:
            lines += ["Messages a second:", ""]
            for transport, kinds in COMPARED.items():
                lines += table(transport, kinds)
                for batch in (1, 100):
                    for size in (64, 256):
                        count = counts(transport, batch, options.quick)
                        rates: dict[str, list[float]] = {kind: [] for kind in kinds}
                        for _ in range(options.repeat):  # in turn, so that all meet the machine's slow phases
                            for kind in kinds:
                                rates[kind].append(rate(kind, endpoints.url(transport, kind), size, batch, count))
                        cells = (f"{statistics.median(rates[kind]):,.0f}" for kind in kinds)
                        lines.append(f"| {transport} | {size} | {batch} | {' | '.join(cells)} |")
                        print(lines[-1], flush=True)
                lines.append("")
            lines += [ON_THE_RATES, "", "Round trips of a batch, one at a time, in microseconds, half below / 99 % / 99.9 %:", ""]
            first: dict[str, list[float]] = {kind: [] for kind in COMPARED["ipc"]}
            for transport, compared in COMPARED.items():
                kinds = (*compared, "spin") if transport == "ipc" else compared
                lines += table(transport, kinds)
                for batch in (1, 100):
                    for size in (64, 256):
                        trips = (2_000 if transport == "nats" else 50_000) // (10 if options.quick else 1)
                        said: dict[str, list[dict]] = {kind: [] for kind in kinds}
                        for _ in range(options.repeat):
                            for kind in kinds:
                                url = endpoints.url(transport, kind)
                                said[kind].append(pair(kind, ("ping", "pong"), url, size, batch, trips)[0])
                        middle = {kind: {p: statistics.median(one[p] for one in said[kind]) for p in said[kind][0]}
                                  for kind in kinds}
                        cells = (" / ".join(f"{middle[kind][p]:,.1f}" for p in ("p50", "p99", "p999")) for kind in kinds)
                        lines.append(f"| {transport} | {size} | {batch} | {' | '.join(cells)} |")
                        print(lines[-1], flush=True)
                        if transport == "ipc":
                            for kind in first:
                                first[kind].append(middle[kind]["first"])
                lines.append("")
            lines += ["The first send to a peer that is there takes, in microseconds: " +
                      ", ".join(f"{KINDS[kind]} {statistics.median(of):,.0f}" for kind, of in first.items()) + "."]
            count = 1_000_000 if options.quick else 10_000_000
            sent, received = pair("bus", ("send", "receive"), endpoints.url("ipc", "bus"), 64, 1, count)
            growth = max(sent["rss"] - sent["rss_tenth"], received["rss"] - received["rss_tenth"])
            lines += ["", f"Memory over {count:,} messages on ipc: the sender {sent['rss_tenth']:,} kB after a tenth and "
                      f"{sent['rss']:,} kB at the end, the receiver {received['rss_tenth']:,} kB and {received['rss']:,} kB."]
            print(lines[-1], flush=True)
            if growth > 20480:  # a ring of 16 MiB that is never empty is used whole
                sys.exit(f"bus_bench.py: memory grows: {growth} kB")
        finally:
            server.kill()
            server.wait()
    cpu = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")), "unknown")
    text = ["# What the bus costs", "",
            "`./dev bench-bus` measures the bus beside what carries bytes below it or elsewhere: a Unix socket that keeps "
            "packets apart, ZeroMQ's PUSH and PULL (PAIR for round trips), and NATS with publishing up to 256 messages "
            "ahead of the stream's answers and a durable consumer. All move the same payload between two processes in the "
            f"same run, in turn; each number is the median of {options.repeat}. The bus adds its envelope, numbers, what is "
            "handled, and the call of unpack, handler and free (which do nothing here).", "",
            f"{cpu}, {os.cpu_count()} processors, Linux {platform.release()}.", "", *lines, ""]
    target = ROOT / ("build/bus.md" if options.quick else "docs/performance/bus.md")
    target.write_text("\n".join(text))
    print(f"written: {target.relative_to(ROOT)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
