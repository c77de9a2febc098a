# SPDX-License-Identifier: Apache-2.0
# Senders and receivers on ipc are killed, ended by a signal, stopped, or exit at random times: every message that was
# accepted comes, in its order, and once but for those that a killed receiver had in its hands, which are flagged.
#
# SEED and MESSAGES may be given.
import os
import pathlib
import struct
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import bus_under_faults as faults  # noqa: E402

SEED = int(os.environ.get("SEED", "1"))
MESSAGES = int(os.environ.get("MESSAGES", "600000"))


class Kill(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = tempfile.TemporaryDirectory()
        self.peers = faults.Peers(pathlib.Path(self.folder.name), SEED)

    def tearDown(self) -> None:
        self.peers.close()
        self.folder.cleanup()

    def check(self, what: str, outcome: faults.Outcome, flagged: int = 0) -> None:
        verdict = outcome.verdict
        self.assertEqual((verdict.lost, verdict.doubled, verdict.disordered), (0, 0, 0))
        self.assertLessEqual(verdict.flagged, flagged)
        if outcome.report:
            self.assertEqual((outcome.report["left"], outcome.report["lost_batches"]), (0, 0))
        print(f"count: ipc: {outcome.messages} messages, {outcome.faults} {what}: 0 lost, 0 doubled without the flag, "
              f"{verdict.flagged} with it, 0 out of order")

    def test_receivers_that_are_killed_repeat_at_most_one_batch_with_the_flag(self) -> None:
        self.check("kills of the receiver", faults.while_sending(self.peers, faults.killed, 8, MESSAGES), flagged=8)

    def test_receivers_that_are_asked_to_end_repeat_nothing(self) -> None:
        self.check("ends of the receiver", faults.while_sending(self.peers, faults.ended, 8, MESSAGES // 10, 20))

    def test_receivers_that_are_stopped_and_continue(self) -> None:
        self.check("stops of the receiver", faults.while_sending(self.peers, faults.stopped, 4, MESSAGES))

    def test_senders_that_are_killed(self) -> None:
        self.check("kills of the sender", faults.senders_killed(self.peers, 6))

    def test_the_checker_finds_each_violation(self) -> None:
        marked = 0xFFFFFFFF
        came = [(0, 0), (0, 2), (0, 1), (0, 1), (marked, 2), (marked - 1, 0), (1, 1)]
        self.peers.received.write_bytes(b"".join(struct.pack("<II", *record) for record in came))
        self.assertEqual(faults.judge(self.peers.received, {0: 5, 1: 2}),
                         faults.Verdict(lost=2, doubled=1, flagged=1, disordered=1))

    def test_senders_that_exit(self) -> None:
        self.check("exits of the sender", faults.senders_exit(self.peers, 20))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:]])
