# SPDX-License-Identifier: Apache-2.0
# Three hosts, each a network namespace with a server of a NATS cluster. One sends numbered messages to another, while
# servers and the receiver are killed and hosts are cut off with their servers, at random times. Nothing may be lost,
# come twice or out of order.
#
# All of it runs in namespaces of its own for network, mounts and processes, which end with it. PEER names the program
# that sends and receives.
import argparse
import http.client
import json
import os
import pathlib
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import time

PEER = os.environ.get("PEER", str(pathlib.Path(__file__).resolve().parents[2] / "build/release/tests/bus/bus_peer"))
HOSTS = (1, 2, 3)
SENDER_HOST, RECEIVER_HOST = 1, 2
RECEIVER_STREAM = "chaos-2"
INSIDE = "VORN_CHAOS_INSIDE"
NOT_RUN = 77  # CTest lists it under what did not run


def address(host: int) -> str:
    return f"10.77.0.{host}"


def enter_namespaces() -> None:
    """Starts this script again in namespaces of its own; says why where that is not permitted."""
    command = ["unshare", "--net", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
    if os.geteuid() != 0:
        command += ["--user", "--map-root-user"]
    probe = subprocess.run([*command, "ip", "link", "add", "probe", "type", "bridge"], capture_output=True, text=True)
    if probe.returncode != 0:
        print("bus_chaos: not run, since it needs network namespaces with bridges, which this machine does not permit: "
              + probe.stderr.strip(), file=sys.stderr)
        sys.exit(NOT_RUN)
    os.environ[INSIDE] = "1"
    os.execvp("unshare", [*command, sys.executable, *sys.argv])


def run(*command: object) -> None:
    subprocess.run([str(word) for word in command], check=True)


def make_hosts() -> None:
    pathlib.Path("/run/netns").mkdir(parents=True, exist_ok=True)
    run("mount", "-t", "tmpfs", "tmpfs", "/run/netns")
    run("ip", "link", "set", "lo", "up")
    run("ip", "link", "add", "switch", "type", "bridge")
    run("ip", "address", "add", f"{address(254)}/24", "dev", "switch")
    run("ip", "link", "set", "switch", "up")
    for host in HOSTS:
        run("ip", "netns", "add", f"host{host}")
        run("ip", "link", "add", f"port{host}", "type", "veth", "peer", "name", "eth0", "netns", f"host{host}")
        run("ip", "link", "set", f"port{host}", "master", "switch", "up")
        run("ip", "-n", f"host{host}", "address", "add", f"{address(host)}/24", "dev", "eth0")
        for device in ("lo", "eth0"):
            run("ip", "-n", f"host{host}", "link", "set", device, "up")


class Server:
    """A server of the cluster, with its files; can be killed and started again."""

    def __init__(self, host: int, folder: pathlib.Path) -> None:
        self.host = host
        self.log = open(folder / f"server{host}.log", "ab")
        self.configuration = folder / f"server{host}.conf"
        routes = ", ".join(f"nats://{address(other)}:6222" for other in HOSTS if other != host)
        # Clients and routes that are cut off shall be noticed in seconds.
        self.configuration.write_text(
            f"server_name: s{host}\nlisten: {address(host)}:4222\nhttp: {address(host)}:8222\n"
            f"ping_interval: \"1s\"\nping_max: 2\nwrite_deadline: \"2s\"\n"
            f"jetstream {{ store_dir: \"{folder}/store{host}\" }}\n"
            f"cluster {{ name: chaos, listen: {address(host)}:6222, routes: [{routes}] }}\n")
        self.start()

    def start(self) -> None:
        self.process = subprocess.Popen(["ip", "netns", "exec", f"host{self.host}", "nats-server", "-c",
                                         str(self.configuration)], stdout=self.log, stderr=self.log)

    def kill(self) -> None:
        self.process.kill()  # ip has become the server
        self.process.wait()

    def groups_it_leads(self) -> "dict[str, list[bool]]":
        """The stream and the consumer of the receiver's address where this server leads them: which replicas keep up."""
        try:
            connection = http.client.HTTPConnection(address(self.host), 8222, timeout=1)
            connection.request("GET", "/jsz?accounts=true&streams=true&consumers=true")
            report = json.loads(connection.getresponse().read())
        except (OSError, http.client.HTTPException, ValueError):
            return {}
        led = {}
        for account in report.get("account_details") or []:
            for stream in account.get("stream_detail") or []:
                for group in (stream, *(stream.get("consumer_detail") or [])):
                    cluster = group.get("cluster") or {}
                    if stream["name"] == RECEIVER_STREAM and cluster.get("leader") == f"s{self.host}":
                        led[group["name"]] = [replica["current"] for replica in cluster.get("replicas") or []]
        return led


def wait_until(what: str, holds, seconds: float = 60) -> None:
    end = time.monotonic() + seconds
    while not holds():
        if time.monotonic() > end:
            raise TimeoutError(f"{what}: not within {seconds:.0f} s")
        time.sleep(0.05)


class Chaos:
    def __init__(self, messages: int, batch: int, kills: int, seed: int, folder: pathlib.Path) -> None:
        self.messages, self.batch, self.most_kills = messages, batch, kills
        self.random = random.Random(seed)
        self.folder = folder
        self.received = folder / "received"
        servers = ",".join(f"{address(host)}:4222" for host in HOSTS)
        self.url = f"nats://{servers}?prefix=chaos&replicas=3&state={folder}/state"
        self.kills = {"server": 0, "receiver": 0, "cut": 0}
        self.errors = open(folder / "peers.log", "ab")

    def peer(self, host: int, *arguments: object) -> "subprocess.Popen[str]":
        return subprocess.Popen(["ip", "netns", "exec", f"host{host}", PEER, *map(str, arguments)],
                                stdout=subprocess.PIPE, stderr=self.errors, text=True)

    def start_receiver(self) -> None:
        self.receiver = self.peer(RECEIVER_HOST, "receive", self.url, 2, self.received)

    def arrived(self) -> int:
        return self.received.stat().st_size // 8 if self.received.exists() else 0

    def kill_a_server(self) -> None:
        server = self.random.choice(self.servers)
        server.kill()
        time.sleep(self.random.uniform(0, 1))
        server.start()

    def kill_the_receiver(self) -> None:
        self.receiver.kill()
        self.receiver.communicate()
        time.sleep(self.random.uniform(0, 0.3))
        self.start_receiver()

    def cut_a_host(self) -> None:
        """With the leader, with the sender, or with the receiver, for longer than its lease."""
        host = self.random.choice(HOSTS)
        run("ip", "link", "set", f"port{host}", "down")
        time.sleep(self.random.uniform(0.2, 6))
        run("ip", "link", "set", f"port{host}", "up")

    def is_replicated(self) -> bool:
        """Any one server can be killed: the others hold all that the receiver's stream and consumer hold.

        The servers' own word for health is no use: it includes streams without traffic, of which a server that comes
        back may say for ever that they are not current."""
        led: "dict[str, list[bool]]" = {}
        for server in self.servers:
            led.update(server.groups_it_leads())
        return set(led) == {RECEIVER_STREAM, "receiver"} and all(replicas == [True, True] for replicas in led.values())

    def harm(self) -> None:
        """One kill, at a random share of the messages; all servers hold everything again before the next."""
        action = self.random.choice([self.kill_a_server, self.kill_a_server, self.kill_the_receiver,
                                     self.kill_the_receiver, self.cut_a_host])
        self.kills[{"kill_a_server": "server", "kill_the_receiver": "receiver", "cut_a_host": "cut"}[action.__name__]] += 1
        action()
        wait_until("all servers up to date", self.is_replicated, 90)

    def execute(self) -> bool:
        begin = time.monotonic()
        self.servers = [Server(host, self.folder) for host in HOSTS]
        self.start_receiver()
        # The receiver makes the stream; its first word says that it has.
        if self.receiver.stdout.readline() != "open\n":
            raise RuntimeError("the receiver could not open the bus")
        wait_until("all servers up to date", self.is_replicated)
        sender = self.peer(SENDER_HOST, "send", self.url, 1, 2, 0, self.messages, self.batch)
        points = sorted(self.random.uniform(0.02, 0.95) * self.messages for _ in range(self.most_kills))
        for point in points:
            wait_until("messages", lambda: self.arrived() >= point or sender.poll() is not None, 300)
            self.harm()
        output, _ = sender.communicate(timeout=1800)
        if sender.returncode != 0:
            raise RuntimeError(f"the sender ended with {sender.returncode}: {(self.folder / 'peers.log').read_text()[-500:]}")
        report = json.loads(output)
        wait_until("the last messages", lambda: self.arrived() >= report["accepted"] or self.receiver.poll() is not None, 60)
        time.sleep(1)  # for what comes twice
        self.receiver.terminate()
        self.receiver.communicate(timeout=30)
        return self.judge(report, time.monotonic() - begin)

    def judge(self, report: dict, seconds: float) -> bool:
        numbers = [number for _, number in struct.iter_unpack("<II", self.received.read_bytes())]
        seen = set(numbers)
        lost = report["accepted"] - len(seen)
        doubled = len(numbers) - len(seen)
        disorder = sum(1 for before, after in zip(numbers, numbers[1:]) if after <= before)
        print(f"count: {report['accepted']} messages, {sum(self.kills.values())} kills ({self.kills['server']} of servers, "
              f"{self.kills['receiver']} of the receiver, {self.kills['cut']} cuts of a host) in {seconds:.0f} s, with a "
              f"send_timeout_ms of 2000: {max(lost, 0)} lost, {doubled} doubled, {disorder} out of order; the sender was "
              f"refused {report['refused']} times, and counts {report['lost_batches']} batches as lost", flush=True)
        return ((report["accepted"], lost, doubled, disorder) == (self.messages, 0, 0, 0)
                and (report["lost_batches"], report["left"], report["flush"]) == (0, 0, 0))


class Takeover(Chaos):
    """The receiver's host is cut off, and another host takes its address, without its journal. What the first handled and
    could not acknowledge may come to the second, but marked; after the second has begun, the first handles no more than
    the batch in its hands."""

    def numbers(self, file: pathlib.Path) -> "list[tuple[bool, int]]":
        """For each message that was handled, whether it was marked, and its number."""
        found = struct.iter_unpack("<II", file.read_bytes()) if file.exists() else []
        return [(generation != 0, number) for generation, number in found]

    def execute(self) -> bool:
        self.servers = [Server(host, self.folder) for host in HOSTS]
        self.start_receiver()
        self.receiver.stdout.readline()
        wait_until("all servers up to date", self.is_replicated)
        sender = self.peer(SENDER_HOST, "send", self.url, 1, 2, 0, self.messages, self.batch)
        wait_until("messages", lambda: self.arrived() >= self.messages / 4)
        run("ip", "link", "set", f"port{RECEIVER_HOST}", "down")
        second_file = self.folder / "second"
        url = self.url.replace("/state", "/another")
        second = self.peer(HOSTS[2], "receive", url, 2, second_file, "marks")
        wait_until("the second receiver's begin", lambda: self.numbers(second_file), 90)
        before = self.numbers(self.received)
        run("ip", "link", "set", f"port{RECEIVER_HOST}", "up")
        sender.communicate(timeout=300)
        seen = {number for _, number in before}
        wait_until("the last messages", lambda: len(seen | {n for _, n in self.numbers(second_file)}) >= self.messages, 90)
        time.sleep(5)  # for what the first might handle once it is back
        late = len(self.numbers(self.received)) - len(before)
        for process in (self.receiver, second):
            process.terminate()
            process.communicate(timeout=30)
        handled = self.numbers(second_file)
        unmarked = sum(1 for marked, number in handled if not marked and number in seen)
        marked = sum(1 for mark, number in handled if mark and number in seen)
        print(f"count: takeover: {self.messages} messages: {marked} came to both receivers with a mark, {unmarked} without one; the "
              f"first handled {late} after the second had begun", flush=True)
        return unmarked == 0 and late <= self.batch and self.messages == len(seen | {n for _, n in handled})


def main() -> int:
    parser = argparse.ArgumentParser(description="Kills servers and the receiver of a NATS cluster, and cuts hosts off.")
    parser.add_argument("--messages", type=int, default=20_000)
    parser.add_argument("--batch", type=int, default=10)
    parser.add_argument("--kills", type=int, default=6)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--takeover", action="store_true", help="cut the receiver off, and start another elsewhere")
    parser.add_argument("--keep", action="store_true", help="leave the folder with all logs")
    options = parser.parse_args()
    if INSIDE not in os.environ:
        enter_namespaces()
    folder = pathlib.Path(tempfile.mkdtemp(prefix="vorn-chaos-"))
    well = False
    try:
        make_hosts()
        scenario = Takeover if options.takeover else Chaos
        well = scenario(options.messages, options.batch, options.kills, options.seed, folder).execute()
    finally:
        if well and not options.keep:
            shutil.rmtree(folder)
        else:
            print(f"bus_chaos: logs are in {folder}", file=sys.stderr)
    return 0 if well else 1


if __name__ == "__main__":
    sys.exit(main())
