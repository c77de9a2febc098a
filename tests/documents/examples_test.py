# SPDX-License-Identifier: Apache-2.0
# The examples in C and C++: one process sends, another receives. EXAMPLES is the folder of the built programs, NAC the
# tool.
import os
import pathlib
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = pathlib.Path(os.environ["EXAMPLES"])
NAC = os.environ["NAC"]
DAMAGED = "damaged: at 180, f15 of Nac_SetUserTableMsg: 16777216 elements of 2 bytes, and 109 bytes are left"


def received(receiver: str, count: int, *sender: object) -> tuple[list[str], "subprocess.CompletedProcess[str]"]:
    """What a receiver at address 2 prints of what another sends; both succeed."""
    with tempfile.TemporaryDirectory() as folder:
        environment = {**os.environ, "VORN_BUS_URL": f"ipc://{folder}"}
        with subprocess.Popen([EXAMPLES / receiver, "2", str(count)], stdout=subprocess.PIPE, text=True, env=environment) as running:
            sent = subprocess.run(list(map(str, sender)), capture_output=True, text=True, env=environment, timeout=30)
            printed, _ = running.communicate(timeout=30)
    assert (sent.returncode, running.returncode) == (0, 0), (sent, printed)
    return printed.splitlines(), sent


class Examples(unittest.TestCase):
    def test_what_one_process_sends_another_receives(self) -> None:
        for receiver in ("receiver", "receiver_cpp"):
            with self.subTest(receiver=receiver):
                lines, sender = received(receiver, 4, EXAMPLES / "sender", 2)
                # The host's own allocator was found, and gave the block of the batch; a single image lies on the stack.
                self.assertEqual((sender.stdout, sender.stderr),
                                 ("4 records handled; the host's allocator was called 1 times\n", ""))
                self.assertEqual(lines, [f'Nac_SetPortMsg from address 1: {{"f0":{port},"f1":{value}}}'
                                         for port, value in ((24, 1), (25, 1), (26, 0), (27, 1))])

    def test_a_damaged_message_is_shown_with_what_is_wrong(self) -> None:
        replay = (NAC, "replay", "--speed", "max", "--as", 1, "--redirect", 2, ROOT / "examples/port-move.pcapng")
        two_types = ("--type", "Nac_SetPortMsg", "--type", "Nac_SetUserTableMsg")  # which the receiver in C++ takes
        for receiver, count, chosen in (("receiver", 28, ()), ("receiver_cpp", 4, two_types)):
            with self.subTest(receiver=receiver):
                lines, _ = received(receiver, count, *replay, *chosen)
                self.assertEqual(len(lines), count)
                self.assertEqual([line for line in lines if "damaged" in line],
                                 [f"Nac_SetUserTableMsg from address 1: {DAMAGED}"])

    def test_wrong_usage_has_its_exit_code(self) -> None:
        for name in ("sender", "receiver", "receiver_cpp"):
            done = subprocess.run([EXAMPLES / name], capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stdout), (2, ""))
            self.assertTrue(done.stderr.startswith(f"usage: {name} ADDRESS"))


if __name__ == "__main__":
    unittest.main()
