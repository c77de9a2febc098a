# SPDX-License-Identifier: Apache-2.0
# ./dev ends with the first step that fails, and only then says that all has passed. Its programs are stand-ins here.
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
STEPS = ("cmake", "ctest", "tests/layout/lint.sh", "tests/tool/page/install.sh")


class Dev(unittest.TestCase):
    def run_dev(self, verb: str, failing: str) -> "subprocess.CompletedProcess[str]":
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            shutil.copy(ROOT / "dev", folder / "dev")
            for step in (*STEPS, "dpkg-query"):
                path = folder / (step if "/" in step else f"bin/{step}")
                path.parent.mkdir(parents=True, exist_ok=True)
                does = "printf installed" if step == "dpkg-query" else "exit 1" if step == failing else "exit 0"
                path.write_text(f"#!/bin/sh\n{does}\n")
                path.chmod(0o755)
            for preset in ("quick", "release", "clang-release", "asan", "tsan"):
                log = folder / f"build/{preset}/Testing/Temporary/LastTest.log"
                log.parent.mkdir(parents=True)
                log.touch()
            return subprocess.run(["sh", folder / "dev", verb], capture_output=True, text=True,
                                  env={**os.environ, "PATH": f"{folder}/bin:{os.environ['PATH']}"})

    def test_all_is_well_where_every_step_is(self) -> None:
        done = self.run_dev("test", failing="")
        self.assertEqual((done.returncode, done.stdout.splitlines()[-1]), (0, "== all passed"), done.stderr)

    def test_a_step_that_fails_ends_it(self) -> None:
        for verb, steps in (("test", STEPS), ("quick", ("cmake", "ctest")), ("build", ("cmake",))):
            for step in steps:
                with self.subTest(verb=verb, step=step):
                    done = self.run_dev(verb, failing=step)
                    self.assertNotEqual(done.returncode, 0)
                    self.assertNotIn("all passed", done.stdout)


if __name__ == "__main__":
    unittest.main()
