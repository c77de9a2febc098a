# SPDX-License-Identifier: Apache-2.0
# Three hosts, each a network namespace with a server of a NATS cluster. One sends numbered messages to another, while
# servers and the receiver are killed and hosts are cut off with their servers, at random times. Nothing may be lost,
# come twice or out of order.
#
# All of it runs in namespaces of its own for network, mounts and processes, which end with it.
import argparse
import http.client
import json
import os
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "bus"))
from bus_under_faults import Peers, Process, judge, records, wait_until  # noqa: E402

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
    """A server of the cluster, or the only one, with its files; can be killed and started again."""

    def __init__(self, host: int, folder: pathlib.Path, cluster: "tuple[int, ...]" = HOSTS) -> None:
        self.host = host
        self.log = open(folder / f"server{host}.log", "ab")
        self.configuration = folder / f"server{host}.conf"
        routes = ", ".join(f"nats://{address(other)}:6222" for other in cluster if other != host)
        # Clients and routes that are cut off shall be noticed in seconds.
        self.configuration.write_text(
            f"server_name: s{host}\nlisten: {address(host)}:4222\nhttp: {address(host)}:8222\n"
            f"ping_interval: \"1s\"\nping_max: 2\nwrite_deadline: \"2s\"\n"
            f"jetstream {{ store_dir: \"{folder}/store{host}\" }}\n"
            + (f"cluster {{ name: chaos, listen: {address(host)}:6222, routes: [{routes}] }}\n" if routes else ""))
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


class HostsPeers(Peers):
    """The sender on one host, the receiver on another."""

    name = "nats"
    receiver_host = RECEIVER_HOST

    def on_host(self, role: str) -> "list[str]":
        return ["ip", "netns", "exec", f"host{self.receiver_host if role == 'receive' else SENDER_HOST}"]


class Chaos:
    def __init__(self, messages: int, batch: int, kills: int, seed: int, folder: pathlib.Path) -> None:
        self.messages, self.batch, self.most_kills = messages, batch, kills
        self.random = random.Random(seed)
        self.folder = folder
        self.peers = HostsPeers(folder, seed)
        servers = ",".join(f"{address(host)}:4222" for host in HOSTS)
        self.peers.url = f"nats://{servers}?prefix=chaos&replicas=3&state={folder}/state"
        self.kills = {"server": 0, "receiver": 0, "cut": 0}

    def start(self) -> "Process[str]":
        self.servers = [Server(host, self.folder) for host in HOSTS]
        self.receiver = self.peers.start_receiver()  # which makes the stream
        wait_until("all servers up to date", self.is_replicated)
        return self.peers.start_sender(self.messages, self.batch)

    def kill_a_server(self) -> None:
        server = self.random.choice(self.servers)
        server.kill()
        time.sleep(self.random.uniform(0, 1))
        server.start()

    def kill_the_receiver(self) -> None:
        self.receiver.kill()
        self.receiver.communicate()
        time.sleep(self.random.uniform(0, 0.3))
        self.receiver = self.peers.start_receiver()

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
        sender = self.start()
        points = sorted(self.random.uniform(0.02, 0.95) * self.messages for _ in range(self.most_kills))
        for point in points:
            wait_until("messages", lambda: self.peers.arrived() >= point or sender.poll() is not None, 300)
            self.harm()
        report = self.peers.end_of(sender)
        verdict = self.peers.finish(self.receiver, {0: report["accepted"]}, 60)
        print(f"count: {report['accepted']} messages, {sum(self.kills.values())} kills ({self.kills['server']} of servers, "
              f"{self.kills['receiver']} of the receiver, {self.kills['cut']} cuts of a host) in "
              f"{time.monotonic() - begin:.0f} s, with a send_timeout_ms of 2000: {verdict.lost} lost, {verdict.doubled} "
              f"doubled without the flag, {verdict.flagged} with it, {verdict.disordered} out of order; the sender was "
              f"refused {report['refused']} times, and counts {report['lost_batches']} batches as lost", flush=True)
        return ((report["accepted"], verdict.lost, verdict.doubled, verdict.disordered) == (self.messages, 0, 0, 0)
                and verdict.flagged <= self.batch * self.kills["receiver"]
                and (report["lost_batches"], report["left"], report["flush"]) == (0, 0, 0))


class Takeover(Chaos):
    """The receiver's host is cut off, and another host takes its address, without its journal. What the first handled and
    could not acknowledge may come to the second, but marked; after the second has begun, the first handles no more than
    the batch in its hands."""

    def execute(self) -> bool:
        sender = self.start()
        wait_until("messages", lambda: self.peers.arrived() >= self.messages / 4)
        run("ip", "link", "set", f"port{RECEIVER_HOST}", "down")
        other = HostsPeers(self.folder)
        other.receiver_host = HOSTS[2]
        other.received = self.folder / "second"
        other.url = self.peers.url.replace("/state", "/another")
        second = other.start_receiver()
        wait_until("the second receiver's begin", other.arrived, 90)
        before = records(self.peers.received)
        run("ip", "link", "set", f"port{RECEIVER_HOST}", "up")
        sender.communicate(timeout=300)
        seen = {number for _, _, number in before}
        wait_until("the last messages",
                   lambda: len(seen | {number for _, _, number in records(other.received)}) >= self.messages, 90)
        time.sleep(5)  # for what the first might handle once it is back
        late = len(records(self.peers.received)) - len(before)
        for process in (self.receiver, second):
            process.terminate()
            process.communicate(timeout=30)
        handled = records(other.received)
        unmarked = sum(1 for marked, _, number in handled if not marked and number in seen)
        marked = sum(1 for mark, _, number in handled if mark and number in seen)
        print(f"count: takeover: {self.messages} messages: {marked} came to both receivers with a mark, {unmarked} without one; the "
              f"first handled {late} after the second had begun", flush=True)
        return (unmarked == 0 and late <= self.batch and judge(other.received, {}).doubled == 0
                and self.messages == len(seen | {number for _, _, number in handled}))


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
        running = scenario(options.messages, options.batch, options.kills, options.seed, folder)
        well = running.execute()
        for server in running.servers:
            server.kill()  # which writes to the folder
    finally:
        if well and not options.keep:
            shutil.rmtree(folder)
        else:
            print(f"bus_chaos: logs are in {folder}", file=sys.stderr)
    return 0 if well else 1


if __name__ == "__main__":
    sys.exit(main())
