# SPDX-License-Identifier: Apache-2.0
# nac monitor on a terminal: a screen that keeps to the terminal's size, and its keys.
import fcntl
import os
import pty
import re
import select
import struct
import subprocess
import tempfile
import termios
import time
import unittest

from drive import NAC, ROOT, nac

MOVE = "examples/port-move.pcapng"  # 28 messages of 25 types, 1 of them damaged
TYPES = 25


class Screen:
    """The monitor on a terminal of a given size, and a listener for it to watch."""

    def __init__(self, test: unittest.TestCase, columns: int, lines: int) -> None:
        folder = tempfile.TemporaryDirectory()
        test.addCleanup(folder.cleanup)
        self.environment = {**os.environ, "VORN_BUS_URL": f"ipc://{folder.name}/bus", "NO_COLOR": "1"}
        self.listener = subprocess.Popen([NAC, "listen", "--as", "2", "--json"], cwd=ROOT, env=self.environment,
                                         stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        assert self.listener.stderr is not None
        self.listener.stderr.readline()
        self.ours, theirs = pty.openpty()
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", lines, columns, 0, 0))
        self.before = termios.tcgetattr(theirs)
        self.process = subprocess.Popen([NAC, "monitor", "--interval", "0.2"], stdin=theirs, stdout=theirs, stderr=subprocess.PIPE,
                                        text=True, env=self.environment)
        self.theirs = theirs
        self.text = ""
        self.wait_for("from 1 receiver")
        test.addCleanup(self.close)

    def replay(self) -> None:
        done = nac("replay", "--speed", "max", "--as", "1", "--redirect", "2", MOVE, env=self.environment)
        assert done.returncode == 0, done.stderr

    def read(self, seconds: float) -> None:
        while select.select([self.ours], [], [], seconds)[0]:
            self.text += os.read(self.ours, 65536).decode()

    def lines(self) -> list[str]:
        """The last whole screen."""
        frames = [frame for frame in self.text.split("\033[H")[1:] if "\033[J" in frame]
        return frames[-1].split("\033[J")[0].replace("\033[K", "").split("\r\n") if frames else []

    def wait_for(self, pattern: str) -> list[str]:
        end = time.monotonic() + 20
        while not re.search(pattern, "\n".join(self.lines())):
            assert time.monotonic() < end and self.process.poll() is None, "\n".join(self.lines())
            self.read(0.05)
        return self.lines()

    def press(self, keys: str) -> None:
        os.write(self.ours, keys.encode())

    def close(self) -> None:
        for process in (self.process, self.listener):
            process.kill()
            process.communicate()
        os.close(self.ours)
        os.close(self.theirs)


class Monitor(unittest.TestCase):
    def test_totals_are_there_at_any_size(self) -> None:
        for columns, lines in ((120, 40), (80, 24), (60, 8)):
            screen = Screen(self, columns, lines)
            screen.replay()
            shown = screen.wait_for("28 messages, 3895 bytes in")
            self.assertLessEqual(max(map(len, shown)), columns)
            self.assertEqual(len(shown), lines)
            self.assertRegex(shown[0], r"^\d+ messages/s, \d+ bytes/s from ")
            self.assertRegex(shown[-1], "^q quit  s sort: messages/s  p pause ")
            if columns >= 80:
                self.assertRegex(shown[0], "from [12] receivers?; 1 damaged, 0 batches lost")
                self.assertRegex(shown[2], "^type +messages +messages/s +bytes/s +damaged$")

    def test_types_that_do_not_fit_are_counted(self) -> None:
        screen = Screen(self, 80, 12)
        screen.replay()
        shown = screen.wait_for("28 messages")
        rows = [line for line in shown if line.startswith("Nac_")]
        self.assertIn(f"and {TYPES - len(rows)} more types", shown)

    def test_keys_sort_filter_pause_and_quit(self) -> None:
        screen = Screen(self, 100, 40)
        screen.replay()
        screen.wait_for("28 messages")
        for order in ("bytes/s", "messages", "damaged", "name", "messages/s"):
            screen.press("s")
            shown = screen.wait_for(f"s sort: {order} ")
            rows = [line.split() for line in shown if re.match(r"Nac_\S+ +\d", line)]
            if order == "damaged":
                self.assertEqual((rows[0][0], rows[0][-1], rows[1][-1]), ("Nac_SetUserTableMsg", "1", "0"))
            if order == "name":
                self.assertEqual(rows, sorted(rows))
            if order == "messages":
                self.assertEqual([int(row[1]) for row in rows], sorted((int(row[1]) for row in rows), reverse=True))
        screen.press("/port")
        screen.wait_for("/port_")
        screen.press("x\x7f\n")
        shown = screen.wait_for("/ filter: port")
        self.assertEqual({line.split()[0] for line in shown if re.match(r"Nac_\S+ +\d", line)},
                         {"Nac_SetPortMsg", "Nac_PortVlanChangeMsg"})
        screen.press("/zzz\033")
        screen.wait_for("/ filter: port")
        screen.press("p")
        screen.wait_for(r"p go on \(paused\)")
        screen.replay()
        time.sleep(0.5)
        screen.read(0.1)
        self.assertIn("28 messages, 3895 bytes", "\n".join(screen.lines()))
        screen.press("p")
        screen.wait_for("56 messages, 7790 bytes")
        screen.press("q")
        _, words = screen.process.communicate(timeout=20)
        self.assertEqual(screen.process.returncode, 1)  # damaged messages were seen
        self.assertIn("56 messages seen, 7790 bytes, 2 damaged; 0 left out, 0 batches lost on the way here", words)
        self.assertEqual(termios.tcgetattr(screen.theirs), screen.before)

    def test_names_from_outside_do_no_harm(self) -> None:
        screen = Screen(self, 80, 24)
        screen.press("/\x01\x1b")
        screen.wait_for("/ filter")
        self.assertNotIn("\x01", screen.text)

    def test_without_a_terminal_it_prints_lines(self) -> None:
        screen = Screen(self, 80, 24)
        with tempfile.TemporaryFile("w+") as out:
            piped = subprocess.Popen([NAC, "monitor", "--timeout", "1"], stdin=subprocess.DEVNULL, stdout=out,
                                     stderr=subprocess.PIPE, text=True, env=screen.environment)
            assert piped.stderr is not None
            piped.stderr.readline()
            screen.replay()
            piped.communicate(timeout=20)
            out.seek(0)
            text = out.read()
        self.assertNotIn("\033", text)
        self.assertEqual(len(text.splitlines()), 1 + TYPES)


if __name__ == "__main__":
    unittest.main()
