# SPDX-License-Identifier: Apache-2.0
# One damaged message among 28, on a bus: every verb that shows what passes shows which it is, and why.
#
# NAC names the tool.
import json
import pathlib
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from capture_test import Running, nac
from drive import assert_fits

CAPTURE = "examples/port-move.pcapng"
FAULT = "at 180, f15 of Nac_SetUserTableMsg: 16777216 elements of 2 bytes, and 109 bytes are left"


class Damage(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.bus = f"ipc://{folder.name}/bus"

    def replayed(self, running: Running) -> tuple[int, str, str]:
        """How a verb ends to which, or past which, the capture is replayed."""
        sent = nac("replay", "--speed", "max", "--as", "1", "--redirect", "2", CAPTURE, bus=self.bus)
        self.assertEqual(sent.returncode, 0, sent.stderr)
        return running.end()

    def listen(self, *arguments: str) -> tuple[int, str, str]:
        return self.replayed(Running("listen", "--as", "2", "--count", "28", *arguments, bus=self.bus).wait_for("listening"))

    def test_listen_shows_it_and_ends_with_1(self) -> None:
        code, out, words = self.listen()
        self.assertEqual(code, 1)
        rows = out.splitlines()
        self.assertEqual(len(rows), 29)
        self.assertEqual([row for row in rows if "damaged" in row],
                         [f"{'1':<7} {'Nac_SetUserTableMsg':<36} {293:>6}  damaged: {FAULT}"])
        self.assertIn("28 records in 28 batches arrived; 1 damaged, 0 of unknown ids", words)

    def test_listen_has_its_verdict_and_what_is_left_of_it_as_json(self) -> None:
        code, out, _ = self.listen("--json")
        self.assertEqual(code, 1)
        lines = [json.loads(line) for line in out.splitlines()]
        for line in lines:
            assert_fits("listen", line)
        damaged = [line for line in lines if line["verdict"] != "ok" or line["faults"]]
        self.assertEqual([(line["type"], line["verdict"], line["faults"][0]) for line in damaged],
                         [("Nac_SetUserTableMsg", "damaged", FAULT)])
        self.assertEqual([damaged[0]["record"][field] for field in ("f0", "f15", "f31")], [4711, [], ""])

    def test_monitor_shows_it_and_ends_with_1(self) -> None:
        listener = Running("listen", "--as", "2", bus=self.bus).wait_for("listening")
        self.addCleanup(lambda: listener.end(interrupt=True))
        for arguments in ([], ["--json"]):
            with self.subTest(arguments=arguments):
                monitor = Running("monitor", "--messages", "--count", "28", "--timeout", "20", *arguments, bus=self.bus)
                code, out, words = self.replayed(monitor.wait_for("watching 1 receiver\n"))
                self.assertEqual((code, "1 damaged" in words), (1, True), words)
                (row,) = [row for row in out.splitlines() if "damaged" in row]
                if arguments:
                    self.assertEqual((json.loads(row)["verdict"], json.loads(row)["faults"][0]), ("damaged", FAULT))
                else:
                    self.assertTrue(row.endswith(f"  damaged: {FAULT}"), row)

    def test_replay_counts_it_where_it_receives(self) -> None:
        done = nac("replay", "--speed", "max", "--json", CAPTURE)
        self.assertEqual(done.returncode, 0)
        totals = json.loads(done.stdout)
        assert_fits("replay", totals)
        self.assertEqual((totals["arrived_messages"], totals["damaged_messages"]), (28, 1))
        self.assertIn("28 messages arrived within the tool, 1 damaged", done.stderr)

    def test_another_process_is_asked_for_its_count(self) -> None:
        listener = Running("listen", "--as", "2", bus=self.bus).wait_for("listening")
        self.addCleanup(lambda: listener.end(interrupt=True))
        self.assertEqual(nac("replay", "--speed", "max", "--as", "1", "--redirect", "2", CAPTURE, bus=self.bus).returncode, 0)
        counters = json.loads(nac("bus", "stats", "--json", "2", bus=self.bus).stdout)
        assert_fits("bus-stats", counters)
        self.assertEqual((counters["damaged_messages"], counters["damaged"]), (1, 0))


if __name__ == "__main__":
    unittest.main()
