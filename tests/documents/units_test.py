# SPDX-License-Identifier: Apache-2.0
# The units of examples/systemd: systemd knows all that is in them, the folder is made as the bus wants it, and their
# commands run. No systemd needs to run here.
import os
import pathlib
import re
import signal
import stat
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
UNITS = ROOT / "examples/systemd"
NAC = os.environ.get("NAC", str(ROOT / "build/release/nac"))


class Units(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.bus = self.folder / "bus"

    def run_command(self, *command: object) -> "subprocess.CompletedProcess[str]":
        done = subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, done.stderr), (0, ""), command)
        return done

    def start(self, unit: str) -> "subprocess.Popen[str]":
        """What ExecStart has, with this build's nac, and folders of this test."""
        text = (UNITS / unit).read_text()
        (command,) = re.findall(r"^ExecStart=(.*)$", text, re.M)
        (environment,) = re.findall(r"^Environment=(.*)$", text, re.M)
        name, value = environment.split("=", 1)
        moved = [word.replace("/usr/bin/nac", NAC).replace("/var/lib", str(self.folder))
                 for word in command.replace("--watch 15", "--watch 0.1").split()]
        process = subprocess.Popen(moved, env={**os.environ, name: value.replace("/run/vorn", str(self.bus))},
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def test_systemd_knows_all_that_is_in_them(self) -> None:
        for unit in UNITS.glob("*.service"):
            copy = self.folder / unit.name
            copy.write_text(unit.read_text().replace("/usr/bin/nac", NAC))
            done = subprocess.run(["systemd-analyze", "verify", "--man=no", str(copy)], capture_output=True, text=True, timeout=60)
            ours = [line for line in done.stderr.splitlines() if unit.name in line]
            self.assertEqual((done.returncode, ours), (0, []), unit.name)

    @unittest.skipUnless(os.geteuid() == 0, "only root makes users and their folders")
    def test_the_folder_is_the_users_alone(self) -> None:
        (self.folder / "etc").mkdir()
        (self.folder / "run").mkdir()
        root = f"--root={self.folder}"
        subprocess.run(["systemd-sysusers", root, str(UNITS / "vorn-sysusers.conf")], check=True, capture_output=True, timeout=60)
        (user,) = re.findall(r"^vorn:x:(\d+):", (self.folder / "etc/passwd").read_text(), re.M)
        self.run_command("systemd-tmpfiles", root, "--create", UNITS / "vorn-tmpfiles.conf")
        made = (self.folder / "run/vorn").stat()
        self.assertEqual((stat.S_IMODE(made.st_mode), made.st_uid), (0o700, int(user)))

    def test_their_commands_run_and_end(self) -> None:
        receiver = self.start("vorn-receiver.service")
        assert receiver.stderr is not None
        self.assertIn("listening at address 2", receiver.stderr.readline())
        session = ROOT / "examples/access-session.jsonl"
        subprocess.run([NAC, "send", "--bus", f"ipc://{self.bus}", "--to", "2", str(session)], check=True, capture_output=True,
                       timeout=60)
        (self.folder / "vorn-stats").mkdir()
        stats = self.start("vorn-stats.service")
        file = self.folder / "vorn-stats/vorn.prom"
        end = time.monotonic() + 20
        while not file.exists() and time.monotonic() < end:
            time.sleep(0.05)
        text = file.read_text()
        self.assertIn('vorn_bus_received_messages_total{address="2"} 29\n', text)
        self.assertTrue(text.endswith("# EOF\n"))
        for process in (stats, receiver):
            process.send_signal(signal.SIGTERM)
        output, errors = receiver.communicate(timeout=20)
        self.assertEqual((receiver.returncode, len(output.splitlines())), (0, 29), errors)
        self.assertEqual(stats.wait(timeout=20), 0)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:]])
