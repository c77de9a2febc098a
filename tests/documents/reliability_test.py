# SPDX-License-Identifier: Apache-2.0
# The page on reliability names tests that exist, and its figures are those on record.
import pathlib
import re
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/long"))
import sweeps  # noqa: E402


class Reliability(unittest.TestCase):
    text = sweeps.PAGE.read_text()

    def test_every_test_that_keeps_a_fault_away_exists(self) -> None:
        rows = re.findall(r"^\| .* \| (.*) \|$", self.text.partition("## Figures")[0], re.M)[1:]
        names = [name for row in rows for name in re.findall(r"`(\w+)`", row)]
        self.assertGreater(len(names), len(rows) - 1)
        sources = [path for folder in ("tests", "fuzz", "python/tests") for path in (ROOT / folder).rglob("*")
                   if path.suffix in (".cpp", ".py")]
        known = {path.stem for path in sources} | {word for path in sources for word in re.findall(r"\w+", path.read_text())}
        self.assertEqual([name for name in names if name not in known], [])

    def test_its_figures_are_those_on_record(self) -> None:
        self.assertIn(sweeps.page(sweeps.on_record()), self.text)


if __name__ == "__main__":
    unittest.main()
