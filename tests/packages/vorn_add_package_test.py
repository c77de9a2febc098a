# SPDX-License-Identifier: Apache-2.0
# What vorn_add_package refuses, and in which words.
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


class Refused(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.sources = pathlib.Path(self.folder.name)
        for header in (ROOT / "examples/lease").glob("*.h"):
            shutil.copy(header, self.sources)

    def refusal(self, call: str) -> str:
        (self.sources / "call.cmake").write_text(f'include({ROOT}/cmake/vorn_add_package.cmake)\nvorn_add_package({call})\n')
        done = subprocess.run(["cmake", "-P", "call.cmake"], cwd=self.sources, capture_output=True, text=True)
        self.assertEqual(done.returncode, 1)
        return " ".join(done.stderr.split())

    def test_a_name_that_cannot_begin_records(self) -> None:
        self.assertIn("Le_ase is no name of a package: a capital letter, then letters and digits", self.refusal("Le_ase"))

    def test_a_header_that_is_missing_or_not_there(self) -> None:
        self.assertIn("vorn_add_package(Lease): DESCRIPTIONS HEADER is missing", self.refusal("Lease RECORDS lease.h"))
        self.assertIn(f"there is no {self.sources}/none.h", self.refusal("Lease RECORDS lease.h DESCRIPTIONS none.h"))

    def test_an_argument_that_it_does_not_know(self) -> None:
        self.assertIn("VERSION is not understood; there are RECORDS, DESCRIPTIONS, LIBRARY and NO_CATALOGUE",
                      self.refusal("Lease RECORDS lease.h DESCRIPTIONS lease_descriptions.h VERSION"))

    def test_a_header_without_modules(self) -> None:
        self.assertIn("lease_descriptions.h lists no module: its macro LEASE_ALL_MODULES(MODULE) has a row for each, as "
                      "MODULE(pool, lease_pool, LEASE_POOL_MESSAGES)",
                      self.refusal("Lease RECORDS lease_descriptions.h DESCRIPTIONS lease_descriptions.h"))


if __name__ == "__main__":
    unittest.main()
