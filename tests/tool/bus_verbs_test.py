# SPDX-License-Identifier: Apache-2.0
# nac bus: what is at the addresses of a bus, the counters of those that are open, and what is left of the others.
import pathlib
import signal
import subprocess
import tempfile
import time
import unittest

from drive import NAC, SESSION, VerbTest, nac


class Bus(VerbTest):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.url = f"ipc://{folder.name}/bus"
        self.listener = subprocess.Popen([NAC, "listen", "--bus", self.url, "--as", "2", "--timeout", "60"],
                                         stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        self.addCleanup(self.end_listener)
        assert self.listener.stderr is not None
        self.assertIn("listening at address 2", self.listener.stderr.readline())
        self.assertEqual(nac("send", "--bus", self.url, "--to", "2", str(SESSION)).returncode, 0)

    def end_listener(self) -> None:
        if self.listener.poll() is None:
            self.listener.kill()
            self.listener.communicate()

    def bus(self, verb: str, *arguments: str) -> "subprocess.CompletedProcess[str]":
        return nac("bus", verb, "--bus", self.url, *arguments)

    def test_list_has_each_address_and_what_waits_there(self) -> None:
        endpoint = f"{self.url}/2.sock"
        self.assertEqual(self.read("bus-list", self.bus("list", "--json").stdout),
                         [{"address": 2, "open": True, "waiting_batches": 0, "stored_bytes": 0, "endpoint": endpoint}])
        header, row = self.bus("list").stdout.splitlines()
        self.assertEqual(header.split(), ["address", "open", "waiting_batches", "stored_bytes", "endpoint"])
        self.assertEqual(row.split(), ["2", "yes", "0", "0", endpoint])

    def test_stats_has_the_counters_of_those_that_are_open(self) -> None:
        (counters,) = self.read("bus-stats", self.bus("stats", "--json").stdout)
        self.assertEqual((counters["address"], counters["received_messages"]), (2, 29))
        self.assertIn("  received_messages            29\n", self.bus("stats").stdout)

    def test_stats_prints_what_prometheus_reads(self) -> None:
        done = self.bus("stats", "--openmetrics", "2", "3")
        self.assertEqual(done.returncode, 3)  # nobody is at 3
        lines = done.stdout.splitlines()
        self.assertEqual(lines[2:4], ['vorn_bus_up{address="2"} 1', 'vorn_bus_up{address="3"} 0'])
        self.assertIn("# TYPE vorn_bus_received_messages counter", lines)
        self.assertIn('vorn_bus_received_messages_total{address="2"} 29', lines)
        self.assertIn("# TYPE vorn_bus_waiting_batches gauge", lines)
        self.assertIn('vorn_bus_waiting_batches{address="2"} 0', lines)
        self.assertEqual(lines[-1], "# EOF")
        for line in lines[:-1]:
            self.assertRegex(line, r'^# (HELP|TYPE) vorn_bus_[a-z_]+ .+|^vorn_bus_[a-z_]+\{address="\d+"\} \d+$')

    def test_stats_writes_a_file_again_and_again_until_it_is_interrupted(self) -> None:
        file = self.folder / "vorn.prom"
        stats = subprocess.Popen([NAC, "bus", "stats", "--bus", self.url, "--openmetrics", "--watch", "0.05", "-o", str(file)])
        try:
            end = time.monotonic() + 20
            while not (file.exists() and file.read_text().endswith("# EOF\n")) and time.monotonic() < end:
                time.sleep(0.02)
            before = file.stat().st_ino
            while file.stat().st_ino == before and time.monotonic() < end:  # replaced, so never half
                time.sleep(0.02)
            self.assertNotEqual(file.stat().st_ino, before)
        finally:
            stats.send_signal(signal.SIGTERM)
            self.assertEqual(stats.wait(timeout=20), 0)
        self.assert_complains(self.bus("stats", "--openmetrics", "-o", str(self.folder / "no/file")), 3, "No such file")
        self.assert_complains(self.bus("stats", "--openmetrics", "--json"), 2, "excludes")

    def test_remove_removes_what_is_left_and_nothing_else(self) -> None:
        self.assert_complains(self.bus("remove", "2"), 3, "address 2: a bus is open there; end its process first")
        self.end_listener()  # a kill leaves the socket's file
        (left,) = self.read("bus-list", self.bus("list", "--json").stdout)
        self.assertEqual((left["open"], left["waiting_batches"]), (False, None))
        self.assertEqual(self.read("bus-remove", self.bus("remove", "--json", "2").stdout),
                         [{"address": 2, "result": "VORN_BUS_OK"}])
        self.assertEqual(self.bus("list").stdout, "")
        self.assert_complains(self.bus("remove", "2"), 3, "address 2: nothing is left there")
        self.assert_complains(nac("bus", "remove", "--bus", "loop:", "2"), 2, "within one process")
        self.assert_complains(nac("bus", "remove", "--bus", "tcp://host:1", "2"), 2, "nats://HOST:PORT")


if __name__ == "__main__":
    unittest.main()
