# SPDX-License-Identifier: Apache-2.0
# The examples in C: one process sends, another receives. EXAMPLES is the folder of the built programs.
import os
import pathlib
import subprocess
import tempfile
import unittest

EXAMPLES = pathlib.Path(os.environ["EXAMPLES"])


class Examples(unittest.TestCase):
    def test_what_one_process_sends_another_receives(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            environment = {**os.environ, "VORN_BUS_URL": f"ipc://{folder}"}
            with subprocess.Popen([EXAMPLES / "receiver", "2", "4"], stdout=subprocess.PIPE, text=True, env=environment) as receiver:
                sender = subprocess.run([EXAMPLES / "sender", "2"], capture_output=True, text=True, env=environment, timeout=30)
                received, _ = receiver.communicate(timeout=30)
        self.assertEqual((sender.returncode, sender.stderr, receiver.returncode), (0, "", 0))
        # The host's own allocator was found, and gave the block of the batch; a single image lies on the stack.
        self.assertEqual(sender.stdout, "4 records handled; the host's allocator was called 1 times\n")
        self.assertEqual(received.splitlines(), [f"Nac_SetPortMsg f0={port} f1={value} from address 1"
                                                 for port, value in ((24, 1), (25, 1), (26, 0), (27, 1))])

    def test_wrong_usage_has_its_exit_code(self) -> None:
        for name in ("sender", "receiver"):
            done = subprocess.run([EXAMPLES / name], capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stdout), (2, ""))
            self.assertTrue(done.stderr.startswith(f"usage: {name} ADDRESS"))


if __name__ == "__main__":
    unittest.main()
