# SPDX-License-Identifier: Apache-2.0
# The manual pages: they are what the headers and the tool say, they build, and mandoc finds no errors in them.
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = sorted((ROOT / "man").glob("*.scd"))


class Manual(unittest.TestCase):
    def test_pages_are_up_to_date(self) -> None:
        done = subprocess.run([sys.executable, ROOT / "docs/make/manual.py"], capture_output=True, text=True, timeout=60)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        print(done.stdout, end="")

    def test_pages_build_without_errors(self) -> None:
        self.assertGreaterEqual(len(PAGES), 15)
        with tempfile.TemporaryDirectory() as folder:
            for path in PAGES:
                built = pathlib.Path(folder) / path.stem
                made = subprocess.run(["scdoc"], input=path.read_bytes(), capture_output=True,
                                      env={**os.environ, "SOURCE_DATE_EPOCH": "0"})
                self.assertEqual((made.returncode, made.stderr), (0, b""), path.name)
                built.write_bytes(made.stdout)
                # Errors alone: what mandoc warns of is scdoc's way of writing paragraphs.
                lint = subprocess.run(["mandoc", "-Tlint", "-Werror", str(built)], capture_output=True, text=True)
                self.assertEqual((lint.returncode, lint.stdout), (0, ""), path.name)
                shown = subprocess.run(["mandoc", "-Tutf8", str(built)], capture_output=True, text=True)
                for heading in ("NAME", "SYNOPSIS", "DESCRIPTION", "SEE ALSO"):
                    self.assertIn(heading, re.sub(".\b", "", shown.stdout), path.name)

    def test_pages_refer_to_pages(self) -> None:
        names = {path.stem for path in PAGES}
        for path in PAGES:
            text = path.read_text().replace("\\", "").split("# SEE ALSO")[1]
            for reference in text.strip().split(", "):
                name, section = reference.replace("*", "").rstrip(")").split("(")
                self.assertIn(f"{name}.{section}", names, path.name)


if __name__ == "__main__":
    unittest.main()
