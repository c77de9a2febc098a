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
AIMS = {100: 0.85, 1: 0.70}  # of the bare client's messages a second, by batch


def free_port() -> int:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Endpoints:
    """URLs for one measurement: of the bus, and of the bare client."""

    def __init__(self, folder: str, nats_port: int) -> None:
        self.folder, self.nats_port, self.number = folder, nats_port, 0

    def urls(self, transport: str) -> dict[str, str]:
        self.number += 1
        port = free_port()
        return {
            "ipc": {"bus": f"ipc://{self.folder}/bus{self.number}", "bare": f"ipc://{self.folder}/bare{self.number}"},
            "tcp": {"bus": f"tcp://127.0.0.1:{port - 10}", "bare": f"tcp://127.0.0.1:{port}"},
            "nats": {"bus": f"nats://127.0.0.1:{self.nats_port}?prefix=b{self.number}&state={self.folder}",
                     "bare": f"nats://127.0.0.1:{self.nats_port}"},
        }[transport]


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


def main() -> int:
    parser = argparse.ArgumentParser(description="Measures the bus beside bare ZeroMQ and bare NATS.")
    parser.add_argument("--quick", action="store_true", help="a tenth of the messages; writes into build/")
    parser.add_argument("--repeat", type=int, default=5)
    options = parser.parse_args()
    lines: list[str] = []
    missed = 0
    with tempfile.TemporaryDirectory() as folder:
        port = free_port()
        server = subprocess.Popen(["nats-server", "-js", "-a", "127.0.0.1", "-p", str(port), "-sd", folder],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        time.sleep(1)
        endpoints = Endpoints(folder, port)
        try:
            lines += ["| transport | bytes | in a batch | bare, messages/s | bus, messages/s | bus / bare | aim |",
                      "|---|--:|--:|--:|--:|--:|--:|"]
            for transport in ("ipc", "tcp", "nats"):
                for batch in (1, 100):
                    for size in (64, 256):
                        count = counts(transport, batch, options.quick)
                        rates: dict[str, list[float]] = {"bare": [], "bus": []}
                        for _ in range(options.repeat):  # in turn, so that both meet the machine's slow phases
                            for kind in rates:
                                rates[kind].append(rate(kind, endpoints.urls(transport)[kind], size, batch, count))
                        bare, bus = (statistics.median(rates[kind]) for kind in ("bare", "bus"))
                        missed += bus / bare < AIMS[batch]
                        lines.append(f"| {transport} | {size} | {batch} | {bare:,.0f} | {bus:,.0f} | {bus / bare:.2f} | "
                                     f"{AIMS[batch]:.2f} |")
                        print(lines[-1], flush=True)
            lines += ["", "Round trips of a batch, one at a time, in microseconds, half below / 99 % / 99.9 %:", "",
                      "| transport | bytes | in a batch | bare | bus | bus / bare, half |", "|---|--:|--:|--:|--:|--:|"]
            for transport in ("ipc", "tcp", "nats"):
                for batch in (1, 100):
                    for size in (64, 256):
                        trips = (2_000 if transport == "nats" else 20_000) // (10 if options.quick else 1)
                        said = {kind: pair(kind, ("ping", "pong"), endpoints.urls(transport)[kind], size, batch, trips)[0]
                                for kind in ("bare", "bus")}
                        cells = [" / ".join(f"{said[kind][p]:,.0f}" for p in ("p50", "p99", "p999")) for kind in said]
                        lines.append(f"| {transport} | {size} | {batch} | {cells[0]} | {cells[1]} | "
                                     f"{said['bus']['p50'] / said['bare']['p50']:.1f} |")
                        print(lines[-1], flush=True)
            lines += ["", "The bus hands a batch from the sender to its own thread, and from there to the poller: two more "
                      "changes of thread each way than ZeroMQ alone, in exchange for numbers and acknowledgements."]
            count = 1_000_000 if options.quick else 10_000_000
            sent, received = pair("bus", ("send", "receive"), endpoints.urls("ipc")["bus"], 64, 1, count)
            growth = max(sent["rss"] - sent["rss_tenth"], received["rss"] - received["rss_tenth"])
            lines += ["", f"Memory over {count:,} messages on ipc: the sender {sent['rss_tenth']:,} kB after a tenth and "
                      f"{sent['rss']:,} kB at the end, the receiver {received['rss_tenth']:,} kB and {received['rss']:,} kB."]
            print(lines[-1], flush=True)
            if growth > 8192:
                sys.exit(f"bus_bench.py: memory grows: {growth} kB")
        finally:
            server.kill()
            server.wait()
    cpu = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")), "unknown")
    text = ["# What the bus costs", "",
            "`./dev bench-bus` measures the bus beside the bare client below it: ZeroMQ's PUSH and PULL, and NATS with "
            "publishing up to 256 messages ahead of the stream's answers and a durable consumer. Both move the same payload "
            f"between two processes in the same run, in turn; each number is the median of {options.repeat}. The bus adds its envelope, numbers, "
            "acknowledgements and the call of unpack, handler and free (which do nothing here).", "",
            f"{cpu}, {os.cpu_count()} processors, Linux {platform.release()}.", "", *lines, ""]
    if missed:
        text += [f"{missed} of the rates above miss their aim.", ""]
    target = ROOT / ("build/bus.md" if options.quick else "docs/performance/bus.md")
    target.write_text("\n".join(text))
    print(f"written: {target.relative_to(ROOT)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
